#!/usr/bin/env python3
"""The conformance suite over a user's own store."""
import ctypes
import json
import os
import resource
import signal
import subprocess

from agent import AgentCase, describe, main

DROP_CAPABILITY = 24  # PR_CAPBSET_DROP
OVERRIDING = (1, 2)  # CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH


def be_bound_by_modes():
    """Lets the mode of files count for the administrator too."""
    if os.getuid() == 0:
        for capability in OVERRIDING:
            if ctypes.CDLL(None).prctl(DROP_CAPABILITY, capability, 0, 0, 0) != 0:
                raise OSError("cannot drop the capability")


def be_short_of_room():
    """Lets no file become larger than a few bytes."""
    signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
    resource.setrlimit(resource.RLIMIT_FSIZE, (500, 500))


def objects(repository):
    """What lies in a folder, but for its client's own temp area."""
    return [line for line in describe(repository) if line[0] != b"/.cloudbackup-tmp"]


class CheckClient(AgentCase):
    def setUp(self):
        super().setUp()
        self.repository = self.place / "repository"

    def expect_nothing_left(self):
        """Nothing but where a folder's client keeps its temp files, which stays for the next one."""
        self.assertEqual(list(self.repository.rglob("*")), [self.repository / ".cloudbackup-tmp"])

    def test_a_folder_keeps_every_promise_and_is_left_as_it_was(self):
        self.run_agent("init")
        self.run_agent("backup", self.source)
        before = objects(self.repository)
        out, err = self.run_agent("check-client")
        self.assertEqual(err, "")
        first, last = out.splitlines()  # nothing fails, and nothing deviates
        self.assertRegex(first, r"^Writes only below '\.cloudbackup-check-[0-9a-f-]{36}', and deletes it afterwards$")
        self.assertRegex(last, r"^Hold: \d\d+, deviate: 0, fail: 0$")
        self.assertEqual(objects(self.repository), before)
        out, _ = self.run_agent("checkpoints")
        self.assertEqual(len(out.splitlines()), 2)

    def test_verbose_names_what_holds(self):
        self.repository.mkdir()
        out, _ = self.run_agent("-v", "check-client", "--rounds", "1")
        lines = out.splitlines()
        held = [line for line in lines if line.startswith("holds: ")]
        self.assertEqual(len(held), len(lines) - 2)
        self.assertIn("holds: FailureNamesPathAsGiven", held)
        self.assertIn("holds: ObjectCountIsOfAllObjectsUnderPath", held)
        self.assertEqual(lines[-1], f"Hold: {len(held)}, deviate: 0, fail: 0")
        self.expect_nothing_left()

    def test_large_has_more_checks(self):
        self.repository.mkdir()
        counts = []
        for options in ([], ["--large"]):
            out, _ = self.run_agent("--json", "check-client", "--rounds", "1", *options)
            events = [json.loads(line) for line in out.splitlines()]
            self.assertEqual({(event["event"], event["outcome"]) for event in events[:-1]}, {("check", "holds")})
            self.assertEqual(events[-1], {"event": "summary", "hold": len(events) - 1, "deviate": 0, "fail": 0})
            counts.append(len({event["name"] for event in events[:-1]}))
        self.assertGreater(counts[1], counts[0])
        self.expect_nothing_left()

    def test_quiet(self):
        self.repository.mkdir()
        self.assertEqual(self.run_agent("-q", "check-client", "--rounds", "1"), ("", ""))

    def test_a_missing_folder(self):
        out, err = self.run_agent("check-client", expect=1)
        self.assertEqual(out, "")
        self.assertEqual(err, f"cloudbackup: OpenRoot '{self.repository}': it or a folder above it does not exist\n")
        self.assertFalse(self.repository.exists())

    def run_bound(self, prepare, *arguments):
        return subprocess.run(self.command(*arguments), env=self.environment, capture_output=True, text=True,
                              check=False, preexec_fn=prepare, restore_signals=False)

    def test_broken_promises_are_told(self):
        self.repository.mkdir()
        done = self.run_bound(be_short_of_room, "check-client", "--rounds", "1")
        self.assertEqual(done.returncode, 1, done.stdout + done.stderr)
        lines = done.stdout.splitlines()[1:-1]
        fails = [line for line in lines if line.startswith("fails: ")]
        deviates = [line for line in lines if line.startswith("deviates: ")]
        self.assertGreater(len(fails), 0)
        self.assertEqual(len(fails) + len(deviates), len(lines))
        # An object of 1000 bytes; the failure bears the path that the check gave, not where it works.
        self.assertRegex("\n".join(deviates), r"deviates: quotaIsUnknown: QuotaIsTold: .*UploadFile 'object': ")
        self.assertNotIn(".cloudbackup-check-", "\n".join(lines))
        self.assertRegex(done.stdout, rf"\nHold: \d+, deviate: {len(deviates)}, fail: {len(fails)}\n$")
        self.expect_nothing_left()

        done = self.run_bound(be_short_of_room, "--json", "check-client", "--rounds", "1")
        self.assertEqual(done.returncode, 1)
        events = [json.loads(line) for line in done.stdout.splitlines()]
        self.assertEqual(sum(event.get("outcome") == "fails" for event in events), events[-1]["fail"])
        quota = next(event for event in events if event.get("name") == "QuotaIsTold")
        self.assertEqual((quota["outcome"], quota["deviation"]), ("deviates", "quotaIsUnknown"))

        done = self.run_bound(be_short_of_room, "-q", "check-client", "--rounds", "1")
        self.assertEqual((done.returncode, done.stdout), (1, ""))
        self.assertEqual(len(done.stderr.splitlines()), len(fails))

    def test_a_folder_that_cannot_be_written(self):
        self.repository.mkdir()
        self.repository.chmod(0o500)
        done = self.run_bound(be_bound_by_modes, "check-client")
        self.assertEqual(done.returncode, 1)
        self.assertRegex(done.stdout, r"^Writes only below [^\n]*\n$")
        self.assertRegex(done.stderr, r"^cloudbackup: Cannot write to the store: [^\n]*access is denied[^\n]*\n$")
        self.assertEqual(list(self.repository.iterdir()), [])

    def test_wrong_use(self):
        for arguments in (["--rounds", "0"], ["--rounds", "many"], ["folder"]):
            self.run_agent("check-client", *arguments, expect=2)
        del self.environment["CLOUDBACKUP_REPO"]
        self.run_agent("check-client", expect=2)


if __name__ == "__main__":
    main()
