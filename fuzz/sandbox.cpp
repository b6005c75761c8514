#include "fuzz/sandbox.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <vector>

namespace fs = std::filesystem;

namespace installer::fuzz {
namespace {

void must(bool worked, const char *what) {
    if (worked)
        return;
    std::fprintf(stderr, "no sandbox: %s: %s\n", what, std::strerror(errno));
    std::_Exit(77);
}

void write_text(const char *path, const std::string &text) {
    std::ofstream file(path);
    must(static_cast<bool>(file << text << std::flush), path);
}

void enter_namespaces() {
    const uid_t user = geteuid();
    const gid_t group = getegid();
    must(unshare(CLONE_NEWNS | (user != 0 ? CLONE_NEWUSER : 0)) == 0, "unshare");
    if (user != 0) {
        write_text("/proc/self/setgroups", "deny");
        write_text("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
        write_text("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
    }
    must(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "private mounts");
}

/// The directories in libFuzzer's command line: of the corpora and of the findings.
std::vector<std::string> written_to(int argc, char **argv) {
    constexpr std::string_view findings = "-artifact_prefix=";
    std::vector<std::string> all;
    for (int i = 1; i < argc; ++i) {
        std::string word = argv[i];
        if (word.compare(0, findings.size(), findings) == 0)
            word = fs::path(word.substr(findings.size())).parent_path();
        if (!word.empty() && word[0] != '-' && fs::is_directory(word))
            all.push_back(fs::absolute(word));
    }
    return all;
}

void set_attributes(const char *path, unsigned int flags, std::uint64_t set, std::uint64_t clear) {
    mount_attr attributes{};
    attributes.attr_set = set;
    attributes.attr_clr = clear;
    must(mount_setattr(AT_FDCWD, path, flags, &attributes, sizeof attributes) == 0, path);
}

void make_outside() {
    fs::create_directories(std::string(outside) + "/etc/deep");
    write_text("/mnt/outside/etc/passwd", "root:x:0:0::/root:/bin/sh\n");
    write_text("/mnt/outside/etc/deep/secret", "keep me\n");
    fs::create_symlink("etc/passwd", std::string(outside) + "/link");
}

constexpr char linked_to[] = "/mnt/outside/etc";

/// One line of what lstat says; whatever happens to an entry changes its time of change.
std::string entry_line(const fs::path &path) {
    struct stat st {};
    if (path == linked_to) // mode and owner are changed through a link, and meant to be
        return path.string() + "\n";
    if (lstat(path.c_str(), &st) != 0)
        return path.string() + " is gone\n";
    char line[200];
    std::snprintf(line, sizeof line, " %o %u:%u %lld %lld.%09ld\n", st.st_mode, st.st_uid, st.st_gid,
                  static_cast<long long>(st.st_size), static_cast<long long>(st.st_ctim.tv_sec),
                  st.st_ctim.tv_nsec);
    return path.string() + line;
}

} // namespace

void enter_sandbox(int argc, char **argv) {
    const std::vector<std::string> writable = written_to(argc, argv);
    enter_namespaces();
    for (const std::string &path : writable)
        must(mount(path.c_str(), path.c_str(), nullptr, MS_BIND, nullptr) == 0, path.c_str());
    set_attributes("/", AT_RECURSIVE, MOUNT_ATTR_RDONLY | MOUNT_ATTR_NODEV, 0);
    for (const std::string &path : writable)
        set_attributes(path.c_str(), 0, 0, MOUNT_ATTR_RDONLY);
    must(mount("fuzz", "/mnt", "tmpfs", MS_NODEV | MS_NOSUID, "size=8m,nr_inodes=2000") == 0, "/mnt");
    make_outside();
}

void renew_inside() {
    must(chdir("/") == 0, "chdir");
    umask(022);
    std::error_code ignored;
    fs::remove_all(inside, ignored);
    for (const std::string &path :
         {std::string(inside), std::string(inside) + "/kit", std::string(inside) + "/target"})
        must(mkdir(path.c_str(), 0755) == 0, path.c_str());
    // A link that leads outside, where a kit cannot name it but a walk comes by.
    must(mkdir("/mnt/inside/target/outside", 0755) == 0, "mkdir");
    must(symlink(linked_to, "/mnt/inside/target/outside/outside") == 0, "symlink");
    must(chdir("/mnt/inside/kit") == 0, "chdir");
}

std::string look_outside() {
    std::vector<fs::path> paths;
    for (const auto &entry : fs::recursive_directory_iterator(outside))
        paths.push_back(entry.path());
    std::sort(paths.begin(), paths.end());
    std::string seen = entry_line(outside);
    for (const fs::path &path : paths)
        seen += entry_line(path);
    std::vector<std::string> beside;
    for (const auto &entry : fs::directory_iterator("/mnt"))
        beside.push_back(entry.path());
    std::sort(beside.begin(), beside.end());
    for (const std::string &path : beside)
        seen += path + "\n";
    return seen;
}

} // namespace installer::fuzz
