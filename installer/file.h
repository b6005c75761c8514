// The file system: copying, moving, making and removing files and trees; listing directories; modes and owners.
//
// Paths are NUL-terminated texts. Where this module composes one (a directory and an entry's name) it holds it
// in path_size characters, and nothing ever acts on a path that was cut: an entry whose path does not fit is
// reported as "Path too long '%s'" with the directory, told to `fail` where the operation has callbacks, and
// left alone.
//
// Progress is told through two module-wide callbacks, `ok` and `fail`. Errors are logged by file_error, once,
// by the function that met them; `errno` then still holds the cause when the operation returns.
//
// Two ways to look into a directory stand here. The listing (file_first, file_next, file_last) hands out entry
// records with everything known about an entry. The walk gives only a place to act on, works on directory
// descriptors and costs no system call for an entry; copying, moving and removing are built on it.

#ifndef INSTALLER_FILE_H
#define INSTALLER_FILE_H

#include "installer/lib.h"

#include <cstdint>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>

namespace installer {

// ---- Progress callbacks ----

/// Told of each thing done or not done: `path`, a second path or null, and `mode`: 1 for copies and for
/// directories made, 0 for removals.
using file_callback = void (*)(const char *path, const char *other, int mode);

/// The callbacks in use; null (the beginning) tells nobody.
extern file_callback ok;
extern file_callback fail;

/// The pair, for saving and restoring it.
struct file_setup_inf {
    file_callback xok;
    file_callback xfail;
};

/// Sets both callbacks; either may be null.
void file_setup_fn(file_callback xok, file_callback xfail);

/// Sets both callbacks from `inf`. Null changes nothing.
void file_setup(const file_setup_inf *inf);

/// Stores the callbacks in use into `inf`, to be given back to file_setup. Null is ignored.
void file_old_setup(file_setup_inf *inf);

/// Logs "<text>, <reason>" at error level: the formatted text, cut at 999 characters, and the description of
/// `errno`, always, also when it is 0. Leaves `errno` alone. A null format does nothing.
void file_error(const char *format, ...) __attribute__((format(printf, 1, 2)));

// ---- Files and trees by path ----

/// 0 when there is nothing at `file` (or it is null), 1 for anything that is no directory, 2 for a directory.
/// Links are followed; `errno` is what the query set. Logs the answer at debug level.
int file_exist(const char *file);

/// Copies the bytes of `src` into `dst`: 1 copied, 0 failed, -1 left alone because `overwrite` is 0 and `dst`
/// exists and can be read (no message, no callback). Otherwise tells ok or fail with (src, dst, 1).
///
/// Only bytes are copied: a new target gets the default mode, and a link is read through. The target is opened
/// first on purpose, so that a source that cannot be read leaves an empty target, and a copy that breaks off
/// leaves what was written. Each block written is added to `*bytes` when `bytes` is given, also when the copy
/// fails later.
///
/// Refused before anything is opened, `errno` being EINVAL: a copy of a file onto itself, and a fifo or a
/// socket at either end, which could block for ever.
int file_copy(const char *src, const char *dst, int overwrite, std::uint32_t *bytes);

/// Copies the entries of `path` that match `wild` (null is "*") and are not in the list `not_` into the
/// directory `dst`, which is made with its parents when it is missing. `recurse` takes directories whole;
/// without it they become empty directories. Existing targets are overwritten. `not_` counts at every level,
/// case-sensitively, for names. Returns the number of files and directories made, 0 when `path` or `dst` is
/// null. With `recurse`, a `dst` that is `path` or lies below it is refused (EINVAL) before anything is made.
int file_xcopy(const char *path, const char *wild, const char *not_, const char *dst, int recurse,
               std::uint32_t *bytes);

/// Whether opening `path` could wait for ever, for a fifo or a socket stands there: true with "'%s' is not a file"
/// logged and EINVAL. False leaves `errno` alone; also for null and for what cannot be looked at.
bool file_would_block(const char *path);

/// fopen for the modes "r" and "w", for what a script names: it never waits. A fifo or a socket, also one that took
/// the place of a file just now, is refused with EINVAL. Null with `errno` when it cannot be opened or looked at, or for
/// a null path.
FILE *file_open(const char *path, const char *mode);

/// file_copy, then removes `src`: 1, or 0 when either fails. A target that exists and is kept (file_copy's -1)
/// counts as copied, so that the source is removed then too; this is meant.
int file_move(const char *src, const char *dst, int overwrite, std::uint32_t *bytes);

/// file_xcopy that moves: `recurse` also means that existing targets are overwritten. A directory is removed,
/// and counted, when all of it was moved; what could not be moved stays where it was. Returns the number moved.
int file_xmove(const char *path, const char *wild, const char *not_, const char *dst, int recurse,
               std::uint32_t *bytes);

/// Makes the directory `dir` (mode 0775 less the umask), with `make_all` its missing parents too; "/" and "\"
/// both separate. Returns 1 when something was made or the name exists already, whatever it is; ok hears of
/// each directory made. Where only parents were made, the log has the error. Otherwise 0, with fail(dir, null, 1). A path that does not fit path_size makes nothing.
int file_mkdir(const char *dir, int make_all);

/// Removes the directory `dir`, with `recurse` everything below it first except what the list `not_` matches.
/// ok and fail hear of every entry; a directory below `dir` is told twice, by itself and by the one that holds
/// it. Returns the number of entries removed, 0 for null.
int file_rmdir(const char *dir, const char *not_, int recurse);

// ---- Places ----

/// Where an entry is: `name` is looked up in the open directory `dir`; `path` is the whole path, for messages
/// and callbacks. It borrows all three.
struct place {
    int dir;          // descriptor of the directory, or AT_FDCWD with name == path
    const char *name; // null only where the operator's path was
    const char *path;
    mode_t type = 0; // S_IFMT bits of the entry itself as its directory told them, 0 when it has to be asked
};

/// The place at `path` as the operator named it: links are followed.
place place_of(const char *path);

/// An open descriptor, closed silently at the end; closing a written file by hand is for whoever wrote it.
class descriptor {
  public:
    explicit descriptor(int fd = -1) : fd_(fd) {}
    descriptor(descriptor &&other) noexcept : fd_(other.release()) {}
    descriptor &operator=(descriptor &&other) noexcept;
    ~descriptor();
    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    int release();

  private:
    int fd_;
};

/// A directory's path with the separator behind it, composed once for all of its entries. Borrows the path.
class path_prefix {
  public:
    explicit path_prefix(const char *directory);

    /// join_path of the directory and `name`.
    bool join(char (&path)[path_size], const char *name) const;

    const char *directory() const { return directory_; }

  private:
    const char *directory_;
    std::size_t length_; // path_size where the separator does not fit
    char text_[path_size];
};

/// Reads one directory: the entries whose names match `wild` (wild_match), never "." and "..", in the system's
/// order.
///
///     walk entries(place_of("/srv/www"), "*.cgi");
///     while (entries.next())
///         change_mode(entries.entry(), 0755);
///
/// A walk over an entry of another walk opens that very entry and never follows a link. The directory's place
/// and `wild` are borrowed for the walk's life.
class walk {
  public:
    static constexpr int not_told = -1;

    /// Opens the directory; a failure logs "Error opening dir '%s'". `report` is the mode word with which the
    /// fail callback hears (directory, null, report) of an entry whose path is too long; not_told for
    /// operations without callbacks.
    walk(const place &directory, const char *wild, int report = not_told);
    ~walk();
    walk(const walk &) = delete;
    walk &operator=(const walk &) = delete;

    bool is_open() const { return dir_ != nullptr; }

    /// Goes to the next match whose path fits; false at the end.
    bool next();

    /// The current match; valid until next() or the walk's end.
    const place &entry() const { return entry_; }

    /// Whether the entry itself is a directory; a link never is one.
    bool is_directory() const { return S_ISDIR(entry_.type); }

    /// Asks the system again: for after an operation on the entry failed.
    bool gone() const;

    /// Whether no entry was lost so far: the directory was opened, could be read, and every matching path
    /// fitted.
    bool whole() const { return whole_; }

  private:
    bool settle(const dirent &found);

    path_prefix directory_;
    const char *wild_;
    int report_;
    DIR *dir_;
    bool whole_;
    place entry_;
    char path_[path_size];
};

/// A destination directory, opened once so that targets are created relative to it. Where it cannot be opened
/// its places are whole paths, and the use of one tells the reason. Borrows the path.
class target_directory {
  public:
    explicit target_directory(const char *path);
    explicit target_directory(const place &directory);

    /// Composes the place of `name` in the directory, its path in `path`. False when that does not fit
    /// (ENAMETOOLONG), with "Path too long '%s'" logged; telling `fail` is the caller's.
    bool at(const char *name, char (&path)[path_size], place &out) const;

    /// The open directory, or -1.
    int get() const { return dir_.get(); }

  private:
    path_prefix path_;
    descriptor dir_;
};

/// file_copy between places. An entry of a walk that has vanished meanwhile gives 0 without a word and leaves
/// the target as it was.
int file_copy_at(const place &src, const place &dst, int overwrite, std::uint32_t *bytes);

/// file_xcopy of the directory at a place.
int copy_tree(const place &dir, const char *wild, const char *not_, const char *dst, int recurse,
              std::uint32_t *bytes);

/// file_rmdir of the directory at a place.
int remove_tree(const place &dir, const char *not_, int recurse);

/// Removes what stands at a place, without a word: 1, or 0 with `errno`. A directory goes only when it is
/// empty.
int remove_entry(const place &entry);

/// Sets the permission bits of what stands at a place, links followed: 1, or 0 with "Error changing mode of
/// '%s' to %d".
int change_mode(const place &entry, int mode);

/// Sets the owner of what stands at a place, links followed: 1, or 0 with "Error changing ownership of '%s' to
/// uid=%d, gid=%d". A `uid` of -1 is refused without a message; a `gid` of -1 means the number of `uid`: an
/// unknown group gives the user's id as group, on purpose.
int change_owner(const place &entry, int uid, int gid);

// ---- Listing a directory ----

/// One directory entry.
struct file {
    char name[path_size]; // the whole path
    char *
        link; // owned: a link's target, "READLINK FAILED", or null; an entry that file_next refills keeps the
              // text of an earlier link, so it says nothing about an entry that is no link
    struct stat info; // the entry itself, as lstat gives it
};

/// An open listing.
struct xfilehandle {
    char *path; // owned
    char *wild; // owned
    DIR *dir;
};

/// Opens `path` and returns a new entry with the first match of `wild`, the handle in `*h`; "." and ".." are
/// never listed, and the order is the system's. Null when an argument is null, when nothing matches, or, with
/// "Error opening dir '%s'", when the directory cannot be opened; `*h` is null then.
///
///     xfilehandle *h = nullptr;
///     file *x = file_first(&h, "/srv/www", "*.cgi");
///     for (int more = x != nullptr; more; more = file_next(x, h))
///         ...
///     file_free(&x);
///     file_last(&h);
file *file_first(xfilehandle **h, const char *path, const char *wild);

/// Refills `x` with the next match: 1, or 0 at the end (also for null). An entry that vanished is skipped; one
/// whose path does not fit is left out with "Path too long '%s'".
int file_next(file *x, xfilehandle *h);

/// Ends a listing and sets the caller's pointer to null; harmless on a handle that file_first has closed.
void file_last(xfilehandle **h);

// ---- Entries ----

/// A new entry for the one path, or null when it cannot be queried. Released with file_free.
file *file_existf(const char *path);

/// A new entry with the same name, information, and a copy of the link text; null for null.
file *file_dup(const file *x);

/// Queries `name` again into `info`, and into `link` when it is a link: 1, or 0 when it cannot be queried. A
/// link whose text cannot be read gets "READLINK FAILED", with "Error reading symlink '%s'".
int file_stat(file *x);

/// The entry's whole path; null for null.
const char *file_name(const file *x);

/// The text after the last "/" or "\" of the entry's name, all of it without one: at most `bfsz` characters and
/// a terminator, so `buffer` holds `bfsz` + 1. Returns `buffer`, null for null.
char *file_filename(const file *x, char *buffer, int bfsz);

/// change_mode and change_owner of the entry's path; 0 for null.
int file_chmod(const file *x, int mode);
int file_chown(const file *x, int uid, int gid);

/// Releases the entry and its link text and sets the caller's pointer to null.
void file_free(file **x);

// ---- Names ----

/// `path` cut before its last "/" or "\", looking at its first `size` - 1 characters. A path without one, an
/// empty path and a `size` below 2 give "". `buffer` has room for one character at least. Returns `buffer`,
/// null for null.
char *file_path(const char *path, char *buffer, int size);

/// The id of the user or the group `name`, or of the user's primary group; -1 when there is none, `errno` being 0
/// then, or when it cannot be looked up, with "Error looking up ..." and `errno`. Ids written as digits are not understood unless the database knows such a name.
int file_getuid(const char *name);
int file_getgid(const char *name);
int file_usergid(const char *name);

} // namespace installer

#endif
