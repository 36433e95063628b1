"""A Ceph object gateway of the test's own, on loopback: one monitor, one object store, one gateway, no root needed.

Settings that are not defaults have their reason beside them.
"""
import os
import pathlib
import shutil
import signal
import subprocess
import tempfile
import uuid

from network import free_ports, wait_for_port

CONFIGURATION = """
[global]
fsid = {fsid}
mon host = [v2:127.0.0.1:{mon2},v1:127.0.0.1:{mon1}]
# Without authentication the gateway hangs.
auth cluster required = cephx
auth service required = cephx
auth client required = cephx
keyring = {root}/keyring
auth allow insecure global id reclaim = false
public addr = 127.0.0.1
run dir = {root}/run
admin socket = {root}/run/$name.asok
pid file = {root}/run/$name.pid
log file = {root}/log/$name.log
osd pool default size = 1
osd pool default min size = 1
osd pool default pg num = 8
osd pool default pgp num = 8
osd pool default pg autoscale mode = off
osd crush chooseleaf type = 0
mon allow pool size one = true
mon warn on pool no redundancy = false
mon max pg per osd = 1000
mon data avail crit = 1
mon data avail warn = 1
# The start takes 6 seconds instead of 15.
paxos propose interval = 0.05
mon osd min up ratio = 0
osd objectstore = bluestore
osd memory target = 939524096
bluestore cache autotune = false
bluestore cache size = 134217728
bluestore block size = {disk}
bluestore block wal size = 0
bluestore block db size = 0
bluestore fsck on mount = false
[mon.a]
mon data = {root}/mon
[osd.0]
osd data = {root}/osd
[client.rgw]
# Without tcp_nodelay every request on a kept connection waits 40 ms.
rgw frontends = beast endpoint=127.0.0.1:{gateway} tcp_nodelay=1
rgw data = {root}/rgw
rgw thread pool size = 64
rgw dns name = localhost
rgw enable usage log = false
"""


class Ceph:
    access_key = "TESTACCESSKEY"
    secret_key = "test/secret+key"
    region = "us-east-1"

    def __init__(self, disk=4 << 30):
        self.root = pathlib.Path(tempfile.mkdtemp(prefix="cloudbackup-ceph-"))
        for name in ("mon", "osd", "run", "log", "rgw"):
            (self.root / name).mkdir()
        mon1, mon2, gateway = free_ports(3)
        self.fsid = str(uuid.uuid4())
        self.mon2 = mon2
        self.endpoint = f"http://127.0.0.1:{gateway}"
        self.configuration = self.root / "ceph.conf"
        self.configuration.write_text(CONFIGURATION.format(root=self.root, fsid=self.fsid, mon1=mon1, mon2=mon2,
                                                           gateway=gateway, disk=disk))
        try:
            self.start()
            wait_for_port(gateway, 120)
            self.run("radosgw-admin", "-c", self.configuration, "user", "create", "--uid=test", "--display-name=test",
                     f"--access-key={self.access_key}", f"--secret={self.secret_key}")
        except BaseException:
            self.stop()
            raise

    def run(self, *command):
        done = subprocess.run([str(part) for part in command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              text=True, check=False)
        if done.returncode != 0:
            raise RuntimeError(f"{command[0]} gave {done.returncode}: {done.stdout[-2000:]}")

    def start(self):
        root, conf = self.root, ("-c", self.configuration)
        keyring = root / "keyring"
        self.run("monmaptool", "--create", "--fsid", self.fsid, "--addv", "a", f"[v2:127.0.0.1:{self.mon2}]",
                 root / "monmap")
        self.run("ceph-authtool", "-C", keyring, "-g", "-n", "mon.", "--cap", "mon", "allow *")
        for name, monitor, store in (("client.admin", "allow *", "allow *"), ("client.rgw", "allow rwx", "allow rwx"),
                                     ("osd.0", "allow profile osd", "allow *")):
            self.run("ceph-authtool", keyring, "-g", "-n", name, "--cap", "mon", monitor, "--cap", "osd", store)
        self.run("ceph-mon", *conf, "-i", "a", "--mkfs", "--monmap", root / "monmap", "--keyring", keyring)
        self.run("ceph-mon", *conf, "-i", "a")
        store_id = str(uuid.uuid4())
        self.run("ceph", *conf, "osd", "new", store_id, "0")
        self.run("ceph-osd", *conf, "-i", "0", "--mkfs", "--osd-uuid", store_id)
        self.run("ceph", *conf, "osd", "crush", "add", "osd.0", "1.0", "root=default", "host=localhost")
        self.run("ceph-osd", *conf, "-i", "0")
        self.run("radosgw", *conf, "-n", "client.rgw")

    def stop(self):
        for path in (self.root / "run").glob("*.pid"):
            try:  # the store lingers on a polite request
                os.kill(int(path.read_text()), signal.SIGKILL)
            except (OSError, ValueError):
                pass
        shutil.rmtree(self.root, ignore_errors=True)
