#include "installer/file.h"

#include "installer/log.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <grp.h>
#include <pwd.h>
#include <string_view>
#include <unistd.h>
#include <utility>

namespace installer {

file_callback ok = nullptr;
file_callback fail = nullptr;

namespace {

constexpr mode_t new_file_mode = 0666; // as for new directories, the umask has its say
constexpr mode_t new_directory_mode = 0775;
constexpr std::size_t block_size = 8192;

// What a callback hears as its mode.
constexpr int removing = 0;
constexpr int making = 1;

// Descriptors that are only looked through need no right to read the directory where the system can do without.
#if defined(O_SEARCH)
constexpr int look_through = O_SEARCH | O_DIRECTORY | O_CLOEXEC;
#elif defined(O_PATH)
constexpr int look_through = O_PATH | O_DIRECTORY | O_CLOEXEC;
#else
constexpr int look_through = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
#endif

/// Where the last separator of `path` stands, -1 when it has none.
int last_separator(std::string_view path) {
    const auto found = std::find_if(path.rbegin(), path.rend(), is_separator);
    return static_cast<int>(path.rend() - found) - 1;
}

void tell(file_callback callback, const char *path, const char *other, int mode) {
    const errno_guard kept;
    if (callback)
        callback(path, other, mode);
}

descriptor open_at(const place &p, int flags, mode_t mode = 0) {
    if (p.name)
        return descriptor(openat(p.dir, p.name, flags | O_CLOEXEC, mode));
    errno = EFAULT;
    return descriptor();
}

/// What stands at a place, links followed; all zero when there is nothing to learn.
struct stat look(const place &p) {
    struct stat found = {};
    if (!p.name || fstatat(p.dir, p.name, &found, 0) != 0)
        return {};
    return found;
}

/// Whether a query found nothing there, and not merely no answer.
bool is_absence(int reason) {
    return reason == ENOENT || reason == ENOTDIR;
}

/// Also when that cannot be told.
bool may_be_link(const place &p) {
    struct stat found = {};
    return fstatat(p.dir, p.name, &found, AT_SYMLINK_NOFOLLOW) != 0 || S_ISLNK(found.st_mode);
}

bool same_file(const struct stat &a, const struct stat &b) {
    return a.st_mode != 0 && b.st_mode != 0 && a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

} // namespace

// ---- Progress callbacks and errors ----

void file_setup_fn(file_callback xok, file_callback xfail) {
    ok = xok;
    fail = xfail;
}

void file_setup(const file_setup_inf *inf) {
    if (inf)
        file_setup_fn(inf->xok, inf->xfail);
}

void file_old_setup(file_setup_inf *inf) {
    if (inf)
        *inf = {ok, fail};
}

void file_error(const char *format, ...) {
    if (!format)
        return;
    const int reason = errno;
    message m;
    va_list args;
    va_start(args, format);
    vmessage(m, format, args);
    va_end(args);
    add_reason(m, reason); // also when it is 0: every message of this module ends in a reason
    emsg("%s", m.text);
}

// ---- Places ----

place place_of(const char *path) {
    return {AT_FDCWD, path, path};
}

descriptor &descriptor::operator=(descriptor &&other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
}

descriptor::~descriptor() {
    const errno_guard kept;
    if (fd_ >= 0)
        close(fd_);
}

int descriptor::release() {
    const int fd = fd_;
    fd_ = -1;
    return fd;
}

path_prefix::path_prefix(const char *directory) : directory_(directory), length_(path_size), text_{} {
    const errno_guard kept;
    if (join_path(text_, path_size, directory, ""))
        length_ = std::strlen(text_);
}

/// A name with a separator in it, and one that does not fit, is left to join_path.
bool path_prefix::join(char (&path)[path_size], const char *name) const {
    const std::size_t length = std::strcspn(name, "/\\");
    if (name[length] != '\0' || length_ + length >= path_size)
        return join_path(path, path_size, directory_, name);
    std::memcpy(path, text_, length_);
    std::memcpy(path + length_, name, length + 1);
    return true;
}

target_directory::target_directory(const char *path) : target_directory(place_of(path)) {}

target_directory::target_directory(const place &directory)
    : path_(directory.path), dir_(open_at(directory, look_through)) {}

bool target_directory::at(const char *name, char (&path)[path_size], place &out) const {
    if (!path_.directory() || !name) {
        errno = EINVAL;
        return false;
    }
    if (!path_.join(path, name)) {
        file_error("Path too long '%s'", path_.directory());
        return false;
    }
    out = dir_ ? place{dir_.get(), name, path} : place_of(path);
    return true;
}

// ---- Reading a directory: what the walk and the listing share ----

namespace {

DIR *open_directory(const place &p) {
    // Only the path that the operator named may lead through a link.
    descriptor fd = open_at(p, O_RDONLY | O_DIRECTORY | (p.dir == AT_FDCWD ? 0 : O_NOFOLLOW));
    DIR *dir = fd ? fdopendir(fd.get()) : nullptr;
    if (dir)
        fd.release();
    else
        file_error("Error opening dir '%s'", str(p.path));
    return dir;
}

struct reading {
    DIR *dir;
    const path_prefix &path;
    const char *wild;
    int report; // as for the walk
};

/// The next record, whatever it is. At the end `errno` is as it was; a directory that cannot be read further is
/// reported and clears `whole`.
const dirent *next_record(const reading &from, bool &whole) {
    const int before = errno;
    errno = 0;
    const dirent *record = readdir(from.dir);
    if (!record && errno != 0) {
        file_error("Error reading dir '%s'", from.path.directory());
        if (from.report != walk::not_told)
            tell(fail, from.path.directory(), nullptr, from.report);
        whole = false;
    } else {
        errno = before;
    }
    return record;
}

bool matches(const char *name, const char *wild) {
    const std::string_view text = name;
    return text != "." && text != ".." && wild_match(name, wild);
}

/// The next match whose path fits, composed in `path`. One that does not fit is told and clears `whole`.
const dirent *next_match(const reading &from, char (&path)[path_size], bool &whole) {
    while (const dirent *record = next_record(from, whole)) {
        if (!matches(record->d_name, from.wild))
            continue;
        if (from.path.join(path, record->d_name))
            return record;
        file_error("Path too long '%s'", from.path.directory());
        if (from.report != walk::not_told)
            tell(fail, from.path.directory(), nullptr, from.report);
        whole = false;
    }
    return nullptr;
}

} // namespace

walk::walk(const place &directory, const char *wild, int report)
    : directory_(directory.path), wild_(wild), report_(report), dir_(open_directory(directory)),
      whole_(dir_ != nullptr), entry_{dir_ ? dirfd(dir_) : AT_FDCWD, "", path_}, path_{} {}

walk::~walk() {
    const errno_guard kept;
    if (dir_)
        closedir(dir_);
}

bool walk::next() {
    if (!dir_)
        return false;
    while (const dirent *record = next_match({dir_, directory_, wild_, report_}, path_, whole_))
        if (settle(*record))
            return true;
    return false;
}

/// Makes a record the current entry, asking for its type only where the directory does not tell it. False when
/// it is gone.
bool walk::settle(const dirent &found) {
    entry_.name = found.d_name;
    entry_.type = static_cast<mode_t>(DTTOIF(found.d_type));
    if (entry_.type != 0)
        return true;
    struct stat info = {};
    if (fstatat(entry_.dir, entry_.name, &info, AT_SYMLINK_NOFOLLOW) != 0)
        return false;
    entry_.type = info.st_mode & S_IFMT;
    return true;
}

bool walk::gone() const {
    const errno_guard kept;
    struct stat info = {};
    return fstatat(entry_.dir, entry_.name, &info, AT_SYMLINK_NOFOLLOW) != 0 && errno == ENOENT;
}

// ---- Testing for existence ----

namespace {

int exists_at(const place &p) {
    const mode_t mode = look(p).st_mode;
    if (mode == 0 && !is_absence(errno))
        file_error("Error looking for '%s'", p.path);
    if (mode == 0) {
        dmsg("'%s' does not exist", p.path);
        return 0;
    }
    dmsg(S_ISDIR(mode) ? "'%s' exists and is a directory" : "'%s' exists and is a file", p.path);
    return S_ISDIR(mode) ? 2 : 1;
}

} // namespace

int file_exist(const char *file) {
    return file ? exists_at(place_of(file)) : 0;
}

// ---- Copying and moving a file ----

namespace {

/// How far a copy came. Both of the last two leave everything as it was, without a word.
enum class outcome { copied, failed, kept, vanished };

enum class transferred { all, not_read, not_written };

ssize_t read_block(int fd, char *data, std::size_t size) {
    ssize_t done = -1;
    do
        done = read(fd, data, size);
    while (done < 0 && errno == EINTR);
    return done;
}

/// Adds what it writes to `total`, also when it fails half-way.
bool write_block(int fd, const char *data, std::size_t size, std::uint64_t &total) {
    while (size > 0) {
        const ssize_t written = write(fd, data, size);
        if (written < 0 && errno == EINTR)
            continue;
        if (written == 0)
            errno = EIO; // nothing was written and nothing said why
        if (written <= 0)
            return false;
        data += written;
        size -= static_cast<std::size_t>(written);
        total += static_cast<std::uint64_t>(written);
    }
    return true;
}

/// Copies what is left to read in `from`, block by block, until `total` is `most`.
transferred copy_blocks(int from, int to, std::uint64_t most, std::uint64_t &total) {
    std::array<char, block_size> block;
    while (total < most) {
        const ssize_t size =
            read_block(from, block.data(), std::min<std::uint64_t>(block.size(), most - total));
        if (size == 0)
            break;
        if (size < 0)
            return transferred::not_read;
        if (!write_block(to, block.data(), static_cast<std::size_t>(size), total))
            return transferred::not_written;
    }
    return transferred::all;
}

/// Lets the kernel move the bytes, as far as it can: true when it came to the file's end. After a false, whatever the
/// reason, copy_blocks goes on where this stopped, and meets and tells apart what is wrong. A file that ends before its
/// first byte may be one of those that do not know their size, so that is a false too.
bool copy_in_kernel([[maybe_unused]] int from, [[maybe_unused]] int to, [[maybe_unused]] std::uint64_t most,
                    [[maybe_unused]] std::uint64_t &total) {
#if defined(__linux__)
    constexpr std::uint64_t at_once = std::uint64_t{8} << 20; // a signal is heard in between
    ssize_t size = 0;
    while (total < most &&
           (size = copy_file_range(from, nullptr, to, nullptr, std::min(at_once, most - total), 0)) > 0)
        total += static_cast<std::uint64_t>(size);
    return total == most || (size == 0 && total > 0);
#else
    return false;
#endif
}

/// Copies what is left to read in `from` until `total` is `most`.
transferred transfer(int from, int to, std::uint64_t most, std::uint64_t &total) {
    return copy_in_kernel(from, to, most, total) ? transferred::all : copy_blocks(from, to, most, total);
}

bool is_pipe(mode_t mode) {
    return S_ISFIFO(mode) || S_ISSOCK(mode);
}

outcome refuse_pipe(const place &p) {
    errno = EINVAL;
    file_error("'%s' is not a file", p.path);
    return outcome::failed;
}

/// What was opened; all zero when the system does not tell.
struct stat look_at(const descriptor &opened) {
    struct stat found = {};
    if (fstat(opened.get(), &found) != 0)
        return {};
    return found;
}

/// How many bytes to copy. Where the system tells no length, as for a device, to the end of what can be read.
std::uint64_t length_to_copy(const struct stat &source) {
    const bool known = S_ISREG(source.st_mode) && source.st_size > 0;
    return known ? static_cast<std::uint64_t>(source.st_size) : UINT64_MAX;
}

/// A file is copied as long as it is when its copy begins: one that grows meanwhile has an end. One without a length
/// may be of those that tell none, or have begun to grow just now: more than a block of it shows which. Adds to `bytes`
/// what was written: where writing failed, whole blocks.
transferred copy_content(const descriptor &source, const descriptor &target, const struct stat &opened,
                         std::uint32_t *bytes) {
    std::uint64_t total = 0;
    const bool empty = S_ISREG(opened.st_mode) && opened.st_size == 0;
    const std::uint64_t most = empty ? block_size : length_to_copy(opened);
    transferred result = transfer(source.get(), target.get(), most, total);
    if (empty && result == transferred::all && total == block_size)
        result = transfer(source.get(), target.get(), length_to_copy(look_at(source)), total);
    if (result == transferred::not_written)
        total -= total % block_size;
    if (bytes)
        *bytes += static_cast<std::uint32_t>(total);
    return result;
}

/// Moves the bytes and closes the target with a look at the result: what a full disk refuses may show only
/// then.
outcome fill(descriptor &target, const place &dst, const descriptor &source, const place &src,
             std::uint32_t *bytes) {
    const struct stat opened = look_at(source);
    if (is_pipe(opened.st_mode))
        return refuse_pipe(src);
    const transferred result = copy_content(source, target, opened, bytes);
    if (result == transferred::not_read)
        file_error("Error reading from '%s'", src.path);
    else if (result == transferred::not_written || close(target.release()) != 0)
        file_error("Error writing to '%s'", dst.path);
    else
        return outcome::copied;
    return outcome::failed;
}

outcome refuse_same(const place &src, const place &dst) {
    errno = EINVAL;
    file_error("'%s' and '%s' are the same file", src.path, dst.path);
    return outcome::failed;
}

outcome no_target(const place &dst) {
    file_error("Error opening '%s' for write", dst.path);
    return outcome::failed;
}

outcome no_source(const place &src) {
    file_error("Error opening '%s' for read", src.path);
    return outcome::failed;
}

/// A fifo that took a file's place since it was looked at must not make the open wait; a device may, as a
/// terminal does.
int patience(mode_t mode) {
    return S_ISCHR(mode) || S_ISBLK(mode) ? 0 : O_NONBLOCK;
}

/// Whether the walk that found `src` as a file would not find it now.
bool vanished(const place &src) {
    return S_ISREG(src.type) && errno == ENOENT;
}

/// Opens a target that could not be made anew, unless it must not be touched. Every reason to refuse is found
/// before anything is opened.
outcome open_existing(const place &src, const place &dst, int overwrite, descriptor &target) {
    const struct stat to = look(dst);
    if (to.st_mode == 0 && !is_absence(errno))
        return no_target(dst);
    const struct stat from = look(src);
    if (from.st_mode == 0 && vanished(src))
        return outcome::vanished;
    if (from.st_mode == 0 && !is_absence(errno)) // it could be the target itself
        return no_source(src);
    if (is_pipe(to.st_mode))
        return refuse_pipe(dst);
    if (same_file(from, to))
        return refuse_same(src, dst);
    if (!overwrite && open_at(dst, O_RDONLY | patience(to.st_mode)))
        return outcome::kept;
    target = open_at(dst, O_WRONLY | O_CREAT | O_TRUNC | patience(to.st_mode), new_file_mode);
    if (!target)
        return no_target(dst);
    return is_pipe(look_at(target).st_mode) ? refuse_pipe(dst) : outcome::copied;
}

outcome copy_bytes(const place &src, const place &dst, int overwrite, std::uint32_t *bytes) {
    const mode_t type = S_ISREG(src.type) ? src.type : look(src).st_mode;
    if (is_pipe(type))
        return refuse_pipe(src);

    // A target that is not there yet, the usual one, costs this one call; only one that is there is looked at.
    descriptor target = open_at(dst, O_WRONLY | O_CREAT | O_EXCL, new_file_mode);
    const bool fresh = bool(target);
    if (!fresh)
        if (const outcome found = open_existing(src, dst, overwrite, target); found != outcome::copied)
            return found;

    const descriptor source = open_at(src, O_RDONLY | patience(type));
    if (source)
        return fill(target, dst, source, src, bytes);
    if (fresh && vanished(src)) {
        remove_entry(dst);
        return outcome::vanished;
    }
    return no_source(src);
}

int move_at(const place &src, const place &dst, int overwrite, std::uint32_t *bytes) {
    if (file_copy_at(src, dst, overwrite, bytes) == 0)
        return 0;
    if (remove_entry(src))
        return 1;
    file_error("Error removing moved file '%s'", src.path);
    return 0;
}

} // namespace

int file_copy_at(const place &src, const place &dst, int overwrite, std::uint32_t *bytes) {
    errno = 0;
    outcome result = outcome::failed;
    if (src.path && dst.path)
        result = copy_bytes(src, dst, overwrite, bytes);
    if (result == outcome::copied)
        tell(ok, src.path, dst.path, making);
    if (result == outcome::failed)
        tell(fail, src.path, dst.path, making);
    else
        errno = 0; // what was tried on the way is no failure
    return result == outcome::kept ? -1 : result == outcome::copied;
}

int file_copy(const char *src, const char *dst, int overwrite, std::uint32_t *bytes) {
    return file_copy_at(place_of(src), place_of(dst), overwrite, bytes);
}

int file_move(const char *src, const char *dst, int overwrite, std::uint32_t *bytes) {
    return move_at(place_of(src), place_of(dst), overwrite, bytes);
}

bool file_would_block(const char *path) {
    const int before = errno;
    if (is_pipe(look(place_of(path)).st_mode)) {
        refuse_pipe(place_of(path));
        return true;
    }
    errno = before;
    return false;
}

FILE *file_open(const char *path, const char *mode) {
    const int flags = *mode == 'w' ? O_WRONLY | O_CREAT | O_TRUNC : O_RDONLY;
    descriptor fd = open_at(place_of(path), flags | O_NONBLOCK, new_file_mode);
    if (!fd)
        return nullptr;
    const mode_t type = look_at(fd).st_mode;
    if (type == 0 || is_pipe(type)) {
        errno = type == 0 ? errno : EINVAL;
        return nullptr;
    }
    const int status = fcntl(fd.get(), F_GETFL);
    FILE *opened = fcntl(fd.get(), F_SETFL, status & ~O_NONBLOCK) == 0 ? fdopen(fd.get(), mode) : nullptr;
    if (opened)
        fd.release();
    return opened;
}

// ---- Making directories ----

namespace {

bool create_directory(const place &p) {
    if (mkdirat(p.dir, p.name, new_directory_mode) != 0)
        return false;
    dmsg("Directory created '%s'", p.path);
    tell(ok, p.path, nullptr, making);
    return true;
}

bool cannot_create(const place &p) {
    file_error("Error creating directory '%s'", p.path);
    tell(fail, p.path, nullptr, making);
    return false;
}

/// Makes a directory whose parent stands; a name that exists already is as good, whatever it is. `made` tells
/// the two apart.
bool make_directory(const place &p, bool &made) {
    made = create_directory(p);
    return made || errno == EEXIST || cannot_create(p);
}

/// Makes what is missing of the directories above `path` and tells whether anything was. The separators between
/// them become "/"; the first character never ends a directory, nor does what a drive prefix begins with.
bool make_parents(char *path) {
    const std::size_t length = std::strlen(path);
    bool made = false;
    for (std::size_t i = length > 1 && path[1] == ':' ? 3 : 1; i < length; ++i) {
        if (!is_separator(path[i]))
            continue;
        path[i] = '\0';
        made = create_directory(place_of(path)) || made;
        path[i] = '/';
    }
    return made;
}

/// Copies `dir` without its one last separator; false when it does not fit.
bool directory_path(char (&path)[path_size], std::string_view dir) {
    if (!dir.empty() && is_separator(dir.back()))
        dir.remove_suffix(1);
    if (dir.size() >= path_size) {
        errno = ENAMETOOLONG;
        return false;
    }
    path[dir.copy(path, dir.size())] = '\0';
    return true;
}

} // namespace

int file_mkdir(const char *dir, int make_all) {
    if (!dir)
        return 0;
    char path[path_size];
    if (!directory_path(path, dir)) {
        file_error("Path too long '%s'", dir);
        tell(fail, dir, nullptr, making);
        return 0;
    }
    errno = 0;
    const bool parents = make_all && make_parents(path);
    if (create_directory(place_of(path)) || errno == EEXIST)
        return 1;
    if (!parents)
        return cannot_create(place_of(dir));
    file_error("Error creating directory '%s'", dir);
    return 1; // a parent that was made is success enough, on purpose
}

// ---- Trees: copying, moving and removing are one walk ----

namespace {

/// What came of a directory's entries: how many things were done, and whether nothing was left undone.
struct tally {
    int done = 0;
    bool whole = true;

    tally &operator+=(const tally &other) {
        done += other.done;
        whole = whole && other.whole;
        return *this;
    }
};

constexpr tally undone = {0, false};

/// Hands each entry that the list `not_` does not match to `act`, which tells what came of it.
template <typename Act>
tally each_entry(walk &entries, const char *not_, const Act &act) {
    tally all;
    while (entries.next())
        if (!wild_list(entries.entry().name, not_))
            all += act(entries.entry());
    all.whole = all.whole && entries.whole();
    return all;
}

int remove_content(const place &dir, const char *not_) {
    walk entries(dir, "*", removing);
    const auto remove = [not_](const place &entry) -> tally {
        const int removed = S_ISDIR(entry.type) ? remove_tree(entry, not_, 1) : remove_entry(entry);
        if (removed || errno != ENOENT) // what vanished meanwhile is no failure
            tell(removed ? ok : fail, entry.path, nullptr, removing);
        return {removed, removed != 0};
    };
    return each_entry(entries, not_, remove).done;
}

} // namespace

int remove_entry(const place &entry) {
    if (!entry.name)
        return 0;
    return unlinkat(entry.dir, entry.name, 0) == 0 ||
           (errno == EISDIR && unlinkat(entry.dir, entry.name, AT_REMOVEDIR) == 0);
}

int remove_tree(const place &dir, const char *not_, int recurse) {
    if (!dir.path)
        return 0;
    const int below = recurse ? remove_content(dir, not_) : 0;
    const bool removed = unlinkat(dir.dir, dir.name, AT_REMOVEDIR) == 0;
    tell(removed ? ok : fail, dir.path, nullptr, removing);
    return below + removed;
}

int file_rmdir(const char *dir, const char *not_, int recurse) {
    return remove_tree(place_of(dir), not_, recurse);
}

namespace {

enum class position { outside, inside, unknown };

/// What follows from a directory that cannot be entered: nobody who may not enter it carries a tree through it.
position closed_or_unknown() {
    return errno == EACCES ? position::outside : position::unknown;
}

/// Whether the open directory is `top` or stands anywhere below it, found by going up to the root.
position stands_in(const descriptor &directory, const struct stat &top) {
    descriptor step;
    struct stat last = {};
    for (int fd = directory.get();; fd = step.get()) {
        struct stat here = {};
        if (fstat(fd, &here) != 0)
            return position::unknown;
        if (same_file(here, last))
            return position::outside;
        if (same_file(here, top))
            return position::inside;
        last = here;
        step = descriptor(openat(fd, "..", look_through));
        if (!step)
            return closed_or_unknown();
    }
}

/// Opens `path`, or the nearest directory above it that there is; nothing when the system does not tell.
descriptor nearest_directory(const char *path) {
    char above[path_size];
    if (!directory_path(above, path))
        above[0] = '\0';
    setsep(above, '/'); // as file_mkdir does before it makes one
    descriptor found = open_at(place_of(path), look_through);
    while (!found && is_absence(errno) && above[0] != '\0') {
        found = open_at(place_of(above), look_through);
        char *last = std::strrchr(above, '/');
        *(last ? last : above) = '\0';
    }
    if (found || !is_absence(errno))
        return found;
    return open_at(place_of(path[0] == '/' ? "/" : "."), look_through);
}

/// Where the target stands to the tree that is carried.
position position_of(const char *dst, const place &dir) {
    const struct stat top = look(dir);
    if (top.st_mode == 0 && !is_absence(errno))
        return closed_or_unknown();
    if (!S_ISDIR(top.st_mode))
        return position::outside;
    const descriptor nearest = nearest_directory(dst);
    return nearest ? stands_in(nearest, top) : closed_or_unknown();
}

/// Refuses a target in the tree that is carried, which would feed the walk with what it makes, and one of which that
/// cannot be told.
bool refuse_into_itself(const place &dir, const char *dst) {
    const position found = position_of(dst, dir);
    if (found == position::outside)
        return false;
    if (found == position::unknown) {
        file_error("Error opening dir '%s'", dst);
    } else {
        errno = EINVAL;
        file_error("Cannot copy directory '%s' into itself", dir.path);
    }
    tell(fail, dir.path, dst, making);
    return true;
}

/// How a tree is carried to another place.
struct carriage {
    bool moving;
    const char *not_;
    std::uint32_t *bytes;
    int recurse;
};

tally carry_content(const carriage &how, const place &dir, const char *wild, const place &dst);

tally carry_file(const carriage &how, const place &entry, const place &target) {
    // Moving overwrites only when it recurses: the one flag means both.
    const int done = how.moving ? move_at(entry, target, how.recurse, how.bytes)
                                : file_copy_at(entry, target, 1, how.bytes);
    return {done, done != 0};
}

/// Removes a directory from which everything was moved. The message names the target and not the source, on
/// purpose.
tally remove_moved(const carriage &how, const place &entry, const place &target, bool whole) {
    if (whole && remove_tree(entry, how.not_, how.recurse) != 0)
        return {1, true};
    if (!whole)
        errno = ENOTEMPTY;
    file_error("Failed to remove moved directory '%s'", target.path);
    return {0, whole};
}

tally carry_directory(const carriage &how, const place &entry, const place &target) {
    bool made = false;
    if (!how.recurse)
        return make_directory(target, made) ? tally{1, true} : undone;
    if (exists_at(target) == 0 && !make_directory(target, made))
        return undone;
    // A real directory in a target outside the tree is outside too; a link may lead back into it.
    if (!made && may_be_link(target) && refuse_into_itself(entry, target.path))
        return undone;
    tally all = {made, true};
    all += carry_content(how, entry, "*", target);
    if (how.moving)
        all += remove_moved(how, entry, target, all.whole);
    return all;
}

tally carry_content(const carriage &how, const place &dir, const char *wild, const place &dst) {
    const target_directory targets(dst);
    walk entries(dir, wild, making);
    return each_entry(entries, how.not_, [&](const place &entry) {
        char path[path_size];
        place target = dst;
        if (!targets.at(entry.name, path, target)) {
            tell(fail, entry.path, dst.path, making);
            return undone;
        }
        return S_ISDIR(entry.type) ? carry_directory(how, entry, target) : carry_file(how, entry, target);
    });
}

/// Carries the matching entries of `dir` into `dst`, made with its parents when it is missing.
int carry_tree(const carriage &how, const place &dir, const char *wild, const char *dst) {
    if (!dir.path || !dst || (how.recurse && refuse_into_itself(dir, dst)))
        return 0;
    const bool unseen = file_exist(dst) == 0;
    const bool missing = unseen && is_absence(errno);
    if (unseen && !file_mkdir(dst, 1))
        return 0;
    // Only now does a ".." behind a directory that was missing show where it leads.
    if (missing && how.recurse && refuse_into_itself(dir, dst))
        return 1;
    return missing + carry_content(how, dir, wild ? wild : "*", place_of(dst)).done;
}

} // namespace

int copy_tree(const place &dir, const char *wild, const char *not_, const char *dst, int recurse,
              std::uint32_t *bytes) {
    return carry_tree({false, not_, bytes, recurse}, dir, wild, dst);
}

int file_xcopy(const char *path, const char *wild, const char *not_, const char *dst, int recurse,
               std::uint32_t *bytes) {
    return copy_tree(place_of(path), wild, not_, dst, recurse, bytes);
}

int file_xmove(const char *path, const char *wild, const char *not_, const char *dst, int recurse,
               std::uint32_t *bytes) {
    return carry_tree({true, not_, bytes, recurse}, place_of(path), wild, dst);
}

// ---- Listing a directory ----

namespace {

/// A zeroed `T` that its module releases with free, or null.
template <typename T>
T *make_zeroed() {
    return static_cast<T *>(std::calloc(1, sizeof(T)));
}

/// Fills `link` with the link's target. Without memory it stays null.
void read_link(file *x) {
    text_ptr text(static_cast<char *>(std::calloc(1, path_size)));
    if (text && readlink(x->name, text.get(), path_size - 1) < 0) {
        file_error("Error reading symlink '%s'", x->name);
        scpy(text.get(), "READLINK FAILED", path_size);
    }
    std::free(x->link);
    x->link = text.release();
}

} // namespace

file *file_first(xfilehandle **h, const char *path, const char *wild) {
    if (!h || !path || !wild)
        return nullptr;
    *h = make_zeroed<xfilehandle>();
    file *x = *h ? make_zeroed<file>() : nullptr;
    if (x) {
        (*h)->path = s_strdup(path);
        (*h)->wild = s_strdup(wild);
        (*h)->dir = open_directory(place_of(path));
    }
    if (file_next(x, *h))
        return x;
    file_free(&x);
    file_last(h);
    return nullptr;
}

int file_next(file *x, xfilehandle *h) {
    if (!x || !h || !h->dir || !h->path)
        return 0;
    const path_prefix directory(h->path);
    bool whole = true;
    while (next_match({h->dir, directory, h->wild, walk::not_told}, x->name, whole))
        if (file_stat(x))
            return 1;
    return 0;
}

void file_last(xfilehandle **h) {
    if (!h || !*h)
        return;
    const errno_guard kept;
    if ((*h)->dir)
        closedir((*h)->dir);
    std::free((*h)->path);
    std::free((*h)->wild);
    std::free(*h);
    *h = nullptr;
}

// ---- Entries ----

file *file_existf(const char *path) {
    if (!path)
        return nullptr;
    if (std::strlen(path) >= path_size) {
        errno = ENAMETOOLONG;
        file_error("Path too long '%s'", path);
        return nullptr;
    }
    file *x = make_zeroed<file>();
    if (x)
        scpy(x->name, path, path_size);
    if (file_stat(x))
        return x;
    file_free(&x);
    return nullptr;
}

file *file_dup(const file *x) {
    file *copy = x ? make_zeroed<file>() : nullptr;
    if (!copy)
        return nullptr;
    *copy = *x;
    copy->link = s_strdup(x->link);
    return copy;
}

int file_stat(file *x) {
    if (!x || lstat(x->name, &x->info) != 0)
        return 0;
    if (S_ISLNK(x->info.st_mode))
        read_link(x);
    return 1;
}

const char *file_name(const file *x) {
    return x ? x->name : nullptr;
}

char *file_filename(const file *x, char *buffer, int bfsz) {
    if (!x || !buffer)
        return nullptr;
    const char *last = x->name + last_separator(x->name) + 1;
    scpy(buffer, last, std::min(bfsz, path_size) + 1); // one more than given: `bfsz` counts characters
    return buffer;
}

int change_mode(const place &entry, int mode) {
    if (!entry.name)
        return 0;
    if (fchmodat(entry.dir, entry.name, static_cast<mode_t>(mode), 0) == 0)
        return 1;
    file_error("Error changing mode of '%s' to %d", entry.path, mode);
    return 0;
}

int change_owner(const place &entry, int uid, int gid) {
    if (!entry.name || uid == -1)
        return 0;
    const int group = gid == -1 ? uid : gid; // on purpose, see the header
    if (fchownat(entry.dir, entry.name, static_cast<uid_t>(uid), static_cast<gid_t>(group), 0) == 0)
        return 1;
    file_error("Error changing ownership of '%s' to uid=%d, gid=%d", entry.path, uid, group);
    return 0;
}

int file_chmod(const file *x, int mode) {
    return change_mode(place_of(file_name(x)), mode);
}

int file_chown(const file *x, int uid, int gid) {
    return change_owner(place_of(file_name(x)), uid, gid);
}

void file_free(file **x) {
    if (!x || !*x)
        return;
    std::free((*x)->link);
    std::free(*x);
    *x = nullptr;
}

// ---- Names ----

char *file_path(const char *path, char *buffer, int size) {
    if (!path || !buffer)
        return nullptr;
    const std::string_view looked_at(path, strnlen(path, size > 1 ? static_cast<std::size_t>(size) - 1 : 0));
    scpy(buffer, path, std::max(last_separator(looked_at), 0) + 1);
    return buffer;
}

namespace {

/// Looks a name up and tells when that could not be done; a name that is not there is no failure and leaves 0 in
/// `errno`, for the system puts various numbers there.
template <typename Account>
const Account *look_up(Account *(*find)(const char *), const char *kind, const char *name) {
    errno = 0;
    const Account *found = name ? find(name) : nullptr;
    constexpr int failures[] = {EINTR, EIO, EMFILE, ENFILE, ENOMEM, ERANGE, EACCES};
    if (!found && std::find(std::begin(failures), std::end(failures), errno) != std::end(failures))
        file_error("Error looking up %s '%s'", kind, name);
    else
        errno = 0;
    return found;
}

} // namespace

int file_getuid(const char *name) {
    const passwd *user = look_up(getpwnam, "user", name);
    return user ? static_cast<int>(user->pw_uid) : -1;
}

int file_getgid(const char *name) {
    const group *found = look_up(getgrnam, "group", name);
    return found ? static_cast<int>(found->gr_gid) : -1;
}

int file_usergid(const char *name) {
    const passwd *user = look_up(getpwnam, "user", name);
    return user ? static_cast<int>(user->pw_gid) : -1;
}

} // namespace installer
