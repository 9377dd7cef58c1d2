"""The re-authentication notice: countdown, the one signal, the end."""

import time

from desktop import wait_until
from harness import (ACCENT, DEFAULT_HEADER, WHITE, NoticeTestCase, Starts, png, received, takes)

SENDING = ("info", "Sending Re-Auth Notification to Main App from Socket app")


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
        agent.wait_hidden(0.7)
        posted = self.assert_one_signal(agent)
        self.assert_near(posted - pressed, 0.05, "OK to signal")
        self.assertTrue(agent.running())
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

    @takes(34)
    def test_replaced_notice_still_posts_and_ends(self):
        agent = self.show()
        begun = agent.log.wait_for("debug", Starts(" Auto Disconnect Notification received")).moment
        self.post(WebSocketType=True, MaintenanceMessageKey="over it")
        agent.wait_text("over it")
        wait_until(lambda: time.time() - begun > 30.4, "the old countdown has reached 0", 35)
        self.assertTrue(agent.visible(), "the replaced notice's countdown hid the new notice")
        posted = self.assert_one_signal(agent)
        self.assert_near(posted - begun, 31, "set-up to signal")
        self.assert_near(self.assert_ended(agent) - posted, 1, "signal to end")

    @takes(2)
    def test_texts_of_the_countdown_are_english_in_every_language(self):
        self.bundle.table("de", {"This window will auto close in": "Schließt in",
                                 "This window will auto close in ": "Schließt in ", "seconds": "Sekunden"})
        agent = self.show(webSocketappLanguageKey="de")
        agent.log.wait_for("info", "Bundle Language View de")
        agent.wait_countdown(30)

    @takes(3)
    def test_name_of_the_signal_follows_the_vendor(self):
        self.bundle.settings(Vendor="KORVANE")
        agent = self.show()
        agent.press_ok()
        self.assert_one_signal(agent, "KORVANE")
        self.assert_ended(agent)

    @takes(3)
    def test_vendor_at_the_first_use_counts(self):
        agent = self.show()
        self.bundle.settings(Vendor="later")
        self.post(WebSocketReAuthType=True)
        agent.log.wait_for("info", "Initiating ReAuth Mode..", count=2)
        agent.press_ok()
        self.assert_one_signal(agent, "later")
        self.assert_ended(agent)

    def test_look(self):
        agent = self.show()
        self.assert_header(agent, DEFAULT_HEADER)
        self.assert_pixel(agent, (8, 100), WHITE, "body")
        button = agent.ok_button()
        self.assert_pixel(agent, (button.extents[0] + 10, button.centre()[1]), ACCENT, "OK button")
        self.assertTrue([text for text in agent.texts() if len(text) > 10], "a fixed text")

    def test_logo_of_the_payload(self):
        picture = png((255, 0, 255))
        agent = self.show(HeaderLogoImage=picture)
        agent.log.wait_for("info", f"Setting Logo from Zelvik Sase Client {len(picture)} bytes")
        self.assert_header_logo(agent, (255, 0, 255))

    def test_bytes_that_are_no_image_clear_the_logo(self):
        agent = self.show(HeaderLogoImage=b"\x00" * 5)
        agent.log.wait_for("info", "Setting Logo from Zelvik Sase Client 5 bytes")
        self.assert_header_empty(agent, DEFAULT_HEADER)

    def test_configured_logo(self):
        self.bundle.settings(AppLogo="configured")
        self.bundle.image("configured.png", png((0, 180, 0)))
        agent = self.show(HeaderLogoImage="text")
        self.assert_header_logo(agent, (0, 180, 0))
