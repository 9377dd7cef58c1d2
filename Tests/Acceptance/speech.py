"""A desktop on which the Orca screen reader runs, and what it would speak there."""

import os
import re
import sys

from desktop import Desktop, wait_until

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

    def __init__(self):
        super().__init__("openbox", accessibility=True)
        try:
            self._start_screen_reader()
        except BaseException:
            self.close()
            raise

    def _start_screen_reader(self):
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

    def raw(self):
        try:
            with open(self.output, encoding="utf-8", errors="replace") as file:
                return file.read()
        except FileNotFoundError:
            return ""

    def spoken(self):
        return self.SPOKEN.findall(self.raw())
