"""What other programs do on the bus, rightly and wrongly."""

import glob
import struct
import zlib

import dbus
import dbus.lowlevel

from desktop import AGENT_NAME, CENTER_INTERFACE, holds_for, wait_until
from harness import LAUNCHED, SLOWNESS, NoticeTestCase, Starts, bus_value, notice_xml, received, takes


class MalformedSignalTest(NoticeTestCase):

    def test_signal_of_another_shape_is_dropped_with_one_error_line(self):
        agent = self.launch()
        name = f"{self.brand}_socketMessageNotifier"
        flags = dbus.Dictionary({"WebSocketType": bus_value(True)}, signature="sv")
        shapes = (
            ("s", (name,)),
            ("si", (name, 1)),
            ("sa{sv}", (name, flags)),
            ("sss", (name, "", "text")),
            ("ssi", (name, "", 1)),
            ("ssas", (name, "", ["WebSocketType"])),
            ("ssa{ss}", (name, "", {"WebSocketType": "true"})),
            ("ssa{sb}", (name, "", {"WebSocketType": True})),
            ("ssa{iv}", (name, "", {1: dbus.Boolean(True, variant_level=1)})),
            ("ssv", (name, "", dbus.Dictionary({"WebSocketType": bus_value(True)}, signature="sv", variant_level=1))),
            ("ssa{sv}s", (name, "", flags, "more")),
            ("ssa{sv}a{sv}", (name, "", flags, flags)),
            ("sia{sv}", (name, 1, flags)),
            ("sva{sv}", (name, dbus.String("", variant_level=1), flags)),
            ("soa{sv}", (name, dbus.ObjectPath("/"), flags)),
        )
        logged = len(LAUNCHED)
        for number, (signature, arguments) in enumerate(shapes, 1):
            with self.subTest(signature=signature):
                self.bus.emit(signature, *arguments)
                # A good message behind it shows that the bad one is through.
                self.post(webSocketappLanguageKey=f"after-{number}")
                agent.log.wait_for("info", f"Bundle Language View after-{number}")
                pairs = agent.log.pairs()[logged:]
                logged += len(pairs)
                self.assertEqual(["error", "info", "debug", "info"], [level for level, _message in pairs], pairs)
                self.assertNotIn("\n", pairs[0][1], "one line")
        self.assert_stays_hidden(agent, 0.3)

    def test_signal_without_arguments_or_name_is_not_for_this_agent(self):
        agent = self.launch()
        self.bus.emit("")
        self.bus.emit("i", 1)
        self.bus.emit("as", [f"{self.brand}_socketMessageNotifier"])
        self.bus.emit("o", dbus.ObjectPath("/"))
        self.post(WebSocketType=True, MaintenanceMessageKey="well")
        agent.wait_text("well")
        self.assertEqual(LAUNCHED + received(), agent.log.pairs()[:5])

    def test_same_member_of_another_interface_is_not_for_this_agent(self):
        agent = self.launch()
        message = dbus.lowlevel.SignalMessage("/com/tevanic/DistributedNotificationCenter",
                                              CENTER_INTERFACE + "2", "Posted")
        message.append(f"{self.brand}_socketMessageNotifier", "", signature="ss")
        self.bus.connection.send_message(message)
        self.post(WebSocketType=True, MaintenanceMessageKey="well")
        agent.wait_text("well")
        self.assertEqual(1, agent.log.count("info", "Message received from Main APP."))

    def test_values_of_every_type_are_kept_and_harm_nothing(self):
        agent = self.launch()
        strange = {
            "byte": dbus.Byte(1, variant_level=1),
            "short": dbus.Int16(-1, variant_level=1),
            "unsigned": dbus.UInt64(2**64 - 1, variant_level=1),
            "double": dbus.Double(float("nan"), variant_level=1),
            "path": dbus.ObjectPath("/a/b", variant_level=1),
            "signature": dbus.Signature("a{sv}", variant_level=1),
            "variant": dbus.Boolean(True, variant_level=3),
            "structure": dbus.Struct((1, "a", dbus.Array([], signature="as")), variant_level=1),
            "map": dbus.Dictionary({dbus.Int32(1): dbus.Array([dbus.Struct((True,))])}, signature="ia(b)",
                                   variant_level=1),
            "empty": dbus.Array([], signature="(sv)", variant_level=1),
            "": dbus.String("under the empty key", variant_level=1),
        }
        self.post(WebSocketType=True, MaintenanceMessageKey="strange company", **strange)
        agent.wait_text("strange company")
        self.assertEqual(0, agent.log.count("error", Starts("")))

    def test_boolean_inside_a_second_variant_harms_nothing(self):
        agent = self.launch()
        self.post(WebSocketType=dbus.Boolean(True, variant_level=2), MaintenanceMessageKey="inner")
        self.post(webSocketappLanguageKey="probe")
        agent.log.wait_for("info", "Bundle Language View probe")
        self.assertTrue(agent.running())


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
        agent.wait_text("the last one", 60)
        agent.wait_visible()
        self.assertEqual(1, len(agent.visible_windows()))
        agent.log.wait_for("info", "Bundle Language View last")
        # The log may have begun a new file on the way, and no more than one.
        received_count = 0
        for path in glob.glob(f"{agent.log.folder}/*"):
            with open(path, encoding="utf-8") as file:
                received_count += file.read().count("[info] : Message received from Main APP.\n")
        self.assertEqual(2000, received_count)
        pressed = agent.press_ok()
        self.assertLess(self.assert_ended(agent) - pressed, SLOWNESS)

    @takes(3)
    def test_two_thousand_casb_messages_show_the_last_one(self):
        agent = self.launch()
        for number in range(2000):
            self.post_casb(head=f"head {number}", timeout="600", rows=[("c", f"v{number}"), ("d", "w"), ("e", "x")])
        agent.wait_text("head 1999 by Cloud Access Policy", 60)
        agent.wait_text("v1999")

    def test_message_of_some_megabytes(self):
        agent = self.launch()
        self.post(WebSocketType=True, MaintenanceMessageKey="big company", HeaderLogoImage=b"\xff" * 5_000_000,
                  webSocketResponse="<a>" + "x" * 3_000_000 + "</a>")
        agent.wait_text("big company", 20)
        agent.log.wait_for("info", "Setting Logo from Zelvik Sase Client 5000000 bytes", timeout=5)

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

    def test_second_agent_queues_for_the_name(self):
        first = self.launch()
        other = self.new_bundle()
        second = self.launch(other)
        self.assertEqual([first.process_id, second.process_id], self.bus.queue_of(AGENT_NAME))
        # Each hears its own brand only, the name's owner or not.
        self.post(f"{other.log_folder_name}_socketMessageNotifier", WebSocketType=True, MaintenanceMessageKey="second")
        second.wait_text("second")
        self.assertEqual(0, first.log.count("info", "Message received from Main APP."))
        self.assertEqual([], first.visible_windows())
        self.post(WebSocketType=True, MaintenanceMessageKey="first")
        first.wait_text("first")
        self.assertEqual(1, second.log.count("info", "Message received from Main APP."))
        first.end()
        wait_until(lambda: self.bus.queue_of(AGENT_NAME) == [second.process_id], "the second agent owns the name")

    def test_two_agents_of_one_brand_both_show_a_message(self):
        first = self.launch()
        second = self.launch()
        self.post(WebSocketType=True, MaintenanceMessageKey="both")
        first.wait_text("both")
        second.wait_text("both")

    def test_name_is_given_back_at_the_end(self):
        agent = self.launch()
        self.post(webSocketResponse="<a>")
        self.assert_ended(agent)
        wait_until(lambda: self.bus.process_of(AGENT_NAME) is None, "the name is free")

    def test_agent_posts_nothing_of_its_own_accord(self):
        agent = self.launch()
        self.post(WebSocketType=True, MaintenanceMessageKey="a")
        self.post(AutoDisconnectWebSocketType=True)
        self.post(WebSocketAdminDisconnect=True)
        self.post(WebSocketReAuthType=True)
        agent.wait_visible()
        holds_for(lambda: not self.bus.heard, 0.5, "the agent posted something")
