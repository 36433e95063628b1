"""The conformance suite in a bucket that a user has already filled."""
import json
import unittest

from store import StoreCase
from agent import describe, fill


class CheckClient(StoreCase):
    def test_all_holds_but_what_buckets_cannot_and_nothing_else_is_touched(self):
        fill(self.source, seed=1, files=20)
        self.run_agent("init")
        self.run_agent("backup", self.source)
        events = [json.loads(line) for line in
                  self.run_agent("--json", "check-client", "--rounds", "1")[0].splitlines()]
        self.assertEqual([event for event in events if event.get("outcome") == "fails"], [])
        self.assertEqual({event["deviation"] for event in events if event.get("outcome") == "deviates"},
                         {"objectAndFolderShareAPath"})
        self.assertGreater(events[-1]["hold"], 100)
        self.assertEqual(describe(self.restore("latest")), describe(self.source))
        self.run_agent("check", "--read-data")


if __name__ == "__main__":
    unittest.main(argv=["check_client_test"])
