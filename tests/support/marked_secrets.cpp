// What constant_time_test runs under valgrind: keys and clear texts are marked as memory that was
// never written, and valgrind reports each branch and each address that comes of them. Where
// something that was computed from them becomes public, a wrapper (ld --wrap) says so and why.
//
//   marked_secrets values KEYFILE          values, fingerprints and a section, KEYFILE has 32 bytes
//   marked_secrets keyfile KEYFILE LENGTH  a key file, of which the first LENGTH bytes are secret
//   marked_secrets memcmp                  a comparison that must be reported
#include "shared.h"
#include "support/cipher_session.h"

#include <cstdlib>
#include <cstring>
#include <openssl/evp.h>
#include <string>
#include <unistd.h>
#include <utility>
#include <valgrind/memcheck.h>

namespace {

bool isSaving;
size_t secretLength; // of what is read next

void hide(const void *bytes, size_t length) {
    (void)VALGRIND_MAKE_MEM_UNDEFINED(bytes, length);
}

void publish(const void *bytes, size_t length) {
    (void)VALGRIND_MAKE_MEM_DEFINED(bytes, length);
}

template <typename Value> Value published(Value value) {
    publish(&value, sizeof value);
    return value;
}

} // namespace

#define WRAPPER(result, name, ...)                                                                 \
    extern "C" result __real_##name(__VA_ARGS__);                                                  \
    extern "C" result __wrap_##name(__VA_ARGS__);                                                  \
    result __wrap_##name(__VA_ARGS__)

// The tag of algorithm 1 goes into the file when a value is saved. The one that a value should have
// had stays secret when it is restored.
WRAPPER(int, EVP_MAC_final, EVP_MAC_CTX *context, uint8_t *tag, size_t *length, size_t capacity) {
    const int result = __real_EVP_MAC_final(context, tag, length, capacity);
    if (isSaving)
        publish(tag, *length);
    return result;
}

// Whether the tag of algorithm 1 is right.
WRAPPER(int, CRYPTO_memcmp, const void *one, const void *other, size_t length) {
    return published(__real_CRYPTO_memcmp(one, other, length));
}

// The tag of algorithm 2 goes into the file. Whether it is right, libcrypto finds out for itself.
WRAPPER(int, EVP_CIPHER_CTX_ctrl, EVP_CIPHER_CTX *context, int type, int length, void *tag) {
    const int result = __real_EVP_CIPHER_CTX_ctrl(context, type, length, tag);
    if (type == EVP_CTRL_AEAD_GET_TAG)
        publish(tag, static_cast<size_t>(length));
    return result;
}

// The cipher text goes into the file.
WRAPPER(int, EVP_CipherUpdate, EVP_CIPHER_CTX *context, uint8_t *output, int *length,
        const uint8_t *input, int inputLength) {
    const int result = __real_EVP_CipherUpdate(context, output, length, input, inputLength);
    if (isSaving && output != nullptr)
        publish(output, static_cast<size_t>(*length));
    return result;
}

// The same, and the length of a clear text, which algorithm 1 finds in its padding.
WRAPPER(int, EVP_CipherFinal_ex, EVP_CIPHER_CTX *context, uint8_t *output, int *length) {
    const int result = __real_EVP_CipherFinal_ex(context, output, length);
    publish(length, sizeof *length);
    if (isSaving)
        publish(output, static_cast<size_t>(*length));
    return result;
}

// A fingerprint may be shown. It is shorter than any key.
WRAPPER(int, EVP_KDF_derive, EVP_KDF_CTX *context, uint8_t *key, size_t length,
        const OSSL_PARAM *parameters) {
    const int result = __real_EVP_KDF_derive(context, key, length, parameters);
    if (length == SVC_PBE_FINGERPRINT_LENGTH / 2)
        publish(key, length);
    return result;
}

// The length of a credential in the record of a reader.
WRAPPER(size_t, strnlen, const char *text, size_t limit) {
    size_t length = 0;
    while (length < limit && published(text[length]) != '\0')
        ++length;
    return length;
}

// What is read through a descriptor is a key file. The compiler chooses one of the two.
WRAPPER(ssize_t, read, int file, void *bytes, size_t length) {
    const ssize_t result = __real_read(file, bytes, length);
    hide(bytes, std::exchange(secretLength, 0));
    return result;
}
WRAPPER(ssize_t, __read_chk, int file, void *bytes, size_t length, size_t /*capacity*/) {
    return __wrap_read(file, bytes, length);
}

namespace {

void require(bool holds, int line = __builtin_LINE()) {
    if (holds)
        return;
    (void)fprintf(stderr, "marked_secrets: line %d\n", line);
    _exit(1);
}

// A secret that arrives must be known as one still, or nothing was looked at on its way.
void takeSecret(const char *text, size_t length, const std::string &expected) {
    std::string marks(length, '\0');
    require(length == expected.size() && VALGRIND_GET_VBITS(text, marks.data(), length) == 1);
    require(marks.find('\0') == std::string::npos);
    publish(text, length);
    require(memcmp(text, expected.data(), length) == 0);
}

struct Session : CipherSession {
    Session(int32_t number, char keyByte)
        : CipherSession(number, std::string(SVC_PBE_KEY_LENGTH, keyByte),
                        builtIn(vek::buildFixedSalt)) {
        hide(key.data(), key.size());
        require(open() == SVC_PBE_OK);
    }
    std::string saveSecretly(std::string clear) {
        hide(clear.data(), clear.size());
        isSaving = true;
        const std::string stored = save(clear);
        isSaving = false;
        require(reason == SVC_PBE_OK);
        return stored;
    }
    bool opens(const std::string &stored, const std::string &expected) {
        const std::string clear = restore(stored);
        if (reason == SVC_PBE_OK)
            takeSecret(clear.data(), clear.size(), expected);
        else
            require(reason == SVC_PBE_AUTHENTICATION_FAILED);
        return reason == SVC_PBE_OK;
    }
};

// A reader of a section, which restores with the key of a file.
void checkReader(const std::string &stored, const std::string &expected) {
    char path[] = "/tmp/marked_secretsXXXXXX";
    const int file = mkstemp(path);
    const std::string text =
        "pem.private = x\npem.public = x\npem.encrypted = YES\npem.password = " + stored + "\n";
    require(write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size()));
    (void)close(file);
    SztouPemConfig config = {};
    char errorKey[SZTOU_ERROR_KEY_CAPACITY];
    secretLength = SVC_PBE_KEY_LENGTH;
    require(sztouGetPemConfig(&config, path, errorKey) == SZTU_OK);
    takeSecret(config.password, expected.size(), expected);
    (void)unlink(path);
}

void checkValues() {
    for (const int32_t algorithm : {SVC_PBE_ALGORITHM_CBC_HMAC, SVC_PBE_ALGORITHM_GCM}) {
        for (const std::string clear : {"a", "sixteen bytes...", "a credential of some length"}) {
            Session writer(algorithm, 'k'), reader(3 - algorithm, 'k'), stranger(algorithm, 'w');
            std::string stored = writer.saveSecretly(clear);
            require(reader.opens(stored, clear) && !stranger.opens(stored, clear));
            checkReader(stored, clear);
            stored[40] = stored[40] == 'A' ? 'B' : 'A'; // of the cipher text, or of the tag
            require(!reader.opens(stored, clear));
            char fingerprint[SVC_PBE_FINGERPRINT_LENGTH + 1];
            require(svcPBEFingerprint(&writer.record, fingerprint) == SVC_PBE_OK);
        }
    }
}

void readKeyFile(const char *path, size_t hidden) {
    uint8_t *key;
    int32_t length;
    secretLength = hidden;
    require(svcPBEReadInitialKeyFile(path, &key, &length) == SVC_PBE_OK);
    (void)svcPBEFreeBuf(key, length);
}

void compareAtOnce() {
    const Session session(SVC_PBE_ALGORITHM_GCM, 'k');
    int (*const volatile compare)(const void *, const void *, size_t) = memcmp;
    if (compare(session.key.data(), session.salt.data(), session.salt.size()) == 0)
        _exit(2);
}

} // namespace

int main(int argumentCount, char **arguments) {
    const std::string subject = argumentCount > 1 ? arguments[1] : "";
    require(RUNNING_ON_VALGRIND != 0 && !subject.empty());
    if (subject == "values" && setenv("ZTS_VEKCRED_KEYFILE", arguments[2], 1) == 0)
        checkValues();
    else if (subject == "keyfile")
        readKeyFile(arguments[2], strtoul(arguments[3], nullptr, 10));
    else
        compareAtOnce();
    return 0;
}
