#include "installer/quest.h"

#include "installer/lib.h"
#include "support.h"

#include <cstring>
#include <iterator>

namespace installer {
namespace {

using test::LogDir;
using test::write_file;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::StrEq;

class Quest : public LogDir {
  protected:
    Quest() { errno = 0; }
    ~Quest() override { quest_free(&set); }

    /// Loads "install" from a script of that section with these lines.
    int load(const std::string &lines) {
        write_file("s.q", "[install]\n" + lines);
        return quest_load(set, "s.q", "install");
    }

    [[nodiscard]] std::vector<std::string> errors() const {
        std::vector<std::string> errors;
        for (const std::string &line : log_lines())
            if (line.rfind("Error: ", 0) == 0)
                errors.push_back(line.substr(7));
        return errors;
    }

    questions *set = quest_init(nullptr);
};

TEST_F(Quest, AScriptThatCannotBeReadIsNotLoaded) {
    EXPECT_EQ(0, quest_load(set, test::unreadable, "install"));
    EXPECT_EQ(0U, quest_count(set));
    EXPECT_THAT(errors(), ElementsAre("Error reading '/proc/self/mem', Input/output error"));
}

TEST_F(Quest, AFolderHoldsNoSection) {
    EXPECT_EQ(0, quest_load(set, ".", "install"));
    EXPECT_THAT(errors(), ElementsAre("Section 'install' not found"));
}

// --- Entries ---

TEST_F(Quest, QuestionLineFillsTheFieldsInOrder) {
    ASSERT_EQ(1, load("DirExist install_dir mode full dir_help Where is $(product) to be installed?\n"));
    ASSERT_EQ(1U, quest_count(set));
    EXPECT_EQ(QDirExist, quest_type(set, 0));
    EXPECT_STREQ("install_dir", quest_setting(set, 0));
    EXPECT_STREQ("mode", quest_control(set, 0));
    EXPECT_STREQ("full", quest_control_cmp(set, 0));
    EXPECT_STREQ("dir_help", quest_help(set, 0));
    EXPECT_STREQ("Where is $(product) to be installed?", quest_text(set, 0));
}

TEST_F(Quest, ErrorLineHoldsSettingHelpAndText) {
    ASSERT_EQ(1, load("Error have_www www_help There is no\\nweb server\n"));
    EXPECT_EQ(QError, quest_type(set, 0));
    EXPECT_STREQ("have_www", quest_setting(set, 0));
    EXPECT_STREQ("www_help", quest_help(set, 0));
    EXPECT_STREQ("There is no\nweb serverr", quest_text(set, 0));
    EXPECT_EQ(nullptr, quest_control(set, 0));
    EXPECT_EQ(nullptr, quest_control_cmp(set, 0));
}

TEST_F(Quest, LoopLineHoldsSettingAndOneWord) {
    ASSERT_EQ(1, load("Loop again counter\n"));
    EXPECT_EQ(QLoop, quest_type(set, 0));
    EXPECT_STREQ("again", quest_setting(set, 0));
    EXPECT_STREQ("counter", quest_text(set, 0));
    EXPECT_EQ(nullptr, quest_help(set, 0));
}

TEST_F(Quest, ExistLineHoldsThePathBeforeTheSetting) {
    ASSERT_EQ(1, load("Exist /etc/passwd has_passwd\n"));
    EXPECT_EQ(QXExist, quest_type(set, 0));
    EXPECT_STREQ("/etc/passwd", quest_text(set, 0));
    EXPECT_STREQ("has_passwd", quest_setting(set, 0));
}

TEST_F(Quest, SingleWordTextsKeepTheirBackslashes) {
    ASSERT_EQ(1, load("Exist a\\nb found\nLoop again \\n7\n"));
    EXPECT_STREQ("a\\nb", quest_text(set, 0));
    EXPECT_STREQ("\\n7", quest_text(set, 1));
}

TEST_F(Quest, KeywordsGiveTheirTypesInAnyCase) {
    const struct {
        const char *line;
        std::uint32_t type;
    } rows[] = {
        {"Text s - - h t", 1},    {"TEXT s - - h t", 1},        {"yn s - - h t", 2},
        {"Dir s - - h t", 4},     {"DirExist s - - h t", 260},  {"direxist s - - h t", 260},
        {"File s - - h t", 8},    {"FileExist s - - h t", 264}, {"FileName s - - h t", 16},
        {"Copy s - - h t", 1024}, {"DirEmpty s - - h t", 8196}, {"Error s h t", 2048},
        {"Loop s t", 4096},       {"Exist t s", 512},           {"eXiSt t s", 512},
    };
    for (const auto &row : rows) {
        quest_clear(set);
        ASSERT_EQ(1, load(row.line)) << row.line;
        ASSERT_EQ(1U, quest_count(set)) << row.line;
        EXPECT_EQ(row.type, std::uint32_t{quest_type(set, 0)}) << row.line;
        EXPECT_STREQ("s", quest_setting(set, 0)) << row.line;
        EXPECT_STREQ("t", quest_text(set, 0)) << row.line;
    }
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(Quest, UnknownKeywordIsLoggedAndLoadedAsAQuestionOfTypeZero) {
    ASSERT_EQ(1, load("Number port mode full h Which port?\n"));
    EXPECT_THAT(errors(), ElementsAre("Unknown question type 'Number'"));
    ASSERT_EQ(1U, quest_count(set));
    EXPECT_EQ(0U, std::uint32_t{quest_type(set, 0)});
    EXPECT_STREQ("port", quest_setting(set, 0));
    EXPECT_STREQ("full", quest_control_cmp(set, 0));
    EXPECT_STREQ("Which port?", quest_text(set, 0));
}

TEST_F(Quest, ADashMeansNoneForTheConditionOnly) {
    ASSERT_EQ(1, load("Text - - - - -\nText s -- --- h t\n"));
    EXPECT_STREQ("-", quest_setting(set, 0));
    EXPECT_EQ(nullptr, quest_control(set, 0));
    EXPECT_EQ(nullptr, quest_control_cmp(set, 0));
    EXPECT_STREQ("-", quest_help(set, 0));
    EXPECT_STREQ("-", quest_text(set, 0));
    EXPECT_STREQ("--", quest_control(set, 1));
    EXPECT_STREQ("---", quest_control_cmp(set, 1));
}

TEST_F(Quest, WordsAreSplitAtRunsOfBlanksAndTabs) {
    ASSERT_EQ(1, load(" \tText\t\ts  -\t-   h \t  A  question?  \r\n"));
    EXPECT_STREQ("s", quest_setting(set, 0));
    EXPECT_STREQ("A  question?", quest_text(set, 0));
}

TEST_F(Quest, AMissingWordIsLoggedAndTheLineDropped) {
    const struct {
        const char *line;
        const char *message;
    } rows[] = {
        {"Text", "Missing setting label"},
        {"YN confirm", "Missing control"},
        {"Text s -", "Missing control comparison"},
        {"Text s - -", "Missing Help ID text"},
        {"Text name - - h", "Missing question text"},
        {"Copy s - - h  \t", "Missing question text"},
        {"Error", "Missing setting label"},
        {"Error s", "Missing Help ID text"},
        {"Error s h", "Missing question text"},
        {"Loop", "Missing setting label"},
        {"Loop s", "Missing Help ID text"},
        {"Exist", "Missing setting label"},
        {"Exist path", "Missing Help ID text"},
    };
    std::vector<std::string> expected;
    for (const auto &row : rows) {
        quest_clear(set);
        EXPECT_EQ(1, load(row.line)) << row.line;
        EXPECT_EQ(0U, quest_count(set)) << row.line;
        expected.emplace_back(row.message);
    }
    EXPECT_EQ(expected, errors());
}

TEST_F(Quest, NothingOfADroppedLineStaysInItsSlot) {
    ASSERT_EQ(1, load("YN confirm mode full\nLoop again 3\nText s x y\nBogus s - - h t\n"));
    ASSERT_EQ(2U, quest_count(set));
    EXPECT_EQ(QLoop, quest_type(set, 0));
    EXPECT_EQ(nullptr, quest_control(set, 0));
    EXPECT_EQ(nullptr, quest_control_cmp(set, 0));
    EXPECT_EQ(QUnknown, quest_type(set, 1));
    EXPECT_EQ(nullptr, quest_control(set, 1));
}

TEST_F(Quest, KeepsMoreEntriesThanOneGrowthStepInOrder) {
    std::string lines;
    for (int i = 0; i < 12; ++i)
        lines += "Loop s" + std::to_string(i) + " 0\nLoop dropped\n";
    ASSERT_EQ(1, load(lines));
    ASSERT_EQ(12U, quest_count(set));
    for (std::uint32_t i = 0; i < 12; ++i)
        EXPECT_EQ("s" + std::to_string(i), str(quest_setting(set, i)));
}

TEST_F(Quest, TypeValuesComposeAsTheirNamesSay) {
    EXPECT_EQ(QDirExist, QDir | QExist);
    EXPECT_EQ(QFileExist, QFile | QExist);
    EXPECT_EQ(QDirEmpty, QDir | QEmpty);
    EXPECT_EQ(QDir, QDirEmpty & QDir);
    EXPECT_EQ(0U, std::uint32_t{QXExist & QExist});
}

// --- Escapes ---

TEST_F(Quest, EscapesLeaveAsManyOldCharactersBehindTheText) {
    const struct {
        const char *from, *to;
    } rows[] = {
        {"one\\ntwo", "one\ntwoo"}, // one escape: the last character follows once more
        {"a\\tb", "a\tbb"},         //
        {"a\\nb\\nc", "a\nb\ncnc"}, // two escapes: the last two characters of the old text follow
        {"\\n", "\nn"},             //
        {"\\\\", "\\\\"},           // a doubled backslash is one, and the old last character is one, too
        {"\\q", "qq"},              //
        {"C:\\\\x y", "C:\\x yy"},  //
        {"plain", "plain"},         //
        {"", ""},                   //
        {"tail\\", "tail\\"},       // a backslash at the end stays
        {"\\n\\", "\n\\\\"},        //
    };
    for (const auto &row : rows) {
        const text_ptr text(s_strdup(row.from)); // of exactly this size, so that a step past the end shows
        cvt_linefeeds(text.get());
        EXPECT_STREQ(row.to, text.get()) << row.from;
    }
    cvt_linefeeds(nullptr);
}

TEST_F(Quest, EscapesAreConvertedInTheTextsOfQuestionsAndCopies) {
    ASSERT_EQ(1, load("Text s - - h one\\ntwo\nCopy s - - h a\\tb\n"));
    EXPECT_STREQ("one\ntwoo", quest_text(set, 0));
    EXPECT_STREQ("a\tbb", quest_text(set, 1));
}

// --- Sections ---

TEST_F(Quest, OnlyTheWantedSectionIsLoaded) {
    write_file("s.q", "Loop before 0\n[remove]\nLoop r 0\n[install]\n# no\n\n  # neither\nLoop i 0\n"
                      "[upgrade]\nLoop u 0\n[install]\nLoop late 0\n");
    ASSERT_EQ(1, quest_load(set, "s.q", "install"));
    ASSERT_EQ(1U, quest_count(set));
    EXPECT_STREQ("i", quest_setting(set, 0));
    EXPECT_STREQ("install", set->section);
}

TEST_F(Quest, SectionHeadersThatMatch) {
    for (const char *header : {"[install]", "[INSTALL]", "[Install", "  [install]  \r"}) {
        quest_clear(set);
        write_file("s.q", std::string(header) + "\nLoop s 0\n");
        EXPECT_EQ(1, quest_load(set, "s.q", "install")) << header;
        EXPECT_EQ(1U, quest_count(set)) << header;
    }
}

TEST_F(Quest, SectionHeadersThatDoNotMatch) {
    for (const char *header :
         {"[install] old", "[install]]", "[ install]", "install", "[installs]", "[]", "["}) {
        write_file("s.q", std::string(header) + "\nLoop s 0\n");
        EXPECT_EQ(0, quest_load(set, "s.q", "install")) << header;
        EXPECT_EQ(0U, quest_count(set)) << header;
        EXPECT_EQ(nullptr, set->section) << header;
    }
    EXPECT_THAT(errors(), testing::Each(StrEq("Section 'install' not found")));
}

TEST_F(Quest, AnEmptySectionNameNamesNoSection) {
    write_file("s.q", "[]\nLoop s 0\n");
    EXPECT_EQ(0, quest_load(set, "s.q", ""));
    EXPECT_THAT(errors(), ElementsAre("Section '' not found"));
}

TEST_F(Quest, AMissingSectionIsLoggedButIsNoLastError) {
    quest_seterror("earlier");
    write_file("s.q", "[remove]\n");
    EXPECT_EQ(0, quest_load(set, "s.q", "install"));
    EXPECT_THAT(errors(), ElementsAre("earlier", "Section 'install' not found"));
    EXPECT_STREQ("earlier", quest_error());
}

TEST_F(Quest, AnEmptySectionLoadsNoEntries) {
    ASSERT_EQ(1, load(""));
    EXPECT_EQ(0U, quest_count(set));
    EXPECT_STREQ("install", set->section);
}

TEST_F(Quest, TheLoadedSectionIsNotReadAgain) {
    ASSERT_EQ(1, load("Loop s 0\n"));
    ASSERT_EQ(0, std::remove("s.q"));
    EXPECT_EQ(1, quest_load(set, "s.q", "INSTALL"));
    EXPECT_EQ(1, quest_load(set, "other.q", "install"));
    EXPECT_EQ(1U, quest_count(set));
}

TEST_F(Quest, AnotherSectionReplacesTheLoadedOne) {
    write_file("s.q", "[install]\nLoop i 0\nLoop j 0\n[remove]\nLoop r 0\n");
    ASSERT_EQ(1, quest_load(set, "s.q", "install"));
    ASSERT_EQ(1, quest_load(set, "s.q", "remove"));
    ASSERT_EQ(1U, quest_count(set));
    EXPECT_STREQ("r", quest_setting(set, 0));
}

TEST_F(Quest, AFailedLoadLeavesTheSetEmpty) {
    ASSERT_EQ(1, load("Loop s 0\n"));
    EXPECT_EQ(0, quest_load(set, "s.q", "remove"));
    EXPECT_EQ(0U, quest_count(set));
    EXPECT_EQ(nullptr, set->section);
}

TEST_F(Quest, AFileThatCannotBeOpenedIsTheLastError) {
    EXPECT_EQ(0, quest_load(set, "nosuch.q", "install"));
    EXPECT_STREQ("Error opening 'nosuch.q', No such file or directory", quest_error());
    EXPECT_THAT(errors(), ElementsAre("Error opening 'nosuch.q', No such file or directory"));
}

TEST_F(Quest, NullArgumentsLoadNothingAndLeaveTheSetAlone) {
    ASSERT_EQ(1, load("Loop s 0\n"));
    EXPECT_EQ(0, quest_load(nullptr, "s.q", "install"));
    EXPECT_EQ(0, quest_load(set, nullptr, "install"));
    EXPECT_EQ(0, quest_load(set, "s.q", nullptr));
    EXPECT_EQ(1U, quest_count(set));
}

TEST_F(Quest, LoadingForgetsAnErrorNumberOfEarlier) {
    write_file("s.q", "[install]\n");
    errno = EDOM;
    EXPECT_EQ(1, quest_load(set, "s.q", "install"));
    EXPECT_EQ(0, errno);
}

// --- Hostile scripts ---

TEST_F(Quest, AnyBytesAreTaken) {
    using namespace std::string_literals;
    const std::string scripts[] = {
        "[install]\0]\nText\0 s\n\0\0\n"s,
        "[install]\r\nYN s - - h q\r\n\r\n"s,
        "[install]\n\xff\xfe\x80 \x01 \x02 \x03 \x04 \x05\n"s,
        "[install]\nText s - - h " + std::string(100000, '\\') + "\n",
        "[install]\nText " + std::string(5000, 'x') + " - - h t\n",
        std::string(200000, '['),
        "[install]\n%s %n %s %n %s %s\nText %s%n - - %n %s%s%n\n"s,
        "[install]\n" + std::string(3000, ' ') + "\n",
        ""s,
    };
    for (const std::string &script : scripts) {
        quest_clear(set);
        write_file("s.q", script);
        quest_load(set, "s.q", "install");
        for (std::uint32_t i = 0; i < quest_count(set); ++i)
            EXPECT_NE(nullptr, quest_setting(set, i));
    }
}

TEST_F(Quest, ALineLongerThanTheBufferComesInPieces) {
    // 5 + 2 + 2 + 2 + 2 characters before the text: 986 of it fit, the rest is a line of its own.
    ASSERT_EQ(1, load("Text s - - h " + std::string(990, 'x') + "\nLoop t 0\n"));
    ASSERT_EQ(2U, quest_count(set));
    EXPECT_EQ(std::string(986, 'x'), str(quest_text(set, 0)));
    EXPECT_STREQ("t", quest_setting(set, 1));
    EXPECT_THAT(errors(), ElementsAre("Unknown question type 'xxxx'", "Missing setting label"));
}

TEST_F(Quest, AFileThatMayNotBeReadIsTheLastError) {
    write_file("s.q", "[install]\n");
    std::filesystem::permissions("s.q", std::filesystem::perms::none);
    test::as_ordinary_user([this] {
        EXPECT_EQ(0, quest_load(set, "s.q", "install"));
        EXPECT_STREQ("Error opening 's.q', Permission denied", quest_error());
    });
}

// --- Accessors and the life of a set ---

TEST_F(Quest, AccessorsGiveNothingOutsideTheSet) {
    ASSERT_EQ(1, load("Text s c v h t\n"));
    for (const std::uint32_t index : {1U, 4U, 0xffffffffU}) {
        EXPECT_EQ(nullptr, quest_text(set, index));
        EXPECT_EQ(nullptr, quest_help(set, index));
        EXPECT_EQ(nullptr, quest_setting(set, index));
        EXPECT_EQ(nullptr, quest_control(set, index));
        EXPECT_EQ(nullptr, quest_control_cmp(set, index));
        EXPECT_EQ(QUnknown, quest_type(set, index));
    }
    EXPECT_EQ(nullptr, quest_text(nullptr, 0));
    EXPECT_EQ(QUnknown, quest_type(nullptr, 0));
    EXPECT_EQ(0U, quest_count(nullptr));
}

TEST_F(Quest, AFreshSetIsEmpty) {
    EXPECT_EQ(0U, quest_count(set));
    EXPECT_EQ(nullptr, set->section);
    EXPECT_EQ(nullptr, set->last_error);
    EXPECT_EQ(nullptr, set->list);
    EXPECT_EQ(nullptr, set->ini);
}

TEST_F(Quest, ClearingEmptiesALoadedSetAndMayBeRepeated) {
    ASSERT_EQ(1, load("Text s c v h t\n"));
    quest_clear(set);
    quest_clear(set);
    quest_clear(nullptr);
    EXPECT_EQ(0U, quest_count(set));
    EXPECT_EQ(nullptr, set->section);
    EXPECT_EQ(nullptr, set->list);
    EXPECT_EQ(1, quest_load(set, "s.q", "install"));
    EXPECT_EQ(1U, quest_count(set));
}

TEST_F(Quest, FreeingNullsTheCallersPointer) {
    quest_free(&set);
    EXPECT_EQ(nullptr, set);
    quest_free(&set);
    quest_free(nullptr);
}

} // namespace
} // namespace installer
