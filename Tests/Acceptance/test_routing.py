"""Which notice a message chooses, and what it logs on the way."""

import itertools
import time

import dbus

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

    def test_flags_of_another_type_are_false(self):
        agent = self.launch()
        agent.log.wait_for(*LAUNCHED[-1])
        for value in ("true", "1", b"\x01", 1.5, ["true"],
                      dbus.Dictionary({"value": True}, signature="sv", variant_level=1),
                      dbus.Array([dbus.Boolean(True)], signature="b", variant_level=1)):
            with self.subTest(value=value):
                if isinstance(value, list) and not isinstance(value, dbus.Array):
                    value = dbus.Array(value, signature="s", variant_level=1)
                before = len(agent.log.pairs())
                self.post(**dict.fromkeys(FLAGS, value))
                self.assert_log(agent, received(), after=before)
                self.after_message(agent)
                self.assertEqual(before + 6, len(agent.log.pairs()))
        self.assertEqual([], agent.visible_windows())

    def test_message_without_user_info(self):
        agent = self.launch()
        self.bus.emit("ss", f"{self.brand}_socketMessageNotifier", "")
        self.assert_log(agent, received(user_info="Message from Sase Client APP: \n nil"))
        self.assert_stays_hidden(agent, 0.3)
        self.assertEqual(len(LAUNCHED) + 3, len(agent.log.pairs()))

    def test_message_with_empty_user_info(self):
        agent = self.launch()
        self.post()
        self.assert_log(agent, received())
        self.assertNotEqual("Message from Sase Client APP: \n nil", agent.log.pairs()[3][1])

    def test_unparseable_response_ends_the_process(self):
        for text in ("no xml at all", "", "<zelvik-secure-access><notifications></zelvik-secure-access>",
                     notice_xml() + "<second/>"):
            with self.subTest(text=text):
                bundle = self.new_bundle()
                self.screen.watch_maps()
                agent = self.launch(bundle)
                self.post(f"{bundle.log_folder_name}_socketMessageNotifier", webSocketResponse=text)
                self.assert_ended(agent)
                self.assert_log(agent, received(), ("error", f"Unable to parse xml string : {text}"))
                self.assertEqual([], self.screen.maps(), "windows mapped")

    def test_any_object_is_accepted(self):
        agent = self.launch()
        self.post(sender_object="com.example.sender", WebSocketType=True, MaintenanceMessageKey="with object")
        agent.wait_text("with object")

    def test_other_names_are_not_for_this_agent(self):
        agent = self.launch()
        for name in ("_socketMessageNotifier", f"{self.brand}_socketMessageNotifier2", self.brand, "",
                     f"x{self.brand}_socketMessageNotifier", f"{self.brand}_SocketMessageNotifier"):
            self.post(name, WebSocketType=True)
        self.after_message(agent)
        self.assertEqual(1, agent.log.count("info", "Message received from Main APP."))


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

    @takes(6)
    def test_every_notice_replaces_every_other_in_the_same_window(self):
        agent = self.launch()
        walk = [kind for pair in itertools.product(self.MESSAGES, repeat=2) for kind in pair]
        window = None
        texts = set(self.TEXTS.values())
        for step, kind in enumerate(walk):
            self.post(**self.MESSAGES[kind])
            agent.wait_visible()
            if kind == "re-authentication":
                wait_until(lambda: not texts & set(agent.texts()) and agent.texts(),
                           f"the texts of the notice before step {step} of {walk} are gone")
            else:
                wait_until(lambda: texts & set(agent.texts()) == {self.TEXTS[kind]},
                           f"the text of step {step} of {walk} stands alone")
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
