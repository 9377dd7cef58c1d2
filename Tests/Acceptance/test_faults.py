"""What breaks around the agent: bus, screen, disk, files, plug-in, signals, and a poor environment."""

import os
import plistlib
import shutil
import signal
import socket
import struct
import subprocess
import time

import dbus
import dbus.bus
import dbus.lowlevel

from desktop import AGENT_NAME, CENTER_INTERFACE, CENTER_PATH, holds_for, wait_until
from harness import (DEFAULT_HEADER, IS_SANITIZED, LAUNCHED, LOG_ROOT, THREE_ROWS, NoticeTestCase, Starts, bus_value,
                     takes)


class OwnBus:
    """A session bus at a fixed address that a test may start and stop."""

    def __init__(self, path):
        self.path = path
        self.address = f"unix:path={path}"
        self.process = None
        self.connection = None

    def start(self):
        if os.path.exists(self.path):
            os.remove(self.path)
        self.process = subprocess.Popen(
            ["dbus-daemon", "--session", f"--address={self.address}", "--nofork", "--nopidfile", "--nosyslog"],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.connection = wait_until(self._connect, "the bus listens")
        self.connection.set_exit_on_disconnect(False)

    def _connect(self):
        try:
            return dbus.bus.BusConnection(self.address)
        except dbus.exceptions.DBusException:
            return None

    def stop(self):
        if self.process:
            self.process.kill()
            self.process.wait()
            self.process = None

    def owns_name(self):
        return self.connection.name_has_owner(AGENT_NAME)

    def post(self, name, **user_info):
        message = dbus.lowlevel.SignalMessage(CENTER_PATH, CENTER_INTERFACE, "Posted")
        message.append(name, "", dbus.Dictionary({key: bus_value(value) for key, value in user_info.items()},
                                                 signature="sv"), signature="ssa{sv}")
        self.connection.send_message(message)
        self.connection.flush()


class FaultTestCase(NoticeTestCase):

    def post_and_see(self, agent, text, **more):
        self.post(WebSocketType=True, MaintenanceMessageKey=text, **more)
        agent.wait_text(text)

    def build_library(self, name, source):
        """A shared library of this C++ text; its path."""
        path = os.path.join(self.folder, f"{name}.so")
        compiler = shutil.which("c++")
        if not compiler:
            self.skipTest("there is no compiler to build a library with")
        subprocess.run([compiler, "-std=c++20", "-shared", "-fPIC", "-x", "c++", "-", "-o", path],
                       input=source.encode(), check=True)
        return path


class BusFaultTest(FaultTestCase):

    def setUp(self):
        super().setUp()
        self.own_bus = OwnBus(os.path.join(self.folder, "bus"))
        self.addCleanup(self.own_bus.stop)
        self.name = f"{self.brand}_socketMessageNotifier"

    def start_on_own_bus(self):
        return self.start(environment={"DBUS_SESSION_BUS_ADDRESS": self.own_bus.address})

    def assert_hears(self, agent, marker):
        wait_until(self.own_bus.owns_name, "the agent owns its name")
        self.own_bus.post(self.name, webSocketappLanguageKey=marker)
        agent.log.wait_for("info", f"Bundle Language View {marker}")

    @takes(8)
    def test_bus_that_dies_under_a_notice_and_comes_back(self):
        self.own_bus.start()
        agent = self.start_on_own_bus()
        wait_until(self.own_bus.owns_name, "the agent owns its name")
        self.own_bus.post(self.name, WebSocketType=True, MaintenanceMessageKey="up")
        agent.wait_visible()
        self.own_bus.stop()
        agent.log.wait_for("error", Starts("The session bus went away"))
        holds_for(agent.visible, 1, "the notice went with the bus")
        self.own_bus.start()
        self.assert_hears(agent, "second")
        # A third time, to see that nothing is left over from the first.
        self.own_bus.stop()
        agent.log.wait_for("error", Starts("The session bus went away"), count=2)
        self.own_bus.start()
        self.assert_hears(agent, "third")
        self.assertEqual(1, agent.log.count("info", "Bundle Language View third"), "heard once, not twice")
        self.own_bus.stop()
        agent.process.send_signal(signal.SIGTERM)
        self.assert_ended(agent)

    @takes(9)
    def test_countdown_and_request_of_re_authentication_without_a_bus(self):
        self.own_bus.start()
        agent = self.start_on_own_bus()
        wait_until(self.own_bus.owns_name, "the agent owns its name")
        self.own_bus.post(self.name, WebSocketReAuthType=True)
        agent.wait_visible()
        self.own_bus.stop()
        agent.log.wait_for("error", Starts("The session bus went away"))
        # A click: the accessibility bus went with the session's.
        left, top, width, height = agent.geometry()
        self.screen.click(left + width - 24 - 48, top + height - 20 - 17)
        self.assert_ended(agent)


class SilenceTest(FaultTestCase):
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
        self.assertEqual([(level, str(text)) for level, text in LAUNCHED[:1]], agent.log.pairs()[:1])

    def assert_ended_by_time_out(self, agent):
        self.assert_near(self.assert_ended(agent) - agent.started, self.time_out, "from the start to the end")

    def assert_ended_by_signal(self, agent):
        agent.process.terminate()
        sent = time.time()
        self.assert_near(self.assert_ended(agent) - sent, 0, "from the signal to the end")

    def silent_bus(self, backlog):
        """The address of a socket that is listened on, and of which nothing is ever heard."""
        silent = socket.socket(socket.AF_UNIX)
        self.addCleanup(silent.close)
        path = os.path.join(self.folder, "silent")
        silent.bind(path)
        silent.listen(backlog)
        return f"unix:path={path}"

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
            address = self.silent_bus(backlog)
            agent = self.start(environment={"DBUS_SESSION_BUS_ADDRESS": address})
            self.assert_launched(agent)
            self.assert_ended_by_time_out(agent)
            # The main loop turns: the last record is that of the ordinary end.
            self.assertEqual(("debug", "Terminating Web Socket App after 2 Seconds."), agent.log.pairs()[-1])
            os.remove(agent.log.path)
            os.remove(os.path.join(self.folder, "silent"))
        self.set_time_out(600)
        agent = self.start(environment={"DBUS_SESSION_BUS_ADDRESS": self.silent_bus(5)})
        self.assert_launched(agent)
        self.assert_ended_by_signal(agent)

    @takes(8)
    def test_bus_that_falls_silent_under_a_notice(self):
        bus = OwnBus(os.path.join(self.folder, "bus"))
        self.addCleanup(bus.stop)
        bus.start()
        for end in (self.assert_ended_by_time_out, self.assert_ended_by_signal):
            agent = self.start_there(DBUS_SESSION_BUS_ADDRESS=bus.address)
            wait_until(bus.owns_name, "the agent owns its name")
            bus.post(f"{self.brand}_socketMessageNotifier", WebSocketReAuthType=True)
            agent.log.wait_for("info", Starts("CASB Socket Notification Type"))
            bus.process.send_signal(signal.SIGSTOP)
            end(agent)
            bus.process.send_signal(signal.SIGCONT)

    @takes(6)
    def test_retry_that_meets_a_silent_bus(self):
        bus = OwnBus(os.path.join(self.folder, "silent"))
        bus.start()
        agent = self.start_there(DBUS_SESSION_BUS_ADDRESS=bus.address)
        wait_until(bus.owns_name, "the agent owns its name")
        bus.post(f"{self.brand}_socketMessageNotifier", WebSocketType=True)
        agent.log.wait_for("info", Starts("Web Socket Notification Type"))
        bus.stop()
        os.remove(bus.path)
        self.silent_bus(0)
        agent.log.wait_for("error", Starts("The session bus went away"))
        self.assert_ended(agent)
        self.assertIsNotNone(agent.log.find("debug", "Terminating Web Socket App after 5 Seconds."))


class LogFaultTest(FaultTestCase):

    def test_folder_that_is_a_link_is_followed(self):
        elsewhere = os.path.join(self.folder, "elsewhere")
        os.mkdir(elsewhere)
        path = os.path.join(LOG_ROOT, self.brand)
        os.symlink(elsewhere, path)
        self.addCleanup(os.remove, path)
        self.launch()
        wait_until(lambda: os.path.exists(os.path.join(elsewhere, f"{self.brand}_Tevanic.log")), "the log")


class FileFaultTest(FaultTestCase):

    def broken(self, path, chosen=None):
        """Every way in which the file can be no such file, or the chosen ones; each is taken away again."""
        def sparse():
            with open(path, "wb") as file:
                file.truncate(1 << 30)

        def half():
            with open(path, "wb") as file:
                file.write(b'<?xml version="1.0"?><plist version="1.0"><dict><key>Vendor</key><string>KORV')
        ways = {
            "missing": lambda: None,
            "a folder": lambda: os.mkdir(path),
            "a FIFO": lambda: os.mkfifo(path),
            "a gigabyte": sparse,
            "half written": half,
            "empty": lambda: open(path, "wb").close(),
            "a link to itself": lambda: os.symlink(path, path),
            "a device": lambda: os.symlink("/dev/zero", path),
        }
        os.remove(path)
        for name, make in ways.items():
            if chosen and name not in chosen:
                continue
            make()
            with self.subTest(name):
                yield name
            if os.path.isdir(path):
                os.rmdir(path)
            elif os.path.lexists(path):
                os.remove(path)

    @takes(4)
    def test_settings_that_break_while_the_agent_runs_keep_their_values(self):
        self.bundle.settings(globalAppViewBackgroundColor="#405060")
        agent = self.launch()
        for name in self.broken(self.bundle.settings_file):
            self.post_and_see(agent, f"settings {name}")
            self.assert_header(agent, (64, 80, 96))
        self.bundle.settings(globalAppViewBackgroundColor="#102030")
        self.post_and_see(agent, "settings mended")
        self.assert_header(agent, (16, 32, 48))

    AT_LAUNCH = ("missing", "a FIFO", "half written", "a device")

    @takes(3)
    def test_launch_with_broken_settings(self):
        for name in self.broken(self.bundle.settings_file, self.AT_LAUNCH):
            agent = self.launch()
            self.post("_socketMessageNotifier", WebSocketType=True, MaintenanceMessageKey=f"settings {name}")
            agent.wait_text(f"settings {name}")
            agent.end()

    def test_settings_written_over_while_messages_arrive(self):
        agent = self.launch()
        content = plistlib.dumps({"Vendor": "zelvik", "LogFolderName": self.brand,
                                  "globalAppViewBackgroundColor": "#2A292F", "AppLogo": "ic_zelvikLogo"})
        for number in range(100):
            # Not in one step, deliberately: half of the file stands there for a moment.
            with open(self.bundle.settings_file, "wb", buffering=0) as file:
                file.write(content[:len(content) // 2])
                self.post(WebSocketType=True, MaintenanceMessageKey=f"number {number}")
                file.write(content[len(content) // 2:])
        agent.wait_text("number 99")
        self.assert_header(agent, DEFAULT_HEADER)


class ClockFaultTest(FaultTestCase):
    """The wall clock is set while the agent runs."""

    HOUR = 3600
    YEAR = 365 * 24 * HOUR

    def launch_by_a_clock_that_can_be_set(self):
        with open(os.path.join(os.path.dirname(__file__), "ShiftedClock.cpp"), encoding="utf-8") as file:
            library = self.build_library("clock", file.read())
        self.clock = os.path.join(self.folder, "clock")
        self.set_clock(0)
        return self.launch(environment={
            "LD_PRELOAD": library, "SHIFTED_CLOCK": self.clock,
            "ASAN_OPTIONS": f"{os.environ.get('ASAN_OPTIONS', '')}:verify_asan_link_order=0"})

    def set_clock(self, seconds):
        # In its place: the agent has it mapped.
        with open(self.clock, "r+b" if os.path.exists(self.clock) else "wb") as file:
            file.write(struct.pack("=q", seconds))

    def set_back_and_forth(self, agent, number):
        """Sets it once more, and sees by a record's date that it was."""
        shift = (self.YEAR, -2 * self.YEAR, 0, -self.HOUR, 20 * self.YEAR, 5)[number % 6]
        self.set_clock(shift)
        posted = self.post(webSocketappLanguageKey=f"set {number}")
        record = agent.log.wait_for("info", f"Bundle Language View set {number}")
        self.assert_near(record.moment - posted - shift, 0, "from the post to its record, by the clock that was set")

    @takes(8)
    def test_termination_timer_does_not_hear_of_it(self):
        self.bundle.info(Default_App_Timeout=6)
        agent = self.launch_by_a_clock_that_can_be_set()
        begun = agent.log.wait_for("info", LAUNCHED[0][1]).moment
        for number in range(6):
            self.set_back_and_forth(agent, number)
            holds_for(agent.running, 0.3, "the agent ended with the clock")
        self.assert_near(self.assert_ended(agent) - begun, 6, "from launch to end")


class SignalTest(FaultTestCase):

    SIGNALS = (signal.SIGTERM, signal.SIGINT, signal.SIGHUP)

    def assert_clean_end(self, agent):
        self.assert_ended(agent)
        wait_until(lambda: agent.process_id not in self.bus.queue_of(AGENT_NAME), "the name is given back")
        self.assertNotIn("AddressSanitizer", agent.errors())

    @takes(4)
    def test_idle_and_during_a_notice(self):
        for number in self.SIGNALS:
            with self.subTest(number.name, stage="idle"):
                agent = self.launch()
                agent.process.send_signal(number)
                self.assert_clean_end(agent)
        with self.subTest(stage="countdown"):
            agent = self.launch()
            self.post_casb(rows=THREE_ROWS, timeout=600)
            agent.wait_countdown(600)
            agent.process.terminate()
            self.assert_clean_end(agent)
        with self.subTest(stage="after OK"):
            agent = self.launch()
            self.post_casb(rows=THREE_ROWS, timeout=600)
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

    @takes(12)
    def test_stopped_in_a_countdown_it_goes_on_where_it_was(self):
        agent = self.launch()
        self.post_casb(rows=THREE_ROWS, timeout=7)
        agent.wait_countdown(7)
        agent.process.send_signal(signal.SIGSTOP)
        time.sleep(4)
        continued = time.time()
        agent.process.send_signal(signal.SIGCONT)
        # Seconds that nobody could see do not count, and none is made up for in a burst.
        self.assertGreater(self.assert_ended(agent) - continued, 3)

    @takes(7)
    def test_stopped_past_its_time_out_it_ends_at_once_when_it_goes_on(self):
        self.bundle.info(Default_App_Timeout=3)
        agent = self.launch()
        agent.process.send_signal(signal.SIGSTOP)
        time.sleep(4)
        continued = time.time()
        agent.process.send_signal(signal.SIGCONT)
        self.assert_near(self.assert_ended(agent) - continued, 0, "from its going on to the end")


class EnvironmentTest(FaultTestCase):

    def launch_by(self, command, bundle=None):
        """Launches the agent through a shell that changes what it starts with."""
        bundle = bundle or self.bundle
        script = os.path.join(bundle.path, "launch")
        with open(script, "w", encoding="utf-8") as file:
            file.write(f"#!/bin/sh\n{command}\n")
        os.chmod(script, 0o755)
        executable, bundle.executable = bundle.executable, script
        try:
            return self.start(bundle, environment={"NOTICE_EXECUTABLE": executable})
        finally:
            bundle.executable = executable

    def assert_works(self, agent):
        agent.wait_ready()
        self.post_casb(rows=THREE_ROWS, timeout=600)
        agent.wait_countdown(600)
        agent.press_ok()
        self.assert_ended(agent)

    @takes(4)
    def test_homes(self):
        for home in (None, "/dev/null", "relative"):
            with self.subTest(home=home):
                self.assert_works(self.launch(environment={"HOME": home, "XDG_RUNTIME_DIR": None,
                                                           "XDG_CONFIG_HOME": None, "XDG_CACHE_HOME": None}))

    @takes(3)
    def test_every_standard_stream_closed(self):
        agent = self.launch_by('exec "$NOTICE_EXECUTABLE" <&- >&- 2>&-')
        self.assert_works(agent)
        self.assertNotIn("zelvik\n", agent.log.raw().replace("Vendor is zelvik\n", ""))

    @takes(4)
    def test_few_descriptors_end_in_order_or_with_a_word(self):
        if IS_SANITIZED:
            self.skipTest("the sanitizers need descriptors of their own to look at an address")
        agents = {}
        for count in (3, 4, 8, 9, 10, 11, 12, 14, 16, 20, 32):
            bundle = self.new_bundle()
            bundle.info(Default_App_Timeout=1)
            agents[count] = self.launch_by(f'ulimit -n {count}; exec "$NOTICE_EXECUTABLE"', bundle)
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
