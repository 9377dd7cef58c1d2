"""The CASB activity notice: rows, countdown, request, end."""

import os
import shutil
import time

from activity_server import ActivityServer, unused_port
from desktop import holds_for, wait_until
from harness import (ACCENT, BLACK, DEFAULT_HEADER, MARGIN, THREE_ROWS, WHITE, WIDTH, NoticeTestCase, Starts, notice_xml, png,
                     received, takes)

SET_UP = ("info", "Parsing successful, Creating Timer Instance to update Auto Close UI")
REQUEST = "Closing Active window , Calling Activity URL: "


class CasbTestCase(NoticeTestCase):

    def server(self, **options):
        server = ActivityServer(**options)
        self.addCleanup(server.close)
        return server

    def set_up_moment(self, agent, count=1):
        return agent.log.wait_for(*SET_UP, count=count).moment


class CasbRowsTest(CasbTestCase):
    """The metadata entries are positional: first = activity, second = application, last = URL."""

    def shown(self, **notice):
        """The texts of the notice, in reading order."""
        agent = self.launch()
        self.post_casb(**notice)
        agent.wait_visible()
        self.set_up_moment(agent)
        agent.wait_text(notice.get("head", "Upload blocked") + " by " + notice.get("module", "Cloud Access Policy"))
        return agent, agent.texts()

    def test_title_and_body(self):
        agent, texts = self.shown(head="Sharing blocked", module="Policy 7", body="Ask your administrator.")
        self.assertIn("Sharing blocked by Policy 7", texts)
        self.assertIn("Ask your administrator.", texts)

    def test_no_entry(self):
        agent, texts = self.shown(timeout="7")
        # The captions are never hidden; the values are empty.
        self.assertIn("Activity", texts)
        self.assertIn("URL", texts)
        self.assertFalse([text for text in texts if text.startswith("This window")], "no countdown runs")

    @takes(3)
    def test_no_entry_runs_no_countdown(self):
        server = self.server()
        agent, _texts = self.shown(timeout="1", ok_url=server.url("/never"))
        holds_for(lambda: agent.visible() and agent.running(), 2.5, "a notice without an activity must stay")
        self.assertEqual([], server.requests)

    def test_one_entry_stands_in_the_activity_and_the_url_row(self):
        agent, texts = self.shown(rows=[("Caption one", "value one")], timeout="60")
        self.assertEqual(2, texts.count("Caption one"))
        self.assertEqual(2, texts.count("value one"))
        agent.wait_countdown(60)

    def test_two_entries_the_second_stands_in_application_and_url(self):
        agent, texts = self.shown(rows=[("Caption one", "value one"), ("Caption two", "value two")], timeout="60")
        self.assertEqual(1, texts.count("value one"))
        self.assertEqual(2, texts.count("Caption two"))
        self.assertEqual(2, texts.count("value two"))

    def test_three_entries(self):
        agent, texts = self.shown(
            rows=[("Tätigkeit", "Hochladen"), ("Anwendung", "Beispiel"), ("Adresse", "https://b.example/")],
            timeout="60")
        for text in ("Tätigkeit", "Hochladen", "Anwendung", "Beispiel", "Adresse", "https://b.example/"):
            self.assertEqual(1, texts.count(text), text)
        places = {element.text: element.extents[1] for element in agent.elements()}
        self.assertLess(places["Hochladen"], places["Beispiel"])
        self.assertLess(places["Beispiel"], places["https://b.example/"])

    def test_four_entries_the_third_is_not_shown(self):
        agent, texts = self.shown(
            rows=[("c1", "v1"), ("c2", "v2"), ("c3", "v3"), ("c4", "v4")], timeout="60")
        for text in ("c1", "v1", "c2", "v2", "c4", "v4"):
            self.assertEqual(1, texts.count(text), text)
        self.assertFalse({"c3", "v3"} & set(texts))

    def test_entry_without_value_keeps_its_place(self):
        agent, texts = self.shown(rows=[("c1", "v1"), ("c2", None), ("c3", "v3")], timeout="60")
        self.assertEqual(1, texts.count("v1"))
        self.assertEqual(1, texts.count("v3"))
        agent.wait_countdown(60)

    def test_entry_without_name_gives_an_empty_caption(self):
        agent, texts = self.shown(rows=[(None, "v1"), ("c2", "v2"), (None, "v3")], timeout="60")
        for text in ("v1", "c2", "v2", "v3"):
            self.assertEqual(1, texts.count(text), text)
        self.assertFalse({"Activity", "URL"} & set(texts), "the default captions are for a list without entries")

    def test_empty_activity_hides_the_url_and_runs_no_countdown(self):
        agent, texts = self.shown(rows=[("c1", ""), ("c2", "v2"), ("c3", "v3")], timeout="1")
        self.assertIn("v2", texts)
        self.assertIn("c1", texts)
        self.assertIn("c3", texts)
        self.assertNotIn("v3", texts)
        holds_for(lambda: agent.visible() and agent.running(), 1.5, "no countdown may run")

    def test_empty_rows_make_the_notice_lower(self):
        heights = []
        for rows in (THREE_ROWS, ()):
            bundle = self.new_bundle()
            agent = self.launch(bundle)
            self.post(f"{bundle.log_folder_name}_socketMessageNotifier",
                      webSocketResponse=notice_xml(rows=rows, timeout="60"))
            agent.wait_text("Upload blocked by Cloud Access Policy")
            agent.wait_visible()
            heights.append(agent.geometry()[3])
            agent.end()
        self.assertLess(heights[1], heights[0])

    def test_document_without_head_and_module(self):
        agent, texts = self.shown(head="", module="")
        self.assertIn(" by ", texts)

    def test_root_of_another_name_gives_all_defaults(self):
        agent = self.launch()
        self.post_casb(root="other", rows=THREE_ROWS, timeout="60")
        agent.wait_visible()
        self.set_up_moment(agent)
        agent.wait_text(" by ")
        texts = agent.texts()
        self.assertIn("Activity", texts)
        self.assertNotIn("Upload", texts)

    def test_ways_to_write_a_text(self):
        agent = self.launch()
        self.post(webSocketResponse='<?xml version="1.0" encoding="UTF-8"?>\n<!-- note -->\n'
                                    '<zelvik-secure-access a="b">\n  <notifications>\n'
                                    '    <head><![CDATA[A <b> & B]]></head>\n    <module>&#x4D;&lt;&amp;&#233;</module>\n'
                                    '    <body> </body>\n  </notifications>\n</zelvik-secure-access>\n')
        agent.wait_text("A <b> & B by M<&é")

    def test_white_space_in_texts_is_kept(self):
        agent, texts = self.shown(body="  two blanks  ", rows=[("c", " v "), ("d", "w"), ("e", "x")], timeout="60")
        self.assertIn("  two blanks  ", texts)
        self.assertIn(" v ", texts)


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

    def test_countdown_line_is_hidden_until_the_first_tick(self):
        agent = self.launch()
        self.post_casb(timeout="60", rows=THREE_ROWS)
        begun = self.set_up_moment(agent)
        looks = 0
        while time.time() - begun < 0.6:
            texts = agent.texts()
            if time.time() - begun < 0.9:
                looks += 1
                self.assertFalse([text for text in texts if text.startswith("This window")])
        if not looks:
            self.skipTest("the machine was too busy to look before the first tick")
        agent.wait_countdown(60)

    @takes(5)
    def test_at_zero_ok_is_disabled_and_the_window_gone_a_second_before_the_end(self):
        agent = self.launch()
        self.post_casb(timeout="3", rows=THREE_ROWS)
        begun = self.set_up_moment(agent)
        agent.wait_countdown(3)
        button = agent.ok_button()
        agent.wait_hidden(3)
        hidden = time.time()
        self.assert_near(hidden - begun, 3, "set-up to hidden")
        # A tree that drops hidden windows has no button to ask.
        now = button.now()
        if now is not None:
            wait_until(lambda: now.now() is None or not now.now().enabled, "OK is disabled", 0.5)
        self.assert_near(self.assert_ended(agent) - hidden, 1, "hidden to end")

    @takes(5)
    def test_three_seconds_count_down_without_a_request(self):
        server = self.server()
        agent = self.launch()
        self.post_casb(timeout="3", rows=THREE_ROWS, ok_url=server.url("/never"))
        begun = self.set_up_moment(agent)
        self.assert_counted(agent.follow(agent.wait_countdown(3)), 3, begun)
        self.assert_near(self.assert_ended(agent) - begun, 4, "set-up to end")
        self.assertEqual([], server.requests)
        self.assertEqual(0, agent.log.count("info", Starts(REQUEST)))

    @takes(7)
    def test_five_seconds_are_already_below_five_after_the_first_tick(self):
        server = self.server()
        agent = self.launch()
        self.post_casb(timeout="5", rows=THREE_ROWS, ok_url=server.url("/never"))
        begun = self.set_up_moment(agent)
        self.assert_near(self.assert_ended(agent) - begun, 6, "set-up to end")
        self.assertEqual([], server.requests)

    @takes(8)
    def test_six_seconds_request_at_the_first_tick(self):
        server = self.server()
        agent = self.launch()
        self.post_casb(timeout="6", rows=THREE_ROWS, ok_url=server.url("/six"))
        begun = self.set_up_moment(agent)
        wait_until(lambda: server.requests, "the request")
        self.assert_near(server.requests[0].moment - begun, 1, "set-up to request")
        self.assert_near(self.assert_ended(agent) - begun, 7, "set-up to end")

    def assert_ends_at_first_tick(self, timeout):
        server = self.server()
        bundle = self.new_bundle()
        agent = self.launch(bundle)
        self.post(f"{bundle.log_folder_name}_socketMessageNotifier",
                  webSocketResponse=notice_xml(timeout=timeout, rows=THREE_ROWS, ok_url=server.url("/never")))
        begun = self.set_up_moment(agent)
        agent.wait_visible()
        # Not hidden before: it is there until the process is not.
        wait_until(lambda: time.time() - begun > 0.8, "nearly a second")
        self.assertTrue(agent.visible())
        self.assert_near(self.assert_ended(agent) - begun, 1, f"set-up to end with time-out {timeout!r}")
        self.assertEqual([], server.requests)

    @takes(10)
    def test_time_outs_that_end_at_the_first_tick(self):
        for timeout in ("0", "-3", " 7", "7 ", "7a", "+", " ", "\u0667", "9223372036854775808"):
            with self.subTest(timeout=timeout):
                self.assert_ends_at_first_tick(timeout)

    def test_time_out_texts_that_count(self):
        for timeout, seconds in ((None, 10), ("", 10), ("+15", 15), ("0020", 20),
                                 ("9223372036854775807", 9223372036854775807)):
            with self.subTest(timeout=timeout):
                bundle = self.new_bundle()
                agent = self.launch(bundle)
                self.post(f"{bundle.log_folder_name}_socketMessageNotifier",
                          webSocketResponse=notice_xml(timeout=timeout, rows=THREE_ROWS))
                agent.wait_countdown(seconds)
                agent.end()

    @takes(2)
    def test_agent_uses_hardly_any_processor_while_it_counts(self):
        agent = self.launch()
        self.post_casb(timeout="60", rows=THREE_ROWS)
        agent.wait_countdown(60)

        def used():
            with open(f"/proc/{agent.process_id}/stat", encoding="ascii") as file:
                fields = file.read().rsplit(")", 1)[1].split()
            return (int(fields[11]) + int(fields[12])) / 100
        before = used()
        holds_for(agent.running, 3.0, "the agent ended", interval=0.5)
        self.assertLessEqual(used() - before, 0.06, "processor seconds in three seconds")


class CasbRequestTest(CasbTestCase):

    @takes(3)
    def test_ok_before_the_request_sends_one_and_ends_a_second_later(self):
        server = self.server()
        agent = self.launch()
        self.post_casb(timeout="20", rows=THREE_ROWS, ok_url=server.url("/ok?id=1"))
        agent.wait_countdown(20)
        pressed = agent.press_ok()
        agent.wait_hidden(0.7)
        self.assert_near(self.assert_ended(agent) - pressed, 1, "OK to end")
        self.assertEqual([b"GET /ok?id=1 HTTP/1.1"], [request.line for request in server.requests])
        self.assert_near(server.requests[0].moment - pressed, 0.1, "OK to request")
        self.assertEqual(1, agent.log.count("info", REQUEST + server.url("/ok?id=1")))
        self.assertEqual(1, agent.log.count("debug", "Close Activity Optional(200)"))

    @takes(4)
    def test_ok_after_the_request_sends_a_second_one(self):
        server = self.server()
        agent = self.launch()
        self.post_casb(timeout="6", rows=THREE_ROWS, ok_url=server.url("/twice"))
        wait_until(lambda: server.requests, "the countdown's request")
        agent.wait_countdown(6)
        pressed = agent.press_ok()
        self.assert_near(self.assert_ended(agent) - pressed, 1, "OK to end")
        self.assertEqual([b"GET /twice HTTP/1.1"] * 2, [request.line for request in server.requests])
        self.assert_near(server.requests[1].moment - pressed, 0.1, "OK to second request")
        self.assertEqual(2, agent.log.count("info", REQUEST + server.url("/twice")))

    def test_bytes_of_the_request(self):
        for target, expected in (
                ("/a/../b/./c//d/", b"/a/../b/./c//d/"),
                ("/%7Euser/%2e%2E/x?q=%20&r=a+b&s=%C3%BC", b"/%7Euser/%2e%2E/x?q=%20&r=a+b&s=%C3%BC"),
                ("/x?a=[1]&b={2}&c=|&d='\"<>\\^`", b"/x?a=[1]&b={2}&c=|&d='\"<>\\^`"),
                ("/ü?ö=ß", "/ü?ö=ß".encode()),
                ("?only=query", b"/?only=query"),
                ("", b"/")):
            with self.subTest(target=target):
                server = self.server()
                bundle = self.new_bundle()
                agent = self.launch(bundle)
                self.post(f"{bundle.log_folder_name}_socketMessageNotifier",
                          webSocketResponse=notice_xml(timeout="60", rows=THREE_ROWS, ok_url=server.url(target)))
                self.set_up_moment(agent)
                agent.wait_visible()
                agent.press_ok()
                wait_until(lambda: server.requests, "the request", 3)
                request = server.requests[0]
                self.assertEqual(b"GET " + expected + b" HTTP/1.1", request.line)
                self.assertEqual(f"127.0.0.1:{server.port}".encode(), request.headers[b"host"])
                self.assertEqual(b"", request.body)
                self.assertNotIn(b"content-length", request.headers)
                agent.log.wait_for("info", REQUEST + server.url(target))
                agent.end()

    @takes(3)
    def test_status_of_the_answer_is_logged_and_changes_nothing(self):
        server = self.server(status="500 Internal Server Error")
        agent = self.launch()
        self.post_casb(timeout="6", rows=THREE_ROWS, ok_url=server.url("/"))
        agent.log.wait_for("debug", "Close Activity Optional(500)")
        self.assertTrue(agent.visible())
        self.assertEqual(1, len(server.requests))

    @takes(3)
    def test_nobody_listening(self):
        url = f"http://127.0.0.1:{unused_port()}/"
        agent = self.launch()
        self.post_casb(timeout="60", rows=THREE_ROWS, ok_url=url)
        agent.wait_visible()
        self.set_up_moment(agent)
        agent.press_ok()
        agent.log.wait_for("info", REQUEST + url)
        agent.log.wait_for("debug", "Close Activity nil", timeout=1)
        self.assert_ended(agent)

    @takes(3)
    def test_end_does_not_wait_for_an_answer(self):
        server = self.server(silent=True)
        agent = self.launch()
        self.post_casb(timeout="60", rows=THREE_ROWS, ok_url=server.url("/slow"))
        agent.wait_visible()
        self.set_up_moment(agent)
        pressed = agent.press_ok()
        self.assert_near(self.assert_ended(agent) - pressed, 1, "OK to end")
        self.assertEqual(1, len(server.requests))
        self.assertEqual(0, agent.log.count("debug", Starts("Close Activity ")))

    @takes(2)
    def test_ok_without_countdown_requests_the_empty_url(self):
        agent = self.launch()
        self.post_casb(ok_url="http://127.0.0.1:9/ignored")
        agent.wait_visible()
        self.set_up_moment(agent)
        pressed = agent.press_ok()
        agent.log.wait_for("info", REQUEST)
        agent.log.wait_for("debug", "Close Activity nil", timeout=1)
        self.assert_near(self.assert_ended(agent) - pressed, 1, "OK to end")

    @takes(2)
    def test_ok_without_countdown_requests_the_url_of_an_earlier_notice(self):
        server = self.server()
        agent = self.launch()
        self.post_casb(timeout="60", rows=THREE_ROWS, ok_url=server.url("/earlier"))
        self.set_up_moment(agent)
        self.post_casb(body="second", ok_url=server.url("/later"))
        agent.wait_text("second")
        self.set_up_moment(agent, count=2)
        agent.press_ok()
        self.assert_ended(agent)
        self.assertEqual([b"GET /earlier HTTP/1.1"], [request.line for request in server.requests])

    @takes(2)
    def test_only_http_addresses_are_requested(self):
        secret = f"{self.folder}/secret"
        with open(secret, "w", encoding="ascii") as file:
            file.write("x")
        agent = self.launch()
        self.post_casb(timeout="60", rows=THREE_ROWS, ok_url=f"file://{secret}")
        agent.wait_visible()
        self.set_up_moment(agent)
        agent.press_ok()
        agent.log.wait_for("debug", "Close Activity nil", timeout=1)
        self.assert_ended(agent)

    @takes(2)
    def test_site_without_gateway_client_still_ends(self):
        frameworks = os.path.join(self.bundle.contents, "Frameworks")
        shutil.rmtree(frameworks)
        agent = self.launch()
        self.post_casb(timeout="60", rows=THREE_ROWS, ok_url="http://127.0.0.1:9/")
        agent.wait_visible()
        self.set_up_moment(agent)
        agent.press_ok()
        agent.log.wait_for("info", REQUEST + "http://127.0.0.1:9/")
        self.assert_ended(agent)


class CasbLookTest(CasbTestCase):

    def show(self, **settings):
        self.bundle.settings(**settings)
        agent = self.launch()
        self.post_casb(timeout="60", rows=THREE_ROWS)
        agent.wait_visible()
        agent.wait_text("Upload blocked by Cloud Access Policy")
        return agent

    def test_colours(self):
        agent = self.show(globalAppViewBackgroundColor="#336699")
        self.assert_strip(agent, ACCENT)
        self.assert_header(agent, (0x33, 0x66, 0x99))
        self.assert_pixel(agent, (8, 100), WHITE, "body")
        _x, top, _width, height = agent.ok_button().extents
        left = agent.ok_button().extents[0]
        self.assert_pixel(agent, (left + 10, top + height // 2), ACCENT, "OK button")

    def test_vendor_korvane_has_a_black_window(self):
        agent = self.show(Vendor="KORVANE")
        self.assert_strip(agent, BLACK)
        self.assert_header(agent, DEFAULT_HEADER)
        agent.log.wait_for("info", "Vendor is KORVANE")
        wait_until(lambda: agent.output() == "KORVANE\n", "the vendor word on standard output")

    def test_vendor_in_lower_case_has_not(self):
        self.assert_strip(self.show(Vendor="korvane"), ACCENT)

    def test_logo_of_the_payload(self):
        agent = self.launch()
        picture = png((255, 0, 255), 96, 32)
        self.post_casb(timeout="60", rows=THREE_ROWS, logo=picture)
        agent.log.wait_for("info", f"Setting Logo from Zelvik Sase Client {len(picture)} bytes")
        agent.wait_visible()
        self.assert_header_logo(agent, (255, 0, 255))

    def test_logo_of_any_shape_stays_in_the_header(self):
        agent = self.launch()
        for size in ((4000, 100), (10, 4000), (1, 1)):
            with self.subTest(size=size):
                picture = png((255, 0, 255), *size)
                self.post_casb(timeout="60", rows=THREE_ROWS, head=f"{size}", logo=picture)
                agent.wait_text(f"{size} by Cloud Access Policy")
                agent.wait_visible()
                self.assertEqual(WIDTH, agent.geometry()[2])
                self.assert_strip(agent, ACCENT)
                self.assert_pixel(agent, (WIDTH - 5, 54), DEFAULT_HEADER, "right edge of the header")
                self.assert_pixel(agent, (MARGIN + 1, 29), DEFAULT_HEADER, "upper edge of the header")
                self.assert_pixel(agent, (MARGIN + 1, 78), DEFAULT_HEADER, "lower edge of the header")
                self.assert_pixel(agent, (MARGIN + 1, 92), WHITE, "below the header")

    def test_bytes_that_are_no_image_clear_the_logo(self):
        agent = self.launch()
        self.post_casb(timeout="60", rows=THREE_ROWS, logo=b"no image")
        agent.log.wait_for("info", "Setting Logo from Zelvik Sase Client 8 bytes")
        agent.wait_visible()
        self.assert_header_empty(agent, DEFAULT_HEADER)

    def test_logo_of_another_type_is_passed_over(self):
        self.bundle.settings(AppLogo="configured")
        self.bundle.image("configured.png", png((0, 180, 0)))
        agent = self.launch()
        self.post(webSocketResponse=notice_xml(timeout="60", rows=THREE_ROWS), HeaderLogoImage="text")
        agent.log.wait_for(*SET_UP)
        agent.wait_visible()
        self.assert_header_logo(agent, (0, 180, 0))
        self.assertEqual(0, agent.log.count("info", Starts("Setting Logo")))
