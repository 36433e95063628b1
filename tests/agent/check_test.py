#!/usr/bin/env python3
"""Damage of every kind done to a repository: check names it, repair mends what can be mended and loses nothing else."""
import base64
import json
import os
import pathlib
import re
import shutil
import zlib

from agent import AgentCase, describe, fill, main


class Check(AgentCase):
    def setUp(self):
        super().setUp()
        self.run_agent("init")
        fill(self.source, 11, files=150)
        self.run_agent("backup", self.source)
        self.store = next((self.place / "repository").rglob("BlockStore"))
        self.metadata = self.store.parent / "Metadata"

    def check(self, *arguments, expect=0):
        """The findings, and the result."""
        out, err = self.run_agent("--json", "--progress", "never", "check", *arguments, expect=expect)
        *findings, result = [json.loads(line) for line in out.splitlines()]
        self.assertEqual(result["event"], "checked")
        self.assertEqual(result["damaged"], bool(findings))
        self.assertTrue(all(one["event"] == "finding" for one in findings))
        self.assertEqual(err, "")
        return findings, result

    def repair(self, *arguments, expect=0):
        """Without the source, unless it is said where it is."""
        source = [] if "--source" in arguments or arguments[:1] == ("from-source",) else ["--no-source"]
        arguments = [argument for argument in arguments if argument != "from-source"]
        out, _ = self.run_agent("--json", "--progress", "never", "repair", *source, *arguments, expect=expect)
        events = [json.loads(line) for line in out.splitlines()]
        return next(one for one in events if one["event"] == "repaired")

    def blocks(self):
        return sorted(path for path in self.store.rglob("*") if path.is_file())

    def parts(self):
        """The banks of all metadata."""
        return sorted(self.metadata.glob("*_metaparts/*"))

    def ids(self):
        out, _ = self.run_agent("--json", "checkpoints")
        return [json.loads(line)["id"] for line in out.splitlines()]

    def files(self):
        return {str(path) for path in self.source.rglob("*") if path.is_file()}

    def snapshot(self):
        """Every object of the repository with its bytes."""
        root = self.place / "repository"
        return {str(path.relative_to(root)): path.read_bytes() for path in root.rglob("*") if path.is_file()}

    def forget_local_metadata(self):
        copies = list((self.place / "state").rglob("*.meta"))
        self.assertTrue(copies)
        for path in copies:
            path.unlink()

    def expect_rest(self, checkpoint, lost):
        """The checkpoint restores without a failure, to all but the lost files."""
        restored = pathlib.Path(self.restore(checkpoint))
        for path in lost:
            self.assertFalse((restored / os.path.relpath(path, self.source)).exists(), path)
        kept = {os.path.relpath(path, self.source) for path in self.files() - set(lost)}
        self.assertEqual({os.path.relpath(path, restored) for path in restored.rglob("*") if path.is_file()}, kept)
        for path in kept:
            self.assertEqual((restored / path).read_bytes(), (self.source / path).read_bytes(), path)

    def expect_healed(self):
        """The next backup has everything again."""
        self.run_agent("backup", self.source)
        self.assertEqual(describe(self.restore("latest")), describe(self.source))

    def mend(self, findings):
        """Repairs; what was found must be what was lost."""
        affected = {path for one in findings for path in one["files"]}
        self.assertTrue(affected)
        self.assertLess(len(affected), len(self.files()))
        before = self.snapshot()
        dry = self.repair("--dry-run", "--read-data")
        self.assertEqual(self.snapshot(), before)
        self.assertEqual(dry["checkpoint"], 0)
        done = self.repair("--read-data")
        self.assertEqual(done["checkpoint"], 2)
        self.assertEqual(done["roots"], dry["roots"])
        lost = done["roots"][0]["lostFiles"]
        self.assertLessEqual(set(lost), affected)
        after = self.snapshot()
        self.assertEqual({name: after[name] for name in before}, before)  # nothing is taken away
        self.expect_rest("2", lost)
        self.assertEqual(self.repair("--read-data")["roots"], [])
        self.expect_healed()
        return lost

    def test_a_sound_repository(self):
        out, err = self.run_agent("check", "--digests", "--read-data")
        self.assertEqual(err, "")
        lines = out.splitlines()
        self.assertEqual(len(lines), 3)
        self.assertRegex(lines[0], r"^Structure: sound\. 1 checkpoint, \d+ metadata objects and \d+ blocks are there "
                                   r"with the sizes recorded, and all metadata is whole\. This says nothing of the "
                                   r"bytes in the blocks\.$")
        self.assertEqual(lines[1], "Digests: nothing proven. This store records no MD5 of its objects; use "
                                   "--read-data.")
        self.assertRegex(lines[2], r"^Data \(all blocks\): sound\. (\d+) of \1 blocks? (?:was|were) read: [\d,]+ chunks gave "
                                   r"[\d.]+ MiB with the right SHA-256\. All content can be restored\.$")
        _, result = self.check()
        self.assertEqual(result["counts"]["blocks"], len(self.blocks()))
        self.assertEqual(result["counts"]["chunksRead"], 0)
        self.assertEqual(result["counts"]["unneededObjects"], 0)
        before = self.snapshot()
        out, _ = self.run_agent("repair")
        self.assertEqual(out, "Checkpoint 1, the last one, needs no repair.\n")
        self.assertEqual(self.snapshot(), before)

    def test_samples_together_read_everything(self):
        read = 0
        for part in (1, 2, 3):
            read += self.check(f"--read-data={part}/3")[1]["counts"]["blocksRead"]
        self.assertEqual(read, len(self.blocks()))
        out, _ = self.run_agent("check", "--read-data=50%", "--seed", "7")
        self.assertIn("Data (50% of the blocks (seed 7)): sound.", out)
        self.assertIn("This says nothing of the other blocks.", out)
        self.run_agent("check", "--read-data=0%", expect=2)

    def test_a_missing_block(self):
        missing = self.blocks()[0]
        missing.unlink()
        findings, _ = self.check(expect=1)
        self.assertEqual([(one["kind"], one["reason"], one["checkpoints"]) for one in findings],
                         [("block-missing", "is missing", [1])])
        self.assertTrue(findings[0]["object"].endswith(missing.name))
        out, err = self.run_agent("check", expect=1)
        self.assertIn("Structure: damaged", out)
        self.assertRegex(err, r"cloudbackup: block-missing: '/default/BlockStore/.*': is missing \(checkpoint 1\)\n")
        self.assertIn("cloudbackup:   affects " + findings[0]["files"][0] + "\n", err)
        lost = self.mend(findings)
        self.assertEqual(sorted(lost), sorted(findings[0]["files"]))

    def test_a_truncated_block_loses_only_what_was_cut_off(self):
        block = self.blocks()[0]
        os.truncate(block, block.stat().st_size - 1)
        findings, _ = self.check(expect=1)
        self.assertEqual([one["kind"] for one in findings], ["block-size"])
        lost = self.mend(findings)
        self.assertLess(len(lost), len(findings[0]["files"]))

    def test_a_flipped_byte_is_found_by_reading_alone(self):
        block = self.blocks()[0]
        content = bytearray(block.read_bytes())
        content[len(content) // 2] ^= 1
        block.write_bytes(content)
        self.assertEqual(self.check()[0], [])
        findings, result = self.check("--read-data", expect=1)
        self.assertEqual([one["kind"] for one in findings], ["block-data"])
        self.assertIn("The chunk at byte ", findings[0]["reason"])
        self.assertIn("damaged", result["statements"][1])
        self.assertEqual(sorted(self.mend(findings)), sorted(findings[0]["files"]))

    def test_damage_of_an_old_checkpoint_leaves_the_new_one(self):
        (self.source / "old").write_bytes(os.urandom(3_000_000))
        known = set(self.blocks())
        self.run_agent("backup", self.source)
        (self.source / "old").unlink()
        self.run_agent("backup", self.source)
        for block in set(self.blocks()) - known:
            block.unlink()
        findings, _ = self.check(expect=1)
        self.assertEqual({tuple(one["files"]) for one in findings}, {(str(self.source / "old"),)})
        self.assertEqual({tuple(one["checkpoints"]) for one in findings}, {(2,)})
        self.assertEqual(self.repair()["roots"], [])
        self.assertEqual(self.ids(), [1, 2, 3])
        self.assertEqual(describe(self.restore("3")), describe(self.source))

    def damage_last_metadata(self):
        """Takes away what the second checkpoint's run wrote of a bank."""
        known = set(self.parts())
        (self.source / "new").write_text("new")
        self.run_agent("backup", self.source)
        for part in set(self.parts()) - known:
            part.unlink()
        findings, result = self.check(expect=1)
        self.assertEqual([(one["kind"], one["reason"], one["checkpoints"], one["files"]) for one in findings],
                         [("metadata", "is missing", [2], [str(self.source)])])
        self.assertIn("Structure: damaged", result["statements"][0])

    def test_a_missing_metadata_part_and_this_machines_copy(self):
        self.damage_last_metadata()
        done = self.repair()
        self.assertEqual((done["checkpoint"], done["roots"]),
                         (3, [{"path": str(self.source), "lostFiles": [], "takenFromCheckpoint": 2}]))
        self.forget_local_metadata()
        self.expect_rest("3", [])
        self.expect_healed()

    def test_a_missing_metadata_part_and_no_copy(self):
        self.damage_last_metadata()
        self.forget_local_metadata()
        done = self.repair()
        self.assertEqual(done["roots"], [{"path": str(self.source), "lostFiles": [], "takenFromCheckpoint": 1}])
        self.expect_rest("3", [str(self.source / "new")])
        self.expect_healed()
        self.assertEqual(self.ids(), [1, 2, 3, 4])

    def test_all_metadata_lost(self):
        headers = [path for path in self.metadata.iterdir() if path.is_file()]
        self.assertEqual(len(headers), 1)
        headers[0].unlink()
        self.forget_local_metadata()
        findings, _ = self.check(expect=1)
        self.assertEqual([one["kind"] for one in findings], ["metadata"])
        done = self.repair()
        self.assertEqual(done["roots"], [{"path": str(self.source), "lostFiles": [], "takenFromCheckpoint": 0}])
        self.expect_healed()

    def test_a_flipped_byte_in_metadata(self):
        part = self.parts()[0]
        content = bytearray(part.read_bytes())
        content[len(content) // 2] ^= 1
        part.write_bytes(content)
        findings, _ = self.check(expect=1)
        self.assertEqual([one["kind"] for one in findings], ["metadata"])
        self.assertEqual(self.repair()["roots"][0]["takenFromCheckpoint"], 1)  # this machine's copy
        self.expect_rest("2", [])

    def test_a_damaged_document(self):
        (self.source / "new").write_text("new")
        self.run_agent("backup", self.source)
        document = self.metadata / "Checkpoint" / "2"
        damaged = document.read_bytes()[:-20]
        document.write_bytes(damaged)
        findings, _ = self.check(expect=1)
        self.assertEqual([(one["kind"], one["object"], one["checkpoints"]) for one in findings],
                         [("checkpoint", "/default/Metadata/Checkpoint/2", [2])])
        before = self.snapshot()
        self.assertEqual(self.repair(expect=1)["unreadableCheckpoints"], [2])
        self.assertEqual(self.snapshot(), before)
        done = self.repair("--remove-unreadable")
        self.assertEqual([one["checkpoint"] for one in done["removedDocuments"]], [2])
        self.assertEqual(pathlib.Path(done["removedDocuments"][0]["copy"]).read_bytes(), damaged)
        self.expect_rest("1", [str(self.source / "new")])
        self.expect_healed()
        self.assertEqual(self.ids(), [1, 2])

    def expect_rebuilt(self, *arguments, blocks=1):
        """All blocks come back byte for byte, and every checkpoint with them."""
        before = self.snapshot()
        dry = self.repair("from-source", "--dry-run", *arguments)
        self.assertEqual(self.snapshot(), before)
        done = self.repair("from-source", *arguments)
        self.assertEqual(done["rebuiltBlocks"], dry["rebuiltBlocks"])
        self.assertEqual((len(done["rebuiltBlocks"]), done["roots"], done["checkpoint"]), (blocks, [], 0))
        self.assertEqual(self.check("--read-data")[0], [])

    def test_a_missing_block_comes_back_from_the_source(self):
        sound = self.snapshot()
        for block in self.blocks():
            block.unlink()
        blocks = len([name for name in sound if "BlockStore" in name])
        self.expect_rebuilt(blocks=blocks)
        self.assertEqual(self.snapshot(), sound)
        self.assertEqual(describe(self.restore("1")), describe(self.source))
        out, _ = self.run_agent("repair")
        self.assertEqual(out, "Checkpoint 1, the last one, needs no repair.\n")

    def test_the_client_of_another_machine_is_repaired_only_when_it_seems_to_be_gone(self):
        self.blocks()[0].unlink()
        self.environment["CLOUDBACKUP_STATE_DIR"] = f"{self.place}/other-state"
        before = self.snapshot()
        _, err = self.run_agent("repair", "--no-source", expect=1)
        self.assertRegex(err, "^cloudbackup: Client [0-9a-f-]{36} has made checkpoint 1 of set 'default' so lately that "
                              "a run of it may be under way: do this on its own machine, or say with --min-age that an "
                              "earlier checkpoint is old enough\n$")
        self.assertEqual(self.snapshot(), before)
        self.assertEqual(self.repair("--dry-run")["base"], 1)
        self.assertEqual(self.repair("--min-age", "0")["checkpoint"], 2)
        self.run_agent("repair", "--min-age", "soon", expect=2)

    def test_what_is_told_of_a_block_that_came_back(self):
        self.blocks()[0].unlink()
        out, _ = self.run_agent("repair")
        self.assertRegex(out, r"^stored again from its files: '/default/BlockStore/\S+'\n"
                              r"Checkpoint 1, the last one, needs no further repair\.\n$")

    def test_a_flipped_and_a_cut_block_come_back(self):
        sound = self.snapshot()
        block = self.blocks()[0]
        content = bytearray(block.read_bytes())
        content[len(content) // 2] ^= 1
        block.write_bytes(content)
        self.expect_rebuilt("--read-data")
        os.truncate(block, block.stat().st_size - 1)
        self.expect_rebuilt()
        block.write_bytes(b"")
        self.expect_rebuilt()
        self.assertEqual(self.snapshot(), sound)

    def test_a_block_of_an_old_checkpoint_comes_back_while_any_file_has_its_content(self):
        content = os.urandom(3_000_000)
        (self.source / "old").write_bytes(content)
        known = set(self.blocks())
        self.run_agent("backup", self.source)
        new = set(self.blocks()) - known
        (self.source / "copy").write_bytes(content)
        (self.source / "old").unlink()
        self.run_agent("backup", self.source)
        for block in new:
            block.unlink()
        self.expect_rebuilt(blocks=len(new))
        self.assertEqual((pathlib.Path(self.restore("2")) / "old").read_bytes(), content)

    def test_what_the_source_has_no_more_is_lost(self):
        for path in sorted(self.files()):
            with open(path, "r+b") as file:
                file.write(b"changed")
        missing = self.blocks()[0]
        missing.unlink()
        findings, _ = self.check(expect=1)
        done = self.repair("from-source")
        self.assertEqual(done["rebuiltBlocks"], [])
        self.assertEqual(sorted(done["roots"][0]["lostFiles"]), sorted(findings[0]["files"]))
        self.assertFalse(missing.exists())
        self.expect_healed()

    def test_a_source_that_lies_elsewhere(self):
        elsewhere = self.place / "elsewhere"
        shutil.copytree(self.source, str(elsewhere) + str(self.source))
        content = {path: path.read_bytes() for path in self.source.rglob("*") if path.is_file()}
        sound = self.snapshot()
        for path in content:
            path.write_bytes(b"no more")
        for block in self.blocks():
            block.unlink()
        self.assertEqual(self.repair("from-source", "--dry-run")["rebuiltBlocks"], [])
        self.repair("--source", f"{elsewhere}/")
        self.assertEqual(self.snapshot(), sound)

    def test_a_document_that_may_be_whole_is_left_alone(self):
        self.run_agent("backup", self.source)
        document = self.metadata / "Checkpoint" / "2"
        text = document.read_text()
        stored = re.search(r'InlineContent="([^"]+)"', text).group(1)
        value = json.loads(zlib.decompress(base64.b64decode(stored)))
        sealed = value["sealed"]
        altered = sealed[:50] + ("A" if sealed[50] != "A" else "B") + sealed[51:]
        for change in ({"version": 99}, {"key": value["key"][::-1]}, {"sealed": altered}):
            packed = base64.b64encode(zlib.compress(json.dumps(value | change).encode())).decode()
            document.write_text(text.replace(stored, packed))
            before = self.snapshot()
            done = self.repair("--remove-unreadable", expect=1)
            self.assertEqual((done["removedDocuments"], done["foreignCheckpoints"]), ([], [2]), change)
            _, err = self.run_agent("repair", "--remove-unreadable", expect=1)
            self.assertIn("cloudbackup: the document of checkpoint 2 cannot be read, yet may be whole (a later format, "
                          "another key, or not authentic): left alone\n", err)
            self.assertEqual(self.snapshot(), before)

    def test_what_nobody_needs_is_told_and_is_no_damage(self):
        stray = self.blocks()[0].parent / ("0" * 32)
        stray.write_bytes(b"12345")
        other = self.store / "11111111-2222-3333-4444-555555555555" / "ab"
        other.mkdir(parents=True)
        shutil.copy(stray, other / "ab")
        _, result = self.check()
        self.assertEqual((result["counts"]["unneededObjects"], result["counts"]["unneededBytes"]), (2, 10))
        out, _ = self.run_agent("check")
        self.assertIn("Note: 2 block objects of 10 bytes that no checkpoint needs", out)

    def test_a_repository_that_cannot_be_read_is_no_damage(self):
        shutil.rmtree(self.place / "repository")
        out, err = self.run_agent("check", expect=1)
        self.assertEqual(out, "")
        self.assertIn("Cannot open the repository", err)


if __name__ == "__main__":
    main()
