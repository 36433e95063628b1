"""A store behind TLS whose certificate an authority of the user's own has signed."""
import os
import unittest

from store import StoreCase, port
from tls_front import TlsFront, make_certificate
from agent import describe, fill


class Tls(StoreCase):
    def setUp(self):
        super().setUp()
        self.certificate, key = make_certificate(self.place)
        front = TlsFront(self.certificate, key, port())
        self.addCleanup(front.stop)
        self.environment["CLOUDBACKUP_REPO"] = f"s3:https://127.0.0.1:{front.port}/{self.bucket}"
        for name in ("AWS_CA_BUNDLE", "CLOUDBACKUP_CA_FILE"):
            self.environment.pop(name, None)

    def test_an_unknown_authority_is_refused_and_a_named_one_is_trusted(self):
        failure = self.run_agent("init", expect=1)[1]
        self.assertEqual(len(failure.splitlines()), 1, failure)
        self.assertRegex(failure, "certificate")
        fill(self.source, seed=1, files=20)
        self.run_agent("--ca-file", self.certificate, "init")
        self.environment["CLOUDBACKUP_CA_FILE"] = self.certificate
        self.run_agent("backup", self.source)
        self.assertEqual(describe(self.restore("latest")), describe(self.source))
        del self.environment["CLOUDBACKUP_CA_FILE"]
        self.environment["AWS_CA_BUNDLE"] = self.certificate
        self.run_agent("check")
        self.environment["CLOUDBACKUP_CA_FILE"] = os.devnull  # the option counts before
        self.run_agent("check", expect=1)


if __name__ == "__main__":
    unittest.main(argv=["tls_test"])
