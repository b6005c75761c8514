// A whole run: the input becomes a kit, what stands on the host before, a command line and what the operator types.
//
//     %% dat                      the settings data file; likewise int, q, cpy, blurb
//     %% input                    what is typed
//     %% args                     -debug, -automate, -special TAG; no word but these
//     %% kit files/page.html      a file in the kit
//     %% target etc/board.conf    a file on the host
//
// The kit may name nothing outside the private directory, see fence(); so whatever it says, nothing outside may change.
// Three things watch over that: a tree beside the private directory, compared after each run; the rest of the host, which
// can only be read; and the program's own log and console, where an attempt to write there would be told.

#include "fuzz/sandbox.h"
#include "fuzz/support.h"
#include "installer/installer.h"
#include "installer/lib.h"

#include <fcntl.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>

namespace fs = std::filesystem;
using namespace installer;

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv);
int installer_main(int argc, char **argv);

namespace {

constexpr char console[] = "/mnt/inside/console";
constexpr char refused[] = "Read-only file system";

struct section {
    std::string kind; // "dat", "kit", ...
    std::string path; // of "kit" and "target"
    std::string text;
};

std::vector<section> sections(std::string_view rest) {
    std::vector<section> all;
    while (!rest.empty()) {
        const std::string_view line = fuzz::take(rest, '\n');
        if (line.substr(0, 3) == "%% ") {
            std::string_view words = line.substr(3);
            section next{std::string(fuzz::take(words, ' ')), std::string(words), ""};
            all.push_back(next);
        } else if (!all.empty()) {
            all.back().text.append(line).append("\n");
        }
    }
    return all;
}

bool is_boundary(char c) {
    return c == '\0' || std::isspace(static_cast<unsigned char>(c)) != 0;
}

/// Replaces every `find`, ignoring case, by `put`, which is as long.
void disguise(std::string &text, const std::string &find, const std::string &put) {
    for (std::size_t i = 0; i + find.size() <= text.size(); ++i)
        if (s_strnicmp(text.c_str() + i, find.c_str(), static_cast<int>(find.size())) == 0)
            text.replace(i, put.size(), put);
}

/// A reference that is not closed in its word would swallow the private directory that the next word begins with.
void open_references_away(std::string &text) {
    for (std::size_t i = 0; (i = text.find('$', i)) != text.npos; ++i) {
        std::size_t end = i + 1;
        while (end < text.size() && !is_boundary(text[end]) && text[end] != ')')
            ++end;
        if (text.compare(i, 2, "$(") != 0 || end == text.size() || text[end] != ')')
            text[i] = 'S';
    }
}

/// Makes any bytes name nothing outside: every word with a separator begins with the private directory, no component can
/// become "..", whatever references bring together, and the built-in setting that names a directory of the host is
/// called otherwise.
std::string fence(std::string text) {
    for (std::size_t at = 0; (at = text.find("[ROOT]", at)) != text.npos;)
        text.replace(at, 6, fuzz::inside);
    disguise(text, "system_dir", "kitten_dir");
    disguise(text, "outside", "Outsize");
    open_references_away(text);
    for (std::size_t i = 0; i < text.size(); ++i)
        if (text[i] == '.' &&
            (i + 1 == text.size() || std::isalnum(static_cast<unsigned char>(text[i + 1])) == 0))
            text[i] = '_';
    const std::string base = std::string(fuzz::inside) + "/";
    std::string fenced;
    for (std::size_t i = 0; i < text.size();) {
        std::size_t end = i;
        while (end < text.size() && !is_boundary(text[end]))
            ++end;
        const std::string word = text.substr(i, end - i);
        if (word.find_first_of("/\\") != word.npos && word.compare(0, base.size(), base) != 0)
            fenced += base + "target/";
        fenced += word;
        for (; end < text.size() && is_boundary(text[end]); ++end)
            fenced += text[end];
        i = end;
    }
    return fenced;
}

/// A path below `folder`, made of the harmless characters of `name`; "" when nothing is left.
fs::path below(const std::string &folder, const std::string &name) {
    std::string kept;
    for (const char c : name)
        if (std::isalnum(static_cast<unsigned char>(c)) != 0 || std::strchr("/_-", c) != nullptr ||
            (c == '.' && !kept.empty() && kept.back() != '.' && kept.back() != '/'))
            kept += c;
    kept.erase(0, kept.find_first_not_of('/'));
    return kept.empty() ? fs::path() : fs::path(fuzz::inside) / folder / kept;
}

void write_file(const fs::path &path, const std::string &text) {
    std::error_code ignored; // the input may make a folder of what it made a file of
    if (path.empty())
        return;
    fs::create_directories(path.parent_path(), ignored);
    std::ofstream(path) << text;
}

const std::map<std::string, std::string> &kit_names() {
    static const std::map<std::string, std::string> names{
        {"dat", "kit/setup.dat"}, {"int", "kit/setup.int"},   {"q", "kit/setup.q"},
        {"cpy", "kit/setup.cpy"}, {"blurb", "kit/blurb.txt"}, {"input", "input"},
    };
    return names;
}

/// Writes the files and returns the command line.
std::vector<std::string> unpack(const std::vector<section> &all) {
    std::vector<std::string> words{"./setup"};
    for (const section &part : all) {
        const auto file = kit_names().find(part.kind);
        if (file != kit_names().end())
            write_file(fs::path(fuzz::inside) / file->second, fence(part.text));
        else if (part.kind == "kit" || part.kind == "target")
            write_file(below(part.kind, part.path), fence(part.text));
        else if (part.kind == "args")
            for (auto [stream, word] = std::pair(std::istringstream(part.text), std::string());
                 stream >> word;)
                words.push_back(word);
    }
    return words;
}

/// Only options that return from `main`.
std::vector<std::string> usable(const std::vector<std::string> &words) {
    std::vector<std::string> all{words[0]};
    for (std::size_t i = 1; i < words.size(); ++i)
        if (words[i] == "-automate" || words[i] == "-debug")
            all.push_back(words[i]);
        else if (words[i] == "-special" && i + 1 < words.size()) {
            all.push_back(words[i]);
            all.push_back(words[++i]);
        }
    return all;
}

void run(std::vector<std::string> words) {
    if (!fs::exists("/mnt/inside/input"))
        write_file("/mnt/inside/input", "");
    FUZZ_CHECK(std::freopen("/mnt/inside/input", "r", stdin) != nullptr);
    FUZZ_CHECK(std::freopen(console, "w", stdout) != nullptr);
    std::vector<char *> argv;
    for (std::string &word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    automate = 0;
    FUZZ_CHECK(installer_main(static_cast<int>(words.size()), argv.data()) == 0);
    std::fflush(stdout);
}

/// Whether a file tells that the host refused something; the line is shown.
bool tells_of_a_refusal(const char *path) {
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);)
        if (line.find(refused) != std::string::npos) {
            std::fprintf(stderr, "%s\n", line.c_str());
            return true;
        }
    return false;
}

/// Goes back at the end: libFuzzer finds its directories from there.
class working_directory {
  public:
    working_directory() : descriptor_(open(".", O_PATH | O_DIRECTORY)) { FUZZ_CHECK(descriptor_ >= 0); }
    working_directory(const working_directory &) = delete;
    working_directory &operator=(const working_directory &) = delete;
    ~working_directory() {
        FUZZ_CHECK(fchdir(descriptor_) == 0);
        close(descriptor_);
    }

  private:
    int descriptor_;
};

} // namespace

int LLVMFuzzerInitialize(int *argc, char ***argv) {
    fuzz::enter_sandbox(*argc, *argv);
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const working_directory libfuzzers;
    static const std::string before = (fuzz::renew_inside(), fuzz::look_outside());
    fuzz::renew_inside();
    run(usable(unpack(sections(fuzz::text_of(data, size)))));
    FUZZ_CHECK(fuzz::look_outside() == before);
    if (fuzz::text_of(data, size).find(refused) == std::string_view::npos)
        FUZZ_CHECK(!tells_of_a_refusal("/mnt/inside/kit/setup.log") && !tells_of_a_refusal(console));
    return 0;
}
