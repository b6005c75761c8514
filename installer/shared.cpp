#include "installer/shared.h"

#include "installer/lib.h"
#include "installer/log.h"
#include "installer/tcp.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace installer {

namespace {

constexpr int first_capacity = 10;
constexpr int growth = 5;

void release(setting_list *records, int count) {
    for (int i = 0; i < count; ++i) {
        // The fields are constant for the tables that programs write down; here they are copies made by `append`.
        std::free(const_cast<char *>(records[i].setting));
        std::free(const_cast<char *>(records[i].dflt));
    }
    std::free(records);
}

/// The definitions while they are read. Records from `count` on are zero, so the table is terminated whenever
/// `count` is below `capacity`.
struct definitions {
    setting_list *records = nullptr;
    int count = 0;
    int capacity = 0;

    definitions() = default;
    definitions(const definitions &) = delete;
    definitions &operator=(const definitions &) = delete;
    ~definitions() { release(records, count); }

    setting_list *hand_over() {
        count = 0;
        return std::exchange(records, nullptr);
    }
};

bool grow(definitions &table, int by) {
    const int capacity = table.capacity + by;
    void *records = std::realloc(table.records, static_cast<std::size_t>(capacity) * sizeof(setting_list));
    if (records == nullptr) {
        emsg("Memory allocation error");
        return false;
    }
    table.records = static_cast<setting_list *>(records);
    std::fill(table.records + table.capacity, table.records + capacity, setting_list{});
    table.capacity = capacity;
    return true;
}

/// Appends a definition with its own copies of the name and of the value, which may be null.
bool append(definitions &table, const char *name, const char *value, setting_mode mode) {
    if (table.count == table.capacity && !grow(table, table.capacity == 0 ? first_capacity : growth))
        return false;
    text_ptr own_name(s_strdup(name));
    text_ptr own_value(s_strdup(value));
    if (own_name == nullptr || (value != nullptr && own_value == nullptr)) {
        emsg("Memory allocation error");
        return false;
    }
    table.records[table.count++] = {own_name.release(), own_value.release(), mode};
    return true;
}

char *install_action(char *buffer, int size) {
    scpy(buffer, "install", size);
    return buffer;
}

constexpr auto fixed_reference = static_cast<setting_mode>(Ini_Replace | Ini_Fixed);

constexpr struct {
    const char *name;
    char *(*value)(char *buffer, int size);
    setting_mode mode;
} built_in[] = {
    {"host", tcp_hostname, fixed_reference},
    {"system_dir", systemdir, fixed_reference},
    {"current_dir", currentdir, fixed_reference},
    {"action", install_action, Ini_None},
};

bool append_built_in(definitions &table) {
    return std::all_of(std::begin(built_in), std::end(built_in), [&table](const auto &setting) {
        char value[text_size] = "";
        if (setting.value(value, text_size) == nullptr) {
            // A script that composes paths with an empty current_dir would act on the root directory.
            emsg("Error finding %s, %s", setting.name, std::strerror(errno));
            return false;
        }
        imsg("%s=%s", setting.name, value);
        return append(table, setting.name, value, setting.mode);
    });
}

bool append_file(definitions &table, FILE *file, const char *path) {
    script_reader reader(file);
    while (char *name = reader.next()) {
        const char *value = split_name(name);
        dmsg("Adding '%s'='%s'", name, value);
        if (!append(table, name, *value != '\0' ? value : nullptr, Ini_Replace))
            return false;
    }
    if (!reader.broke_off())
        return true;
    emsg("Error reading from '%s', %s", path, std::strerror(errno));
    return false;
}

bool terminate(definitions &table) {
    return table.count < table.capacity || grow(table, 1);
}

} // namespace

int load_datfile(ini *x, const char *file) {
    if (x == nullptr || file == nullptr)
        return 0;
    const file_ptr data(s_fopen(file, "r"));
    if (data == nullptr) {
        emsg("Error opening '%s' for read, %s", file, std::strerror(errno));
        return 0;
    }
    definitions table;
    if (!append_built_in(table) || !append_file(table, data.get(), file) || !terminate(table))
        return 0;
    clear_datfile();
    _settings = table.hand_over();
    ini_setup(x, _settings, nullptr, 1);
    ini_process(x);
    return ini_lost(x) != 0 ? 0 : 1;
}

void clear_datfile() {
    int count = 0;
    while (_settings != nullptr && _settings[count].setting != nullptr)
        ++count;
    release(_settings, count);
    _settings = nullptr;
}

} // namespace installer
