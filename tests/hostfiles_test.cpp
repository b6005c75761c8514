#include "static/hostfiles.h"

#include "tests/support.h"

#include <arpa/inet.h>
#include <grp.h>
#include <limits>
#include <netdb.h>
#include <pwd.h>

using namespace installer;
using namespace installer::test;

namespace {

class HostFiles : public TempDir {
  protected:
    static int user(const char *name) { return table_number("table", name, PasswdUser); }
    static int group_of(const char *name) { return table_number("table", name, PasswdGroup); }

    /// The address as text, "" for none.
    static std::string address(const char *name) {
        in_addr found{};
        char text[INET_ADDRSTRLEN] = "";
        return table_address("table", name, found) ? inet_ntop(AF_INET, &found, text, sizeof text) : "";
    }
};

TEST_F(HostFiles, AUserHasANumberAndAGroup) {
    write_file("table", "root:x:0:0:root:/root:/bin/sh\nann:x:1000:100:Ann,,,:/home/ann:/bin/sh\n");
    EXPECT_EQ(0, user("root"));
    EXPECT_EQ(1000, user("ann"));
    EXPECT_EQ(100, group_of("ann"));
}

TEST_F(HostFiles, AGroupHasANumber) {
    write_file("table", "root:x:0:\nwww-data:x:33:ann,bob\n");
    EXPECT_EQ(33, table_number("table", "www-data", GroupId));
    EXPECT_EQ(-1, table_number("table", "ann", GroupId));
}

TEST_F(HostFiles, ANameIsFoundOnlyWholeAndInItsOwnField) {
    write_file("table", "ann:x:1000:100:bob:/home/ann:/bin/sh\n");
    for (const char *name : {"an", "anna", "Ann", "bob", "x", "1000", "", "ann:x", " ann"})
        EXPECT_EQ(-1, user(name)) << name;
    EXPECT_EQ(-1, user(nullptr));
}

TEST_F(HostFiles, TheFirstLineOfANameCounts) {
    write_file("table", "ann:x:1:2:::\nann:x:3:4:::\n");
    EXPECT_EQ(1, user("ann"));
    EXPECT_EQ(2, group_of("ann"));
}

TEST_F(HostFiles, ALineThatIsNotWholeIsAsGoodAsAbsent) {
    for (const char *line :
         {"ann", "ann:", "ann:x", "ann:x:", "ann:x:1", "ann:x:1:", "ann:x:1:-2:", "ann:x:1: 2:",
          "ann:x:1:2a:", "ann:x:1:0x2:", "ann:x:1:4294967296:", ":x:1:2:", ":::"}) {
        write_file("table", line);
        EXPECT_EQ(-1, group_of("ann")) << line;
        write_file("table", line + std::string("\nann:x:5:6:::"));
        EXPECT_EQ(6, group_of("ann")) << line;
    }
}

TEST_F(HostFiles, LinesForOtherServicesAndCommentsAreNoEntries) {
    write_file("table", "+ann:x:1:2:::\n-bob:x:3:4:::\n#cid:x:5:6:::\n+:::\n");
    for (const char *name : {"+ann", "-bob", "#cid", "+"})
        EXPECT_EQ(-1, user(name)) << name;
}

TEST_F(HostFiles, ANumberAsLargeAsTheSystemsKeepsItsBits) {
    write_file("table", "big:x:4294967294:2147483648:::\n");
    EXPECT_EQ(-2, user("big"));
    EXPECT_EQ(std::numeric_limits<int>::min(), group_of("big"));
}

TEST_F(HostFiles, AnyBytesAndAnyLengthAreRead) {
    const std::string nuls("ann\0:x:1:2:\n\0\0\n", 15);
    write_file("table", nuls + std::string(300000, ':') + "\n" + std::string(300000, 'a') +
                            "\nann:x:7:8:" + std::string(300000, 'm') + "\nlast:x:9:10");
    EXPECT_EQ(7, user("ann"));
    EXPECT_EQ(8, group_of("ann"));
    EXPECT_EQ(9, user("last"));
}

TEST_F(HostFiles, ATableThatCannotBeReadHoldsNothing) {
    in_addr found{};
    for (const char *table : {"missing", ".", "", static_cast<const char *>(nullptr)}) {
        EXPECT_EQ(-1, table_number(table, "root", PasswdUser));
        EXPECT_FALSE(table_address(table, "localhost", found));
    }
}

TEST_F(HostFiles, EveryHostNameOfALineHasItsAddress) {
    write_file("table", "# ours\n127.0.0.1\tlocalhost\n 10.1.2.3 web.example.org  web\twww # not: ftp\n");
    EXPECT_EQ("127.0.0.1", address("localhost"));
    for (const char *name : {"web.example.org", "web", "www", "WEB"})
        EXPECT_EQ("10.1.2.3", address(name)) << name;
    for (const char *name : {"ftp", "we", "webb", "#", "ours", "", "web www"})
        EXPECT_EQ("", address(name)) << name;
    EXPECT_EQ("", address(nullptr));
}

TEST_F(HostFiles, TheFirstIpv4AddressOfAHostCounts) {
    write_file("table", "::1 host\n300.1.1.1 host\n10.0.0.1 host\n10.0.0.2 host\n");
    EXPECT_EQ("10.0.0.1", address("host"));
}

TEST_F(HostFiles, AnAddressIsItsOwn) {
    write_file("table", "10.0.0.1 10.20.30.40\n10.0.0.3 1.2.3.999\n");
    EXPECT_EQ("10.20.30.40", address("10.20.30.40"));
    EXPECT_EQ("10.0.0.3", address("1.2.3.999"));
    EXPECT_EQ("", address("10.20.30"));
}

TEST_F(HostFiles, HostLinesOfAnyBytesAreRead) {
    write_file("table", std::string("10.0.0.9\0 a\n\0\n#\n\n \t\n10.0.0.8\n", 29) + std::string(300000, 'x') +
                            " a\n10.0.0.1 " + std::string(300000, 'b') + " a");
    EXPECT_EQ("10.0.0.1", address("a"));
}

TEST_F(HostFiles, AFailureLeavesTheAddressAlone) {
    write_file("table", "10.0.0.1 host\n");
    in_addr found{42};
    EXPECT_FALSE(table_address("table", "other", found));
    EXPECT_EQ(42U, found.s_addr);
}

TEST_F(HostFiles, TheHostsOwnTablesSayWhatItsLookUpsSay) {
    for (const char *name : {"root", "nobody", "daemon", "www-data"}) {
        const passwd *user = getpwnam(name);
        EXPECT_EQ(user ? static_cast<int>(user->pw_uid) : -1, table_number(passwd_table, name, PasswdUser))
            << name;
        EXPECT_EQ(user ? static_cast<int>(user->pw_gid) : -1, table_number(passwd_table, name, PasswdGroup))
            << name;
        const group *found = getgrnam(name);
        EXPECT_EQ(found ? static_cast<int>(found->gr_gid) : -1, table_number(group_table, name, GroupId))
            << name;
    }
}

} // namespace
