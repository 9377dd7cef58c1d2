#!/usr/bin/python3
"""Tests of the command post-notice, on a private bus.

The command's path is taken from the environment variable POST_NOTICE; without it the release build's is
tested. Ends with the count of tests.
"""

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

import gi

gi.require_version("Gio", "2.0")
from gi.repository import Gio, GLib  # noqa: E402

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
COMMAND = os.path.abspath(os.environ.get("POST_NOTICE", os.path.join(ROOT, "build/release/bin/post-notice")))
MANUAL = os.path.join(ROOT, "Tools/PostNotice/post-notice.1")

INTERFACE = "com.tevanic.DistributedNotificationCenter"
PATH = "/com/tevanic/DistributedNotificationCenter"
AGENT_NAME = "com.tevanic.NoticeAgent"
MESSAGE = "zelvik_socketMessageNotifier"
ANSWER = "zelvik_webSocketToMainAppNotifier"

# How long a thing may take that happens at once on an idle machine.
PATIENCE = 20.0

# Stands for the agent. A shell begins, since it changes no signal's handling by itself, but while it starts
# another program.
AGENT = """#!/bin/sh
folder=${0%/*}
while read -r line; do
    case $line in Sig*) printf '%s\\n' "$line" ;; esac
done < /proc/$$/status > "$folder/signals"
exec /usr/bin/python3 "$folder/agent.py"
"""

# It notes how it was started, owns the name, and answers or ends as its folder's behaviour file says.
AGENT_BODY = r'''
import json, os, sys
folder = os.path.dirname(os.path.abspath(__file__))
behaviour = open(os.path.join(folder, "behaviour")).read()
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
if behaviour == "end":
    sys.exit(7)
import gi
gi.require_version("Gio", "2.0")
from gi.repository import Gio, GLib
bus = Gio.bus_get_sync(Gio.BusType.SESSION)
loop = GLib.MainLoop()
def posted(_bus, _sender, path, interface, member, arguments):
    if arguments.unpack()[0] != "zelvik_socketMessageNotifier":
        return
    if behaviour == "answer":
        bus.emit_signal(None, path, interface, member,
                        GLib.Variant("(ss)", ("zelvik_webSocketToMainAppNotifier", "")))
        bus.flush_sync()
    loop.quit()
bus.signal_subscribe(None, "com.tevanic.DistributedNotificationCenter", "Posted", None, None, 0, posted)
if behaviour != "nameless":
    bus.call_sync("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "RequestName",
                  GLib.Variant("(su)", ("com.tevanic.NoticeAgent", 0)), None, 0, -1, None)
GLib.timeout_add_seconds(60, loop.quit)
loop.run()
'''


def typed(value):
    """A value with the bus's name of its type, all the way down; the content of a variant for a variant."""
    kind = value.get_type_string()
    if kind == "v":
        return typed(value.get_variant())
    if kind == "ay":
        return kind, value.get_data_as_bytes().get_data() or b""
    if kind == "a{sv}":
        return kind, {pair.get_child_value(0).get_string(): typed(pair.get_child_value(1))
                      for pair in (value.get_child_value(index) for index in range(value.n_children()))}
    if kind == "av":
        return kind, [typed(value.get_child_value(index)) for index in range(value.n_children())]
    return kind, value.unpack()


class Bus:
    """A session bus of our own, and our ear on it."""

    def __init__(self):
        self.process = subprocess.Popen(["dbus-daemon", "--session", "--print-address", "--nofork", "--nosyslog"],
                                        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                        stderr=subprocess.DEVNULL, text=True)
        self.address = self.process.stdout.readline().strip()
        self.connection = self.connect()
        self.heard = []
        self.answering = None  # called with each notification of others
        self.connection.signal_subscribe(None, INTERFACE, "Posted", None, None, Gio.DBusSignalFlags.NONE, self._hear)

    def connect(self):
        return Gio.DBusConnection.new_for_address_sync(
            self.address, Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT
            | Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION, None, None)

    def _hear(self, connection, sender, path, _interface, _member, arguments):
        if sender == connection.get_unique_name():
            return
        self.heard.append((path, arguments))
        if self.answering:
            self.answering()

    def call(self, connection, method, arguments):
        return connection.call_sync("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", method,
                                    arguments, None, Gio.DBusCallFlags.NONE, -1, None).unpack()[0]

    def own_agent_name(self, connection):
        self.call(connection, "RequestName", GLib.Variant("(su)", (AGENT_NAME, 0)))

    def release_agent_name(self, connection):
        self.call(connection, "ReleaseName", GLib.Variant("(s)", (AGENT_NAME,)))

    def agent_is_there(self):
        return self.call(self.connection, "NameHasOwner", GLib.Variant("(s)", (AGENT_NAME,)))

    def emit(self, name):
        self.connection.emit_signal(None, PATH, INTERFACE, "Posted", GLib.Variant("(ss)", (name, "")))
        self.connection.flush_sync()

    def pump(self):
        while GLib.MainContext.default().iteration(False):
            pass

    def wait_until(self, condition, what):
        deadline = time.monotonic() + PATIENCE
        while True:
            self.pump()
            value = condition()
            if value:
                return value
            if time.monotonic() > deadline:
                raise AssertionError(f"not within {PATIENCE:g} s: {what}")
            time.sleep(0.002)

    def close(self):
        self.connection.close_sync()
        self.process.terminate()
        self.process.wait()
        self.process.stdout.close()


class PostNoticeTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.bus = Bus()
        cls.addClassCleanup(cls.bus.close)

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="post-notice-")
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.bus.pump()
        self.bus.heard = []
        self.bus.answering = None

    # --- helpers

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

    def finish(self, process):
        """Its status, output and errors; the bus is served meanwhile."""
        self.bus.wait_until(lambda: process.poll() is not None, "the command ends")
        output, errors = process.communicate()
        return process.returncode, output.decode(), errors.decode(errors="replace")

    def run_command(self, *arguments, **options):
        return self.finish(self.begin(*arguments, **options))

    def file(self, name, content):
        path = os.path.join(self.folder, name)
        with open(path, "wb") as file:
            file.write(content if isinstance(content, bytes) else content.encode())
        return path

    def posted(self, *arguments):
        """What one successful run posts: name, object and typed user info (None when left out)."""
        status, _output, errors = self.run_command(*arguments)
        self.assertEqual((status, errors), (0, ""))
        self.bus.wait_until(lambda: self.bus.heard, "the message comes")
        self.assertEqual(len(self.bus.heard), 1)
        path, message = self.bus.heard.pop()
        self.assertEqual(path, PATH)
        fields = [message.get_child_value(index) for index in range(message.n_children())]
        self.assertEqual([field.get_type_string() for field in fields], ["s", "s", "a{sv}"][:len(fields)])
        self.assertGreaterEqual(len(fields), 2)
        return fields[0].unpack(), fields[1].unpack(), typed(fields[2])[1] if len(fields) == 3 else None

    def entries(self, *arguments):
        return self.posted(*arguments)[2]

    def assert_refused(self, status, words, *arguments, **options):
        """One line of error that holds the words, nothing else said, nothing posted."""
        found, output, errors = self.run_command(*arguments, **options)
        self.assertEqual(found, status, errors)
        self.assertEqual(output, "")
        self.assertRegex(errors, r"\Apost-notice: [^\n]+\n\Z")
        for word in [words] if isinstance(words, str) else words:
            self.assertIn(word, errors)
        self.bus.emit("marker of the test's own")  # comes after whatever the command may have posted
        self.bus.pump()
        self.assertEqual(self.bus.heard, [])

    def bundle(self, behaviour):
        program = os.path.join(self.folder, "NoticeAgent.app/Contents/Linux/NoticeAgent")
        os.makedirs(os.path.dirname(program))
        for name, content in (("NoticeAgent", AGENT), ("agent.py", AGENT_BODY), ("behaviour", behaviour)):
            with open(os.path.join(os.path.dirname(program), name), "w", encoding="utf-8") as file:
                file.write(content)
        os.chmod(program, 0o755)
        self.addCleanup(self.end_agent)
        return os.path.join(self.folder, "NoticeAgent.app")

    def facts(self):
        path = os.path.join(self.folder, "NoticeAgent.app/Contents/Linux/facts")
        if not os.path.exists(path):
            return None
        with open(path, encoding="utf-8") as file:
            return json.load(file)

    def end_agent(self):
        facts = self.facts()
        if not facts:
            return
        try:
            os.kill(facts["process"], signal.SIGKILL)
        except ProcessLookupError:
            pass
        self.bus.wait_until(lambda: not self.bus.agent_is_there(), "the agent is gone")

    def agent_here(self):
        """A connection that owns the agent's name until the test ends."""
        connection = self.bus.connect()
        self.bus.own_agent_name(connection)
        self.addCleanup(lambda: connection.is_closed() or connection.close_sync())
        self.addCleanup(self.bus.wait_until, lambda: not self.bus.agent_is_there(), "the name is free")
        self.addCleanup(lambda: connection.is_closed() or self.bus.release_agent_name(connection))
        return connection

    # --- the signal

    def test_default_name_and_object(self):
        self.assertEqual(self.posted("--flag", "A"), (MESSAGE, "", {"A": ("b", True)}))

    def test_folder_name_and_object(self):
        self.assertEqual(self.posted("--flag", "A", "--folder", "acme")[0], "acme_socketMessageNotifier")
        self.assertEqual(self.posted("--flag", "A", "--folder", "")[0], "_socketMessageNotifier")
        self.assertEqual(self.posted("--flag", "A", "--name", "any name 'ü'", "--object", "söme")[:2],
                         ("any name 'ü'", "söme"))

    def test_no_user_info_has_two_arguments(self):
        self.assertEqual(self.posted("--no-user-info"), (MESSAGE, "", None))

    def test_empty_property_list_has_an_empty_user_info(self):
        path = self.file("empty.plist", plistlib.dumps({}))
        self.assertEqual(self.posted("--plist", path), (MESSAGE, "", {}))

    # --- entries given as options

    def test_flags(self):
        self.assertEqual(self.entries("--flag", "A", "--flag", "B=true", "--flag=C=false"),
                         {"A": ("b", True), "B": ("b", True), "C": ("b", False)})

    def test_texts(self):
        self.assertEqual(
            self.entries("--text", "A=plain", "--text", "B=", "--text=C=a=b=c", "--text", "D= <ü>&\n\t😀 ",
                         "--text", "Ä=key", "--text", "E=--flag"),
            {"A": ("s", "plain"), "B": ("s", ""), "C": ("s", "a=b=c"), "D": ("s", " <ü>&\n\t😀 "),
             "Ä": ("s", "key"), "E": ("s", "--flag")})

    def test_text_files_are_sent_as_they_are(self):
        text = "\ufeff<?xml version='1.0'?>\r\n<a>ü😀</a>\n\n"
        self.assertEqual(self.entries("--text-file", "A=" + self.file("a=b.xml", text),
                                      "--text-file", "B=" + self.file("empty", "")),
                         {"A": ("s", text), "B": ("s", "")})

    def test_a_text_may_come_through_a_pipe(self):
        reading, writing = os.pipe()
        os.write(writing, b"from a pipe")
        os.close(writing)
        process = self.begin("--text-file", f"A=/dev/fd/{reading}", pass_fds=[reading])
        os.close(reading)
        self.assertEqual(self.finish(process)[0], 0)
        self.bus.wait_until(lambda: self.bus.heard, "the message comes")
        self.assertEqual(typed(self.bus.heard[0][1].get_child_value(2))[1], {"A": ("s", "from a pipe")})

    def test_data(self):
        every_byte = bytes(range(256)) * 3
        self.assertEqual(self.entries("--data", "A=" + self.file("a", every_byte), "--data", "B=" + self.file("b", "")),
                         {"A": ("ay", every_byte), "B": ("ay", b"")})

    def test_large_data_arrives_whole(self):
        content = os.urandom(1024) * 8 * 1024
        self.assertEqual(self.entries("--data", "A=" + self.file("a", content)), {"A": ("ay", content)})

    def test_numbers(self):
        self.assertEqual(
            self.entries("--number", "A=0", "--number", "B=-9223372036854775808", "--number", "C=9223372036854775807",
                         "--number", "D=18446744073709551615", "--number", "E=1.5", "--number", "F=-2e3",
                         "--number", "G=18446744073709551616"),
            {"A": ("x", 0), "B": ("x", -9223372036854775808), "C": ("x", 9223372036854775807),
             "D": ("t", 18446744073709551615), "E": ("d", 1.5), "F": ("d", -2000.0),
             "G": ("d", 18446744073709551616.0)})

    def test_the_last_option_of_a_key_counts(self):
        self.assertEqual(self.entries("--text", "A=1", "--text", "B=2", "--flag", "A"),
                         {"A": ("b", True), "B": ("s", "2")})

    # --- property lists

    MIXED = {
        "WebSocketType": True, "no": False, "text": " tabs\tand <&>\nlines ü😀 ", "empty": "",
        "data": bytes(range(256)), "nothing": b"", "ключ": "key",
        # Left out: the agent reads none of these.
        "number": 1, "real": 0.25, "date": datetime.datetime(2024, 5, 1, 12, 30, 59), "list": ["a"],
        "dictionary": {"inner": True},
    }
    MIXED_ON_THE_BUS = {
        "WebSocketType": ("b", True), "no": ("b", False), "text": ("s", " tabs\tand <&>\nlines ü😀 "),
        "empty": ("s", ""), "data": ("ay", bytes(range(256))), "nothing": ("ay", b""), "ключ": ("s", "key"),
    }

    def test_property_lists_of_both_forms(self):
        for form in (plistlib.FMT_XML, plistlib.FMT_BINARY):
            with self.subTest(form=form):
                path = self.file("message.plist", plistlib.dumps(self.MIXED, fmt=form))
                self.assertEqual(self.entries("--plist", path), self.MIXED_ON_THE_BUS)

    def test_options_override_the_property_list_wherever_they_stand(self):
        path = self.file("message.plist", plistlib.dumps({"A": "file", "B": "file", "C": "file"}))
        self.assertEqual(self.entries("--text", "A=option", "--plist", path, "--flag", "B", "--number", "D=1"),
                         {"A": ("s", "option"), "B": ("b", True), "C": ("s", "file"), "D": ("x", 1)})

    # --- the notices' shorthands

    def test_maintenance(self):
        self.assertEqual(self.entries("--maintenance", "Back at 18:00 = 6 pm"),
                         {"WebSocketType": ("b", True), "MaintenanceMessageKey": ("s", "Back at 18:00 = 6 pm")})

    def test_auto_disconnect(self):
        expected = {"AutoDisconnectWebSocketType": ("b", True), "AutoDisconnectMessageKey": ("s", "Policy")}
        self.assertEqual(self.entries("--auto-disconnect", "Policy"), expected)
        self.assertEqual(self.entries("--auto-disconnect", "Policy", "--vpn-connected"),
                         {**expected, "AutoDisconnectVPNStatus": ("b", True)})

    def test_re_authenticate(self):
        self.assertEqual(self.entries("--re-authenticate"), {"WebSocketReAuthType": ("b", True)})

    def test_concurrent_session(self):
        document = "<zelvik-secure-access/>\n"
        self.assertEqual(self.entries("--concurrent-session", self.file("a.xml", document)),
                         {"WebSocketAdminDisconnect": ("b", True), "webSocketResponse": ("s", document)})

    def test_casb_with_language_and_logo(self):
        document = "<zelvik-secure-access/>"
        self.assertEqual(self.entries("--casb", self.file("a.xml", document), "--language", "zh-Hans",
                                      "--logo", self.file("logo.png", b"\x89PNG\r\n\x1a\n\0")),
                         {"webSocketResponse": ("s", document), "webSocketappLanguageKey": ("s", "zh-Hans"),
                          "HeaderLogoImage": ("ay", b"\x89PNG\r\n\x1a\n\0")})

    # --- what is said

    def test_progress_goes_to_standard_output(self):
        self.assertEqual(self.run_command("--re-authenticate"), (0, f"posted {MESSAGE}\n", ""))
        self.assertEqual(self.run_command("--re-authenticate", "--quiet"), (0, "", ""))

    def test_quiet_still_tells_errors(self):
        self.assert_refused(1, "--casb", "--quiet", "--casb", "/nowhere/at all")

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

    def test_help_and_manual_tell_of_the_same_options(self):
        _status, output, _errors = self.run_command("--help")
        with open(MANUAL, encoding="utf-8") as file:
            manual = file.read().replace("\\-", "-")
        told = set(re.findall(r"^ +(--[a-z-]+)", output, re.MULTILINE))
        described = re.findall(r"^\.TP\n\.(?:B|BI|BR) (--[a-z-]+)", manual, re.MULTILINE)
        self.assertEqual(sorted(described), sorted(told))
        self.assertIn("--casb", told)

    @unittest.skipUnless(shutil.which("man"), "there is no man command that could read the manual page")
    def test_manual_page_is_clean(self):
        result = subprocess.run(["man", "--warnings", "-l", MANUAL], stdin=subprocess.DEVNULL, capture_output=True,
                                text=True, env=self.environment(MANWIDTH="80", MANPAGER="cat"), check=False)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertIn("post-notice - post one message", result.stdout)

    # --- wrong usage

    def test_wrong_usage(self):
        path = self.file("a", "text")
        rows = [
            ("no message", []),
            ("no message", ["--quiet", "--wait=0"]),
            ("no message", ["--vendor", "zelvik"]),
            ("operand", ["operand"]),
            ("-q", ["-q"]),
            ("--no-such-option", ["--no-such-option"]),
            ("--no-such-option", ["--no-such-option=1"]),
            ("--fl", ["--fl", "A"]),  # no shortened options
            ("--text", ["--text"]),
            ("--maintenance", ["--re-authenticate", "--maintenance"]),
            ("--quiet", ["--re-authenticate", "--quiet=yes"]),
            ("--re-authenticate", ["--re-authenticate=true"]),
            ("--flag", ["--flag", "A=yes"]),
            ("--flag", ["--flag", "A="]),
            ("--flag", ["--flag", ""]),
            ("--flag", ["--flag", "=true"]),
            ("--text", ["--text", "A"]),
            ("--text", ["--text", "=value"]),
            ("--text-file", ["--text-file", path]),
            ("--data", ["--data", path]),
            *[("--number", ["--number", f"A={text}"])
              for text in ("", " 1", "1 ", "one", "1x", "0x10", "inf", "nan", "1e999", "+1")],
            *[(option, ["--re-authenticate", f"{option}={text}"])
              for option in ("--wait", "--wait-reauthentication")
              for text in ("", "-1", "x", "1s", "nan", "inf", "1000001", "1e3")],
            ("--name", ["--re-authenticate", "--name", "a", "--folder", "b"]),
            ("--no-user-info", ["--no-user-info", "--flag", "A"]),
            ("--no-user-info", ["--plist", path, "--no-user-info"]),
            ("--text", ["--text", b"A=\xff"]),
            ("--text", ["--text", b"\xc3=a"]),
            ("--flag", ["--flag", b"\xff"]),
            ("--data", ["--data", b"\xff=" + path.encode()]),
            ("--maintenance", ["--maintenance", b"\xed\xa0\x80"]),
            ("--language", ["--re-authenticate", "--language", b"\xff"]),
            ("--folder", ["--re-authenticate", "--folder", b"\xff"]),
            ("--name", ["--re-authenticate", "--name", b"\xff"]),
            ("--object", ["--re-authenticate", "--object", b"\xff"]),
            ("--vendor", ["--re-authenticate", "--vendor", b"\xff"]),
        ]
        for words, arguments in rows:
            with self.subTest(arguments=arguments):
                self.assert_refused(2, words, *arguments)

    # --- failures

    def test_files_that_cannot_be_sent(self):
        xml = plistlib.dumps({"A": "text"})
        rows = [
            ("--plist", "{}", "list.plist", plistlib.dumps(["a"]), "not a property list with a dictionary"),
            ("--plist", "{}", "empty.plist", b"", "not a property list"),
            ("--plist", "{}", "cut.plist", xml[:len(xml) // 2], "not a property list"),
            ("--plist", "{}", "zero.plist", plistlib.dumps({"A": "a\0b"}, fmt=plistlib.FMT_BINARY), "A: a zero byte"),
            ("--text-file", "A={}", "latin", b"t\xe4xt", "not UTF-8"),
            ("--text-file", "A={}", "zero", b"a\0b", "not UTF-8"),
            ("--casb", "{}", "utf-16.xml", "<a/>".encode("utf-16"), "not UTF-8"),
            ("--concurrent-session", "{}", "latin.xml", b"<a>\xe4</a>", "not UTF-8"),
        ]
        for option, form, name, content, words in rows:
            with self.subTest(option=option, file=name):
                path = self.file(name, content)
                self.assert_refused(1, [f"{option}: {path}", words], option, form.format(path))

    def test_files_that_are_not_there(self):
        missing = os.path.join(self.folder, "missing file")
        for option, form in (("--plist", "{}"), ("--text-file", "A={}"), ("--data", "A={}"), ("--casb", "{}"),
                             ("--concurrent-session", "{}"), ("--logo", "{}")):
            with self.subTest(option=option):
                self.assert_refused(1, [f"{option}: {missing}", "No such file"], option, form.format(missing))
                self.assert_refused(1, [f"{option}: {self.folder}", "directory"], option, form.format(self.folder))

    def test_more_than_the_bus_carries(self):
        path = self.file("large", "")
        os.truncate(path, 65 * 1024 * 1024)
        self.assert_refused(1, ["--data", path, "more than the bus carries"], "--data", f"A={path}")
        os.truncate(path, 40 * 1024 * 1024)
        self.assert_refused(1, "more than the bus carries", "--data", f"A={path}", "--data", f"B={path}")

    def test_a_full_message_is_taken(self):
        path = self.file("large", "")
        os.truncate(path, 64 * 1024 * 1024 - 100)
        value = self.entries("--data", f"A={path}")["A"]
        self.assertEqual((value[0], len(value[1])), ("ay", 64 * 1024 * 1024 - 100))

    def test_no_bus(self):
        for changes in ({"DBUS_SESSION_BUS_ADDRESS": f"unix:path={self.folder}/none"},
                        {"DBUS_SESSION_BUS_ADDRESS": "no address"},
                        {"DBUS_SESSION_BUS_ADDRESS": None, "DISPLAY": None, "XDG_RUNTIME_DIR": self.folder}):
            with self.subTest(changes=changes):
                self.assert_refused(1, "no session bus: ", "--re-authenticate", env=self.environment(**changes))

    def test_a_wrong_file_starts_no_agent(self):
        bundle = self.bundle("stay")
        self.assert_refused(1, "--casb", "--start", bundle, "--casb", os.path.join(self.folder, "missing"))
        self.assertIsNone(self.facts())

    # --- starting the agent, and waiting for it

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
        relative = os.path.relpath(bundle, self.folder)
        process = self.begin("--start", relative, "--re-authenticate", cwd=self.folder, pass_fds=[writing],
                             preexec_fn=self.spoil_signals)
        os.close(writing)
        status, output, errors = self.finish(process)
        self.assertEqual((status, errors), (0, ""))
        self.assertEqual(output, f"started {relative}/Contents/Linux/NoticeAgent\nposted {MESSAGE}\n")
        facts = self.facts()
        self.assertEqual(facts["session"], facts["process"])
        self.assertEqual(facts["folder"], "/")
        self.assertEqual(facts["program"], os.path.realpath(bundle) + "/Contents/Linux")
        self.assertEqual(facts["streams"], ["/dev/null"] * 3)
        self.assertEqual(facts["others"], [])
        ordinary_signals = (1 << 31) - 1  # those behind them are the C library's and nobody can reset them
        self.assertEqual(int(facts["ignored"], 16) & ordinary_signals, 0)
        self.assertEqual(int(facts["blocked"], 16), 0)
        # The agent ends at its message, so it was there to hear it; and it outlived the command until then.
        self.bus.wait_until(lambda: not self.bus.agent_is_there(), "the agent got the message")

    def test_start_does_nothing_when_an_agent_is_there(self):
        self.agent_here()
        bundle = self.bundle("end")
        self.assertEqual(self.posted("--start", bundle, "--re-authenticate")[0], MESSAGE)
        self.assertIsNone(self.facts())

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

    def test_a_name_is_an_installed_package(self):
        program = os.path.join(os.path.dirname(os.path.dirname(os.path.realpath(COMMAND))),
                               "lib/no-such-brand/NoticeAgent.app/Contents/Linux/NoticeAgent")
        self.assert_refused(1, [f"--start: {program}", "No such file"], "--start", "no-such-brand", "--re-authenticate")

    def assert_ends_without_posting(self, words, *arguments):
        status, _output, errors = self.run_command(*arguments)
        self.assertEqual(status, 1)
        self.assertRegex(errors, r"\Apost-notice: [^\n]+\n\Z")
        self.assertIn(words, errors)
        self.bus.emit("marker of the test's own")
        self.bus.pump()
        self.assertEqual(self.bus.heard, [])

    def test_an_agent_that_ends_at_once_is_not_waited_for(self):
        begin = time.monotonic()
        self.assert_ends_without_posting("ended with status 7 before it was ready",
                                         "--start", self.bundle("end"), "--wait=60", "--re-authenticate")
        self.assertLess(time.monotonic() - begin, PATIENCE)

    def test_an_agent_that_never_gets_ready(self):
        self.assert_ends_without_posting("--wait: no agent within 1.5 s",
                                         "--start", self.bundle("nameless"), "--wait=1.5", "--re-authenticate")
        self.assertIsNotNone(self.facts())

    def test_wait_ends_when_the_time_is_over(self):
        for text, least in (("0", 0.0), ("0.3", 0.3)):
            with self.subTest(seconds=text):
                begin = time.monotonic()
                self.assert_refused(1, f"--wait: no agent within {text} s", f"--wait={text}", "--re-authenticate")
                self.assertGreaterEqual(time.monotonic() - begin, least)

    def test_wait_posts_when_the_agent_comes(self):
        process = self.begin("--wait=60", "--re-authenticate")
        time.sleep(0.3)
        self.bus.pump()
        self.assertIsNone(process.poll())
        self.assertEqual(self.bus.heard, [])
        self.agent_here()
        self.assertEqual(self.finish(process)[0], 0)
        self.bus.wait_until(lambda: self.bus.heard, "the message comes")

    def test_wait_is_over_at_once_when_the_agent_is_there(self):
        self.agent_here()
        self.assertEqual(self.posted("--wait=0", "--re-authenticate")[0], MESSAGE)

    def test_without_wait_no_agent_is_needed(self):
        self.assertFalse(self.bus.agent_is_there())
        self.assertEqual(self.posted("--re-authenticate")[0], MESSAGE)

    # --- waiting for the re-authentication notification

    def test_an_answer_however_fast_is_heard(self):
        self.bus.answering = lambda: self.bus.emit(ANSWER)
        for _ in range(20):
            self.assertEqual(self.run_command("--re-authenticate", "--wait-reauthentication=20"),
                             (0, f"posted {MESSAGE}\nreceived {ANSWER}\n", ""))

    def test_the_answer_is_listened_for_before_the_message_is_posted(self):
        monitor = subprocess.Popen(["dbus-monitor", "--address", self.bus.address, "--profile"],
                                   stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True)
        self.addCleanup(monitor.communicate)
        self.addCleanup(monitor.terminate)
        lines = iter(monitor.stdout.readline, "")
        next(line for line in lines if "NameLost" in line)  # from here on it monitors
        self.assertEqual(self.run_command("--re-authenticate", "--wait-reauthentication=0")[0], 3)
        calls = []
        while "Ping" not in calls:
            calls.append(next(lines).split()[-1])
        wanted = [call for call in calls if call in ("AddMatch", "Posted", "Ping")]
        self.assertEqual(wanted, ["AddMatch", "AddMatch", "Posted", "Ping"])

    def test_the_answer_of_a_started_agent(self):
        status, output, errors = self.run_command(
            "--start", self.bundle("answer"), "--re-authenticate", "--wait-reauthentication", "--quiet")
        self.assertEqual((status, output, errors), (0, "", ""))

    def test_vendor_names_the_notification(self):
        vendor = "brand 'x'"
        self.bus.answering = lambda: self.bus.emit(vendor + "_webSocketToMainAppNotifier")
        self.assertEqual(self.run_command("--re-authenticate", "--vendor", vendor, "--wait-reauthentication=20")[0], 0)

    def test_no_answer_in_time(self):
        begin = time.monotonic()
        status, output, errors = self.run_command("--re-authenticate", "--wait-reauthentication=0.4")
        self.assertGreaterEqual(time.monotonic() - begin, 0.4)
        self.assertEqual((status, output), (3, f"posted {MESSAGE}\n"))
        self.assertEqual(errors, "post-notice: --wait-reauthentication: no notification within 0.4 s\n")

    def test_other_notifications_are_no_answer(self):
        def answer():
            self.bus.emit("acme_webSocketToMainAppNotifier")
            self.bus.emit(MESSAGE)
        self.bus.answering = answer
        self.assertEqual(self.run_command("--re-authenticate", "--wait-reauthentication=0.4")[0], 3)

    def test_the_command_does_not_hear_itself(self):
        self.assertEqual(self.run_command("--no-user-info", "--name", ANSWER, "--wait-reauthentication=0.4")[0], 3)

    def test_an_agent_that_ends_will_not_answer(self):
        agent = self.agent_here()
        self.bus.answering = lambda: self.bus.release_agent_name(agent)
        begin = time.monotonic()
        status, _output, errors = self.run_command("--re-authenticate", "--wait-reauthentication=60")
        self.assertLess(time.monotonic() - begin, PATIENCE)
        self.assertEqual(status, 3)
        self.assertEqual(errors, "post-notice: --wait-reauthentication: the agent ended without a notification\n")

    def test_an_answer_counts_though_the_agent_ends_right_after_it(self):
        agent = self.agent_here()

        def answer():
            self.bus.emit(ANSWER)
            self.bus.release_agent_name(agent)
        self.bus.answering = answer
        self.assertEqual(self.run_command("--re-authenticate", "--wait-reauthentication=60")[0], 0)

    def test_an_agent_that_takes_over_may_still_answer(self):
        first = self.agent_here()
        second = self.bus.connect()
        self.addCleanup(second.close_sync)
        self.bus.own_agent_name(second)  # queues

        def answer():
            first.close_sync()
            self.bus.wait_until(self.bus.agent_is_there, "the second takes over")
            self.bus.emit(ANSWER)
        self.bus.answering = answer
        self.assertEqual(self.run_command("--re-authenticate", "--wait-reauthentication=20")[0], 0)

    def test_a_bus_that_goes_away(self):
        bus = Bus()
        try:
            process = self.begin("--re-authenticate", "--wait-reauthentication=60",
                                 env=self.environment(DBUS_SESSION_BUS_ADDRESS=bus.address))
            bus.wait_until(lambda: bus.heard, "the message comes")
            waiting = self.begin("--re-authenticate", "--wait=60",
                                 env=self.environment(DBUS_SESSION_BUS_ADDRESS=bus.address))
            bus.wait_until(lambda: len(bus.call(bus.connection, "ListNames", None)) == 4, "both are connected")
            bus.connection.set_exit_on_close(False)
        finally:
            bus.close()
        self.assertEqual(self.finish(process)[0], 3)
        status, _output, errors = self.finish(waiting)
        self.assertEqual((status, errors.count("\n")), (1, 1))


class Result(unittest.TextTestResult):
    passed = 0

    def addSuccess(self, test):
        super().addSuccess(test)
        self.passed += 1

    def addSkip(self, test, reason):
        super().addSkip(test, reason)
        print(f"skipped: {test.id()}: {reason}")


def main():
    if not os.access(COMMAND, os.X_OK):
        sys.exit(f"{COMMAND} is not there; build it, or name another with POST_NOTICE")
    suite = unittest.defaultTestLoader.loadTestsFromTestCase(PostNoticeTest)
    result = unittest.TextTestRunner(resultclass=Result).run(suite)
    failed = {test.id().split(" ")[0] for test, _ in result.failures + result.errors}
    sys.stderr.flush()
    print(f"{result.passed} passed, {len(failed)} failed")
    return 1 if failed or not result.passed else 0


if __name__ == "__main__":
    sys.exit(main())
