#!/usr/bin/python3
"""The installed agent, started by the session bus with its service file."""

import os
import shutil
import tempfile
import unittest
from pathlib import Path

from packaging import BUILD, end_agent, run, skip_all

from desktop import Desktop, wait_until
from harness import Notice

NAME = "com.tevanic.NoticeAgent.zelvik"


class ActivationTest(unittest.TestCase):

    def test_a_message_starts_the_agent(self):
        prefix = Path(tempfile.mkdtemp(prefix="notice-prefix-"))
        self.addCleanup(shutil.rmtree, prefix, ignore_errors=True)
        run("cmake", "--install", BUILD, "--prefix", prefix, "--component", "agent")
        desktop = Desktop(accessibility=False)
        self.addCleanup(desktop.close)
        shutil.copy(prefix / f"share/dbus-1/services/{NAME}.service", desktop.bus.services)
        desktop.bus.reload(desktop.environment)

        def post(text):
            run(prefix / "bin/post-notice", "--maintenance", text, env=desktop.environment)
            return wait_until(lambda: desktop.bus.process_of(NAME), "the agent is there")

        notice = Notice(desktop, post("Back at 18:00."))
        self.addCleanup(end_agent, notice)
        self.assertEqual(os.readlink(f"/proc/{notice.process_id}/exe"),
                         str(prefix / "lib/notice-agent/NoticeAgent.app/Contents/Linux/NoticeAgent"))
        notice.wait_visible()
        self.assertEqual(post("Back at 19:00."), notice.process_id, "one agent is enough")


if __name__ == "__main__":
    if not (BUILD / "bin/post-notice").is_file():
        skip_all(f"there is no build in {BUILD}")
    unittest.main(verbosity=2)
