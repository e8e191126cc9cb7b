#!/usr/bin/python3
"""The model of the replacement (replacement.pml): Spin explores it whole and finds no promise
broken, but does without the lock and with a promise that is not made. Its labels are the system
calls of two real runs, one that succeeds and one that fails. docs/robustness.md has the figures."""
import difflib
import os
import re
import shutil
import subprocess
import sys
import tempfile

COMMAND = os.path.join(os.environ["VEK_BUILD"], "bin/runvekcred")
MODEL = os.path.join(os.environ["VEK_SOURCE"], "tests/robustness/replacement.pml")
CALLS = "trace=%file,%desc,rt_sigprocmask,rt_sigpending"
# They change nothing and decide nothing.
IGNORED = {"execve", "fcntl", "fstat", "lseek", "newfstatat", "stat", "statx"}
SKIPPED = 77
EXPLORATIONS = {"": True, "-DUNLOCKED": False, "-DPRESENT": False}
failures = []


def explore(option, is_kept):
    for command in (["spin", "-a", *option.split(), MODEL],
                    ["cc", "-w", "-O1", "-DSAFETY", "-DNOREDUCE", "-o", "pan", "pan.c"]):
        subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
    found = subprocess.run("./pan", stdout=subprocess.PIPE, text=True, check=True).stdout
    states = re.search(r"(\d+) states, stored", found)[1]
    errors = re.search(r"errors: (\d+)", found)[1]
    print(f"model {option or 'as it is'}: {states} states, errors: {errors}")
    is_whole = not re.search("not completed|too small", found)
    is_alive = re.search(r"unreached in proctype writer\n\t\(0 of ", found)
    if not (errors == "0" and is_whole and is_alive if is_kept else "assertion violated" in found):
        failures.append(found)


def labels():
    """Those of a run that succeeds, and those of a run that fails behind its point of failure."""
    body = re.search(r"^proctype writer.*?^}", open(MODEL).read(), re.DOTALL | re.MULTILINE)[0]
    names = [re.sub(r"_\d$", "", name) for name in re.findall(r"^(\w+):", body, re.MULTILINE)]
    return names[:names.index("failed")], names[names.index("failed") + 1:names.index("ended")]


def label_of(call, arguments, folder):
    if call.startswith("rt_sig"):
        how = re.match(r"SIG_(\w+), \[.*TERM", arguments)
        return f"{call}_{how[1]}" if how else "rt_sigpending" if call == "rt_sigpending" else ""
    name = r"keystore\.conf(\.bak)?"
    file = re.search(rf'"(?:{folder}/)?{name}"|<{folder}/{name}', arguments)
    if file:
        return f"{call}_bak" if file[1] or file[2] else f"{call}_conf"
    return f"{call}_directory" if re.search(f'"{folder}"|<{folder}>', arguments) else ""


def calls_of(line):
    """What a run does with a keystore.conf of one line, as labels; a call again counts once."""
    with tempfile.TemporaryDirectory() as folder:
        for name, content in (("keystore.conf", line + "\n"), ("key", 32 * "k")):
            with open(os.path.join(folder, name), "w") as file:
                file.write(content)
        command = [COMMAND, "-f", f"{folder}/keystore.conf", "-sf", f"{folder}/key"]
        subprocess.run(["strace", "-y", "-o", "trace", "-e", CALLS, *command], capture_output=True)
        trace = open("trace").read()
    if "exit" not in trace:
        print("skipped: tracing a process is not permitted here")
        sys.exit(SKIPPED)
    found = [""]
    for call, arguments in re.findall(r"^(\w+)\((.*)", trace, re.MULTILINE):
        label = label_of(call, arguments, folder) if call not in IGNORED else ""
        if label and label != found[-1]:
            found.append(label)
    return found[1:]


def compare(name, model, real):
    if model != real:
        failures.extend(difflib.unified_diff(model, real, f"model: {name}", "the real run",
                                             lineterm=""))


def compare_with_runs():
    success, behind_failure = labels()
    compare("a run that succeeds", success, calls_of("pem.password = secret"))
    refused = success.index("rt_sigpending") + 2  # after the file is read
    compare("a run that fails", success[:refused] + behind_failure,
            calls_of("pem.password = " + 900 * "x"))


def main():
    if not shutil.which("spin"):
        print("skipped: needs spin")
        return SKIPPED
    is_seen = os.geteuid() == 0
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        for option, is_kept in EXPLORATIONS.items():
            explore(option, is_kept)
        if is_seen:
            compare_with_runs()
        os.chdir("/")
    for failure in failures:
        print(failure)
    if not is_seen:
        print("skipped: only root sees the arguments of a program that hides its memory")
    return 1 if failures else 0 if is_seen else SKIPPED


if __name__ == "__main__":
    sys.exit(main())
