#!/usr/bin/env python3
"""Made the agent's golden repositories: make_agent_golden.py PROGRAM FOLDER [sealed] (as root, on a file system with
attributes).

FOLDER must not be there: a repository that was made is never made anew. It gets the client's id, the repository, and
what each checkpoint restores; a sealed one also its password, with a change of the password and one of the key in its
history, and recovery keys. Times, inodes and stored bytes differ from run to run; nothing compares them.
"""
import os
import pathlib
import subprocess
import sys
import tempfile

import golden_tree

CLIENT_ID = "c1000000-0000-4000-8000-0000000000a6"
SEALED_CLIENT_ID = "c1000000-0000-4000-8000-0000000000a7"
FIRST_PASSWORD = "the first password"
PASSWORD = "the second password, which is golden"
SOURCE = "/srv/golden"
HOST = "golden"


def make(program, folder):
    folder.mkdir()
    (folder / "client-id").write_text(CLIENT_ID + "\n")
    with tempfile.TemporaryDirectory() as state:
        (pathlib.Path(state) / "client-id").write_text(CLIENT_ID + "\n")

        def run(*arguments):
            subprocess.run([program, "--repo", f"dir:{folder}/repository", "--state-dir", state, *arguments], check=True)

        run("init", "--no-encryption")
        for number, step in enumerate((golden_tree.make, golden_tree.change), 1):
            step(SOURCE)
            run("backup", SOURCE)
            lines = golden_tree.describe(SOURCE)
            (folder / f"checkpoint-{number}").write_text("\n".join(lines) + "\n", errors="strict")
    subprocess.run(["rm", "-r", SOURCE], check=True)


def make_sealed(program, folder):
    folder.mkdir()
    (folder / "client-id").write_text(SEALED_CLIENT_ID + "\n")
    (folder / "password").write_text(PASSWORD + "\n")
    environment = dict(os.environ, CLOUDBACKUP_PASSWORD=FIRST_PASSWORD, CLOUDBACKUP_NEW_PASSWORD=PASSWORD,
                       CLOUDBACKUP_KEY_MEMORY="64", CLOUDBACKUP_KEY_PASSES="1")
    with tempfile.TemporaryDirectory() as state:
        (pathlib.Path(state) / "client-id").write_text(SEALED_CLIENT_ID + "\n")

        def run(*arguments):
            subprocess.run([program, "--repo", f"dir:{folder}/repository", "--state-dir", state, *arguments], check=True,
                           env=environment)

        def back_up(number, step):
            step(SOURCE)
            run("backup", SOURCE)
            lines = golden_tree.describe(SOURCE)
            (folder / f"checkpoint-{number}").write_text("\n".join(lines) + "\n", errors="strict")

        run("init")
        back_up(1, golden_tree.make)
        run("key", "change", "--hint", "the golden one")
        environment["CLOUDBACKUP_PASSWORD"] = PASSWORD
        back_up(2, golden_tree.change)
        run("key", "rotate", "--hint", "the golden one, again")
        back_up(3, golden_tree.change_again)
        run("key", "export", f"{folder}/recovery-keys")
    subprocess.run(["rm", "-r", SOURCE], check=True)


if __name__ == "__main__":
    if os.uname().nodename != HOST:
        # In a name space of its own this machine has the name that the repository shall tell.
        command = f"hostname {HOST} && exec \"$@\""
        os.execvp("unshare", ["unshare", "--uts", "sh", "-c", command, "sh", sys.executable, *sys.argv])
    recipe = make_sealed if sys.argv[3:] == ["sealed"] else make
    recipe(os.path.abspath(sys.argv[1]), pathlib.Path(sys.argv[2]).absolute())
