#!/usr/bin/python3
"""How the module of contrib/ansible reads the result of a run: real kits, run by the real program, on this machine.

The exit status of the program is 0 in nearly all of these cases; what the module reports must be the truth all the same.

Run by ctest; by hand: INSTALLER=build/dev/installer /usr/bin/python3 tests/fleet_result_test.py
"""

import io
import json
import os
import shutil
import subprocess
import sys
import tarfile
import tempfile
import unittest

REPOSITORY = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
INSTALLER = os.path.abspath(os.environ["INSTALLER"])
MODULE = os.path.join(REPOSITORY, "contrib", "ansible", "roles", "installer_kit", "library", "installer_kit.py")

KIT = {
    "setup.dat": "# The greeting.\nproduct Greeting\nsite $(current_dir)/site\ntext Hello\nthere false\n",
    "setup.int": "Exist $(site)/page there - -\nCopy action upgrade there true\n",
    "setup.q": "[install]\nDir site - - h Where to\nText text - - h What to say\n"
               "[upgrade]\nText text - - h What to say\n[remove]\nDirExist site - - h Where from\n",
    "setup.cpy": "[install]\nMkDir $(site)\nIni $(current_dir)/page.tmpl $(site)/page\n"
                 "[upgrade]\nIni $(current_dir)/page.tmpl $(site)/page\n"
                 "[remove]\nRmFile $(site)/page -\nRmFile $(site)/never-there -\nRmDir $(site) -\n",
    "page.tmpl": "$(text), world\n",
}


class Result(unittest.TestCase):
    def setUp(self):
        self.top = tempfile.mkdtemp(prefix="result.")
        self.addCleanup(shutil.rmtree, self.top)
        self.dir = os.path.join(self.top, "kit")
        self.kit = dict(KIT)
        self.program = INSTALLER

    def pack(self):
        path = os.path.join(self.top, "kit.tar")
        with tarfile.open(path, "w") as archive:
            for name, text in self.kit.items():
                member = tarfile.TarInfo(name)
                member.size = len(text.encode())
                archive.addfile(member, io.BytesIO(text.encode()))
            archive.add(self.program, "./setup")
        return path

    def module(self, check=False, **arguments):
        """Runs the module as Ansible would; gives what it reports."""
        given = {"dir": self.dir, "archive": self.pack(), "checksum": str(hash(tuple(self.kit.items()))),
                 "_ansible_check_mode": check, **arguments}
        run = subprocess.run([sys.executable, MODULE], input=json.dumps({"ANSIBLE_MODULE_ARGS": given}),
                             capture_output=True, encoding="utf-8", timeout=120, env={**os.environ, "HOME": self.top})
        self.assertEqual(run.stderr, "")
        told = json.loads(run.stdout)
        self.assertEqual(run.returncode != 0, told.get("failed", False))
        return told

    def page(self):
        with open(os.path.join(self.dir, "site", "page"), encoding="utf-8") as file:
            return file.read()

    def assert_fails(self, told, *texts):
        self.assertTrue(told.get("failed"), told)
        for text in texts:
            self.assertIn(text, told["msg"])

    def test_an_installation_is_a_change_and_the_next_run_is_none(self):
        told = self.module()
        self.assertEqual((told["changed"], told["action"], told["result"]),
                         (True, "Install", "Success 0 bytes in 2 files copied"))
        self.assertEqual(self.page(), "Hello, world\n")
        told = self.module()
        self.assertEqual(told["changed"], False)
        self.assertNotIn("action", told)

    def test_a_new_answer_is_an_upgrade(self):
        self.module()
        told = self.module(settings={"text": "Good morning"})
        self.assertEqual((told["changed"], told["action"]), (True, "Upgrade"))
        self.assertEqual(self.page(), "Good morning, world\n")
        self.assertEqual(self.module(settings={"text": "Good morning"})["changed"], False)

    def test_answers_replace_defaults_in_their_place_and_references_are_expanded(self):
        told = self.module(settings={"text": "$(product) to", "there": False, "site": self.dir + "/a site"})
        self.assertEqual(told["changed"], True)
        with open(self.dir + "/setup.dat", encoding="utf-8") as file:
            self.assertEqual(file.read(), "# The greeting.\nproduct Greeting\nsite %s/a site\ntext $(product) to\n"
                                          "there false\n" % self.dir)
        with open(self.dir + "/a site/page", encoding="utf-8") as file:
            self.assertEqual(file.read(), "Greeting to, world\n")

    def test_a_setting_that_the_kit_does_not_declare_is_told(self):
        told = self.module(settings={"txet": "Hello"})
        self.assertIn("not declared in setup.dat: txet", told["warnings"])

    def test_unusable_settings_are_refused_before_anything_is_done_also_in_check_mode(self):
        for name, value, text in (("text", "two\nlines", "several lines"), ("text", " blank", "blanks around it"),
                                  ("a b", "c", "cannot be the name"), ("#a", "c", "cannot be the name"),
                                  ("action", "upgrade", "cannot be the name"), ("text", ["a"], "no text"),
                                  ("text", "x" * 995, "too long")):
            for check in (False, True):
                with self.subTest(name=name, value=value, check=check):
                    self.assert_fails(self.module(check=check, settings={name: value}), text)
                    self.assertFalse(os.path.exists(self.dir + "/setup"))

    def test_check_mode_foretells_and_does_nothing(self):
        self.assertEqual(self.module(check=True)["changed"], True)
        self.assertFalse(os.path.exists(self.dir))
        self.module()
        log = os.path.getsize(self.dir + "/setup.log")
        self.assertEqual(self.module(check=True)["changed"], False)
        self.assertEqual(self.module(check=True, settings={"text": "Bye"})["changed"], True)
        self.assertEqual(self.module(check=True, state="absent")["changed"], True)
        self.assertEqual(os.path.getsize(self.dir + "/setup.log"), log)
        self.assertEqual(self.page(), "Hello, world\n")

    def test_a_copy_script_that_stops_has_failed_and_is_tried_again(self):
        os.makedirs(self.dir)
        open(self.dir + "/site", "w").close()
        self.assert_fails(self.module(), "the copy script stopped at a line that failed", self.dir + "/site")
        os.remove(self.dir + "/site")
        self.assertEqual(self.module()["changed"], True)

    def test_an_upgrade_that_fails_is_not_taken_for_the_installation_before_it(self):
        self.module()
        self.kit["setup.cpy"] = self.kit["setup.cpy"].replace("[upgrade]\n", "[upgrade]\nRmFile $(site)/nothing -\n")
        for _ in range(2):
            self.assert_fails(self.module(), "the copy script stopped at a line that failed")

    def test_a_file_that_could_not_be_copied_makes_a_success_a_failure(self):
        self.kit["second.tmpl"] = "x"
        self.kit["setup.cpy"] = "[install]\nMkDir $(site)\nCopyFile $(current_dir)/*.tmpl - $(site)\n"
        os.makedirs(self.dir + "/site/page.tmpl")
        told = self.module()
        self.assertIn("]\nSuccess ", told["stdout"])
        self.assert_fails(told, "some files could not be handled", self.dir + "/site/page.tmpl")
        os.rmdir(self.dir + "/site/page.tmpl")
        self.assertEqual(self.module()["changed"], True)

    def test_an_error_in_the_closing_text_is_none(self):
        self.kit["blurb.txt"] = "If it says\nError: no such file\nthen look into the log.\n"
        self.assertEqual(self.module()["changed"], True)

    def test_the_message_of_an_error_line_is_the_reason(self):
        self.kit["setup.cpy"] = "[install]\nExist /nowhere there\nError there The disk is full.\n"
        self.assert_fails(self.module(), "the copy script stopped", "The disk is full.")

    def test_an_error_entry_among_the_questions_is_the_reason(self):
        self.kit["setup.q"] = "[install]\nError there h This host is too old.\n"
        self.assert_fails(self.module(), "did not come to its copy script", "This host is too old.")

    def test_a_default_that_is_refused_is_the_reason(self):
        self.kit["setup.q"] = "[install]\nDirExist site - - h Where to\n"
        self.assert_fails(self.module(), "did not come to its copy script", self.dir + "/site")

    def test_a_kit_without_questions_or_without_a_copy_script_has_failed(self):
        del self.kit["setup.q"]
        self.assert_fails(self.module(), "asks no questions for this action")
        self.kit = {name: text for name, text in KIT.items() if name != "setup.cpy"}
        self.assert_fails(self.module(), "did not come to its copy script")

    def test_a_kit_without_an_init_script_has_failed(self):
        del self.kit["setup.int"]
        self.assert_fails(self.module(), "did not come to its copy script", "Failed to load init file")

    def test_a_kit_without_a_settings_file_or_a_program_is_refused(self):
        del self.kit["setup.dat"]
        self.assert_fails(self.module(), "the kit holds no 'setup' or no 'setup.dat'")

    def test_a_program_that_is_killed_ends_with_an_error_or_says_nothing_has_failed(self):
        self.program = os.path.join(self.top, "program")
        for script, text in (("kill -9 $$", "ended by signal 9"), ("exit 3", "ended with status 3"),
                             ("echo Success 1 bytes in 1 files copied", "left nothing in its log")):
            with self.subTest(script=script):
                with open(self.program, "w", encoding="ascii") as file:
                    file.write("#!/bin/sh\n" + script + "\n")
                os.chmod(self.program, 0o755)
                self.assert_fails(self.module(), text)

    def test_a_program_that_does_not_end_is_ended(self):
        self.program = os.path.join(self.top, "program")
        with open(self.program, "w", encoding="ascii") as file:
            file.write("#!/bin/sh\nexec sleep 1000\n")
        os.chmod(self.program, 0o755)
        self.assert_fails(self.module(timeout=1), "ended by signal 9")

    def test_the_log_of_an_earlier_run_does_not_speak_for_this_one(self):
        self.module()
        self.program = "/bin/true"
        self.assert_fails(self.module(settings={"text": "Bye"}), "left nothing in its log")

    def test_a_log_that_is_rotated_during_the_run_is_read_whole(self):
        os.makedirs(self.dir)
        for name in ("setup.log", "setup.log0"):
            with open(os.path.join(self.dir, name), "w", encoding="ascii") as file:
                file.write(("x" * 99 + "\n") * 10480)
        self.assertEqual(self.module()["action"], "Install")
        self.assertTrue(os.path.exists(self.dir + "/setup.log1"))

    def test_a_proof_that_is_missing_makes_a_success_a_failure(self):
        self.assertEqual(self.module(proof=["site/page"])["changed"], True)
        self.assertEqual(self.module(proof=["site/page"])["changed"], False)
        os.remove(self.dir + "/site/page")
        self.assertEqual(self.module(proof=["site/page"])["changed"], True)
        self.assert_fails(self.module(proof=["site/page", "site/other"]), "these are missing: %s/site/other" % self.dir)

    def test_a_removal_is_a_change_once_and_tells_of_the_lines_that_failed(self):
        self.module()
        told = self.module(state="absent")
        self.assertEqual((told["changed"], told["action"], told["failed_lines"]), (True, "remove", 1))
        self.assertFalse(os.path.exists(self.dir + "/site"))
        self.assertEqual(self.module(state="absent")["changed"], False)
        self.assertEqual(self.module()["changed"], True)

    def test_a_removal_that_leaves_something_has_failed(self):
        self.module()
        self.kit["setup.cpy"] = "[remove]\nRmFile $(site)/never-there -\n"
        with open(self.dir + "/setup.cpy", "w", encoding="ascii") as file:
            file.write(self.kit["setup.cpy"])
        self.assert_fails(self.module(state="absent", proof=["site/page"]), "still there: %s/site/page" % self.dir)

    def test_what_was_installed_by_hand_is_removed_when_there_is_proof(self):
        self.module()
        os.remove(self.dir + "/.installer_kit.json")
        self.assertEqual(self.module(state="absent", proof=["site/page"])["changed"], True)
        self.assertFalse(os.path.exists(self.dir + "/site"))

    def test_force_runs_again_only_what_is_installed(self):
        self.assertEqual(self.module(force=True)["changed"], False)
        self.assertFalse(os.path.exists(self.dir + "/setup"))
        self.module()
        told = self.module(force=True, checksum=None)
        self.assertEqual((told["changed"], told["action"]), (True, "Upgrade"))
        self.assertEqual(self.module()["changed"], False)

    def test_files_of_an_earlier_kit_go_and_those_of_the_operator_stay(self):
        self.kit["pages/old"] = "old"
        self.module()
        open(self.dir + "/pages/mine", "w").close()
        del self.kit["pages/old"]
        self.module()
        self.assertEqual(os.listdir(self.dir + "/pages"), ["mine"])

    def test_an_archive_that_leaves_the_kits_folder_is_refused(self):
        for name in ("../outside", "pages/../../outside", "/outside", "./.installer_kit.json"):
            with self.subTest(name=name):
                self.kit = {**KIT, name: "x"}
                self.assert_fails(self.module(), "has no place in a kit")
                self.assertFalse(os.path.exists(self.dir + "/setup"))

    def test_answers_are_for_their_owner_alone(self):
        self.module(settings={"text": "secret"})
        self.assertEqual(os.stat(self.dir + "/setup.dat").st_mode & 0o777, 0o600)
        with open(self.dir + "/.installer_kit.json", encoding="ascii") as file:
            self.assertNotIn("secret", file.read())


if __name__ == "__main__":
    try:
        import ansible.module_utils.basic  # noqa: F401
    except ImportError:
        print("skipped: this is missing, see scripts/setup fleet: ansible-core")
        sys.exit(77)
    unittest.main()
