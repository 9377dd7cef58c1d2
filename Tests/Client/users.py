"""Users with a session of their own, made for a test and taken away after it. For root."""

import contextlib
import json
import os
import pwd
import shutil
import signal
import subprocess
import tempfile
import time

# How long a thing may take that happens at once on an idle machine.
PATIENCE = 20.0

# What stands for programs of the user's; each says a line of JSON when it is ready, and one for what it hears.
PROGRAM = r'''
import json, os, sys
import gi
gi.require_version("Gio", "2.0")
from gi.repository import Gio, GLib

INTERFACE = "com.tevanic.DistributedNotificationCenter"
bus = Gio.DBusConnection.new_for_address_sync(
    sys.argv[1], Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT | Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION)

def say(**facts):
    print(json.dumps(facts), flush=True)

def call(method, arguments):
    return bus.call_sync("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", method, arguments,
                         None, 0, -1, None).unpack()[0]

def own(name):
    call("RequestName", GLib.Variant("(su)", (name, 0)))

def serve(path, description, answer):
    """Offers the methods of that description; answer(object path, interface, method) gives the result."""
    for interface in Gio.DBusNodeInfo.new_for_xml(description).interfaces:
        bus.register_object(path, interface, lambda _bus, _sender, path, interface, method, _arguments, invocation:
                            invocation.return_value(answer(path, interface, method)),
                            lambda _bus, _sender, path, interface, name: answer(path, interface, name), None)

def posted(_bus, sender, path, interface, member, arguments):
    name = arguments[0]
    if sender == bus.get_unique_name():
        return
    # Who sent it can be asked while they wait for the answer.
    user = call("GetConnectionUnixUser", GLib.Variant("(s)", (sender,))) if answers else None
    say(name=name, signature=arguments.get_type_string(), user=user)
    if answers and name.endswith("_socketMessageNotifier"):
        bus.emit_signal(None, path, interface, member, GLib.Variant("(ss)", ("zelvik_webSocketToMainAppNotifier", "")))

answers = "answers" in sys.argv
bus.signal_subscribe(None, INTERFACE, "Posted", None, None, 0, posted)
if "agent" in sys.argv:
    own("com.tevanic.NoticeAgent")
BODY
say(ready=True)
GLib.MainLoop().run()
'''


def wait_until(condition, what):
    deadline = time.monotonic() + PATIENCE
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > deadline:
            raise AssertionError(f"not within {PATIENCE:g} s: {what}")
        time.sleep(0.01)


class Program:
    """A running stand-in, until the stack is unwound, and what it has heard."""

    def __init__(self, stack, arguments, body="pass", **options):
        self.process = subprocess.Popen(
            ["/usr/bin/python3", "-c", PROGRAM.replace("BODY", body), *arguments], stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE, cwd="/", **options)
        stack.callback(self.close)
        os.set_blocking(self.process.stdout.fileno(), False)
        self.rest = b""
        self.lines = []
        wait_until(lambda: self.heard() or self.process.poll() is not None, "the program is ready")
        if self.process.poll() is not None:
            raise AssertionError("the program ended")
        self.lines.clear()

    def heard(self):
        with contextlib.suppress(BlockingIOError):
            self.rest += os.read(self.process.stdout.fileno(), 65536)
        *whole, self.rest = self.rest.split(b"\n")
        self.lines += [json.loads(line) for line in whole]
        return self.lines

    def close(self):
        self.process.kill()
        self.process.wait()
        self.process.stdout.close()


class TestUser:
    """A user of the system with a folder under /run/user, as one has who is logged in. Nothing runs for them yet."""

    def __init__(self, name, stack):
        self.home = tempfile.mkdtemp(prefix="notice-home-")
        stack.callback(shutil.rmtree, self.home, ignore_errors=True)
        subprocess.run(["useradd", "--no-create-home", "--no-log-init", "--home-dir", self.home, "--user-group", name],
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
        self.stack = stack
        self.address = f"unix:path={self.runtime}/bus"

    @staticmethod
    def take_away(name):
        # Whatever still runs for the user was started for this test. By force: a process that ends counts as one.
        for process in processes_of(pwd.getpwnam(name).pw_uid):
            with contextlib.suppress(ProcessLookupError):
                os.kill(process, signal.SIGKILL)
        subprocess.run(["userdel", "--force", name], check=True, capture_output=True)

    def environment(self, **variables):
        variables = {"DBUS_SESSION_BUS_ADDRESS": self.address, **variables}
        return {"PATH": "/usr/bin:/bin", "HOME": self.home, "USER": self.name,
                **{name: value for name, value in variables.items() if value is not None}}

    def rights(self):
        return {"user": self.number, "group": self.group, "extra_groups": []}

    def begin(self, command, environment=None, **options):
        """A process of the user's, until the test ends."""
        process = subprocess.Popen(command, stdin=subprocess.DEVNULL, cwd="/",
                                   env=environment or self.environment(), **{**self.rights(), **options})
        self.stack.callback(process.wait)
        self.stack.callback(process.kill)
        return process

    def begin_bus(self, address=None):
        bus = self.begin(["dbus-daemon", "--session", f"--address={address or self.address}", "--print-address",
                          "--nofork", "--nosyslog"], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        with bus.stdout:
            bus.stdout.readline()
        return bus

    def begin_program(self, *arguments, body="pass", address=None):
        return Program(self.stack, [address or self.address, *arguments], body, env=self.environment(),
                       **self.rights())

    def begin_screen(self):
        """A screen of the user's own; returns its display."""
        reading, writing = os.pipe()
        os.set_inheritable(writing, True)
        self.begin(["Xvfb", "-displayfd", str(writing), "-screen", "0", "800x600x24", "-nolisten", "tcp", "-ac",
                    "-noreset"],
                   stderr=subprocess.DEVNULL, pass_fds=[writing])
        os.close(writing)
        with os.fdopen(reading) as file:
            return ":" + file.readline().strip()

    def begin_desktop_program(self, **variables):
        """What stands for any program of a desktop session, with that environment."""
        return self.begin(["sleep", "600"], self.environment(**variables))

    def processes(self, ending):
        """The user's processes whose program's path ends so."""
        found = []
        for process in processes_of(self.number):
            with contextlib.suppress(OSError):
                if os.readlink(f"/proc/{process}/exe").endswith(ending):
                    found.append(process)
        return found


def processes_of(user):
    found = []
    for name in filter(str.isdigit, os.listdir("/proc")):
        with contextlib.suppress(OSError):
            if os.stat(f"/proc/{name}").st_uid == user:
                found.append(int(name))
    return found


def status_of(process):
    with open(f"/proc/{process}/status", encoding="utf-8") as file:
        return dict(line.rstrip("\n").split(":\t", 1) for line in file if ":\t" in line)


def environment_of(process):
    with open(f"/proc/{process}/environ", encoding="utf-8") as file:
        return dict(variable.split("=", 1) for variable in file.read().split("\0") if variable)
