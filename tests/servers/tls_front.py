"""TLS before a plain store, with a certificate that an authority of one's own has signed."""
import pathlib
import socket
import ssl
import subprocess
import threading


def make_certificate(folder: pathlib.Path):
    """For 127.0.0.1; the certificate is its own authority. Returns the paths of it and of its key."""
    certificate, key = str(folder / "certificate.pem"), str(folder / "key.pem")
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes",
                    "-subj", "/CN=store", "-addext", "subjectAltName=IP:127.0.0.1", "-days", "2",
                    "-keyout", key, "-out", certificate], check=True, capture_output=True)
    return certificate, key


def carry(one, other):
    """Both ways, until both have ended."""
    back = threading.Thread(target=copy, args=(other, one), daemon=True)
    back.start()
    copy(one, other)
    back.join()


def copy(source, target):
    try:
        while data := source.recv(1 << 16):
            target.sendall(data)
        target.shutdown(socket.SHUT_WR)
    except OSError:
        pass


class Listener:
    """Takes connections on a free port of loopback, each in a thread of its own, until it is stopped."""

    def __init__(self):
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        threading.Thread(target=self.serve, daemon=True).start()

    def serve(self):
        while True:
            try:
                taken = self.listener.accept()[0]
            except OSError:
                return  # stopped
            threading.Thread(target=self.take_all, args=(taken,), daemon=True).start()

    def take_all(self, taken):
        try:
            with taken:
                self.take(taken)
        except OSError:
            pass  # whoever goes away

    def take(self, taken):
        raise NotImplementedError

    def stop(self):
        self.listener.close()


class TlsFront(Listener):
    """Carries the bytes of TLS connections to a plain port."""

    def __init__(self, certificate, key, target):
        self.target = target
        self.context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        self.context.load_cert_chain(certificate, key)
        super().__init__()

    def take(self, taken):
        with self.context.wrap_socket(taken, server_side=True) as client, \
                socket.create_connection(("127.0.0.1", self.target)) as server:
            carry(client, server)
