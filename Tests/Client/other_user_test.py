#!/usr/bin/python3
"""A service of root's and the sessions of other users: post-notice --user, and so the library behind it.

Makes users for the time of the test, so that it has to be root; says that it is skipped otherwise. The command's
path is taken from the environment variable POST_NOTICE, the bundle's from NOTICE_AGENT_BUNDLE.
"""

import contextlib
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))

from users import PATIENCE, Program, TestUser, environment_of, status_of, wait_until  # noqa: E402

ROOT = Path(__file__).resolve().parents[2]
COMMAND = os.path.abspath(os.environ.get("POST_NOTICE", ROOT / "build/release/bin/post-notice"))
BUNDLE = os.path.abspath(os.environ.get("NOTICE_AGENT_BUNDLE", ROOT / "build/release/NoticeAgent.app"))
MESSAGE = "zelvik_socketMessageNotifier"
ANSWER = "zelvik_webSocketToMainAppNotifier"

# A bundle whose agent notes its environment and ends.
NOTING = """#!/bin/sh
tr '\\0' '\\n' < /proc/$$/environ > "$HOME/environment.new"
mv "$HOME/environment.new" "$HOME/environment"
"""

LOGIN_MANAGER = '''
sessions = {sessions!r}
def answer(path, interface, member):
    if member == "ListSessions":
        return GLib.Variant("(a(susso))", ([(s["id"], s["user"], "x", "seat0", s["path"]) for s in sessions],))
    session = next(s for s in sessions if s["path"] == path)
    return {{"Active": GLib.Variant("b", session["active"]), "Remote": GLib.Variant("b", session.get("remote", False)),
            "Type": GLib.Variant("s", session["type"]), "Class": GLib.Variant("s", session.get("class", "user")),
            "Display": GLib.Variant("s", session["display"])}}[member]
serve("/org/freedesktop/login1", """<node><interface name="org.freedesktop.login1.Manager"><method name="ListSessions">
  <arg type="a(susso)" direction="out"/></method></interface></node>""", answer)
for session in sessions:
    serve(session["path"], """<node><interface name="org.freedesktop.login1.Session">
      <property name="Active" type="b" access="read"/><property name="Remote" type="b" access="read"/>
      <property name="Type" type="s" access="read"/><property name="Class" type="s" access="read"/>
      <property name="Display" type="s" access="read"/></interface></node>""", answer)
own("org.freedesktop.login1")
'''

SERVICE_MANAGER = '''
serve("/org/freedesktop/systemd1", """<node><interface name="org.freedesktop.systemd1.Manager">
  <property name="Environment" type="as" access="read"/></interface></node>""",
  lambda path, interface, member: GLib.Variant("as", {variables!r}))
own("org.freedesktop.systemd1")
'''


class OtherUserTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.class_stack = contextlib.ExitStack()
        cls.addClassCleanup(cls.class_stack.close)
        # Where every user can reach it, wherever the build is.
        cls.place = Path(tempfile.mkdtemp(prefix="notice-users-"))
        cls.class_stack.callback(shutil.rmtree, cls.place, ignore_errors=True)
        cls.place.chmod(0o755)
        shutil.copytree(BUNDLE, cls.place / "NoticeAgent.app")
        cls.command = shutil.copy(COMMAND, cls.place / "post-notice")
        program = cls.place / "Noting.app/Contents/Linux/NoticeAgent"
        program.parent.mkdir(parents=True)
        program.write_text(NOTING, encoding="utf-8")
        program.chmod(0o755)

    def setUp(self):
        self.stack = contextlib.ExitStack()
        self.addCleanup(self.stack.close)
        self.count = 0
        self.user = self.new_user()

    def new_user(self):
        self.count += 1
        return TestUser(f"notice{os.getpid()}-{self.count}", self.stack)

    def environment(self, **changes):
        """Of a service: no session of its own, and no login manager but the test's."""
        environment = {"PATH": "/usr/bin:/bin", "LC_ALL": "C.UTF-8", "TSAN_OPTIONS": "detect_deadlocks=0",
                       "DBUS_SYSTEM_BUS_ADDRESS": "unix:path=/nowhere/at/all", "SECRET": "of the service's own"}
        return {**environment, **changes}

    def run_command(self, *arguments, environment=None, **options):
        result = subprocess.run([self.command, *arguments], stdin=subprocess.DEVNULL, capture_output=True, text=True,
                                timeout=60, env=environment or self.environment(), cwd="/", check=False, **options)
        return result.returncode, result.stdout, result.stderr

    def assert_refused(self, status, words, *arguments, **options):
        found, output, errors = self.run_command(*arguments, **options)
        self.assertEqual((found, output), (status, ""), errors)
        self.assertRegex(errors, r"\Apost-notice: [^\n]+\n\Z")
        for word in [words] if isinstance(words, str) else words:
            self.assertIn(word, errors)

    def noted(self, *arguments, **options):
        """The environment that an agent is started with for the user."""
        path = Path(self.user.home, "environment")
        path.unlink(missing_ok=True)
        # The agent ends before it owns the name; that is known here.
        status, _output, errors = self.run_command("--user", self.user.name, "--start", str(self.place / "Noting.app"),
                                                   "--re-authenticate", *arguments, **options)
        self.assertEqual(status, 1, errors)
        self.assertIn("before it was ready", errors)
        wait_until(path.exists, "the agent has noted its environment")
        return dict(line.split("=", 1) for line in path.read_text(encoding="utf-8").splitlines())

    def begin_system_bus(self, body):
        """A system bus with that program on it; returns the environment that names it."""
        address = f"unix:abstract=notice-system-{os.urandom(6).hex()}"
        bus = subprocess.Popen(["dbus-daemon", "--session", f"--address={address}", "--print-address", "--nofork",
                                "--nosyslog"], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                               stderr=subprocess.DEVNULL)
        self.stack.callback(bus.wait)
        self.stack.callback(bus.kill)
        with bus.stdout:
            bus.stdout.readline()
        Program(self.stack, [address], body)
        return self.environment(DBUS_SYSTEM_BUS_ADDRESS=address)

    # --- the message

    def test_bus_lets_not_even_root_in(self):
        self.user.begin_bus()
        result = subprocess.run(["dbus-send", f"--bus={self.user.address}", "--print-reply",
                                 "--dest=org.freedesktop.DBus", "/", "org.freedesktop.DBus.GetId"],
                                capture_output=True, check=False)
        self.assertNotEqual(result.returncode, 0)

    def test_message_comes_to_that_user_from_that_user_and_to_nobody_else(self):
        other = self.new_user()
        for user in (self.user, other):
            user.begin_bus()
        ears = {user.name: user.begin_program("agent", "answers") for user in (self.user, other)}
        for given in (self.user.name, str(self.user.number)):
            self.assertEqual(self.run_command("--user", given, "--wait=5", "--re-authenticate",
                                              "--wait-reauthentication=20"),
                             (0, f"posted {MESSAGE}\nreceived {ANSWER}\n", ""))
        ear = ears[self.user.name]
        wait_until(lambda: len(ear.heard()) == 2, "both messages come")
        self.assertEqual(ear.heard(), 2 * [{"name": MESSAGE, "signature": "(ssa{sv})", "user": self.user.number}])
        self.assertEqual(ears[other.name].heard(), [])

    def test_bus_that_goes_while_an_answer_is_waited_for(self):
        bus = self.user.begin_bus()
        ear = self.user.begin_program("agent")
        process = subprocess.Popen([self.command, "--user", self.user.name, "--re-authenticate",
                                    "--wait-reauthentication=60"], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE, text=True, env=self.environment())
        wait_until(ear.heard, "the message comes")
        bus.kill()
        _output, errors = process.communicate(timeout=PATIENCE)
        self.assertEqual((process.returncode, errors.count("\n")), (3, 1), errors)

    def test_bus_of_a_given_address(self):
        address = f"unix:path={self.user.home}/bus"
        self.user.begin_bus(address)
        ear = self.user.begin_program(address=address)
        self.assertEqual(self.run_command("--user", self.user.name, "--bus", address, "--re-authenticate")[0], 0)
        wait_until(ear.heard, "the message comes")

    def test_bus_that_only_programs_of_the_session_name(self):
        for address in (f"unix:path={self.user.home}/bus", f"unix:abstract=notice-{os.urandom(6).hex()}"):
            with self.subTest(address=address):
                bus = self.user.begin_bus(address)
                program = self.user.begin_desktop_program(DBUS_SESSION_BUS_ADDRESS=address, DISPLAY=":9")
                ear = self.user.begin_program(address=address)
                self.assertEqual(self.run_command("--user", self.user.name, "--re-authenticate")[0], 0)
                wait_until(ear.heard, "the message comes")
                program.kill()
                bus.kill()
                program.wait()
                bus.wait()

    # --- the agent

    def test_agent_is_that_users_and_the_service_keeps_nothing_open_in_it(self):
        other = self.new_user()
        for user in (self.user, other):
            user.begin_bus()
            user.begin_desktop_program(DISPLAY=user.begin_screen(), XDG_SESSION_TYPE="x11", LANG="C.UTF-8",
                                       LD_PRELOAD="", SECRET="of the user's")
        arguments = ["--start", str(self.place / "NoticeAgent.app"), "--wait=30", "--maintenance", "Back at 18:00."]
        agents = {}
        reading, writing = os.pipe()
        self.addCleanup(os.close, reading)
        self.addCleanup(os.close, writing)
        for user in (other, self.user):
            status, output, errors = self.run_command("--user", user.name, *arguments, pass_fds=[writing],
                                                      umask=0o077)
            self.assertEqual((status, errors), (0, ""))
            self.assertIn("started ", output)
            agents[user.name] = user.processes("/NoticeAgent")
            self.assertEqual(len(agents[user.name]), 1)
        # A second message goes to the one that is there, and nothing of the other user's is touched.
        self.assertEqual(self.run_command("--user", self.user.name, *arguments)[:2], (0, f"posted {MESSAGE}\n"))
        for user in (other, self.user):
            self.assertEqual(user.processes("/NoticeAgent"), agents[user.name])

        agent = agents[self.user.name][0]
        facts = status_of(agent)
        self.assertEqual(facts["Uid"].split(), 4 * [str(self.user.number)])
        self.assertEqual(facts["Gid"].split(), 4 * [str(self.user.group)])
        self.assertEqual(facts["Groups"].split(), [str(self.user.group)])
        self.assertEqual(facts["Umask"], "0022")
        for kind in ("CapInh", "CapPrm", "CapEff", "CapAmb"):
            self.assertEqual(int(facts[kind], 16), 0, kind)
        self.assertEqual(os.getsid(agent), agent)
        pipe = os.fstat(writing).st_ino
        for number in os.listdir(f"/proc/{agent}/fd"):
            with contextlib.suppress(FileNotFoundError):
                self.assertNotEqual(os.stat(f"/proc/{agent}/fd/{number}").st_ino, pipe)
        environment = environment_of(agent)
        self.assertEqual(environment.pop("DISPLAY", "")[:1], ":")
        self.assertEqual(environment, {
            "PATH": "/usr/local/bin:/usr/bin:/bin", "HOME": self.user.home, "USER": self.user.name,
            "LOGNAME": self.user.name, "SHELL": "/bin/sh", "DBUS_SESSION_BUS_ADDRESS": self.user.address,
            "XDG_RUNTIME_DIR": self.user.runtime, "XDG_SESSION_TYPE": "x11", "LANG": "C.UTF-8"})
        for processes in agents.values():
            os.kill(processes[0], signal.SIGTERM)
        wait_until(lambda: not self.user.processes("/NoticeAgent") and not other.processes("/NoticeAgent"),
                   "the agents end")

    def test_notice_is_shown_on_that_users_screen(self):
        self.user.begin_bus()
        display = self.user.begin_screen()
        self.assertEqual(self.run_command("--user", self.user.name, "--display", display, "--start",
                                          str(self.place / "NoticeAgent.app"), "--wait=30", "--maintenance", "Text")[0],
                         0)
        agent = self.user.processes("/NoticeAgent")[0]

        def is_shown():
            tree = subprocess.run(["xwininfo", "-display", display, "-root", "-tree"], capture_output=True, text=True,
                                  check=False).stdout
            windows = [line.split()[0] for line in tree.splitlines() if "460x" in line]
            return any("IsViewable" in subprocess.run(
                ["xwininfo", "-display", display, "-id", window, "-stats"], capture_output=True, text=True,
                check=False).stdout for window in windows)
        wait_until(is_shown, "the notice is on the screen")
        os.kill(agent, signal.SIGTERM)
        wait_until(lambda: not self.user.processes("/NoticeAgent"), "the agent ends")

    def test_agent_that_the_user_may_not_run(self):
        self.user.begin_bus()
        folder = Path(tempfile.mkdtemp(prefix="notice-private-"))  # root's alone
        self.addCleanup(shutil.rmtree, folder)
        shutil.copytree(self.place / "Noting.app", folder / "Noting.app")
        self.assert_refused(1, ["--start: ", "Permission denied"], "--user", self.user.name, "--display", ":9",
                            "--start", str(folder / "Noting.app"), "--re-authenticate")

    # --- no session

    def test_user_who_is_not_logged_in(self):
        self.assert_refused(4, [f"--user: no session of {self.user.name}", "No such file"],
                            "--user", self.user.name, "--re-authenticate")
        os.rmdir(self.user.runtime)
        self.assert_refused(4, f"--user: no session of {self.user.name}", "--user", self.user.name, "--re-authenticate")

    def test_session_without_a_display_starts_no_agent_and_gets_messages(self):
        self.user.begin_bus()
        self.assert_refused(4, [f"no session of {self.user.name} has a display"], "--user", self.user.name,
                            "--start", str(self.place / "Noting.app"), "--re-authenticate")
        ear = self.user.begin_program()
        self.assertEqual(self.run_command("--user", self.user.name, "--re-authenticate")[0], 0)
        wait_until(ear.heard, "the message comes")

    def test_nobody_of_that_name(self):
        for name in ("nobody of that name", "4000000123", "", "0x0", "-1"):
            with self.subTest(name=name):
                self.assert_refused(1, "--user: ", "--user", name, "--re-authenticate")

    def test_only_root_may_use_the_session_of_another_user(self):
        other = self.new_user()
        other.begin_bus()
        ear = other.begin_program()
        self.assert_refused(1, ["--user: ", "only root"], "--user", other.name, "--re-authenticate",
                            environment=self.environment(HOME=self.user.home), **self.user.rights())
        self.assertEqual(ear.heard(), [])

    def test_everybody_may_name_themselves(self):
        self.user.begin_bus()
        ear = self.user.begin_program()
        self.assertEqual(self.run_command("--user", self.user.name, "--re-authenticate", **self.user.rights())[0], 0)
        wait_until(ear.heard, "the message comes")

    # --- what users may put in the way

    def test_folder_or_socket_that_is_not_the_users_own_is_not_used(self):
        other = self.new_user()
        self.user.begin_bus()

        def refused():
            self.assert_refused(4, "Permission denied", "--user", self.user.name, "--re-authenticate")
        os.chmod(self.user.runtime, 0o777)
        refused()
        os.chmod(self.user.runtime, 0o720)
        refused()
        os.chmod(self.user.runtime, 0o700)
        self.assertEqual(self.run_command("--user", self.user.name, "--re-authenticate")[0], 0)
        os.chown(f"{self.user.runtime}/bus", other.number, other.group)
        refused()
        os.chown(f"{self.user.runtime}/bus", self.user.number, self.user.group)
        os.chmod(self.user.runtime, 0o755)
        os.chown(self.user.runtime, other.number, other.group)
        refused()

    def test_link_to_another_users_bus_leads_nowhere(self):
        other = self.new_user()
        other.begin_bus()
        ear = other.begin_program()
        os.symlink(f"{other.runtime}/bus", f"{self.user.runtime}/bus")
        os.lchown(f"{self.user.runtime}/bus", self.user.number, self.user.group)
        self.assert_refused(4, "no session", "--user", self.user.name, "--re-authenticate")
        # Nor does an address that the user's programs name.
        os.chmod(other.runtime, 0o755)
        self.user.begin_desktop_program(DBUS_SESSION_BUS_ADDRESS=other.address, DISPLAY=":9")
        self.assert_refused(4, "no session", "--user", self.user.name, "--re-authenticate")
        self.assertEqual(ear.heard(), [])

    def test_bus_that_another_user_serves_is_not_spoken_to(self):
        other = self.new_user()
        name = f"notice-{os.urandom(6).hex()}"
        # The kernel notes who listens.
        script = (f"import socket,time; s=socket.socket(socket.AF_UNIX); s.bind('\\0{name}'); s.listen();"
                  "print(flush=True); time.sleep(600)")
        process = other.begin(["/usr/bin/python3", "-c", script], stdout=subprocess.PIPE)
        with process.stdout:
            process.stdout.readline()
        self.assert_refused(4, "served by somebody else", "--user", self.user.name,
                            "--bus", f"unix:abstract={name}", "--re-authenticate")

    def test_address_that_names_a_program_runs_none(self):
        mark = Path(self.user.home, "mark")
        address = f"unixexec:path=/usr/bin/touch,argv1={mark}"
        self.user.begin_desktop_program(DBUS_SESSION_BUS_ADDRESS=address, DISPLAY=":9")
        self.assert_refused(4, "no session", "--user", self.user.name, "--re-authenticate")
        self.assert_refused(1, "neither unix:path", "--user", self.user.name, "--bus", address, "--re-authenticate")
        self.assertFalse(mark.exists())

    def test_bus_that_says_nothing_or_nonsense_is_given_up(self):
        rows = [("time.sleep(600)", "does not answer"),
                ("c.sendall(b'x' * 100000); time.sleep(600)", "does not answer"),
                ("c.sendall(b'REJECTED EXTERNAL\\r\\n'); time.sleep(600)", "does not let"),
                ("c.sendall(b'OK 1234\\r\\n' + b'nonsense' * 1000); time.sleep(600)", "went away"),
                ("c.sendall(b'OK 1234\\r\\nl\\2\\1\\1\\xff\\xff\\xff\\7' + bytes(100)); time.sleep(600)", "went away"),
                ("c.close(); time.sleep(600)", "no session")]
        for index, (behaviour, words) in enumerate(rows):
            with self.subTest(behaviour=behaviour):
                path = f"{self.user.home}/{index}"
                script = (f"import socket,time; s=socket.socket(socket.AF_UNIX); s.bind('{path}'); s.listen();"
                          f"print(flush=True); c=s.accept()[0]; {behaviour}")
                process = self.user.begin(["/usr/bin/python3", "-c", script], stdout=subprocess.PIPE)
                with process.stdout:
                    process.stdout.readline()
                begin = time.monotonic()
                self.assert_refused(4, words, "--user", self.user.name, "--bus", f"unix:path={path}",
                                    "--re-authenticate")
                self.assertLess(time.monotonic() - begin, 10 + PATIENCE)

    # --- which display

    def test_display_of_the_youngest_program_where_nobody_says_more(self):
        self.user.begin_bus()
        self.user.begin_desktop_program(DISPLAY=":21", XAUTHORITY="/a/b")
        self.user.begin_desktop_program(DISPLAY=None)
        self.assertEqual(self.noted()["DISPLAY"], ":21")
        self.user.begin_desktop_program(DISPLAY=":22", DBUS_SESSION_BUS_ADDRESS="unix:path=/of/another/desktop")
        noted = self.noted()
        self.assertEqual((noted["DISPLAY"], noted["XAUTHORITY"]), (":21", "/a/b"))
        self.user.begin_desktop_program(DISPLAY=":23", DBUS_SESSION_BUS_ADDRESS=None, WAYLAND_DISPLAY="wayland-1")
        noted = self.noted()
        self.assertEqual((noted["DISPLAY"], noted["WAYLAND_DISPLAY"]), (":23", "wayland-1"))
        self.assertNotIn("XAUTHORITY", noted)
        self.assertNotIn("SECRET", noted)

    def test_display_that_is_given_counts_most(self):
        self.user.begin_bus()
        self.user.begin_desktop_program(DISPLAY=":21", WAYLAND_DISPLAY="wayland-1", LANG="C")
        noted = self.noted("--display", ":29")
        self.assertEqual((noted["DISPLAY"], noted["LANG"]), (":29", "C"))
        self.assertNotIn("WAYLAND_DISPLAY", noted)

    def test_display_of_the_service_manager(self):
        self.user.begin_bus()
        self.user.begin_desktop_program(DISPLAY=":21")
        self.user.begin_program(body=SERVICE_MANAGER.format(variables=["DISPLAY=:24", "XAUTHORITY=/c/d", "no variable"]))
        noted = self.noted()
        self.assertEqual((noted["DISPLAY"], noted["XAUTHORITY"]), (":24", "/c/d"))

    def test_display_of_the_session_that_is_active(self):
        self.user.begin_bus()
        other = self.new_user()
        session = {"user": self.user.number, "type": "x11", "display": "", "active": False}
        paths = [f"/org/freedesktop/login1/session/_{number}" for number in range(5)]

        def environment(*sessions):
            numbered = [{"path": path, **found} for path, found in zip(paths, sessions)]
            return self.begin_system_bus(LOGIN_MANAGER.format(sessions=numbered))

        self.user.begin_desktop_program(DISPLAY=":31", XDG_SESSION_ID="1", XAUTHORITY="/first")
        self.user.begin_desktop_program(DISPLAY=":32", XDG_SESSION_ID="2", XAUTHORITY="/second")
        rows = [
            ("the active one", ":31", [{**session, "id": "1", "active": True}, {**session, "id": "2"}]),
            ("the other active one", ":32", [{**session, "id": "1"}, {**session, "id": "2", "active": True}]),
            ("none active: the youngest", ":32", [{**session, "id": "1"}, {**session, "id": "2"}]),
            ("known by its display", ":31", [{**session, "id": "7", "active": True, "display": ":31"}]),
            ("no program of it is known", ":33", [{**session, "id": "7", "active": True, "display": ":33"}]),
            ("neither text, nor far away, nor a login screen, nor another user's", ":31", [
                {**session, "id": "2", "active": True, "type": "tty"},
                {**session, "id": "2", "active": True, "remote": True},
                {**session, "id": "2", "active": True, "class": "greeter"},
                {**session, "id": "2", "active": True, "user": other.number},
                {**session, "id": "1", "active": True, "type": "wayland"}]),
        ]
        for name, display, sessions in rows:
            with self.subTest(name):
                self.assertEqual(self.noted(environment=environment(*sessions))["DISPLAY"], display)


def main():
    if os.geteuid() != 0:
        print("Skipped: users can only be made by root.")
        return 0
    missing = [name for name in ("useradd", "userdel", "dbus-daemon", "Xvfb", "xwininfo") if not shutil.which(name)]
    if missing:
        print(f"Skipped: there is no {', '.join(missing)}.")
        return 0
    # Users are taken away again, also when the test is ended from outside.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    program = unittest.main(module=__name__, exit=False)
    result = program.result
    print(f"{result.testsRun - len(result.failures) - len(result.errors)} passed, "
          f"{len(result.failures) + len(result.errors)} failed")
    return 0 if result.wasSuccessful() and result.testsRun else 1


if __name__ == "__main__":
    sys.exit(main())
