#!/usr/bin/env python3
"""The manual's pages hold true: the commands that they show run, and what they list is what the program has."""
import os
import pathlib
import re
import subprocess

from agent import PROGRAM, AgentCase, main

ROOT = pathlib.Path(__file__).parents[2]
MANUAL = ROOT / "docs" / "manual"
# Where it is for the reader to say what, and where the commands need stores and programs that are not here.
SYNOPSES = re.compile(r"\[|\bDIR\b|\bCHECKPOINT\b|COMMAND \.\.\.|spec:|--s3|--azure|with_server")


def shown_commands(page):
    """The indented lines, and those in fences, that call the program; without the remarks behind them."""
    text = (MANUAL / page).read_text()
    lines = re.findall(r"^    (\S.*)$", text, re.MULTILINE)
    for block in re.findall(r"```sh\n(.*?)```", text, re.DOTALL):
        lines += block.splitlines()
    called = [line for line in lines if re.match(r"(\w+ \w+ \| )?cloudbackup [a-z-]", line)]
    return [re.split(r"\s{2,}|\s#", line)[0] for line in called if not SYNOPSES.search(line)]


class Manual(AgentCase):
    def stand_in(self, name, text):
        path = self.place / "bin" / name
        path.parent.mkdir(exist_ok=True)
        path.write_text("#!/bin/sh\n" + text)
        path.chmod(0o755)

    def setUp(self):
        super().setUp()
        self.run_agent("init")
        for folder in ("home/ann", "etc", "srv/www", "srv/conf", "srv/db"):
            (self.place / folder).mkdir(parents=True)
        for folder in (".local/share/bash-completion/completions", ".config/fish/completions"):
            (self.place / folder).mkdir(parents=True)
        for file in ("home/ann/p.jpg", "etc/fstab", "srv/www/index.html", "srv/conf/nginx.conf", "srv/db/dump.sql"):
            (self.place / file).write_text(file)
        self.stand_in("pg_dump", "echo dumped\n")
        for _ in range(17):
            self.run_agent("backup", self.place / "srv", "--host", "web1", "--tag", "daily")
        environment = dict(self.environment, HOME=str(self.place),
                           PATH=f"{self.place}/bin:{os.path.dirname(PROGRAM)}:{os.environ['PATH']}")
        self.environment = environment

    def run_page(self, page, least, first=""):
        """Runs what a page shows, one after the other; the system's folders are those of this place."""
        commands = sorted(shown_commands(page), key=lambda command: command != first)
        self.assertGreaterEqual(len(commands), least, page)
        client = re.search(r"[0-9a-f-]{36}", self.run_agent("--json", "clients")[0]).group(0)
        for command in commands:
            line = re.sub(r"(?<![\w~.])/(home|etc|srv)\b", rf"{self.place}/\1", command)
            line = line.replace("--client ID", f"--client {client}")
            done = subprocess.run(["bash", "-o", "pipefail", "-c", line], env=self.environment, text=True,
                                  stdin=subprocess.DEVNULL, capture_output=True, check=False)
            self.assertEqual(done.returncode, 0, f"{page}: {command}: {done.stdout}{done.stderr}")

    def test_backup(self):
        self.run_page("backup.md", 4)

    def test_checking(self):
        self.run_page("checking.md", 8)

    def test_looking(self):
        self.run_page("looking.md", 13)

    def test_restore(self):
        (self.place / "srv/www/index.html").write_text("changed since")
        self.run_page("restore.md", 6)
        self.assertEqual((self.place / "srv/www/index.html").read_text(), "srv/www/index.html")
        for path in (f"restored{self.place}/srv/db/dump.sql", f"one-file{self.place}/srv/www/index.html",
                     "conf/nginx.conf", f"dumps{self.place}/srv/db/dump.sql"):
            self.assertTrue((self.place / path).is_file(), path)
        self.assertFalse((self.place / f"dumps{self.place}/srv/www/index.html").exists())

    def test_retention(self):
        self.run_page("retention.md", 4, first="cloudbackup forget 3 5")  # while they are there

    def test_use(self):
        self.run_page("use.md", 2)

    def test_owning(self):
        """What deletes asks first, and cannot here."""
        commands = shown_commands("owning.md")
        self.assertGreaterEqual(len(commands), 8)
        deleting = [command for command in commands if " delete " in command]
        self.assertEqual(len(deleting), 3)
        client = re.search(r"[0-9a-f-]{36}", self.run_agent("--json", "clients")[0]).group(0)
        for what, name in (("set", "default"), ("client", client), ("repository", "cloudbackup")):
            command = re.sub(r"[A-Z]+$", name, next(one for one in deleting if f" {what} " in one))
            done = subprocess.run(["bash", "-c", command], env=self.environment, stdin=subprocess.DEVNULL,
                                  capture_output=True, text=True, check=False)
            self.assertIn("--yes", done.stderr, command)
        for command in set(commands) - set(deleting):
            subprocess.run(["bash", "-c", command], env=self.environment, capture_output=True, check=True)

    def test_restore(self):
        """Its options, named in tables, are options of the command."""
        help_text, _ = self.run_agent("restore", "--help")
        general, _ = self.run_agent("--help")
        named = set(re.findall(r"`(--[a-z-]+)", (MANUAL / "restore.md").read_text()))
        self.assertIn("--verify", named)
        for option in named:
            self.assertRegex(help_text + general, rf"(?m)^  (-\w, )?{option}\b")

    def listed_events(self):
        """What stands in the columns "event" of the page's tables."""
        events, column = set(), None
        for line in (MANUAL / "json.md").read_text().splitlines():
            cells = [cell.strip() for cell in line.split("|")]
            if "event" in cells:
                column = cells.index("event")
            elif len(cells) > 2 and column is not None:
                # In brackets stands when, not what.
                events |= set(re.findall(r"`(\w+)`", re.sub(r"\(.*?\)", "", cells[column])))
        return events

    def test_every_event_is_on_the_page(self):
        events = set()
        for source in (ROOT / "agent").rglob("*.cpp"):
            text = source.read_text()
            events |= set(re.findall(r'\{"event",\s*"(\w+)"', text))
            events |= set(re.findall(r'\["event"\] = "(\w+)"', text))
            events |= set(re.findall(r'EntryToJson\("(\w+)"', text))
        self.assertLessEqual({"failure", "progress", "entry", "client", "repaired"}, events)
        self.assertEqual(sorted(events - self.listed_events()), [])

    def test_every_event_of_the_page_is_printed(self):
        sources = "".join(path.read_text() for path in (ROOT / "agent").rglob("*.cpp"))
        listed = self.listed_events()
        self.assertLessEqual({"decision", "failure", "restored"}, listed)
        for event in listed:
            self.assertIn(f'"{event}"', sources)


if __name__ == "__main__":
    main()
