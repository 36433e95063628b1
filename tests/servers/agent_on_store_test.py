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

    def events(self, *arguments, environment=None, expect=0):
        done = subprocess.run(self.command("--json", "--progress", "never", *arguments), env=environment or self.environment,
                              capture_output=True, text=True, check=False)
        self.assertEqual(done.returncode, expect, f"{arguments}: {done.stdout}{done.stderr}")
        return [json.loads(line) for line in done.stdout.splitlines()]

    def check(self, environment=None):
        """Structure, digests and data are sound; the counts."""
        for level in ([], ["--digests"], ["--read-data"], ["--read-data=30%", "--seed", "7"]):
            found = self.events("check", *level, environment=environment)
            self.assertEqual([event["event"] for event in found], ["checked"], found)
        return found[-1]["counts"]

    def ids(self, environment=None):
        return [event["id"] for event in self.events("checkpoints", environment=environment)]

    def generations(self, count):
        """Backups of a tree that changes; what it was."""
        trees = []
        for seed in range(count):
            fill(self.source, seed, files=40)
            (self.source / f"generation{seed}").write_bytes(os.urandom(3 << 20))
            self.backup()
            trees.append(describe(self.source))
            (self.source / f"generation{seed}").unlink()
        return trees

    def test_check_proves_what_it_says(self):
        self.run_agent("init")
        self.generations(2)
        counts = self.check()
        self.assertEqual(counts["checkpoints"], 2)
        digests = self.events("check", "--digests")[0]["counts"]
        self.assertEqual(digests["digestsCompared"], digests["blocks"])
        data = self.events("check", "--read-data")[0]["counts"]
        self.assertEqual(data["blocksRead"], data["blocks"])

    def test_forget_and_prune(self):
        self.run_agent("init")
        trees = self.generations(4)
        self.run_agent("keep", 1)
        removed = self.events("forget", "--keep-last", 1)[-1]["removed"]
        self.assertEqual(removed, [2, 3])
        dry = self.events("prune", "--dry-run")[-1]
        self.assertGreater(dry["blocksRemoved"]["bytes"], 2 * (3 << 20))
        self.assertEqual(self.events("prune")[-1], dict(dry, dryRun=False))
        again = self.events("prune")[-1]
        for kind in ("blocksRemoved", "metadataRemoved", "othersRemoved"):
            self.assertEqual(again[kind]["objects"], 0, kind)
        self.assertEqual(again["blocksKept"], dry["blocksKept"])
        self.assertEqual(self.ids(), [1, 4])
        self.check()
        self.assertEqual(describe(self.restore(1)), trees[0])
        self.assertEqual(describe(self.restore(4)), trees[3])
        self.run_agent("keep", "--remove", 1)
        self.run_agent("forget", 1, "--prune")
        self.assertEqual(describe(self.restore("latest")), trees[3])
        self.backup()
        self.check()

    def test_an_interrupted_prune_is_finished_by_the_next(self):
        self.run_agent("init")
        trees = self.generations(4)
        self.run_agent("forget", "--keep-last", 1)
        waste = self.events("prune", "--dry-run")[-1]["blocksRemoved"]["objects"]
        self.assertGreater(waste, 3)
        begin = time.monotonic()
        self.events("prune", "--dry-run")
        planning = time.monotonic() - begin
        for share in (0.7, 1.0, 1.3):
            run = subprocess.Popen(self.command("prune"), env=self.environment, stdout=subprocess.DEVNULL,
                                   stderr=subprocess.DEVNULL)
            try:  # cut off before, in the midst of or behind what it deletes: all must do
                run.wait(planning * share)
            except subprocess.TimeoutExpired:
                run.kill()
                run.wait()
            self.check()
        self.events("prune")
        left = self.events("prune", "--dry-run")[-1]
        self.assertEqual([left[kind]["objects"] for kind in ("blocksRemoved", "metadataRemoved", "othersRemoved")],
                         [0, 0, 0])
        self.assertEqual(describe(self.restore("latest")), trees[3])

    def test_one_clients_prune_leaves_the_others_alone(self):
        self.run_agent("init")
        trees = self.generations(3)
        other = dict(self.environment, CLOUDBACKUP_STATE_DIR=str(self.place / "other-state"),
                     CLOUDBACKUP_PASSWORD="another password")
        for _ in range(2):
            self.events("backup", self.source, environment=other)
        before = self.events("prune", "--dry-run", environment=other)[-1]
        runs = [subprocess.Popen(self.command("forget", "--keep-last", 1, "--prune"), env=self.environment,
                                 stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True),
                subprocess.Popen(self.command("backup", self.source), env=other, stdout=subprocess.PIPE,
                                 stderr=subprocess.STDOUT, text=True)]
        for run in runs:
            output = run.communicate()[0]
            self.assertEqual(run.returncode, 0, output)
        self.assertEqual((self.ids(), self.ids(other)), ([3], [1, 2, 3]))
        after = self.events("prune", "--dry-run", environment=other)[-1]
        self.assertEqual((after["blocksKept"], after["blocksRemoved"]),
                         (before["blocksKept"], {"objects": 0, "bytes": 0}))
        self.check()
        self.check(other)
        self.assertEqual(describe(self.restore(3)), trees[2])
        self.environment = other
        self.assertEqual(describe(self.restore(1)), describe(self.source))

    def test_keys_are_replaced_and_all_stays_readable(self):
        self.run_agent("init")
        trees = self.generations(1)
        self.run_agent("key", "rotate")
        trees += self.generations(1)
        self.environment["CLOUDBACKUP_NEW_PASSWORD"] = self.environment["CLOUDBACKUP_PASSWORD"] = "fresh"
        self.run_agent("checkpoints", expect=1)
        self.environment["CLOUDBACKUP_PASSWORD"] = "open sesame"
        self.run_agent("key", "change")
        self.environment["CLOUDBACKUP_PASSWORD"] = "fresh"
        trees += self.generations(1)
        self.assertEqual([event["state"] for event in self.events("key", "list")], ["in use", "former", "former"])
        for checkpoint, tree in enumerate(trees, start=1):
            self.assertEqual(describe(self.restore(checkpoint)), tree)
        self.check()

    def test_looking_and_one_file(self):
        self.run_agent("init")
        (self.source / "large").write_bytes(os.urandom(10 << 20))
        (self.source / "small").write_text("first")
        self.backup()
        small = self.source / "small"
        small.write_text("second one")
        self.backup()
        self.assertEqual(self.run_agent("cat", 1, small)[0], "first")
        self.assertEqual(self.run_agent("cat", "latest", small)[0], "second one")
        self.assertEqual([(event["size"], event["checkpoints"]) for event in self.events("find", "small")],
                         [(5, [1]), (10, [2])])
        changed = [(event["change"], event["path"]) for event in self.events("diff", 1, 2)[:-1]
                   if event["type"] == "file"]
        self.assertEqual(changed, [("modified", str(small))])
        target = self.place / "one"
        done = self.events("restore", 1, small, "--target", target)[-1]
        self.assertEqual((done["files"], done["bytes"]), (1, 5))
        self.assertEqual(pathlib.Path(f"{target}{small}").read_text(), "first")
        self.assertFalse(pathlib.Path(f"{target}{self.source}/large").exists())
        self.run_agent("restore", 2, "--target", target, "--overwrite", "if-changed", "--verify")
        self.assertEqual(describe(f"{target}{self.source}"), describe(self.source))

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
