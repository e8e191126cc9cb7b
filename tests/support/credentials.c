/* A caller in C with the public header as its only include of the product: prints the results of
 * the readers of credentials, and the credentials. credentials FILE [FIPS], where FIPS is "yes" or
 * "no". */
#include <ztvek.h>

#include <stdio.h>
#include <string.h>

int main(int count, char **arguments) {
    static SztouPemConfig pem, channel;
    static SztouPkcs11Config token;
    static SztouCrlConfig crl;
    char key[SZTOU_ERROR_KEY_CAPACITY];
    const char *const path = arguments[1];
    const int fips = count > 2 && strcmp(arguments[2], "yes") == 0;
    printf("%u", sztouGetPemConfig(&pem, path, key));
    printf(" %u", sztouGetMCAPemConfig(&channel, "HUB", path, key));
    printf(" %u", sztouGetPkcs11Config(&token, path, key));
    printf(" %u", sztouGetCrlConfig(&crl, path, key, fips));
    printf(" %s%s%s%s\n", pem.password, channel.password, token.token_pin, crl.ldapServers[0].pass);
    return 0;
}
