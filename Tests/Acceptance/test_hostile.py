"""Messages that mean harm: the agent stays within bounds of time and memory. What readers, decoders and the gateway
client refuse is asked of them in their unit tests."""

import io
import os
import subprocess
import time

import dbus
from PIL import Image

from desktop import wait_until
from harness import IS_SANITIZED, SLOWNESS, NoticeTestCase, Starts, memory, notice_xml, takes

# What the agent may take for one message, in kB: some copies of the largest one, two bytes a character in most.
MOST_MEMORY = 1_000_000


class HostileTestCase(NoticeTestCase):

    def assert_bounded(self, agent, most=MOST_MEMORY):
        if agent.running() and not IS_SANITIZED:
            self.assertLess(memory(agent.process_id, "VmHWM"), most, "peak memory in kB")

    def assert_still_answers(self, agent, text="still here"):
        self.post(WebSocketType=True, MaintenanceMessageKey=text)
        agent.wait_text(text)


class DocumentTest(HostileTestCase):

    @takes(5)
    def test_sixty_four_megabytes_of_text_are_refused(self):
        # The bus itself takes no more than 67 in one user info.
        agent = self.launch()
        self.post(webSocketResponse=notice_xml(body="x" * 64_000_000))
        self.assert_ended(agent, timeout=60 * SLOWNESS)
        self.assertIsNotNone(agent.log.find("error", Starts("Unable to parse xml string : ")))


class PictureTest(HostileTestCase):

    @takes(3)
    def test_animated_picture_is_its_first_frame(self):
        frames = [Image.new("P", (64, 32), number) for number in range(200)]
        picture = io.BytesIO()
        frames[0].save(picture, "GIF", save_all=True, append_images=frames[1:], duration=20, loop=0)
        agent = self.launch()
        self.post(WebSocketType=True, webSocketResponse="x", MaintenanceMessageKey="animated",
                  HeaderLogoImage=picture.getvalue())
        agent.wait_text("animated")

        def processor_time():
            with open(f"/proc/{agent.process_id}/stat", encoding="ascii") as file:
                fields = file.read().rpartition(")")[2].split()
            return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")
        wait_until(lambda: processor_time() == (time.sleep(0.2), processor_time())[1], "nothing goes on behind the notice")


    def test_a_format_that_nothing_reads_is_logged(self):
        installed = subprocess.check_output(["qmake6", "-query", "QT_INSTALL_PLUGINS"], text=True).strip()
        plugins = os.path.join(self.folder, "plugins")
        os.mkdir(plugins)
        os.symlink(os.path.join(installed, "platforms"), os.path.join(plugins, "platforms"))
        with open(os.path.join(self.bundle.contents, "Linux", "qt.conf"), "w", encoding="utf-8") as file:
            file.write(f"[Paths]\nPlugins={plugins}\n")
        agent = self.launch()
        self.post(WebSocketType=True, webSocketResponse="x", MaintenanceMessageKey="drawn",
                  HeaderLogoImage=b"<svg xmlns='http://www.w3.org/2000/svg' width='9' height='9'/>")
        agent.wait_text("drawn")
        agent.log.wait_for("error", "Nothing installed reads images of the format svg")


class TextTest(HostileTestCase):

    @takes(5)
    def test_ten_megabytes_in_every_text(self):
        agent = self.launch()
        long = "word \u202e " * 1_000_000
        self.post(WebSocketType=True, MaintenanceMessageKey=long)
        self.post(AutoDisconnectWebSocketType=True, AutoDisconnectMessageKey=long)
        self.post_casb(head="x" * 3_000_000, module=long[:3_000_000], body="y" * 3_000_000, rows=(("z" * 999_999, "v"),),
                       timeout=600)
        self.post(webSocketappLanguageKey="behind")
        agent.log.wait_for("info", "Bundle Language View behind", timeout=60 * SLOWNESS)
        self.assert_bounded(agent)
        self.assert_still_answers(agent)

    def test_direction_marks_stay_within_their_own_label(self):
        agent = self.launch()
        override = "\u202eevil\u202d\u2066\u2067"
        self.post_casb(head=override, module="module", body="body", timeout=600,
                       rows=(("Activity", "Upload"), ("Application", override * 50), ("URL", f"https://a/{override}")))
        agent.wait_text("body")
        texts = agent.texts()
        # Each label holds its own text and no other's, in the order of the notice.
        for text in (f"{override} by module", "body", "Activity", "Upload", "Application", "URL",
                     f"https://a/{override}"):
            self.assertIn(text, texts)
        left, right = (agent.find_element(text) for text in ("Activity", "Upload"))
        self.assertLess(left.extents[0], right.extents[0], "the caption is left of the value")


class BusTest(HostileTestCase):

    @takes(3)
    def test_deep_and_wide_values(self):

        deep = dbus.Boolean(True, variant_level=30)
        arrays = dbus.Array([], signature="i")
        for _ in range(28):
            arrays = dbus.Array([arrays], signature=arrays.signature and "a" + str(arrays.signature))
        wide = {f"key {number}": dbus.Int32(number, variant_level=1) for number in range(50_000)}
        agent = self.launch()
        self.post(WebSocketType=deep, MaintenanceMessageKey="deep")
        self.post(WebSocketType=True, MaintenanceMessageKey="arrays",
                  more=dbus.Array(arrays, signature=arrays.signature, variant_level=1))
        agent.wait_text("arrays")
        self.post(WebSocketType=True, MaintenanceMessageKey="wide", **wide)
        agent.wait_text("wide")
        self.assertEqual(0, agent.log.count("error", Starts("")))
        self.assert_bounded(agent)

    @takes(6)
    def test_message_of_a_hundred_megabytes(self):
        agent = self.launch()
        name = f"{self.brand}_socketMessageNotifier"
        half = dbus.ByteArray(bytes(50_000_000))
        # Only a message of a wrong shape can be so large: the bus takes 67 megabytes in one array.
        self.bus.emit("ssayay", name, "", half, half)
        self.assert_still_answers(agent, "behind the wrong one")
        self.assertIsNotNone(agent.log.find("error", Starts("Dropped a notification of a wrong shape: (ssayay)")))
        self.post(WebSocketType=True, MaintenanceMessageKey="huge", HeaderLogoImage=bytes(60_000_000),
                  webSocketResponse="x")
        agent.wait_text("huge", 60)
        agent.log.wait_for("info", "Setting Logo from Zelvik Sase Client 60000000 bytes")
        self.assert_bounded(agent)
        self.assert_still_answers(agent)

    @takes(6)
    def test_sixty_four_megabytes_in_the_log_hold_nothing_up(self):
        agent = self.launch()
        self.post(WebSocketType=True, MaintenanceMessageKey="logged", note="x" * 64_000_000)
        self.post(webSocketappLanguageKey="behind")
        agent.log.wait_for("info", "Bundle Language View behind", timeout=60 * SLOWNESS)
        self.assertLessEqual(len(os.listdir(agent.log.folder)), 2)
        self.assertLess(os.path.getsize(agent.log.path), 2 << 20, "the file was begun anew behind the long record")
