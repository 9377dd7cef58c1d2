#!/usr/bin/python3
"""Does what the documents say: every command of README.md is run, every link is followed.

The command post-notice is taken from the environment variable POST_NOTICE; without it the release build's is.
"""

import os
import re
import subprocess
import tempfile
import time
import unittest
import xml.etree.ElementTree
from pathlib import Path

import gi

gi.require_version("Gio", "2.0")
from gi.repository import Gio, GLib  # noqa: E402

ROOT = Path(__file__).resolve().parents[2]
POST_NOTICE = Path(os.environ.get("POST_NOTICE", ROOT / "build/release/bin/post-notice"))
DOCUMENTS = [ROOT / name for name in ("README.md", "ARCHITECTURE.md", "CONTRIBUTING.md", "CHANGELOG.md", "SECURITY.md", "docs/integration.md")]
DOCUMENTS += sorted((ROOT / "docs").rglob("*.md"))

INTERFACE = "com.tevanic.DistributedNotificationCenter"
PATH = "/com/tevanic/DistributedNotificationCenter"
ANSWER = "zelvik_webSocketToMainAppNotifier"
AGENT_NAME = "com.tevanic.NoticeAgent.zelvik"


def blocks(language, document="README.md"):
    text = (ROOT / document).read_text(encoding="utf-8")
    return re.findall(rf"^```{language}\n(.*?)^```$", text, re.MULTILINE | re.DOTALL)


def keys_of_the_table():
    """The user info as the contract has it: from key to bus type."""
    text = (ROOT / "docs/integration.md").read_text(encoding="utf-8")
    table = re.search(r"^\| key \| type \| meaning \|\n\|[-|]+\n((?:\|.*\n)+)", text, re.MULTILINE)
    return dict(re.findall(r"^\| `(\w+)` \| `(\w+)` \|", table.group(1), re.MULTILINE))


class Agent:
    """Stands for the agent: owns its name, notes what is posted, answers a call for signing in."""

    def __init__(self, address):
        self.posted = []
        self.bus = Gio.DBusConnection.new_for_address_sync(
            address,
            Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT | Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION)
        self.bus.signal_subscribe(None, INTERFACE, "Posted", PATH, None, Gio.DBusSignalFlags.NONE, self._note)
        for name in ("com.tevanic.NoticeAgent", AGENT_NAME):
            self.bus.call_sync("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "RequestName",
                               GLib.Variant("(su)", (name, 0)), None, Gio.DBusCallFlags.NONE, -1)

    def _note(self, _bus, _sender, _path, _interface, _signal, arguments):
        if arguments[0] == ANSWER:
            return
        self.posted.append(arguments)
        if "WebSocketReAuthType" in arguments[2]:
            self.bus.emit_signal(None, PATH, INTERFACE, "Posted", GLib.Variant("(ss)", (ANSWER, "")))
            self.bus.flush_sync()


class CommandsTest(unittest.TestCase):
    """Every command runs in a folder where the names that README.md uses mean the build's."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        for name in ("Tools", "Resources"):
            (self.folder / name).symlink_to(ROOT / name)
        (self.folder / "NoticeAgent.app").symlink_to(POST_NOTICE.parent.parent / "NoticeAgent.app")
        # The agent counts as installed; nobody starts it, since it is there.
        services = self.folder / "dbus-1/services"
        services.mkdir(parents=True)
        (services / f"{AGENT_NAME}.service").write_text(f"[D-BUS Service]\nName={AGENT_NAME}\nExec=/bin/false\n",
                                                        encoding="utf-8")
        bus = subprocess.Popen(["dbus-daemon", "--session", "--nofork", "--nopidfile", "--print-address"],
                               stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True,
                               env={**os.environ, "XDG_DATA_HOME": str(self.folder)})
        self.addCleanup(bus.stdout.close)
        self.addCleanup(bus.wait)
        self.addCleanup(bus.terminate)
        self.address = bus.stdout.readline().strip()
        self.agent = Agent(self.address)

    def run_command(self, command):
        """Runs it while the agent's side is kept going; returns the one message that it posted."""
        self.agent.posted.clear()
        environment = dict(os.environ, DBUS_SESSION_BUS_ADDRESS=self.address,
                           PATH=f"{POST_NOTICE.parent}:/usr/bin:/bin")
        with open(self.folder / "output", "w+", encoding="utf-8") as output:
            process = subprocess.Popen(command, cwd=self.folder, env=environment, stdin=subprocess.DEVNULL,
                                       stdout=output, stderr=output)
            deadline = time.monotonic() + 60
            context = GLib.MainContext.default()
            while process.poll() is None or not self.agent.posted:
                context.iteration(False)
                time.sleep(0.01)
                if time.monotonic() > deadline or (process.returncode or 0) != 0:
                    break
            if process.poll() is None:
                process.kill()
                process.wait()
            output.seek(0)
            self.assertEqual(process.returncode, 0, f"{command}:\n{output.read()}")
        self.assertEqual(len(self.agent.posted), 1, command)
        return self.agent.posted[0]

    def assert_is_message(self, posted):
        self.assertEqual(posted.get_type_string(), "(ssa{sv})")
        self.assertEqual(posted[0], "zelvik_socketMessageNotifier")
        self.assertEqual(posted[1], "")
        types = keys_of_the_table()
        entries = posted.get_child_value(2)
        self.assertTrue(entries.n_children())
        for index in range(entries.n_children()):
            entry = entries.get_child_value(index)
            key = entry.get_child_value(0).get_string()
            value = entry.get_child_value(1).get_variant()
            self.assertEqual(value.get_type_string(), types.get(key), key)
        return posted[2]

    def test_each_shell_command_posts_a_message_of_the_contract(self):
        commands = [line for block in blocks("sh") for line in block.splitlines()]
        self.assertEqual(len(commands), 5)
        notices = set()
        for command in commands:
            with self.subTest(command):
                notices |= self.assert_is_message(self.run_command(["bash", "-ec", command])).keys()
        self.assertLessEqual({"WebSocketType", "AutoDisconnectWebSocketType", "WebSocketReAuthType",
                              "WebSocketAdminDisconnect", "webSocketResponse"}, notices)

    def test_each_python_program_posts_a_message_of_the_contract(self):
        programs = blocks("python", "docs/integration.md")
        self.assertEqual(len(programs), 1)
        for program in programs:
            self.assert_is_message(self.run_command(["/usr/bin/python3", "-c", program]))

    def test_commands_of_the_integration_page(self):
        *own, for_a_user = blocks("sh", "docs/integration.md")
        self.assertEqual(len(own), 3)
        for command in own:
            with self.subTest(command):
                self.assert_is_message(self.run_command(["bash", "-ec", command]))
        # Whoever runs this may have no session of their own; the test's is given.
        for_test = 'USER=$(id -un); ' + for_a_user.replace("--user", f"--bus '{self.address}' --user")
        self.assert_is_message(self.run_command(["bash", "-ec", for_test]))

    def test_table_of_keys_is_whole(self):
        header = (ROOT / "Contract/Message.h").read_text(encoding="utf-8")
        self.assertEqual(sorted(keys_of_the_table()), sorted(re.findall(r'= "(\w+)";', header)))


class DocumentsTest(unittest.TestCase):
    def test_links_lead_somewhere(self):
        for document in DOCUMENTS:
            for target in re.findall(r"\]\(([^)#]+)\)", document.read_text(encoding="utf-8")):
                with self.subTest(document=document.name, target=target):
                    self.assertTrue(target.startswith("https://") or (document.parent / target).exists())

    def test_files_that_are_named_are_there(self):
        rooms = "Client|Controllers|Support|Platform|ServiceTier|Resources|Tools|Tests|Benchmarks|Fuzz|Scripts|Packaging"
        for document in DOCUMENTS:
            for name in set(re.findall(rf"`((?:{rooms})/[\w./@-]*)", document.read_text(encoding="utf-8"))):
                with self.subTest(document=document.name, name=name):
                    self.assertTrue((ROOT / name).exists())

    def test_xml_documents_are_well_formed(self):
        samples = [sample.read_text(encoding="utf-8") for sample in (ROOT / "Tools" / "samples").glob("*.xml")]
        self.assertGreaterEqual(len(samples), 2)
        for text in [*blocks("xml", "docs/integration.md"), *samples]:
            root = xml.etree.ElementTree.fromstring(text.encode())
            self.assertEqual(root.tag, "zelvik-secure-access")
            self.assertIsNotNone(root.find("notifications/head"))


if __name__ == "__main__":
    unittest.main()
