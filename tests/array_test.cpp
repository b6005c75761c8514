#include "installer/array.h"

#include "tests/support.h"

#include <climits>
#include <cstring>
#include <iterator>

namespace installer::test {
namespace {

using testing::ElementsAre;

char A[] = "A", B[] = "B", C[] = "C", D[] = "D", X[] = "X";

int released; // calls of the freeing function

void release(void **slot) {
    released++;
    *slot = nullptr;
}

class Array : public TempDir {
  protected:
    ~Array() override { array_free(&x); }

    // The items as texts; the cursor stays.
    static std::vector<std::string> items(const array *a) {
        std::vector<std::string> found;
        std::transform(a->data, a->data + a->items, std::back_inserter(found),
                       [](const void *item) { return static_cast<const char *>(item); });
        return found;
    }

    void fill() {
        for (char *text : {A, B, C})
            ASSERT_EQ(1, array_add(x, text));
    }

    // The lines that array_loadfile makes of a file with those contents.
    static std::vector<std::string> loaded(std::string_view contents) {
        write_file("lines", contents);
        array *lines = array_loadfile("lines");
        if (lines == nullptr)
            return {"not opened"};
        std::vector<std::string> found = items(lines);
        array_free_dealloc(&lines);
        return found;
    }

    array *x = array_init(0);
};

// --- Creation and growth ---

TEST_F(Array, FreshArrayHasNoSlots) {
    EXPECT_EQ(0, x->size);
    EXPECT_EQ(10, x->block);
    EXPECT_EQ(0, x->items);
    EXPECT_EQ(-1, x->current);
    EXPECT_EQ(nullptr, x->data);
}

TEST_F(Array, InitIgnoresLock) {
    array *locked = array_init(7);
    EXPECT_EQ(0, locked->lock);
    EXPECT_EQ(0, locked->locked);
    array_free(&locked);
}

TEST_F(Array, FirstAddGrowsToTenSlotsAndTheEleventhToTwenty) {
    array_add(x, A);
    EXPECT_EQ(10, x->size);
    for (int i = 1; i < 10; i++)
        array_add(x, A);
    EXPECT_EQ(10, x->size);
    array_add(x, A);
    EXPECT_EQ(20, x->size);
    EXPECT_EQ(11, array_items(x));
}

TEST_F(Array, SetupPresizesAndSetsTheGrowthStep) {
    array_setup(x, 3, 2);
    EXPECT_EQ(3, x->size);
    EXPECT_EQ(2, x->block);
    for (const void *slot : {x->data[0], x->data[1], x->data[2]})
        EXPECT_EQ(nullptr, slot);
    for (char *text : {A, B, C, D})
        array_add(x, text);
    EXPECT_EQ(5, x->size);
    array_setup(x, 9, 4);
    EXPECT_EQ(9, x->size);
    EXPECT_EQ(4, x->block);
    EXPECT_THAT(items(x), ElementsAre("A", "B", "C", "D"));
}

TEST_F(Array, SetupNeverShrinksAndDefaultsToFive) {
    array_setup(x, 8, 0);
    EXPECT_EQ(5, x->block);
    array_setup(x, 2, -3);
    EXPECT_EQ(8, x->size);
    EXPECT_EQ(5, x->block);
}

TEST_F(Array, SetupWithoutASizeMakesNoSlots) {
    for (int size : {0, -1, INT_MIN}) {
        array_setup(x, size, 1);
        EXPECT_EQ(nullptr, x->data) << size;
        EXPECT_EQ(1, x->block) << size;
    }
}

TEST_F(Array, AllocFailsWhenItGivesNoSlots) {
    x->block = 0;
    EXPECT_EQ(0, alloc(x));
    EXPECT_EQ(nullptr, x->data);
    EXPECT_EQ(0, array_add(x, A));
    EXPECT_EQ(nullptr, EmsgLog) << "and reports nothing";
}

TEST_F(Array, AllocAddsNullSlots) {
    fill();
    x->block = 3;
    EXPECT_EQ(1, alloc(x));
    EXPECT_EQ(13, x->size);
    for (int i = 3; i < 13; i++)
        EXPECT_EQ(nullptr, x->data[i]) << i;
}

TEST_F(Array, AllocWithANegativeStepGivesUpSpareSlots) {
    fill();
    x->block = -6;
    EXPECT_EQ(1, alloc(x));
    EXPECT_EQ(4, x->size);
    EXPECT_THAT(items(x), ElementsAre("A", "B", "C"));
    x->block = 1;
    EXPECT_EQ(1, array_add(x, D));
    EXPECT_EQ(1, array_add(x, X));
    EXPECT_THAT(items(x), ElementsAre("A", "B", "C", "D", "X"));
}

TEST_F(Array, AllocThatFailsReportsAndChangesNothing) {
    fill();
    for (int block : {-8, -100, INT_MAX}) { // 2 slots for 3 items, -90 slots, more than an int can count
        x->block = block;
        EXPECT_EQ(0, alloc(x)) << block;
        EXPECT_EQ(10, x->size) << block;
        EXPECT_THAT(items(x), ElementsAre("A", "B", "C")) << block;
    }
    ASSERT_EQ(3, array_items(EmsgLog));
    EXPECT_STREQ("Memory allocation error.", static_cast<const char *>(EmsgLog->data[0]));
}

TEST_F(Array, AGrowthStepThatMakesNoRoomRefusesTheItem) {
    array_setup(x, 1, 1);
    array_add(x, A);
    x->block = 0;
    EXPECT_EQ(0, array_add(x, B));
    EXPECT_THAT(items(x), ElementsAre("A"));
}

TEST_F(Array, TakesManyThousandItems) {
    constexpr int many = 20000;
    for (int i = 0; i < many; i++)
        ASSERT_EQ(1, array_add(x, i % 2 == 0 ? A : B));
    EXPECT_EQ(many, array_items(x));
    EXPECT_EQ(B, array_get_num(x, many - 1));
}

// --- Adding ---

TEST_F(Array, AddRefusesNullItems) {
    EXPECT_EQ(0, array_add(x, nullptr));
    EXPECT_EQ(0, array_add_num(x, nullptr, 0));
    EXPECT_EQ(0, x->size);
}

TEST_F(Array, AddNumInsertsAtTheIndex) {
    fill();
    EXPECT_EQ(1, array_add_num(x, X, 1));
    EXPECT_EQ(1, array_add_num(x, D, 4));
    EXPECT_THAT(items(x), ElementsAre("A", "X", "B", "C", "D"));
}

TEST_F(Array, AddNumGrowsBeforeItLooksAtTheIndex) {
    EXPECT_EQ(0, array_add_num(x, A, 1));
    EXPECT_EQ(10, x->size);
    EXPECT_EQ(0, array_add_num(x, A, -1));
    EXPECT_EQ(0, array_items(x));
}

TEST_F(Array, InsertingBeforeTheCursorKeepsItAtItsItem) {
    fill();
    array_goto(x, 2);
    array_add_num(x, X, 0);
    EXPECT_EQ(3, array_current(x));
    array_add_num(x, X, 3);
    EXPECT_EQ(4, array_current(x)) << "at the cursor counts as before it";
    array_add_num(x, X, 5);
    EXPECT_EQ(4, array_current(x));
    EXPECT_EQ(C, array_get(x));
}

TEST_F(Array, InsertingLeavesACursorPastTheEndAlone) {
    fill();
    array_add_num(x, X, 0);
    EXPECT_EQ(-1, array_current(x));
}

TEST_F(Array, AddCurrentInsertsAtTheCursor) {
    fill();
    array_goto(x, 1);
    EXPECT_EQ(1, array_add_current(x, X));
    EXPECT_THAT(items(x), ElementsAre("A", "X", "B", "C"));
    EXPECT_EQ(2, array_current(x));
}

TEST_F(Array, AddCurrentPastTheEndFails) {
    fill();
    EXPECT_EQ(0, array_add_current(x, X));
    EXPECT_EQ(3, array_items(x));
}

// --- Reading ---

TEST_F(Array, GetWalksFromTheStartAndLeavesTheCursorPastTheEnd) {
    EXPECT_EQ(nullptr, array_get(x));
    fill();
    EXPECT_EQ(nullptr, array_get(x)) << "adding does not start the walk";
    array_start(x);
    for (char *expected : {A, B, C})
        EXPECT_EQ(expected, array_get(x));
    EXPECT_EQ(-1, array_current(x));
    EXPECT_EQ(nullptr, array_get(x));
}

TEST_F(Array, GetMovesTheCursorPastTheItemItReturns) {
    fill();
    array_start(x);
    array_get(x);
    EXPECT_EQ(1, array_current(x));
    EXPECT_EQ(B, array_get_num(x, 1));
    EXPECT_EQ(2, array_current(x));
    EXPECT_EQ(C, array_get_num(x, 2));
    EXPECT_EQ(-1, array_current(x));
}

TEST_F(Array, GetNumOutOfRangeLeavesTheCursor) {
    fill();
    array_goto(x, 1);
    for (int num : {-1, 3, INT_MIN, INT_MAX}) {
        EXPECT_EQ(nullptr, array_get_num(x, num)) << num;
        EXPECT_EQ(1, array_current(x)) << num;
    }
}

TEST_F(Array, GetLastReadsTheItemOnceMore) {
    fill();
    array_start(x);
    array_get(x);
    array_get(x);
    EXPECT_EQ(B, array_get_last(x));
    EXPECT_EQ(2, array_current(x));
    EXPECT_EQ(B, array_get_last(x));
}

TEST_F(Array, GetLastPastTheEndReadsTheLastItem) {
    fill();
    EXPECT_EQ(C, array_get_last(x));
    EXPECT_EQ(-1, array_current(x));
}

TEST_F(Array, GetLastAtTheFirstItemStepsOffTheStart) {
    fill();
    array_start(x);
    EXPECT_EQ(nullptr, array_get_last(x));
    EXPECT_EQ(-1, array_current(x));
}

TEST_F(Array, GetLastOfAnEmptyArrayReturnsNull) {
    EXPECT_EQ(nullptr, array_get_last(x));
    EXPECT_EQ(-1, array_current(x));
}

// --- The cursor ---

TEST_F(Array, StartOfAnEmptyArrayIsZeroAndGetsNothing) {
    array_start(x);
    EXPECT_EQ(0, array_current(x));
    EXPECT_EQ(nullptr, array_get(x));
    array_end(x);
    EXPECT_EQ(-1, array_current(x));
}

TEST_F(Array, GotoIgnoresAnIndexPastTheItemsAndTakesNegativeOnes) {
    fill();
    array_goto(x, 2);
    array_goto(x, 3);
    EXPECT_EQ(2, array_current(x));
    array_goto(x, -7);
    EXPECT_EQ(-7, array_current(x));
    EXPECT_EQ(nullptr, array_get(x));
}

TEST_F(Array, NextGoesPastTheEndAndStaysThere) {
    fill();
    array_start(x);
    for (int expected : {1, 2, -1, -1}) {
        array_next(x);
        EXPECT_EQ(expected, array_current(x));
    }
}

TEST_F(Array, NextInAnEmptyArrayGoesPastTheEnd) {
    array_start(x);
    array_next(x);
    EXPECT_EQ(-1, array_current(x));
}

TEST_F(Array, PrevStaysAtTheFirstItem) {
    fill();
    array_goto(x, 1);
    array_prev(x);
    EXPECT_EQ(0, array_current(x));
    array_prev(x);
    EXPECT_EQ(0, array_current(x));
}

TEST_F(Array, PrevPastTheEndGoesOnToMinusTwo) {
    fill();
    array_prev(x);
    EXPECT_EQ(-2, array_current(x));
    EXPECT_EQ(nullptr, array_get(x));
    EXPECT_EQ(-2, array_current(x));
    array_next(x);
    EXPECT_EQ(-1, array_current(x));
}

TEST_F(Array, TheLowestCursorGoesNoLower) {
    fill();
    array_goto(x, INT_MIN);
    array_prev(x);
    EXPECT_EQ(INT_MIN, array_current(x));
    EXPECT_EQ(nullptr, array_get_last(x));
    EXPECT_EQ(nullptr, array_del(x));
    EXPECT_EQ(INT_MIN, array_current(x));
}

// --- Deleting ---

TEST_F(Array, DelNumGivesTheItemBackAndClosesTheGap) {
    fill();
    EXPECT_EQ(A, array_del_num(x, 0));
    EXPECT_THAT(items(x), ElementsAre("B", "C"));
    EXPECT_EQ(C, array_del_num(x, 1));
    EXPECT_THAT(items(x), ElementsAre("B"));
}

TEST_F(Array, DelNumOutOfRangeFails) {
    EXPECT_EQ(nullptr, array_del_num(x, 0));
    fill();
    for (int num : {-1, 3, INT_MIN, INT_MAX})
        EXPECT_EQ(nullptr, array_del_num(x, num)) << num;
    EXPECT_EQ(3, array_items(x));
}

TEST_F(Array, DeletingAtOrBeforeTheCursorMovesItBack) {
    fill();
    array_add(x, D);
    array_goto(x, 2);
    array_del_num(x, 3);
    EXPECT_EQ(2, array_current(x));
    array_del_num(x, 2);
    EXPECT_EQ(1, array_current(x));
    array_del_num(x, 0);
    EXPECT_EQ(0, array_current(x));
}

TEST_F(Array, DeletingTheLastRemainingItemResetsTheCursor) {
    array_add(x, A);
    array_start(x);
    EXPECT_EQ(A, array_del_num(x, 0));
    EXPECT_EQ(-1, array_current(x));
    array_add(x, B);
    array_prev(x);
    EXPECT_EQ(B, array_del_num(x, 0));
    EXPECT_EQ(-1, array_current(x)) << "from -2 too";
}

TEST_F(Array, DelRemovesTheItemThatGetReturnedLast) {
    fill();
    array_start(x);
    array_get(x);
    array_get(x);
    EXPECT_EQ(B, array_del(x));
    EXPECT_EQ(1, array_current(x));
    EXPECT_EQ(C, array_get(x));
}

TEST_F(Array, DelPastTheEndRemovesTheLastItem) {
    fill();
    EXPECT_EQ(C, array_del(x));
    EXPECT_EQ(B, array_del(x));
    EXPECT_EQ(A, array_del(x));
    EXPECT_EQ(nullptr, array_del(x));
}

TEST_F(Array, DelAtTheFirstItemRemovesNothing) {
    fill();
    array_start(x);
    EXPECT_EQ(nullptr, array_del(x));
    EXPECT_EQ(3, array_items(x));
}

// --- Emptying and freeing ---

TEST_F(Array, EmptyForgetsTheItemsAndKeepsTheSlots) {
    fill();
    array_start(x);
    array_empty(x);
    EXPECT_EQ(0, array_items(x));
    EXPECT_EQ(-1, array_current(x));
    EXPECT_EQ(10, x->size);
    EXPECT_EQ(A, x->data[0]);
}

TEST_F(Array, EmptyDeallocFreesTheItemsAndNullsTheirSlots) {
    array_add(x, strdup("heap"));
    array_empty_dealloc(x);
    EXPECT_EQ(0, array_items(x));
    EXPECT_EQ(-1, array_current(x));
    EXPECT_EQ(10, x->size);
    EXPECT_EQ(nullptr, x->data[0]);
}

TEST_F(Array, EmptyFnSeesTheSlotOfEachItemOnce) {
    fill();
    released = 0;
    array_empty_fn(x, release);
    EXPECT_EQ(3, released);
    EXPECT_EQ(nullptr, x->data[2]);
    EXPECT_EQ(0, array_items(x));
    EXPECT_EQ(-1, array_current(x));
}

TEST_F(Array, EmptyFnWithoutAFunctionForgetsTheItems) {
    fill();
    array_empty_fn(x, nullptr);
    EXPECT_EQ(0, array_items(x));
    EXPECT_EQ(A, x->data[0]);
}

TEST_F(Array, FreeNullsTheCallersPointerAndTakesNull) {
    fill();
    array_free(&x);
    EXPECT_EQ(nullptr, x);
    array_free(&x);
    array_free(nullptr);
    array_free_dealloc(&x);
    array_free_dealloc(nullptr);
    array_free_fn(&x, release);
    array_free_fn(nullptr, release);
}

TEST_F(Array, FreeDeallocFreesTheItems) {
    array_add(x, strdup("heap")); // a leak fails the run under the address sanitizer
    array_free_dealloc(&x);
    EXPECT_EQ(nullptr, x);
}

TEST_F(Array, FreeFnCallsTheFunctionForEachItem) {
    fill();
    released = 0;
    array_free_fn(&x, release);
    EXPECT_EQ(3, released);
    EXPECT_EQ(nullptr, x);
}

TEST_F(Array, FreeFnWithoutAFunctionLeavesTheItems) {
    fill();
    array_free_fn(&x, nullptr);
    EXPECT_EQ(nullptr, x);
}

// --- Copying and the whole array ---

TEST_F(Array, CopySharesTheItemsAndTakesSlotsAndCursor) {
    array_setup(x, 7, 3);
    fill();
    array_goto(x, 1);
    array *copy = array_copy(x);
    ASSERT_NE(nullptr, copy);
    EXPECT_EQ(7, copy->size);
    EXPECT_EQ(3, copy->block);
    EXPECT_EQ(1, copy->current);
    EXPECT_NE(x->data, copy->data);
    EXPECT_EQ(A, copy->data[0]);
    EXPECT_THAT(items(copy), ElementsAre("A", "B", "C"));
    array_free(&copy);
}

TEST_F(Array, CopyOfAFreshArrayHasNoSlots) {
    array *copy = array_copy(x);
    ASSERT_NE(nullptr, copy);
    EXPECT_EQ(0, copy->size);
    EXPECT_EQ(10, copy->block);
    array_free(&copy);
}

TEST_F(Array, AppendingAnArrayGrowsToExactlyTheSumAndKeepsThatStep) {
    array *src = array_init(0);
    for (int i = 0; i < 12; i++)
        array_add(src, X);
    fill();
    array_goto(x, 1);
    array_array(x, src);
    EXPECT_EQ(15, x->size);
    EXPECT_EQ(15, array_items(x));
    EXPECT_EQ(5, x->block) << "3 items - 10 slots + 12 items, deliberately not restored";
    EXPECT_EQ(1, array_current(x));
    EXPECT_EQ(C, x->data[2]);
    EXPECT_EQ(X, x->data[14]);
    EXPECT_EQ(12, array_items(src));
    array_free(&src);
}

TEST_F(Array, AppendingAnArrayThatFitsKeepsTheStep) {
    array *src = array_init(0);
    array_add(src, X);
    fill();
    array_array(x, src);
    EXPECT_EQ(10, x->size);
    EXPECT_EQ(10, x->block);
    EXPECT_THAT(items(x), ElementsAre("A", "B", "C", "X"));
    array_free(&src);
}

TEST_F(Array, AppendingTakesEmptyArraysNullAndTheArrayItself) {
    array *src = array_init(0);
    array_array(x, src);
    EXPECT_EQ(nullptr, x->data);
    fill();
    array_array(x, src);
    array_array(x, nullptr);
    array_array(nullptr, x);
    array_array(x, x);
    EXPECT_THAT(items(x), ElementsAre("A", "B", "C", "A", "B", "C"));
    array_free(&src);
}

TEST_F(Array, SortOrdersTextsByteByByte) {
    char lower[] = "a", high[] = "\xff", longer[] = "AA";
    for (char *text : {high, lower, longer, B, A})
        array_add(x, text);
    array_sort(x, array_strcmp);
    EXPECT_THAT(items(x), ElementsAre("A", "AA", "B", "a", "\xff"));
}

TEST_F(Array, SortTakesAnEmptyArray) {
    array_sort(x, array_strcmp);
    EXPECT_EQ(0, array_items(x));
}

TEST_F(Array, ReverseTurnsTheOrderInPlace) {
    EXPECT_EQ(x, array_reverse(x));
    fill();
    EXPECT_EQ(x, array_reverse(x));
    EXPECT_THAT(items(x), ElementsAre("C", "B", "A"));
    array_add(x, D);
    array_reverse(x);
    EXPECT_THAT(items(x), ElementsAre("D", "A", "B", "C"));
}

// --- From text ---

TEST_F(Array, TokSplitsAtRunsOfDelimiters) {
    const struct {
        const char *text;
        const char *delimiters;
        std::vector<std::string> expected;
    } rows[] = {
        {"  a,,b ", " ,", {"a", "b"}}, {"a b", ",", {"a b"}},      {"", ",", {}}, {",,,", ",", {}},
        {"one,two", "", {"one,two"}},  {"x\ty", "\t", {"x", "y"}},
    };
    for (const auto &row : rows) {
        array *parts = array_init(0);
        EXPECT_EQ(static_cast<int>(row.expected.size()), array_tok(parts, row.text, row.delimiters))
            << row.text;
        EXPECT_EQ(row.expected, items(parts)) << row.text;
        array_free_dealloc(&parts);
    }
}

TEST_F(Array, TokAppendsOwnedTextsAndLeavesTheCallersString) {
    char text[] = "b c";
    array_add(x, strdup("a"));
    EXPECT_EQ(2, array_tok(x, text, " "));
    EXPECT_STREQ("b c", text);
    text[0] = '!';
    EXPECT_THAT(items(x), ElementsAre("a", "b", "c"));
    array_free_dealloc(&x);
}

TEST_F(Array, TokTakesNullArguments) {
    EXPECT_EQ(0, array_tok(nullptr, "a", ","));
    EXPECT_EQ(0, array_tok(x, nullptr, ","));
    EXPECT_EQ(0, array_tok(x, "a", nullptr));
    EXPECT_EQ(0, array_items(x));
}

TEST_F(Array, LoadfileMakesAnItemOfEachLine) {
    const struct {
        std::string_view contents;
        std::vector<std::string> expected;
    } rows[] = {
        {"", {}},
        {"a\nb\n", {"a", "b"}},
        {"a\nno newline at the end", {"a", "no newline at the end"}},
        {"dos\r\nline\r\n", {"dos", "line"}},
        {"a\n\nb\n", {"a", "\n", "b"}}, // an empty line is its line end
        {"\r\n", {"\r\n"}},
        {"cut\rhere\n", {"cut"}},
        {"\rfront\rback\n", {"\rfront"}}, // line ends in front stay
        {"  blanks stay \n", {"  blanks stay "}},
        {std::string_view("zero\0byte\nb\n", 12), {"zero", "b"}},
        {std::string_view("\0\n", 2), {""}},
    };
    for (const auto &row : rows)
        EXPECT_EQ(row.expected, loaded(row.contents)) << row.contents;
}

TEST_F(Array, LoadfileSplitsLinesOfMoreThan998Characters) {
    const std::string most(998, 'x');
    EXPECT_THAT(loaded(std::string(997, 'x') + "\nend\n"), ElementsAre(std::string(997, 'x'), "end"));
    EXPECT_THAT(loaded(most + "\nend\n"), ElementsAre(most, "\n", "end")) << "its line end comes as an item";
    EXPECT_THAT(loaded(most + "yz\n"), ElementsAre(most, "yz"));
    EXPECT_THAT(loaded(most + most + "z"), ElementsAre(most, most, "z"));
}

TEST_F(Array, LoadfileOfAFileThatCannotBeOpenedReturnsNull) {
    EXPECT_EQ(nullptr, array_loadfile("missing"));
    EXPECT_EQ(nullptr, array_loadfile(nullptr));
    EXPECT_EQ(nullptr, array_loadfile_ex("missing", 5, 5));
}

TEST_F(Array, LoadfileStartsWithTheSlotsOfAFreshArray) {
    write_file("lines", "a\n");
    array *lines = array_loadfile("lines");
    ASSERT_NE(nullptr, lines);
    EXPECT_EQ(10, lines->size);
    EXPECT_EQ(10, lines->block);
    EXPECT_EQ(-1, lines->current);
    array_free_dealloc(&lines);
}

TEST_F(Array, LoadfileExPresizesFirst) {
    write_file("lines", "a\nb\n");
    array *lines = array_loadfile_ex("lines", 1, 3);
    ASSERT_NE(nullptr, lines);
    EXPECT_EQ(4, lines->size);
    EXPECT_EQ(3, lines->block);
    EXPECT_THAT(items(lines), ElementsAre("a", "b"));
    array_free_dealloc(&lines);
}

TEST_F(Array, LoadfileDoAppendsWhatIsLeftAndLeavesTheFileOpen) {
    write_file("lines", "a\nb\nc\n");
    FILE *f = std::fopen("lines", "r");
    ASSERT_NE(nullptr, f);
    char skipped[10];
    ASSERT_NE(nullptr, std::fgets(skipped, sizeof skipped, f));
    array_loadfile_do(x, f);
    EXPECT_THAT(items(x), ElementsAre("b", "c"));
    EXPECT_NE(0, std::feof(f));
    array_loadfile_do(nullptr, f);
    std::fclose(f);
    array_loadfile_do(x, nullptr);
    array_free_dealloc(&x);
}

TEST_F(Array, EveryOperationButSortTakesANullArray) {
    array *none = nullptr;
    array_setup(none, 1, 1);
    EXPECT_EQ(0, alloc(none));
    EXPECT_EQ(0, array_add_num(none, A, 0));
    EXPECT_EQ(0, array_add(none, A));
    EXPECT_EQ(0, array_add_current(none, A));
    EXPECT_EQ(nullptr, array_get_num(none, 0));
    EXPECT_EQ(nullptr, array_get(none));
    EXPECT_EQ(nullptr, array_get_last(none));
    EXPECT_EQ(0, array_items(none));
    EXPECT_EQ(0, array_current(none));
    array_start(none);
    array_end(none);
    array_goto(none, -1);
    array_next(none);
    array_prev(none);
    EXPECT_EQ(nullptr, array_del_num(none, 0));
    EXPECT_EQ(nullptr, array_del(none));
    array_empty(none);
    array_empty_dealloc(none);
    array_empty_fn(none, release);
    EXPECT_EQ(nullptr, array_copy(none));
    EXPECT_EQ(nullptr, array_reverse(none));
}

} // namespace
} // namespace installer::test
