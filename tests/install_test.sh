#!/usr/bin/env bash
# An installation works where it was put: the command knows its prefix, and the examples are built and run
# against the copy, through find_package and through pkg-config.
set -euo pipefail
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
prefix="$scratch/a prefix"

fail() {
    printf 'failed: %s\n' "$1" >&2
    exit 1
}

# prefix_of COMMAND prints the installation path that a command holds.
prefix_of() {
    LC_ALL=C grep -aoP '@@_ZT_INSTALLATION_PATH_@@\K[^\0]*' "$1"
}

for round in first second; do
    cmake --install "$VEK_BUILD" --prefix "$prefix" >"$scratch/log" || fail "the $round installation"
    [[ $(prefix_of "$prefix/bin/runvekcred") == "$prefix" ]] || fail 'the prefix in the command'
done
DESTDIR=$scratch/stage cmake --install "$VEK_BUILD" --prefix /opt/other >"$scratch/log"
[[ $(prefix_of "$scratch/stage/opt/other/bin/runvekcred") == /opt/other ]] || fail 'DESTDIR'

tool=$VEK_SOURCE/tools/set-installation-path
longest=/$(printf '%4094s' '' | tr ' ' x)
"$tool" "$prefix/bin/runvekcred" "$longest"
[[ $(prefix_of "$prefix/bin/runvekcred") == "$longest" ]] || fail 'the longest prefix'
"$tool" "$prefix/bin/runvekcred" "${longest}x" 2>"$scratch/log" && fail 'a prefix that is too long'
"$tool" "$prefix/bin/runvekcred" opt/ztm 2>"$scratch/log" && fail 'a relative prefix'
"$tool" "$prefix/include/ztvek.h" /opt/ztm 2>"$scratch/log" && fail 'a file without the field'
"$tool" "$prefix/bin/runvekcred" "$prefix"

# The credentials that the installed command encrypts are those that the installed library reads.
cp "$VEK_SOURCE/examples/keystore.conf" "$scratch"
"$prefix/bin/runvekcred" -f "$scratch/keystore.conf" 2>"$scratch/log" || fail 'the installed command'
