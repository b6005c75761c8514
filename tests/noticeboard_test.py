#!/usr/bin/env python3
"""The example kit, played whole: examples/noticeboard is installed, used, upgraded, backed up and removed.

The environment variable INSTALLER names the program. Every case has a folder of its own, with blanks in its path.
"""

import os
import pwd
import shutil
import stat
import subprocess
import tempfile
import unittest

REPOSITORY = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
INSTALLER = os.path.abspath(os.environ["INSTALLER"])
ROOT = os.getuid() == 0

PAGES = {"board.css", "help", "help/contact.html", "help/index.html", "index.html", "rules.txt"}
PROGRAMS = {"board.sh", "list.cgi", "noticeboard.conf", "post.cgi"}


def names_below(top):
    return {os.path.relpath(os.path.join(here, name), top)
            for here, directories, files in os.walk(top) for name in directories + files}


def read(*path):
    with open(os.path.join(*path), encoding="utf-8") as file:
        return file.read()


class Noticeboard(unittest.TestCase):
    def setUp(self):
        self.top = tempfile.mkdtemp(prefix="notice board ")
        self.addCleanup(shutil.rmtree, self.top)
        self.kit = os.path.join(self.top, "the kit")
        shutil.copytree(os.path.join(REPOSITORY, "examples", "noticeboard"), self.kit)
        shutil.copy(INSTALLER, os.path.join(self.kit, "setup"))
        self.unpacked = names_below(self.kit)
        self.pages = os.path.join(self.kit, "www", "noticeboard")
        self.programs = os.path.join(self.kit, "www", "cgi-bin", "noticeboard")
        self.notices = os.path.join(self.kit, "notices")

    def setup(self, *words, answers=None):
        """Starts the installer, automated when there are no answers; gives what it printed."""
        words = ["./setup", *words] + (["-automate"] if answers is None else [])
        run = subprocess.run(words, cwd=self.kit, input="\n".join(answers or []) + "\n", capture_output=True,
                             encoding="utf-8", timeout=60, check=True, umask=0o022)
        self.assertEqual(run.stderr, "")
        return run.stdout

    def cgi(self, program, body=None, **variables):
        """Runs an installed CGI program as a web server would; gives its status line and the whole answer."""
        environment = {"REQUEST_METHOD": "GET" if body is None else "POST", **variables}
        if body is not None:
            environment.setdefault("CONTENT_LENGTH", str(len(body)))
        run = subprocess.run([os.path.join(self.programs, program)], input=(body or "") + "unread", env=environment,
                             capture_output=True, encoding="utf-8", timeout=60, check=True)
        self.assertEqual(run.stderr, "")
        return run.stdout.splitlines()[0], run.stdout

    def post(self, body):
        status, _ = self.cgi("post.cgi", body)
        self.assertEqual(status, "Status: 200 OK")

    def kept(self):
        return sorted(name for name in os.listdir(self.notices) if name.endswith(".notice"))

    def new_names(self):
        """What stands in the kit's folder that was not unpacked, the log apart."""
        return names_below(self.kit) - self.unpacked - {"setup.log"}

    def mode(self, *path):
        return stat.S_IMODE(os.lstat(os.path.join(*path)).st_mode)

    # Installing.

    def test_an_automated_installation_puts_exactly_the_boards_files_into_the_kits_own_folders(self):
        self.assertIn("]\nSuccess ", self.setup())
        self.assertEqual(names_below(self.pages), PAGES)
        self.assertEqual(names_below(self.programs), PROGRAMS)
        self.assertEqual(os.listdir(self.notices), ["board.id"])
        tops = {name.split("/")[0] for name in self.new_names()}
        self.assertEqual(tops, {"www", "notices", "postings.log", "installed"})

    def test_programs_can_be_executed_and_the_rest_can_be_read(self):
        self.setup()
        self.assertEqual({name: self.mode(self.programs, name) for name in PROGRAMS},
                         {"board.sh": 0o644, "list.cgi": 0o755, "noticeboard.conf": 0o644, "post.cgi": 0o755})
        self.assertEqual({name: self.mode(self.pages, name) for name in PAGES},
                         {name: 0o755 if name == "help" else 0o644 for name in PAGES})
        self.assertEqual(self.mode(self.notices), 0o755)

    def test_templates_are_filled_in(self):
        self.setup()
        self.assertIn('action="/cgi-bin/noticeboard/post.cgi"', read(self.pages, "index.html"))
        self.assertIn("\ndata_dir " + self.notices + "\n", read(self.programs, "noticeboard.conf"))
        self.assertNotIn("$(", read(self.pages, "index.html"))

    def test_the_closing_text_names_the_folders(self):
        self.assertIn("\npages      " + self.pages + "\n", self.setup())

    def test_a_second_installation_is_refused(self):
        self.setup()
        refused = self.setup(answers=["1", ""])
        self.assertIn("Error: A board is installed from this kit already: choose upgrade or remove.\n", refused)

    def test_an_incomplete_kit_is_refused_before_anything_is_asked(self):
        shutil.rmtree(os.path.join(self.kit, "files"))
        self.assertIn("[Install]\nError: The folder 'files' is missing", self.setup())
        self.assertEqual(self.new_names(), set())

    def interactive_installation(self, *folder):
        """Answers every question of an ordinary user; `folder` answers for the board's name and what follows on it."""
        owner = ["n"] if ROOT else []  # asked of root alone: whether the notices change hands
        answers = ["1", self.top + "/web root/", self.top + "/programs", *folder, "/cgi", "Bob's & Co", "",
                   self.top + "/data", self.top + "/log of postings", *owner, "yes", "n", ""]
        self.pages, self.programs, self.notices = (self.top + "/" + path for path in
                                                   ("web root/" + folder[-1], "programs/" + folder[-1], "data"))
        return self.setup(answers=answers)

    def test_the_answers_decide_where_everything_goes(self):
        self.assertIn("]\nSuccess ", self.interactive_installation("board"))
        self.assertEqual(names_below(self.pages), PAGES)
        self.assertEqual(names_below(self.programs), PROGRAMS)
        self.assertEqual(self.new_names(), {name for name in self.new_names() if name.startswith("installed")})
        self.assertIn("title Bob's & Co\n", read(self.programs, "noticeboard.conf"))
        self.assertEqual(self.mode(self.notices), 0o1777)
        self.assertEqual(self.mode(self.top, "log of postings"), 0o666)

    def test_a_folder_that_is_there_is_shared_only_when_the_operator_says_so(self):
        os.makedirs(self.top + "/web root/taken")
        shown = self.interactive_installation("taken", "no", "board")
        self.assertIn("]\nSuccess ", shown)
        self.assertEqual(os.listdir(self.top + "/web root/taken"), [])
        self.assertEqual(names_below(self.pages), PAGES)

    def test_the_notices_must_not_be_mixed_with_other_files(self):
        os.mkdir(self.notices)
        open(os.path.join(self.notices, "diary"), "w").close()
        self.assertIn("Error: Directory '%s' must be empty, please try again\n" % self.notices, self.setup())
        self.assertEqual(self.new_names(), {"notices", "notices/diary"})

    def test_a_failed_installation_can_be_removed_and_repeated(self):
        open(os.path.join(self.kit, "www"), "w").close()
        self.assertIn("]\nFailed, ", self.setup())
        self.assertFalse(os.path.exists(os.path.join(self.kit, "installed", "version")))
        self.setup("-special", "remove")
        self.assertEqual(self.new_names(), {"www"})
        os.remove(os.path.join(self.kit, "www"))
        self.assertIn("]\nSuccess ", self.setup())

    def test_only_root_is_offered_another_owner(self):
        shown = self.setup(answers=["1"])  # all other answers are the defaults, at the end of the input
        self.assertEqual("You seem to be root." in shown, ROOT)

    # Using it.

    def test_the_list_says_that_there_are_no_notices(self):
        self.setup()
        status, page = self.cgi("list.cgi")
        self.assertEqual(status, "Status: 200 OK")
        self.assertIn("There are no notices yet.", page)

    def test_a_posting_is_kept_noted_and_shown(self):
        self.setup()
        self.post("name=Ann&text=Cat+found%2C+answers+to+%C3%89mile")
        (name,) = self.kept()
        author, _, text = read(self.notices, name).splitlines()
        self.assertEqual((author, text), ("Ann", "Cat found, answers to Émile"))
        log = read(self.kit, "postings.log").splitlines()
        self.assertEqual(log[0], 'Postings on the board "Notice Board", the newest last:')
        self.assertTrue(log[1].endswith(" " + name))
        self.assertIn("answers to Émile", self.cgi("list.cgi")[1])

    def test_what_a_visitor_sends_is_neither_run_nor_taken_for_html(self):
        self.setup()
        self.post("name=%3Cb%3E%24%28touch+ran%29&text=%60touch+ran%60+%22%27%3B+touch+ran+%25s+%5Cn+%zz+%0D%0A%00%26end")
        page = self.cgi("list.cgi")[1]
        self.assertIn("<h2>&lt;b&gt;$(touch ran)</h2>", page)
        self.assertIn("<p>`touch ran` &quot;&#39;; touch ran %s \\n %zz \n&amp;end\n</p>", page)
        self.assertEqual({name for name in names_below(self.top) if name.endswith("ran")}, set())

    def test_a_name_of_several_lines_cannot_forge_the_time(self):
        self.setup()
        self.post("name=Ann%0A1999-01-01&text=old+news")
        self.assertNotIn("1999", self.cgi("list.cgi")[1])

    def test_the_newest_notice_comes_first_and_the_last_hundred_are_shown(self):
        self.setup()
        for number in range(120):
            with open(os.path.join(self.notices, "20200101-%06d-1.notice" % number), "w") as file:
                file.write("Ann\nthen\nnumber %03d.\n" % number)
        page = self.cgi("list.cgi")[1]
        shown = [number for number in range(120) if "number %03d." % number in page]
        self.assertEqual(shown, list(range(20, 120)))
        self.assertLess(page.index("number 119."), page.index("number 118."))

    def test_unusable_requests_are_refused_and_keep_nothing(self):
        self.setup()
        requests = (
            ("405", None, {}),
            ("400", "name=A&text=b", {"CONTENT_LENGTH": ""}),
            ("400", "name=A&text=b", {"CONTENT_LENGTH": "-1"}),
            ("400", "name=A&text=b", {"CONTENT_LENGTH": "1; touch ran"}),
            ("413", "name=A&text=b", {"CONTENT_LENGTH": "8001"}),
            ("400", "name=A", {}),
            ("400", "text=b", {}),
            ("400", "name=+&text=%0A%20", {}),
            ("400", "", {}),
        )
        for expected, body, variables in requests:
            with self.subTest(body=body, variables=variables):
                self.assertTrue(self.cgi("post.cgi", body, **variables)[0].startswith("Status: " + expected))
                self.assertEqual(os.listdir(self.notices), ["board.id"])

    # Upgrading, backing up, removing.

    def test_an_installed_board_is_upgraded_by_default_and_keeps_its_notices(self):
        self.setup()
        self.post("name=Ann&text=one")
        before = {name: read(self.notices, name) for name in self.kept()}
        os.remove(os.path.join(self.programs, "list.cgi"))
        with open(os.path.join(self.programs, "noticeboard.conf"), "a") as file:
            file.write("changed by hand\n")
        with open(os.path.join(self.pages, "rules.txt"), "w") as file:
            file.write("our own rules\n")
        shown = self.setup()
        self.assertIn("\n[Upgrade]\nCopying files[", shown)
        self.assertIn("]\nSuccess ", shown)
        self.assertNotIn("ERROR", shown)
        self.assertEqual({name: read(self.notices, name) for name in self.kept()}, before)
        self.assertEqual(names_below(self.programs), PROGRAMS | {"noticeboard.conf.old"})
        self.assertIn("changed by hand\n", read(self.programs, "noticeboard.conf.old"))
        self.assertNotIn("changed by hand\n", read(self.programs, "noticeboard.conf"))
        self.assertEqual(read(self.pages, "rules.txt"), "our own rules\n")
        self.assertIn("\n", read(self.kit, "postings.log"))

    def test_an_upgrade_takes_new_rules_and_empties_the_log_when_told_to(self):
        self.setup()
        self.post("name=Ann&text=one")
        rules = os.path.join(self.top, "new rules")
        with open(rules, "w") as file:
            file.write("No rules.\n")
        self.setup(answers=["2", "The $ board", "y", rules + "x", rules, "y", "n", ""])
        self.assertEqual(read(self.pages, "rules.txt"), "No rules.\n")
        self.assertEqual(read(self.kit, "postings.log"), "")
        self.assertIn("title The $ board\n", read(self.programs, "noticeboard.conf"))
        self.assertEqual(len(self.kept()), 1)

    def test_an_upgrade_removes_the_help_page_of_an_old_release(self):
        self.setup()
        open(os.path.join(self.pages, "help.html"), "w").close()
        self.setup()
        self.assertEqual(names_below(self.pages), PAGES)

    def test_without_a_board_there_is_nothing_to_upgrade_remove_or_back_up(self):
        record = os.path.join(self.kit, "installed")
        self.assertIn("Error: No board is noted in %s: install one first.\n" % record, self.setup(answers=["2", ""]))
        self.assertIn("Error: There is no board to remove", self.setup(answers=["3", ""]))
        self.assertIn("Error: There is no board to back up", self.setup("-special", "backup"))
        self.assertEqual(self.new_names(), set())

    def test_a_backup_holds_every_notice(self):
        self.setup()
        self.post("name=Ann&text=one")
        open(os.path.join(self.notices, ".half-written"), "w").close()
        self.setup("-special", "backup")
        (backup,) = [name for name in os.listdir(self.kit) if name.startswith("notices-")]
        self.assertEqual(sorted(os.listdir(os.path.join(self.kit, backup))), sorted(self.kept() + ["board.id"]))

    def test_a_removal_leaves_nothing_of_the_board(self):
        self.setup()
        self.post("name=Ann&text=one")
        self.setup()
        self.assertIn("]\n Success ", self.setup("-special", "remove"))
        self.assertEqual(self.new_names(), set())

    def test_a_removal_from_the_menu_does_the_same(self):
        self.setup()
        self.assertIn("[Remove]\n", self.setup(answers=["3", "n", "y", "n", ""]))
        self.assertEqual(self.new_names(), set())

    def test_a_removal_can_be_stopped_at_the_last_moment(self):
        self.setup()
        before = self.new_names()
        self.assertIn("Error: Nothing was removed.\n", self.setup(answers=["3", "n", "no", ""]))
        self.assertEqual(self.new_names(), before | {"installed/last_start"})

    def test_a_removal_spares_what_others_put_beside_the_board(self):
        self.setup()
        neighbours = {"www/cgi-bin/noticeboard/mine.cgi", "www/other/index.html"}
        for name in neighbours:
            os.makedirs(os.path.dirname(os.path.join(self.kit, name)), exist_ok=True)
            open(os.path.join(self.kit, name), "w").close()
        self.setup("-special", "remove")
        self.assertEqual(self.new_names(), neighbours | {"www", "www/cgi-bin", "www/cgi-bin/noticeboard", "www/other"})

    def test_a_removal_spares_folders_that_were_there_before(self):
        os.makedirs(os.path.join(self.kit, "www", "cgi-bin"))
        self.setup()
        self.setup("-special", "remove")
        self.assertEqual(self.new_names(), {"www", "www/cgi-bin"})

    def test_kept_notices_are_shown_by_the_next_board_wherever_they_are(self):
        self.interactive_installation("board")
        self.post("name=Ann&text=still+here")
        self.setup(answers=["3", "y", "y", "n", ""])
        self.assertEqual(self.new_names(), {"kept_notices"})
        self.assertEqual(len(self.kept()), 1)
        self.assertIn("]\nSuccess ", self.setup())
        self.programs = os.path.join(self.kit, "www", "cgi-bin", "noticeboard")
        self.assertIn("still here", self.cgi("list.cgi")[1])
        self.assertNotIn("kept_notices", self.new_names())

    @unittest.skipUnless(ROOT, "only root can change owners")
    def test_root_can_give_the_notices_to_another_user(self):
        # The questions before are left at their defaults; so is all that follows.
        shown = self.setup(answers=["1", "", "", "", "", "", "", "", "", "y", "nobody", "nogroup", "n", ""])
        self.assertIn("]\nSuccess ", shown)
        nobody = pwd.getpwnam("nobody").pw_uid
        self.assertEqual(os.lstat(self.notices).st_uid, nobody)
        self.assertEqual(os.lstat(os.path.join(self.kit, "postings.log")).st_uid, nobody)
        self.assertEqual(os.lstat(self.programs).st_uid, 0)


if __name__ == "__main__":
    unittest.main()
