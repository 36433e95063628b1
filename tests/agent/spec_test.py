#!/usr/bin/env python3
"""Connection specifications as a user writes and reads them, and where their secrets come from."""
import http.server
import json
import os
import pathlib
import signal
import subprocess
import threading

from agent import AgentCase, main
from terminal import Terminal

SECRET = "of/the+account"
PASSWORD = "of the proxy & <all>"
CONNECTION = "AccountName=backups;AccountKey=b2YgdGhlIGFjY291bnQ="
SECRETS = (SECRET, PASSWORD, CONNECTION, "b2YgdGhlIGFjY291bnQ=", "for an hour")
VARIABLES = ("CLOUDBACKUP_REPO", "AWS_ACCESS_KEY_ID", "AWS_SECRET_ACCESS_KEY", "AWS_SESSION_TOKEN", "AWS_REGION",
             "AWS_DEFAULT_REGION", "AZURE_STORAGE_CONNECTION_STRING", "CLOUDBACKUP_PROXY_PASSWORD")

S3 = ("--s3", "https://s3.example.org:9000", "--bucket", "backups")
AZURE = ("--azure", "--container", "backups")
SHOWN_S3 = """Kind: S3
Endpoint: https://s3.example.org:9000
Region: us-east-1
Bucket: backups
Access key: AKIAEXAMPLE
Blocks: in the standard storage class
Addressing: by the path
"""
SHOWN_AZURE = "Kind: Azure Blob Storage\nContainer: backups\n"


class SpecCase(AgentCase):
    def setUp(self):
        super().setUp()
        for name in VARIABLES:
            self.environment.pop(name, None)
        self.file = self.place / "store.spec"

    def spec(self, *arguments, expect=0):
        """Runs a command of specifications; nothing that it prints may hold a secret."""
        done = subprocess.run(self.command(*arguments), env=self.environment, capture_output=True, text=True,
                              check=False, stdin=subprocess.DEVNULL)
        self.assertEqual(done.returncode, expect, f"{arguments}: {done.stdout}{done.stderr}")
        for secret in SECRETS:
            self.assertNotIn(secret, done.stdout + done.stderr)
        return done.stdout, done.stderr

    def write(self, *options, expect=0):
        return self.spec("spec", "write", self.file, *options, expect=expect)

    def expect_failure(self, code, text, *arguments):
        self.assertEqual(self.spec(*arguments, expect=code), ("", f"cloudbackup: {text}\n"))

    def file_with(self, name, text):
        path = self.place / name
        path.write_text(text)
        return path


class Write(SpecCase):
    def test_keys_from_the_environment(self):
        self.environment.update(AWS_ACCESS_KEY_ID="AKIAEXAMPLE", AWS_SECRET_ACCESS_KEY=SECRET)
        self.assertEqual(self.write(*S3), (f"Wrote {self.file}\n{SHOWN_S3}", ""))
        self.assertEqual(self.file.stat().st_mode & 0o777, 0o600)
        self.assertEqual(self.file.read_text(), f"""<S3ConnSpec>
    <BucketAddr ApiEndpoint="https://s3.example.org:9000" Region="us-east-1" BucketName="backups" />
    <Credentials AccessKeyId="AKIAEXAMPLE" SecretAccessKey="{SECRET}" />
    <Options UseIAStorageClassForBlockObjects="false" UseVirtualHostedStyle="false" />
</S3ConnSpec>
""")
        self.assertEqual(self.spec("spec", "show", self.file), (SHOWN_S3, ""))

    def test_keys_from_a_file(self):
        for number, text in enumerate((SECRET, f"{SECRET}\n", f"{SECRET}\r\nand a remark\n")):
            self.file = self.place / str(number)
            self.environment["AWS_SECRET_ACCESS_KEY"] = "another"
            self.write(*S3, "--access-key", "AKIAEXAMPLE", "--secret-file", self.file_with("secret", text))
            self.assertIn(f'SecretAccessKey="{SECRET}"', self.file.read_text())

    def test_everything_at_once(self):
        self.environment.update(AWS_ACCESS_KEY_ID="another", AWS_SECRET_ACCESS_KEY=SECRET,
                                AWS_SESSION_TOKEN="for an hour", AWS_REGION="another")
        self.write(*S3, "--region", "eu-north-1", "--access-key", "AKIAEXAMPLE", "--proxy", "http://proxy:3128",
                   "--proxy-user", "joe", "--proxy-password-file", self.file_with("password", PASSWORD),
                   "--virtual-hosted", "--infrequent-access", "--repository", "golden")
        text = self.file.read_text()
        self.assertIn('SessionToken="for an hour"', text)
        self.assertIn('Password="of the proxy &amp; &lt;all&gt;"', text)
        self.assertEqual(self.spec("spec", "show", self.file)[0], """Kind: S3
Endpoint: https://s3.example.org:9000
Region: eu-north-1
Bucket: backups
Proxy: http://proxy:3128 as joe
Access key: AKIAEXAMPLE, with a session token
Repository: golden
Blocks: in the infrequent-access storage class
Addressing: by the host's name (virtual-hosted)
""")
        self.assertEqual(json.loads(self.spec("--json", "spec", "show", self.file)[0]), {
            "event": "specification", "file": str(self.file), "kind": "s3", "endpoint": "https://s3.example.org:9000",
            "region": "eu-north-1", "bucket": "backups", "virtualHosted": True, "infrequentAccess": True,
            "proxy": {"endpoint": "http://proxy:3128", "user": "joe"}, "accessKey": "AKIAEXAMPLE",
            "sessionToken": True, "repository": "golden"})

    def test_a_role_needs_no_keys(self):
        self.environment.update(AWS_ACCESS_KEY_ID="AKIAEXAMPLE", AWS_SECRET_ACCESS_KEY=SECRET)
        self.write(*S3, "--role", "backup")
        self.assertIn("\nRole: backup from 169.254.169.254\n", self.spec("spec", "show", self.file)[0])
        self.assertNotIn("<Credentials", self.file.read_text())
        self.file = self.place / "other"
        self.write(*S3, "--role", "backup", "--metadata-host", "10.0.0.1")
        shown = json.loads(self.spec("--json", "spec", "show", self.file)[0])
        self.assertEqual(shown["role"], {"name": "backup", "metadataHost": "10.0.0.1"})

    def test_regions_of_the_environment(self):
        self.environment["AWS_DEFAULT_REGION"] = "second"
        self.assertIn("Region: second\n", self.write(*S3, "--role", "r")[0])
        self.environment["AWS_REGION"] = "first"
        self.file = self.place / "other"
        self.assertIn("Region: first\n", self.write(*S3, "--role", "r")[0])

    def test_azure(self):
        self.environment["AZURE_STORAGE_CONNECTION_STRING"] = CONNECTION
        self.assertEqual(self.write(*AZURE), (f"Wrote {self.file}\n{SHOWN_AZURE}", ""))
        self.assertEqual(self.file.stat().st_mode & 0o777, 0o600)
        self.assertIn(f'ConnectionString="{CONNECTION}"', self.file.read_text())
        self.assertEqual(self.spec("spec", "show", self.file), (SHOWN_AZURE, ""))
        self.environment["AZURE_STORAGE_CONNECTION_STRING"] = "nonsense"
        self.file = self.place / "other"
        self.write(*AZURE, "--connection-string-file", self.file_with("c", CONNECTION + "\n"), "--repository", "golden")
        self.assertEqual(json.loads(self.spec("--json", "spec", "show", self.file)[0]), {
            "event": "specification", "file": str(self.file), "kind": "azure", "container": "backups",
            "repository": "golden"})

    def test_a_file_is_never_replaced(self):
        self.file.write_text("mine")
        _, error = self.write(*S3, "--role", "r", expect=1)
        self.assertEqual(error, f"cloudbackup: Cannot write the connection specification '{self.file}': "
                                f"Cannot open for writing '{self.file}': File exists\n")
        self.assertEqual(self.file.read_text(), "mine")

    def test_json_and_quiet(self):
        self.assertEqual(json.loads(self.write(*S3, "--role", "r", "--json")[0])["kind"], "s3")
        self.file = self.place / "other"
        self.assertEqual(self.write(*S3, "--role", "r", "-q"), ("", ""))
        self.assertEqual(self.spec("-q", "spec", "show", self.file), ("", ""))


class Refusals(SpecCase):
    def refuse(self, text, *options, code=2):
        self.expect_failure(code, text, "spec", "write", self.file, *options)
        self.assertFalse(self.file.exists())

    def test_missing_secrets_say_where_they_come_from(self):
        self.refuse("The access key's ID is missing: it comes from --access-key ID or from AWS_ACCESS_KEY_ID", *S3)
        self.environment["AWS_ACCESS_KEY_ID"] = "AKIAEXAMPLE"
        self.refuse("The secret access key is missing: it comes from --secret-file FILE, from AWS_SECRET_ACCESS_KEY, "
                    "or is asked for on a terminal", *S3)
        self.refuse("The proxy's password is missing: it comes from --proxy-password-file FILE, from "
                    "CLOUDBACKUP_PROXY_PASSWORD, or is asked for on a terminal",
                    *S3, "--role", "r", "--proxy", "http://proxy:3128", "--proxy-user", "joe")
        self.refuse("The connection string is missing: it comes from --connection-string-file FILE, from "
                    "AZURE_STORAGE_CONNECTION_STRING, or is asked for on a terminal", *AZURE)

    def test_json_tells_of_failures_too(self):
        out, _ = self.write(*AZURE, "--json", expect=2)
        self.assertEqual(json.loads(out)["event"], "failure")

    def test_files_of_secrets_that_have_none(self):
        missing = self.place / "missing"
        keys = (*S3, "--access-key", "AKIAEXAMPLE", "--secret-file")
        start = f"Cannot read the secret access key from '{missing}': "
        self.refuse(f"{start}Cannot open '{missing}': No such file or directory", *keys, missing, code=1)
        missing.write_text(f"\n{SECRET}\n")
        self.refuse(f"{start}the first line is empty", *keys, missing, code=1)
        missing.write_text(SECRET * 10000)
        self.refuse(f"{start}the first line is longer than 65536 bytes", *keys, missing, code=1)

    def test_a_connection_string_that_is_none(self):
        self.environment["AZURE_STORAGE_CONNECTION_STRING"] = f"AccountName=backups;{SECRET}"
        self.refuse("Connection string: setting 2 is not written 'Name=Value'", *AZURE)

    def test_options_that_do_not_fit(self):
        see = " (see 'cloudbackup spec write --help')"
        self.refuse("The kind of store is missing: --s3 ENDPOINT or --azure")
        self.refuse("--s3 requires --bucket" + see, "--s3", "https://h")
        self.refuse("--azure requires --container" + see, "--azure")
        self.refuse("--bucket requires --s3" + see, "--bucket", "b")
        self.refuse("--container requires --azure" + see, *S3, "--container", "c")
        self.refuse("--proxy-user requires --proxy" + see, *S3, "--proxy-user", "joe")
        self.refuse("--metadata-host requires --role" + see, *S3, "--metadata-host", "h")
        self.refuse("--access-key excludes --role" + see, *S3, "--role", "r", "--access-key", "a")
        self.refuse("--bucket: it is empty" + see, "--s3", "https://h", "--bucket", "")
        self.write(*S3, *AZURE, expect=2)
        self.spec("spec", expect=2)
        self.spec("spec", "write", expect=2)
        self.spec("spec", "show", expect=2)

    def test_addresses_hold_no_secrets(self):
        see = " (see 'cloudbackup spec write --help')"
        for option in ("--s3", "--proxy"):
            options = ("--bucket", "b") if option == "--s3" else (*S3, "--role", "r")
            self.refuse(f"{option}: an endpoint is a host and perhaps a port, nothing else{see}", *options, option,
                        f"https://joe:{SECRET.replace('/', '')}@host")
            self.refuse(f"{option}: an endpoint is written 'https://host[:port]'{see}", *options, option, "host")
        self.refuse(f"--s3: an endpoint has no path; a bucket has --bucket{see}", "--bucket", "b", "--s3", "http://h/b")

    def test_secrets_are_no_options(self):
        for option in ("--secret-key", "--secret-access-key", "--session-token", "--proxy-password",
                       "--connection-string"):
            _, error = self.write(*S3, f"{option}=x", expect=2)
            self.assertIn(f"'{option}' is no option of 'cloudbackup spec write'", error)


class Asked(SpecCase):
    """A person at the terminal is asked for what is missing."""

    def start(self, *options):
        return Terminal(self.command("spec", "write", self.file, *options), self.environment)

    def expect_secret_is_unseen(self, terminal):
        command = pathlib.Path(f"/proc/{terminal.process.pid}/cmdline").read_bytes().decode()
        self.assertIn("write", command)
        for secret in SECRETS:
            self.assertNotIn(secret, command)
            self.assertNotIn(secret, terminal.shown)

    def test_for_each_secret_in_its_turn(self):
        terminal = self.start(*S3, "--access-key", "AKIAEXAMPLE", "--proxy", "http://proxy:3128", "--proxy-user", "joe")
        terminal.wait_for("Enter the secret access key: ")
        self.assertFalse(terminal.echoes())
        terminal.type(SECRET + "\n")
        terminal.wait_for("Enter the proxy's password: ")
        self.assertFalse(terminal.echoes())
        self.expect_secret_is_unseen(terminal)
        terminal.type(PASSWORD + "\n")
        code, shown = terminal.end()
        self.assertEqual(code, 0, shown)
        self.assertTrue(shown.startswith("Enter the secret access key: \nEnter the proxy's password: \nWrote "), shown)
        for secret in SECRETS:
            self.assertNotIn(secret, shown)
        text = self.file.read_text()
        self.assertIn(f'SecretAccessKey="{SECRET}"', text)
        self.assertIn('Password="of the proxy &amp; &lt;all&gt;"', text)

    def test_for_a_connection_string(self):
        terminal = self.start(*AZURE)
        terminal.wait_for("Enter the connection string: ")
        terminal.type(CONNECTION + "\n")
        code, shown = terminal.end()
        self.assertEqual((code, shown), (0, f"Enter the connection string: \nWrote {self.file}\n{SHOWN_AZURE}"))
        self.assertIn(f'ConnectionString="{CONNECTION}"', self.file.read_text())

    def test_not_for_what_is_known(self):
        self.environment.update(AWS_ACCESS_KEY_ID="AKIAEXAMPLE", AWS_SECRET_ACCESS_KEY=SECRET)
        code, shown = self.start(*S3).end()
        self.assertEqual((code, shown), (0, f"Wrote {self.file}\n{SHOWN_S3}"))

    def test_nothing_entered_is_missing(self):
        for typed in ("\n", "\x04"):
            terminal = self.start(*AZURE)
            terminal.wait_for(": ")
            terminal.type(typed)
            code, shown = terminal.end()
            self.assertEqual(code, 2, shown)
            self.assertIn("The connection string is missing", shown)
            self.assertFalse(self.file.exists())

    def test_a_failure_restores_the_terminal(self):
        terminal = self.start(*AZURE)
        terminal.wait_for(": ")
        terminal.type("nonsense\n")
        code, shown = terminal.end()
        self.assertEqual(code, 2, shown)
        self.assertNotIn("nonsense", shown)

    def test_signals_restore_the_terminal(self):
        for cause, number in (("\x03", signal.SIGINT), ("\x1c", signal.SIGQUIT), (None, signal.SIGTERM),
                              (None, signal.SIGHUP)):
            terminal = self.start(*AZURE)
            terminal.wait_for(": ")
            terminal.type("begun")
            if cause:
                terminal.type(cause)
            else:
                terminal.process.send_signal(number)
            code, shown = terminal.end()
            self.assertEqual(code, -number, shown)
            self.assertNotIn("begun", shown)
            self.assertFalse(self.file.exists())


class Store(http.server.BaseHTTPRequestHandler):
    """A store that answers every question with what the server has been told."""

    def do_GET(self):
        status, body = self.server.answer
        self.send_response(status)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def log_message(self, *arguments):
        pass


LISTING = b"""<?xml version="1.0" encoding="UTF-8"?>
<ListBucketResult xmlns="http://s3.amazonaws.com/doc/2006-03-01/"><Name>backups</Name><Prefix></Prefix>
<KeyCount>0</KeyCount><MaxKeys>1000</MaxKeys><IsTruncated>false</IsTruncated></ListBucketResult>"""
DENIED = b"""<?xml version="1.0" encoding="UTF-8"?><Error><Code>AccessDenied</Code><Message>No</Message></Error>"""


class Check(SpecCase):
    def setUp(self):
        super().setUp()
        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Store)
        self.addCleanup(self.server.server_close)
        self.addCleanup(self.server.shutdown)
        threading.Thread(target=self.server.serve_forever, daemon=True).start()
        self.environment.update(AWS_ACCESS_KEY_ID="AKIAEXAMPLE", AWS_SECRET_ACCESS_KEY=SECRET)
        self.write("--s3", f"http://127.0.0.1:{self.server.server_port}", "--bucket", "backups")

    def test_a_store_that_answers(self):
        self.server.answer = (200, LISTING)
        self.assertEqual(self.spec("spec", "check", self.file), ("The store answers\n", ""))
        self.assertEqual(self.spec("-q", "spec", "check", self.file), ("", ""))
        self.assertEqual(json.loads(self.spec("--json", "spec", "check", self.file)[0]),
                         {"event": "answer", "file": str(self.file)})

    def test_a_store_that_refuses(self):
        self.server.answer = (403, DENIED)
        out, error = self.spec("spec", "check", self.file, expect=1)
        self.assertEqual(out, "")
        self.assertIn("HTTP 403 AccessDenied", error)

    def test_a_file_that_is_none(self):
        missing = self.place / "missing"
        for action in ("show", "check"):
            start = f"Cannot read the connection specification '{missing}': "
            missing.unlink(missing_ok=True)
            self.expect_failure(1, f"{start}Cannot open '{missing}': No such file or directory", "spec", action, missing)
            missing.write_text(f'<Other SecretAccessKey="{SECRET}"/>')
            self.expect_failure(1, f"{start}It is no connection specification: the root element is neither "
                                   "'S3ConnSpec' nor 'AzureConnectionSpec'", "spec", action, missing)

    def test_no_repository_is_asked_for_nor_any_state(self):
        self.environment.pop("HOME", None)
        self.environment.pop("CLOUDBACKUP_STATE_DIR", None)
        self.spec("spec", "show", self.file)
        self.assertFalse((self.place / "state").exists())


if __name__ == "__main__":
    main()
