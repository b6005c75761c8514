// The string half of lib: comparing, searching, building, trimming, splitting, truth words.

#include "installer/lib.h"

#include "tests/support.h"

#include <climits>
#include <cstring>
#include <vector>

namespace installer {
namespace {

using test::Buffer;

// --- The C library's functions, made null-tolerant ---

TEST(Wrappers, GiveTheirFailureValueForNull) {
    char *end = nullptr;
    EXPECT_EQ(0u, s_strlen(nullptr));
    EXPECT_EQ(0u, s_strcspn(nullptr, "a"));
    EXPECT_EQ(0u, s_strcspn("abc", nullptr));
    EXPECT_EQ(0, s_atoi(nullptr));
    EXPECT_EQ(0L, s_atol(nullptr));
    EXPECT_EQ(0.0, s_atof(nullptr));
    EXPECT_EQ(0ul, s_strtoul(nullptr, &end, 10));
    EXPECT_EQ(0ul, s_strtoul("12", nullptr, 10));
    EXPECT_EQ(-1, s_strcmp(nullptr, "a"));
    EXPECT_EQ(-1, s_strcmp("a", nullptr));
    EXPECT_EQ(-1, s_strcmp(nullptr, nullptr));
    EXPECT_EQ(-1, s_strncmp(nullptr, "a", 1));
    EXPECT_EQ(-1, s_strncmp("a", nullptr, 0));
    EXPECT_EQ(nullptr, s_strchr(nullptr, 'a'));
    EXPECT_EQ(nullptr, s_strstr(nullptr, "a"));
    EXPECT_EQ(nullptr, s_strstr("a", nullptr));
    EXPECT_EQ(nullptr, s_strdup(nullptr));
    EXPECT_EQ(nullptr, s_strcpy(nullptr, "a"));
    EXPECT_EQ(nullptr, s_strcat(nullptr, "a"));
    EXPECT_STREQ("", str(nullptr));
}

TEST(Wrappers, GiveTheLibrarysResultOtherwise) {
    const char *const text = "12ab";
    char *end = nullptr;
    EXPECT_EQ(4u, s_strlen(text));
    EXPECT_EQ(2u, s_strcspn(text, "xa"));
    EXPECT_EQ(-12, s_atoi("-12x"));
    EXPECT_EQ(3000000000L, s_atol("3000000000"));
    EXPECT_EQ(-2.5, s_atof("-2.5e0"));
    EXPECT_EQ(0x12abul, s_strtoul(text, &end, 16));
    EXPECT_EQ(text + 4, end);
    EXPECT_EQ(0, s_strcmp("a", "a"));
    EXPECT_LT(s_strcmp("A", "a"), 0);
    EXPECT_GT(s_strcmp("b", "a"), 0);
    EXPECT_EQ(0, s_strncmp("abX", "abY", 2));
    EXPECT_LT(s_strncmp("abX", "abY", 3), 0);
    EXPECT_EQ(text + 2, s_strchr(text, 'a'));
    EXPECT_EQ(nullptr, s_strchr(text, 'z'));
    EXPECT_EQ(text + 1, s_strstr(text, "2a"));
    EXPECT_EQ(nullptr, s_strstr(text, "a2"));
    EXPECT_EQ(text, str(text));
}

TEST(Wrappers, StrchrNeverFindsTheTerminator) {
    EXPECT_EQ(nullptr, s_strchr("abc", 0));
}

TEST(Wrappers, StrdupGivesACopyOfItsOwn) {
    const char *const text = "abc";
    const text_ptr copy(s_strdup(text));
    EXPECT_NE(text, copy.get());
    EXPECT_STREQ(text, copy.get());
}

TEST(Wrappers, CopyAndAppendReturnTheirDestination) {
    Buffer b(7, "old");
    EXPECT_EQ(b, s_strcpy(b, "abc"));
    EXPECT_EQ(b, s_strcat(b, "def"));
    EXPECT_STREQ("abcdef", b);
    EXPECT_EQ(b, s_strcpy(b, nullptr));
    EXPECT_EQ(b, s_strcat(b, nullptr));
    EXPECT_STREQ("abcdef", b);
}

// --- Comparing and searching without case ---

TEST(Charmap, LowersTheCapitalsAndNothingElse) {
    for (int i = 0; i < 256; ++i)
        EXPECT_EQ(i >= 0x41 && i <= 0x5A ? i + 0x20 : i, charmap[i]) << i;
}

TEST(CompareNoCase, Table) {
    const struct {
        const char *a, *b;
        int result;
    } rows[] = {
        {"", "", 0},
        {"abc", "ABC", 0},
        {"ABC", "abd", -1},
        {"abd", "ABC", 1},
        {"ab", "abc", -'c'},
        {"aBc", "AB", 'c'},
        {"\xC4", "\xC4", 0},
        {"\xC4", "\xE4", -32},
        {"a", "\xE4", 'a' - 0xE4},
        {"[", "{", -32},
        {nullptr, "x", -1},
        {"x", nullptr, -1},
        {nullptr, nullptr, -1},
        {"_", "A", '_' - 'a'}, // compared as lower case: as a capital, "A" would come first
    };
    for (const auto &row : rows)
        EXPECT_EQ(row.result, s_stricmp(row.a, row.b)) << str(row.a) << " " << str(row.b);
}

TEST(CompareNoCase, BoundedFormStopsAfterNEqualCharacters) {
    EXPECT_EQ(0, s_strnicmp("abX", "ABy", 2));
    EXPECT_EQ('x' - 'y', s_strnicmp("abX", "ABy", 3));
    EXPECT_EQ(0, s_strnicmp("ab", "AB", 100));
    EXPECT_EQ('c', s_strnicmp("abc", "ab", 3));
    EXPECT_EQ(0, s_strnicmp("abc", "ab", 2));
    EXPECT_EQ(0, s_strnicmp("a", "b", 0));
    EXPECT_EQ(0, s_strnicmp("a", "b", -1));
    EXPECT_EQ(-1, s_strnicmp(nullptr, "b", 0));
    EXPECT_EQ(-1, s_strnicmp("a", nullptr, 1));
}

/// Offset of a search result, -1 for null.
std::ptrdiff_t offset(const char *result, const char *text) {
    return result ? result - text : -1;
}

struct search_row {
    const char *haystack, *needle;
    std::ptrdiff_t forward, backward;
};

TEST(SearchNoCase, FirstAndLastOccurrence) {
    const search_row rows[] = {
        {"one TWO one Two", "two", 4, 12},
        {"abc", "ABC", 0, 0},
        {"abc", "abcd", -1, -1},
        {"abc", "x", -1, -1},
        {"abcab", "aB", 0, 3},
        {"", "a", -1, -1},
        {"", "", -1, -1},
        {"abc", "", 0, 3},
        {"aaa", "aa", 0, 1},
        {"x\xE4y", "\xE4", 1, 1},
        {nullptr, "a", -1, -1},
        {"a", nullptr, -1, -1},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(row.forward, offset(s_stristr(row.haystack, row.needle), row.haystack))
            << str(row.haystack);
        EXPECT_EQ(row.backward, offset(s_strristr(row.haystack, row.needle), row.haystack))
            << str(row.haystack);
    }
}

TEST(SearchNoCase, NeverStepsBackAfterAMismatch) {
    EXPECT_EQ(nullptr, s_stristr("aaab", "aab"));
    EXPECT_EQ(nullptr, s_stristr("ababc", "abc")) << "the mismatching 'a' is not compared again";
    EXPECT_NE(nullptr, s_stristr("abxabc", "abc"));
    EXPECT_EQ(nullptr, s_strristr("baaa", "baa"));
    EXPECT_NE(nullptr, s_strristr("baaxbaa", "baa"));
}

TEST(Sdiff, PointsPastTheCommonStart) {
    const struct {
        const char *a, *b;
        std::ptrdiff_t past;
    } rows[] = {{"abcd", "abxy", 2}, {"abc", "abc", 3},   {"abc", "ab", 2},
                {"ab", "abc", 2},    {"abc", "xbc", 0},   {"", "abc", 0},
                {"abc", "", 0},      {"abc", nullptr, 0}, {"Abc", "abc", 0}};
    for (const auto &row : rows)
        EXPECT_EQ(row.past, sdiff(row.a, row.b) - row.a) << row.a << " " << str(row.b);
    EXPECT_EQ(nullptr, sdiff(nullptr, "abc"));
}

// --- Building texts ---

TEST(Scpy, CopiesWhatFitsAndTellsHowMuch) {
    const struct {
        const char *stored;
        int size, result;
    } rows[] = {{"hel", 4, 3}, {"hell", 5, 4}, {"hello", 6, 5}, {"hello", 100, 5}, {"", 1, 0}};
    for (const auto &row : rows) {
        Buffer b(row.size);
        EXPECT_EQ(row.result, scpy(b, "hello", row.size));
        EXPECT_STREQ(row.stored, b);
    }
}

TEST(Scpy, StoresAnEmptyTextForNull) {
    Buffer b(10, "old");
    EXPECT_EQ(0, scpy(b, nullptr, 10));
    EXPECT_STREQ("", b);
}

TEST(Scpy, DoesNothingWithoutRoomOrDestination) {
    Buffer b(4, "old");
    EXPECT_EQ(0, scpy(b, "x", 0));
    EXPECT_EQ(0, scpy(b, "x", -5));
    EXPECT_EQ(0, scpy(nullptr, "x", 10));
    EXPECT_STREQ("old", b);
}

TEST(Scpy, TakesTextsThatOverlap) {
    Buffer b(10, "abcdef");
    EXPECT_EQ(4, scpy(b, b + 2, b.size()));
    EXPECT_STREQ("cdef", b);
    EXPECT_EQ(4, scpy(b + 1, b, b.size() - 1));
    EXPECT_STREQ("ccdef", b);
}

TEST(Scpy, ReadsNoFurtherThanItCopies) {
    const char unterminated[3] = {'a', 'b', 'c'};
    Buffer b(3);
    EXPECT_EQ(2, scpy(b, unterminated, 3));
    EXPECT_STREQ("ab", b);
}

TEST(Scat, KeepsOneByteFree) {
    const struct {
        const char *start, *add, *stored;
        int size, result;
    } rows[] = {
        {"abc", "defghij", "abcdefgh", 10, 8},
        {"abc", "defgh", "abcdefgh", 10, 8},
        {"abc", "de", "abcde", 10, 5},
        {"abcdefgh", "i", "abcdefgh", 10, 8},
        {"", "", "", 10, 0},
        {"", "xyz", "x", 3, 1},
        {"", "xyz", "", 2, 0},
        {"abc", "d", "abc", 5, 3},
    };
    for (const auto &row : rows) {
        Buffer b(row.size, row.start);
        EXPECT_EQ(row.result, scat(b, row.add, row.size)) << row.start << " + " << row.add;
        EXPECT_STREQ(row.stored, b);
    }
}

TEST(Scat, CutsADestinationWithoutTerminator) {
    Buffer b(5); // five '#' and no terminator
    EXPECT_EQ(4, scat(b, "x", 5));
    EXPECT_STREQ("####", b);
    Buffer one(1);
    EXPECT_EQ(0, scat(one, "x", 1));
    EXPECT_STREQ("", one);
}

TEST(Scat, LeavesAFullDestinationFull) {
    Buffer b(5, "abcd");
    EXPECT_EQ(4, scat(b, "x", 5));
    EXPECT_STREQ("abcd", b);
}

TEST(Scat, DoesNothingForNullOrNoRoom) {
    Buffer b(10, "abc");
    EXPECT_EQ(0, scat(b, nullptr, 10));
    EXPECT_EQ(0, scat(nullptr, "x", 10));
    EXPECT_EQ(0, scat(b, "x", 0));
    EXPECT_EQ(0, scat(b, "x", -1));
    EXPECT_STREQ("abc", b);
}

TEST(Scat, MayAppendATextToItself) {
    Buffer b(10, "abc");
    EXPECT_EQ(6, scat(b, b, 10));
    EXPECT_STREQ("abcabc", b);
}

TEST(Smake, TakesALengthPlusOne) {
    EXPECT_STREQ("abc", text_ptr(smake("abcdef", 4)).get());
    EXPECT_STREQ("abcdef", text_ptr(smake("abcdef", 100)).get());
    EXPECT_STREQ("", text_ptr(smake("abcdef", 1)).get());
    EXPECT_STREQ("", text_ptr(smake("", 3)).get());
    EXPECT_EQ(nullptr, smake("abcdef", 0));
    EXPECT_EQ(nullptr, smake("abcdef", -3));
    EXPECT_EQ(nullptr, smake(nullptr, 4));
}

TEST(Schunk, CopiesUpToTheFirstDelimiter) {
    const struct {
        const char *src, *delims, *stored;
        int size, result;
    } rows[] = {
        {"name=value", "=", "name", 100, 4},
        {"name=value", "=", "na", 3, 2},
        {"name=value", "=", "name", 5, 4},
        {"name", "=", "name", 100, 4},
        {"=x", "=", "", 100, 0},
        {"a;b,c", ",;", "a", 100, 1},
        {"abc", "", "abc", 100, 3},
        {"abc", nullptr, "abc", 100, 3},
        {"abc", "c", "", 1, 0},
    };
    for (const auto &row : rows) {
        Buffer b(row.size);
        EXPECT_EQ(row.result, schunk(row.src, row.delims, b, row.size)) << row.src;
        EXPECT_STREQ(row.stored, b) << row.src;
    }
}

TEST(Schunk, LeavesTheDestinationForNullOrNoRoom) {
    Buffer b(10, "old");
    EXPECT_EQ(0, schunk(nullptr, "=", b, 10));
    EXPECT_EQ(0, schunk("a=b", "=", nullptr, 10));
    EXPECT_EQ(0, schunk("a=b", "=", b, 0));
    EXPECT_STREQ("old", b);
}

TEST(Spre, PutsThePrefixInFront) {
    Buffer b(7, "def");
    EXPECT_EQ(b, spre(b, "abc", 7));
    EXPECT_STREQ("abcdef", b);
    EXPECT_EQ(b, spre(b, "", 7));
    EXPECT_STREQ("abcdef", b);
}

TEST(Spre, ChangesNothingWhenTheWholeDoesNotFit) {
    Buffer b(6, "def");
    EXPECT_EQ(nullptr, spre(b, "abc", 6));
    EXPECT_EQ(nullptr, spre(b, "abc", 0));
    EXPECT_EQ(nullptr, spre(b, "abc", -1));
    EXPECT_EQ(nullptr, spre(b, nullptr, 6));
    EXPECT_EQ(nullptr, spre(nullptr, "abc", 6));
    EXPECT_STREQ("def", b);
}

TEST(Sadd, GrowsAText) {
    char *text = nullptr;
    EXPECT_EQ(nullptr, sadd(text, nullptr));
    text = sadd(text, "");
    ASSERT_NE(nullptr, text);
    EXPECT_STREQ("", text);
    text = sadd(text, "one\n");
    text = sadd(text, "two\n");
    EXPECT_EQ(text, sadd(text, nullptr));
    EXPECT_STREQ("one\ntwo\n", text);
    std::free(text);
}

TEST(Creplace, ReplacesEveryOccurrence) {
    Buffer b(10, "a.b..c");
    creplace(b, '.', '_');
    EXPECT_STREQ("a_b__c", b);
    creplace(b, 'x', 'y');
    EXPECT_STREQ("a_b__c", b);
    creplace(nullptr, 'a', 'b');
}

TEST(Creplace, LeavesTheTerminator) {
    Buffer b(4, "abc");
    creplace(b, 0, 'x');
    EXPECT_STREQ("abc", b);
}

TEST(Sreplace, ReplacesFromLeftToRight) {
    const struct {
        const char *src, *find, *repl, *result;
    } rows[] = {
        {"a$xb$x", "$x", "Q", "aQbQ"},
        {"$x$x", "$x", "", ""},
        {"$x$x", "$x", nullptr, ""},
        {"abc", "x", "Q", "abc"},
        {"aaa", "aa", "b", "ba"},
        {"abc", "abc", "abcabc", "abcabc"},
        {"", "x", "Q", ""},
        {"ab", "", "Q", "ab"},
        {"a.b", ".", "..", "a..b"},
        {"aXXb", "X", "XX", "aXXXXb"},
        {"aab", "ab", "b", "ab"},
    };
    for (const auto &row : rows) {
        Buffer b(100);
        EXPECT_EQ(b, sreplace(row.src, row.find, row.repl, b, 100)) << row.src;
        EXPECT_STREQ(row.result, b) << row.src;
    }
}

TEST(Sreplace, StopsAtTheRoomThatIsLeft) {
    const char *const whole = "xxxLONGyyyLONGzzz";
    for (int size = 1; size <= 19; ++size) {
        Buffer b(size);
        EXPECT_EQ(b, sreplace("xxx.yyy.zzz", ".", "LONG", b, size));
        EXPECT_EQ(std::string(whole).substr(0, static_cast<std::size_t>(size) - 1), std::string(b)) << size;
    }
}

TEST(Sreplace, GivesNullForNull) {
    Buffer b(4, "old");
    EXPECT_EQ(nullptr, sreplace(nullptr, "a", "b", b, 4));
    EXPECT_EQ(nullptr, sreplace("a", nullptr, "b", b, 4));
    EXPECT_EQ(nullptr, sreplace("a", "a", "b", nullptr, 4));
    EXPECT_EQ(b, sreplace("a", "a", "b", b, 0));
    EXPECT_STREQ("old", b);
}

TEST(ChangeCase, ReturnsTheEndOfTheText) {
    Buffer b(8, "aBc1\xC4");
    EXPECT_EQ(b + 5, s_strupr(b));
    EXPECT_STREQ("ABC1\xC4", b);
    EXPECT_EQ(b + 5, s_strlwr(b));
    EXPECT_STREQ("abc1\xC4", b);
    Buffer empty(1, "");
    EXPECT_EQ(empty, s_strlwr(empty));
    EXPECT_EQ(empty, s_strupr(empty));
    EXPECT_EQ(nullptr, s_strlwr(nullptr));
    EXPECT_EQ(nullptr, s_strupr(nullptr));
}

// --- Trimming and words ---

TEST(Strtrm, CutsWhiteSpaceAtBothEnds) {
    const struct {
        const char *text, *trimmed;
    } rows[] = {{"  hi \r\n", "hi"}, {"a b", "a b"}, {"", ""},    {" \t\r\n\v\f", ""},
                {"x", "x"},          {" x", "x"},    {"x ", "x"}, {"\xA0x\xA0", "\xA0x\xA0"}};
    for (const auto &row : rows) {
        std::string text = row.text;
        EXPECT_STREQ(row.trimmed, s_strtrm(text.data())) << row.text;
    }
    EXPECT_EQ(nullptr, s_strtrm(nullptr));
}

TEST(Strtrm, PointsIntoItsArgument) {
    Buffer b(8, "  hi  ");
    EXPECT_EQ(b + 2, s_strtrm(b));
    EXPECT_STREQ("  hi", b);
}

std::vector<std::string> words_of(std::string text, const char *delims) {
    std::vector<std::string> words;
    char *rest = nullptr;
    for (char *word = s_strtok(text.data(), delims, &rest); word; word = s_strtok(nullptr, delims, &rest))
        words.emplace_back(word);
    return words;
}

TEST(Strtok, SplitsAtRunsOfDelimiters) {
    using words = std::vector<std::string>;
    EXPECT_EQ((words{"a", "b"}), words_of("a,,b,", ","));
    EXPECT_EQ((words{"a", "b"}), words_of(",;a;,b", ",;"));
    EXPECT_EQ((words{"CopyFile", "a", "-"}), words_of("CopyFile \t a\t-", blanks));
    EXPECT_EQ((words{"abc"}), words_of("abc", ""));
    EXPECT_EQ(words{}, words_of("", ","));
    EXPECT_EQ(words{}, words_of(",,,", ","));
}

TEST(Strtok, KeepsThePositionBehindTheDelimiter) {
    Buffer b(8, "a b c");
    char *rest = nullptr;
    EXPECT_EQ(b, s_strtok(b, " ", &rest));
    EXPECT_EQ(b + 2, rest);
    EXPECT_STREQ("b c", rest) << "the rest of the line as it stands";
}

TEST(Strtok, KeepsNullBehindAWordThatEndsTheText) {
    Buffer b(8, "a b");
    char *rest = b + 2;
    EXPECT_EQ(b + 2, s_strtok(nullptr, " ", &rest));
    EXPECT_EQ(nullptr, rest);
    EXPECT_EQ(nullptr, s_strtok(nullptr, " ", &rest));
}

TEST(Strtok, LeavesThePositionWhenNothingIsLeft) {
    Buffer b(8, "a   ");
    char *rest = nullptr;
    s_strtok(b, " ", &rest);
    char *const kept = rest;
    EXPECT_EQ(b + 2, kept);
    EXPECT_EQ(nullptr, s_strtok(nullptr, " ", &rest));
    EXPECT_EQ(kept, rest);
}

TEST(Strtok, TakesAOneShotSplit) {
    Buffer b(8, "a b");
    EXPECT_EQ(b, s_strtok(b, " ", nullptr));
    EXPECT_STREQ("a", b);
}

TEST(Strtok, GivesNullForNull) {
    Buffer b(8, "a b");
    char *rest = nullptr;
    EXPECT_EQ(nullptr, s_strtok(b, nullptr, &rest));
    EXPECT_EQ(nullptr, s_strtok(nullptr, " ", &rest));
    EXPECT_EQ(nullptr, s_strtok(nullptr, " ", nullptr));
    EXPECT_STREQ("a b", b);
}

// --- Truth words and numbers ---

TEST(TruthWords, Table) {
    const struct {
        const char *text;
        int is_true, is_false;
    } rows[] = {
        {"true", 1, 0},     {"yes", 1, 0},   {"y", 1, 0},        {"on", 1, 0},    {"checked", 1, 0},
        {"selected", 1, 0}, {"Yes", 1, 0},   {"TRUE", 1, 0},     {"2", 1, 0},     {"1", 1, 0},
        {"-3", 1, 0},       {"07", 1, 0},    {" 5", 1, 0},       {"1x", 1, 0},    {"false", 0, 1},
        {"no", 0, 1},       {"n", 0, 1},     {"off", 0, 1},      {"OFF", 0, 1},   {"0", 0, 1},
        {"00", 0, 1},       {"-0", 0, 1},    {"x0", 0, 1},       {"x5", 0, 1},    {"0x1", 0, 1},
        {"maybe", 0, 0},    {"", 0, 0},      {"x", 0, 0},        {"xx0", 0, 0},   {"-x0", 0, 0},
        {" no", 0, 0},      {"yes ", 0, 0},  {"enabled", 0, 0},  {nullptr, 0, 0}, {" 0", 0, 1},
        {"tru", 0, 0},      {"truer", 0, 0}, {"disabled", 0, 0},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(row.is_true, istrue(row.text)) << str(row.text);
        EXPECT_EQ(row.is_false, isfalse(row.text)) << str(row.text);
    }
}

TEST(Number, WritesEveryIntIntoOneBuffer) {
    EXPECT_STREQ("0", number(0));
    EXPECT_STREQ("2147483647", number(INT_MAX));
    const char *const first = number(7);
    EXPECT_EQ(first, number(INT_MIN));
    EXPECT_STREQ("-2147483648", first);
}

TEST(CommaNumber, SeparatesTheThousands) {
    const struct {
        const char *text, *result;
    } rows[] = {
        {"", ""},
        {"1", "1"},
        {"123", "123"},
        {"1234", "1,234"},
        {"123456", "123,456"},
        {"1234567", "1,234,567"},
        {"1234567.891011", "1,234,567.891011"},
        {"1234 bytes", "1,234 bytes"},
        {"1,234", "1,234"},
        {"1234,567", "1,234,567"},
        {"1,234567", "1,234,567"},
        {".1234", ".1234"},
        {"-1234", "-1234"},
        {"abc", "abc"},
    };
    for (const auto &row : rows) {
        Buffer b(40, row.text);
        EXPECT_EQ(b, comma_number(b, 40)) << row.text;
        EXPECT_STREQ(row.result, b) << row.text;
    }
}

TEST(CommaNumber, ChangesNothingWhenTheResultDoesNotFit) {
    Buffer b(10, "1234567");
    EXPECT_EQ(nullptr, comma_number(b, 9)) << "nine characters and the terminator need ten";
    EXPECT_STREQ("1234567", b);
    EXPECT_EQ(b, comma_number(b, 10));
    EXPECT_STREQ("1,234,567", b);
    EXPECT_EQ(nullptr, comma_number(b, 0));
    EXPECT_EQ(nullptr, comma_number(b, -1));
    EXPECT_EQ(nullptr, comma_number(nullptr, 10));
}

} // namespace
} // namespace installer
