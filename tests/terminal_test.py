#!/usr/bin/python3
"""What an operator sees and can do at a real terminal: the program runs on a pseudo-terminal of 80 columns.

Run by ctest; by hand: INSTALLER=build/dev/installer /usr/bin/python3 tests/terminal_test.py
"""

import os
import shutil
import signal
import tempfile
import time
import unittest

import pexpect

PROGRAM = os.path.abspath(os.environ["INSTALLER"])
QUESTIONS = """[install]
Text title - - h Name of the board
DirExist dir - - h Directory
"""
COPY = """[install]
CopyFile $(current_dir)/first - $(dir)/out
CopyFile $(current_dir)/second - $(dir)/out
"""


class Terminal(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, self.folder)
        shutil.copy(PROGRAM, os.path.join(self.folder, "setup"))
        os.mkdir(os.path.join(self.folder, "out"))
        self.write("setup.dat", "product Board\ntitle Minutes\ndir " + self.folder + "\n")
        self.write("setup.int", "")
        self.write("setup.q", QUESTIONS)
        self.write("setup.cpy", COPY)
        self.write("first", "one")
        self.write("second", "two")

    def write(self, name, text):
        with open(os.path.join(self.folder, name), "w", encoding="ascii") as file:
            file.write(text)

    def read(self, name):
        with open(os.path.join(self.folder, name), encoding="ascii") as file:
            return file.read()

    def start(self, command=None, args=()):
        command = command or os.path.join(self.folder, "setup")
        child = pexpect.spawn(command, list(args), cwd=self.folder, dimensions=(24, 80), timeout=20, encoding="utf-8")
        self.addCleanup(child.close, force=True)
        return child

    def answer_all_questions(self, child):
        child.expect_exact("What would you like to do[1]? ")
        child.sendline("1")
        child.expect_exact("Name of the board [Minutes]? ")
        child.sendline("")
        child.expect_exact("Directory [" + self.folder + "]? ")
        child.sendline("")
        child.expect_exact("Do you want to change your answers [n]? ")
        child.sendline("n")

    def test_every_prompt_appears_before_its_answer_is_typed(self):
        child = self.start()
        self.answer_all_questions(child)  # types an answer only once its prompt was seen
        child.expect_exact("Copying files[..]\r\nSuccess 6 bytes in 2 files copied")
        child.expect_exact("<Press enter to exit>")
        child.sendline("")
        child.expect(pexpect.EOF)
        child.close()
        self.assertEqual(child.exitstatus, 0)
        self.assertEqual(self.read("out/second"), "two")

    def test_each_dot_appears_while_the_next_file_is_still_being_copied(self):
        os.remove(os.path.join(self.folder, "second"))
        os.symlink("/dev/tty", os.path.join(self.folder, "second"))  # its copy lasts as long as the operator types
        child = self.start()
        self.answer_all_questions(child)
        child.expect_exact("Copying files[.")
        child.sendline("typed")
        child.sendeof()
        child.expect_exact(".]")
        child.expect_exact("Success 9 bytes in 2 files copied")
        self.assertEqual(self.read("out/second"), "typed\n")

    def test_end_of_input_at_the_menu_shuts_the_program_down(self):
        child = self.start()
        child.expect_exact("What would you like to do[1]? ")
        child.sendeof()
        child.expect_exact("<Press enter to exit>")
        child.expect(pexpect.EOF)
        child.close()
        self.assertEqual(child.exitstatus, 0)

    def test_end_of_input_at_a_question_takes_the_defaults(self):
        child = self.start()
        child.expect_exact("What would you like to do[1]? ")
        child.sendline("1")
        child.expect_exact("Name of the board [Minutes]? ")
        child.sendeof()
        child.expect_exact("Success 6 bytes in 2 files copied")
        child.expect(pexpect.EOF)

    def wait_for_log(self, text):
        for _ in range(600):
            if text in self.read("setup.log"):
                return
            time.sleep(0.05)
        self.fail("never in the log: " + text)

    def test_interrupt_ends_the_program_at_once_and_leaves_the_terminal_sane(self):
        shell = self.start("/bin/sh", ["-i"])
        shell.sendline("PS1=; stty -a > before; echo ready-$?")
        shell.expect_exact("ready-0")
        shell.sendline("./setup")
        shell.expect_exact("What would you like to do[1]? ")
        shell.sendintr()
        shell.sendline("echo status-$?")
        shell.expect_exact("status-%d" % (128 + signal.SIGINT))
        shell.sendline("stty -a > after; echo done-$?")
        shell.expect_exact("done-0")
        self.assertEqual(self.read("after"), self.read("before"))

    def test_the_log_holds_every_line_up_to_a_signal(self):
        for name in ("SIGINT", "SIGTERM", "SIGHUP"):
            with self.subTest(name):
                self.write("setup.log", "")
                child = self.start()
                child.expect_exact("What would you like to do[1]? ")
                child.kill(getattr(signal, name))
                child.expect(pexpect.EOF)
                child.close()
                self.assertEqual(child.signalstatus, getattr(signal, name))
                lines = self.read("setup.log").splitlines()
                self.assertIn("Info: Log file opened in '" + self.folder + "/setup.log'", lines[0])
                self.assertIn("Debug: Finished processing replacable settings", lines[-1])

    def test_a_signal_ends_a_copy_at_once_and_the_log_holds_every_line_up_to_it(self):
        os.remove(os.path.join(self.folder, "second"))
        os.symlink("/dev/tty", os.path.join(self.folder, "second"))  # its copy lasts as long as the operator types
        for name in ("SIGINT", "SIGTERM", "SIGHUP"):
            with self.subTest(name):
                self.write("setup.log", "")
                child = self.start()
                self.answer_all_questions(child)
                child.expect_exact("Copying files[.")
                self.wait_for_log("/second->")  # the dot is of the first
                child.kill(getattr(signal, name))
                child.expect(pexpect.EOF)
                child.close()
                self.assertEqual(child.signalstatus, getattr(signal, name))
                lines = self.read("setup.log").splitlines()
                self.assertIn("Debug: Processing [257:" + self.folder + "/second->", lines[-1])
                self.assertEqual(self.read("out/first"), "one")


if __name__ == "__main__":
    unittest.main(verbosity=2)
