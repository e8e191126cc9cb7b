#!/usr/bin/python
"""Tells the findings about files, and the fingerprints of their keys."""

DOCUMENTATION = r'''
---
module: vek_info
short_description: Tell whether the credentials in keystore.conf are encrypted and open
version_added: "1.0.0"
description:
  - Tells of each file what C(vekctl check) finds, and what C(vekctl keyinfo) says of its key.
  - Findings are a result and no failure. The module fails when vekctl cannot be asked.
options:
  key:
    description:
      - Open the values with this key file instead of the one that the programs choose which read
        the file.
      - The word C(built-in) is the built-in key.
    type: path
extends_documentation_fragment:
  - ztm.vek.vekctl
attributes:
  check_mode:
    description: Whether the module can say what it would do, and change nothing.
    details: It never changes anything.
    support: full
  diff_mode:
    description: Whether the module tells what it changes.
    support: N/A
seealso:
  - module: ztm.vek.vek_protect
  - module: ztm.vek.vek_rekey
author:
  - The developers of ztvek (!UNKNOWN)
'''

EXAMPLES = r'''
- name: The programs get every credential
  ztm.vek.vek_info:
    path: /etc/ztm/keystore.conf
    reader: messages
  register: keystore
  failed_when: keystore.errors != []
'''

RETURN = r'''
errors:
  description: The findings that are errors, each with its file and line.
  returned: success
  type: list
  elements: str
  sample:
    - "/etc/ztm/keystore.conf:3: pem.password stands in clear: vekctl protect encrypts it [clear]"
warnings_found:
  description: The findings that are warnings, each with its file and line.
  returned: success
  type: list
  elements: str
  sample: []
fingerprints:
  description: The fingerprints of the keys in use. Two hosts with the same one have the same key.
  returned: success
  type: list
  elements: str
  sample: [93b49aea1d503fb4]
files:
  description:
    - The findings about each file, in the words of vekctl(1), section JSON, with what is said of
      its key as C(keyinfo).
  returned: success
  type: list
  elements: dict
  sample:
    - file: /etc/ztm/keystore.conf
      outcome: clean
      keyinfo:
        file: /etc/ztm/keystore.conf
        outcome: clean
        source: vekcred.keyfile
        form: raw
        path: /etc/ztm/initial.key
        fingerprint: 93b49aea1d503fb4
'''

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.ztm.vek.plugins.module_utils.vekctl import (
    COMMON_OPTIONS, Vekctl, key_option, place)


def findings_of(entries, level):
    return [f"{place(entry, finding.get('line'))}: {finding['text']} [{finding['code']}]"
            for entry in entries for finding in entry.get("findings", [])
            if finding["level"] == level]


def main():
    module = AnsibleModule(
        argument_spec={**COMMON_OPTIONS, "key": {"type": "path", "no_log": False}},
        supports_check_mode=True)
    vekctl = Vekctl(module)
    key = module.params["key"]
    options = ["--key", key_option(key)] if key else []
    entries = vekctl.ask("check", options, vekctl.files, as_reader=True)
    keys = vekctl.ask("keyinfo", options, vekctl.files, as_reader=True)
    for entry, found in zip(entries, keys):
        entry["keyinfo"] = found
    module.exit_json(
        errors=findings_of(entries, "error"), warnings_found=findings_of(entries, "warning"),
        fingerprints=sorted({found["fingerprint"] for found in keys if "fingerprint" in found}),
        files=entries)


if __name__ == "__main__":
    main()
