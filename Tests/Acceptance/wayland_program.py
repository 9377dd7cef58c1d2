"""A program in use under Wayland: one colour, and a line on standard output for each key and click.

    wayland_program.py COLOR WIDTH HEIGHT

A line on standard input makes it fill the screen, the next one no longer, and so on.
"""

import sys

import gi

gi.require_version("Gdk", "3.0")
gi.require_version("Gtk", "3.0")
from gi.repository import Gdk, GLib, Gtk  # noqa: E402


class Program:
    def __init__(self, color, width, height):
        style = Gtk.CssProvider()
        style.load_from_data(f"window {{ background: {color}; }}".encode())
        Gtk.StyleContext.add_provider_for_screen(Gdk.Screen.get_default(), style,
                                                 Gtk.STYLE_PROVIDER_PRIORITY_APPLICATION)
        self.window = Gtk.Window(title="program", decorated=False)
        self.window.set_default_size(int(width), int(height))
        self.window.add_events(Gdk.EventMask.BUTTON_PRESS_MASK | Gdk.EventMask.KEY_PRESS_MASK)
        self.window.connect("key-press-event", self.tell, "key")
        self.window.connect("button-press-event", self.tell, "click")
        self.fills_screen = False
        GLib.io_add_watch(sys.stdin, GLib.IO_IN | GLib.IO_HUP, self.obey)
        self.window.show_all()

    @staticmethod
    def tell(_window, _event, word):
        print(word, flush=True)
        return True

    def obey(self, stream, _condition):
        if not stream.readline():
            Gtk.main_quit()
            return False
        self.fills_screen = not self.fills_screen
        if self.fills_screen:
            self.window.fullscreen()
        else:
            self.window.unfullscreen()
        return True


if __name__ == "__main__":
    program = Program(*sys.argv[1:])
    Gtk.main()
