"""The notice at the keyboard, on screens of every size and scale, without a desktop, to a screen reader, and under
Wayland. What window managers do to it is asked by desktops_window.py.

Pictures to look at are left under build/desktop-pictures.
"""

import itertools
import os
import re
import resource
import shutil
import subprocess
import time

import dbus
from PIL import Image
from Xlib import X, Xatom
from Xlib.ext import xtest

from desktop import AGENT_NAME, PATIENCE, end_process, holds_for, pump, wait_until
from harness import (ACCENT, COUNTDOWN, MARGIN, PAUSE_BEFORE_KEYS, REPOSITORY, THREE_ROWS, TITLE_STRIP, WHITE, WIDTH, NoticeTestCase,
                     Starts, notice_xml, takes)

PICTURES = os.path.join(REPOSITORY, "build/desktop-pictures")

MAINTENANCE = dict(WebSocketType=True, MaintenanceMessageKey="text")
SIGN_IN = dict(WebSocketReAuthType=True)
CASB = dict(webSocketResponse=notice_xml(body="text", timeout="60", rows=THREE_ROWS))
# A concurrent session without a response makes its window invisible.
INVISIBLE = dict(WebSocketAdminDisconnect=True)

EDGE_LINE = (188, 191, 194)

# No two lines of it look the same.
LONG_BODY = " ".join(f"Zusammengehöriges Wort {number}" for number in range(2000))[:49_000] + " " + "W" * 999


def window_picture(test, agent):
    """The notice on a screen of any size."""
    x, y, width, height = agent.geometry()
    raw = test.screen.root.get_image(x, y, width, height, X.ZPixmap, 0xFFFFFFFF)
    return Image.frombytes("RGB", (width, height), raw.data, "raw", "BGRX")


def part_of(test, agent, box):
    x, y, wide, high = box
    return window_picture(test, agent).crop((x, y, x + wide, y + high)).tobytes()


# --- keys ---------------------------------------------------------------------------------------


class KeysTest(NoticeTestCase):

    @takes(4)
    def test_keys_of_somebody_who_types_press_nothing(self):
        agent = self.launch()
        self.post(**CASB)
        keys = itertools.cycle(("Return", "space", "a", "KP_Enter", "Escape"))

        def type_on():
            self.screen.press_key(next(keys))
            return agent.running()
        wait_until(lambda: type_on() and agent.window() and self.screen.input_focus() == agent.window().id,
                   "the CASB notice takes the keyboard", interval=0.05)
        holds_for(lambda: type_on() and agent.visible(), 1.2, "a key meant for another window counted", interval=0.05)
        time.sleep(PAUSE_BEFORE_KEYS)
        self.screen.press_key("Return")
        agent.wait_hidden()
        self.assert_ended(agent)

    @takes(4)
    def test_tab_shows_where_the_keyboard_is_and_space_presses_there(self):
        agent = self.launch()
        self.post(**CASB)
        agent.wait_visible()
        wait_until(lambda: self.screen.input_focus() == agent.window().id, "the CASB notice has the keyboard")
        button = agent.ok_button()
        _left, _top, width, _height = agent.geometry()
        boxes = {"OK": button.extents, "the close button": (width - 34, 0, 34, TITLE_STRIP)}
        plain = {name: part_of(self, agent, box) for name, box in boxes.items()}

        def ringed():
            return {name for name, box in boxes.items() if part_of(self, agent, box) != plain[name]}
        for name in ("the close button", "OK", "the close button", "OK"):
            def reached():
                self.screen.press_key("Tab")
                try:
                    wait_until(lambda: ringed() == {name}, "", 0.5)  # noqa: B023
                except AssertionError:
                    return False
                return True
            wait_until(reached, f"Tab shows its ring at {name} alone")
        self.assertIn("focused", button.now().states)
        time.sleep(PAUSE_BEFORE_KEYS)
        self.screen.press_key("space")
        self.assert_ended(agent)


# --- screens ------------------------------------------------------------------------------------


class ScreenTest(NoticeTestCase):
    own_desktop = True

    @takes(4)
    def test_shadow_comes_and_goes_with_the_compositor(self):
        ground = (200, 40, 40)
        self.screen.plain_window(700, 0, 560, 500, ground)
        agent = self.launch()
        self.post(WebSocketType=True, MaintenanceMessageKey="text")
        agent.wait_visible()
        place = agent.geometry()
        beside = place[0] - 4, place[1] + 100

        def has_shadow():
            return bool(self.screen.property(agent.window(), "_GTK_FRAME_EXTENTS"))
        self.assertFalse(has_shadow())
        compositor = self.desktop.start_compositor()
        wait_until(lambda: has_shadow() and self.screen.pixel(*beside) != ground, "the notice casts a shadow")
        wait_until(lambda: agent.geometry() == place, "the card has kept its place")
        compositor.kill()
        wait_until(lambda: not has_shadow() and self.screen.pixel(*beside) == ground, "the notice has no shadow")
        wait_until(lambda: agent.geometry() == place, "the card has kept its place")

    def screen_size(self):
        shape = self.screen.root.get_geometry()
        return shape.width, shape.height

    def set_screen_size(self, width, height):
        command = ["xrandr", "--display", self.screen.name]
        name = f"{width}x{height}"
        if (width, height) != (1280, 1024):
            subprocess.run([*command, "--newmode", name, "40", str(width), str(width + 16), str(width + 32),
                            str(width + 64), str(height), str(height + 4), str(height + 8), str(height + 16)],
                           check=True, stderr=subprocess.DEVNULL)
            subprocess.run([*command, "--addmode", "screen", name], check=True, stderr=subprocess.DEVNULL)
        subprocess.run([*command, "--output", "screen", "--mode", name], check=True, stderr=subprocess.DEVNULL)
        wait_until(lambda: self.screen_size() == (width, height), f"the screen is {name}")

    def assert_in_corner(self, agent, what):
        def in_corner():
            screen_width, _screen_height = self.screen_size()
            left, top, width, _height = agent.geometry()
            return (left + width, top) == (screen_width - MARGIN, MARGIN)
        try:
            wait_until(in_corner, "")
        except AssertionError:
            self.fail(f"{what}: the notice is at {agent.geometry()} on a screen of {self.screen_size()}")

    def drag(self, agent, right, down):
        """Drags the notice by its strip; returns where it is then."""
        left, top, _width, _height = agent.geometry()
        start = (left + 100, top + TITLE_STRIP // 2)
        self.screen.move_pointer(*start)
        xtest.fake_input(self.screen.display, X.ButtonPress, 1)
        steps = itertools.count(10)

        # As a hand does it: on from the first step only when the notice follows.
        def follows():
            step = next(steps)
            self.screen.move_pointer(start[0] - step, start[1] + step)
            return agent.geometry()[:2] != (left, top)
        wait_until(follows, "the notice follows the pointer", interval=0.05)
        lost = next(steps)
        self.screen.move_pointer(start[0] + right, start[1] + down)

        def is_there():
            x, y, _width, _height = agent.geometry()
            return 0 <= x - left - right <= lost and 0 <= top + down - y <= lost
        wait_until(is_there, f"the notice is where the pointer took it from {(left, top)}")
        xtest.fake_input(self.screen.display, X.ButtonRelease, 1)
        self.screen.park_pointer()
        holds_for(is_there, 0.3, "the notice went on with the pointer")
        return agent.geometry()[:2]

    @takes(5)
    def test_drag_is_respected_until_the_screen_changes(self):
        agent = self.launch()
        self.post(**MAINTENANCE)
        agent.wait_text("text")
        self.assert_in_corner(agent, "at first")
        place = self.drag(agent, -300, 200)
        self.post(**SIGN_IN)
        agent.wait_text("Please sign in again")
        holds_for(lambda: agent.geometry()[:2] == place, 0.3, "the next notice moved from where the user put it")
        self.post(**INVISIBLE)
        agent.wait_hidden()
        self.post(**MAINTENANCE)
        agent.wait_visible()
        holds_for(lambda: agent.geometry()[:2] == place, 0.3, "shown again it forgot where the user put it")
        self.set_screen_size(1024, 768)
        self.assert_in_corner(agent, "on a smaller screen")
        self.set_screen_size(1280, 1024)
        self.assert_in_corner(agent, "on the larger screen again")

    @takes(7)
    def test_everything_in_view_on_a_small_screen(self):
        self.set_screen_size(640, 480)
        agent = self.launch()
        self.post(webSocketResponse=notice_xml(body=LONG_BODY, timeout="90", rows=THREE_ROWS))
        self.assert_in_corner(agent, "on a small screen")
        agent.wait_countdown(of=90)
        ok = agent.ok_button()
        left, top, width, height = agent.geometry()
        self.assertEqual(height, 480 - 2 * MARGIN, "the whole height but for the margins")
        self.assertTrue(left >= 0 and top >= 0 and top + height <= 480, agent.geometry())
        # At one moment: the countdown's text is soon another.
        elements = agent.elements()[2:]
        title = next(element for element in elements if element.text == "Upload blocked by Cloud Access Policy")
        countdown = next(element for element in elements if re.fullmatch(COUNTDOWN.format(r"\d+"), element.text))
        for element in (title, countdown, ok):
            x, y, wide, high = element.extents
            self.assertTrue(x >= 0 and y >= TITLE_STRIP and x + wide <= width and y + high <= height,
                            f"{element.text}: {(x, y, wide, high)} in {(width, height)}")
        body = (24, title.extents[1] + title.extents[3] + 10, width - 60, 80)

        def scrolls(what, action):
            before = part_of(self, agent, body)
            action()
            wait_until(lambda: part_of(self, agent, body) != before, f"the body scrolls by {what}")
            time.sleep(0.1)
        self.screen.move_pointer(left + 150, top + body[1] + 40)

        def wheel():
            xtest.fake_input(self.screen.display, X.ButtonPress, 5)
            xtest.fake_input(self.screen.display, X.ButtonRelease, 5)
            self.screen.display.sync()
        wait_until(lambda: self.screen.input_focus() == agent.window().id, "the CASB notice has the keyboard")
        scrolls("the wheel", wheel)
        scrolls("Page Down", lambda: self.screen.press_key("Next"))
        scrolls("Page Up", lambda: self.screen.press_key("Prior"))
        scrolls("End", lambda: self.screen.press_key("End"))
        os.makedirs(PICTURES, exist_ok=True)
        window_picture(self, agent).save(os.path.join(PICTURES, "small-screen-end.png"))
        scrolls("Home", lambda: self.screen.press_key("Home"))
        self.screen.click(left + ok.centre()[0], top + ok.centre()[1])
        agent.wait_hidden()

    @takes(4)
    def test_shrinking_screen_keeps_a_long_notice_in_view(self):
        agent = self.launch()
        self.post(WebSocketType=True, MaintenanceMessageKey=LONG_BODY)
        self.assert_in_corner(agent, "at first")
        self.set_screen_size(640, 480)
        self.assert_in_corner(agent, "on the smaller screen")
        wait_until(lambda: agent.geometry()[3] <= 480 - 2 * MARGIN, "the notice is cut to the smaller screen")
        button = agent.ok_button()
        self.assertLessEqual(button.extents[1] + button.extents[3], agent.geometry()[3])


class ScaleTest(NoticeTestCase):
    own_desktop = True

    def check(self, scale, environment):
        name = f"scale-{scale}" + ("" if environment else "-by-dots")
        os.makedirs(PICTURES, exist_ok=True)
        agent = self.launch(self.new_bundle(), environment=environment)
        body = "Ihre Organisation erlaubt nicht, dass Dateien in persönliche Speicher hochgeladen werden."
        self.post_to(agent, webSocketappLanguageKey="de",
                     webSocketResponse=notice_xml(body=body, timeout="60", rows=(("Aktivität", "Hochladen"),)))
        agent.wait_countdown(of=60, text="Sekunden bis zum Schließen: {} ")
        left, top, width, height = agent.geometry()
        self.assertLessEqual(abs(width - round(min(WIDTH * scale, 1280 - 2 * MARGIN * scale))), 2, "width")
        self.assertTrue(left >= 0 and top >= 0 and left + width <= 1280 and top + height <= 1024, agent.geometry())
        window_picture(self, agent).save(os.path.join(PICTURES, f"{name}.png"))
        self.assert_even_line(agent, int(scale))
        if height < 1024 - 2 * MARGIN * scale - 2:  # else it scrolls, and what is scrolled away is cut
            for element in agent.elements()[2:]:
                x, y, wide, high = element.extents
                if element.shown and element.text:
                    self.assertTrue(x >= -1 and y >= -1 and x + wide <= width + 1 and y + high <= height + 1,
                                    f"{element.text!r} at {element.extents} in {width} x {height}")
        self.post_to(agent, WebSocketType=True, MaintenanceMessageKey="Back soon.")
        wait_until(lambda: agent.geometry()[3] < height, "the shorter notice is there")
        self.assert_even_line(agent, int(scale))
        agent.end()

    def assert_even_line(self, agent, line):
        """The line at the edge is as wide on each side, and all of it is there."""
        def is_even():
            picture = agent.picture()
            right, bottom, across, down = (picture.width - 1, picture.height - 1, picture.width // 2,
                                           picture.height * 3 // 4)
            sides = (lambda depth: (depth, down), lambda depth: (right - depth, down),
                     lambda depth: (across, depth), lambda depth: (across, bottom - depth))
            return all([depth for depth in range(line + 4) if picture.getpixel(side(depth)) == EDGE_LINE]
                       == list(range(line)) for side in sides)
        wait_until(is_even, f"a line {line} px wide is around the card of {agent.geometry()}")

    @takes(10)
    def test_scales(self):
        for scale in (1.25, 2, 3):
            with self.subTest(scale=scale):
                self.check(scale, {"QT_SCALE_FACTOR": str(scale)})
        with self.subTest("dots of the desktop"):
            self.screen.root.change_property(self.screen.atom("RESOURCE_MANAGER"), Xatom.STRING, 8, b"Xft.dpi:\t144\n")
            self.screen.display.sync()
            self.check(1.5, {})


# --- no desktop ---------------------------------------------------------------------------------


class NoDesktopTest(NoticeTestCase):
    window_manager = None
    accessibility = False

    LINE = re.compile(r"NoticeAgent: There is no desktop to show notices on: [^\n]+\n")

    def assert_clean_end(self, agent):
        self.assert_ended(agent)
        self.assertRegex(agent.errors(), self.LINE)
        self.assertEqual(1, agent.errors().count("\n"), agent.errors())
        self.assertIsNotNone(re.search(r"\[error\] : There is no desktop", agent.log.raw()), agent.log.raw())
        self.assertEqual([], [name for name in os.listdir("/") if name.startswith("core")])

    def start_with_cores(self, environment=None):
        """An agent whose crash would leave a core file, where the machine leaves them at all."""
        soft, hard = resource.getrlimit(resource.RLIMIT_CORE)
        resource.setrlimit(resource.RLIMIT_CORE, (hard, hard))
        try:
            return self.start(environment=environment)
        finally:
            resource.setrlimit(resource.RLIMIT_CORE, (soft, hard))

    def test_no_display_or_a_dead_one(self):
        for displays in ({"DISPLAY": None}, {"DISPLAY": ":4000"},
                         {"DISPLAY": None, "WAYLAND_DISPLAY": "nobody-there"}):
            with self.subTest(displays):
                agent = self.start_with_cores(displays)
                self.assert_clean_end(agent)
                os.remove(agent.log.path)

    @takes(2)
    def test_display_goes_while_running(self):
        screen = self.own_screen()
        agent = self.start_with_cores({"DISPLAY": screen.name})
        agent.wait_ready()
        self.post(**SIGN_IN)
        agent.log.wait_for("info", Starts("CASB Socket Notification Type"))
        screen.process.kill()
        self.assert_clean_end(agent)
        wait_until(lambda: self.bus.process_of(AGENT_NAME) is None, "the name is free")


# --- screen readers -------------------------------------------------------------------------------


class ScreenReaderTest(NoticeTestCase):
    """What a screen reader hears by itself: it is told, it does not ask."""

    heard = []
    listening = []
    EVENTS = ("object:state-changed:showing", "object:property-change:accessible-name")
    ACCESSIBLE = "org.a11y.atspi.Accessible"
    NOTIFICATION = 101

    def setUp(self):
        super().setUp()
        self.reader = self.desktop.accessibility
        self.connection = self.reader.connection
        self.heard.clear()
        if self.reader not in self.listening:  # once and for all: the desktop is shared
            self.listening.append(self.reader)
            self.connection.add_match_string("type='signal',interface='org.a11y.atspi.Event.Object'")
            self.connection.add_message_filter(self._hear)
            for event in self.EVENTS:
                self._registry("RegisterEvent", event)

    def _registry(self, method, event):
        # Newer registries take what is wanted with the event, too; the old form is understood by all.
        try:
            self.connection.call_blocking("org.a11y.atspi.Registry", "/org/a11y/atspi/registry",
                                          "org.a11y.atspi.Registry", method, "s", (event,))
        except dbus.exceptions.DBusException:
            self.connection.call_blocking("org.a11y.atspi.Registry", "/org/a11y/atspi/registry",
                                          "org.a11y.atspi.Registry", method, "sass", (event, [], ""))

    @classmethod
    def _hear(cls, _connection, message):
        if message.get_interface() == "org.a11y.atspi.Event.Object":
            arguments = message.get_args_list()
            what = str(arguments[0]) + ("" if message.get_member() == "PropertyChange" else f"={int(arguments[1])}")
            cls.heard.append((time.time(), str(message.get_member()), what, str(message.get_sender()),
                              str(message.get_path())))
        return dbus.lowlevel.HANDLER_RESULT_NOT_YET_HANDLED

    def name_changes(self, element):
        """The moments at which it was told that the element's name is another one."""
        pump()
        return [moment for moment, *told in self.heard
                if told == ["PropertyChange", "accessible-name", element.bus_name, element.path]]

    def property(self, element, name):
        return str(self.reader._call(element.bus_name, element.path, "org.freedesktop.DBus.Properties", "Get", "ss",
                                     self.ACCESSIBLE, name))

    def window_element(self, agent):
        return agent.elements()[1]

    @takes(3)
    def test_notice_is_a_notification_that_is_heard_once_when_it_appears(self):
        agent = self.launch()
        for number in (1, 2):
            self.heard.clear()
            self.post(WebSocketType=True, MaintenanceMessageKey=f"body {number}")
            agent.wait_text(f"body {number}")
            window = self.window_element(agent)
            self.assertEqual(self.NOTIFICATION,
                             int(self.reader._call(window.bus_name, window.path, self.ACCESSIBLE, "GetRole")))
            self.assertEqual("Maintenance", window.name)
            self.assertEqual(f"body {number}", self.property(window, "Description"))
            shown = ("StateChanged", "showing=1", window.bus_name, window.path)

            def count():
                return [tuple(told) for _moment, *told in self.heard].count(shown)  # noqa: B023
            wait_until(count, f"showing is heard for notice {number}")
            holds_for(lambda: count() == 1, 0.3, "showing is heard twice")

    @takes(2)
    def test_notice_with_rows_is_described_by_all_that_it_says(self):
        agent = self.launch()
        self.post_casb(head="Upload blocked", module="Policy", body="The body.", timeout="60", rows=THREE_ROWS)
        agent.wait_text("The body.")
        window = self.window_element(agent)
        self.assertEqual("Upload blocked by Policy", window.name)
        described = self.property(window, "Description").split("\n")
        self.assertEqual(["The body.", *(f"{caption}: {value}" for caption, value in THREE_ROWS)], described[:4])
        self.assertRegex(described[4], COUNTDOWN.format("(60|5[0-9])"))

    @takes(1)
    def test_names_are_the_brands_and_the_notices(self):
        agent = self.launch()
        self.post(WebSocketType=True, MaintenanceMessageKey="text")
        agent.wait_visible()
        window = agent.window()
        self.assertEqual(b"Maintenance", bytes(self.desktop.screen.property(window, "_NET_WM_NAME")))
        # By these the desktop finds the installed entry.
        self.assertEqual((f"{AGENT_NAME}.{self.brand}",) * 2, window.get_wm_class())
        elements = agent.elements()
        self.assertEqual(self.brand, elements[0].name)
        self.assertEqual(["OK", "Close"], sorted((element.name for element in elements if "button" in element.role),
                                                 reverse=True))

    @takes(2)
    def test_values_are_labelled_by_their_captions(self):
        agent = self.launch()
        self.post_casb(body="text", timeout="60", rows=THREE_ROWS)
        agent.wait_text("text")
        elements = agent.elements()[2:]
        for caption, value in THREE_ROWS:
            element = next(element for element in elements if element.text == value)
            relations = self.reader._call(element.bus_name, element.path, self.ACCESSIBLE, "GetRelationSet")
            labelled_by = 2
            targets = [str(path) for kind, found in relations if int(kind) == labelled_by for _owner, path in found]
            label = next(element for element in elements if element.text == caption)
            self.assertIn(label.path, targets, f"{value} is labelled by {caption}: {relations}")

    @takes(9)
    def test_countdown_is_told_at_ten_and_five_only(self):
        agent = self.launch()
        self.post_casb(body="text", timeout="12", rows=THREE_ROWS)
        begun = agent.log.wait_for("info", Starts("Parsing successful")).moment
        line = agent.wait_countdown(of=12)
        wait_until(lambda: line.now().name == COUNTDOWN.format(4), "the line reads 4, of which nothing is told",
                   PATIENCE + 12)
        ten, five = self.name_changes(line)
        self.assert_near(ten - begun, 12 - 10, "the line of ten seconds")
        self.assert_near(five - begun, 12 - 5, "the line of five seconds")

    @takes(4)
    def test_replaced_countdown_says_nothing(self):
        agent = self.launch()
        self.post_casb(body="counts", timeout="12", rows=THREE_ROWS)
        line = agent.wait_countdown(of=12)
        told = self.name_changes(line)
        self.post(WebSocketType=True, MaintenanceMessageKey="over it")
        agent.wait_text("over it")
        holds_for(lambda: self.name_changes(line) == told, 2.5, "the replaced notice's countdown was told")


# --- Wayland --------------------------------------------------------------------------------------


class WaylandTest(NoticeTestCase):
    """Sessions of a compositor that draws into memory."""

    window_manager = None
    accessibility = False

    def setUp(self):
        for program in ("weston", "weston-screenshooter"):
            if shutil.which(program) is None:
                self.skipTest(f"{program} is not installed")
        super().setUp()
        self.runtime = os.path.join(self.folder, "runtime")
        os.mkdir(self.runtime, 0o700)
        os.makedirs(PICTURES, exist_ok=True)

    def start_session(self):
        """A Wayland session; returns its process and its environment."""
        log = os.path.join(self.folder, "session.log")
        environment = dict(self.desktop.environment, XDG_RUNTIME_DIR=self.runtime)
        environment.pop("DISPLAY")
        with open(log, "wb") as file:
            process = subprocess.Popen(
                ["weston", "--backend=headless-backend.so", "--socket=session", "--width=1280", "--height=1024",
                 "--use-pixman", "--debug", "--idle-time=0", "--no-config"],
                env=environment, stdin=subprocess.DEVNULL, stdout=file, stderr=file)
        self.addCleanup(end_process, process)
        wait_until(lambda: os.path.exists(os.path.join(self.runtime, "session")), "the Wayland session is there")
        environment["WAYLAND_DISPLAY"] = "session"
        return process, environment

    def screenshot(self, environment, name):
        folder = os.path.join(self.folder, "shots")
        shutil.rmtree(folder, ignore_errors=True)
        os.mkdir(folder)
        subprocess.run(["weston-screenshooter"], cwd=folder, env=environment, check=True, timeout=10,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        path = os.path.join(folder, os.listdir(folder)[0])
        shutil.copy(path, os.path.join(PICTURES, name))
        with Image.open(path) as picture:
            return picture.convert("RGB")

    def strips(self, picture):
        """The rows of a notice's title strip: its accent across most of the card's width."""
        wide, high = picture.size
        found = []
        for y in range(0, high, 4):
            row = picture.crop((0, y, wide, y + 1))
            count = sum(number for number, color in row.getcolors(maxcolors=wide) if color == ACCENT)
            if WIDTH - 80 <= count <= WIDTH:
                found.append(y)
        return found

    @takes(6)
    def test_notice_is_shown_without_xwayland_and_the_session_ends_under_it(self):
        process, environment = self.start_session()
        agent = self.start(environment={"DISPLAY": None, **environment})
        agent.wait_ready()
        self.post(**SIGN_IN)

        def shown():
            picture = self.screenshot(environment, "wayland.png")
            whites = sum(number for number, color in picture.getcolors(maxcolors=1 << 24) if color == WHITE)
            return self.strips(picture) and whites > 20_000
        wait_until(shown, "the notice is in the session's picture, with its white body", interval=0.2)
        self.assertTrue(agent.running())
        self.assertEqual("", agent.errors())
        end_process(process)
        self.assert_ended(agent)
        self.assertRegex(agent.errors(), NoDesktopTest.LINE)
        self.assertEqual(1, agent.errors().count("\n"), agent.errors())
