#!/usr/bin/env python3
"""The agent's golden repository: restored, gone on with, and damaged."""
import hashlib
import json
import os
import pathlib
import re
import shutil
import sys
import tempfile

ROOT = pathlib.Path(__file__).parents[2]
sys.path[:0] = [str(ROOT / "tests/agent"), str(ROOT / "tests/data")]

import golden_tree  # noqa: E402: found by the line above
from agent import AgentCase, describe, fill, main  # noqa: E402

GOLDEN = ROOT / "tests/data/golden/agent"
SEALED = ROOT / "tests/data/golden/agent_sealed"
CLIENT = (GOLDEN / "client-id").read_text().strip()
STORAGE = "3d6d6853-8a53-875c-9db8-2c54d6bb770c"
BUCKET_PATH = f"/Draxo/Backup/cloudbackup/Clients/{CLIENT}"
DOWNLOAD_FAILURE = (f"Cannot prepare local storage metadata for write. Storage id: {STORAGE}, local path: "
                    f"LOCAL/{STORAGE}.meta, local version: 0: Failed to download storage metadata '{STORAGE}.2' from "
                    f"cloud. Local path: 'LOCAL/{STORAGE}.meta': ")


def keeps_attributes(folder):
    try:
        os.setxattr(folder, "user.test", b"")
        return True
    except OSError:
        return False


class AgentGolden(AgentCase):
    maxDiff = None
    golden = GOLDEN

    def setUp(self):
        super().setUp()
        shutil.copytree(GOLDEN / "repository", self.place / "repository")
        self.set = self.place / "repository/Draxo/Backup/cloudbackup/Clients" / CLIENT / "default"

    def be_the_golden_client(self):
        (self.place / "state").mkdir(mode=0o700)
        shutil.copy(GOLDEN / "client-id", self.place / "state/client-id")

    def comparable(self, lines):
        """Without what this user or this file system cannot have."""
        entries = [json.loads(line) for line in lines]
        for entry in entries:
            if os.geteuid() != 0:
                del entry["owner"], entry["group"]
            if not keeps_attributes(self.place):
                entry.pop("attributes", None)
        return entries

    def expect_golden(self, checkpoint, restored, root="/srv/golden"):
        kept = (self.golden / f"checkpoint-{checkpoint}").read_text().splitlines()
        self.assertEqual(self.comparable(golden_tree.describe(restored + root)), self.comparable(kept))

    def restore(self, checkpoint):
        target = tempfile.mkdtemp(dir=self.place)
        self.run_agent("restore", checkpoint, "--target", target)
        return target

    def test_both_checkpoints_are_restored_by_any_machine(self):
        for checkpoint in (1, 2):
            self.expect_golden(checkpoint, self.restore(checkpoint))

    def test_its_own_machine_goes_on(self):
        self.be_the_golden_client()
        fill(self.source, 1, files=10)
        out, _ = self.run_agent("backup", "--no-encryption", self.source)
        self.assertIn("Checkpoint 3 of set 'default'", out)
        self.assertIn("/srv/golden: 6 files, 1.1 MiB, as in checkpoint 2", out)
        restored = self.restore("latest")
        self.expect_golden(2, restored)
        self.assertEqual(describe(restored + str(self.source)), describe(self.source))
        self.expect_golden(1, self.restore(1))

    def test_another_machine_begins_beside_it(self):
        fill(self.source, 1, files=10)
        self.run_agent("backup", self.source)
        out, _ = self.run_agent("--client", CLIENT, "checkpoints")
        self.assertEqual(len(out.splitlines()), 3)
        out, _ = self.run_agent("checkpoints")
        self.assertEqual(len(out.splitlines()), 2)

    def restore_failure(self, code=1):
        """What a restore of checkpoint 2 prints, with all causes; a line for each trouble."""
        target = tempfile.mkdtemp(dir=self.place)
        _, err = self.run_agent("-v", "restore", "2", "--target", target, expect=code)
        err = re.sub(re.escape(str(self.place)) + r"/state/\S*/run-\w{6}/", "LOCAL/", err.replace(target, "TARGET"))
        return [line.removeprefix("cloudbackup: ") for line in err.splitlines()], target

    def block(self, folder):
        return next(self.set.glob(f"BlockStore/{STORAGE}/{folder}/*"))

    def expect_refused(self, *texts):
        self.assertEqual(self.restore_failure()[0], ["".join(texts)])

    def test_a_missing_block_hurts_only_its_files(self):
        path = f"/default/BlockStore/{STORAGE}/18/18bebac95e3f046f79e52bf6094b4128"
        self.block("18").unlink()
        troubles, target = self.restore_failure(code=3)
        cause = f"DownloadFile '{BUCKET_PATH}{path}': object not found"
        first = f"The chunk at byte 0 of block '{path}' cannot be read: {cause}"
        self.assertEqual(troubles, [
            f"TARGET/srv/golden/folder/inner/file: {first}",
            f"TARGET/srv/golden/not \\xff UTF-8, ü is: {first}",
            f"TARGET/srv/golden/sparse: The chunk at byte 102 of block '{path}' cannot be read: {cause}",
            "TARGET/srv/golden/hard link: is another name of 'folder/inner/file', which could not be restored"])
        restored = {json.loads(line)["path"]: json.loads(line) for line in golden_tree.describe(target + "/srv/golden")}
        kept = {json.loads(line)["path"]: json.loads(line)
                for line in (GOLDEN / "checkpoint-2").read_text().splitlines()}
        lost = {"/folder/inner/file", "/not \udcff UTF-8, \u00fc is", "/sparse", "/hard link"}
        self.assertEqual(set(kept) - set(restored), lost)
        self.assertEqual(restored["/letter.txt"]["sha256"], kept["/letter.txt"]["sha256"])
        self.assertEqual(restored["/random"]["sha256"], kept["/random"]["sha256"])

    def test_a_damaged_block_is_seen(self):
        block = self.block("be")
        content = bytearray(block.read_bytes())
        content[1000] ^= 1
        block.write_bytes(content)
        cause = (f"The chunk at byte 0 of block '/default/BlockStore/{STORAGE}/be/{block.name}' cannot be read: its content "
                 "does not have the SHA-256 b1a6264b71bac2b57cab29f0ef288a2f857106464f12e86206de81e3fa89641a")
        self.assertEqual(self.restore_failure(code=3)[0],
                         [f"TARGET/srv/golden/letter.txt: {cause}", f"TARGET/srv/golden/random: {cause}"])

    def test_a_missing_part_of_the_metadata_is_named(self):
        part = f"/default/Metadata/{STORAGE}.1_metaparts/8192"
        (self.set.parent / part[1:]).unlink()
        self.expect_refused(DOWNLOAD_FAILURE, f"Cannot download bank blob [{part}] for storage [{STORAGE}.2]: ",
                            f"DownloadFile '{BUCKET_PATH}{part}': object not found")

    def test_a_missing_header_is_named(self):
        header = f"/default/Metadata/{STORAGE}.2"
        (self.set.parent / header[1:]).unlink()
        self.expect_refused(DOWNLOAD_FAILURE, f"DownloadFile '{BUCKET_PATH}{header}': object not found")

    def test_a_damaged_part_of_the_metadata_is_seen(self):
        part = next(self.set.glob(f"Metadata/{STORAGE}.2_metaparts/*"))
        part.write_bytes(part.read_bytes()[:-1] + b"\0")
        self.expect_refused(f"Cannot read metadata file 'LOCAL/{STORAGE}.meta': bank 1: its bytes are damaged")

    def test_an_older_header_under_the_name_is_seen(self):
        shutil.copy(self.set / "Metadata" / f"{STORAGE}.1", self.set / "Metadata" / f"{STORAGE}.2")
        self.expect_refused(f"Cannot read metadata file 'LOCAL/{STORAGE}.meta': ",
                            "it has 9250 bytes where the header says 8921")

    def test_a_damaged_checkpoint_leaves_the_other(self):
        path = self.set / "Metadata/Checkpoint/2"
        path.write_bytes(path.read_bytes()[:500])
        self.expect_refused("Failed to load checkpoint '2' for cloud backup 'default': Invalid XML document: cut off at ",
                            "byte 500, in attribute 'InlineContent' of node 'Dxr'")
        self.expect_golden(1, self.restore(1))


class SealedGolden(AgentCase):
    """The encrypted one; what a store can do to it is noticed and named."""
    expect_golden = AgentGolden.expect_golden
    comparable = AgentGolden.comparable
    restore = AgentGolden.restore
    golden = SEALED
    noticed = "it is not what was sealed with this key"

    def setUp(self):
        super().setUp()
        shutil.copytree(SEALED / "repository", self.place / "repository")
        self.client = self.place / "repository/Draxo/Backup/cloudbackup/Clients" / (SEALED / "client-id").read_text().strip()
        self.set = self.client / "default"
        self.environment["CLOUDBACKUP_PASSWORD"] = (SEALED / "password").read_text().strip()

    def be_the_golden_client(self):
        (self.place / "state").mkdir(mode=0o700)
        shutil.copy(SEALED / "client-id", self.place / "state/client-id")

    def expect_all(self):
        for checkpoint in (1, 2, 3):
            self.expect_golden(checkpoint, self.restore(checkpoint))

    def document(self, number):
        return self.set / "Metadata/Checkpoint" / str(number)

    def blocks(self):
        return sorted(self.set.glob("BlockStore/*/*/*"))

    def failure(self, checkpoint, code=1):
        target = tempfile.mkdtemp(dir=self.place)
        return self.run_agent("-v", "restore", checkpoint, "--target", target, expect=code)[1]

    def test_every_checkpoint_is_restored_by_any_machine(self):
        self.expect_all()
        out, _ = self.run_agent("key", "list")
        self.assertRegex(out, "^Client [0-9a-f-]{36} has no key yet: the first backup makes one\n$")  # this machine's own
        self.run_agent("check", "--read-data")

    def test_every_checkpoint_is_restored_with_recovery_keys_alone(self):
        for record in self.client.glob("Config/ClientKey*.xml"):
            record.unlink()
        del self.environment["CLOUDBACKUP_PASSWORD"]
        self.environment["CLOUDBACKUP_RECOVERY_FILE"] = str(SEALED / "recovery-keys")
        self.expect_all()

    def test_the_first_password_opens_nothing(self):
        self.environment["CLOUDBACKUP_PASSWORD"] = "the first password"
        self.assertIn("The password is wrong: it does not give key ", self.failure(1))

    def test_its_own_machine_goes_on(self):
        self.be_the_golden_client()
        out, _ = self.run_agent("key", "list")
        self.assertEqual([line.split("  ")[1] for line in out.splitlines()], ["in use", "former", "former"])
        fill(self.source, 1, files=10)
        out, _ = self.run_agent("backup", self.source)
        self.assertIn("Checkpoint 4 of set 'default'", out)
        self.run_agent("key", "rotate")
        restored = self.restore("latest")
        self.expect_golden(3, restored)
        self.assertEqual(describe(restored + str(self.source)), describe(self.source))
        self.expect_all()
        self.run_agent("forget", "1", "2")
        self.run_agent("prune")
        self.expect_golden(3, self.restore(3))

    def test_swapped_blocks_are_noticed_and_named(self):
        blocks = self.blocks()
        self.assertGreaterEqual(len(blocks), 3)
        contents = [path.read_bytes() for path in blocks]
        for path, content in zip(blocks, contents[1:] + contents[:1]):
            size = path.stat().st_size
            path.write_bytes(content.ljust(size, b"\0")[:size])
        for checkpoint in (1, 2, 3):
            err = self.failure(checkpoint, code=3)
            self.assertIn(self.noticed, err)
            self.assertTrue(any(path.name in err for path in blocks), err)
        out, _ = self.run_agent("--json", "check", "--read-data", expect=1)
        for path in blocks:
            self.assertIn(path.name, out)

    def test_a_truncated_block_is_noticed_and_named(self):
        block = self.blocks()[0]
        block.write_bytes(block.read_bytes()[:-1])
        out, _ = self.run_agent("--json", "check", expect=1)
        self.assertIn(block.name, out)

    def test_a_replayed_older_document_is_noticed(self):
        newest = self.document(3).read_text()
        self.document(3).write_text(self.document(2).read_text().replace('Id="2"', 'Id="3"'))
        err = self.failure(3)
        self.assertIn("The document of checkpoint 3 cannot be read: " + self.noticed, err)
        self.assertIn(self.noticed, self.failure("latest"))
        self.document(3).write_text(newest)
        self.expect_all()

    def test_a_document_of_another_set_or_client_is_noticed(self):
        shutil.copytree(self.set, self.client / "other")
        _, err = self.run_agent("--set", "other", "ls", 3, expect=1)
        self.assertIn(self.noticed, err)
        other = self.client.parent / "c1000000-0000-4000-8000-0000000000a8"
        shutil.copytree(self.client, other)
        info = other / "Config/ClientInfo.xml"
        info.write_text(info.read_text().replace(self.client.name, other.name))
        _, err = self.run_agent("--client", other.name, "ls", 3, expect=1)
        self.assertIn(self.noticed, err)

    def test_older_metadata_under_a_newer_document_is_noticed(self):
        """All of it authentic, put together by the store: the header's digest in the document tells."""
        def stored(number):
            return re.search(r" *<Stg .*</Stg>", self.document(number).read_text(), re.DOTALL)[0]
        self.document(3).write_text(self.document(3).read_text().replace(stored(3), stored(2)))
        self.assertRegex(self.failure(3), r"The metadata of '/srv/golden' \(storage [0-9a-f-]{36}\) in the repository is not the "
                                          "one that its checkpoint was made with")

    def test_a_replaced_header_is_noticed(self):
        headers = sorted(path for path in (self.set / "Metadata").iterdir() if path.is_file())
        self.assertEqual(len(headers), 3)
        shutil.copy(headers[1], headers[2])
        self.assertRegex(self.failure(3), r"Cannot read metadata file '\S*': |is not the one that its checkpoint was made with")

    def test_a_changed_header_is_noticed(self):
        """Whoever changes a header can make its own digest fit; the document's does not."""
        header = sorted(path for path in (self.set / "Metadata").iterdir() if path.is_file())[2]
        content = bytearray(header.read_bytes())
        content[72:80] = (int.from_bytes(content[72:80], "little") + 1).to_bytes(8, "little")
        content[8160:] = hashlib.sha256(content[:8160]).digest()
        header.write_bytes(content)
        self.assertIn("is not the one that its checkpoint was made with", self.failure(3))

    def test_without_the_history_former_keys_are_missed_by_name(self):
        (self.client / "Config/ClientKeyHistory.xml").unlink()
        self.assertRegex(self.failure(1), "it is encrypted with key [0-9a-f]{32}, which is not among the keys of this client")
        err = self.failure(3, code=3)  # its metadata has the newest key, most of its blocks have former ones
        self.assertRegex(err, "it is encrypted with key [0-9a-f]{32}, which is not among the keys of this client")


if __name__ == "__main__":
    main()
