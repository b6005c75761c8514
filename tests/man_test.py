#!/usr/bin/python3
"""The manual pages in docs/man: mandoc finds nothing wrong with them, and they name all options of the program."""

import glob
import os
import re
import subprocess
import unittest

SOURCE = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
PAGES = sorted(glob.glob(os.path.join(SOURCE, "docs", "man", "*.[1-9]")))


def read(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


class ManualPages(unittest.TestCase):
    def test_mandoc_finds_nothing_wrong(self):
        self.assertEqual([os.path.basename(page) for page in PAGES], ["installer-kit.5", "installer.1"])
        for page in PAGES:
            with self.subTest(page):
                lint = subprocess.run(["mandoc", "-Tlint", page], stdout=subprocess.PIPE, check=False, encoding="utf-8")
                self.assertEqual([line for line in lint.stdout.splitlines() if not self.is_found_here(line)], [])

    @staticmethod
    def is_found_here(line):
        """mandoc looks for other manuals among those of the host; ours stand beside each other."""
        reference = re.search(r"referenced manual not found: Xr (\S+) (\d)", line)
        return reference and "%s.%s" % reference.groups() in map(os.path.basename, PAGES)

    def test_every_option_is_explained(self):
        source = read(os.path.join(SOURCE, "installer", "installer.cpp"))
        options = re.findall(r'^    \{"-(\w+)", option_', source, re.M)
        self.assertEqual(len(options), 4)
        for option in options:
            with self.subTest(option):
                self.assertRegex(read(os.path.join(SOURCE, "docs", "man", "installer.1")), r"(?m)^\.It Fl %s\b" % option)


if __name__ == "__main__":
    unittest.main(verbosity=2)
