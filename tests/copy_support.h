// What the tests of the copy script share: a fixture with a settings store, a log and a script object to load
// lines into.
//
//     TEST_F(CopyProcess, RmFileRemovesWhatMatches) {
//         write_file("a.log", "");
//         EXPECT_EQ(1, run("RmFile ./*.log -"));
//     }

#ifndef TESTS_COPY_SUPPORT_H
#define TESTS_COPY_SUPPORT_H

#include "installer/copy.h"
#include "installer/lib.h"

#include "tests/support.h"

#include <string>
#include <vector>

namespace installer::test {

class CopyScript : public LogDir {
  protected:
    CopyScript() : settings_(ini_init()) {
        file_old_setup(&callbacks_);
        file_setup_fn(nullptr, nullptr);
        setting_list none[1] = {};
        ini_setup(settings_, none, nullptr, 0);
        x = copy_init(settings_);
        forget_the_last_message();
    }
    ~CopyScript() override {
        forget_the_last_message();
        copy_free(&x);
        ini_free(&settings_);
        file_setup(&callbacks_);
    }

    /// Gives a setting a value; once for each name in a test.
    void set(const char *name, const std::string &value) {
        EXPECT_EQ(1, ini_add_name(settings_, name, value.c_str()));
    }

    /// A setting's value, "(none)" without one.
    std::string value_of(const char *name) {
        const char *value = ini_value_name(settings_, name);
        return value ? value : "(none)";
    }

    ini *settings() { return settings_; }

    /// Loads the whole text of a script into a new object.
    int load_text(const std::string &text, const char *section = "install") {
        write_file(script(), text);
        copy_free(&x);
        x = copy_init(settings_);
        return copy_load(x, script().c_str(), section);
    }

    /// Loads lines of a section.
    void load(const std::string &lines) { ASSERT_EQ(1, load_text("[install]\n" + lines + "\n")); }

    /// Runs a script that holds this one line; the result is that of copy_do.
    int run(const std::string &line, std::uint32_t *bytes = nullptr) {
        load(line);
        EXPECT_EQ(1U, copy_count(x)) << line;
        return copy_do(x, 0, bytes);
    }

    std::string script() const { return beside("kit.cpy"); }

    /// The texts of the lines that were logged at a level, "Error", "Info" or "Debug".
    std::vector<std::string> logged(const std::string &level) const {
        std::vector<std::string> texts;
        for (const std::string &line : log_lines())
            if (line.compare(0, level.size() + 2, level + ": ") == 0)
                texts.push_back(line.substr(level.size() + 2));
        return texts;
    }
    std::vector<std::string> errors() const { return logged("Error"); }

    copy *x = nullptr;

  private:
    /// An "Error" command without a message leaves the module's text as it is at the start of a process.
    void forget_the_last_message() {
        log *const current = CurrentLog;
        CurrentLog = nullptr;
        char setting[] = "failed";
        copy_cmd error = {setting, nullptr, nullptr, nullptr, nullptr, Error};
        ini *own = ini_init();
        setting_list none[1] = {};
        ini_setup(own, none, nullptr, 0);
        ini_add_name(own, setting, "no");
        copy one = {&error, own, 1};
        copy_seterror(&one, 0);
        ini_free(&own);
        CurrentLog = current;
    }

    ini *settings_;
    file_setup_inf callbacks_;
};

} // namespace installer::test

#endif
