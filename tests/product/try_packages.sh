#!/usr/bin/env bash
# try_packages.sh FOLDER - takes the packages of FOLDER the way of an administrator: over an older
# one, as the README says, removed and purged; and the .rpm into an empty root. It works in a copy
# of this system that is in memory and goes with it. Needs root, and leaves nothing.
if [[ $1 != --inside ]]; then
    set -euo pipefail
    source=$(readlink -f -- "$(dirname -- "$0")/../..")
    # shellcheck disable=SC2016 # The shell that is called expands this.
    exec unshare --mount --propagation private --pid --fork --kill-child bash -euc '
        mount -t tmpfs tmpfs /mnt
        mkdir /mnt/{upper,work,root}
        mount -t overlay -o lowerdir=/,upperdir=/mnt/upper,workdir=/mnt/work overlay /mnt/root
        cd /mnt/root
        mount --rbind /dev dev
        mount -t proc proc proc
        mount -t tmpfs tmpfs srv
        cp -r "$1"/{README.md,examples,tests} "$2" srv
        exec chroot . env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LANG=C.UTF-8 \
            DEBIAN_FRONTEND=noninteractive VEK_SOURCE=/srv \
            bash /srv/tests/product/try_packages.sh --inside "/srv/${2##*/}"' \
        bash "$source" "$(readlink -f -- "$1")"
fi
. "$VEK_SOURCE/tests/support/shell.sh"
umask 022
packages=$2

# What stays: a file that is protected with a key of its own.
kept() {
    (cd /etc/ztm && sha256sum keystore.conf initial.key && stat -c '%n %a %U %Y' -- *)
}

# The one package that there was before.
for package in "$packages"/*.deb; do
    dpkg-deb -x "$package" old
done
rm -r old/etc
mkdir old/DEBIAN
cat >old/DEBIAN/control <<'END'
Package: ztvek
Version: 1.0.0
Architecture: all
Maintainer: Somebody <somebody@example.org>
Description: what was there before
END
does 'making an older package' dpkg-deb -b old
does 'installing an older package' dpkg -i old.deb
mkdir /etc/ztm
cp "$VEK_SOURCE/examples/keystore.conf" /etc/ztm
does 'a key' vekctl keygen /etc/ztm/initial.key
does 'protecting' vekctl protect --key /etc/ztm/initial.key --name-key /etc/ztm/keystore.conf
before=$(kept)

cd "$packages" || exit 1
sed -n '/^## Installation$/,/^## /s/^    //p' "$VEK_SOURCE/README.md" >"$scratch/shown"
is 'what the README shows' 'Winter-Harbour-42' "$(bash -eu "$scratch/shown" 2>&1 | tail -n 1)"
is 'configuration and key over an older package' "$before" "$(kept)"
is 'the page of a function' /opt/ztm/share/man/man3/ztvek.3.gz "$(man -w svcWipe)"
# shellcheck disable=SC2016 # The shell that is called expands this.
for command in runvekcred vekctl; do
    is "completion of $command" "complete -F _$command $command" \
        "$(bash -c '. /usr/share/bash-completion/bash_completion
            _completion_loader $0
            complete -p $0' "$command" 2>&1)"
done
does 'find_package' cmake -S /opt/ztm/share/doc/ztvek/examples -B "$scratch/examples"
does 'a program with find_package' cmake --build "$scratch/examples"
cd "$scratch" && mkdir debian && touch debian/control
version=$(dpkg-query -W -f '${Version}' ztvek)
is 'what a program that links the library depends on' "ztvek (>= $version)" \
    "$(dpkg-shlibdeps -O "$packages/read_password" | grep -o 'ztvek ([^)]*)')"
does 'the sample units' systemd-analyze verify \
    /opt/ztm/share/doc/ztvek/examples/systemd/*.{service,timer}

# The bill of materials names each file, with its digest.
for package in ztvek ztvek-dev; do
    bill=/opt/ztm/share/doc/ztvek/$package.spdx.json
    python3 -c 'import json, sys
for file in json.load(sys.stdin)["files"]:
    print(file["checksums"][1]["checksumValue"], "", file["fileName"][1:])' <$bill >digests
    does "digests of $package" sha256sum --check --strict digests
    is "files of $package" "$(cut -d ' ' -f 3 digests | sort)" \
        "$(dpkg -L $package | grep -vxF $bill |
        while read -r file; do [[ -L $file || ! -f $file ]] || echo "$file"; done | sort)"
    dpkg -L $package | while read -r file; do [[ -d $file ]] || echo "$file"; done >>all
done

does 'removing' apt-get -y remove ztvek ztvek-dev
does 'purging' apt-get -y purge ztvek
is 'what is left of the packages' '' "$(xargs ls -d <all 2>/dev/null; ls -d /opt/ztm 2>/dev/null)"
is 'configuration and key after all' "$before" "$(kept)"

# rpm
does 'installing the .rpm' rpm --root "$scratch/empty" --nodeps -i "$packages"/*.rpm
cp "$VEK_SOURCE/examples/keystore.conf" .
does 'running the command of the .rpm' empty/opt/ztm/bin/runvekcred -f keystore.conf
does 'running vekctl of the .rpm' empty/opt/ztm/bin/vekctl check keystore.conf
does 'removing the .rpm' rpm --root "$scratch/empty" -e ztvek ztvek-devel
is 'what is left of the .rpm' '' \
    "$(find empty ! -type d ! -path '*/.rpmdb/*' ! -path '*/lib/rpm/*')"
report
