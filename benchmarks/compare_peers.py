#!/usr/bin/env python3
"""Measures the agent beside its peers on the same machine in the same run, and prints a table.

compare_peers.py PROGRAM [--folder DIR] [--rounds N] [--scale N] [--only NAME]... [--corpus small|large|million]...

For each corpus (corpora.py): first backup, a second one of the unchanged source, a third one of the edited source with the bytes
that it adds, restore of everything and of one file, check with all data, and forgetting all but the last checkpoint with what only
the others needed. Tools: cloudbackup (PROGRAM), restic and borg (Debian's packages), each with encryption and compression on and a
repository in a folder; and "floor", what plain tools take on this machine for the least of the same work: tar through zstd -3 with a
thread a core, looking at every file's size and times, copying, SHA-256 of what the first tool stored. The source is read before each backup; the tools take turns, another one first in each round; every figure is the median of the rounds, memory the
highest peak. Small files are not deleted before the end: files made soon after many were deleted take up to four times as long.
With the full size and three rounds that is about 30 GB. The million files are for memory, and take as much again.
"""
import argparse
import multiprocessing
import os
import pathlib
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

import corpora

COLUMNS = ("first backup", "unchanged backup", "edited backup", "restore", "one file", "check", "forget")


def make_random_file(folder, size):
    folder.mkdir()
    with open(folder / "random", "wb") as file:
        for _ in range(size >> 20):
            file.write(os.urandom(1 << 20))


class Agent:
    name = "cloudbackup"

    def __init__(self, program):
        self.program = program

    def environment(self, place):
        return {"CLOUDBACKUP_REPO": f"dir:{place}/repository", "CLOUDBACKUP_STATE_DIR": f"{place}/state",
                "CLOUDBACKUP_PASSWORD": "measured"}

    def run(self, *arguments):
        return [self.program, "-q", *arguments]

    def init(self):
        return self.run("init")

    def backup(self, source, _):
        return self.run("backup", source)

    def restore(self, target, _):
        return self.run("restore", "latest", "--target", target)

    def restore_one(self, path, target):
        return self.run("restore", "latest", path, "--target", target)

    def check(self):
        return [self.run("check", "--read-data")]

    def forget(self):
        return [self.run("forget", "--keep-last", "1", "--prune")]


class Restic(Agent):
    name = "restic"

    def __init__(self):
        super().__init__("restic")

    def environment(self, place):
        return {"RESTIC_REPOSITORY": f"{place}/repository", "RESTIC_PASSWORD": "measured",
                "RESTIC_CACHE_DIR": f"{place}/cache"}

    def backup(self, source, _):
        return self.run("--compression", "auto", "backup", source)

    def restore_one(self, path, target):
        return self.run("restore", "latest", "--include", path, "--target", target)


class Borg(Agent):
    name = "borg"

    def __init__(self):
        super().__init__("borg")

    def environment(self, place):
        return {"BORG_REPO": f"{place}/repository", "BORG_PASSPHRASE": "measured", "BORG_BASE_DIR": f"{place}/base",
                "BORG_UNKNOWN_UNENCRYPTED_REPO_ACCESS_IS_OK": "yes"}

    def run(self, *arguments):
        return [self.program, *arguments]

    def init(self):
        return self.run("init", "--encryption", "repokey")

    def backup(self, source, number):
        return self.run("create", "--compression", "zstd,3", f"::{number}", source)

    def restore(self, target, number):
        target.mkdir()
        return ["env", "-C", target, *self.run("extract", f"::{number}")]

    def restore_one(self, path, target):
        target.mkdir()
        return ["env", "-C", target, *self.run("extract", "::3", str(path)[1:])]

    def check(self):
        return [self.run("check", "--verify-data")]

    def forget(self):
        return [self.run("prune", "--keep-last", "1"), self.run("compact")]


class Floor(Agent):
    name = "floor"

    def __init__(self):
        super().__init__("sh")

    def environment(self, place):
        return {"PLACE": f"{place}"}

    def shell(self, script, *arguments):
        return ["sh", "-c", script, "sh", *arguments]

    def init(self):
        return self.shell('mkdir "$PLACE/repository"')

    def backup(self, source, number):
        if number == 1:
            return self.shell('tar -cf - "$1" 2>"$PLACE/said" | zstd -q -3 -T0 >"$PLACE/repository/1"', source)
        if number == 2:
            return self.shell('find "$1" -size +0 -newermt now', source)
        return self.shell('cp -r "$1" "$PLACE/repository/3"', source)

    def restore(self, target, number):
        return self.shell('mkdir -p "$1" && cp -a "$PLACE/repository/3" "$1"', target)

    def restore_one(self, path, target):
        return self.shell('mkdir "$2" && cp "$1" "$2"', path, target)

    def check(self):
        return [self.shell('find "$PLACE/../cloudbackup/repository" -type f -print0 | xargs -0 -P 0 -n 64 sha256sum >"$PLACE/sums"')]

    def forget(self):
        return [self.shell("true")]


def apart(function, *arguments):
    """Calls it in a process of its own: what is started later counts this process' peak of memory as its own."""
    process = multiprocessing.Process(target=function, args=arguments)
    process.start()
    process.join()
    if process.exitcode != 0:
        sys.exit(f"{function.__name__} failed")


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


def measure_all(commands, environment):
    rows = [measure(command, environment) for command in commands]
    return sum(row[0] for row in rows), sum(row[1] for row in rows), max(row[2] for row in rows)


def tree_size(folder):
    return sum(path.stat().st_size for path in pathlib.Path(folder).rglob("*") if path.is_file())


def warm(folder):
    """Reads it all. (To /dev/null itself tar writes nothing, and reads nothing.)"""
    subprocess.run(["sh", "-c", 'tar -cf - "$1" 2>/dev/null | cat >/dev/null', "sh", folder], check=True)


def check_same(one, other):
    done = subprocess.run(["diff", "-rq", one, other], check=False, stdout=subprocess.PIPE)
    if done.returncode != 0:
        sys.exit(f"{one} and {other} differ: {done.stdout[:500]}")


class Round:
    """All tools on one corpus, once."""

    def __init__(self, tools, corpus, place):
        self.tools, self.corpus = tools, corpus
        self.source = place / "source"
        shutil.copytree(corpus, self.source)  # a copy, since the third backup is of its second generation
        self.places = {tool.name: place / tool.name for tool in tools}
        self.rows = {tool.name: {} for tool in tools}
        self.sizes = {tool.name: [] for tool in tools}

    def each(self, column, commands):
        for tool in self.tools:
            place = self.places[tool.name]
            if "backup" in column:
                warm(self.source)  # for each alike: some machines let go of what was not read for a minute
            os.sync()
            self.rows[tool.name][column] = measure_all(commands(tool, place), tool.environment(place))

    def backup(self, column, number):
        self.each(column, lambda tool, _: [tool.backup(self.source, number)])
        for tool in self.tools:
            self.sizes[tool.name].append(tree_size(self.places[tool.name] / "repository"))

    def restore(self, tool):
        target = self.places[tool.name] / "restored"
        os.sync()
        self.rows[tool.name]["restore"] = measure(tool.restore(target, 3), tool.environment(self.places[tool.name]))
        if tool.name != "floor":
            check_same(str(self.source), f"{target}{self.source}")
        if self.corpus.name == "large":
            shutil.rmtree(target)

    def run(self):
        for tool in self.tools:
            place = self.places[tool.name]
            place.mkdir()
            subprocess.run([str(part) for part in tool.init()], env={**os.environ, **tool.environment(place)}, check=True,
                           stderr=subprocess.DEVNULL)
        self.backup("first backup", 1)
        self.backup("unchanged backup", 2)
        apart(corpora.EDIT[self.corpus.name], self.source)
        self.backup("edited backup", 3)
        for tool in self.tools:
            self.restore(tool)
        one = sorted(path for path in self.source.rglob("*") if path.is_file())[-1]
        self.each("one file", lambda tool, place: [tool.restore_one(one, place / "one")])
        self.each("check", lambda tool, _: tool.check())
        self.each("forget", lambda tool, _: tool.forget())


def show(corpus, tools, rounds):
    for column in COLUMNS:
        for tool in tools:
            rows = [one.rows[tool.name][column] for one in rounds]
            print(f"| {corpus} | {column} | {tool.name} | {statistics.median(row[0] for row in rows):.2f} | "
                  f"{statistics.median(row[1] for row in rows):.2f} | {max(row[2] for row in rows):.0f} |", flush=True)
    for tool in tools:
        first, second, third = rounds[0].sizes[tool.name]
        print(f"| {corpus} | repository {first / 1e6:.0f} MB, the unchanged run adds {(second - first) / 1e6:.2f}, the edited one "
              f"{(third - second) / 1e6:.1f} | {tool.name} | | | |", flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("program")
    parser.add_argument("--folder", help="where to work (default: a temporary folder)")
    parser.add_argument("--corpora", help="a folder in which corpora.py has made them already")
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--scale", type=int, default=1, help="an N-th of the full size")
    parser.add_argument("--only", action="append", help="just this tool")
    parser.add_argument("--corpus", action="append", choices=corpora.MAKE, help="(default: small and large)")
    options = parser.parse_args()
    tools = [tool for tool in (Agent(os.path.abspath(options.program)), Restic(), Borg(), Floor())
             if not options.only or tool.name in options.only]
    peers = [tool for tool in tools if tool.name != "floor"]
    floor = [tool for tool in tools if tool.name == "floor"]  # last: it looks at what the agent stored
    if options.folder:
        os.makedirs(options.folder, exist_ok=True)
    with tempfile.TemporaryDirectory(dir=options.folder) as folder:
        work = pathlib.Path(folder)
        print(f"{os.cpu_count()} cores, {time.strftime('%Y-%m-%d')}, median of {options.rounds} rounds, scale 1/{options.scale}\n")
        print("| corpus | what | tool | seconds | processor s | peak MiB |")
        print("|---|---|---|---:|---:|---:|", flush=True)
        for name in options.corpus or ("small", "large"):
            corpus = work / name
            if options.corpora:
                corpus = pathlib.Path(options.corpora, name)
            else:
                apart(corpora.MAKE[name], corpus, options.scale)
            rounds = []
            for number in range(options.rounds):
                place = work / f"{name}-{number}"
                place.mkdir()
                first = number % len(peers)
                rounds.append(Round(peers[first:] + peers[:first] + floor, corpus, place))
                rounds[-1].run()
                if name == "large":
                    shutil.rmtree(place)
            show(name, tools, rounds)


if __name__ == "__main__":
    main()
