// The question script (.q) and the dialogue: up to a line "%%" the script, behind it what the operator types.

#include "fuzz/support.h"
#include "installer/ini.h"
#include "installer/quest.h"

#include <cstring>

using namespace installer;

namespace {

ini *make_store() {
    const setting_list settings[] = {{"product", "Notice Board", Ini_Replace},
                                     {"base", "/srv/$(product)", Ini_None},
                                     {"yes", "y", Ini_None},
                                     {nullptr, nullptr, Ini_None}};
    ini *store = ini_init();
    ini_setup(store, settings, nullptr, 1);
    return store;
}

void ask(questions *set, std::uint32_t index, std::size_t bfsz) {
    fuzz::buffer answer(bfsz);
    if (quest_ask(set, index, answer.get(), static_cast<std::uint32_t>(bfsz)) == 0)
        return;
    FUZZ_CHECK(std::strlen(answer.get()) < bfsz);
    quest_answer(set, index, answer.get());
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static fuzz::memory_file script;
    static fuzz::memory_file typed;
    fuzz::swallow_log();
    const std::string_view all = fuzz::text_of(data, size);
    const std::size_t end = std::min(all.find("\n%%\n"), size);
    script.fill(all.substr(0, end));
    typed.fill(all.substr(std::min(end + 4, size)));
    FUZZ_CHECK(std::freopen(typed.path(), "r", stdin) != nullptr);

    ini *store = make_store();
    questions *set = quest_init(store);
    if (quest_load(set, script.path(), "install") != 0)
        for (std::uint32_t i = 0; i < quest_count(set); ++i) {
            fuzz::buffer shown(1 + i % 40);
            quest_default(set, i, shown.get(), static_cast<std::uint32_t>(shown.size()));
            ask(set, i, i % 2 == 0 ? 1000 : 1 + i % 40);
        }
    quest_free(&set);
    ini_free(&store);
    return 0;
}
