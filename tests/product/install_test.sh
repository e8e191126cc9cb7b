#!/usr/bin/env bash
# An installation works where it was put: the command knows its prefix, and the examples are built
# and run against the copy, through find_package and through pkg-config.
. "$VEK_SOURCE/tests/support/shell.sh"
prefix="$scratch/a prefix"
tool=$VEK_SOURCE/tools/set-installation-path

# prefix_of COMMAND prints the installation path that a command holds.
prefix_of() {
    LC_ALL=C grep -aoP '@@_ZT_INSTALLATION_PATH_@@\K[^\0]*' "$1"
}

umask 077
for round in first second; do
    does "the $round installation" cmake --install "$VEK_BUILD" --prefix "$prefix"
    is "the prefix in the command, $round installation" "$prefix" \
        "$(prefix_of "$prefix/bin/runvekcred")"
done
DESTDIR=$scratch/stage does 'an installation with DESTDIR' \
    cmake --install "$VEK_BUILD" --prefix /opt/other
is 'the prefix without DESTDIR' /opt/other "$(prefix_of "$scratch/stage/opt/other/bin/runvekcred")"
is 'all can read it, whatever the umask says' '' \
    "$(find "$prefix" stage/opt ! -type l \( -perm /022 -o ! -perm -444 -o -type d ! -perm 755 \))"
is 'all can run the programs' '' "$(find "$prefix/bin" -type f ! -perm 755)"

# What ships is hardened: how each source was compiled, and what can be seen in the result.
commands=$(grep -E '"command": .* -c [^ ]*/(cmd|lib|platform)/' "$VEK_BUILD/compile_commands.json")
hardening=(-fstack-protector-strong -fstack-clash-protection)
[[ $(uname -m) != x86_64 ]] || hardening+=(-fcf-protection)
# Without optimisation, as for coverage, the C library has nothing to check with.
grep -q '^CMAKE_BUILD_TYPE:.*=Debug' "$VEK_BUILD/CMakeCache.txt" ||
    hardening+=('-D_FORTIFY_SOURCE=[23]')
for option in "${hardening[@]}"; do
    is "sources compiled without $option" '' "$(grep -v -e " $option " <<<"${commands:-none}")"
done
for file in "$prefix"/bin/* "$prefix"/lib64/*.so; do
    is "${file##*/} is bound at its start" 1 \
        "$(readelf -dW "$file" | grep -c 'BIND_NOW\|FLAGS .*NOW')"
done

longest=/$(printf '%4094s' '' | tr ' ' x)
does 'setting the longest prefix' "$tool" "$prefix/bin/runvekcred" "$longest"
is 'the longest prefix' "$longest" "$(prefix_of "$prefix/bin/runvekcred")"
is 'a prefix that is too long' 1 "$("$tool" "$prefix/bin/runvekcred" "${longest}x" 2>err; echo $?)"
is 'a relative prefix' 1 "$("$tool" "$prefix/bin/runvekcred" opt/ztm 2>err; echo $?)"
is 'a file without the field' 1 "$("$tool" "$prefix/include/ztvek.h" /opt/ztm 2>err; echo $?)"
does 'setting a prefix that is no folder' "$tool" "$prefix/bin/runvekcred" /dev/null
is 'a prefix that is no folder' 20 "$("$prefix/bin/runvekcred" '-?' 2>err; echo $?)"
does 'setting the prefix again' "$tool" "$prefix/bin/runvekcred" "$prefix"

does 'a document that pages refer to' test -s "$prefix/share/doc/ztvek/encrypted-value.md"

# The credentials that the installed command encrypts are those that the installed library reads.
cp "$VEK_SOURCE/examples/keystore.conf" .
does 'the installed command' "$prefix/bin/runvekcred" -f keystore.conf

# reads COMMAND... must print the password of the section "pem" as it was in clear.
reads() {
    is "$*" 'Winter-Harbour-42' "$("$@" 2>err | sed -n '$s/^password = //; $p')"
}

examples=$VEK_SOURCE/examples
export CMAKE_GENERATOR=Ninja PKG_CONFIG_PATH=$prefix/lib64/pkgconfig
for pkg_config in OFF ON; do
    does "finding the library, pkg-config $pkg_config" cmake -S "$examples" -B $pkg_config \
        -DCMAKE_PREFIX_PATH="$prefix" -DUSE_PKG_CONFIG=$pkg_config
    does "building against it, pkg-config $pkg_config" cmake --build $pkg_config
    reads $pkg_config/read_password keystore.conf
done
reads "$VEK_PYTHON" "$examples/read_section.py" --show-credentials \
    --library "$prefix/lib64/libztvek_r.so.1" keystore.conf
report
