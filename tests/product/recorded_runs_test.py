"""What runs of the programs and of the readers leave, whole, is in tests/data/recorded_runs.txt:
the trace (not of vekctl) with entries (">") and exits ("<") of functions by number, what was said,
a changed keystore.conf, and the exit status. Times, lines of the source, addresses and encrypted
values are left out; of all runs but the first, so are lines of the file, lists and lookups.

With the argument --write the records become the expected ones."""

import difflib
import os
import pathlib
import re
import subprocess
import sys
import tempfile

SOURCE = pathlib.Path(os.environ["VEK_SOURCE"])
BUILD = pathlib.Path(os.environ["VEK_BUILD"])
EXPECTED = SOURCE / "tests/data/recorded_runs.txt"
RECORD = re.compile(r"20\d\d(?:-\d\d){2}T\d\d(?::\d\d){2}\.\d{6}Z \d+\.\d+ "
                    r"(entry|exit |parms) (\d+:\d+) (.*)")
DETAILS = re.compile(r" *[<>] 16:(22\d|23[1-8]|24[1-3])\b.*\n| *Read config line: .*\n|"
                     r".* (Getting key|Config file does not contain) .*\n")

PEM = "pem.private = k\npem.public = c\n"
STORED = PEM + "pem.encrypted = YES\npem.password = {}\n"
PKCS11 = "pkcs11.library = l\npkcs11.certificate = c\npkcs11.token = t\n"
HUB = "pem.private.channel.HUB = k\npem.public.channel.HUB = c\n"
STORED_HUB = HUB + "pem.encrypted.channel.HUB = yes\npem.password.channel.HUB = {}\n"
CMS = "cms.keystore = k\ncms.certificate = c\ncms.certificate.channel.HUB = c\n"
TWICE = "".join(f"{key} = 1\n" for key in ("cms.keystore", "ocsp.log", "crl.log") for _ in "12")
TWICE += PEM + "pem.fips = no\npem.fips = no\npkcs11.fips = no\npkcs11.fips = no\n"
CLEAR = "pem.password = p\n"
BOTH = "crl.ldap.pass = p\n" + STORED
KEY, NO_FIPS = "ZTS_VEKCRED_KEYFILE=key", "OPENSSL_CONF=/dev/null"
ODD = f"LD_PRELOAD={BUILD}/tests/libodd_platform.so"
NO_HOME = f"-u HOME -u ZTS_KEYSTORE_CONF {ODD}"
TRACER = "strace -fqq -e signal=none"
COMMAND = f"{BUILD}/bin/runvekcred"
PRINT = f"{BUILD}/tests/print_section"
IN_PLACE = f"{COMMAND} -f keystore.conf"
CTL = f"{BUILD}/bin/vekctl"
FILE = "keystore.conf"
# For check; lines that the readers refuse stand in the second one.
ODD_LINES = [
    "# crl.ldap.pass = x", "pem.password = 'two words'", "pem.passwords = y", "PEM.PASSWORD = z",
    "pem.encrypted.channel.shop=maybe", "pem.password.channel.shop = w", "crl.encrypted = yes",
    "crl.ldap.pass = clear", "crl.http.timeout = soon", "pkcs11.token_pin = {}", "pkcs11.tokn = t",
    "pkcs11.token_pin = {}", "pkcs11.token_pin = 3", "pem.password.channel.encrypted = YES",
    "ocsp.unknown = perhaps", "cms.certificate.channel.HUB = c", "vekcred.keyfile = key.txt"]
REFUSED_LINES = ["[pem]", "pem.password: x", "; crl.ldap.pass = x", "word", "pem.private =",
                 f"{'k' * 256} = v"]
SECTIONS = (PEM + PKCS11 + CMS + HUB + "pem.encrypted = YES\npem.password = {}\n"
            "pkcs11.token_pin = p\ncrl.ldap.host = h\ncrl.ldap.port = 636\nocsp.url = u\n")


def failing(call):
    return f"{TRACER} -o /dev/null -P keystore.conf -e inject={call}:error=EIO"


# A command, lines of keystore.conf, and what stands in front of the command.
RUNS = [
    (f"{PRINT} pem", STORED, KEY),
    (f"{PRINT} pem", PEM + CLEAR, ""),
    (f"{PRINT} pem", "pem.encrypted = MAYBE\n", ""),
    (f"{PRINT} pem", STORED, ""),
    (f"{PRINT} pem", STORED + "vekcred.keyfile = key\n", ""),
    (f"{PRINT} pem", STORED + "vekcred.keyfile = none\n", ""),
    (f"{PRINT} pem", STORED, "ZTS_VEKCRED_KEYFILE=none"),
    (f"{PRINT} pem", PEM + "pem.encrypted = YES\n" + "vekcred.keyfile = key\n" * 2, ""),
    (f"{PRINT} pem", STORED, f"{ODD} ODD_REFUSED_FUNCTION=369 ODD_REFUSED_LENGTH=32"),
    (f"{PRINT} pem", STORED, f"{ODD} ODD_REFUSED_FUNCTION=369 ODD_REFUSED_LENGTH=24"),
    (f"{PRINT} pem", "pem.private\n", ""),
    (f"{PRINT} pem", "cms.keystore = k\n", ""),
    (f"{PRINT} pem", STORED + "vekcred.keyfile = none\n", KEY),
    (COMMAND, CLEAR + "word\n", ""),
    *((f"{PRINT} {reader}", lines, "") for lines in ("", TWICE)
      for reader in ("cms", "ocsp", "pem", "pkcs11", "crl", "-c HUB cms", "-c HUB pem")),
    (f"{PRINT} pem", PEM, failing("read")),
    (f"{PRINT} pem", PEM, failing("close")),
    (f"{PRINT} pem", PEM, failing("lseek") + ":when=2"),
    (f"{PRINT} -c HUB pem", HUB + "pem.password.channel.HUB = p\n", ""),
    (f"{PRINT} -c HUB pem", STORED_HUB, KEY),
    (f"{PRINT} -c HUB pem", STORED_HUB + "pem.fips = yes\npem.forceFipsOff = yes\n",
     f"{KEY} {NO_FIPS}"),
    (f"{PRINT} -c HUB pem", "pem.encrypted.channel.HUB = MAYBE\n", ""),
    (f"{PRINT} pkcs11", PKCS11 + "pkcs11.encrypted = YES\npkcs11.token_pin = {}\n", KEY),
    (f"{PRINT} pkcs11", PKCS11 + "pkcs11.token_pin = p\n", ""),
    (f"{PRINT} pkcs11", "pkcs11.encrypted = MAYBE\n", ""),
    (f"{PRINT} crl", "crl.encrypted = NO\n", ""),
    (f"{PRINT} crl", "crl.encrypted = YES\ncrl.ldap.host = h\n", KEY),
    (f"{PRINT} crl", "crl.encrypted = MAYBE\n", ""),
    (f"{PRINT} crl", "crl.log = yes\n", ""),
    (f"{PRINT} ocsp", "ocsp.enable = yes\n", ""),
    (f"{PRINT} ocsp", "ocsp.unknown = MAYBE\n", ""),
    (f"{PRINT} ocsp", "ocsp.signature = 3\n", ""),
    (f"{PRINT} ocsp", "ocsp.log = yes\n", ""),
    (f"{PRINT} cms", CMS, ""),
    (f"{PRINT} cms", CMS, NO_HOME),
    (f"{PRINT} cms", CMS, f"{NO_HOME} ODD_HOME_IS_NULL=1"),
    (f"{PRINT} cms", CMS + "cms.fips = MAYBE\n", ""),
    (f"{PRINT} cms", "cms.fips = no\n", ""),
    (f"{PRINT} -c HUB cms", CMS, ""),
    (f"{PRINT} -c HUB --cache cms", CMS, ""),
    (f"{PRINT} -c HUB --cache cms", CMS + "cms\n", ""),
    (f"{PRINT} -c HUB --cache pem", CMS, ""),
    (COMMAND, CMS + CLEAR, KEY),
    (COMMAND, CLEAR, NO_HOME),
    (COMMAND, CLEAR + "vekcred.keyfile = key\n", ""),
    (COMMAND, CLEAR + "vekcred.keyfile = a/none/\n", ""),
    (COMMAND, CLEAR, ""),
    (IN_PLACE, CLEAR + "vekcred.keyfile = key\n" * 2, ""),
    (f"{IN_PLACE} -sf a/none", CLEAR, ""),
    (f"{IN_PLACE} -sf key -sm", CLEAR, NO_FIPS),
    (f"{IN_PLACE} -sf key -sp 1", CLEAR + f"crl.ldap.pass = {'x' * 704}\n", ""),
    (f"{IN_PLACE} -sf key -o no/such", CLEAR, ""),
    *((f"{IN_PLACE} -sf key", CLEAR, f"{TRACER} -o /dev/null -e inject={call}:error={error}")
      for call, error in (("fdatasync", "EIO"), ("fdatasync", "EINVAL"), ("renameat", "EIO"),
                          ("fsync", "EIO"), ("fallocate", "EOPNOTSUPP"), ("fallocate", "EFBIG"))),
    *((f"{IN_PLACE} -sp {algorithm}", CLEAR, "") for algorithm in (0, 3, -1)),
    (f"{COMMAND} -x", CLEAR, ""),
    (IN_PLACE, "", ""),
    ("env ./inconsistent", CLEAR, f"LD_LIBRARY_PATH={BUILD}/lib64"),
    (COMMAND, CLEAR, f"{ODD} ODD_INIT_RESULT=0x20006037"),
    (COMMAND, CLEAR, f"{ODD} ODD_INIT_RESULT=0x20008066"),
    (COMMAND, CLEAR, f"{ODD} ODD_INIT_RESULT=1 ODD_INIT_REASON=0x20806301"),
    (COMMAND, CLEAR, f"{ODD} ODD_INIT_RESULT=1 ODD_INIT_REASON=0x20006327"),
    (COMMAND, CLEAR, f"{ODD} ODD_INIT_RESULT=1 ODD_INIT_REASON=1"),
    *((f"{CTL} check {options}{FILE}", "\n".join(ODD_LINES) + "\n", KEY)
      for options in ("", "--json ", "--quiet ")),
    (f"{CTL} check --json {FILE}", "\n".join(REFUSED_LINES), ""),
    (f"{CTL} check {FILE} none", STORED, ""),
    (f"{CTL} check --key none {FILE}", STORED, ""),
    (f"{CTL} check --json --strict {FILE}", STORED + "vekcred.keyfile = weak\n", ""),
    (f"{CTL} check --no-open {FILE}", STORED, NO_FIPS),
    (f"{CTL} check --fips {FILE}", STORED, f"{KEY} {NO_FIPS}"),
    *((f"{CTL} show --json {section} {FILE}", SECTIONS, KEY)
      for section in ("cms", "crl", "ocsp", "pem", "pkcs11", "vekcred", "pem --channel HUB",
                      "cms --channel HUB", "ocsp --channel HUB")),
    (f"{CTL} get {FILE} pem.password", STORED, KEY),
    (f"{CTL} get {FILE} pkcs11.token_pin", SECTIONS, ""),
    (f"{CTL} get {FILE} pem.password", STORED, "ZTS_VEKCRED_KEYFILE=key.txt"),
    *((f"{CTL} keyinfo --json --key {key} {FILE}", STORED, "")
      for key in ("key", "key.txt", "weak", "flaw", "open", "none", "built-in")),
    (f"{CTL} protect --dry-run --key key --name-key {FILE}", BOTH, ""),
    (f"{CTL} protect --json --key key --name-key {FILE}", BOTH, ""),
    (f"{CTL} protect --key key {FILE}", CLEAR, "prlimit --fsize=9"),
    (f"{CTL} protect --key key {FILE}", "\n".join(ODD_LINES[:5]) + "\n", ""),
    (f"{CTL} protect --key key {FILE}", "\r\n".join(ODD_LINES[1:2] + ODD_LINES[-1:]), ""),
    (f"{CTL} set --key key {FILE} pem.password", STORED, ""),
    (f"{CTL} set --json --key key {FILE} pem.password.channel.NEW", CMS, ""),
    (f"{CTL} rekey --json --from key --to key.txt --set-keyfile key.txt {FILE}", BOTH, ""),
    (f"{CTL} rekey --from open --to key.txt {FILE}", BOTH, ""),
    (f"{CTL} unprotect --key key {FILE}", BOTH, ""),
    (f"{CTL} unprotect --json --in-place --yes --key key {FILE}", BOTH, ""),
    (f"{CTL} unprotect --in-place {FILE}", BOTH, ""),
    # The order of the calls by which a new file is on the disk before it takes its place.
    (f"{CTL} protect --key key {FILE}", CLEAR,
     f"{TRACER} -e trace=fdatasync,unlinkat,renameat,fsync"),
    # The system calls by which the run protects its files and itself.
    (f"{IN_PLACE} -sf key", CLEAR,
     f"{TRACER} -e trace=prctl,prlimit64,flock,openat,fallocate,ftruncate,fdatasync,unlinkat,"
     "renameat,fsync,rt_sigprocmask,rt_sigpending"),
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


def saying(text):
    """Without what the tracer, the loader and libcrypto do, and results of calls."""
    text = re.sub(r'^(strace: |.*openat\(AT_FDCWD, "/|.*RLIMIT_(STACK|FSIZE)).*\n', "", text,
                  flags=re.MULTILINE)
    text = re.sub(r"\) += \d+$", ")", text, flags=re.MULTILINE)
    return re.sub(r"\n +(?=[]}\"])", " ", text)  # JSON


def record_of(command, lines, prefix):
    for file in ("trace", FILE, f"{FILE}.bak"):
        pathlib.Path(file).unlink(missing_ok=True)
    if lines:
        pathlib.Path(FILE).write_text(lines)
    if command.startswith(PRINT) and NO_HOME not in prefix:
        command += " keystore.conf"
    trace = "ZTS_TRACE=" if command.startswith(CTL) else "ZTS_TRACE=trace"
    run = subprocess.run(["env", trace, f"ZTS_KEYSTORE_CONF={FILE}", "env", *prefix.split(),
                          *command.split()], capture_output=True, text=True, input="new value\n")
    file, trace = pathlib.Path(FILE), pathlib.Path("trace")
    records = trace.read_text().splitlines() if trace.exists() else []
    left = file.read_bytes().decode() if file.exists() else ""
    said = saying(run.stdout + run.stderr) + (left if left != lines else "")
    return ("".join(map(shortened, records)),
            re.sub(r"<VEK>[12]!\S+", "<VEK>", said).replace("\r", "\\r") +
            f"status {run.returncode}\n")


folder = tempfile.TemporaryDirectory()
os.chdir(folder.name)
os.umask(0o022)
for name, content in (("key", "a key of exactly thirty-two byte"), ("key.txt", "ab" * 32 + "\n"),
                      ("weak", "short\n"), ("flaw", "a" * 63), ("open", "o" * 32)):
    pathlib.Path(name).write_text(content)
    pathlib.Path(name).chmod(0o644 if name == "open" else 0o600)
program = pathlib.Path(COMMAND).read_bytes()
pathlib.Path("inconsistent").write_bytes(re.sub(rb"(_ZT_INSTALLATION_PATH_@@)/", rb"\1x", program))
pathlib.Path("inconsistent").chmod(0o755)
pathlib.Path("keystore.conf").write_text(CLEAR)
subprocess.run([COMMAND, "-f", "keystore.conf", "-sf", "key"], capture_output=True, check=True)
stored = re.search(r"<VEK>.*", pathlib.Path("keystore.conf").read_text())[0]
traceable = subprocess.run([*TRACER.split(), "-o", "/dev/null", "true"]).returncode == 0

records = []
for number, (command, lines, prefix) in enumerate(RUNS):
    trace, said = record_of(command, lines.replace("{}", stored), prefix)
    record = f"== {command}: {lines[-60:]!r} {prefix}\n"
    record += (DETAILS.sub("", trace) if number else trace) + said
    records.append(record.replace(f"{folder.name}/", "").replace(f"{BUILD}/", ""))
if "--write" in sys.argv:
    EXPECTED.write_text("".join(records))
expected = re.split(r"^(?=== )", EXPECTED.read_text(), flags=re.MULTILINE)[1:]
if not traceable:
    records, expected = ([run for run in runs if "strace" not in run] for runs in
                         (records, expected))
expected, records = ("".join(runs).splitlines(True) for runs in (expected, records))
difference = "".join(difflib.unified_diff(expected, records, "expected", "recorded"))
if not difference and not traceable:
    print("skipped: tracing a process is not permitted here")
    sys.exit(77)
sys.exit(difference or 0)
