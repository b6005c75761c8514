// What the tests share: files with known contents, a folder of their own, a log to look at.
//
//     class Copy : public TempDir {};
//
//     TEST_F(Copy, CopiesTheBytes) {
//         write_file("a", "text");
//         ASSERT_EQ(1, file_copy("a", "b"));
//         EXPECT_EQ("text", read_file("b"));
//     }

#ifndef TESTS_SUPPORT_H
#define TESTS_SUPPORT_H

#include "installer/log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

/// First line of a test that only root can carry out: skips it with the reason.
#define SKIP_UNLESS_ROOT(why)                                                                                \
    if (geteuid() != 0)                                                                                      \
    GTEST_SKIP() << "needs root: " << (why)

namespace installer::test {

/// Writes `text`, which may hold any bytes, and fails the test when it cannot.
inline void write_file(const std::string &path, std::string_view text) {
    FILE *f = std::fopen(path.c_str(), "w");
    ASSERT_NE(nullptr, f) << "cannot write " << path;
    EXPECT_EQ(text.size(), std::fwrite(text.data(), 1, text.size(), f)) << path;
    EXPECT_EQ(0, std::fclose(f)) << path;
}

/// Returns the bytes of a file; fails the test and returns "" when it cannot be read.
inline std::string read_file(const std::string &path) {
    std::string text;
    FILE *f = std::fopen(path.c_str(), "r");
    if (f == nullptr) {
        ADD_FAILURE() << "cannot read " << path;
        return text;
    }
    char piece[4096];
    for (std::size_t n = 0; (n = std::fread(piece, 1, sizeof piece, f)) > 0;)
        text.append(piece, n);
    std::fclose(f);
    return text;
}

/// A file that can be opened, but whose first read fails with EIO: the memory of this process, which has nothing at the
/// address 0.
constexpr char unreadable[] = "/proc/self/mem";

/// True for anything of that name, a dangling link included.
inline bool exists(const std::string &path) {
    struct stat st {};
    return lstat(path.c_str(), &st) == 0;
}

/// Permission bits of a file, following links; -1 when it is missing.
inline int mode_of(const std::string &path) {
    struct stat st {};
    return stat(path.c_str(), &st) == 0 ? static_cast<int>(st.st_mode & 07777) : -1;
}

/// Names in a directory, sorted.
inline std::vector<std::string> names_in(const std::string &path) {
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(path))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

/// The lines of a text, without their line ends.
inline std::vector<std::string> lines_of(const std::string &text) {
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

/// "Error: text" of the log line "Sun Nov 15 23:02:59  [412] Error: text"; a line that has no such beginning
/// as it is.
inline std::string without_stamp(const std::string &line) {
    constexpr std::size_t stamp = 20;
    if (line.compare(std::min(stamp, line.size()), 2, " [") != 0)
        return line;
    std::size_t at = stamp + 2;
    while (at < line.size() && std::isdigit(static_cast<unsigned char>(line[at])) != 0)
        at++;
    return line.compare(at, 2, "] ") == 0 ? line.substr(at + 2) : line;
}

/// A receiving buffer of `size` bytes, filled with '#' and then holding `text` (none for a null one). Fails the
/// test when a byte behind it was written.
class Buffer {
  public:
    explicit Buffer(int size, const char *text = nullptr)
        : bytes_(new char[static_cast<std::size_t>(size) + margin]), size_(size) {
        std::fill_n(bytes_.get(), static_cast<std::size_t>(size) + margin, '#');
        if (text != nullptr)
            std::copy_n(text, std::string_view(text).size() + 1, bytes_.get());
    }
    ~Buffer() {
        EXPECT_EQ(std::string(margin, '#'), std::string(bytes_.get() + size_, margin))
            << "written past the end";
    }
    Buffer(const Buffer &) = delete;
    Buffer &operator=(const Buffer &) = delete;

    operator char *() const { return bytes_.get(); }
    [[nodiscard]] int size() const { return size_; }

  private:
    static constexpr std::size_t margin = 16;
    std::unique_ptr<char[]> bytes_;
    int size_;
};

#ifdef INSTALLER_COVERAGE
extern "C" void __gcov_dump();
#endif

/// Ends a child process that was forked from a test. What it reached counts as covered.
[[noreturn]] inline void leave_child(int status) {
    std::fflush(nullptr);
#ifdef INSTALLER_COVERAGE
    __gcov_dump();
#endif
    _exit(status);
}

/// Runs `part` as a user without special rights: at once for such a user, in a child process for root, where the
/// expectations that fail fail the test. Relative names keep working: the folder of the test, and `folders` in it, are
/// opened to everybody.
inline void as_ordinary_user(const std::function<void()> &part,
                             const std::vector<std::string> &folders = {}) {
    if (geteuid() != 0)
        return part();
    ASSERT_EQ(0, chmod(".", 0777));
    for (const std::string &folder : folders)
        ASSERT_EQ(0, chmod(folder.c_str(), 0777)) << folder;
    std::fflush(nullptr);
    const pid_t child = fork();
    ASSERT_NE(-1, child);
    if (child == 0) {
        constexpr unsigned nobody = 65534;
        if (setgroups(0, nullptr) != 0 || setgid(nobody) != 0 || setuid(nobody) != 0)
            _exit(2);
        part();
        leave_child(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status) << "see the failures above";
}

/// Puts back what a test changed in the process: working directory, umask, environment, the current log and
/// the errors that wait for one (which are none at the start of a test).
class ProcessState {
  public:
    ProcessState() : folder_(std::filesystem::current_path()), mask_(umask(0)), log_(CurrentLog) {
        umask(mask_);
        for (char **variable = environ; variable != nullptr && *variable != nullptr; variable++)
            environment_.emplace_back(*variable);
        array_free_dealloc(&EmsgLog);
    }
    ~ProcessState() {
        std::error_code ignored;
        std::filesystem::current_path(folder_, ignored);
        umask(mask_);
        clearenv();
        for (const std::string &variable : environment_) {
            const std::size_t name = variable.find('=');
            if (name != std::string::npos)
                setenv(variable.substr(0, name).c_str(), variable.c_str() + name + 1, 1);
        }
        tzset();
        CurrentLog = log_;
        array_free_dealloc(&EmsgLog);
    }
    ProcessState(const ProcessState &) = delete;
    ProcessState &operator=(const ProcessState &) = delete;

  private:
    std::filesystem::path folder_;
    mode_t mask_;
    log *log_;
    std::vector<std::string> environment_;
};

/// A fixture whose tests run in an empty folder of their own, with umask 022 and no current log; the folder
/// is removed afterwards, whatever its modes became, and the process put back as it was.
class TempDir : public testing::Test {
  protected:
    TempDir() {
        const char *tmp = std::getenv("TMPDIR");
        std::string name =
            std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/installer-test-XXXXXX";
        if (mkdtemp(name.data()) == nullptr)
            throw std::system_error(errno, std::generic_category(), name);
        // Without links in its name, so that it compares equal to what getcwd() tells.
        root_ = std::filesystem::canonical(name);
        std::filesystem::create_directory(root_ / "work");
        std::filesystem::current_path(root_ / "work");
        umask(022);
        CurrentLog = nullptr;
    }
    ~TempDir() override {
        std::error_code ignored;
        std::filesystem::current_path("/", ignored);
        open_all(root_);
        std::filesystem::remove_all(root_, ignored);
    }

    /// Absolute name of the folder the test runs in.
    [[nodiscard]] std::string dir() const { return root_ / "work"; }

    /// Absolute name of a file beside that folder, where listings of the folder do not see it.
    [[nodiscard]] std::string beside(const std::string &name) const { return root_ / name; }

  private:
    // Gives the owner every right to the folders below, so that they can be emptied.
    static void open_all(const std::filesystem::path &folder) {
        namespace fs = std::filesystem;
        std::error_code ignored;
        fs::permissions(folder, fs::perms::owner_all, fs::perm_options::add, ignored);
        for (const auto &entry : fs::directory_iterator(folder, ignored))
            if (entry.symlink_status(ignored).type() == fs::file_type::directory)
                open_all(entry.path());
    }

    ProcessState state_; // the first member: put back last
    std::filesystem::path root_;
};

/// A TempDir with a current log at debug level, which lies beside the folder and not in it.
class LogDir : public TempDir {
  protected:
    LogDir() : log_(log_init(LogDebug)) {
        log_doflush(log_, 1);
        log_open(log_, beside("test.log").c_str());
        log_set(log_);
    }
    ~LogDir() override {
        CurrentLog = nullptr;
        log_free(&log_);
    }

    /// What was logged since the test began, as "Error: text", "Info: text", "Debug: text".
    [[nodiscard]] std::vector<std::string> log_lines() const {
        std::vector<std::string> lines = lines_of(read_file(beside("test.log")));
        std::transform(lines.begin(), lines.end(), lines.begin(), without_stamp);
        return lines;
    }

  private:
    log *log_;
};

} // namespace installer::test

#endif
