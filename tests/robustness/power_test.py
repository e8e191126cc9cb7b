#!/usr/bin/python3
"""The power is cut in front of every system call that may change a file: the run is killed there,
the file system is shut down, with its journal flushed or lost, and mounted again. The complete old
text or the complete new one is there then, and after status 0 the new one. docs/robustness.md has
the figures."""
import collections
import concurrent.futures
import ctypes
import fcntl
import itertools
import os
import re
import signal
import subprocess
import sys

from faults import SKIPPED, scratch
from new_content import KEY, OLD, state

os.environ["PATH"] += ":/usr/sbin:/sbin"
BUILD = os.environ["VEK_BUILD"]
FILE_SYSTEMS = {"ext4": 32, "xfs": 300}  # MiB; xfs has no smaller one
SHUT_DOWN = 0x8004587D  # FS_IOC_SHUTDOWN, which is XFS_IOC_GOINGDOWN
CUTS = {"journal flushed": 1, "journal lost": 2}
NEW_MOUNTS, PRIVATE_BELOW, END_WITH_PARENT = 1 << 17, 1 << 18 | 1 << 14, 1

# A program over the files of a disk, and what may be there after a cut: the state of keystore.conf,
# and that of the new content under its temporary name. Each must be met, and no other may be.
Program = collections.namedtuple("Program", "command files temporary ends")
RUNVEKCRED = [BUILD + "/bin/runvekcred", "-sf", "{key}", "-f", "{disk}/keystore.conf"]
PROTECT = [BUILD + "/bin/vekctl", "protect", "--quiet", "--key", "{key}"]
CONF = {"keystore.conf": OLD}
NEVER_MISSING = {("old", "missing"), ("old", "part"), ("old", "new"), ("new", "missing")}
DONE = 0, ("new", "missing")
PROGRAMS = {
    "runvekcred": Program(RUNVEKCRED, CONF, "keystore.conf.bak",
                          NEVER_MISSING | {("missing", "new")}),
    "runvekcred beside an old .bak":
        Program(RUNVEKCRED, {**CONF, "keystore.conf.bak": b"of an earlier run"},
                "keystore.conf.bak", NEVER_MISSING | {("missing", "new")}),
    "vekctl protect": Program([*PROTECT, "{disk}/keystore.conf"], CONF, ".keystore.conf.vekctl",
                              NEVER_MISSING),
    "vekctl protect through a link":
        Program([*PROTECT, "{link}"], CONF, ".keystore.conf.vekctl", NEVER_MISSING),
}

libc = ctypes.CDLL(None, use_errno=True)


def must(result):
    if result == -1:
        raise OSError(ctypes.get_errno(), os.strerror(ctypes.get_errno()))
    return result


class Disk:
    """A small disk with one file system. It goes with this process, even if that is killed: nobody
    else sees what is mounted, and the loop device is kept by an open descriptor alone."""

    def __init__(self, kind, folder):
        self.kind, self.place = kind, folder + "/disk"
        os.mkdir(self.place)
        with open(folder + "/image", "wb") as image:
            image.truncate(FILE_SYSTEMS[kind] << 20)
        subprocess.run(["mkfs." + kind, "-q", image.name], check=True)
        self.device = subprocess.run(["losetup", "--find", "--show", image.name], check=True,
                                     stdout=subprocess.PIPE, text=True).stdout.strip()
        self.keeper = os.open(self.device, os.O_RDONLY | os.O_CLOEXEC)
        subprocess.run(["losetup", "--detach", self.device], check=True)  # when it is closed
        self.mount()

    def mount(self):
        must(libc.mount(self.device.encode(), self.place.encode(), self.kind.encode(), 0, None))

    def fill(self, program):
        for name in os.listdir(self.place):
            if name != "lost+found":
                os.unlink(f"{self.place}/{name}")
        for name, content in program.files.items():
            with open(f"{self.place}/{name}", "wb") as file:
                file.write(content)
        root = os.open(self.place, os.O_RDONLY)
        must(libc.syncfs(root))
        os.close(root)

    def shut_down(self, flag):
        root = os.open(self.place, os.O_RDONLY)
        fcntl.ioctl(root, SHUT_DOWN, flag.to_bytes(4, sys.byteorder))
        os.close(root)

    def unmount(self):
        must(libc.umount2(self.place.encode(), 0))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.unmount()
        os.close(self.keeper)


def traced(command, *options):
    """The exit status of the command under strace."""
    return subprocess.run(["strace", "-f", "-qq", *options, *command],
                          stderr=subprocess.DEVNULL).returncode


def calls_of(command, disk):
    """The system calls that a run makes about files of the disk. No other call changes what a cut
    leaves."""
    trace = disk.place + ".trace"
    assert traced(command, "-y", "-e", "trace=%file,%desc", "-o", trace) == 0
    return set(re.findall(rf"^\d+ +(?!execve)(\w+)\(.*{disk.place}", open(trace).read(), re.M))


def look(disk, program):
    """The states of the file and of what is left beside it, which must not hold a credential."""
    left = f"{disk.place}/{program.temporary}"
    is_clear = os.path.exists(left) and b"secret-of" in open(left, "rb").read()
    return (state(f"{disk.place}/keystore.conf", OLD, KEY),
            "clear text" if is_clear else state(left, OLD, KEY))


def cut_at(disk, program, command, cut, call, number):
    """Result: the status of the run, and what is there after the cut."""
    disk.fill(program)
    status = traced(command, "-o", "/dev/null", "-e", f"trace={call}", "-e",
                    f"inject={call}:signal=KILL:when={number}")
    disk.shut_down(CUTS[cut])
    disk.unmount()
    disk.mount()
    return status, look(disk, program)


def is_put_right(disk, program, command, end):
    """Whether another run changes what is left of this one into the new file, and nothing else."""
    status = subprocess.run(command, stderr=subprocess.DEVNULL).returncode
    if end[0] == "missing":
        return look(disk, program) == end
    return status == 0 and look(disk, program) == ("new", "missing")


def cut_everywhere(task):
    """Result: how often each end was met, and which must not be."""
    kind, name = task
    program = PROGRAMS[name]
    ends, failures = collections.Counter(), []
    with scratch() as folder, Disk(kind, folder) as disk:
        with open(folder + "/key", "wb") as key:
            key.write(KEY)
        link = folder + "/link"
        os.symlink("disk/keystore.conf", link)
        places = {"key": key.name, "disk": disk.place, "link": link}
        command = [word.format(**places) for word in program.command]
        disk.fill(program)
        for cut, call in itertools.product(CUTS, calls_of(command, disk)):
            status, number = -signal.SIGKILL, 0
            while status < 0:
                number += 1
                status, end = cut_at(disk, program, command, cut, call, number)
                ends[end] += 1
                is_good = end in program.ends if status < 0 else (status, end) == DONE
                is_tidy = end[1] == "missing" or is_put_right(disk, program, command, end)
                if not is_good or not is_tidy:
                    failures.append(f"{kind}, {name}, {cut}, {call} ({number}): {status} {end}")
    failures += [f"{task}: never met: {end}" for end in program.ends - ends.keys()]
    return task, ends, failures


def end_with_parent():
    must(libc.prctl(END_WITH_PARENT, signal.SIGKILL))


def hindrance(kind):
    """Why this machine cannot try it, or None."""
    try:
        with scratch() as folder, Disk(kind, folder):
            return None if traced(["true"], "-o", "/dev/null") == 0 else "no process may be traced"
    except (OSError, subprocess.CalledProcessError) as problem:
        return problem


def main():
    try:
        must(libc.unshare(NEW_MOUNTS))
        must(libc.mount(b"none", b"/", None, PRIVATE_BELOW, None))
    except OSError as problem:
        print(f"skipped: needs the right to mount: {problem}")
        return SKIPPED
    left_out = {kind: problem for kind in FILE_SYSTEMS if (problem := hindrance(kind))}
    for kind, problem in left_out.items():
        print(f"skipped: {kind}: {problem}")
    tasks = itertools.product(FILE_SYSTEMS.keys() - left_out.keys(), PROGRAMS)
    failures = []
    workers = concurrent.futures.ProcessPoolExecutor(os.cpu_count(), initializer=end_with_parent)
    with workers as pool:
        for task, ends, bad in pool.map(cut_everywhere, tasks):
            print(f"{sum(ends.values()):5} cuts: {', '.join(task)}: {dict(ends)}")
            failures += bad
    print(*failures, sep="\n")
    return 1 if failures else SKIPPED if left_out else 0


if __name__ == "__main__":
    sys.exit(main())
