"""The notice on every kind of desktop: window managers, compositors, screens, scales, screen readers.

Pictures to look at are left under build/desktop.
"""

import os
import re
import resource
import shutil
import subprocess
import time
import unittest
import unittest.mock

import dbus
from PIL import Image
from Xlib import X, Xatom
from Xlib.ext import xtest
from Xlib.protocol import event as xevent

from desktop import PATIENCE, Desktop, end_process, holds_for, pump, wait_until
from harness import (ACCENT, COUNTDOWN, DEFAULT_HEADER, HEADER, MARGIN, REPOSITORY, THREE_ROWS, TITLE_STRIP, WHITE,
                     WIDTH, NoticeTestCase, notice_xml, takes)

PICTURES = os.path.join(REPOSITORY, "build/desktop-pictures")

RED = (200, 40, 40)
GREEN = (40, 160, 60)

WITHOUT_FOCUS = {
    "maintenance": dict(WebSocketType=True, MaintenanceMessageKey="text"),
    "auto disconnect": dict(AutoDisconnectWebSocketType=True, AutoDisconnectMessageKey="text"),
    "re-authentication": dict(WebSocketReAuthType=True),
    "concurrent session": dict(WebSocketAdminDisconnect=True, webSocketResponse=notice_xml(body="text")),
}
CASB = dict(webSocketResponse=notice_xml(body="text", timeout="60", rows=THREE_ROWS))
# A concurrent session without a response makes its window invisible.
INVISIBLE = dict(WebSocketAdminDisconnect=True)

# No two lines of it look the same.
LONG_BODY = " ".join(f"Zusammengehöriges Wort {number}" for number in range(2000))[:49_000] + " " + "W" * 999


class PrivateDesktop(Desktop):
    """A desktop with a window manager started by its whole command line.

    `files` are what it wants to find in the home folder before it starts, which `{home}` in the command names.
    """

    def __init__(self, command=("openbox",), accessibility=False, compositor=False, files=None):
        self.command = command
        self.files = files or {}
        super().__init__(command[0] if command else None, accessibility, compositor)

    def _start_window_manager(self, name):
        home = self.environment["HOME"]
        for path, content in self.files.items():
            os.makedirs(os.path.dirname(os.path.join(home, path)), exist_ok=True)
            with open(os.path.join(home, path), "w", encoding="utf-8") as file:
                file.write(content)
        self._start_program(*(word.format(home=home) for word in self.command))
        root = self.screen.root
        # The last of what they write when they start; windows mapped before may be passed over.
        wait_until(lambda: all(self.screen.property(root, written) for written in (
            "_NET_SUPPORTING_WM_CHECK", "_NET_CURRENT_DESKTOP", "_NET_SUPPORTED")),
            f"the window manager {name} is there")


class DesktopTestCase(NoticeTestCase):
    """A test on a desktop of its own, which goes with it."""

    command = ("openbox",)
    files = {}
    accessibility = False

    def setUp(self):
        for program in [*self.command[:1], *(["picom"] if self.compositor else [])]:
            if shutil.which(program) is None:
                self.skipTest(f"{program} is not installed")
        desktop = PrivateDesktop(self.command, self.accessibility, self.compositor, self.files)
        self.addCleanup(desktop.close)
        with unittest.mock.patch("harness.shared_desktop", lambda *arguments: desktop):
            super().setUp()

    def _end_agents(self):
        if self.screen.process.poll() is None:
            return super()._end_agents()
        for agent in self.agents:
            agent.end()
        return None

    # What a screen of any size shows.

    def picture_of(self, x, y, width, height):
        raw = self.screen.root.get_image(x, y, width, height, X.ZPixmap, 0xFFFFFFFF)
        return Image.frombytes("RGB", (width, height), raw.data, "raw", "BGRX")

    def window_picture(self, agent):
        return self.picture_of(*agent.geometry())

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

    # What another program does.

    def send(self, window, message, *values):
        """A request to the window manager."""
        root = self.screen.root
        data = [value if isinstance(value, int) else self.screen.atom(value) for value in values]
        root.send_event(xevent.ClientMessage(window=window, client_type=self.screen.atom(message),
                                             data=(32, (data + [0] * 5)[:5])),
                        event_mask=X.SubstructureRedirectMask | X.SubstructureNotifyMask)
        self.screen.display.sync()

    def has_focus(self, window):
        return self.screen.input_focus() == window.id

    def give_focus(self, window):
        """Makes a program's window the one in use, the way a task bar does it."""
        def focused():
            if self.command:
                self.send(window, "_NET_ACTIVE_WINDOW", 2, X.CurrentTime, 0)
            else:
                window.set_input_focus(X.RevertToParent, X.CurrentTime)
            self.screen.display.sync()
            return self.has_focus(window)
        wait_until(focused, "another program's window has the keyboard", interval=0.1)

    def clicks_on(self, window):
        return [event for event in self.screen.events()
                if event.type == X.ButtonPress and event.window == window]


# --- window managers and compositors ------------------------------------------------------------


class WindowManagerChecks:
    """What holds under every window manager. The subclasses name one each."""

    # Their frames' and docks' sizes aside, the strip's middle is the notice's at every place.
    def strip_pixel(self, agent):
        left, top, width, _height = agent.geometry()
        return self.picture_of(left + width // 2, top + TITLE_STRIP // 2, 1, 1).getpixel((0, 0))

    def assert_seen(self, agent, what, seconds=0.3):
        """Waits until the notice stays in sight; a window manager may need a moment for its order."""
        since = []

        def stays():
            if self.strip_pixel(agent) != ACCENT:
                since.clear()
                return False
            since.append(time.monotonic())
            return since[-1] - since[0] >= seconds
        wait_until(stays, f"the notice is in sight {what}", 3)

    def assert_above(self, agent, what):
        wait_until(lambda: "_NET_WM_STATE_ABOVE" in self.screen.state_names(agent.window()),
                   f"the state above is set {what}", 3)

    def assert_on_all_workspaces(self, agent):
        window = agent.window()
        wait_until(lambda: "_NET_WM_STATE_STICKY" in self.screen.state_names(window)
                   or self.screen.property(window, "_NET_WM_DESKTOP") == [0xFFFFFFFF],
                   "the notice is on all workspaces", 3)

    def hide(self, agent):
        self.post(**INVISIBLE)
        agent.wait_hidden()

    def in_front_of(self, color=RED):
        """Another program's window over most of the screen, with the keyboard."""
        window = self.screen.plain_window(10, 10, 1260, 1000, color)
        self.addCleanup(self.screen.display.sync)
        self.addCleanup(window.destroy)
        self.give_focus(window)
        return window

    @takes(9)
    def test_notices_are_above_everywhere_and_leave_the_keyboard(self):
        agent = self.launch()
        wait_until(agent.windows, "the agent has its window, unseen")
        other = self.in_front_of()  # of a program younger than the agent
        for kind, message in WITHOUT_FOCUS.items():
            with self.subTest(kind):
                self.post(**message)
                agent.wait_visible()
                self.assert_above(agent, "when it is shown")
                holds_for(lambda: self.has_focus(other), 0.3, f"{kind} took the keyboard")
                self.assert_seen(agent, "over another window")
                place = agent.geometry()
                self.assertEqual((1280 - MARGIN, MARGIN), (place[0] + place[2], place[1]))
                self.hide(agent)
                # Invisible, it takes no click: what lies below gets it.
                self.screen.events()

                def click_below():
                    self.screen.click(place[0] + 100, place[1] + 60)  # noqa: B023
                    return self.clicks_on(other)
                wait_until(click_below, "the window below gets the click", 3, interval=0.1)
                if self.command:
                    self.give_focus(other)
        self.post(**WITHOUT_FOCUS["maintenance"])
        agent.wait_visible()
        self.assert_above(agent, "when it is shown again")
        self.assert_seen(agent, "over another window")
        if self.command:  # without a window manager whoever is raised last lies on top
            self.screen.raise_window(other)
            self.assert_seen(agent, "although another window was raised")

    @takes(4)
    def test_notice_is_on_every_workspace(self):
        root = self.screen.root
        self.send(root, "_NET_NUMBER_OF_DESKTOPS", 2)
        wait_until(lambda: (self.screen.property(root, "_NET_NUMBER_OF_DESKTOPS") or [0])[0] >= 2,
                   "there are two workspaces")
        other = self.in_front_of()
        agent = self.launch()
        self.post(**WITHOUT_FOCUS["maintenance"])
        agent.wait_visible()
        self.assert_on_all_workspaces(agent)
        self.send(root, "_NET_CURRENT_DESKTOP", 1, X.CurrentTime)
        wait_until(lambda: self.screen.property(root, "_NET_CURRENT_DESKTOP") == [1], "the workspace is another one")
        wait_until(lambda: self.picture_of(300, 900, 1, 1).getpixel((0, 0)) != RED, "its windows are others")
        self.assert_seen(agent, "on the other workspace")
        self.assertIsNotNone(other)

    @takes(4)
    def test_full_screen_window_hides_no_notice(self):
        agent = self.launch()
        wait_until(agent.windows, "the agent has its window, unseen")
        full = self.in_front_of(GREEN)
        self.send(full, "_NET_WM_STATE", 1, "_NET_WM_STATE_FULLSCREEN", 0, 1)
        wait_until(lambda: "_NET_WM_STATE_FULLSCREEN" in self.screen.state_names(full)
                   and self.picture_of(1275, 5, 1, 1).getpixel((0, 0)) == GREEN, "the other window fills the screen")
        self.give_focus(full)
        self.post(**WITHOUT_FOCUS["auto disconnect"])
        agent.wait_visible()
        self.assert_seen(agent, "over a full-screen window")
        self.assertTrue(self.has_focus(full), "the full-screen window keeps the keyboard")
        self.post(**CASB)
        wait_until(lambda: not self.has_focus(full), "the CASB notice takes the keyboard")
        self.assert_seen(agent, "over a full-screen window that gave up the keyboard")

    @takes(2)
    def test_casb_notice_takes_the_keyboard(self):
        other = self.in_front_of()
        agent = self.launch()
        self.post(**CASB)
        agent.wait_visible()
        wait_until(lambda: self.has_focus(agent.window()), "the CASB notice has the keyboard")
        self.assertFalse(self.has_focus(other))
        self.assert_above(agent, "when it has the keyboard")


class OpenboxTest(WindowManagerChecks, DesktopTestCase):
    command = ("openbox",)


class OpenboxWithCompositorTest(WindowManagerChecks, DesktopTestCase):
    command = ("openbox",)
    compositor = True


class Xfwm4Test(WindowManagerChecks, DesktopTestCase):
    """It composes the screen by itself."""
    command = ("xfwm4",)


class Xfwm4WithoutCompositorTest(WindowManagerChecks, DesktopTestCase):
    command = ("xfwm4", "--compositor=off")


class KwinTest(WindowManagerChecks, DesktopTestCase):
    command = ("kwin_x11",)


class MutterTest(WindowManagerChecks, DesktopTestCase):
    command = ("mutter", "--x11")


class NoWindowManagerTest(WindowManagerChecks, DesktopTestCase):
    command = ()
    # Full screen and workspaces are a window manager's.
    test_full_screen_window_hides_no_notice = None
    test_notice_is_on_every_workspace = None


class NoWindowManagerWithCompositorTest(NoWindowManagerTest):
    compositor = True


# --- keys ---------------------------------------------------------------------------------------


class KeysTest(DesktopTestCase):
    accessibility = True

    def show_casb(self):
        agent = self.launch()
        self.post(**CASB)
        agent.wait_visible()
        wait_until(lambda: self.has_focus(agent.window()), "the CASB notice has the keyboard", interval=0.002)
        return agent

    @takes(3)
    def test_keys_of_the_first_moments_press_nothing(self):
        agent = self.show_casb()
        moment = time.monotonic()
        for key in ("Return", "space", "KP_Enter"):
            self.screen.press_key(key)
        self.assertLess(time.monotonic() - moment, 0.2, "the keys were typed in the first moments")
        holds_for(agent.visible, 0.6, "a key meant for another window pressed OK")
        # Who types on pauses nowhere.
        for key in "please send it".replace(" ", "_"):
            self.screen.press_key({"_": "space"}.get(key, key))
            time.sleep(0.2)
        self.screen.press_key("Escape")
        holds_for(agent.visible, 0.4, "a key of somebody who types dismissed the notice")
        time.sleep(0.5)
        self.screen.press_key("Return")
        agent.wait_hidden(2)
        self.assert_ended(agent)

    @takes(3)
    def test_tab_shows_where_the_keyboard_is(self):
        agent = self.show_casb()
        ok = agent.ok_button().extents
        _left, _top, width, _height = agent.geometry()
        close = (width - 34, 0, 34, TITLE_STRIP)

        def part(box):
            x, y, wide, high = box
            return self.window_picture(agent).crop((x, y, x + wide, y + high)).tobytes()
        plain = {"OK": part(ok), "the close button": part(close)}
        ringed = set()
        for _ in range(8):  # the close button, the five texts, OK, and the close button again
            self.screen.press_key("Tab")
            time.sleep(0.25)  # what one key press brings about
            now = {name for name, box in (("OK", ok), ("the close button", close)) if part(box) != plain[name]}
            self.assertLessEqual(len(now), 1, f"one control shows the ring, not {now}")
            ringed |= now
        self.assertEqual({"OK", "the close button"}, ringed)


# --- screens ------------------------------------------------------------------------------------


class ScreenTest(DesktopTestCase):
    accessibility = True

    def assert_in_corner(self, agent, what):
        def in_corner():
            screen_width, _screen_height = self.screen_size()
            left, top, width, _height = agent.geometry()
            return (left + width, top) == (screen_width - MARGIN, MARGIN)
        try:
            wait_until(in_corner, "", 3)
        except AssertionError:
            self.fail(f"{what}: the notice is at {agent.geometry()} on a screen of {self.screen_size()}")

    def drag(self, agent, right, down):
        left, top, _width, _height = agent.geometry()
        start = (left + 100, top + TITLE_STRIP // 2)
        self.screen.move_pointer(*start)
        xtest.fake_input(self.screen.display, X.ButtonPress, 1)
        for step in range(1, 31):
            self.screen.move_pointer(start[0] + right * step // 30, start[1] + down * step // 30)
            time.sleep(0.02)  # a hand is no faster
        xtest.fake_input(self.screen.display, X.ButtonRelease, 1)
        self.screen.display.sync()

        def followed():
            x, y, _width, _height = agent.geometry()
            # The way up to where the window manager took over is lost, the more so on a busy machine.
            return x - left < right * 0.6 and y - top > down * 0.6
        wait_until(followed, "the notice follows the pointer", 3)
        time.sleep(0.2)  # the window manager's last word on where it is

    @takes(5)
    def test_drag_is_respected_until_the_screen_changes(self):
        agent = self.launch()
        self.post(**WITHOUT_FOCUS["maintenance"])
        agent.wait_text("text")
        self.assert_in_corner(agent, "at first")
        time.sleep(0.3)  # nobody drags a window sooner
        self.drag(agent, -300, 200)
        place = agent.geometry()[:2]
        self.post(**WITHOUT_FOCUS["re-authentication"])
        agent.wait_text("Please sign in again")
        holds_for(lambda: agent.geometry()[:2] == place, 0.3, "the next notice moved from where the user put it")
        self.post(**INVISIBLE)
        agent.wait_hidden()
        self.post(**WITHOUT_FOCUS["maintenance"])
        agent.wait_visible()
        holds_for(lambda: agent.geometry()[:2] == place, 0.3, "shown again it forgot where the user put it")
        self.set_screen_size(1024, 768)
        self.assert_in_corner(agent, "on a smaller screen")
        self.set_screen_size(1280, 1024)
        self.assert_in_corner(agent, "on the larger screen again")

    def texts_in_view(self, agent):
        _left, _top, width, height = agent.geometry()
        return {element.text for element in agent.elements()[2:]
                if element.shown and element.text and element.extents[0] >= 0 and element.extents[1] >= 0
                and element.extents[0] + element.extents[2] <= width
                and element.extents[1] + element.extents[3] <= height}

    @takes(7)
    def test_everything_in_view_on_a_small_screen(self):
        self.set_screen_size(640, 480)
        agent = self.launch()
        self.post(webSocketResponse=notice_xml(body=LONG_BODY, timeout="90", rows=THREE_ROWS))
        self.assert_in_corner(agent, "on a small screen")
        ok = agent.ok_button()
        countdown = agent.wait_countdown(of=90)
        left, top, width, height = agent.geometry()
        self.assertEqual(height, 480 - 2 * MARGIN, "the whole height but for the margins")
        self.assertTrue(left >= 0 and top >= 0 and top + height <= 480, agent.geometry())
        title = agent.find_element("Upload blocked by Cloud Access Policy")
        titles = [element for element in agent.elements()[2:] if element.text == title.text]
        for element in (titles[0], countdown.now(), ok):
            x, y, wide, high = agent.find_element(element.text).extents if element is not titles[0] else element.extents
            self.assertTrue(x >= 0 and y >= TITLE_STRIP and x + wide <= width and y + high <= height,
                            f"{element.text}: {(x, y, wide, high)} in {(width, height)}")
        body = (24, titles[0].extents[1] + titles[0].extents[3] + 10, width - 60, 80)

        def shown():
            x, y, wide, high = body
            return self.window_picture(agent).crop((x, y, x + wide, y + high)).tobytes()

        def scrolls(what, action):
            before = shown()
            action()
            wait_until(lambda: shown() != before, f"the body scrolls by {what}", 3)
            time.sleep(0.1)
        self.screen.move_pointer(left + 150, top + body[1] + 40)

        def wheel():
            xtest.fake_input(self.screen.display, X.ButtonPress, 5)
            xtest.fake_input(self.screen.display, X.ButtonRelease, 5)
            self.screen.display.sync()
        wait_until(lambda: self.has_focus(agent.window()), "the CASB notice has the keyboard")
        scrolls("the wheel", wheel)
        scrolls("Page Down", lambda: self.screen.press_key("Next"))
        scrolls("Page Up", lambda: self.screen.press_key("Prior"))
        scrolls("End", lambda: self.screen.press_key("End"))
        os.makedirs(PICTURES, exist_ok=True)
        self.window_picture(agent).save(os.path.join(PICTURES, "small-screen-end.png"))
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
        wait_until(lambda: agent.geometry()[3] <= 480 - 2 * MARGIN, "the notice is cut to the smaller screen", 3)
        button = agent.ok_button()
        self.assertLessEqual(button.extents[1] + button.extents[3], agent.geometry()[3])


class ScaleTest(DesktopTestCase):
    accessibility = True

    def check(self, name, scale, environment):
        os.makedirs(PICTURES, exist_ok=True)
        notices = {
            "auto-disconnect": dict(AutoDisconnectWebSocketType=True, AutoDisconnectVPNStatus=True,
                                    AutoDisconnectMessageKey="Die Verbindung wird getrennt.",
                                    webSocketappLanguageKey="de"),
            "casb": dict(webSocketResponse=notice_xml(
                body="Ihre Organisation erlaubt nicht, dass Dateien in persönliche Speicher hochgeladen werden.",
                timeout="60", rows=(("Aktivität", "Hochladen"), ("Anwendung", "Example Drive"))),
                webSocketappLanguageKey="de"),
        }
        agent = self.launch(environment=environment)
        for kind, message in notices.items():
            self.post(**message)
            agent.wait_countdown(of=60 if kind == "casb" else 30,
                                 text="Sekunden bis zum Schließen: {}" + (" " if kind == "casb" else ""))
            left, top, width, height = agent.geometry()
            wanted = round(min(WIDTH * scale, 1280 - 2 * MARGIN * scale))
            self.assertTrue(abs(width - wanted) <= 2, f"{width} wide, not {wanted}")
            self.assertTrue(left >= 0 and top >= 0 and left + width <= 1280 and top + height <= 1024,
                            f"{agent.geometry()}")
            self.window_picture(agent).save(os.path.join(PICTURES, f"{name}-{kind}.png"))
            if height >= 1024 - 2 * MARGIN * scale - 2:
                continue  # it scrolls, and what is scrolled away is cut
            for element in agent.elements()[2:]:
                x, y, wide, high = element.extents
                if element.shown and element.text:
                    self.assertTrue(x >= -1 and y >= -1 and x + wide <= width + 1 and y + high <= height + 1,
                                    f"{element.text!r} at {element.extents} in {width} x {height}")

    @takes(3)
    def test_scale_1(self):
        self.check("scale-1", 1, {"QT_SCALE_FACTOR": "1"})

    @takes(3)
    def test_scale_1_25(self):
        self.check("scale-1.25", 1.25, {"QT_SCALE_FACTOR": "1.25"})

    @takes(3)
    def test_scale_1_5(self):
        self.check("scale-1.5", 1.5, {"QT_SCALE_FACTOR": "1.5"})

    @takes(3)
    def test_scale_2(self):
        self.check("scale-2", 2, {"QT_SCALE_FACTOR": "2"})

    @takes(3)
    def test_scale_3(self):
        self.check("scale-3", 3, {"QT_SCALE_FACTOR": "3"})

    @takes(3)
    def test_dots_of_the_desktop(self):
        self.screen.root.change_property(self.screen.atom("RESOURCE_MANAGER"), Xatom.STRING, 8, b"Xft.dpi:\t144\n")
        self.screen.display.sync()
        self.check("dpi-144", 1.5, {})


# --- no desktop ---------------------------------------------------------------------------------


class NoDesktopTest(DesktopTestCase):
    command = ()

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

    def test_no_display_is_named(self):
        self.assert_clean_end(self.start_with_cores({"DISPLAY": None}))

    def test_dead_display(self):
        self.assert_clean_end(self.start_with_cores({"DISPLAY": ":4000"}))

    def test_dead_wayland_display(self):
        self.assert_clean_end(self.start_with_cores({"DISPLAY": None, "WAYLAND_DISPLAY": "nobody-there"}))

    @takes(2)
    def test_display_goes_while_running(self):
        agent = self.start_with_cores()
        agent.wait_ready()
        self.post(**WITHOUT_FOCUS["re-authentication"])
        agent.wait_visible()
        self.screen.process.kill()
        self.screen.process.wait()
        self.assert_clean_end(agent)


# --- languages that run from right to left --------------------------------------------------------


class MirroredTest(NoticeTestCase):
    def check(self, language):
        agent = self.launch(environment={"LANGUAGE": "en", "LC_ALL": "C.UTF-8"})
        self.post(AutoDisconnectWebSocketType=True, AutoDisconnectVPNStatus=True, AutoDisconnectMessageKey="VPN",
                  webSocketappLanguageKey=language)
        ok = agent.ok_button()
        self.assertLess(ok.extents[0] + ok.extents[2], WIDTH // 2, "OK is at the left")
        self.assertEqual(MARGIN, ok.extents[0])
        buttons = [element for element in agent.elements() if "button" in element.role and element.shown]
        close = next(button for button in buttons if button.extents[1] < TITLE_STRIP)
        self.assertEqual(0, close.extents[0], "the close button is at the left")
        header = agent.header_picture()
        left_half = header.crop((0, 0, WIDTH // 2, HEADER))
        self.assertEqual([DEFAULT_HEADER], [color for _count, color in left_half.getcolors(maxcolors=HEADER * WIDTH)])
        self.assertGreater(len(header.crop((WIDTH // 2, 0, WIDTH, HEADER)).getcolors(maxcolors=HEADER * WIDTH)), 1,
                           "the logo is at the right")

    @takes(2)
    def test_arabic(self):
        self.check("ar")

    @takes(2)
    def test_hebrew(self):
        self.check("he")


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
            cls.heard.append((str(message.get_member()), str(arguments[0]), int(arguments[1]),
                              str(message.get_sender()), str(message.get_path())))
        return dbus.lowlevel.HANDLER_RESULT_NOT_YET_HANDLED

    def name_changes(self, element):
        """How often it was told that the element's name is another one."""
        pump()
        return sum(1 for member, what, _one, sender, path in self.heard
                   if member == "PropertyChange" and what == "accessible-name"
                   and sender == element.bus_name and path == element.path)

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
            shown = ("StateChanged", "showing", 1, window.bus_name, window.path)
            wait_until(lambda: shown in self.heard, f"showing is heard for notice {number}", 3)  # noqa: B023
            holds_for(lambda: self.heard.count(shown) == 1, 0.3, "showing is heard twice")  # noqa: B023

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

    def count_down(self, agent, seconds, until):
        """Shows a countdown and reads its line until it shows a number; returns what was told of it."""
        self.post_casb(body=f"counts from {seconds}", timeout=str(seconds), rows=THREE_ROWS)
        line = agent.wait_countdown(of=seconds)
        seen = set()
        told = []

        def read():
            count = self.name_changes(line)
            name = line.now().name
            seen.add(name)
            # A screen reader that is told reads the name then.
            told.extend([name] * (count - len(told)))
            return COUNTDOWN.format(until) in seen
        wait_until(read, f"the line reads {until}", PATIENCE + seconds - until, interval=0.05)
        wanted = [COUNTDOWN.format(number) for number in range(seconds - 2, until - 1, -1)]
        self.assertEqual([], [text for text in wanted if text not in seen], "the line always reads the present text")
        return told

    @takes(9)
    def test_countdown_is_told_at_ten_and_five_only(self):
        agent = self.launch()
        self.assertEqual([COUNTDOWN.format(10), COUNTDOWN.format(5)], self.count_down(agent, 12, 4))

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

    def start_session(self, *options):
        """A Wayland session; returns its environment."""
        log = os.path.join(self.folder, "session.log")
        environment = dict(self.desktop.environment, XDG_RUNTIME_DIR=self.runtime)
        environment.pop("DISPLAY")
        with open(log, "wb") as file:
            process = subprocess.Popen(
                ["weston", "--backend=headless-backend.so", "--socket=session", "--width=1280", "--height=1024",
                 "--use-pixman", "--debug", "--idle-time=0", "--no-config", *options],
                env=environment, stdin=subprocess.DEVNULL, stdout=file, stderr=file)
        self.addCleanup(end_process, process)
        wait_until(lambda: os.path.exists(os.path.join(self.runtime, "session")), "the Wayland session is there")
        environment["WAYLAND_DISPLAY"] = "session"
        if "--xwayland" in options:
            def display():
                with open(log, encoding="utf-8", errors="replace") as file:
                    return re.search(r"xserver listening on display (:\d+)", file.read())
            environment["DISPLAY"] = wait_until(display, "XWayland listens")[1]
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

    def check(self, environment, name):
        agent = self.start(environment={"DISPLAY": None, **environment})
        self.bus.heard.clear()
        agent.wait_ready()
        self.post(WebSocketReAuthType=True)

        def shown():
            picture = self.screenshot(environment, name)
            whites = sum(number for number, color in picture.getcolors(maxcolors=1 << 24) if color == WHITE)
            return self.strips(picture) and whites > 20_000
        wait_until(shown, "the notice is in the session's picture, with its white body", PATIENCE, interval=0.2)
        self.assertTrue(agent.running())
        self.assertEqual("", agent.errors())
        return agent

    @takes(5)
    def test_session_with_xwayland(self):
        if shutil.which("Xwayland") is None:
            self.skipTest("Xwayland is not installed")
        _process, environment = self.start_session("--xwayland")
        agent = self.check(environment, "xwayland.png")
        # Through XWayland: it is one of the X server's clients.
        found = subprocess.run(["xwininfo", "-display", environment["DISPLAY"], "-root", "-tree"], check=True,
                               capture_output=True, text=True, timeout=10).stdout
        self.assertIn("NoticeAgent", found)
        agent.process.terminate()
        self.assert_ended(agent)

    @takes(5)
    def test_session_without_xwayland(self):
        _process, environment = self.start_session()
        agent = self.check(environment, "wayland.png")
        agent.process.terminate()
        self.assert_ended(agent)

    @takes(4)
    def test_session_ends_while_a_notice_is_shown(self):
        process, environment = self.start_session()
        agent = self.check(environment, "wayland.png")
        end_process(process)
        self.assert_ended(agent)
        self.assertRegex(agent.errors(), NoDesktopTest.LINE)
        self.assertEqual(1, agent.errors().count("\n"), agent.errors())




if __name__ == "__main__":
    unittest.main()
