// Copy script: the commands that are not plain copies or removals.

#include "tests/copy_support.h"

#include <dlfcn.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <grp.h>
#include <pwd.h>

#include <filesystem>

namespace {

int look_up_error = 0; // what a group's look-up meets, when that is not 0
int told = 0;          // how often the fail callback was called

} // namespace

extern "C" group *getgrnam(const char *name) {
    static const auto system_getgrnam =
        reinterpret_cast<group *(*)(const char *)>(dlsym(RTLD_NEXT, "getgrnam"));
    if (look_up_error == 0)
        return system_getgrnam(name);
    errno = look_up_error;
    return nullptr;
}

namespace installer::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using testing::UnorderedElementsAre;

class CopyAction : public CopyScript {
  protected:
    /// What a template of this text becomes.
    std::string written_from(const std::string &text) {
        write_file("tpl", text);
        EXPECT_EQ(1, run("Ini ./tpl ./out"));
        return read_file("out");
    }

    /// Runs an action on a loaded line, whatever its control says.
    int act(int (*action)(copy *, std::uint32_t), const std::string &line) {
        load(line);
        return action(x, 0);
    }

    static void make(const std::vector<std::string> &directories,
                     const std::vector<std::string> &files = {}) {
        for (const std::string &name : directories)
            std::filesystem::create_directories(name);
        for (const std::string &name : files)
            write_file(name, "");
    }

    static uid_t owner_of(const std::string &path) { return status_of(path).st_uid; }
    static gid_t group_of(const std::string &path) { return status_of(path).st_gid; }

  private:
    static struct stat status_of(const std::string &path) {
        struct stat st {};
        EXPECT_EQ(0, stat(path.c_str(), &st)) << path;
        return st;
    }
};

TEST_F(CopyAction, EveryActionFailsForWhatIsNoRecord) {
    load("MkDir a");
    for (auto *action : {copy_write_ini, copy_rename, copy_exist, copy_chown, copy_chmod, copy_seterror,
                         copy_wfile, copy_rfile}) {
        EXPECT_EQ(0, action(nullptr, 0));
        EXPECT_EQ(0, action(x, 1));
    }
    EXPECT_THAT(errors(), IsEmpty());
}

// ---- Ini ----

TEST_F(CopyAction, IniExpandsItsTemplateLineByLine) {
    set("host", "www1");
    set("dir", "/srv");
    set("again", "$(dir)");
    set("empty", "");
    const struct {
        const char *text;
        const char *expected;
    } rows[] = {
        {"host $(host)\ndir $(dir)/$(host)\n", "host www1\ndir /srv/www1\n"},
        {"a $(nosuch) b\n", "a  b\n"},
        {"$(nosuch)\n", "\n"},
        {"$(empty)\n", "\n"},
        {"$(again)\n", "$(dir)\n"},
        {"a $(open\n", "a $(open\n"},
        {" \t indented\n    $(host)  \n", "indented\nwww1\n"},
        {"a\r\n$(host)\r\n\r\n", "a\nwww1\n\n"},
        {"\n\n a\n", "\n\na\n"},
        {"no end $(host)", "no end www1\n"},
        {"# $(host)\n[x]\nname value\n", "# www1\n[x]\nname value\n"},
        {"", ""},
        {"\xff\x01 \x80\n", "\xff\x01 \x80\n"},
        {"the value keeps its blanks: $(host) \n", "the value keeps its blanks: www1\n"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(row.expected, written_from(row.text)) << row.text;
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(CopyAction, IniEndsALineAtANulByte) {
    set("host", "www1");
    EXPECT_EQ("a www1\nb\n\n", written_from(std::string("a $(host)\0 x\nb\n\0\n", 17)));
}

TEST_F(CopyAction, IniWritesALineLongerThanItsBufferAsSeveral) {
    const std::string x2999(2999, 'x');
    EXPECT_EQ(x2999 + "\n" + x2999 + "\n" + std::string(1002, 'x') + "\n",
              written_from(std::string(7000, 'x') + "\n"));
    EXPECT_EQ(x2999 + "\n\n", written_from(x2999 + "\n")) << "the line end is a piece of its own";
    EXPECT_EQ(std::string(2998, 'x') + "\n", written_from(std::string(2998, 'x') + "\n"));
}

TEST_F(CopyAction, IniDoesNotExpandAReferenceThatThePieceCuts) {
    set("host", "www1");
    EXPECT_EQ(std::string(2996, 'x') + "$(h\nost)\n", written_from(std::string(2996, 'x') + "$(host)\n"));
}

TEST_F(CopyAction, IniKeepsWithinItsBufferWhateverTheValues) {
    set("long", std::string(6000, 'v'));
    EXPECT_EQ(std::string(9999, 'v') + "\nnext\n", written_from("$(long)$(long)$(long)\nnext\n"));
}

TEST_F(CopyAction, IniWritesManyLinesInOrder) {
    set("n", "value");
    std::string text;
    std::string expected;
    for (int i = 0; i < 5000; ++i) {
        text += "name" + std::to_string(i) + " $(n)\n";
        expected += "name" + std::to_string(i) + " value\n";
    }
    EXPECT_EQ(expected, written_from(text));
}

TEST_F(CopyAction, IniKeepsManySettingsApart) {
    std::string text;
    std::string expected;
    for (int i = 0; i < 400; ++i) {
        const std::string n = std::to_string(i);
        set(("name" + n).c_str(), "value" + n);
        text += "$(name" + n + ")$(nosuch" + n + ")$(name" + std::to_string(i / 2) + ")\n";
        expected += "value" + n + "value" + std::to_string(i / 2) + "\n";
    }
    EXPECT_EQ(expected + expected, written_from(text + text));
}

TEST_F(CopyAction, IniTellsLongNamesApartByTheirEnds) {
    const std::string stem(60, 'n');
    set((stem + "1").c_str(), "one");
    set((stem + "2").c_str(), "two");
    EXPECT_EQ("one two\n", written_from("$(" + stem + "1) $(" + stem + "2)$(" + stem + ")"));
}

TEST_F(CopyAction, IniReplacesItsTargetAndSaysWhatItWrites) {
    write_file("out", "something longer than what comes");
    EXPECT_EQ("a\n", written_from("a"));
    EXPECT_THAT(logged("Info"), ElementsAre("Writing INI file './tpl' to './out'"));
}

TEST_F(CopyAction, IniWithoutATemplateLeavesAnEmptyTarget) {
    write_file("out", "text");
    EXPECT_EQ(0, act(copy_write_ini, "Ini ./nosuch ./out"));
    EXPECT_EQ("", read_file("out"));
    EXPECT_THAT(errors(), ElementsAre("Error reading ini file './nosuch', No such file or directory"));
}

TEST_F(CopyAction, IniToATargetThatCannotBeMadeFails) {
    write_file("tpl", "a\n");
    EXPECT_EQ(0, act(copy_write_ini, "Ini ./tpl ./nosuch/out"));
    EXPECT_THAT(errors(), ElementsAre("Error creating ini file './nosuch/out', No such file or directory"));
}

TEST_F(CopyAction, IniFromATemplateThatCannotBeReadThroughFailsWithoutAWord) {
    make({"tpl"});
    EXPECT_EQ(0, act(copy_write_ini, "Ini ./tpl ./out"));
    EXPECT_EQ("", read_file("out"));
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(CopyAction, IniToAFullDeviceFails) {
    write_file("tpl", "a\n"); // little enough to fail only when the target is closed
    EXPECT_EQ(0, act(copy_write_ini, "Ini ./tpl /dev/full"));
    write_file("tpl", std::string(100000, 'a'));
    EXPECT_EQ(0, act(copy_write_ini, "Ini ./tpl /dev/full"));
    const std::string text = "Error writing to '/dev/full', No space left on device";
    EXPECT_THAT(errors(), ElementsAre(text, text));
}

TEST_F(CopyAction, AnEmptyTemplateFitsEvenAFullDevice) {
    write_file("tpl", "");
    EXPECT_EQ(1, act(copy_write_ini, "Ini ./tpl /dev/full"));
}

TEST_F(CopyAction, IniRefusesPipesBeforeAnythingIsOpened) {
    write_file("tpl", "a\n");
    write_file("out", "kept");
    ASSERT_EQ(0, mkfifo("pipe", 0644));
    EXPECT_EQ(0, act(copy_write_ini, "Ini ./tpl ./pipe"));
    EXPECT_EQ(0, act(copy_write_ini, "Ini ./pipe ./out"));
    EXPECT_EQ("kept", read_file("out"));
    const std::string text = "'./pipe' is not a file, Invalid argument";
    EXPECT_THAT(errors(), ElementsAre(text, text));
}

// ---- Rename ----

TEST_F(CopyAction, RenameMovesAFileOrADirectory) {
    write_file("a", "text");
    make({"dir"});
    EXPECT_EQ(1, act(copy_rename, "Rename ./a ./dir/b"));
    EXPECT_EQ(1, act(copy_rename, "Rename dir moved"));
    EXPECT_EQ("text", read_file("moved/b"));
    EXPECT_FALSE(exists("a"));
    EXPECT_FALSE(exists("dir"));
}

TEST_F(CopyAction, RenameReplacesAFile) {
    write_file("a", "new");
    write_file("b", "old");
    EXPECT_EQ(1, act(copy_rename, "Rename a b"));
    EXPECT_EQ("new", read_file("b"));
}

TEST_F(CopyAction, AFailedRenameNamesBothAndTheReason) {
    errno = 0;
    EXPECT_EQ(0, act(copy_rename, "Rename ./a ./b"));
    EXPECT_THAT(errors(), ElementsAre("Error renaming './a'->'./b', , No such file or directory"));
}

TEST_F(CopyAction, RenameTakesNoWildcards) {
    write_file("a1", "text");
    EXPECT_EQ(0, act(copy_rename, "Rename ./a* ./b"));
    EXPECT_TRUE(exists("a1"));
}

// ---- Exist ----

TEST_F(CopyAction, ExistTellsFilesAndDirectoriesAndNeverFails) {
    make({"dir"}, {"file"});
    ASSERT_EQ(0, symlink("dir", "link"));
    ASSERT_EQ(0, symlink("nowhere", "dangling"));
    const struct {
        const char *path;
        const char *expected;
    } rows[] = {{"./file", "true"}, {"./dir", "true"},     {"./link", "true"}, {"./dangling", "false"},
                {"./no", "false"},  {"./file/x", "false"}, {"./f*", "false"},  {"$(none)", "false"}};
    int n = 0;
    for (const auto &row : rows) {
        const std::string setting = "found" + std::to_string(++n);
        EXPECT_EQ(1, run(std::string("Exist ") + row.path + " " + setting)) << row.path;
        EXPECT_EQ(row.expected, value_of(setting.c_str())) << row.path;
    }
    EXPECT_THAT(errors(), IsEmpty());
}

// ---- Error ----

TEST_F(CopyAction, ErrorFailsOnlyForAFalseValue) {
    const struct {
        const char *value;
        int result;
    } rows[] = {{"no", 0}, {"FALSE", 0}, {"Off", 0}, {"n", 0},     {"0", 0},
                {"x0", 0}, {"yes", 1},   {"1", 1},   {"maybe", 1}, {"", 1}};
    int n = 0;
    for (const auto &row : rows) {
        const std::string setting = "s" + std::to_string(++n);
        set(setting.c_str(), row.value);
        EXPECT_EQ(row.result, run("Error " + setting + " Failed with " + setting)) << row.value;
    }
    EXPECT_STREQ("Failed with s6", copy_error()) << "the last failing one";
    EXPECT_EQ(1, run("Error unset Failed")) << "a setting without a value";
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(CopyAction, TheMessageIsEmptyUntilAnErrorCommandFailsAndIsReplacedByTheNext) {
    set("ok", "yes");
    set("bad", "no");
    set("name", "the kit");
    EXPECT_EQ(1, run("Error ok Not this"));
    EXPECT_EQ(0, act(copy_rename, "Rename ./nosuch ./b"));
    EXPECT_STREQ("", copy_error());
    EXPECT_EQ(0, run("Error bad Cannot install $(name), sorry"));
    EXPECT_STREQ("Cannot install the kit, sorry", copy_error());
    EXPECT_EQ(1, run("Error ok Not this"));
    EXPECT_STREQ("Cannot install the kit, sorry", copy_error());
    EXPECT_EQ(0, run("Error bad"));
    EXPECT_STREQ("", copy_error()) << "a command without a message has an empty one";
}

TEST_F(CopyAction, TheMessageOutlivesTheScript) {
    set("bad", "no");
    run("Error bad Gone wrong");
    copy_free(&x);
    EXPECT_STREQ("Gone wrong", copy_error());
}

// ---- WFile ----

TEST_F(CopyAction, WFileWritesTheSettingsValueOrElseTheWordWithoutALineEnd) {
    set("greeting", "Hello, $(name)\nthere");
    set("empty", "");
    EXPECT_EQ(1, run("WFile ./a greeting"));
    EXPECT_EQ("Hello, $(name)\nthere", read_file("a"));
    EXPECT_EQ(1, run("WFile ./a Greeting")) << "a shorter text replaces the whole file";
    EXPECT_EQ("Greeting", read_file("a"));
    EXPECT_EQ(1, run("WFile ./a empty"));
    EXPECT_EQ("", read_file("a"));
}

TEST_F(CopyAction, WFileLooksUpWhatAReferenceBecame) {
    set("which", "greeting");
    set("greeting", "Hello");
    EXPECT_EQ(1, run("WFile ./a $(which)"));
    EXPECT_EQ("Hello", read_file("a"));
}

TEST_F(CopyAction, WFileToWhatCannotBeWrittenFails) {
    make({"dir"});
    EXPECT_EQ(0, run("WFile ./nosuch/a text"));
    EXPECT_EQ(0, run("WFile ./dir text"));
    EXPECT_EQ(0, run("WFile /dev/full text"));
    EXPECT_THAT(errors(), ElementsAre("Failed to write (./nosuch/a), No such file or directory",
                                      "Failed to write (./dir), Is a directory",
                                      "Error writing to '/dev/full', No space left on device"));
}

TEST_F(CopyAction, WFileAndRFileRefusePipesAndSockets) {
    ASSERT_EQ(0, mkfifo("pipe", 0644));
    EXPECT_EQ(0, run("WFile ./pipe text"));
    EXPECT_EQ(0, run("RFile ./pipe setting"));
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    scpy(address.sun_path, "socket", sizeof address.sun_path);
    ASSERT_EQ(0, bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address));
    close(fd);
    EXPECT_EQ(0, run("WFile ./socket text"));
    EXPECT_THAT(errors(), ElementsAre("'./pipe' is not a file, Invalid argument",
                                      "'./pipe' is not a file, Invalid argument",
                                      "'./socket' is not a file, Invalid argument"));
}

// ---- RFile ----

TEST_F(CopyAction, RFileEmptiesItsFileAndGivesTheSettingNoValue) {
    write_file("in", "first\nsecond\n");
    EXPECT_EQ(1, run("RFile ./in content"));
    EXPECT_EQ("", read_file("in"));
    EXPECT_EQ("(none)", value_of("content"));
}

TEST_F(CopyAction, RFileMakesAFileThatIsMissing) {
    EXPECT_EQ(1, run("RFile ./in content"));
    EXPECT_EQ("", read_file("in"));
}

TEST_F(CopyAction, RFileOfWhatCannotBeOpenedFails) {
    EXPECT_EQ(0, run("RFile ./nosuch/in content"));
    EXPECT_THAT(errors(), ElementsAre("Failed to read (./nosuch/in), No such file or directory"));
}

// ---- Chmod ----

TEST_F(CopyAction, ChmodReadsItsModeAsOctalWithoutCheckingIt) {
    const struct {
        const char *word;
        int mode; // of the file afterwards
    } rows[] = {
        {"755", 493},
        {"0644", 0644},
        {"600", 0600},
        {"1000755", 0755},
        {"8", 010},
        {"79", 0101}, // 7 * 8 + 9
        {"$(none)777", 0777},
        {"$(none)", 0},
        {":", 012}, // the character after "9"
        {"/7", 07777 & (65535 * 8 + 7)},
        {"\xe9", 0271}, // 233 - 48, the byte unsigned
    };
    write_file("a", "");
    for (const auto &row : rows) {
        EXPECT_EQ(1, run(std::string("Chmod ./a - ") + row.word)) << row.word;
        EXPECT_EQ(row.mode, mode_of("a")) << row.word;
    }
}

TEST_F(CopyAction, AModeHasSixteenBitsAndIsToldInDecimal) {
    ASSERT_EQ(0, symlink("nowhere", "link"));
    EXPECT_EQ(0, run("Chmod ./link - 200755")); // bit 16 falls off
    EXPECT_EQ(0, run("Chmod ./link - 177777"));
    EXPECT_THAT(errors(), ElementsAre("Error changing mode of './link' to 493, No such file or directory",
                                      "Error changing mode of './link' to 65535, No such file or directory"));
    EXPECT_THAT(logged("Debug"), Contains("file_chmod failed").Times(2));
}

TEST_F(CopyAction, ChmodDoesNotExpandItsModeOnceMore) {
    set("mode", "$(real)");
    set("real", "600");
    write_file("a", "");
    EXPECT_EQ(1, run("Chmod ./a - $(mode)"));
    EXPECT_NE(0600, mode_of("a"));
}

TEST_F(CopyAction, ChmodChangesWhatMatchesAndEverythingBelow) {
    make({"top/sub", "other"}, {"top/a", "top/sub/b", "other/c"});
    EXPECT_EQ(4, run("Chmod ./t* - 700")); // top, top/a, top/sub, top/sub/b
    for (const char *name : {"top", "top/a", "top/sub", "top/sub/b"})
        EXPECT_EQ(0700, mode_of(name)) << name;
    EXPECT_EQ(0755, mode_of("other"));
    EXPECT_EQ(0644, mode_of("other/c"));
}

TEST_F(CopyAction, ATreeIsChangedBeforeItsDirectory) {
    ASSERT_EQ(0, chmod(dir().c_str(), 0777));
    as_ordinary_user(
        [&] {
            make({"top/sub"}, {"top/sub/a"});
            EXPECT_EQ(3, run("Chmod ./top - 0")) << "the other way round sub would be out of reach";
            EXPECT_EQ(0, mode_of("top"));
            chmod("top", 0700);
            EXPECT_EQ(0, mode_of("top/sub"));
            chmod("top/sub", 0700);
            EXPECT_EQ(0, mode_of("top/sub/a"));
        },
        {beside(""), dir()});
}

TEST_F(CopyAction, ChmodExcludesByTheWholePathIgnoringCase) {
    make({"top/keep"}, {"top/a", "top/keep/b", "top/Keeper"});
    EXPECT_EQ(4, run("Chmod ./top/* keep 700")) << "a last component alone excludes nothing";
    EXPECT_EQ(1, run("Chmod ./top/* */KEEP* 600"));
    EXPECT_EQ(0600, mode_of("top/a"));
    EXPECT_EQ(0700, mode_of("top/keep"));
    EXPECT_EQ(0700, mode_of("top/keep/b")) << "what is excluded is not entered";
    EXPECT_EQ(0700, mode_of("top/Keeper"));
    EXPECT_EQ(3, run("Chmod ./top/* */b 755"));
    EXPECT_EQ(0700, mode_of("top/keep/b")) << "exclusion counts below the top too";
    EXPECT_THAT(logged("Debug"), Contains("Not chmod'ding './top/keep'"));
    EXPECT_THAT(logged("Debug"), Contains("Not chmod'ding './top/keep/b'"));
}

TEST_F(CopyAction, ChmodFollowsALinkToAFileAndDoesNotEnterOneToADirectory) {
    make({"top", "real"}, {"file", "real/a"});
    ASSERT_EQ(0, symlink("../file", "top/f"));
    ASSERT_EQ(0, symlink("../real", "top/d"));
    EXPECT_EQ(2, run("Chmod ./top/* - 700"));
    EXPECT_EQ(0700, mode_of("file"));
    EXPECT_EQ(0700, mode_of("real")) << "the directory that the link names";
    EXPECT_EQ(0644, mode_of("real/a"));
}

TEST_F(CopyAction, AFailureEndsItsDirectoryAndNotTheOnesAbove) {
    make({"top/sub"});
    for (const char *link : {"top/sub/1", "top/sub/2", "top/sub/3"})
        ASSERT_EQ(0, symlink("nowhere", link));
    EXPECT_EQ(1, run("Chmod ./top/* - 700")); // sub itself
    EXPECT_EQ(0700, mode_of("top/sub"));
    EXPECT_THAT(errors(), ElementsAre(StartsWith("Error changing mode of './top/sub/")));
    EXPECT_THAT(logged("Debug"), Contains("file_chmod failed").Times(1));
}

TEST_F(CopyAction, ChmodOfNothingFails) {
    EXPECT_EQ(0, run("Chmod ./nosuch* - 755"));
    EXPECT_THAT(errors(), IsEmpty());
    EXPECT_EQ(0, run("Chmod ./nosuch/* - 755"));
    EXPECT_THAT(errors(), ElementsAre("Error opening dir './nosuch/', No such file or directory"));
}

TEST_F(CopyAction, ADirectoryThatDoesNotFitIsNotChanged) {
    const std::string directory = "./" + std::string(253, 'd') + "/";
    EXPECT_EQ(0, run("Chmod " + directory + "* - 755"));
    EXPECT_EQ(0, run("Chown " + directory + "* - root"));
    const std::string text = "Path too long '" + directory + "', File name too long";
    EXPECT_THAT(errors(), ElementsAre(text, text));
}

TEST_F(CopyAction, OnlyCommandsWithDotsTellOfADirectoryThatDoesNotFit) {
    const std::string files = "./" + std::string(253, 'd') + "/*";
    EXPECT_EQ(0, run("RmFile " + files + " -")) << "without callbacks nobody is told";
    told = 0;
    file_setup_fn(nullptr, [](const char *, const char *, int) { ++told; });
    EXPECT_EQ(0, run("Chmod " + files + " - 755"));
    EXPECT_EQ(0, run("Chown " + files + " - root"));
    EXPECT_EQ(0, told);
    EXPECT_EQ(0, run("RmFile " + files + " -"));
    EXPECT_EQ(1, told);
}

TEST_F(CopyAction, ChmodLogsItsProgress) {
    make({"top/sub"}, {"top/sub/a"});
    const std::size_t before = log_lines().size();
    EXPECT_EQ(2, dochmod("./top", "*", "*/x", 0755));
    EXPECT_EQ(1, dochmod("./top/sub", "*", nullptr, 0644));
    EXPECT_EQ(0, dochmod("./top", "x*", nullptr, 0644));
    auto lines = log_lines();
    lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(before));
    EXPECT_THAT(
        lines,
        ElementsAre(
            "Debug: Found files to chmod, not doing '*/x'", "Debug: Found files to chmod, not doing '*/x'",
            "Debug: Finished chmod'ing, 1 files done", "Debug: Finished chmod'ing, 2 files done",
            "Debug: Found files to chmod, doing all of them", "Debug: Finished chmod'ing, 1 files done",
            "Debug: No files found to chmod", "Debug: Finished chmod'ing, 0 files done"));
}

TEST_F(CopyAction, TheWorkersTakeNull) {
    EXPECT_EQ(0, dochmod(nullptr, "*", nullptr, 0755));
    EXPECT_EQ(0, dochmod(".", nullptr, nullptr, 0755));
    EXPECT_EQ(0, dochown(nullptr, "*", nullptr, 0, 0));
    EXPECT_EQ(0, dochown(".", nullptr, nullptr, 0, 0));
}

// ---- Chown ----

TEST_F(CopyAction, ChownOfAnUnknownUserChangesNothing) {
    make({}, {"a", "b"});
    const uid_t before = owner_of("a");
    EXPECT_EQ(0, run("Chown ./* - no-such-user:no-such-group"));
    EXPECT_EQ(before, owner_of("a"));
    EXPECT_THAT(errors(), IsEmpty());
    EXPECT_THAT(logged("Debug"), Contains("Found user id for 'no-such-user'=-1"));
    EXPECT_THAT(logged("Debug"), Contains("Found group id for 'no-such-group'=-1"));
    EXPECT_THAT(logged("Debug"), Contains("file_chown failed").Times(1));
    EXPECT_THAT(logged("Debug"), Contains("Finished chown'ing, 0 files done"));
}

TEST_F(CopyAction, AnOwnerIsSplitAtItsFirstColon) {
    const struct {
        const char *owner;
        const char *user;
        const char *group;
    } rows[] = {{"no-u:no-g", "no-u", "no-g"},
                {"no-u:no-g:x", "no-u", "no-g:x"},
                {"no-u", "no-u", "no-u"},
                {":no-g", "", "no-g"},
                {"no-u:", "no-u", ""}};
    for (const auto &row : rows) {
        run(std::string("Chown ./nosuch - ") + row.owner);
        EXPECT_THAT(logged("Debug"), Contains(std::string("Found user id for '") + row.user + "'=-1"));
        EXPECT_THAT(logged("Debug"), Contains(std::string("Found group id for '") + row.group + "'=-1"));
    }
}

TEST_F(CopyAction, AnOwnerIsExpandedOnceMoreThanOtherFields) {
    set("owner", "$(who):staff");
    set("who", "no-such-web");
    run("Chown ./nosuch - $(owner)");
    EXPECT_THAT(logged("Debug"), Contains("Found user id for 'no-such-web'=-1"));
    EXPECT_THAT(logged("Debug"), Contains(StartsWith("Found group id for 'staff'=")));
}

TEST_F(CopyAction, ChownByAnotherThanRootIsReported) {
    make({}, {"a"});
    as_ordinary_user(
        [&] {
            EXPECT_EQ(0, run("Chown ./a - root:root"));
            EXPECT_THAT(
                errors(),
                ElementsAre("Error changing ownership of './a' to uid=0, gid=0, Operation not permitted"));
            EXPECT_THAT(logged("Debug"), Contains("file_chown failed"));
        },
        {beside(""), dir()});
}

TEST_F(CopyAction, ChownChangesTreesWithTheUserAndTheGroup) {
    SKIP_UNLESS_ROOT("only root gives files away");
    make({"top/sub", "other"}, {"top/a", "top/sub/b"});
    const passwd *daemon = getpwnam("daemon");
    const group *staff = getgrnam("staff");
    ASSERT_TRUE(daemon && staff);
    EXPECT_EQ(4, run("Chown ./top - daemon:staff"));
    for (const char *name : {"top", "top/a", "top/sub", "top/sub/b"}) {
        EXPECT_EQ(daemon->pw_uid, owner_of(name)) << name;
        EXPECT_EQ(staff->gr_gid, group_of(name)) << name;
    }
    EXPECT_EQ(0U, owner_of("other"));
}

TEST_F(CopyAction, OneWordIsTheUserAndTheGroup) {
    SKIP_UNLESS_ROOT("only root gives files away");
    make({}, {"a"});
    const passwd *user = getpwnam("games");
    const group *same = getgrnam("games");
    ASSERT_TRUE(user && same);
    EXPECT_EQ(1, run("Chown ./a - games"));
    EXPECT_EQ(user->pw_uid, owner_of("a"));
    EXPECT_EQ(same->gr_gid, group_of("a"));
}

TEST_F(CopyAction, AnUnknownGroupGivesTheUsersNumberAsGroup) {
    SKIP_UNLESS_ROOT("only root gives files away");
    make({}, {"a"});
    const passwd *user = getpwnam("games");
    ASSERT_TRUE(user);
    EXPECT_EQ(1, run("Chown ./a - games:no-such-group"));
    EXPECT_EQ(user->pw_uid, group_of("a"));
}

TEST_F(CopyAction, AGroupThatCannotBeLookedUpIsNoUnknownGroup) {
    make({}, {"a"});
    const gid_t before = group_of("a");
    look_up_error = EIO;
    EXPECT_EQ(0, run("Chown ./a - root:staff"));
    look_up_error = 0;
    EXPECT_EQ(before, group_of("a"));
    EXPECT_THAT(errors(), ElementsAre("Error looking up group 'staff', Input/output error"));
}

TEST_F(CopyAction, ChownFollowsALinkAndExcludesByTheWholePath) {
    SKIP_UNLESS_ROOT("only root gives files away");
    make({"top"}, {"file", "top/keep"});
    ASSERT_EQ(0, symlink("../file", "top/link"));
    EXPECT_EQ(1, run("Chown ./top/* */KEEP daemon"));
    EXPECT_EQ(getpwnam("daemon")->pw_uid, owner_of("file"));
    EXPECT_EQ(0U, owner_of("top/keep"));
    EXPECT_THAT(logged("Debug"), Contains("Found files to chown, not doing '*/KEEP'"));
    EXPECT_THAT(logged("Debug"), Contains("Not chown'ing './top/keep'"));
    EXPECT_THAT(logged("Debug"), Contains("Finished chown'ing, 1 files done"));
}

TEST_F(CopyAction, ChownLogsItsProgress) {
    make({}, {"a"});
    EXPECT_EQ(0, dochown(".", "nosuch", nullptr, -1, -1));
    EXPECT_EQ(0, dochown(".", "a", nullptr, -1, -1));
    EXPECT_THAT(log_lines(),
                ElementsAre("Debug: No files found to chown", "Debug: Finished chown'ing, 0 files done",
                            "Debug: Found files to chown, doing all of them", "Debug: file_chown failed",
                            "Debug: Finished chown'ing, 0 files done"));
}

} // namespace
} // namespace installer::test
