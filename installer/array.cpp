#include "installer/array.h"

#include "installer/lib.h"
#include "installer/msg.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace installer {

namespace {

constexpr int default_block = 10;
constexpr int setup_block = 5;

// The line buffer holds text_size characters; one of them stays unused, which makes lines of at most 998.
constexpr int line_room = text_size - 1;

// Grows by `slots`; a failure leaves the array as it was, its growth step included.
int grow_by(array *x, std::int64_t slots) {
    const std::int32_t block = x->block;
    if (slots > std::numeric_limits<std::int32_t>::max()) {
        emsg("Memory allocation error.");
        return 0;
    }
    x->block = static_cast<std::int32_t>(slots);
    if (alloc(x) != 0)
        return 1;
    x->block = block;
    return 0;
}

// The cursor one step back. A cursor may be any negative number, so this stops where there is no lower one.
std::int32_t before(std::int32_t cursor) {
    return cursor > std::numeric_limits<std::int32_t>::min() ? cursor - 1 : cursor;
}

// A growth step below 1, which only a caller can have written, makes no room even where alloc succeeds.
bool make_room(array *x) {
    return x->items < x->size || (alloc(x) != 0 && x->items < x->size);
}

int add_text(array *x, const char *text) {
    text_ptr copy(s_strdup(text));
    if (array_add(x, copy.get()) == 0)
        return 0;
    static_cast<void>(copy.release());
    return 1;
}

// Lets `release` see each slot in turn, then forgets the items. The cursor is the loop index.
template <typename Release>
void empty(array *x, Release release) {
    if (x == nullptr)
        return;
    for (x->current = 0; x->current < x->items; x->current++)
        release(&x->data[x->current]);
    x->current = -1;
    x->items = 0;
}

template <typename Release>
void free_array(array **x, Release release) {
    if (x == nullptr || *x == nullptr)
        return;
    empty(*x, release);
    std::free((*x)->data);
    std::free(*x);
    *x = nullptr;
}

void leave_item(void ** /*slot*/) {}

void free_item(void **slot) {
    std::free(*slot);
    *slot = nullptr;
}

} // namespace

array *array_init(int /*lock*/) {
    auto *x = static_cast<array *>(std::calloc(1, sizeof(array)));
    if (x == nullptr)
        return nullptr;
    x->current = -1;
    x->block = default_block;
    return x;
}

array *array_copy(array *x) {
    array *copy = x != nullptr ? array_init(x->lock) : nullptr;
    if (copy == nullptr)
        return nullptr;
    array_setup(copy, x->size, x->block);
    if (copy->size < x->size) {
        array_free(&copy);
        return nullptr;
    }
    std::copy_n(x->data, x->size, copy->data);
    copy->current = x->current;
    copy->items = x->items;
    return copy;
}

void array_setup(array *x, int size, int block) {
    if (x == nullptr)
        return;
    if (size > x->size)
        grow_by(x, size - x->size);
    x->block = block < 1 ? setup_block : block;
}

int alloc(array *x) {
    if (x == nullptr)
        return 0;
    const std::int64_t size = std::int64_t{x->size} + x->block;
    if (size == 0)
        return 0;
    void *data = nullptr;
    if (size >= x->items && size <= std::numeric_limits<std::int32_t>::max())
        data = std::realloc(x->data, static_cast<std::size_t>(size) * sizeof(void *));
    if (data == nullptr) {
        emsg("Memory allocation error.");
        return 0;
    }
    x->data = static_cast<void **>(data);
    std::fill(x->data + x->size, std::max(x->data + x->size, x->data + size), nullptr);
    x->size = static_cast<std::int32_t>(size);
    return 1;
}

int array_add_num(array *x, void *item, int num) {
    // The array grows before the index is looked at: a refused index can leave it with more slots.
    if (x == nullptr || item == nullptr || !make_room(x) || num < 0 || num > x->items)
        return 0;
    void **slot = x->data + num;
    std::copy_backward(slot, x->data + x->items, x->data + x->items + 1);
    *slot = item;
    x->items++;
    if (x->current >= num)
        x->current++;
    return 1;
}

int array_add(array *x, void *item) {
    return x != nullptr ? array_add_num(x, item, x->items) : 0;
}

int array_add_current(array *x, void *item) {
    return x != nullptr ? array_add_num(x, item, x->current) : 0;
}

void array_array(array *dst, array *src) {
    if (dst == nullptr || src == nullptr)
        return;
    const std::int32_t count = src->items;
    const std::int64_t missing = std::int64_t{dst->items} - dst->size + count;
    // The growth step stays at what was missing, on purpose; where nothing is, the old one stays.
    if (missing >= 1 && grow_by(dst, missing) == 0)
        return;
    std::copy_n(src->data, count, dst->data + dst->items);
    dst->items += count;
}

int array_tok(array *x, const char *string, const char *delim) {
    if (x == nullptr || string == nullptr || delim == nullptr)
        return 0;
    text_ptr copy(s_strdup(string));
    int added = 0;
    char *rest = nullptr;
    for (char *token = s_strtok(copy.get(), delim, &rest); token != nullptr;
         token = s_strtok(nullptr, delim, &rest))
        added += add_text(x, token);
    return added;
}

array *array_loadfile(const char *file) {
    return array_loadfile_ex(file, 0, default_block);
}

array *array_loadfile_ex(const char *file, int size, int block) {
    const file_ptr f(s_fopen(file, "r"));
    if (!f)
        return nullptr;
    array *x = array_init(0);
    array_setup(x, size, block);
    array_loadfile_do(x, f.get());
    return x;
}

void array_loadfile_do(array *x, FILE *f) {
    if (x == nullptr || f == nullptr)
        return;
    char line[text_size];
    while (std::fgets(line, line_room, f) != nullptr) {
        // Line ends in front of the text are skipped, not cut: so an empty line stays "\n", which is kept
        // that way.
        s_strtok(line, "\r\n", nullptr);
        add_text(x, line);
    }
}

void *array_get_num(array *x, int num) {
    if (x == nullptr || x->data == nullptr || num < 0 || num >= x->items)
        return nullptr;
    x->current = num + 1 < x->items ? num + 1 : -1;
    return x->data[num];
}

void *array_get(array *x) {
    return x != nullptr && x->current != -1 ? array_get_num(x, x->current) : nullptr;
}

void *array_get_last(array *x) {
    if (x == nullptr)
        return nullptr;
    x->current = x->current == -1 ? x->items - 1 : before(x->current);
    return array_get_num(x, x->current);
}

int array_items(array *x) {
    return x != nullptr ? x->items : 0;
}

int array_current(array *x) {
    return x != nullptr ? x->current : 0;
}

void array_start(array *x) {
    if (x != nullptr)
        x->current = 0;
}

void array_end(array *x) {
    if (x != nullptr)
        x->current = -1;
}

void array_goto(array *x, int index) {
    if (x != nullptr && index < x->items)
        x->current = index;
}

void array_next(array *x) {
    if (x != nullptr && x->current != -1)
        x->current = x->current < x->items - 1 ? x->current + 1 : -1;
}

void array_prev(array *x) {
    // -1 goes on to -2, on purpose: nothing is current there.
    if (x != nullptr && x->current != 0)
        x->current = before(x->current);
}

void *array_del_num(array *x, int num) {
    if (x == nullptr || x->data == nullptr || num < 0 || num >= x->items)
        return nullptr;
    void **slot = x->data + num;
    void *item = *slot;
    std::copy(slot + 1, x->data + x->items, slot);
    x->items--;
    if (x->items == 0)
        x->current = -1;
    else if (x->current >= num)
        x->current--;
    return item;
}

void *array_del(array *x) {
    return x != nullptr ? array_del_num(x, before(x->current == -1 ? x->items : x->current)) : nullptr;
}

void array_sort(array *x, int (*compare)(const void *, const void *)) {
    if (x->items > 1)
        std::qsort(x->data, static_cast<std::size_t>(x->items), sizeof(void *), compare);
}

int array_strcmp(const void *elem1, const void *elem2) {
    return std::strcmp(*static_cast<const char *const *>(elem1), *static_cast<const char *const *>(elem2));
}

array *array_reverse(array *x) {
    if (x != nullptr)
        std::reverse(x->data, x->data + x->items);
    return x;
}

void array_empty(array *x) {
    empty(x, leave_item);
}

void array_empty_dealloc(array *x) {
    empty(x, free_item);
}

void array_empty_fn(array *x, void (*fn)(void **slot)) {
    empty(x, fn != nullptr ? fn : leave_item);
}

void array_free(array **x) {
    free_array(x, leave_item);
}

void array_free_dealloc(array **x) {
    free_array(x, free_item);
}

void array_free_fn(array **x, void (*fn)(void **slot)) {
    free_array(x, fn != nullptr ? fn : leave_item);
}

} // namespace installer
