"""What the tests of hostile input and of load share: witnesses, and ways onto the bus past a library."""

import ctypes
import os
import re
import socket
import struct
import threading
import time
import zlib

from desktop import wait_until
from harness import IS_SANITIZED, SLOWNESS

_libc = ctypes.CDLL(None, use_errno=True)


class OpenWitness:
    """Notices whoever opens or reads a file or folder, or anything in it."""

    IN_ACCESS, IN_OPEN = 0x01, 0x20

    def __init__(self, *paths):
        self._descriptor = _libc.inotify_init1(os.O_NONBLOCK | os.O_CLOEXEC)
        for path in paths:
            added = _libc.inotify_add_watch(self._descriptor, os.fsencode(path), self.IN_ACCESS | self.IN_OPEN)
            if added < 0:
                raise OSError(ctypes.get_errno(), "inotify_add_watch", path)

    def opened(self):
        try:
            return bool(os.read(self._descriptor, 65536))
        except BlockingIOError:
            return False

    def close(self):
        os.close(self._descriptor)


class StubbornServer:
    """A server on the loopback address that does with each connection what `behave(connection)` does."""

    def __init__(self, behave=lambda connection: None):
        self.asked = 0
        self._behave = behave
        self._connections = []
        self._listener = socket.create_server(("127.0.0.1", 0))
        self.port = self._listener.getsockname()[1]
        threading.Thread(target=self._accept, daemon=True).start()

    def _accept(self):
        while True:
            try:
                connection, _address = self._listener.accept()
            except OSError:
                return
            self.asked += 1
            self._connections.append(connection)
            threading.Thread(target=self._serve, args=(connection,), daemon=True).start()

    def _serve(self, connection):
        try:
            self._behave(connection)
        except OSError:
            pass

    def url(self, target="/"):
        return f"http://127.0.0.1:{self.port}{target}"

    def close(self):
        self._listener.close()
        for connection in self._connections:
            connection.close()


class RawBusClient:
    """A connection to the bus that sends whatever bytes it is given."""

    def __init__(self, address):
        path = re.search(r"unix:path=([^,]+)", address)[1]
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.connect(path)
        self.socket.sendall(b"\0AUTH EXTERNAL " + str(os.getuid()).encode().hex().encode() + b"\r\n")
        assert self.socket.recv(4096).startswith(b"OK")
        self.socket.sendall(b"BEGIN\r\n")
        header = (b"\1o\0" + self._text(b"/org/freedesktop/DBus"), b"\2s\0" + self._text(b"org.freedesktop.DBus"),
                  b"\3s\0" + self._text(b"Hello"), b"\6s\0" + self._text(b"org.freedesktop.DBus"))
        self.socket.sendall(self._message(1, header, b""))
        self.socket.settimeout(5)
        self.socket.recv(65536)

    @staticmethod
    def _text(text):
        return struct.pack("<I", len(text)) + text + b"\0"

    @staticmethod
    def _padded(data, to):
        return data + bytes(-len(data) % to)

    def _message(self, kind, fields, body):
        # Each field is a structure, at a multiple of 8.
        packed = b""
        for field in fields:
            packed = self._padded(packed, 8) + field[:1] + b"\1" + field[1:]
        head = struct.pack("<cBBBIII", b"l", kind, 0, 1, len(body), 1, len(packed)) + packed
        return self._padded(head, 8) + body

    def post(self, signature, body):
        """Sends the signal with these bytes as its body, right or wrong."""
        fields = (b"\1o\0" + self._text(b"/com/tevanic/DistributedNotificationCenter"),
                  b"\2s\0" + self._text(b"com.tevanic.DistributedNotificationCenter"),
                  b"\3s\0" + self._text(b"Posted"),
                  b"\x08g\0" + bytes([len(signature)]) + signature + b"\0")
        self.socket.sendall(self._message(4, fields, body))

    def is_thrown_out(self):
        """Whether the bus closes the connection."""
        deadline = time.monotonic() + 5
        while time.monotonic() < deadline:
            try:
                if not self.socket.recv(65536):
                    return True
            except ConnectionError:
                return True
            except socket.timeout:
                return False
        return False

    def close(self):
        self.socket.close()


def memory(process_id, kind="VmRSS"):
    """In kB: VmRSS is what the process has now, VmHWM the most it ever had."""
    with open(f"/proc/{process_id}/status", encoding="ascii") as file:
        return next(int(line.split()[1]) for line in file if line.startswith(kind))


def descriptors(process_id):
    return len(os.listdir(f"/proc/{process_id}/fd"))


def png_chunk(kind, content):
    return struct.pack(">I", len(content)) + kind + content + struct.pack(">I", zlib.crc32(kind + content))


def png_of_header(width, height, rows=b"", bits=8, color_type=6):
    """A picture that says it is so large, with rows that may say otherwise."""
    return (b"\x89PNG\r\n\x1a\n" + png_chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, bits, color_type, 0, 0, 0))
            + png_chunk(b"IDAT", zlib.compress(rows, 9)) + png_chunk(b"IEND", b""))


def wait_seen_through(agent):
    """A notice or an ordinary end: what any message may come to."""
    wait_until(lambda: not agent.running() or agent.visible(), "a notice or an end", 60 * SLOWNESS)
