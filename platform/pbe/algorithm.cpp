/*
 * algorithm.cpp - what the algorithms have in common.
 */
#include "pbe/algorithm.h"
#include "pbe/key_derivation.h"

#include <openssl/rand.h>
#include <utility>

namespace ztm {

uint32_t openCipher(Cipher *cipher, const Libcrypto &libcrypto, const Algorithm &algorithm,
                    std::span<const uint8_t> initialKey, std::span<const uint8_t> salt,
                    std::span<const char> header) {
    Cipher opened;
    opened.libcrypto = &libcrypto;
    opened.algorithm = &algorithm;
    const uint32_t reason =
        deriveKey(libcrypto, initialKey, salt, header, {opened.key.value, algorithm.keyLength});
    if (reason != SVC_PBE_OK)
        return reason;
    opened.context.reset(EVP_CIPHER_CTX_new());
    if (!opened.context || !algorithm.open(&opened))
        return reasonOf(/* succeeded= */ false, SVC_PBE_CRYPTO_FAILED);
    *cipher = std::move(opened);
    return SVC_PBE_OK;
}

bool startCipher(Cipher *cipher, const EVP_CIPHER *algorithm, const uint8_t *nonce,
                 Direction direction) {
    const int enciphers = direction == Direction::encrypt;
    if (cipher->keyedFor == direction)
        return EVP_CipherInit_ex2(cipher->context.get(), /* cipher= */ nullptr, /* key= */ nullptr,
                                  nonce, enciphers, /* params= */ nullptr) == 1;
    const bool isStarted = EVP_CipherInit_ex2(cipher->context.get(), algorithm, cipher->key.value,
                                              nonce, enciphers, /* params= */ nullptr) == 1;
    cipher->keyedFor = isStarted ? direction : Direction::none;
    return isStarted;
}

// Random bytes are never kept for a later value: whoever forks past the C library would use them
// twice.
bool makeNonce(const Cipher &cipher, ValueParts *parts) {
    return RAND_bytes_ex(cipher.libcrypto->library.get(), parts->nonce,
                         cipher.algorithm->shape.nonceLength, /* strength= */ 0) == 1;
}

bool encipher(Cipher *cipher, std::span<const char> clear, ValueParts *parts) {
    int length;
    int rest;
    if (EVP_CipherUpdate(cipher->context.get(), parts->cipherText, &length, bytesOf(clear),
                         static_cast<int>(clear.size())) != 1 ||
        EVP_CipherFinal_ex(cipher->context.get(), parts->cipherText + length, &rest) != 1)
        return false;
    parts->cipherLength = static_cast<size_t>(length) + static_cast<size_t>(rest);
    return true;
}

uint32_t decipher(Cipher *cipher, const ValueParts &parts, uint8_t *clear, size_t *clearLength) {
    int length;
    if (EVP_CipherUpdate(cipher->context.get(), clear, &length, parts.cipherText,
                         static_cast<int>(parts.cipherLength)) != 1)
        return reasonOf(/* succeeded= */ false, SVC_PBE_CRYPTO_FAILED);
    int rest = 0;
    if (EVP_CipherFinal_ex(cipher->context.get(), clear + length, &rest) != 1)
        return SVC_PBE_AUTHENTICATION_FAILED;
    *clearLength = static_cast<size_t>(length) + static_cast<size_t>(rest);
    return SVC_PBE_OK;
}

} // namespace ztm
