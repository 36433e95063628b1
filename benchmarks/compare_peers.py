#!/usr/bin/env python3
"""Measures the agent beside a peer on the same machine in the same run, and prints a table.

compare_peers.py PROGRAM [--folder DIR] [--rounds N] [--small] [--only NAME]

Backs up a 1 GiB file of random bytes and a tree of 50,000 small files, first run, unchanged second run, and restore, with
the agent and with restic (Debian's package, compression auto), each into a repository in a folder. Caches are
warm: the sources are read once before. Every figure is the best of the rounds; memory is the peak of the process.
"""
import argparse
import os
import pathlib
import random
import shutil
import subprocess
import sys
import tempfile
import time

GIB = 1 << 30


def make_random_file(folder, size):
    folder.mkdir()
    with open(folder / "random", "wb") as file:
        for _ in range(size >> 20):
            file.write(os.urandom(1 << 20))


def make_small_files(folder, count):
    """Text-like files of 1 to 16 KiB, a hundred in a folder."""
    generator = random.Random(1)
    words = [generator.randbytes(generator.randrange(2, 9)).hex() for _ in range(5000)]
    for number in range(count):
        path = folder / f"d{number // 100:03}" / f"f{number}"
        path.parent.mkdir(parents=True, exist_ok=True)
        size = generator.randrange(1024, 16384)
        text = " ".join(generator.choices(words, k=size // 10 + 1))
        path.write_text(text[:size])


class Agent:
    name = "cloudbackup"

    def __init__(self, program):
        self.program = program

    def environment(self, place):
        return {"CLOUDBACKUP_REPO": f"dir:{place}/repository", "CLOUDBACKUP_STATE_DIR": f"{place}/state"}

    def init(self):
        return [self.program, "-q", "init"]

    def backup(self, source):
        return [self.program, "-q", "backup", source]

    def restore(self, target):
        return [self.program, "-q", "restore", "latest", "--target", target]


class Restic:
    name = "restic"

    def environment(self, place):
        return {"RESTIC_REPOSITORY": f"{place}/repository", "RESTIC_PASSWORD": "x", "RESTIC_CACHE_DIR": f"{place}/cache"}

    def init(self):
        return ["restic", "-q", "init"]

    def backup(self, source):
        return ["restic", "-q", "--compression", "auto", "backup", source]

    def restore(self, target):
        return ["restic", "-q", "restore", "latest", "--target", target]


def measure(command, environment):
    """Seconds, processor seconds and peak MiB of one command."""
    begin = time.monotonic()
    process = subprocess.Popen([str(part) for part in command], env={**os.environ, **environment})
    _, status, usage = os.wait4(process.pid, 0)
    seconds = time.monotonic() - begin
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        sys.exit(f"{command} failed with {process.returncode}")
    return seconds, usage.ru_utime + usage.ru_stime, usage.ru_maxrss / 1024


def tree_size(folder):
    return sum(path.stat().st_size for path in pathlib.Path(folder).rglob("*") if path.is_file())


def run_once(tool, source, place):
    environment = tool.environment(place)
    subprocess.run(tool.init(), env={**os.environ, **environment}, check=True)
    os.sync()
    rows = {"first backup": measure(tool.backup(source), environment)}
    os.sync()
    rows["unchanged backup"] = measure(tool.backup(source), environment)
    stored = tree_size(place / "repository")
    os.sync()
    rows["restore"] = measure(tool.restore(place / "restored"), environment)
    return rows, stored


def best(old, new):
    return new if old is None else (min(old[0], new[0]), min(old[1], new[1]), max(old[2], new[2]))


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("program")
    parser.add_argument("--folder", help="where to work (default: a temporary folder)")
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--small", action="store_true", help="a tenth of the size, to try the script")
    parser.add_argument("--only", help="just this tool")
    options = parser.parse_args()
    scale = 10 if options.small else 1
    tools = [tool for tool in (Agent(os.path.abspath(options.program)), Restic())
             if options.only in (None, tool.name)]

    with tempfile.TemporaryDirectory(dir=options.folder) as folder:
        work = pathlib.Path(folder)
        make_random_file(work / "random", GIB // scale)
        make_small_files(work / "small", 50000 // scale)
        print(f"{os.cpu_count()} cores, {time.strftime('%Y-%m-%d')}, best of {options.rounds} rounds\n")
        print("| source | what | tool | seconds | processor s | peak MiB | repository MiB |")
        print("|---|---|---|---:|---:|---:|---:|")
        for label, source in ((f"random file of {1024 // scale} MiB", work / "random"),
                              (f"{50000 // scale:,} small files", work / "small")):
            subprocess.run(["tar", "-cf", "/dev/null", source], check=True, stderr=subprocess.DEVNULL)
            results = {}
            for _ in range(options.rounds):
                for tool in tools:  # in turn, so that what disturbs the machine disturbs both
                    place = work / "place"
                    place.mkdir()
                    rows, stored = run_once(tool, source, place)
                    for what, row in rows.items():
                        key = (what, tool.name)
                        results[key] = (best(results.get(key, (None,))[0], row), stored)
                    shutil.rmtree(place)
            for what in ("first backup", "unchanged backup", "restore"):
                for tool in tools:
                    (seconds, processor, peak), stored = results[(what, tool.name)]
                    print(f"| {label} | {what} | {tool.name} | {seconds:.2f} | {processor:.2f} | {peak:.0f} | "
                          f"{stored / (1 << 20):.0f} |", flush=True)


if __name__ == "__main__":
    main()
