#!/usr/bin/env python3
"""Restoring: wholly and in part, elsewhere and in place, over what is there, with what cannot be restored."""
import json
import os
import random
import shutil
import signal
import subprocess
import tempfile
import time
import unittest

from agent import AgentCase, describe, fill, main


class Restore(AgentCase):
    def setUp(self):
        super().setUp()
        self.run_agent("init")

    def backup(self):
        self.run_agent("backup", self.source)

    def into(self, target, *arguments, which="1", expect=0):
        """Restores into the target; the result as the program tells it."""
        out, err = self.run_agent("--json", "restore", which, *arguments, "--target", target, expect=expect)
        self.err = err
        return json.loads(out.splitlines()[-1])

    def some_tree(self):
        (self.source / "docs/deep").mkdir(parents=True)
        (self.source / "docs/a.txt").write_text("a")
        (self.source / "docs/b.log").write_text("b")
        (self.source / "docs/deep/c.txt").write_text("c")
        (self.source / "other.txt").write_text("other")
        os.symlink("a.txt", self.source / "docs/link")
        os.link(self.source / "other.txt", self.source / "second")
        self.backup()

    def files_in(self, target):
        return sorted(os.path.relpath(os.path.join(folder, name), target)
                      for folder, _, names in os.walk(target) for name in names)

    def test_paths_and_patterns(self):
        self.some_tree()
        base = str(self.source)[1:]
        for number, (arguments, expected) in enumerate([
            ([self.source / "docs/deep"], ["docs/deep/c.txt"]),
            ([self.source / "docs/a.txt", self.source / "other.txt"], ["docs/a.txt", "other.txt"]),
            (["--include", "*.txt"], ["docs/a.txt", "docs/deep/c.txt", "other.txt"]),
            (["--include", "/docs", "--exclude", "*.log"], ["docs/a.txt", "docs/deep/c.txt", "docs/link"]),
            (["--exclude", "deep/", "--exclude", "/other.txt"], ["docs/a.txt", "docs/b.log", "docs/link", "second"]),
            ([self.source / "docs", "--include", f"{self.source}/docs/deep"], ["docs/deep/c.txt"]),
            ([self.source / "second"], ["second"]),
        ]):
            target = self.place / f"t{number}"
            self.into(target, *arguments)
            self.assertEqual(self.files_in(target / base), expected, arguments)
        self.assertEqual((target / base / "second").read_text(), "other")

    def test_a_subfolder_comes_directly_into_the_target(self):
        self.some_tree()
        self.into(self.place / "t", which=f"1:{self.source}/docs")
        self.assertEqual(describe(self.place / "t"), describe(self.source / "docs"))
        self.into(self.place / "u", "--exclude", "*.txt", which=f"latest:{self.source}/docs/")
        self.assertEqual(self.files_in(self.place / "u"), ["b.log", "link"])
        _, err = self.run_agent("restore", f"1:{self.source}/none", "--target", self.place / "v", expect=1)
        self.assertEqual(err, f"cloudbackup: Checkpoint 1 has no folder '{self.source}/none'\n")
        self.assertFalse((self.place / "v").exists())

    def test_a_path_that_is_not_there_is_told_before_anything_is_done(self):
        self.some_tree()
        _, err = self.run_agent("restore", "1", self.source / "nothing", "--target", self.place / "t", expect=1)
        self.assertEqual(err, f"cloudbackup: Checkpoint 1 holds nothing at '{self.source}/nothing'\n")

    def test_wrong_use_is_told(self):
        self.some_tree()
        for arguments, text in (
            (["1"], "Say where to restore to: --target DIR, or --in-place (see 'cloudbackup restore --help')"),
            (["1:/a", "--in-place"], "CHECKPOINT:FOLDER needs a --target; in place a folder is named as a PATH"),
            (["1", "--target", self.place / "t", "--delete"],
             "--delete needs --yes where nobody can be asked (--dry-run shows what would go)"),
        ):
            _, err = self.run_agent("restore", *arguments, expect=2)
            self.assertEqual(err, f"cloudbackup: {text}\n")
        for bad in ("first", "1:relative"):
            self.run_agent("restore", bad, "--target", self.place / "t", expect=2)

    def test_in_place_writes_what_differs_only(self):
        fill(self.source, 1, files=30)
        self.backup()
        before = describe(self.source)
        files = sorted(path for path in self.source.rglob("*") if path.is_file())
        kept = files[3].stat()
        files[0].write_bytes(b"edited")
        files[1].unlink()
        files[2].chmod(0o600)
        (self.source / "new").write_text("mine")
        out, _ = self.run_agent("--json", "restore", "1", "--in-place")
        result = json.loads(out)
        self.assertEqual((result["files"], result["unchanged"]), (2, len(files) - 2))
        self.assertEqual((self.source / "new").read_text(), "mine")
        (self.source / "new").unlink()
        self.run_agent("restore", "1", "--in-place")
        self.assertEqual(describe(self.source), before)
        self.assertEqual(files[3].stat().st_ino, kept.st_ino)

    def test_overwrite_rules(self):
        (self.source / "file").write_text("saved")
        os.utime(self.source / "file", (1000, 1000))
        self.backup()
        target = self.place / "t"
        at = target / str(self.source)[1:] / "file"
        at.parent.mkdir(parents=True)
        for rule, existing, when, expected in (
            ("never", "there", 500, "there"), ("if-newer", "there", 2000, "there"), ("if-newer", "there", 500, "saved"),
            ("if-changed", "other", 1000, "other"), ("if-changed", "there", 1001, "saved"),
            ("always", "other", 1000, "saved"),
        ):
            at.write_text(existing)
            os.utime(at, (when, when))
            result = self.into(target, "--overwrite", rule)
            self.assertEqual(at.read_text(), expected, (rule, existing, when))
            self.assertEqual(result["files"], 1 if expected == "saved" else 0)
        at.write_text("other")
        os.utime(at, (1000, 1000))
        self.into(target, "--overwrite", "if-changed", "--force-content")
        self.assertEqual(at.read_text(), "saved")
        _, err = self.run_agent("restore", "1", "--target", target, expect=1)
        self.assertEqual(err, f"cloudbackup: Cannot restore into '{target}': the folder is not empty\n")

    def test_large_files_keep_the_chunks_they_have(self):
        content = bytearray(random.Random(5).randbytes(12_000_000))
        (self.source / "large").write_bytes(content)
        self.backup()
        content[6_000_000] ^= 1
        (self.source / "large").write_bytes(content)
        for block in (self.place / "repository").rglob("BlockStore/*/*/*"):
            hidden = block.with_suffix(".hidden")
            block.rename(hidden)  # the edited chunk's block alone is asked for
        _, err = self.run_agent("restore", "1", "--in-place", expect=3)
        self.assertEqual(err.count("cannot be read"), 1)
        self.assertEqual((self.source / "large").read_bytes(), content, "what could not be restored was touched")
        for block in (self.place / "repository").rglob("*.hidden"):
            block.rename(block.with_suffix(""))
        self.run_agent("restore", "1", "--in-place", "--verify")
        content[6_000_000] ^= 1
        self.assertEqual((self.source / "large").read_bytes(), content)

    def test_delete_removes_what_the_checkpoint_does_not_have(self):
        self.some_tree()
        before = describe(self.source)
        (self.source / "docs/mine").mkdir()
        (self.source / "docs/mine/x").write_text("x")
        (self.source / "extra.log").write_text("y")
        outside = self.place / "outside"
        outside.mkdir()
        (outside / "safe").write_text("z")
        os.symlink(outside, self.source / "way")
        out, _ = self.run_agent("restore", "1", "--in-place", "--delete", "--dry-run")
        self.assertIn(f"would delete {self.source}/docs/mine\n", out)
        self.assertIn("  3 would be deleted\n", out)
        self.assertTrue((self.source / "docs/mine/x").exists())
        self.run_agent("restore", "1", "--in-place", "--delete", "--yes", "--exclude", "*.log")
        self.assertTrue((self.source / "extra.log").exists())
        self.assertFalse((self.source / "docs/mine").exists())
        (self.source / "extra.log").unlink()
        self.run_agent("restore", "1", "--in-place", "--delete", "--yes")
        self.assertEqual(describe(self.source), before)
        self.assertEqual((outside / "safe").read_text(), "z")

    def test_a_dry_run_writes_nothing(self):
        self.some_tree()
        out, _ = self.run_agent("restore", "1", "--target", self.place / "t", "--dry-run")
        self.assertFalse((self.place / "t").exists())
        self.assertIn(f"would restore {self.place}/t{self.source}/docs/a.txt\n", out)
        self.assertIn("Would restore checkpoint 1 into", out)

    def test_kinds_that_are_in_the_way(self):
        self.some_tree()
        before = describe(self.source)
        shutil.rmtree(self.source / "docs/deep")
        (self.source / "docs/deep").write_text("a file in place of a folder")
        (self.source / "docs/a.txt").unlink()
        (self.source / "docs/a.txt").mkdir()
        (self.source / "docs/link").unlink()
        (self.source / "docs/link").write_text("a file in place of a link")
        (self.source / "second").unlink()
        self.run_agent("restore", "1", "--in-place")
        self.assertEqual(describe(self.source), before)
        self.assertEqual((self.source / "second").stat().st_ino, (self.source / "other.txt").stat().st_ino)
        (self.source / "docs/a.txt").unlink()
        (self.source / "docs/a.txt").mkdir()
        (self.source / "docs/a.txt/mine").write_text("mine")
        _, err = self.run_agent("restore", "1", "--in-place", expect=3)
        self.assertEqual(err, f"cloudbackup: {self.source}/docs/a.txt: a folder that is not empty is in its place "
                              "(--delete removes it)\n")
        self.assertEqual((self.source / "docs/a.txt/mine").read_text(), "mine")

    def test_a_link_in_place_of_a_folder_is_not_followed(self):
        self.some_tree()
        outside = self.place / "outside"
        outside.mkdir()
        target = self.place / "t"
        base = target / str(self.source)[1:]
        base.mkdir(parents=True)
        for rule, code in (("never", 3), ("if-changed", 0), ("always", 0)):
            if (base / "docs").exists():
                shutil.rmtree(base / "docs")
            os.symlink(outside, base / "docs")
            self.run_agent("restore", "1", "--target", target, "--overwrite", rule, expect=code)
            self.assertEqual(os.listdir(outside), [], rule)
            if code == 0:
                self.assertEqual((base / "docs/a.txt").read_text(), "a")
            else:
                os.unlink(base / "docs")

    def test_verify_and_fsync(self):
        fill(self.source, 3, files=60)
        (self.source / "empty").write_bytes(b"")
        with open(self.source / "sparse", "wb") as file:
            file.seek(30_000_000)
            file.write(b"end")
        self.backup()
        result = self.into(self.place / "t", "--verify", "--fsync")
        self.assertEqual((result["verified"], result["files"]), (62, 62))
        base = self.place / "t" / str(self.source)[1:]
        self.assertEqual(describe(base), describe(self.source))
        self.assertLess((base / "sparse").stat().st_blocks * 512, 1_000_000)

    def test_access_control_lists_and_capabilities(self):
        (self.source / "acl").write_text("x")
        (self.source / "tool").write_text("x")
        (self.source / "folder").mkdir()
        (self.source / "plain").write_text("x")
        if subprocess.run(["setfacl", "-m", "u:12345:rw", self.source / "acl"], check=False).returncode:
            self.skipTest("the file system has no access control lists")
        subprocess.run(["setfacl", "-d", "-m", "u:12345:rwx", self.source / "folder"], check=True)
        (self.source / "folder/inherits").write_text("x")
        names = ["acl", "folder", "folder/inherits", "plain", "tool"]
        if os.getuid() == 0:
            os.setxattr(self.source / "tool", "security.capability", bytes.fromhex("0100000200040000000000000000000000000000"))
        self.backup()

        def xattrs(root):
            return {name: {key: os.getxattr(f"{root}/{name}", key) for key in os.listxattr(f"{root}/{name}")}
                    for name in names}
        target = self.place / "t"
        target.mkdir()
        subprocess.run(["setfacl", "-d", "-m", "u:54321:rwx", target], check=True)
        self.into(target, "--overwrite", "if-changed")
        self.assertEqual(xattrs(str(target) + str(self.source)), xattrs(self.source))
        expected = xattrs(self.source)
        os.setxattr(self.source / "plain", "user.more", b"1")
        os.removexattr(self.source / "acl", "system.posix_acl_access")
        os.utime(self.source / "acl", ns=(1, os.stat(self.source / "acl").st_mtime_ns))
        self.run_agent("restore", "1", "--in-place")
        self.assertEqual(xattrs(self.source), expected)

    def test_what_could_not_be_restored_is_counted(self):
        (self.source / "large").write_bytes(os.urandom(3_000_000))
        (self.source / "empty").write_bytes(b"")
        os.link(self.source / "large", self.source / "zz other name")
        self.backup()
        for block in (self.place / "repository").rglob("BlockStore/*/*/*"):
            block.write_bytes(b"")
        out, err = self.run_agent("restore", "1", "--target", self.place / "t", expect=3)
        self.assertIn("  2 could not be restored; each is named above\n", out)
        self.assertRegex(err, f"cloudbackup: {self.place}/t{self.source}/large: .*cannot be read")
        self.assertIn(f"zz other name: is another name of 'large', which could not be restored", err)

    def test_an_interrupted_restore_says_so_and_goes_on_with_the_rest(self):
        fill(self.source, 4, files=3000)
        self.backup()
        target = self.place / "t"
        process = subprocess.Popen(self.command("restore", 1, "--target", target), env=self.environment,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        base = target / str(self.source)[1:]
        while process.poll() is None and not list(base.glob("d*/*")):
            time.sleep(0.001)
        process.send_signal(signal.SIGINT)
        _, err = process.communicate()
        self.assertEqual(process.returncode, 130, err)
        self.assertEqual(err, "cloudbackup: Interrupted: what was restored stays; the same command with "
                              "--overwrite if-changed restores the rest.\n")
        result = self.into(target, "--overwrite", "if-changed")
        self.assertGreater(result["unchanged"], 0)
        self.assertLess(result["files"], 3000)
        self.assertEqual(describe(base), describe(self.source))


if __name__ == "__main__":
    main()
