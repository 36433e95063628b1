#!/usr/bin/env python3
"""Kills the agent at random moments of a backup and of a restore: whatever the moment, what was committed comes back."""
import os
import random
import signal
import subprocess
import tempfile
import time

from agent import AgentCase, describe, fill, main

ROUNDS = 12


class Kill(AgentCase):
    def run_and_kill(self, delay, *arguments):
        """Starts the program and kills it after the delay; True when the kill came before its end."""
        process = subprocess.Popen(self.command(*arguments), env=self.environment, stdout=subprocess.DEVNULL,
                                   stderr=subprocess.DEVNULL)
        try:
            process.wait(timeout=delay)
            return False
        except subprocess.TimeoutExpired:
            process.send_signal(signal.SIGKILL)
            process.wait()
            return True

    def blocks(self):
        return {path.name: path.stat().st_ino for path in (self.place / "repository").rglob("BlockStore/*/*/*")}

    def test_backup(self):
        seed = int(os.environ.get("SEED", random.SystemRandom().randrange(2**32)))
        print(f"seed {seed} (set SEED to repeat)")
        generator = random.Random(seed)
        self.run_agent("init")
        fill(self.source, seed)
        begin = time.monotonic()
        self.run_agent("backup", self.source)
        whole = time.monotonic() - begin
        states = {1: describe(self.source)}
        killed = 0
        for number in range(ROUNDS):
            fill(self.source, seed + number + 1, files=generator.randrange(50, 200))
            killed += self.run_and_kill(generator.uniform(0, whole), "backup", self.source)
            finished_before = self.blocks()
            self.run_agent("backup", self.source)
            for name, inode in finished_before.items():
                self.assertEqual(self.blocks().get(name), inode, "a finished block was uploaded again")
            listed, _ = self.run_agent("checkpoints")
            last = int(listed.splitlines()[-1].split()[0])
            states[last] = describe(self.source)
        self.assertGreater(killed, 0, "no kill came in time")
        for checkpoint, state in states.items():
            self.assertEqual(describe(self.restore(checkpoint)), state, f"checkpoint {checkpoint}")

    def test_restore(self):
        self.run_agent("init")
        fill(self.source, 1)
        self.run_agent("backup", self.source)
        expected = {line[0]: line for line in describe(self.source)}
        for number in range(ROUNDS):
            target = tempfile.mkdtemp(dir=self.place)
            self.run_and_kill(0.01 + 0.02 * number, "restore", 1, "--target", target)
            # A small file gets its time when it is whole, a large one its name.
            for line in describe(target + str(self.source)) if os.path.exists(target + str(self.source)) else []:
                if line[4] == expected[line[0]][4]:
                    self.assertEqual(line[-1], expected[line[0]][-1], "a file that looks whole is not")
            self.run_agent("restore", 1, "--target", target, "--overwrite", "if-changed")
            self.assertEqual(describe(target + str(self.source)), describe(self.source))


if __name__ == "__main__":
    main()
