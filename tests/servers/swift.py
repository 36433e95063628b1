"""A Swift object store with its S3 interface of the test's own, on loopback: one device, one replica.

Settings that are not defaults have their reason beside them.
"""
import getpass
import pathlib
import shutil
import subprocess
import tempfile

from network import free_ports, wait_for_port

SWIFT = """
[swift-hash]
swift_hash_path_suffix = test
swift_hash_path_prefix = test
[storage-policy:0]
name = Policy-0
default = yes
"""

STORAGE = """
[DEFAULT]
bind_ip = 127.0.0.1
bind_port = {port}
user = {user}
swift_dir = {root}
devices = {root}/node
# The device is a folder.
mount_check = false
workers = 0
fallocate_reserve = 0
disable_fallocate = true
log_level = WARNING
[pipeline:main]
pipeline = {name}-server
[app:{name}-server]
use = egg:swift#{name}
"""

PROXY = """
[DEFAULT]
bind_ip = 127.0.0.1
bind_port = {proxy}
user = {user}
swift_dir = {root}
workers = 0
log_level = WARNING
[pipeline:main]
pipeline = catch_errors gatekeeper healthcheck cache listing_formats bulk s3api tempauth copy slo dlo proxy-server
[app:proxy-server]
use = egg:swift#proxy
account_autocreate = true
allow_account_management = true
[filter:catch_errors]
use = egg:swift#catch_errors
[filter:gatekeeper]
use = egg:swift#gatekeeper
[filter:healthcheck]
use = egg:swift#healthcheck
[filter:cache]
# Without it every request asks the account and the container server.
use = egg:swift#memcache
memcache_servers = 127.0.0.1:{memcached}
[filter:listing_formats]
use = egg:swift#listing_formats
[filter:bulk]
use = egg:swift#bulk
[filter:s3api]
use = egg:swift#s3api
location = us-east-1
s3_acl = false
check_bucket_owner = false
dns_compliant_bucket_names = true
max_bucket_listing = 1000
max_multi_delete_objects = 1000
min_segment_size = 5242880
force_swift_request_proxy_log = false
[filter:tempauth]
use = egg:swift#tempauth
user_test_tester = testing .admin
[filter:copy]
use = egg:swift#copy
[filter:slo]
use = egg:swift#slo
[filter:dlo]
use = egg:swift#dlo
"""


class Swift:
    access_key = "test:tester"
    secret_key = "testing"
    region = "us-east-1"

    def __init__(self):
        self.root = pathlib.Path(tempfile.mkdtemp(prefix="cloudbackup-swift-"))
        (self.root / "node" / "d1").mkdir(parents=True)
        self.servers = []
        self.ports = dict(zip(("account", "container", "object", "proxy", "memcached"), free_ports(5)))
        self.endpoint = f"http://127.0.0.1:{self.ports['proxy']}"
        try:
            self.configure()
            self.start()
        except BaseException:
            self.stop()
            raise

    def configure(self):
        values = {"root": self.root, "user": getpass.getuser()}
        (self.root / "swift.conf").write_text(SWIFT)
        (self.root / "proxy-server.conf").write_text(PROXY.format(**values, **self.ports))
        for name in ("account", "container", "object"):
            port = self.ports[name]
            (self.root / f"{name}-server.conf").write_text(STORAGE.format(name=name, port=port, **values))
            ring = self.root / f"{name}.builder"
            for step in (("create", "2", "1", "0"), ("add", f"r1z1-127.0.0.1:{port}/d1", "1"), ("rebalance",)):
                self.ring(ring, *step)

    @staticmethod
    def ring(*command):
        done = subprocess.run(["swift-ring-builder", *(str(part) for part in command)], stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, check=False)
        if done.returncode > 1:  # 1 is a warning
            raise RuntimeError(f"swift-ring-builder gave {done.returncode}: {done.stdout[-2000:]}")

    def spawn(self, name, *command):
        with open(self.root / f"{name}.log", "wb") as log:
            self.servers.append(subprocess.Popen([str(part) for part in command], stdout=log, stderr=log,
                                                 start_new_session=True))

    def start(self):
        self.spawn("memcached", "memcached", "-u", getpass.getuser(), "-l", "127.0.0.1", "-p", self.ports["memcached"],
                   "-m", "16")
        for name in ("account", "container", "object", "proxy"):
            self.spawn(name, f"swift-{name}-server", self.root / f"{name}-server.conf")
        for port in self.ports.values():
            wait_for_port(port, 60)

    def stop(self):
        for server in self.servers:
            server.kill()
            server.wait()
        shutil.rmtree(self.root, ignore_errors=True)
