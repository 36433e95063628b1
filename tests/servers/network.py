"""Ports of loopback."""
import socket
import time


def free_ports(count):
    """Ports that nobody listened on a moment ago."""
    sockets = [socket.socket() for _ in range(count)]
    for item in sockets:
        item.bind(("127.0.0.1", 0))
    ports = [item.getsockname()[1] for item in sockets]
    for item in sockets:
        item.close()
    return ports


def wait_for_port(port, seconds):
    """Waits until somebody listens; a server that does not come up is a failure."""
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        try:
            socket.create_connection(("127.0.0.1", port), timeout=1).close()
            return
        except OSError:
            time.sleep(0.05)
    raise RuntimeError(f"nobody listens on port {port} after {seconds} s")
