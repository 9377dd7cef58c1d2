#!/usr/bin/python3
"""What each system gives by itself is there for both: the files of macOS are not compiled here, so that a function
which only Linux has would be noticed by nobody."""

import re
import unittest
from pathlib import Path

PLATFORM = Path(__file__).resolve().parents[2] / "Platform"
INTERFACES = ["Desktop.h", "ExecutablePath.h", "SystemNotificationCenter.h"]
RULES = {"Linux": "CMakeLists.txt", "macOS": "macOS/CMakeLists.txt"}


class SystemsTest(unittest.TestCase):
    def test_every_function_is_there_on_every_system(self):
        declarations = "".join((PLATFORM / name).read_text(encoding="utf-8") for name in INTERFACES)
        functions = re.findall(r"^(?: +virtual )?[\w:<>]+[ *&]+(\w+)\(", declarations, re.MULTILINE)
        self.assertGreater(len(functions), 15)
        for system in RULES:
            sources = "".join(path.read_text(encoding="utf-8") for path in (PLATFORM / system).glob("*.[cm]*"))
            for function in functions:
                with self.subTest(system=system, function=function):
                    self.assertTrue(re.search(rf"[ *&:]{function}\(", sources))

    def test_every_file_of_a_system_is_built(self):
        for system, rules in RULES.items():
            for path in (PLATFORM / system).glob("*.[cm][pm]*"):
                with self.subTest(file=path.name):
                    self.assertIn(path.name, (PLATFORM / rules).read_text(encoding="utf-8"))


if __name__ == "__main__":
    unittest.main()
