#!/usr/bin/env bash
# The recipes do what they say, and the order of lines in which a channel's password can be protected and read
# back stays a working one.
set -uo pipefail
recipes=$VEK_SOURCE/examples/recipes
export RUNVEKCRED=$VEK_BUILD/bin/runvekcred
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cd "$scratch" || exit 1
export PRINT_SECTION=$VEK_BUILD/tests/print_section SCRATCH=$scratch
failures=0
# is NAME EXPECTED COMMAND...: what the command prints, with its exit status on the last line
is() {
    local got
    got=$("${@:3}" 2>err; echo "$?")
    [ "$got" = "$(printf %b "$2")" ] && return
    failures=$((failures + 1))
    printf 'FAILED %s:\n%s\ninstead of\n%b\n' "$1" "$got" "$2"
    cat err
}
# password KEY FILE [OPTION...]: the password that the readers hand out
password() { ZTS_VEKCRED_KEYFILE=$1 "$PRINT_SECTION" --show-credentials "${@:3}" pem "$2" | sed -n 's/^password = //p'; }
protect() { "$recipes/protect-file.sh" "$1" -sf key; }
list() { "$recipes/list-clear-credentials.sh" "$1" | sed 's/^[^:]*://' ; }
general=('pem.private = /p' 'pem.public = /c' 'pem.password = general')
channel() { printf "pem.%s.channel.$1$2=$2%s\n" private /p public /c password secret encrypted YES; }

# --- An initial key
is 'a key is made' 0 "$recipes/make-key.sh" key
is 'private and whole' '600 32\n0' stat -c '%a %s' key
is 'never twice' 2 "$recipes/make-key.sh" key
"$recipes/make-key.sh" other

# --- The password of a channel in front of the general one (behind it: roundtrip_test.sh)
channel TO.HUB ' ' >front
channel TO.HUB ' ' | tac >marker_first
for round in 1 2 3; do
    for file in front marker_first; do "$RUNVEKCRED" -f "$file" -sf key 2>/dev/null; done
    is "the password of the channel, run $round" 'secret\n0' password key front -c TO.HUB
    is "lines of the marker that nobody reads, run $round" "$round\n0" grep -c '^pem.password.channel.encrypted' front
    is "the marker of the readers in front keeps it clear, run $round" '1\n0' grep -c '= secret$' marker_first
done
# The blank in front of a "=" belongs to a key whose first and last letter are equal, and the command writes one.
for row in to.shop:1 p:1 'cap.P:secret\n0' 'SHOP:secret\n0'; do
    name=${row%%:*}
    channel "$name" '' >conf
    "$RUNVEKCRED" -f conf -sf key 2>/dev/null
    is "channel $name after the command" "${row#*:}" password key conf -c "$name"
    sed -i -f "$recipes/tidy.sed" conf
    is "channel $name, made tidy" 'secret\n0' password key conf -c "$name"
done

# --- A file, its owner and its mode
{ printf '%s\n' "${general[@]}" && channel to.shop ''; } >conf && chmod 640 conf && ln -s conf link
[ "$(id -u)" != 0 ] || chown 65534:65534 conf
before=$(stat -c '%a %u %g' conf)
while IFS='|' read -r change verdict; do
    sed "$change" conf >odd
    is "$verdict: listed" "$verdict\n1" bash -c "'$recipes/list-clear-credentials.sh' odd | tail -n 1 | sed s/odd:[0-9]*:.//; exit 1"
    is "$verdict: refused" 1 protect odd
done <<'END'
s/general/a#b/; $!N; s/=s.*//; $d|pem.password: ambiguous
1ipem.encrypted=YES|pem.password.channel.to.shop: kept clear
s/=YES/ =YES/; s/=secret/=<VEK>2!a!b!c/|pem.password.channel.to.shop: not marked
s/=secret/ =<VEK>2!a!b!c/|pem.password.channel.to.shop: not found
END
# shellcheck disable=SC2016
printf '#!/bin/sh\n"%s" "$@" && truncate -s -20 "$4"\n' "$RUNVEKCRED" >./cut
chmod +x cut
is 'a result that was cut is refused' 1 env RUNVEKCRED=./cut "$recipes/protect-file.sh" conf -sf key
chmod 777 .
is 'a folder for everybody is refused' 1 protect conf
is 'for another key too' 1 "$recipes/change-key.sh" conf key other
chmod 700 .
if [ "$(id -u)" = 0 ]; then
    mkdir foreign && cp -p conf foreign && chown 65534 foreign
    is 'a folder of somebody else is refused' 1 protect foreign/conf
    rm -r foreign
fi
is 'a file is protected' 'changed\n0' protect link
is 'once' 'unchanged\n0' protect link
is 'a link stays' 0 test -L link
is 'owner and mode stay' "$before\n0" stat -c '%a %u %g' conf
is 'nothing is clear' 0 "$recipes/list-clear-credentials.sh" conf
echo '# crl.ldap.pass = old' >>conf
is 'a comment is told' '9: crl.ldap.pass: in a comment\n1' list conf
is 'and stays' 'unchanged\n0' protect conf

# --- Another key
echo 'vekcred.keyfile = key' >>conf
is 'another key than the old one is refused' 1 "$recipes/change-key.sh" conf other key
is 'the key is changed' 'changed\n0' "$recipes/change-key.sh" conf key other
is 'owner and mode stay' "$before\n0" stat -c '%a %u %g' conf
is 'the file names the new key' 0 grep -q "^vekcred.keyfile = $scratch/other$" conf
is 'the old key does not read it' 1 password key conf
is 'the new one does' 'general\n0' password other conf
is 'the channel too' 'secret\n0' password other conf -c to.shop
is 'nothing is left behind' 0 find . -name '*change-key.*' -o -name '.protect.*'

# --- Many hosts
if command -v ansible-playbook >/dev/null; then
    export ANSIBLE_HOME=$scratch ANSIBLE_REMOTE_TEMP=$scratch
    play() {
        ansible-playbook -i localhost, -c local "$recipes/protect-hosts.yml" -e "runvekcred='$RUNVEKCRED'" \
            -e "recipes='$scratch/r' keystore_conf='$scratch/host.conf' key_file='$scratch/host.key' owner=$(id -un)" |
            sed -n 's/.* changed=\([0-9]*\) .* failed=\([0-9]*\) .*/\1 \2/p'
    }
    printf '%s\n' "${general[@]}" >host.conf
    is 'a play changes what must be' '4 0\n0' play
    is 'and nothing twice' '0 0\n0' play
    is 'the credential is readable' 'general\n0' password host.key host.conf
    printf '%s\n' pem.encrypted=YES "${general[@]}" >host.conf
    is 'a credential that stays clear fails' '0 1\n2' play
fi
[ "$failures" = 0 ]
