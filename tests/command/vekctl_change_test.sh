#!/usr/bin/env bash
# The commands that change files: what becomes of a file, what the readers get out of it then, and
# what is refused. A later run of runvekcred finds nothing to do.
set -uo pipefail
export VEKCTL=$VEK_BUILD/bin/vekctl RUNVEKCRED=$VEK_BUILD/bin/runvekcred
PRINT=$VEK_BUILD/tests/print_section
scratch=$(mktemp -d)
clean_up() {
    chattr -i "$scratch"/* 2>/dev/null
    umount "$scratch"/disk 2>/dev/null
    rm -rf "$scratch"
}
trap clean_up EXIT
cd "$scratch" || exit 1
failures=0
skipped=0
# skip WHAT: it was not tried, so that the test is not reported as passed; the rest still runs
skip() { skipped=77; echo "SKIPPED $1"; }
# is NAME EXPECTED COMMAND...: what the command prints, with its exit status on the last line
is() {
    local got
    got=$("${@:3}" 2>err; echo "$?")
    [ "$got" = "$(printf %b "$2")" ] && return
    failures=$((failures + 1))
    printf 'FAILED %s:\n%s\ninstead of\n%b\n' "$1" "$got" "$2"
    cat err
}
# says NAME STATUS PATTERN COMMAND...: the exit status, and what standard error tells in one line
says() {
    "${@:4}" >out 2>err
    local got=$?
    [ "$got" = "$2" ] && [ "$(wc -l <err)" = 1 ] && grep -q -e "$3" err && return
    failures=$((failures + 1))
    printf 'FAILED %s: status %s instead of %s, and no single line with "%s" in\n' "$1" "$got" \
        "$2" "$3"
    cat err
}
# value KEYFILE FILE KEY: what the readers hand to their programs
value() {
    local key=${3##*.channel.} section=${3%%.*}
    case $3 in
        *.channel.*) set -- "$1" "$2" "$3" -c "$key" ;;
    esac
    ZTS_VEKCRED_KEYFILE=$1 "$PRINT" --show-credentials "${@:4}" "$section" "$2" |
        sed -n -E 's/^(password|token_pin|ldapServers\[0\]\.pass|pass) = //p'
}
# masked FILE: its text, with what differs from run to run left out, and line ends visible
masked() {
    sed -E 's/<VEK>2![^[:space:]]*/<VEK>/; s/\r/\\r/' "$1"
    [ -z "$(tail -c 1 "$1")" ] || printf '\n(no line end)\n'
}
state() { stat -c '%i %a %u %g %Y' "$1"; }
base=('pem.private = /p' 'pem.public = /c')
for name in key other third; do "$VEKCTL" keygen --quiet $name || exit 1; done

# --- protect: file in, file out. "|" ends a line; a later run of each program changes nothing.
while IFS='@' read -r name before after; do
    printf %b "${before//|/\\n}" >conf
    "$VEKCTL" protect --key key --quiet conf || { echo "FAILED $name: status $?"; \
        failures=$((failures + 1)); }
    is "$name" "${after//|/\\n}\n0" masked conf
    cp -p conf before
    kept=$(state conf)
    is "$name: protected once" 0 "$VEKCTL" protect --key key --quiet conf
    is "$name: not touched" "$kept\n0" state conf
    "$RUNVEKCRED" -f conf -sf key 2>/dev/null
    case $name in *'no line end'*) truncate -s -1 conf ;; esac
    is "$name: nothing left for runvekcred" '0' cmp before conf
done <<'TABLE'
a value with blanks, and a comment@  pem.password=two words # note|x.y = 1|@pem.encrypted = YES|  pem.password=<VEK> # note|x.y = 1
every section@crl.ldap.pass = a=b|pkcs11.token_pin = 1|pem.password = x|@crl.encrypted = YES|crl.ldap.pass = <VEK>|pkcs11.encrypted = YES|pkcs11.token_pin = <VEK>|pem.encrypted = YES|pem.password = <VEK>
CRLF, no line end@pem.password = a\r|# c\r|pem.password.channel.TO.HUB = b@pem.encrypted = YES\\r|pem.password = <VEK>\\r|# c\\r|pem.password.channel.TO.HUB = <VEK>\\r|pem.encrypted.channel.TO.HUB = YES|(no line end)
a key that is hidden, the marker behind all credentials@pem.password.channel.shop = a|pem.password = b|@pem.password.channel.shop= <VEK>|pem.encrypted = YES|pem.password = <VEK>|pem.encrypted.channel.shop= YES
markers that say NO, or say YES to the readers only@pem.encrypted = NO|pem.password = a|crl.encrypted = YES#|crl.ldap.pass = b|@pem.encrypted = YES|pem.password = <VEK>|crl.encrypted = YES|crl.ldap.pass = <VEK>
a marker behind its credential, twice@pem.password = a|pem.encrypted = YES|pem.encrypted = yes|@pem.encrypted = YES|pem.password = <VEK>
clear behind a marker that says YES@ pem.encrypted = yes|x.y = 1|pem.password = a|@ pem.encrypted = yes|x.y = 1|pem.password = <VEK>
stray markers@pem.password.channel.encrypted = YES|pem.password.channel.A = a|pem.encrypted.channel.B = YES|crl.encrypted = YES|@pem.password.channel.A = <VEK>|pem.encrypted.channel.A = YES
a channel called encrypted@pem.private.channel.encrypted = /p|pem.password.channel.encrypted = YES|@pem.private.channel.encrypted = /p|pem.password.channel.encrypted = <VEK>|pem.encrypted.channel.encrypted = YES
TABLE

# --- What runvekcred has left: its markers of channels, its second run, encrypted and without a
# marker
printf '%s\n' "${base[@]}" pem.{private,public}.channel.A=/p 'pem.password.channel.A = secret' \
    'pem.password = general' >conf
"$RUNVEKCRED" -f conf -sf key 2>/dev/null && "$RUNVEKCRED" -f conf -sf key 2>/dev/null
is 'the readers hand out the encrypted text' '1\n0' bash -c \
    "'$PRINT' --show-credentials -c A pem conf | grep -c '<VEK>'"
is 'repaired' '0' "$VEKCTL" protect --key key --quiet conf
is 'the channel' 'secret\n0' value key conf pem.password.channel.A
is 'the section' 'general\n0' value key conf pem.password
is 'no stray marker' '0\n1' grep -c channel.encrypted conf

# --- Refused with the line; the file stays
while IFS='@' read -r line text pattern; do
    printf %b "pem.private = /p\n${text//|/\\n}\n" >conf
    [ "$line" != 1 ] || printf %b "$text" >conf
    cp -p conf before
    kept=$(state conf)
    says "protect: $text" 1 "vekctl: conf:$line: .*$pattern" "$VEKCTL" protect --key key conf
    is "$text: untouched" "$kept\n0" state conf
    is "$text: the same" 0 cmp conf before
done <<'TABLE'
2@pem.password = a#b@cut at the "#"
2@pem.password = pop \r@keep the blank
2@pem.password = a\rb@carriage return stands inside the line
1@pem.password.channel.A:U2VjcmV0= @pem.password.channel.A: a key is followed by "="
2@pem.passwords = a@no reader knows
2@pem.password x = a@no reader knows
2@pem.password.channel.A23456789012345678901 = a@no reader knows
2@pem.encryptedX = NO@no reader knows
3@pem.password = a|pem.password = b@stands more than once.*the first one is line 2
2@pem.password = <VEK>2!AAAA!AAAA!AAAA@does not open
2@pem.password@has no "="
2@[pem]|password = a@no \[section\] lines
2@pem.password: a@followed by "="
1@\xff\xfep\0e\0m\0@UTF-16
2@pem.password =@no value
3@pem.password = a|vekcred.keyfile@no "="
3@vekcred.keyfile = k|vekcred.keyfile = l@stands more than once.*the first one is line 2
TABLE
printf 'pem.password = %0257d\n' 1 >conf
says 'a value longer than its field' 1 'conf:1: pem.password: .*field' "$VEKCTL" protect --key \
    key conf
# What may be meant as a credential stays as it is and is told, with status 1; so is what was
# protected with
# quotes, and an old value in a comment. No value is shown.
while IFS='@' read -r status text pattern; do
    printf %b "$text\npkcs11.token_pin = Hunter-2\n" >conf
    "$VEKCTL" protect --key key conf >out 2>&1
    is "told of $text" "$status 1 0\n0" echo "$?" "$(grep -c -e "$pattern" out)" \
        "$(grep -c Hunter out)"
    is "$text stays, the other is protected" '1 1\n0' echo \
        "$(grep -cF "$(printf %b "${text%% *}")" conf)" \
            "$(grep -c '^pkcs11.token_pin = <VEK>' conf)"
done <<'TABLE'
1@PEM.PASSWORD = Hunter-1@^conf:1: error: PEM.PASSWORD .*did you mean pem.password
1@pkcs11.pin = Hunter-1@^conf:1: error: pkcs11.pin .*\[unknown-key]
1@; pem.password = Hunter-1@^conf:1: error: .*";" starts no comment
0@# pem.password = Hunter-1@^conf:1: warning: pem.password.*\[comment]
0@pem.password = "Hunter-1"@^conf:1: warning: pem.password.*the quotes around the value
TABLE
printf '\xef\xbb\xbfpem.password = a\n' >conf
says 'a byte order mark' 1 'byte order mark' "$VEKCTL" protect --key key conf
printf 'pem.password = a\0\n' >conf
says 'a NUL byte' 1 'NUL' "$VEKCTL" protect --key key conf
: >conf
says 'an empty file' 1 'is empty' "$VEKCTL" protect --key key conf
says 'a folder' 1 'is a folder' "$VEKCTL" protect --key key .

# --- The key
printf '%s\n' "${base[@]}" 'pem.password = secret' >conf
says 'no key' 2 'vekctl keygen' "$VEKCTL" protect conf
says 'no key, set' 2 'vekctl keygen' "$VEKCTL" set conf pem.password
says 'a key that is not there' 1 'cannot be used' "$VEKCTL" protect --key absent conf
would='conf: would change'
is 'a dry run' "$would: pem.password: encrypted\n$would: pem.encrypted: marker added\n\
$would: vekcred.keyfile: names the key file\n0" \
    "$VEKCTL" protect --dry-run --key key --name-key conf
is 'after it' "$(printf '%s\n' "${base[@]}")\npem.password = secret\n0" cat conf
is 'the readers are told of' 'conf: changed: pem.password\nconf: the readers need '\
'ZTS_VEKCRED_KEYFILE or vekcred.keyfile to find the key; --name-key writes the latter\n0' \
    "$VEKCTL" protect --key key conf
is 'the key is named' "conf: changed: vekcred.keyfile\n0" "$VEKCTL" protect --key key --name-key \
    conf
is 'and told where a variable names another one' \
    "conf: nothing to do\nconf: the key file 'other' that ZTS_VEKCRED_KEYFILE names holds \
another key; the readers need this one there\n0" \
    env ZTS_VEKCRED_KEYFILE=other "$VEKCTL" protect --key key --name-key conf
is 'and found' "secret\n0" bash -c \
    "'$PRINT' --show-credentials pem conf | sed -n 's/^password = //p'"
says 'another key than the named one' 1 'conf:5: vekcred.keyfile: names another key' "$VEKCTL" \
    protect --key other conf
# Encrypted with itself, a file would open with no key.
echo 'pem.password = x' >self && cp self self.old && ln -s self self.link
for options in 'protect --dry-run --key self self' 'protect --key self.link self' \
    'set --key self self pem.password'; do
    # shellcheck disable=SC2086 # words
    says "$options" 1 'self: it is the file of an initial key itself' \
        bash -c "echo new | '$VEKCTL' $options"
done
is 'it stays' 0 cmp self self.old
"$VEKCTL" protect --quiet --key key self
says 'nor does it become one' 1 'self: it is the file of an initial key itself' \
    "$VEKCTL" rekey --from key --to self.link self
rm self*
is 'the built-in key, when it is said' 0 bash -c \
    "echo 'crl.ldap.pass = x' >built; '$VEKCTL' protect --quiet --built-in built"
is 'several files, one of them in a document' 'already:True changed:False failed:None 2\n1' bash \
    -c "cp -p conf c1; echo 'pem.password = a' >c2
    '$VEKCTL' protect --json --key key c1 c2 absent | python3 -c \
        'import json, sys; d = json.load(sys.stdin)
print(*(\"%s:%s\" % (f[\"outcome\"], f.get(\"found\")) for f in d[\"files\"]), \
    len(d[\"files\"][1][\"changes\"]))'; exit \${PIPESTATUS[0]}"
"$VEKCTL" protect --key key conf absent c1 >out 2>/dev/null
is 'the last line counts' '3 files: 2 already, 1 failed\n0' tail -n 1 out

# --- rekey: stopped at any file and started again; from the built-in key; the name of the key in
# the same step
for i in 1 2 3; do printf '%s\n' "${base[@]}" "pem.password = secret $i" >many$i; done
"$VEKCTL" protect --quiet --key key many1 many2 && "$VEKCTL" protect --quiet --key other many3
before=$(state many3)
is 'one of them is done' 'many1: changed: pem.password\nmany2: changed: pem.password\n'\
'many3: nothing to do\n3 files: 2 changed, 1 already\n0' \
    env ZTS_VEKCRED_KEYFILE=other "$VEKCTL" rekey --from key --to other many1 many2 many3
is 'what is done is not touched' "$before\n0" state many3
for i in 1 2 3; do is "under the new key, $i" "secret $i\n0" value other many$i pem.password; done
is 'from the built-in key' "0" "$VEKCTL" rekey --quiet --from built-in --to other --set-keyfile \
    "$scratch/other" built
is 'with its name' "vekcred.keyfile = $scratch/other\n0" tail -n 1 built
says 'neither key opens' 1 'many1:4: pem.password: does not open' "$VEKCTL" rekey --from key --to \
    third many1
says 'one key twice' 2 'the same key' "$VEKCTL" rekey --from key --to key many1
# The readers would not find the new key: one line says what they need.
printf 'vekcred.keyfile = %s\n' "$scratch/other" >>many2 && printf 'crl.ldap.pass = clear\n' >many4
while IFS='@' read -r file variable pattern; do
    env ${variable:+"ZTS_VEKCRED_KEYFILE=$variable"} "$VEKCTL" rekey --dry-run --from other --to \
        third \
        "$file" >out
    is "$file, variable '$variable': told" "1\n0" grep -c -e "$pattern" out
done <<'TABLE'
many1@@^many1: the readers need ZTS_VEKCRED_KEYFILE or vekcred.keyfile .*--set-keyfile
many2@@^many2: the key file '/.*/other' that vekcred.keyfile names holds another key; .*--set-keyfile
many2@key@^many2: the key file 'key' that ZTS_VEKCRED_KEYFILE names holds another key; the readers need this one there$
many2@absent@^many2: the key file 'absent' .* cannot be used: .*; the readers need the key there
many4@third@^many4:1: crl.ldap.pass: stands in clear as before; vekctl protect
TABLE
# What runvekcred has written for two channels, and encrypted at its second run
printf '%s\n' pem.{private,public}.channel.{A,B}=/p pem.password.channel.{A,B}=secret >many5
for run in 1 2; do
    "$RUNVEKCRED" -f many5 -sf key 2>/dev/null
    cp many5 many6
    is "rekeyed after $run runs" 0 "$VEKCTL" rekey --quiet --from key --to other many6
    is "opened by the new key after $run runs" 0 "$VEKCTL" protect --quiet --key other many6
    is "read after $run runs" 'secret\n0' value other many6 pem.password.channel.B
    is "set beside them after $run runs" 0 bash -c \
        "cp many5 many6; echo x | '$VEKCTL' set --quiet --key key many6 crl.ldap.pass"
done

# --- set: what no editor can write, and what is refused
printf '%s\n' "${base[@]}" 'pem.password = old#hint' '# end' >conf
while IFS= read -r text; do
    is "stored: $text" 0 bash -c \
        "printf '%s\r\n' \"\$1\" | '$VEKCTL' set --quiet --key key conf pem.password" - "$text"
    is "read: $text" "${text//\\/\\\\}\n0" value key conf pem.password
done <<'TABLE'
hash # mark
"quoted" = 'twice'
<VEK>2!
Käse \ ; $HOME
aba
TABLE
is 'nothing of the old value' \
    'pem.private = /p\npem.public = /c\npem.encrypted = YES\npem.password = <VEK>\n# end\n0' \
    masked conf
for key in pem.password.channel.to.shop pkcs11.token_pin; do echo "of $key" | "$VEKCTL" set \
    --quiet --key key conf $key || failures=$((failures + 1)); done
printf '%s\n' pem.{private,public}.channel.to.shop=/p pkcs11.{library,certificate,token}=x >>conf
is 'a new key of a channel' 'of pem.password.channel.to.shop\n0' value key conf \
    pem.password.channel.to.shop
is 'a new section' 'of pkcs11.token_pin\n0' value key conf pkcs11.token_pin
cp -p conf before
while IFS='@' read -r status pattern key text; do
    says "refused: $text" "$status" "$pattern" bash -c \
        "printf '$text' | '$VEKCTL' set --key key conf $key"
done <<'TABLE'
1@empty@pem.password@
1@empty@pem.password@\n
1@NUL@pem.password@a\0b
1@more than one line@pem.password@a\nb\n
1@too long for the field@pem.password@%0257d
2@did you mean 'pem.password'@PEM.passwrd@a
2@no credential@pem.private@a
TABLE
says 'one file, one key' 1 'conf:4: pem.password: does not open' bash -c \
    "echo a | '$VEKCTL' set --key other conf crl.ldap.pass"
is 'nothing was changed' 0 cmp before conf
# On a terminal the value is asked for twice and never shown; a signal brings the echo back.
is 'typed' 'echo on 0 not shown\n0' "$VEK_PYTHON" - "$VEKCTL" <<'PYTHON'
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
is 'typed and read' 'typed it\n0' value key conf pem.password

# --- unprotect
printf '%s\n' "${base[@]}" '  pem.password = two words # note' 'crl.ldap.pass=x' >clear && cp -p \
    clear conf
"$VEKCTL" protect --quiet --key key conf && cp -p conf before
is 'the way back' 0 bash -c "'$VEKCTL' unprotect --key key conf | cmp - clear"
is 'to a new file' '600\n0' bash -c "'$VEKCTL' unprotect --key key --output out.clear conf &&
    cmp out.clear clear && stat -c %a out.clear"
says 'never over a file' 1 'something is there already' "$VEKCTL" unprotect --key key --output \
    out.clear conf
says 'in place only when said twice' 2 'need each other' "$VEKCTL" unprotect --key key --in-place \
    conf
is 'still protected' 0 cmp before conf
is 'under the built-in key' 'pem.password = x\n0' bash -c \
    "echo 'pem.password = x' >built; '$VEKCTL' protect --quiet --built-in built &&
    '$VEKCTL' unprotect built"
is 'in place' 0 bash -c \
    "'$VEKCTL' unprotect --quiet --key key --in-place --yes conf && cmp conf clear"
echo 'a # b' | "$VEKCTL" set --quiet --key key conf pem.password
says 'a value that cannot stand in clear' 1 'conf:4: pem.password: .*cannot stand in clear' \
    "$VEKCTL" unprotect --key key conf

# --- Disks and rights: one line, and nothing is lost
printf '%s\n' "${base[@]}" 'pem.password = secret' >conf && cp -p conf before
if chattr +i conf 2>/dev/null; then
    says 'an immutable file' 1 'immutable' "$VEKCTL" protect --key key conf
    chattr -i conf
else
    skip 'an immutable file, which needs root and a file system that has it'
fi
if mkdir disk && mount -t tmpfs -o size=64k,mode=755 none disk 2>/dev/null; then
    cp conf disk/conf && head -c 61440 /dev/zero >disk/filler
    says 'a full disk' 1 'the disk is full' "$VEKCTL" protect --key key disk/conf
    rm disk/filler && mount -o remount,ro disk
    says 'a file system that is read-only' 1 'read-only' "$VEKCTL" protect --key key disk/conf
    is 'nothing is left of it' 'conf\n0' ls -A disk
    is 'and the file is as it was' 0 cmp conf disk/conf
    umount disk
else
    skip 'a full disk and a read-only one, which need the right to mount'
fi
is 'nothing but what was made here' \
    "before built c1 c2 clear conf disk err key $(echo many{1..6}) other out out.clear third\n0" \
    bash -c 'ls -A | paste -sd " "'

if [ "$failures" != 0 ]; then
    echo "$failures failures"
    skipped=1
fi
(exit "$skipped")
