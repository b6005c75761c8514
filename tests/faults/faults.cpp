// A library for LD_PRELOAD that disturbs a program's system calls: the Nth call of the chosen functions fails, is
// cut short, kills the program, or is followed by a command. docs/testing.md tells how it is used.
//
//     FAULTS_CALLS    the functions, separated by commas; their calls are counted together
//     FAULTS_AT       which call is disturbed, counted from 1 since the beginning of main
//     FAULTS_ON       "1": every later call too
//     FAULTS_DO       "fail ERRNO", "short" (one byte is moved), "kill SIGNAL" (after the call) or "run COMMAND"
//                     (after the call)
//     FAULTS_BEFORE   a command that is run before main begins
//     FAULTS_BY_HAND  "1": the kernel copies no files, so that the program reads and writes their bytes itself
//     FAULTS_REPORT   a descriptor: a line "FUNCTION THING" is written to it for each call that is disturbed; "> "
//                     stands before a THING that is open for writing
//
// A stream fails as it does in life: its descriptor is exchanged for one that the system itself refuses, so that
// the stream's own marks are true. Only calls that reach the system count: a read that finds its bytes in the
// buffer cannot fail, nor can the flush of an empty buffer.

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <stdio_ext.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *old, size_t size);
}

namespace {

enum class deed { none, fail, cut_short, kill, run };

struct {
    const char *calls;
    deed what = deed::none;
    const char *command;
    int number; // of the error or the signal
    long at;
    bool on;
    bool by_hand;
    int report;
} plan;

long count = 0;
bool busy = true; // until main begins, and while this library itself is at work

/// The function that this library stands in front of.
template <typename Function>
Function *next(const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

bool is_chosen(const char *name) {
    const size_t length = std::strlen(name);
    for (const char *at = plan.calls; (at = std::strstr(at, name)) != nullptr; at += length)
        if ((at == plan.calls || at[-1] == ',') && (at[length] == '\0' || at[length] == ','))
            return true;
    return false;
}

/// The console is no file: a full disk leaves it alone.
bool is_spared(FILE *stream) {
    return stream == stdout && plan.on;
}

/// Counts a call and tells whether it is to be disturbed.
bool is_due(const char *name) {
    if (busy || plan.what == deed::none || !is_chosen(name))
        return false;
    ++count;
    return count == plan.at || (plan.on && count > plan.at);
}

/// The C library's own look-up of accounts aborts when memory is short: it is let alone, and its errno counts.
constexpr bool accounts = true;

class at_work {
  public:
    explicit at_work(bool errno_counts = false) : errno_counts_(errno_counts) { busy = true; }
    ~at_work() {
        busy = was_busy_;
        if (!errno_counts_)
            errno = kept_;
    }
    at_work(const at_work &) = delete;
    at_work &operator=(const at_work &) = delete;

  private:
    bool errno_counts_;
    bool was_busy_ = busy;
    int kept_ = errno;
};

void report(const char *name, const char *thing) {
    const at_work now;
    char line[5000];
    const int length = std::snprintf(line, sizeof line, "%s %s\n", name, thing != nullptr ? thing : "");
    if (write(plan.report, line, static_cast<size_t>(length)) < 0)
        std::abort();
}

void report_descriptor(const char *name, int fd) {
    const at_work now;
    char link[32];
    char thing[4096] = "> ";
    const int status = fcntl(fd, F_GETFL);
    const bool written = status >= 0 && (status & O_ACCMODE) != O_RDONLY;
    char *path = thing + (written ? 2 : 0);
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    const ssize_t length = readlink(link, path, sizeof thing - 3);
    path[length < 0 ? 0 : length] = '\0';
    report(name, thing);
}

void run_command(const char *command) {
    const at_work now;
    const pid_t child = fork();
    if (child == 0) {
        unsetenv("LD_PRELOAD");
        execl("/bin/sh", "sh", "-c", command, static_cast<char *>(nullptr));
        _exit(127);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || status != 0)
        std::abort();
}

void after_call() {
    if (plan.what == deed::kill)
        std::raise(plan.number);
    else if (plan.what == deed::run)
        run_command(plan.command);
}

/// Makes a call that is disturbed, but not by a failure.
template <typename Real>
auto made(Real real) {
    auto result = real();
    after_call();
    return result;
}

template <typename Result, typename Real>
Result disturb(const char *name, const char *thing, Result failure, Real real) {
    report(name, thing);
    if (plan.what != deed::fail)
        return made(real);
    errno = plan.number;
    return failure;
}

/// A call that does nothing when it fails.
template <typename Result, typename Real>
Result disturbed(const char *name, const char *thing, Result failure, Real real) {
    return is_due(name) ? disturb(name, thing, failure, real) : real();
}

/// A transfer of `size` bytes, which alone can be short.
template <typename Real>
ssize_t disturbed_transfer(const char *name, size_t size, Real real) {
    if (!is_due(name))
        return real(size);
    const bool cut = plan.what == deed::cut_short && size > 1;
    return disturb(name, "", ssize_t{-1}, [&] { return real(cut ? 1 : size); });
}

/// While it lives, the stream's descriptor is one that the system refuses.
class bad_descriptor {
  public:
    bad_descriptor(FILE *stream, const char *path, int flags) : fd_(fileno(stream)) {
        const at_work now;
        kept_ = fcntl(fd_, F_DUPFD_CLOEXEC, 3);
        const int bad = open(path, flags | O_CLOEXEC);
        if (kept_ < 0 || bad < 0 || dup2(bad, fd_) < 0 || close(bad) < 0)
            std::abort();
    }
    ~bad_descriptor() {
        const at_work now;
        if (dup2(kept_, fd_) < 0 || close(kept_) < 0)
            std::abort();
    }
    bad_descriptor(const bad_descriptor &) = delete;
    bad_descriptor &operator=(const bad_descriptor &) = delete;

  private:
    int fd_;
    int kept_ = -1;
};

/// A write to a stream, which must not reach the file when it fails: what is in the buffer is lost.
template <typename Result, typename Real>
Result disturbed_write(const char *name, FILE *stream, Result failure, Real real) {
    if (is_spared(stream) || !is_due(name))
        return real();
    report_descriptor(name, fileno(stream));
    if (plan.what != deed::fail)
        return made(real);
    const bad_descriptor full(stream, "/dev/full", O_WRONLY);
    static auto *const flush = next<int(FILE *)>("fflush");
    real();
    flush(stream);
    __fpurge(stream);
    errno = plan.number;
    return failure;
}

template <typename Result, typename Real>
Result disturbed_read(const char *name, FILE *stream, Result failure, Real real) {
    const bool buffered = stream->_IO_read_ptr < stream->_IO_read_end;
    if (buffered || feof(stream) != 0 || !is_due(name))
        return real();
    report_descriptor(name, fileno(stream));
    if (plan.what != deed::fail)
        return made(real);
    const bad_descriptor directory(stream, "/", O_RDONLY | O_DIRECTORY);
    real();
    errno = plan.number;
    return failure;
}

const char *text_of(const char *variable) {
    const char *text = std::getenv(variable);
    return text != nullptr ? text : "";
}

void read_plan() {
    plan.calls = text_of("FAULTS_CALLS");
    plan.at = std::atol(text_of("FAULTS_AT"));
    plan.on = *text_of("FAULTS_ON") == '1';
    plan.by_hand = *text_of("FAULTS_BY_HAND") == '1';
    plan.report = std::atoi(text_of("FAULTS_REPORT"));
    const char *what = text_of("FAULTS_DO");
    plan.number = std::atoi(what + std::strcspn(what, " "));
    if (std::strncmp(what, "fail ", 5) == 0)
        plan.what = deed::fail;
    else if (std::strcmp(what, "short") == 0)
        plan.what = deed::cut_short;
    else if (std::strncmp(what, "kill ", 5) == 0)
        plan.what = deed::kill;
    else if (std::strncmp(what, "run ", 4) == 0)
        plan.what = deed::run;
    plan.command = what + (plan.what == deed::run ? 4 : 0);
}

int (*program_main)(int, char **, char **);

int armed_main(int argc, char **argv, char **environment) {
    read_plan();
    if (const char *before = text_of("FAULTS_BEFORE"); *before != '\0')
        run_command(before);
    busy = false;
    return program_main(argc, argv, environment);
}

mode_t mode_argument(int flags, std::va_list args) {
    return (flags & O_CREAT) != 0 ? va_arg(args, mode_t) : 0;
}

} // namespace

// The names of the C library are given by label: its headers declare the functions with exception specifications
// that no other definition could repeat portably.
#define STANDS_FOR(name) __asm__(#name)

extern "C" {

int start(int (*)(int, char **, char **), int, char **, void (*)(), void (*)(), void (*)(), void *)
    STANDS_FOR(__libc_start_main);
int start(int (*main)(int, char **, char **), int argc, char **argv, void (*init)(), void (*fini)(),
          void (*rtld_fini)(), void *stack_end) {
    program_main = main;
    return next<decltype(start)>("__libc_start_main")(armed_main, argc, argv, init, fini, rtld_fini,
                                                      stack_end);
}

// ---- Files and directories by name ----

int faulty_openat(int dir, const char *path, int flags, ...) STANDS_FOR(openat);
int faulty_openat(int dir, const char *path, int flags, ...) {
    std::va_list args;
    va_start(args, flags);
    const mode_t mode = mode_argument(flags, args);
    va_end(args);
    static auto *const real = next<decltype(faulty_openat)>("openat");
    return disturbed("openat", path, -1, [&] { return real(dir, path, flags, mode); });
}

int faulty_mkdirat(int dir, const char *path, mode_t mode) STANDS_FOR(mkdirat);
int faulty_mkdirat(int dir, const char *path, mode_t mode) {
    static auto *const real = next<decltype(faulty_mkdirat)>("mkdirat");
    return disturbed("mkdirat", path, -1, [&] { return real(dir, path, mode); });
}

int faulty_unlinkat(int dir, const char *path, int flags) STANDS_FOR(unlinkat);
int faulty_unlinkat(int dir, const char *path, int flags) {
    static auto *const real = next<decltype(faulty_unlinkat)>("unlinkat");
    return disturbed("unlinkat", path, -1, [&] { return real(dir, path, flags); });
}

int faulty_remove(const char *path) STANDS_FOR(remove);
int faulty_remove(const char *path) {
    static auto *const real = next<decltype(faulty_remove)>("remove");
    return disturbed("remove", path, -1, [&] { return real(path); });
}

int faulty_rename(const char *from, const char *to) STANDS_FOR(rename);
int faulty_rename(const char *from, const char *to) {
    static auto *const real = next<decltype(faulty_rename)>("rename");
    return disturbed("rename", from, -1, [&] { return real(from, to); });
}

int faulty_fchmodat(int dir, const char *path, mode_t mode, int flags) STANDS_FOR(fchmodat);
int faulty_fchmodat(int dir, const char *path, mode_t mode, int flags) {
    static auto *const real = next<decltype(faulty_fchmodat)>("fchmodat");
    return disturbed("fchmodat", path, -1, [&] { return real(dir, path, mode, flags); });
}

int faulty_fchownat(int dir, const char *path, uid_t user, gid_t group, int flags) STANDS_FOR(fchownat);
int faulty_fchownat(int dir, const char *path, uid_t user, gid_t group, int flags) {
    static auto *const real = next<decltype(faulty_fchownat)>("fchownat");
    return disturbed("fchownat", path, -1, [&] { return real(dir, path, user, group, flags); });
}

int faulty_fstatat(int dir, const char *path, struct stat *info, int flags) STANDS_FOR(fstatat);
int faulty_fstatat(int dir, const char *path, struct stat *info, int flags) {
    static auto *const real = next<decltype(faulty_fstatat)>("fstatat");
    return disturbed("fstatat", path, -1, [&] { return real(dir, path, info, flags); });
}

int faulty_stat(const char *path, struct stat *info) STANDS_FOR(stat);
int faulty_stat(const char *path, struct stat *info) {
    static auto *const real = next<decltype(faulty_stat)>("stat");
    return disturbed("stat", path, -1, [&] { return real(path, info); });
}

int faulty_lstat(const char *path, struct stat *info) STANDS_FOR(lstat);
int faulty_lstat(const char *path, struct stat *info) {
    static auto *const real = next<decltype(faulty_lstat)>("lstat");
    return disturbed("lstat", path, -1, [&] { return real(path, info); });
}

FILE *faulty_fopen(const char *path, const char *mode) STANDS_FOR(fopen);
FILE *faulty_fopen(const char *path, const char *mode) {
    static auto *const real = next<decltype(faulty_fopen)>("fopen");
    return disturbed("fopen", path, static_cast<FILE *>(nullptr), [&] { return real(path, mode); });
}

// ---- Descriptors ----

int faulty_fstat(int fd, struct stat *info) STANDS_FOR(fstat);
int faulty_fstat(int fd, struct stat *info) {
    static auto *const real = next<decltype(faulty_fstat)>("fstat");
    return disturbed("fstat", "", -1, [&] { return real(fd, info); });
}

FILE *faulty_fdopen(int fd, const char *mode) STANDS_FOR(fdopen);
FILE *faulty_fdopen(int fd, const char *mode) {
    static auto *const real = next<decltype(faulty_fdopen)>("fdopen");
    return disturbed("fdopen", "", static_cast<FILE *>(nullptr), [&] { return real(fd, mode); });
}

DIR *faulty_fdopendir(int fd) STANDS_FOR(fdopendir);
DIR *faulty_fdopendir(int fd) {
    static auto *const real = next<decltype(faulty_fdopendir)>("fdopendir");
    return disturbed("fdopendir", "", static_cast<DIR *>(nullptr), [&] { return real(fd); });
}

dirent *faulty_readdir(DIR *dir) STANDS_FOR(readdir);
dirent *faulty_readdir(DIR *dir) {
    static auto *const real = next<decltype(faulty_readdir)>("readdir");
    return disturbed("readdir", "", static_cast<dirent *>(nullptr), [&] { return real(dir); });
}

ssize_t faulty_read(int fd, void *data, size_t size) STANDS_FOR(read);
ssize_t faulty_read(int fd, void *data, size_t size) {
    static auto *const real = next<decltype(faulty_read)>("read");
    return disturbed_transfer("read", size, [&](size_t most) { return real(fd, data, most); });
}

ssize_t faulty_write(int fd, const void *data, size_t size) STANDS_FOR(write);
ssize_t faulty_write(int fd, const void *data, size_t size) {
    static auto *const real = next<decltype(faulty_write)>("write");
    return disturbed_transfer("write", size, [&](size_t most) { return real(fd, data, most); });
}

ssize_t faulty_copy_file_range(int from, off64_t *from_at, int to, off64_t *to_at, size_t size,
                               unsigned flags) STANDS_FOR(copy_file_range);
ssize_t faulty_copy_file_range(int from, off64_t *from_at, int to, off64_t *to_at, size_t size,
                               unsigned flags) {
    static auto *const real = next<decltype(faulty_copy_file_range)>("copy_file_range");
    if (plan.by_hand) {
        errno = EOPNOTSUPP;
        return -1;
    }
    return disturbed_transfer("copy_file_range", size,
                              [&](size_t most) { return real(from, from_at, to, to_at, most, flags); });
}

/// A close that fails has closed all the same.
int faulty_close(int fd) STANDS_FOR(close);
int faulty_close(int fd) {
    static auto *const real = next<decltype(faulty_close)>("close");
    if (!is_due("close"))
        return real(fd);
    report_descriptor("close", fd);
    if (plan.what != deed::fail)
        return made([&] { return real(fd); });
    real(fd);
    errno = plan.number;
    return -1;
}

// ---- Streams ----

size_t faulty_fwrite(const void *data, size_t size, size_t items, FILE *stream) STANDS_FOR(fwrite);
size_t faulty_fwrite(const void *data, size_t size, size_t items, FILE *stream) {
    static auto *const real = next<decltype(faulty_fwrite)>("fwrite");
    return disturbed_write("fwrite", stream, size_t{0}, [&] { return real(data, size, items, stream); });
}

int faulty_fputs(const char *text, FILE *stream) STANDS_FOR(fputs);
int faulty_fputs(const char *text, FILE *stream) {
    static auto *const real = next<decltype(faulty_fputs)>("fputs");
    return disturbed_write("fputs", stream, EOF, [&] { return real(text, stream); });
}

int faulty_fflush(FILE *stream) STANDS_FOR(fflush);
int faulty_fflush(FILE *stream) {
    static auto *const real = next<decltype(faulty_fflush)>("fflush");
    if (stream == nullptr || __fpending(stream) == 0)
        return real(stream);
    return disturbed_write("fflush", stream, EOF, [&] { return real(stream); });
}

/// A close that fails has closed all the same, and what was still in the buffer is lost.
int faulty_fclose(FILE *stream) STANDS_FOR(fclose);
int faulty_fclose(FILE *stream) {
    static auto *const real = next<decltype(faulty_fclose)>("fclose");
    if (!is_due("fclose"))
        return real(stream);
    report_descriptor("fclose", fileno(stream));
    if (plan.what != deed::fail)
        return made([&] { return real(stream); });
    __fpurge(stream);
    real(stream);
    errno = plan.number;
    return EOF;
}

char *faulty_fgets(char *line, int size, FILE *stream) STANDS_FOR(fgets);
char *faulty_fgets(char *line, int size, FILE *stream) {
    static auto *const real = next<decltype(faulty_fgets)>("fgets");
    return disturbed_read("fgets", stream, static_cast<char *>(nullptr),
                          [&] { return real(line, size, stream); });
}

// ---- The system's data bases ----

char *faulty_getcwd(char *buffer, size_t size) STANDS_FOR(getcwd);
char *faulty_getcwd(char *buffer, size_t size) {
    static auto *const real = next<decltype(faulty_getcwd)>("getcwd");
    return disturbed("getcwd", "", static_cast<char *>(nullptr), [&] { return real(buffer, size); });
}

int faulty_gethostname(char *buffer, size_t size) STANDS_FOR(gethostname);
int faulty_gethostname(char *buffer, size_t size) {
    static auto *const real = next<decltype(faulty_gethostname)>("gethostname");
    return disturbed("gethostname", "", -1, [&] { return real(buffer, size); });
}

passwd *faulty_getpwnam(const char *name) STANDS_FOR(getpwnam);
passwd *faulty_getpwnam(const char *name) {
    static auto *const real = next<decltype(faulty_getpwnam)>("getpwnam");
    return disturbed("getpwnam", name, static_cast<passwd *>(nullptr), [&] {
        const at_work now(accounts);
        return real(name);
    });
}

group *faulty_getgrnam(const char *name) STANDS_FOR(getgrnam);
group *faulty_getgrnam(const char *name) {
    static auto *const real = next<decltype(faulty_getgrnam)>("getgrnam");
    return disturbed("getgrnam", name, static_cast<group *>(nullptr), [&] {
        const at_work now(accounts);
        return real(name);
    });
}

// ---- Memory: the C library's own names, for finding the next ones may itself need memory ----

void *faulty_malloc(size_t size) STANDS_FOR(malloc);
void *faulty_malloc(size_t size) {
    return disturbed("malloc", "", static_cast<void *>(nullptr), [&] { return __libc_malloc(size); });
}

void *faulty_calloc(size_t items, size_t size) STANDS_FOR(calloc);
void *faulty_calloc(size_t items, size_t size) {
    return disturbed("calloc", "", static_cast<void *>(nullptr), [&] { return __libc_calloc(items, size); });
}

void *faulty_realloc(void *old, size_t size) STANDS_FOR(realloc);
void *faulty_realloc(void *old, size_t size) {
    return disturbed("realloc", "", static_cast<void *>(nullptr), [&] { return __libc_realloc(old, size); });
}

} // extern "C"
