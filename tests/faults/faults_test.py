#!/usr/bin/env python3
"""Every call of every function that touches the system fails once, and the installer must bear it.

For each kit, action and function the action is run with the 1st call failing, with the 2nd, and so on, until a
run ends in which no call was left to fail. After each run:

- the status is the documented one, there is no signal, nothing on standard error, and the run has ended by itself;
- the kit and everything outside its targets is as it was, and so is what no line of its scripts is about;
- the failure is told, as an error on the console or in the log; only where HARMLESS names the call and the reason may
  it pass in silence, and then the run did all that the undisturbed one does;
- when only the log could not be written or rotated, the run did all that the undisturbed one does;
- where the log could not be written either, what only the log was to tell is lost with it, but the console shows that
  something is missing, and why a run that has begun ends early;
- a run that ends with "Success" and whose tree differs has told so, and has counted at least as many things less as
  there are differences;
- a log that rotates loses no line, whatever the rotation meets, and touches no file but its own generations.

At the end every function of every table must have been disturbed at least once.

Run by ctest; by hand, where ONLY chooses among the lines that are printed:

    INSTALLER=build/dev/installer FAULTS_LIBRARY=build/dev/tests/libfaults.so tests/faults/faults_test.py [ONLY]
"""

import collections
import concurrent.futures
import errno
import os
import re
import sys
import time

sys.dont_write_bytecode = True  # the tree stays as it is

from sandbox import FIRST, FIXTURE, NOTICEBOARD, STAMP, Sandbox, differing, files_counted, take_down, told, write

OPEN = (errno.EACCES, errno.EMFILE, errno.ENOSPC, errno.EIO, errno.ENOMEM)
LOOK = (errno.EACCES, errno.EIO, errno.ENOMEM)
CHANGE = (errno.EACCES, errno.ENOSPC, errno.EIO, errno.ENOMEM)
WRITE = (errno.ENOSPC, errno.EIO)
# Which functions fail with which errors. Functions between commas are counted together.
FAULTS = {
    "openat": OPEN, "fopen": OPEN, "fdopen": (errno.ENOMEM,), "fdopendir": (errno.ENOMEM,),
    "read": (errno.EIO, errno.ENOMEM), "copy_file_range": (errno.EIO, errno.ENOSPC, errno.EXDEV),
    "fgets": (errno.EIO, errno.ENOMEM), "readdir": (errno.EIO, errno.ENOMEM),
    "write": WRITE, "fwrite,fputs": WRITE, "fflush": WRITE, "fclose": WRITE, "close": WRITE,
    "mkdirat": CHANGE, "unlinkat": CHANGE, "rename": CHANGE, "fchmodat": CHANGE, "fchownat": CHANGE,
    "fstatat": LOOK, "stat": LOOK, "fstat": LOOK, "getcwd": (errno.EACCES, errno.ENOMEM),
    "gethostname": (errno.EACCES, errno.EIO),
    "getpwnam": (errno.EIO, errno.EMFILE, errno.ENOMEM), "getgrnam": (errno.EIO, errno.EMFILE, errno.ENOMEM),
    "malloc,calloc,realloc": (errno.ENOMEM,),
}
# Faults that stay: a full disk, no more memory, no more descriptors.
STAYING = {
    "write,copy_file_range,fwrite,fputs,fflush,fclose,mkdirat": (errno.ENOSPC,),
    "malloc,calloc,realloc": (errno.ENOMEM,),
    "openat,fopen": (errno.EMFILE,),
}
# What the log's rotation calls.
ROTATION = {"remove": CHANGE, "rename": CHANGE, "stat": LOOK, "fopen": OPEN, "fclose": WRITE}
# Interruptions and short transfers, which are no failures: the run must be as the undisturbed one.
BORNE = {"read": ("short", "fail %d" % errno.EINTR), "write": ("short", "fail %d" % errno.EINTR),
         "copy_file_range": ("short", "fail %d" % errno.EOPNOTSUPP)}

# Which calls may fail without a word, as the library reports them ("> " stands before what is open for writing), and
# why: the run is the same then.
HARMLESS = {
    r"close (?!> )": "closes what was only looked at or read",
    r"fclose ((?!> )|> .*/two\.txt$)": "closes what was only read, or a file that RFile emptied",
    r"getcwd ": "the kit's files are found by their names alone; current_dir is told",
    r"mkdirat /": "a parent that stands already need not be made",
    r"openat ": "a folder that cannot be held open is reached by its path, and a new file is opened once more",
    r"copy_file_range ": "bytes that the kernel does not move are read and written",
    r"fopen /\S*/httpd\.conf$": "one of the places where a web server's configuration may be, and none is",
    r"malloc ": "a stream without a buffer does its work without",
    r"calloc ": "names that have no index are looked for one by one",
    r"fstat ": "the length of a copy is found by copying",
    r"fstatat ": "whether a source is a pipe is asked again when it is open",
}
# Every call is disturbed; where that takes too long, every STEPth.
STEP = int(os.environ.get("FAULTS_STEP", "1"))

# The name of the host is a setting: when it cannot be found that is told, and the files in which it stands differ. A
# folder of which only parents could be made counts as made, on purpose, but that it is missing is told.
UNCOUNTED = re.compile(r"gethostname |mkdirat .*/(site/one/two|again/below)$")
ACTIONS = [(FIXTURE, "install"), (FIXTURE, "upgrade"), (FIXTURE, "remove"), (FIXTURE, "everything"),
           (NOTICEBOARD, "install"), (NOTICEBOARD, "upgrade"), (NOTICEBOARD, "remove"), (NOTICEBOARD, "backup")]

LOG = re.compile(r"\bsetup\.log([0-4]|\.\d{10,})?$")  # also its older generations and the name on the way to one
# Of another number, or not the log's at all.
NEIGHBOURS = ("setup.log5", "setup.log10", "setup.logs", "setup.log.old", "setup.log.0", "setup.lo", "other.log0")
EARLIER = "an earlier run, "
LAST = EARLIER + "last"
# So near the limit that the log rotates in the middle of the run.
FILL_LOG = "yes '%s' | head -n %d >setup.log" % (LAST, ((1 << 20) - 4000) // (len(LAST) + 1))

# `calls` are counted together, `deeds` take turns; what is `borne` is no failure; `rotating` begins with a log that is
# nearly full.
Job = collections.namedtuple("Job", "kit action calls deeds stays borne rotating")


class RotatingSandbox(Sandbox):
    """A sandbox in which every run rotates the log and shifts older ones. The log of a run is what all of them hold of
    it; `lost` tells which of the earlier runs none of them holds any more."""

    def __init__(self, kit):
        super().__init__(kit)
        for name in NEIGHBOURS:
            write(os.path.join(self.root, "kit", name), name)
        self.state = take_down(self.root)
        self.lost = set()

    def run(self, action, fault=None, within=None):
        earlier = ["%s%d" % (EARLIER, number) for number in range(5)]
        for number, text in enumerate(earlier):
            write(os.path.join(self.root, "kit", "setup.log%d" % number), text + "\n")
        outcome = super().run(action, {**(fault or {}), "BEFORE": FILL_LOG}, within)
        lines = []
        for path in sorted(filter(LOG.search, outcome.tree), key=age_of, reverse=True):
            lines += [STAMP.sub("", line) for line in outcome.tree.pop(path).content.decode().splitlines()]
            os.unlink(os.path.join(self.root, path))
        lines += outcome.log
        self.lost = {*earlier, LAST} - set(lines)
        return outcome._replace(log=[line for line in lines if not line.startswith(EARLIER)])


def age_of(log):
    """What is on its way to become number 0 is younger than that."""
    number = log.removeprefix("kit/setup.log")
    return -1 if number.startswith(".") else int(number)


def is_of_log(disturbed):
    """Whether only the log's own stream and files were disturbed."""
    return bool(disturbed) and all(map(LOG.search, disturbed))


def is_of_console(disturbed):
    """Whether only the console was disturbed: what it shows cannot be told then."""
    return bool(disturbed) and all(" pipe:" in line and not line.startswith("fgets") for line in disturbed)


def reason_for_silence(call):
    return next((reason for pattern, reason in HARMLESS.items() if re.match(pattern, call)), None)


def may_be_silent(disturbed):
    return is_of_log(disturbed) or all(map(reason_for_silence, disturbed))


def passed_in_silence(reference, outcome):
    return not told(outcome) - told(reference) and not is_of_log(outcome.disturbed) and \
        not is_of_console(outcome.disturbed)


def complaints(kit, before, reference, outcome, borne):
    if outcome.status != 0:
        yield "status %d" % outcome.status
    if outcome.errors_shown:
        yield "on standard error: " + outcome.errors_shown
    for path in before.keys() | outcome.tree.keys():
        inside = any(path == target or path.startswith(target + "/") for target in kit.targets)
        if (not inside or path in kit.untouched) and outcome.tree.get(path) != before.get(path):
            yield "touched " + path
    unseen = is_of_console(outcome.disturbed)
    shown = outcome.console != reference.console
    same = outcome.tree == reference.tree and (unseen or not shown)
    new = told(outcome) - told(reference)
    counted = files_counted(outcome)
    if (borne or unseen or is_of_log(outcome.disturbed)) and not same:
        yield "the run is not as the undisturbed one"
    elif not outcome.log or any(map(LOG.search, outcome.disturbed)):
        # What the log was to tell is lost with it. The console still shows that something is missing, be it in the count
        # alone, and says why a run ends early.
        missing = differing(outcome.tree, reference.tree, kit.uncounted)
        if not new and (counted is None or (missing and not shown)):
            yield "lost in silence, and the log with it"
    elif not new and not same:
        yield "lost in silence"
    elif not new and not borne and not unseen and not may_be_silent(outcome.disturbed):
        yield "not told"
    if counted is not None and not UNCOUNTED.match(outcome.disturbed[0]):
        missing = differing(outcome.tree, reference.tree, kit.uncounted)
        if missing > max(0, files_counted(reference) - counted):
            yield "%d entries differ, but %d of %d counted" % (missing, counted, files_counted(reference))


def complaints_of_rotation(sandbox, reference, outcome):
    """Any failure may cost one generation more than the oldest, which goes anyway. A log that cannot be opened or closed
    has lost lines before the rotation has to do with them."""
    is_opened = not outcome.disturbed[0].startswith(("fopen ", "fclose "))
    if is_opened and is_of_log(outcome.disturbed) and outcome.log != reference.log:
        yield "lines of the log are lost"
    if len(sandbox.lost) > 2 or LAST in sandbox.lost:
        yield "lost of the log: " + ", ".join(sorted(sandbox.lost))


def prepare(sandbox, job):
    """Brings the sandbox to where the action begins and gives the undisturbed run."""
    if job.action != "install":
        sandbox.state = sandbox.run("install").tree
    reference = sandbox.run(job.action)
    sandbox.reset(reference)
    assert files_counted(reference), reference.console
    assert not job.rotating or sandbox.lost == {EARLIER + "4"}, sandbox.lost
    return reference


def show(outcome, reference):
    lines = ["    disturbed: " + line for line in outcome.disturbed[:3]]
    lines += ["    told: " + line for line in told(outcome) - told(reference)]
    lines += ["    differs: " + path for path in sorted(outcome.tree.keys() | reference.tree.keys())
              if outcome.tree.get(path) != reference.tree.get(path)]
    return lines[:12] + ["    console: " + line for line in outcome.console.splitlines()[-3:]]


def disturb(job):
    """The number of faults, what went wrong, the calls that failed in silence, and the functions that were disturbed."""
    failures = []
    silent = collections.Counter()
    met = set()
    at = 0
    with (RotatingSandbox if job.rotating else Sandbox)(job.kit) as sandbox:
        reference = prepare(sandbox, job)
        while True:
            do = job.deeds[at % len(job.deeds)]
            call = 1 + at * STEP
            fault = {"CALLS": job.calls, "AT": str(call), "DO": do, "ON": "1" if job.stays else "0",
                     "BY_HAND": "1" if job.calls in ("read", "write") else "0"}
            outcome = sandbox.run(job.action, fault)
            if not outcome.disturbed:
                break
            at += 1
            met.update(line.split(" ", 1)[0] for line in outcome.disturbed)
            if not job.borne and not job.stays and passed_in_silence(reference, outcome):
                silent[reason_for_silence(outcome.disturbed[0])] += 1
            wrong = list(complaints(job.kit, sandbox.state, reference, outcome, job.borne))
            if job.rotating:
                wrong += complaints_of_rotation(sandbox, reference, outcome)
            if wrong:
                failures.append("%s, call %d, %s: %s" % (name_of(job), call, words_of(do), "; ".join(wrong)))
                failures += show(outcome, reference)
            sandbox.reset(outcome)
    return at, failures, silent, met


def words_of(do):
    return errno.errorcode[int(do[5:])] if do.startswith("fail ") else do


def row_of(job):
    """The row of a table that a job plays, whatever the kit and the action."""
    words = ["rotation"] if job.rotating else []
    words.append(job.calls)
    if job.borne:
        words += map(words_of, job.deeds)
    return " ".join(words + (["from there on"] if job.stays else []))


def name_of(job):
    name = "%s %s %s%s %s" % (job.kit.name, job.action, "rotation " if job.rotating else "", job.calls,
                              "/".join(map(words_of, job.deeds)))
    return name + (" from there on" if job.stays else "")


def jobs():
    """Errors take turns: the first call fails with one, the next with another, and where a kit's next action begins
    is moved on by one. With FAULTS_ALL=1 every call fails with every error."""
    turn = 0
    for kit, action in ACTIONS:
        for calls, numbers in FAULTS.items():
            deeds = ["fail %d" % number for number in numbers]
            if os.environ.get("FAULTS_ALL") == "1":
                for do in deeds:
                    yield Job(kit, action, calls, [do], False, False, False)
            else:
                first = turn % len(deeds)
                yield Job(kit, action, calls, deeds[first:] + deeds[:first], False, False, False)
        for calls, numbers in STAYING.items():
            for number in numbers:
                yield Job(kit, action, calls, ["fail %d" % number], True, False, False)
        for calls, deeds in BORNE.items():
            for do in deeds:
                yield Job(kit, action, calls, [do], False, True, False)
            yield Job(kit, action, calls, ["short"], True, True, False)
        turn += 1
    for calls, numbers in ROTATION.items():
        yield Job(FIXTURE, "install", calls, ["fail %d" % number for number in numbers], False, False, True)


def can_happen(job):
    """The runtime of the sanitizers has memory functions of its own."""
    return not (FIRST and "malloc" in job.calls)


def job_number(index):
    return disturb(list(jobs())[index])


def main():
    os.umask(0o022)
    only = sys.argv[1] if len(sys.argv) > 1 else ""
    chosen = [(index, job) for index, job in enumerate(jobs()) if only in name_of(job) and can_happen(job)]
    tried = bad = 0
    silent = collections.Counter()
    missed = {row_of(job): set(job.calls.split(",")) for _, job in chosen}
    began = time.monotonic()
    with concurrent.futures.ProcessPoolExecutor(len(os.sched_getaffinity(0))) as pool:
        for (_, job), (at, failures, quiet, met) in zip(chosen, pool.map(job_number, [index for index, _ in chosen])):
            tried += at
            silent += quiet
            missed[row_of(job)] -= met
            bad += sum(not line.startswith(" ") for line in failures)
            print("%-72s %5d" % (name_of(job), at))
            for line in failures:
                print(line)
            sys.stdout.flush()
    for reason, times in sorted(silent.items(), key=str):
        print("%d times in silence: %s" % (times, reason))
    print("%d faults tried, %d survived, %.0f seconds" % (tried, tried - bad, time.monotonic() - began))
    # A function that a row names and the program does not call is tried by nobody.
    never = ["%s of the row %s" % (function, row) for row, functions in missed.items() for function in sorted(functions)]
    for name in never:
        print("never disturbed: " + name)
    return 1 if bad or not tried or (never and not only) else 0


if __name__ == "__main__":
    sys.exit(main())
