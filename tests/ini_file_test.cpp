#include "installer/ini.h"
#include "installer/lib.h"
#include "tests/ini_store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace installer::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::Not;

constexpr auto Xtra1 = static_cast<setting_mode>(64);
constexpr auto Xtra2 = static_cast<setting_mode>(128);

const char *to_upper(const char *value) {
    static char text[text_size];
    scpy(text, value, text_size);
    s_strupr(text);
    return text;
}
const char *to_word(const char *) {
    return "word";
}

std::string address(ini_load_fn fn) {
    char text[40];
    std::snprintf(text, sizeof text, "%p", reinterpret_cast<void *>(fn));
    return text;
}

class IniFile : public IniStore {
  protected:
    /// Loads a file of these bytes into the store.
    int load(std::string_view text, const char *vhost = nullptr) {
        write_file("site.ini", text);
        return ini_load(x, "site", vhost);
    }

    /// What saving the store writes.
    std::string saved() {
        EXPECT_EQ(1, ini_save(x, "saved"));
        return read_file("saved");
    }
};

// --- Names of files ---

TEST_F(IniFile, LoadingAddsTheExtensionThatANameLacks) {
    const struct {
        const char *name;
        const char *file;
    } rows[] = {
        {"site", "site.ini"}, {"site.conf", "site.conf"}, {"d.d/site", "d.d/site.ini"}, {".hid", ".hid"}};
    set_up({});
    mkdir("d.d", 0777);
    for (const auto &row : rows) {
        write_file(row.file, std::string("from ") + row.file);
        EXPECT_EQ(1, ini_load(x, row.name, nullptr)) << row.name;
        EXPECT_EQ(row.file, taken(ini_remove_name(x, "from")));
        EXPECT_THAT(logged(), Contains(std::string("Debug: Opening ini file '") + row.file + "'"));
    }
}

TEST_F(IniFile, SavingWritesTheFileExactlyAsNamed) {
    set_up({{"a", "1", Ini_None}});
    EXPECT_EQ(1, ini_save(x, "site"));
    EXPECT_THAT(names_in("."), ElementsAre("site"));
    EXPECT_EQ("a 1\n", read_file("site"));
}

TEST_F(IniFile, LoadingRefusesANameThatDoesNotFitAPath) {
    set_up({{"a", "old", Ini_None}});
    write_file(std::string(251, 'n') + ".ini", "a 255");
    EXPECT_EQ(1, ini_load(x, std::string(251, 'n').c_str(), nullptr));
    EXPECT_STREQ("255", ini_value(x, 0));
    write_file(std::string(252, 'm') + ".in", "a cut");
    EXPECT_EQ(0, ini_load(x, std::string(252, 'm').c_str(), nullptr));
    EXPECT_EQ(ENAMETOOLONG, errno);
    EXPECT_EQ(0, ini_load(x, std::string(100000, 'm').c_str(), nullptr));
    EXPECT_EQ(nullptr, ini_peek(x, std::string(252, 'm').c_str(), 0));
    EXPECT_STREQ("255", ini_value(x, 0));
}

TEST_F(IniFile, LoadingWhatCannotBeReadGivesZeroAndIsNotReported) {
    set_up({{"f", "1", Ini_Fixed}});
    ini_rmvmode(x, Ini_UseFixed);
    EXPECT_EQ(0, ini_load(x, "missing", nullptr));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_THAT(logged(), ElementsAre("Debug: Opening ini file 'missing.ini'"));
    EXPECT_EQ(0u, x->mode & Ini_UseFixed) << "nothing was loaded, the mode stays";
    mkdir("dir.ini", 0777);
    EXPECT_EQ(0, ini_load(x, "dir", nullptr)) << "a directory opens but does not read";
}

TEST_F(IniFile, NullArgumentsGiveTheFailureValue) {
    write_file("site.ini", "a 1");
    EXPECT_EQ(0, ini_load(x, "site", nullptr)) << "no definitions";
    EXPECT_EQ(0, ini_save(x, "saved")) << "no definitions";
    EXPECT_FALSE(exists("saved"));
    set_up({{"a", nullptr, Ini_None}});
    EXPECT_EQ(0, ini_load(nullptr, "site", nullptr));
    EXPECT_EQ(0, ini_load(x, nullptr, nullptr));
    EXPECT_EQ(nullptr, ini_peek(nullptr, "site", 0));
    EXPECT_EQ(nullptr, ini_peek(x, nullptr, 0));
    EXPECT_EQ(nullptr, ini_peek(x, "site", -1));
    EXPECT_EQ(nullptr, ini_peek(x, "site", 1));
    EXPECT_EQ(0, ini_save(nullptr, "saved"));
    EXPECT_EQ(0, ini_save(x, nullptr));
    EXPECT_THAT(logged(), IsEmpty());
}

// --- Lines ---

TEST_F(IniFile, LineIsANameAndTheRestIsItsValue) {
    const struct {
        const char *line;
        const char *name;
        const char *value;
    } rows[] = {
        {"name value", "name", "value"},
        {"name    two words", "name", "two words"},
        {"name\t \ttwo \t words\t ", "name", "two \t words"},
        {"  name value  \r", "name", "value"},
        {"name # no comment", "name", "# no comment"},
        {"name#x value", "name#x", "value"},
        {"name", "name", ""},
        {"name \t ", "name", ""},
        {"[name] $(x) \"quoted\"", "[name]", "$(x) \"quoted\""},
        {"Vend x", "Vend", "x"},
        {"VHOST x", "VHOST", "x"},
        {"vhosts x", "vhosts", "x"},
        {"vendor x", "vendor", "x"},
    };
    for (const auto &row : rows) {
        set_up({});
        EXPECT_EQ(1, load(std::string(row.line) + "\n"));
        EXPECT_EQ(1, ini_items(x)) << row.line;
        EXPECT_STREQ(row.name, ini_label(x, 0)) << row.line;
        EXPECT_STREQ(row.value, ini_value(x, 0)) << row.line;
    }
}

TEST_F(IniFile, EmptyLinesAndCommentsDoNotCount) {
    set_up({});
    EXPECT_EQ(1, load("\n\r\n   \t\n#name value\n   # name value\n#\n"));
    EXPECT_EQ(0, ini_items(x));
    EXPECT_EQ(1, load(""));
    EXPECT_EQ(0, ini_items(x));
}

TEST_F(IniFile, LastLineNeedsNoLineEnd) {
    set_up({});
    EXPECT_EQ(1, load("a 1\nb 2"));
    EXPECT_STREQ("2", ini_value_name(x, "b"));
}

TEST_F(IniFile, SeveralLinesGiveSeveralValuesOrTheLastOne) {
    set_up({{"multi", nullptr, Ini_Multi}, {"single", nullptr, Ini_None}});
    EXPECT_EQ(1, load("multi a\nsingle a\nmulti b\nsingle b\n"));
    EXPECT_THAT(values("multi"), ElementsAre("a", "b"));
    EXPECT_THAT(values("single"), ElementsAre("b"));
}

TEST_F(IniFile, RulesOfTheStoreHoldForEveryLine) {
    set_up({{"full", "old", Ini_None}, {"path", nullptr, Ini_Path}});
    ini_rmvmode(x, Ini_UseNew);
    EXPECT_EQ(1, load("full\npath c:\\x\nunknown 1\n"));
    EXPECT_STREQ("old", ini_value_name(x, "full"));
    EXPECT_STREQ("c:/x", ini_value_name(x, "path"));
    EXPECT_EQ(2, ini_items(x));
    EXPECT_THAT(logged(), Contains("Debug: Ini value for 'full' not added, value was empty"));
}

TEST_F(IniFile, FixedSettingTakesItsValueFromTheFileOnly) {
    set_up({{"f", "1", Ini_Fixed}});
    EXPECT_EQ(1, load("f 2\nf 3\n"));
    EXPECT_STREQ("3", ini_value(x, 0));
    EXPECT_EQ(-1, ini_add(x, 0, "4"));
    EXPECT_STREQ("3", ini_value(x, 0));
}

TEST_F(IniFile, LoadingTurnsTheFixedRuleOnWhateverItWas) {
    set_up({{"f", "1", Ini_Fixed}});
    ini_setmode(x, Ini_UseMulti);
    EXPECT_EQ(1, load(""));
    EXPECT_EQ(static_cast<std::uint32_t>(Ini_UseMulti | Ini_UseFixed), x->mode);
}

TEST_F(IniFile, LoadingLogsTheFileAsItIsOpenedAndAsItWasNamed) {
    set_up({});
    EXPECT_EQ(1, load(""));
    EXPECT_THAT(logged(),
                ElementsAre("Debug: Opening ini file 'site.ini'", "Debug: Ini loading file 'site'"));
}

TEST_F(IniFile, LongLineIsReadInPiecesEachALine) {
    set_up({});
    EXPECT_EQ(1, load("a " + std::string(997, 'x') + "b tail\nc 1\n"));
    EXPECT_EQ(std::string(997, 'x'), ini_value_name(x, "a"));
    EXPECT_STREQ("tail", ini_value_name(x, "b"));
    EXPECT_STREQ("1", ini_value_name(x, "c"));
}

TEST_F(IniFile, AnyBytesAreTaken) {
    std::string bytes;
    unsigned int state = 1;
    for (int i = 0; i < 100000; i++) {
        state = state * 1103515245u + 12345u;
        bytes += static_cast<char>(state >> 16);
    }
    log_set_level(CurrentLog, LogError);
    set_up({{"a", "old", Ini_None}});
    EXPECT_EQ(1, load(bytes));
    EXPECT_EQ(1, load(std::string(5000, '\0')));
    EXPECT_EQ(1, load(std::string(5000, 'x')));
    EXPECT_STREQ("old", ini_value(x, 0));
}

// --- Virtual hosts ---

constexpr char two_hosts[] = "before 1\n"
                             "vhost www1\n"
                             "one 1\n"
                             "vend\n"
                             "between 1\n"
                             "vhost www2\n"
                             "two 1\n"
                             "vend\n"
                             "after 1\n";

TEST_F(IniFile, EnvironmentChoosesTheVirtualHost) {
    set_up({{"vhost_match", "SERVER_NAME", Ini_None}});
    setenv("SERVER_NAME", "www1", 1);
    EXPECT_EQ(1, load(two_hosts));
    EXPECT_STREQ("1", ini_value_name(x, "before"));
    EXPECT_STREQ("1", ini_value_name(x, "one"));
    EXPECT_STREQ("1", ini_value_name(x, "between"));
    EXPECT_EQ(nullptr, ini_value_name(x, "two"));
    EXPECT_STREQ("1", ini_value_name(x, "after"));
    EXPECT_THAT(values("vhost"), ElementsAre("www1"));
}

TEST_F(IniFile, ArgumentChoosesTheVirtualHostAndIsNotStored) {
    set_up({{"vhost_match", "SERVER_NAME", Ini_None}});
    setenv("SERVER_NAME", "www1", 1);
    EXPECT_EQ(1, load(two_hosts, "www2"));
    EXPECT_EQ(nullptr, ini_value_name(x, "one"));
    EXPECT_STREQ("1", ini_value_name(x, "two"));
    EXPECT_EQ(-1, ini_index(x, "vhost"));
}

TEST_F(IniFile, EveryBlockIsSkippedAndReportedWithoutVhostMatch) {
    set_up({});
    EXPECT_EQ(1, load(two_hosts));
    EXPECT_EQ(-1, ini_index(x, "one"));
    EXPECT_EQ(-1, ini_index(x, "two"));
    EXPECT_STREQ("1", ini_value_name(x, "after"));
    const std::string error = "Error: No vhost_match specified, will not match any vhost lines";
    EXPECT_THAT(logged(), testing::IsSupersetOf({error, error}));
}

TEST_F(IniFile, MissingVariableIsReportedAtEveryBlock) {
    set_up({{"vhost_match", "NO_SUCH_VARIABLE", Ini_None}});
    unsetenv("NO_SUCH_VARIABLE");
    EXPECT_EQ(1, load(two_hosts));
    EXPECT_EQ(-1, ini_index(x, "one"));
    EXPECT_EQ(-1, ini_index(x, "vhost"));
    const std::string error = "Error: Ini vhost NOT found, vhost_match=NO_SUCH_VARIABLE";
    EXPECT_THAT(logged(), testing::IsSupersetOf({error, error}));
}

TEST_F(IniFile, FileMayNameTheVariableItself) {
    set_up({});
    setenv("SERVER_NAME", "www2", 1);
    EXPECT_EQ(1, load("vhost www2\nearly 1\nvend\nvhost_match SERVER_NAME\nvhost www2\nlate 1\nvend\n"));
    EXPECT_EQ(-1, ini_index(x, "early"));
    EXPECT_STREQ("1", ini_value_name(x, "late"));
}

TEST_F(IniFile, HostOnceChosenStaysToTheEndOfTheFileOnly) {
    set_up({{"vhost_match", "SERVER_NAME", Ini_None}});
    setenv("SERVER_NAME", "www1", 1);
    EXPECT_EQ(1, load("vhost www1\nvend\nvhost_match OTHER\nvhost www1\none 1\nvend\n"));
    EXPECT_STREQ("1", ini_value_name(x, "one"));
    setenv("OTHER", "www3", 1);
    EXPECT_EQ(1, load("vhost www3\nthree 1\n"));
    EXPECT_STREQ("1", ini_value_name(x, "three"));
}

TEST_F(IniFile, HostsAreComparedWithCase) {
    set_up({});
    EXPECT_EQ(1, load("vhost WWW1\na 1\nvend\nvhost www1 x\nb 1\nvend\nvhost\nc 1\n", "www1"));
    EXPECT_EQ(0, ini_items(x));
}

TEST_F(IniFile, EmptyHostIsAHost) {
    set_up({});
    EXPECT_EQ(1, load("vhost\na 1\nvend\nvhost x\nb 1\n", ""));
    EXPECT_STREQ("1", ini_value_name(x, "a"));
    EXPECT_EQ(-1, ini_index(x, "b"));
}

TEST_F(IniFile, BlockEndsAtTheNextBlockAndAtTheEndOfTheFile) {
    set_up({});
    EXPECT_EQ(1, load("vend\na 1\nvhost www2\nb 1\nvhost www1\nc 1\nvhost www2\nd 1\n", "www1"));
    EXPECT_EQ(1, ini_load(x, "site", "www1"));
    EXPECT_THAT(values("a"), ElementsAre("1", "1"));
    EXPECT_EQ(-1, ini_index(x, "b"));
    EXPECT_THAT(values("c"), ElementsAre("1", "1"));
    EXPECT_EQ(-1, ini_index(x, "d"));
}

// --- Peek ---

TEST_F(IniFile, PeekReadsTheFirstLineOfThatNameAndAddsNothing) {
    set_up({{"a", "old", Ini_None}, {"b", nullptr, Ini_None}});
    write_file("site.ini", "A 0\nab 0\n#a 0\na  one two \na 2\n");
    EXPECT_STREQ("one two", ini_peek(x, "site", 0));
    EXPECT_STREQ("old", ini_value(x, 0));
    EXPECT_EQ(2, ini_items(x));
    EXPECT_THAT(logged(), ElementsAre("Debug: Opening ini file 'site.ini'"));
}

TEST_F(IniFile, PeekLooksIntoEveryVhostBlock) {
    set_up({{"a", nullptr, Ini_None}, {"vhost", nullptr, Ini_None}});
    write_file("site.ini", "vhost www1\na inside\nvend\na outside\n");
    EXPECT_STREQ("inside", ini_peek(x, "site", 0));
    EXPECT_STREQ("www1", ini_peek(x, "site", 1));
}

TEST_F(IniFile, PeekThatFindsNothingReturnsWhatTheLastOneFound) {
    set_up({{"a", nullptr, Ini_None}, {"b", nullptr, Ini_None}});
    write_file("site.ini", "a value\n");
    const char *found = ini_peek(x, "site", 0);
    EXPECT_STREQ("value", found);
    EXPECT_EQ(found, ini_peek(x, "site", 1)) << "one buffer, not cleared";
    EXPECT_STREQ("value", found);
    EXPECT_EQ(nullptr, ini_peek(x, "missing", 0)) << "but an unreadable file gives null";
}

TEST_F(IniFile, PeekedEmptyValueIsNull) {
    set_up({{"a", nullptr, Ini_None}, {"e", nullptr, Ini_None}});
    write_file("site.ini", "a value\ne\n");
    EXPECT_STREQ("value", ini_peek(x, "site", 0));
    EXPECT_EQ(nullptr, ini_peek(x, "site", 1));
    EXPECT_STREQ("value", ini_peek(x, "site", 0));
}

// --- Save ---

TEST_F(IniFile, SavingWritesALineForEveryValueInOrder) {
    set_up({{"b", "two words", Ini_None}, {"name", "a", Ini_Multi}, {"none", nullptr, Ini_None}});
    ini_add_name(x, "name", "b");
    ini_add_name(x, "new", "");
    forget_log();
    EXPECT_EQ("b two words\nname a\nname b\nnew \n", saved());
    EXPECT_THAT(logged(), ElementsAre("Debug: Ini saving file 'saved'"));
}

TEST_F(IniFile, SavingReplacesTheFile) {
    set_up({{"a", "1", Ini_None}});
    write_file("saved", std::string(10000, 'x'));
    EXPECT_EQ("a 1\n", saved());
}

TEST_F(IniFile, SavingLeavesOutWhatIsLocked) {
    set_up({{"f", "1", Ini_Fixed}, {"o", "2", Ini_None}});
    EXPECT_EQ("f 1\no 2\n", saved());
    ini_addmode(x, Ini_UseLock);
    EXPECT_EQ("o 2\n", saved());
}

TEST_F(IniFile, SavingWritesABorrowedValueAsItsOwn) {
    set_up({{"a", nullptr, Ini_None}, {"b", "1", Ini_Multi}}, {0, 1});
    ini_add_name(x, "b", "2");
    EXPECT_EQ("a 1\nb 1\nb 2\n", saved());
}

TEST_F(IniFile, SavingWritesPasswordsInClear) {
    set_up({{"p", "hush", Ini_Pass}});
    EXPECT_EQ("p hush\n", saved());
    EXPECT_THAT(read_file(beside("test.log")), Not(testing::HasSubstr("hush")));
}

TEST_F(IniFile, SavingWhereNothingOpensIsAnError) {
    set_up({{"a", "1", Ini_None}});
    EXPECT_EQ(0, ini_save(x, "no/such"));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_THAT(logged(),
                ElementsAre("Error: Ini error opening 'no/such' for write, No such file or directory"));
}

TEST_F(IniFile, SavingOntoAFullDeviceIsAnError) {
    set_up({{"a", "1", Ini_None}});
    if (!exists("/dev/full"))
        GTEST_SKIP() << "no /dev/full here";
    EXPECT_EQ(0, ini_save(x, "/dev/full"));
    EXPECT_EQ(ENOSPC, errno);
    EXPECT_THAT(logged(),
                ElementsAre("Debug: Ini saving file '/dev/full'", "Error: Error writing to '/dev/full'"));
}

TEST_F(IniFile, SavingMoreThanABufferOntoAFullDeviceIsAnError) {
    if (!exists("/dev/full"))
        GTEST_SKIP() << "no /dev/full here";
    const std::string value(100000, 'v');
    set_up({{"a", value.c_str(), Ini_None}});
    EXPECT_EQ(0, ini_save(x, "/dev/full"));
    EXPECT_THAT(logged(), Contains("Error: Error writing to '/dev/full'"));
}

// --- Saved and loaded again ---

class IniRoundTrip : public IniFile {
  protected:
    IniRoundTrip() { log_set_level(CurrentLog, LogError); }
    ~IniRoundTrip() override { ini_free(&again_); }

    /// Saves the store, loads the file into a store of the same definitions, and returns that store.
    ini *round_trip(const std::vector<setting_list> &definitions) {
        EXPECT_EQ(1, ini_save(x, "saved.ini"));
        std::vector<setting_list> table = definitions;
        table.push_back({nullptr, nullptr, Ini_None});
        ini_free(&again_);
        again_ = ini_init();
        ini_setup(again_, table.data(), nullptr, 0);
        EXPECT_EQ(1, ini_load(again_, "saved", nullptr));
        return again_;
    }

    static std::vector<std::string> all_values(ini *store, int index) {
        std::vector<std::string> all;
        for (const char *v = ini_value(store, index); v != nullptr; v = ini_value_next(store, index))
            all.emplace_back(v);
        return all;
    }

    /// True when one setting of this name and value comes back as it was.
    bool comes_back(const std::string &name, const std::string &value) {
        const std::vector<setting_list> definitions = {{name.c_str(), value.c_str(), Ini_None}};
        set_up(definitions);
        ini *other = round_trip(definitions);
        return ini_items(other) == 1 && all_values(other, 0) == std::vector<std::string>{value};
    }

  private:
    ini *again_ = nullptr;
};

TEST_F(IniRoundTrip, ManySettingsOfEveryKindComeBack) {
    const std::vector<setting_list> definitions = {
        {"single", "1", Ini_None},      {"multi", "one", Ini_Multi},      {"path", "/a/b c", Ini_Path},
        {"empty", "", Ini_Empty},       {"fixed", "f", Ini_Fixed},        {"pass", "hush", Ini_Pass},
        {"none", nullptr, Ini_Replace}, {"ref", "$(path)/x", Ini_Replace}};
    set_up(definitions);
    for (int i = 0; i < 40; i++) {
        ini_add_name(x, "multi", (std::string(static_cast<std::size_t>(i), 'm') + "#").c_str());
        ini_add_name(x, ("new" + std::to_string(i % 20)).c_str(), std::to_string(i).c_str());
    }
    ini *other = round_trip(definitions);
    ASSERT_EQ(28, ini_items(other));
    for (int i = 0; i < 28; i++) {
        EXPECT_STREQ(ini_label(x, i), ini_label(other, i));
        EXPECT_EQ(ini_setting_mode(x, i), ini_setting_mode(other, i)) << ini_label(x, i);
        EXPECT_THAT(all_values(other, i), ElementsAreArray(values(i))) << ini_label(x, i);
    }
    EXPECT_EQ(41u, values("multi").size());
}

TEST_F(IniRoundTrip, EveryByteComesBackInsideAValueButTheLineFeed) {
    for (int byte = 1; byte < 256; byte++) {
        const std::string value = std::string("a") + static_cast<char>(byte) + "b";
        EXPECT_EQ(byte != '\n', comes_back("name", value)) << byte;
    }
}

TEST_F(IniRoundTrip, EveryByteComesBackInsideANameButWhatSeparates) {
    for (int byte = 1; byte < 256; byte++) {
        const std::string name = std::string("a") + static_cast<char>(byte) + "b";
        EXPECT_EQ(byte != '\n' && byte != ' ' && byte != '\t', comes_back(name, "value")) << byte;
    }
}

TEST_F(IniRoundTrip, LineOf999BytesComesBack) {
    EXPECT_TRUE(comes_back("name", std::string(994, 'v')));
    EXPECT_TRUE(comes_back(std::string(500, 'n'), std::string(498, 'v')));
    EXPECT_FALSE(comes_back("name", std::string(995, 'v')));
    EXPECT_FALSE(comes_back(std::string(500, 'n'), std::string(499, 'v')));
}

TEST_F(IniRoundTrip, UnusualNamesAndValuesComeBack) {
    const char *const rows[][2] = {{"a", "#"},    {"a", "# b"},     {"a", "vhost x"},     {"a", "vend"},
                                   {"a#", "x"},   {"Vend", "x"},    {"vhosts", "x"},      {"[a]", "]"},
                                   {"a", "a  b"}, {"$(a)", "$(a)"}, {"vhost_match", "X"}, {"a", "\vx"},
                                   {"a\fb", "x"}};
    for (const auto &row : rows)
        EXPECT_TRUE(comes_back(row[0], row[1])) << row[0] << ' ' << row[1];
}

TEST_F(IniRoundTrip, WhatALineCannotCarryDoesNotComeBack) {
    const char *const rows[][2] = {{"a", ""},     {"a", " x"},   {"a", "x "}, {"a", "\tx"},  {"a", "x\r"},
                                   {"a", "x\v"},  {"a", "x\ny"}, {"", "x"},   {"#a", "x"},   {"a b", "x"},
                                   {"a\tb", "x"}, {"\fa", "x"},  {" a", "x"}, {"vend", "x"}, {"vhost", "x"}};
    for (const auto &row : rows)
        EXPECT_FALSE(comes_back(row[0], row[1])) << row[0] << ' ' << row[1];
}

TEST_F(IniRoundTrip, SecondSettingOfANameLosesItsValueToTheFirst) {
    const std::vector<setting_list> definitions = {{"a", "1", Ini_Multi}, {"a", "2", Ini_None}};
    set_up(definitions);
    ini *other = round_trip(definitions);
    EXPECT_THAT(all_values(other, 0), ElementsAre("1", "2"));
    EXPECT_THAT(all_values(other, 1), IsEmpty());
}

// --- Conversion functions ---

TEST_F(IniFile, RegistrationIsLoggedAndTheSameFlagReplaces) {
    set_up({{"a", nullptr, Xtra1}});
    ini_setup_load_fn(x, to_upper, Xtra1);
    ini_setup_load_fn(x, to_word, Xtra2);
    ini_setup_load_fn(x, to_word, Xtra1);
    EXPECT_THAT(logged(), ElementsAre("Info: New load fn [" + address(to_upper) + "] set for flag [64]",
                                      "Info: New load fn [" + address(to_word) + "] set for flag [128]",
                                      "Info: Load fn [" + address(to_upper) +
                                          "] already set for flag [64], replacing with new fn"));
    EXPECT_EQ(2, array_items(x->xtra));
    EXPECT_EQ(1, load("a value\n"));
    EXPECT_STREQ("word", ini_value(x, 0));
}

TEST_F(IniFile, LoadedValuesAreConverted) {
    set_up({{"a", nullptr, Xtra1}, {"b", nullptr, Ini_None}});
    ini_setup_load_fn(x, to_upper, Xtra1);
    EXPECT_EQ(1, load("a value\nb value\n"));
    EXPECT_STREQ("VALUE", ini_value(x, 0));
    EXPECT_STREQ("value", ini_value(x, 1));
    EXPECT_STREQ("value", ini_peek(x, "site", 0)) << "peeking shows the file";
}

} // namespace
} // namespace installer::test
