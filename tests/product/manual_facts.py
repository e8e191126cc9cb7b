"""Compares the manual pages with the sources, and runs what documents show. The working folder is
empty."""

import os
import pathlib
import re
import subprocess
import sys

SOURCE = pathlib.Path(os.environ["VEK_SOURCE"])
BUILD = pathlib.Path(os.environ["VEK_BUILD"])
LITERALS = r'((?:"(?:[^"\\]|\\.)*"\s*)+)'
failures = []


def source(path):
    return (SOURCE / path).read_text()


def joined(literals):
    return "".join(re.findall(r'"((?:[^"\\]|\\.)*)"', literals)).replace("\\n", "\n")


def rendered(page, width=1000):
    command = ["mandoc", "-Tascii", f"-Owidth={width}", SOURCE / "docs/man" / page]
    done = subprocess.run(command, check=True, capture_output=True, text=True)
    return re.sub(".\b", "", done.stdout)


def check(fact, what):
    if not fact:
        failures.append(what)


def section(text, title):
    return re.search(rf"^{title}\n(.*?)^(?=\S)", text, re.M | re.S)[1]


def same_set(what, documented, expected):
    difference = set(documented) ^ set(expected)
    check(not difference, f"{what}: {difference}")


# Messages: numbers and texts. An insert is one word in the page.
codes = {name: int(code, 0) for header in ("platform/ztsvc.h", "platform/ztpbe.h")
         for name, code in re.findall(r"(SVC_\w+) = (0x\w+)", source(header))}
command_page = rendered("runvekcred.1")
messages = {}
for name, text in re.findall(r"\{(SVC_MSG_\w+),\s*" + LITERALS,
                             source("platform/common/catalogue.cpp")):
    number = "ZTM{:04X}{}".format(codes[name] & 0xFFFF,
                                  {2: "E", 1: "W"}.get(codes[name] >> 28, "I"))
    messages[number] = joined(text)
diagnostics = " ".join(section(command_page, "DIAGNOSTICS").split())
for number, text in messages.items():
    pattern = re.sub(r"%[12cn]", r"\\w+",
                     re.sub(r"%[er]", r": \\w+", re.escape(" ".join(text.split()))))
    check(re.search(rf"{number} {pattern}", diagnostics), f"text of {number}")
same_set("message numbers", re.findall(r"ZTM[0-9A-F]{4}[EWI]", command_page), messages)

# Exit statuses, with the code of each and, for those of the PBE service, its text.
statuses = dict(re.findall(r"^ {5}(\d+) {2,}(.*)", section(command_page, "EXIT STATUS"), re.M))
reasons = {name: joined(text)
           for name, text in re.findall(r"\{(SVC_\w+),\s*" + LITERALS,
                                        source("platform/common/catalogue.cpp"))}
table = re.findall(r"\{(\w+), (\d+)\}", source("platform/utility/exit_status.cpp"))
for name, status in table:
    code = codes[name] if name in codes else int(name, 0)
    text = statuses.get(status, "")
    check((f"0x{code:08X}" if code > 0xFFFF else str(code)) in text, f"code of status {status}")
    check(reasons.get(name, "") in text, f"text of status {status}")
own = re.findall(r"REASON_\w+ = (\d+)", source("cmd/vek/runvekcred/reason.h"))
readers = re.findall(r"SZTU_(?:CANNOT|BAD_CONFIG)\w* = (\d+)", source("lib/vek/ztvek.h"))
same_set("exit statuses", statuses, {s for _, s in table} | {s for s in own if int(s) < 64}
         | {*readers, "0", "255"})

# Keys of keystore.conf.
keys = set()
ROW = r'\{(\w+)_SECTION, "([\w.]+)", Kind::\w+, Form::(\w+)\}'
for name, key, form in re.findall(ROW, source("lib/vek/shared.h")):
    name = name.lower().replace("key_source", "vekcred")
    keys.add(f"{name}.{key}")
    if form == "generalOrNamed":
        keys.add(f"{name}.{key}.channel.TO.HUB")
tags = re.findall(r"^\.It Li ((\S+\.\S+).*)", source("docs/man/keystore.conf.5"), re.M)
same_set("keys of keystore.conf", (key for _, key in tags), keys)

# Prototypes.
section_3 = source("docs/man/ztvek.3")
headers = ("lib/vek/ztvek.h", "platform/ztpbe.h", "platform/ztsvc.h")
header = " ".join(" ".join(map(source, headers)).split())
prototypes = re.findall(r'^\.F[no] (\w+)((?: void| "[^"]*"|\n\.Fa "[^"]*")+)', section_3, re.M)
for name, arguments in prototypes:
    prototype = "{}({})".format(name, ", ".join(re.findall(r'"([^"]*)"', arguments)) or "void")
    check(prototype in header, prototype)
symbols = subprocess.run(["nm", "-D", *(BUILD / "lib64").glob("libzt[vm]*.so")], check=True,
                         capture_output=True, text=True)
functions = re.findall(r" T ((?:szt|Szt|svc)\w+)", symbols.stdout)
same_set("prototypes of ztvek(3)", (name for name, _ in prototypes), functions)
same_set("names of ztvek(3)", re.findall(r"^\.Nm (\w+)", section_3, re.M), functions)

# What documents show: a "$" in front of a command, its output behind it. A file that is shown
# before it is there is taken from the document. Encrypted values differ from run to run.
work = pathlib.Path.cwd()
environment = dict(os.environ, HOME=str(work),
                   PATH=f"{BUILD}/bin:{SOURCE}/examples/recipes:{BUILD}/tests:{os.environ['PATH']}")
STEP = re.compile(r"^( +)\$ (.*)\n((?:\1(?!\$ ).*\n)*)", re.M)


def run(command):
    done = subprocess.run(["bash", "-c", command], env=environment, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT,
                          text=True, umask=0o077, check=False)
    return re.sub(r"<VEK>\S+", "<VEK>", done.stdout)


def run_document(name, text):
    for file in work.glob("*"):
        file.unlink()
    for indent, command, output in STEP.findall(text):
        expected = re.sub(r"<VEK>\S+", "<VEK>", re.sub(f"^{indent}", "", output, flags=re.M))
        shown = re.fullmatch(r"cat (\S+)", command)
        if shown and not (work / shown[1]).exists():
            (work / shown[1]).write_text(expected)
        got = run(command)
        check(got == expected, f"{name}: {command}\n{got}instead of\n{expected}")


for page in ("runvekcred.1", "keystore.conf.5"):
    run_document(page, rendered(page))
for document in ("README.md", "docs/recipes.md"):
    run_document(document, source(document))

# The samples of keystore.conf(5) are a whole file, and the program in ztvek(3) reads it.
(work / "keystore.conf").write_text("".join(line + "\n" for line, key in tags if "=" in line))
program = re.search(r"#include.*?\n\}\n", source("docs/man/ztvek.3"), re.S)[0].replace("\\e", "\\")
(work / "example.c").write_text(program)
compiler = re.search(r"^\.Dl (cc .*)", source("docs/man/ztvek.3"), re.M)[1]
compiler = compiler.replace("/opt/ztm", str(BUILD))
environment |= {"ZTS_KEYSTORE_CONF": "keystore.conf", "ZTS_VEKCRED_KEYFILE": "key",
                "LD_LIBRARY_PATH": f"{BUILD}/lib64"}
check(run(f"make-key.sh key && {compiler} -Wall -Wextra -Werror && runvekcred 2>message"
          " && ./example")
      == "/etc/ztm/pem/messages.key\npurpose: checked\n", "the example of ztvek(3)")
for reader in ("cms", "pem", "pkcs11", "crl", "ocsp", "-c TO.HUB cms", "-c TO.HUB pem"):
    check(run(f"print_section {reader} >read") == "", f"the samples of {reader}")

sys.exit("\n".join(failures) or 0)
