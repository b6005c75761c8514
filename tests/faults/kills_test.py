#!/usr/bin/env python3
"""The installer is killed after every call that changes something; then the same action is run again, undisturbed.

It must end in the tree in which one undisturbed run ends, and the log of the killed run must hold every line up to
the kill. A signal that asks the program to end does so at once, with the signal's status.

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


class Kills(unittest.TestCase):
    def setUp(self):
        os.umask(0o022)
        self.sandbox = Sandbox(FIXTURE)
        self.addCleanup(self.sandbox.__exit__)
        self.addCleanup(lambda: print("%d kills survived" % self.killed, file=sys.stderr))
        self.killed = 0

    def kill_everywhere(self, action, calls, number, again):
        reference = self.sandbox.run(action)
        self.assertTrue(files_counted(reference), reference.console)
        self.sandbox.reset(reference)
        while True:
            outcome = self.sandbox.run(action, {"CALLS": calls, "AT": str(self.killed + 1), "DO": "kill %d" % number,
                                                "BY_HAND": "1" if calls == COPYING else "0"})
            if not outcome.disturbed:
                self.sandbox.reset(outcome)
                break
            self.killed += 1
            self.assertEqual(outcome.status, -number, outcome.disturbed)
            self.assertEqual(outcome.errors_shown, "")
            self.assertEqual(outcome.log, reference.log[:len(outcome.log)])
            if again:
                outcome = self.sandbox.run(action)
                self.assertEqual(outcome.tree, reference.tree, "killed at call %d" % self.killed)
            self.sandbox.reset(outcome)
        self.assertGreater(self.killed, 0)

    def test_an_install_that_was_killed_anywhere_can_be_repeated(self):
        self.kill_everywhere("install", CHANGES, signal.SIGKILL, True)

    def test_a_special_action_that_was_killed_anywhere_can_be_repeated(self):
        self.sandbox.state = self.sandbox.run("install").tree
        self.kill_everywhere("everything", CHANGES, signal.SIGKILL, True)

    def test_a_signal_to_end_is_obeyed_while_copying(self):
        for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
            with self.subTest(number.name):
                self.killed = 0
                self.kill_everywhere("install", COPYING, number, False)


if __name__ == "__main__":
    unittest.main(verbosity=2)
