"""The same questions to every desktop: where a notice stands, above what, who has the keyboard, how it goes.

Run by `Scripts/test --desktops`, a desktop at a time; docs/desktops.md shows the answers.
"""

import functools
import shutil
import time

from desktop import SCREEN_HEIGHT, holds_for, wait_until
from harness import (ACCENT, CASB, FLOATING, INVISIBLE, MARGIN, TITLE_STRIP, WHITE, WIDTH, NoticeTestCase, Starts,
                     notice_xml, takes)
from sessions import INSIDE, OUTSIDE, PROGRAM_COLOR, SECOND_MONITOR, SESSIONS, shared_session

# What a desktop makes impossible, with the reason. The question is asked all the same, and has to fail in these words.
NO_KEYBOARD = "not within 5 s: the program in use no longer has the keyboard"
IMPOSSIBLE = {"sway": ("sway takes the input focus back from a window that it does not manage", [
    "test_casb_notice_takes_the_keyboard", "test_casb_notice_over_full_screen", "test_click_gives_it_the_keyboard"])}


def on_two_monitors(test):
    test.monitors = 2
    return test


class Questions(NoticeTestCase):
    """All of them. The subclasses name a desktop each."""

    session_name = None

    def setUp(self):
        for program in SESSIONS[self.session_name].programs:
            if shutil.which(program) is None:
                self.skipTest(f"{program} is not installed")
        super().setUp()
        self.program = None

    def desktop_for_test(self):
        monitors = getattr(getattr(self, self._testMethodName), "monitors", 1)
        self.session = shared_session(self.session_name, monitors)
        return self.session

    # What the user does.

    def use_program(self):
        """Another program over most of the screen, in use."""
        self.program = self.session.open_program()
        self.addCleanup(self.program.close)
        wait_until(lambda: self.session.pixel(*INSIDE) == PROGRAM_COLOR, "a program has its window")
        self.session.click(*INSIDE)
        self.wait_program_types()

    def wait_program_types(self):
        def typed():
            before = self.program.keys()
            self.session.press_key("x")
            time.sleep(0.15)  # nobody types faster
            return self.program.keys() > before
        wait_until(typed, "the program in use has the keyboard")

    def fill_screen(self, filled=True):
        self.program.fill_screen(filled)
        wait_until(lambda: all(self.session.pixel(*place) == PROGRAM_COLOR for place in OUTSIDE) == filled,
                   "the program fills the screen" if filled else "the program no longer fills the screen")

    def show(self, agent, kind="maintenance"):
        self.post(**FLOATING[kind])
        agent.wait_visible()

    def show_over_program(self, filling_screen=False):
        """A notice over a program in use; returns its agent."""
        self.use_program()
        if filling_screen:
            self.fill_screen()
        agent = self.launch()
        self.show(agent)
        return agent

    def hide(self, agent):
        self.post(**INVISIBLE)
        agent.wait_hidden()

    def click_strip(self, agent, from_right):
        x, y, width, _height = agent.geometry()
        self.session.click(x + width - from_right, y + TITLE_STRIP // 2)

    # What the user finds.

    def looks_whole(self, agent):
        x, y, width, height = agent.geometry()
        picture = self.session.picture()
        if x < 0 or y < 0 or x + width > picture.width or y + height > picture.height:
            return False
        strip = picture.getpixel((x + width // 2, y + TITLE_STRIP // 2))
        corner = picture.getpixel((x + 14, y + height - 14))
        return strip == ACCENT and corner == WHITE

    def assert_seen(self, agent, what):
        """Waits until the notice stays in sight; a window manager may need a moment for its order."""
        since = []

        def stays():
            if not self.looks_whole(agent):
                since.clear()
                return False
            since.append(time.monotonic())
            return since[-1] - since[0] >= 0.3
        wait_until(stays, f"the notice is in sight {what}", interval=0.05)

    def assert_placed(self, agent, area=None):
        """24 pixels from the corner of the work area, and no other width than its own."""
        left, top, width, _height = area or self.session.work_area()
        place = (left + width - MARGIN - WIDTH, top + MARGIN, WIDTH)
        try:
            wait_until(lambda: agent.geometry()[:3] == place, "", 3)
        except AssertionError:
            self.fail(f"the notice is at {agent.geometry()}, not at {place}")

    def card_width(self, agent):
        """Of the card in the picture, by the accent of its strip, without the lines of its edge."""
        picture = self.session.picture()
        _x, y, _width, _height = agent.geometry()
        row = [x for x in range(picture.width) if picture.getpixel((x, y + 4 + TITLE_STRIP // 2)) == ACCENT]
        return row[-1] - row[0] + 1

    def assert_program_keeps_keyboard(self, what):
        for _ in range(4):
            before = self.program.keys()
            self.session.press_key("x")
            wait_until(lambda: self.program.keys() > before, f"a key comes to the program in use {what}", 3)  # noqa: B023
            time.sleep(0.15)  # nobody types faster

    def wait_notice_has_keyboard(self, agent, what):
        def gone():
            before = self.program.keys()
            self.session.press_key("x")
            time.sleep(0.25)  # what a key brings about
            return self.program.keys() == before
        wait_until(gone, f"the program in use no longer has the keyboard {what}", 5)
        self.assertTrue(agent.visible(), "the notice is there")
        time.sleep(1)  # the pause after which keys count

    def states(self, agent):
        return self.screen.state_names(agent.window())

    def is_managed(self, agent):
        return not agent.window().get_attributes().override_redirect

    # The questions.

    @takes(9)
    def test_placed(self):
        for kind in ("maintenance", "re-authentication", "auto disconnect"):
            agent = self.launch(self.new_bundle())
            self.post_to(agent, **FLOATING[kind])
            agent.wait_visible()
            self.assert_placed(agent)
            self.assert_seen(agent, "at its place")
            self.assert_placed(agent)  # the window manager has had its say
            self.assertLessEqual(WIDTH - 2, self.card_width(agent))
            self.assertLessEqual(self.card_width(agent), WIDTH)
            self.assertIn(self.screen.property(agent.window(), "_NET_FRAME_EXTENTS"), ([], [0, 0, 0, 0]))
            agent.end()

    @takes(6)
    def test_above(self):
        agent = self.launch()
        self.show(agent)
        self.assert_seen(agent, "on an empty screen")
        self.use_program()
        self.assert_seen(agent, "over a program that came after it")
        self.session.click(*INSIDE)
        self.assert_seen(agent, "over a program that was clicked on")

    @takes(6)
    def test_on_all_workspaces(self):
        agent = self.show_over_program()
        self.addCleanup(self.session.go_to_workspace, 0)
        self.session.go_to_workspace(1)
        wait_until(lambda: self.session.pixel(*INSIDE) != PROGRAM_COLOR, "the workspace is another one")
        self.assert_seen(agent, "on the other workspace")

    @takes(9)
    def test_floating_notices_leave_the_keyboard(self):
        self.use_program()
        agent = self.launch()
        for kind in FLOATING:
            self.show(agent, kind)
            self.assert_program_keeps_keyboard(f"under the {kind} notice")
            self.assert_seen(agent, "over the program in use")
            self.hide(agent)
            self.assert_program_keeps_keyboard(f"after the {kind} notice")

    @takes(6)
    def test_casb_notice_takes_the_keyboard(self):
        self.use_program()
        agent = self.launch()
        self.post(**CASB)
        agent.wait_visible()
        self.wait_notice_has_keyboard(agent, "under a CASB notice")
        self.assert_seen(agent, "with the keyboard")
        self.session.press_key("Return")
        self.assert_ended(agent)
        self.wait_program_types()

    @takes(6)
    def test_over_full_screen(self):
        agent = self.show_over_program(filling_screen=True)
        self.assert_seen(agent, "over a program that fills the screen")
        self.assert_placed(agent)
        self.assert_program_keeps_keyboard("that fills the screen")

    @takes(7)
    def test_casb_notice_over_full_screen(self):
        self.use_program()
        self.fill_screen()
        agent = self.launch()
        self.post(**CASB)
        agent.wait_visible()
        self.wait_notice_has_keyboard(agent, "that fills the screen")
        self.assert_seen(agent, "over a program that fills the screen")
        self.hide(agent)
        self.wait_program_types()

    @takes(7)
    def test_full_screen_begun_after_it(self):
        agent = self.show_over_program()
        self.fill_screen()
        self.show(agent, "re-authentication")
        self.assert_seen(agent, "over a program that went full screen after it")
        self.assert_program_keeps_keyboard("that went full screen")

    @takes(8)
    def test_after_full_screen(self):
        agent = self.show_over_program(filling_screen=True)
        self.fill_screen(False)
        self.show(agent, "re-authentication")
        self.assert_seen(agent, "after the full screen")
        self.assert_placed(agent)
        self.assert_program_keeps_keyboard("that no longer fills the screen")
        self.drag(agent)

    @takes(6)
    def test_dragged(self):
        agent = self.show_over_program()
        self.assert_seen(agent, "before it is dragged")
        place = self.drag(agent)
        self.assert_seen(agent, "where it was put")
        self.post(**FLOATING["re-authentication"])
        agent.log.wait_for("info", Starts("Message received"), count=2)
        holds_for(lambda: agent.geometry()[:2] == place, 0.7, f"the next notice is not at {place}")

    @takes(5)
    def test_dragged_over_full_screen(self):
        agent = self.show_over_program(filling_screen=True)
        self.assert_seen(agent, "before it is dragged")
        self.drag(agent)
        self.assert_seen(agent, "where it was put")

    @takes(7)
    def test_click_gives_it_the_keyboard(self):
        agent = self.show_over_program()
        self.assert_seen(agent, "before the click")
        time.sleep(1)  # a hand comes no sooner
        self.click_strip(agent, from_right=WIDTH // 2)
        self.wait_notice_has_keyboard(agent, "after a click on the notice")
        self.session.press_key("Escape")
        agent.wait_hidden()
        self.assertTrue(agent.running())
        self.show(agent, "re-authentication")
        self.assert_seen(agent, "after the one that Escape dismissed")

    @takes(9)
    def test_reached_by_activation(self):
        self.use_program()
        agent = self.launch()
        agent.activate()
        self.show(agent)
        self.assert_program_keeps_keyboard("under a notice that came after its agent was activated")
        agent.activate()
        self.wait_notice_has_keyboard(agent, "when the notice was activated")
        self.assert_seen(agent, "with the keyboard")
        self.assertEqual([], self.session.banners())
        self.session.press_key("Escape")
        agent.wait_hidden()
        self.wait_program_types()
        agent.activate()
        self.assert_program_keeps_keyboard("when an agent without a notice was activated")
        self.assertFalse(agent.visible())

    @takes(7)
    def test_reached_by_activation_over_full_screen(self):
        agent = self.show_over_program(filling_screen=True)
        agent.activate()
        self.wait_notice_has_keyboard(agent, "that fills the screen")
        self.assert_seen(agent, "over a program that fills the screen")
        self.session.press_key("Return")
        self.assert_ended(agent)
        self.wait_program_types()

    @takes(6)
    def test_closed_by_its_cross(self):
        agent = self.show_over_program()
        self.assert_seen(agent, "before it is closed")
        self.click_strip(agent, from_right=TITLE_STRIP // 2 + 3)
        agent.wait_hidden()
        self.assertTrue(agent.running())
        self.show(agent, "re-authentication")
        self.assert_seen(agent, "after the one that was closed")
        self.assert_placed(agent)

    @takes(5)
    def test_second_message(self):
        agent = self.show_over_program()
        self.assert_seen(agent, "first")
        first = agent.geometry()
        self.post(webSocketResponse=notice_xml(body="text " * 100), WebSocketAdminDisconnect=True)
        wait_until(lambda: agent.geometry()[3] > first[3] + 20, "the second notice is higher")
        self.assert_seen(agent, "second")
        self.assert_placed(agent)
        self.assertEqual(1, len(agent.visible_windows()))

    @takes(5)
    def test_hidden_it_is_clicked_through(self):
        agent = self.show_over_program()
        self.assert_seen(agent, "before it is hidden")
        x, y, _width, _height = agent.geometry()
        self.hide(agent)
        spot = (x + 100, y + 60)
        wait_until(lambda: self.session.pixel(*spot) == PROGRAM_COLOR, "the program below is seen")
        before = self.program.clicks()
        self.session.click(*spot)
        wait_until(lambda: self.program.clicks() > before, "the program below gets the click", 3)

    @takes(1)
    @on_two_monitors
    def test_two_monitors(self):
        second = SECOND_MONITOR
        # As high as the panels leave it, which the desktop says of both together.
        first = (0, *self.session.work_area()[1:2], *second[2:])
        agent = self.launch()
        self.show(agent)
        self.assert_placed(agent, first)
        self.hide(agent)
        # One that is known to X11, since no Wayland program says where it is.
        spot = second[0] + 100, 600
        self.session.click(*spot)
        self.session.move_pointer(second[0] + 4, SCREEN_HEIGHT - 3)  # not into the picture
        place = dict(x=second[0] + 50, y=500)
        program = self.screen.plain_window(**place, width=300, height=300, color=PROGRAM_COLOR)
        self.addCleanup(program.destroy)
        program.configure(**place)  # some window managers have places of their own for a new window
        self.screen.display.sync()
        wait_until(lambda: self.session.pixel(*spot) == PROGRAM_COLOR, "a program has its window")
        self.session.click(*spot)
        wait_until(lambda: self.screen.active_window() == program.id, "the program is in use")
        self.show(agent)
        self.assert_placed(agent, second)
        self.assert_seen(agent, "on the monitor in use")
        place = self.drag(agent, left=100)
        self.post(webSocketResponse=notice_xml(body="text " * 100), WebSocketAdminDisconnect=True)
        wait_until(lambda: agent.geometry()[3] > 300, "the next notice is higher")
        holds_for(lambda: agent.geometry()[:2] == place, 0.7, f"the next notice is not at {place}")
        if self.session.unplug_second_monitor():
            wait_until(lambda: agent.geometry()[0] + WIDTH <= second[0], "the notice is on the monitor that is left")
            self.assert_seen(agent, "there")

    @takes(7)
    def test_asks_for_no_attention_and_stands_in_no_list(self):
        self.use_program()
        agent = self.launch()
        for message in (*FLOATING.values(), CASB):
            self.post(**message)
            agent.wait_visible()
            if self.is_managed(agent):
                self.assertLessEqual({"_NET_WM_STATE_SKIP_TASKBAR", "_NET_WM_STATE_SKIP_PAGER"}, self.states(agent))
            # Some mark it when it is mapped; it is in no list where that would be seen, and unmarked soon.
            time.sleep(1)
            self.assertNotIn("_NET_WM_STATE_DEMANDS_ATTENTION", self.states(agent))
            self.assertEqual([], self.session.banners())
            self.hide(agent)


def asked_in_vain(question, reason):
    """The question where the desktop makes it impossible: it fails, or the table says too little of the desktop."""
    @functools.wraps(question)
    def ask(self):
        with self.assertRaisesRegex(AssertionError, NO_KEYBOARD, msg=f"it holds, although {reason}"):
            question(self)
    return ask


def class_name(session):
    return "".join(word[0].upper() + word[1:] for word in session.replace("_", " ").split())


for _session in SESSIONS:
    _reason, _names = IMPOSSIBLE.get(_session, ("", []))
    _members = {name: asked_in_vain(getattr(Questions, name), _reason) for name in _names}
    globals()[class_name(_session)] = type(class_name(_session), (Questions,), {
        "__module__": __name__, "session_name": _session, **_members})
del Questions
