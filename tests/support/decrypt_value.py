#!/usr/bin/python3
"""Decrypts the values of known_answers.txt, without the product's code.

usage: decrypt_value.py ANSWERS    exit status 1 when a value does not come out as the file says

docs/encrypted-value.md describes every step. Needs Debian's python3-cryptography.
"""
import base64
import binascii
import functools
import sys

from cryptography.exceptions import InvalidSignature, InvalidTag
from cryptography.hazmat.primitives import hashes, hmac, padding
from cryptography.hazmat.primitives.ciphers import Cipher, algorithms, modes
from cryptography.hazmat.primitives.ciphers.aead import AESGCM
from cryptography.hazmat.primitives.kdf.hkdf import HKDF
from cryptography.hazmat.primitives.kdf.pbkdf2 import PBKDF2HMAC


@functools.lru_cache(maxsize=None)
def initial_key(content, salt):
    """The 32 bytes that the content of an initial key file stands for."""
    if len(content) == 32:
        return content
    for line_end in (b"\r\n", b"\n"):
        if content.endswith(line_end):
            content = content[: -len(line_end)]
            break
    try:
        if len(content) == 64:
            return binascii.unhexlify(content)
        if len(content) == 44 and len(base64.b64decode(content, validate=True)) == 32:
            return base64.b64decode(content)
    except binascii.Error:
        pass
    return PBKDF2HMAC(hashes.SHA256(), 32, salt, 600000).derive(content)


def decrypt(stored, key, salt):
    header, nonce, encrypted, tag = stored.split(b"!")
    nonce, encrypted, tag = (base64.b64decode(field, validate=True) for field in (nonce, encrypted, tag))
    if header == b"<VEK>2":
        derived = HKDF(hashes.SHA256(), 32, salt, header).derive(key)
        return AESGCM(derived).decrypt(nonce, encrypted + tag, header)
    if header != b"<VEK>1":
        raise ValueError("unknown label or algorithm")
    derived = HKDF(hashes.SHA256(), 64, salt, header).derive(key)
    authenticator = hmac.HMAC(derived[32:], hashes.SHA256())
    authenticator.update(stored[: stored.rindex(b"!") + 1])
    authenticator.verify(tag)
    decryptor = Cipher(algorithms.AES(derived[:32]), modes.CBC(nonce)).decryptor()
    unpadder = padding.PKCS7(128).unpadder()
    return unpadder.update(decryptor.update(encrypted) + decryptor.finalize()) + unpadder.finalize()


def main(path):
    settings, checked, wrong = {}, 0, 0
    for line in open(path, encoding="ascii"):
        fields = line.split()
        if not fields or fields[0].startswith("#"):
            continue
        if fields[0] != "answer":
            settings[fields[0]] = bytes.fromhex(fields[1])
            continue
        _, name, key_file, clear, stored = fields
        if key_file == "default":
            key = bytes(a ^ b for a, b in zip(settings["first"], reversed(settings["second"])))
        else:
            key = initial_key(bytes.fromhex(key_file), settings["salt"])
        try:
            result = decrypt(stored.encode(), key, settings["salt"])
        except (InvalidSignature, InvalidTag, ValueError) as error:
            result = repr(error)
        checked += 1
        if result != bytes.fromhex(clear):
            wrong += 1
            print(f"{name}: {result!r} instead of {bytes.fromhex(clear)!r}")
    print(f"{checked} values decrypted, {wrong} wrong")
    return 1 if wrong or not checked else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
