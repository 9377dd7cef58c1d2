"""Which notice a message chooses, and what it logs on the way."""

import itertools
import time

import dbus

from activity_server import ActivityServer
from desktop import holds_for, wait_until
from harness import LAUNCHED, NoticeTestCase, Starts, THREE_ROWS, notice_xml, png, received, takes

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

    def test_of_two_flags_the_first_in_order_counts(self):
        agent = self.launch()
        logged = len(LAUNCHED)
        for first, second in itertools.combinations(FLAGS, 2):
            with self.subTest(first=first, second=second):
                self.post(**{second: True, first: True})
                self.assert_log(agent, received(), FLAGS[first], after=logged)
                logged += 3 + len(FLAGS[first])

    def test_all_flags_and_a_response_choose_maintenance(self):
        agent = self.launch()
        xml = notice_xml(rows=THREE_ROWS)
        self.post(webSocketResponse=xml, **dict.fromkeys(FLAGS, True))
        self.assert_log(agent, received(), FLAGS["WebSocketType"], ("debug", f"Web Socket XML : {xml}"))
        agent.wait_visible()

    def test_every_flag_goes_before_a_response(self):
        agent = self.launch()
        agent.log.wait_for(*LAUNCHED[-1])
        for flag in FLAGS:
            with self.subTest(flag):
                before = len(agent.log.pairs())
                expected = received() + FLAGS[flag][:2]
                self.post(webSocketResponse=notice_xml(rows=THREE_ROWS), **{flag: True})
                wait_until(lambda: agent.log.pairs()[before:before + 5] == expected, f"the records {expected}")
                self.after_message(agent)
        self.assertEqual(0, agent.log.count("info", "Initiating CASB View.."))

    def test_false_flags_are_passed_over(self):
        agent = self.launch()
        flags = dict.fromkeys(FLAGS, False)
        flags["WebSocketAdminDisconnect"] = True
        self.post(**flags)
        self.assert_log(agent, received(), FLAGS["WebSocketAdminDisconnect"])

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

    def test_text_flag_does_not_hide_a_response(self):
        agent = self.launch()
        self.post(webSocketResponse=notice_xml(), WebSocketType="true")
        agent.log.wait_for("info", "Initiating CASB View..")
        agent.wait_visible()

    def test_flag_message_never_checks_the_response(self):
        for flag in FLAGS:
            with self.subTest(flag):
                agent = self.launch()
                self.post(webSocketResponse="<not xml", AutoDisconnectVPNStatus=False, **{flag: True})
                agent.log.wait_for(*FLAGS[flag][1])
                agent.wait_visible()
                self.after_message(agent)
                self.assertTrue(agent.running())
                self.assertEqual(0, agent.log.count("error", Starts("")))
                agent.end()

    def test_message_without_flag_and_response_shows_and_logs_nothing_more(self):
        agent = self.launch()
        self.post(MaintenanceMessageKey="text", AutoDisconnectVPNStatus=True, HeaderLogoImage=png((1, 2, 3)))
        self.assert_log(agent, received())
        self.assert_stays_hidden(agent, 0.4)
        self.assertEqual(len(LAUNCHED) + 3, len(agent.log.pairs()))

    def test_response_that_is_no_string_shows_and_logs_nothing_more(self):
        agent = self.launch()
        for value in (7, True, b"<a/>"):
            self.post(webSocketResponse=value)
        agent.log.wait_for("info", "Bundle Language View en", 3)
        self.assert_stays_hidden(agent, 0.3)
        self.assertEqual(received() * 3, agent.log.pairs()[len(LAUNCHED):])

    def test_message_without_flag_leaves_the_notice_on_the_screen(self):
        agent = self.launch()
        self.post(WebSocketType=True, MaintenanceMessageKey="stays")
        agent.wait_text("stays")
        self.post(MaintenanceMessageKey="nobody reads this")
        self.after_message(agent)
        self.assertIn("stays", agent.texts())

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

    def test_user_info_is_readable_in_the_log(self):
        agent = self.launch()
        self.post(MaintenanceMessageKey="some text", AutoDisconnectVPNStatus=True, number=4711, other=1.5)
        record = agent.log.wait_for("debug", Starts("Message from Sase Client APP: \n "))
        for word in ("MaintenanceMessageKey", "some text", "AutoDisconnectVPNStatus", "number", "4711", "other"):
            self.assertIn(word, record.message)

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

    def test_unparseable_response_ends_the_process_over_a_shown_notice(self):
        agent = self.launch()
        self.post(WebSocketType=True, MaintenanceMessageKey="shown")
        agent.wait_visible()
        self.post(webSocketResponse="<a>")
        self.assert_ended(agent)
        self.assertEqual(("error", "Unable to parse xml string : <a>"), agent.log.pairs()[-1])

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
                agent.wait_text(self.TEXTS[kind])
                self.assertEqual({self.TEXTS[kind]}, texts & set(agent.texts()))
            window = window or agent.window()
            self.assertEqual(window, agent.window(), "the same window, always")
            self.assertEqual(1, len(agent.visible_windows()))

    def test_payload_is_replaced_whole(self):
        self.bundle.settings(AppLogo="configured")
        self.bundle.image("configured.png", png((0, 180, 0)))
        agent = self.launch()
        self.post(WebSocketType=True, MaintenanceMessageKey="first", webSocketResponse="<a/>",
                  HeaderLogoImage=png((200, 0, 200)))
        agent.wait_text("first")
        self.assert_header_logo(agent, (200, 0, 200))
        self.post(WebSocketType=True)
        wait_until(lambda: "first" not in agent.texts(), "the first message's text is gone")
        self.assert_header_logo(agent, (0, 180, 0))
        self.assertEqual(1, agent.log.count("debug", Starts("Web Socket XML : ")))

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
        holds_for(agent.visible, 0.5, "the replaced notice's countdown hid the new notice")
        self.assert_near(self.assert_ended(agent) - begun, 8, "end by the old countdown")

    @takes(3)
    def test_message_after_ok_is_shown_for_what_is_left_of_the_second(self):
        agent = self.launch()
        self.post_casb(timeout="60", rows=THREE_ROWS)
        agent.wait_text("Upload")
        pressed = agent.press_ok()
        agent.wait_hidden(0.7)
        self.post(WebSocketType=True, MaintenanceMessageKey="late")
        wait_until(agent.visible, "the late notice is shown", 0.5)
        self.assert_near(self.assert_ended(agent) - pressed, 1, "OK to end")

    @takes(5)
    def test_earlier_of_two_countdowns_ends_the_process(self):
        agent = self.launch()
        self.post_casb(timeout="3", rows=THREE_ROWS)
        begun = agent.log.wait_for("info", Starts("Parsing successful")).moment
        self.post_casb(timeout="60", rows=THREE_ROWS, body="second")
        agent.wait_countdown(60)
        self.assert_near(self.assert_ended(agent) - begun, 4, "end by the first countdown")
