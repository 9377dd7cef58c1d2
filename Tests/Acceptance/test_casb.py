"""The CASB activity notice: rows, countdown, request, end."""

from activity_server import ActivityServer
from harness import THREE_ROWS, NoticeTestCase, png, received, takes

SET_UP = ("info", "Parsing successful, Creating Timer Instance to update Auto Close UI")
REQUEST = "Closing Active window , Calling Activity URL: "


class CasbTestCase(NoticeTestCase):

    def server(self):
        server = ActivityServer()
        self.addCleanup(server.close)
        return server

    def set_up_moment(self, agent, count=1):
        return agent.log.wait_for(*SET_UP, count=count).moment


class CasbCountdownTest(CasbTestCase):

    @takes(9)
    def test_course_of_a_countdown_of_seven(self):
        server = self.server()
        agent = self.launch()
        xml = self.post_casb(timeout="7", rows=THREE_ROWS, ok_url=server.url("/close"), logo=png((255, 0, 255)))
        agent.wait_text("Upload blocked by Cloud Access Policy")
        label = agent.wait_countdown(7)
        self.assertTrue(agent.ok_button().enabled)
        begun = self.set_up_moment(agent)
        seen = agent.follow(label)
        self.assert_counted(seen, 7, begun)
        hidden = [moment for moment, _text, shown in seen if not shown]
        if hidden:  # a tree may drop hidden windows at once
            self.assert_near(hidden[0] - begun, 7, "set-up to hidden")
        self.assert_near(self.assert_ended(agent) - begun, 8, "set-up to end")
        self.assertEqual(1, len(server.requests))
        self.assert_near(server.requests[0].moment - begun, 2, "set-up to request")
        self.assert_log(
            agent, received(),
            ("debug", f"Parsing websocket response: {xml}"),
            ("info", "Initiating CASB View.."),
            ("info", "CASB Socket Notification Type : CASB Mode Notification..."),
            ("info", "Vendor is zelvik"),
            ("info", "Response received from Zelvik Sase Client..."),
            ("debug", f"Parsing websocket response: {xml}"),
            ("info", f"Setting Logo from Zelvik Sase Client {len(png((255, 0, 255)))} bytes"),
            SET_UP,
            ("info", REQUEST + server.url("/close")),
            ("debug", "Close Activity Optional(200)"))
        self.assertEqual("zelvik\n", agent.output(), "the vendor word on standard output")


class CasbRequestTest(CasbTestCase):

    @takes(3)
    def test_ok_before_the_request_sends_one_and_ends_a_second_later(self):
        server = self.server()
        agent = self.launch()
        self.post_casb(timeout="20", rows=THREE_ROWS, ok_url=server.url("/a/../ok?id=%20[1]"))
        agent.wait_countdown(20)
        pressed = agent.press_ok()
        agent.wait_hidden()
        self.assert_near(self.assert_ended(agent) - pressed, 1, "OK to end")
        self.assertEqual([b"GET /a/../ok?id=%20[1] HTTP/1.1"], [request.line for request in server.requests])
        self.assert_near(server.requests[0].moment - pressed, 0.1, "OK to request")
        self.assertEqual(1, agent.log.count("info", REQUEST + server.url("/a/../ok?id=%20[1]")))
        self.assertEqual(1, agent.log.count("debug", "Close Activity Optional(200)"))
