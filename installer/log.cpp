#include "installer/log.h"

#include "installer/lib.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>
#include <new>
#include <string_view>

namespace installer {

const char *const LevelNames[4] = {"None", "Error", "Info", "Debug"};

log *CurrentLog = nullptr;
array *EmsgLog = nullptr;

namespace {

constexpr std::uint32_t default_rotate = 1048576;
constexpr int default_rotations = 4;

constexpr std::size_t stamp_size = 20; // of asctime's text: not the year

// Time, process id and level take less than 64 characters.
constexpr int line_size = text_size + 64;

// What the temporary name of a rotation adds: a dot and two numbers of at most ten digits. No old number is
// longer.
constexpr std::size_t longest_suffix = 21;

struct file_name {
    char text[sizeof(log::File)];
};

// A line on its way, put together without a format: that is most of what a line costs besides its write.
struct line_text {
    char text[line_size];
    std::size_t length = 0;

    void add(std::string_view piece) { length += piece.copy(text + length, sizeof text - length); }
    void add(int number) {
        length = static_cast<std::size_t>(std::to_chars(text + length, std::end(text), number).ptr - text);
    }
};

const char *level_word(LogLevel l) {
    return LevelNames[std::clamp(l, LogNone, LogDebug)];
}

// The local time as asctime() writes it, worked out once a second: without TZ the C library asks the file
// system for the zone each time.
class stamp {
  public:
    const char *now() {
        const std::time_t second = std::time(nullptr);
        const char *zone = std::getenv("TZ");
        if (second != second_ || zoned_ != (zone != nullptr) || std::strcmp(zone_, str(zone)) != 0)
            fill(second, zone);
        return text_;
    }

  private:
    void fill(std::time_t second, const char *zone) {
        std::tm tm{};
        text_[0] = '\0';
        tzset(); // localtime() would do it too, but in the buffer that callers use
        if (localtime_r(&second, &tm) != nullptr)
            asctime_r(&tm, text_);
        second_ = second;
        zoned_ = zone != nullptr;
        scpy(zone_, zone, sizeof zone_); // a zone that is cut never equals the next one: it is not cached
    }

    std::time_t second_ = -1;
    bool zoned_ = false;
    char zone_[64] = "";
    char text_[64] = "";
};

stamp local_stamp;

std::uint32_t add_size(std::uint32_t size, std::size_t more) {
    return static_cast<std::uint32_t>(std::min<std::size_t>(size + more, UINT32_MAX));
}

// Opens `file` without making the log current.
int open_file(log *x, const char *file) {
    log_close(x);
    struct stat st {};
    const bool there = file != nullptr && stat(file, &st) == 0;
    x->Size = there ? add_size(0, static_cast<std::size_t>(st.st_size)) : 0;
    const std::size_t length = s_strlen(file);
    if (length >= sizeof x->File || (there && S_ISFIFO(st.st_mode)))
        return 0;
    x->F = s_fopen(file, "a");
    if (x->F == nullptr)
        return 0;
    std::memmove(x->File, file, length + 1); // `file` can be x->File itself
    return 1;
}

void become_current(log *x) {
    if (CurrentLog != nullptr)
        return;
    log_set(x);
    check_emsglog();
}

// A log that is closed opens itself again for the next text.
bool ready(log *x) {
    return x->F != nullptr || (x->File[0] != '\0' && log_open(x, x->File) != 0);
}

void put(log *x, const char *text, std::size_t length) {
    x->Size = add_size(x->Size, std::fwrite(text, 1, length, x->F));
}

void count_line(log *x) {
    if (x->Lines < INT_MAX)
        x->Lines++;
}

bool old_names_fit(const log *x) {
    return std::strlen(x->File) + longest_suffix < sizeof x->File - 1;
}

file_name temporary_name(const log *x) {
    file_name name;
    const int first = std::rand();
    lprintf(name.text, sizeof name.text, "%s.%05d%05d", x->File, first, std::rand());
    return name;
}

file_name old_name(const log *x, int number) {
    file_name name;
    lprintf(name.text, sizeof name.text - 1, "%s%d", x->File, number);
    return name;
}

// Moves every old file up by one number; the one with the highest number is removed. Any of them may be
// missing.
void shift_old_files(const log *x) {
    for (int i = x->Rotations - 1; i >= 0; i--) {
        const file_name target = old_name(x, i + 1);
        std::remove(target.text);
        std::rename(old_name(x, i).text, target.text);
    }
}

// Keeps the text of an error that no log takes now. The array reports want of memory through emsg, and so
// comes back here: such a text is dropped.
void keep_error(const char *text) {
    static bool keeping = false;
    if (keeping)
        return;
    keeping = true;
    const errno_guard errno_stays;
    if (EmsgLog == nullptr)
        EmsgLog = array_init(0);
    text_ptr copy(s_strdup(text));
    if (array_add(EmsgLog, copy.get()) != 0)
        static_cast<void>(copy.release());
    keeping = false;
}

bool takes(LogLevel l) {
    return CurrentLog != nullptr && CurrentLog->Level >= l;
}

__attribute__((format(printf, 2, 0))) void write_message(LogLevel l, const char *format, std::va_list args) {
    message m;
    vmessage(m, format, args);
    log_line(CurrentLog, m.text, l);
}

/// Whether what the log writes to is no file of its own, such as /dev/null: moved away, others would miss it.
bool is_device(const log *x) {
    struct stat st {};
    return stat(x->File, &st) == 0 && !S_ISREG(st.st_mode);
}

} // namespace

log *log_init(LogLevel level) {
    auto *x = new (std::nothrow) log{};
    if (x == nullptr)
        return nullptr;
    x->Level = level;
    x->Rotations = default_rotations;
    x->Rotate = default_rotate;
    return x;
}

int log_open(log *x, const char *file) {
    const errno_guard errno_stays;
    if (x == nullptr || open_file(x, file) == 0)
        return 0;
    become_current(x);
    return 1;
}

int log_setup(log *x, const char *path, const char *file) {
    if (x == nullptr || (path != nullptr && access(path, W_OK) != 0))
        return 0;
    file_name name;
    if (!join_path(name.text, sizeof name.text, path, file))
        return 0;
    log_close(x);
    scpy(x->File, name.text, sizeof x->File);
    become_current(x);
    return 1;
}

void log_set(log *x) {
    CurrentLog = x;
}

void log_dorotate(log *x, int rotations, std::uint32_t atsize) {
    if (x == nullptr)
        return;
    x->Rotations = rotations;
    x->Rotate = atsize;
}

void log_doflush(log *x, int doflush) {
    if (x != nullptr)
        x->DoFlush = doflush;
}

void log_set_level(log *x, LogLevel l) {
    x->Level = l;
}

void log_set_level_name(log *x, const char *l) {
    const auto *word = std::find_if(std::begin(LevelNames), std::end(LevelNames),
                                    [l](const char *name) { return s_stricmp(l, name) == 0; });
    if (x != nullptr && word != std::end(LevelNames))
        x->Level = static_cast<LogLevel>(word - LevelNames);
}

LogLevel log_level(log *x) {
    return x != nullptr ? x->Level : LogNone;
}

const char *log_level_name(log *x) {
    return x != nullptr ? level_word(x->Level) : nullptr;
}

void log_line(log *x, const char *line, LogLevel l) {
    if (x == nullptr || line == nullptr || l > x->Level)
        return;
    const errno_guard errno_stays;
    if (!ready(x))
        return;
    line_text text;
    text.add(std::string_view(local_stamp.now()).substr(0, stamp_size));
    text.add(" [");
    text.add(static_cast<int>(getpid()));
    text.add("] ");
    text.add(level_word(l));
    text.add(": ");
    text.add({line, strnlen(line, text_size - 1)});
    text.add("\n");
    put(x, text.text, text.length);
    if (x->Size >= x->Rotate)
        log_rotate(x);
    else if (x->DoFlush != 0 && x->Lines % x->DoFlush == 0)
        std::fflush(x->F);
    count_line(x);
}

void log_raw(const char *format, ...) {
    log *x = CurrentLog;
    const errno_guard errno_stays;
    if (x == nullptr || format == nullptr || !ready(x))
        return;
    message m;
    std::va_list args;
    va_start(args, format);
    vmessage(m, format, args);
    va_end(args);
    put(x, m.text, std::strlen(m.text));
    // Not as in log_line, on purpose: a size of its own, and a flush test by bits, which DoFlush 0 passes
    // always.
    if (x->Size >= default_rotate)
        log_rotate(x);
    else if ((x->Lines & x->DoFlush) == 0)
        std::fflush(x->F);
    count_line(x);
}

void log_flush(log *x) {
    const errno_guard errno_stays;
    const log *flushed = x != nullptr ? x : CurrentLog;
    if (flushed != nullptr && flushed->F != nullptr)
        std::fflush(flushed->F);
}

int log_rotate(log *x) {
    if (x == nullptr || x->File[0] == '\0')
        return 0;
    const errno_guard errno_stays;
    if (is_device(x))
        return 1;
    if (!old_names_fit(x)) // a cut name would be that of another file, even of the log itself
        return log_open(x, x->File);
    const file_name moved = temporary_name(x);
    log_close(x);
    std::rename(x->File, moved.text);
    const int opened = open_file(x, x->File);
    shift_old_files(x);
    std::rename(moved.text, old_name(x, 0).text);
    // Last, because the lines written here can rotate the file once more.
    if (opened != 0)
        become_current(x);
    return opened;
}

void check_emsglog() {
    if (CurrentLog == nullptr || array_items(EmsgLog) == 0)
        return;
    // Taken out first: what is reported meanwhile goes its own way, and no text is written twice.
    array *pending = EmsgLog;
    EmsgLog = nullptr;
    array_start(pending);
    while (void *text = array_get(pending))
        log_line(CurrentLog, static_cast<const char *>(text), LogError);
    array_free_dealloc(&pending);
}

void log_close(log *x) {
    const errno_guard errno_stays;
    if (x != nullptr)
        s_fclose(&x->F);
}

void log_free(log **x) {
    if (x == nullptr || *x == nullptr)
        return;
    log_close(*x);
    delete *x;
}

void emsg(const char *format, ...) {
    if (format == nullptr)
        return;
    message m;
    std::va_list args;
    va_start(args, format);
    vmessage(m, format, args);
    va_end(args);
    // Any level but LogNone takes errors; at LogNone they wait for a log that does.
    if (log_level(CurrentLog) != LogNone)
        log_line(CurrentLog, m.text, LogError);
    else
        keep_error(m.text);
}

void imsg(const char *format, ...) {
    if (format == nullptr || !takes(LogInfo))
        return;
    std::va_list args;
    va_start(args, format);
    write_message(LogInfo, format, args);
    va_end(args);
}

void dmsg(const char *format, ...) {
    if (format == nullptr || !takes(LogDebug))
        return;
    std::va_list args;
    va_start(args, format);
    write_message(LogDebug, format, args);
    va_end(args);
}

} // namespace installer
