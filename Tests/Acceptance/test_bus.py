"""What other programs do on the bus, rightly and wrongly."""

import glob
import struct
import tempfile
import zlib

import dbus
import dbus.bus

from desktop import AGENT_NAME, holds_for, wait_until
from harness import LAUNCHED, THREE_ROWS, Bundle, NoticeTestCase, Starts, bus_value, notice_xml, takes


class DeliveryTest(NoticeTestCase):

    def test_message_posted_as_soon_as_the_name_is_owned_is_never_lost(self):
        for number in range(5):
            bundle = self.new_bundle()
            name = f"{bundle.log_folder_name}_socketMessageNotifier"
            # Posted from within the bus's own signal, with nothing in between.
            values = dbus.Dictionary({"WebSocketType": bus_value(True),
                                      "MaintenanceMessageKey": bus_value(f"quick {number}")}, signature="sv")
            posted = []

            def owner_changed(owned, _old, new):
                if owned == AGENT_NAME and new:
                    self.bus.emit("ssa{sv}", name, "", values)
                    posted.append(new)
            match = self.bus.connection.add_signal_receiver(
                owner_changed, "NameOwnerChanged", "org.freedesktop.DBus", arg0=AGENT_NAME)
            try:
                agent = self.start(bundle)
                wait_until(lambda: posted, "the name is owned")
            finally:
                match.remove()
            agent.log.wait_for("info", "Message received from Main APP.")
            agent.wait_text(f"quick {number}")
            agent.end()

    @takes(4)
    def test_of_two_thousand_messages_none_is_lost_and_the_last_one_wins(self):
        agent = self.launch()
        for number in range(1999):
            self.post(WebSocketType=True, MaintenanceMessageKey=f"number {number}")
        self.post(WebSocketType=True, MaintenanceMessageKey="the last one", webSocketappLanguageKey="last")
        agent.wait_text("the last one", 120)
        agent.wait_visible()
        self.assertEqual(1, len(agent.visible_windows()))
        agent.log.wait_for("info", "Bundle Language View last")
        # The log may have begun a new file on the way, and no more than one.
        received_count = 0
        for path in glob.glob(f"{agent.log.folder}/*"):
            with open(path, encoding="utf-8") as file:
                received_count += file.read().count("[info] : Message received from Main APP.\n")
        self.assertEqual(2000, received_count)
        agent.press_ok()
        self.assert_ended(agent)

    def test_message_of_some_megabytes(self):
        agent = self.launch()
        self.post(WebSocketType=True, MaintenanceMessageKey="big company", HeaderLogoImage=b"\xff" * 5_000_000,
                  webSocketResponse="<a>" + "x" * 3_000_000 + "</a>")
        agent.wait_text("big company")
        agent.log.wait_for("info", "Setting Logo from Zelvik Sase Client 5000000 bytes")

    @takes(2)
    def test_picture_that_grows_beyond_the_memory_is_no_picture(self):
        side = 25_000

        def chunk(kind, content):
            return (struct.pack(">I", len(content)) + kind + content
                    + struct.pack(">I", zlib.crc32(kind + content)))
        rows = zlib.compressobj(9)
        row = bytes(1 + side * 4)
        packed = b"".join(rows.compress(row) for _ in range(200)) + rows.flush()
        picture = (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", side, side, 8, 6, 0, 0, 0))
                   + chunk(b"IDAT", packed) + chunk(b"IEND", b""))
        agent = self.launch()
        self.post(WebSocketType=True, MaintenanceMessageKey="bomb", webSocketResponse="x", HeaderLogoImage=picture)
        agent.wait_text("bomb")
        self.assertTrue(agent.running())
        with open(f"/proc/{agent.process_id}/status", encoding="ascii") as file:
            peak = next(int(line.split()[1]) for line in file if line.startswith("VmHWM"))
        self.assertLess(peak, 600_000, "peak memory in kB")

    def test_deeply_nested_document_does_not_crash(self):
        agent = self.launch()
        depth = 100_000
        self.post(webSocketResponse="<a>" * depth + "</a>" * depth)
        # Parsed or refused, it ends in an ordinary way.
        wait_until(lambda: not agent.running() or agent.visible(), "a notice or an end")
        if not agent.running():
            self.assertEqual(0, agent.process.returncode)
            self.assertTrue(agent.log.find("error", Starts("Unable to parse xml string : <a>")))

    def test_entity_bombs_and_foreign_files_are_not_followed(self):
        secret = f"{self.folder}/secret.txt"
        with open(secret, "w", encoding="ascii") as file:
            file.write("secret-content")
        document = (f'<!DOCTYPE d [<!ENTITY e SYSTEM "file://{secret}">]>'
                    + notice_xml(head="Head", body="BODY").replace("BODY", "&e;"))
        agent = self.launch()
        self.post(webSocketResponse=document)
        wait_until(lambda: not agent.running() or agent.visible(), "a notice or an end")
        if agent.running():
            self.assertFalse([text for text in agent.texts() if "secret-content" in text])
        else:
            self.assertEqual(0, agent.process.returncode)

        entities = "".join(f'<!ENTITY e{n} "{f"&e{n - 1};" * 10}">' for n in range(1, 12))
        bomb = (f'<!DOCTYPE d [<!ENTITY e0 "lol">{entities}]>' + notice_xml(body="BODY").replace("BODY", "&e11;"))
        bundle = self.new_bundle()
        second = self.launch(bundle)
        self.post(f"{bundle.log_folder_name}_socketMessageNotifier", webSocketResponse=bomb)
        wait_until(lambda: not second.running() or second.visible(), "a notice or an end")
        if not second.running():
            self.assertEqual(0, second.process.returncode)


class NameTest(NoticeTestCase):

    def setUp(self):
        super().setUp()
        self.brand_name = f"{AGENT_NAME}.{self.brand}"

    def test_brands_stand_side_by_side(self):
        first = self.launch()
        other = self.new_bundle()
        second = self.launch(other)
        self.assertEqual([first.process_id, second.process_id], self.bus.queue_of(AGENT_NAME))
        self.assertEqual(first.process_id, self.bus.process_of(self.brand_name))
        self.assertEqual(second.process_id, self.bus.process_of(f"{AGENT_NAME}.{other.log_folder_name}"))
        # Each hears its own brand only, the common name's owner or not.
        self.post(f"{other.log_folder_name}_socketMessageNotifier", WebSocketType=True, MaintenanceMessageKey="second")
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
        for _round in range(5):
            agents = [self.start(), self.start()]
            wait_until(lambda: sum(agent.running() for agent in agents) == 1, "one of the two ends")
            stays = next(agent for agent in agents if agent.running())
            stays.wait_ready()
            self.assertEqual([stays.process_id], self.bus.queue_of(self.brand_name))
            self.assertTrue(stays.running())
            stays.end()

    @takes(3)
    def test_killed_and_started_again_at_once(self):
        for _round in range(20):
            agent = self.launch()
            agent.process.kill()
        agent.end()
        self.launch()

    @takes(2)
    def test_names_that_another_program_owns_mute_nothing(self):
        taken = self.bus.connect()
        self.addCleanup(taken.close)
        for name in (AGENT_NAME, self.brand_name):
            taken.request_name(name, dbus.bus.NAME_FLAG_DO_NOT_QUEUE)
        agent = self.launch()
        self.post(WebSocketType=True, MaintenanceMessageKey="all the same")
        agent.wait_text("all the same")
        for name in (AGENT_NAME, self.brand_name):
            taken.release_name(name)
            wait_until(lambda: self.bus.process_of(name) == agent.process_id, "the name passes on")

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

    @takes(4)
    def test_names_are_given_back_when_a_countdown_is_at_its_end(self):
        agent = self.launch()
        self.post_casb(rows=THREE_ROWS, timeout=2)
        agent.wait_visible()
        self.assert_names_are_given_back()
        self.post(webSocketappLanguageKey="last")
        agent.log.wait_for("info", "Bundle Language View last")
        self.assert_ended(agent)

    def test_without_a_display_it_ends_before_it_owns_a_name(self):
        owned = []
        match = self.bus.connection.add_signal_receiver(
            lambda name, _old, _new: owned.append(name), "NameOwnerChanged", "org.freedesktop.DBus")
        self.addCleanup(match.remove)
        agent = self.start(environment={"DISPLAY": None, "WAYLAND_DISPLAY": None})
        self.assert_ended(agent)
        self.assertEqual(1, len(agent.errors().splitlines()), agent.errors())
        holds_for(lambda: not [name for name in owned if str(name).startswith(AGENT_NAME)], 0.3, "a name was owned")

    def test_agent_posts_nothing_of_its_own_accord(self):
        agent = self.launch()
        self.post(WebSocketType=True, MaintenanceMessageKey="a")
        self.post(AutoDisconnectWebSocketType=True)
        self.post(WebSocketAdminDisconnect=True)
        self.post(WebSocketReAuthType=True)
        agent.wait_visible()
        holds_for(lambda: not self.bus.heard, 0.5, "the agent posted something")
