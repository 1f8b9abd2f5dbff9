"""The vocabulary of the torture run: homes, helpers, connections, the store, and plans for the shim."""
import fcntl
import os
import shutil
import signal
import socket
import sqlite3
import struct
import subprocess
import tempfile
import termios
import time
from collections import namedtuple
from pathlib import Path

SERVICE = "Q4ZT82MX5P.com.brindlewick.schedulehelper.orvinfree213"
IDENTIFIER = "com.brindlewick.orvinfree"
FOLDER = "com.brindlewick.schedulehelper.orvinfree213"
PREFIX = "LGCDSCHEDULER_" + IDENTIFIER
FAR = 2_000_000_000  # a moment that no run reaches; small enough for every build
FAULT = 154          # what a parent sees of the status 666
BOUND = 2.5          # seconds that an ending may take
PATIENCE = 60        # seconds for what has no bound of its own on a busy machine

MESSAGE, REQUEST, REPLY = 1, 2, 3
NONE, ALLOCATION, STORE, LOCK, DESCRIPTOR = range(5)
FAIL, HALF, DIE, DIE_HALFWAY, RAISE = range(5)


class Trouble(Exception):
    """A goal was missed; the text says how."""


def need(condition, *what):
    if not condition:
        raise Trouble(" ".join(str(word) for word in what))


def until(condition, *what, patience=PATIENCE):
    end = time.monotonic() + patience
    while not condition():
        need(time.monotonic() < end, *what)
        time.sleep(0.005)


# ---- Frames

def padded(data):
    return data + bytes(-len(data) % 8)


def frame(items, kind=MESSAGE, number=0):
    """A frame of {key: text, bool or (type, integer)}."""
    body = b""
    for key, value in items.items():
        if isinstance(value, str):
            code, data = 8, value.encode() + b"\0"
        elif isinstance(value, bool):
            code, data = 1, bytes([value])
        else:
            code, data = value[0], struct.pack("=q", value[1])
        name = key.encode() + b"\0"
        body += struct.pack("=IHBB", len(data), len(name), code, 0) + padded(name) + padded(data)
    return struct.pack("=IBBHQII", 24 + len(body), 1, kind, 0, number, len(items), 0) + body


def add(path, name, start, daily=False, mask=0):
    items = {"MAIN_APP_BUNDLEID": IDENTIFIER, "MAIN_APP_BUNDLE_PATH": path, "NEW_SKED_NAME": name,
             "NEW_SKED_TIME": (5, start + 10)}
    if daily:
        items["NEW_SKED_DAILY"] = True
    if mask:
        items |= {"NEW_SKED_WEEKLY": True, "NEW_SKED_WEEKDAYMASK": (3, mask)}
    return items


def delete(path, name):
    return {"MAIN_APP_BUNDLEID": IDENTIFIER, "MAIN_APP_BUNDLE_PATH": path, "DELETE_SKED_NAME": name}


def delete_all(path):
    return {"MAIN_APP_BUNDLEID": IDENTIFIER, "MAIN_APP_BUNDLE_PATH": path, "DELETE_ALL_SKED": True}


TEST, QUESTION, SHUTDOWN = "XPC_TEST_CONNECTION", "XPC_SHUTDOWN_HELPER_REQUEST", "XPC_SHUTDOWN_HELPER"

Schedule = namedtuple("Schedule", "start daily mask")


def expected(state, request):
    """The oracle: what `state`, {(path, name): Schedule}, is after `request`."""
    path, state = request["MAIN_APP_BUNDLE_PATH"], dict(state)
    if "NEW_SKED_NAME" in request:
        mask = request.get("NEW_SKED_WEEKDAYMASK", (3, 0))[1]
        state[path, request["NEW_SKED_NAME"]] = Schedule(request["NEW_SKED_TIME"][1] - 10,
                                                         "NEW_SKED_DAILY" in request, mask)
    elif "DELETE_SKED_NAME" in request:
        state.pop((path, request["DELETE_SKED_NAME"]), None)
    elif "DELETE_ALL_SKED" in request:
        state = {key: value for key, value in state.items() if not key[0].startswith(path)}
    return state


class Link:
    """A connection of a main application."""

    def __init__(self, home, patience=PATIENCE):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.settimeout(patience)
        self.number, self.rest = 0, b""
        folder = os.open(home.run / "mach-services", os.O_PATH)
        try:
            self.socket.connect(f"/proc/self/fd/{folder}/{SERVICE}")
        except OSError:
            self.socket.close()
            raise
        finally:
            os.close(folder)

    def send(self, items):
        self.socket.sendall(frame(items))

    def request(self, key):
        self.number += 1
        self.socket.sendall(frame({key: True}, REQUEST, self.number))
        return self.number

    def hear(self, number):
        """The value of the reply `number`; raises OSError when the connection ends instead."""
        while True:
            while len(self.rest) >= 24:
                length, _, kind, _, answered = struct.unpack_from("=IBBHQ", self.rest)
                if len(self.rest) < length:
                    break
                one, self.rest = self.rest[:length], self.rest[length:]
                if kind == REPLY and answered == number:
                    return bool(one[length - 8])
            more = self.socket.recv(1 << 16)
            if not more:
                raise ConnectionResetError
            self.rest += more

    def ask(self, key=TEST):
        return self.hear(self.request(key))

    def unread(self):
        """Bytes that the helper has not read yet."""
        return struct.unpack("=i", fcntl.ioctl(self.socket, termios.TIOCOUTQ, bytes(4)))[0]

    def close(self):
        self.socket.close()


class Home:
    """A temporary home with its store, its applications and at most one helper."""

    def __init__(self, world):
        self.world, self.helper = world, None
        self.path = Path(tempfile.mkdtemp(prefix="torture.", dir=world.path))
        self.run, self.data = self.path / "run", self.path / "data"
        for folder in (self.run, self.data):
            folder.mkdir(mode=0o700)
        (self.path / "reports").mkdir()
        os.mkfifo(self.path / "hold")
        self.hold = None
        self.plan = Plan(self.path / "plan")

    def app(self, name="Orvin", script=False, executable="Orvin"):
        """The path of an installed main application that does not run. Its program, or that of its script, reports what
        it was born with, and stays while the applications are held."""
        path = self.path / name / "Orvin.app"
        if not path.exists():
            file = path / "Contents/MacOS/Orvin"
            file.parent.mkdir(parents=True)
            plist = self.world.plist.replace("<string>Orvin<", f"<string>{executable}<", 1)
            (path / "Contents/Info.plist").write_text(plist)
            if script:
                file.write_text(f"#!/bin/sh\n{self.world.probe}\nexit\n")
                file.chmod(0o755)
            else:
                os.link(self.world.probe, file)
        return str(path)

    def hold_applications(self):
        self.hold = os.open(self.path / "hold", os.O_RDWR)

    def release_applications(self):
        if self.hold is not None:
            os.close(self.hold)
        self.hold = None

    def reports(self):
        """{pid: what it wrote} of the applications that the helper launched."""
        return {int(file.name.partition("-")[2]): file.read_text()
                for file in (self.path / "reports").glob("report-*")}

    def environment(self, shim):
        own = {"HOME": self.path, "XDG_RUNTIME_DIR": self.run, "XDG_DATA_HOME": self.data,
               "PROBE_REPORT": self.path / "reports/report", "PROBE_HOLD": self.path / "hold"}
        if shim:  # the shim stands before the sanitizers' own library and calls on to it
            own |= {"LD_PRELOAD": self.world.shim, "TORTURE_PLAN": self.plan.path, "ASAN_OPTIONS":
                    "verify_asan_link_order=0:allocator_may_return_null=1:detect_leaks=1:handle_segv=0:handle_sigbus=0"
                    ":handle_sigfpe=0:handle_sigill=0"}
        return os.environ | {name: str(value) for name, value in own.items()}

    def start(self, shim=False, ready=True, before=None):
        """Starts the helper; with `ready` returns a connection on which it has answered, and notes the time."""
        self.errors = open(self.path / "errors", "wb")
        started = time.monotonic()
        self.helper = subprocess.Popen([self.world.helper], env=self.environment(shim), stderr=self.errors,
                                       preexec_fn=before)
        if not ready:
            return None
        link = self.find()
        self.until_reply = time.monotonic() - started
        return link

    def second(self):
        """How one more helper of the same home ends."""
        return subprocess.run([self.world.helper], env=self.environment(False), timeout=PATIENCE).returncode

    def find(self, unless=lambda: False):
        """A connection on which the helper has answered, or none."""
        end = time.monotonic() + PATIENCE
        while True:
            try:
                link = Link(self)
                link.ask()
                return link
            except OSError as error:
                need(self.helper.poll() is None, "the helper ended with", self.helper.returncode, self.complaint())
                need(time.monotonic() < end, "no answer:", error)
                if unless():
                    return None
                time.sleep(0.002)

    def rests(self):
        """True when it has started and nothing in it runs."""
        return self.alive() and self.fact("Threads") > 2 and self.idle()

    def complaint(self):
        return (self.path / "errors").read_text(errors="replace")[-3000:]

    def end(self, number=signal.SIGTERM, patience=PATIENCE):
        """Ends the helper; its status, negative for a signal."""
        self.helper.send_signal(number)
        return self.awaited(patience)

    def awaited(self, patience=PATIENCE):
        try:
            return self.helper.wait(patience)
        except subprocess.TimeoutExpired:
            return "none"

    def orderly(self):
        status = self.end()
        need(status == 0, "SIGTERM gave", status, self.complaint())

    def alive(self):
        return self.helper.poll() is None

    def survived(self, what):
        if not self.alive():
            raise Trouble(f"{what}: the helper ended with {self.helper.returncode} {self.complaint()}")

    def idle(self, *links):
        """True when nothing of `links` is unread and no thread runs, twice in a row."""
        for _ in range(2):
            if any(link.unread() for link in links):
                return False
            try:
                for task in Path(f"/proc/{self.helper.pid}/task").iterdir():
                    if (task / "stat").read_text().rpartition(")")[2].split()[0] not in "SZ":
                        return False
            except OSError:
                return not self.alive()
        return True

    def settle(self, *links):
        until(lambda: self.idle(*links), "the helper does not come to rest")

    def fact(self, name):
        """A line of the helper's status as a number: "VmRSS" in KiB, "Threads"."""
        text = Path(f"/proc/{self.helper.pid}/status").read_text()
        return int(text.split(name + ":")[1].split()[0])

    def descriptors(self):
        return len(os.listdir(f"/proc/{self.helper.pid}/fd"))

    def children(self):
        tasks = Path(f"/proc/{self.helper.pid}/task").iterdir()
        return [child for task in tasks for child in (task / "children").read_text().split()]

    def processor_time(self):
        fields = Path(f"/proc/{self.helper.pid}/stat").read_text().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    @property
    def store(self):
        return self.data / FOLDER / "defaults.sqlite3"

    def forget(self):
        shutil.rmtree(self.data / FOLDER, ignore_errors=True)

    def stored(self, vanished=()):
        """The schedules on disk, {(path, name): Schedule}; checks the file, and that index and records agree, but for
        the keys of `vanished` applications, which loading leaves in the index without a record."""
        if not self.store.exists():
            return {}
        need(not list(self.store.parent.glob("*.set-aside-*")), "a sound store was set aside")
        database = sqlite3.connect(f"file:{self.store}?mode=ro", uri=True, timeout=10)
        try:
            database.execute("BEGIN")  # all of it as it is at one moment
            health = database.execute("PRAGMA integrity_check").fetchall()
            need(health == [("ok",)], "integrity:", health)
            if not database.execute("SELECT 1 FROM sqlite_schema").fetchone():
                return {}
            with_rows = {}
            for key, name, value in database.execute("SELECT key, name, value FROM entries"):
                with_rows.setdefault(key, {})[name] = value
            index = [row[0] for row in database.execute("SELECT value FROM members ORDER BY position")]
        finally:
            database.close()
        left = set(index) - set(with_rows)
        need(len(set(index)) == len(index) and set(with_rows) <= set(index) and
             all(key.startswith(tuple(PREFIX + path for path in vanished)) for key in left),
             "index and records differ:", index, list(with_rows))
        return {(row["APP_PATH"], row["SKED_NAME"]): Schedule(row["START_TIME"], bool(row["IS_DAILY"]),
                                                              row["WEEKDAY_MASK"]) for row in with_rows.values()}

    def close(self):
        self.release_applications()
        if self.helper is not None and self.alive():
            self.helper.kill()
            self.helper.wait()
        shutil.rmtree(self.path, ignore_errors=True)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()


class Plan:
    """What the shim is to do; see there."""
    fields = ("kind", "left", "sticky", "deed", "number", "from_load", "seen", "hits")

    def __init__(self, path):
        self.path = path
        path.write_bytes(bytes(64))
        self.file = open(path, "r+b", buffering=0)

    def __call__(self, kind, left, sticky=False, deed=FAIL, number=0, from_load=False):
        self.clear()
        os.pwrite(self.file.fileno(), struct.pack("=7q", left, sticky, deed, number, from_load, 0, 0), 8)
        os.pwrite(self.file.fileno(), struct.pack("=q", kind), 0)

    def resume(self, kind):
        os.pwrite(self.file.fileno(), struct.pack("=q", kind), 0)

    def clear(self):
        """No further call is meant; how many were."""
        os.pwrite(self.file.fileno(), struct.pack("=q", NONE), 0)
        return self.get("hits")

    def get(self, field):
        return struct.unpack("=q", os.pread(self.file.fileno(), 8, 8 * self.fields.index(field)))[0]


class World:
    """All homes, and the main application that runs while they last, for otherwise no helper offers its service."""

    def __init__(self, build):
        self.helper = build / "app/schedulehelper"
        self.sanitized = b"__asan_init" in self.helper.read_bytes()
        self.shim = build / "tests/torture/libtorture_shim.so"
        bundle = build / "examples/Orvin/script/Orvin.app"
        self.plist = (bundle / "Contents/Info.plist").read_text()
        self.path = Path(tempfile.mkdtemp(prefix="torture."))
        self.probe = shutil.copy2(build / "tests/platform/launched_probe", self.path / "probe")
        shutil.copytree(bundle, self.path / "Running/Orvin.app")
        self.start_orvin()

    def start_orvin(self):
        self.orvin = subprocess.Popen([self.path / "Running/Orvin.app/Contents/MacOS/Orvin"],
                                      env=os.environ | {"ORVIN_STAY": "100000", "ORVIN_HELLO": "/dev/null"})
        until(lambda: b"Orvin.app" in Path(f"/proc/{self.orvin.pid}/cmdline").read_bytes(),
              "the main application does not start")

    def end_orvin(self):
        self.orvin.kill()
        self.orvin.wait()

    def close(self):
        self.end_orvin()
        shutil.rmtree(self.path, ignore_errors=True)
