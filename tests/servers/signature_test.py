"""The agent on Azure Blob Storage by an account's shared access signature, without the account's key."""
import os
import unittest

from store import StoreCase
from agent import describe, fill


class BySignature(StoreCase):
    def setUp(self):
        super().setUp()
        self.environment["AZURE_STORAGE_CONNECTION_STRING"] = os.environ["AZURE_TEST_ACCOUNT_SAS_CONNECTION"]

    def round_trip(self):
        fill(self.source, seed=1)
        self.run_agent("init")
        self.run_agent("backup", self.source)
        fill(self.source, seed=2, files=20)
        self.run_agent("backup", self.source)
        self.assertEqual(describe(self.restore("latest")), describe(self.source))

    def test_what_was_backed_up_comes_back(self):
        self.round_trip()

    def test_by_a_specification(self):
        spec = self.place / "spec"
        self.run_agent("spec", "write", spec, "--azure", "--container", self.bucket)
        del self.environment["AZURE_STORAGE_CONNECTION_STRING"]
        self.environment["CLOUDBACKUP_REPO"] = f"spec:{spec}"
        self.round_trip()


if __name__ == "__main__":
    unittest.main(argv=["signature_test"])
