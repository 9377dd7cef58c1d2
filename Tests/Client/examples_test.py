#!/usr/bin/python3
"""What an integrator does: installs the library, builds a program against it, and shows notices on a desktop.

The build folder is taken from the environment variable NOTICE_BUILD; without it the release build's is.
"""

import os
import re
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path
from xml.etree import ElementTree

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "Tests/Acceptance"))

from desktop import AGENT_NAME, Desktop, wait_until  # noqa: E402
from harness import Notice  # noqa: E402

BUILD = Path(os.environ.get("NOTICE_BUILD", ROOT / "build/release")).resolve()
BUNDLE = BUILD / "NoticeAgent.app"
EXAMPLES = ROOT / "Client/Examples"
HEADER = ROOT / "Client/NoticeClient.h"
PAGE = ROOT / "docs/integration.md"
# What the library was built with, so that a program fits it.
FLAGS = os.environ.get("NOTICE_FLAGS", "")
BLOCKED = "Files <10 MB & more> may not leave the company."


def run(*command, **options):
    result = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                            text=True, timeout=200, check=False, **options)
    if result.returncode != 0:
        raise AssertionError(f"{command}: status {result.returncode}\n{result.stdout}")
    return result.stdout


class InstalledTest(unittest.TestCase):
    """The library in a place of its own, moved after it was installed, as packages and toolchains do."""

    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="notice-client-")
        cls.addClassCleanup(folder.cleanup)
        cls.folder = Path(folder.name)
        for component in ("Library", "Development"):
            run("cmake", "--install", BUILD, "--prefix", cls.folder / "first", "--component", component)
        cls.prefix = (cls.folder / "first").rename(cls.folder / "moved prefix")
        cls.library = next(cls.prefix.rglob("libNoticeClient.so")).parent
        cls.desktop = Desktop()
        cls.addClassCleanup(cls.desktop.close)
        cls.desktop.bus.install("com.tevanic.NoticeAgent.zelvik", BUNDLE / "Contents/Linux/NoticeAgent",
                                cls.desktop.environment)

    # --- what is shown

    def begin(self, *command):
        # A build for ThreadSanitizer: the bus library takes its own locks in two orders, in one thread.
        environment = {"TSAN_OPTIONS": "detect_deadlocks=0", **self.desktop.environment,
                       "LD_LIBRARY_PATH": str(self.library)}
        process = subprocess.Popen(command, env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE, text=True)
        self.addCleanup(process.communicate)
        self.addCleanup(process.kill)
        return process

    def notice(self):
        return Notice(self.desktop, wait_until(lambda: self.desktop.bus.process_of(AGENT_NAME), "an agent is there"))

    def press(self, notice, button):
        self.desktop.accessibility.press(notice.wait_text(button))

    def assert_ends_well(self, process, said):
        output, errors = process.communicate(timeout=30)
        self.assertEqual((process.returncode, errors), (0, ""), output)
        self.assertIn(said, output)
        wait_until(lambda: not self.desktop.bus.process_of(AGENT_NAME), "the agent ends")

    def assert_shows(self, text, *command):
        """The command ends well, and the real agent shows the text until OK ends it."""
        process = self.begin(*command)
        notice = self.notice()
        notice.wait_text(text)
        process.wait(30)
        self.press(notice, "OK")
        self.assert_ends_well(process, "")

    def assert_asks_for_sign_in(self, *command):
        """The command waits for the agent's answer, and says that it came."""
        process = self.begin(*command)
        self.press(self.notice(), "Sign in now")
        self.assert_ends_well(process, "the user is to sign in now\n")

    # --- C++

    def build_with_cmake(self, name, *options):
        build = self.folder / name
        run("cmake", "-S", EXAMPLES / "Cpp", "-B", build, f"-DCMAKE_PREFIX_PATH={self.prefix}",
            f"-DCMAKE_CXX_FLAGS={FLAGS}", *options)
        run("cmake", "--build", build)
        return build / "notice-example"

    def test_program_against_the_cmake_package(self):
        program = self.build_with_cmake("shared")
        self.assertIn("libNoticeClient.so.1", run("readelf", "-d", program))
        self.assert_shows(BLOCKED, program, "blocked")
        self.assert_asks_for_sign_in(program, "sign-in")

    def test_program_with_the_static_library(self):
        program = self.build_with_cmake("static", "-DSTATIC_CLIENT=ON")
        needed = re.findall(r"\(NEEDED\).*\[(.*)\]", run("readelf", "-d", program))
        self.assertNotIn("libNoticeClient.so.1", needed)
        self.assertIn("libdbus-1.so.3", needed)
        self.assert_shows(BLOCKED, program, "blocked")

    def test_program_with_pkg_config(self):
        program = self.folder / "with-pkg-config"
        environment = {**os.environ, "PKG_CONFIG_PATH": str(self.library / "pkgconfig")}
        # Quoted by pkg-config, since the prefix holds a blank.
        run("sh", "-c", f'eval c++ -std=c++20 {FLAGS} "$1" -o "$2" $(pkg-config --cflags --libs NoticeClient)', "sh",
            EXAMPLES / "Cpp/main.cpp", program, env=environment)
        self.assert_shows(BLOCKED, program, "blocked")

    def test_header_needs_nothing_but_the_standard_library(self):
        source = self.folder / "header.cpp"
        source.write_text("#include <NoticeClient/NoticeClient.h>\n", encoding="utf-8")
        run("c++", "-std=c++20", "-fsyntax-only", "-Wall", "-Wextra", "-Wpedantic", "-Wshadow", "-Wconversion",
            "-Wold-style-cast", "-Werror", f"-I{self.prefix}/include", source)
        self.assertNotRegex(HEADER.read_text(encoding="utf-8"), r"#include <(Q|dbus)")

    def test_program_of_the_integration_page(self):
        page = PAGE.read_text(encoding="utf-8")
        (program,) = re.findall(r"^```cpp\n(.*?)^```$", page, re.MULTILINE | re.DOTALL)
        source = self.folder / "page.cpp"
        source.write_text(program, encoding="utf-8")
        run("c++", "-std=c++20", "-fsyntax-only", "-Wall", "-Wextra", "-Werror", f"-I{self.prefix}/include", source)

    # --- the library

    def test_library_shows_its_interface_and_nothing_else(self):
        symbols = run("nm", "-DC", "--defined-only", self.library / "libNoticeClient.so").splitlines()
        names = [line.split(" ", 2)[2] for line in symbols]
        ours = [name for name in names if "NoticeClient::" in name and not name.startswith(("std::", "void std::"))]
        self.assertTrue(any(name.startswith("NoticeClient::Agent::post(") for name in ours))
        hidden = re.compile(r"::State::|\(anonymous|BusConnection|AgentProgram")
        self.assertEqual([name for name in ours if hidden.search(name)], [])
        self.assertEqual([name for name in names if name.startswith(("dbus_", "Q"))], [])

    def test_library_has_a_version_and_needs_no_desktop(self):
        dynamic = run("readelf", "-d", self.library / "libNoticeClient.so")
        self.assertIn("Library soname: [libNoticeClient.so.1]", dynamic)
        needed = re.findall(r"\(NEEDED\).*\[(.*)\]", dynamic)
        self.assertIn("libdbus-1.so.3", needed)
        self.assertEqual([name for name in needed if "Qt" in name or "xcb" in name], [])

    def test_introspection_is_the_contract(self):
        name = "com.tevanic.DistributedNotificationCenter"
        node = ElementTree.parse(self.prefix / f"share/dbus-1/interfaces/{name}.xml").getroot()
        self.assertEqual(node.get("name"), "/" + name.replace(".", "/"))
        signal = node.find(f"interface[@name='{name}']/signal[@name='Posted']")
        self.assertEqual([argument.get("type") for argument in signal.findall("arg")], ["s", "s", "a{sv}"])

    # --- Python

    def test_python(self):
        script = EXAMPLES / "Python/notice.py"
        self.assert_shows("Back at 18:00.", script, "maintenance", "Back at 18:00.")
        self.assert_asks_for_sign_in(script, "sign-in")


if __name__ == "__main__":
    unittest.main()
