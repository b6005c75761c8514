// The program's entry and its top-level loop: start-up, command line, banner and menu, and the four product actions.
//
// One run: open the log, read the command line, load the settings data file and run the init script; then show the menu
// until an action has finished. A product action asks the questions of its section and then runs the same section of the
// copy script. All files lie in the working directory and carry the program's own name: NAME.log, NAME.dat, NAME.int,
// NAME.q, NAME.cpy. The dialogue is on standard input and output, diagnostics go to the log.

#ifndef INSTALLER_INSTALLER_H
#define INSTALLER_INSTALLER_H

#include "installer/ini.h"
#include "installer/log.h"

namespace installer {

/// The program's own name, without directory and extension; owned, null before start-up and after shut-down.
extern char *myname;
/// 1 when nothing may be asked: the default choice and every default answer are taken.
extern int automate;
/// The tag given with "-special", owned; null when there was none.
extern char *special_mode;

/// Interprets the words of the command line from the second on: "-debug", "-version", "-automate", "-special <tag>"; other
/// words are ignored. "-version" and a "-special" without a tag end the process, with status 0 and 1.
void process_args(log *x, char **argv, int argc);

/// Prints the welcome banner with the setting "product" ("NONAME" when absent).
void print_header(ini *x);
/// Prints the menu, without the prompt.
void print_menu(ini *x);
/// Prints "blurb.txt" of the working directory with its "$(name)" references expanded, after a blank line; prints nothing
/// when it cannot be opened.
void print_blurb(ini *x);

/// What a product action came to, as the menu loop interprets it.
enum action_result : int {
    action_failed = 0, // the questions could not be loaded, or stopped the action
    action_done = 1,   // the questions were answered; whatever the copy script did
    action_quit = 4,   // the operator typed "q": back to the menu
};

/// Each runs one product action against the store and returns an action_result.
int install_product(ini *x);
int upgrade_product(ini *x);
int remove_product(ini *x);
/// Runs the section named by `special_mode`; without a tag no section is found and the action fails.
int do_special(ini *x);

/// The copy engine's progress callback: prints one "." that is seen at once. The arguments are ignored.
void printdot(const char *src, const char *dst, int mode);
/// The copy engine's failure callback: prints "\nError: %s\n" with the system's reason. The arguments are ignored.
void printerror(const char *src, const char *dst, int mode);

} // namespace installer

#endif
