#include "installer/quest.h"

#include "installer/file.h"
#include "installer/ini.h"
#include "installer/lib.h"
#include "installer/log.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>

namespace installer {

namespace {

constexpr std::uint32_t list_step = 5;

last_error error;
bool input_ended = false;

/// A caller's buffer size, as the string library takes it.
int size_of(std::uint32_t bfsz) {
    return static_cast<int>(std::min<std::uint32_t>(bfsz, INT_MAX));
}

const quest *entry_at(const questions *x, std::uint32_t index) {
    return x != nullptr && index < x->count ? &x->list[index] : nullptr;
}

const char *text_at(const questions *x, std::uint32_t index, char *quest::*field) {
    const quest *entry = entry_at(x, index);
    return entry != nullptr ? entry->*field : nullptr;
}

// --- The lines of a script ---

enum class word_form {
    word,         // one word
    word_or_none, // one word; "-" stands for none
    rest          // the rest of the line, its escapes converted
};

struct line_word {
    char *quest::*field;
    word_form form;
    const char *missing; // what is logged when it is not there
};

constexpr line_word question_line[] = {
    {&quest::setting, word_form::word, "Missing setting label"},
    {&quest::control, word_form::word_or_none, "Missing control"},
    {&quest::control_cmp, word_form::word_or_none, "Missing control comparison"},
    {&quest::help_id, word_form::word, "Missing Help ID text"},
    {&quest::text, word_form::rest, "Missing question text"},
};
constexpr line_word error_line[] = {
    {&quest::setting, word_form::word, "Missing setting label"},
    {&quest::help_id, word_form::word, "Missing Help ID text"},
    {&quest::text, word_form::rest, "Missing question text"},
};
// In the next two the message for the third word names the help identifier that stands there in the lines
// above. That is meant: there is one message for each place in a line.
constexpr line_word loop_line[] = {
    {&quest::setting, word_form::word, "Missing setting label"},
    {&quest::text, word_form::word, "Missing Help ID text"},
};
constexpr line_word exist_line[] = {
    {&quest::text, word_form::word, "Missing setting label"},
    {&quest::setting, word_form::word, "Missing Help ID text"},
};

struct line_type {
    const char *keyword;
    QType type;
    std::span<const line_word> words;
};

constexpr line_type line_types[] = {
    {"Text", QText, question_line},
    {"YN", QYN, question_line},
    {"Dir", QDir, question_line},
    {"DirExist", QDirExist, question_line},
    {"DirEmpty", QDirEmpty, question_line},
    {"File", QFile, question_line},
    {"FileExist", QFileExist, question_line},
    {"FileName", QFileName, question_line},
    {"Copy", QCopy, question_line},
    {"Error", QError, error_line},
    {"Loop", QLoop, loop_line},
    {"Exist", QXExist, exist_line},
};
constexpr line_type unknown_type = {nullptr, QUnknown, question_line};

const line_type &type_of(const char *keyword) {
    for (const line_type &type : line_types)
        if (s_stricmp(keyword, type.keyword) == 0)
            return type;
    emsg("Unknown question type '%s'", keyword);
    return unknown_type;
}

/// Takes the next word, or all that is left, from a line; null when nothing is.
char *take(word_form form, char **rest) {
    if (form != word_form::rest)
        return s_strtok(nullptr, blanks, rest);
    char *text = s_strtrm(*rest);
    if (text == nullptr || *text == '\0')
        return nullptr;
    cvt_linefeeds(text);
    return text;
}

enum class line_read { whole, short_of_words, short_of_memory };

/// Fills a zeroed entry from a line; says what is missing, when a word is.
line_read fill(quest &entry, char *line) {
    char *rest = nullptr;
    const line_type &type = type_of(s_strtok(line, blanks, &rest));
    entry.type = type.type;
    for (const line_word &word : type.words) {
        const char *text = take(word.form, &rest);
        if (text == nullptr) {
            emsg("%s", word.missing);
            return line_read::short_of_words;
        }
        if (word.form == word_form::word_or_none && s_strcmp(text, "-") == 0)
            continue;
        entry.*word.field = s_strdup(text);
        if (entry.*word.field == nullptr)
            return line_read::short_of_memory;
    }
    return line_read::whole;
}

/// Frees an entry's texts and zeroes it, ready for the next line.
void clear(quest &entry) {
    for (const line_word &word : question_line)
        std::free(entry.*word.field);
    entry = {};
}

/// Sees to it that the list has a zeroed slot behind its last entry.
bool make_room(questions &x) {
    if (x.count % list_step != 0)
        return true;
    auto *list =
        static_cast<quest *>(std::realloc(x.list, (std::size_t{x.count} + list_step) * sizeof(quest)));
    if (list == nullptr)
        return false;
    std::fill_n(list + x.count, list_step, quest{});
    x.list = list;
    return true;
}

/// False without memory.
bool add_line(questions &x, char *line) {
    if (!make_room(x))
        return false;
    const line_read read = fill(x.list[x.count], line);
    if (read == line_read::whole)
        ++x.count;
    else
        clear(x.list[x.count]);
    return read != line_read::short_of_memory;
}

/// False without memory: then the entries are not all there.
bool read_section(questions &x, script_reader &lines, const char *section) {
    x.section = s_strdup(section);
    bool whole = x.section != nullptr;
    while (char *line = whole ? lines.next_in_section() : nullptr)
        whole = add_line(x, line);
    return whole;
}

// --- The prompt and the reply ---

constexpr std::ptrdiff_t line_width = 79;

bool is_blank(char c) {
    return c == ' ' || c == '\t';
}

/// Where a line of the prompt ends: at the last blank among its characters and the one behind them, or, when
/// there is none, behind the line. REQUIRES: `line` is longer than line_width.
const char *line_end(const char *line) {
    const char *at = line + line_width;
    while (at > line && !is_blank(*at))
        --at;
    return at > line ? at : line + line_width;
}

/// Shows a prompt, wrapped when it is longer than a screen line. The character at which a line ends is not
/// shown: where a line was cut for want of a blank, one character of the text is lost. That is meant.
void show(const char *prompt) {
    if (std::strlen(prompt) > line_width + 1)
        while (std::strlen(prompt) > line_width) {
            const char *end = line_end(prompt);
            std::printf("%.*s\n", static_cast<int>(end - prompt), prompt);
            prompt = end + 1;
            prompt += std::strspn(prompt, blanks);
        }
    std::printf("%s ", prompt);
}

void show_question(const questions &x, const quest &entry, const char *dflt) {
    char prompt[text_size] = "";
    if (x.ini != nullptr)
        ini_replace(x.ini, entry.text, prompt, sizeof prompt);
    else
        scpy(prompt, entry.text, sizeof prompt);
    lpcat(prompt, sizeof prompt, " [%s]?", dflt);
    show(prompt);
}

// --- The checks: each returns the value to store, or null when the answer is refused ---

bool has(const quest &entry, QType bit) {
    return (entry.type & bit) != 0;
}

void cut_separator(char *path) {
    const std::size_t length = std::strlen(path);
    if (length > 0 && is_separator(path[length - 1]))
        path[length - 1] = '\0';
}

const char *check_exists(const quest &entry, const char *answer) {
    if (file_exist(answer) != 0)
        return answer;
    quest_seterror(has(entry, QDir) ? "Directory '%s' must exist" : "File '%s' must exist", answer);
    return nullptr;
}

bool holds_entries(const char *directory) {
    xfilehandle *listing = nullptr;
    file *entry = file_first(&listing, directory, "*");
    const bool found = entry != nullptr;
    file_free(&entry);
    file_last(&listing);
    return found;
}

/// A directory that cannot be listed, above all one that is not there yet, counts as empty.
const char *check_empty(const char *answer) {
    const bool full = holds_entries(answer);
    errno = 0; // neither a listing that did not open nor one that found something causes what follows
    if (!full)
        return answer;
    quest_seterror("Directory '%s' must be empty", answer);
    return nullptr;
}

const char *check_yes_no(const char *answer) {
    if (istrue(answer))
        return "true";
    if (isfalse(answer))
        return "false";
    quest_seterror("You must answer either Yes or No");
    return nullptr;
}

const char *check(const quest &entry, char *answer) {
    if (has(entry, QDir))
        cut_separator(answer);
    if (has(entry, QExist))
        return check_exists(entry, answer);
    if (entry.type == QDirEmpty)
        return check_empty(answer);
    if (has(entry, QYN))
        return check_yes_no(answer);
    if (has(entry, QFileName))
        return strip_ext(strip_path(answer));
    return answer;
}

} // namespace

questions *quest_init(struct ini *ini) {
    auto *x = static_cast<questions *>(std::calloc(1, sizeof(questions)));
    if (x != nullptr)
        x->ini = ini;
    return x;
}

int quest_load(questions *x, const char *file, const char *section) {
    errno = 0;
    if (x == nullptr || file == nullptr || section == nullptr)
        return 0;
    if (x->section != nullptr && s_stricmp(x->section, section) == 0)
        return 1;
    quest_clear(x);
    const file_ptr script(s_fopen(file, "r"));
    if (!script) {
        quest_seterror("Error opening '%s'", file);
        return 0;
    }
    script_reader lines(script.get());
    if (!lines.find_section(section) && !lines.broke_off()) {
        emsg("Section '%s' not found", section);
        return 0;
    }
    if (read_section(*x, lines, section) && !lines.broke_off())
        return 1;
    emsg("Error reading '%s', %s", file, std::strerror(errno));
    quest_clear(x);
    return 0;
}

void cvt_linefeeds(char *text) {
    if (text == nullptr)
        return;
    char *out = text;
    for (const char *in = text; *in != '\0'; ++in) {
        const bool escape = *in == '\\' && in[1] != '\0';
        if (escape)
            ++in;
        *out++ = !escape ? *in : *in == 'n' ? '\n' : *in == 't' ? '\t' : *in;
    }
    // No terminator here: what stood behind the text's new end follows it, up to the old end.
}

void quest_clear(questions *x) {
    if (x == nullptr || x->section == nullptr)
        return;
    std::for_each_n(x->list, x->count, clear);
    std::free(x->list);
    std::free(x->section);
    x->list = nullptr;
    x->section = nullptr;
    x->count = 0;
}

void quest_free(questions **x) {
    if (x == nullptr || *x == nullptr)
        return;
    quest_clear(*x);
    std::free(*x);
    *x = nullptr;
}

std::uint32_t quest_count(const questions *x) {
    return x != nullptr ? x->count : 0;
}

QType quest_type(const questions *x, std::uint32_t index) {
    const quest *entry = entry_at(x, index);
    return entry != nullptr ? entry->type : QUnknown;
}

const char *quest_text(const questions *x, std::uint32_t index) {
    return text_at(x, index, &quest::text);
}

const char *quest_help(const questions *x, std::uint32_t index) {
    return text_at(x, index, &quest::help_id);
}

const char *quest_setting(const questions *x, std::uint32_t index) {
    return text_at(x, index, &quest::setting);
}

const char *quest_control(const questions *x, std::uint32_t index) {
    return text_at(x, index, &quest::control);
}

const char *quest_control_cmp(const questions *x, std::uint32_t index) {
    return text_at(x, index, &quest::control_cmp);
}

char *quest_default(const questions *x, std::uint32_t index, char *buffer, std::uint32_t bfsz) {
    const quest *entry = entry_at(x, index);
    if (entry == nullptr || x->ini == nullptr || buffer == nullptr || bfsz == 0)
        return nullptr;
    const char *value = ini_value_name(x->ini, entry->setting);
    if (value == nullptr)
        return nullptr;
    if (has(*entry, QYN))
        value = istrue(value) ? "y" : "n";
    scpy(buffer, value, size_of(bfsz));
    return buffer;
}

int quest_ask(const questions *x, std::uint32_t index, char *answer, std::uint32_t bfsz) {
    errno = 0;
    const quest *entry = entry_at(x, index);
    if (entry == nullptr || answer == nullptr || bfsz == 0)
        return 0;
    char dflt[text_size] = "";
    quest_default(x, index, dflt, sizeof dflt);
    show_question(*x, *entry, dflt);
    quest_read(answer, bfsz);
    if (*answer != '\0')
        return 1;
    if (*dflt == '\0') {
        quest_seterror("You must enter an answer");
        return 0;
    }
    scpy(answer, dflt, size_of(bfsz));
    return 1;
}

int quest_read(char *reply, std::uint32_t bfsz) {
    if (reply == nullptr || bfsz == 0)
        return 0;
    std::fflush(stdout); // the prompt is seen before the reply is typed
    errno = 0;           // a console that could not show it is not why an answer is missing
    input_ended = std::fgets(reply, size_of(bfsz), stdin) == nullptr;
    if (input_ended && std::ferror(stdin) != 0)
        emsg("Error reading the reply, %s", std::strerror(errno));
    if (input_ended)
        *reply = '\0';
    const char *text = s_strtrm(reply);
    std::memmove(reply, text, std::strlen(text) + 1);
    return input_ended ? 0 : 1;
}

int quest_input_ended() {
    return input_ended ? 1 : 0;
}

int quest_answer(questions *x, std::uint32_t index, char *answer) {
    errno = 0;
    const quest *entry = entry_at(x, index);
    if (entry == nullptr || answer == nullptr)
        return 0;
    const char *value = check(*entry, answer);
    if (value == nullptr)
        return 0;
    if (x->ini != nullptr)
        ini_add_name(x->ini, entry->setting, value);
    return 1;
}

void quest_seterror(const char *format, ...) {
    if (format == nullptr)
        return;
    const int reason = errno;
    message m;
    va_list args;
    va_start(args, format);
    vmessage(m, format, args);
    va_end(args);
    if (reason != 0)
        add_reason(m, reason);
    emsg("%s", m.text);
    error.set(m.text);
}

const char *quest_error() {
    return error.get();
}

} // namespace installer
