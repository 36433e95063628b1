"""What the agent's tests beside a real store share: the store that with_server.py started, told in the environment."""
import os
import pathlib
import re
import sys
import uuid

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "agent"))
from agent import AgentCase  # noqa: E402


def store_variables():
    """What the agent finds in its environment."""
    if "AZURE_TEST_CONNECTION" in os.environ:
        return {"AZURE_STORAGE_CONNECTION_STRING": os.environ["AZURE_TEST_CONNECTION"]}
    return {"AWS_ACCESS_KEY_ID": os.environ["S3_TEST_KEY"], "AWS_SECRET_ACCESS_KEY": os.environ["S3_TEST_SECRET"],
            "AWS_REGION": os.environ["S3_TEST_REGION"]}


def port():
    address = os.environ.get("AZURE_TEST_CONNECTION") or os.environ["S3_TEST_ENDPOINT"]
    return int(re.search(r"127\.0\.0\.1:(\d+)", address).group(1))


class StoreCase(AgentCase):
    """Each test has a bucket, or a container, of its own."""

    def setUp(self):
        super().setUp()
        self.bucket = "b" + uuid.uuid4().hex[:20]
        self.environment.update(store_variables())
        self.environment["CLOUDBACKUP_REPO"] = self.location()

    def location(self, through_port=None):
        if "AZURE_TEST_CONNECTION" in os.environ:
            if through_port is not None:
                self.environment["AZURE_STORAGE_CONNECTION_STRING"] = os.environ["AZURE_TEST_CONNECTION"].replace(
                    f":{port()}/", f":{through_port}/")
            return f"azure:{self.bucket}"
        return f"s3:http://127.0.0.1:{through_port or port()}/{self.bucket}"
