"""What a store refuses while the agent is at work: a wrong clock, keys that are taken away. On a Ceph gateway."""
import datetime
import http.server
import json
import os
import subprocess
import threading
import time
import unittest

from fault_proxy import Fault, FaultProxy
from store import StoreCase, port
from agent import describe, fill

MIB = 1 << 20


def administer(*command):
    """Tells the gateway; what it says."""
    done = subprocess.run(["radosgw-admin", "-c", os.environ["CEPH_TEST_CONFIGURATION"], *command], text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
    if done.returncode != 0:
        raise RuntimeError(f"radosgw-admin {command} gave {done.returncode}: {done.stdout}")


class MetadataService:
    """Hands out the credentials of the role "backup", as a cloud does to its machines: by a token."""

    def __init__(self, key, secret):
        self.keys = [(key, secret)]  # the first are handed out once each, the last from then on
        self.given = []
        service = self

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_PUT(self):
                wanted = self.path == "/latest/api/token" and "x-aws-ec2-metadata-token-ttl-seconds" in self.headers
                self.answer(200 if wanted else 404, b"a-token")

            def do_GET(self):
                if self.headers.get("x-aws-ec2-metadata-token") != "a-token":
                    self.answer(401, b"")
                elif self.path == "/latest/meta-data/iam/security-credentials/backup":
                    self.answer(200, service.document())
                else:
                    self.answer(404, b"")

            def answer(self, status, body):
                self.send_response(status)
                self.send_header("Content-Length", str(len(body)))
                self.end_headers()
                self.wfile.write(body)

            def log_message(self, *_):
                pass

        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        self.host = f"127.0.0.1:{self.server.server_address[1]}"
        threading.Thread(target=self.server.serve_forever, daemon=True).start()

    def document(self):
        key, secret = self.keys.pop(0) if len(self.keys) > 1 else self.keys[0]
        self.given.append(key)
        # They are to last for hours: nothing but the refusal tells that they do not.
        expiry = datetime.datetime.now(datetime.timezone.utc) + datetime.timedelta(hours=6)
        return json.dumps({"Code": "Success", "AccessKeyId": key, "SecretAccessKey": secret, "Token": "",
                           "Expiration": expiry.strftime("%Y-%m-%dT%H:%M:%SZ")}).encode()

    def stop(self):
        self.server.shutdown()
        self.server.server_close()


class Refusals(StoreCase):
    def setUp(self):
        super().setUp()
        self.user = "user-" + self.bucket
        self.first, self.second = ((f"KEY{number}{self.bucket}".upper(), f"secret/{number}+{self.bucket}")
                                   for number in (1, 2))
        administer("user", "create", f"--uid={self.user}", "--display-name=test", f"--access-key={self.first[0]}",
                   f"--secret={self.first[1]}")
        self.use(self.first)
        self.proxy = FaultProxy(port(), lambda random: Fault())
        self.addCleanup(self.proxy.stop)
        self.environment["CLOUDBACKUP_REPO"] = self.location(self.proxy.port)

    def use(self, pair):
        self.environment["AWS_ACCESS_KEY_ID"], self.environment["AWS_SECRET_ACCESS_KEY"] = pair

    def add(self, pair):
        administer("key", "create", f"--uid={self.user}", "--key-type=s3", f"--access-key={pair[0]}",
                   f"--secret={pair[1]}")

    def remove(self, pair):
        administer("key", "rm", f"--uid={self.user}", "--key-type=s3", f"--access-key={pair[0]}")

    def large_file(self):
        (self.source / "large").write_bytes(os.urandom(100 * MIB))

    def ids(self):
        listed = [json.loads(line) for line in self.run_agent("--json", "checkpoints")[0].splitlines()]
        return [line["id"] for line in listed if line["event"] == "checkpoint"]

    def run_at(self, offset, *arguments):
        """Runs the program with the clock off by so much."""
        environment = dict(self.environment, FAKETIME_DONT_FAKE_MONOTONIC="1")  # only the time of day is wrong
        return subprocess.run(["faketime", "-f", offset, *self.command(*arguments)], env=environment,
                              capture_output=True, text=True, check=False, timeout=120)

    def test_a_wrong_clock_is_told_with_its_error(self):
        fill(self.source, seed=1, files=20)
        self.run_agent("init")
        self.run_agent("backup", self.source)
        (self.source / "more").write_bytes(b"more")
        for offset, words in (("+3h", "3 h 0 min ahead of"), ("-3h", "3 h 0 min behind"), ("+3d", "3 days ahead of")):
            begin = time.monotonic()
            done = self.run_at(offset, "backup", self.source)
            self.assertLess(time.monotonic() - begin, 30)
            self.assertEqual(done.returncode, 1, done.stdout + done.stderr)
            self.assertRegex(done.stderr, rf"RequestTimeTooSkewed.*\(this machine's clock is {words} the service's: set it\)")
            self.assertEqual(len(done.stderr.splitlines()), 1, done.stderr)
        # As much as the service bears is borne.
        self.assertEqual(self.run_at("+5m", "checkpoints").returncode, 0)
        self.run_agent("backup", self.source)
        self.assertEqual(self.ids(), [1, 2])
        self.assertEqual(describe(self.restore("latest")), describe(self.source))

    def test_a_roles_credentials_are_renewed_when_they_are_refused(self):
        service = MetadataService(*self.first)
        self.addCleanup(service.stop)
        spec = self.place / "spec"
        self.run_agent("spec", "write", spec, "--s3", f"http://127.0.0.1:{self.proxy.port}", "--bucket", self.bucket,
                       "--region", "us-east-1", "--role", "backup", "--metadata-host", service.host)
        self.environment["CLOUDBACKUP_REPO"] = f"spec:{spec}"
        for name in ("AWS_ACCESS_KEY_ID", "AWS_SECRET_ACCESS_KEY"):
            del self.environment[name]
        self.run_agent("init")
        self.large_file()

        def rotate():
            self.remove(self.first)
            self.add(self.second)
            # The cloud takes a moment: at first it hands out again what is not valid any more.
            service.keys = [self.first, self.second]

        self.proxy.when_passed(30 * MIB, rotate)
        service.given.clear()
        self.run_agent("backup", self.source)
        self.assertEqual(service.given[0], self.first[0])
        self.assertEqual(service.given[-1], self.second[0])
        self.assertEqual(service.given.count(self.second[0]), 1)
        self.assertEqual(service.keys, [self.second])
        self.assertEqual(describe(self.restore("latest")), describe(self.source))

    def test_a_role_that_lost_its_rights_is_told(self):
        service = MetadataService(*self.first)
        self.addCleanup(service.stop)
        spec = self.place / "spec"
        self.run_agent("spec", "write", spec, "--s3", f"http://127.0.0.1:{self.proxy.port}", "--bucket", self.bucket,
                       "--region", "us-east-1", "--role", "backup", "--metadata-host", service.host)
        self.environment["CLOUDBACKUP_REPO"] = f"spec:{spec}"
        self.run_agent("init")
        self.remove(self.first)
        begin = time.monotonic()
        failure = self.run_agent("checkpoints", expect=1)[1]
        self.assertLess(time.monotonic() - begin, 180)
        self.assertRegex(failure.splitlines()[-1], r"InvalidAccessKeyId.*\(after 8 attempts")

    def test_keys_that_are_removed_end_the_run_with_one_error(self):
        fill(self.source, seed=1, files=20)
        self.run_agent("init")
        self.run_agent("backup", self.source)
        before = describe(self.source)
        self.large_file()
        self.proxy.when_passed(30 * MIB, lambda: self.remove(self.first))
        begin = time.monotonic()
        failure = self.run_agent("backup", self.source, expect=1)[1]
        self.assertLess(time.monotonic() - begin, 60)
        self.assertEqual(len(failure.splitlines()), 1, failure)
        self.assertRegex(failure, r"HTTP 403 InvalidAccessKeyId.*\(the service does not know this access key\)")
        self.assertNotIn(self.first[1], failure)
        self.add(self.second)
        self.use(self.second)
        self.assertEqual(self.ids(), [1])
        self.assertEqual(describe(self.restore(1)), before)
        self.run_agent("backup", self.source)
        self.assertEqual(describe(self.restore("latest")), describe(self.source))


if __name__ == "__main__":
    unittest.main(argv=["refusals_test"])
