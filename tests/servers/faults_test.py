"""The agent over a bad network: a proxy between it and a real store breaks what passes."""
import hashlib
import json
import os
import re
import time
import unittest

from fault_proxy import Fault, FaultProxy
from store import StoreCase, port

MIB = 1 << 20


def digest(path):
    with open(path, "rb") as file:
        return hashlib.file_digest(file, "sha256").hexdigest() if hasattr(hashlib, "file_digest") else hashlib.sha256(
            file.read()).hexdigest()


class Faults(StoreCase):
    def through(self, plan, seed=1):
        """Sends the agent through a proxy from now on."""
        proxy = FaultProxy(port(), plan, seed)
        self.addCleanup(proxy.stop)
        self.environment["CLOUDBACKUP_REPO"] = self.location(proxy.port)
        return proxy

    def directly(self):
        self.environment["CLOUDBACKUP_REPO"] = self.location(port())

    def random_file(self, mib):
        with open(self.source / "data", "wb") as file:
            for _ in range(mib):
                file.write(os.urandom(MIB))

    def round_trip(self):
        """What the backup warned of."""
        warnings = self.run_agent("backup", self.source)[1]
        target = self.restore("latest")
        self.assertEqual(digest(f"{target}/data"), digest(self.source / "data"))
        return warnings

    def test_one_connection_in_five_breaks(self):
        def plan(random):
            if random.random() < 0.2:
                return Fault(random.choice(("reset", "cut")), random.randrange(2 * MIB), random.random() < 0.5)
            return Fault("cut", random.randrange(12 * MIB, 24 * MIB), random.random() < 0.5)  # none lasts for ever

        self.run_agent("init")
        self.random_file(500)
        proxy = self.through(plan)
        self.round_trip()
        print(f"{proxy.connections} connections, {proxy.faults} broken")
        self.assertGreater(proxy.faults, 10)

    def test_a_busy_store_is_waited_for(self):
        self.run_agent("init")
        self.random_file(20)
        proxy = self.through(lambda random: Fault("busy" if random.random() < 0.3 else "cut", 16 * MIB))
        self.round_trip()
        self.assertGreater(proxy.faults, 0)

    def test_refused_connections_are_tried_again(self):
        self.run_agent("init")
        self.random_file(20)
        proxy = self.through(lambda random: Fault("refuse" if random.random() < 0.3 else "cut", 16 * MIB))
        self.round_trip()
        self.assertGreater(proxy.faults, 0)

    def test_a_corrupted_upload_is_refused_and_sent_again(self):
        self.run_agent("init")
        self.random_file(20)
        # Behind the head of the request: the service finds that the body's digests do not fit.
        proxy = self.through(lambda random: Fault("corrupt" if random.random() < 0.5 else "none", 100_000, True), seed=3)
        self.run_agent("backup", self.source)
        self.assertGreater(proxy.faults, 0)
        self.directly()
        target = self.restore("latest")
        self.assertEqual(digest(f"{target}/data"), digest(self.source / "data"))

    def test_a_corrupted_download_never_passes_for_the_file(self):
        self.run_agent("init")
        self.random_file(20)
        self.run_agent("backup", self.source)
        # One byte of each connection.
        proxy = self.through(lambda random: Fault("corrupt", 300_000))
        target = self.restore("latest")
        self.assertGreater(proxy.faults, 0)
        self.assertEqual(digest(f"{target}/data"), digest(self.source / "data"))

    def test_a_dead_endpoint_is_told_in_time(self):
        self.environment["CLOUDBACKUP_REPO"] = self.location(1)
        begin = time.monotonic()
        failure = self.run_agent("checkpoints", expect=1)[1]
        self.assertLess(time.monotonic() - begin, 180)
        self.assertRegex(failure.splitlines()[-1], r"Failed to connect to 127\.0\.0\.1 port 1 .*after 8 attempts")

    def fading(self, **fault):
        """A plan by which one connection in four carries on for a while, and then next to nothing."""
        def plan(random):
            if random.random() < 0.25:
                return Fault(after=random.randrange(6 * MIB), upwards=random.random() < 0.5, **fault)
            return Fault("cut", random.randrange(8 * MIB, 16 * MIB), random.random() < 0.5)
        return plan

    def round_trip_in_time(self, proxy):
        self.environment["CLOUDBACKUP_TIMEOUT"] = "3"
        begin = time.monotonic()
        self.assertRegex(self.round_trip(), r"too slow.* the last 3 seconds")
        print(f"{proxy.connections} connections, {proxy.faults} faults, {time.monotonic() - begin:.0f} s")
        self.assertGreater(proxy.faults, 3)
        # A failed attempt takes the three seconds, those until the speed is known, and a pause; many go side by side.
        self.assertLess(time.monotonic() - begin, 240)

    def test_stalled_connections_are_given_up(self):
        self.run_agent("init")
        self.random_file(100)
        self.round_trip_in_time(self.through(self.fading(kind="stall")))

    def test_connections_that_trickle_are_given_up(self):
        self.run_agent("init")
        self.random_file(100)
        self.round_trip_in_time(self.through(self.fading(kind="trickle", rate=20)))

    def test_a_store_that_stalls_for_good_is_told_in_time(self):
        proxy = self.through(lambda random: Fault("stall"))
        begin = time.monotonic()
        failure = self.run_agent("--timeout", 2, "checkpoints", expect=1)[1]
        self.assertLess(time.monotonic() - begin, 180)
        self.assertRegex(failure.splitlines()[-1], r"too slow.* the last 2 seconds.*after 8 attempts")
        self.assertEqual(proxy.faults, 8)

    def test_a_slow_store_only_takes_longer(self):
        self.run_agent("init")
        self.random_file(4)
        self.through(lambda random: Fault("slow", rate=8 * MIB))
        self.round_trip()


if __name__ == "__main__":
    unittest.main(argv=["faults_test"])
