"""What runs of the programs and of the readers leave, whole, stands in tests/data/NAME.txt, where
NAME is the argument, or else recorded_runs. A scene there is

  == what it shows
  | a line of keystore.conf, with escapes; "{}" is a value encrypted with the key file "key"
  $ a command of the shell, which reads "new value"
  its record

The record of a command is what was said, what became of files (their new content, "again" when it
is the old one, "gone"), and the exit status. In recorded_runs there stands the trace as well (of
vekctl only where the command names the file for it) with entries (">") and exits ("<") of functions
by number, and scenes may need a tracer or a library of the tests. Times, lines of the source,
addresses and encrypted values are left out; of all scenes but the first, so are lines of the file,
lists and lookups.

With the argument --write the records become the expected ones."""

import difflib
import os
import pathlib
import re
import subprocess
import sys
import tempfile

SOURCE = os.environ.setdefault("VEK_SOURCE", str(pathlib.Path(__file__).resolve().parents[2]))
BUILD = os.environ.setdefault("VEK_BUILD", f"{SOURCE}/build/test")
NAME = next((name for name in sys.argv[1:] if name != "--write"), "recorded_runs")
EXPECTED = pathlib.Path(SOURCE, f"tests/data/{NAME}.txt")
IS_TRACED = NAME == "recorded_runs"
RECORD = re.compile(r"20\d\d(?:-\d\d){2}T\d\d(?::\d\d){2}\.\d{6}Z \d+\.\d+ "
                    r"(entry|exit |parms) (\d+:\d+) (.*)")
DETAILS = re.compile(r" *[<>] 16:(22\d|23[1-8]|24[1-3])\b.*\n| *Read config line: .*\n|"
                     r".* (Getting key|Config file does not contain) .*\n")
KEYS = {"key": "a key of exactly thirty-two byte", "other": "another key of that many bytes..",
        "key.txt": "ab" * 32 + "\n", "weak": "short\n", "flaw": "a" * 63, "long": "a" * 65,
        "open": "o" * 32}


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


def states():
    """Content and identity of each small file, but the trace."""
    files = {path: path.stat() for path in pathlib.Path(".").rglob("*") if path.is_file()}
    return {str(path): (path.read_bytes(), state.st_ino, state.st_mtime_ns)
            for path, state in files.items() if path.name != "trace" and state.st_size < 10 ** 5}


def differences(before, after):
    for name in sorted(before.keys() | after.keys()):
        old, new = before.get(name), after.get(name)
        if old == new:
            continue
        is_same = old and new and old[0] == new[0]
        yield f"--- {name}{', again' if is_same else '' if new else ', gone'}\n"
        if new and not is_same:
            text = new[0].decode(errors="backslashreplace").replace("\0", "\\0")
            yield text + ("" if re.search("\n$|^$", text) else "\n(no line end)\n")


def record_of(command):
    trace = pathlib.Path("trace")
    trace.unlink(missing_ok=True)
    before = states()
    traced = {"ZTS_TRACE": "" if "vekctl" in command else "trace"} if IS_TRACED else {}
    run = subprocess.run(["bash", "-c", command], env={**os.environ, **traced},
                         input=b"new value\n", capture_output=True)
    records = trace.read_text().splitlines() if trace.exists() else []
    said = saying((run.stdout + run.stderr).decode(errors="backslashreplace"))
    said += "".join(differences(before, states()))
    return ("".join(map(shortened, records)),
            re.sub(r"<VEK>[12]!\S+", "<VEK>", said).replace("\r", "\\r") +
            f"status {run.returncode}\n")


def prepare(lines):
    """Key files, and keystore.conf with these lines."""
    for name, key in KEYS.items():
        pathlib.Path(name).write_text(key)
        pathlib.Path(name).chmod(0o644 if name == "open" else 0o600)
    text = "".join(lines).removesuffix("\\c\n").encode().decode("unicode_escape")
    if lines:
        pathlib.Path("keystore.conf").write_bytes(text.encode("latin-1"))


def play(scene, stored, details):
    """The scene with what its commands leave now, without the details."""
    head, *steps = re.split(r"^(?=\$ )", scene, flags=re.MULTILINE)
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        os.environ["HOME"] = folder
        prepare(re.findall(r"^\| ?(.*\n)", head.replace("{}", stored), re.MULTILINE))
        for step in steps:
            command = step.partition("\n")[0]
            trace, said = record_of(command[2:])
            record = re.sub(details, "", trace) + said
            head += command + "\n" + record.replace(f"{folder}/", "").replace(f"{BUILD}/", "")
        os.chdir("/")
    return head


os.umask(0o022)
os.environ.update(PATH=f"{BUILD}/bin:{BUILD}/tests:{os.environ['PATH']}",
                  ZTS_KEYSTORE_CONF="keystore.conf", ODD=f"{BUILD}/tests/libodd_platform.so",
                  REFUSED=f"{BUILD}/tests/librefused_memory.so")
with tempfile.TemporaryDirectory() as place:
    os.chdir(place)
    prepare(["pem.password = p\n"])
    subprocess.run(["runvekcred", "-sf", "key"], capture_output=True, check=True)
    stored_value = re.search(r"<VEK>.*", pathlib.Path("keystore.conf").read_text())[0]
    os.chdir("/")
scenes = re.split(r"^(?===)", EXPECTED.read_text(), flags=re.MULTILINE)
is_traceable = subprocess.run(["strace", "-o", "/dev/null", "true"]).returncode == 0
# Programs that hold secrets show the arguments of their calls to root alone ("-P ~/").
untried = "strace" if not is_traceable else " -e trace=| -P ~/" if os.geteuid() != 0 else "\0"
expected = [scene for scene in scenes if not re.search(untried, scene)]
recorded = expected[:1] + [play(scene, stored_value, DETAILS if number else "^$")
                           for number, scene in enumerate(expected[1:])]
is_whole = len(expected) == len(scenes)
if "--write" in sys.argv and is_whole:
    EXPECTED.write_text("".join(recorded))
difference = "".join(difflib.unified_diff("".join(expected).splitlines(True),
                                          "".join(recorded).splitlines(True),
                                          "expected", "recorded"))
if not difference and not is_whole:
    print("SKIPPED what needs a tracer, or root, to whom alone all calls are shown")
    sys.exit(77)
sys.exit(difference or 0)
