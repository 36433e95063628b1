"""The tree of the agent's golden repository, and a description of trees that survives a backup."""
import hashlib
import json
import os
import pathlib
import random
import stat

BEGIN = 1_600_000_000


def set_times(paths, begin):
    """Modification times of their own, with nanoseconds; the same every time."""
    for number, path in enumerate(sorted(paths, key=os.fsencode, reverse=True)):
        os.utime(path, ns=(0, (begin + number) * 10**9 + 123_456_789), follow_symlinks=False)


def make(root):
    """The tree as checkpoint 1 has it."""
    root = pathlib.Path(root)
    root.mkdir(mode=0o755)
    (root / "letter.txt").write_text("Dear reader,\nthis file was backed up long ago.\n" * 40)
    (root / "empty").touch()
    (root / "folder" / "inner").mkdir(parents=True)
    (root / "folder" / "inner" / "file").write_text("in a folder of a folder\n")
    (root / "folder" / "old").write_text("is gone in checkpoint 2\n")
    (root / "folder" / "no one").mkdir()
    with open(root / "sparse", "wb") as file:
        file.write(b"the beginning\n")
        file.truncate(256 * 1024)
        file.seek(1024 * 1024)
        file.write(b"the end\n")
        file.truncate(1024 * 1024 + 64 * 1024)
    os.symlink("letter.txt", root / "link")
    os.symlink("/nowhere/at all", root / "dangling")
    os.link(root / "folder" / "inner" / "file", root / "hard link")
    os.mkfifo(root / "pipe")
    pathlib.Path(os.fsdecode(os.fsencode(root) + b"/not \xff UTF-8, \xc3\xbc is")).write_text("a name of bytes\n")
    os.setxattr(root / "letter.txt", "user.comment", b"an attribute \x00\xff")
    for name, mode in {"letter.txt": 0o640, "empty": 0o400, "folder": 0o1777, "folder/no one": 0o500,
                       "sparse": 0o600, "pipe": 0o620}.items():
        os.chmod(root / name, mode)
    set_times([root, *root.rglob("*")], BEGIN)


def change(root):
    """From checkpoint 1 to 2."""
    root = pathlib.Path(root)
    (root / "letter.txt").write_text("Dear reader,\nthis file was changed before it was backed up again.\n")
    (root / "folder" / "old").unlink()
    # Does not compress: its chunk is stored as it is.
    (root / "random").write_bytes(random.Random(1).randbytes(2000))
    set_times([root / "letter.txt", root / "random", root / "folder", root], BEGIN + 1000)


def change_again(root):
    """From checkpoint 2 to 3."""
    root = pathlib.Path(root)
    (root / "letter.txt").write_text("Dear reader,\nthis file was changed under the last of the keys.\n")
    set_times([root / "letter.txt", root], BEGIN + 2000)


def describe(root):
    """What a restore gives back, one entry a line; two trees are the same when these are."""
    root = os.fsencode(root)
    lines = []
    first_name = {}
    for folder, folders, files in os.walk(root):
        for name in [b""] * (folder == root) + sorted(folders + files):
            path = os.path.join(folder, name) if name else folder
            info = os.lstat(path)
            entry = {"path": os.fsdecode(path[len(root):]), "mode": oct(info.st_mode), "owner": info.st_uid,
                     "group": info.st_gid, "modified": info.st_mtime_ns}
            if stat.S_ISLNK(info.st_mode):
                entry["target"] = os.fsdecode(os.readlink(path))
            elif stat.S_ISREG(info.st_mode):
                with open(path, "rb") as file:
                    entry["sha256"] = hashlib.sha256(file.read()).hexdigest()
                entry["size"] = info.st_size
                if info.st_nlink > 1:
                    entry["also"] = first_name.setdefault(info.st_ino, entry["path"])
            if not stat.S_ISLNK(info.st_mode):
                entry["attributes"] = {key: os.getxattr(path, key).hex() for key in os.listxattr(path)
                                       if key.startswith("user.")}
            lines.append(json.dumps(entry, sort_keys=True))
    return sorted(lines)
