// The settings data file: the program's settings and their defaults, one definition a line.
//
//     # comment
//     product    Notice Board
//     base       /srv/$(product)
//     owner
//
// A line holds a name, blanks or tabs, and the value, which runs to the end of the line and may hold blanks. A name alone
// defines a setting without a default. Four built-in settings stand in front of the file's own: "host", "system_dir",
// "current_dir" (fixed) and "action" ("install"). A name that occurs twice is kept twice; look-ups find the first.
//
// The table of definitions, `_settings` (declared in ini.h), lives from load_datfile to clear_datfile. The store copies
// what it needs, so the table serves whoever wants to see the definitions as they were read.

#ifndef INSTALLER_SHARED_H
#define INSTALLER_SHARED_H

#include "installer/ini.h"

namespace installer {

/// Reads the definitions of `file` into `_settings`, hands them to the store (`ini_setup` with defaults) and expands the
/// "$(name)" references among the values (`ini_process`). Returns 1, or 0 when an argument is null, the file cannot be
/// opened (logged as "Error opening '%s' for read, %s") or read ("Error reading from '%s', %s"), the working directory
/// cannot be told ("Error finding current_dir, %s": with an empty one scripts would act on the root directory) or memory
/// runs out ("Memory allocation error"). A table of an earlier load is released first.
int load_datfile(ini *x, const char *file);

/// Releases the table of definitions and sets `_settings` to null; does nothing when there is none.
void clear_datfile();

} // namespace installer

#endif
