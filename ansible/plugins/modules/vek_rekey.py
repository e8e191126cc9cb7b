#!/usr/bin/python
"""Moves files to another initial key."""

DOCUMENTATION = r'''
---
module: vek_rekey
short_description: Move keystore.conf to another initial key
version_added: "1.0.0"
description:
  - Encrypts the credentials of files with another key, as C(vekctl rekey) does. One in clear stays
    in clear.
  - A file that has the new key already is not touched, so a run that was stopped is finished by
    another one.
  - A file with a value that neither key opens, or whose programs would not find the new key, is
    refused and stays as it is. The others are treated, and the module fails with the name of each
    refused file, its line and the cause.
options:
  from:
    description:
      - The old initial key file, or the word C(built-in) for the built-in key.
    type: path
    required: true
  to:
    description:
      - The new initial key file, or the word C(built-in).
    type: path
    required: true
extends_documentation_fragment:
  - ztm.vek.vekctl
  - ztm.vek.vekctl.change
seealso:
  - module: ztm.vek.vek_info
  - module: ztm.vek.vek_protect
author:
  - The developers of ztvek (!UNKNOWN)
'''

EXAMPLES = r'''
- name: Move away from the built-in key
  ztm.vek.vek_rekey:
    path: /etc/ztm/keystore.conf
    from: built-in
    to: /etc/ztm/initial.key
    reader: messages
'''

RETURN = r'''
files:
  description:
    - What became of each file, in the words of vekctl(1), section JSON. A refused file has a
      C(problem).
    - A module that fails returns it too. A file with C(changes) was then changed all the same.
  returned: always
  type: list
  elements: dict
  sample:
    - file: /etc/ztm/keystore.conf
      outcome: changed
      found: true
      changes:
        - line: 4
          key: pem.password
          change: encrypted with the new key
        - line: 0
          key: vekcred.keyfile
          change: names the key file
'''

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.ztm.vek.plugins.module_utils.vekctl import (
    CHANGE_OPTIONS, change_files, key_option)


def main():
    module = AnsibleModule(
        argument_spec={
            **CHANGE_OPTIONS,
            "from": {"type": "path", "required": True},
            "to": {"type": "path", "required": True},
        },
        supports_check_mode=True)
    key = key_option(module.params["to"])
    options = ["--from", key_option(module.params["from"]), "--to", key]
    if module.params["name_key"] and key != "built-in":
        options += ["--set-keyfile", key]
    change_files(module, "rekey", options, key)


if __name__ == "__main__":
    main()
