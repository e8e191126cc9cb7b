#!/usr/bin/env bash
# FIPS mode with a provider, and with "absent" as argument without one: what the command protects
# and the readers hand out, and that neither falls back when the mode cannot be had.
. "$VEK_SOURCE/tests/support/shell.sh"
if [ "${1-}" != absent ]; then
    provider=${VEK_FIPS_CONF:-$("$VEK_SOURCE/tools/build-fips-provider" --find)}
    [ -f "$provider" ] || { skip 'FIPS mode with a provider' && exit 77; }
fi
printf '%s\n' pem.{private,public}{,.channel.HUB}=/file pkcs11.{library,certificate,token}=x \
    pem.password=a pem.password.channel.HUB=b pem.encrypted.channel.HUB=YES pkcs11.token_pin=c \
    crl.ldap.{host=h,pass=d} >clear
printf 'fourteen bytes\n' >phrase
printf 'thirteenbytes\n' >short
printf '0123456789abcdef0123456789ABCDEF' >raw
# write KEY OPTION... protects `conf`, a copy of `clear`: exit status and message
write() {
    rm -f conf* && cp clear conf
    "$VEK_BUILD/bin/runvekcred" -f conf -sf "$@" 2>err
    echo "$? $(grep -o '^ZTM....[EWI]' err)"
}
# readers KEY FIPS: the results of the four readers, and the credentials
readers() {
    { printf '%s\n' "pem.fips=$2" "pkcs11.fips=$2" && cat conf; } >marked
    ZTS_VEKCRED_KEYFILE=$1 "$VEK_BUILD/tests/credentials" marked "$2" 2>err
}
# fingerprint KEY OPTION... as vekctl tells it, if it does
fingerprint() {
    "$VEK_BUILD/bin/vekctl" keyinfo --key "$@" 2>/dev/null | sed -n 's/.*, fingerprint //p'
}
# refuses NAME CONFIGURATION MODULES KEY
refuses() {
    export OPENSSL_CONF=$2 OPENSSL_MODULES=$3
    for output in conf new; do
        is "$1: the command refuses" '89 ZTM6349W' "$(write "$4" -sm -o $output)"
        is "$1: nothing is written" 'conf 0' "$(echo conf* new*) $(cmp -s conf clear; echo $?)"
    done
    is "$1: the command works without FIPS mode" '0 ZTM9105I' "$(write "$4")"
    is "$1: no fingerprint" '' "$(fingerprint "$4" --fips)"
    is "$1: the readers refuse" '2 2 2 2 ' "$(readers "$4" yes)"
    is "$1: the readers work without FIPS mode" '0 0 0 0 abcd' "$(readers "$4" no)"
}
shopt -s nullglob
if [ "${1-}" = absent ]; then
    refuses 'no provider' /dev/null "$scratch" raw
    report
fi

# Values cross between the modes, also where every program is in FIPS mode (`strict`).
export OPENSSL_CONF OPENSSL_MODULES
OPENSSL_MODULES=$(dirname "$provider")
sed -e 's/^default = .*//; s/^providers = .*/&\nalg_section = all/' \
    -e '$a[all]\ndefault_properties = fips=yes' \
    "$provider" >strict
while read -r key configuration algorithm reader writer; do
    name="$key, $configuration, algorithm $algorithm $writer"
    OPENSSL_CONF=$provider
    is "$name: writing" '0 ZTM9105I' "$(write "$key" -sp "$algorithm" ${writer:+"$writer"})"
    is "$name: nonces" 4 "$(grep -o '<VEK>[^!]*![^!]*' conf | sort -u | wc -l)"
    OPENSSL_CONF=$configuration
    is "$name: reading, fips=$reader" '0 0 0 0 abcd' "$(readers "$key" "$reader")"
    is "$name: one fingerprint" '1 16' "$({ fingerprint "$key"; fingerprint "$key" --fips; } |
        sort | uniq -d | wc -lL | xargs)"
done < <(printf '%s\n' {"raw $provider",'raw strict'}\ {1,2}\ {yes,'yes -sm','no -sm'} \
    "phrase $provider 1 yes -sm" 'phrase strict 2 yes' "phrase $provider 2 no -sm")
OPENSSL_CONF=$provider
does 'a passphrase that cannot be stretched' "$VEK_BUILD/tests/session_test" \
    --gtest_filter='*HasFipsMode*'

# The provider does the work: what keeps it from working is not made up for by the rest of
# libcrypto.
sed 's/^module-mac = ../module-mac = 00/' "$provider" >changed
{ sed '/^\[fips_sect\]$/,$d' "$provider" && echo '[fips_sect]'; } >unconfigured
mkdir named && cp "$(openssl version -m | cut -d '"' -f 2)/legacy.so" named/fips.so || exit 1
while read -r name configuration modules key; do
    refuses "$name" "$configuration" "$modules" "$key"
done <<END
short-passphrase $provider $OPENSSL_MODULES short
checksum-of-another-module changed $OPENSSL_MODULES raw
module-that-was-not-installed /dev/null $OPENSSL_MODULES raw
other-provider-of-that-name unconfigured $scratch/named raw
END
report
