#!/usr/bin/env python3
"""A soak: edits, backups, upkeep, kills, failures and restores at random, always beside a model of what must be there.

soak_test.py PROGRAM [--no-encryption] [--seed N] [--runs N]; also SOAK_SEED and SOAK_RUNS. The seed is printed. Where a
kill falls depends on the machine, so that a seed repeats the edits and the steps up to the first one that was cut off.
SOAK_KEEP=FOLDER keeps what there is when it fails.
"""
import argparse
import hashlib
import os
import pathlib
import random
import resource
import shutil
import signal
import stat
import subprocess

from agent import AgentCase, main
from soak_tree import Editor, describe_fully, differences
from soak_world import INTERRUPTED, World

MOST_CHECKPOINTS = 8


def options():
    parser = argparse.ArgumentParser()
    parser.add_argument("program")
    parser.add_argument("--no-encryption", action="store_true")
    parser.add_argument("--seed", type=int,
                        default=int(os.environ.get("SOAK_SEED") or random.SystemRandom().randrange(2 ** 32)))
    parser.add_argument("--runs", type=int, default=int(os.environ.get("SOAK_RUNS") or 300))
    return parser.parse_args()


OPTIONS = options()


class Client:
    """A machine: its state folder, and its password."""

    def __init__(self, place, name, environment):
        self.name = name
        self.state = place / f"state-{name}"
        self.environment = dict(environment, CLOUDBACKUP_STATE_DIR=str(self.state),
                                CLOUDBACKUP_PASSWORD=f"of {name}")

    def id(self):
        return (self.state / "client-id").read_text().strip()

    def copies(self):
        """What it knows of the store's metadata."""
        return sorted(self.state.rglob("*.meta"))


class Soak(AgentCase):
    def setUp(self):
        super().setUp()
        self.random = random.Random(OPTIONS.seed)
        self.editor = Editor(self.random)
        self.roots = [str(self.source), str(self.place / "other")]
        os.mkdir(self.roots[1])
        self.steps, self.cut_off = [], 0
        self.first_key = ["--no-encryption"] if OPTIONS.no_encryption else []
        clients = [Client(self.place, name, self.environment) for name in ("one", "two")]
        self.worlds = [World(self, clients[0], "default"), World(self, clients[0], "second"),
                       World(self, clients[1], "default")]
        self.worlds[0].run("init", *self.first_key)

    def test_soak(self):
        print(f"seed {OPTIONS.seed} (--seed or SOAK_SEED repeats it), {OPTIONS.runs} runs", flush=True)
        try:
            for _ in range(OPTIONS.runs):
                self.run_one()
            self.finish()
        except BaseException:
            print(f"seed {OPTIONS.seed}, the last of {len(self.steps)} steps:", *self.steps[-12:], sep="\n  ")
            if os.environ.get("SOAK_KEEP"):
                shutil.copytree(self.place, os.environ["SOAK_KEEP"], symlinks=True, dirs_exist_ok=True,
                                ignore=lambda folder, names: [] if "/repository" in folder or "/state" in folder
                                else [name for name in names if name not in ("repository", "state-one", "state-two")]
                                if folder == str(self.place) else [])
            raise

    def run_one(self):
        world = self.random.choice(self.worlds[:1] * 4 + self.worlds[1:])
        if self.random.random() < 0.7:
            self.editor.edit(self.random.choice(self.roots), self.random.randrange(10))
        step = self.choose_step(world)
        self.steps.append(f"{len(self.steps)}: {step.__name__} of {world}, {sorted(world.model)}")
        step(world)
        world.expect_listed()
        if self.random.random() < 0.02:
            self.compare_everything()

    def choose_step(self, world):
        if not world.model:
            return self.random.choice([self.back_up, self.back_up, self.backup_killed, self.backup_interrupted])
        if len(world.model) > MOST_CHECKPOINTS:
            return self.random.choice([self.forget, self.forget_killed])
        steps = {self.back_up: 14, self.backup_killed: 12, self.backup_interrupted: 4, self.backup_on_full_disk: 4,
                 self.two_at_once: 2, self.two_machines_at_once: 2, self.forget: 4, self.forget_by_id: 2,
                 self.forget_killed: 5, self.prune: 4, self.prune_killed: 5, self.keep: 3, self.check: 6,
                 self.restore: 6, self.restore_over_edited: 4, self.restore_in_place: 2, self.restore_killed: 3,
                 self.look: 5, self.lose_state: 5, self.repair: 1, self.delete_set: 1, self.other_machine: 2}
        if not OPTIONS.no_encryption:
            steps.update({self.key_rotate: 2, self.key_change: 2, self.key_killed: 2, self.recovery_file: 1})
        return self.random.choices(list(steps), list(steps.values()))[0]

    def some(self, world):
        return self.random.choice(sorted(world.model))

    # Backups.

    def back_up(self, world):
        world.back_up()
        left = list(world.client.state.rglob(f"{world.name}/run-*"))  # other sets are swept by their own runs
        self.assertEqual(left, [], "what killed runs left is not swept")

    def backup_killed(self, world):
        world.back_up_in_vain(lambda arguments: world.stop(signal.SIGKILL, self.place / "repository", *arguments))

    def backup_interrupted(self, world):

        def run(arguments):
            code = world.stop(signal.SIGINT, self.place / "repository", *arguments)
            self.assertIn(code, INTERRUPTED, world.errors)
            return code
        world.back_up_in_vain(run)

    def limit_file_size(self):
        """Writing fails from a random size on, as on a full disk."""
        size = int(2 ** self.random.uniform(6, 23))

        def limit():
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
            resource.setrlimit(resource.RLIMIT_FSIZE, (size, size))
        return limit

    def backup_on_full_disk(self, world):
        def run(arguments):
            world.run(*arguments, expect=(0, 1, 3), settings=self.limit_file_size())
            return world.code
        world.back_up_in_vain(run)

    def two_at_once(self, world):
        """Two runs of one machine: one of them may be refused."""
        self.race(world, world.client.environment, "is under way on this machine")

    def two_machines_at_once(self, world):
        """A copy of a machine runs beside it: each makes a checkpoint, or says that the other was there."""
        clone = self.place / "clone"
        shutil.copytree(world.client.state, clone)
        self.race(world, dict(world.client.environment, CLOUDBACKUP_STATE_DIR=str(clone)),
                  "Another run has made checkpoint|already exists|cannot be|differs from the last")
        shutil.rmtree(clone)

    def race(self, world, environment, refusal):
        coming = world.coming(self.roots[:1], [], [], False)
        last = world.last()
        runs = [subprocess.Popen(world.arguments("backup", self.roots[0]), env=which, stdout=subprocess.DEVNULL,
                                 stderr=subprocess.PIPE, text=True)
                for which in (environment, world.client.environment)]
        ends = [(run.communicate()[1], run.returncode) for run in runs]
        for error, code in ends:
            self.assertIn(code, (0, 1), error)
            if code == 1:
                self.assertRegex(error, refusal)
        self.assertIn(0, [code for _, code in ends], ends)
        for number in sorted(set(world.take_listed()) - set(world.model)):
            self.assertIn(number, (last + 1, last + 2))
            world.model[number] = coming

    # Retention.

    def rules(self):
        kinds = [["--keep-last", self.random.randrange(1, 6)], ["--keep-hourly", 2], ["--keep-tag", "a,b"],
                 ["--keep-tag", self.random.choice("ab")], ["--keep-within", "1h"], ["--keep-daily", 1],
                 ["--keep-yearly", "unlimited"]]
        chosen = {kind[0]: kind for kind in self.random.sample(kinds, self.random.randrange(1, 3))}
        rules = sum(chosen.values(), [])
        rules += self.random.choice([[], [], ["--group-by", "tags"], ["--group-by", "host,paths"], ["--tag", "a"]])
        return rules + ["--allow-remove-all"]

    def plan(self, world, rules):
        """What the rules would remove: never the newest, never what is kept for the long term."""
        removed = world.run("forget", *rules, "--dry-run")[-1]["removed"]
        self.assertLessEqual(set(removed), set(world.model))
        self.assertNotIn(world.last(), removed)
        for number in removed:
            self.assertFalse(world.model[number].long_term)
        if len(rules) == 3 and rules[0] == "--keep-last":
            kept = sorted(world.model)[-rules[1]:]
            self.assertEqual(removed, [number for number in sorted(world.model)
                                       if number not in kept and not world.model[number].long_term])
        return removed

    def forget(self, world):
        rules = self.rules()
        removed = self.plan(world, rules)
        events = world.run("forget", *rules, *self.random.choice([[], ["--prune"]]))
        self.assertEqual([e["removed"] for e in events if e["event"] == "forgotten"], [removed])
        for number in removed:
            del world.model[number]

    def forget_by_id(self, world):
        """Also the newest, whose number is then used again."""
        free = [number for number in world.model if not world.model[number].long_term]
        chosen = self.random.sample(sorted(free), self.random.randrange(len(free) + 1))
        if chosen and len(chosen) < len(world.model):
            world.run("forget", *chosen)
            for number in chosen:
                del world.model[number]

    def forget_killed(self, world):
        rules = self.rules()
        removed = self.plan(world, rules)
        world.stop(signal.SIGKILL, self.place / "repository", "forget", *rules, "--prune")
        world.take_listed(may_go=removed)

    def max_unused(self):
        return self.random.choice([[], ["--max-unused", "0"], ["--max-unused", "unlimited"]])

    def prune(self, world):
        options = self.max_unused()
        done = world.run("prune", *options)[-1]
        self.assertEqual(done["missingBlocks"], 0)
        again = world.run("prune", "--max-unused", "unlimited", "--dry-run")[-1]
        self.assertEqual(len(world.block_files()), again["blocksKept"]["objects"])
        for kind in ("blocksRemoved", "metadataRemoved", "othersRemoved"):
            self.assertEqual(again[kind], {"objects": 0, "bytes": 0}, f"{kind} behind a prune")

    def prune_killed(self, world):
        world.stop(signal.SIGKILL, self.place / "repository", "prune", *self.max_unused())

    def keep(self, world):
        number = self.some(world)
        is_kept = world.model[number].long_term
        world.run("keep", *(["--remove"] if is_kept else []), number)
        world.model[number].long_term = not is_kept

    def delete_set(self, world):
        if world.name == "second":
            world.run("delete", "set", world.name, "--yes")
            world.model.clear()
            self.back_up(world)

    # Keys.

    def key_rotate(self, world):
        world.run("key", "rotate")

    def key_change(self, world):
        new = f"password {self.random.randrange(10 ** 9)}"
        world.client.environment["CLOUDBACKUP_NEW_PASSWORD"] = new
        world.run("key", "change")
        world.client.environment["CLOUDBACKUP_PASSWORD"] = new

    def key_killed(self, world):
        """The old password or the new one opens all."""
        new = f"password {self.random.randrange(10 ** 9)}"
        world.client.environment["CLOUDBACKUP_NEW_PASSWORD"] = new
        world.stop(signal.SIGKILL, self.place / "repository", "key", "change")
        world.run("key", "list", expect=(0, 1))
        if world.code == 1:
            self.assertIn("The password is wrong", world.errors)
            world.client.environment["CLOUDBACKUP_PASSWORD"] = new
        world.compare(self.some(world))

    def recovery_file(self, world):
        keys = self.place / "keys"
        world.run("key", "export", keys)
        password = world.client.environment.pop("CLOUDBACKUP_PASSWORD")
        number = self.some(world)
        target = world.restore(number, "--recovery-file", keys)
        world.expect_restored(number, target)
        shutil.rmtree(target)
        world.client.environment["CLOUDBACKUP_PASSWORD"] = password
        keys.unlink()

    # Checks.

    def check(self, world):
        level = self.random.choice([[], ["--digests"], ["--read-data"], ["--read-data=30%"]])
        events = world.run("check", *level)
        self.assertEqual([event["event"] for event in events], ["checked"], events)
        self.assertEqual(events[-1]["counts"]["checkpoints"], len(world.model))

    def repair(self, world):
        world.run("repair", "--dry-run")
        world.run("stats")
        world.run("clients")

    # Restores.

    def restore(self, world):
        world.compare(self.some(world), *self.random.choice([[], ["--verify"], ["--threads", "1"]]))

    OVER = ("--overwrite", "if-changed", "--force-content", "--delete", "--yes")

    def restore_over_edited(self, world):
        number = self.some(world)
        target = world.restore(self.some(world))
        for root in self.roots:
            if os.path.isdir(target + root) and self.random.random() < 0.8:
                Editor(self.random).edit(target + root, self.random.randrange(1, 15))
        for root in set(self.roots) - set(world.model[number].trees):
            shutil.rmtree(target + root, ignore_errors=True)
        world.restore(number, *self.OVER, target=target)
        world.expect_restored(number, target)
        shutil.rmtree(target)

    def restore_in_place(self, world):
        number = self.some(world)
        world.run("restore", number, "--in-place", *self.OVER)
        for root, tree in world.model[number].trees.items():
            self.assertEqual(differences(describe_fully(root), tree), [], f"{world}: {number} in place at {root}")

    def restore_killed(self, world):
        number = self.some(world)
        target = self.place / "target"
        target.mkdir()
        world.stop(signal.SIGKILL, target, "restore", number, "--target", target)
        if self.random.random() < 0.3:
            world.run("restore", number, "--target", target, *self.OVER, expect=(0, 1, 3),
                      settings=self.limit_file_size())
        world.restore(number, *self.OVER, target=str(target))
        world.expect_restored(number, str(target))
        shutil.rmtree(target)

    # Looking.

    def look(self, world):
        one, other = self.some(world), self.some(world)
        self.assertEqual(len(world.run("ls", one)), sum(len(tree) for tree in world.model[one].trees.values()))
        *found, total = world.run("diff", one, other)
        before, after = ({root + os.fsdecode(name) for root, tree in world.model[number].trees.items()
                          for name in tree} for number in (one, other))
        self.assertEqual(sum(event["change"] == "added" for event in found), len(after - before))
        self.assertEqual(sum(event["change"] == "removed" for event in found), len(before - after))
        names = [event["path"] for event in world.run("find", "large")]
        largest = {root + "/large" for checkpoint in world.model.values() for root, tree in checkpoint.trees.items()
                   if b"/large" in tree}
        self.assertEqual(set(names), largest)
        for path in sorted(largest):
            self.cat(world, path)

    def cat(self, world, path):
        root = next(root for root in self.roots if path.startswith(root + "/"))
        for number, checkpoint in world.model.items():
            entry = checkpoint.trees.get(root, {}).get(b"/large")
            if entry is not None and stat.S_ISREG(entry[0]):
                done = subprocess.run(world.arguments("cat", number, path), env=world.client.environment,
                                      capture_output=True, check=False)
                self.assertEqual((done.returncode, hashlib.sha256(done.stdout).hexdigest()), (0, entry[5]),
                                 f"{world}: {path} in {number}: {done.stderr}")

    # The machine's state.

    def lose_state(self, world):
        """Damages or takes away what the machine knows: it costs a download, nothing else."""
        copies = world.client.copies()
        kind = self.random.randrange(5)
        if kind == 0:
            for folder in world.client.state.iterdir():
                if folder.is_dir():
                    shutil.rmtree(folder)
        elif copies:
            path = self.random.choice(copies)
            content = bytearray(path.read_bytes())
            if kind == 1:
                path.unlink()
            elif kind == 2:
                path.write_bytes(content[:self.random.randrange(len(content) + 1)])
            elif kind == 3 and content:
                content[self.random.randrange(len(content))] ^= 1 << self.random.randrange(8)
                path.write_bytes(content)
            else:  # an older one, or another's
                path.write_bytes(self.random.choice(copies).read_bytes())
        world.compare(self.some(world))

    def other_machine(self, world):
        """Another machine reads it."""
        number = self.some(world)
        environment, client = world.client.environment, world.client.id()
        world.client.environment = dict(environment, CLOUDBACKUP_STATE_DIR=str(self.place / "foreign"))
        target = world.restore(number, "--client", client)
        world.client.environment = environment
        world.expect_restored(number, target)
        shutil.rmtree(target)
        shutil.rmtree(self.place / "foreign")

    # All of it.

    def compare_everything(self):
        for world in self.worlds:
            if world.model:
                world.expect_listed()
                world.compare_all()

    def finish(self):
        """What is left at the end is whole, and nothing else is left."""
        self.compare_everything()
        for world in self.worlds:
            if world.model:
                world.run("check", "--digests", "--read-data")
                self.prune(world)
        self.compare_everything()
        kills = sum(world.kills for world in self.worlds)
        print(f"{kills} of the runs were cut off")
        if OPTIONS.runs >= 100:
            self.assertGreater(kills, OPTIONS.runs // 50, "hardly any run was cut off")


if __name__ == "__main__":
    main()
