# protect.sed - what runvekcred does to a keystore.conf, with a fixed text for each encrypted value. What a
# YES marker means for the lines behind it is left out.
/^[ \t]*(crl\.(ldap\.pass|encrypted)|pem\.(password|encrypted)|pkcs11\.(token_pin|encrypted))/!b
/^[ \t]*(crl|pem|pkcs11)\.encrypted[^=]*=[ \t]*[Yy][Ee][Ss]([ \t]|$)/b
/^[ \t]*(crl|pem|pkcs11)\.encrypted[^=]*=[ \t]*[^ \t]/d
/=[ \t]*<VEK>[^ \t]*![^ \t]*![^ \t]*!/b
s/^[ \t]*(pem\.password\.channel[^= \t]*)[^=]*=[ \t]*[^ \t]+.*/pem.password.channel.encrypted = YES\n\1 = <VEK>2!bm9uY2Ugbm9uY2U!Y2lwaGVyIHRleHQgY2lwaGVyIHRleHQ=!dGFnIHRhZyB0YWcgdGFn/
s/^[ \t]*((crl)\.ldap\.pass|(pem)\.password|(pkcs11)\.token_pin)([^= \t]*)[^=]*=[ \t]*[^ \t]+.*/\2\3\4.encrypted = YES\n\1\5 = <VEK>2!bm9uY2Ugbm9uY2U!Y2lwaGVyIHRleHQgY2lwaGVyIHRleHQ=!dGFnIHRhZyB0YWcgdGFn/
