#!/usr/bin/python3
"""Tries the functions that the shell scripts share, each in a shell of its own."""

import os
import shlex
import signal
import subprocess
import tempfile
import unittest
from pathlib import Path

SCRIPTS = Path(__file__).resolve().parents[2] / "Scripts"


class LibTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.programs = self.folder / "programs"
        self.programs.mkdir()

    def program(self, name, text):
        """A program that stands before the system's own of that name."""
        path = self.programs / name
        path.write_text(f"#!/bin/sh\n{text}\n", encoding="utf-8")
        path.chmod(0o755)

    def install(self, *lines, installed=(), known=(), user=0):
        """A shell's text that installs the packages of a list with these lines."""
        (self.folder / "Scripts").mkdir()
        (self.folder / "Scripts" / "list.txt").write_text("".join(f"{line}\n" for line in lines))
        self.program("dpkg-query", "\n".join(f"echo installed {name}" for name in installed))
        self.program("apt-cache", f'case " {" ".join(known)} " in *" $2 "*) exit 0;; esac; exit 100')
        self.program("id", f"echo {user}")
        return f"repository={shlex.quote(str(self.folder))}\ninstall_missing_packages list.txt\n"

    def shell(self, text):
        return subprocess.Popen(
            ["bash", "-c", f"source {shlex.quote(str(SCRIPTS))}/lib.sh || exit\n{text}"], text=True,
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
            env=dict(os.environ, PATH=f"{self.programs}:/usr/bin:/bin"))

    def run_shell(self, text):
        process = self.shell(text)
        out, error = process.communicate(timeout=30)
        return process.returncode, out, error

    # The end of a script.

    def test_clean_up_comes_in_reverse_order_and_keeps_the_exit_status(self):
        for text, status in (("exit 3", 3), ("false", 1), ("true", 0), ("fail no", 1)):
            with self.subTest(text):
                result = self.run_shell(f"at_end echo first\nat_end false\nat_end echo 'second  one'\n{text}\n")
                self.assertEqual(result[:2], (status, "second  one\nfirst\n"))

    def test_clean_up_when_the_script_is_ended_by_a_signal(self):
        process = self.shell("at_end echo cleaned\nsleep 20 >/dev/null 2>&1 & at_end end_child $!\necho ready\nwait\n")
        self.assertEqual(process.stdout.readline(), "ready\n")
        process.send_signal(signal.SIGTERM)
        out, _error = process.communicate(timeout=10)
        self.assertEqual((process.returncode, out), (143, "cleaned\n"))

    def test_child_that_will_not_end_is_ended(self):
        status, out, error = self.run_shell(
            "bash -c \"trap '' TERM; while :; do sleep 0.1; done\" & child=$!\nsleep 0.3\nend_child $child\n"
            "kill -0 $child 2>/dev/null && echo lives || echo gone\n")
        self.assertEqual((status, out), (0, "gone\n"), error)

    # Packages.

    def test_what_is_missing_is_installed_at_once_by_the_names_of_this_release(self):
        self.program("apt-get", f'echo "$@" >>{self.folder}/called')
        status, _out, error = self.run_shell(
            self.install("one", "three", "new | old", installed=["one"], known=["three", "old"]))
        self.assertEqual(status, 0, error)
        called = (self.folder / "called").read_text().splitlines()
        self.assertEqual(len(called), 2, called)
        self.assertTrue(called[0].endswith(" update"), called)
        self.assertTrue(called[1].endswith(" install --yes --no-install-recommends old three"), called)

    def test_ordinary_user_is_told_what_root_must_install_and_how_to_go_on(self):
        text = self.install("one", "two", user=1000)
        self.program("sudo", "echo a password is required >&2; exit 1")
        status, _out, error = self.run_shell(text)
        self.assertEqual(status, 1)
        self.assertIn("apt-get install --no-install-recommends one two\n", error)
        self.assertIn("Scripts/test --no-install", error)


if __name__ == "__main__":
    unittest.main()
