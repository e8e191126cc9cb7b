/* What the product does with a key and a credential, done with plain calls of libcrypto. */
#ifndef PLAIN_CIPHER_H
#define PLAIN_CIPHER_H

#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>
#include <openssl/params.h>
#include <openssl/rand.h>
#include <stdlib.h>
#include <string.h>

#define HEADER "<VEK>2"

enum { KEY_LENGTH = 32, NONCE_LENGTH = 12, TAG_LENGTH = 16, CLEAR_LIMIT = 1024 };

/* A step that fails would make a measurement of nothing. */
static void require(int succeeded) {
    if (!succeeded)
        abort();
}

static void deriveKey(unsigned char *initialKey, unsigned char *key) {
    char digest[] = "SHA256", salt[] = "any salt of 24 bytes...", info[] = HEADER;
    OSSL_PARAM parameters[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, digest, 0),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_KEY, initialKey, KEY_LENGTH),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_SALT, salt, sizeof salt - 1),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_INFO, info, sizeof info - 1),
        OSSL_PARAM_construct_end(),
    };
    EVP_KDF *const algorithm = EVP_KDF_fetch(NULL, "HKDF", NULL);
    EVP_KDF_CTX *const context = EVP_KDF_CTX_new(algorithm);
    require(EVP_KDF_derive(context, key, KEY_LENGTH, parameters) == 1);
    EVP_KDF_CTX_free(context);
    EVP_KDF_free(algorithm);
}

static EVP_CIPHER_CTX *openCipher(unsigned char *initialKey) {
    unsigned char key[KEY_LENGTH];
    deriveKey(initialKey, key);
    EVP_CIPHER_CTX *const context = EVP_CIPHER_CTX_new();
    require(EVP_EncryptInit_ex(context, EVP_aes_256_gcm(), NULL, key, NULL) == 1);
    return context;
}

static char *appendBase64(char *end, const unsigned char *bytes, int length) {
    *end++ = '!';
    return end + EVP_EncodeBlock((unsigned char *)end, bytes, length);
}

/* Writes the encrypted form of a text into `stored`, which has room for it. */
static void encrypt(EVP_CIPHER_CTX *context, const char *clear, int clearLength, char *stored) {
    unsigned char nonce[NONCE_LENGTH], cipherText[CLEAR_LIMIT], tag[TAG_LENGTH];
    int length = 0, rest = 0;
    require(RAND_bytes(nonce, sizeof nonce) == 1 &&
            EVP_EncryptInit_ex(context, NULL, NULL, NULL, nonce) == 1 &&
            EVP_EncryptUpdate(context, NULL, &length, (const unsigned char *)HEADER,
                              sizeof HEADER - 1) == 1 &&
            EVP_EncryptUpdate(context, cipherText, &length, (const unsigned char *)clear,
                              clearLength) == 1 &&
            EVP_EncryptFinal_ex(context, cipherText + length, &rest) == 1 &&
            EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_AEAD_GET_TAG, TAG_LENGTH, tag) == 1);
    memcpy(stored, HEADER, sizeof HEADER - 1);
    char *end = appendBase64(stored + sizeof HEADER - 1, nonce, NONCE_LENGTH);
    end = appendBase64(end, cipherText, length + rest);
    (void)appendBase64(end, tag, TAG_LENGTH);
}

#endif
