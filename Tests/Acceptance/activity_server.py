"""A gateway that notes the bytes of every request it gets."""

import socket
import threading
import time
from dataclasses import dataclass


@dataclass
class Request:
    moment: float  # time.time()
    raw: bytes

    @property
    def line(self):
        return self.raw.split(b"\r\n", 1)[0]

    @property
    def headers(self):
        lines = self.raw.split(b"\r\n\r\n", 1)[0].split(b"\r\n")[1:]
        return {name.strip().lower(): value.strip() for name, _colon, value in (line.partition(b":") for line in lines)}

    @property
    def body(self):
        return self.raw.split(b"\r\n\r\n", 1)[1]


class ActivityServer:
    """Listens on a free port of the loopback address. With `silent` it takes requests and never answers."""

    def __init__(self, status="200 OK", silent=False):
        self.status = status
        self.silent = silent
        self.requests = []
        self._connections = []
        self._listener = socket.create_server(("127.0.0.1", 0))
        self.port = self._listener.getsockname()[1]
        threading.Thread(target=self._accept, daemon=True).start()

    def url(self, target):
        return f"http://127.0.0.1:{self.port}{target}"

    def _accept(self):
        while True:
            try:
                connection, _address = self._listener.accept()
            except OSError:
                return
            self._connections.append(connection)
            threading.Thread(target=self._serve, args=(connection,), daemon=True).start()

    def _serve(self, connection):
        raw = b""
        try:
            while b"\r\n\r\n" not in raw:
                part = connection.recv(65536)
                if not part:
                    break
                raw += part
            if not raw:
                return
            if not self.silent:
                # A body would follow at once on loopback.
                connection.settimeout(0.05)
                try:
                    raw += connection.recv(65536)
                except socket.timeout:
                    pass
            self.requests.append(Request(time.time(), raw))
            if not self.silent:
                connection.sendall(
                    f"HTTP/1.1 {self.status}\r\nContent-Length: 0\r\nConnection: close\r\n\r\n".encode())
                connection.close()
        except OSError:
            pass

    def close(self):
        self._listener.close()
        for connection in self._connections:
            connection.close()
