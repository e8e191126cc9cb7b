#!/bin/sh
# list-clear-credentials.sh FILE... - names the credentials of keystore.conf that are not safely
# encrypted, one a line and never with their values: FILE:LINE: KEY: VERDICT. The verdicts are
#
#   clear          the next run of runvekcred encrypts it
#   ambiguous      clear, and runvekcred would take another value than the readers do: the value holds a blank
#                  or a "#"
#   kept clear     a YES marker stands in front of it, so that runvekcred leaves it as it is
#   in a comment   runvekcred does not look into comments
#   not marked     encrypted, but no marker tells the readers so
#   not found      the readers do not find the key: it begins and ends with the same letter and has a blank in
#                  front of the "=", or holds a second word
#
# Exit status: 0 nothing was found, 1 something was, 2 a file cannot be read.
set -u

status=0
for file in "$@"; do
    if ! [ -f "$file" ] || ! [ -r "$file" ]; then
        printf 'list-clear-credentials.sh: cannot read %s\n' "$file" >&2
        status=2
        continue
    fi
    awk -v file="$file" '
    # What the readers keep of a text.
    function strip(text, start, end) {
        start = text; sub(/^[ \t\r\v\f]+/, "", start)
        end = start; sub(/[ \t\r\v\f]+$/, "", end)
        return substr(end, length(end)) == substr(end, 1, 1) ? start : end
    }
    function tell(line, key, verdict) {
        printf "%s:%d: %s: %s\n", file, line, key, verdict
        found = 1
    }
    {
        equals = index($0, "=")
        word = $0; sub(/^[ \t\r\v\f]+/, "", word)
        isComment = word ~ /^#/
        if (isComment)
            sub(/^[# \t]+/, "", word)
        key = word; sub(/[ \t\r\v\f=].*/, "", key)
        value = substr($0, equals + 1); sub(/^[ \t\r\v\f]+/, "", value); sub(/[ \t\r\v\f].*/, "", value)
        if (equals == 0 || value == "" || key !~ /^(crl\.(ldap\.pass|encrypted)|pem\.(password|encrypted)|pkcs11\.(token_pin|encrypted))/)
            next
        section = key; sub(/\..*/, "", section)
        isYes = toupper(value) == "YES"
        isEncrypted = value ~ /^<VEK>.*!.*!.*!/
        if (isComment) {
            if (key !~ /encrypted/ && !isEncrypted)
                tell(NR, key, "in a comment")
            next
        }
        line = strip($0)
        readKey = strip(substr(line, 1, index(line, "=") - 1))
        if (index(key, section ".encrypted") == 1) {
            kept[section] = isYes
            marked[readKey] = isYes
            next
        }
        if (key == "pem.password.channel.encrypted" && (isYes || isEncrypted))
            next
        readValue = substr(line, index(line, "=") + 1); sub(/#.*/, "", readValue)
        if (!isEncrypted) {
            tell(NR, key, kept[section] ? "kept clear" : strip(readValue) == value ? "clear" : "ambiguous")
            next
        }
        if (readKey != key)
            tell(NR, key, "not found")
        channel = key
        if (sub(/^pem\.password\.channel\./, "", channel))
            needs[NR] = "pem.encrypted.channel." channel
        else if (key ~ /^(crl\.ldap\.pass|pem\.password|pkcs11\.token_pin)$/)
            needs[NR] = section ".encrypted"
        keys[NR] = key
    }
    END {
        for (line = 1; line <= NR; ++line)
            if (needs[line] != "" && !marked[needs[line]])
                tell(line, keys[line], "not marked")
        exit found
    }' <"$file"
    result=$?
    [ "$result" -le "$status" ] || status=$result
done
exit "$status"
