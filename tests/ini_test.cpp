#include "installer/ini.h"

#include "installer/array.h"
#include "installer/lib.h"
#include "installer/linklist.h"
#include "tests/ini_store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/resource.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace installer::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr auto Xtra1 = static_cast<setting_mode>(64);
constexpr auto Xtra2 = static_cast<setting_mode>(128);
constexpr auto Xtra3 = static_cast<setting_mode>(32768);

const char *to_nothing(const char *) {
    return "";
}
const char *to_null(const char *) {
    return nullptr;
}
const char *to_word(const char *) {
    return "word";
}
const char *skip_one(const char *value) {
    return *value != '\0' ? value + 1 : value;
}
const char *with_a(const char *value) {
    static std::string text;
    text = std::string(value) + "a";
    return text.c_str();
}
const char *with_b(const char *value) {
    static std::string text;
    text = std::string(value) + "b";
    return text.c_str();
}
int calls = 0;
const char *counted(const char *value) {
    calls++;
    return value;
}
const char *with_quote(const char *) {
    return "\\from\\fn";
}
ini *grown = nullptr;
const char *creating(const char *value) {
    for (int i = 0; i < 20; i++)
        ini_add_name(grown, ("made" + std::to_string(i)).c_str(), "x");
    return value;
}

class Ini : public IniStore {};

// --- The flags ---

TEST_F(Ini, ModeFlagsHaveTheirDocumentedValues) {
    const std::vector<std::uint32_t> store = {Ini_Blank,    Ini_UseLock,  Ini_UseEmpty, Ini_UsePass,
                                              Ini_UseFixed, Ini_UseMulti, Ini_UsePath,  Ini_UseReplace,
                                              Ini_UseNew,   Ini_NewMulti, Ini_NewEmpty, Ini_NewFixed,
                                              Ini_NewPass,  Ini_NewLock,  Ini_NewModes, Ini_DefaultMode};
    EXPECT_THAT(store, ElementsAre(0, 1, 2, 4, 8, 16, 32, 64, 128, 256, 512, 1024, 2048, 4096, 7936, 1022));
    const std::vector<std::uint32_t> setting = {Ini_None,  Ini_Multi, Ini_Pass, Ini_Replace, Ini_Path,
                                                Ini_Empty, Ini_Fixed, Ini_Lock, Ini_XTRAMask};
    EXPECT_THAT(setting, ElementsAre(0, 1, 2, 4, 8, 16, 32, 32, 65472));
}

TEST_F(Ini, FlagsCombineWithoutLeavingTheirType) {
    const ini_mode store = Ini_UseLock | Ini_UseEmpty;
    EXPECT_EQ(3u, store);
    EXPECT_EQ(2u, store & ~Ini_UseLock);
    const setting_mode setting = Ini_Multi | Ini_Fixed;
    EXPECT_EQ(33u, setting);
    EXPECT_EQ(1u, setting & ~Ini_Lock);
}

TEST_F(Ini, ModeWordIsReplacedAddedToAndCleared) {
    EXPECT_EQ(1022u, x->mode);
    ini_setmode(x, Ini_UseLock);
    EXPECT_EQ(1u, x->mode);
    ini_addmode(x, Ini_UseNew | Ini_UseLock);
    EXPECT_EQ(129u, x->mode);
    ini_rmvmode(x, Ini_UseLock | Ini_UsePass);
    EXPECT_EQ(128u, x->mode);
}

// --- Make and release ---

TEST_F(Ini, FreshStoreHasNoSettings) {
    EXPECT_EQ(0, ini_items(x));
    EXPECT_EQ(0, x->size);
    EXPECT_EQ(nullptr, x->list);
    EXPECT_EQ(nullptr, x->xtra);
    EXPECT_EQ(0, array_items(x->data));
    EXPECT_EQ(nullptr, ini_value_name(x, "a"));
    EXPECT_EQ(0, ini_add_name(x, "a", "b"));
}

TEST_F(Ini, SetupCopiesNamesAndModesButNoDefaults) {
    char name[] = "path";
    char value[] = "/opt";
    set_up({{name, value, Ini_Path | Ini_Replace}});
    name[0] = value[0] = '?';
    EXPECT_STREQ("path", x->list[0].setting);
    EXPECT_EQ(nullptr, x->list[0].dflt);
    EXPECT_EQ(12u, x->list[0].mode);
    EXPECT_STREQ("/opt", ini_value(x, 0));
}

TEST_F(Ini, SetupEndsTheTableWithANullName) {
    set_up({{"a", nullptr, Ini_None}, {"b", nullptr, Ini_None}});
    EXPECT_EQ(2, ini_items(x));
    EXPECT_EQ(3, x->size);
    EXPECT_EQ(nullptr, x->list[2].setting);
}

TEST_F(Ini, SetupTakesDefaultsOnlyWhenAsked) {
    set_up({{"a", "1", Ini_None}, {"b", nullptr, Ini_None}}, {}, 0);
    EXPECT_EQ(nullptr, ini_value(x, 0));
    set_up({{"a", "1", Ini_None}, {"b", nullptr, Ini_None}}, {}, 2);
    EXPECT_STREQ("1", ini_value(x, 0));
    EXPECT_EQ(nullptr, ini_value(x, 1));
}

TEST_F(Ini, SetupAppliesNoRuleAndLogsNoValue) {
    ini_setup_load_fn(x, to_word, Xtra1);
    forget_log();
    const setting_list table[] = {{"fixed", "a\\b", Ini_Fixed | Ini_Path | Xtra1},
                                  {"empty", "", Ini_None},
                                  {nullptr, nullptr, Ini_None}};
    ini_setup(x, table, nullptr, 1);
    EXPECT_STREQ("a\\b", ini_value_name(x, "fixed"));
    EXPECT_STREQ("", ini_value_name(x, "empty"));
    EXPECT_THAT(logged(),
                ElementsAre("Debug: Ini setting 'fixed' setup", "Debug: Ini setting 'empty' setup"));
}

TEST_F(Ini, SetupOfAnEmptyTableGivesAnEmptyStore) {
    set_up({});
    array *names = ini_label_array(x);
    linklist *list = ini_label_list(x);
    array *wild = ini_label_wild(x, "*");
    EXPECT_EQ(0, ini_items(x));
    EXPECT_EQ(nullptr, ini_value_name(x, "a"));
    EXPECT_EQ(nullptr, ini_value_name_next(x, "a"));
    EXPECT_EQ(-1, ini_index(x, "a"));
    EXPECT_EQ(Ini_None, ini_setting_mode_name(x, "a"));
    EXPECT_EQ(nullptr, ini_remove_name(x, "a"));
    EXPECT_EQ(0, array_items(names));
    EXPECT_EQ(0, list_items(list));
    EXPECT_EQ(0, array_items(wild));
    array_free(&names);
    list_free(&list);
    array_free(&wild);
}

TEST_F(Ini, SetupAgainStartsAfresh) {
    set_up({{"a", "1", Ini_None}, {"b", "2", Ini_None}});
    set_up({{"c", "3", Ini_None}});
    EXPECT_EQ(1, ini_items(x));
    EXPECT_EQ(nullptr, ini_value_name(x, "a"));
    EXPECT_STREQ("3", ini_value_name(x, "c"));
    EXPECT_EQ(1, ini_add_name(x, "d", "4"));
    EXPECT_STREQ("4", ini_value(x, 1));
}

TEST_F(Ini, SetupWithoutStoreOrTableDoesNothing) {
    const setting_list none[] = {{nullptr, nullptr, Ini_None}};
    ini_setup(nullptr, none, nullptr, 1);
    ini_setup(x, nullptr, nullptr, 1);
    EXPECT_EQ(nullptr, x->list);
}

TEST_F(Ini, SetupReportsAssociationsAndThoseWithoutAStart) {
    const setting_list table[] = {
        {"a", nullptr, Ini_None}, {"b", nullptr, Ini_None}, {nullptr, nullptr, Ini_None}};
    const int assoc[] = {0, 1, 2, 0, -7, 1, 1, 99, -1, 0, 1};
    ini_setup(x, table, assoc, 0);
    EXPECT_THAT(logged(), ElementsAre("Debug: Ini setting 'a' setup", "Debug: Ini setting 'b' setup",
                                      "Debug: Ini association index 0->1 added",
                                      "Error: Ini association index 2 invalid.",
                                      "Error: Ini association index -7 invalid.",
                                      "Debug: Ini association index 1->99 added"));
    EXPECT_EQ(nullptr, ini_value(x, 1)) << "an association with nothing reads as null";
}

TEST_F(Ini, FreeSetsTheCallersPointerToNull) {
    set_up({{"a", "1", Ini_None}, {"b", nullptr, Ini_None}}, {1, 0});
    ini_setup_load_fn(x, to_word, Xtra1);
    ini_free(&x);
    EXPECT_EQ(nullptr, x);
    ini_free(&x);
    ini_free(nullptr);
}

TEST_F(Ini, FreeXtraSetsTheCallersPointerToNull) {
    auto *entry = new ini_xtra{to_word, Xtra1};
    ini_free_xtra(&entry);
    EXPECT_EQ(nullptr, entry);
    ini_free_xtra(&entry);
    ini_free_xtra(nullptr);
}

// --- Bad arguments ---

TEST_F(Ini, NullStoreGivesTheFailureValueEverywhere) {
    array *none = array_init(0);
    ini_setmode(nullptr, Ini_Blank);
    ini_addmode(nullptr, Ini_Blank);
    ini_rmvmode(nullptr, Ini_Blank);
    ini_setup_load_fn(nullptr, to_word, Xtra1);
    EXPECT_EQ(0, ini_items(nullptr));
    EXPECT_EQ(nullptr, ini_value(nullptr, 0));
    EXPECT_EQ(nullptr, ini_value_next(nullptr, 0));
    EXPECT_EQ(nullptr, ini_value_name(nullptr, "a"));
    EXPECT_EQ(nullptr, ini_value_name_next(nullptr, "a"));
    EXPECT_EQ(0, ini_true(nullptr, 0));
    EXPECT_EQ(0, ini_false(nullptr, 0));
    EXPECT_EQ(0, ini_add(nullptr, 0, "x"));
    EXPECT_EQ(0, ini_add_name(nullptr, "a", "x"));
    EXPECT_EQ(0, ini_add_format(nullptr, 0, "x"));
    EXPECT_EQ(0, ini_add_array(nullptr, 0, none));
    EXPECT_EQ(0, do_add(nullptr, 0, "x"));
    EXPECT_EQ(0, create_setting(nullptr, "a", "x"));
    EXPECT_EQ(nullptr, ini_remove(nullptr, 0));
    EXPECT_EQ(nullptr, ini_remove_next(nullptr, 0));
    EXPECT_EQ(nullptr, ini_remove_name(nullptr, "a"));
    EXPECT_EQ(nullptr, ini_remove_name_next(nullptr, "a"));
    EXPECT_EQ(-1, ini_index(nullptr, "a"));
    EXPECT_EQ(nullptr, ini_label(nullptr, 0));
    EXPECT_EQ(Ini_None, ini_setting_mode(nullptr, 0));
    EXPECT_EQ(Ini_None, ini_setting_mode_name(nullptr, "a"));
    EXPECT_EQ(nullptr, ini_label_array(nullptr));
    EXPECT_EQ(nullptr, ini_label_list(nullptr));
    EXPECT_EQ(nullptr, ini_label_wild(nullptr, "*"));
    array_free(&none);
}

TEST_F(Ini, BadIndexGivesTheFailureValueEverywhere) {
    set_up({{"a", "1", Ini_None}});
    array *none = array_init(0);
    for (const int index : {-1, 1, 2, 1000000, -2147483647 - 1, 2147483647}) {
        EXPECT_EQ(nullptr, ini_value(x, index)) << index;
        EXPECT_EQ(nullptr, ini_value_next(x, index)) << index;
        EXPECT_EQ(0, ini_true(x, index)) << index;
        EXPECT_EQ(0, ini_false(x, index)) << index;
        EXPECT_EQ(0, ini_add(x, index, "x")) << index;
        EXPECT_EQ(0, ini_add_format(x, index, "x")) << index;
        EXPECT_EQ(0, ini_add_array(x, index, none)) << index;
        EXPECT_EQ(nullptr, ini_remove(x, index)) << index;
        EXPECT_EQ(nullptr, ini_remove_next(x, index)) << index;
        EXPECT_EQ(nullptr, ini_label(x, index)) << index;
        EXPECT_EQ(Ini_None, ini_setting_mode(x, index)) << index;
    }
    array_free(&none);
}

TEST_F(Ini, NullTextsAreRefused) {
    set_up({{"a", "1", Ini_None}});
    EXPECT_EQ(nullptr, ini_value_name(x, nullptr));
    EXPECT_EQ(nullptr, ini_value_name_next(x, nullptr));
    EXPECT_EQ(-1, ini_index(x, nullptr));
    EXPECT_EQ(0, ini_add(x, 0, nullptr));
    EXPECT_EQ(0, ini_add_name(x, nullptr, "x"));
    EXPECT_EQ(0, ini_add_name(x, "a", nullptr));
    EXPECT_EQ(0, ini_add_name(x, "new", nullptr));
    EXPECT_EQ(0, ini_add_format(x, 0, nullptr));
    EXPECT_EQ(0, ini_add_array(x, 0, nullptr));
    EXPECT_EQ(0, create_setting(x, nullptr, "x"));
    EXPECT_EQ(0, create_setting(x, "b", nullptr));
    EXPECT_EQ(nullptr, ini_remove_name(x, nullptr));
    EXPECT_EQ(nullptr, ini_label_wild(x, nullptr));
    EXPECT_EQ(1, ini_items(x));
    EXPECT_THAT(values(0), ElementsAre("1"));
}

// --- Look ---

TEST_F(Ini, NamesAreFoundExactlyAsWritten) {
    set_up(
        {{"action", "1", Ini_Pass}, {"act", "2", Ini_None}, {"Action", "3", Ini_None}, {"", "4", Ini_None}});
    EXPECT_STREQ("1", ini_value_name(x, "action"));
    EXPECT_STREQ("2", ini_value_name(x, "act"));
    EXPECT_STREQ("3", ini_value_name(x, "Action"));
    EXPECT_STREQ("4", ini_value_name(x, ""));
    EXPECT_EQ(nullptr, ini_value_name(x, "actio"));
    EXPECT_EQ(nullptr, ini_value_name(x, "ACTION"));
    EXPECT_EQ(1, ini_index(x, "act"));
    EXPECT_EQ(-1, ini_index(x, "acts"));
    EXPECT_EQ(Ini_Pass, ini_setting_mode_name(x, "action"));
    EXPECT_EQ(Ini_Pass, ini_setting_mode(x, 0));
}

TEST_F(Ini, NameThatOccursTwiceMeansTheFirstSetting) {
    set_up({{"action", "one", Ini_None}, {"action", "two", Ini_None}});
    EXPECT_EQ(0, ini_index(x, "action"));
    EXPECT_STREQ("one", ini_value_name(x, "action"));
    EXPECT_EQ(1, ini_add_name(x, "action", "new"));
    EXPECT_STREQ("new", ini_value(x, 0));
    EXPECT_EQ("new", taken(ini_remove_name(x, "action")));
    EXPECT_EQ(nullptr, ini_value(x, 0));
    EXPECT_STREQ("two", ini_value(x, 1));
}

TEST_F(Ini, EachOfThousandsOfNamesIsFound) {
    set_up({{"first", "", Ini_None}});
    const auto name = [](int i) { return "name_" + std::to_string(i); };
    for (int i = 1; i < 3000; ++i)
        ini_add_name(x, name(i).c_str(), "x");
    for (int i = 1; i < 3000; ++i)
        ASSERT_EQ(i, ini_index(x, name(i).c_str()));
    EXPECT_EQ(0, ini_index(x, "first"));
    EXPECT_EQ(-1, ini_index(x, name(3000).c_str()));
    EXPECT_EQ(-1, ini_index(x, "name_"));
}

TEST_F(Ini, NamesAreFoundWithoutMemoryForTheirIndex) {
    set_up({{"first", "1", Ini_None}, {"second", "2", Ini_Replace}, {"second", "3", Ini_None}});
    std::free(x->names.places);
    x->names = {};
    EXPECT_STREQ("1", ini_value_name(x, "first"));
    EXPECT_EQ(1, ini_index(x, "second"));
    EXPECT_EQ(-1, ini_index(x, "Second"));
    EXPECT_EQ(1, ini_add_name(x, "first", "see $(SECOND)"));
    EXPECT_EQ(1, ini_process(x));
    EXPECT_STREQ("see 2", ini_value_name(x, "first"));
}

TEST_F(Ini, NextSettingBringsTheIndexBack) {
    set_up({{"first", "1", Ini_None}, {"second", "2", Ini_None}});
    std::free(x->names.places);
    x->names = {};
    EXPECT_EQ(1, ini_add_name(x, "third", "3"));
    EXPECT_EQ(3, x->names.held);
    EXPECT_EQ(1, ini_index(x, "second"));
    EXPECT_EQ(2, ini_index(x, "third"));
}

TEST_F(Ini, ValueStartsTheWalkAndNextGoesOnToNull) {
    set_up({{"a", "1", Ini_Multi}});
    ini_add(x, 0, "2");
    ini_add(x, 0, "3");
    EXPECT_STREQ("1", ini_value(x, 0));
    EXPECT_STREQ("2", ini_value_next(x, 0));
    EXPECT_STREQ("1", ini_value_name(x, "a"));
    EXPECT_STREQ("2", ini_value_name_next(x, "a"));
    EXPECT_STREQ("3", ini_value_name_next(x, "a"));
    EXPECT_EQ(nullptr, ini_value_name_next(x, "a"));
    EXPECT_EQ(nullptr, ini_value_next(x, 0));
}

TEST_F(Ini, LockedSettingReadsAsNullWhenTheStoreUsesLocks) {
    set_up({{"fixed", "1", Ini_Fixed}, {"open", "2", Ini_None}});
    EXPECT_STREQ("1", ini_value(x, 0)) << "locks are off in the default mode";
    ini_addmode(x, Ini_UseLock);
    EXPECT_EQ(nullptr, ini_value(x, 0));
    EXPECT_EQ(nullptr, ini_value_next(x, 0));
    EXPECT_EQ(nullptr, ini_value_name(x, "fixed"));
    EXPECT_STREQ("2", ini_value(x, 1));
}

TEST_F(Ini, TruthWordsCanBeNeither) {
    set_up(
        {{"t", "Yes", Ini_None}, {"f", "OFF", Ini_None}, {"m", "maybe", Ini_None}, {"n", nullptr, Ini_None}});
    const int expected[][2] = {{1, 0}, {0, 1}, {0, 0}, {0, 0}};
    for (int i = 0; i < 4; i++) {
        EXPECT_EQ(expected[i][0], ini_true(x, i)) << i;
        EXPECT_EQ(expected[i][1], ini_false(x, i)) << i;
    }
}

TEST_F(Ini, NameContainersBorrowTheNamesInOrder) {
    set_up({{"b.one", nullptr, Ini_None}, {"a", nullptr, Ini_None}, {"b.two", nullptr, Ini_None}});
    array *names = ini_label_array(x);
    ASSERT_EQ(3, array_items(names));
    linklist *list = ini_label_list(x);
    ASSERT_EQ(3, list_items(list));
    list_start(list);
    for (int i = 0; i < 3; i++, list_next(list)) {
        EXPECT_EQ(ini_label(x, i), array_get_num(names, i)) << i;
        EXPECT_EQ(ini_label(x, i), list_get(list)) << i;
    }
    array *wild = ini_label_wild(x, "b.*");
    ASSERT_EQ(2, array_items(wild));
    EXPECT_EQ(ini_label(x, 0), array_get_num(wild, 0));
    EXPECT_EQ(ini_label(x, 2), array_get_num(wild, 1));
    array_free(&names);
    list_free(&list);
    array_free(&wild);
}

TEST_F(Ini, WildNamesAreMatchedWithCase) {
    set_up({{"Path", nullptr, Ini_None}, {"path", nullptr, Ini_None}});
    array *wild = ini_label_wild(x, "p*");
    ASSERT_EQ(1, array_items(wild));
    EXPECT_EQ(ini_label(x, 1), array_get_num(wild, 0));
    array_free(&wild);
}

// --- Associations ---

TEST_F(Ini, LastAssociationLendsTheValue) {
    set_up({{"a", nullptr, Ini_None}, {"b", "one", Ini_None}, {"c", "two", Ini_None}}, {0, 1, 0, 2});
    EXPECT_STREQ("two", ini_value(x, 0));
    EXPECT_STREQ("two", ini_value_name(x, "a"));
    EXPECT_EQ(nullptr, ini_value_next(x, 0)) << "only own values are walked";
}

TEST_F(Ini, LastAssociationDecidesEvenWhenItHasNothing) {
    set_up({{"a", nullptr, Ini_None}, {"b", "one", Ini_None}, {"c", nullptr, Ini_None}}, {0, 1, 0, 2});
    EXPECT_EQ(nullptr, ini_value(x, 0));
}

TEST_F(Ini, OwnValueComesBeforeAssociations) {
    set_up({{"a", nullptr, Ini_None}, {"b", "lent", Ini_None}}, {0, 1});
    EXPECT_STREQ("lent", ini_value(x, 0));
    ini_add(x, 0, "own");
    EXPECT_STREQ("own", ini_value(x, 0));
    std::free(ini_remove(x, 0));
    EXPECT_STREQ("lent", ini_value(x, 0));
}

TEST_F(Ini, LockHoldsForWhatIsBorrowedToo) {
    set_up({{"a", nullptr, Ini_None}, {"b", "secret", Ini_Lock}}, {0, 1});
    EXPECT_STREQ("secret", ini_value(x, 0));
    ini_addmode(x, Ini_UseLock);
    EXPECT_EQ(nullptr, ini_value(x, 0));
}

TEST_F(Ini, BorrowingMovesTheCursorsOfAllThatCouldLend) {
    set_up({{"a", nullptr, Ini_None}, {"b", "1", Ini_Multi}, {"c", "lent", Ini_None}}, {0, 1, 0, 2});
    ini_add(x, 1, "2");
    EXPECT_THAT(values(1), ElementsAre("1", "2")); // the walk leaves b's cursor at the end
    EXPECT_STREQ("lent", ini_value(x, 0));
    EXPECT_STREQ("2", ini_value_next(x, 1));
}

TEST_F(Ini, BorrowingLeavesTheCursorsOfLockedSettings) {
    set_up({{"a", nullptr, Ini_None}, {"b", "1", Ini_Multi | Ini_Lock}, {"c", "lent", Ini_None}},
           {0, 1, 0, 2});
    ini_setmode(x, Ini_UseMulti);
    ini_add(x, 1, "2"); // the cursor is at the end
    ini_addmode(x, Ini_UseLock);
    EXPECT_STREQ("lent", ini_value(x, 0));
    ini_setmode(x, Ini_UseMulti);
    EXPECT_EQ(nullptr, ini_value_next(x, 1));
}

TEST_F(Ini, AssociationBackToASettingBeingReadGivesNull) {
    set_up({{"a", nullptr, Ini_None}, {"b", nullptr, Ini_None}, {"self", nullptr, Ini_None}},
           {0, 1, 1, 0, 2, 2});
    EXPECT_EQ(nullptr, ini_value(x, 0));
    EXPECT_EQ(nullptr, ini_value(x, 1));
    EXPECT_EQ(nullptr, ini_value(x, 2));
}

TEST_F(Ini, CircleLeavesNothingBehindForTheNextRead) {
    set_up({{"a", nullptr, Ini_None}, {"b", nullptr, Ini_None}}, {0, 1, 1, 0});
    EXPECT_EQ(nullptr, ini_value(x, 0));
    ini_add(x, 1, "lent");
    EXPECT_STREQ("lent", ini_value(x, 0));
}

TEST_F(Ini, CircleBesideTheLastAssociationDoesNotMatter) {
    set_up({{"a", nullptr, Ini_None}, {"b", nullptr, Ini_None}, {"c", "lent", Ini_None}}, {0, 1, 1, 0, 0, 2});
    EXPECT_STREQ("lent", ini_value(x, 0));
    EXPECT_STREQ("lent", ini_value(x, 1));
}

TEST_F(Ini, SettingsAssociatedTwiceWithTheNextAreReadInOneStepEach) {
    std::vector<setting_list> table(60, {"s", nullptr, Ini_None}); // walked one by one: 2^59 reads
    table.push_back({"last", "lent", Ini_None});
    std::vector<int> assoc;
    for (int i = 0; i < 60; i++)
        assoc.insert(assoc.end(), {i, i + 1, i, i + 1});
    set_up(table, assoc);
    EXPECT_STREQ("lent", ini_value(x, 0));
}

TEST_F(Ini, ChainOfManyThousandAssociationsReachesItsEnd) {
    constexpr int length = 20000;
    log_set_level(CurrentLog, LogError);
    std::vector<setting_list> table(length, {"s", nullptr, Ini_None});
    table.back().dflt = "lent";
    std::vector<int> assoc;
    for (int i = 0; i + 1 < length; i++)
        assoc.insert(assoc.end(), {i, i + 1});
    set_up(table, assoc);
    EXPECT_STREQ("lent", ini_value(x, 0));
    std::free(ini_remove(x, length - 1));
    EXPECT_EQ(nullptr, ini_value(x, 0));
}

// --- Add ---

TEST_F(Ini, AddingToASingleValuedSettingReplacesItsValue) {
    set_up({{"a", "1", Ini_None}});
    EXPECT_EQ(1, ini_add(x, 0, "2"));
    EXPECT_THAT(values(0), ElementsAre("2"));
    EXPECT_EQ(1, ini_add(x, 0, "3")) << "also with the cursor where a walk left it";
    EXPECT_STREQ("3", ini_value(x, 0));
    EXPECT_EQ(1, ini_add(x, 0, "4")) << "and right after a read";
    EXPECT_THAT(values(0), ElementsAre("4"));
    EXPECT_THAT(logged(),
                ElementsAre("Debug: Ini value for 'a' set to '2'", "Debug: Ini value for 'a' set to '3'",
                            "Debug: Ini value for 'a' set to '4'"));
}

TEST_F(Ini, AddingToAMultiSettingAppends) {
    set_up({{"a", "1", Ini_Multi}});
    ini_add_name(x, "a", "2");
    ini_add(x, 0, "3");
    EXPECT_THAT(values(0), ElementsAre("1", "2", "3"));
}

TEST_F(Ini, AddingAppendsToAnySettingWithoutTheMultiRule) {
    set_up({{"a", "1", Ini_None}});
    ini_rmvmode(x, Ini_UseMulti);
    ini_add(x, 0, "2");
    EXPECT_THAT(values(0), ElementsAre("1", "2"));
}

TEST_F(Ini, AddingRightAfterAReadPutsTheValueFirst) {
    set_up({{"a", "1", Ini_Multi}});
    EXPECT_STREQ("1", ini_value(x, 0));
    ini_add(x, 0, "0");
    EXPECT_THAT(values(0), ElementsAre("0", "1"));
}

TEST_F(Ini, AddingBetweenTwoValuesPutsItAtTheCursor) {
    set_up({{"a", "1", Ini_Multi}});
    ini_add(x, 0, "3");
    ini_value(x, 0);
    ini_value_next(x, 0);
    ini_add(x, 0, "2");
    EXPECT_THAT(values(0), ElementsAre("1", "2", "3"));
}

TEST_F(Ini, SingleValueRuleDropsTheValueAtTheCursor) {
    set_up({{"a", "1", Ini_None}});
    ini_rmvmode(x, Ini_UseMulti);
    ini_add(x, 0, "2");
    ini_add(x, 0, "3");
    ini_addmode(x, Ini_UseMulti);
    ini_value(x, 0);
    ini_value_next(x, 0);
    ini_add(x, 0, "new");
    EXPECT_THAT(values(0), ElementsAre("1", "new", "3"));
    ini_add(x, 0, "end"); // the walk above left the cursor on the last value
    EXPECT_THAT(values(0), ElementsAre("1", "new", "end"));
}

TEST_F(Ini, EmptyValueIsRefusedAndTheOldOneStays) {
    set_up({{"a", "1", Ini_None}, {"e", "1", Ini_Empty}});
    EXPECT_EQ(-1, ini_add(x, 0, ""));
    EXPECT_EQ(-1, ini_add_name(x, "a", ""));
    EXPECT_THAT(logged(), ElementsAre("Debug: Ini value for 'a' not added, value was empty",
                                      "Debug: Ini value for 'a' not added, value was empty"));
    EXPECT_THAT(values(0), ElementsAre("1"));
    EXPECT_EQ(1, ini_add(x, 1, ""));
    EXPECT_THAT(values(1), ElementsAre(""));
    ini_rmvmode(x, Ini_UseEmpty);
    EXPECT_EQ(1, ini_add(x, 0, ""));
    EXPECT_THAT(values(0), ElementsAre(""));
}

TEST_F(Ini, FixedSettingTakesNoValueButLosesOne) {
    set_up({{"f", "1", Ini_Fixed}});
    EXPECT_EQ(-1, ini_add(x, 0, "2"));
    EXPECT_EQ(-1, ini_add_name(x, "f", "2"));
    EXPECT_EQ(-1, ini_add_format(x, 0, "%d", 2));
    EXPECT_THAT(logged(), testing::Each(std::string("Debug: Ini value for 'f' not addded, value is fixed")));
    EXPECT_EQ(3u, logged().size());
    EXPECT_EQ("1", taken(ini_remove(x, 0)));
    ini_rmvmode(x, Ini_UseFixed);
    EXPECT_EQ(1, ini_add(x, 0, "2"));
}

TEST_F(Ini, FixedIsLookedAtBeforeEmpty) {
    set_up({{"f", "1", Ini_Fixed}});
    EXPECT_EQ(-1, ini_add(x, 0, ""));
    EXPECT_THAT(logged(), ElementsAre("Debug: Ini value for 'f' not addded, value is fixed"));
}

TEST_F(Ini, PathSeparatorsBecomeSlashes) {
    set_up({{"p", nullptr, Ini_Path}, {"q", nullptr, Ini_None}});
    EXPECT_EQ(1, ini_add(x, 0, "c:\\a/b\\\\c"));
    EXPECT_STREQ("c:/a/b//c", ini_value(x, 0));
    ini_add(x, 1, "a\\b");
    EXPECT_STREQ("a\\b", ini_value(x, 1));
    ini_rmvmode(x, Ini_UsePath);
    ini_add(x, 0, "a\\b");
    EXPECT_STREQ("a\\b", ini_value(x, 0));
}

TEST_F(Ini, ValuesAreStoredWholeUnlessTheyPassABuffer) {
    set_up({{"a", nullptr, Ini_None}, {"p", nullptr, Ini_Path}});
    const std::string value(5000, 'x');
    ini_add(x, 0, value.c_str());
    EXPECT_EQ(value, ini_value(x, 0));
    ini_add(x, 1, value.c_str());
    EXPECT_EQ(value.substr(0, 999), ini_value(x, 1));
}

TEST_F(Ini, ValueMayBeTheOneThatItReplaces) {
    set_up({{"a", "value", Ini_None}, {"b", "other", Ini_Multi}});
    EXPECT_EQ(1, ini_add(x, 0, ini_value(x, 0)));
    EXPECT_THAT(values(0), ElementsAre("value"));
    EXPECT_EQ(1, ini_add(x, 0, ini_value(x, 0) + 2));
    EXPECT_THAT(values(0), ElementsAre("lue"));
}

TEST_F(Ini, PasswordNeverReachesTheLog) {
    set_up({{"p", "hush0", Ini_Pass}});
    EXPECT_EQ(1, ini_add(x, 0, "hush1"));
    EXPECT_THAT(logged(), ElementsAre("Debug: Ini value for 'p' set to 'xxxx'"));
    ini_addmode(x, Ini_NewPass);
    EXPECT_EQ(1, ini_add_name(x, "new", "hush2"));
    EXPECT_THAT(logged(), Contains("Debug: Ini setting 'new' created and set to 'xxxx'"));
    EXPECT_THAT(read_file(beside("test.log")), Not(HasSubstr("hush")));
}

TEST_F(Ini, PasswordIsLoggedWhenTheStoreDoesNotHideIt) {
    set_up({{"p", nullptr, Ini_Pass}});
    ini_rmvmode(x, Ini_UsePass);
    ini_addmode(x, Ini_NewPass);
    ini_add(x, 0, "clear");
    ini_add_name(x, "q", "too");
    EXPECT_THAT(logged(), ElementsAre("Debug: Ini value for 'p' set to 'clear'",
                                      "Debug: Ini setting 'q' created and set to 'too'"));
}

TEST_F(Ini, PercentSignsInNamesAndValuesAreText) {
    set_up({{"%s%n", nullptr, Ini_None}});
    EXPECT_EQ(1, ini_add(x, 0, "100%d%s"));
    EXPECT_EQ(1, ini_add_name(x, "%n%n", "%x"));
    EXPECT_THAT(logged(), ElementsAre("Debug: Ini value for '%s%n' set to '100%d%s'",
                                      "Debug: Ini setting '%n%n' created and set to '%x'"));
}

TEST_F(Ini, FormattedValueIsCutAt999Bytes) {
    set_up({{"a", nullptr, Ini_None}});
    EXPECT_EQ(1, ini_add_format(x, 0, "%s-%d", "n", 7));
    EXPECT_STREQ("n-7", ini_value(x, 0));
    EXPECT_EQ(1, ini_add_format(x, 0, "%01200d", 1));
    EXPECT_EQ(std::string(999, '0'), ini_value(x, 0));
    EXPECT_EQ(-1, ini_add_format(x, 0, "%s", ""));
}

TEST_F(Ini, ArrayIsAddedInOrderUpToTheFirstRefusal) {
    set_up({{"a", nullptr, Ini_Multi}});
    array *texts = array_init(0);
    EXPECT_EQ(1, ini_add_array(x, 0, texts)) << "an empty array is added at once";
    char one[] = "1";
    char none[] = "";
    char two[] = "2";
    for (char *text : {one, two})
        array_add(texts, text);
    EXPECT_EQ(1, ini_add_array(x, 0, texts));
    EXPECT_THAT(values(0), ElementsAre("1", "2"));
    array_empty(texts);
    for (char *text : {two, none, one})
        array_add(texts, text);
    EXPECT_EQ(0, ini_add_array(x, 0, texts));
    EXPECT_THAT(values(0), ElementsAre("1", "2", "2"));
    array_free(&texts);
}

// --- Conversion functions ---

TEST_F(Ini, ConversionsApplyInTheOrderOfTheirRegistration) {
    set_up({{"ab", nullptr, Xtra1 | Xtra2}, {"b", nullptr, Xtra2}, {"none", nullptr, Ini_None}});
    ini_setup_load_fn(x, with_b, Xtra2);
    ini_setup_load_fn(x, with_a, Xtra1);
    for (int i = 0; i < 3; i++)
        ini_add(x, i, "-");
    EXPECT_STREQ("-ba", ini_value(x, 0));
    EXPECT_STREQ("-b", ini_value(x, 1));
    EXPECT_STREQ("-", ini_value(x, 2));
}

TEST_F(Ini, ConversionAppliesWhenAnyBitIsShared) {
    set_up({{"a", nullptr, Xtra3}, {"b", nullptr, Xtra1}});
    ini_setup_load_fn(x, with_a, Xtra1 | Xtra3);
    ini_add(x, 0, "-");
    ini_add(x, 1, "-");
    EXPECT_STREQ("-a", ini_value(x, 0));
    EXPECT_STREQ("-a", ini_value(x, 1));
}

TEST_F(Ini, ConversionComesBeforePathFixedAndEmpty) {
    set_up({{"p", nullptr, Xtra1 | Ini_Path}, {"e", nullptr, Xtra2}, {"f", nullptr, Xtra3 | Ini_Fixed}});
    ini_setup_load_fn(x, with_quote, Xtra1);
    ini_setup_load_fn(x, to_nothing, Xtra2);
    ini_setup_load_fn(x, counted, Xtra3);
    calls = 0;
    EXPECT_EQ(1, ini_add(x, 0, "x"));
    EXPECT_STREQ("/from/fn", ini_value(x, 0));
    EXPECT_EQ(-1, ini_add(x, 1, "x")) << "the empty check sees the converted value";
    EXPECT_EQ(-1, ini_add(x, 2, "x"));
    EXPECT_EQ(1, calls) << "called before the fixed setting refuses";
}

TEST_F(Ini, ConversionCanFillAnEmptyValue) {
    set_up({{"e", nullptr, Xtra1}});
    ini_setup_load_fn(x, to_word, Xtra1);
    EXPECT_EQ(1, ini_add(x, 0, ""));
    EXPECT_STREQ("word", ini_value(x, 0));
}

TEST_F(Ini, ConvertedTextIsCutAt999Bytes) {
    set_up({{"a", nullptr, Xtra1}});
    ini_setup_load_fn(x, with_a, Xtra1);
    ini_add(x, 0, std::string(998, 'x').c_str());
    EXPECT_EQ(std::string(998, 'x') + "a", ini_value(x, 0));
    ini_add(x, 0, std::string(3000, 'x').c_str());
    EXPECT_EQ(std::string(999, 'x'), ini_value(x, 0));
}

TEST_F(Ini, ConversionToNullCountsAsEmptyAndNoFunctionAsNoConversion) {
    set_up({{"a", "old", Xtra1}, {"b", nullptr, Xtra2}});
    ini_setup_load_fn(x, to_null, Xtra1);
    ini_setup_load_fn(x, nullptr, Xtra2);
    EXPECT_EQ(-1, ini_add(x, 0, "x"));
    EXPECT_EQ(1, ini_add(x, 1, "x"));
    EXPECT_STREQ("x", ini_value(x, 1));
}

TEST_F(Ini, ConversionMayReturnAPartOfItsArgument) {
    set_up({{"a", nullptr, Xtra1 | Xtra2}});
    ini_setup_load_fn(x, skip_one, Xtra1);
    ini_setup_load_fn(x, skip_one, Xtra2);
    ini_add(x, 0, "abcdef");
    EXPECT_STREQ("cdef", ini_value(x, 0));
}

TEST_F(Ini, ConversionMayCreateSettings) {
    set_up({{"a", nullptr, Xtra1}});
    ini_setup_load_fn(x, creating, Xtra1);
    grown = x;
    EXPECT_EQ(1, ini_add(x, 0, "y"));
    EXPECT_STREQ("y", ini_value(x, 0));
    EXPECT_EQ(21, ini_items(x));
}

// --- Creating settings ---

TEST_F(Ini, UnknownNameIsCreatedMultiAndEmptyByDefault) {
    set_up({});
    EXPECT_EQ(1, ini_add_name(x, "new", "1"));
    EXPECT_EQ(1, ini_add_name(x, "blank", ""));
    EXPECT_THAT(logged(), ElementsAre("Debug: Ini setting 'new' created and set to '1'",
                                      "Debug: Ini setting 'blank' created and set to ''"));
    EXPECT_EQ(Ini_Multi | Ini_Empty, ini_setting_mode_name(x, "new"));
    EXPECT_STREQ("", ini_value_name(x, "blank"));
    EXPECT_EQ(1, ini_add_name(x, "new", "2"));
    EXPECT_THAT(values("new"), ElementsAre("1", "2"));
}

TEST_F(Ini, UnknownNameIsRefusedWithoutUseNew) {
    set_up({});
    ini_rmvmode(x, Ini_UseNew);
    EXPECT_EQ(0, ini_add_name(x, "new", "1"));
    EXPECT_EQ(0, ini_items(x));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Ini, EmptyValueCreatesNothingWithoutNewEmpty) {
    set_up({});
    ini_rmvmode(x, Ini_NewEmpty);
    EXPECT_EQ(-1, ini_add_name(x, "new", ""));
    EXPECT_EQ(0, ini_items(x));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(Ini, CreatedModeFollowsTheNewFlags) {
    const struct {
        ini_mode store;
        std::uint32_t created;
    } rows[] = {{Ini_Blank, 0},     {Ini_NewMulti, 1}, {Ini_NewPass, 2},  {Ini_NewEmpty, 16},
                {Ini_NewFixed, 32}, {Ini_NewLock, 32}, {Ini_NewModes, 51}};
    set_up({});
    for (const auto &row : rows) {
        ini_setmode(x, Ini_UseNew | row.store);
        const std::string name = "s" + std::to_string(row.store);
        EXPECT_EQ(1, ini_add_name(x, name.c_str(), "v"));
        EXPECT_EQ(row.created, ini_setting_mode_name(x, name.c_str())) << row.store;
    }
}

TEST_F(Ini, CreatingAppliesNoRuleToTheValue) {
    set_up({});
    ini_addmode(x, Ini_NewFixed);
    EXPECT_EQ(1, ini_add_name(x, "f", "a\\b"));
    EXPECT_STREQ("a\\b", ini_value_name(x, "f"));
    EXPECT_EQ(-1, ini_add_name(x, "f", "again"));
}

TEST_F(Ini, TableGrowsByFiveEntriesAndStaysEnded) {
    set_up({{"a", "v", Ini_None}});
    const int sizes[] = {7, 7, 7, 7, 7, 12, 12};
    for (int i = 0; i < 7; i++) {
        EXPECT_EQ(1, create_setting(x, ("n" + std::to_string(i)).c_str(), "v"));
        EXPECT_EQ(i + 2, ini_items(x));
        EXPECT_EQ(sizes[i], x->size) << i;
        EXPECT_EQ(nullptr, x->list[x->items].setting);
        EXPECT_EQ(nullptr, x->list[x->size - 1].setting);
    }
    EXPECT_EQ(7, ini_index(x, "n6"));
    EXPECT_STREQ("v", ini_value(x, 0));
}

TEST_F(Ini, HoldsHundredsOfSettingsWithLongNames) {
    log_set_level(CurrentLog, LogError);
    set_up({});
    const std::string stem(2000, 'n');
    for (int i = 0; i < 300; i++)
        ASSERT_EQ(1, ini_add_name(x, (stem + std::to_string(i)).c_str(), "v"));
    EXPECT_EQ(299, ini_index(x, (stem + "299").c_str()));
}

// Adds settings in a process of little memory until one is refused, and tells whether the store stayed whole.
[[noreturn]] void fill_up(ini *x) {
    const rlimit limit = {100UL << 20, 100UL << 20};
    setrlimit(RLIMIT_AS, &limit);
    const std::string value(1 << 20, 'v');
    int added = 0;
    while (ini_add_name(x, std::to_string(added).c_str(), value.c_str()) == 1)
        added++;
    const bool whole = ini_items(x) == added && x->size > added && x->list[added].setting == nullptr &&
                       array_items(x->data) == added && value == ini_value(x, added - 1);
    std::_Exit(whole ? 0 : 1);
}

TEST_F(Ini, SettingThatFindsNoMemoryIsRefusedAndLogged) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the address sanitizer needs more memory than the test leaves";
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(memory_sanitizer)
    GTEST_SKIP() << "the address sanitizer needs more memory than the test leaves";
#endif
#endif
    set_up({});
    EXPECT_EXIT(fill_up(x), testing::ExitedWithCode(0), "");
    EXPECT_EQ("Error: Memory allocation error", logged().back());
}

// --- Remove ---

TEST_F(Ini, RemoveGivesTheFirstValueToTheCaller) {
    set_up({{"a", "1", Ini_Multi}});
    ini_add(x, 0, "2");
    ini_add(x, 0, "3");
    EXPECT_EQ("1", taken(ini_remove(x, 0)));
    EXPECT_EQ("2", taken(ini_remove_name(x, "a")));
    EXPECT_THAT(values(0), ElementsAre("3"));
    EXPECT_EQ("3", taken(ini_remove(x, 0)));
    EXPECT_EQ(nullptr, ini_remove(x, 0));
    EXPECT_EQ(nullptr, ini_remove_name(x, "nosuch"));
}

TEST_F(Ini, RemoveNextTakesTheValueAtTheCursor) {
    set_up({{"a", "1", Ini_Multi}});
    for (const char *value : {"2", "3", "4"})
        ini_add(x, 0, value);
    ini_value(x, 0);
    ini_value_next(x, 0);
    EXPECT_EQ("2", taken(ini_remove_next(x, 0)));
    EXPECT_EQ("3", taken(ini_remove_name_next(x, "a"))) << "the one that followed is at the cursor now";
    EXPECT_THAT(values(0), ElementsAre("1", "4"));
}

TEST_F(Ini, RemoveNextAtTheEndTakesTheLastValue) {
    set_up({{"a", "1", Ini_Multi}});
    ini_add(x, 0, "2");
    EXPECT_EQ("2", taken(ini_remove_next(x, 0)));
    EXPECT_EQ("1", taken(ini_remove_next(x, 0)));
    EXPECT_EQ(nullptr, ini_remove_next(x, 0));
}

TEST_F(Ini, RemoveIgnoresEveryMode) {
    set_up({{"f", "1", Ini_Fixed}});
    ini_addmode(x, Ini_UseLock);
    EXPECT_EQ("1", taken(ini_remove_name(x, "f")));
}

TEST_F(Ini, SettingsDefinitionsAreNoneUntilAFileIsLoaded) {
    EXPECT_EQ(nullptr, _settings);
}

} // namespace
} // namespace installer::test
