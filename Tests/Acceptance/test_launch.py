"""Start-up, and the end by time-out."""

import time

from desktop import AGENT_NAME, holds_for, wait_until
from harness import LAUNCHED, NoticeTestCase, takes


class LaunchTest(NoticeTestCase):

    def test_name_is_owned_and_nothing_is_seen_before_a_message(self):
        self.screen.watch_maps()
        agent = self.launch()
        self.assertEqual(agent.process_id, self.bus.process_of(AGENT_NAME))
        # Long enough for whatever it warms up while idle.
        holds_for(lambda: not agent.visible_windows(), 0.8, "a window came up before the first message")
        self.assertEqual([], self.screen.maps(), "windows mapped before the first message")
        self.assertEqual("", agent.output())

    def test_agent_ends_by_its_time_out_without_a_bus(self):
        self.bundle.info(Default_App_Timeout=1)
        agent = self.start(environment={"DBUS_SESSION_BUS_ADDRESS": f"unix:path={self.folder}/none"})
        self.assert_near(self.assert_ended(agent) - agent.started, 1, "end without a bus")
        self.assertIsNotNone(agent.log.find("debug", "Terminating Web Socket App after 1 Seconds."))

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
        self.assertEqual([*LAUNCHED, ("debug", "Terminating Web Socket App after 5 Seconds.")],
                         [agent.log.pairs()[number] for number in (0, 1, -1)])
        self.assertIsNone(self.bus.process_of(AGENT_NAME))
