#include "installer/linklist.h"

#include <cstdlib>

namespace installer {

namespace {

template <typename T>
T *zero_filled() {
    return static_cast<T *>(std::calloc(1, sizeof(T)));
}

// The node whose `next` is `n`, found by the forward links because `prev` can be out of date; the last node
// for null.
node *node_before(linklist *x, const node *n) {
    node *before = x->root;
    while (before->next != nullptr && before->next != n)
        before = before->next;
    return before;
}

bool contains(linklist *x, const node *wanted) {
    for (const node *n = x->root; n != nullptr; n = n->next)
        if (n == wanted)
            return true;
    return false;
}

// Frees every node, the head included, after `release` has seen the address of its data.
template <typename Release>
void free_nodes(linklist *x, Release release) {
    for (node *n = x->root; n != nullptr;) {
        node *next = n->next;
        release(&n->data);
        std::free(n);
        n = next;
    }
    x->current = nullptr;
}

template <typename Release>
void free_list(linklist **x, Release release) {
    if (x == nullptr || *x == nullptr)
        return;
    free_nodes(*x, release);
    std::free(*x);
    *x = nullptr;
}

void leave_data(void ** /*slot*/) {}

void free_data(void **slot) {
    std::free(*slot);
}

} // namespace

linklist *list_init() {
    auto *x = zero_filled<linklist>();
    auto *head = zero_filled<node>();
    if (x == nullptr || head == nullptr) {
        std::free(x);
        std::free(head);
        return nullptr;
    }
    head->prev = head;
    x->root = x->current = head;
    return x;
}

linklist *list_copy(linklist *x) {
    linklist *copy = x != nullptr ? list_init() : nullptr;
    if (copy == nullptr)
        return nullptr;
    for (const node *n = x->root->next; n != nullptr; n = n->next)
        if (list_add(copy, n->data) == 0) {
            list_free(&copy);
            return nullptr;
        }
    copy->items = 0; // deliberate: callers take the count from the source
    return copy;
}

int list_add(linklist *x, void *data) {
    if (x == nullptr || data == nullptr)
        return 0;
    auto *n = zero_filled<node>();
    if (n == nullptr)
        return 0;
    // The follower's `prev` is left as it was, on purpose: only the forward links are kept up mid-list.
    *n = {x->current, data, x->current->next};
    x->current->next = n;
    x->current = n;
    x->items++;
    return 1;
}

void *list_get(linklist *x) {
    return x != nullptr && x->current->next != nullptr ? x->current->next->data : nullptr;
}

void *list_get_next(linklist *x) {
    list_next(x);
    return list_get(x);
}

int list_at_start(linklist *x) {
    return x != nullptr && x->current == x->root ? 1 : 0;
}

int list_at_end(linklist *x) {
    return x != nullptr && x->current->next == nullptr ? 1 : 0;
}

int list_items(linklist *x) {
    return x != nullptr ? x->items : 0;
}

void list_start(linklist *x) {
    if (x != nullptr)
        x->current = x->root;
}

void list_end(linklist *x) {
    if (x == nullptr)
        return;
    while (x->current->next != nullptr)
        x->current = x->current->next;
}

void list_next(linklist *x) {
    if (x != nullptr && x->current->next != nullptr)
        x->current = x->current->next;
}

void list_prev(linklist *x) {
    if (x == nullptr)
        return;
    // A `prev` that was not kept up can name a node that list_del has freed since: look before stepping
    // there.
    node *prev = x->current->prev;
    x->current = contains(x, prev) ? prev : node_before(x, x->current);
}

void *list_replace(linklist *x, void *data) {
    if (x == nullptr || data == nullptr)
        return nullptr;
    void *old = x->current->next->data;
    x->current->next->data = data;
    return old;
}

void *list_del(linklist *x) {
    if (x == nullptr || x->root->next == nullptr)
        return nullptr;
    if (x->current->next == nullptr)
        x->current = node_before(x, x->current);
    node *gone = x->current->next;
    void *data = gone->data;
    x->current->next = gone->next;
    if (gone->next != nullptr)
        gone->next->prev = gone->prev;
    std::free(gone);
    x->items--;
    return data;
}

void list_free(linklist **x) {
    free_list(x, leave_data);
}

void list_free_dealloc(linklist **x) {
    free_list(x, free_data);
}

void list_free_fn(linklist **x, void (*fn)(void **slot)) {
    free_list(x, fn);
}

void list_empty(linklist *x) {
    if (x != nullptr)
        free_nodes(x, leave_data);
}

void list_empty_dealloc(linklist *x) {
    if (x != nullptr)
        free_nodes(x, free_data);
}

} // namespace installer
