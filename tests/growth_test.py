#!/usr/bin/python3
"""Ten times the kit costs about ten times the work, and a kit of any size a few MiB.

Work is counted in instructions (callgrind): they are the same whatever else the machine is doing. Run by ctest; by hand:
INSTALLER=build/dev/installer /usr/bin/python3 tests/growth_test.py
"""

import os
import sys
import unittest

REPOSITORY = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(REPOSITORY, "bench"))

import big_kit  # pylint: disable=wrong-import-position
import measure  # pylint: disable=wrong-import-position

INSTALLER = os.path.abspath(os.environ["INSTALLER"])
SMALL = {name: count // 40 for name, count in big_kit.FULL.items()}
MOST = 12  # times the work, for ten times of anything
PEAK = 8192  # KiB


def instructions(size):
    with big_kit.laid_out(INSTALLER, size) as root:
        return measure.instructions(measure.Program("installer", ["./setup", "-automate"], root + "/kit"))


class Growth(unittest.TestCase):
    def test_the_large_kit_is_installed_in_a_few_mebibytes(self):
        _, peak, whole = big_kit.play(INSTALLER, big_kit.FULL)
        self.assertTrue(whole)
        self.assertLessEqual(peak, PEAK)

    def test_ten_times_of_anything_is_about_ten_times_the_work(self):
        small = instructions(SMALL)
        for name in [*SMALL, "everything"]:
            size = {each: count * (10 if name in (each, "everything") else 1) for each, count in SMALL.items()}
            with self.subTest(name):
                factor = instructions(size) / small
                print("ten times the %s: %.1f times the instructions" % (name, factor))
                self.assertLessEqual(factor, MOST)


if __name__ == "__main__":
    unittest.main()
