# What the modules of this collection have in common.


class ModuleDocFragment:
    DOCUMENTATION = r'''
options:
  files:
    description:
      - The files, each with its absolute path.
      - All of them are treated in one run of C(vekctl), each whatever becomes of the others.
    type: list
    elements: path
    required: true
    aliases: [path]
  reader:
    description:
      - The user that the programs run as which read the credentials. Whether file and key can be
        read is then tried as this user, through C(runuser), for which the module must run as root.
    type: str
  vekctl:
    description:
      - The program. By default it is looked for in the search path and in C(/opt/ztm/bin).
    type: path
requirements:
  - The package C(ztvek) on the host, with the program C(vekctl).
notes:
  - The environment of the task stands for that of the programs that read the credentials. Where
    those have C(ZTS_VEKCRED_KEYFILE), set it for the task as well, with C(environment).
  - No value of a credential comes into a result, a message, a difference or a log.
'''

    CHANGE = r'''
options:
  name_key:
    description:
      - Let C(vekcred.keyfile) in each file name the key, so that the programs that read it find it.
      - With C(false) a file whose programs would not find the key by themselves, through
        C(ZTS_VEKCRED_KEYFILE) or the line that is there, is refused and stays as it is.
    type: bool
    default: true
attributes:
  check_mode:
    description: Whether the module can say what it would do, and change nothing.
    details: What only a write shows, as a full disk, is not foreseen.
    support: full
  diff_mode:
    description: Whether the module tells what it changes.
    details: The difference has the names of keys, never a value.
    support: full
'''
