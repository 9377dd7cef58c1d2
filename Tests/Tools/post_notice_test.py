#!/usr/bin/python3
"""Tests of the command post-notice, on a private bus.

The command's path is taken from the environment variable POST_NOTICE; without it the release build's is tested.
"""

import contextlib
import datetime
import json
import os
import plistlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

import dbus
import dbus.lowlevel
from gi.repository import Gio, GLib

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.insert(0, os.path.join(ROOT, "Tests/Acceptance"))

from desktop import AGENT_NAME, Bus, pump, wait_until  # noqa: E402

COMMAND = os.path.abspath(os.environ.get("POST_NOTICE", os.path.join(ROOT, "build/release/bin/post-notice")))
MESSAGE = "zelvik_socketMessageNotifier"

# Stands for the agent. A shell begins, since it changes no signal's handling by itself, but while it starts
# another program.
AGENT = """#!/bin/sh
folder=${0%/*}
while read -r line; do
    case $line in Sig*) printf '%s\\n' "$line" ;; esac
done < /proc/$$/status > "$folder/signals"
exec /usr/bin/python3 "$folder/agent.py"
"""

# It notes how it was started, owns its brand's name and notes what it hears, or ends as its folder's behaviour file
# says.
AGENT_BODY = r'''
import json, os, sys
folder = os.path.dirname(os.path.abspath(__file__))
behaviour, brand = open(os.path.join(folder, "behaviour")).read().split()
signals = dict(line.rstrip().split(":\t") for line in open(os.path.join(folder, "signals")))
descriptors = sorted(int(number) for number in os.listdir("/proc/self/fd"))
facts = {
    "process": os.getpid(),
    "session": os.getsid(0),
    "folder": os.getcwd(),
    "program": folder,
    "streams": [os.readlink(f"/proc/self/fd/{number}") for number in (0, 1, 2)],
    # The first free one is that of the listing itself.
    "others": [number for number in descriptors if number > 3],
    "ignored": signals["SigIgn"],
    "blocked": signals["SigBlk"],
}
with open(os.path.join(folder, "facts.new"), "w") as file:
    json.dump(facts, file)
os.rename(os.path.join(folder, "facts.new"), os.path.join(folder, "facts"))
if behaviour.startswith("end"):
    sys.exit(int(behaviour[3:]))
from gi.repository import Gio, GLib
bus = Gio.bus_get_sync(Gio.BusType.SESSION)
loop = GLib.MainLoop()
def posted(_bus, _sender, path, interface, member, arguments):
    if arguments[0] != brand + "_socketMessageNotifier":
        return
    with open(os.path.join(folder, "heard"), "a") as file:
        print(arguments[0], file=file)
bus.signal_subscribe(None, "com.tevanic.DistributedNotificationCenter", "Posted", None, None, 0, posted)
bus.call_sync("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "RequestName",
              GLib.Variant("(su)", ("com.tevanic.NoticeAgent." + brand, 0)), None, 0, -1, None)
GLib.timeout_add_seconds(60, loop.quit)
loop.run()
'''


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
        """Its status, output and errors; the bus is served meanwhile."""
        wait_until(lambda: serve() or process.poll() is not None, "the command ends", interval=0.002)
        output, errors = process.communicate()
        return process.returncode, output.decode(), errors.decode(errors="replace")

    def run_command(self, *arguments, **options):
        return self.finish(self.begin(*arguments, **options))

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
        return name, sender_object, {str(key): typed(value) for key, value in user_info[0].items()} if user_info else None

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

    def test_names(self):
        empty = self.file("empty.plist", plistlib.dumps({}))
        for arguments, expected in (
                (["--flag", "A"], (MESSAGE, "", {"A": ("b", True)})),
                (["--flag", "A", "--folder", "acme"], ("acme_socketMessageNotifier", "", {"A": ("b", True)})),
                (["--plist", empty], (MESSAGE, "", {}))):
            with self.subTest(arguments=arguments):
                self.assertEqual(self.posted(*arguments), expected)

    def test_entries(self):
        every_byte = bytes(range(256)) * 3
        text = "\ufeff<?xml version='1.0'?>\r\n<a>ü😀</a>\n\n"
        list_path = self.file("message.plist", plistlib.dumps({"A": "file", "B": "file", "C": "file"}))
        for arguments, expected in (
                (["--flag", "A", "--flag", "B=true", "--flag=C=false"],
                 {"A": ("b", True), "B": ("b", True), "C": ("b", False)}),
                (["--text", "A=plain", "--text", "B=", "--text=C=a=b=c", "--text", "D= <ü>&\n\t😀 ", "--text", "Ä=key",
                  "--text", "E=--flag"],
                 {"A": ("s", "plain"), "B": ("s", ""), "C": ("s", "a=b=c"), "D": ("s", " <ü>&\n\t😀 "),
                  "Ä": ("s", "key"), "E": ("s", "--flag")}),
                (["--casb", self.file("a=b.xml", text)], {"webSocketResponse": ("s", text)}),
                (["--data", "A=" + self.file("a", every_byte), "--data", "B=" + self.file("b", "")],
                 {"A": ("ay", every_byte), "B": ("ay", b"")}),
                # The last option of a key counts, and any option against a list.
                (["--text", "A=1", "--text", "B=2", "--flag", "A"], {"A": ("b", True), "B": ("s", "2")}),
                (["--text", "A=option", "--plist", list_path, "--flag", "B", "--text", "D=1"],
                 {"A": ("s", "option"), "B": ("b", True), "C": ("s", "file"), "D": ("s", "1")})):
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

    def test_progress_goes_to_standard_output(self):
        self.agent_here()
        self.assertEqual(self.run_command("--re-authenticate"), (0, f"posted {MESSAGE}\n", ""))
        self.assertEqual(self.run_command("--re-authenticate", "--quiet"), (0, "", ""))

    def test_version(self):
        with open(os.path.join(ROOT, "CMakeLists.txt"), encoding="utf-8") as file:
            version = re.search(r"project\(\w+ VERSION (\S+)", file.read()).group(1)
        self.assertEqual(self.run_command("--version"), (0, f"post-notice {version}\n", ""))

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
                ("no message", ["--quiet", "--wait=0"]),
                ("no message", ["--language", "de", "--logo", path]),
                ("operand", ["operand"]),
                ("-q", ["-q"]),
                ("--no-such-option", ["--no-such-option=1"]),
                ("--fl", ["--fl", "A"]),  # no shortened options
                ("--text", ["--text"]),
                ("--maintenance", ["--re-authenticate", "--maintenance"]),
                ("--quiet", ["--re-authenticate", "--quiet=yes"]),
                ("--flag", ["--flag", "A=yes"]),
                ("--flag", ["--flag", ""]),
                ("--flag", ["--flag", "=true"]),
                ("--text", ["--text", "A"]),
                ("--text", ["--text", "=value"]),
                ("--data", ["--data", path]),
                *[(option, ["--re-authenticate", f"{option}={text}"])
                  for option, text in (("--wait", ""), ("--wait", "-1"), ("--wait", "1s"), ("--wait", "nan"),
                                       ("--wait", "1000001"), ("--wait-reauthentication", "1e3"))],
                ("--casb cannot be combined with --maintenance", ["--maintenance", "text", "--casb", path]),
                ("--vpn-connected needs --auto-disconnect", ["--vpn-connected"]),
                ("--vpn-connected needs --auto-disconnect", ["--vpn-connected", "--maintenance", "text"]),
                ("--start cannot be combined with --user",
                 ["--re-authenticate", "--user", "root", "--start", self.folder]),
                # What is not UTF-8.
                *[(option, ["--re-authenticate", option, value])
                  for option, value in (("--text", b"A=\xff"), ("--text", b"\xc3=a"), ("--flag", b"\xff"),
                                        ("--data", b"\xff=" + path.encode()), ("--language", b"\xff"),
                                        ("--folder", b"\xff"), ("--vendor", b"\xff"))],
                ("--maintenance", ["--maintenance", b"\xed\xa0\x80"])):
            with self.subTest(arguments=arguments):
                self.assert_refused(2, words, *arguments)

    def test_files_that_cannot_be_sent(self):
        for option, form, name, content, words in (
                ("--plist", "{}", "list.plist", plistlib.dumps(["a"]), "not a property list whose root is a dictionary"),
                ("--plist", "{}", "empty.plist", b"", "not a property list"),
                ("--plist", "{}", "zero.plist", plistlib.dumps({"A": "a\0b"}, fmt=plistlib.FMT_BINARY), "A: a zero byte"),
                ("--casb", "{}", "latin", b"t\xe4xt", "not UTF-8"),
                ("--casb", "{}", "zero", b"a\0b", "not UTF-8"),
                ("--casb", "{}", "utf-16.xml", "<a/>".encode("utf-16"), "not UTF-8")):
            with self.subTest(option=option, file=name):
                path = self.file(name, content)
                self.assert_refused(1, [f"{option}: {path}", words], option, form.format(path))
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

    def bundle(self, behaviour, brand="zelvik"):
        """A bundle of that brand with a stand-in for the agent, ended when the test ends."""
        bundle = os.path.join(self.folder, f"{brand}.app")
        folder = os.path.join(bundle, "Contents/Linux")
        resources = os.path.join(bundle, "Contents/Resources")
        os.makedirs(folder)
        os.makedirs(resources)
        for name, content in (("NoticeAgent", AGENT), ("agent.py", AGENT_BODY), ("behaviour", f"{behaviour} {brand}")):
            with open(os.path.join(folder, name), "w", encoding="utf-8") as file:
                file.write(content)
        os.chmod(os.path.join(folder, "NoticeAgent"), 0o755)
        with open(os.path.join(resources, "Application_Shared.plist"), "wb") as file:
            plistlib.dump({"LogFolderName": brand}, file)
        self.addCleanup(self.end_agent, bundle, brand)
        return bundle

    @staticmethod
    def noted(bundle, name):
        path = os.path.join(bundle, "Contents/Linux", name)
        if not os.path.exists(path):
            return ""
        with open(path, encoding="utf-8") as file:
            return file.read()

    def facts(self, bundle):
        return json.loads(self.noted(bundle, "facts") or "null")

    def wait_heard(self, bundle, text=f"{MESSAGE}\n"):
        wait_until(lambda: self.noted(bundle, "heard") == text, "the agent hears its messages")

    def end_agent(self, bundle, brand):
        facts = self.facts(bundle)
        if facts:
            with contextlib.suppress(ProcessLookupError):
                os.kill(facts["process"], signal.SIGKILL)
            wait_until(lambda: self.bus.process_of(name_of(brand)) is None, "the agent is gone")

    def installed(self, behaviour, brand="zelvik"):
        bundle = self.bundle(behaviour, brand)
        self.bus.install(name_of(brand), os.path.join(bundle, "Contents/Linux/NoticeAgent"), {})
        self.addCleanup(self.bus.uninstall, name_of(brand))
        return bundle

    # --- the installed agent

    def test_a_wrong_file_starts_no_agent(self):
        bundle = self.installed("stay")
        self.assert_refused(1, "--casb", "--casb", os.path.join(self.folder, "missing"))
        self.assertIsNone(self.facts(bundle))

    def test_the_bus_starts_the_installed_agent_once(self):
        bundle = self.installed("stay")
        self.assertEqual(self.run_command("--re-authenticate"), (0, f"posted {MESSAGE}\n", ""))
        agent = self.facts(bundle)["process"]
        self.assertEqual(self.run_command("--re-authenticate"), (0, f"posted {MESSAGE}\n", ""))
        self.assertEqual(self.facts(bundle)["process"], agent)
        self.wait_heard(bundle, 2 * f"{MESSAGE}\n")

    def test_each_brand_has_its_agent(self):
        zelvik, acme = self.installed("stay"), self.installed("stay", "acme")
        self.assertEqual(self.run_command("--re-authenticate", "--folder", "acme")[0], 0)
        self.assertIsNone(self.facts(zelvik))
        self.assertEqual(self.run_command("--re-authenticate")[0], 0)
        self.wait_heard(zelvik)
        self.wait_heard(acme, "acme_socketMessageNotifier\n")

    def test_an_agent_that_is_not_installed_ends_or_never_comes(self):
        self.agent_here("acme")
        self.assert_refused(5, "no agent is installed that owns com.tevanic.NoticeAgent.zelvik", "--re-authenticate")
        self.installed("end7")
        self.assert_refused(6, "the agent ended before it was ready", "--re-authenticate")
        # Without a display. The bus takes this for a program that goes on in the background.
        self.installed("end0", "other")
        self.assert_refused(6, "no agent came within 0.5 s", "--re-authenticate", "--folder=other", "--wait=0.5")

    def test_a_message_to_an_agent_that_is_about_to_end_goes_to_the_next(self):
        ending = self.agent_here()
        bundle = self.installed("stay")

        def give_back_at_the_message(connection, message):
            if message.get_member() == "Posted":
                release = dbus.lowlevel.MethodCallMessage("org.freedesktop.DBus", "/org/freedesktop/DBus",
                                                          "org.freedesktop.DBus", "ReleaseName")
                release.append(name_of("zelvik"), signature="s")
                connection.send_message(release)
            return dbus.lowlevel.HANDLER_RESULT_NOT_YET_HANDLED
        ending.add_match_string("type='signal',member='Posted'")
        ending.add_message_filter(give_back_at_the_message)
        self.assertEqual(self.run_command("--re-authenticate"), (0, f"posted {MESSAGE}\n", ""))
        wait_until(lambda: self.noted(bundle, "heard"), "the next agent hears the message")

    def test_a_message_to_an_agent_that_is_killed_goes_to_the_next(self):
        killed = Gio.DBusConnection.new_for_address_sync(
            self.bus.address, Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT
            | Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION, None, None)
        killed.call_sync("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "RequestName",
                         GLib.Variant("(su)", (name_of("zelvik"), 0)), None, Gio.DBusCallFlags.NONE, -1, None)
        bundle = self.installed("stay")

        def end_at_the_message(connection, message, incoming):
            if incoming and message.get_member() == "Ping":
                connection.close(None, None)
                return None
            return message
        killed.add_filter(end_at_the_message)
        self.assertEqual(self.run_command("--re-authenticate"), (0, f"posted {MESSAGE}\n", ""))
        wait_until(lambda: self.noted(bundle, "heard"), "the next agent hears the message")

    # --- the agent of a bundle, and one that somebody else starts

    @staticmethod
    def spoil_signals():
        signal.pthread_sigmask(signal.SIG_BLOCK, [signal.SIGTERM])
        signal.signal(signal.SIGPIPE, signal.SIG_IGN)
        signal.signal(signal.SIGUSR1, signal.SIG_IGN)

    def test_start_starts_the_agent_and_posts_once_it_is_there(self):
        bundle = self.bundle("stay")
        reading, writing = os.pipe()
        self.addCleanup(os.close, reading)
        os.set_inheritable(writing, True)
        process = self.begin("--start", "zelvik.app", "--re-authenticate", cwd=self.folder, pass_fds=[writing],
                             preexec_fn=self.spoil_signals)
        os.close(writing)
        self.assertEqual(self.finish(process),
                         (0, f"started zelvik.app/Contents/Linux/NoticeAgent\nposted {MESSAGE}\n", ""))
        facts = self.facts(bundle)
        self.assertEqual(facts["session"], facts["process"])
        self.assertEqual(facts["folder"], "/")
        self.assertEqual(facts["program"], os.path.realpath(bundle) + "/Contents/Linux")
        self.assertEqual(facts["streams"], ["/dev/null"] * 3)
        self.assertEqual(facts["others"], [])
        ordinary_signals = (1 << 31) - 1  # those behind them are the C library's and nobody can reset them
        self.assertEqual(int(facts["ignored"], 16) & ordinary_signals, 0)
        self.assertEqual(int(facts["blocked"], 16), 0)
        self.wait_heard(bundle)  # the agent outlives the command

    def test_start_does_nothing_when_an_agent_is_there(self):
        bundle = self.bundle("end7")
        self.assertEqual(self.posted("--start", bundle, "--re-authenticate")[0], MESSAGE)
        self.assertIsNone(self.facts(bundle))

    def test_start_knows_the_bundles_brand(self):
        bundle = self.bundle("stay", "acme")
        self.agent_here("zelvik")
        self.assertEqual(self.run_command("--start", bundle, "--re-authenticate", "--quiet")[0], 0)
        self.wait_heard(bundle, "acme_socketMessageNotifier\n")

    def test_start_of_what_cannot_be_started(self):
        missing = os.path.join(self.folder, "None.app")
        program = missing + "/Contents/Linux/NoticeAgent"
        self.assert_refused(1, [f"--start: {program}", "No such file"], "--start", missing, "--re-authenticate")
        os.makedirs(os.path.dirname(program))
        with open(program, "w", encoding="utf-8") as file:
            file.write("neither a script nor a program")
        self.assert_refused(1, [f"--start: {program}", "Permission denied"], "--start", missing, "--re-authenticate")
        os.chmod(program, 0o755)
        self.assert_refused(1, [f"--start: {program}", "Exec format"], "--start", missing, "--re-authenticate")

    def test_waiting_for_an_agent(self):
        # One that ends at once is not waited for.
        self.assert_refused(6, "the agent ended with status 7 before it was ready", "--start", self.bundle("end7"),
                            "--wait=600", "--re-authenticate")
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
        for vendor in ["zelvik", "brand 'x'"] * 5:
            answer = vendor + "_webSocketToMainAppNotifier"

            def serve():
                if self.bus.heard:
                    self.bus.heard.clear()
                    self.bus.emit("ss", answer, "")  # noqa: B023
            process = self.begin("--re-authenticate", "--vendor", vendor, "--wait-reauthentication=60")
            self.assertEqual(self.finish(process, serve), (0, f"posted {MESSAGE}\nreceived {answer}\n", ""))

    def test_no_answer_in_time(self):
        self.agent_here()
        status, output, errors = self.run_command("--re-authenticate", "--wait-reauthentication=0.4")
        self.assertEqual((status, output), (3, f"posted {MESSAGE}\n"))
        self.assertEqual(errors, "post-notice: --wait-reauthentication: no notification within 0.4 s\n")


if __name__ == "__main__":
    if not os.access(COMMAND, os.X_OK):
        sys.exit(f"{COMMAND} is not there; build it, or name another with POST_NOTICE")
    unittest.main()
