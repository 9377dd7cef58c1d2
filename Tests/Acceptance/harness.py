"""What the acceptance tests share: the bundle under test, the running agent, its log.

The agent is judged from outside only: by its window, its log file, the bus, its requests and
its exit status.
"""

import datetime
import io
import itertools
import os
import plistlib
import re
import shutil
import subprocess
import tempfile
import threading
import time
import unittest
from typing import NamedTuple
from xml.sax.saxutils import escape

import dbus
from PIL import Image

from desktop import AGENT_NAME, PATIENCE, Desktop, Screen, holds_for, pump, shared_desktop, wait_until

REPOSITORY = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
BUNDLE = os.environ.get("NOTICE_AGENT_BUNDLE") or os.path.join(REPOSITORY, "build/release/NoticeAgent.app")
LOG_ROOT = "/private/var/log"

ACCENT = (30, 34, 52)
WHITE = (255, 255, 255)
DEFAULT_HEADER = (42, 41, 47)

COUNTDOWN = "This window will auto close in {} seconds"

TITLE_STRIP = 28
HEADER = 52
WIDTH = 460
MARGIN = 24


def _is_sanitized():
    try:
        with open(os.path.join(BUNDLE, "Contents/Linux/NoticeAgent"), "rb") as file:
            content = file.read()
    except OSError:
        return False  # the runner says that there is none
    return b"__asan_init" in content or b"__tsan_init" in content


# A build with a sanitizer has memory figures of its own, and is several times as slow.
IS_SANITIZED = _is_sanitized()
SLOWNESS = 5 if IS_SANITIZED else 1

# Keys of a notice's first 0.7 s, or that follow another so soon, were meant for the window before.
PAUSE_BEFORE_KEYS = 1.5

# How much later than at its moment a thing may happen on a busy machine. What is early is wrong by itself.
LATE = 4.0 * SLOWNESS

_numbers = itertools.count(1)


def takes(seconds):
    """Tells the runner how long a test runs in real time, so that it starts the long ones first."""
    def mark(test):
        test.seconds = seconds
        return test
    return mark


# --- messages ----------------------------------------------------------------------------------


def notice_xml(head="Upload blocked", module="Cloud Access Policy", body="The file was not sent.",
               timeout=None, rows=(), ok_url=None, root="zelvik-secure-access"):
    """A notice document. None leaves an element out; a row is (name, value)."""
    parts = []
    for element, text in (("module", module), ("head", head), ("body", body), ("timeout", timeout)):
        if text is not None:
            parts.append(f"<{element}>{escape(str(text))}</{element}>")
    if rows:
        parts.append("<metadata>" + "".join(
            "<md>" + (f"<name>{escape(name)}</name>" if name is not None else "")
            + (f"<val>{escape(value)}</val>" if value is not None else "") + "</md>"
            for name, value in rows) + "</metadata>")
    if ok_url is not None:
        parts.append(f"<url><ok>{escape(ok_url)}</ok></url>")
    return f"<{root}><notifications>{''.join(parts)}</notifications></{root}>"


THREE_ROWS = (("Activity", "Upload"), ("Application", "Example Drive"), ("URL", "https://drive.example/x"))


# Notices that only float, by their kinds; the CASB notice takes the keyboard.
FLOATING = {
    "maintenance": dict(WebSocketType=True, MaintenanceMessageKey="text"),
    "auto disconnect": dict(AutoDisconnectWebSocketType=True, AutoDisconnectMessageKey="text"),
    "re-authentication": dict(WebSocketReAuthType=True),
    "concurrent session": dict(WebSocketAdminDisconnect=True, webSocketResponse=notice_xml(body="text")),
}
CASB = dict(webSocketResponse=notice_xml(body="text", timeout="600", rows=THREE_ROWS))
# A concurrent session without a response makes its window invisible.
INVISIBLE = dict(WebSocketAdminDisconnect=True)

# The types that the library would take for others.
BUS_TYPES = {bytes: dbus.ByteArray, int: dbus.Int64}


def user_info_of(values):
    """A message's user info as the bus takes it."""
    return dbus.Dictionary({key: BUS_TYPES.get(type(value), lambda same: same)(value)
                            for key, value in values.items()}, signature="sv")


def png(color, width=64, height=32):
    """The bytes of a one-coloured picture."""
    buffer = io.BytesIO()
    Image.new("RGB", (width, height), color).save(buffer, "PNG")
    return buffer.getvalue()


def memory(process_id, kind="VmRSS"):
    """In kB: VmRSS is what the process has now, VmHWM the most it ever had."""
    with open(f"/proc/{process_id}/status", encoding="ascii") as file:
        return next(int(line.split()[1]) for line in file if line.startswith(kind))


# --- log ---------------------------------------------------------------------------------------


class Starts(str):
    """In a list of expected log messages: one of which only the beginning is given."""

    def __eq__(self, other):
        return str(other).startswith(str(self))

    def __ne__(self, other):
        return not self == other

    __hash__ = str.__hash__


class Record(NamedTuple):
    moment: float  # seconds since the epoch
    level: str
    message: str


class Log:
    """The agent's log file, read anew at every look."""

    BEGINNING = re.compile(r"^(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}) \[([^\]]*)\] : ", re.MULTILINE)

    def __init__(self, folder_name):
        self.folder = os.path.join(LOG_ROOT, folder_name)
        self.path = os.path.join(self.folder, f"{folder_name}_Tevanic.log")

    def raw(self):
        try:
            with open(self.path, encoding="utf-8", errors="replace", newline="") as file:
                return file.read()
        except OSError:
            return ""

    def records(self):
        """A line that does not begin like a record belongs to the one before."""
        before, *parts = self.BEGINNING.split(self.raw())
        records = [Record(0, "no record", before)] if before else []
        for date, level, message in zip(parts[::3], parts[1::3], parts[2::3]):
            moment = datetime.datetime.fromisoformat(date + "+00:00").timestamp()
            records.append(Record(moment, level, message.removesuffix("\n")))
        return records

    def pairs(self):
        return [(record.level, record.message) for record in self.records()]

    def find(self, level, message, count=1):
        """The count-th record of this level and text (or Starts), or None."""
        matching = [record for record in self.records() if record.level == level and message == record.message]
        return matching[count - 1] if len(matching) >= count else None

    def wait_for(self, level, message, count=1, timeout=PATIENCE):
        return wait_until(lambda: self.find(level, message, count),
                          f"log record {count} [{level}] : {message}", timeout)

    def count(self, level, message):
        return sum(pair[0] == level and message == pair[1] for pair in self.pairs())


LAUNCHED = [
    ("info", "Initiating a Timer to Terminate the application automatically."),
    ("debug", Starts("Default APP Termination Time is set to ")),
]

# The records with which every message begins.
RECEIVED = [
    ("info", "Message received from Main APP."),
    ("debug", Starts("Message from Sase Client APP: \n ")),
    ("info", "Bundle Language View en"),
]


# --- bundle ------------------------------------------------------------------------------------


class Bundle:
    """A copy of the bundle under test of another brand, in a folder whose name is no plain one."""

    def __init__(self, folder, log_folder_name):
        self.contents = os.path.join(folder, "Zelvik Köln 100% 日本", "NoticeAgent.app", "Contents")
        shutil.copytree(os.path.join(BUNDLE, "Contents"), self.contents, symlinks=True)
        self.executable = os.path.join(self.contents, "Linux", "NoticeAgent")
        self.info_file = os.path.join(self.contents, "Info.plist")
        self.log_folder_name = log_folder_name
        with open(os.path.join(self.contents, "Resources", "Application_Shared.plist"), "wb") as file:
            plistlib.dump({"AppLogo": "ic_zelvikLogo", "Vendor": "zelvik", "LogFolderName": log_folder_name,
                           "globalAppViewBackgroundColor": "#2A292F"}, file)
        self.info(Default_App_Timeout=120)

    def info(self, **changes):
        """Changes entries of the information property list."""
        with open(self.info_file, "rb") as file:
            values = plistlib.load(file)
        with open(self.info_file, "wb") as file:
            plistlib.dump({**values, **changes}, file)


# --- agent -------------------------------------------------------------------------------------


class Notice:
    """What can be seen of a process that shows notices."""

    def __init__(self, desktop, process_id):
        self.desktop = desktop
        self.process_id = process_id
        self._window = None

    def visible_windows(self):
        screen = self.desktop.screen
        return [window for window in screen.windows_of(self.process_id) if screen.viewable(window)]

    def window(self):
        """The notice's window, once it is there."""
        if self._window is None or not self.desktop.screen.viewable(self._window):
            self._window = next(iter(self.visible_windows()), self._window)
        return self._window

    def visible(self):
        window = self.window()
        return window is not None and self.desktop.screen.viewable(window)

    def wait_visible(self):
        wait_until(self.visible, "the notice's window is on the screen")
        return self._window

    def wait_hidden(self):
        wait_until(lambda: not self.visible_windows(), "the notice's window is off the screen")

    def geometry(self):
        """x, y, width, height of the notice on the screen, without its shadow."""
        self.wait_visible()
        screen = self.desktop.screen
        left, right, top, bottom = screen.property(self._window, "_GTK_FRAME_EXTENTS") or [0, 0, 0, 0]
        x, y, width, height = screen.geometry(self._window)
        return x + left, y + top, width - left - right, height - top - bottom

    def pixel(self, x, y):
        """A pixel of the notice as the screen shows it."""
        left, top, _width, _height = self.geometry()
        return self.desktop.screen.pixel(left + x, top + y)

    def wait_pixel(self, x, y, color, what):
        """Waits until a pixel of the notice has exactly this colour."""
        seen = []

        def right():
            seen[:] = [self.pixel(x, y)]
            return seen[0] == color
        try:
            wait_until(right, "", interval=0.02)
        except AssertionError:
            raise AssertionError(f"{what}: pixel {x, y} should be {color}, is {seen[0]}") from None

    def picture(self):
        left, top, width, height = self.geometry()
        return self.desktop.screen.picture().crop((left, top, left + width, top + height))

    def click(self, x, y):
        """Clicks at a place of the notice."""
        left, top, _width, _height = self.geometry()
        self.desktop.click(left + x, top + y)

    def click_close(self):
        """The strip's button stands at the right."""
        self.click(self.geometry()[2] - 16, TITLE_STRIP // 2)

    # What a screen reader hears.

    def elements(self):
        """The accessibility tree in reading order, with places counted from the window's corner."""
        elements = []

        def read():
            elements[:] = self.desktop.accessibility.elements(self.process_id)
            # The first one below the application is its window. A window manager may move it meanwhile.
            return len(elements) < 2 or (again := elements[1].now()) is None or again.extents == elements[1].extents
        wait_until(read, "the window keeps its place while its elements are read")
        left, top = elements[1].extents[:2] if len(elements) > 1 else (0, 0)
        for element in elements:
            x, y, width, height = element.extents
            element.extents = (x - left, y - top, width, height)
        return elements

    def texts(self):
        """The texts that can be read on the screen now, buttons included."""
        return [element.text for element in self.elements() if element.shown and element.text]

    def wait_text(self, text, timeout=PATIENCE):
        """Waits until an element shows exactly this text, and returns it."""
        return self._wait_element(lambda shown: shown == text, f"the text {text!r}", timeout)

    def _wait_element(self, fits, what, timeout=PATIENCE):
        seen = []

        def found():
            elements = [element for element in self.elements() if element.shown and element.text]
            seen[:] = [element.text for element in elements]
            return next((element for element in elements if fits(element.text)), None)
        try:
            return wait_until(found, f"{what} is shown", timeout, interval=0.05)
        except AssertionError as failure:
            raise AssertionError(f"{failure}; shown: {seen}") from None

    def wait_countdown(self, of, text=COUNTDOWN):
        """Waits for the countdown line in exactly this form; returns its element.

        A text that stands there before the first tick does not count: its first number is one below the start.
        """
        form = re.compile(re.escape(text).replace(r"\{\}", r"(-?\d+)"))
        return self._wait_element(lambda shown: (match := form.fullmatch(shown)) and int(match[1]) < of,
                                  f"a text of the form {text!r}")

    def ok_button(self):
        """The button under the notice's text. The close button, up in the strip, is not it."""
        def found():
            return self.visible() and next((element for element in self.elements()
                                            if "button" in element.role and element.shown
                                            and element.extents[1] >= TITLE_STRIP + HEADER), None)
        return wait_until(found, "an OK button is shown", interval=0.05)

    def press_ok(self):
        """Clicks OK with the pointer; returns the moment of the click."""
        def in_place():
            elements = self.desktop.accessibility.elements(self.process_id)
            return len(elements) > 1 and elements[1].extents[:2] == self.geometry()[:2]
        wait_until(in_place, "the agent's window is where the agent takes it to be", interval=0.05)
        button = self.ok_button()
        moment = time.time()
        self.click(*button.centre())
        return moment


class Agent(Notice):
    """An agent that the test has started, with all that it writes and how it ends."""

    def __init__(self, bundle, desktop, folder, environment, command):
        self.bundle = bundle
        self.log = Log(bundle.log_folder_name)
        self.ended = None
        self._folder = tempfile.mkdtemp(prefix="agent-", dir=folder)
        variables = {name: value for name, value in {**desktop.environment, **environment}.items() if value is not None}
        with open(self._file("out"), "wb") as out, open(self._file("err"), "wb") as err:
            self.started = time.time()
            self.process = subprocess.Popen([*command, bundle.executable], env=variables, cwd="/",
                                            stdin=subprocess.DEVNULL, stdout=out, stderr=err)
        super().__init__(desktop, self.process.pid)
        # The end is noted when it happens, not when a test looks.
        self._watcher = threading.Thread(target=self._watch, daemon=True)
        self._watcher.start()

    def _file(self, name):
        return os.path.join(self._folder, name)

    def _watch(self):
        self.process.wait()
        self.ended = time.time()

    def _read(self, name):
        with open(self._file(name), encoding="utf-8", errors="replace") as file:
            return file.read()

    def output(self):
        return self._read("out")

    def errors(self):
        return self._read("err")

    def running(self):
        return self.ended is None

    def wait_ready(self):
        """Waits for the well-known name, as a client does before it posts."""
        def ready():
            if not self.running():
                raise AssertionError(f"the agent ended before it owned its name, status {self.process.returncode}")
            return self.process_id in self.desktop.bus.queue_of(AGENT_NAME)
        wait_until(ready, f"the agent owns or queues for {AGENT_NAME}", interval=0.003)

    def wait_end(self, timeout=PATIENCE):
        """Waits for the process to end; returns the moment of it."""
        wait_until(lambda: not self.running(), "the agent's process ends", timeout)
        return self.ended

    def end(self):
        if self.process.poll() is None:
            self.process.kill()
        self._watcher.join(5)

    def activate(self):
        """What a key that the user has bound to it does."""
        name = f"{AGENT_NAME}.{self.bundle.log_folder_name}"
        path = "/" + name.replace(".", "/").replace("-", "_")
        self.desktop.bus.connection.call_blocking(name, path, "org.freedesktop.Application", "Activate", "a{sv}", ({},))

    def follow(self, element):
        """Watches one label until the agent ends or hides; returns [(moment, text, shown)] of its changes."""
        seen = []
        while self.running():
            pump()
            now = element.now()
            if now is None:
                break
            if not seen or seen[-1][1:] != (now.text, now.shown):
                seen.append((time.time(), now.text, now.shown))
            time.sleep(0.03)
        return seen

    def describe(self):
        state = "running" if self.running() else f"ended with status {self.process.returncode}"
        log = self.log.raw()
        if len(log) > 8000:
            log = log[:4000] + "\n  [...]\n" + log[-4000:]
        return (f"agent {self.process_id}: {state}\n--- log {self.log.path}\n{log}"
                f"--- standard output\n{self.output()[-2000:]}--- standard error\n{self.errors()[-4000:]}")


# --- test case ---------------------------------------------------------------------------------


class NoticeTestCase(unittest.TestCase):
    """A test with its own bundle copy, log folder and agent on the process's shared desktop."""

    window_manager = "openbox"
    accessibility = True
    own_desktop = False  # one that goes with the test
    maxDiff = None

    def setUp(self):
        self.desktop = self.desktop_for_test()
        self.screen = self.desktop.screen
        self.bus = self.desktop.bus
        self.folder = tempfile.mkdtemp(prefix="notice-test-")
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.agents = []
        self.addCleanup(self._end_agents)
        self.bundle = self.new_bundle()
        self.brand = self.bundle.log_folder_name

    def desktop_for_test(self):
        if not self.own_desktop:
            return shared_desktop(self.window_manager, self.accessibility)
        desktop = Desktop(self.window_manager, self.accessibility)
        self.addCleanup(desktop.close)
        return desktop

    def new_bundle(self):
        """One of another brand; its log folder goes with the test."""
        name = f"nt-{os.getpid()}-{next(_numbers)}"
        self.addCleanup(shutil.rmtree, os.path.join(LOG_ROOT, name), ignore_errors=True)
        return Bundle(tempfile.mkdtemp(prefix="bundle-", dir=self.folder), name)

    def own_screen(self):
        """A screen that a test may stop and end."""
        screen = Screen.virtual()
        self.addCleanup(screen.process.wait)
        self.addCleanup(screen.process.kill)
        return screen

    def _end_agents(self):
        for agent in self.agents:
            agent.end()
        self.desktop.park_pointer()

    def describe_failure(self):
        """What the runner prints beside a failure."""
        if not getattr(self, "agents", None):
            return ""
        pointer = self.screen.root.query_pointer()
        return (f"pointer at {pointer.root_x}, {pointer.root_y}, buttons {pointer.mask:#x}\n"
                + "\n".join(agent.describe() for agent in self.agents))

    def photograph(self, path):
        self.desktop.picture().save(path)

    # Actions.

    def start(self, bundle=None, environment=(), command=()):
        """Starts an agent, by a command that ends in it if one is given, without waiting for anything."""
        agent = Agent(bundle or self.bundle, self.desktop, self.folder, dict(environment), command)
        self.agents.append(agent)
        return agent

    def launch(self, bundle=None, environment=()):
        """Starts an agent and waits until it can be posted to."""
        agent = self.start(bundle, environment)
        self.bus.heard.clear()
        agent.wait_ready()
        return agent

    def post(self, **user_info):
        """Posts a message to the agent of this test's brand."""
        self._post(self.brand, user_info)

    def post_to(self, agent, **user_info):
        """Posts a message to the agent of another brand than the test's."""
        self._post(agent.bundle.log_folder_name, user_info)

    def _post(self, brand, user_info):
        self.bus.emit("ssa{sv}", f"{brand}_socketMessageNotifier", "", user_info_of(user_info))
        self.bus.connection.flush()

    def post_casb(self, logo=None, **notice):
        xml = notice_xml(**notice)
        self.post(webSocketResponse=xml, **({"HeaderLogoImage": logo} if logo else {}))
        return xml

    def drag(self, agent, left=300, down=200):
        """Drags the notice by its strip; returns where it is then."""
        x, y, _width, _height = agent.geometry()
        start = (x + 100, y + TITLE_STRIP // 2)
        self.desktop.move_pointer(*start)
        self.desktop.button(True)
        steps = itertools.count(10)

        # As a hand does it: on from the first step only when the notice follows.
        def follows():
            step = next(steps)
            self.desktop.move_pointer(start[0] - step, start[1] + step)
            return agent.geometry()[:2] != (x, y)
        wait_until(follows, "the notice follows the pointer", interval=0.05)
        lost = next(steps)
        for step in range(1, 21):  # nor does it jump: XWayland takes a pointer that is far away for one that left
            self.desktop.move_pointer(start[0] - left * step // 20, start[1] + down * step // 20)
            time.sleep(0.02)

        def is_there():
            now_x, now_y, _width, _height = agent.geometry()
            return 0 <= now_x - x + left <= lost and 0 <= y + down - now_y <= lost
        wait_until(is_there, f"the notice is where the pointer took it from {(x, y)}")
        self.desktop.button(False)
        holds_for(is_there, 0.3, "the notice went on with the pointer")
        return agent.geometry()[:2]

    # Expectations.

    def assert_log(self, agent, *expected, after=len(LAUNCHED)):
        """Waits for the records after the first `after` ones and holds their order, levels and texts to it."""
        expected = [record for part in expected for record in (part if isinstance(part, list) else [part])]
        try:
            wait_until(lambda: len(agent.log.pairs()) >= after + len(expected), "all records are logged")
        except AssertionError:
            pass  # the comparison says what is missing
        self.assertEqual(expected, agent.log.pairs()[after:])

    def assert_header_logo(self, agent, color):
        """The payload's one-coloured logo stands at the header's left edge, 28 high."""
        for y in (2, 14, 25):
            agent.wait_pixel(MARGIN + 4, TITLE_STRIP + 12 + y, color, "logo")

    def assert_ended(self, agent, timeout=PATIENCE):
        moment = agent.wait_end(timeout)
        self.assertEqual(0, agent.process.returncode, "exit status")
        return moment

    def assert_counted(self, seen, of, begun):
        """What Agent.follow saw of a countdown: numbers that fall, none before its moment."""
        form = re.compile(COUNTDOWN.format(r"(\d+)"))
        shown = [(moment, form.fullmatch(line)) for moment, line, is_shown in seen if is_shown]
        self.assertTrue(shown and all(match for _moment, match in shown), f"countdown lines: {seen}")
        numbers = [int(match[1]) for _moment, match in shown]
        self.assertEqual(sorted(set(numbers), reverse=True), numbers, "the numbers fall")
        self.assertGreater(len(numbers), of // 2, "most of the seconds are seen")
        for moment, match in shown:
            self.assert_near(moment - begun, of - int(match[1]), f"the line {match[0]!r}")

    def assert_near(self, seconds, expected, what):
        """As long as expected, or somewhat longer."""
        self.assertTrue(expected - 0.25 <= seconds <= expected + LATE,
                        f"{what}: expected about {expected:g} s, took {seconds:.3f} s")
