#!/usr/bin/python3
"""No credential and no key is left behind: runs end in a debugger, and all their memory, their
messages and their trace are searched for pieces of them."""
import os
import re
import secrets
import struct
import subprocess
import sys
import tempfile

import decrypt_value
import new_content
from cryptography.hazmat.primitives import hashes
from cryptography.hazmat.primitives.kdf.hkdf import HKDF

os.environ["ZTS_TRACE"] = ""
BUILD = os.environ["VEK_BUILD"]
COMMAND = os.path.join(BUILD, "bin/runvekcred")
VEKCTL = os.path.join(BUILD, "bin/vekctl")
PIECE, STEP = 8, 4  # any 11 bytes of a secret in a row are found
EACH_PIECE = 6, 1  # of what vekctl has to do with
SKIPPED = 77
# A process that has switched its dumps off shows its memory to root alone, so that call is left
# out.
SCRIPT = b"""set confirm off
set startup-with-shell off
set breakpoint pending on
set use-coredump-filter off
set dump-excluded-mappings on
tbreak prctl
commands
return (int)0
continue
end
catch syscall exit_group
run
gcore core
print $rdi
"""


def token(length):
    return secrets.token_hex(length)[:length].encode()


CREDENTIALS = {b"pem.password": token(24), b"pkcs11.token_pin": token(24),
               b"crl.ldap.pass": token(24)}
TOO_LONG = token(900)
RAW, OTHER = secrets.token_bytes(32), secrets.token_bytes(32)
KEY_FILES = {"raw": RAW, "hexadecimal": RAW.hex().encode() + b"\n", "long": token(4097),
             "base64": decrypt_value.base64.b64encode(RAW), "passphrase": token(40) + b"\n"}
failures = []


def wanted_of(key_file):
    """All credentials, the content of the key file and everything that is derived from it."""
    first, second = (bytes.fromhex(re.search(rf"^{name} (\w+)", open(new_content.ANSWERS).read(),
                                             re.M)[1])
                     for name in ("first", "second"))
    content = KEY_FILES.get(key_file, bytes(a ^ b for a, b in zip(first, reversed(second))))
    key = decrypt_value.initial_key(content, new_content.SALT)
    derived = [HKDF(hashes.SHA256(), length, new_content.SALT, b"<VEK>%d" % digit).derive(key)
               for length, digit in ((64, 1), (32, 2))]
    return {**CREDENTIALS, "too long": TOO_LONG, "key file": content, "key": key,
            "derived": b"".join(derived)}


def memory_of(core):
    """The segments of an ELF core file, without its notes: registers are no memory."""
    table, = struct.unpack_from("<Q", core, 32)
    count, = struct.unpack_from("<H", core, 56)
    segments = [struct.unpack_from("<IIQQQQ", core, table + 56 * i) for i in range(count)]
    return b"".join(core[offset:offset + size] for kind, _, offset, _, _, size in segments
                    if kind == 1)


def search(name, place, data, wanted, piece=PIECE, step=STEP):
    for secret_name, secret in wanted.items():
        found = [i for i in range(0, len(secret) - piece + 1, step) if secret[i:i + piece] in data]
        if found:
            pieces = f"pieces at bytes {found} of {len(secret)}"
            failures.append(f"{name}: {place}: {secret_name}, {pieces}")


def write(folder, name, content):
    with open(os.path.join(folder, name), "wb") as file:
        file.write(content)


def run(name, folder, command, status, wanted, environment, shown=(), value=b"", pieces=()):
    """Stops the program at its last system call and searches its memory and what it has written.
    What is shown stands in the messages, by design."""
    write(folder, "value", value)
    debugger = subprocess.run(["gdb", "-nx", "-q", "-batch", "-x", "script", "--args", *command],
                              cwd=folder, stdin=open(folder + "/value", "rb"),
                              env={**os.environ, **environment}, capture_output=True)
    os.unlink(folder + "/value")
    if not os.path.exists(folder + "/core"):
        print("skipped: tracing a process is not permitted here\n", debugger.stderr.decode())
        sys.exit(SKIPPED)
    memory = memory_of(open(folder + "/core", "rb").read())
    os.unlink(folder + "/core")
    if not debugger.stdout.endswith(b"$1 = %d\n" % status) or b"keystore.conf\0" not in memory:
        failures.append(f"{name}: {debugger.stdout[-200:]!r} instead of exit status {status}, "
                        "or no memory seen")
    messages = debugger.stdout + debugger.stderr
    if any(wanted[shown_name] not in messages for shown_name in shown):
        failures.append(f"{name}: does not show what it is for")
    search(name, "messages", messages, {key: secret for key, secret in wanted.items()
                                        if key not in shown}, *pieces)
    search(name, "memory", memory, wanted, *pieces)
    if "ZTS_TRACE" in environment:
        lines = open(folder + "/trace", "rb").readlines()
        parsed = [line for line in lines if b"Read config line" in line]
        assert 0 < len(parsed) < len(lines)
        search(name, "trace", b"".join(line for line in lines if line not in parsed), wanted,
               *pieces)


def run_command(folder, name, key_file, arguments, status=0, more=b"", environment=None):
    lines = b"".join(b"%b = %b\n" % item for item in CREDENTIALS.items())
    write(folder, "keystore.conf", lines + more)
    write(folder, "key", KEY_FILES.get(key_file, b""))
    run(name, folder, [COMMAND, "-f", "keystore.conf", *arguments], status, wanted_of(key_file),
        environment or {})


def run_readers(folder):
    more = (b"pem.private = k\npem.public = c\n"
            b"pkcs11.library = l\npkcs11.certificate = c\npkcs11.token = t\n")
    run_command(folder, "before the readers", "raw", ["-sf", "key"],
                more=more + b"crl.ldap.host = h\n")
    write(folder, "other", KEY_FILES["passphrase"])
    for section, key, status in (("pem", "key", 0), ("pkcs11", "key", 0), ("crl", "key", 0),
                                 ("pem", "other", 1)):
        run(f"reader of {section}", folder,
            [BUILD + "/tests/print_section", section, "keystore.conf"], status,
            {**wanted_of("raw"), "passphrase": KEY_FILES["passphrase"]},
            {"ZTS_VEKCRED_KEYFILE": key})
    write(folder, "keystore.conf", more + b"pem.encrypted = yes\npem.password = " + TOO_LONG)
    run("reader of a value in clear", folder,
        [BUILD + "/tests/print_section", "pem", "keystore.conf"], 1, wanted_of("raw"),
        {"ZTS_VEKCRED_KEYFILE": "key"})


def search_writes(folder):
    """The temporary file of a run that failed never held the credential at fault."""
    write(folder, "keystore.conf", b"pem.password = x\npem.password2 = " + TOO_LONG)
    subprocess.run(["strace", "-o", "writes", "-e", "trace=write", "-s", "9999", COMMAND, "-f",
                    "keystore.conf"],
                   cwd=folder, capture_output=True)
    search("temporary file", "writes", open(folder + "/writes", "rb").read(),
           {"too long": TOO_LONG})


SECTIONS = (b"pem.private = k\npem.public = c\ncrl.ldap.host = h\n"
            b"pkcs11.library = l\npkcs11.certificate = c\npkcs11.token = t\n")
NEW_VALUE = token(24)
# What is run, the state of the file before, the status, and what it shows or leaves by design.
VEKCTL_ROWS = [
    ("check --key key keystore.conf", "clear", 1),
    ("check --json --key key keystore.conf", "clear", 1),
    ("check --key key keystore.conf", "protected", 0),
    ("check --key other keystore.conf", "protected", 1),
    ("protect --key key keystore.conf", "clear", 0),
    ("protect --json --key key keystore.conf", "clear", 0),
    ("protect --dry-run --key passphrase keystore.conf", "clear", 0),
    ("protect --key key keystore.conf", "cut", 1),
    ("protect --key other keystore.conf", "protected", 1),
    ("rekey --from key --to other keystore.conf", "protected", 0),
    ("rekey --from other --to passphrase keystore.conf", "protected", 1),
    ("set --key key keystore.conf pem.password", "protected", 0),
    ("set --key key keystore.conf pem.private", "protected", 2),
    ("get --key key keystore.conf pem.password", "protected", 0, b"pem.password"),
    ("get --key other keystore.conf pem.password", "protected", 1),
    ("unprotect --key key keystore.conf", "protected", 0, *CREDENTIALS),
    ("unprotect --key key --output out keystore.conf", "protected", 0),
    ("show --key key pem keystore.conf", "protected", 0),
    ("keyinfo --key key keystore.conf", "protected", 1),  # others may read this key file
]


def files_left(folder, command):
    """All that lies there, but keys and what is in clear by design."""
    kept = {"script", "key", "other", "passphrase", "trace"}
    if "--output" in command:
        kept.add("out")
    if command[0] == "check" or "--dry-run" in command:
        kept.add("keystore.conf")
    return b"".join(open(f"{folder}/{name}", "rb").read()
                    for name in sorted(set(os.listdir(folder)) - kept))


def run_vekctl(folder, row, environment):
    line, state, status, *shown = row
    command = line.split()
    clear = b"".join(b"%b = %b\n" % item for item in CREDENTIALS.items()) + SECTIONS
    write(folder, "keystore.conf", clear)
    keys = {"key": RAW, "other": OTHER, "passphrase": KEY_FILES["passphrase"]}
    for name, content in keys.items():
        write(folder, name, content)
    if state == "protected":
        subprocess.run([VEKCTL, "protect", "--quiet", "--key", "key", "keystore.conf"], cwd=folder,
                       check=True)
    elif state == "cut":
        write(folder, "keystore.conf", clear.replace(b"\n", b"#more\n", 1))
    name = f"vekctl {line}, {state}"
    fingerprint = HKDF(hashes.SHA256(), 8, new_content.SALT, b"key fingerprint").derive(RAW)
    wanted = {**wanted_of("raw"), **keys, "new value": NEW_VALUE, "fingerprint": fingerprint}
    del wanted["too long"]
    run(name, folder, [VEKCTL, *command], status, wanted, environment, shown, NEW_VALUE + b"\n",
        EACH_PIECE)
    if state != "cut":
        search(name, "files", files_left(folder, command), wanted, *EACH_PIECE)
    for left in {"out", "trace"} & set(os.listdir(folder)):
        os.unlink(f"{folder}/{left}")


def main():
    os.umask(0o022)  # others who can write a key are a finding
    too_long = b"pem.password2 = " + TOO_LONG + b"\n"
    keyfile = b"vekcred.keyfile = key\n"
    rows = [
        ("default key", None, []),
        *((f"-sf {kind}", kind, ["-sf", "key"])
          for kind in ("raw", "hexadecimal", "base64", "passphrase")),
        ("algorithm 1", "raw", ["-sf", "key", "-sp", "1"]),
        ("algorithm 1, passphrase", "passphrase", ["-sf", "key", "-sp", "1"]),
        ("variable", "raw", [], 0, b"", {"ZTS_VEKCRED_KEYFILE": "key"}),
        ("configured key file", "raw", ["-o", "out"], 0, keyfile),
        ("trace", "raw", [], 0, keyfile, {"ZTS_TRACE": "trace"}),
        ("key file too long", "long", ["-sf", "key"], 82),
        ("credential too long", "raw", ["-sf", "key"], 85, too_long),
        ("kept behind a marker", "raw", ["-sf", "key"], 0, b"pem.encrypted = yes\n" + too_long),
        ("output cannot be opened", "raw", ["-sf", "key", "-o", "no/such"], 1),
    ]
    with tempfile.TemporaryDirectory() as folder:
        write(folder, "script", SCRIPT)
        for row in rows:
            run_command(folder, *row)
        run_readers(folder)
        search_writes(folder)
        for row in VEKCTL_ROWS:
            run_vekctl(folder, row, {})
        run_vekctl(folder, VEKCTL_ROWS[4], {"ZTS_TRACE": "trace"})
    print(f"{len(rows) + 7 + len(VEKCTL_ROWS) + 1} runs searched", *failures, sep="\n")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
