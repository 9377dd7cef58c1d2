#!/usr/bin/python3
"""Runs the acceptance tests in parallel and ends with their count.

    run.py [-j WORKERS] [-k WORD]... [MODULE]...

Each worker is a process with a desktop of its own (bus, screen, window manager). Tests are dealt
out one at a time, the long ones first. No test is run twice. A failure is printed at once, and again at the
end. The exit status is 1 when a test failed or there was none, and 77 when all were skipped.
"""

import argparse
import multiprocessing
import os
import signal
import sys
import tempfile
import threading
import time
import traceback
import unittest
from collections import Counter
from concurrent.futures import ProcessPoolExecutor, as_completed
from pathlib import Path

HERE = Path(__file__).resolve().parent
sys.path.insert(0, str(HERE))

# What the build's test runner takes for a skipped test.
ALL_SKIPPED = 77

# Longer than the longest test, so that only a hung one meets it.
TEST_LIMIT = 240


def all_tests(modules):
    """Every test by its id."""
    loader = unittest.TestLoader()
    suites = [loader.loadTestsFromNames(modules or sorted(path.stem for path in HERE.glob("test_*.py")))]
    tests = {}
    while suites:
        for test in suites.pop():
            if isinstance(test, unittest.TestSuite):
                suites.append(test)
            else:
                tests[test.id()] = test
    for error in loader.errors:
        sys.exit(error)
    return tests


def expected_seconds(test):
    return getattr(getattr(test, test._testMethodName, None), "seconds", 1)


# --- worker ------------------------------------------------------------------------------------


class OneResult(unittest.TestResult):
    """Notes one test's outcome, and at once, while the agent still runs, what it looked like."""

    def __init__(self, pictures):
        super().__init__()
        self.pictures = pictures
        self.status = "passed"
        self.detail = ""

    def addError(self, test, err):
        self.status = "failed"
        self.detail += "".join(traceback.format_exception(*err))
        test = getattr(test, "test_case", test)  # a subtest names its test
        try:
            self.detail += test.describe_failure()
            os.makedirs(self.pictures, exist_ok=True)
            path = os.path.join(self.pictures, f"{test.id()}.png")
            test.photograph(path)
            self.detail += f"--- screen: {path}\n"
        except Exception as failure:
            self.detail += f"(no more about the agent: {failure})\n"

    addFailure = addError

    def addSubTest(self, test, subtest, err):
        if err is not None:
            self.addError(subtest, err)

    def addSkip(self, test, reason):
        self.status = "skipped"
        self.detail = reason


def begin_worker():
    """All that this process starts ends with the runner, also when that is killed."""
    os.setpgrp()

    def end_with_runner():
        multiprocessing.parent_process().join()
        os.killpg(0, signal.SIGKILL)
    threading.Thread(target=end_with_runner, daemon=True).start()


def give_up(*_arguments):
    raise TimeoutError(f"the test ran for more than {TEST_LIMIT} s")


def run_one(name, pictures):
    signal.signal(signal.SIGALRM, give_up)
    started = time.monotonic()
    result = OneResult(pictures)
    signal.alarm(TEST_LIMIT)
    unittest.TestLoader().loadTestsFromName(name).run(result)
    signal.alarm(0)
    return {"test": name, "status": result.status, "detail": result.detail, "seconds": time.monotonic() - started}


# --- runner ------------------------------------------------------------------------------------


def run_all(names, count, pictures):
    results = []
    with tempfile.TemporaryDirectory(prefix="notice-acceptance-", ignore_cleanup_errors=True) as folder:
        os.environ["TMPDIR"] = folder
        pool = ProcessPoolExecutor(count, multiprocessing.get_context("spawn"), begin_worker)
        try:
            for future in as_completed([pool.submit(run_one, name, pictures) for name in names]):
                result = future.result()
                results.append(result)
                if result["status"] == "skipped":
                    print(f"skipped {result['seconds']:5.1f} s  {result['test']}: {result['detail']}", flush=True)
                elif result["status"] == "failed":
                    print(described(result) + "\n", flush=True)
        finally:
            pool.shutdown(cancel_futures=True)
    return results


def described(result, lines=None):
    """A failure, or its first lines: where it failed, and on what."""
    return "\n    ".join([f"FAILED {result['seconds']:5.1f} s  {result['test']}",
                          *result["detail"].splitlines()[:lines]])


def closing(results, seconds):
    """What the run ends with: where its time went, what failed, and the counts."""
    print("slowest:")
    for result in sorted(results, key=lambda result: -result["seconds"])[:10]:
        print(f"  {result['seconds']:5.1f} s  {result['test']}")
    for result in results:
        if result["status"] == "failed":
            print(described(result, lines=30))
    count = Counter(result["status"] for result in results)
    skipped = f", {count['skipped']} skipped" if count["skipped"] else ""
    print(f"in {seconds:.0f} s\n{count['passed']} passed, {count['failed']} failed{skipped}")
    return count


def main():
    parser = argparse.ArgumentParser(description="Runs the acceptance tests of the Notice Agent.")
    parser.add_argument("-j", "--workers", type=int, default=6)
    parser.add_argument("-k", "--keyword", action="append", default=[], help="only tests with this word in their id")
    parser.add_argument("modules", nargs="*", help="test modules; all of them when none is named")
    arguments = parser.parse_args()

    from harness import BUNDLE, LOG_ROOT, REPOSITORY
    if not os.access(os.path.join(BUNDLE, "Contents/Linux/NoticeAgent"), os.X_OK):
        sys.exit(f"no agent in {BUNDLE}: build it first, or name a bundle in NOTICE_AGENT_BUNDLE")
    os.makedirs(LOG_ROOT, exist_ok=True)
    if not os.access(LOG_ROOT, os.W_OK):
        sys.exit(f"you cannot write to {LOG_ROOT}, where the tests read the agent's log; run as root: "
                 f"chown {os.getuid()} {LOG_ROOT}")
    tests = all_tests(arguments.modules)
    names = [name for name in tests if not arguments.keyword or any(word in name for word in arguments.keyword)]
    names.sort(key=lambda name: -expected_seconds(tests[name]))
    started = time.monotonic()
    results = run_all(names, arguments.workers, os.path.join(REPOSITORY, "build/acceptance"))

    count = closing(results, time.monotonic() - started)
    if count["failed"] or not results:
        return 1
    return 0 if count["passed"] else ALL_SKIPPED


if __name__ == "__main__":
    sys.exit(main())
