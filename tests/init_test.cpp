#include "installer/init.h"

#include "installer/array.h"
#include "installer/ini.h"
#include "support.h"

#include <ctime>

namespace installer {
namespace {

using test::exists;
using test::LogDir;
using test::read_file;
using test::write_file;
using testing::ElementsAre;
using testing::IsEmpty;

class Init : public LogDir {
  protected:
    Init() {
        const setting_list settings[] = {
            {"single", "first", Ini_None}, // keeps one value
            {"empty", nullptr, Ini_None},  // takes no empty value
            {nullptr, nullptr, Ini_None},
        };
        ini_setup(store, settings, nullptr, 1);
        errno = 0;
    }
    ~Init() override {
        init_free(&script);
        ini_free(&store);
    }

    /// Loads these lines into the script, behind what it holds.
    int load(const std::string &lines) {
        write_file(beside("s.int"), lines);
        return init_load(script, beside("s.int").c_str());
    }

    /// Runs a script of these lines alone.
    void run(const std::string &lines) {
        init_free(&script);
        script = init_init();
        ASSERT_EQ(1, load(lines));
        init_run(script, store);
    }

    void set(const char *name, const std::string &value) { ini_add_name(store, name, value.c_str()); }

    /// The value of a setting, "(none)" when it has none.
    std::string value(const char *name) {
        const char *text = ini_value_name(store, name);
        return text != nullptr ? text : "(none)";
    }

    [[nodiscard]] int items() const { return array_items(script->list); }

    [[nodiscard]] std::vector<std::string> errors() const {
        std::vector<std::string> errors;
        for (const std::string &line : log_lines())
            if (line.rfind("Error: ", 0) == 0)
                errors.push_back(line.substr(7));
        return errors;
    }

    ini *store = ini_init();
    init_s *script = init_init();
};

// --- Loading ---

TEST_F(Init, FiveWordsMakeAnItem) {
    ASSERT_EQ(1, load("Copy one two ctl yes\n"));
    ASSERT_EQ(1, items());
    const init_item *item = init_get_num(script, 0);
    EXPECT_EQ(ICopy, item->mode);
    EXPECT_STREQ("one", item->a);
    EXPECT_STREQ("two", item->b);
    EXPECT_STREQ("ctl", item->control);
    EXPECT_STREQ("yes", item->compare);
}

TEST_F(Init, CommandsGiveTheirModes) {
    const struct {
        const char *command;
        std::uint32_t mode;
    } rows[] = {
        {"Exist", 1},          {"Copy", 2},        {"HTTP_User", 20}, {"HTTP_Group", 24}, {"HTTP_Root", 272},
        {"HTTP_Scripts", 528}, {"TimeDate", 1024}, {"WFile", 2048},   {"RFile", 4096},
    };
    int index = 0;
    for (const auto &row : rows) {
        ASSERT_EQ(1, load(std::string(row.command) + " a b - -\n"));
        ASSERT_EQ(index + 1, items()) << row.command;
        EXPECT_EQ(row.mode, std::uint32_t{init_get_num(script, index++)->mode}) << row.command;
    }
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(Init, WebServerCommandsShareOneFlag) {
    for (const IItemMode mode : {IHTTP_User, IHTTP_Group, IHTTP_Root, IHTTP_Scripts})
        EXPECT_EQ(IHTTP, mode & IHTTP);
    for (const IItemMode mode : {IExist, ICopy, ITimeDate, IWFile, IRFile})
        EXPECT_EQ(INothing, mode & IHTTP);
}

TEST_F(Init, AnUnknownCommandIsLoggedAndItsLineKept) {
    ASSERT_EQ(1, load("copy a b - -\nHTTP a b - -\n"));
    EXPECT_THAT(errors(), ElementsAre("Unknown init command 'copy'", "Unknown init command 'HTTP'"));
    ASSERT_EQ(2, items());
    EXPECT_EQ(INothing, init_get_num(script, 0)->mode);
    EXPECT_STREQ("b", init_get_num(script, 1)->b);
}

TEST_F(Init, CommentsAndEmptyLinesAreSkipped) {
    ASSERT_EQ(1, load("# Copy a b - -\n\n  \t\n\t #x\n#\nCopy a b - -\n"));
    EXPECT_EQ(1, items());
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(Init, WordsAreSplitAtRunsOfBlanksAndTabs) {
    ASSERT_EQ(1, load(" \tCopy\t\ta \t \"b  c\"  - and more\r\n"));
    ASSERT_EQ(1, items());
    EXPECT_STREQ("\"b", init_get_num(script, 0)->b);
    EXPECT_STREQ("c\"", init_get_num(script, 0)->control) << "nothing quotes a blank";
    EXPECT_EQ(nullptr, init_get_num(script, 0)->compare);
}

TEST_F(Init, ADashMeansNoneForTheConditionOnly) {
    ASSERT_EQ(1, load("Copy - - - -\r\nCopy a b -- -x\n"));
    EXPECT_STREQ("-", init_get_num(script, 0)->a);
    EXPECT_STREQ("-", init_get_num(script, 0)->b);
    EXPECT_EQ(nullptr, init_get_num(script, 0)->control);
    EXPECT_EQ(nullptr, init_get_num(script, 0)->compare);
    EXPECT_STREQ("--", init_get_num(script, 1)->control);
    EXPECT_STREQ("-x", init_get_num(script, 1)->compare);
}

TEST_F(Init, AShortLineMakesNoItemAndTheNextWholeLineMakesOne) {
    ASSERT_EQ(1, load("Copy a b ctl\nExist c d - -\n"));
    ASSERT_EQ(1, items());
    EXPECT_EQ(IExist, init_get_num(script, 0)->mode);
    EXPECT_STREQ("c", init_get_num(script, 0)->a);
    EXPECT_STREQ("d", init_get_num(script, 0)->b);
    EXPECT_EQ(nullptr, init_get_num(script, 0)->control) << "\"-\" clears what the short line filled";
}

TEST_F(Init, TheModeOfAShortLineSurvivesAnUnknownCommand) {
    ASSERT_EQ(1, load("Copy a\n# between\nBogus x y - -\nBogus x y - -\n"));
    ASSERT_EQ(2, items());
    EXPECT_EQ(ICopy, init_get_num(script, 0)->mode);
    EXPECT_STREQ("x", init_get_num(script, 0)->a);
    EXPECT_EQ(INothing, init_get_num(script, 1)->mode) << "a fresh item";
}

TEST_F(Init, AShortLineAtTheEndIsForgotten) {
    ASSERT_EQ(1, load("Copy a b - -\nExist c d ctl"));
    EXPECT_EQ(1, items());
    ASSERT_EQ(1, load("Bogus x y - -\n"));
    EXPECT_EQ(INothing, init_get_num(script, 1)->mode);
}

TEST_F(Init, LoadingAppends) {
    ASSERT_EQ(1, load("Copy a b - -\n"));
    ASSERT_EQ(1, load("Exist c d - -"));
    ASSERT_EQ(2, items());
    EXPECT_EQ(IExist, init_get_num(script, 1)->mode);
}

TEST_F(Init, AFileThatCannotBeOpenedIsTheLastError) {
    EXPECT_EQ(0, init_load(script, "nosuch.int"));
    EXPECT_STREQ("Failed to read 'nosuch.int', No such file or directory", init_error());
}

TEST_F(Init, AFileThatMayNotBeReadIsTheLastError) {
    write_file("s.int", "Copy a b - -\n");
    std::filesystem::permissions("s.int", std::filesystem::perms::none);
    test::as_ordinary_user([this] {
        EXPECT_EQ(0, init_load(script, "s.int"));
        EXPECT_STREQ("Failed to read 's.int', Permission denied", init_error());
    });
}

TEST_F(Init, NullArgumentsLoadNothing) {
    init_seterror("earlier");
    EXPECT_EQ(0, init_load(nullptr, "s.int"));
    EXPECT_EQ(0, init_load(script, nullptr));
    EXPECT_STREQ("earlier", init_error());
}

TEST_F(Init, LoadingForgetsAnErrorNumberOfEarlier) {
    errno = EDOM;
    EXPECT_EQ(1, load("Copy a b - -\n"));
    EXPECT_EQ(0, errno);
}

TEST_F(Init, AnyBytesAreTaken) {
    using namespace std::string_literals;
    const std::string scripts[] = {
        "Copy a\0 b - -\n\0\n\0"s,     "\xff\xfe \x80 \x01 \x02 \x03\n"s,
        std::string(100000, 'x'),      "%s%n %s%n %n%n %s %s\n"s,
        std::string(5000, ' ') + "\n", "Copy " + std::string(5000, 'y') + " b - -\n",
        "\r\n\r\rCopy a b - -\r"s,     ""s,
    };
    for (const std::string &text : scripts) {
        init_free(&script);
        script = init_init();
        EXPECT_EQ(1, load(text));
        init_run(script, store);
    }
}

TEST_F(Init, AScriptThatCannotBeReadIsNotLoaded) {
    EXPECT_EQ(0, init_load(script, test::unreadable));
    EXPECT_STREQ("Failed to read '/proc/self/mem', Input/output error", init_error());
}

TEST_F(Init, AFolderHoldsNoItems) {
    EXPECT_EQ(1, init_load(script, "."));
    EXPECT_EQ(nullptr, init_get_num(script, 0));
}

TEST_F(Init, APipeIsRefusedBeforeItIsOpened) {
    ASSERT_EQ(0, mkfifo("pipe", 0600));
    run("RFile pipe got - -\nWFile pipe words - -\n");
    EXPECT_EQ(nullptr, ini_value_name(store, "got"));
    const char *error = "Error: 'pipe' is not a file, Invalid argument";
    EXPECT_EQ(2, std::ranges::count(log_lines(), error));
}

// --- Items and the life of a script ---

TEST_F(Init, TheCursorMovesAsThatOfAnArray) {
    ASSERT_EQ(1, load("Copy a0 b - -\nCopy a1 b - -\nCopy a2 b - -\n"));
    const auto next = [&] {
        const init_item *item = init_get(script);
        return std::string(item != nullptr ? item->a : "(none)");
    };
    EXPECT_STREQ("a0", init_get_num(script, 0)->a);
    EXPECT_EQ("a1", next()) << "behind the item that was got";
    EXPECT_EQ("a2", next());
    EXPECT_EQ("(none)", next());
    init_start(script);
    EXPECT_EQ("a0", next());
    init_next(script);
    EXPECT_EQ("a2", next());
    init_goto(script, 1);
    init_prev(script);
    EXPECT_EQ("a0", next());
    EXPECT_EQ(nullptr, init_get_num(script, 3));
    EXPECT_EQ(nullptr, init_get_num(script, -1));
}

TEST_F(Init, ANullScriptHasNoItems) {
    EXPECT_EQ(nullptr, init_get_num(nullptr, 0));
    EXPECT_EQ(nullptr, init_get(nullptr));
    init_goto(nullptr, 0);
    init_start(nullptr);
    init_next(nullptr);
    init_prev(nullptr);
    init_run(nullptr, store);
    init_free(nullptr);
}

TEST_F(Init, FreeingNullsTheCallersPointer) {
    ASSERT_EQ(1, load("Copy a b c d\n"));
    init_free(&script);
    EXPECT_EQ(nullptr, script);
    init_free(&script);
}

TEST_F(Init, FreeingAnItemNullsItsSlot) {
    ASSERT_EQ(1, load("Copy a b c d\n"));
    void *slot = array_del_num(script->list, 0);
    init_item_free(&slot);
    EXPECT_EQ(nullptr, slot);
    init_item_free(&slot);
    init_item_free(nullptr);
}

TEST_F(Init, TheLastErrorIsTheNewestCutTo999Characters) {
    init_seterror("No %d of '%s'", 3, "x");
    EXPECT_STREQ("No 3 of 'x'", init_error());
    init_seterror("%s", std::string(5000, 'e').c_str());
    EXPECT_EQ(std::string(999, 'e'), init_error());
    init_seterror(nullptr);
    EXPECT_EQ(std::string(999, 'e'), init_error());
    EXPECT_THAT(errors(), IsEmpty()) << "it is not logged here";
}

// --- Conditions ---

TEST_F(Init, AnItemRunsWhenItsConditionHolds) {
    const struct {
        const char *ctl, *condition;
        bool runs;
    } rows[] = {
        {"yes", "ctl yes", true},     //
        {"Yes", "ctl yes", false},    // exactly
        {"no", "ctl yes", false},     //
        {nullptr, "ctl yes", false},  // the word ctl itself is compared
        {nullptr, "ctl ctl", true},   //
        {"no", "ctl -", true},        // without a comparison an item always runs, also for a false control
        {"other", "ctl other", true}, // the comparison is a word, never the name of a setting
        {"no", "ctl other", false},   //
        {"yes", "- yes", false},      // nothing to compare with
        {"yes", "- true", false},     //
        {"", "ctl yes", false},       //
        {"yes", "- -", true},         //
    };
    set("other", "no");
    for (const auto &row : rows) {
        std::free(ini_remove_name(store, "ctl"));
        std::free(ini_remove_name(store, "target"));
        if (row.ctl != nullptr)
            set("ctl", row.ctl);
        run(std::string("Copy target done ") + row.condition + "\n");
        EXPECT_EQ(row.runs ? "done" : "(none)", value("target")) << str(row.ctl) << ": " << row.condition;
    }
}

// --- Exist and Copy ---

TEST_F(Init, ExistTellsWhetherTheExpandedPathIsThere) {
    std::filesystem::create_directory("sub");
    write_file("sub/file", "");
    set("base", dir() + "/sub");
    run("Exist $(base)/file found - -\nExist $(base)/none missing - -\nExist $(base) folder - -\n");
    EXPECT_EQ("true", value("found"));
    EXPECT_EQ("false", value("missing"));
    EXPECT_EQ("true", value("folder"));
}

TEST_F(Init, CopyTakesAValueOrTheWordItself) {
    set("from", "a value");
    run("Copy to from - -\nCopy word nosuch - -\n");
    EXPECT_EQ("a value", value("to"));
    EXPECT_EQ("nosuch", value("word"));
}

TEST_F(Init, ASettingMayBeCopiedToItself) {
    run("Copy single single - -\n");
    EXPECT_EQ("first", value("single"));
}

// --- TimeDate ---

TEST_F(Init, TimeDateFormatsTheLocalTime) {
    set("fmt", "in %Y");
    const auto year = [] {
        const std::time_t now = std::time(nullptr);
        return "in " + std::to_string(1900 + std::localtime(&now)->tm_year);
    };
    const std::string before = year();
    run("TimeDate fmt stamp - -\n");
    EXPECT_THAT(value("stamp"), testing::AnyOf(before, year()));
}

TEST_F(Init, TimeDateWithoutAFormatIsLoggedAndSetsNothing) {
    run("TimeDate fmt stamp - -\n");
    EXPECT_THAT(errors(), ElementsAre("TimeDate 'fmt' is NULL"));
    EXPECT_EQ("(none)", value("stamp"));
}

TEST_F(Init, TimeDateThatGivesNothingOrTooMuchIsEmpty) {
    std::string much;
    for (int i = 0; i < 200; ++i)
        much += "%Y-%m-%d "; // 11 characters each, 2200 in all
    for (const std::string &format : {std::string(), much}) {
        std::free(ini_remove_name(store, "fmt"));
        std::free(ini_remove_name(store, "stamp"));
        set("fmt", format);
        run("TimeDate fmt stamp - -\nTimeDate fmt empty - -\n");
        EXPECT_EQ("", value("stamp"));
        EXPECT_EQ("(none)", value("empty")) << "the store's rules apply";
    }
}

TEST_F(Init, TimeDateTakesAnyFormat) {
    for (const char *format : {"%", "%%", "%Q", "%s%n%t", "%E", "%2147483647d", "%-999999d", "\xff%\x80"}) {
        std::free(ini_remove_name(store, "fmt"));
        std::free(ini_remove_name(store, "stamp"));
        set("fmt", format);
        run("TimeDate fmt stamp - -\n");
        EXPECT_LT(value("stamp").size(), 1000U) << format;
    }
}

// --- WFile ---

TEST_F(Init, WFileWritesTheValueAlone) {
    set("base", dir());
    set("text", "a value");
    write_file("out", "something longer that stood there");
    run("WFile $(base)/out text - -\nWFile word nosuch - -\n");
    EXPECT_EQ("a value", read_file("out"));
    EXPECT_EQ("nosuch", read_file("word"));
}

TEST_F(Init, WFileThatCannotBeOpenedIsLogged) {
    run("WFile nosuch/out text - -\nCopy next done - -\n");
    EXPECT_THAT(errors(), ElementsAre("Failed to write (nosuch/out), No such file or directory"));
    EXPECT_EQ("done", value("next")) << "the run goes on";
}

TEST_F(Init, WFileToAFullDeviceIsLogged) {
    if (!exists("/dev/full"))
        GTEST_SKIP() << "this system has no /dev/full";
    run("WFile /dev/full text - -\n");
    EXPECT_THAT(errors(), ElementsAre("Error writing to '/dev/full', No space left on device"));
}

// --- RFile ---

TEST_F(Init, RFileReadsTheWholeFile) {
    const std::string lines = "one\n\ntwo " + std::string(3000, 'x') + "\nend without a line end";
    write_file("in", lines);
    set("base", dir());
    run("RFile $(base)/in content - -\n");
    EXPECT_EQ(lines, value("content"));
}

TEST_F(Init, RFileOfAnEmptyFileSetsNothing) {
    write_file("in", "");
    run("RFile in content - -\nRFile in single - -\n");
    EXPECT_EQ("(none)", value("content"));
    EXPECT_EQ("first", value("single"));
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(Init, RFileEndsALineAtItsNulByte) {
    write_file("in", std::string_view("ab\0cd\nef\n", 9));
    run("RFile in content - -\n");
    EXPECT_EQ("abef\n", value("content"));
}

TEST_F(Init, RFileThatCannotBeReadIsLogged) {
    run("RFile nosuch content - -\nRFile . content - -\n");
    EXPECT_THAT(errors(), ElementsAre("Failed to read (nosuch), No such file or directory",
                                      "Failed to read (.), Is a directory"));
    EXPECT_EQ("(none)", value("content"));
}

TEST_F(Init, RFileGivesBackWhatWFileWrote) {
    set("text", "two words");
    run("WFile f text - -\nRFile f content - -\n");
    EXPECT_EQ("two words", value("content"));
}

// --- Paths that do not fit ---

/// A name of the file "name" with this many characters.
std::string long_path(std::size_t length, const std::string &name) {
    std::string path;
    while (path.size() + 2 + name.size() <= length)
        path += "./";
    return path + name;
}

TEST_F(Init, APathOf255CharactersFits) {
    write_file("found", "content");
    set("long", long_path(255, "found"));
    ASSERT_EQ(255U, value("long").size());
    run("Exist $(long) there - -\nRFile $(long) content - -\nWFile $(long) there - -\n");
    EXPECT_EQ("true", value("there"));
    EXPECT_EQ("content", value("content"));
    EXPECT_EQ("true", read_file("found"));
}

TEST_F(Init, NothingIsDoneWithAPathThatDoesNotFit) {
    write_file("found", "kept"); // what the path, cut to 255 characters, names
    write_file("found1", "kept, too");
    set("long", long_path(256, "found1"));
    ASSERT_EQ(256U, value("long").size());
    run("Exist $(long) there - -\nRFile $(long) content - -\nWFile $(long) there - -\n");
    EXPECT_EQ("false", value("there"));
    EXPECT_EQ("(none)", value("content"));
    EXPECT_EQ("kept", read_file("found"));
    EXPECT_EQ("kept, too", read_file("found1"));
    EXPECT_THAT(errors(),
                ElementsAre("Path too long '$(long)'", "Path too long '$(long)'", "Path too long '$(long)'"));
}

TEST_F(Init, APathOfManyThousandCharactersDoesNotFit) {
    set("long", std::string(900, 'x'));
    run("Exist $(long)$(long)$(long) there - -\n");
    EXPECT_EQ("false", value("there"));
    EXPECT_THAT(errors(), ElementsAre("Path too long '$(long)$(long)$(long)'"));
}

// --- The run ---

TEST_F(Init, ItemsRunInOrderAndSeeWhatEarlierOnesSet) {
    run("Copy ctl yes - -\nCopy next done ctl yes\nCopy text next - -\nWFile f text - -\n"
        "Exist f there ctl yes\nRFile f back there true\n");
    EXPECT_EQ("done", value("back"));
}

TEST_F(Init, AnItemOfAnUnknownCommandDoesNothing) {
    run("Bogus single other - -\n");
    EXPECT_EQ("first", value("single"));
    EXPECT_EQ("(none)", value("other"));
}

TEST_F(Init, NullArgumentsRunNothing) {
    ASSERT_EQ(1, load("Copy a b - -\n"));
    init_run(script, nullptr);
    init_do(nullptr, init_get_num(script, 0));
    init_do(store, nullptr);
    EXPECT_EQ("(none)", value("a"));
}

TEST_F(Init, AnItemWithoutWordsDoesNoHarm) {
    for (const IItemMode mode : {IExist, ICopy, ITimeDate, IWFile, IRFile, INothing}) {
        const init_item item = {nullptr, nullptr, nullptr, nullptr, mode};
        init_do(store, &item);
    }
    EXPECT_THAT(errors(), ElementsAre("TimeDate '' is NULL", "Failed to write (), No such file or directory",
                                      "Failed to read (), No such file or directory"));
}

} // namespace
} // namespace installer
