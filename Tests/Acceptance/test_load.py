"""Very many messages through one agent: none lost, the order kept, memory and descriptors flat.

NOTICE_LOAD names another number of messages than the short form's.
"""

import os
import re

from desktop import wait_until
from harness import (DEFAULT_HEADER, HEADER, IS_SANITIZED, MARGIN, SLOWNESS, TITLE_STRIP, WIDTH, NoticeTestCase, memory,
                     notice_xml, png, takes, user_info_of)

BURST = 500  # messages whose records the log and the one before it hold
COUNT = int(os.environ.get("NOTICE_LOAD", "2000" if IS_SANITIZED else "5000")) // BURST * BURST
SETTLED = 1000  # from here on nothing grows


def descriptors(process_id):
    return len(os.listdir(f"/proc/{process_id}/fd"))


def logged_numbers(agent):
    """Those of the messages of which the log still tells, by the languages that they name."""
    numbers = []
    for name in sorted(os.listdir(agent.log.folder)):  # the old file first
        with open(os.path.join(agent.log.folder, name), encoding="utf-8", errors="replace") as file:
            numbers += [int(number) for number in re.findall(r"Bundle Language View n(\d+)\n", file.read())]
    return numbers


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
            agent.wait_pixel(WIDTH - MARGIN, TITLE_STRIP + HEADER // 2, DEFAULT_HEADER, "header")
            agent.end()

    @takes(20)
    def test_messages_of_every_kind_as_fast_as_the_bus_takes_them(self):
        self.logos = [png((250, 0, 0)), png((0, 250, 0), 300, 20), b"no picture"]
        self.bundle.info(Default_App_Timeout=3600)
        agent = self.launch()
        name = f"{self.brand}_socketMessageNotifier"
        figures = []
        for begin in range(0, COUNT, BURST):
            numbers = list(range(begin, min(begin + BURST, COUNT)))
            for number in numbers:
                values = dict(self.message(number), webSocketappLanguageKey=f"n{number}")
                self.bus.emit("ssa{sv}", name, "", user_info_of(values))
                if number % 50 == 0:
                    # Something of a wrong shape in between.
                    self.bus.emit("sa{sv}", name, user_info_of({}))
            self.bus.connection.flush()
            wait_until(lambda: logged_numbers(agent)[-1:] == numbers[-1:], "the burst is handled",  # noqa: B023
                       60 * SLOWNESS, interval=0.1)
            self.assertEqual(numbers, logged_numbers(agent)[-len(numbers):], "every message once, in their order")
            if begin + BURST in (SETTLED, COUNT):
                figures.append((memory(agent.process_id), descriptors(agent.process_id)))

        (settled, first_descriptors), (last, last_descriptors) = figures
        self.assertLessEqual(last_descriptors, first_descriptors + 2, figures)
        if not IS_SANITIZED:  # whose memory is kept back for a while after it is freed
            self.assertLess(last - settled, 6_000, f"growth in kB: {figures}")
        self.post(WebSocketType=True, MaintenanceMessageKey="the last one")
        agent.wait_text("the last one")
        agent.press_ok()
        self.assert_ended(agent)
