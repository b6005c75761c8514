#include "installer/ini.h"
#include "installer/lib.h"
#include "installer/quest.h"
#include "support.h"

#include <cstring>
#include <fcntl.h>

namespace installer {
namespace {

using test::LogDir;
using test::write_file;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

/// Standard input reads from a text while this lives.
class Typed {
  public:
    explicit Typed(const std::string &file, const std::string &text) : saved_(dup(STDIN_FILENO)) {
        write_file(file, text);
        EXPECT_NE(nullptr, std::freopen(file.c_str(), "r", stdin));
    }
    ~Typed() {
        EXPECT_NE(nullptr, std::freopen("/dev/null", "r", stdin)); // drops what was read ahead
        if (saved_ >= 0) {
            dup2(saved_, fileno(stdin));
            close(saved_);
        }
    }
    Typed(const Typed &) = delete;
    Typed &operator=(const Typed &) = delete;

  private:
    int saved_;
};

/// Standard output goes to a file while this lives.
class Shown {
  public:
    explicit Shown(const char *file) : saved_((std::fflush(stdout), dup(STDOUT_FILENO))) {
        const int fd = open(file, O_WRONLY | O_CREAT | O_TRUNC, 0600);
        EXPECT_EQ(STDOUT_FILENO, dup2(fd, STDOUT_FILENO));
        close(fd);
    }
    ~Shown() {
        std::fflush(stdout);
        std::clearerr(stdout);
        dup2(saved_, STDOUT_FILENO);
        close(saved_);
    }
    Shown(const Shown &) = delete;
    Shown &operator=(const Shown &) = delete;

  private:
    int saved_;
};

class QuestAsk : public LogDir {
  protected:
    QuestAsk() {
        setting_list settings[] = {
            {"plain", nullptr, Ini_None},
            {"fixed", "kept", Ini_Fixed},
            {nullptr, nullptr, Ini_None},
        };
        ini_setup(store, settings, nullptr, 1);
        set = quest_init(store);
        errno = 0;
    }
    ~QuestAsk() override {
        quest_free(&set);
        ini_free(&store);
    }

    /// Makes the set hold this one line.
    void ask_for(const std::string &line) {
        quest_clear(set);
        write_file(beside("s.q"), "[install]\n" + line + "\n");
        ASSERT_EQ(1, quest_load(set, beside("s.q").c_str(), "install"));
        ASSERT_EQ(1U, quest_count(set));
    }

    /// Asks with this typed; `shown` and `answer` are what came of it.
    int ask(const std::string &typed, unsigned int bfsz = text_size) {
        const Typed input(beside("typed"), typed);
        return ask_again(bfsz);
    }
    int ask_again(unsigned int bfsz = text_size) {
        testing::internal::CaptureStdout();
        const int result = quest_ask(set, 0, answer, bfsz);
        shown = testing::internal::GetCapturedStdout();
        return result;
    }

    /// What is shown for a question with this text and no default.
    std::string prompt_for(const std::string &text) {
        ask_for("Text plain - - h x");
        std::free(set->list[0].text);
        set->list[0].text = s_strdup(text.c_str());
        ask("\n");
        return shown;
    }

    int reply(const std::string &text) {
        scpy(answer, text.c_str(), text_size);
        return quest_answer(set, 0, answer);
    }

    [[nodiscard]] std::vector<std::string> errors() const {
        std::vector<std::string> errors;
        for (const std::string &line : log_lines())
            if (line.rfind("Error: ", 0) == 0)
                errors.push_back(line.substr(7));
        return errors;
    }

    ini *store = ini_init();
    questions *set = nullptr;
    std::string shown;
    char answer[text_size] = "before";
};

std::string a(std::size_t n) {
    return std::string(n, 'a');
}
std::string b(std::size_t n) {
    return std::string(n, 'b');
}

// --- The default ---

TEST_F(QuestAsk, TheDefaultIsTheSettingsValueAsItIs) {
    ask_for("Text s - - h t");
    ini_add_name(store, "s", "$(plain) and more");
    char buffer[text_size] = "";
    EXPECT_EQ(buffer, quest_default(set, 0, buffer, sizeof buffer));
    EXPECT_STREQ("$(plain) and more", buffer);
}

TEST_F(QuestAsk, TheDefaultOfAYesNoQuestionIsYOrN) {
    ask_for("YN s - - h t");
    const struct {
        const char *value, *dflt;
    } rows[] = {{"true", "y"}, {"on", "y"}, {"1", "y"}, {"false", "n"}, {"maybe", "n"}, {"", "n"}};
    for (const auto &row : rows) {
        std::free(ini_remove_name(store, "s"));
        ini_add_name(store, "s", row.value);
        char buffer[text_size] = "";
        quest_default(set, 0, buffer, sizeof buffer);
        EXPECT_STREQ(row.dflt, buffer) << row.value;
    }
}

TEST_F(QuestAsk, TheDefaultIsCutToTheBuffer) {
    ask_for("Text s - - h t");
    ini_add_name(store, "s", "abcdefgh");
    char buffer[5] = "";
    EXPECT_EQ(buffer, quest_default(set, 0, buffer, sizeof buffer));
    EXPECT_STREQ("abcd", buffer);
}

TEST_F(QuestAsk, WithoutADefaultTheBufferIsLeftAlone) {
    ask_for("Text plain - - h t");
    char buffer[] = "untouched";
    EXPECT_EQ(nullptr, quest_default(set, 0, buffer, sizeof buffer));
    ini_add_name(store, "plain", "x");
    EXPECT_EQ(nullptr, quest_default(nullptr, 0, buffer, sizeof buffer));
    EXPECT_EQ(nullptr, quest_default(set, 1, buffer, sizeof buffer));
    EXPECT_EQ(nullptr, quest_default(set, 0, nullptr, sizeof buffer));
    EXPECT_EQ(nullptr, quest_default(set, 0, buffer, 0));
    set->ini = nullptr;
    EXPECT_EQ(nullptr, quest_default(set, 0, buffer, sizeof buffer));
    EXPECT_STREQ("untouched", buffer);
}

// --- The prompt ---

TEST_F(QuestAsk, ThePromptShowsTheTextAndTheDefault) {
    ask_for("Text s - - h Where is $(plain)?");
    ini_add_name(store, "plain", "it");
    ini_add_name(store, "s", "here");
    EXPECT_EQ(1, ask("\n"));
    EXPECT_EQ("Where is it? [here]? ", shown);
}

TEST_F(QuestAsk, ThePromptShowsEmptyBracketsWithoutADefault) {
    EXPECT_EQ("Name []? ", prompt_for("Name"));
    EXPECT_EQ("Name []? ", prompt_for("Name")) << "nothing is left from the first time";
}

TEST_F(QuestAsk, AYesNoPromptShowsYForTrue) {
    ask_for("YN plain - - h Sure");
    ini_add_name(store, "plain", "true");
    EXPECT_EQ(1, ask("\n"));
    EXPECT_EQ("Sure [y]? ", shown);
    EXPECT_STREQ("y", answer);
}

TEST_F(QuestAsk, PercentSignsOfATextAreShown) {
    EXPECT_EQ("100%s %n []? ", prompt_for("100%s %n"));
}

TEST_F(QuestAsk, WithoutAStoreTheTextIsShownAsWritten) {
    ask_for("Text s - - h Where is $(plain)");
    set->ini = nullptr;
    EXPECT_EQ(1, ask("x\n"));
    EXPECT_EQ("Where is $(plain) []? ", shown);
}

TEST_F(QuestAsk, ThePromptIsSeenBeforeTheReplyIsTyped) {
    ask_for("Text plain - - h Name");
    const Typed input(beside("typed"), "x\n");
    const Shown output(beside("shown").c_str());
    EXPECT_EQ(1, quest_ask(set, 0, answer, sizeof answer));
    EXPECT_EQ("Name []? ", test::read_file(beside("shown"))) << "nothing waits in the buffer";
}

// The prompt is the text and " []?", four characters more.
TEST_F(QuestAsk, APromptOfUpTo80CharactersIsOneLine) {
    EXPECT_EQ(a(75) + " []? ", prompt_for(a(75)));
    EXPECT_EQ(a(76) + " []? ", prompt_for(a(76)));
    EXPECT_EQ(a(40) + " " + a(35) + " []? ", prompt_for(a(40) + " " + a(35)));
}

TEST_F(QuestAsk, APromptOf81CharactersIsWrapped) {
    EXPECT_EQ(a(77) + "\n[]? ", prompt_for(a(77)));
    EXPECT_EQ(a(40) + " " + b(36) + "\n[]? ", prompt_for(a(40) + " " + b(36))) << "at its last blank";
}

TEST_F(QuestAsk, ALineEndsAtTheLastBlankWithin79CharactersAndTheOneBehind) {
    EXPECT_EQ(a(79) + "\nbbbb []? ", prompt_for(a(79) + " bbbb")) << "a word that ends exactly at 79";
    EXPECT_EQ(a(78) + "\n" + b(10) + " []? ", prompt_for(a(78) + " " + b(10)));
    EXPECT_EQ("aa " + a(70) + "\n" + b(10) + " []? ", prompt_for("aa " + a(70) + " " + b(10)));
    EXPECT_EQ(a(60) + "\n" + b(30) + " []? ", prompt_for(a(60) + "\t" + b(30))) << "a tab is a blank";
}

TEST_F(QuestAsk, BlanksBehindABreakAreSkippedThoseBeforeItAreShown) {
    EXPECT_EQ(a(79) + "\nbbb []? ", prompt_for(a(79) + " \t bbb"));
    EXPECT_EQ(a(70) + "  \n" + b(20) + " []? ", prompt_for(a(70) + "   " + b(20)));
}

TEST_F(QuestAsk, ATextWithoutBlanksIsCutAndLosesOneCharacter) {
    // 100 characters: 79, one lost, and the rest from the 81st.
    EXPECT_EQ(a(79) + "\n" + b(16) + " []? ", prompt_for(a(79) + "X" + b(16)));
    // A hundred more: the second line is cut in the same way.
    EXPECT_EQ(a(79) + "\n" + b(79) + "\ncc []? ", prompt_for(a(79) + "X" + b(79) + "Ycc"));
}

TEST_F(QuestAsk, BlanksBehindAHardCutAreSkippedToo) {
    EXPECT_EQ(a(79) + "\nbbb []? ", prompt_for(a(79) + "X  bbb"));
}

TEST_F(QuestAsk, WrappingGoesOnWhileMoreThan79CharactersAreLeft) {
    EXPECT_EQ(a(20) + "\n" + b(75) + " []? ", prompt_for(a(20) + " " + b(75))) << "79 are left";
    EXPECT_EQ(a(20) + "\n" + b(76) + "\n[]? ", prompt_for(a(20) + " " + b(76))) << "80 are left";
}

TEST_F(QuestAsk, ALongTextBecomesManyLines) {
    std::string sixteen = "word"; // 79 characters, and a blank behind each line
    for (int i = 1; i < 16; ++i)
        sixteen += " word";
    EXPECT_EQ(sixteen + "\n" + sixteen + "\nword word []? ",
              prompt_for(sixteen + " " + sixteen + " word word"));
}

TEST_F(QuestAsk, LineFeedsInATextCountAsCharactersAndAreNoBlanks) {
    // 40 + 1 + 38 characters stand before the cut, the 39th "b" is lost.
    EXPECT_EQ(a(40) + "\n" + b(38) + "\nb []? ", prompt_for(a(40) + "\n" + b(40)));
}

TEST_F(QuestAsk, ABlankThatBeginsALineDoesNotEndIt) {
    ask_for("Text plain - - h $(none)"); // the prompt is " [bbb...b]?" and has no other blank
    ini_add_name(store, "plain", b(100).c_str());
    EXPECT_EQ(1, ask("\n"));
    EXPECT_EQ(" [" + b(77) + "\n" + b(22) + "]? ", shown);
}

TEST_F(QuestAsk, APromptThatDoesNotFitItsBufferIsCut) {
    ask_for("Text plain - - h $(long)$(long)");
    ini_add_name(store, "long", a(900).c_str());
    ini_add_name(store, "plain", b(900).c_str());
    EXPECT_EQ(1, ask("\n"));
    // 999 characters without a blank: twelve times 80, of which 79 are shown, and 39.
    std::string expected;
    for (int i = 0; i < 12; ++i)
        expected += a(79) + "\n";
    EXPECT_EQ(expected + a(39) + " ", shown);
    EXPECT_EQ(b(900), answer) << "the default is whole";
}

// --- The reply ---

TEST_F(QuestAsk, TheReplyIsTrimmed) {
    ask_for("Text plain - - h t");
    EXPECT_EQ(1, ask(" \t two words \r\n"));
    EXPECT_STREQ("two words", answer);
}

TEST_F(QuestAsk, AnEmptyReplyTakesTheDefault) {
    ask_for("Text plain - - h t");
    ini_add_name(store, "plain", "usual");
    for (const char *typed : {"\n", "  \t\n", "\r\n", ""}) {
        EXPECT_EQ(1, ask(typed));
        EXPECT_STREQ("usual", answer);
    }
}

TEST_F(QuestAsk, AnEmptyReplyWithoutADefaultIsRefused) {
    ask_for("Text plain - - h t");
    for (const char *typed : {"\n", "   \n", ""}) {
        quest_seterror("earlier");
        errno = EDOM;
        EXPECT_EQ(0, ask(typed));
        EXPECT_STREQ("You must enter an answer", quest_error());
        EXPECT_STREQ("", answer);
    }
}

TEST_F(QuestAsk, AConsoleThatShowsNothingIsNotWhyAnAnswerIsMissing) {
    if (!test::exists("/dev/full"))
        GTEST_SKIP() << "this system has no /dev/full";
    ask_for("Text plain - - h t");
    const Typed input(beside("typed"), "\n");
    {
        const Shown output("/dev/full");
        EXPECT_EQ(0, quest_ask(set, 0, answer, sizeof answer));
    }
    EXPECT_STREQ("You must enter an answer", quest_error());
}

TEST_F(QuestAsk, AReplyThatCannotBeReadSaysWhy) {
    ask_for("Text plain - - h t");
    const Typed input(beside("typed"), "");
    EXPECT_NE(nullptr, std::freopen(".", "r", stdin));
    EXPECT_EQ(0, ask_again());
    EXPECT_STREQ("You must enter an answer, Is a directory", quest_error());
    EXPECT_EQ(1, quest_input_ended());
    EXPECT_THAT(errors(), testing::Contains("Error reading the reply, Is a directory"));
}

TEST_F(QuestAsk, TheEndOfTheInputIsNoErrorOfReading) {
    ask_for("Text plain - - h t");
    EXPECT_EQ(0, ask(""));
    EXPECT_THAT(errors(), ElementsAre("You must enter an answer"));
}

TEST_F(QuestAsk, AnEmptyDefaultIsNone) {
    ask_for("Text s - - h t");
    ini_add_name(store, "s", "");
    EXPECT_EQ(0, ask("\n"));
    EXPECT_STREQ("You must enter an answer", quest_error());
}

TEST_F(QuestAsk, TheDefaultIsCutToTheAnswersBuffer) {
    ask_for("Text plain - - h t");
    ini_add_name(store, "plain", "abcdefgh");
    EXPECT_EQ(1, ask("\n", 4));
    EXPECT_STREQ("abc", answer);
}

TEST_F(QuestAsk, ALongReplyIsReadInPieces) {
    ask_for("Text plain - - h t");
    const Typed input(beside("typed"), "abcdefg\nnext\n");
    EXPECT_EQ(1, ask_again(5));
    EXPECT_STREQ("abcd", answer);
    EXPECT_EQ(1, ask_again(5));
    EXPECT_STREQ("efg", answer);
    EXPECT_EQ(1, ask_again());
    EXPECT_STREQ("next", answer);
}

TEST_F(QuestAsk, ANulByteEndsAReply) {
    ask_for("Text plain - - h t");
    EXPECT_EQ(1, ask(std::string("ab\0cd\n", 6)));
    EXPECT_STREQ("ab", answer);
}

TEST_F(QuestAsk, ALastLineWithoutALineEndIsAReply) {
    ask_for("Text plain - - h t");
    EXPECT_EQ(1, ask("last"));
    EXPECT_STREQ("last", answer);
    EXPECT_EQ(0, quest_input_ended());
}

TEST_F(QuestAsk, TheEndOfTheInputIsToldFromAnEmptyReply) {
    ask_for("Text plain - - h t");
    EXPECT_EQ(0, ask("\n"));
    EXPECT_EQ(0, quest_input_ended());
    EXPECT_EQ(0, ask(""));
    EXPECT_EQ(1, quest_input_ended());
    EXPECT_EQ(1, ask("x\n"));
    EXPECT_EQ(0, quest_input_ended());
}

TEST_F(QuestAsk, BadArgumentsAskNothing) {
    ask_for("Text plain - - h t");
    const Typed input(beside("typed"), "typed\n");
    testing::internal::CaptureStdout();
    errno = EDOM; // of an earlier call
    EXPECT_EQ(0, quest_ask(nullptr, 0, answer, sizeof answer));
    EXPECT_EQ(0, errno);
    EXPECT_EQ(0, quest_ask(set, 1, answer, sizeof answer));
    EXPECT_EQ(0, quest_ask(set, 0, nullptr, sizeof answer));
    EXPECT_EQ(0, quest_ask(set, 0, answer, 0));
    EXPECT_EQ("", testing::internal::GetCapturedStdout());
    EXPECT_STREQ("before", answer);
    EXPECT_EQ(1, ask_again()) << "nothing was read";
}

TEST_F(QuestAsk, ReadingGivesOneTrimmedLine) {
    const Typed input(beside("typed"), "  one two\n\nrest");
    EXPECT_EQ(1, quest_read(answer, sizeof answer));
    EXPECT_STREQ("one two", answer);
    EXPECT_EQ(1, quest_read(answer, sizeof answer));
    EXPECT_STREQ("", answer);
    EXPECT_EQ(1, quest_read(answer, sizeof answer));
    EXPECT_STREQ("rest", answer);
    EXPECT_EQ(0, quest_read(answer, sizeof answer));
    EXPECT_STREQ("", answer);
    EXPECT_EQ(0, quest_read(nullptr, 10));
    EXPECT_EQ(0, quest_read(answer, 0));
}

// --- The checks ---

TEST_F(QuestAsk, AcceptedAnswersAreStored) {
    std::filesystem::create_directories("dir/empty");
    write_file("dir/file.txt", "");
    const struct {
        const char *type, *reply, *stored;
    } rows[] = {
        {"Text", "  as it is/ ", "  as it is/ "},
        {"Text", "", ""},
        {"YN", "y", "true"},
        {"YN", "YES", "true"},
        {"YN", "2", "true"},
        {"YN", "Off", "false"},
        {"YN", "0", "false"},
        {"YN", "x0", "false"}, // a digit in the second place counts
        {"Dir", "no/such", "no/such"},
        {"Dir", "no/such/", "no/such"},
        {"Dir", "no/such\\", "no/such"},
        {"Dir", "no/such//", "no/such/"}, // one separator is cut, not all
        {"Dir", "/", ""},
        {"Dir", "", ""},
        {"DirExist", "dir/", "dir"},
        {"DirExist", "dir/file.txt", "dir/file.txt"}, // whether it is a directory is not asked
        {"DirEmpty", "dir/empty/", "dir/empty"},
        {"DirEmpty", "nosuch", "nosuch"},
        {"DirEmpty", "dir/file.txt", "dir/file.txt"}, // cannot be listed, so it holds nothing
        {"DirEmpty", "", ""},
        {"File", "no/such/", "no/such/"},
        {"FileExist", "dir/file.txt", "dir/file.txt"},
        {"FileExist", "dir", "dir"}, // a directory exists, too
        {"FileName", "/tmp/logo.gif", "logo"},
        {"FileName", "a\\b.tar.gz", "b.tar"},
        {"FileName", ".profile", ".profile"},
        {"FileName", "/tmp/", ""},
        {"FileName", "", ""},
        {"Bogus", "any/", "any/"},
    };
    for (const auto &row : rows) {
        std::free(ini_remove_name(store, "s"));
        ask_for(std::string(row.type) + " s - - h t");
        EXPECT_EQ(1, reply(row.reply)) << row.type << " " << row.reply;
        EXPECT_STREQ(row.stored, ini_value_name(store, "s")) << row.type << " " << row.reply;
    }
}

TEST_F(QuestAsk, RefusedAnswersAreNotStored) {
    std::filesystem::create_directory("full");
    write_file("full/.hidden", "");
    const struct {
        const char *type, *reply, *error;
    } rows[] = {
        {"YN", "maybe", "You must answer either Yes or No"},
        {"YN", "", "You must answer either Yes or No"},
        {"DirExist", "nosuch/", "Directory 'nosuch' must exist, No such file or directory"},
        {"DirExist", "/", "Directory '' must exist, No such file or directory"},
        {"DirExist", "full/.hidden/x", "Directory 'full/.hidden/x' must exist, Not a directory"},
        {"FileExist", "nosuch/", "File 'nosuch/' must exist, No such file or directory"},
        {"DirEmpty", "full/", "Directory 'full' must be empty"},
        {"DirEmpty", "./full", "Directory './full' must be empty"},
    };
    std::vector<std::string> expected;
    for (const auto &row : rows) {
        ask_for(std::string(row.type) + " plain - - h t");
        errno = EDOM; // of an earlier call
        EXPECT_EQ(0, reply(row.reply)) << row.type << " " << row.reply;
        EXPECT_STREQ(row.error, quest_error());
        EXPECT_EQ(nullptr, ini_value_name(store, "plain")) << row.type << " " << row.reply;
        expected.emplace_back(row.error);
    }
    EXPECT_EQ(expected, errors());
}

TEST_F(QuestAsk, AnEmptyDirectoryAnswerHasNoSeparatorToCut) {
    ask_for("Dir s - - h t");
    const text_ptr empty(s_strdup("")); // of exactly this size, so that a look before its start shows
    EXPECT_EQ(1, quest_answer(set, 0, empty.get()));
}

TEST_F(QuestAsk, OnlyTheWholeTypeAsksForAnEmptyDirectory) {
    std::filesystem::create_directory("full");
    write_file("full/file", "");
    ask_for("Text s - - h t");
    for (const QType type : {QEmpty, QEmpty | QText, QDirEmpty | QText}) {
        set->list[0].type = type;
        EXPECT_EQ(1, reply("full")) << type;
    }
}

TEST_F(QuestAsk, TheBitsAreTestedInTheirOrder) {
    ask_for("Text s - - h t");
    set->list[0].type = QExist | QYN; // a word that exists as a file is no longer taken as yes or no
    write_file("yes", "");
    EXPECT_EQ(1, reply("yes"));
    EXPECT_STREQ("yes", ini_value_name(store, "s"));
    EXPECT_EQ(0, reply("no"));
    EXPECT_STREQ("File 'no' must exist, No such file or directory", quest_error());
}

TEST_F(QuestAsk, TheAnswerIsChangedInPlace) {
    ask_for("FileName s - - h t");
    EXPECT_EQ(1, reply("/tmp/logo.gif"));
    EXPECT_STREQ("logo", answer);
    ask_for("Dir s - - h t");
    EXPECT_EQ(1, reply("/tmp/"));
    EXPECT_STREQ("/tmp", answer);
}

TEST_F(QuestAsk, AValueThatTheStoreRefusesIsStillAccepted) {
    ask_for("Text fixed - - h t");
    EXPECT_EQ(1, reply("changed"));
    EXPECT_STREQ("kept", ini_value_name(store, "fixed"));
    ask_for("Text plain - - h t");
    EXPECT_EQ(1, reply(""));
    EXPECT_EQ(nullptr, ini_value_name(store, "plain"));
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(QuestAsk, WithoutAStoreAnAnswerIsCheckedButNotStored) {
    ask_for("YN plain - - h t");
    set->ini = nullptr;
    EXPECT_EQ(1, reply("yes"));
    EXPECT_EQ(0, reply("maybe"));
    EXPECT_EQ(nullptr, ini_value_name(store, "plain"));
}

TEST_F(QuestAsk, BadArgumentsAnswerNothing) {
    ask_for("Text plain - - h t");
    EXPECT_EQ(0, quest_answer(nullptr, 0, answer));
    EXPECT_EQ(0, quest_answer(set, 1, answer));
    EXPECT_EQ(0, quest_answer(set, 0, nullptr));
    EXPECT_EQ(nullptr, ini_value_name(store, "plain"));
}

TEST_F(QuestAsk, AnEmptyReplyToATrueYesNoQuestionStoresTrue) {
    ask_for("YN s - - h t");
    ini_add_name(store, "s", "true");
    ASSERT_EQ(1, ask("\n"));
    EXPECT_EQ(1, quest_answer(set, 0, answer));
    EXPECT_STREQ("true", ini_value_name(store, "s"));
}

TEST_F(QuestAsk, CheckingAnAcceptedMissingDirectoryLeavesNoErrorNumber) {
    ask_for("DirEmpty s - - h t");
    EXPECT_EQ(1, reply("nosuch"));
    EXPECT_EQ(0, errno);
}

// --- The last error ---

TEST_F(QuestAsk, TheErrorNumberOfTheMomentIsAppendedAndKept) {
    errno = ENOENT;
    quest_seterror("No '%s' of %d", "x", 3);
    EXPECT_EQ(ENOENT, errno);
    EXPECT_STREQ("No 'x' of 3, No such file or directory", quest_error());
    EXPECT_THAT(errors(), ElementsAre("No 'x' of 3, No such file or directory"));
}

TEST_F(QuestAsk, WithoutAnErrorNumberTheMessageStandsAlone) {
    errno = 0;
    quest_seterror("No '%s'", "%s%n");
    EXPECT_STREQ("No '%s%n'", quest_error());
    EXPECT_THAT(errors(), ElementsAre("No '%s%n'"));
}

TEST_F(QuestAsk, ANewErrorReplacesTheOldAndANullFormatDoesNot) {
    quest_seterror("first");
    quest_seterror("second");
    quest_seterror(nullptr);
    EXPECT_STREQ("second", quest_error());
}

TEST_F(QuestAsk, ALongErrorIsCut) {
    quest_seterror("%s", a(5000).c_str());
    EXPECT_EQ(a(999), quest_error());
}

} // namespace
} // namespace installer
