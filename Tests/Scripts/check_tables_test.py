#!/usr/bin/python3
"""Plants faults in string tables and sees that Scripts/check-tables finds each of them."""

import importlib.machinery
import importlib.util
import io
import plistlib
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
SCRIPT = ROOT / "Scripts" / "check-tables"

ENGLISH = [
    "This window will auto close in ",
    "This window will auto close in",
    "seconds",
    "Attention",
    "VPN Disconnected",
]
GERMAN = ["Sekunden bis zum Schließen: ", "Sekunden bis zum Schließen:", "", "Achtung", "VPN getrennt"]
JAPANESE = ["このウィンドウは", "このウィンドウは", "秒後に閉じます", "ご注意", "VPNが切断されました"]


def load_script():
    sys.dont_write_bytecode = True  # a script without a suffix would leave its bytes beside it
    loader = importlib.machinery.SourceFileLoader("check_tables", str(SCRIPT))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader("check_tables", loader))
    loader.exec_module(module)
    return module


check_tables = load_script()


def table_text(values):
    return "/* A table. */\n" + "".join(f'"{key}" = "{value}";\n' for key, value in zip(ENGLISH, values))


class TablesTest(unittest.TestCase):
    """Each test starts from three languages without a fault."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.resources = Path(folder.name) / "Resources"
        for language, values in (("en", ENGLISH), ("de", GERMAN), ("ja", JAPANESE)):
            (self.resources / f"{language}.lproj").mkdir(parents=True)
            self.write(language, table_text(values))
            self.write(language, '"OK" = "OK";\n', table="Main.strings")

    def path(self, language, table="Localizable.strings"):
        return self.resources / f"{language}.lproj" / table

    def write(self, language, content, table="Localizable.strings"):
        self.path(language, table).write_bytes(content if isinstance(content, bytes) else content.encode())

    def change(self, language, old, new):
        text = self.path(language).read_text(encoding="utf-8")
        self.assertIn(old, text)
        self.write(language, text.replace(old, new, 1))

    def run_check(self):
        out = io.StringIO()
        status = check_tables.check_resources(self.resources, out)
        return status, out.getvalue()

    def assert_clean(self):
        status, output = self.run_check()
        self.assertEqual(status, 0, output)
        self.assertRegex(output, r"\A[1-9]\d* passed, 0 failed\n\Z")

    def assert_one_fault(self, *words):
        """Exactly one fault is reported, and its line holds all the words."""
        status, output = self.run_check()
        *faults, last = output.splitlines()
        self.assertEqual(status, 1, output)
        self.assertRegex(last, r"\A[1-9]\d* passed, 1 failed\Z", output)
        self.assertEqual(len(faults), 1, output)
        for word in words:
            self.assertIn(word, faults[0])

    # Tables without a fault

    def test_sound_tables_pass(self):
        self.assert_clean()

    def test_utf16_with_its_mark_passes(self):
        for encoding in ("utf-16-le", "utf-16-be"):
            with self.subTest(encoding):
                self.write("de", ("\ufeff" + table_text(GERMAN)).encode(encoding))
                self.assert_clean()

    def test_utf8_with_a_mark_passes(self):
        self.write("de", ("\ufeff" + table_text(GERMAN)).encode())
        self.assert_clean()

    def test_property_lists_pass(self):
        for form in (plistlib.FMT_XML, plistlib.FMT_BINARY):
            with self.subTest(form):
                self.write("de", plistlib.dumps(dict(zip(ENGLISH, GERMAN)), fmt=form))
                self.assert_clean()

    def test_escapes_line_comments_bare_words_and_short_form_pass(self):
        self.change("de", '"Attention" = "Achtung"', '// a comment; "with" = signs\nAttention = "\\U00c4 \\"B\\" \\n C"')
        self.change("en", '"seconds" = "seconds"', '"seconds"')
        self.assert_clean()

    def test_joiners_pass(self):
        self.change("de", "Achtung", "به\u200cطور")
        self.assert_clean()

    def test_percent_sign_in_prose_passes(self):
        self.change("de", "Achtung", "100 % sicher, 100% sicher")
        self.assert_clean()

    def test_variant_of_a_language_without_blank_passes(self):
        self.path("ja").parent.rename(self.resources / "zh-HK.lproj")
        self.assert_clean()

    # Faults of a file

    def test_missing_table(self):
        self.path("de", "Main.strings").unlink()
        self.assert_one_fault("de.lproj/Main.strings", "missing")

    def test_invalid_utf8(self):
        self.write("de", table_text(GERMAN).encode("latin-1"))
        self.assert_one_fault("de.lproj/Localizable.strings", "not valid utf-8")

    def test_utf16_without_its_mark(self):
        self.write("de", '"OK" = "OK";'.encode("utf-16-le"), table="Main.strings")
        self.assert_one_fault("de.lproj/Main.strings", "zero bytes")

    def test_text_that_is_no_table(self):
        for text, word in (
            ('"OK" = "OK"', '";"'),
            ('"OK" "OK";', '"="'),
            ('"OK" = ;', "the value"),
            ('"OK', "never closed"),
            ('/* "OK" = "OK";', "never closed"),
            ('"OK" = "OK"; {', "does not belong"),
            ('\n\n"OK" = = "OK";', "line 3"),
            ('"OK" = "\\Ud83d";', "half a character"),
        ):
            with self.subTest(text):
                self.write("de", text, table="Main.strings")
                self.assert_one_fault("de.lproj/Main.strings", word)

    def test_broken_property_list(self):
        self.write("de", plistlib.dumps({"OK": "OK"})[:-12], table="Main.strings")
        self.assert_one_fault("de.lproj/Main.strings", "property list")

    def test_property_list_with_another_type(self):
        self.write("de", plistlib.dumps({"OK": 1}), table="Main.strings")
        self.assert_one_fault("de.lproj/Main.strings", "texts alone")

    # Faults of the keys

    def test_missing_key(self):
        self.change("de", '"Attention" = "Achtung";\n', "")
        self.assert_one_fault("de.lproj/Localizable.strings", '"Attention" is missing')

    def test_stray_key(self):
        self.change("de", '"Attention"', '"Atention" = "Achtung";\n"Attention"')
        self.assert_one_fault("de.lproj/Localizable.strings", '"Atention"', "not in the English table")

    def test_duplicate_key(self):
        self.change("de", '"Attention"', '"Attention" = "Achtung";\n"Attention"')
        self.assert_one_fault("de.lproj/Localizable.strings", '"Attention" stands 2 times')

    def test_duplicate_key_in_a_property_list(self):
        pair = b"<key>OK</key><string>OK</string>"
        self.write("de", b'<plist version="1.0"><dict>' + pair + pair + b"</dict></plist>", table="Main.strings")
        self.assert_one_fault("de.lproj/Main.strings", '"OK" stands 2 times')

    # Faults of the values

    def test_empty_value(self):
        for value in ("", " "):
            with self.subTest(value):
                self.write("de", f'"OK" = "{value}";', table="Main.strings")
                self.assert_one_fault("de.lproj/Main.strings", '"OK" is empty')

    def test_placeholder(self):
        for placeholder in ("%@", "%d", "%1$@", "%2$ld", "%.2f", "%lu", "%s", "%1", "%L1", "{0}", "{name}", "{}"):
            with self.subTest(placeholder):
                self.write("de", f'"OK" = "In {placeholder}.";', table="Main.strings")
                self.assert_one_fault("de.lproj/Main.strings", '"OK"', f"placeholder {placeholder}")

    def test_direction_marks(self):
        for code in (0x061C, 0x200E, 0x200F, *range(0x202A, 0x202F), *range(0x2066, 0x206A)):
            with self.subTest(f"U+{code:04X}"):
                self.write("de", f'"OK" = "O{chr(code)}K";', table="Main.strings")
                self.assert_one_fault("de.lproj/Main.strings", '"OK"', f"U+{code:04X}")

    def test_direction_mark_written_as_an_escape(self):
        self.write("de", '"OK" = "\\U202eOK";', table="Main.strings")
        self.assert_one_fault("de.lproj/Main.strings", "U+202E")

    def test_direction_mark_in_a_comment(self):
        self.write("de", '/* A \u202e comment. */ "OK" = "OK";', table="Main.strings")
        self.assert_one_fault("de.lproj/Main.strings", "comment", "U+202E")

    def test_unreadable_character(self):
        self.write("de", '"OK" = "O\ufffdK";', table="Main.strings")
        self.assert_one_fault("de.lproj/Main.strings", '"OK"', "U+FFFD")

    def test_english_value_that_is_not_its_key(self):
        self.change("en", '= "Attention"', '= "Attention!"')
        self.assert_one_fault("en.lproj/Localizable.strings", '"Attention"', "Attention!")

    def test_english_prefix_that_lost_its_blank(self):
        self.change("en", '= "This window will auto close in "', '= "This window will auto close in"')
        self.assert_one_fault("en.lproj/Localizable.strings", "is not the key")

    # Faults of the blanks

    def test_unit_where_the_line_ends_in_the_number(self):
        for unit in ("Sekunden", " Sekunden"):
            with self.subTest(unit):
                self.write("de", table_text([*GERMAN[:2], unit, *GERMAN[3:]]))
                self.assert_one_fault("de.lproj/Localizable.strings", '"seconds" must be empty')

    def test_unit_that_is_missing(self):
        self.change("ja", '"秒後に閉じます"', '""')
        self.assert_one_fault("ja.lproj/Localizable.strings", '"seconds" is empty')

    def test_unit_with_a_blank(self):
        for unit in (" 秒", "秒 "):
            with self.subTest(unit):
                self.write("ja", table_text([*JAPANESE[:2], unit, *JAPANESE[3:]]))
                self.assert_one_fault("ja.lproj/Localizable.strings", '"seconds"', "with a blank")

    def test_prefix_that_lost_its_blank(self):
        self.change("de", 'ßen: "', 'ßen:"')
        self.assert_one_fault("de.lproj/Localizable.strings", "must end with one blank")

    def test_prefix_that_gained_a_blank(self):
        self.change("de", 'ßen:"', 'ßen: "')
        self.assert_one_fault("de.lproj/Localizable.strings", "ends with a blank")

    def test_prefixes_that_differ(self):
        self.change("de", 'ßen:"', 'ßen,"')
        self.assert_one_fault("de.lproj/Localizable.strings", "translated differently")

    def test_other_text_with_a_blank_at_its_ends(self):
        for value in (" Achtung", "Achtung "):
            with self.subTest(value):
                self.write("de", table_text([*GERMAN[:3], value, GERMAN[4]]))
                self.assert_one_fault("de.lproj/Localizable.strings", '"Attention"', "a blank")

    # The folder

    def test_missing_english(self):
        for path in self.path("en").parent.iterdir():
            path.unlink()
        self.path("en").parent.rmdir()
        status, output = self.run_check()
        self.assertEqual(status, 1)
        self.assertIn("en.lproj is missing", output)
        self.assertRegex(output.splitlines()[-1], r" passed, [1-9]\d* failed\Z")

    def test_several_faults_are_all_told(self):
        self.change("de", "Achtung", "%@")
        self.change("ja", '"Attention"', '"Atention"')
        status, output = self.run_check()
        self.assertEqual(status, 1)
        self.assertIn("de.lproj/Localizable.strings: ", output)
        self.assertIn('ja.lproj/Localizable.strings: the key "Attention" is missing', output)
        self.assertIn('ja.lproj/Localizable.strings: the key "Atention" is not', output)
        self.assertRegex(output.splitlines()[-1], r" passed, 3 failed\Z")

    def run_command(self, *arguments):
        return subprocess.run(
            [str(SCRIPT), *map(str, arguments)], capture_output=True, text=True, timeout=60, check=False
        )

    def test_command_takes_resources_contents_and_bundle(self):
        contents = self.resources.parent / "NoticeAgent.app" / "Contents"
        contents.mkdir(parents=True)
        self.resources.rename(contents / "Resources")
        for folder in (contents / "Resources", contents, contents.parent):
            with self.subTest(folder):
                result = self.run_command(folder)
                self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
                self.assertRegex(result.stdout, r"\A[1-9]\d* passed, 0 failed\n\Z")
        (contents / "Resources" / "de.lproj" / "Main.strings").unlink()
        self.assertEqual(self.run_command(contents.parent).returncode, 1)

    def test_command_with_nothing_to_check(self):
        self.assertEqual(self.run_command(self.resources / "missing").returncode, 2)
        self.assertEqual(self.run_command(self.resources / "de.lproj").returncode, 2)
        self.assertEqual(self.run_command("one", "two").returncode, 2)

    def test_shipped_tables_are_sound(self):
        result = self.run_command()
        self.assertEqual(result.returncode, 0, result.stdout)


if __name__ == "__main__":
    unittest.main()
