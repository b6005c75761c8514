#include "installer/lib.h"

#include "installer/msg.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

namespace installer {

namespace {

unsigned char byte(char c) {
    return static_cast<unsigned char>(c);
}

int fold(char c) {
    return charmap[byte(c)];
}

bool is_space(char c) {
    return std::isspace(byte(c)) != 0;
}

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

constexpr int hex_value(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

} // namespace

// Tables

// clang-format off
constexpr unsigned char charmap[256] = {
    0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09, 0x0a, 0x0b, 0x0c, 0x0d, 0x0e, 0x0f,
    0x10, 0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0x18, 0x19, 0x1a, 0x1b, 0x1c, 0x1d, 0x1e, 0x1f,
    ' ',  '!',  '"',  '#',  '$',  '%',  '&',  '\'', '(',  ')',  '*',  '+',  ',',  '-',  '.',  '/',
    '0',  '1',  '2',  '3',  '4',  '5',  '6',  '7',  '8',  '9',  ':',  ';',  '<',  '=',  '>',  '?',
    '@',  'a',  'b',  'c',  'd',  'e',  'f',  'g',  'h',  'i',  'j',  'k',  'l',  'm',  'n',  'o',
    'p',  'q',  'r',  's',  't',  'u',  'v',  'w',  'x',  'y',  'z',  '[',  '\\', ']',  '^',  '_',
    '`',  'a',  'b',  'c',  'd',  'e',  'f',  'g',  'h',  'i',  'j',  'k',  'l',  'm',  'n',  'o',
    'p',  'q',  'r',  's',  't',  'u',  'v',  'w',  'x',  'y',  'z',  '{',  '|',  '}',  '~',  0x7f,
    0x80, 0x81, 0x82, 0x83, 0x84, 0x85, 0x86, 0x87, 0x88, 0x89, 0x8a, 0x8b, 0x8c, 0x8d, 0x8e, 0x8f,
    0x90, 0x91, 0x92, 0x93, 0x94, 0x95, 0x96, 0x97, 0x98, 0x99, 0x9a, 0x9b, 0x9c, 0x9d, 0x9e, 0x9f,
    0xa0, 0xa1, 0xa2, 0xa3, 0xa4, 0xa5, 0xa6, 0xa7, 0xa8, 0xa9, 0xaa, 0xab, 0xac, 0xad, 0xae, 0xaf,
    0xb0, 0xb1, 0xb2, 0xb3, 0xb4, 0xb5, 0xb6, 0xb7, 0xb8, 0xb9, 0xba, 0xbb, 0xbc, 0xbd, 0xbe, 0xbf,
    0xc0, 0xc1, 0xc2, 0xc3, 0xc4, 0xc5, 0xc6, 0xc7, 0xc8, 0xc9, 0xca, 0xcb, 0xcc, 0xcd, 0xce, 0xcf,
    0xd0, 0xd1, 0xd2, 0xd3, 0xd4, 0xd5, 0xd6, 0xd7, 0xd8, 0xd9, 0xda, 0xdb, 0xdc, 0xdd, 0xde, 0xdf,
    0xe0, 0xe1, 0xe2, 0xe3, 0xe4, 0xe5, 0xe6, 0xe7, 0xe8, 0xe9, 0xea, 0xeb, 0xec, 0xed, 0xee, 0xef,
    0xf0, 0xf1, 0xf2, 0xf3, 0xf4, 0xf5, 0xf6, 0xf7, 0xf8, 0xf9, 0xfa, 0xfb, 0xfc, 0xfd, 0xfe, 0xff,
};

constexpr char trans[128] = {
    '*', '*', '*', '*', '*', '*', '*', '*', '*', '*', '*', '*', '*', '*', '*', '*', // control codes
    '*', '*', '*', '*', '*', '*', '*', '*', '*', '*', '*', '*', '*', '*', '*', '*',
    '0', '1', '2', '3', '4', '5', '6', '7', '8', '9', 'A', 'B', 'C', 'D', 'E', 'F', //  !"#$%&'()*+,-./
    '*', '*', '*', '*', '*', '*', '*', '*', '*', '*', 'G', 'H', 'I', 'J', 'J', 'K', // 0123456789:;<=>?
    'L', '*', '*', '*', '*', '*', '*', '*', '*', '*', '*', '*', '*', '*', '*', '*', // @A..O
    '*', '*', '*', '*', '*', '*', '*', '*', '*', '*', '*', 'M', 'N', 'O', 'P', '_', // P..Z[\]^_
    'Q', '*', '*', '*', '*', '*', '*', '*', '*', '*', '*', '*', '*', '*', '*', '*', // `a..o
    '*', '*', '*', '*', '*', '*', '*', '*', '*', '*', '*', 'R', 'S', 'T', 'U', 'V', // p..z{|}~ and 127
};

constexpr signed char hex_arrray[256] = {
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
     0,  1,  2,  3,  4,  5,  6,  7,  8,  9, -1, -1, -1, -1, -1, -1,
    -1, 10, 11, 12, 13, 14, 15, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    -1, 10, 11, 12, 13, 14, 15, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
};
// clang-format on

constexpr const char *const days[7] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr const char *const months[12] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                          "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

namespace {

constexpr bool charmap_only_lowers_capitals() {
    for (int i = 0; i < 256; ++i)
        if (charmap[i] != (i >= 'A' && i <= 'Z' ? i - 'A' + 'a' : i))
            return false;
    return true;
}

constexpr bool hex_arrray_agrees_with_hex_value() {
    for (int i = 0; i < 256; ++i)
        if (hex_arrray[i] != hex_value(static_cast<char>(i)))
            return false;
    return true;
}

static_assert(charmap_only_lowers_capitals());
static_assert(hex_arrray_agrees_with_hex_value());

} // namespace

// Guards

void close_file::operator()(FILE *file) const {
    const errno_guard keep;
    std::fclose(file);
}

bool close_written(file_ptr &file) {
    if (!file) {
        errno = EBADF;
        return false;
    }
    int reason = errno;
    bool whole = !std::ferror(file.get());
    if (!whole && reason == 0)
        reason = EIO; // some earlier write failed and its own reason is gone
    if (whole && std::fflush(file.get()) != 0) {
        whole = false;
        reason = errno;
    }
    if (std::fclose(file.release()) != 0 && whole) {
        whole = false;
        reason = errno;
    }
    errno = reason;
    return whole;
}

// The C library's functions, made null-tolerant

std::size_t s_strlen(const char *text) {
    return text ? std::strlen(text) : 0;
}

std::size_t s_strcspn(const char *text, const char *reject) {
    return text && reject ? std::strcspn(text, reject) : 0;
}

int s_atoi(const char *text) {
    return text ? std::atoi(text) : 0;
}

long s_atol(const char *text) {
    return text ? std::atol(text) : 0;
}

double s_atof(const char *text) {
    return text ? std::atof(text) : 0.0;
}

unsigned long s_strtoul(const char *text, char **endptr, int base) {
    return text && endptr ? std::strtoul(text, endptr, base) : 0;
}

int s_strcmp(const char *a, const char *b) {
    return a && b ? std::strcmp(a, b) : -1;
}

int s_strncmp(const char *a, const char *b, std::size_t n) {
    return a && b ? std::strncmp(a, b, n) : -1;
}

char *s_strchr(const char *text, int ch) {
    return text && ch ? const_cast<char *>(std::strchr(text, ch)) : nullptr;
}

char *s_strstr(const char *haystack, const char *needle) {
    return haystack && needle ? const_cast<char *>(std::strstr(haystack, needle)) : nullptr;
}

char *s_strcpy(char *dst, const char *src) {
    if (dst && src)
        std::memcpy(dst, src, std::strlen(src) + 1);
    return dst;
}

char *s_strcat(char *dst, const char *src) {
    if (dst && src)
        std::memcpy(dst + std::strlen(dst), src, std::strlen(src) + 1);
    return dst;
}

char *s_strdup(const char *text) {
    return text ? strdup(text) : nullptr;
}

const char *str(const char *text) {
    return text ? text : "";
}

// Comparing and searching without case

int s_stricmp(const char *a, const char *b) {
    if (!a || !b)
        return -1;
    for (; *a && fold(*a) == fold(*b); ++a)
        ++b;
    return fold(*a) - fold(*b);
}

int s_strnicmp(const char *a, const char *b, int n) {
    if (!a || !b)
        return -1;
    for (; n > 0 && *a && fold(*a) == fold(*b); --n, ++a)
        ++b;
    return n > 0 ? fold(*a) - fold(*b) : 0;
}

char *s_stristr(const char *haystack, const char *needle) {
    if (!haystack || !needle || !*haystack)
        return nullptr;
    const char *wanted = needle;
    for (; *haystack && *wanted; ++haystack)
        wanted = fold(*haystack) == fold(*wanted) ? wanted + 1 : needle;
    return *wanted ? nullptr : const_cast<char *>(haystack - (wanted - needle));
}

char *s_strristr(const char *haystack, const char *needle) {
    if (!haystack || !needle || !*haystack)
        return nullptr;
    const char *const end = needle + std::strlen(needle);
    const char *wanted = end;
    const char *at = haystack + std::strlen(haystack);
    while (at > haystack && wanted > needle) {
        --at;
        wanted = fold(*at) == fold(wanted[-1]) ? wanted - 1 : end;
    }
    return wanted > needle ? nullptr : const_cast<char *>(at);
}

char *sdiff(const char *a, const char *b) {
    if (a && b)
        for (; *a && *a == *b; ++a)
            ++b;
    return const_cast<char *>(a);
}

// Building texts

int scpy(char *dst, const char *src, int size) {
    if (!dst || size < 1)
        return 0;
    const std::size_t length = src ? strnlen(src, static_cast<std::size_t>(size) - 1) : 0;
    if (length)
        std::memmove(dst, src, length);
    dst[length] = '\0';
    return static_cast<int>(length);
}

int scat(char *dst, const char *src, int size) {
    if (!dst || !src || size < 1)
        return 0;
    const int used = static_cast<int>(strnlen(dst, static_cast<std::size_t>(size) - 1));
    if (used == size - 1) {
        dst[used] = '\0';
        return used;
    }
    return used + scpy(dst + used, src, size - 1 - used); // one byte less than there is: see the header
}

namespace {

/// Appends up to the last byte of the buffer, where `scat` keeps one free. REQUIRES: `size` is at least 1.
void append(char *dst, const char *src, int size) {
    const int used = static_cast<int>(strnlen(dst, static_cast<std::size_t>(size) - 1));
    scpy(dst + used, src, size - used);
}

} // namespace

char *smake(const char *src, int n) {
    if (!src || n < 1)
        return nullptr;
    char *const made = static_cast<char *>(std::malloc(static_cast<std::size_t>(n) + 1));
    scpy(made, src, n);
    return made;
}

int schunk(const char *src, const char *delims, char *dst, int size) {
    if (!src || !dst || size < 1)
        return 0;
    const std::size_t length = std::strcspn(src, str(delims));
    return scpy(dst, src, static_cast<int>(std::min(length, static_cast<std::size_t>(size) - 1)) + 1);
}

char *spre(char *dst, const char *prefix, int size) {
    if (!dst || !prefix || size < 1)
        return nullptr;
    const std::size_t length = std::strlen(dst);
    const std::size_t before = std::strlen(prefix);
    if (length + before >= static_cast<std::size_t>(size))
        return nullptr;
    std::memmove(dst + before, dst, length + 1);
    std::copy_n(prefix, before, dst);
    return dst;
}

char *sadd(char *s, const char *add) {
    if (!add)
        return s;
    const std::size_t length = s_strlen(s);
    const std::size_t more = std::strlen(add);
    char *const grown = static_cast<char *>(std::realloc(s, length + more + 1));
    if (!grown)
        return s;
    std::memcpy(grown + length, add, more + 1);
    return grown;
}

void creplace(char *s, int from, int to) {
    if (s)
        std::replace(s, s + std::strlen(s), static_cast<char>(from), static_cast<char>(to));
}

char *sreplace(const char *src, const char *find, const char *repl, char *dst, int size) {
    if (!src || !find || !dst)
        return nullptr;
    const std::size_t found_length = std::strlen(find);
    int used = 0;
    while (found_length && used < size - 1) {
        const char *const hit = std::strstr(src, find);
        if (!hit)
            break;
        used += scpy(dst + used, src, static_cast<int>(std::min<std::ptrdiff_t>(hit - src + 1, size - used)));
        used += scpy(dst + used, repl, size - used);
        src = hit + found_length;
    }
    scpy(dst + used, src, size - used);
    return dst;
}

char *s_strlwr(char *text) {
    for (; text && *text; ++text)
        *text = static_cast<char>(std::tolower(byte(*text)));
    return text;
}

char *s_strupr(char *text) {
    for (; text && *text; ++text)
        *text = static_cast<char>(std::toupper(byte(*text)));
    return text;
}

// Trimming and words

char *s_strtrm(char *s) {
    if (!s)
        return nullptr;
    while (is_space(*s))
        ++s;
    char *end = s + std::strlen(s);
    while (end > s && is_space(end[-1]))
        --end;
    *end = '\0';
    return s;
}

char *s_strtok(char *s, const char *delims, char **save) {
    if (!s && save)
        s = *save;
    if (!s || !delims)
        return nullptr;
    s += std::strspn(s, delims);
    if (!*s)
        return nullptr;
    char *const end = s + std::strcspn(s, delims);
    char *const rest = *end ? end + 1 : nullptr;
    *end = '\0';
    if (save)
        *save = rest;
    return s;
}

char *split_name(char *line) {
    if (!line)
        return nullptr;
    char *value = line + std::strcspn(line, blanks);
    if (!*value)
        return value;
    *value++ = '\0';
    return value + std::strspn(value, blanks);
}

int ssplit(char *s, const char *delims, char **parts, int max, int multi) {
    if (!s || !*s || !delims || !parts || max < 1)
        return 0;
    int count = 0;
    parts[count++] = s;
    while (count < max) {
        s += std::strcspn(s, delims);
        if (!*s)
            break;
        *s++ = '\0';
        if (multi)
            s += std::strspn(s, delims);
        parts[count++] = s;
    }
    return count;
}

// Truth words and numbers

namespace {

constexpr const char *true_words[] = {"true", "yes", "y", "on", "checked", "selected"};
constexpr const char *false_words[] = {"false", "no", "n", "off"};

template <std::size_t count>
bool is_one_of(const char *s, const char *const (&words)[count]) {
    return std::any_of(words, words + count, [s](const char *word) { return s_stricmp(s, word) == 0; });
}

} // namespace

int istrue(const char *s) {
    if (!s)
        return 0;
    return is_one_of(s, true_words) || std::atoi(s) != 0;
}

int isfalse(const char *s) {
    if (!s)
        return 0;
    if (is_one_of(s, false_words))
        return 1;
    const bool numeric = is_digit(s[0]) || (s[0] && is_digit(s[1]));
    return numeric && std::atoi(s) == 0;
}

const char *number(int n) {
    static char text[50];
    lprintf(text, 49, "%d", n);
    return text;
}

namespace {

/// Whether a separator is missing between the digit at hand and what stands to its right.
bool wants_comma(int digits, char right) {
    return digits > 0 && digits % 3 == 0 && right != ',';
}

int missing_commas(const char *first, const char *end) {
    int missing = 0;
    int digits = 0;
    for (const char *p = end; p > first; --p) {
        if (p[-1] == ',')
            continue;
        missing += wants_comma(digits, *p);
        ++digits;
    }
    return missing;
}

} // namespace

char *comma_number(char *s, int size) {
    if (!s)
        return nullptr;
    char *const end = s + std::strspn(s, "0123456789,");
    const int missing = missing_commas(s, end);
    if (std::strlen(s) + static_cast<std::size_t>(missing) >= static_cast<std::size_t>(std::max(size, 0)))
        return nullptr;
    std::memmove(end + missing, end, std::strlen(end) + 1);
    char *out = end + missing;
    int digits = 0;
    for (const char *in = end; out > in;) {
        --in;
        if (*in != ',') {
            if (wants_comma(digits, *out))
                *--out = ',';
            ++digits;
        }
        *--out = *in;
    }
    return s;
}

// Opening and closing files

FILE *s_fopen(const char *path, const char *mode) {
    return path && mode ? std::fopen(path, mode) : nullptr;
}

void s_fclose(FILE **fp) {
    if (!fp || !*fp)
        return;
    std::fclose(*fp);
    *fp = nullptr;
}

// Taking paths apart

char Sep[2] = "/";

namespace {

/// Where the last component begins.
std::size_t last_part(const char *path) {
    return std::string_view(path).find_last_of("/\\") + 1; // npos + 1 is 0: there is but one
}

/// Replaces one character by another. By memchr and not byte for byte: it runs for every file of a tree and
/// mostly finds nothing to do.
void replace_byte(char *text, std::size_t length, char from, char to) {
    char *const end = text + length;
    while (from != to) {
        void *const found = std::memchr(text, from, static_cast<std::size_t>(end - text));
        if (!found)
            return;
        text = static_cast<char *>(found);
        *text++ = to;
    }
}

void write_separators(char *path, std::size_t length, char sep) {
    replace_byte(path, length, '/', sep);
    replace_byte(path, length, '\\', sep);
}

} // namespace

void usesep(int sep) {
    Sep[0] = static_cast<char>(sep);
}

void setsep(char *path, int sep) {
    if (path)
        write_separators(path, std::strlen(path), static_cast<char>(sep));
}

char *strip_file(char *path, char *file, int bfsz) {
    if (!path)
        return nullptr;
    const std::size_t part = last_part(path);
    scpy(file, path + part, bfsz);
    path[part ? part - 1 : 0] = '\0';
    return path;
}

char *strip_path(char *path) {
    if (!path)
        return nullptr;
    const char *const part = path + last_part(path);
    std::memmove(path, part, std::strlen(part) + 1);
    return path;
}

char *strip_ext(char *path) {
    if (!path)
        return nullptr;
    char *const dot = std::strrchr(path + last_part(path), '.');
    if (dot && dot != path)
        *dot = '\0';
    return path;
}

int get_ext(char *ext, const char *path, int bfsz) {
    if (!ext || !path)
        return 0;
    const char *const dot = std::strchr(path + last_part(path), '.');
    return scpy(ext, dot ? dot + 1 : "", bfsz);
}

void strip_eol_r(char *s) {
    if (s)
        s[std::strcspn(s, "\r\n")] = '\0';
}

char *strip_whitespace(char *s) {
    if (!s)
        return nullptr;
    while (is_space(*s))
        ++s;
    strip_eol_r(s);
    return s;
}

// Putting paths together

namespace {

/// By how many characters a directory and a name grow when they meet: -1 when one of two touching
/// separators goes, 1 when one is put between, else 0. A directory that was joined before ends in `Sep`,
/// whatever that is.
int joint(char dir_last, char name_first) {
    const bool left = is_separator(dir_last) || dir_last == Sep[0];
    const bool right = is_separator(name_first);
    return left == right ? (left ? -1 : 1) : 0;
}

} // namespace

bool join_path(char *dst, int size, const char *dir, const char *name) {
    if (!dst || size < 1) {
        errno = EINVAL;
        return false;
    }
    const std::size_t dir_length = s_strlen(dir);
    const int grown = dir_length && name ? joint(dir[dir_length - 1], *name) : 0;
    const std::size_t whole = dir_length + s_strlen(name) + static_cast<std::size_t>(grown);
    scpy(dst, dir, size);
    if (whole >= static_cast<std::size_t>(size)) {
        errno = ENAMETOOLONG;
        return false;
    }
    attach_path(dst, name, size);
    return true;
}

char *attach_path(char *result, const char *file, int bfsz) {
    if (!result || bfsz < 1)
        return nullptr;
    int used = static_cast<int>(strnlen(result, static_cast<std::size_t>(bfsz) - 1));
    result[used] = '\0';
    write_separators(result, static_cast<std::size_t>(used), Sep[0]);
    if (!file)
        return result;
    const int grown = used ? joint(result[used - 1], *file) : 0;
    if (grown < 0)
        ++file;
    if (grown > 0 && used < bfsz - 1)
        result[used++] = Sep[0];
    const int added = scpy(result + used, file, bfsz - used);
    write_separators(result + used, static_cast<std::size_t>(added), Sep[0]);
    return *result ? result : nullptr;
}

char *attach_pathx(char *path, int bfsz, const char *first, ...) {
    if (!path || bfsz < 1)
        return nullptr;
    *path = '\0';
    std::va_list rest;
    va_start(rest, first);
    for (const char *part = first; part; part = va_arg(rest, const char *))
        attach_path(path, part, bfsz);
    va_end(rest);
    return path;
}

char *attach_ext(char *path, const char *ext, int bfsz) {
    if (!path || bfsz < 1)
        return nullptr;
    append(path, ext, bfsz);
    return path;
}

// Where the program is, and other places

namespace {

/// Removes "." and ".." components by their text, the leftmost first. The character after ".." is not
/// looked at.
void resolve_dots(std::string &path) {
    std::size_t at = 0;
    while ((at = path.find("/.", at)) != std::string::npos) {
        if (path.compare(at, 3, "/..") == 0) {
            const std::size_t before = at ? path.rfind('/', at - 1) : 0;
            const std::size_t from = before == std::string::npos ? 0 : before;
            path.erase(from, at + 3 - from);
            at = from ? from - 1 : 0; // what moved up may have become a component of dots
        } else if (at + 2 == path.size() || path[at + 2] == '/') {
            path.erase(at, 2);
        } else {
            ++at;
        }
    }
}

bool is_absolute(const char *path) {
    return is_separator(path[0]) || (path[0] && path[1] == ':');
}

} // namespace

char *exename(char *buffer, const char *arg0, int bfsz) {
    if (!buffer || !arg0 || bfsz < 1)
        return nullptr;
    schunk(arg0 + last_part(arg0), ".", buffer, bfsz);
    return buffer;
}

char *exepath(char *buffer, const char *arg0, int bfsz) {
    if (!buffer || !arg0 || bfsz < 1)
        return nullptr;
    std::string path = arg0;
    if (!is_absolute(arg0)) {
        char here[PATH_MAX];
        if (!currentdir(here, sizeof here))
            return nullptr;
        path = std::string(here) + '/' + arg0;
    }
    std::replace(path.begin(), path.end(), '\\', '/');
    path.resize(std::min(path.rfind('/'), path.size()));
    resolve_dots(path);
    if (path.ends_with('/'))
        path.pop_back();
    if (path.ends_with(':'))
        path += '/';
    scpy(buffer, path.c_str(), bfsz);
    return buffer;
}

char *currentdir(char *buf, int size) {
    return buf ? getcwd(buf, static_cast<std::size_t>(std::max(size, 0))) : nullptr;
}

char *systemdir(char *buf, int size) {
    scpy(buf, "/etc", size);
    return buf;
}

char *windir(char *buf, int size) {
    return systemdir(buf, size);
}

// Temporary names

namespace {

constexpr std::string_view unique_mark = "XXXXXX";

std::uint64_t next_random() {
    static std::uint64_t state = [] {
        timeval now{};
        gettimeofday(&now, nullptr);
        return static_cast<std::uint64_t>(now.tv_sec) * 1000000u + static_cast<std::uint64_t>(now.tv_usec) +
               (static_cast<std::uint64_t>(getpid()) << 40);
    }();
    state = state * 6364136223846793005u + 1442695040888963407u;
    return state >> 20; // the low bits of such a sequence repeat early
}

void write_unique(char *mark) {
    constexpr std::string_view letters = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    std::uint64_t value = next_random();
    for (std::size_t i = 0; i < unique_mark.size(); ++i) {
        mark[i] = letters[value % letters.size()];
        value /= letters.size();
    }
}

/// Joins a name that does not exist into `result`; false with `errno` set.
bool make_unique_path(char *result, int bfsz, const char *path, char *name) {
    const std::size_t length = std::strlen(name);
    if (!std::string_view(name).ends_with(unique_mark)) {
        errno = EINVAL;
        return false;
    }
    const int found = errno;
    for (int tries = 0; tries < 10000; ++tries) {
        write_unique(name + length - unique_mark.size());
        if (!join_path(result, bfsz, path, name))
            return false;
        struct stat info;
        if (lstat(result, &info) != 0) {
            errno = found;
            return true;
        }
    }
    errno = EEXIST;
    return false;
}

} // namespace

char *tempfile(char *result, int bfsz, const char *path, const char *mask) {
    if (!result || bfsz < 1)
        return nullptr;
    char name[128];
    scpy(name, mask ? mask : unique_mark.data(), sizeof name);
    if (!make_unique_path(result, bfsz, path, name)) {
        *result = '\0';
        return nullptr;
    }
    dmsg("Tempfile made[%s]", result);
    return result;
}

// Wildcards
//
// A pattern is a head and then runs, each behind a star. Whether a run fits at a place of the text depends
// on nothing that came before it, and what follows it only ever profits from more text being left. So the
// first place where a run fits is as good as any later one, the last run fits at the end or not at all, and
// nothing is ever tried twice.

namespace {

constexpr bool is_list_separator(char c) {
    return c == ' ' || c == '\t' || c == ',';
}

struct matcher {
    bool exact;

    bool fits_one(char pattern, char c) const {
        return pattern == '?' || (exact ? pattern == c : fold(pattern) == fold(c));
    }

    bool fits(std::string_view text, std::string_view run) const {
        return text.size() >= run.size() &&
               std::equal(run.begin(), run.end(), text.begin(),
                          [this](char pattern, char c) { return fits_one(pattern, c); });
    }

    /// Behind a star the run's first character must stand in the text as it is written, even a '?'.
    bool fits_behind_star(std::string_view text, std::string_view run) const {
        return !text.empty() && fold(text.front()) == fold(run.front()) && fits(text, run);
    }

    bool matches(std::string_view text, std::string_view wild) const {
        const std::string_view head = wild.substr(0, wild.find('*'));
        if (!fits(text, head))
            return false;
        text.remove_prefix(head.size());
        wild.remove_prefix(head.size());
        return wild.empty() ? text.empty() : matches_behind_star(text, wild);
    }

    bool matches_behind_star(std::string_view text, std::string_view wild) const {
        for (;;) {
            wild.remove_prefix(std::min(wild.find_first_not_of('*'), wild.size()));
            if (wild.empty())
                return true;
            const std::string_view run = wild.substr(0, wild.find('*'));
            if (text.size() < run.size())
                return false;
            wild.remove_prefix(run.size());
            if (wild.empty())
                return fits_behind_star(text.substr(text.size() - run.size()), run);
            while (!text.empty() && !fits_behind_star(text, run))
                text.remove_prefix(1);
            if (text.empty())
                return false;
            text.remove_prefix(run.size());
        }
    }
};

std::string_view next_word(std::string_view &rest) {
    const auto *const begin = std::find_if_not(rest.begin(), rest.end(), is_list_separator);
    const auto *const end = std::find_if(begin, rest.end(), is_list_separator);
    rest = {end, rest.end()};
    return {begin, end};
}

bool any_matches(std::string_view word, std::string_view wilds, matcher match) {
    for (std::string_view wild = next_word(wilds); !wild.empty(); wild = next_word(wilds))
        if (match.matches(word, wild))
            return true;
    return false;
}

int list_matches(const char *list, const char *wilds, matcher match) {
    if (!list || !wilds)
        return 0;
    std::string_view words = list;
    for (std::string_view word = next_word(words); !word.empty(); word = next_word(words))
        if (any_matches(word, wilds, match))
            return 1;
    return 0;
}

int name_matches(const char *text, const char *wild, matcher match) {
    if (!text || !wild)
        return 0;
    return (wild[0] == '*' && !wild[1]) || match.matches(text, wild);
}

} // namespace

int wmatch(const char *text, const char *wild, int case_sensitive) {
    return text && wild && matcher{case_sensitive != 0}.matches(text, wild);
}

int wild_match(const char *text, const char *wild) {
    return name_matches(text, wild, matcher{true});
}

int wild_imatch(const char *text, const char *wild) {
    return name_matches(text, wild, matcher{false});
}

int wild_list(const char *list, const char *wilds) {
    return list_matches(list, wilds, matcher{true});
}

int wild_ilist(const char *list, const char *wilds) {
    return list_matches(list, wilds, matcher{false});
}

// Script files

char *script_reader::next() {
    while (file_ && std::fgets(line_, sizeof line_, file_)) {
        char *const text = s_strtrm(line_);
        if (*text && *text != '#')
            return text;
    }
    return nullptr;
}

namespace {

/// The name in a header line, null for any other line. Cuts one "]" that ends the line.
const char *header_name(char *line) {
    if (!line || *line != '[')
        return nullptr;
    char *const last = line + std::strlen(line) - 1;
    if (*last == ']')
        *last = '\0';
    return line + 1;
}

} // namespace

bool script_reader::find_section(const char *name) {
    in_section_ = false;
    if (!name || !*name)
        return false;
    while (char *const line = next())
        if (s_stricmp(header_name(line), name) == 0)
            return in_section_ = true;
    return false;
}

char *script_reader::next_in_section() {
    char *const line = in_section_ ? next() : nullptr;
    in_section_ = line && *line != '[';
    return in_section_ ? line : nullptr;
}

bool script_reader::broke_off() const {
    if (!file_ || !std::ferror(file_))
        return false;
    const errno_guard keep;
    struct stat info = {};
    return fstat(fileno(file_), &info) != 0 || !S_ISDIR(info.st_mode);
}

// Formatted text and reports

namespace {

/// What the two bounded printers return, and the terminator where the formatting left it open.
int bounded_length(int length, char *s, int bound) {
    if (length >= 0 && length != bound)
        return length;
    s[bound - 1] = '\0';
    return bound - 1;
}

} // namespace

int lprintf(char *s, int maxlen, const char *format, ...) {
    if (!s || maxlen < 1 || !format)
        return 0;
    std::va_list args;
    va_start(args, format);
    const int length = std::vsnprintf(s, static_cast<std::size_t>(maxlen), format, args);
    va_end(args);
    return bounded_length(length, s, maxlen);
}

int lpcat(char *s, int size, const char *format, ...) {
    if (!s || size < 1 || !format)
        return 0;
    const std::size_t used = strnlen(s, static_cast<std::size_t>(size) - 1);
    const int room = size - static_cast<int>(used);
    std::va_list args;
    va_start(args, format);
    const int length = std::vsnprintf(s + used, static_cast<std::size_t>(room), format, args);
    va_end(args);
    return bounded_length(length, s + used, room);
}

const char *system_error(int errnum, char *buf, int /* size: the bound is 1000 all the same */) {
    const errno_guard keep;
    scpy(buf, std::strerror(errnum), 1000);
    return str(buf);
}

const char *windows_errmsg(char *buf, int size) {
    return system_error(errno, buf, size);
}

void vmessage(message &m, const char *format, std::va_list args) {
    const errno_guard keep;
    if (!format || std::vsnprintf(m.text, sizeof m.text, format, args) < 0)
        m.text[0] = '\0';
}

void add_reason(message &m, int errnum) {
    const errno_guard keep;
    append(m.text, ", ", sizeof m.text);
    append(m.text, std::strerror(errnum), sizeof m.text);
}

// Time and signals

char *make_date(char *buf, int size, time_t t) {
    if (!buf)
        return nullptr;
    const std::tm *const local = std::localtime(&t);
    const char *const text = local ? std::asctime(local) : nullptr;
    scpy(buf, str(text), std::min(size, 25)); // 24 characters: the line feed behind them is left out
    if (!text)
        scpy(buf, "Invalid", size);
    return buf;
}

double dtime() {
    timeval now{};
    gettimeofday(&now, nullptr);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_usec) / 1e6;
}

int lib_msleep(int ms) {
    if (ms < 1)
        return 0;
    const timespec pause{ms / 1000, ms % 1000 * 1000000L}; // usleep may refuse a second and more
    return nanosleep(&pause, nullptr);
}

namespace {

constexpr int handled_signals[] = {SIGTERM, SIGFPE,  SIGABRT, SIGILL, SIGSEGV,
                                   SIGINT,  SIGTRAP, SIGBUS,  SIGQUIT};
constexpr int ignored_signals[] = {SIGABRT, SIGVTALRM, SIGPROF, SIGPIPE, SIGHUP};

} // namespace

void sig_init(void (*handler)(int)) {
    if (handler)
        for (const int sig : handled_signals)
            std::signal(sig, handler);
    for (const int sig : ignored_signals) // SIGABRT again, on purpose
        std::signal(sig, SIG_IGN);
}

void sig_dflt() {
    for (const int sig : handled_signals)
        std::signal(sig, SIG_DFL);
}

int sig_done(int sig) {
    return std::raise(sig);
}

// Encodings

namespace {

std::size_t count_of(int size) {
    return static_cast<std::size_t>(std::max(size, 0));
}

/// The character that `src` begins with; moves `src` past it.
char decode_one(const char *&src) {
    if (src[0] == '_' && src[1] && src[1] != '*') {
        const char *const end = trans + sizeof trans;
        const char *const entry = std::find(trans, end, src[1]);
        if (entry != end) {
            src += 2;
            return static_cast<char>(entry - trans);
        }
    }
    return *src++;
}

} // namespace

char *encode_path(char *dst, const char *src, int size) {
    if (!dst || !src)
        return nullptr;
    std::size_t at = 0;
    for (; *src && at < count_of(size); ++src) {
        const unsigned char c = byte(*src);
        if (c < 32) {
            ++at; // writes nothing, and moves on all the same
        } else if (c > 127 || std::isalnum(c)) {
            dst[at++] = *src;
        } else {
            dst[at++] = '_';
            dst[at++] = trans[c];
        }
    }
    dst[at] = '\0';
    return dst;
}

char *xencode_path(char *s, int size) {
    const text_ptr work(static_cast<char *>(std::calloc(count_of(size) + 2, 1)));
    if (!s || !work)
        return s;
    encode_path(work.get(), s, size);
    return s_strcpy(s, work.get());
}

char *decode_path(char *dst, const char *src, int size) {
    if (!dst || !src)
        return nullptr;
    char *out = dst;
    for (std::size_t left = count_of(size); left && *src; --left)
        *out++ = decode_one(src);
    *out = '\0';
    return dst;
}

char *xdecode_path(char *s, int len) {
    if (!s)
        return nullptr;
    const char *src = s; // never behind the place that is written
    for (std::size_t i = 0; i < count_of(len); ++i)
        s[i] = *src ? decode_one(src) : '\0';
    s[count_of(len)] = '\0';
    return s;
}

char *make_url(char *url, int size, const char *format, ...) {
    const char *const script = std::getenv("SCRIPT_NAME");
    const char *const server = std::getenv("SERVER_NAME");
    const char *const protocol = std::getenv("SERVER_PROTOCOL");
    if (!url || size < 1 || !format || !script || !server || !protocol)
        return nullptr;
    message rest;
    std::va_list args;
    va_start(args, format);
    vmessage(rest, format, args);
    va_end(args);
    lprintf(url, size, "%.*s://%s%s%s", static_cast<int>(std::strcspn(protocol, "/")), protocol, server,
            script, rest.text);
    return url;
}

namespace {

char *shift_bytes(const char *text, const char *key, char *out, int size, int sign) {
    if (!text || !key || !out)
        return nullptr;
    const std::size_t period = std::strlen(key);
    std::size_t at = 0;
    for (; at < count_of(size) && text[at]; ++at)
        out[at] = static_cast<char>(byte(text[at]) + (period ? sign * byte(key[at % period]) : 0));
    out[at] = '\0';
    return out;
}

} // namespace

char *simple_crypt(const char *text, const char *key, char *out, int size) {
    return shift_bytes(text, key, out, size, 1);
}

char *simple_decrypt(const char *text, const char *key, char *out, int size) {
    return shift_bytes(text, key, out, size, -1);
}

char *s_bintohex(const char *bin, char *hex, int size) {
    constexpr char digits[] = "0123456789abcdef";
    if (!bin || !hex)
        return nullptr;
    std::size_t at = 0;
    for (; *bin && at < count_of(size); ++bin) {
        hex[at++] = digits[byte(*bin) >> 4];
        hex[at++] = digits[byte(*bin) & 15];
    }
    hex[at] = '\0';
    return hex;
}

char *s_hextobin(const char *hex, char *bin, int size) {
    if (!hex || !bin)
        return nullptr;
    const int digit = std::max(hex_value(*hex), 0);
    const std::size_t count = *hex ? count_of(size) : 0;
    std::fill_n(bin, count, static_cast<char>(digit * 16 + digit));
    bin[count] = '\0';
    return bin;
}

int pstring_write(FILE *file, const char *text) {
    if (!file || !text)
        return 0;
    const std::size_t length = std::strlen(text);
    if (length > INT32_MAX)
        return 0;
    const std::int32_t prefix = static_cast<std::int32_t>(length);
    return std::fwrite(&prefix, sizeof prefix, 1, file) == 1 && std::fwrite(text, 1, length, file) == length;
}

char *pstring_read(FILE *file) {
    std::int32_t length = 0;
    if (!file || std::fread(&length, sizeof length, 1, file) != 1 || length < 1)
        return nullptr;
    std::string text; // grows with what is there: the length may be anything
    for (std::size_t left = static_cast<std::size_t>(length); left;) {
        char piece[4096];
        const std::size_t got = std::fread(piece, 1, std::min(left, sizeof piece), file);
        if (got == 0)
            return nullptr;
        text.append(piece, got);
        left -= got;
    }
    char *const made = static_cast<char *>(std::malloc(text.size() + 1));
    return made ? static_cast<char *>(std::memcpy(made, text.c_str(), text.size() + 1)) : nullptr;
}

int lib_free(int x) {
    return x;
}

} // namespace installer
