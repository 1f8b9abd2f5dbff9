#!/usr/bin/env python3
"""Torments the helper as it was built and prints goal, figure and verdict of each mode.

    torture.py BUILD_FOLDER [--quick] [MODE...]

Of the helper nothing is changed: requests come over its socket, faults from the shim that is loaded before its
libraries, deaths from the kernel. Returns 1 when a goal was missed. With --quick the counts are small, and of the times
only the bound on an ending is asserted, the others need a machine of their own; what was cut is "met, short".
"""
import argparse
import contextlib
import errno
import os
import random
import resource
import shutil
import signal
import socket
import statistics
import sys
import threading
import time
import traceback
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

from world import (ALLOCATION, BOUND, DESCRIPTOR, DIE, DIE_HALFWAY, FAIL, FAR, FAULT, FOLDER, HALF, LOCK, QUESTION,
                   RAISE, REQUEST, SERVICE, SHUTDOWN, STORE, TEST, Home, Link, Trouble, World, add, delete, delete_all,
                   expected, frame, need, until)

MODES = {}


def mode(goal):
    def register(function):
        MODES[function.__name__] = (goal, function)
        return function
    return register


class Run:
    """What a mode may do: how often, whether times count, and a source of chance that can be repeated."""

    def __init__(self, world, quick, seed):
        self.world, self.quick, self.random = world, quick, random.Random(seed)
        self.verdict = "met"

    def cut(self):
        """True when counts are small and bounds are not asserted, which the verdict then tells."""
        self.verdict = "met, short" if self.quick else self.verdict
        return self.quick

    def times(self, whole, quick):
        return quick if self.cut() else whole

    def bound(self, what, measured, limit):
        need(self.cut() or measured <= limit, f"{what} {measured:.3f}, more than {limit}")

    def home(self):
        return Home(self.world)


# ---- Killed at random moments

class Writer(threading.Thread):
    """One client: sends changes of its own application's schedules until its connection breaks."""

    def __init__(self, home, path, chance):
        super().__init__()
        self.link, self.path, self.chance = Link(home), path, chance
        self.sent, self.acknowledged = [], 0

    def change(self):
        name = f"s{self.chance.randrange(12)}"
        draw = self.chance.random()
        if draw < 0.02:
            return delete_all(self.path)
        if draw < 0.3:
            return delete(self.path, name)
        return add(self.path, name, FAR + self.chance.randrange(10**8), self.chance.random() < 0.3,
                   self.chance.randrange(128))

    def run(self):
        try:
            while True:
                for _ in range(self.chance.randrange(1, 5)):
                    self.sent.append(self.change())
                    self.link.send(self.sent[-1])
                self.link.ask()
                self.acknowledged = len(self.sent)
        except OSError:
            self.link.close()

    def explain(self, before, found):
        """`found` has to be what some number of the changes make of `before`, the acknowledged ones at least."""
        state, ways = before, []
        for done in range(len(self.sent) + 1):
            if done >= self.acknowledged:
                ways.append(state)
                if state == found:
                    return
            if done < len(self.sent):
                state = expected(state, self.sent[done])
        missing = sorted(set(ways[0]) - set(found)), sorted(set(found) - set(ways[0]))
        raise Trouble(f"none of {len(ways)} ways leads to the store; lost, back:", *missing)


def own(state, path):
    return {key: value for key, value in state.items() if key[0] == path}


@mode("3,000 kills, 30,000 acknowledged changes: none lost, none back; 250 ms to a reply with 1,000 schedules")
def crash(run):
    acknowledged, cycles = 0, run.times(3000, 40)
    with run.home() as home:
        paths = [home.app(f"App{i}") for i in range(4)]
        home.start().close()
        state = {}
        for _ in range(cycles):
            writers = [Writer(home, path, random.Random(run.random.random())) for path in paths]
            for writer in writers:
                writer.start()
            time.sleep(run.random.random() * 0.08)
            home.end(signal.SIGKILL)
            for writer in writers:
                writer.join()
            home.start().close()
            found = home.stored()
            for writer in writers:
                writer.explain(own(state, writer.path), own(found, writer.path))
                acknowledged += writer.acknowledged
            need(set(found) <= {key for key in found if key[0] in paths}, "schedules of nobody:", found)
            state = found
        slowest = restarts(run, home, paths[0])
    need(run.quick or acknowledged >= 30000, "only", acknowledged, "acknowledged")
    return f"{cycles} kills, {acknowledged} acknowledged, 0 lost, 0 back; restart at most {slowest * 1000:.0f} ms"


def restarts(run, home, path):
    link = home.find()
    for i in range(1000):
        link.send(add(path, f"many{i}", FAR + i))
    link.ask()
    link.close()
    measured = []
    for _ in range(run.times(20, 3)):
        home.end(signal.SIGKILL)
        home.start().close()
        measured.append(home.until_reply)
    need(len(home.stored()) >= 1000, "schedules are missing")
    run.bound("restart", max(measured), 0.25)
    return max(measured)


# ---- Dead at the k-th call

def changes(home):
    """The operations that the following modes disturb, each with the state that it starts from."""
    path, gone = home.app(), str(home.path / "Gone/Orvin.app")
    many = [add(path, f"s{i}", FAR + i, daily=i == 1, mask=i) for i in range(3)]
    return {"add": (many, add(path, "new", FAR, mask=5)),
            "first": ([], add(path, "new", FAR)),
            "replace": (many, add(path, "s1", FAR + 99)),
            "delete": (many, delete(path, "s1")),
            "delete all": (many, delete_all(path)),
            "load": (many + [add(gone, "gone", FAR)], None)}


def prepare(home, first):
    """A helper's work in a clean store; the state that it leaves."""
    home.forget()
    state = {}
    link = home.start()
    for request in first:
        link.send(request)
        state = expected(state, request)
    link.ask()
    link.close()
    home.orderly()
    need(home.stored() == state, "the preparation left", home.stored())
    shutil.rmtree(home.path / "prepared", ignore_errors=True)
    shutil.copytree(home.store.parent, home.path / "prepared")
    return state


def restore(home):
    home.forget()
    shutil.copytree(home.path / "prepared", home.store.parent)


@mode("dead at every k-th file call of an operation, before it and halfway through it: old or new, nothing else")
def whitebox(run):
    trials, deaths = 0, []
    with run.home() as home:
        for name, (first, request) in changes(home).items():
            before = prepare(home, first)
            gone = {key for key in before if "Gone" in key[0]}
            after = expected(before, request) if request else {k: v for k, v in before.items() if k not in gone}
            for deed in (DIE, DIE_HALFWAY):
                k = run.random.randrange(1, 4) if run.quick else 1
                while die_at(home, k, deed, request):
                    home.start().close()
                    allowed = [after] if request is None else [before, after]
                    found = home.stored({key[0] for key in gone})
                    need(found in allowed, name, "died at", k, "left", found)
                    home.orderly()
                    trials += 1
                    k += run.times(1, 4)
                deaths.append(k)
    return f"{trials} deaths in {len(deaths)} sweeps of up to {max(deaths) - 1} calls, 0 violations"


def die_at(home, k, deed, request):
    """True when the helper died at its k-th call, false when the operation has fewer."""
    restore(home)
    if request is None:
        home.plan(STORE, k, deed=deed)
        try:
            home.start(shim=True).close()
        except Trouble:
            need(home.awaited() == 77, "died with", home.helper.returncode, home.complaint())
            return True
    else:
        link = home.start(shim=True)
        home.plan(STORE, k, deed=deed)
        try:
            link.send(request)
            link.ask()
        except OSError:
            need(home.awaited() == 77, "died with", home.helper.returncode, home.complaint())
            return True
        finally:
            link.close()
    home.plan.clear()
    home.orderly()
    return False


# ---- No memory

def answered(home, link, *requests):
    """Sends and waits for the answer to a test, until the helper rests without one or leaves it unread for long."""
    end = time.monotonic() + 0.5
    try:
        for request in requests:
            link.send(request)
        number = link.request(TEST)
        link.socket.settimeout(0.002)
        while True:
            try:
                link.hear(number)
                return True
            except TimeoutError:
                if home.idle(link) or time.monotonic() > end:
                    return False
    except OSError:
        return False


def sweep(home, kind, disturb, check, step=1, limit=100000, **plan):
    """Runs `disturb` with the 1st, 2nd ... call of `kind` failing until it has fewer; how often one failed."""
    k, failures = 1, 0
    while k < limit:
        home.plan(kind, k, **plan)
        disturb()
        hits = home.plan.clear()
        home.survived(f"call {k}")
        check(k)
        if hits == 0:
            break
        k, failures = k + step, failures + 1
    return failures


@mode("k-th allocation fails, once and from k on, in operations, load, decode, reply, accept, fire, launch: no crash, "
      "no leak, old or new, the next operation works; a one-off that is due still fires")
def memory(run):
    total, step = 0, run.times(1, 5)
    with run.home() as home:
        for name, (first, request) in changes(home).items():
            if request is None:
                continue
            before = prepare(home, first)
            after = expected(before, request)
            for sticky in (False, True):
                restore(home)
                own_step = step * 7 if name == "first" else step  # opening a store asks a thousand times
                total += starve(home, first, request, before, after, sticky, own_step, name)
        total += starve_load(home, run)
        total += starve_accept(home, step)
    firings = deprive_firing(run, ALLOCATION, run.times(1, 13))
    return f"{total} failures in operations, load and accept, {firings} in firing and launching; no leak at the end"


def starve(home, first, request, before, after, sticky, step, name):
    state = {"link": home.start(shim=True)}

    def disturb():
        if name == "first":
            state["link"].close()
            home.orderly()
            restore(home)
            state["link"] = anew(home)
        answered(home, state["link"], request)
        home.settle(state["link"])

    def check(k):
        calm = home.find()
        calm.send(delete(home.app(), "nothing of this name"))  # flushes what is pending
        empty = calm.ask(QUESTION)
        found = home.stored()
        need(found in (before, after), f"{name} {'from' if sticky else 'at'} {k}: stored", found)
        need(empty == (not found), f"{name} at {k}: memory and store disagree")
        calm.send(delete_all(home.app()))
        for each in first:
            calm.send(each)
        calm.ask()
        need(home.stored() == before, f"{name} at {k}: the next operations left", home.stored())
        state["link"].close()
        state["link"] = calm

    reached = sweep(home, ALLOCATION, disturb, check, step, sticky=sticky)
    home.orderly()
    return reached


def starve_load(home, run):
    """A start without memory serves, or idles without a service, or ends with 1; nothing is lost whatever it comes to,
    nor by what is added afterwards."""
    path, trials, k, hits = home.app(), 0, 1, 1
    before = prepare(home, [add(path, f"s{i}", FAR + i) for i in range(3)])
    while hits:
        restore(home)
        home.plan(ALLOCATION, k, from_load=True)
        home.start(shim=True, ready=False)
        state, link = before, None
        try:
            link = home.find(unless=lambda: home.plan.get("hits") and home.rests())
            hits = home.plan.clear()
            if link is not None:
                link.send(add(path, "later", FAR))
                link.ask()
                link.close()
                state = expected(before, add(path, "later", FAR))
        except Trouble:
            hits = home.plan.clear()
        need(link or hits, "no start, with all the memory")
        status = home.end()  # it may be about to end by itself
        need(status in (0, 1), "a start without memory gave", status, home.complaint())
        home.start().close()
        need(home.stored() == state, f"load at {k}: stored", home.stored())
        home.orderly()
        trials, k = trials + 1, k + run.times(1, 40)
    return trials


def starve_accept(home, step):
    home.forget()
    home.start(shim=True).close()

    def disturb():
        link = Link(home)
        answered(home, link)
        home.settle(link)
        link.close()

    reached = sum(sweep(home, ALLOCATION, disturb, lambda k: home.find().close(), step, 500, sticky=sticky)
                  for sticky in (False, True))
    home.orderly()
    return reached


def deprive_firing(run, kind, step, number=0):
    """The k-th call of `kind` fails while a one-off fires and launches: it fires whatever becomes of the launch, and
    the next one launches. Each k has a home of its own, since each waits for its second; how many were tried."""
    def trial(each):
        k, sticky = each
        with run.home() as home:
            link, path = home.start(shim=True), home.app()
            home.hold_applications()
            link.send(due(path, "a"))
            need(not link.ask(QUESTION), "nothing is armed")
            home.settle(link)
            home.plan(kind, k, sticky=sticky, number=number)
            until(lambda: home.plan.get("seen"), "nothing fires")
            home.settle(link)
            calls, hits = home.plan.get("seen"), home.plan.clear()
            home.survived(f"firing at call {k}")
            await_firings(link)
            need(hits or k > calls, "call", k, "of", calls, "did not fail")
            if hits == 0:
                await_launches(home, 1)
            link.send(due(path, "b"))
            link.ask()
            await_firings(link)
            await_launches(home, 1)
            need(len(home.reports()) == 1, "launched twice")
            home.orderly()
            return calls

    usual = trial((10**9, False))
    side_by_side([(k, sticky) for sticky in (False, True) for k in range(1, usual + 1, step)], trial, 24)
    return 2 * len(range(1, usual + 1, step))


# ---- A failing disk

TROUBLES = [(STORE, errno.ENOSPC, FAIL), (STORE, errno.EIO, FAIL), (STORE, errno.EACCES, FAIL),
            (STORE, errno.EROFS, FAIL), (STORE, 0, HALF), (LOCK, errno.EAGAIN, FAIL)]


@mode("ENOSPC, EIO, EACCES, EROFS, short write, busy at the k-th store call: lives; stored once repaired")
def disk(run):
    trials = 0
    with run.home() as home:
        for name, (first, request) in changes(home).items():
            if request is None:
                continue
            before = prepare(home, first)
            for kind, number, deed in TROUBLES[:: run.times(1, 2)]:
                for sticky in (False, True):
                    restore(home)
                    trials += spoil(home, name, first, request, before, run.times(1, 3),
                                    kind=kind, number=number, deed=deed, sticky=sticky)
        loads = spoil_load(home, run)
    return f"{trials} failures, {loads} in loading, 0 exits, everything stored and held by the next flush"


def anew(home):
    """Starts the helper with the plan out of force meanwhile."""
    kind = home.plan.get("kind")
    home.plan.clear()
    link = home.start(shim=True)
    home.plan.resume(kind)
    return link


def spoil(home, name, first, request, before, step, kind, **plan):
    link, after = home.start(shim=True), expected(before, request)

    def disturb():
        nonlocal link
        if name == "first":  # a helper that has yet to make and open its store
            link.close()
            home.orderly()
            restore(home)
            link = anew(home)
        link.send(request)
        need(link.ask(), "no answer")

    def check(k):
        link.send(delete(home.app(), "nothing of this name"))
        link.ask()
        need(home.stored() == after, f"{name}, {plan} at {k}: stored", home.stored())
        link.send(delete_all(home.app()))
        for each in first:
            link.send(each)
        link.ask()
        need(home.stored() == before, f"{name}, {plan} at {k}: then stored", home.stored())

    reached = sweep(home, kind, disturb, check, step, **plan)
    link.close()
    home.orderly()
    return reached


def spoil_load(home, run):
    """A start that cannot read the store serves all the same, and the next operation finds everything. One that cannot
    see the main application idles without a service."""
    path, trials = home.app(), 0
    before = prepare(home, [add(path, f"s{i}", FAR + i) for i in range(3)])
    for kind, number, deed in TROUBLES:
        for sticky in (False, True):
            k, hits = 1, 1
            while hits:
                restore(home)
                home.plan(kind, k, from_load=True, number=number, deed=deed, sticky=sticky)
                home.start(shim=True, ready=False)
                link = home.find(unless=lambda: home.plan.get("hits") and home.rests())
                hits = home.plan.clear()
                home.survived(f"load, call {k}")
                if link is None:
                    home.orderly()
                    link = home.start()
                link.send(delete(path, "nothing of this name"))
                need(not link.ask(QUESTION), f"{number}, {deed}, {sticky} at {k} of loading: nothing is held")
                need(home.stored() == before, f"{number}, {deed}, {sticky} at {k} of loading: stored", home.stored())
                link.close()
                home.orderly()
                trials, k = trials + 1, k + run.times(1, 9)
    return trials


# ---- Asked to end

def loaded_helper(home, busy):
    """A helper under load from `busy` writers."""
    home.start().close()
    writers = [Writer(home, home.app(f"App{i}"), random.Random(i)) for i in range(busy)]
    for writer in writers:
        writer.start()
    return writers


@mode("SIGTERM, SIGINT, 1 to 50 at once, shutdown requests from 4 clients, both, under load: status 0, 2.5 s at worst")
def ending(run):
    def shut(link):
        try:
            link.send({SHUTDOWN: True})
        except OSError:
            pass  # another was quicker

    taken = []
    with run.home() as home:
        for trial in range(run.times(2000, 40)):
            writers = loaded_helper(home, 4)
            links = [Link(home) for _ in range(4)]
            time.sleep(run.random.random() * 0.02)
            started = time.monotonic()
            if trial % 3 != 1:
                for _ in range(run.random.randrange(1, 51)):
                    os.kill(home.helper.pid, run.random.choice((signal.SIGTERM, signal.SIGINT)))
            if trial % 3 != 0:
                for link in links:
                    shut(link)
            status = home.awaited(BOUND + 5)
            taken.append(time.monotonic() - started)
            need(status == 0, f"trial {trial}: status", status)
            need(taken[-1] <= BOUND, f"trial {trial}: {taken[-1]:.2f} s")
            for writer in writers:
                writer.join()
            for link in links:
                link.close()
    usual = sorted(taken)[int(len(taken) * 0.99) - 1]
    run.bound("99 % end within", usual, 0.1)
    return f"{len(taken)} trials, all status 0; 99 % within {usual * 1000:.0f} ms, worst {max(taken) * 1000:.0f} ms"


# ---- Faults

def side_by_side(rows, work, most=8):
    with ThreadPoolExecutor(most) as pool:
        return list(pool.map(work, rows))


@mode("SIGSEGV, SIGBUS, SIGFPE sent or raised, a lock held: 154 within 2.5 s; SIGQUIT absorbed; SIGILL; no spinning")
def faults(run):
    kinds = (signal.SIGSEGV, signal.SIGBUS, signal.SIGFPE)

    def ends(home, wanted, what):
        started = time.monotonic()
        status = home.awaited(BOUND + 5)
        need(status == wanted and time.monotonic() - started <= BOUND, what, "gave", status, "after",
             round(time.monotonic() - started, 2))
        return time.monotonic() - started

    def raise_in(home, link, number, kind):
        home.plan(kind, 3, deed=RAISE, number=number)
        link.send(add(home.app(), "fault", FAR))
        until(lambda: home.plan.get("hits"), "no fault is raised")  # a busy disk may keep the calls before it

    def trial(index):
        number, raised, after_quit = kinds[index % 3], index // 3 % 2, index % 7 == 0
        with run.home() as home:
            link = home.start(shim=True)
            if after_quit:
                home.helper.send_signal(signal.SIGQUIT)
                home.settle()
                need(link.ask(), "SIGQUIT is not absorbed")
            if raised:  # in a store call the scheduler's lock is held
                raise_in(home, link, number, STORE if index % 4 < 2 else ALLOCATION)
                return ends(home, -number if after_quit else FAULT, f"raised {number.name}")
            home.helper.send_signal(number)
            if after_quit:
                home.settle()
                need(link.ask(), number.name, "after SIGQUIT is not absorbed")
                home.orderly()
                return 0
            return ends(home, FAULT, f"sent {number.name}")

    def illegal(_):
        with run.home() as home:
            link = home.start(shim=True)
            home.helper.send_signal(signal.SIGILL)
            home.settle()
            need(link.ask(), "a sent SIGILL is not absorbed")
            raise_in(home, link, signal.SIGILL, STORE)
            ends(home, -signal.SIGILL, "raised SIGILL")

    taken = side_by_side(range(run.times(500, 14)), trial)
    side_by_side(range(run.times(20, 2)), illegal)
    with run.home() as home:
        link, quits = home.start(), run.times(1000, 100)
        for _ in range(quits):
            home.helper.send_signal(signal.SIGQUIT)
            need(link.ask(), "SIGQUIT is not absorbed")
        home.orderly()
    return f"{len(taken)} trials, worst {max(taken):.2f} s; {quits} SIGQUIT absorbed; SIGILL as it should"


# ---- Descriptors

def due(path, name, seconds=2):
    return add(path, name, int(time.time()) + seconds)


def await_launches(home, count):
    until(lambda: len(home.reports()) >= count, "fewer launches than", count)


def await_firings(link):
    """The helper may go when it holds no schedule: a one-off leaves once its firing is over."""
    until(lambda: link.ask(QUESTION), "a schedule that is due does not fire")


@mode("32 descriptors and 2,000 connection attempts: lives, launches, idles, serves again in 200 ms, gives all back; "
      "k-th descriptor call fails: lives, serves, fires")
def descriptors(run):
    with run.home() as home:
        path = home.app("Due")
        link = home.start(before=lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (32, 32)))
        link.send(add(path, "opens the store", FAR))
        link.ask()
        home.settle(link)
        at_start = home.descriptors()
        crowd, refused = [], 0
        link.send(due(path, "due", 3))
        for _ in range(run.times(2000, 300)):
            one = socket.socket(socket.AF_UNIX)
            one.setblocking(False)
            folder = os.open(home.run / "mach-services", os.O_PATH)
            try:
                one.connect(f"/proc/self/fd/{folder}/{SERVICE}")
                crowd.append(one)
            except OSError:
                refused += 1
                one.close()
            os.close(folder)
        need(link.ask(), "an old connection is not served")
        before, started = home.processor_time(), time.monotonic()
        await_launches(home, 1)
        load = (home.processor_time() - before) / (time.monotonic() - started)
        run.bound("share of a core", load, 0.05)
        until(lambda: not home.children(), "a child stays")  # its descriptor is the last but 16 here
        for one in crowd:
            one.close()
        started = time.monotonic()
        home.find().close()
        again = time.monotonic() - started
        run.bound("served again after", again, 0.2)
        until(lambda: home.descriptors() <= at_start, "more descriptors than the", at_start, "at the start")
        home.orderly()
        failures = spare(home, run) + deprive_firing(run, DESCRIPTOR, run.times(1, 5), errno.EMFILE)
    return (f"{len(crowd)} connected, {refused} refused, {load * 100:.1f} % of a core, again in {again * 1000:.0f} ms, "
            f"descriptors +-0; {failures} single failures")


def spare(home, run):
    """The k-th call that makes a descriptor fails, in accepting, storing and answering."""
    home.forget()
    home.start(shim=True).close()

    def disturb():
        link = Link(home)
        answered(home, link, add(home.app(), "s", FAR), delete(home.app(), "s"))
        link.close()
        home.settle()

    return sum(sweep(home, DESCRIPTOR, disturb, lambda k: home.find().close(), 1, 60, sticky=sticky, number=number)
               for sticky in (False, True) for number in (errno.EMFILE, errno.ENFILE))


# ---- A client that never reads

@mode("1,000,000 requests by one that never reads, 64 others beside it: +16 MiB, p99 50 ms, only the offender is cut")
def flood(run):
    wanted, sent, cuts, times = run.times(1_000_000, 30_000), 0, 0, []
    burst = frame({TEST: True}, REQUEST, 1) * 500
    with run.home() as home:
        first = home.start()
        links = [Link(home) for _ in range(64)]
        for link in links:
            link.ask()
        before, most, over = home.fact("VmRSS"), 0, threading.Event()

        def behave():
            while not over.is_set():
                for link in links:
                    started = time.monotonic()
                    link.ask()
                    times.append(time.monotonic() - started)

        def offend():
            nonlocal sent, cuts, most
            while sent < wanted:
                offender = Link(home)
                try:
                    while sent < wanted:
                        offender.socket.sendall(burst)
                        sent += 500
                        most = max(most, home.fact("VmRSS"))
                except OSError:
                    cuts += 1
                offender.close()

        good = ThreadPoolExecutor(1)
        task = good.submit(behave)
        offend()
        over.set()
        task.result()
        need(first.ask(), "another was cut")
        need(cuts > 0, "nobody was cut")
        grown, p99 = (most - before) / 1024, statistics.quantiles(times, n=100)[98]
        # sanitizers hold on to memory that was given back
        need(grown <= 16 or run.world.sanitized, f"memory grew by {grown:.1f} MiB")
        run.bound("p99", p99, 0.05)
        home.orderly()
    return (f"{sent} requests, {cuts} cuts, memory +{grown:.1f} MiB, {len(times)} others' answers, "
            f"p99 {p99 * 1000:.1f} ms")


# ---- Damaged frames

def damage(chance, data):
    data = bytearray(data)
    for _ in range(chance.randrange(1, 4)):
        place = chance.randrange(len(data))
        match chance.randrange(4):
            case 0: data[place] = chance.randrange(256)
            case 1: data[place:] = b""
            case 2: data[place:place] = data[chance.randrange(len(data)):][:64]
            case 3: data[place] ^= 1 << chance.randrange(8)
        data = data or bytearray(1)
    return bytes(data)


def vandalize(home, chance, seeds):
    """A connection that sends some damaged frames, or descriptors that nobody asked for; how many it got rid of."""
    bad, count = Link(home), 0
    try:
        for _ in range(chance.randrange(1, 20)):
            data = damage(chance, chance.choice(seeds))
            socket.send_fds(bad.socket, [data], [0] * (chance.randrange(20) if chance.random() < 0.1 else 0))
            count += 1
    except OSError:
        pass  # cut off, as it should be
    bad.close()
    return count


@mode("200,000 damaged frames over a live socket: lives, the well-behaved are served")
def frames(run):
    with run.home() as home:
        good, path, count = home.start(), home.app(), 0
        good.send(add(path, "opens the store", FAR))
        good.ask()
        at_start = home.descriptors()
        seeds = [frame(add(path, "s", FAR, mask=9)), frame(delete(path, "s")), frame(delete_all(path)),
                 frame({TEST: True}, REQUEST, 1), frame({QUESTION: True}, REQUEST, 2)]
        while count < run.times(200_000, 2000):
            count += vandalize(home, run.random, seeds)
            if run.random.random() < 0.1:
                need(good.ask(), "the well-behaved are not served")
        good.send(delete_all(path))
        need(good.ask() and home.alive(), "the helper is gone")
        until(lambda: home.descriptors() <= at_start, home.descriptors(), "descriptors, at the start", at_start)
        home.orderly()
    return f"{count} frames, none harmed it, no descriptor stays"


# ---- Launches

@mode("1,000 launches of binaries and scripts, two schedules together, the helper killed amid them: one process each, "
      "nothing inherited, none harmed by the kill, the lock free, no zombie")
def launches(run):
    rounds, count, killed = run.times(10, 2), run.times(100, 6), 0
    with run.home() as home:
        paths = [home.app(f"App{i}", script=i % 2 == 1) for i in range(count)]
        link = home.start()
        for i in range(rounds):
            home.hold_applications()
            for path in paths:
                link.send(due(path, "a", 3))
                link.send(due(path, "b", 3))
            if i % 2 == 1:
                await_launches(home, run.random.randrange(1, count))
                link, killed = killed_amid(home, link, paths), killed + 1
            await_firings(link)
            await_launches(home, count)
            inspect(home, count)
            home.release_applications()
            until(lambda: not home.children() and not any(map(lives, home.reports())), "an application or zombie stays")
            for pid in home.reports():
                (home.path / f"reports/report-{pid}").unlink()
        home.orderly()
    return f"{rounds * count} processes of {rounds * count * 2} firings, {killed} kills, no zombie, nothing inherited"


def lives(pid):
    """True for no zombie: a killed helper's children are collected by somebody else, or by nobody in a container."""
    try:
        return Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()[0] != "Z"
    except OSError:
        return False


def killed_amid(home, link, paths):
    """Kills the helper while it launches. Those launched live on, and another helper can start and knows them."""
    home.end(signal.SIGKILL)
    link.close()
    launched = list(home.reports())
    link = home.start()
    need(all(map(lives, launched)), "an application ended with the helper")
    for path in paths:
        link.send(delete_all(path))
        link.send(due(path, "again", 3))
    return link


def inspect(home, count):
    """Each application leads a session, blocks and ignores no signal, stands in / and has /dev/null three times."""
    reports = home.reports()
    need(len(reports) == count, len(reports), "processes of", count, "applications")
    wanted = " 0 0 / /dev/null /dev/null /dev/null"
    for pid, text in reports.items():
        need(text in ("leader" + wanted, "script" + wanted), "process", pid, "was born with:", text)


# ---- Strangers

NOBODY = 65534


def tree(*places):
    """All that stands there, links not followed, with whatever a touch would change."""
    def facts(path):
        status = path.lstat()
        return status.st_mode, status.st_uid, status.st_ino, status.st_size, status.st_mtime_ns

    return {str(path): facts(path) for place in places for path in (place, *place.rglob("*"))}


def got_through(attempts):
    """Numbers of the attempts that succeed in a process of another user."""
    pid = os.fork()
    if pid == 0:
        successes = 128
        try:
            os.setgroups([])
            os.setgid(NOBODY)
            os.setuid(NOBODY)
            successes = 0
            for i, attempt in enumerate(attempts):
                with contextlib.suppress(OSError):
                    attempt()
                    successes |= 1 << i
        finally:
            os._exit(successes)
    return os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1])


@mode("peers of another uid, at closed folders and with every folder and the socket opened: refused, the helper lives")
def strangers(run):
    if os.geteuid() != 0:
        run.verdict = "skipped"
        return "other uids are not tried without root"
    with run.home() as home:
        link, services = home.start(), home.run / "mach-services"
        link.send(add(home.app(), "s", FAR))
        link.ask()
        at_start = home.descriptors()

        def shut():
            stranger = Link(home)
            stranger.send({SHUTDOWN: True})
            stranger.ask()

        attempts = [lambda: Link(home).ask(), shut, lambda: os.kill(home.helper.pid, signal.SIGTERM),
                    lambda: open(home.store, "rb"), lambda: open(home.store, "r+b"),
                    lambda: open(services / f"{SERVICE}.lock"), lambda: open(home.store.parent / "instance.lock")]
        for opened in (False, True):
            if opened:
                for place in (run.world.path, home.path, home.run, services, home.data, home.store.parent,
                              services / SERVICE):
                    place.chmod(0o777)
            done = got_through(attempts)
            need(done == 0, "another user got through with attempts", bin(done), "folders opened:", opened)
            need(link.ask() and home.alive(), "the helper is gone")
        run.world.path.chmod(0o700)
        until(lambda: home.descriptors() == at_start, "a stranger's connection stays")
        home.orderly()
    return f"{2 * len(attempts)} attempts, all refused"


def spoilt(at, wrong, outside):
    """Puts something wrong in place of `at`."""
    if not at.exists():
        at.touch()
    match wrong:
        case "link":
            at.rename(outside / at.name)
            at.symlink_to(outside / at.name)
        case "FIFO":
            at.rename(outside / at.name)
            os.mkfifo(at, 0o600)
        case "second name":
            os.link(at, outside / at.name)
        case "mode":
            at.chmod(0o777)
        case "owner":
            os.chown(at, NOBODY, NOBODY)


def wrong_places(run):
    """What is not ours alone is refused: at the socket's places nobody is served, at the store's nothing is stored.
    Only what bears the name of the socket or of the instance's lock is replaced."""
    services, folder = Path("run/mach-services"), Path("data") / FOLDER
    socket_name, store = services / SERVICE, folder / "defaults.sqlite3"
    unserved = (services, services / f"{SERVICE}.lock")
    replaced = (socket_name, folder / "instance.lock")
    kinds = ["link", "FIFO", "mode"] + ["owner"] * (os.geteuid() == 0)
    rows = [(place, wrong) for place in (*unserved, socket_name, folder, folder / "instance.lock", store)
            for wrong in kinds] + [(store, "second name")]

    def trial(row):
        place, wrong = row
        with run.home() as home:
            path, outside, at = home.app(), home.path / "outside", home.path / place
            outside.mkdir()
            link = home.start()
            link.send(add(path, "s", FAR))
            link.ask()
            home.orderly()
            spoilt(at, wrong, outside)
            foreign = [outside, home.path / "Orvin"] + [at] * (place not in replaced)
            before = tree(*foreign), os.listdir(home.path)
            home.start(ready=False)
            if place in unserved:
                until(home.rests, wrong, "of", at, "keeps the helper busy")
                with contextlib.suppress(OSError):
                    Link(home)
                    raise Trouble(f"{wrong} of {at}: served all the same")
            else:
                link = home.find()
                link.send(add(path, "new", FAR))
                need(link.ask() and not link.ask(QUESTION), wrong, "of", at, "keeps a schedule out of memory")
                need(place != replaced[1] or home.second() == 0, wrong, "of", at, "lets two helpers run")
            home.survived(f"{wrong} of {at}")
            home.orderly()
            need(before == (tree(*foreign), os.listdir(home.path)), wrong, "of", at, "is touched")

    side_by_side(rows, trial)
    return len(rows)


def bundles(run):
    """Schedules of bundles that name a program outside, or none, or have no sound list, and of one that is as it should
    be: that one alone is launched."""
    names = ["../MacOS/Orvin", "./Orvin", "sub/Orvin", "../../../../../probe", str(run.world.probe), "..", ".", "",
             "Missing"]
    with run.home() as home:
        paths = [Path(home.app(f"Name{i}", executable=name)) for i, name in enumerate(names)]
        (paths[2] / "Contents/MacOS/sub").mkdir()
        os.link(run.world.probe, paths[2] / "Contents/MacOS/sub/Orvin")

        def bad(name, file, make):
            paths.append(Path(home.app(name)))
            (paths[-1] / "Contents" / file).unlink()
            make(paths[-1] / "Contents" / file)

        bad("Linked", "MacOS/Orvin", lambda file: file.symlink_to(run.world.probe))
        bad("Folder", "MacOS/Orvin", lambda file: file.mkdir())
        bad("Plain", "MacOS/Orvin", lambda file: file.write_text("#!/bin/sh\n" + str(run.world.probe)))
        bad("Fifo", "Info.plist", os.mkfifo)
        bad("NoFile", "Info.plist", lambda file: file.mkdir())
        bad("Device", "Info.plist", lambda file: file.symlink_to("/dev/zero"))
        bad("Huge", "Info.plist", lambda file: file.write_text(run.world.plist + " " * (1 << 20)))
        bad("Deep", "Info.plist", lambda file: file.write_text(run.world.plist.replace(
            "</dict>", "<key>k</key>" + "<array>" * 9999 + "</array>" * 9999 + "</dict>")))
        link = home.start()
        home.hold_applications()
        before = tree(*(path.parent for path in paths))
        for path in (*paths, home.app()):
            link.send(due(str(path), "s", 3))
        need(not link.ask(QUESTION), "nothing is armed")
        await_firings(link)
        await_launches(home, 1)
        need(len(home.children()) == 1 and len(home.reports()) == 1, "launched", home.children())
        need(before == tree(*(path.parent for path in paths)), "a bundle is touched")
        home.orderly()
    return len(paths)


@mode("links, wrong owners and modes at socket, lock and store, programs outside their bundle, a FIFO as Info.plist: all "
      "refused, the helper lives, nothing outside its own folders is touched")
def places(run):
    run.verdict = "met" if os.geteuid() == 0 else "met, short"  # others cannot change owners
    return f"{wrong_places(run)} wrong places, {bundles(run)} wrong bundles, all refused"


# ---- Everything at once, for long

@mode("everything mixed, 5 minutes: 1,000,000 requests, resident size drifts by 1 MiB at most after warm-up, "
      "descriptors +-0, threads bounded")
def soak(run):
    seconds, warm, over = run.times(300, 4), run.times(60, 1), threading.Event()
    calm = frame({TEST: True}, REQUEST, 2**40) * 96
    vandal = []

    def keep(path, chance):
        """Changes and many questions; in the end the store has to hold what they make."""
        writer, state = Writer(home, path, chance), {}
        while not over.wait(0.01):
            for _ in range(4):
                request = writer.change()
                state = expected(state, request)
                writer.link.send(request)
            writer.link.socket.sendall(calm)
            writer.link.ask()
            writer.acknowledged += 101
        writer.link.close()
        need(own(home.stored(), path) == state, "the store holds", own(home.stored(), path))
        return writer.acknowledged

    def come_and_go(chance):
        count = 0
        while not over.wait(0.005):
            link = Link(home)
            link.ask()
            link.close()
            count += 1 + vandalize(home, chance, vandal)
        return count

    def never_read():
        count = 0
        while not over.wait(1):
            link = Link(home)
            with contextlib.suppress(OSError):
                for _ in range(100):
                    link.socket.sendall(calm)
                    count += 96
            link.close()
        return count

    def launch():
        link, count = Link(home), 0
        while not over.wait(3):
            for i in range(4):
                link.send(due(home.app(f"Due{i}", script=i % 2 == 1), "s", 1))
            link.ask()
            count += 5
        link.send(delete_all(home.app("Due0")))
        link.close()
        return count

    with run.home() as home:
        kept = [home.app(f"App{i}") for i in range(4)]
        vandal += [frame(delete(home.app("Vandal"), "s")), frame({TEST: True}, REQUEST, 1),
                   frame({QUESTION: True}, REQUEST, 2)]
        link = home.start()
        link.send(add(kept[0], "opens the store", FAR))
        link.send(delete_all(kept[0]))
        link.ask()
        link.close()
        home.settle()
        at_start, sizes, threads, started = home.descriptors(), [], [], time.monotonic()
        with ThreadPoolExecutor(7) as pool:
            tasks = [pool.submit(keep, path, random.Random(run.random.random())) for path in kept]
            tasks += [pool.submit(come_and_go, random.Random(run.random.random()))]
            tasks += [pool.submit(never_read), pool.submit(launch)]
            while time.monotonic() < started + seconds and home.alive() and not any(task.done() for task in tasks):
                time.sleep(0.1)
                sizes.append(home.fact("VmRSS"))
                threads.append(home.fact("Threads"))
            over.set()
            requests = sum(task.result() for task in tasks)
        until(lambda: home.descriptors() == at_start and not home.children(), home.descriptors(), "descriptors left of",
              at_start)
        home.orderly()
    window = len(sizes) * (seconds - warm) // seconds // 10
    first = statistics.mean(sizes[len(sizes) * warm // seconds:][:window])
    drift = (statistics.mean(sizes[-window:]) - first) / 1024
    need(run.quick or requests >= 1_000_000, "only", requests, "requests")
    need(run.quick or run.world.sanitized or abs(drift) <= 1, f"the resident size drifts by {drift:.2f} MiB")
    need(max(threads) <= 12, max(threads), "threads")
    return (f"{requests} requests in {seconds} s, drift {drift:+.2f} MiB of {first / 1024:.1f}, descriptors +-0, "
            f"{max(threads)} threads at most")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("build", type=Path)
    parser.add_argument("modes", nargs="*", help="all when none is given: " + ", ".join(MODES))
    parser.add_argument("--quick", action="store_true")
    parser.add_argument("--seed", type=int, default=5)
    arguments = parser.parse_intermixed_args()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))  # and every helper ends with us
    world, missed = World(arguments.build.resolve()), 0
    try:
        for name in arguments.modes or MODES:
            goal, function = MODES[name]
            started, run = time.monotonic(), Run(world, arguments.quick, arguments.seed)
            try:
                figure, verdict = function(run), run.verdict
            except Exception as trouble:  # the other modes run whatever it was
                if not isinstance(trouble, Trouble):
                    traceback.print_exc()
                figure, verdict = " ".join(str(word) for word in trouble.args).replace("\n", " "), "MISSED"
                missed += 1
            print(f"{name} | {goal} | {figure} | {verdict} | {time.monotonic() - started:.0f} s", flush=True)
    finally:
        world.close()
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
