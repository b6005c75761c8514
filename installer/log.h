// The log: a text file of time-stamped lines, which moves to numbered old files when it has grown.
//
// Modules report through emsg, imsg and dmsg (msg.h), which write to the one current log. Errors that no
// current log can take are kept in memory until a log becomes current by log_open or log_setup; log_set alone
// does not write them.
//
// The log serves the work and never stops it: nothing here reports a failure. A file that cannot be opened
// leaves the log closed, each later line tries again and gives up quietly. log_line, log_raw, log_open,
// log_rotate, log_flush and the message functions leave `errno` as they found it.
//
// A line is "Sun Nov 15 23:02:59  [412] Error: text": local time without the year, process id, level, text.
//
//     log *x = log_init(LogDebug);
//     if (log_open(x, "setup.log"))
//         emsg("Cannot open '%s'", name);
//     CurrentLog = nullptr;
//     log_free(&x);

#ifndef INSTALLER_LOG_H
#define INSTALLER_LOG_H

#include "installer/array.h"
#include "installer/msg.h"

#include <cstdint>
#include <cstdio>

namespace installer {

enum LogLevel : std::int32_t { LogNone = 0, LogError = 1, LogInfo = 2, LogDebug = 3 };

/// The word of each level: "None", "Error", "Info", "Debug".
extern const char *const LevelNames[4];

struct log {
    char File[1000];      ///< name of the log file; "" until log_open or log_setup
    LogLevel Level;       ///< highest level that is written
    int DoFlush;          ///< flush interval in lines; 0: no flushing by lines
    int Lines;            ///< lines written so far
    int Rotations;        ///< number of the oldest old file that is kept
    std::uint32_t Size;   ///< bytes in the file: its size when opened and what was written since
    std::uint32_t Rotate; ///< size at which log_line rotates
    FILE *F;              ///< the open file, or null
};

/// The log that the message functions write to, or null; not owned.
extern log *CurrentLog;

/// Texts of the errors that wait for a current log, owned; null when there are none.
extern array *EmsgLog;

// --- Make ---

/// Returns a new log at `level` without a file, to be freed with log_free: 4 rotations at 1 MiB, no flushing.
/// It is not made current. Null without memory.
log *log_init(LogLevel level);

/// Closes `x`'s file and appends to `file` from now on; when there is no current log, makes `x` current and
/// writes the errors that wait. Returns 1; 0 for a null argument, when `file` cannot be opened, is a fifo
/// (opening one could wait for ever) or does not fit `File`: then the log is closed and `File` as before.
int log_open(log *x, const char *file);

/// Names the file `file` in the directory `path`, which may be null, for the first line to open; an open file
/// is closed. When there is no current log, makes `x` current and writes the errors that wait. Returns 1; 0,
/// changing nothing, for a null log, when `path` is not writable, or when the name does not fit `File`.
int log_setup(log *x, const char *path, const char *file);

/// Makes `x` current, or none for null. Errors that wait go on waiting.
void log_set(log *x);

// --- Settings ---

/// Sets `Rotations` and `Rotate`.
void log_dorotate(log *x, int rotations, std::uint32_t atsize);

/// Sets `DoFlush`.
void log_doflush(log *x, int doflush);

/// Sets the level. REQUIRES: `x` is not null.
void log_set_level(log *x, LogLevel l);

/// Sets the level whose word is `l`, in upper or lower case; any other word changes nothing.
void log_set_level_name(log *x, const char *l);

/// Returns the level; LogNone for null.
LogLevel log_level(log *x);

/// Returns the level's word; null for null. A level out of range has the word of the nearest level.
const char *log_level_name(log *x);

// --- Write ---

/// Writes one line when `x` takes level `l`, opening the file where needed; more than 999 characters of
/// `line` are cut. At `Rotate` bytes the file is rotated, else every `DoFlush`th line is flushed, the first
/// one included.
void log_line(log *x, const char *line, LogLevel l);

/// Writes formatted text, cut at 999 characters, to the current log as it stands: no time, no level, no line
/// end. Two things are not as in log_line: the file is rotated at 1 MiB whatever `Rotate` says, and flushed
/// when `Lines` and `DoFlush` have no bit in common.
void log_raw(const char *format, ...) __attribute__((format(printf, 1, 2)));

/// Flushes the file of `x`, or of the current log for null.
void log_flush(log *x);

/// Moves the file to `File` with "0" appended, after moving the old files up by one number and removing the
/// one numbered `Rotations`; then goes on in an empty file. Returns what opening that one returned; 0 without
/// a file name. Nothing is moved, and the file grows on, where the old names do not fit and where the log is written to
/// no regular file (a device: 1).
int log_rotate(log *x);

/// Writes the errors that wait to the current log, as far as its level takes errors, and forgets them. With
/// no current log they go on waiting.
void check_emsglog();

// --- Release ---

/// Closes the file; the next line opens it again.
void log_close(log *x);

/// Closes the file and frees the log. Neither the caller's pointer nor CurrentLog is reset: nothing may be
/// logged to it afterwards.
void log_free(log **x);

} // namespace installer

#endif
