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
"$tool" "$prefix/bin/runvekcred" /dev/null
"$prefix/bin/runvekcred" '-?' || [[ $? -eq 20 ]] || fail 'a prefix that is no folder'
"$tool" "$prefix/bin/runvekcred" "$prefix"

# A page of each function, and what the pages refer to.
[[ $(cd "$prefix/share/man" && mandoc -Tascii man3/svcWipe.3) == *ZTVEK\(3\)* &&
    -s $prefix/share/doc/ztvek/encrypted-value.md ]] || fail 'the documents'

# The credentials that the installed command encrypts are those that the installed library reads.
cp "$VEK_SOURCE/examples/keystore.conf" "$scratch"
"$prefix/bin/runvekcred" -f "$scratch/keystore.conf" 2>"$scratch/log" || fail 'the installed command'

# reads COMMAND... must print the password of the section "pem" as it was in clear.
reads() {
    [[ $("$@" 2>"$scratch/log") == *'password = Winter-Harbour-42'* ]] || fail "$*"
}

examples=$VEK_SOURCE/examples
export CMAKE_GENERATOR=Ninja PKG_CONFIG_PATH=$prefix/lib64/pkgconfig
for pkg_config in OFF ON; do
    cmake -S "$examples" -B "$scratch/$pkg_config" -DCMAKE_PREFIX_PATH="$prefix" \
        -DUSE_PKG_CONFIG=$pkg_config >"$scratch/log" || fail "finding the library, pkg-config $pkg_config"
    cmake --build "$scratch/$pkg_config" >"$scratch/log" || fail "$(cat "$scratch/log")"
    reads "$scratch/$pkg_config/print_section" --show-credentials pem "$scratch/keystore.conf"
done
reads "$VEK_PYTHON" "$examples/read_section.py" --show-credentials \
    --library "$prefix/lib64/libztvek_r.so.1" "$scratch/keystore.conf"
