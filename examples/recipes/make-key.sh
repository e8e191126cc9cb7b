#!/bin/sh
# make-key.sh FILE - makes an initial key of 32 random bytes. A file that is there is never
# overwritten: the credentials that its key protects would be lost.
set -eu
umask 077

key=${1:?the file to make}
set -C
head -c 32 /dev/urandom >"$key"
if [ "$(wc -c <"$key")" -ne 32 ]; then
    rm -f "$key"
    printf 'make-key.sh: %s could not be written\n' "$key" >&2
    exit 1
fi
sync "$key"
