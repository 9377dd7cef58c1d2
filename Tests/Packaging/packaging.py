"""What the tests of the packages share: the packages of the build, a root to install them into, a desktop."""

import contextlib
import os
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "Tests" / "Acceptance"))

from desktop import AGENT_NAME, shared_desktop, wait_until  # noqa: E402
from harness import Notice  # noqa: E402

BUILD = Path(os.environ.get("NOTICE_BUILD", ROOT / "build" / "release"))
BUILD_TYPE = os.environ.get("NOTICE_BUILD_TYPE", "Release")
EPOCH = "1795262400"
INSTALLED_BUNDLE = "usr/lib/notice-agent/NoticeAgent.app"

# What a package's scripts find in their path besides: dpkg wants to see these, and runs none of them here.
SYSTEM_PATH = "/usr/local/sbin:/usr/sbin:/sbin:/usr/local/bin:/usr/bin:/bin"


def skip_all(reason):
    print(f"skipped: {reason}")
    sys.exit(77)


def skip_unless_packages_can_be_made():
    if BUILD_TYPE != "Release":
        skip_all(f"packages are made of the build type Release; this one is {BUILD_TYPE}")
    missing = [tool for tool in ("cpack", "dpkg", "dpkg-deb", "dpkg-shlibdeps", "file", "objcopy")
               if not shutil.which(tool, path=SYSTEM_PATH)]
    if missing:
        skip_all(f"the packages cannot be made without {', '.join(missing)} (Scripts/packages.txt)")


def run(*command, status=0, **options):
    """Runs a command, which must end with this status (None: any); returns what it said."""
    options.setdefault("env", dict(os.environ, PATH=SYSTEM_PATH, LC_ALL="C.UTF-8"))
    done = subprocess.run([str(word) for word in command], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, check=False, **options)
    if status is not None and done.returncode != status:
        raise AssertionError(f"{' '.join(map(str, command))} ended with {done.returncode}, not {status}:\n{done.stdout}")
    return done.stdout


def make_packages(folder, *options):
    """Has cpack make the packages of the build into the folder."""
    run("cpack", "--config", BUILD / "CPackConfig.cmake", "-B", folder, *options,
        env=dict(os.environ, PATH=SYSTEM_PATH, SOURCE_DATE_EPOCH=EPOCH), cwd=folder)


def only(paths):
    paths = list(paths)
    if len(paths) != 1:
        raise AssertionError(f"one file is due: {paths}")
    return paths[0]


def field(package, name):
    return run("dpkg-deb", "--field", package, name).strip()


class InstallRoot:
    """A folder that dpkg installs into as if it were a system; the packages' own scripts run, with DPKG_ROOT."""

    def __init__(self):
        self.path = Path(tempfile.mkdtemp(prefix="notice-root-"))
        self.path.chmod(0o755)
        for name in ("var/lib/dpkg/updates", "var/lib/dpkg/info", "etc"):
            (self.path / name).mkdir(parents=True)
        for name in ("status", "available"):
            (self.path / "var/lib/dpkg" / name).touch()
        # Users and groups that a package's scripts may name.
        for name in ("passwd", "group"):
            shutil.copy(f"/etc/{name}", self.path / "etc" / name)

    def remove(self):
        shutil.rmtree(self.path, ignore_errors=True)

    def dpkg(self, *arguments, path=SYSTEM_PATH):
        # What the packages depend on is not in the folder but on this system. Small systems are told to leave
        # documents out.
        return run("dpkg", f"--root={self.path}", "--force-script-chrootless", "--force-depends", "--force-bad-path",
                   "--path-include=/*", *arguments, env=dict(os.environ, PATH=path, LC_ALL="C.UTF-8"))

    def files(self):
        """Every file with kind and rights, to be compared with another time; dpkg's own books are not."""
        found = {}
        for path in sorted(self.path.rglob("*")):
            name = str(path.relative_to(self.path))
            if not name.startswith("var/lib/dpkg"):
                status = path.lstat()
                found[name] = (oct(status.st_mode), status.st_uid, status.st_gid)
        return found

    def __truediv__(self, name):
        return self.path / name


def path_without_systemd(folder):
    """A folder with every command of the system but systemd's, to be the PATH of a system without it."""
    commands = Path(folder) / "commands"
    commands.mkdir()
    for directory in ("/usr/sbin", "/usr/bin", "/sbin", "/bin"):
        for command in os.listdir(directory):
            link = commands / command
            if not command.startswith("systemd") and not link.is_symlink():
                link.symlink_to(os.path.join(directory, command))
    return str(commands)


def show_notice(test, post_notice, *arguments):
    """Runs post-notice with these arguments; returns the notice that the agent shows. The agent ends with the test."""
    desktop = shared_desktop()
    run(post_notice, *arguments, env=dict(desktop.environment))
    notice = Notice(desktop, wait_until(lambda: desktop.bus.process_of(AGENT_NAME), "the agent owns its name"))
    test.addCleanup(end_agent, notice)
    notice.wait_visible()
    return notice


def end_agent(notice):
    """Ends it as a session's end does, and waits until its name is free."""
    with contextlib.suppress(ProcessLookupError):
        os.kill(notice.process_id, 15)
    wait_until(lambda: notice.desktop.bus.process_of(AGENT_NAME) is None, "the agent gave its name back")
