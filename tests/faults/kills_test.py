#!/usr/bin/env python3
"""The installer is killed after every call that changes something; then the same action is run again, undisturbed.

It must end in the tree in which one undisturbed run ends, and the log of the killed run must hold every line up to
the kill: as many as the undisturbed run has written until that call. So it is after each block of a file that is
copied by hand, which leaves the file half-written. A signal that asks the program to end does so at once, with the
signal's status.

Run by ctest; by hand:

    INSTALLER=build/dev/installer FAULTS_LIBRARY=build/dev/tests/libfaults.so tests/faults/kills_test.py
"""

import os
import signal
import sys
import unittest

sys.dont_write_bytecode = True  # the tree stays as it is

from sandbox import FIXTURE, Sandbox, files_counted

CHANGES = "write,copy_file_range,fwrite,fputs,fflush,fclose,mkdirat,unlinkat,rename,fchmodat,fchownat,openat,fopen"
COPYING = "write"  # with which files are copied by hand


def is_of_console(call):
    return " pipe:" in call


def is_line_of_log(call):
    return call.startswith("fwrite ") and call.endswith("/setup.log")


def lines_until(call, calls):
    """Goes on in `calls` until this one, and tells how many lines were logged on the way, its own among them."""
    lines = 0
    for passed in calls:
        lines += is_line_of_log(passed)
        if passed == call:
            return lines
    raise AssertionError("no such call in the undisturbed run: " + call)


def is_half_written(tree, reference):
    """Whether a file holds some of its bytes, but not all of them."""
    return any(entry.content and path in reference and entry.kind == reference[path].kind and
               len(entry.content) < len(reference[path].content) and
               reference[path].content.startswith(entry.content) for path, entry in tree.items())


class Kills(unittest.TestCase):
    def setUp(self):
        os.umask(0o022)
        self.sandbox = Sandbox(FIXTURE)
        self.addCleanup(self.sandbox.__exit__)
        self.addCleanup(lambda: print("%d kills survived" % self.killed, file=sys.stderr))
        self.killed = 0

    def calls_of(self, action, by_hand):
        """What an undisturbed run calls, in order, but for its console."""
        outcome = self.sandbox.run(action, {"CALLS": CHANGES, "AT": "1", "ON": "1", "DO": "kill 0", "BY_HAND": by_hand})
        self.sandbox.reset(outcome)
        return outcome.disturbed

    def kill_everywhere(self, action, calls, number, again):
        reference = self.sandbox.run(action)
        self.assertTrue(files_counted(reference), reference.console)
        self.sandbox.reset(reference)
        by_hand = "1" if calls == COPYING else "0"
        before = iter(self.calls_of(action, by_hand))
        lines = 0
        half_written = 0
        while True:
            outcome = self.sandbox.run(action, {"CALLS": calls, "AT": str(self.killed + 1), "DO": "kill %d" % number,
                                                "BY_HAND": by_hand})
            if not outcome.disturbed:
                self.sandbox.reset(outcome)
                break
            self.killed += 1
            self.assertEqual(outcome.status, -number, outcome.disturbed)
            self.assertEqual(outcome.errors_shown, "")
            last = outcome.disturbed[0]
            if not is_of_console(last):
                lines += lines_until(last, before)
            # The line that is just being written may still be in the buffer.
            self.assertEqual(outcome.log, reference.log[:lines - is_line_of_log(last)], last)
            half_written += is_half_written(outcome.tree, reference.tree)
            if again:
                outcome = self.sandbox.run(action)
                self.assertEqual(outcome.errors_shown, "")
                self.assertEqual(outcome.tree, reference.tree, "killed at call %d" % self.killed)
                self.assertEqual(outcome.log[-1], reference.log[-1])
            self.sandbox.reset(outcome)
        self.assertEqual(outcome.log, reference.log)
        self.assertEqual(lines + sum(map(is_line_of_log, before)), len(reference.log))
        self.assertGreater(self.killed, 0)
        if calls == COPYING:
            self.assertGreater(half_written, 1)  # the largest file takes three blocks

    def test_an_install_that_was_killed_anywhere_can_be_repeated(self):
        self.kill_everywhere("install", CHANGES, signal.SIGKILL, True)

    def test_a_special_action_that_was_killed_anywhere_can_be_repeated(self):
        self.sandbox.state = self.sandbox.run("install").tree
        self.kill_everywhere("everything", CHANGES, signal.SIGKILL, True)

    def test_a_file_that_was_left_half_written_is_whole_after_the_next_run(self):
        self.kill_everywhere("install", COPYING, signal.SIGKILL, True)

    def test_a_signal_to_end_is_obeyed_while_copying(self):
        for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
            with self.subTest(number.name):
                self.killed = 0
                self.kill_everywhere("install", COPYING, number, False)


if __name__ == "__main__":
    unittest.main(verbosity=2)
