#!/usr/bin/python3
"""Generates a kit far larger than any real one, plays it with -automate, and reports time and peak memory.

    bench/big_kit.py PROGRAM            2,000 settings, 1,000 init items, 1,000 questions, 5,000 copy lines

A tenth of the kit is played first: ten times the kit should cost about ten times the time. What was installed is compared
with what the kit says; only that decides the result, never a time.
"""

import os
import shutil
import subprocess
import sys
import tempfile
import time

FULL = {"settings": 2000, "items": 1000, "questions": 1000, "lines": 5000}


def write(path, lines):
    with open(path, "w", encoding="ascii") as file:
        file.write("\n".join(lines) + "\n")


def make_kit(root, size):
    """Writes the kit into root/kit; every setting refers to the one before it, every line of a script to a setting."""
    kit = os.path.join(root, "kit")
    os.makedirs(os.path.join(kit, "files"))
    settings = size["settings"]
    write(kit + "/setup.dat", ["product Big", "base " + root + "/target", "d d", "s0 zero"] +
          ["s%d $(s%d)" % (i, i - 1) for i in range(1, settings - 3)])
    write(kit + "/setup.int", ["Copy i%d s%d - -" % (i, i % (settings - 3)) for i in range(size["items"])])
    write(kit + "/setup.q", ["[install]"] +
          ["Text s%d - - - What is number %d, in $(product)?" % (i % (settings - 3), i) for i in range(size["questions"])])
    kinds = ["MkDir $(base)/d%(n)d", "CopyFile files/$(product)-page - $(base)/$(d)%(n)d",
             "Ini files/template $(base)/d%(n)d/conf", "Chmod $(base)/d%(n)d/conf - 640",
             "WFile $(base)/d%(n)d/value s%(s)d"]
    write(kit + "/setup.cpy", ["[install]"] + [kinds[i % 5] % {"n": i // 5, "s": i % (settings - 3)}
                                               for i in range(size["lines"])])
    write(kit + "/files/Big-page", ["page"])
    write(kit + "/files/template", ["product = $(product)", "last = $(s%d)" % (settings - 4)])
    return kit


def play(program, size):
    """Returns the seconds, the peak memory in KiB and whether all was installed."""
    root = tempfile.mkdtemp(prefix="big-kit-")
    try:
        kit = make_kit(root, size)
        os.mkdir(root + "/target")
        shutil.copy(program, kit + "/setup")
        # Not by what wait4 tells: a process inherits the peak of the one that made it, and this one is larger.
        measured = ["/usr/bin/time", "--quiet", "-f", "%M", "-o", root + "/peak", "./setup", "-automate"]
        begin = time.monotonic()
        status = subprocess.call(measured, cwd=kit, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL)
        took = time.monotonic() - begin
        with open(root + "/peak", encoding="ascii") as file:
            peak = int(file.read())
        folders = size["lines"] // 5
        whole = status == 0 and all(
            sorted(os.listdir("%s/target/d%d" % (root, i))) == ["Big-page", "conf", "value"] and
            open("%s/target/d%d/conf" % (root, i), encoding="ascii").read() == "product = Big\nlast = zero\n" and
            open("%s/target/d%d/value" % (root, i), encoding="ascii").read() == "zero" for i in range(folders))
        return took, peak, whole
    finally:
        shutil.rmtree(root, ignore_errors=True)


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
