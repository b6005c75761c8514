#!/usr/bin/env python3
"""Trees that are made, or that change while they are walked, to lead the installer astray.

Whatever a script's line is about, nothing outside its targets may be removed, written, re-owned, re-moded or copied
from; no run may wait for ever; and what was not done is told and not counted.

Run by ctest; by hand:

    INSTALLER=build/dev/installer FAULTS_LIBRARY=build/dev/tests/libfaults.so tests/faults/hostile_test.py
"""

import os
import pwd
import shutil
import socket
import subprocess
import sys
import unittest

sys.dont_write_bytecode = True  # the tree stays as it is

from sandbox import Kit, Sandbox, account, files_counted, make_folder, put_back, take_down, told, write

LOOKS = ("openat,fdopendir,readdir,fstatat,stat,lstat,fstat,unlinkat,mkdirat,fchmodat,fchownat,copy_file_range,"
         "read,write")
# Only root can give a file away.
OTHER = "nobody" if os.getuid() == 0 else account(pwd.getpwuid, os.getuid(), "pw_name")


class Hostile(unittest.TestCase):
    def setUp(self):
        os.umask(0o022)
        self.folder = make_folder("kit-")
        self.addCleanup(shutil.rmtree, self.folder)
        self.sandbox = None
        self.runs = 0

    def unpack(self, *lines, init=""):
        """A kit of these lines; its targets may be everything in `target`."""
        write(os.path.join(self.folder, "setup.dat"), "product Hostile\ntarget [TARGET]\n")
        write(os.path.join(self.folder, "setup.int"), init)
        write(os.path.join(self.folder, "setup.q"), "[install]\n[everything]\n")
        text = "\n".join(lines) + "\n"
        write(os.path.join(self.folder, "setup.cpy"), "[install]\n" + text + "[everything]\n" + text)
        self.sandbox = Sandbox(Kit("hostile", self.folder, ("target",), (), (), {}, lambda root: None))
        self.addCleanup(self.sandbox.__exit__)

    def path(self, *names):
        return os.path.join(self.sandbox.root, *names)

    def make(self, path, text=""):
        """A file in the target, with the folders above it."""
        whole = self.path("target", path)
        os.makedirs(os.path.dirname(whole), exist_ok=True)
        write(whole, text)

    def run_kit(self, fault=None, within=None):
        """Runs all lines, also after one that fails, and sees that nothing outside the target has changed."""
        before = take_down(self.sandbox.root)
        outcome = self.sandbox.run("everything", fault, within)
        self.assertEqual(outcome.status, 0, outcome.errors_shown)
        self.assertEqual(outcome.errors_shown, "")
        for path in before.keys() | outcome.tree.keys():
            if not path.startswith("target"):
                self.assertEqual(outcome.tree.get(path), before.get(path), path)
        return outcome

    def read(self, *names):
        with open(self.path("target", *names), encoding="utf-8") as file:
            return file.read()

    def errors(self, outcome):
        return sorted(line for line in outcome.log if line.startswith("Error: "))


class ChangingTrees(Hostile):
    """A command of an attacker runs after the 1st call of the installer that looks at or changes files, in the next
    run after the 2nd, and so on to the last."""

    STRIKES = {
        "a folder becomes a link that leads outside": "mv tree/sub kept && ln -s ../../outside/folder tree/sub",
        "a folder becomes a link to the folder above it": "mv tree/sub kept && ln -s ../.. tree/sub",
        "a folder becomes a file": "mv tree/sub kept && echo text > tree/sub",
        "a file becomes a folder": "rm tree/file && mkdir tree/file && echo text > tree/file/below",
        "a file becomes a pipe": "rm tree/file && mkfifo tree/file",
        "a file becomes a link to nothing": "rm tree/file && ln -s nothing tree/file",
        "everything vanishes": "rm -r tree",
        "the tree itself becomes a link that leads outside": "mv tree kept && ln -s ../outside/folder tree",
    }

    # The first two put a link into the tree, and nothing below it may be met; with the third the path that the line
    # names leads outside, and is followed.
    LINKS = ("a folder becomes a link that leads outside", "a folder becomes a link to the folder above it")
    TREE = "the tree itself becomes a link that leads outside"

    def make_tree(self):
        self.make("tree/file", "text")
        self.make("tree/sub/below/deep", "text")
        self.make("tree/sub/other", "text")
        self.make("copies/here", "text")
        self.sandbox.state = take_down(self.sandbox.root)

    def outcomes_of(self, name, run):
        """Strikes in one run after the other, and sees that the strike came off in one of them at least. Where a run
        has removed what is to be replaced, there is nothing left to strike at."""
        struck = os.path.join(self.folder, "struck")
        strike = "run cd %s && { %s && echo >> %s; } 2>/dev/null || true" % (self.path("target"), self.STRIKES[name],
                                                                             struck)
        write(struck, "")
        put_back(self.sandbox.root, take_down(self.sandbox.root), self.sandbox.state)  # a failed strike left its traces
        at = 1
        outcome = run({"CALLS": LOOKS, "AT": "1", "DO": strike})
        while outcome.disturbed:
            yield at, outcome
            self.sandbox.reset(outcome)
            self.runs += 1
            at += 1
            outcome = run({"CALLS": LOOKS, "AT": str(at), "DO": strike})
        self.sandbox.reset(outcome)
        came_off = os.path.getsize(struck)
        os.unlink(struck)  # it lies in the kit's own folder
        self.assertGreater(came_off, 0, "never came off: " + name)

    def strike_everywhere(self, *lines, but=()):
        self.unpack(*lines)
        self.make_tree()
        for name in self.STRIKES:
            if name in but:
                continue
            with self.subTest(name):
                for at, outcome in self.outcomes_of(name, self.run_kit):
                    if name != self.TREE:
                        self.assertEqual(self.stolen(outcome), [], "call %d" % at)
        print("%d runs" % self.runs, file=sys.stderr)

    def stolen(self, outcome):
        """The copies of what lies outside."""
        return [path for path, entry in outcome.tree.items()
                if path.startswith("target") and entry.content == b"nobody's business"]

    def test_removing(self):
        self.strike_everywhere("RmDir $(target)/tree -")

    def test_removing_files(self):
        # The path in the line leads where it leads: before the listing begins, links in it are followed.
        self.strike_everywhere("RmFile $(target)/tree/* -", but=(self.TREE,))

    def test_copying(self):
        self.strike_everywhere("CopyDir $(target)/tree - $(target)/copies",
                               "CopyFile $(target)/tree/* - $(target)/copies")

    # Modes and owners are changed through links, as they were asked for: what the entry leads to is the kit's own will,
    # but nothing below.

    def test_changing_modes(self):
        self.strike_everywhere("Chmod $(target)/tree - 700", but=(*self.LINKS, self.TREE))

    def test_changing_owners(self):
        self.strike_everywhere("Chown $(target)/tree - " + OTHER, but=(*self.LINKS, self.TREE))

    def test_modes_and_owners_below_a_folder_that_becomes_a_link(self):
        for line in ("Chmod $(target)/tree - 700", "Chown $(target)/tree - " + OTHER):
            self.unpack(line)
            self.make_tree()
            below = {path: entry for path, entry in self.sandbox.state.items()
                     if not path.startswith("target") and path != "outside/folder"}
            for name in self.LINKS:
                with self.subTest(line, strike=name):
                    for at, outcome in self.outcomes_of(name, lambda fault: self.sandbox.run("everything", fault)):
                        self.assertEqual((outcome.status, outcome.errors_shown), (0, ""))
                        self.assertEqual({path: outcome.tree.get(path) for path in below}, below, "call %d" % at)


class Links(Hostile):
    def make_links(self):
        self.make("tree/file", "text")
        os.symlink("loop", self.path("target", "tree", "loop"))
        os.symlink("nothing", self.path("target", "tree", "nowhere"))
        os.symlink("../../outside/folder", self.path("target", "tree", "outside"))
        os.symlink("../../outside/folder/file", self.path("target", "tree", "secret"))
        os.mkdir(self.path("target", "copies"))

    def test_removing_a_tree_removes_its_links_and_not_what_they_lead_to(self):
        self.unpack("RmDir $(target)/tree -")
        self.make_links()
        outcome = self.run_kit()
        self.assertFalse(os.path.lexists(self.path("target", "tree")))
        self.assertEqual(files_counted(outcome), 6)

    def test_copying_tells_of_the_links_that_cannot_be_read_through(self):
        self.unpack("CopyDir $(target)/tree - $(target)/copies")
        self.make_links()
        outcome = self.run_kit()
        self.assertEqual(self.read("copies", "tree", "secret"), "nobody's business")
        root = self.path("target", "tree")
        self.assertEqual(self.errors(outcome), [
            "Error: Error opening '%s/loop' for read, Too many levels of symbolic links" % root,
            "Error: Error opening '%s/nowhere' for read, No such file or directory" % root,
            "Error: Error reading from '%s/outside', Is a directory" % root])
        self.assertEqual(files_counted(outcome), 3)  # the folder and two files


class Names(Hostile):
    NAMES = ("two words", "line\nfeed", "\x01\x7f", "%s%n", "-rf", "back\\slash", "*", "$(target)", "\u00e4", "'")

    def test_any_name_is_copied_and_removed(self):
        self.unpack("CopyDir $(target)/tree - $(target)/copies", "RmDir $(target)/tree -")
        for name in self.NAMES:
            self.make(os.path.join("tree", name), name)
        os.mkdir(self.path("target", "copies"))
        outcome = self.run_kit()
        self.assertFalse(os.path.exists(self.path("target", "tree")))
        # A backslash separates as well: what stands behind it names the copy.
        self.assertEqual(sorted(os.listdir(self.path("target", "copies", "tree"))), sorted(self.NAMES))
        self.assertEqual(files_counted(outcome), 2 * (len(self.NAMES) + 1))

    def test_nothing_is_done_to_the_file_that_a_cut_path_would_name(self):
        """Of three names one fits exactly; the others are longer, one by a letter and one as long as names can be, and
        their cut path is the first one's."""
        self.unpack(*(line % "$(target)/tree/*z" for line in
                      ("CopyFile %s - $(target)/copies", "CopyDir %s - $(target)/copies", "Chmod %s - 777",
                       "Chown %s - nobody", "RmFile %s -", "RmDir %s -")))
        fits = "n" * (255 - len(self.path("target", "tree")) - 1)
        os.makedirs(self.path("target", "copies"))
        self.make(os.path.join("tree", fits), "short")
        folder = os.open(self.path("target", "tree"), os.O_RDONLY)
        for name in (fits + "z", "n" * 254 + "z"):
            os.close(os.open(name, os.O_CREAT | os.O_WRONLY, 0o644, dir_fd=folder))
        os.close(folder)
        before = take_down(self.path("target"))
        outcome = self.run_kit()
        self.assertEqual(take_down(self.path("target")), before)
        self.assertEqual(files_counted(outcome), 0)
        too_long = "Error: Path too long '%s/', File name too long" % self.path("target", "tree")
        self.assertEqual([line for line in outcome.log if "Path too long" in line].count(too_long), 2 * 6)

    def test_a_name_as_long_as_names_can_be_is_told_and_stays_alone(self):
        self.unpack("CopyDir $(target)/tree - $(target)/copies", "Chmod $(target)/tree - 700",
                    "Chown $(target)/tree - " + OTHER, "RmDir $(target)/tree -")
        self.make("tree/file", "text")
        os.mkdir(self.path("target", "copies"))
        folder = os.open(self.path("target", "tree"), os.O_RDONLY)
        os.mkdir("d" * 255, dir_fd=folder)
        os.close(os.open("f" * 255, os.O_CREAT | os.O_WRONLY, 0o644, dir_fd=folder))
        outcome = self.run_kit()
        for name, mode in (("d" * 255, 0o755), ("f" * 255, 0o644)):
            info = os.stat(name, dir_fd=folder)
            self.assertEqual((info.st_mode & 0o777, info.st_uid), (mode, os.getuid()))
        self.assertEqual(len(os.listdir(folder)), 2)
        os.close(folder)
        self.assertEqual(os.listdir(self.path("target", "copies", "tree")), ["file"])
        too_long = "Error: Path too long '%s', File name too long" % self.path("target", "tree")
        self.assertEqual(outcome.log.count(too_long), 4 * 2)
        # Folder and file copied and twice changed, the file removed.
        self.assertEqual(files_counted(outcome), 2 + 2 + 2 + 1)

    def test_nothing_is_done_below_the_depth_at_which_paths_stop_fitting(self):
        self.unpack("CopyDir $(target)/tree - $(target)/copies", "Chmod $(target)/tree - 700",
                    "Chown $(target)/tree - " + OTHER, "RmDir $(target)/tree -")
        os.makedirs(self.path("target", "copies"))
        os.makedirs(self.path("target", "tree"))
        folder = os.open(self.path("target", "tree"), os.O_RDONLY)
        for _ in range(20):
            os.mkdir("d" * 30, dir_fd=folder)
            below = os.open("d" * 30, os.O_RDONLY, dir_fd=folder)
            os.close(os.open("file", os.O_CREAT | os.O_WRONLY, 0o644, dir_fd=below))
            os.close(folder)
            folder = below
        os.close(folder)
        before = take_down(self.path("target"))
        outcome = self.run_kit()
        self.assertTrue(told(outcome))
        after = take_down(self.path("target"))
        copies = {path for path in after if path.startswith("copies/")}
        wanted = {"copies/" + path for path in before if path.startswith("tree")}
        self.assertEqual(copies, {path for path in wanted if self.fits(path)})
        for path, entry in before.items():
            if path.startswith("tree") and not self.fits(path):
                self.assertEqual(after.get(path), entry)
            elif path.startswith("tree") and path.endswith("file"):
                self.assertNotIn(path, after)
            elif path.startswith("tree"):  # a folder, not empty at the end
                self.assertEqual(after[path].mode, 0o700)
                self.assertEqual(after[path].owner[0], pwd.getpwnam(OTHER).pw_uid)

    def fits(self, path):
        return len(self.path("target", path)) <= 255


class Pipes(Hostile):
    def test_no_line_waits_for_a_pipe_or_a_socket(self):
        lines = [line % name for name in ("pipe", "socket") for line in
                 ("CopyFile $(target)/in/%s - $(target)/copies", "CopyFile $(target)/in/file - $(target)/out-%s",
                  "Ini $(target)/in/file $(target)/in/%s", "Ini $(target)/in/%s $(target)/copies/ini",
                  "WFile $(target)/in/%s text", "RFile $(target)/in/%s text")]
        self.unpack(*lines, init="RFile $(target)/in/pipe x - -\nWFile $(target)/in/pipe x - -\n"
                                 "RFile $(target)/in/socket x - -\nWFile $(target)/in/socket x - -\n")
        for folder in ("in", "copies", "out-pipe", "out-socket"):
            os.mkdir(self.path("target", folder))
        self.make("in/file", "text")
        for folder, name in (("in", "pipe"), ("out-pipe", "file")):
            os.mkfifo(self.path("target", folder, name))
        for folder, name in (("in", "socket"), ("out-socket", "file")):
            with socket.socket(socket.AF_UNIX) as made:
                made.bind(self.path("target", folder, name))
        before = take_down(self.path("target"))
        outcome = self.run_kit()
        self.assertEqual(take_down(self.path("target")), before)
        self.assertEqual(files_counted(outcome), 0)
        refused = [line for line in outcome.log if line.endswith("is not a file, Invalid argument")]
        self.assertEqual(len(refused), len(lines) + 4)

    def test_a_device_that_is_full_is_no_copy(self):
        self.unpack("CopyFile $(target)/in/file - $(target)/out", "WFile $(target)/out/written text",
                    "Ini $(target)/in/file $(target)/out/ini")
        self.make("in/file", "text")
        os.mkdir(self.path("target", "out"))
        for name in ("file", "written", "ini"):
            os.symlink("/dev/full", self.path("target", "out", name))
        outcome = self.run_kit()
        self.assertEqual(files_counted(outcome), 0)
        self.assertEqual([line for line in self.errors(outcome) if "Error writing" in line],
                         sorted("Error: Error writing to '%s', No space left on device" %
                                self.path("target", "out", name) for name in ("file", "written", "ini")))


class Sizes(Hostile):
    def test_a_sparse_file_of_more_than_four_gibibytes_is_copied_and_the_counter_starts_again(self):
        self.unpack("CopyFile $(target)/in/large - $(target)/out")
        self.make("in/large")
        os.truncate(self.path("target", "in", "large"), (1 << 32) + 12345)
        os.mkdir(self.path("target", "out"))
        if os.environ.get("HOSTILE_LARGE") != "1":  # else the bytes are really written
            os.symlink("/dev/null", self.path("target", "out", "large"))
        console = subprocess.run(["./setup", "-automate"], executable=os.path.abspath(os.environ["INSTALLER"]),
                                 cwd=self.path("kit"), capture_output=True, encoding="utf-8", check=True).stdout
        self.assertIn("Success 12345 bytes in 1 files copied", console)
        if os.environ.get("HOSTILE_LARGE") == "1":
            self.assertEqual(os.path.getsize(self.path("target", "out", "large")), (1 << 32) + 12345)

    def copy_what_grows(self, text, more, by_hand):
        """Gives the copy of a file that began as `text` and to which `more` is appended after every call."""
        self.unpack("CopyFile $(target)/in/grows - $(target)/out")
        self.make("in/grows", text)
        os.mkdir(self.path("target", "out"))
        append = "run printf %s >> %s" % (more, self.path("target", "in", "grows"))
        outcome = self.run_kit({"CALLS": "copy_file_range,read", "AT": "1", "ON": "1", "DO": append,
                                "BY_HAND": by_hand})
        self.assertTrue(outcome.disturbed)
        self.assertEqual(files_counted(outcome), 1)
        return self.read("out", "grows")

    def test_the_copy_of_a_file_that_grows_with_every_call_has_an_end(self):
        for by_hand in ("0", "1"):
            with self.subTest(by_hand=by_hand):
                text = "0123456789" * 2000
                self.assertEqual(self.copy_what_grows(text, "more-and-more", by_hand), text)

    def test_the_copy_of_a_file_that_grows_from_nothing_has_an_end(self):
        for by_hand in ("0", "1"):
            with self.subTest(by_hand=by_hand):
                copy = self.copy_what_grows("", "more-and-more-" * 100, by_hand)
                self.assertTrue(self.read("in", "grows").startswith(copy))


MOUNT = "exec unshare %s -m bash -c '%%s; exec \"$@\"' bash \"$@\"" % ("" if os.getuid() == 0 else "-r")


class Mounts(Hostile):
    """In a private mount namespace, where the system lets us have one."""

    def setUp(self):
        super().setUp()
        probe = subprocess.run(["bash", "-c", MOUNT % "mount -t tmpfs none /mnt", "bash", "true"], capture_output=True,
                               check=False)
        if probe.returncode != 0:
            self.skipTest("no private mount namespace: " + probe.stderr.decode().strip())

    def test_a_full_file_system_keeps_nothing_from_being_told_or_counted_right(self):
        self.unpack("CopyFile $(target)/in/large - $(target)/out", "WFile $(target)/out/text words",
                    "CopyFile $(target)/in/small - $(target)/out", "MkDir $(target)/out/folder")
        self.make("in/large", "0123456789" * 10000)
        self.make("in/small", "text")
        os.mkdir(self.path("target", "out"))
        out = self.path("target", "out")
        outcome = self.run_kit(within=MOUNT % ("mount -t tmpfs -o size=16k none " + out))
        self.assertEqual(self.errors(outcome), [
            "Error: Error writing to '%s/large', No space left on device" % out,
            "Error: Error writing to '%s/small', No space left on device" % out,
            "Error: Error writing to '%s/text', No space left on device" % out])
        self.assertEqual(files_counted(outcome), 1)  # the folder, which takes no room
        self.assertEqual(outcome.console.count("Error: No space left on device"), 2)

    def test_a_read_only_file_system_is_told_and_nothing_counted(self):
        self.unpack("CopyFile $(target)/in/file - $(target)/out", "MkDir $(target)/out/folder",
                    "Chmod $(target)/out/there - 600", "RmFile $(target)/out/there -", "RmDir $(target)/out -",
                    "Rename $(target)/out/there $(target)/out/gone", "WFile $(target)/out/there words",
                    "RFile $(target)/out/there words")
        self.make("in/file", "text")
        self.make("out/there", "still")
        out = self.path("target", "out")
        outcome = self.run_kit(within=MOUNT % ("mount --bind {0} {0} && mount -o remount,bind,ro {0}".format(out)))
        self.assertEqual(files_counted(outcome), 0)
        self.assertEqual(self.read("out", "there"), "still")
        for line in ("Error opening '%s/file' for write", "Error creating directory '%s/folder'",
                     "Error changing mode of '%s/there' to 384", "Failed to write (%s/there)",
                     "Failed to read (%s/there)"):
            self.assertIn("Error: " + line % out + ", Read-only file system", outcome.log)


if __name__ == "__main__":
    unittest.main(verbosity=2)
