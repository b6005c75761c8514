// The settings store: the one shared table of named string settings that every script reads and writes.
//
// A setting has a name, a list of values (usually one), a mode word of its own, and a list of associations to
// other settings from which it borrows a value while it has none. Two layers of flags decide what happens to
// a value: the store's `ini_mode` switches each rule on or off, the setting's `setting_mode` says which
// settings it applies to.
//
// What a caller must hold in mind:
//   1. Settings are never deleted: an index stays valid until the store is freed. Look-ups by name take the
//      first setting of that name, exactly as written; a second one of it is reached by index only.
//   2. A text that a read returns lives in the store, until that value is removed, replaced or rewritten.
//      Copy what is kept longer.
//   3. Every setting has one cursor over its values, shared by reads, adds and removals. ini_value puts it on
//      the first value, so a value that is added right after a read goes in front of the others; after
//      set-up, after an add and after a finished walk it stands at the end, where an add appends. Do not mix
//      a walk (ini_value, then ini_value_next) with other uses of the same setting.
//
// Results, where nothing else is said: 1 done, -1 refused by a mode rule, 0 bad arguments; null or -1 for
// "not found". A bad index is negative or not below ini_items. Null arguments are accepted everywhere.
//
//     ini *x = ini_init();
//     ini_setup(x, _settings, nullptr, 1);
//     ini_process(x);                                    // values may refer to each other as $(name)
//     ini_add_name(x, "path", "/opt/site");
//     const char *path = ini_value_name(x, "path");      // borrowed, null when there is none
//     ini_replace(x, "Installing into $(path)", text, text_size);
//     ini_free(&x);

#ifndef INSTALLER_INI_H
#define INSTALLER_INI_H

#include <cstdint>

namespace installer {

struct array;
struct linklist;

// --- Types ---

/// Switches of the whole store: which rules apply.
enum ini_mode : std::uint32_t {
    Ini_Blank = 0,          ///< no rules
    Ini_UseLock = 1,        ///< reading a setting that has Ini_Lock yields no value
    Ini_UseEmpty = 2,       ///< an empty value is refused unless the setting has Ini_Empty
    Ini_UsePass = 4,        ///< values of Ini_Pass settings are logged as "xxxx"
    Ini_UseFixed = 8,       ///< no value can be added to an Ini_Fixed setting
    Ini_UseMulti = 16,      ///< a setting without Ini_Multi keeps one value: adding replaces
    Ini_UsePath = 32,       ///< values of Ini_Path settings have every "/" and "\" turned into "/"
    Ini_UseReplace = 64,    ///< in the default, consulted by nothing: Ini_Replace alone decides
    Ini_UseNew = 128,       ///< ini_add_name creates an unknown setting
    Ini_NewMulti = 256,     ///< a created setting gets Ini_Multi
    Ini_NewEmpty = 512,     ///< a setting may be created with an empty value, and gets Ini_Empty
    Ini_NewFixed = 1024,    ///< a created setting gets Ini_Fixed
    Ini_NewPass = 2048,     ///< a created setting gets Ini_Pass
    Ini_NewLock = 4096,     ///< a created setting gets Ini_Lock
    Ini_NewModes = 7936,    ///< the five New flags
    Ini_DefaultMode = 1022, ///< UseEmpty to NewEmpty: every rule but the lock
};

/// Flags of one setting. Ini_Fixed and Ini_Lock are one bit on purpose: with Ini_UseLock on, every fixed
/// setting is hidden too, and Ini_NewFixed and Ini_NewLock set the same bit.
enum setting_mode : std::uint32_t {
    Ini_None = 0,
    Ini_Multi = 1,        ///< may hold several values
    Ini_Pass = 2,         ///< a password: its value never appears in the log
    Ini_Replace = 4,      ///< its value may stand in for "$(name)" when the store is processed
    Ini_Path = 8,         ///< a path: separators are stored as "/"
    Ini_Empty = 16,       ///< may hold an empty value
    Ini_Fixed = 32,       ///< takes no value after set-up
    Ini_Lock = 32,        ///< hidden from reading while the store has Ini_UseLock
    Ini_XTRAMask = 65472, ///< bits that select the registered conversion functions
};

constexpr ini_mode operator|(ini_mode a, ini_mode b) {
    return static_cast<ini_mode>(static_cast<std::uint32_t>(a) | static_cast<std::uint32_t>(b));
}
constexpr ini_mode operator&(ini_mode a, ini_mode b) {
    return static_cast<ini_mode>(static_cast<std::uint32_t>(a) & static_cast<std::uint32_t>(b));
}
constexpr ini_mode operator~(ini_mode a) {
    return static_cast<ini_mode>(~static_cast<std::uint32_t>(a));
}

constexpr setting_mode operator|(setting_mode a, setting_mode b) {
    return static_cast<setting_mode>(static_cast<std::uint32_t>(a) | static_cast<std::uint32_t>(b));
}
constexpr setting_mode operator&(setting_mode a, setting_mode b) {
    return static_cast<setting_mode>(static_cast<std::uint32_t>(a) & static_cast<std::uint32_t>(b));
}
constexpr setting_mode operator~(setting_mode a) {
    return static_cast<setting_mode>(~static_cast<std::uint32_t>(a));
}

/// One definition. A table of them ends with an entry whose `setting` is null.
struct setting_list {
    const char *setting; ///< the name
    const char *dflt;    ///< the default value or null; used by ini_setup only, null in the store's own table
    setting_mode mode;
};

/// The values of one setting.
struct ini_item {
    linklist *values; ///< owned texts, in order
    linklist *assoc;  ///< owned ints (malloc), each the index of a setting to borrow from
};

/// Turns a value into the one that is stored. The result is copied at once; null counts as "".
using ini_load_fn = const char *(*)(const char *value);

/// A registered conversion function.
struct ini_xtra {
    ini_load_fn fn;
    setting_mode flag;
};

/// Where the settings stand by name: the store's own. Places hold 1 more than an index, 0 when they are free.
struct name_index {
    int *places;
    int size; ///< of `places`: a power of two, or 0
    int held; ///< how many settings have a place: all, or none for want of memory
};

/// The store. `list` has `size` entries, `items` of them in use, and after these at least one whose name is
/// null.
struct ini {
    setting_list *list; ///< the definitions in index order, null until ini_setup; the names are owned
    array *xtra;        ///< ini_xtra pointers, null until the first registration
    ini_mode mode;
    int items;
    int size;
    array *data; ///< ini_item pointers, one a setting
    bool lost;   ///< see ini_lost
    name_index names;
};

/// The definitions that the settings data file gave, ended by a null name, or null. The loader of that file
/// owns them.
extern setting_list *_settings;

// --- Make and release ---

/// Returns a new store without definitions, in Ini_DefaultMode.
ini *ini_init();

/// Takes the definitions: copies each name and mode and, when `use_dflts` is non-zero, the default as first
/// value (no rule applies to it). `assoc` may be null; else it holds pairs of indexes (from, to) and ends
/// with a from of -1: setting `from` then borrows from setting `to`, which is not checked. A pair whose
/// `from` does not exist is logged as an error. Meant to be called once; a second call drops the earlier
/// settings. Does nothing when `x` or `list` is null.
void ini_setup(ini *x, const setting_list *list, const int *assoc, int use_dflts);

/// Frees the store with all that it holds and sets `*x` to null.
void ini_free(ini **x);

/// Frees one conversion entry and sets `*x` to null.
void ini_free_xtra(ini_xtra **x);

/// Replace the store's mode word, add flags to it, clear flags in it.
void ini_setmode(ini *x, ini_mode mode);
void ini_addmode(ini *x, ini_mode mode);
void ini_rmvmode(ini *x, ini_mode mode);

/// Registers `fn` for the settings whose mode shares a bit with `flag` (bits of Ini_XTRAMask). An entry of
/// the same flag gets the new function; otherwise the entry is appended, and entries apply in this order.
void ini_setup_load_fn(ini *x, ini_load_fn fn, setting_mode flag);

// --- Add ---
// A value is converted (registered functions, cut at 999 bytes each time), then normalised (Ini_Path), then
// refused when the setting is fixed or the value empty; a single-valued setting then drops its value for the
// new one. The value goes in at the cursor, as an owned copy.

/// Adds to setting `index`.
int ini_add(ini *x, int index, const char *value);

/// Adds to the setting called `name`. An unknown one is created with this value when the store has Ini_UseNew
/// (no rule but Ini_NewEmpty applies then), else 0.
int ini_add_name(ini *x, const char *name, const char *value);

/// Adds a formatted text, cut at 999 bytes.
int ini_add_format(ini *x, int index, const char *format, ...) __attribute__((format(printf, 3, 4)));

/// Adds every text of `values` in order. Returns 1, or 0 at the first one that is refused (those before it
/// stay).
int ini_add_array(ini *x, int index, const array *values);

/// The rules behind the four above; `index` must be good.
int do_add(ini *x, int index, const char *value);

/// Appends a setting called `label`, of the mode that the store's New flags give, with this value. Returns 1,
/// -1 for an empty value without Ini_NewEmpty, 0 for a null argument or when memory runs out (the store is
/// then as it was).
int create_setting(ini *x, const char *label, const char *value);

// --- Look ---

/// Whether a definition or a value could not be kept for want of memory, which was logged at error level: 1 from
/// then on, else 0. What is read may be an older value then, so whoever acts on values asks first.
int ini_lost(const ini *x);

/// Number of settings; 0 for a null store.
int ini_items(const ini *x);

/// The first value of a setting; the cursor goes to it. Null for a bad index and for a locked setting under
/// Ini_UseLock. A setting without values answers with what ini_value gives for its *last* association, even
/// when that is null and an earlier one had a value; the cursors of all settings that could lend go to their
/// first values. An association that leads back to a setting being read gives null there.
const char *ini_value(ini *x, int index);

/// Moves the cursor on and returns the value there, null at the end. Only a setting's own values are walked:
/// a borrowed one comes from ini_value alone.
const char *ini_value_next(ini *x, int index);

/// The same by name.
const char *ini_value_name(ini *x, const char *label);
const char *ini_value_name_next(ini *x, const char *label);

/// istrue and isfalse of ini_value: a value can be neither.
int ini_true(ini *x, int index);
int ini_false(ini *x, int index);

/// Index of the setting called `label`, or -1.
int ini_index(const ini *x, const char *label);

/// Name of a setting, borrowed; null for a bad index.
const char *ini_label(const ini *x, int index);

/// Mode of a setting; Ini_None when there is none.
setting_mode ini_setting_mode(const ini *x, int index);
setting_mode ini_setting_mode_name(const ini *x, const char *label);

/// The names in index order (the third form: those that wild_match accepts), in a new container that the
/// caller frees; the names in it are the store's. Null for a null argument, an empty container for no names.
array *ini_label_array(const ini *x);
linklist *ini_label_list(const ini *x);
array *ini_label_wild(const ini *x, const char *wild);

// --- Remove ---
// Each returns the value it removed, which the caller now owns and frees with free(), or null. No mode
// prevents it: a fixed setting's value can be removed too.

/// Removes the first value.
char *ini_remove(ini *x, int index);
char *ini_remove_name(ini *x, const char *name);

/// Removes the value at the cursor, at the end the last one.
char *ini_remove_next(ini *x, int index);
char *ini_remove_name_next(ini *x, const char *name);

// --- Expand "$(name)" ---
// The two differ on purpose. ini_process ignores case, substitutes only values of Ini_Replace settings, again
// and again, and leaves an unknown name as written; ini_replace wants the exact name, takes any value, once,
// and drops the reference when there is none. Both leave a "$(" that has no ")".

/// Expands the references in `string` into `result`, a buffer of `bfsz` bytes that gets at most bfsz - 1
/// characters and a NUL. Values are found with ini_value_name and not expanded again. `result` must not
/// overlap `string` or a value. Does nothing when a pointer is null or `bfsz` is 0.
void ini_replace(ini *x, const char *string, char *result, unsigned int bfsz);

/// Rewrites the stored values of all settings, once, after set-up: a reference to a known setting becomes
/// that setting's first stored value when its mode has Ini_Replace, else nothing; what the value brings in is
/// resolved in turn. A value that would be rewritten more than 1000 times, or that fills its 1000-byte
/// buffer, stays as it stands then, with an error in the log that names the setting. Returns 1, or 0 without
/// store or definitions.
int ini_process(ini *x);

// --- Settings files ---
// A line holds a name, blanks or tabs, and one value, which runs to the end of the line and may hold blanks;
// outer white space, empty lines and lines that start with "#" do not count. A setting on several lines gets
// several values. Lines between "vhost <host>" and "vend" apply only for the chosen virtual host. Longer
// lines are read in pieces of 999 bytes.
//
// A store that is saved and loaded into a store of the same definitions (set up without defaults) holds the
// same values again, except for what a line cannot carry: values with a line feed, with a blank or tab at the
// start or white space at the end; empty values of a setting that must not be empty; lines of 1000 bytes and
// more; names that are empty, start with white space or "#", hold a blank, a tab or a line feed, or read
// "vhost" or "vend"; the second of two settings of one name. What saving leaves out or writes as it reads is
// named there; conversion functions and path rules apply to what is loaded.

/// Adds the values of a file. A name without an extension gets ".ini". `vhost` is the chosen virtual host;
/// when it is null, the first "vhost" line takes it from the environment variable that the setting
/// "vhost_match" names and stores it in the setting "vhost"; a missing variable or "vhost_match" is logged as
/// an error and skips the block. Fixed settings take values from a file; Ini_UseFixed is set afterwards in
/// any case, whether it was before or not. Returns 1 when the file was read, 0 for a null store, table or
/// name, or a file that cannot be opened or read (not reported).
int ini_load(ini *x, const char *xfile, const char *vhost);

/// The value that the first line of that name in the file gives setting `index`, or null; "vhost" blocks are
/// not looked at and nothing is added. The text lies in one buffer (999 characters) that the next call writes
/// over. The buffer is not cleared first, on purpose: a search that finds no line returns what the last one
/// found.
const char *ini_peek(ini *x, const char *file, int index);

/// Writes one line a value, in index order, to the file exactly as named: no ".ini" is added. A locked
/// setting is left out (under Ini_UseLock), a borrowed value is written as the setting's own, passwords are
/// written in clear. Returns 1, or 0 for a null argument or table and when the file cannot be opened or fully
/// written, which is logged as an error.
int ini_save(ini *x, const char *file);

} // namespace installer

#endif
