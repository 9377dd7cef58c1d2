"""The concurrent-session notice."""

from desktop import holds_for
from harness import ACCENT, WHITE, NoticeTestCase, Starts, notice_xml, png, received, takes

OPENING = [
    ("info", "Initiating Concurrent session view.."),
    ("info", "Concurrent Session Notification Type..."),
]
MISSING = ("error", "Unable to receive Response from Zelvik Sase Client...")


class ConcurrentSessionTest(NoticeTestCase):

    def show(self, xml, **more):
        agent = self.launch()
        self.post(WebSocketAdminDisconnect=True, webSocketResponse=xml, **more)
        agent.wait_visible()
        return agent

    def test_texts_and_log(self):
        xml = notice_xml(head="Signed out", module="Session Control", body="You signed in elsewhere.", timeout="1",
                         rows=[("a", "b")])
        picture = png((255, 0, 255))
        agent = self.show(xml, HeaderLogoImage=picture)
        agent.wait_text("Signed out by Session Control")
        agent.wait_text("You signed in elsewhere.")
        self.assert_log(agent, received(), OPENING,
                        ("info", "Response received from Zelvik Sase Client..."),
                        ("debug", f"Parsing websocket response: {xml}"),
                        ("info", f"Setting Logo from Zelvik Sase Client {len(picture)} bytes"))
        self.assert_header_logo(agent, (255, 0, 255))
        # No countdown, though the document names a time-out.
        holds_for(lambda: agent.running() and agent.visible(), 2.2, "the notice went away")

    def test_missing_elements_are_empty(self):
        agent = self.show(notice_xml(head="Only a head", module=None, body=None))
        agent.wait_text("Only a head by ")

    def test_text_that_is_no_document(self):
        agent = self.show("not a document")
        agent.wait_text(" by ")
        self.assert_log(agent, received(), OPENING,
                        ("info", "Response received from Zelvik Sase Client..."),
                        ("debug", "Parsing websocket response: not a document"))
        self.assertTrue(agent.running())

    def test_missing_response_leaves_the_window_invisible(self):
        for values in ({}, {"webSocketResponse": 7}, {"webSocketResponse": b"<a/>"}):
            with self.subTest(values=values):
                bundle = self.new_bundle()
                agent = self.launch(bundle)
                self.post(f"{bundle.log_folder_name}_socketMessageNotifier", WebSocketAdminDisconnect=True, **values)
                self.assert_log(agent, received(), OPENING, MISSING)
                agent.wait_hidden(2)
                self.assert_stays_hidden(agent, 0.4)
                self.assertTrue(agent.running())
                agent.end()

    def test_missing_response_hides_a_shown_notice(self):
        agent = self.show(notice_xml())
        self.post(WebSocketAdminDisconnect=True)
        agent.log.wait_for(*MISSING)
        agent.wait_hidden()
        self.assert_stays_hidden(agent, 0.3)
        self.post(WebSocketAdminDisconnect=True, webSocketResponse=notice_xml(head="again"))
        agent.wait_visible()
        agent.wait_text("again by Cloud Access Policy")

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

    @takes(2)
    def test_ok_ends_at_once(self):
        agent = self.show(notice_xml())
        pressed = agent.press_ok()
        self.assertLess(self.assert_ended(agent) - pressed, 0.6)
        self.assertEqual([], self.bus.heard)

    def test_header_takes_neither_colour_nor_vendor_from_the_settings(self):
        self.bundle.settings(Vendor="KORVANE", globalAppViewBackgroundColor="#FF0000")
        agent = self.show(notice_xml())
        self.assert_header(agent, ACCENT)
        self.assert_strip(agent, ACCENT)
        self.assert_pixel(agent, (8, 100), WHITE, "body")
        button = agent.ok_button()
        self.assert_pixel(agent, (button.extents[0] + 10, button.centre()[1]), ACCENT, "OK button")

    def test_bytes_that_are_no_image_clear_the_logo(self):
        agent = self.show(notice_xml(), HeaderLogoImage=b"none")
        agent.log.wait_for("info", "Setting Logo from Zelvik Sase Client 4 bytes")
        self.assert_header_empty(agent, ACCENT)

    def test_logo_of_another_type_is_passed_over(self):
        agent = self.show(notice_xml(), HeaderLogoImage="text")
        agent.wait_text("Upload blocked by Cloud Access Policy")
        self.assertEqual(0, agent.log.count("info", Starts("Setting Logo")))

    def test_text_of_the_root_of_another_name_is_empty(self):
        agent = self.show(notice_xml(root="other"))
        agent.wait_text(" by ")
