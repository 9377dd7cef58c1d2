#!/usr/bin/python3
"""The command brand-notices: what it says about folders of every kind, and that what it makes is a working brand."""

import importlib.machinery
import importlib.util
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

from packaging import BUILD, BUILD_TYPE, EPOCH, ROOT, SYSTEM_PATH, Notices, field, run, skip_all

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
                   env=dict(os.environ, PATH=SYSTEM_PATH, LC_ALL="C.UTF-8", SOURCE_DATE_EPOCH=EPOCH,
                            PYTHONDONTWRITEBYTECODE="1"))

    def findings(self, kind, **options):
        return [line for line in self.run_kit("--quiet", **options).splitlines() if line.startswith(f"{kind}: ")]

    def assert_error(self, *expected):
        self.assertEqual(self.findings("error", status=1), [f"error: {line}" for line in expected])

    def assert_warning(self, *expected):
        self.assertEqual(self.findings("warning"), [f"warning: {line}" for line in expected])


class SampleTest(BrandTestCase):

    def test_sample_is_without_fault_and_what_follows_from_it_is_told(self):
        said = self.run_kit()
        self.assertNotRegex(said, "(?m)^(error|warning): ")
        for text in ('"lumora_socketMessageNotifier"', "/private/var/log/lumora/lumora_Tevanic.log",
                     '"Lumora_webSocketToMainAppNotifier"', "ic_zelvikLogo", "no errors, 0 warnings"):
            self.assertIn(text, said)

    def test_a_check_leaves_folder_and_bundle_as_they_are(self):
        def stamps(folder):
            return {path: path.stat().st_mtime_ns for path in folder.rglob("*")}

        before = stamps(self.brand), stamps(BUNDLE)
        self.run_kit()
        self.assertEqual((stamps(self.brand), stamps(BUNDLE)), before)


class SettingsTest(BrandTestCase):

    def test_missing_settings(self):
        (self.brand / SETTINGS).rename(self.brand / "application_shared.plist")
        said = self.run_kit("--bundle", self.place / "B.app", status=1)
        self.assertIn(f"error: {SETTINGS}: is missing\n", said)
        self.assertIn(f"application_shared.plist: is not taken over; {SETTINGS} is meant?", said)
        self.assertFalse((self.place / "B.app").exists(), "nothing is made of a folder with errors")

    def test_settings_that_are_no_property_list(self):
        (self.brand / SETTINGS).write_text("<plist><dict>")
        self.assertRegex(self.run_kit(status=1), f"(?m)^error: {SETTINGS}: is no property list: ")

    def test_settings_whose_root_is_a_list(self):
        (self.brand / SETTINGS).write_bytes(plistlib.dumps(["Vendor"]))
        self.assertIn("its root is no dictionary", self.run_kit(status=1))

    def test_binary_settings_are_as_good(self):
        path = self.brand / SETTINGS
        path.write_bytes(plistlib.dumps(plistlib.loads(path.read_bytes()), fmt=plistlib.FMT_BINARY))
        self.assert_warning()

    def test_misspelt_key(self):
        self.settings(vendor="Lumora", Vendor=None)
        self.assert_error(f'{SETTINGS}: "vendor" is no key of the agent; "Vendor" is meant?')

    def test_unknown_key(self):
        self.settings(Slogan="Brighter")
        self.assert_warning(f'{SETTINGS}: "Slogan" is no key of the agent and changes nothing')

    def test_key_of_another_type(self):
        self.settings(Vendor=5)
        self.assert_error(f'{SETTINGS}: Vendor is no text, and would be "zelvik"')

    def test_key_that_is_left_out(self):
        self.settings(globalAppViewBackgroundColor=None)
        self.assert_warning(f'{SETTINGS}: globalAppViewBackgroundColor is not there, and will be "#2A292F"')

    def test_colors(self):
        key = f"{SETTINGS}: globalAppViewBackgroundColor: "
        for text, shown in (("#FFF", "gray (#808080)"), ("", "gray (#808080)"), ("12ZZZZ", "#000012"),
                            ("GG0000", "#000000"), ("##2A292", "#000000"), ("0X1234", "#001234")):
            with self.subTest(text):
                self.settings(globalAppViewBackgroundColor=text)
                self.assert_error(f'{key}"{text}" is not six hexadecimal digits; the header would be {shown}')

    def test_colors_are_read_as_the_agent_reads_them(self):
        loader = importlib.machinery.SourceFileLoader("brand_notices", str(BRAND_NOTICES))
        kit = importlib.util.module_from_spec(importlib.util.spec_from_loader("brand_notices", loader))
        loader.exec_module(kit)
        bundle = self.place / "NoticeAgent.app"
        shutil.copytree(BUNDLE, bundle)
        settings = bundle / "Contents/Resources" / SETTINGS
        for text in ("#0B5D51", " 0b5d51\n", "0X1234", "12ZZZZ", "##2A292", "#FFF", "GG0000", "", "#12 456", " #-12345",
                     "e\u030112345", "\u00e912345", "#1234567", "\u0661\u0662\u0663456"):
            with self.subTest(text):
                settings.write_bytes(plistlib.dumps({"globalAppViewBackgroundColor": text}))
                run(BUILD / "bin/gallery", "--only", "languages/en-maintenance", bundle, self.place / "out")
                with Image.open(self.place / "out/languages/en-maintenance.png") as picture:
                    self.assertEqual(picture.convert("RGB").getpixel((436, 58)), kit.color_from_hex(text)[0])

    def test_color_with_blanks_and_small_letters_is_a_color(self):
        self.settings(globalAppViewBackgroundColor="\n 0b5d51 ")
        self.assert_warning()

    def test_log_folder_names_that_are_none(self):
        for name in ("", "..", "a/b", "lu mora", "-lumora", ".lumora", "lumóra", "a\nb"):
            with self.subTest(name):
                self.settings(LogFolderName=name)
                self.assertIn(f'LogFolderName: "{name}" is no plain folder name', self.run_kit(status=1))

    def test_log_folder_name_of_the_unbranded_agent(self):
        self.settings(LogFolderName="zelvik")
        self.assert_warning(f'{SETTINGS}: LogFolderName: "zelvik" is the name of the unbranded agent: messages and log '
                            "are shared with it")

    def test_vendor_korvane(self):
        self.settings(Vendor="KORVANE")
        self.assertIn("with KORVANE the window of the CASB and the maintenance notice is black", self.run_kit())
        self.settings(Vendor="Korvane")
        self.assert_warning(f'{SETTINGS}: Vendor: "Korvane" is not KORVANE: the windows are not black')


class LogoTest(BrandTestCase):

    def test_logo_that_is_missing(self):
        self.settings(AppLogo="ic_lumoralogo")
        self.assertIn('AppLogo: there is no image "ic_lumoralogo" (with .png, @2x.png, @3x.png, .jpg, .svg); '
                      '"ic_lumoraLogo" is meant?', self.run_kit(status=1))

    def test_logo_name_with_an_ending(self):
        self.settings(AppLogo="ic_lumoraLogo@2x.png")
        self.assertIn('the name goes without ending; "ic_lumoraLogo" is meant?', self.run_kit(status=1))

    def test_logo_name_with_a_path(self):
        self.settings(AppLogo="../ic_lumoraLogo")
        self.assertIn('AppLogo: "../ic_lumoraLogo" is no name of an image', self.run_kit(status=1))

    def test_no_logo_of_its_own(self):
        self.only_logo()
        self.settings(AppLogo="ic_zelvikLogo")
        self.assert_warning(f'{SETTINGS}: AppLogo: the folder has no image "ic_zelvikLogo": the logo stays that of the '
                            "agent")

    def test_files_that_are_no_images(self):
        for data, reason in ((b"", "is no image that the agent can draw"), (b"RIFF....WEBP", "is no image"),
                             (b"\x89PNG\r\n\x1a\n", "is cut off or broken"),
                             (png(9000, 1), "is 9000 by 1 pixels")):
            with self.subTest(reason):
                self.only_logo(**{".png": data})
                self.assertIn(f"error: ic_lumoraLogo.png: {reason}", self.run_kit(status=1))

    def test_half_a_picture(self):
        whole = png(192, 64)
        half = whole[:len(whole) // 2]
        other = whole.replace(b"IDAT", b"IDAt")
        for logo in ({".png": half}, {".png": png(96, 32), "@2x.png": half}, {".png": other}):
            with self.subTest(list(logo)):
                self.only_logo(**logo)
                self.assert_error(f"ic_lumoraLogo{list(logo)[-1]}: is cut off or broken")

    def test_logo_that_is_drawn_as_nothing(self):
        self.only_logo(**{".svg": b'<svg xmlns="http://www.w3.org/2000/svg" width="96" height="32"/>'})
        self.assert_error("ic_lumoraLogo: is drawn as nothing: it is empty, or the agent cannot read it")

    def test_drawings_that_the_agent_refuses(self):
        for inner in ('<image href="x.png"/>', "<script/>", '<use href="#a"/>', "<animate/>",
                      "<style>@import url(x)</style>"):
            with self.subTest(inner):
                self.only_logo(**{".svg": f'<svg xmlns="http://www.w3.org/2000/svg">{inner}</svg>'.encode()})
                self.assertIn("the agent would not draw it", self.run_kit(status=1))

    def test_sizes_of_a_pair(self):
        self.only_logo(**{".png": png(96, 32), "@2x.png": png(96, 32)})
        self.assert_error("ic_lumoraLogo@2x.png: is 96 by 32 pixels; 2 times the plain one is 192 by 64")

    def test_small_logo(self):
        self.only_logo(**{".png": png(48, 16)})
        self.assert_warning("ic_lumoraLogo: is 16 pixels high, and is drawn 32 high: it will be blurred",
                            "ic_lumoraLogo: has neither @2x.png nor .svg: it will be blurred on a fine screen")

    def test_picture_of_another_format_than_its_name(self):
        buffer = io.BytesIO()
        Image.new("RGB", (192, 64), (255, 255, 255)).save(buffer, "JPEG")
        self.only_logo(**{".png": buffer.getvalue()})
        self.assert_warning("ic_lumoraLogo.png: is named PNG and is JPG")

    def test_logo_that_is_hard_to_see(self):
        self.settings(globalAppViewBackgroundColor="#FFFFFF")
        self.only_logo(**{".png": png(192, 64, (250, 250, 250))})
        self.assert_warning("ic_lumoraLogo: 100 percent of it have a contrast of less than 3 : 1 with the header's "
                            "#FFFFFF and are hard to see")
        self.settings(globalAppViewBackgroundColor="#1E2234")
        self.only_logo(**{".png": png(192, 64, (20, 20, 60))})
        self.assertEqual(len(self.findings("warning")), 2)


class LanguageTest(BrandTestCase):

    TABLE = "de.lproj/Localizable.strings"

    def edit(self, before, after, name=TABLE):
        path = self.brand / name
        text = path.read_text(encoding="utf-8")
        self.assertIn(before, text)
        path.write_text(text.replace(before, after), encoding="utf-8")

    def test_table_that_cannot_be_read(self):
        self.edit('"VPN Disconnected" = ', '"VPN Disconnected" ')
        self.assertRegex(self.run_kit(status=1), f"(?m)^error: {self.TABLE}: line \\d+: ")

    def test_missing_and_unknown_key(self):
        self.edit('"Attention" =', '"Atention" =')
        self.assert_error(f'{self.TABLE}: the key "Attention" is missing')
        self.assertIn('the key "Atention" is none of the agent; "Attention" is meant?', self.run_kit(status=1))

    def test_empty_value_and_placeholder(self):
        self.edit('"Bitte beachten"', '""')
        self.edit('"VPN getrennt"', '"VPN %@ getrennt"')
        self.assert_error(f'{self.TABLE}: the value of "Attention" is empty',
                          f'{self.TABLE}: the value of "VPN Disconnected" holds the placeholder %@')

    def test_unit_where_the_line_ends_in_the_number(self):
        self.edit('"seconds" = ""', '"seconds" = " Sekunden"')
        self.assertIn('"seconds" must be empty', self.findings("warning")[0])

    def test_new_language_wants_both_tables(self):
        (self.brand / "de.lproj").rename(self.brand / "lb.lproj")
        self.assert_error("lb.lproj/Main.strings: is missing, and the agent has none of that language")
        shutil.copy(ROOT / "Resources/de.lproj/Main.strings", self.brand / "lb.lproj")
        self.assert_warning()

    def test_folder_that_is_named_by_no_language(self):
        (self.brand / "de.lproj").rename(self.brand / "German!.lproj")
        self.assertIn("German!.lproj: is not named by a language code", self.run_kit(status=1))

    def test_language_in_another_spelling(self):
        (self.brand / "de.lproj").rename(self.brand / "DE.lproj")
        self.assertIn("DE.lproj: is de.lproj in the agent", self.run_kit(status=1))

    def test_file_of_another_name(self):
        (self.brand / "de.lproj/Localisable.strings").write_text("")
        self.assert_warning("de.lproj/Localisable.strings: is not taken over; Localizable.strings is meant?")


class InformationTest(BrandTestCase):

    def test_time_outs(self):
        for value, fault in (("90", "is no whole number, and would be 120"), (True, "is no whole number"),
                             (0, "the agent would end as soon as it starts")):
            with self.subTest(value):
                self.change("Info.plist", Default_App_Timeout=value)
                self.assertIn(fault, self.findings("error", status=1)[0])
        self.change("Info.plist", Default_App_Timeout=20)
        self.assert_warning("Info.plist: Default_App_Timeout is 20 seconds: the notices that count 30 seconds are cut "
                            "short")

    def test_keys(self):
        self.change("Info.plist", Default_App_TimeOut=90, Default_App_Timeout=None, CFBundleDevelopmentRegion="xx",
                    CFBundleExecutable="Lumora")
        self.assert_error('Info.plist: CFBundleDevelopmentRegion: there is no language "xx"',
                          'Info.plist: CFBundleExecutable must stay "NoticeAgent"',
                          'Info.plist: "Default_App_TimeOut" is no key of the agent; "Default_App_Timeout" is meant?')

    def test_other_files(self):
        (self.brand / "logo-draft.png").write_bytes(png(1, 1))
        self.assert_warning("logo-draft.png: is not taken over")


class CommandTest(BrandTestCase):

    def test_help(self):
        said = run(BRAND_NOTICES, "--help")
        self.assertIn("Usage: brand-notices [OPTION]... FOLDER", said)
        self.assertLessEqual(max(map(len, said.splitlines())), 80)
        manual = (KIT / "brand-notices.1").read_text().replace("\\-", "-")
        for option in re.findall(r"^  (--\w+)", said, re.MULTILINE):
            self.assertIn(option, manual)

    def test_wrong_usage(self):
        for arguments in ((), ("--nonsense", SAMPLE), ("--package", "x.rpm", SAMPLE), (SAMPLE, SAMPLE)):
            with self.subTest(arguments):
                self.assertRegex(run(BRAND_NOTICES, *arguments, status=2), r"\Abrand-notices: [^\n]+; see --help\n\Z")

    def test_failures_are_one_line(self):
        there = self.place / "there.app"
        there.mkdir()
        for arguments, words in (((self.place / "none",), "no such folder"),
                                 (("--agent", self.place, SAMPLE), "no bundle of the agent"),
                                 (("--agent", SAMPLE / SETTINGS, SAMPLE), "no package of the agent"),
                                 (("--agent", BUNDLE, "--bundle", there, SAMPLE), "is there already"),
                                 (("--agent", BUNDLE, "--package", self.place / "x.deb", SAMPLE), "--version: is needed"),
                                 (("--agent", BUNDLE, "--version", "1", "--name", "notice-agent", "--package",
                                   self.place / "x.deb", SAMPLE), "is the name of the unbranded package")):
            with self.subTest(words):
                said = run(BRAND_NOTICES, "--quiet", *arguments, status=1)
                self.assertRegex(said, r"\Abrand-notices: [^\n]+\n\Z")
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

    def test_preview_shows_header_and_logo(self):
        out = self.place / "preview.png"
        self.run_kit("--preview", out)
        with Image.open(out) as picture:
            colors = {color: count for count, color in picture.convert("RGB").getcolors(maxcolors=1 << 24)}
        # Five of the six notices have the header's colour; every one has the logo's sun.
        self.assertGreater(colors[HEADER], 5 * 460 * 60 * 0.9)
        self.assertGreater(colors[(0xFF, 0xC9, 0x4D)], 6 * 100)

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
                notices.show(post_notice, "--start", out, "--folder", name, *arguments)
                notices.wait_pixel(436, 58, header)
                for y in (45, 58, 71):
                    notices.wait_pixel(30, y, (255, 201, 77))
                notices.end()
        if os.access("/private/var/log", os.W_OK):
            self.assertEqual(log.read_text(encoding="utf-8").count("Message received from Main APP."), 2)
            self.assertIn("Default APP Termination Time is set to 90", log.read_text(encoding="utf-8"))

        # A message by the name of the unbranded agent is none of its business.
        run(post_notice, "--start", out, "--maintenance", "Not for this one.", env=dict(notices.desktop.environment))
        run(post_notice, "--folder", name, "--auto-disconnect", "For this one.", env=dict(notices.desktop.environment))
        notices.attach()
        notices.wait_text("For this one.")
        if os.access("/private/var/log", os.W_OK):
            self.assertNotIn("Not for this one.", log.read_text(encoding="utf-8"))


@unittest.skipUnless(shutil.which("dpkg-shlibdeps"), "dpkg-shlibdeps is missing (package dpkg-dev)")
class BrandedPackageTest(BrandTestCase):

    def test_package_of_a_bundle_that_is_from_no_package(self):
        package = self.place / "lumora.deb"
        self.assertIn("made ", self.run_kit("--version", "2.5", "--package", package))
        self.assertEqual([field(package, name) for name in ("Package", "Version")], ["lumora-notice-agent", "2.5"])
        for wanted in ("libqt6svg6", "libqt6widgets6", "libcurl4", "libdbus-1-3"):
            self.assertIn(wanted, field(package, "Depends"))
        names = run("dpkg-deb", "-c", package)
        self.assertIn("./usr/lib/lumora-notice-agent/NoticeAgent.app/Contents/Linux/NoticeAgent\n", names)
        self.assertIn("./usr/lib/tmpfiles.d/lumora-notice-agent.conf\n", names)
        control = self.place / "control"
        run("dpkg-deb", "-e", package, control)
        for script in ("postinst", "postrm"):
            text = (control / script).read_text()
            self.assertIn("/private/var/log/lumora\n", text)
            self.assertNotRegex(text, "@|zelvik")
            run("sh", "-n", control / script)

        again = self.place / "again.deb"
        time.sleep(1.1)  # another second than the first one's
        self.run_kit("--version", "2.5", "--package", again)
        self.assertEqual(package.read_bytes(), again.read_bytes(), "the same input gives the same package")

        lintian = shutil.which("lintian", path=SYSTEM_PATH)
        if not lintian:
            self.skipTest("made and looked at, but lintian is not installed (Scripts/packages.txt)")
        self.assertNotRegex(run(lintian, "--allow-root", "--fail-on", "error,warning", package), r"(?m)^[EW]: ")


if __name__ == "__main__":
    if BUILD_TYPE != "Release":
        skip_all(f"brands are made of the build type Release; this one is {BUILD_TYPE}")
    if not (BUILD / "bin/gallery").is_file():
        skip_all(f"there is no build in {BUILD}")
    unittest.main(verbosity=2)
