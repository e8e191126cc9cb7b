/* The fields of the readers' records, section by section, in the order in which print_section shows
 * them. */
#ifndef RECORD_FIELDS_H
#define RECORD_FIELDS_H

#include <stddef.h>
#include <ztvek.h>

enum FieldKind { NUMBER, TEXT, CREDENTIAL, NOT_SHOWN };

struct Field {
    const char *section;
    const char *name;
    enum FieldKind kind;
    size_t offset;
    size_t size; /* a text that fills its field has no terminator */
};

#define FIELD(section, record, kind, field)                                                        \
    { section, #field, kind, offsetof(record, field), sizeof(((record *)0)->field) }
#define CMS(kind, field) FIELD("cms", SztouKsConfig, kind, field)
#define OCSP(kind, field) FIELD("ocsp", SztouOcspConfig, kind, field)
#define PEM(kind, field) FIELD("pem", SztouPemConfig, kind, field)
#define PKCS11(kind, field) FIELD("pkcs11", SztouPkcs11Config, kind, field)
#define CRL(kind, field) FIELD("crl", SztouCrlConfig, kind, field)

static const struct Field FIELDS[] = {
    CMS(TEXT, keystore),
    CMS(TEXT, certificate),
    CMS(NUMBER, fips),
    CMS(NUMBER, forceFipsOff),
    OCSP(NUMBER, enable),
    OCSP(TEXT, url),
    OCSP(TEXT, httpProxyHost),
    OCSP(NUMBER, httpProxyPort),
    OCSP(NUMBER, unknown),
    OCSP(NUMBER, nonceGeneration),
    OCSP(NUMBER, nonceCheck),
    OCSP(NUMBER, nonceSize),
    OCSP(NUMBER, httpGet),
    OCSP(NUMBER, maxResponseSize),
    OCSP(NUMBER, cacheSize),
    OCSP(NUMBER, timeout),
    OCSP(NUMBER, signature),
    OCSP(NUMBER, log),
    PEM(TEXT, privateKey),
    PEM(TEXT, publicKey),
    PEM(CREDENTIAL, password),
    PEM(NUMBER, encrypted),
    PEM(NUMBER, fips),
    PEM(NUMBER, forceFipsOff),
    PEM(NUMBER, checkpurpose),
    PKCS11(TEXT, library),
    PKCS11(TEXT, certificate),
    PKCS11(TEXT, token),
    PKCS11(CREDENTIAL, token_pin),
    PKCS11(NUMBER, encrypted),
    PKCS11(NUMBER, fips),
    PKCS11(TEXT, secondary_keystore),
    PKCS11(NOT_SHOWN, secondaryKeystoreState),
    CRL(NUMBER, cdp),
    CRL(TEXT, ldapServers[0].host),
    CRL(NUMBER, ldapServers[0].port),
    CRL(TEXT, ldapServers[0].user),
    CRL(CREDENTIAL, ldapServers[0].pass),
    CRL(NUMBER, ldapServers[0].version),
    CRL(TEXT, ldapLibrary),
    CRL(NUMBER, ldapCacheLifetime),
    CRL(NUMBER, ldapCacheSize),
    CRL(TEXT, httpProxyHost),
    CRL(NUMBER, httpProxyPort),
    CRL(NUMBER, httpMaxResponseSize),
    CRL(NUMBER, httpTimeout),
    CRL(NUMBER, httpCacheSize),
    CRL(NUMBER, log),
    CRL(NUMBER, encrypted),
    CRL(NOT_SHOWN, reserved),
};

enum { FIELD_COUNT = sizeof FIELDS / sizeof FIELDS[0] };

#endif
