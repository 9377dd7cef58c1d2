#!/usr/bin/python3
"""The packages that cpack makes: what is in them, what lintian says, and a whole life of one, from the installation
into a clean folder over five notices to the purge."""

import os
import re
import shutil
import stat
import subprocess
import tempfile
import unittest
from pathlib import Path

from packaging import (BUILD, INSTALLED_BUNDLE, ROOT, SYSTEM_PATH, InstallRoot, Notices, field, make_packages,
                       only, path_without_systemd, run, skip_unless_packages_can_be_made)

LOG_FOLDER = "private/var/log/zelvik"
LOG = f"{LOG_FOLDER}/zelvik_Tevanic.log"
HEADER = (42, 41, 47)
ACCENT = (30, 34, 52)


def setUpModule():
    global folder, packages, agent, symbols, kit
    folder = Path(tempfile.mkdtemp(prefix="notice-packages-"))
    unittest.addModuleCleanup(shutil.rmtree, folder, ignore_errors=True)
    packages = folder / "first"
    packages.mkdir()
    make_packages(packages)
    agent = only(packages.glob("notice-agent_*.deb"))
    kit = only(packages.glob("notice-agent-brand-kit_*.deb"))
    symbols = only(packages.glob("notice-agent-dbgsym_*.ddeb"))


class ContentTest(unittest.TestCase):

    @classmethod
    def setUpClass(cls):
        cls.tree = folder / "tree"
        run("dpkg-deb", "-x", agent, cls.tree)
        cls.symbols = folder / "symbols"
        run("dpkg-deb", "-x", symbols, cls.symbols)

    def programs(self):
        bundle = self.tree / INSTALLED_BUNDLE / "Contents"
        return [bundle / "Linux/NoticeAgent", bundle / "Frameworks/libServiceTier.so",
                self.tree / "usr/bin/post-notice", self.tree / "usr/bin/gallery"]

    def test_bundle_is_the_one_of_the_build(self):
        def names(bundle):
            return sorted(str(path.relative_to(bundle)) for path in bundle.rglob("*"))

        installed, built = self.tree / INSTALLED_BUNDLE, BUILD / "NoticeAgent.app"
        self.assertEqual(names(installed), names(built))
        for name in names(built):
            if not (built / name).is_dir() and not name.startswith(("Contents/Linux", "Contents/Frameworks")):
                self.assertEqual((installed / name).read_bytes(), (built / name).read_bytes(), name)

    def test_commands_have_manual_pages(self):
        commands = sorted(path.name for path in (self.tree / "usr/bin").iterdir())
        self.assertEqual(commands, ["gallery", "post-notice"])
        manuals = sorted(path.name for path in (self.tree / "usr/share/man/man1").iterdir())
        self.assertEqual(manuals, [f"{command}.1.gz" for command in commands])

    def test_documents_are_there(self):
        documents = self.tree / "usr/share/doc/notice-agent"
        for name in ("README.md", "SECURITY.md", "copyright", "changelog.gz", "changelog.Debian.gz",
                     "docs/branding.md", "docs/deployment.md", "docs/pictures/notices.png", "Tools/samples/casb.xml"):
            with self.subTest(name):
                self.assertTrue((documents / name).is_file())

    def test_nothing_outside_usr_and_everything_is_roots(self):
        for line in run("dpkg-deb", "-c", agent).splitlines():
            with self.subTest(line):
                rights, owner, *_, name = line.split()
                self.assertEqual(owner, "root/root")
                self.assertTrue(name.startswith("./usr/"))
                self.assertIn(rights, ("drwxr-xr-x", "-rwxr-xr-x", "-rw-r--r--"))

    def test_depends_on_what_it_links_and_on_what_it_loads(self):
        depends = {entry.split()[0] for entry in field(agent, "Depends").split(", ")}
        linked = set()
        for program in self.programs():
            linked |= set(re.findall(r"NEEDED\s+(\S+)", run("objdump", "-p", program)))
        for library, package in (("libQt6Widgets.so.6", "libqt6widgets6"), ("libxml2.so.2", "libxml2"),
                                 ("libdbus-1.so.3", "libdbus-1-3"), ("libplist-2.0.so.3", "libplist3")):
            self.assertIn(library, linked)
            self.assertIn(package, depends)
        self.assertIn("libcurl4", depends)  # of the plug-in alone
        self.assertIn("libqt6svg6", depends)  # linked by nothing
        there = run("dpkg-query", "--show", "--showformat=${db:Status-Status} ${Package}, ${Provides}\n")
        for package in depends:  # of this system, whose libraries the build has used
            self.assertRegex(there, rf"(?m)^installed .*(?<![\w.+-]){re.escape(package)}(?![\w.+-])")

    def test_maintainer_is_nobody_in_particular(self):
        self.assertIn("@notice-agent.example>", field(agent, "Maintainer"))

    def test_symbols_stand_in_a_package_of_their_own(self):
        self.assertIn(f"notice-agent (= {field(agent, 'Version')})", field(symbols, "Depends"))
        for program in self.programs():
            with self.subTest(program.name):
                sections = run("objdump", "-h", program)
                self.assertNotIn(".debug_info", sections)
                number = re.search(r"Build ID: (\w+)", run("readelf", "-n", program)).group(1)
                debug = self.symbols / f"usr/lib/debug/.build-id/{number[:2]}/{number[2:]}.debug"
                self.assertIn(".debug_line", run("objdump", "-h", debug))
        self.assertNotIn(str(ROOT).encode(), b"".join(path.read_bytes() for path in self.symbols.rglob("*.debug")))

    def test_the_same_build_gives_the_same_packages(self):
        again = folder / "again"
        again.mkdir()
        make_packages(again)
        for package in sorted(packages.glob("*.d*eb")):
            self.assertEqual(package.read_bytes(), (again / package.name).read_bytes(), package.name)

    def test_lintian_has_nothing_to_say(self):
        lintian = shutil.which("lintian", path=SYSTEM_PATH)
        if not lintian:
            self.skipTest("lintian is not installed (Scripts/packages.txt)")
        named_debs = [folder / f"{package.stem}.deb" for package in sorted(packages.glob("*.ddeb"))]
        for deb in named_debs:  # the only suffix that lintian reads
            deb.symlink_to(packages / f"{deb.stem}.ddeb")
        self.assertEqual(len(named_debs), 2)
        for package in [*sorted(packages.glob("*.deb")), *named_debs]:
            with self.subTest(package.name):
                said = run(lintian, "--allow-root", "--fail-on", "error,warning", package)
                self.assertNotRegex(said, r"(?m)^[EW]: ")

    def test_library_for_clients_has_a_package_of_its_own(self):
        library = only(packages.glob("libnoticeclient-dev_*.deb"))
        names = run("dpkg-deb", "-c", library)
        for name in ("include/NoticeClient/NoticeClient.h", "libNoticeClient.a", "pkgconfig/NoticeClient.pc",
                     "cmake/NoticeClient/NoticeClientConfig.cmake"):
            self.assertIn(f"/{name}\n", names)
        self.assertRegex(names, r"libNoticeClient\.so -> libNoticeClient\.so\.\d")
        control = folder / "library"
        run("dpkg-deb", "-e", library, control)
        self.assertEqual(sorted(path.name for path in control.iterdir()), ["control", "md5sums", "shlibs", "triggers"])
        self.assertIn("libdbus-1-dev", field(library, "Depends"))

    def test_the_unpacked_gallery_draws_the_unpacked_bundle(self):
        pictures = folder / "pictures"
        run(self.tree / "usr/bin/gallery", "--only", "languages/de-casb", self.tree / INSTALLED_BUNDLE, pictures,
            env=dict(os.environ, LC_ALL="C.UTF-8"))
        self.assertTrue((pictures / "languages/de-casb.png").is_file())


@unittest.skipUnless(os.geteuid() == 0, "dpkg installs as root only")
class LifeTest(unittest.TestCase):

    def setUp(self):
        self.root = InstallRoot()
        self.addCleanup(self.root.remove)

    def test_installed_used_removed_and_purged(self):
        before = self.root.files()
        self.root.dpkg("--install", agent)
        self.assertTrue((self.root / INSTALLED_BUNDLE).is_dir())
        self.assert_log_can_be_written_by_all()
        self.show_five_notices()
        installed = self.root.files()

        self.root.dpkg("--install", agent)  # the same again, as an upgrade does it
        self.assertEqual(self.root.files(), installed)

        self.root.dpkg("--remove", "notice-agent")
        self.assertFalse((self.root / "usr").exists())
        self.assertTrue((self.root / LOG).is_file(), "the log outlives a removal")

        self.root.dpkg("--purge", "notice-agent")
        self.assertEqual(self.root.files(), before)

    def test_purge_keeps_what_it_has_not_made(self):
        (self.root / "private/var").mkdir(parents=True)
        (self.root / "private/var").chmod(0o700)
        before = self.root.files()
        self.root.dpkg("--install", agent)
        other = self.root / "private/var/log/other.log"
        other.touch()
        (self.root / f"{LOG_FOLDER}/zelvik_Tevanic.1.log").touch()
        self.root.dpkg("--purge", "notice-agent")
        self.assertFalse((self.root / LOG_FOLDER).exists())
        other.unlink()
        other.parent.rmdir()
        self.assertEqual(self.root.files(), before)

    def test_a_brand_made_by_the_installed_kit_lives_beside_the_agent(self):
        before = self.root.files()
        self.root.dpkg("--install", agent, kit)
        sample = self.root / "usr/share/doc/notice-agent-brand-kit/examples/sample"
        package = self.root.path.parent / f"{self.root.path.name}.deb"
        self.addCleanup(package.unlink, missing_ok=True)
        # The folder stands for a system, but is none whose dpkg could be asked: so the agent goes by its package.
        run(self.root / "usr/bin/brand-notices", "--agent", agent, "--package", package, sample)
        for name in ("Version", "Depends", "Architecture"):
            self.assertEqual(field(package, name), field(agent, name))
        self.root.dpkg("--install", package)

        notices = Notices()
        self.addCleanup(notices.end)
        notices.show(self.root / "usr/bin/post-notice", "--start", "lumora-notice-agent", "--folder", "lumora",
                     "--maintenance", "Back at 18:00.")
        self.assertEqual(notices.executable(),
                         str(self.root / "usr/lib/lumora-notice-agent/NoticeAgent.app/Contents/Linux/NoticeAgent"))
        notices.wait_pixel(436, 58, (0x0B, 0x5D, 0x51))
        notices.end()

        # Whichever goes last takes the folders that they share.
        self.root.dpkg("--purge", "notice-agent-brand-kit", "notice-agent")
        self.assertEqual(sorted(path.name for path in (self.root / "private/var/log").iterdir()), ["lumora"])
        self.root.dpkg("--purge", "lumora-notice-agent")
        self.assertEqual(self.root.files(), before)

    def test_without_systemd(self):
        before = self.root.files()
        place = tempfile.mkdtemp(prefix="notice-path-")
        self.addCleanup(shutil.rmtree, place)
        commands = path_without_systemd(place)
        self.root.dpkg("--install", agent, path=commands)
        self.assert_log_can_be_written_by_all()
        self.root.dpkg("--purge", "notice-agent", path=commands)
        self.assertEqual(self.root.files(), before)

    def assert_log_can_be_written_by_all(self):
        status = (self.root / LOG).stat()
        self.assertEqual(stat.S_IMODE(status.st_mode), 0o662)
        self.assertEqual((status.st_uid, status.st_gid), (0, 4))
        for name in ("private", "private/var", "private/var/log", LOG_FOLDER):
            self.assertEqual(stat.S_IMODE((self.root / name).stat().st_mode), 0o755, name)

    def show_five_notices(self):
        samples = self.root / "usr/share/doc/notice-agent/Tools/samples"
        notices = Notices()
        self.addCleanup(notices.end)
        for arguments, text, header in (
                (("--casb", samples / "casb.xml"), "Example Drive", HEADER),
                (("--re-authenticate",), "sign in", HEADER),
                (("--auto-disconnect", "Eight hours are over."), "Eight hours are over.", HEADER),
                (("--concurrent-session", samples / "concurrent-session.xml"), "You signed in on another computer", ACCENT),
                (("--maintenance", "Back at 18:00."), "Back at 18:00.", HEADER)):
            with self.subTest(arguments[0]):
                # By the package's name: the command finds the bundle that was installed with it.
                notices.show(self.root / "usr/bin/post-notice", "--start", "notice-agent", *arguments)
                self.assertEqual(notices.executable(), str(self.root / INSTALLED_BUNDLE / "Contents/Linux/NoticeAgent"))
                notices.wait_pixel(436, 58, header)
                notices.wait_text(text)
                notices.end()


@unittest.skipUnless(os.geteuid() == 0, "only root can run agents of several users")
class SharedLogTest(unittest.TestCase):
    """The log as the package makes it, on this system, in a folder of this test's own."""

    def test_agents_of_two_users_write_one_log_that_neither_can_read(self):
        name = f"nt-shared-{os.getpid()}"
        log = Path(f"/private/var/log/{name}/{name}_Tevanic.log")
        self.addCleanup(shutil.rmtree, log.parent, ignore_errors=True)
        log.parent.mkdir(parents=True, mode=0o755)
        log.touch()
        log.chmod(0o662)

        place = Path(tempfile.mkdtemp(prefix="notice-shared-"))
        self.addCleanup(shutil.rmtree, place, ignore_errors=True)
        place.chmod(0o755)
        run("dpkg-deb", "-x", agent, place)
        settings = place / INSTALLED_BUNDLE / "Contents/Resources/Application_Shared.plist"
        settings.write_text(settings.read_text().replace("<string>zelvik</string>", f"<string>{name}</string>"))

        def launch(user):
            # Without a display: the launch is logged before the agent ends for want of one.
            program = place / INSTALLED_BUNDLE / "Contents/Linux/NoticeAgent"
            subprocess.run(["setpriv", f"--reuid={user}", f"--regid={user}", "--clear-groups", program], check=False,
                           env={"PATH": SYSTEM_PATH}, cwd="/", stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                           stderr=subprocess.DEVNULL, timeout=60)
            return log.read_text().count("Initiating a Timer to Terminate")

        self.assertEqual(launch(64001), 1)
        self.assertEqual(launch(64002), 2)
        for user in (64001, 64002):
            run("setpriv", f"--reuid={user}", f"--regid={user}", "--clear-groups", "cat", log, status=1)

        # A full one is begun anew by whoever meets it, with the same rights.
        with log.open("a") as file:
            file.write("x" * 1024 * 1024 + "\n")
        self.assertEqual(launch(64001), 1)
        self.assertLess(log.stat().st_size, 10000)
        self.assertEqual(stat.S_IMODE(log.stat().st_mode), 0o662)
        self.assertEqual([path.name for path in log.parent.iterdir()], [log.name])


if __name__ == "__main__":
    skip_unless_packages_can_be_made()
    unittest.main(verbosity=2)
