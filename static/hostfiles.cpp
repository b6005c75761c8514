#include "static/hostfiles.h"

#include "installer/lib.h"

#include <algorithm>
#include <arpa/inet.h>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <strings.h>

namespace installer {

namespace {

constexpr char spaces[] = " \t\r\f\v";

/// The lines of a table, without their ends; none for a table that cannot be read.
class table_reader {
  public:
    explicit table_reader(const char *table) : file_(table ? std::fopen(table, "re") : nullptr) {}
    ~table_reader() { std::free(line_); }
    table_reader(const table_reader &) = delete;
    table_reader &operator=(const table_reader &) = delete;

    /// The text is borrowed until the next call.
    std::optional<std::string_view> next() {
        const ssize_t length = file_ ? getline(&line_, &size_, file_.get()) : -1;
        if (length < 0)
            return std::nullopt;
        std::string_view line(line_, static_cast<std::size_t>(length));
        if (!line.empty() && line.back() == '\n')
            line.remove_suffix(1);
        return line;
    }

  private:
    file_ptr file_;
    char *line_ = nullptr;
    std::size_t size_ = 0;
};

/// Cuts the text up to the next of `ends` off `rest`, the separator too.
std::string_view take(std::string_view &rest, std::string_view ends) {
    const std::size_t end = rest.find_first_of(ends);
    const std::string_view taken = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    return taken;
}

std::string_view field_of(std::string_view line, unsigned field) {
    while (field-- > 0)
        take(line, ":");
    return take(line, ":");
}

std::optional<std::uint32_t> number_of(std::string_view text) {
    std::uint32_t number = 0;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end)
        return std::nullopt;
    return number;
}

bool is_same_name(std::string_view a, std::string_view b) {
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

/// Whether one of the words of `words` is `name`.
bool names(std::string_view words, std::string_view name) {
    while (!words.empty())
        if (is_same_name(take(words, spaces), name))
            return true;
    return false;
}

std::optional<in_addr> address_in(std::string_view text) {
    in_addr address{};
    const bool whole = text.find('\0') == std::string_view::npos;
    if (!whole || inet_pton(AF_INET, std::string(text).c_str(), &address) != 1)
        return std::nullopt;
    return address;
}

/// The address in a line of the table of hosts, when the line names `name`.
std::optional<in_addr> address_of(std::string_view line, std::string_view name) {
    std::string_view words = take(line, "#");
    words.remove_prefix(std::min(words.find_first_not_of(spaces), words.size()));
    const std::string_view address = take(words, spaces);
    return names(words, name) ? address_in(address) : std::nullopt;
}

std::optional<in_addr> look_up(const char *table, std::string_view name) {
    if (name.empty())
        return std::nullopt;
    if (const auto itself = address_in(name))
        return itself;
    table_reader lines(table);
    while (const auto line = lines.next())
        if (const auto address = address_of(*line, name))
            return address;
    return std::nullopt;
}

} // namespace

int table_number(const char *table, const char *name, table_field field) {
    const std::string_view wanted(name ? name : "");
    if (wanted.empty() || std::string_view("+-#").find(wanted.front()) != std::string_view::npos)
        return -1;
    table_reader lines(table);
    while (const auto line = lines.next())
        if (field_of(*line, 0) == wanted)
            if (const auto number = number_of(field_of(*line, field)))
                return static_cast<int>(*number);
    return -1;
}

bool table_address(const char *table, const char *name, in_addr &address) {
    const std::optional<in_addr> found = look_up(table, name ? name : "");
    if (found)
        address = *found;
    return found.has_value();
}

} // namespace installer
