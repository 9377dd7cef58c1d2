#!/usr/bin/python3
"""The installed agent, started by the session bus: with its service file, and beside another brand's."""

import os
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

from packaging import BUILD, ROOT, SYSTEM_PATH, run, skip_all

from desktop import Desktop, end_process, wait_until

BRAND_NOTICES = ROOT / "Packaging/brand/brand-notices"


class ActivationTest(unittest.TestCase):

    def setUp(self):
        self.prefix = Path(tempfile.mkdtemp(prefix="notice-prefix-"))
        self.addCleanup(shutil.rmtree, self.prefix, ignore_errors=True)
        run("cmake", "--install", BUILD, "--prefix", self.prefix, "--component", "agent")
        self.desktop = Desktop(accessibility=False)
        self.addCleanup(self.desktop.close)
        # A bus that finds service files in the prefix alone.
        environment = dict(self.desktop.environment, PATH=SYSTEM_PATH, XDG_DATA_DIRS=str(self.prefix / "share"))
        bus = subprocess.Popen(["dbus-daemon", "--session", "--nofork", "--nopidfile", "--print-address"],
                               env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True)
        self.addCleanup(bus.stdout.close)
        self.addCleanup(end_process, bus)
        self.environment = dict(environment, DBUS_SESSION_BUS_ADDRESS=bus.stdout.readline().strip())

    def process_of(self, brand):
        """The process that owns the brand's name on the bus, or None."""
        done = subprocess.run(
            ["dbus-send", "--session", "--print-reply=literal", "--dest=org.freedesktop.DBus", "/",
             "org.freedesktop.DBus.GetConnectionUnixProcessID", f"string:com.tevanic.NoticeAgent.{brand}"],
            env=self.environment, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, check=False)
        return int(done.stdout.split()[-1]) if done.returncode == 0 else None

    def post(self, *arguments, status=0):
        return run(self.prefix / "bin/post-notice", *arguments, env=self.environment, status=status)

    def assert_shown(self, brand, bundle):
        process = wait_until(lambda: self.process_of(brand), f"the agent of {brand} is there")
        self.addCleanup(self.end, process)
        self.assertEqual(os.readlink(f"/proc/{process}/exe"), str(bundle / "Contents/Linux/NoticeAgent"))
        screen = self.desktop.screen
        wait_until(lambda: any(screen.viewable(window) for window in screen.windows_of(process)),
                   f"the notice of {brand} is on the screen")
        return process

    @staticmethod
    def end(process):
        try:
            os.kill(process, 15)
        except ProcessLookupError:
            pass

    def test_a_message_starts_the_agent(self):
        self.post("--maintenance", "Back at 18:00.")
        bundle = self.prefix / "lib/notice-agent/NoticeAgent.app"
        process = self.assert_shown("zelvik", bundle)
        self.post("--maintenance", "Back at 19:00.")
        self.assertEqual(self.process_of("zelvik"), process, "one agent is enough")

    def test_brands_are_started_beside_each_other(self):
        bundle = self.prefix / "lib/lumora-notice-agent/NoticeAgent.app"
        bundle.parent.mkdir()
        run(BRAND_NOTICES, "--agent", BUILD / "NoticeAgent.app", "--bundle", bundle,
            ROOT / "Packaging/brand/sample")
        name = "com.tevanic.NoticeAgent.lumora"
        service = (ROOT / "Packaging/linux/service.in").read_text()
        (self.prefix / f"share/dbus-1/services/{name}.service").write_text(
            service.replace("@BUS_NAME@", name).replace("@BUNDLE@", str(bundle)))
        self.post("--maintenance", "Of the agent.")
        self.post("--folder", "lumora", "--maintenance", "Of the brand.")
        first = self.assert_shown("zelvik", self.prefix / "lib/notice-agent/NoticeAgent.app")
        self.assertNotEqual(self.assert_shown("lumora", bundle), first)

    def test_a_brand_that_is_not_installed_is_an_error(self):
        self.assertIn("post-notice: ", self.post("--folder", "nobody", "--maintenance", "Lost.", status=5))


if __name__ == "__main__":
    if not (BUILD / "bin/post-notice").is_file():
        skip_all(f"there is no build in {BUILD}")
    unittest.main(verbosity=2)
