#!/usr/bin/python
"""Encrypts the credentials that stand in clear."""

DOCUMENTATION = r'''
---
module: vek_protect
short_description: Encrypt the credentials in keystore.conf
version_added: "1.0.0"
description:
  - Encrypts the credentials that stand in clear, as C(vekctl protect) does. Every other line,
    owner and mode stay. A file that is encrypted already is not touched.
  - A file that would lose a credential, whose values have another key, or whose programs would not
    find the key, is refused and stays as it is. The others are treated, and the module fails with
    the name of each refused file, its line and the cause.
options:
  key:
    description:
      - The initial key file on the host. C(vekctl keygen) makes one.
      - Without it each file is encrypted with the key that the programs that read it choose.
      - The word C(built-in) is the built-in key, which everybody has who has the program.
    type: path
  built_in:
    description:
      - Allow the built-in key where no other is named.
    type: bool
    default: false
extends_documentation_fragment:
  - ztm.vek.vekctl
  - ztm.vek.vekctl.change
seealso:
  - module: ztm.vek.vek_info
  - module: ztm.vek.vek_rekey
author:
  - The developers of ztvek (!UNKNOWN)
'''

EXAMPLES = r'''
- name: Encrypt the credentials, and name the key to the programs that read them
  ztm.vek.vek_protect:
    path: /etc/ztm/keystore.conf
    key: /etc/ztm/initial.key
    reader: messages

- name: The same for programs that have the key in their environment
  ztm.vek.vek_protect:
    files:
      - /srv/one/keystore.conf
      - /srv/two/keystore.conf
    key: /etc/ztm/initial.key
    name_key: false
  environment:
    ZTS_VEKCRED_KEYFILE: /etc/ztm/initial.key
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
        - line: 3
          key: pem.password
          change: encrypted
        - line: 0
          key: pem.encrypted
          change: marker added
'''

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.ztm.vek.plugins.module_utils.vekctl import (
    CHANGE_OPTIONS, change_files, key_option)


def main():
    module = AnsibleModule(
        argument_spec={
            **CHANGE_OPTIONS,
            "key": {"type": "path", "no_log": False},
            "built_in": {"type": "bool", "default": False},
        },
        supports_check_mode=True)
    options = []
    key = module.params["key"]
    if module.params["built_in"]:
        options.append("--built-in")
    if key:
        key = key_option(key)
        options += ["--key", key]
        if module.params["name_key"] and key != "built-in":
            options.append("--name-key")
    change_files(module, "protect", options, key)


if __name__ == "__main__":
    main()
