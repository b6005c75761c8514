// Takes the place of three of the C library's look-ups in a fully static program, which has none of the libraries that
// the library's own would load: it reads the host's tables instead. The sources of the program do not know the
// difference; only the preset `static` links this file.

#include "static/hostfiles.h"

#include <cerrno>
#include <grp.h>
#include <netdb.h>
#include <pwd.h>

using namespace installer;

namespace {

/// A result with everything but its numbers left out; it lives until the next look-up, as the library's does.
template <class Entry>
Entry *known(Entry &entry, bool found) {
    errno = 0; // a name that is not there is no failure
    return found ? &entry : nullptr;
}

} // namespace

extern "C" {

passwd *getpwnam(const char *name) {
    static passwd user;
    const int uid = table_number(passwd_table, name, PasswdUser);
    const int gid = table_number(passwd_table, name, PasswdGroup);
    user.pw_uid = static_cast<uid_t>(uid);
    user.pw_gid = static_cast<gid_t>(gid);
    return known(user, uid != -1);
}

group *getgrnam(const char *name) {
    static group found;
    const int gid = table_number(group_table, name, GroupId);
    found.gr_gid = static_cast<gid_t>(gid);
    return known(found, gid != -1);
}

hostent *gethostbyname(const char *name) {
    static in_addr address;
    static char *addresses[] = {reinterpret_cast<char *>(&address), nullptr};
    static hostent host{nullptr, nullptr, AF_INET, sizeof address, addresses};
    return known(host, table_address(hosts_table, name, address));
}
}
