#!/usr/bin/python3
"""Plants faults in text files and sees that Scripts/check-text finds each of them."""

import subprocess
import tempfile
import unittest
from pathlib import Path

SCRIPT = Path(__file__).resolve().parents[2] / "Scripts" / "check-text"

FAULTS = [
    (b"a\tb\n", "a tab"),
    (b"a\r\n", "a carriage return"),
    (b"a \n", "a blank at the line's end"),
    ("a\u00a0\n".encode(), "a blank at the line's end"),
    ("a\u202eb\n".encode(), "a mark that turns the text's direction"),
    (b"<" * 7 + b" mine\n", "a leftover of a merge"),
    (b"=" * 7 + b"\n", "a leftover of a merge"),
    (b"// TO" b"DO: later\n", "something put off"),
    (b"see /ho" b"me/someone/x\n", "a path of one machine"),
    (b"a: \"/ro" b"ot/x\"\n", "a path of one machine"),
    (b"a\xff\n", "not UTF-8"),
    (b"a", "the file does not end with one line feed"),
    (b"a\n\n", "the file does not end with one line feed"),
]
WELCOME = [
    b"",
    b"a\n",
    "Größe, 日本語, می‌شود\n".encode(),
    b"https://example.com/ho" b"me/someone/x\n",
    b"./work/x and build/ro" b"ot/x\n",
    b"========\n",
    b"a todo list, hacksaw\n",
]


class TextTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)
        (self.root / "good.md").write_text("# Good\n", encoding="utf-8")

    def run_script(self, *arguments):
        return subprocess.run([str(SCRIPT), *map(str, arguments)], capture_output=True, text=True, timeout=60,
                              check=False)

    def test_each_fault_is_found_in_its_line(self):
        for content, fault in FAULTS:
            with self.subTest(content=content):
                (self.root / "A.cpp").write_bytes(b"first\n" + content)
                result = self.run_script(self.root)
                self.assertEqual(result.returncode, 1, result.stdout)
                lines = result.stdout.splitlines()
                self.assertRegex(lines[0], rf"\AA\.cpp:\d+: {fault}")
                if not fault.startswith("the file"):
                    self.assertTrue(lines[0].startswith("A.cpp:2: "), lines[0])
                self.assertEqual(lines[-1], f"2 files, {len(lines) - 1} faults")

    def test_what_is_welcome(self):
        for content in WELCOME:
            with self.subTest(content=content):
                (self.root / "A.cpp").write_bytes(content)
                result = self.run_script(self.root)
                self.assertEqual(result.returncode, 0, result.stdout)
                self.assertEqual(result.stdout, "2 files, 0 faults\n")

    def test_scripts_without_a_suffix_are_read_and_other_files_are_not(self):
        (self.root / "tool").write_bytes(b"#!/bin/sh\n\techo\n")
        (self.root / "picture.png").write_bytes(b"\x89PNG\r\n\t")
        (self.root / "data").write_bytes(b"\x00\t")
        result = self.run_script(self.root)
        self.assertEqual(result.stdout, "tool:2: a tab\n2 files, 1 faults\n")

    def test_what_the_build_makes_and_what_is_wrong_on_purpose_is_passed_over(self):
        for folder in ("build/release", "Tests/Data", "Fuzz/seeds"):
            (self.root / folder).mkdir(parents=True)
            (self.root / folder / "A.cpp").write_bytes(b"a\t")
        self.assertEqual(self.run_script(self.root).returncode, 0)


if __name__ == "__main__":
    unittest.main()
