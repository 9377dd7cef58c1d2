"""The desktops that the agent is tried on: each started without a screen, and used in the same words.

A session has a program in use, a pointer, a keyboard and a picture of what the user sees. All of it is private:
bus, home, runtime folder.
"""

import atexit
import functools
import os
import shutil
import subprocess
import time

import dbus
from PIL import Image
from Xlib import X
from Xlib.protocol import event as xevent

from desktop import SCREEN_HEIGHT, SCREEN_WIDTH, Bus, Desktop, Screen, end_process, wait_until

HERE = os.path.dirname(os.path.abspath(__file__))

PROGRAM_COLOR = (40, 160, 60)
# Not so large that a window manager would maximize it.
PROGRAM_SIZE = (1040, 960)

# Places of the screen where no notice stands: one in every program's window, and some that only a window over the
# whole screen covers all.
INSIDE = (300, 900)
OUTSIDE = ((1270, 8), (640, 1018))

# An X server whose outputs lead nowhere, for several monitors: Xvfb has one output.
SERVER_WITH_OUTPUTS = """
Section "Device"
  Identifier "outputs"
  Driver "dummy"
  Option "Monitor-DUMMY0" "any mode"
  Option "Monitor-DUMMY1" "any mode"
  VideoRam 65536
EndSection
Section "Monitor"
  Identifier "any mode"
  HorizSync 5-1000
  VertRefresh 5-200
  Option "PreferredMode" "1280x1024"
EndSection
Section "Screen"
  Identifier "screen"
  Monitor "any mode"
  DefaultDepth 24
EndSection
Section "ServerFlags"
  Option "AutoAddDevices" "false"
EndSection
"""

# x, y, width and height of the second monitor, where there are two.
SECOND_MONITOR = (SCREEN_WIDTH, 0, SCREEN_WIDTH, SCREEN_HEIGHT)

# A desktop that draws with two processors for all.
START_LIMIT = 60.0

# The ordinary user of a desktop, when the tests run as root.
NOBODY = 65534


class Session(Desktop):
    """What all of them do. The subclasses say how a desktop starts, and how one types, points and looks."""

    programs = ()  # the programs that it is made of; the first one names it

    def __init__(self, monitors=1):
        self.monitors = monitors  # side by side, the primary one at the left
        self.parts = []
        super().__init__(accessibility=False)

    def alive(self):
        return all(process.poll() is None for process in self.parts)

    def _start_program(self, *command):
        process = super()._start_program(*command)
        self.parts.append(process)
        return process

    def _write(self, path, content):
        path = os.path.join(self.environment["XDG_CONFIG_HOME"], path)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="utf-8") as file:
            file.write(content)
        return path

    def work_area(self):
        area = self.screen.property(self.screen.root, "_NET_WORKAREA")
        return area[:4] or [0, 0, SCREEN_WIDTH, SCREEN_HEIGHT]

    def unplug_second_monitor(self):
        """Returns whether this desktop can do without."""
        return False

    def banners(self):
        """What the desktop itself says about windows, beside what stands in their states."""
        return []


# --- X11 ------------------------------------------------------------------------------------------


class X11Session(Session):
    """A window manager on a virtual screen."""

    command = ()

    def _virtual_screen(self):
        if self.monitors == 1:
            return super()._virtual_screen()
        configuration = os.path.join(self.folder, "xorg.conf")
        with open(configuration, "w", encoding="utf-8") as file:
            file.write(SERVER_WITH_OUTPUTS)
        return Screen.virtual((
            "Xorg", "-config", configuration, "-logfile", os.path.join(self.folder, "xorg.log"), "-novtswitch",
            "-sharevts", "-keeptty"))

    def _start_window_manager(self, _name):
        if self.monitors == 2:
            mode = f"{SCREEN_WIDTH}x{SCREEN_HEIGHT}"
            self._run("xrandr", "--output", "DUMMY0", "--mode", mode)
            self._run("xrandr", "--addmode", "DUMMY1", mode)
            self._run("xrandr", "--output", "DUMMY1", "--mode", mode, "--right-of", "DUMMY0")
            self._run("xrandr", "--query")  # only now the server calls that output connected
        home = os.path.join(self.environment["HOME"], ".fluxbox")
        os.makedirs(home)
        open(os.path.join(home, "init"), "w").close()
        super()._start_window_manager(*self.command)
        if "picom" in self.programs:
            self.start_compositor()

    def _run(self, *command):
        subprocess.run(command, env=self.environment, check=True, stdout=subprocess.DEVNULL, timeout=10)

    def unplug_second_monitor(self):
        self._run("xrandr", "--output", "DUMMY1", "--off")
        return True

    def alive(self):
        return super().alive() and self.screen.process.poll() is None

    def open_program(self):
        return X11Program(self)

    def request(self, window, message, *values):
        data = [value if isinstance(value, int) else self.screen.atom(value) for value in values]
        self.screen.root.send_event(
            xevent.ClientMessage(window=window, client_type=self.screen.atom(message),
                                 data=(32, (data + [0] * 5)[:5])),
            event_mask=X.SubstructureRedirectMask | X.SubstructureNotifyMask)
        self.screen.display.sync()

    def go_to_workspace(self, number):
        root = self.screen.root
        self.request(root, "_NET_NUMBER_OF_DESKTOPS", 2)
        self.request(root, "_NET_CURRENT_DESKTOP", number, X.CurrentTime)


class X11Program:
    """A plain window that counts what it gets."""

    def __init__(self, session):
        self.session = session
        self.window = session.screen.plain_window(220, 10, *PROGRAM_SIZE, PROGRAM_COLOR)
        self._counts = {X.KeyPress: 0, X.ButtonPress: 0}

    def _count(self, kind):
        for event in self.session.screen.events():
            if event.type in self._counts and event.window == self.window:
                self._counts[event.type] += 1
        return self._counts[kind]

    def keys(self):
        return self._count(X.KeyPress)

    def clicks(self):
        return self._count(X.ButtonPress)

    def fill_screen(self, filled):
        self.session.request(self.window, "_NET_WM_STATE", int(filled), "_NET_WM_STATE_FULLSCREEN", 0, 1)

    def close(self):
        self.window.destroy()
        self.session.screen.display.sync()


def window_manager(*command, **members):
    """The desktop of one that is started so."""
    return type(command[0], (X11Session,), {"programs": command[:1], "command": command, **members})


class I3Session(X11Session):
    programs = ("i3",)
    command = ("i3", "-c", "/dev/null")

    def go_to_workspace(self, number):
        self._run("i3-msg", "workspace", str(number + 1))


# --- Wayland --------------------------------------------------------------------------------------


class WaylandSession(Session):
    """A compositor that draws into memory, with XWayland for the agent and a Wayland program in use.

    It is an ordinary user's: some refuse to run as root.
    """

    socket_name = "session"
    # Where an ordinary user finds it, when the tests run as root with a folder of their own for temporary files.
    parent_folder = "/tmp"

    def _start(self, _window_manager, _accessibility):
        self.bus = Bus(self.folder)
        self._closing.callback(self.bus.close)
        self.screen = None
        self.environment = self._private_environment()
        runtime = self.environment["XDG_RUNTIME_DIR"]
        self.environment.update(WAYLAND_DISPLAY=os.path.join(runtime, self.socket_name), XDG_SESSION_TYPE="wayland",
                                LIBGL_ALWAYS_SOFTWARE="1")
        told = self._start_session()
        self.environment.update(DISPLAY=told["DISPLAY"], XAUTHORITY=told.get("XAUTHORITY", ""))
        self.screen = Screen(self.environment["DISPLAY"], self.environment["XAUTHORITY"])
        self._closing.callback(self.screen.close)
        wait_until(lambda: self.screen.property(self.screen.root, "_NET_SUPPORTING_WM_CHECK"),
                   "XWayland has its window manager", START_LIMIT)
        self.accessibility = None
        self.park_pointer()

    def _start_session_program(self, *command, **environment):
        if os.getuid() == 0:
            self._give_to(NOBODY)
        environment = {**self.environment, **environment}
        del environment["WAYLAND_DISPLAY"]  # it makes its own displays
        with open(os.path.join(self.folder, "session.log"), "wb") as log:
            process = subprocess.Popen([*self._ordinary_user(), *command], env=environment, stdin=subprocess.DEVNULL,
                                       stdout=log, stderr=log)
        self.parts.append(process)
        self._closing.callback(end_process, process)
        return process

    def _ordinary_user(self):
        """The beginning of a command line whose program runs as one."""
        if os.getuid() != 0:
            return []
        return ["setpriv", "--reuid", str(NOBODY), "--regid", str(NOBODY), "--clear-groups", "--"]

    def _give_to(self, user):
        """The session's own folders; they are found by whoever knows their names."""
        os.chmod(self.folder, 0o711)
        for name in ("HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_DATA_HOME", "XDG_RUNTIME_DIR", "TMPDIR"):
            for folder, _folders, files in os.walk(self.environment[name]):
                for path in (folder, *(os.path.join(folder, file) for file in files)):
                    os.chown(path, user, user)

    def _script_that_tells(self):
        """The path of a script for the session to run, which lets the tests in and tells its environment."""
        told = os.path.join(self.environment["XDG_RUNTIME_DIR"], "told")
        path = self._write("tell", f"#!/bin/sh\nxhost +local:\nenv > {told}.new && mv {told}.new {told}\n")
        os.chmod(path, 0o755)
        return path

    def _told_environment(self):
        """What that script has told."""
        path = os.path.join(self.environment["XDG_RUNTIME_DIR"], "told")

        def is_told():
            if not self.alive():
                raise AssertionError(f"{self.programs[0]} ended")
            return os.path.exists(path)
        wait_until(is_told, f"{self.programs[0]} runs a program", START_LIMIT)
        with open(path, encoding="utf-8") as file:
            return dict(line.split("=", 1) for line in file.read().splitlines() if "=" in line)

    def _start_fake_input(self):
        client = shutil.copy(os.path.join(HERE, "fake_input.py"), self.folder)
        self.input = subprocess.Popen(
            [*self._ordinary_user(), "/usr/bin/python3", client, self.environment["WAYLAND_DISPLAY"],
             str(SCREEN_WIDTH * self.monitors), str(SCREEN_HEIGHT)],
            env=self.environment, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self._closing.callback(end_process, self.input)

    def _do(self, *words):
        print(*words, file=self.input.stdin, flush=True)
        if not self.input.stdout.readline():
            raise AssertionError("the compositor lets nobody type and point")

    def pixel(self, x, y):
        return self.picture().getpixel((x, y))

    def move_pointer(self, x, y):
        self._do("move", int(x), int(y))

    def button(self, pressed):
        self._do("button", int(pressed))

    def press_key(self, name):
        self._do("key", {"x": 45, "Return": 28, "Escape": 1}[name])

    def open_program(self):
        return WaylandProgram(self)


class WaylandProgram:
    """A window like that under X11, of a program that knows nothing of X11."""

    def __init__(self, session):
        self.told = os.path.join(session.folder, f"program-{time.monotonic_ns()}")
        with open(self.told, "wb") as file:
            self.process = subprocess.Popen(
                ["/usr/bin/python3", os.path.join(HERE, "wayland_program.py"), "rgb({},{},{})".format(*PROGRAM_COLOR),
                 *map(str, PROGRAM_SIZE)],
                env=dict(session.environment, GDK_BACKEND="wayland", GSETTINGS_BACKEND="memory", NO_AT_BRIDGE="1"),
                stdin=subprocess.PIPE, stdout=file, stderr=subprocess.DEVNULL, text=True)

    def _count(self, word):
        with open(self.told, encoding="utf-8") as file:
            return file.read().split().count(word)

    def keys(self):
        return self._count("key")

    def clicks(self):
        return self._count("click")

    def fill_screen(self, _filled):
        print(file=self.process.stdin, flush=True)

    def close(self):
        end_process(self.process)


class GnomeShellSession(WaylandSession):
    """It wants an ordinary user, a login daemon, and tells everything by its own scripts."""

    programs = ("gnome-shell", "Xwayland", "setpriv")
    socket_name = "wayland-0"
    SETTINGS = """[org/gnome/shell]
welcome-dialog-last-shown-version='99'
[org/gnome/desktop/interface]
enable-animations=false
[org/gnome/desktop/session]
idle-delay=uint32 0
[org/gnome/mutter]
dynamic-workspaces=false
[org/gnome/desktop/wm/preferences]
num-workspaces=2
"""

    def _start_session(self):
        self._write("glib-2.0/settings/keyfile", self.SETTINGS)
        system_folder = os.path.join(self.folder, "system")
        os.mkdir(system_folder, 0o711)
        system = Bus(system_folder)
        self._closing.callback(system.close)
        self.environment["GSETTINGS_BACKEND"] = "keyfile"
        addresses = dict(DBUS_SYSTEM_BUS_ADDRESS=system.address)
        login = subprocess.Popen(["/usr/bin/python3", "-m", "dbusmock", "--template", "logind"],
                                 env=dict(self.environment, **addresses), stdin=subprocess.DEVNULL,
                                 stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self._closing.callback(end_process, login)
        wait_until(lambda: system.process_of("org.freedesktop.login1"), "the login daemon is there", START_LIMIT)
        self._start_session_program(
            "gnome-shell", "--headless", "--wayland", "--unsafe-mode",
            *["--virtual-monitor", f"{SCREEN_WIDTH}x{SCREEN_HEIGHT}"] * self.monitors,
            XDG_CURRENT_DESKTOP="GNOME", **addresses)
        wait_until(lambda: self.script("Main.layoutManager._startingUp") == "false", "the shell is up", START_LIMIT,
                   interval=0.2)
        self.script("Main.overview.hide()")
        wait_until(lambda: self.script("Main.overview.visible") == "false", "the overview is gone")
        self.script("""
            const {Clutter} = imports.gi;
            const seat = Clutter.get_default_backend().get_default_seat();
            global.testPointer = seat.create_virtual_device(Clutter.InputDeviceType.POINTER_DEVICE);
            global.testKeyboard = seat.create_virtual_device(Clutter.InputDeviceType.KEYBOARD_DEVICE);""")
        wait_until(lambda: self.script("GLib.getenv('DISPLAY')") not in (None, "null"), "XWayland has a display")
        return {name: self.script(f"GLib.getenv('{name}')").strip('"') for name in ("DISPLAY", "XAUTHORITY")}

    def script(self, text):
        """What the shell answers, as JSON; None while it answers nothing."""
        try:
            worked, answer = self.bus.connection.call_blocking(
                "org.gnome.Shell", "/org/gnome/Shell", "org.gnome.Shell", "Eval", "s", (text,))
        except dbus.exceptions.DBusException:
            return None
        return str(answer) if worked else None

    def picture(self):
        path = os.path.join(self.environment["XDG_RUNTIME_DIR"], "picture.png")
        self.bus.connection.call_blocking(
            "org.gnome.Shell", "/org/gnome/Shell/Screenshot", "org.gnome.Shell.Screenshot", "Screenshot", "bbs",
            (False, False, path))
        with Image.open(path) as picture:
            return picture.convert("RGB")

    def move_pointer(self, x, y):
        self.script(f"global.testPointer.notify_absolute_motion(GLib.get_monotonic_time(), {x}, {y})")

    def button(self, pressed):
        self.script("global.testPointer.notify_button(GLib.get_monotonic_time(), imports.gi.Clutter.BUTTON_PRIMARY, "
                    f"{int(pressed)})")

    def press_key(self, name):
        for state in (1, 0):
            self.script("global.testKeyboard.notify_keyval(GLib.get_monotonic_time(), "
                        f"imports.gi.Clutter.KEY_{name}, {state})")

    def go_to_workspace(self, number):
        self.script(f"global.workspace_manager.get_workspace_by_index({number}).activate(global.get_current_time())")

    def unplug_second_monitor(self):
        call = functools.partial(self.bus.connection.call_blocking, "org.gnome.Mutter.DisplayConfig",
                                 "/org/gnome/Mutter/DisplayConfig", "org.gnome.Mutter.DisplayConfig")
        serial, monitors, _logical, _properties = call("GetCurrentState", "", ())
        names, modes, _more = monitors[0]
        only_this_time = 1
        first = (0, 0, 1.0, 0, True, [(names[0], modes[0][0], {})])
        call("ApplyMonitorsConfig", "uua(iiduba(ssa{sv}))a{sv}", (serial, only_this_time, [first], {}))
        return True

    def banners(self):
        titles = self.script("Main.messageTray.getSources().map(source => source.title).join()")
        return [] if titles == '""' else [titles]


class KWinWaylandSession(WaylandSession):
    programs = ("kwin_wayland", "Xwayland", "setpriv")

    def _start_session(self):
        # Copied without its file capabilities, which a container may not have to give.
        program = shutil.copy(shutil.which("kwin_wayland"), self.folder)
        self._start_session_program(
            program, "--virtual", "--width", str(SCREEN_WIDTH), "--height", str(SCREEN_HEIGHT), "--output-count",
            str(self.monitors), "--xwayland", "--socket", self.socket_name, "--no-lockscreen", "--no-global-shortcuts",
            self._script_that_tells(),
            XDG_CURRENT_DESKTOP="KDE", KWIN_WAYLAND_NO_PERMISSION_CHECKS="1", KWIN_SCREENSHOT_NO_PERMISSION_CHECKS="1")
        told = self._told_environment()
        self._start_fake_input()
        return told

    def picture(self):
        width = SCREEN_WIDTH * self.monitors
        reading, writing = os.pipe()
        results = []
        with os.fdopen(reading, "rb") as pipe:
            self.bus.connection.call_async(
                "org.kde.KWin", "/org/kde/KWin/ScreenShot2", "org.kde.KWin.ScreenShot2", "CaptureArea", "iiuua{sv}h",
                (0, 0, width, SCREEN_HEIGHT, dbus.Dictionary({}, signature="sv"), dbus.types.UnixFd(writing)),
                results.append, results.append)
            self.bus.connection.flush()
            os.close(writing)
            data = pipe.read()
        if len(data) < width * SCREEN_HEIGHT * 4:
            wait_until(lambda: results, "the compositor answers for its picture")
            raise AssertionError(f"no picture: {results}")
        return Image.frombytes("RGB", (width, SCREEN_HEIGHT), data, "raw", "BGRX")

    def unplug_second_monitor(self):
        self._do("unplug")
        return True

    def go_to_workspace(self, number):
        path, interface = "/VirtualDesktopManager", "org.kde.KWin.VirtualDesktopManager"
        call = functools.partial(self.bus.connection.call_blocking, "org.kde.KWin", path)

        def desktops():
            return call("org.freedesktop.DBus.Properties", "Get", "ss", (interface, "desktops"))
        while len(desktops()) < 2:
            call(interface, "createDesktop", "us", (1, "second"))
        call("org.freedesktop.DBus.Properties", "Set", "ssv", (interface, "current", desktops()[number][1]))


class SwaySession(WaylandSession):
    programs = ("sway", "swaymsg", "grim", "Xwayland", "setpriv")

    def _start_session(self):
        outputs = "".join(f"output HEADLESS-{number + 1} resolution {SCREEN_WIDTH}x{SCREEN_HEIGHT} "
                          f"position {number * SCREEN_WIDTH} 0\n" for number in range(self.monitors))
        configuration = self._write("sway.conf", f"{outputs}xwayland enable\ngaps outer 12\n"
                                    f"exec {self._script_that_tells()}\n")
        self._start_session_program(
            "sway", "--config", configuration, WLR_BACKENDS="headless", WLR_HEADLESS_OUTPUTS=str(self.monitors),
            WLR_LIBINPUT_NO_DEVICES="1", WLR_RENDERER="pixman", XDG_CURRENT_DESKTOP="sway")
        told = self._told_environment()
        self.environment["SWAYSOCK"] = told["SWAYSOCK"]
        self.environment["WAYLAND_DISPLAY"] = os.path.join(self.environment["XDG_RUNTIME_DIR"],
                                                           told["WAYLAND_DISPLAY"])
        self._start_fake_input()
        return told

    def _tell(self, *words):
        subprocess.run(["swaymsg", "--quiet", "--", *words], env=self.environment, check=True, timeout=10)

    def picture(self):
        path = os.path.join(self.folder, "picture.ppm")
        subprocess.run(["grim", "-t", "ppm", path], env=self.environment, check=True, timeout=20)
        with Image.open(path) as picture:
            return picture.convert("RGB")

    def go_to_workspace(self, number):
        self._tell("workspace", str(number + 1))


# The name of each in tests and documents.
SESSIONS = {
    "openbox": window_manager("openbox"),
    "openbox with picom": window_manager("openbox", programs=("openbox", "picom")),
    "xfwm4": window_manager("xfwm4"),
    "mutter": window_manager("mutter", "--x11"),
    "kwin_x11": window_manager("kwin_x11"),
    "marco": window_manager("marco"),
    "metacity": window_manager("metacity"),
    "i3": I3Session,
    "awesome": window_manager("awesome"),
    "fluxbox": window_manager("fluxbox"),
    "icewm": window_manager("icewm"),
    "GNOME Shell": GnomeShellSession,
    "KWin Wayland": KWinWaylandSession,
    "sway": SwaySession,
}


_running = {}


def shared_session(name, monitors=1):
    """The process's desktop of this name, started again when a test ended it or wants other monitors, but never when
    it did not start."""
    session = _running.get(name)
    if isinstance(session, Exception):
        raise session
    if session is not None and session.alive() and session.monitors == monitors:
        return session
    if session is not None:
        session.close()
    try:
        session = _running[name] = SESSIONS[name](monitors)
    except Exception as failure:
        _running[name] = failure
        raise
    atexit.register(session.close)
    return session
