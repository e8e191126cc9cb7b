#!/bin/sh
# replace-file.sh NEW FILE - puts NEW, a file of the same file system, in the place of FILE: with
# the owner and mode of FILE, and with no moment in which FILE is missing or half written. Access
# lists and security labels are not carried over.
set -eu

new=${1:?the new content}
file=$(readlink -e -- "${2:?the file to replace}") # a symbolic link stays one
chown -h --reference="$file" -- "$new"
chmod --reference="$file" -- "$new"
sync "$new"
mv -T -- "$new" "$file"
sync "$(dirname -- "$file")"
