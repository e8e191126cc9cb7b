#!/usr/bin/env bash
# What the command protects, the readers hand out: every kind of credential, with both algorithms
# and a key from each source, after each of three runs of the command over its own output.
. "$VEK_SOURCE/tests/support/shell.sh"
# The order of lines that keystore.conf(5) asks for where channels have passwords.
printf '%s\n' pem.{private,public}{,.channel.HUB}=/file \
    'pem.password = a#1' 'pem.password.channel.HUB = b=2' \
    pem.encrypted.channel.HUB=YES pkcs11.{library,certificate,token}=x pkcs11.token_pin=c!3 \
    crl.ldap.{host=h,pass=d+4} >clear
head -c 32 /dev/urandom >raw
od -An -v -tx1 raw | tr -d ' \n' >hexadecimal
# shellcheck disable=SC2094 # a command and a file
base64 raw >base64
echo 'a passphrase' >passphrase
for row in {1,2}\ {built-in,configured,raw,hexadecimal,base64,passphrase}; do
    read -r algorithm source <<<"$row"
    cp clear conf
    unset ZTS_VEKCRED_KEYFILE
    case $source in
    built-in) ;;
    configured) echo "vekcred.keyfile = $scratch/raw" >>conf ;;
    *) export ZTS_VEKCRED_KEYFILE=$source ;;
    esac
    for run in 1 2 3; do
        "$VEK_BUILD/bin/runvekcred" -f conf -sp "$algorithm" 2>err
        is "algorithm $row, run $run: encrypted values" '0 4' \
            "$? $(grep -c "= <VEK>$algorithm!" conf)"
        is "algorithm $row, run $run: what is read" '0 0 0 0 a#1b=2c!3d+4' \
            "$("$VEK_BUILD/tests/credentials" conf 2>err)"
    done
    # Three forms of the file are one key, and the others are not.
    case $source in built-in | passphrase) readable=no ;; *) readable=yes ;; esac
    is "algorithm $row: readable with the key as hexadecimal file" $readable \
        "$(ZTS_VEKCRED_KEYFILE=hexadecimal "$VEK_BUILD/tests/credentials" conf 2>err |
            sed 's/^0 0 0 0 .*/yes/; t; s/.*/no/')"
done
report
