#!/usr/bin/env bash
# The manual pages: mandoc has no complaint, they say what the sources say, and their examples work.
set -uo pipefail
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cd "$VEK_SOURCE/docs/man" || exit 1
if mandoc -Tlint -- *.[135] | grep -v 'referenced manual not found: Xr \(runvekcred 1\|keystore.conf 5\|ztvek 3\)'; then
    exit 1
fi
cd "$scratch" && exec "$VEK_PYTHON" "$VEK_SOURCE/tests/product/manual_facts.py"
