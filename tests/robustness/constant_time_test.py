#!/usr/bin/python3
"""No branch and no address of the product's own code depends on a key or on a clear text. valgrind
runs tests/support/marked_secrets.cpp, which marks them and names each place where something that
comes of them is public."""
import base64
import os
import subprocess
import sys
import tempfile
import xml.etree.ElementTree

PROGRAM = os.path.join(os.environ["VEK_BUILD"], "tests/marked_secrets")
KEY = b"k" * 32
# The subject, the content of its key file, how much of that is secret, and how many places of the
# product may see something of it: whether a file has that form, where the padding stands; the last
# is seen step by step, or nothing would be.
SUBJECTS = {
    "values": (KEY, 32, range(0, 1)),
    "key file, hexadecimal": (KEY.hex().encode() + b"\r\n", 64, range(1, 2)),
    "key file, base64": (base64.b64encode(KEY) + b"\r\n", 44, range(1, 2)),
    "key file, passphrase": (b"a passphrase of some length\r\n", 27, range(0, 1)),
    "memcmp": (b"", 0, range(1, 100)),
}


def is_own(stack):
    """The C library works for whoever called it; what libcrypto does is apart."""
    for frame in stack.iter("frame"):
        name = os.path.basename(frame.findtext("obj", ""))
        if not name.startswith(("libc.", "vgpreload_")):
            return not name.startswith("libcrypto.")
    return True


def place(stack):
    frames = [f'{frame.findtext("fn")} ({frame.findtext("file")}:{frame.findtext("line")})'
              for frame in stack.iter("frame")]
    return " < ".join(frames[:5])


failed = False
for subject, (content, secret_length, allowed) in SUBJECTS.items():
    with tempfile.TemporaryDirectory() as folder:
        key_file, report = folder + "/key", folder + "/report"
        with open(key_file, "wb") as file:
            file.write(content)
        argument = subject.split(",")[0].replace(" ", "")
        done = subprocess.run(
            ["valgrind", "--quiet", "--leak-check=no", "--error-limit=no", "--num-callers=30",
             "--xml=yes", "--xml-file=" + report, PROGRAM, argument, key_file,
             str(secret_length)], check=False, stdin=subprocess.DEVNULL)
        stacks = [error.find("stack")
                  for error in xml.etree.ElementTree.parse(report).iter("error")]
    own = sorted(place(stack) for stack in stacks if is_own(stack))
    print(f"{subject}: {len(own)} places of the product, {len(stacks) - len(own)} of libcrypto")
    print("".join(f"    {where}\n" for where in own), end="")
    if done.returncode != 0 or len(own) not in allowed:
        print(f"FAILED {subject}: exit status {done.returncode}, allowed {allowed}")
        failed = True
sys.exit(failed)
