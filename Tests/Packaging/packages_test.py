#!/usr/bin/python3
"""The packages that cpack makes: what is in them, what lintian says, and a whole life of one, from the installation
into a clean folder over a notice to the purge."""

import os
import re
import shutil
import stat
import subprocess
import tempfile
import unittest
from pathlib import Path

from packaging import (BUILD, EPOCH, INSTALLED_BUNDLE, ROOT, SYSTEM_PATH, InstallRoot, end_agent, field, make_packages,
                       only, path_without_systemd, run, show_notice, skip_unless_packages_can_be_made)

LOG_FOLDER = "private/var/log/zelvik"
LOG = f"{LOG_FOLDER}/zelvik_Tevanic.log"
SAMPLE_BRAND = ROOT / "Packaging/brand/sample"
BUS_NAME = "com.tevanic.NoticeAgent.zelvik"
HEADER = (30, 34, 52)


def setUpModule():
    global folder, packages, agent, command, kit, documents, library, development, symbols
    folder = Path(tempfile.mkdtemp(prefix="notice-packages-"))
    unittest.addModuleCleanup(shutil.rmtree, folder, ignore_errors=True)
    packages = folder / "first"
    packages.mkdir()
    make_packages(packages)
    agent, command, kit, documents, library, development = (
        only(packages.glob(f"{name}_*.deb")) for name in (
            "notice-agent", "post-notice", "notice-agent-brand-kit", "notice-agent-doc", "libnoticeclient1",
            "libnoticeclient-dev"))
    symbols = sorted(packages.glob("*.ddeb"))


class ContentTest(unittest.TestCase):

    @classmethod
    def setUpClass(cls):
        cls.tree = folder / "tree"
        cls.symbols = folder / "symbols"
        for package in (agent, kit, documents, library, development):
            run("dpkg-deb", "-x", package, cls.tree)
        for package in symbols:
            run("dpkg-deb", "-x", package, cls.symbols)

    def programs(self):
        bundle = self.tree / INSTALLED_BUNDLE / "Contents"
        return [bundle / "Linux/NoticeAgent", bundle / "Frameworks/libServiceTier.so",
                self.tree / "usr/bin/post-notice", self.tree / "usr/bin/gallery",
                self.tree / "usr/lib/libNoticeClient.so.1"]

    def test_commands_have_manual_pages(self):
        commands = sorted(path.name for path in (self.tree / "usr/bin").iterdir())
        self.assertEqual(commands, ["brand-notices", "gallery", "post-notice"])
        manuals = sorted(str(path.relative_to(self.tree)) for path in self.tree.glob("usr/share/man/*/*"))
        self.assertEqual([re.sub("usr/share/man/man./(.*).gz", r"\1", manual) for manual in manuals],
                         [*(f"{command}.1" for command in commands), "NoticeClient.3", "notice-agent.5",
                          "notice-agent.8"])
        for manual in manuals:
            with self.subTest(manual):
                said = run("man", "--warnings", "-l", self.tree / manual,
                           env=dict(os.environ, LC_ALL="C.UTF-8", MANWIDTH="80", MANROFFSEQ=""))
                self.assertNotRegex(said, r"\d: warning")

    def test_every_desktop_gets_what_the_agent_needs_and_no_more(self):
        names = [line.split()[5] for line in run("dpkg-deb", "-c", agent).splitlines()]
        names = [re.sub(r"[^/]+\.lproj", "CODE.lproj", name) for name in names if not name.endswith("/")]
        bundle = f"./{INSTALLED_BUNDLE}/Contents"
        self.assertEqual(sorted(set(names)), sorted([
            "./usr/bin/post-notice", f"{bundle}/Info.plist", f"{bundle}/Linux/NoticeAgent",
            f"{bundle}/Frameworks/libServiceTier.so",
            *(f"{bundle}/Resources/{name}" for name in (
                "Application_Shared.plist", "NoticeAgent.svg", "CODE.lproj/Localizable.strings", "CODE.lproj/Main.strings",
                "ic_zelvikLogo.png", "ic_zelvikLogo.svg", "ic_zelvikLogo@2x.png")),
            "./usr/lib/tmpfiles.d/notice-agent.conf", f"./usr/share/applications/{BUS_NAME}.desktop",
            "./usr/share/bash-completion/completions/post-notice", f"./usr/share/dbus-1/services/{BUS_NAME}.service",
            "./usr/share/doc/notice-agent/changelog.gz", "./usr/share/doc/notice-agent/copyright",
            f"./usr/share/icons/hicolor/scalable/apps/{BUS_NAME}.svg", "./usr/share/lintian/overrides/notice-agent",
            "./usr/share/man/man1/post-notice.1.gz", "./usr/share/man/man5/notice-agent.5.gz",
            "./usr/share/man/man8/notice-agent.8.gz", f"./usr/share/metainfo/{BUS_NAME}.metainfo.xml"]))

    def test_command_alone_is_the_agent_s(self):
        alone = folder / "command"
        run("dpkg-deb", "-x", command, alone)
        self.assertEqual(run(alone / "usr/bin/post-notice", "--version"),
                         f"post-notice {field(command, 'Version')}\n")
        self.assertTrue((alone / "usr/share/man/man1/post-notice.1.gz").is_file())
        self.assertEqual([field(agent, name) for name in ("Provides", "Conflicts", "Replaces")],
                         [f"post-notice (= {field(command, 'Version')})", "post-notice", "post-notice"])

    def test_version_is_the_same_everywhere(self):
        version = field(agent, "Version")
        self.assertEqual(run(self.tree / "usr/bin/brand-notices", "--version"), f"brand-notices {version}\n")
        self.assertTrue(run("zcat", self.tree / "usr/share/doc/notice-agent/changelog.gz").startswith(
            f"notice-agent ({version}) "))
        self.assertIn(f"\n## [{version}] - ", (ROOT / "CHANGELOG.md").read_text(encoding="utf-8"))

    def test_desktop_and_metadata_are_valid(self):
        self.assertIn("NoDisplay=true", (self.tree / f"usr/share/applications/{BUS_NAME}.desktop").read_text())
        run("appstreamcli", "validate-tree", "--no-net", self.tree)

    def test_completion_offers_the_options_of_the_help(self):
        script = self.tree / "usr/share/bash-completion/completions/post-notice"
        said = run("bash", "-c", f'source "{script}"; _post_notice "$0" --ma; echo "${{COMPREPLY[@]}}"',
                   self.tree / "usr/bin/post-notice")
        self.assertEqual(said, "--maintenance\n")

    def test_links_between_the_documents_hold(self):
        root = self.tree / "usr/share/doc/notice-agent"
        for document in sorted(root.rglob("*.md")):
            for link in re.findall(r"\]\((?!\w+:|#)([^)#]+)", document.read_text(encoding="utf-8")):
                with self.subTest(document=document.name, link=link):
                    self.assertTrue((document.parent / link).exists())

    def test_depends_on_what_it_links_and_on_what_it_loads(self):
        for package in ("libdbus-1-3", "libqt6widgets6", "libcurl", "libqt6svg6"):  # the last one is linked by nothing
            self.assertIn(package, field(agent, "Depends"))

    def test_symbols_stand_in_a_package_of_their_own(self):
        self.assertIn(f"notice-agent (= {field(agent, 'Version')})",
                      field(only(packages.glob("notice-agent-dbgsym_*.ddeb")), "Depends"))
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
        # The agent's alone, and without compression: that is where the time goes.
        make_packages(again, "-D", "CPACK_COMPONENTS_ALL=agent", "-D", "CPACK_DEBIAN_COMPRESSION_TYPE=none")
        made = sorted(again.glob("*.d*eb"))
        self.assertEqual(len(made), 2, "the agent's package and its symbols")
        for package in made:
            for part in ("--ctrl-tarfile", "--fsys-tarfile"):
                first, second = (subprocess.run(["dpkg-deb", part, path], stdout=subprocess.PIPE, check=True).stdout
                                 for path in (packages / package.name, package))
                self.assertTrue(first and first == second, f"{package.name} {part}")

    def assert_lintian_has_nothing_to_say(self, *debs):
        lintian = shutil.which("lintian", path=SYSTEM_PATH)
        if not lintian:
            self.skipTest("lintian is not installed (Scripts/packages.txt)")
        self.assertNotRegex(run(lintian, "--allow-root", "--fail-on", "error,warning", *debs), r"(?m)^[EW]: ")

    def test_lintian_has_nothing_to_say(self):
        named_debs = [folder / f"{package.stem}.deb" for package in sorted(packages.glob("*.ddeb"))]
        for deb in named_debs:  # the only suffix that lintian reads
            deb.symlink_to(packages / f"{deb.stem}.ddeb")
        self.assertEqual(len(named_debs), 3)
        self.assert_lintian_has_nothing_to_say(*sorted(packages.glob("*.deb")), *named_debs)

    def test_library_for_clients_has_a_package_to_run_and_one_to_build(self):
        names = run("dpkg-deb", "-c", development)
        for name in ("include/NoticeClient/NoticeClient.h", "libNoticeClient.a", "pkgconfig/NoticeClient.pc",
                     "cmake/NoticeClient/NoticeClientConfig.cmake"):
            self.assertIn(f"/{name}\n", names)
        self.assertRegex(names, r"libNoticeClient\.so -> libNoticeClient\.so\.1\n")
        self.assertRegex(run("dpkg-deb", "-c", library), r"libNoticeClient\.so\.1 -> ")
        control = folder / "library"
        run("dpkg-deb", "-e", library, control)
        self.assertEqual(sorted(path.name for path in control.iterdir()), ["control", "md5sums", "shlibs", "triggers"])
        self.assertEqual(field(development, "Depends").split(", ")[:2],
                         [f"libnoticeclient1 (= {field(library, 'Version')})", "libdbus-1-dev"])

    @unittest.skipUnless(os.geteuid() == 0, "an ordinary user's umask counts")
    def test_folders_are_open_whatever_the_umask(self):
        place = folder / "prefix"
        run("sh", "-c", 'umask 077; for component in agent kit documents Library Development; do '
            'cmake --install "$0" --prefix "$1" --component $component; done', BUILD, place / "deep/usr")
        for path in (place / "deep").rglob("*"):
            if not path.is_symlink():
                self.assertEqual(path.stat().st_mode & 0o044, 0o044, path)
                self.assertTrue(path.is_file() or path.stat().st_mode & 0o011 == 0o011, path)

    def test_package_of_a_brand(self):
        package, again = folder / "lumora.deb", folder / "again.deb"
        for path in (package, again):
            run(self.tree / "usr/bin/brand-notices", "--agent", agent, "--package", path, SAMPLE_BRAND,
                env=dict(os.environ, PATH=SYSTEM_PATH, SOURCE_DATE_EPOCH=EPOCH))
        self.assertEqual(package.read_bytes(), again.read_bytes(), "the same input gives the same package")
        self.assertEqual(field(package, "Package"), "lumora-notice-agent")
        for name in ("Version", "Depends", "Architecture"):
            self.assertEqual(field(package, name), field(agent, name))
        tree = folder / "lumora"
        run("dpkg-deb", "-R", package, tree)
        name = "com.tevanic.NoticeAgent.lumora"
        self.assertEqual((tree / f"usr/share/dbus-1/services/{name}.service").read_text(),
                         f"[D-BUS Service]\nName={name}\n"
                         "Exec=/usr/lib/lumora-notice-agent/NoticeAgent.app/Contents/Linux/NoticeAgent\n")
        for path in ("lib/tmpfiles.d/lumora-notice-agent.conf", f"share/applications/{name}.desktop"):
            self.assertTrue((tree / "usr" / path).is_file(), path)
        for script in ("postinst", "postrm"):
            text = (tree / "DEBIAN" / script).read_text()
            self.assertIn("/private/var/log/lumora\n", text)
            self.assertNotRegex(text, "@|zelvik")
        self.assert_lintian_has_nothing_to_say(package)

    def test_the_unpacked_gallery_draws_the_unpacked_bundle(self):
        pictures = folder / "pictures"
        run(self.tree / "usr/bin/gallery", "--only", "languages/de-casb", self.tree / INSTALLED_BUNDLE, pictures,
            env=dict(os.environ, LC_ALL="C.UTF-8"))
        self.assertTrue((pictures / "languages/de-casb.png").is_file())


class PortableTest(unittest.TestCase):

    def test_it_takes_nothing_but_glibc_from_the_system(self):
        bundle = folder / "portable"
        run(ROOT / "Packaging/make-portable", BUILD, bundle)
        contents = bundle / "NoticeAgent.app/Contents"
        programs = [contents / "Linux/NoticeAgent", contents / "Linux/post-notice",
                    contents / "Frameworks/libServiceTier.so", *contents.glob("PlugIns/*/*.so")]
        self.assertGreater(len(programs), 4)
        for program in programs:
            for name, path in re.findall(r"(\S+) => (.+?)(?: \(|$)", run("ldd", program)):
                if not re.match(r"lib(c|m|dl|rt|pthread|resolv)\.so", name):
                    self.assertTrue(Path(path).resolve().is_relative_to(bundle.resolve()), f"{program}: {name}: {path}")
        self.assertTrue(only((bundle / "licences").glob("libqt6core6*")).is_file())

        notice = show_notice(self, contents / "Linux/post-notice", "--start", bundle / "NoticeAgent.app",
                             "--maintenance", "Back.")
        loaded = {line.split()[-1] for line in Path(f"/proc/{notice.process_id}/maps").read_text().splitlines()}
        outside = [path for path in loaded if "/libQt6" in path and not path.startswith(str(bundle))]
        self.assertEqual(outside, [])


@unittest.skipUnless(shutil.which("rpmbuild"), "rpmbuild is missing (package rpm)")
@unittest.skipUnless(os.geteuid() == 0, "rpm installs as root only")
class RpmTest(unittest.TestCase):
    """As far as it goes on a Debian system: made, installed into a root of its own, and taken away again."""

    # What signing, another tool than cpack or a build on a system that uses RPM gives; locales that rpmlint guesses
    # from a name; the scripts that become those of a brand's package; the licence, which stands beside a library.
    UNAVOIDABLE = {"no-signature", "no-packager-tag", "no-dependency-on", "missing-hash-section",
                   "shared-library-not-executable", "static-library-without-debuginfo", "non-executable-script",
                   "outside-libdir-files"}

    def test_packages_hold_what_the_debian_ones_do(self):
        place = folder / "rpm"
        place.mkdir()
        run("cpack", "--config", BUILD / "CPackConfig.cmake", "-G", "RPM", "-B", place, cwd=place)
        made = sorted(place.glob("*.rpm"))
        self.assertEqual(len(made), 6)
        for name, debian in (("notice-agent", agent), ("libnoticeclient1", library), ("post-notice", command)):
            rpm = only(place.glob(f"{name}-1*.rpm"))
            files = {f".{line}" for line in run("rpm", "-qp", "--list", rpm).splitlines() if line.startswith("/usr")}
            there = {line.split()[5] for line in run("dpkg-deb", "-c", debian).splitlines() if line[0] != "d"}
            ignored = re.compile(r"/(lintian/overrides|doc|licenses)/")
            self.assertEqual({line for line in there if not ignored.search(line)} - files, set())
        root = folder / "rpm-root"
        root.mkdir()
        wanted = [path for path in made if not path.name.startswith("post-notice")]
        run("rpm", "--root", root, "--nodeps", "--noscripts", "--install", *wanted)
        self.assertTrue((root / INSTALLED_BUNDLE / "Contents/Linux/NoticeAgent").is_file())
        run("rpm", "--root", root, "--noscripts", "--erase", "notice-agent", "notice-agent-brand-kit",
            "notice-agent-doc", "libnoticeclient1", "libnoticeclient-devel")
        self.assertEqual([path for path in (root / "usr").rglob("*") if not path.is_dir()], [])
        if shutil.which("rpmlint"):
            said = run("rpmlint", *made, status=None)
            self.assertLessEqual(set(re.findall(r": E: (\S+)", said)), self.UNAVOIDABLE, said)


@unittest.skipUnless(os.geteuid() == 0, "dpkg installs as root only")
class LifeTest(unittest.TestCase):

    @classmethod
    def setUpClass(cls):
        cls.path_without_systemd = path_without_systemd(folder)

    def setUp(self):
        self.root = InstallRoot()
        self.addCleanup(self.root.remove)

    def show_a_notice(self, bundle, header):
        notice = show_notice(self, self.root / "usr/bin/post-notice", "--start", self.root / bundle,
                             "--casb", ROOT / "Tools/samples/casb.xml")
        self.assertEqual(os.readlink(f"/proc/{notice.process_id}/exe"),
                         str(self.root / bundle / "Contents/Linux/NoticeAgent"))
        notice.wait_pixel(436, 58, header, "header")
        notice.wait_text("Example Drive")
        end_agent(notice)

    def test_installed_used_removed_and_purged(self):
        before = self.root.files()
        self.root.dpkg("--install", agent, documents)
        self.assertTrue((self.root / INSTALLED_BUNDLE).is_dir())
        self.assert_log_can_be_written_by_all()
        self.show_a_notice(INSTALLED_BUNDLE, HEADER)
        installed = self.root.files()

        self.root.dpkg("--install", agent, documents)  # the same again, as an upgrade does it
        self.assertEqual(self.root.files(), installed)

        self.root.dpkg("--remove", "notice-agent", "notice-agent-doc")
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
        self.root.dpkg("--install", package)

        self.show_a_notice("usr/lib/lumora-notice-agent/NoticeAgent.app", (0x0B, 0x5D, 0x51))

        # Whichever goes last takes the folders that they share.
        self.root.dpkg("--purge", "notice-agent-brand-kit", "notice-agent")
        self.assertEqual(sorted(path.name for path in (self.root / "private/var/log").iterdir()), ["lumora"])
        self.root.dpkg("--purge", "lumora-notice-agent")
        self.assertEqual(self.root.files(), before)

    def test_without_systemd(self):
        before = self.root.files()
        self.root.dpkg("--install", agent, path=self.path_without_systemd)
        self.assert_log_can_be_written_by_all()
        self.root.dpkg("--purge", "notice-agent", path=self.path_without_systemd)
        self.assertEqual(self.root.files(), before)

    def test_a_site_s_empty_rule_means_no_log(self):
        rules = self.root / "etc/tmpfiles.d"
        rules.mkdir(parents=True)
        rule = rules / "notice-agent.conf"
        for commands in (SYSTEM_PATH, self.path_without_systemd):
            for make in (rule.touch, lambda: rule.symlink_to("/dev/null")):
                make()
                self.root.dpkg("--install", agent, path=commands)
                self.assertFalse((self.root / "private").exists())
                self.root.dpkg("--purge", "notice-agent", path=commands)
                rule.unlink()

    def test_no_link_is_followed(self):
        elsewhere = self.root / "elsewhere"
        elsewhere.mkdir()
        (self.root / "private/var/log").mkdir(parents=True)
        (self.root / LOG_FOLDER).symlink_to(elsewhere)
        for commands in (SYSTEM_PATH, self.path_without_systemd):
            self.root.dpkg("--install", agent, path=commands)
            self.assertEqual(list(elsewhere.iterdir()), [])
            (elsewhere / "zelvik_Tevanic.log").touch()
            self.root.dpkg("--purge", "notice-agent", path=commands)
            (elsewhere / "zelvik_Tevanic.log").unlink()

    def test_a_log_that_another_package_writes_outlives_a_purge(self):
        before = self.root.files()
        self.root.dpkg("--install", agent)
        # What a second package with the same LogFolderName leaves there.
        other = self.root / "var/lib/notice-agent/other-notice-agent.folders"
        shutil.copy(other.with_name("notice-agent.folders"), other)
        self.root.dpkg("--purge", "notice-agent")
        self.assertTrue((self.root / LOG).is_file())
        self.root.dpkg("--install", agent)
        other.unlink()
        self.root.dpkg("--purge", "notice-agent")
        self.assertEqual(self.root.files(), before)

    def assert_log_can_be_written_by_all(self):
        status = (self.root / LOG).stat()
        self.assertEqual(stat.S_IMODE(status.st_mode), 0o662)
        self.assertEqual((status.st_uid, status.st_gid), (0, 4))
        for name in ("private", "private/var", "private/var/log", LOG_FOLDER):
            self.assertEqual(stat.S_IMODE((self.root / name).stat().st_mode), 0o755, name)


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

        folder.chmod(0o755)
        place = folder / "shared"
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
