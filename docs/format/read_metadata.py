#!/usr/bin/env python3
"""Reads a storage's metadata file as metadata-file.md describes it. Needs the program zstd, and
sealed.py for what is encrypted.

    read_metadata.py [--keys KEYS] FILE                 lists the entries
    read_metadata.py [--keys KEYS] FILE PATH BLOCKS     writes a file's content to standard output

KEYS is a file of keys, as "sealed.py keys" prints it, or one of recovery keys.
"""
import bisect
import hashlib
import os
import subprocess
import sys

sealed = None  # loaded when there are keys: nothing else needs more than Python's own library
NO_KEY = bytes(16)


def check(condition, message):
    if not condition:
        sys.exit(message)


def unstore(codec, stored):
    if codec == 0:
        return stored
    check(codec == 1, "codec is not known")
    return subprocess.run(["zstd", "-dc"], input=stored, stdout=subprocess.PIPE, check=True).stdout


class Cursor:
    def __init__(self, data):
        self.data, self.at = data, 0

    def bytes(self, size):
        check(self.at + size <= len(self.data), "cut off")
        self.at += size
        return self.data[self.at - size:self.at]

    def fixed(self, size):
        return int.from_bytes(self.bytes(size), "little")

    def varint(self):
        value = shift = 0
        while True:
            byte = self.fixed(1)
            value |= (byte & 0x7F) << shift
            shift += 7
            if byte < 0x80:
                return value

    def signed(self):
        value = self.varint()
        return value // 2 if value % 2 == 0 else -(value // 2) - 1

    def counted(self):
        return self.bytes(self.varint())


def read_entry(data):
    c = Cursor(data)
    entry = {"type": c.fixed(1), "size": 0, "target": b"", "segments": []}
    fields = c.varint()
    entry["mode"], entry["uid"], entry["gid"] = c.varint(), c.varint(), c.varint()
    entry["mtime"], entry["ctime"] = (c.signed(), c.varint()), (c.signed(), c.varint())
    entry["device"], entry["inode"] = c.varint(), c.varint()
    if fields & 2:
        entry["btime"] = (c.signed(), c.varint())
    if fields & 4:
        entry["size"] = c.varint()
    if fields & 8:
        entry["rdev"] = c.varint()
    if fields & 16:
        entry["target"] = c.counted()
    if fields & 32:
        entry["xattrs"] = [(c.counted(), c.counted()) for _ in range(c.varint())]
    if fields & 64:
        file_end = stream_end = 0
        for _ in range(c.varint()):
            offset, stream, length = file_end + c.varint(), stream_end + c.signed(), c.varint()
            entry["segments"].append((offset, stream, length))
            file_end, stream_end = offset + length, stream + length
    if fields & 128:
        entry["sha256"] = c.bytes(32)
    check(c.at == len(data), "an entry is too long")
    return entry


def read_bank(plain, blocks, chunks, entries):
    c = Cursor(plain)
    stream_end = block = block_end = 0
    while c.at < len(plain):
        kind = c.fixed(1)
        if kind == 1:
            blocks.append((c.bytes(16).hex(), c.bytes(16), c.fixed(4), c.fixed(8)))
        elif kind == 2:
            stream, plain_size, stored_size = stream_end + c.varint(), c.varint(), c.varint()
            delta = c.signed()
            offset = c.signed() + (block_end if delta == 0 else 0)
            block += delta
            chunks.append((stream, plain_size, block, offset, stored_size, c.fixed(1), c.bytes(32)))
            stream_end, block_end = stream + plain_size, offset + stored_size
        elif kind == 3:
            path = c.counted()
            entries[path] = read_entry(c.counted())
        elif kind == 4:
            del entries[c.counted()]
        else:
            sys.exit("record kind is not known")


def read_file(path, keys):
    with open(path, "rb") as file:
        data = file.read()
    check(data[:8] == b"CBMETA\r\n", "not a metadata file")
    check(hashlib.sha256(data[:8160]).digest() == data[8160:8192], "the header is damaged")
    header = Cursor(data)
    header.at = 8
    check(header.fixed(4) == 1 and header.fixed(4) == 8192, "not this format")
    check(header.fixed(4) == 0, "newer")
    encryption, key_id, storage = header.fixed(4), header.bytes(16), header.bytes(16)
    check(encryption == (0 if key_id == NO_KEY else 1), "encryption is not known")
    check(sealed or encryption == 0, "encrypted: its keys are needed")
    header.at = 112
    blocks, chunks, entries = [], [], {}
    for bank in range(header.fixed(4)):
        header.at = 480 + 64 * bank
        offset, stored_size, plain_size, codec = (header.fixed(size) for size in (8, 8, 8, 1))
        header.at += 7
        stored = data[offset:offset + stored_size]
        check(hashlib.sha256(stored).digest() == header.bytes(32), "a bank is damaged")
        if encryption == 1:
            stored = sealed.open_bank(sealed.find_key(keys, key_id.hex()), storage, offset, stored)
        plain = unstore(codec, stored)
        check(len(plain) == plain_size, "a bank has another size")
        read_bank(plain, blocks, chunks, entries)
    return blocks, chunks, entries


def read_chunk(chunk, blocks, folder, keys):
    stream, plain_size, block, offset, stored_size, codec, sha256 = chunk
    name, key_id = blocks[block][:2]
    with open(os.path.join(folder, name[:2], name), "rb") as file:
        file.seek(offset)
        stored = file.read(stored_size)
    if key_id != NO_KEY:
        stored = sealed.open_chunk(sealed.find_key(keys, key_id.hex()), sha256, stored, name)
    plain = unstore(codec, stored)
    check(hashlib.sha256(plain).digest() == sha256, f"a chunk is damaged, in block {name}")
    return plain


def write_zeros(size, out):
    for begin in range(0, size, 1 << 20):
        out.write(bytes(min(1 << 20, size - begin)))


def write_content(entry, blocks, chunks, folder, keys, out):
    starts = [chunk[0] for chunk in chunks]
    written = 0
    for file_offset, stream_offset, length in entry["segments"]:
        write_zeros(file_offset - written, out)
        stream, end = stream_offset, stream_offset + length
        at = bisect.bisect_right(starts, stream) - 1
        while stream < end:
            begin, size = chunks[at][:2]
            check(begin <= stream < begin + size, "a segment has no chunk")
            plain = read_chunk(chunks[at], blocks, folder, keys)[stream - begin:end - begin]
            out.write(plain)
            stream += len(plain)
            at += 1
        written = file_offset + length
    write_zeros(entry["size"] - written, out)


def list_entries(entries):
    for path, entry in sorted(entries.items(), key=lambda item: item[0].split(b"/")):
        kind = "?dflhpcb"[entry["type"]]
        link = " -> " + os.fsdecode(entry["target"]) if entry["target"] else ""
        print(f"{kind} {entry['mode']:04o} {entry['uid']}:{entry['gid']} {entry['size']:>12} "
              f"{entry['mtime'][0]}.{entry['mtime'][1]:09} {os.fsdecode(path)}{link}")


def main(arguments):
    keys = {}
    if arguments[0] == "--keys":
        global sealed
        import sealed
        keys, arguments = sealed.load_keys(arguments[1]), arguments[2:]
    blocks, chunks, entries = read_file(arguments[0], keys)
    chunks.sort()
    if len(arguments) == 1:
        sys.stdout.reconfigure(errors="surrogateescape")
        list_entries(entries)
        return
    path = os.fsencode(arguments[1])
    check(path in entries, "there is no such entry")
    entry = entries[path]
    if entry["type"] == 4:
        entry = entries[entry["target"]]
    check(entry["type"] == 2, "not a file")
    write_content(entry, blocks, chunks, arguments[2], keys, sys.stdout.buffer)


if __name__ == "__main__":
    check(len(sys.argv) in ((2, 4) if sys.argv[1:2] != ["--keys"] else (4, 6)), __doc__)
    main(sys.argv[1:])
