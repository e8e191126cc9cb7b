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
#include "record_fields.h"

#include <getopt.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static union {
    SztouKsConfig cms;
    SztouOcspConfig ocsp;
    SztouPemConfig pem;
    SztouPkcs11Config pkcs11;
    SztouCrlConfig crl;
    char bytes[sizeof(SztouCrlConfig)];
} record;

static uint32_t readSection(const char *section, const char *channel, const char *path, char *key) {
    if (strcmp(section, "cms") == 0)
        return channel != NULL ? sztouGetMCAConfig(&record.cms, channel, path, key)
                               : sztouGetKsConfig(&record.cms, path, key);
    if (strcmp(section, "ocsp") == 0)
        return sztouGetOcspConfig(&record.ocsp, path, key);
    if (strcmp(section, "pem") == 0)
        return channel != NULL ? sztouGetMCAPemConfig(&record.pem, channel, path, key)
                               : sztouGetPemConfig(&record.pem, path, key);
    if (strcmp(section, "pkcs11") == 0)
        return sztouGetPkcs11Config(&record.pkcs11, path, key);
    return sztouGetCrlConfig(&record.crl, path, key, /* fips= */ 0);
}

/* The words of the numbers from -1 on; the others are shown as they are. */
static const char *const WORDS[][5] = {
    [NUMBER] = {"not set"},
    [FLAG] = {"not set", "no", "yes"},
    [CHOICE] = {NULL, "not set", "no", "yes"},
    [ANSWER] = {NULL, "not set", "REJECT", "ACCEPT", "WARN"},
};

static void printField(const struct Field *field, int showCredentials) {
    const char *const bytes = record.bytes + field->offset;
    int32_t number;
    memcpy(&number, bytes, sizeof number);
    printf("%s = ", field->name);
    if (field->kind == CREDENTIAL && !showCredentials)
        puts("(hidden)");
    else if (field->kind >= TEXT)
        printf("%.*s\n", (int)field->size, bytes);
    else if (number >= -1 && number <= 3 && WORDS[field->kind][number + 1] != NULL)
        puts(WORDS[field->kind][number + 1]);
    else
        printf("%d\n", (int)number);
}

static void printFailure(const char *path, const char *key, uint32_t result) {
    static const char *const TEXTS[] = {
        [SZTU_KEY_NOT_PRESENT] = "the key is not there",
        [SZTU_BAD_ARGUMENTS] = "the credential cannot be decrypted, see the message above",
        [SZTU_SECTION_EMPTY] = "the section has no entries",
        [SZTU_CANNOT_PARSE] = "a line of the file is not \"section.key = value\"",
        [SZTU_CANNOT_READ] = "the file is missing, is empty or may not be read",
        [SZTU_BAD_CONFIG] = "it is missing, stands there twice or has a value of the wrong kind",
    };
    const int isOfReader = result <= SZTU_BAD_CONFIG;
    const char *const text = isOfReader ? TEXTS[result] : svcPBEReasonText(result);
    (void)fprintf(stderr, "print_section: \"%s\" of %s cannot be read: %s", key,
                  path != NULL ? path : "keystore.conf", text != NULL ? text : "unknown result");
    (void)fprintf(stderr, isOfReader ? " (result %u).\n" : " (reason 0x%08X).\n", (unsigned)result);
}

int main(int count, char **arguments) {
    static const struct option OPTIONS[] = {{"show-credentials", no_argument, NULL, 's'},
                                            {"cache", no_argument, NULL, 'C'},
                                            {NULL, 0, NULL, 0}};
    const char *channel = NULL;
    char key[SZTOU_ERROR_KEY_CAPACITY] = "";
    int showCredentials = 0;
    for (int option; (option = getopt_long(count, arguments, "c:", OPTIONS, NULL)) != -1;) {
        if (option == 'c')
            channel = optarg;
        showCredentials |= option == 's';
        if (option == 'C') {
            thdProcess.processKind = 12;
            (void)sztouCacheMCAKeystoreConf();
        }
    }
    if (optind >= count)
        return EXIT_FAILURE;
    const char *const section = arguments[optind];
    const char *const path = arguments[optind + 1]; /* null behind the last argument */
    if (showCredentials)
        (void)fputs("print_section: credentials are shown in clear.\n", stderr);
    const uint32_t result = readSection(section, channel, path, key);
    if (result != SZTU_OK)
        printFailure(path, key, result);
    for (int i = 0; i < FIELD_COUNT && result == SZTU_OK; ++i)
        if (strcmp(FIELDS[i].section, section) == 0 && FIELDS[i].kind != NOT_SHOWN)
            printField(&FIELDS[i], showCredentials);
    if (thdProcess.processKind != 0)
        sztouReleaseMCAKeyStoreConf();
    explicit_bzero(&record, sizeof record); /* after a failure too */
    return result == SZTU_OK ? EXIT_SUCCESS : EXIT_FAILURE;
}
