// "$(name)" references: ini_process, ini_replace and replace_vars over a store made of the input's lines. A line begins
// with a character whose bits are the setting's mode, then comes the name, a blank and the value; a line "@12" lets
// setting 1 borrow from setting 2.

#include "fuzz/support.h"
#include "installer/copy.h"
#include "installer/ini.h"

#include <cstring>
#include <deque>

using namespace installer;

namespace {

struct table {
    std::deque<std::string> texts; // the addresses of its elements stay
    std::vector<setting_list> settings;
    std::vector<int> borrows;
};

constexpr setting_mode allowed = Ini_Multi | Ini_Pass | Ini_Replace | Ini_Path | Ini_Empty;

/// A heap text of exactly that length.
const char *kept(table &x, std::string_view text) {
    return x.texts.emplace_back(text).c_str();
}

table read_table(std::string_view rest) {
    table x;
    while (!rest.empty() && x.settings.size() < 200) {
        std::string_view line = fuzz::take(rest, '\n');
        if (line.size() < 2)
            continue;
        if (line[0] == '@') {
            x.borrows.push_back(line[1] - '0');
            x.borrows.push_back(line.size() > 2 ? line[2] - '0' : 0);
            continue;
        }
        const auto mode = static_cast<setting_mode>(static_cast<unsigned char>(line[0])) & allowed;
        line.remove_prefix(1);
        const char *name = kept(x, fuzz::take(line, ' '));
        x.settings.push_back({name, kept(x, line), mode});
    }
    // A from of -1 ends the pairs; those that name no setting are refused.
    for (std::size_t i = 0; i < x.borrows.size(); i += 2)
        if (x.borrows[i] == -1)
            x.borrows[i] = -2;
    x.settings.push_back({nullptr, nullptr, Ini_None});
    x.borrows.push_back(-1);
    return x;
}

/// A text without references is taken over, cut to the buffer; no text overruns it.
void check_replace(ini *store, const char *text, std::size_t bfsz) {
    fuzz::buffer result(bfsz);
    ini_replace(store, text, result.get(), static_cast<unsigned int>(bfsz));
    FUZZ_CHECK(std::strlen(result.get()) < bfsz);
    if (std::strstr(text, "$(") == nullptr)
        FUZZ_CHECK(result.text() == std::string_view(text).substr(0, bfsz - 1));
}

void check_replace_vars(copy *script, const char *text) {
    char *result = replace_vars(script, text);
    FUZZ_CHECK(result == nullptr || std::strlen(result) <= 9999);
    FUZZ_CHECK(result == nullptr || std::strstr(text, "$(") != nullptr);
    std::free(result);
}

void check_texts(ini *store, const table &x) {
    copy *script = copy_init(store);
    std::size_t bfsz = 1;
    for (const setting_list &setting : x.settings)
        if (setting.setting != nullptr) {
            for (const std::size_t size : {std::size_t{1000}, bfsz})
                check_replace(store, setting.dflt, size);
            check_replace_vars(script, setting.dflt);
            bfsz = bfsz % 60 + 7;
        }
    copy_free(&script);
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    fuzz::swallow_log();
    const table x = read_table(fuzz::text_of(data, size));
    ini *store = ini_init();
    ini_setup(store, x.settings.data(), x.borrows.data(), 1);
    check_texts(store, x);
    ini_process(store);
    check_texts(store, x);
    ini_free(&store);
    return 0;
}
