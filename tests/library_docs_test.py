#!/usr/bin/python3
"""Compiles and runs every example of docs/library.md and compares what it prints with what stands under it.

Run by ctest with the compiler, its flags and the library of the build; by hand:
    CXX=g++ LIBRARY=build/dev/libmodules.a /usr/bin/python3 tests/library_docs_test.py
"""

import os
import re
import shlex
import subprocess
import tempfile
import unittest

SOURCE = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
EXAMPLE = re.compile(r"^## (\w+).*?\n```cpp\n(.*?)```\n```text\n(.*?)```", re.M | re.S)

PROGRAM = """#include <cstdint>
#include <cstdio>
#include <initializer_list>
{includes}
using namespace installer;
void example() {{
{body}}}
int main() {{ example(); }}
"""


def as_program(text):
    lines = text.splitlines(keepends=True)
    includes = [line for line in lines if line.startswith("#include")]
    body = [line for line in lines if not line.startswith("#include")]
    return PROGRAM.format(includes="".join(includes), body="".join(body))


class LibraryDocument(unittest.TestCase):
    def test_every_example_prints_what_stands_under_it(self):
        with open(os.path.join(SOURCE, "docs", "library.md"), encoding="utf-8") as file:
            document = file.read()
        examples = EXAMPLE.findall(document)
        self.assertEqual(document.count("```cpp"), len(examples), "an example without a heading or an output")
        self.assertGreaterEqual(len(examples), 8)
        for title, text, output in examples:
            with self.subTest(title):
                self.assertEqual(self.run_example(text), output)

    def run_example(self, text):
        with tempfile.TemporaryDirectory() as folder:
            source = os.path.join(folder, "example.cpp")
            program = os.path.join(folder, "example")
            with open(source, "w", encoding="utf-8") as file:
                file.write(as_program(text))
            subprocess.run([os.environ["CXX"], "-std=c++20", "-Wall", "-Wextra", "-Werror", "-I" + SOURCE,
                            *shlex.split(os.environ.get("FLAGS", "")), source, os.environ["LIBRARY"], "-o", program],
                           check=True)
            sandbox = os.path.join(folder, "sandbox")
            os.mkdir(sandbox)
            done = subprocess.run([program], cwd=sandbox, stdout=subprocess.PIPE, timeout=60, check=True)
            return done.stdout.decode()


if __name__ == "__main__":
    unittest.main(verbosity=2)
