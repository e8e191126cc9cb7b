/*
 * print_section.c - prints one section of keystore.conf as the readers of the library see it.
 *
 *   print_section [--show-credentials] [--cache] [-c CHANNEL] SECTION [FILE]
 *
 * SECTION is cms, ocsp, pem, pkcs11 or crl; FILE is keystore.conf in its standard place when it is
 * not given. With -c, the keys of one channel (cms and pem only); with --cache, the channel cache
 * is filled first. Credentials are shown as "(hidden)".
 */
#define _DEFAULT_SOURCE
#include <ztvek.h>

#include <getopt.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum FieldKind {
    TEXT,
    CREDENTIAL,
    NUMBER, /* -1: not set */
    FLAG,   /* 1 yes, 0 no, -1 not set */
    CHOICE, /* 2 yes, 1 no, 0 not set */
    ANSWER, /* to an unknown certificate: 1 REJECT, 2 ACCEPT, 3 WARN, 0 not set */
};

struct Field {
    const char *name;
    enum FieldKind kind;
    size_t offset;
    size_t capacity; /* a text that fills its field has no terminator */
};

#define TEXT_FIELD(record, field)                                                                  \
    { #field, TEXT, offsetof(record, field), sizeof(((record *)0)->field) }
#define NUMBER_FIELD(record, field)                                                                \
    { #field, NUMBER, offsetof(record, field), sizeof(int32_t) }
#define WORD_FIELD(kind, record, field)                                                            \
    { #field, kind, offsetof(record, field), sizeof(int32_t) }
#define CREDENTIAL_FIELD(record, field)                                                            \
    { #field, CREDENTIAL, offsetof(record, field), sizeof(((record *)0)->field) }
#define END_OF_FIELDS                                                                              \
    { NULL, TEXT, 0, 0 }

static const struct Field CMS_FIELDS[] = {
    TEXT_FIELD(SztouKsConfig, keystore),
    TEXT_FIELD(SztouKsConfig, certificate),
    WORD_FIELD(FLAG, SztouKsConfig, fips),
    WORD_FIELD(FLAG, SztouKsConfig, forceFipsOff),
    END_OF_FIELDS,
};

static const struct Field OCSP_FIELDS[] = {
    WORD_FIELD(CHOICE, SztouOcspConfig, enable),
    TEXT_FIELD(SztouOcspConfig, url),
    TEXT_FIELD(SztouOcspConfig, httpProxyHost),
    NUMBER_FIELD(SztouOcspConfig, httpProxyPort),
    WORD_FIELD(ANSWER, SztouOcspConfig, unknown),
    WORD_FIELD(FLAG, SztouOcspConfig, nonceGeneration),
    WORD_FIELD(FLAG, SztouOcspConfig, nonceCheck),
    NUMBER_FIELD(SztouOcspConfig, nonceSize),
    WORD_FIELD(FLAG, SztouOcspConfig, httpGet),
    NUMBER_FIELD(SztouOcspConfig, maxResponseSize),
    NUMBER_FIELD(SztouOcspConfig, cacheSize),
    NUMBER_FIELD(SztouOcspConfig, timeout),
    NUMBER_FIELD(SztouOcspConfig, signature),
    WORD_FIELD(FLAG, SztouOcspConfig, log),
    END_OF_FIELDS,
};

static const struct Field PEM_FIELDS[] = {
    TEXT_FIELD(SztouPemConfig, privateKey),
    TEXT_FIELD(SztouPemConfig, publicKey),
    CREDENTIAL_FIELD(SztouPemConfig, password),
    WORD_FIELD(FLAG, SztouPemConfig, encrypted),
    WORD_FIELD(FLAG, SztouPemConfig, fips),
    WORD_FIELD(FLAG, SztouPemConfig, forceFipsOff),
    WORD_FIELD(CHOICE, SztouPemConfig, checkpurpose),
    END_OF_FIELDS,
};

static const struct Field PKCS11_FIELDS[] = {
    TEXT_FIELD(SztouPkcs11Config, library),
    TEXT_FIELD(SztouPkcs11Config, certificate),
    TEXT_FIELD(SztouPkcs11Config, token),
    CREDENTIAL_FIELD(SztouPkcs11Config, token_pin),
    WORD_FIELD(FLAG, SztouPkcs11Config, encrypted),
    WORD_FIELD(FLAG, SztouPkcs11Config, fips),
    TEXT_FIELD(SztouPkcs11Config, secondary_keystore),
    END_OF_FIELDS,
};

static const struct Field CRL_FIELDS[] = {
    WORD_FIELD(CHOICE, SztouCrlConfig, cdp),
    TEXT_FIELD(SztouCrlConfig, ldapServers[0].host),
    NUMBER_FIELD(SztouCrlConfig, ldapServers[0].port),
    TEXT_FIELD(SztouCrlConfig, ldapServers[0].user),
    CREDENTIAL_FIELD(SztouCrlConfig, ldapServers[0].pass),
    NUMBER_FIELD(SztouCrlConfig, ldapServers[0].version),
    TEXT_FIELD(SztouCrlConfig, ldapLibrary),
    NUMBER_FIELD(SztouCrlConfig, ldapCacheLifetime),
    NUMBER_FIELD(SztouCrlConfig, ldapCacheSize),
    TEXT_FIELD(SztouCrlConfig, httpProxyHost),
    NUMBER_FIELD(SztouCrlConfig, httpProxyPort),
    NUMBER_FIELD(SztouCrlConfig, httpMaxResponseSize),
    NUMBER_FIELD(SztouCrlConfig, httpTimeout),
    NUMBER_FIELD(SztouCrlConfig, httpCacheSize),
    WORD_FIELD(FLAG, SztouCrlConfig, log),
    WORD_FIELD(FLAG, SztouCrlConfig, encrypted),
    END_OF_FIELDS,
};

union Record {
    SztouKsConfig cms;
    SztouOcspConfig ocsp;
    SztouPemConfig pem;
    SztouPkcs11Config pkcs11;
    SztouCrlConfig crl;
    char bytes[sizeof(SztouCrlConfig)];
};

struct Request {
    const char *section;
    const char *channel; /* or null */
    const char *path;    /* or null: the standard place */
    int showCredentials;
    int fillsCache;
};

/* Reads the section into *record. Returns its fields, or null for a section that is not known. */
static const struct Field *readSection(const struct Request *request, union Record *record,
                                       char *errorKey, uint32_t *result) {
    const char *const channel = request->channel;
    const char *const path = request->path;
    if (strcmp(request->section, "cms") == 0) {
        *result = channel != NULL ? sztouGetMCAConfig(&record->cms, channel, path, errorKey)
                                  : sztouGetKsConfig(&record->cms, path, errorKey);
        return CMS_FIELDS;
    }
    if (strcmp(request->section, "pem") == 0) {
        *result = channel != NULL ? sztouGetMCAPemConfig(&record->pem, channel, path, errorKey)
                                  : sztouGetPemConfig(&record->pem, path, errorKey);
        return PEM_FIELDS;
    }
    if (channel != NULL)
        return NULL;
    if (strcmp(request->section, "ocsp") == 0) {
        *result = sztouGetOcspConfig(&record->ocsp, path, errorKey);
        return OCSP_FIELDS;
    }
    if (strcmp(request->section, "pkcs11") == 0) {
        *result = sztouGetPkcs11Config(&record->pkcs11, path, errorKey);
        return PKCS11_FIELDS;
    }
    if (strcmp(request->section, "crl") == 0) {
        *result = sztouGetCrlConfig(&record->crl, path, errorKey, /* fips= */ 0);
        return CRL_FIELDS;
    }
    return NULL;
}

/* The word for a value, or null when it has none. */
static const char *wordFor(enum FieldKind kind, int32_t value) {
    static const char *const DECISIONS[] = {"not set", "no", "yes"};
    static const char *const ANSWERS[] = {"not set", "REJECT", "ACCEPT", "WARN"};
    if (kind == FLAG && value >= -1 && value <= 1)
        return DECISIONS[value + 1];
    if (kind == CHOICE && value >= 0 && value <= 2)
        return DECISIONS[value];
    if (kind == ANSWER && value >= 0 && value <= 3)
        return ANSWERS[value];
    return kind == NUMBER && value == -1 ? "not set" : NULL;
}

static void printNumber(const struct Field *field, const char *bytes) {
    int32_t number;
    memcpy(&number, bytes, sizeof number);
    const char *const word = wordFor(field->kind, number);
    if (word != NULL)
        printf("%s = %s\n", field->name, word);
    else
        printf("%s = %d\n", field->name, (int)number);
}

static void printField(const struct Field *field, const union Record *record, int showCredentials) {
    const char *const bytes = record->bytes + field->offset;
    if (field->kind == CREDENTIAL && !showCredentials)
        printf("%s = (hidden)\n", field->name);
    else if (field->kind == TEXT || field->kind == CREDENTIAL)
        printf("%s = %.*s\n", field->name, (int)field->capacity, bytes);
    else
        printNumber(field, bytes);
}

/* What a result means to the user. */
static const char *resultText(uint32_t result) {
    const char *text;
    switch (result) {
    case SZTU_KEY_NOT_PRESENT:
        return "the key is not there";
    case SZTU_BAD_ARGUMENTS:
        return "the credential cannot be decrypted, see the message above";
    case SZTU_SECTION_EMPTY:
        return "the section has no entries";
    case SZTU_CANNOT_PARSE:
        return "a line of the file is not \"section.key = value\"";
    case SZTU_CANNOT_READ:
        return "the file is missing, is empty or may not be read";
    case SZTU_BAD_CONFIG:
        return "it is missing, stands there twice or has a value of the wrong kind";
    default:
        text = svcPBEReasonText(result);
        return text != NULL ? text : "unknown result";
    }
}

static int printSection(const struct Request *request, union Record *record) {
    char errorKey[SZTOU_ERROR_KEY_CAPACITY] = "";
    uint32_t result = SZTU_OK;
    const struct Field *field = readSection(request, record, errorKey, &result);
    if (field == NULL) {
        (void)fprintf(stderr, "print_section: no section \"%s\"%s.\n", request->section,
                      request->channel != NULL ? " with keys of a channel" : "");
        return EXIT_FAILURE;
    }
    if (result != SZTU_OK) {
        (void)fprintf(stderr, "print_section: \"%s\" of %s cannot be read: %s", errorKey,
                      request->path != NULL ? request->path : "keystore.conf", resultText(result));
        (void)fprintf(stderr, result <= SZTU_BAD_CONFIG ? " (result %u).\n" : " (reason 0x%08X).\n",
                      (unsigned)result);
        return EXIT_FAILURE;
    }
    for (; field->name != NULL; ++field)
        printField(field, record, request->showCredentials);
    return EXIT_SUCCESS;
}

static int scanArguments(int argumentCount, char **arguments, struct Request *request) {
    static const struct option LONG_OPTIONS[] = {
        {"channel", required_argument, NULL, 'c'},
        {"show-credentials", no_argument, NULL, 's'},
        {"cache", no_argument, NULL, 'C'},
        {NULL, 0, NULL, 0},
    };
    int option;
    /* NOLINTNEXTLINE(concurrency-mt-unsafe): this program has one thread */
    while ((option = getopt_long(argumentCount, arguments, "c:", LONG_OPTIONS, NULL)) != -1) {
        if (option == 'c')
            request->channel = optarg;
        else if (option == 's')
            request->showCredentials = 1;
        else if (option == 'C')
            request->fillsCache = 1;
        else
            return 0;
    }
    if (argumentCount - optind < 1 || argumentCount - optind > 2)
        return 0;
    request->section = arguments[optind];
    request->path = arguments[optind + 1]; /* null behind the last argument */
    return 1;
}

int main(int argumentCount, char **arguments) {
    static union Record record;
    struct Request request = {NULL, NULL, NULL, 0, 0};
    int status;
    if (!scanArguments(argumentCount, arguments, &request)) {
        (void)fputs(
            "usage: print_section [--show-credentials] [--cache] [-c CHANNEL] SECTION [FILE]\n",
            stderr);
        return EXIT_FAILURE;
    }
    if (request.showCredentials)
        (void)fputs("print_section: credentials are shown in clear.\n", stderr);
    if (request.fillsCache) {
        thdProcess.processKind = 12;
        (void)sztouCacheMCAKeystoreConf();
    }
    status = printSection(&request, &record);
    if (request.fillsCache)
        sztouReleaseMCAKeyStoreConf();
    /* The record can hold a credential, after a failure too. */
    explicit_bzero(&record, sizeof record);
    return status;
}
