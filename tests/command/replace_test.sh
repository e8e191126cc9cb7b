#!/usr/bin/env bash
# The file is replaced or stays as it was: on a full disk, beside a lock that stays, and whatever
# lies at the temporary path. As root, what depends on rights is tried as an ordinary user too. A
# prefix of a command is several words, and a shell of its own calls some functions.
# shellcheck disable=SC2086,SC2317
. "$VEK_SOURCE/tests/support/shell.sh"
unset ZTS_TRACE # a limit for the size of files would count for it too
as_user='setpriv --reuid=65534 --regid=65534 --clear-groups'

command=$VEK_BUILD/bin/runvekcred
# As root the test works where the ordinary user can reach the command: outside a closed home, if
# need be.
if [ "$(id -u)" = 0 ]; then
  for folder in "${TMPDIR:-/tmp}" /tmp /var/tmp; do
    rm -rf "$scratch"
    scratch=$(mktemp -d "$folder/replace_test.XXXXXX")
    cd "$scratch" && chmod 711 . && cp -r "$VEK_BUILD"/{bin,lib64} . && chmod -R a+rX bin lib64
    command=$scratch/bin/runvekcred
    "$VEK_SOURCE/tools/set-installation-path" "$command" "$scratch"
    $as_user test -x "$command" && break
  done
fi
head -c 32 /dev/urandom >key
# 3 pages, as its result; the room reserved for that is 4 pages.
{
  printf '%s\n' 'pem.password = one' 'pkcs11.token_pin = two' 'crl.ldap.pass = three'
  seq -f 'cms.certificate.channel.%04g = label' 300
} >sample

states() {
  "$VEK_PYTHON" "$VEK_SOURCE/tests/support/new_content.py" "$scratch/key" "$scratch/sample" "$@"
}
# run NAME EXPECTED FILE [PREFIX...]: exit status, state of the file, state of its .bak
run() {
  local message status
  message=$("${@:4}" timeout 30 "$command" -f "$3" -sf "$scratch/key" 2>&1)
  status=$?
  is "$1" "$2" "$status $(states "$3" "$3.bak")"
  case $status$message in
  0*ZTM9105I* | [1-9]*ZTM????E*) ;;
  *) is "$1: message" 'one' "$message" ;;
  esac
}
fresh() { # fresh FOLDER
  mkdir -p "$1" && chmod 755 "$1" && rm -rf "$1" && mkdir "$1" && cp sample "$1/conf"
}

# --- A lock that is never released: the run goes on after 10 seconds (looked at in the end)
fresh held
exec {lock}<held
flock "$lock"
(
  exec {lock}<&-
  SECONDS=0
  "$command" -f held/conf -sf key 2>/dev/null
  printf '%s %s' $? $((SECONDS >= 9)) >waited
) &
waiting=$!

# --- A full disk: every number of free pages around the reservation, with and without fallocate
disk() {
  mount -t tmpfs -o size=256k tmpfs disk
  local free prefix without='-e inject=fallocate:error=EOPNOTSUPP'
  for free in 0 1 2 3 4 5 40; do
    for prefix in '' "strace -fo /dev/null -e trace=fallocate $without"; do
      rm -f disk/* && cp sample disk/conf
      head -c $((256 * 1024 - 4096 * (3 + free))) /dev/zero >disk/filling
      if [ $free -ge 4 ] || [ -n "$prefix" ] && [ $free -ge 3 ]; then
        run "$free free pages ${prefix:0:6}" '0 new missing' disk/conf $prefix
      else
        run "$free free pages ${prefix:0:6}" '1 old missing' disk/conf $prefix
      fi
    done
  done
  printf '%s %s\n' "$checks" "$failures" >counts
}
mkdir disk
export -f disk run is failed states
export command scratch checks failures
if unshare -Urm mount -t tmpfs tmpfs disk 2>/dev/null; then
  unshare -Urm bash -c disk && read -r checks failures <counts || failures=$((failures + 1))
else
  skip 'a full disk, because namespaces of users are not permitted here'
fi

# --- A limit for the size of files, in KiB around that of the result
fresh limited
run 'no limit' '0 new missing' limited/conf
size=$(($(stat -c %s limited/conf) / 1024))
for limit in 0 1 $size $((size + 1)); do
  fresh limited
  if [ "$limit" -le $size ]; then expected='1 old missing'; else expected='0 new missing'; fi
  run "file size limit $limit" "$expected" limited/conf bash -c "ulimit -f $limit; exec \"\$@\"" run
done

# --- Somebody puts another folder in the place of that which the run has opened and waits for
fresh ours && fresh theirs && cp key theirs/conf.bak
exec {lock}<ours
flock "$lock"
(
  exec {lock}<&-
  exec "$command" -f ours/conf -sf key 2>/dev/null
) &
for ((i = 0; i < 90; ++i)); do
  [ "$(readlink /proc/$!/fd/3)" = "$PWD/ours" ] && break
  sleep 0.1
done
mv ours moved && mv theirs ours
exec {lock}<&-
wait $!
is 'another folder' '0 new missing old part' "$? $(states moved/conf{,.bak} ours/conf{,.bak})"

# --- What lies at the temporary path
printf 'victim\n' >victim
plant() { # plant NAME EXPECTED COMMAND...: the command puts something at planted/conf.bak
  fresh planted
  "${@:3}"
  run ".bak is $1" "$2" planted/conf
  is ".bak is $1: the victim" 'victim' "$(cat victim)"
  is ".bak is $1: the result" "$(id -u) 1 regular file" "$(stat -c '%u %h %F' planted/conf)"
}
plant 'a symbolic link' '0 new missing' ln -s "$PWD/victim" planted/conf.bak
plant 'a dangling link' '0 new missing' ln -s "$PWD/nothing" planted/conf.bak
is 'no file behind the dangling link' 'no' "$([ -e nothing ] || echo no)"
plant 'a link to the file itself' '0 new missing' ln -s conf planted/conf.bak
plant 'a hard link' '0 new missing' ln victim planted/conf.bak
plant 'a FIFO' '0 new missing' mkfifo planted/conf.bak
plant 'a socket' '0 new missing' "$VEK_PYTHON" -c \
    'import socket; socket.socket(socket.AF_UNIX).bind("planted/conf.bak")'
plant 'in a directory that cannot be locked' '0 new missing' chmod 311 planted
fresh planted
mkdir planted/conf.bak
"$command" -f planted/conf -sf key 2>/dev/null
is '.bak is a directory' '1 directory' "$? $(stat -c %F planted/conf.bak)"
cmp -s sample planted/conf || is 'and the file' 'old' 'other'

mounted() { unshare -Urm bash -c 'mount --bind victim planted/conf.bak && exec "$@"' run "$@"; }
fresh planted && touch planted/conf.bak
if mounted true 2>/dev/null; then
  run 'something is mounted on .bak' '1 old part' planted/conf mounted
  is 'something is mounted on .bak: the victim' 'victim' "$(cat victim)"
else
  skipped=1
  echo 'skipped: something mounted on .bak, because namespaces of users are not permitted here'
fi

# --- Paths around the longest one, whose temporary path is cut
long=$(printf "$(printf 'd%.0s' {1..200})/%.0s" {1..20})
mkdir -p "$long"
for row in '4091 0 new .bak' '4092 0 new .ba' '4094 0 new .b' '4095 1 old .'; do
  read -r length status state suffix <<<"$row"
  file=$long$(printf "%0$((length - ${#long}))d" 0)
  cp sample "$file"
  "$command" -f "$file" -sf key 2>said
  is "path of $length characters" "$status $state" "$? $(states "$file")"
  [[ $status == 0 ]] || does 'the reason is told' grep -q 'File name too long' said
  is "nothing else is there ($suffix)" 1 "$(find "$long" -type f | wc -l)"
  rm "$file"
done

# --- Foreign files, and an ordinary user
if [ "$(id -u)" = 0 ]; then
  mknod device c 1 7 2>/dev/null && plant 'a device' '0 new missing' mv device planted/conf.bak
  plant 'foreign' '0 new missing' install -m 666 -o 65534 victim planted/conf.bak
fi
if [ "$(id -u)" = 0 ] && $as_user test -x "$command"; then
  chmod 644 key
  fresh planted && chown -R 65534 planted && install -m 666 victim planted/conf.bak
  run '.bak of root in a folder of the user' '0 new missing' planted/conf $as_user
  is 'owner' 65534 "$(stat -c %u planted/conf)"
  fresh planted && chown 65534 planted/conf && chmod 1777 planted
  install -m 666 victim planted/conf.bak
  run '.bak of root in a sticky folder' '1 old part' planted/conf $as_user
  is '.bak is untouched' 'victim' "$(cat planted/conf.bak)"
  fresh planted && chown -R 65534 planted && chmod 311 planted
  run 'a directory that the user cannot lock' '0 new missing' planted/conf $as_user
elif [ "$(id -u)" = 0 ]; then
  skip 'the checks as an ordinary user, who reaches no folder'
fi

wait $waiting
is 'a lock that is never released: status, 10 seconds' '0 1' "$(cat waited)"
is 'a lock that is never released: the files' 'new missing' "$(states held/conf held/conf.bak)"
report
