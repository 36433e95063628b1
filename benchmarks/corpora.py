#!/usr/bin/env python3
"""The trees that the agent and its peers are measured on; the same bytes for the same scale, wherever they are made.

corpora.py FOLDER NAME [--scale N]      makes FOLDER/NAME, an N-th of the full size

small   50,000 source-like files of 1 to 20 KiB, a hundred in a folder (350 MB)
large   1 GiB of random bytes, 1 GiB of text, a 1 GiB disk image of which two fifths of the pages are zeros
million 1,000,000 files of a line each, a thousand in a folder, for what a file costs in memory

EDIT has what turns them into their second generation.
"""
import argparse
import itertools
import pathlib
import random

MIB = 1 << 20
PAGE = 4096


class Text:
    """Lines as sources have them: few words and few lines often, many rarely, and most lines much like one nearby.

    zstd at level 3 brings pieces of 256 KiB down to a fifth, as it does with Python's library, and as fast.
    """

    def __init__(self, seed):
        self.random = random.Random(seed)
        letters = "etaoinshrdlucmfwypvbgkqjxz_"
        words = ["".join(self.random.choices(letters, weights=range(27, 0, -1), k=self.random.randrange(2, 11)))
                 for _ in range(20000)]
        weights = list(itertools.accumulate(1 / (rank + 1) for rank in range(len(words))))
        signs = [" = ", "(", ", ", ") {", ";", " + ", "->", ".", " // ", ": ", " < ", "[", "] = "]
        self.lines = []
        for _ in range(60000):
            chosen = self.random.choices(words, cum_weights=weights, k=self.random.randrange(1, 7))
            between = self.random.choices(signs, k=len(chosen))
            self.lines.append(" " * 4 * self.random.randrange(4) + "".join(map("".join, zip(chosen, between))) + "\n")
        self.weights = list(itertools.accumulate(1 / (rank + 20) for rank in range(len(self.lines))))

    def make(self, size):
        """About so many bytes."""
        count = size // 24 + 1
        lines = self.random.choices(self.lines, cum_weights=self.weights, k=count)
        for at, back in enumerate(self.random.choices(range(1, 200), k=count)):
            if back <= at and self.random.random() < 0.6:
                lines[at] = lines[at - back]
            elif at % 20 == 0:
                lines[at] = f"    unique_{self.random.getrandbits(64):x};\n"
        text = "".join(lines).encode()
        while len(text) < size:
            text += text
        return text[:size]


def make_small(folder, scale=1):
    text = Text(1)
    for number in range(50000 // scale):
        path = folder / f"d{number // 100:03}" / f"f{number}.c"
        if number % 100 == 0:
            path.parent.mkdir(parents=True)
        path.write_bytes(text.make(int(text.random.triangular(1024, 20480, 1024))))


def make_large(folder, scale=1):
    folder.mkdir(parents=True)
    size = 1024 // scale
    generator = random.Random(2)
    text = Text(3)
    with open(folder / "random", "wb") as file:
        for _ in range(size):
            file.write(generator.randbytes(MIB))
    with open(folder / "text", "wb") as file:
        for _ in range(size):
            file.write(text.make(MIB))
    with open(folder / "image", "wb") as file:
        for _ in range(size):
            pieces = []
            while len(pieces) < MIB // PAGE:
                pages = generator.randrange(1, 64)
                kind = generator.random()
                if kind < 0.4:
                    content = bytes(pages * PAGE)
                elif kind < 0.6:
                    content = generator.randbytes(pages * PAGE)
                else:
                    content = text.make(pages * PAGE)
                pieces += [content[at:at + PAGE] for at in range(0, len(content), PAGE)]
            file.write(b"".join(pieces[:MIB // PAGE]))


def edit_small(folder):
    """One file in a hundred gets a line, one in a thousand goes, one in a thousand is new."""
    generator = random.Random(4)
    text = Text(5)
    for number, path in enumerate(sorted(folder.rglob("*.c"))):
        if number % 100 == 0:
            content = path.read_bytes()
            at = content.find(b"\n", generator.randrange(len(content))) + 1
            path.write_bytes(content[:at] + b"    edited();\n" + content[at:])
        elif number % 1000 == 1:
            path.unlink()
        elif number % 1000 == 2:
            (path.parent / f"new{number}.c").write_bytes(text.make(5000))


def edit_large(folder):
    """In each file 20 pieces of 64 KiB are overwritten, and some bytes inserted in the middle."""
    generator = random.Random(5)
    for path in sorted(folder.iterdir()):
        size = path.stat().st_size
        with open(path, "r+b") as file:
            for _ in range(20):
                file.seek(generator.randrange(size - 65536))
                file.write(generator.randbytes(65536))
            file.seek(size // 2)
            rest = file.read()
            file.seek(size // 2)
            file.write(b"inserted bytes" + rest)


def make_million(folder, scale=1):
    for number in range(1000000 // scale):
        path = folder / f"d{number // 1000:03}" / f"a file with the number {number}.c"
        if number % 1000 == 0:
            path.parent.mkdir(parents=True)
        path.write_text(f"this is {number}\n")


MAKE = {"small": make_small, "large": make_large, "million": make_million}
EDIT = {"small": edit_small, "large": edit_large, "million": edit_small}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("folder", type=pathlib.Path)
    parser.add_argument("name", choices=MAKE)
    parser.add_argument("--scale", type=int, default=1)
    options = parser.parse_args()
    MAKE[options.name](options.folder / options.name, options.scale)


if __name__ == "__main__":
    main()
