"""What the tests of the packages share: the packages of the build, a root to install them into, a desktop."""

import os
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "Tests" / "Acceptance"))

from desktop import AGENT_NAME, shared_desktop, wait_until  # noqa: E402

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


class Files:
    """Every file below a folder with kind and rights, to be compared with another time."""

    def __init__(self, folder, but=()):
        self.entries = {}
        for path in sorted(Path(folder).rglob("*")):
            name = str(path.relative_to(folder))
            if not name.startswith(tuple(but)):
                status = path.lstat()
                self.entries[name] = (oct(status.st_mode), status.st_uid, status.st_gid)


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
        # dpkg's own books are not compared.
        return Files(self.path, but=["var/lib/dpkg"]).entries

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


class Notices:
    """Posts to the agent of a bundle on a private desktop, and looks at what it shows."""

    def __init__(self):
        self.desktop = shared_desktop("openbox", True, False)
        self.screen = self.desktop.screen
        self.process = None

    def show(self, post_notice, *arguments):
        """Runs post-notice with these arguments; returns when the agent that it started shows a notice."""
        run(post_notice, *arguments, env=dict(self.desktop.environment))
        self.attach()

    def attach(self):
        """Goes on with the agent that owns the name, once it shows a notice."""
        self.process = wait_until(lambda: self.desktop.bus.process_of(AGENT_NAME), "the agent owns its name")
        wait_until(self.window, "the notice's window is on the screen")

    def executable(self):
        return os.readlink(f"/proc/{self.process}/exe")

    def window(self):
        return next((window for window in self.screen.windows_of(self.process) if self.screen.viewable(window)), None)

    def pixel(self, x, y):
        left, top, _width, _height = self.screen.geometry(self.window())
        return self.screen.pixel(left + x, top + y)

    def wait_text(self, text):
        def shown():
            return any(element.shown and text in element.text
                       for element in self.desktop.accessibility.elements(self.process))
        wait_until(shown, f"the text {text!r} is shown", interval=0.05)

    def wait_pixel(self, x, y, color):
        wait_until(lambda: self.pixel(x, y) == color, f"pixel {x}, {y} has the colour {color}", interval=0.05)

    def end(self):
        """Ends the agent as a session's end does, and waits until its name is free."""
        if self.process:
            os.kill(self.process, 15)
            wait_until(lambda: self.desktop.bus.process_of(AGENT_NAME) is None, "the agent gave its name back")
            self.process = None
