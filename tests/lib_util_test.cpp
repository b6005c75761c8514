// The small utilities of lib: formatted text, error texts, dates, signals, splitting, encodings.

#include "installer/lib.h"

#include "tests/support.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <limits>
#include <map>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

namespace installer {
namespace {

using test::Buffer;

/// Puts the environment, the time zone among it, back after each test.
class Util : public test::TempDir {};

// --- Formatted text ---

TEST_F(Util, LprintfReturnsTheLengthTheWholeTextHas) {
    const struct {
        const char *text, *stored;
        int result;
    } rows[] = {
        {"", "", 0},           {"123", "123", 3},
        {"1234", "1234", 4},   {"12345", "1234", 4}, // exactly the bound
        {"123456", "1234", 6}, {"1234567", "1234", 7},
    };
    for (const auto &row : rows) {
        Buffer b(5);
        EXPECT_EQ(row.result, lprintf(b, 5, "%s", row.text)) << row.text;
        EXPECT_STREQ(row.stored, b) << row.text;
    }
    Buffer b(5);
    EXPECT_EQ(6, lprintf(b, 5, "%d", 123456));
    EXPECT_STREQ("1234", b);
}

TEST_F(Util, LprintfWithABoundOfOne) {
    Buffer b(1);
    EXPECT_EQ(0, lprintf(b, 1, "%s", "x")) << "the length is exactly the bound";
    EXPECT_STREQ("", b);
    EXPECT_EQ(2, lprintf(b, 1, "%s", "xy"));
}

/// A character that the C locale cannot write, so that formatting it fails.
const wchar_t unwritable[] = {0x20AC, 0};

TEST_F(Util, LprintfTerminatesAtTheBoundWhenFormattingFails) {
    ASSERT_STREQ("C", std::setlocale(LC_CTYPE, nullptr));
    Buffer b(10);
    EXPECT_EQ(9, lprintf(b, 10, "%ls", unwritable));
    EXPECT_EQ('\0', b[9]);
}

TEST_F(Util, LprintfDoesNothingForNullOrNoRoom) {
    Buffer b(4, "old");
    const char *const none = nullptr;
    EXPECT_EQ(0, lprintf(nullptr, 4, "x"));
    EXPECT_EQ(0, lprintf(b, 0, "x"));
    EXPECT_EQ(0, lprintf(b, -1, "x"));
    EXPECT_EQ(0, lprintf(b, 4, none));
    EXPECT_STREQ("old", b);
}

TEST_F(Util, LpcatAppendsAndReturnsWhatItAppended) {
    const struct {
        const char *start, *add, *stored;
        int result;
    } rows[] = {
        {"abc", "de", "abcde", 2},          {"abc", "defghi", "abcdefghi", 6}, // fills the buffer of ten
        {"abc", "defghij", "abcdefghi", 6}, {"abc", "defghijk", "abcdefghi", 8}, {"", "", "", 0},
        {"abcdefghi", "x", "abcdefghi", 0}, {"abcdefghi", "xy", "abcdefghi", 2},
    };
    for (const auto &row : rows) {
        Buffer b(10, row.start);
        EXPECT_EQ(row.result, lpcat(b, 10, "%s", row.add)) << row.start << " + " << row.add;
        EXPECT_STREQ(row.stored, b);
    }
}

TEST_F(Util, LpcatCutsATextWithoutTerminator) {
    Buffer b(5);
    EXPECT_EQ(0, lpcat(b, 5, "%s", "x"));
    EXPECT_STREQ("####", b);
    EXPECT_EQ(0, lpcat(b, 0, "x"));
    EXPECT_EQ(0, lpcat(nullptr, 5, "x"));
    EXPECT_STREQ("####", b);
}

// --- Error texts ---

TEST_F(Util, SystemErrorIsTheSystemsText) {
    char b[1000];
    errno = EDOM;
    EXPECT_EQ(b, system_error(ENOENT, b, sizeof b));
    EXPECT_STREQ(std::strerror(ENOENT), b);
    EXPECT_EQ(b, windows_errmsg(b, sizeof b));
    EXPECT_STREQ(std::strerror(EDOM), b);
    EXPECT_EQ(EDOM, errno);
}

TEST_F(Util, SystemErrorDoesNotLookAtItsSize) {
    char b[1000];
    EXPECT_EQ(b, system_error(ENOENT, b, 3));
    EXPECT_STREQ(std::strerror(ENOENT), b);
}

TEST_F(Util, SystemErrorWithoutABufferIsEmpty) {
    EXPECT_STREQ("", system_error(ENOENT, nullptr, 1000));
    EXPECT_STREQ("", windows_errmsg(nullptr, 1000));
}

// --- Dates and time ---

TEST_F(Util, NamesOfDaysAndMonths) {
    EXPECT_THAT(days,
                testing::ElementsAre(testing::StrEq("Sun"), testing::StrEq("Mon"), testing::StrEq("Tue"),
                                     testing::StrEq("Wed"), testing::StrEq("Thu"), testing::StrEq("Fri"),
                                     testing::StrEq("Sat")));
    std::string all;
    for (const char *month : months)
        all += month;
    EXPECT_EQ("JanFebMarAprMayJunJulAugSepOctNovDec", all);
}

TEST_F(Util, MakeDateTellsTheLocalTime) {
    const struct {
        const char *zone;
        time_t t;
        const char *date;
    } rows[] = {
        {"UTC0", 1794783779, "Sun Nov 15 23:02:59 2026"},
        {"EST5", 1794783779, "Sun Nov 15 18:02:59 2026"},
        {"IST-05:30", 1794783779, "Mon Nov 16 04:32:59 2026"},
        {"CET-1CEST,M3.5.0,M10.5.0/3", 1794783779, "Mon Nov 16 00:02:59 2026"},
        {"CET-1CEST,M3.5.0,M10.5.0/3", 1782907200, "Wed Jul  1 14:00:00 2026"},
        {"UTC0", 951782400, "Tue Feb 29 00:00:00 2000"},
        {"UTC0", 0, "Thu Jan  1 00:00:00 1970"},
        {"UTC0", -1, "Wed Dec 31 23:59:59 1969"},
    };
    for (const auto &row : rows) {
        setenv("TZ", row.zone, 1);
        Buffer b(40);
        EXPECT_EQ(b, make_date(b, 40, row.t));
        EXPECT_STREQ(row.date, b) << row.zone;
    }
}

TEST_F(Util, MakeDateIsBounded) {
    setenv("TZ", "UTC0", 1);
    const std::string whole = "Thu Jan  1 00:00:00 1970";
    for (const int size : {1, 4, 24, 25, 26}) {
        Buffer b(size);
        EXPECT_EQ(b, make_date(b, size, 0));
        EXPECT_EQ(whole.substr(0, static_cast<std::size_t>(size) - 1), std::string(b)) << size;
    }
    Buffer none(4, "old");
    make_date(none, 0, 0);
    EXPECT_STREQ("old", none);
    EXPECT_EQ(nullptr, make_date(nullptr, 10, 0));
}

TEST_F(Util, MakeDateSaysInvalidWhereThereIsNoDate) {
    Buffer b(40);
    EXPECT_EQ(b, make_date(b, 40, std::numeric_limits<time_t>::max()));
    EXPECT_STREQ("Invalid", b);
    Buffer small(4);
    make_date(small, 4, std::numeric_limits<time_t>::max());
    EXPECT_STREQ("Inv", small);
}

TEST_F(Util, DtimeCountsSecondsSinceTheEpoch) {
    const time_t before = std::time(nullptr);
    const double now = dtime();
    const time_t after = std::time(nullptr);
    EXPECT_GE(now, static_cast<double>(before) - 1); // the two clocks may tick apart
    EXPECT_LE(now, static_cast<double>(after) + 1);
}

TEST_F(Util, MsleepSleepsAtLeastThatLong) {
    timespec before{};
    timespec after{};
    clock_gettime(CLOCK_MONOTONIC, &before);
    EXPECT_EQ(0, lib_msleep(20));
    clock_gettime(CLOCK_MONOTONIC, &after);
    const std::int64_t slept = (after.tv_sec - before.tv_sec) * 1000000000 + (after.tv_nsec - before.tv_nsec);
    EXPECT_GE(slept, 20000000);
    EXPECT_EQ(0, lib_msleep(0));
    EXPECT_EQ(0, lib_msleep(-5)) << "no sleep, and no end of one";
}

// --- Signals ---

void test_handler(int) {}

/// What the system does with each signal after `action` ran: 'D'efault, 'I'gnored or 'H' the test's
/// handler. Asked in a child process that begins with every action at its default, so that nothing here
/// changes.
std::string dispositions_after(const std::vector<int> &signals, void (*action)()) {
    int ends[2];
    if (pipe(ends) != 0)
        return "no pipe";
    const pid_t child = fork();
    if (child == 0) {
        for (const int sig : signals)
            std::signal(sig, SIG_DFL);
        action();
        for (const int sig : signals) {
            struct sigaction now {};
            sigaction(sig, nullptr, &now);
            const char told = now.sa_handler == SIG_DFL        ? 'D'
                              : now.sa_handler == SIG_IGN      ? 'I'
                              : now.sa_handler == test_handler ? 'H'
                                                               : '?';
            if (write(ends[1], &told, 1) != 1)
                _exit(1);
        }
        test::leave_child(0);
    }
    close(ends[1]);
    std::string told;
    for (char c = 0; read(ends[0], &c, 1) == 1;)
        told += c;
    close(ends[0]);
    waitpid(child, nullptr, 0);
    return told;
}

const std::vector<int> handled_but_abort = {SIGTERM, SIGFPE,  SIGILL, SIGSEGV,
                                            SIGINT,  SIGTRAP, SIGBUS, SIGQUIT};
const std::vector<int> ignored = {SIGABRT, SIGVTALRM, SIGPROF, SIGPIPE, SIGHUP};
const std::vector<int> untouched = {SIGUSR1, SIGUSR2, SIGALRM, SIGCHLD, SIGCONT, SIGTSTP};

TEST_F(Util, SigInitInstallsTheHandlerAndIgnoresAbortAllTheSame) {
    void (*const action)() = [] { sig_init(test_handler); };
    EXPECT_EQ("HHHHHHHH", dispositions_after(handled_but_abort, action));
    EXPECT_EQ("IIIII", dispositions_after(ignored, action));
    EXPECT_EQ("DDDDDD", dispositions_after(untouched, action));
}

TEST_F(Util, SigInitWithoutAHandlerOnlyIgnores) {
    void (*const action)() = [] { sig_init(nullptr); };
    EXPECT_EQ("DDDDDDDD", dispositions_after(handled_but_abort, action));
    EXPECT_EQ("IIIII", dispositions_after(ignored, action));
}

TEST_F(Util, SigDfltRestoresTheNineHandledSignals) {
    void (*const action)() = [] {
        sig_init(test_handler);
        sig_dflt();
    };
    EXPECT_EQ("DDDDDDDD", dispositions_after(handled_but_abort, action));
    EXPECT_EQ("DIIII", dispositions_after(ignored, action))
        << "of the ignored ones only SIGABRT is among them";
}

TEST_F(Util, SigDoneRaisesTheSignal) {
    const pid_t child = fork();
    if (child == 0) {
        std::signal(SIGTERM, SIG_DFL);
        sig_done(SIGTERM);
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(SIGTERM, WTERMSIG(status));
    EXPECT_NE(0, sig_done(-1));
}

// --- Splitting ---

std::vector<std::string> parts_of(std::string text, const char *delims, int max, int multi) {
    std::vector<char *> parts(static_cast<std::size_t>(max));
    const int count = ssplit(text.data(), delims, parts.data(), max, multi);
    return {parts.begin(), parts.begin() + count};
}

TEST_F(Util, SsplitCutsAtDelimiters) {
    using list = std::vector<std::string>;
    EXPECT_EQ((list{"a", "b c"}), parts_of("a  b c", " ", 2, 1));
    EXPECT_EQ((list{"a", " b c"}), parts_of("a  b c", " ", 2, 0));
    EXPECT_EQ((list{"a", "", "b", "c"}), parts_of("a  b c", " ", 9, 0));
    EXPECT_EQ((list{"a", "b", "c"}), parts_of("a  b c", " ", 9, 1));
    EXPECT_EQ((list{"a", "b", "c"}), parts_of("a,b;c", ",;", 9, 0));
    EXPECT_EQ((list{"a,b"}), parts_of("a,b", ",", 1, 0));
    EXPECT_EQ((list{"", "a"}), parts_of(",a", ",", 9, 0));
    EXPECT_EQ((list{"", "a"}), parts_of(",,a", ",", 9, 1));
    EXPECT_EQ((list{"a", ""}), parts_of("a,", ",", 9, 0));
    EXPECT_EQ((list{"abc"}), parts_of("abc", ",", 9, 0));
    EXPECT_EQ((list{"abc"}), parts_of("abc", "", 9, 0));
}

TEST_F(Util, SsplitOfNothingHasNoParts) {
    Buffer text(4, "a,b");
    Buffer empty(4, "");
    char *parts[2] = {};
    EXPECT_EQ(0, ssplit(nullptr, ",", parts, 2, 0));
    EXPECT_EQ(0, ssplit(empty, ",", parts, 2, 0));
    EXPECT_EQ(0, ssplit(text, ",", parts, 0, 0));
    EXPECT_EQ(0, ssplit(text, ",", parts, -1, 0));
    EXPECT_EQ(0, ssplit(text, nullptr, parts, 2, 0));
    EXPECT_EQ(0, ssplit(text, ",", nullptr, 2, 0));
    EXPECT_EQ(nullptr, parts[0]);
    EXPECT_STREQ("a,b", text);
}

// --- The path encoding ---

TEST_F(Util, TransTable) {
    std::string expected(128, '*');
    const auto put = [&expected](const std::string &characters, const std::string &entries) {
        ASSERT_EQ(characters.size(), entries.size());
        for (std::size_t i = 0; i < characters.size(); ++i)
            expected[static_cast<unsigned char>(characters[i])] = entries[i];
    };
    put(" !\"#$%&'()*+,-./", "0123456789ABCDEF");
    put(":;<=>?@", "GHIJJKL");
    put("[\\]^_`", "MNOP_Q");
    put("{|}~\x7F", "RSTUV");
    EXPECT_EQ(expected, std::string(trans, sizeof trans));
}

std::string encoded(const std::string &name) {
    std::vector<char> out(2 * name.size() + 3, '#');
    EXPECT_EQ(out.data(), encode_path(out.data(), name.c_str(), static_cast<int>(2 * name.size() + 1)));
    return out.data();
}

std::string decoded(const std::string &name) {
    std::vector<char> out(name.size() + 1, '#');
    EXPECT_EQ(out.data(), decode_path(out.data(), name.c_str(), static_cast<int>(name.size())));
    return out.data();
}

TEST_F(Util, EncodedPathHoldsLettersDigitsAndUnderscores) {
    EXPECT_EQ("a_0b_Fc", encoded("a b/c"));
    EXPECT_EQ("a b/c", decoded("a_0b_Fc"));
    EXPECT_EQ("__", encoded("_"));
    EXPECT_EQ("_V", encoded("\x7F"));
    EXPECT_EQ("", encoded(""));
    EXPECT_EQ("", decoded(""));
}

TEST_F(Util, EncodedNamesOfOneAndTwoPrintableCharactersComeBack) {
    const auto came_back = [](char c) { return c == '>' ? '=' : c; }; // the two share an entry
    for (int i = 32; i < 128; ++i)
        for (int k = 32; k < 128; ++k) {
            const char a = static_cast<char>(i);
            const char b = static_cast<char>(k);
            const std::string code = encoded({a, b});
            ASSERT_TRUE(std::all_of(code.begin(), code.end(), [](char c) {
                return c == '_' || std::isalnum(static_cast<unsigned char>(c));
            })) << code;
            ASSERT_EQ((std::string{came_back(a), came_back(b)}), decoded(code)) << code;
        }
}

TEST_F(Util, GreaterThanComesBackAsEquals) {
    EXPECT_EQ("_J", encoded(">"));
    EXPECT_EQ("_J", encoded("="));
    EXPECT_EQ("=", decoded("_J"));
}

TEST_F(Util, EncodingStopsAtItsSizeWhichAPairMayPassByOne) {
    Buffer plain(4);
    EXPECT_EQ(plain, encode_path(plain, "abcdef", 3));
    EXPECT_STREQ("abc", plain);
    Buffer pair(5);
    EXPECT_EQ(pair, encode_path(pair, "ab cd", 3));
    EXPECT_STREQ("ab_0", pair);
    Buffer none(1);
    EXPECT_EQ(none, encode_path(none, "abc", 0));
    EXPECT_STREQ("", none);
    EXPECT_EQ(none, encode_path(none, "abc", -1));
    EXPECT_EQ(nullptr, encode_path(none, nullptr, 3));
    EXPECT_EQ(nullptr, encode_path(nullptr, "abc", 3));
}

TEST_F(Util, ControlCodesLeaveAGapInTheEncoding) {
    Buffer b(8);
    encode_path(b, "a\tb", 7);
    EXPECT_STREQ("a#b", b) << "the byte that stood there shows";
}

TEST_F(Util, EncodingInPlaceEndsAtTheFirstControlCode) {
    Buffer b(8, "a\tb");
    EXPECT_EQ(b, xencode_path(b, 6));
    EXPECT_STREQ("a", b);
}

TEST_F(Util, EncodingInPlaceIsTheSameOtherwise) {
    Buffer b(12, "a b/c");
    EXPECT_EQ(b, xencode_path(b, 10));
    EXPECT_STREQ("a_0b_Fc", b);
    Buffer bounded(5, "ab c");
    EXPECT_EQ(bounded, xencode_path(bounded, 3));
    EXPECT_STREQ("ab_0", bounded);
    EXPECT_EQ(nullptr, xencode_path(nullptr, 10));
}

TEST_F(Util, BytesOutsideTheEncodingAreCopied) {
    EXPECT_EQ("\xC3\xA4_0x", encoded("\xC3\xA4 x"));
    EXPECT_EQ("\xC3\xA4 x", decoded("\xC3\xA4_0x"));
}

TEST_F(Util, DecodingCopiesWhatIsNoPair) {
    EXPECT_EQ("_a", decoded("_a"));
    EXPECT_EQ("_*", decoded("_*")) << "the filler of the table is no code";
    EXPECT_EQ("a_", decoded("a_"));
    EXPECT_EQ("_\xE4", decoded("_\xE4"));
}

TEST_F(Util, DecodingWritesAtMostItsSize) {
    Buffer b(3);
    EXPECT_EQ(b, decode_path(b, "_0_F_0", 2));
    EXPECT_STREQ(" /", b);
    EXPECT_EQ(b, decode_path(b, "abc", 0));
    EXPECT_STREQ("", b);
    EXPECT_EQ(b, decode_path(b, "abc", -1));
    EXPECT_EQ(nullptr, decode_path(b, nullptr, 2));
    EXPECT_EQ(nullptr, decode_path(nullptr, "abc", 2));
}

TEST_F(Util, DecodingInPlaceProducesExactlyThatManyCharacters) {
    Buffer b(8, "a_0b_Fc");
    EXPECT_EQ(b, xdecode_path(b, 4));
    EXPECT_STREQ("a b/", b);
    Buffer shorter(7, "_0x");
    EXPECT_EQ(shorter, xdecode_path(shorter, 6));
    EXPECT_EQ(std::string(" x\0\0\0\0\0", 7), std::string(shorter, 7)) << "what the text has not is NUL";
    EXPECT_EQ(shorter, xdecode_path(shorter, 0));
    EXPECT_STREQ("", shorter);
    EXPECT_EQ(nullptr, xdecode_path(nullptr, 3));
}

// --- The URL ---

const char *const url_variables[] = {"SCRIPT_NAME", "SERVER_NAME", "SERVER_PROTOCOL"};

void set_url_variables(const char *script, const char *server, const char *protocol) {
    const char *const values[] = {script, server, protocol};
    for (std::size_t i = 0; i < std::size(values); ++i)
        values[i] ? setenv(url_variables[i], values[i], 1) : unsetenv(url_variables[i]);
}

TEST_F(Util, MakeUrlNeedsAllThreeVariables) {
    for (unsigned set = 0; set < 8; ++set) {
        set_url_variables(set & 1 ? "/cgi-bin/x" : nullptr, set & 2 ? "host" : nullptr,
                          set & 4 ? "HTTP/1.0" : nullptr);
        char url[100];
        if (set == 7) {
            EXPECT_EQ(url, make_url(url, sizeof url, "?a=%d", 1));
            EXPECT_STREQ("HTTP://host/cgi-bin/x?a=1", url);
        } else {
            EXPECT_EQ(nullptr, make_url(url, sizeof url, "?a=%d", 1)) << set;
        }
    }
}

TEST_F(Util, MakeUrlIsBounded) {
    set_url_variables("/x", "host", "HTTP/1.0");
    const std::string whole = "HTTP://host/x?q";
    for (int size = 1; size <= 18; ++size) {
        Buffer url(size);
        EXPECT_EQ(url, make_url(url, size, "%s", "?q"));
        EXPECT_EQ(whole.substr(0, static_cast<std::size_t>(size) - 1), std::string(url)) << size;
    }
}

TEST_F(Util, MakeUrlCutsItsTextAt999Characters) {
    set_url_variables("/x", "host", "http/1.0");
    char url[3000];
    ASSERT_EQ(url, make_url(url, sizeof url, "%s", std::string(2000, 'q').c_str()));
    EXPECT_EQ("http://host/x" + std::string(999, 'q'), url);
}

TEST_F(Util, MakeUrlTakesNoNull) {
    set_url_variables("/x", "host", "HTTP/1.0");
    char url[10];
    const char *const none = nullptr;
    EXPECT_EQ(nullptr, make_url(nullptr, 10, "x"));
    EXPECT_EQ(nullptr, make_url(url, 0, "x"));
    EXPECT_EQ(nullptr, make_url(url, 10, none));
}

// --- The keyed byte shift ---

TEST_F(Util, CryptAddsTheKeyWhichRepeats) {
    Buffer out(6);
    const char key[] = {1, 2, 0};
    EXPECT_EQ(out, simple_crypt("aaaaa", key, out, 5));
    EXPECT_STREQ("bcbcb", out);
    EXPECT_EQ(out, simple_decrypt("bcbcb", key, out, 5));
    EXPECT_STREQ("aaaaa", out);
}

TEST_F(Util, DecryptRestoresEveryByteUnderEveryKeyByte) {
    for (int text_byte = 1; text_byte < 256; ++text_byte)
        for (int key_byte = 1; key_byte < 256; ++key_byte) {
            const char text[] = {static_cast<char>(text_byte), 0};
            const char key[] = {static_cast<char>(key_byte), 0};
            Buffer out(2);
            ASSERT_EQ(out, simple_crypt(text, key, out, 1));
            ASSERT_EQ(static_cast<char>(text_byte + key_byte), out[0]);
            ASSERT_EQ('\0', out[1]);
            Buffer back(2);
            ASSERT_EQ(back, simple_decrypt(out, key, back, 1));
            const bool wrapped = text_byte + key_byte == 256; // reads as the end of the text
            ASSERT_STREQ(wrapped ? "" : text, back) << text_byte << " " << key_byte;
        }
}

TEST_F(Util, CryptGoesOnBehindASumOfZero) {
    Buffer out(4);
    simple_crypt("\xFF"
                 "b",
                 "\x01", out, 3);
    EXPECT_EQ(std::string("\0c\0", 3), std::string(out, 3));
}

TEST_F(Util, CryptStopsAtItsSize) {
    Buffer out(4);
    EXPECT_EQ(out, simple_crypt("abcdef", "\x01", out, 3));
    EXPECT_STREQ("bcd", out);
    EXPECT_EQ(out, simple_crypt("abc", "\x01", out, 0));
    EXPECT_STREQ("", out);
    EXPECT_EQ(out, simple_crypt("abc", "\x01", out, -1));
}

TEST_F(Util, CryptWithAnEmptyKeyChangesNothing) {
    Buffer out(4);
    EXPECT_EQ(out, simple_crypt("abc", "", out, 3));
    EXPECT_STREQ("abc", out);
    EXPECT_EQ(out, simple_decrypt("abc", "", out, 3));
    EXPECT_STREQ("abc", out);
}

TEST_F(Util, CryptMayWorkInPlaceAndTakesNoNull) {
    Buffer b(4, "abc");
    EXPECT_EQ(b, simple_crypt(b, "\x01", b, 3));
    EXPECT_STREQ("bcd", b);
    EXPECT_EQ(nullptr, simple_crypt(nullptr, "k", b, 3));
    EXPECT_EQ(nullptr, simple_crypt("a", nullptr, b, 3));
    EXPECT_EQ(nullptr, simple_decrypt("a", "k", nullptr, 3));
}

// --- Hexadecimal ---

TEST_F(Util, HexTable) {
    std::map<int, int> expected;
    for (int i = 0; i < 10; ++i)
        expected['0' + i] = i;
    for (int i = 0; i < 6; ++i)
        expected['a' + i] = expected['A' + i] = 10 + i;
    for (int i = 0; i < 256; ++i)
        EXPECT_EQ(expected.count(i) ? expected[i] : -1, hex_arrray[i]) << i;
}

TEST_F(Util, BintohexWritesTwoDigitsAByte) {
    Buffer hex(12);
    EXPECT_EQ(hex, s_bintohex("\x01J\xFF", hex, 10));
    EXPECT_STREQ("014aff", hex);
    EXPECT_EQ(hex, s_bintohex("", hex, 10));
    EXPECT_STREQ("", hex);
}

TEST_F(Util, BintohexStopsOnceItsSizeIsReached) {
    const struct {
        int size;
        const char *digits;
    } rows[] = {{0, ""},     {-1, ""},    {1, "61"},     {2, "61"},
                {3, "6162"}, {4, "6162"}, {5, "616263"}, {9, "616263"}};
    for (const auto &row : rows) {
        Buffer hex(std::max(row.size, 0) + 2);
        EXPECT_EQ(hex, s_bintohex("abc", hex, row.size));
        EXPECT_STREQ(row.digits, hex) << row.size;
    }
    EXPECT_EQ(nullptr, s_bintohex(nullptr, Buffer(4), 2));
    EXPECT_EQ(nullptr, s_bintohex("a", nullptr, 2));
}

TEST_F(Util, HextobinRepeatsTheFirstDigit) {
    Buffer bin(4);
    EXPECT_EQ(bin, s_hextobin("a1", bin, 3));
    EXPECT_STREQ("\xAA\xAA\xAA", bin) << "the input is never moved on";
    EXPECT_EQ(bin, s_hextobin("F", bin, 1));
    EXPECT_STREQ("\xFF", bin);
    EXPECT_EQ(bin, s_hextobin("7", bin, 2));
    EXPECT_STREQ("ww", bin);
    EXPECT_EQ(bin, s_hextobin("", bin, 3));
    EXPECT_STREQ("", bin);
}

TEST_F(Util, HextobinTakesABadDigitForZero) {
    Buffer bin(3);
    EXPECT_EQ(bin, s_hextobin("g", bin, 2));
    EXPECT_EQ(std::string(3, '\0'), std::string(bin, 3));
    EXPECT_EQ(bin, s_hextobin("a", bin, -1));
    EXPECT_STREQ("", bin);
    EXPECT_EQ(nullptr, s_hextobin(nullptr, bin, 2));
    EXPECT_EQ(nullptr, s_hextobin("a", nullptr, 2));
}

TEST_F(Util, LibFreeReturnsItsArgument) {
    EXPECT_EQ(0, lib_free(0));
    EXPECT_EQ(-7, lib_free(-7));
}

} // namespace
} // namespace installer
