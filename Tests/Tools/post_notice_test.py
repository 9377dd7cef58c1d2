#!/usr/bin/python3
"""Tests of the command post-notice, on a private bus.

The command's path is taken from the environment variable POST_NOTICE; without it the release build's is tested.
"""

import contextlib
import datetime
import os
import plistlib
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

import dbus
import dbus.lowlevel

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.insert(0, os.path.join(ROOT, "Tests/Acceptance"))

from desktop import AGENT_NAME, Bus, pump, wait_until  # noqa: E402

COMMAND = os.path.abspath(os.environ.get("POST_NOTICE", os.path.join(ROOT, "build/release/bin/post-notice")))
MESSAGE = "zelvik_socketMessageNotifier"

# Stands for the agent's program: notes its process. The test owns the name for it.
PROGRAM = """#!/bin/sh
echo $$ >> "${{0%/*}}/started"
exec {}
"""


def typed(value):
    """A value with the bus's name of its type."""
    for kind, bus_type, plain in (("b", dbus.Boolean, bool), ("ay", dbus.ByteArray, bytes), ("s", dbus.String, str)):
        if isinstance(value, bus_type):
            return kind, plain(value)
    return "another", value


def name_of(brand):
    return f"{AGENT_NAME}.{brand}"


class PostNoticeTestCase(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.bus_folder = tempfile.mkdtemp(prefix="post-notice-bus-")
        cls.addClassCleanup(shutil.rmtree, cls.bus_folder, ignore_errors=True)
        cls.bus = Bus(cls.bus_folder)
        cls.addClassCleanup(cls.bus.close)

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="post-notice-")
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        pump()
        self.bus.heard.clear()

    def environment(self, **changes):
        environment = {**os.environ, "DBUS_SESSION_BUS_ADDRESS": self.bus.address, "LC_ALL": "C.UTF-8",
                       # A build for ThreadSanitizer: the command has one thread, in which the bus library takes
                       # its own locks in two orders.
                       "TSAN_OPTIONS": "detect_deadlocks=0", **changes}
        return {name: value for name, value in environment.items() if value is not None}

    def begin(self, *arguments, **options):
        options.setdefault("env", self.environment())
        process = subprocess.Popen([COMMAND, *arguments], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE, **options)
        self.addCleanup(self.end, process)
        return process

    @staticmethod
    def end(process):
        if process.poll() is None:
            process.kill()
        process.communicate()

    def finish(self, process, serve=lambda: None):
        """Its status, output and errors; the bus is served meanwhile, and so is what the test stands for."""
        wait_until(lambda: serve() or process.poll() is not None, "the command ends", interval=0.002)
        output, errors = process.communicate()
        return process.returncode, output.decode(), errors.decode(errors="replace")

    def run_command(self, *arguments, serve=lambda: None, **options):
        return self.finish(self.begin(*arguments, **options), serve)

    def file(self, name, content):
        path = os.path.join(self.folder, name)
        with open(path, "wb") as file:
            file.write(content if isinstance(content, bytes) else content.encode())
        return path

    def agent_here(self, *brands):
        """A connection that owns the brands' names until the test ends."""
        connection = self.bus.connect()
        self.addCleanup(connection.close)
        for brand in brands or ("zelvik",):
            connection.request_name(name_of(brand))
        return connection

    def heard(self):
        wait_until(lambda: self.bus.heard, "the message comes")
        self.assertEqual(len(self.bus.heard), 1)
        message = self.bus.heard.pop()
        self.assertIn(message.signature, ("ss", "ssa{sv}"))
        name, sender_object, *user_info = message.arguments
        entries = {str(key): typed(value) for key, value in user_info[0].items()} if user_info else None
        return name, sender_object, entries

    def posted(self, *arguments):
        """What one successful run posts to agents of two brands: name, object and typed user info."""
        agent = self.agent_here("zelvik", "acme")
        status, _output, errors = self.run_command(*arguments)
        self.assertEqual((status, errors), (0, ""))
        message = self.heard()
        agent.close()
        return message

    def entries(self, *arguments):
        return self.posted(*arguments)[2]

    def assert_refused(self, status, words, *arguments, **options):
        """One line of error that holds the words, nothing posted, and nothing else said but what was started."""
        found, output, errors = self.run_command(*arguments, **options)
        self.assertEqual(found, status, errors)
        self.assertRegex(output, r"\A(started [^\n]+\n)?\Z")
        self.assertRegex(errors, r"\Apost-notice: [^\n]+\n\Z")
        for word in [words] if isinstance(words, str) else words:
            self.assertIn(word, errors)
        self.bus.process_of(AGENT_NAME)  # comes back after whatever the command may have posted
        pump()
        self.assertEqual(self.bus.heard, [])


class MessageTest(PostNoticeTestCase):

    def test_name_of_the_brand(self):
        self.assertEqual(self.posted("--flag", "A", "--folder", "acme"),
                         ("acme_socketMessageNotifier", "", {"A": ("b", True)}))

    def test_entries(self):
        every_byte = bytes(range(256)) * 3
        text = "\ufeff<?xml version='1.0'?>\r\n<a>ü😀</a>\n\n"
        list_path = self.file("message.plist", plistlib.dumps({"A": "file", "B": "file", "C": "file"}))
        for arguments, expected in (
                (["--flag", "A", "--flag", "B=true", "--flag=C=false"],
                 {"A": ("b", True), "B": ("b", True), "C": ("b", False)}),
                (["--text", "B=", "--text=C=a=b=c", "--text", "D= <ü>&\n\t😀 ", "--text", "Ä=--flag"],
                 {"B": ("s", ""), "C": ("s", "a=b=c"), "D": ("s", " <ü>&\n\t😀 "), "Ä": ("s", "--flag")}),
                (["--casb", self.file("a=b.xml", text)], {"webSocketResponse": ("s", text)}),
                (["--data", "A=" + self.file("a", every_byte), "--data", "B=" + self.file("b", "")],
                 {"A": ("ay", every_byte), "B": ("ay", b"")}),
                (["--plist", self.file("empty.plist", plistlib.dumps({}))], {}),
                # The last option of a key counts, and any option against a list.
                (["--text", "A=option", "--plist", list_path, "--text", "B=1", "--flag", "B"],
                 {"A": ("s", "option"), "B": ("b", True), "C": ("s", "file")})):
            with self.subTest(arguments=arguments):
                self.assertEqual(self.entries(*arguments), expected)

    def test_a_document_may_come_through_a_pipe(self):
        reading, writing = os.pipe()
        os.write(writing, b"from a pipe")
        os.close(writing)
        self.agent_here()
        process = self.begin("--casb", f"/dev/fd/{reading}", pass_fds=[reading])
        os.close(reading)
        self.assertEqual(self.finish(process)[0], 0)
        self.assertEqual(self.heard()[2], {"webSocketResponse": ("s", "from a pipe")})

    def test_a_property_list_gives_what_the_agent_reads(self):
        content = {"WebSocketType": True, "text": " tabs\tand <&>\nlines ü😀 ", "data": bytes(range(256)), "ключ": "key",
                   # The agent takes these for absent.
                   "number": 1, "real": 0.25, "date": datetime.datetime(2024, 5, 1), "list": [True], "more": {"a": "b"}}
        self.assertEqual(self.entries("--plist", self.file("message.plist", plistlib.dumps(content))),
                         {"WebSocketType": ("b", True), "text": ("s", " tabs\tand <&>\nlines ü😀 "),
                          "data": ("ay", bytes(range(256))), "ключ": ("s", "key")})

    def test_notices(self):
        document = "<zelvik-secure-access/>\n"
        path = self.file("a.xml", document)
        disconnect = {"AutoDisconnectWebSocketType": ("b", True), "AutoDisconnectMessageKey": ("s", "Policy")}
        for arguments, expected in (
                (["--maintenance", "Back at 18:00 = 6 pm"],
                 {"WebSocketType": ("b", True), "MaintenanceMessageKey": ("s", "Back at 18:00 = 6 pm")}),
                (["--auto-disconnect", "Policy"], disconnect),
                (["--vpn-connected", "--auto-disconnect", "Policy"],
                 {**disconnect, "AutoDisconnectVPNStatus": ("b", True)}),
                (["--re-authenticate"], {"WebSocketReAuthType": ("b", True)}),
                (["--concurrent-session", path],
                 {"WebSocketAdminDisconnect": ("b", True), "webSocketResponse": ("s", document)}),
                (["--casb", path, "--language", "zh-Hans", "--logo", self.file("logo", b"\x89PNG\r\n\x1a\n\0")],
                 {"webSocketResponse": ("s", document), "webSocketappLanguageKey": ("s", "zh-Hans"),
                  "HeaderLogoImage": ("ay", b"\x89PNG\r\n\x1a\n\0")})):
            with self.subTest(arguments=arguments):
                self.assertEqual(self.entries(*arguments), expected)

    def test_logos_are_images(self):
        for beginning in (b"\xff\xd8\xff", b"GIF89a", b"\0\0\1\0", b"BM", b"<?xml version='1.0'?>\n<svg/>"):
            with self.subTest(beginning=beginning):
                path = self.file("logo", beginning + b" and more")
                self.assertEqual(self.entries("--re-authenticate", "--logo", path)["HeaderLogoImage"][0], "ay")
        self.assert_refused(1, ["--logo: /etc/passwd", "not a PNG"], "--re-authenticate", "--logo", "/etc/passwd")

    def test_a_full_message_is_taken_and_a_larger_one_refused(self):
        self.agent_here()
        path = self.file("large", "")
        os.truncate(path, 64 * 1024 * 1024 - 100)
        self.assertEqual(len(self.entries("--data", f"A={path}")["A"][1]), 64 * 1024 * 1024 - 100)
        os.truncate(path, 65 * 1024 * 1024)
        self.assert_refused(1, ["--data", path, "larger than the bus allows"], "--data", f"A={path}")
        os.truncate(path, 40 * 1024 * 1024)
        self.assert_refused(1, "larger than the bus allows", "--data", f"A={path}", "--data", f"B={path}")


class UsageTest(PostNoticeTestCase):

    def test_help_needs_no_bus_and_fits_a_terminal(self):
        status, output, errors = self.run_command(
            "--help", env=self.environment(DBUS_SESSION_BUS_ADDRESS="unix:path=/nowhere"))
        self.assertEqual((status, errors), (0, ""))
        self.assertTrue(output.startswith("Usage: post-notice [OPTION]...\n"))
        self.assertLessEqual(max(map(len, output.splitlines())), 80)
        self.assertIn("\n  --casb", output)

    def test_wrong_usage(self):
        path = self.file("a", "text")
        for words, arguments in (
                ("no message", []),
                ("no message", ["--language", "de", "--logo", path]),
                ("operand", ["operand"]),
                ("-q", ["-q"]),
                ("--fl", ["--fl", "A"]),  # no shortened options
                ("--text", ["--text"]),
                ("--maintenance", ["--re-authenticate", "--maintenance"]),
                ("--quiet", ["--re-authenticate", "--quiet=yes"]),
                ("--flag", ["--flag", "A=yes"]),
                ("--flag", ["--flag", ""]),
                ("--text", ["--text", "=value"]),
                ("--data", ["--data", path]),
                *[("--wait", ["--re-authenticate", f"--wait={text}"]) for text in ("", "-1", "1s", "nan", "1000001")],
                ("--casb cannot be combined with --maintenance", ["--maintenance", "text", "--casb", path]),
                ("--vpn-connected needs --auto-disconnect", ["--vpn-connected", "--maintenance", "text"]),
                ("--start cannot be combined with --user",
                 ["--re-authenticate", "--user", "root", "--start", self.folder]),
                # What is not UTF-8.
                *[(option, ["--re-authenticate", option, value])
                  for option, value in (("--text", b"A=\xff"), ("--text", b"\xc3=a"), ("--flag", b"\xff"),
                                        ("--data", b"\xff=" + path.encode()), ("--folder", b"\xff"))],
                ("--maintenance", ["--maintenance", b"\xed\xa0\x80"])):
            with self.subTest(arguments=arguments):
                self.assert_refused(2, words, *arguments)

    def test_files_that_cannot_be_sent(self):
        for option, content, words in (
                ("--plist", plistlib.dumps(["a"]), "not a property list whose root is a dictionary"),
                ("--plist", b"", "not a property list"),
                ("--plist", plistlib.dumps({"A": "a\0b"}, fmt=plistlib.FMT_BINARY), "A: a zero byte"),
                ("--casb", b"t\xe4xt", "not UTF-8"),
                ("--casb", b"a\0b", "not UTF-8"),
                ("--casb", "<a/>".encode("utf-16"), "not UTF-8")):
            with self.subTest(option=option, content=content):
                path = self.file("wrong", content)
                self.assert_refused(1, [f"{option}: {path}", words], option, path)
        missing = os.path.join(self.folder, "missing file")
        for option, form in (("--plist", "{}"), ("--data", "A={}"), ("--casb", "{}"),
                             ("--concurrent-session", "{}"), ("--logo", "{}")):
            with self.subTest(option=option):
                notice = ["--re-authenticate"] if option == "--logo" else []
                for path, words in ((missing, "No such file"), (self.folder, "directory")):
                    self.assert_refused(1, [f"{option}: {path}", words], "--quiet", *notice, option, form.format(path))

    def test_no_bus(self):
        self.assert_refused(1, "no session bus: ", "--re-authenticate", env=self.environment(
            DBUS_SESSION_BUS_ADDRESS=None, DISPLAY=None, XDG_RUNTIME_DIR=self.folder))
        self.assert_refused(1, "no session bus: ", "--re-authenticate", "--bus", f"unix:path={self.folder}/none")

    def test_what_the_bus_library_says_is_printable(self):
        self.assert_refused(1, "no session bus: Failed to connect to socket /?]0;title????????: No such file",
                            "--re-authenticate", env=self.environment(
                                DBUS_SESSION_BUS_ADDRESS="unix:path=/%1b%5d0%3btitle%07%0d%0a%c3%bc%e2%80%ae"))


class AgentTest(PostNoticeTestCase):

    def bundle(self, command="sleep 60", brand="zelvik"):
        """A bundle of that brand whose program becomes that command, ended when the test ends."""
        contents = os.path.join(self.folder, f"{brand}.app", "Contents")
        os.makedirs(os.path.join(contents, "Linux"))
        program = os.path.join(contents, "Linux/NoticeAgent")
        with open(program, "w", encoding="utf-8") as file:
            file.write(PROGRAM.format(command))
        os.chmod(program, 0o755)
        os.mkdir(os.path.join(contents, "Resources"))
        with open(os.path.join(contents, "Resources/Application_Shared.plist"), "wb") as file:
            plistlib.dump({"LogFolderName": brand}, file)
        bundle = os.path.dirname(contents)
        self.addCleanup(self.end_program, bundle)
        return bundle

    def installed(self, command="sleep 60", brand="zelvik"):
        bundle = self.bundle(command, brand)
        self.bus.install(name_of(brand), os.path.join(bundle, "Contents/Linux/NoticeAgent"))
        self.addCleanup(self.bus.uninstall, name_of(brand))
        return bundle

    @staticmethod
    def started(bundle):
        """The processes of the bundle's program so far."""
        with contextlib.suppress(FileNotFoundError), open(os.path.join(bundle, "Contents/Linux/started"),
                                                          encoding="ascii") as file:
            return [int(line) for line in file]
        return []

    def end_program(self, bundle):
        for process in self.started(bundle):
            with contextlib.suppress(ProcessLookupError):
                os.kill(process, signal.SIGKILL)

    def owner(self, bundle, brand="zelvik"):
        """What owns the brand's name once the bundle's program runs."""
        owners = []

        def serve():
            if not owners and self.started(bundle):
                owners.append(self.agent_here(brand))
        return serve

    # --- the installed agent

    def test_a_wrong_file_starts_no_agent(self):
        bundle = self.installed()
        self.assert_refused(1, "--casb", "--casb", os.path.join(self.folder, "missing"))
        self.assertEqual(self.started(bundle), [])

    def test_the_bus_starts_the_installed_agent_once(self):
        bundle = self.installed()
        owner = self.owner(bundle)
        for _round in range(2):
            self.assertEqual(self.run_command("--re-authenticate", serve=owner), (0, f"posted {MESSAGE}\n", ""))
            self.assertEqual(self.heard()[0], MESSAGE)
        self.assertEqual(len(self.started(bundle)), 1)

    def test_each_brand_has_its_agent(self):
        zelvik, acme = self.installed(), self.installed(brand="acme")
        self.assertEqual(self.run_command("--re-authenticate", "--folder=acme", serve=self.owner(acme, "acme"))[0], 0)
        self.assertEqual(self.started(zelvik), [])
        self.assertEqual(self.heard()[0], "acme_socketMessageNotifier")
        self.assertEqual(self.run_command("--re-authenticate", serve=self.owner(zelvik))[0], 0)
        self.assertEqual(self.heard()[0], MESSAGE)

    def test_an_agent_that_is_not_installed_ends_or_never_comes(self):
        self.agent_here("acme")
        self.assert_refused(5, "no agent is installed that owns com.tevanic.NoticeAgent.zelvik", "--re-authenticate")
        self.installed("sh -c 'exit 7'")
        self.assert_refused(6, "the agent ended before it was ready", "--re-authenticate")
        # Without a display. The bus takes this for a program that goes on in the background.
        self.installed("true", "other")
        self.assert_refused(6, "no agent came within 0.5 s", "--re-authenticate", "--folder=other", "--wait=0.5")

    def assert_goes_to_the_next(self, end):
        """A message at which the agent ends so."""
        ending = self.agent_here()
        bundle = self.installed()

        def end_at_the_message(connection, message):
            if message.get_member() == "Posted":
                end(connection)
            return dbus.lowlevel.HANDLER_RESULT_NOT_YET_HANDLED
        ending.add_match_string("type='signal',member='Posted'")
        ending.add_message_filter(end_at_the_message)
        self.assertEqual(self.run_command("--re-authenticate", serve=self.owner(bundle)),
                         (0, f"posted {MESSAGE}\n", ""))
        wait_until(lambda: len(self.bus.heard) == 2, "the message is posted to the next agent")

    def test_a_message_to_an_agent_that_is_about_to_end_goes_to_the_next(self):
        def give_back_name(connection):
            release = dbus.lowlevel.MethodCallMessage("org.freedesktop.DBus", "/org/freedesktop/DBus",
                                                      "org.freedesktop.DBus", "ReleaseName")
            release.append(name_of("zelvik"), signature="s")
            connection.send_message(release)
        self.assert_goes_to_the_next(give_back_name)

    def test_a_message_to_an_agent_that_is_killed_goes_to_the_next(self):
        self.assert_goes_to_the_next(lambda connection: connection.close())

    # --- the agent of a bundle, and one that somebody else starts

    @staticmethod
    def spoil_signals():
        signal.pthread_sigmask(signal.SIG_BLOCK, [signal.SIGTERM])
        signal.signal(signal.SIGPIPE, signal.SIG_IGN)
        signal.signal(signal.SIGUSR1, signal.SIG_IGN)

    def test_start_starts_the_agent_with_nothing_of_the_command_and_posts_once_it_is_there(self):
        bundle = self.bundle()
        reading, writing = os.pipe()
        self.addCleanup(os.close, reading)
        process = self.begin("--start", "zelvik.app", "--re-authenticate", cwd=self.folder, pass_fds=[writing],
                             preexec_fn=self.spoil_signals)
        os.close(writing)
        self.assertEqual(self.finish(process, self.owner(bundle)),
                         (0, f"started zelvik.app/Contents/Linux/NoticeAgent\nposted {MESSAGE}\n", ""))
        self.assertEqual(self.heard()[0], MESSAGE)
        (agent,) = self.started(bundle)  # it outlives the command
        self.assertEqual(os.getsid(agent), agent)
        process = f"/proc/{agent}"
        wait_until(lambda: os.readlink(f"{process}/exe").endswith("/sleep"), "the shell is gone")
        self.assertEqual(os.readlink(f"{process}/cwd"), "/")
        self.assertEqual({number: os.readlink(f"{process}/fd/{number}") for number in os.listdir(f"{process}/fd")},
                         dict.fromkeys("012", "/dev/null"))
        with open(f"{process}/status", encoding="utf-8") as file:
            status = dict(line.split(":", 1) for line in file)
        ordinary_signals = (1 << 31) - 1  # those behind them are the C library's and nobody can reset them
        self.assertEqual((int(status["SigIgn"], 16) & ordinary_signals, int(status["SigBlk"], 16)), (0, 0))

    def test_start_does_nothing_when_an_agent_is_there(self):
        bundle = self.bundle()
        self.assertEqual(self.posted("--start", bundle, "--re-authenticate")[0], MESSAGE)
        self.assertEqual(self.started(bundle), [])

    def test_start_knows_the_bundles_brand(self):
        bundle = self.bundle(brand="acme")
        self.agent_here("zelvik")
        self.assertEqual(self.run_command("--start", bundle, "--re-authenticate", "--quiet",
                                          serve=self.owner(bundle, "acme")), (0, "", ""))
        self.assertEqual(self.heard()[0], "acme_socketMessageNotifier")

    def test_start_of_what_cannot_be_started(self):
        bundle = self.bundle()
        program = os.path.join(bundle, "Contents/Linux/NoticeAgent")
        for words, spoil in (("Permission denied", lambda: os.chmod(program, 0o644)),
                             ("No such file", lambda: os.remove(program))):
            with self.subTest(words):
                spoil()
                self.assert_refused(1, [f"--start: {program}", words], "--start", bundle, "--re-authenticate")

    def test_waiting_for_an_agent(self):
        # One that ends at once is not waited for.
        self.assert_refused(6, "the agent ended with status 7 before it was ready", "--start",
                            self.bundle("sh -c 'exit 7'"), "--wait=600", "--re-authenticate")
        self.assert_refused(6, "no agent came within 0.4 s", "--wait=0.4", "--re-authenticate")
        process = self.begin("--wait=60", "--re-authenticate")
        time.sleep(0.3)  # most often it waits by then
        pump()
        self.assertIsNone(process.poll())
        self.agent_here()
        self.assertEqual(self.finish(process)[0], 0)
        self.assertEqual(self.heard()[0], MESSAGE)
        self.assertEqual(self.run_command("--wait=0", "--re-authenticate")[0], 0)

    # --- the re-authentication notification

    def test_an_answer_however_fast_is_heard(self):
        self.agent_here()
        answer = "brand 'x'_webSocketToMainAppNotifier"

        def serve():
            if self.bus.heard:
                self.bus.heard.clear()
                self.bus.emit("ss", answer, "")
        self.assertEqual(self.run_command("--re-authenticate", "--vendor", "brand 'x'", "--wait-reauthentication=60",
                                          serve=serve), (0, f"posted {MESSAGE}\nreceived {answer}\n", ""))

    def test_no_answer_in_time(self):
        self.agent_here()
        status, output, errors = self.run_command("--re-authenticate", "--wait-reauthentication=0.4")
        self.assertEqual((status, output), (3, f"posted {MESSAGE}\n"))
        self.assertEqual(errors, "post-notice: --wait-reauthentication: no notification within 0.4 s\n")


if __name__ == "__main__":
    if not os.access(COMMAND, os.X_OK):
        sys.exit(f"{COMMAND} is not there; build it, or name another with POST_NOTICE")
    unittest.main()
