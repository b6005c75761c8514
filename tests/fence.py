"""Fences a process in: a mount namespace in which all of the host can only be read, but for one place in memory.

What is started from a fenced process is fenced in too. A program with an error in it, or one that a test leads astray,
does no harm there.
"""

import ctypes
import os

NEW_MOUNTS, NEW_USER = 0x00020000, 0x10000000
PRIVATE, RECURSIVE, AT_HERE, MOUNT_SETATTR = 1 << 18 | 1 << 14, 0x8000, -100, 442


def must(result):
    if result != 0:
        raise OSError(ctypes.get_errno(), os.strerror(ctypes.get_errno()))


def enter(memory, options="mode=1777", writable=(), as_root=False):
    """Makes `memory` an empty file system and everything else but `writable` read-only. An ordinary user stays who he
    is, so that his programs may do no more than before, unless he is to be root there. Raises OSError where the system
    refuses; then only some of it may be done."""
    libc = ctypes.CDLL(None, use_errno=True)
    flags = ctypes.c_uint64 * 4  # what is set, what is cleared; the first bit is "read-only"
    user, group = os.geteuid(), os.getegid()

    def set_attributes(path, how, attributes):
        must(libc.syscall(MOUNT_SETATTR, AT_HERE, path.encode(), how, attributes, ctypes.sizeof(attributes)))

    names = (0, 0) if as_root else (user, group)
    must(libc.unshare(NEW_MOUNTS | (NEW_USER if user else 0)))
    if user:
        for name, text in (("setgroups", "deny"), ("uid_map", "%d %d 1" % (names[0], user)),
                           ("gid_map", "%d %d 1" % (names[1], group))):
            with open("/proc/self/" + name, "w", encoding="ascii") as file:
                file.write(text)
    must(libc.mount(None, b"/", None, PRIVATE, None))
    set_attributes("/", RECURSIVE, flags(1, 0))
    for path in writable:
        set_attributes(path, 0, flags(0, 1))
    must(libc.mount(b"fence", memory.encode(), b"tmpfs", 0, options.encode()))
