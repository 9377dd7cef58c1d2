"""A gateway that notes every request it gets."""

import http.server
import threading
import time
from dataclasses import dataclass


@dataclass
class Request:
    moment: float  # time.time()
    line: bytes


class ActivityServer:
    """Listens on a free port of the loopback address."""

    def __init__(self):
        self.requests = requests = []

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_GET(self):
                requests.append(Request(time.time(), self.raw_requestline.rstrip(b"\r\n")))
                self.send_response(200)
                self.end_headers()

            def log_message(self, *_arguments):
                pass

        self._server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        threading.Thread(target=self._server.serve_forever, daemon=True).start()

    def url(self, target):
        return f"http://127.0.0.1:{self._server.server_port}{target}"

    def close(self):
        self._server.shutdown()
        self._server.server_close()
