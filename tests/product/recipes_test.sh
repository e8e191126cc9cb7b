#!/usr/bin/env bash
# The playbook for many hosts; what docs/recipes.md shows is run by manual_test.
. "$VEK_SOURCE/tests/support/shell.sh"
vekctl=$VEK_BUILD/bin/vekctl
umask 077
if ! command -v ansible-playbook >/dev/null; then
    skip 'the playbook: there is no ansible-playbook'
    exit 77
fi
export ANSIBLE_HOME=$scratch ANSIBLE_REMOTE_TEMP=$scratch

# play: how many steps changed something, and how many failed
play() {
    ansible-playbook -i localhost, -c local "$VEK_SOURCE/examples/recipes/protect-hosts.yml" \
        -e "vekctl='$vekctl' keystore_conf='$scratch/host.conf' key_file='$scratch/host.key'" \
        -e "owner=$(id -un)" | sed -n 's/.* changed=\([0-9]*\) .* failed=\([0-9]*\) .*/\1 \2/p'
}

settings=('pem.private = /p' 'pem.public = /c')
printf '%s\n' "${settings[@]}" 'pem.password = two words' >host.conf
is 'a play changes what must be' '3 0' "$(play)"
is 'and nothing twice' '0 0' "$(play)"
is 'the readers find the key' 'two words' "$("$vekctl" get host.conf pem.password)"
printf '%s\n' "${settings[@]}" 'pem.password = cut#off' >host.conf
cp host.conf before
is 'a credential that would be cut fails' '0 1' "$(play)"
does 'and the file stays' cmp before host.conf
report
