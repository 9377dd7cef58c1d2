"""Start-up, log, settings and the end by time-out."""

import os
import plistlib
import time

from desktop import AGENT_NAME, wait_until
from harness import ACCENT, BLACK, DEFAULT_HEADER, LAUNCHED, LOG_ROOT, NoticeTestCase, png, takes


class LaunchTest(NoticeTestCase):

    def test_name_is_owned_and_nothing_is_seen_before_a_message(self):
        self.screen.watch_maps()
        agent = self.launch()
        self.assertEqual(agent.process_id, self.bus.process_of(AGENT_NAME))
        # Long enough for whatever it warms up while idle.
        self.assert_stays_hidden(agent, 0.8)
        self.assertEqual([], self.screen.maps(), "windows mapped before the first message")
        self.assertEqual("", agent.output())

    def test_bundle_in_a_folder_with_blanks_and_foreign_letters(self):
        bundle = self.new_bundle("Zelvik Köln 100%/日本 ".replace("/", " "))
        bundle.image("own logo.png", png((0, 200, 0)))
        bundle.settings(AppLogo="own logo")
        agent = self.launch(bundle, environment={"LANG": "C"})
        self.post_to(agent, WebSocketType=True, MaintenanceMessageKey="there")
        agent.wait_text("there")
        self.assert_header_logo(agent, (0, 200, 0))

    def test_agent_ends_by_its_time_out_without_a_bus(self):
        self.bundle.info(Default_App_Timeout=1)
        agent = self.start(environment={"DBUS_SESSION_BUS_ADDRESS": f"unix:path={self.folder}/none"})
        self.assert_near(self.assert_ended(agent) - agent.started, 1, "end without a bus")
        self.assertIsNotNone(agent.log.find("debug", "Terminating Web Socket App after 1 Seconds."))


class TimeOutTest(NoticeTestCase):

    @takes(6)
    def test_it_comes_over_a_shown_notice_and_no_message_puts_it_off(self):
        self.bundle.info(Default_App_Timeout=5)
        agent = self.launch()
        self.post(WebSocketType=True, MaintenanceMessageKey="first")
        agent.wait_text("first")
        wait_until(lambda: time.time() - agent.started > 2, "some of the time is over")
        self.post(WebSocketType=True, MaintenanceMessageKey="second")
        agent.log.wait_for("info", "Message received from Main APP.", count=2)
        self.assert_near(self.assert_ended(agent) - agent.started, 5, "launch to end")
        self.assertEqual([*LAUNCHED, ("debug", "Terminating Web Socket App after 5 Seconds.")],
                         [agent.log.pairs()[number] for number in (0, 1, -1)])
        self.assertIsNone(self.bus.process_of(AGENT_NAME))


class SettingsTest(NoticeTestCase):

    def show_maintenance(self, agent, text, notification=None, **more):
        self.post(notification, WebSocketType=True, MaintenanceMessageKey=text, **more)
        agent.wait_text(text)
        agent.wait_visible()

    def test_settings_are_read_again_at_every_message(self):
        agent = self.launch()
        self.show_maintenance(agent, "before")
        self.assert_header(agent, DEFAULT_HEADER)
        self.assert_strip(agent, ACCENT)
        self.bundle.image("secondLogo.png", png((250, 0, 250)))
        other = self.new_name()
        self.bundle.settings(Vendor="KORVANE", globalAppViewBackgroundColor="#102030", AppLogo="secondLogo",
                             LogFolderName=other, format=plistlib.FMT_BINARY)
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
