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
SEALED = ROOT / "tests/data/golden/agent_sealed"
PYTHON = "/usr/bin/python3"  # the system's own, which has the system's packages


def commands(page):
    return re.findall(r"^```sh\n(.*?)^```$", (FORMAT / page).read_text(), re.DOTALL | re.MULTILINE)


class Restoring(AgentCase):
    def by_hand(self, bucket, wanted, secret="/nowhere"):
        """The finished shell, run in a fresh folder: code, output, the restored bytes."""
        settings, *steps = commands("restoring.md")
        self.assertRegex(settings, r"\Abucket=.*\nwanted=.*\nformat=.*\nsecret=.*\n\Z")
        self.assertEqual(len(steps), 10)
        place = self.place / f"by hand {len(list(self.place.iterdir()))}"
        place.mkdir()
        environment = {"PATH": "/usr/bin:/bin", "PYTHONIOENCODING": "utf-8:strict", "bucket": str(bucket), "wanted": wanted,
                       "format": str(FORMAT), "secret": str(secret), "PYTHONDONTWRITEBYTECODE": "1"}
        done = subprocess.run(["bash", "-euo", "pipefail", "-c", "\n".join(steps)], cwd=place, env=environment,
                              capture_output=True, check=False)
        restored = place / "restored"
        return done, restored.read_bytes() if restored.exists() else b""

    def expect(self, bucket, wanted, content, secret="/nowhere"):
        done, restored = self.by_hand(bucket, wanted, secret)
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

    def secret(self, text):
        path = self.place / f"secret {text[:8]}"
        path.write_text(text + "\na second line\n")
        return path

    def test_a_file_of_an_encrypted_repository(self):
        generator = random.Random(6)
        large = generator.randbytes(3_000_000)
        text = b"".join(b"line %d of a text\n" % line for line in range(50_000))
        (self.source / "text").write_bytes(text)
        (self.source / "large").write_bytes(large)
        (self.source / "nothing").touch()
        self.run_agent("init")
        self.run_agent("backup", self.source)
        password = self.secret("open sesame")
        bucket = self.place / "repository"
        self.expect(bucket, f"{self.source}/text", text, password)
        self.environment["CLOUDBACKUP_NEW_PASSWORD"] = "another ü"
        self.run_agent("key", "change")
        self.environment["CLOUDBACKUP_PASSWORD"] = "another ü"
        (self.source / "new").write_text("of the second key")
        self.run_agent("backup", self.source)
        self.run_agent("key", "rotate")
        (self.source / "newer").write_text("of the third key")
        self.run_agent("backup", self.source)
        self.run_agent("key", "export", self.place / "recovery keys")
        listed = ""
        for secret in (self.secret("another ü"), self.place / "recovery keys"):
            listed = self.expect(bucket, f"{self.source}/text", text, secret)
            self.expect(bucket, f"{self.source}/large", large, secret)
            self.expect(bucket, f"{self.source}/nothing", b"", secret)
            self.expect(bucket, f"{self.source}/new", b"of the second key", secret)
            self.expect(bucket, f"{self.source}/newer", b"of the third key", secret)
        self.assertIn("newer\n", listed)
        done, restored = self.by_hand(bucket, f"{self.source}/text", password)
        self.assertEqual((done.returncode, done.stderr), (1, b"the password is wrong\n"))
        self.assertEqual(restored, b"")
        for record in bucket.rglob("ClientKey*.xml"):
            record.unlink()
        self.expect(bucket, f"{self.source}/large", large, self.place / "recovery keys")

    def restore_every_file(self, golden, checkpoints, secret="/nowhere"):
        copy = self.place / "repository"
        shutil.copytree(golden / "repository", copy)
        restored = 0
        for checkpoint in checkpoints:
            for line in (golden / f"checkpoint-{checkpoint}").read_text().splitlines():
                entry = json.loads(line)
                if "sha256" in entry:
                    done, content = self.by_hand(copy, os.fsencode("/srv/golden" + entry["path"]), secret)
                    self.assertEqual(done.returncode, 0, done.stderr.decode())
                    self.assertEqual(hashlib.sha256(content).hexdigest(), entry["sha256"], entry["path"])
                    restored += 1
            next(copy.glob(f"Draxo/Backup/*/Clients/*/*/Metadata/Checkpoint/{checkpoint}")).unlink()
        return restored

    def test_every_file_of_the_golden_repository(self):
        self.assertEqual(self.restore_every_file(GOLDEN, (2, 1)), 14)

    def test_every_file_of_the_sealed_golden_repository(self):
        self.assertEqual(self.restore_every_file(SEALED, (3, 2, 1), SEALED / "password"), 21)

    def test_sealed_things_in_other_places_are_seen(self):
        copy = self.place / "repository"
        shutil.copytree(SEALED / "repository", copy)
        documents = next(copy.glob("Draxo/Backup/*/Clients/*/*/Metadata/Checkpoint"))
        newest = (documents / "3").read_bytes()
        (documents / "3").write_bytes((documents / "2").read_bytes())
        done, _ = self.by_hand(copy, "/srv/golden/letter.txt", SEALED / "password")
        self.assertEqual(done.stderr, b"the document is not what was sealed with this key\n")
        (documents / "3").write_bytes(newest)
        blocks = [path for path in copy.glob("Draxo/Backup/*/Clients/*/*/BlockStore/*/*/*")]
        self.assertGreater(len(blocks), 1)
        contents = [path.read_bytes() for path in blocks]
        for path, content in zip(blocks, contents[1:] + contents[:1]):
            path.write_bytes(content)
        done, restored = self.by_hand(copy, "/srv/golden/letter.txt", SEALED / "password")
        self.assertRegex(done.stderr.decode(), "^a chunk of block [0-9a-f]{32} is not what was sealed with this key\n$")
        self.assertEqual(restored, b"")

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

    def test_the_keys_of_the_sealed_example_are_those_that_the_page_tells(self):
        """Every value of the worked example in agent.md, made anew by what the page says."""
        page = (FORMAT / "agent.md").read_text()
        example = dict(re.findall(r"^    ([a-z][a-z ]*[a-z])  +([0-9a-f]{32,64})$", page, re.MULTILINE))
        self.assertEqual(set(example), {"key", "key id", "document key", "metadata key", "chunk key", "wrap key"})
        program = """
import sys; sys.path.insert(0, sys.argv[1]); import sealed, hashlib
salt = bytes([1]) + (64).to_bytes(4, "little") + (1).to_bytes(4, "little") + bytes(range(16))
key = sealed.key_of_password(b"open sesame", salt)
print(key.hex(), sealed.key_id(key), *(sealed.derive(key, purpose, subject).hex() for purpose, subject in (
    (b"document", b""), (b"metadata", bytes.fromhex("3d6d68538a53875c9db82c54d6bb770c")),
    (b"chunk", hashlib.sha256(b"hello\\n").digest()), (b"former keys", b""))))"""
        done = subprocess.run([PYTHON, "-Bc", program, FORMAT], capture_output=True, check=True, text=True)
        self.assertEqual(done.stdout.split(), [example[name] for name in
                                               ("key", "key id", "document key", "metadata key", "chunk key", "wrap key")])


if __name__ == "__main__":
    main()
