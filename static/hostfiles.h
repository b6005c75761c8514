// Users, groups and hosts, as the host's own tables name them: /etc/passwd, /etc/group, /etc/hosts.
//
// The C library's look-ups (getpwnam, getgrnam, gethostbyname) ask whatever the host is set up to ask, by libraries that
// are loaded when the program runs. A program that is linked fully static has no such libraries; lookups.cpp gives it these
// operations in their place. They know nothing of directory services (LDAP, NIS) and of DNS.
//
// To hold in mind: a table is read anew by each call, a line may be of any length and hold any bytes, and a line that is
// not whole is as good as absent. Nothing here reports or keeps anything; `errno` is not a result.

#ifndef STATIC_HOSTFILES_H
#define STATIC_HOSTFILES_H

#include <netinet/in.h>

namespace installer {

constexpr char passwd_table[] = "/etc/passwd"; ///< name:password:user:group:description:home:shell
constexpr char group_table[] = "/etc/group";   ///< name:password:group:members
constexpr char hosts_table[] = "/etc/hosts";   ///< address, then names, between blanks; "#" begins a comment

/// The fields of the two first tables that hold a number.
enum table_field : unsigned { PasswdUser = 2, PasswdGroup = 3, GroupId = 2 };

/// The number in `field` (the first field is 0) of the first line of `table` that begins with the field `name` and has
/// all digits there; -1 when there is none, for an empty or null name, for one that begins with '+', '-' or '#' (such
/// lines are no entries), and for a table that cannot be read. A number beyond 31 bits has the sign that the system's own
/// look-up gives it when its result is stored in an int.
int table_number(const char *table, const char *name, table_field field);

/// The IPv4 address of `name`: itself when it is one (four numbers with dots), else the one of the first line of `table`
/// that has an IPv4 address and names it, compared ignoring case. False, `address` untouched, when there is none, for an
/// empty or null name, and for a table that cannot be read.
bool table_address(const char *table, const char *name, in_addr &address);

} // namespace installer

#endif
