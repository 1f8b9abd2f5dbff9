#!/usr/bin/env python3
"""Runs the benchmarks in rotation and prints one table of what came out; called by scripts/bench.

Each round runs every program once, ours and the peers in one run, so whatever disturbs the machine disturbs all. Of the
rounds the median is quoted. A program is run on one processor (it and every process that it starts), free, or both.
Everything is a time or a count of which less is better; a goal is a largest ratio to a peer, or a largest number.
"""

import argparse
import datetime
import json
import os
import pathlib
import re
import signal
import statistics
import subprocess
import sys

# program: on one processor, free, or both; seconds for each measurement
PROGRAMS = {
    "bench_text": (("pinned",), 0.02),
    "bench_coding": (("pinned",), 0.1),
    "bench_timers": (("pinned",), 0.1),
    "bench_messages": (("pinned", "free"), 0.2),
    "bench_firing": (("free",), 0.01),
    "bench_store": (("free",), 0.01),
    "bench_start": (("free",), 0.01),
    "bench_idle": (("free",), 0.01),
}
FEWER_ROUNDS = {"bench_idle": 1, "bench_firing": 3, "bench_start": 3}
PATIENCE = 120  # seconds for one run of one program


def run(build, program, mode, min_time, environment):
    """One run: the list of measurements, or None when it failed."""
    words = [str(build / "bench" / program), "--benchmark_format=json", f"--benchmark_min_time={min_time}"]
    if mode == "pinned":
        words = ["taskset", "-c", "0", *words]
    process = subprocess.Popen(words, stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=environment,
                               start_new_session=True)
    try:
        output, errors = process.communicate(timeout=PATIENCE)
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGKILL)  # with every process that it started
        output, errors = process.communicate()
        print(f"{program} ({mode}): no end within {PATIENCE} s", file=sys.stderr)
        return None
    if process.returncode != 0:
        print(f"{program} ({mode}): status {process.returncode}\n{errors.decode()}", file=sys.stderr)
        return None
    return json.loads(output)["benchmarks"]


TO_NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}


def name_of(raw):
    return re.sub(r"/(real_time|manual_time|iterations:\d+)", "", raw)


def collect(build, rounds, environment):
    """{(mode, name, field): [value of each round]}; the field "time" is in nanoseconds, others are counters."""
    values = {}
    for number in range(rounds):
        for program, (modes, min_time) in PROGRAMS.items():
            if number >= FEWER_ROUNDS.get(program, rounds):
                continue
            for mode in modes:
                print(f"round {number + 1} of {rounds}: {program} ({mode})", file=sys.stderr)
                for measured in run(build, program, mode, min_time, environment) or []:
                    name = name_of(measured["name"])
                    found = {"time": measured["real_time"] * TO_NANOSECONDS[measured["time_unit"]]}
                    found |= {field: measured[field] for field in
                              ("allocations", "switches", "resident_kib", "p99_us", "earliest_us", "bytes")
                              if field in measured}
                    for field, value in found.items():
                        values.setdefault((mode, name, field), []).append(value)
    return {key: statistics.median(found) for key, found in values.items()}


class Row:
    """Ours beside its peers, all named "TOPIC/NAME[/ARGUMENTS]". `goals`: (largest ratio, peers of which the best)."""

    def __init__(self, work, topic, peers, goals=(), arguments="", mode="pinned", field="time", at_most=None,
                 versus=None):
        self.work, self.mode, self.field = work, mode, field
        self.names = {name: f"{topic}/{name}{'/' if arguments else ''}{arguments}" for name in ["ours", *peers]}
        if versus is not None:  # ours at another size
            self.names["ours at " + versus] = f"{topic}/ours/{versus}"
            goals = [(goals[0][0], ["ours at " + versus])]
        self.goals, self.at_most = goals, at_most

    def value(self, medians, name):
        return medians.get((self.mode, self.names[name], self.field))

    def judged(self, medians):
        """(cells of ours and the peers, [(ratio, goal, whether it is met)])"""
        ours = self.value(medians, "ours")
        peers = {name: self.value(medians, name) for name in self.names if name != "ours"}
        verdicts = []
        if ours is not None:
            for most, names in self.goals:
                rated = {name: peers[name] for name in names if peers.get(name)}
                if rated:
                    best = min(rated, key=rated.get)
                    ratio = ours / rated[best]
                    verdicts.append((f"{ratio:.2f}", f"at most {most:g} of {best}", ratio <= most))
            if self.at_most is not None:
                verdicts.append((text_of(ours, self.field), f"at most {text_of(self.at_most, self.field)}",
                                 ours <= self.at_most))
        return ours, peers, verdicts


def text_of(value, field):
    if value is None:
        return "not measured"
    if field == "resident_kib":
        return f"{value / 1024:.1f} MiB"
    if field.endswith("_us"):
        return f"{value:.0f} us"
    if field != "time":
        return f"{value:g}"
    for unit, size in (("ms", 1e6), ("us", 1e3)):
        if value >= size:
            return f"{value / size:.3g} {unit}"
    return f"{value:.3g} ns"


class AtLeast(Row):
    """A bound from below on ours: nothing is ever early."""

    def judged(self, medians):
        ours = self.value(medians, "ours")
        verdicts = [] if ours is None else [(text_of(ours, self.field), "never early", ours >= 0)]
        return ours, {}, verdicts


def text_rows():
    alphabets = ("ASCII", "Latin", "CJK")
    for unit, more in (("utf32", "icu_calls"), ("utf16", "icu_length")):
        icu = ["icu", more]  # two ways to use the library; the better one counts
        peers = [*icu, "iconv", "utfcpp"]
        for alphabet, word in enumerate(alphabets):
            for size, said in ((40, "40 bytes"), (1 << 20, "1 MiB")):
                if alphabet == 0:
                    goal = (round(1 / (3 if unit == "utf32" else 5), 2), icu)
                else:  # vectors carry through a document; in a name most is begin and end
                    goal = (0.67 if size > 40 else 1, peers)
                yield Row(f"UTF-8 to {unit.upper().replace('F', 'F-')}, {word}, {said}", unit, [*peers, "limit"],
                          [goal], f"{alphabet}/{size}")
    yield Row('print "%s_%u"', "print_name", ["snprintf", "fmt"], [(1.0, ["snprintf"])])
    yield Row("print a five-field date", "print_date", ["snprintf", "fmt"], [(1.3, ["snprintf"])])
    for letters in (0, 64, 512, 4096):
        yield Row('match "a*b*c", 48 characters' if letters == 0 else f'match "a*a*a*a*a*b", {letters} a\'s', "match",
                  ["fnmatch", "sqlite"], [(0.6, ["fnmatch"])], str(letters))


def transport_rows():
    yield Row("request and answer, one processor", "round_trip", ["raw", "sd_bus", "dbus_daemon"],
              [(1.8, ["raw"]), (0.6, ["sd_bus"])])
    yield Row("request and answer, free", "round_trip", ["raw", "sd_bus", "dbus_daemon"], mode="free")
    yield Row("one-way request, one processor", "one_way", ["raw", "sd_bus"], [(3.0, ["raw"]), (0.4, ["sd_bus"])])
    yield Row("one-way request, free", "one_way", ["raw", "sd_bus"], mode="free")
    yield Row("write six entries, read by thirteen keys", "coding", ["sd_bus", "by_hand"], [(0.1, ["sd_bus"])])
    yield Row("allocations of that: six items, one buffer", "coding", [], field="allocations", at_most=7)
    yield Row("the same with a copy and a check between", "coding_wire", [])


def timer_rows():
    peers = ["libevent", "libuv", "limit"]
    for armed, ratio in ((1_000, 1.5), (100_000, 0.8), (1_000_000, 0.5)):
        yield Row(f"cancel and arm, {armed:,} armed", "timer", peers, [(ratio, ["libevent", "libuv"])], str(armed))
    yield Row("memory of an armed source", "timer_bytes", [], field="bytes", at_most=200)
    yield Row("lateness of a firing, median", "lateness", ["sleep", "libevent"], [(1.5, ["sleep"])], mode="free")
    yield Row("lateness of a firing, 99th percentile", "lateness", ["sleep", "libevent"], [(1.0, ["libevent"])],
              mode="free", field="p99_us")
    yield AtLeast("the earliest firing", "lateness", [], mode="free", field="earliest_us")
    for count in (1_000, 10_000):
        yield Row(f"{count:,} one-offs at one instant", "at_once", ["libevent", "libuv", "multimap"],
                  [(6, ["libevent"])] if count == 10_000 else [], str(count), mode="free")
    yield Row("10,000 against 1,000", "at_once", [], [(12, [])], "10000", mode="free", versus="1000")


def helper_rows():
    for held, most in ((10, 8), (10_000, 40)):
        yield Row(f"idle, {held:,} armed: times on a processor", "idle", [], arguments=str(held), mode="free",
                  field="switches", at_most=0)
        yield Row(f"idle, {held:,} armed: memory", "idle", [], arguments=str(held), mode="free", field="resident_kib",
                  at_most=most * 1024)
    for held in (10, 100, 1_000, 10_000):
        yield Row(f"Add, durable, {held:,} held", "add", ["sqlite"], [(1.3, ["sqlite"])], str(held), mode="free")
    yield Row("10,000 held against 10", "add", [], [(1.8, [])], "10000", mode="free", versus="10")
    yield Row("Delete, 1,000 held", "delete", ["sqlite"], [(1.3, ["sqlite"])], "1000", mode="free")
    yield Row("DeleteAll of 1,000", "delete_all", ["sqlite"], [(1.3, ["sqlite"])], "1000", mode="free")
    for held in (0, 1_000, 10_000):
        yield Row(f"start to first answer, {held:,} stored", "start", ["bare"], [(1.5, ["bare"])], str(held),
                  mode="free")
    for running in (200, 1_000):
        yield Row(f"firing to the application's main, {running:,} processes", "launch", ["bare"], [(1.5, ["bare"])],
                  str(running), mode="free")


def table(medians, whole):
    lines = ["| work | ours | beside | ratio, or value | goal | met |", "|---|---|---|---|---|---|"]
    for row in [*transport_rows(), *timer_rows(), *helper_rows(), *text_rows()]:
        ours, peers, verdicts = row.judged(medians)
        if ours is None and not whole:
            continue
        beside = ", ".join(f"{name} {text_of(value, row.field)}" for name, value in peers.items())
        lines.append("| " + " | ".join([
            row.work, text_of(ours, row.field), beside, "; ".join(verdict[0] for verdict in verdicts),
            "; ".join(verdict[1] for verdict in verdicts),
            "; ".join("yes" if verdict[2] else "**no**" for verdict in verdicts)]) + " |")
    return "\n".join(lines)


def machine():
    model = "unknown"
    for line in pathlib.Path("/proc/cpuinfo").read_text().splitlines():
        if line.startswith("model name"):
            model = line.split(":", 1)[1].strip()
            break
    return f"{model}, {os.cpu_count()} processors, Linux {os.uname().release.split('-')[0]}"


def page(path, heading, measured):
    """Replaces what stands between the two marks of the page; the rest is written by hand."""
    begin, end = "<!-- measured: begin -->", "<!-- measured: end -->"
    before, rest = path.read_text().split(begin)
    after = rest.split(end)[1]
    path.write_text(f"{before}{begin}\n{heading}\n\n{measured}\n{end}{after}")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--build", type=pathlib.Path, required=True)
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--long", action="store_true", help="watch the idle helper for a minute")
    parser.add_argument("--only", action="append", help="these programs alone")
    parser.add_argument("--write", type=pathlib.Path, help="the page whose table is to be replaced")
    options = parser.parse_args()
    for program in list(PROGRAMS):
        if options.only and program not in options.only:
            del PROGRAMS[program]

    # Stores lie where the build lies, on a disk, and not in a folder that may be memory.
    scratch = options.build / "scratch"
    scratch.mkdir(exist_ok=True)
    environment = os.environ | {"TMPDIR": str(scratch.resolve()), "BENCH_WINDOW": "60" if options.long else "5"}

    load_before = os.getloadavg()[0]
    medians = collect(options.build, options.rounds, environment)
    today = datetime.date.today().isoformat()
    heading = (f"{machine()}; {today}; medians of {options.rounds} rounds; load (1 minute) {load_before:.1f} before "
               f"and {os.getloadavg()[0]:.1f} after.")
    measured = table(medians, whole=not options.only)
    print(f"{heading}\n\n{measured}")
    if options.write:
        page(options.write, heading, measured)


if __name__ == "__main__":
    main()
