"""Messages, settings, pictures and servers that mean harm: the agent keeps its word, opens nothing else, asks
nobody else, and stays within bounds of time and memory."""

import io
import os
import socket
import struct
import time

import dbus
import dbus.lowlevel
from PIL import Image

from activity_server import ActivityServer
from desktop import AGENT_NAME, wait_until
from harness import DEFAULT_HEADER, LAUNCHED, NoticeTestCase, Starts, THREE_ROWS, notice_xml, png, received, takes
from hostile import (IS_SANITIZED, SLOWNESS, OpenWitness, RawBusClient, StubbornServer, memory, png_of_header,
                     wait_seen_through)

# What the agent may take for one message, in kB: some copies of the largest one, two bytes a character in most.
MOST_MEMORY = 1_000_000


class HostileTestCase(NoticeTestCase):

    def assert_bounded(self, agent, most=MOST_MEMORY):
        if agent.running() and not IS_SANITIZED:
            self.assertLess(memory(agent.process_id, "VmHWM"), most, "peak memory in kB")

    def witness(self, *paths):
        witness = OpenWitness(*paths)
        self.addCleanup(witness.close)
        return witness

    def server(self, behave=lambda connection: None):
        server = StubbornServer(behave)
        self.addCleanup(server.close)
        return server

    def canary(self, name="canary.txt", content="secret-content"):
        path = os.path.join(self.folder, name)
        with open(path, "w", encoding="utf-8") as file:
            file.write(content)
        return path

    def assert_still_answers(self, agent, text="still here"):
        self.post(WebSocketType=True, MaintenanceMessageKey=text)
        agent.wait_text(text)


class DocumentTest(HostileTestCase):
    """The notice's XML: it parses or it does not, soon and with little memory."""

    def assert_seen_through(self, document, parses=None):
        agent = self.launch(self.new_bundle())
        self.post_to(agent, webSocketResponse=document)
        wait_seen_through(agent)
        self.assert_bounded(agent)
        if not agent.running():
            self.assert_ended(agent)
            self.assertIsNotNone(agent.log.find("error", Starts("Unable to parse xml string : ")))
        if parses is not None:
            self.assertEqual(parses, agent.running(), "whether it parses")
        agent.end()

    @takes(3)
    def test_documents_that_make_much_of_themselves(self):
        nested = "".join(f'<!ENTITY e{n} "{f"&e{n - 1};" * 10}">' for n in range(1, 12))
        documents = {
            "nested entities": (f'<!DOCTYPE d [<!ENTITY e0 "lol">{nested}]><d>&e11;</d>', False),
            "an entity within itself": ('<!DOCTYPE d [<!ENTITY a "&b;"><!ENTITY b "&a;">]><d>&a;</d>', False),
            "a hundred thousand attributes":
                ("<d " + " ".join(f'a{n}="1"' for n in range(100_000)) + "/>", True),
        }
        for name, (document, parses) in documents.items():
            with self.subTest(name):
                self.assert_seen_through(document, parses=parses)

    @takes(5)
    def test_sixty_four_megabytes_of_text(self):
        # The bus itself takes no more than 67 in one user info.
        self.assert_seen_through(notice_xml(body="x" * 64_000_000))

    @takes(2)
    def test_a_hundred_thousand_entries(self):
        rows = "<md><name>n</name><val>v</val></md>" * 100_000
        document = notice_xml(timeout=600).replace("</notifications>", f"<metadata>{rows}</metadata></notifications>")
        agent = self.launch()
        self.post(webSocketResponse=document)
        agent.wait_text("Upload blocked by Cloud Access Policy", 60 * SLOWNESS)
        self.assert_bounded(agent)
        self.assert_still_answers(agent)

    @takes(4)
    def test_nothing_outside_the_text_is_read_or_asked(self):
        canary = self.canary()
        dtd = self.canary("d.dtd", '<!ENTITY e "from-outside">')
        witness = self.witness(canary, dtd)
        server = self.server()
        file, url = f"file://{canary}", server.url("/e")
        body = notice_xml(body="BODY")
        documents = {
            "entity in a file": f'<!DOCTYPE d [<!ENTITY e SYSTEM "{file}">]>' + body.replace("BODY", "&e;"),
            "entity on a server": f'<!DOCTYPE d [<!ENTITY e SYSTEM "{url}">]>' + body.replace("BODY", "&e;"),
            "entity at a path": f'<!DOCTYPE d [<!ENTITY e SYSTEM "{canary}">]>' + body.replace("BODY", "&e;"),
            "public entity": f'<!DOCTYPE d [<!ENTITY e PUBLIC "-//A//B" "{url}">]>' + body.replace("BODY", "&e;"),
            "parameter entity": f'<!DOCTYPE d [<!ENTITY % p SYSTEM "{file}">%p;]>' + body,
            "parameter entity on a server": f'<!DOCTYPE d [<!ENTITY % p SYSTEM "{url}">%p;]>' + body,
            "document type in a file": f'<!DOCTYPE d SYSTEM "file://{dtd}">' + body.replace("BODY", "&e;"),
            "document type on a server": f'<!DOCTYPE d SYSTEM "{url}">' + body,
            "inclusion": body.replace("BODY", '<x:include xmlns:x="http://www.w3.org/2001/XInclude" parse="text" '
                                              f'href="{file}"/>'),
            "style sheet": f'<?xml-stylesheet href="{url}"?>' + body,
            "schema": body.replace("<notifications>",
                                   '<notifications xmlns:i="http://www.w3.org/2001/XMLSchema-instance" '
                                   f'i:noNamespaceSchemaLocation="{url}">'),
        }
        for agent, (name, document) in zip(self.launch_all(len(documents)), documents.items()):
            with self.subTest(name):
                self.post_to(agent, webSocketResponse=document)
                wait_seen_through(agent)
                if agent.running():
                    texts = " ".join(agent.texts())
                    self.assertNotIn("secret-content", texts)
                    self.assertNotIn("from-outside", texts)
                else:
                    self.assert_ended(agent)
                self.assertFalse(witness.opened(), "the file was opened")
                self.assertEqual(0, server.asked, "the server was asked")
                agent.end()


class PictureTest(HostileTestCase):

    @takes(6)
    def test_pictures_that_are_refused_leave_the_header_empty_and_ask_nobody(self):
        canary = self.canary("canary.png")
        with open(canary, "wb") as file:
            file.write(png((250, 0, 0)))
        witness = self.witness(canary)
        server = self.server()

        def drawing(content, declaration=""):
            return (f'{declaration}<svg xmlns="http://www.w3.org/2000/svg" xmlns:xlink="http://www.w3.org/1999/xlink" '
                    f'width="64" height="32">{content}</svg>').encode()

        tiff = io.BytesIO()
        Image.new("RGB", (64, 32), 1).save(tiff, "TIFF")
        bombs = "".join(f'<!ENTITY e{n} "{f"&e{n - 1};" * 10}">' for n in range(1, 10))
        pictures = {
            "a bomb of 25,000 by 25,000": png_of_header(25_000, 25_000, bytes(30_000_000)),
            "a header without a picture": png_of_header(64, 32)[:33],
            "a TIFF": tiff.getvalue(),
            "a drawing with a picture in a file": drawing(f'<image xlink:href="file://{canary}" width="64" height="32"/>'),
            "a drawing with a picture on a server":
                drawing(f'<image xlink:href="{server.url()}" width="64" height="32"/>'),
            "a drawing with a part of another": drawing(f'<use xlink:href="{server.url()}#a"/>'),
            "a drawing with a script": drawing("<script>window.open()</script>"),
            "a drawing with a style sheet": drawing(f"<style>@import url({server.url()});</style>"),
            "a drawing with an entity bomb": drawing("<text>&e9;</text>", f'<!DOCTYPE s [<!ENTITY e0 "lol">{bombs}]>'),
            "a drawing with a file's entity":
                drawing("<text>&e;</text>", f'<!DOCTYPE s [<!ENTITY e SYSTEM "file://{canary}">]>'),
            "two megabytes of a drawing": drawing('<path d="M0 0"/>' * 150_000),
        }
        agent = self.launch()
        for name, content in pictures.items():
            with self.subTest(name):
                self.post(WebSocketType=True, webSocketResponse="x", MaintenanceMessageKey=name,
                          HeaderLogoImage=content)
                agent.wait_text(name)
                self.assert_header_empty(agent, DEFAULT_HEADER)
                self.assertFalse(witness.opened(), "the file was opened")
                self.assertEqual(0, server.asked, "the server was asked")
        self.assert_bounded(agent, 400_000)

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


class NameTest(HostileTestCase):
    """A language code or a logo's name leads nowhere but into the bundle's resources."""

    def outside(self, name):
        """A folder beside the bundle, and ways to say it from within the resources."""
        path = os.path.join(self.folder, name)
        os.makedirs(path, exist_ok=True)
        relative = os.path.relpath(path, self.bundle.resources)
        return path, (relative, path, f"./{relative}", f"en.lproj/../{relative}", f"../Resources/{relative}")

    @takes(3)
    def test_language_codes(self):
        folder, codes = self.outside("zz.lproj")
        with open(os.path.join(folder, "Localizable.strings"), "w", encoding="utf-8") as file:
            file.write('"Attention" = "from-outside";\n')
        witness = self.witness(folder, os.path.join(folder, "Localizable.strings"))
        agent = self.launch()
        codes = [code.removesuffix(".lproj") for code in codes] + [
            "..", ".", "/", "", "en/", "en\n", "~", "$HOME", "%2e%2e", "x" * 100_000, "\u202e", "e\u0301n", "en.lproj"]
        for number, code in enumerate(codes):
            with self.subTest(code[:60]):
                self.post(AutoDisconnectWebSocketType=True, AutoDisconnectMessageKey=f"number {number}",
                          AutoDisconnectVPNStatus=True, webSocketappLanguageKey=code)
                agent.wait_text(f"number {number}")
                self.assertIn("Attention", agent.texts())
                self.assertFalse(witness.opened(), "a folder outside was opened")

    @takes(3)
    def test_logo_names(self):
        folder, _ = self.outside("pictures")
        for name in ("logo.png", "logo@2x.png", "logo.svg", "logo.jpg"):
            with open(os.path.join(folder, name), "wb") as file:
                file.write(png((0, 200, 0)))
        witness = self.witness(folder, os.path.join(folder, "logo.png"))
        names = [os.path.join(way, "logo") for way in self.outside("pictures")[1]]
        agent = self.launch()
        for number, name in enumerate(names + ["..", ".", "", "/", "x" * 100_000, "ic_zelvikLogo.png\nx"]):
            with self.subTest(name[:60]):
                self.bundle.settings(AppLogo=name)
                self.post(WebSocketType=True, MaintenanceMessageKey=f"number {number}")
                agent.wait_text(f"number {number}")
                self.assert_header_empty(agent, DEFAULT_HEADER)
                self.assertFalse(witness.opened(), "a picture outside was opened")


class BusTest(HostileTestCase):

    @takes(3)
    def test_names_that_are_almost_ours(self):
        agent = self.launch()
        name = f"{self.brand}_socketMessageNotifier"
        others = [name + "2", name + " ", " " + name, name[:-1], name.upper(), self.brand, "", "_socketMessageNotifier",
                  name + "'", name + "\n", name.replace("n", "\u043d", 1), "*", name + ",arg1='x'"]
        for other in others:
            self.post(other, WebSocketType=True, MaintenanceMessageKey=f"not for us: {other!r}")
            # Past the match, to this connection alone.
            message = dbus.lowlevel.SignalMessage("/com/tevanic/DistributedNotificationCenter",
                                                  "com.tevanic.DistributedNotificationCenter", "Posted")
            message.append(other, "", {"WebSocketType": True}, signature="ssa{sv}")
            message.set_destination(AGENT_NAME)
            self.bus.connection.send_message(message)
        self.assert_still_answers(agent)
        self.assertEqual(LAUNCHED + received(), agent.log.pairs()[:5])

    @takes(2)
    def test_bytes_that_are_no_message_reach_nobody(self):
        agent = self.launch()
        name = f"{self.brand}_socketMessageNotifier".encode()
        text = RawBusClient._text
        bodies = {
            "no UTF-8": (b"ss", RawBusClient._padded(text(name), 4) + text(b"\xff\xfe")),
            "a zero in a text": (b"ss", RawBusClient._padded(text(name), 4) + text(b"a\0b")),
            "a length past the end": (b"ss", RawBusClient._padded(text(name), 4) + struct.pack("<I", 1 << 30) + b"a\0"),
            "a boolean of 2": (b"sb", RawBusClient._padded(text(name), 4) + struct.pack("<I", 2)),
            "a wrong signature": (b"s(", text(name)),
            "nothing where something should be": (b"ssa{sv}", b""),
        }
        for what, (signature, body) in bodies.items():
            with self.subTest(what):
                client = RawBusClient(self.desktop.bus.address)
                self.addCleanup(client.close)
                client.post(signature, body)
                self.assertTrue(client.is_thrown_out(), "the bus throws such a client out")
        self.assert_still_answers(agent)
        self.assertEqual(1, agent.log.count("info", "Message received from Main APP."))

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

    def test_line_feeds_in_a_message_are_written_as_they_are(self):
        # The log is no boundary: whoever can post can also write the file.
        agent = self.launch()
        forged = "a\n2020-01-01 00:00:00.000 [error] : forged"
        self.post(webSocketappLanguageKey=forged)
        wait_until(lambda: agent.log.find("error", "forged"), "the record as it came")
        self.assertIn(f"Bundle Language View {forged}\n", agent.log.raw())


class RequestTest(HostileTestCase):

    def press_all(self, urls):
        """Shows a notice with each address, presses OK in each, and holds their ends to their time."""
        agents = self.launch_all(len(urls))
        for agent, url in zip(agents, urls):
            self.post_to(agent, webSocketResponse=notice_xml(rows=THREE_ROWS, timeout=600, ok_url=url))
        # Not by the pointer: they lie over each other.
        buttons = [agent.ok_button() for agent in agents]
        for agent, button, url in zip(agents, buttons, urls):
            pressed = time.time()
            self.desktop.accessibility.press(button)
            with self.subTest(url):
                self.assert_near(self.assert_ended(agent) - pressed, 1, "from OK to the end")

    @takes(4)
    def test_no_server_delays_the_end(self):
        def drip(connection):
            connection.recv(4096)
            for byte in b"HTTP/1.1 200 OK\r\n" * 1000:
                connection.send(bytes([byte]))
                time.sleep(0.3)

        def flood(connection):
            connection.recv(4096)
            connection.sendall(b"HTTP/1.1 200 OK\r\nContent-Length: 2147483648\r\n\r\n")
            for _ in range(2048):
                connection.sendall(bytes(1 << 20))

        def headers(connection):
            connection.recv(4096)
            connection.sendall(b"HTTP/1.1 200 OK\r\n")
            while True:
                connection.sendall(b"X: " + b"y" * 60_000 + b"\r\n")

        def reset(connection):
            connection.recv(4096)
            connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
            connection.close()

        def loop(connection):
            connection.recv(4096)
            connection.sendall(b"HTTP/1.1 302 Found\r\nLocation: /again\r\nContent-Length: 0\r\n\r\n")
            connection.close()

        def nonsense(connection):
            connection.sendall(os.urandom(100_000))

        behaviours = {"answers never": lambda connection: time.sleep(60), "answers byte by byte": drip,
                      "answers two gigabytes": flood, "answers headers without an end": headers, "resets": reset,
                      "leads in a circle": loop, "answers nonsense": nonsense}
        servers = {name: self.server(behave) for name, behave in behaviours.items()}
        self.press_all([server.url("/close") for server in servers.values()])
        self.assertEqual([], [name for name, server in servers.items() if not server.asked])

    @takes(8)
    def test_a_body_without_an_end_costs_no_memory(self):
        def flood(connection):
            connection.recv(4096)
            connection.sendall(b"HTTP/1.1 200 OK\r\n\r\n")
            while True:
                connection.sendall(bytes(1 << 20))
        server = self.server(flood)
        agent = self.launch()
        # The request goes out at the first tick, five seconds before the end.
        self.post_casb(rows=THREE_ROWS, timeout=6, ok_url=server.url("/close"))
        agent.wait_visible()
        wait_until(lambda: server.asked, "the request")
        agent.log.wait_for("info", Starts(""), count=1)
        self.assert_bounded(agent, 200_000)
        self.assert_ended(agent)

    @takes(4)
    def test_other_schemes_open_and_ask_nothing(self):
        canary = self.canary()
        witness = self.witness(canary)
        server = self.server()
        at = f"127.0.0.1:{server.port}/x"
        self.press_all([f"file://{canary}", f"file://localhost{canary}", canary, f"ftp://{at}", f"gopher://{at}",
                        f"dict://{at}", f"telnet://{at}", f"//{at}", at, f"javascript:{at}", f" http://{at}",
                        f"http:/{at}"])
        self.assertFalse(witness.opened(), "the file was opened")
        self.assertEqual(0, server.asked, "the server was asked")

    @takes(4)
    def test_redirects_to_another_scheme_are_not_followed(self):
        canary = self.canary()
        witness = self.witness(canary)
        other = self.server()
        servers = []
        for location in (f"file://{canary}", f"ftp://127.0.0.1:{other.port}/x", f"gopher://127.0.0.1:{other.port}/x"):
            def redirect(connection, location=location):
                connection.recv(4096)
                connection.sendall(f"HTTP/1.1 302 Found\r\nLocation: {location}\r\n"
                                   "Content-Length: 0\r\n\r\n".encode())
            servers.append(self.server(redirect))
        self.press_all([server.url("/close") for server in servers])
        self.assertEqual([1, 1, 1], [server.asked for server in servers])
        self.assertFalse(witness.opened(), "the file was opened")
        self.assertEqual(0, other.asked, "the other server was asked")

    @takes(3)
    def test_no_credentials_and_no_cookies(self):
        home = os.path.join(self.folder, "home")
        os.mkdir(home)
        for name in (".netrc", "_netrc", ".curlrc"):
            with open(os.path.join(home, name), "w", encoding="utf-8") as file:
                file.write("machine 127.0.0.1 login user password word\n" if "netrc" in name else "user = user:word\n")
            os.chmod(os.path.join(home, name), 0o600)
        server = ActivityServer(status="200 OK\r\nSet-Cookie: a=b; Path=/")
        self.addCleanup(server.close)
        agent = self.launch(environment={"HOME": home, "CURL_HOME": home})
        # Two requests: one at the first tick, one at OK.
        self.post_casb(rows=THREE_ROWS, timeout=6, ok_url=server.url("/close"))
        wait_until(lambda: server.requests, "the first request")
        agent.press_ok()
        self.assert_ended(agent)
        self.assertGreaterEqual(len(server.requests), 2)
        for request in server.requests:
            self.assertNotIn(b"authorization", request.headers)
            self.assertNotIn(b"cookie", request.headers)
