/*
 * small_floor.c - the least that a small run of runvekcred must do, without options, checks or
 * messages:
 *   small_floor KEYSTORE KEYFILE
 * The file is read once whole and once line by line into KEYSTORE.bak, which is put on the disk and
 * takes its place, with the same lock, reservation and syncs as in the command; meanwhile one key
 * is derived (HKDF) and the values of three lines are encrypted (AES-256-GCM, base64).
 */
#include "plain_cipher.h"

#include <fcntl.h>
#include <libgen.h>
#include <openssl/crypto.h>
#include <stdio.h>
#include <sys/file.h>
#include <unistd.h>

enum { LINE_LENGTH = 1024, PATH_LENGTH = 4096 };

static const char *const CREDENTIALS[] = {"crl.ldap.pass", "pem.password", "pkcs11.token_pin"};

static void readKey(const char *path, unsigned char *key) {
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    require(read(file, key, KEY_LENGTH) == KEY_LENGTH);
    (void)close(file);
}

static void checkReadable(const char *path) {
    FILE *const file = fopen(path, "re");
    require(file != NULL && fseek(file, 0, SEEK_END) == 0);
    const size_t size = (size_t)ftell(file);
    rewind(file);
    char *const text = calloc(1, size + 1);
    require(text != NULL && fread(text, 1, size, file) == size);
    free(text);
    (void)fclose(file);
}

static void rewriteLine(EVP_CIPHER_CTX *context, const char *line, FILE *output) {
    for (size_t i = 0; i < sizeof CREDENTIALS / sizeof CREDENTIALS[0]; ++i) {
        const size_t length = strlen(CREDENTIALS[i]);
        if (strncmp(line, CREDENTIALS[i], length) != 0)
            continue;
        const char *const value = line + length + strlen(" = ");
        char stored[2 * LINE_LENGTH];
        encrypt(context, value, (int)strcspn(value, "\n"), stored);
        (void)fprintf(output, "%.3s.encrypted = YES\n%s = %s\n", CREDENTIALS[i], CREDENTIALS[i],
                      stored);
        return;
    }
    (void)fputs(line, output);
}

static void rewriteFile(const char *path, const char *keyPath) {
    char directoryPath[PATH_LENGTH];
    char outputPath[PATH_LENGTH];
    char line[LINE_LENGTH];
    unsigned char initialKey[KEY_LENGTH];
    (void)snprintf(directoryPath, sizeof directoryPath, "%s", path);
    (void)snprintf(outputPath, sizeof outputPath, "%s.bak", path);
    const int directory = open(dirname(directoryPath), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    require(flock(directory, LOCK_EX) == 0);
    FILE *const input = fopen(path, "re");
    FILE *const output = fopen(outputPath, "we");
    require(input != NULL && output != NULL);
    (void)fallocate(fileno(output), FALLOC_FL_KEEP_SIZE, 0, 65536);
    readKey(keyPath, initialKey);
    EVP_CIPHER_CTX *const context = openCipher(initialKey);
    while (fgets(line, sizeof line, input) != NULL)
        rewriteLine(context, line, output);
    EVP_CIPHER_CTX_free(context);
    require(fflush(output) == 0 && ftruncate(fileno(output), ftell(output)) == 0 &&
            fdatasync(fileno(output)) == 0);
    (void)fclose(output);
    (void)fclose(input);
    require(unlink(path) == 0 && rename(outputPath, path) == 0 && fsync(directory) == 0);
    (void)close(directory);
}

int main(int argumentCount, char **arguments) {
    require(argumentCount == 3 &&
            OPENSSL_init_crypto(OPENSSL_INIT_NO_ADD_ALL_CIPHERS | OPENSSL_INIT_NO_ADD_ALL_DIGESTS |
                                    OPENSSL_INIT_LOAD_CONFIG,
                                NULL) == 1);
    checkReadable(arguments[1]);
    rewriteFile(arguments[1], arguments[2]);
    return 0;
}
