#!/usr/bin/env python3
"""Made the agent's golden repository: make_agent_golden.py PROGRAM FOLDER (as root, on a file system with attributes).

FOLDER must not be there: a repository that was made is never made anew. It gets the client's id, the repository, and
what each checkpoint restores. Times, inodes and compressed bytes differ from run to run; nothing compares them.
"""
import os
import pathlib
import subprocess
import sys
import tempfile

import golden_tree

CLIENT_ID = "c1000000-0000-4000-8000-0000000000a6"
SOURCE = "/srv/golden"
HOST = "golden"


def make(program, folder):
    folder.mkdir()
    (folder / "client-id").write_text(CLIENT_ID + "\n")
    with tempfile.TemporaryDirectory() as state:
        (pathlib.Path(state) / "client-id").write_text(CLIENT_ID + "\n")

        def run(*arguments):
            subprocess.run([program, "--repo", f"dir:{folder}/repository", "--state-dir", state, *arguments], check=True)

        run("init")
        for number, step in enumerate((golden_tree.make, golden_tree.change), 1):
            step(SOURCE)
            run("backup", SOURCE)
            lines = golden_tree.describe(SOURCE)
            (folder / f"checkpoint-{number}").write_text("\n".join(lines) + "\n", errors="strict")
    subprocess.run(["rm", "-r", SOURCE], check=True)


if __name__ == "__main__":
    if os.uname().nodename != HOST:
        # In a name space of its own this machine has the name that the repository shall tell.
        command = f"hostname {HOST} && exec \"$@\""
        os.execvp("unshare", ["unshare", "--uts", "sh", "-c", command, "sh", sys.executable, *sys.argv])
    make(os.path.abspath(sys.argv[1]), pathlib.Path(sys.argv[2]).absolute())
