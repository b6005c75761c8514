#include "tests/file_fixture.h"

#include <sys/syscall.h>

#include <deque>
#include <fstream>

using namespace installer;
using namespace installer::test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using testing::UnorderedElementsAre;

// ---- A disk that misbehaves ----
//
// The three calls of the C library are replaced for this program: they do what the test put into `disk` and
// then go back to the system. The library's own streams, and so the log, do not come through here.

namespace {

struct answer {
    ssize_t result;
    int error;
};

struct {
    std::deque<answer> reads;  // for the next reads; past the last one the system answers
    std::deque<answer> writes; // a positive result writes no more than that
    int close_error = 0;       // for the next close of a descriptor that is open for writing only
    bool in_kernel = false;    // whether the system can move bytes by itself
    std::deque<answer> moves;  // for the next of these movements, as for writes
    std::vector<std::size_t> written;
    std::function<void()> before_read;
    bool inheritable = false; // whether a descriptor would have stayed open in another program
} disk;

bool only_for_writing(int fd) {
    return (fcntl(fd, F_GETFL) & O_ACCMODE) == O_WRONLY;
}

void look_at(int fd) {
    disk.inheritable |= (fcntl(fd, F_GETFD) & FD_CLOEXEC) == 0;
}

answer take(std::deque<answer> &answers) {
    const answer next = answers.front();
    answers.pop_front();
    if (next.result <= 0)
        errno = next.error;
    return next;
}

} // namespace

extern "C" {

ssize_t read(int fd, void *data, size_t size) {
    look_at(fd);
    if (disk.before_read)
        disk.before_read();
    if (!disk.reads.empty())
        if (const answer next = take(disk.reads); next.result <= 0)
            return next.result;
    return syscall(SYS_read, fd, data, size);
}

ssize_t write(int fd, const void *data, size_t size) {
    look_at(fd);
    if (!disk.writes.empty()) {
        const answer next = take(disk.writes);
        if (next.result <= 0)
            return next.result;
        size = std::min(size, static_cast<size_t>(next.result));
    }
    disk.written.push_back(size);
    return syscall(SYS_write, fd, data, size);
}

ssize_t copy_file_range(int from, off64_t *, int to, off64_t *, size_t size, unsigned int flags) {
    if (!disk.in_kernel) {
        errno = ENOSYS;
        return -1;
    }
    if (!disk.moves.empty()) {
        const answer next = take(disk.moves);
        if (next.result <= 0)
            return next.result;
        size = std::min(size, static_cast<size_t>(next.result));
    }
    return syscall(SYS_copy_file_range, from, nullptr, to, nullptr, size, flags);
}

int close(int fd) {
    const bool refuse = disk.close_error != 0 && only_for_writing(fd);
    const long result = syscall(SYS_close, fd);
    if (!refuse)
        return static_cast<int>(result);
    errno = disk.close_error;
    disk.close_error = 0;
    return -1;
}
}

namespace {

class File : public FileDir {
  protected:
    File() { disk = {}; }
    ~File() override { disk = {}; }

    /// Bytes that repeat only after a length that divides no block.
    static std::string some_bytes(std::size_t size) {
        std::string bytes(size, '\0');
        for (std::size_t i = 0; i < size; ++i)
            bytes[i] = static_cast<char>(i % 251);
        return bytes;
    }

    static std::string text(char c, std::size_t size) { return std::string(size, c); }
};

// ---- Callbacks and the error reporter ----

TEST_F(File, SetupFnSetsBothCallbacks) {
    file_setup_fn(note_fail, nullptr);
    EXPECT_EQ(note_fail, ok);
    EXPECT_EQ(nullptr, fail);
}

TEST_F(File, OldSetupSavesThePairThatSetupGivesBack) {
    file_setup_inf saved{};
    file_old_setup(&saved);
    file_setup_fn(nullptr, nullptr);
    file_setup(&saved);
    EXPECT_EQ(note_ok, ok);
    EXPECT_EQ(note_fail, fail);
    EXPECT_EQ(note_ok, saved.xok);
    EXPECT_EQ(note_fail, saved.xfail);
}

TEST_F(File, SetupsTakeANullPair) {
    file_setup(nullptr);
    file_old_setup(nullptr);
    EXPECT_EQ(note_ok, ok);
    EXPECT_EQ(note_fail, fail);
}

TEST_F(File, WorksWithoutCallbacks) {
    file_setup_fn(nullptr, nullptr);
    write_file("a", "x");
    EXPECT_EQ(1, file_copy("a", "b", 1, nullptr));
    EXPECT_EQ(0, file_copy("no", "b", 1, nullptr));
    EXPECT_EQ(1, file_mkdir("d", 1));
    EXPECT_EQ(1, file_rmdir("d", nullptr, 1));
}

TEST_F(File, ErrorAlwaysAddsTheReason) {
    errno = ENOENT;
    file_error("cannot %s %d", "do", 7);
    EXPECT_EQ(ENOENT, errno);
    errno = 0;
    file_error("nothing wrong");
    EXPECT_EQ(0, errno);
    EXPECT_THAT(errors(), ElementsAre("cannot do 7, No such file or directory", "nothing wrong, Success"));
}

TEST_F(File, ErrorCutsALongText) {
    errno = ENOENT;
    file_error("%s", text('x', 5000).c_str());
    EXPECT_THAT(errors(), ElementsAre(text('x', 999)));
}

TEST_F(File, ErrorTakesANullFormat) {
    void (*const report)(const char *, ...) = file_error; // without the compiler's eye on the format
    report(nullptr);
    EXPECT_THAT(errors(), IsEmpty());
}

// ---- file_exist ----

TEST_F(File, ExistTellsWhatStandsAtAPath) {
    write_file("file", "");
    make_dir("dir");
    make_link("dir", "link-to-dir");
    make_link("file", "link-to-file");
    make_link("nowhere", "dangling");
    make_fifo("fifo");
    const struct {
        const char *path;
        int result;
        const char *text;
    } rows[] = {
        {"file", 1, "exists and is a file"},
        {"dir", 2, "exists and is a directory"},
        {"link-to-dir", 2, "exists and is a directory"},
        {"link-to-file", 1, "exists and is a file"},
        {"dangling", 0, "does not exist"},
        {"fifo", 1, "exists and is a file"},
        {"missing", 0, "does not exist"},
        {"", 0, "does not exist"},
        {"file/below", 0, "does not exist"},
    };
    lines expected;
    for (const auto &row : rows) {
        EXPECT_EQ(row.result, file_exist(row.path)) << row.path;
        expected.push_back(std::string("Debug: '") + row.path + "' " + row.text);
    }
    EXPECT_EQ(expected, log_lines());
}

TEST_F(File, ExistOfNullIsSilent) {
    EXPECT_EQ(0, file_exist(nullptr));
    EXPECT_THAT(log_lines(), IsEmpty());
}

TEST_F(File, ExistLeavesWhatTheQuerySetInErrno) {
    errno = 0;
    EXPECT_EQ(0, file_exist("missing"));
    EXPECT_EQ(ENOENT, errno);
}

// ---- file_copy ----

TEST_F(File, CopiesFilesOfEverySizeAndAddsTheirBytes) {
    for (const std::size_t size : {0U, 1U, 8191U, 8192U, 8193U, 20000U}) {
        write_file("a", some_bytes(size));
        std::uint32_t bytes = 5;
        EXPECT_EQ(1, file_copy("a", "b", 1, &bytes)) << size;
        EXPECT_EQ(some_bytes(size), read_file("b")) << size;
        EXPECT_EQ(5 + size, bytes);
    }
    EXPECT_EQ(lines(6, "ok a > b 1"), told);
    EXPECT_THAT(log_lines(), IsEmpty());
}

TEST_F(File, CopiesInBlocksOf8192) {
    write_file("a", some_bytes(20000));
    ASSERT_EQ(1, file_copy("a", "b", 1, nullptr));
    EXPECT_THAT(disk.written, ElementsAre(8192, 8192, 3616));
}

TEST_F(File, KernelMovesTheBytesWhereItCan) {
    disk.in_kernel = true;
    write_file("a", some_bytes(20000));
    std::uint32_t bytes = 1;
    ASSERT_EQ(1, file_copy("a", "b", 1, &bytes));
    EXPECT_EQ(20001U, bytes);
    EXPECT_EQ(some_bytes(20000), read_file("b"));
    EXPECT_THAT(disk.written, IsEmpty());
}

TEST_F(File, BlocksTakeUpWhatTheKernelLeaves) {
    disk.in_kernel = true;
    disk.moves = {{5000, 0}, {-1, EIO}};
    write_file("a", some_bytes(20000));
    std::uint32_t bytes = 0;
    ASSERT_EQ(1, file_copy("a", "b", 1, &bytes));
    EXPECT_EQ(20000U, bytes);
    EXPECT_EQ(some_bytes(20000), read_file("b"));
    EXPECT_THAT(disk.written, ElementsAre(8192, 6808));
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(File, WholeBlocksAreCountedOfACopyThatTheKernelBeganAndThatFailed) {
    disk.in_kernel = true;
    disk.moves = {{9000, 0}, {-1, ENOSPC}};
    disk.writes = {{100, 0}, {-1, ENOSPC}};
    write_file("a", some_bytes(20000));
    std::uint32_t bytes = 0;
    EXPECT_EQ(0, file_copy("a", "b", 1, &bytes));
    EXPECT_EQ(8192U, bytes);
    EXPECT_EQ(some_bytes(9100), read_file("b"));
    EXPECT_THAT(errors(), ElementsAre("Error writing to 'b', No space left on device"));
    EXPECT_THAT(told, ElementsAre("fail a > b 1"));
}

TEST_F(File, ShortLastBlockBeforeAReadErrorIsCounted) {
    disk.in_kernel = true;
    disk.moves = {{9000, 0}, {-1, EIO}};
    disk.reads = {{-1, EIO}};
    write_file("a", some_bytes(20000));
    std::uint32_t bytes = 0;
    EXPECT_EQ(0, file_copy("a", "b", 1, &bytes));
    EXPECT_EQ(9000U, bytes);
    EXPECT_EQ(some_bytes(9000), read_file("b"));
    EXPECT_THAT(errors(), ElementsAre("Error reading from 'a', Input/output error"));
}

TEST_F(File, FileThatDoesNotKnowItsSizeIsCopiedWhole) {
    if (!exists("/proc/self/limits"))
        GTEST_SKIP() << "there is no /proc here";
    disk.in_kernel = true;
    ASSERT_EQ(1, file_copy("/proc/self/limits", "b", 1, nullptr));
    EXPECT_EQ(read_file("/proc/self/limits"), read_file("b"));
    EXPECT_FALSE(read_file("b").empty());
}

TEST_F(File, LongFileThatDoesNotKnowItsSizeIsCopiedToItsEnd) {
    const char *maps =
        "/proc/self/smaps"; // changes while it is read, but for where the last part of the memory is
    if (!exists(maps) || read_file(maps).size() < 20000)
        GTEST_SKIP() << "there is no /proc here, or not enough in it";
    const auto last_part = [](const std::string &text) {
        std::string last;
        for (const std::string &line : lines_of(text))
            if (std::isxdigit(static_cast<unsigned char>(line[0])) && line.find('-') < line.find(' '))
                last = line;
        return last;
    };
    disk.in_kernel = true;
    ASSERT_EQ(1, file_copy(maps, "b", 1, nullptr));
    EXPECT_NE("", last_part(read_file("b")));
    EXPECT_EQ(last_part(read_file(maps)), last_part(read_file("b")));
    EXPECT_LT(2 * 8192U, read_file("b").size());
}

TEST_F(File, FileThatGrowsFromNothingIsCopiedAsLongAsItIsAfterABlock) {
    write_file("a", "");
    int reads = 0;
    disk.before_read = [&reads] {
        if (++reads <= 10)
            std::ofstream("a", std::ios::app) << text('g', 10000);
    };
    std::uint32_t bytes = 0;
    EXPECT_EQ(1, file_copy("a", "b", 1, &bytes));
    EXPECT_EQ(2, reads);
    EXPECT_EQ(10000U, bytes);
    EXPECT_EQ(text('g', 10000), read_file("b"));
}

TEST_F(File, CopyOfNullTellsFail) {
    EXPECT_EQ(0, file_copy(nullptr, "b", 1, nullptr));
    EXPECT_EQ(0, file_copy("a", nullptr, 0, nullptr));
    EXPECT_EQ(0, file_copy(nullptr, nullptr, 0, nullptr));
    EXPECT_THAT(told, ElementsAre("fail (null) > b 1", "fail a > (null) 1", "fail (null) > (null) 1"));
    EXPECT_THAT(log_lines(), IsEmpty());
    EXPECT_FALSE(exists("b"));
}

TEST_F(File, CopyKeepsAnExistingTargetUnlessToldToOverwrite) {
    write_file("a", "new");
    write_file("b", "old and longer");
    std::uint32_t bytes = 0;
    EXPECT_EQ(-1, file_copy("a", "b", 0, &bytes));
    EXPECT_EQ("old and longer", read_file("b"));
    EXPECT_EQ(0U, bytes);
    EXPECT_THAT(told, IsEmpty());
    EXPECT_THAT(log_lines(), IsEmpty());
    EXPECT_EQ(1, file_copy("a", "b", 1, &bytes));
    EXPECT_EQ("new", read_file("b"));
}

TEST_F(File, CopyWithoutOverwriteMakesAMissingTarget) {
    write_file("a", "x");
    EXPECT_EQ(1, file_copy("a", "b", 0, nullptr));
    EXPECT_EQ("x", read_file("b"));
}

TEST_F(File, CopyWithoutOverwriteReplacesATargetThatCannotBeRead) {
    as_ordinary_user([] {
        write_file("a", "new");
        write_file("b", "old");
        chmod("b", 0200);
        EXPECT_EQ(1, file_copy("a", "b", 0, nullptr));
        chmod("b", 0600);
        EXPECT_EQ("new", read_file("b"));
    });
}

TEST_F(File, CopyLeavesNoErrorNumberBehindASuccess) {
    write_file("a", "new");
    write_file("b", "old");
    errno = EDOM;
    EXPECT_EQ(1, file_copy("a", "b", 1, nullptr));
    EXPECT_EQ(0, errno);
}

TEST_F(File, CopyReportsATargetThatCannotBeOpened) {
    write_file("a", "x");
    make_dir("dir");
    EXPECT_EQ(0, file_copy("a", "no/b", 1, nullptr));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ(0, file_copy("a", "dir", 1, nullptr));
    EXPECT_EQ(EISDIR, errno);
    EXPECT_EQ(0, file_copy("a", "", 1, nullptr));
    EXPECT_THAT(errors(), ElementsAre("Error opening 'no/b' for write, No such file or directory",
                                      "Error opening 'dir' for write, Is a directory",
                                      "Error opening '' for write, No such file or directory"));
    EXPECT_THAT(told, ElementsAre("fail a > no/b 1", "fail a > dir 1", "fail a >  1"));
}

TEST_F(File, CopyOpensTheTargetFirstSoThatAMissingSourceLeavesItEmpty) {
    write_file("old", "text");
    EXPECT_EQ(0, file_copy("no", "new", 1, nullptr));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ(0, file_copy("no", "old", 1, nullptr));
    EXPECT_EQ("", read_file("new"));
    EXPECT_EQ("", read_file("old"));
    EXPECT_EQ(lines(2, "Error opening 'no' for read, No such file or directory"), errors());
    EXPECT_THAT(told, ElementsAre("fail no > new 1", "fail no > old 1"));
}

TEST_F(File, CopyNamesTheTargetWhenBothEndsAreMissing) {
    EXPECT_EQ(0, file_copy("no", "gone/b", 1, nullptr));
    EXPECT_THAT(errors(), ElementsAre("Error opening 'gone/b' for write, No such file or directory"));
}

TEST_F(File, CopyOfAnUnreadableSourceFails) {
    as_ordinary_user([] {
        write_file("a", "secret");
        chmod("a", 0);
        EXPECT_EQ(0, file_copy("a", "b", 1, nullptr));
        EXPECT_EQ(EACCES, errno);
        EXPECT_EQ("", read_file("b"));
        EXPECT_THAT(told, ElementsAre("fail a > b 1"));
    });
    EXPECT_THAT(errors(), ElementsAre("Error opening 'a' for read, Permission denied"));
}

TEST_F(File, CopyOfADirectoryFailsInReading) {
    make_dir("d");
    EXPECT_EQ(0, file_copy("d", "b", 1, nullptr));
    EXPECT_EQ(EISDIR, errno);
    EXPECT_EQ("", read_file("b"));
    EXPECT_THAT(errors(), ElementsAre("Error reading from 'd', Is a directory"));
    EXPECT_THAT(told, ElementsAre("fail d > b 1"));
}

TEST_F(File, CopyThatBreaksOffInReadingLeavesWhatWasWritten) {
    write_file("a", some_bytes(20000));
    disk.reads = {{1, 0}, {-1, EIO}};
    std::uint32_t bytes = 0;
    EXPECT_EQ(0, file_copy("a", "b", 1, &bytes));
    EXPECT_EQ(EIO, errno);
    EXPECT_EQ(8192U, bytes);
    EXPECT_EQ(some_bytes(8192), read_file("b"));
    EXPECT_THAT(errors(), ElementsAre("Error reading from 'a', Input/output error"));
    EXPECT_THAT(told, ElementsAre("fail a > b 1"));
}

TEST_F(File, CopyToAFullDeviceIsAWriteError) {
    if (!std::filesystem::is_character_file("/dev/full"))
        GTEST_SKIP() << "there is no /dev/full here";
    write_file("a", "x");
    std::uint32_t bytes = 0;
    EXPECT_EQ(0, file_copy("a", "/dev/full", 1, &bytes));
    EXPECT_EQ(ENOSPC, errno);
    EXPECT_EQ(0U, bytes);
    EXPECT_THAT(errors(), ElementsAre("Error writing to '/dev/full', No space left on device"));
    EXPECT_THAT(told, ElementsAre("fail a > /dev/full 1"));
}

TEST_F(File, CopyThatBreaksOffInWritingCountsTheBlocksBefore) {
    write_file("a", some_bytes(20000));
    disk.writes = {{8192, 0}, {100, 0}, {-1, ENOSPC}};
    std::uint32_t bytes = 0;
    EXPECT_EQ(0, file_copy("a", "b", 1, &bytes));
    EXPECT_EQ(8192U, bytes);
    EXPECT_EQ(some_bytes(8292), read_file("b"));
    EXPECT_THAT(errors(), ElementsAre("Error writing to 'b', No space left on device"));
}

TEST_F(File, CopyTakesAWriteOfNothingForAnError) {
    write_file("a", "x");
    disk.writes = {{0, 0}};
    EXPECT_EQ(0, file_copy("a", "b", 1, nullptr));
    EXPECT_THAT(errors(), ElementsAre("Error writing to 'b', Input/output error"));
}

TEST_F(File, CopyLooksAtHowTheTargetCloses) {
    write_file("a", "text");
    disk.close_error = EDQUOT;
    std::uint32_t bytes = 0;
    EXPECT_EQ(0, file_copy("a", "b", 1, &bytes));
    EXPECT_EQ(EDQUOT, errno);
    EXPECT_EQ(4U, bytes);
    EXPECT_THAT(errors(), ElementsAre("Error writing to 'b', Disk quota exceeded"));
    EXPECT_THAT(told, ElementsAre("fail a > b 1"));
}

TEST_F(File, CopyGoesOnAfterInterruptionsAndShortWrites) {
    write_file("a", some_bytes(20000));
    disk.reads = {{-1, EINTR}, {1, 0}, {-1, EINTR}};
    disk.writes = {{-1, EINTR}, {1, 0}, {8000, 0}, {-1, EINTR}};
    std::uint32_t bytes = 0;
    EXPECT_EQ(1, file_copy("a", "b", 1, &bytes));
    EXPECT_EQ(some_bytes(20000), read_file("b"));
    EXPECT_EQ(20000U, bytes);
}

TEST_F(File, CopyKeepsItsFilesFromOtherPrograms) {
    write_file("a", "x");
    ASSERT_EQ(1, file_copy("a", "b", 1, nullptr));
    ASSERT_EQ(1, file_copy("a", "b", 1, nullptr));
    EXPECT_FALSE(disk.inheritable);
}

TEST_F(File, CopyGivesANewTargetTheDefaultMode) {
    write_file("a", "x");
    chmod("a", 0755);
    ASSERT_EQ(1, file_copy("a", "b", 1, nullptr));
    EXPECT_EQ(0644, mode_of("b"));
    umask(077);
    ASSERT_EQ(1, file_copy("a", "c", 1, nullptr));
    EXPECT_EQ(0600, mode_of("c"));
    umask(0);
    ASSERT_EQ(1, file_copy("a", "d", 0, nullptr));
    EXPECT_EQ(0666, mode_of("d"));
}

TEST_F(File, CopyLeavesTheModeOfAnExistingTarget) {
    write_file("a", "x");
    write_file("b", "old");
    chmod("b", 0640);
    ASSERT_EQ(1, file_copy("a", "b", 1, nullptr));
    EXPECT_EQ(0640, mode_of("b"));
}

TEST_F(File, CopyReadsThroughALink) {
    write_file("a", "text");
    make_link("a", "link");
    ASSERT_EQ(1, file_copy("link", "b", 1, nullptr));
    EXPECT_FALSE(std::filesystem::is_symlink("b"));
    EXPECT_EQ("text", read_file("b"));
}

TEST_F(File, CopyWritesThroughALinkAtTheTarget) {
    write_file("a", "new");
    write_file("old", "old");
    make_link("old", "link");
    make_link("made", "dangling");
    EXPECT_EQ(1, file_copy("a", "link", 1, nullptr));
    EXPECT_EQ(1, file_copy("a", "dangling", 1, nullptr));
    EXPECT_TRUE(std::filesystem::is_symlink("link"));
    EXPECT_EQ("new", read_file("old"));
    EXPECT_EQ("new", read_file("made"));
}

TEST_F(File, CopyOfADanglingLinkIsAMissingSource) {
    make_link("nowhere", "link");
    EXPECT_EQ(0, file_copy("link", "b", 1, nullptr));
    EXPECT_EQ("", read_file("b"));
    EXPECT_THAT(errors(), ElementsAre("Error opening 'link' for read, No such file or directory"));
}

TEST_F(File, CopiesFromAndToDevices) {
    write_file("a", "x");
    EXPECT_EQ(1, file_copy("/dev/null", "b", 1, nullptr));
    EXPECT_EQ("", read_file("b"));
    EXPECT_EQ(1, file_copy("a", "/dev/null", 1, nullptr));
    EXPECT_EQ(-1, file_copy("a", "/dev/null", 0, nullptr));
}

TEST_F(File, CopyOntoItselfIsRefused) {
    write_file("a", "precious");
    ASSERT_EQ(0, link("a", "hard"));
    make_link("a", "soft");
    make_dir("d");
    make_link("../a", "d/up");
    const struct {
        const char *src, *dst;
    } rows[] = {{"a", "a"}, {"a", "./a"}, {"a", "hard"}, {"a", "soft"}, {"soft", "a"}, {"hard", "d/up"}};
    for (const auto &row : rows)
        for (const int overwrite : {0, 1}) {
            const std::string names = std::string("'") + row.src + "' and '" + row.dst + "'";
            told.clear();
            EXPECT_EQ(0, file_copy(row.src, row.dst, overwrite, nullptr)) << names;
            EXPECT_EQ(EINVAL, errno) << names;
            EXPECT_THAT(told, ElementsAre(std::string("fail ") + row.src + " > " + row.dst + " 1"));
            EXPECT_EQ(names + " are the same file, Invalid argument", last_error());
            EXPECT_EQ("precious", read_file("a")) << names;
        }
    EXPECT_THAT(disk.written, IsEmpty());
}

TEST_F(File, CopyOfTwoMissingFilesIsNotTakenForTheSame) {
    make_link("x", "one");
    make_link("y", "two");
    EXPECT_EQ(0, file_copy("one", "two", 1, nullptr));
    EXPECT_THAT(errors(), ElementsAre("Error opening 'one' for read, No such file or directory"));
}

TEST_F(File, CopyRefusesAFifoOrASocketAtEitherEnd) {
    write_file("a", "x");
    make_fifo("fifo");
    make_socket("socket");
    make_link("fifo", "link");
    for (const char *pipe : {"fifo", "socket", "link"})
        for (const int overwrite : {0, 1}) {
            told.clear();
            EXPECT_EQ(0, file_copy(pipe, "b", overwrite, nullptr)) << pipe;
            EXPECT_EQ(EINVAL, errno) << pipe;
            EXPECT_EQ(std::string("'") + pipe + "' is not a file, Invalid argument", last_error());
            EXPECT_EQ(0, file_copy("a", pipe, overwrite, nullptr)) << pipe;
            EXPECT_EQ(EINVAL, errno) << pipe;
            EXPECT_EQ(std::string("'") + pipe + "' is not a file, Invalid argument", last_error());
            EXPECT_THAT(told, ElementsAre(std::string("fail ") + pipe + " > b 1",
                                          std::string("fail a > ") + pipe + " 1"));
        }
    EXPECT_EQ(12U, errors().size());
    EXPECT_FALSE(exists("b"));
}

TEST_F(File, CopyDoesNotWaitForAFifoThatTookTheFilesPlace) {
    make_fifo("fifo");
    const place was_a_file = {AT_FDCWD, "fifo", "fifo", S_IFREG};
    std::uint32_t bytes = 0;
    file_copy_at(was_a_file, place_of("b"), 1, &bytes);
    EXPECT_EQ(0U, bytes);
}

// ---- file_move ----

TEST_F(File, MoveCopiesAndRemoves) {
    write_file("a", "text");
    std::uint32_t bytes = 0;
    EXPECT_EQ(1, file_move("a", "b", 1, &bytes));
    EXPECT_FALSE(exists("a"));
    EXPECT_EQ("text", read_file("b"));
    EXPECT_EQ(4U, bytes);
    EXPECT_THAT(told, ElementsAre("ok a > b 1"));
}

TEST_F(File, MoveRemovesTheSourceEvenWhenTheTargetIsKept) {
    write_file("a", "new");
    write_file("b", "old");
    EXPECT_EQ(1, file_move("a", "b", 0, nullptr));
    EXPECT_FALSE(exists("a"));
    EXPECT_EQ("old", read_file("b"));
    EXPECT_THAT(told, IsEmpty());
}

TEST_F(File, MoveKeepsASourceThatWasNotCopied) {
    write_file("a", "text");
    EXPECT_EQ(0, file_move("a", "no/b", 1, nullptr));
    disk.close_error = EIO;
    EXPECT_EQ(0, file_move("a", "b", 1, nullptr));
    EXPECT_EQ("text", read_file("a"));
    EXPECT_EQ(0, file_move(nullptr, "b", 1, nullptr));
    EXPECT_THAT(told, ElementsAre("fail a > no/b 1", "fail a > b 1", "fail (null) > b 1"));
}

TEST_F(File, MoveOntoItselfLosesNothing) {
    write_file("a", "precious");
    ASSERT_EQ(0, link("a", "hard"));
    for (const char *dst : {"a", "./a", "hard"})
        for (const int overwrite : {0, 1})
            EXPECT_EQ(0, file_move("a", dst, overwrite, nullptr)) << dst;
    EXPECT_EQ("precious", read_file("a"));
    EXPECT_EQ(6U, told.size());
}

TEST_F(File, MoveReportsASourceThatCannotBeRemoved) {
    as_ordinary_user([] {
        make_dir("ro");
        write_file("ro/a", "text");
        chmod("ro", 0555);
        EXPECT_EQ(0, file_move("ro/a", "b", 1, nullptr));
        EXPECT_EQ(EACCES, errno);
        EXPECT_EQ("text", read_file("b"));
        EXPECT_THAT(told, ElementsAre("ok ro/a > b 1"));
        chmod("ro", 0755);
    });
    EXPECT_THAT(errors(), ElementsAre("Error removing moved file 'ro/a', Permission denied"));
}

// ---- file_mkdir ----

TEST_F(File, MkdirMakesTheMissingParentsAndTellsEach) {
    make_dir("a");
    EXPECT_EQ(1, file_mkdir("a/b/c/", 1));
    EXPECT_TRUE(std::filesystem::is_directory("a/b/c"));
    EXPECT_THAT(log_lines(),
                ElementsAre("Debug: Directory created 'a/b'", "Debug: Directory created 'a/b/c'"));
    EXPECT_THAT(told, ElementsAre("ok a/b > (null) 1", "ok a/b/c > (null) 1"));

    EXPECT_EQ(1, file_mkdir("a/b/c/", 1));
    EXPECT_EQ(2U, told.size());
    EXPECT_EQ(2U, log_lines().size());
}

TEST_F(File, MkdirMakesAbsolutePaths) {
    const std::string path = dir() + "/x/y";
    EXPECT_EQ(1, file_mkdir(path.c_str(), 1));
    EXPECT_THAT(told, ElementsAre("ok " + dir() + "/x > (null) 1", "ok " + path + " > (null) 1"));
}

TEST_F(File, MkdirTakesBackslashesForSeparators) {
    EXPECT_EQ(1, file_mkdir("x\\y/z\\", 1));
    EXPECT_TRUE(std::filesystem::is_directory("x/y/z"));
    EXPECT_THAT(told, ElementsAre("ok x > (null) 1", "ok x/y > (null) 1", "ok x/y/z > (null) 1"));
}

TEST_F(File, MkdirWithoutMakeAllNeedsTheParent) {
    EXPECT_EQ(0, file_mkdir("x/y", 0));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_FALSE(exists("x"));
    EXPECT_THAT(errors(), ElementsAre("Error creating directory 'x/y', No such file or directory"));
    EXPECT_THAT(told, ElementsAre("fail x/y > (null) 1"));
    EXPECT_EQ(1, file_mkdir("x", 0));
    EXPECT_EQ(1, file_mkdir("x/y", 0));
}

TEST_F(File, MkdirTakesDoubledSeparators) {
    EXPECT_EQ(1, file_mkdir("x//y", 1));
    EXPECT_THAT(told, ElementsAre("ok x > (null) 1", "ok x//y > (null) 1"));
}

TEST_F(File, MkdirSkipsADrivePrefix) {
    EXPECT_EQ(0, file_mkdir("C:/x/y", 1));
    EXPECT_FALSE(exists("C:"));
    make_dir("C:");
    EXPECT_EQ(1, file_mkdir("C:/x/y", 1));
    EXPECT_TRUE(std::filesystem::is_directory("C:/x/y"));
    EXPECT_EQ(1, file_mkdir("D:", 1));
    EXPECT_TRUE(std::filesystem::is_directory("D:"));
}

TEST_F(File, MkdirTakesAnyExistingNameForSuccess) {
    write_file("f", "");
    EXPECT_EQ(1, file_mkdir("f", 1));
    EXPECT_EQ(1, file_mkdir("f", 0));
    EXPECT_THAT(told, IsEmpty());
}

TEST_F(File, MkdirTakesAParentThatWasMadeForSuccess) {
    write_file("f", "");
    EXPECT_EQ(1, file_mkdir("new/../f/x", 1));
    EXPECT_THAT(told, ElementsAre("ok new > (null) 1"));
    EXPECT_EQ(0, file_mkdir("new/../f/x", 1));
    const std::string error = "Error creating directory 'new/../f/x', Not a directory";
    EXPECT_THAT(errors(), ElementsAre(error, error)); // told both times
}

TEST_F(File, MkdirCannotMakeTheRootOrNothing) {
    EXPECT_EQ(0, file_mkdir("/", 1));
    EXPECT_EQ(0, file_mkdir("", 1));
    EXPECT_EQ(0, file_mkdir(nullptr, 1));
    EXPECT_THAT(errors(), ElementsAre("Error creating directory '/', No such file or directory",
                                      "Error creating directory '', No such file or directory"));
    EXPECT_THAT(told, ElementsAre("fail / > (null) 1", "fail  > (null) 1"));
}

TEST_F(File, MkdirUsesMode0775LessTheUmask) {
    ASSERT_EQ(1, file_mkdir("a", 1));
    EXPECT_EQ(0755, mode_of("a"));
    umask(0);
    ASSERT_EQ(1, file_mkdir("b/c", 1));
    EXPECT_EQ(0775, mode_of("b"));
    EXPECT_EQ(0775, mode_of("b/c"));
    umask(077);
    ASSERT_EQ(1, file_mkdir("d", 0));
    EXPECT_EQ(0700, mode_of("d"));
}

TEST_F(File, MkdirOfAPathThatDoesNotFitMakesNothing) {
    const std::string fits = text('x', 200) + "/" + text('y', 54);
    EXPECT_EQ(1, file_mkdir((fits + "/").c_str(), 1));
    EXPECT_TRUE(exists(fits));
    told.clear();
    const std::string longer = "z/" + text('x', 200) + "/" + text('y', 53);
    ASSERT_EQ(256U, longer.size());
    EXPECT_EQ(0, file_mkdir(longer.c_str(), 1));
    EXPECT_EQ(ENAMETOOLONG, errno);
    EXPECT_FALSE(exists("z"));
    EXPECT_THAT(errors(), ElementsAre("Path too long '" + longer + "', File name too long"));
    EXPECT_THAT(told, ElementsAre("fail " + longer + " > (null) 1"));
}

// ---- file_xcopy ----

TEST_F(File, XcopyCopiesATreeAndCountsWhatItMakes) {
    make_dir("s/d/e");
    write_file("s/f", "one");
    write_file("s/d/.hidden", "three");
    std::uint32_t bytes = 0;
    EXPECT_EQ(5, file_xcopy("s", "*", nullptr, "t/u", 1, &bytes)); // t/u, f, d, .hidden, e
    EXPECT_EQ("one", read_file("t/u/f"));
    EXPECT_EQ("three", read_file("t/u/d/.hidden"));
    EXPECT_TRUE(std::filesystem::is_directory("t/u/d/e"));
    EXPECT_EQ(8U, bytes);
    EXPECT_THAT(told, UnorderedElementsAre("ok t > (null) 1", "ok t/u > (null) 1", "ok s/f > t/u/f 1",
                                           "ok t/u/d > (null) 1", "ok s/d/.hidden > t/u/d/.hidden 1",
                                           "ok t/u/d/e > (null) 1"));
    EXPECT_THAT(log_lines(),
                UnorderedElementsAre("Debug: 't/u' does not exist", "Debug: Directory created 't'",
                                     "Debug: Directory created 't/u'", "Debug: 't/u/d' does not exist",
                                     "Debug: Directory created 't/u/d'", "Debug: 't/u/d/e' does not exist",
                                     "Debug: Directory created 't/u/d/e'"));
}

TEST_F(File, XcopyUsesExistingDirectoriesAndOverwritesFiles) {
    make_dir("s/d");
    write_file("s/d/f", "new");
    make_dir("t/d");
    write_file("t/d/f", "old and longer");
    write_file("t/d/kept", "kept");
    EXPECT_EQ(1, file_xcopy("s", nullptr, nullptr, "t", 1, nullptr));
    EXPECT_EQ("new", read_file("t/d/f"));
    EXPECT_EQ("kept", read_file("t/d/kept"));
    EXPECT_THAT(log_lines(), ElementsAre("Debug: 't' exists and is a directory",
                                         "Debug: 't/d' exists and is a directory"));
}

TEST_F(File, XcopySelectsByWildcardAtTheTopOnly) {
    make_dir("s/cgi.d");
    write_file("s/a.cgi", "");
    write_file("s/a.CGI", "");
    write_file("s/b.txt", "");
    write_file("s/cgi.d/c.txt", "");
    EXPECT_EQ(2, file_xcopy("s", "*.cgi", nullptr, "t", 1, nullptr));
    EXPECT_THAT(names_in("t"), ElementsAre("a.cgi"));
    EXPECT_EQ(2, file_xcopy("s", "cgi*", nullptr, "t", 1, nullptr));
    EXPECT_THAT(names_in("t/cgi.d"), ElementsAre("c.txt"));
}

TEST_F(File, XcopyExcludesAtEveryLevelWithCase) {
    make_dir("s/CVS");
    make_dir("s/d/CVS");
    make_dir("s/d/cvs");
    write_file("s/CVS/Root", "");
    write_file("s/d/cvs/x.bak", "");
    write_file("s/d/cvs/x.BAK", "");
    EXPECT_EQ(4, file_xcopy("s", "*", "CVS,*.bak", "t", 1, nullptr)); // t, d, cvs, x.BAK
    EXPECT_THAT(names_in("t"), ElementsAre("d"));
    EXPECT_THAT(names_in("t/d"), ElementsAre("cvs"));
    EXPECT_THAT(names_in("t/d/cvs"), ElementsAre("x.BAK"));
}

TEST_F(File, XcopyWithoutRecurseMakesEmptyDirectories) {
    make_dir("s/d");
    make_dir("s/there");
    make_dir("t/there");
    write_file("s/d/f", "");
    write_file("s/g", "");
    EXPECT_EQ(3, file_xcopy("s", "*", nullptr, "t", 0, nullptr)); // d, g, and "there", which succeeds too
    EXPECT_THAT(names_in("t"), ElementsAre("d", "g", "there"));
    EXPECT_THAT(names_in("t/d"), IsEmpty());
    EXPECT_THAT(told, UnorderedElementsAre("ok t/d > (null) 1", "ok s/g > t/g 1"));
}

TEST_F(File, XcopyOfNullIsNothing) {
    make_dir("s");
    EXPECT_EQ(0, file_xcopy(nullptr, "*", nullptr, "t", 1, nullptr));
    EXPECT_EQ(0, file_xcopy("s", "*", nullptr, nullptr, 1, nullptr));
    EXPECT_EQ(0, file_xmove(nullptr, "*", nullptr, "t", 1, nullptr));
    EXPECT_EQ(0, file_xmove("s", "*", nullptr, nullptr, 1, nullptr));
    EXPECT_FALSE(exists("t"));
    EXPECT_THAT(told, IsEmpty());
}

TEST_F(File, XcopyOfAMissingSourceStillMakesTheTarget) {
    EXPECT_EQ(1, file_xcopy("no", "*", nullptr, "t", 1, nullptr));
    EXPECT_TRUE(exists("t"));
    EXPECT_THAT(errors(), ElementsAre("Error opening dir 'no', No such file or directory"));
}

TEST_F(File, XcopyStopsWhenTheTargetCannotBeMade) {
    make_dir("s");
    write_file("s/f", "");
    write_file("file", "");
    EXPECT_EQ(0, file_xcopy("s", "*", nullptr, "file/t", 1, nullptr));
    EXPECT_THAT(errors(), ElementsAre("Error creating directory 'file/t', Not a directory"));
    EXPECT_THAT(told, ElementsAre("fail file/t > (null) 1"));
}

TEST_F(File, XcopyIntoAPlainFileReportsEachFile) {
    make_dir("s");
    write_file("s/f", "");
    write_file("file", "text");
    EXPECT_EQ(0, file_xcopy("s", "*", nullptr, "file", 1, nullptr));
    EXPECT_EQ("text", read_file("file"));
    EXPECT_THAT(errors(), ElementsAre("Error opening 'file/f' for write, Not a directory"));
    EXPECT_THAT(told, ElementsAre("fail s/f > file/f 1"));
}

TEST_F(File, XcopyReadsThroughLinksAndNeverDescendsIntoThem) {
    make_dir("outside");
    write_file("outside/secret", "text");
    make_dir("s");
    make_link("../outside/secret", "s/to-file");
    make_link("../outside", "s/to-dir");
    make_link("self", "s/self");
    make_link("nowhere", "s/dangling");
    EXPECT_EQ(2, file_xcopy("s", "*", nullptr, "t", 1, nullptr)); // t and to-file
    EXPECT_FALSE(std::filesystem::is_symlink("t/to-file"));
    EXPECT_EQ("text", read_file("t/to-file"));
    EXPECT_THAT(errors(),
                UnorderedElementsAre("Error reading from 's/to-dir', Is a directory",
                                     "Error opening 's/self' for read, Too many levels of symbolic links",
                                     "Error opening 's/dangling' for read, No such file or directory"));
    for (const char *name : {"t/to-dir", "t/self", "t/dangling"})
        EXPECT_EQ("", read_file(name)) << name;
    EXPECT_THAT(names_in("outside"), ElementsAre("secret"));
}

TEST_F(File, XcopyTakesNamesOfAnyBytes) {
    const std::string names[] = {"with\nnewline", " ", "a b,c", "\xff\x01\x80", "-", "*", "back\\slash"};
    make_dir("s/back"); // where a name with its separator rewritten would lead
    write_file("s/back/slash", "another");
    make_dir("t");
    for (const std::string &name : names)
        write_file("s/" + name, name);
    EXPECT_EQ(9, file_xcopy("s", "*", nullptr, "t", 1, nullptr));
    for (const std::string &name : names)
        EXPECT_EQ(name, read_file("t/" + name));
    EXPECT_EQ("another", read_file("t/back/slash"));
}

TEST_F(File, XcopyTakesANameOf253Bytes) {
    make_dir("s");
    const std::string name = text('n', 253);
    write_file("s/" + name, "text");
    EXPECT_EQ(2, file_xcopy("s", "*", nullptr, "t", 1, nullptr));
    EXPECT_EQ("text", read_file("t/" + name));
}

TEST_F(File, XcopyRefusesFifosInATreeAndCopiesTheRest) {
    make_dir("s");
    make_fifo("s/fifo");
    make_socket("s/socket");
    write_file("s/f", "");
    EXPECT_EQ(2, file_xcopy("s", "*", nullptr, "t", 1, nullptr));
    EXPECT_THAT(names_in("t"), ElementsAre("f"));
    EXPECT_THAT(errors(), UnorderedElementsAre("'s/fifo' is not a file, Invalid argument",
                                               "'s/socket' is not a file, Invalid argument"));
    EXPECT_THAT(told, UnorderedElementsAre("ok t > (null) 1", "ok s/f > t/f 1", "fail s/fifo > t/fifo 1",
                                           "fail s/socket > t/socket 1"));
}

TEST_F(File, XcopyIntoItselfIsRefusedBeforeAnythingIsMade) {
    make_dir("s/sub");
    write_file("s/f", "text");
    make_link("s", "to-s");
    make_link("s/sub", "to-sub");
    make_dir("t");
    make_link("../s", "t/s");
    const std::string absolute = dir() + "/s/new";
    for (const char *dst : {"s", "s/", "./s", "s/sub", "s/new", "s/new/deeper", "to-s", "to-s/new",
                            "to-sub/new", "t/../s/new", "t/s/new", "s\\new", absolute.c_str()}) {
        told.clear();
        EXPECT_EQ(0, file_xcopy("s", "*", nullptr, dst, 1, nullptr)) << dst;
        EXPECT_EQ(EINVAL, errno) << dst;
        EXPECT_EQ("Cannot copy directory 's' into itself, Invalid argument", last_error());
        EXPECT_THAT(told, ElementsAre(std::string("fail s > ") + dst + " 1"));
        EXPECT_EQ(0, file_xmove("s", "*", nullptr, dst, 1, nullptr)) << dst;
    }
    EXPECT_EQ(26U, errors().size());
    EXPECT_THAT(names_in("s"), ElementsAre("f", "sub"));
    EXPECT_THAT(names_in("s/sub"), IsEmpty());
}

TEST_F(File, XcopyThroughADirectoryStillToBeMadeDoesNotFillItself) {
    make_dir("s");
    write_file("s/f", "text");
    EXPECT_EQ(1, file_xcopy("s", "*", nullptr, "new/../s/x", 1, nullptr));
    EXPECT_THAT(errors(), ElementsAre("Cannot copy directory 's' into itself, Invalid argument"));
    EXPECT_THAT(names_in("s/x"), IsEmpty());
}

TEST_F(File, XcopyBesideItselfIsFine) {
    make_dir("s");
    write_file("s/f", "text");
    EXPECT_EQ(2, file_xcopy("s", "*", nullptr, "s2", 1, nullptr));
    EXPECT_EQ(2, file_xcopy("s", "f", nullptr, "s/below", 0, nullptr)); // not a tree
    EXPECT_EQ("text", read_file("s/below/f"));
}

TEST_F(File, XcopyPassesOverATargetLinkThatLeadsBackIntoTheTree) {
    make_dir("s/sub/deep");
    write_file("s/sub/f", "text");
    write_file("s/g", "text");
    make_dir("t");
    make_link("../s/sub/deep", "t/sub");
    EXPECT_EQ(1, file_xcopy("s", "*", nullptr, "t", 1, nullptr));
    EXPECT_THAT(errors(), ElementsAre("Cannot copy directory 's/sub' into itself, Invalid argument"));
    EXPECT_THAT(told, UnorderedElementsAre("ok s/g > t/g 1", "fail s/sub > t/sub 1"));
    EXPECT_THAT(names_in("s/sub/deep"), IsEmpty());
}

TEST_F(File, XcopyFollowsATargetLinkThatLeadsElsewhere) {
    make_dir("s/sub");
    write_file("s/sub/f", "text");
    make_dir("elsewhere");
    make_dir("t");
    make_link("../elsewhere", "t/sub");
    EXPECT_EQ(1, file_xcopy("s", "*", nullptr, "t", 1, nullptr));
    EXPECT_EQ("text", read_file("elsewhere/f"));
}

TEST_F(File, XcopyReportsTargetsWhosePathDoesNotFit) {
    const std::string target = text('t', 200);
    make_dir("s/" + text('d', 60));
    write_file("s/" + text('f', 54), "fits");
    write_file("s/" + text('g', 55), "");
    EXPECT_EQ(2, file_xcopy("s", "*", nullptr, target.c_str(), 1, nullptr)); // the target and "fff"
    EXPECT_EQ(lines(2, "Path too long '" + target + "', File name too long"), errors());
    EXPECT_THAT(told,
                UnorderedElementsAre("ok " + target + " > (null) 1",
                                     "ok s/" + text('f', 54) + " > " + target + "/" + text('f', 54) + " 1",
                                     "fail s/" + text('g', 55) + " > " + target + " 1",
                                     "fail s/" + text('d', 60) + " > " + target + " 1"));
    EXPECT_THAT(names_in(target), ElementsAre(text('f', 54)));
    EXPECT_THAT(names_in("."), ElementsAre("s", target));
}

TEST_F(File, XcopyReportsEntriesWhosePathDoesNotFit) {
    const std::string source = text('s', 200);
    make_dir(source);
    write_file(source + "/" + text('x', 55), "");
    write_file(source + "/f", "");
    EXPECT_EQ(2, file_xcopy(source.c_str(), "*", nullptr, "t", 1, nullptr));
    EXPECT_THAT(errors(), ElementsAre("Path too long '" + source + "', File name too long"));
    EXPECT_THAT(told, UnorderedElementsAre("ok t > (null) 1", "ok " + source + "/f > t/f 1",
                                           "fail " + source + " > (null) 1"));
    EXPECT_THAT(names_in("t"), ElementsAre("f"));
}

TEST_F(File, XcopyPassesOverWhatItMayNotRead) {
    as_ordinary_user([] {
        make_dir("s/closed");
        write_file("s/f", "text");
        chmod("s/closed", 0);
        EXPECT_EQ(3, file_xcopy("s", "*", nullptr, "t", 1, nullptr)); // t, f, and closed without content
        chmod("s/closed", 0755);
    });
    EXPECT_THAT(errors(), ElementsAre("Error opening dir 's/closed', Permission denied"));
}

TEST_F(File, XcopyNeedsNoRightToReadTheTarget) {
    as_ordinary_user([] {
        make_dir("s");
        write_file("s/f", "text");
        make_dir("t");
        chmod("t", 0300);
        EXPECT_EQ(1, file_xcopy("s", "*", nullptr, "t", 1, nullptr));
        EXPECT_EQ("text", read_file("t/f"));
        chmod("t", 0700);
    });
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(File, XcopyPassesOverFilesThatVanishWhileItReads) {
    make_dir("s");
    make_dir("old");
    for (const char *name : {"a", "b", "c"}) {
        write_file(std::string("s/") + name, "new");
        write_file(std::string("old/") + name, "old");
    }
    for (const char *target : {"fresh", "old"}) {
        told.clear();
        for (const char *name : {"a", "b", "c"})
            write_file(std::string("s/") + name, "new");
        meanwhile = [](const std::string &path) {
            if (path != "fresh")
                for (const char *name : {"s/a", "s/b", "s/c"})
                    unlink(name);
        };
        const int made = exists(target) ? 0 : 1;
        EXPECT_EQ(made + 1, file_xcopy("s", "*", nullptr, target, 1, nullptr));
        EXPECT_EQ(static_cast<std::size_t>(made) + 1, told.size());
    }
    EXPECT_EQ(1U, names_in("fresh").size());
    EXPECT_THAT((lines{read_file("old/a"), read_file("old/b"), read_file("old/c")}),
                UnorderedElementsAre("new", "old", "old"));
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(File, XcopyDoesNotFollowALinkThatTookADirectorysPlace) {
    make_dir("outside");
    write_file("outside/secret", "text");
    make_dir("s/d");
    write_file("s/d/f", "");
    meanwhile = [](const std::string &path) { // between the listing and the opening of s/d
        if (path == "t/d") {
            std::filesystem::rename("s/d", "aside");
            make_link("../outside", "s/d");
        }
    };
    EXPECT_EQ(2, file_xcopy("s", "*", nullptr, "t", 1, nullptr));
    EXPECT_THAT(names_in("t/d"), IsEmpty());
    EXPECT_THAT(errors(), ElementsAre(StartsWith("Error opening dir 's/d', ")));
}

TEST_F(File, XcopyKeepsItsDirectoriesFromOtherPrograms) {
    make_dir("s/d");
    write_file("s/d/f", "");
    const lines before = open_descriptors();
    std::size_t seen = 0;
    meanwhile = [&](const std::string &) {
        for (const std::string &fd : open_descriptors())
            if (std::find(before.begin(), before.end(), fd) == before.end()) {
                ++seen;
                EXPECT_NE(0, fcntl(std::stoi(fd), F_GETFD) & FD_CLOEXEC);
            }
    };
    EXPECT_EQ(3, file_xcopy("s", "*", nullptr, "t", 1, nullptr));
    EXPECT_NE(0U, seen);
}

TEST_F(File, TreesAsDeepAsPathsAllowAreCopiedAndRemoved) {
    std::string path = "s";
    for (int level = 0; level < 126; ++level)
        path += "/d";
    make_dir(path);
    write_file(path + "/f", "deep");
    EXPECT_EQ(128, file_xcopy("s", "*", nullptr, "t", 1, nullptr));
    EXPECT_EQ("deep", read_file("t" + path.substr(1) + "/f"));
    EXPECT_EQ(128, file_rmdir("t", nullptr, 1));
    EXPECT_FALSE(exists("t"));
}

// ---- file_xmove ----

TEST_F(File, XmoveMovesATreeAndCountsMovedDirectoriesToo) {
    make_dir("s/d");
    write_file("s/f", "one");
    write_file("s/d/g", "two");
    std::uint32_t bytes = 0;
    EXPECT_EQ(5, file_xmove("s", "*", nullptr, "t", 1, &bytes)); // t, f, t/d, g, and d gone from s
    EXPECT_THAT(names_in("s"), IsEmpty());
    EXPECT_EQ("one", read_file("t/f"));
    EXPECT_EQ("two", read_file("t/d/g"));
    EXPECT_EQ(6U, bytes);
    EXPECT_THAT(told, UnorderedElementsAre("ok t > (null) 1", "ok s/f > t/f 1", "ok t/d > (null) 1",
                                           "ok s/d/g > t/d/g 1", "ok s/d > (null) 0"));
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(File, XmoveTakesRecurseForOverwriteToo) {
    make_dir("s");
    make_dir("t");
    write_file("t/f", "old");
    write_file("s/f", "new");
    EXPECT_EQ(1, file_xmove("s", "*", nullptr, "t", 0, nullptr));
    EXPECT_EQ("old", read_file("t/f"));
    EXPECT_FALSE(exists("s/f"));
    write_file("s/f", "new");
    EXPECT_EQ(1, file_xmove("s", "*", nullptr, "t", 1, nullptr));
    EXPECT_EQ("new", read_file("t/f"));
}

TEST_F(File, XmoveWithoutRecurseMakesEmptyDirectories) {
    make_dir("s/d");
    write_file("s/d/f", "text");
    EXPECT_EQ(2, file_xmove("s", nullptr, nullptr, "t", 0, nullptr));
    EXPECT_THAT(names_in("t/d"), IsEmpty());
    EXPECT_EQ("text", read_file("s/d/f"));
}

TEST_F(File, XmoveRemovesOnlyWhatMovedWhole) {
    make_dir("s/d/e");
    make_dir("s/d/fine");
    make_fifo("s/d/e/fifo");
    write_file("s/d/e/f", "text");
    write_file("s/d/fine/g", "text");
    // t, d, e, f, fine, g, and fine gone from s
    EXPECT_EQ(7, file_xmove("s", "*", nullptr, "t", 1, nullptr));
    EXPECT_THAT(names_in("s/d"), ElementsAre("e"));
    EXPECT_THAT(names_in("s/d/e"), ElementsAre("fifo"));
    EXPECT_EQ("text", read_file("t/d/e/f"));
    EXPECT_THAT(errors(), ElementsAre("'s/d/e/fifo' is not a file, Invalid argument",
                                      "Failed to remove moved directory 't/d/e', Directory not empty",
                                      "Failed to remove moved directory 't/d', Directory not empty"));
}

TEST_F(File, XmoveDoesNotRemoveFilesWhosePathDoesNotFit) {
    const std::string d = text('d', 200);
    make_dir("s/" + d);
    write_file("s/" + d + "/" + text('f', 53), "");
    EXPECT_EQ(2, file_xmove("s", "*", nullptr, "t", 1, nullptr));
    EXPECT_TRUE(exists("s/" + d + "/" + text('f', 53)));
    EXPECT_THAT(errors(), ElementsAre("Path too long 's/" + d + "', File name too long",
                                      "Failed to remove moved directory 't/" + d + "', Directory not empty"));
}

TEST_F(File, XmoveDoesNotRemoveADirectoryThatItCouldNotRead) {
    as_ordinary_user([] {
        make_dir("s/d");
        write_file("s/d/f", "text");
        chmod("s/d", 0);
        EXPECT_EQ(2, file_xmove("s", "*", nullptr, "t", 1, nullptr));
        chmod("s/d", 0755);
        EXPECT_EQ("text", read_file("s/d/f"));
    });
    EXPECT_THAT(errors(), ElementsAre("Error opening dir 's/d', Permission denied",
                                      "Failed to remove moved directory 't/d', Directory not empty"));
}

TEST_F(File, XmoveNamesTheTargetOfADirectoryKeptForItsExcludedEntries) {
    make_dir("s/d");
    write_file("s/d/keep.txt", "kept");
    write_file("s/d/f", "");
    EXPECT_EQ(3, file_xmove("s", "*", "keep*", "t", 1, nullptr)); // t, t/d, f
    EXPECT_EQ("kept", read_file("s/d/keep.txt"));
    EXPECT_THAT(names_in("s/d"), ElementsAre("keep.txt"));
    EXPECT_THAT(errors(), ElementsAre("Failed to remove moved directory 't/d', Directory not empty"));
    EXPECT_EQ("fail s/d > (null) 0", told.back());
}

// ---- file_rmdir ----

TEST_F(File, RmdirRemovesAnEmptyDirectory) {
    make_dir("d");
    EXPECT_EQ(1, file_rmdir("d", nullptr, 0));
    EXPECT_FALSE(exists("d"));
    EXPECT_THAT(told, ElementsAre("ok d > (null) 0"));
}

TEST_F(File, RmdirWithoutRecurseKeepsADirectoryThatIsNotEmpty) {
    make_dir("d/e");
    EXPECT_EQ(0, file_rmdir("d", nullptr, 0));
    EXPECT_EQ(ENOTEMPTY, errno);
    EXPECT_TRUE(exists("d/e"));
    EXPECT_THAT(told, ElementsAre("fail d > (null) 0"));
    EXPECT_THAT(log_lines(), IsEmpty());
}

TEST_F(File, RmdirTellsADirectoryBelowTwice) {
    make_dir("d/e");
    write_file("d/e/f", "");
    EXPECT_EQ(3, file_rmdir("d", nullptr, 1));
    EXPECT_FALSE(exists("d"));
    EXPECT_THAT(told, ElementsAre("ok d/e/f > (null) 0", "ok d/e > (null) 0", "ok d/e > (null) 0",
                                  "ok d > (null) 0"));
}

TEST_F(File, RmdirKeepsWhatTheListMatchesAtEveryLevel) {
    make_dir("t/sub/only");
    write_file("t/keep.txt", "");
    write_file("t/Keep.txt", "");
    write_file("t/sub/keep.me", "");
    EXPECT_EQ(2, file_rmdir("t", "keep*", 1)); // Keep.txt and sub/only
    EXPECT_THAT(names_in("t"), ElementsAre("keep.txt", "sub"));
    EXPECT_THAT(names_in("t/sub"), ElementsAre("keep.me"));
    EXPECT_EQ("fail t > (null) 0", told.back());
    // sub itself stays, but something below it was removed: its own word and that of the directory above
    // differ.
    EXPECT_EQ(1, std::count(told.begin(), told.end(), "fail t/sub > (null) 0"));
    EXPECT_EQ(1, std::count(told.begin(), told.end(), "ok t/sub > (null) 0"));
}

TEST_F(File, RmdirTellsADirectoryWithNothingToRemoveTwiceAsFailed) {
    make_dir("t/sub");
    write_file("t/sub/keep.me", "");
    EXPECT_EQ(0, file_rmdir("t", "keep*", 1));
    EXPECT_THAT(told, ElementsAre("fail t/sub > (null) 0", "fail t/sub > (null) 0", "fail t > (null) 0"));
}

TEST_F(File, RmdirRemovesLinksAndNotWhatTheyPointTo) {
    make_dir("outside/d");
    write_file("outside/f", "");
    make_dir("t");
    make_link("../outside", "t/dir");
    make_link("../outside/f", "t/file");
    make_link("dangling", "t/dangling");
    make_fifo("t/fifo");
    make_socket("t/socket");
    EXPECT_EQ(6, file_rmdir("t", nullptr, 1));
    EXPECT_FALSE(exists("t"));
    EXPECT_THAT(names_in("outside"), ElementsAre("d", "f"));
}

TEST_F(File, RmdirDoesNotFollowALinkThatTookADirectorysPlace) {
    make_dir("outside");
    write_file("outside/precious", "");
    make_dir("t/x");
    make_dir("t/y");
    write_file("t/x/f", "");
    write_file("t/y/f", "");
    meanwhile = [](const std::string &path) { // the one of the two that was listed and not yet opened
        if (path != "t/x/f" && path != "t/y/f")
            return;
        const std::string other = path == "t/x/f" ? "t/y" : "t/x";
        std::filesystem::rename(other, "aside");
        make_link("../outside", other);
        meanwhile = nullptr;
    };
    EXPECT_EQ(2, file_rmdir("t", nullptr, 1));
    EXPECT_TRUE(exists("outside/precious"));
    EXPECT_THAT(errors(), ElementsAre(StartsWith("Error opening dir 't/")));
}

TEST_F(File, RmdirOfSomethingElseFails) {
    write_file("f", "");
    EXPECT_EQ(0, file_rmdir("f", nullptr, 0));
    EXPECT_EQ(0, file_rmdir("no", nullptr, 0));
    EXPECT_EQ(0, file_rmdir(nullptr, nullptr, 1));
    EXPECT_THAT(log_lines(), IsEmpty());
    EXPECT_EQ(0, file_rmdir("f", nullptr, 1));
    EXPECT_EQ(0, file_rmdir("no", nullptr, 1));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_TRUE(exists("f"));
    EXPECT_THAT(errors(), ElementsAre("Error opening dir 'f', Not a directory",
                                      "Error opening dir 'no', No such file or directory"));
    EXPECT_THAT(told, ElementsAre("fail f > (null) 0", "fail no > (null) 0", "fail f > (null) 0",
                                  "fail no > (null) 0"));
}

TEST_F(File, RmdirLeavesEntriesWhosePathDoesNotFit) {
    const std::string d = text('d', 200);
    make_dir(d);
    write_file(d + "/" + text('f', 55), "");
    write_file(d + "/g", "");
    EXPECT_EQ(1, file_rmdir(d.c_str(), nullptr, 1));
    EXPECT_THAT(names_in(d), ElementsAre(text('f', 55)));
    EXPECT_THAT(errors(), ElementsAre("Path too long '" + d + "', File name too long"));
    EXPECT_THAT(told, UnorderedElementsAre("fail " + d + " > (null) 0", "ok " + d + "/g > (null) 0",
                                           "fail " + d + " > (null) 0"));
}

TEST_F(File, RmdirRemovesANameWithABackslashAndNotWhatItsPathSays) {
    make_dir("t/keep");
    write_file("t/keep/f", "precious");
    write_file("t/keep\\f", "");
    EXPECT_EQ(1, file_rmdir("t", "keep", 1));
    EXPECT_EQ("precious", read_file("t/keep/f"));
    EXPECT_THAT(names_in("t"), ElementsAre("keep"));
}

TEST_F(File, RmdirTellsWhatItMayNotRemove) {
    as_ordinary_user([] {
        make_dir("t/d");
        write_file("t/d/f", "");
        chmod("t/d", 0555);
        EXPECT_EQ(0, file_rmdir("t", nullptr, 1));
        EXPECT_THAT(told, ElementsAre("fail t/d/f > (null) 0", "fail t/d > (null) 0", "fail t/d > (null) 0",
                                      "fail t > (null) 0"));
        chmod("t/d", 0755);
    });
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(File, RmdirPassesOverWhatVanishedMeanwhile) {
    make_dir("t");
    for (const char *name : {"t/a", "t/b", "t/c"})
        write_file(name, "");
    meanwhile = [](const std::string &) {
        for (const char *name : {"t/a", "t/b", "t/c"})
            unlink(name);
    };
    EXPECT_EQ(2, file_rmdir("t", nullptr, 1));
    EXPECT_EQ(2U, told.size());
    EXPECT_EQ("ok t > (null) 0", told.back());
}

} // namespace
