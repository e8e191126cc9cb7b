#!/usr/bin/env bash
# The command as a process: its start, its trace, and rights. Its runs over files are in
# tests/data/command_runs.txt.
. "$VEK_SOURCE/tests/support/shell.sh"
command=$VEK_BUILD/bin/runvekcred
mkdir work && cd work || exit 1
unset ZTS_KEYSTORE_CONF ZTS_VEKCRED_KEYFILE
export HOME=$PWD

fresh() {
  chmod -R u+w . && rm -rf ./*
  printf 'cms.keystore = /k\npem.password = secret\n' >conf
}
# run NAME STATUS WORDS FILE ARGUMENTS...: what it says holds the words, and the file is not touched
run() {
  cp "$4" ../before
  "$command" -f "${@:4}" >../out 2>../err
  is "$1: status" "$2" $?
  is "$1: says why" 1 "$(grep -cF -- "$3" ../err)"
  is "$1: the file" '' "$(cmp ../before "$4")"
}

# --- Start
if unshare -U --map-user=4000000 true 2>/dev/null; then
  env -u HOME unshare -U --map-user=4000000 "$command" >../out 2>../err
  is 'a user who has no home ends with 15, without a message' '15 0' "$? $(wc -c <../err)"
  env -u HOME unshare -U --map-user=4000000 "$VEK_BUILD/tests/print_section" pem 2>../err
  is 'the readers show one' 1 "$(grep -c ZTM9083E ../err)"
fi
library=$VEK_BUILD/tests/librefused_memory.so
if [ -e "$library" ]; then # one of the requests is the key for the data of threads
  for n in {1..9}; do
    VEK_REFUSED_REQUEST=$n LD_PRELOAD=$library "$command" '-?'
  done >../out 2>../err
  is 'services that do not start' 'svcMiniInitialize failed: 536896295' "$(cat ../out)"
fi

# --- Trace: for its user alone; recorded_runs_test.py has its records
fresh
traced() { ZTS_TRACE=../$1 "$command" "${@:2}" >../out 2>../err; } # traced FILE ARGUMENTS...
traced trace -f conf
is 'is private' 600 "$(stat -c %a ../trace)"
lines=$(wc -l <../trace)
traced trace '-?'
appended=$(wc -l <../trace)
is 'is appended to' yes "$([ "$appended" -gt "$lines" ] && echo yes)"
ln -s trace ../link
traced link '-?'
is 'is not written through a link' "$appended" "$(wc -l <../trace)"
ln ../trace ../second
traced trace '-?'
is 'nor under a second name' "$appended" "$(wc -l <../trace)"
rm ../second && chmod 646 ../trace
traced trace '-?'
is 'becomes private' '600 1' "$(stat -c %a ../trace) $(($(wc -l <../trace) > appended))"
mkfifo ../fifo
traced fifo '-?'
is 'does not wait for a pipe' 10 $?
exec 3<>../fifo
traced fifo '-?'
is 'nor write to one' '10 ' "$? $(dd bs=1 count=1 iflag=nonblock <&3 2>../err)"
exec 3>&-
ZTS_TRACE='' "$command" '-?' 2>../err
is 'no trace' 10 $?

# --- As an ordinary user, where a permission is real
if [ "$(id -u)" = 0 ]; then
  touch ../foreign && chown 65534 ../foreign && traced foreign '-?'
  is 'a trace into a file of another user' '' "$(cat ../foreign)"
  fresh
  mkdir locked && cp conf locked && chmod 555 locked
  # Without its capabilities root obeys the permissions too, wherever the build folder lies.
  printf '#!/bin/sh\nexec setpriv --bounding-set=-all --inh-caps=-all "%s" "$@"\n' "$command" \
    >../as_user
  chmod +x ../as_user
  command=../as_user
  run 'a directory that cannot be written' 1 'Permission denied' locked/conf
  cp conf unreadable && chmod 0 unreadable
  run 'a file that cannot be read' 12 'Permission denied' unreadable -o /dev/null
fi
report
