#!/usr/bin/env python3
"""forget, prune and keep: what they keep, what they delete, and that nothing kept is ever harmed."""
import json
import os
import random
import signal
import subprocess
import time

from agent import AgentCase, describe, fill, main


class Retention(AgentCase):
    def setUp(self):
        super().setUp()
        self.environment["TZ"] = "UTC"
        self.states = {}

    def backup(self, seed, *options):
        """A new generation of the source, saved; its checkpoint."""
        fill(self.source, seed, files=30)
        out, _ = self.run_agent("--json", "backup", self.source, *options)
        checkpoint = [event["id"] for event in map(json.loads, out.splitlines()) if event["event"] == "checkpoint"][-1]
        self.states[checkpoint] = describe(self.source)
        return checkpoint

    def make(self, count):
        self.run_agent("init")
        for seed in range(count):
            self.backup(seed)

    def checkpoints(self):
        out, _ = self.run_agent("--json", "checkpoints")
        return [event["id"] for event in map(json.loads, out.splitlines()) if event["event"] == "checkpoint"]

    def events(self, *arguments, expect=0):
        out, _ = self.run_agent("--json", "--progress", "never", *arguments, expect=expect)
        return [json.loads(line) for line in out.splitlines()]

    def objects(self, part):
        return {path for path in (self.place / "repository").rglob("*") if path.is_file() and part in str(path)}

    def check_restores(self, checkpoints):
        self.assertEqual(self.checkpoints(), checkpoints)
        for checkpoint in checkpoints:
            self.assertEqual(describe(self.restore(checkpoint)), self.states[checkpoint], f"checkpoint {checkpoint}")

    def test_forget_by_rules(self):
        self.make(4)
        out, _ = self.run_agent("forget", "--keep-last", 2, "--dry-run")
        lines = out.splitlines()
        self.assertRegex(lines[0], r"^ +ID +TIME +HOST +REASONS$")
        self.assertRegex(lines[1], r"^ +4 .* keep +last$")
        self.assertRegex(lines[4], r"^ +1 .* remove$")
        self.assertEqual(lines[-1], "Would forget 2 checkpoints, 2 kept")
        self.assertEqual(self.checkpoints(), [1, 2, 3, 4])
        events = self.events("forget", "--keep-last", 2)
        self.assertEqual([(e["id"], e["action"], e["reasons"]) for e in events[:-1]],
                         [(4, "keep", ["last"]), (3, "keep", ["last"]), (2, "remove", []), (1, "remove", [])])
        self.assertEqual(events[-1], {"event": "forgotten", "dryRun": False, "removed": [1, 2], "kept": 2})
        self.check_restores([3, 4])

    def test_forget_by_day_names_the_day(self):
        self.make(2)
        events = self.events("forget", "--keep-daily", 7, "--keep-within", "1y", "--dry-run")
        day = events[0]["started"][:10]
        self.assertEqual(events[0]["reasons"], [f"daily {day}", "within 1y"])
        if events[1]["started"][:10] == day:
            self.assertEqual(events[1]["reasons"], ["within 1y"])

    def test_forget_by_id(self):
        self.make(3)
        self.run_agent("forget", 2)
        self.check_restores([1, 3])
        _, error = self.run_agent("forget", 2, expect=1)
        self.assertEqual(error, "cloudbackup: Set 'default' has no checkpoint 2; the last one is 3\n")
        _, error = self.run_agent("forget", 1, 3, expect=1)
        self.assertIn("are all that set 'default' has, and a set keeps at least one", error)
        self.check_restores([1, 3])

    def test_the_newest_may_go_by_name_and_its_id_is_used_again(self):
        self.make(3)
        self.run_agent("forget", 3, "--prune")
        self.check_restores([1, 2])
        self.assertEqual(self.backup(77), 3)
        self.check_restores([1, 2, 3])

    def test_wrong_use(self):
        self.make(1)
        for arguments, text in [([], "Say what to keep"), ([1, "--keep-last", 1], "Either name checkpoints or give rules"),
                                (["--keep-last", "some"], "neither a number nor 'unlimited'"),
                                (["--keep-within", "soon"], "'soon' is no duration"),
                                (["--keep-last", 1, "--group-by", "colour"], "neither host, tags nor paths"),
                                (["--keep-last", 0], "Say what to keep")]:
            _, error = self.run_agent("forget", *arguments, expect=2)
            self.assertIn(text, error)

    def test_rules_that_keep_nothing(self):
        self.make(3)
        _, error = self.run_agent("forget", "--keep-tag", "release", expect=1)
        self.assertIn("The rules keep none of the 3 checkpoint(s)", error)
        self.assertEqual(self.checkpoints(), [1, 2, 3])
        events = self.events("forget", "--keep-tag", "release", "--allow-remove-all")
        self.assertEqual(events[0]["reasons"], ["newest: the next backup builds on it"])
        self.check_restores([3])

    def test_tags_hosts_and_paths(self):
        self.run_agent("init")
        for seed, tag in enumerate(["daily", "release", "daily", "daily"]):
            self.backup(seed, "--tag", tag)
        events = self.events("forget", "--keep-last", 1, "--keep-tag", "release", "--dry-run")
        self.assertEqual(events[-1]["removed"], [1, 3])
        events = self.events("forget", "--keep-last", 1, "--group-by", "tags", "--dry-run")
        self.assertEqual(events[-1]["removed"], [1, 3])
        self.assertEqual(self.events("forget", "--keep-last", 1, "--host", "another", "--dry-run")[-1]["removed"], [])
        for path, removed in (("/not/there", []), (self.source, [1, 2, 3]), (f"{self.source}/below", [1, 2, 3])):
            events = self.events("forget", "--keep-last", 1, "--path", path, "--dry-run")
            self.assertEqual(events[-1]["removed"], removed, path)
        self.run_agent("forget", "--keep-last", 1, "--tag", "daily")
        self.check_restores([2, 4])

    def test_prune(self):
        self.make(4)
        before = self.objects("/BlockStore/")
        planned = self.events("forget", "--keep-last", 1, "--prune", "--dry-run")[-1]
        self.assertEqual(self.objects("/BlockStore/"), before)
        self.run_agent("forget", "--keep-last", 1)
        dry = self.events("prune", "--dry-run")[-1]
        self.assertEqual(dry["blocksRemoved"], planned["blocksRemoved"])
        self.assertGreater(dry["blocksRemoved"]["objects"], 0)
        self.assertEqual(self.objects("/BlockStore/"), before)
        done = self.events("prune")[-1]
        self.assertEqual(done, dict(dry, dryRun=False))
        left = self.objects("/BlockStore/")
        self.assertEqual(len(before) - len(left), dry["blocksRemoved"]["objects"])
        self.assertEqual(len(left), dry["blocksKept"]["objects"])
        again = self.events("prune")[-1]
        self.assertEqual(again["blocksRemoved"], {"objects": 0, "bytes": 0})
        self.check_restores([4])
        self.backup(99)
        self.check_restores([4, 5])

    def test_prune_sweeps_strays(self):
        self.make(2)
        block = sorted(self.objects("/BlockStore/"))[0]
        metadata = block.parents[3] / "Metadata"
        strays = [block.parent / "not-a-block", block.parent / (block.parent.name + "0" * 30),
                  metadata / "11111111-2222-3333-4444-555555555555.7",
                  metadata / "11111111-2222-3333-4444-555555555555.7_metaparts" / "4096",
                  block.parents[1].parent / "11111111-2222-3333-4444-555555555555" / "ab" / ("ab" + "1" * 30)]
        for stray in strays:
            stray.parent.mkdir(parents=True, exist_ok=True)
            stray.write_bytes(b"left over")
        kept = self.events("prune", "--min-age", "1h")[-1]
        self.assertEqual(kept["tooYoung"], {"objects": 5, "bytes": 45})
        self.assertTrue(all(stray.exists() for stray in strays))
        done = self.events("prune")[-1]
        self.assertEqual([done[kind]["objects"] for kind in ("blocksRemoved", "metadataRemoved", "othersRemoved")],
                         [2, 2, 1])
        self.assertFalse(any(stray.exists() for stray in strays))
        self.check_restores([1, 2])

    def test_prune_tells_of_missing_blocks(self):
        self.make(1)
        block = sorted(self.objects("/BlockStore/"))[0]
        block.unlink()
        out, error = self.run_agent("prune", expect=3)
        self.assertIn(block.name + ": a checkpoint needs this block, and it is missing", error)
        self.assertIn("Set 'default' with 1 checkpoint:", out)

    def test_nothing_is_pruned_when_a_checkpoint_cannot_be_read(self):
        self.make(3)
        (document,) = [path for path in self.objects("/Metadata/Checkpoint/") if path.name == "2"]
        good = document.read_bytes()
        document.write_bytes(b"damaged")
        before = self.objects("/BlockStore/")
        self.run_agent("prune", expect=1)
        _, error = self.run_agent("forget", "--keep-last", 1, expect=1)
        self.assertIn("Checkpoint 2 cannot be read", error)
        self.assertEqual(self.objects("/BlockStore/"), before)
        document.write_bytes(good)
        self.check_restores([1, 2, 3])
        document.write_bytes(b"damaged")
        self.run_agent("forget", 2, "--prune")
        self.check_restores([1, 3])

    def test_keep(self):
        self.make(3)
        self.run_agent("keep", 1)
        out, _ = self.run_agent("keep", 1)
        self.assertEqual(out, "Checkpoint 1 was kept for the long term before\n")
        events = self.events("forget", "--keep-last", 1, "--prune")
        self.assertEqual([e["reasons"] for e in events[:3]], [["last"], [], ["long-term"]])
        self.check_restores([1, 3])
        _, error = self.run_agent("forget", 1, expect=1)
        self.assertIn("Checkpoint 1 is kept for the long term: 'cloudbackup keep --remove 1' ends that", error)
        self.run_agent("keep", "--remove", 1)
        self.run_agent("forget", "--keep-last", 1, "--prune")
        self.check_restores([3])

    def test_a_backup_is_kept_for_the_long_term_from_the_beginning(self):
        self.run_agent("init")
        self.backup(1, "--long-term")
        self.backup(2)
        fill(self.source, 3, files=30)
        out, _ = self.run_agent("backup", "--long-term", self.source)
        self.states[3] = describe(self.source)
        self.assertEqual(out.splitlines()[0], "Checkpoint 3 of set 'default', kept for the long term")
        self.backup(4)
        self.assertEqual([event["longTerm"] for event in self.events("checkpoints")], [True, False, True, False])
        out, _ = self.run_agent("checkpoints")
        self.assertEqual([line.endswith("  [long-term]") for line in out.splitlines()[1:]], [True, False, True, False])
        events = self.events("forget", "--keep-last", 1, "--prune")
        self.assertEqual([e["reasons"] for e in events[:4]], [["last"], ["long-term"], [], ["long-term"]])
        self.check_restores([1, 3, 4])
        for document in self.objects("/Metadata/Checkpoint/"):
            if document.name == "1":
                document.unlink()  # the copy stands in
        self.check_restores([1, 3, 4])

    def test_prune_frees_what_only_a_dropped_root_needs(self):
        other = self.place / "other"
        other.mkdir()
        fill(other, 50, files=30)
        self.run_agent("init")
        self.backup(1, other)
        storages = {path.parents[1] for path in self.objects("/BlockStore/")}
        self.assertEqual(len(storages), 2)
        self.backup(2, "--drop-root", other)
        self.run_agent("prune")
        self.assertEqual({path.parents[1] for path in self.objects("/BlockStore/")}, storages)
        root = str(self.place / "other")
        self.assertEqual(describe(self.restore(1)[:-len(str(self.source))] + root), describe(other))
        self.run_agent("forget", 1, "--prune")
        left = {path.parents[1] for path in self.objects("/BlockStore/")}
        self.assertEqual(len(left), 1)
        kept = left.pop().name
        self.assertTrue(all(path.name.startswith(kept) or path.parent.name.startswith(kept) or
                            path.parent.name.startswith("Checkpoint") for path in self.objects("/Metadata/")))
        self.check_restores([2])
        self.backup(3, other)  # back again
        self.check_restores([2, 3])
        self.assertEqual(describe(self.restore(3)[:-len(str(self.source))] + root), describe(other))
        self.run_agent("check", "--read-data")

    def test_long_term_copy_stands_in(self):
        self.make(2)
        self.run_agent("keep", 1)
        (document,) = [path for path in self.objects("/Metadata/Checkpoint/") if path.name == "1"]
        document.unlink()
        self.run_agent("prune")
        self.check_restores([1, 2])

    def test_all_sets(self):
        self.make(2)
        self.run_agent("--set", "other", "backup", self.source)
        events = self.events("prune", "--all-sets")
        self.assertEqual(sorted(event["set"] for event in events), ["default", "other"])

    def test_another_machines_client(self):
        self.make(3)
        own = self.environment["CLOUDBACKUP_STATE_DIR"]
        client = (self.place / "state" / "client-id").read_text().strip()
        self.environment["CLOUDBACKUP_STATE_DIR"] = str(self.place / "state2")
        _, error = self.run_agent("--client", client, "forget", "--keep-last", 1, expect=1)
        self.assertIn("so lately that a run of it may be under way", error)
        _, error = self.run_agent("--client", client, "forget", 3, "--min-age", 0, expect=1)
        self.assertIn("Only its own machine may forget it", error)
        self.run_agent("--client", client, "forget", "--keep-last", 1, "--min-age", 0)
        dry = self.events("--client", client, "prune", "--dry-run")[-1]
        self.assertGreater(dry["tooYoung"]["objects"], 0)
        self.run_agent("--client", client, "prune", expect=1)
        done = self.events("--client", client, "prune", "--min-age", "0")[-1]
        self.assertGreater(done["blocksRemoved"]["objects"], 0)
        self.environment["CLOUDBACKUP_STATE_DIR"] = own
        self.check_restores([3])
        out, _ = self.run_agent("clients")
        self.assertEqual(out.count(client), 1)
        self.backup(50)
        self.check_restores([3, 4])

    def test_killed_forget_and_prune(self):
        seed = int(os.environ.get("SEED", random.SystemRandom().randrange(2**32)))
        print(f"seed {seed} (set SEED to repeat)")
        generator = random.Random(seed)
        self.run_agent("init")
        begin = time.monotonic()
        for number in range(3):
            self.backup(generator.randrange(2**32))
        self.run_agent("forget", "--keep-last", 2, "--prune")
        whole = (time.monotonic() - begin) / 3
        for _ in range(12):
            self.backup(generator.randrange(2**32))
            process = subprocess.Popen(self.command("forget", "--keep-last", 2, "--prune"), env=self.environment,
                                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            try:
                process.wait(timeout=generator.uniform(0, whole))
            except subprocess.TimeoutExpired:
                process.send_signal(signal.SIGKILL)
                process.wait()
            left = self.checkpoints()
            self.assertTrue(set(sorted(self.states)[-2:]) <= set(left))
            self.check_restores(left)
        self.run_agent("forget", "--keep-last", 1, "--prune")
        self.check_restores([max(self.states)])
        done = self.events("prune")[-1]
        self.assertEqual(len(self.objects("/BlockStore/")), done["blocksKept"]["objects"])
        self.assertEqual(done["metadataRemoved"]["objects"], 0)

    def make_waste(self, seed=0):
        """Checkpoint 2 needs a third of what checkpoint 1 has stored; checkpoint 1 is forgotten."""
        generator = random.Random(seed)
        self.run_agent("init")
        for name in "abcdef":
            (self.source / name).write_bytes(generator.randbytes(400_000))
        self.save()
        for name in "abcd":
            (self.source / name).unlink()
        (self.source / "g").write_bytes(b"new")
        self.save()
        self.run_agent("forget", 1)
        del self.states[1]

    def save(self):
        out, _ = self.run_agent("--json", "backup", self.source)
        checkpoint = [event["id"] for event in map(json.loads, out.splitlines()) if event["event"] == "checkpoint"][-1]
        self.states[checkpoint] = describe(self.source)

    def test_waste_in_blocks_is_freed(self):
        self.make_waste()
        stored = sum(path.stat().st_size for path in self.objects("/BlockStore/"))
        for limit in ("unlimited", "2M", "95%"):
            none = self.events("prune", "--dry-run", "--max-unused", limit)[-1]["repacked"]
            self.assertEqual(none, {"blocks": 0, "bytesMoved": 0, "bytesFreed": 0, "metadata": 0, "checkpoints": 0})
        dry = self.events("prune", "--dry-run")[-1]
        self.assertEqual((dry["repacked"]["blocks"], dry["repacked"]["checkpoints"]), (1, 1))
        self.assertGreater(dry["repacked"]["bytesFreed"], 1_000_000)
        self.assertEqual(sum(path.stat().st_size for path in self.objects("/BlockStore/")), stored)
        out, _ = self.run_agent("prune", "--dry-run")
        self.assertRegex(out, r"written anew: would read and write .* of 1 block, which would free .*; metadata of 1 "
                              r"checkpoint\n")
        done = self.events("prune")[-1]
        self.assertEqual(done["repacked"], dry["repacked"])
        self.assertEqual(done["unusedBytes"], dry["unusedBytes"] - dry["repacked"]["bytesFreed"])
        self.assertEqual(sum(path.stat().st_size for path in self.objects("/BlockStore/")),
                         stored - dry["repacked"]["bytesFreed"])
        self.check_restores([2])
        self.assertEqual(self.events("prune")[-1]["repacked"]["blocks"], 0)
        (self.source / "h").write_bytes(b"newer")
        self.save()
        self.check_restores([2, 3])
        self.run_agent("check", "--read-data")

    def test_waste_after_the_key_was_changed(self):
        self.make_waste()
        self.run_agent("key", "rotate")
        generator = random.Random(5)
        for name in "hijk":
            (self.source / name).write_bytes(generator.randbytes(400_000))
        self.save()
        for name in "hij":
            (self.source / name).unlink()
        self.save()
        self.run_agent("forget", 3)
        done = self.events("prune", "--max-unused", 0)[-1]
        self.assertEqual((done["repacked"]["blocks"], done["repacked"]["checkpoints"]), (2, 2))
        self.assertEqual((done["unusedBytes"], done["missingBlocks"]), (0, 0))
        self.check_restores([2, 4])
        self.run_agent("check", "--read-data")
        self.environment["CLOUDBACKUP_STATE_DIR"] = str(self.place / "state2")
        self.check_restores([2, 4])

    def test_wrong_limits(self):
        for limit in ("much", "101%", "-5", "5X"):
            _, error = self.run_agent("prune", f"--max-unused={limit}", expect=2)
            self.assertIn(f"'{limit}' is no limit such as 10%, 500M or 'unlimited'", error)

    def test_killed_while_blocks_are_written_anew(self):
        seed = int(os.environ.get("SEED", random.SystemRandom().randrange(2**32)))
        print(f"seed {seed} (set SEED to repeat)")
        generator = random.Random(seed)
        self.make_waste(seed)
        self.run_agent("keep", 2)
        begin = time.monotonic()
        self.run_agent("prune", "--max-unused", 0)
        whole = time.monotonic() - begin
        for _ in range(8):
            for number in range(4):
                (self.source / f"x{number}").write_bytes(generator.randbytes(300_000))
            self.save()
            for number in range(3):
                (self.source / f"x{number}").unlink()
            self.save()
            last = max(self.states)
            self.run_agent("forget", last - 1)
            del self.states[last - 1]
            process = subprocess.Popen(self.command("prune", "--max-unused", 0), env=self.environment,
                                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            try:
                process.wait(timeout=generator.uniform(0, 1.2 * whole))
            except subprocess.TimeoutExpired:
                process.send_signal(signal.SIGKILL)
                process.wait()
            for checkpoint in sorted({2, last}):
                self.assertEqual(describe(self.restore(checkpoint)), self.states[checkpoint], f"checkpoint {checkpoint}")
        done = self.events("prune", "--max-unused", 0)[-1]
        self.assertEqual((done["unusedBytes"], done["missingBlocks"]), (0, 0))
        self.check_restores(sorted(self.states))
        self.assertEqual(len(self.objects("/BlockStore/")), done["blocksKept"]["objects"])


if __name__ == "__main__":
    main()
