# protect.awk - what runvekcred does to a keystore.conf, with a fixed text for each encrypted value.

/^[ \t]*(crl\.(ldap\.pass|encrypted)|pem\.(password|encrypted)|pkcs11\.(token_pin|encrypted))/ {
    equals = index($0, "=")
    if (equals == 0 || split(substr($0, equals + 1), words) == 0) {
        print
        next
    }
    match($0, /[^ \t=]+/)
    key = substr($0, RSTART, RLENGTH)
    section = substr(key, 1, index(key, ".") - 1)
    if (key ~ /^[a-z0-9]+\.encrypted/) {
        is_encrypted[section] = toupper(words[1]) == "YES"
        if (is_encrypted[section])
            print
        next
    }
    if (is_encrypted[section] || words[1] ~ /^<VEK>.*!.*!.*!/) {
        print
        next
    }
    print (key ~ /^pem\.password\.channel/ ? "pem.password.channel" : section) ".encrypted = YES"
    print key " = <VEK>2!bm9uY2Ugbm9uY2U!Y2lwaGVyIHRleHQgY2lwaGVyIHRleHQ=!dGFnIHRhZyB0YWcgdGFn"
    next
}
{ print }
