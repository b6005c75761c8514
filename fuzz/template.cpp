// The template of the copy script's "Ini" command: each line trimmed, expanded and written.

#include "fuzz/support.h"
#include "installer/copy.h"

#include <algorithm>

using namespace installer;

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static fuzz::memory_file source, target, script;
    fuzz::swallow_log();
    source.fill(fuzz::text_of(data, size));
    target.fill("what stood there before");
    script.fill("[install]\nIni " + std::string(source.path()) + " " + target.path() + "\n");

    const setting_list settings[] = {{"base", "/srv/board", Ini_None},
                                     {"nested", "$(base)/$(base)", Ini_None},
                                     {nullptr, nullptr, Ini_None}};
    ini *store = ini_init();
    ini_setup(store, settings, nullptr, 1);
    copy *x = copy_init(store);
    FUZZ_CHECK(copy_load(x, script.path(), "install") == 1 && copy_count(x) == 1);
    FUZZ_CHECK(copy_write_ini(x, 0) == 1);
    const std::string written = target.content();
    const std::string_view read = fuzz::text_of(data, size);
    FUZZ_CHECK(written.empty() ? read.empty() : written.back() == '\n');
    // A line is written for each one read, and for each further piece of a long one.
    FUZZ_CHECK(std::count(written.begin(), written.end(), '\n') >=
               std::count(read.begin(), read.end(), '\n'));
    copy_free(&x);
    ini_free(&store);
    return 0;
}
