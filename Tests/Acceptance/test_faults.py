"""What breaks around the agent: bus, screen, signals, and a poor environment."""

import os
import signal
import socket
import time

from desktop import AGENT_NAME, Bus, holds_for, wait_until
from harness import IS_SANITIZED, LAUNCHED, THREE_ROWS, NoticeTestCase, Starts, takes


class OwnBusTestCase(NoticeTestCase):
    """With a session bus at a fixed address that a test may start and stop."""

    def setUp(self):
        super().setUp()
        self.bus_path = os.path.join(self.folder, "bus")
        self.address = {"DBUS_SESSION_BUS_ADDRESS": f"unix:path={self.bus_path}"}

    def start_bus(self):
        self.bus = Bus(self.folder, self.address["DBUS_SESSION_BUS_ADDRESS"])
        self.addCleanup(self.bus.close)

    def stop_bus(self):
        self.bus.process.kill()
        self.bus.process.wait()

    def wait_name(self):
        wait_until(lambda: self.bus.process_of(AGENT_NAME), "the agent owns its name")


class BusFaultTest(OwnBusTestCase):

    @takes(8)
    def test_bus_that_dies_under_a_notice_and_comes_back(self):
        self.start_bus()
        agent = self.start(environment=self.address)
        self.wait_name()
        self.post(WebSocketType=True, MaintenanceMessageKey="up")
        agent.wait_visible()
        # A third bus, to see that nothing is left over from the first.
        for count, marker in enumerate(("second", "third"), 1):
            self.stop_bus()
            agent.log.wait_for("error", Starts("The session bus went away"), count)
            holds_for(agent.visible, 0.5, "the notice went with the bus")
            self.start_bus()
            self.wait_name()
            self.post(webSocketappLanguageKey=marker)
            agent.log.wait_for("info", f"Bundle Language View {marker}")
        self.assertEqual(1, agent.log.count("info", "Bundle Language View third"), "heard once, not twice")
        self.stop_bus()
        agent.process.send_signal(signal.SIGTERM)
        self.assert_ended(agent)


class SilenceTest(OwnBusTestCase):
    """What stands still keeps the process no longer than its moment."""

    def setUp(self):
        super().setUp()
        self.set_time_out(5)
        self.still_screen = self.own_screen()

    def set_time_out(self, seconds):
        self.time_out = seconds
        self.bundle.info(Default_App_Timeout=seconds)

    def start_there(self, **environment):
        return self.start(environment={"DISPLAY": self.still_screen.name, **environment})

    def stop_screen(self):
        self.still_screen.process.send_signal(signal.SIGSTOP)

    def assert_launched(self, agent):
        agent.log.wait_for(*LAUNCHED[1])
        self.assertEqual(LAUNCHED[:1], agent.log.pairs()[:1])

    def assert_ended_by_time_out(self, agent):
        self.assert_near(self.assert_ended(agent) - agent.started, self.time_out, "from the start to the end")

    def assert_ended_by_signal(self, agent):
        agent.process.terminate()
        sent = time.time()
        self.assert_near(self.assert_ended(agent) - sent, 0, "from the signal to the end")

    def silent_bus(self, backlog):
        """In the bus's place a socket that is listened on, and of which nothing is ever heard."""
        silent = socket.socket(socket.AF_UNIX)
        self.addCleanup(silent.close)
        silent.bind(self.bus_path)
        silent.listen(backlog)

    @takes(5)
    def test_display_that_stands_still_at_the_start(self):
        self.set_time_out(2)
        self.stop_screen()
        agent = self.start_there()
        self.assert_launched(agent)
        self.assert_ended_by_time_out(agent)
        self.set_time_out(600)
        agent = self.start_there()
        agent.wait_ready()
        self.assert_ended_by_signal(agent)

    @takes(8)
    def test_display_that_stands_still_under_a_countdown(self):
        for end in (self.assert_ended_by_time_out, self.assert_ended_by_signal):
            agent = self.start_there()
            agent.wait_ready()
            self.post_casb(rows=THREE_ROWS, timeout=600)
            agent.log.wait_for("info", Starts("Parsing successful"))
            self.stop_screen()
            end(agent)
            self.still_screen.process.send_signal(signal.SIGCONT)

    @takes(6)
    def test_bus_that_is_silent_at_the_start(self):
        self.set_time_out(2)
        for backlog in (5, 0):  # the second one takes no more than one connection
            self.silent_bus(backlog)
            agent = self.start(environment=self.address)
            self.assert_launched(agent)
            self.assert_ended_by_time_out(agent)
            # The main loop turns: the last record is that of the ordinary end.
            self.assertEqual(("debug", "Terminating Web Socket App after 2 Seconds."), agent.log.pairs()[-1])
            os.remove(agent.log.path)
            os.remove(self.bus_path)
        self.set_time_out(600)
        self.silent_bus(5)
        agent = self.start(environment=self.address)
        self.assert_launched(agent)
        self.assert_ended_by_signal(agent)

    @takes(8)
    def test_bus_that_falls_silent_under_a_notice(self):
        self.start_bus()
        for end in (self.assert_ended_by_time_out, self.assert_ended_by_signal):
            agent = self.start_there(**self.address)
            self.wait_name()
            self.post(WebSocketReAuthType=True)
            agent.log.wait_for("info", Starts("CASB Socket Notification Type"))
            self.bus.process.send_signal(signal.SIGSTOP)
            end(agent)
            self.bus.process.send_signal(signal.SIGCONT)

    @takes(6)
    def test_retry_that_meets_a_silent_bus(self):
        self.start_bus()
        agent = self.start_there(**self.address)
        self.wait_name()
        self.post(WebSocketType=True)
        agent.log.wait_for("info", Starts("Web Socket Notification Type"))
        self.stop_bus()
        os.remove(self.bus_path)
        self.silent_bus(0)
        agent.log.wait_for("error", Starts("The session bus went away"))
        self.assert_ended(agent)
        self.assertIsNotNone(agent.log.find("debug", "Terminating Web Socket App after 5 Seconds."))


class SignalTest(NoticeTestCase):

    SIGNALS = (signal.SIGTERM, signal.SIGINT, signal.SIGHUP)

    def assert_clean_end(self, agent):
        self.assert_ended(agent)
        wait_until(lambda: agent.process_id not in self.bus.queue_of(AGENT_NAME), "the name is given back")

    @takes(4)
    def test_idle_and_during_a_notice(self):
        for number in self.SIGNALS:
            with self.subTest(number.name):
                agent = self.launch()
                agent.process.send_signal(number)
                self.assert_clean_end(agent)
        for stage in ("countdown", "after OK"):
            with self.subTest(stage):
                agent = self.launch()
                self.post_casb(rows=THREE_ROWS, timeout=600)
                agent.wait_countdown(600)
                if stage == "after OK":
                    agent.press_ok()
                agent.process.terminate()
                agent.process.terminate()
                self.assert_clean_end(agent)

    @takes(4)
    def test_from_the_first_moment_at_which_a_program_can_catch_them(self):
        def catches(agent):
            try:
                with open(f"/proc/{agent.process_id}/status", encoding="ascii") as file:
                    caught = next(int(line.split()[1], 16) for line in file if line.startswith("SigCgt"))
                return all(caught >> (number - 1) & 1 for number in self.SIGNALS)
            except (OSError, StopIteration):
                return False
        for delay in (0, 0.02, 0.05):
            with self.subTest(delay=delay):
                agent = self.start()
                wait_until(lambda: catches(agent), "the agent catches signals", interval=0.0005)  # noqa: B023
                time.sleep(delay)
                agent.process.terminate()
                self.assert_clean_end(agent)

    @takes(7)
    def test_stopped_past_its_time_out_it_ends_at_once_when_it_goes_on(self):
        self.bundle.info(Default_App_Timeout=3)
        agent = self.launch()
        agent.process.send_signal(signal.SIGSTOP)
        time.sleep(4)
        continued = time.time()
        agent.process.send_signal(signal.SIGCONT)
        self.assert_near(self.assert_ended(agent) - continued, 0, "from its going on to the end")


class EnvironmentTest(NoticeTestCase):

    @takes(4)
    def test_homes(self):
        for home in (None, "/dev/null", "relative"):
            with self.subTest(home=home):
                agent = self.launch(environment={"HOME": home, "XDG_RUNTIME_DIR": None, "XDG_CONFIG_HOME": None,
                                                 "XDG_CACHE_HOME": None})
                self.post_casb(rows=THREE_ROWS, timeout=600)
                agent.wait_countdown(600)
                agent.press_ok()
                self.assert_ended(agent)

    @takes(4)
    def test_few_descriptors_end_in_order_or_with_a_word(self):
        if IS_SANITIZED:
            self.skipTest("the sanitizers need descriptors of their own to look at an address")
        agents = {}
        for count in (3, 4, 8, 9, 10, 11, 12, 14, 16, 20, 32):
            bundle = self.new_bundle()
            bundle.info(Default_App_Timeout=1)
            agents[count] = self.start(bundle, command=["sh", "-c", f'ulimit -n {count}; exec "$0"'])
        for count, agent in agents.items():
            with self.subTest(descriptors=count):
                agent.wait_end()
                # The program loader and the desktop's main loop end a program by themselves when a handful is
                # all they get; with that much or more the agent works as well as it can.
                said = agent.errors()
                refused = (("error while loading shared libraries" in said and agent.process.returncode == 127)
                           or ("Creating pipes for GWakeup" in said and agent.process.returncode < 0))
                self.assertTrue(agent.process.returncode == 0 or (refused and count < 16),
                                f"status {agent.process.returncode}: {said[-300:]}")
