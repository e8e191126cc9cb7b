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

static void printField(const struct Field *field, int showCredentials) {
    const char *const bytes = record.bytes + field->offset;
    int32_t number;
    memcpy(&number, bytes, sizeof number);
    if (field->kind == CREDENTIAL && !showCredentials)
        printf("%s = (hidden)\n", field->name);
    else if (field->kind == NUMBER)
        printf("%s = %d\n", field->name, (int)number);
    else
        printf("%s = %.*s\n", field->name, (int)field->size, bytes);
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
    const uint32_t result = readSection(section, channel, path, key);
    if (result != SZTU_OK)
        (void)fprintf(stderr, "print_section: \"%s\" of %s cannot be read (result 0x%X)\n", key,
                      path != NULL ? path : "keystore.conf", (unsigned)result);
    for (int i = 0; i < FIELD_COUNT && result == SZTU_OK; ++i)
        if (strcmp(FIELDS[i].section, section) == 0 && FIELDS[i].kind != NOT_SHOWN)
            printField(&FIELDS[i], showCredentials);
    if (thdProcess.processKind != 0)
        sztouReleaseMCAKeyStoreConf();
    explicit_bzero(&record, sizeof record); /* after a failure too */
    return result == SZTU_OK ? EXIT_SUCCESS : EXIT_FAILURE;
}
