// Strings, paths, wildcards, encodings: what every other module uses instead of the raw C library.
//
// What a caller must hold in mind:
//
//  1. Every text is a NUL-terminated byte string. Null pointers are taken everywhere and give the failure
//     value that the operation names (0, null, -1, ""), unless a REQUIRES line says otherwise.
//  2. A `size` or `bfsz` is the full size of the receiving buffer, terminator included, and what does not fit
//     is cut without a word. The few conversions that count characters instead say so in a REQUIRES line.
//  3. Comparisons without case go through `charmap`, never through the locale. Trimming, `s_strlwr`,
//     `s_strupr` and the path encoding ask the C library, and so the locale.
//  4. '/' and '\' both separate path components in every input; what is joined here is written with `Sep`.
//  5. A path that was cut names something else. Whoever acts on a joined path uses `join_path`, which refuses
//     one that does not fit.
//  6. Nothing here logs, except `tempfile` (a debug line), and nothing throws.

#ifndef INSTALLER_LIB_H
#define INSTALLER_LIB_H

#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>

namespace installer {

// --- Sizes and guards ---

constexpr int path_size = 256;  ///< bytes of a path buffer
constexpr int text_size = 1000; ///< bytes of a buffer for a line, a message or a setting's value

/// Puts `errno` back as it was found, so that what follows a failure does not hide its cause.
class errno_guard {
  public:
    errno_guard() = default;
    ~errno_guard() { errno = found_; }
    errno_guard(const errno_guard &) = delete;
    errno_guard &operator=(const errno_guard &) = delete;

  private:
    int found_ = errno;
};

struct free_text {
    void operator()(char *text) const { std::free(text); }
};

/// Closes without a word and leaves `errno` alone: for files that were read and for failing paths.
struct close_file {
    void operator()(FILE *file) const;
};

using text_ptr = std::unique_ptr<char, free_text>;
using file_ptr = std::unique_ptr<FILE, close_file>;

/// Closes a file that was written and tells whether every byte reached it: a disk may be full only now.
/// False leaves in `errno` why (EBADF for an empty guard); true leaves `errno` alone. The guard is empty
/// afterwards in either case.
bool close_written(file_ptr &file);

// --- The C library's functions, made null-tolerant: the same results for arguments that are not null ---

std::size_t s_strlen(const char *text);                      ///< 0 for null
std::size_t s_strcspn(const char *text, const char *reject); ///< 0 for null
int s_atoi(const char *text);                                ///< 0 for null
long s_atol(const char *text);                               ///< 0 for null
double s_atof(const char *text);                             ///< 0.0 for null
int s_strcmp(const char *a, const char *b);                  ///< -1 for null
int s_strncmp(const char *a, const char *b, std::size_t n);  ///< -1 for null
char *s_strchr(const char *text, int ch);                    ///< null for null, and when `ch` is 0
char *s_strstr(const char *haystack, const char *needle);    ///< null for null
char *s_strcpy(char *dst, const char *src);                  ///< unbounded; `dst` unchanged for null
char *s_strcat(char *dst, const char *src);                  ///< unbounded; `dst` unchanged for null

/// 0 when `text` or `endptr` is null: unlike in the C library, `endptr` must be given.
unsigned long s_strtoul(const char *text, char **endptr, int base);

/// A heap copy that the caller frees, or null for null.
char *s_strdup(const char *text);

/// `text` itself, or "" for null: for printing what may be absent.
const char *str(const char *text);

// --- Comparing and searching without case ---

/// Entry i is i, except that 'A'..'Z' map to 'a'..'z'. Index it with an unsigned char.
extern const unsigned char charmap[256];

/// The difference of the `charmap` values where the two first differ, 0 for equal texts; -1 for null.
int s_stricmp(const char *a, const char *b);

/// As `s_stricmp` over at most the first `n` characters; 0 when `n` is below 1.
int s_strnicmp(const char *a, const char *b, int n);

/// The first occurrence of `needle`, or null: none, a null argument or an empty haystack. An empty needle
/// is found at the start. The scan never steps back: after a mismatch it goes on with the next haystack
/// character, so "aab" is not found in "aaab". This is meant.
char *s_stristr(const char *haystack, const char *needle);

/// The same scan from the end backwards: the start of the last occurrence. An empty needle is found at the
/// end; "baa" is not found in "baaa".
char *s_strristr(const char *haystack, const char *needle);

/// Points into `a` just past what both have in common at their start; `a` itself when that is nothing or
/// one is null.
char *sdiff(const char *a, const char *b);

// --- Building texts ---

/// Copies at most `size` - 1 characters and terminates. Returns the number copied; a null `src` stores "".
/// A null `dst` or a `size` below 1 does nothing and gives 0. The two may overlap.
int scpy(char *dst, const char *src, int size);

/// Appends, keeping the result within `size` - 2 characters: one byte stays free on purpose. Returns the
/// resulting length. A `dst` without terminator in its first `size` - 1 characters is cut there, and
/// `size` - 1 is returned. Null or a `size` below 1 does nothing and gives 0.
int scat(char *dst, const char *src, int size);

/// A new heap text of the first `n` - 1 characters (callers pass a length plus one), freed by the caller.
/// Null for null, an `n` below 1 or no memory.
char *smake(const char *src, int n);

/// Copies up to, not including, the first character that stands in `delims` (null: none does), at most
/// `size` - 1. Returns the number copied; 0 and `dst` untouched when `src` or `dst` is null or `size` is
/// below 1.
int schunk(const char *src, const char *delims, char *dst, int size);

/// Puts `prefix` in front of the text in `dst` and returns `dst`. Null, with nothing changed, when the
/// whole would not fit or an argument is null.
/// REQUIRES: `prefix` does not lie in `dst`.
char *spre(char *dst, const char *prefix, int size);

/// The growing text: reallocates `s` (null to begin with) to hold its text and `add`, and returns the new
/// pointer, freed by the caller. `s` unchanged when `add` is null or memory is short.
/// REQUIRES: `add` does not lie in `s`.
///
///     char *all = nullptr;
///     while (fgets(line, sizeof line, file))
///         all = sadd(all, line);
char *sadd(char *s, const char *add);

/// Replaces every `from` by `to`, in place.
void creplace(char *s, int from, int to);

/// Writes `src` into `dst` with every `find`, from left to right, replaced by `repl` (null: ""); what was
/// put in is not searched again. Each piece stops at the room that is left. An empty `find` replaces
/// nothing. Returns `dst`, or null when `src`, `find` or `dst` is null.
/// REQUIRES: `dst` overlaps no other argument.
char *sreplace(const char *src, const char *find, const char *repl, char *dst, int size);

/// Convert in place by the locale. Both return the text's *end* (its terminator), not its start; null for
/// null.
char *s_strlwr(char *text);
char *s_strupr(char *text);

// --- Trimming and words ---

/// What separates the words of a script line.
inline constexpr char blanks[] = " \t";

/// The text without white space at both ends (CR and LF included): points to its first other character, and
/// the end is cut in place. Null for null.
char *s_strtrm(char *s);

/// The next word of `s`, or with a null `s` of the text whose rest is kept in `save`; null when there is
/// none. The word is ended in place. `save` then holds what follows, or null after the last word; it is
/// left as it was when nothing was found, so give it a value before the first call. `save` may be null when
/// one word is all that is wanted.
///
///     char *rest = nullptr;
///     for (char *word = s_strtok(line, blanks, &rest); word; word = s_strtok(nullptr, blanks, &rest))
char *s_strtok(char *s, const char *delims, char **save);

/// Cuts a line after its first word, in place, and returns what follows the blanks and tabs after it: the
/// text to the end of the line, "" when there is none. Null for null.
char *split_name(char *line);

/// Splits `s` in place at every character of `delims`, storing the start of each part; with `multi`, a run
/// of delimiters counts as one. The last of `max` parts keeps the rest with its delimiters. A delimiter at
/// the start or the end has an empty part beside it. Returns the number of parts; 0 for null, an empty `s`
/// or a `max` below 1.
/// REQUIRES: `parts` has room for `max` pointers.
int ssplit(char *s, const char *delims, char **parts, int max, int multi);

// --- Truth words and numbers ---

/// 1 for "true", "yes", "y", "on", "checked", "selected" in any case, and for a number that is not 0; else
/// 0.
int istrue(const char *s);

/// 1 for "false", "no", "n", "off" in any case, and for 0 as a number ("0", "00", "-0", and also "x0": one
/// of the first two characters is a digit); else 0. Not the opposite of `istrue`: "maybe" and null are
/// neither.
int isfalse(const char *s);

/// `n` as decimal text in one static buffer, which the next call overwrites.
const char *number(int n);

/// Puts "," between the thousands of the number at the start of `s`, in place; separators that stand
/// already are passed over. The digits are counted leftwards from the first character that is neither digit
/// nor ",", so a text that begins with a sign stays as it is. Returns `s`, or null with nothing changed
/// when the result does not fit.
char *comma_number(char *s, int size);

/// English three-letter names: Sunday and January first.
extern const char *const days[7];
extern const char *const months[12];

// --- Opening and closing files ---

/// `fopen`, or null when an argument is null.
FILE *s_fopen(const char *path, const char *mode);

/// Closes the file and sets the caller's pointer to null. For a file that was written, `close_written`
/// tells more.
void s_fclose(FILE **fp);

// --- Taking paths apart, in place ---

/// The separator that joined paths are written with, "/" at the start: a text of one character.
extern char Sep[2];

/// True for what separates the components of a path: '/' and '\\'.
constexpr bool is_separator(char c) {
    return c == '/' || c == '\\';
}

/// Sets the character of `Sep`.
void usesep(int sep);

/// Replaces every '/' and '\' by `sep`.
void setsep(char *path, int sep);

/// Cuts the last component off `path` and copies it into `file`; `path` keeps the directory without its
/// last separator, "" when there was none. Returns `path`.
char *strip_file(char *path, char *file, int bfsz);

/// Leaves only the last component. Returns `path`.
char *strip_path(char *path);

/// Cuts the extension off the last component: from its last '.'. A '.' that begins the whole text is not
/// one (".profile" stays), but one after a separator is ("dir/.profile" becomes "dir/"); this is meant.
/// Returns `path`.
char *strip_ext(char *path);

/// Copies into `ext` what follows the first '.' of the last component ("a.tar.gz" gives "tar.gz") and
/// returns the number of characters copied. Without a '.' stores "" and returns 0; null gives 0.
int get_ext(char *ext, const char *path, int bfsz);

/// Cuts `s` at its first CR or LF.
void strip_eol_r(char *s);

/// Skips leading white space and cuts at the first CR or LF after it; blanks before that stay, unlike with
/// `s_strtrm`.
char *strip_whitespace(char *s);

// --- Putting paths together ---

/// Writes `dir`, one separator and `name` into `dst`, whole or not at all. False, with `errno`
/// ENAMETOOLONG, when the joined path does not fit: `dst` then holds as much of `dir` as fits. A null `dir`
/// or `name` is left out; false with EINVAL for a null `dst` or a `size` below 1. `dir` may be `dst`
/// itself.
bool join_path(char *dst, int size, const char *dir, const char *name);

/// Appends `file` to the directory in `result`, with exactly one separator between them unless `result` is
/// empty, and writes every separator of both as `Sep`. Cut at `bfsz` - 1 characters. An empty `file` still
/// gets the separator ("dir" becomes "dir/"); a null one does not. Returns `result`, or null when nothing
/// was joined to nothing, `result` is null or `bfsz` below 1.
/// REQUIRES: `file` does not lie in `result`.
char *attach_path(char *result, const char *file, int bfsz);

/// Joins the components into `path` in the way of `attach_path`. The list ends with a null pointer; a null
/// `first` gives "". Returns `path`, or null when it is null or `bfsz` is below 1.
/// REQUIRES: no component lies in `path`.
char *attach_pathx(char *path, int bfsz, const char *first, ...) __attribute__((sentinel));

/// Appends `ext` exactly as given (pass ".log", not "log"), cut at `bfsz` - 1 characters in all. Returns
/// `path`, or null when it is null or `bfsz` is below 1.
char *attach_ext(char *path, const char *ext, int bfsz);

// --- Where the program is, and other places ---

/// The program's own name: `arg0` (the first word of the command line) after its last separator, up to its
/// first '.'. "./installer.sh" gives "installer", ".hidden" gives "". Null for null or a `bfsz` below 1.
char *exename(char *buffer, const char *arg0, int bfsz);

/// The directory the program was started from, absolute, with "/" between components, "." and ".." resolved
/// by their text alone and no separator at the end ("" is the root directory; a drive keeps it, "C:/").
/// `arg0` is absolute when it starts with a separator or its second character is ':'; otherwise it stands
/// below the working directory. The character after ".." is not looked at: a component "..x" counts as
/// "..". Null for null, a `bfsz` below 1 or a working directory that cannot be told.
char *exepath(char *buffer, const char *arg0, int bfsz);

/// The working directory; null when it does not fit or cannot be told (`errno` says why), or for a null
/// buffer.
char *currentdir(char *buf, int size);

/// Both store "/etc".
char *systemdir(char *buf, int size);
char *windir(char *buf, int size);

/// Makes up the path of a file in `path` (null: "") that does not exist, and creates nothing: the last six
/// characters of `mask` (null: "XXXXXX"), which must be "XXXXXX", are replaced. The mask is cut at 127
/// characters. Logs the result at debug level and returns `result`. Null, with "" stored and `errno` set,
/// for a mask that does not end so (EINVAL), a path that does not fit (ENAMETOOLONG), or when no free name
/// turned up (EEXIST).
/// REQUIRES: `path` and `mask` do not lie in `result`.
char *tempfile(char *result, int bfsz, const char *path, const char *mask);

// --- Wildcards ---
//
// '*' stands for any run of characters, '?' for exactly one; nothing is escaped. Two properties surprise
// and are meant: the character after a '*' is looked for in the text as it is written, so a '?' there only
// finds a '?' ("*?" does not match "abc", "*?x" matches "a?x"), and that search ignores case (which alone
// changes no result). The time is bounded by the product of the two lengths, whatever the pattern.

/// 1 when `text` matches `wild`, exactly or, with `case_sensitive` 0, through `charmap`; else 0, as for
/// null.
int wmatch(const char *text, const char *wild, int case_sensitive);

int wild_match(const char *text, const char *wild);  ///< `wmatch` with case
int wild_imatch(const char *text, const char *wild); ///< `wmatch` without case

/// 1 when any word of `list` matches any pattern of `wilds`, with case or without. Both are split at
/// blanks, tabs and commas, so that no word and no pattern can contain one. 0 when nothing matches, and for
/// null.
int wild_list(const char *list, const char *wilds);
int wild_ilist(const char *list, const char *wilds);

// --- Script files ---

/// Reads the lines of a script that mean something: trimmed, without empty lines and those that begin with
/// '#'.
///
/// A line of more than `text_size` - 1 bytes comes in pieces, each treated as a line; a NUL byte ends its
/// line early. A section begins with a line "[name]" and ends before the next line that begins with "[".
///
///     file_ptr file(s_fopen(path, "r"));
///     script_reader script(file.get());
///     if (script.find_section("install"))
///         while (char *line = script.next_in_section())
///             ...
class script_reader {
  public:
    /// Borrows the file, which must outlive the reader. A null file reads as an empty one.
    explicit script_reader(FILE *file) : file_(file) {}

    /// The next line, null at the end. It stands in the reader: changeable, and valid until the next call.
    char *next();

    /// Reads on to the header of that section, which is compared ignoring case; false when the file has
    /// none further down. One "]" is cut from a header, and only when it is the line's last character, so
    /// "[name] x" never names "name". An empty or null name names no section.
    bool find_section(const char *name);

    /// The next line of the section that `find_section` found; null from its end on, and when none was
    /// found.
    char *next_in_section();

    /// Whether the lines ended because reading failed, `errno` telling why, and not at the end of the file. A
    /// directory can be opened but not read: it holds no lines, and that is no failure.
    bool broke_off() const;

  private:
    FILE *file_;
    bool in_section_ = false;
    char line_[text_size];
};

// --- Formatted text and reports ---

/// `vsnprintf` with bound `maxlen`: returns the length the whole text has, also when it was cut. Only when
/// that length is exactly `maxlen`, or the format fails, is it `maxlen` - 1. Null or a `maxlen` below 1
/// gives 0.
int lprintf(char *s, int maxlen, const char *format, ...) __attribute__((format(printf, 3, 4)));

/// The same behind the text that stands in `s`, with the room that is left as the bound. Returns the length
/// of what was appended, by the same rule.
int lpcat(char *s, int size, const char *format, ...) __attribute__((format(printf, 3, 4)));

/// The system's text for an error number, in `buf`. It is bounded by 1000 and not by `size`, which is not
/// looked at; this is meant. Returns `buf`, or "" when it is null.
/// REQUIRES: `buf` has room for 1000 bytes.
const char *system_error(int errnum, char *buf, int size);

/// `system_error` for the current `errno`.
const char *windows_errmsg(char *buf, int size);

/// One message of the program, as it goes to the log and into a last-error text.
struct message {
    char text[text_size];
};

/// Fills `m` from a format, cut at 999 characters and always terminated; a null format gives "". `errno`
/// stays.
void vmessage(message &m, const char *format, std::va_list args) __attribute__((format(printf, 2, 0)));

/// Appends ", " and the system's text for `errnum`, cut in the same way. `errno` stays.
void add_reason(message &m, int errnum);

/// A module's last-error text.
class last_error {
  public:
    /// Keeps a copy; null clears it. Without memory the text becomes "".
    void set(const char *text) { text_.reset(s_strdup(text)); }

    /// The text, "" when none was set; valid until the next `set`.
    const char *get() const { return str(text_.get()); }

  private:
    text_ptr text_;
};

// --- Time and signals ---

/// The local date and time as 24 characters, "Sun Nov 15 23:02:59 2026"; "Invalid" when the system cannot
/// tell it. Returns `buf`; null for null.
char *make_date(char *buf, int size, time_t t);

/// Seconds since the epoch, with microseconds as the fraction.
double dtime();

/// Sleeps that many milliseconds (below 1: not at all). 0, or -1 when a signal woke it.
int lib_msleep(int ms);

/// Installs `handler`, when given, for SIGTERM, SIGFPE, SIGABRT, SIGILL, SIGSEGV, SIGINT, SIGTRAP, SIGBUS
/// and SIGQUIT; then always ignores SIGABRT, SIGVTALRM, SIGPROF, SIGPIPE and SIGHUP. SIGABRT so ends up
/// ignored either way; meant.
void sig_init(void (*handler)(int));

/// Gives the nine signals that `sig_init` can handle their default action back.
void sig_dflt();

/// Raises `sig` in this process; 0 or what `raise` gives.
int sig_done(int sig);

// --- Encodings ---
//
// The sizes of this group count characters and leave the terminator out: mind the REQUIRES lines.

/// What the path encoding writes behind '_' for a 7-bit character; '*' for those that it does not encode.
/// '=' and '>' share 'J' on purpose, so that '>' comes back as '='.
extern const char trans[128];

/// Turns a name into letters, digits and '_': every other printable character becomes '_' and its `trans`
/// entry, so that "a b/c" gives "a_0b_Fc". It stops when `src` ends or `size` characters are reached, which
/// an encoded pair may pass by one. Avoid control codes: they write nothing and still move on by one,
/// leaving what stood in `dst`. Bytes above 127 are outside the encoding and copied as they are. Returns
/// `dst`; null for null.
/// REQUIRES: `dst` has room for `size` + 2 bytes and does not overlap `src`.
char *encode_path(char *dst, const char *src, int size);

/// The same in place; here the result ends at the first control code. Returns `s`, unchanged when memory is
/// short.
/// REQUIRES: `s` has room for `size` + 2 bytes.
char *xencode_path(char *s, int size);

/// The reverse, writing at most `size` characters. A '_' that no character of `trans` follows is copied as
/// it is. Returns `dst`; null for null.
/// REQUIRES: `dst` has room for `size` + 1 bytes.
char *decode_path(char *dst, const char *src, int size);

/// The same in place, producing exactly `len` characters: those that `s` has not are NUL bytes.
/// REQUIRES: `s` has room for `len` + 1 bytes.
char *xdecode_path(char *s, int len);

/// The URL of the running web-server script: the scheme is SERVER_PROTOCOL up to its '/' with its case
/// kept, then "://", SERVER_NAME, SCRIPT_NAME and the formatted text (cut at 999 characters), all within
/// `size` bytes. Returns `url`; null when one of the three environment variables is not set, or for null.
char *make_url(char *url, int size, const char *format, ...) __attribute__((format(printf, 3, 4)));

/// Adds to each of at most `size` characters the key's character at the same place (the key repeats),
/// modulo 256. Not a cipher. A sum of 0 ends the text early for its reader; an empty key changes nothing.
/// Returns `out`, which may be `text` itself; null for null.
/// REQUIRES: `out` has room for `size` + 1 bytes.
char *simple_crypt(const char *text, const char *key, char *out, int size);

/// The same with subtraction: gives back what `simple_crypt` took.
char *simple_decrypt(const char *text, const char *key, char *out, int size);

/// The value of a hexadecimal digit character in either case, -1 for any other. Index it with an unsigned
/// char.
extern const signed char hex_arrray[256];

/// Two lower-case digits for each byte of the text `bin`, until at least `size` digits are written. Returns
/// `hex`; null for null.
/// REQUIRES: `hex` has room for `size` + 2 bytes.
char *s_bintohex(const char *bin, char *hex, int size);

/// Writes `size` bytes, each with the first character of `hex` as both its digits: "a" with 2 gives 0xAA
/// 0xAA. The input is never moved on; this is meant. No bytes when `hex` is empty; a character that is no
/// digit counts as 0. Returns `bin`; null for null.
/// REQUIRES: `bin` has room for `size` + 1 bytes.
char *s_hextobin(const char *hex, char *bin, int size);

/// Writes the text's length as a 32-bit integer in the machine's byte order, then its characters. 1, or 0
/// for null, a failed write or a text that such a length cannot tell.
int pstring_write(FILE *file, const char *text);

/// Reads what `pstring_write` wrote into a heap text, which the caller frees. Null for null, at the end of
/// the file, for a text shorter than its length says, and for a length of 0 or less: an empty text cannot
/// be read back.
char *pstring_read(FILE *file);

/// Does nothing and returns its argument.
int lib_free(int x);

} // namespace installer

#endif
