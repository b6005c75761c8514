#!/usr/bin/python3
"""Writes the seeds of the fuzz targets, taken from the scenarios and the examples: the kits that the tests play.

    fuzz/seeds.py FOLDER        makes FOLDER/<target>/<scenario> ...
"""

import os
import re
import sys

REPOSITORY = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
LARGEST = 1 << 16  # bytes; larger ones only make the fuzzer slow
PARTS = {".dat": "dat", ".int": "int", ".q": "q", ".cpy": "cpy"}
# The target of a single script, and what a section of a scenario is called there.
SINGLE = {".dat": "settings_data", ".int": "init_script", ".q": "question_script", ".cpy": "copy_script"}


def read(*names):
    try:
        with open(os.path.join(*names), "rb") as file:
            return file.read()
    except OSError:
        return b""


def files_below(folder):
    for here, _, names in sorted(os.walk(folder)):
        for name in sorted(names):
            path = os.path.join(here, name)
            if os.path.isfile(path):
                yield os.path.relpath(path, folder), read(path)


def kits():
    """Yields the name, the folder of the kit, that of the target and the words and answers of each kit."""
    scenarios = os.path.join(REPOSITORY, "tests", "scenarios")
    for name in sorted(os.listdir(scenarios)):
        folder = os.path.join(scenarios, name)
        yield name, folder + "/kit", folder + "/target", read(folder, "args"), read(folder, "input")
    board = os.path.join(REPOSITORY, "examples", "noticeboard")
    yield "noticeboard", board, "", b"-automate", b""


def part(head, text):
    return b"%% " + head.encode() + b"\n" + text + (b"" if text.endswith(b"\n") or not text else b"\n")


def run_seed(kit, target, args, typed):
    seed = part("args", b"-automate" if not typed and not args else args) + part("input", typed)
    for path, text in files_below(kit):
        kind = PARTS.get(os.path.splitext(path)[1]) if "/" not in path else None
        seed += part("blurb" if path == "blurb.txt" else kind or "kit " + path, text)
    for path, text in files_below(target):
        seed += part("target " + path, text)
    return seed


def as_install(script):
    """The targets of one script read the section "install"; the others' turn comes with the fuzzer's own changes."""
    return re.sub(rb"(?m)^\[\w+\]", b"[install]", script, count=1)


def single_seeds(kit, typed):
    for path, text in files_below(kit):
        target = SINGLE.get(os.path.splitext(path)[1])
        if target == "question_script":
            yield target, as_install(text) + b"%%\n" + typed
        elif target == "copy_script":
            yield target, as_install(text)
        elif target:
            yield target, text
        elif b"$(" in text:
            yield "template", text


def main():
    known = set()
    for name, kit, target, args, typed in kits():
        for fuzz_target, seed in [("run", run_seed(kit, target, args, typed)), *single_seeds(kit, typed)]:
            if (fuzz_target, seed) in known:
                continue
            if len(seed) > LARGEST:
                print("too large for a seed of %s: %s, %d bytes" % (fuzz_target, name, len(seed)), file=sys.stderr)
                continue
            known.add((fuzz_target, seed))
            folder = os.path.join(sys.argv[1], fuzz_target)
            os.makedirs(folder, exist_ok=True)
            with open(os.path.join(folder, name), "wb") as file:
                file.write(seed)


if __name__ == "__main__":
    main()
