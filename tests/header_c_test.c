/* A caller in C with the public header as its only include of the product: the sample file is valid for
 * every reader. */
#include <ztvek.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int failures;

static void check(const char *section, uint32_t result, const char *errorKey, const char *text,
                  const char *expected) {
    if (result == SZTU_OK && strcmp(text, expected) == 0)
        return;
    fprintf(stderr, "%s: result %u, error key \"%s\", \"%s\" instead of \"%s\"\n", section, result,
            errorKey, text, expected);
    failures++;
}

int main(void) {
    static SztouKsConfig cms;
    static SztouPemConfig pem;
    static SztouPkcs11Config token;
    static SztouCrlConfig crl;
    static SztouOcspConfig ocsp;
    char path[SZTUC_PATH_CAPACITY];
    char key[SZTOU_ERROR_KEY_CAPACITY];
    uint32_t result;
    const char *source = getenv("VEK_SOURCE");
    if (source == NULL)
        return EXIT_FAILURE;
    snprintf(path, sizeof path, "%s/examples/keystore.conf", source);

    result = sztouGetKsConfig(&cms, path, key);
    check("cms", result, key, cms.certificate, "messages-2025");
    result = sztouGetMCAConfig(&cms, "ORDERS  ", path, key);
    check("cms channel", result, key, cms.certificate, "orders-2025");
    result = sztouGetPemConfig(&pem, path, key);
    check("pem", result, key, pem.password, "Winter-Harbour-42");
    result = sztouGetPkcs11Config(&token, path, key);
    check("pkcs11", result, key, token.token_pin, "73519846");
    result = sztouGetCrlConfig(&crl, path, key, 0);
    check("crl", result, key, crl.ldapServers[0].pass, "Orchard!Lantern7");
    result = sztouGetOcspConfig(&ocsp, path, key);
    check("ocsp", result, key, ocsp.url, "http://ocsp.example.com:8080");
    return failures == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
