"""What became of a keystore.conf: new_content.py KEY OLD FILE... prints a state for each FILE."""
import os
import re
import sys

import decrypt_value

# A key, and a text of more than one block with a credential of each section that has one.
KEY = bytes(range(7, 39))
FILLING = b"".join(b"cms.certificate.channel.C%04d = label\n" % i for i in range(1000))
OLD = (b"pem.password = secret-of-pem\n" + FILLING + b"pkcs11.token_pin = secret-of-token\n" +
       FILLING + b"crl.ldap.pass = secret-of-server\n")

ANSWERS = os.path.join(os.environ["VEK_SOURCE"], "tests/data/known_answers.txt")
SALT = bytes.fromhex(re.search(r"^salt (\w+)", open(ANSWERS).read(), re.MULTILINE)[1])
KEYS = {b"crl.ldap.pass": b"crl", b"pem.password": b"pem", b"pkcs11.token_pin": b"pkcs11"}


def state(path, old, key):
    """Missing, old, new (every credential protected, the rest unchanged), or part."""
    if not os.path.lexists(path):
        return "missing"
    text = open(path, "rb").read()
    if text == old:
        return "old"
    for name, section in KEYS.items():
        clear = re.search(rb"%b = (\S+)\n" % name, old)
        stored = re.search(rb"%b\.encrypted = YES\n(?=%b = (<VEK>\S+)\n)" % (section, name), text)
        try:
            if stored is None or decrypt_value.decrypt(stored[1], key, SALT) != clear[1]:
                return "part"
        except Exception:  # whatever a damaged value leads to
            return "part"
        text = text.replace(stored[0], b"").replace(stored[1], clear[1])
    return "new" if text == old else "part"


if __name__ == "__main__":
    contents = [open(path, "rb").read() for path in sys.argv[1:3]]
    print(*(state(path, contents[1], contents[0]) for path in sys.argv[3:]))
