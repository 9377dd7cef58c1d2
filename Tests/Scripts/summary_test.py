#!/usr/bin/python3
"""What Scripts/summary makes of test results."""

import subprocess
import tempfile
import unittest
from pathlib import Path

SUMMARY = Path(__file__).resolve().parents[2] / "Scripts/summary"
PASSED = '<testcase name="Passes" status="run" time="1"/>'
FAILED = '<testcase name="{}" status="fail"><failure/><system-out>{}</system-out></testcase>'
SKIPPED = '<testcase name="Waits" status="notrun"><skipped/><system-out>{}</system-out></testcase>'


class SummaryTest(unittest.TestCase):
    def assert_says(self, runs, status, *lines):
        with tempfile.TemporaryDirectory() as folder:
            files = [Path(folder) / f"{number}.xml" for number in range(len(runs))]
            for file, run in zip(files, runs):
                file.write_text(f"<testsuite>{run}</testsuite>")
            done = subprocess.run([SUMMARY, *files], stdout=subprocess.PIPE, text=True, check=False)
        self.assertEqual((done.returncode, done.stdout.splitlines()), (status, list(lines)))

    def test_failures_are_shown_with_their_last_lines_and_then_by_their_names(self):
        output = "\n".join(f"line {number}" for number in range(100))
        self.assert_says([FAILED.format("B", output), FAILED.format("A", "a") + PASSED], 1, "failed: A", "    a",
                         "failed: B", *(f"    line {number}" for number in range(60, 100)), "failed: A, B",
                         "1 passed, 2 failed")

    def test_the_slowest_of_many_tests(self):
        self.assert_says([12 * PASSED], 0, "slowest:", *10 * ["      1.0 s  Passes"], "12 passed, 0 failed")

    def test_a_run_in_which_nothing_ran_fails(self):
        self.assert_says([""], 1, "0 passed, 0 failed")
        self.assert_says([SKIPPED.format("")], 1, "skipped: no reason given:", "    Waits",
                         "0 passed, 0 failed, 1 skipped")

    def test_reasons_of_every_kind_of_test(self):
        for output, test, reason in (
                ("test_all (a.B.test_all)\nIt does. ... skipped 'no \"man\"'", "Waits test_all", 'no "man"'),
                ("/a/b.cpp:12: Skipped\nno display\n", "Waits", "no display"),
                ("skipped  0.1 s  test_a.B.test_c: no kwin", "Waits test_a.B.test_c", "no kwin"),
                ("skipped: no fonts", "Waits", "no fonts")):
            with self.subTest(output):
                self.assert_says([PASSED, SKIPPED.format(output)], 0, f"skipped: {reason}:", f"    {test}",
                                 "1 passed, 0 failed, 1 skipped")


if __name__ == "__main__":
    unittest.main()
