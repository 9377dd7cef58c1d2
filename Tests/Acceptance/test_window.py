"""The window: where it stands, above what, when it is seen, and how it goes."""

from Xlib import X
from Xlib.protocol import event as xevent

from desktop import AGENT_NAME, SCREEN_HEIGHT, SCREEN_WIDTH, holds_for, wait_until
from harness import (CASB, FLOATING, INVISIBLE, MARGIN, TITLE_STRIP, WHITE, WIDTH, NoticeTestCase, takes)

CORNER = (SCREEN_WIDTH - MARGIN - WIDTH, MARGIN, WIDTH)
BODY = (8, 100)
LONG = "Zusammengehöriges Wort " * 2000
UNBROKEN = "W" * 20_000


class PlaceTest(NoticeTestCase):

    def test_every_notice_stands_top_right_above_a_raised_window(self):
        other = self.screen.plain_window(700, 0, 580, 700)
        self.addCleanup(self.screen.display.sync)
        self.addCleanup(other.destroy)
        agent = self.launch()
        for kind, message in {**FLOATING, "casb": CASB}.items():
            with self.subTest(kind):
                self.post(**message)
                agent.wait_visible()
                wait_until(lambda: agent.geometry()[:3] == CORNER, f"{kind} at the top right")
                self.assertEqual(1, len(agent.visible_windows()))
                self.screen.raise_window(other)
                agent.wait_pixel(*BODY, WHITE, "body under a raised window")

    @takes(3)
    def test_long_texts_are_on_the_screen_with_their_button_and_whole_for_a_screen_reader(self):
        address = "https://drive.example/" + "segment/" * 200
        agent = self.launch()
        self.post_casb(head=LONG, module=UNBROKEN, body=LONG, timeout="600",
                       rows=[(LONG, LONG), (UNBROKEN, UNBROKEN), ("URL", address)])
        agent.wait_text(address)
        x, y, width, height = agent.ok_button().extents
        left, top, window_width, window_height = agent.geometry()
        self.assertEqual((left, top, window_width), CORNER)
        self.assertLessEqual(top + window_height, SCREEN_HEIGHT)
        self.assertTrue(x >= 0 and x + width <= window_width and y + height <= window_height,
                        f"the button at {x, y}, of {width, height}, lies inside {agent.geometry()}")
        agent.press_ok()
        self.assert_ended(agent)

    def test_size_of_before_that_the_display_reports_late_takes_no_clicks_away(self):
        agent = self.launch()
        self.post(WebSocketType=True, MaintenanceMessageKey="first")
        agent.wait_text("first")
        window = agent.wait_visible()
        x, y, width, _height = agent.geometry()
        window.send_event(xevent.ConfigureNotify(window=window, event=window, x=x, y=y, width=width, height=TITLE_STRIP,
                                                 border_width=0, above_sibling=X.NONE, override=0),
                          event_mask=X.StructureNotifyMask)
        self.screen.display.sync()
        self.post(WebSocketType=True, MaintenanceMessageKey="second")
        agent.wait_text("second")
        agent.press_ok()
        self.assert_ended(agent)

    @takes(2)
    def test_ok_by_screen_reader(self):
        agent = self.launch()
        self.post(**FLOATING["concurrent session"])
        self.desktop.accessibility.press(agent.ok_button())
        self.assert_ended(agent)

    def test_closed_by_the_window_manager_it_shows_nothing_more(self):
        agent = self.launch()
        self.post(WebSocketType=True, MaintenanceMessageKey="first")
        agent.wait_text("first")
        self.screen.ask_to_close(agent.window())
        agent.wait_hidden()
        for count, message in enumerate([*FLOATING.values(), CASB], 2):
            self.post(**message)
            agent.log.wait_for("info", "Message received from Main APP.", count)
        holds_for(lambda: not agent.visible_windows(), 0.5, "a window came up that should not")
        self.assertTrue(agent.running())
        self.assertEqual(agent.process_id, self.bus.process_of(AGENT_NAME))


class WithoutWindowManagerTest(NoticeTestCase):
    window_manager = None

    def test_place_and_level_are_set_before_the_window_is_mapped(self):
        agent = self.launch()
        for _number in range(2):
            self.screen.watch_maps()
            self.post(**FLOATING["maintenance"])
            agent.wait_visible()
            # Nobody but the agent writes this property here, so it stands as it was at the mapping.
            self.assertIn("_NET_WM_STATE_ABOVE", self.screen.state_names(agent.window()))
            self.assertEqual([agent.window().id], [window.id for window in self.screen.maps()])
            self.assertEqual(CORNER, agent.geometry()[:3])
            self.post(**INVISIBLE)
            agent.wait_hidden()

    @takes(2)
    def test_notice_comes_up_in_its_final_size(self):
        agent = self.launch()
        self.screen.watch_maps()
        self.post(**CASB)
        agent.wait_countdown(600)
        events = [event for event in self.screen.events() if event.window == agent.window()]
        mapped = [event.type for event in events].index(X.MapNotify)
        # Being raised is told with the size it has.
        final = agent.geometry()[2:]
        self.assertEqual([], [(event.width, event.height) for event in events[mapped:]
                              if event.type == X.ConfigureNotify
                              and (event.width, event.height) != final], "sizes after it was mapped")
