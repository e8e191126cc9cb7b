#!/usr/bin/env bash
# try_service.sh FOLDER - installs the .deb of FOLDER in a copy of this system that is in memory,
# starts systemd there, and does what docs/keys.md says of a service. Needs root and systemd-nspawn;
# ends with 77 where systemd does not start.
if [[ $1 != --inside ]]; then
    set -euo pipefail
    source=$(readlink -f -- "$(dirname -- "$0")/../..")
    # shellcheck disable=SC2016 # The shell that is called expands this.
    exec unshare --mount --propagation private bash -euc '
        mount -t tmpfs tmpfs /mnt
        mkdir /mnt/{upper,work,root}
        mount -t overlay -o lowerdir=/,upperdir=/mnt/upper,workdir=/mnt/work overlay /mnt/root
        cd /mnt/root
        mkdir -p srv/try
        cp -r "$1"/{docs,examples,tests} "$2"/*.deb srv/try
        chroot . sh -c "dpkg -i /srv/try/*.deb" >/dev/null
        printf "[Unit]\nRequires=try.service basic.target\n" >etc/systemd/system/try.target
        printf "%s\n" "[Unit]" After=basic.target SuccessAction=poweroff FailureAction=poweroff \
            "[Service]" Environment=VEK_SOURCE=/srv/try StandardOutput=file:/srv/try/said \
            "ExecStart=bash /srv/try/tests/product/try_service.sh --inside" \
            >etc/systemd/system/try.service
        timeout 300 systemd-nspawn --quiet --register=no --keep-unit --private-network \
            --link-journal=no --boot --directory=. -- --unit=try.target \
            </dev/null >srv/try/boot 2>&1 || :
        if [ ! -e srv/try/said ]; then
            tail srv/try/boot
            echo "SKIPPED the sample service: no systemd starts here"
            exit 77
        fi
        cat srv/try/said
        grep -q " checks as user 0, 0 failed$" srv/try/said' \
        bash "$source" "$(readlink -f -- "$1")"
fi
. "$VEK_SOURCE/tests/support/shell.sh"
samples=$VEK_SOURCE/examples/systemd
mkdir /etc/ztm
cp "$VEK_SOURCE/examples/keystore.conf" /etc/ztm

# What the page shows is commands, and two lines of the drop-in.
sed -n '/^## A service of systemd$/,/^## /s/^    //p' "$VEK_SOURCE/docs/keys.md" >page
grep '^[A-Z]' page >lines
is 'lines of the drop-in' "$(cat lines)" "$(grep -xFf lines "$samples/messages.service.d/key.conf")"
does 'the commands of the page' bash -euo pipefail <(grep -v '^[A-Z]' page)
is 'runs of the service that got the password' 2 \
    "$(journalctl -o cat -u messages.service | grep -c '^password = (hidden)$')"
is 'the clear keys' '' "$(compgen -G '/run/*.key')"

# starts UNIT: the status of systemctl, and what the journal got to hold
starts() {
    local since
    since=$(date +%s.%N)
    systemctl start "$1" 2>/dev/null
    echo $?
    journalctl -o cat --since "@$since" -u vekctl-check.service -u "$1"
}

# A service that runs while another key comes.
cat >/etc/systemd/system/long.service <<'END'
[Service]
Type=exec
LoadCredentialEncrypted=initial.key:/etc/ztm/initial.key.cred
ExecStart=sleep infinity
ExecReload=true
END
does 'a service' systemctl start long.service
key() { sha256sum </run/credentials/long.service/initial.key; }
before=$(key)
vekctl keygen --quiet other.key
cp /etc/ztm/initial.key.cred right.cred
does 'sealing another key' \
    systemd-creds encrypt --name=initial.key other.key /etc/ztm/initial.key.cred
does 'a reload' systemctl reload long.service
is 'the key after a reload' "$before" "$(key)"
does 'a restart' systemctl restart long.service
is 'the key after a restart' "$(sha256sum <other.key)" "$(key)"

said=$(starts messages.service)
is 'a start with a wrong key' 1 "${said%%$'\n'*}"
is 'what the journal says of it' \
    "$(xargs -d '\n' <"$VEK_SOURCE/docs/keys.md" | tr -s ' ' | grep -o 'pem.password does[^`]*')" \
    "$(grep -o 'pem.password does.*' <<<"$said")"
does 'it is listed' grep -q vekctl-check.service <(systemctl --failed)
cp right.cred /etc/ztm/initial.key.cred
is 'a start with the right key' 0 "$(starts messages.service | head -n 1)"
mv /var/lib/systemd/credential.secret .
said=$(starts messages.service)
is 'a start without the host key' 1 "${said%%$'\n'*}"
does 'what the journal says then' grep -q 'status=243/CREDENTIALS' <<<"$said"
does 'and why' grep -q 'Failed to determine local credential key' <<<"$said"
report
