#!/usr/bin/env python3
"""Every call of every function that touches the system fails once, and the installer must bear it.

For each kit, action and function the action is run with the 1st call failing, with the 2nd, and so on, until a
run ends in which no call was left to fail. After each run:

- the status is the documented one, there is no signal, nothing on standard error, and the run has ended by itself;
- the kit and everything outside its targets is as it was, and so is what no line of its scripts is about;
- the failure is told, as an error on the console or in the log; only where HARMLESS names the function and the reason
  may it pass in silence, and then the run did all that the undisturbed one does;
- when only the log could not be written, the run did all that the undisturbed one does;
- where the log could not be written either, what only the log was to tell is lost with it;
- a run that ends with "Success" and whose tree differs has told so, and has counted at least as many things less as
  there are differences.

Run by ctest; by hand, where ONLY chooses among the lines that are printed:

    INSTALLER=build/dev/installer FAULTS_LIBRARY=build/dev/tests/libfaults.so tests/faults/faults_test.py [ONLY]
"""

import collections
import concurrent.futures
import errno
import os
import sys
import time

sys.dont_write_bytecode = True  # the tree stays as it is

from sandbox import FIXTURE, NOTICEBOARD, Sandbox, differing, files_counted, told

OPEN = (errno.EACCES, errno.EMFILE, errno.ENOSPC, errno.EIO, errno.ENOMEM)
LOOK = (errno.EACCES, errno.EIO, errno.ENOMEM)
CHANGE = (errno.EACCES, errno.ENOSPC, errno.EIO, errno.ENOMEM)
WRITE = (errno.ENOSPC, errno.EIO)
# Which functions fail with which errors. Functions between commas are counted together.
FAULTS = {
    "open": OPEN, "openat": OPEN, "fopen": OPEN, "fdopen": (errno.ENOMEM,), "fdopendir": (errno.ENOMEM,),
    "read": (errno.EIO, errno.ENOMEM), "copy_file_range": (errno.EIO, errno.ENOSPC, errno.EXDEV),
    "fgets,fread": (errno.EIO, errno.ENOMEM), "readdir": (errno.EIO, errno.ENOMEM),
    "write": WRITE, "fwrite,fputs": WRITE, "fflush": WRITE, "fclose": WRITE, "close": WRITE,
    "mkdirat": CHANGE, "unlinkat": CHANGE, "remove": CHANGE, "rename": CHANGE, "fchmodat": CHANGE,
    "fchownat": CHANGE, "fstatat": LOOK, "stat": LOOK, "lstat": LOOK, "fstat": LOOK, "access": LOOK,
    "readlink": LOOK, "getcwd": (errno.EACCES, errno.ENOMEM), "gethostname": (errno.EACCES, errno.EIO),
    "getpwnam": (errno.EIO, errno.EMFILE, errno.ENOMEM), "getgrnam": (errno.EIO, errno.EMFILE, errno.ENOMEM),
    "malloc,calloc,realloc": (errno.ENOMEM,),
}
# Faults that stay: a full disk, no more memory, no more descriptors.
STAYING = {
    "write,copy_file_range,fwrite,fputs,fflush,fclose,mkdirat": (errno.ENOSPC,),
    "malloc,calloc,realloc": (errno.ENOMEM,),
    "open,openat,fopen": (errno.EMFILE,),
}
# Interruptions and short transfers, which are no failures: the run must be as the undisturbed one.
BORNE = {"read": ("short", "fail %d" % errno.EINTR), "write": ("short", "fail %d" % errno.EINTR),
         "copy_file_range": ("short", "fail %d" % errno.EOPNOTSUPP)}

# What may fail without a word, and why: the run is the same then.
HARMLESS = {
    "close": "closes what was only looked at or read; the close of a target is told",
    "fclose": "closes what was only read, or a file that was only emptied; the close of a written one is told",
    "getcwd": "the kit's files are found by their names alone; current_dir is told",
    "mkdirat": "a parent that stands already need not be made",
    "openat": "a folder that cannot be held open is reached by its path, and a new file is opened once more",
    "copy_file_range": "bytes that the kernel does not move are read and written",
    "fopen": "one of the places where a web server's configuration may be, and none is",
    "malloc": "a stream without a buffer does its work without",
    "calloc": "names that have no index are looked for one by one",
    "stat": "whether the way is blocked by a pipe is asked again when it is opened; how long the log is",
    "fstat": "the length of a copy is found by copying",
    "fstatat": "whether a source is a pipe is asked again when it is open",
}
# Every call is disturbed; where that takes too long, every STEPth.
STEP = int(os.environ.get("FAULTS_STEP", "1"))

# The name of the host is a setting: when it cannot be found that is told, and the files in which it stands differ. A
# folder of which only parents could be made counts as made, on purpose, but that it is missing is told.
UNCOUNTED = ("gethostname", "mkdirat")
ACTIONS = [(FIXTURE, "install"), (FIXTURE, "upgrade"), (FIXTURE, "remove"), (FIXTURE, "everything"),
           (NOTICEBOARD, "install"), (NOTICEBOARD, "upgrade"), (NOTICEBOARD, "remove"), (NOTICEBOARD, "backup")]


def is_of_log(disturbed):
    """Whether only the log's own stream was disturbed."""
    return bool(disturbed) and all(line.endswith("setup.log") for line in disturbed)


def is_of_console(disturbed):
    """Whether only the console was disturbed: what it shows cannot be told then."""
    return bool(disturbed) and all(" pipe:" in line and not line.startswith("fgets") for line in disturbed)


def may_be_silent(disturbed):
    return is_of_log(disturbed) or all(line.split(" ", 1)[0] in HARMLESS for line in disturbed)


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
    same = outcome.tree == reference.tree and (unseen or outcome.console == reference.console)
    new = told(outcome) - told(reference)
    if (borne or unseen or is_of_log(outcome.disturbed)) and not same:
        yield "the run is not as the undisturbed one"
    elif not outcome.log or any(line.endswith("setup.log") for line in outcome.disturbed):
        pass  # what the log was to tell is lost with it
    elif not new and not same:
        yield "lost in silence"
    elif not new and not borne and not unseen and not may_be_silent(outcome.disturbed):
        yield "not told"
    counted = files_counted(outcome)
    if counted is not None and files_counted(reference) is not None and not outcome.disturbed[0].startswith(UNCOUNTED):
        missing = differing(outcome.tree, reference.tree, kit.uncounted)
        if missing > max(0, files_counted(reference) - counted):
            yield "%d entries differ, but %d of %d counted" % (missing, counted, files_counted(reference))


def prepare(sandbox, action):
    """Brings the sandbox to where the action begins and gives the undisturbed run."""
    if action != "install":
        sandbox.state = sandbox.run("install").tree
    reference = sandbox.run(action)
    sandbox.reset(reference)
    assert files_counted(reference), reference.console
    return reference


def show(outcome, reference):
    lines = ["    disturbed: " + line for line in outcome.disturbed[:3]]
    lines += ["    told: " + line for line in told(outcome) - told(reference)]
    lines += ["    differs: " + path for path in sorted(outcome.tree.keys() | reference.tree.keys())
              if outcome.tree.get(path) != reference.tree.get(path)]
    return lines[:12] + ["    console: " + line for line in outcome.console.splitlines()[-3:]]


def disturb(job):
    kit, action, calls, deeds, stays, borne = job
    failures = []
    silent = collections.Counter()
    at = 0
    with Sandbox(kit) as sandbox:
        reference = prepare(sandbox, action)
        while True:
            do = deeds[at % len(deeds)]
            call = 1 + at * STEP
            fault = {"CALLS": calls, "AT": str(call), "DO": do, "ON": "1" if stays else "0",
                     "BY_HAND": "1" if calls in ("read", "write") else "0"}
            outcome = sandbox.run(action, fault)
            if not outcome.disturbed:
                break
            at += 1
            if not borne and not stays and passed_in_silence(reference, outcome):
                silent[outcome.disturbed[0].split(" ", 1)[0]] += 1
            wrong = list(complaints(kit, sandbox.state, reference, outcome, borne))
            if wrong:
                failures.append("%s, call %d, %s: %s" % (name_of(job), call, words_of(do), "; ".join(wrong)))
                failures += show(outcome, reference)
            sandbox.reset(outcome)
    return at, failures, silent


def words_of(do):
    return errno.errorcode[int(do[5:])] if do.startswith("fail ") else do


def name_of(job):
    kit, action, calls, deeds, stays, _ = job
    name = "%s %s %s %s" % (kit.name, action, calls, "/".join(map(words_of, deeds)))
    return name + (" from there on" if stays else "")


def jobs():
    """Errors take turns: the first call fails with one, the next with another, and where a kit's next action begins
    is moved on by one. With FAULTS_ALL=1 every call fails with every error."""
    turn = 0
    for kit, action in ACTIONS:
        for calls, numbers in FAULTS.items():
            deeds = ["fail %d" % number for number in numbers]
            if os.environ.get("FAULTS_ALL") == "1":
                for do in deeds:
                    yield kit, action, calls, [do], False, False
            else:
                first = turn % len(deeds)
                yield kit, action, calls, deeds[first:] + deeds[:first], False, False
        for calls, numbers in STAYING.items():
            for number in numbers:
                yield kit, action, calls, ["fail %d" % number], True, False
        for calls, deeds in BORNE.items():
            yield kit, action, calls, list(deeds), False, True
        turn += 1


def job_number(index):
    return disturb(list(jobs())[index])


def main():
    os.umask(0o022)
    only = sys.argv[1] if len(sys.argv) > 1 else ""
    chosen = [(index, job) for index, job in enumerate(jobs()) if only in name_of(job)]
    tried = bad = 0
    silent = collections.Counter()
    began = time.monotonic()
    with concurrent.futures.ProcessPoolExecutor(len(os.sched_getaffinity(0))) as pool:
        for (_, job), (at, failures, quiet) in zip(chosen, pool.map(job_number, [index for index, _ in chosen])):
            tried += at
            silent += quiet
            bad += sum(not line.startswith(" ") for line in failures)
            print("%-72s %5d" % (name_of(job), at))
            for line in failures:
                print(line)
            sys.stdout.flush()
    for function, times in sorted(silent.items()):
        print("%d times in silence: %s (%s)" % (times, function, HARMLESS.get(function)))
    print("%d faults tried, %d survived, %.0f seconds" % (tried, tried - bad, time.monotonic() - began))
    return 1 if bad or not tried else 0


if __name__ == "__main__":
    sys.exit(main())
