"""An Azurite blob server of the test's own, on loopback: an account with a random key, data in a folder of its own."""
import base64
import datetime
import hashlib
import hmac
import os
import pathlib
import shutil
import subprocess
import tempfile
import urllib.parse

from network import free_ports, wait_for_port


def program():
    """Where `npm install --prefix DIR azurite` put it: DIR is told in CLOUDBACKUP_AZURITE, or is build/servers."""
    root = os.environ.get("CLOUDBACKUP_AZURITE")
    folder = pathlib.Path(root) if root else pathlib.Path(__file__).resolve().parents[2] / "build" / "servers"
    for modules in (folder / "node_modules" / "azurite", folder):
        main = modules / "dist" / "src" / "blob" / "main.js"
        if main.is_file():
            return main
    raise RuntimeError(f"Azurite is not in {folder}: npm install --prefix {folder} azurite@3.35.0")


class Azurite:
    account = "testaccount"
    container = "conformance"  # what the signature holds for; the tests make it

    def __init__(self):
        self.root = pathlib.Path(tempfile.mkdtemp(prefix="cloudbackup-azurite-"))
        self.key = base64.b64encode(os.urandom(64)).decode()
        self.port = free_ports(1)[0]
        self.process = None
        try:
            self.start()
            wait_for_port(self.port, 60)
        except BaseException:
            self.stop()
            raise

    @property
    def environment(self):
        """What a program beside the server is told."""
        endpoint = f"BlobEndpoint=http://127.0.0.1:{self.port}/{self.account};"
        return {"AZURE_TEST_CONNECTION": f"{endpoint}AccountName={self.account};AccountKey={self.key}",
                "AZURE_TEST_SAS_CONNECTION": f"{endpoint}SharedAccessSignature={self.container_signature()}",
                "AZURE_TEST_ACCOUNT_SAS_CONNECTION": f"{endpoint}SharedAccessSignature={self.account_signature()}"}

    @staticmethod
    def day():
        """From an hour ago until tomorrow."""
        now = datetime.datetime.now(datetime.timezone.utc)
        return tuple((now + datetime.timedelta(hours=hours)).strftime("%Y-%m-%dT%H:%M:%SZ") for hours in (-1, 24))

    def container_signature(self):
        """A shared access signature for the container of the tests, for a day."""
        start, end = self.day()
        fields = {"sp": "racwdl", "st": start, "se": end, "sv": "2019-12-12", "sr": "c"}
        return self.signed(fields, [fields["sp"], start, end, f"/blob/{self.account}/{self.container}", "", "", "",
                                    fields["sv"], fields["sr"], "", "", "", "", "", ""])

    def account_signature(self):
        """One for all containers of the account, and all in them."""
        start, end = self.day()
        fields = {"sv": "2019-12-12", "ss": "b", "srt": "sco", "sp": "rwdlac", "st": start, "se": end}
        return self.signed(fields, [self.account, fields["sp"], fields["ss"], fields["srt"], start, end, "", "",
                                    fields["sv"], ""])

    def signed(self, fields, lines):
        digest = hmac.new(base64.b64decode(self.key), "\n".join(lines).encode(), hashlib.sha256).digest()
        # Not the last one, so that what hides it must find its end.
        return urllib.parse.urlencode({"sig": base64.b64encode(digest).decode(), **fields})

    def start(self):
        environment = dict(os.environ, AZURITE_ACCOUNTS=f"{self.account}:{self.key}")
        self.process = subprocess.Popen(
            ["node", str(program()), "--blobHost", "127.0.0.1", "--blobPort", str(self.port), "--location",
             str(self.root), "--silent", "--disableTelemetry"],
            env=environment, cwd=self.root, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL)

    def stop(self):
        if self.process is not None:
            self.process.kill()
            self.process.wait()
        shutil.rmtree(self.root, ignore_errors=True)
