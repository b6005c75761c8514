// Every module without memory: each operation is carried out with its first allocation refused, then with its second,
// and so on until none is left to refuse; once with memory again after that, once without. Nothing may crash or leak, and
// what was refused must be told.
//
// The program's allocations come here by the linker's --wrap.

#include "installer/array.h"
#include "installer/copy.h"
#include "installer/file.h"
#include "installer/ini.h"
#include "installer/init.h"
#include "installer/lib.h"
#include "installer/linklist.h"
#include "installer/quest.h"
#include "installer/shared.h"
#include "installer/tcp.h"
#include "tests/support.h"

#include <cstring>
#include <new>

namespace {

// What is refused: the allocation `countdown` from now, when that is not 0; with `for_good` all that follow it too.
int countdown = 0;
bool for_good = false;
bool refused = false;

bool refuse() {
    if (countdown == 0 || (countdown > 1 && --countdown > 0))
        return false;
    refused = true;
    if (!for_good)
        countdown = 0;
    errno = ENOMEM;
    return true;
}

} // namespace

extern "C" {
void *__real_malloc(std::size_t size);
void *__real_calloc(std::size_t count, std::size_t size);
void *__real_realloc(void *old, std::size_t size);
char *__real_strdup(const char *text);
void *__real__ZnwmRKSt9nothrow_t(std::size_t size, const std::nothrow_t &tag);
void *__real__ZnamRKSt9nothrow_t(std::size_t size, const std::nothrow_t &tag);

void *__wrap_malloc(std::size_t size) {
    return refuse() ? nullptr : __real_malloc(size);
}
void *__wrap_calloc(std::size_t count, std::size_t size) {
    return refuse() ? nullptr : __real_calloc(count, size);
}
void *__wrap_realloc(void *old, std::size_t size) {
    return refuse() ? nullptr : __real_realloc(old, size);
}
char *__wrap_strdup(const char *text) {
    return refuse() ? nullptr : __real_strdup(text);
}
void *__wrap__ZnwmRKSt9nothrow_t(std::size_t size, const std::nothrow_t &tag) {
    return refuse() ? nullptr : __real__ZnwmRKSt9nothrow_t(size, tag);
}
void *__wrap__ZnamRKSt9nothrow_t(std::size_t size, const std::nothrow_t &tag) {
    return refuse() ? nullptr : __real__ZnamRKSt9nothrow_t(size, tag);
}
}

namespace installer::test {
namespace {

class NoMemory : public LogDir {
  protected:
    /// Calls `act` until none of its allocations was refused. `act` carries out what it tests by `try_it`.
    static void with_each_allocation_refused(const std::function<void()> &act) {
        for (const bool rest : {false, true})
            for (int n = 1; n == 1 || refused; ++n) {
                ASSERT_LT(n, 1000) << "the operation never ends";
                nth_ = n;
                for_good = rest;
                refused = false;
                SCOPED_TRACE("allocation " + std::to_string(n) + (rest ? " and all after it" : ""));
                act();
            }
    }

    /// Carries out `part` while the allocation that is due is refused; later parts of one act have memory again.
    template <class Part>
    static auto try_it(Part part) {
        countdown = nth_;
        const struct guard {
            ~guard() { countdown = 0; }
        } memory_is_back;
        return part();
    }

    /// How often want of memory was told so far.
    std::ptrdiff_t times_told() const {
        const std::vector<std::string> all = log_lines();
        return std::count_if(all.begin(), all.end(), [](const std::string &line) {
            return line.rfind("Error: Memory allocation error", 0) == 0;
        });
    }

    static ini *small_store() {
        static const setting_list settings[] = {{"base", "/srv", Ini_Replace},
                                                {"many", "one", Ini_Multi},
                                                {"none", nullptr, Ini_None},
                                                {nullptr, nullptr, Ini_None}};
        ini *x = ini_init();
        ini_setup(x, settings, nullptr, 1);
        return x;
    }

    static inline int nth_ = 0;
};

TEST_F(NoMemory, AnArrayHoldsWhatItSaysItTook) {
    char item[] = "item";
    with_each_allocation_refused([&] {
        int taken = 0;
        array *x = try_it([&] {
            array *made = array_init(0);
            for (int i = 0; i < 25; ++i)
                taken += array_add(made, item);
            return made;
        });
        EXPECT_EQ(taken, array_items(x));
        EXPECT_TRUE(refused || taken == 25);
        array_free(&x);
    });
}

TEST_F(NoMemory, AnArrayIsCopiedWholeOrNotAtAll) {
    char item[] = "item";
    with_each_allocation_refused([&] {
        array *x = array_init(0);
        array_add(x, item);
        array *copy = try_it([&] { return array_copy(x); });
        EXPECT_EQ(refused, copy == nullptr);
        EXPECT_EQ(refused ? 0 : 1, array_items(copy));
        array_free(&copy);
        array_free(&x);
    });
}

TEST_F(NoMemory, AnArrayIsAppendedWholeOrNotAtAll) {
    char item[] = "item";
    with_each_allocation_refused([&] {
        array *x = array_init(0), *more = array_init(0);
        array_add(more, item);
        try_it([&] { array_array(x, more); });
        EXPECT_EQ(refused ? 0 : 1, array_items(x));
        array_free(&more);
        array_free(&x);
    });
}

TEST_F(NoMemory, WordsAndLinesThatFindNoRoomAreLeftOut) {
    write_file("lines", "one\ntwo\n");
    with_each_allocation_refused([&] {
        array *words = array_init(0);
        const int added = try_it([&] { return array_tok(words, "a b c", " "); });
        EXPECT_EQ(added, array_items(words));
        EXPECT_TRUE(refused || added == 3);
        array_free_dealloc(&words);
    });
    with_each_allocation_refused([&] {
        array *lines = try_it([] { return array_loadfile("lines"); });
        EXPECT_EQ(refused, array_items(lines) != 2);
        array_free_dealloc(&lines);
    });
}

TEST_F(NoMemory, AListHoldsWhatItSaysItTookAndIsCopiedWholeOrNotAtAll) {
    char item[] = "item";
    with_each_allocation_refused([&] {
        int taken = 0;
        linklist *x = try_it([&] {
            linklist *made = list_init();
            for (int i = 0; i < 3; ++i)
                taken += list_add(made, item);
            return made;
        });
        EXPECT_EQ(taken, list_items(x));
        EXPECT_TRUE(refused || taken == 3);
        list_free(&x);
    });
    with_each_allocation_refused([&] {
        linklist *x = list_init();
        list_add(x, item);
        linklist *copy = try_it([&] { return list_copy(x); });
        EXPECT_EQ(refused, copy == nullptr);
        list_free(&copy);
        list_free(&x);
    });
}

TEST_F(NoMemory, TextsAreMadeWholeOrNotAtAll) {
    with_each_allocation_refused([&] {
        const text_ptr made(try_it([] { return smake("text", 5); }));
        EXPECT_EQ(refused, made == nullptr);
    });
    with_each_allocation_refused([&] {
        char *text = s_strdup("text");
        text = try_it([&] { return sadd(text, " and more"); });
        EXPECT_STREQ(refused ? "text" : "text and more", text) << "the old text stays";
        std::free(text);
    });
    with_each_allocation_refused([&] {
        char name[20] = "a b";
        try_it([&] { xencode_path(name, 10); });
        EXPECT_STREQ(refused ? "a b" : "a_0b", name);
    });
}

TEST_F(NoMemory, ALengthPrefixedTextIsReadWholeOrNotAtAll) {
    const std::unique_ptr<FILE, int (*)(FILE *)> f(std::tmpfile(), std::fclose);
    pstring_write(f.get(), "text");
    with_each_allocation_refused([&] {
        std::rewind(f.get());
        const text_ptr text(try_it([&] { return pstring_read(f.get()); }));
        EXPECT_EQ(refused, text == nullptr);
    });
}

TEST_F(NoMemory, AStoreSetsUpWhatItCan) {
    const setting_list settings[] = {
        {"a", "1", Ini_None}, {"b", "2", Ini_Multi}, {nullptr, nullptr, Ini_None}};
    const int borrows[] = {0, 1, -1};
    with_each_allocation_refused([&] {
        ini *x = try_it([&] {
            ini *made = ini_init();
            ini_setup(made, settings, borrows, 1);
            return made;
        });
        for (int i = 0; i < ini_items(x); ++i)
            EXPECT_NE(nullptr, ini_label(x, i));
        EXPECT_TRUE(refused || ini_items(x) == 2);
        ini_value(x, 0);
        ini_free(&x);
    });
}

TEST_F(NoMemory, AStoreFindsAllThatItSaysItTookAndTellsOfTheRest) {
    std::ptrdiff_t told_before = 0;
    with_each_allocation_refused([&] {
        ini *x = small_store();
        const int added = try_it([&] { return ini_add_name(x, "many", "two"); });
        const int changed = try_it([&] { return ini_add(x, 0, "/opt"); });
        const int created = try_it([&] { return create_setting(x, "new", "value"); });
        ini_value_name(x, "many");
        EXPECT_EQ(added == 1, ini_value_name_next(x, "many") != nullptr);
        EXPECT_EQ(changed == 1, std::string("/opt") == str(ini_value(x, 0)));
        EXPECT_EQ(created == 1 ? "value" : std::string(), str(ini_value_name(x, "new")));
        EXPECT_TRUE(refused || added + changed + created == 3);
        EXPECT_EQ(refused, times_told() > told_before);
        told_before = times_told();
        EXPECT_STREQ("none", ini_label(x, 2));
        ini_free(&x);
    });
}

TEST_F(NoMemory, AStoreThatCannotGrowKeepsWhatItHas) {
    with_each_allocation_refused([&] {
        ini *x = small_store();
        int created = 0;
        bool ended = true; // the table, by an entry without a name, after each
        try_it([&] {
            for (int i = 0; i < 40; ++i) {
                created += create_setting(x, ("n" + std::to_string(i)).c_str(), "value") == 1 ? 1 : 0;
                ended = ended && x->size > ini_items(x) && x->list[ini_items(x)].setting == nullptr;
            }
        });
        EXPECT_EQ(3 + created, ini_items(x));
        EXPECT_TRUE(ended);
        EXPECT_TRUE(refused || created == 40);
        ini_free(&x);
    });
}

TEST_F(NoMemory, ValuesAreBorrowedAllTheSame) {
    const setting_list settings[] = {
        {"a", nullptr, Ini_None}, {"b", "2", Ini_None}, {nullptr, nullptr, Ini_None}};
    const int borrows[] = {0, 1, -1};
    ini *x = ini_init();
    ini_setup(x, settings, borrows, 1);
    with_each_allocation_refused([&] {
        const char *value = try_it([&] { return ini_value(x, 0); });
        EXPECT_STREQ("2", value);
    });
    ini_free(&x);
}

TEST_F(NoMemory, ConversionFunctionsAreRegisteredOrNot) {
    with_each_allocation_refused([&] {
        ini *x = small_store();
        try_it([&] {
            ini_setup_load_fn(
                x, [](const char *text) { return text; }, static_cast<setting_mode>(64));
        });
        EXPECT_EQ(refused ? 0 : 1, array_items(x->xtra));
        ini_free(&x);
    });
}

TEST_F(NoMemory, NamesAreListedAsFarAsThereIsRoom) {
    ini *x = small_store();
    with_each_allocation_refused([&] {
        array *names = try_it([&] { return ini_label_array(x); });
        linklist *list = try_it([&] { return ini_label_list(x); });
        EXPECT_TRUE(refused || (array_items(names) == 3 && list_items(list) == 3));
        array_free(&names);
        list_free(&list);
    });
    ini_free(&x);
}

TEST_F(NoMemory, ReferencesKeepTheirTextWhereTheNewOneFindsNoRoom) {
    with_each_allocation_refused([&] {
        ini *x = small_store();
        ini_add(x, 2, "$(base)/data");
        try_it([&] { ini_process(x); });
        const std::string value = str(ini_value(x, 2));
        EXPECT_TRUE(value == "/srv/data" || (refused && value == "$(base)/data")) << value;
        ini_free(&x);
    });
}

TEST_F(NoMemory, ASettingsFileIsLoadedAndSavedAsFarAsThereIsRoom) {
    with_each_allocation_refused([&] {
        write_file("a.ini", "base /opt\nvhost host\nmany two\nvend\n");
        ini *x = small_store();
        try_it([&] { ini_load(x, "a.ini", "host"); });
        EXPECT_TRUE(refused || std::strcmp("/opt", ini_value(x, 0)) == 0);
        EXPECT_EQ(1, try_it([&] { return ini_save(x, "b.ini"); }));
        ini_free(&x);
    });
}

TEST_F(NoMemory, ADataFileIsLoadedWholeOrRefused) {
    write_file("setup.dat", "product Board\nbase /srv/$(product)\nempty\n");
    std::ptrdiff_t told_before = 0;
    with_each_allocation_refused([&] {
        ini *x = ini_init();
        const int loaded = try_it([&] { return load_datfile(x, "setup.dat"); });
        EXPECT_TRUE(refused || loaded == 1);
        EXPECT_TRUE(loaded == 1 || times_told() > told_before);
        told_before = times_told();
        if (loaded == 1) { // the index of the names is not needed
            EXPECT_EQ(7, ini_items(x));
            EXPECT_STREQ("/srv/Board", ini_value_name(x, "base"));
        }
        clear_datfile();
        ini_free(&x);
    });
}

TEST_F(NoMemory, AnInitScriptIsLoadedWholeOrNotAtAll) {
    write_file("setup.int", "Copy a b - -\nExist /etc there a b\n");
    with_each_allocation_refused([&] {
        int loaded = 0;
        init_s *script = try_it([&] {
            init_s *made = init_init();
            loaded = init_load(made, "setup.int");
            return made;
        });
        EXPECT_EQ(refused, loaded == 0);
        if (loaded != 0) {
            ini *store = small_store();
            init_run(script, store);
            EXPECT_STREQ("true", ini_value_name(store, "there"));
            ini_free(&store);
        }
        init_free(&script);
    });
}

TEST_F(NoMemory, AQuestionScriptIsLoadedWholeOrNotAtAll) {
    write_file("setup.q", "[install]\nText name - - - What?\nYN other name x - Sure?\nError name - No\n");
    with_each_allocation_refused([&] {
        questions *set = quest_init(nullptr);
        const int loaded = try_it([&] { return quest_load(set, "setup.q", "install"); });
        EXPECT_EQ(refused, loaded == 0);
        EXPECT_EQ(loaded == 1 ? 3U : 0U, quest_count(set));
        quest_free(&set);
    });
}

TEST_F(NoMemory, ACopyScriptIsLoadedWholeOrNotAtAll) {
    write_file(
        "setup.cpy",
        "[install]\nCopyFile $(base)/a x /b name cmp\nMkDir /c\nWFile d e\nMkDir f\nMkDir g\nMkDir h\n");
    ini *store = small_store();
    with_each_allocation_refused([&] {
        int loaded = 0;
        copy *script = try_it([&] {
            copy *made = copy_init(store);
            loaded = copy_load(made, "setup.cpy", "install");
            return made;
        });
        EXPECT_EQ(refused, loaded == 0);
        EXPECT_EQ(loaded == 1 ? 6U : 0U, copy_count(script));
        EXPECT_TRUE(loaded == 0 || std::string("/srv/a") == copy_src(script, 0));
        copy_free(&script);
    });
    ini_free(&store);
}

TEST_F(NoMemory, ADirectoryIsListedOrNot) {
    write_file("a", "text");
    std::filesystem::create_symlink("a", "link");
    with_each_allocation_refused([&] {
        int seen = 0;
        try_it([&] {
            xfilehandle *h = nullptr;
            file *x = file_first(&h, ".", "*");
            for (int more = x != nullptr; more != 0; more = file_next(x, h))
                ++seen;
            file *copy = file_dup(x);
            file_free(&copy);
            file_free(&x);
            file_last(&h);
        });
        EXPECT_TRUE(refused || seen >= 2);
    });
}

TEST_F(NoMemory, FilesAreCopiedMovedAndRemovedOrTheFailureIsCounted) {
    with_each_allocation_refused([&] {
        std::filesystem::remove_all("tree");
        std::filesystem::remove_all("copy");
        std::filesystem::create_directories("tree/below");
        write_file("tree/below/file", "text");
        std::uint32_t bytes = 0;
        const int copied = try_it([&] { return file_xcopy(".", "tree", nullptr, "copy", 1, &bytes); });
        if (copied > 0 && !refused) {
            EXPECT_EQ(4U, bytes);
        }
        const bool removed = try_it([] { return file_rmdir("tree", nullptr, 1); }) != 0;
        EXPECT_TRUE(refused || (removed && !exists("tree")));
    });
}

TEST_F(NoMemory, MessagesThatFindNoRoomToWaitAreLost) {
    with_each_allocation_refused([&] {
        log_set(nullptr);
        try_it([] { emsg("text"); });
        EXPECT_EQ(refused ? 0 : 1, array_items(EmsgLog));
        array_free_dealloc(&EmsgLog);
    });
}

TEST_F(NoMemory, ALogAndASocketAreMadeOrNot) {
    with_each_allocation_refused([&] {
        log *x = try_it([] { return log_init(LogDebug); });
        EXPECT_EQ(refused, x == nullptr);
        log_free(&x);
    });
    with_each_allocation_refused([&] {
        struct socket *x = try_it([] { return tcp_new(1); });
        EXPECT_EQ(refused, x == nullptr);
        tcp_free(&x);
    });
}

} // namespace
} // namespace installer::test
