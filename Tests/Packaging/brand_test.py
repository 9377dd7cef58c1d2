#!/usr/bin/python3
"""The command brand-notices: what it says about folders of every kind, and that what it makes is a working brand."""

import io
import os
import plistlib
import re
import shutil
import tempfile
import time
import unittest
from pathlib import Path

from PIL import Image

from packaging import BUILD, BUILD_TYPE, EPOCH, INSTALLED_BUNDLE, ROOT, SYSTEM_PATH, Notices, field, run, skip_all

KIT = ROOT / "Packaging" / "brand"
BRAND_NOTICES = KIT / "brand-notices"
SAMPLE = KIT / "sample"
BUNDLE = BUILD / "NoticeAgent.app"
ARCHITECTURE = run("dpkg", "--print-architecture").strip()
HEADER = (0x0B, 0x5D, 0x51)
ACCENT = (30, 34, 52)
SETTINGS = "Application_Shared.plist"


def png(width, height, color=(255, 255, 255)):
    buffer = io.BytesIO()
    Image.new("RGB", (width, height), color).save(buffer, "PNG")
    return buffer.getvalue()


class BrandTestCase(unittest.TestCase):
    """A test with a copy of the sample brand that it may spoil."""

    maxDiff = None

    def setUp(self):
        place = tempfile.mkdtemp(prefix="notice-brand-")
        self.addCleanup(shutil.rmtree, place, ignore_errors=True)
        self.place = Path(place)
        self.brand = self.place / "brand"
        shutil.copytree(SAMPLE, self.brand)

    def settings(self, **changes):
        self.change(SETTINGS, **changes)

    def change(self, name, **changes):
        path = self.brand / name
        values = plistlib.loads(path.read_bytes())
        values.update(changes)
        path.write_bytes(plistlib.dumps({key: value for key, value in values.items() if value is not None}))

    def only_logo(self, **files):
        """Leaves these files alone of the logo: ending -> bytes."""
        for path in self.brand.glob("ic_*"):
            path.unlink()
        for ending, data in files.items():
            (self.brand / f"ic_lumoraLogo{ending}").write_bytes(data)

    def run_kit(self, *arguments, status=0):
        return run(BRAND_NOTICES, "--agent", BUNDLE, *arguments, self.brand, status=status,
                   env=dict(os.environ, PATH=SYSTEM_PATH, LC_ALL="C.UTF-8", SOURCE_DATE_EPOCH=EPOCH,
                            PYTHONDONTWRITEBYTECODE="1"))

    def findings(self, *kinds, **options):
        """The findings of these kinds; without one, errors and warnings."""
        return [line for line in self.run_kit(**options).splitlines()
                if line.partition(": ")[0] in (kinds or ("error", "warning"))]

    def assert_error(self, *expected):
        self.assertEqual(self.findings(status=1), [f"error: {line}" for line in expected])

    def assert_warning(self, *expected):
        self.assertEqual(self.findings(), [f"warning: {line}" for line in expected])


class CheckTest(BrandTestCase):

    def test_sample_is_without_fault_and_what_follows_from_it_is_told(self):
        said = self.run_kit()
        self.assertNotRegex(said, "(?m)^(error|warning): ")
        for text in ('"lumora_socketMessageNotifier"', "com.tevanic.NoticeAgent.lumora",
                     "/private/var/log/lumora/lumora_Tevanic.log", '"Lumora_webSocketToMainAppNotifier"',
                     "ic_zelvikLogo", "0 errors, 0 warnings"):
            self.assertIn(text, said)

    def test_missing_settings(self):
        (self.brand / SETTINGS).rename(self.brand / "application_shared.plist")
        said = self.run_kit("--bundle", self.place / "B.app", status=1)
        self.assertIn(f"error: {SETTINGS}: is missing\n", said)
        self.assertIn(f'application_shared.plist: is not used; did you mean "{SETTINGS}"?', said)
        self.assertFalse((self.place / "B.app").exists(), "nothing is made of a folder with errors")

    def test_settings_that_the_agent_cannot_read(self):
        for content in (b"<plist><dict>", plistlib.dumps(["Vendor"])):
            with self.subTest(content):
                (self.brand / SETTINGS).write_bytes(content)
                self.assert_error(f"{SETTINGS}: is not well-formed XML, or not a property list that holds a dictionary")

    def test_settings(self):
        for changes, kind, text in (
                (dict(Vendr="Lumora", Vendor=None), "error", 'unknown key "Vendr"; did you mean "Vendor"?'),
                (dict(Vendor=5), "error", 'Vendor: must be a string (default: "zelvik")'),
                (dict(globalAppViewBackgroundColor=None), None, None),
                (dict(LogFolderName="zelvik"), "warning",
                 'LogFolderName: "zelvik" is that of the unbranded agent: only one of the two can be installed'),
                (dict(Vendor="Korvane"), "warning", 'Vendor: "Korvane" is not KORVANE: no window is black'),
                (dict(AppLogo="../ic_lumoraLogo"), "error", 'AppLogo: "../ic_lumoraLogo" is not the name of an image'),
                (dict(AppLogo="ic_lumoralogo"), "error",
                 'AppLogo: there is no image "ic_lumoralogo" (.png, @2x.png, @3x.png, .jpg or .svg)'),
                (dict(AppLogo="ic_lumoraLogo.png"), None, None)):
            with self.subTest(changes):
                before = (self.brand / SETTINGS).read_bytes()
                self.settings(**changes)
                self.assertEqual(self.findings(status=int(kind == "error")),
                                 [f"{kind}: {SETTINGS}: {text}"] if kind else [])
                (self.brand / SETTINGS).write_bytes(before)

    def test_colors(self):
        key = f"{SETTINGS}: globalAppViewBackgroundColor: "
        for text, shown in (("#FFF", "#808080"), ("12ZZZZ", "#000012")):
            with self.subTest(text):
                self.settings(globalAppViewBackgroundColor=text)
                self.assertIn(f'error: {key}"{text}" is not six hexadecimal digits; the header would be {shown}',
                              self.findings(status=1))
        self.settings(globalAppViewBackgroundColor="\n 0b5d51 ")
        self.assert_warning()

    def test_log_folder_names_that_are_none(self):
        for name in ("", "..", "a/b", "lu mora", "a\nb"):
            with self.subTest(name):
                self.settings(LogFolderName=name)
                self.assertIn(f'LogFolderName: "{name}" is not a plain folder name', self.run_kit(status=1))

    def test_no_logo_of_its_own(self):
        self.only_logo()
        self.settings(AppLogo="ic_zelvikLogo")
        self.assert_warning(f'{SETTINGS}: AppLogo: there is no image "ic_zelvikLogo" here: the agent\'s own logo stays')

    def test_files_that_are_no_images(self):
        whole = png(192, 64)
        for data in (b"", whole[:16], whole[:len(whole) // 2], png(9000, 1)):
            with self.subTest(data[:30]):
                self.only_logo(**{".png": data})
                self.assert_error("ic_lumoraLogo.png: is not an image that the agent can draw")

    def test_a_fifo_in_the_place_of_a_logo_is_not_waited_for(self):
        self.only_logo()
        os.mkfifo(self.brand / "ic_lumoraLogo.png")
        self.assert_error("ic_lumoraLogo.png: cannot be read, or is larger than 16 MiB")

    def test_logo_that_is_drawn_as_nothing(self):
        self.only_logo(**{".svg": b'<svg xmlns="http://www.w3.org/2000/svg" width="96" height="32"/>'})
        self.assert_error("ic_lumoraLogo: nothing of it is drawn: it is empty")

    def test_drawings_that_the_agent_refuses(self):
        self.only_logo(**{".svg": b'<svg xmlns="http://www.w3.org/2000/svg"><image href="x.png"/></svg>'})
        self.assertIn("ic_lumoraLogo.svg: the agent does not draw it", self.run_kit(status=1))

    def test_sizes(self):
        self.only_logo(**{".png": png(96, 32), "@2x.png": png(96, 32)})
        self.assert_error("ic_lumoraLogo@2x.png: is 96 x 32 pixels; 2 times the plain image is 192 x 64")
        self.only_logo(**{".png": png(48, 16)})
        found = self.findings()
        self.assertRegex(found[0], r"\Awarning: ic_lumoraLogo: is 16 pixels high and drawn \d+ high")
        self.assertRegex(found[1], r"\Awarning: ic_lumoraLogo: has neither @2x.png nor .svg")

    def test_logo_that_is_hard_to_see(self):
        self.settings(globalAppViewBackgroundColor="#FFFFFF")
        self.only_logo(**{".png": png(192, 64, (250, 250, 250))})
        self.assert_warning("ic_lumoraLogo: 100 percent of it has a contrast below 3 : 1 with the header, #FFFFFF, "
                            "and is hard to see")
        self.settings(globalAppViewBackgroundColor="#1E2234")
        self.only_logo(**{".png": png(192, 64, (20, 20, 60))})
        self.assertEqual(len(self.findings()), 2)

    # Tables are checked by the same code as the agent's own; see Tests/Scripts/check_tables_test.py.

    def test_languages(self):
        folder = self.brand / "de.lproj"
        (folder / "Localisable.strings").write_text("")
        self.assert_warning('de.lproj/Localisable.strings: is not used; did you mean "Localizable.strings"?')
        (folder / "Localisable.strings").unlink()
        (folder / "Localizable.strings").write_text('"Attention" "Achtung";')
        self.assert_error('de.lproj/Localizable.strings: is not a string table: UTF-8 text of lines in the form "key" = "value";')
        shutil.copy(SAMPLE / "de.lproj/Localizable.strings", folder)

        folder.rename(self.brand / "lb.lproj")
        self.assert_error("lb.lproj/Main.strings: is missing")
        shutil.copy(ROOT / "Resources/de.lproj/Main.strings", self.brand / "lb.lproj")
        self.assert_warning()

    def test_time_outs(self):
        for value, fault in (("90", "must be an integer (default: 120)"), (True, "must be an integer (default: 120)"),
                             (0, "is 0: the agent would end as soon as it starts")):
            with self.subTest(value):
                self.change("Info.plist", Default_App_Timeout=value)
                self.assert_error(f"Info.plist: Default_App_Timeout: {fault}")
        self.change("Info.plist", Default_App_Timeout=20)
        self.assert_warning("Info.plist: Default_App_Timeout: is 20: the notices that count 30 seconds are cut short")

    def test_information(self):
        self.change("Info.plist", Default_App_TimeOut=90, Default_App_Timeout=None, CFBundleDevelopmentRegion="xx",
                    CFBundleExecutable="Lumora")
        self.assert_error("Info.plist: CFBundleDevelopmentRegion: there is no folder xx.lproj",
                          "Info.plist: CFBundleExecutable: must stay as it is",
                          'Info.plist: unknown key "Default_App_TimeOut"; did you mean "Default_App_Timeout"?')

    def test_other_files(self):
        (self.brand / "logo-draft.png").write_bytes(png(1, 1))
        self.assert_warning("logo-draft.png: is not used")


class CommandTest(BrandTestCase):

    def test_help(self):
        said = run(BRAND_NOTICES, "--help")
        self.assertIn("Usage: brand-notices [OPTION]... FOLDER", said)
        self.assertLessEqual(max(map(len, said.splitlines())), 80)

    def test_wrong_usage(self):
        for arguments in ((), ("--nonsense", SAMPLE), ("--package", "x.rpm", SAMPLE), (SAMPLE, SAMPLE)):
            with self.subTest(arguments):
                self.assertRegex(run(BRAND_NOTICES, *arguments, status=2), r"\Abrand-notices: [^\n]+; see --help\n\Z")

    def test_failures_are_one_line(self):
        there = self.place / "there.app"
        there.mkdir()
        for arguments, words in (((self.place / "none",), "no such folder"),
                                 (("--agent", self.place, SAMPLE), "not a bundle of the agent"),
                                 (("--agent", self.place / "none.deb", SAMPLE), "none.deb: no such file or folder"),
                                 (("--agent", SAMPLE / SETTINGS, SAMPLE), "not a package of the agent"),
                                 (("--agent", BUNDLE, "--bundle", there, SAMPLE), "exists already"),
                                 (("--agent", BUNDLE, "--package", self.place / "x.deb", SAMPLE), "from no package"),
                                 (("--agent", BUNDLE, "--package-version", "1", "--name", "notice-agent", "--package",
                                   self.place / "x.deb", SAMPLE), "one of the agent's own packages")):
            with self.subTest(words):
                said = run(BRAND_NOTICES, *arguments, status=1)
                self.assertRegex(said, r"(?m)\A((note|warning): .*\n|.*: 0 errors.*\n)*brand-notices: .+\n\Z")
                self.assertIn(words, said)


class BrandedBundleTest(BrandTestCase):

    def test_bundle_holds_the_brand_and_nothing_of_the_other(self):
        out = self.place / "Lumora.app"
        self.run_kit("--bundle", out)
        resources = out / "Contents/Resources"
        for ending in (".svg", ".png", "@2x.png"):
            logo = (SAMPLE / f"ic_lumoraLogo{ending}").read_bytes()
            self.assertEqual((resources / f"ic_lumoraLogo{ending}").read_bytes(), logo)
            self.assertEqual((resources / f"ic_zelvikLogo{ending}").read_bytes(), logo)
        self.assertEqual(plistlib.loads((resources / SETTINGS).read_bytes()),
                         plistlib.loads((SAMPLE / SETTINGS).read_bytes()))
        information = plistlib.loads((out / "Contents/Info.plist").read_bytes())
        self.assertEqual(information["Default_App_Timeout"], 90)
        self.assertEqual(information["CFBundleExecutable"], "NoticeAgent")
        table = "de.lproj/Localizable.strings"
        self.assertEqual((resources / table).read_bytes(), (SAMPLE / table).read_bytes())
        self.assertTrue((resources / "de.lproj/Main.strings").is_file())

    def test_a_png_alone_does_not_leave_the_other_brands_drawing(self):
        self.only_logo(**{".png": png(192, 64)})
        self.settings(AppLogo="ic_zelvikLogo")
        (self.brand / "ic_lumoraLogo.png").rename(self.brand / "ic_zelvikLogo.png")
        out = self.place / "Lumora.app"
        self.run_kit("--bundle", out)
        self.assertEqual([path.name for path in (out / "Contents/Resources").glob("ic_*")], ["ic_zelvikLogo.png"])

    def test_notices_of_the_brand(self):
        """The branded agent hears its own messages, shows its own logo and colour, and writes its own log."""
        name = f"lumora-{os.getpid()}"
        log = Path(f"/private/var/log/{name}/{name}_Tevanic.log")
        self.addCleanup(shutil.rmtree, log.parent, ignore_errors=True)
        self.settings(LogFolderName=name)
        # One colour, so that a pixel says whose logo it is.
        self.only_logo(**{".png": png(64, 32, (255, 201, 77)), "@2x.png": png(128, 64, (255, 201, 77))})
        out = self.place / "Lumora.app"
        self.run_kit("--bundle", out)
        notices = Notices()
        self.addCleanup(notices.end)
        post_notice = BUILD / "bin/post-notice"
        for arguments, header in ((("--maintenance", "Back at 18:00."), HEADER),
                                  (("--concurrent-session", ROOT / "Tools/samples/concurrent-session.xml"), ACCENT)):
            with self.subTest(arguments[0]):
                notices.show(post_notice, "--start", out, *arguments)
                notices.wait_pixel(436, 58, header)
                for y in (43, 54, 65):
                    notices.wait_pixel(30, y, (255, 201, 77))
                notices.end()
        if os.access("/private/var/log", os.W_OK):
            self.assertEqual(log.read_text(encoding="utf-8").count("Message received from Main APP."), 2)
            self.assertIn("Default APP Termination Time is set to 90", log.read_text(encoding="utf-8"))

        # A message by the name of the unbranded agent is none of its business.
        notices.show(post_notice, "--start", out, "--maintenance", "For this one.")
        notices.desktop.bus.emit("ssa{sv}", "zelvik_socketMessageNotifier", "",
                                 {"WebSocketType": True, "MaintenanceMessageKey": "Not for this one."})
        run(post_notice, "--start", out, "--auto-disconnect", "And this.", env=dict(notices.desktop.environment))
        notices.wait_text("And this.")
        if os.access("/private/var/log", os.W_OK):
            self.assertNotIn("Not for this one.", log.read_text(encoding="utf-8"))


@unittest.skipUnless(BUILD_TYPE == "Release", f"packages are made of the build type Release; this is {BUILD_TYPE}")
class BrandedPackageTest(BrandTestCase):

    def package_of_agent(self):
        tree = self.place / "agent"
        bundle = tree / INSTALLED_BUNDLE
        shutil.copytree(BUNDLE, bundle, symlinks=True)
        run("strip", "--strip-unneeded", bundle / "Contents/Linux/NoticeAgent",
            *bundle.glob("Contents/Frameworks/*.so"))
        (tree / "DEBIAN").mkdir()
        (tree / "DEBIAN/control").write_text(
            f"Package: notice-agent\nVersion: 2.5\nArchitecture: {ARCHITECTURE}\nMaintainer: A <a@b.example>\n"
            "Depends: libc6, libqt6widgets6\nDescription: an agent\n")
        run("dpkg-deb", "-Znone", "--build", tree, self.place / "agent.deb")
        return self.place / "agent.deb"

    def test_package_of_the_agents_package(self):
        agent = self.package_of_agent()
        package = self.place / "lumora.deb"
        self.assertIn("made ", self.run_kit("--agent", agent, "--package", package))
        self.assertEqual(
            [field(package, name) for name in ("Package", "Version", "Architecture", "Depends")],
            ["lumora-notice-agent", "2.5", ARCHITECTURE, "libc6, libqt6widgets6"])
        self.assertIn("post-notice", field(package, "Recommends"))
        names = run("dpkg-deb", "-c", package)
        self.assertIn("./usr/lib/lumora-notice-agent/NoticeAgent.app/Contents/Linux/NoticeAgent\n", names)
        self.assertIn("./usr/lib/tmpfiles.d/lumora-notice-agent.conf\n", names)
        self.assertIn("./usr/share/applications/com.tevanic.NoticeAgent.lumora.desktop\n", names)
        service = run(
            "sh", "-c", 'dpkg-deb --fsys-tarfile "$0" | tar -xO ./usr/share/dbus-1/services/com.tevanic.NoticeAgent.'
            'lumora.service', package)
        self.assertEqual(service, "[D-BUS Service]\nName=com.tevanic.NoticeAgent.lumora\n"
                         "Exec=/usr/lib/lumora-notice-agent/NoticeAgent.app/Contents/Linux/NoticeAgent\n")
        control = self.place / "control"
        run("dpkg-deb", "-e", package, control)
        for script in ("postinst", "postrm"):
            text = (control / script).read_text()
            self.assertIn("/private/var/log/lumora\n", text)
            self.assertNotRegex(text, "@|zelvik")
            run("sh", "-n", control / script)

        again = self.place / "again.deb"
        time.sleep(1.1)  # another second than the first one's
        self.run_kit("--agent", agent, "--package", again)
        self.assertEqual(package.read_bytes(), again.read_bytes(), "the same input gives the same package")

        lintian = shutil.which("lintian", path=SYSTEM_PATH)
        if not lintian:
            self.skipTest("made and looked at, but lintian is not installed (Scripts/packages.txt)")
        self.assertNotRegex(run(lintian, "--allow-root", "--fail-on", "error,warning", package), r"(?m)^[EW]: ")


if __name__ == "__main__":
    if not (BUILD / "bin/gallery").is_file():
        skip_all(f"there is no build in {BUILD}")
    unittest.main(verbosity=2)
