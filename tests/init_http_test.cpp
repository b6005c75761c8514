// The configuration file stands at fixed paths of the host. Each test therefore runs in a child process of
// its own that sees private, empty folders there, and a user and group database that knows one account; the
// host is not touched. A system that grants no private mounts skips the tests and says why.

#include "installer/ini.h"
#include "installer/init.h"
#include "support.h"

#include <cstring>
#include <functional>
#include <grp.h>
#include <pwd.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>

namespace installer {
namespace {

using test::LogDir;
using test::write_file;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

std::string refused(const std::string &what) {
    return what + ": " + std::strerror(errno);
}

/// Writes one of the process's own tables; false when the system refuses.
bool write_table(const char *path, const std::string &text) {
    FILE *f = std::fopen(path, "w");
    if (f == nullptr)
        return false;
    std::fputs(text.c_str(), f);
    return std::fclose(f) == 0;
}

/// Why this system grants no private mounts; "" when it does, and then they are made.
std::string make_private_mounts() {
    const uid_t uid = geteuid();
    const gid_t gid = getegid();
    if (unshare(uid == 0 ? CLONE_NEWNS : CLONE_NEWNS | CLONE_NEWUSER) != 0)
        return refused("unshare");
    // An ordinary user becomes root of a user namespace, who may mount.
    if (uid != 0 && !(write_table("/proc/self/setgroups", "deny") &&
                      write_table("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1") &&
                      write_table("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1")))
        return refused("user namespace");
    if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return refused("mount /");
    for (const char *folder : {"/etc", "/usr", "/opt"})
        if (mount("none", folder, "tmpfs", 0, nullptr) != 0)
            return refused(std::string("mount ") + folder);
    return "";
}

/// Runs `body` in a child process and returns its exit status.
int in_child(const std::function<int()> &body) {
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0)
        test::leave_child(body());
    int status = -1;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/// What a call found, or said.
struct facts {
    int result = 0;
    std::string user, group, root, scripts, errmsg;
};

class HttpConf : public LogDir {
  protected:
    void SetUp() override {
        // Both databases are opened once before /usr is hidden: the system may load code for them.
        getpwnam("root");
        getgrnam("root");
        const std::string reason = beside("reason");
        in_child([&] {
            write_file(reason, make_private_mounts());
            return 0;
        });
        if (const std::string why = test::read_file(reason); !why.empty())
            GTEST_SKIP() << "no private mounts here: " << why;
    }

    /// Runs a test's body where only the account "web" exists and no configuration file does.
    static void on_a_bare_host(const std::function<void()> &body) {
        const int status = in_child([&] {
            if (!make_private_mounts().empty())
                return 2;
            write_file("/etc/nsswitch.conf", "passwd: files\ngroup: files\n");
            write_file("/etc/passwd", "web:x:1501:1502:::\n");
            write_file("/etc/group", "web:x:1502:\n");
            body();
            return testing::Test::HasFailure() ? 1 : 0;
        });
        EXPECT_EQ(0, status) << "the failures of the child are told above";
    }

    static void configure(const std::string &path, const std::string &text) {
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        write_file(path, text);
    }
    static void configure(const std::string &text) { configure("/etc/httpd/httpd.conf", text); }

    /// Forgets what was found, as in a new run of the program.
    static void forget() { done_user = done_group = done_root = done_scripts = 0; }

    /// Asks for the facts whose letters are given: u, g, r, s.
    static facts find(const std::string &wanted) {
        char user[text_size] = "-", group[text_size] = "-", root[text_size] = "-", scripts[text_size] = "-";
        char errmsg[text_size] = "-";
        const auto given = [&](char letter, char *buffer) {
            return wanted.find(letter) != std::string::npos ? buffer : nullptr;
        };
        facts found;
        found.result = init_find_http_conf(given('u', user), given('g', group), given('r', root),
                                           given('s', scripts), errmsg);
        found.user = user;
        found.group = group;
        found.root = root;
        found.scripts = scripts;
        found.errmsg = errmsg;
        return found;
    }

    /// The document root of a configuration of these lines, or the error text.
    static std::string root_of(const std::string &lines) {
        forget();
        configure(lines);
        const facts found = find("r");
        return found.result != 0 ? found.root : found.errmsg;
    }
    static std::string scripts_of(const std::string &lines) {
        forget();
        configure(lines);
        const facts found = find("s");
        return found.result != 0 ? found.scripts : found.errmsg;
    }

    static constexpr char whole[] = "# a comment\n"
                                    "ServerRoot /etc/httpd\n"
                                    "User web\n"
                                    "Group web\n"
                                    "DocumentRoot \"/srv/www\"\n"
                                    "ScriptAlias /cgi-bin/ /srv/cgi\n";
};

constexpr char HttpConf::whole[];

TEST_F(HttpConf, TheFourFactsAreFoundTheRootWithoutItsQuotes) {
    on_a_bare_host([] {
        configure(whole);
        const facts found = find("ugrs");
        EXPECT_EQ(1, found.result);
        EXPECT_EQ("web", found.user);
        EXPECT_EQ("web", found.group);
        EXPECT_EQ("/srv/www", found.root);
        EXPECT_EQ("/srv/cgi", found.scripts);
        EXPECT_EQ("-", found.errmsg);
    });
}

TEST_F(HttpConf, EachFactIsGivenAlone) {
    on_a_bare_host([] {
        configure(whole);
        forget();
        EXPECT_EQ("web", find("u").user);
        forget();
        EXPECT_EQ("web", find("g").group);
        forget();
        EXPECT_EQ("/srv/www", find("r").root);
        forget();
        EXPECT_EQ("/srv/cgi", find("s").scripts);
    });
}

TEST_F(HttpConf, EightPathsAreTriedInTheirOrder) {
    on_a_bare_host([] {
        const char *const paths[] = {
            "/etc/apache/httpd.conf",
            "/etc/httpd/conf/httpd.conf",
            "/etc/httpd/httpd.conf",
            "/usr/local/apache/conf/httpd.conf",
            "/usr/local/httpd/conf/httpd.conf",
            "/usr/local/apache/etc/httpd.conf",
            "/usr/internet/httpd/public/conf/httpd.conf",
            "/opt/apache/conf/httpd.conf",
        };
        // From the last one up: each new file must come before all that stand already.
        for (int i = 7; i >= 0; --i) {
            const std::string root = "/root" + std::to_string(i);
            configure(paths[i], "DocumentRoot " + root + "\n");
            forget();
            EXPECT_EQ(root, find("r").root) << paths[i];
        }
    });
}

TEST_F(HttpConf, TheSearchIsLoggedUpToTheFileThatOpens) {
    on_a_bare_host([] { // the log is read outside
        configure(whole);
        find("ugrs");
    });
    EXPECT_THAT(log_lines(), ElementsAre("Debug: Is Httpd conf?[/etc/apache/httpd.conf]",
                                         "Debug: Is Httpd conf?[/etc/httpd/conf/httpd.conf]",
                                         "Debug: Is Httpd conf?[/etc/httpd/httpd.conf]",
                                         "Debug: Httpd conf is [/etc/httpd/httpd.conf]",
                                         "Debug: Found user [web]", "Debug: Found group [web]"));
}

TEST_F(HttpConf, WithoutAFileEveryCallFails) {
    on_a_bare_host([] {
        for (int i = 0; i < 2; ++i)
            for (const char *wanted : {"u", "g", "r", "s", "ugrs"}) {
                const facts found = find(wanted);
                EXPECT_EQ(0, found.result) << wanted;
                EXPECT_EQ("Cannot find httpd.conf file", found.errmsg) << wanted;
                EXPECT_EQ("-", found.root) << "the buffers are left alone";
            }
    });
}

TEST_F(HttpConf, NothingWantedIsAlwaysKnown) {
    on_a_bare_host([] { EXPECT_EQ(1, find("").result); });
    EXPECT_TRUE(log_lines().empty()) << "nothing is searched for";
}

TEST_F(HttpConf, WithoutABufferForItTheReasonIsNotTold) {
    on_a_bare_host([] {
        char root[text_size];
        EXPECT_EQ(0, init_find_http_conf(nullptr, nullptr, root, nullptr, nullptr));
        configure("User nosuch\n");
        EXPECT_EQ(0, init_find_http_conf(nullptr, nullptr, root, nullptr, nullptr));
        configure("");
        EXPECT_EQ(0, init_find_http_conf(nullptr, nullptr, root, nullptr, nullptr));
    });
}

TEST_F(HttpConf, AnAccountThatDoesNotExistFailsWhateverIsWanted) {
    on_a_bare_host([] {
        configure("DocumentRoot /srv\nUser nosuch\n");
        EXPECT_EQ("User 'nosuch' has bad uid '-1'", find("u").errmsg);
        forget();
        EXPECT_EQ(0, find("r").result);
        configure("Group #-1\n");
        EXPECT_EQ("Group '#-1' has bad uid '-1'", find("g").errmsg);
    });
}

TEST_F(HttpConf, MissingFactsAreToldWantedOrNotGroupFirst) {
    on_a_bare_host([] {
        configure("");
        EXPECT_EQ("Could not find, Group, User, DocumentRoot, ScriptAlias", find("s").errmsg);
        configure("DocumentRoot /srv\nUser web\n");
        EXPECT_EQ("/srv", find("r").root) << "what else is missing does not matter";
        EXPECT_EQ("Could not find, Group, ScriptAlias", find("rg").errmsg);
    });
}

TEST_F(HttpConf, DirectivesAreRecognisedInAnyCase) {
    on_a_bare_host([] {
        configure("user web\nGROUP web\ndocumentroot /srv/www\nscriptalias /cgi-bin/ /srv/cgi\n");
        EXPECT_EQ(1, find("ugrs").result);
    });
}

TEST_F(HttpConf, LinesInsideBlocksAreReadCommentsAreNot) {
    on_a_bare_host([] {
        EXPECT_EQ("/in",
                  root_of("<VirtualHost *>\n\t DocumentRoot\t /in \r\n</VirtualHost>\n#DocumentRoot /no\n"
                          "  # DocumentRoot /no\nXDocumentRoot /no\nDocumentRootX /no\n"));
    });
}

TEST_F(HttpConf, ADirectiveWithoutItsValueIsSkipped) {
    on_a_bare_host([] {
        configure("User\nGroup\nDocumentRoot\nScriptAlias\nScriptAlias /cgi-bin/\n");
        EXPECT_EQ("Could not find, Group, User, DocumentRoot, ScriptAlias", find("r").errmsg);
    });
}

TEST_F(HttpConf, OnlyTheAliasOfTheScriptsCounts) {
    on_a_bare_host([] {
        EXPECT_EQ("/a",
                  scripts_of("ScriptAlias /other/ /no\nScriptAlias /x/cgi-bin.d/ /a\nScriptAlias /y /no\n"));
        EXPECT_EQ("/b", scripts_of("ScriptAlias \"/cgi-bin/\" \"/b\"\n"));
        EXPECT_EQ("/d", scripts_of("ScriptAlias /cgi-bin/ /c\nScriptAlias /cgi-bin/ /d\n")) << "the last one";
    });
}

TEST_F(HttpConf, AQuotedPathIsCutAtItsFirstBlankAndLosesItsLastCharacter) {
    on_a_bare_host([] {
        EXPECT_EQ("/srv/m", root_of("DocumentRoot \"/srv/my files\"\n"));
        EXPECT_EQ("", root_of("DocumentRoot \"\"\n"));
        EXPECT_EQ("", root_of("DocumentRoot \"\n"));
        EXPECT_EQ("/srv\"", root_of("DocumentRoot /srv\"\n")) << "only a quote at the start counts";
    });
}

TEST_F(HttpConf, ReadingStopsOnceAllFourAreKnown) {
    on_a_bare_host([] {
        configure(std::string(whole) + "User nosuch\nDocumentRoot /late\n");
        EXPECT_EQ("/srv/www", find("r").root);
    });
}

TEST_F(HttpConf, ReadingGoesOnWhileAFactIsUnknown) {
    on_a_bare_host([] {
        EXPECT_EQ("/last", root_of("DocumentRoot /first\nUser web\nDocumentRoot /last\n"));
        EXPECT_EQ("User 'nosuch' has bad uid '-1'", root_of("DocumentRoot /first\nUser nosuch\n"));
    });
}

TEST_F(HttpConf, AKnownFactOpensNoFile) {
    on_a_bare_host([] {
        configure(whole);
        find("r");
        std::filesystem::remove("/etc/httpd/httpd.conf");
        EXPECT_EQ("/srv/www", find("r").root);
        EXPECT_EQ("web", find("u").user) << "found on the way";
    });
    const std::vector<std::string> lines = log_lines();
    EXPECT_EQ(1, std::count(lines.begin(), lines.end(), "Debug: Is Httpd conf?[/etc/apache/httpd.conf]"));
}

TEST_F(HttpConf, ALaterSearchMayOverwriteAKnownFact) {
    on_a_bare_host([] {
        configure("DocumentRoot /old\n");
        EXPECT_EQ("/old", find("r").root);
        configure("DocumentRoot /new\nGroup web\n");
        EXPECT_EQ("/old", find("r").root);
        EXPECT_EQ("web", find("g").group);
        EXPECT_EQ("/new", find("r").root);
    });
}

TEST_F(HttpConf, ASearchThatSucceedsLeavesTheErrorNumberAlone) {
    on_a_bare_host([] {
        configure("DocumentRoot /srv\n");
        errno = EDOM;
        find("r");
        EXPECT_EQ(EDOM, errno);
    });
}

TEST_F(HttpConf, AnyBytesAreTaken) {
    on_a_bare_host([] {
        EXPECT_EQ("/a", root_of(std::string("\0\xff\n\0DocumentRoot /no\nDocumentRoot /a\0b\r\n", 40)));
        EXPECT_EQ("/b", root_of(std::string(100000, 'x') + "\nDocumentRoot /b\n"));
        EXPECT_EQ("%n%s", root_of("%s%n %s\nDocumentRoot %n%s\n"));
        EXPECT_EQ(std::string(986, 'y'), root_of("DocumentRoot " + std::string(986, 'y') + "\n"));
        EXPECT_THAT(root_of("User " + std::string(990, 'z') + "\n"), HasSubstr("User 'zzzz"));
    });
}

TEST_F(HttpConf, ADirectoryAtAPathIsAnEmptyFile) {
    on_a_bare_host([] {
        std::filesystem::create_directories("/etc/apache/httpd.conf");
        configure("DocumentRoot /srv\n");
        EXPECT_EQ("Could not find, Group, User, DocumentRoot, ScriptAlias", find("r").errmsg);
    });
}

// --- The commands of the init script ---

class HttpCommands : public HttpConf {
  protected:
    HttpCommands() {
        const setting_list none = {nullptr, nullptr, Ini_None};
        ini_setup(store, &none, nullptr, 1);
    }
    ~HttpCommands() override { ini_free(&store); }

    /// Runs the four commands and returns what they printed.
    std::string run() {
        write_file("s.int", "HTTP_User user nouser - -\nHTTP_Group group nogroup - -\n"
                            "HTTP_Root docroot nohttp - -\nHTTP_Scripts cgi nocgi - -\n");
        init_s *script = init_init();
        init_load(script, "s.int");
        testing::internal::CaptureStdout();
        init_run(script, store);
        init_free(&script);
        return testing::internal::GetCapturedStdout();
    }
    std::string value(const char *name) { return str(ini_value_name(store, name)); }

    ini *store = ini_init();
};

TEST_F(HttpCommands, EachSetsTheFactThatItNames) {
    on_a_bare_host([this] {
        configure("User web\nGroup web\nDocumentRoot /srv/www\nScriptAlias /cgi-bin/ /srv/cgi\n");
        EXPECT_EQ("", run());
        EXPECT_EQ("web", value("user"));
        EXPECT_EQ("web", value("group"));
        EXPECT_EQ("/srv/www", value("docroot"));
        EXPECT_EQ("/srv/cgi", value("cgi"));
        EXPECT_EQ("", value("nouser") + value("nogroup") + value("nohttp") + value("nocgi"));
    });
}

TEST_F(HttpCommands, EachPrintsItsErrorAndSetsItsFlagWhenNothingIsFound) {
    on_a_bare_host([this] {
        const std::string line = "ERROR: Cannot find httpd.conf file\n";
        EXPECT_EQ(line + line + line + line, run());
        EXPECT_EQ("true", value("nouser"));
        EXPECT_EQ("true", value("nogroup"));
        EXPECT_EQ("true", value("nohttp"));
        EXPECT_EQ("true", value("nocgi"));
        EXPECT_EQ("", value("user") + value("group") + value("docroot") + value("cgi"));
    });
}

TEST_F(HttpCommands, EachFailsByItself) {
    on_a_bare_host([this] {
        configure("DocumentRoot /srv/www\nUser web\n");
        const std::string line = "ERROR: Could not find, Group, ScriptAlias\n";
        EXPECT_EQ(line + line, run());
        EXPECT_EQ("web", value("user"));
        EXPECT_EQ("true", value("nogroup"));
        EXPECT_EQ("/srv/www", value("docroot"));
        EXPECT_EQ("true", value("nocgi"));
    });
}

} // namespace
} // namespace installer
