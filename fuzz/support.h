// What the fuzz targets share: input as a file, a log that swallows everything, a way to say what does not hold.

#ifndef FUZZ_SUPPORT_H
#define FUZZ_SUPPORT_H

#include "installer/log.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#define FUZZ_CHECK(condition) ((condition) ? void() : installer::fuzz::fail(__FILE__, __LINE__, #condition))

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace installer::fuzz {

[[noreturn]] inline void fail(const char *file, int line, const char *condition) {
    std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, condition);
    std::abort();
}

/// A file in memory whose content is replaced for each input.
class memory_file {
  public:
    memory_file() : descriptor_(memfd_create("fuzz", 0)) {
        std::snprintf(path_, sizeof path_, "/proc/self/fd/%d", descriptor_);
    }
    memory_file(const memory_file &) = delete;
    memory_file &operator=(const memory_file &) = delete;
    ~memory_file() { close(descriptor_); }

    const char *path() const { return path_; }

    void fill(std::string_view bytes) {
        FUZZ_CHECK(ftruncate(descriptor_, 0) == 0);
        FUZZ_CHECK(pwrite(descriptor_, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()));
    }

    std::string content() const {
        std::string text(static_cast<std::size_t>(lseek(descriptor_, 0, SEEK_END)), '\0');
        FUZZ_CHECK(pread(descriptor_, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()));
        return text;
    }

  private:
    int descriptor_;
    char path_[40];
};

/// Takes all messages, so that none waits in memory for a log.
inline void swallow_log() {
    static log *const nowhere = [] {
        log *x = log_init(LogDebug);
        log_open(x, "/dev/null");
        return x;
    }();
    log_set(nowhere);
}

inline std::string_view text_of(const std::uint8_t *data, std::size_t size) {
    return {reinterpret_cast<const char *>(data), size};
}

/// Cuts `rest` behind its first `delimiter` and returns what stood before it: all when there is none.
inline std::string_view take(std::string_view &rest, char delimiter) {
    const std::string_view piece = rest.substr(0, rest.find(delimiter));
    rest.remove_prefix(piece.size() + (piece.size() < rest.size() ? 1 : 0));
    return piece;
}

/// A receiving buffer of exactly `size` bytes on the heap: the sanitizer sees a byte too many. It begins as `text`,
/// cut to fit.
class buffer {
  public:
    explicit buffer(std::size_t size, std::string_view text = "") : bytes_(new char[size]), size_(size) {
        bytes_[text.substr(0, size - 1).copy(bytes_, size - 1)] = '\0';
    }
    buffer(const buffer &) = delete;
    buffer &operator=(const buffer &) = delete;
    ~buffer() { delete[] bytes_; }

    char *get() { return bytes_; }
    int size() const { return static_cast<int>(size_); }
    std::string_view text() const { return bytes_; }

  private:
    char *bytes_;
    std::size_t size_;
};

} // namespace installer::fuzz

#endif
