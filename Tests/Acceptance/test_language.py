"""The language of a notice: the message's own, and what happens without one."""

import plistlib

from harness import LAUNCHED, NoticeTestCase, THREE_ROWS, notice_xml, received, takes

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

    def test_message_without_a_language_is_english_whatever_came_before(self):
        agent = self.launch(environment={"LANGUAGE": "de", "LANG": "de_DE.UTF-8"})
        self.show_heading(agent, "fr", webSocketappLanguageKey="fr")
        self.show_heading(agent, "en")
        agent.log.wait_for("info", "Bundle Language View en")

    def test_language_that_is_no_string_is_english(self):
        agent = self.launch(environment={"LANGUAGE": "de", "LANG": "de_DE.UTF-8"})
        for code in (7, True, b"fr"):
            self.show_heading(agent, "en", webSocketappLanguageKey=code)
        agent.log.wait_for("info", "Bundle Language View en", count=3)

    def test_english_is_english_on_a_german_system(self):
        agent = self.launch(environment={"LANGUAGE": "de", "LANG": "de_DE.UTF-8"})
        self.show_heading(agent, "en", webSocketappLanguageKey="en")

    def test_language_without_a_folder_falls_back_to_the_system(self):
        agent = self.launch(environment={"LANGUAGE": None, "LANG": "de_DE.UTF-8"})
        for code in ("xx", ""):
            self.show_heading(agent, "de", webSocketappLanguageKey=code)
            agent.log.wait_for("info", f"Bundle Language View {code}")

    def test_system_languages_in_their_order(self):
        agent = self.launch(environment={"LANGUAGE": "xx:fr:de", "LANG": "de_DE.UTF-8"})
        self.show_heading(agent, "fr", webSocketappLanguageKey="xx")

    def test_language_without_a_folder_falls_back_to_the_development_region(self):
        self.bundle.info(CFBundleDevelopmentRegion="fr")
        agent = self.launch()
        self.show_heading(agent, "fr", webSocketappLanguageKey="xx")

    def test_without_any_table_the_keys_are_shown(self):
        self.bundle.remove_languages()
        agent = self.launch()
        self.show_heading(agent, None, webSocketappLanguageKey="de")

    def test_key_missing_in_the_table_is_shown_itself(self):
        self.bundle.table("de", {"seconds": "Sekunden"})
        agent = self.launch()
        self.show_heading(agent, None, webSocketappLanguageKey="de")

    def test_empty_folder_does_not_borrow_from_another_language(self):
        self.bundle.table("de", {})
        agent = self.launch()
        self.show_heading(agent, None, webSocketappLanguageKey="de")

    def test_forms_of_a_table(self):
        text = '/* Überschrift */\n"VPN Disconnected" = "VPN Disconnected [form]"; // done\n"q" = "a \\"b\\"";\n'
        for name, content in (
                ("UTF-8", text.encode()),
                ("UTF-8 with a mark", b"\xef\xbb\xbf" + text.encode()),
                ("UTF-16 little", b"\xff\xfe" + text.encode("utf-16-le")),
                ("UTF-16 big", b"\xfe\xff" + text.encode("utf-16-be")),
                ("XML property list", plistlib.dumps({"VPN Disconnected": "VPN Disconnected [form]"})),
                ("binary property list", plistlib.dumps({"VPN Disconnected": "VPN Disconnected [form]"},
                                                        fmt=plistlib.FMT_BINARY))):
            with self.subTest(name):
                agent = self.agents[0] if self.agents else self.launch()
                code = "t" + "".join(letter for letter in name.lower() if letter.isalnum())
                # Looked up afresh each time, so that a folder laid down later is found.
                self.bundle.table(code, content)
                self.show_heading(agent, "form", webSocketappLanguageKey=code)

    @takes(2)
    def test_casb_countdown_in_the_message_language(self):
        agent = self.launch()
        self.post(webSocketResponse=self.xml(), webSocketappLanguageKey="de")
        agent.wait_countdown(60, "This window will auto close in [de] {} seconds [de]")

    @takes(3)
    def test_later_message_switches_a_running_countdown(self):
        agent = self.launch()
        self.post(webSocketResponse=self.xml(), webSocketappLanguageKey="de")
        agent.wait_countdown(60, "This window will auto close in [de] {} seconds [de]")
        self.post(webSocketappLanguageKey="fr")
        agent.log.wait_for("info", "Bundle Language View fr")
        agent.wait_countdown(60, "This window will auto close in [fr] {} seconds [fr]")

    @takes(2)
    def test_auto_disconnect_countdown_joins_number_and_word(self):
        agent = self.launch()
        self.post(AutoDisconnectWebSocketType=True, AutoDisconnectVPNStatus=True, webSocketappLanguageKey="fr")
        agent.wait_text("Attention [fr]")
        agent.wait_countdown(30, "This window will auto close in [fr] {}seconds [fr]")

    def test_message_that_shows_nothing_switches_the_language_all_the_same(self):
        agent = self.launch()
        self.post(webSocketappLanguageKey="fr")
        self.assert_log(agent, received("fr"), after=len(LAUNCHED))

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
