"""The auto-disconnect notice, with the VPN still up and without."""

from desktop import holds_for
from harness import (ACCENT, DEFAULT_HEADER, NoticeTestCase, Starts, png, received, takes)

# No blank before the last word: the joining is deliberate.
COUNTDOWN = "This window will auto close in {}seconds"


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
        label = agent.wait_countdown(30, COUNTDOWN)
        seen = agent.follow(label)
        ended = self.assert_ended(agent)
        self.assert_counted(seen, 30, begun, COUNTDOWN)
        # Ends at once at the tick after 0, not a second later as the re-authentication notice does.
        self.assert_near(ended - begun, 31, "set-up to end")
        self.assertEqual([], self.bus.heard)
        self.assert_log(agent, received(),
                        ("info", "Initiating Auto Disconnect Mode View.."),
                        ("info", "Web Socket Notification Type : Auto Disconnect Notification..."),
                        ("debug", Starts(" Auto Disconnect Notification received from Zelvik Sase Client ")),
                        ("info", "VPN Connection Status :  true"))
        self.assertTrue(agent.log.pairs()[7][1].endswith("..."), agent.log.pairs()[7])

    @takes(3)
    def test_disconnected_has_no_countdown_and_stays(self):
        agent = self.show(AutoDisconnectVPNStatus=False, AutoDisconnectMessageKey="It is over.")
        agent.log.wait_for("info", "VPN Connection Status :  false")
        agent.wait_text("VPN Disconnected")
        agent.wait_text("It is over.")
        holds_for(lambda: agent.running() and agent.visible(), 1.5, "the notice went away")
        self.assertFalse([text for text in agent.texts() if text.startswith("This window")])
        self.assertNotIn("Attention", agent.texts())

    def test_status_that_is_no_boolean_counts_as_disconnected(self):
        for status in ("true", 1.5, b"\x01", None):
            with self.subTest(status=status):
                bundle = self.new_bundle()
                agent = self.launch(bundle)
                values = {} if status is None else {"AutoDisconnectVPNStatus": status}
                self.post(f"{bundle.log_folder_name}_socketMessageNotifier", AutoDisconnectWebSocketType=True, **values)
                agent.log.wait_for("info", "VPN Connection Status :  false")
                agent.wait_text("VPN Disconnected")
                agent.end()

    def test_message_that_is_no_string_is_empty(self):
        agent = self.show(AutoDisconnectMessageKey=4711)
        agent.wait_text("VPN Disconnected")
        self.assertNotIn("4711", agent.texts())

    @takes(2)
    def test_ok_while_disconnected(self):
        agent = self.show()
        pressed = agent.press_ok()
        agent.wait_hidden(0.7)
        self.assert_near(self.assert_ended(agent) - pressed, 1, "OK to end")
        self.assertEqual([], self.bus.heard)
        self.assertEqual(("info", "VPN Connection Status :  false"), agent.log.pairs()[-1])

    @takes(3)
    def test_ok_while_counting(self):
        agent = self.show(AutoDisconnectVPNStatus=True)
        agent.wait_countdown(30, COUNTDOWN)
        pressed = agent.press_ok()
        agent.wait_hidden(0.7)
        self.assert_near(self.assert_ended(agent) - pressed, 1, "OK to end")
        self.assertEqual([], self.bus.heard)
        self.assertEqual(("info", "VPN Connection Status :  true"), agent.log.pairs()[-1])

    @takes(2)
    def test_texts_of_the_language(self):
        self.bundle.table("de", {"Attention": "Achtung", "VPN Disconnected": "VPN getrennt",
                                 "This window will auto close in": "Dieses Fenster schließt in",
                                 "seconds": " Sekunden"})
        agent = self.show(AutoDisconnectVPNStatus=True, webSocketappLanguageKey="de")
        agent.wait_text("Achtung")
        agent.wait_countdown(30, "Dieses Fenster schließt in {} Sekunden")
        self.post(AutoDisconnectWebSocketType=True, webSocketappLanguageKey="de", AutoDisconnectMessageKey="Attention")
        agent.wait_text("VPN getrennt")
        agent.wait_text("Attention")  # the message itself is never translated

    def test_look_and_logo(self):
        picture = png((255, 0, 255))
        agent = self.show(HeaderLogoImage=picture)
        agent.log.wait_for("info", f"Setting Logo from Zelvik Sase Client {len(picture)} bytes")
        self.assert_header(agent, DEFAULT_HEADER)
        self.assert_header_logo(agent, (255, 0, 255))
        button = agent.ok_button()
        self.assert_pixel(agent, (button.extents[0] + 10, button.centre()[1]), ACCENT, "OK button")
        levels = [pair for pair in agent.log.pairs() if pair[1].startswith(("Setting", "VPN"))]
        self.assertEqual([("info", f"Setting Logo from Zelvik Sase Client {len(picture)} bytes"),
                          ("info", "VPN Connection Status :  false")], levels)
