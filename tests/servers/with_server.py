#!/usr/bin/env python3
"""Runs a program beside an object store that is started for it and stopped behind it.

with_server.py ceph|swift PROGRAM ARG...    the store is told in S3_TEST_ENDPOINT, S3_TEST_KEY, S3_TEST_SECRET,
                                            S3_TEST_REGION; Ceph's configuration in CEPH_TEST_CONFIGURATION
with_server.py azurite PROGRAM ARG...       in AZURE_TEST_CONNECTION and, with a signature in place of the key, in
                                            AZURE_TEST_SAS_CONNECTION (of the container) and
                                            AZURE_TEST_ACCOUNT_SAS_CONNECTION (of the account)
A server that is not installed, or does not start, is a failure: scripts/install-deps --servers installs them.
"""
import os
import signal
import subprocess
import sys


def server(name):
    if name == "ceph":
        from ceph import Ceph
        return Ceph()
    if name == "swift":
        from swift import Swift
        return Swift()
    if name == "azurite":
        from azurite import Azurite
        return Azurite()
    sys.exit(f"no server '{name}' is known")


def environment_of(store, name):
    if name == "azurite":
        return store.environment
    told = {"S3_TEST_ENDPOINT": store.endpoint, "S3_TEST_KEY": store.access_key, "S3_TEST_SECRET": store.secret_key,
            "S3_TEST_REGION": store.region, "S3_TEST_SERVER": name}
    if name == "ceph":
        told["CEPH_TEST_CONFIGURATION"] = str(store.configuration)
    return told


def main():
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))  # so that the server is stopped
    store = server(sys.argv[1])
    try:
        environment = dict(os.environ, **environment_of(store, sys.argv[1]))
        return subprocess.run(sys.argv[2:], env=environment, check=False).returncode
    finally:
        store.stop()


if __name__ == "__main__":
    sys.exit(main())
