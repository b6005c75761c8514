// From top to bottom: the table of commands, reporting, the script object, expanding references, loading,
// accessors, running a script, copying and removing, and the actions of the other commands.

#include "installer/copy.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <string_view>
#include <type_traits>

#include "installer/array.h"
#include "installer/lib.h"
#include "installer/log.h"

namespace installer {

namespace {

// ---- The commands ----

/// Runs a record and returns the result of copy_do. The index is one of the object's.
using runner = int (*)(copy *x, std::uint32_t index, std::uint32_t *bytes);

int copy_matches(copy *x, std::uint32_t index, std::uint32_t *bytes);
int remove_matches(copy *x, std::uint32_t index, std::uint32_t *bytes);
int make_directory(copy *x, std::uint32_t index);
int reject(copy *x, std::uint32_t index);

template <int (*action)(copy *, std::uint32_t)>
int alone(copy *x, std::uint32_t index, std::uint32_t *) {
    return action(x, index);
}

/// These commands belong to the copy family: one that fails goes on as a file copy with the fields it has, on
/// purpose. So a failed "MkDir" is reported twice, and a failed "Rename" to an existing directory copies the
/// file into it.
template <int (*action)(copy *, std::uint32_t)>
int or_else_copy(copy *x, std::uint32_t index, std::uint32_t *bytes) {
    return action(x, index) ? 1 : copy_matches(x, index, bytes);
}

/// The fields that follow `source`, in the order in which a line holds them. The message runs to the end of
/// the line.
enum : unsigned { has_not = 1, has_dest = 2, has_message = 4, has_control = 8 };

struct command {
    const char *keyword;
    CType type;
    unsigned fields;
    runner run;
};

constexpr command commands[] = {
    {"CopyFile", CpyFile, has_not | has_dest | has_control, copy_matches},
    {"CopyDir", CpyDir, has_not | has_dest | has_control, copy_matches},
    {"MkDir", MkDir, has_control, or_else_copy<make_directory>},
    {"Ini", CpyIni, has_dest | has_control, or_else_copy<copy_write_ini>},
    {"Rename", Rename, has_dest | has_control, or_else_copy<copy_rename>},
    {"RmFile", RmFile, has_not | has_control, remove_matches},
    {"RmDir", RmDir, has_not | has_control, remove_matches},
    {"Exist", Exist, has_dest | has_control, alone<copy_exist>},
    {"Chown", Chown, has_not | has_dest | has_control, alone<copy_chown>},
    {"Chmod", Chmod, has_not | has_dest | has_control, alone<copy_chmod>},
    {"Error", Error, has_message, alone<copy_seterror>},
    {"WFile", WFile, has_dest | has_control, alone<copy_wfile>},
    {"RFile", RFile, has_dest | has_control, alone<copy_rfile>},
    // The families' own bits: no word of a script is empty, so no line has these types.
    {"", Cpy, 0, copy_matches},
    {"", Rm, 0, remove_matches},
};

/// A line with an unknown keyword is still read in full; it fails when its turn comes.
constexpr command unknown_command = {"", CType{}, has_not | has_dest | has_control, alone<reject>};

template <typename Test>
const command &find_command(Test is_wanted) {
    const auto *found = std::find_if(std::begin(commands), std::end(commands), is_wanted);
    return found == std::end(commands) ? unknown_command : *found;
}

const command &command_named(const char *keyword) {
    return find_command([&](const command &row) { return s_stricmp(keyword, row.keyword) == 0; });
}

const command &command_of(CType type) {
    return find_command([&](const command &row) { return row.type == type; });
}

/// The message of the last "Error" command that failed.
last_error script_error;

} // namespace

// ---- Reporting ----

void cerror(const char *format, ...) {
    if (!format)
        return;
    message m;
    std::va_list args;
    va_start(args, format);
    vmessage(m, format, args);
    va_end(args);
    if (errno != 0)
        add_reason(m, errno);
    emsg("%s", m.text);
}

const char *copy_error() {
    return script_error.get();
}

// ---- The script object ----

namespace {

/// Frees what a record holds and leaves it as a new one.
void clear_record(copy_cmd &cmd) {
    for (char *text : {cmd.source, cmd.dest, cmd.not_, cmd.control, cmd.control_cmp})
        std::free(text);
    cmd = {};
}

void release_records(copy &x) {
    std::for_each(x.list, x.list + x.count, clear_record);
    std::free(x.list);
    x.list = nullptr;
    x.count = 0;
}

/// The record, or null when there is none of that index.
copy_cmd *record_at(const copy *x, std::uint32_t index) {
    return x && index < x->count ? &x->list[index] : nullptr;
}

} // namespace

copy *copy_init(ini *settings) {
    auto *x = static_cast<copy *>(std::calloc(1, sizeof(copy)));
    if (x)
        x->ini = settings;
    return x;
}

void copy_setup(copy *, file_callback ok_fn, file_callback fail_fn) {
    file_setup_fn(ok_fn, fail_fn);
}

void copy_free(copy **x) {
    if (!x || !*x)
        return;
    release_records(**x);
    std::free(*x);
    *x = nullptr;
}

// ---- Expanding references ----

namespace {

/// The setting's value; empty when it has none. A name that is longer than any line a setting can come from names
/// none.
std::string_view value_of(ini *settings, std::string_view name) {
    char setting[text_size];
    if (name.size() >= sizeof setting)
        return {};
    setting[name.copy(setting, name.size())] = '\0';
    return str(ini_value_name(settings, setting));
}

/// The result of expanding one text. It is kept and reused for the lines of a template, so that a line costs
/// no heap.
class expansion {
  public:
    explicit expansion(ini *settings) : settings_(settings) {}

    /// Replaces the references of `text`; false, with nothing done, when it holds none. See replace_vars.
    bool expand(std::string_view text);

    char *text() { return text_; }
    std::size_t length() const { return length_; }

  private:
    static constexpr std::size_t longest_piece = 8999;

    void append(std::string_view piece);

    ini *settings_;
    char text_[10000];
    std::size_t length_ = 0;
};

/// A piece stops at the room that is left, so that the sum never passes the buffer.
void expansion::append(std::string_view piece) {
    const std::size_t length = std::min({piece.size(), longest_piece, sizeof text_ - 1 - length_});
    length_ += piece.copy(text_ + length_, length);
}

bool expansion::expand(std::string_view text) {
    std::size_t reference = text.find("$(");
    if (reference == std::string_view::npos)
        return false;
    length_ = 0;
    while (reference != std::string_view::npos) {
        const std::size_t name = reference + 2;
        const std::size_t end = text.find(')', name);
        if (end == std::string_view::npos)
            break;
        append(text.substr(0, reference));
        append(value_of(settings_, text.substr(name, end - name)));
        text.remove_prefix(end + 1);
        reference = text.find("$(");
    }
    append(text);
    text_[length_] = '\0';
    return true;
}

/// Puts the expanded text in the place of `field`, where there is something to expand. False, with the text as
/// it was, without memory.
bool expand_field(copy &x, char *&field) {
    char *expanded = replace_vars(&x, field);
    if (!expanded)
        return !s_strstr(field, "$(");
    std::free(field);
    field = expanded;
    return true;
}

bool process_paths(copy &x, copy_cmd &cmd) {
    if (s_strcmp(cmd.not_, "-") == 0) {
        std::free(cmd.not_);
        cmd.not_ = nullptr;
    }
    return expand_field(x, cmd.source) && expand_field(x, cmd.dest);
}

} // namespace

char *replace_vars(copy *x, const char *string) {
    if (!x || !string)
        return nullptr;
    expansion expanded(x->ini);
    return expanded.expand(string) ? s_strdup(expanded.text()) : nullptr;
}

void copy_processpaths(copy *x, std::uint32_t index) {
    if (copy_cmd *cmd = record_at(x, index))
        process_paths(*x, *cmd);
}

// ---- Loading ----

namespace {

constexpr std::uint32_t growth = 5;

/// Makes the fields and remembers whether memory was short for one: a line without its exclusions or its
/// control would do harm, so a script of which anything was lost is not run.
class keeper {
  public:
    char *keep(const char *word) {
        char *kept = s_strdup(word);
        lost_ = lost_ || (word && !kept);
        return kept;
    }
    void lose() { lost_ = true; }
    bool lost() const { return lost_; }

  private:
    bool lost_ = false;
};

/// Takes the next word of a line as a field that the command cannot do without. False when the line has no
/// more.
bool take(keeper &words, char **rest, char *&field, const char *label, const char *complaint) {
    const char *word = s_strtok(nullptr, blanks, rest);
    if (!word)
        cerror("%s", complaint);
    dmsg("Copy line '%s' is [%s]", label, str(word));
    field = words.keep(word);
    return word != nullptr;
}

/// The same for a field that may be left out: nothing is said when it is.
bool take_optional(keeper &words, char **rest, char *&field, const char *label) {
    const char *word = s_strtok(nullptr, blanks, rest);
    if (!word)
        return false;
    dmsg("Copy line '%s' is [%s]", label, word);
    field = words.keep(word);
    return true;
}

/// Every field is asked for, also after one that is missing: a short line is told all that it lacks.
bool take_operands(keeper &words, unsigned fields, char **rest, copy_cmd &cmd) {
    bool complete = take(words, rest, cmd.source, "source", "Missing copy source path");
    if (fields & has_not)
        complete = take(words, rest, cmd.not_, "not", "Missing not wildcard");
    if (fields & has_dest)
        complete = take(words, rest, cmd.dest, "destination", "Missing copy destination path");
    return complete;
}

void take_message(keeper &words, char **rest, copy_cmd &cmd) {
    const char *text = s_strtok(nullptr, "", rest);
    dmsg("Copy list error string is '%s'", str(text));
    cmd.dest = words.keep(text);
}

/// Reads one line into a new record. False when fields are missing; the record may hold some then.
bool parse_line(keeper &words, char *line, copy_cmd &cmd) {
    char *rest = nullptr;
    const char *keyword = s_strtok(line, blanks, &rest);
    if (!keyword)
        return false;
    const command &row = command_named(keyword);
    if (&row == &unknown_command)
        cerror("Unknown copy type '%s'", keyword);
    cmd.type = row.type;
    dmsg("Copy line 'type' is [%d]", static_cast<int>(row.type));
    if (!take_operands(words, row.fields, &rest, cmd))
        return false;
    if (row.fields & has_message)
        take_message(words, &rest, cmd);
    if ((row.fields & has_control) && take_optional(words, &rest, cmd.control, "control"))
        take_optional(words, &rest, cmd.control_cmp, "control_cmp");
    return true;
}

/// Adds zeroed records to the list. False, with the list as it was, without memory.
bool grow(copy &x, std::uint32_t &allocated) {
    static_assert(std::is_trivially_copyable_v<copy_cmd>, "realloc moves the records");
    void *list = std::realloc(x.list, (allocated + growth) * sizeof(copy_cmd));
    if (!list)
        return false;
    x.list = static_cast<copy_cmd *>(list);
    std::fill_n(x.list + allocated, growth, copy_cmd{});
    allocated += growth;
    return true;
}

/// A line that is dropped leaves its record to the next line.
void add_record(keeper &words, copy &x, std::uint32_t &allocated, char *line) {
    dmsg("Process .cpy file line [%s]", line);
    if (x.count == allocated && !grow(x, allocated))
        return words.lose();
    copy_cmd &cmd = x.list[x.count];
    if (!parse_line(words, line, cmd))
        return clear_record(cmd);
    ++x.count;
    if (x.ini && !process_paths(x, cmd))
        words.lose();
}

int refuse_script(copy &x, const char *file) {
    release_records(x);
    cerror("Error reading '%s'", file);
    return 0;
}

} // namespace

int copy_load(copy *x, const char *file, const char *section) {
    errno = 0;
    if (!x || !file || !section)
        return 0;
    file_ptr opened(s_fopen(file, "r"));
    if (!opened) {
        cerror("Error opening '%s'", file);
        return 0;
    }
    release_records(*x);
    script_reader script(opened.get());
    const bool found = script.find_section(section);
    keeper words;
    std::uint32_t allocated = 0;
    while (char *line = words.lost() ? nullptr : script.next_in_section())
        add_record(words, *x, allocated, line);
    return words.lost() || script.broke_off() ? refuse_script(*x, file) : found;
}

// ---- Accessors ----

namespace {

const char *text_of(const copy *x, std::uint32_t index, char *copy_cmd::*field) {
    const copy_cmd *cmd = record_at(x, index);
    return cmd ? cmd->*field : nullptr;
}

/// Looks at no count, as the header says; only an object without any record is told apart.
int is_type(const copy *x, std::uint32_t index, CType type) {
    return x && x->list && x->list[index].type == type;
}

/// The length of the directory that a path names, its separator included; 0 when it holds no separator.
std::size_t directory_length(const char *path) {
    std::size_t length = std::strlen(path);
    while (length > 0 && !is_separator(path[length - 1]))
        --length;
    return length;
}

/// What a source names in its directory.
const char *source_wildcard(const char *source) {
    const std::size_t length = directory_length(source);
    return length > 0 && !source[length] ? "*" : source + length;
}

/// What a destination names in its directory, or null when it names nothing: no directory, or no last
/// component.
const char *destination_wildcard(const char *dest) {
    const std::size_t length = directory_length(dest);
    return length > 0 && dest[length] ? dest + length : nullptr;
}

char *directory_into(const char *path, char *buffer, int n) {
    if (!path || !buffer || n < 1)
        return nullptr;
    const std::size_t length = directory_length(path);
    if (length == 0)
        return currentdir(buffer, n);
    scpy(buffer, path, static_cast<int>(std::min(length + 1, static_cast<std::size_t>(n))));
    return buffer;
}

char *wildcard_into(const char *wild, char *buffer, int n) {
    if (!wild || !buffer || n < 1)
        return nullptr;
    scpy(buffer, wild, n);
    return buffer;
}

} // namespace

std::uint32_t copy_count(copy *x) {
    return x ? x->count : 0;
}

const char *copy_src(copy *x, std::uint32_t index) {
    return text_of(x, index, &copy_cmd::source);
}

const char *copy_dst(copy *x, std::uint32_t index) {
    return text_of(x, index, &copy_cmd::dest);
}

const char *copy_not(copy *x, std::uint32_t index) {
    return text_of(x, index, &copy_cmd::not_);
}

const char *copy_control(copy *x, std::uint32_t index) {
    return text_of(x, index, &copy_cmd::control);
}

const char *copy_control_cmp(copy *x, std::uint32_t index) {
    return text_of(x, index, &copy_cmd::control_cmp);
}

char *copy_src_path(copy *x, std::uint32_t index, char *buffer, int n) {
    return directory_into(copy_src(x, index), buffer, n);
}

char *copy_dst_path(copy *x, std::uint32_t index, char *buffer, int n) {
    return directory_into(copy_dst(x, index), buffer, n);
}

char *copy_src_file(copy *x, std::uint32_t index, char *buffer, int n) {
    const char *source = copy_src(x, index);
    return wildcard_into(source ? source_wildcard(source) : nullptr, buffer, n);
}

char *copy_dst_file(copy *x, std::uint32_t index, char *buffer, int n) {
    const char *dest = copy_dst(x, index);
    return wildcard_into(dest ? destination_wildcard(dest) : nullptr, buffer, n);
}

int copy_cpyfile(copy *x, std::uint32_t index) {
    return is_type(x, index, CpyFile);
}

int copy_cpydir(copy *x, std::uint32_t index) {
    return is_type(x, index, CpyDir);
}

int copy_mkdir(copy *x, std::uint32_t index) {
    return is_type(x, index, MkDir);
}

int copy_rmdir(copy *x, std::uint32_t index) {
    return is_type(x, index, RmDir);
}

int copy_rmfile(copy *x, std::uint32_t index) {
    return is_type(x, index, RmFile);
}

int copy_ini(copy *x, std::uint32_t index) {
    return is_type(x, index, CpyIni);
}

// ---- Running a script ----

namespace {

/// An unknown controlling setting, or one without a value, does not block: on purpose. The comparison setting is
/// read all the same: that puts its cursor, where its next value is added, on the first one.
bool is_allowed(const copy &x, const copy_cmd &cmd) {
    const char *value = ini_value_name(x.ini, cmd.control);
    const char *wanted = ini_value_name(x.ini, cmd.control_cmp);
    if (!value)
        return true;
    if (!wanted)
        wanted = cmd.control_cmp;
    return wanted ? s_stricmp(value, wanted) == 0 : istrue(value) != 0;
}

void log_record(const copy_cmd &cmd) {
    dmsg("Processing [%d:%s->%s,%s,%s,%s]", static_cast<int>(cmd.type), str(cmd.source), str(cmd.dest),
         str(cmd.not_), str(cmd.control), str(cmd.control_cmp));
}

} // namespace

int copy_process(copy *x, std::uint32_t *files, std::uint32_t *bytes, int stop_on_fail) {
    for (std::uint32_t *counter : {files, bytes})
        if (counter)
            *counter = 0;
    if (!x)
        return 0;
    imsg("Processing copy script...");
    for (std::uint32_t index = 0; index < x->count; ++index) {
        log_record(x->list[index]);
        const int result = copy_do(x, index, bytes);
        if (ini_lost(x->ini)) // later lines would be controlled by values that are not true any more
            return 0;
        if (result > 0 && files)
            *files += static_cast<std::uint32_t>(result);
        if (result == 0 && stop_on_fail) {
            imsg("Stop on fail set, stopping...");
            return 0;
        }
        if (result == 0)
            imsg("Stop on fail NOT set, continuing...");
    }
    imsg("Copy script completed successfully");
    return 1;
}

int copy_do(copy *x, std::uint32_t index, std::uint32_t *bytes) {
    errno = 0;
    const copy_cmd *cmd = record_at(x, index);
    if (!cmd)
        return 0;
    const bool allowed = is_allowed(*x, *cmd);
    errno = 0; // reading a value as a number may have set it: what follows tells its own causes
    if (!allowed) {
        dmsg("Doing nothing due to controlling setting");
        return -1;
    }
    return command_of(cmd->type).run(x, index, bytes);
}

// ---- Selecting entries ----

namespace {

/// The mode words with which the file module's callbacks are told of a failure.
enum : int { not_told = walk::not_told, removing = 0, copying = 1 };

/// What a path selects: the entries of one directory whose names match a wildcard, which is borrowed from the
/// record.
struct selection {
    char directory[path_size];
    const char *wild;
};

void tell_failure(const char *path, int mode) {
    if (fail && mode != not_told)
        fail(path, nullptr, mode);
}

/// Nothing acts on a path that was cut: one whose directory does not fit selects nothing.
bool refuse_long_path(const char *directory, int mode) {
    errno = ENAMETOOLONG;
    file_error("Path too long '%s'", directory);
    tell_failure(directory, mode);
    return false;
}

bool select_directory(const char *path, int mode, selection &selected) {
    const std::size_t length = directory_length(path);
    if (length >= sizeof selected.directory) {
        const text_ptr directory(smake(path, static_cast<int>(length) + 1));
        return refuse_long_path(str(directory.get()), mode);
    }
    if (directory_into(path, selected.directory, sizeof selected.directory))
        return true;
    if (errno == ERANGE)
        return refuse_long_path(".", mode);
    file_error("Error opening dir '%s'", ".");
    tell_failure(".", mode);
    return false;
}

bool select_sources(const copy_cmd &cmd, int mode, selection &selected) {
    selected.wild = source_wildcard(str(cmd.source));
    return select_directory(str(cmd.source), mode, selected);
}

bool select_destinations(const copy_cmd &cmd, selection &selected) {
    selected.wild = destination_wildcard(str(cmd.dest));
    return selected.wild && select_directory(cmd.dest, copying, selected);
}

/// Calls `visit` for each match that is not excluded. Here the last component decides, ignoring case; inside
/// a tree the file module compares with case, and the difference is meant. Returns whether anything matched,
/// excluded or not.
template <typename Visit>
bool for_each_match(const selection &selected, const copy_cmd &cmd, int mode, Visit visit) {
    walk listing(place_of(selected.directory), selected.wild, mode);
    bool matched = false;
    while (listing.next()) {
        matched = true;
        if (!wild_ilist(listing.entry().name, cmd.not_))
            visit(listing);
    }
    return matched;
}

// ---- Copying and removing ----

/// Owned paths, released with their array.
struct path_list {
    path_list() : items(array_init(0)) {}
    ~path_list() { array_free_dealloc(&items); }
    path_list(const path_list &) = delete;
    path_list &operator=(const path_list &) = delete;

    void add(const char *path) {
        char *copied = s_strdup(path);
        if (array_add(items, copied))
            return;
        std::free(copied);
        lost = true;
    }

    array *items;
    bool lost = false; // a path could not be kept for want of memory
};

/// Destinations are never made here. They are listed before anything is copied: a copy may change what the
/// wildcard finds.
void list_destinations(const copy_cmd &cmd, path_list &found) {
    selection selected;
    if (!select_destinations(cmd, selected))
        return;
    for_each_match(selected, cmd, copying, [&](const walk &match) {
        if (match.is_directory())
            found.add(match.entry().path);
    });
}

/// Returns the number of files and directories made. Only "CopyDir" takes directories.
int copy_match(const walk &match, const copy_cmd &cmd, const target_directory &into, std::uint32_t *bytes) {
    const bool is_tree = match.is_directory();
    if (is_tree && cmd.type != CpyDir)
        return 0;
    const place &source = match.entry();
    char path[path_size];
    place target;
    if (!into.at(source.name, path, target)) {
        tell_failure(source.path, copying);
        return 0;
    }
    if (is_tree)
        return copy_tree(source, "*", cmd.not_, target.path, 1, bytes);
    return file_copy_at(source, target, 1, bytes) == 1;
}

int copy_into(const char *directory, const selection &sources, const copy_cmd &cmd, std::uint32_t *bytes) {
    const target_directory into(directory);
    int done = 0;
    const bool matched = for_each_match(
        sources, cmd, copying, [&](const walk &match) { done += copy_match(match, cmd, into, bytes); });
    if (!matched)
        imsg("No files found to copy in '%s' matching '%s'", sources.directory, sources.wild);
    return done;
}

int copy_matches(copy *x, std::uint32_t index, std::uint32_t *bytes) {
    const copy_cmd &cmd = x->list[index];
    path_list destinations;
    list_destinations(cmd, destinations);
    if (destinations.lost) {
        cerror("Memory allocation error");
        return 0;
    }
    if (array_items(destinations.items) == 0) {
        cerror("No destination directories found");
        return 0;
    }
    selection sources;
    if (!select_sources(cmd, copying, sources))
        return 0;
    int done = 0;
    for (int i = 0; i < array_items(destinations.items); ++i)
        done +=
            copy_into(static_cast<const char *>(array_get_num(destinations.items, i)), sources, cmd, bytes);
    return done;
}

/// Returns the number of entries removed. "RmDir" takes plain files too; "RmFile" passes directories over.
int remove_match(const walk &match, const copy_cmd &cmd) {
    if (!match.is_directory()) {
        const int removed = remove_entry(match.entry());
        if (!removed)
            dmsg("Not removed '%s', %s", match.entry().path, std::strerror(errno));
        return removed;
    }
    return cmd.type == RmDir ? remove_tree(match.entry(), cmd.not_, 1) : 0;
}

int remove_matches(copy *x, std::uint32_t index, std::uint32_t *) {
    const copy_cmd &cmd = x->list[index];
    selection sources;
    if (!select_sources(cmd, removing, sources))
        return 0;
    int done = 0;
    for_each_match(sources, cmd, removing, [&](const walk &match) { done += remove_match(match, cmd); });
    return done;
}

int make_directory(copy *x, std::uint32_t index) {
    return file_mkdir(copy_src(x, index), 1);
}

int reject(copy *, std::uint32_t) {
    cerror("How did we get here!");
    return 0;
}

// ---- Writing files ----

/// Closes a target: 1 when every byte reached it.
int finish(file_ptr &target, const char *path) {
    if (close_written(target))
        return 1;
    cerror("Error writing to '%s'", path);
    return 0;
}

/// Writes a line with one call: the line end takes the place of the terminator.
bool write_line(FILE *target, char *line, std::size_t length) {
    line[length] = '\n';
    return std::fwrite(line, 1, length + 1, target) == length + 1;
}

/// Expands a template line by line; a line that is longer than the buffer comes out as several. Returns whether
/// the template was read without an error. It stops early where writing fails, which closing the target tells.
bool write_expanded(FILE *source, FILE *target, ini *settings) {
    char line[3000];
    expansion expanded(settings);
    bool written = true;
    while (written && std::fgets(line, sizeof line, source)) {
        char *text = s_strtrm(line);
        const std::size_t length = std::strlen(text);
        written = expanded.expand({text, length}) ? write_line(target, expanded.text(), expanded.length())
                                                  : write_line(target, text, length);
    }
    return !std::ferror(source);
}

} // namespace

int copy_write_ini(copy *x, std::uint32_t index) {
    const copy_cmd *cmd = record_at(x, index);
    if (!cmd || file_would_block(cmd->dest) || file_would_block(cmd->source))
        return 0;
    char target_buffer[65536]; // both outlive their streams
    char source_buffer[65536];
    file_ptr target(file_open(cmd->dest, "w"));
    if (!target) {
        cerror("Error creating ini file '%s'", str(cmd->dest));
        return 0;
    }
    const file_ptr source(file_open(cmd->source, "r"));
    if (!source) {
        cerror("Error reading ini file '%s'", str(cmd->source));
        return 0;
    }
    std::setvbuf(target.get(), target_buffer, _IOFBF, sizeof target_buffer);
    std::setvbuf(source.get(), source_buffer, _IOFBF, sizeof source_buffer);
    imsg("Writing INI file '%s' to '%s'", cmd->source, cmd->dest);
    const bool read = write_expanded(source.get(), target.get(), x->ini);
    return finish(target, cmd->dest) && read;
}

int copy_wfile(copy *x, std::uint32_t index) {
    const copy_cmd *cmd = record_at(x, index);
    if (!cmd || file_would_block(cmd->source))
        return 0;
    file_ptr target(file_open(cmd->source, "w"));
    if (!target) {
        cerror("Failed to write (%s)", str(cmd->source));
        return 0;
    }
    const char *value = ini_value_name(x->ini, cmd->dest);
    std::fputs(value ? value : str(cmd->dest), target.get());
    return finish(target, cmd->source);
}

/// Opening for writing is the required behaviour, not a slip: the command empties its file. So there is no
/// text to read, and none to give the setting.
int copy_rfile(copy *x, std::uint32_t index) {
    const copy_cmd *cmd = record_at(x, index);
    if (!cmd || file_would_block(cmd->source))
        return 0;
    const file_ptr emptied(file_open(cmd->source, "w"));
    if (!emptied) {
        cerror("Failed to read (%s)", str(cmd->source));
        return 0;
    }
    ini_add_name(x->ini, cmd->dest, nullptr);
    return 1;
}

// ---- Renaming, testing, failing ----

int copy_rename(copy *x, std::uint32_t index) {
    const copy_cmd *cmd = record_at(x, index);
    if (!cmd || !cmd->source || !cmd->dest)
        return 0;
    if (std::rename(cmd->source, cmd->dest) == 0)
        return 1;
    cerror("Error renaming '%s'->'%s', %s", cmd->source, cmd->dest, ""); // the reason is appended behind it
    return 0;
}

int copy_exist(copy *x, std::uint32_t index) {
    const copy_cmd *cmd = record_at(x, index);
    if (!cmd)
        return 0;
    ini_add_name(x->ini, cmd->dest, file_exist(cmd->source) ? "true" : "false");
    return 1;
}

int copy_seterror(copy *x, std::uint32_t index) {
    const copy_cmd *cmd = record_at(x, index);
    if (!cmd)
        return 0;
    if (!isfalse(ini_value_name(x->ini, cmd->source)))
        return 1;
    script_error.set(cmd->dest);
    return 0;
}

// ---- Changing owners and modes ----

namespace {

/// The words that make a change's messages.
struct change_words {
    const char *verb;
    const char *skipped;
    const char *finished;
};

constexpr change_words chown_words = {"chown", "chown'ing", "chown'ing"};
constexpr change_words chmod_words = {"chmod", "chmod'ding",
                                      "chmod'ing"}; // two spellings, both as they are logged

void log_found(const change_words &words, bool found, const char *not_) {
    if (!found)
        dmsg("No files found to %s", words.verb);
    else if (not_)
        dmsg("Found files to %s, not doing '%s'", words.verb, not_);
    else
        dmsg("Found files to %s, doing all of them", words.verb);
}

/// Applies `change` to each match, to everything below it first. Exclusion looks at the whole path here, not
/// at the last component as copying and removing do; the difference is meant. An entry that vanished
/// meanwhile is passed over; any other failure stops this directory.
template <typename Change>
int change_tree(const change_words &words, const place &directory, const char *wild, const char *not_,
                Change change) {
    walk listing(directory, wild);
    int done = 0;
    bool found = listing.next();
    log_found(words, found, not_);
    for (; found; found = listing.next()) {
        const place &entry = listing.entry();
        if (wild_ilist(entry.path, not_)) {
            dmsg("Not %s '%s'", words.skipped, entry.path);
            continue;
        }
        if (listing.is_directory())
            done += change_tree(words, entry, "*", not_, change);
        if (change(entry)) {
            ++done;
        } else if (!listing.gone()) {
            dmsg("file_%s failed", words.verb);
            break;
        }
    }
    dmsg("Finished %s, %d files done", words.finished, done);
    return done;
}

/// Octal, unchecked, in 16 bits: on purpose, a word that is no number gives some mode and no error.
std::uint16_t octal_mode(const char *text) {
    unsigned mode = 0;
    for (int i = 0; i < text_size - 1 && text[i]; ++i)
        mode = mode * 8 + static_cast<unsigned char>(text[i]) - '0';
    return static_cast<std::uint16_t>(mode);
}

} // namespace

int dochown(const char *path, const char *wild, const char *not_, int uid, int gid) {
    if (!path || !wild)
        return 0;
    return change_tree(chown_words, place_of(path), wild, not_,
                       [=](const place &entry) { return change_owner(entry, uid, gid); });
}

int dochmod(const char *path, const char *wild, const char *not_, std::uint16_t mode) {
    if (!path || !wild)
        return 0;
    return change_tree(chmod_words, place_of(path), wild, not_,
                       [=](const place &entry) { return change_mode(entry, mode); });
}

int copy_chown(copy *x, std::uint32_t index) {
    const copy_cmd *cmd = record_at(x, index);
    selection selected;
    if (!cmd || !select_sources(*cmd, not_told, selected))
        return 0;
    char user[text_size];
    scpy(user, cmd->dest, text_size);
    ini_replace(x->ini, cmd->dest, user, text_size); // once more, after the expansion while loading
    char *group = std::strchr(user, ':');
    if (group)
        *group++ = '\0';
    else
        group = user;
    const int uid = file_getuid(user);
    dmsg("Found user id for '%s'=%d", user, uid);
    const int gid = file_getgid(group);
    if (gid == -1 &&
        errno != 0) // not an unknown group, which gives the user's number: it could not be looked up
        return 0;
    dmsg("Found group id for '%s'=%d", group, gid);
    return dochown(selected.directory, selected.wild, cmd->not_, uid, gid);
}

int copy_chmod(copy *x, std::uint32_t index) {
    const copy_cmd *cmd = record_at(x, index);
    selection selected;
    if (!cmd || !select_sources(*cmd, not_told, selected))
        return 0;
    return dochmod(selected.directory, selected.wild, cmd->not_, octal_mode(str(cmd->dest)));
}

} // namespace installer
