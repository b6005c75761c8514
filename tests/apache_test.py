#!/usr/bin/python3
"""The example kit under a real web server: installed by root where an Apache serves it, used, upgraded and removed.

The server's tree stands in /opt/apache, one of the places in which the installer looks for an httpd.conf. The test runs
in namespaces of its own: /opt is a file system in memory, the network is a loopback device and nothing else, and every
process is gone when the test ends.

Run by ctest; by hand, as root: INSTALLER=build/dev/installer /usr/bin/python3 tests/apache_test.py
Pictures of the pages are left in the folder ARTEFACTS (build/artefacts).
"""

import grp
import os
import pwd
import re
import shutil
import stat
import struct
import subprocess
import sys
import tempfile
import time
import unittest
import urllib.error
import urllib.parse
import urllib.request
import zlib

REPOSITORY = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
INSTALLER = os.path.abspath(os.environ["INSTALLER"])
ARTEFACTS = os.path.abspath(os.environ.get("ARTEFACTS", os.path.join(REPOSITORY, "build", "artefacts")))

APACHE = "/usr/sbin/apache2"
MODULES = "/usr/lib/apache2/modules"
BROWSER = "/usr/bin/chromium"
TREE = "/opt/apache"
KIT = "/opt/kit"
URL = "http://127.0.0.1:8080"
USER, GROUP = "www-data", "www-data"

CONFIGURATION = f"""# As an administrator would write it: blocks, comments, quotes, names in any case.
ServerRoot "{TREE}"
ServerName localhost
Listen 127.0.0.1:8080
PidFile "{TREE}/logs/httpd.pid"
ErrorLog "{TREE}/logs/error_log"
TypesConfig "{TREE}/conf/mime.types"
LoadModule mpm_prefork_module {MODULES}/mod_mpm_prefork.so
LoadModule authz_core_module {MODULES}/mod_authz_core.so
LoadModule alias_module {MODULES}/mod_alias.so
LoadModule mime_module {MODULES}/mod_mime.so
LoadModule dir_module {MODULES}/mod_dir.so
LoadModule cgi_module {MODULES}/mod_cgi.so
StartServers 1
# User nobody
user {USER}
Group {GROUP}
DocumentRoot "{TREE}/htdocs"
DirectoryIndex index.html
<Directory "{TREE}/htdocs">
    Require all granted
</Directory>
ScriptAlias /cgi-bin/ "{TREE}/cgi-bin/"
<Directory "{TREE}/cgi-bin">
    Require all granted
</Directory>
"""

SITE = {  # what stands in the server's tree before, with its mode
    "conf/httpd.conf": (CONFIGURATION, 0o644),
    "conf/mime.types": ("text/html html\ntext/css css\ntext/plain txt\n", 0o644),
    "htdocs/index.html": ("<h1>It works</h1>\n", 0o644),
    "cgi-bin/hello.cgi": ("#!/bin/sh\nprintf 'Content-Type: text/plain\\n\\nhello\\n'\n", 0o755),
}

# The answers of an operator who puts the board into the server that was found, and gives it to the server's user.
ANSWERS = ["1",  # install
           "y",  # into the web server
           "", "",  # its document root, its folder of CGI programs
           "board", "", "Bob's & Co", "", "/opt/notices", "/opt/postings.log",
           "y", "", "",  # to the server's user and group
           "n", ""]  # no change of the answers; the end


def why_not():
    """The reason for which this test cannot run here, or none."""
    if os.getuid() != 0:
        return "only root can start a web server that changes its user"
    missing = [tool for tool in (APACHE, MODULES + "/mod_cgi.so") if not os.path.exists(tool)]
    missing += [tool for tool in ("ip", "unshare") if shutil.which(tool) is None]
    if missing:
        return "these are missing, see scripts/setup apache: " + ", ".join(missing)
    if any((path + "/").startswith("/opt/") for path in (REPOSITORY, INSTALLER, ARTEFACTS)):
        return "this tree lies in /opt, which the test replaces"
    if subprocess.run([*NAMESPACES, "mount", "-t", "tmpfs", "none", "/opt"], capture_output=True).returncode != 0:
        return "namespaces are refused here"
    return None


NAMESPACES = ["unshare", "--mount", "--net", "--pid", "--fork", "--kill-child", "--mount-proc"]


def read(*path):
    with open(os.path.join(*path), encoding="utf-8") as file:
        return file.read()


def tree(top):
    """Type, mode, owner, group and content of everything below a folder, but for the server's own logs."""
    found = {}
    for here, folders, files in os.walk(top):
        for path in [here] + [os.path.join(here, name) for name in files]:
            if path.startswith(TREE + "/logs/"):
                continue
            what = os.lstat(path)
            found[path] = (oct(what.st_mode), what.st_uid, what.st_gid, None if path == here else read(path))
    return found


def fetch(path, **fields):
    """Status, type and text of a page; fields are posted as a form."""
    form = urllib.parse.urlencode(fields).encode() if fields else None
    try:
        with urllib.request.urlopen(URL + path, form, timeout=20) as reply:
            return reply.status, reply.headers.get_content_type(), reply.read().decode()
    except urllib.error.HTTPError as refused:
        with refused:
            return refused.code, refused.headers.get_content_type(), refused.read().decode()


def pixels(path):
    """The rows of an 8-bit RGB or RGBA picture (PNG), each a list of (red, green, blue)."""
    with open(path, "rb") as file:
        data = file.read()
    at, packed = 8, b""
    while at < len(data):
        size, kind = struct.unpack(">I4s", data[at:at + 8])
        body = data[at + 8:at + 8 + size]
        if kind == b"IHDR":
            width, height, depth, colour = struct.unpack(">IIBB", body[:10])
            assert depth == 8 and colour in (2, 6), (depth, colour)
        packed += body if kind == b"IDAT" else b""
        at += size + 12
    step = 3 if colour == 2 else 4
    raw, line, above, rows = zlib.decompress(packed), width * step, bytearray(width * step), []
    for number in range(height):
        start = number * (line + 1)
        row = bytearray(raw[start + 1:start + 1 + line])
        undo_filter(raw[start], row, above, step)
        rows.append([tuple(row[i:i + 3]) for i in range(0, line, step)])
        above = row
    return rows


def undo_filter(kind, row, above, step):
    for i in range(len(row)):
        left = row[i - step] if i >= step else 0
        corner = above[i - step] if i >= step else 0
        if kind == 4:
            guess = left + above[i] - corner
            nearest = min((abs(guess - value), order, value) for order, value in enumerate((left, above[i], corner)))[2]
        else:
            nearest = (0, left, above[i], (left + above[i]) // 2)[kind]
        row[i] = (row[i] + nearest) & 255


class Apache(unittest.TestCase):
    def setUp(self):
        subprocess.run(["mount", "-t", "tmpfs", "-o", "mode=755", "none", "/opt"], check=True)
        self.addCleanup(subprocess.run, ["umount", "/opt"], check=True)
        os.umask(0o022)
        os.makedirs(TREE + "/logs")
        for name, (text, mode) in SITE.items():
            path = os.path.join(TREE, name)
            os.makedirs(os.path.dirname(path), exist_ok=True)
            with open(path, "w", encoding="utf-8") as file:
                file.write(text)
            os.chmod(path, mode)
        shutil.copytree(os.path.join(REPOSITORY, "examples", "noticeboard"), KIT)
        shutil.copy(INSTALLER, KIT + "/setup")
        self.start_server()

    def start_server(self):
        # In a session of its own, for at its end it sends a signal to its whole process group.
        server = subprocess.Popen([APACHE, "-f", TREE + "/conf/httpd.conf", "-D", "FOREGROUND"], start_new_session=True)
        self.addCleanup(server.wait, timeout=60)
        self.addCleanup(server.terminate)
        for _ in range(200):
            try:
                fetch("/")
                return
            except urllib.error.URLError:
                self.assertIsNone(server.poll(), "Apache has ended")
                time.sleep(0.05)
        self.fail("Apache does not answer")

    def setup(self, *words, answers):
        """Starts the installer; gives what it printed."""
        run = subprocess.run(["./setup", *words], cwd=KIT, input="\n".join(answers) + "\n", capture_output=True,
                             encoding="utf-8", timeout=60, check=True)
        self.assertEqual(run.stderr, "")
        return run.stdout

    def install(self):
        shown = self.setup(answers=ANSWERS)
        self.assertIn("]\nSuccess ", shown)
        self.assertNotIn("ERROR", shown)
        return " ".join(shown.split())  # long prompts are wrapped

    def kept(self):
        return {name: read("/opt/notices", name) for name in os.listdir("/opt/notices")}

    def owned(self, path):
        what = os.lstat(path)
        return (pwd.getpwuid(what.st_uid).pw_name, grp.getgrgid(what.st_gid).gr_name, oct(stat.S_IMODE(what.st_mode)))

    def test_the_servers_folders_user_and_group_are_found_in_its_configuration(self):
        shown = self.install()
        self.assertIn(f"A web server was found, with pages in {TREE}/htdocs and programs in {TREE}/cgi-bin/.", shown)
        self.assertIn(f"(the document root) [{TREE}/htdocs]?", shown)
        self.assertIn(f"CGI programs [{TREE}/cgi-bin/]?", shown)
        self.assertIn(f"Which user is that [{USER}]?", shown)
        self.assertIn(f"And which group [{GROUP}]?", shown)
        self.assertIn(f"Httpd conf is [{TREE}/conf/httpd.conf]", read(KIT, "setup.log"))

    def test_programs_and_notices_get_the_servers_owner_and_group_and_their_modes(self):
        self.install()
        expected = {
            "cgi-bin/board": ("root", GROUP, "0o750"),
            "cgi-bin/board/list.cgi": ("root", GROUP, "0o750"),
            "cgi-bin/board/post.cgi": ("root", GROUP, "0o750"),
            "cgi-bin/board/board.sh": ("root", GROUP, "0o640"),
            "cgi-bin/board/noticeboard.conf": ("root", GROUP, "0o640"),
            "htdocs/board": ("root", "root", "0o755"),
            "htdocs/board/index.html": ("root", "root", "0o644"),
            "../notices": (USER, GROUP, "0o755"),
            "../notices/board.id": (USER, GROUP, "0o644"),
            "../postings.log": (USER, GROUP, "0o644"),
        }
        self.assertEqual({path: self.owned(os.path.join(TREE, path)) for path in expected}, expected)

    def test_the_server_serves_the_installed_pages(self):
        self.install()
        for name, kind in (("index.html", "text/html"), ("", "text/html"), ("board.css", "text/css"),
                           ("rules.txt", "text/plain"), ("help/", "text/html"), ("help/contact.html", "text/html")):
            with self.subTest(page=name):
                file = name + "index.html" if name in ("", "help/") else name
                self.assertEqual(fetch("/board/" + name), (200, kind, read(TREE, "htdocs/board", file)))
        self.assertEqual(fetch("/board/opening-hours.draft")[0], 404)

    def test_every_link_of_the_front_page_leads_somewhere(self):
        self.install()
        links = re.findall(r'href="([^"]*)"', fetch("/board/")[2])
        self.assertEqual(len(links), 4)
        for link in links:
            with self.subTest(link=link):
                self.assertEqual(fetch(urllib.parse.urljoin("/board/", link))[0], 200)

    def test_the_settings_of_the_programs_are_not_served(self):
        self.install()
        for name in ("noticeboard.conf", "board.sh"):
            with self.subTest(file=name):
                status, _, text = fetch("/cgi-bin/board/" + name)
                self.assertGreaterEqual(status, 400)
                self.assertNotIn("data_dir", text)

    def test_a_notice_that_is_posted_is_kept_for_the_servers_user_and_read_back(self):
        self.install()
        self.assertIn("There are no notices yet.", fetch("/cgi-bin/board/list.cgi")[2])
        action = re.search(r'action="([^"]*)"', fetch("/board/")[2])[1]
        status, kind, text = fetch(action, name="Ann", text="Cat <found>,\nanswers to Émile")
        self.assertEqual((status, kind), (200, "text/html"))
        self.assertIn("Thank you", text)
        (name,) = self.kept().keys() - {"board.id"}
        self.assertEqual(self.owned("/opt/notices/" + name)[:2], (USER, GROUP))
        self.assertIn(name, read("/opt/postings.log"))
        status, kind, text = fetch("/cgi-bin/board/list.cgi")
        self.assertEqual((status, kind), (200, "text/html"))
        self.assertIn("<title>Bob&#39;s &amp; Co</title>", text)
        self.assertIn("<h2>Ann</h2>", text)
        self.assertIn("<p>Cat &lt;found&gt;,\nanswers to Émile\n</p>", text)

    def test_the_rest_of_the_site_is_served_as_before(self):
        before = fetch("/"), fetch("/cgi-bin/hello.cgi")
        self.assertEqual(before[1], (200, "text/plain", "hello\n"))
        self.install()
        self.assertEqual((fetch("/"), fetch("/cgi-bin/hello.cgi")), before)

    def test_an_upgrade_brings_the_programs_back_and_keeps_the_notices(self):
        self.install()
        fetch("/cgi-bin/board/post.cgi", name="Ann", text="before the upgrade")
        notices, postings = self.kept(), read("/opt/postings.log")
        owners = {name: self.owned(os.path.join(TREE, "cgi-bin/board", name))
                  for name in os.listdir(TREE + "/cgi-bin/board")}
        os.remove(TREE + "/cgi-bin/board/list.cgi")
        self.assertEqual(fetch("/cgi-bin/board/list.cgi")[0], 404)
        self.assertIn("]\nSuccess ", self.setup(answers=["", "", "n", "n", "n", ""]))
        self.assertEqual((self.kept(), read("/opt/postings.log")), (notices, postings))
        self.assertEqual({name: self.owned(os.path.join(TREE, "cgi-bin/board", name)) for name in owners}, owners)
        self.assertIn("before the upgrade", fetch("/cgi-bin/board/list.cgi")[2])
        self.assertIn("Thank you", fetch("/cgi-bin/board/post.cgi", name="Bob", text="after it")[2])

    def test_a_removal_leaves_the_servers_tree_as_it_was(self):
        before = tree(TREE)
        self.install()
        fetch("/cgi-bin/board/post.cgi", name="Ann", text="soon gone")
        self.assertNotEqual(tree(TREE), before)
        self.assertIn("]\n Success ", self.setup("-special", "remove", answers=["n", "y", "n", ""]))
        self.assertEqual(tree(TREE), before)
        self.assertEqual(sorted(os.listdir("/opt")), ["apache", "kit"])
        self.assertEqual((fetch("/board/")[0], fetch("/cgi-bin/board/list.cgi")[0]), (404, 404))

    def test_a_removal_can_keep_the_notices_for_the_next_board(self):
        self.install()
        fetch("/cgi-bin/board/post.cgi", name="Ann", text="still here")
        notices = self.kept()
        self.setup("-special", "remove", answers=["y", "y", "n", ""])
        self.assertEqual(self.kept(), notices)
        # Instead of asking for an empty folder, the installer asks whether to show the notices again.
        self.assertIn("]\nSuccess ", self.setup(answers=[*ANSWERS[:8], "y", *ANSWERS[9:]]))
        self.assertIn("still here", fetch("/cgi-bin/board/list.cgi")[2])

    def test_an_automated_installation_does_not_touch_the_server(self):
        before = tree(TREE)
        self.assertIn("]\nSuccess ", self.setup("-automate", answers=[]))
        self.assertEqual(tree(TREE), before)

    def browse(self, page, picture, size="900,760"):
        """Shows a page in a browser: the file that the picture went to, and the page's elements as text."""
        os.makedirs(ARTEFACTS, exist_ok=True)
        file = os.path.join(ARTEFACTS, picture)
        if os.path.exists(file):
            os.remove(file)
        with tempfile.TemporaryDirectory() as profile:
            run = subprocess.run(
                [BROWSER, "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                 "--disable-background-networking", "--disable-component-update", "--disable-sync",
                 "--disable-dev-shm-usage", "--hide-scrollbars", "--user-data-dir=" + profile, "--window-size=" + size,
                 "--screenshot=" + file, "--dump-dom", URL + page],
                capture_output=True, encoding="utf-8", timeout=120, check=True, env={**os.environ, "HOME": profile})
        return file, run.stdout

    @unittest.skipUnless(os.path.exists(BROWSER), "there is no " + BROWSER)
    def test_a_browser_shows_the_board(self):
        self.install()
        for author, text in (("Ann", "Found: a grey cat, answers to Émile. He is in the kitchen."),
                             ("The choir", "We sing on Thursdays at eight, in the room above the bakery.\nNew voices are "
                                           "welcome, no notes needed."),
                             ("Jo, flat 7", "Who borrowed the ladder from the cellar? The cherries are ripe.")):
            self.assertEqual(fetch("/cgi-bin/board/post.cgi", name=author, text=text)[0], 200)
        file, elements = self.browse("/cgi-bin/board/list.cgi", "noticeboard-list.png")
        self.assertIn("Found: a grey cat, answers to Émile.", elements)
        colours = [colour for row in pixels(file) for colour in row]
        # The colours of the style sheet: it was found, and the wall, the cards and the rule above each are painted.
        for colour, share in (((0xed, 0xe4, 0xd3), 0.2), ((0xff, 0xfd, 0xf8), 0.1), ((0xb4, 0x45, 0x1a), 0.005)):
            with self.subTest(colour=colour):
                self.assertGreater(colours.count(colour) / len(colours), share)


if __name__ == "__main__":
    if "IN_NAMESPACES" not in os.environ:
        reason = why_not()
        if reason:
            print("skipped: " + reason)
            sys.exit(77)
        os.environ["IN_NAMESPACES"] = "yes"
        os.execvp(NAMESPACES[0], [*NAMESPACES, sys.executable, os.path.abspath(__file__), *sys.argv[1:]])
    subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
    unittest.main()
