#!/usr/bin/env bash
# The command as a process: exit status, message numbers, file contents, and files that must not exist.
set -uo pipefail
command=$VEK_BUILD/bin/runvekcred
scratch=$(mktemp -d)
trap 'chmod -R u+w "$scratch"; rm -rf "$scratch"' EXIT
cd "$scratch" || exit 1
unset ZTS_KEYSTORE_CONF ZTS_VEKCRED_KEYFILE
export HOME=$scratch
failures=0
checks=0

fail() {
  failures=$((failures + 1))
  printf 'FAILED %s: %s\n' "$name" "$1"
  sed 's/^/    /' err
}
check() { # check DESCRIPTION COMMAND...: the command must succeed
  checks=$((checks + 1))
  local what=$1
  shift
  "$@" || fail "$what"
}
fresh() {
  chmod -R u+w . && rm -rf ./* .zts
  printf 'cms.keystore = /k\npem.password = secret\n' >conf
}
# run NAME STATUS "NUMBERS" ARGUMENTS...: exit status, and the numbers of all messages in their order
run() {
  name=$1
  local status=$2 numbers=$3
  shift 3
  "$command" "$@" >out 2>err
  local got=$?
  check "exit status $got, not $status" test "$got" = "$status"
  check "messages $(grep -oE '^ZTM[0-9A-F]{4}[EWI]' err | tr '\n' ' '), not $numbers" \
    test "$(grep -oE '^ZTM[0-9A-F]{4}[EWI]' err | tr '\n' ' ')" = "${numbers:+$numbers }"
  check "standard output is not empty" test ! -s out
}
is_protected() { grep -q '^pem.encrypted = YES$' "$1" && grep -q '^pem.password = <VEK>[12]!' "$1"; }
is_clear() { grep -q '^pem.password = secret$' "$1"; }
names() { grep -qF -- "$1" err; }

# --- Command line
fresh
run 'bare word' 10 'ZTM7027E ZTM3056I' file
check 'names the argument' names "'file'"
run 'missing value' 10 'ZTM7027E ZTM3056I' -f
run 'help' 10 'ZTM3056I' '-?'
for algorithm in 0 3 -1 + 4294967298; do run "-sp $algorithm" 10 'ZTM3056I' -f conf -sp "$algorithm"; done
run '-sp with a blank behind' 10 'ZTM7027E ZTM3056I' -f conf -sp '2 '
check 'nothing was touched' is_clear conf
check 'no temporary file' test ! -e conf.bak
run 'empty argument ends the scan' 0 'ZTM6339W ZTM9105I' -f conf '' -o other
check 'protected in place' is_protected conf
check '-o was ignored' test ! -e other

# --- Which file
fresh
run 'nothing at the standard place' 12 'ZTM9062E'
check 'names the file and why' names "'$scratch/.zts/keystore.conf'"
check 'and why' names 'No such file or directory'
if unshare -U --map-user=4000000 true 2>/dev/null; then
  name='a user who has no home'
  env -u HOME unshare -U --map-user=4000000 "$command" >out 2>err
  check 'ends with 15, without a message' test "$? $(wc -c <err)" = '15 0'
fi
library=$VEK_BUILD/tests/librefused_memory.so
if [ -e "$library" ]; then
  name='no key for data of threads'
  for ((request = 1; request < 20; ++request)); do
    VEK_REFUSED_REQUEST=$request LD_PRELOAD=$library "$command" -f conf >out 2>err
    status=$?
    [ -s out ] && break
  done
  check 'ends with its status' test "$status $(cat out)" = '68 svcMiniInitialize failed: 536896295'
  check 'nothing was done' is_clear conf
fi
name='no standard streams' && "$command" -f conf <&- >&- 2>&-
check 'the file is protected all the same' is_protected conf
fresh
mkdir .zts && cp conf .zts/keystore.conf
run 'standard place' 0 'ZTM6339W ZTM9105I'
check 'protected' is_protected .zts/keystore.conf
cp conf named
name='variable' && ZTS_KEYSTORE_CONF=$scratch/named "$command" >out 2>err
check 'the variable names the file' is_protected named
run '-f comes first' 0 'ZTM6339W ZTM9105I' -FILE conf
check 'protected' is_protected conf
: >empty
run 'empty file' 12 'ZTM9062E' -f empty
run 'directory' 12 'ZTM9062E' -f .zts
mkfifo pipe
run 'pipe' 12 'ZTM9062E' -f pipe <>pipe

# --- Output
fresh
run '-o another file' 0 'ZTM6339W ZTM9105I' -f conf -o new
check 'the result is there' is_protected new
check 'the old file stays' is_clear conf
check 'no temporary file' test ! -e conf.bak
run '-o the same text' 0 'ZTM6339W ZTM9105I' -f conf -o conf
check 'works in place' is_protected conf
check 'no temporary file' test ! -e conf.bak
fresh
run '-o another spelling' 0 'ZTM6339W ZTM9105I' -f conf -o ./conf
check 'empties the file' test -e conf -a ! -s conf
fresh
touch conf.bak
run 'output cannot be opened' 1 'ZTM6339W ZTM9106E' -f conf -o no/such
check 'names it' names "'no/such'"
check 'conf stays' is_clear conf
check 'a foreign run is no reason to remove .bak' test -e conf.bak
mkdir -p sub && cp conf sub && mkdir sub/conf.bak
run 'the temporary path is a directory' 1 'ZTM6339W ZTM9106E' -f sub/conf
check 'conf stays' is_clear sub/conf
run '-o /dev/full is not examined' 0 'ZTM6339W ZTM9105I' -f conf -o /dev/full
fresh
{ cat conf && printf 'pem.password = %01000d\n' 7 && echo 'last.line = x'; } >long && cp long long.old
run 'a credential too long' 85 'ZTM6339W ZTM6337E' -f long
check 'the file is unchanged' cmp -s long long.old
check 'no temporary file' test ! -e long.bak
run 'the same with -o' 85 'ZTM6339W ZTM6337E' -f long -o part
check 'the partial output stays, without what follows' test "$(tail -n 1 part | cut -c1-15)" = 'pem.password = '
umask 027
run 'creation mode' 0 'ZTM6339W ZTM9105I' -f conf
umask 022
check 'comes from the process' test "$(stat -c %a conf)" = 640

# --- Key sources: each file of `keys` is one key; the first source that names one decides
fresh
printf 'a passphrase of some length\n' >good
printf '%064d\n' 7 >hex
cp conf sample
printf 'vekcred.keyfile = hex\n' >>sample
{ cat conf && printf 'vekcred.other = x\n'; } >other
for row in 'default|other||' 'configured|sample||' 'variable|sample|good|' 'option|sample|no/such|good'; do
  IFS='|' read -r name file variable option <<<"$row"
  cp "$file" work
  (
    if [ -n "$variable" ]; then export ZTS_VEKCRED_KEYFILE=$variable; fi
    "$command" -f work ${option:+-sf "$option"} >out 2>err
  )
  check 'succeeds' test $? = 0
  check 'protects' is_protected work
  check 'warns only for the default key' test "$(grep -c ZTM6339W err)" = "$([ "$name" = default ] && echo 1 || echo 0)"
done
run 'option unreadable' 81 'ZTM6335E' -f conf -sf a/b/key.kdb
check 'names the last component' names "'key.kdb'"
run 'path ends in /' 81 'ZTM6335E' -f conf -sf a/b/
check 'keeps the slash' names "'b/'"
name='empty variable' && ZTS_VEKCRED_KEYFILE='' "$command" -f conf >out 2>err
check 'is used, and fails' test $? = 81
run 'key file empty' 82 'ZTM6335E' -f conf -sf /dev/null
run 'key file endless' 82 'ZTM6335E' -f conf -sf /dev/zero
run 'key file a directory' 81 'ZTM6335E' -f conf -sf .
printf 'vekcred.keyfile = a\nvekcred.keyfile = b\n' >>conf
run 'keyfile twice' 15 'ZTM6339W' -f conf
check 'nothing was done' is_clear conf
cp sample work
run 'pipe as key file' 0 'ZTM9105I' -f work -sf <(cat good)
printf 'no equals sign\n' >>sample
run 'file that cannot be parsed' 11 'ZTM6339W' -f sample
run 'is rewritten all the same with -sf' 0 'ZTM9105I' -f sample -sf good
check 'protected' is_protected sample

# --- Odd content
fresh
{
  printf 'a\0b\npem.password = x\r\n'
  printf '%08190d\n%08191d\n%08192d\n%020000d' 0 0 0 0
} >conf
run 'NUL, CRLF, long lines, no last newline' 0 'ZTM9105I' -f conf -sf <(echo phrase)
check 'no line is lost' test "$(tr -d '\n' <conf | tr -dc 0 | wc -c)" -ge $((8190 + 8191 + 8192 + 20000))
run 'algorithm 1' 0 'ZTM9105I' -f conf -o one -sp 1 -sf <(echo phrase)

# --- Trace: what a user of it looks for, and never a key
fresh
traced() { # traced FILE ARGUMENTS...
  name="trace into $1"
  ZTS_TRACE=$scratch/$1 "$command" "${@:2}" >out 2>err
}
traced trace -f conf -sf <(printf '0123456789abcdef0123456789ABCDEF')
check 'names the key source with its place' \
  grep -qE "parms 16:370 +\[cmd/vek/runvekcred:[0-9]+\] Using initial key from file '/dev/fd" trace
check 'records every line' test "$(grep -c 'entry 16:371' trace)" = 2
check 'holds the exit' grep -qE '^20[0-9T:.-]+Z [0-9]+\.[0-9]+ exit  16:370 rc=0$' trace
check 'holds no key' bash -c '! grep -q 0123456789abcdef trace'
check 'is private' test "$(stat -c %a trace)" = 600
lines=$(wc -l <trace)
traced trace '-?'
check 'is appended to' test "$(wc -l <trace)" -gt "$lines"
lines=$(wc -l <trace)
ln -s trace link
traced link '-?'
check 'is not written through a link' test "$(wc -l <trace)" = "$lines"
mkfifo fifo
traced fifo '-?'
check 'does not wait for a pipe' test $? = 10
traced fifo '-?' 3<>fifo
check 'is not written to a pipe' test $? = 10
name='no trace' && ZTS_TRACE='' "$command" '-?' 2>err
check 'with an empty name' test $? = 10

# --- As an ordinary user, where a permission is real
if [ "$(id -u)" = 0 ]; then
  name='ordinary user'
  touch foreign && chown 65534 foreign && traced foreign '-?'
  check 'a trace is not written to a file of another user' test ! -s foreign
  fresh
  mkdir locked && cp conf locked && chmod 555 locked
  # Without its capabilities root obeys the permissions too, wherever the build folder lies.
  as_user() { setpriv --bounding-set=-all --inh-caps=-all "$command" "$@" >out 2>err; }
  as_user -f locked/conf
  check 'a directory that cannot be written' test $? = 1
  check 'says why' names 'Permission denied'
  check 'the file stays' is_clear locked/conf
  chmod 0 conf
  as_user -f conf -o /dev/null
  check 'a file that cannot be read' test $? = 12
  check 'says why' names 'Permission denied'
fi

printf '%s checks, %s failed\n' "$checks" "$failures"
[ "$failures" = 0 ]
