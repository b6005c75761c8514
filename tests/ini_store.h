// A fixture with a settings store: what the tests of the store, its files and its references share.

#ifndef TESTS_INI_STORE_H
#define TESTS_INI_STORE_H

#include "installer/ini.h"
#include "tests/support.h"

#include <cstdlib>
#include <string>
#include <vector>

namespace installer::test {

/// A store `x`, freed at the end, and a log that takes everything.
class IniStore : public LogDir {
  protected:
    IniStore() : x(ini_init()) {}
    ~IniStore() override { ini_free(&x); }

    /// Sets the store up with these definitions, defaults included unless `use_dflts` is 0; `assoc` holds
    /// pairs without the end mark. What this logs does not count as logged by the test.
    void set_up(std::vector<setting_list> definitions, std::vector<int> assoc = {}, int use_dflts = 1) {
        definitions.push_back({nullptr, nullptr, Ini_None});
        assoc.push_back(-1);
        ini_setup(x, definitions.data(), assoc.data(), use_dflts);
        forget_log();
    }

    /// All values of a setting, from the first on.
    [[nodiscard]] std::vector<std::string> values(int index) const {
        std::vector<std::string> all;
        for (const char *value = ini_value(x, index); value != nullptr; value = ini_value_next(x, index))
            all.emplace_back(value);
        return all;
    }
    [[nodiscard]] std::vector<std::string> values(const char *name) const {
        return values(ini_index(x, name));
    }

    /// The text of a value that was removed, which is freed, "(null)" for none.
    static std::string taken(char *value) {
        std::string text = value != nullptr ? value : "(null)";
        std::free(value);
        return text;
    }

    void forget_log() { seen_ = log_lines().size(); }

    /// The lines logged since forget_log.
    [[nodiscard]] std::vector<std::string> logged() const {
        std::vector<std::string> lines = log_lines();
        lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(seen_));
        return lines;
    }

    ini *x;

  private:
    std::size_t seen_ = 0;
};

} // namespace installer::test

#endif
