// The settings data file (.dat): loading it, with the references among its values.

#include "fuzz/support.h"
#include "installer/shared.h"

using namespace installer;

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static fuzz::memory_file file;
    fuzz::swallow_log();
    file.fill(fuzz::text_of(data, size));
    ini *store = ini_init();
    if (load_datfile(store, file.path()) != 0) {
        FUZZ_CHECK(ini_items(store) >= 4); // the built-in settings
        for (int i = 0; i < ini_items(store); ++i) {
            FUZZ_CHECK(ini_label(store, i) != nullptr);
            ini_value(store, i);
        }
    }
    clear_datfile();
    ini_free(&store);
    return 0;
}
