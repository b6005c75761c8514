// What the tests of the file system operations share: the callbacks' words, the errors logged, and a look at
// the descriptors afterwards.

#ifndef TESTS_FILE_FIXTURE_H
#define TESTS_FILE_FIXTURE_H

#include "installer/file.h"
#include "tests/support.h"

#include <grp.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <functional>

namespace installer::test {

/// One call of a callback, as "ok a > b 1" or "fail a > (null) 0".
inline std::vector<std::string> told;

inline void note(const char *callback, const char *path, const char *other, int mode) {
    const auto text = [](const char *s) { return std::string(s != nullptr ? s : "(null)"); };
    told.push_back(std::string(callback) + " " + text(path) + " > " + text(other) + " " +
                   std::to_string(mode));
}

/// What a test wants done in the middle of an operation; called with the path of every callback.
inline std::function<void(const std::string &path)> meanwhile;

inline void note_ok(const char *path, const char *other, int mode) {
    note("ok", path, other, mode);
    if (meanwhile)
        meanwhile(path);
    errno = EDOM; // what a callback leaves in errno must not be taken for the cause of a failure
}

inline void note_fail(const char *path, const char *other, int mode) {
    note("fail", path, other, mode);
    errno = EDOM;
}

/// The open descriptors of the process.
inline std::vector<std::string> open_descriptors() {
    std::vector<std::string> open;
    for (const std::string &name : names_in("/proc/self/fd"))
        if (fcntl(std::stoi(name), F_GETFD) != -1) // but for the one that listed them
            open.push_back(name);
    return open;
}

/// A socket in the file system; its descriptor is closed again.
inline void make_socket(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_EQ(0, bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address)) << path;
    ::close(fd);
}

/// A LogDir with callbacks that take notes. Every test must leave the descriptors as it found them.
class FileDir : public LogDir {
  protected:
    FileDir() : before_(open_descriptors()) {
        file_old_setup(&callbacks_);
        file_setup_fn(note_ok, note_fail);
        told.clear();
    }
    ~FileDir() override {
        file_setup(&callbacks_);
        meanwhile = nullptr;
        EXPECT_EQ(before_, open_descriptors()) << "descriptors left open, or closed that were another's";
    }

    /// The errors logged, without "Error: ".
    [[nodiscard]] std::vector<std::string> errors() const {
        constexpr std::string_view level = "Error: ";
        std::vector<std::string> found;
        for (const std::string &line : log_lines())
            if (line.compare(0, level.size(), level) == 0)
                found.push_back(line.substr(level.size()));
        return found;
    }

    /// The last of them, "" when there is none.
    [[nodiscard]] std::string last_error() const {
        const std::vector<std::string> all = errors();
        return all.empty() ? "" : all.back();
    }

    /// Makes directories, for tests where making them is not what is looked at.
    static void make_dir(const std::string &path) { std::filesystem::create_directories(path); }

    static void make_link(const std::string &text, const std::string &path) {
        ASSERT_EQ(0, symlink(text.c_str(), path.c_str())) << path;
    }

    static void make_fifo(const std::string &path) { ASSERT_EQ(0, mkfifo(path.c_str(), 0666)) << path; }

  private:
    std::vector<std::string> before_;
    file_setup_inf callbacks_{};
};

using lines = std::vector<std::string>;

} // namespace installer::test

#endif
