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

    def assert_still_answers(self, agent, text="still here"):
        self.post(WebSocketType=True, MaintenanceMessageKey=text)
        agent.wait_text(text, 60 * SLOWNESS)
        if not IS_SANITIZED:
            self.assertLess(memory(agent.process_id, "VmHWM"), MOST_MEMORY, "peak memory in kB")


class DocumentTest(HostileTestCase):

    @takes(5)
    def test_sixty_four_megabytes_of_text_are_refused(self):
        # The bus itself takes no more than 67 in one user info.
        agent = self.launch()
        self.post(webSocketResponse=notice_xml(body="x" * 64_000_000))
        self.assert_ended(agent, timeout=60 * SLOWNESS)
        self.assertIsNotNone(agent.log.find("error", Starts("Unable to parse xml string : ")))
        # Each of its records began the file anew, and was written whole.
        self.assertEqual(2, len(os.listdir(agent.log.folder)))
        self.assertTrue(64_000_000 < os.path.getsize(agent.log.path) < 70_000_000)


class PictureTest(HostileTestCase):

    def show_logo(self, logo):
        agent = self.launch()
        self.post(WebSocketType=True, webSocketResponse="x", MaintenanceMessageKey="text", HeaderLogoImage=logo)
        agent.wait_text("text")
        return agent

    @takes(3)
    def test_animated_picture_is_its_first_frame(self):
        frames = [Image.new("P", (64, 32), number) for number in range(200)]
        picture = io.BytesIO()
        frames[0].save(picture, "GIF", save_all=True, append_images=frames[1:], duration=20, loop=0)
        agent = self.show_logo(picture.getvalue())

        def processor_time():
            with open(f"/proc/{agent.process_id}/stat", encoding="ascii") as file:
                return file.read().rpartition(")")[2].split()[11:13]
        wait_until(lambda: processor_time() == (time.sleep(0.2), processor_time())[1],
                   "nothing goes on behind the notice")

    def test_a_format_that_nothing_reads_is_logged(self):
        installed = subprocess.check_output(["qmake6", "-query", "QT_INSTALL_PLUGINS"], text=True).strip()
        os.symlink(os.path.join(installed, "platforms"), os.path.join(self.folder, "platforms"))
        with open(os.path.join(self.bundle.contents, "Linux", "qt.conf"), "w", encoding="utf-8") as file:
            file.write(f"[Paths]\nPlugins={self.folder}\n")
        agent = self.show_logo(b"<svg xmlns='http://www.w3.org/2000/svg' width='9' height='9'/>")
        agent.log.wait_for("error", "Nothing installed reads images of the format svg")


class TextTest(HostileTestCase):

    @takes(5)
    def test_ten_megabytes_in_every_text(self):
        agent = self.launch()
        long = "word \u202e " * 1_000_000
        self.post(WebSocketType=True, MaintenanceMessageKey=long)
        self.post(AutoDisconnectWebSocketType=True, AutoDisconnectMessageKey=long)
        self.post_casb(head="x" * 3_000_000, module=long[:3_000_000], body="y" * 3_000_000,
                       rows=(("z" * 999_999, "v"),), timeout=600)
        self.assert_still_answers(agent)


class BusTest(HostileTestCase):

    @takes(3)
    def test_deep_and_wide_values(self):
        deep = dbus.Boolean(True, variant_level=30)
        wide = {f"key {number}": dbus.Int32(number) for number in range(50_000)}
        agent = self.launch()
        self.post(WebSocketType=deep, MaintenanceMessageKey="deep")
        self.post(WebSocketType=True, MaintenanceMessageKey="wide", **wide)
        agent.wait_text("wide")
        self.assertEqual(0, agent.log.count("error", Starts("")))
        self.assert_still_answers(agent)

    @takes(6)
    def test_message_of_a_hundred_megabytes(self):
        agent = self.launch()
        half = dbus.ByteArray(bytes(50_000_000))
        # Only a message of a wrong shape can be so large: the bus takes 67 megabytes in one array.
        self.bus.emit("ssayay", f"{self.brand}_socketMessageNotifier", "", half, half)
        self.assert_still_answers(agent, "behind the wrong one")
        self.assertIsNotNone(agent.log.find("error", Starts("Dropped a notification of a wrong shape: (ssayay)")))
        self.post(WebSocketType=True, MaintenanceMessageKey="huge", HeaderLogoImage=bytes(60_000_000),
                  webSocketResponse="x")
        agent.log.wait_for("info", "Setting Logo from Zelvik Sase Client 60000000 bytes", timeout=60)
        self.assert_still_answers(agent)
