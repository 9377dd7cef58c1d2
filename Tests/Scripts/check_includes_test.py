#!/usr/bin/python3
"""Plants includes in small source trees and sees that Scripts/check-includes judges each of them."""

import subprocess
import tempfile
import unittest
from pathlib import Path

SCRIPT = Path(__file__).resolve().parents[2] / "Scripts" / "check-includes"

# Who includes what, and whether that is right.
ALLOWED = [
    ("main.cpp", "Controllers/AppDelegate.h"),
    ("main.cpp", "Platform/Qt/FileBundle.h"),
    ("Controllers/A.cpp", "Support/Logger.h"),
    ("Controllers/A.cpp", "Platform/Bundle.h"),
    ("Controllers/A.cpp", "ServiceTier/portalGatewayServiceTier.h"),
    ("Support/A.cpp", "Platform/Views/TextField.h"),
    ("Platform/Views/A.cpp", "Platform/Bundle.h"),
    ("Platform/Qt/A.cpp", "Platform/Bundle.h"),
    ("Platform/Qt/A.cpp", "ServiceTier/portalGatewayServiceTier.h"),
    ("Platform/macOS/A.mm", "Platform/Desktop.h"),
    ("ServiceTier/A.cpp", "ServiceTier/HttpRequest.h"),
    ("Client/A.cpp", "Client/BusMessage.h"),
    ("Tools/A.cpp", "Client/NoticeClient.h"),
    ("Tests/Client/A.cpp", "Client/BusMessage.h"),
    ("Tests/Support/A.cpp", "Tests/Fakes/HandDrivenRunLoop.h"),
    ("Benchmarks/A.cpp", "Tests/Fakes/HandDrivenRunLoop.h"),
    ("Fuzz/A.cpp", "Support/Logger.h"),
]
FORBIDDEN = [
    ("main.cpp", "Tests/Fakes/HandDrivenRunLoop.h"),
    ("Controllers/A.cpp", "Platform/Qt/FileBundle.h"),
    ("Controllers/A.cpp", "ServiceTier/HttpRequest.h"),
    ("Support/A.cpp", "Controllers/AppDelegate.h"),
    ("Support/A.h", "ServiceTier/portalGatewayServiceTier.h"),
    ("Platform/A.h", "Support/Logger.h"),
    ("Platform/Views/A.h", "Platform/Linux/Bus.h"),
    ("Platform/Qt/A.cpp", "Support/Logger.h"),
    ("Platform/Qt/A.cpp", "Platform/Linux/Bus.h"),
    ("Platform/Linux/A.cpp", "Platform/Qt/FileBundle.h"),
    ("Platform/macOS/A.mm", "Platform/Linux/Bus.h"),
    ("ServiceTier/A.cpp", "Support/Logger.h"),
    ("Tools/A.cpp", "Support/Logger.h"),
    ("Tools/A.cpp", "Client/BusMessage.h"),
    ("Client/A.cpp", "Support/Logger.h"),
    ("Support/A.cpp", "Client/NoticeClient.h"),
    ("main.cpp", "Client/NoticeClient.h"),
    ("Tools/A.cpp", "Tests/Fakes/HandDrivenRunLoop.h"),
    ("Fuzz/A.cpp", "Tests/Fakes/HandDrivenRunLoop.h"),
    ("Fuzz/A.cpp", "Benchmarks/Clock.h"),
]


class IncludesTest(unittest.TestCase):
    """Each test starts from a tree of headers without a fault."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = Path(folder.name)
        for _path, header in ALLOWED + FORBIDDEN:
            self.write(header, "#pragma once\n")

    def write(self, path, text):
        file = self.root / path
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(text, encoding="utf-8")
        return file

    def run_script(self, *arguments):
        return subprocess.run([str(SCRIPT), *map(str, arguments)], capture_output=True, text=True, timeout=60,
                              check=False)

    def assert_passes(self):
        result = self.run_script(self.root)
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        self.assertRegex(result.stdout, r"\A[1-9]\d* files, 0 faults\n\Z")

    def assert_fault(self, *beginnings):
        result = self.run_script(self.root)
        self.assertEqual(result.returncode, 1, result.stdout + result.stderr)
        lines = result.stdout.splitlines()
        self.assertEqual(len(lines), len(beginnings) + 1, result.stdout)
        for line, beginning in zip(sorted(lines[:-1]), sorted(beginnings)):
            self.assertTrue(line.startswith(beginning), f"{line} for {beginning}")
        self.assertRegex(lines[-1], r"\A\d+ files, [1-9]\d* faults\Z")

    def write_includes(self, includes):
        files = {}
        for path, included in includes:
            files.setdefault(path, []).append(f'#include "{included}"\n')
        for path, lines in files.items():
            self.write(path, "".join(lines))
        return [f"{path}:{number}: " for path, lines in files.items() for number in range(1, len(lines) + 1)]

    def test_includes_that_run_the_right_way(self):
        self.write_includes(ALLOWED)
        self.assert_passes()

    def test_includes_that_run_the_wrong_way(self):
        self.assert_fault(*self.write_includes(FORBIDDEN))

    def test_header_that_is_not_named_from_the_root(self):
        self.write("Support/A.cpp", '#include "Logger.h"\n')
        self.assert_fault('Support/A.cpp:1: "Logger.h" is no file')

    def test_header_of_ours_in_angle_brackets(self):
        self.write("Support/A.cpp", "#include <Controllers/AppDelegate.h>\n")
        self.assert_fault("Support/A.cpp:1: <Controllers/AppDelegate.h> is ours")

    def test_headers_of_the_system_and_generated_ones_are_welcome(self):
        self.write("Controllers/A.cpp",
                   '#include <QString>\n#include <dbus/dbus.h>\n#include "ui_ViewController.h"\n#include "A.moc"\n')
        self.assert_passes()

    def test_comments_hold_no_includes_and_their_lines_count(self):
        self.write("Support/A.cpp", '// #include "Controllers/AppDelegate.h"\n/*\n#include "Controllers/AppDelegate.h"\n*/\n'
                                    '#include "Platform/Qt/FileBundle.h"\n')
        self.assert_fault("Support/A.cpp:5: ")

    def test_file_without_a_room(self):
        self.write("Helpers/A.cpp", "\n")
        self.write("other.cpp", "\n")
        self.assert_fault("Helpers/A.cpp:1: stands in no room", "other.cpp:1: stands in no room")


if __name__ == "__main__":
    unittest.main()
