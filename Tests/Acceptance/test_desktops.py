"""The notice at the keyboard, on screens of every size and scale, without a desktop, to a screen reader, and under
Wayland. What window managers do to it is asked by desktops_window.py.
"""

import functools
import itertools
import os
import re
import shutil
import subprocess
import tempfile
import time

import dbus
from PIL import Image
from Xlib import Xatom

from desktop import AGENT_NAME, end_process, holds_for, pump, wait_until
from harness import (ACCENT, CASB, COUNTDOWN, FLOATING, INVISIBLE, MARGIN, PAUSE_BEFORE_KEYS, THREE_ROWS, TITLE_STRIP,
                     WHITE, WIDTH, NoticeTestCase, Starts, notice_xml, takes)

EDGE_LINE = (188, 191, 194)

# No two lines of it look the same.
LONG_BODY = " ".join(f"Zusammengehöriges Wort {number}" for number in range(2000))[:49_000] + " " + "W" * 999


def part_of(agent, box):
    x, y, wide, high = box
    return agent.picture().crop((x, y, x + wide, y + high)).tobytes()


# --- keys ---------------------------------------------------------------------------------------


class KeysTest(NoticeTestCase):

    def show_while_typing(self):
        """A CASB notice at which nobody has looked yet."""
        agent = self.launch()
        self.post(**CASB)
        keys = itertools.cycle(("Return", "space", "a", "KP_Enter", "Escape"))

        def type_on():
            self.screen.press_key(next(keys))
            return agent.running()
        wait_until(lambda: type_on() and agent.window() and self.screen.input_focus() == agent.window().id,
                   "the CASB notice takes the keyboard", interval=0.05)
        holds_for(lambda: type_on() and agent.visible(), 1.2, "a key meant for another window counted", interval=0.05)
        return agent

    @takes(4)
    def test_keys_of_somebody_who_types_press_nothing_and_return_presses_later(self):
        agent = self.show_while_typing()
        # In a menu elsewhere Return follows an arrow.
        holds_for(lambda: self.screen.press_key("Down") or agent.visible(), 1.2, "an arrow counted", interval=0.05)
        self.screen.press_key("Return")
        holds_for(agent.visible, 0.3, "the Return after it counted")
        time.sleep(PAUSE_BEFORE_KEYS)
        self.screen.press_key("Return")
        agent.wait_hidden()
        self.assert_ended(agent)

    @takes(4)
    def test_escape_hides_it_until_the_next_message(self):
        agent = self.show_while_typing()

        # Pressed again and again it counts in the end: nobody types it.
        def is_hidden():
            self.screen.press_key("Escape")
            return not agent.visible()
        wait_until(is_hidden, "Escape hides the notice", interval=0.3)
        # At once: the toolkit may still be about to take in that the window went.
        self.post(**CASB)
        agent.wait_visible()
        time.sleep(PAUSE_BEFORE_KEYS)
        self.screen.press_key("Return")
        self.assert_ended(agent)

    @takes(4)
    def test_tab_goes_from_button_to_button_and_space_presses_there(self):
        agent = self.launch()
        self.post(**CASB)
        agent.wait_visible()
        wait_until(lambda: self.screen.input_focus() == agent.window().id, "the CASB notice has the keyboard")
        time.sleep(PAUSE_BEFORE_KEYS)
        for name in ("Close", "OK", "Close", "OK"):
            def reached():
                self.screen.press_key("Tab")
                time.sleep(0.1)
                return [name] == [element.name for element in agent.elements()  # noqa: B023
                                  if "button" in element.role and "focused" in element.states]
            wait_until(reached, f"Tab reaches {name}")
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
        wait_until(lambda: has_shadow() and self.screen.pixel(*beside) != ground and agent.geometry() == place,
                   "the notice casts a shadow, and the card keeps its place")
        compositor.kill()
        wait_until(lambda: not has_shadow() and self.screen.pixel(*beside) == ground and agent.geometry() == place,
                   "the notice has no shadow, and the card keeps its place")

    def set_screen_size(self, width, height):
        command = ["xrandr", "--display", self.screen.name]
        name = f"{width}x{height}"
        if (width, height) != (1280, 1024):
            for change in (["--newmode", name, "40", *map(str, (width, width + 16, width + 32, width + 64,
                                                                height, height + 4, height + 8, height + 16))],
                           ["--addmode", "screen", name]):
                subprocess.run([*command, *change], check=True, stderr=subprocess.DEVNULL)
        subprocess.run([*command, "--output", "screen", "--mode", name], check=True, stderr=subprocess.DEVNULL)

    def wait_in_corner(self, agent, screen_width):
        def in_corner():
            left, top, width, _height = agent.geometry()
            return (left + width, top) == (screen_width - MARGIN, MARGIN)
        wait_until(in_corner, f"the notice is in the corner of a screen of {screen_width} pixels")

    @takes(5)
    def test_drag_is_respected_until_the_screen_changes(self):
        agent = self.launch()
        self.post(**FLOATING["maintenance"])
        agent.wait_text("text")
        self.wait_in_corner(agent, 1280)
        place = self.drag(agent)
        self.post(**INVISIBLE)
        agent.wait_hidden()
        self.post(**FLOATING["re-authentication"])
        agent.wait_visible()
        holds_for(lambda: agent.geometry()[:2] == place, 0.3, "shown again it forgot where the user put it")
        self.set_screen_size(1024, 768)
        self.wait_in_corner(agent, 1024)
        self.set_screen_size(1280, 1024)
        self.wait_in_corner(agent, 1280)

    @takes(7)
    def test_everything_in_view_on_a_small_screen(self):
        agent = self.launch()
        self.post(webSocketResponse=notice_xml(body=LONG_BODY, timeout="90", rows=THREE_ROWS))
        self.wait_in_corner(agent, 1280)
        self.set_screen_size(640, 480)
        self.wait_in_corner(agent, 640)
        wait_until(lambda: agent.geometry()[3] == 480 - 2 * MARGIN, "it has the whole height but for the margins")
        agent.wait_countdown(of=90)
        ok = agent.ok_button()
        _left, _top, width, height = agent.geometry()
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
            before = part_of(agent, body)
            action()
            wait_until(lambda: part_of(agent, body) != before, f"the body scrolls by {what}")
            time.sleep(0.1)
        wait_until(lambda: self.screen.input_focus() == agent.window().id, "the CASB notice has the keyboard")
        left, top, _width, _height = agent.geometry()
        self.screen.move_pointer(left + 150, top + body[1] + 40)
        wheel_down = 5
        scrolls("the wheel", lambda: [self.screen.button(pressed, wheel_down) for pressed in (True, False)])
        for key in ("Next", "Prior", "End", "Home"):
            scrolls(key, lambda: self.screen.press_key(key))  # noqa: B023
        agent.press_ok()
        agent.wait_hidden()


class ScaleTest(NoticeTestCase):
    own_desktop = True

    def check(self, scale, environment):
        agent = self.launch(self.new_bundle(), environment=environment)
        body = "Ihre Organisation erlaubt nicht, dass Dateien in persönliche Speicher hochgeladen werden."
        self.post_to(agent, webSocketappLanguageKey="de",
                     webSocketResponse=notice_xml(body=body, timeout="60", rows=(("Aktivität", "Hochladen"),)))
        agent.wait_countdown(of=60, text="Sekunden bis zum Schließen: {} ")
        left, top, width, height = agent.geometry()
        self.assertLessEqual(abs(width - round(min(WIDTH * scale, 1280 - 2 * MARGIN * scale))), 2, "width")
        self.assertTrue(left >= 0 and top >= 0 and left + width <= 1280 and top + height <= 1024, agent.geometry())
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

    LINE = r"NoticeAgent: There is no desktop to show notices on: [^\n]+\n"

    def assert_clean_end(self, agent):
        self.assert_ended(agent)
        self.assertRegex(agent.errors(), rf"\A{self.LINE}\Z")
        self.assertIsNotNone(agent.log.find("error", Starts("There is no desktop")))

    def test_no_display_or_a_dead_one(self):
        owned = []
        match = self.bus.connection.add_signal_receiver(
            lambda name, _old, _new: owned.append(name), "NameOwnerChanged", "org.freedesktop.DBus",
            arg0=f"{AGENT_NAME}.{self.brand}")
        self.addCleanup(match.remove)
        for displays in ({"DISPLAY": None}, {"DISPLAY": None, "WAYLAND_DISPLAY": "nobody-there"},
                         {"DISPLAY": ":4000"}):
            with self.subTest(displays):
                agent = self.start(environment=displays)
                self.assert_clean_end(agent)
                os.remove(agent.log.path)
            if len(displays) == 1 and not displays["DISPLAY"]:
                holds_for(lambda: not owned, 0.3, "a name was owned without a display")

    @takes(2)
    def test_display_goes_while_running(self):
        screen = self.own_screen()
        agent = self.start(environment={"DISPLAY": screen.name})
        agent.wait_ready()
        self.post(**FLOATING["re-authentication"])
        agent.log.wait_for("info", Starts("CASB Socket Notification Type"))
        screen.process.kill()
        self.assert_clean_end(agent)
        wait_until(lambda: self.bus.process_of(AGENT_NAME) is None, "the name is free")


# --- screen readers -------------------------------------------------------------------------------


class ScreenReaderTest(NoticeTestCase):
    """What a screen reader hears by itself: it is told, it does not ask."""

    heard = []  # kind, what, object
    listening = []
    ACCESSIBLE = "org.a11y.atspi.Accessible"
    NOTIFICATION = 101

    def setUp(self):
        super().setUp()
        self.reader = self.desktop.accessibility
        self.heard.clear()
        if self.reader in self.listening:  # once and for all: the desktop is shared
            return
        self.listening.append(self.reader)
        connection = self.reader.connection
        connection.add_match_string("type='signal',interface='org.a11y.atspi.Event.Object'")
        connection.add_message_filter(self._hear)
        for event in ("object:state-changed:showing", "object:property-change:accessible-name"):
            register = functools.partial(
                connection.call_blocking, "org.a11y.atspi.Registry", "/org/a11y/atspi/registry",
                "org.a11y.atspi.Registry", "RegisterEvent")
            try:
                register("s", (event,))
            except dbus.exceptions.DBusException:  # newer registries take what is wanted with the event, too
                register("sass", (event, [], ""))

    @classmethod
    def _hear(cls, _connection, message):
        if message.get_interface() == "org.a11y.atspi.Event.Object":
            what, value = message.get_args_list()[:2]
            cls.heard.append((message.get_member(), f"{what}={value}" if what == "showing" else str(what),
                              message.get_sender(), message.get_path()))
        return dbus.lowlevel.HANDLER_RESULT_NOT_YET_HANDLED

    def count_heard(self, kind, what, element):
        pump()
        return self.heard.count((kind, what, element.bus_name, element.path))

    @takes(3)
    def test_notice_is_a_notification_that_is_heard_once_when_it_appears(self):
        agent = self.launch()
        for number in (1, 2):
            self.heard.clear()
            self.post(WebSocketType=True, MaintenanceMessageKey=f"body {number}")
            agent.wait_text(f"body {number}")
            window = agent.elements()[1]
            ask = functools.partial(self.reader._call, window.bus_name, window.path)
            self.assertEqual(self.NOTIFICATION, int(ask(self.ACCESSIBLE, "GetRole")))
            self.assertEqual("Maintenance", window.name)
            self.assertEqual(f"body {number}", str(ask("org.freedesktop.DBus.Properties", "Get", "ss", self.ACCESSIBLE,
                                                       "Description")))

            def count():
                return self.count_heard("StateChanged", "showing=1", window)  # noqa: B023
            wait_until(count, f"showing is heard for notice {number}")
            holds_for(lambda: count() == 1, 0.3, "showing is heard twice")

    @takes(1)
    def test_names_are_the_brands_and_the_notices(self):
        agent = self.launch()
        self.post(WebSocketType=True, MaintenanceMessageKey="text")
        agent.wait_visible()
        window = agent.window()

        def title():
            return bytes(self.screen.property(window, "_NET_WM_NAME")).decode()
        self.assertEqual("Maintenance", title())
        # By these the desktop finds the installed entry.
        self.assertEqual((f"{AGENT_NAME}.{self.brand}",) * 2, window.get_wm_class())
        elements = agent.elements()
        self.assertEqual(self.brand, elements[0].name)
        self.assertEqual(["OK", "Close"], sorted((element.name for element in elements if "button" in element.role),
                                                 reverse=True))
        wait_until(lambda: self.screen.property(window, "_NET_WM_ICON"), "the window has the brand's logo as its icon")
        self.post(WebSocketAdminDisconnect=True, webSocketResponse=notice_xml(head="Ended [*]", body="text"))
        wait_until(lambda: title() == "Ended [*] by Cloud Access Policy", "the title is the next notice's heading")

    @takes(2)
    def test_values_are_labelled_by_their_captions_and_direction_marks_stay_in_their_own_label(self):
        evil = "\u202eevil\u202d\u2066\u2067"
        rows = (("Activity", "Upload"), ("Application", evil * 20), ("URL", f"https://a/{evil}"))
        agent = self.launch()
        self.post_casb(head="\u202ehead", body="text", timeout="60", rows=rows)
        agent.wait_text("text")
        elements = agent.elements()[2:]
        for caption, value in rows:
            element = next(element for element in elements if element.text == value)
            label = next(element for element in elements if element.text == caption)
            self.assertLess(label.extents[0], element.extents[0], "the caption is left of the value")
            relations = self.reader._call(element.bus_name, element.path, self.ACCESSIBLE, "GetRelationSet")
            labelled_by = 2
            targets = [str(path) for kind, found in relations if int(kind) == labelled_by for _owner, path in found]
            self.assertIn(label.path, targets, f"{value} is labelled by {caption}: {relations}")

    @takes(4)
    def test_replaced_countdown_says_nothing(self):
        agent = self.launch()
        self.post_casb(body="counts", timeout="12", rows=THREE_ROWS)
        line = agent.wait_countdown(of=12)
        self.post(WebSocketType=True, MaintenanceMessageKey="over it")
        agent.wait_text("over it")
        told = self.count_heard("PropertyChange", "accessible-name", line)
        holds_for(lambda: self.count_heard("PropertyChange", "accessible-name", line) == told, 2.5,
                  "the replaced notice's countdown was told")


# --- Wayland --------------------------------------------------------------------------------------


class WaylandTest(NoticeTestCase):
    """A session of a compositor that draws into memory."""

    window_manager = None
    accessibility = False

    def setUp(self):
        for program in ("weston", "weston-screenshooter"):
            if shutil.which(program) is None:
                self.skipTest(f"{program} is not installed")
        super().setUp()

    def colors(self, environment):
        """How often each stands in the session's picture."""
        folder = tempfile.mkdtemp(dir=self.folder)
        subprocess.run(["weston-screenshooter"], cwd=folder, env=environment, check=True, timeout=10,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        with Image.open(os.path.join(folder, *os.listdir(folder))) as picture:
            return {color: count for count, color in picture.convert("RGB").getcolors(maxcolors=1 << 24)}

    @takes(6)
    def test_notice_is_shown_without_xwayland_and_the_session_ends_under_it(self):
        runtime = os.path.join(self.folder, "runtime")
        os.mkdir(runtime, 0o700)
        environment = dict(self.desktop.environment, XDG_RUNTIME_DIR=runtime, WAYLAND_DISPLAY="session")
        del environment["DISPLAY"]
        session = subprocess.Popen(
            ["weston", "--backend=headless-backend.so", "--socket=session", "--width=1280", "--height=1024",
             "--use-pixman", "--debug", "--idle-time=0", "--no-config"],
            env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(end_process, session)
        wait_until(lambda: os.path.exists(os.path.join(runtime, "session")), "the Wayland session is there")
        agent = self.start(environment={**environment, "DISPLAY": None})
        agent.wait_ready()
        self.post(**FLOATING["re-authentication"])

        def shown():
            colors = self.colors(environment)
            return colors.get(ACCENT, 0) > 300 * TITLE_STRIP and colors.get(WHITE, 0) > 20_000
        wait_until(shown, "the notice is in the session's picture, with its strip and its white body", interval=0.2)
        self.assertTrue(agent.running())
        self.assertEqual("", agent.errors())
        end_process(session)
        self.assert_ended(agent)
        self.assertRegex(agent.errors(), rf"\A{NoDesktopTest.LINE}\Z")
