"""What the soak knows of one set of one client: the checkpoints that must be there, and what each must restore to."""
import dataclasses
import json
import re
import shutil
import signal
import subprocess
import tempfile

from soak_tree import describe_fully, differences, sparse_names
from store_watch import StoreWatch

INTERRUPTED = (0, 130, -signal.SIGINT)  # the last: before the program listens, or when it is done


@dataclasses.dataclass
class Checkpoint:
    trees: dict  # root -> its description
    holes: dict  # root -> names of files that must come back with holes
    tags: list
    long_term: bool = False


class World:
    """One set of one client; `soak` runs the program and draws the lots."""

    def __init__(self, soak, client, name):
        self.soak, self.client, self.name = soak, client, name
        self.model = {}
        self.kills = 0

    def __str__(self):
        return f"{self.client.name}/{self.name}"

    # Running.

    def arguments(self, *arguments):
        return self.soak.command("--json", "--progress", "never", "--set", self.name, *arguments)

    def run(self, *arguments, expect=(0,), settings=None):
        """The events that the program tells; fails unless it ends with one of the expected codes."""
        done = subprocess.run(self.arguments(*arguments), env=self.client.environment, capture_output=True, text=True,
                              errors="surrogateescape", restore_signals=settings is None, preexec_fn=settings,
                              check=False)
        self.code, self.errors = done.returncode, done.stderr
        if done.returncode not in expect:
            raise AssertionError(f"{arguments} ended with {done.returncode}: {done.stdout[-3000:]}{done.stderr}")
        return [json.loads(line) for line in done.stdout.splitlines()] if done.returncode in (0, 3) else []

    def stop(self, how, watched, *arguments):
        """Runs it and stops it by a signal at a random moment: of the changes in the folder, or of time."""
        generator = self.soak.random
        with StoreWatch(watched) as watch:
            process = subprocess.Popen(self.arguments(*arguments), env=self.client.environment,
                                       stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
            if generator.random() < 0.7:
                alive = watch.wait(process, int(2 ** generator.uniform(0, 7)))
            else:
                alive = self.outlives(process, generator.uniform(0, 0.15))
            if alive:
                process.send_signal(how)
            self.errors = process.communicate()[1]
        self.kills += alive
        return process.returncode

    @staticmethod
    def outlives(process, seconds):
        try:
            process.wait(seconds)
            return False
        except subprocess.TimeoutExpired:
            return True

    # What is there.

    def listed(self):
        listed = {event["id"]: event for event in self.run("checkpoints", expect=(0,) if self.model else (0, 1))}
        if self.code == 1:  # a first run was cut off before there was a set, or even a client
            assert re.search("There is no set|holds no backups|several clients", self.errors), self.errors
        return listed

    def last(self):
        return max(self.model, default=0)

    def expect_listed(self):
        """The list is what is remembered."""
        listed = self.listed()
        assert sorted(listed) == sorted(self.model), f"{self}: {sorted(listed)} are listed, not {sorted(self.model)}"
        for number, checkpoint in self.model.items():
            event = listed[number]
            assert event["longTerm"] == checkpoint.long_term, f"{self}: {number} is kept for the long term or is not"
            assert {root["path"] for root in event["roots"]} == set(checkpoint.trees), f"{self}: roots of {number}"
            assert event["tags"] == checkpoint.tags, f"{self}: tags of {number}"

    def take_listed(self, may_go=()):
        """Behind what was cut off: of those that were to go any may be there or not, and all others must."""
        listed = self.listed()
        lost = set(self.model) - set(listed) - set(may_go)
        assert not lost, f"{self}: lost {lost}"
        for number in set(self.model) - set(listed):
            del self.model[number]
        for number in self.model:
            self.model[number].long_term = listed[number]["longTerm"]
        return listed

    # Backups.

    def coming(self, roots, dropped, tags, long_term):
        """What the next checkpoint must be."""
        before = self.model.get(self.last())
        trees = dict(before.trees) if before else {}
        holes = dict(before.holes) if before else {}
        for root in dropped:
            del trees[root], holes[root]
        for root in roots:
            trees[root], holes[root] = describe_fully(root), sparse_names(root)
        return Checkpoint(trees, holes, tags, long_term)

    def choose_backup(self):
        """The arguments of a backup at random, and what it must make."""
        generator = self.soak.random
        known = list(self.model[self.last()].trees) if self.model else []
        roots = generator.choice([self.soak.roots[:1], self.soak.roots[:1], self.soak.roots[1:], self.soak.roots])
        dropped = [root for root in known if root not in roots and generator.random() < 0.3]
        tags = generator.choice([[], [], ["a"], ["b"], ["a", "b"]])
        long_term = generator.random() < 0.07
        options = [f"--drop-root={root}" for root in dropped] + [f"--tag={tag}" for tag in tags]
        options += ["--long-term"] if long_term else []
        options += generator.choice([[], [], [], ["--force"], ["--ignore-inode"], ["--description", "some"]])
        return ["backup", *self.soak.first_key, *roots, *options], self.coming(roots, dropped, tags, long_term)

    def back_up(self):
        arguments, coming = self.choose_backup()
        event = self.run(*arguments)[-1]
        assert event["id"] == self.last() + 1, f"{self}: made {event['id']} behind {self.last()}"
        self.model[event["id"]] = coming

    def back_up_in_vain(self, run):
        """`run` does it, and may be cut off."""
        arguments, coming = self.choose_backup()
        last = self.last()
        code = run(arguments)
        errors = self.errors
        listed = self.take_listed()
        assert set(listed) - set(self.model) <= {last + 1}, f"{self}: {sorted(listed)} behind {last}"
        if last + 1 in listed:
            coming.long_term = listed[last + 1]["longTerm"]  # that copy is written last
            self.model[last + 1] = coming
        elif code == 0:
            raise AssertionError(f"{self}: the run was done, and made no checkpoint: {errors}")
        if code == 130:
            assert "Interrupted" in errors, errors
            assert last + 1 not in listed, f"{self}: an interrupted run made a checkpoint"

    # Restores.

    def restore(self, number, *arguments, target=None, expect=(0,)):
        target = target or tempfile.mkdtemp(dir=self.soak.place)
        self.run("restore", number, "--target", target, *arguments, expect=expect)
        return target

    def expect_restored(self, number, target):
        checkpoint = self.model[number]
        for root, tree in checkpoint.trees.items():
            wrong = differences(describe_fully(target + root), tree)
            assert not wrong, f"{self}: checkpoint {number} of {root}: " + "\n".join(wrong)
            dense = checkpoint.holes[root] - sparse_names(target + root)
            assert not dense, f"{self}: checkpoint {number} of {root}: no holes any more in {dense}"

    def compare(self, number, *arguments):
        target = self.restore(number, *arguments)
        self.expect_restored(number, target)
        shutil.rmtree(target)

    def compare_all(self):
        for number in self.model:
            self.compare(number)

    # Objects.

    def block_files(self):
        client = self.client.id()
        return [path for path in (self.soak.place / "repository").glob(f"**/{client}/{self.name}/BlockStore/*/*/*")]
