#!/usr/bin/env python3
"""Restoring: wholly and in part, elsewhere and in place, over what is there, with what cannot be restored."""
import json
import os
import pathlib
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

    def test_delete_leaves_alone_what_patterns_protect(self):
        self.some_tree()
        for path in ("mine/keep.log", "mine/a", "mine/deep/b", "logs/only.log"):
            (self.source / path).parent.mkdir(parents=True, exist_ok=True)
            (self.source / path).write_text("mine")
        out, _ = self.run_agent("restore", "1", "--in-place", "--delete", "--yes", "--exclude", "*.log", "--dry-run")
        self.assertEqual(sorted(line for line in out.splitlines() if line.startswith("would delete")),
                         [f"would delete {self.source}/mine/{name}" for name in ("a", "deep", "deep/b")])
        self.run_agent("restore", "1", "--in-place", "--delete", "--yes", "--exclude", "*.log")
        self.assertEqual(self.files_in(self.source / "mine"), ["keep.log"])
        self.assertFalse((self.source / "mine/deep").exists())
        self.assertTrue((self.source / "logs/only.log").exists())
        (self.source / "mine/a").write_text("mine")
        self.run_agent("restore", "1", "--in-place", "--delete", "--yes", "--include", "*.log")
        self.assertEqual(self.files_in(self.source / "mine"), ["a"])
        self.assertFalse((self.source / "logs/only.log").exists())
        self.assertTrue((self.source / "logs").exists(), "the folder's own name does not match")

    def test_delete_leaves_alone_what_is_mounted(self):
        (self.source / "usb").mkdir()
        (self.source / "bound").mkdir()
        self.backup()
        other = self.place / "other"
        (other / "folder").mkdir(parents=True)
        (other / "precious").write_text("precious")
        (self.source / "unknown/way").mkdir(parents=True)
        (self.source / "unknown/file").write_text("x")
        usb = self.source / "usb"
        script = f"""
            set -e
            mount -t tmpfs none '{usb}'
            echo precious > '{usb}/precious'; mkdir '{usb}/folder'; echo x > '{usb}/folder/x'
            mount --bind '{other}' '{self.source}/bound'
            mount --bind '{other}' '{self.source}/unknown/way'
            "$@" || code=$?
            test "$(cat '{usb}/precious')" = precious
            test -e '{usb}/folder/x'
            exit ${{code:-0}}"""
        own = [] if os.getuid() == 0 else ["--map-root-user"]
        self.assertEqual(subprocess.run(["unshare", *own, "-m", "true"], check=False).returncode, 0,
                         "this test mounts, which needs the right to make a namespace of mounts")

        def restore(*arguments):
            return subprocess.run(["unshare", *own, "-m", "sh", "-c", script, "sh",
                                   *self.command("restore", "1", "--in-place", "--delete", "--yes", *arguments)],
                                  env=self.environment, capture_output=True, text=True, check=False)
        for arguments in ([], ["--exclude", "*.log"]):
            (self.source / "unknown/file").write_text("x")
            done = restore(*arguments)
            self.assertEqual(describe(other)[1][0], b"/precious", done.stderr)
            self.assertEqual((other / "precious").read_text(), "precious")
            self.assertFalse((self.source / "unknown/file").exists())
            self.assertTrue((self.source / "unknown/way").exists())
            if not arguments:
                self.assertEqual((done.returncode, done.stderr), (
                    3, f"cloudbackup: {self.source}/unknown: Cannot remove the mounted folder "
                       f"'{self.source}/unknown/way': Invalid cross-device link\n"))
            else:
                self.assertEqual((done.returncode, done.stderr), (0, ""))

    def test_nothing_is_deleted_when_a_file_cannot_be_had(self):
        (self.source / "file").write_bytes(os.urandom(3_000_000))
        self.backup()
        (self.source / "file").rename(self.source / "renamed")
        blocks = list((self.place / "repository").rglob("BlockStore/*/*/*"))
        for block in blocks:
            block.rename(block.with_suffix(".hidden"))
        _, err = self.run_agent("restore", "1", "--in-place", "--delete", "--yes", expect=3)
        self.assertRegex(err, f"cloudbackup: {self.source}: nothing was deleted here, since not every file could be "
                              "restored\n$")
        self.assertTrue((self.source / "renamed").exists())
        for block in blocks:
            block.with_suffix(".hidden").rename(block)
        self.run_agent("restore", "1", "--in-place", "--delete", "--yes")
        self.assertEqual(self.files_in(self.source), ["file"])

    def nested_roots(self):
        """The outer root, then the inner one, by themselves; how both are to come back."""
        inner = self.source / "me/docs"
        inner.mkdir(parents=True)
        (self.source / "me/outer").write_text("outer")
        for name in ("edited", "gone", "kept"):
            (inner / name).write_text("first")
        self.backup()
        (inner / "edited").write_text("second, longer")
        (inner / "gone").unlink()
        (inner / "new").write_text("new")
        self.run_agent("backup", inner)
        return inner

    def test_a_root_in_a_root_is_restored_as_it_was_read_last(self):
        inner = self.nested_roots()
        expected = describe(self.source)
        self.assertEqual(describe(self.restore("latest")), expected)
        (inner / "edited").write_text("edited since")
        (inner / "since").write_text("since")
        (self.source / "me/since").write_text("since")
        self.run_agent("restore", "latest", "--in-place", "--delete", "--yes")
        self.assertEqual(describe(self.source), expected)
        self.into(self.place / "t", which=f"latest:{self.source}/me")
        self.assertEqual(describe(self.place / "t"), describe(self.source / "me"))
        self.into(self.place / "u", which=f"latest:{inner}")
        self.assertEqual(describe(self.place / "u"), describe(inner))
        self.into(self.place / "v", inner / "edited", which="latest")
        self.assertEqual((self.place / "v" / str(inner)[1:] / "edited").read_text(), "second, longer")
        _, err = self.run_agent("restore", "latest", inner / "gone", "--target", self.place / "w", expect=1)
        self.assertEqual(err, f"cloudbackup: Checkpoint 2 holds nothing at '{inner}/gone'\n")

    def test_a_root_around_a_root_that_was_read_last_prevails(self):
        inner = self.nested_roots()
        (inner / "edited").write_text("third, the longest of all")
        (inner / "third").write_text("third")
        os.utime(inner, (1000, 1000))
        self.backup()
        expected = describe(self.source)
        self.assertEqual(describe(self.restore("latest")), expected)
        (inner / "edited").write_text("edited since")
        (self.source / "me/since").write_text("since")
        self.run_agent("restore", "latest", "--in-place", "--delete", "--yes")
        self.assertEqual(describe(self.source), expected)
        # What only the inner root knows stays its own: the outer one may not have been told to read it.
        (inner / "new").unlink()
        self.backup()
        target = self.restore("latest")
        self.assertEqual((pathlib.Path(target) / "me/docs/new").read_text(), "new")

    def test_a_hard_link_is_never_made_to_another_file(self):
        (self.source / "a").write_text("saved")
        os.utime(self.source / "a", (1000, 1000))
        os.link(self.source / "a", self.source / "b")
        os.link(self.source / "a", self.source / "c")
        self.backup()
        for number, (rule, when) in enumerate((("never", 500), ("if-newer", 2000))):
            target = self.place / f"t{number}"
            base = target / str(self.source)[1:]
            base.mkdir(parents=True)
            (base / "a").write_text("mine")
            os.utime(base / "a", (when, when))
            self.into(target, "--overwrite", rule)
            self.assertEqual([(base / name).read_text() for name in "abc"], ["mine", "saved", "saved"], rule)
            self.assertEqual((base / "b").stat().st_ino, (base / "c").stat().st_ino)
            self.assertNotEqual((base / "a").stat().st_ino, (base / "b").stat().st_ino)
        # A name that looks like the file itself is one.
        (base / "a").write_text("saved")
        os.utime(base / "a", (1000, 1000))
        for name in "bc":
            (base / name).unlink()
        self.into(target, "--overwrite", "never")
        self.assertEqual(len({(base / name).stat().st_ino for name in "abc"}), 1)
        # And one that is newer stays.
        (base / "b").unlink()
        (base / "b").write_text("newer")
        self.into(target, "--overwrite", "if-newer")
        self.assertEqual((base / "b").read_text(), "newer")

    def test_folders_that_only_lead_there_keep_their_modes(self):
        self.some_tree()
        (self.source / "docs").chmod(0o550)
        (self.source / "docs/deep/c.txt").unlink()
        self.run_agent("restore", "1", self.source / "docs/deep", "--in-place")
        self.assertEqual((self.source / "docs/deep/c.txt").read_text(), "c")
        self.assertEqual((self.source / "docs").stat().st_mode & 0o7777, 0o550)
        (self.source / "docs/deep/c.txt").unlink()
        self.run_agent("restore", "1", "--in-place", "--overwrite", "never")
        self.assertEqual((self.source / "docs/deep/c.txt").read_text(), "c")
        self.assertEqual((self.source / "docs").stat().st_mode & 0o7777, 0o550)

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
            self.fail("the file system of TMPDIR has no access control lists: this cannot be tested there")
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
