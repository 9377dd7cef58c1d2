#!/usr/bin/python3
"""What Scripts/summary makes of test results."""

import subprocess
import tempfile
import unittest
from pathlib import Path

SUMMARY = Path(__file__).resolve().parents[2] / "Scripts/summary"
PASSED = '<testcase name="Passes" status="run"><system-out>skipped: no more</system-out></testcase>'
FAILED = '<testcase name="{}" status="fail"><failure/><system-out>{}</system-out></testcase>'
SKIPPED = '<testcase name="Waits" status="notrun"><skipped/><system-out>{}</system-out></testcase>'


class SummaryTest(unittest.TestCase):
    def summary(self, *runs):
        with tempfile.TemporaryDirectory() as folder:
            files = []
            for number, run in enumerate(runs):
                files.append(Path(folder) / f"{number}.xml")
                files[-1].write_text(f"<testsuite>{run}</testsuite>")
            done = subprocess.run([SUMMARY, *files], stdout=subprocess.PIPE, text=True, check=False)
        return done.returncode, done.stdout.splitlines()

    def test_counts_of_all_runs(self):
        self.assertEqual(self.summary(PASSED, PASSED),
                         (0, ["skipped: no more:", "    Passes", "2 passed, 0 failed, 2 skipped"]))

    def test_a_failure_is_shown_with_its_last_lines(self):
        output = "\n".join(f"line {number}" for number in range(100))
        self.assertEqual(self.summary(FAILED.format("Fails", output), PASSED.replace("skipped", "said")),
                         (1, ["failed: Fails", *(f"    line {number}" for number in range(60, 100)),
                              "1 passed, 1 failed"]))

    def test_the_names_of_several_failures_come_last(self):
        self.assertEqual(self.summary(FAILED.format("B", ""), FAILED.format("A", "a")),
                         (1, ["failed: A", "    a", "failed: B", "failed: A, B", "0 passed, 2 failed"]))

    def test_the_slowest_of_many_tests(self):
        run = "".join(f'<testcase name="T{number}" status="run" time="{number}"/>' for number in range(12))
        lines = self.summary(run)[1]
        self.assertEqual(lines, ["slowest:", *(f"    {number:5.1f} s  T{number}" for number in range(11, 1, -1)),
                                 "12 passed, 0 failed"])

    def test_a_run_in_which_nothing_ran_fails(self):
        self.assertEqual(self.summary(""), (1, ["0 passed, 0 failed"]))
        self.assertEqual(self.summary(SKIPPED.format("")),
                         (1, ["skipped: no reason given:", "    Waits", "0 passed, 0 failed, 1 skipped"]))

    def test_reasons_of_every_kind_of_test(self):
        for output, test, reason in (
                ("test_all (a.B.test_all)\nIt does. ... skipped 'no \"man\"'", "Waits test_all", 'no "man"'),
                ("/a/b.cpp:12: Skipped\nno display\n", "Waits", "no display"),
                ("skipped  0.1 s  test_a.B.test_c: no kwin", "Waits test_a.B.test_c", "no kwin")):
            with self.subTest(output):
                self.assertEqual(self.summary(PASSED.replace("skipped", "said"), SKIPPED.format(output))[1],
                                 [f"skipped: {reason}:", f"    {test}", "1 passed, 0 failed, 1 skipped"])


if __name__ == "__main__":
    unittest.main()
