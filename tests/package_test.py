#!/usr/bin/python3
"""What is shipped, made and used as its receivers use it: packages, the static program, kits in one file.

    ctest --preset dev -L package
    tests/package_test.py PackedKit                 one class; the static program is built for it

The builds are release builds in copies of this tree, each made once. As root everything that an ordinary user does is
done as the user nobody, too.
"""

import functools
import glob
import hashlib
import os
import shutil
import signal
import stat
import subprocess
import tarfile
import tempfile
import unittest

REPOSITORY = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
ROOT = os.getuid() == 0
NOBODY = 65534
TIME_LIMIT = 600  # seconds, for a build on a busy machine
TOP = None


def setUpModule():
    global TOP
    TOP = tempfile.mkdtemp(prefix="package ")
    os.chmod(TOP, 0o755)


def tearDownModule():
    shutil.rmtree(TOP)


# --- Running things ---

def as_nobody():
    """Arguments with which subprocess starts a program as an ordinary user; none for whoever is one already."""
    return {"user": NOBODY, "group": NOBODY, "extra_groups": []} if ROOT else {}


def run(*command, check=True, env=None, **options):
    environment = {name: value for name, value in os.environ.items()
                   if name not in ("SOURCE_DATE_EPOCH", "DESTDIR", "DISPLAY")}
    environment.update(LC_ALL="C.UTF-8", **(env or {}))
    done = subprocess.run(command, stdin=options.pop("stdin", subprocess.DEVNULL), stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, timeout=TIME_LIMIT, env=environment, check=False, text=True,
                          **options)
    if check and done.returncode != 0:
        raise AssertionError("%s: status %d\n%s" % (" ".join(command), done.returncode, done.stdout))
    return done


def in_root(root, *command, folder="/"):
    """Runs a program that sees nothing but `root`."""
    def enter():
        os.chroot(root)
        os.chdir(folder)
    return subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, env={},
                          preexec_fn=enter, check=False, text=True, timeout=60)


# --- Looking at files ---

def read(*path):
    with open(os.path.join(*path), encoding="utf-8", errors="replace") as file:
        return file.read()


def write(text, *path):
    os.makedirs(os.path.dirname(os.path.join(*path)), exist_ok=True)
    with open(os.path.join(*path), "w", encoding="utf-8") as file:
        file.write(text)


def files_below(top):
    return {os.path.relpath(os.path.join(here, name), top) for here, _, files in os.walk(top) for name in files}


def mode_of(*path):
    return stat.S_IMODE(os.lstat(os.path.join(*path)).st_mode)


def sums_of(folder):
    sums = {}
    for name in os.listdir(folder):
        with open(os.path.join(folder, name), "rb") as file:
            sums[name] = hashlib.sha256(file.read()).hexdigest()
    return sums


# --- Builds, each made once ---

def copy_of_tree(name):
    tree = os.path.join(TOP, name)
    unwanted = shutil.ignore_patterns("build", "demo", ".git", ".cache", "__pycache__")
    shutil.copytree(REPOSITORY, tree, symlinks=True, ignore=unwanted)
    return tree


@functools.lru_cache(None)
def packages():
    """A tree with the release build in it, and the folder with its packages."""
    tree = copy_of_tree("tree")
    run(tree + "/scripts/package")
    return tree, tree + "/build/packages"


@functools.lru_cache(None)
def static_program():
    tree = os.path.join(TOP, "tree")
    if not os.path.exists(tree):
        copy_of_tree("tree")
    run("cmake", "--preset", "static", cwd=tree)
    run("cmake", "--build", "--preset", "static", cwd=tree)
    return tree + "/build/static/installer"


def one(folder, pattern):
    (path,) = glob.glob(os.path.join(glob.escape(folder), pattern))
    return path


def shipped_documents():
    return {"README.md", "SECURITY.md"} | {"docs/" + os.path.basename(name)
                                           for name in glob.glob(glob.escape(REPOSITORY) + "/docs/*.md")}


def shipped_kit():
    return {"examples/noticeboard/" + name for name in files_below(REPOSITORY + "/examples/noticeboard")}


def shipped_pages():
    return {"man%s/%s.gz" % (name[-1], os.path.basename(name))
            for name in glob.glob(glob.escape(REPOSITORY) + "/docs/man/*.[1-8]")}


def tree_of(prefix, papers):
    """What stands below a prefix; `papers` are the files that a Debian package has in another form."""
    documents = shipped_documents() | shipped_kit() | papers
    return ({prefix + "bin/installer"} | {prefix + "share/man/" + name for name in shipped_pages()} |
            {prefix + "share/doc/installer/" + name for name in documents})


class Base(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.folder = tempfile.mkdtemp(dir=TOP)
        os.chmod(self.folder, 0o755)

    def path(self, *names):
        return os.path.join(self.folder, *names)


# --- The packages ---

# A kit that does what a package's user would do first.
FIRST_KIT = {
    "setup.dat": "product  First\ndocroot  $(current_dir)/www\n",
    "setup.int": "",
    "setup.q": "[install]\n",
    "setup.cpy": "[install]\nMkDir $(docroot)\nCopyFile $(current_dir)/*.html - $(docroot)\n",
    "index.html": "<p>first</p>\n",
}


def write_kit(folder, files, program=None):
    for name, text in files.items():
        write(text, folder, name)
    if program:
        shutil.copy(program, os.path.join(folder, "setup"))


class Packages(Base):
    def test_two_builds_give_the_same_bytes(self):
        """The other build has another folder, with a blank, another umask and, for root, another user."""
        other = copy_of_tree("another tree")
        if ROOT:
            run("chown", "-R", "%d:%d" % (NOBODY, NOBODY), other)
        run(other + "/scripts/package", other + "/out", umask=0o077, env={"HOME": other}, **as_nobody())
        sums = sums_of(packages()[1])
        self.assertEqual(sums, sums_of(other + "/out"))
        self.assertEqual(sorted(os.path.splitext(name)[1] for name in sums), [".deb", ".gz"])

    def test_lintian_finds_no_error_and_no_warning(self):
        done = run("lintian", "--no-cfg", "--fail-on", "error,warning", "--suppress-tags",
                   "initial-upload-closes-no-bugs", one(packages()[1], "*.deb"), check=False)
        self.assertEqual(done.returncode, 0, done.stdout)

    def test_the_debian_package_holds_everything_in_its_place(self):
        run("dpkg-deb", "-x", one(packages()[1], "*.deb"), self.path("root"))
        papers = {"copyright", "changelog.gz", "changelog.Debian.gz"}
        self.assertEqual(files_below(self.path("root")), tree_of("usr/", papers))
        text = read(self.folder, "root/usr/share/doc/installer/copyright")
        self.assertIn("Copyright: " + read(REPOSITORY, "LICENSE").split("Copyright (c) ")[1].splitlines()[0], text)
        self.assertIn("WITHOUT WARRANTY OF ANY KIND", text)

    def test_the_debian_package_needs_the_c_library_alone(self):
        depends = run("dpkg-deb", "-f", one(packages()[1], "*.deb"), "Depends").stdout.strip()
        self.assertRegex(depends, r"^libc6 \(>= [0-9.]+\)$")

    def test_the_debian_package_unpacked_installs_a_kit(self):
        run("dpkg-deb", "-x", one(packages()[1], "*.deb"), self.path("root"))
        self.play_first_kit(self.path("root/usr/bin/installer"))

    def test_the_archive_holds_everything_under_one_folder(self):
        archive = one(packages()[1], "*.tar.gz")
        top = os.path.basename(archive)[:-len(".tar.gz")]
        with tarfile.open(archive) as tar:
            members = tar.getmembers()
        names = [member.name for member in members]
        self.assertEqual(names, sorted(names))
        self.assertEqual({(m.uid, m.gid) for m in members}, {(0, 0)})
        self.assertEqual({m.name for m in members if m.isfile()},
                         tree_of(top + "/", {"LICENSE", "CHANGELOG.md"}))

    def test_the_archive_unpacked_installs_a_kit(self):
        run("tar", "-xzf", one(packages()[1], "*.tar.gz"), "-C", self.folder)
        self.play_first_kit(one(self.folder, "installer-*/bin/installer"))

    def play_first_kit(self, program):
        self.assertEqual(run(program, "-version").stdout, "Installer version 1.0d\n")
        write_kit(self.path("kit"), FIRST_KIT, program)
        done = run("./setup", "-automate", cwd=self.path("kit"))
        self.assertIn("Success 13 bytes in ", done.stdout)
        self.assertEqual(read(self.folder, "kit/www/index.html"), "<p>first</p>\n")

    @unittest.skipUnless(ROOT, "needs root: dpkg installs and chroot enters a root of its own")
    def test_dpkg_installs_it_in_a_clean_root_where_it_runs_and_leaves_nothing(self):
        root = self.clean_root()
        dpkg = ["dpkg", "--root=" + root, "--no-triggers"]
        run(*dpkg, "-i", one(packages()[1], "*.deb"))
        self.assertEqual(run(*dpkg, "-V", "installer").stdout, "")
        write_kit(root + "/kit", FIRST_KIT)
        shutil.copy(root + "/usr/bin/installer", root + "/kit/setup")
        done = in_root(root, "./setup", "-automate", folder="/kit")
        self.assertIn("Success 13 bytes in ", done.stdout)
        self.assertEqual(read(root, "kit/www/index.html"), "<p>first</p>\n")
        run(*dpkg, "-r", "installer")
        left = {name for name in files_below(root) if not name.startswith(("var/lib/dpkg/", "lib", "kit/"))}
        self.assertEqual(left, {"var/log/dpkg.log"} & left)

    def clean_root(self):
        """A root that holds the C library, known to dpkg, and nothing else."""
        root = self.path("root")
        os.makedirs(root + "/var/lib/dpkg/info")
        os.makedirs(root + "/var/lib/dpkg/updates")
        os.makedirs(root + "/var/log")
        fields = "${Package}\\n${Version}\\n${Architecture}"
        name, version, architecture = run("dpkg-query", "-W", "-f", fields, "libc6").stdout.split("\n")
        write("Package: %s\nStatus: install ok installed\nVersion: %s\nArchitecture: %s\nMulti-Arch: same\n"
              "Maintainer: none\nDescription: C library\n" % (name, version, architecture), root, "var/lib/dpkg/status")
        write("", root, "var/lib/dpkg/info/libc6:%s.list" % architecture)
        for word in run("ldd", one(packages()[0], "build/release/installer")).stdout.split():
            if word.startswith("/"):
                os.makedirs(root + os.path.dirname(word), exist_ok=True)
                shutil.copy(word, root + word)
        return root


class Install(Base):
    def test_it_installs_below_a_prefix_and_a_destdir_with_the_modes_of_programs_and_documents(self):
        run("cmake", "--install", packages()[0] + "/build/release", "--prefix", "/opt/x",
            env={"DESTDIR": self.path("stage")}, umask=0o022)
        papers = {"LICENSE", "CHANGELOG.md"}
        self.assertEqual(files_below(self.path("stage")), tree_of("opt/x/", papers))
        for here, folders, files in os.walk(self.path("stage/opt/x/share")):
            for name in folders + files:
                expected = 0o755 if name in folders else 0o644
                self.assertEqual(mode_of(here, name), expected, os.path.join(here, name))
        self.assertEqual(mode_of(self.folder, "stage/opt/x/bin/installer"), 0o755)

    def test_the_documents_and_the_example_kit_are_those_of_the_tree(self):
        run("cmake", "--install", packages()[0] + "/build/release", "--prefix", self.path("prefix"))
        for name in shipped_documents() | shipped_kit():
            self.assertEqual(read(self.folder, "prefix/share/doc/installer", name), read(REPOSITORY, name), name)

    def test_the_folders_can_be_chosen(self):
        build = self.path("build")
        run("cmake", "-S", packages()[0], "-B", build, "-G", "Ninja", "-DBUILD_TESTING=OFF",
            "-DCMAKE_INSTALL_BINDIR=sbin", "-DCMAKE_INSTALL_MANDIR=man", "-DCMAKE_INSTALL_DOCDIR=papers")
        script = read(build, "cmake_install.cmake")
        for folder in ("/sbin", "/man/man1", "/papers", "/papers/examples"):
            self.assertIn('DESTINATION "${CMAKE_INSTALL_PREFIX}%s"' % folder, script)


# --- The static program ---

class Static(Base):
    def test_it_needs_no_library(self):
        done = run("ldd", static_program(), check=False)
        self.assertRegex(done.stdout, "statically linked|not a dynamic executable")

    def test_every_scenario_holds_for_it(self):
        scenarios = sorted(glob.glob(glob.escape(REPOSITORY) + "/tests/scenarios/*/"))
        done = run(REPOSITORY + "/tests/run_scenario", static_program(), *scenarios, check=False)
        self.assertIn(done.returncode, (0, 77), done.stdout)

    @unittest.skipUnless(ROOT, "needs root: chroot enters a root of its own, and files are given away")
    def test_it_takes_users_and_groups_from_the_hosts_files(self):
        """The root holds the kit and the two files, whose names this machine does not know."""
        root = self.path("root")
        write("root:x:0:0::/:\nkitowner:x:4711:4712::/:\n", root, "etc/passwd")
        write("root:x:0:\nkitgroup:x:4713:\n", root, "etc/group")
        kit = dict(FIRST_KIT, **{"setup.cpy": FIRST_KIT["setup.cpy"] +
                                 "Chown $(docroot) - kitowner:kitgroup\nChown $(docroot)/* - kitowner\n"})
        write_kit(root + "/kit", kit, static_program())
        done = in_root(root, "./setup", "-automate", folder="/kit")
        self.assertIn("Success 13 bytes in ", done.stdout)
        owner = os.stat(root + "/kit/www")
        self.assertEqual((owner.st_uid, owner.st_gid), (4711, 4713))
        self.assertEqual(os.stat(root + "/kit/www/index.html").st_uid, 4711)


# --- Kits in one file ---

# It installs outside its own folder, so that nothing but the log is written there.
KIT = {
    "board.dat": "product  Board\ntarget  [TARGET]\n",
    "board.int": "",
    "board.q": "[install]\n# type  setting  control  compare  help  text\nText  title  -  -  h  What is its name?\n"
               "[first-words]\n",
    "board.cpy": "[install]\nMkDir $(target)/www\nCopyFile $(current_dir)/files/* - $(target)/www\n"
                 "WFile $(target)/title title\nWFile $(target)/place current_dir\n"
                 "[first-words]\nMkDir $(target)/special\n",
    "files/a page.html": "<p>board</p>\n",
    "files/b.html": "",
}


def pack(kit, out, *options, **more):
    return run(REPOSITORY + "/scripts/pack-kit", "--program", static_program(), *options, kit, out, **more)


class PackedKit(Base):
    """Each run is made by the operator who `act` names."""

    who = {}

    def setUp(self):
        super().setUp()
        for name in ("target", "desk", "tmp"):
            os.mkdir(self.path(name))
            if self.who:
                os.chown(self.path(name), NOBODY, NOBODY)
        self.write_board({})

    def write_board(self, changes):
        shutil.rmtree(self.path("kit"), ignore_errors=True)
        files = {name: text.replace("[TARGET]", self.path("target")) for name, text in {**KIT, **changes}.items()}
        write_kit(self.path("kit"), files)

    def pack(self, *options):
        pack(self.path("kit"), self.path("board.run"), *options)

    def act(self, *arguments, typed="1\nOur Board\nn\n\n", umask=0o022, check=True):
        """Starts the packed kit in the folder desk/."""
        write(typed, self.folder, "typed")
        with open(self.path("typed"), encoding="utf-8") as answers:
            return run(self.path("board.run"), *arguments, stdin=answers, cwd=self.path("desk"), umask=umask,
                       env={"TMPDIR": self.path("tmp")}, check=check, **self.who)

    def in_tmp(self):
        return os.listdir(self.path("tmp"))

    def on_desk(self):
        return sorted(os.listdir(self.path("desk")))

    def test_it_installs_and_its_log_comes_to_the_working_directory(self):
        self.pack()
        done = self.act()
        self.assertIn("Welcome to the Board installer", done.stdout)
        self.assertIn("Success 13 bytes in ", done.stdout)
        self.assertEqual(done.stdout.splitlines()[-1], "Log: " + self.path("desk/board.log"))
        self.assertEqual(files_below(self.path("target")), {"www/a page.html", "www/b.html", "title", "place"})
        self.assertEqual(read(self.folder, "target/title").strip(), "Our Board")
        self.assertEqual(self.on_desk(), ["board.log"])
        self.assertIn("Our Board'", read(self.folder, "desk/board.log"))

    def test_nothing_stays_in_the_temporary_folder(self):
        self.pack()
        self.act()
        self.assertEqual(self.in_tmp(), [])
        place = read(self.folder, "target/place").strip()
        self.assertTrue(place.startswith(self.path("tmp/board.")), place)
        self.assertFalse(os.path.exists(place))

    def test_the_operators_umask_holds(self):
        self.pack()
        self.act(umask=0o027)
        self.assertEqual(mode_of(self.folder, "target/www/b.html"), 0o640)
        self.assertEqual(mode_of(self.folder, "target/www"), 0o750)

    def test_what_follows_two_dashes_goes_to_the_installer(self):
        self.pack()
        self.act("--", "-special", "first-words", "-automate")
        self.assertEqual(os.listdir(self.path("target")), ["special"])

    def test_the_exit_status_is_the_installers(self):
        self.pack()
        self.assertEqual(self.act().returncode, 0)
        for options in ([], ["--target", "board"]):
            done = self.act(*options, "--", "-special", check=False)
            self.assertEqual(done.returncode, 1)
            self.assertIn("Usage: install -special <tag>", done.stdout)

    def test_every_run_has_a_log_of_its_own_and_overwrites_and_follows_nothing(self):
        self.pack()
        write("mine", self.folder, "desk/board.log")
        os.symlink(self.path("target/trap"), self.path("desk/board-2.log"))
        self.act()
        done = self.act()
        self.assertEqual(self.on_desk(), ["board-2.log", "board-3.log", "board-4.log", "board.log"])
        self.assertEqual(read(self.folder, "desk/board.log"), "mine")
        self.assertFalse(os.path.lexists(self.path("target/trap")))
        self.assertIn("Log: " + self.path("desk/board-4.log"), done.stdout)

    def test_a_chosen_folder_stays_with_the_log_in_it_and_serves_again(self):
        self.pack()
        for _ in range(2):
            done = self.act("--target", "board")
            self.assertEqual(done.stdout.splitlines()[-1], "Log: " + self.path("desk/board/board.log"))
        self.assertEqual(self.on_desk(), ["board"])
        self.assertEqual(read(self.folder, "target/place").strip(), self.path("desk/board"))
        self.assertLessEqual(set(KIT) | {"board", "board.log"}, files_below(self.path("desk/board")))
        self.assertEqual(read(self.folder, "desk/board/board.log").count("Log file opened"), 2)
        self.assertEqual(self.in_tmp(), [])

    def test_the_author_can_choose_the_folder(self):
        self.pack("--into", "board")
        self.act()
        self.assertEqual(self.on_desk(), ["board"])
        self.assertEqual(read(self.folder, "target/place").strip(), self.path("desk/board"))

    def test_a_temporary_folder_that_holds_a_part_of_the_installation_is_kept_and_named(self):
        changes = {"[install]\nMkDir $(current_dir)/notes\n": ["notes"],
                   "[install]\nIni $(current_dir)/board.dat $(current_dir)/b.html\n": ["b.html"],
                   "[install]\nWFile $(current_dir)/files/b.html product\n": [],
                   "[install]\nRmFile $(current_dir)/files/b.html -\n": []}
        for script, made in changes.items():
            with self.subTest(script):
                self.write_board({"board.cpy": script})
                self.pack()
                done = self.act()
                (kept,) = self.in_tmp()
                self.assertIn("Kept: " + self.path("tmp", kept, "board") + " (", done.stdout)
                self.assertLessEqual({"board.log", "board.dat", *made}, set(os.listdir(self.path("tmp", kept, "board"))))
                self.assertEqual(mode_of(self.folder, "tmp", kept), 0o700)
                shutil.rmtree(self.path("tmp", kept))

    def test_an_interrupted_run_leaves_its_log(self):
        self.pack()
        with subprocess.Popen([self.path("board.run")], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, cwd=self.path("desk"), start_new_session=True,
                              env=dict(os.environ, TMPDIR=self.path("tmp")), **self.who) as process:
            shown = b""
            while b"What would you like to do" not in shown:
                piece = process.stdout.read1()
                self.assertNotEqual(piece, b"", shown)
                shown += piece
            os.killpg(process.pid, signal.SIGINT)
            rest = process.communicate(timeout=60)[0].decode()
        self.assertNotEqual(process.returncode, 0)
        self.assertIn("Log: " + self.path("desk/board.log"), rest)
        self.assertIn("Log file opened", read(self.folder, "desk/board.log"))
        self.assertEqual(self.in_tmp(), [])

    def test_it_says_what_is_in_it_and_finds_a_damage(self):
        self.pack()
        listed = self.act("--list").stdout
        for name in ("./board.dat", "./files/a page.html", "./board"):
            self.assertIn(" %s\n" % name, listed)
        with open(self.path("board.run"), "r+b") as file:
            file.seek(-1000, os.SEEK_END)
            file.write(b"damaged")
        done = self.act(check=False)
        self.assertNotEqual(done.returncode, 0)
        self.assertEqual(os.listdir(self.path("target")), [])


@unittest.skipUnless(ROOT, "only root can become another user; the class above has just run as an ordinary user")
class PackedKitOfAnOrdinaryUser(PackedKit):
    who = as_nobody()

    def test_where_the_working_directory_takes_no_log_it_stands_elsewhere(self):
        self.pack()
        os.chown(self.path("desk"), 0, 0)
        done = self.act()
        (log,) = self.in_tmp()
        self.assertEqual(done.stdout.splitlines()[-1], "Log: " + self.path("tmp", log))
        self.assertRegex(log, r"^board\.log\.\w{6}$")
        self.assertIn("Our Board'", read(self.folder, "tmp", log))
        self.assertEqual(os.stat(self.path("target/title")).st_uid, NOBODY)


class PackKit(Base):
    """What the author sees."""

    def setUp(self):
        super().setUp()
        write_kit(self.path("kit"), KIT)

    def refusal(self, *options, kit=None, out=None):
        done = pack(kit or self.path("kit"), out or self.path("out.run"), *options, check=False)
        self.assertEqual(done.returncode, 1, done.stdout)
        self.assertFalse(os.path.isfile(self.path("out.run")))
        return done.stdout.replace(self.folder, "[HERE]")

    def test_what_is_no_kit_is_refused_with_the_reason(self):
        write("", self.folder, "other/board.txt")
        write("", self.folder, "dotted/my.board.dat")
        write("", self.folder, "blank/my board.dat")
        rows = {
            "missing": "'[HERE]/missing' is not a folder",
            "kit/board.dat": "'[HERE]/kit/board.dat' is not a folder",
            "other": "'[HERE]/other' is no kit: it holds no settings file (NAME.dat)",
            "dotted": "'my.board' cannot be the name of a kit: use letters, digits, '_' and '-' only, no dot and no blank",
            "blank": "'my board' cannot be the name of a kit: use letters, digits, '_' and '-' only, no dot and no blank",
        }
        for kit, text in rows.items():
            self.assertEqual(self.refusal(kit=self.path(kit)), "pack-kit: %s\n" % text)

    def test_a_kit_that_lacks_scripts_is_refused_and_all_of_them_are_named(self):
        for name in ("board.int", "board.cpy"):
            os.remove(self.path("kit", name))
        self.assertEqual(self.refusal(), "pack-kit: '[HERE]/kit' is no whole kit: it lacks board.int board.cpy "
                                         "(an empty file will do)\n")

    def test_of_several_names_the_author_chooses(self):
        write("data", self.folder, "kit/cities.dat")
        self.assertEqual(self.refusal(), "pack-kit: '[HERE]/kit' holds several settings files (board.dat cities.dat); "
                                         "say with --name which is the kit's\n")
        self.assertIn("lacks cities.int cities.q cities.cpy", self.refusal("--name", "cities"))
        self.assertIn("lacks none.dat none.int none.q none.cpy", self.refusal("--name", "none"))
        pack(self.path("kit"), self.path("out.run"), "--name", "board")
        self.assertTrue(os.access(self.path("out.run"), os.X_OK))

    def test_places_that_are_taken_are_refused(self):
        os.mkdir(self.path("kit/board"))
        self.assertEqual(self.refusal(), "pack-kit: '[HERE]/kit/board' is not a file: this is the place of the program\n")
        os.rmdir(self.path("kit/board"))
        write("", self.folder, "kit/.start")
        self.assertEqual(self.refusal(), "pack-kit: '[HERE]/kit' holds a file '.start', a name that is needed here\n")

    def test_an_output_that_cannot_be_is_refused(self):
        rows = {
            "kit/out.run": "'[HERE]/kit/out.run' lies in the kit's folder and would become a part of the kit",
            "kit": "'[HERE]/kit' is a folder; name the file to write",
            "no/out.run": "the folder of '[HERE]/no/out.run' does not exist",
        }
        for out, text in rows.items():
            self.assertEqual(self.refusal(out=self.path(out)), "pack-kit: %s\n" % text)

    def test_a_command_line_that_is_none_is_refused(self):
        for arguments in ([], ["a"], ["a", "b", "c"], ["--name"], ["--nonsense", "a", "b"], ["", "b"]):
            done = run(REPOSITORY + "/scripts/pack-kit", *arguments, check=False)
            self.assertEqual(done.returncode, 1)
            self.assertIn("usage: pack-kit ", done.stdout)

    def test_the_same_kit_gives_the_same_bytes(self):
        os.mkdir(self.path("out"))
        for number, folder in enumerate(("kit", "another place/kit")):
            write_kit(self.path(folder), dict(sorted(KIT.items(), reverse=number == 1)))
            pack(self.path(folder), self.path("out", str(number)), env={"SOURCE_DATE_EPOCH": "1700000000"})
        self.assertEqual(len(set(sums_of(self.path("out")).values())), 1)
        self.assertNotIn(self.folder, read(self.folder, "out/0"))

    def test_the_authors_logs_are_left_out(self):
        for name in ("board.log", "board.log0", "board.log4", "kept.log"):
            write("", self.folder, "kit", name)
        pack(self.path("kit"), self.path("out.run"))
        listed = run(self.path("out.run"), "--list").stdout
        self.assertNotIn("board.log", listed)
        self.assertIn("kept.log", listed)

    def test_the_kits_own_program_is_taken_unless_another_is_named(self):
        write("#!/bin/sh\necho own\n", self.folder, "kit/board")
        run(REPOSITORY + "/scripts/pack-kit", self.path("kit"), self.path("out.run"))
        self.assertIn("own", run(self.path("out.run")).stdout.splitlines())
        pack(self.path("kit"), self.path("out.run"))
        self.assertIn("Installer version 1.0d", run(self.path("out.run"), "--", "-version").stdout.splitlines())


class PackedExample(Base):
    def test_the_example_kit_is_installed_upgraded_and_removed_from_one_file(self):
        pack(REPOSITORY + "/examples/noticeboard", self.path("noticeboard.run"), "--into", "noticeboard")
        for arguments, words in (([], "Success"), ([], "Success"), (["-special", "remove"], "")):
            done = run(self.path("noticeboard.run"), "--", *arguments, "-automate", cwd=self.folder)
            self.assertIn(words, done.stdout)
            page = self.path("noticeboard/www/noticeboard/index.html")
            self.assertEqual(os.path.exists(page), not arguments, done.stdout)
        self.assertTrue(os.path.exists(self.path("noticeboard/setup.log")))


if __name__ == "__main__":
    unittest.main(verbosity=2)
