#include "installer/log.h"

#include "tests/support.h"

#include <sys/wait.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <iterator>

namespace installer::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

// One log `x`, not opened and not current, in a folder of its own.
class Log : public TempDir {
  protected:
    ~Log() override {
        CurrentLog = nullptr;
        log_free(&x);
    }

    // Opens x.log as the current log and flushes every line.
    void open() {
        log_doflush(x, 1);
        ASSERT_EQ(1, log_open(x, "x.log"));
        ASSERT_EQ(x, CurrentLog);
    }

    // A log whose lines rotate it one by one.
    void open_rotating(int rotations) {
        open();
        log_dorotate(x, rotations, 0);
    }

    static std::vector<std::string> lines(const std::string &file = "x.log") {
        std::vector<std::string> found = lines_of(read_file(file));
        std::transform(found.begin(), found.end(), found.begin(), without_stamp);
        return found;
    }

    // The texts that wait for a current log.
    static std::vector<std::string> waiting() {
        std::vector<std::string> texts;
        if (EmsgLog != nullptr)
            std::transform(EmsgLog->data, EmsgLog->data + EmsgLog->items, std::back_inserter(texts),
                           [](const void *item) { return static_cast<const char *>(item); });
        return texts;
    }

    log *x = log_init(LogDebug);
};

// --- Making and settings ---

TEST_F(Log, FreshLogHasFourRotationsAtOneMebibyteAndNoFile) {
    EXPECT_STREQ("", x->File);
    EXPECT_EQ(LogDebug, x->Level);
    EXPECT_EQ(0, x->DoFlush);
    EXPECT_EQ(0, x->Lines);
    EXPECT_EQ(4, x->Rotations);
    EXPECT_EQ(0U, x->Size);
    EXPECT_EQ(1048576U, x->Rotate);
    EXPECT_EQ(nullptr, x->F);
    EXPECT_EQ(nullptr, CurrentLog);
    EXPECT_THAT(names_in("."), IsEmpty());
}

TEST_F(Log, LevelNamesStandInTheOrderOfTheLevels) {
    EXPECT_STREQ("None", LevelNames[LogNone]);
    EXPECT_STREQ("Error", LevelNames[LogError]);
    EXPECT_STREQ("Info", LevelNames[LogInfo]);
    EXPECT_STREQ("Debug", LevelNames[LogDebug]);
}

TEST_F(Log, LevelsAreSetByNameInAnyCase) {
    const struct {
        const char *word;
        LogLevel expected;
    } rows[] = {{"debug", LogDebug}, {"None", LogNone}, {"ERROR", LogError}, {"iNfO", LogInfo}};
    for (const auto &row : rows) {
        log_set_level_name(x, row.word);
        EXPECT_EQ(row.expected, log_level(x)) << row.word;
        EXPECT_STREQ(LevelNames[row.expected], log_level_name(x)) << row.word;
    }
}

TEST_F(Log, AnyOtherWordLeavesTheLevel) {
    log_set_level(x, LogInfo);
    for (const char *word : {"", "Deb", "debugging", " error", "3", static_cast<const char *>(nullptr)}) {
        log_set_level_name(x, word);
        EXPECT_EQ(LogInfo, log_level(x)) << (word != nullptr ? word : "null");
    }
}

TEST_F(Log, ALevelOutOfRangeHasTheWordOfTheNearest) {
    log_set_level(x, static_cast<LogLevel>(99));
    EXPECT_STREQ("Debug", log_level_name(x));
    log_set_level(x, static_cast<LogLevel>(-99));
    EXPECT_STREQ("None", log_level_name(x));
}

TEST_F(Log, OperationsTakeNull) {
    EXPECT_EQ(0, log_open(nullptr, "x.log"));
    EXPECT_EQ(0, log_setup(nullptr, ".", "x.log"));
    EXPECT_EQ(0, log_rotate(nullptr));
    EXPECT_EQ(LogNone, log_level(nullptr));
    EXPECT_EQ(nullptr, log_level_name(nullptr));
    log_dorotate(nullptr, 1, 1);
    log_doflush(nullptr, 1);
    log_set_level_name(nullptr, "debug");
    log_flush(nullptr);
    log_close(nullptr);
    log_line(nullptr, "text", LogError);
    log_raw("text");
    log_free(nullptr);
    log *none = nullptr;
    log_free(&none);
    EXPECT_THAT(names_in("."), IsEmpty());
}

TEST_F(Log, NullTextsAndFormatsWriteNothing) {
    open();
    void (*const reports[])(const char *format, ...) = {emsg, imsg, dmsg, log_raw};
    log_line(x, nullptr, LogError);
    for (const auto report : reports)
        report(nullptr);
    EXPECT_EQ("", read_file("x.log"));
    EXPECT_EQ(nullptr, EmsgLog);
}

// --- Opening ---

TEST_F(Log, OpenAppendsAndTakesTheSizeOfTheFile) {
    write_file("x.log", "12345");
    open();
    EXPECT_EQ(5U, x->Size);
    EXPECT_STREQ("x.log", x->File);
    log_raw("678");
    EXPECT_EQ(8U, x->Size);
    log_close(x);
    EXPECT_EQ("12345678", read_file("x.log"));
}

TEST_F(Log, OpenThatFailsKeepsTheNameAndClosesTheLog) {
    open();
    for (const char *file : {"missing/x.log", ".", "", static_cast<const char *>(nullptr)}) {
        EXPECT_EQ(0, log_open(x, file));
        EXPECT_STREQ("x.log", x->File);
        EXPECT_EQ(nullptr, x->F);
    }
    emsg("back again");
    EXPECT_THAT(lines(), ElementsAre("Error: back again"));
}

TEST_F(Log, OpenThatFailsDoesNotBecomeCurrent) {
    emsg("early");
    EXPECT_EQ(0, log_open(x, "missing/x.log"));
    EXPECT_EQ(nullptr, CurrentLog);
    EXPECT_THAT(waiting(), ElementsAre("early"));
}

TEST_F(Log, OpenRefusesANameThatWouldBeCut) {
    std::string name;
    while (name.size() < 1000 - 5)
        name += "./";
    name += "x.log"; // 1001 characters, a file that could be opened
    EXPECT_EQ(0, log_open(x, name.c_str()));
    EXPECT_STREQ("", x->File);
    EXPECT_THAT(names_in("."), IsEmpty());
    EXPECT_EQ(1, log_open(x, name.c_str() + 2));
    EXPECT_EQ(name.substr(2), x->File);
}

TEST_F(Log, OpenRefusesAFifoBecauseItCouldWaitForEver) {
    ASSERT_EQ(0, mkfifo("x.log", 0600));
    EXPECT_EQ(0, log_open(x, "x.log"));
    EXPECT_EQ(nullptr, x->F);
}

TEST_F(Log, OpenTakesItsOwnName) {
    open();
    EXPECT_EQ(1, log_open(x, x->File));
    EXPECT_STREQ("x.log", x->File);
}

TEST_F(Log, OpenLeavesAnotherCurrentLogAlone) {
    open();
    log *other = log_init(LogDebug);
    EXPECT_EQ(1, log_open(other, "other.log"));
    EXPECT_EQ(x, CurrentLog);
    log_free(&other);
}

TEST_F(Log, FreeResetsNeitherTheCallersPointerNorTheCurrentLog) {
    log *other = log_init(LogDebug);
    log *const before = other;
    log_set(other);
    log_free(&other);
    EXPECT_EQ(before, other);
    EXPECT_EQ(before, CurrentLog);
}

TEST_F(Log, FreeWritesWhatWasNotFlushed) {
    log *other = log_init(LogDebug);
    log_open(other, "other.log");
    log_line(other, "text", LogInfo);
    EXPECT_EQ("", read_file("other.log"));
    CurrentLog = nullptr;
    log_free(&other);
    EXPECT_THAT(lines("other.log"), ElementsAre("Info: text"));
}

// --- Setting up without opening ---

TEST_F(Log, SetupOpensWithTheFirstLine) {
    EXPECT_EQ(1, log_setup(x, dir().c_str(), "x.log"));
    EXPECT_EQ(dir() + "/x.log", x->File);
    EXPECT_EQ(x, CurrentLog);
    EXPECT_EQ(nullptr, x->F);
    EXPECT_FALSE(exists("x.log"));
    imsg("first");
    log_flush(x);
    EXPECT_THAT(lines(), ElementsAre("Info: first"));
}

TEST_F(Log, SetupWithoutAPathTakesTheNameAlone) {
    EXPECT_EQ(1, log_setup(x, nullptr, "x.log"));
    EXPECT_STREQ("x.log", x->File);
}

TEST_F(Log, SetupInAPathThatIsNotWritableFailsAndChangesNothing) {
    open();
    EXPECT_EQ(0, log_setup(x, "missing", "y.log"));
    EXPECT_STREQ("x.log", x->File);
    EXPECT_NE(nullptr, x->F);
}

TEST_F(Log, SetupInAReadOnlyDirectoryFails) {
    std::filesystem::create_directory("closed");
    ASSERT_EQ(0, chmod("closed", 0555));
    as_ordinary_user([this] {
        EXPECT_EQ(0, log_setup(x, "closed", "x.log"));
        EXPECT_EQ(nullptr, CurrentLog);
    });
}

TEST_F(Log, SetupRefusesANameThatWouldBeCut) {
    EXPECT_EQ(0, log_setup(x, ".", std::string(1000, 'n').c_str()));
    EXPECT_STREQ("", x->File);
    EXPECT_EQ(nullptr, CurrentLog);
}

TEST_F(Log, SetupClosesTheFileThatWasOpen) {
    open();
    EXPECT_EQ(1, log_setup(x, ".", "y.log"));
    EXPECT_EQ(nullptr, x->F);
    emsg("text");
    EXPECT_EQ("", read_file("x.log"));
    EXPECT_THAT(lines("y.log"), ElementsAre("Error: text"));
}

TEST_F(Log, SetupWritesTheErrorsThatWait) {
    emsg("early");
    log_setup(x, ".", "x.log");
    log_flush(x);
    EXPECT_THAT(lines(), ElementsAre("Error: early"));
    EXPECT_EQ(nullptr, EmsgLog);
}

// --- The line ---

TEST_F(Log, ALineHasTheTimeWithoutYearProcessIdLevelAndText) {
    open();
    emsg("What %s %d", "happened", 7);
    EXPECT_THAT(
        read_file("x.log"),
        MatchesRegex("[A-Z][a-z][a-z] [A-Z][a-z][a-z] [ 0-9][0-9] [0-9][0-9]:[0-9][0-9]:[0-9][0-9]  \\[" +
                     std::to_string(getpid()) + "\\] Error: What happened 7\n"));
}

TEST_F(Log, TheTimeIsLocalTimeAsAsctimeWritesIt) {
    open();
    const auto text_of = [](time_t t) { return std::string(asctime(localtime(&t)), 20); };
    const time_t before = time(nullptr);
    emsg("text");
    const time_t after = time(nullptr);
    std::vector<std::string> possible;
    for (time_t t = before; t <= after; t++)
        possible.push_back(text_of(t));
    EXPECT_THAT(possible, testing::Contains(read_file("x.log").substr(0, 20)));
}

TEST_F(Log, AChangeOfZoneShowsInTheNextLine) {
    open();
    // Whatever the time is, each of these shows another one than the zone before it; "" and the long one are
    // UTC.
    const std::vector<const char *> zones = {
        "AAA-01:10",
        "BBB-02:20",
        "",
        "CCC-03:30",
        "A-LONG-NAME-THAT-IS-NO-ZONE-BUT-IS-LONGER-THAN-ANY-ZONE-EVER-WAS",
        "DDD-04:40"};
    const auto shown = [](const char *zone, time_t t) {
        setenv("TZ", zone, 1);
        tzset();
        return std::string(asctime(localtime(&t)), 20);
    };
    for (const char *zone : zones) {
        log_close(x);
        std::filesystem::remove("x.log");
        const time_t before = time(nullptr);
        setenv("TZ", zone, 1);
        emsg("text");
        const time_t after = time(nullptr);
        std::vector<std::string> possible;
        for (time_t t = before; t <= after; t++)
            possible.push_back(shown(zone, t));
        EXPECT_THAT(possible, testing::Contains(read_file("x.log").substr(0, 20))) << zone;
    }
}

TEST_F(Log, AForkedProcessWritesItsOwnId) {
    open();
    emsg("parent");
    const pid_t child = fork();
    if (child == 0) {
        emsg("child");
        _exit(0);
    }
    ASSERT_GT(child, 0);
    ASSERT_EQ(child, waitpid(child, nullptr, 0));
    const std::vector<std::string> written = lines_of(read_file("x.log"));
    ASSERT_EQ(2U, written.size());
    EXPECT_THAT(written[0], testing::HasSubstr(" [" + std::to_string(getpid()) + "] Error: parent"));
    EXPECT_THAT(written[1], testing::HasSubstr(" [" + std::to_string(child) + "] Error: child"));
}

TEST_F(Log, LocaltimesBufferStaysTheCallers) {
    open();
    const time_t day = time_t{86400} * 400; // in February 1971
    const std::tm *const callers = localtime(&day);
    emsg("text");
    EXPECT_EQ(71, callers->tm_year);
}

TEST_F(Log, SizeCountsEveryCharacterWritten) {
    open();
    emsg("one");
    imsg("two");
    log_raw("three");
    EXPECT_EQ(read_file("x.log").size(), x->Size);
    EXPECT_EQ(3, x->Lines);
}

TEST_F(Log, MessagesAreCutAt999Characters) {
    open();
    const std::string text(1500, 'm');
    emsg("%s", text.c_str());
    imsg("%s", text.c_str() + 501); // 999 characters
    log_line(x, text.c_str(), LogDebug);
    const std::string most(999, 'm');
    EXPECT_THAT(lines(), ElementsAre("Error: " + most, "Info: " + most, "Debug: " + most));
    EXPECT_EQ('\n', read_file("x.log").back());
}

TEST_F(Log, RawTextsAreCutAt999Characters) {
    open();
    log_raw("%s", std::string(1500, 'r').c_str());
    EXPECT_EQ(std::string(999, 'r'), read_file("x.log"));
}

TEST_F(Log, ATextIsNotAFormat) {
    open();
    log_line(x, "100%s %n %d", LogError);
    EXPECT_THAT(lines(), ElementsAre("Error: 100%s %n %d"));
}

TEST_F(Log, AnyLevelNumberIsWrittenWithAWord) {
    open();
    log_set_level(x, static_cast<LogLevel>(99));
    log_line(x, "high", static_cast<LogLevel>(50));
    log_line(x, "low", static_cast<LogLevel>(-50));
    EXPECT_THAT(lines(), ElementsAre("Debug: high", "None: low"));
}

// --- Levels ---

TEST_F(Log, EachLevelTakesItsOwnAndTheLowerMessages) {
    const struct {
        LogLevel level;
        std::vector<std::string> expected;
    } rows[] = {
        {LogNone, {}},
        {LogError, {"Error: e"}},
        {LogInfo, {"Error: e", "Info: i"}},
        {LogDebug, {"Error: e", "Info: i", "Debug: d"}},
    };
    for (const auto &row : rows) {
        open();
        log_set_level(x, row.level);
        emsg("e");
        imsg("i");
        dmsg("d");
        EXPECT_EQ(row.expected, lines()) << row.level;
        array_free_dealloc(&EmsgLog);
        std::filesystem::remove("x.log");
        CurrentLog = nullptr;
    }
}

TEST_F(Log, LineWritesNothingAboveTheLevel) {
    open();
    log_set_level(x, LogError);
    log_line(x, "info", LogInfo);
    log_line(x, "error", LogError);
    EXPECT_THAT(lines(), ElementsAre("Error: error"));
    EXPECT_EQ(1, x->Lines);
}

TEST_F(Log, RawIgnoresTheLevel) {
    open();
    log_set_level(x, LogNone);
    log_raw("raw %d", 1);
    EXPECT_EQ("raw 1", read_file("x.log"));
}

// --- Errors that wait ---

TEST_F(Log, AnEarlyErrorIsTheFirstLineOfTheFirstLog) {
    emsg("early %d", 1);
    emsg("early %d", 2);
    EXPECT_THAT(waiting(), ElementsAre("early 1", "early 2"));
    open();
    emsg("late");
    EXPECT_THAT(lines(), ElementsAre("Error: early 1", "Error: early 2", "Error: late"));
    EXPECT_EQ(nullptr, EmsgLog);
}

TEST_F(Log, OnlyErrorsWait) {
    imsg("info");
    dmsg("debug");
    log_raw("raw");
    EXPECT_EQ(nullptr, EmsgLog);
}

TEST_F(Log, ErrorsWaitWhileTheCurrentLogTakesNone) {
    open();
    log_set_level(x, LogNone);
    emsg("kept");
    EXPECT_EQ("", read_file("x.log"));
    EXPECT_THAT(waiting(), ElementsAre("kept"));
    log_set_level(x, LogError);
    check_emsglog();
    EXPECT_THAT(lines(), ElementsAre("Error: kept"));
}

TEST_F(Log, SettingTheCurrentLogDoesNotWriteTheErrors) {
    emsg("early");
    log_set(x);
    open();
    EXPECT_EQ("", read_file("x.log"));
    EXPECT_THAT(waiting(), ElementsAre("early"));
}

TEST_F(Log, ErrorsGoOnWaitingWithoutACurrentLog) {
    emsg("early");
    check_emsglog();
    EXPECT_THAT(waiting(), ElementsAre("early"));
}

TEST_F(Log, ErrorsThatWaitObeyTheLevelAndAreDiscarded) {
    emsg("early");
    log_set_level(x, LogNone);
    open();
    EXPECT_EQ("", read_file("x.log"));
    EXPECT_EQ(nullptr, EmsgLog);
}

TEST_F(Log, ALineOfALogThatReopensComesAfterTheErrorsThatWait) {
    open();
    log_close(x);
    log_set(nullptr);
    emsg("early");
    log_line(x, "line", LogInfo);
    EXPECT_THAT(lines(), ElementsAre("Error: early", "Info: line"));
}

// --- Flushing ---

TEST_F(Log, FlushesEveryThirdLineTheFirstIncluded) {
    open();
    log_doflush(x, 3);
    for (const std::size_t flushed : {1U, 1U, 1U, 4U, 4U, 4U, 7U, 7U}) {
        emsg("text");
        EXPECT_EQ(flushed, lines().size()) << x->Lines;
    }
}

TEST_F(Log, IntervalZeroNeverFlushes) {
    open();
    log_doflush(x, 0);
    emsg("text");
    EXPECT_EQ("", read_file("x.log"));
    log_flush(x);
    EXPECT_THAT(lines(), ElementsAre("Error: text"));
}

TEST_F(Log, FlushWithoutALogFlushesTheCurrentOne) {
    open();
    log_doflush(x, 0);
    emsg("text");
    log_flush(nullptr);
    EXPECT_THAT(lines(), ElementsAre("Error: text"));
    log_close(x);
    log_flush(nullptr);
}

TEST_F(Log, RawFlushesWhenLinesAndIntervalShareNoBit) {
    open();
    log_doflush(x, 2);
    // Lines 0 and 1 share no bit with 2, lines 2 and 3 do, line 4 does not.
    for (const char *flushed : {"0", "01", "01", "01", "01234"}) {
        log_raw("%d", x->Lines);
        EXPECT_EQ(flushed, read_file("x.log"));
    }
}

TEST_F(Log, RawWithIntervalZeroFlushesAlways) {
    open();
    log_doflush(x, 0);
    log_raw("a");
    log_raw("b");
    EXPECT_EQ("ab", read_file("x.log"));
}

// --- Rotation ---

TEST_F(Log, RotationMovesTheFileToNumberZeroAndGoesOnInAFreshOne) {
    write_file("x.log", "old");
    open();
    EXPECT_EQ(1, log_rotate(x));
    EXPECT_EQ(0U, x->Size);
    EXPECT_NE(nullptr, x->F);
    EXPECT_EQ("", read_file("x.log"));
    EXPECT_EQ("old", read_file("x.log0"));
    EXPECT_THAT(names_in("."), ElementsAre("x.log", "x.log0"));
}

TEST_F(Log, FourRotationsKeepTheNumbersZeroToFour) {
    open();
    for (int i = 0; i < 7; i++) {
        log_raw("%d", i);
        log_rotate(x);
    }
    EXPECT_THAT(names_in("."), ElementsAre("x.log", "x.log0", "x.log1", "x.log2", "x.log3", "x.log4"));
    EXPECT_EQ("6", read_file("x.log0"));
    EXPECT_EQ("5", read_file("x.log1"));
    EXPECT_EQ("2", read_file("x.log4"));
    EXPECT_EQ("", read_file("x.log"));
}

TEST_F(Log, WithoutRotationsTheOldLogReplacesNumberZero) {
    for (int rotations : {0, -3}) {
        open();
        log_dorotate(x, rotations, 1048576);
        log_raw("first");
        log_rotate(x);
        log_raw("second");
        log_rotate(x);
        EXPECT_THAT(names_in("."), ElementsAre("x.log", "x.log0")) << rotations;
        EXPECT_EQ("second", read_file("x.log0")) << rotations;
    }
}

TEST_F(Log, GapsAmongTheOldFilesStayGaps) {
    write_file("x.log1", "one");
    write_file("x.log4", "four");
    write_file("x.log", "new");
    open();
    log_rotate(x);
    EXPECT_THAT(names_in("."), ElementsAre("x.log", "x.log0", "x.log2"));
    EXPECT_EQ("one", read_file("x.log2"));
}

TEST_F(Log, ALineRotatesWhenTheFileReachesTheSize) {
    open();
    log_line(x, "measure", LogInfo);
    const std::uint32_t line = x->Size;
    log_dorotate(x, 4, 3 * line);
    log_line(x, "measure", LogInfo);
    EXPECT_FALSE(exists("x.log0"));
    log_line(x, "measure", LogInfo);
    EXPECT_EQ(3 * line, read_file("x.log0").size());
    EXPECT_EQ("", read_file("x.log"));
    EXPECT_EQ(3, x->Lines) << "never reset";
}

TEST_F(Log, OneMebibyteIsTheSizeOfAFreshLog) {
    write_file("x.log", std::string(1048575, 'x'));
    open();
    emsg("last");
    EXPECT_EQ("", read_file("x.log"));
    EXPECT_GT(read_file("x.log0").size(), 1048576U);
    for (int i = 0; i < 5; i++) {
        log_raw("%d", i);
        log_rotate(x);
    }
    EXPECT_THAT(names_in("."), ElementsAre("x.log", "x.log0", "x.log1", "x.log2", "x.log3", "x.log4"));
}

TEST_F(Log, ALineBelowOneMebibyteDoesNotRotate) {
    write_file("x.log", std::string(1040000, 'x'));
    open();
    emsg("text");
    EXPECT_FALSE(exists("x.log0"));
}

TEST_F(Log, RawRotatesAtOneMebibyteWhateverTheLogSays) {
    write_file("x.log", std::string(1048573, 'x'));
    open();
    log_dorotate(x, 4, 10);
    log_raw("12");
    EXPECT_FALSE(exists("x.log0")) << "1048575 bytes";
    log_raw("3");
    EXPECT_EQ(1048576U, read_file("x.log0").size());
    EXPECT_EQ(0U, x->Size);
    log_raw("%20s", "");
    EXPECT_FALSE(exists("x.log1"));
}

TEST_F(Log, SizeZeroRotatesWithEveryLine) {
    open_rotating(4);
    emsg("one");
    emsg("two");
    EXPECT_EQ("", read_file("x.log"));
    EXPECT_THAT(lines("x.log0"), ElementsAre("Error: two"));
    EXPECT_THAT(lines("x.log1"), ElementsAre("Error: one"));
}

TEST_F(Log, RotatingWhileErrorsWaitKeepsTheirOrder) {
    log_dorotate(x, 4, 0);
    emsg("one");
    emsg("two");
    open();
    EXPECT_THAT(lines("x.log0"), ElementsAre("Error: two"));
    EXPECT_THAT(lines("x.log1"), ElementsAre("Error: one"));
}

TEST_F(Log, ErrorsThatWaitFollowTheLineWhoseRotationMakesTheLogCurrent) {
    open_rotating(4);
    log_set(nullptr);
    emsg("waits");
    log_line(x, "line", LogInfo);
    EXPECT_EQ(x, CurrentLog);
    EXPECT_THAT(lines("x.log0"), ElementsAre("Error: waits"));
    EXPECT_THAT(lines("x.log1"), ElementsAre("Info: line"));
}

TEST_F(Log, ADeviceStaysWhereItIs) {
    std::filesystem::create_symlink("/dev/null", "x.log"); // a link, so that no failure could harm the device
    open();
    log_dorotate(x, 4, 10);
    log_line(x, "one", LogError);
    EXPECT_EQ(1, log_rotate(x));
    EXPECT_THAT(names_in("."), ElementsAre("x.log"));
}

TEST_F(Log, RotatingWithoutAFileNameDoesNothing) {
    write_file("0", "an operator's file");
    write_file("3", "another");
    EXPECT_EQ(0, log_rotate(x));
    EXPECT_THAT(names_in("."), ElementsAre("0", "3"));
}

TEST_F(Log, NamesWithoutRoomForTheNumbersAreNotRotated) {
    std::string name;
    while (name.size() < 990)
        name += "./";
    name += "x.log";
    log_doflush(x, 1);
    ASSERT_EQ(1, log_open(x, name.c_str()));
    log_dorotate(x, 4, 0);
    emsg("one");
    emsg("two");
    EXPECT_THAT(names_in("."), ElementsAre("x.log"));
    EXPECT_THAT(lines(), ElementsAre("Error: one", "Error: two"));
}

// --- A log that cannot be written never stops the work ---

TEST_F(Log, ALogWithoutAFileWritesNothing) {
    log_set(x);
    emsg("text");
    log_raw("text");
    EXPECT_EQ(0, x->Lines);
    EXPECT_THAT(names_in("."), IsEmpty());
}

TEST_F(Log, AClosedLogReopensWithTheNextLine) {
    open();
    emsg("one");
    log_close(x);
    EXPECT_EQ(nullptr, x->F);
    emsg("two");
    log_close(x);
    log_raw("raw");
    EXPECT_THAT(lines(), ElementsAre("Error: one", "Error: two", "raw"));
}

TEST_F(Log, ADirectoryThatDisappearsDropsLinesUntilItIsBack) {
    std::filesystem::create_directory("logs");
    log_doflush(x, 1);
    ASSERT_EQ(1, log_open(x, "logs/x.log"));
    log_dorotate(x, 4, 0);
    std::filesystem::remove_all("logs");
    emsg("rotates into nothing");
    EXPECT_EQ(nullptr, x->F);
    emsg("lost");
    log_raw("lost");
    EXPECT_EQ(1, x->Lines);
    std::filesystem::create_directory("logs");
    emsg("back");
    EXPECT_THAT(lines("logs/x.log0"), ElementsAre("Error: back"));
}

TEST_F(Log, ErrorsThatWaitForADirectoryThatDisappearedAreGivenUp) {
    emsg("early");
    std::strcpy(x->File, "gone/x.log");
    log_set(x);
    check_emsglog();
    EXPECT_EQ(nullptr, EmsgLog);
    EXPECT_THAT(names_in("."), IsEmpty());
}

TEST_F(Log, AFullDiskStopsNothing) {
    if (access("/dev/full", W_OK) != 0)
        GTEST_SKIP() << "needs /dev/full";
    log_doflush(x, 1);
    ASSERT_EQ(1, log_open(x, "/dev/full"));
    for (int i = 0; i < 100; i++)
        emsg("%0900d", i);
    EXPECT_EQ(100, x->Lines);
}

TEST_F(Log, WritingLeavesErrnoAsFound) {
    const struct {
        const char *what;
        std::function<void()> act;
    } rows[] = {
        {"open", [this] { log_open(x, "x.log"); }},
        {"open fails", [this] { log_open(x, "missing/x.log"); }},
        {"open nothing", [this] { log_open(x, nullptr); }},
        {"line", [this] { log_line(x, "text", LogError); }},
        {"line without a file",
         [this] {
             log_close(x);
             std::strcpy(x->File, "missing/x.log");
             log_line(x, "text", LogError);
         }},
        {"error", [] { emsg("%s", "text"); }},
        {"info", [] { imsg("%s", "text"); }},
        {"debug", [] { dmsg("%s", "text"); }},
        {"raw", [] { log_raw("text"); }},
        {"flush", [this] { log_flush(x); }},
        {"rotate", [this] { log_rotate(x); }},
        {"rotate without a file",
         [this] {
             std::filesystem::remove("x.log");
             log_rotate(x);
         }},
        {"every line rotates",
         [this] {
             log_dorotate(x, 4, 0);
             log_line(x, "text", LogError);
         }},
        {"error waits",
         [] {
             log_set(nullptr);
             emsg("text");
         }},
        {"a full disk",
         [this] {
             log_open(x, "/dev/full");
             log_raw("text");
         }},
    };
    for (const auto &row : rows) {
        log_open(x, "x.log");
        log_set(x);
        for (int value : {0, EXDEV}) {
            errno = value;
            row.act();
            EXPECT_EQ(value, errno) << row.what;
        }
        log_dorotate(x, 4, 1048576);
    }
}

} // namespace
} // namespace installer::test
