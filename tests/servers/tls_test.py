"""A store behind TLS whose certificate an authority of the user's own has signed."""
import os
import socket
import ssl
import subprocess
import threading
import unittest

from store import StoreCase, port
from agent import describe, fill


class TlsFront:
    """Takes TLS connections on a free port of loopback, and carries their bytes to a plain port."""

    def __init__(self, certificate, key, target):
        self.target = target
        self.context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        self.context.load_cert_chain(certificate, key)
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        threading.Thread(target=self.serve, daemon=True).start()

    def serve(self):
        while True:
            try:
                taken = self.listener.accept()[0]
            except OSError:
                return  # stopped
            threading.Thread(target=self.carry, args=(taken,), daemon=True).start()

    def carry(self, taken):
        try:
            with self.context.wrap_socket(taken, server_side=True) as client, \
                    socket.create_connection(("127.0.0.1", self.target)) as server:
                back = threading.Thread(target=self.copy, args=(server, client), daemon=True)
                back.start()
                self.copy(client, server)
                back.join()
        except OSError:
            pass  # a client that does not trust the certificate goes away

    @staticmethod
    def copy(source, target):
        try:
            while data := source.recv(1 << 16):
                target.sendall(data)
            target.shutdown(socket.SHUT_WR)
        except OSError:
            pass

    def stop(self):
        self.listener.close()


class Tls(StoreCase):
    def setUp(self):
        super().setUp()
        self.certificate = str(self.place / "certificate.pem")
        key = str(self.place / "key.pem")
        subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes",
                        "-subj", "/CN=store", "-addext", "subjectAltName=IP:127.0.0.1", "-days", "2",
                        "-keyout", key, "-out", self.certificate], check=True, capture_output=True)
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
