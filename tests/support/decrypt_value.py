#!/usr/bin/python3
"""Tries the vectors of known_answers.txt, without the product's code.

usage: decrypt_value.py VECTORS    exit status 1 when one does not come out as the file says

docs/encrypted-value.md describes every step. Needs Debian's python3-cryptography.
"""
import base64
import binascii
import functools
import re
import sys

from cryptography.exceptions import InvalidSignature, InvalidTag
from cryptography.hazmat.primitives import hashes, hmac, padding
from cryptography.hazmat.primitives.ciphers import Cipher, algorithms, modes
from cryptography.hazmat.primitives.ciphers.aead import AESGCM
from cryptography.hazmat.primitives.kdf.hkdf import HKDF
from cryptography.hazmat.primitives.kdf.pbkdf2 import PBKDF2HMAC

# Digit: bytes of the nonce, of a block of the cipher text, of the tag.
SHAPES = {b"1": (16, 16, 32), b"2": (12, 1, 16)}


class Forged(Exception):
    """The text has the right form, and tag or padding is wrong."""


def classify(content):
    """What a key file is: ("key", 32 bytes), ("passphrase", its bytes), ("refused", b"")."""
    if not 0 < len(content) <= 4096:
        return "refused", b""
    if len(content) == 32:
        return "key", content
    content = re.sub(rb"\r?\n\Z", b"", content)
    if re.fullmatch(rb"[0-9A-Fa-f]{64}", content):
        return "key", binascii.unhexlify(content)
    if re.fullmatch(rb"[A-Za-z0-9+/]{43}=", content):
        return "key", base64.b64decode(content)
    return ("passphrase", content) if content else ("refused", b"")


@functools.lru_cache(maxsize=None)
def initial_key(content, salt):
    """The 32 bytes that the content of an initial key file stands for."""
    kind, key = classify(content)
    if kind == "passphrase":
        return PBKDF2HMAC(hashes.SHA256(), 32, salt, 600000).derive(key)
    return key


def parse(stored):
    """Header and the three binary fields of a value. ValueError: it is malformed."""
    match = re.fullmatch(rb"(<VEK>([12]))!([^!]*)!([^!]*)!([^!]*)", stored)
    if not match or len(stored) > 1024:
        raise ValueError("not a value")
    nonce, encrypted, tag = fields = [base64.b64decode(field) for field in match.groups()[2:]]
    if [base64.b64encode(field) for field in fields] != list(match.groups()[2:]):
        raise ValueError("not canonical base64")
    nonce_length, block, tag_length = SHAPES[match[2]]
    lengths = len(nonce), len(tag)
    if lengths != (nonce_length, tag_length) or not encrypted or len(encrypted) % block:
        raise ValueError("wrong length")
    return match[1], nonce, encrypted, tag


def decrypt(stored, key, salt):
    header, nonce, encrypted, tag = parse(stored)
    try:
        if header == b"<VEK>2":
            derived = HKDF(hashes.SHA256(), 32, salt, header).derive(key)
            return AESGCM(derived).decrypt(nonce, encrypted + tag, header)
        derived = HKDF(hashes.SHA256(), 64, salt, header).derive(key)
        authenticator = hmac.HMAC(derived[32:], hashes.SHA256())
        authenticator.update(stored[: stored.rindex(b"!") + 1])
        authenticator.verify(tag)
        decryptor = Cipher(algorithms.AES(derived[:32]), modes.CBC(nonce)).decryptor()
        unpadder = padding.PKCS7(128).unpadder()
        padded = decryptor.update(encrypted) + decryptor.finalize()
        clear = unpadder.update(padded) + unpadder.finalize()
    except (InvalidSignature, InvalidTag, ValueError) as error:
        raise Forged from error
    if not clear:
        raise ValueError("no content")
    return clear


def verdict(stored, key, salt):
    try:
        return decrypt(stored, key, salt)
    except Forged:
        return "forged"
    except ValueError:
        return "malformed"


def bytes_of(text):
    """The bytes of a TEXT, as the top of known_answers.txt describes it."""
    text = "" if text == "-" else text
    text = re.sub(r"(.)\*(\d+)", lambda match: match[1] * int(match[2]), text)
    return re.sub(rb"%(..)", lambda match: bytes.fromhex(match[1].decode()), text.encode())


class Vectors:
    """A method for each kind of line, which returns what came out and what should have."""

    def __init__(self):
        self.settings, self.keys = {}, {}

    def answer(self, name, key_file, clear, stored):
        salt, first, second = (self.settings[word] for word in ("salt", "first", "second"))
        self.keys[name] = (bytes(a ^ b for a, b in zip(first, reversed(second)))
                           if key_file == "default"
                           else initial_key(bytes.fromhex(key_file), salt))
        return verdict(stored.encode(), self.keys[name], salt), bytes.fromhex(clear)

    def refusal(self, _, answer, expected, text):
        return verdict(bytes_of(text), self.keys[answer], self.settings["salt"]), expected

    def fingerprint(self, answer, digits):
        info, salt = b"key fingerprint", self.settings["salt"]
        return HKDF(hashes.SHA256(), 8, salt, info).derive(self.keys[answer]).hex(), digits

    @staticmethod
    def keyfile(_, text, kind, key):
        content = bytes_of(text)
        expected = {"key": bytes.fromhex, "passphrase": lambda n: content[:int(n)],
                    "refused": lambda _: b""}
        return classify(content), (kind, expected[kind](key))


def main(path):
    vectors, checked, wrong = Vectors(), 0, 0
    for line in open(path, encoding="ascii"):
        word, *fields = line.split() or ["#"]
        if len(fields) == 1:
            vectors.settings[word] = bytes.fromhex(fields[0])
        elif word != "#":
            result, expected = getattr(vectors, word)(*fields)
            checked += 1
            if result != expected:
                wrong += 1
                print(f"{fields[0]}: {result!r} instead of {expected!r}")
    print(f"{checked} vectors tried, {wrong} wrong")
    return 1 if wrong or not checked else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
