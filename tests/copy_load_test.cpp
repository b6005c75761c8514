// Copy script: reading a section, its fields and references, the accessors, the error reporter.

#include "tests/copy_support.h"

#include <cstdint>
#include <random>

namespace installer::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

class CopyLoad : public CopyScript {
  protected:
    /// The record as one text: type and fields, "~" for a field it has not.
    std::string record(std::uint32_t index) {
        std::string text = std::to_string(x->list[index].type);
        for (const char *field : {copy_src(x, index), copy_dst(x, index), copy_not(x, index),
                                  copy_control(x, index), copy_control_cmp(x, index)})
            text += std::string("|") + (field ? field : "~");
        return text;
    }

    std::string expanded(const std::string &text) {
        const text_ptr result(replace_vars(x, text.c_str()));
        return result ? result.get() : "(null)";
    }
};

TEST_F(CopyLoad, AScriptThatCannotBeReadIsNotLoaded) {
    EXPECT_EQ(0, copy_load(x, test::unreadable, "install"));
    EXPECT_EQ(0U, copy_count(x));
    EXPECT_THAT(log_lines(), testing::Contains("Error: Error reading '/proc/self/mem', Input/output error"));
}

TEST_F(CopyLoad, AFolderHoldsNoSection) {
    EXPECT_EQ(0, copy_load(x, ".", "install"));
    EXPECT_THAT(errors(), IsEmpty());
}

// ---- Sections ----

TEST_F(CopyLoad, SectionNamesAreComparedIgnoringCaseAfterTrimming) {
    const struct {
        const char *header;
        const char *wanted;
        int found;
    } rows[] = {
        {"[install]", "install", 1},   {"[INSTALL]", "install", 1},       {"[install]", "InStall", 1},
        {"[install] ", "install", 1},  {" \t[install]\t ", "install", 1}, {"[install]\r", "install", 1},
        {"[install", "install", 1},    {"[install] x", "install", 0},     {"[install] x", "install] x", 1},
        {"[install]]", "install]", 1}, {"[ install]", "install", 0},      {"[installer]", "install", 0},
        {"[upgrade]", "install", 0},   {"install]", "install", 0},        {"# [install]", "install", 0},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(row.found, load_text(std::string(row.header) + "\nMkDir a\n", row.wanted)) << row.header;
        EXPECT_EQ(row.found ? 1U : 0U, copy_count(x)) << row.header;
    }
}

TEST_F(CopyLoad, ASectionEndsAtTheNextHeaderAndASecondOneOfItsNameIsNeverRead) {
    EXPECT_EQ(1, load_text("[install]\nMkDir a\n[upgrade]\nMkDir b\n[install]\nMkDir c\n"));
    ASSERT_EQ(1U, copy_count(x));
    EXPECT_STREQ("a", copy_src(x, 0));
    EXPECT_EQ(1, load_text("[install]\nMkDir a\n[install]\nMkDir c\n"));
    EXPECT_EQ(1U, copy_count(x));
}

TEST_F(CopyLoad, LinesBeforeTheSectionAreNeitherReadNorLogged) {
    EXPECT_EQ(1, load_text("Frob\nMkDir a\n[other]\nFrob\n[install]\nMkDir b\n"));
    ASSERT_EQ(1U, copy_count(x));
    EXPECT_STREQ("b", copy_src(x, 0));
    EXPECT_THAT(errors(), IsEmpty());
    EXPECT_THAT(log_lines(), Not(Contains("Debug: Process .cpy file line [MkDir a]")));
}

TEST_F(CopyLoad, EmptyLinesAndCommentsMeanNothing) {
    load("\n   \t\n# MkDir a\n   # MkDir b\nMkDir c # d");
    ASSERT_EQ(1U, copy_count(x));
    EXPECT_EQ("260|c|~|~|#|d", record(0)) << "a comment begins its line";
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(CopyLoad, AFoundSectionWithoutAValidLineIsASuccess) {
    EXPECT_EQ(1, load_text("[install]\n"));
    EXPECT_EQ(0U, copy_count(x));
    EXPECT_EQ(1, load_text("[install]"));
}

TEST_F(CopyLoad, AMissingSectionFailsWithoutAWord) {
    EXPECT_EQ(0, load_text("[upgrade]\nMkDir a\n"));
    EXPECT_EQ(0U, copy_count(x));
    EXPECT_EQ(0, load_text(""));
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(CopyLoad, AScriptThatCannotBeOpenedIsReportedWithTheReason) {
    EXPECT_EQ(0, copy_load(x, "nosuch.cpy", "install"));
    EXPECT_THAT(errors(), ElementsAre("Error opening 'nosuch.cpy', No such file or directory"));
}

TEST_F(CopyLoad, NullArgumentsLoadNothing) {
    write_file("a.cpy", "[install]\nMkDir a\n");
    EXPECT_EQ(0, copy_load(nullptr, "a.cpy", "install"));
    EXPECT_EQ(0, copy_load(x, nullptr, "install"));
    EXPECT_EQ(0, copy_load(x, "a.cpy", nullptr));
    EXPECT_EQ(0U, copy_count(x));
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(CopyLoad, ASecondLoadStartsAfresh) {
    load("MkDir a\nMkDir b");
    write_file("b.cpy", "[install]\nMkDir c\n");
    EXPECT_EQ(1, copy_load(x, "b.cpy", "install"));
    ASSERT_EQ(1U, copy_count(x));
    EXPECT_STREQ("c", copy_src(x, 0));
    EXPECT_EQ(0, copy_load(x, "b.cpy", "nosuch"));
    EXPECT_EQ(0U, copy_count(x));
}

TEST_F(CopyLoad, ALoadThatCannotOpenItsFileKeepsTheRecords) {
    load("MkDir a");
    EXPECT_EQ(0, copy_load(x, "nosuch.cpy", "install"));
    EXPECT_EQ(1U, copy_count(x));
}

// ---- Fields ----

TEST_F(CopyLoad, EachCommandTakesItsFieldsInTheirFixedOrder) {
    const struct {
        const char *line;
        const char *expected; // type|source|dest|not|control|control_cmp
    } rows[] = {
        {"CopyFile s n d c v", "257|s|d|n|c|v"}, {"CopyFile s n d", "257|s|d|n|~|~"},
        {"CopyDir s n d c v", "258|s|d|n|c|v"},  {"MkDir s c v", "260|s|~|~|c|v"},
        {"Ini s d c v", "264|s|d|~|c|v"},        {"Rename s d c v", "272|s|d|~|c|v"},
        {"RmFile s n c v", "513|s|~|n|c|v"},     {"RmDir s n c v", "514|s|~|n|c|v"},
        {"Exist s d c v", "1024|s|d|~|c|v"},     {"Chown s n d c v", "2048|s|d|n|c|v"},
        {"Chmod s n d c v", "2049|s|d|n|c|v"},   {"Error s d c v", "4096|s|d c v|~|~|~"},
        {"WFile s d c v", "8192|s|d|~|c|v"},     {"RFile s d c v", "16384|s|d|~|c|v"},
        {"WFile s d c", "8192|s|d|~|c|~"},       {"Chmod s n d c v more words", "2049|s|d|n|c|v"},
    };
    for (const auto &row : rows) {
        load(row.line);
        ASSERT_EQ(1U, copy_count(x)) << row.line;
        EXPECT_EQ(row.expected, record(0)) << row.line;
    }
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(CopyLoad, KeywordsAreMatchedIgnoringCase) {
    load("COPYFILE s n d\nmkdir s\nrFiLe s d");
    ASSERT_EQ(3U, copy_count(x));
    EXPECT_EQ("257|s|d|n|~|~", record(0));
    EXPECT_EQ("260|s|~|~|~|~", record(1));
    EXPECT_EQ("16384|s|d|~|~|~", record(2));
}

TEST_F(CopyLoad, AnyRunOfBlanksAndTabsSeparatesFields) {
    EXPECT_EQ(1, load_text("[install]\r\n \tCopyFile\t\t s \t n\td\t\r\n"));
    ASSERT_EQ(1U, copy_count(x));
    EXPECT_EQ("257|s|d|n|~|~", record(0));
}

TEST_F(CopyLoad, ALineWithTooFewFieldsIsToldAllItLacksAndDropped) {
    const std::string source = "Missing copy source path";
    const std::string not_ = "Missing not wildcard";
    const std::string dest = "Missing copy destination path";
    const struct {
        const char *line;
        std::vector<std::string> complaints;
    } rows[] = {
        {"MkDir", {source}},
        {"Error", {source}},
        {"CopyFile", {source, not_, dest}},
        {"CopyFile /a/b/*.cgi", {not_, dest}},
        {"CopyDir s n", {dest}},
        {"RmFile s", {not_}},
        {"RmDir", {source, not_}},
        {"Rename s", {dest}},
        {"Ini", {source, dest}},
        {"Exist s", {dest}},
        {"Chown s", {not_, dest}},
        {"Chmod s n", {dest}},
        {"WFile s", {dest}},
        {"RFile", {source, dest}},
        {"Frob a", {"Unknown copy type 'Frob'", not_, dest}},
    };
    std::vector<std::string> expected;
    for (const auto &row : rows) {
        load(row.line);
        EXPECT_EQ(0U, copy_count(x)) << row.line;
        expected.insert(expected.end(), row.complaints.begin(), row.complaints.end());
        EXPECT_EQ(expected, errors()) << row.line;
    }
}

TEST_F(CopyLoad, ADroppedLineLeavesNothingInTheRecordOfTheNextOne) {
    load("CopyFile left over\nMkDir a\nChown x\nError s text");
    ASSERT_EQ(2U, copy_count(x));
    EXPECT_EQ("260|a|~|~|~|~", record(0));
    EXPECT_EQ("4096|s|text|~|~|~", record(1));
}

TEST_F(CopyLoad, AnUnknownKeywordIsReportedAndKeepsARecordOfTypeZero) {
    load("Frob a b c d e");
    EXPECT_THAT(errors(), ElementsAre("Unknown copy type 'Frob'"));
    ASSERT_EQ(1U, copy_count(x));
    EXPECT_EQ("0|a|c|b|d|e", record(0));
}

TEST_F(CopyLoad, TheFamiliesHaveNoKeyword) {
    load("Cpy a b c\nRm a b c");
    EXPECT_THAT(errors(), ElementsAre("Unknown copy type 'Cpy'", "Unknown copy type 'Rm'"));
}

TEST_F(CopyLoad, AnErrorsMessageRunsToTheEndOfTheLineAsItIsWritten) {
    load("Error done Installation failed: see log\nError done  two  [b] # \t\nError done");
    ASSERT_EQ(3U, copy_count(x));
    EXPECT_EQ("4096|done|Installation failed: see log|~|~|~", record(0));
    EXPECT_EQ("4096|done| two  [b] #|~|~|~", record(1));
    EXPECT_EQ("4096|done|~|~|~|~", record(2));
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(CopyLoad, ANotOfExactlyADashMeansNoExclusion) {
    load("RmFile a -\nRmFile a --\nRmFile a -,b\nRename - -");
    ASSERT_EQ(4U, copy_count(x));
    EXPECT_EQ(nullptr, copy_not(x, 0));
    EXPECT_STREQ("--", copy_not(x, 1));
    EXPECT_STREQ("-,b", copy_not(x, 2));
    EXPECT_EQ("272|-|-|~|~|~", record(3));
}

TEST_F(CopyLoad, ALineLongerThanTheBufferIsReadInPieces) {
    load("MkDir " + std::string(1100, 'a'));
    ASSERT_EQ(1U, copy_count(x)) << "the tail of 107 characters is a line of one word";
    EXPECT_EQ(std::string(993, 'a'), copy_src(x, 0));
    EXPECT_THAT(errors(),
                ElementsAre("Unknown copy type '" + std::string(107, 'a') + "'", "Missing copy source path",
                            "Missing not wildcard", "Missing copy destination path"));
}

TEST_F(CopyLoad, RecordsGrowByFiveAndTheSpareOnesAreZero) {
    load("MkDir a\nMkDir b\nMkDir c\nMkDir d\nMkDir e\nMkDir f");
    ASSERT_EQ(6U, copy_count(x));
    EXPECT_STREQ("a", copy_src(x, 0));
    EXPECT_STREQ("f", copy_src(x, 5));
    for (std::uint32_t i = 6; i < 10; ++i)
        EXPECT_EQ("0|~|~|~|~|~", [&] {
            const copy_cmd &spare = x->list[i];
            std::string text = std::to_string(spare.type);
            for (const char *field : {spare.source, spare.dest, spare.not_, spare.control, spare.control_cmp})
                text += std::string("|") + (field ? field : "~");
            return text;
        }());
}

TEST_F(CopyLoad, ManyRecordsKeepTheirOrder) {
    std::string lines;
    for (int i = 0; i < 237; ++i)
        lines += "MkDir d" + std::to_string(i) + "\nMkDir\n";
    load(lines);
    ASSERT_EQ(237U, copy_count(x));
    for (std::uint32_t i = 0; i < 237; ++i)
        EXPECT_EQ("d" + std::to_string(i), copy_src(x, i));
}

TEST_F(CopyLoad, EveryStepIsLoggedForDebugging) {
    load("CopyFile s n d c v\nError e text\nMkDir");
    EXPECT_THAT(log_lines(),
                ElementsAre("Debug: Process .cpy file line [CopyFile s n d c v]",
                            "Debug: Copy line 'type' is [257]", "Debug: Copy line 'source' is [s]",
                            "Debug: Copy line 'not' is [n]", "Debug: Copy line 'destination' is [d]",
                            "Debug: Copy line 'control' is [c]", "Debug: Copy line 'control_cmp' is [v]",
                            "Debug: Process .cpy file line [Error e text]",
                            "Debug: Copy line 'type' is [4096]", "Debug: Copy line 'source' is [e]",
                            "Debug: Copy list error string is 'text'",
                            "Debug: Process .cpy file line [MkDir]", "Debug: Copy line 'type' is [260]",
                            "Error: Missing copy source path", "Debug: Copy line 'source' is []"));
}

TEST_F(CopyLoad, ComplaintsDoNotCarryTheReasonOfAnEarlierFailure) {
    write_file(script(), "[install]\nFrob a b c\nMkDir\n");
    errno = EACCES;
    EXPECT_EQ(1, copy_load(x, script().c_str(), "install"));
    EXPECT_THAT(errors(), ElementsAre("Unknown copy type 'Frob'", "Missing copy source path"));
}

TEST_F(CopyLoad, AnyBytesAreTaken) {
    std::mt19937 bytes(1);
    const std::string words[] = {"[install]\n", "CopyFile ", "$(", ")", "Error ", "\n", "\t", "-", "["};
    for (int round = 0; round < 50; ++round) {
        std::string text = "[install]\n";
        for (int i = 0; i < 2000; ++i) {
            const auto n = bytes();
            text +=
                n % 5 == 0 ? words[n / 5 % std::size(words)] : std::string(1, static_cast<char>(n / 5 % 256));
        }
        EXPECT_EQ(1, load_text(text));
        for (std::uint32_t i = 0; i < copy_count(x); ++i)
            EXPECT_NE(nullptr, copy_src(x, i));
    }
}

TEST_F(CopyLoad, ANulByteEndsItsLine) {
    EXPECT_EQ(1, load_text(std::string("[install]\nMkDir a\0b c\nMkDir d\n", 30)));
    ASSERT_EQ(2U, copy_count(x));
    EXPECT_EQ("260|a|~|~|~|~", record(0));
    EXPECT_EQ("260|d|~|~|~|~", record(1));
}

// ---- References ----

TEST_F(CopyLoad, SourceAndDestAreExpandedAndTheOtherFieldsAreNot) {
    set("dir", "/srv/www");
    load("CopyFile $(dir)/cgi-bin/* $(dir) $(nosuch)/x $(dir) $(dir)\nError $(dir) in $(dir)!");
    ASSERT_EQ(2U, copy_count(x));
    EXPECT_EQ("257|/srv/www/cgi-bin/*|/x|$(dir)|$(dir)|$(dir)", record(0));
    EXPECT_EQ("4096|/srv/www|in /srv/www!|~|~|~", record(1));
}

TEST_F(CopyLoad, WithoutAStoreTheRecordsStayAsWritten) {
    write_file("a.cpy", "[install]\nCopyFile $(dir)/a - $(dir)/b\n");
    copy_free(&x);
    x = copy_init(nullptr);
    ASSERT_EQ(1, copy_load(x, "a.cpy", "install"));
    EXPECT_EQ("257|$(dir)/a|$(dir)/b|-|~|~", record(0));
}

TEST_F(CopyLoad, ProcessingPathsPreparesOneRecordThatExists) {
    write_file("a.cpy", "[install]\nRmFile $(dir)/a -\nRmFile $(dir)/b -\n");
    copy_free(&x);
    x = copy_init(nullptr);
    ASSERT_EQ(1, copy_load(x, "a.cpy", "install"));
    set("dir", "d");
    x->ini = settings();
    copy_processpaths(x, 1);
    copy_processpaths(x, 2);
    copy_processpaths(nullptr, 0);
    EXPECT_EQ("513|$(dir)/a|~|-|~|~", record(0));
    EXPECT_EQ("513|d/b|~|~|~|~", record(1));
}

TEST_F(CopyLoad, ReferencesBecomeTheirValueAndUnknownOnesDisappear) {
    set("dir", "/srv/www");
    set("again", "<$(dir)>");
    set("empty", "");
    const struct {
        const char *text;
        const char *expected;
    } rows[] = {
        {"$(dir)/cgi-bin/*", "/srv/www/cgi-bin/*"},
        {"a$(dir)b$(dir)c", "a/srv/wwwb/srv/wwwc"},
        {"$(nosuch)/x", "/x"},
        {"a$(nosuch)", "a"},
        {"$(nosuch)", ""},
        {"$(DIR)/x", "/x"},       // names are exact
        {"$( dir)/x", "/x"},      //
        {"$()/x", "/x"},          //
        {"$(again)", "<$(dir)>"}, // one level only
        {"[$(empty)]", "[]"},
        {"$$(dir))", "$/srv/www)"},
        {"$($(dir)", ""},                   // the name runs to the first ")"
        {"$(dir)$(open", "/srv/www$(open"}, // never closed: as it stands
        {"$(", "$("},
        {"a$(nosuch)b$(", "ab$("},
        {"plain", "(null)"},
        {"", "(null)"},
        {"$dir) $ (dir) (dir)", "(null)"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(row.expected, expanded(row.text)) << row.text;
}

TEST_F(CopyLoad, ReplaceVarsTakesNull) {
    EXPECT_EQ(nullptr, replace_vars(nullptr, "$(a)"));
    EXPECT_EQ(nullptr, replace_vars(x, nullptr));
    x->ini = nullptr;
    EXPECT_EQ("/x", expanded("$(a)/x"));
}

TEST_F(CopyLoad, EveryPieceAndTheWholeStayWithinTheirBounds) {
    set("long", std::string(9500, 'v'));
    set("short", "s");
    EXPECT_EQ(std::string(8999, 'v'), expanded("$(long)"));
    EXPECT_EQ(std::string(8999, 'v') + std::string(1000, 'v'), expanded("$(long)$(long)$(long)"));
    EXPECT_EQ(std::string(8999, 't'), expanded("$(nosuch)" + std::string(9500, 't')));
    EXPECT_EQ(std::string(8999, 't') + "s" + std::string(999, 'v'),
              expanded(std::string(9500, 't') + "$(short)$(long)$(short)tail"));
}

TEST_F(CopyLoad, ANameLongerThanAnySettingsIsUnknown) {
    for (const std::size_t length : {1000U, 1001U, 5000U}) {
        const std::string name(length, 'n');
        set(name.c_str(), "value");
        EXPECT_EQ("/x", expanded("$(" + name + ")/x")) << length;
    }
    const std::string longest(999, 'n');
    set(longest.c_str(), "value");
    EXPECT_EQ("value/x", expanded("$(" + longest + ")/x"));
}

// ---- Accessors ----

TEST_F(CopyLoad, AccessorsAnswerNullOutsideTheRecords) {
    load("CopyFile a/b n c/d e f");
    char buffer[path_size];
    for (copy *object : {x, static_cast<copy *>(nullptr)}) {
        const std::uint32_t index = object ? 1 : 0;
        EXPECT_EQ(nullptr, copy_src(object, index));
        EXPECT_EQ(nullptr, copy_dst(object, index));
        EXPECT_EQ(nullptr, copy_not(object, index));
        EXPECT_EQ(nullptr, copy_control(object, index));
        EXPECT_EQ(nullptr, copy_control_cmp(object, index));
        EXPECT_EQ(nullptr, copy_src_path(object, index, buffer, path_size));
        EXPECT_EQ(nullptr, copy_src_file(object, index, buffer, path_size));
        EXPECT_EQ(nullptr, copy_dst_path(object, index, buffer, path_size));
        EXPECT_EQ(nullptr, copy_dst_file(object, index, buffer, path_size));
    }
    EXPECT_EQ(0U, copy_count(nullptr));
}

TEST_F(CopyLoad, TypeQuestionsLookAtTheTypeAlone) {
    load("CopyFile a b c\nCopyDir a b c\nMkDir a\nRmDir a b\nRmFile a b\nIni a b");
    const struct {
        int (*question)(copy *, std::uint32_t);
        std::uint32_t index;
    } rows[] = {{copy_cpyfile, 0}, {copy_cpydir, 1}, {copy_mkdir, 2},
                {copy_rmdir, 3},   {copy_rmfile, 4}, {copy_ini, 5}};
    for (const auto &row : rows)
        for (std::uint32_t i = 0; i < copy_count(x); ++i)
            EXPECT_EQ(i == row.index ? 1 : 0, row.question(x, i)) << row.index << " asked of " << i;
}

TEST_F(CopyLoad, TypeQuestionsDoNotLookAtTheCount) {
    load("CopyFile a b c");
    x->count = 0;
    EXPECT_EQ(1, copy_cpyfile(x, 0));
    EXPECT_EQ(nullptr, copy_src(x, 0));
    x->count = 1;
    EXPECT_EQ(0, copy_mkdir(nullptr, 0));
    copy *empty = copy_init(settings());
    EXPECT_EQ(0, copy_ini(empty, 0));
    copy_free(&empty);
}

TEST_F(CopyLoad, PathsAreSplitAtTheirLastSeparator) {
    const std::string cwd = dir();
    const struct {
        const char *path;
        std::string directory;
        const char *source;
        const char *dest; // null: names nothing
    } rows[] = {
        {"/tmp/", "/tmp/", "*", nullptr},
        {"/tmp/a.txt", "/tmp/", "a.txt", "a.txt"},
        {"file.txt", cwd, "file.txt", nullptr},
        {"/", "/", "*", nullptr},
        {"/a", "/", "a", "a"},
        {"a\\b*", "a\\", "b*", "b*"},
        {"a/b\\c", "a/b\\", "c", "c"},
        {"a\\b/c", "a\\b/", "c", "c"},
        {"a\\", "a\\", "*", nullptr},
        {"./*", "./", "*", "*"},
    };
    for (const auto &row : rows) {
        load("Rename " + std::string(row.path) + " " + row.path);
        char buffer[path_size];
        EXPECT_STREQ(row.directory.c_str(), copy_src_path(x, 0, buffer, path_size)) << row.path;
        EXPECT_STREQ(row.directory.c_str(), copy_dst_path(x, 0, buffer, path_size)) << row.path;
        EXPECT_STREQ(row.source, copy_src_file(x, 0, buffer, path_size)) << row.path;
        scpy(buffer, "untouched", path_size);
        EXPECT_STREQ(row.dest, copy_dst_file(x, 0, buffer, path_size)) << row.path;
        EXPECT_STREQ(row.dest ? row.dest : "untouched", buffer) << row.path;
    }
}

TEST_F(CopyLoad, AnEmptyPathNamesNothing) {
    load("Rename $(nosuch) $(nosuch)");
    char buffer[path_size];
    EXPECT_STREQ(dir().c_str(), copy_src_path(x, 0, buffer, path_size));
    EXPECT_STREQ("", copy_src_file(x, 0, buffer, path_size));
    EXPECT_EQ(nullptr, copy_dst_file(x, 0, buffer, path_size));
}

TEST_F(CopyLoad, AFieldThatIsNotThereHasNoPath) {
    load("MkDir a/b");
    char buffer[path_size];
    EXPECT_EQ(nullptr, copy_dst_path(x, 0, buffer, path_size));
    EXPECT_EQ(nullptr, copy_dst_file(x, 0, buffer, path_size));
}

TEST_F(CopyLoad, PathsAreCutToTheBufferAndAlwaysTerminated) {
    load("Rename abc/defg abc/defg");
    char buffer[] = "########";
    EXPECT_STREQ("ab", copy_src_path(x, 0, buffer, 3));
    EXPECT_STREQ("de", copy_src_file(x, 0, buffer, 3));
    EXPECT_STREQ("a", copy_dst_path(x, 0, buffer, 2));
    EXPECT_STREQ("def", copy_dst_file(x, 0, buffer, 4));
    EXPECT_STREQ("####", buffer + 4);
    EXPECT_STREQ("abc/", copy_src_path(x, 0, buffer, 5));
    for (auto *accessor : {copy_src_path, copy_src_file, copy_dst_path, copy_dst_file}) {
        EXPECT_EQ(nullptr, accessor(x, 0, buffer, 0));
        EXPECT_EQ(nullptr, accessor(x, 0, nullptr, path_size));
    }
}

// ---- The object ----

TEST_F(CopyLoad, ANewObjectHasNoRecords) {
    copy *fresh = copy_init(settings());
    ASSERT_NE(nullptr, fresh);
    EXPECT_EQ(nullptr, fresh->list);
    EXPECT_EQ(settings(), fresh->ini);
    EXPECT_EQ(0U, copy_count(fresh));
    copy_free(&fresh);
    EXPECT_EQ(nullptr, fresh);
    copy_free(&fresh);
    copy_free(nullptr);
}

TEST_F(CopyLoad, SetupHandsTheCallbacksToTheFileModule) {
    const auto done = [](const char *, const char *, int) {};
    const auto failed = [](const char *, const char *, int) {};
    copy_setup(x, done, failed);
    EXPECT_EQ(static_cast<file_callback>(done), ok);
    EXPECT_EQ(static_cast<file_callback>(failed), fail);
    copy_setup(nullptr, nullptr, nullptr);
    EXPECT_EQ(nullptr, ok);
    EXPECT_EQ(nullptr, fail);
}

// ---- The reporter ----

TEST_F(CopyLoad, ReportsCarryTheSystemsReasonWhenThereIsOne) {
    errno = 0;
    cerror("Only %s %d", "text", 7);
    errno = EACCES;
    cerror("With %s", "reason");
    EXPECT_EQ(EACCES, errno);
    cerror(nullptr);
    EXPECT_THAT(errors(), ElementsAre("Only text 7", "With reason, Permission denied"));
    EXPECT_STREQ("", copy_error()) << "reports are no messages of the script";
}

TEST_F(CopyLoad, ALongReportIsCut) {
    errno = EACCES;
    cerror("%s", std::string(2000, 'r').c_str());
    EXPECT_THAT(errors(), ElementsAre(std::string(999, 'r')));
}

} // namespace
} // namespace installer::test
