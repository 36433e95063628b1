#!/usr/bin/env python3
"""The program as a user meets it: what it prints, and how it ends."""
import json
import os
import re
import resource
import shutil
import subprocess

from agent import AgentCase, describe, fill, main


class Cli(AgentCase):
    def test_a_day_with_the_agent(self):
        out, err = self.run_agent("init")
        self.assertRegex(out, r"^Made repository [0-9a-f-]{36} at dir:.*/repository\nWhat this machine stores in it is encrypted: .*\n$")
        self.assertEqual(err, "")
        fill(self.source, 1)
        out, err = self.run_agent("backup", self.source)
        self.assertIn("Checkpoint 1 of set 'default'", out)
        self.assertIn("200 files", out)
        self.assertEqual(err, "")
        out, _ = self.run_agent("checkpoints")
        self.assertEqual(len(out.splitlines()), 2)
        self.assertIn(str(self.source), out)
        out, _ = self.run_agent("ls", "latest", self.source / "d1")
        self.assertEqual(len(out.splitlines()), 1 + len(list((self.source / "d1").iterdir())))
        self.assertEqual(describe(self.restore("latest")), describe(self.source))

    def test_quiet_prints_nothing(self):
        for arguments in (["init"], ["backup", self.source], ["checkpoints"], ["ls", "1"],
                          ["restore", "1", "--target", self.place / "restored"]):
            self.assertEqual(self.run_agent("-q", *arguments), ("", ""))

    def test_json_is_one_object_a_line(self):
        fill(self.source, 2, files=5)
        events = []
        for arguments in (["init"], ["backup", self.source], ["checkpoints"], ["ls", "1"],
                          ["restore", "1", "--target", self.place / "restored"]):
            out, _ = self.run_agent("--json", *arguments)
            events += [json.loads(line)["event"] for line in out.splitlines()]
        entries = 1 + len(list(self.source.rglob("*")))
        self.assertEqual(events, ["repository", "checkpoint", "checkpoint"] + ["entry"] * entries + ["restored"])

    def test_json_is_whole_whatever_the_names(self):
        """Bytes that are no UTF-8, in a failure's message and in a trouble's."""
        def run(*arguments, **more):
            done = subprocess.run([os.fsencode(word) for word in self.command("--json")] + list(map(os.fsencode, arguments)),
                                  env=self.environment, capture_output=True, check=False, **more)
            return done.returncode, [json.loads(line) for line in done.stdout.splitlines()], done.stderr.decode()

        self.run_agent("init")
        code, events, err = run("backup", os.fsencode(self.source) + b"/\xff")
        self.assertEqual(code, 1, err)
        message = f"Cannot back up '{self.source}/\\xff': No such file or directory"
        self.assertEqual(events, [{"event": "failure", "message": message}])
        self.assertEqual(err, f"cloudbackup: {message}\n")

        with open(os.fsencode(self.source) + b"/caf\xe9.txt", "wb") as file:
            file.write(os.urandom(1_000_000))
        self.run_agent("backup", self.source)
        small = 100_000  # files cannot be longer, which no user is spared
        code, events, err = run("restore", "1", "--target", self.place / "restored", restore_signals=False,
                                preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (small, small)))
        self.assertEqual(code, 3, err)
        troubles = [event for event in events if event["event"] == "trouble"]
        self.assertEqual([trouble["path"] for trouble in troubles], [f"{self.place}/restored{self.source}/caf\\xe9.txt"])
        self.assertIn("File too large", troubles[0]["reason"])
        self.assertEqual(events[-1]["event"], "restored")

    def test_what_is_printed_does_not_steer_the_terminal(self):
        self.run_agent("init")
        _, err = self.run_agent("backup", f"{self.source}/\x1b[2J\ncloudbackup: all is well", expect=1)
        self.assertEqual(err, f"cloudbackup: Cannot back up '{self.source}/\\x1b[2J\\x0acloudbackup: all is well': "
                              "No such file or directory\n")

    def test_output_that_cannot_be_written_is_a_failure(self):
        self.run_agent("init")
        self.run_agent("backup", self.source)
        for arguments in (["checkpoints"], ["--json", "checkpoints"], ["ls", "1"], ["stats"], ["check"], ["--help"],
                          ["--version"], ["completion", "bash"], ["manual"]):
            with open("/dev/full", "w") as full:
                done = subprocess.run(self.command(*arguments), env=self.environment, stdout=full,
                                      stderr=subprocess.PIPE, text=True, check=False)
            self.assertEqual(done.returncode, 1, arguments)
            self.assertRegex(done.stderr, "^cloudbackup: Not everything could be written to standard output"
                                          "(: No space left on device)?\n$", arguments)
        with open("/dev/full", "w") as full:
            subprocess.run(self.command("-q", "checkpoints"), env=self.environment, stdout=full, check=True)

    def expect_failure(self, code, text, *arguments):
        out, err = self.run_agent(*arguments, expect=code)
        self.assertEqual(out, "")
        self.assertEqual(err, f"cloudbackup: {text}\n")

    def test_failures_are_one_clear_line(self):
        missing = self.place / "repository"
        self.expect_failure(1, f"Cannot open the repository (made by 'cloudbackup init'): OpenRoot "
                               f"'{missing}': it or a folder above it does not exist", "checkpoints")
        self.run_agent("init")
        self.expect_failure(1, "Cannot make a repository: Repository already exists and is valid", "init")
        self.expect_failure(1, "The repository holds no backups of this machine yet", "checkpoints")
        self.expect_failure(1, f"Cannot back up '{self.place}/none': No such file or directory", "backup",
                            self.place / "none")
        self.run_agent("backup", self.source)
        self.expect_failure(1, "There is no set 'other'; there are: default", "--set", "other", "checkpoints")
        self.expect_failure(1, "Set 'default' has no checkpoint 9; the last one is 1", "ls", "9")
        self.expect_failure(1, "Checkpoint 1 holds nothing at '/nowhere'", "ls", "1", "/nowhere")
        self.expect_failure(1, f"Cannot restore into '{self.place}': the folder is not empty", "restore", "1",
                            "--target", self.place)

    def test_verbose_tells_the_causes(self):
        self.run_agent("init")
        _, err = self.run_agent("-v", "init", expect=1)
        self.assertIn("Failed to create new external cloud repository", err)
        self.assertIn("Repository already exists and is valid", err)

    def test_wrong_use(self):
        for arguments in (["nonsense"], ["restore", "1"], ["ls", "first"], ["init", "--no-such-option"]):
            out, err = self.run_agent(*arguments, expect=2)
            self.assertEqual(out, "")
            command = "" if arguments[0] == "nonsense" else arguments[0] + " "
            self.assertRegex(err, rf"^cloudbackup: .* \(see 'cloudbackup {command}--help'\)\n$")
        self.expect_failure(2, "Say what to back up: paths, --files-from, --stdin or --stdin-command", "backup")
        del self.environment["CLOUDBACKUP_REPO"]
        self.expect_failure(2, "--repo (or CLOUDBACKUP_REPO) is required (see 'cloudbackup --help')", "init")

    def test_no_command_gives_the_list_of_commands(self):
        out, err = self.run_agent(expect=2)
        self.assertEqual(out, "")
        self.assertTrue(err.startswith("cloudbackup: no command was given\nUsage: cloudbackup [OPTIONS] COMMAND\n"))
        self.assertIn("\n  backup   ", err)
        self.assertNotIn("\n  --repo", err)
        _, err = self.run_agent("key", expect=2)
        self.assertIn("\n  rotate   ", err)

    def test_words_in_brackets_are_taken_as_they_are(self):
        self.run_agent("init")
        for name in ("[x]", "x", "a", "[a,b]"):
            (self.source / name).mkdir()
            (self.source / name / "file").write_text(name)
        place = os.getcwd()
        os.chdir(self.source)
        try:
            self.run_agent("backup", "[x]", "[a,b]")
        finally:
            os.chdir(place)
        out, _ = self.run_agent("--json", "checkpoints")
        self.assertEqual({root["path"] for root in json.loads(out)["roots"]},
                         {f"{self.source}/[x]", f"{self.source}/[a,b]"})
        self.run_agent("--set", "two", "backup", self.source, "--exclude", "[x]")
        out, _ = self.run_agent("--set", "two", "ls", "latest", "--names-only")
        self.assertEqual(set(out.splitlines()) & {f"{self.source}/x", f"{self.source}/[x]"}, {f"{self.source}/[x]"})
        out, _ = self.run_agent("--set", "two", "--json", "find", "[ab]")
        self.assertEqual({json.loads(line)["path"] for line in out.splitlines()}, {f"{self.source}/a"})

    def test_help_has_no_leftovers_of_the_library(self):
        out, _ = self.run_agent("--help")
        self.assertIn("--progress auto|always|never\n", out)
        commands = re.findall(r"(?m)^  ([a-z-]+)  ", out[out.index("Commands:"):])
        self.assertIn("check-client", commands)
        for command in [[]] + [[command] for command in commands]:
            out, _ = self.run_agent(*command, "--help")
            for leftover in ("->", "INT in", "TEXT ...", "REQUIRED", "Env:", "POSITIVE", " UINT", "(=1024b)", "Excludes"):
                self.assertNotIn(leftover, out, command)
            self.assertLess(max(map(len, out.splitlines())), 125, command)

    def test_threads(self):
        self.run_agent("init")
        fill(self.source, 3, files=20)
        for threads in ("1", "3", "0"):
            self.run_agent("--threads", threads, "backup", "--force", self.source)
            target = self.place / f"threads{threads}"
            self.run_agent("restore", "latest", "--threads", threads, "--target", target)
            self.assertEqual(describe(f"{target}{self.source}"), describe(self.source))
        self.environment["CLOUDBACKUP_THREADS"] = "2"
        self.run_agent("check", "--read-data")
        self.expect_failure(2, "--threads: Value 999 not in range 0 to 256 (see 'cloudbackup check --help')", "check",
                            "--threads", "999")

    def test_help_names_every_command(self):
        out, _ = self.run_agent("--help")
        for command in ("init", "backup", "checkpoints", "ls", "restore", "spec", "check-client"):
            self.assertIn(f"\n  {command} ", out)
            self.run_agent(command, "--help")

    def test_a_damaged_block_is_exit_code_3(self):
        self.run_agent("init")
        (self.source / "file").write_bytes(os.urandom(100000))
        (self.source / "empty").write_bytes(b"")
        self.run_agent("backup", self.source)
        for block in (self.place / "repository").rglob("BlockStore/*/*/*"):
            block.write_bytes(b"")
        out, err = self.run_agent("restore", "1", "--target", self.place / "restored", expect=3)
        self.assertIn("1 file (", out)
        self.assertRegex(err, rf"^cloudbackup: {self.place}/restored{self.source}/file: ")

    def test_a_lost_repository_object_names_it(self):
        self.run_agent("init")
        self.run_agent("backup", self.source)
        shutil.rmtree(self.place / "state")
        for header in (self.place / "repository").rglob("Metadata/*.*"):
            if header.is_file():
                header.unlink()
        _, err = self.run_agent("ls", "1", expect=1)
        self.assertRegex(err, r"Metadata/[0-9a-f-]{36}\.[0-9]+")


if __name__ == "__main__":
    main()
