#!/usr/bin/python3
"""Does what the documents say: every command of README.md is run, every link is followed.

The command post-notice is taken from the environment variable POST_NOTICE; without it the release build's is.
"""

import os
import re
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree
from pathlib import Path

import dbus

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "Tests/Acceptance"))

from desktop import AGENT_NAME, Bus, wait_until  # noqa: E402

POST_NOTICE = Path(os.environ.get("POST_NOTICE", ROOT / "build/release/bin/post-notice"))
DOCUMENTS = [*ROOT.glob("*.md"), *sorted((ROOT / "docs").rglob("*.md"))]

ANSWER = "zelvik_webSocketToMainAppNotifier"
BRAND_NAME = f"{AGENT_NAME}.zelvik"


def blocks(language, document="README.md"):
    text = (ROOT / document).read_text(encoding="utf-8")
    return re.findall(rf"^```{language}\n(.*?)^```$", text, re.MULTILINE | re.DOTALL)


def keys_of_the_table():
    """The user info as the contract has it: from key to bus type."""
    text = (ROOT / "docs/integration.md").read_text(encoding="utf-8")
    table = re.search(r"^\| key \| type \| meaning \|\n\|[-|]+\n((?:\|.*\n)+)", text, re.MULTILINE)
    return dict(re.findall(r"^\| `(\w+)` \| `(\w+)` \|", table.group(1), re.MULTILINE))


class CommandsTest(unittest.TestCase):
    """Every command runs in a folder where the names that README.md uses mean the build's."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        for name in ("Tools", "Resources"):
            (self.folder / name).symlink_to(ROOT / name)
        (self.folder / "NoticeAgent.app").symlink_to(POST_NOTICE.parent.parent / "NoticeAgent.app")
        self.bus = Bus(folder.name)
        self.addCleanup(self.bus.close)
        # The agent counts as installed; nobody starts it, since this test stands for it.
        self.bus.install(BRAND_NAME, "/bin/false", {})
        for name in (AGENT_NAME, BRAND_NAME):
            self.bus.connection.request_name(name)

    def run_command(self, command):
        """Runs it, and answers a call for signing in; returns the one message that it posted."""
        self.bus.heard.clear()
        environment = dict(os.environ, DBUS_SESSION_BUS_ADDRESS=self.bus.address,
                           PATH=f"{POST_NOTICE.parent}:/usr/bin:/bin")
        with open(self.folder / "output", "w+", encoding="utf-8") as output:
            process = subprocess.Popen(command, cwd=self.folder, env=environment, stdin=subprocess.DEVNULL,
                                       stdout=output, stderr=output)
            self.addCleanup(process.wait)
            self.addCleanup(process.kill)

            def ended():
                if self.bus.heard and "WebSocketReAuthType" in self.bus.heard[0].arguments[2]:
                    self.bus.emit("ss", ANSWER, "")
                return process.poll() is not None and (self.bus.heard or process.returncode)
            wait_until(ended, f"{command} ends", 60)
            output.seek(0)
            self.assertEqual(process.returncode, 0, f"{command}:\n{output.read()}")
        self.assertEqual(len(self.bus.heard), 1, command)
        return self.bus.heard[0]

    def assert_is_message(self, posted):
        self.assertEqual(posted.signature, "ssa{sv}")
        name, sender_object, user_info = posted.arguments
        self.assertEqual((name, sender_object), ("zelvik_socketMessageNotifier", ""))
        self.assertTrue(user_info)
        types = keys_of_the_table()
        for key, value in user_info.items():
            kinds = {dbus.Boolean: "b", dbus.String: "s", dbus.ByteArray: "ay"}
            self.assertEqual(kinds.get(type(value)), types.get(key), key)
        return user_info

    def test_each_shell_command_posts_a_message_of_the_contract(self):
        commands = [line for block in blocks("sh") for line in block.splitlines()]
        self.assertEqual(len(commands), 5)
        notices = set()
        for command in commands:
            with self.subTest(command):
                notices |= self.assert_is_message(self.run_command(["bash", "-ec", command])).keys()
        self.assertLessEqual({"WebSocketType", "AutoDisconnectWebSocketType", "WebSocketReAuthType",
                              "WebSocketAdminDisconnect", "webSocketResponse"}, notices)

    def test_commands_of_the_integration_page(self):
        *own, for_a_user = blocks("sh", "docs/integration.md")
        self.assertEqual(len(own), 3)
        for command in own:
            with self.subTest(command):
                self.assert_is_message(self.run_command(["bash", "-ec", command]))
        # Whoever runs this may have no session of their own; the test's is given.
        for_test = 'USER=$(id -un); ' + for_a_user.replace("--user", f"--bus '{self.bus.address}' --user")
        self.assert_is_message(self.run_command(["bash", "-ec", for_test]))
        (program,) = blocks("python", "docs/integration.md")
        self.assert_is_message(self.run_command(["/usr/bin/python3", "-c", program]))

    def test_table_of_keys_is_whole(self):
        header = (ROOT / "Contract/Message.h").read_text(encoding="utf-8")
        self.assertEqual(sorted(keys_of_the_table()), sorted(re.findall(r'= "(\w+)";', header)))


class DocumentsTest(unittest.TestCase):
    def test_links_lead_somewhere_and_files_that_are_named_are_there(self):
        rooms = "|".join(path.name for path in ROOT.iterdir() if path.is_dir() and path.name != "build")
        for document in DOCUMENTS:
            text = document.read_text(encoding="utf-8")
            for path in (*(document.parent / target for target in re.findall(r"\]\((?!https://)([^)#]+)", text)),
                         *(ROOT / name for name in re.findall(rf"`((?:{rooms})/[\w./@-]*)", text))):
                with self.subTest(document=document.name, path=path):
                    self.assertTrue(path.exists())

    def test_xml_documents_are_well_formed(self):
        samples = [sample.read_text(encoding="utf-8") for sample in (ROOT / "Tools" / "samples").glob("*.xml")]
        self.assertGreaterEqual(len(samples), 2)
        for text in [*blocks("xml", "docs/integration.md"), *samples]:
            root = xml.etree.ElementTree.fromstring(text.encode())
            self.assertEqual(root.tag, "zelvik-secure-access")
            self.assertIsNotNone(root.find("notifications/head"))


if __name__ == "__main__":
    unittest.main()
