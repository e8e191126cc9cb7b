// Single credentials: the PBE service, and the same work done with plain libcrypto calls.
#include "ztpbe.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <cstring>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>
#include <openssl/params.h>
#include <openssl/rand.h>

namespace {

constexpr char CLEAR_TEXT[] = "Winter-Harbour-42";
constexpr int CLEAR_LENGTH = sizeof CLEAR_TEXT - 1;
constexpr char HEADER[] = "<VEK>2";
constexpr char PASSPHRASE[SVC_PBE_PASSPHRASE_PADDING] = "correct horse battery staple";
constexpr int ROUNDS = 600'000;
constexpr int NONCE_LENGTH = 12;
constexpr int TAG_LENGTH = 16;

uint8_t key[SVC_PBE_KEY_LENGTH] = {1, 2, 3};
uint8_t salt[SVC_PBE_SALT_LENGTH] = {4, 5, 6};

// A step that fails would make a benchmark of nothing.
void require(bool succeeded) {
    if (!succeeded)
        abort();
}

const unsigned char *bytesOf(const char *text) {
    return reinterpret_cast<const unsigned char *>(text);
}

SvcPBESession openSession(uint8_t *initialKey, int32_t length) {
    SvcPBESession session = {};
    session.algorithm = SVC_PBE_ALGORITHM_GCM;
    session.label = "<VEK>";
    session.key = initialKey;
    session.keyLength = length;
    session.salt = salt;
    session.saltLength = sizeof salt;
    require(svcPBEInit(svcIC_MINI_SUBPOOL.handle, svcIC_MINI_SUBPOOL.word, &session) == 0);
    return session;
}

void saveAndRelease(SvcPBESession *session) {
    char *text;
    int32_t length;
    require(svcPBESave(session, CLEAR_TEXT, CLEAR_LENGTH, &text, &length) == 0);
    benchmark::DoNotOptimize(text);
    (void)svcPBEFreeBuf(text, length);
}

struct Encrypted {
    unsigned char nonce[20]; // the binary parts have room for what the decoder pads
    unsigned char cipherText[40];
    unsigned char tag[20];
    unsigned char text[128];
    size_t nonceStart; // of the fields in `text`
    size_t cipherTextStart;
    size_t tagStart;
    size_t length;
};

size_t encodeField(Encrypted *value, size_t start, const unsigned char *bytes, int length) {
    value->text[start] = '!';
    return start + 1 + static_cast<size_t>(EVP_EncodeBlock(value->text + start + 1, bytes, length));
}

void encryptPlainly(EVP_CIPHER_CTX *context, Encrypted *value) {
    int length = 0;
    int rest = 0;
    require(RAND_bytes(value->nonce, NONCE_LENGTH) == 1 &&
            EVP_EncryptInit_ex(context, nullptr, nullptr, nullptr, value->nonce) == 1 &&
            EVP_EncryptUpdate(context, nullptr, &length, bytesOf(HEADER), sizeof HEADER - 1) == 1 &&
            EVP_EncryptUpdate(context, value->cipherText, &length, bytesOf(CLEAR_TEXT),
                              CLEAR_LENGTH) == 1 &&
            EVP_EncryptFinal_ex(context, value->cipherText + length, &rest) == 1 &&
            EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_AEAD_GET_TAG, TAG_LENGTH, value->tag) == 1);
    memcpy(value->text, HEADER, sizeof HEADER - 1);
    value->nonceStart = sizeof HEADER;
    value->cipherTextStart = 1 + encodeField(value, sizeof HEADER - 1, value->nonce, NONCE_LENGTH);
    value->tagStart =
        1 + encodeField(value, value->cipherTextStart - 1, value->cipherText, CLEAR_LENGTH);
    value->length = encodeField(value, value->tagStart - 1, value->tag, TAG_LENGTH);
}

void deriveKeyPlainly(unsigned char *derived) {
    char digest[] = "SHA256";
    char header[] = "<VEK>2";
    OSSL_PARAM parameters[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, digest, 0),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_KEY, key, sizeof key),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_SALT, salt, sizeof salt),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_INFO, header, sizeof header - 1),
        OSSL_PARAM_construct_end(),
    };
    EVP_KDF *const algorithm = EVP_KDF_fetch(nullptr, "HKDF", nullptr);
    EVP_KDF_CTX *const context = EVP_KDF_CTX_new(algorithm);
    require(EVP_KDF_derive(context, derived, SVC_PBE_KEY_LENGTH, parameters) == 1);
    EVP_KDF_CTX_free(context);
    EVP_KDF_free(algorithm);
}

void decodeField(unsigned char *bytes, const Encrypted &value, size_t start, size_t end) {
    require(EVP_DecodeBlock(bytes, value.text + start, static_cast<int>(end - start)) > 0);
}

void decryptPlainly(const Encrypted &value) {
    unsigned char derived[SVC_PBE_KEY_LENGTH];
    Encrypted parts;
    char clear[64];
    int length = 0;
    int rest = 0;
    deriveKeyPlainly(derived);
    decodeField(parts.nonce, value, value.nonceStart, value.cipherTextStart - 1);
    decodeField(parts.cipherText, value, value.cipherTextStart, value.tagStart - 1);
    decodeField(parts.tag, value, value.tagStart, value.length);
    EVP_CIPHER *const algorithm = EVP_CIPHER_fetch(nullptr, "AES-256-GCM", nullptr);
    EVP_CIPHER_CTX *const context = EVP_CIPHER_CTX_new();
    require(EVP_DecryptInit_ex2(context, algorithm, derived, parts.nonce, nullptr) == 1 &&
            EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_AEAD_SET_TAG, TAG_LENGTH, parts.tag) == 1 &&
            EVP_DecryptUpdate(context, nullptr, &length, bytesOf(HEADER), sizeof HEADER - 1) == 1 &&
            EVP_DecryptUpdate(context, reinterpret_cast<unsigned char *>(clear), &length,
                              parts.cipherText, CLEAR_LENGTH) == 1 &&
            EVP_DecryptFinal_ex(context, reinterpret_cast<unsigned char *>(clear) + length,
                                &rest) == 1);
    benchmark::DoNotOptimize(clear);
    EVP_CIPHER_CTX_free(context);
    EVP_CIPHER_free(algorithm);
}

// ---- One credential, warm --------------------------------------------------------------------

void saveService(benchmark::State &state) {
    SvcPBESession session = openSession(key, sizeof key);
    for (auto _ : state)
        saveAndRelease(&session);
    (void)svcPBETerm(&session, SVC_PBE_TERM_CLOSE);
}
BENCHMARK(saveService);

void savePlain(benchmark::State &state) {
    EVP_CIPHER_CTX *const context = EVP_CIPHER_CTX_new();
    require(EVP_EncryptInit_ex(context, EVP_aes_256_gcm(), nullptr, key, nullptr) == 1);
    Encrypted value;
    for (auto _ : state) {
        encryptPlainly(context, &value);
        benchmark::DoNotOptimize(value);
    }
    EVP_CIPHER_CTX_free(context);
}
BENCHMARK(savePlain);

// ---- A whole session -------------------------------------------------------------------------

void sessionService(benchmark::State &state) {
    SvcPBESession writer = openSession(key, sizeof key);
    char *stored;
    int32_t storedLength;
    require(svcPBESave(&writer, CLEAR_TEXT, CLEAR_LENGTH, &stored, &storedLength) == 0);
    for (auto _ : state) {
        SvcPBESession session = openSession(key, sizeof key);
        char *clear;
        int32_t length;
        require(svcPBERestore(&session, stored, storedLength, nullptr, &clear, &length) == 0);
        benchmark::DoNotOptimize(clear);
        (void)svcPBEFreeBuf(clear, length);
        (void)svcPBETerm(&session, SVC_PBE_TERM_CLOSE);
    }
    (void)svcPBEFreeBuf(stored, storedLength);
    (void)svcPBETerm(&writer, SVC_PBE_TERM_CLOSE);
}
BENCHMARK(sessionService);

void sessionPlain(benchmark::State &state) {
    unsigned char derived[SVC_PBE_KEY_LENGTH];
    deriveKeyPlainly(derived);
    EVP_CIPHER_CTX *const context = EVP_CIPHER_CTX_new();
    require(EVP_EncryptInit_ex(context, EVP_aes_256_gcm(), nullptr, derived, nullptr) == 1);
    Encrypted value;
    encryptPlainly(context, &value);
    EVP_CIPHER_CTX_free(context);
    for (auto _ : state)
        decryptPlainly(value);
}
BENCHMARK(sessionPlain);

void passphraseService(benchmark::State &state) {
    uint8_t passphrase[sizeof PASSPHRASE];
    memcpy(passphrase, PASSPHRASE, sizeof PASSPHRASE);
    for (auto _ : state) {
        SvcPBESession session = openSession(passphrase, sizeof passphrase);
        saveAndRelease(&session);
        (void)svcPBETerm(&session, SVC_PBE_TERM_CLOSE);
    }
}
BENCHMARK(passphraseService)->Unit(benchmark::kMillisecond);

void passphrasePlain(benchmark::State &state) {
    unsigned char derived[SVC_PBE_KEY_LENGTH];
    for (auto _ : state) {
        require(PKCS5_PBKDF2_HMAC(PASSPHRASE, sizeof PASSPHRASE, salt, sizeof salt, ROUNDS,
                                  EVP_sha256(), sizeof derived, derived) == 1);
        benchmark::DoNotOptimize(derived);
    }
}
BENCHMARK(passphrasePlain)->Unit(benchmark::kMillisecond);

} // namespace
