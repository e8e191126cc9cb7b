// Single credentials: the PBE service, and the same work done with plain libcrypto calls.
#include "plain_cipher.h"
#include "ztpbe.h"

#include <benchmark/benchmark.h>

namespace {

constexpr char CLEAR_TEXT[] = "Winter-Harbour-42";
constexpr int CLEAR_LENGTH = sizeof CLEAR_TEXT - 1;

uint8_t initialKey[SVC_PBE_KEY_LENGTH] = {1, 2, 3};
uint8_t salt[SVC_PBE_SALT_LENGTH] = {4, 5, 6};

// A value in encrypted form.
struct Stored {
    char *text = nullptr;
    int32_t length = 0;
    ~Stored() {
        (void)svcPBEFreeBuf(text, length);
    }
};

struct Session {
    SvcPBESession record = {};
    Session() {
        record.algorithm = SVC_PBE_ALGORITHM_GCM;
        record.label = "<VEK>";
        record.key = initialKey;
        record.keyLength = sizeof initialKey;
        record.salt = salt;
        record.saltLength = sizeof salt;
        require(svcPBEInit(svcIC_MINI_SUBPOOL.handle, svcIC_MINI_SUBPOOL.word, &record) == 0);
    }
    Session(const Session &) = delete;
    ~Session() {
        (void)svcPBETerm(&record, SVC_PBE_TERM_CLOSE);
    }
    void save(Stored *value) {
        require(svcPBESave(&record, CLEAR_TEXT, CLEAR_LENGTH, &value->text, &value->length) == 0);
        benchmark::DoNotOptimize(value->text);
    }
    void restore(const Stored &value) {
        Stored clear;
        require(svcPBERestore(&record, value.text, value.length, nullptr, &clear.text,
                              &clear.length) == 0);
        benchmark::DoNotOptimize(clear.text);
    }
};

// ---- One credential, warm --------------------------------------------------------------------

void saveService(benchmark::State &state) {
    Session session;
    for (auto _ : state) {
        Stored value;
        session.save(&value);
    }
}
BENCHMARK(saveService);

void savePlain(benchmark::State &state) {
    EVP_CIPHER_CTX *const context = openCipher(initialKey);
    char stored[128];
    for (auto _ : state) {
        encrypt(context, CLEAR_TEXT, CLEAR_LENGTH, stored);
        benchmark::DoNotOptimize(stored);
    }
    EVP_CIPHER_CTX_free(context);
}
BENCHMARK(savePlain);

// ---- A whole session -------------------------------------------------------------------------

void sessionService(benchmark::State &state) {
    Stored value;
    Session().save(&value);
    for (auto _ : state)
        Session().restore(value);
}
BENCHMARK(sessionService);

// Decodes the field in front of `end`, which is moved to the "!" before it.
void decodeField(const char *stored, const char **end, uint8_t *bytes) {
    const char *const start =
        static_cast<const char *>(memrchr(stored, '!', static_cast<size_t>(*end - stored)));
    const int length = static_cast<int>(*end - start - 1);
    require(EVP_DecodeBlock(bytes, reinterpret_cast<const uint8_t *>(start + 1), length) > 0);
    *end = start;
}

void decryptPlainly(const char *stored) {
    uint8_t key[KEY_LENGTH], nonce[20], cipherText[40], tag[20], clear[40];
    const char *end = strchr(stored, '\0');
    deriveKey(initialKey, key);
    decodeField(stored, &end, tag);
    decodeField(stored, &end, cipherText);
    decodeField(stored, &end, nonce);
    EVP_CIPHER *const algorithm = EVP_CIPHER_fetch(nullptr, "AES-256-GCM", nullptr);
    EVP_CIPHER_CTX *const context = EVP_CIPHER_CTX_new();
    int length = 0, rest = 0;
    require(EVP_DecryptInit_ex2(context, algorithm, key, nonce, nullptr) == 1 &&
            EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_AEAD_SET_TAG, TAG_LENGTH, tag) == 1 &&
            EVP_DecryptUpdate(context, nullptr, &length, reinterpret_cast<const uint8_t *>(HEADER),
                              sizeof HEADER - 1) == 1 &&
            EVP_DecryptUpdate(context, clear, &length, cipherText, CLEAR_LENGTH) == 1 &&
            EVP_DecryptFinal_ex(context, clear + length, &rest) == 1);
    benchmark::DoNotOptimize(clear);
    EVP_CIPHER_CTX_free(context);
    EVP_CIPHER_free(algorithm);
}

void sessionPlain(benchmark::State &state) {
    char stored[128];
    EVP_CIPHER_CTX *const context = openCipher(initialKey);
    encrypt(context, CLEAR_TEXT, CLEAR_LENGTH, stored);
    EVP_CIPHER_CTX_free(context);
    for (auto _ : state)
        decryptPlainly(stored);
}
BENCHMARK(sessionPlain);

} // namespace
