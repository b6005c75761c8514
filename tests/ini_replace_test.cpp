#include "installer/ini.h"
#include "tests/ini_store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

namespace installer::test {
namespace {

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class IniReplace : public IniStore {
  protected:
    /// What ini_replace makes of a text in a buffer of `size` bytes; the byte after it must stay.
    std::string replaced(const std::string &text, unsigned int size = 1000) {
        std::vector<char> buffer(size + 1, '!');
        ini_replace(x, text.c_str(), buffer.data(), size);
        EXPECT_EQ('!', buffer[size]) << "written past the end";
        return buffer.data();
    }

    std::vector<std::string> errors() {
        std::vector<std::string> lines = logged();
        lines.erase(std::remove_if(lines.begin(), lines.end(),
                                   [](const std::string &line) { return line.compare(0, 6, "Error:") != 0; }),
                    lines.end());
        return lines;
    }
};

class IniProcess : public IniReplace {
  protected:
    /// What becomes of one value between a setting that may stand in for a reference and one that may not.
    std::string processed(const char *value) {
        set_up({{"base", "/opt", Ini_Replace}, {"v", value, Ini_None}, {"plain", "lost", Ini_None}});
        EXPECT_EQ(1, ini_process(x));
        return values(1).at(0);
    }
};

// --- ini_process: one text ---

TEST_F(IniProcess, ReferencesBecomeTheValuesOfReplaceSettings) {
    const struct {
        const char *value;
        const char *expected;
    } rows[] = {
        {"$(base)/bin", "/opt/bin"},
        {"$(BASE)/bin", "/opt/bin"},
        {"$(base):$(Base):$(base)", "/opt:/opt:/opt"},
        {"$(plain)/x", "/x"},
        {"a$(plain)$(base)b", "a/optb"},
        {"$(nosuch)/x", "$(nosuch)/x"},
        {"$(nosuch)$(base)", "$(nosuch)/opt"},
        {"$(base)$(nosuch)$(base)", "/opt$(nosuch)/opt"},
        {"$(base", "$(base"},
        {"$(base)$(base", "/opt$(base"},
        {"$(x $(base", "$(x $(base"},
        {"$(x $(base)", "$(x /opt"},
        {"$( base)$(base )", "$( base)$(base )"},
        {"$()", "$()"},
        {"$$(base)", "$/opt"},
        {"$base ( $ (base) )", "$base ( $ (base) )"},
        {"$(", "$("},
        {"", ""},
    };
    for (const auto &row : rows)
        EXPECT_EQ(row.expected, processed(row.value)) << row.value;
}

TEST_F(IniProcess, LogsWhatItReplaces) {
    set_up({{"base", "/opt", Ini_Replace}, {"v", "$(BASE)/$(plain)", Ini_None}, {"plain", "lost", Ini_None}});
    EXPECT_EQ(1, ini_process(x));
    EXPECT_THAT(logged(),
                ElementsAre("Debug: Processing replacable settings...",
                            "Debug: Replaced '$(BASE)' in '$(BASE)/$(plain)' with '/opt' = '/opt/$(plain)'",
                            "Debug: Replaced '$(plain)' in '/opt/$(plain)' with '(null)' = '/opt/'",
                            "Debug: Finished processing replacable settings"));
}

TEST_F(IniProcess, EmptyTableIsDoneAtOnce) {
    set_up({});
    EXPECT_EQ(1, ini_process(x));
    EXPECT_THAT(logged(), ElementsAre("Debug: Processing replacable settings...",
                                      "Debug: Finished processing replacable settings"));
}

TEST_F(IniProcess, StoreWithoutDefinitionsGivesZero) {
    EXPECT_EQ(0, ini_process(nullptr));
    EXPECT_EQ(0, ini_process(x));
    EXPECT_THAT(logged(), IsEmpty());
}

// --- ini_process: which settings, which values ---

TEST_F(IniProcess, ReferencesThatAValueBringsInAreResolvedToo) {
    set_up({{"a", "$(b)", Ini_Replace}, {"b", "$(c)", Ini_Replace}, {"c", "x", Ini_Replace}});
    EXPECT_EQ(1, ini_process(x));
    for (int i = 0; i < 3; i++)
        EXPECT_STREQ("x", ini_value(x, i)) << i;
}

TEST_F(IniProcess, ReferenceMayBePutTogetherByAValue) {
    set_up({{"open", "(name)", Ini_Replace},
            {"v", "$$(open)", Ini_None},
            {"name", "found", Ini_Replace},
            {"w", "$(na$(rest))", Ini_None},
            {"rest", "me", Ini_Replace}});
    EXPECT_EQ(1, ini_process(x));
    EXPECT_STREQ("found", ini_value_name(x, "v"));
    EXPECT_STREQ("found", ini_value_name(x, "w"));
}

TEST_F(IniProcess, FirstSettingOfTheNameInAnyCaseDecides) {
    set_up({{"BASE", "first", Ini_Replace}, {"base", "second", Ini_Replace}, {"v", "$(base)", Ini_None}});
    EXPECT_EQ(1, ini_process(x));
    EXPECT_STREQ("first", ini_value(x, 2));
}

TEST_F(IniProcess, EverySettingIsRewrittenWhateverItsMode) {
    const setting_mode modes[] = {Ini_None, Ini_Fixed, Ini_Pass,
                                  Ini_Path, Ini_Multi, Ini_Replace | Ini_Empty};
    for (const setting_mode mode : modes) {
        set_up({{"v", "$(b)", mode}, {"b", "x\\y", Ini_Replace}});
        ini_addmode(x, Ini_UseLock);
        EXPECT_EQ(1, ini_process(x));
        ini_rmvmode(x, Ini_UseLock);
        EXPECT_STREQ("x\\y", ini_value(x, 0)) << mode << ": and no rule applies to the new text";
    }
}

TEST_F(IniProcess, EveryValueOfASettingIsRewritten) {
    set_up({{"m", "1$(b)", Ini_Multi}, {"b", "x", Ini_Replace}});
    for (const char *value : {"2", "3$(b)$(b)", "4$(b)"})
        ini_add(x, 0, value);
    EXPECT_EQ(1, ini_process(x));
    ini_add(x, 0, "added at the end");
    EXPECT_THAT(values(0), ElementsAre("1x", "2", "3xx", "4x", "added at the end"));
}

TEST_F(IniProcess, OnlyTheFirstValueOfTheReferencedSettingCounts) {
    set_up({{"v", "$(m)", Ini_None}, {"m", "1", Ini_Multi | Ini_Replace}});
    ini_add(x, 1, "2");
    EXPECT_EQ(1, ini_process(x));
    EXPECT_STREQ("1", ini_value(x, 0));
}

TEST_F(IniProcess, SettingMayReferToItsOwnFirstValue) {
    set_up({{"m", "1", Ini_Multi | Ini_Replace}});
    ini_add(x, 0, "$(m)2");
    ini_add(x, 0, "$(m)3");
    EXPECT_EQ(1, ini_process(x));
    EXPECT_THAT(values(0), ElementsAre("1", "12", "13"));
}

TEST_F(IniProcess, LocksAndAssociationsDoNotCount) {
    set_up({{"v", "$(locked)-$(borrows)", Ini_None},
            {"locked", "read", Ini_Replace | Ini_Lock},
            {"borrows", nullptr, Ini_Replace},
            {"lends", "lent", Ini_Replace}},
           {2, 3});
    ini_addmode(x, Ini_UseLock);
    EXPECT_EQ(1, ini_process(x));
    EXPECT_STREQ("read-", ini_value(x, 0));
}

TEST_F(IniProcess, StoreModeDoesNotSwitchItOff) {
    set_up({{"v", "$(b)", Ini_None}, {"b", "x", Ini_Replace}});
    ini_setmode(x, Ini_Blank);
    EXPECT_EQ(1, ini_process(x));
    EXPECT_STREQ("x", ini_value(x, 0));
}

TEST_F(IniProcess, PasswordNeverReachesTheLog) {
    set_up(
        {{"v", "$(p)-$(b)", Ini_None}, {"p", "hush$(b)", Ini_Pass | Ini_Replace}, {"b", "x", Ini_Replace}});
    EXPECT_EQ(1, ini_process(x));
    EXPECT_STREQ("hushx-x", ini_value(x, 0));
    EXPECT_STREQ("hushx", ini_value(x, 1));
    EXPECT_THAT(logged(), Contains("Debug: Replaced '$(p)' in 'xxxx' with 'xxxx' = 'xxxx'"));
    EXPECT_THAT(logged(), Each(Not(HasSubstr("hush"))));
}

// --- ini_process: bounds ---

TEST_F(IniProcess, ValueThatGrowsForEverStopsAtItsBound) {
    set_up({{"good", "$(end)", Ini_None},
            {"grows", "ab$(grows)$(grows)", Ini_Replace},
            {"end", "x", Ini_Replace},
            {"after", "$(end)", Ini_None}});
    EXPECT_EQ(1, ini_process(x));
    EXPECT_EQ(999u, values("grows").at(0).size());
    EXPECT_THAT(values("grows").at(0), StartsWith("ababab"));
    EXPECT_THAT(errors(), ElementsAre("Error: Ini value for 'grows' left as it is, it fills 1000 bytes"));
    EXPECT_STREQ("x", ini_value_name(x, "good"));
    EXPECT_STREQ("x", ini_value_name(x, "after"));
}

TEST_F(IniProcess, ValuesThatReferToEachOtherStopAfterAThousandRewrites) {
    set_up({{"a", "$(b)", Ini_Replace},
            {"b", "$(a)", Ini_Replace},
            {"self", "$(self)", Ini_Replace},
            {"after", "$(end)", Ini_None},
            {"end", "x", Ini_Replace}});
    EXPECT_EQ(1, ini_process(x));
    EXPECT_THAT(errors(), ElementsAre("Error: Ini value for 'a' left as it is after 1000 replacements",
                                      "Error: Ini value for 'b' left as it is after 1000 replacements",
                                      "Error: Ini value for 'self' left as it is after 1000 replacements"));
    EXPECT_STREQ("$(a)", ini_value_name(x, "a"));
    EXPECT_STREQ("$(self)", ini_value_name(x, "self"));
    EXPECT_STREQ("x", ini_value_name(x, "after"));
}

// Setting 0 of a chain refers to setting 1, this one to setting 2, and so on: to resolve setting 0, which
// comes first, takes a rewrite for each one behind it. These stand in reverse order and take one each.
TEST_F(IniProcess, ThousandRewritesAreAllowedAndNotOneMore) {
    log_set_level(CurrentLog, LogError);
    for (const std::size_t length : {1000u, 1001u}) {
        std::vector<std::string> names;
        std::vector<std::string> references;
        for (std::size_t i = 0; i <= length; i++) {
            names.push_back("s" + std::to_string(i));
            references.push_back("$(s" + std::to_string(i) + ")");
        }
        std::vector<setting_list> table = {{names[0].c_str(), references[1].c_str(), Ini_Replace},
                                           {names[length].c_str(), "end", Ini_Replace}};
        for (std::size_t i = length - 1; i > 0; i--)
            table.push_back({names[i].c_str(), references[i + 1].c_str(), Ini_Replace});
        set_up(table);
        EXPECT_EQ(1, ini_process(x));
        EXPECT_EQ(length == 1000 ? "end" : "$(s1001)", std::string(ini_value(x, 0)));
        EXPECT_STREQ("end", ini_value_name(x, "s1"));
        EXPECT_EQ(length == 1000 ? 0u : 1u, errors().size());
    }
}

TEST_F(IniProcess, RewriteThatFillsTheBufferIsTheLast) {
    const std::string big(995, 'b');
    set_up({{"full", "$(big)$(c)", Ini_None}, {"big", big.c_str(), Ini_Replace}, {"c", "Z", Ini_Replace}});
    EXPECT_EQ(1, ini_process(x));
    EXPECT_EQ(big + "$(c)", ini_value(x, 0)); // 999 characters
    EXPECT_THAT(errors(), ElementsAre("Error: Ini value for 'full' left as it is, it fills 1000 bytes"));

    const std::string less(994, 'b');
    set_up({{"fits", "$(big)$(c)", Ini_None}, {"big", less.c_str(), Ini_Replace}, {"c", "Z", Ini_Replace}});
    EXPECT_EQ(1, ini_process(x));
    EXPECT_EQ(less + "Z", ini_value(x, 0));
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(IniProcess, LongNamesAreResolvedOrLeft) {
    for (const std::size_t length : {995u, 997u, 999u, 1000u, 3000u}) {
        const std::string name(length, 'n');
        const std::string value = "$(" + name + ")";
        set_up({{"v", value.c_str(), Ini_None}, {name.c_str(), "x", Ini_Replace}});
        EXPECT_EQ(1, ini_process(x));
        EXPECT_EQ(length == 995 ? "x" : value, ini_value(x, 0)) << length;
        EXPECT_THAT(errors(), IsEmpty());
    }
}

TEST_F(IniProcess, LongValueWithoutKnownReferencesStays) {
    const std::string value = "$(nosuch)" + std::string(5000, 'x') + "$(";
    set_up({{"v", value.c_str(), Ini_None}});
    EXPECT_EQ(1, ini_process(x));
    EXPECT_EQ(value, ini_value(x, 0));
}

// --- ini_replace ---

TEST_F(IniReplace, ReferencesBecomeFirstValuesOrNothing) {
    const struct {
        const char *text;
        const char *expected;
    } rows[] = {
        {"", ""},
        {"plain", "plain"},
        {"$(base)/bin", "/opt/bin"},
        {"in $(base) and $(base).", "in /opt and /opt."},
        {"$(BASE)/bin", "/bin"},
        {"$(nosuch)/x", "/x"},
        {"a$(none)b", "ab"},
        {"a$(empty)b", "ab"},
        {"$(multi)", "1"},
        {"$(borrows)", "/opt"},
        {"$(outer)", "$(base)"},
        {"$()x", "x"},
        {"$$(base)", "$/opt"},
        {"$(base", "$(base"},
        {"$(base)$(base", "/opt$(base"},
        {"$(", "$("},
        {"$", "$"},
        {"$(x $(base)", ""},
        {"$(base))", "/opt)"},
        {"$( base )", ""},
        {"100% %s $base", "100% %s $base"},
    };
    set_up({{"base", "/opt", Ini_None},
            {"none", nullptr, Ini_None},
            {"empty", "", Ini_None},
            {"multi", "1", Ini_Multi},
            {"outer", "$(base)", Ini_Replace},
            {"borrows", nullptr, Ini_None}},
           {5, 0});
    ini_add_name(x, "multi", "2");
    for (const auto &row : rows)
        EXPECT_EQ(row.expected, replaced(row.text)) << row.text;
}

TEST_F(IniReplace, LockedSettingIsDropped) {
    set_up({{"f", "value", Ini_Lock}});
    EXPECT_EQ("[value]", replaced("[$(f)]"));
    ini_addmode(x, Ini_UseLock);
    EXPECT_EQ("[]", replaced("[$(f)]"));
}

TEST_F(IniReplace, ResultIsTheWholeTextCutToItsBuffer) {
    set_up({{"base", "/opt", Ini_None}, {"none", nullptr, Ini_None}});
    const std::string text = "ab$(base)$(none)cd$(base)efgh$(base";
    const std::string whole = "ab/optcd/optefgh$(base";
    for (unsigned int size = 1; size < 40; size++)
        EXPECT_EQ(whole.substr(0, size - 1), replaced(text, size)) << size;
}

TEST_F(IniReplace, LongTextsAreCutToo) {
    const std::string value(5000, 'v');
    set_up({{"long", value.c_str(), Ini_None}});
    EXPECT_EQ(value.substr(0, 999), replaced("$(long)"));
    EXPECT_EQ("x" + value.substr(0, 998), replaced("x$(long)y"));
    EXPECT_EQ(std::string(999, 'x'), replaced(std::string(5000, 'x') + "$(long)"));
    EXPECT_EQ(value + value, replaced("$(long)$(long)", 20000));
}

TEST_F(IniReplace, TextThatDoesNotFitEndsTheLookUps) {
    set_up({{"m", "1", Ini_Multi}});
    ini_add(x, 0, "2"); // the cursor is at the end; a look-up would move it
    EXPECT_EQ("abc", replaced("abcde$(m)", 4));
    EXPECT_EQ(nullptr, ini_value_next(x, 0));
    EXPECT_EQ("abc1", replaced("abc$(m)", 5));
    EXPECT_STREQ("2", ini_value_next(x, 0));
}

TEST_F(IniReplace, NameIsReadUpTo999Characters) {
    const std::string name(999, 'n');
    set_up({{name.c_str(), "found", Ini_None}});
    EXPECT_EQ("[found]", replaced("[$(" + name + ")]"));
    EXPECT_EQ("[]", replaced("[$(" + name.substr(1) + ")]"));
    EXPECT_EQ("[found]", replaced("[$(" + name + "more)]")) << "cut there, and all of it is passed over";
}

TEST_F(IniReplace, NothingIsTouchedWithoutStoreTextOrRoom) {
    set_up({{"a", "1", Ini_None}});
    char buffer[] = "old";
    ini_replace(nullptr, "new", buffer, sizeof buffer);
    ini_replace(x, nullptr, buffer, sizeof buffer);
    ini_replace(x, "new", buffer, 0);
    EXPECT_STREQ("old", buffer);
    ini_replace(x, "new", nullptr, 10);
}

TEST_F(IniReplace, StoreWithoutDefinitionsDropsEveryReference) {
    EXPECT_EQ("a/b", replaced("a$(x)/$(y)b"));
}

} // namespace
} // namespace installer::test
