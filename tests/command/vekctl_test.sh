#!/usr/bin/env bash
# vekctl as a person uses it: findings and exit statuses, bad input told in one line, and no value
# shown.
. "$VEK_SOURCE/tests/support/shell.sh"
vekctl=$VEK_BUILD/bin/vekctl
sample=$VEK_SOURCE/examples/keystore.conf

# told NAME STATUS WORDS COMMAND... : the status, and words that the first line of the answer holds.
# An empty WORDS means no answer.
told() {
    local answer status
    answer=$("${@:4}" 2>&1 </dev/null)
    status=$?
    is "$1: status" "$2" "$status"
    is "$1: answer" "$3" "$([[ -n $3 && ${answer%%$'\n'*} == *"$3"* ]] && echo "$3" ||
        echo "${answer%%$'\n'*}")"
}

umask 077
does 'a key' "$vekctl" keygen key
is 'mode and length of a key' '600 32' "$(stat -c '%a %s' key)"
cp key before
told 'a key is never written over' 1 'something is there already' "$vekctl" keygen key
is 'the key stays' '' "$(cmp key before 2>&1)"

# One key in three forms has one fingerprint, and another key another one; no FILE is needed.
"$VEK_PYTHON" -c "import base64; key = open('key', 'rb').read()
open('hex', 'w').write(key.hex()); open('base64', 'wb').write(base64.b64encode(key))"
prints=$(for key in key hex base64; do "$vekctl" keyinfo --key $key; done |
    sed 's/.*, fingerprint //')
is 'one key, one fingerprint' '1 16' "$(sort -u <<<"$prints" | wc -lL | xargs)"
told 'another key' 0 'fingerprint 5ffe5decb96d7ddc' "$vekctl" keyinfo --key built-in

# Of a file that is no keystore.conf a thousand findings are listed, and the rest is counted.
seq 1500 >log
told 'a log' 1 'log:1: error:' "$vekctl" check log
is 'findings listed' '1001 log: 500 more findings are not listed' \
    "$("$vekctl" check log | sed -n '$=;$p' | xargs)"

# Typing errors and arguments that are no names of ours, which may be secrets.
told 'command' 2 "did you mean 'check'?" "$vekctl" chekc
told 'option' 2 "did you mean '--strict'?" "$vekctl" check --stirct file
told 'option in front' 2 '--json stands behind the command' "$vekctl" --json check file
told 'option without its value' 2 'lacks its value' "$vekctl" check --key
told 'value' 2 'pem.password.channel.A goes on with a character that no key holds' \
    "$vekctl" get "$sample" pem.password.channel.A=Hunter-2
told 'key' 2 "did you mean 'pem.password'?" "$vekctl" get "$sample" pem.pasword
told 'no credential' 2 "'vekctl show pem' prints it" "$vekctl" get "$sample" pem.private
told 'a channel that is not there' 1 'the key is not there' \
    "$vekctl" show pem --channel NONE "$sample"
told 'section' 2 "did you mean 'pkcs11'?" "$vekctl" show pkcs1 "$sample"
told 'no command' 2 'a command is missing' "$vekctl"
told 'no key of a run' 2 "vekctl: the key file 'absent'" \
    "$vekctl" rekey --json --from absent --to key
is 'a value is not repeated' '' "$("$vekctl" get a b Hunter-2 2>&1 | grep Hunter)"

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

# Text, finding and line; recorded_runs_test.py has more. The value in each is Hunter-2.
while IFS=$'\t' read -r code line text; do
    printf '%b' "$text" >bad.conf
    answer=$("$vekctl" check bad.conf 2>&1)
    place=$(sed -n "s/^\(bad.conf:[0-9]*\): .*\[$code\]$/\1/p" <<<"$answer" | head -1)
    is "$code in $text" "bad.conf:$line" "$place"
    document=$("$vekctl" check --json bad.conf 2>&1)
    is "$code shows no value" '' "$(grep Hunter <<<"$answer$document")"
done <<'EOD'
clear	1	pem.password = Hunter-2\r\n
clear	2	#\npem.password = "Hunter-2"
damaged	2	crl.encrypted = YES\ncrl.ldap.pass = <VEK>2!Hunter-2!Hunter-2!x\n
not-text	1	pem.password: Hunter-2 = x\n
unknown-key	1	Hunter-2 = x\n
not-text	1	pem.password.channel.A:Hunter-2=\n
not-text	1	\xef\xbb\xbfpem.password = Hunter-2\n
not-text	1	\xff\xfep\x00e\x00m\x00.\x00
not-text	2	pem.fips = no\npem.\x00password = Hunter-2\n
not-text	1	pem.fips = no\rpem.password = Hunter-2\r
EOD
: >empty.conf
told 'an empty file' 1 'it is empty; write a setting into it' "$vekctl" check empty.conf
told 'a folder' 1 'it is a folder; name the file in it [unreadable]' "$vekctl" check .
printf '#\n' >comments.conf
told 'no setting' 1 'the file has no setting at all' "$vekctl" check comments.conf

# A protected file, its key and another one.
cp "$sample" good.conf
"$VEK_BUILD/bin/runvekcred" -f good.conf -sf key 2>err
told 'all is well' 0 'every credential is encrypted' "$vekctl" check --key key good.conf
told 'standard input' 0 '-: no findings' bash -c "'$vekctl' check --key key --strict - <good.conf"
printf '%s\n' pem.{private,public}=/k pem.encrypted=YES pem.password=Hunter-2 >kept.conf
told 'in clear behind a marker' 1 'error: pem.password' "$vekctl" check --no-open kept.conf
touch .good.conf.vekctl
told 'what a kill left' 0 '.good.conf.vekctl [leftover]' "$vekctl" check --key key good.conf
rm .good.conf.vekctl
told 'another key' 1 '[other-key]' "$vekctl" check good.conf
is 'show' 'password = (hidden)' "$("$vekctl" show --key key pem good.conf | grep password)"
told 'several files' 1 '' bash -c "'$vekctl' check --quiet --key key good.conf bad.conf"
is 'the last line counts' '3 files: 2 clean, 1 with findings' \
    "$("$vekctl" check --key key good.conf good.conf bad.conf | tail -1)"

# The findings of the manual page are those of the program.
page=$VEK_SOURCE/docs/man/vekctl.1
documented=$(sed -n '/^\.Sh FINDINGS/,/^\.Sh /s/^\.It Li \([a-z-]*\) \(.*\)$/\1 \2/p' "$page")
is 'findings of the manual page' "$("$vekctl" help findings | sed 's/:.*//')" "$documented"
report
