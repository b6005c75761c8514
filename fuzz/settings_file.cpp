// A settings file (.ini): loading, peeking, and that what was saved is loaded and saved again without a change.

#include "fuzz/support.h"
#include "installer/ini.h"

#include <cstring>

using namespace installer;

namespace {

constexpr setting_list settings[] = {
    {"name", nullptr, Ini_None},   {"many", nullptr, Ini_Multi},      {"path", nullptr, Ini_Path},
    {"fixed", "f", Ini_Fixed},     {"empty", nullptr, Ini_Empty},     {"secret", nullptr, Ini_Pass},
    {"vhost", nullptr, Ini_Multi}, {"vhost_match", "HOME", Ini_None}, {nullptr, nullptr, Ini_None},
};

ini *make_store() {
    ini *store = ini_init();
    ini_setup(store, settings, nullptr, 0);
    return store;
}

/// The lines that save and load cannot both carry are left out of the comparison: a file with a virtual host, which is
/// saved as settings of those names, and one with lines as long as the line buffer.
bool comparable(std::string_view text) {
    if (text.find("vhost") != text.npos || text.find("vend") != text.npos)
        return false;
    while (!text.empty())
        if (fuzz::take(text, '\n').size() >= 990)
            return false;
    return true;
}

/// A name with an extension, for the loader adds one to any other. In a folder that is left behind, in $TMPDIR.
std::string link_to(const char *file) {
    const char *temporary = std::getenv("TMPDIR");
    std::string folder = std::string(temporary != nullptr ? temporary : "/tmp") + "/fuzz-settings-XXXXXX";
    FUZZ_CHECK(mkdtemp(folder.data()) != nullptr);
    FUZZ_CHECK(symlink(file, (folder + "/f.ini").c_str()) == 0);
    return folder + "/f.ini";
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static fuzz::memory_file file;
    static const std::string path = link_to(file.path());
    fuzz::swallow_log();
    file.fill(fuzz::text_of(data, size));

    ini *first = make_store();
    for (int i = 0; i < ini_items(first); ++i)
        if (const char *value = ini_peek(first, path.c_str(), i))
            FUZZ_CHECK(std::strlen(value) < 1000);
    FUZZ_CHECK(ini_load(first, path.c_str(), size % 2 == 0 ? "host" : nullptr) == 1);
    FUZZ_CHECK(ini_save(first, path.c_str()) == 1);
    const std::string saved = file.content();
    ini_free(&first);

    if (comparable(saved)) {
        ini *second = make_store();
        FUZZ_CHECK(ini_load(second, path.c_str(), nullptr) == 1);
        FUZZ_CHECK(ini_save(second, path.c_str()) == 1);
        FUZZ_CHECK(file.content() == saved);
        ini_free(&second);
    }
    return 0;
}
