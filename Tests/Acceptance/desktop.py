"""A private desktop for the agent: session bus, screen, window manager, accessibility.

Everything here is started by the tests and ended by them; nothing of the user's own
session is touched. One desktop is shared by the tests of a process, since starting a
screen for every test would cost more than the tests themselves.
"""

import atexit
import contextlib
import functools
import io
import os
import re
import shutil
import subprocess
import tempfile
import time
from dataclasses import dataclass

import dbus
import dbus.bus
import dbus.lowlevel
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib
from PIL import Image
from Xlib import X, Xutil, XK, display as xdisplay, error as xerror
from Xlib.ext import xtest
from Xlib.protocol import event as xevent

SCREEN_WIDTH = 1280
SCREEN_HEIGHT = 1024

# How long a condition may take that the agent should fulfil at once. Generous, since
# several tests share two processors; it costs nothing while the agent behaves.
PATIENCE = 30.0

# Where distributions keep the programs of the accessibility package.
ACCESSIBILITY_FOLDERS = "/usr/libexec:/usr/lib/at-spi2-core:/usr/lib"

CENTER_INTERFACE = "com.tevanic.DistributedNotificationCenter"
CENTER_PATH = "/com/tevanic/DistributedNotificationCenter"
AGENT_NAME = "com.tevanic.NoticeAgent"

BUS_CONFIGURATION = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>{address}</listen>
  <servicedir>{folder}/services</servicedir>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
  <limit name="max_incoming_bytes">1000000000</limit>
  <limit name="max_outgoing_bytes">1000000000</limit>
  <limit name="max_message_size">134217728</limit>
  <limit name="max_completed_connections">1000</limit>
  <limit name="max_match_rules_per_connection">10000</limit>
  <limit name="max_replies_per_connection">50000</limit>
</busconfig>
"""


def pump(seconds=0.0):
    """Lets queued bus signals arrive, then gives the processor away for a moment."""
    context = GLib.MainContext.default()
    while context.iteration(False):
        pass
    if seconds > 0:
        time.sleep(seconds)


def wait_until(condition, what, timeout=PATIENCE, interval=0.01):
    """Waits for a true value of condition() and returns it; fails with `what` when it stays away."""
    deadline = time.monotonic() + timeout
    while True:
        pump()
        value = condition()
        if value:
            return value
        if time.monotonic() >= deadline:
            raise AssertionError(f"not within {timeout:g} s: {what}")
        time.sleep(interval)


def holds_for(condition, seconds, what, interval=0.02):
    """Fails with `what` when condition() becomes false within the given time."""
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        pump()
        if not condition():
            raise AssertionError(what)
        time.sleep(interval)


@dataclass
class Posted:
    """One distributed notification heard on the bus from another connection."""

    moment: float  # time.time()
    signature: str
    arguments: list


class Bus:
    """A session bus of our own, our connection to it, and one that listens.

    They are two: the bus sends a listener its own signals too, and while a very large one waits there to be
    looked at, the library reads nothing more, so that no question on that connection would be answered.
    """

    def __init__(self, folder, address=None):
        self.services = os.path.join(folder, "services")
        os.makedirs(self.services, exist_ok=True)
        configuration = os.path.join(folder, "bus.conf")
        with open(configuration, "w", encoding="utf-8") as file:
            file.write(BUS_CONFIGURATION.format(folder=folder, address=address or f"unix:dir={folder}"))
        self.process = subprocess.Popen(
            ["dbus-daemon", f"--config-file={configuration}", "--print-address", "--nofork", "--nosyslog"],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.address = self.process.stdout.readline().strip()
        self.connection = self.connect()
        self.heard = []
        self._listener = self.connect()
        self._listener.add_match_string(
            f"type='signal',interface='{CENTER_INTERFACE}',member='Posted'")
        self._listener.add_message_filter(self._hear)

    def connect(self):
        connection = dbus.bus.BusConnection(self.address, mainloop=DBusGMainLoop())
        connection.set_exit_on_disconnect(False)
        return connection

    def _hear(self, _listener, message):
        is_posted = (message.get_interface() == CENTER_INTERFACE and message.get_member() == "Posted")
        if is_posted and message.get_sender() != self.connection.get_unique_name():
            self.heard.append(Posted(time.time(), str(message.get_signature()),
                                     message.get_args_list(byte_arrays=True)))
        return dbus.lowlevel.HANDLER_RESULT_NOT_YET_HANDLED

    def emit(self, signature, *arguments):
        """Emits the signal with arguments of any shape, right or wrong."""
        message = dbus.lowlevel.SignalMessage(CENTER_PATH, CENTER_INTERFACE, "Posted")
        if arguments:
            message.append(*arguments, signature=signature)
        self.connection.send_message(message)

    def _ask(self, method, signature="", *arguments):
        """Of the bus itself."""
        return self.connection.call_blocking("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                             method, signature, arguments)

    def install(self, name, program, environment=()):
        """Has the bus start that program, with that environment, for whoever asks for the name."""
        with open(os.path.join(self.services, f"{name}.service"), "w", encoding="utf-8") as file:
            file.write(f"[D-BUS Service]\nName={name}\nExec={program}\n")
        self.reload(environment)

    def uninstall(self, name):
        os.remove(os.path.join(self.services, f"{name}.service"))
        self.reload()

    def reload(self, environment=()):
        """Has it look at its service files again; what it starts from now on has that environment too."""
        self._ask("ReloadConfig")
        self._ask("UpdateActivationEnvironment", "a{ss}", dict(environment))

    def process_of(self, name):
        """The process that owns a name, or None."""
        try:
            return int(self._ask("GetConnectionUnixProcessID", "s", name))
        except dbus.exceptions.DBusException:
            return None

    def queue_of(self, name):
        """The processes that own or wait for a name, the owner first."""
        try:
            return [self.process_of(str(owner)) for owner in self._ask("ListQueuedOwners", "s", name)]
        except dbus.exceptions.DBusException:
            return []

    def close(self):
        self._listener.close()
        self.connection.close()
        end_process(self.process)


class Screen:
    """A virtual screen and what an X client can see and do there."""

    process = None  # of a virtual screen

    @classmethod
    def virtual(cls, server=("Xvfb", "-screen", "0", f"{SCREEN_WIDTH}x{SCREEN_HEIGHT}x24")):
        reading, writing = os.pipe()
        process = subprocess.Popen(
            [*server, "-displayfd", str(writing), "-dpi", "96", "-nolisten", "tcp", "-noreset"],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, pass_fds=[writing])
        os.close(writing)
        with os.fdopen(reading) as pipe:
            number = pipe.readline().strip()
        if not number:
            raise RuntimeError(f"{server[0]} did not start")
        screen = cls(f":{number}")
        screen.process = process
        screen.move_pointer(2, SCREEN_HEIGHT - 3)
        return screen

    def __init__(self, name, authority="/dev/null"):
        self.name = name
        self.authority = os.environ["XAUTHORITY"] = authority
        with contextlib.redirect_stdout(io.StringIO()):  # it warns that the authority file is empty
            self.display = xdisplay.Display(self.name)
        self.display.set_error_handler(lambda *arguments: None)
        self.root = self.display.screen().root

    def atom(self, name):
        return self.display.intern_atom(name)

    def property(self, window, name):
        """The property's values as a list, empty when there is none."""
        try:
            found = window.get_full_property(self.atom(name), X.AnyPropertyType)
        except xerror.XError:
            return []
        return list(found.value) if found is not None else []

    def state_names(self, window):
        return {self.display.get_atom_name(atom) for atom in self.property(window, "_NET_WM_STATE")}

    def windows_of(self, process_id):
        """Every top-level client window of a process, wherever a window manager hung it."""
        found = []

        def visit(window, depth):
            try:
                children = window.query_tree().children
            except xerror.XError:
                return
            for child in children:
                if self.property(child, "_NET_WM_PID") == [process_id] and self.property(child, "WM_CLASS"):
                    found.append(child)
                elif depth < 3:
                    visit(child, depth + 1)

        visit(self.root, 0)
        return found

    def viewable(self, window):
        try:
            return window.get_attributes().map_state == X.IsViewable
        except xerror.XError:
            return False

    def geometry(self, window):
        """x, y, width, height on the screen."""
        shape = window.get_geometry()
        corner = self.root.translate_coords(window, 0, 0)
        return corner.x, corner.y, shape.width, shape.height

    def picture(self):
        shape = self.root.get_geometry()
        raw = self.root.get_image(0, 0, shape.width, shape.height, X.ZPixmap, 0xFFFFFFFF)
        return Image.frombytes("RGB", (shape.width, shape.height), raw.data, "raw", "BGRX")

    def pixel(self, x, y):
        raw = self.root.get_image(x, y, 1, 1, X.ZPixmap, 0xFFFFFFFF).data
        return (raw[2], raw[1], raw[0])

    def move_pointer(self, x, y):
        xtest.fake_input(self.display, X.MotionNotify, x=int(x), y=int(y))
        self.display.sync()

    def button(self, pressed, number=1):
        xtest.fake_input(self.display, X.ButtonPress if pressed else X.ButtonRelease, number)
        self.display.sync()

    def press_key(self, name):
        code = self.display.keysym_to_keycode(XK.string_to_keysym(name))
        xtest.fake_input(self.display, X.KeyPress, code)
        xtest.fake_input(self.display, X.KeyRelease, code)
        self.display.sync()

    def active_window(self):
        values = self.property(self.root, "_NET_ACTIVE_WINDOW")
        return values[0] if values else 0

    def input_focus(self):
        focus = self.display.get_input_focus().focus
        return getattr(focus, "id", focus)

    def ask_to_close(self, window):
        """What a window manager sends when the user closes a window."""
        message = xevent.ClientMessage(
            window=window, client_type=self.atom("WM_PROTOCOLS"),
            data=(32, [self.atom("WM_DELETE_WINDOW"), X.CurrentTime, 0, 0, 0]))
        window.send_event(message)
        self.display.sync()

    def plain_window(self, x, y, width, height, color=(200, 40, 40)):
        """An ordinary program's window, to lie below or beside the notice."""
        window = self.root.create_window(
            x, y, width, height, 0, self.display.screen().root_depth, X.InputOutput, X.CopyFromParent,
            background_pixel=(color[0] << 16) | (color[1] << 8) | color[2],
            event_mask=X.ButtonPressMask | X.StructureNotifyMask | X.FocusChangeMask | X.KeyPressMask)
        window.set_wm_normal_hints(flags=Xutil.USPosition | Xutil.USSize, x=x, y=y, width=width, height=height)
        window.set_wm_hints(flags=Xutil.InputHint, input=1)
        window.set_wm_name("plain")
        window.set_wm_class("plain", "Plain")
        # No frame of the window manager's, so that the window lies exactly where it is put.
        window.change_property(self.atom("_MOTIF_WM_HINTS"), self.atom("_MOTIF_WM_HINTS"), 32, [2, 0, 0, 0, 0])
        window.map()
        self.display.sync()
        wait_until(lambda: self.viewable(window), "an ordinary window is mapped")
        return window

    def raise_window(self, window):
        window.configure(stack_mode=X.Above)
        self.display.sync()

    def watch_maps(self):
        """Starts to note what happens to the top windows."""
        self.root.change_attributes(event_mask=X.SubstructureNotifyMask)
        self.display.sync()
        self.maps()

    def events(self):
        """What happened to the screen's top windows since the last call."""
        events = []
        self.display.sync()
        while self.display.pending_events():
            events.append(self.display.next_event())
        return events

    def maps(self):
        """The windows mapped since the last call."""
        return [event.window for event in self.events() if event.type == X.MapNotify]

    def close(self):
        try:
            self.display.close()
        finally:
            if self.process:
                end_process(self.process)


@dataclass
class Element:
    """One object of the accessibility tree, as a screen reader sees it."""

    reader: object
    bus_name: str
    path: str
    role: str
    name: str
    text: str
    states: set
    extents: tuple  # x, y, width, height on the screen

    @property
    def shown(self):
        return {"showing", "visible"} <= self.states

    @property
    def enabled(self):
        return {"enabled", "sensitive"} <= self.states

    def now(self):
        """The same object looked at again, or None when it is gone."""
        return self.reader.element(self.bus_name, self.path)

    def centre(self):
        x, y, width, height = self.extents
        return x + width // 2, y + height // 2


class Accessibility:
    """The accessibility bus, read without a cache, so that every look is fresh."""

    ACCESSIBLE = "org.a11y.atspi.Accessible"
    SCREEN_COORDINATES = dbus.UInt32(0)
    ROOT = "/org/a11y/atspi/accessible/root"
    STATES = {8: "enabled", 12: "focused", 11: "focusable", 24: "sensitive", 25: "showing", 30: "visible"}

    def __init__(self, bus, environment):
        self.process = subprocess.Popen(
            [shutil.which("at-spi-bus-launcher", path=ACCESSIBILITY_FOLDERS), "--launch-immediately"], env=environment,
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        wait_until(lambda: bus.process_of("org.a11y.Bus"), "the accessibility bus launcher is there")
        address = str(bus.connection.call_blocking(
            "org.a11y.Bus", "/org/a11y/bus", "org.a11y.Bus", "GetAddress", "", ()))
        bus.connection.call_blocking(
            "org.a11y.Bus", "/org/a11y/bus", "org.freedesktop.DBus.Properties", "Set", "ssv",
            ("org.a11y.Status", "IsEnabled", dbus.Boolean(True)))
        self.connection = dbus.bus.BusConnection(address, mainloop=DBusGMainLoop())
        self.connection.set_exit_on_disconnect(False)

    def _call(self, bus_name, path, interface, method, signature="", *arguments):
        # Much less than PATIENCE: who does not answer is asked again.
        return self.connection.call_blocking(bus_name, path, interface, method, signature, arguments, timeout=5)

    def application_of(self, process_id):
        """The bus name of the agent's accessibility tree, or None while there is none."""
        try:
            children = self._call("org.a11y.atspi.Registry", self.ROOT, self.ACCESSIBLE, "GetChildren")
        except dbus.exceptions.DBusException:
            return None
        for bus_name, _path in children:
            try:
                owner = self._call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                   "GetConnectionUnixProcessID", "s", bus_name)
            except dbus.exceptions.DBusException:
                continue
            if int(owner) == process_id:
                return str(bus_name)
        return None

    def element(self, bus_name, path):
        try:
            role = str(self._call(bus_name, path, self.ACCESSIBLE, "GetRoleName"))
            name = str(self._call(bus_name, path, "org.freedesktop.DBus.Properties", "Get", "ss",
                                  self.ACCESSIBLE, "Name"))
            words = self._call(bus_name, path, self.ACCESSIBLE, "GetState")
            bits = int(words[0]) | (int(words[1]) << 32 if len(words) > 1 else 0)
            states = {word for bit, word in self.STATES.items() if bits >> bit & 1}
        except dbus.exceptions.DBusException:
            return None
        try:
            extents = tuple(int(part) for part in self._call(
                bus_name, path, "org.a11y.atspi.Component", "GetExtents", "u", self.SCREEN_COORDINATES))
        except dbus.exceptions.DBusException:
            extents = (0, 0, 0, 0)
        return Element(self, bus_name, path, role, name, name or self._text(bus_name, path), states, extents)

    def _text(self, bus_name, path):
        try:
            return str(self._call(bus_name, path, "org.a11y.atspi.Text", "GetText", "ii",
                                  dbus.Int32(0), dbus.Int32(-1)))
        except dbus.exceptions.DBusException:
            return ""

    def elements(self, process_id):
        """The agent's whole tree in document order; empty when there is none."""
        bus_name = self.application_of(process_id)
        if bus_name is None:
            return []
        found = []
        waiting = [self.ROOT]
        while waiting:
            path = waiting.pop(0)
            element = self.element(bus_name, path)
            if element is None:
                continue
            found.append(element)
            try:
                children = self._call(bus_name, path, self.ACCESSIBLE, "GetChildren")
            except dbus.exceptions.DBusException:
                continue
            waiting[:0] = [str(child) for _owner, child in children]
        return found

    def press(self, element):
        """A screen reader's way to press a button."""
        self._call(element.bus_name, element.path, "org.a11y.atspi.Action", "DoAction", "i", dbus.Int32(0))

    def close(self):
        self.connection.close()
        end_process(self.process)


class Desktop:
    """All of it together, with the environment that a program started there gets."""

    parent_folder = None  # the one for temporary files

    def __init__(self, window_manager="openbox", accessibility=True):
        self.folder = tempfile.mkdtemp(prefix="notice-desktop-", dir=self.parent_folder)
        self._closing = contextlib.ExitStack()
        self._closing.callback(shutil.rmtree, self.folder, ignore_errors=True)
        try:
            self._start(window_manager, accessibility)
        except BaseException:
            self.close()
            raise

    def _start(self, window_manager, accessibility):
        self.bus = Bus(self.folder)
        self._closing.callback(self.bus.close)
        self.screen = self._virtual_screen()
        self._closing.callback(self.screen.close)
        self.environment = self._private_environment()
        if window_manager:
            self._start_window_manager(window_manager)
        self.accessibility = None
        if accessibility:
            self.accessibility = Accessibility(self.bus, self.environment)
            self._closing.callback(self.accessibility.close)

    def _virtual_screen(self):
        return Screen.virtual()

    def _private_environment(self):
        environment = {
            "PATH": os.environ.get("PATH", "/usr/bin:/bin"),
            "DBUS_SESSION_BUS_ADDRESS": self.bus.address,
            "GSETTINGS_BACKEND": "memory",
            "LANG": "C.UTF-8",
            "TZ": "UTC",
        }
        for variable, name in (("HOME", "home"), ("XDG_CONFIG_HOME", "config"), ("XDG_CACHE_HOME", "cache"),
                               ("XDG_DATA_HOME", "data"), ("XDG_RUNTIME_DIR", "runtime"), ("TMPDIR", "tmp")):
            environment[variable] = os.path.join(self.folder, name)
            os.mkdir(environment[variable], mode=0o700)
        if self.screen:
            environment.update(DISPLAY=self.screen.name, XAUTHORITY=self.screen.authority)
        # What a sanitized or a measured build needs from outside.
        kept = re.compile(r"(A|UB|L|T)SAN_OPTIONS$|GCOV_|LLVM_PROFILE_FILE$")
        environment.update({name: value for name, value in os.environ.items() if kept.match(name)})
        return environment

    def _start_program(self, *command):
        process = subprocess.Popen(command, env=self.environment, stdin=subprocess.DEVNULL,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self._closing.callback(end_process, process)
        return process

    def _start_window_manager(self, *command):
        self._start_program(*command)
        # The last of what they write when they start; windows mapped before may be passed over.
        wait_until(lambda: all(self.screen.property(self.screen.root, written) for written in (
            "_NET_SUPPORTING_WM_CHECK", "_NET_CURRENT_DESKTOP", "_NET_SUPPORTED")),
            f"the window manager {command[0]} is there")

    def start_compositor(self):
        selection = self.screen.atom("_NET_WM_CM_S0")
        process = self._start_program("picom", "--backend", "xrender", "--config", "/dev/null")
        wait_until(lambda: self.screen.display.get_selection_owner(selection) != X.NONE, "the compositor is there")
        return process

    # What a user sees and does.

    def picture(self):
        return self.screen.picture()

    def pixel(self, x, y):
        return self.screen.pixel(x, y)

    def press_key(self, name):
        self.screen.press_key(name)

    def button(self, pressed):
        self.screen.button(pressed)

    def move_pointer(self, x, y):
        self.screen.move_pointer(x, y)

    def click(self, x, y):
        self.move_pointer(x, y)
        self.button(True)
        self.button(False)

    def park_pointer(self):
        self.move_pointer(2, SCREEN_HEIGHT - 3)

    def close(self):
        with contextlib.suppress(Exception):  # everything is closed all the same
            self._closing.close()


@functools.lru_cache(maxsize=None)
def shared_desktop(window_manager="openbox", accessibility=True):
    """The process's desktop of this kind, started at its first use and ended with the process."""
    desktop = Desktop(window_manager, accessibility)
    atexit.register(desktop.close)
    return desktop


def end_process(process):
    """Ends a process of ours."""
    if process.poll() is None:
        process.terminate()
        try:
            process.wait(3)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()
    if process.stdout:
        process.stdout.close()
