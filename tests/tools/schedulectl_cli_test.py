#!/usr/bin/env python3
"""schedulectl from outside: what it prints, how it exits, and its JSON against the documented schema.

Arguments: schedulectl, schedulehelper, the schema. Everything happens in a folder of its own with its own store, runtime
directory and a small Orvin.app; the helper is brought up, taken down, and started without Orvin, as each case needs.
"""
import datetime
import fcntl
import json
import os
import pty
import re
import select
import shutil
import signal
import sqlite3
import struct
import subprocess
import sys
import tempfile
import termios
import time
import unicodedata
import unittest
import zoneinfo

import jsonschema

TOOL, HELPER, SCHEMA_FILE = sys.argv[1:4]
with open(SCHEMA_FILE, encoding="utf-8") as file:
    SCHEMA = jsonschema.Draft202012Validator(json.load(file))

PLIST = """<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict>
<key>CFBundleIdentifier</key><string>com.brindlewick.orvinfree</string><key>CFBundleName</key><string>Orvin</string>
<key>CFBundleExecutable</key><string>Orvin</string><key>CFBundleVersion</key><string>%s</string>
</dict></plist>"""
STORE = "com.brindlewick.schedulehelper.orvinfree213"
ESCAPES = re.compile(r"\x1b\[[0-9;?]*[A-Za-z]")


def width(text):
    return sum(0 if unicodedata.combining(c) else 2 if unicodedata.east_asian_width(c) in "WF" else 1 for c in text)


class Case(unittest.TestCase):
    """A folder, an Orvin.app, perhaps a running Orvin and a helper; all gone afterwards."""

    orvin = helper = False

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="schedulectl-")
        self.addCleanup(shutil.rmtree, self.folder)
        for name in ("run", "data", "state"):
            os.mkdir(os.path.join(self.folder, name), 0o700)
        self.env = {"PATH": os.environ["PATH"], "HOME": self.folder, "LANG": "C.UTF-8", "TZ": "UTC", "TERM": "xterm",
                    "XDG_RUNTIME_DIR": self.folder + "/run", "XDG_DATA_HOME": self.folder + "/data",
                    "XDG_STATE_HOME": self.folder + "/state"}
        self.store = f"{self.folder}/data/{STORE}/defaults.sqlite3"
        self.app = self.make_app("Orvin.app")
        self.processes = {}
        self.addCleanup(lambda: [self.end(name) for name in list(self.processes)])
        if self.orvin:
            self.start_orvin()
        if self.helper:
            self.start_helper()

    def make_app(self, name, version="2.13"):
        path = os.path.join(self.folder, name)
        os.makedirs(path + "/Contents/MacOS", exist_ok=True)
        with open(path + "/Contents/Info.plist", "w", encoding="utf-8") as plist:
            plist.write(PLIST % version)
        shutil.copy(shutil.which("sleep"), path + "/Contents/MacOS/Orvin")
        return path

    def start_orvin(self):
        self.processes["orvin"] = subprocess.Popen([self.app + "/Contents/MacOS/Orvin", "1000"], env=self.env)

    def start_helper(self):
        self.processes["helper"] = subprocess.Popen([HELPER], env=self.env)
        served = "orvin" in self.processes
        self.until(lambda: self.run_tool("ping").returncode == 0 if served else
                   self.json("status")["helper"]["running"])

    def end(self, name, how=signal.SIGTERM):
        process = self.processes.pop(name)
        process.send_signal(how)
        process.wait(20)

    def until(self, condition):
        deadline = time.monotonic() + 20
        while not condition():
            self.assertLess(time.monotonic(), deadline, "it never came true")
            time.sleep(0.02)

    def run_tool(self, *args, **options):
        env = dict(self.env, **options.pop("env", {}))
        return subprocess.run([TOOL, *args], env=env, capture_output=True, timeout=60, **options)

    def tool(self, *args, code=0, **options):
        """Runs it on a pipe and gives what it printed, errors last."""
        result = self.run_tool(*args, **options)
        text = result.stdout.decode() + result.stderr.decode()
        self.assertEqual(code, result.returncode, f"{args}: {text}")
        if code not in (0, 1, 3) or result.stderr:
            lines = result.stderr.decode().splitlines()
            self.assertEqual(3, len(lines), text)
            self.assertRegex(lines[0], "^schedulectl: ")
            self.assertRegex(lines[1], "^  why: ")
            self.assertRegex(lines[2], "^  try: ")
        return text

    def json(self, *args, code=None, **options):
        result = self.run_tool(*args, "--json", **options)
        self.assertEqual(b"", result.stderr)
        document = json.loads(result.stdout)
        SCHEMA.validate(document)
        if code is not None:
            self.assertEqual(code, result.returncode, document)
        if "error" in document:
            self.assertEqual(document["error"]["code"], result.returncode)
        return document

    def terminal(self, columns, *args, env=None, feed=None):
        """Runs it on a terminal of so many columns; `feed` gets the output so far and may give bytes to type."""
        parent, child = pty.openpty()
        fcntl.ioctl(child, termios.TIOCSWINSZ, struct.pack("HHHH", 40, columns, 0, 0))
        process = subprocess.Popen([TOOL, *args], stdin=child, stdout=child, stderr=child, env=dict(self.env, **(env or {})),
                                   preexec_fn=lambda: (os.setsid(), fcntl.ioctl(0, termios.TIOCSCTTY, 0)))
        os.close(child)
        output, deadline = b"", time.monotonic() + 30
        while time.monotonic() < deadline:
            try:
                chunk = os.read(parent, 65536) if select.select([parent], [], [], 1)[0] else b""
            except OSError:  # the other side has closed
                break
            output += chunk
            typed = feed(output) if feed else None
            if typed:
                os.write(parent, typed)
        os.close(parent)
        self.code = process.wait(10)
        return output.decode()

    def names(self):
        return [schedule["name"] for schedule in self.json("export")["schedules"]]


class WithService(Case):
    orvin = helper = True

    def test_a_schedule_comes_changes_and_goes(self):
        self.assertIn("Would add", self.tool("add", "Standup", "--at", "09:00", "--daily", "--dry-run"))
        self.assertEqual([], self.names())
        self.assertIn('Added "Standup": Mon-Fri at 09:00', self.tool("add", "Standup", "--at", "09:00", "--weekly", "mon-fri"))
        self.assertIn('Replaced "Standup" (was Mon-Fri at 09:00): daily at 10:00:30',
                      self.tool("add", "Standup", "--at", "10:00:30", "--daily"))
        added = self.json("add", "Once", "--at", "+2h", code=0)
        self.assertEqual(("added", self.app), (added["result"], added["schedule"]["app"]))
        self.assertRegex(self.tool("list"), r"(?s)NEXT START.*Once +once.*Orvin +2\.13|Standup +daily.*Once")
        self.assertIn("Did you mean \"Standup\"?", self.tool("delete", "Once", "Standpu", code=4))
        self.assertEqual(["Standup"], self.json("show", "standuq", code=4)["error"]["suggestions"])
        self.assertEqual(["Standup", "Once"], self.names())  # nothing was deleted, as one of the names was wrong
        for name in ("[a,b]", "[]", "list", "it's"):
            self.tool("add", name, "--at", "09:00", "--daily")
            self.assertEqual(name, self.json("show", name, code=0)["schedule"]["name"])
        self.assertEqual(4, len(self.json("delete", "[a,b]", "[]", "list", "it's", code=0)["schedules"]))
        self.assertIn('Deleted "Once"', self.tool("delete", "Once", "Standup"))
        self.assertEqual([], self.names())

    def test_the_stored_start_is_ten_seconds_early(self):
        moment = int(time.time()) + 5000
        self.tool("add", "Tea", "--at", f"@{moment}")
        (listed,) = self.json("list")["schedules"]
        self.assertEqual((moment, moment - 10), (listed["asked"]["epoch"], listed["next"]["likely"]["epoch"]))
        self.env["TZ"] = "Pacific/Chatham"
        local = datetime.datetime.fromtimestamp(moment, zoneinfo.ZoneInfo("Pacific/Chatham"))
        shown = (local - datetime.timedelta(seconds=10)).strftime("%a %e %b %H:%M:%S")
        self.assertIn(shown, self.tool("list"))
        self.assertIn("asked for   once, " + local.strftime("%a %e %b %H:%M"), self.tool("show", "Tea"))

    def test_what_is_refused_is_not_sent(self):
        self.tool("add", "twin", "--at", "09:00", "--daily")
        for args in (["Past", "--at", "2020-01-01 10:00"], ["Near", "--at", "+9s"], ["n" * 260, "--at", "09:00", "--daily"],
                     [b"\xff\xfe", "--at", "09:00", "--daily"],
                     ["pptwin", "--at", "09:00", "--daily", "--app", self.app[:-2]]):  # the same letters, split elsewhere
            self.tool("add", *args, code=5)
        for args in ([], ["X"], ["X", "--at", "25:00"], ["X", "--at", "9:00", "--weekly", "xday"], ["", "--at", "9:00"],
                     ["X", "--at", "9:00", "--daily", "--weekly", "mon"], ["X", "--at", "9:00", "--wekly", "mon"]):
            self.tool("add", *args, code=2)
        row = {"name": "two", "bundleId": "b", "app": "/p", "asked": {"epoch": 1}, "daily": True}
        twice = {"schema": 1, "schedules": [row, dict(row, name="ptwo", app="/")]}  # one record for both
        self.assertIn("twice", self.tool("import", "-", input=json.dumps(twice).encode(), code=5))
        index = {"schema": 1, "schedules": [{"name": "", "bundleId": "SKED", "app": "_ALL", "asked": {"epoch": 1}, "daily": True}]}
        self.tool("import", "-", input=json.dumps(index).encode(), code=5)
        self.assertEqual(["twin"], self.names())

    def test_the_truth_about_surprising_schedules(self):
        self.assertIn("00:00:10", self.tool("add", "Early", "--at", "00:00:05", "--weekly", "sun"))
        self.assertNotIn("almost a day late", self.tool("add", "Fine", "--at", "00:00:10", "--weekly", "sun"))
        self.assertIn("Differs from \"Fine\" only in case", self.tool("add", "fine", "--at", "10:00", "--daily"))
        self.assertIn("\"fine\" differs from \"Fine\"", self.tool("delete", "Fine"))
        gone = self.make_app("Other/Orvin.app")
        self.tool("add", "Gone", "--at", "10:00", "--daily", "--app", gone)
        self.make_app("Other/Orvin.app", "2.14")
        self.assertIn("never: " + gone + " has version 2.14", self.tool("list"))
        shutil.rmtree(gone)
        self.assertIn("application is gone", self.json("show", "Gone")["schedule"]["never"])
        self.assertIn(gone + " is gone.", self.tool("doctor", code=1))

    def test_clear_writes_what_import_brings_back(self):
        for name, rule in (("Noon", ["--at", "12:00", "--daily"]), ("東京", ["--at", "07:30", "--weekly", "sat,sun"])):
            self.tool("add", name, *rule)
        before = self.json("export")["schedules"]
        self.assertIn("-y", self.tool("clear", code=2))
        self.assertIn("Would delete 2 schedules", self.tool("clear", "--dry-run"))
        said = self.terminal(80, "clear", feed=lambda seen: b"n\n" if seen.endswith(b"[y/N] ") else None)
        self.assertEqual((1, True), (self.code, "Nothing was deleted" in said))

        def add_while_asked(seen):
            if not seen.endswith(b"[y/N] "):
                return None
            self.tool("add", "Late", "--at", "12:00", "--daily")
            return b"y\n"
        said = self.terminal(80, "clear", feed=add_while_asked)
        self.assertEqual((5, True), (self.code, "changed while you were asked" in said))
        self.tool("delete", "Late")
        cleared = self.json("clear", "-y", code=0)
        self.assertEqual([], self.names())
        self.assertEqual(2, self.json("import", cleared["export"], code=0)["count"])
        self.assertEqual(before, self.json("export")["schedules"])
        self.tool("clear", "-y", "-o", "/nowhere/at/all", code=5)
        self.assertEqual(2, len(self.names()))
        for bad in (b"", b"[]", b'{"schema": 1}', b'{"schema": 2, "schedules": []}', b'{"schema": 1, "schedules": [{}]}'):
            self.tool("import", "-", input=bad, code=2)

    def test_questions_to_the_helper(self):
        self.assertIn("answer", self.json("ping", code=0))
        self.json("idle", code=0)
        self.json("introduce", code=0)
        self.json("introduce", "--app", self.make_app("Other.app"), code=1)
        self.tool("add", "Tea", "--at", "+2h")
        self.json("idle", code=1)
        self.assertEqual("kept", self.json("shutdown", "--if-idle", code=1)["result"])
        self.json("status", code=0)
        self.tool("delete", "Tea")
        self.assertEqual("ended", self.json("shutdown", "--if-idle", code=0)["result"])
        self.assertEqual(0, self.processes["helper"].wait(20))

    def test_why_takes_the_steps_of_the_decision(self):
        self.tool("add", "Tea", "--at", "10:00", "--daily")
        steps = lambda code: [step["goesOn"] for step in self.json("why", "Tea", code=code)["steps"]]
        self.assertEqual([True, True, False, True], steps(1))
        self.end("orvin")
        self.assertEqual([True, True, True, True], steps(0))
        self.assertIn("Yes: ", self.tool("why", "Tea"))
        self.make_app("Orvin.app", "2.14")
        self.assertEqual([True, True, True, False], steps(1))
        self.end("helper")
        self.assertEqual([False, True, True, False], steps(1))

    def test_sent_but_not_stored(self):
        self.tool("add", "Tea", "--at", "10:00", "--daily")
        other = sqlite3.connect(self.store, isolation_level=None)
        other.execute("BEGIN IMMEDIATE")  # as a disk that takes no more
        self.assertIn("sent but not stored", self.tool("add", "Cake", "--at", "10:00", "--daily", code=6))
        other.execute("ROLLBACK")
        other.close()

    def test_a_helper_that_is_silent(self):
        os.kill(self.processes["helper"].pid, signal.SIGSTOP)
        self.assertIn("does not answer", self.tool("add", "Tea", "--at", "10:00", "--daily", code=3))
        os.kill(self.processes["helper"].pid, signal.SIGCONT)
        self.assertEqual([], self.names())


class OnATerminal(Case):
    orvin = helper = True

    def setUp(self):
        super().setUp()
        for name, rule in (("Standup", ["--at", "09:00", "--weekly", "mon-fri"]), ("東京の会議 with a name of some length", ["--at", "17:30", "--daily"]),
                           ("Early", ["--at", "00:00:05", "--weekly", "sun"]), ("Bell\x1b[2J", ["--at", "12:00", "--daily"])):
            self.tool("add", name, *rule)
        self.end("helper")

    def test_lines_fit_and_colours_are_for_terminals(self):
        for columns in (40, 80, 200):
            for args in (["list"], ["week"], ["next"], ["show", "Early"], ["why", "Standup"], ["status"], ["doctor"]):
                text = self.terminal(columns, *args)
                self.assertNotIn("\x1b[2J", text, "a name reached the terminal as it is")
                self.assertIn("\x1b[", text)
                plain = ESCAPES.sub("", text)
                for line in plain.replace("\r", "").split("\n"):
                    fits = width(line) <= columns or " " not in line.strip() or self.folder in line
                    self.assertTrue(fits, f"{args} at {columns}: {line!r}")
        self.assertNotIn("\x1b", self.terminal(80, "list", env={"NO_COLOR": "1"}))
        self.assertNotIn("\x1b", self.terminal(80, "list", env={"TERM": "dumb"}))
        self.assertIn("\x1b[", self.tool("list", "--color", "always"))
        self.assertNotIn("\x1b", self.tool("list"))

    def test_the_shape_follows_the_width(self):
        narrow, wide = (ESCAPES.sub("", self.terminal(columns, "list")) for columns in (40, 200))
        self.assertNotIn("NEXT START", narrow)
        self.assertIn("NEXT START", self.terminal(80, "list", env={"NO_COLOR": "1"}), "eighty columns hold the table")
        self.assertRegex(wide, r"NEXT START +IN +NAME +REPEATS +ASKED FOR +APPLICATION")
        self.assertIn("with a name of some length", wide)
        rows = re.findall(r"^\w{3} [ \d]\d \w{3}  .*$", ESCAPES.sub("", self.terminal(40, "week")).replace("\r", ""), re.MULTILINE)
        self.assertEqual((7, True), (len(rows), all(width(row) <= 36 for row in rows)), rows)
        self.assertIn("some length", self.tool("list", env={"COLUMNS": "40"}), "nothing is cut on a pipe")

    def test_watch(self):
        typed = []

        def interrupt(seen):
            if seen.count(b"\x1b[H") >= 2 and not typed:
                typed.append(True)
                return b"\x03"
            return None
        text = self.terminal(100, "watch", feed=interrupt)
        self.assertEqual(0, self.code)
        self.assertTrue(text.startswith("\x1b[?1049h\x1b[?25l") and text.endswith("\x1b[?25h\x1b[?1049l"))
        self.tool("watch", code=2)
        process = subprocess.Popen([TOOL, "watch", "--json"], env=self.env, stdout=subprocess.PIPE)
        for _ in range(2):
            SCHEMA.validate(json.loads(process.stdout.readline()))
        process.stdout.close()
        process.send_signal(signal.SIGINT)
        self.assertEqual(0, process.wait(20))


class Otherwise(Case):
    def test_without_a_helper(self):
        self.assertIn("No schedules yet", self.tool("list"))
        self.assertFalse(os.path.exists(self.store), "looking made a store")
        for args in (["add", "X", "--at", "9:00", "--daily", "--app", self.app], ["ping"], ["idle"], ["shutdown"],
                     ["introduce", "--app", self.app]):
            self.assertIn("No helper is running", self.tool(*args, code=3))
            self.json(*args, code=3)
        self.assertIn("Which application", self.tool("add", "X", "--at", "9:00", "--daily", code=2))
        self.json("status", code=3)
        self.assertFalse(self.json("doctor", code=1)["healthy"])

    def test_without_service(self):
        self.start_helper()
        self.assertIn("Orvin was not running when the helper started", self.tool("ping", code=3))
        self.assertIn("offers no service", self.tool("status", code=3))
        self.assertIn("Start Orvin", self.tool("doctor", code=1))
        self.assertTrue(self.json("list", code=0)["helper"]["running"])

    def test_where_this_user_may_not_connect(self):
        os.chmod(self.folder + "/run", 0o755)
        self.tool("ping", code=3)  # nobody is barred from a helper that does not run
        os.chmod(self.folder + "/run", 0o700)
        self.start_orvin()
        self.start_helper()
        for folder in ("run", "run/mach-services"):
            os.chmod(f"{self.folder}/{folder}", 0o755)
            self.assertIn(f"{self.folder}/{folder}.", self.tool("ping", code=8))
            self.assertEqual(8, self.json("add", "X", "--at", "9:00", code=8)["error"]["code"])
            self.json("status", code=8)
            self.assertIn("chmod 700", self.tool("doctor", code=1))
            os.chmod(f"{self.folder}/{folder}", 0o700)
        self.tool("ping")

    def test_what_the_service_manager_says(self):
        programs = self.folder + "/programs"
        os.mkdir(programs)
        self.env["PATH"] = programs + ":" + self.env["PATH"]
        rows = (("LoadState=loaded\nUnitFileState=enabled", "no", "good", "starts with your graphical session", "off"),
                ("LoadState=loaded\nUnitFileState=disabled", "yes", "bad", "does not start with your session", "on"),
                ("LoadState=not-found\nUnitFileState=", "no", "bad", "not installed", "off"),
                ("LoadState=masked\nUnitFileState=masked", "no", "bad", "masked", "off"),
                ("LoadState=bad-setting\nUnitFileState=enabled", "no", "bad", "cannot be used", "off"),
                ("", "no", "note", "cannot be asked", None))
        for unit, linger, level, phrase, expected in rows:
            for name, lines in (("systemctl", unit), ("loginctl", "Linger=" + linger)):
                with open(f"{programs}/{name}", "w", encoding="utf-8") as program:
                    program.write(f"#!/bin/sh\ncat <<'.'\n{lines}\n.\n")
                os.chmod(f"{programs}/{name}", 0o755)
            found = {finding["check"]: finding for finding in self.json("doctor")["findings"]}
            self.assertEqual((level, True), (found["unit"]["level"], phrase in found["unit"]["what"]), found["unit"])
            self.assertEqual(expected, found["linger"]["what"].split(":")[0].split(",")[0] if "linger" in found else None)

    def test_a_machine_that_slept(self):
        asleep = ["unshare", "--user", "--map-current-user", "--time", "--boottime", "30000", "--fork"]
        if subprocess.run([*asleep, "true"], capture_output=True).returncode != 0:
            self.skipTest("no clocks of one's own here")
        self.start_helper()
        since = self.json("status")["helper"]["since"]["epoch"]
        self.until(lambda: time.time() >= since + 2.1)  # whole seconds come from a clock that lags by a tick
        doctor = subprocess.run([*asleep, TOOL, "doctor"], env=self.env, capture_output=True, text=True)
        self.assertRegex(doctor.stdout, r"The machine has slept [\w ]+ in all\.\n(.|\n)*at most \d+ s; how much")

    def test_a_store_that_cannot_be_read(self):
        os.makedirs(os.path.dirname(self.store), 0o700)
        with open(self.store, "wb") as file:
            file.write(b"this is no database" * 100)
        os.chmod(self.store, 0o600)
        for command in ("list", "next", "week", "export"):
            self.tool(command, code=7)
            self.json(command, code=7)
        self.assertIn("damaged", self.tool("doctor", code=1))
        self.start_helper()  # it puts the damaged store aside
        self.assertIn("put aside", self.tool("doctor", code=1))

    def test_plan_in_three_zones(self):
        rows = (("Europe/Berlin", "2026-10-24 12:00", ["2026-10-25T07:59:50+01:00", "2026-10-26T07:59:50+01:00"]),
                ("America/New_York", "2027-03-13 12:00", ["2027-03-14T09:59:50-04:00", "2027-03-15T09:59:50-04:00"]),
                ("Asia/Kolkata", "2026-10-24 12:00", ["2026-10-25T08:59:50+05:30", "2026-10-26T08:59:50+05:30"]))
        for zone, armed, expected in rows:
            plan = self.json("plan", "--at", "09:00", "--daily", "--armed", armed, "-n", "2", "--tz", zone, code=0)
            self.assertEqual(expected, [start["likely"]["local"] for start in plan["starts"]])
            self.assertTrue(all("T09:00:00" in start["asked"]["local"] for start in plan["starts"]))
            self.assertEqual(zone == "Asia/Kolkata", plan["warnings"] == [])
        self.json("plan", "--at", "2020-01-01 10:00", code=1)
        self.tool("plan", "--at", "9:00", "--tz", "Mars/Olympus", code=2)
        self.assertIn("Thu 24 Dec", self.tool("plan", "--at", "2026-12-24", "18:00", "--armed", "@1790000000"))

    def test_help_and_usage(self):
        commands = re.findall(r"^  (\w+)  +[A-Z]", self.tool("--help"), re.MULTILINE)
        self.assertGreater(len(commands), 18)
        for command in commands:
            text = self.tool(command, "--help")
            self.assertLess(text.index("  schedulectl " if command != "list" else "  schedulectl\n"), text.index("Usage:"), command)
        self.assertRegex(self.tool("--version"), r"^schedulectl \d+\.\d+\.\d+\n$")
        self.json("--version", code=0)
        self.assertIn('Did you mean "list"?', self.tool("lst", code=2))
        self.assertIn('Did you mean "--daily"?', self.tool("add", "X", "--at", "9:00", "--daly", code=2))
        self.json("lst", code=2)
        self.tool("list", "--color", "pink", code=2)

    def test_completion(self):
        for shell in ("bash", "zsh", "fish"):
            script = self.json("completion", shell, code=0)["script"]
            self.assertIn("introduce", script)
            if shutil.which(shell):
                subprocess.run([shell, "-n"], input=script, text=True, check=True)
        self.assertIn("Did you mean \"bash\" or", self.tool("completion", "bsh", code=2))
        for words, expected in ((["we"], "week"), (["add", "--da"], "--daily"), (["completion", "f"], "fish")):
            line = " ".join(f'"{word}"' for word in ["schedulectl", *words])
            probe = f'source <("$0" completion bash); COMP_WORDS=({line}); COMP_CWORD={len(words)}; _schedulectl; echo "${{COMPREPLY[@]}}"'
            done = subprocess.run(["bash", "-c", probe, TOOL], env=self.env, capture_output=True, text=True, check=True)
            self.assertEqual(expected, done.stdout.strip(), done.stderr)


def enter_own_process_namespace():
    """Running applications are looked for among all processes of the user, so an Orvin outside would be seen as well."""
    fence = ["unshare", "--user", "--map-current-user", "--pid", "--fork", "--mount-proc", "--kill-child"]
    allowed = shutil.which("unshare") and subprocess.run([*fence, "true"], capture_output=True).returncode == 0
    if allowed and "FENCED" not in os.environ:
        os.environ["FENCED"] = "1"
        os.execvp(fence[0], [*fence, sys.executable, *sys.argv])


if __name__ == "__main__":
    enter_own_process_namespace()
    unittest.main(argv=[sys.argv[0], *sys.argv[4:]], verbosity=2)
