"""The agent on a real store: what it backs up it brings back, also with two clients at once and after a kill."""
import json
import os
import pathlib
import shutil
import subprocess
import time
import unittest

from store import StoreCase, store_variables
from agent import describe, fill


class AgentOnStore(StoreCase):
    def backup(self):
        """How many blocks it stored."""
        done = json.loads(self.run_agent("--json", "backup", self.source)[0].splitlines()[-1])
        return sum(root["statistics"]["blocksUploaded"] for root in done["roots"])

    def test_what_was_backed_up_comes_back(self):
        fill(self.source, seed=1)
        (self.source / "large").write_bytes(os.urandom(20 << 20))
        self.run_agent("init")
        self.assertGreater(self.backup(), 0)
        first = describe(self.source)
        self.assertEqual(self.backup(), 0)
        (self.source / "more").mkdir()
        fill(self.source / "more", seed=2, files=50)
        (self.source / "large").write_bytes(os.urandom(5 << 20))
        self.backup()
        listed = [json.loads(line) for line in self.run_agent("--json", "checkpoints")[0].splitlines()]
        self.assertEqual([line["id"] for line in listed if line["event"] == "checkpoint"], [1, 2, 3])
        self.assertEqual(describe(self.restore(3)), describe(self.source))
        self.assertEqual(describe(self.restore(1)), first)
        self.assertIn("large", self.run_agent("ls", "latest")[0])

    def test_two_clients_at_once(self):
        self.run_agent("init")
        sources = []
        for name in ("one", "other"):
            source = self.place / name
            source.mkdir()
            fill(source, seed=len(name))
            (source / "large").write_bytes(os.urandom(10 << 20))
            sources.append(source)
        for _ in range(3):
            runs = [subprocess.Popen(self.command("backup", source),
                                     env=dict(self.environment, CLOUDBACKUP_STATE_DIR=f"{source}-state"),
                                     stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
                    for source in sources]
            for run in runs:
                output = run.communicate()[0]
                self.assertEqual(run.returncode, 0, output)
            for source in sources:
                (source / "large").write_bytes(os.urandom(1 << 20))
        for source in sources:
            environment = dict(self.environment, CLOUDBACKUP_STATE_DIR=f"{source}-state")
            (source / "large").unlink()
            target = f"{source}-restored"
            done = subprocess.run(self.command("restore", 3, "--target", target), env=environment, capture_output=True,
                                  text=True, check=False)
            self.assertEqual(done.returncode, 0, done.stderr)
            restored = pathlib.Path(target + str(source))
            self.assertEqual((restored / "large").stat().st_size, 1 << 20)
            (restored / "large").unlink()
            names = lambda tree: [(line[0], line[-1]) for line in tree if line[0] != b""]
            self.assertEqual(names(describe(restored)), names(describe(source)))

    def test_a_killed_run_is_run_again(self):
        for i in range(12):
            (self.source / f"file{i}").write_bytes(os.urandom(8 << 20))
        self.run_agent("init")
        run = subprocess.Popen(self.command("backup", self.source), env=self.environment, stdout=subprocess.DEVNULL,
                               stderr=subprocess.DEVNULL)
        time.sleep(0.7)  # in the midst of it, or before or after: all must do
        run.kill()
        run.wait()
        self.backup()
        self.assertEqual(describe(self.restore("latest")), describe(self.source))

    def test_mistakes_are_told(self):
        failure = self.run_agent("checkpoints", expect=1)[1]
        self.assertRegex(failure, "NoSuchBucket|ContainerNotFound")
        for name in store_variables():
            without = {key: value for key, value in self.environment.items() if key != name}
            if name == "AWS_REGION":
                continue
            done = subprocess.run(self.command("checkpoints"), env=without, capture_output=True, text=True, check=False)
            self.assertEqual(done.returncode, 1)
            self.assertIn(name, done.stderr)

    def tearDown(self):
        shutil.rmtree(self.source, ignore_errors=True)


if __name__ == "__main__":
    unittest.main(argv=["agent_on_store_test"])
