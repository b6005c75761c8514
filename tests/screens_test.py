#!/usr/bin/python3
"""The screens of docs/terminal.md, as they come up in a terminal of 80 columns (tmux): each must be seen, line by line.

Run by ctest; by hand: INSTALLER=build/dev/installer /usr/bin/python3 tests/screens_test.py
"""

import os
import re
import shutil
import subprocess
import tempfile
import time
import unittest

REPOSITORY = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
INSTALLER = os.path.abspath(os.environ["INSTALLER"])
SHOWN = "/home/ann/kit"  # the folder in the document; prompts are wrapped by length, so the real one is as long

KIT = {
    "setup.dat": "product Guest Book\npages $(current_dir)/pages\nserved\n",
    "setup.int": "",
    "setup.q": "[install]\n"
               "DirExist pages - - h Which folder, among those that you may write into and that the web server can read, "
               "is to hold the pages\n"
               "YN served - - h Is that folder served already\n",
    "setup.cpy": "[install]\n"
                 "CopyFile $(current_dir)/first/* - $(pages)\n"
                 "CopyDir $(current_dir)/broken - $(pages)\n"
                 "CopyFile $(current_dir)/second/* - $(pages)\n",
    "blurb.txt": "Did it end with \"Success\", and without an error between the dots? Then look at $(pages).\n",
}


@unittest.skipIf(shutil.which("tmux") is None, "there is no tmux")
class Screens(unittest.TestCase):
    def setUp(self):
        self.kit = tempfile.mkdtemp(prefix="", dir="/tmp")
        self.addCleanup(shutil.rmtree, self.kit)
        self.assertEqual(len(self.kit), len(SHOWN))
        for name, text in KIT.items():
            self.write(name, text)
        for number in range(100):
            self.write(f"first/{number}", "x")
            self.write(f"second/{number + 100}", "x")
        os.mkdir(self.kit + "/broken")
        os.symlink("gone", self.kit + "/broken/link")
        os.mkdir(self.kit + "/pages")
        shutil.copy(INSTALLER, self.kit + "/setup")

    def write(self, name, text):
        path = os.path.join(self.kit, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="ascii") as file:
            file.write(text)

    def tmux(self, *words):
        # Without the caller's terminal session, whose server would be asked. With a shell that is sure to run: where the
        # caller names none, tmux takes that of the account, and that of nobody refuses everything.
        environment = {name: value for name, value in os.environ.items() if name != "TMUX"}
        environment |= {"LC_ALL": "C.UTF-8", "SHELL": "/bin/sh"}
        return subprocess.run(["tmux", "-S", self.kit + "/tmux", "-f", "/dev/null", *words], check=True, timeout=60,
                              capture_output=True, encoding="utf-8", env=environment).stdout

    def screen(self):
        """What is on the screen, with the document's folder in place of the real one, also where a line ends within it."""
        def shown(found):
            names = iter(SHOWN)
            return "".join(letter if letter == "\n" else next(names) for letter in found[0])

        lines = "\n".join(line.rstrip() for line in self.tmux("capture-pane", "-p").split("\n"))
        return re.sub("\n?".join(map(re.escape, self.kit)), shown, lines)

    def wait_for(self, text):
        for _ in range(600):
            if text in self.screen():
                return
            time.sleep(0.05)
        self.fail("never on the screen: " + text + "\n" + self.screen())

    def play(self):
        """Installs as the document tells; gives the whole screen at the end."""
        self.tmux("new-session", "-d", "-x", "80", "-y", "60", "-c", self.kit, "./setup")
        self.addCleanup(self.tmux, "kill-server")
        for prompt, answer in (("do[1]?", ""),
                               ("is to hold the pages [" + SHOWN + "/pages]?", "/srv/www/the new site of the choir/htdocs"),
                               ("please try again", ""),
                               ("served already []?", "perhaps"),
                               ("Yes or No, please try again", "yes"),
                               ("answers [n]?", "n")):
            self.wait_for(prompt)
            self.tmux("send-keys", "-l", answer)
            self.tmux("send-keys", "Enter")
        self.wait_for("<Press enter to exit>")
        return self.screen()

    def test_every_screen_of_the_document_is_seen(self):
        with open(os.path.join(REPOSITORY, "docs", "terminal.md"), encoding="utf-8") as file:
            blocks = re.findall(r"^```text\n(.*?)^```", file.read(), re.MULTILINE | re.DOTALL)
        self.assertEqual(len(blocks), 3)
        seen = self.play()
        for block in blocks:
            with self.subTest(block=block):
                self.assertIn("\n" + block, seen)
                self.assertEqual([line for line in block.splitlines() if len(line) > 80], [])


if __name__ == "__main__":
    unittest.main()
