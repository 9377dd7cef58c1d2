"""The names on the bus: whose they are, and until when."""

import tempfile

from desktop import AGENT_NAME, wait_until
from harness import LAUNCHED, Bundle, NoticeTestCase, takes


class NameTest(NoticeTestCase):

    def setUp(self):
        super().setUp()
        self.brand_name = f"{AGENT_NAME}.{self.brand}"

    def test_message_posted_as_soon_as_the_name_is_owned_is_never_lost(self):
        # From within the bus's own signal, with nothing in between.
        match = self.bus.connection.add_signal_receiver(
            lambda _name, _old, new: new and self.post(WebSocketType=True, MaintenanceMessageKey="quick"),
            "NameOwnerChanged", "org.freedesktop.DBus", arg0=self.brand_name)
        self.addCleanup(match.remove)
        self.start().wait_text("quick")

    def test_brands_stand_side_by_side(self):
        first = self.launch()
        other = self.new_bundle()
        second = self.launch(other)
        self.assertEqual([first.process_id, second.process_id], self.bus.queue_of(AGENT_NAME))
        self.assertEqual(first.process_id, self.bus.process_of(self.brand_name))
        self.assertEqual(second.process_id, self.bus.process_of(f"{AGENT_NAME}.{other.log_folder_name}"))
        # Each hears its own brand only, the common name's owner or not.
        self.post_to(second, WebSocketType=True, MaintenanceMessageKey="second")
        second.wait_text("second")
        self.assertEqual(0, first.log.count("info", "Message received from Main APP."))
        self.assertEqual([], first.visible_windows())
        self.post(WebSocketType=True, MaintenanceMessageKey="first")
        first.wait_text("first")
        self.assertEqual(1, second.log.count("info", "Message received from Main APP."))
        first.end()
        wait_until(lambda: self.bus.queue_of(AGENT_NAME) == [second.process_id], "the second agent owns the name")

    @takes(2)
    def test_second_agent_of_a_brand_ends_at_once_with_one_record(self):
        first = self.launch()
        copy = Bundle(tempfile.mkdtemp(dir=self.folder), self.brand)
        for bundle in (self.bundle, copy):
            logged = len(first.log.pairs())
            second = self.start(bundle)
            self.assert_near(self.assert_ended(second) - second.started, 0, "start to end")
            self.assertEqual([("error", "Another agent of this brand runs already; this one ends.")],
                             first.log.pairs()[logged + len(LAUNCHED):])
        self.assertEqual([first.process_id], self.bus.queue_of(self.brand_name))
        self.post(WebSocketType=True, MaintenanceMessageKey="once")
        first.wait_text("once")

    @takes(4)
    def test_of_two_agents_started_at_once_one_stays(self):
        for _round in range(3):
            agents = [self.start(), self.start()]
            wait_until(lambda: sum(agent.running() for agent in agents) == 1, "one of the two ends")
            stays = next(agent for agent in agents if agent.running())
            stays.wait_ready()
            self.assertEqual([stays.process_id], self.bus.queue_of(self.brand_name))
            self.assertTrue(stays.running())
            stays.end()

    @takes(3)
    def test_killed_and_started_again_at_once(self):
        for _round in range(10):
            agent = self.launch()
            agent.process.kill()
        agent.end()
        self.launch()

    def assert_names_are_given_back(self):
        for name in (AGENT_NAME, self.brand_name):
            wait_until(lambda: self.bus.process_of(name) is None, f"{name} is given back", interval=0.005)

    @takes(3)
    def test_names_are_given_back_when_ok_is_pressed_and_messages_are_heard_until_the_end(self):
        agent = self.launch()
        self.post(AutoDisconnectWebSocketType=True, AutoDisconnectMessageKey="text")
        agent.wait_visible()
        agent.press_ok()
        self.assert_names_are_given_back()
        self.post(webSocketappLanguageKey="last")
        agent.log.wait_for("info", "Bundle Language View last")
        # The next agent starts beside the one that ends.
        following = self.launch()
        self.assert_ended(agent)
        self.assertTrue(following.running())
