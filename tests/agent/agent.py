"""What the agent's script tests share: a fresh place, a way to run the program, a look at trees."""
import hashlib
import os
import pathlib
import random
import stat
import subprocess
import sys
import tempfile
import unittest

PROGRAM = os.path.abspath(sys.argv[1])


def describe(root):
    """A tree in words: two trees are the same when these are."""
    lines = []
    root = os.fsencode(root)
    for folder, folders, files in os.walk(root):
        for name in folders + files:
            path = os.path.join(folder, name)
            info = os.lstat(path)
            content = b""
            if stat.S_ISLNK(info.st_mode):
                content = os.readlink(path)
            elif stat.S_ISREG(info.st_mode):
                with open(path, "rb") as file:
                    content = hashlib.sha256(file.read()).hexdigest()
            lines.append((path[len(root):], info.st_mode, info.st_uid, info.st_gid, info.st_mtime_ns, content))
    return sorted(lines)


class AgentCase(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.place = pathlib.Path(self.folder.name)
        self.source = self.place / "source"
        self.source.mkdir()
        self.environment = dict(os.environ, CLOUDBACKUP_REPO=f"dir:{self.place}/repository",
                                CLOUDBACKUP_STATE_DIR=f"{self.place}/state", CLOUDBACKUP_PASSWORD="open sesame",
                                CLOUDBACKUP_KEY_MEMORY="64", CLOUDBACKUP_KEY_PASSES="1")  # cheap, for the tests' sake

    def command(self, *arguments):
        return [PROGRAM, *map(str, arguments)]

    def run_agent(self, *arguments, expect=0):
        """Runs the program; fails unless it ends with the expected code. Standard output, standard error."""
        done = subprocess.run(self.command(*arguments), env=self.environment, capture_output=True, text=True,
                              check=False)
        self.assertEqual(done.returncode, expect, f"{arguments}: {done.stdout}{done.stderr}")
        return done.stdout, done.stderr

    def restore(self, checkpoint):
        """Restores a checkpoint into a fresh folder; where the source came to."""
        target = tempfile.mkdtemp(dir=self.place)
        self.run_agent("restore", checkpoint, "--target", target)
        return target + str(self.source)


def fill(folder, seed, files=200):
    """Files of all sizes up to a megabyte, the same for the same seed."""
    generator = random.Random(seed)
    for number in range(files):
        path = folder / f"d{number % 7}" / f"f{number}"
        path.parent.mkdir(exist_ok=True)
        path.write_bytes(generator.randbytes(int(2 ** generator.uniform(0, 20))))


def main():
    unittest.main(argv=sys.argv[:1], verbosity=2)
