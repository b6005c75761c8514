#include "installer/ini.h"

#include "installer/array.h"
#include "installer/lib.h"
#include "installer/linklist.h"
#include "installer/log.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

namespace installer {

setting_list *_settings = nullptr;

static_assert(Ini_DefaultMode == (Ini_UseEmpty | Ini_UsePass | Ini_UseFixed | Ini_UseMulti | Ini_UsePath |
                                  Ini_UseReplace | Ini_UseNew | Ini_NewMulti | Ini_NewEmpty));
static_assert(Ini_NewModes == (Ini_NewMulti | Ini_NewEmpty | Ini_NewFixed | Ini_NewPass | Ini_NewLock));

namespace {

constexpr int table_growth = 5;
constexpr int most_rewrites = 1000;

/// What each New flag of a store gives to the settings it creates.
constexpr struct {
    ini_mode flag;
    setting_mode gives;
} new_modes[] = {
    {Ini_NewMulti, Ini_Multi}, {Ini_NewPass, Ini_Pass}, {Ini_NewFixed, Ini_Fixed},
    {Ini_NewEmpty, Ini_Empty}, {Ini_NewLock, Ini_Lock},
};

template <class Flags>
constexpr bool has(Flags word, Flags flag) {
    return (word & flag) != 0;
}

// --- Finding a setting by its name ---
//
// A search begins at the place that the name's hash gives and ends at a free one. The hash leaves case out, so
// one index serves both ways of comparing. Settings go in in their order and none leaves alone, so of several
// that match the first is met first.

std::size_t first_place(const name_index &names, const char *name) {
    std::uint32_t hash = 2166136261; // FNV-1a
    for (; *name != '\0'; ++name)
        hash = (hash ^ charmap[static_cast<unsigned char>(*name)]) * 16777619;
    return hash & static_cast<std::uint32_t>(names.size - 1);
}

std::size_t next_place(const name_index &names, std::size_t place) {
    return (place + 1) & static_cast<std::size_t>(names.size - 1);
}

void drop_index(name_index &names) {
    std::free(names.places);
    names = {};
}

/// Doubles the places until no more than half of them will be taken.
void make_places(name_index &names, int items) {
    int size = 64;
    while (size / 2 < items)
        size *= 2;
    drop_index(names);
    names.places = static_cast<int *>(std::calloc(static_cast<std::size_t>(size), sizeof(int)));
    names.size = names.places != nullptr ? size : 0;
}

/// Gives a place to each setting that has none.
void index_names(ini *x) {
    name_index &names = x->names;
    if (names.size / 2 < x->items)
        make_places(names, x->items);
    while (names.size > 0 && names.held < x->items) {
        std::size_t at = first_place(names, x->list[names.held].setting);
        while (names.places[at] != 0)
            at = next_place(names, at);
        names.places[at] = ++names.held;
    }
}

template <class Same>
int find_indexed(const ini *x, const char *name, Same same) {
    const name_index &names = x->names;
    std::size_t at = first_place(names, name);
    while (names.places[at] != 0 && same(x->list[names.places[at] - 1].setting, name) != 0)
        at = next_place(names, at);
    return names.places[at] - 1;
}

/// For a store that had no memory for an index.
template <class Same>
int find_one_by_one(const ini *x, const char *name, Same same) {
    const setting_list *begin = x->list, *end = begin + x->items;
    const auto *found =
        std::find_if(begin, end, [=](const setting_list &entry) { return same(entry.setting, name) == 0; });
    return found != end ? static_cast<int>(found - begin) : -1;
}

/// Index of the first setting with a name that is the `same`, or -1.
template <class Same>
int find_setting(const ini *x, const char *name, Same same) {
    if (x == nullptr || x->list == nullptr || name == nullptr)
        return -1;
    return x->names.held > 0 ? find_indexed(x, name, same) : find_one_by_one(x, name, same);
}

int find_exact(const ini *x, const char *name) {
    return find_setting(x, name, s_strcmp);
}

int find_ignoring_case(const ini *x, const char *name) {
    return find_setting(x, name, s_stricmp);
}

// --- Settings and their values ---

/// Tells that the store is not whole for want of memory.
void lose(ini *x) {
    x->lost = true;
    emsg("Memory allocation error");
    errno = ENOMEM;
}

void free_item(void **slot) {
    auto *item = static_cast<ini_item *>(*slot);
    if (item == nullptr)
        return;
    list_free_dealloc(&item->values);
    list_free_dealloc(&item->assoc);
    delete item;
    *slot = nullptr;
}

struct release_item {
    void operator()(ini_item *item) const {
        void *slot = item;
        free_item(&slot);
    }
};
using item_ptr = std::unique_ptr<ini_item, release_item>;

item_ptr make_item() {
    item_ptr item(new (std::nothrow) ini_item{list_init(), list_init()});
    if (item != nullptr && (item->values == nullptr || item->assoc == nullptr))
        item.reset();
    return item;
}

/// Inserts an owned copy at the cursor and returns it, null without memory.
const char *insert_copy(linklist *values, const char *value) {
    text_ptr copy(s_strdup(value));
    return list_add(values, copy.get()) != 0 ? copy.release() : nullptr;
}

/// Appends a setting to a table that has room for it and for the entry that ends the table.
bool append_setting(ini *x, const char *name, setting_mode mode, const char *value) {
    text_ptr label(s_strdup(name));
    item_ptr item = make_item();
    if (label == nullptr || item == nullptr)
        return false;
    if (value != nullptr && insert_copy(item->values, value) == nullptr)
        return false;
    if (array_add_num(x->data, item.get(), x->items) == 0)
        return false;
    static_cast<void>(item.release());
    x->list[x->items] = {label.release(), nullptr, mode};
    ++x->items;
    index_names(x);
    return true;
}

ini_item *item_at(const ini *x, int index) {
    if (x == nullptr || index < 0 || index >= x->items)
        return nullptr;
    return static_cast<ini_item *>(x->data->data[index]);
}

/// The item when its values may be read.
ini_item *readable_item(const ini *x, int index) {
    ini_item *item = item_at(x, index);
    if (item != nullptr && has(x->mode, Ini_UseLock) && has(x->list[index].mode, Ini_Lock))
        return nullptr;
    return item;
}

/// The first stored value, looked at without moving the cursor.
const char *first_value(const ini_item *item) {
    const node *first = item->values->root->next;
    return first != nullptr ? static_cast<const char *>(first->data) : nullptr;
}

bool is_secret(const ini *x, setting_mode mode) {
    return has(x->mode, Ini_UsePass) && has(mode, Ini_Pass);
}

void drop_settings(ini *x) {
    drop_index(x->names);
    array_empty_fn(x->data, free_item);
    for (int i = 0; i < x->items; ++i)
        std::free(
            const_cast<char *>(x->list[i].setting)); // const for tables of literals; these are our copies
    std::free(std::exchange(x->list, nullptr));
    x->items = 0;
    x->size = 0;
}

// --- Borrowing along associations ---

template <class Visit>
void each_association(const ini_item *item, Visit visit) {
    for (const node *at = item->assoc->root->next; at != nullptr; at = at->next)
        visit(*static_cast<const int *>(at->data));
}

/// Puts the cursors of all settings that `index` could borrow from on their first values, each once: a
/// setting reached along many ways, or along a circle, costs no more than one. Without memory the cursors
/// stay.
void rewind_lenders(const ini *x, int index) {
    const auto count = static_cast<std::size_t>(x->items);
    const std::unique_ptr<bool[]> seen(new (std::nothrow) bool[count]());
    const std::unique_ptr<int[]> empty_ones(new (std::nothrow) int[count]);
    if (seen == nullptr || empty_ones == nullptr)
        return;
    int found = 0;
    const auto visit = [&](int at) {
        const ini_item *item = readable_item(x, at);
        if (item == nullptr || std::exchange(seen[static_cast<std::size_t>(at)], true))
            return;
        list_start(item->values);
        if (first_value(item) == nullptr)
            empty_ones[static_cast<std::size_t>(found++)] = at;
    };
    visit(index);
    for (int next = 0; next < found; ++next)
        each_association(item_at(x, empty_ones[static_cast<std::size_t>(next)]), visit);
}

/// The last association decides alone, even when it has nothing to lend, so the value is found along one
/// chain. A chain of more steps than there are settings has come back to one being read.
const char *borrowed_value(const ini *x, int index) {
    rewind_lenders(x, index);
    for (int steps = 0; steps < x->items; ++steps) {
        const ini_item *item = readable_item(x, index);
        if (item == nullptr)
            return nullptr;
        if (const char *value = first_value(item))
            return value;
        index = -1;
        each_association(item, [&index](int to) { index = to; });
    }
    return nullptr;
}

// --- The rules for a value that is added ---

const char *converted(const ini *x, setting_mode mode, const char *value, char *buffer) {
    if (!has(mode, Ini_XTRAMask))
        return value;
    for (int i = 0; i < array_items(x->xtra); ++i) {
        const auto *entry = static_cast<const ini_xtra *>(x->xtra->data[i]);
        if (entry->fn == nullptr || !has(mode, entry->flag))
            continue;
        scpy(buffer, entry->fn(value), text_size);
        value = buffer;
    }
    return value;
}

const char *normalised(const ini *x, setting_mode mode, const char *value, char *buffer) {
    if (!has(x->mode, Ini_UsePath) || !has(mode, Ini_Path))
        return value;
    scpy(buffer, value, text_size);
    setsep(buffer, '/');
    return buffer;
}

bool is_refused(const ini *x, const setting_list &entry, const char *value) {
    if (has(x->mode, Ini_UseFixed) && has(entry.mode, Ini_Fixed)) {
        dmsg("Ini value for '%s' not addded, value is fixed", entry.setting);
        return true;
    }
    if (*value == '\0' && has(x->mode, Ini_UseEmpty) && !has(entry.mode, Ini_Empty)) {
        dmsg("Ini value for '%s' not added, value was empty", entry.setting);
        return true;
    }
    return false;
}

/// The copy is made before the old value goes: `value` may be that old value.
int store_value(ini *x, const setting_list &entry, linklist *values, const char *value) {
    text_ptr copy(s_strdup(value));
    if (copy == nullptr) {
        lose(x);
        return 0;
    }
    if (list_items(values) > 0 && has(x->mode, Ini_UseMulti) && !has(entry.mode, Ini_Multi))
        std::free(list_del(values));
    if (list_add(values, copy.get()) == 0) {
        lose(x);
        return 0;
    }
    const char *stored = copy.release();
    dmsg("Ini value for '%s' set to '%s'", entry.setting, is_secret(x, entry.mode) ? "xxxx" : stored);
    return 1;
}

// --- Creating a setting ---

/// Makes sure that an entry can be added and another one still ends the table.
bool has_room(ini *x) {
    if (x->size > x->items + 1)
        return true;
    const auto entries = static_cast<std::size_t>(x->size) + table_growth;
    auto *list = static_cast<setting_list *>(std::realloc(x->list, entries * sizeof(setting_list)));
    if (list == nullptr)
        return false;
    std::fill_n(list + x->size, table_growth, setting_list{});
    x->list = list;
    x->size += table_growth;
    return true;
}

setting_mode created_mode(ini_mode store) {
    setting_mode mode = Ini_None;
    for (const auto &row : new_modes)
        if (has(store, row.flag))
            mode = mode | row.gives;
    return mode;
}

void associate(ini *x, int from, int to) {
    const ini_item *item = item_at(x, from);
    if (item == nullptr) {
        emsg("Ini association index %d invalid.", from);
        return;
    }
    auto *owned = static_cast<int *>(std::malloc(sizeof(int)));
    if (owned == nullptr)
        return;
    *owned = to;
    list_end(item->assoc);
    if (list_add(item->assoc, owned) == 0)
        std::free(owned);
    else
        dmsg("Ini association index %d->%d added", from, to);
}

// --- References ---

constexpr char reference_mark[] = "$(";
constexpr std::size_t mark_size = sizeof reference_mark - 1;

/// Copies the name of the reference at `at` into `name` (a buffer of text_size, cut there). Returns the
/// position past the ")", or null when there is none.
const char *read_reference(const char *at, char *name) {
    const char *start = at + mark_size;
    const char *end = std::strchr(start, ')');
    if (end == nullptr)
        return nullptr;
    scpy(name, start, static_cast<int>(std::min<std::ptrdiff_t>(end - start + 1, text_size)));
    return end + 1;
}

/// Finds the first reference in `text` that names a setting, copies it as written into `pattern` (a buffer of
/// text_size) and returns that setting's index; -1 when there is none.
int find_known_reference(const ini *x, const char *text, char *pattern) {
    for (const char *at = std::strstr(text, reference_mark); at != nullptr;
         at = std::strstr(at + 1, reference_mark)) {
        char name[text_size];
        const char *after = read_reference(at, name);
        if (after == nullptr)
            return -1;
        if (after - at >= text_size)
            continue; // no setting could be looked up by the whole of this name
        if (const int index = find_ignoring_case(x, name); index >= 0) {
            scpy(pattern, at, static_cast<int>(after - at) + 1);
            return index;
        }
    }
    return -1;
}

/// What stands in for a reference to setting `index`; null for nothing. The lock, associations and cursors do
/// not matter here.
const char *replacement_of(const ini *x, int index) {
    return has(x->list[index].mode, Ini_Replace) ? first_value(item_at(x, index)) : nullptr;
}

void log_rewrite(const char *pattern, const char *before, const char *replacement, const char *after,
                 bool hidden) {
    const char *shown = replacement != nullptr ? replacement : "(null)";
    dmsg("Replaced '%s' in '%s' with '%s' = '%s'", pattern, hidden ? "xxxx" : before, hidden ? "xxxx" : shown,
         hidden ? "xxxx" : after);
}

/// Replaces every `pattern` in the value at the cursor. Returns whether the value may be rewritten again: one
/// that fills its buffer may have been cut.
bool rewrite_pattern(ini *x, int index, const char *pattern, const char *replacement, bool hidden) {
    linklist *values = item_at(x, index)->values;
    const auto *before = static_cast<const char *>(list_get(values));
    char text[text_size];
    sreplace(before, pattern, replacement, text, text_size);
    log_rewrite(pattern, before, replacement, text, hidden);
    char *copy = s_strdup(text);
    if (copy == nullptr) {
        lose(x);
        return false;
    }
    std::free(list_replace(values, copy));
    if (std::strlen(text) < text_size - 1)
        return true;
    emsg("Ini value for '%s' left as it is, it fills %d bytes", x->list[index].setting, text_size);
    return false;
}

/// Resolves the references of the value at the cursor. The search starts over after each rewrite, so that
/// what a value brings in is resolved too.
void rewrite_value(ini *x, int index) {
    bool hidden = is_secret(x, x->list[index].mode);
    for (int rewrites = 0;; ++rewrites) {
        char pattern[text_size];
        const auto *value = static_cast<const char *>(list_get(item_at(x, index)->values));
        const int source = find_known_reference(x, value, pattern);
        if (source < 0)
            return;
        if (rewrites == most_rewrites) {
            emsg("Ini value for '%s' left as it is after %d replacements", x->list[index].setting, rewrites);
            return;
        }
        // A text that took in a password holds it from then on.
        hidden = hidden || is_secret(x, x->list[source].mode);
        if (!rewrite_pattern(x, index, pattern, replacement_of(x, source), hidden))
            return;
    }
}

/// A result buffer that is filled from the front; one byte stays for the terminator.
class bounded_text {
  public:
    bounded_text(char *text, std::size_t size) : text_(text), size_(size) {}

    std::size_t room() const { return size_ - used_; }

    void append(std::string_view piece) {
        used_ += piece.copy(text_ + used_, room() - 1);
        text_[used_] = '\0';
    }

  private:
    char *text_;
    std::size_t size_;
    std::size_t used_ = 0;
};

// --- Settings files ---

/// Completes a file name and opens it for reading. A name that does not fit opens nothing: cut, it would be
/// another file's.
file_ptr open_settings(const char *file) {
    char extension[path_size];
    char path[path_size];
    const char *added = get_ext(extension, file, path_size) > 0 ? "" : ".ini";
    const bool fits = std::snprintf(path, sizeof path, "%s%s", file, added) < path_size;
    dmsg("Opening ini file '%s'", fits ? path : file);
    if (!fits)
        errno = ENAMETOOLONG;
    return file_ptr(fits ? s_fopen(path, "r") : nullptr);
}

/// A line of a settings file, cut in two in place.
struct setting_line {
    char *name = nullptr;
    const char *value = nullptr;
};

bool read_setting(script_reader &script, setting_line &line) {
    line.name = script.next();
    line.value =
        split_name(const_cast<char *>(line.name)); // the reader's own buffer, changeable by its contract
    return line.name != nullptr;
}

/// The virtual host that a file's blocks are compared with.
class chosen_host {
  public:
    explicit chosen_host(const char *vhost) : host_(s_strdup(vhost)) {}

    /// Tells whether the block of `name` applies; chooses the host first, if none is chosen yet.
    bool is(ini *x, const char *name) {
        if (host_ == nullptr)
            look_up(x);
        return host_ != nullptr && std::strcmp(host_.get(), name) == 0;
    }

  private:
    void look_up(ini *x) {
        const char *variable = ini_value_name(x, "vhost_match");
        if (variable == nullptr) {
            emsg("No vhost_match specified, will not match any vhost lines");
            return;
        }
        host_.reset(s_strdup(std::getenv(variable)));
        if (host_ == nullptr)
            emsg("Ini vhost NOT found, vhost_match=%s", variable);
        else
            ini_add_name(x, "vhost", host_.get());
    }

    text_ptr host_;
};

void load_lines(ini *x, FILE *file, const char *vhost) {
    script_reader script(file);
    chosen_host host(vhost);
    bool applies = true;
    for (setting_line line; read_setting(script, line);) {
        if (std::strcmp(line.name, "vend") == 0)
            applies = true;
        else if (std::strcmp(line.name, "vhost") == 0)
            applies = host.is(x, line.value);
        else if (applies)
            ini_add_name(x, line.name, line.value);
    }
}

void write_values(ini *x, FILE *file) {
    for (int index = 0; index < x->items; ++index)
        for (const char *value = ini_value(x, index); value != nullptr; value = ini_value_next(x, index))
            std::fprintf(file, "%s %s\n", x->list[index].setting, value);
}

/// Calls `take` with each name as an item of a container. Containers hold changeable items; the names are
/// only lent.
template <class Take>
void each_name(const ini *x, Take take) {
    for (int index = 0; index < x->items; ++index)
        take(const_cast<char *>(x->list[index].setting));
}

} // namespace

// --- Make and release ---

ini *ini_init() {
    ini *x = new (std::nothrow) ini{};
    if (x == nullptr)
        return nullptr;
    x->data = array_init(0);
    x->mode = Ini_DefaultMode;
    return x;
}

void ini_setup(ini *x, const setting_list *list, const int *assoc, int use_dflts) {
    if (x == nullptr || list == nullptr)
        return;
    int count = 0;
    while (list[count].setting != nullptr)
        ++count;
    auto *table = static_cast<setting_list *>(std::calloc(static_cast<std::size_t>(count) + 1, sizeof *list));
    if (table == nullptr) {
        lose(x);
        return;
    }
    drop_settings(x);
    x->list = table;
    x->size = count + 1;
    for (const setting_list *entry = list; entry->setting != nullptr; ++entry) {
        if (!append_setting(x, entry->setting, entry->mode, use_dflts != 0 ? entry->dflt : nullptr)) {
            lose(x);
            break;
        }
        dmsg("Ini setting '%s' setup", entry->setting);
    }
    for (; assoc != nullptr && *assoc != -1; assoc += 2)
        associate(x, assoc[0], assoc[1]);
}

void ini_free(ini **x) {
    if (x == nullptr || *x == nullptr)
        return;
    drop_settings(*x);
    array_free(&(*x)->data);
    array_free_fn(&(*x)->xtra, [](void **slot) {
        auto *entry = static_cast<ini_xtra *>(*slot);
        ini_free_xtra(&entry);
        *slot = nullptr;
    });
    delete *x;
    *x = nullptr;
}

void ini_free_xtra(ini_xtra **x) {
    if (x == nullptr)
        return;
    delete *x;
    *x = nullptr;
}

void ini_setmode(ini *x, ini_mode mode) {
    if (x != nullptr)
        x->mode = mode;
}

void ini_addmode(ini *x, ini_mode mode) {
    if (x != nullptr)
        x->mode = x->mode | mode;
}

void ini_rmvmode(ini *x, ini_mode mode) {
    if (x != nullptr)
        x->mode = x->mode & ~mode;
}

void ini_setup_load_fn(ini *x, ini_load_fn fn, setting_mode flag) {
    if (x == nullptr)
        return;
    if (x->xtra == nullptr)
        x->xtra = array_init(0);
    const int shown_flag = static_cast<int>(flag);
    for (int i = 0; i < array_items(x->xtra); ++i) {
        auto *entry = static_cast<ini_xtra *>(x->xtra->data[i]);
        if (entry->flag != flag)
            continue;
        imsg("Load fn [%p] already set for flag [%d], replacing with new fn",
             reinterpret_cast<void *>(entry->fn), shown_flag);
        entry->fn = fn;
        return;
    }
    imsg("New load fn [%p] set for flag [%d]", reinterpret_cast<void *>(fn), shown_flag);
    std::unique_ptr<ini_xtra> entry(new (std::nothrow) ini_xtra{fn, flag});
    if (array_add(x->xtra, entry.get()) != 0)
        static_cast<void>(entry.release());
}

// --- Add ---

int do_add(ini *x, int index, const char *value) {
    const ini_item *item = item_at(x, index);
    if (item == nullptr || value == nullptr)
        return 0;
    char buffer[text_size];
    value = converted(x, x->list[index].mode, value, buffer);
    const setting_list &entry = x->list[index]; // looked up now: a conversion may have created settings
    value = normalised(x, entry.mode, value, buffer);
    if (is_refused(x, entry, value))
        return -1;
    return store_value(x, entry, item->values, value);
}

int create_setting(ini *x, const char *label, const char *value) {
    if (x == nullptr || label == nullptr || value == nullptr)
        return 0;
    if (*value == '\0' && !has(x->mode, Ini_NewEmpty))
        return -1;
    const setting_mode mode = created_mode(x->mode);
    if (!has_room(x) || !append_setting(x, label, mode, value)) {
        lose(x);
        return 0;
    }
    dmsg("Ini setting '%s' created and set to '%s'", label, is_secret(x, mode) ? "xxxx" : value);
    return 1;
}

int ini_add(ini *x, int index, const char *value) {
    return do_add(x, index, value);
}

int ini_add_name(ini *x, const char *name, const char *value) {
    if (x == nullptr || x->list == nullptr || name == nullptr || value == nullptr)
        return 0;
    if (const int index = find_exact(x, name); index >= 0)
        return do_add(x, index, value);
    return has(x->mode, Ini_UseNew) ? create_setting(x, name, value) : 0;
}

int ini_add_format(ini *x, int index, const char *format, ...) {
    if (format == nullptr)
        return 0;
    message m{};
    std::va_list args;
    va_start(args, format);
    vmessage(m, format, args);
    va_end(args);
    return do_add(x, index, m.text);
}

int ini_add_array(ini *x, int index, const array *values) {
    if (item_at(x, index) == nullptr || values == nullptr)
        return 0;
    for (int i = 0; i < values->items; ++i)
        if (do_add(x, index, static_cast<const char *>(values->data[i])) != 1)
            return 0;
    return 1;
}

// --- Look ---

int ini_lost(const ini *x) {
    return x != nullptr && x->lost ? 1 : 0;
}

int ini_items(const ini *x) {
    return x != nullptr ? x->items : 0;
}

const char *ini_value(ini *x, int index) {
    const ini_item *item = readable_item(x, index);
    if (item == nullptr)
        return nullptr;
    list_start(item->values);
    if (const char *value = first_value(item))
        return value;
    return list_items(item->assoc) > 0 ? borrowed_value(x, index) : nullptr;
}

const char *ini_value_next(ini *x, int index) {
    const ini_item *item = readable_item(x, index);
    return item != nullptr ? static_cast<const char *>(list_get_next(item->values)) : nullptr;
}

const char *ini_value_name(ini *x, const char *label) {
    return ini_value(x, find_exact(x, label));
}

const char *ini_value_name_next(ini *x, const char *label) {
    return ini_value_next(x, find_exact(x, label));
}

int ini_true(ini *x, int index) {
    return istrue(ini_value(x, index));
}

int ini_false(ini *x, int index) {
    return isfalse(ini_value(x, index));
}

int ini_index(const ini *x, const char *label) {
    return find_exact(x, label);
}

const char *ini_label(const ini *x, int index) {
    return item_at(x, index) != nullptr ? x->list[index].setting : nullptr;
}

setting_mode ini_setting_mode(const ini *x, int index) {
    return item_at(x, index) != nullptr ? x->list[index].mode : Ini_None;
}

setting_mode ini_setting_mode_name(const ini *x, const char *label) {
    return ini_setting_mode(x, find_exact(x, label));
}

array *ini_label_array(const ini *x) {
    if (x == nullptr)
        return nullptr;
    array *names = array_init(0);
    each_name(x, [names](char *name) { array_add(names, name); });
    return names;
}

linklist *ini_label_list(const ini *x) {
    if (x == nullptr)
        return nullptr;
    linklist *names = list_init();
    each_name(x, [names](char *name) { list_add(names, name); });
    return names;
}

array *ini_label_wild(const ini *x, const char *wild) {
    if (x == nullptr || wild == nullptr)
        return nullptr;
    array *names = array_init(0);
    each_name(x, [names, wild](char *name) {
        if (wild_match(name, wild) != 0)
            array_add(names, name);
    });
    return names;
}

// --- Remove ---

char *ini_remove(ini *x, int index) {
    if (const ini_item *item = item_at(x, index))
        list_start(item->values);
    return ini_remove_next(x, index);
}

char *ini_remove_next(ini *x, int index) {
    const ini_item *item = item_at(x, index);
    return item != nullptr ? static_cast<char *>(list_del(item->values)) : nullptr;
}

char *ini_remove_name(ini *x, const char *name) {
    return ini_remove(x, find_exact(x, name));
}

char *ini_remove_name_next(ini *x, const char *name) {
    return ini_remove_next(x, find_exact(x, name));
}

// --- Expand "$(name)" ---

void ini_replace(ini *x, const char *string, char *result, unsigned int bfsz) {
    if (x == nullptr || string == nullptr || result == nullptr || bfsz == 0)
        return;
    bounded_text out(result, bfsz);
    while (const char *at = std::strstr(string, reference_mark)) {
        char name[text_size];
        const std::string_view between(string, static_cast<std::size_t>(at - string));
        const char *after = read_reference(at, name);
        if (after == nullptr || between.size() > out.room())
            break;
        out.append(between);
        out.append(str(ini_value_name(x, name)));
        string = after;
    }
    out.append(string);
}

int ini_process(ini *x) {
    if (x == nullptr || x->list == nullptr)
        return 0;
    dmsg("Processing replacable settings...");
    for (int index = 0; index < x->items; ++index) {
        linklist *values = item_at(x, index)->values;
        for (list_start(values); list_get(values) != nullptr; list_next(values))
            rewrite_value(x, index);
    }
    dmsg("Finished processing replacable settings");
    return 1;
}

// --- Settings files ---

int ini_load(ini *x, const char *xfile, const char *vhost) {
    if (x == nullptr || x->list == nullptr || xfile == nullptr)
        return 0;
    const file_ptr file = open_settings(xfile);
    if (file == nullptr)
        return 0;
    ini_rmvmode(x, Ini_UseFixed);
    dmsg("Ini loading file '%s'", xfile);
    load_lines(x, file.get(), vhost);
    // Whatever it was before: values from files are the last to reach fixed settings.
    ini_addmode(x, Ini_UseFixed);
    return std::ferror(file.get()) == 0 ? 1 : 0;
}

const char *ini_peek(ini *x, const char *file, int index) {
    static char found[text_size];
    const char *label = ini_label(x, index);
    if (label == nullptr || file == nullptr)
        return nullptr;
    const file_ptr source = open_settings(file);
    if (source == nullptr)
        return nullptr;
    script_reader script(source.get());
    for (setting_line line; read_setting(script, line);) {
        if (std::strcmp(line.name, label) != 0)
            continue;
        scpy(found, line.value, text_size);
        break;
    }
    return found[0] != '\0' ? found : nullptr;
}

int ini_save(ini *x, const char *file) {
    if (x == nullptr || x->list == nullptr || file == nullptr)
        return 0;
    file_ptr target(s_fopen(file, "w"));
    if (target == nullptr) {
        emsg("Ini error opening '%s' for write, %s", file, std::strerror(errno));
        return 0;
    }
    dmsg("Ini saving file '%s'", file);
    write_values(x, target.get());
    if (close_written(target))
        return 1;
    emsg("Error writing to '%s'", file);
    return 0;
}

} // namespace installer
