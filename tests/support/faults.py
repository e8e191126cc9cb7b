"""A program with one fault in each run: a system call failed, a signal at one, or a request for
memory refused. The test gives `run(mode, what, prefix, environment, fired)`: it runs the program in
a folder of its own behind `prefix`, with an empty file "trace" there, judges what is left, and
returns fired(trace, standard error): what the fault was, or "" when the run ended before it."""
import collections
import concurrent.futures
import itertools
import os
import re
import ssl
import subprocess
import sys
import tempfile

os.environ["ZTS_TRACE"] = ""
MEMORY = os.path.join(os.environ["VEK_BUILD"], "tests/librefused_memory.so")
MEMORY_STEP = 50
SKIPPED = 77
LOOK = 15  # seconds; longer than a program ever sleeps, and no limit for one that works
# libcrypto from 3.5 on waits for itself for ever when its start is refused certain requests for
# memory. A libcrypto that no longer does so is welcome.
WAITS = "libcrypto waits for itself when its start is refused memory"
MAY_WAIT = ssl.OPENSSL_VERSION_INFO >= (3, 5)


def scratch():
    return tempfile.TemporaryDirectory(dir="/dev/shm" if os.access("/dev/shm", os.W_OK) else None)


def end_of(process):
    """What the process says until its end, and whether it was ended because it waits for itself:
    its only thread has slept at two looks, and has done nothing in between."""
    before = None
    while True:
        try:
            return process.communicate(timeout=LOOK)[1], False
        except subprocess.TimeoutExpired:
            fields = open(f"/proc/{process.pid}/stat").read().rpartition(") ")[2].split()
            now = fields[0], fields[11:13], fields[17]  # state, time used, number of threads
            if now == before and now[0] == "S" and now[2] == "1":
                process.kill()
                return process.communicate()[1], True
            before = now


def call_failed(trace, _):
    return next((line for line in trace.splitlines() if line.endswith("(INJECTED)")), "")


def inject(run, mode, call, fault, number):
    def killed(trace, _):
        by = re.search(r"^\d+ +\+\+\+ killed by (SIG\w+) ", trace, re.MULTILINE)
        return f"{by[1]} at {call}" if by else ""

    is_signal = fault.startswith("signal")
    prefix = ["strace", "-f", "-q" if is_signal else "-qq", "-s1", "-o", "trace", "-e",
              f"trace={call}", "-e", f"inject={call}:{fault}:when={number}"]
    return run(mode, (mode, call, fault, number), prefix, {}, killed if is_signal else call_failed)


def refuse(run, mode, _, fault, number):
    environment = {"LD_PRELOAD": MEMORY, "VEK_REFUSED_REQUEST": str(number)}
    return run(mode, (mode, fault, number), [], environment,
               lambda _, said: "refused" if b"refused\n" in said else "")


def walk(task):
    """Lets the fault fire at the first time, the second, and so on, until there is no such time."""
    function, run, mode, call, fault, first, step = task
    for number in itertools.count(first, step):
        if not function(run, mode, call, fault, number):
            return fault, (number - first) // step
    return None


def calls_of(run, mode):
    """The names of the system calls of a run without a fault."""
    traces = []
    run(mode, (mode, "no fault"), ["strace", "-f", "-o", "trace"], {},
        lambda trace, _: traces.append(trace) or "none")
    if "exit_group" not in traces[0]:
        print("skipped: tracing a process is not permitted here")
        sys.exit(SKIPPED)
    return set(re.findall(r"^\d+ +(\w+)\(", traces[0], re.MULTILINE)) - {"execve"}


def try_all(run, modes, signals_at):
    """Result: how often each kind of fault came. Memory is refused in the first mode only."""
    tasks = [(refuse, run, modes[0], "", "memory", first, MEMORY_STEP)
             for first in range(1, MEMORY_STEP + 1)]
    for mode in modes:
        for call in sorted(calls_of(run, mode)):
            faults = [f"signal={name}" for name in signals_at(call)]
            # brk answers with an address, so that an error number would be one.
            if call not in ("brk", "exit_group"):
                faults += ["error=EIO", "error=ENOSPC", "error=EINTR"]
            tasks += [(inject, run, mode, call, fault, 1, 1) for fault in faults]
    counts = collections.Counter()
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for fault, count in pool.map(walk, tasks):
            counts[fault] += count
    return counts
