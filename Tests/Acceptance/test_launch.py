"""Start-up, log, settings and the end by time-out."""

import os
import plistlib
import shutil
import time

from desktop import AGENT_NAME, holds_for, wait_until
from harness import (ACCENT, BLACK, DEFAULT_HEADER, LAUNCHED, LOG_ROOT, THREE_ROWS, Log, NoticeTestCase, Starts,
                     png, takes)

GRAY = (128, 128, 128)


class LaunchTest(NoticeTestCase):

    def test_log_of_a_launch_is_two_records_in_the_given_form(self):
        agent = self.launch()
        agent.log.wait_for("debug", "Default APP Termination Time is set to 120")
        self.assertRegex(
            agent.log.raw(),
            r"\A\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} \[info\] : "
            r"Initiating a Timer to Terminate the application automatically\.\n"
            r"\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} \[debug\] : Default APP Termination Time is set to 120\n\Z")
        for record in agent.log.records():
            self.assert_near(record.moment - agent.started, 0, "from the start to the record")

    def test_name_is_owned_and_nothing_is_seen_before_a_message(self):
        self.screen.watch_maps()
        agent = self.launch()
        self.assertEqual(agent.process_id, self.bus.process_of(AGENT_NAME))
        # Long enough for whatever it warms up while idle.
        self.assert_stays_hidden(agent, 0.8)
        self.assertEqual([], self.screen.maps(), "windows mapped before the first message")
        self.assertEqual("", agent.output())

    def test_log_folder_is_made(self):
        self.assertFalse(os.path.exists(os.path.join(LOG_ROOT, self.brand)))
        agent = self.launch()
        agent.log.wait_for("info", LAUNCHED[0][1])
        self.assertTrue(os.path.isfile(os.path.join(LOG_ROOT, self.brand, f"{self.brand}_Tevanic.log")))

    def test_agent_works_without_a_log_when_the_file_cannot_be_opened(self):
        path = os.path.join(LOG_ROOT, self.brand)
        open(path, "w").close()  # a file where the folder should be
        self.addCleanup(os.remove, path)
        agent = self.launch()
        self.post(WebSocketType=True, MaintenanceMessageKey="no log")
        agent.wait_visible()
        agent.wait_text("no log")
        agent.press_ok()
        self.assert_ended(agent)

    def test_bundle_in_a_folder_with_blanks_and_foreign_letters(self):
        bundle = self.new_bundle("Zelvik Köln 100%/日本 ".replace("/", " "))
        bundle.image("own logo.png", png((0, 200, 0)))
        bundle.settings(AppLogo="own logo")
        agent = self.launch(bundle, environment={"LANG": "C"})
        self.post(f"{bundle.log_folder_name}_socketMessageNotifier", WebSocketType=True, MaintenanceMessageKey="there")
        agent.wait_text("there")
        self.assert_header_logo(agent, (0, 200, 0))

    def test_reader_of_the_standard_output_that_went_away_ends_nothing(self):
        reading, writing = os.pipe()
        agent = self.launch(output=writing)
        os.close(reading)
        os.close(writing)
        self.post_casb(rows=THREE_ROWS, timeout="60")
        agent.wait_countdown(60)
        agent.press_ok()
        self.assert_ended(agent)

    def test_closed_standard_output_harms_nothing(self):
        agent = self.launch(output="closed")
        self.post_casb(rows=THREE_ROWS, timeout="60")
        agent.wait_countdown(60)
        self.assertNotIn("zelvik\n", agent.log.raw().replace("Vendor is zelvik\n", ""),
                         "the vendor line fell into the log")
        agent.press_ok()
        self.assert_ended(agent)

    def test_agent_ends_by_its_time_out_without_a_bus(self):
        self.bundle.info(Default_App_Timeout=1)
        agent = self.start(environment={"DBUS_SESSION_BUS_ADDRESS": f"unix:path={self.folder}/none"})
        self.assert_near(self.assert_ended(agent) - agent.started, 1, "end without a bus")
        self.assertIsNotNone(agent.log.find("debug", "Terminating Web Socket App after 1 Seconds."))


class TimeOutTest(NoticeTestCase):

    def assert_time_out_in_log(self, expected):
        agent = self.launch()
        agent.log.wait_for("debug", Starts("Default APP Termination Time is set to "))
        self.assertEqual([LAUNCHED[0], ("debug", f"Default APP Termination Time is set to {expected}")],
                         agent.log.pairs())
        return agent

    def assert_stays(self, agent, seconds=1.2):
        holds_for(agent.running, seconds, "the agent ended early")

    @takes(4)
    def test_process_ends_at_its_time_out(self):
        self.bundle.info(Default_App_Timeout=3)
        agent = self.launch()
        ended = self.assert_ended(agent)
        self.assert_near(ended - agent.started, 3.05, "launch to end")
        self.assertEqual([
            ("info", "Initiating a Timer to Terminate the application automatically."),
            ("debug", "Default APP Termination Time is set to 3"),
            ("debug", "Terminating Web Socket App after 3 Seconds."),
        ], agent.log.pairs())
        armed, fired = agent.log.records()[1:]
        self.assert_near(fired.moment - armed.moment, 3, "the timer")
        self.assertIsNone(self.bus.process_of(AGENT_NAME))

    @takes(6)
    def test_time_out_comes_over_a_shown_notice_and_no_message_puts_it_off(self):
        self.bundle.info(Default_App_Timeout=5)
        agent = self.launch()
        self.post(WebSocketType=True, MaintenanceMessageKey="first")
        agent.wait_text("first")
        wait_until(lambda: time.time() - agent.started > 2, "some of the time is over")
        self.post(WebSocketType=True, MaintenanceMessageKey="second")
        agent.log.wait_for("info", "Message received from Main APP.", count=2)
        self.assert_near(self.assert_ended(agent) - agent.started, 5, "launch to end")
        self.assertEqual(("debug", "Terminating Web Socket App after 5 Seconds."), agent.log.pairs()[-1])

    def test_text_in_place_of_the_number_falls_back_to_120(self):
        self.bundle.info(Default_App_Timeout="30")
        self.assert_time_out_in_log("120")

    def test_missing_number_falls_back_to_120(self):
        self.bundle.info(Default_App_Timeout=None)
        self.assert_time_out_in_log("120")

    def test_fraction_falls_back_to_120(self):
        self.bundle.info(Default_App_Timeout=30.5)
        self.assert_time_out_in_log("120")

    def test_missing_and_broken_information_fall_back_to_120(self):
        os.remove(self.bundle.info_file)
        self.assert_time_out_in_log("120").end()
        self.bundle = self.new_bundle()
        with open(self.bundle.info_file, "wb") as file:
            file.write(b"<plist><dict>")
        self.assert_time_out_in_log("120")

    def test_number_is_taken(self):
        self.bundle.info(Default_App_Timeout=30)
        self.assert_time_out_in_log("30")

    def assert_ends_at_once(self, seconds):
        self.bundle.info(Default_App_Timeout=seconds)
        agent = self.start()
        self.assert_near(self.assert_ended(agent) - agent.started, 0, "from the start to the end")
        self.assertEqual([
            ("info", "Initiating a Timer to Terminate the application automatically."),
            ("debug", f"Default APP Termination Time is set to {seconds}"),
            ("debug", f"Terminating Web Socket App after {seconds} Seconds."),
        ], agent.log.pairs())

    def test_zero_ends_the_process_right_after_launch(self):
        self.assert_ends_at_once(0)

    def test_negative_number_ends_the_process_right_after_launch(self):
        self.assert_ends_at_once(-5)

    def test_number_beyond_32_bits_of_milliseconds_does_not_fire_early(self):
        # 4294968 s is 704 ms more than 32 bits of milliseconds hold.
        self.bundle.info(Default_App_Timeout=4294968)
        self.assert_stays(self.assert_time_out_in_log("4294968"))

    def test_number_beyond_any_calendar_does_not_fire_early(self):
        self.bundle.info(Default_App_Timeout=9223372036854775807)
        self.assert_stays(self.assert_time_out_in_log("9223372036854775807"))


class SettingsTest(NoticeTestCase):

    def show_maintenance(self, agent, text, notification=None, **more):
        self.post(notification, WebSocketType=True, MaintenanceMessageKey=text, **more)
        agent.wait_text(text)
        agent.wait_visible()

    def test_missing_settings_leave_every_setting_empty(self):
        self.bundle.remove_settings()
        agent = self.launch()
        self.show_maintenance(agent, "bare", "_socketMessageNotifier")
        self.assert_header_empty(agent, GRAY)
        self.assertFalse(os.path.exists(agent.log.folder))
        agent.press_ok()
        self.assert_ended(agent)

    def test_unreadable_settings_count_as_missing(self):
        self.bundle.write_settings(b"<plist><dict><key>Vendor</key>")
        agent = self.launch()
        self.show_maintenance(agent, "bare", "_socketMessageNotifier")
        self.assert_header_empty(agent, GRAY)

    def test_settings_that_are_no_dictionary_count_as_missing(self):
        self.bundle.write_settings(plistlib.dumps(["Vendor", "zelvik"]))
        agent = self.launch()
        self.show_maintenance(agent, "bare", "_socketMessageNotifier")
        self.assert_header_empty(agent, GRAY)

    def test_re_authentication_without_settings_posts_the_bare_name(self):
        self.bundle.remove_settings()
        agent = self.launch()
        self.post("_socketMessageNotifier", WebSocketReAuthType=True)
        agent.press_ok()
        wait_until(lambda: self.bus.heard, "the agent posts")
        self.assertEqual("_webSocketToMainAppNotifier", self.bus.heard[0].arguments[0])
        self.assert_ended(agent)

    def test_empty_dictionary_gives_the_four_defaults(self):
        self.bundle.write_settings(plistlib.dumps({}))
        self.bundle.remove_languages()
        for name in os.listdir(self.bundle.resources):
            if name.startswith("ic_zelvikLogo"):
                os.remove(os.path.join(self.bundle.resources, name))
        self.bundle.image("ic_zelvikLogo.png", png((0, 200, 0)))
        # This log belongs to every agent of the default brand: only what is added now counts.
        log = Log("zelvik")
        existed = os.path.exists(log.folder)
        if not existed:
            self.addCleanup(shutil.rmtree, log.folder, ignore_errors=True)
        agent = self.launch()
        marker = f"marker-{self.brand}"
        self.show_maintenance(agent, "default brand", "zelvik_socketMessageNotifier", webSocketappLanguageKey=marker)
        log.wait_for("info", f"Bundle Language View {marker}")
        self.assert_header(agent, DEFAULT_HEADER)
        self.assert_header_logo(agent, (0, 200, 0))
        self.post("zelvik_socketMessageNotifier", webSocketResponse="<a/>")
        wait_until(lambda: agent.output() == "zelvik\n", "the vendor word zelvik on standard output")

    def test_values_of_another_type_take_their_defaults(self):
        self.bundle.settings(Vendor=5, globalAppViewBackgroundColor=["#FF0000"], AppLogo=True)
        agent = self.launch()
        self.post_casb()
        agent.log.wait_for("info", "Vendor is zelvik")
        agent.wait_visible()
        self.assert_header(agent, DEFAULT_HEADER)

    def test_binary_property_list_is_read(self):
        self.bundle.settings(format=plistlib.FMT_BINARY, globalAppViewBackgroundColor="#00FF7F")
        agent = self.launch()
        self.show_maintenance(agent, "binary")
        self.assert_header(agent, (0, 255, 127))

    def test_settings_are_read_again_at_every_message(self):
        agent = self.launch()
        self.show_maintenance(agent, "before")
        self.assert_header(agent, DEFAULT_HEADER)
        self.assert_strip(agent, ACCENT)
        self.bundle.image("secondLogo.png", png((250, 0, 250)))
        other = self.new_name()
        self.bundle.settings(Vendor="KORVANE", globalAppViewBackgroundColor="#102030", AppLogo="secondLogo",
                             LogFolderName=other)
        self.show_maintenance(agent, "after")
        self.assert_header(agent, (16, 32, 48))
        self.assert_header_logo(agent, (250, 0, 250))
        self.assert_strip(agent, BLACK)
        # The log file and the notification's name stay as they were at launch.
        self.assertFalse(os.path.exists(os.path.join(LOG_ROOT, other)))
        self.assertEqual(2, agent.log.count("info", "Message received from Main APP."))
        self.post(f"{other}_socketMessageNotifier", WebSocketType=True, MaintenanceMessageKey="wrong name")
        self.show_maintenance(agent, "right name")
        self.assertEqual(3, agent.log.count("info", "Message received from Main APP."))

    def test_settings_that_became_unreadable_change_nothing(self):
        self.bundle.settings(globalAppViewBackgroundColor="#405060", Vendor="KORVANE")
        agent = self.launch()
        for broken in (lambda: self.bundle.write_settings(b"no property list"), self.bundle.remove_settings):
            broken()
            self.show_maintenance(agent, f"settings {broken}")
            self.assert_header(agent, (64, 80, 96))
            self.assert_strip(agent, BLACK)

    def test_header_colour_texts(self):
        agent = self.launch()
        for text, color in (
                ("#2A292F", (42, 41, 47)),
                (" \n2a292f\t ", (42, 41, 47)),
                ("#FFF", GRAY),
                ("", GRAY),
                ("#FF8000FF", GRAY),
                ("GG0000", BLACK),
                ("12ZZZZ", (0, 0, 18)),
                ("##2A292", BLACK),
                ("0X1234", (0, 18, 52)),
                ("FF8000", (255, 128, 0))):
            with self.subTest(text=text):
                self.bundle.settings(globalAppViewBackgroundColor=text)
                self.show_maintenance(agent, f"colour {text!r}".replace("\n", ""))
                self.assert_header(agent, color)

    def test_missing_logo_image_leaves_the_header_empty(self):
        self.bundle.settings(AppLogo="no such picture")
        agent = self.launch()
        self.show_maintenance(agent, "no logo")
        self.assert_header_empty(agent, DEFAULT_HEADER)

    def test_vendor_line_on_standard_output_at_each_casb_notice(self):
        self.bundle.settings(Vendor="Acme Ünion")
        agent = self.launch()
        self.post_casb(rows=THREE_ROWS, timeout="30")
        agent.log.wait_for("info", "Vendor is Acme Ünion")
        self.post(WebSocketType=True)
        self.post_casb()
        agent.log.wait_for("info", "Vendor is Acme Ünion", count=2)
        wait_until(lambda: agent.output() == "Acme Ünion\nAcme Ünion\n", "the vendor word on standard output, twice")
