#!/usr/bin/python3
"""vekctl protect with one fault in each run: every system call failed or interrupted by a kill or a
signal, and every request for memory refused. Afterwards the old file or the new one is there,
whole, and what a kill leaves beside it holds no credential and goes with the next run. Then runs at
once with others, and a change of key that is killed at random until it is done."""
import os
import random
import re
import signal
import subprocess
import sys
import threading
import time

import decrypt_value
import faults
import new_content

BUILD = os.environ["VEK_BUILD"]
VEKCTL, RUNVEKCRED = BUILD + "/bin/vekctl", BUILD + "/bin/runvekcred"
KEY, NEXT = bytes(range(7, 39)), bytes(range(50, 82))
OLD = (b"x.y = 1\npem.password = secret-of-pem\npkcs11.token_pin = secret-of-token\n"
       b"crl.ldap.pass = secret-of-server\n")
LEFTOVER = ".keystore.conf.vekctl"
WANTED_POLLS = int(os.environ.get("VEK_POLLS", "1000"))
failures = []


def write(path, content):
    with open(path, "wb") as file:
        file.write(content)


def run(_, what, prefix, environment, fired):
    with faults.scratch() as folder:
        for name, content in (("keystore.conf", OLD), ("key", KEY), ("trace", b"")):
            write(f"{folder}/{name}", content)
        os.chmod(folder + "/keystore.conf", 0o640)
        command = [*prefix, VEKCTL, "protect", "--quiet", "--key", "key", "keystore.conf"]
        process = subprocess.Popen(command, cwd=folder, env={**os.environ, **environment},
                                   stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        said, waits = faults.end_of(process)
        trace = open(folder + "/trace", errors="replace").read()
        fault = faults.WAITS if waits else fired(trace, said)
        if waits and not faults.MAY_WAIT:
            failures.append(f"{what}: {fault}")
        state = new_content.state(folder + "/keystore.conf", OLD, KEY)
        mode = os.stat(folder + "/keystore.conf").st_mode & 0o7777
        left = None
        if os.path.exists(f"{folder}/{LEFTOVER}"):
            left = open(f"{folder}/{LEFTOVER}", "rb").read()
        is_killed = process.returncode in (-signal.SIGKILL, -signal.SIGABRT)
        is_whole = state == "new" or (state == "old" and process.returncode != 0)
        is_shown = b"secret" in said + (left or b"")
        if not is_whole or mode != 0o640 or is_shown:
            failures.append(f"{what}: {fault}: {state} {mode:o} status {process.returncode} {left}")
        # Taking the temporary file away can fail itself.
        elif left is not None and not is_killed and "unlinkat(" not in fault:
            failures.append(f"{what}: {fault}: leaves {left}")
        elif left is not None:
            subprocess.run(command[len(prefix):], cwd=folder, capture_output=True)
            state = new_content.state(folder + "/keystore.conf", OLD, KEY)
            if state != "new" or LEFTOVER in os.listdir(folder):
                failures.append(f"{what}: the next run does not put it right")
        return fault


def signals_at(call):
    return ("KILL", "TERM") if call in ("write", "fsync", "renameat", "unlinkat") else ("KILL",)


def single_faults():
    for fault, count in faults.try_all(run, ["protect"], signals_at).items():
        print(f"{count:5} x {fault}")
        if count == 0:
            failures.append(f"never met: {fault}")


class Poll(threading.Thread):
    """A reader that asks for the file over and over."""

    def __init__(self, path):
        super().__init__()
        self.path, self.polls, self.away, self.parts = path, 0, 0, []
        self.stopped = threading.Event()

    def run(self):
        while not self.stopped.is_set():
            self.polls += 1
            try:
                text = open(self.path, "rb").read()
            except FileNotFoundError:
                self.away += 1
                continue
            stored = re.findall(rb"^\w+\.encrypted = YES\n\S+ = <VEK>2!\S+$", text, re.MULTILINE)
            if text != OLD and (len(stored) != 3 or b"secret" in text):
                self.parts.append(text)

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, *_):
        self.stopped.set()
        self.join()


def run_both(folder, commands):
    both = [subprocess.Popen(command, cwd=folder, stderr=subprocess.DEVNULL)
            for command in commands]
    return [process.wait() for process in both]


def at_once():
    """Two vekctl over one file: a reader never misses it or sees a part of it. Then vekctl and
    runvekcred, each with something to encrypt: the reader never sees a part. What runvekcred does
    is away for a moment, which is counted apart and is over when both have ended."""
    with faults.scratch() as folder:
        path = folder + "/keystore.conf"
        for name, content in (("keystore.conf", OLD), ("key", KEY), ("next", NEXT)):
            write(f"{folder}/{name}", content)
        protect = [VEKCTL, "protect", "--quiet", "--key", "key", path]
        subprocess.run(protect, cwd=folder, check=True)
        with Poll(path) as reader:
            pairs = 0
            while pairs < 20 or reader.polls < WANTED_POLLS:
                pairs += 1
                states = run_both(folder, ([VEKCTL, "rekey", "--quiet", "--from", old, "--to", new,
                                            path] for old, new in (("key", "next"),
                                                                   ("next", "key"))))
                if states != [0, 0]:
                    failures.append(f"two vekctl at once: {states}")
        print(f"{reader.polls:5} polls beside {pairs} pairs, {reader.away} without a file, "
              f"{len(reader.parts)} parts")
        if reader.away or reader.parts:
            failures.append(f"two vekctl at once: {reader.polls} {reader.away} {reader.parts[:3]}")
        with Poll(path) as reader:
            for turn in range(40):
                write(folder + "/clear", OLD)
                os.rename(folder + "/clear", path)
                commands = [protect, [RUNVEKCRED, "-f", path, "-sf", "key"]]
                states = run_both(folder, reversed(commands) if turn % 2 else commands)
                if not set(states) <= {0, 1} or 0 not in states or \
                        new_content.state(path, OLD, KEY) != "new":
                    failures.append(f"vekctl and runvekcred at once: {states}")
        # The moment made longer: vekctl waits for the end of it.
        write(path, OLD)
        slow = subprocess.Popen(["strace", "-qq", "-o", "/dev/null", "-e", "inject=renameat:"
                                 "delay_enter=2000000", RUNVEKCRED, "-f", path, "-sf", "key"],
                                cwd=folder, stderr=subprocess.DEVNULL)
        while os.path.exists(path):
            time.sleep(0.01)
        if subprocess.run(protect, cwd=folder).returncode != 0 or slow.wait() != 0:
            failures.append("vekctl does not wait for runvekcred to put the file in its place")
        print(f"{reader.polls:5} polls beside runvekcred, {reader.away} in its moment without a "
              f"file, {len(reader.parts)} parts")
        if reader.parts or reader.polls < 1000 or len(os.listdir(folder)) != 3:
            failures.append(f"with runvekcred: {reader.parts[:3]}, {os.listdir(folder)}")


def rekey_killed(count):
    """A change of key over many files is killed at random and started again until it is done."""
    with faults.scratch() as folder:
        names = [f"{number}.conf" for number in range(count)]
        for name, content in (("key", KEY), ("next", NEXT), *((name, OLD) for name in names)):
            write(f"{folder}/{name}", content)
        subprocess.run([VEKCTL, "protect", "--quiet", "--key", "key", *names], cwd=folder,
                       check=True)
        kills, status, judged = 0, None, {}
        while status != 0:
            process = subprocess.Popen([VEKCTL, "rekey", "--quiet", "--from", "key", "--to", "next",
                                        *names], cwd=folder)
            try:
                status = process.wait(timeout=random.uniform(0, 0.004 + kills / 200))
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()
                kills += 1
            for name in os.listdir(folder):
                text = open(f"{folder}/{name}", "rb").read()
                if judged.get(name) == text:
                    continue
                judged[name] = text
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
