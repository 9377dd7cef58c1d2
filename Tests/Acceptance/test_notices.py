"""One road of each notice but the CASB one, from the message to the end of the process."""

from desktop import wait_until
from harness import RECEIVED, NoticeTestCase, Starts, notice_xml, png, takes

SENDING = ("info", "Sending Re-Auth Notification to Main App from Socket app")
# No blank before the last word: the joining is deliberate.
NO_BLANK = "This window will auto close in {}seconds"
LOGO = png((255, 0, 255))
LOGO_RECORD = ("info", f"Setting Logo from Zelvik Sase Client {len(LOGO)} bytes")


class ReAuthenticationTest(NoticeTestCase):

    def show(self):
        agent = self.launch()
        self.post(WebSocketReAuthType=True)
        return agent

    def assert_one_signal(self):
        """Exactly one, with exactly name and empty object, heard before the process ended."""
        wait_until(lambda: self.bus.heard, "the agent posts")
        (posted,) = self.bus.heard
        self.assertEqual("ss", posted.signature)
        self.assertEqual(["zelvik_webSocketToMainAppNotifier", ""], posted.arguments)
        return posted.moment

    @takes(3)
    def test_ok_posts_once_and_ends_a_second_later(self):
        agent = self.show()
        agent.wait_countdown(30)
        pressed = agent.press_ok()
        agent.wait_hidden()
        posted = self.assert_one_signal()
        self.assert_near(posted - pressed, 0.05, "OK to signal")
        self.assert_near(self.assert_ended(agent) - pressed, 1, "OK to end")
        self.assert_one_signal()
        self.assert_log(agent, RECEIVED,
                        ("info", "Initiating ReAuth Mode.."),
                        ("info", "CASB Socket Notification Type : CASB Mode Notification..."),
                        ("debug", Starts(" Auto Disconnect Notification received from Zelvik Sase Client ")),
                        SENDING)

    @takes(34)
    def test_course_of_the_whole_countdown(self):
        agent = self.show()
        begun = agent.log.wait_for("debug", Starts(" Auto Disconnect Notification received")).moment
        label = agent.wait_countdown(30)
        self.assertTrue(agent.ok_button().enabled)
        seen = agent.follow(label)
        ended = self.assert_ended(agent)
        self.assert_counted(seen, 30, begun)
        posted = self.assert_one_signal()
        self.assert_near(posted - begun, 31, "set-up to signal")
        self.assert_near(ended - posted, 1, "signal to end")
        self.assertEqual(1, agent.log.count(*SENDING))


class OtherNoticesTest(NoticeTestCase):

    def assert_ends_by_ok(self, agent, after=0):
        pressed = agent.press_ok()
        self.assert_near(self.assert_ended(agent) - pressed, after, "OK to end")
        self.assertEqual([], self.bus.heard)

    @takes(4)
    def test_auto_disconnect(self):
        agent = self.launch()
        self.post(AutoDisconnectWebSocketType=True, AutoDisconnectVPNStatus=False,
                  AutoDisconnectMessageKey="It is over.")
        agent.wait_text("VPN Disconnected")
        agent.wait_text("It is over.")
        self.assertFalse([text for text in agent.texts() if text.startswith("This window")])
        self.post(AutoDisconnectWebSocketType=True, AutoDisconnectVPNStatus=True,
                  AutoDisconnectMessageKey="Policy says so.")
        agent.wait_text("Attention")
        agent.wait_text("Policy says so.")
        agent.wait_countdown(30, NO_BLANK)
        self.assert_ends_by_ok(agent, after=1)
        records = [("info", "Initiating Auto Disconnect Mode View.."),
                   ("info", "Web Socket Notification Type : Auto Disconnect Notification..."),
                   ("debug", Starts(" Auto Disconnect Notification received from Zelvik Sase Client "))]
        self.assert_log(agent, RECEIVED, records, ("info", "VPN Connection Status :  false"),
                        RECEIVED, records, ("info", "VPN Connection Status :  true"))

    @takes(3)
    def test_concurrent_session(self):
        xml = notice_xml(head="Signed out", module="Session Control", body="You signed in elsewhere.", timeout="1",
                         rows=[("a", "b")])
        agent = self.launch()
        self.post(WebSocketAdminDisconnect=True, webSocketResponse=xml, HeaderLogoImage=LOGO)
        agent.wait_text("Signed out by Session Control")
        agent.wait_text("You signed in elsewhere.")
        self.assert_header_logo(agent, (255, 0, 255))
        self.assert_ends_by_ok(agent)
        self.assert_log(agent, RECEIVED,
                        ("info", "Initiating Concurrent session view.."),
                        ("info", "Concurrent Session Notification Type..."),
                        ("info", "Response received from Zelvik Sase Client..."),
                        ("debug", f"Parsing websocket response: {xml}"),
                        LOGO_RECORD)

    @takes(3)
    def test_maintenance(self):
        xml = notice_xml(body="not shown")
        agent = self.launch()
        self.post(WebSocketType=True, MaintenanceMessageKey="Back at 23:30.", webSocketResponse=xml,
                  HeaderLogoImage=LOGO)
        agent.wait_text("Back at 23:30.")
        self.assertNotIn("not shown", agent.texts())
        self.assert_header_logo(agent, (255, 0, 255))
        self.assert_ends_by_ok(agent)
        self.assert_log(agent, RECEIVED,
                        ("info", "Initiating Maintenance Mode View.."),
                        ("info", "Web Socket Notification Type : Maintenance Mode Notification..."),
                        ("debug", f"Web Socket XML : {xml}"),
                        LOGO_RECORD)
