/*
 * small_floor.c - the least that a small run of runvekcred must do, without options, checks or
 * messages:
 *   small_floor KEYSTORE KEYFILE
 * The file is read once whole and once line by line into KEYSTORE.bak, which is put on the disk and
 * takes its place, with the same lock, reservation and syncs as in the command; meanwhile one key
 * is derived (HKDF) and the values of three lines are encrypted (AES-256-GCM, base64).
 */
#include <fcntl.h>
#include <libgen.h>
#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>
#include <openssl/params.h>
#include <openssl/rand.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <unistd.h>

enum {
    KEY_LENGTH = 32,
    NONCE_LENGTH = 12,
    TAG_LENGTH = 16,
    LINE_LENGTH = 8192,
    PATH_LENGTH = 4096
};

static const char *const CREDENTIALS[] = {"crl.ldap.pass", "pem.password", "pkcs11.token_pin"};
static const unsigned char SALT[] = "any salt of 24 bytes...";

static void require(int succeeded) {
    if (!succeeded)
        exit(1);
}

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

static void deriveKey(unsigned char *initialKey, unsigned char *key) {
    OSSL_PARAM parameters[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, (char *)"SHA256", 0),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_KEY, initialKey, KEY_LENGTH),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_SALT, (void *)SALT, sizeof SALT - 1),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_INFO, (void *)"<VEK>2", 6),
        OSSL_PARAM_construct_end(),
    };
    EVP_KDF *const algorithm = EVP_KDF_fetch(NULL, "HKDF", NULL);
    EVP_KDF_CTX *const context = EVP_KDF_CTX_new(algorithm);
    require(EVP_KDF_derive(context, key, KEY_LENGTH, parameters) == 1);
    EVP_KDF_CTX_free(context);
    EVP_KDF_free(algorithm);
}

static EVP_CIPHER_CTX *openCipher(const char *keyPath) {
    unsigned char initialKey[KEY_LENGTH];
    unsigned char key[KEY_LENGTH];
    readKey(keyPath, initialKey);
    deriveKey(initialKey, key);
    EVP_CIPHER_CTX *const context = EVP_CIPHER_CTX_new();
    require(EVP_EncryptInit_ex(context, EVP_aes_256_gcm(), NULL, key, NULL) == 1);
    return context;
}

static void writeBase64(const unsigned char *bytes, int length, FILE *output) {
    unsigned char text[2 * LINE_LENGTH];
    (void)EVP_EncodeBlock(text, bytes, length);
    (void)fprintf(output, "!%s", (char *)text);
}

static void writeEncrypted(EVP_CIPHER_CTX *context, const char *key, const char *value,
                           FILE *output) {
    unsigned char nonce[NONCE_LENGTH];
    unsigned char cipherText[LINE_LENGTH];
    unsigned char tag[TAG_LENGTH];
    int length = 0;
    int rest = 0;
    require(RAND_bytes(nonce, sizeof nonce) == 1 &&
            EVP_EncryptInit_ex(context, NULL, NULL, NULL, nonce) == 1 &&
            EVP_EncryptUpdate(context, NULL, &length, (const unsigned char *)"<VEK>2", 6) == 1 &&
            EVP_EncryptUpdate(context, cipherText, &length, (const unsigned char *)value,
                              (int)strcspn(value, "\n")) == 1 &&
            EVP_EncryptFinal_ex(context, cipherText + length, &rest) == 1 &&
            EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_AEAD_GET_TAG, TAG_LENGTH, tag) == 1);
    (void)fprintf(output, "%.3s.encrypted = YES\n%s = <VEK>2", key, key);
    writeBase64(nonce, NONCE_LENGTH, output);
    writeBase64(cipherText, length + rest, output);
    writeBase64(tag, TAG_LENGTH, output);
    (void)fputc('\n', output);
}

static void rewriteLine(EVP_CIPHER_CTX *context, const char *line, FILE *output) {
    for (size_t i = 0; i < sizeof CREDENTIALS / sizeof CREDENTIALS[0]; ++i) {
        const size_t length = strlen(CREDENTIALS[i]);
        if (strncmp(line, CREDENTIALS[i], length) == 0)
            return writeEncrypted(context, CREDENTIALS[i], line + length + strlen(" = "), output);
    }
    (void)fputs(line, output);
}

static void rewriteFile(const char *path, const char *keyPath) {
    char directoryPath[PATH_LENGTH];
    char outputPath[PATH_LENGTH];
    char line[LINE_LENGTH];
    (void)snprintf(directoryPath, sizeof directoryPath, "%s", path);
    (void)snprintf(outputPath, sizeof outputPath, "%s.bak", path);
    const int directory = open(dirname(directoryPath), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    require(flock(directory, LOCK_EX) == 0);
    FILE *const input = fopen(path, "re");
    FILE *const output = fopen(outputPath, "we");
    require(input != NULL && output != NULL);
    (void)fallocate(fileno(output), FALLOC_FL_KEEP_SIZE, 0, 65536);
    EVP_CIPHER_CTX *const context = openCipher(keyPath);
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
