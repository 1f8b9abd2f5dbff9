#!/usr/bin/env python3
"""The helper as it ships, with real processes, sockets and a store on disk: e2e_test.py BUILD_FOLDER.

What it does under load, under signals and across restarts is asked by tests/torture, whose vocabulary this one speaks;
its replies, by the tests of app/ and of schedulectl.
"""
import os
import shutil
import subprocess
import sys
import time
import unittest
from pathlib import Path

sys.path.append(str(Path(__file__).parent.parent / "torture"))
from world import FAR, QUESTION, SERVICE, SHUTDOWN, Home, World, add, until

BUILD = Path(sys.argv[1]).resolve()
GONE = "/nonexistent/Orvin.app"


class EndToEnd(unittest.TestCase):
    """A clean home, and the main application, which runs elsewhere as a script."""

    def setUp(self):
        self.world = World(BUILD)
        self.addCleanup(self.world.close)
        self.home = Home(self.world)
        self.addCleanup(self.home.close)

    def install(self, bundle):
        return shutil.copytree(BUILD / "examples/Orvin" / bundle, self.home.path / "Applications/Orvin.app")

    def leave_a_schedule(self):
        link = self.home.start()
        link.send(add(GONE, "kept", FAR))
        link.send({SHUTDOWN: True})
        self.assertEqual(0, self.home.awaited())

    def test_a_due_schedule_starts_the_application_once(self):
        bundle, hello = self.install("script/Orvin.app"), self.home.path / "hello"
        os.environ.update(ORVIN_HELLO=str(hello), ORVIN_STAY="1")
        link, due = self.home.start(), int(time.time()) + 2
        link.send(add(str(bundle), "soon", due))
        until(lambda: hello.exists() and hello.read_text(), "it does not start")
        until(lambda: link.ask(QUESTION), "it stays armed")
        self.assertEqual({(str(bundle), "soon")}, set(self.home.stored()), "fired, and kept on record")
        (line,) = hello.read_text().splitlines()
        self.assertGreaterEqual(int(line.split()[-1]), due)

    def test_no_service_is_offered_when_the_application_does_not_run(self):
        self.leave_a_schedule()
        offer = self.home.run / "mach-services" / SERVICE
        offer.unlink(missing_ok=True)
        self.world.end_orvin()
        self.home.start(ready=False)
        until(lambda: not self.home.stored({GONE}), "it does not load")
        until(self.home.rests, "it does not come to rest")
        self.assertFalse(offer.exists())
        self.world.start_orvin()  # too late for this run
        until(self.home.rests, "it does not come to rest")
        self.assertFalse(offer.exists())

    def test_a_burst_is_stored_whole_though_its_sender_is_gone(self):
        program = self.install("Orvin.app") / "Contents/MacOS/Orvin"
        self.home.start()
        subprocess.run([program, "add-many", "5000", "burst", "+1000000"], env=self.home.environment(False),
                       timeout=120, check=True)
        until(lambda: len(self.home.stored()) == 5000, "not all are stored")
        self.home.orderly()
        self.assertEqual({f"burst{i}" for i in range(1, 5001)}, {name for _, name in self.home.stored()})

    def test_an_old_system_is_refused_and_the_store_kept(self):
        self.leave_a_schedule()
        self.world.helper = BUILD / "tests/e2e/old_system_helper"
        self.home.start(ready=False)
        self.assertEqual(0, self.home.awaited())
        self.assertEqual({(GONE, "kept")}, set(self.home.stored()), "loading would have removed it")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2, warnings="ignore")  # a home leaves its files to the collector
