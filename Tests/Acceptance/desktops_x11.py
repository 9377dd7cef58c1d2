"""The same questions to every window manager: where a notice stands, above what, and who has the keyboard.

Run by `Scripts/test --desktops`; the window managers stand in Scripts/packages-desktops.txt.
"""

import time

from Xlib import X
from Xlib.ext import xtest

from desktop import holds_for, wait_until
from harness import MARGIN, TITLE_STRIP, takes
from test_desktops import CASB, GREEN, INVISIBLE, RED, WITHOUT_FOCUS, DesktopTestCase, WindowManagerChecks


class Questions(WindowManagerChecks):
    """What holds under every window manager. The subclasses name one each."""

    # Window managers whose own bars and frames make another place than the screen's corner say so in the work area.
    def corner(self):
        left, top, width, _height = (self.screen.property(self.screen.root, "_NET_WORKAREA") or [0, 0, 1280, 1024])[:4]
        return left + width - MARGIN, top + MARGIN

    def assert_placed(self, agent):
        def placed():
            x, y, width, _height = agent.geometry()
            return (x + width, y) == self.corner()
        try:
            wait_until(placed, "", 3)
        except AssertionError:
            self.fail(f"the notice is at {agent.geometry()}, not in the corner {self.corner()}")

    def is_managed(self, agent):
        return not agent.window().get_attributes().override_redirect

    def fill_screen(self, window, filled=True):
        self.give_focus(window)
        self.send(window, "_NET_WM_STATE", int(filled), "_NET_WM_STATE_FULLSCREEN", 0, 1)
        wait_until(lambda: ("_NET_WM_STATE_FULLSCREEN" in self.screen.state_names(window)) == filled,
                   "the other window fills the screen, or no longer", 3)
        time.sleep(0.3)  # the window manager's last word on it

    def show_casb(self):
        agent = self.launch()
        self.post(**CASB)
        agent.wait_visible()
        wait_until(lambda: self.has_focus(agent.window()), "the CASB notice has the keyboard", 3)
        return agent

    @takes(6)
    def test_placed_without_a_frame(self):
        for _ in range(3):
            bundle = self.new_bundle()
            agent = self.launch(bundle)
            self.post(f"{bundle.log_folder_name}_socketMessageNotifier", **WITHOUT_FOCUS["maintenance"])
            agent.wait_visible()
            self.assert_placed(agent)
            holds_for(lambda: agent.visible(), 0.3, "the notice went away")  # noqa: B023
            self.assert_placed(agent)
            self.assertIn(self.screen.property(agent.window(), "_NET_FRAME_EXTENTS"), ([], [0, 0, 0, 0]))
            agent.end()

    @takes(6)
    def test_leaves_keyboard_attention_and_task_bar_alone(self):
        other = self.in_front_of()
        agent = self.launch()
        for kind, message in WITHOUT_FOCUS.items():
            with self.subTest(kind):
                self.post(**message)
                agent.wait_visible()
                holds_for(lambda: self.has_focus(other), 0.5, f"{kind} took the keyboard")
                states = self.screen.state_names(agent.window())
                self.assertNotIn("_NET_WM_STATE_DEMANDS_ATTENTION", states)
                self.assertLessEqual({"_NET_WM_STATE_SKIP_TASKBAR"}, states)
                self.hide(agent)

    @takes(4)
    def test_click_gives_the_keyboard_to_a_notice_that_left_it(self):
        other = self.in_front_of()
        agent = self.launch()
        self.post(**WITHOUT_FOCUS["maintenance"])
        agent.wait_visible()
        time.sleep(1)
        x, y, width, _height = agent.geometry()
        self.screen.click(x + width // 2, y + 110)
        wait_until(lambda: self.has_focus(agent.window()), "a click gives the notice the keyboard", 3)
        time.sleep(0.8)
        self.screen.press_key("Return")
        self.assert_ended(agent)
        self.assertIsNotNone(other)

    @takes(6)
    def test_over_a_program_that_went_full_screen_after_it(self):
        other = self.in_front_of(GREEN)
        agent = self.launch()
        self.post(**WITHOUT_FOCUS["maintenance"])
        agent.wait_visible()
        self.fill_screen(other)
        self.post(**WITHOUT_FOCUS["re-authentication"])
        self.assert_seen(agent, "over a window that went full screen after it")
        self.assert_placed(agent)
        self.assertTrue(self.has_focus(other), "the full-screen window keeps the keyboard")
        self.fill_screen(other, False)
        self.post(**WITHOUT_FOCUS["auto disconnect"])
        self.assert_seen(agent, "after the full screen")
        self.assertTrue(self.arranges or self.is_managed(agent), "it is given back to the window manager")
        self.assertTrue(self.has_focus(other), "the other window keeps the keyboard")

    @takes(5)
    def test_casb_notice_over_full_screen(self):
        other = self.in_front_of(GREEN)
        self.fill_screen(other)
        agent = self.show_casb()
        self.assert_seen(agent, "over a full-screen window")
        self.assert_placed(agent)
        self.hide(agent)
        wait_until(lambda: self.has_focus(other), "the full-screen window has the keyboard again", 3)

    def drag(self, agent):
        before = agent.geometry()
        start = (before[0] + 100, before[1] + TITLE_STRIP // 2)
        self.screen.move_pointer(*start)
        xtest.fake_input(self.screen.display, X.ButtonPress, 1)
        for step in range(1, 31):
            self.screen.move_pointer(start[0] - 10 * step, start[1] + 8 * step)
            time.sleep(0.02)  # a hand is no faster
        xtest.fake_input(self.screen.display, X.ButtonRelease, 1)
        self.screen.display.sync()
        time.sleep(0.3)  # the window manager's last word on where it is
        after = agent.geometry()
        self.assertLess(after[0] - before[0], -150, f"dragged from {before} to {after}")
        self.assertGreater(after[1] - before[1], 120, f"dragged from {before} to {after}")
        return after[:2]

    @takes(5)
    def test_dragged_and_left_where_it_was_put(self):
        agent = self.launch()
        self.in_front_of()
        self.post(**WITHOUT_FOCUS["maintenance"])
        agent.wait_visible()
        time.sleep(0.5)
        place = self.drag(agent)
        self.post(**WITHOUT_FOCUS["re-authentication"])
        agent.wait_text("Please sign in again") if self.accessibility else time.sleep(0.3)
        holds_for(lambda: agent.geometry()[:2] == place, 0.5, f"the next notice is not at {place}")

    @takes(5)
    def test_dragged_over_full_screen(self):
        other = self.in_front_of(GREEN)
        self.fill_screen(other)
        agent = self.launch()
        self.post(**WITHOUT_FOCUS["maintenance"])
        agent.wait_visible()
        time.sleep(0.5)
        self.drag(agent)

    @takes(3)
    def test_closed_by_the_window_manager_it_never_comes_back(self):
        agent = self.launch()
        self.post(**WITHOUT_FOCUS["maintenance"])
        agent.wait_visible()
        self.screen.ask_to_close(agent.window())
        agent.wait_hidden(3)
        self.post(**WITHOUT_FOCUS["re-authentication"])
        self.assert_stays_hidden(agent, 0.5)

    test_full_screen_window_hides_no_notice = None  # the questions above ask it, and more


# The command, and the files that it wants to find in the home folder.
MANAGERS = {
    "Openbox": (["openbox"], {}),
    "OpenboxWithCompositor": (["openbox"], {}),
    "Xfwm4": (["xfwm4"], {}),
    "Mutter": (["mutter", "--x11"], {}),
    "Kwin": (["kwin_x11"], {}),
    "Marco": (["marco"], {}),
    "Metacity": (["metacity"], {}),
    "I3": (["i3", "-c", "{home}/i3.conf"], {"i3.conf": "font pango:monospace 8\n"}),
    "Awesome": (["awesome"], {}),
    "Fluxbox": (["fluxbox"], {".fluxbox/init": ""}),
    "Icewm": (["icewm"], {}),
}
# They would put a notice into a tile or a frame, and leave it alone when it is not theirs to arrange.
ARRANGING = ("I3", "Awesome")

for _name, (_command, _files) in MANAGERS.items():
    globals()[_name] = type(_name, (Questions, DesktopTestCase), {
        "__module__": __name__, "command": _command, "files": _files, "arranges": _name in ARRANGING,
        "compositor": _name.endswith("WithCompositor")})
