"""Calls vekctl and hands its answer on. What a file says, which key serves it and whether a value
opens is for vekctl alone to tell."""

import json
import os
import pwd

from ansible.module_utils.basic import AnsibleModule

COMMON_OPTIONS = {
    "files": {"type": "list", "elements": "path", "required": True, "aliases": ["path"]},
    "reader": {"type": "str"},
    "vekctl": {"type": "path"},
}
CHANGE_OPTIONS = {**COMMON_OPTIONS,
                  "name_key": {"type": "bool", "default": True, "no_log": False}}
JSON_VERSION = 1
NO_MATCH = "; the package on this host and the collection do not belong together"


def key_option(path):
    """The argument for a key file. With a relative path the answer would depend on the folder that
    the module happens to run in."""
    return path if path == "built-in" else os.path.abspath(path)


class Vekctl:
    def __init__(self, module: AnsibleModule):
        self.module = module
        self.files = [os.path.abspath(path) for path in module.params["files"]]
        reader = module.params["reader"]
        self.reader = None if reader == pwd.getpwuid(os.geteuid()).pw_name else reader
        name = module.params["vekctl"] or "vekctl"
        self.program = module.get_bin_path(name, opt_dirs=["/opt/ztm/bin"])
        if self.program is None:
            module.fail_json(msg=f"there is no {name} on this host; install the package ztvek")

    def ask(self, command, options, files, as_reader=False):
        """The entries of the files, in their order."""
        if not files:
            return []
        call = [self.program, command, "--json", *options, *files]
        if as_reader and self.reader:
            runuser = self.module.get_bin_path("runuser", required=True)
            call = [runuser, "-u", self.reader, "--", *call]
        status, answer, problem = self.module.run_command(call)
        try:
            document = json.loads(answer)
        except ValueError:
            # vekctl refers to its help when it does not understand a call.
            problem = problem.strip() or f"vekctl ended with status {status}"
            self.fail(problem + (NO_MATCH if " 'vekctl help" in problem else ""))
        if document["version"] != JSON_VERSION:
            self.fail(f"vekctl answers in version {document['version']}" + NO_MATCH)
        return document["files"]

    def fail(self, text, **facts):
        self.module.fail_json(msg=text, **facts)


def place(entry, line):
    return f"{entry['file']}:{line}" if line else entry["file"]


def complaints(entry):
    """Why an entry is no success."""
    if "problem" in entry:
        key = f"{entry['key']}: " if "key" in entry else ""
        return [f"{place(entry, entry.get('line'))}: {key}{entry['problem']}"]
    if entry["outcome"] != "findings":
        return []
    return [f"{place(entry, finding.get('line'))}: {finding['text']}"
            for finding in entry["findings"] if finding["level"] == "error"]


def refuse(entry, cause):
    entry.pop("changes", None)
    entry.update(outcome="failed", problem=cause)


def plan(vekctl, command, options, key):
    """What would be done, without the files whose readers would not find the key or not get it."""
    entries = vekctl.ask(command, [*options, "--dry-run"], vekctl.files)
    for entry in entries:
        if "problem" not in entry and "found" not in entry:
            vekctl.fail("vekctl does not tell whether the readers find the key" + NO_MATCH)
        if not entry.get("found", True):
            refuse(entry, entry["notes"][-1])
    if vekctl.reader:
        looks = vekctl.ask("keyinfo", ["--key", key] if key else [], vekctl.files, as_reader=True)
        for entry, look in zip(entries, looks):
            if "problem" in look and "problem" not in entry:
                refuse(entry, f"for the user {vekctl.reader}: {look['problem']}")
    return entries


def change_files(module, command, options, key):
    """Changes what can be changed, and fails when something cannot."""
    vekctl = Vekctl(module)
    entries = plan(vekctl, command, options, key)
    changing = [i for i, entry in enumerate(entries) if "changes" in entry]
    if not module.check_mode:
        done = vekctl.ask(command, options, [vekctl.files[i] for i in changing])
        for i, entry in zip(changing, done):
            entries[i] = entry
    deeds = [f"{place(entry, deed['line'])}: {deed['key']}: {deed['change']}\n"
             for entry in entries for deed in entry.get("changes", [])]
    result = {"changed": bool(deeds), "files": entries, "diff": {"prepared": "".join(deeds)}}
    problems = [text for entry in entries for text in complaints(entry)]
    if problems:
        vekctl.fail("; ".join(problems), **result)
    module.exit_json(**result)
