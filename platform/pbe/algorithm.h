/*
 * algorithm.h - the algorithms of the service, a row for each, and one of them in use by a session.
 */
#ifndef ZTM_ALGORITHM_H
#define ZTM_ALGORITHM_H

#include "pbe/libcrypto.h"
#include "pbe/value_text.h"

#include <span>

namespace ztm {

// Longest derived key of an algorithm in bytes.
inline constexpr size_t LONGEST_KEY = 64;

enum class Direction { none, decrypt, encrypt };

struct Algorithm;

// An algorithm in use: its derived key and the libcrypto contexts that hold it. All of it is
// secret. A context keeps its key from value to value; only the nonce is set anew.
struct Cipher {
    const Libcrypto *libcrypto = nullptr;
    const Algorithm *algorithm = nullptr; // null: not open
    Wiping<uint8_t[LONGEST_KEY]> key = {};
    Direction keyedFor = Direction::none; // direction for which `context` holds the key
    Handle<EVP_CIPHER_CTX, EVP_CIPHER_CTX_free> context;
    Handle<EVP_MAC_CTX, EVP_MAC_CTX_free> authenticator; // of an algorithm that has a MAC apart
};

// A row of the table. `header`, here and below, is label and digit, which every algorithm
// authenticates.
struct Algorithm {
    int32_t digit;
    size_t keyLength; // bytes of the derived key
    ValueShape shape;

    // Makes the contexts of a cipher that has its key. Result: whether libcrypto could.
    bool (*open)(Cipher *cipher);

    // Encrypts a clear text and writes the whole value at `text`, which has room for it and a NUL.
    // Result: whether libcrypto could.
    bool (*seal)(Cipher *cipher, std::span<const char> header, std::span<const char> clear,
                 char *text);

    // Decrypts the parts of a value; `body` is its text before the tag. `clear` has room for the
    // cipher text. Result: SVC_PBE_OK, SVC_PBE_NO_STORAGE, SVC_PBE_CRYPTO_FAILED,
    // SVC_PBE_AUTHENTICATION_FAILED; `clear` then holds bytes that must be wiped.
    uint32_t (*unseal)(Cipher *cipher, std::span<const char> header, std::span<const char> body,
                       const ValueParts &parts, uint8_t *clear, size_t *clearLength);
};

extern const Algorithm AES_256_CBC_HMAC;
extern const Algorithm AES_256_GCM;

// findAlgorithm returns the row of a digit, or null when it is not supported. The table is here
// because the rows call the shared steps below, which must not know them.
[[nodiscard]] inline const Algorithm *findAlgorithm(int32_t digit) {
    for (const Algorithm *const algorithm : {&AES_256_CBC_HMAC, &AES_256_GCM}) {
        if (algorithm->digit == digit)
            return algorithm;
    }
    return nullptr;
}

// openCipher derives the key of an algorithm and opens its contexts.
// Result: SVC_PBE_OK, SVC_PBE_NO_STORAGE, SVC_PBE_CRYPTO_FAILED; the cipher is then not open.
[[nodiscard]] uint32_t openCipher(Cipher *cipher, const Libcrypto &libcrypto,
                                  const Algorithm &algorithm, std::span<const uint8_t> initialKey,
                                  std::span<const uint8_t> salt, std::span<const char> header);

// ---- Steps that the algorithms share; each tells whether libcrypto could ------------------------

// startCipher sets the direction and the nonce, and the key where the context has it not for this
// direction.
[[nodiscard]] bool startCipher(Cipher *cipher, const EVP_CIPHER *algorithm, const uint8_t *nonce,
                               Direction direction);

// makeNonce fills the nonce of a value with random bytes.
[[nodiscard]] bool makeNonce(const Cipher &cipher, ValueParts *parts);

// encipher makes the cipher text of a clear text, with a context that was started.
[[nodiscard]] bool encipher(Cipher *cipher, std::span<const char> clear, ValueParts *parts);

// decipher makes the clear text of a cipher text, with a context that was started. The last step
// allocates nothing: it fails for a wrong tag or padding only. Result: as of Algorithm::unseal.
[[nodiscard]] uint32_t decipher(Cipher *cipher, const ValueParts &parts, uint8_t *clear,
                                size_t *clearLength);

inline const unsigned char *bytesOf(std::span<const char> text) {
    return reinterpret_cast<const unsigned char *>(text.data());
}

} // namespace ztm

#endif
