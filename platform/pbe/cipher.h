/*
 * cipher.h - one algorithm of a session: its derived key and the libcrypto contexts that hold it.
 */
#ifndef CIPHER_H
#define CIPHER_H

#include "pbe/libcrypto.h"
#include "pbe/nonce_pool.h"
#include "pbe/value_text.h"

#include <span>

// Bytes of the derived key: algorithm 1 enciphers with the first half and authenticates with the other.
inline constexpr size_t PBE_CBC_HMAC_KEY_LENGTH = 64;

enum class PbeDirection { none, decrypt, encrypt };

// Everything of it is secret. All zero: not open.
struct PbeCipher {
    const PbeProvider *provider;
    int32_t algorithm;
    PbeDirection keyedFor; // direction for which `context` holds the key
    EVP_CIPHER_CTX *context;
    EVP_MAC_CTX *authenticator; // algorithm 1 only
    uint8_t key[PBE_CBC_HMAC_KEY_LENGTH];
};

// pbeOpenCipher derives the key of one algorithm. `header` is label and digit.
// Result, here and below: SVC_PBE_OK, SVC_PBE_NO_STORAGE, SVC_PBE_CRYPTO_FAILED.
[[nodiscard]] uint32_t pbeOpenCipher(PbeCipher *cipher, PbeProvider *provider, int32_t algorithm,
                                     std::span<const uint8_t> initialKey,
                                     std::span<const uint8_t> salt, std::span<const char> header);

// pbeCloseCipher wipes the key and releases the contexts.
void pbeCloseCipher(PbeCipher *cipher);

// pbeEncrypt fills `parts` but for the tag of algorithm 1, which pbeAuthenticate makes.
[[nodiscard]] uint32_t pbeEncrypt(PbeCipher *cipher, PbeNoncePool *nonces,
                                  std::span<const char> header, std::span<const char> clear,
                                  PbeParts *parts);

// pbeAuthenticate makes the tag of algorithm 1 over everything before it in the text. Algorithm 2 has
// its tag from the cipher, and nothing is done.
[[nodiscard]] uint32_t pbeAuthenticate(PbeCipher *cipher, std::span<const char> body,
                                       PbeParts *parts);

// pbeCheckTag compares the tag of algorithm 1 in constant time. Algorithm 2 checks its own when it
// deciphers, and nothing is done. Result: also SVC_PBE_AUTHENTICATION_FAILED.
[[nodiscard]] uint32_t pbeCheckTag(PbeCipher *cipher, std::span<const char> body,
                                   const PbeParts &parts);

// pbeDecrypt writes the clear text, which has room for the cipher text, and its length. pbeCheckTag comes
// first. Result: also SVC_PBE_AUTHENTICATION_FAILED; `clear` then holds bytes
// that must be wiped.
[[nodiscard]] uint32_t pbeDecrypt(PbeCipher *cipher, std::span<const char> header,
                                  const PbeParts &parts, uint8_t *clear, size_t *clearLength);

#endif
