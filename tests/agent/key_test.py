"""Encryption as a user meets it: passwords, keys, and what a store can see or do."""
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import unittest

from agent import PROGRAM, AgentCase, describe, fill, main
from terminal import Terminal

PASSWORD = "open sesame"
ID = "[0-9a-f-]{36}"
MANUAL = pathlib.Path(__file__).parents[2] / "docs/manual/keys.md"


class Keys(AgentCase):
    def setUp(self):
        super().setUp()
        fill(self.source, seed=1, files=30)
        (self.source / "unusual-name.txt").write_text("an unusual content " * 100)

    def objects(self):
        return [path for path in (self.place / "repository").rglob("*") if path.is_file()]

    def one(self, pattern):
        found = list((self.place / "repository").rglob(pattern))
        self.assertEqual(len(found), 1, f"{pattern}: {found}")
        return found[0]

    def with_password(self, password):
        self.environment["CLOUDBACKUP_PASSWORD"] = password

    def backup(self):
        return self.run_agent("backup", self.source)

    def assert_restores(self, checkpoint="latest"):
        self.assertEqual(describe(self.restore(checkpoint)), describe(self.source))

    def test_the_store_sees_nothing_of_names_and_contents(self):
        self.run_agent("init")
        self.backup()
        stored = self.objects()
        self.assertGreater(len(stored), 5)
        for path in stored:
            content = path.read_bytes()
            for word in (b"unusual", os.fsencode(self.source)):
                self.assertNotIn(word, content, path)
                self.assertNotIn(word, os.fsencode(path.name))
        self.assert_restores()

    def test_without_encryption_everything_is_as_it_was(self):
        del self.environment["CLOUDBACKUP_PASSWORD"]
        self.run_agent("init", "--no-encryption")
        self.backup()
        self.assert_restores()
        out, _ = self.run_agent("key", "list")
        self.assertRegex(out, f"^Client {ID} does not encrypt what it stores\n$")
        self.assertEqual(self.key_events(), [{"event": "key", "state": "none"}])
        _, err = self.run_agent("key", "rotate", expect=1)
        self.assertRegex(err, f"There is no key to replace: client {ID} does not encrypt what it stores\n$")
        _, err = self.run_agent("key", "export", self.place / "keys", expect=1)
        self.assertRegex(err, f"There are no keys to export: client {ID} does not encrypt what it stores\n$")

    def key_events(self, *options):
        out, _ = self.run_agent("--json", *options, "key", "list")
        return [json.loads(line) for line in out.splitlines()]

    def own_client(self):
        return next(client["id"] for line in self.run_agent("--json", "clients")[0].splitlines()
                    if (client := json.loads(line))["own"])

    def test_a_client_that_has_stored_nothing_has_no_key_yet(self):
        self.run_agent("init")
        self.environment["CLOUDBACKUP_STATE_DIR"] = f"{self.place}/second"
        out, _ = self.run_agent("key", "list")
        self.assertRegex(out, f"^Client {ID} has no key yet: the first backup makes one\n$")
        self.assertEqual(self.key_events(), [{"event": "key", "state": "no record"}])
        for command in (("rotate",), ("export", self.place / "keys")):
            _, err = self.run_agent("key", *command, expect=1)
            self.assertRegex(err, f": client {ID} has no key yet: the first backup makes one\n$")

    def test_a_record_that_was_taken_away_is_no_client_without_a_key(self):
        self.run_agent("init")
        self.backup()
        client = self.own_client()
        for record in (self.place / "repository").rglob("ClientKey*.xml"):
            record.unlink()
        self.environment["CLOUDBACKUP_STATE_DIR"] = f"{self.place}/second"  # which has never seen it
        out, _ = self.run_agent("--client", client, "key", "list")
        self.assertEqual(out, f"Client {client} has backups, but no key record: either it never encrypted, or the "
                              "record is lost\n")

    def test_keys_of_another_client(self):
        self.run_agent("init")
        self.backup()
        first = self.own_client()
        keys = self.key_events()
        self.environment["CLOUDBACKUP_STATE_DIR"] = f"{self.place}/second"
        self.with_password("of the second machine")
        self.backup()
        second = self.own_client()
        self.assertNotEqual(self.key_events(), keys)
        self.with_password(PASSWORD)
        self.assertEqual(self.key_events("--client", first), keys)
        out, _ = self.run_agent("--client", first, "key", "export", self.place / "keys")
        self.assertIn(f"Wrote 1 key of client {first} to {self.place}/keys. ", out)
        del self.environment["CLOUDBACKUP_PASSWORD"]
        self.run_agent("--client", first, "--recovery-file", self.place / "keys", "ls", "latest")
        _, err = self.run_agent("--client", first, "backup", self.source, expect=2)
        self.assertEqual(err, f"cloudbackup: Backups are made as client {second} from here, not as client {first}: "
                              "leave --client away\n")
        self.with_password("of the second machine")
        self.run_agent("--client", second, "backup", self.source)

    def test_a_signal_at_the_prompt_restores_the_terminal(self):
        """Also when the store is open already, with threads of its own."""
        self.run_agent("init")
        self.backup()
        del self.environment["CLOUDBACKUP_PASSWORD"]
        for cause, number in (("\x03", signal.SIGINT), (None, signal.SIGTERM), (None, signal.SIGHUP)):
            terminal = Terminal(self.command("checkpoints"), self.environment)
            terminal.wait_for("Enter the password: ")
            self.assertFalse(terminal.echoes())
            if cause:
                terminal.type(cause)
            else:
                terminal.process.send_signal(number)
            code, shown = terminal.end()[:2]
            self.assertEqual(code, 130)
            self.assertIn("cloudbackup: Interrupted.", shown)

    def test_no_password_is_wrong_use_and_makes_nothing(self):
        del self.environment["CLOUDBACKUP_PASSWORD"]
        _, err = self.run_agent("init", expect=2)
        self.assertEqual(err, "cloudbackup: The password is missing: it comes from --password-file FILE, from "
                              "CLOUDBACKUP_PASSWORD, or is asked for on a terminal\n")
        self.assertFalse((self.place / "repository").exists())

    def test_a_wrong_password_is_told_at_once(self):
        self.run_agent("init")
        self.backup()
        self.with_password("open barley")
        for command in (("backup", self.source), ("ls", "latest"), ("checkpoints",), ("check",), ("key", "list"),
                        ("restore", "latest", "--target", self.place / "target")):
            _, err = self.run_agent(*command, expect=1)
            self.assertRegex(err, "^cloudbackup: The password is wrong: it does not give key [0-9a-f]{32} of client")

    def test_passwords_come_from_a_file_or_a_command(self):
        self.run_agent("init")
        del self.environment["CLOUDBACKUP_PASSWORD"]
        (self.place / "password").write_text(PASSWORD + "\nsecond line\n")
        self.run_agent("--password-file", self.place / "password", "backup", self.source)
        self.run_agent("--password-command", f"cat {self.place}/password", "ls", "latest")
        _, err = self.run_agent("--password-command", "false", "ls", "latest", expect=1)
        self.assertEqual(err, "cloudbackup: The password command 'false' failed\n")
        _, err = self.run_agent("--password-command", "true", "ls", "latest", expect=1)
        self.assertEqual(err, "cloudbackup: The password command 'true' printed no password\n")

    def test_a_new_password_is_asked_for_twice(self):
        del self.environment["CLOUDBACKUP_PASSWORD"]
        terminal = Terminal(self.command("init"), self.environment)
        terminal.wait_for("Enter the password that is to protect your backups: ")
        terminal.type("from the terminal\n")
        terminal.wait_for("Enter it again: ")
        terminal.type("from the terminal\n")
        self.assertEqual(terminal.end()[0], 0)
        self.with_password("from the terminal")
        self.backup()

    def test_a_new_password_that_is_mistyped_makes_nothing(self):
        del self.environment["CLOUDBACKUP_PASSWORD"]
        terminal = Terminal(self.command("init"), self.environment)
        terminal.wait_for("protect your backups: ")
        terminal.type("one\n")
        terminal.wait_for("Enter it again: ")
        terminal.type("other\n")
        self.assertEqual(terminal.end()[0], 2)
        self.assertIn("The two passwords are not the same", terminal.shown)
        self.assertFalse((self.place / "repository").exists())

    def test_a_new_password_replaces_the_old_one_and_all_stays_readable(self):
        self.run_agent("init")
        self.backup()
        first = describe(self.source)
        self.environment["CLOUDBACKUP_NEW_PASSWORD"] = "second"
        out, _ = self.run_agent("key", "change")
        self.assertRegex(out, "^Key [0-9a-f]{32} is in use now; 1 former key still read what came before\n$")
        _, err = self.run_agent("ls", "latest", expect=1)
        self.assertIn("The password is wrong", err)
        self.with_password("second")
        self.assertEqual(describe(self.restore(1)), first)
        (self.source / "new").write_text("of the second key")
        self.backup()
        self.assert_restores()
        self.environment["CLOUDBACKUP_NEW_PASSWORD"] = "third"
        self.run_agent("key", "change", "--hint", "autumn")
        self.with_password("third")
        (self.source / "newer").write_text("of the third key")
        self.backup()
        self.assert_restores()
        self.assertEqual(describe(self.restore(1)), first)
        out, _ = self.run_agent("key", "list")
        self.assertEqual([line.split("  ")[1] for line in out.splitlines()], ["in use", "former", "former"])
        self.run_agent("check", "--read-data")

    def test_a_rotated_key_stores_nothing_again(self):
        self.run_agent("init")
        self.backup()
        blocks = {path for path in self.objects() if "BlockStore" in str(path)}
        self.run_agent("key", "rotate")
        self.backup()
        self.assertEqual({path for path in self.objects() if "BlockStore" in str(path)}, blocks)
        self.assert_restores()

    def test_recovery_keys_restore_without_the_key_records(self):
        self.run_agent("init")
        self.backup()
        self.run_agent("key", "rotate")
        self.backup()
        keys = self.place / "keys"
        self.run_agent("key", "export", keys)
        self.assertEqual(keys.stat().st_mode & 0o777, 0o600)
        _, err = self.run_agent("key", "export", keys, expect=1)
        self.assertIn("File exists", err)
        self.one("ClientKeyInfo.xml").unlink()
        self.one("ClientKeyHistory.xml").unlink()
        del self.environment["CLOUDBACKUP_PASSWORD"]
        shutil.rmtree(self.place / "state")  # on another machine
        self.environment["CLOUDBACKUP_RECOVERY_FILE"] = str(keys)
        self.assert_restores(1)
        self.assert_restores(2)
        _, err = self.run_agent("backup", self.source, expect=1)
        self.assertIn("Recovery keys are for reading", err)

    def test_recovery_keys_of_another_repository_are_refused(self):
        self.run_agent("init")
        self.backup()
        self.run_agent("key", "export", self.place / "keys")
        self.environment["CLOUDBACKUP_REPO"] = f"dir:{self.place}/other"
        self.run_agent("init")
        self.backup()
        _, err = self.run_agent("--recovery-file", self.place / "keys", "ls", "latest", expect=1)
        self.assertRegex(err, "The recovery keys in '.*/keys' are those of client .* in repository")

    def test_a_store_that_takes_the_key_record_away_gets_nothing(self):
        self.run_agent("init")
        self.backup()
        self.one("ClientKeyInfo.xml").unlink()
        (self.source / "secret").write_text("not for the store")
        before = self.objects()
        _, err = self.run_agent("backup", self.source, expect=1)
        self.assertRegex(err, "Client .* encrypts what it stores, with key [0-9a-f]{32} when this machine last saw it, "
                              "but the repository has no key for it any more")
        _, err = self.run_agent("backup", "--no-encryption", self.source, expect=1)
        self.assertIn("somebody wants to see what you store", err)
        self.assertEqual(self.objects(), before)

    def test_a_store_that_says_nobody_encrypts_gets_nothing(self):
        self.run_agent("init")
        self.backup()
        self.one("ClientKeyInfo.xml").write_text('<EncryptionKey Id="' + "0" * 32 + '" Hint="" Salt="" />')
        _, err = self.run_agent("backup", self.source, expect=1)
        self.assertIn("somebody wants to see what you store", err)
        shutil.rmtree(self.place / "state")  # nor does a machine that does not remember take the lie
        for client in (self.place / "repository").rglob("ClientInfo.xml"):
            _, err = self.run_agent("--client", client.parent.parent.name, "ls", "latest", expect=1)
            self.assertIn("which is not among the keys of this client", err)

    def test_a_document_in_anothers_place_is_noticed(self):
        self.run_agent("init")
        self.backup()
        self.backup()
        documents = {path.name: path for path in self.objects() if path.parent.name == "Checkpoint"}
        self.assertEqual(len(documents), 2)
        first, second = (documents[name] for name in sorted(documents))
        text = second.read_text().replace('Id="2"', 'Id="1"')
        first.write_text(text)
        _, err = self.run_agent("ls", 1, expect=1)
        self.assertIn("it is not what was sealed with this key", err)

    def test_a_document_that_is_not_encrypted_is_not_believed(self):
        self.run_agent("init")
        self.backup()
        document = next(path for path in self.objects() if path.parent.name == "Checkpoint")
        plain = self.place / "plain"
        self.environment["CLOUDBACKUP_REPO"] = f"dir:{plain}"
        self.run_agent("init", "--no-encryption")
        self.backup()
        forged = next(path for path in plain.rglob("*") if path.is_file() and path.parent.name == "Checkpoint")
        document.write_text(forged.read_text())
        self.environment["CLOUDBACKUP_REPO"] = f"dir:{self.place}/repository"
        _, err = self.run_agent("ls", 1, expect=1)
        self.assertIn("it is not encrypted, as all that this client stores is: somebody else wrote it", err)

    def test_changed_blocks_are_noticed_and_named(self):
        self.run_agent("init")
        self.backup()
        block = next(path for path in self.objects() if "BlockStore" in str(path))
        content = bytearray(block.read_bytes())
        content[len(content) // 2] ^= 1
        block.write_bytes(content)
        _, err = self.run_agent("restore", "latest", "--target", self.place / "target", expect=3)
        self.assertIn(block.name, err)
        self.assertIn("it is not what was sealed with this key", err)

    def test_every_client_has_a_password_of_its_own(self):
        self.run_agent("init")
        self.backup()
        first = next((self.place / "repository").rglob("ClientInfo.xml")).parent.parent.name
        self.environment["CLOUDBACKUP_STATE_DIR"] = str(self.place / "other-state")
        self.with_password("another")
        self.backup()  # makes its key
        self.assert_restores()
        _, err = self.run_agent("--client", first, "ls", "latest", expect=1)
        self.assertIn("The password is wrong", err)
        self.with_password(PASSWORD)
        self.run_agent("--client", first, "ls", "latest")

    def test_a_store_that_goes_back_to_a_replaced_key_is_noticed(self):
        self.run_agent("init")
        self.backup()
        record = self.one("ClientKeyInfo.xml")
        former = record.read_text()
        self.run_agent("key", "rotate")
        current = record.read_text()
        record.write_text(former)
        history = self.one("ClientKeyHistory.xml")
        before = self.objects()
        for command in (("backup", self.source), ("key", "rotate"), ("ls", "latest")):
            _, err = self.run_agent(*command, expect=1)
            self.assertRegex(err, "had key [0-9a-f]{32} when this machine last saw it, but the repository has key "
                                  "[0-9a-f]{32}, which does not follow it: the repository shows an older state")
        self.assertEqual(self.objects(), before)
        record.write_text(current)
        self.backup()
        self.assert_restores()
        shutil.rmtree(self.place / "state")  # a machine that has seen nothing cannot tell
        record.write_text(former)
        history.unlink()
        self.run_agent("ls", 1)

    def test_a_store_cannot_begin_a_client_without_encryption(self):
        self.run_agent("init")
        record = self.one("ClientKeyInfo.xml")
        record.write_text('<EncryptionKey Id="' + "0" * 32 + '" Hint="" Salt="" />')
        next((self.place / "state").rglob(".key")).unlink()  # as it is before the first answer of the store
        before = self.objects()
        for _ in range(2):
            _, err = self.run_agent("backup", self.source, expect=1)
            self.assertRegex(err, "The repository says that client .* does not encrypt what it stores, but nobody has said "
                                  "so on this machine: say --no-encryption if it is so; if not, somebody wants to see")
        self.assertEqual(self.objects(), before)
        self.run_agent("backup", "--no-encryption", self.source)
        self.backup()  # it has been said
        self.assert_restores()

    def test_a_client_that_was_deleted_begins_anew(self):
        self.run_agent("init")
        self.backup()
        client = next((self.place / "repository").rglob("ClientInfo.xml")).parent.parent.name
        self.run_agent("delete", "client", client, "--yes")
        self.with_password("another")
        self.run_agent("init")
        self.backup()
        self.assert_restores(1)

    def test_another_machine_may_change_the_key(self):
        self.run_agent("init")
        self.backup()
        own, other = self.place / "state", self.place / "other-state"
        shutil.copytree(own, other)
        self.environment["CLOUDBACKUP_STATE_DIR"] = str(other)
        self.run_agent("key", "rotate")
        self.run_agent("key", "rotate")
        self.environment["CLOUDBACKUP_STATE_DIR"] = str(own)
        self.backup()
        self.assert_restores()

    def checkpoint(self, number):
        return self.one(f"Metadata/Checkpoint/{number}")

    def backup_into_an_older_state(self, made, shown):
        before = self.objects()
        _, err = self.run_agent("backup", self.source, expect=1)
        self.assertIn(f"This machine has made checkpoint {made} of set 'default', but the last one that the store shows is "
                      f"{shown}: the store has lost checkpoints, or shows an older state. Nothing was saved", err)
        self.assertEqual(self.objects(), before)

    def test_a_store_that_hides_the_newest_checkpoint_is_noticed(self):
        self.run_agent("init")
        self.backup()
        self.backup()
        hidden = self.checkpoint(2)
        content = hidden.read_bytes()
        hidden.unlink()
        self.backup_into_an_older_state(2, 1)
        hidden.write_bytes(content)
        self.backup()
        for number in (2, 3):
            self.checkpoint(number).unlink()
        self.backup_into_an_older_state(3, 1)
        out, _ = self.run_agent("backup", "--accept-older-state", self.source)
        self.assertIn("Checkpoint 2 of set 'default'", out)
        self.backup()
        self.assert_restores()

    def test_a_store_that_hides_all_checkpoints_is_noticed(self):
        self.run_agent("init")
        self.backup()
        self.checkpoint(1).unlink()
        _, err = self.run_agent("backup", self.source, expect=1)
        self.assertIn("the last one that the store shows is 0", err)

    def test_checkpoints_that_the_user_takes_away_are_not_missed(self):
        self.run_agent("init")
        for _ in range(3):
            self.backup()
        self.run_agent("forget", 3)
        self.backup()
        self.run_agent("forget", 1)
        self.backup()
        self.run_agent("delete", "set", "default", "--yes")
        self.backup()
        self.assert_restores(1)

    def test_the_commands_of_the_manual_run_as_they_stand(self):
        blocks = re.findall(r"^```sh\n(.*?)^```$", MANUAL.read_text(), re.DOTALL | re.MULTILINE)
        self.assertEqual(len(blocks), 7)
        script = "".join(blocks)
        for command in ("init", "backup", "key list", "key change", "key rotate", "key export", "restore latest"):
            self.assertIn(command, script)
        home = self.place / "home"
        for folder in (home / "documents", self.place / "safe"):
            folder.mkdir(parents=True)
        fill(home / "documents", seed=2, files=10)
        del self.environment["CLOUDBACKUP_PASSWORD"]
        self.environment |= {"HOME": str(home), "PATH": f"{os.path.dirname(PROGRAM)}:{os.environ['PATH']}"}
        script = script.replace("/tmp/", f"{self.place}/").replace(" /safe/", f" {self.place}/safe/")
        done = subprocess.run(["bash", "-euo", "pipefail", "-c", script], env=self.environment, capture_output=True,
                              text=True, check=False)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        self.assertEqual(describe(f"{self.place}/restored{home}/documents"), describe(home / "documents"))

    def test_secrets_are_in_no_output(self):
        self.run_agent("init")
        self.environment["CLOUDBACKUP_NEW_PASSWORD"] = "fresh secret"
        for command in (("backup", self.source), ("key", "change"),):
            out, err = self.run_agent("-vv", *command)
            for secret in (PASSWORD, "fresh secret"):
                self.assertNotIn(secret, out + err)


if __name__ == "__main__":
    main()
