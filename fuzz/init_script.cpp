// The init script (.int): reading it, and running what neither writes nor opens the files that it names.

#include "fuzz/support.h"
#include "installer/ini.h"
#include "installer/init.h"

using namespace installer;

namespace {

bool harmless(const init_item &item) {
    return item.mode == INothing || item.mode == IExist || item.mode == ICopy || item.mode == ITimeDate;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static fuzz::memory_file file;
    fuzz::swallow_log();
    file.fill(fuzz::text_of(data, size));
    ini *store = ini_init();
    const setting_list settings[] = {{"format", "%Y-%m-%d %H:%M:%S", Ini_None},
                                     {"base", "/srv/$(format)", Ini_Replace},
                                     {nullptr, nullptr, Ini_None}};
    ini_setup(store, settings, nullptr, 1);
    init_s *script = init_init();
    FUZZ_CHECK(init_load(script, file.path()) == 1);
    init_start(script);
    while (const init_item *item = init_get(script)) {
        FUZZ_CHECK(item->a != nullptr && item->b != nullptr);
        if (harmless(*item))
            init_do(store, item);
    }
    init_free(&script);
    ini_free(&store);
    return 0;
}
