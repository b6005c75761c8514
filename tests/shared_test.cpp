// The settings data file: what its lines define, the built-in settings, and the table that holds them.

#include "installer/shared.h"

#include "installer/lib.h"
#include "installer/tcp.h"
#include "tests/support.h"

#include <algorithm>
#include <numeric>

#include <malloc.h>

namespace installer::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsSubsetOf;

class Datfile : public LogDir {
  protected:
    Datfile() : store_(ini_init()) {}
    ~Datfile() override {
        clear_datfile();
        ini_free(&store_);
    }

    int load(std::string_view text) {
        write_file("kit.dat", text);
        return load_datfile(store_, "kit.dat");
    }
    std::string value(const char *name) const {
        const char *text = ini_value_name(store_, name);
        return text != nullptr ? text : "(none)";
    }
    /// Names in the table, up to the terminator.
    static std::vector<std::string> names() {
        std::vector<std::string> all;
        for (const setting_list *record = _settings; record->setting != nullptr; ++record)
            all.emplace_back(record->setting);
        return all;
    }

    ini *store_;
};

TEST_F(Datfile, OnlyCommentsAndBlankLinesStillYieldTheFourBuiltInSettings) {
    ASSERT_EQ(1, load("# nothing\n\n   \t\n#product X\n"));
    EXPECT_THAT(names(), ElementsAre("host", "system_dir", "current_dir", "action"));
    EXPECT_EQ(4, ini_items(store_));
    char host[text_size];
    EXPECT_EQ(tcp_hostname(host, text_size), value("host"));
    EXPECT_EQ("/etc", value("system_dir"));
    EXPECT_EQ(dir(), value("current_dir"));
    EXPECT_EQ("install", value("action"));
}

TEST_F(Datfile, SettingsThatCannotBeReadAreNotLoaded) {
    EXPECT_EQ(0, load_datfile(store_, test::unreadable));
    EXPECT_EQ(0, ini_items(store_));
    EXPECT_THAT(log_lines(), Contains("Error: Error reading from '/proc/self/mem', Input/output error"));
}

TEST_F(Datfile, AFolderYieldsTheFourBuiltInSettings) {
    EXPECT_EQ(1, load_datfile(store_, "."));
    EXPECT_EQ(4, ini_items(store_));
}

TEST_F(Datfile, NothingIsLoadedInAFolderThatCannotBeNamed) {
    write_file(beside("kit.dat"), "target $(current_dir)/site\n");
    std::filesystem::remove(dir()); // the working directory has no name any more
    EXPECT_EQ(0, load_datfile(store_, beside("kit.dat").c_str()));
    EXPECT_EQ(0, ini_items(store_));
    EXPECT_THAT(log_lines(), Contains("Error: Error finding current_dir, No such file or directory"));
}

TEST_F(Datfile, BuiltInSettingsButTheActionAreFixedAndReplaceable) {
    ASSERT_EQ(1, load("name value\n"));
    EXPECT_EQ(36U, _settings[0].mode);
    EXPECT_EQ(36U, _settings[1].mode);
    EXPECT_EQ(36U, _settings[2].mode);
    EXPECT_EQ(0U, _settings[3].mode);
    EXPECT_EQ(4U, _settings[4].mode);
    EXPECT_EQ(-1, ini_add_name(store_, "current_dir", "/elsewhere"));
    EXPECT_EQ(1, ini_add_name(store_, "action", "upgrade"));
    EXPECT_EQ("upgrade", value("action"));
}

TEST_F(Datfile, LogsTheBuiltInSettingsAndEveryDefinition) {
    ASSERT_EQ(1, load("product Board\nowner\n"));
    char host[text_size];
    const std::string host_line = std::string("Info: host=") + tcp_hostname(host, text_size);
    const auto lines = log_lines();
    ASSERT_GE(lines.size(), 6U);
    EXPECT_THAT(std::vector<std::string>(lines.begin(), lines.begin() + 6),
                ElementsAre(host_line, "Info: system_dir=/etc", "Info: current_dir=" + dir(),
                            "Info: action=install", "Debug: Adding 'product'='Board'",
                            "Debug: Adding 'owner'=''"));
}

TEST_F(Datfile, NameEndsAtTheFirstBlankAndTheValueRunsToTheEndOfTheLine) {
    const struct {
        const char *line, *name, *value;
    } rows[] = {
        {"  product   Example Site  ", "product", "Example Site"},
        {"a\tb", "a", "b"},
        {"a \t \t b\tc  d", "a", "b\tc  d"},
        {"a # b", "a", "# b"},
        {"a#b c", "a#b", "c"},
        {"a \"b\"", "a", "\"b\""},
        {"a b\r", "a", "b"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.line);
        ASSERT_EQ(1, load(row.line));
        EXPECT_STREQ(row.name, _settings[4].setting);
        EXPECT_STREQ(row.value, _settings[4].dflt);
        EXPECT_EQ(nullptr, _settings[5].setting);
    }
}

TEST_F(Datfile, NameAloneDefinesASettingWithoutADefault) {
    ASSERT_EQ(1, load("owner   \n"));
    EXPECT_STREQ("owner", _settings[4].setting);
    EXPECT_EQ(nullptr, _settings[4].dflt);
    EXPECT_EQ("(none)", value("owner"));
    EXPECT_EQ(4, ini_index(store_, "owner"));
}

TEST_F(Datfile, SecondActionIsKeptButTheBuiltInOneIsFound) {
    ASSERT_EQ(1, load("action upgrade\n"));
    EXPECT_THAT(names(), ElementsAre("host", "system_dir", "current_dir", "action", "action"));
    EXPECT_EQ("install", value("action"));
    EXPECT_STREQ("upgrade", ini_value(store_, 4));
}

TEST_F(Datfile, ReferencesAmongTheValuesAreExpanded) {
    ASSERT_EQ(1, load("site $(BASE)/site\nbase $(current_dir)/srv\nconf $(system_dir)/x $(nosuch)\n"));
    EXPECT_EQ(dir() + "/srv/site", value("site"));
    EXPECT_EQ("/etc/x $(nosuch)", value("conf"));
}

TEST_F(Datfile, TableGrowsFromTenToFifteenToTwentyRecordsAndStaysTerminated) {
    const auto defined = [](int count) {
        std::vector<int> numbers(static_cast<std::size_t>(count));
        std::iota(numbers.begin(), numbers.end(), 1);
        std::string text;
        for (const int number : numbers)
            text += "name" + std::to_string(number) + " value\n";
        return text;
    };
    // A table that its definitions fill to the last record gets one more, which ends it.
    const struct {
        int count, capacity;
    } rows[] = {{5, 10}, {6, 11}, {7, 15}, {11, 16}, {12, 20}, {500, 505}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.count);
        ASSERT_EQ(1, load(defined(row.count)));
        const int records = 4 + row.count;
        ASSERT_EQ(static_cast<std::size_t>(records), names().size());
        EXPECT_EQ("name" + std::to_string(row.count), names().back());
        // Everything behind the definitions is there and is zero.
        ASSERT_GE(malloc_usable_size(_settings), static_cast<std::size_t>(row.capacity) * sizeof *_settings);
        EXPECT_TRUE(
            std::all_of(_settings + records, _settings + row.capacity, [](const setting_list &record) {
                return record.setting == nullptr && record.dflt == nullptr && record.mode == Ini_None;
            }));
    }
}

TEST_F(Datfile, LongLineIsReadInPiecesThatAreLinesOfTheirOwn) {
    ASSERT_EQ(1, load("a " + std::string(997, 'x') + "b c\n")); // 999 characters fit: "b c" is a line
    EXPECT_EQ(std::string(997, 'x'), value("a"));
    EXPECT_EQ("c", value("b"));
}

TEST_F(Datfile, AnyBytesAreTaken) {
    std::string bytes;
    for (int round = 0; round < 20; ++round)
        for (int byte = 0; byte < 256; ++byte)
            bytes += static_cast<char>((byte * 7 + round * 31) % 256);
    EXPECT_EQ(1, load(bytes));
    EXPECT_EQ("install", value("action"));
}

TEST_F(Datfile, MissingFileIsLoggedAndLeavesTheStoreUntouched) {
    EXPECT_EQ(0, load_datfile(store_, "missing.dat"));
    EXPECT_EQ(nullptr, _settings);
    EXPECT_EQ(0, ini_items(store_));
    EXPECT_THAT(log_lines(),
                ElementsAre("Error: Error opening 'missing.dat' for read, No such file or directory"));
}

TEST_F(Datfile, NullArgumentsGiveZeroWithoutAMessage) {
    write_file("kit.dat", "");
    EXPECT_EQ(0, load_datfile(nullptr, "kit.dat"));
    EXPECT_EQ(0, load_datfile(store_, nullptr));
    EXPECT_THAT(log_lines(), ElementsAre());
}

TEST_F(Datfile, ClearingReleasesTheTableOnce) {
    clear_datfile();
    ASSERT_EQ(1, load("a b\n"));
    clear_datfile();
    EXPECT_EQ(nullptr, _settings);
    clear_datfile();
    EXPECT_EQ("b", value("a")); // the store has its own copies
}

} // namespace
} // namespace installer::test
