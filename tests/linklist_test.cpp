#include "installer/linklist.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace installer {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

char A[] = "A", B[] = "B", C[] = "C", X[] = "X", Y[] = "Y";

// Calls of the freeing function: the text at the slot, or "null".
std::vector<std::string> released;

void note_release(void **slot) {
    released.emplace_back(*slot != nullptr ? static_cast<char *>(*slot) : "null");
    *slot = nullptr;
}

class LinkList : public testing::Test {
  protected:
    ~LinkList() override { list_free(&list); }

    // The elements by the forward links; the cursor stays.
    static std::vector<std::string> elements(const linklist *x) {
        std::vector<std::string> found;
        for (const node *n = x->root->next; n != nullptr; n = n->next)
            found.emplace_back(static_cast<const char *>(n->data));
        return found;
    }

    void fill() {
        for (char *text : {A, B, C})
            ASSERT_EQ(1, list_add(list, text));
    }

    linklist *list = list_init();
};

TEST_F(LinkList, FreshListIsAtItsStartAndAtItsEnd) {
    EXPECT_EQ(list->root, list->current);
    EXPECT_EQ(list->root, list->root->prev);
    EXPECT_EQ(nullptr, list->root->data);
    EXPECT_EQ(nullptr, list->root->next);
    EXPECT_EQ(nullptr, list_get(list));
    EXPECT_EQ(1, list_at_start(list));
    EXPECT_EQ(1, list_at_end(list));
    EXPECT_EQ(0, list_items(list));
}

TEST_F(LinkList, RepeatedAddsAppendAndTheWalkYieldsThemInOrder) {
    fill();
    EXPECT_EQ(1, list_at_end(list));
    EXPECT_EQ(0, list_at_start(list));
    list_start(list);
    EXPECT_EQ(1, list_at_start(list));
    for (char *expected : {A, B, C}) {
        EXPECT_EQ(0, list_at_end(list));
        EXPECT_EQ(expected, list_get(list));
        list_next(list);
    }
    EXPECT_EQ(nullptr, list_get(list));
    EXPECT_EQ(1, list_at_end(list));
    EXPECT_EQ(3, list_items(list));
}

TEST_F(LinkList, AddRefusesNullData) {
    EXPECT_EQ(0, list_add(list, nullptr));
    EXPECT_EQ(0, list_items(list));
    EXPECT_EQ(list->root, list->current);
}

TEST_F(LinkList, AddAtTheStartPutsTheElementFirstAndLeavesTheFormerFirstCurrent) {
    fill();
    list_start(list);
    EXPECT_EQ(1, list_add(list, X));
    EXPECT_EQ(X, list->current->data);
    EXPECT_EQ(A, list_get(list));
    EXPECT_THAT(elements(list), ElementsAre("X", "A", "B", "C"));
    EXPECT_EQ(4, list_items(list));
}

TEST_F(LinkList, AddMidListLeavesTheBackLinkOfTheFollower) {
    fill();
    list_start(list);
    node *a = list->root->next;
    list_add(list, X);
    EXPECT_EQ(list->root, list->root->next->prev);
    EXPECT_EQ(list->root, a->prev);
    list_next(list);
    list_prev(list);
    EXPECT_EQ(1, list_at_start(list)) << "back from A goes to the start, over X";
}

TEST_F(LinkList, NextStaysAtTheEndAndPrevAtTheStart) {
    fill();
    list_next(list);
    EXPECT_EQ(C, list->current->data);
    list_start(list);
    list_prev(list);
    EXPECT_EQ(1, list_at_start(list));
    EXPECT_EQ(A, list_get(list));
}

TEST_F(LinkList, PrevMovesOneElementBack) {
    fill();
    list_prev(list);
    EXPECT_EQ(C, list_get(list));
    list_prev(list);
    EXPECT_EQ(B, list_get(list));
}

TEST_F(LinkList, PrevNeverStepsToANodeThatWasFreed) {
    fill();
    list_start(list);
    list_next(list);
    list_add(list, X); // A X B C: B still names A as the one before it
    list_start(list);
    EXPECT_EQ(A, list_del(list)); // X B C
    list_next(list);
    list_next(list); // behind B
    list_prev(list);
    EXPECT_EQ(X, list->current->data);
    EXPECT_EQ(B, list_get(list));
}

TEST_F(LinkList, EndMovesBehindTheLastElement) {
    fill();
    list_start(list);
    list_end(list);
    EXPECT_EQ(C, list->current->data);
    EXPECT_EQ(nullptr, list_get(list));
    list_add(list, X);
    EXPECT_THAT(elements(list), ElementsAre("A", "B", "C", "X"));
}

TEST_F(LinkList, GetNextMovesFirstAndThenReads) {
    fill();
    list_start(list);
    EXPECT_EQ(B, list_get_next(list));
    EXPECT_EQ(C, list_get_next(list));
    EXPECT_EQ(nullptr, list_get_next(list));
    EXPECT_EQ(nullptr, list_get_next(list));
    EXPECT_EQ(1, list_at_end(list));
}

TEST_F(LinkList, ReplaceGivesTheOldElementBack) {
    fill();
    list_start(list);
    list_next(list);
    EXPECT_EQ(B, list_replace(list, X));
    EXPECT_EQ(X, list_get(list));
    EXPECT_EQ(nullptr, list_replace(list, nullptr));
    EXPECT_THAT(elements(list), ElementsAre("A", "X", "C"));
    EXPECT_EQ(3, list_items(list));
}

TEST_F(LinkList, DelRemovesTheCurrentElementAndTheFollowerBecomesCurrent) {
    fill();
    list_start(list);
    list_next(list);
    node *cursor = list->current;
    EXPECT_EQ(B, list_del(list));
    EXPECT_EQ(cursor, list->current);
    EXPECT_EQ(C, list_get(list));
    EXPECT_EQ(cursor, list->current->next->prev);
    EXPECT_EQ(2, list_items(list));
}

TEST_F(LinkList, DelAtTheEndRemovesTheLastElement) {
    fill();
    EXPECT_EQ(C, list_del(list));
    EXPECT_THAT(elements(list), ElementsAre("A", "B"));
    EXPECT_EQ(1, list_at_end(list));
    EXPECT_EQ(2, list_items(list));
}

TEST_F(LinkList, DelAtTheEndFindsTheLastElementByTheForwardLinks) {
    list_add(list, A);
    list_start(list);
    list_add(list, X); // X A: A still names the head as the one before it
    list_end(list);
    EXPECT_EQ(A, list_del(list));
    EXPECT_EQ(X, list_del(list));
    EXPECT_EQ(nullptr, list_del(list));
    EXPECT_EQ(0, list_items(list));
}

TEST_F(LinkList, DelOnAnEmptyListReturnsNull) {
    EXPECT_EQ(nullptr, list_del(list));
    EXPECT_EQ(0, list_items(list));
    EXPECT_EQ(1, list_at_start(list));
}

TEST_F(LinkList, AnEmptiedListCanBeFilledAgain) {
    fill();
    for (char *expected : {C, B, A})
        EXPECT_EQ(expected, list_del(list));
    EXPECT_EQ(1, list_at_start(list));
    EXPECT_EQ(1, list_add(list, Y));
    EXPECT_THAT(elements(list), ElementsAre("Y"));
}

TEST_F(LinkList, CopyWalksTheSameDataButReportsNoItems) {
    fill();
    linklist *copy = list_copy(list);
    ASSERT_NE(nullptr, copy);
    EXPECT_EQ(0, list_items(copy));
    EXPECT_EQ(1, list_at_end(copy));
    EXPECT_EQ(C, copy->current->data);
    list_start(copy);
    EXPECT_EQ(A, list_get(copy));
    EXPECT_EQ(B, list_get_next(copy));
    EXPECT_EQ(C, list_get_next(copy));
    EXPECT_EQ(nullptr, list_get_next(copy));
    EXPECT_EQ(3, list_items(list));
    list_free(&copy);
}

TEST_F(LinkList, CopyOfAnEmptyListIsEmpty) {
    linklist *copy = list_copy(list);
    ASSERT_NE(nullptr, copy);
    EXPECT_EQ(1, list_at_start(copy));
    EXPECT_EQ(1, list_at_end(copy));
    list_free(&copy);
}

TEST_F(LinkList, FreeLeavesTheDataAndNullsTheCallersPointer) {
    fill(); // static texts: freeing one would crash
    list_free(&list);
    EXPECT_EQ(nullptr, list);
    list_free(&list);
    EXPECT_STREQ("A", A);
}

TEST_F(LinkList, FreeDeallocFreesTheData) {
    list_add(list, strdup("heap")); // a leak fails the run under the address sanitizer
    list_free_dealloc(&list);
    EXPECT_EQ(nullptr, list);
    list_free_dealloc(&list);
}

TEST_F(LinkList, FreeFnSeesEveryNodeTheHeadIncluded) {
    fill();
    released.clear();
    list_free_fn(&list, note_release);
    EXPECT_EQ(nullptr, list);
    EXPECT_THAT(released, ElementsAre("null", "A", "B", "C"));
    released.clear();
    list_free_fn(&list, note_release);
    EXPECT_THAT(released, IsEmpty());
}

TEST_F(LinkList, EmptyKeepsOnlyTheStructure) {
    fill();
    list_empty(list);
    EXPECT_EQ(nullptr, list->current);
    EXPECT_EQ(3, list->items);
    std::free(list);
    list = nullptr;
}

TEST_F(LinkList, EmptyDeallocFreesTheDataToo) {
    list_add(list, strdup("heap"));
    list_empty_dealloc(list);
    EXPECT_EQ(nullptr, list->current);
    EXPECT_EQ(1, list->items);
    std::free(list);
    list = nullptr;
}

TEST(LinkListNull, EveryOperationTakesANullList) {
    linklist *none = nullptr;
    EXPECT_EQ(0, list_add(none, A));
    EXPECT_EQ(nullptr, list_del(none));
    EXPECT_EQ(nullptr, list_replace(none, A));
    EXPECT_EQ(nullptr, list_get(none));
    EXPECT_EQ(nullptr, list_get_next(none));
    EXPECT_EQ(0, list_at_start(none));
    EXPECT_EQ(0, list_at_end(none));
    EXPECT_EQ(0, list_items(none));
    EXPECT_EQ(nullptr, list_copy(none));
    list_start(none);
    list_end(none);
    list_next(none);
    list_prev(none);
    list_empty(none);
    list_empty_dealloc(none);
    list_free(nullptr);
    list_free_dealloc(nullptr);
    list_free_fn(nullptr, note_release);
    list_free(&none);
    EXPECT_EQ(nullptr, none);
}

} // namespace
} // namespace installer
