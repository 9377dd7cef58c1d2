#!/usr/bin/python3
"""Tests of the command post-notice, on a private bus.

The command's path is taken from the environment variable POST_NOTICE; without it the release build's is
tested. Ends with the count of tests.
"""

import contextlib
import datetime
import json
import os
import plistlib
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time
import unittest

import gi

gi.require_version("Gio", "2.0")
from gi.repository import Gio, GLib  # noqa: E402

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
COMMAND = os.path.abspath(os.environ.get("POST_NOTICE", os.path.join(ROOT, "build/release/bin/post-notice")))

INTERFACE = "com.tevanic.DistributedNotificationCenter"
PATH = "/com/tevanic/DistributedNotificationCenter"
AGENT_NAME = "com.tevanic.NoticeAgent"
MESSAGE = "zelvik_socketMessageNotifier"

# How long a thing may take that happens at once on an idle machine.
PATIENCE = 20.0

BUS_CONFIGURATION = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig><type>session</type><listen>unix:path={folder}/bus</listen><servicedir>{folder}/services</servicedir>
<auth>EXTERNAL</auth><policy context="default"><allow send_destination="*" eavesdrop="true"/>
<allow eavesdrop="true"/><allow own="*"/></policy><limit name="max_message_size">1000000000</limit>
<limit name="max_incoming_bytes">1000000000</limit><limit name="max_outgoing_bytes">1000000000</limit></busconfig>
"""

# Stands for the agent. A shell begins, since it changes no signal's handling by itself, but while it starts
# another program.
AGENT = """#!/bin/sh
folder=${0%/*}
while read -r line; do
    case $line in Sig*) printf '%s\\n' "$line" ;; esac
done < /proc/$$/status > "$folder/signals"
exec /usr/bin/python3 "$folder/agent.py"
"""

# It notes how it was started, owns its brand's name, notes what it hears, and answers or ends as its folder's
# behaviour file says.
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
import gi
gi.require_version("Gio", "2.0")
from gi.repository import Gio, GLib
bus = Gio.bus_get_sync(Gio.BusType.SESSION)
loop = GLib.MainLoop()
def posted(_bus, _sender, path, interface, member, arguments):
    if arguments[0] != brand + "_socketMessageNotifier":
        return
    with open(os.path.join(folder, "heard"), "a") as file:
        print(arguments[0], file=file)
    if behaviour == "answer":
        bus.emit_signal(None, path, interface, member, GLib.Variant("(ss)", ("zelvik_webSocketToMainAppNotifier", "")))
        bus.flush_sync()
bus.signal_subscribe(None, "com.tevanic.DistributedNotificationCenter", "Posted", None, None, 0, posted)
bus.call_sync("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "RequestName",
              GLib.Variant("(su)", ("com.tevanic.NoticeAgent." + brand, 0)), None, 0, -1, None)
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


def name_of(brand):
    return f"{AGENT_NAME}.{brand}"


class Bus:
    """A session bus of our own, and our ear on it."""

    def __init__(self):
        self.folder = tempfile.mkdtemp(prefix="post-notice-bus-")
        os.mkdir(os.path.join(self.folder, "services"))
        configuration = os.path.join(self.folder, "configuration")
        with open(configuration, "w", encoding="utf-8") as file:
            file.write(BUS_CONFIGURATION.format(folder=self.folder))
        self.process = subprocess.Popen(["dbus-daemon", f"--config-file={configuration}", "--print-address", "--nofork",
                                         "--nosyslog"], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                        stderr=subprocess.DEVNULL, text=True)
        self.address = self.process.stdout.readline().strip()
        self.connection = self.connect()
        self.heard = []
        self.answering = None  # called with each notification of others
        self.connection.signal_subscribe(None, INTERFACE, "Posted", None, None, Gio.DBusSignalFlags.NONE, self._hear)

    def connect(self):
        connection = Gio.DBusConnection.new_for_address_sync(
            self.address, Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT
            | Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION, None, None)
        connection.set_exit_on_close(False)
        return connection

    def _hear(self, connection, sender, path, _interface, _member, arguments):
        if sender == connection.get_unique_name():
            return
        self.heard.append((path, arguments))
        if self.answering:
            self.answering()

    def call(self, connection, method, arguments):
        return connection.call_sync("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", method,
                                    arguments, None, Gio.DBusCallFlags.NONE, -1, None).unpack()

    def own(self, connection, brand):
        self.call(connection, "RequestName", GLib.Variant("(su)", (name_of(brand), 0)))

    def release(self, connection, brand):
        self.call(connection, "ReleaseName", GLib.Variant("(s)", (name_of(brand),)))

    def agent_is_there(self, brand="zelvik"):
        return self.call(self.connection, "NameHasOwner", GLib.Variant("(s)", (name_of(brand),)))[0]

    def install(self, brand, program):
        """Has the bus start that program for the brand's name."""
        path = os.path.join(self.folder, "services", name_of(brand) + ".service")
        with open(path, "w", encoding="utf-8") as file:
            file.write(f"[D-BUS Service]\nName={name_of(brand)}\nExec={program}\n")
        self.call(self.connection, "ReloadConfig", None)

    def uninstall(self, brand):
        os.unlink(os.path.join(self.folder, "services", name_of(brand) + ".service"))
        self.call(self.connection, "ReloadConfig", None)

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
        shutil.rmtree(self.folder, ignore_errors=True)


class FakeBus:
    """Accepts connections and says nothing, or answers the first call with an error of that text."""

    def __init__(self, folder, error=None):
        self.path = os.path.join(folder, "fake bus")
        self.address = "unix:path=" + self.path.replace(" ", "%20")
        self.error = error
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.bind(self.path)
        self.socket.listen()
        self.thread = threading.Thread(target=self._serve)
        self.thread.start()

    def _serve(self):
        connection = None
        with contextlib.suppress(OSError):
            connection = self.socket.accept()[0]
            if self.error is not None:
                self._refuse(connection)
            connection.recv(1)  # until the other end goes
            while connection.recv(4096):
                pass
        if connection:
            connection.close()

    def _refuse(self, connection):
        received = b""
        while b"BEGIN\r\n" not in received or not received.partition(b"BEGIN\r\n")[2]:
            line = connection.recv(4096)
            received += line
            if b"AUTH" in line:
                connection.sendall(b"OK 0123456789abcdef0123456789abcdef\r\n")
            elif b"NEGOTIATE" in line:
                connection.sendall(b"ERROR\r\n")
        call = Gio.DBusMessage.new_from_blob(received.partition(b"BEGIN\r\n")[2], Gio.DBusCapabilityFlags.NONE)
        reply = Gio.DBusMessage.new_method_error_literal(call, "org.example.Error", self.error)
        reply.set_serial(1)
        connection.sendall(reply.to_blob(Gio.DBusCapabilityFlags.NONE))

    def close(self):
        self.socket.shutdown(socket.SHUT_RDWR)
        self.socket.close()
        self.thread.join()


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

    def agent_here(self, *brands):
        """A connection that owns the brands' names until the test ends; it answers calls by itself."""
        connection = self.bus.connect()
        for brand in brands or ("zelvik",):
            self.bus.own(connection, brand)
        self.addCleanup(lambda: connection.is_closed() or connection.close_sync())
        return connection

    def posted(self, *arguments):
        """What one successful run posts to agents of two brands: name, object and typed user info."""
        agent = self.agent_here("zelvik", "acme")
        status, _output, errors = self.run_command(*arguments)
        self.assertEqual((status, errors), (0, ""))
        self.bus.wait_until(lambda: self.bus.heard, "the message comes")
        agent.close_sync()
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
        """One line of error that holds the words, nothing posted, and nothing else said but what was started."""
        found, output, errors = self.run_command(*arguments, **options)
        self.assertEqual(found, status, errors)
        self.assertRegex(output, r"\A(started [^\n]+\n)?\Z")
        self.assertRegex(errors, r"\Apost-notice: [^\n]+\n\Z")
        for word in [words] if isinstance(words, str) else words:
            self.assertIn(word, errors)
        self.bus.emit("marker of the test's own")  # comes after whatever the command may have posted
        self.bus.pump()
        self.assertEqual(self.bus.heard, [])

    def bundle(self, behaviour, brand="zelvik", name="NoticeAgent.app"):
        """A bundle of that brand with a stand-in for the agent, ended when the test ends."""
        bundle = os.path.join(self.folder, name)
        program = os.path.join(bundle, "Contents/Linux/NoticeAgent")
        resources = os.path.join(bundle, "Contents/Resources")
        os.makedirs(os.path.dirname(program))
        os.makedirs(resources)
        for file_name, content in (("NoticeAgent", AGENT), ("agent.py", AGENT_BODY),
                                   ("behaviour", f"{behaviour} {brand}")):
            with open(os.path.join(os.path.dirname(program), file_name), "w", encoding="utf-8") as file:
                file.write(content)
        os.chmod(program, 0o755)
        with open(os.path.join(resources, "Application_Shared.plist"), "wb") as file:
            plistlib.dump({"LogFolderName": brand}, file)
        self.addCleanup(self.end_agent, bundle, brand)
        return bundle

    @staticmethod
    def program(bundle):
        return os.path.join(bundle, "Contents/Linux/NoticeAgent")

    @staticmethod
    def noted(bundle, name):
        path = os.path.join(bundle, "Contents/Linux", name)
        if not os.path.exists(path):
            return ""
        with open(path, encoding="utf-8") as file:
            return file.read()

    def facts(self, bundle):
        return json.loads(self.noted(bundle, "facts") or "null")

    def end_agent(self, bundle, brand):
        facts = self.facts(bundle)
        if not facts:
            return
        with contextlib.suppress(ProcessLookupError):
            os.kill(facts["process"], signal.SIGKILL)
        self.bus.wait_until(lambda: not self.bus.agent_is_there(brand), "the agent is gone")

    def installed(self, behaviour, brand="zelvik"):
        bundle = self.bundle(behaviour, brand, f"{brand}.app")
        self.bus.install(brand, self.program(bundle))
        self.addCleanup(self.bus.uninstall, brand)
        return bundle

    # --- the signal

    def test_default_name_and_object(self):
        self.assertEqual(self.posted("--flag", "A"), (MESSAGE, "", {"A": ("b", True)}))

    def test_folder(self):
        self.assertEqual(self.posted("--flag", "A", "--folder", "acme")[0], "acme_socketMessageNotifier")

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

    def test_documents_are_sent_as_they_are(self):
        text = "\ufeff<?xml version='1.0'?>\r\n<a>ü😀</a>\n\n"
        self.assertEqual(self.entries("--casb", self.file("a=b.xml", text)), {"webSocketResponse": ("s", text)})

    def test_a_document_may_come_through_a_pipe(self):
        reading, writing = os.pipe()
        os.write(writing, b"from a pipe")
        os.close(writing)
        self.agent_here()
        process = self.begin("--casb", f"/dev/fd/{reading}", pass_fds=[reading])
        os.close(reading)
        self.assertEqual(self.finish(process)[0], 0)
        self.bus.wait_until(lambda: self.bus.heard, "the message comes")
        self.assertEqual(typed(self.bus.heard[0][1].get_child_value(2))[1], {"webSocketResponse": ("s", "from a pipe")})

    def test_data(self):
        every_byte = bytes(range(256)) * 3
        self.assertEqual(self.entries("--data", "A=" + self.file("a", every_byte), "--data", "B=" + self.file("b", "")),
                         {"A": ("ay", every_byte), "B": ("ay", b"")})

    def test_the_last_option_of_a_key_counts(self):
        self.assertEqual(self.entries("--text", "A=1", "--text", "B=2", "--flag", "A"),
                         {"A": ("b", True), "B": ("s", "2")})

    # --- property lists

    def test_property_lists_of_both_forms(self):
        content = {"WebSocketType": True, "no": False, "text": " tabs\tand <&>\nlines ü😀 ", "empty": "",
                   "data": bytes(range(256)), "nothing": b"", "ключ": "key",
                   # The agent takes these for absent.
                   "number": 1, "real": 0.25, "date": datetime.datetime(2024, 5, 1), "list": [True], "more": {"a": "b"}}
        expected = {"WebSocketType": ("b", True), "no": ("b", False), "text": ("s", " tabs\tand <&>\nlines ü😀 "),
                    "empty": ("s", ""), "data": ("ay", bytes(range(256))), "nothing": ("ay", b""), "ключ": ("s", "key")}
        for form in (plistlib.FMT_XML, plistlib.FMT_BINARY):
            with self.subTest(form=form):
                self.assertEqual(self.entries("--plist", self.file("message.plist", plistlib.dumps(content, fmt=form))),
                                 expected)

    def test_options_override_the_property_list_wherever_they_stand(self):
        path = self.file("message.plist", plistlib.dumps({"A": "file", "B": "file", "C": "file"}))
        self.assertEqual(self.entries("--text", "A=option", "--plist", path, "--flag", "B", "--text", "D=1"),
                         {"A": ("s", "option"), "B": ("b", True), "C": ("s", "file"), "D": ("s", "1")})

    # --- the notices' shorthands

    def test_notices(self):
        document = "<zelvik-secure-access/>\n"
        path = self.file("a.xml", document)
        disconnect = {"AutoDisconnectWebSocketType": ("b", True), "AutoDisconnectMessageKey": ("s", "Policy")}
        rows = [
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
              "HeaderLogoImage": ("ay", b"\x89PNG\r\n\x1a\n\0")}),
        ]
        for arguments, expected in rows:
            with self.subTest(arguments=arguments):
                self.assertEqual(self.entries(*arguments), expected)

    def test_logos_are_images(self):
        for beginning in (b"\xff\xd8\xff", b"GIF89a", b"\0\0\1\0", b"BM", b"<?xml version='1.0'?>\n<svg/>"):
            with self.subTest(beginning=beginning):
                path = self.file("logo", beginning + b" and more")
                self.assertEqual(self.entries("--re-authenticate", "--logo", path)["HeaderLogoImage"][0], "ay")
        self.assert_refused(1, ["--logo: /etc/passwd", "not a PNG"], "--re-authenticate", "--logo", "/etc/passwd")

    # --- what is said

    def test_progress_goes_to_standard_output(self):
        self.agent_here()
        self.assertEqual(self.run_command("--re-authenticate"), (0, f"posted {MESSAGE}\n", ""))
        self.assertEqual(self.run_command("--re-authenticate", "--quiet"), (0, "", ""))

    def test_quiet_still_prints_errors(self):
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
            ("--data", ["--data", path]),
            *[(option, ["--re-authenticate", f"{option}={text}"])
              for option in ("--wait", "--wait-reauthentication")
              for text in ("", "-1", "x", "1s", "nan", "inf", "1000001", "1e3")],
            ("--casb cannot be combined with --maintenance", ["--maintenance", "text", "--casb", path]),
            ("--re-authenticate cannot be combined with --auto-disconnect",
             ["--auto-disconnect", "text", "--re-authenticate"]),
            ("--vpn-connected needs --auto-disconnect", ["--vpn-connected"]),
            ("--vpn-connected needs --auto-disconnect", ["--vpn-connected", "--maintenance", "text"]),
            ("--start cannot be combined with --user",
             ["--re-authenticate", "--user", "root", "--start", self.folder]),
            ("no message", ["--language", "de", "--logo", path]),
            ("--text", ["--text", b"A=\xff"]),
            ("--text", ["--text", b"\xc3=a"]),
            ("--flag", ["--flag", b"\xff"]),
            ("--data", ["--data", b"\xff=" + path.encode()]),
            ("--maintenance", ["--maintenance", b"\xed\xa0\x80"]),
            ("--language", ["--re-authenticate", "--language", b"\xff"]),
            ("--folder", ["--re-authenticate", "--folder", b"\xff"]),
            ("--vendor", ["--re-authenticate", "--vendor", b"\xff"]),
        ]
        for words, arguments in rows:
            with self.subTest(arguments=arguments):
                self.assert_refused(2, words, *arguments)

    # --- failures

    def test_files_that_cannot_be_sent(self):
        rows = [
            ("--plist", "{}", "list.plist", plistlib.dumps(["a"]), "not a property list whose root is a dictionary"),
            ("--plist", "{}", "empty.plist", b"", "not a property list"),
            ("--plist", "{}", "zero.plist", plistlib.dumps({"A": "a\0b"}, fmt=plistlib.FMT_BINARY), "A: a zero byte"),
            ("--casb", "{}", "latin", b"t\xe4xt", "not UTF-8"),
            ("--casb", "{}", "zero", b"a\0b", "not UTF-8"),
            ("--casb", "{}", "utf-16.xml", "<a/>".encode("utf-16"), "not UTF-8"),
        ]
        for option, form, name, content, words in rows:
            with self.subTest(option=option, file=name):
                path = self.file(name, content)
                self.assert_refused(1, [f"{option}: {path}", words], option, form.format(path))

    def test_files_that_are_not_there(self):
        missing = os.path.join(self.folder, "missing file")
        for option, form in (("--plist", "{}"), ("--data", "A={}"), ("--casb", "{}"),
                             ("--concurrent-session", "{}"), ("--re-authenticate --logo", "{}")):
            with self.subTest(option=option):
                named = option.split()[-1]
                for path, words in ((missing, "No such file"), (self.folder, "directory")):
                    self.assert_refused(1, [f"{named}: {path}", words], *option.split(), form.format(path))

    def test_more_than_the_bus_carries(self):
        self.agent_here()
        path = self.file("large", "")
        os.truncate(path, 65 * 1024 * 1024)
        self.assert_refused(1, ["--data", path, "larger than the bus allows"], "--data", f"A={path}")
        os.truncate(path, 40 * 1024 * 1024)
        self.assert_refused(1, "larger than the bus allows", "--data", f"A={path}", "--data", f"B={path}")

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
        self.assert_refused(1, "no session bus: ", "--re-authenticate", "--bus", f"unix:path={self.folder}/none")

    def fake_bus(self, error=None):
        bus = FakeBus(self.folder, error)
        self.addCleanup(bus.close)
        return bus

    def test_a_bus_that_accepts_and_says_nothing_is_given_up_in_time(self):
        begin = time.monotonic()
        self.assert_refused(1, "no session bus: the session bus does not answer", "--re-authenticate", "--wait=1",
                            env=self.environment(DBUS_SESSION_BUS_ADDRESS=self.fake_bus().address))
        self.assertLess(time.monotonic() - begin, 1 + PATIENCE / 4)

    def test_what_a_bus_says_is_printable(self):
        bus = self.fake_bus("\x1b]0;title\x07\r\nü\u202e")
        self.assert_refused(1, "no session bus: ?]0;title????????\n", "--re-authenticate",
                            env=self.environment(DBUS_SESSION_BUS_ADDRESS=bus.address))

    def test_a_wrong_file_starts_no_agent(self):
        bundle = self.installed("stay")
        self.assert_refused(1, "--casb", "--casb", os.path.join(self.folder, "missing"))
        self.assertIsNone(self.facts(bundle))

    # --- starting the installed agent

    def test_the_bus_starts_the_installed_agent_once(self):
        bundle = self.installed("stay")
        self.assertEqual(self.run_command("--re-authenticate"), (0, f"posted {MESSAGE}\n", ""))
        agent = self.facts(bundle)["process"]
        self.assertEqual(self.run_command("--re-authenticate"), (0, f"posted {MESSAGE}\n", ""))
        self.assertEqual(self.facts(bundle)["process"], agent)
        self.bus.wait_until(lambda: self.noted(bundle, "heard") == 2 * f"{MESSAGE}\n", "it has heard both")

    def test_each_brand_has_its_agent(self):
        zelvik, acme = self.installed("stay"), self.installed("stay", "acme")
        self.assertEqual(self.run_command("--re-authenticate", "--folder", "acme")[0], 0)
        self.assertIsNone(self.facts(zelvik))
        self.assertEqual(self.run_command("--re-authenticate")[0], 0)
        for bundle, brand in ((zelvik, "zelvik"), (acme, "acme")):
            self.bus.wait_until(lambda: self.noted(bundle, "heard"), "it has heard its message")
            self.assertEqual(self.noted(bundle, "heard"), f"{brand}_socketMessageNotifier\n")

    def test_no_agent_is_installed(self):
        self.agent_here("acme")
        self.assert_refused(5, "no agent is installed that owns com.tevanic.NoticeAgent.zelvik", "--re-authenticate")

    def test_an_installed_agent_that_ends_or_never_comes(self):
        self.installed("end7")
        self.assert_refused(6, "the agent ended before it was ready", "--re-authenticate")
        # Without a display. The bus takes this for a program that goes on in the background.
        self.installed("end0", "acme")
        self.assert_refused(6, "no agent came within 0.5 s", "--re-authenticate", "--folder=acme", "--wait=0.5")

    def test_a_message_to_an_agent_that_is_about_to_end_goes_to_the_next(self):
        ending = self.agent_here()
        bundle = self.installed("stay")
        release = Gio.DBusMessage.new_method_call("org.freedesktop.DBus", "/org/freedesktop/DBus",
                                                  "org.freedesktop.DBus", "ReleaseName")
        release.set_body(GLib.Variant("(s)", (name_of("zelvik"),)))

        def give_back_at_the_message(connection, message, incoming):
            if incoming and message.get_member() == "Posted" and not release.get_locked():
                connection.send_message(release, Gio.DBusSendMessageFlags.NONE)
            return message
        ending.signal_subscribe(None, INTERFACE, "Posted", None, None, Gio.DBusSignalFlags.NONE, lambda *_: None)
        ending.add_filter(give_back_at_the_message)
        self.assertEqual(self.run_command("--re-authenticate"), (0, f"posted {MESSAGE}\n", ""))
        self.bus.wait_until(lambda: self.noted(bundle, "heard"), "the next agent hears the message")

    def test_a_message_to_an_agent_that_is_killed_goes_to_the_next(self):
        killed = self.agent_here()
        bundle = self.installed("stay")

        def end_at_the_message(connection, message, incoming):
            if incoming and message.get_member() == "Ping":
                connection.close(None, None)
                return None
            return message
        killed.add_filter(end_at_the_message)
        self.assertEqual(self.run_command("--re-authenticate"), (0, f"posted {MESSAGE}\n", ""))
        self.bus.wait_until(lambda: self.noted(bundle, "heard"), "the next agent hears the message")

    # --- starting the agent of a bundle, and waiting for one

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
        facts = self.facts(bundle)
        self.assertEqual(facts["session"], facts["process"])
        self.assertEqual(facts["folder"], "/")
        self.assertEqual(facts["program"], os.path.realpath(bundle) + "/Contents/Linux")
        self.assertEqual(facts["streams"], ["/dev/null"] * 3)
        self.assertEqual(facts["others"], [])
        ordinary_signals = (1 << 31) - 1  # those behind them are the C library's and nobody can reset them
        self.assertEqual(int(facts["ignored"], 16) & ordinary_signals, 0)
        self.assertEqual(int(facts["blocked"], 16), 0)
        self.bus.wait_until(lambda: self.noted(bundle, "heard"), "the agent, which outlives the command, has the message")

    def test_start_does_nothing_when_an_agent_is_there(self):
        self.agent_here()
        bundle = self.bundle("end7")
        self.assertEqual(self.posted("--start", bundle, "--re-authenticate")[0], MESSAGE)
        self.assertIsNone(self.facts(bundle))

    def test_start_knows_the_bundles_brand(self):
        bundle = self.bundle("stay", "acme")
        self.agent_here("zelvik")
        self.assertEqual(self.run_command("--start", bundle, "--re-authenticate", "--quiet")[0], 0)
        self.bus.wait_until(lambda: self.noted(bundle, "heard"), "the brand's agent hears it")
        self.assertEqual(self.bus.heard[0][1][0], "acme_socketMessageNotifier")

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

    def test_a_started_agent_that_ends_at_once_is_not_waited_for(self):
        begin = time.monotonic()
        self.assert_refused(6, "the agent ended with status 7 before it was ready", "--start", self.bundle("end7"),
                            "--wait=60", "--re-authenticate")
        self.assertLess(time.monotonic() - begin, PATIENCE)

    def test_wait_waits_for_an_agent_that_somebody_else_starts(self):
        process = self.begin("--wait=60", "--re-authenticate")
        time.sleep(0.3)  # most often it waits by then
        self.bus.pump()
        self.assertIsNone(process.poll())
        self.agent_here()
        self.assertEqual(self.finish(process)[0], 0)
        self.bus.wait_until(lambda: self.bus.heard, "the message comes")
        self.assertEqual(self.run_command("--wait=0", "--re-authenticate")[0], 0)

    def test_no_agent_comes_in_time(self):
        begin = time.monotonic()
        self.assert_refused(6, "no agent came within 0.4 s", "--wait=0.4", "--re-authenticate")
        self.assertGreaterEqual(time.monotonic() - begin, 0.4)

    # --- waiting for the re-authentication notification

    def test_an_answer_however_fast_is_heard(self):
        self.agent_here()
        for vendor in ["zelvik", "brand 'x'"] * 10:
            answer = vendor + "_webSocketToMainAppNotifier"
            self.bus.answering = lambda: self.bus.emit(answer)
            self.assertEqual(self.run_command("--re-authenticate", "--vendor", vendor, "--wait-reauthentication=20"),
                             (0, f"posted {MESSAGE}\nreceived {answer}\n", ""))

    def test_the_answer_of_a_started_agent(self):
        status, output, errors = self.run_command(
            "--start", self.bundle("answer"), "--re-authenticate", "--wait-reauthentication", "--quiet")
        self.assertEqual((status, output, errors), (0, "", ""))

    def test_no_answer_in_time(self):
        self.agent_here()
        begin = time.monotonic()
        status, output, errors = self.run_command("--re-authenticate", "--wait-reauthentication=0.4")
        self.assertGreaterEqual(time.monotonic() - begin, 0.4)
        self.assertEqual((status, output), (3, f"posted {MESSAGE}\n"))
        self.assertEqual(errors, "post-notice: --wait-reauthentication: no notification within 0.4 s\n")



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
