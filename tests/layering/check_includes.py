#!/usr/bin/env python3
"""Fails on an include that goes up the house: reads the #include lines of every source file.

check_includes.py ROOT       checks the tree
check_includes.py --selftest shows that each rule catches what it is for
"""
import pathlib
import re
import sys
import tempfile

# What each folder may include, itself apart.
FOLDERS = {
    "common": set(),
    "cloudclientlib": {"common"},
    "cloudbackuplib": {"common", "cloudclientlib"},
    "clients": {"common", "cloudclientlib"},
    "agent": {"common", "cloudclientlib", "cloudbackuplib", "clients"},
}

# Inside the library, from the ground up; a layer may use those before it.
# "records" are headers alone: what a connection specification carries.
LIBRARY_LAYERS = ["records", "platform", "cloud", "checkpoint", "backup", "cache", "session", "repository", "context"]
PUBLIC_HEADERS = {
    "records": {"CloudRepositoryInfo.h", "CloudService.h", "CloudStorageBlockStoreSchema.h"},
    "platform": {"S3ConnectionSpec.h", "AzureConnectionSpec.h", "EBSConnectionSpec.h"},
    "cloud": {"RestrictedCloudClient.h", "CloudPaths.h", "BlockExternalId.h"},
    "checkpoint": {"CloudDxrDescriptor.h", "OwnerDescriptor.h", "CloudStorageDescriptor.h", "CloudCheckpoint.h"},
    "backup": {"CloudBackup.h", "CheckpointParams.h", "MetaLocationDescr.h"},
    "cache": {"StgMetaCache.h", "CacheUpdateSink.h", "IMetaUpdateSink.h"},
    "session": {"CloudBackupSession.h"},
    "repository": {"ICloudRepository.h", "CloudRepositoryFactory.h", "CloudExternalRepository.h",
                   "CloudClientKeyInfo.h", "CloudClientKeyHistory.h"},
    "context": {"CloudBackupLibCtx.h"},
}
LAYER_OF_HEADER = {header: layer for layer, headers in PUBLIC_HEADERS.items() for header in headers}

# Inside the agent.
AGENT_LAYERS = ["model", "keys", "chunk", "meta", "fs", "select", "store", "retention", "run", "look", "check", "cli"]

INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')


def library_layer(parts):
    """The layer of a path inside cloudbackuplib/: folder of a source, or home of a public header."""
    if parts[0] in LIBRARY_LAYERS:
        return parts[0]
    return LAYER_OF_HEADER.get(parts[-1])


def check(path, included, quoted):
    """Says what is wrong with one include, or nothing."""
    home = path.parts[0]
    if not quoted:
        if included == "tinyxml.h" and path.as_posix() not in ("common/xml.cpp",):
            return "only common/xml.cpp may include TinyXML"
        return None
    target = included.split("/")
    if target[0] not in FOLDERS:
        if target[0] == "tests" and path.stem.endswith("_test"):
            return None
        return f"no folder of the project, or one that {home} may not use"
    if target[0] != home and target[0] not in FOLDERS[home]:
        return f"{home} may not include {target[0]}"
    if target[0] == "cloudbackuplib":
        if home != "cloudbackuplib":
            return None if len(target) == 2 else f"{home} may include public headers of the library only"
        mine, theirs = library_layer(path.parts[1:]), library_layer(target[1:])
        if theirs is None:
            return "a library header without a layer: add it to check_includes.py"
        if mine is None:
            return "a library file without a layer: add it to check_includes.py"
        if LIBRARY_LAYERS.index(theirs) > LIBRARY_LAYERS.index(mine):
            return f"{mine} may not include {theirs}"
    if home == target[0] == "agent" and len(path.parts) > 2:
        mine, theirs = path.parts[1], target[1]
        if AGENT_LAYERS.index(theirs) > AGENT_LAYERS.index(mine):
            return f"agent/{mine} may not include agent/{theirs}"
    return None


def findings(root):
    count = 0
    for folder in FOLDERS:
        for path in sorted((root / folder).rglob("*")):
            if path.suffix not in (".h", ".cpp"):
                continue
            count += 1
            relative = path.relative_to(root)
            for number, line in enumerate(path.read_text().splitlines(), 1):
                match = INCLUDE.match(line)
                if match:
                    wrong = check(relative, match.group(2), match.group(1) == '"')
                    if wrong:
                        yield f"{relative}:{number}: {match.group(2)}: {wrong}"
    if count == 0:
        yield f"{root}: no source files found"


def selftest():
    bad = {
        "common/a.cpp": '"cloudclientlib/ICloudClient.h"',
        "cloudclientlib/a.cpp": '"clients/memory/MemoryClient.h"',
        "cloudbackuplib/backup/a.cpp": '"clients/memory/MemoryClient.h"',
        "cloudbackuplib/checkpoint/a.cpp": '"cloudbackuplib/CloudBackup.h"',
        "cloudbackuplib/backup/b.cpp": '"cloudbackuplib/CloudBackupSession.h"',
        "cloudbackuplib/include/cloudbackuplib/CloudBackup.h": '"cloudbackuplib/CloudBackupSession.h"',
        "clients/memory/a.cpp": '"cloudbackuplib/CloudBackup.h"',
        "agent/cli/a.cpp": '"cloudbackuplib/backup/Internal.h"',
        "agent/fs/a.cpp": '"agent/run/BackupRun.h"',
        "common/b.cpp": "<tinyxml.h>",
        "common/c.cpp": '"tests/support/TempDir.h"',
    }
    good = {
        "common/xml.cpp": "<tinyxml.h>",
        "common/a_test.cpp": '"tests/support/TempDir.h"',
        "agent/cli/b.cpp": '"cloudbackuplib/CloudBackup.h"',
        "cloudbackuplib/session/a.cpp": '"cloudbackuplib/StgMetaCache.h"',
    }
    with tempfile.TemporaryDirectory() as folder:
        root = pathlib.Path(folder)
        for name, include in {**bad, **good}.items():
            file = root / name
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_text(f"#include {include}\n")
        found = {finding.split(":")[0] for finding in findings(root)}
    if found != set(bad):
        sys.exit(f"selftest: expected findings in {sorted(bad)}, got {sorted(found)}")


def main():
    if sys.argv[1:] == ["--selftest"]:
        selftest()
        return
    wrong = list(findings(pathlib.Path(sys.argv[1])))
    print("\n".join(wrong))
    sys.exit(1 if wrong else 0)


if __name__ == "__main__":
    main()
