// A place where a whole run of the program can do no harm, and where harm would be seen.

#ifndef FUZZ_SANDBOX_H
#define FUZZ_SANDBOX_H

#include <string>

namespace installer::fuzz {

// The private directory of a run, and beside it a tree that no run may touch.
inline constexpr char inside[] = "/mnt/inside";
inline constexpr char outside[] = "/mnt/outside";

/// Moves this process into a mount namespace of its own (and, for an ordinary user, a user namespace) in which all that
/// there is can only be read and no device opened, but for a small file system in memory at /mnt and the directories that
/// libFuzzer writes to. Ends the process with status 77 and the reason where the system does not allow that. To be called
/// before any thread is started; `argv` is libFuzzer's command line.
void enter_sandbox(int argc, char **argv);

/// Empties the private directory and makes it anew, with `kit` and `target` in it and `kit` as working directory.
void renew_inside();

/// What lstat says of everything outside, times of change included.
std::string look_outside();

} // namespace installer::fuzz

#endif
