"""What the Orca screen reader would speak, word for word. Run by `Scripts/test --desktops`."""

import atexit
import functools
import os
import re
import shutil
import sys
import time

from desktop import Desktop, pump, wait_until
from harness import NoticeTestCase, THREE_ROWS, notice_xml, takes

SPEECH_CONFIGURATION = 'AddModule "dummy" "sd_dummy" ""\nDefaultModule dummy\n'

# The screen reader is to write its log line by line.
LINE_BY_LINE = """
import builtins, functools
plain_open = builtins.open

@functools.wraps(plain_open)
def open_for_lines(file, mode="r", buffering=-1, *rest, **more):
    if mode == "w" and str(file).endswith("orca.log"):
        buffering = 1
    return plain_open(file, mode, buffering, *rest, **more)

builtins.open = open_for_lines
"""

# A program with a text field, in which a user of the screen reader works.
EDITOR = """
import gi
gi.require_version("Gtk", "3.0")
from gi.repository import Gtk
window = Gtk.Window(title="Editor")
window.add(Gtk.TextView())
window.set_default_size(400, 300)
window.show_all()
Gtk.main()
"""


class SpeakingDesktop(Desktop):
    """Everything of a desktop, a program in use, and the screen reader with its speech written down."""

    SPOKEN = re.compile(r"SPEECH OUTPUT: '(.*?)'(?=\{)", re.DOTALL)

    def _start(self, *arguments):
        super()._start(*arguments)
        folder = os.path.join(self.environment["XDG_CONFIG_HOME"], "speech-dispatcher")
        os.mkdir(folder)
        with open(os.path.join(folder, "speechd.conf"), "w", encoding="utf-8") as file:
            file.write(SPEECH_CONFIGURATION)
        self.environment.update(GTK_MODULES="gail:atk-bridge", LANG="C.UTF-8")
        self.output = os.path.join(self.folder, "orca.log")
        modules = os.path.join(self.folder, "modules")
        os.mkdir(modules)
        with open(os.path.join(modules, "sitecustomize.py"), "w", encoding="utf-8") as file:
            file.write(LINE_BY_LINE)
        self._start_program(sys.executable, "-c", EDITOR)
        wait_until(lambda: self.screen.active_window(), "the program in use has its window")
        self.environment["PYTHONPATH"] = modules
        self._start_program("orca", f"--debug-file={self.output}", "--replace")
        wait_until(lambda: "Editor frame." in self.spoken(), "the screen reader has begun to speak", 60, interval=0.1)

    def spoken(self):
        try:
            with open(self.output, encoding="utf-8", errors="replace") as file:
                return self.SPOKEN.findall(file.read())
        except FileNotFoundError:
            return []


@functools.lru_cache(maxsize=None)
def speaking_desktop():
    desktop = SpeakingDesktop()
    atexit.register(desktop.close)
    return desktop


MESSAGES = {
    "maintenance": dict(WebSocketType=True, MaintenanceMessageKey="The service will be unavailable."),
    "auto disconnect": dict(AutoDisconnectWebSocketType=True, AutoDisconnectMessageKey="The VPN is off."),
    "concurrent session": dict(WebSocketAdminDisconnect=True, webSocketResponse=notice_xml(
        head="Ended", module="Control", body="You signed in elsewhere.")),
    "re-authentication": dict(WebSocketReAuthType=True),
    "CASB": dict(webSocketResponse=notice_xml(body="The file was not sent.", timeout="60", rows=THREE_ROWS)),
    # Replaces the one before, and counts down to its end.
    "last": dict(webSocketResponse=notice_xml(body="Another file was not sent.", timeout="14", rows=THREE_ROWS)),
}

ROWS = "Activity: Upload Application: Example Drive URL: https://drive.example/x"

# What is said of the program in use, which has the keyboard before and after.
OF_THE_EDITOR = ("Editor frame.", "text.")

WORDS = {
    "en": dict(maintenance="Maintenance", disconnected="VPN Disconnected", sign_in="Please sign in again", ok="OK",
               expired="Your session has expired. You will be asked to sign in when this window closes.",
               countdown="This window will auto close in {} seconds."),
    "de": dict(maintenance="Wartung", disconnected="VPN getrennt", sign_in="Bitte melden Sie sich erneut an", ok="OK",
               expired="Ihre Sitzung ist abgelaufen. Sie werden zur Anmeldung aufgefordert, sobald sich dieses Fenster "
                       "schließt.",
               countdown="Sekunden bis zum Schließen: {}"),
    "ar": dict(maintenance="الصيانة", disconnected="تم قطع اتصال VPN", sign_in="يُرجى تسجيل الدخول مجددًا", ok="موافق",
               expired="انتهت صلاحية جلستك. سيُطلب منك تسجيل الدخول عند إغلاق هذه النافذة.",
               countdown="الثواني المتبقية حتى الإغلاق: {}"),
}


def utterances_of(maintenance, disconnected, sign_in, expired, countdown, ok):
    """Those of each message; # is a number of seconds, which a busy machine may say late."""
    blocked = "notification Upload blocked by Cloud Access Policy."
    left = countdown.format("#")
    return {
        "maintenance": [f"notification {maintenance}.", "The service will be unavailable."],
        "auto disconnect": [f"notification {disconnected}.", "The VPN is off."],
        "concurrent session": ["notification Ended by Control.", "You signed in elsewhere."],
        # Its countdown is deliberately not translated.
        "re-authentication": [f"notification {sign_in}.", f"{expired} This window will auto close in # seconds."],
        "CASB": [blocked, f"The file was not sent. {ROWS} {left}", f"{ok} push button."],
        "last": [f"{ok} push button.", blocked, f"Another file was not sent. {ROWS} {left}",
                 *(f"notification {countdown.format(seconds)}" for seconds in (10, 5))],
    }


class ScreenReaderTest(NoticeTestCase):
    def setUp(self):
        for program in ("orca", "speech-dispatcher"):
            if shutil.which(program) is None:
                self.skipTest(f"{program} is not installed")
        super().setUp()
        self.heard = self.quiet()

    def desktop_for_test(self):
        return speaking_desktop()

    def utterances(self):
        """All of them but those of the program in use."""
        said = (" ".join(utterance.split()) for utterance in self.desktop.spoken())
        return [utterance for utterance in said if utterance not in OF_THE_EDITOR]

    def quiet(self, seconds=1.5):
        """How many there were when nothing more came for some time."""
        heard, since = -1, 0
        while heard != len(self.utterances()) or time.monotonic() - since < seconds:
            if heard != len(self.utterances()):
                heard, since = len(self.utterances()), time.monotonic()
            pump(0.1)
        return heard

    def spoken(self, count):
        """What was spoken since the last look, once there are so many utterances, and no more come."""
        try:
            wait_until(lambda: len(self.utterances()) >= self.heard + count, "", 15)
        except AssertionError:
            pass  # the comparison says what is missing
        before, self.heard = self.heard, self.quiet()
        return self.utterances()[before:self.heard]

    @staticmethod
    def without_seconds(utterances):
        return [re.sub(r"\b(60|5\d|30|2\d|1[1-4])\b", "#", utterance) for utterance in utterances]

    def check(self, language):
        words = utterances_of(**WORDS[language])
        agent = self.launch()
        for name, message in MESSAGES.items():
            self.post(**message, webSocketappLanguageKey=language)
            if name == "last":
                break
            said = self.without_seconds(self.spoken(len(words[name])))
            with self.subTest(name):
                self.assertEqual(words[name], said)
        self.assert_ended(agent, timeout=30)
        said = self.spoken(0)
        self.assertEqual(words["last"], [*self.without_seconds(said[:3]), *said[3:]])

    @takes(40)
    def test_english(self):
        self.check("en")

    @takes(40)
    def test_german(self):
        self.check("de")

    @takes(40)
    def test_arabic(self):
        self.check("ar")
