"""A program on a terminal of its own, as a person meets it who is asked for something."""
import os
import pty
import select
import subprocess
import termios
import time


class Terminal:
    """Starts the command as the foreground of a fresh terminal."""

    def __init__(self, command, environment):
        self.master, self.slave = pty.openpty()
        self.shown = ""
        self.before = termios.tcgetattr(self.slave)
        self.process = subprocess.Popen(command, env=environment, stdin=self.slave, stdout=self.slave,
                                        stderr=self.slave, start_new_session=True, preexec_fn=self._take_terminal)

    @staticmethod
    def _take_terminal():
        import fcntl
        fcntl.ioctl(0, termios.TIOCSCTTY, 0)

    def wait_for(self, text, seconds=60):
        """Reads what the program shows until the text has come."""
        end = time.monotonic() + seconds
        while text not in self.shown:
            ready, _, _ = select.select([self.master], [], [], max(0, end - time.monotonic()))
            if not ready:
                raise AssertionError(f"'{text}' did not come: {self.shown!r}")
            self.shown += os.read(self.master, 4096).decode()

    def type(self, text):
        os.write(self.master, text.encode())

    def echoes(self):
        return termios.tcgetattr(self.slave)[3] & termios.ECHO != 0

    def end(self):
        """Waits for the program's end; its exit code (negative: the signal), and all that was shown."""
        code = self.process.wait(60)
        while select.select([self.master], [], [], 0)[0]:
            self.shown += os.read(self.master, 4096).decode()
        restored = termios.tcgetattr(self.slave) == self.before
        os.close(self.master)
        os.close(self.slave)
        if not restored:
            raise AssertionError("the terminal is not as it was before")
        return code, self.shown.replace("\r\n", "\n")
