"""Compares the manual pages with the product, and runs what documents show. The working folder is
empty."""

import os
import pathlib
import re
import shutil
import subprocess
import sys

SOURCE = pathlib.Path(os.environ["VEK_SOURCE"])
BUILD = pathlib.Path(os.environ["VEK_BUILD"])
failures = []


def source(path):
    return (SOURCE / path).read_text()


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


# What the product says of itself.
facts = {"message": [], "status": [], "key": []}
for line in subprocess.run([BUILD / "tests/product_facts"], check=True, capture_output=True,
                           text=True).stdout.splitlines():
    kind, _, fact = line.partition(" ")
    facts[kind].append(fact)

# Messages: numbers and texts. An insert is one word in the page.
command_page = rendered("runvekcred.1")
diagnostics = " ".join(section(command_page, "DIAGNOSTICS").split())
for message in facts["message"]:
    pattern = re.sub(r"%[12cn]", r"\\w+",
                     re.sub(r"%[er]", r": \\w+", re.escape(" ".join(message.split()))))
    check(re.search(pattern, diagnostics), f"text of {message}")
same_set("message numbers", re.findall(r"ZTM[0-9A-F]{4}[EWI]", command_page),
         (message.split()[0] for message in facts["message"]))

# Exit statuses, with the code of each that is not its own, and its text.
statuses = dict(re.findall(r"^ {5}(\d+) {2,}(.*)", section(command_page, "EXIT STATUS"), re.M))
for fact in facts["status"]:
    status, code, text = (fact + "  ").split(" ", 2)
    documented = statuses.get(status, "")
    check(code in documented or code == status, f"code of status {status}")
    check(code == "0" or text.strip() in documented, f"text of status {status}")
same_set("exit statuses", statuses, (fact.split()[0] for fact in facts["status"]))

# Keys of keystore.conf.
tags = re.findall(r"^\.It Li ((\S+\.\S+).*)", source("docs/man/keystore.conf.5"), re.M)
same_set("keys of keystore.conf", (key for _, key in tags), facts["key"])

# Prototypes: the compiler takes each beside the one of the header.
section_3 = source("docs/man/ztvek.3")
PROTOTYPE = r'^\.Ft "?(.*?)"?\n\.F[no] (\w+)((?: void| "[^"]*"|\n\.Fa "[^"]*")+)'
prototypes = re.findall(PROTOTYPE, section_3, re.M)
variables = re.findall(r"^\.Vt (extern .*?) ?;", section_3, re.M)
declared = ["#include <ztvek.h>", *(variable + ";" for variable in variables)]
for result, name, arguments in prototypes:
    types = ", ".join(re.findall(r'"([^"]*)"', arguments)) or "void"
    declared.append(f"{result} {name}({types});")
compiled = subprocess.run(["cc", "-std=c99", "-fsyntax-only", f"-I{BUILD}/include", "-xc", "-"],
                          input="\n".join(declared) + "\n", capture_output=True, text=True,
                          check=False)
check(compiled.returncode == 0, f"prototypes of ztvek(3):\n{compiled.stderr}")
symbols = subprocess.run(["nm", "-D", *(BUILD / "lib64").glob("libzt[vm]*.so")], check=True,
                         capture_output=True, text=True)
functions = re.findall(r" T ((?:szt|Szt|svc)\w+)", symbols.stdout)
same_set("prototypes of ztvek(3)", (name for _, name, _ in prototypes), functions)
same_set("names of ztvek(3)", re.findall(r"^\.Nm (\w+)", section_3, re.M), functions)

# Options of vekctl.
def vekctl_help(*topic):
    return subprocess.run([BUILD / "bin/vekctl", "help", *topic], check=True, capture_output=True,
                          text=True).stdout


commands = re.findall(r"^  (\w+)  +\w", section(vekctl_help(), "Subcommands:"), re.M)
OPTION = r"(?<![-\w])--[a-z][a-z-]*"
same_set("options of vekctl(1)", re.findall(OPTION, rendered("vekctl.1")),
         re.findall(OPTION, "".join(map(vekctl_help, commands))) + ["--version"])

# What documents show: a "$" in front of a command, its output behind it. A file that is shown
# before it is there is taken from the document. Encrypted values and fingerprints differ from run
# to run; the folder of the documents is /etc/ztm.
work = pathlib.Path.cwd()
environment = dict(os.environ, HOME=str(work),
                   PATH=f"{BUILD}/bin:{BUILD}/tests:{os.environ['PATH']}",
                   **{f"GIT_{who}_{what}": "somebody" for who in ("AUTHOR", "COMMITTER")
                      for what in ("NAME", "EMAIL")})
VARYING = r"<VEK>\S+|(?<= fingerprint )[0-9a-f]{16}$"
STEP = re.compile(r"^( +)\$ (.*)\n((?:\1(?!\$ ).*\n)*)", re.M)


def run(command):
    done = subprocess.run(["bash", "-c", command], env=environment, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT,
                          text=True, umask=0o077, check=False)
    return done.stdout.replace(str(work), "/etc/ztm")


def alike(text):
    return re.sub(VARYING, "<VEK>", re.sub(r"tag [\w+/]{8}\)", "tag)", text), flags=re.M)


def run_document(name, text):
    for file in work.glob("*"):
        if file.is_dir():
            shutil.rmtree(file)
        else:
            file.unlink()
    commands = []
    for indent, command, output in STEP.findall(text):
        commands.append(command)
        expected = re.sub(f"^{indent}", "", output, flags=re.M)
        shown = re.fullmatch(r"cat (\S+)", command)
        if shown and not (work / shown[1]).exists():
            (work / shown[1]).write_text(expected)
        got = run(command)
        check(alike(got) == alike(expected), f"{name}: {command}\n{got}instead of\n{expected}")
    for command in re.findall(r"^\|.*?\| `(vekctl .*?)`", text, re.M):
        check(any(command in shown for shown in commands), f"{name} does not show {command}")


for page in ("runvekcred.1", "vekctl.1", "keystore.conf.5"):
    run_document(page, rendered(page))
for document in ("README.md", "docs/recipes.md", "docs/fleets.md"):
    run_document(document, source(document))

# The samples of keystore.conf(5) are a whole file, and the program in ztvek(3) reads it.
(work / "keystore.conf").write_text("".join(line + "\n" for line, key in tags if "=" in line))
program = re.search(r"#include.*?\n\}\n", section_3, re.S)[0].replace("\\e", "\\")
check(source("examples/read_password.c").endswith("\n" + program), "the file of the example")
(work / "read_password.c").write_text(program)
compiler = re.search(r"^\.Dl (cc .*)", section_3, re.M)[1].replace("/opt/ztm", str(BUILD))
environment |= {"ZTS_KEYSTORE_CONF": "keystore.conf", "ZTS_VEKCRED_KEYFILE": "key",
                "LD_LIBRARY_PATH": f"{BUILD}/lib64"}
check(run(f"vekctl keygen --quiet key && {compiler} -Wall -Wextra -Werror && runvekcred 2>message"
          " && ./read_password") == "Winter-Harbour-42\n", "the example of ztvek(3)")
for reader in ("cms", "pem", "pkcs11", "crl", "ocsp", "-c TO.HUB cms", "-c TO.HUB pem"):
    check(run(f"print_section {reader} >read") == "", f"the samples of {reader}")

sys.exit("\n".join(failures) or 0)
