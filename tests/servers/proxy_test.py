"""A store that is reached through a proxy alone, which wants to know who one is."""
import base64
import socket
import threading
import unittest
import urllib.parse

from store import StoreCase, port
from tls_front import Listener, TlsFront, carry, make_certificate
from agent import describe, fill

DENIED = b"HTTP/1.1 407 Proxy Authentication Required\r\n" \
         b"Proxy-Authenticate: Basic realm=\"proxy\"\r\nContent-Length: 0\r\n\r\n"


class Proxy(Listener):
    """Tunnels for CONNECT, and passes on what comes in clear; both only with the right name and password."""

    def __init__(self, user, password):
        self.right = "Basic " + base64.b64encode(f"{user}:{password}".encode()).decode()
        self.lock = threading.Lock()
        self.tunnels = 0
        self.passed = 0
        self.denied = 0
        super().__init__()

    def count(self, name):
        with self.lock:
            setattr(self, name, getattr(self, name) + 1)

    def take(self, taken):
        data = b""
        while True:
            while b"\r\n\r\n" not in data:
                piece = taken.recv(1 << 16)
                if not piece:
                    return
                data += piece
            head, rest = data.split(b"\r\n\r\n", 1)
            lines = head.decode("latin-1").split("\r\n")
            headers = {name.lower(): value.strip() for name, value in (line.split(":", 1) for line in lines[1:])}
            if headers.get("proxy-authorization") == self.right:
                break
            self.count("denied")
            taken.sendall(DENIED)
            if int(headers.get("content-length", 0)) != 0 or "expect" in headers:
                return
            data = rest
        method, target, version = lines[0].split(" ")
        if method == "CONNECT":
            host, number = target.rsplit(":", 1)
            with socket.create_connection((host, int(number))) as server:
                self.count("tunnels")
                taken.sendall(b"HTTP/1.1 200 Connection established\r\n\r\n" + rest)
                carry(taken, server)
            return
        url = urllib.parse.urlsplit(target)
        with socket.create_connection((url.hostname, url.port)) as server:
            self.count("passed")
            # One request a connection: the next might be for somebody else.
            kept = [line for line in lines[1:] if not line.lower().startswith(("proxy-", "connection:"))]
            path = url.path + ("?" + url.query if url.query else "")
            first = "\r\n".join([f"{method} {path} {version}", *kept, "Connection: close"])
            server.sendall(first.encode("latin-1") + b"\r\n\r\n" + rest)
            carry(taken, server)


class ThroughAProxy(StoreCase):
    def setUp(self):
        super().setUp()
        self.proxy = Proxy("anna", "proxy secret")
        self.addCleanup(self.proxy.stop)
        self.certificate, key = make_certificate(self.place)
        self.front = TlsFront(self.certificate, key, port())
        self.addCleanup(self.front.stop)

    def use_spec(self, address, password):
        spec = self.place / "spec"
        spec.unlink(missing_ok=True)
        self.environment["CLOUDBACKUP_PROXY_PASSWORD"] = password
        self.run_agent("spec", "write", spec, "--s3", address, "--bucket", self.bucket,
                       "--proxy", f"http://127.0.0.1:{self.proxy.port}", "--proxy-user", "anna")
        del self.environment["CLOUDBACKUP_PROXY_PASSWORD"]
        self.environment["CLOUDBACKUP_REPO"] = f"spec:{spec}"

    def back_up_and_restore(self):
        fill(self.source, seed=1, files=20)
        self.run_agent("init")
        self.run_agent("backup", self.source)
        self.assertEqual(describe(self.restore("latest")), describe(self.source))

    def test_tls_goes_through_a_tunnel(self):
        self.environment["CLOUDBACKUP_CA_FILE"] = self.certificate
        self.use_spec(f"https://127.0.0.1:{self.front.port}", "proxy secret")
        self.back_up_and_restore()
        self.assertGreater(self.proxy.tunnels, 0)
        self.assertEqual(self.proxy.passed, 0)

    def test_the_certificate_is_checked_behind_a_tunnel_too(self):
        self.use_spec(f"https://127.0.0.1:{self.front.port}", "proxy secret")
        self.assertRegex(self.run_agent("init", expect=1)[1], "certificate")
        self.assertGreater(self.proxy.tunnels, 0)

    def test_plain_requests_are_passed_on(self):
        self.use_spec(f"http://127.0.0.1:{port()}", "proxy secret")
        self.back_up_and_restore()
        self.assertGreater(self.proxy.passed, 0)
        self.assertEqual(self.proxy.tunnels, 0)

    def test_a_wrong_password_is_told_in_one_line_without_it(self):
        for address in (f"https://127.0.0.1:{self.front.port}", f"http://127.0.0.1:{port()}"):
            with self.subTest(address):
                self.use_spec(address, "wrong secret")
                failure = self.run_agent("init", expect=1)[1]
                self.assertRegex(failure.splitlines()[-1], "407")
                self.assertRegex(failure.splitlines()[-1], "proxy")
                self.assertNotIn("wrong secret", failure)
        self.assertGreater(self.proxy.denied, 0)
        self.assertEqual(self.proxy.tunnels + self.proxy.passed, 0)


if __name__ == "__main__":
    unittest.main(argv=["proxy_test"])
