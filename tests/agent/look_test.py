#!/usr/bin/env python3
"""Looking into checkpoints: checkpoints, ls, find, diff, cat, stats."""
import json
import os
import socket
import subprocess

from agent import AgentCase, fill, main


class Look(AgentCase):
    def setUp(self):
        super().setUp()
        self.run_agent("init")

    def json(self, *arguments, expect=0):
        out, _ = self.run_agent("--json", *arguments, expect=expect)
        return [json.loads(line) for line in out.splitlines()]

    def backup(self):
        self.run_agent("backup", self.source)

    def cat(self, checkpoint, path, expect=0):
        """The bytes, as they come."""
        done = subprocess.run(self.command("cat", checkpoint, path), env=self.environment, capture_output=True,
                              check=False)
        self.assertEqual(done.returncode, expect, done.stderr)
        return done.stdout if expect == 0 else done.stderr.decode()

    def three_checkpoints(self):
        """1: a, b; 2: b changed, c new; 3: a gone, c another mode."""
        (self.source / "a").write_text("first")
        (self.source / "b").write_text("second")
        self.backup()
        (self.source / "b").write_text("another second")
        (self.source / "c").write_text("third")
        self.backup()
        (self.source / "a").unlink()
        (self.source / "c").chmod(0o600)
        self.backup()

    def test_checkpoints_are_chosen_and_say_what_changed(self):
        self.three_checkpoints()
        listed = self.json("checkpoints")
        self.assertEqual([one["id"] for one in listed], [1, 2, 3])
        self.assertEqual([one["totals"]["files"] for one in listed], [2, 3, 2])
        self.assertEqual([(one["totals"]["added"], one["totals"]["removed"]) for one in listed],
                         [(3, 0), (1, 0), (0, 1)])
        self.assertFalse(listed[0]["longTerm"])
        host = socket.gethostname()
        day = listed[0]["started"][:10]
        for chosen, arguments in (([1, 2, 3], ["--host", host]), ([], ["--host", "elsewhere"]),
                                  ([2, 3], ["--last", "2"]), ([], ["--tag", "none"]),
                                  ([1, 2, 3], ["--path", self.source / "a"]), ([1, 2, 3], ["--path", "/"]),
                                  ([], ["--path", str(self.source) + "2"]),
                                  ([1, 2, 3], ["--since", listed[0]["started"]]), ([], ["--since", "2100-01-01"]),
                                  ([], ["--until", "2020-01-01"]), ([1, 2, 3], ["--until", "2100-01-01"]),
                                  ([3], ["--since", day, "--last", "1"])):
            self.assertEqual([one["id"] for one in self.json("checkpoints", *arguments)], chosen, arguments)
        _, err = self.run_agent("checkpoints", "--since", "yesterday", expect=2)
        self.assertEqual(err, "cloudbackup: 'yesterday' is no time such as 2026-11-21 or 2026-11-21T08:15:00 (UTC)\n")
        out, _ = self.run_agent("checkpoints")
        self.assertEqual(len(out.splitlines()), 4)
        self.assertRegex(out.splitlines()[3], r"  0/\d/1  ")

    def test_ls_takes_several_paths(self):
        (self.source / "d").mkdir()
        (self.source / "d" / "f").write_bytes(bytes(2048))
        (self.source / "e").write_text("e")
        self.backup()
        out, _ = self.run_agent("ls", "1", "--names-only", self.source / "e", str(self.source / "d") + "/")
        self.assertEqual(out.splitlines(),
                         [f"{self.source}/e", f"{self.source}/d", f"{self.source}/d/f"])
        out, _ = self.run_agent("ls", "1", "--human-readable", self.source / "d" / "f")
        self.assertIn(" 2.0 KiB ", out)
        _, err = self.run_agent("ls", "1", self.source / "e", self.source / "none", expect=1)
        self.assertEqual(err, f"cloudbackup: Checkpoint 1 holds nothing at '{self.source}/none'\n")

    def test_find_tells_the_versions_and_where_they_are(self):
        self.three_checkpoints()

        def found(*arguments):
            return [(os.path.relpath(one["path"], self.source), one["size"], one["checkpoints"])
                    for one in self.json("find", *arguments)]
        self.assertEqual(found("**/[ab]"), [("a", 5, [1, 2]), ("b", 6, [1]), ("b", 14, [2, 3])])
        self.assertEqual(found("c"), [("c", 5, [2]), ("c", 5, [3])])  # another mode
        self.assertEqual(found("a", "--checkpoint", "latest"), [])
        self.assertEqual(found("a", "--checkpoint", "2"), [("a", 5, [2])])
        self.assertEqual(found("B"), [])
        self.assertEqual(found("B", "--ignore-case", "--last", "1"), [("b", 14, [3])])
        self.assertEqual(found("*", "--size", "+10"), [("b", 14, [2, 3])])
        self.assertEqual([one[0] for one in found("**", "--type", "folder")], ["."] * 3)
        self.assertEqual(found("*", "--newer", "2100-01-01"), [])
        self.assertEqual(found("*", "--older", "1990-01-01"), [])
        self.assertEqual(found(f"{self.source}/?", "--checkpoint", "1"), [("a", 5, [1]), ("b", 6, [1])])
        self.assertEqual(found(f"{self.source.name}/a"), [("a", 5, [1, 2])])
        out, _ = self.run_agent("find", "b")
        lines = out.splitlines()
        self.assertEqual(lines[0], f"{self.source}/b")
        self.assertTrue(lines[1].endswith("  in 1") and lines[2].endswith("  in 2-3"), out)
        _, err = self.run_agent("find", "b", "--checkpoint", "9", expect=1)
        self.assertEqual(err, "cloudbackup: There is no checkpoint 9\n")
        _, err = self.run_agent("find", "b", "--type", "x", expect=2)
        self.assertEqual(err, "cloudbackup: 'x' is no type of file\n")
        self.run_agent("find", "b", "--size", "big", expect=2)

    def test_diff_tells_content_from_attributes(self):
        self.three_checkpoints()

        def differences(*arguments):
            *lines, summary = self.json("diff", *arguments)
            self.assertEqual(summary["event"], "summary")
            return [(one["change"], os.path.relpath(one["path"], self.source)) for one in lines
                    if one["type"] != "folder"], summary
        found, summary = differences("1", "2")
        self.assertEqual(found, [("modified", "b"), ("added", "c")])
        self.assertEqual(summary["added"], {"files": 1, "others": 0, "bytes": 5})
        self.assertEqual(summary["modified"]["bytes"], 14)
        self.assertEqual(differences("2", "1")[0], [("modified", "b"), ("removed", "c")])
        self.assertEqual(differences("2", "latest")[0], [("removed", "a")])
        self.assertEqual(differences("2", "3", "--metadata")[0], [("removed", "a"), ("attributes", "c")])
        self.assertEqual(differences("1", "3", self.source / "b")[0], [("modified", "b")])
        self.assertEqual(differences("3", "3")[0], [])
        out, _ = self.run_agent("diff", "2", "3", "--metadata")
        self.assertIn(f"-    {self.source}/a\n", out)
        self.assertRegex(out, rf"U    {self.source}/c  \(mode 0[0-7]+ -> 0600\)\n")
        self.assertIn("  removed: 1 file (5 bytes), 0 folders and others\n", out)

    def test_content_read_anew_is_no_difference(self):
        content = os.urandom(3_000_000)
        (self.source / "large").write_bytes(content)
        self.backup()
        (self.source / "large").unlink()
        (self.source / "large").write_bytes(content)
        self.backup()
        *lines, summary = self.json("diff", "1", "2", self.source / "large")
        self.assertEqual(lines, [])
        self.assertEqual(summary["attributes"]["files"], 1)  # its time

    def test_cat_gives_the_very_bytes(self):
        content = bytes(range(256)) * 20_000
        (self.source / "binary").write_bytes(content)
        os.link(self.source / "binary", self.source / "link")
        os.symlink("binary", self.source / "symlink")
        (self.source / "empty").write_bytes(b"")
        with open(self.source / "holes", "wb") as file:
            file.write(b"begin")
            file.seek(5_000_000)
            file.write(b"end")
            file.truncate(6_000_000)
        self.backup()
        self.assertEqual(self.cat("1", self.source / "binary"), content)
        self.assertEqual(self.cat("latest", str(self.source) + "//link"), content)
        self.assertEqual(self.cat("1", self.source / "empty"), b"")
        self.assertEqual(self.cat("1", self.source / "holes"), (self.source / "holes").read_bytes())
        for path, text in ((self.source, f"'{self.source}' is a folder, not a file"),
                           (self.place, f"'{self.place}' is a folder, not a file"),
                           (self.source / "symlink", f"'{self.source}/symlink' is a link to 'binary', not a file"),
                           (self.source / "none", f"Checkpoint 1 holds no file '{self.source}/none'")):
            self.assertEqual(self.cat("1", path, expect=1), f"cloudbackup: {text}\n")

    def test_cat_of_a_root_that_is_a_file(self):
        (self.source / "only").write_text("text")
        self.run_agent("backup", self.source / "only")
        self.assertEqual(self.cat("1", self.source / "only"), b"text")

    def test_cat_notices_a_full_output(self):
        (self.source / "f").write_bytes(bytes(range(256)) * 1000)
        self.backup()
        with open("/dev/full", "wb") as full:
            done = subprocess.run(self.command("cat", "1", self.source / "f"), env=self.environment, stdout=full,
                                  stderr=subprocess.PIPE, check=False)
        self.assertEqual(done.returncode, 1)
        self.assertIn(b"standard output", done.stderr)

    def test_stats_add_up_to_what_is_stored(self):
        fill(self.source, 5, files=60)
        (self.source / "copy").write_bytes((self.source / "d1" / "f1").read_bytes())
        self.backup()
        first = self.json("stats")[0]
        store = next((self.place / "repository").rglob("BlockStore"))
        blocks = [path for path in store.rglob("*") if path.is_file()]
        self.assertEqual(first["blocks"], len(blocks))
        self.assertEqual(first["blockBytes"], sum(path.stat().st_size for path in blocks))
        metadata = [path for path in (store.parent / "Metadata").rglob("*")
                    if path.is_file() and "Checkpoint" not in str(path.relative_to(store.parent))]
        self.assertEqual(first["metadataObjects"], len(metadata))
        self.assertEqual(first["metadataBytes"], sum(path.stat().st_size for path in metadata))
        files = [path for path in self.source.rglob("*") if path.is_file()]
        self.assertEqual(first["restoreBytes"], sum(path.stat().st_size for path in files))
        self.assertEqual(first["files"], len(files))
        self.assertLess(first["wasteBytes"], 1000 * first["blocks"])

        for path in list(self.source.rglob("f*"))[:30]:
            path.unlink()
        self.backup()
        one, both = self.json("stats", "latest")[0], self.json("stats")[0]
        self.assertEqual((one["checkpoints"], both["checkpoints"]), (1, 2))
        self.assertGreater(one["wasteBytes"], 0)
        self.assertEqual(both["restoreBytes"], first["restoreBytes"] + one["restoreBytes"])
        self.assertEqual(both["chunkBytes"], first["chunkBytes"])
        out, _ = self.run_agent("stats", "1")
        self.assertIn("To restore:", out)

    def test_quiet(self):
        self.three_checkpoints()
        for arguments in (["find", "a"], ["diff", "1", "2"], ["stats"], ["checkpoints"], ["ls", "1"]):
            self.assertEqual(self.run_agent("-q", *arguments), ("", ""))


if __name__ == "__main__":
    main()
