// The path half of lib: taking paths apart and together, the program's place, temporary names, wildcards.

#include "installer/lib.h"

#include "tests/support.h"

#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <random>
#include <set>
#include <vector>

namespace installer {
namespace {

using test::Buffer;
using test::exists;
using test::names_in;
using test::read_file;
using test::write_file;

/// Puts the separator back after a test that changes it.
class Paths : public testing::Test {
  protected:
    ~Paths() override { usesep('/'); }
};

class PathFiles : public test::LogDir {};

// --- Opening and closing ---

TEST_F(PathFiles, OpensWhatFopenOpens) {
    write_file("a", "text");
    FILE *f = s_fopen("a", "r");
    ASSERT_NE(nullptr, f);
    s_fclose(&f);
    EXPECT_EQ(nullptr, f);
    EXPECT_EQ(nullptr, s_fopen("missing", "r"));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ(nullptr, s_fopen(nullptr, "r"));
    EXPECT_EQ(nullptr, s_fopen("a", nullptr));
}

TEST_F(PathFiles, ClosesNothingForNull) {
    FILE *none = nullptr;
    s_fclose(&none);
    s_fclose(nullptr);
    EXPECT_EQ(nullptr, none);
}

// --- The separator ---

TEST_F(Paths, SeparatorIsASlashAtTheStart) {
    EXPECT_STREQ("/", Sep);
}

TEST_F(Paths, UsesepChangesTheCharacterOnly) {
    usesep('\\');
    EXPECT_STREQ("\\", Sep);
}

TEST_F(Paths, SetsepReplacesBothKinds) {
    Buffer b(10, "/a\\b/c");
    setsep(b, ':');
    EXPECT_STREQ(":a:b:c", b);
    setsep(nullptr, '/');
}

// --- Taking apart ---

TEST_F(Paths, StripFileCutsTheLastComponent) {
    const struct {
        const char *path, *directory, *file;
    } rows[] = {
        {"/a/b/c.txt", "/a/b", "c.txt"}, {"c.txt", "", "c.txt"}, {"/c", "", "c"}, {"a/", "a", ""},
        {"a\\b/c\\d", "a\\b/c", "d"},    {"", "", ""},           {"/", "", ""},   {"a//b", "a/", "b"},
    };
    for (const auto &row : rows) {
        Buffer path(20, row.path);
        Buffer file(20);
        EXPECT_EQ(path, strip_file(path, file, 20)) << row.path;
        EXPECT_STREQ(row.directory, path) << row.path;
        EXPECT_STREQ(row.file, file) << row.path;
    }
}

TEST_F(Paths, StripFileBoundsTheFile) {
    Buffer path(20, "dir/filename");
    Buffer file(5);
    strip_file(path, file, 5);
    EXPECT_STREQ("dir", path);
    EXPECT_STREQ("file", file);
    EXPECT_EQ(nullptr, strip_file(nullptr, file, 5));
    Buffer other(20, "a/b");
    EXPECT_EQ(other, strip_file(other, nullptr, 0));
    EXPECT_STREQ("a", other);
}

TEST_F(Paths, StripPathKeepsTheLastComponent) {
    const struct {
        const char *path, *result;
    } rows[] = {{"/a/b/c.txt", "c.txt"}, {"c.txt", "c.txt"}, {"a/", ""},
                {"a\\b", "b"},           {"a/b\\c", "c"},    {"", ""}};
    for (const auto &row : rows) {
        Buffer path(20, row.path);
        EXPECT_EQ(path, strip_path(path));
        EXPECT_STREQ(row.result, path) << row.path;
    }
    EXPECT_EQ(nullptr, strip_path(nullptr));
}

TEST_F(Paths, StripExtCutsAtTheLastDotOfTheLastComponent) {
    const struct {
        const char *path, *result;
    } rows[] = {
        {"a.txt", "a"},
        {"a.tar.gz", "a.tar"},
        {"dir.d/file", "dir.d/file"},
        {"dir.d\\file", "dir.d\\file"},
        {"dir.d/a.b", "dir.d/a"},
        {".profile", ".profile"},
        {".profile.bak", ".profile"},
        {"dir/.profile", "dir/"}, // only a dot at the start of the whole text is no extension
        {"a.", "a"},
        {"abc", "abc"},
        {"", ""},
    };
    for (const auto &row : rows) {
        Buffer path(20, row.path);
        EXPECT_EQ(path, strip_ext(path));
        EXPECT_STREQ(row.result, path) << row.path;
    }
    EXPECT_EQ(nullptr, strip_ext(nullptr));
}

TEST_F(Paths, GetExtTakesAllBehindTheFirstDotOfTheLastComponent) {
    const struct {
        const char *path, *ext;
        int result;
    } rows[] = {
        {"a.tar.gz", "tar.gz", 6},  {"dir.d/file", "", 0}, {"dir.d/a.b", "b", 1},
        {".profile", "profile", 7}, {"a.", "", 0},         {"", "", 0},
        {"d.d\\a", "", 0},
    };
    for (const auto &row : rows) {
        Buffer ext(20);
        EXPECT_EQ(row.result, get_ext(ext, row.path, 20)) << row.path;
        EXPECT_STREQ(row.ext, ext) << row.path;
    }
}

TEST_F(Paths, GetExtIsBounded) {
    Buffer ext(4);
    EXPECT_EQ(3, get_ext(ext, "a.tar.gz", 4));
    EXPECT_STREQ("tar", ext);
    EXPECT_EQ(0, get_ext(nullptr, "a.b", 4));
    EXPECT_EQ(0, get_ext(ext, nullptr, 4));
    EXPECT_STREQ("tar", ext);
}

TEST_F(Paths, StripEolCutsAtTheFirstLineEnd) {
    const struct {
        const char *text, *result;
    } rows[] = {{"a\r\nb", "a"}, {"a\nb\r", "a"}, {"a \n", "a "}, {"abc", "abc"}, {"\n", ""}, {"", ""}};
    for (const auto &row : rows) {
        Buffer text(20, row.text);
        strip_eol_r(text);
        EXPECT_STREQ(row.result, text) << row.text;
    }
    strip_eol_r(nullptr);
}

TEST_F(Paths, StripWhitespaceKeepsBlanksBeforeTheLineEnd) {
    const struct {
        const char *text, *result;
    } rows[] = {{"  a b  \r\nc", "a b  "}, {"\n a\n", "a"}, {"a ", "a "}, {" \n", ""}, {"", ""}};
    for (const auto &row : rows) {
        Buffer text(20, row.text);
        EXPECT_STREQ(row.result, strip_whitespace(text)) << row.text;
    }
    EXPECT_EQ(nullptr, strip_whitespace(nullptr));
}

// --- Putting together ---

struct join_row {
    const char *directory, *file, *result;
};

const join_row joins[] = {
    {"/usr/local/", "/bin", "/usr/local/bin"},
    {"dir", "file", "dir/file"},
    {"dir/", "file", "dir/file"},
    {"dir", "/file", "dir/file"},
    {"dir\\", "\\file", "dir/file"},
    {"a\\b", "c\\d/e", "a/b/c/d/e"},
    {"", "file", "file"},
    {"", "/file", "/file"},
    {"/", "file", "/file"},
    {"/", "/", "/"},
    {"dir", "", "dir/"},
    {"dir/", "", "dir/"},
    {"dir//", "//file", "dir///file"}, // one of the separators goes, no more
    {"dir", ".", "dir/."},
};

TEST_F(Paths, AttachPathPutsOneSeparatorBetween) {
    for (const auto &row : joins) {
        Buffer path(20, row.directory);
        EXPECT_EQ(path, attach_path(path, row.file, 20));
        EXPECT_STREQ(row.result, path) << row.directory << " + " << row.file;
    }
}

TEST_F(Paths, AttachPathGivesNullForAnEmptyResult) {
    Buffer path(20, "");
    EXPECT_EQ(nullptr, attach_path(path, "", 20));
    EXPECT_STREQ("", path);
}

TEST_F(Paths, AttachPathWithoutAFileOnlyRewritesSeparators) {
    Buffer path(20, "a\\b");
    EXPECT_EQ(path, attach_path(path, nullptr, 20));
    EXPECT_STREQ("a/b", path);
    Buffer empty(20, "");
    EXPECT_EQ(empty, attach_path(empty, nullptr, 20));
}

TEST_F(Paths, AttachPathWritesTheSeparatorInUse) {
    usesep('\\');
    Buffer path(20, "/a/b");
    attach_path(path, "c/d", 20);
    EXPECT_STREQ("\\a\\b\\c\\d", path);
    usesep(':');
    attach_path(path, "/e", 20);
    attach_path(path, "f", 20);
    EXPECT_STREQ(":a:b:c:d:e:f", path);
    Buffer ended(20, "a/");
    attach_path(ended, "b", 20);
    EXPECT_STREQ("a:b", ended) << "a directory that ended in a separator still does";
}

TEST_F(Paths, AttachPathStaysWithinItsBuffer) {
    const std::string whole = "dir/file";
    for (int size = 4; size <= 10; ++size) {
        Buffer path(size, "dir");
        EXPECT_EQ(path, attach_path(path, "file", size));
        EXPECT_EQ(whole.substr(0, static_cast<std::size_t>(size) - 1), std::string(path)) << size;
    }
    Buffer full(4); // no terminator
    EXPECT_EQ(full, attach_path(full, "file", 4));
    EXPECT_STREQ("###", full);
}

TEST_F(Paths, AttachPathGivesNullForNullOrNoRoom) {
    Buffer path(4, "a\\b");
    EXPECT_EQ(nullptr, attach_path(nullptr, "file", 20));
    EXPECT_EQ(nullptr, attach_path(path, "file", 0));
    EXPECT_EQ(nullptr, attach_path(path, "file", -1));
    EXPECT_STREQ("a\\b", path);
}

TEST_F(Paths, AttachPathxJoinsAList) {
    Buffer path(30);
    EXPECT_EQ(path, attach_pathx(path, 30, "/usr/", "/local", "bin\\x", nullptr));
    EXPECT_STREQ("/usr/local/bin/x", path);
    EXPECT_EQ(path, attach_pathx(path, 30, "one", nullptr));
    EXPECT_STREQ("one", path);
    EXPECT_EQ(path, attach_pathx(path, 30, nullptr, nullptr));
    EXPECT_STREQ("", path);
    EXPECT_EQ(nullptr, attach_pathx(nullptr, 30, "one", nullptr));
    EXPECT_EQ(nullptr, attach_pathx(path, 0, "one", nullptr));
}

TEST_F(Paths, AttachPathxIsBounded) {
    Buffer path(8);
    EXPECT_EQ(path, attach_pathx(path, 8, "abc", "def", "ghi", nullptr));
    EXPECT_STREQ("abc/def", path);
}

TEST_F(Paths, AttachExtAddsNoDot) {
    Buffer path(10, "setup");
    EXPECT_EQ(path, attach_ext(path, ".log", 10));
    EXPECT_STREQ("setup.log", path) << "nine characters fill a buffer of ten";
    Buffer bare(10, "setup");
    EXPECT_EQ(bare, attach_ext(bare, "log", 10));
    EXPECT_STREQ("setuplog", bare);
}

TEST_F(Paths, AttachExtIsBounded) {
    Buffer path(8, "setup");
    EXPECT_EQ(path, attach_ext(path, ".log", 8));
    EXPECT_STREQ("setup.l", path);
    EXPECT_EQ(path, attach_ext(path, nullptr, 8));
    EXPECT_STREQ("setup.l", path);
    EXPECT_EQ(nullptr, attach_ext(path, ".log", 0));
    EXPECT_EQ(nullptr, attach_ext(nullptr, ".log", 8));
}

TEST_F(Paths, JoinPathJoinsAsAttachPathDoes) {
    for (const auto &row : joins) {
        Buffer path(20);
        EXPECT_TRUE(join_path(path, 20, row.directory, row.file));
        EXPECT_STREQ(row.result, path) << row.directory << " + " << row.file;
    }
}

TEST_F(Paths, JoinPathRefusesWhatDoesNotFitWhole) {
    for (const auto &row : joins) {
        const int needed = static_cast<int>(std::strlen(row.result)) + 1;
        Buffer exact(needed);
        EXPECT_TRUE(join_path(exact, needed, row.directory, row.file)) << row.result;
        EXPECT_STREQ(row.result, exact);
        Buffer small(needed - 1);
        errno = 0;
        EXPECT_FALSE(join_path(small, needed - 1, row.directory, row.file)) << row.result;
        EXPECT_EQ(ENAMETOOLONG, errno);
    }
}

TEST_F(Paths, JoinPathLeavesTheDirectoryThatDidNotFit) {
    Buffer path(8);
    EXPECT_FALSE(join_path(path, 8, "a/b", "filename"));
    EXPECT_STREQ("a/b", path);
    EXPECT_FALSE(join_path(path, 8, "directory", "f"));
    EXPECT_STREQ("directo", path);
}

TEST_F(Paths, JoinPathMayExtendItsOwnBuffer) {
    Buffer path(8, "dir");
    EXPECT_TRUE(join_path(path, 8, path, "abc"));
    EXPECT_STREQ("dir/abc", path);
    EXPECT_FALSE(join_path(path, 8, path, "d"));
    EXPECT_STREQ("dir/abc", path);
}

TEST_F(Paths, JoinPathLeavesOutNull) {
    Buffer path(8, "old");
    EXPECT_TRUE(join_path(path, 8, nullptr, "name"));
    EXPECT_STREQ("name", path);
    EXPECT_TRUE(join_path(path, 8, "a\\b", nullptr));
    EXPECT_STREQ("a/b", path);
    EXPECT_TRUE(join_path(path, 8, nullptr, nullptr));
    EXPECT_STREQ("", path);
    errno = 0;
    EXPECT_FALSE(join_path(nullptr, 8, "a", "b"));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_FALSE(join_path(path, 0, "a", "b"));
}

// --- Where the program is ---

TEST_F(Paths, ExenameIsTheNameUpToItsFirstDot) {
    const struct {
        const char *arg0, *name;
    } rows[] = {
        {"./installer.sh", "installer"},
        {"/opt/x/setup", "setup"},
        {"setup.bin", "setup"},
        {".hidden", ""},
        {"c:\\kit\\setup.tar.gz", "setup"},
        {"dir.d/setup", "setup"},
        {"dir/", ""},
        {"", ""},
    };
    for (const auto &row : rows) {
        Buffer name(20);
        EXPECT_EQ(name, exename(name, row.arg0, 20));
        EXPECT_STREQ(row.name, name) << row.arg0;
    }
}

TEST_F(Paths, ExenameIsBoundedAndTakesNoNull) {
    Buffer name(4);
    EXPECT_EQ(name, exename(name, "setup", 4));
    EXPECT_STREQ("set", name);
    EXPECT_EQ(nullptr, exename(nullptr, "setup", 4));
    EXPECT_EQ(nullptr, exename(name, nullptr, 4));
    EXPECT_EQ(nullptr, exename(name, "setup", 0));
    EXPECT_STREQ("set", name);
}

TEST_F(Paths, ExepathOfAnAbsoluteName) {
    const struct {
        const char *arg0, *directory;
    } rows[] = {
        {"/opt/kit/setup", "/opt/kit"},
        {"\\opt\\kit\\setup", "/opt/kit"},
        {"/opt/./kit/setup", "/opt/kit"},
        {"/opt/././kit/setup", "/opt/kit"},
        {"/opt/kit/./setup", "/opt/kit"},
        {"/opt/kit/../setup", "/opt"},
        {"/opt/x/../kit/setup", "/opt/kit"},
        {"/opt/x/y/../../kit/setup", "/opt/kit"},
        {"/opt/x/./../kit/setup", "/opt/kit"},
        {"/../opt/setup", "/opt"},
        {"/opt/../../setup", ""},
        {"/setup", ""},
        {"/opt/.kit/setup", "/opt/.kit"},
        {"/opt/kit./setup", "/opt/kit."},
        {"/opt/kit//setup", "/opt/kit"},
        {"/opt/x/..kit/setup", "/optkit"}, // the character behind ".." is not looked at
        {"//a/.../x/setup", "/x"},         // what is left of "..." becomes a component "."
        {"C:\\setup", "C:/"},
        {"C:/kit/setup", "C:/kit"},
        {"C:setup", "C:setup"},
        {"C:", "C:/"},
    };
    for (const auto &row : rows) {
        Buffer path(40);
        EXPECT_EQ(path, exepath(path, row.arg0, 40));
        EXPECT_STREQ(row.directory, path) << row.arg0;
    }
}

TEST_F(PathFiles, ExepathOfARelativeNameStandsBelowTheWorkingDirectory) {
    const std::string here = dir();
    const std::string above = here.substr(0, here.rfind('/'));
    const struct {
        const char *arg0;
        std::string directory;
    } rows[] = {
        {"setup", here},
        {"./setup", here},
        {"kit/setup", here + "/kit"},
        {"../setup", above},
        {"../x/setup", above + "/x"},
        {"./kit/../setup", here},
        {"kit\\setup", here + "/kit"},
        {"", here},
    };
    for (const auto &row : rows) {
        char path[1000];
        EXPECT_EQ(path, exepath(path, row.arg0, sizeof path));
        EXPECT_EQ(row.directory, path) << row.arg0;
    }
}

TEST_F(Paths, ExepathIsBoundedAndTakesNoNull) {
    Buffer path(5);
    EXPECT_EQ(path, exepath(path, "/opt/kit/setup", 5));
    EXPECT_STREQ("/opt", path);
    EXPECT_EQ(nullptr, exepath(nullptr, "/a/b", 5));
    EXPECT_EQ(nullptr, exepath(path, nullptr, 5));
    EXPECT_EQ(nullptr, exepath(path, "/a/b", 0));
}

TEST_F(Paths, ExepathTakesAHostileName) {
    std::string arg0;
    for (int i = 0; i < 20000; ++i)
        arg0 += "/a/..";
    char path[100];
    EXPECT_STREQ("", exepath(path, (arg0 + "/setup").c_str(), sizeof path));
}

TEST_F(PathFiles, CurrentdirIsTheWorkingDirectory) {
    char path[1000];
    EXPECT_EQ(path, currentdir(path, sizeof path));
    EXPECT_EQ(dir(), path);
    EXPECT_EQ(nullptr, currentdir(nullptr, 1000));
    EXPECT_EQ(nullptr, currentdir(path, 3));
    EXPECT_EQ(ERANGE, errno);
    EXPECT_EQ(nullptr, currentdir(path, -1));
}

TEST_F(Paths, SystemDirectoriesAreEtc) {
    Buffer path(5);
    EXPECT_EQ(path, systemdir(path, 5));
    EXPECT_STREQ("/etc", path);
    EXPECT_EQ(path, windir(path, 3));
    EXPECT_STREQ("/e", path);
    EXPECT_EQ(nullptr, systemdir(nullptr, 5));
    EXPECT_EQ(nullptr, windir(nullptr, 5));
}

// --- Temporary names ---

TEST_F(PathFiles, TempfileNamesAFileThatDoesNotExist) {
    char path[path_size];
    EXPECT_EQ(path, tempfile(path, sizeof path, "sub", "kitXXXXXX"));
    const std::string name = path;
    ASSERT_EQ(std::strlen("sub/kit123456"), name.size());
    EXPECT_EQ("sub/kit", name.substr(0, 7));
    EXPECT_NE("XXXXXX", name.substr(7));
    for (const char c : name.substr(7))
        EXPECT_TRUE(std::isalnum(static_cast<unsigned char>(c))) << name;
}

TEST_F(PathFiles, TempfileCreatesNothing) {
    char path[path_size];
    EXPECT_EQ(path, tempfile(path, sizeof path, nullptr, nullptr));
    EXPECT_EQ(6u, std::strlen(path)) << path;
    EXPECT_FALSE(exists(path));
    EXPECT_TRUE(names_in(".").empty());
}

TEST_F(PathFiles, TempfileNamesDiffer) {
    std::set<std::string> names;
    for (int i = 0; i < 100; ++i) {
        char path[path_size];
        ASSERT_NE(nullptr, tempfile(path, sizeof path, "", nullptr));
        EXPECT_TRUE(names.insert(path).second) << path;
    }
}

TEST_F(PathFiles, TempfileReplacesTheLastSixCharactersOnly) {
    char path[path_size];
    ASSERT_EQ(path, tempfile(path, sizeof path, "", "XXXX-XXXXXX"));
    EXPECT_EQ("XXXX-", std::string(path).substr(0, 5));
}

TEST_F(PathFiles, TempfileRefusesAMaskWithoutRoomForAName) {
    for (const char *mask : {"", "kit", "kitXXXXX", "XXXXXX.tmp"}) {
        Buffer path(20, "old");
        errno = 0;
        EXPECT_EQ(nullptr, tempfile(path, 20, "", mask)) << mask;
        EXPECT_EQ(EINVAL, errno) << mask;
        EXPECT_STREQ("", path) << mask;
    }
}

TEST_F(PathFiles, TempfileCutsTheMaskAt127Characters) {
    char path[path_size];
    const std::string fits = std::string(121, 'a') + "XXXXXX";
    EXPECT_EQ(path, tempfile(path, sizeof path, "", fits.c_str()));
    EXPECT_EQ(127u, std::strlen(path));
    EXPECT_EQ(nullptr, tempfile(path, sizeof path, "", ("a" + fits).c_str()));
}

TEST_F(PathFiles, TempfileRefusesAPathThatDoesNotFit) {
    Buffer path(10);
    errno = 0;
    EXPECT_EQ(nullptr, tempfile(path, 10, "dir", "XXXXXX"));
    EXPECT_EQ(ENAMETOOLONG, errno);
    EXPECT_STREQ("", path);
    Buffer exact(11);
    EXPECT_EQ(exact, tempfile(exact, 11, "dir", "XXXXXX"));
    EXPECT_EQ(nullptr, tempfile(nullptr, 11, "dir", "XXXXXX"));
    EXPECT_EQ(nullptr, tempfile(exact, 0, "dir", "XXXXXX"));
}

TEST_F(PathFiles, TempfileLogsItsResultAndLeavesErrnoAlone) {
    char path[path_size];
    errno = EDOM;
    ASSERT_NE(nullptr, tempfile(path, sizeof path, "sub", nullptr));
    EXPECT_EQ(EDOM, errno);
    EXPECT_THAT(log_lines(), testing::ElementsAre("Debug: Tempfile made[" + std::string(path) + "]"));
}

// --- Wildcards ---

TEST(Wildcard, Table) {
    const struct {
        const char *text, *wild;
        int exact, folded;
    } rows[] = {
        {"", "*", 1, 1},
        {"", "", 1, 1},
        {"a", "", 0, 0},
        {"", "a", 0, 0},
        {"", "?", 0, 0},
        {"", "a*", 0, 0},
        {"", "**", 1, 1},
        {"", "*a", 0, 0},
        {"abc", "a*", 1, 1},
        {"abc", "*c", 1, 1},
        {"abc", "*b*", 1, 1},
        {"abc", "***b***", 1, 1},
        {"abc", "a**c", 1, 1},
        {"abc", "abc*", 1, 1},
        {"abc", "*abc", 1, 1},
        {"abc", "abcd", 0, 0},
        {"abc", "ab", 0, 0},
        {"abc", "a?c", 1, 1},
        {"ac", "a?c", 0, 0},
        {"abc", "???", 1, 1},
        {"abc", "????", 0, 0},
        {"ABC.TXT", "*.txt", 0, 1},
        {"ABC.TXT", "*.TXT", 1, 1},
        {"aBc", "*bc", 0, 1},
        {"bBc", "*Bc", 1, 1}, // the search stops at 'b' first, which then does not match exactly
        {"banana", "*na", 1, 1},
        {"banana", "b*n*a", 1, 1},
        {"banana", "*an", 0, 0},
        {"abab", "*ab", 1, 1},
        {"a*b", "a*b", 1, 1},
        {"[a]", "[a]", 1, 1},
        {"a", "[a]", 0, 0},
        {"\\*", "\\*", 1, 1},
        {"\xC4x", "\xC4*", 1, 1},
        {"\xE4x", "\xC4*", 0, 0},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(row.exact, wmatch(row.text, row.wild, 1)) << row.text << " " << row.wild;
        EXPECT_EQ(row.folded, wmatch(row.text, row.wild, 0)) << row.text << " " << row.wild;
        EXPECT_EQ(row.exact, wild_match(row.text, row.wild)) << row.text << " " << row.wild;
        EXPECT_EQ(row.folded, wild_imatch(row.text, row.wild)) << row.text << " " << row.wild;
    }
}

TEST(Wildcard, QuestionMarkBehindAStarOnlyFindsAQuestionMark) {
    EXPECT_EQ(0, wmatch("abc", "*?", 1));
    EXPECT_EQ(0, wmatch("abc", "a*?", 1));
    EXPECT_EQ(1, wmatch("ab?", "a*?", 1));
    EXPECT_EQ(1, wmatch("a?x", "*?x", 1));
    EXPECT_EQ(0, wmatch("abx", "*?x", 1));
    EXPECT_EQ(1, wmatch("a?bx", "*??x", 1)) << "only the first one is taken as it is written";
    EXPECT_EQ(0, wmatch("ab?x", "*??x", 1));
}

TEST(Wildcard, NullMatchesNothing) {
    EXPECT_EQ(0, wmatch(nullptr, "*", 1));
    EXPECT_EQ(0, wmatch("a", nullptr, 0));
    EXPECT_EQ(0, wild_match(nullptr, "*"));
    EXPECT_EQ(0, wild_match("a", nullptr));
    EXPECT_EQ(0, wild_imatch(nullptr, "*"));
    EXPECT_EQ(0, wild_imatch("a", nullptr));
}

/// The matching rule written down as it is told, step by step and with its recursion.
bool model(const char *text, const char *wild, bool exact) {
    const auto same_folded = [](char a, char b) {
        return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
    };
    for (;; ++text, ++wild) {
        if (!*wild)
            return !*text;
        if (!*text && *wild != '*')
            return false;
        if (*wild == '*') {
            while (*wild == '*')
                ++wild;
            if (!*wild)
                return true;
            if (!*text)
                return false;
            for (;; ++text) {
                while (*text && !same_folded(*text, *wild))
                    ++text;
                if (!*text)
                    return false;
                if (model(text, wild, exact))
                    return true;
            }
        }
        if (*wild != '?' && !(exact ? *text == *wild : same_folded(*text, *wild)))
            return false;
    }
}

/// Every text over the alphabet of at most `longest` characters.
std::vector<std::string> texts_over(const std::string &alphabet, std::size_t longest) {
    std::vector<std::string> texts{""};
    for (std::size_t i = 0; i < texts.size(); ++i)
        if (texts[i].size() < longest)
            for (const char c : alphabet)
                texts.push_back(texts[i] + c);
    return texts;
}

void expect_as_model(const std::string &text, const std::string &wild) {
    for (const int exact : {0, 1})
        ASSERT_EQ(model(text.c_str(), wild.c_str(), exact != 0),
                  wmatch(text.c_str(), wild.c_str(), exact) != 0)
            << "text '" << text << "' pattern '" << wild << "' exact " << exact;
}

TEST(Wildcard, AgreesWithTheRecursiveRuleOnAllShortTexts) {
    const std::vector<std::string> all = texts_over("aAb?*", 4);
    ASSERT_EQ(1u + 5 + 25 + 125 + 625, all.size());
    for (const std::string &text : all)
        for (const std::string &wild : all)
            ASSERT_NO_FATAL_FAILURE(expect_as_model(text, wild));
}

TEST(Wildcard, AgreesWithTheRecursiveRuleOnLongerTexts) {
    std::mt19937 random(20); // the same texts every time
    const auto make = [&random](const std::string &letters, unsigned longest) {
        std::string text;
        for (auto left = random() % longest; left > 0; --left)
            text += letters[random() % letters.size()];
        return text;
    };
    for (int i = 0; i < 20000; ++i)
        ASSERT_NO_FATAL_FAILURE(expect_as_model(make("aAb?", 16), make("aAb?***", 12)));
}

TEST(Wildcard, HostilePatternsEnd) {
    const std::string text(5000, 'a');
    std::string wild;
    for (int i = 0; i < 400; ++i)
        wild += "*a";
    EXPECT_EQ(1, wmatch(text.c_str(), wild.c_str(), 1));
    EXPECT_EQ(0, wmatch(text.c_str(), (wild + "b").c_str(), 1));
    EXPECT_EQ(0, wmatch(text.c_str(), (wild + "b*").c_str(), 0));
}

TEST(WildcardList, AnyWordMatchesAnyPattern) {
    const struct {
        const char *list, *wilds;
        int exact, folded;
    } rows[] = {
        {"a.txt, b.cgi", "*.pl *.cgi", 1, 1},
        {"a.txt", "*.pl,*.cgi", 0, 0},
        {"A.TXT", "*.txt", 0, 1},
        {"", "*", 0, 0},
        {" ,\t", "*", 0, 0},
        {"a", "", 0, 0},
        {"a", " ,\t", 0, 0},
        {"a", "*", 1, 1},
        {"CVS", "CVS,*.bak", 1, 1},
        {"x.bak", "CVS,*.bak", 1, 1},
        {"cvs", "CVS,*.bak", 0, 1},
        {"x\tCVS", ",,CVS", 1, 1},
        {"a.b", "?.? x", 1, 1},
        {"x.bakx", "CVS,*.bak", 0, 0},
        {nullptr, "*", 0, 0},
        {"a", nullptr, 0, 0},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(row.exact, wild_list(row.list, row.wilds)) << str(row.list) << " | " << str(row.wilds);
        EXPECT_EQ(row.folded, wild_ilist(row.list, row.wilds)) << str(row.list) << " | " << str(row.wilds);
    }
}

// --- Length-prefixed texts ---

TEST_F(PathFiles, PstringComesBackAsItWasWritten) {
    FILE *f = s_fopen("p", "w+");
    ASSERT_NE(nullptr, f);
    const std::string large(10000, 'x');
    EXPECT_EQ(1, pstring_write(f, "one\n"));
    EXPECT_EQ(1, pstring_write(f, large.c_str()));
    std::rewind(f);
    EXPECT_STREQ("one\n", text_ptr(pstring_read(f)).get());
    EXPECT_EQ(large, text_ptr(pstring_read(f)).get());
    EXPECT_EQ(nullptr, pstring_read(f)) << "at the end of the file";
    s_fclose(&f);
}

TEST_F(PathFiles, PstringIsALengthAndTheCharacters) {
    FILE *f = s_fopen("p", "w");
    ASSERT_NE(nullptr, f);
    EXPECT_EQ(1, pstring_write(f, "abc"));
    EXPECT_EQ(1, pstring_write(f, ""));
    s_fclose(&f);
    const std::string bytes = read_file("p");
    ASSERT_EQ(11u, bytes.size());
    std::int32_t lengths[2];
    std::memcpy(&lengths[0], bytes.data(), 4);
    std::memcpy(&lengths[1], bytes.data() + 7, 4);
    EXPECT_EQ(3, lengths[0]);
    EXPECT_EQ("abc", bytes.substr(4, 3));
    EXPECT_EQ(0, lengths[1]);
}

/// What reading a length and some bytes gives.
text_ptr read_pstring(std::int32_t length, const std::string &bytes) {
    std::string file(reinterpret_cast<const char *>(&length), sizeof length);
    write_file("p", file + bytes);
    const file_ptr f(s_fopen("p", "r"));
    return text_ptr(pstring_read(f.get()));
}

TEST_F(PathFiles, PstringRefusesLengthsThatTheFileDoesNotHold) {
    EXPECT_STREQ("abc", read_pstring(3, "abc").get());
    EXPECT_STREQ("ab", read_pstring(2, "abc").get());
    EXPECT_EQ(nullptr, read_pstring(4, "abc"));
    EXPECT_EQ(nullptr, read_pstring(0, "abc")) << "an empty text cannot be read back";
    EXPECT_EQ(nullptr, read_pstring(-1, "abc"));
    EXPECT_EQ(nullptr, read_pstring(INT32_MAX, "abc"));
    EXPECT_EQ(nullptr, read_pstring(INT32_MIN, "abc"));
    write_file("p", "abc");
    const file_ptr f(s_fopen("p", "r"));
    EXPECT_EQ(nullptr, pstring_read(f.get())) << "less than a length";
}

TEST_F(PathFiles, PstringTellsAFailedWrite) {
    const file_ptr f(s_fopen("/dev/full", "w"));
    ASSERT_NE(nullptr, f);
    std::setvbuf(f.get(), nullptr, _IONBF, 0);
    EXPECT_EQ(0, pstring_write(f.get(), "abc"));
    EXPECT_EQ(0, pstring_write(nullptr, "abc"));
    EXPECT_EQ(0, pstring_write(f.get(), nullptr));
    EXPECT_EQ(nullptr, pstring_read(nullptr));
}

} // namespace
} // namespace installer
