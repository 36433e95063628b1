#!/usr/bin/env python3
"""Choosing what is backed up: patterns, markers, lists, standard input, dry runs, what a checkpoint says of itself."""
import getpass
import json
import os
import random
import socket
import subprocess

from agent import AgentCase, describe, fill, main

CACHE_TAG = "Signature: 8a477f597d28d172789f06886806bc55\n"


class Choose(AgentCase):
    def setUp(self):
        super().setUp()
        self.environment.setdefault("CLOUDBACKUP_PASSWORD", "a password")
        self.run_agent("init")

    def make(self, **files):
        """Files with their content; "__" in a name stands for "/"."""
        for name, content in files.items():
            self.write(name.replace("__", "/"), content)

    def write(self, name, content="x"):
        path = self.source / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(content)

    def kept(self, checkpoint="latest"):
        """The files (no folders) that a checkpoint holds of the source, sorted."""
        root = self.restore(checkpoint)
        return sorted(os.path.relpath(os.path.join(folder, name), root)
                      for folder, _, files in os.walk(root) for name in files)

    def backup_json(self, *arguments, expect=0):
        out, _ = self.run_agent("--json", "backup", *arguments, expect=expect)
        return [json.loads(line) for line in out.splitlines()]

    def store(self):
        return describe(self.place / "repository")

    def wrong_use(self, text, *arguments):
        out, err = self.run_agent("backup", *arguments, expect=2)
        self.assertEqual((out, err), ("", f"cloudbackup: {text}\n"))

    def test_patterns_in_the_order_of_the_command_line(self):
        for name in ("a.o", "keep.o", "src/b.o", "src/c.c", "Photo.JPG", "tmp/x", "src/tmp/y"):
            self.write(name)
        self.run_agent("backup", self.source, "--exclude", "*.o", "--include", "keep.o", "--exclude", "/tmp/",
                       "--iexclude", "*.jpg")
        self.assertEqual(self.kept(), ["keep.o", "src/c.c", "src/tmp/y"])
        self.run_agent("backup", "-e", "keep.o", "--include", "*.o", self.source, "-e", self.source / "src")
        self.assertEqual(self.kept(), ["Photo.JPG", "a.o", "keep.o", "tmp/x"])
        self.run_agent("backup", self.source)
        self.assertEqual(len(self.kept()), 7, "the selection is the user's each time")

    def test_a_folder_that_is_newly_left_out_is_gone_from_the_next_checkpoint(self):
        self.make(a__1="1", b__2="2")
        self.run_agent("backup", self.source)
        self.run_agent("backup", self.source, "--exclude", "b")
        self.assertEqual(self.kept("1"), ["a/1", "b/2"])
        self.assertEqual(self.kept("2"), ["a/1"])

    def test_exclude_files_stand_where_they_are_given(self):
        self.make(a__1="1", a__2="2", b="3")
        rules = self.place / "rules"
        rules.write_text("# a comment\n\n*\r\n!*/\n!2\n")
        self.run_agent("backup", self.source, "--exclude-file", rules)
        self.assertEqual(self.kept(), ["a/2"])
        self.run_agent("backup", self.source, "--exclude-file", rules, "--include", "b")
        self.assertEqual(self.kept(), ["a/2", "b"])
        rules.write_bytes(b"\xef\xbb\xbfa\n")
        self.run_agent("backup", self.source, "--exclude-file", rules)
        self.assertEqual(self.kept(), ["b"])
        _, err = self.run_agent("backup", self.source, "--exclude-file", self.place / "none", expect=1)
        self.assertIn(f"'{self.place}/none': No such file or directory", err)

    def test_ignore_files_marked_folders_caches_and_sizes(self):
        self.write(".backupignore", "*.log\n")
        self.write("a/.backupignore", "!keep.log\n")
        self.write("cache/CACHEDIR.TAG", CACHE_TAG)
        self.write("marked/.nobackup", "not here, really")
        self.write("other/.nobackup", "go on")
        for name in ("1.log", "a/keep.log", "a/2.log", "cache/x", "marked/x", "other/x"):
            self.write(name)
        self.write("large", "x" * 2049)
        self.run_agent("backup", self.source, "--ignore-file", ".backupignore", "--exclude-caches",
                       "--exclude-if-present", ".nobackup:not here", "--exclude-larger-than", "2K")
        self.assertEqual(self.kept(), [".backupignore", "a/.backupignore", "a/keep.log", "cache/CACHEDIR.TAG",
                                       "marked/.nobackup", "other/.nobackup", "other/x"])

    def test_one_file_system(self):
        # Mounted wherever this runs; never read otherwise, since everything else is left out.
        out, _ = self.run_agent("--json", "backup", "-n", "/", "-x", "-e", "/*", "--include", "/proc")
        paths = [event["path"] for event in map(json.loads, out.splitlines()) if event["event"] == "change"]
        self.assertEqual(paths, ["/", "/proc"])

    def test_wrong_use_is_told(self):
        self.wrong_use("Say what to back up: paths, --files-from, --stdin or --stdin-command")
        self.wrong_use("--include takes back what an --exclude before it leaves out, and none stands before '*.c'",
                       self.source, "--include", "*.c", "--exclude", "*")
        self.wrong_use("'# x' is no pattern: blank lines and comments mean nothing ('\\#' begins a name with #)",
                       self.source, "--exclude", "# x")
        self.wrong_use("--exclude-if-present takes a file's name, NAME or NAME:HEADER, not 'a/b'", self.source,
                       "--exclude-if-present", "a/b")
        self.wrong_use("A dry run reads nothing: it does not go with --stdin or --stdin-command", "-n", "--stdin")
        self.wrong_use("--stdin and --stdin-command exclude each other", "--stdin", "--stdin-command", "true")
        self.wrong_use("'a,,b' has an empty tag", self.source, "--tag", "a,,b")

    def test_a_checkpoint_says_who_made_it_and_what_it_is(self):
        result = self.backup_json(self.source, "--host", "elsewhere", "--tag", "daily,home", "--tag", "home",
                                  "--tag", "x", "--description", "before the move")[-1]
        self.assertEqual(result["host"], "elsewhere")
        self.assertEqual(result["tags"], ["daily", "home", "x"])
        self.assertEqual(result["description"], "before the move")
        self.assertRegex(result["program"], r"^cloudbackup \d")
        result = self.backup_json(self.source)[-1]
        self.assertEqual(result["host"], socket.gethostname())
        self.assertEqual(result["user"], getpass.getuser() if os.environ.get("USER") is None else result["user"])
        self.assertTrue(result["user"])
        self.assertEqual((result["tags"], result["description"]), ([], ""))

    def test_a_dry_run_tells_all_and_writes_nothing(self):
        self.make(a="1", b="22")
        before = self.store()
        events = self.backup_json("-n", self.source)
        self.assertEqual(self.store(), before, "not even a client's record or a set's folder")
        changes = [(e["change"], e["path"], e["type"], e["size"]) for e in events if e["event"] == "change"]
        self.assertEqual(changes, [("new", str(self.source), "folder", 0), ("new", f"{self.source}/a", "file", 1),
                                   ("new", f"{self.source}/b", "file", 2)])
        self.assertEqual((events[-1]["event"], events[-1]["newBytes"]), ("dryRun", 3))

        self.run_agent("backup", self.source)
        before = self.store()
        self.make(a="333", c="4444")
        (self.source / "b").unlink()
        out, err = self.run_agent("backup", "--dry-run", self.source)
        self.assertEqual(err, "")
        self.assertEqual(self.store(), before)
        lines = out.splitlines()
        self.assertEqual(lines[:4], [f"changed               {self.source}/", f"changed      3 bytes  {self.source}/a",
                                     f"removed      2 bytes  {self.source}/b",
                                     f"new          4 bytes  {self.source}/c"])
        self.assertEqual(lines[4], "Would make the next checkpoint of set 'default' (dry run: nothing was written)")
        self.assertEqual(lines[6], "    1 new, 2 changed, 1 removed, 0 unchanged")
        self.assertEqual(lines[7], "Files: 4 bytes new, 3 bytes changed, 2 bytes removed")
        events = self.backup_json("-n", self.source, "-e", "a")
        self.assertIn(("removed", f"{self.source}/a"), [(e["change"], e["path"]) for e in events[:-1]])
        self.assertEqual(self.run_agent("-q", "backup", "-n", self.source), ("", ""))

    def test_a_dry_run_without_local_state_reads_the_store_alone(self):
        fill(self.source, 3, files=20)
        self.run_agent("backup", self.source)
        for copy in (self.place / "state").rglob("*.meta"):
            copy.unlink()
        before = self.store()
        result = self.backup_json("-n", self.source)
        self.assertEqual([e["event"] for e in result], ["dryRun"])
        self.assertEqual(result[0]["roots"][0]["statistics"]["unchanged"], 28)
        self.assertEqual(self.store(), before)
        self.assertEqual(list((self.place / "state").rglob("*.meta")), [])

    def pipe(self, data, *arguments, expect=0):
        done = subprocess.run(self.command("backup", *arguments), env=self.environment, input=data,
                              capture_output=True, check=False)
        self.assertEqual(done.returncode, expect, done.stderr)
        return done.stderr.decode()

    def restored_root(self, path, checkpoint="latest"):
        root = self.restore(checkpoint)
        with open(root[:-len(str(self.source))] + path, "rb") as file:
            return file.read()

    def test_standard_input_is_one_file(self):
        data = random.Random(5).randbytes(5_000_000)
        self.pipe(data, "--stdin", "--stdin-filename", "dumps/db.sql")
        self.assertEqual(self.restored_root("/dumps/db.sql"), data)
        out, _ = self.run_agent("--json", "checkpoints")
        statistics = json.loads(out.splitlines()[-1])["roots"][0]["statistics"]
        self.assertEqual((statistics["files"], statistics["bytes"]), (1, len(data)))
        edited = data[:2_000_000] + b"inserted" + data[2_000_000:]
        self.pipe(edited, "--stdin", "--stdin-filename", "dumps/db.sql", self.source)
        self.assertEqual(self.restored_root("/dumps/db.sql"), edited)
        out, _ = self.run_agent("--json", "checkpoints")
        roots = json.loads(out.splitlines()[-1])["roots"]
        self.assertEqual(sorted(root["path"] for root in roots), ["/dumps/db.sql", str(self.source)])
        new = [root["statistics"]["newBytes"] for root in roots if root["path"].startswith("/dumps")]
        self.assertLess(new[0], 2_000_000, "what was known is not stored again")
        self.pipe(b"", "--stdin")
        self.assertEqual(self.restored_root("/stdin"), b"")

    def test_a_commands_output_counts_only_when_it_succeeds(self):
        self.run_agent("backup", "--stdin-command", "printf abc", "--stdin-filename", "out")
        self.assertEqual(self.restored_root("/out"), b"abc")
        _, err = self.run_agent("backup", "--stdin-command", "printf xyz; exit 3", "--stdin-filename", "out", expect=1)
        self.assertEqual(err, "cloudbackup: The command 'printf xyz; exit 3' ended with exit code 3: nothing was "
                              "saved\n")
        self.assertEqual(self.restored_root("/out"), b"abc")

    def test_paths_from_a_list_are_kept_under_one_root(self):
        self.make(a__1="1", a__2="2", b__3="3", c="4")
        os.symlink("c", self.source / "link")
        listed = self.place / "list"
        listed.write_text(f"{self.source}/a/2\n{self.source}/b\r\n\n{self.source}/link\n{self.source}/none\n")
        _, err = self.run_agent("backup", "--files-from", listed, expect=3)
        self.assertEqual(err, f"cloudbackup: {self.source}/none: Cannot back up '{self.source}/none': No such file or "
                              "directory\n")
        self.assertEqual(self.kept(), ["a/2", "b/3", "link"])
        out, _ = self.run_agent("--json", "checkpoints")
        self.assertEqual([root["path"] for root in json.loads(out.splitlines()[-1])["roots"]], ["/"])
        self.pipe(f"{self.source}/a\0{self.source}/c\0".encode(), "--files-from0", "-", "-e", "1")
        self.assertEqual(self.kept(), ["a/2", "c"])
        listed.write_text(f"{self.source}/none\n")
        _, err = self.run_agent("backup", "--files-from", listed, expect=1)
        self.assertIn("None of the listed paths is there: nothing to back up", err)
        listed.write_text("\n")
        _, err = self.run_agent("backup", "--files-from", listed, expect=1)
        self.assertEqual(err, f"cloudbackup: '{listed}' lists nothing to back up\n")

    def test_a_root_is_carried_on_until_it_is_dropped(self):
        other = self.place / "other"
        other.mkdir()
        (other / "file").write_text("other")
        self.make(a="1")
        self.run_agent("backup", self.source, other)
        out, _ = self.run_agent("backup", self.source)
        self.assertIn(f"{other}: 1 file, 5 bytes, as in checkpoint 1", out)
        _, err = self.run_agent("backup", "--drop-root", "/no/such", expect=1)
        self.assertEqual(err, "cloudbackup: The last checkpoint has no root '/no/such' to drop; its roots: "
                              f"{other}, {self.source}\n")
        (other / "file").unlink()
        other.rmdir()
        out, _ = self.run_agent("backup", "--drop-root", f"{other}/")
        self.assertNotIn(str(other), out)
        self.assertEqual(self.kept(), ["a"])
        self.assertEqual(self.restored_root(f"{other}/file", "2"), b"other")
        _, err = self.run_agent("backup", "--drop-root", self.source, expect=1)
        self.assertEqual(err, "cloudbackup: A checkpoint without any root would hold nothing: it is not made\n")
        # Back again, its content as it is now.
        other.mkdir()
        (other / "file").write_text("again")
        self.run_agent("backup", other)
        self.assertEqual(self.restored_root(f"{other}/file"), b"again")

    def test_force_reads_all_files(self):
        fill(self.source, 4, files=10)
        self.run_agent("backup", self.source)
        self.assertEqual(self.backup_json(self.source)[-1]["roots"][0]["statistics"]["filesRead"], 0)
        statistics = self.backup_json(self.source, "--force")[-1]["roots"][0]["statistics"]
        self.assertEqual((statistics["filesRead"], statistics["newBytes"]), (10, 0))
        self.assertEqual(describe(self.restore("latest")), describe(self.source))


if __name__ == "__main__":
    main()
