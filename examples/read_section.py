#!/usr/bin/env python3
"""Reads the section "pem" of keystore.conf through the configuration library.

The record is declared here as ztvek.h declares it. Its size and offsets are fixed, and are checked
before the library is called, because a record that is too small would be overrun.
"""

import argparse
import ctypes
import os
import sys

ERROR_KEY_CAPACITY = 64


class PemConfig(ctypes.Structure):
    """SztouPemConfig. Texts are byte arrays: one that fills its field has no terminator."""

    _fields_ = [
        ("reserved", ctypes.c_ubyte * 1024),
        ("fips", ctypes.c_int32),
        ("forceFipsOff", ctypes.c_int32),
        ("privateKey", ctypes.c_ubyte * 1024),
        ("publicKey", ctypes.c_ubyte * 1024),
        ("password", ctypes.c_ubyte * 256),
        ("checkpurpose", ctypes.c_int32),
        ("encrypted", ctypes.c_int32),
    ]


def check_layout():
    layout = (ctypes.sizeof(PemConfig), PemConfig.privateKey.offset, PemConfig.password.offset)
    if layout != (3344, 1032, 3080):
        sys.exit("read_section.py: this declaration of the record is not the library's")


def load_library(path):
    try:
        library = ctypes.CDLL(path)
    except OSError as error:
        sys.exit(f"read_section.py: {error}")
    reader = library.sztouGetPemConfig
    reader.restype = ctypes.c_uint32
    reader.argtypes = [ctypes.POINTER(PemConfig), ctypes.c_char_p, ctypes.c_char_p]
    return reader


def text(field):
    return bytes(field).split(b"\0", 1)[0].decode("utf-8", "replace")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("file", nargs="?", help="keystore.conf; default: its standard place")
    parser.add_argument("--library", default="libztvek_r.so.1", help="default: %(default)s")
    parser.add_argument("--show-credentials", action="store_true", help="print the password too")
    arguments = parser.parse_args()

    check_layout()
    reader = load_library(arguments.library)
    path = None if arguments.file is None else os.fsencode(arguments.file)
    config = PemConfig()
    error_key = ctypes.create_string_buffer(ERROR_KEY_CAPACITY)
    try:
        result = reader(ctypes.byref(config), path, error_key)
        if result != 0:
            key = error_key.value.decode()
            code = f"result {result}" if result < 256 else f"reason 0x{result:08X}"
            sys.exit(f'read_section.py: "{key}" cannot be read: {code}')
        print("privateKey =", text(config.privateKey))
        print("publicKey =", text(config.publicKey))
        print("fips =", "yes" if config.fips else "no")
        print("checkpurpose =", "yes" if config.checkpurpose == 2 else "no")
        print("encrypted =", "yes" if config.encrypted else "no")
        if arguments.show_credentials:
            print("read_section.py: the password is shown in clear", file=sys.stderr)
            print("password =", text(config.password))
    finally:
        # The record can hold the password, after a failure too.
        ctypes.memset(ctypes.byref(config), 0, ctypes.sizeof(config))


if __name__ == "__main__":
    main()
