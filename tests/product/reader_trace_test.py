"""What the readers leave in the trace, record by record, is in tests/data/reader_trace.txt: entries
(">") and exits ("<") of functions by number, and texts. Times, lines of the source, addresses and
encrypted values are left out; of all readings but the first, so are lines of the file, lists and
lookups.

With the argument --write the records become the expected ones. The working folder is empty."""

import difflib
import os
import pathlib
import re
import subprocess
import sys

SOURCE = pathlib.Path(os.environ["VEK_SOURCE"])
BUILD = pathlib.Path(os.environ["VEK_BUILD"])
EXPECTED = SOURCE / "tests/data/reader_trace.txt"
RECORD = re.compile(r"\S+ \S+ (\w+) +16:(\d+) (.*)")
DETAILS = re.compile(r" *[<>] (22\d|23[1-8]|24[1-3])\b.*\n| *Read config line: .*\n|"
                     r".* (Getting key|Config file does not contain) .*\n")

PEM = "pem.private = k\npem.public = c\n"
PKCS11 = "pkcs11.library = l\npkcs11.certificate = c\npkcs11.token = t\n"
HUB = "pem.private.channel.HUB = k\npem.public.channel.HUB = c\n"
CMS = "cms.keystore = k\ncms.certificate = c\ncms.certificate.channel.HUB = c\n"
# Arguments of print_section, lines of the file, and the key file that the environment names.
READINGS = [
    ("pem", PEM + "pem.encrypted = YES\npem.password = {}\n", "key"),
    ("pem", PEM + "pem.password = p\n", ""),
    ("pem", "pem.encrypted = MAYBE\n", ""),
    ("pem", PEM + "pem.encrypted = YES\npem.password = {}\n", ""),
    ("pem", PEM + "pem.encrypted = YES\npem.password = {}\nvekcred.keyfile = key\n", ""),
    ("pem", PEM + "pem.encrypted = YES\npem.password = {}\nvekcred.keyfile = none\n", ""),
    ("pem", PEM + "pem.encrypted = YES\npem.password = {}\n", "none"),
    ("pem", PEM + "pem.encrypted = YES\n" + "vekcred.keyfile = key\n" * 2, ""),
    ("pem", "pem.private\n", ""),
    ("pem", "cms.keystore = k\n", ""),
    ("pem", "", ""),
    ("-c HUB pem", HUB + "pem.password.channel.HUB = p\n", ""),
    ("-c HUB pem", HUB + "pem.encrypted.channel.HUB = yes\npem.password.channel.HUB = {}\n", "key"),
    ("-c HUB pem", "pem.encrypted.channel.HUB = MAYBE\n", ""),
    ("pkcs11", PKCS11 + "pkcs11.encrypted = YES\npkcs11.token_pin = {}\n", "key"),
    ("pkcs11", PKCS11 + "pkcs11.token_pin = p\n", ""),
    ("pkcs11", "pkcs11.encrypted = MAYBE\n", ""),
    ("crl", "crl.encrypted = NO\n", ""),
    ("crl", "crl.encrypted = YES\ncrl.ldap.host = h\n", "key"),
    ("crl", "crl.encrypted = MAYBE\n", ""),
    ("crl", "crl.log = yes\n", ""),
    ("ocsp", "ocsp.enable = yes\n", ""),
    ("ocsp", "ocsp.unknown = MAYBE\n", ""),
    ("ocsp", "ocsp.signature = 3\n", ""),
    ("ocsp", "ocsp.log = yes\n", ""),
    ("cms", CMS, ""),
    ("cms", CMS + "cms.fips = MAYBE\n", ""),
    ("cms", CMS + "cms.keystore = twice\n", ""),
    ("cms", "cms.fips = no\n", ""),
    ("-c HUB cms", CMS, ""),
    ("-c HUB --cache cms", CMS, ""),
    ("-c HUB --cache pem", CMS, ""),
]


def shortened(line):
    kind, function, text = RECORD.fullmatch(line).groups()
    indent, text = re.fullmatch(r"( *)(.*)", text).groups()
    if kind == "parms":
        text = re.sub(r"^\[(.*?):\d+\] ", "", text)
        text = re.sub(r"^(lib/vek/\w+) : \d+", r"\1 : N", text)
        text = re.sub(r"<VEK>[^']+", "<VEK>", text)
        text = re.sub(r"configuration 0x\w+", "configuration ADDRESS", text)
        return f"{indent}{text}\n"
    return f"{indent}{'>' if kind == 'entry' else '<'} {function} {text}".rstrip() + "\n"


def trace_of(arguments, lines, key_file):
    for file in ("trace", "keystore.conf"):
        pathlib.Path(file).unlink(missing_ok=True)
    if lines:
        pathlib.Path("keystore.conf").write_text(lines)
    environment = dict(os.environ, ZTS_TRACE="trace", ZTS_KEYSTORE_CONF="keystore.conf")
    if key_file:
        environment["ZTS_VEKCRED_KEYFILE"] = key_file
    subprocess.run([BUILD / "tests/print_section", *arguments.split(), "keystore.conf"],
                   env=environment, capture_output=True, check=False)
    return "".join(map(shortened, pathlib.Path("trace").read_text().splitlines()))


pathlib.Path("key").write_text("a key of exactly thirty-two byte")
pathlib.Path("clear").write_text("pem.password = p\n")
subprocess.run([BUILD / "bin/runvekcred", "-f", "clear", "-sf", "key"], capture_output=True,
               check=True)
stored = re.search(r"<VEK>.*", pathlib.Path("clear").read_text())[0]
records = ""
for number, (arguments, lines, key_file) in enumerate(READINGS):
    trace = trace_of(arguments, lines.replace("{}", stored), key_file)
    records += f"== {arguments}: {lines.splitlines()[-1:]} {key_file}\n"
    records += trace if number == 0 else DETAILS.sub("", trace)
if "--write" in sys.argv:
    EXPECTED.write_text(records)
difference = difflib.unified_diff(EXPECTED.read_text().splitlines(True), records.splitlines(True),
                                  "expected", "traced")
sys.exit("".join(difference) or 0)
