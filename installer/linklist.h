// A list of untyped data pointers with a cursor.
//
// The cursor stands in front of its element: the current element is the data of the node after `current`.
// `current` equal to `root` is the start (the first element is current); a null `next` of `current` is the
// end (no element is current). The head node carries no data, and its `prev` is the head itself, so a step
// back from the start stays at the start.
//
// Only the forward links can be relied on: an element that is put in mid-list leaves the `prev` of its
// follower as it was.
//
// The list owns its nodes, never the data; only the operations named _dealloc and _fn release data. Every
// operation takes a null list, does nothing and returns 0 or null, unless it says otherwise.
//
//     linklist *names = list_init();
//     list_add(names, s_strdup("a"));
//     list_add(names, s_strdup("b"));
//     for (list_start(names); !list_at_end(names); list_next(names))
//         puts(static_cast<char *>(list_get(names)));
//     list_free_dealloc(&names);

#ifndef INSTALLER_LINKLIST_H
#define INSTALLER_LINKLIST_H

#include <cstdint>

namespace installer {

struct node {
    node *prev;
    void *data;
    node *next;
};

/// The structures and their nodes come from the C heap, zero-filled.
struct linklist {
    node *root;         ///< the head node, which carries no data
    node *current;      ///< the node before the current element
    std::int32_t items; ///< number of elements
};

// --- Make ---

/// Returns a new empty list, its cursor at the start and at the end at once; null without memory.
linklist *list_init();

/// Returns a new list that holds the same data pointers in the same order; null for a null list or without
/// memory. The data are shared, not copied. The cursor of the copy is at its end and its `items` stays 0: a
/// caller that needs the count takes it from `x`.
linklist *list_copy(linklist *x);

// --- Fill ---

/// Puts `data` in before the current element, which stays current; at the end this appends. Returns 1, or 0
/// for null `data` and without memory.
int list_add(linklist *x, void *data);

// --- Look ---

/// Returns the current element, null at the end.
void *list_get(linklist *x);

/// Moves one element forward and returns the element that is current then; null at the end.
void *list_get_next(linklist *x);

/// Returns 1 when the cursor is at the start, else 0.
int list_at_start(linklist *x);

/// Returns 1 when no element is current, else 0.
int list_at_end(linklist *x);

/// Returns the number of elements.
int list_items(linklist *x);

// --- Move the cursor ---

/// Makes the first element current.
void list_start(linklist *x);

/// Moves behind the last element.
void list_end(linklist *x);

/// Moves one element forward; at the end it stays.
void list_next(linklist *x);

/// Moves back along `prev`; at the start it stays. After a mid-list add this can step over elements; where
/// `prev` names a node that is no longer in the list, the node before the cursor is taken.
void list_prev(linklist *x);

// --- Change ---

/// Puts `data` in place of the current element and returns the old one, which now is the caller's; null for
/// null `data`, which changes nothing. REQUIRES: there is a current element.
void *list_replace(linklist *x, void *data);

/// Removes the current element, or the last one when the cursor is at the end, and returns it to the caller;
/// null when the list is empty. The element that followed becomes current.
void *list_del(linklist *x);

// --- Release ---
//
// Each takes the address of the caller's pointer, frees every node and the list, and sets the pointer to
// null.

/// Leaves the data alone.
void list_free(linklist **x);

/// Frees each element's data with free().
void list_free_dealloc(linklist **x);

/// Calls `fn` with the address of each node's data, the head's null data included. REQUIRES: `fn` is not
/// null.
void list_free_fn(linklist **x, void (*fn)(void **slot));

// The next two free every node, the head included, and keep only the structure: `root` is left pointing at
// freed memory, `current` is null and `items` stays. Nothing may be done with the list afterwards but to
// free() the structure.

/// Leaves the data alone.
void list_empty(linklist *x);

/// Frees each element's data with free().
void list_empty_dealloc(linklist *x);

} // namespace installer

#endif
