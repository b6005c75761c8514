// The question script: one section of typed questions, asked on the console and stored as settings.
//
//     [install]
//     # type     setting      control   compare   help      text
//     YN         upgrade      -         -         up_help   Is this an upgrade?
//     DirExist   install_dir  upgrade   no        dir_help  Where is $(product)\nto be installed?
//
//     # type     word         word
//     Exist      /srv/www     have_www
//     Loop       confirmed    0
//     Error      have_www     www_help  There is no web server here.
//
// A set of questions holds one section of one file. Its entries are numbered from 0; an entry is a question,
// or one of the control entries Copy, Exist, Error and Loop, which the product actions carry out themselves.
// For each question an action calls quest_ask and then quest_answer, and again as it sees fit when either
// refuses.
//
//     questions *set = quest_init(store);
//     if (quest_load(set, "setup.q", "install"))
//         for (unsigned int i = 0; i < quest_count(set); ++i)
//             while (!quest_ask(set, i, reply, sizeof reply) || !quest_answer(set, i, reply))
//                 printf("%s\n", quest_error());
//     quest_free(&set);

#ifndef INSTALLER_QUEST_H
#define INSTALLER_QUEST_H

#include <cstdint>

namespace installer {

struct ini;

/// The type of an entry; QExist and QEmpty are flags that occur only within others. The words are the types'
/// keywords.
enum QType : std::uint32_t {
    QUnknown = 0,     ///< the type of an entry whose keyword is unknown
    QText = 1,        ///< "Text": any text
    QYN = 2,          ///< "YN": yes or no, stored as "true" or "false"
    QDir = 4,         ///< "Dir": a directory
    QFile = 8,        ///< "File": a file
    QFileName = 16,   ///< "FileName": stored without its directory and extension
    QExist = 256,     ///< flag: the path must exist
    QDirExist = 260,  ///< "DirExist": QDir and QExist
    QFileExist = 264, ///< "FileExist": QFile and QExist
    QXExist =
        512, ///< "Exist" (not QExist): control entry, a path and the setting that tells whether it exists
    QCopy = 1024,     ///< "Copy": control entry, the setting named by `text` is copied to `setting`
    QError = 2048,    ///< "Error": control entry, stops with `text` when `setting` is false
    QLoop = 4096,     ///< "Loop": control entry, goes to the entry numbered `text` when `setting` is false
    QEmpty = 8192,    ///< flag: the directory must be empty
    QDirEmpty = 8196, ///< "DirEmpty": QDir and QEmpty
};

constexpr QType operator|(QType a, QType b) {
    return static_cast<QType>(std::uint32_t{a} | std::uint32_t{b});
}
constexpr QType operator&(QType a, QType b) {
    return static_cast<QType>(std::uint32_t{a} & std::uint32_t{b});
}

/// One entry; the texts are owned, null when absent.
struct quest {
    char *text;        ///< the question with its escapes converted; for Loop and Exist a single word
    char *setting;     ///< the setting that receives the answer
    char *control;     ///< the setting that decides whether the question is asked
    char *control_cmp; ///< what that setting is compared with
    char *help_id;     ///< a word that names a help text
    QType type;
};

/// A set of questions; made by quest_init, released by quest_free.
struct questions {
    std::uint32_t count; ///< entries loaded
    char *last_error;    ///< not used: the last error is the module's
    char *section;       ///< owned, the name of the loaded section; null when nothing is loaded
    quest *list;         ///< owned, the entries in the order of the file
    struct ini *ini;     ///< borrowed: defaults are read from it, answers go to it
};

// --- Make and fill ---

/// Returns a new, empty set that works with the store `ini`, which may be null; null without memory.
questions *quest_init(ini *ini);

/// Loads `section` of `file`, in place of what was loaded. Section names are compared ignoring case; when the
/// section is loaded already, nothing is read, not even from another file.
///
/// Returns 1, or 0 with an empty set: for a null argument, when the file cannot be opened (last error "Error
/// opening '%s'" with the system's reason) or when it has no such section (logged: "Section '%s' not found").
/// (After a null argument the set is as it was.) 0 also when the file cannot be read to its end or memory is short
/// (logged: "Error reading '%s', %s"): a script is held whole or not at all.
///
/// A line that lacks a word is logged and dropped: "Missing setting label", "Missing control", "Missing
/// control comparison", "Missing Help ID text", "Missing question text". An unknown keyword is logged as
/// "Unknown question type '%s'" and its line is loaded as an entry of type 0 with the words of a question.
int quest_load(questions *x, const char *file, const char *section);

/// Converts the escapes of a question's text in place: a backslash and "n" become a line feed, with "t" a
/// tab, with any other character that character; a backslash at the end stays.
///
/// The text is moved over the removed backslashes and no new end is written: after k escapes the last k
/// characters of the unconverted text follow ("one\ntwo" ends in "twoo"). That is meant: scripts allow for
/// it.
void cvt_linefeeds(char *text);

// --- Look: each returns 0 or null for a null set or an index not below the count; texts are borrowed ---

std::uint32_t quest_count(const questions *x);
QType quest_type(const questions *x, std::uint32_t index);
const char *quest_text(const questions *x, std::uint32_t index);
const char *quest_help(const questions *x, std::uint32_t index);
const char *quest_setting(const questions *x, std::uint32_t index);
const char *quest_control(const questions *x, std::uint32_t index);
const char *quest_control_cmp(const questions *x, std::uint32_t index);

// --- Ask ---

/// Writes the default answer of an entry, cut to `bfsz` bytes, into `buffer` and returns it: the value of the
/// entry's setting, as "y" or "n" for a YN question; "$(name)" references stay as they are. Returns null and
/// leaves `buffer` alone when the setting has no value, the set no store, or an argument is bad.
char *quest_default(const questions *x, std::uint32_t index, char *buffer, std::uint32_t bfsz);

/// Shows an entry's text, its references expanded, with " [default]?" behind it, and reads the reply from
/// standard input into `answer`, at most `bfsz`-1 characters, trimmed. A prompt of more than 80 characters is
/// wrapped into lines of at most 79. An empty reply, or the end of the input, takes the default; a line
/// longer than `answer` is read in pieces, the rest at the next call.
///
/// Returns 1 with an answer; 0 without one (last error "You must enter an answer") or for a bad argument.
int quest_ask(const questions *x, std::uint32_t index, char *answer, std::uint32_t bfsz);

/// Checks `answer` by the entry's type and stores it. Returns 1 when it is accepted, also when the store then
/// refuses the value or there is no store; 0 for a bad argument, or when the answer is refused, with nothing
/// stored and one of these as the last error: "Directory '%s' must exist", "File '%s' must exist", "Directory
/// '%s' must be empty", "You must answer either Yes or No". `answer` is changed in place: a directory loses
/// one separator at its end, a FileName its directory and extension.
int quest_answer(questions *x, std::uint32_t index, char *answer);

/// Shows what was printed so far and reads one line from standard input into `reply`, at most `bfsz`-1
/// characters, trimmed: what quest_ask does once it has printed the prompt. Returns 1; 0 at the end of the
/// input, with an empty reply, or for a bad argument. `errno` is 0 afterwards, or why the reading failed.
int quest_read(char *reply, std::uint32_t bfsz);

/// Returns 1 when the last quest_ask or quest_read met the end of the input, 0 when it read a line, even an
/// empty one.
int quest_input_ended();

// --- Errors ---

/// Makes the formatted text the last error of this module and logs it; when `errno` is set, ", " and the
/// system's text for it follow. `errno` is neither asked for its age nor changed: who calls this sees to it.
/// A null format does nothing.
void quest_seterror(const char *format, ...) __attribute__((format(printf, 1, 2)));

/// Returns the last error, "" when there never was one; valid until the next one.
const char *quest_error();

// --- Release ---

/// Empties a set in which a section is loaded; does nothing otherwise.
void quest_clear(questions *x);

/// Empties and frees the set and sets `*x` to null; does nothing for null.
void quest_free(questions **x);

} // namespace installer

#endif
