#!/usr/bin/python3
"""The command with one fault in each run: every request for memory refused, every system call
failed, and a signal at every one. Afterwards the complete old text or the complete new one is
there, and no .bak, except in the OUTCOMES listed, each of which must occur.
docs/robustness.md has the figures."""
import collections
import os
import re
import signal
import subprocess
import sys

import faults
from new_content import KEY, OLD, state

COMMAND = os.path.join(os.environ["VEK_BUILD"], "bin/runvekcred")
EARLIER = b"of an earlier run"
IN_PLACE, TO_OUTPUT = (), ("-o", "out")

Run = collections.namedtuple("Run", "status conf bak out fired")

SIGNALLED = {"unlinkat", "write", "fdatasync", "renameat"}  # where every signal is tried

HELD_BACK = {-signal for signal in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT)}

# The directory is file 3, keystore.conf 4, the output 5; the rewriting reads through a buffer of 64
# KiB.
REWRITING_READ = r"read\(4, .*, [56]\d{4}\)"
# What the fault must be (a call as strace shows it), exit status, and states of the files.
OUTCOMES = {
    "a read error in the rewriting keeps the old file":
        (IN_PLACE, REWRITING_READ, 1, ("old", "missing", "missing")),
    "the same with -o; the output ends there":
        (TO_OUTPUT, REWRITING_READ, 1, ("old", "earlier", "part")),
    "a failed rename leaves the new text under .bak":
        (IN_PLACE, r"renameat\(", 99, ("missing", "new", "missing")),
    "writes to the -o file are not examined":
        (TO_OUTPUT, r"write\(5", 0, ("old", "earlier", "part")),
    "a file that cannot be read a second time takes an earlier .bak along":
        (IN_PLACE, r"openat\(3, .*, O_RDONLY\|O_CLOEXEC\)", 1, ("old", "missing", "missing")),
    "a sync that fails keeps the old file":
        (IN_PLACE, r"fdatasync\(.*E(IO|NOSPC)", 1, ("old", "missing", "missing")),
    "a kill between unlink and rename leaves the new text under .bak":
        (IN_PLACE, r"SIGKILL at renameat", -9, ("missing", "new", "missing")),
    "a signal during the rewriting stops it":
        (IN_PLACE, r"SIGTERM at write", -15, ("old", "missing", "missing")),
    "one that comes later acts when the new file is in its place":
        (IN_PLACE, r"SIGTERM at fdatasync", -15, ("new", "missing", "missing")),
}
if faults.MAY_WAIT:
    OUTCOMES[faults.WAITS] = (IN_PLACE, faults.WAITS, -9, ("old", "earlier", "missing"))
met = collections.Counter()
failures = []


def run(arguments, what, prefix, environment, fired):
    with faults.scratch() as folder:
        def path(name):
            return os.path.join(folder, name)

        for name, content in (("keystore.conf", OLD), ("keystore.conf.bak", EARLIER),
                              ("key", KEY), ("trace", b"")):
            with open(path(name), "wb") as file:
                file.write(content)
        command = [*prefix, COMMAND, "-f", "keystore.conf", "-sf", "key", *arguments]
        process = subprocess.Popen(command, cwd=folder, stdout=subprocess.DEVNULL,
                                   stderr=subprocess.PIPE,
                                   env={**os.environ, **environment})
        said, waits = faults.end_of(process)
        fault = faults.WAITS if waits else fired(open(path("trace"), errors="replace").read(), said)
        states = [state(path(name), OLD, KEY)
                  for name in ("keystore.conf", "keystore.conf.bak", "out")]
        if open_text(path("keystore.conf.bak")) == EARLIER:
            states[1] = "earlier"
        if states[0] == "missing":  # the next run must not remove the only copy
            subprocess.run([COMMAND, "-f", "keystore.conf"], cwd=folder, capture_output=True)
            states[1] = state(path("keystore.conf.bak"), OLD, KEY)
        judge(arguments, what, Run(process.returncode, *states, fault))
        return fault


def open_text(path):
    return open(path, "rb").read() if os.path.exists(path) else None


def judge(arguments, what, result):
    for name, (mode, fault, status, states) in OUTCOMES.items():
        is_met = (mode, status, states) == (arguments, result.status, result[1:4])
        if is_met and re.search(fault, result.fired):
            met[name] += 1
            return
    is_kept = result.conf == "old" or (arguments == IN_PLACE and result.conf == "new")
    # Only a kill or a crash leaves a .bak. That of an earlier run is there when it did not come so
    # far.
    is_killed = result.status < 0 and result.status not in HELD_BACK
    is_clean = result.bak in ("missing", "earlier") or is_killed
    target = result.conf if arguments == IN_PLACE else result.out
    is_crash = result.status < 0 and "memory" in what  # libc gives up when some calls fail
    if not is_kept or not is_clean or is_crash or (result.status == 0 and target != "new"):
        failures.append(f"{what}: {result}")


def signals_at(call):
    return ("KILL", "TERM", "INT", "HUP", "QUIT") if call in SIGNALLED else ("KILL", "TERM")


def main():
    counts = faults.try_all(run, (IN_PLACE, TO_OUTPUT), signals_at)
    failures.extend(f"never met: {name}" for name in OUTCOMES
                    if not met[name] and name != faults.WAITS)
    print(*(f"{count:5} x {name}" for name, count in (counts + met).items()), *failures, sep="\n")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
