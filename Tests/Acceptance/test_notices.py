"""One road of each notice but the CASB one, from the message to the end of the process."""

from desktop import holds_for, wait_until
from harness import NoticeTestCase, Starts, notice_xml, png, received, takes

SENDING = ("info", "Sending Re-Auth Notification to Main App from Socket app")
# No blank before the last word: the joining is deliberate.
NO_BLANK = "This window will auto close in {}seconds"


class ReAuthenticationTest(NoticeTestCase):

    def show(self, **more):
        agent = self.launch()
        self.post(WebSocketReAuthType=True, **more)
        agent.wait_visible()
        return agent

    def assert_one_signal(self, agent, vendor="zelvik"):
        """Exactly one, with exactly name and empty object, heard before the process ended."""
        wait_until(lambda: self.bus.heard, "the agent posts")
        self.assertEqual(1, len(self.bus.heard))
        posted = self.bus.heard[0]
        self.assertEqual("ss", posted.signature)
        self.assertEqual([f"{vendor}_webSocketToMainAppNotifier", ""], posted.arguments)
        return posted.moment

    @takes(3)
    def test_ok_posts_once_and_ends_a_second_later(self):
        agent = self.show()
        agent.wait_countdown(30)
        pressed = agent.press_ok()
        agent.wait_hidden()
        posted = self.assert_one_signal(agent)
        self.assert_near(posted - pressed, 0.05, "OK to signal")
        self.assert_near(self.assert_ended(agent) - pressed, 1, "OK to end")
        self.assert_one_signal(agent)
        self.assert_log(agent, received(),
                        ("info", "Initiating ReAuth Mode.."),
                        ("info", "CASB Socket Notification Type : CASB Mode Notification..."),
                        ("debug", Starts(" Auto Disconnect Notification received from Zelvik Sase Client ")),
                        SENDING)
        self.assertTrue(agent.log.pairs()[7][1].endswith("..."), agent.log.pairs()[7])

    @takes(34)
    def test_course_of_the_whole_countdown(self):
        agent = self.show()
        begun = agent.log.wait_for("debug", Starts(" Auto Disconnect Notification received")).moment
        label = agent.wait_countdown(30)
        self.assertTrue(agent.ok_button().enabled)
        seen = agent.follow(label)
        ended = self.assert_ended(agent)
        self.assert_counted(seen, 30, begun)
        hidden = [moment for moment, _text, shown in seen if not shown]
        if hidden:
            self.assert_near(hidden[0] - begun, 30, "set-up to hidden")
        posted = self.assert_one_signal(agent)
        self.assert_near(posted - begun, 31, "set-up to signal")
        self.assert_near(ended - posted, 1, "signal to end")
        self.assertEqual(1, agent.log.count(*SENDING))
        self.assertEqual(SENDING, agent.log.pairs()[-1])


class AutoDisconnectTest(NoticeTestCase):

    def show(self, **more):
        agent = self.launch()
        self.post(AutoDisconnectWebSocketType=True, **more)
        agent.wait_visible()
        return agent

    @takes(33)
    def test_course_of_the_whole_countdown(self):
        agent = self.show(AutoDisconnectVPNStatus=True, AutoDisconnectMessageKey="Policy says so.")
        begun = agent.log.wait_for("info", "VPN Connection Status :  true").moment
        agent.wait_text("Attention")
        agent.wait_text("Policy says so.")
        label = agent.wait_countdown(30, NO_BLANK)
        seen = agent.follow(label)
        ended = self.assert_ended(agent)
        self.assert_counted(seen, 30, begun, NO_BLANK)
        # Ends at once at the tick after 0, not a second later as the re-authentication notice does.
        self.assert_near(ended - begun, 31, "set-up to end")
        self.assertEqual([], self.bus.heard)
        self.assert_log(agent, received(),
                        ("info", "Initiating Auto Disconnect Mode View.."),
                        ("info", "Web Socket Notification Type : Auto Disconnect Notification..."),
                        ("debug", Starts(" Auto Disconnect Notification received from Zelvik Sase Client ")),
                        ("info", "VPN Connection Status :  true"))
        self.assertTrue(agent.log.pairs()[7][1].endswith("..."), agent.log.pairs()[7])

    @takes(4)
    def test_disconnected_it_stays_until_ok(self):
        agent = self.show(AutoDisconnectVPNStatus=False, AutoDisconnectMessageKey="It is over.")
        agent.log.wait_for("info", "VPN Connection Status :  false")
        agent.wait_text("VPN Disconnected")
        agent.wait_text("It is over.")
        holds_for(lambda: agent.running() and agent.visible(), 1.5, "the notice went away")
        self.assertFalse([text for text in agent.texts() if text.startswith("This window")])
        pressed = agent.press_ok()
        agent.wait_hidden()
        self.assert_near(self.assert_ended(agent) - pressed, 1, "OK to end")
        self.assertEqual(("info", "VPN Connection Status :  false"), agent.log.pairs()[-1])


class ConcurrentSessionTest(NoticeTestCase):

    def show(self, xml, **more):
        agent = self.launch()
        self.post(WebSocketAdminDisconnect=True, webSocketResponse=xml, **more)
        agent.wait_visible()
        return agent

    @takes(4)
    def test_texts_log_and_ok(self):
        xml = notice_xml(head="Signed out", module="Session Control", body="You signed in elsewhere.", timeout="1",
                         rows=[("a", "b")])
        picture = png((255, 0, 255))
        agent = self.show(xml, HeaderLogoImage=picture)
        agent.wait_text("Signed out by Session Control")
        agent.wait_text("You signed in elsewhere.")
        self.assert_log(agent, received(),
                        ("info", "Initiating Concurrent session view.."),
                        ("info", "Concurrent Session Notification Type..."),
                        ("info", "Response received from Zelvik Sase Client..."),
                        ("debug", f"Parsing websocket response: {xml}"),
                        ("info", f"Setting Logo from Zelvik Sase Client {len(picture)} bytes"))
        self.assert_header_logo(agent, (255, 0, 255))
        # No countdown, though the document names a time-out.
        holds_for(lambda: agent.running() and agent.visible(), 2.2, "the notice went away")
        agent.press_ok()
        self.assert_ended(agent)
        self.assertEqual([], self.bus.heard)

    def test_invisible_notice_cannot_be_clicked(self):
        below = self.screen.plain_window(700, 0, 580, 600)
        agent = self.show(notice_xml())
        x, y = agent.ok_button().centre()
        left, top, _width, _height = agent.geometry()
        self.post(WebSocketAdminDisconnect=True)
        agent.wait_hidden()
        self.screen.click(left + x, top + y)
        holds_for(agent.running, 0.5, "the click reached an invisible notice")
        below.destroy()


class MaintenanceTest(NoticeTestCase):

    def show(self, **values):
        agent = self.launch()
        self.post(WebSocketType=True, **values)
        agent.wait_visible()
        return agent

    @takes(2)
    def test_text_logo_log_and_ok(self):
        picture = png((255, 0, 255))
        xml = notice_xml(body="not shown")
        agent = self.show(MaintenanceMessageKey="Back at 23:30.", webSocketResponse=xml, HeaderLogoImage=picture)
        agent.wait_text("Back at 23:30.")
        self.assertNotIn("not shown", agent.texts())
        self.assert_header_logo(agent, (255, 0, 255))
        self.assert_log(agent, received(),
                        ("info", "Initiating Maintenance Mode View.."),
                        ("info", "Web Socket Notification Type : Maintenance Mode Notification..."),
                        ("debug", f"Web Socket XML : {xml}"),
                        ("info", f"Setting Logo from Zelvik Sase Client {len(picture)} bytes"))
        agent.press_ok()
        self.assert_ended(agent)
        self.assertEqual([], self.bus.heard)
