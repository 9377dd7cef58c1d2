#!/usr/bin/python3
"""Measures the rows that are asked for, prints one table in Markdown and writes the single figures as JSON.

Started by Scripts/bench, which makes the bus and the screen. The agent and its peers take
turns. The first turn, which fills the system's caches, does not count. The processors are
watched between the turns, while nothing of this runs.
"""

import argparse
import contextlib
import datetime
import itertools
import json
import math
import os
import plistlib
import re
import shutil
import subprocess
import sys
import time
from pathlib import Path
from statistics import median

from Xlib import X, display, error

NAME = "com.tevanic.NoticeAgent"
TEXT = "The file was not sent. Ask your administrator if you need access."
BARE = "a bare Qt window"
PEERS = {
    "yad": ["yad", "--title=Notice", f"--text={TEXT}", "--button=OK"],
    "kdialog": ["kdialog", "--title", "Notice", "--msgbox", TEXT],
    "zenity": ["zenity", "--info", "--title=Notice", f"--text={TEXT}"],
}
PICOM = ["picom", "--backend", "xrender", "--config", "/dev/null"]
XFWM4 = ["xfwm4", "--compositor=on", "--vblank=off"]
NOTICE_PIXELS = ["--pixel", "10,40,1E2234", "--pixel", "10,-12,FFFFFF"]
FRAME_OF_60_HZ = 16.7
LATER_TURNS = 4
SESSIONS = 30
COUNTDOWN_SECONDS = 30
# A second's tick may fall just inside or outside of the time that is watched.
WAKE_UPS_A_SECOND = 1.05
FLAT = 1.02
LINEAR_EXPONENT = 1.1
# The share of the processors that other programs may use, and how long it may be more.
QUIET = 0.1
SECONDS_FOR_QUIET = 60


class Failure(Exception):
    """What the observer says of a program."""


def say(text):
    print(text, file=sys.stderr, flush=True)


def load():
    return " ".join(Path("/proc/loadavg").read_text().split()[:3])


def busy_share(seconds):
    def ticks():
        user, nice, system, idle, waiting, *more = map(int, Path("/proc/stat").read_text().split("\n", 1)[0].split()[1:])
        return user + nice + system + sum(more[:3]), idle + waiting

    busy, idle = ticks()
    time.sleep(seconds)
    busy, idle = (after - before for after, before in zip(ticks(), (busy, idle)))
    return busy / max(busy + idle, 1)


def wait_until(condition, what, seconds=20):
    deadline = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > deadline:
            sys.exit(f"measure.py: {what} did not come")
        time.sleep(0.02)


def percentile(values, percent):
    return sorted(values)[math.ceil(len(values) * percent / 100) - 1]


class Row:
    """One line of the table. With a peer the limit is one of the ratio, else of the figure; there may be none."""

    def __init__(self, figure, unit, ours, peer="", theirs=(), limit=None, of=median):
        self.figure, self.unit, self.ours, self.of = figure, unit, list(ours), of
        self.peer, self.theirs, self.limit = peer, list(theirs), limit
        self.ratio = of(self.ours) / median(self.theirs) if self.theirs else None

    def cells(self):
        def number(value):
            return f"{value:.4g}" if value < 10_000 else f"{value:,.0f}"

        def spread(values, of):
            if len(values) < 2:
                return f"{number(values[0])} {self.unit}".strip() if values else ""
            return f"{number(of(values))} {self.unit} ({number(min(values))} to {number(max(values))})"

        value = self.of(self.ours) if self.ratio is None else self.ratio
        return [self.figure, spread(self.ours, self.of), self.peer, spread(self.theirs, median),
                "" if self.ratio is None else f"{self.ratio:.2f}", "" if self.limit is None else f"{self.limit:g}",
                "" if self.limit is None else "met" if value <= self.limit else "**not met**"]


class Bench:
    def __init__(self, arguments):
        self.build = Path(arguments.build)
        self.scratch = Path(arguments.scratch)
        self.runs, self.later_messages = (1, 4) if arguments.trial else (arguments.runs, 200)
        self.messages = 2000 if arguments.trial else 100_000
        self.trial = arguments.trial
        self.tools = self.build / "Benchmarks"
        self.bundle = self.build / "NoticeAgent.app"
        self.agent = [self.bundle / "Contents/Linux/NoticeAgent"]
        self.bare = [self.tools / "BareWindow"]
        self.peers = {peer: command for peer, command in PEERS.items() if shutil.which(peer)}
        self.rows = []

    def row(self, *arguments, **named):
        self.rows.append(Row(*arguments, **named))

    def expect_quiet(self):
        if self.trial:
            return
        deadline = time.monotonic() + SECONDS_FOR_QUIET
        while (share := busy_share(0.25)) > QUIET:
            if time.monotonic() > deadline:
                sys.exit(f"measure.py: no figures: other programs use {share:.0%} of the processors, and at most "
                         f"{QUIET:.0%} is quiet; load {load()}")

    def observe(self, command, *options, **environment):
        done = subprocess.run([self.tools / "Observer", *options, "--", *command], env={**os.environ, **environment},
                              capture_output=True, text=True, check=False)
        if done.returncode != 0:
            raise Failure(done.stderr.strip())
        return json.loads(done.stdout)

    def take_turns(self, title, takers, turns=None):
        """Each taker returns a figure, or a list of them; gives {taker: [figure...]}."""
        turns = turns or self.runs
        collected = {name: [] for name in takers}
        for turn in range(turns + 1):
            say(f"{title}: {turn} of {turns}" if turn else f"{title}: once to begin with")
            self.expect_quiet()
            for name, take in takers.items():
                try:
                    figures = take()
                except Failure as failure:
                    sys.exit(f"measure.py: {title}, {name}: {failure}")
                if turn:
                    collected[name] += figures if isinstance(figures, list) else [figures]
        return collected

    # --- the rows ---------------------------------------------------------------------------------

    def start(self):
        takers = {
            "name": lambda: self.observe(self.agent, "--name", NAME)["exec_to_name"],
            "notice": lambda: self.observe(self.agent, "--name", NAME, "--post-at-name", "notice",
                                           "--window")["exec_to_mapped"],
        }
        for peer, command in {BARE: self.bare, **self.peers}.items():
            takers[peer] = lambda command=command: self.observe(command, "--window")["exec_to_mapped"]
        seen = self.take_turns("start", takers)
        self.row("exec to observer registered", "ms", seen["name"], BARE, seen[BARE], 0.3)
        for peer, limit in {BARE: 0.8, "yad": None, "kdialog": 0.4, "zenity": 0.4}.items():
            if peer in seen:
                self.row("exec to first notice mapped", "ms", seen["notice"], peer, seen[peer], limit)

    def libraries(self):
        def counts(command):
            statistics = self.scratch / "statistics"
            process = subprocess.Popen(command, env={**os.environ, "LD_DEBUG": "statistics",
                                                     "LD_DEBUG_OUTPUT": str(statistics)})
            time.sleep(2)
            maps = Path(f"/proc/{process.pid}/maps").read_text()
            end(process)
            # The dynamic linker writes them before main(); what is loaded later comes with the end.
            text = Path(f"{statistics}.{process.pid}").read_text()
            relocations = [int(re.search(rf"number of {kind}relocations: (\d+)", text)[1]) for kind in ("", "relative ")]
            return len(set(re.findall(r"/\S+\.so\b\S*", maps))), *relocations

        self.expect_quiet()
        ours, theirs = counts(self.agent), counts(self.bare)
        for figure, our, their in zip(("libraries mapped while idle", "relocations before main()",
                                       "relative relocations before main()"), ours, theirs):
            self.row(figure, "", [our], BARE, [their])

    def first(self):
        def pixel(command, name, post, hide, pixels):
            return self.observe(command, "--name", name, "--rounds", "1", "--post", post, "--hide", hide,
                                *pixels)["pixel"][0]

        takers = {"ours": lambda: pixel(self.agent, NAME, "notice", "hide", NOTICE_PIXELS)}
        if shutil.which("dunst"):
            takers["dunst"] = lambda: pixel(
                ["dunst", "-conf", Path(__file__).parent / "dunstrc"], "org.freedesktop.Notifications", "notification",
                "close-notifications", ["--pixel", "4,4,2A292F"])
        seen = self.take_turns("first", takers)
        self.row("post to first right pixel, first message", "ms", seen["ours"], "dunst" if "dunst" in seen else "",
                 seen.get("dunst", ()), 0.5 if "dunst" in seen else None)

    def later(self):
        """200 messages in four agents, so that the countdowns of replaced notices stay few."""
        large_text = self.scratch / "large-text"
        large_text.mkdir()
        (large_text / "kdeglobals").write_text("[General]\nfont=Noto Sans,20,-1,5,50,0,0,0,0,0\n")
        count = self.later_messages // LATER_TURNS

        def pixels(message="notice", compositor=None, **environment):
            with self.compositor(compositor):
                seen = self.observe(self.agent, "--name", NAME, "--rounds", str(1 + count), "--post", message, "--hide",
                                    "hide", "--pause", "0.06", *NOTICE_PIXELS, **environment)
                return list(zip(seen["pixel"], seen["processor"]))[1:]

        seen = self.take_turns("later", {
            "plain": pixels,
            "in Arabic": lambda: pixels("arabic"),
            "at scale 2": lambda: pixels(QT_SCALE_FACTOR="2"),
            "at 20 pt": lambda: pixels(XDG_CURRENT_DESKTOP="KDE", KDE_FULL_SESSION="true", KDE_SESSION_VERSION="5",
                                       XDG_CONFIG_HOME=str(large_text)),
            "with picom": lambda: pixels(compositor=PICOM),
            "with xfwm4's compositor": lambda: pixels(compositor=XFWM4),
        }, LATER_TURNS)
        for variant, messages in seen.items():
            values = [pixel for pixel, _ in messages]
            slow = percentile(values, 99)
            self.row(f"post to first right pixel, later messages, {variant}", "ms", values, limit=FRAME_OF_60_HZ)
            self.row(f"99th percentile, {variant}", "ms", values, limit=FRAME_OF_60_HZ,
                     of=lambda values: percentile(values, 99))
            self.row("the agent's own processor time until then", "ms", [own for _, own in messages])
            self.row("the same of the slowest percent", "ms", [own for pixel, own in messages if pixel >= slow])

    @contextlib.contextmanager
    def compositor(self, command):
        if not command:
            yield
            return
        process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        screen = display.Display()
        owner = screen.intern_atom("_NET_WM_CM_S0")
        wait_until(lambda: screen.get_selection_owner(owner) != X.NONE, command[0])
        screen.close()
        time.sleep(0.5)
        yield
        end(process)

    def memory(self):
        takers = {"ours": lambda: self.observe(self.agent, "--name", NAME, "--post-at-name", "notice", "--window",
                                               "--memory")["pss"] / 1024}
        for peer, command in {BARE: self.bare, **self.peers}.items():
            takers[peer] = lambda command=command: self.observe(command, "--window", "--memory")["pss"] / 1024
        seen = self.take_turns("memory", takers)
        for peer in seen:
            if peer != "ours":
                self.row("proportional memory, CASB notice shown", "MiB", seen["ours"], peer, seen[peer],
                         1.0 if peer == BARE else None)

    def sessions(self):
        """A bus and an agent each, on one screen; the messages come within a second."""
        say(f"sessions: {SESSIONS} agents")
        self.expect_quiet()
        agents = [Agent(self) for _ in range(SESSIONS)]
        for agent in agents:
            agent.wait_for_name()
        time.sleep(3)
        screen = display.Display()
        screen.screen().root.change_attributes(event_mask=X.SubstructureNotifyMask)
        screen.sync()
        began = time.monotonic()
        shown, posted, posts = set(), 0, []
        while len(shown) < SESSIONS:
            now = time.monotonic() - began
            if posted < SESSIONS and now >= posted / SESSIONS:
                posts.append(agents[posted].start_post("notice"))
                posted += 1
            elif screen.pending_events():
                event = screen.next_event()
                if event.type == X.MapNotify and width_of(event.window) > 120:
                    shown.add(event.window.id)
            elif now > 30:
                sys.exit(f"measure.py: {len(shown)} of {SESSIONS} sessions show a notice")
            else:
                time.sleep(0.002)
        seconds = time.monotonic() - began
        screen.close()
        time.sleep(2)
        memory = [agent.memory("Pss") / 1024 for agent in agents]
        for process in posts:
            process.wait()
        for agent in agents:
            agent.end()
        self.row(f"proportional memory of an agent among {SESSIONS} sessions", "MiB", memory, limit=5.5)
        self.row(f"{SESSIONS} messages within a second: first post to last notice mapped", "s", [seconds])

    def countdown(self):
        """As many agents as there are runs, each on a bus of its own, a little apart."""
        say(f"countdown: {self.runs} agents for {COUNTDOWN_SECONDS} seconds, then one that waits")
        self.expect_quiet()
        agents = [Agent(self) for _ in range(self.runs)]
        for agent in agents:
            agent.wait_for_name()
            agent.start_post("notice").wait()
            time.sleep(0.05)
        time.sleep(1.5)
        for agent in agents:
            agent.began = agent.costs()
            time.sleep(0.01)
        time.sleep(COUNTDOWN_SECONDS - 0.01 * len(agents))
        used = [[after - before for after, before in zip(agent.costs(), agent.began)] for agent in agents]
        for agent in agents:
            agent.end()
        self.row(f"processor time of a {COUNTDOWN_SECONDS} s countdown", "ms",
                 [nanoseconds / 1e6 for nanoseconds, _, _ in used], limit=25)
        self.row("wake-ups while it runs, all threads", "a second",
                 [wake_ups / seconds for _, wake_ups, seconds in used], limit=WAKE_UPS_A_SECOND)
        agent = Agent(self)
        agent.wait_for_name()
        time.sleep(2)
        _, began, _ = agent.costs()
        time.sleep(10)
        _, ended, _ = agent.costs()
        agent.end()
        self.row("wake-ups of an agent that waits, in 10 s", "", [ended - began], limit=0)

    def flood(self):
        self.expect_quiet()
        agent = Agent(self, patient=True)
        agent.wait_for_name()
        first = min(1000, self.messages // 10)
        memory = {}
        began = time.monotonic()
        with subprocess.Popen([self.tools / "Post", "stream"], stdin=subprocess.PIPE, text=True,
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
                memory[sent] = agent.memory("Rss") / 1024
                say(f"messages: {sent} of {self.messages}")
            post.stdin.close()
        rate = sent / (time.monotonic() - began)
        lost = sent - agent.notices
        agent.end()
        self.row(f"resident memory after {sent:,} messages", "MiB", [memory[sent]], f"after {first:,}", [memory[first]],
                 FLAT)
        self.row(f"messages lost of {sent:,}, at {rate:.0f} a second", "", [lost], limit=0)

    def parser(self):
        say("parser: Google Benchmark")
        self.expect_quiet()
        done = subprocess.run([self.tools / "Parser", "--benchmark_format=json",
                               f"--benchmark_repetitions={self.runs}", "--benchmark_enable_random_interleaving=true",
                               "--benchmark_min_time=0.02"], capture_output=True, text=True, check=True)
        times = {}
        for result in json.loads(done.stdout)["benchmarks"]:
            if result["run_type"] == "iteration":
                parser, size = result["run_name"].split("/")
                times.setdefault(parser, {}).setdefault(int(size), []).append(result["cpu_time"] / 1e3)
        ours = times["noticeParser"]
        sizes = sorted(ours)
        for size in sizes:
            self.row(f"notice parser, {size:,} bytes", "us", ours[size], "libxml2's tree", times["libxml2Tree"][size],
                     1.0)
        small, large = sizes[1], sizes[-1]
        growth = math.log(median(ours[large]) / median(ours[small])) / math.log(large / small)
        self.row("growth of the notice parser, as a power of the size", "", [growth], limit=LINEAR_EXPONENT)

    # --- the table --------------------------------------------------------------------------------

    def report(self, load_before):
        if self.trial:
            say(f"{len(self.rows)} rows were tried; figures need a whole run on a quiet machine.")
        processor = re.search(r"model name\s*: (.*)", Path("/proc/cpuinfo").read_text())
        loads = f"load before: {load_before}; after, with that of this run: {load()}"
        heading = (f"{datetime.date.today()}, {os.cpu_count()} x {processor[1] if processor else 'processor'}; "
                   f"median (least to most) of {self.runs} runs")
        table = [["figure", "agent", "peer", "peer's", "ratio", "limit", ""], ["---"] * 7,
                 *(row.cells() for row in self.rows)]
        lines = [f"| {' | '.join(cells)} |" for cells in table]
        missing = [peer for peer in (*PEERS, "dunst") if not shutil.which(peer)]
        if not self.trial:
            print("\n".join(["", heading, loads, "", *lines]))
            if missing:
                print(f"Not installed, and so not compared with: {', '.join(missing)}")
        (self.build / "results.json").write_text(json.dumps(
            {"heading": heading, "loads": loads, "is trial": self.trial,
             "rows": [{"ours": row.ours, "theirs": row.theirs, "cells": row.cells()} for row in self.rows]},
            indent=1) + "\n")


def width_of(window):
    try:
        return window.get_geometry().width
    except error.BadDrawable:
        return 0


def end(process):
    process.terminate()
    process.wait(10)


class Agent:
    """An agent on a bus of its own, watched through /proc."""

    numbers = itertools.count()

    def __init__(self, bench, patient=False):
        self.bench = bench
        self.bus = subprocess.Popen(["dbus-daemon", "--session", "--nofork", "--nopidfile", "--print-address=1"],
                                    stdout=subprocess.PIPE, text=True)
        self.environment = {**os.environ, "DBUS_SESSION_BUS_ADDRESS": self.bus.stdout.readline().strip()}
        printed = bench.scratch / f"agent-{next(Agent.numbers)}.out"
        with open(printed, "wb") as output:
            self.process = subprocess.Popen(self.patient_bundle() if patient else bench.agent, env=self.environment,
                                            stdout=output, stderr=subprocess.DEVNULL)
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
        return [bundle / "Contents/Linux/NoticeAgent"]

    def wait_for_name(self):
        call = ["dbus-send", "--session", "--print-reply=literal", "--dest=org.freedesktop.DBus", "/",
                "org.freedesktop.DBus.NameHasOwner", f"string:{NAME}"]
        wait_until(lambda: "true" in subprocess.run(call, env=self.environment, capture_output=True, text=True,
                                                    check=False).stdout, "the agent")

    def start_post(self, message):
        return subprocess.Popen([self.bench.tools / "Post", message], env=self.environment)

    # For each CASB notice the agent prints the vendor's word on a line.
    def wait_for_notices(self, count):
        deadline = time.monotonic() + 60
        while self.notices < count and time.monotonic() < deadline and self.process.poll() is None:
            self.notices += self.printed.read().count(b"\n")
            if self.notices < count:
                time.sleep(0.01)

    def costs(self):
        """Nanoseconds of processor time, wake-ups, and the time in seconds."""
        nanoseconds = wake_ups = 0
        for task in Path(f"/proc/{self.process.pid}/task").iterdir():
            nanoseconds += int((task / "schedstat").read_text().split()[0])
            wake_ups += int(re.search(r"^voluntary_ctxt_switches:\s*(\d+)", (task / "status").read_text(), re.M)[1])
        return nanoseconds, wake_ups, time.monotonic()

    def memory(self, kind):
        """In KiB. The proportional part (Pss) changes with every program that comes and goes, the resident one not."""
        rollup = Path(f"/proc/{self.process.pid}/smaps_rollup").read_text()
        return int(re.search(rf"^{kind}:\s*(\d+)", rollup, re.M)[1])

    def end(self):
        end(self.process)
        end(self.bus)
        self.printed.close()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", required=True)
    parser.add_argument("--scratch", required=True)
    parser.add_argument("-n", dest="runs", type=int, default=20)
    parser.add_argument("--try", dest="trial", action="store_true")
    parser.add_argument("rows", nargs="*", metavar="ROW")
    arguments = parser.parse_args()
    bench = Bench(arguments)
    measures = {"start": bench.start, "libraries": bench.libraries, "first": bench.first, "later": bench.later,
                "memory": bench.memory, "sessions": bench.sessions, "countdown": bench.countdown,
                "messages": bench.flood, "parser": bench.parser}
    if unknown := set(arguments.rows) - set(measures):
        parser.error(f"there is no row {unknown.pop()}; there are {', '.join(measures)}")
    load_before = load()
    bench.expect_quiet()
    for name, measure in measures.items():
        if not arguments.rows or name in arguments.rows:
            measure()
    bench.report(load_before)


if __name__ == "__main__":
    main()
