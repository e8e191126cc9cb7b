#!/usr/bin/env bash
# The command as a process: exit status, message numbers, what becomes of the files, and files that
# must not exist.
. "$VEK_SOURCE/tests/support/shell.sh"
command=$VEK_BUILD/bin/runvekcred
mkdir work && cd work || exit 1
unset ZTS_KEYSTORE_CONF ZTS_VEKCRED_KEYFILE
export HOME=$PWD

names() { is "$1" yes "$(grep -qF -- "$2" ../err && echo yes)"; }
fresh() {
  chmod -R u+w . && rm -rf ./* .zts
  printf 'cms.keystore = /k\npem.password = secret\n' >conf
}
# Every file with its state; the files of keys and such stay out.
states() {
  find . -type f -size -100k ! -name '*.key' -printf '%P\n' | sort | while read -r file; do
    state=other
    [ -s "$file" ] || state=empty
    grep -q '^pem.password = secret$' "$file" && state=clear
    grep -qzP '(^|\n)pem.encrypted = YES\npem.password = <VEK>[12]!' "$file" && state=protected
    printf ' %s=%s' "$file" $state
  done
}
# run NAME EXPECTED ARGUMENTS...: exit status, the numbers of all messages in their order, all files
run() {
  "$command" "${@:3}" >../out 2>../err
  is "$1" "$2" "$? $(grep -oE '^ZTM[0-9A-F]{4}[EWI]' ../err | xargs):$(states)"
  is "$1: standard output" '' "$(cat ../out)"
}

# --- Command line
fresh
run 'empty argument ends the scan' '0 ZTM6339W ZTM9105I: conf=protected' -f conf '' -o other

# --- Which file
fresh
run 'nothing at the standard place' '12 ZTM9062E: conf=clear'
if unshare -U --map-user=4000000 true 2>/dev/null; then
  env -u HOME unshare -U --map-user=4000000 "$command" >../out 2>../err
  is 'a user who has no home ends with 15, without a message' '15 0' "$? $(wc -c <../err)"
  env -u HOME unshare -U --map-user=4000000 "$VEK_BUILD/tests/print_section" pem 2>../err
  names 'the readers show one' "ZTM9083E"
fi
library=$VEK_BUILD/tests/librefused_memory.so
if [ -e "$library" ]; then # one of the requests is the key for the data of threads
  for n in {1..9}; do
    VEK_REFUSED_REQUEST=$n LD_PRELOAD=$library "$command" '-?'
  done >../out 2>../err
  is 'services that do not start' 'svcMiniInitialize failed: 536896295' "$(cat ../out)"
fi
mkdir .zts && cp conf .zts/keystore.conf
run 'standard place' '0 ZTM6339W ZTM9105I: .zts/keystore.conf=protected conf=clear'
cp conf named
ZTS_KEYSTORE_CONF=$PWD/named run 'the variable names the file' \
  '0 ZTM6339W ZTM9105I: .zts/keystore.conf=protected conf=clear named=protected'
fresh
: >empty
export ZTS_KEYSTORE_CONF=$PWD/empty
run '-f comes first' '0 ZTM6339W ZTM9105I: conf=protected empty=empty' -FILE conf
unset ZTS_KEYSTORE_CONF
mkfifo pipe
for file in empty . pipe; do
  run "$file is no such file" '12 ZTM9062E: conf=protected empty=empty' -f $file <>pipe
done

# --- Output
fresh
run '-o another file' '0 ZTM6339W ZTM9105I: conf=clear new=protected' -f conf -o new
rm new
run '-o the same text works in place' '0 ZTM6339W ZTM9105I: conf=protected' -f conf -o conf
fresh
run '-o another spelling empties the file' '0 ZTM6339W ZTM9105I: conf=empty' -f conf -o ./conf
fresh
touch conf.bak
run 'output cannot be opened: the .bak of another run stays' \
  '1 ZTM6339W ZTM9106E: conf=clear conf.bak=empty' -f conf -o no/such
rm conf.bak && mkdir conf.bak
run 'the temporary path is a directory' '1 ZTM6339W ZTM9106E: conf=clear' -f conf
run '-o /dev/full is not examined' '0 ZTM6339W ZTM9105I: conf=clear' -f conf -o /dev/full
fresh
{ cat conf && printf 'pem.password = %01000d\n' 7 && echo 'last.line = x'; } >long && mv long conf
run 'a credential too long' '85 ZTM6339W ZTM6337E: conf=clear part=protected' -f conf -o part
is 'the partial output stays, and ends there' 'pem.password = ' "$(tail -n 1 part | cut -c1-15)"
fresh
"$command" -f conf <&- >&- 2>&-
is 'no standard streams' ' conf=protected' "$(states)"
fresh
umask 027
run 'creation mode' '0 ZTM6339W ZTM9105I: conf=protected' -f conf
umask 022
is 'comes from the process' 640 "$(stat -c %a conf)"

# --- Key sources: the first that names a key file decides (each of them alone: roundtrip_test.sh)
fresh
printf 'a passphrase of some length\n' >good.key
printf 'vekcred.keyfile = no/such\n' >>conf && cp conf sample
export ZTS_VEKCRED_KEYFILE=no/such
run 'option before variable' '0 ZTM9105I: conf=protected sample=clear' -f conf -sf good.key
ZTS_VEKCRED_KEYFILE=good.key && cp sample conf
run 'variable before file' '0 ZTM9105I: conf=protected sample=clear' -f conf
ZTS_VEKCRED_KEYFILE='' && cp sample conf
run 'an empty variable is used, and fails' '81 ZTM6335E: conf=clear sample=clear' -f conf
unset ZTS_VEKCRED_KEYFILE
fresh
run 'key file a directory' '81 ZTM6335E: conf=clear' -f conf -sf .
run 'key file empty' '82 ZTM6335E: conf=clear' -f conf -sf /dev/null
run 'key file endless' '82 ZTM6335E: conf=clear' -f conf -sf /dev/zero
# A run never uses the key that it would write over, remove or protect.
own_key() { # own_key NAME ARGUMENTS...
  run "the key file is $1" '87 ZTM6335E: conf=clear conf.bak=other out=other' -f conf "${@:2}"
  is "the key file is $1: it stays" "$(cat good.key)" "$(cat conf.bak)"
}
fresh
printf 'a passphrase of some length\n' | tee good.key >conf.bak
ln conf.bak out && ln -s conf.bak link && ln -s conf conf.link
own_key 'keystore.conf' -sf conf
own_key 'keystore.conf by another name' -sf ./conf.link -o out
ZTS_VEKCRED_KEYFILE=./conf own_key 'keystore.conf, in the variable'
own_key 'the output' -sf conf.bak -o ./conf.bak
own_key 'the output under another name' -sf conf.bak -o out
own_key 'the output behind a link' -sf out -o link
own_key 'the temporary file' -sf conf.bak
run 'a key file beside them' '0 ZTM9105I: conf=clear conf.bak=other new=protected out=other' \
  -f conf -sf good.key -o new
fresh
printf 'no equals sign\n' >>conf
run 'a file that cannot be parsed, with -sf, here a pipe' '0 ZTM9105I: conf=protected' \
  -f conf -sf <(echo phrase)

# --- Odd content
fresh
{
  printf 'a\0b\npem.password = x\r\n'
  printf '%08190d\n%08191d\n%08192d\n%020000d' 0 0 0 0
} >conf
run 'NUL, CRLF, long lines, no last newline' '0 ZTM9105I: conf=protected' -f conf -sf <(echo phrase)
zeros=$(tr -dc 0 <conf | wc -c)
is 'no line is lost' 1 $((zeros >= 8190 + 8191 + 8192 + 20000))

# --- Trace: never a key, and for its user alone; recorded_runs_test.py has its records
fresh
traced() { ZTS_TRACE=../$1 "$command" "${@:2}" >../out 2>../err; } # traced FILE ARGUMENTS...
traced trace -f conf -sf <(printf '0123456789abcdef0123456789ABCDEF')
is 'holds no key' 0 "$(grep -c 0123456789abcdef ../trace)"
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
traced fifo '-?' 3<>../fifo
is 'nor write to one' 10 $?
ZTS_TRACE='' run 'no trace' '10 ZTM3056I: conf=protected' '-?'

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
  run 'a directory that cannot be written' '1 ZTM6339W ZTM9106E: conf=clear locked/conf=clear' \
    -f locked/conf
  names 'says why' 'Permission denied'
  chmod 0 conf
  run 'a file that cannot be read' '12 ZTM9062E: conf=clear locked/conf=clear' -f conf -o /dev/null
  names 'says why' 'Permission denied'
fi
report
