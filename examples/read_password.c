/*
 * read_password.c - writes the password of the section "pem" to standard output, in clear, for the
 * program behind a pipe.
 *
 *   read_password [FILE]
 *
 * FILE is keystore.conf in its standard place when it is not given.
 */
#include <stdio.h>
#include <string.h>
#include <ztvek.h>

int main(int argumentCount, char **arguments) {
    const char *path = argumentCount > 1 ? arguments[1] : NULL;
    SztouPemConfig pem = {0};
    char errorKey[SZTOU_ERROR_KEY_CAPACITY];
    uint32_t result = sztouGetPemConfig(&pem, path, errorKey);

    if (result != SZTU_OK) {
        const char *reason = svcPBEReasonText(result);
        (void)fprintf(stderr, result < 256 ? "%s: result %u" : "%s: reason 0x%08X", errorKey,
                      (unsigned)result);
        (void)fprintf(stderr, ": %s\n", reason != NULL ? reason : "see ztvek(3)");
    } else if (!pem.encrypted && strncmp(pem.password, "<VEK>", 5) == 0) {
        (void)fprintf(stderr, "pem.password: its marker is missing\n");
        result = SZTU_BAD_CONFIG;
    } else {
        /* One that fills its field has no terminator. No copy stays in a buffer of stdio. */
        (void)setvbuf(stdout, NULL, _IONBF, 0);
        (void)printf("%.*s\n", (int)sizeof pem.password, pem.password);
    }
    /* The record can hold the password, after a failure too. */
    svcWipe(&pem, sizeof pem);
    return result == SZTU_OK ? 0 : 1;
}
