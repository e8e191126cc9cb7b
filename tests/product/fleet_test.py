"""The collection for Ansible on many hosts, each a folder: the plays of docs/fleets.md, what is
refused, and that no log holds a value."""

import atexit
import json
import os
import pathlib
import pwd
import re
import shutil
import subprocess
import sys
import tempfile

SOURCE = pathlib.Path(os.environ["VEK_SOURCE"])
BUILD = pathlib.Path(os.environ["VEK_BUILD"])
FILES_A_HOST = 100
if not shutil.which("ansible-playbook"):
    print("SKIPPED the collection: there is no ansible-playbook")
    sys.exit(77)
# Another user looks into the folders.
os.umask(0o022)
scratch = tempfile.TemporaryDirectory()
work = pathlib.Path(scratch.name)
work.chmod(0o755)
environment = dict(os.environ, HOME=str(work / "home"), LC_ALL="C.UTF-8", ANSIBLE_NOCOLOR="1",
                   ANSIBLE_HOME=str(work / "home"), ANSIBLE_REMOTE_TEMP=str(work / "home/tmp"),
                   PATH=f"{BUILD}/bin:/usr/sbin:/usr/bin:/sbin:/bin",
                   ANSIBLE_COLLECTIONS_PATH=str(work))
failures = []
logs = []


def check(fact, what):
    if not fact:
        failures.append(what)


def run(*command, **options):
    done = subprocess.run(command, env=environment, stdout=subprocess.PIPE, text=True,
                          stderr=subprocess.STDOUT, check=False, **{"cwd": work, **options})
    return done.stdout


def vekctl(*arguments):
    return run("vekctl", *map(str, arguments))


def clear_file(path, value="planted value", end=""):
    path.parent.mkdir(exist_ok=True)
    path.write_text(f"pem.private = /p\npem.public = /c\npem.password = {value}\n{end}")
    return path


def play(name, hosts, *options):
    """The log of a play."""
    inventory = {"all": {"hosts": hosts, "vars": {
        "ansible_connection": "local", "ansible_python_interpreter": os.environ["VEK_PYTHON"],
        "reader": pwd.getpwuid(os.geteuid()).pw_name}}}
    (work / "inventory.json").write_text(json.dumps(inventory))
    logs.append(run("ansible-playbook", "-i", "inventory.json", "-vvv", "--diff", *options, name))
    return logs[-1]


run("ansible-galaxy", "collection", "install", "-p", work, SOURCE / "ansible")
for number, text in enumerate(re.findall(r"```yaml\n(.*?)```", (SOURCE / "docs/fleets.md")
                                         .read_text(), re.S)):
    (work / ("protect.yml", "rekey.yml")[number]).write_text(text)

# Whether vekctl can be run as another user, for which the build must not lie in a private folder.
has_nobody = os.geteuid() == 0 and run("runuser", "-u", "nobody", "--", "vekctl",
                                       "--version").startswith("vekctl ")
# 200 files on two hosts: a dry run foretells what each play does, and the second time there is
# nothing to do.
many = {}
for host in ("one", "two"):
    files = [clear_file(work / host / f"{number}.conf", f"planted {number}")
             for number in range(FILES_A_HOST)]
    many[host] = {"files": list(map(str, files)), "key": str(work / host / "key"),
                  "next_key": str(work / host / "next")}
if has_nobody:
    many["two"]["reader"] = "nobody"
sample = work / "two/99.conf"
for name, deed in (("protect.yml", "encrypted"), ("rekey.yml", "encrypted with the new key")):
    play(name, many, "--tags", "key")
    for expected in (FILES_A_HOST * len(many), 0):
        for options in (["--check", "--skip-tags", "key"], []):
            before = sample.read_text()
            log = play(name, many, *options)
            told = len(re.findall(rf"^/\S+:\d: pem\.password: {deed}$", log, re.M))
            check(told == expected, f"{name} {options}: {told} changed instead of {expected}")
            recap = re.findall(r"^\w+ +: ok=.*", log, re.M)
            check(len(recap) == 2 and all(f" changed={min(expected, 1)} " in line and
                                          " failed=0 " in line for line in recap),
                  f"{name} {options}: {recap}")
            check((before == sample.read_text()) == bool(options or not expected),
                  f"{name} {options}: the file")
    if name == "protect.yml":
        fingerprints = re.findall(r'"fingerprints": \[\s+"(\w+)"\s+\]', log)
        check(len(set(fingerprints)) == 2 and all(
            any(f"fingerprint {found}\n" in vekctl("keyinfo", "--key", many[host]["key"])
                for found in fingerprints) for host in many), f"fingerprints: {fingerprints}")
check(vekctl("get", sample, "pem.password") == "planted 99\n", "a value after all plays")

# What is refused is named with its file and its cause, and stays as it is; the other file is done
# where it can be, and the other hosts are.
other, unreadable, old = work / "one/next", work / "unreadable", work / "old-vekctl"
vekctl("keygen", unreadable)
unreadable.chmod(0)
old.write_text("#!/bin/sh\necho \"vekctl: no such option; see 'vekctl help x'\" >&2\nexit 2\n")
old.chmod(0o755)
(work / "full").mkdir()
mounted = subprocess.run(["mount", "-t", "tmpfs", "-o", "size=64k,mode=700", "none", work / "full"],
                         stderr=subprocess.DEVNULL, check=False).returncode == 0
if mounted:
    atexit.register(subprocess.run, ["umount", work / "full"], check=True)
HOSTS = {
    # host: what stands below in its first file, its variables, whether its second file is done, the
    # cause
    "good": ("", {}, True, ""),
    "absent": ("", {"vekctl": "/absent"}, False, "there is no /absent on this host"),
    "old": ("", {"vekctl": str(old)}, False, "do not belong together"),
    "keyless": ("", {"key": str(unreadable), "reader": "nobody"}, False, "key file '{key}' cannot"),
    "wrong": ("", {}, True, "{file}:4: pem.password: does not open with the key file '{key}'"),
    "unparsable": ("planted\0\n", {}, True, "{file}:4: "),
    "cut": ("crl.ldap.pass = planted#1\n", {}, True, "{file}:4: crl.ldap.pass: its value is cut"),
    "unnamed": ("", {"name_key": False}, False, "{file}: the readers need ZTS_VEKCRED_KEYFILE or"),
    "variable": ("", {"variables": {"ZTS_VEKCRED_KEYFILE": str(other)}}, False,
                 "{file}: the key file '.*/one/next' .* holds another key"),
    "full": ("", {}, False, "{file}: .*the disk is full"),
}
tried = {"full": mounted, "keyless": has_nobody or os.geteuid() != 0}
if not has_nobody:
    HOSTS["keyless"][1].pop("reader")
for host in [host for host, is_tried in tried.items() if not is_tried]:
    print(f"SKIPPED the {host} host: tmpfs, or what nobody can read, cannot be had here")
    HOSTS.pop(host)
variables = {}
before = {}
for host, (end, settings, *_) in HOSTS.items():
    files = [clear_file(work / host / "1.conf", end=end), clear_file(work / host / "2.conf")]
    if host == "wrong":
        vekctl("protect", "--quiet", "--key", other, files[0])
    if host == "full":
        with open(work / "full/filler", "wb", buffering=0) as filler:
            try:
                while filler.write(bytes(1024)):
                    pass
            except OSError:
                pass
    before[host] = [file.read_bytes() for file in files]
    variables[host] = {"files": list(map(str, files)), "key": many["one"]["key"], **settings}
arguments = {name: f"{{{{ {name} | default(omit) }}}}"
             for name in ("files", "key", "reader", "name_key", "vekctl")}
(work / "refused.yml").write_text(json.dumps([{"hosts": "all", "gather_facts": False, "tasks": [
    {"ztm.vek.vek_info": {"path": "{{ files[0] }}"}, "when": "inventory_hostname == 'good'"},
    {"ztm.vek.vek_protect": arguments, "environment": "{{ variables | default({}) }}"}]}]))
log = play("refused.yml", variables)
check(f"{work}/good/1.conf:3: pem.password stands in clear" in log, "the findings of vek_info")
for host, (_, settings, is_done, cause) in HOSTS.items():
    told = re.search(rf'^(?:changed: \[{host}\]()|fatal: \[{host}\].*?^    "msg": "(.*?)"$)', log,
                     re.M | re.S)
    cause = cause.format(file=work / host / "1.conf", key=variables[host]["key"])
    check(told and re.search(cause, told[1] or told[2] or ""), f"{host}: {told and told[2]}")
    now = [(work / host / name).read_bytes() for name in ("1.conf", "2.conf")]
    check((now[0] == before[host][0]) == bool(cause), f"{host}: its first file")
    check((now[1] == before[host][1]) != is_done, f"{host}: its second file")

# No value in any log, nor left behind by a module. What the developers' tools say of the modules,
# as far as they need no network.
check("planted" not in "".join(logs), "a log holds a value")
check(run("grep", "-rl", "planted", "home") == "", "a value was left behind")
MODULES = ("vek_protect", "vek_rekey", "vek_info")
for module in MODULES:
    check("RETURN VALUES" in run("ansible-doc", f"ztm.vek.{module}"), f"ansible-doc {module}")
DOWNLOADING = ("ansible-doc", "changelog", "import", "pep8", "pylint", "runtime-metadata",
               "validate-modules", "yamllint")
collection = work / "ansible_collections/ztm/vek"
# The scratch folder may lie in a repository that ignores it, and its files would be left out.
run("git", "init", "-q", cwd=collection)
sanity = run("ansible-test", "sanity", "--python", "default",
             *(f"--skip-test={test}" for test in DOWNLOADING), cwd=collection)
check('sanity test "compile" on Python 3' in sanity and not re.search("ERROR|FATAL|All targets",
                                                                      sanity), sanity)

print("\n".join(failures) or "no failures")
sys.exit(1 if failures else 0 if all(tried.values()) else 77)
