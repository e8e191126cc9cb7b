#!/usr/bin/env bash
# The manual pages: mandoc has no complaint, they say what the sources say, and their examples work.
. "$VEK_SOURCE/tests/support/shell.sh"
known='referenced manual not found: Xr \(runvekcred 1\|vekctl 1\|keystore.conf 5\|ztvek 3\)'
complaints=$(cd "$VEK_SOURCE/docs/man" && mandoc -Tlint -- *.[1357] 2>&1)
is 'mandoc -Tlint' '' "$(grep -v "$known" <<<"$complaints")"
umask 077
mkdir examples && cd examples || exit 1
does 'sources and documents' "$VEK_PYTHON" "$VEK_SOURCE/tests/product/manual_facts.py"
report
