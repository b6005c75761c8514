// The copy script (.cpy): reading it and taking its fields apart. Running one is the target `run`.

#include "fuzz/support.h"
#include "installer/copy.h"

#include <cstring>

using namespace installer;

namespace {

void look(copy *script, std::uint32_t index, std::size_t size) {
    using part = char *(*)(copy *, std::uint32_t, char *, int);
    for (const part look_at : {copy_src_path, copy_dst_path, copy_src_file, copy_dst_file}) {
        fuzz::buffer text(size);
        if (look_at(script, index, text.get(), text.size()) != nullptr)
            FUZZ_CHECK(std::strlen(text.get()) < size);
    }
}

void check(copy *script, std::uint32_t index) {
    FUZZ_CHECK(copy_src(script, index) != nullptr);
    look(script, index, 256);
    look(script, index, 1 + index % 30);
    if (char *text = replace_vars(script, copy_src(script, index))) {
        FUZZ_CHECK(std::strlen(text) <= 9999);
        std::free(text);
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static fuzz::memory_file file;
    fuzz::swallow_log();
    file.fill(fuzz::text_of(data, size));
    const setting_list settings[] = {{"base", "/srv/board", Ini_None},
                                     {"nested", "$(base)/$(base)", Ini_None},
                                     {"none", nullptr, Ini_None},
                                     {nullptr, nullptr, Ini_None}};
    ini *store = ini_init();
    ini_setup(store, settings, nullptr, 1);
    copy *script = copy_init(store);
    if (copy_load(script, file.path(), "install") != 0)
        for (std::uint32_t i = 0; i < copy_count(script); ++i)
            check(script, i);
    copy_free(&script);
    ini_free(&store);
    return 0;
}
