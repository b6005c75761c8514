// Copy script: controlling settings, counting, stopping, and the copy and remove families.

#include "tests/copy_support.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <filesystem>

namespace installer::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

/// What the callbacks were told: "ok a>b 1".
std::vector<std::string> told;

std::string event(const char *word, const char *path, const char *other, int mode) {
    return std::string(word) + " " + str(path) + ">" + str(other) + " " + std::to_string(mode);
}

class CopyProcess : public CopyScript {
  protected:
    CopyProcess() {
        told.clear();
        copy_setup(
            x,
            [](const char *path, const char *other, int mode) {
                told.push_back(event("ok", path, other, mode));
            },
            [](const char *path, const char *other, int mode) {
                told.push_back(event("fail", path, other, mode));
            });
    }

    /// Makes directories and, for names with a text, files.
    static void make(const std::vector<std::string> &directories,
                     const std::vector<std::string> &files = {}) {
        for (const std::string &name : directories)
            std::filesystem::create_directories(name);
        for (const std::string &name : files)
            write_file(name, "<" + name + ">");
    }

    /// Goes into a working directory whose path is longer than a path buffer.
    static void enter_deep_folder() {
        for (int i = 0; i < 3; ++i) {
            const std::string name(100, 'd');
            ASSERT_EQ(0, mkdir(name.c_str(), 0755));
            ASSERT_EQ(0, chdir(name.c_str()));
        }
    }

    /// Makes a socket file.
    static void make_socket(const char *path) {
        const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        scpy(address.sun_path, path, sizeof address.sun_path);
        EXPECT_EQ(0, bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address));
        close(fd);
    }
};

// ---- The controlling setting ----

TEST_F(CopyProcess, TheControllingSettingDecidesWhetherARecordRuns) {
    set("yes", "true");
    set("on", "ON");
    set("seven", "7");
    set("no", "false");
    set("word", "maybe");
    set("empty", "");
    set("action", "upgrade");
    set("wanted", "upgrade");
    set("other", "install");
    const struct {
        const char *control;
        int result;
    } rows[] = {
        {"", 1},
        {"nosuch", 1},         // an unknown setting does not block,
        {"nosuch install", 1}, // with a comparison neither
        {"yes", 1},
        {"on", 1},
        {"seven", 1},
        {"no", -1},
        {"word", -1},
        {"empty", -1},
        {"YES", 1}, // no setting of that name
        {"action upgrade", 1},
        {"action UPGRADE", 1},
        {"action upgrades", -1},
        {"action wanted", 1}, // the value of a setting before the literal
        {"action other", -1},
        {"action action", 1},
        {"no false", 1},
        {"no true", -1},
        {"yes empty", -1},
        {"empty empty", 1},
    };
    for (const auto &row : rows)
        EXPECT_EQ(row.result, run(std::string("Exist . answer ") + row.control)) << row.control;
    EXPECT_THAT(logged("Debug"), Contains("Doing nothing due to controlling setting").Times(7));
}

TEST_F(CopyProcess, ASettingsValueIsComparedEvenWhenTheLiteralWouldBeEqual) {
    set("action", "upgrade");
    set("UPGRADE", "other");
    EXPECT_EQ(-1, run("Exist . answer action UPGRADE"));
}

TEST_F(CopyProcess, AComparisonSettingIsReadEvenWhenTheControlHasNoValue) {
    // A setting with several values takes the next one in front once it has been read, else behind.
    set("found", "unknown");
    EXPECT_EQ(1, run("Exist . answer nosuch found"));
    EXPECT_EQ(1, run("Exist . found"));
    EXPECT_EQ("true", value_of("found"));
}

TEST_F(CopyProcess, ASkippedRecordDoesNothing) {
    set("no", "false");
    EXPECT_EQ(-1, run("MkDir made no"));
    EXPECT_FALSE(exists("made"));
}

TEST_F(CopyProcess, DoRefusesWhatIsNoRecord) {
    load("MkDir made");
    EXPECT_EQ(0, copy_do(x, 1, nullptr));
    EXPECT_EQ(0, copy_do(nullptr, 0, nullptr));
    EXPECT_FALSE(exists("made"));
}

TEST_F(CopyProcess, AFailureDoesNotCarryTheReasonOfAnEarlierOne) {
    load("Frob a b c");
    errno = EACCES;
    EXPECT_EQ(0, copy_do(x, 0, nullptr));
    EXPECT_THAT(errors(), Contains("How did we get here!"));
}

TEST_F(CopyProcess, AValueTooLargeForANumberLeavesNoReasonBehind) {
    set("big", "99999999999999999999");
    load("Frob a b c big");
    EXPECT_EQ(0, copy_do(x, 0, nullptr));
    EXPECT_THAT(errors(), Contains("How did we get here!"));
}

// ---- Running a script ----

TEST_F(CopyProcess, AScriptRunsInOrderAndCountsWhatSucceeded) {
    make({"src/tree", "dst"}, {"src/a", "src/tree/b"});
    set("no", "false");
    load("MkDir new/deep\n"
         "CopyDir ./src/* - ./dst\n" // a, tree and tree/b
         "MkDir skipped no\n"
         "RmDir ./dst/tree -\n" // tree and tree/b
         "Exist ./dst/a found");
    std::uint32_t files = 77;
    std::uint32_t bytes = 77;
    EXPECT_EQ(1, copy_process(x, &files, &bytes, 1));
    EXPECT_EQ(1U + 3U + 2U + 1U, files);
    EXPECT_EQ(std::string("<src/a>").size() + std::string("<src/tree/b>").size(), bytes);
    EXPECT_EQ("true", value_of("found"));
    EXPECT_THAT(logged("Info"),
                ElementsAre("Processing copy script...", "Copy script completed successfully"));
}

TEST_F(CopyProcess, CountersAreOptional) {
    make({"src", "dst"}, {"src/a"});
    load("CopyFile ./src/a - ./dst");
    EXPECT_EQ(1, copy_process(x, nullptr, nullptr, 1));
    EXPECT_EQ("<src/a>", read_file("dst/a"));
}

TEST_F(CopyProcess, ANullObjectRunsNothingAndStillZeroesTheCounters) {
    std::uint32_t files = 7;
    std::uint32_t bytes = 7;
    EXPECT_EQ(0, copy_process(nullptr, &files, &bytes, 0));
    EXPECT_EQ(0U, files);
    EXPECT_EQ(0U, bytes);
}

TEST_F(CopyProcess, AnEmptyScriptSucceeds) {
    EXPECT_EQ(1, copy_process(x, nullptr, nullptr, 1));
}

TEST_F(CopyProcess, StopOnFailEndsTheScriptAtTheFirstFailure) {
    load("MkDir a\nRmFile ./nosuch* -\nMkDir b");
    std::uint32_t files = 0;
    EXPECT_EQ(0, copy_process(x, &files, nullptr, 1));
    EXPECT_EQ(1U, files);
    EXPECT_TRUE(exists("a"));
    EXPECT_FALSE(exists("b"));
    EXPECT_THAT(logged("Info"), ElementsAre("Processing copy script...", "Stop on fail set, stopping..."));
}

TEST_F(CopyProcess, WithoutStopOnFailTheScriptGoesOnAndSucceeds) {
    load("MkDir a\nRmFile ./nosuch* -\nMkDir b");
    std::uint32_t files = 0;
    EXPECT_EQ(1, copy_process(x, &files, nullptr, 0));
    EXPECT_EQ(2U, files);
    EXPECT_TRUE(exists("b"));
    EXPECT_THAT(logged("Info"),
                ElementsAre("Processing copy script...", "Stop on fail NOT set, continuing...",
                            "Copy script completed successfully"));
}

TEST_F(CopyProcess, AScriptWhoseRecordsAreAllSkippedSucceeds) {
    set("no", "false");
    load("MkDir a no\nRmFile ./nosuch - no");
    std::uint32_t files = 7;
    EXPECT_EQ(1, copy_process(x, &files, nullptr, 1));
    EXPECT_EQ(0U, files);
}

TEST_F(CopyProcess, EachRecordIsLoggedWithItsFields) {
    load("Exist a b c d\nRmFile e f\nMkDir g");
    copy_process(x, nullptr, nullptr, 0);
    EXPECT_THAT(logged("Debug"), Contains("Processing [1024:a->b,,c,d]"));
    EXPECT_THAT(logged("Debug"), Contains("Processing [513:e->,f,,]"));
    EXPECT_THAT(logged("Debug"), Contains("Processing [260:g->,,,]"));
}

TEST_F(CopyProcess, ARecordSeesTheSettingsThatEarlierOnesMade) {
    load("Exist ./nosuch present\nMkDir a present\nExist . here\nMkDir b here");
    EXPECT_EQ(1, copy_process(x, nullptr, nullptr, 1));
    EXPECT_FALSE(exists("a"));
    EXPECT_TRUE(exists("b"));
}

TEST_F(CopyProcess, AFailedErrorCommandStopsTheScriptWithItsMessage) {
    set("db_ok", "no");
    load("Error db_ok Database check failed\nMkDir a");
    EXPECT_EQ(0, copy_process(x, nullptr, nullptr, 1));
    EXPECT_STREQ("Database check failed", copy_error());
    EXPECT_FALSE(exists("a"));
}

TEST_F(CopyProcess, AnUnknownCommandFails) {
    EXPECT_EQ(0, run("Frob a b c"));
    EXPECT_THAT(errors(), ElementsAre("Unknown copy type 'Frob'", "How did we get here!"));
}

TEST_F(CopyProcess, TheFamilyBitsAloneCopyAndRemoveFiles) {
    make({"src/sub", "dst"}, {"src/a"});
    load("CopyFile ./src/* - ./dst\nRmFile ./src/* -");
    x->list[0].type = Cpy;
    x->list[1].type = Rm;
    EXPECT_EQ(1, copy_do(x, 0, nullptr));
    EXPECT_EQ(1, copy_do(x, 1, nullptr));
    EXPECT_THAT(names_in("src"), ElementsAre("sub"));
    EXPECT_THAT(names_in("dst"), ElementsAre("a"));
}

// ---- Destinations ----

TEST_F(CopyProcess, EveryDirectoryThatTheDestinationMatchesIsFilled) {
    make({"src", "site1", "site2"}, {"src/a", "src/b", "site.txt"});
    std::uint32_t bytes = 0;
    EXPECT_EQ(4, run("CopyFile ./src/* - ./site*", &bytes));
    for (const char *site : {"site1", "site2"}) {
        EXPECT_THAT(names_in(site), ElementsAre("a", "b"));
        EXPECT_EQ("<src/a>", read_file(std::string(site) + "/a"));
    }
    EXPECT_EQ(4 * std::string("<src/a>").size(), bytes);
    EXPECT_EQ("<site.txt>", read_file("site.txt"));
}

TEST_F(CopyProcess, ExclusionAlsoChoosesAmongDestinationsIgnoringCase) {
    make({"src", "site1", "site2"}, {"src/a"});
    EXPECT_EQ(1, run("CopyFile ./src/* SITE2 ./site*"));
    EXPECT_THAT(names_in("site1"), ElementsAre("a"));
    EXPECT_THAT(names_in("site2"), IsEmpty());
}

TEST_F(CopyProcess, TheDestinationWildcardIsCaseSensitive) {
    make({"src", "Site1"}, {"src/a"});
    EXPECT_EQ(0, run("CopyFile ./src/* - ./site*"));
}

TEST_F(CopyProcess, ADestinationThatNamesNoDirectoryIsAFailure) {
    make({"src", "dst", "empty"}, {"src/a", "file"});
    for (const char *dest : {"./dst/", "dst", "./file", "./empty/*", "./nosuch", "./", "$(nosuch)"}) {
        load(std::string("CopyFile ./src/a - ") + dest);
        const std::size_t before = errors().size();
        EXPECT_EQ(0, copy_do(x, 0, nullptr)) << dest;
        ASSERT_EQ(before + 1, errors().size()) << dest;
        EXPECT_EQ("No destination directories found", errors().back()) << dest;
    }
    EXPECT_THAT(names_in("dst"), IsEmpty());
}

TEST_F(CopyProcess, ADestinationBelowAMissingDirectoryTellsTheReason) {
    make({"src"}, {"src/a"});
    EXPECT_EQ(0, run("CopyFile ./src/a - ./nosuch/dst"));
    EXPECT_THAT(errors(), ElementsAre("Error opening dir './nosuch/', No such file or directory",
                                      "No destination directories found, No such file or directory"));
}

TEST_F(CopyProcess, ALinkToADirectoryIsNoDestination) {
    make({"src", "dst"}, {"src/a"});
    ASSERT_EQ(0, symlink("dst", "link"));
    EXPECT_EQ(0, run("CopyFile ./src/a - ./link"));
    EXPECT_THAT(names_in("dst"), IsEmpty());
}

// ---- Copying ----

TEST_F(CopyProcess, CopyFileTakesFilesAndPassesDirectoriesOver) {
    make({"src/tree", "dst"}, {"src/a", "src/tree/b"});
    EXPECT_EQ(1, run("CopyFile ./src/* - ./dst"));
    EXPECT_THAT(names_in("dst"), ElementsAre("a"));
    EXPECT_EQ(0, run("CopyFile ./src/tree - ./dst")) << "nothing but a directory: nothing done";
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(CopyProcess, CopyDirTakesTreesAndFiles) {
    make({"src/docs/deep", "src/docs/empty", "htdocs"}, {"src/a", "src/docs/b", "src/docs/deep/c"});
    EXPECT_EQ(6, run("CopyDir ./src/* - ./htdocs")); // a, docs, docs/b, docs/deep, docs/deep/c, docs/empty
    EXPECT_EQ("<src/docs/deep/c>", read_file("htdocs/docs/deep/c"));
    EXPECT_THAT(names_in("htdocs"), ElementsAre("a", "docs"));
    EXPECT_THAT(names_in("htdocs/docs"), ElementsAre("b", "deep", "empty"));
}

TEST_F(CopyProcess, CopyDirOfADirectoryCopiesTheDirectoryItself) {
    make({"src/docs", "htdocs"}, {"src/docs/a"});
    EXPECT_EQ(2, run("CopyDir ./src/docs - ./htdocs"));
    EXPECT_EQ("<src/docs/a>", read_file("htdocs/docs/a"));
}

TEST_F(CopyProcess, ASourceThatEndsInASeparatorIsEverythingInIt) {
    make({"src", "dst"}, {"src/a", "src/.hidden"});
    EXPECT_EQ(2, run("CopyFile ./src/ - ./dst"));
    EXPECT_THAT(names_in("dst"), ElementsAre(".hidden", "a"));
}

TEST_F(CopyProcess, ASourceWithoutASeparatorIsLookedForInTheWorkingDirectory) {
    make({"dst"}, {"a.txt", "b.txt"});
    EXPECT_EQ(1, run("CopyFile a* - ./dst"));
    EXPECT_THAT(names_in("dst"), ElementsAre("a.txt"));
}

TEST_F(CopyProcess, TheSourceWildcardIsCaseSensitive) {
    make({"src", "dst"}, {"src/a.CGI", "src/b.cgi"});
    EXPECT_EQ(1, run("CopyFile ./src/*.cgi - ./dst"));
    EXPECT_THAT(names_in("dst"), ElementsAre("b.cgi"));
}

TEST_F(CopyProcess, ExistingFilesAreOverwritten) {
    make({"src", "dst"}, {"src/a"});
    write_file("dst/a", "a text that was longer before");
    EXPECT_EQ(1, run("CopyFile ./src/a - ./dst"));
    EXPECT_EQ("<src/a>", read_file("dst/a"));
}

TEST_F(CopyProcess, AtTheTopExclusionIgnoresCaseAndInsideATreeItDoesNot) {
    make({"src/cvs", "src/tree/cvs", "src/tree/CVS", "dst"},
         {"src/a.BAK", "src/b", "src/cvs/c", "src/tree/d.BAK", "src/tree/e.bak", "src/tree/cvs/f"});
    EXPECT_EQ(5, run("CopyDir ./src/* CVS,*.bak ./dst")); // b, tree, tree/d.BAK, tree/cvs, tree/cvs/f
    EXPECT_THAT(names_in("dst"), ElementsAre("b", "tree"));
    EXPECT_THAT(names_in("dst/tree"), ElementsAre("cvs", "d.BAK"));
}

TEST_F(CopyProcess, ADestinationWithoutMatchesIsToldAndTheNextOneIsTried) {
    make({"src", "site1", "site2"}, {"src/a"});
    EXPECT_EQ(0, run("CopyFile ./src/*.cgi - ./site*"));
    const std::string text = "No files found to copy in './src/' matching '*.cgi'";
    EXPECT_THAT(logged("Info"), ElementsAre(text, text));
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(CopyProcess, MatchesThatAreAllExcludedFailWithoutAWord) {
    make({"src", "dst"}, {"src/a"});
    EXPECT_EQ(0, run("CopyFile ./src/* A ./dst"));
    EXPECT_THAT(logged("Info"), IsEmpty());
}

TEST_F(CopyProcess, ALinkIsReadThroughAndNotRecreated) {
    make({"src/tree", "dst"}, {"src/tree/a"});
    ASSERT_EQ(0, symlink("tree/a", "src/link"));
    EXPECT_EQ(1, run("CopyFile ./src/link - ./dst"));
    EXPECT_EQ("<src/tree/a>", read_file("dst/link"));
    EXPECT_FALSE(std::filesystem::is_symlink("dst/link"));
}

TEST_F(CopyProcess, EveryCopyIsToldToTheCallbacks) {
    make({"src/tree", "dst"}, {"src/a", "src/tree/b"});
    run("CopyDir ./src/* - ./dst");
    EXPECT_THAT(told, UnorderedElementsAre("ok ./src/a>./dst/a 1", "ok ./dst/tree> 1",
                                           "ok ./src/tree/b>./dst/tree/b 1"));
}

TEST_F(CopyProcess, OneFailedCopyDoesNotStopTheOthers) {
    make({"src", "dst/a"}, {"src/a", "src/b"}); // a directory stands where the file should go
    EXPECT_EQ(1, run("CopyFile ./src/* - ./dst"));
    EXPECT_EQ("<src/b>", read_file("dst/b"));
    EXPECT_THAT(errors(), ElementsAre("Error opening './dst/a' for write, Is a directory"));
    EXPECT_THAT(told, UnorderedElementsAre("fail ./src/a>./dst/a 1", "ok ./src/b>./dst/b 1"));
}

TEST_F(CopyProcess, AFileIsNotCopiedOntoItself) {
    make({"src"}, {"src/a"});
    EXPECT_EQ(0, run("CopyFile ./src/a - ./src"));
    EXPECT_EQ("<src/a>", read_file("src/a"));
    EXPECT_THAT(errors(), ElementsAre("'./src/a' and './src/a' are the same file, Invalid argument"));
}

TEST_F(CopyProcess, ATreeIsNotCopiedIntoItself) {
    make({"src/dst"}, {"src/a"});
    EXPECT_EQ(0, run("CopyDir ./src - ./src/dst"));
    EXPECT_THAT(names_in("src/dst"), IsEmpty());
    EXPECT_THAT(errors(), ElementsAre("Cannot copy directory './src' into itself, Invalid argument"));
}

TEST_F(CopyProcess, APipeIsNoSource) {
    make({"src", "dst"});
    ASSERT_EQ(0, mkfifo("src/pipe", 0644));
    EXPECT_EQ(0, run("CopyFile ./src/pipe - ./dst"));
    EXPECT_THAT(names_in("dst"), IsEmpty());
    EXPECT_THAT(errors(), ElementsAre("'./src/pipe' is not a file, Invalid argument"));
}

TEST_F(CopyProcess, ATargetWhosePathDoesNotFitIsAnErrorOfThatFile) {
    const std::string deep(200, 'd');
    const std::string name(100, 'n');
    make({"src", deep}, {"src/" + name, "src/a"});
    EXPECT_EQ(1, run("CopyFile ./src/* - ./d*"));
    EXPECT_THAT(names_in(deep), ElementsAre("a"));
    EXPECT_THAT(errors(), ElementsAre("Path too long './" + deep + "', File name too long"));
    EXPECT_THAT(told, UnorderedElementsAre("fail ./src/" + name + "> 1", "ok ./src/a>./" + deep + "/a 1"));
}

TEST_F(CopyProcess, ASourceDirectoryThatDoesNotFitSelectsNothing) {
    make({"dst"});
    const std::string directory = "./" + std::string(253, 'd') + "/"; // one character too many
    EXPECT_EQ(0, run("CopyFile " + directory + "* - ./dst"));
    EXPECT_THAT(errors(), ElementsAre("Path too long '" + directory + "', File name too long"));
    EXPECT_THAT(told, ElementsAre("fail " + directory + "> 1"));
}

TEST_F(CopyProcess, ADestinationDirectoryThatDoesNotFitNamesNothing) {
    make({"src"}, {"src/a"});
    const std::string directory = "./" + std::string(300, 'd') + "/";
    EXPECT_EQ(0, run("CopyFile ./src/a - " + directory + "dst"));
    EXPECT_THAT(errors(), ElementsAre("Path too long '" + directory + "', File name too long",
                                      "No destination directories found, File name too long"));
}

TEST_F(CopyProcess, AWorkingDirectoryThatDoesNotFitSelectsNothing) {
    make({}, {"a"});
    enter_deep_folder();
    make({"dst"}, {"a"});
    EXPECT_EQ(0, run("CopyFile a - ./dst"));
    EXPECT_EQ(0, run("RmFile a -"));
    EXPECT_TRUE(exists("a"));
    const std::string text = "Path too long '.', File name too long";
    EXPECT_THAT(errors(), ElementsAre(text, text));
    EXPECT_THAT(told, ElementsAre("fail .> 1", "fail .> 0"));
}

TEST_F(CopyProcess, AWorkingDirectoryThatIsGoneSelectsNothing) {
    make({"gone"});
    ASSERT_EQ(0, chdir("gone"));
    ASSERT_EQ(0, rmdir("../gone"));
    EXPECT_EQ(0, run("RmFile a -"));
    EXPECT_THAT(errors(), ElementsAre("Error opening dir '.', No such file or directory"));
}

// ---- Removing ----

TEST_F(CopyProcess, RmFileRemovesFilesAndPassesDirectoriesOver) {
    make({"old/tree.log"}, {"old/a.log", "old/b.log", "old/c.txt"});
    EXPECT_EQ(2, run("RmFile ./old/*.log -"));
    EXPECT_THAT(names_in("old"), ElementsAre("c.txt", "tree.log"));
}

TEST_F(CopyProcess, RemovingNothingFailsWithoutAWord) {
    make({"old"}, {"old/a.txt"});
    EXPECT_EQ(0, run("RmFile ./old/*.log -"));
    EXPECT_EQ(0, run("RmDir ./old/*.log -"));
    EXPECT_EQ(0, run("RmFile ./old/* *.TXT"));
    EXPECT_THAT(errors(), IsEmpty());
    EXPECT_THAT(logged("Info"), IsEmpty());
    EXPECT_TRUE(exists("old/a.txt"));
}

TEST_F(CopyProcess, RmDirRemovesTreesAndAlsoPlainFiles) {
    make({"old/tree/deep", "keep"}, {"old/a", "old/tree/b", "old/tree/deep/c", "keep/d"});
    EXPECT_EQ(5, run("RmDir ./old/* -")); // a, tree, tree/b, tree/deep, tree/deep/c
    EXPECT_THAT(names_in("old"), IsEmpty());
    EXPECT_TRUE(exists("keep/d"));
}

TEST_F(CopyProcess, RmDirKeepsWhatIsExcludedAtEveryLevelWithCaseBelowTheTop) {
    make({"old/tree"}, {"old/Keep", "old/tree/keep", "old/tree/KEEP", "old/tree/a"});
    EXPECT_EQ(2, run("RmDir ./old/* keep")); // tree/KEEP and tree/a; tree itself is not empty
    EXPECT_THAT(names_in("old"), ElementsAre("Keep", "tree"));
    EXPECT_THAT(names_in("old/tree"), ElementsAre("keep"));
}

TEST_F(CopyProcess, ALinkIsRemovedAndNotWhatItPointsTo) {
    make({"old", "keep"}, {"keep/a"});
    ASSERT_EQ(0, symlink("../keep", "old/tree"));
    ASSERT_EQ(0, symlink("nowhere", "old/dangling"));
    EXPECT_EQ(2, run("RmDir ./old/* -"));
    EXPECT_THAT(names_in("old"), IsEmpty());
    EXPECT_EQ("<keep/a>", read_file("keep/a"));
}

TEST_F(CopyProcess, PipesAndSocketsAreRemoved) {
    make({"old"});
    ASSERT_EQ(0, mkfifo("old/pipe", 0644));
    make_socket("old/socket");
    EXPECT_EQ(2, run("RmFile ./old/* -"));
    EXPECT_THAT(names_in("old"), IsEmpty());
}

TEST_F(CopyProcess, AFailedRemovalIsPassedOver) {
    make({"old"}, {"old/a"});
    ASSERT_EQ(0, chmod("old", 0555));
    as_ordinary_user(
        [&] {
            EXPECT_EQ(0, run("RmFile ./old/a -"));
            EXPECT_THAT(errors(), IsEmpty());
            EXPECT_THAT(told, IsEmpty());
        },
        {beside(""), dir()});
    EXPECT_TRUE(exists("old/a"));
}

TEST_F(CopyProcess, RemovingATreeTellsTheCallbacks) {
    make({"old/tree/deep"});
    EXPECT_EQ(2, run("RmDir ./old/* -"));
    EXPECT_THAT(told, Contains("ok ./old/tree/deep> 0"));
    EXPECT_THAT(told, Contains("ok ./old/tree> 0"));
}

TEST_F(CopyProcess, ADirectoryToRemoveFromThatCannotBeOpenedIsReported) {
    EXPECT_EQ(0, run("RmFile ./nosuch/* -"));
    EXPECT_THAT(errors(), ElementsAre("Error opening dir './nosuch/', No such file or directory"));
}

// ---- Making directories, and what falls through to a copy ----

TEST_F(CopyProcess, MkDirMakesMissingParentsAndCountsOne) {
    EXPECT_EQ(1, run("MkDir a/b/c/"));
    EXPECT_TRUE(std::filesystem::is_directory("a/b/c"));
    EXPECT_EQ(1, run("MkDir a/b/c")) << "one that exists is a success";
    EXPECT_EQ(0755, mode_of("a/b/c")) << "0775 under the umask";
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(CopyProcess, AFailedMkDirIsReportedTwice) {
    make({}, {"file"});
    EXPECT_EQ(0, run("MkDir file/sub"));
    EXPECT_THAT(errors(), ElementsAre("Error creating directory 'file/sub', Not a directory",
                                      "No destination directories found, Not a directory"));
    EXPECT_THAT(told, ElementsAre("fail file/sub> 1"));
}

TEST_F(CopyProcess, AFailedIniCopiesItsTemplateIntoADirectoryOfThatName) {
    make({"site"});
    write_file("tpl", "  $(nosuch)x\n");
    std::uint32_t bytes = 0;
    EXPECT_EQ(1, run("Ini ./tpl ./site", &bytes));
    EXPECT_EQ("  $(nosuch)x\n", read_file("site/tpl")) << "a copy, not an expansion";
    EXPECT_EQ(13U, bytes);
    EXPECT_THAT(errors(), ElementsAre("Error creating ini file './site', Is a directory"));
}

TEST_F(CopyProcess, AFailedRenameCopiesItsSourceIntoADirectoryOfThatName) {
    make({"site"}, {"a"});
    EXPECT_EQ(1, run("Rename ./a ./site"));
    EXPECT_EQ("<a>", read_file("site/a"));
    EXPECT_TRUE(exists("a"));
    EXPECT_THAT(errors(), ElementsAre("Error renaming './a'->'./site', , Is a directory"));
}

TEST_F(CopyProcess, AFailedIniOrRenameWithoutSuchADirectoryFails) {
    EXPECT_EQ(0, run("Rename ./nosuch ./b"));
    EXPECT_EQ(0, run("Ini ./nosuch ./c"));
    EXPECT_THAT(errors(), ElementsAre("Error renaming './nosuch'->'./b', , No such file or directory",
                                      "No destination directories found, No such file or directory",
                                      "Error reading ini file './nosuch', No such file or directory",
                                      "No destination directories found, No such file or directory"));
}

TEST_F(CopyProcess, ASuccessfulIniOrRenameCopiesNothing) {
    make({"site"}, {"a"});
    EXPECT_EQ(1, run("Rename ./a ./site/b"));
    EXPECT_EQ(1, run("Ini ./site/b ./site/c"));
    EXPECT_THAT(names_in("."), ElementsAre("site"));
    EXPECT_THAT(names_in("site"), ElementsAre("b", "c"));
}

} // namespace
} // namespace installer::test
