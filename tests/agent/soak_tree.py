"""Trees for the soak: an exact description of one, and edits of every kind made at random."""
import hashlib
import os
import shutil
import stat

MOST_NAMES = 70
SPARSE = 1 << 20


def content_of(path, info):
    if stat.S_ISLNK(info.st_mode):
        return os.readlink(path)
    if stat.S_ISREG(info.st_mode):
        with open(path, "rb") as file:
            return hashlib.sha256(file.read()).hexdigest()
    return info.st_rdev


def xattrs_of(path):
    return tuple((name, os.getxattr(path, name, follow_symlinks=False))
                 for name in sorted(os.listxattr(path, follow_symlinks=False)))


def names_of(root):
    """All paths in the tree, its root first."""
    paths = [root]
    for folder, folders, files in os.walk(root):
        paths += [os.path.join(folder, name) for name in folders + files]
    return paths


def describe_fully(root):
    """Path below the root -> all that a restore brings back. Names of one file have its first name in common."""
    root = os.fsencode(root)
    first_names, lines = {}, {}
    for path in sorted(names_of(root)):
        info = os.lstat(path)
        name = path[len(root):]
        first = name if stat.S_ISDIR(info.st_mode) else first_names.setdefault(info.st_ino, name)
        size = info.st_size if stat.S_ISREG(info.st_mode) else 0
        lines[name] = (info.st_mode, info.st_uid, info.st_gid, info.st_mtime_ns, size, content_of(path, info),
                       xattrs_of(path), first)
    return lines


def sparse_names(root):
    """The files with large holes."""
    root = os.fsencode(root)
    infos = ((path[len(root):], os.lstat(path)) for path in names_of(root))
    return {name for name, info in infos
            if stat.S_ISREG(info.st_mode) and info.st_blocks * 512 + SPARSE <= info.st_size}


def differences(found, expected):
    """A few lines that say what differs; none when nothing does."""
    lines = []
    for name in sorted(found.keys() | expected.keys()):
        if found.get(name) != expected.get(name):
            lines.append(f"{name}: {found.get(name)} instead of {expected.get(name)}")
    return lines[:10]


class Editor:
    """Edits a tree at random. What it does follows from the generator and the tree alone."""

    def __init__(self, generator):
        self.random = generator
        self.kinds = [self.add, self.add, self.add, self.overwrite, self.overwrite, self.overwrite_secretly,
                      self.append, self.truncate, self.delete, self.rename, self.exchange, self.hard_link,
                      self.symlink, self.holes, self.punch, self.chmod, self.chown, self.touch, self.xattr, self.copy,
                      self.make_folder, self.delete_folder, self.rename_folder, self.other_kind, self.fifo, self.large,
                      self.insert, self.insert, self.cut_out, self.empty, self.rewrite]

    def edit(self, root, times, secretly=True):
        """`secretly`: also edits that leave size and time of modification as they are."""
        self.root = os.fsencode(root)
        for _ in range(times):
            kind = self.random.choice(self.kinds)
            if secretly or kind != self.overwrite_secretly:
                kind()
        paths = self.files()
        while len(paths) > MOST_NAMES:
            os.unlink(paths.pop(self.random.randrange(len(paths))))

    # What there is.

    def entries(self, test):
        return [path for path in sorted(names_of(self.root))[1:] if test(os.lstat(path).st_mode)]

    def files(self):
        return self.entries(lambda mode: not stat.S_ISDIR(mode))

    def regular(self):
        """One of the regular files; one is made where there is none."""
        found = self.entries(stat.S_ISREG)
        return self.random.choice(found) if found else self.add()

    def folders(self):
        return [self.root] + self.entries(stat.S_ISDIR)

    def new_path(self):
        folder = self.random.choice(self.folders())
        while True:
            number = self.random.randrange(10 ** 6)
            name = self.random.choice([b"f%d", b"f%d.txt", b"-f%d", b" f %d ", b"\xff\xfe%d", b"\xc3\xa4\n%d", b"a\\b%d",
                                       b".%d", b"%%s*?[%d]", b"n" * 200 + b"%d"]) % number
            path = os.path.join(folder, name)
            if not os.path.lexists(path) and len(path) < 2000:
                return path

    def bytes(self, most=17):
        size = int(2 ** self.random.uniform(0, most))
        kind = self.random.randrange(4)
        if kind == 0:
            return bytes(size)
        if kind == 1:
            return (b"a line of text %d\n" % self.random.randrange(100)) * (size // 16 + 1)
        return self.random.randbytes(size)

    # What can happen.

    def add(self):
        path = self.new_path()
        self.write(path, self.bytes())
        return path

    @staticmethod
    def write(path, content):
        with open(path, "wb") as file:
            file.write(content)

    def overwrite(self):
        path = self.regular()
        with open(path, "r+b") as file:
            file.seek(self.random.randrange(os.path.getsize(path) + 1))
            file.write(self.bytes(14))

    def overwrite_secretly(self):
        """Only ctime tells."""
        path = self.regular()
        info = os.lstat(path)
        if info.st_size:
            with open(path, "r+b") as file:
                at = self.random.randrange(info.st_size)
                file.seek(at)
                file.write(self.random.randbytes(min(100, info.st_size - at)))
            os.utime(path, ns=(info.st_mtime_ns, info.st_mtime_ns))

    def append(self):
        with open(self.regular(), "ab") as file:
            file.write(self.bytes())

    def truncate(self):
        path = self.regular()
        os.truncate(path, self.random.randrange(os.path.getsize(path) + 2))

    def delete(self):
        for path in self.random.sample(self.files(), min(2, len(self.files()))):
            os.unlink(path)

    def rename(self):
        os.rename(self.regular(), self.new_path())

    def exchange(self):
        one, other, aside = self.regular(), self.regular(), self.new_path()
        os.rename(one, aside)
        if one != other:
            os.rename(other, one)
        os.rename(aside, other)

    def hard_link(self):
        os.link(self.regular(), self.new_path())

    def symlink(self):
        target = self.random.choice([b"nowhere", b"/", b"..", b"\xff", os.path.basename(self.regular())])
        os.symlink(target, self.new_path())

    def holes(self):
        with open(self.new_path(), "wb") as file:
            for _ in range(self.random.randrange(4)):
                file.seek(self.random.randrange(4 << 20))
                file.write(self.bytes(13))
            file.truncate(self.random.randrange(6 << 20))

    def punch(self):
        """The tail becomes a hole."""
        path = self.regular()
        size = os.path.getsize(path)
        os.truncate(path, size // 2)
        os.truncate(path, size)

    def chmod(self):
        os.chmod(self.regular(), self.random.choice([0o600, 0o644, 0o755, 0o4755, 0o2711, 0o400]))
        os.chmod(self.random.choice(self.folders()), self.random.choice([0o700, 0o755, 0o1777, 0o2750]))

    def chown(self):
        if os.geteuid() == 0:
            path = self.random.choice(self.files() + self.folders())
            os.chown(path, self.random.randrange(3000), self.random.randrange(3000), follow_symlinks=False)

    def touch(self):
        path = self.random.choice(self.files() + self.folders())
        when = self.random.choice([0, 1, -10 ** 15, 999_999_999, 2 ** 31 * 10 ** 9, 1_700_000_000_123_456_789])
        os.utime(path, ns=(when, when), follow_symlinks=False)

    def xattr(self):
        path = self.random.choice([self.regular(), self.random.choice(self.folders())])
        name = "user." + self.random.choice("abc")
        if name in os.listxattr(path) and self.random.random() < 0.4:
            os.removexattr(path, name)
        else:
            os.setxattr(path, name, self.random.randbytes(self.random.randrange(200)))

    def copy(self):
        shutil.copyfile(self.regular(), self.new_path())

    def make_folder(self):
        folder = self.new_path()
        os.mkdir(folder)
        for _ in range(self.random.randrange(4)):
            self.write(os.path.join(folder, b"in%d" % self.random.randrange(100)), self.bytes())

    def delete_folder(self):
        if len(self.folders()) > 6:
            shutil.rmtree(self.random.choice(self.folders()[1:]))

    def rename_folder(self):
        folders = self.folders()[1:]
        if folders:
            old, new = self.random.choice(folders), self.new_path()
            if not new.startswith(old + b"/"):
                os.rename(old, new)

    def other_kind(self):
        """A folder takes a file's name, or a link does, or a file a folder's."""
        path = self.regular()
        os.unlink(path)
        if self.random.random() < 0.5:
            os.mkdir(path)
            self.write(os.path.join(path, b"inside"), self.bytes())
        else:
            os.symlink(b"elsewhere", path)
        if len(self.folders()) > 6:
            folder = self.random.choice(self.folders()[1:])
            shutil.rmtree(folder)
            self.write(folder, self.bytes())

    def fifo(self):
        os.mkfifo(self.new_path())

    def large(self):
        """One large file for each tree, so that large ones stay few."""
        path = os.path.join(self.root, b"large")
        if os.path.lexists(path) and not os.path.isfile(path):
            return
        self.write(path, self.random.randbytes(self.random.randrange(2 << 20, 6 << 20)))

    def biggest(self):
        return max(self.entries(stat.S_ISREG) or [self.add()], key=os.path.getsize)

    def insert(self):
        self.splice(self.random.randrange(100_000), 0)

    def cut_out(self):
        self.splice(0, self.random.randrange(100_000))

    def splice(self, inserted, removed):
        path = self.biggest()
        with open(path, "rb") as file:
            content = file.read()
        at = self.random.randrange(len(content) + 1)
        if len(content) < 8 << 20:
            self.write(path, content[:at] + self.random.randbytes(inserted) + content[at + removed:])

    def empty(self):
        self.write(self.new_path(), b"")

    def rewrite(self):
        """As many programs save: a new file takes the old one's name."""
        path, aside = self.regular(), self.new_path()
        self.write(aside, self.bytes())
        os.rename(aside, path)
