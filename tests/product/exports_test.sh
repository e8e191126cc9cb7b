#!/usr/bin/env bash
# What ships: each library exports what its headers declare and nothing else, and programs and
# libraries need no other libraries than they promise.
. "$VEK_SOURCE/tests/support/shell.sh"
export LC_ALL=C

# same WHAT EXPECTED FOUND, two lists with a word a line.
same() {
    is "$1" "$(sort -u <<<"$2")" "$(sort -u <<<"$3")"
}

# declared HEADER... lists the names that headers declare for export.
declared() {
    cat "$@" | grep -v '^#' | tr '\n' ' ' | grep -oP 'ZT_EXPORT [^;(]*?\K\w+(?= *[(;])'
}

# exported LIBRARY lists the defined dynamic symbols, without versions and their names.
exported() {
    nm -D --defined-only "$VEK_BUILD/lib64/$1" | sed -n 's/^[0-9a-f]* [TDBRV] \([^@]*\).*/\1/p'
}

# dynamic FILE TAG lists the values of one tag in the dynamic section, less the dynamic linker.
dynamic() {
    readelf -dW "$VEK_BUILD/$1" | sed -n "s/.*($2).*\[\(.*\)\]/\1/p" | grep -v '^ld[-0-9]'
}

platform=$VEK_SOURCE/platform
same 'symbols of libztvek_r' "$(declared "$VEK_SOURCE/lib/vek/ztvek.h")" "$(exported libztvek_r.so)"
same 'symbols of libztmcs_r' "$(declared "$platform"/zt{svc,pbe,trc}.h)" "$(exported libztmcs_r.so)"
same 'symbols of libztxzu_r' "$(declared "$platform/ztutl.h")" "$(exported libztxzu_r.so)"

while read -r file runpath needed; do
    same "libraries of $file" "${needed// /$'\n'}" "$(dynamic "$file" NEEDED)"
    same "run path of $file" "$runpath" "$(dynamic "$file" RUNPATH)"
done <<'END'
bin/runvekcred $ORIGIN/../lib64 libztmcs_r.so.1 libztxzu_r.so.1 libc.so.6
bin/vekctl $ORIGIN/../lib64 libztmcs_r.so.1 libztxzu_r.so.1 libc.so.6
lib64/libztvek_r.so $ORIGIN libztmcs_r.so.1 libztxzu_r.so.1 libc.so.6
lib64/libztmcs_r.so $ORIGIN libcrypto.so.3 libc.so.6
lib64/libztxzu_r.so $ORIGIN libc.so.6
END
report
