"""Waits for what a program does in a folder: the n-th change of it, told by the system, without any polling."""
import ctypes
import os
import select
import struct

CREATED, DELETED, MOVED_TO, WRITTEN, IS_FOLDER = 0x100, 0x200, 0x80, 0x8, 0x40000000
EVENT = struct.Struct("iIII")

libc = ctypes.CDLL(None, use_errno=True)


class StoreWatch:
    """Counts files and folders made, moved in, written or deleted anywhere below a folder. To be closed."""

    def __init__(self, root):
        self.fd = libc.inotify_init1(os.O_CLOEXEC)
        if self.fd < 0:
            raise OSError(ctypes.get_errno(), "inotify_init1")
        self.folders = {}
        self.add(os.fsencode(root))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        os.close(self.fd)

    def add(self, root):
        for folder, _, _ in os.walk(root):
            watch = libc.inotify_add_watch(self.fd, folder, CREATED | DELETED | MOVED_TO | WRITTEN)
            if watch >= 0:  # else it is gone again
                self.folders[watch] = folder

    def wait(self, process, changes):
        """Until so many changes have been made, or the process has ended: then it is False."""
        ended = os.pidfd_open(process.pid)
        try:
            while changes > 0:
                ready = select.select([self.fd, ended], [], [])[0]
                if self.fd not in ready:
                    return False
                changes -= self.take()
            return process.poll() is None
        finally:
            os.close(ended)

    def take(self):
        """How many changes have been told since; follows new folders."""
        data, at, count = os.read(self.fd, 65536), 0, 0
        while at < len(data):
            watch, mask, _, length = EVENT.unpack_from(data, at)
            name = data[at + EVENT.size:at + EVENT.size + length].rstrip(b"\0")
            at += EVENT.size + length
            if mask & (CREATED | DELETED | MOVED_TO | WRITTEN):
                count += 1
            if mask & CREATED and mask & IS_FOLDER and watch in self.folders:
                self.add(os.path.join(self.folders[watch], name))
        return count
