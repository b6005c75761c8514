// The web server's configuration: the input stands at the first of the places where it is looked for. Linked with
// --wrap=fopen.

#include "fuzz/support.h"
#include "installer/init.h"

#include <algorithm>
#include <cstring>
#include <iterator>

using namespace installer;

namespace {

fuzz::memory_file &configuration() {
    static fuzz::memory_file file;
    return file;
}

bool is_looked_for(const char *path) {
    return std::any_of(std::begin(http_files), std::end(http_files),
                       [path](const char *place) { return std::strcmp(place, path) == 0; });
}

} // namespace

extern "C" FILE *__real_fopen(const char *path, const char *mode);
extern "C" FILE *__wrap_fopen(const char *path, const char *mode);

FILE *__wrap_fopen(const char *path, const char *mode) {
    return __real_fopen(is_looked_for(path) ? configuration().path() : path, mode);
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    fuzz::swallow_log();
    configuration().fill(fuzz::text_of(data, size));
    done_user = done_group = done_root = done_scripts = 0;
    fuzz::buffer user(1000), group(1000), root(1000), scripts(1000), message(1000);
    if (init_find_http_conf(user.get(), group.get(), root.get(), scripts.get(), message.get()) != 0)
        FUZZ_CHECK(done_user && done_group && done_root && done_scripts);
    else
        FUZZ_CHECK(!message.text().empty() && user.text().empty() && root.text().empty());
    return 0;
}
