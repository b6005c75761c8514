// A growable vector of untyped item pointers with a cursor.
//
// 0 <= `items` <= `size`; slots 0 to `items`-1 are in use. The cursor `current` is the index of the item that
// the next array_get returns, or -1 when there is none (past the end); array_prev and array_goto can leave
// other negative values. Adding and deleting move the cursor so that it keeps naming the same item.
//
// The array owns its slots, never the items; only the operations named _dealloc and _fn release items. Every
// operation but array_sort takes a null array, does nothing and returns 0 or null.
//
//     array *names = array_init(0);
//     array_add(names, s_strdup("a"));
//     array_start(names);
//     while (void *name = array_get(names))
//         puts(static_cast<char *>(name));
//     array_free_dealloc(&names);

#ifndef INSTALLER_ARRAY_H
#define INSTALLER_ARRAY_H

#include <cstdint>
#include <cstdio>

namespace installer {

/// The structure, its slots and the texts that the operations below make come from the C heap.
struct array {
    std::int32_t size;    ///< slots allocated in `data`
    std::int32_t block;   ///< slots added by each growth step
    std::int32_t items;   ///< slots in use
    std::int32_t current; ///< cursor: an index, or -1 past the end
    std::int32_t lock;    ///< reserved, stays 0
    std::int32_t locked;  ///< reserved, stays 0
    void **data;          ///< `size` item pointers, or null while `size` is 0
};

// --- Make ---

/// Returns a new empty array without slots that grows by 10, its cursor at -1; null without memory. `lock` is
/// ignored: the field stays 0.
array *array_init(int lock);

/// Returns a new array with the same slots, items and cursor; null for a null array or without memory. The
/// items are shared, not copied.
array *array_copy(array *x);

/// Makes room for `size` items in all, where that is more than there is, and sets the growth step to `block`,
/// or to 5 (not to the 10 of array_init) when `block` is below 1.
void array_setup(array *x, int size, int block);

/// Grows by `block` slots, which are null. Returns 1, or 0 when that gives no slots at all, or after the
/// message "Memory allocation error."; a failure leaves the array unchanged.
int alloc(array *x);

// --- Fill ---
//
// All return 1, or 0 for a null item, an index out of range or without memory; the item stays the caller's
// then.

/// Inserts `item` at index `num`, 0 to `items`.
int array_add_num(array *x, void *item, int num);

/// Appends `item`.
int array_add(array *x, void *item);

/// Inserts `item` at the cursor; with the cursor at -1 this fails, it does not append.
int array_add_current(array *x, void *item);

/// Appends all items of `src`, which are shared then. When `dst` must grow for it, it grows to exactly the
/// sum and its growth step stays at the number of slots that were added. The cursor stays. Without memory
/// nothing is appended.
void array_array(array *dst, array *src);

/// Splits a copy of `string` at runs of characters of `delim` and appends each part as a new text; delimiters
/// at either end make no empty parts. Returns the number of texts added; 0 for a null argument.
int array_tok(array *x, const char *string, const char *delim);

/// Returns a new array with a text for each line of `file`, to be freed with array_free_dealloc; null when
/// the file cannot be opened. See array_loadfile_do for what a line is.
array *array_loadfile(const char *file);

/// The same, after array_setup with `size` and `block`.
array *array_loadfile_ex(const char *file, int size, int block);

/// Appends a text for each line that is left in `f`, without its line end. A line of more than 998 characters
/// comes in several texts. An empty line comes as its line end, "\n" or "\r\n", not as "".
void array_loadfile_do(array *x, FILE *f);

// --- Look ---

/// Returns item `num` and moves the cursor behind it, to -1 after the last; null, the cursor unmoved, when
/// there is no such item.
void *array_get_num(array *x, int num);

/// Returns the item at the cursor and moves the cursor behind it; null when there is none.
void *array_get(array *x);

/// Returns the item that array_get or array_get_num returned last, once more; the last item when the cursor
/// is at -1.
void *array_get_last(array *x);

/// Returns the number of items.
int array_items(array *x);

/// Returns the cursor.
int array_current(array *x);

// --- Move the cursor ---

/// Moves to the first item, or to 0 in an empty array.
void array_start(array *x);

/// Moves past the end, to -1.
void array_end(array *x);

/// Moves to `index` when it is below `items`; a negative index is taken as it is.
void array_goto(array *x, int index);

/// Moves one item forward, to -1 after the last; at -1 it stays.
void array_next(array *x);

/// Moves one item back; at 0 it stays. From -1 this goes on to -2, where array_get returns null.
void array_prev(array *x);

// --- Change ---

/// Removes item `num` and returns it to the caller; null when there is no such item.
void *array_del_num(array *x, int num);

/// Removes the item that array_get returned last, or the last item when the cursor is at -1, and returns it
/// to the caller; null when there is none.
void *array_del(array *x);

/// Sorts the items; `compare` is given the addresses of two slots, as qsort() does. REQUIRES: neither
/// argument is null.
void array_sort(array *x, int (*compare)(const void *, const void *));

/// Compares two slots that hold texts, byte by byte: a `compare` for array_sort.
int array_strcmp(const void *elem1, const void *elem2);

/// Reverses the order of the items and returns `x`.
array *array_reverse(array *x);

// --- Release ---
//
// The first three forget the items, keep the slots and leave the cursor at -1. The others take the address of
// the caller's pointer, release the slots and the array, and set the pointer to null. The cursor counts the
// items meanwhile: `fn` must not use the array.

/// Leaves the items alone.
void array_empty(array *x);

/// Frees each item with free() and nulls its slot.
void array_empty_dealloc(array *x);

/// Calls `fn`, when it is not null, with the address of each item's slot.
void array_empty_fn(array *x, void (*fn)(void **slot));

/// Leaves the items alone.
void array_free(array **x);

/// Frees each item with free().
void array_free_dealloc(array **x);

/// Calls `fn`, when it is not null, with the address of each item's slot.
void array_free_fn(array **x, void (*fn)(void **slot));

} // namespace installer

#endif
