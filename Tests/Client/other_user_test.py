#!/usr/bin/python3
"""A service running as root and the sessions of other users: post-notice --user.

Makes users for the time of the test, so that it has to be root. The command's path is taken from the environment
variable POST_NOTICE.
"""

import contextlib
import os
import pwd
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "Tests/Acceptance"))

from desktop import wait_until  # noqa: E402

COMMAND = os.path.abspath(os.environ.get("POST_NOTICE", ROOT / "build/release/bin/post-notice"))
MESSAGE = "zelvik_socketMessageNotifier"
ANSWER = "zelvik_webSocketToMainAppNotifier"

# Stands for the agent of the user's session. The bus starts it; it notes whose it is and what it hears, and
# answers.
AGENT = r'''#!/usr/bin/python3
import os, pathlib
import gi
gi.require_version("Gio", "2.0")
from gi.repository import Gio, GLib
bus = Gio.bus_get_sync(Gio.BusType.SESSION)
def note(line):
    with open(pathlib.Path.home() / "noted", "a") as file:
        file.write(line + "\n")
def call(method, arguments):
    return bus.call_sync("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", method, arguments,
                         None, 0, -1, None).unpack()[0]
def posted(_bus, sender, path, interface, member, arguments):
    if not arguments[0].endswith("_socketMessageNotifier"):
        return
    note(f"{arguments[0]} from {call('GetConnectionUnixUser', GLib.Variant('(s)', (sender,)))}")
    bus.emit_signal(None, path, interface, member, GLib.Variant("(ss)", ("zelvik_webSocketToMainAppNotifier", "")))
bus.signal_subscribe(None, "com.tevanic.DistributedNotificationCenter", "Posted", None, None, 0, posted)
note(f"agent of {os.getuid()}")
call("RequestName", GLib.Variant("(su)", ("com.tevanic.NoticeAgent.zelvik", 0)))
GLib.MainLoop().run()
'''

BUS_CONFIGURATION = """<busconfig><type>session</type><listen>{address}</listen><servicedir>{folder}</servicedir>
<auth>EXTERNAL</auth><policy context="default"><allow send_destination="*" eavesdrop="true"/>
<allow eavesdrop="true"/><allow own="*"/></policy></busconfig>
"""


def processes():
    """Each process with the number of its user."""
    for process in filter(str.isdigit, os.listdir("/proc")):
        with contextlib.suppress(OSError):
            yield int(process), os.stat(f"/proc/{process}").st_uid


def free_number():
    """Of no user here, and of no process: a changed root has users of its own and sees everybody's processes."""
    taken = {user for _process, user in processes()} | {entry.pw_uid for entry in pwd.getpwall()}
    return next(number for number in range(50000, 60000) if number not in taken)


class TestUser:
    """A user of the system with a folder under /run/user, as one has who is logged in, until the stack is unwound."""

    def __init__(self, name, stack):
        self.stack = stack
        self.home = Path(tempfile.mkdtemp(prefix="notice-home-"))
        stack.callback(shutil.rmtree, self.home, ignore_errors=True)
        subprocess.run(["useradd", "--no-create-home", "--no-log-init", "--home-dir", self.home, "--user-group",
                        "--uid", str(free_number()), name],
                       check=True, capture_output=True)
        stack.callback(self.take_away, name)
        entry = pwd.getpwnam(name)
        self.name, self.number, self.group = name, entry.pw_uid, entry.pw_gid
        os.chown(self.home, self.number, self.group)
        self.runtime = f"/run/user/{self.number}"
        if not os.path.isdir("/run/user"):
            os.mkdir("/run/user", 0o755)
            stack.callback(os.rmdir, "/run/user")
        os.mkdir(self.runtime, 0o700)
        stack.callback(shutil.rmtree, self.runtime, ignore_errors=True)
        os.chown(self.runtime, self.number, self.group)

    @staticmethod
    def take_away(name):
        number = pwd.getpwnam(name).pw_uid
        for process, user in processes():
            if user == number:
                with contextlib.suppress(OSError):
                    os.kill(process, signal.SIGKILL)
        subprocess.run(["userdel", "--force", name], check=True, capture_output=True)

    def begin_bus(self):
        """Their session bus, with an agent installed."""
        folder = self.home / "services"
        folder.mkdir()
        agent = self.home / "agent"
        agent.write_text(AGENT, encoding="utf-8")
        agent.chmod(0o755)
        (folder / "com.tevanic.NoticeAgent.zelvik.service").write_text(
            f"[D-BUS Service]\nName=com.tevanic.NoticeAgent.zelvik\nExec={agent}\n", encoding="utf-8")
        configuration = self.home / "bus.conf"
        configuration.write_text(BUS_CONFIGURATION.format(address=f"unix:path={self.runtime}/bus", folder=folder),
                                 encoding="utf-8")
        bus = subprocess.Popen(["dbus-daemon", f"--config-file={configuration}", "--print-address", "--nofork",
                                "--nosyslog"], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                               stderr=subprocess.DEVNULL, cwd="/", user=self.number, group=self.group, extra_groups=[],
                               env={"PATH": "/usr/bin:/bin", "HOME": str(self.home)})
        self.stack.callback(bus.wait)
        self.stack.callback(bus.kill)
        with bus.stdout:
            bus.stdout.readline()

    def noted(self):
        path = self.home / "noted"
        return path.read_text(encoding="utf-8").splitlines() if path.exists() else []


class OtherUserTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        # Where every user can reach it, wherever the build is.
        cls.place = Path(tempfile.mkdtemp(prefix="notice-users-"))
        cls.addClassCleanup(shutil.rmtree, cls.place, ignore_errors=True)
        cls.place.chmod(0o755)
        cls.command = shutil.copy(COMMAND, cls.place / "post-notice")

    def setUp(self):
        self.stack = contextlib.ExitStack()
        self.addCleanup(self.stack.close)
        self.count = 0
        self.user = self.new_user()

    def new_user(self):
        self.count += 1
        return TestUser(f"notice{os.getpid()}-{self.count}", self.stack)

    ENVIRONMENT = {"PATH": "/usr/bin:/bin", "LC_ALL": "C.UTF-8", "TSAN_OPTIONS": "detect_deadlocks=0",
                   "DBUS_SESSION_BUS_ADDRESS": "unix:path=/of/the/service"}

    def begin(self, *arguments, **options):
        process = subprocess.Popen([self.command, *arguments], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE, text=True, env=self.ENVIRONMENT, cwd="/", **options)
        self.stack.callback(process.communicate)
        self.stack.callback(process.kill)
        return process

    def run_command(self, *arguments, **options):
        process = self.begin(*arguments, **options)
        output, errors = process.communicate(timeout=60)
        return process.returncode, output, errors

    def assert_refused(self, status, words, *arguments, **options):
        found, output, errors = self.run_command(*arguments, **options)
        self.assertEqual((found, output), (status, ""), errors)
        self.assertRegex(errors, r"\Apost-notice: [^\n]+\n\Z")
        self.assertIn(words, errors)

    def test_message_comes_to_that_user_from_that_user_and_to_nobody_else(self):
        other = self.new_user()
        for user in (self.user, other):
            user.begin_bus()
        for given in (self.user.name, str(self.user.number)):
            self.assertEqual(self.run_command("--user", given, "--re-authenticate", "--wait-reauthentication=20"),
                             (0, f"posted {MESSAGE}\nreceived {ANSWER}\n", ""))
        number = self.user.number
        self.assertEqual(self.user.noted(), [f"agent of {number}", *2 * [f"{MESSAGE} from {number}"]])
        self.assertEqual(other.noted(), [])

    def test_nothing_of_root_is_left_in_the_process(self):
        self.user.begin_bus()

        def spoil():
            # As far as this machine lets root.
            for step in (lambda: os.sched_setscheduler(0, os.SCHED_RR, os.sched_param(1)),
                         lambda: os.setpriority(os.PRIO_PROCESS, 0, -5),
                         lambda: resource.setrlimit(resource.RLIMIT_RTPRIO, (99, 99)),
                         lambda: resource.setrlimit(resource.RLIMIT_CORE, (1000, 1000))):
                with contextlib.suppress(OSError, ValueError):
                    step()
            os.umask(0o077)
        process = self.begin("--user", self.user.name, "--folder=acme", "--wait=60", "--re-authenticate",
                             preexec_fn=spoil)

        def status():
            with open(f"/proc/{process.pid}/status", encoding="utf-8") as file:
                return dict(line.rstrip("\n").split(":\t", 1) for line in file if ":\t" in line)
        wait_until(lambda: status()["Umask"] == "0022", "the process is the user's")
        facts = status()
        self.assertEqual(facts["Uid"].split(), 4 * [str(self.user.number)])
        self.assertEqual(facts["Gid"].split(), 4 * [str(self.user.group)])
        self.assertEqual(facts["Groups"].split(), [str(self.user.group)])
        for kind in ("CapPrm", "CapEff", "CapAmb"):
            self.assertEqual(int(facts[kind], 16), 0, kind)
        self.assertEqual(os.sched_getscheduler(process.pid), os.SCHED_OTHER)
        self.assertEqual(os.getpriority(os.PRIO_PROCESS, process.pid), 0)
        limits = Path(f"/proc/{process.pid}/limits").read_text(encoding="utf-8")
        for limit in ("Max core file size", "Max realtime priority"):
            self.assertRegex(limits, rf"{limit} +0 +0 ")

    def test_files_are_read_with_the_rights_of_the_user(self):
        self.user.begin_bus()
        path = self.place / "of root's own.xml"
        path.write_text("<zelvik-secure-access/>", encoding="utf-8")
        path.chmod(0o600)
        self.assert_refused(1, "Permission denied", "--user", self.user.name, "--casb", str(path))

    def test_user_who_is_not_logged_in(self):
        self.assert_refused(4, f"{self.user.name} has no session", "--user", self.user.name, "--re-authenticate")

    def test_bus_of_another_user_lets_nobody_in(self):
        other = self.new_user()
        other.begin_bus()
        self.assert_refused(4, "has no session", "--user", self.user.name, "--bus", f"unix:path={other.runtime}/bus",
                            "--re-authenticate")
        os.symlink(f"{other.runtime}/bus", f"{self.user.runtime}/bus")
        self.assert_refused(4, "has no session", "--user", self.user.name, "--re-authenticate")
        self.assertEqual(other.noted(), [])

    def test_nobody_of_that_name(self):
        for name in ("nobody of that name", "4000000123", "", "0x0", "-1"):
            with self.subTest(name=name):
                self.assert_refused(1, "no such user", "--user", name, "--re-authenticate")

    def test_only_root_becomes_another_user(self):
        other = self.new_user()
        other.begin_bus()
        self.user.begin_bus()
        rights = {"user": self.user.number, "group": self.user.group, "extra_groups": []}
        self.assert_refused(1, "only root", "--user", other.name, "--re-authenticate", **rights)
        # One's own needs no rights, and keeps the environment.
        self.assertEqual(self.run_command("--user", self.user.name, "--bus", f"unix:path={self.user.runtime}/bus",
                                          "--re-authenticate", **rights)[0], 0)


if __name__ == "__main__":
    missing = [name for name in ("useradd", "userdel", "dbus-daemon") if not shutil.which(name)]
    if os.geteuid() != 0 or missing:
        print("skipped: " + (f"there is no {', '.join(missing)}" if missing else "users can only be made by root"))
        sys.exit(77)
    # Users are taken away again, also when the test is ended from outside.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    unittest.main()
