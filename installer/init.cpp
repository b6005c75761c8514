#include "installer/init.h"

#include "installer/array.h"
#include "installer/file.h"
#include "installer/ini.h"
#include "installer/log.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <string>

namespace installer {

namespace {

last_error error;

// --- What the commands do ---

/// Expands a path of the script. The work buffer is larger than a path, so that one that does not fit is
/// seen, not cut.
bool expand_path(ini *x, const char *text, char (&path)[path_size]) {
    char whole[text_size] = "";
    ini_replace(x, text, whole, sizeof whole);
    if (std::strlen(whole) >= sizeof path) {
        emsg("Path too long '%s'", text);
        return false;
    }
    scpy(path, whole, sizeof path);
    return true;
}

/// The value of the setting `word`, or the word itself when that setting has none.
const char *value_or_word(ini *x, const char *word) {
    const char *value = ini_value_name(x, word);
    return value != nullptr ? value : word;
}

void test_file(ini *x, const init_item &item) {
    char path[path_size];
    const bool exists = expand_path(x, item.a, path) && file_exist(path) != 0;
    ini_add_name(x, item.b, exists ? "true" : "false");
}

void copy_setting(ini *x, const init_item &item) {
    ini_add_name(x, item.a,
                 value_or_word(x, item.b)); // the store takes a value of its own: one setting may be both
}

void find_web_fact(ini *x, const init_item &item) {
    char value[text_size] = "";
    char reason[text_size] = "";
    const auto wanted = [&](IItemMode fact) { return item.mode == fact ? value : nullptr; };
    if (init_find_http_conf(wanted(IHTTP_User), wanted(IHTTP_Group), wanted(IHTTP_Root),
                            wanted(IHTTP_Scripts), reason)) {
        ini_add_name(x, item.a, value);
        return;
    }
    std::printf("ERROR: %s\n", reason);
    ini_add_name(x, item.b, "true");
}

/// The local time in the operator's format; "" when that gives nothing or more than the buffer holds.
void format_now(const char *format, char (&text)[text_size]) {
    const std::time_t now = std::time(nullptr);
    const std::tm *local = std::localtime(&now);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored                                                                               \
    "-Wformat-nonliteral" // the format is a setting: strftime reads no other arguments by it
    if (local == nullptr || std::strftime(text, sizeof text, format, local) == 0)
        text[0] = '\0';
#pragma GCC diagnostic pop
}

void stamp_time(ini *x, const init_item &item) {
    const char *format = ini_value_name(x, item.a);
    if (format == nullptr) {
        emsg("TimeDate '%s' is NULL", str(item.a));
        return;
    }
    char text[text_size];
    format_now(format, text);
    ini_add_name(x, item.b, text);
}

void write_value(ini *x, const init_item &item) {
    char path[path_size];
    if (!expand_path(x, item.a, path) || file_would_block(path))
        return;
    file_ptr out(file_open(path, "w"));
    if (!out) {
        emsg("Failed to write (%s), %s", path, std::strerror(errno));
        return;
    }
    std::fputs(str(value_or_word(x, item.b)), out.get());
    if (!close_written(out))
        emsg("Error writing to '%s', %s", path, std::strerror(errno));
}

/// All that is left in `in`, line ends included; nothing when that is nothing, and, with errno, when it could not
/// be read or held. (Joined in a std::string: sadd would walk over the whole text again for each line.)
std::optional<std::string> read_all(FILE *in) {
    errno = 0;
    std::optional<std::string> all;
    char piece[text_size];
    try {
        while (std::fgets(piece, sizeof piece, in) != nullptr) {
            if (!all)
                all.emplace();
            all->append(piece);
        }
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return std::nullopt;
    }
    if (std::ferror(in) != 0)
        return std::nullopt;
    return all;
}

void read_value(ini *x, const init_item &item) {
    char path[path_size];
    if (!expand_path(x, item.a, path) || file_would_block(path))
        return;
    const file_ptr in(file_open(path, "r"));
    const std::optional<std::string> content = in ? read_all(in.get()) : std::nullopt;
    if (!in || (!content && errno != 0)) {
        emsg("Failed to read (%s), %s", path, std::strerror(errno));
        return;
    }
    ini_add_name(x, item.b, content ? content->c_str() : nullptr);
}

/// The commands of the script, for the loader (keyword to mode) and for the run (mode to action).
constexpr struct {
    const char *keyword;
    IItemMode mode;
    void (*run)(ini *x, const init_item &item);
} commands[] = {
    {"Exist", IExist, test_file},
    {"Copy", ICopy, copy_setting},
    {"HTTP_User", IHTTP_User, find_web_fact},
    {"HTTP_Group", IHTTP_Group, find_web_fact},
    {"HTTP_Root", IHTTP_Root, find_web_fact},
    {"HTTP_Scripts", IHTTP_Scripts, find_web_fact},
    {"TimeDate", ITimeDate, stamp_time},
    {"WFile", IWFile, write_value},
    {"RFile", IRFile, read_value},
};

bool condition_holds(ini *x, const init_item &item) {
    if (item.compare == nullptr)
        return true;
    return s_strcmp(value_or_word(x, item.control), item.compare) == 0;
}

// --- Reading the script ---

/// The words of a line behind the command, in their order.
constexpr struct {
    char *init_item::*field;
    bool dash_is_none;
} operands[] = {
    {&init_item::a, false},
    {&init_item::b, false},
    {&init_item::control, true},
    {&init_item::compare, true},
};

struct item_deleter {
    void operator()(init_item *item) const {
        void *slot = item;
        init_item_free(&slot);
    }
};
using item_ptr = std::unique_ptr<init_item, item_deleter>;

item_ptr new_item() {
    return item_ptr(static_cast<init_item *>(std::calloc(1, sizeof(init_item))));
}

/// Sets the mode; an unknown command leaves it as it is, so an item kept from a short line has that line's.
void set_mode(init_item &item, const char *keyword) {
    for (const auto &command : commands)
        if (s_strcmp(keyword, command.keyword) == 0) {
            item.mode = command.mode;
            return;
        }
    emsg("Unknown init command '%s'", keyword);
}

enum class line_read { whole, short_of_words, short_of_memory };

/// Fills the item from the words of a line, as far as they go.
line_read fill(init_item &item, char *line) {
    char *rest = nullptr;
    set_mode(item, s_strtok(line, blanks, &rest));
    for (const auto &operand : operands) {
        const char *word = s_strtok(nullptr, blanks, &rest);
        if (word == nullptr)
            return line_read::short_of_words;
        const bool none = operand.dash_is_none && s_strcmp(word, "-") == 0;
        std::free(item.*operand.field);
        item.*operand.field = none ? nullptr : s_strdup(word);
        if (!none && item.*operand.field == nullptr)
            return line_read::short_of_memory;
    }
    return line_read::whole;
}

/// Adds an item for each line of five words. The item of a shorter line serves the next one, with what it
/// holds already. False, with errno, when the script could not be read to its end or held: a line without its
/// condition would do harm.
bool read_items(array *list, FILE *script) {
    script_reader lines(script);
    item_ptr item;
    while (char *line = lines.next()) {
        if (!item)
            item = new_item();
        const line_read read = item ? fill(*item, line) : line_read::short_of_memory;
        if (read == line_read::short_of_words)
            continue;
        if (read == line_read::short_of_memory || !array_add(list, item.get())) {
            errno = ENOMEM;
            return false;
        }
        static_cast<void>(item.release());
    }
    return !lines.broke_off();
}

// --- The web server's configuration file ---

char *next_word(char **rest) {
    return s_strtok(nullptr, blanks, rest);
}

/// A path without the quotes around it. Words end at blanks, so a quoted path is cut at its first blank and
/// loses the character before that instead of its closing quote.
char *unquoted(char *path) {
    if (path == nullptr || *path != '"')
        return path;
    ++path;
    if (*path != '\0')
        path[std::strlen(path) - 1] = '\0';
    return path;
}

char *next_path(char **rest) {
    return unquoted(next_word(rest));
}

/// The directory that "ScriptAlias <alias> <directory>" names, when the alias is that of the scripts.
char *script_path(char **rest) {
    const char *alias = next_word(rest);
    return s_strstr(alias, "cgi-bin") != nullptr ? next_path(rest) : nullptr;
}

/// The directives that are read, in the order in which missing ones are told.
constexpr struct directive {
    const char *name;
    char *(*value)(
        char **rest); ///< takes the value from the words behind the name; null when it is not there
    int (*account)(
        const char *name); ///< gives the number of the account that the value names, or null for a path
    const char *kind;      ///< the account in the log
    char *known;           ///< where the value is kept
    int *done;             ///< whether it is known
} directives[] = {
    {"Group", next_word, file_getgid, "group", http_group, &done_group},
    {"User", next_word, file_getuid, "user", http_user, &done_user},
    {"DocumentRoot", next_path, nullptr, nullptr, http_root, &done_root},
    {"ScriptAlias", script_path, nullptr, nullptr, http_scripts, &done_scripts},
};

/// Keeps a value; false, with the reason in `errmsg`, when it names an account that does not exist.
bool keep(const directive &what, const char *value, char *errmsg) {
    if (what.account != nullptr) {
        const int id = what.account(value);
        if (id < 0) {
            lprintf(errmsg, text_size, "%s '%s' has bad uid '%d'", what.name, value, id);
            return false;
        }
        dmsg("Found %s [%s]", what.kind, value);
    }
    scpy(what.known, value, text_size);
    *what.done = 1;
    return true;
}

bool read_directive(char *line, char *errmsg) {
    char *rest = nullptr;
    const char *name = s_strtok(line, blanks, &rest);
    for (const directive &known : directives)
        if (s_stricmp(name, known.name) == 0) {
            const char *value = known.value(&rest);
            return value == nullptr || keep(known, value, errmsg);
        }
    return true;
}

bool all_done() {
    return std::all_of(std::begin(directives), std::end(directives),
                       [](const directive &known) { return *known.done != 0; });
}

bool read_configuration(FILE *conf, char *errmsg) {
    script_reader lines(conf);
    while (char *line = lines.next()) {
        if (!read_directive(line, errmsg))
            return false;
        if (all_done())
            break;
    }
    return true;
}

/// Opens the configuration file. `errno` stays as it is when one is found: the tries before it are no
/// failure.
file_ptr open_configuration() {
    const int before = errno;
    for (const char *path : http_files) {
        dmsg("Is Httpd conf?[%s]", path);
        if (file_ptr conf{s_fopen(path, "r")}) {
            dmsg("Httpd conf is [%s]", path);
            errno = before;
            return conf;
        }
    }
    return nullptr;
}

void tell_missing(char *errmsg) {
    scpy(errmsg, "Could not find", text_size);
    for (const directive &fact : directives)
        if (*fact.done == 0) {
            scat(errmsg, ", ", text_size);
            scat(errmsg, fact.name, text_size);
        }
}

using wanted_facts =
    char *const[std::size(directives)]; // buffers, null when not wanted, as `directives` are ordered

bool known(const wanted_facts &wanted) {
    for (std::size_t i = 0; i < std::size(wanted); ++i)
        if (wanted[i] != nullptr && *directives[i].done == 0)
            return false;
    return true;
}

/// Reads the configuration file; false, with the reason in `errmsg`, unless every wanted fact is known then.
bool search(const wanted_facts &wanted, char *errmsg) {
    const file_ptr conf = open_configuration();
    if (!conf) {
        scpy(errmsg, "Cannot find httpd.conf file", text_size);
        return false;
    }
    if (!read_configuration(conf.get(), errmsg))
        return false;
    if (known(wanted))
        return true;
    tell_missing(errmsg);
    return false;
}

} // namespace

const char *const http_files[8] = {
    "/etc/apache/httpd.conf",
    "/etc/httpd/conf/httpd.conf",
    "/etc/httpd/httpd.conf",
    "/usr/local/apache/conf/httpd.conf",
    "/usr/local/httpd/conf/httpd.conf",
    "/usr/local/apache/etc/httpd.conf",
    "/usr/internet/httpd/public/conf/httpd.conf",
    "/opt/apache/conf/httpd.conf",
};

char http_user[text_size];
char http_group[text_size];
char http_root[text_size];
char http_scripts[text_size];
int done_user, done_group, done_root, done_scripts;

init_s *init_init() {
    std::unique_ptr<init_s> x(new (std::nothrow) init_s{array_init(0)});
    return x.release();
}

void init_item_free(void **slot) {
    if (slot == nullptr || *slot == nullptr)
        return;
    auto *item = static_cast<init_item *>(*slot);
    for (const auto &operand : operands)
        std::free(item->*operand.field);
    std::free(item);
    *slot = nullptr;
}

void init_free(init_s **x) {
    if (x == nullptr || *x == nullptr)
        return;
    array_free_fn(&(*x)->list, init_item_free);
    delete *x;
    *x = nullptr;
}

int init_load(init_s *x, const char *file) {
    errno = 0;
    if (x == nullptr || file == nullptr)
        return 0;
    const file_ptr script(s_fopen(file, "r"));
    if (!script || !read_items(x->list, script.get())) {
        init_seterror("Failed to read '%s', %s", file, std::strerror(errno));
        return 0;
    }
    return 1;
}

void init_do(ini *x, const init_item *item) {
    if (x == nullptr || item == nullptr || !condition_holds(x, *item))
        return;
    for (const auto &command : commands)
        if (command.mode == item->mode)
            command.run(x, *item);
}

void init_run(init_s *x, ini *store) {
    for (int i = 0; const init_item *item = init_get_num(x, i); ++i)
        init_do(store, item);
}

init_item *init_get_num(init_s *x, int index) {
    return x != nullptr ? static_cast<init_item *>(array_get_num(x->list, index)) : nullptr;
}

init_item *init_get(init_s *x) {
    return x != nullptr ? static_cast<init_item *>(array_get(x->list)) : nullptr;
}

void init_goto(init_s *x, int index) {
    if (x != nullptr)
        array_goto(x->list, index);
}

void init_start(init_s *x) {
    if (x != nullptr)
        array_start(x->list);
}

void init_next(init_s *x) {
    if (x != nullptr)
        array_next(x->list);
}

void init_prev(init_s *x) {
    if (x != nullptr)
        array_prev(x->list);
}

void init_seterror(const char *format, ...) {
    if (format == nullptr)
        return;
    message m;
    va_list args;
    va_start(args, format);
    vmessage(m, format, args);
    va_end(args);
    error.set(m.text);
}

const char *init_error() {
    return error.get();
}

int init_find_http_conf(char *user, char *group, char *root, char *scripts, char *errmsg) {
    const wanted_facts wanted = {group, user, root, scripts};
    if (!known(wanted) && !search(wanted, errmsg))
        return 0;
    for (std::size_t i = 0; i < std::size(wanted); ++i)
        scpy(wanted[i], directives[i].known, text_size);
    return 1;
}

} // namespace installer
