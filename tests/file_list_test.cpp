#include "tests/file_fixture.h"

#include <dlfcn.h>
#include <sys/syscall.h>

#include <grp.h>
#include <pwd.h>

#include <memory>

using namespace installer;
using namespace installer::test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

// ---- Directories that misbehave ----
//
// Three calls of the C library are replaced for this program: they do what `fault` says and else ask the
// system.

namespace {

struct {
    bool types_untold = false; // as on file systems whose directories do not hold types
    bool records_unreadable = false;
    bool links_unreadable = false;
    int type_queries = 0;
} fault;

} // namespace

extern "C" {

dirent *readdir(DIR *dir) {
    static const auto system_readdir = reinterpret_cast<dirent *(*)(DIR *)>(dlsym(RTLD_NEXT, "readdir"));
    if (fault.records_unreadable) {
        errno = EIO;
        return nullptr;
    }
    dirent *record = system_readdir(dir);
    if (record && fault.types_untold)
        record->d_type = DT_UNKNOWN;
    return record;
}

ssize_t readlink(const char *path, char *text, size_t size) noexcept {
    if (fault.links_unreadable) {
        errno = EACCES;
        return -1;
    }
    return syscall(SYS_readlinkat, AT_FDCWD, path, text, size);
}

int fstatat(int dir, const char *path, struct stat *info, int flags) noexcept {
    static const auto system_fstatat =
        reinterpret_cast<int (*)(int, const char *, struct stat *, int)>(dlsym(RTLD_NEXT, "fstatat"));
    ++fault.type_queries;
    return system_fstatat(dir, path, info, flags);
}
}

namespace {

struct entry_deleter {
    void operator()(file *x) const { file_free(&x); }
};
using entry_ptr = std::unique_ptr<file, entry_deleter>;

class FileList : public FileDir {
  protected:
    FileList() { fault = {}; }
    ~FileList() override { fault = {}; }

    static std::string text(char c, std::size_t size) { return std::string(size, c); }

    /// An entry of that name about which nothing was asked.
    static entry_ptr entry_named(const char *name) {
        write_file("placeholder", "");
        entry_ptr x(file_existf("placeholder"));
        scpy(x->name, name, path_size);
        return x;
    }

    /// The names that a listing gives, sorted, and the listing ended.
    static lines listed(const char *path, const char *wild) {
        lines names;
        xfilehandle *h = nullptr;
        file *x = file_first(&h, path, wild);
        for (int more = x != nullptr; more != 0; more = file_next(x, h))
            names.emplace_back(file_name(x));
        file_free(&x);
        file_last(&h);
        EXPECT_EQ(nullptr, x);
        EXPECT_EQ(nullptr, h);
        std::sort(names.begin(), names.end());
        return names;
    }

    /// The names that a walk gives, sorted, a directory's with "/" behind it.
    static lines walked(const char *path, const char *wild) {
        lines names;
        walk entries(place_of(path), wild);
        while (entries.next())
            names.push_back(std::string(entries.entry().path) + (entries.is_directory() ? "/" : ""));
        std::sort(names.begin(), names.end());
        return names;
    }
};

// ---- file_first, file_next, file_last ----

TEST_F(FileList, ListsWhatMatchesAndNeverDotOrDotDot) {
    make_dir("d/sub");
    write_file("d/.hidden", "");
    write_file("d/a.cgi", "");
    write_file("d/b.CGI", "");
    write_file("d/..more", "");
    const struct {
        const char *path, *wild;
        lines names;
    } rows[] = {
        {"d", "*", {"d/..more", "d/.hidden", "d/a.cgi", "d/b.CGI", "d/sub"}},
        {"d/", "*.cgi", {"d/a.cgi"}},
        {"./d", "sub", {"./d/sub"}},
        {"d", ".*", {"d/..more", "d/.hidden"}},
        {"d", "????", {}},
        {"d/sub", "*", {}},
        {"d", "", {}},
    };
    for (const auto &row : rows)
        EXPECT_EQ(row.names, listed(row.path, row.wild)) << row.path << " " << row.wild;
    EXPECT_THAT(log_lines(), IsEmpty());
}

TEST_F(FileList, FirstWithoutAMatchHasClosedTheHandle) {
    make_dir("d");
    auto *h = reinterpret_cast<xfilehandle *>(this);
    EXPECT_EQ(nullptr, file_first(&h, "d", "*"));
    EXPECT_EQ(nullptr, h);
    file_last(&h);
    EXPECT_EQ(nullptr, h);
}

TEST_F(FileList, FirstReportsADirectoryThatCannotBeOpened) {
    write_file("f", "");
    for (const char *path : {"no", "f", ""}) {
        auto *h = reinterpret_cast<xfilehandle *>(this);
        EXPECT_EQ(nullptr, file_first(&h, path, "*"));
        EXPECT_NE(0, errno);
        EXPECT_EQ(nullptr, h);
    }
    EXPECT_THAT(errors(), ElementsAre("Error opening dir 'no', No such file or directory",
                                      "Error opening dir 'f', Not a directory",
                                      "Error opening dir '', No such file or directory"));
}

TEST_F(FileList, FirstReportsADirectoryThatMayNotBeRead) {
    as_ordinary_user([] {
        make_dir("closed");
        chmod("closed", 0);
        xfilehandle *h = nullptr;
        EXPECT_EQ(nullptr, file_first(&h, "closed", "*"));
        EXPECT_EQ(EACCES, errno);
        chmod("closed", 0755);
    });
    EXPECT_THAT(errors(), ElementsAre("Error opening dir 'closed', Permission denied"));
}

TEST_F(FileList, ListingTakesNull) {
    xfilehandle *h = nullptr;
    EXPECT_EQ(nullptr, file_first(nullptr, ".", "*"));
    EXPECT_EQ(nullptr, file_first(&h, nullptr, "*"));
    EXPECT_EQ(nullptr, file_first(&h, ".", nullptr));
    EXPECT_EQ(0, file_next(nullptr, nullptr));
    write_file("f", "");
    const entry_ptr x(file_existf("f"));
    EXPECT_EQ(0, file_next(x.get(), nullptr));
    file_last(nullptr);
    file_last(&h);
    EXPECT_THAT(log_lines(), IsEmpty());
}

TEST_F(FileList, TheHandleHoldsItsOwnPathAndWildcard) {
    make_dir("d");
    write_file("d/a", "");
    write_file("d/b", "");
    std::string path = "d";
    std::string wild = "?";
    xfilehandle *h = nullptr;
    file *x = file_first(&h, path.c_str(), wild.c_str());
    path = "x";
    wild = "x";
    ASSERT_NE(nullptr, x);
    EXPECT_STREQ("d", h->path);
    EXPECT_STREQ("?", h->wild);
    EXPECT_EQ(1, file_next(x, h));
    EXPECT_EQ(0, file_next(x, h));
    EXPECT_EQ(0, file_next(x, h));
    file_free(&x);
    file_last(&h);
}

TEST_F(FileList, EntriesTellAboutThemselvesAndNotAboutALinksTarget) {
    make_dir("d/dir");
    write_file("d/file", "12345");
    make_link("dir", "d/link");
    make_link("nowhere", "d/dangling");
    xfilehandle *h = nullptr;
    file *x = file_first(&h, "d", "dir");
    ASSERT_NE(nullptr, x);
    EXPECT_TRUE(S_ISDIR(x->info.st_mode));
    EXPECT_EQ(nullptr, x->link);
    file_free(&x);
    file_last(&h);
    const struct { const char *name, *link; } rows[] = {{"link", "dir"}, {"dangling", "nowhere"}};
    for (const auto &row : rows) {
        x = file_first(&h, "d", row.name);
        ASSERT_NE(nullptr, x);
        EXPECT_TRUE(S_ISLNK(x->info.st_mode));
        EXPECT_STREQ(row.link, x->link);
        file_free(&x);
        file_last(&h);
    }
    x = file_first(&h, "d", "file");
    ASSERT_NE(nullptr, x);
    EXPECT_TRUE(S_ISREG(x->info.st_mode));
    EXPECT_EQ(5, x->info.st_size);
    file_free(&x);
    file_last(&h);
}

TEST_F(FileList, NextKeepsTheLinkTextOfAnEarlierEntry) {
    make_dir("links");
    make_link("target", "links/link");
    make_dir("files");
    write_file("files/a", "");
    write_file("files/b", "");
    xfilehandle *links = nullptr;
    file *x = file_first(&links, "links", "*");
    xfilehandle *files = nullptr;
    file *y = file_first(&files, "files", "*");
    ASSERT_NE(nullptr, x);
    ASSERT_EQ(1, file_next(x, files));
    EXPECT_TRUE(S_ISREG(x->info.st_mode));
    EXPECT_STREQ("target", x->link);
    file_free(&x);
    file_free(&y);
    file_last(&links);
    file_last(&files);
}

TEST_F(FileList, NextSkipsEntriesThatVanished) {
    make_dir("d");
    for (const char *name : {"d/a", "d/b", "d/c"})
        write_file(name, "");
    xfilehandle *h = nullptr;
    file *x = file_first(&h, "d", "*");
    ASSERT_NE(nullptr, x);
    for (const char *name : {"d/a", "d/b", "d/c"})
        unlink(name);
    EXPECT_EQ(0, file_next(x, h));
    EXPECT_THAT(log_lines(), IsEmpty());
    file_free(&x);
    file_last(&h);
}

TEST_F(FileList, ListingLeavesOutEntriesWhosePathDoesNotFit) {
    const std::string d = text('d', 200);
    make_dir(d);
    write_file(d + "/" + text('a', 54), "");
    write_file(d + "/" + text('b', 55), "");
    EXPECT_THAT(listed(d.c_str(), "*"), ElementsAre(d + "/" + text('a', 54)));
    EXPECT_THAT(errors(), ElementsAre("Path too long '" + d + "', File name too long"));
    EXPECT_THAT(listed(d.c_str(), "a*"), ElementsAre(d + "/" + text('a', 54)));
    EXPECT_EQ(1U, errors().size());
    EXPECT_THAT(told, IsEmpty());
}

TEST_F(FileList, ListingReportsADirectoryThatCannotBeReadToItsEnd) {
    make_dir("d");
    write_file("d/a", "");
    fault.records_unreadable = true;
    EXPECT_THAT(listed("d", "*"), IsEmpty());
    EXPECT_THAT(errors(), ElementsAre("Error reading dir 'd', Input/output error"));
}

TEST_F(FileList, ListingFollowsALinkThatThePathNames) {
    make_dir("d");
    write_file("d/a", "");
    make_link("d", "link");
    EXPECT_THAT(listed("link", "*"), ElementsAre("link/a"));
}

TEST_F(FileList, ListingsKeepTheirDirectoryFromOtherPrograms) {
    make_dir("d/sub");
    xfilehandle *h = nullptr;
    file *x = file_first(&h, "d", "*");
    ASSERT_NE(nullptr, x);
    EXPECT_NE(0, fcntl(dirfd(h->dir), F_GETFD) & FD_CLOEXEC);
    file_free(&x);
    file_last(&h);
}

// ---- file_stat, file_existf, file_dup, file_free ----

TEST_F(FileList, StatAsksAgain) {
    write_file("f", "1");
    const entry_ptr x(file_existf("f"));
    write_file("f", "12345");
    EXPECT_EQ(1, file_stat(x.get()));
    EXPECT_EQ(5, x->info.st_size);
    unlink("f");
    EXPECT_EQ(0, file_stat(x.get()));
    EXPECT_EQ(0, file_stat(nullptr));
    EXPECT_THAT(log_lines(), IsEmpty());
}

TEST_F(FileList, StatReplacesTheTextOfALink) {
    make_link("one", "link");
    const entry_ptr x(file_existf("link"));
    EXPECT_STREQ("one", x->link);
    unlink("link");
    make_link("two", "link");
    EXPECT_EQ(1, file_stat(x.get()));
    EXPECT_STREQ("two", x->link);
}

TEST_F(FileList, ALinksTextIsCutAt255Characters) {
    make_link(text('x', 300), "link");
    const entry_ptr x(file_existf("link"));
    EXPECT_EQ(text('x', 255), x->link);
}

TEST_F(FileList, ALinkThatCannotBeReadSaysSo) {
    make_link("one", "link");
    fault.links_unreadable = true;
    const entry_ptr x(file_existf("link"));
    ASSERT_NE(nullptr, x);
    EXPECT_STREQ("READLINK FAILED", x->link);
    EXPECT_THAT(errors(), ElementsAre("Error reading symlink 'link', Permission denied"));
}

TEST_F(FileList, ExistfMakesAnEntryForOnePath) {
    write_file("f", "123");
    make_link("f", "link");
    const entry_ptr x(file_existf("f"));
    ASSERT_NE(nullptr, x);
    EXPECT_STREQ("f", x->name);
    EXPECT_EQ(nullptr, x->link);
    EXPECT_EQ(3, x->info.st_size);
    const entry_ptr link(file_existf("./link"));
    ASSERT_NE(nullptr, link);
    EXPECT_STREQ("./link", link->name);
    EXPECT_STREQ("f", link->link);
    EXPECT_TRUE(S_ISLNK(link->info.st_mode));
    EXPECT_EQ(nullptr, file_existf("no"));
    EXPECT_EQ(nullptr, file_existf(nullptr));
    EXPECT_THAT(log_lines(), IsEmpty());
}

TEST_F(FileList, ExistfRefusesAPathThatDoesNotFit) {
    const std::string d = text('d', 200);
    const std::string path = d + "/" + text('f', 55);
    make_dir(d);
    write_file(path, "");
    write_file(path.substr(0, 255), "");
    EXPECT_EQ(nullptr, file_existf(path.c_str()));
    EXPECT_EQ(ENAMETOOLONG, errno);
    EXPECT_THAT(errors(), ElementsAre("Path too long '" + path + "', File name too long"));
    const entry_ptr x(file_existf(path.substr(0, 255).c_str()));
    ASSERT_NE(nullptr, x);
    EXPECT_EQ(path.substr(0, 255), x->name);
}

TEST_F(FileList, DupHasItsOwnLinkText) {
    make_link("target", "link");
    entry_ptr x(file_existf("link"));
    const entry_ptr copy(file_dup(x.get()));
    ASSERT_NE(nullptr, copy);
    EXPECT_NE(x->link, copy->link);
    x.reset();
    EXPECT_STREQ("link", copy->name);
    EXPECT_STREQ("target", copy->link);
    EXPECT_TRUE(S_ISLNK(copy->info.st_mode));
    EXPECT_EQ(nullptr, file_dup(nullptr));
}

TEST_F(FileList, FreeTakesNull) {
    file *x = nullptr;
    file_free(&x);
    file_free(nullptr);
    write_file("f", "");
    x = file_existf("f");
    file_free(&x);
    EXPECT_EQ(nullptr, x);
}

// ---- file_chmod, file_chown ----

TEST_F(FileList, ChmodSetsTheModeOfWhatALinkPointsTo) {
    write_file("f", "");
    make_link("f", "link");
    EXPECT_EQ(1, file_chmod(entry_named("f").get(), 0750));
    EXPECT_EQ(0750, mode_of("f"));
    EXPECT_EQ(1, file_chmod(entry_named("link").get(), 0600));
    EXPECT_EQ(0600, mode_of("f"));
    EXPECT_EQ(0, file_chmod(nullptr, 0600));
    EXPECT_THAT(log_lines(), IsEmpty());
}

TEST_F(FileList, ChmodNamesTheModeInDecimal) {
    EXPECT_EQ(0, file_chmod(entry_named("gone").get(), 493));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_THAT(errors(), ElementsAre("Error changing mode of 'gone' to 493, No such file or directory"));
}

TEST_F(FileList, ChownTakesTheUsersNumberForAnUnknownGroup) {
    SKIP_UNLESS_ROOT("only root gives files away");
    write_file("f", "");
    make_link("f", "link");
    const entry_ptr x(file_existf("link"));
    EXPECT_EQ(1, file_chown(x.get(), 501, -1));
    struct stat info {};
    ASSERT_EQ(0, stat("f", &info));
    EXPECT_EQ(501U, info.st_uid);
    EXPECT_EQ(501U, info.st_gid);
    EXPECT_EQ(1, file_chown(x.get(), 502, 503));
    ASSERT_EQ(0, stat("f", &info));
    EXPECT_EQ(502U, info.st_uid);
    EXPECT_EQ(503U, info.st_gid);
    ASSERT_EQ(0, lstat("link", &info));
    EXPECT_EQ(0U, info.st_uid);
}

TEST_F(FileList, ChownReportsWhatItTried) {
    const entry_ptr x = entry_named("gone");
    EXPECT_EQ(0, file_chown(x.get(), 501, 502));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ(0, file_chown(x.get(), 501, -1));
    EXPECT_THAT(
        errors(),
        ElementsAre("Error changing ownership of 'gone' to uid=501, gid=502, No such file or directory",
                    "Error changing ownership of 'gone' to uid=501, gid=501, No such file or directory"));
}

TEST_F(FileList, ChownOfAnotherUsersFileFails) {
    as_ordinary_user([] {
        write_file("f", "");
        const entry_ptr x(file_existf("f"));
        EXPECT_EQ(0, file_chown(x.get(), 0, 0));
        EXPECT_EQ(EPERM, errno);
    });
    EXPECT_THAT(errors(), ElementsAre("Error changing ownership of 'f' to uid=0, gid=0, "
                                      "Operation not permitted"));
}

TEST_F(FileList, ChownToAnUnknownUserIsRefusedWithoutAMessage) {
    write_file("f", "");
    const entry_ptr x(file_existf("f"));
    EXPECT_EQ(0, file_chown(x.get(), -1, 0));
    EXPECT_EQ(0, file_chown(nullptr, 0, 0));
    EXPECT_THAT(log_lines(), IsEmpty());
}

// ---- Names and ids ----

TEST_F(FileList, NameIsTheWholePath) {
    make_dir("d");
    const entry_ptr x(file_existf("./d"));
    EXPECT_STREQ("./d", file_name(x.get()));
    EXPECT_EQ(nullptr, file_name(nullptr));
}

TEST_F(FileList, FilenameIsWhatFollowsTheLastSeparator) {
    const struct {
        const char *name, *result;
    } rows[] = {
        {"/srv/www/index.html", "index.html"},
        {"index.html", "index.html"},
        {"a/b\\c", "c"},
        {"a\\b/c", "c"},
        {"dir/", ""},
        {"", ""},
        {"/", ""},
    };
    for (const auto &row : rows) {
        Buffer buffer(path_size);
        EXPECT_EQ(static_cast<char *>(buffer),
                  file_filename(entry_named(row.name).get(), buffer, path_size - 1));
        EXPECT_STREQ(row.result, buffer) << row.name;
    }
}

TEST_F(FileList, FilenameCountsCharactersWithoutTheTerminator) {
    const entry_ptr x = entry_named("d/index");
    Buffer three(4);
    file_filename(x.get(), three, 3);
    EXPECT_STREQ("ind", three);
    Buffer none(1);
    file_filename(x.get(), none, 0);
    EXPECT_STREQ("", none);
    Buffer untouched(1, "");
    EXPECT_EQ(static_cast<char *>(untouched), file_filename(x.get(), untouched, -1));
    Buffer large(path_size);
    EXPECT_STREQ("index", file_filename(x.get(), large, 2147483647));
    EXPECT_EQ(nullptr, file_filename(nullptr, large, 10));
    EXPECT_EQ(nullptr, file_filename(x.get(), nullptr, 10));
}

TEST_F(FileList, PathIsCutBeforeTheLastSeparatorThatIsLookedAt) {
    const struct {
        const char *path;
        int size;
        const char *result;
    } rows[] = {
        {"/a/b/c", 100, "/a/b"}, {"a\\b", 100, "a"},  {"a/b\\c", 100, "a/b"}, {"a/", 100, "a"},
        {"name", 100, ""},       {"", 100, ""},       {"/name", 100, ""},     {"/a/b/c", 4, "/a"},
        {"/a/b/c", 6, "/a/b"},   {"/a/b/c", 5, "/a"}, {"/a/b/c", 1, ""},      {"/a/b/c", 0, ""},
        {"/a/b/c", -5, ""},
    };
    for (const auto &row : rows) {
        Buffer buffer(std::max(row.size, 1));
        EXPECT_EQ(static_cast<char *>(buffer), file_path(row.path, buffer, row.size));
        EXPECT_STREQ(row.result, buffer) << row.path << " " << row.size;
    }
    Buffer buffer(10);
    EXPECT_EQ(nullptr, file_path(nullptr, buffer, 10));
    EXPECT_EQ(nullptr, file_path("a/b", nullptr, 10));
}

TEST_F(FileList, IdsComeFromTheDatabases) {
    EXPECT_EQ(0, file_getuid("root"));
    EXPECT_EQ(0, file_getgid("root"));
    EXPECT_EQ(0, file_usergid("root"));
    const passwd *user = getpwnam("nobody");
    ASSERT_NE(nullptr, user);
    const int uid = static_cast<int>(user->pw_uid);
    const int gid = static_cast<int>(user->pw_gid);
    EXPECT_EQ(uid, file_getuid("nobody"));
    EXPECT_EQ(gid, file_usergid("nobody"));
    for (const char *name : {"no-such-name", "", "0", static_cast<const char *>(nullptr)}) {
        EXPECT_EQ(-1, file_getuid(name));
        EXPECT_EQ(-1, file_getgid(name));
        EXPECT_EQ(-1, file_usergid(name));
    }
    EXPECT_THAT(errors(), IsEmpty()) << "a name that is not there is no failure of looking";
}

// ---- The walk ----

TEST_F(FileList, WalkGivesMatchesAndTellsDirectoriesApart) {
    make_dir("d/sub");
    write_file("d/file", "");
    write_file("d/.hidden", "");
    make_link("sub", "d/link");
    make_fifo("d/fifo");
    const lines all = {"d/.hidden", "d/fifo", "d/file", "d/link", "d/sub/"};
    EXPECT_EQ(all, walked("d", "*"));
    EXPECT_THAT(walked("d/", "f*"), ElementsAre("d/fifo", "d/file"));
    EXPECT_THAT(walked("d", nullptr), IsEmpty());
}

TEST_F(FileList, WalkJoinsEachNameAsPathsAreJoined) {
    make_dir("d");
    for (const char *name : {"d/plain", "d/in\\side", "d/\\first"})
        write_file(name, "");
    const lines joined = {"d/first", "d/in/side", "d/plain"};
    EXPECT_EQ(joined, walked("d", "*"));
    EXPECT_EQ(joined, walked("d/", "*"));
    EXPECT_THAT(walked("./d//", "p*"), ElementsAre("./d//plain"));
}

TEST_F(FileList, WalkGivesPathsUpToTheLongestThatFits) {
    const std::string d = text('d', 200);
    make_dir(d);
    write_file(d + "/" + text('b', 54), "");
    write_file(d + "/" + text('c', 55), "");
    EXPECT_THAT(walked(d.c_str(), "*"), ElementsAre(d + "/" + text('b', 54)));
    EXPECT_THAT(walked((d + "/").c_str(), "b*"), ElementsAre(d + "/" + text('b', 54)));
}

TEST_F(FileList, WalkAsksForTypesOnlyWhereTheDirectoryDoesNotTellThem) {
    make_dir("d/sub");
    write_file("d/file", "");
    make_link("sub", "d/link");
    EXPECT_THAT(walked("d", "*"), ElementsAre("d/file", "d/link", "d/sub/"));
    EXPECT_EQ(0, fault.type_queries);
    fault.types_untold = true;
    EXPECT_THAT(walked("d", "*"), ElementsAre("d/file", "d/link", "d/sub/"));
    EXPECT_EQ(3, fault.type_queries);
}

TEST_F(FileList, WalkSkipsWhatIsGoneWhenItHasToAsk) {
    make_dir("d");
    for (const char *name : {"d/a", "d/b", "d/c"})
        write_file(name, "");
    fault.types_untold = true;
    walk entries(place_of("d"), "*");
    ASSERT_TRUE(entries.next());
    for (const char *name : {"d/a", "d/b", "d/c"})
        unlink(name);
    EXPECT_FALSE(entries.next());
    EXPECT_TRUE(entries.whole());
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(FileList, WalkKnowsWhetherItsEntryIsGone) {
    make_dir("d");
    write_file("d/f", "");
    walk entries(place_of("d"), "*");
    ASSERT_TRUE(entries.next());
    EXPECT_FALSE(entries.gone());
    unlink("d/f");
    errno = EDOM;
    EXPECT_TRUE(entries.gone());
    EXPECT_EQ(EDOM, errno);
}

TEST_F(FileList, WalkOfWhatIsNoDirectoryIsNotOpen) {
    write_file("f", "");
    for (const char *path : {"no", "f", static_cast<const char *>(nullptr)}) {
        walk entries(place_of(path), "*");
        EXPECT_FALSE(entries.is_open());
        EXPECT_FALSE(entries.next());
        EXPECT_FALSE(entries.whole());
    }
    EXPECT_THAT(errors(),
                ElementsAre("Error opening dir 'no', No such file or directory",
                            "Error opening dir 'f', Not a directory", "Error opening dir '', Bad address"));
}

TEST_F(FileList, WalkFollowsTheOperatorsPathButNoEntry) {
    make_dir("outside");
    write_file("outside/f", "");
    make_dir("d");
    make_link("../outside", "d/link");
    EXPECT_THAT(walked("d/link", "*"), ElementsAre("d/link/f"));
    walk entries(place_of("d"), "*");
    ASSERT_TRUE(entries.next());
    walk below(entries.entry(), "*");
    EXPECT_FALSE(below.is_open());
}

TEST_F(FileList, WalkLosesEntriesWhosePathDoesNotFitAloud) {
    const std::string d = text('d', 200);
    make_dir(d);
    write_file(d + "/" + text('b', 55), "");
    walk quiet(place_of(d.c_str()), "*");
    EXPECT_FALSE(quiet.next());
    EXPECT_FALSE(quiet.whole());
    EXPECT_THAT(told, IsEmpty());
    walk loud(place_of(d.c_str()), "*", 0);
    EXPECT_FALSE(loud.next());
    EXPECT_THAT(told, ElementsAre("fail " + d + " > (null) 0"));
    EXPECT_EQ(lines(2, "Path too long '" + d + "', File name too long"), errors());
}

TEST_F(FileList, WalkThatCannotReadOnIsNotWhole) {
    make_dir("d");
    write_file("d/f", "");
    walk entries(place_of("d"), "*");
    fault.records_unreadable = true;
    EXPECT_FALSE(entries.next());
    EXPECT_FALSE(entries.whole());
    EXPECT_THAT(errors(), ElementsAre("Error reading dir 'd', Input/output error"));
    EXPECT_THAT(told, IsEmpty());
}

TEST_F(FileList, RemovingTellsOfADirectoryThatCannotBeReadToItsEnd) {
    make_dir("d");
    write_file("d/f", "");
    fault.records_unreadable = true;
    EXPECT_EQ(0, file_rmdir("d", nullptr, 1));
    EXPECT_THAT(told, ElementsAre("fail d > (null) 0", "fail d > (null) 0"))
        << "once for what is in it, once for itself";
    EXPECT_THAT(errors(), ElementsAre("Error reading dir 'd', Input/output error"));
}

TEST_F(FileList, AMovedDirectoryThatCouldNotBeReadToItsEndStays) {
    make_dir("s/d");
    write_file("s/d/f", "text");
    meanwhile = [](const std::string &path) {
        if (path == "t/d")
            fault.records_unreadable = true;
    };
    EXPECT_EQ(2, file_xmove("s", "d", nullptr, "t", 1, nullptr));
    fault.records_unreadable = false;
    EXPECT_EQ("text", read_file("s/d/f"));
}

// ---- Places ----

TEST_F(FileList, OperationsOnPlacesDoNotAskWhereThePathLeads) {
    make_dir("d/sub");
    write_file("d/sub/f", "text");
    walk entries(place_of("d"), "*");
    ASSERT_TRUE(entries.next());
    std::filesystem::rename("d", "elsewhere");
    EXPECT_EQ(2, copy_tree(entries.entry(), "*", nullptr, "copied", 1, nullptr));
    EXPECT_EQ(1, change_mode(entries.entry(), 0700));
    EXPECT_EQ(0700, mode_of("elsewhere/sub"));
    EXPECT_EQ(0, remove_entry(entries.entry()));
    EXPECT_EQ(ENOTEMPTY, errno);
    EXPECT_EQ(2, remove_tree(entries.entry(), nullptr, 1));
    EXPECT_THAT(names_in("elsewhere"), IsEmpty());
    EXPECT_EQ("text", read_file("copied/f"));
    EXPECT_THAT(told, ElementsAre("ok copied > (null) 1", "ok d/sub/f > copied/f 1", "ok d/sub/f > (null) 0",
                                  "ok d/sub > (null) 0"));
}

TEST_F(FileList, OperationsOnPlacesTakeNull) {
    const place nowhere = place_of(nullptr);
    EXPECT_EQ(0, change_mode(nowhere, 0700));
    EXPECT_EQ(0, change_owner(nowhere, 0, 0));
    EXPECT_EQ(0, remove_entry(nowhere));
    EXPECT_EQ(0, remove_tree(nowhere, nullptr, 1));
    EXPECT_EQ(0, copy_tree(nowhere, "*", nullptr, "t", 1, nullptr));
    EXPECT_EQ(0, file_copy_at(nowhere, place_of("t"), 1, nullptr));
    EXPECT_FALSE(exists("t"));
}

TEST_F(FileList, TargetDirectoryComposesPlaces) {
    make_dir("t");
    const target_directory targets("t");
    char path[path_size];
    place out = place_of(nullptr);
    ASSERT_TRUE(targets.at("name", path, out));
    EXPECT_EQ(targets.get(), out.dir);
    EXPECT_STREQ("name", out.name);
    EXPECT_STREQ("t/name", out.path);
    EXPECT_FALSE(targets.at(nullptr, path, out));
}

TEST_F(FileList, TargetDirectoryThatCannotBeOpenedGivesWholePaths) {
    const target_directory targets("no");
    char path[path_size];
    place out = place_of(nullptr);
    ASSERT_TRUE(targets.at("name", path, out));
    EXPECT_EQ(-1, targets.get());
    EXPECT_EQ(AT_FDCWD, out.dir);
    EXPECT_STREQ("no/name", out.name);
    const target_directory nothing(nullptr);
    EXPECT_FALSE(nothing.at("name", path, out));
}

TEST_F(FileList, TargetDirectoryRefusesAPathThatDoesNotFit) {
    const std::string d = text('t', 200);
    make_dir(d);
    const target_directory targets(d.c_str());
    char path[path_size];
    place out = place_of(nullptr);
    EXPECT_TRUE(targets.at(text('n', 54).c_str(), path, out));
    EXPECT_FALSE(targets.at(text('n', 55).c_str(), path, out));
    EXPECT_EQ(ENAMETOOLONG, errno);
    EXPECT_THAT(errors(), ElementsAre("Path too long '" + d + "', File name too long"));
}

} // namespace
