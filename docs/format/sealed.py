#!/usr/bin/env python3
"""Opens what an encrypted client has stored, as agent.md and repository.md describe it. Needs the Python packages
cryptography and argon2 (Debian: python3-cryptography, python3-argon2).

    sealed.py keys CONFIG SECRET                    prints the client's keys: CONFIG is its folder Config, SECRET a file
                                                    with the password in its first line, or a file of recovery keys
    sealed.py document KEYS CLIENT SET NUMBER       opens the document of a checkpoint, from standard input
"""
import base64
import hashlib
import hmac
import json
import os
import sys
import xml.etree.ElementTree as ElementTree

from cryptography.exceptions import InvalidTag
from cryptography.hazmat.primitives.ciphers.aead import AESGCM


def check(condition, message):
    if not condition:
        sys.exit(message)


def mac(key, text):
    return hmac.new(key, text, hashlib.sha256).digest()


def derive(key, purpose, subject=b""):
    return mac(mac(key, purpose), subject)


def key_id(key):
    return mac(key, b"cloudbackup key id")[:16].hex()


def unseal(key, context, sealed, what):
    """Nonce, ciphertext, tag; as in NIST SP 800-38D."""
    try:
        return AESGCM(key).decrypt(sealed[:12], sealed[12:], context)
    except InvalidTag:
        sys.exit(f"{what} is not what was sealed with this key")


def key_of_password(password, salt):
    import argon2.low_level as argon2
    check(len(salt) == 25 and salt[0] == 1, "the salt is of another kind")
    memory, passes = int.from_bytes(salt[1:5], "little"), int.from_bytes(salt[5:9], "little")
    return argon2.hash_secret_raw(password, salt[9:], time_cost=passes, memory_cost=memory, parallelism=1, hash_len=32,
                                  type=argon2.Type.ID, version=0x13)


class Fields:
    def __init__(self, data):
        self.data, self.at = data, 0

    def bytes(self, size):
        check(self.at + size <= len(self.data), "a key set is cut off")
        self.at += size
        return self.data[self.at - size:self.at]

    def number(self):
        return int.from_bytes(self.bytes(4), "little")

    def counted(self):
        return self.bytes(self.number())


def read_key_set(data):
    """The id, and the wrapped key by the id of its master key."""
    fields = Fields(data)
    check(fields.bytes(4) == b"CBKS" and fields.number() == 1, "a key set is of another kind")
    identity = fields.bytes(16).hex()
    fields.counted()  # hint
    fields.counted()  # material: none
    return identity, {fields.bytes(16).hex(): fields.counted() for _ in range(fields.number())}


def add_former_keys(keys, history):
    """The keys of the history, newest first, that those known already open."""
    for element in ElementTree.parse(history).getroot().findall("HistoricalKey"):
        former, wrapped = read_key_set(base64.b64decode(element.get("Value")))
        for master in wrapped.keys() & keys.keys():
            context = (former + master).encode()
            keys[former] = unseal(derive(keys[master], b"former keys"), context, wrapped[master], f"key {former}")
            check(key_id(keys[former]) == former, f"key {former} is another one")


def keys_of_client(config, secret):
    with open(secret, "rb") as file:
        text = file.read()
    if text.startswith(b"{") and b"cloudbackup recovery keys" in text:
        return load_keys(secret)
    record = ElementTree.parse(os.path.join(config, "ClientKeyInfo.xml")).getroot()
    key = key_of_password(text.split(b"\n")[0].removesuffix(b"\r"), base64.b64decode(record.get("Salt")))
    check(key_id(key) == record.get("Id"), "the password is wrong")
    keys = {key_id(key): key}
    history = os.path.join(config, "ClientKeyHistory.xml")
    if os.path.exists(history):
        add_former_keys(keys, history)
    return keys


def load_keys(path):
    with open(path, encoding="utf-8") as file:
        return {item["id"]: base64.b64decode(item["key"]) for item in json.load(file)["keys"]}


def find_key(keys, identity):
    check(identity in keys, f"there is no key {identity}")
    return keys[identity]


def open_document(keys, client, set_name, number, text):
    document = json.loads(text)
    check(document["version"] == 1, "not this format")
    key = derive(find_key(keys, document["key"]), b"document")
    return unseal(key, f"{client}/{set_name}/{number}".encode(), base64.b64decode(document["sealed"]), "the document")


def open_bank(key, storage, offset, sealed):
    return unseal(derive(key, b"metadata", storage), f"bank at {offset}".encode(), sealed, "a bank")


def open_chunk(key, sha256, sealed, block):
    return unseal(derive(key, b"chunk", sha256), b"", sealed, f"a chunk of block {block}")


def main(arguments):
    if arguments[:1] == ["keys"] and len(arguments) == 3:
        keys = [{"id": identity, "key": base64.b64encode(key).decode()}
                for identity, key in keys_of_client(*arguments[1:]).items()]
        print(json.dumps({"keys": keys}))
    elif arguments[:1] == ["document"] and len(arguments) == 5:
        sys.stdout.buffer.write(open_document(load_keys(arguments[1]), *arguments[2:], sys.stdin.buffer.read()))
    else:
        sys.exit(__doc__)


if __name__ == "__main__":
    main(sys.argv[1:])
