// The init script: one-line commands that prepare settings before the menu is shown.
//
//     # command     a            b         control   compare
//     Exist         $(base)/bin  have_bin  -         -
//     HTTP_Root     docroot      nohttp    -         -
//     TimeDate      fmt          stamp     -         -
//     RFile         /etc/issue   greeting  have_bin  true
//
// A line is five words, split at blanks and tabs; nothing quotes a blank. An item is made of a line only when
// all five are there: a shorter line makes none, but the fields that it filled stay for the next line, which
// overwrites those it supplies itself. The start-up loads the script once, runs it once and frees it; its
// effects live on as settings.
//
//     init_s *script = init_init();
//     if (init_load(script, "setup.int"))
//         init_run(script, store);
//     init_free(&script);

#ifndef INSTALLER_INIT_H
#define INSTALLER_INIT_H

#include "installer/lib.h"

#include <cstdint>

namespace installer {

struct array;
struct ini;

/// What an init item does; in the comments ":=" stands for setting a setting.
enum IItemMode : std::uint32_t {
    INothing = 0,        ///< the mode of a line whose command is unknown
    IExist = 1,          ///< "Exist": `b` := "true" or "false", whether the path `a` exists
    ICopy = 2,           ///< "Copy": `a` := the value of the setting `b`, or the word `b` when it has none
    IHTTP = 16,          ///< the flag that the four web server commands share
    IHTTP_User = 20,     ///< "HTTP_User": `a` := the web server's user, or `b` := "true" when it is not found
    IHTTP_Group = 24,    ///< "HTTP_Group": the same with the web server's group
    IHTTP_Root = 272,    ///< "HTTP_Root": the same with its document root
    IHTTP_Scripts = 528, ///< "HTTP_Scripts": the same with its script directory
    ITimeDate = 1024,    ///< "TimeDate": `b` := the local time, formatted by the value of the setting `a`
    IWFile = 2048, ///< "WFile": the value of the setting `b`, or the word `b`, is written to the path `a`
    IRFile = 4096, ///< "RFile": `b` := the content of the file at the path `a`
};

constexpr IItemMode operator|(IItemMode a, IItemMode b) {
    return static_cast<IItemMode>(std::uint32_t{a} | std::uint32_t{b});
}
constexpr IItemMode operator&(IItemMode a, IItemMode b) {
    return static_cast<IItemMode>(std::uint32_t{a} & std::uint32_t{b});
}

/// One line of the script; the texts are owned, null when absent.
struct init_item {
    char *a;        ///< the second word
    char *b;        ///< the third word
    char *compare;  ///< the fifth word, null when it is "-"
    char *control;  ///< the fourth word, null when it is "-"
    IItemMode mode; ///< the command, the first word
};

/// A script; made by init_init, released by init_free.
struct init_s {
    array *list; ///< the items, owned, in the order of the file
};

// --- Make and fill ---

/// Returns a new, empty script; null without memory.
init_s *init_init();

/// Appends the items of `file`. Returns 1, or 0 when an argument is null or the file cannot be opened, read to its
/// end or held in memory; the last error is then "Failed to read '%s', %s" with the path and the system's reason. An unknown command
/// word is logged as "Unknown init command '%s'" and its line is kept, with a mode that does nothing; no
/// other content is an error.
int init_load(init_s *x, const char *file);

// --- Run ---

/// Runs all items in order against `store`. Nothing stops the run: an item that fails says so and the next
/// one follows, so that an item may use what earlier ones set. Does nothing when an argument is null.
void init_run(init_s *x, ini *store);

/// Runs one item, when its condition holds, against the store `x`.
///
/// An item with a `compare` runs only when the value of the setting `control`, or the word `control` itself
/// when that setting has no value, equals `compare` exactly; without a `control` there is nothing that could
/// be equal. (The entries of the question script know a comparison setting and a condition without
/// comparison; the items of this script do not.)
///
/// Paths hold "$(name)" references; one that does not fit into path_size is logged as "Path too long '%s'",
/// as written in the script, and the item does nothing else ("Exist" stores "false"). Further messages in the
/// log: "TimeDate '%s' is NULL", "Failed to write (%s), %s", "Error writing to '%s', %s", "Failed to read
/// (%s), %s"; on standard output "ERROR: %s\n" for a fact of the web server that is not found.
void init_do(ini *x, const init_item *item);

// --- Look: each moves the list's cursor as the operation of array.h with the same name does; null is
// accepted ---

/// Returns the item at `index`, counted from 0, and leaves the cursor behind it; null when there is none.
init_item *init_get_num(init_s *x, int index);

/// Returns the item at the cursor and moves the cursor behind it; null at the end.
init_item *init_get(init_s *x);

void init_goto(init_s *x, int index);
void init_start(init_s *x);
void init_next(init_s *x);
void init_prev(init_s *x);

// --- Errors ---

/// Makes the formatted text, cut at 999 characters, the last error of this module. A null format does
/// nothing.
void init_seterror(const char *format, ...) __attribute__((format(printf, 1, 2)));

/// Returns the last error, "" when there never was one; valid until the next one.
const char *init_error();

// --- Release ---

/// Frees one item with its texts and sets the slot to null; a callback for the array of items.
void init_item_free(void **slot);

/// Frees the script with its items and sets `*x` to null; does nothing for null.
void init_free(init_s **x);

// --- The web server's facts ---
//
// They are read from the configuration file of an Apache web server and kept for the whole run: a fact that
// is known is never looked for again, though a search for another one may overwrite it with what the file
// says by then.

/// The places where the configuration file may be, in the order in which they are tried.
extern const char *const http_files[8];

extern char http_user[text_size];    ///< from the directive "User"
extern char http_group[text_size];   ///< from the directive "Group"
extern char http_root[text_size];    ///< from the directive "DocumentRoot"
extern char http_scripts[text_size]; ///< from the directive "ScriptAlias" whose alias holds "cgi-bin"

/// 1 once the fact of that name is known.
extern int done_user, done_group, done_root, done_scripts;

/// Copies each fact for which a buffer is given. The first file of http_files that opens is the configuration
/// file, whatever it holds; it is read only when a wanted fact is not known yet.
///
/// Each of the five buffers is null or has text_size bytes. Returns 1 when every wanted fact is known, else 0
/// with one of these texts in `errmsg`, the buffers untouched:
///     "Cannot find httpd.conf file"
///     "User '%s' has bad uid '%d'", "Group '%s' has bad uid '%d'" (the word "uid" in both is meant)
///     "Could not find" and, for each fact that is unknown, wanted or not, in this order: ", Group",
///     ", User", ", DocumentRoot", ", ScriptAlias"
int init_find_http_conf(char *user, char *group, char *root, char *scripts, char *errmsg);

} // namespace installer

#endif
