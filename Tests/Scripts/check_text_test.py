#!/usr/bin/python3
"""Plants faults in text files and sees that Scripts/check-text finds each of them. The tree without a fault is this
one, which Check.Text looks at."""

import subprocess
import tempfile
import unittest
from pathlib import Path

SCRIPT = Path(__file__).resolve().parents[2] / "Scripts" / "check-text"
ENDING = "the file does not end with one line feed"

# What stands in a file's second line, and what is said of it.
FAULTS = [
    (b"a\tb\n", "a tab"),
    (b"a\r\n", "a carriage return"),
    (b"a \n", "a blank at the line's end"),
    ("a\u202eb\n".encode(), "a mark that turns the text's direction"),
    (b"<" * 7 + b" mine\n", "a leftover of a merge"),
    (b"// TO" b"DO: later\n", "something put off; do it, or say so in the documents"),
    (b"see /ho" b"me/someone/x\n", "a path of one machine"),
    (b"a\xff\n", "not UTF-8"),
    (b"a", ENDING),
]
WELCOME = "Größe, 日本語, می‌شود\nhttps://example.com/ho" "me/someone/x\n./work/x\n========\na todo list, hacksaw\n"


class TextTest(unittest.TestCase):
    def test_each_fault_is_found_in_its_line(self):
        with tempfile.TemporaryDirectory() as folder:
            root = Path(folder)
            (root / "good.md").write_text(WELCOME, encoding="utf-8")
            (root / "picture.png").write_bytes(b"\x89PNG\r\n\t")
            (root / "script").write_bytes(b"#!/bin/sh\n\techo\n")
            # What the build makes, and what is wrong on purpose.
            for name in ("build/release", "Tests/Data", "Fuzz/seeds"):
                (root / name).mkdir(parents=True)
                (root / name / "A.cpp").write_bytes(b"a\t")
            for number, (content, _fault) in enumerate(FAULTS):
                (root / f"{number}.cpp").write_bytes(b"first\n" + content)
            result = subprocess.run([SCRIPT, root], capture_output=True, text=True, timeout=60, check=False)
        self.assertEqual(result.returncode, 1, result.stderr)
        self.assertEqual(result.stdout.splitlines(), [
            *(f"{number}.cpp:2: {fault}" for number, (_content, fault) in enumerate(FAULTS)), "script:2: a tab",
            f"{len(FAULTS) + 2} files, {len(FAULTS) + 1} faults"])


if __name__ == "__main__":
    unittest.main()
