#!/usr/bin/env python3
"""How the program is used: progress, interruption, options in file and environment, completion, manual page."""
import json
import os
import re
import signal
import subprocess
import time
import unittest

from agent import AgentCase, describe, fill, main
from terminal import Terminal


class Use(AgentCase):
    def config(self, text):
        folder = self.place / "config" / "cloudbackup"
        folder.mkdir(parents=True, exist_ok=True)
        (folder / "config.toml").write_text(text)
        self.environment["XDG_CONFIG_HOME"] = str(self.place / "config")

    def test_unknown_commands_are_told_and_put_right(self):
        for word, rest in (("frob", ""), ("restor", "; did you mean 'restore'?"),
                           ("chekpoints", "; did you mean 'checkpoints'?")):
            out, err = self.run_agent(word, expect=2)
            self.assertEqual(out, "")
            self.assertEqual(err, f"cloudbackup: '{word}' is no command{rest} (see 'cloudbackup --help')\n")

    def test_options_in_a_file_the_environment_and_the_command_line(self):
        self.run_agent("init")
        self.run_agent("--set", "of-line", "backup", self.source)
        self.run_agent("--set", "of-environment", "backup", self.source)
        self.run_agent("--set", "of-file", "backup", self.source)
        self.config('set = "of-file"\n')

        def set_read(*arguments):
            _, err = self.run_agent(*arguments, "ls", "9", expect=1)
            return err.split("'")[1]
        self.assertEqual(set_read(), "of-file")
        self.environment["CLOUDBACKUP_SET"] = "of-environment"
        self.assertEqual(set_read(), "of-environment")
        self.assertEqual(set_read("--set", "of-line"), "of-line")

    def test_a_file_that_is_named(self):
        self.run_agent("init")
        repository = self.environment.pop("CLOUDBACKUP_REPO")
        (self.place / "own.toml").write_text(f'repo = "{repository}"\njson = true\n')
        out, _ = self.run_agent("--config", self.place / "own.toml", "backup", self.source)
        self.assertEqual(json.loads(out)["event"], "checkpoint")
        self.environment["CLOUDBACKUP_CONFIG"] = str(self.place / "own.toml")
        self.run_agent("checkpoints")
        _, err = self.run_agent("--config", self.place / "none.toml", "checkpoints", expect=2)
        self.assertEqual(err, f"cloudbackup: Cannot read the configuration file '{self.place}/none.toml': "
                              "No such file or directory\n")
        self.config("colour = 1\n")
        del self.environment["CLOUDBACKUP_CONFIG"]
        _, err = self.run_agent("checkpoints", expect=2)
        self.assertEqual(err, f"cloudbackup: Configuration file '{self.place}/config/cloudbackup/config.toml': "
                              "'colour' is no option of the program with one value\n")

    def test_options_of_commands_in_a_file_and_the_environment(self):
        for name in ("kept", "a.o", "b.tmp", "[c].o", "d.log"):
            (self.source / name).write_text(name)
        self.run_agent("init")

        def names():
            out, _ = self.run_agent("ls", "latest", self.source)
            return {line.split("/")[-1] for line in out.splitlines()} & {"kept", "a.o", "b.tmp", "[c].o", "d.log"}

        self.config('[backup]\nexclude = ["*.o", "*.tmp"]\ntag = ["x", "y"]\n[forget]\nkeep-last = 1\n')
        self.run_agent("backup", self.source)
        self.assertEqual(names(), {"kept", "d.log"})
        tags = json.loads(self.run_agent("--json", "checkpoints")[0].splitlines()[-1])["tags"]
        self.assertEqual(tags, ["x", "y"])
        self.environment["CLOUDBACKUP_BACKUP_EXCLUDE"] = "*.log\n\\[c].o"
        self.run_agent("backup", self.source)
        self.assertEqual(names(), {"kept", "a.o", "b.tmp"})
        self.environment["CLOUDBACKUP_BACKUP_EXCLUDE"] = "[ab].*"
        self.run_agent("backup", self.source)
        self.assertEqual(names(), {"kept", "[c].o", "d.log"})
        self.run_agent("backup", self.source, "--exclude", "kept")
        self.assertEqual(names(), {"a.o", "b.tmp", "[c].o", "d.log"})
        self.environment["CLOUDBACKUP_BACKUP_TAG"] = "ü\nz"
        del self.environment["CLOUDBACKUP_BACKUP_EXCLUDE"]
        self.run_agent("forget")
        listed = [json.loads(line)["id"] for line in self.run_agent("--json", "checkpoints")[0].splitlines()]
        self.assertEqual(listed, [4])
        self.assertNotIn("CLOUDBACKUP_BACKUP", self.run_agent("backup", "--help")[0])

    def test_what_no_command_has_is_told(self):
        file = f"{self.place}/config/cloudbackup/config.toml"
        for text, name in (("[backup]\ncolour = 1\n", "backup.colour"), ("[paint]\nexclude = 'x'\n", "paint.exclude"),
                           ("[forget]\nkeep-last = [1, 2]\n", "forget.keep-last"), ("[backup]\nhelp = true\n", "backup.help")):
            self.config(text)
            _, err = self.run_agent("checkpoints", expect=2)
            self.assertEqual(err, f"cloudbackup: Configuration file '{file}': '{name}' is no option of the program with one "
                                  "value\n")
        # What is wrong with another command's options is no matter of this one.
        self.config("[forget]\nkeep-last = 'many'\n")
        self.run_agent("init")
        self.run_agent("backup", self.source)
        self.run_agent("forget", expect=2)

    def test_every_global_option_has_its_variable(self):
        out, _ = self.run_agent("--help")
        options = out[out.index("\nOptions:"):out.index("\nExit codes")]
        blocks = options.split("\n  -")[1:]
        self.assertGreater(len(blocks), 15)
        for block in blocks:
            name = next(word for word in block.replace(",", " ").split() if word.startswith("-")).lstrip("-")
            if name not in ("help", "version"):
                self.assertIn("CLOUDBACKUP_" + name.upper().replace("-", "_"), block)

    def test_progress_on_a_terminal_is_taken_away(self):
        self.run_agent("init")
        fill(self.source, 1, files=1500)
        terminal = Terminal(self.command("backup", self.source), self.environment)
        code, shown = terminal.end()
        self.assertEqual(code, 0)
        self.assertIn(" files, ", shown)
        self.assertIn("/s", shown)
        self.assertIn("\r\x1b[KCheckpoint 1 of set 'default'\n", shown)

    def test_no_progress_on_a_pipe_or_when_it_is_not_wanted(self):
        self.run_agent("init")
        fill(self.source, 1, files=500)
        _, err = self.run_agent("backup", self.source)
        self.assertEqual(err, "")
        terminal = Terminal(self.command("--progress", "never", "restore", "1", "--target", self.place / "t"),
                            self.environment)
        code, shown = terminal.end()
        self.assertEqual(code, 0)
        self.assertTrue(shown.startswith("Restored checkpoint 1"), shown)

    def interrupt(self, process, started):
        while process.poll() is None and not started():
            time.sleep(0.001)
        process.send_signal(signal.SIGTERM)
        out, err = process.communicate()
        return process.returncode, out, err

    def test_an_interrupted_backup_says_what_becomes_of_the_work(self):
        self.run_agent("init")
        (self.source / "large").write_bytes(os.urandom(1 << 20) * 300)
        fill(self.source, 1, files=2000)
        process = subprocess.Popen(self.command("backup", self.source), env=self.environment, text=True,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        blocks = (self.place / "repository")
        code, out, err = self.interrupt(process, lambda: list(blocks.rglob("BlockStore/*/*/*")))
        self.assertEqual((code, out), (130, ""))
        self.assertEqual(err, "cloudbackup: Interrupted: no checkpoint was made; what was uploaded is found again by "
                              "the next backup.\n")
        self.run_agent("backup", self.source)
        self.assertEqual(describe(self.restore(1)), describe(self.source))

    def test_other_commands_end_before_their_next_call_of_the_store(self):
        self.run_agent("init")
        for _ in range(2):
            (self.source / "large").write_bytes(os.urandom(20 << 20))
            self.run_agent("backup", self.source)
        self.environment["CLOUDBACKUP_LIMIT_DOWNLOAD"] = "4M"
        process = subprocess.Popen(self.command("--json", "--progress", "never", "check", "--read-data"),
                                   env=self.environment, text=True,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        begin = time.monotonic()
        code, out, err = self.interrupt(process, lambda: time.monotonic() - begin > 0.5)  # of ten seconds
        said = "Interrupted: what was looked at is not told; nothing was changed."
        self.assertEqual(code, 130, out + err)
        self.assertEqual(json.loads(out), {"event": "interrupted", "message": said})
        self.assertEqual(err, f"cloudbackup: {said}\n")
        del self.environment["CLOUDBACKUP_LIMIT_DOWNLOAD"]
        self.run_agent("check", "--read-data")

    def complete(self, *words):
        script, _ = self.run_agent("completion", "bash")
        run = f"""{script}
COMP_WORDS=({' '.join(f"'{word}'" for word in words)}); COMP_CWORD={len(words) - 1}
_cloudbackup; printf '%s\\n' "${{COMPREPLY[@]}}" """
        return subprocess.run(["bash", "-c", run], capture_output=True, text=True, check=True).stdout.split()

    def test_bash_completes_commands_options_and_files(self):
        self.assertEqual(self.complete("cloudbackup", "resto"), ["restore"])
        self.assertEqual(self.complete("cloudbackup", "restore", "--in-p"), ["--in-place"])
        self.assertEqual(self.complete("cloudbackup", "--json", "restore", "--over"), ["--overwrite"])
        self.assertIn("--repo", self.complete("cloudbackup", "--re"))
        (self.source / "some file").write_text("")
        self.assertEqual(self.complete("cloudbackup", "backup", str(self.source / "some f")),
                         f"{self.source}/some file".split())

    def test_fish_and_zsh_complete(self):
        script, _ = self.run_agent("completion", "fish")
        run = script + "\ncomplete -C 'cloudbackup resto'; complete -C 'cloudbackup restore --over'"
        done = subprocess.run(["fish", "--no-config", "-c", run], capture_output=True, text=True, check=True,
                              env=dict(self.environment, HOME=str(self.place)))
        self.assertEqual([line.split("\t")[0] for line in done.stdout.splitlines()], ["restore", "--overwrite"])
        script, _ = self.run_agent("completion", "zsh")
        run = ("compdef() { echo known $@ }; compadd() { shift; print -l -- $@ }; _files() { :; }\n" + script +
               "words=(cloudbackup restore -); CURRENT=3; _cloudbackup")
        done = subprocess.run(["zsh", "-f", "-c", run], capture_output=True, text=True, check=True)
        lines = done.stdout.splitlines()
        self.assertEqual(lines[0], "known _cloudbackup cloudbackup")
        self.assertIn("--overwrite", lines)

    def test_scripts_name_every_command(self):
        out, _ = self.run_agent("--help")
        commands = re.findall(r"(?m)^  ([a-z-]+)  ", out[out.index("Commands:"):out.index("Options:")])
        self.assertIn("restore", commands)
        for shell in ("bash", "zsh", "fish"):
            script, _ = self.run_agent("completion", shell)
            for command in commands:
                self.assertRegex(script, rf"(?<![a-z-]){command}(?![a-z-])")
            subprocess.run([shell, "-n"], input=script, text=True, check=True)

    def test_the_manual_page(self):
        page, _ = self.run_agent("manual")
        self.assertIn(".SH NAME\ncloudbackup \\- ", page)
        done = subprocess.run(["groff", "-man", "-Tutf8", "-ww"], input=page, capture_output=True, text=True, check=True)
        self.assertEqual(done.stderr, "")
        shown = subprocess.run(["col", "-bx"], input=done.stdout, capture_output=True, text=True, check=True).stdout
        for text in ("restore CHECKPOINT", "CLOUDBACKUP_REPO", "EXIT STATUS", "auto|always|never", "config.toml"):
            self.assertIn(text, shown.replace("‐", "-"))


if __name__ == "__main__":
    main()
