"""The CASB activity notice: rows, countdown, request, end."""

import http.server
import threading
import time

from harness import RECEIVED, THREE_ROWS, NoticeTestCase, png, takes

SET_UP = ("info", "Parsing successful, Creating Timer Instance to update Auto Close UI")
REQUEST = "Closing Active window , Calling Activity URL: "


class Gateway(http.server.ThreadingHTTPServer):
    """Listens on a free port, and notes the moment and the first line of every request."""

    class Handler(http.server.BaseHTTPRequestHandler):
        def do_GET(self):
            self.server.requests.append((time.time(), self.raw_requestline.rstrip()))
            self.send_response(200)
            self.end_headers()

        def log_message(self, *_arguments):
            pass

    def __init__(self):
        super().__init__(("127.0.0.1", 0), self.Handler)
        self.requests = []
        threading.Thread(target=self.serve_forever, daemon=True).start()

    def url(self, target):
        return f"http://127.0.0.1:{self.server_port}{target}"


class CasbTest(NoticeTestCase):

    def setUp(self):
        super().setUp()
        self.gateway = Gateway()
        self.addCleanup(self.gateway.server_close)
        self.addCleanup(self.gateway.shutdown)

    @takes(9)
    def test_course_of_a_countdown_of_seven(self):
        url = self.gateway.url("/close")
        logo = png((255, 0, 255))
        agent = self.launch()
        xml = self.post_casb(timeout="7", rows=THREE_ROWS, ok_url=url, logo=logo)
        agent.wait_text("Upload blocked by Cloud Access Policy")
        label = agent.wait_countdown(7)
        self.assertTrue(agent.ok_button().enabled)
        begun = agent.log.wait_for(*SET_UP).moment
        seen = agent.follow(label)
        self.assert_counted(seen, 7, begun)
        hidden = [moment for moment, _text, shown in seen if not shown]
        if hidden:  # a tree may drop hidden windows at once
            self.assert_near(hidden[0] - begun, 7, "set-up to hidden")
        self.assert_near(self.assert_ended(agent) - begun, 8, "set-up to end")
        ((requested, _line),) = self.gateway.requests
        self.assert_near(requested - begun, 2, "set-up to request")
        self.assert_log(
            agent, RECEIVED,
            ("debug", f"Parsing websocket response: {xml}"),
            ("info", "Initiating CASB View.."),
            ("info", "CASB Socket Notification Type : CASB Mode Notification..."),
            ("info", "Vendor is zelvik"),
            ("info", "Response received from Zelvik Sase Client..."),
            ("debug", f"Parsing websocket response: {xml}"),
            ("info", f"Setting Logo from Zelvik Sase Client {len(logo)} bytes"),
            SET_UP,
            ("info", REQUEST + url),
            ("debug", "Close Activity Optional(200)"))
        self.assertEqual("zelvik\n", agent.output(), "the vendor word on standard output")

    @takes(3)
    def test_ok_before_the_request_sends_one_and_ends_a_second_later(self):
        url = self.gateway.url("/a/../ok?id=%20[1]")
        agent = self.launch()
        self.post_casb(timeout="20", rows=THREE_ROWS, ok_url=url)
        agent.wait_countdown(20)
        pressed = agent.press_ok()
        agent.wait_hidden()
        self.assert_near(self.assert_ended(agent) - pressed, 1, "OK to end")
        ((requested, line),) = self.gateway.requests
        self.assertEqual(b"GET /a/../ok?id=%20[1] HTTP/1.1", line)
        self.assert_near(requested - pressed, 0.1, "OK to request")
        self.assertEqual(1, agent.log.count("info", REQUEST + url))

    @takes(8)
    def test_countdown_of_a_dismissed_notice_goes_on(self):
        agent = self.launch()
        self.post_casb(timeout="6", rows=THREE_ROWS, ok_url=self.gateway.url("/dismissed"))
        begun = agent.log.wait_for(*SET_UP).moment
        agent.wait_visible()
        agent.click_close()
        agent.wait_hidden()
        self.assert_near(self.assert_ended(agent) - begun, 7, "set-up to end")
        self.assertEqual(1, len(self.gateway.requests))
