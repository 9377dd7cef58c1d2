"""A message that is no notice, and notices that replace each other."""

from desktop import wait_until
from harness import NoticeTestCase, THREE_ROWS, notice_xml, received, takes


class RoutingTest(NoticeTestCase):

    def test_unparseable_response_ends_the_process(self):
        for text in ("no xml at all", ""):
            with self.subTest(text=text):
                self.screen.watch_maps()
                agent = self.launch(self.new_bundle())
                self.post_to(agent, webSocketResponse=text)
                self.assert_ended(agent)
                self.assert_log(agent, received(), ("error", f"Unable to parse xml string : {text}"))
                self.assertEqual([], self.screen.maps(), "windows mapped")


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

    @takes(4)
    def test_every_notice_replaces_the_one_before_in_the_same_window(self):
        agent = self.launch()
        texts = set(self.TEXTS.values())
        window = None
        for kind in [*self.MESSAGES, *reversed(self.MESSAGES)]:
            self.post(**self.MESSAGES[kind])
            agent.wait_visible()
            if kind == "re-authentication":
                wait_until(lambda: not texts & set(agent.texts()) and agent.texts(), "no text of another notice")
            else:
                wait_until(lambda: texts & set(agent.texts()) == {self.TEXTS[kind]},  # noqa: B023
                           f"the text of {kind} stands alone")
            window = window or agent.window()
            self.assertEqual(window, agent.window(), "the same window, always")
            self.assertEqual(1, len(agent.visible_windows()))
