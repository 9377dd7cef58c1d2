"""The maintenance notice."""

from desktop import wait_until
from harness import (ACCENT, BLACK, DEFAULT_HEADER, WHITE, NoticeTestCase, Starts, notice_xml, png, received, takes)

OPENING = [
    ("info", "Initiating Maintenance Mode View.."),
    ("info", "Web Socket Notification Type : Maintenance Mode Notification..."),
]


class MaintenanceTest(NoticeTestCase):

    def show(self, **values):
        agent = self.launch()
        self.post(WebSocketType=True, **values)
        agent.wait_visible()
        return agent

    def test_text_without_response_logs_nothing_more(self):
        self.bundle.settings(AppLogo="configured")
        self.bundle.image("configured.png", png((0, 180, 0)))
        # The payload's logo counts only beside a response.
        agent = self.show(MaintenanceMessageKey="Back at 23:30.", HeaderLogoImage=png((255, 0, 255)))
        agent.wait_text("Back at 23:30.")
        self.assert_header_logo(agent, (0, 180, 0))
        self.assert_log(agent, received(), OPENING)

    def test_text_with_response_and_logo(self):
        picture = png((255, 0, 255))
        xml = notice_xml(body="not shown")
        agent = self.show(MaintenanceMessageKey="Back at 23:30.", webSocketResponse=xml, HeaderLogoImage=picture)
        agent.wait_text("Back at 23:30.")
        self.assertNotIn("not shown", agent.texts())
        self.assert_header_logo(agent, (255, 0, 255))
        self.assert_log(agent, received(), OPENING, ("debug", f"Web Socket XML : {xml}"),
                        ("info", f"Setting Logo from Zelvik Sase Client {len(picture)} bytes"))

    def test_response_that_is_no_document_is_only_logged(self):
        agent = self.show(MaintenanceMessageKey="text", webSocketResponse="<oops")
        agent.wait_text("text")
        self.assert_log(agent, received(), OPENING, ("debug", "Web Socket XML : <oops"))

    def test_response_that_is_no_string_counts_as_absent(self):
        agent = self.show(MaintenanceMessageKey="text", webSocketResponse=5, HeaderLogoImage=png((255, 0, 255)))
        agent.wait_text("text")
        self.assert_log(agent, received(), OPENING)

    def test_bytes_that_are_no_image_clear_the_logo(self):
        agent = self.show(webSocketResponse="", HeaderLogoImage=b"")
        agent.log.wait_for("info", "Setting Logo from Zelvik Sase Client 0 bytes")
        self.assert_header_empty(agent, DEFAULT_HEADER)

    def test_missing_or_mistyped_text_is_empty_and_shown_all_the_same(self):
        agent = self.show()
        agent.ok_button()
        self.post(WebSocketType=True, MaintenanceMessageKey="between")
        agent.wait_text("between")
        self.post(WebSocketType=True, MaintenanceMessageKey=4711)
        wait_until(lambda: "between" not in agent.texts(), "the text is empty")
        self.assertNotIn("4711", agent.texts())
        self.assertTrue(agent.visible())
        self.assertEqual(0, agent.log.count("error", Starts("")))

    @takes(2)
    def test_ok_ends_at_once(self):
        agent = self.show(MaintenanceMessageKey="text")
        pressed = agent.press_ok()
        self.assertLess(self.assert_ended(agent) - pressed, 0.6)
        self.assertEqual([], self.bus.heard)

    def test_vendor_rule(self):
        agent = self.launch()
        for vendor, color in (("KORVANE", BLACK), ("korvane", ACCENT), ("KORVANE ", ACCENT), ("zelvik", ACCENT)):
            with self.subTest(vendor=vendor):
                self.bundle.settings(Vendor=vendor)
                self.post(WebSocketType=True, MaintenanceMessageKey=f"of {vendor}")
                agent.wait_text(f"of {vendor}")
                agent.wait_visible()
                self.assert_strip(agent, color)
                self.assert_header(agent, DEFAULT_HEADER)
        self.assertEqual("", agent.output(), "only the CASB notice writes the vendor word")

    def test_look(self):
        agent = self.show(MaintenanceMessageKey="text")
        self.assert_pixel(agent, (8, 100), WHITE, "body")
        button = agent.ok_button()
        self.assert_pixel(agent, (button.extents[0] + 10, button.centre()[1]), ACCENT, "OK button")

    def test_text_is_shown_exactly_as_received(self):
        for text in ("  blanks  ", "two\nlines", "&amp; & && <b>", "Ünïcödé 日本語 🛡"):
            with self.subTest(text=text):
                agent = self.agents[0] if self.agents else self.launch()
                self.post(WebSocketType=True, MaintenanceMessageKey=text)
                agent.wait_text(text)
