#!/usr/bin/env python3
"""Measures the S3 client beside rclone and the agent beside restic, on one Ceph gateway on loopback in one run.

compare_stores.py BUILD [--rounds N] [--transfers N] [--small] [--only transfers|backup] [--delay MILLISECONDS]

BUILD is the folder with the programs (build/release). The gateway is started and stopped here; rclone and restic are
Debian's packages. Every figure is the best of the rounds; memory is the peak of the process. With --delay only the
client is measured, through a proxy that adds the delay to each way's bytes, with 1 to 32 connections.
"""
import argparse
import asyncio
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import threading

from compare_peers import make_random_file, measure

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "tests" / "servers"))
from ceph import Ceph  # noqa: E402

MIB = 1 << 20


class Client:
    name = "client"

    def __init__(self, build, store, transfers):
        self.program = f"{build}/benchmarks/store_bench"
        self.store = store
        self.transfers = transfers

    def environment(self):
        return {"AWS_ACCESS_KEY_ID": self.store.access_key, "AWS_SECRET_ACCESS_KEY": self.store.secret_key}

    def up(self, folder, bucket):
        return [self.program, "up", f"s3:{self.store.endpoint}/{bucket}", folder, self.transfers]

    def down(self, bucket, folder):
        return [self.program, "down", f"s3:{self.store.endpoint}/{bucket}", folder, self.transfers]


class Rclone:
    name = "rclone"

    def __init__(self, store, transfers):
        self.store = store
        self.options = ["--transfers", transfers, "--checkers", transfers, "--s3-no-check-bucket=false", "--no-traverse",
                        "--retries", 1, "-q"]

    def environment(self):
        return {"RCLONE_CONFIG": "/dev/null", "RCLONE_CONFIG_X_TYPE": "s3", "RCLONE_CONFIG_X_PROVIDER": "Ceph",
                "RCLONE_CONFIG_X_ACCESS_KEY_ID": self.store.access_key,
                "RCLONE_CONFIG_X_SECRET_ACCESS_KEY": self.store.secret_key,
                "RCLONE_CONFIG_X_ENDPOINT": self.store.endpoint}

    def up(self, folder, bucket):
        return ["rclone", "copy", *self.options, folder, f"x:{bucket}"]

    def down(self, bucket, folder):
        return ["rclone", "copy", *self.options, f"x:{bucket}", folder]


class Agent:
    name = "cloudbackup"

    def __init__(self, build, store):
        self.program = f"{build}/agent/cloudbackup"
        self.store = store

    def environment(self, place, bucket):
        return {"AWS_ACCESS_KEY_ID": self.store.access_key, "AWS_SECRET_ACCESS_KEY": self.store.secret_key,
                "CLOUDBACKUP_REPO": f"s3:{self.store.endpoint}/{bucket}", "CLOUDBACKUP_STATE_DIR": f"{place}/state", "CLOUDBACKUP_PASSWORD": "measured"}

    def init(self):
        return [self.program, "-q", "init"]

    def backup(self, source):
        return [self.program, "-q", "backup", source]

    def restore(self, target):
        return [self.program, "-q", "restore", "latest", "--target", target]


class Restic:
    name = "restic"

    def __init__(self, store):
        self.store = store

    def environment(self, place, bucket):
        return {"AWS_ACCESS_KEY_ID": self.store.access_key, "AWS_SECRET_ACCESS_KEY": self.store.secret_key,
                "RESTIC_REPOSITORY": f"s3:{self.store.endpoint}/{bucket}", "RESTIC_PASSWORD": "x",
                "RESTIC_CACHE_DIR": f"{place}/cache"}

    def init(self):
        return ["restic", "-q", "init"]

    def backup(self, source):
        return ["restic", "-q", "--compression", "auto", "backup", source]

    def restore(self, target):
        return ["restic", "-q", "restore", "latest", "--target", target]


def make_objects(folder, count, size):
    folder.mkdir()
    for number in range(count):
        (folder / f"o{number:06}").write_bytes(os.urandom(size))


def show(name, tool, row):
    seconds, processor, peak = row
    print(f"| {name} | {tool} | {seconds:.2f} s | {processor:.2f} s | {peak:.0f} MiB |", flush=True)


def best(rows):
    return tuple(min(row[i] for row in rows) for i in range(2)) + (max(row[2] for row in rows),)


def check_same(one, other):
    done = subprocess.run(["diff", "-rq", str(one), str(other)], check=False, stdout=subprocess.PIPE)
    if done.returncode != 0:
        sys.exit(f"{one} and {other} differ: {done.stdout[:500]}")


def compare_transfers(name, tools, source, place, rounds):
    rows = {tool.name: ([], []) for tool in tools}
    for number in range(rounds):
        for tool in tools:
            bucket = f"{tool.name}{name}{number}".lower().replace(" ", "")
            target = place / "down"
            rows[tool.name][0].append(measure(tool.up(source, bucket), tool.environment()))
            rows[tool.name][1].append(measure(tool.down(bucket, target), tool.environment()))
            check_same(source, target)
            shutil.rmtree(target)
    for index, way in enumerate(("up", "down")):
        for tool in tools:
            show(f"{name} {way}", tool.name, best(rows[tool.name][index]))


def compare_backups(tools, source, place, rounds):
    rows = {tool.name: ([], []) for tool in tools}
    for number in range(rounds):
        for tool in tools:
            work = place / f"work-{tool.name}-{number}"
            work.mkdir()
            environment = tool.environment(work, f"{tool.name}-backup-{number}")
            subprocess.run([str(part) for part in tool.init()], env={**os.environ, **environment}, check=True)
            rows[tool.name][0].append(measure(tool.backup(source), environment))
            rows[tool.name][1].append(measure(tool.restore(work / "target"), environment))
            check_same(source, str(work / "target") + str(source))
            shutil.rmtree(work)
    for index, step in enumerate(("backup", "restore")):
        for tool in tools:
            show(f"{step} of {sum(f.stat().st_size for f in source.iterdir()) // MIB} MiB", tool.name,
                 best(rows[tool.name][index]))


class DelayProxy:
    """Passes everything on, each piece so much later; the time on the way takes no place on it."""

    def __init__(self, upstream_port, seconds):
        self.upstream_port = upstream_port
        self.seconds = seconds
        started = threading.Event()
        threading.Thread(target=self._run, args=(started,), daemon=True).start()
        started.wait()

    def _run(self, started):
        loop = asyncio.new_event_loop()
        server = loop.run_until_complete(asyncio.start_server(self._serve, "127.0.0.1", 0))
        self.port = server.sockets[0].getsockname()[1]
        started.set()
        loop.run_forever()

    async def _serve(self, reader, writer):
        up_reader, up_writer = await asyncio.open_connection("127.0.0.1", self.upstream_port)
        await asyncio.gather(self._pump(reader, up_writer, self.seconds), self._pump(up_reader, writer, 0),
                             return_exceptions=True)

    async def _pump(self, source, target, seconds):
        loop = asyncio.get_running_loop()
        while data := await source.read(1 << 20):
            loop.call_later(seconds, target.write, data)
        loop.call_later(seconds, target.close)


def show_delay(options, store, place):
    source = place / "objects"
    make_objects(source, 640, 64 << 10)
    proxy = DelayProxy(int(store.endpoint.rsplit(":", 1)[1]), options.delay / 1000)
    store.endpoint = f"http://127.0.0.1:{proxy.port}"
    for connections in (1, 2, 4, 8, 16, 32):
        tool = Client(options.build, store, connections)
        row = measure(tool.up(source, f"delay{connections}"), tool.environment())
        show(f"640 objects of 64 KiB up, {options.delay} ms later, {connections} connections", tool.name, row)


def compare_whole(options, store, place, scale):
    source = place / "source"
    make_random_file(source, 2 * 1024 * MIB // scale)
    compare_backups([Agent(options.build, store), Restic(store)], source, place, options.rounds)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build")
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--transfers", type=int, default=16)
    parser.add_argument("--small", action="store_true", help="a tenth of the size, to try the script")
    parser.add_argument("--only", choices=("transfers", "backup"))
    parser.add_argument("--delay", type=float, help="show what latency does to the client instead")
    options = parser.parse_args()
    scale = 10 if options.small else 1
    os.environ.pop("AWS_CA_BUNDLE", None)  # rclone 1.60 refuses to start with one
    place = pathlib.Path(tempfile.mkdtemp(prefix="compare-stores-"))
    store = Ceph(disk=(8 if options.small else 40) << 30)
    try:
        print("| what | with | time | processor | peak |\n|---|---|---|---|---|", flush=True)
        if options.delay is not None:
            show_delay(options, store, place)
            return
        if options.only == "backup":
            compare_whole(options, store, place, scale)
            return
        tools = [Client(options.build, store, options.transfers), Rclone(store, options.transfers)]
        for count, size, name in ((2000 // scale, MIB, "1 MiB"), (20000 // scale, 16 << 10, "16 KiB"),
                                  (20 // scale, 64 * MIB, "64 MiB")):
            source = place / name.replace(" ", "")
            make_objects(source, count, size)
            compare_transfers(f"{count} of {name}", tools, source, place, options.rounds)
            shutil.rmtree(source)
        if options.only != "transfers":
            compare_whole(options, store, place, scale)
    finally:
        store.stop()
        shutil.rmtree(place, ignore_errors=True)


if __name__ == "__main__":
    main()
