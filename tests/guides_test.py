#!/usr/bin/python3
"""Plays the examples of docs/kit-authors-guide.md, docs/operators-guide.md and README.md with the real program.

Run by ctest; by hand:
    INSTALLER=build/dev/installer /usr/bin/python3 tests/guides_test.py [-k WORD]

An example begins with one of these comments, which no reader sees, and goes on to the next one:

    <!-- an empty folder -->    nothing is there but what the example shows
    <!-- a fresh kit -->        the program, as `setup`, and empty scripts (setup.q with the line "[install]")
    <!-- the guest book -->     the program, and the kit of the first example of the author's guide
    <!-- no example -->         what follows is not played
    <!-- needs root -->         this example is skipped for an ordinary user
    <!-- needs no httpd.conf --> ... where the host has such a file

Its fenced blocks are carried out in their order, in one folder, which the text calls /home/ann/kit (readers do not see those between "<!--" and "-->"):

    ```setup.dat     a file of that name is written; one that begins with "/" stands in a private /opt
    ```console       lines "$ command" are run by the shell, the lines below are the output, byte for byte; [..] stands
                     for any text within its line, a first line [...] for all lines before; «text» is typed
    ```log           lines that setup.log holds in this order, others between them, without time and process id
    ```tree www      everything that stands below www, folders with a "/" at the end
"""

import importlib.machinery
import importlib.util
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

SOURCE = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
INSTALLER = os.path.abspath(os.environ["INSTALLER"])
SHOWN = "/home/ann/kit"  # as long as the real folder's path, so that prompts are wrapped alike
HTTPD_CONF = ("/etc/apache/httpd.conf", "/etc/httpd/conf/httpd.conf", "/etc/httpd/httpd.conf",
              "/usr/local/apache/conf/httpd.conf", "/usr/local/httpd/conf/httpd.conf",
              "/usr/local/apache/etc/httpd.conf", "/usr/internet/httpd/public/conf/httpd.conf",
              "/opt/apache/conf/httpd.conf")
FRESH_KIT = {"setup.dat": "", "setup.int": "", "setup.q": "[install]\n"}
BEGINNINGS = ("an empty folder", "a fresh kit", "the guest book", "no example")
NEEDS = ("needs root", "needs no httpd.conf")


def load_run_scenario():
    """The scenario runner, for its comparing; it is a command, so its file has no extension."""
    sys.dont_write_bytecode = True
    path = os.path.join(SOURCE, "tests", "run_scenario")
    loader = importlib.machinery.SourceFileLoader("run_scenario", path)
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader("run_scenario", loader))
    loader.exec_module(module)
    return module


scenario = load_run_scenario()


class Malformed(Exception):
    """The document breaks the rules for examples."""


# Reading.

class Example:
    def __init__(self, beginning, line, title):
        self.beginning, self.line, self.title = beginning, line, title
        self.needs, self.blocks = [], []  # a block is (line, info, text)


def examples_of(document):
    """The examples of a document's text, in order."""
    examples, title, fence = [], "", None
    for number, line in enumerate(document.split("\n"), 1):
        if fence is not None:
            fence = inside(fence, line, examples)
        elif line.startswith("```"):
            fence = [number, line, []]
        elif line.startswith("#"):
            title = line.strip("# ")
        elif line.startswith("<!-- ") and line.endswith(" -->"):
            take_comment(line[5:-4], number, title, examples)
    if fence is not None:
        raise Malformed("line %d: the block has no end" % fence[0])
    for example in examples:
        check(example)
    return [example for example in examples if example.beginning != "no example"]


def inside(fence, line, examples):
    """One line within a block; the block goes to the last example when it ends."""
    number, opening, lines = fence
    marks = re.match("`+", opening).group()
    if line != marks:
        lines.append(line + "\n")
        return fence
    if not examples:
        raise Malformed("line %d: a block that belongs to no example" % number)
    examples[-1].blocks.append((number, opening[len(marks):], "".join(lines)))
    return None


def take_comment(words, number, title, examples):
    if words in BEGINNINGS:
        examples.append(Example(words, number, title))
    elif words in NEEDS and examples:
        examples[-1].needs.append(words)
    else:
        raise Malformed("line %d: unknown comment '%s'" % (number, words))


def check(example):
    if example.beginning == "no example":
        return
    kinds = [kind_of(number, info) for number, info, _ in example.blocks]
    if "file" not in kinds and "console" not in kinds:
        raise Malformed("line %d: an example without a block" % example.line)
    if kinds and kinds[-1] == "file":
        raise Malformed("line %d: a file that is never used" % example.blocks[-1][0])


def kind_of(number, info):
    if info in ("console", "log"):
        return info
    if info.startswith("tree "):
        return "tree"
    if " " not in info and ("." in info or "/" in info):
        return "file"
    raise Malformed("line %d: unknown kind of block '%s'" % (number, info))


def commands_of(text):
    """The commands of a console block: (command, what is typed, output)."""
    pieces = re.split(r"^\$ (.*)\n", text, flags=re.M)
    if pieces[0]:
        raise Malformed("a console block must begin with '$ '")
    for command, output in zip(pieces[1::2], pieces[2::2]):
        typed = "".join(answer + "\n" for answer in re.findall("«(.*?)»\n", output))
        yield command, typed, re.sub("«.*?»\n", "", output)


# Playing.

class Folder:
    """A folder in which one example is played."""

    def __init__(self, example):
        self.path = tempfile.mkdtemp(prefix="", dir="/tmp")
        self.outside = tempfile.mkdtemp()  # the folder with the program, and what the private /opt holds
        assert len(self.path) == len(SHOWN)
        os.mkdir(os.path.join(self.outside, "bin"))
        shutil.copy(INSTALLER, os.path.join(self.outside, "bin", "installer"))
        self.private = any(info.startswith("/") for _, info, _ in example.blocks)
        if example.beginning != "an empty folder":
            shutil.copy(INSTALLER, os.path.join(self.path, "setup"))
            for name, text in (guest_book() if example.beginning == "the guest book" else FRESH_KIT).items():
                self.write(name, text)

    def remove(self):
        for path in (self.path, self.outside):
            scenario.remove_tree(path)

    def real(self, text):
        return text.replace(SHOWN, self.path)

    def write(self, name, text):
        path = os.path.join(self.outside if name.startswith("/opt/") else self.path, name.lstrip("/"))
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="utf-8") as file:
            file.write(self.real(text))

    def run(self, command, typed):
        words = ["/bin/sh", "-c", self.real(command)]
        if self.private:
            words = ["unshare", "-rm", "/bin/sh", "-c", 'mount --bind "$0" /opt && exec "$@"',
                     os.path.join(self.outside, "opt")] + words
        sanitizers = {key: value for key, value in os.environ.items() if key.endswith("SAN_OPTIONS")}
        done = subprocess.run(words, cwd=self.path, input=self.real(typed).encode(), stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, timeout=60, umask=0o022,
                              env={"PATH": self.outside + "/bin:/usr/bin:/bin", "HOME": self.path, "LC_ALL": "C",
                                   "TZ": "UTC", **sanitizers})
        return done.stdout.replace(self.path.encode(), SHOWN.encode())

    def log_lines(self):
        with open(os.path.join(self.path, "setup.log"), "rb") as file:
            content = file.read().replace(self.path.encode(), SHOWN.encode())
        return [re.sub(rb"^.{20} \[\d+\] ", b"", line) for line in content.split(b"\n")]

    def tree(self, top):
        found = []
        for name in scenario.walk(os.path.join(self.path, top)):
            path = os.path.join(self.path, top, name)
            found.append(name + ("/" if os.path.isdir(path) and not os.path.islink(path) else ""))
        return found


def guest_book():
    tutorial = examples_of(read("docs", "kit-authors-guide.md"))[0]
    return {info: text for number, info, text in tutorial.blocks if kind_of(number, info) == "file"}


def mismatch(expected, actual):
    """What is wrong with the output of a command, or null. A missing newline at its end is not."""
    if actual and not actual.endswith(b"\n"):
        actual += b"\n"
    if expected and not expected.endswith(b"\n"):
        expected += b"\n"
    if expected.startswith(b"[...]\n"):
        expected = expected[len(b"[...]\n"):]
        lines = actual.splitlines(keepends=True)
        actual = b"".join(lines[-len(expected.splitlines()):])
    return None if scenario.fits(expected, actual) else scenario.difference("output", expected, actual)


def unmet_need(example):
    private = any(info.startswith("/") for _, info, _ in example.blocks)
    if "needs root" in example.needs and os.getuid() != 0:
        return "needs root"
    if (private or "needs no httpd.conf" in example.needs) and any(map(os.path.exists, HTTPD_CONF)):
        return "this host has an httpd.conf of its own"
    trial = ["unshare", "-rm", "mount", "--bind", "/tmp", "/opt"]
    if private and subprocess.run(trial, stderr=subprocess.DEVNULL, check=False).returncode != 0:
        return "this host grants no private mounts"
    return None


def play(test, example):
    need = unmet_need(example)
    if need:
        test.skipTest(need)
    folder = Folder(example)
    test.addCleanup(folder.remove)
    for number, info, text in example.blocks:
        complaint = {"file": play_file, "console": play_console, "log": play_log,
                     "tree": play_tree}[kind_of(number, info)](folder, info, text)
        if complaint:
            test.fail("line %d: %s" % (number, complaint))


def play_file(folder, info, text):
    folder.write(info, text)


def play_console(folder, _, text):
    for command, typed, expected in commands_of(text):
        complaint = mismatch(expected.encode(), folder.run(command, typed))
        if complaint:
            return "$ %s\n%s" % (command, complaint)
    return None


def play_log(folder, _, text):
    lost = scenario.compare_log(text.encode().splitlines(), folder.log_lines())
    return "the log lacks, or has not in this order: %s" % lost.decode() if lost is not None else None


def play_tree(folder, info, text):
    actual = folder.tree(info.partition(" ")[2])
    return mismatch(text.encode(), "".join(name + "\n" for name in actual).encode())


def read(*path):
    with open(os.path.join(SOURCE, *path), encoding="utf-8") as file:
        return file.read()


# The documents: every example is a case of its own.

def cases_of(*path, begin="", end=""):
    """A class with a case for each example of a document, or of the part of it from one text to another."""
    def case(example):
        return lambda self: play(self, example)

    document = read(*path)
    before, document = document[:document.index(begin)], document[document.index(begin):]
    document = "\n" * before.count("\n") + document[:document.index(end) if end else None]
    members, name = {}, re.sub(r"\W", "_", os.path.splitext(path[-1])[0])
    for example in examples_of(document):
        title = re.sub(r"\W+", "_", example.title.lower()).strip("_")
        members["test_line_%04d_%s" % (example.line, title)] = case(example)
    return type(name, (unittest.TestCase,), members)


AuthorsGuide = cases_of("docs", "kit-authors-guide.md")
OperatorsGuide = cases_of("docs", "operators-guide.md")
Readme = cases_of("README.md", begin="## A kit\n", end="## The command line\n")


# What the documents must not leave out.

KEYWORDS = {"setup.int": "init.cpp", "setup.q": "quest.cpp", "setup.cpy": "copy.cpp"}
ROW = re.compile(r'^    \{"(\w+)", (?:I\w+|Q\w+|Cpy\w+|MkDir|Rename|Rm\w+|Exist|Ch\w+|Error|[WR]File), ', re.M)
MESSAGE = re.compile(r'\b(?:emsg|cerror|file_error|quest_seterror|init_seterror)\(\s*(?:[^";]*\? )?"((?:[^"\\]|\\.)+)"'
                     r'(?: : "([^"]+)")?|"(Missing [^"]+)"')
# Of operations that no installation comes to: moving, settings files of programs, exhausted memory.
NOT_OF_A_KIT = re.compile(r"^%s$|moved|vhost|Ini association|Ini error|Memory allocation|symlink")
REPORTERS = ("init.cpp", "quest.cpp", "copy.cpp", "file.cpp", "shared.cpp", "ini.cpp", "installer.cpp")


def messages_of(source):
    found = [text for texts in MESSAGE.findall(read("installer", source)) for text in texts if text]
    return [text for text in found if not NOT_OF_A_KIT.search(text)]


class Completeness(unittest.TestCase):
    def test_every_keyword_has_a_section_in_the_chapter_of_its_script(self):
        guide = read("docs", "kit-authors-guide.md")
        chapters = dict(re.findall(r"^## `(setup\.\w+)`.*?\n(.*?)(?=^## )", guide, re.M | re.S))
        for script, source in KEYWORDS.items():
            keywords = ROW.findall(read("installer", source))
            self.assertGreaterEqual(len(keywords), 9)
            for keyword in keywords:
                with self.subTest(script=script, keyword=keyword):
                    self.assertRegex(chapters[script], r"(?m)^### .*`%s`" % keyword)

    def test_every_keyword_is_in_the_manual_page(self):
        page = read("docs", "man", "installer-kit.5")
        for source in KEYWORDS.values():
            for keyword in ROW.findall(read("installer", source)):
                with self.subTest(keyword):
                    self.assertRegex(page, r"(?m)^\.It Ic .*\b%s\b" % keyword)

    def test_every_message_of_the_scripts_is_explained(self):
        guide = read("docs", "kit-authors-guide.md")
        chapter = guide[guide.index("\n## Messages"):]
        for source in REPORTERS:
            self.assertTrue(messages_of(source), source)
            for message in messages_of(source):
                with self.subTest(message):
                    shape = re.sub(r"(?:, )?%s$", "", message).replace("->'%s',", "->'%s'")
                    pattern = r"[^|`]+?".join(map(re.escape, re.split("%[sd]", shape)))
                    self.assertTrue(re.search("`" + pattern, chapter), "docs/kit-authors-guide.md, Messages: no line for it")


def anchors_of(document):
    """The names of the headings, as they are linked to."""
    headings = re.findall(r"^#+ (.*)", document, re.M)
    return {re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-") for heading in headings}


class Links(unittest.TestCase):
    def test_every_link_leads_to_a_heading_or_a_file(self):
        for path in ["README.md"] + sorted("docs/" + name for name in os.listdir(os.path.join(SOURCE, "docs"))):
            if path.endswith(".md"):
                self.check(path, re.findall(r"\]\(([^)\s]+)\)", read(path)))

    def check(self, path, links):
        for link in links:
            file, _, anchor = link.partition("#")
            target = os.path.join(os.path.dirname(path), file) if file else path
            if "://" in link:
                continue
            with self.subTest(path, link=link):
                self.assertTrue(os.path.exists(os.path.join(SOURCE, target)))
                self.assertTrue(not anchor or anchor in anchors_of(read(target)))


class Rules(unittest.TestCase):
    """What the reader of documents refuses, so that no example is passed over."""

    def test_unknown_blocks_and_unused_files_are_refused(self):
        begun = "<!-- a fresh kit -->\n"
        for text in ("```console\n```", begun + "```\n```", begun + "```sh\n```", begun + "```a.txt\n```",
                     begun + "```console\n", begun + "no block", "<!-- a fresh kiln -->", "<!-- needs root -->"):
            with self.subTest(text), self.assertRaises(Malformed):
                examples_of(text)

    def test_a_wrong_output_is_told(self):
        self.assertIsNone(mismatch(b"[...]\nb [..]\n", b"a\nb 1"))
        for expected, actual in ((b"a\n", b"b\n"), (b"a\n", b""), (b"", b"a\n"), (b"[...]\nb\n", b"b\nc\n")):
            self.assertIsNotNone(mismatch(expected, actual), (expected, actual))


if __name__ == "__main__":
    unittest.main(verbosity=2)
