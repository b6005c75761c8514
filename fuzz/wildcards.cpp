// Wildcards against a plain recursive model: the first line is the pattern, the second the text.

#include "fuzz/support.h"
#include "installer/lib.h"

#include <algorithm>

using namespace installer;

namespace {

unsigned char fold(char c) {
    return charmap[static_cast<unsigned char>(c)];
}

/// '*' is any run, '?' any one character; behind a star the pattern's next character, even a '?', stands in the text as
/// it is written (but for its case).
bool model(const char *text, const char *wild, bool exact) {
    if (*wild == '\0')
        return *text == '\0';
    if (*wild == '*') {
        while (*wild == '*')
            ++wild;
        if (*wild == '\0')
            return true;
        for (; *text != '\0'; ++text)
            if (fold(*text) == fold(*wild) && model(text, wild, exact))
                return true;
        return false;
    }
    if (*text == '\0')
        return false;
    const bool same = exact ? *wild == *text : fold(*wild) == fold(*text);
    return (*wild == '?' || same) && model(text + 1, wild + 1, exact);
}

std::vector<std::string> words(std::string_view text) {
    std::vector<std::string> all(1);
    for (const char c : text)
        if (c == ' ' || c == '\t' || c == ',')
            all.emplace_back();
        else
            all.back() += c;
    all.erase(std::remove(all.begin(), all.end(), std::string()), all.end());
    return all;
}

bool list_model(const std::string &list, const std::string &wilds, bool exact) {
    for (const std::string &word : words(list))
        for (const std::string &wild : words(wilds))
            if (model(word.c_str(), wild.c_str(), exact))
                return true;
    return false;
}

/// The model tries everything: it may take a few stars and short texts.
bool small(const std::string &text, const std::string &wild) {
    return text.size() <= 48 && std::count(wild.begin(), wild.end(), '*') <= 4;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    std::string_view rest = fuzz::text_of(data, size);
    const std::string wild(std::string(fuzz::take(rest, '\n')).c_str()); // both end at a NUL byte
    const std::string text(std::string(rest).c_str());
    const bool exact = wmatch(text.c_str(), wild.c_str(), 1) != 0;
    const bool folded = wmatch(text.c_str(), wild.c_str(), 0) != 0;
    FUZZ_CHECK(folded || !exact);
    FUZZ_CHECK((wild_match(text.c_str(), wild.c_str()) != 0) == exact);
    FUZZ_CHECK((wild_imatch(text.c_str(), wild.c_str()) != 0) == folded);
    const bool listed = wild_list(text.c_str(), wild.c_str()) != 0;
    const bool listed_folded = wild_ilist(text.c_str(), wild.c_str()) != 0;
    if (small(text, wild)) {
        FUZZ_CHECK(exact == model(text.c_str(), wild.c_str(), true));
        FUZZ_CHECK(folded == model(text.c_str(), wild.c_str(), false));
        FUZZ_CHECK(listed == list_model(text, wild, true));
        FUZZ_CHECK(listed_folded == list_model(text, wild, false));
    }
    return 0;
}
