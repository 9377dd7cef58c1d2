#!/usr/bin/python3
"""The installed agent, started by the session bus with its service file."""

import os
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

from packaging import BUILD, SYSTEM_PATH, run, skip_all

from desktop import Desktop, end_process, wait_until

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

    def agent(self):
        """The process that owns the brand's name on the bus, or None."""
        done = subprocess.run(
            ["dbus-send", "--session", "--print-reply=literal", "--dest=org.freedesktop.DBus", "/",
             "org.freedesktop.DBus.GetConnectionUnixProcessID", "string:com.tevanic.NoticeAgent.zelvik"],
            env=self.environment, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, check=False)
        return int(done.stdout.split()[-1]) if done.returncode == 0 else None

    def post(self, text):
        run(self.prefix / "bin/post-notice", "--maintenance", text, env=self.environment)

    def test_a_message_starts_the_agent(self):
        self.post("Back at 18:00.")
        process = wait_until(self.agent, "the agent is there")
        self.addCleanup(os.kill, process, 15)
        self.assertEqual(os.readlink(f"/proc/{process}/exe"),
                         str(self.prefix / "lib/notice-agent/NoticeAgent.app/Contents/Linux/NoticeAgent"))
        screen = self.desktop.screen
        wait_until(lambda: any(screen.viewable(window) for window in screen.windows_of(process)),
                   "the notice is on the screen")
        self.post("Back at 19:00.")
        self.assertEqual(self.agent(), process, "one agent is enough")


if __name__ == "__main__":
    if not (BUILD / "bin/post-notice").is_file():
        skip_all(f"there is no build in {BUILD}")
    unittest.main(verbosity=2)
