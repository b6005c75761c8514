#!/usr/bin/python3
"""Generates a kit far larger than any real one, plays it with -automate, and reports time and peak memory.

    bench/big_kit.py PROGRAM      2,000 settings, 1,000 init items, 1,000 questions, 5,000 copy lines, 5,000 files

A tenth of the kit is played first: ten times the kit should cost about ten times the time. What was installed is compared
with what the kit says; only that decides the result, never a time. tests/growth_test.py counts the instructions.
"""

import contextlib
import os
import shutil
import subprocess
import sys
import tempfile
import time

FULL = {"settings": 2000, "items": 1000, "questions": 1000, "lines": 5000, "files": 5000}


def write(path, lines):
    with open(path, "w", encoding="ascii") as file:
        file.write("\n".join(lines) + "\n")


def read(path):
    with open(path, encoding="ascii") as file:
        return file.read()


def make_kit(root, size):
    """Writes the kit into root/kit; every setting refers to the one before it, every line of a script to a setting."""
    kit = os.path.join(root, "kit")
    os.makedirs(os.path.join(kit, "files", "tree"))
    settings = size["settings"] - 6  # the others are product, base, d, item, answer and there
    write(kit + "/setup.dat", ["product Big", "base " + root + "/target", "d d", "s0 zero"] +
          ["s%d $(s%d)" % (i, i - 1) for i in range(1, settings)])
    write(kit + "/setup.int", ["Copy item s%d - -" % (i % settings) for i in range(size["items"] - 1)] +
          ["Exist $(base) there - -"])
    write(kit + "/setup.q", ["[install]"] +
          ["Text s%d - - - What is number %d, in $(product)?" % (i % settings, i) for i in range(size["questions"] - 1)] +
          ["Copy answer - - - s%d" % (settings - 1)])
    kinds = ["MkDir $(base)/d%(n)d", "CopyFile files/$(product)-page - $(base)/$(d)%(n)d",
             "Ini files/template $(base)/d%(n)d/conf", "Chmod $(base)/d%(n)d/conf - 640",
             "WFile $(base)/d%(n)d/value s%(s)d"]
    write(kit + "/setup.cpy", ["[install]", "CopyDir files/tree - $(base)"] +
          [kinds[i % 5] % {"n": i // 5, "s": i % settings} for i in range(size["lines"])])
    write(kit + "/files/Big-page", ["page"])
    write(kit + "/files/template", ["product = $(product)", "found = $(item) $(there) $(answer)"])
    for i in range(size["files"]):
        write(kit + "/files/tree/file%d" % i, [str(i)])
    return kit


@contextlib.contextmanager
def laid_out(program, size):
    """The folder that holds the kit and its target, for as long as it is used."""
    root = tempfile.mkdtemp(prefix="big-kit-")
    try:
        os.mkdir(root + "/target")
        shutil.copy(program, make_kit(root, size) + "/setup")
        yield root
    finally:
        shutil.rmtree(root, ignore_errors=True)


def is_installed(root, size):
    target = root + "/target"
    return (len(os.listdir(target + "/tree")) == size["files"] and
            all(sorted(os.listdir("%s/d%d" % (target, i))) == ["Big-page", "conf", "value"] and
                read("%s/d%d/conf" % (target, i)) == "product = Big\nfound = zero true zero\n" and
                read("%s/d%d/value" % (target, i)) == "zero" for i in range(size["lines"] // 5)))


def play(program, size):
    """Returns the seconds, the peak memory in KiB and whether all was installed."""
    with laid_out(program, size) as root:
        # Not by what wait4 tells: a process inherits the peak of the one that made it, and this one is larger.
        measured = ["/usr/bin/time", "--quiet", "-f", "%M", "-o", root + "/peak", "./setup", "-automate"]
        begin = time.monotonic()
        status = subprocess.call(measured, cwd=root + "/kit", stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL)
        took = time.monotonic() - begin
        return took, int(read(root + "/peak")), status == 0 and is_installed(root, size)


def main():
    program = os.path.abspath(sys.argv[1])
    result = 0
    for part in 10, 1:
        size = {name: count // part for name, count in FULL.items()}
        took, peak, whole = play(program, size)
        print("%s: %.3f s, peak %d KiB, %s" % (", ".join("%d %s" % (n, k) for k, n in size.items()), took, peak,
                                               "all installed" if whole else "NOT installed as the kit says"))
        result = result or int(not whole)
    return result


if __name__ == "__main__":
    sys.exit(main())
