#include "installer/installer.h"

#include "installer/copy.h"
#include "installer/file.h"
#include "installer/init.h"
#include "installer/lib.h"
#include "installer/quest.h"
#include "installer/shared.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace installer {

char *myname = nullptr;
int automate = 0;
char *special_mode = nullptr;

namespace {

constexpr char version[] = "1.0d";

/// Composes the name of the kit's file with the extension `ext`: the working directory, `myname`, `ext`. Where that does
/// not fit, the name alone serves, since the working directory never changes; false when not even that fits.
bool kit_file(char (&path)[path_size], const char *ext) {
    char name[path_size] = "";
    scpy(name, str(myname), path_size);
    attach_ext(name, ext, path_size);
    if (std::strlen(name) != s_strlen(myname) + std::strlen(ext)) {
        errno = ENAMETOOLONG;
        emsg("Path too long '%s'", str(myname));
        return false;
    }
    char directory[path_size] = "";
    if (currentdir(directory, path_size) == nullptr || !join_path(path, path_size, directory, name))
        scpy(path, name, path_size);
    return true;
}

/// Reads one line from the operator into `reply`, trimmed; false at end of input.
bool read_reply(char (&reply)[text_size]) {
    return quest_read(reply, text_size) != 0;
}

// --- command line ---------------------------------------------------------------------------------------------------

/// What is left of the command line from the option on, and what the options act on.
struct command_line {
    log *log_file;
    char **words; // the option itself first
    int left;     // how many words there are
};

/// Each option returns how many words it took.
int option_debug(const command_line &line) {
    log_set_level(line.log_file, LogDebug);
    imsg("Logging set to debug");
    return 1;
}

int option_version(const command_line &) {
    std::printf("Installer version %s\n", version);
    std::exit(0);
}

int option_automate(const command_line &) {
    imsg("Automated install/upgrade...");
    automate = 1;
    return 1;
}

int option_special(const command_line &line) {
    if (line.left < 2) {
        std::puts("Usage: install -special <tag>");
        std::exit(1);
    }
    std::free(special_mode);
    special_mode = s_strdup(line.words[1]);
    if (special_mode == nullptr) { // without its tag the run would be another one
        std::printf("Error: %s\n", std::strerror(ENOMEM));
        std::exit(0);
    }
    imsg("Special mode [%s]", line.words[1]);
    return 2;
}

constexpr struct {
    const char *word;
    int (*apply)(const command_line &line);
} options[] = {
    {"-debug", option_debug},
    {"-version", option_version},
    {"-automate", option_automate},
    {"-special", option_special},
};

// --- console --------------------------------------------------------------------------------------------------------

const char *product_name(ini *x) {
    const char *product = ini_value_name(x, "product");
    return product != nullptr ? product : "NONAME";
}

} // namespace

void process_args(log *x, char **argv, int argc) {
    if (argv == nullptr)
        return;
    for (int i = 1; i < argc;) {
        const auto *option = std::find_if(std::begin(options), std::end(options),
                                          [&](const auto &row) { return s_strcmp(row.word, argv[i]) == 0; });
        i += option != std::end(options) ? option->apply({x, argv + i, argc - i}) : 1;
    }
}

void print_header(ini *x) {
    std::printf("======================================================\n"
                "             Welcome to the %s installer\n"
                " You will be asked a series of questions, for each a\n"
                " default answer will be provided (thus), to accept the\n"
                " default simply press <enter>, otherwise enter a new\n"
                " answer and press <enter>\n"
                "======================================================\n",
                product_name(x));
}

void print_menu(ini *x) {
    const char *product = product_name(x);
    std::printf("\n1. Install %s\n2. Upgrade %s\n3. Remove %s\n4. Exit\n", product, product, product);
}

void print_blurb(ini *x) {
    const file_ptr blurb(s_fopen("blurb.txt", "r"));
    if (blurb == nullptr) {
        if (errno != ENOENT) // a kit need not have one
            emsg("Error opening '%s' for read, %s", "blurb.txt", std::strerror(errno));
        return;
    }
    std::putchar('\n');
    char line[text_size];
    while (std::fgets(line, text_size, blurb.get()) != nullptr) {
        char shown[text_size] = "";
        ini_replace(x, s_strtrm(line), shown, text_size);
        std::puts(shown);
    }
    if (std::ferror(blurb.get()) != 0)
        emsg("Error reading from '%s', %s", "blurb.txt", std::strerror(errno));
}

void printdot(const char *, const char *, int) {
    // The counter never advances, so every dot is flushed: the operator sees each one at once.
    static const int upto = 0;
    std::putchar('.');
    if (upto % 5 == 0)
        std::fflush(stdout);
}

void printerror(const char *, const char *, int) {
    std::printf("\nError: %s\n", std::strerror(errno));
}

namespace {

// --- the product actions: one algorithm, four sets of texts ---------------------------------------------------------

struct product_action {
    const char *heading;
    const char *section; // of the question and copy scripts
    bool expand_error;   // whether references in an "Error" entry's text are expanded
    const char *intro;   // printed before the dots
    const char *done;    // what was done to the files; null: the bytes copied are told instead
    int stop_on_fail;
};

constexpr product_action install_action{"Install", "install", false, "Copying files[", nullptr, 1};
constexpr product_action upgrade_action{"Upgrade", "upgrade", true, "Copying files[", nullptr, 1};
constexpr product_action remove_action{"Remove", "remove", false, "Removing files[", "removed", 0};

product_action special_action() {
    const char *tag = str(special_mode);
    return {tag, tag, false, "Executing[", "done.", 0};
}

/// Whether the reply is just this letter, in either case.
bool is_letter(const char *reply, char letter) {
    return charmap[static_cast<unsigned char>(reply[0])] == static_cast<unsigned char>(letter) &&
           reply[1] == '\0';
}

/// One walk through the entries of a loaded question script.
class question_pass {
  public:
    question_pass(ini *store, questions *script, const product_action &action)
        : store_(store), script_(script), action_(action) {}

    action_result run();

  private:
    /// How often a pass may go back without a reply typed in between before it counts as endless.
    static constexpr int most_returns = 1000;

    void copy_setting() const;
    void test_file() const;
    bool stops_with_error() const;
    bool jumps_back() const;
    bool is_asked() const;
    bool get_reply();
    void ask();
    void go_to(int index);

    unsigned at() const { return static_cast<unsigned>(index_); }
    const char *text() const { return str(quest_text(script_, at())); }
    const char *setting() const { return quest_setting(script_, at()); }
    const char *value() const { return ini_value_name(store_, setting()); }
    void end(action_result result) {
        ended_ = true;
        result_ = result;
    }

    ini *store_;
    questions *script_;
    const product_action &action_;
    int index_ = 0;
    int returns_ = 0;
    bool ended_ = false;
    action_result result_ = action_done;
    char reply_[text_size] = "";
};

void question_pass::copy_setting() const {
    ini_add_name(store_, setting(), ini_value_name(store_, text()));
}

void question_pass::test_file() const {
    char path[text_size] = "";
    ini_replace(store_, text(), path, text_size);
    ini_add_name(store_, setting(), file_exist(path) != 0 ? "true" : "false");
}

bool question_pass::stops_with_error() const {
    if (isfalse(value()) == 0)
        return false;
    char message[text_size] = "";
    if (action_.expand_error)
        ini_replace(store_, text(), message, text_size);
    std::printf("Error: %s\n", action_.expand_error ? message : text());
    return true;
}

bool question_pass::jumps_back() const {
    return isfalse(value()) != 0;
}

/// A question without a control value is asked; one with a value only when it equals the comparison (the value of the
/// setting of that name, else the word itself) or, without a comparison, when it is true.
bool question_pass::is_asked() const {
    const char *lhs = ini_value_name(store_, quest_control(script_, at()));
    const char *comparison = quest_control_cmp(script_, at());
    // Read in any case: reading puts a setting's cursor, where its next value is added, on the first one.
    const char *rhs = ini_value_name(store_, comparison);
    if (lhs == nullptr)
        return true;
    if (rhs == nullptr)
        rhs = comparison;
    return rhs == nullptr ? istrue(lhs) != 0 : s_strcmp(lhs, rhs) == 0;
}

bool question_pass::get_reply() {
    reply_[0] = '\0';
    if (automate != 0) {
        quest_default(script_, at(), reply_, text_size);
        return true;
    }
    const int answered = quest_ask(script_, at(), reply_, text_size);
    if (!quest_input_ended())
        returns_ = 0;
    return answered != 0;
}

void question_pass::ask() {
    if (get_reply()) {
        if (is_letter(reply_, 'q'))
            return end(action_quit);
        if (is_letter(reply_, 'b'))
            return go_to(index_ - 1);
        if (quest_answer(script_, at(), reply_) != 0) {
            ++index_;
            return;
        }
    }
    std::printf("Error: %s, please try again\n", quest_error());
    if (automate != 0)
        end(action_failed);
    else if (quest_input_ended()) // nobody is left to try again
        end(action_quit);
}

/// Continues with the entry numbered `index`, or with the first for a negative number.
void question_pass::go_to(int index) {
    if (index <= index_ && ++returns_ == most_returns) {
        std::printf("Error: Loop at '%s' never ends\n", str(setting()));
        return end(action_failed);
    }
    index_ = std::max(index, 0);
}

action_result question_pass::run() {
    while (!ended_ && at() < quest_count(script_)) {
        switch (quest_type(script_, at())) {
        case QCopy:
            copy_setting();
            ++index_;
            break;
        case QXExist:
            test_file();
            ++index_;
            break;
        case QError:
            if (stops_with_error())
                end(action_failed);
            ++index_;
            break;
        case QLoop:
            go_to(jumps_back() ? s_atoi(text()) : index_ + 1);
            break;
        default:
            if (is_asked())
                ask();
            else
                ++index_;
        }
    }
    return result_;
}

bool wants_to_change_answers() {
    if (automate != 0)
        return false;
    std::fputs("Do you want to change your answers [n]? ", stdout);
    char reply[text_size];
    return read_reply(reply) && istrue(reply) != 0;
}

/// Frees a script with its module's free operation, which takes the pointer's address.
template <auto free_object>
struct freed_by {
    template <class T>
    void operator()(T *object) const {
        free_object(&object);
    }
};

/// Whether the settings are whole. With values lost, questions would be skipped and scripts act on other paths than
/// they name: then nothing is done any more.
bool is_whole(ini *store) {
    if (ini_lost(store) == 0)
        return true;
    std::printf("Error: %s\n", std::strerror(ENOMEM));
    return false;
}

action_result ask_questions(ini *store, const product_action &action) {
    const std::unique_ptr<questions, freed_by<quest_free>> script(quest_init(store));
    char path[path_size];
    if (!kit_file(path, ".q") || quest_load(script.get(), path, action.section) == 0) {
        emsg("Error loading questions");
        return action_failed;
    }
    action_result result;
    do
        result = question_pass(store, script.get(), action).run();
    while (result == action_done && wants_to_change_answers());
    return result;
}

void tell_success(const product_action &action, std::uint32_t files, std::uint32_t bytes) {
    if (action.done == nullptr)
        std::printf("]\nSuccess %d bytes in %d files copied\n", static_cast<int>(bytes),
                    static_cast<int>(files));
    else
        std::printf("]\n Success %d files %s\n", static_cast<int>(files), action.done);
}

void run_copy_script(ini *store, const product_action &action) {
    const std::unique_ptr<copy, freed_by<copy_free>> script(copy_init(store));
    copy_setup(script.get(), printdot, printerror);
    char path[path_size];
    if (script == nullptr)
        emsg("Memory allocation error");
    if (!kit_file(path, ".cpy") || copy_load(script.get(), path, action.section) == 0)
        return;
    std::fputs(action.intro, stdout);
    std::uint32_t files = 0;
    std::uint32_t bytes = 0;
    std::uint32_t *count_bytes = action.done == nullptr ? &bytes : nullptr;
    if (copy_process(script.get(), &files, count_bytes, action.stop_on_fail) != 0)
        tell_success(action, files, bytes);
    else
        std::printf("]\nFailed, %s", copy_error());
}

int run_action(ini *store, const product_action &action) {
    std::printf("[%s]\n", action.heading);
    if (!is_whole(store))
        return action_failed;
    const action_result result = ask_questions(store, action);
    if (result != action_done)
        return result;
    if (!is_whole(store))
        return action_failed;
    run_copy_script(store, action);
    return result;
}

} // namespace

int install_product(ini *x) {
    return run_action(x, install_action);
}
int upgrade_product(ini *x) {
    return run_action(x, upgrade_action);
}
int remove_product(ini *x) {
    return run_action(x, remove_action);
}
int do_special(ini *x) {
    return run_action(x, special_action());
}

namespace {

// --- menu -----------------------------------------------------------------------------------------------------------

constexpr int special_choice = 5;
constexpr int no_result = -1;

constexpr struct {
    int choice;
    int again[2]; // the results that show the menu again; no action gives 2 or 3
    bool blurb;   // whether the closing text is shown when the action has finished
    int (*act)(ini *x);
} choices[] = {
    {1, {2, action_quit}, true, install_product},
    {2, {3, action_quit}, false, upgrade_product},
    {3, {action_quit, action_quit}, false, remove_product},
    {4, {no_result, no_result}, false, nullptr},
    {special_choice, {no_result, no_result}, false, do_special},
};

int default_choice(ini *store) {
    return s_strcmp(ini_value_name(store, "action"), "upgrade") == 0 ? 2 : 1;
}

/// Shows the menu and reads a choice; false at end of input.
bool read_choice(ini *store, int dflt, int &choice) {
    print_menu(store);
    choice = dflt;
    if (automate != 0) {
        std::putchar('\n');
        return true;
    }
    std::printf("\nWhat would you like to do[%d]? ", dflt);
    char reply[text_size];
    if (!read_reply(reply))
        return false;
    if (reply[0] != '\0')
        choice = s_atoi(reply);
    return true;
}

/// Carries out a choice; returns whether the run is finished.
bool carry_out(ini *store, int choice) {
    const auto *row = std::find_if(std::begin(choices), std::end(choices),
                                   [choice](const auto &candidate) { return candidate.choice == choice; });
    if (row == std::end(choices)) {
        std::puts("That is not a recognised option, please try again");
        return false;
    }
    if (row->act == nullptr)
        return true;
    const int result = row->act(store);
    if (std::find(std::begin(row->again), std::end(row->again), result) != std::end(row->again))
        return false;
    if (row->blurb)
        print_blurb(store);
    return true;
}

void run_menu(ini *store) {
    const int dflt = default_choice(store);
    print_header(store);
    int choice = special_choice;
    while (special_mode != nullptr || read_choice(store, dflt, choice)) {
        // An automated run cannot choose anew, and the special action never shows the menu.
        if (carry_out(store, choice) || automate != 0)
            return;
    }
}

// --- start-up and shut-down -----------------------------------------------------------------------------------------

/// What lives for the whole run. An option that ends the process early leaves it to the destructor.
struct run_state {
    log *log_file = nullptr;
    ini *store = nullptr;

    run_state() = default;
    run_state(const run_state &) = delete;
    run_state &operator=(const run_state &) = delete;
    ~run_state() { release(); }

    void release() {
        clear_datfile();
        ini_free(&store);
        log_set(nullptr);
        log_free(&log_file);
        log_file = nullptr;
        for (char **text : {&myname, &special_mode}) {
            std::free(*text);
            *text = nullptr;
        }
    }
};

void open_log(log *x) {
    log_set(x);
    char path[path_size];
    if (!kit_file(path, ".log"))
        return;
    log_open(x, path);
    log_doflush(x, 1);
    imsg("Log file opened in '%s'", path);
}

bool run_init_script(ini *store) {
    const std::unique_ptr<init_s, freed_by<init_free>> script(init_init());
    char path[path_size];
    if (script == nullptr)
        emsg("Memory allocation error");
    if (!kit_file(path, ".int"))
        return false;
    if (init_load(script.get(), path) == 0) {
        std::printf("Error: Failed to load init file '%s', %s\n", path, init_error());
        return false;
    }
    init_run(script.get(), store);
    return true;
}

bool load_settings(const log *log_file, ini *store) {
    char path[path_size];
    if (kit_file(path, ".dat") && load_datfile(store, path) != 0)
        return true;
    if (log_file->F == nullptr) // so the reason that was logged is lost
        std::printf("Error: Failed to load settings file '%s.dat', %s\n", myname, std::strerror(errno));
    return false;
}

void wait_for_enter() {
    std::fputs("\n<Press enter to exit>", stdout);
    char reply[text_size];
    read_reply(reply);
}

void run(run_state &state, int argc, char **argv) {
    state.log_file = log_init(LogDebug);
    state.store = ini_init();
    char name[path_size] = "";
    exename(name, argc > 0 ? argv[0] : "", path_size);
    myname = s_strdup(name);
    // Without them every file of the kit would have another name, and nothing could be told or kept.
    if (myname == nullptr || state.log_file == nullptr || state.store == nullptr) {
        std::printf("Error: %s\n", std::strerror(ENOMEM));
        return;
    }
    open_log(state.log_file);
    process_args(state.log_file, argv, argc);
    if (load_settings(state.log_file, state.store) && run_init_script(state.store))
        run_menu(state.store);
    state.release();
    if (automate == 0)
        wait_for_enter();
}

} // namespace

} // namespace installer

int main(int argc, char **argv) {
    static installer::run_state
        state; // of static life, so that it is released when an option ends the process
    installer::run(state, argc, argv);
    return 0;
}
