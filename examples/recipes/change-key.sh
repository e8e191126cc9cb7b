#!/bin/sh
# change-key.sh FILE OLD_KEY NEW_KEY [OPTION...] - protects the credentials of FILE, a
# keystore.conf, with the key file NEW_KEY instead of OLD_KEY, and lets vekcred.keyfile, if FILE has
# it, name NEW_KEY in the same step. The options go to runvekcred. RUNVEKCRED names the command,
# PRINT_SECTION print_section, a program of the tests.
#
# runvekcred does not decrypt; the readers do. Meanwhile the credentials stand in clear in a folder
# of their own in memory (SCRATCH, else /dev/shm). The new file is read back and compared before it
# takes the old one's place.
set -eu
umask 077

fail() {
    printf 'change-key.sh: %s; the file was not changed\n' "$1" >&2
    exit 1
}

# restored VALUE KEY prints the clear text of an encrypted value. The readers of every section
# decrypt alike; that of pkcs11 takes the longest.
restored() {
    {
        printf 'pkcs11.%s = -\n' library certificate token
        printf 'pkcs11.encrypted = YES\npkcs11.token_pin = %s\n' "$1"
    } >"$work/value"
    ZTS_VEKCRED_KEYFILE=$2 "${PRINT_SECTION:-print_section}" --show-credentials pkcs11 "$work/value" \
        >"$work/section" 2>"$work/errors" || {
        cat "$work/errors" >&2
        return 1
    }
    sed -n 's/^token_pin = //p' "$work/section"
}

# in_clear FILE KEY prints FILE with its credentials in clear. Only markers that the readers need
# for a channel stay, behind all passwords, where runvekcred does not take them for its own.
in_clear() {
    while IFS= read -r line || [ -n "$line" ]; do
        word=${line#"${line%%[![:space:]]*}"}
        case $word in
        pem.encrypted*=* | crl.encrypted*=* | pkcs11.encrypted*=* | 'pem.password.channel.encrypted = YES') ;;
        crl.ldap.pass*=*'<VEK>'* | pem.password*=*'<VEK>'* | pkcs11.token_pin*=*'<VEK>'*)
            clear=$(restored "<VEK>${word#*<VEK>}" "$2") || return 1
            case $clear in *[[:space:]]*) fail 'a credential holds a blank: write it by hand' ;; esac
            printf '%s= %s\n' "${word%%[[:space:]=]*}" "$clear"
            ;;
        *) printf '%s\n' "$line" ;;
        esac
    done <"$1"
    grep '^[[:space:]]*pem\.encrypted\.channel\.' "$1" || :
}

recipes=$(dirname -- "$(readlink -f -- "$0")")
file=$(readlink -e -- "${1:?the keystore.conf}") || fail "there is no file $1"
old_key=$(readlink -e -- "${2:?the old key file}") || fail "there is no key file $2"
new_key=$(readlink -e -- "${3:?the new key file}") || fail "there is no key file $3"
shift 3
# Whoever else can write to the folder could put a link in the place of a file that is made here.
unsafe=$(find "$(dirname -- "$file")" -maxdepth 0 \( -perm /022 -o ! -user 0 ! -user "$(id -u)" \))
[ -z "$unsafe" ] || fail "others can write to $unsafe, or it belongs to somebody else"
before=$(sha256sum <"$file")
work=$(mktemp -d "${SCRATCH:-/dev/shm}/change-key.XXXXXX")
staged=$(mktemp -d "$(dirname -- "$file")/.change-key.XXXXXX")
trap 'rm -rf "$work" "$staged"' EXIT
trap 'exit 1' HUP INT TERM

"$recipes/list-clear-credentials.sh" "$file" >"$work/list" || [ $? -eq 1 ]
if grep -v ': in a comment$' "$work/list" >&2; then
    fail 'protect these credentials with the old key first'
fi
in_clear "$file" "$old_key" >"$work/clear" || fail 'a credential cannot be read with the old key'
"${RUNVEKCRED:-runvekcred}" -f "$work/clear" -o "$work/written" -sf "$new_key" "$@" 2>"$work/errors" || {
    status=$?
    cat "$work/errors" >&2
    fail "runvekcred ended with status $status"
}
sed -f "$recipes/tidy.sed" "$work/written" >"$work/keystore.conf"
in_clear "$work/keystore.conf" "$new_key" >"$work/again" || fail 'the new file cannot be read'
cmp -s "$work/clear" "$work/again" || fail 'the new file does not hold the same credentials'

new_key=$new_key awk '/^[ \t]*vekcred\.keyfile[ \t]*=/ { $0 = "vekcred.keyfile = " ENVIRON["new_key"] } { print }' \
    "$work/keystore.conf" >"$staged/keystore.conf"
[ "$(sha256sum <"$file")" = "$before" ] || fail 'the file was changed meanwhile'
"$recipes/replace-file.sh" "$staged/keystore.conf" "$file"
echo changed
