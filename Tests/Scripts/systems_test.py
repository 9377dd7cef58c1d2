#!/usr/bin/python3
"""What each system gives by itself is there for both: the files of macOS are not compiled here, so that a function
which only Linux has would be noticed by nobody."""

import re
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
INTERFACES = ["Platform/Desktop.h", "Platform/ExecutablePath.h", "Platform/SystemNotificationCenter.h"]
SYSTEMS = {"Linux": "*.cpp", "macOS": "*.[cm]*"}
COMMENT = re.compile(r"//[^\n]*")
FUNCTION = re.compile(r"^[\w:<>]+[ *&]+(\w+)\(([^;{]*)\);", re.MULTILINE)


def types_of(parameters):
    """`const QString &name, bool = true` without the names: what two declarations of one function share."""
    types = []
    for parameter in filter(str.strip, parameters.split(",")):
        parameter = parameter.partition("=")[0]
        types.append(re.sub(r"(?<=[*& ])\w+$", "", " ".join(parameter.split())).replace(" ", "")
                     if re.search(r"[*& ]\w+$", parameter.strip()) else parameter.replace(" ", ""))
    return types


def declared():
    for name in INTERFACES:
        text = COMMENT.sub("", (ROOT / name).read_text(encoding="utf-8"))
        namespace = re.search(r"^namespace (\w+) \{", text, re.MULTILINE)
        for function in FUNCTION.finditer(text):
            yield (f"{namespace.group(1)}::" if namespace else "") + function.group(1), types_of(function.group(2))


def defined(system):
    for path in sorted((ROOT / "Platform" / system).glob(SYSTEMS[system])):
        if path.suffix in (".cpp", ".mm"):
            text = COMMENT.sub("", path.read_text(encoding="utf-8"))
            for function in re.finditer(r"^[\w:<>]+[ *&]+([\w:]+)\(([^;{]*)\) \{", text, re.MULTILINE):
                yield function.group(1), types_of(function.group(2))


class SystemsTest(unittest.TestCase):
    def test_every_function_is_there_on_every_system(self):
        functions = list(declared())
        self.assertGreaterEqual(len(functions), 3)
        for system in SYSTEMS:
            there = list(defined(system))
            for function in functions:
                with self.subTest(system=system, function=function[0]):
                    self.assertEqual(there.count(function), 1)

    def test_every_file_of_a_system_is_built(self):
        for system, rules in (("Linux", "Platform/CMakeLists.txt"), ("macOS", "Platform/macOS/CMakeLists.txt")):
            text = (ROOT / rules).read_text(encoding="utf-8")
            for path in (ROOT / "Platform" / system).iterdir():
                if path.suffix in (".cpp", ".mm"):
                    with self.subTest(file=path.name):
                        self.assertIn(path.name, text)


if __name__ == "__main__":
    unittest.main()
