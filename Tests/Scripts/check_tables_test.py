#!/usr/bin/python3
"""Plants faults in string tables and sees that gallery --check-tables reports each of them."""

import os
import plistlib
import re
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
GALLERY = os.environ.get("GALLERY", ROOT / "build/release/bin/gallery")
NAMES = ("Localizable.strings", "Main.strings")


class TablesTest(unittest.TestCase):
    """Each test starts from three languages without a fault."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.resources = Path(folder.name)
        for language in ("en", "de", "ja"):
            shutil.copytree(ROOT / "Resources" / f"{language}.lproj", self.resources / f"{language}.lproj")

    def path(self, language, name=NAMES[0]):
        return self.resources / f"{language}.lproj" / name

    def change(self, language, old, new):
        text = self.path(language).read_text(encoding="utf-8")
        self.path(language).write_text(text.replace(old, new, 1), encoding="utf-8")

    def findings(self, *options):
        result = subprocess.run([GALLERY, "--check-tables", self.resources, *options], stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, text=True, timeout=60, check=False)
        *findings, last = result.stdout.splitlines()
        self.assertEqual(result.returncode, any(line.startswith("error") for line in findings), result.stdout)
        self.assertRegex(last, f"{self.resources}: \\d+ errors?, \\d+ warnings?")
        return findings

    def assert_one_finding(self, *words):
        findings = self.findings()
        self.assertEqual(len(findings), 1, findings)
        for word in words:
            self.assertIn(word, findings[0])

    def test_sound_tables_pass_in_every_encoding_that_the_agent_reads(self):
        text = self.path("de").read_text(encoding="utf-8")
        for encoding in ("utf-8", "utf-16", "utf-8-sig"):
            self.path("de").write_bytes(text.encode(encoding))
            self.assertEqual(self.findings(), [])

    def test_tables_that_are_none(self):
        for content in (b'"OK" = "OK"', plistlib.dumps(["OK"]), b'"OK" = "\xff";'):
            with self.subTest(content):
                self.path("de", NAMES[1]).write_bytes(content)
                self.assert_one_finding("error: de.lproj/Main.strings: is not a string table")
        self.path("de", NAMES[1]).unlink()
        self.assert_one_finding("error: de.lproj/Main.strings: is missing")

    def test_keys(self):
        self.change("de", '"Attention" =', '"Atention" =')
        self.assert_one_finding('error: de.lproj/Localizable.strings: the key "Attention" is missing')
        self.change("de", '"Atention" =', '"Attention" = "Achtung"; "Atention" =')
        self.assert_one_finding('warning: de.lproj/Localizable.strings: unknown key "Atention"')

    def test_a_key_that_no_language_has_is_reported_once(self):
        keys = self.resources / "keys"
        keys.mkdir()
        for name in NAMES:
            (keys / name).write_bytes(self.path("en", name).read_bytes())
        for language in ("en", "de", "ja"):
            self.change(language, '"Attention" =', '"Old" =')
        self.change("en", '"Attention"', '"Old"')
        self.assertEqual(self.findings("--keys", keys),
                         ['error: en.lproj/Localizable.strings: the key "Attention" is missing'])

    def test_values(self):
        for language, key, value, words in (
                ("de", "VPN Disconnected", "", '"VPN Disconnected" is empty'),
                ("de", "VPN Disconnected", "VPN %1$@", "placeholder %1$@"),
                ("de", "VPN Disconnected", "VPN {0}", "placeholder {0}"),
                ("de", "VPN Disconnected", "VPN\\U202e", "U+202E"),
                ("de", "VPN Disconnected", "VPN\ufffd", "U+FFFD"),
                ("de", "VPN Disconnected", " VPN", "begins with a blank"),
                ("de", "VPN Disconnected", "VPN ", "ends with a blank"),
                ("de", "seconds", " Sekunden", "must be empty"),
                ("ja", "seconds", "", '"seconds" is empty'),  # it names the unit last
                ("en", "Attention", "Attention!", 'is not the key but "Attention!"'),
                ("de", "Please sign in again", "Please sign in again", '"Please sign in again" is not translated')):
            with self.subTest(key=key, value=value):
                path = self.path(language, NAMES[key == "Please sign in again"])
                before = path.read_text(encoding="utf-8")
                path.write_text(re.sub(f'"{key}" = ".*"', lambda _old: f'"{key}" = "{value}"', before),  # noqa: B023
                                encoding="utf-8")
                self.assert_one_finding(f"{language}.lproj/", words)
                path.write_text(before, encoding="utf-8")

    def test_folders_are_spelled_as_language_codes(self):
        for name, words in (("DE", "must be spelled de.lproj"), ("German!", "is not named after a language")):
            with self.subTest(name):
                folder = self.path("de").parent.rename(self.resources / f"{name}.lproj")
                self.assert_one_finding(f"error: {name}.lproj: {words}")
                folder.rename(self.resources / "de.lproj")


if __name__ == "__main__":
    unittest.main()
