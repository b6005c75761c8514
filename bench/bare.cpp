// The physical limit: for each workload the bare system calls that the work needs and next to nothing else. No check, no
// message, no log; an error ends the program. A dot is written for each thing copied or removed, as the installer does.
//
//     bare copy TREE DIRECTORY [SUFFIX...]    names that end in a SUFFIX are left out
//     bare file FILE DIRECTORY
//     bare remove TREE
//     bare mode TREE
//     bare own TREE                           gives it to the user and the group that it runs as
//     bare expand TEMPLATE TARGET < SETTINGS  a setting is a line: its name, a blank, its value

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <iterator>
#include <string_view>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

/// The first word names the work; the others are its operands.
struct words {
    char **first;
    int count;
};

words suffixes = {};

int checked(int result, const char *what) {
    if (result >= 0)
        return result;
    std::perror(what);
    std::exit(1);
}

void dot() {
    checked(static_cast<int>(write(STDOUT_FILENO, ".", 1)), "write");
}

bool left_out(std::string_view name) {
    return std::any_of(suffixes.first, suffixes.first + suffixes.count,
                       [name](const char *suffix) { return name.ends_with(suffix); });
}

template <class Visit>
void each_entry(int dir, const char *name, Visit visit) {
    DIR *opened = fdopendir(checked(openat(dir, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC), name));
    while (const dirent *entry = readdir(opened))
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
            visit(dirfd(opened), entry->d_name, entry->d_type == DT_DIR);
    closedir(opened);
}

void copy_file(int from_dir, const char *name, int to_dir) {
    const int from = checked(openat(from_dir, name, O_RDONLY | O_CLOEXEC), name);
    const int to = checked(openat(to_dir, name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666), name);
    ssize_t copied = 0;
    do
        copied = copy_file_range(from, nullptr, to, nullptr, std::size_t{1} << 30, 0);
    while (copied == ssize_t{1} << 30);
    checked(static_cast<int>(std::min<ssize_t>(copied, 0)), "copy_file_range");
    close(from);
    close(to);
    dot();
}

void copy_tree(int from_dir, const char *name, int to_dir) {
    checked(mkdirat(to_dir, name, 0775), name);
    dot();
    const int to = checked(openat(to_dir, name, O_PATH | O_DIRECTORY | O_CLOEXEC), name);
    each_entry(from_dir, name, [to](int dir, const char *entry, bool is_tree) {
        if (left_out(entry))
            return;
        if (is_tree)
            copy_tree(dir, entry, to);
        else
            copy_file(dir, entry, to);
    });
    close(to);
}

void remove_tree(int in, const char *name) {
    each_entry(in, name, [](int dir, const char *entry, bool is_tree) {
        if (is_tree)
            remove_tree(dir, entry);
        else
            checked(unlinkat(dir, entry, 0), entry);
        dot();
    });
    checked(unlinkat(in, name, AT_REMOVEDIR), name);
    dot();
}

void change_mode(int in, const char *name) {
    each_entry(in, name, [](int dir, const char *entry, bool is_tree) {
        if (is_tree)
            change_mode(dir, entry);
        else
            checked(fchmodat(dir, entry, 0755, 0), entry);
    });
    checked(fchmodat(in, name, 0755, 0), name);
}

void change_owner(int in, const char *name) {
    static const uid_t user = getuid();
    static const gid_t group = getgid();
    each_entry(in, name, [](int dir, const char *entry, bool is_tree) {
        if (is_tree)
            change_owner(dir, entry);
        else
            checked(fchownat(dir, entry, user, group, 0), entry);
    });
    checked(fchownat(in, name, user, group, 0), name);
}

/// Divides a source path into an open directory and the name in it.
struct source {
    explicit source(char *path) : name(std::strrchr(path, '/') + 1) {
        name[-1] = '\0';
        dir = checked(open(path, O_PATH | O_DIRECTORY | O_CLOEXEC), path);
    }
    char *name;
    int dir = -1;
};

int target(const char *path) {
    return checked(open(path, O_PATH | O_DIRECTORY | O_CLOEXEC), path);
}

void do_copy(words operands) {
    const source from(operands.first[0]);
    suffixes = {operands.first + 2, operands.count - 2};
    copy_tree(from.dir, from.name, target(operands.first[1]));
}

void do_file(words operands) {
    const source from(operands.first[0]);
    copy_file(from.dir, from.name, target(operands.first[1]));
}

// ---- Expanding ----

struct setting {
    std::string_view name;
    std::string_view value;
};

setting settings[256]; // at the place that the name's bytes give, or behind it
char setting_text[65536];

setting &setting_at(std::string_view name) {
    unsigned sum = 0;
    for (const char c : name)
        sum = sum * 31 + static_cast<unsigned char>(c);
    while (!settings[sum % 256].name.empty() && settings[sum % 256].name != name)
        ++sum;
    return settings[sum % 256];
}

void read_settings() {
    std::string_view rest(setting_text,
                          static_cast<std::size_t>(read(STDIN_FILENO, setting_text, sizeof setting_text)));
    while (!rest.empty()) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        const std::size_t blank = line.find(' ');
        setting_at(line.substr(0, blank)) = {line.substr(0, blank), line.substr(blank + 1)};
        rest.remove_prefix(std::min(rest.size(), line.size() + 1));
    }
}

std::string_view mapped(const char *path) {
    const int fd = checked(open(path, O_RDONLY | O_CLOEXEC), path);
    struct stat info = {};
    checked(fstat(fd, &info), path);
    const auto size = static_cast<std::size_t>(info.st_size);
    return {static_cast<const char *>(mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0)), size};
}

void do_expand(words operands) {
    static char buffer[65536];
    read_settings();
    std::string_view text = mapped(operands.first[0]);
    FILE *to = std::fopen(operands.first[1], "w");
    std::setvbuf(to, buffer, _IOFBF, sizeof buffer);
    for (std::size_t at = text.find("$("); at != std::string_view::npos; at = text.find("$(")) {
        const std::size_t end = text.find(')', at);
        const std::string_view value = setting_at(text.substr(at + 2, end - at - 2)).value;
        fwrite_unlocked(text.data(), 1, at, to);
        fwrite_unlocked(value.data(), 1, value.size(), to);
        text.remove_prefix(end + 1);
    }
    fwrite_unlocked(text.data(), 1, text.size(), to);
    std::fclose(to);
}

constexpr struct {
    std::string_view work;
    int operands;
    void (*run)(words operands);
} works[] = {
    {"copy", 2, do_copy},
    {"file", 2, do_file},
    {"remove", 1, [](words operands) { remove_tree(AT_FDCWD, operands.first[0]); }},
    {"mode", 1, [](words operands) { change_mode(AT_FDCWD, operands.first[0]); }},
    {"own", 1, [](words operands) { change_owner(AT_FDCWD, operands.first[0]); }},
    {"expand", 2, do_expand},
};

} // namespace

int main(int argc, char **argv) {
    const auto *work = std::find_if(std::begin(works), std::end(works), [&](const auto &row) {
        return argc - 2 >= row.operands && row.work == argv[1];
    });
    if (work == std::end(works)) {
        std::fputs("usage: see the top of bare.cpp\n", stderr);
        return 2;
    }
    work->run({argv + 2, argc - 2});
    return 0;
}
