// What the script modules share: guards, the reader of script lines, messages with their reason.

#include "installer/lib.h"

#include "tests/support.h"

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <vector>

namespace installer {
namespace {

using test::Buffer;
using test::read_file;
using test::write_file;
using lines = std::vector<std::string>;

class Script : public test::TempDir {
  protected:
    /// All lines of a script with that text.
    static lines lines_in(const std::string &text) {
        write_file("script", text);
        const file_ptr file(s_fopen("script", "r"));
        script_reader script(file.get());
        lines all;
        while (const char *line = script.next())
            all.emplace_back(line);
        return all;
    }

    /// The lines of one section, after "found" when it was found.
    static lines section_in(const std::string &text, const char *name) {
        write_file("script", text);
        const file_ptr file(s_fopen("script", "r"));
        script_reader script(file.get());
        lines all;
        if (script.find_section(name))
            all.emplace_back("found");
        while (const char *line = script.next_in_section())
            all.emplace_back(line);
        EXPECT_EQ(nullptr, script.next_in_section()) << "the end stays the end";
        return all;
    }
};

// --- Lines ---

TEST_F(Script, LinesAreTrimmedAndEmptyOnesSkipped) {
    EXPECT_EQ((lines{"a", "b  c"}), lines_in("\n  a \t\n \t \n\n\tb  c\n\n"));
    EXPECT_EQ(lines{}, lines_in(""));
    EXPECT_EQ(lines{}, lines_in("\n\n"));
}

TEST_F(Script, CommentsAreSkipped) {
    EXPECT_EQ((lines{"a # not one"}), lines_in("#x\n  # y\na # not one\n#"));
}

TEST_F(Script, LineEndsMayBeCrLf) {
    EXPECT_EQ((lines{"a", "b"}), lines_in("a\r\n\r\n#c\r\nb\r\n"));
}

TEST_F(Script, LastLineNeedsNoLineEnd) {
    EXPECT_EQ((lines{"a", "b"}), lines_in("a\nb"));
}

TEST_F(Script, NulByteEndsItsLineEarly) {
    EXPECT_EQ((lines{"a", "c"}), lines_in(std::string("a\0b\nc\n\0d\n", 9)));
}

TEST_F(Script, AnyByteMayStandInALine) {
    EXPECT_EQ((lines{"\xFF\x01\xC3"}), lines_in("\xFF\x01\xC3\n"));
}

TEST_F(Script, LongLinesComeInPieces) {
    const std::string full(999, 'a');
    EXPECT_EQ((lines{full, "b"}), lines_in(full + "\nb\n"));
    EXPECT_EQ((lines{full, "a", "b"}), lines_in(full + "a\nb\n"));
    EXPECT_EQ((lines{full, full, std::string(502, 'a'), "b"}), lines_in(std::string(2500, 'a') + "\nb\n"));
    EXPECT_EQ((lines{full, full}), lines_in(full + full));
}

TEST_F(Script, EachPieceOfALongLineCountsAsALine) {
    const std::string full(999, 'a');
    EXPECT_EQ((lines{full}), lines_in(full + "#comment\n"));
    EXPECT_EQ((lines{full, "b"}), lines_in(full + "  b\n"));
}

TEST_F(Script, LineMayBeChangedInPlace) {
    write_file("script", "name value\nnext\n");
    const file_ptr file(s_fopen("script", "r"));
    script_reader script(file.get());
    char *const line = script.next();
    ASSERT_NE(nullptr, line);
    EXPECT_STREQ("value", split_name(line));
    EXPECT_STREQ("next", script.next());
    EXPECT_EQ(nullptr, script.next());
    EXPECT_EQ(nullptr, script.next());
}

TEST_F(Script, NoFileReadsAsAnEmptyOne) {
    script_reader script(nullptr);
    EXPECT_EQ(nullptr, script.next());
    EXPECT_FALSE(script.find_section("a"));
    EXPECT_EQ(nullptr, script.next_in_section());
}

TEST_F(Script, DirectoryReadsAsAnEmptyFile) {
    const file_ptr file(s_fopen(".", "r"));
    script_reader script(file.get());
    EXPECT_EQ(nullptr, script.next());
    EXPECT_FALSE(script.broke_off());
}

TEST_F(Script, ReadingThatFailsIsNoEndOfTheFile) {
    const file_ptr file(s_fopen(test::unreadable, "r"));
    script_reader script(file.get());
    EXPECT_FALSE(script.broke_off());
    EXPECT_EQ(nullptr, script.next());
    EXPECT_TRUE(script.broke_off());
    EXPECT_EQ(EIO, errno);
}

// --- Sections ---

TEST_F(Script, SectionRunsFromItsHeaderToTheNext) {
    const std::string text = "before\n[one]\na\n#c\n\nb\n[two]\nc\n[three]\n";
    EXPECT_EQ((lines{"found", "a", "b"}), section_in(text, "one"));
    EXPECT_EQ((lines{"found", "c"}), section_in(text, "two"));
    EXPECT_EQ((lines{"found"}), section_in(text, "three"));
    EXPECT_EQ(lines{}, section_in(text, "four"));
}

TEST_F(Script, SectionOfTheSameNameFurtherDownIsNotRead) {
    EXPECT_EQ((lines{"found", "a"}), section_in("[one]\na\n[two]\nb\n[one]\nc\n", "one"));
}

TEST_F(Script, HeaderTable) {
    const struct {
        const char *header, *name;
        bool found;
    } rows[] = {
        {"[install]", "install", true},
        {"[INSTALL]", "install", true},
        {"[install]", "Install", true},
        {"  [install] \r", "install", true},
        {"[install", "install", true},
        {"[install] old", "install", false},
        {"[install] x", "install] x", true},
        {"[install]]", "install]", true},
        {"[install]]", "install", false},
        {"[installer]", "install", false},
        {"[inst]", "install", false},
        {"[ install ]", "install", false},
        {"[ install ]", " install ", true},
        {"install]", "install", false},
        {"#[install]", "install", false},
        {"[]", "", false},
        {"[", "", false},
        {"[install]", "", false},
        {"[install]", nullptr, false},
        {"[", "install", false},
        {"]", "]", false},
    };
    for (const auto &row : rows)
        EXPECT_EQ((row.found ? lines{"found", "a"} : lines{}),
                  section_in(row.header + std::string("\na\n"), row.name))
            << row.header << " " << str(row.name);
}

TEST_F(Script, NoSectionHasNoLines) {
    write_file("script", "a\n");
    const file_ptr file(s_fopen("script", "r"));
    script_reader script(file.get());
    EXPECT_EQ(nullptr, script.next_in_section());
    EXPECT_STREQ("a", script.next()) << "and nothing was read";
}

TEST_F(Script, SplitNameCutsAfterTheFirstWord) {
    const struct {
        const char *line, *name, *value;
    } rows[] = {
        {"product   Example Site", "product", "Example Site"},
        {"product\t \tx\ty", "product", "x\ty"},
        {"product", "product", ""},
        {"product ", "product", ""},
        {"product #x", "product", "#x"},
        {" x", "", "x"},
        {"", "", ""},
    };
    for (const auto &row : rows) {
        Buffer line(40, row.line);
        EXPECT_STREQ(row.value, split_name(line)) << row.line;
        EXPECT_STREQ(row.name, line) << row.line;
    }
    EXPECT_EQ(nullptr, split_name(nullptr));
}

// --- Guards ---

TEST_F(Script, CloseWrittenTellsThatTheBytesAreThere) {
    file_ptr file(s_fopen("out", "w"));
    ASSERT_NE(nullptr, file);
    std::fputs("text", file.get());
    errno = EDOM;
    EXPECT_TRUE(close_written(file));
    EXPECT_EQ(EDOM, errno);
    EXPECT_EQ(nullptr, file);
    EXPECT_EQ("text", read_file("out"));
}

TEST_F(Script, CloseWrittenTellsOfBytesThatFailOnlyNow) {
    file_ptr file(s_fopen("/dev/full", "w"));
    ASSERT_NE(nullptr, file);
    std::fputs("text", file.get());
    errno = 0;
    EXPECT_FALSE(close_written(file));
    EXPECT_EQ(ENOSPC, errno);
    EXPECT_EQ(nullptr, file);
}

TEST_F(Script, CloseWrittenTellsOfBytesThatFailedBefore) {
    file_ptr file(s_fopen("/dev/full", "w"));
    ASSERT_NE(nullptr, file);
    std::fputs("text", file.get());
    EXPECT_EQ(EOF, std::fflush(file.get()));
    EXPECT_FALSE(close_written(file));
    EXPECT_EQ(ENOSPC, errno) << "the reason of the failed write is still there";
}

TEST_F(Script, CloseWrittenNamesSomeReasonWhenItsOwnIsGone) {
    file_ptr file(s_fopen("/dev/full", "w"));
    ASSERT_NE(nullptr, file);
    std::fputs("text", file.get());
    EXPECT_EQ(EOF, std::fflush(file.get()));
    errno = 0;
    EXPECT_FALSE(close_written(file));
    EXPECT_EQ(EIO, errno);
}

TEST_F(Script, CloseWrittenOfNoFileFails) {
    file_ptr file;
    errno = 0;
    EXPECT_FALSE(close_written(file));
    EXPECT_EQ(EBADF, errno);
}

TEST_F(Script, SilentCloseLeavesErrnoAlone) {
    file_ptr file(s_fopen("/dev/full", "w"));
    ASSERT_NE(nullptr, file);
    std::fputs("text", file.get());
    errno = EDOM;
    file.reset();
    EXPECT_EQ(EDOM, errno);
}

// --- Messages ---

__attribute__((format(printf, 2, 3))) void fill(message &m, const char *format, ...) {
    std::va_list args;
    va_start(args, format);
    vmessage(m, format, args);
    va_end(args);
}

TEST_F(Script, MessageIsCutAt999Characters) {
    for (const std::size_t length : {0u, 998u, 999u, 1000u, 1001u, 5000u}) {
        message m;
        const std::string text(length, 'x');
        fill(m, "%s", text.c_str());
        EXPECT_EQ(text.substr(0, 999), m.text) << length;
    }
}

TEST_F(Script, MessageWithoutAFormatOrThatCannotBeFormattedIsEmpty) {
    message m;
    const char *const none = nullptr;
    const wchar_t unwritable[] = {0x20AC, 0};
    errno = EDOM;
    fill(m, none);
    EXPECT_STREQ("", m.text);
    fill(m, "%ls", unwritable);
    EXPECT_STREQ("", m.text);
    EXPECT_EQ(EDOM, errno);
}

TEST_F(Script, ReasonIsAppended) {
    message m;
    fill(m, "Error opening '%s'", "x");
    errno = EDOM;
    add_reason(m, ENOENT);
    EXPECT_EQ("Error opening 'x', " + std::string(std::strerror(ENOENT)), m.text);
    EXPECT_EQ(EDOM, errno);
}

TEST_F(Script, ReasonIsCutAt999Characters) {
    const std::string reason = ", " + std::string(std::strerror(ENOENT));
    for (const std::size_t length : {990u, 998u, 999u}) {
        message m;
        const std::string text(length, 'x');
        fill(m, "%s", text.c_str());
        add_reason(m, ENOENT);
        EXPECT_EQ((text + reason).substr(0, 999), m.text) << length;
    }
}

TEST_F(Script, LastErrorIsEmptyUntilItIsSet) {
    last_error e;
    EXPECT_STREQ("", e.get());
    e.set("first");
    EXPECT_STREQ("first", e.get());
    e.set("second");
    EXPECT_STREQ("second", e.get());
    e.set(e.get());
    EXPECT_STREQ("second", e.get()) << "its own text may be set again";
    e.set(nullptr);
    EXPECT_STREQ("", e.get());
}

TEST_F(Script, LastErrorKeepsACopy) {
    last_error e;
    Buffer text(8, "first");
    e.set(text);
    text[0] = 'x';
    EXPECT_STREQ("first", e.get());
}

} // namespace
} // namespace installer
