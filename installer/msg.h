// The three message functions, declared apart from the log.
//
// Modules below the log (the string library, the array) report through these without knowing where a message goes;
// log.cpp defines them and log.h includes this header, so every other module includes log.h instead.

#ifndef INSTALLER_MSG_H
#define INSTALLER_MSG_H

namespace installer {

/// Reports an error: one line at level "Error" in the current log. With no current log, or one that takes nothing, the
/// text is kept and written as soon as a log becomes current. A null format does nothing; `errno` is left alone.
void emsg(const char *format, ...) __attribute__((format(printf, 1, 2)));

/// Reports what is being done: one line at level "Info", when the current log takes that level.
void imsg(const char *format, ...) __attribute__((format(printf, 1, 2)));

/// Reports a detail for debugging: one line at level "Debug", when the current log takes that level.
void dmsg(const char *format, ...) __attribute__((format(printf, 1, 2)));

} // namespace installer

#endif
