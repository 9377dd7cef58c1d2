#!/usr/bin/python3
"""Runs every benchmark, prints the table and writes the single figures as JSON.

Started by Scripts/bench, which makes the bus and the screen. A figure is the median of all
runs; the runs of the agent and of its peers take turns, so that whatever else the machine
does meanwhile is the same for all. The first turn, which fills the system's caches, does
not count.
"""

import argparse
import datetime
import itertools
import json
import math
import os
import platform
import plistlib
import re
import shutil
import subprocess
import sys
import time
from pathlib import Path
from statistics import median

NAME = "com.tevanic.NoticeAgent"
TEXT = "The file was not sent. Ask your administrator if you need access."
PEERS = {
    "yad": ["yad", "--title=Notice", f"--text={TEXT}", "--button=OK"],
    "kdialog": ["kdialog", "--title", "Notice", "--msgbox", TEXT],
    "zenity": ["zenity", "--info", "--title=Notice", f"--text={TEXT}"],
}
NOTICE_HEADER = "10,58,1E2234"
NOTICE_BODY = "10,110,FFFFFF"
NOTIFICATION_GROUND = "4,4,2A292F"
LATER_MESSAGES = 4
COUNTDOWN_SECONDS = 30
# A second's tick may fall just inside or outside of the time that is watched.
WAKE_UPS_A_SECOND = 1.05
FLAT = 1.02
LINEAR_EXPONENT = 1.1


def load():
    return Path("/proc/loadavg").read_text().split()[:3]


def say(text):
    print(text, file=sys.stderr, flush=True)


class Row:
    """One line of the table: a figure of ours, what it is held against, and the most it may be."""

    def __init__(self, figure, unit, ours, peer=None, theirs=None, target=None, note=""):
        self.figure, self.unit, self.ours, self.note = figure, unit, list(ours), note
        self.peer, self.theirs, self.target = peer, list(theirs or []), target

    @property
    def ratio(self):
        return median(self.ours) / median(self.theirs) if self.theirs else None

    @property
    def value(self):
        return self.ratio if self.theirs else median(self.ours)

    @property
    def met(self):
        return self.value <= self.target

    def cells(self):
        def spread(values):
            if not values:
                return ""
            if len(values) == 1:
                return f"{values[0]:.4g} {self.unit}"
            return f"{median(values):.4g} ({min(values):.4g} to {max(values):.4g}) {self.unit}"

        factor = "x" if self.theirs else f" {self.unit}"
        return [self.figure, spread(self.ours), self.peer or "",
                spread(self.theirs), f"{self.ratio:.2f}x" if self.theirs else "",
                f"{self.target:g}{factor}".rstrip(), "met" if self.met else "NOT MET"]

    def record(self):
        return {"figure": self.figure, "unit": self.unit, "ours": self.ours, "peer": self.peer,
                "theirs": self.theirs, "ratio": self.ratio, "target": self.target, "met": self.met,
                "note": self.note}


class Bench:
    def __init__(self, arguments):
        self.build = Path(arguments.build)
        self.scratch = Path(arguments.scratch)
        self.runs = arguments.runs
        self.messages = arguments.messages
        self.tools = self.build / "Benchmarks"
        self.bundle = self.build / "NoticeAgent.app"
        self.agent = [str(self.bundle / "Contents/Linux/NoticeAgent")]
        self.bare = [str(self.tools / "BareWindow")]
        self.dunst = ["dunst", "-conf", str(Path(__file__).parent / "dunstrc")]
        self.rows = []
        self.skipped = []

    # --- what runs --------------------------------------------------------------------------------

    def has(self, program):
        if shutil.which(program):
            return True
        word = f"{program} is not installed and cannot be; what is held against it is left out"
        if word not in self.skipped:
            self.skipped.append(word)
        return False

    def observe(self, options, command):
        done = subprocess.run([str(self.tools / "Observer"), *options, "--", *command],
                              capture_output=True, text=True, check=False)
        if done.returncode != 0:
            sys.exit(f"measure.py: {' '.join(command[:1])}: {done.stderr.strip()}")
        return json.loads(done.stdout)

    def take_turns(self, title, takers):
        """Each taker returns its figures; gives {taker: {figure: [values]}}."""
        collected = {name: {} for name in takers}
        for turn in range(self.runs + 1):
            say(f"{title}: {turn} of {self.runs}" if turn else f"{title}: once to begin with")
            for name, take in takers.items():
                figures = take()
                if turn == 0:
                    continue
                for figure, value in figures.items():
                    collected[name].setdefault(figure, []).append(value)
        return collected

    # --- the groups -------------------------------------------------------------------------------

    def start(self):
        takers = {
            "listening": lambda: self.observe(["--name", NAME], self.agent),
            "noticed": lambda: self.observe(["--name", NAME, "--post-at-name", "notice", "--window"], self.agent),
            "a bare Qt window": lambda: self.observe(["--window"], self.bare),
        }
        for peer, command in PEERS.items():
            if self.has(peer):
                takers[peer] = lambda command=command: self.observe(["--window"], command)
        seen = self.take_turns("start", takers)
        listening = seen["listening"]["exec_to_name"]
        noticed = seen["noticed"]["exec_to_mapped"]
        for figure, ours, targets in [
            ("exec to observer registered", listening,
             {"a bare Qt window": 1.15, "yad": 0.65, "kdialog": 0.35, "zenity": 0.3}),
            ("exec to first notice mapped", noticed, {"a bare Qt window": 1.5, "kdialog": 0.5, "zenity": 0.45}),
        ]:
            for peer, target in targets.items():
                if peer in seen:
                    self.rows.append(Row(figure, "ms", ours, peer, seen[peer]["exec_to_mapped"], target))

    def post(self):
        if not self.has("dunst"):
            return
        post = self.tools / "Post"

        def rounds(name, message, hide, pixels, command):
            options = ["--name", name, "--rounds", str(1 + LATER_MESSAGES), "--post", f"{post} {message}",
                       "--hide", f"{post} {hide}"]
            for pixel in pixels:
                options += ["--pixel", pixel]
            seen = self.observe(options, command)
            return {"first mapped": seen["mapped"][0], "later mapped": median(seen["mapped"][1:]),
                    "first pixel": seen["pixel"][0], "later pixel": median(seen["pixel"][1:])}

        seen = self.take_turns("post", {
            "ours": lambda: rounds(NAME, "notice", "hide", [NOTICE_HEADER, NOTICE_BODY], self.agent),
            "dunst": lambda: rounds("org.freedesktop.Notifications", "notification", "close-notifications",
                                    [NOTIFICATION_GROUND], self.dunst),
        })
        for figure, key, target in [
            ("post to notice mapped, first message", "first mapped", 0.8),
            ("post to notice mapped, later messages", "later mapped", 0.8),
            ("post to first correct pixel, first message", "first pixel", 1.0),
            ("post to first correct pixel, later messages", "later pixel", 1.0),
        ]:
            self.rows.append(Row(figure, "ms", seen["ours"][key], "dunst", seen["dunst"][key], target))

    def memory(self):
        seen = self.take_turns("memory", {
            "ours": lambda: self.observe(
                ["--name", NAME, "--post-at-name", "notice", "--window", "--pause", "1", "--memory"], self.agent),
            "bare": lambda: self.observe(["--window", "--pause", "1", "--memory"], self.bare),
        })
        mebibytes = {name: [kibibytes / 1024 for kibibytes in figures["pss"]] for name, figures in seen.items()}
        self.rows.append(Row("proportional memory, CASB notice shown", "MiB", mebibytes["ours"],
                             "a bare Qt window", mebibytes["bare"], 1.3))

    def countdown(self):
        """As many agents as there are runs, each on a bus of its own, a little apart."""
        say(f"countdown: {self.runs} agents for {COUNTDOWN_SECONDS} seconds")
        agents = []
        for _ in range(self.runs):
            agent = Agent(self, own_bus=True)
            agent.wait_for_name()
            time.sleep(0.3)
            agent.post("notice")
            agents.append(agent)
            time.sleep(0.05)
        time.sleep(1.5)
        for agent in agents:
            agent.began = agent.costs()
            time.sleep(0.01)
        time.sleep(COUNTDOWN_SECONDS - 0.01 * len(agents))
        milliseconds, wake_ups = [], []
        for agent in agents:
            costs = agent.costs()
            milliseconds.append((costs["nanoseconds"] - agent.began["nanoseconds"]) / 1e6)
            wake_ups.append((costs["wake-ups"] - agent.began["wake-ups"]) / (costs["time"] - agent.began["time"]))
            agent.end()
        self.rows.append(Row("processor time of a 30 s countdown", "ms", milliseconds, target=30))
        self.rows.append(Row("wake-ups while it runs, all threads", "a second", wake_ups,
                             target=WAKE_UPS_A_SECOND))
        agent = Agent(self, own_bus=True)
        agent.wait_for_name()
        time.sleep(2)
        began = agent.costs()
        time.sleep(10)
        idle = (agent.costs()["wake-ups"] - began["wake-ups"])
        agent.end()
        self.rows.append(Row("wake-ups of an idle agent in 10 s", "times", [idle], target=0))

    def flood(self):
        agent = Agent(self, own_bus=True, patient=True)
        agent.wait_for_name()
        first = min(1000, self.messages // 10)
        memory = []
        began = time.monotonic()
        with subprocess.Popen([str(self.tools / "Post"), "stream"], stdin=subprocess.PIPE, text=True,
                              env=agent.environment) as post:
            sent = 0
            for target in [first, *range(self.messages // 10, self.messages + 1, self.messages // 10)]:
                while sent < target:
                    count = min(500, target - sent)
                    post.stdin.write(f"{count}\n")
                    post.stdin.flush()
                    sent += count
                    agent.wait_for_notices(sent)
                time.sleep(0.5)
                memory.append((sent, agent.memory()))
                say(f"messages: {sent} of {self.messages}, {memory[-1][1] / 1024:.1f} MiB")
            seconds = time.monotonic() - began
            post.stdin.close()
        lost = sent - agent.notices
        agent.end()
        series = ", ".join(f"{count}: {kibibytes / 1024:.2f}" for count, kibibytes in memory)
        self.rows.append(Row(f"resident memory after {sent} messages", "MiB", [memory[-1][1] / 1024],
                             f"after {first}", [memory[0][1] / 1024], FLAT, series))
        self.rows.append(Row(f"of {sent} messages lost", "messages", [lost], target=0,
                             note=f"{sent / seconds:.0f} a second"))

    def parser(self):
        micro = self.tools / "Micro"
        say("parser: Google Benchmark")
        environment = dict(os.environ, QT_QPA_PLATFORM="offscreen")
        done = subprocess.run(
            [str(micro), "--benchmark_format=json", f"--benchmark_repetitions={self.runs}",
             "--benchmark_enable_random_interleaving=true", "--benchmark_min_time=0.02"],
            capture_output=True, text=True, check=False, env=environment)
        if done.returncode != 0:
            sys.exit(f"measure.py: Micro: {done.stderr.strip()}")
        results = json.loads(done.stdout)["benchmarks"]
        times = {}
        for result in results:
            if result["run_type"] == "iteration":
                times.setdefault(result["run_name"], []).append(result["cpu_time"] / 1e3)
        self.micro = {name: median(values) for name, values in times.items()}
        sizes = sorted(int(name.split("/")[1]) for name in times if name.startswith("noticeParser/"))
        for size in sizes:
            self.rows.append(Row(f"notice parser, {size:,} bytes", "us", times[f"noticeParser/{size}"],
                                 "libxml2's tree", times[f"xmlLibraryAlone/{size}"], 1.0))
        for name, what in [("noticeParser", "the notice parser"), ("userInfo", "the user info's decoding")]:
            small, large = sizes[1], sizes[-1]
            growth = math.log(self.micro[f"{name}/{large}"] / self.micro[f"{name}/{small}"]) / math.log(large / small)
            self.rows.append(Row(f"growth of {what}, as a power of the size", "", [growth],
                                 target=LINEAR_EXPONENT))

    # --- the report -------------------------------------------------------------------------------

    def report(self, loads):
        processor = re.search(r"model name\s*: (.*)", Path("/proc/cpuinfo").read_text())
        machine = f"{os.cpu_count()} x {processor.group(1) if processor else platform.machine()}"
        print(f"\n{datetime.date.today()}, {machine}; median (least to most) of {self.runs} runs")
        print(f"load when it began: {' '.join(loads[0])}, when it ended: {' '.join(loads[1])}\n")
        table = [["figure", "ours", "peer", "the peer's", "ratio", "at most", ""]]
        table += [row.cells() for row in self.rows]
        widths = [max(len(cells[column]) for cells in table) for column in range(len(table[0]))]
        for number, cells in enumerate(table):
            print("  ".join(cell.ljust(width) for cell, width in zip(cells, widths)).rstrip())
            if number == 0:
                print("  ".join("-" * width for width in widths))
        for row in self.rows:
            if row.note:
                print(f"\n{row.figure}: {row.note}")
        others = {name: value for name, value in getattr(self, "micro", {}).items()
                  if not name.startswith(("noticeParser", "xmlLibraryAlone"))}
        if others:
            print("\nother parts, microseconds: "
                  + ", ".join(f"{name} {value:.3g}" for name, value in others.items()))
        for word in self.skipped:
            print(f"\n{word}")
        target = self.build / "results.json"
        target.write_text(json.dumps({
            "date": datetime.datetime.now().isoformat(timespec="seconds"), "machine": machine, "runs": self.runs,
            "load": loads, "skipped": self.skipped, "rows": [row.record() for row in self.rows],
            "micro": getattr(self, "micro", {})}, indent=1) + "\n")
        print(f"\n{target.relative_to(self.build.parent.parent)} has the single figures.")


class Agent:
    """An agent that is watched through /proc."""

    numbers = itertools.count()

    def __init__(self, bench, own_bus=False, patient=False):
        self.bench = bench
        self.environment = dict(os.environ)
        self.bus = None
        if own_bus:
            self.bus = subprocess.Popen(["dbus-daemon", "--session", "--nofork", "--nopidfile", "--print-address=1"],
                                        stdout=subprocess.PIPE, text=True)
            self.environment["DBUS_SESSION_BUS_ADDRESS"] = self.bus.stdout.readline().strip()
        command = self.patient_bundle() if patient else bench.agent
        printed = bench.scratch / f"agent-{next(Agent.numbers)}.out"
        with open(printed, "wb") as output:
            self.process = subprocess.Popen(command, env=self.environment, stdout=output, stderr=subprocess.DEVNULL)
        self.printed = open(printed, "rb")
        self.notices = 0

    def patient_bundle(self):
        """A copy of the bundle whose agent does not end itself meanwhile."""
        bundle = self.bench.scratch / "Patient.app"
        shutil.copytree(self.bench.bundle, bundle, dirs_exist_ok=True)
        information = bundle / "Contents/Info.plist"
        properties = plistlib.loads(information.read_bytes())
        properties["Default_App_Timeout"] = 24 * 60 * 60
        information.write_bytes(plistlib.dumps(properties))
        return [str(bundle / "Contents/Linux/NoticeAgent")]

    def wait_for_name(self):
        call = ["dbus-send", "--session", "--print-reply=literal", "--dest=org.freedesktop.DBus", "/",
                "org.freedesktop.DBus.NameHasOwner", f"string:{NAME}"]
        deadline = time.monotonic() + 20
        while "true" not in subprocess.run(call, env=self.environment, capture_output=True, text=True,
                                           check=False).stdout:
            if time.monotonic() > deadline:
                sys.exit("measure.py: the agent did not come up")
            time.sleep(0.02)

    def post(self, message):
        subprocess.run([str(self.bench.tools / "Post"), message], env=self.environment, check=True,
                       stdout=subprocess.DEVNULL)

    # For each CASB notice the agent prints the vendor's word on a line.
    def wait_for_notices(self, count):
        deadline = time.monotonic() + 60
        while self.notices < count and time.monotonic() < deadline and self.process.poll() is None:
            self.notices += self.printed.read().count(b"\n")
            if self.notices < count:
                time.sleep(0.01)

    def costs(self):
        nanoseconds = wake_ups = 0
        for task in Path(f"/proc/{self.process.pid}/task").iterdir():
            nanoseconds += int((task / "schedstat").read_text().split()[0])
            wake_ups += int(re.search(r"^voluntary_ctxt_switches:\s*(\d+)", (task / "status").read_text(),
                                      re.MULTILINE).group(1))
        return {"nanoseconds": nanoseconds, "wake-ups": wake_ups, "time": time.monotonic()}

    def memory(self):
        """What is resident: the proportional part changes with every program that comes and goes."""
        rollup = Path(f"/proc/{self.process.pid}/smaps_rollup").read_text()
        return int(re.search(r"^Rss:\s*(\d+)", rollup, re.MULTILINE).group(1))

    def end(self):
        self.process.terminate()
        self.process.wait(10)
        if self.bus:
            self.bus.terminate()
            self.bus.wait(10)
        self.printed.close()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", required=True)
    parser.add_argument("--scratch", required=True)
    parser.add_argument("-n", dest="runs", type=int, default=20)
    parser.add_argument("--messages", type=int, default=100_000)
    parser.add_argument("groups", nargs="*", metavar="GROUP")
    arguments = parser.parse_args()
    bench = Bench(arguments)
    groups = {"start": bench.start, "post": bench.post, "memory": bench.memory, "countdown": bench.countdown,
              "messages": bench.flood, "parser": bench.parser}
    unknown = [group for group in arguments.groups if group not in groups]
    if unknown:
        parser.error(f"there is no group {unknown[0]}; the groups are {', '.join(groups)}")
    loads = [load()]
    for name, run in groups.items():
        if not arguments.groups or name in arguments.groups:
            run()
    loads.append(load())
    bench.report(loads)


if __name__ == "__main__":
    main()
