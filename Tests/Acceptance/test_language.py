"""The language of a notice: the message's own, and what happens without one."""

from harness import NoticeTestCase, THREE_ROWS, notice_xml, takes

KEYS = ("This window will auto close in", "seconds", "Attention", "VPN Disconnected")


def table(mark):
    """A table whose every text bears a mark."""
    entries = {key: f"{key} [{mark}]" for key in KEYS}
    entries["This window will auto close in "] = f"unused [{mark}]"
    return entries


class LanguageTest(NoticeTestCase):

    def setUp(self):
        super().setUp()
        self.bundle.remove_languages()
        for code in ("en", "de", "fr"):
            self.bundle.table(code, table(code))

    def show_heading(self, agent, mark, **more):
        """The auto-disconnect notice's heading is a looked-up text."""
        self.post(AutoDisconnectWebSocketType=True, AutoDisconnectMessageKey=f"expects {mark} for {more}", **more)
        agent.wait_text(f"expects {mark} for {more}")
        agent.wait_text(f"VPN Disconnected [{mark}]" if mark else "VPN Disconnected")

    def test_message_chooses_its_language(self):
        agent = self.launch()
        for code in ("de", "fr", "en", "de"):
            self.show_heading(agent, code, webSocketappLanguageKey=code)
        self.assertEqual(["de", "fr", "en", "de"],
                         [message.split()[-1] for _level, message in agent.log.pairs()
                          if message.startswith("Bundle Language View")])

    def test_language_without_a_folder_falls_back_to_the_system(self):
        agent = self.launch(environment={"LANGUAGE": None, "LANG": "de_DE.UTF-8"})
        for code in ("xx", ""):
            self.show_heading(agent, "de", webSocketappLanguageKey=code)
            agent.log.wait_for("info", f"Bundle Language View {code}")

    def test_system_languages_in_their_order(self):
        agent = self.launch(environment={"LANGUAGE": "xx:fr:de", "LANG": "de_DE.UTF-8"})
        self.show_heading(agent, "fr", webSocketappLanguageKey="xx")

    @takes(2)
    def test_casb_countdown_in_the_message_language(self):
        agent = self.launch()
        self.post(webSocketResponse=self.xml(), webSocketappLanguageKey="de")
        agent.wait_countdown(60, "This window will auto close in [de] {} seconds [de]")

    @staticmethod
    def xml():
        return notice_xml(rows=THREE_ROWS, timeout="60")


class ShippedLanguagesTest(NoticeTestCase):

    @takes(2)
    def test_english_texts_are_the_keys(self):
        agent = self.launch()
        self.post_casb(rows=THREE_ROWS, timeout="60")
        agent.wait_countdown(60)
        self.post(AutoDisconnectWebSocketType=True, AutoDisconnectVPNStatus=True)
        agent.wait_text("Attention")
        agent.wait_countdown(30, "This window will auto close in {}seconds")
        self.post(AutoDisconnectWebSocketType=True)
        agent.wait_text("VPN Disconnected")
