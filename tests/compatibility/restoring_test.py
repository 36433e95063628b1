#!/usr/bin/env python3
"""Runs the commands of docs/format/restoring.md as they stand there, on repositories that the agent made."""
import hashlib
import json
import os
import pathlib
import random
import re
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).parents[2]
sys.path.insert(0, str(ROOT / "tests/agent"))

from agent import AgentCase, main  # noqa: E402: found by the line above

FORMAT = ROOT / "docs/format"
GOLDEN = ROOT / "tests/data/golden/agent"


def commands(page):
    return re.findall(r"^```sh\n(.*?)^```$", (FORMAT / page).read_text(), re.DOTALL | re.MULTILINE)


class Restoring(AgentCase):
    def by_hand(self, bucket, wanted):
        """The finished shell, run in a fresh folder: code, output, the restored bytes."""
        settings, *steps = commands("restoring.md")
        self.assertRegex(settings, r"\Abucket=.*\nwanted=.*\nformat=.*\n\Z")
        self.assertEqual(len(steps), 9)
        place = self.place / f"by hand {len(list(self.place.iterdir()))}"
        place.mkdir()
        environment = {"PATH": "/usr/bin:/bin", "PYTHONIOENCODING": "utf-8:strict", "bucket": str(bucket), "wanted": wanted,
                       "format": str(FORMAT), "PYTHONDONTWRITEBYTECODE": "1"}
        done = subprocess.run(["bash", "-euo", "pipefail", "-c", "\n".join(steps)], cwd=place, env=environment,
                              capture_output=True, check=False)
        restored = place / "restored"
        return done, restored.read_bytes() if restored.exists() else b""

    def expect(self, bucket, wanted, content):
        done, restored = self.by_hand(bucket, wanted)
        self.assertEqual(done.returncode, 0, done.stderr.decode())
        self.assertEqual(done.stderr, b"")
        self.assertIn(b"header: OK\n", done.stdout)
        self.assertEqual(restored, content)
        return done.stdout.decode()

    def test_a_file_of_a_fresh_repository(self):
        generator = random.Random(5)
        large = generator.randbytes(3_000_000)
        text = b"".join(b"line %d of a text\n" % line for line in range(50_000))
        (self.source / "folder of letters").mkdir()
        (self.source / "folder of letters" / "spring & summer.txt").write_bytes(text)
        (self.source / "large").write_bytes(large)
        (self.source / "nothing").touch()
        with open(self.source / "holes", "wb") as file:
            file.seek(5_000_000)
            file.write(b"middle")
            file.truncate(9_000_000)
        os.link(self.source / "large", self.source / "other name")
        self.run_agent("init", "--no-encryption")
        self.run_agent("backup", self.source)
        changed = large[:1_000_000] + b"inserted" + large[1_000_000:]
        (self.source / "large").write_bytes(changed)
        (self.source / "new").write_text("of the second run")
        self.run_agent("backup", self.source)
        bucket = self.place / "repository"
        listed = self.expect(bucket, f"{self.source}/folder of letters/spring & summer.txt", text)
        self.assertIn("folder of letters/spring & summer.txt\n", listed)
        self.assertIn('Type="cloudbackup"', listed)
        for name in ("large", "other name"):
            self.expect(bucket, f"{self.source}/{name}", changed)
        self.expect(bucket, f"{self.source}/new", b"of the second run")
        self.expect(bucket, f"{self.source}/nothing", b"")
        self.expect(bucket, f"{self.source}/holes", bytes(5_000_000) + b"middle" + bytes(3_999_994))

    def test_every_file_of_the_golden_repository(self):
        copy = self.place / "repository"
        shutil.copytree(GOLDEN / "repository", copy)
        restored = 0
        for checkpoint in (2, 1):
            for line in (GOLDEN / f"checkpoint-{checkpoint}").read_text().splitlines():
                entry = json.loads(line)
                if "sha256" in entry:
                    done, content = self.by_hand(copy, os.fsencode("/srv/golden" + entry["path"]))
                    self.assertEqual(done.returncode, 0, done.stderr.decode())
                    self.assertEqual(hashlib.sha256(content).hexdigest(), entry["sha256"], entry["path"])
                    restored += 1
            next(copy.glob(f"Draxo/Backup/*/Clients/*/*/Metadata/Checkpoint/{checkpoint}")).unlink()
        self.assertEqual(restored, 14)

    def test_a_root_that_is_a_single_file(self):
        path = self.source / "alone"
        path.write_text("a root of its own\n")
        self.run_agent("init", "--no-encryption")
        self.run_agent("backup", path)
        self.expect(self.place / "repository", str(path), b"a root of its own\n")

    def test_damage_is_seen(self):
        copy = self.place / "repository"
        shutil.copytree(GOLDEN / "repository", copy)
        wanted = "/srv/golden/random"
        block = next(copy.glob("Draxo/Backup/*/Clients/*/*/BlockStore/*/be/*"))
        content = bytearray(block.read_bytes())
        content[-1] ^= 1
        block.write_bytes(content)
        done, restored = self.by_hand(copy, wanted)
        self.assertEqual(done.stderr.decode(), f"a chunk is damaged, in block {block.name}\n")
        self.assertNotEqual(done.returncode, 0)
        self.assertEqual(restored, b"")
        block.unlink()
        self.assertIn(f"No such file or directory: '{block}'", self.by_hand(copy, wanted)[0].stderr.decode())
        for header in copy.glob("Draxo/Backup/*/Clients/*/*/Metadata/*.2"):
            header.write_bytes(header.read_bytes().replace(b"CBMETA", b"CBMETB"))
        done, _ = self.by_hand(copy, wanted)
        self.assertIn(b"header: FAILED\n", done.stdout)
        self.assertNotEqual(done.returncode, 0)

    def test_the_content_of_the_example_is_shown(self):
        (command,) = commands("checkpoint.md")
        done = subprocess.run(["bash", "-euc", command], capture_output=True, check=True)
        self.assertEqual(done.stdout, b"content of 3\n")
        self.assertIn('Id="3"', (FORMAT / "checkpoint.md").read_text())

    def test_the_agents_document_has_the_names_that_the_page_tells(self):
        example = json.loads(re.search(r"```json\n(.*?)```", (FORMAT / "agent.md").read_text(), re.DOTALL).group(1))
        copy = self.place / "repository"
        shutil.copytree(GOLDEN / "repository", copy)
        self.by_hand(copy, "/srv/golden/letter.txt")
        stored = json.loads(next(self.place.glob("by hand*/backup.json")).read_text())
        self.assertEqual(example, stored)


if __name__ == "__main__":
    main()
