// What main is made of, called one by one: the command line, the texts, the callbacks, the results of the actions.
// Whole runs of the program are in tests/scenarios.

#include "installer/installer.h"

#include "installer/lib.h"
#include "installer/shared.h"
#include "tests/support.h"

#include <cerrno>

namespace installer::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsSupersetOf;
using testing::Not;
using testing::StartsWith;

/// A store without settings that takes new ones.
ini *new_store() {
    constexpr setting_list none[] = {{nullptr, nullptr, Ini_None}};
    ini *store = ini_init();
    ini_setup(store, none, nullptr, 1);
    return store;
}

/// A LogDir with a kit named "kit" in it, whose actions run without an operator.
class Driver : public LogDir {
  protected:
    Driver() : store_(new_store()) {
        myname = s_strdup("kit");
        automate = 1;
    }
    ~Driver() override {
        ini_free(&store_);
        clear_datfile();
        for (char **text : {&myname, &special_mode}) {
            std::free(*text);
            *text = nullptr;
        }
        automate = 0;
    }

    /// What `run` prints on standard output.
    template <class Run>
    static std::string printed(Run run) {
        testing::internal::CaptureStdout();
        run();
        std::fflush(stdout);
        return testing::internal::GetCapturedStdout();
    }

    void process(std::vector<std::string> words) {
        std::vector<char *> argv;
        for (std::string &word : words)
            argv.push_back(word.data());
        process_args(CurrentLog, argv.data(), static_cast<int>(argv.size()));
    }

    ini *store_;
};

// --- the command line ---

TEST_F(Driver, OptionsTakeEffectFromLeftToRightAndOtherWordsAreIgnored) {
    automate = 0;
    log_set_level(CurrentLog, LogInfo);
    process({"kit", "-DEBUG", "rest", "-debug", "-automate", "-special", "tidy", "-Automate"});
    EXPECT_EQ(LogDebug, log_level(CurrentLog));
    EXPECT_EQ(1, automate);
    EXPECT_STREQ("tidy", special_mode);
    EXPECT_THAT(log_lines(), ElementsAre("Info: Logging set to debug", "Info: Automated install/upgrade...",
                                         "Info: Special mode [tidy]"));
}

TEST_F(Driver, FirstWordIsNeverAnOptionAndNullWordsDoNothing) {
    automate = 0;
    process({"-automate"});
    process_args(CurrentLog, nullptr, 3);
    EXPECT_EQ(0, automate);
}

TEST_F(Driver, SpecialTakesTheNextWordWhateverItIsAndTheLastTagCounts) {
    automate = 0;
    process({"kit", "-special", "-automate", "-special", "b"});
    EXPECT_EQ(0, automate);
    EXPECT_STREQ("b", special_mode);
}

TEST_F(Driver, SpecialWithoutATagPrintsTheUsageAndExitsWithOne) {
    EXPECT_EXIT(process({"kit", "-special"}), testing::ExitedWithCode(1), "");
}

TEST_F(Driver, VersionExitsWithZero) {
    EXPECT_EXIT(process({"kit", "-version"}), testing::ExitedWithCode(0), "");
}

// --- the texts ---

TEST_F(Driver, HeaderAndMenuNameTheProduct) {
    ini_add_name(store_, "product", "Notice Board");
    EXPECT_EQ("======================================================\n"
              "             Welcome to the Notice Board installer\n"
              " You will be asked a series of questions, for each a\n"
              " default answer will be provided (thus), to accept the\n"
              " default simply press <enter>, otherwise enter a new\n"
              " answer and press <enter>\n"
              "======================================================\n",
              printed([this] { print_header(store_); }));
    EXPECT_EQ("\n1. Install Notice Board\n2. Upgrade Notice Board\n3. Remove Notice Board\n4. Exit\n",
              printed([this] { print_menu(store_); }));
}

TEST_F(Driver, ProductWithoutANameIsNoname) {
    EXPECT_THAT(printed([this] { print_header(store_); }),
                testing::HasSubstr("             Welcome to the NONAME installer\n"));
    EXPECT_EQ("\n1. Install NONAME\n2. Upgrade NONAME\n3. Remove NONAME\n4. Exit\n",
              printed([this] { print_menu(store_); }));
}

TEST_F(Driver, BlurbIsTrimmedExpandedAndKeepsItsEmptyLines) {
    ini_add_name(store_, "site", "/srv/board");
    write_file("blurb.txt", "  Thank you.  \n\n$(site)/index.html$(nosuch)\nno line end");
    EXPECT_EQ("\nThank you.\n\n/srv/board/index.html\nno line end\n",
              printed([this] { print_blurb(store_); }));
    EXPECT_THAT(log_lines(), Not(Contains(StartsWith("Error: "))));
}

TEST_F(Driver, MissingBlurbPrintsNothingAndIsNoError) {
    EXPECT_EQ("", printed([this] { print_blurb(store_); }));
    EXPECT_THAT(log_lines(), Not(Contains(StartsWith("Error: "))));
}

TEST_F(Driver, BlurbThatCannotBeOpenedOrReadIsReported) {
    ASSERT_EQ(0, symlink("blurb.txt", "blurb.txt"));
    EXPECT_EQ("", printed([this] { print_blurb(store_); }));
    EXPECT_THAT(log_lines(),
                Contains("Error: Error opening 'blurb.txt' for read, Too many levels of symbolic links"));
    std::filesystem::remove("blurb.txt");
    std::filesystem::create_directory("blurb.txt");
    EXPECT_EQ("\n", printed([this] { print_blurb(store_); }));
    EXPECT_THAT(log_lines(), Contains("Error: Error reading from 'blurb.txt', Is a directory"));
}

// --- the callbacks ---

TEST_F(Driver, EveryDotIsWrittenAtOnce) {
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    std::fflush(stdout);
    const int saved = dup(STDOUT_FILENO);
    dup2(ends[1], STDOUT_FILENO);
    std::vector<char> seen;
    for (int i = 0; i < 7; ++i) {
        printdot("a", "b", 1);
        char dot = 0;
        if (read(ends[0], &dot, 1) == 1) // would wait for ever if the dot were still in a buffer
            seen.push_back(dot);
    }
    dup2(saved, STDOUT_FILENO);
    for (const int fd : {ends[0], ends[1], saved})
        close(fd);
    EXPECT_EQ(std::vector<char>(7, '.'), seen);
}

TEST_F(Driver, ErrorCallbackPrintsTheSystemsReason) {
    EXPECT_EQ("\nError: No such file or directory\n", printed([] {
                  errno = ENOENT;
                  printerror("a", "b", 1);
              }));
}

// --- the results of the actions ---

TEST_F(Driver, MissingQuestionScriptFailsTheActionWithoutACopy) {
    write_file("kit.cpy", "[install]\nMkDir " + dir() + "/made\n");
    int result = -1;
    EXPECT_EQ("[Install]\n", printed([&] { result = install_product(store_); }));
    EXPECT_EQ(action_failed, result);
    EXPECT_FALSE(exists("made"));
    EXPECT_EQ("Error: Error loading questions", log_lines().back());
}

TEST_F(Driver, MissingCopyScriptLeavesTheResultAtSuccessAndPrintsNothing) {
    write_file("kit.q", "[install]\n");
    int result = -1;
    EXPECT_EQ("[Install]\n", printed([&] { result = install_product(store_); }));
    EXPECT_EQ(action_done, result);
}

TEST_F(Driver, EachActionHasItsOwnTexts) {
    write_file("kit.q", "[install]\n[upgrade]\n[remove]\n[tidy]\n");
    write_file("file", "12345");
    const std::string copy = "CopyFile " + dir() + "/file - " + dir() + "/out\n";
    write_file("kit.cpy", "[install]\n" + copy + "[upgrade]\n" + copy + "[remove]\nRmFile " + dir() +
                              "/out/file -\n[tidy]\nMkDir " + dir() + "/out/tidy\n");
    std::filesystem::create_directory("out");
    special_mode = s_strdup("tidy");
    EXPECT_EQ("[Install]\nCopying files[.]\nSuccess 5 bytes in 1 files copied\n",
              printed([this] { EXPECT_EQ(action_done, install_product(store_)); }));
    EXPECT_EQ("[Upgrade]\nCopying files[.]\nSuccess 5 bytes in 1 files copied\n",
              printed([this] { EXPECT_EQ(action_done, upgrade_product(store_)); }));
    EXPECT_EQ("[Remove]\nRemoving files[]\n Success 1 files removed\n",
              printed([this] { EXPECT_EQ(action_done, remove_product(store_)); }));
    EXPECT_EQ("[tidy]\nExecuting[.]\n Success 1 files done.\n",
              printed([this] { EXPECT_EQ(action_done, do_special(store_)); }));
}

TEST_F(Driver, InstallAndUpgradeStopAtTheFirstFailureButRemoveAndSpecialGoOn) {
    const std::string steps = "Error stop Out of luck\nMkDir " + dir() + "/";
    ini_add_name(store_, "stop", "no");
    write_file("kit.q", "[install]\n[upgrade]\n[remove]\n[tidy]\n");
    write_file("kit.cpy", "[install]\n" + steps + "i\n[upgrade]\n" + steps + "u\n[remove]\n" + steps +
                              "r\n[tidy]\n" + steps + "t\n");
    special_mode = s_strdup("tidy");
    EXPECT_EQ("[Install]\nCopying files[]\nFailed, Out of luck",
              printed([this] { EXPECT_EQ(action_done, install_product(store_)); }));
    EXPECT_EQ("[Upgrade]\nCopying files[]\nFailed, Out of luck",
              printed([this] { EXPECT_EQ(action_done, upgrade_product(store_)); }));
    EXPECT_EQ("[Remove]\nRemoving files[.]\n Success 1 files removed\n",
              printed([this] { EXPECT_EQ(action_done, remove_product(store_)); }));
    EXPECT_EQ("[tidy]\nExecuting[.]\n Success 1 files done.\n",
              printed([this] { EXPECT_EQ(action_done, do_special(store_)); }));
    EXPECT_FALSE(exists("i"));
    EXPECT_FALSE(exists("u"));
    EXPECT_TRUE(exists("r"));
    EXPECT_TRUE(exists("t"));
}

TEST_F(Driver, SpecialWithoutATagFindsNoSectionEvenAnEmptyOne) {
    write_file("kit.q", "[]\n");
    EXPECT_EQ("[]\n", printed([this] { EXPECT_EQ(action_failed, do_special(store_)); }));
    EXPECT_THAT(log_lines(), IsSupersetOf({"Error: Section '' not found", "Error: Error loading questions"}));
}

// --- the entries that the action carries out itself ---

TEST_F(Driver, CopyEntryTakesTheOtherSettingsValueAndAnAbsentOneStoresNothing) {
    ini_add_name(store_, "from", "value");
    write_file("kit.q", "[install]\nCopy to - - h from\nCopy kept - - h absent\n");
    ini_add_name(store_, "kept", "old");
    printed([this] { install_product(store_); });
    EXPECT_STREQ("value", ini_value_name(store_, "to"));
    EXPECT_STREQ("old", ini_value_name(store_, "kept"));
}

TEST_F(Driver, ExistEntryStoresExactlyTrueOrFalse) {
    ini_add_name(store_, "dir", dir().c_str());
    write_file("kit.q", "[install]\nExist $(dir)/kit.q here\nExist $(dir)/none there\n");
    printed([this] { install_product(store_); });
    EXPECT_STREQ("true", ini_value_name(store_, "here"));
    EXPECT_STREQ("false", ini_value_name(store_, "there"));
}

TEST_F(Driver, ErrorEntryStopsOnlyWhenItsSettingIsFalse) {
    write_file("kit.q", "[install]\nError ready h Not ready, $(why)\n");
    const struct {
        const char *value;
        int result;
    } rows[] = {{nullptr, action_done}, {"true", action_done}, {"maybe", action_done}, {"no", action_failed}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.value != nullptr ? row.value : "(absent)");
        ini_value_name(store_, "ready"); // an add after a read goes in front
        ini_add_name(store_, "ready", row.value);
        const std::string said = row.result == action_done ? "" : "Error: Not ready, $(why)\n";
        EXPECT_EQ("[Install]\n" + said, printed([&] { EXPECT_EQ(row.result, install_product(store_)); }));
    }
}

TEST_F(Driver, OnlyTheUpgradeExpandsAnErrorText) {
    ini_add_name(store_, "ready", "no");
    ini_add_name(store_, "why", "no web server");
    write_file("kit.q",
               "[upgrade]\nError ready h Not ready, $(why)\n[remove]\nError ready h Not ready, $(why)\n");
    EXPECT_EQ("[Upgrade]\nError: Not ready, no web server\n", printed([this] { upgrade_product(store_); }));
    EXPECT_EQ("[Remove]\nError: Not ready, $(why)\n", printed([this] { remove_product(store_); }));
}

TEST_F(Driver, LoopContinuesAtTheEntryOfThatNumberCountedFromZero) {
    // Entry 2 is skipped by the loop only when the setting is false, so "two" tells whether it ran.
    const char script[] = "[install]\nLoop again 2\nCopy one - - h word\nCopy two - - h word\n";
    const struct {
        const char *again;
        bool one;
    } rows[] = {{nullptr, true}, {"true", true}, {"false", false}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.again != nullptr ? row.again : "(absent)");
        ini *store = new_store();
        ini_add_name(store, "word", "x");
        ini_add_name(store, "again", row.again);
        write_file("kit.q", script);
        printed([&] { EXPECT_EQ(action_done, install_product(store)); });
        EXPECT_EQ(row.one, ini_value_name(store, "one") != nullptr);
        EXPECT_STREQ("x", ini_value_name(store, "two"));
        ini_free(&store);
    }
}

TEST_F(Driver, LoopToANegativeNumberOrPastTheEndStaysInBounds) {
    ini_add_name(store_, "again", "no");
    write_file("kit.q", "[install]\nLoop again 4000000\n");
    printed([this] { EXPECT_EQ(action_done, install_product(store_)); });
    for (const char *back : {"-7", "0"}) { // the first entry, which is the loop itself
        write_file("kit.q", "[install]\nLoop again " + std::string(back) + "\n");
        EXPECT_EQ("[Install]\nError: Loop at 'again' never ends\n",
                  printed([this] { EXPECT_EQ(action_failed, install_product(store_)); }));
    }
}

TEST_F(Driver, DefaultThatIsRefusedEndsAnAutomatedAction) {
    ini_add_name(store_, "place", "/no/such/place");
    write_file("kit.q", "[install]\nDirExist place - - h Where?\n");
    EXPECT_EQ("[Install]\nError: Directory '/no/such/place' must exist, No such file or directory, please "
              "try again\n",
              printed([this] { EXPECT_EQ(action_failed, install_product(store_)); }));
}

TEST_F(Driver, QuestionWithoutADefaultAnswersNothingWhenAutomated) {
    ini_add_name(store_, "first", "value");
    write_file("kit.q", "[install]\nText first - - h One?\nText second - - h Two?\n");
    printed([this] { EXPECT_EQ(action_done, install_product(store_)); });
    EXPECT_STREQ("", ini_value_name(store_, "second")); // not the answer of the question before
}

TEST_F(Driver, DefaultQuitsOrGoesBackLikeAnAnswer) {
    ini_add_name(store_, "letter", "Q");
    write_file("kit.q", "[install]\nText letter - - h One?\n");
    EXPECT_EQ("[Install]\n", printed([this] { EXPECT_EQ(action_quit, install_product(store_)); }));
    ini_value_name(store_, "letter");
    ini_add_name(store_, "letter", "b");
    EXPECT_EQ("[Install]\nError: Loop at 'letter' never ends\n",
              printed([this] { EXPECT_EQ(action_failed, install_product(store_)); }));
}

TEST_F(Driver, ControlDecidesWhetherAQuestionIsAsked) {
    // control's value, comparison word, value of a setting of that name, asked
    const struct {
        const char *control, *comparison, *compared;
        bool asked;
    } rows[] = {
        {nullptr, "-", nullptr, true},  {"yes", "-", nullptr, true},   {"no", "-", nullptr, false},
        {"maybe", "-", nullptr, false}, {nullptr, "x", nullptr, true}, {"x", "x", nullptr, true},
        {"X", "x", nullptr, false},     {"x", "other", "x", true},     {"other", "other", "x", false},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(std::string(str(row.control)) + "|" + row.comparison + "|" + str(row.compared));
        ini *store = new_store();
        ini_add_name(store, "ctl", row.control);
        ini_add_name(store, row.comparison, row.compared);
        ini_add_name(store, "place", "/no/such/place"); // refused when asked
        write_file("kit.q", std::string("[install]\nDirExist place ctl ") + row.comparison + " h Where?\n");
        printed([&] { EXPECT_EQ(row.asked ? action_failed : action_done, install_product(store)); });
        ini_free(&store);
    }
}

TEST_F(Driver, ComparisonSettingIsReadEvenWhenTheControlHasNoValue) {
    // A setting with several values takes the next one in front once it has been read, else behind.
    ini_add_name(store_, "flag", "old");
    ini_add_name(store_, "source", "new");
    write_file("kit.q", "[install]\nText name nosuch flag h Name?\nCopy flag - - h source\n");
    printed([this] { EXPECT_EQ(action_done, install_product(store_)); });
    EXPECT_STREQ("new", ini_value_name(store_, "flag"));
}

} // namespace
} // namespace installer::test
