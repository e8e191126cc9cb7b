#!/bin/sh
# protect-file.sh FILE [OPTION...] - protects the credentials of FILE, a keystore.conf, and prints
# "changed" or "unchanged". The options go to runvekcred, for example -sf KEY. FILE keeps its owner
# and mode, is never missing, and is replaced only when the result has been checked. RUNVEKCRED
# names the command.
set -eu
umask 077

fail() {
    printf 'protect-file.sh: %s; the file was not changed\n' "$1" >&2
    exit 1
}

# outline FILE prints FILE without markers and without the values of the credentials.
outline() {
    sed -E -e '/^[[:space:]]*(crl|pem|pkcs11)\.encrypted/d' -e '/^pem\.password\.channel\.encrypted/d' \
        -e 's/^[[:space:]]*((crl\.ldap\.pass|pem\.password|pkcs11\.token_pin)[^[:space:]=]*).*/\1/' -e "\$a\\" "$1"
}

recipes=$(dirname -- "$(readlink -f -- "$0")")
file=$(readlink -e -- "${1:?the keystore.conf to protect}") || fail "there is no file $1"
shift
# Whoever else can write to the folder could put a link in the place of a file that is made here.
unsafe=$(find "$(dirname -- "$file")" -maxdepth 0 \( -perm /022 -o ! -user 0 ! -user "$(id -u)" \))
[ -z "$unsafe" ] || fail "others can write to $unsafe, or it belongs to somebody else"
before=$(sha256sum <"$file")
work=$(mktemp -d "$(dirname -- "$file")/.protect.XXXXXX")
trap 'rm -rf "$work"' EXIT
trap 'exit 1' HUP INT TERM

"$recipes/list-clear-credentials.sh" "$file" >"$work/list" || [ $? -eq 1 ]
if grep ': ambiguous$' "$work/list" >&2; then
    fail 'a value holds a blank or a "#"'
fi

status=0
"${RUNVEKCRED:-runvekcred}" -f "$file" -o "$work/written" "$@" 2>"$work/messages" || status=$?
grep -v '^ZTM9105I' "$work/messages" >&2 || :
[ "$status" -eq 0 ] || fail "runvekcred ended with status $status"
sed -f "$recipes/tidy.sed" "$work/written" >"$work/new"

outline "$file" >"$work/before"
outline "$work/new" >"$work/after"
cmp -s "$work/before" "$work/after" || fail 'lines are missing or were cut'
"$recipes/list-clear-credentials.sh" "$work/new" >"$work/list" || [ $? -eq 1 ]
if sed "s|^$work/new|$file|" "$work/list" | grep -v ': in a comment$' >&2; then
    fail 'these credentials would not be readable and encrypted'
fi

if cmp -s "$file" "$work/new"; then
    echo unchanged
    exit
fi
[ "$(sha256sum <"$file")" = "$before" ] || fail 'the file was changed meanwhile'
"$recipes/replace-file.sh" "$work/new" "$file"
echo changed
