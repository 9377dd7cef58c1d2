"""A Wayland client with nothing but the protocols by which compositors let tests type and point.

    fake_input.py SOCKET WIDTH HEIGHT

Each line of standard input is one of "move X Y", "button PRESSED", "key CODE" and (KWin) "unplug", and is
answered when it is carried out. A program of its own, since a compositor may want to know whose it is.
"""

import os
import socket
import struct
import sys
import time

# The objects; no number may be left out.
DISPLAY, REGISTRY, CALLBACK, MANAGER, POINTER, SEAT, KEYBOARD_MANAGER, KEYBOARD = range(1, 9)
OUTPUT, OUTPUTS, CONFIGURATION = range(5, 8)
LEFT_BUTTON = 0x110


def string(text):
    text += b"\0"
    return struct.pack("I", len(text)) + text.ljust((len(text) + 3) // 4 * 4, b"\0")


class Client:
    """Types and points in KWin's words."""

    protocol = b"org_kde_kwin_fake_input"
    version = 4

    def __init__(self, path, width, height):
        self.screen = (int(width), int(height))
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.connect(path)
        self.stream = self.socket.makefile("rb")
        self.send(DISPLAY, 1, REGISTRY)
        self.offered = self.round_trip()

    def send(self, target, request, *arguments):
        content = b"".join(argument if isinstance(argument, bytes) else struct.pack("I", argument)
                           for argument in arguments)
        self.socket.sendall(struct.pack("IHH", target, request, 8 + len(content)) + content)

    def round_trip(self):
        """Waits until the compositor has done what it was asked; returns what it said meanwhile."""
        self.send(DISPLAY, 0, CALLBACK)
        events = []
        while True:
            target, _event, size = struct.unpack("IHH", self.stream.read(8))
            content = self.stream.read(size - 8)
            if target == CALLBACK:
                return events
            events.append((target, content))

    def begins(self):
        """Whether the compositor has the protocol."""
        if not any(self.protocol in content for _source, content in self.offered):
            return False
        self.bind_to(self.protocol, self.version, MANAGER)
        self.begin()
        self.round_trip()
        return True

    def bind_to(self, protocol, version, target):
        names = [content[:4] for source, content in self.offered
                 if source == REGISTRY and content[8:].startswith(protocol + b"\0")]
        self.send(REGISTRY, 0, names[-1], string(protocol), version, target)

    def begin(self):
        self.send(MANAGER, 0, string(b"tests"), string(b"tests"))

    def move(self, x, y):
        self.send(MANAGER, 9, x * 256, y * 256)

    def button(self, pressed):
        self.send(MANAGER, 2, LEFT_BUTTON, pressed)

    def key(self, code):
        for state in (1, 0):
            self.send(MANAGER, 10, code, state)

    def unplug(self):
        """Switches the last output off."""
        self.bind_to(b"kde_output_device_v2", 2, OUTPUT)
        self.bind_to(b"kde_output_management_v2", 2, OUTPUTS)
        self.send(OUTPUTS, 0, CONFIGURATION)
        self.send(CONFIGURATION, 0, OUTPUT, 0)
        self.send(CONFIGURATION, 5)


class VirtualDevices(Client):
    """Types and points in the words of sway and its relatives."""

    protocol = b"zwlr_virtual_pointer_manager_v1"
    version = 1
    KEYMAP = b"""xkb_keymap {
        xkb_keycodes { include "evdev+aliases(qwerty)" };
        xkb_types { include "complete" };
        xkb_compat { include "complete" };
        xkb_symbols { include "pc+us+inet(evdev)" };
    };\0"""

    def begin(self):
        no_seat = 0
        self.send(MANAGER, 0, no_seat, POINTER)
        self.bind_to(b"wl_seat", 1, SEAT)
        self.bind_to(b"zwp_virtual_keyboard_manager_v1", 1, KEYBOARD_MANAGER)
        self.send(KEYBOARD_MANAGER, 0, SEAT, KEYBOARD)
        keymap = os.memfd_create("keymap")
        os.write(keymap, self.KEYMAP)
        text_form = 1
        message = struct.pack("IHHII", KEYBOARD, 0, 16, text_form, len(self.KEYMAP))
        socket.send_fds(self.socket, [message], [keymap])
        os.close(keymap)

    def timed(self, target, request, *arguments):
        self.send(target, request, int(time.monotonic() * 1000) & 0xFFFFFFFF, *arguments)

    def move(self, x, y):
        # By two motions, like a hand that arrives. XWayland keeps the relative motion by which the pointer left its
        # windows, and adds it to the next event after the one that comes back: a press would land far away.
        for left in (x - 1 if x else 1, x):
            self.timed(POINTER, 1, left, y, *self.screen)
            self.send(POINTER, 4)

    def button(self, pressed):
        self.timed(POINTER, 2, LEFT_BUTTON, pressed)
        self.send(POINTER, 4)

    def key(self, code):
        for state in (1, 0):
            self.timed(KEYBOARD, 1, code, state)


def main():
    client = next(client for kind in (Client, VirtualDevices) if (client := kind(*sys.argv[1:])).begins())
    for line in sys.stdin:
        word, *numbers = line.split()
        getattr(client, word)(*map(int, numbers))
        client.round_trip()
        print("done", flush=True)


if __name__ == "__main__":
    main()
