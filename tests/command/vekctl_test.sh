#!/usr/bin/env bash
# vekctl in the hands of a person: what it shows of odd names, a value typed on a terminal, disks
# and rights. Its runs over files are in tests/data/command_runs.txt.
. "$VEK_SOURCE/tests/support/shell.sh"
vekctl=$VEK_BUILD/bin/vekctl

umask 077
does 'a key' "$vekctl" keygen key
is 'mode and length of a key' '600 32' "$(stat -c '%a %s' key)"
cp key before
is 'a key is never written over' 1 "$("$vekctl" keygen key 2>err; echo $?)"
is 'and it says so' 1 "$(grep -c 'something is there already' err)"
is 'the key stays' '' "$(cmp key before 2>&1)"

# Whatever stands in the name of a file or of a key, no control character comes out, no sign that
# turns the direction of writing, and nothing that is not UTF-8.
evil=$'\e[31m\xff\xed\xa0\x80\x7f\xe2\x80\xae'
printf '%s\n' "vekcred.keyfile = k$evil" pem.{private,public}".channel.$evil = k" \
    {,}"pem.password.channel.$evil = x" "pem.$evil = x" >"$evil.conf"
while read -ra words; do
    words=("${words[@]//EVIL/$evil}")
    answer=$("$vekctl" "${words[@]}" 2>&1 </dev/null)
    [[ ${words[*]} != *json* ]] ||
        does "a document of ${words[0]}" "$VEK_PYTHON" -m json.tool <<<"$answer"
    is "${words[0]} shows what may be shown" '' "$(LC_ALL=C grep '[^ -~]' <<<"${answer:-$evil}")"
done <<'EOD'
check EVIL.conf
check --json EVIL.conf
keyinfo EVIL.conf
keyinfo --json EVIL.conf
show vekcred EVIL.conf
show --json vekcred EVIL.conf
show --json --channel EVIL pem EVIL.conf
protect EVIL.conf EVIL.absent
protect --json --built-in EVIL.conf
set EVIL.conf pem.password.channel.EVIL
get EVIL.conf pem.password.channel.EVIL
rekey --json --from built-in --to key EVIL.conf
unprotect --key key --output EVIL EVIL.conf
keygen EVIL/key
EVIL EVIL
protect --EVIL
help EVIL
EOD

# On a terminal the value is asked for twice and never shown; a signal brings the echo back.
printf '%s\n' pem.{private,public}=/p 'pem.password = secret' >conf
is 'typed' 'echo on 0 not shown' "$("$VEK_PYTHON" - "$vekctl" <<'PYTHON'
import os, pty, signal, sys, termios

def echoes(terminal):
    return bool(termios.tcgetattr(terminal)[3] & termios.ECHO)

def session(answers):
    child, terminal = pty.fork()
    if child == 0:
        os.execv(sys.argv[1], ["vekctl", "set", "--key", "key", "conf", "pem.password"])
    shown = b""
    for answer in answers:
        while not shown.endswith(b": "):
            shown += os.read(terminal, 100)
        assert not echoes(terminal)
        if isinstance(answer, int):
            os.kill(child, answer)
        else:
            os.write(terminal, answer + b"\n")
            shown += os.read(terminal, 100)
    try:
        while True:
            shown += os.read(terminal, 100)
    except OSError:
        pass
    status = os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])
    assert echoes(terminal)
    return shown, status

shown, status = session([b"typed it"] * 2)
different, refused = session([b"typed it", b"typed them"])
_, ended = session([signal.SIGTERM])
assert refused == 1 and b"differ" in different and ended == -signal.SIGTERM, (refused, ended)
print("echo on", status, "shown" if b"typed it" in shown + different else "not shown")
PYTHON
)"
is 'typed and read' 'typed it' "$("$vekctl" get --key key conf pem.password)"

# Disks and rights: one line that tells the cause, and nothing is lost.
refused() { # refused CAUSE FILE
    is "$1: status" 1 "$("$vekctl" protect --key key "$2" >out 2>err; echo $?)"
    is "$1: one line" '1 1' "$(wc -l <err) $(grep -c "$1" err)"
    is "$1: the file" '' "$(cmp clear "$2")"
}
printf '%s\n' pem.{private,public}=/p 'pem.password = secret' | tee clear >conf
if chattr +i conf 2>/dev/null; then
    refused 'immutable' conf
    chattr -i conf
else
    skip 'an immutable file, which needs root and a file system that has it'
fi
if mkdir disk && mount -t tmpfs -o size=64k,mode=755 none disk 2>/dev/null; then
    trap 'umount disk; rm -rf "$scratch"' EXIT
    cp clear disk/conf && head -c 61440 /dev/zero >disk/filler
    refused 'the disk is full' disk/conf
    rm disk/filler && mount -o remount,ro disk
    refused 'read-only' disk/conf
    is 'nothing is left of it' 'conf' "$(ls -A disk)"
else
    skip 'a full disk and a read-only one, which need the right to mount'
fi

# The findings of the manual page are those of the program.
page=$VEK_SOURCE/docs/man/vekctl.1
documented=$(sed -n '/^\.Sh FINDINGS/,/^\.Sh /s/^\.It Li \([a-z-]*\) \(.*\)$/\1 \2/p' "$page")
is 'findings of the manual page' "$("$vekctl" help findings | sed 's/:.*//')" "$documented"
report
