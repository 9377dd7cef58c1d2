#!/usr/bin/python3
"""The command brand-notices: what it says about folders of every kind, and that what it makes is a working brand."""

import io
import os
import plistlib
import shutil
import tempfile
import unittest
from pathlib import Path

from PIL import Image

from packaging import BUILD, ROOT, SYSTEM_PATH, end_agent, run, show_notice, skip_all

KIT = ROOT / "Packaging" / "brand"
BRAND_NOTICES = KIT / "brand-notices"
SAMPLE = KIT / "sample"
BUNDLE = BUILD / "NoticeAgent.app"
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
                   env=dict(os.environ, PATH=SYSTEM_PATH, LC_ALL="C.UTF-8", PYTHONDONTWRITEBYTECODE="1"))

    def findings(self, status=0):
        return [line for line in self.run_kit(status=status).splitlines() if line.startswith(("error: ", "warning: "))]

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

    def test_logos(self):
        whole = png(192, 64)
        svg = '<svg xmlns="http://www.w3.org/2000/svg" width="96" height="32">{}</svg>'
        no_image = "error: ic_lumoraLogo.png: is not an image that the agent can draw"
        for files, expected in (
                ({".png": b""}, [no_image]),
                ({".png": whole[:16]}, [no_image]),
                ({".png": whole[:len(whole) // 2]}, [no_image]),
                ({".png": png(9000, 1)}, [no_image]),
                ({".svg": svg.format("").encode()}, ["error: ic_lumoraLogo: nothing of it is drawn: it is empty"]),
                ({".svg": svg.format('<image href="x.png"/>').encode()},
                 ["error: ic_lumoraLogo.svg: the agent does not draw it"]),
                ({".png": png(96, 32), "@2x.png": png(96, 32)},
                 ["error: ic_lumoraLogo@2x.png: is 96 x 32 pixels; 2 times the plain image is 192 x 64"]),
                ({".png": png(48, 16)}, ["warning: ic_lumoraLogo: is 16 pixels high and drawn ",
                                         "warning: ic_lumoraLogo: has neither @2x.png nor .svg"])):
            with self.subTest(files):
                self.only_logo(**files)
                found = self.findings(status=None)
                self.assertEqual(len(found), len(expected), found)
                for line, beginning in zip(found, expected):
                    self.assertTrue(line.startswith(beginning), line)

    def test_a_fifo_in_the_place_of_a_logo_is_not_waited_for(self):
        self.only_logo()
        os.mkfifo(self.brand / "ic_lumoraLogo.png")
        self.assert_error("ic_lumoraLogo.png: cannot be read, or is larger than 16 MiB")

    def test_logo_that_is_hard_to_see(self):
        self.settings(globalAppViewBackgroundColor="#FFFFFF")
        self.only_logo(**{".png": png(192, 64, (250, 250, 250))})
        self.assert_warning("ic_lumoraLogo: 100 percent of it has a contrast below 3 : 1 with the header, #FFFFFF, "
                            "and is hard to see")

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
        for arguments, header in ((("--maintenance", "Back at 18:00."), HEADER),
                                  (("--concurrent-session", ROOT / "Tools/samples/concurrent-session.xml"), ACCENT)):
            with self.subTest(arguments[0]):
                notice = show_notice(self, BUILD / "bin/post-notice", "--start", out, *arguments)
                notice.wait_pixel(436, 58, header, "header")
                for y in (43, 54, 65):
                    notice.wait_pixel(30, y, (255, 201, 77), "logo")
                end_agent(notice)
        if os.access("/private/var/log", os.W_OK):
            self.assertEqual(log.read_text(encoding="utf-8").count("Message received from Main APP."), 2)
            self.assertIn("Default APP Termination Time is set to 90", log.read_text(encoding="utf-8"))


if __name__ == "__main__":
    if not (BUILD / "bin/gallery").is_file():
        skip_all(f"there is no build in {BUILD}")
    unittest.main(verbosity=2)
