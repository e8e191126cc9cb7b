#!/usr/bin/env bash
# try_machine.sh - the part of tools/machine that runs in the machine. The kernel's command line
# names the step.
step=$(grep -o 'step=[a-z]*' /proc/cmdline)
export VEK_SOURCE=/srv/try PATH=/usr/sbin:/usr/bin:/sbin:/bin
packages=$VEK_SOURCE/packages
examples=/opt/ztm/share/doc/ztvek/examples
runs=0
seals=(host tpm2 host+tpm2)

# mark PLACE WORD, with the number of runs that ended: it is on a disk of its own, where the host
# finds it, before the next command begins.
mark() {
    printf '%-512s' "$2 $runs" |
        dd of=/dev/vdd bs=512 seek="$1" conv=notrunc iflag=fullblock oflag=direct status=none
}

# over_and_over PLACE FOLDER COMMAND... changes the old text into the new one until the power goes.
over_and_over() {
    cd "$2" || exit 1
    while mark "$1" any; do
        cp "$packages/old" fresh
        sync fresh
        mv fresh keystore.conf
        rm -f keystore.conf.bak .keystore.conf.vekctl
        sync .
        "${@:3}" keystore.conf 2>errors && runs=$((runs + 1)) && mark "$1" new
    done
}

# In place of init. The machine tells what the last cut has left, and goes on.
if [[ $step == step=cut ]]; then
    exec >/dev/ttyS1 2>&1
    modprobe xfs
    mkdir /run/{ext4,xfs}
    mount /dev/vdb /run/ext4 && mount /dev/vdc /run/xfs || echo 'cannot mount'
    mkdir -p /run/{ext4,xfs}/{runvekcred,vekctl}
    tar -C /run -cf - ext4 xfs |
        dd of=/dev/vdd bs=4096 seek=1 conv=notrunc,fsync iflag=fullblock status=none
    for place in 0 1 2 3; do mark "$place" any; done
    for folder in /run/{ext4,xfs}/{runvekcred,vekctl}; do
        cp -n "$packages/old" "$folder/keystore.conf"
    done
    sync
    over_and_over 0 /run/ext4/runvekcred runvekcred -sf "$packages/key" -f &
    over_and_over 1 /run/ext4/vekctl vekctl protect --quiet --key "$packages/key" &
    over_and_over 2 /run/xfs/runvekcred runvekcred -sf "$packages/key" -f &
    over_and_over 3 /run/xfs/vekctl vekctl protect --quiet --key "$packages/key" &
    echo 'the loops run'
    wait
fi
. "$VEK_SOURCE/tests/support/shell.sh"

# start: the status of systemctl for the service, and what the journal got to hold
start() {
    local since
    systemctl reset-failed
    since=$(date +%s.%N)
    systemctl start messages.service 2>/dev/null
    echo $?
    journalctl -o cat --since "@$since" -u vekctl-check.service -u messages.service
}

# The service with the key that is sealed by SEAL: works SEAL, and refuses SEAL REASON, which the
# journal must tell.
works() {
    cp "/etc/ztm/$1.cred" /etc/ztm/initial.key.cred
    start >"$scratch/err"
    is "$1" '0 1' "$(head -n 1 err) $(grep -c '^password = (hidden)$' err)"
}
refuses() {
    cp "/etc/ztm/$1.cred" /etc/ztm/initial.key.cred
    start >"$scratch/err"
    is "$1 is refused" '1 0' "$(head -n 1 err) $(grep -c '^password = ' err)"
    is "$1: the journal" 1 "$(grep -cF "$2" err)"
    printf '%s, %s: %s\n' "$step" "$1" \
        "$(grep -m 1 -E '^Failed to (det|load)|^Decryption|digest|does not' err)"
}
seal() {
    for kind in "${seals[@]}"; do
        does "sealing by $kind" systemd-creds encrypt --with-key="$kind" --name=initial.key "$1" \
            "/etc/ztm/$kind.cred"
    done
}
not_started='status=243/CREDENTIALS'

case $step in
step=first)
    does 'apt' apt-get -y install "$packages"/*.deb
    does 'what docs/keys.md says' bash "$VEK_SOURCE/tests/product/try_service.sh" --inside
    rm -r /etc/ztm/*
    cp "$examples/apparmor/ztvek" /etc/apparmor.d
    does 'loading the profile' apparmor_parser -r /etc/apparmor.d/ztvek
    cp "$examples/keystore.conf" /etc/ztm
    does 'a key' vekctl keygen --quiet /run/initial.key
    does 'protecting' vekctl protect --key /run/initial.key /etc/ztm/keystore.conf
    cp /run/initial.key /root/copy.key
    seal /run/initial.key
    for kind in "${seals[@]}"; do works "$kind"; done
    ;;
step=again)
    for kind in "${seals[@]}"; do works "$kind"; done
    vekctl keygen --quiet /run/next.key
    does 'rekey' vekctl rekey --from <(cat /root/copy.key) --to /run/next.key \
        /etc/ztm/keystore.conf
    refuses host 'pem.password does not open'
    seal /run/next.key
    for kind in "${seals[@]}"; do works "$kind"; done

    is 'profile' 'ztvek (enforce)' "$(grep '^ztvek ' /sys/kernel/security/apparmor/profiles)"
    cp "$examples/keystore.conf" /etc/ztm/other.conf
    does 'runvekcred' runvekcred -sf /run/next.key -f /etc/ztm/other.conf
    does 'vekctl' vekctl check --key /run/next.key /etc/ztm/other.conf
    cp "$examples/keystore.conf" /etc/ztm/theirs.conf
    chown nobody /etc/ztm/theirs.conf
    chmod 600 /etc/ztm/theirs.conf
    does 'a file of somebody else' vekctl protect --key /run/next.key /etc/ztm/theirs.conf
    is 'its owner' nobody "$(stat -c %U /etc/ztm/theirs.conf)"
    cp /opt/ztm/bin/vekctl /etc/ztm/other.conf /var/tmp
    does 'vekctl without a profile' /var/tmp/vekctl check --key /run/next.key /var/tmp/other.conf
    does 'vekctl is denied' grep 'no right to do it' \
        <(vekctl check --key /run/next.key /var/tmp/other.conf)
    runvekcred -sf /run/next.key -f /var/tmp/other.conf 2>/dev/null
    is 'runvekcred is denied' 12 $?
    journalctl -k | grep -o 'apparmor="DENIED".*' | tee denials
    is 'who was denied something' 'runvekcred vekctl' \
        "$(grep -oP 'comm="\K\w+' denials | sort -u | xargs)"
    is 'what else is denied' '' "$(grep -v 'profile="ztvek" name="/var/tmp/' denials)"

    # TPM2_PCR_Extend of PCR 7, as firmware does with new keys for Secure Boot.
    printf '%b' '\x80\2\0\0\0\x41\0\0\1\x82\0\0\0\7\0\0\0\x9\x40\0\0\x9\0\0\0\0\0' \
        '\0\0\0\1\0\xb' "$(printf '\\x5a%.0s' {1..32})" >/dev/tpmrm0
    refuses tpm2 "$not_started"
    refuses host+tpm2 "$not_started"
    works host
    ;;
step=elsewhere)
    for kind in "${seals[@]}"; do refuses "$kind" "$not_started"; done
    does 'another host key' systemd-creds setup
    refuses host "$not_started"
    seal /root/copy.key
    for kind in "${seals[@]}"; do works "$kind"; done
    ;;
esac

is 'credentials in the journal' 0 "$(journalctl -o export |
    grep -acE 'Winter-Harbour-42|73519846|Orchard!Lantern7')"
hexadecimal() { od -An -v -tx1 "$@" | tr -d ' \n'; }
for key in /root/copy.key $(compgen -G '/run/*.key'); do
    is "$key in the journal" 0 "$(journalctl -o export | hexadecimal |
        grep -c -e "$(hexadecimal "$key")")"
done
report
