"""Which notice a message chooses, and what it logs on the way."""

import time

from activity_server import ActivityServer
from desktop import holds_for, wait_until
from harness import LAUNCHED, NoticeTestCase, Starts, THREE_ROWS, notice_xml, received, takes

# In order of precedence.
FLAGS = {
    "WebSocketType": [
        ("info", "Initiating Maintenance Mode View.."),
        ("info", "Web Socket Notification Type : Maintenance Mode Notification..."),
    ],
    "AutoDisconnectWebSocketType": [
        ("info", "Initiating Auto Disconnect Mode View.."),
        ("info", "Web Socket Notification Type : Auto Disconnect Notification..."),
        ("debug", Starts(" Auto Disconnect Notification received from Zelvik Sase Client ")),
        ("info", "VPN Connection Status :  false"),
    ],
    # The installer's text speaks of CASB and the window's of auto-disconnect, both deliberately.
    "WebSocketReAuthType": [
        ("info", "Initiating ReAuth Mode.."),
        ("info", "CASB Socket Notification Type : CASB Mode Notification..."),
        ("debug", Starts(" Auto Disconnect Notification received from Zelvik Sase Client ")),
    ],
    "WebSocketAdminDisconnect": [
        ("info", "Initiating Concurrent session view.."),
        ("info", "Concurrent Session Notification Type..."),
        ("error", "Unable to receive Response from Zelvik Sase Client..."),
    ],
}


class RoutingTest(NoticeTestCase):

    def after_message(self, agent):
        """Waits until a message without notice, posted behind the one in question, is through."""
        before = agent.log.count("info", "Bundle Language View probe")
        self.post(webSocketappLanguageKey="probe")
        agent.log.wait_for("info", "Bundle Language View probe", before + 1)

    def test_each_flag_alone_chooses_its_notice(self):
        agent = self.launch()
        logged = len(LAUNCHED)
        for flag, records in FLAGS.items():
            with self.subTest(flag):
                self.post(**{flag: True})
                self.assert_log(agent, received(), records, after=logged)
                logged += 3 + len(records)

    def test_message_without_a_notice_is_logged_and_shows_nothing(self):
        agent = self.launch()
        self.bus.emit("ss", f"{self.brand}_socketMessageNotifier", "")
        self.assert_log(agent, received(user_info="Message from Sase Client APP: \n nil"))
        self.post(**dict.fromkeys(FLAGS, "true"))  # a flag of another type is false
        self.after_message(agent)
        self.assertEqual(len(LAUNCHED) + 9, len(agent.log.pairs()))
        self.assert_stays_hidden(agent, 0.3)

    def test_unparseable_response_ends_the_process(self):
        for text in ("no xml at all", ""):
            with self.subTest(text=text):
                self.screen.watch_maps()
                agent = self.launch(self.new_bundle())
                self.post_to(agent, webSocketResponse=text)
                self.assert_ended(agent)
                self.assert_log(agent, received(), ("error", f"Unable to parse xml string : {text}"))
                self.assertEqual([], self.screen.maps(), "windows mapped")

    def test_any_object_is_accepted(self):
        agent = self.launch()
        self.post(sender_object="com.example.sender", WebSocketType=True, MaintenanceMessageKey="with object")
        agent.wait_text("with object")


class SecondMessageTest(NoticeTestCase):
    """A second message replaces payload and notice at once, in the same window."""

    MESSAGES = {
        "maintenance": dict(WebSocketType=True, MaintenanceMessageKey="maintenance text"),
        "auto disconnect": dict(AutoDisconnectWebSocketType=True, AutoDisconnectMessageKey="policy text"),
        "re-authentication": dict(WebSocketReAuthType=True),
        "concurrent session": dict(WebSocketAdminDisconnect=True,
                                   webSocketResponse=notice_xml(body="session text")),
        "casb": dict(webSocketResponse=notice_xml(body="casb text", timeout="60", rows=THREE_ROWS)),
    }
    TEXTS = {"maintenance": "maintenance text", "auto disconnect": "policy text",
             "concurrent session": "session text", "casb": "casb text"}

    @takes(4)
    def test_every_notice_replaces_the_one_before_in_the_same_window(self):
        agent = self.launch()
        texts = set(self.TEXTS.values())
        window = None
        for kind in [*self.MESSAGES, *reversed(self.MESSAGES)]:
            self.post(**self.MESSAGES[kind])
            agent.wait_visible()
            if kind == "re-authentication":
                wait_until(lambda: not texts & set(agent.texts()) and agent.texts(), "no text of another notice")
            else:
                wait_until(lambda: texts & set(agent.texts()) == {self.TEXTS[kind]},  # noqa: B023
                           f"the text of {kind} stands alone")
            window = window or agent.window()
            self.assertEqual(window, agent.window(), "the same window, always")
            self.assertEqual(1, len(agent.visible_windows()))

    @takes(9)
    def test_countdown_of_a_replaced_casb_notice_goes_on_and_ends_the_process(self):
        server = ActivityServer()
        self.addCleanup(server.close)
        agent = self.launch()
        self.post_casb(timeout="7", rows=THREE_ROWS, ok_url=server.url("/old"))
        begun = agent.log.wait_for("info", Starts("Parsing successful")).moment
        self.post(WebSocketType=True, MaintenanceMessageKey="over it")
        agent.wait_text("over it")
        wait_until(lambda: server.requests, "the old countdown requests its URL")
        self.assert_near(server.requests[0].moment - begun, 2, "request")
        # The old countdown reaches 0 at 7 s, and has no window any more to hide.
        wait_until(lambda: time.time() - begun > 7.1, "the old countdown has reached 0")
        holds_for(agent.visible, begun + 7.7 - time.time(), "the replaced notice's countdown hid the new notice")
        self.assert_near(self.assert_ended(agent) - begun, 8, "end by the old countdown")
