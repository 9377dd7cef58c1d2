"""Very many messages through one agent: none lost, the order kept, memory and descriptors flat.

NOTICE_LOAD names another number of messages than the short form's.
"""

import os
import re
import threading
import time

import dbus

from harness import DEFAULT_HEADER, IS_SANITIZED, SLOWNESS, NoticeTestCase, bus_value, memory, notice_xml, png, takes

COUNT = int(os.environ.get("NOTICE_LOAD", "2000" if IS_SANITIZED else "5000"))
SETTLED = 1000  # from here on nothing grows


def descriptors(process_id):
    return len(os.listdir(f"/proc/{process_id}/fd"))


class LogFollower:
    """Reads along in a log that begins a new file all the time, and counts the languages that messages name."""

    MARK = re.compile(rb"Bundle Language View n(\d+)\n")

    def __init__(self, path):
        self.numbers = []
        self._path = path
        self._stop = threading.Event()
        self._thread = threading.Thread(target=self._follow, daemon=True)
        self._thread.start()

    def _follow(self):
        file = None
        rest = b""
        while True:
            stopping = self._stop.is_set()
            if file is None:
                try:
                    file = open(self._path, "rb")
                except OSError:
                    time.sleep(0.001)
                    continue
            part = file.read()
            if part:
                rest += part
                end = rest.rfind(b"\n") + 1
                self.numbers += [int(number) for number in self.MARK.findall(rest[:end])]
                rest = rest[end:]
                continue
            if stopping:
                file.close()
                return
            try:
                moved = os.stat(self._path).st_ino != os.fstat(file.fileno()).st_ino
            except OSError:
                moved = False
            if moved:
                # What was written between the last look and the change of files.
                rest += file.read()
                self.numbers += [int(number) for number in self.MARK.findall(rest)]
                rest = b""
                file.close()
                file = None
            else:
                time.sleep(0.002)

    def close(self):
        self._stop.set()
        self._thread.join(10)


class LoadTest(NoticeTestCase):

    def message(self, number):
        """One of every kind that runs no countdown: those live on by themselves, and would end the test."""
        logo = self.logos[number % len(self.logos)]
        kinds = (
            {"WebSocketType": True, "MaintenanceMessageKey": f"maintenance {number}"},
            {"WebSocketType": True, "MaintenanceMessageKey": f"maintenance {number}", "HeaderLogoImage": logo,
             "webSocketResponse": "x"},
            {"AutoDisconnectWebSocketType": True, "AutoDisconnectMessageKey": f"auto {number}"},
            {"WebSocketAdminDisconnect": True,
             "webSocketResponse": notice_xml(head=f"head {number}", body="word " * (number % 50))},
            {"webSocketResponse": notice_xml(head=f"casb {number}", timeout=600)},  # without rows it does not count
            {"WebSocketAdminDisconnect": True, "webSocketResponse": "<no document"},
            {"other": number, "more": b"\xff" * (number % 300)},
            {"WebSocketType": "true", "MaintenanceMessageKey": 5},
        )
        return kinds[number % len(kinds)]

    @takes(4)
    def test_burst_right_after_the_launch_is_painted(self):
        for count in (2, 5, 30):
            agent = self.launch()
            for number in range(count):
                self.post(WebSocketType=True, MaintenanceMessageKey=f"number {number} of {count}")
            agent.wait_text(f"number {count - 1} of {count}")
            self.assert_header(agent, DEFAULT_HEADER)
            agent.end()

    @takes(20)
    def test_messages_of_every_kind_as_fast_as_the_bus_takes_them(self):
        self.logos = [png((250, 0, 0)), png((0, 250, 0), 300, 20), b"no picture"]
        self.bundle.info(Default_App_Timeout=3600)
        agent = self.launch()
        follower = LogFollower(agent.log.path)
        self.addCleanup(follower.close)
        name = f"{self.brand}_socketMessageNotifier"
        limit = 60 * SLOWNESS + COUNT / 100

        def caught_up(count):
            deadline = time.monotonic() + limit
            while len(follower.numbers) < count and agent.running() and time.monotonic() < deadline:
                time.sleep(0.01)
            self.assertTrue(agent.running(), "the agent ended")

        figures = []
        for number in range(COUNT):
            values = dict(self.message(number), webSocketappLanguageKey=f"n{number}")
            self.bus.emit("ssa{sv}", name, "", dbus.Dictionary(
                {key: bus_value(value) for key, value in values.items()}, signature="sv"))
            if number % 50 == 0:
                self.bus.flush()
                # Something of a wrong shape in between.
                self.bus.emit("sa{sv}", name, dbus.Dictionary({}, signature="sv"))
            # The bus holds what the agent has not taken; the test holds back where it would hold too much.
            if number % 500 == 499:
                self.bus.flush()
                caught_up(number + 1 - 250)
            if number + 1 == SETTLED:
                self.bus.flush()
                caught_up(number + 1)
                figures.append((memory(agent.process_id), descriptors(agent.process_id)))
        self.bus.flush()
        caught_up(COUNT)
        figures.append((memory(agent.process_id), descriptors(agent.process_id)))
        follower.close()
        self.assertEqual(list(range(COUNT)), follower.numbers, "every message once, in their order")

        (settled, first_descriptors), (last, last_descriptors) = figures
        self.assertLessEqual(last_descriptors, first_descriptors + 2, figures)
        if not IS_SANITIZED:  # whose memory is kept back for a while after it is freed
            self.assertLess(last - settled, 6_000, f"growth in kB: {figures}")
        self.post(WebSocketType=True, MaintenanceMessageKey="the last one")
        agent.wait_text("the last one")
        agent.press_ok()
        self.assert_ended(agent)
