#!/usr/bin/env python3
"""clients, owner, repositories and delete: who has what, and that a deletion takes what it says and nothing else."""
import json
import os
import pty
import select
import subprocess

from agent import AgentCase, describe, fill, main


class Owning(AgentCase):
    def setUp(self):
        super().setUp()
        self.run_agent("init")
        fill(self.source, 1, files=10)

    def on(self, machine):
        """From now on as another machine."""
        self.environment["CLOUDBACKUP_STATE_DIR"] = str(self.place / machine)

    def client(self, machine):
        return (self.place / machine / "client-id").read_text().strip()

    def events(self, *arguments):
        out, _ = self.run_agent("--json", *arguments)
        return [json.loads(line) for line in out.splitlines()]

    def sets(self):
        return {event["id"]: [one["name"] for one in event["sets"]] for event in self.events("clients")}

    def two_machines(self):
        self.run_agent("backup", self.source)
        self.run_agent("--set", "photos", "backup", self.source)
        self.on("state2")
        self.run_agent("backup", self.source)
        self.run_agent("backup", self.source)
        self.on("state")

    def test_clients(self):
        self.assertEqual(self.sets(), {self.client("state"): []})
        self.two_machines()
        self.assertEqual(self.sets(), {self.client("state"): ["default", "photos"], self.client("state2"): ["default"]})
        out, _ = self.run_agent("clients")
        self.assertRegex(out, self.client("state") + r"  .* \(cloudbackup\), this machine\n"
                         r"  set 'default': 1 checkpoint, the last one 1 of \d{4}-\d\d-\d\d \d\d:\d\d:\d\d\n")
        self.assertIn("  set 'default': 2 checkpoints, the last one 2 of ", out)

    def test_owner(self):
        self.run_agent("backup", self.source)
        self.assertEqual(self.run_agent("owner")[0], "The repository has no owner\n")
        out, _ = self.run_agent("owner", "--name", "Example Ltd.", "--type", "company")
        self.assertRegex(out, r"^Owner: [0-9a-f-]{36}  Example Ltd\. \(company\)\n$")
        (shown,) = self.events("owner")
        self.assertEqual(shown["owner"]["description"], "Example Ltd.")
        self.run_agent("owner", "--name", "Other Ltd.")
        self.assertEqual(self.events("owner")[0]["owner"], dict(shown["owner"], description="Other Ltd."))
        self.run_agent("backup", self.source)
        self.run_agent("owner", "--clear")
        self.assertEqual(self.events("owner"), [{"event": "owner", "owner": None}])
        self.assertEqual(describe(self.restore("latest")), describe(self.source))
        self.run_agent("owner", "--id", "x", expect=2)
        self.run_agent("owner", "--name", "x", "--id", "x", expect=2)

    def test_repositories(self):
        self.run_agent("backup", self.source)
        self.run_agent("--repo-name", "second", "init")
        listed = {event["name"]: event["clients"] for event in self.events("repositories")}
        self.assertEqual(listed, {"cloudbackup": 1, "second": 1})
        out, _ = self.run_agent("repositories")
        self.assertRegex(out, r"^cloudbackup  [0-9a-f-]{36}  1 client\nsecond  [0-9a-f-]{36}  1 client\n$")

    def test_delete_set(self):
        self.two_machines()
        out, error = self.run_agent("delete", "set", "photos", expect=2)
        self.assertIn("This deletes set 'photos':", out)
        self.assertIn("    set 'photos': 1 checkpoint, the last one 1 of ", out)
        self.assertRegex(out, r"  \d+ objects in the store\n")
        self.assertNotIn("default", out)
        self.assertIn("Nothing is deleted without --yes", error)
        self.assertIn("photos", self.sets()[self.client("state")])
        self.run_agent("delete", "set", "photos", "--yes")
        self.assertEqual(self.sets(), {self.client("state"): ["default"], self.client("state2"): ["default"]})
        _, error = self.run_agent("delete", "set", "photos", "--yes", expect=1)
        self.assertIn("has no set 'photos'", error)
        self.assertEqual(describe(self.restore(1)), describe(self.source))
        self.run_agent("--set", "photos", "backup", self.source)
        self.run_agent("--client", self.client("state2"), "delete", "set", "default", "--yes")
        self.assertEqual(self.sets(), {self.client("state"): ["default", "photos"], self.client("state2"): []})

    def test_delete_client(self):
        self.two_machines()
        _, error = self.run_agent("delete", "client", "11111111-2222-3333-4444-555555555555", "--yes", expect=1)
        self.assertIn("There is no client 11111111-2222-3333-4444-555555555555", error)
        self.run_agent("delete", "client", "nobody", "--yes", expect=2)
        self.run_agent("delete", "client", self.client("state2"), "--yes")
        self.assertEqual(self.sets(), {self.client("state"): ["default", "photos"]})
        out, _ = self.run_agent("delete", "client", self.client("state"), expect=2)
        self.assertIn("and the repository itself, since nobody else is in it", out)
        self.run_agent("delete", "client", self.client("state"), "--yes")
        self.assertEqual(self.events("repositories"), [])

    def test_delete_repository(self):
        self.two_machines()
        self.run_agent("--repo-name", "second", "init")
        out, _ = self.run_agent("delete", "repository", "cloudbackup", expect=2)
        self.assertIn("  client " + self.client("state2"), out)
        (done,) = self.events("delete", "repository", "cloudbackup", "--yes")
        self.assertTrue(done["repositoryGone"])
        self.assertEqual([event["name"] for event in self.events("repositories")], ["second"])
        self.run_agent("delete", "repository", "second", "--yes")
        self.assertEqual(self.events("repositories"), [])
        self.run_agent("delete", "repository", "second", "--yes", expect=1)

    def answer(self, text):
        """Deletes the set on a terminal where somebody types this; the exit code."""
        terminal, end = pty.openpty()
        process = subprocess.Popen(self.command("delete", "set", "default"), env=self.environment, stdin=end,
                                   stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        os.close(end)
        shown = b""
        while b"Type 'yes' to go on: " not in shown:
            select.select([process.stdout], [], [])
            more = os.read(process.stdout.fileno(), 4096)
            self.assertTrue(more, shown)
            shown += more
        os.write(terminal, text.encode() + b"\n")
        process.stdout.read()
        process.stdout.close()
        code = process.wait()
        os.close(terminal)
        return code

    def test_asking_on_a_terminal(self):
        self.run_agent("backup", self.source)
        self.assertEqual(self.answer("y"), 1)
        self.assertEqual(self.sets(), {self.client("state"): ["default"]})
        self.assertEqual(self.answer("yes"), 0)
        self.assertEqual(self.sets(), {self.client("state"): []})


if __name__ == "__main__":
    with open(os.devnull, encoding="ascii") as nobody:  # also where the tests themselves run on a terminal
        os.dup2(nobody.fileno(), 0)
    main()
