"""The window: where it stands, above what, when it is seen, and how it goes."""

import time

from Xlib import X
from Xlib.protocol import event as xevent

from activity_server import ActivityServer
from desktop import AGENT_NAME, SCREEN_HEIGHT, SCREEN_WIDTH, wait_until
from harness import (MARGIN, PAUSE_BEFORE_KEYS, THREE_ROWS, TITLE_STRIP, WIDTH, NoticeTestCase, Starts, notice_xml,
                     takes)

EVERY_KIND = {
    "maintenance": dict(WebSocketType=True, MaintenanceMessageKey="text"),
    "auto disconnect": dict(AutoDisconnectWebSocketType=True, AutoDisconnectMessageKey="text"),
    "re-authentication": dict(WebSocketReAuthType=True),
    "concurrent session": dict(WebSocketAdminDisconnect=True, webSocketResponse=notice_xml(body="text")),
    "casb": dict(webSocketResponse=notice_xml(body="text", timeout="60", rows=THREE_ROWS)),
}

LONG = "Zusammengehöriges Wort " * 2000
UNBROKEN = "W" * 20_000


class PlaceTest(NoticeTestCase):

    def assert_on_screen(self, agent):
        left, top, width, height = agent.geometry()
        self.assertGreaterEqual(left, 0)
        self.assertGreaterEqual(top, 0)
        self.assertLessEqual(left + width, SCREEN_WIDTH)
        self.assertLessEqual(top + height, SCREEN_HEIGHT)

    def test_every_notice_stands_top_right(self):
        agent = self.launch()
        for kind, message in EVERY_KIND.items():
            with self.subTest(kind):
                self.post(**message)
                agent.wait_visible()
                wait_until(lambda: agent.geometry()[:3] == (SCREEN_WIDTH - MARGIN - WIDTH, MARGIN, WIDTH),
                           f"{kind} at the top right")
                self.assert_on_screen(agent)
                self.assertEqual(1, len(agent.visible_windows()))

    @takes(3)
    def test_long_texts_stay_on_the_screen_with_their_button(self):
        for name, message in {
                "maintenance": dict(WebSocketType=True, MaintenanceMessageKey=UNBROKEN),
                "concurrent session": dict(WebSocketAdminDisconnect=True,
                                           webSocketResponse=notice_xml(head=LONG, body=LONG)),
                "casb": dict(webSocketResponse=notice_xml(
                    head=LONG, module=UNBROKEN, body=LONG, timeout="60",
                    rows=[(LONG, LONG), (UNBROKEN, UNBROKEN), (LONG, UNBROKEN)]))}.items():
            with self.subTest(name):
                agent = self.launch(self.new_bundle())
                self.post_to(agent, **message)
                agent.wait_visible()
                button = agent.ok_button()
                self.assert_on_screen(agent)
                x, y, width, height = button.extents
                _left, _top, window_width, window_height = agent.geometry()
                self.assertEqual(WIDTH, window_width)
                self.assertTrue(x >= 0 and x + width <= window_width and y + height <= window_height,
                                f"the button {button.extents} lies inside {agent.geometry()}")
                # And it can be pressed there.
                agent.press_ok()
                self.assert_ended(agent)

    def test_long_text_is_whole_for_a_screen_reader(self):
        agent = self.launch()
        value = "https://drive.example/" + "segment/" * 200
        self.post_casb(rows=[("Activity", "Upload"), ("Application", "Drive"), ("URL", value)], timeout="60")
        agent.wait_text(value)


class StaleReportTest(NoticeTestCase):

    def test_size_of_before_that_the_display_reports_late_takes_no_clicks_away(self):
        agent = self.launch()
        self.post(WebSocketType=True, MaintenanceMessageKey="first")
        agent.wait_text("first")
        window = agent.wait_visible()
        x, y, width, height = agent.geometry()
        window.send_event(xevent.ConfigureNotify(window=window, event=window, x=x, y=y, width=width, height=TITLE_STRIP,
                                                 border_width=0, above_sibling=X.NONE, override=0),
                          event_mask=X.StructureNotifyMask)
        self.screen.display.sync()
        self.post(WebSocketType=True, MaintenanceMessageKey="second")
        agent.wait_text("second")
        agent.press_ok()
        self.assert_ended(agent)


class LevelTest(NoticeTestCase):

    def is_above(self, agent):
        return "_NET_WM_STATE_ABOVE" in self.screen.state_names(agent.window())

    def test_every_notice_stays_above_a_raised_window(self):
        other = self.screen.plain_window(700, 0, 580, 700, (200, 40, 40))
        self.addCleanup(self.screen.display.sync)
        self.addCleanup(other.destroy)
        agent = self.launch()
        for kind, message in EVERY_KIND.items():
            with self.subTest(kind):
                self.post(**message)
                agent.wait_visible()
                wait_until(lambda: self.is_above(agent), f"{kind} is above")
                self.screen.raise_window(other)
                self.assert_pixel(agent, (8, 100), (255, 255, 255), "body under a raised window")

    @takes(2)
    def test_ok_by_screen_reader(self):
        agent = self.launch()
        self.post(**EVERY_KIND["concurrent session"])
        self.desktop.accessibility.press(agent.ok_button())
        self.assert_ended(agent)


class LevelWithoutWindowManagerTest(NoticeTestCase):
    window_manager = None

    def test_place_and_level_are_set_before_the_window_is_mapped(self):
        agent = self.launch()
        for _number in range(2):
            self.screen.watch_maps()
            self.post(**EVERY_KIND["maintenance"])
            agent.wait_visible()
            # Nobody but the agent writes this property here, so it stands as it was at the mapping.
            self.assertIn("_NET_WM_STATE_ABOVE", self.screen.state_names(agent.window()))
            self.assertEqual([agent.window().id], [window.id for window in self.screen.maps()])
            self.assertEqual((SCREEN_WIDTH - MARGIN - WIDTH, MARGIN, WIDTH), agent.geometry()[:3])
            self.post(WebSocketAdminDisconnect=True)
            agent.wait_hidden()

    @takes(2)
    def test_notice_comes_up_in_its_final_size(self):
        agent = self.launch()
        self.screen.watch_maps()
        self.post(**EVERY_KIND["casb"])
        agent.wait_countdown(60)
        events = [event for event in self.screen.events() if event.window == agent.window()]
        mapped = [event.type for event in events].index(X.MapNotify)
        # Being raised is told with the size it has.
        final = agent.geometry()[2:]
        self.assertEqual([], [(event.width, event.height) for event in events[mapped:]
                              if event.type == X.ConfigureNotify
                              and (event.width, event.height) != final], "sizes after it was mapped")


class CloseTest(NoticeTestCase):

    def close_by_button(self, agent):
        """The strip's button stands at the right."""
        _left, _top, width, _height = agent.geometry()
        agent.click(width - 16, TITLE_STRIP // 2)

    def assert_hidden_until_the_next_message(self, hide):
        agent = self.launch()
        self.post(**EVERY_KIND["casb"])
        agent.wait_visible()
        wait_until(lambda: self.screen.input_focus() == agent.window().id, "the CASB notice has the keyboard")
        hide(agent)
        agent.wait_hidden()
        self.post(WebSocketType=True, MaintenanceMessageKey="second")
        agent.wait_visible()
        agent.wait_text("second")

    def test_hidden_by_its_button_until_the_next_message(self):
        self.assert_hidden_until_the_next_message(self.close_by_button)

    def test_hidden_by_escape_until_the_next_message(self):
        def press_escape(_agent):
            time.sleep(PAUSE_BEFORE_KEYS)
            self.screen.press_key("Escape")
        self.assert_hidden_until_the_next_message(press_escape)

    def test_closed_by_the_window_manager_it_shows_nothing_more(self):
        agent = self.launch()
        self.post(WebSocketType=True, MaintenanceMessageKey="first")
        agent.wait_text("first")
        self.screen.ask_to_close(agent.window())
        agent.wait_hidden()
        for count, message in enumerate(EVERY_KIND.values(), 2):
            self.post(**message)
            agent.log.wait_for("info", "Message received from Main APP.", count)
        self.assert_stays_hidden(agent, 0.5)
        self.assertTrue(agent.running())
        self.assertEqual(agent.process_id, self.bus.process_of(AGENT_NAME))

    @takes(8)
    def test_countdown_of_a_closed_notice_goes_on(self):
        server = ActivityServer()
        self.addCleanup(server.close)
        agent = self.launch()
        self.post_casb(timeout="6", rows=THREE_ROWS, ok_url=server.url("/closed"))
        begun = agent.log.wait_for("info", Starts("Parsing successful")).moment
        agent.wait_visible()
        self.close_by_button(agent)
        agent.wait_hidden()
        self.assert_near(self.assert_ended(agent) - begun, 7, "set-up to end")
        self.assertEqual(1, len(server.requests))


class WithoutAccessibilityTest(NoticeTestCase):
    accessibility = False

    @takes(2)
    def test_notice_without_an_accessibility_bus(self):
        agent = self.launch()
        self.post(**EVERY_KIND["maintenance"])
        agent.wait_visible()
        self.assert_pixel(agent, (8, 100), (255, 255, 255), "body")
        _left, _top, width, height = agent.geometry()
        agent.click(width - MARGIN - 48, height - 20 - 17)
        self.assert_ended(agent)
