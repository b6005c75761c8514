// The copy script: the file system actions of one product action, read from a section of a ".cpy" file and
// run in order.
//
// A script is plain text. Empty lines and lines that start with "#" mean nothing, "[name]" opens a section,
// and every other line is one command: a keyword and its fields, separated by blanks and tabs (no quoting, so
// no field holds a blank). Keywords and section names are compared ignoring case.
//
//     CopyFile, CopyDir             source not dest [control [control_cmp]]
//     RmFile, RmDir                 source not      [control [control_cmp]]
//     Chown, Chmod                  source not dest [control [control_cmp]]
//     MkDir                         source          [control [control_cmp]]
//     Ini, Rename, Exist,
//     WFile, RFile                  source dest     [control [control_cmp]]
//     Error                         source message to the end of the line
//
// `source` and `dest` are expanded once, while loading: "$(name)" becomes the setting's value, and a
// reference to a setting without a value disappears. A `not` of "-" means that nothing is excluded.
//
// A script object is made, filled once, run, and released:
//
//     copy *x = copy_init(settings);
//     copy_setup(x, printdot, printerror);
//     if (copy_load(x, "kit.cpy", "install") && !copy_process(x, &files, &bytes, 1))
//         printf("Failed, %s", copy_error());
//     copy_free(&x);
//
// Every operation takes null pointers and then gives its failure value (0 or null) unless it says otherwise.
// Indexes count records from 0; one at or beyond `count` is answered like a null object. Errors are logged
// through cerror.

#ifndef INSTALLER_COPY_H
#define INSTALLER_COPY_H

#include <cstdint>

#include "installer/file.h"
#include "installer/ini.h"

namespace installer {

/// What a record does. `Cpy` and `Rm` are the bits that the commands of the copy and of the remove family
/// share; no keyword stands for them alone. A record whose keyword is unknown has type 0.
enum CType : std::uint32_t {
    Cpy = 256,
    CpyFile = 257,
    CpyDir = 258,
    MkDir = 260,
    CpyIni = 264,
    Rename = 272,
    Rm = 512,
    RmFile = 513,
    RmDir = 514,
    Exist = 1024,
    Chown = 2048,
    Chmod = 2049,
    Error = 4096,
    WFile = 8192,
    RFile = 16384,
};

/// One script line. Every text is owned by the record and null where the line has no such field.
struct copy_cmd {
    char *source;      // a path, possibly ending in a wildcard; for "Error" a setting name
    char *dest;        // by command: a path or wildcard path, a setting name, an owner, a mode or a message
    char *not_;        // comma-separated wildcards of what is left alone
    char *control;     // the setting that decides whether the record runs
    char *control_cmp; // what that setting must equal: the name of a setting, else a literal
    CType type;
};

/// The script object. `list` is owned and grows by 5 records; the records beyond `count` are zero.
struct copy {
    copy_cmd *list;
    struct ini *ini; // the settings that names and references are resolved against; not owned
    std::uint32_t count;
};

// Making and filling.

/// A new script object without records that reads and writes the settings of `settings` (null: no setting has
/// a value).
copy *copy_init(ini *settings);

/// Hands the file module the callbacks that it calls for every file copied, directory made or entry removed
/// (`ok_fn`) and for every such step that failed (`fail_fn`). `x` itself is not touched.
void copy_setup(copy *x, file_callback ok_fn, file_callback fail_fn);

/// Reads one section of a script. Returns 1 when the section was found, even without a valid line; 0 when it
/// was not, when an argument is null, and when the file cannot be opened ("Error opening '%s'"), which leaves
/// the object as it was. Reading stops at the next header: a second section of the same name is never read. A
/// script object is loaded once; a second load starts afresh and releases the earlier records. Sets errno to
/// 0 on entry. 0 also when the file cannot be read to its end or memory is short ("Error reading '%s'"): a script
/// is held whole or not at all, for a line without its exclusions or its control would do harm.
///
/// A line with too few fields is reported, a message for each missing one ("Missing copy source path",
/// "Missing not wildcard", "Missing copy destination path"), and dropped. An unknown keyword ("Unknown copy
/// type '%s'") keeps a record of type 0, which fails when it is run.
int copy_load(copy *x, const char *file, const char *section);

/// Prepares one record for running, as copy_load does for each: drops a `not` of "-" and expands `source` and
/// `dest`.
void copy_processpaths(copy *x, std::uint32_t index);

/// Expands the "$(name)" references of `string`, one level deep. A reference without a value disappears; a
/// "$(" that is never closed stays as it stands. No piece put in is longer than 8999 characters, and the
/// result no longer than 9999. Returns a new text (the caller frees it), or null when there is nothing to
/// expand.
char *replace_vars(copy *x, const char *string);

// Looking at records. Texts are borrowed from the record.

std::uint32_t copy_count(copy *x);
const char *copy_src(copy *x, std::uint32_t index);
const char *copy_dst(copy *x, std::uint32_t index);
const char *copy_not(copy *x, std::uint32_t index);
const char *copy_control(copy *x, std::uint32_t index);
const char *copy_control_cmp(copy *x, std::uint32_t index);

/// Write the directory that `source` or `dest` names into `buffer` (`n` bytes, cut to fit, always
/// terminated): the text up to and including the last "/" or "\", or the working directory when there is
/// neither. Return `buffer`, or null when the field or `buffer` is null or `n` is below 1.
char *copy_src_path(copy *x, std::uint32_t index, char *buffer, int n);
char *copy_dst_path(copy *x, std::uint32_t index, char *buffer, int n);

/// Writes what `source` names in that directory, a file name or a wildcard: the text after the last
/// separator, "*" when the text ends with one, or all of it when there is none. Returns as copy_src_path.
char *copy_src_file(copy *x, std::uint32_t index, char *buffer, int n);

/// Writes the last component of `dest`. Unlike copy_src_file it names nothing, returning null with `buffer`
/// untouched, when `dest` is empty, holds no separator or ends with one: a destination names its directories
/// by a path and a last component, and running a record relies on this.
char *copy_dst_file(copy *x, std::uint32_t index, char *buffer, int n);

/// 1 when the record is of that type, else 0 (also without any record). REQUIRES: `index` is below the number
/// of allocated records. These six do not look at `count`, on purpose.
int copy_cpyfile(copy *x, std::uint32_t index);
int copy_cpydir(copy *x, std::uint32_t index);
int copy_mkdir(copy *x, std::uint32_t index);
int copy_rmdir(copy *x, std::uint32_t index);
int copy_rmfile(copy *x, std::uint32_t index);
int copy_ini(copy *x, std::uint32_t index);

// Running.

/// Runs every record in order. `files` and `bytes` may be null; a counter given is set to 0 first. `*files`
/// grows by each record's result, so it counts directories and successful commands too; `*bytes` by every
/// block written, also for files whose copy later fails. Returns 1 when the script ran to its end, failed
/// records included; 0 for a null object, or when a record failed and `stop_on_fail` is not 0: the later
/// records are then not run.
int copy_process(copy *x, std::uint32_t *files, std::uint32_t *bytes, int stop_on_fail);

/// Runs one record, if its controlling setting allows. Returns -1 when that skipped it, 0 when it failed,
/// else the number of files and directories done (copy and remove family), of entries changed ("Chown",
/// "Chmod"), or 1. Sets errno to 0 on entry.
///
/// A controlling setting without a value never blocks. With one, the record runs when the value equals that
/// of the setting `control_cmp`, or the literal `control_cmp` where that has no value, ignoring case; without
/// `control_cmp`, when the value is true.
///
/// A failed "MkDir", "Ini" or "Rename" goes on as a "CopyFile" with the same fields, whose result is the
/// record's.
int copy_do(copy *x, std::uint32_t index, std::uint32_t *bytes);

/// The message of the last "Error" command that failed in this process, "" before the first.
const char *copy_error();

// The commands that are not plain copies or removals. Each runs record `index` whatever its type and control,
// and returns 0 for failure; what was done before a failure stays.

/// "Ini": writes `dest` from the template `source`: every line trimmed, expanded as by replace_vars and ended
/// with "\n". A template that cannot be read leaves an empty target. Returns 1 when every byte reached the
/// target.
int copy_write_ini(copy *x, std::uint32_t index);

/// "Rename": renames `source` to `dest`. Returns 1 or 0.
int copy_rename(copy *x, std::uint32_t index);

/// "Exist": sets the setting `dest` to "true" when `source` is a file or a directory, else to "false".
/// Returns 1.
int copy_exist(copy *x, std::uint32_t index);

/// "Chown": gives what `source` selects, and everything below, to the owner `dest`, "user:group" or one word
/// for both. Returns the number of entries changed.
int copy_chown(copy *x, std::uint32_t index);

/// "Chmod": sets the mode of what `source` selects, and of everything below, to the octal number `dest`. No
/// character of it is checked: a word that is no number gives a meaningless mode. Returns the number of
/// entries changed.
int copy_chmod(copy *x, std::uint32_t index);

/// "Error": fails when the setting `source` has a value and it is false; `dest` is then the text of
/// copy_error. Returns 1 otherwise.
int copy_seterror(copy *x, std::uint32_t index);

/// "WFile": replaces the file `source` by the value of the setting `dest`, or by the text `dest` where there
/// is none, without a line end. Returns 1 when every byte was written.
int copy_wfile(copy *x, std::uint32_t index);

/// "RFile": empties the file `source` and gives the setting `dest` no value, on purpose (see the source).
/// Returns 1 or 0.
int copy_rfile(copy *x, std::uint32_t index);

/// Change the entries of the directory `path` that match `wild`, and everything below those that are
/// directories, each tree before its directory. Entries whose whole path is matched by `not_` are left alone.
/// An entry that cannot be changed ends the listing of its directory; the directories above go on. Return the
/// number of entries changed. A `uid` of -1 changes nothing; a `gid` of -1 stands for the `uid`'s number.
int dochown(const char *path, const char *wild, const char *not_, int uid, int gid);
int dochmod(const char *path, const char *wild, const char *not_, std::uint16_t mode);

// Reporting and releasing.

/// Logs an error of this module, with ", " and the system's reason when errno is not 0. A null format does
/// nothing; errno is left alone.
void cerror(const char *format, ...) __attribute__((format(printf, 1, 2)));

/// Releases the object with its records and sets the caller's pointer to null. Null, or a pointer to null, is
/// ignored.
void copy_free(copy **x);

} // namespace installer

#endif
