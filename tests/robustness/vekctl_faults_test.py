#!/usr/bin/python3
"""vekctl protect with one fault in each run: every system call failed or interrupted by a kill or a signal, and
every request for memory refused. Afterwards the old file or the new one is there, whole, and what a kill leaves
beside it holds no credential and goes with the next run. Then runs at once with others, and a change of key that
is killed at random until it is done."""
import collections
import concurrent.futures
import itertools
import os
import random
import re
import signal
import subprocess
import sys
import tempfile
import threading
import time

import decrypt_value
import new_content

os.environ["ZTS_TRACE"] = ""
BUILD = os.environ["VEK_BUILD"]
VEKCTL, RUNVEKCRED = BUILD + "/bin/vekctl", BUILD + "/bin/runvekcred"
MEMORY = BUILD + "/tests/librefused_memory.so"
KEY, NEXT = bytes(range(7, 39)), bytes(range(50, 82))
OLD = b"x.y = 1\npem.password = secret-of-pem\npkcs11.token_pin = secret-of-token\ncrl.ldap.pass = secret-of-server\n"
LEFTOVER = ".keystore.conf.vekctl"
MEMORY_STEP = 40
SKIPPED = 77
failures = []


def write(path, content):
    with open(path, "wb") as file:
        file.write(content)


def folder_for_tests():
    return tempfile.TemporaryDirectory(dir="/dev/shm" if os.access("/dev/shm", os.W_OK) else None)


def run(what, prefix, environment, fired):
    """One run in a folder of its own. Result: what the fault was, or an empty text."""
    with folder_for_tests() as folder:
        for name, content in (("keystore.conf", OLD), ("key", KEY), ("trace", b"")):
            write(f"{folder}/{name}", content)
        os.chmod(folder + "/keystore.conf", 0o640)
        command = [*prefix, VEKCTL, "protect", "--quiet", "--key", "key", "keystore.conf"]
        result = subprocess.run(command, cwd=folder, env={**os.environ, **environment}, capture_output=True,
                                timeout=100)
        fault = fired(open(folder + "/trace", errors="replace").read(), result)
        state = new_content.state(folder + "/keystore.conf", OLD, KEY)
        mode = os.stat(folder + "/keystore.conf").st_mode & 0o7777
        left = open(f"{folder}/{LEFTOVER}", "rb").read() if os.path.exists(f"{folder}/{LEFTOVER}") else None
        is_killed = result.returncode == -signal.SIGKILL
        is_whole = state == "new" or (state == "old" and result.returncode != 0)
        if not is_whole or mode != 0o640 or b"secret" in result.stderr or b"secret" in (left or b""):
            failures.append(f"{what}: {fault}: {state} {mode:o} status {result.returncode} {left}")
        # Taking the temporary file away can fail itself.
        elif left is not None and not is_killed and "unlinkat" not in fault and result.returncode != -signal.SIGABRT:
            failures.append(f"{what}: {fault}: leaves {left}")
        elif left is not None:
            subprocess.run(command[len(prefix):], cwd=folder, capture_output=True)
            if new_content.state(folder + "/keystore.conf", OLD, KEY) != "new" or LEFTOVER in os.listdir(folder):
                failures.append(f"{what}: the next run does not put it right")
        return fault


def call_failed(trace, _):
    return next((line for line in trace.splitlines() if line.endswith("(INJECTED)")), "")


def inject(call, fault, number):
    def killed(_, result):
        return fault if result.returncode < 0 else ""

    prefix = ["strace", "-f", "-qq", "-s1", "-o", "trace", "-e", f"trace={call}", "-e",
              f"inject={call}:{fault}:when={number}"]
    return run((call, fault, number), prefix, {}, killed if fault.startswith("signal") else call_failed)


def refuse(_, __, number):
    environment = {"LD_PRELOAD": MEMORY, "VEK_REFUSED_REQUEST": str(number)}
    return run(("memory", number), [], environment, lambda _, result: "refused" if b"refused\n" in result.stderr else "")


def walk(task):
    """Lets the fault fire at the first time, the second, and so on, until there is no such time."""
    function, call, fault, first, step = task
    for number in itertools.count(first, step):
        if not function(call, fault, number):
            return fault, (number - first) // step
    return None


def calls_of_a_run():
    traces = []
    run("plain", ["strace", "-f", "-o", "trace"], {}, lambda trace, _: traces.append(trace) or "x")
    if "exit_group" not in traces[0]:
        print("skipped: tracing a process is not permitted here")
        sys.exit(SKIPPED)
    # What only a loss of power would show.
    order = re.findall(r"^\d+ +(fdatasync|fsync|renameat)\(", traces[0], re.MULTILINE)
    assert order == ["fdatasync", "fsync", "renameat", "fsync"], order
    return set(re.findall(r"^\d+ +(\w+)\(", traces[0], re.MULTILINE)) - {"execve"}


def single_faults():
    tasks = [(refuse, "", "memory", first, MEMORY_STEP) for first in range(1, MEMORY_STEP + 1)]
    for call in sorted(calls_of_a_run()):
        faults = ["signal=KILL", *(["signal=TERM"] if call in ("write", "fsync", "renameat", "unlinkat") else []),
                  *(f"error={name}" for name in ("EIO", "ENOSPC", "EINTR") if call != "exit_group")]
        tasks += [(inject, call, fault, 1, 1) for fault in faults]
    counts = collections.Counter()
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for fault, count in pool.map(walk, tasks):
            counts[fault] += count
    for fault, count in counts.items():
        print(f"{count:5} x {fault}")
        if count == 0:
            failures.append(f"never met: {fault}")


def at_once():
    """Two vekctl, and runvekcred, change a file over and over; a reader never misses it or sees a part of it. What
    runvekcred does is away for a moment, so it only finds nothing to do here: the lock is what is tried."""
    with folder_for_tests() as folder:
        path = folder + "/keystore.conf"
        for name, content in (("keystore.conf", OLD), ("key", KEY), ("next", NEXT)):
            write(f"{folder}/{name}", content)
        subprocess.run([VEKCTL, "protect", "--quiet", "--key", "key", path], cwd=folder, check=True)
        stop, polls, missed = threading.Event(), [0], []

        def poll():
            while not stop.is_set():
                polls[0] += 1
                try:
                    if len(re.findall(rb"^\S+ = <VEK>2!\S+$", open(path, "rb").read(), re.MULTILINE)) != 3:
                        missed.append("a part")
                except OSError as error:
                    missed.append(str(error))

        reader = threading.Thread(target=poll)
        reader.start()
        for _ in range(20):
            both = [subprocess.Popen([VEKCTL, "rekey", "--quiet", "--from", a, "--to", b, path], cwd=folder,
                                     stderr=subprocess.DEVNULL) for a, b in (("key", "next"), ("next", "key"))]
            if any(process.wait() != 0 for process in both):
                failures.append("two vekctl at once: one failed")
        stop.set()
        reader.join()
        runs = [subprocess.Popen([*command, path, *key], cwd=folder, stderr=subprocess.DEVNULL)
                for command, key in (([RUNVEKCRED, "-f"], ("-sf", "key")), ([VEKCTL, "protect", "--quiet"], ("--key", "key"))) * 8]
        states = {process.wait() for process in runs}
        print(f"{polls[0]:5} polls, {len(missed)} without a whole file")
        if missed or polls[0] < 1000 or states - {0, 1} or len(os.listdir(folder)) != 3:
            failures.append(f"at once: {polls[0]} polls, {missed[:3]}, {states}, {os.listdir(folder)}")


def rekey_killed(count):
    """A change of key over many files is killed at random and started again until it is done."""
    with folder_for_tests() as folder:
        names = [f"{number}.conf" for number in range(count)]
        for name, content in (("key", KEY), ("next", NEXT), *((name, OLD) for name in names)):
            write(f"{folder}/{name}", content)
        subprocess.run([VEKCTL, "protect", "--quiet", "--key", "key", *names], cwd=folder, check=True)
        kills, status = 0, None
        while status != 0:
            process = subprocess.Popen([VEKCTL, "rekey", "--quiet", "--from", "key", "--to", "next", *names],
                                       cwd=folder)
            try:
                status = process.wait(timeout=random.uniform(0.005, 0.03 + kills / 200))
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()
                kills += 1
            for name in os.listdir(folder):
                text = open(f"{folder}/{name}", "rb").read()
                stored = re.findall(rb"<VEK>2!\S+", text)
                keys = {key for key in (KEY, NEXT) for value in stored if opens(value, key)}
                whole = len(stored) == 3 and len(keys) == 1
                if name in names and not whole or b"secret" in text:
                    failures.append(f"{name} after {kills} kills: {text}")
        states = {new_content.state(f"{folder}/{name}", OLD, NEXT) for name in names}
        print(f"{kills:5} kills of a change of {count} keys")
        if states != {"new"} or kills == 0:
            failures.append(f"rekey: {states} after {kills} kills")


def opens(value, key):
    try:
        return bool(decrypt_value.decrypt(value, key, new_content.SALT))
    except Exception:  # whatever a wrong key leads to
        return False


def main():
    single_faults()
    at_once()
    rekey_killed(int(os.environ.get("VEK_REKEYED_FILES", "40")))
    print(*failures, sep="\n")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
