// Taking paths apart and putting them together. The first byte is the size of the buffers, then come two lines.

#include "fuzz/support.h"
#include "installer/lib.h"

#include <cerrno>
#include <cstring>

using namespace installer;

namespace {

bool has_separator(std::string_view text) {
    return text.find_first_of("/\\") != text.npos;
}

/// One separator is cut off at the end and an empty component is none to take away: "//x" gives "/".
bool doubled_separator(std::string_view path) {
    for (std::size_t i = 1; i < path.size(); ++i)
        if (has_separator(path.substr(i - 1, 1)) && has_separator(path.substr(i, 1)))
            return true;
    return false;
}

void check_strips(const std::string &path, std::size_t size) {
    fuzz::buffer whole(path.size() + 1, path), file(size);
    strip_file(whole.get(), file.get(), file.size());
    FUZZ_CHECK(!has_separator(file.text()) && whole.text() == path.substr(0, whole.text().size()));
    // What was cut off is the last component and the separator before it, none where there was none.
    const std::size_t cut = path.size() - whole.text().size();
    FUZZ_CHECK(file.text() ==
               path.substr(path.size() - cut + (has_separator(path) ? 1 : 0)).substr(0, size - 1));

    fuzz::buffer last(path.size() + 1, path), ext(size), stem(path.size() + 1, path);
    strip_path(last.get());
    FUZZ_CHECK(!has_separator(last.text()) && last.text() == path.substr(path.size() - last.text().size()));
    strip_ext(stem.get());
    FUZZ_CHECK(stem.text() == path.substr(0, stem.text().size()));
    FUZZ_CHECK(get_ext(ext.get(), path.c_str(), ext.size()) == static_cast<int>(ext.text().size()));
    FUZZ_CHECK(!has_separator(ext.text()));

    fuzz::buffer line(path.size() + 1, path), spaced(path.size() + 1, path);
    strip_eol_r(line.get());
    FUZZ_CHECK(line.text().find_first_of("\r\n") == std::string_view::npos);
    FUZZ_CHECK(std::strpbrk(strip_whitespace(spaced.get()), "\r\n") == nullptr);
}

void check_joins(const std::string &dir, const std::string &name, std::size_t size) {
    fuzz::buffer joined(size);
    errno = 0;
    if (join_path(joined.get(), joined.size(), dir.c_str(), name.c_str()))
        FUZZ_CHECK(joined.text().size() + 1 >=
                   dir.size() + name.size()); // at most one separator of two is left
    else
        FUZZ_CHECK(errno == ENAMETOOLONG && dir.size() + name.size() + 1 >= size);

    fuzz::buffer attached(size, dir), extended(size, dir), list(size);
    attach_path(attached.get(), name.c_str(), attached.size());
    attach_ext(extended.get(), name.c_str(), extended.size());
    FUZZ_CHECK(extended.text() == (dir.substr(0, size - 1) + name).substr(0, size - 1));
    attach_pathx(list.get(), list.size(), dir.c_str(), name.c_str(), dir.c_str(), nullptr);
    FUZZ_CHECK(attached.text().size() < size && list.text().size() < size);
}

void check_program_paths(const std::string &arg0, std::size_t size) {
    fuzz::buffer name(size), folder(size), wide(2000);
    exename(name.get(), arg0.c_str(), name.size());
    FUZZ_CHECK(!has_separator(name.text()) && name.text().find('.') == std::string_view::npos);
    exepath(folder.get(), arg0.c_str(), folder.size());
    if (exepath(wide.get(), arg0.c_str(), wide.size()) == nullptr)
        return;
    FUZZ_CHECK(wide.text().find('\\') == std::string_view::npos);
    FUZZ_CHECK(wide.text().find("/./") == std::string_view::npos &&
               wide.text().find("/../") == std::string_view::npos);
    if (arg0.find(':') == std::string::npos && !doubled_separator(arg0))
        FUZZ_CHECK(wide.text().empty() || wide.text().back() != '/');
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size == 0)
        return 0;
    const std::size_t room = 1 + data[0];
    std::string_view rest = fuzz::text_of(data + 1, size - 1);
    const std::string first(std::string(fuzz::take(rest, '\n')).c_str()); // both end at a NUL byte
    const std::string second(std::string(rest).c_str());
    usesep('/');
    check_strips(second, room);
    check_joins(first, second, room);
    check_program_paths(second, room);
    return 0;
}
