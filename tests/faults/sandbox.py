"""Runs of the installer that are disturbed, each in a sandbox that tells afterwards what came of it.

A sandbox is a folder with a kit, a target and an `outside`, which holds what nobody may touch. What stands in it is
taken down before and after a run as a dictionary from paths to entries, and put back in between.

The process that makes sandboxes is fenced in before the first one, and so is all that it starts: a mount namespace
in which all of the host can only be read, with a file system in memory for the sandboxes. A path that has lost its
beginning does no harm there, and the attempt is told.
"""

import collections
import errno
import functools
import grp
import os
import pwd
import re
import shutil
import stat
import subprocess
import sys
import tempfile

TESTS = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, TESTS)

import fence  # pylint: disable=wrong-import-position

REPOSITORY = os.path.dirname(TESTS)
PROGRAM = os.path.abspath(os.environ["INSTALLER"])
FAULTS = os.path.abspath(os.environ["FAULTS_LIBRARY"])
# Libraries that must come before: the runtime of the sanitizers.
FIRST = os.environ.get("FAULTS_FIRST", "")

STAMP = re.compile(r"^.{20} \[\d+\] ")
MEMORY = "/dev/shm"  # thousands of runs spare the disk
LEFT = os.strerror(errno.EROFS)  # what a run is told that goes for anything outside the fence
TOLD = re.compile(r"^(?:\.*Error: .*|\]?Failed, .*)$", re.MULTILINE)
COUNT = re.compile(r"\] ?\n ?Success .*?(\d+) files", re.DOTALL)

Entry = collections.namedtuple("Entry", "kind mode owner content")
Outcome = collections.namedtuple("Outcome", "status console errors_shown log tree disturbed")


def account(find, number, field):
    try:
        return getattr(find(number), field)
    except KeyError:
        return "nobody-here"


def enter_fence():
    fence.enter(MEMORY, writable=("/proc",))  # whoever makes a namespace of his own writes to /proc


@functools.cache
def fenced():
    """Whether this process is fenced in. A child tries it first, so that a system that refuses half-way leaves this
    one as it is."""
    child = os.fork()
    if child == 0:
        try:
            enter_fence()
            os._exit(0)
        except OSError as error:
            print("no private mount namespace, so the runs are not fenced in: %s" % error, file=sys.stderr, flush=True)
        os._exit(1)
    if os.waitpid(child, 0)[1] != 0:
        return False
    enter_fence()
    return True


def make_folder(prefix):
    memory = MEMORY if fenced() or os.access(MEMORY, os.W_OK) else None
    return os.path.realpath(tempfile.mkdtemp(prefix=prefix, dir=memory))


class Kit:
    """Where a kit comes from, what it may change, and how its actions are started."""

    def __init__(self, name, folder, targets, untouched, uncounted, words, before):
        self.name = name
        self.folder = folder
        self.targets = targets  # paths in the sandbox; all else must stay as it is
        self.untouched = untouched  # paths below the targets that no line of its scripts is about
        self.uncounted = uncounted  # paths that others than the copy script write
        self.words = words  # what replaces the words in its scripts
        self.before = before  # makes what stands in the sandbox before


def make_fixture(root):
    obsolete = os.path.join(root, "target", "before", "obsolete")
    os.makedirs(os.path.join(obsolete, "below"))
    for name in ("a", "keep.not", "below/b"):
        write(os.path.join(obsolete, name), name)
    os.symlink("../../../outside/folder", os.path.join(obsolete, "link"))
    write(os.path.join(root, "target", "before", "untouched"), "as it was")
    os.mkdir(os.path.join(root, "target", "site"))
    write(os.path.join(root, "kit", "files", "big.bin"), "0123456789abcdef" * 1250)


FIXTURE = Kit("fixture", os.path.join(TESTS, "faults", "kit"), ("target",),
              ("target/before", "target/before/untouched", "target/before/obsolete/keep.not"), ("target/init-note",),
              {"[USER]": account(pwd.getpwuid, os.getuid(), "pw_name"),
               "[GROUP]": account(grp.getgrgid, os.getgid(), "gr_name")}, make_fixture)
# The time stands in the notice board's files: here it stands still.
NOTICEBOARD = Kit("noticeboard", os.path.join(REPOSITORY, "examples", "noticeboard"),
                  tuple("kit/" + name for name in ("installed", "www", "notices", "postings.log", "kept_notices",
                                                   "notices-today")), (), ("kit/installed/last_start",),
                  {"%d %B %Y": "today", "%Y%m%d-%H%M%S": "today"}, lambda root: None)

# What is typed and the words of the command line; an empty line takes the default.
ACTIONS = {
    "install": (["-automate"], ""),
    "upgrade": ([], "2\n" + "\n" * 40),
    "remove": ([], "3\n" + "\n" * 40),
    "everything": (["-special", "everything", "-automate"], ""),
    "backup": (["-special", "backup"], "\n" * 40),
}


def write(path, text):
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)


def take_down(root):
    """Everything below a folder but the installer's log."""
    tree = {}

    def look(folder, prefix):
        for entry in os.scandir(folder):
            path = prefix + entry.name
            if path == "kit/setup.log":
                continue
            info = entry.stat(follow_symlinks=False)
            kind = stat.S_IFMT(info.st_mode)
            content = None
            if kind == stat.S_IFREG:
                with open(entry.path, "rb") as file:
                    content = file.read()
            elif kind == stat.S_IFLNK:
                content = os.readlink(entry.path)
            tree[path] = Entry(kind, stat.S_IMODE(info.st_mode), (info.st_uid, info.st_gid), content)
            if kind == stat.S_IFDIR:
                look(entry.path, path + "/")

    look(root, "")
    return tree


def put_back(root, now, wanted):
    for path in sorted(now, reverse=True):
        if path not in wanted or wanted[path].kind != now[path].kind:
            whole = os.path.join(root, path)
            (os.rmdir if now[path].kind == stat.S_IFDIR else os.unlink)(whole)
    for path in sorted(wanted):
        entry = wanted[path]
        if now.get(path) == entry:
            continue
        whole = os.path.join(root, path)
        if entry.kind == stat.S_IFDIR:
            os.makedirs(whole, exist_ok=True)
        elif entry.kind == stat.S_IFLNK:
            if os.path.lexists(whole):
                os.unlink(whole)
            os.symlink(entry.content, whole)
            continue
        else:
            with open(whole, "wb") as file:
                file.write(entry.content)
        os.chown(whole, *entry.owner)
        os.chmod(whole, entry.mode)


class Sandbox:
    def __init__(self, kit):
        self.kit = kit
        self.root = make_folder("faults-")
        self.report = os.memfd_create("report")
        self.library = self.root + ".so"  # the loader cannot name a library with a blank in its path
        os.symlink(FAULTS, self.library)
        shutil.copytree(kit.folder, os.path.join(self.root, "kit"))
        os.makedirs(os.path.join(self.root, "outside", "folder"))
        write(os.path.join(self.root, "outside", "folder", "file"), "nobody's business")
        os.mkdir(os.path.join(self.root, "target"))
        self.replace_words()
        kit.before(self.root)
        self.state = take_down(self.root)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        os.close(self.report)
        os.unlink(self.library)
        shutil.rmtree(self.root)

    def replace_words(self):
        words = dict(self.kit.words)
        words["[TARGET]"] = os.path.join(self.root, "target")
        path = os.path.join(self.root, "kit", "setup.dat")
        with open(path, encoding="utf-8") as file:
            text = file.read()
        for word, replacement in words.items():
            text = text.replace(word, replacement)
        write(path, text)

    def run(self, action, fault=None, within=None):
        """Runs the installer; `fault` are the variables of the library without their beginning FAULTS_. `within` is a
        shell script that runs it as "$@" in another environment, whose read-only places are its own affair. An attempt
        to write outside the fence counts among the errors shown."""
        words, typed = ACTIONS[action]
        log = os.path.join(self.root, "kit", "setup.log")
        if os.path.exists(log):
            os.unlink(log)
        os.ftruncate(self.report, 0)
        os.lseek(self.report, 0, os.SEEK_SET)
        environment = {"LC_ALL": "C", "TZ": "UTC", "PATH": os.environ["PATH"]}
        if fault:
            environment["LD_PRELOAD"] = (FIRST + ":" if FIRST else "") + self.library
            environment["FAULTS_REPORT"] = str(self.report)
            environment.update(("FAULTS_" + name, value) for name, value in fault.items())
        command = ["./setup", *words]
        if within:
            command = ["bash", "-c", within, "bash", "bash", "-c", 'exec -a ./setup "$0" "$@"', PROGRAM, *words]
        run = subprocess.run(command, executable=None if within else PROGRAM, cwd=os.path.join(self.root, "kit"),
                             input=typed.encode(), capture_output=True, env=environment, timeout=60, check=False,
                             pass_fds=[self.report])
        lines = []
        if os.path.exists(log):
            with open(log, encoding="utf-8", errors="replace") as file:
                lines = [STAMP.sub("", line) for line in file.read().splitlines()]
        disturbed = os.pread(self.report, 1 << 20, 0).decode().splitlines()
        console = run.stdout.decode(errors="replace")
        errors_shown = run.stderr.decode(errors="replace")
        if fenced() and not within:
            errors_shown += "".join("left the sandbox: %s\n" % line for line in console.splitlines() + lines
                                    if LEFT in line)
        return Outcome(run.returncode, console, errors_shown, lines, take_down(self.root), disturbed)

    def reset(self, outcome):
        put_back(self.root, outcome.tree, self.state)


def told(outcome):
    """How often each failure was told, on the console or in the log."""
    return collections.Counter(TOLD.findall(outcome.console)) + \
        collections.Counter(line for line in outcome.log if line.startswith(("Error: ", "Debug: Not removed ")))


def files_counted(outcome):
    """The number of files that a run which claims success counts; None for one that does not."""
    found = COUNT.search(outcome.console)
    return int(found.group(1)) if found else None


def differing(tree, reference, uncounted):
    """How many entries are not as they should be: what is missing or wrong, or what should be gone, whichever is
    more (of a file that was not renamed both its names are wrong)."""
    wrong = sum(tree.get(path) != entry for path, entry in reference.items() if path not in uncounted)
    return max(wrong, sum(path not in reference for path in tree if path not in uncounted))
