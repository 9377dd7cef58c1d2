"""The language of a notice: the message's own, or the session's."""

from harness import NoticeTestCase


class LanguageTest(NoticeTestCase):

    def test_message_chooses_its_language_and_without_a_folder_the_session_does(self):
        self.bundle.remove_languages()
        for code in ("en", "de", "fr"):
            self.bundle.table(code, {"VPN Disconnected": f"getrennt [{code}]"})
        agent = self.launch(environment={"LANGUAGE": "xx:fr:de", "LANG": "de_DE.UTF-8"})
        for code, shown in (("de", "de"), ("xx", "fr"), ("", "fr"), ("en", "en")):
            self.post(AutoDisconnectWebSocketType=True, AutoDisconnectMessageKey=f"in {code}",
                      webSocketappLanguageKey=code)
            agent.wait_text(f"in {code}")
            agent.wait_text(f"getrennt [{shown}]")
            agent.log.wait_for("info", f"Bundle Language View {code}")
