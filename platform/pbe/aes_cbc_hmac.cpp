/*
 * aes_cbc_hmac.cpp - algorithm 1: AES-256-CBC with PKCS#7 padding, then HMAC-SHA-256 over
 * everything before the tag in the text. The first half of the key enciphers, the other
 * authenticates.
 */
#include "pbe/algorithm.h"

#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/params.h>

namespace ztm {

namespace {

constexpr ValueShape SHAPE = {.nonceLength = 16, .blockLength = 16, .tagLength = 32};
constexpr size_t KEY_LENGTH = 64;
constexpr size_t HALF_KEY_LENGTH = KEY_LENGTH / 2;

bool authenticate(const Cipher &cipher, std::span<const char> body, uint8_t *tag) {
    EVP_MAC_CTX *const authenticator = cipher.authenticator.get();
    size_t length;
    return EVP_MAC_init(authenticator, /* key= */ nullptr, /* keylen= */ 0,
                        /* params= */ nullptr) == 1 &&
           EVP_MAC_update(authenticator, bytesOf(body), body.size()) == 1 &&
           EVP_MAC_final(authenticator, tag, &length, SHAPE.tagLength) == 1 &&
           length == SHAPE.tagLength;
}

bool open(Cipher *cipher) {
    char digest[] = "SHA256";
    const OSSL_PARAM parameters[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, digest, /* bsize= */ 0),
        OSSL_PARAM_construct_end(),
    };
    cipher->authenticator.reset(EVP_MAC_CTX_new(cipher->libcrypto->hmac.get()));
    return cipher->authenticator &&
           EVP_MAC_init(cipher->authenticator.get(), cipher->key.value + HALF_KEY_LENGTH,
                        HALF_KEY_LENGTH, parameters) == 1;
}

bool seal(Cipher *cipher, std::span<const char> header, std::span<const char> clear, char *text) {
    ValueParts parts;
    if (!makeNonce(*cipher, &parts) ||
        !startCipher(cipher, cipher->libcrypto->cbc.get(), parts.nonce, Direction::encrypt) ||
        !encipher(cipher, clear, &parts))
        return false;
    const size_t bodyLength = writeBody(text, header, SHAPE, parts);
    if (!authenticate(*cipher, {text, bodyLength}, parts.tag))
        return false;
    writeTag(text + bodyLength, SHAPE, parts);
    return true;
}

// The header is a part of the body. Nothing is deciphered before its tag is known to be right.
uint32_t unseal(Cipher *cipher, std::span<const char> /*header*/, std::span<const char> body,
                const ValueParts &parts, uint8_t *clear, size_t *clearLength) {
    Wiping<uint8_t[SHAPE.tagLength]> expected; // for a changed text: the tag that a forger lacks
    if (!authenticate(*cipher, body, expected.value))
        return reasonOf(/* succeeded= */ false, SVC_PBE_CRYPTO_FAILED);
    if (CRYPTO_memcmp(expected.value, parts.tag, SHAPE.tagLength) != 0)
        return SVC_PBE_AUTHENTICATION_FAILED;
    if (!startCipher(cipher, cipher->libcrypto->cbc.get(), parts.nonce, Direction::decrypt))
        return reasonOf(/* succeeded= */ false, SVC_PBE_CRYPTO_FAILED);
    return decipher(cipher, parts, clear, clearLength);
}

} // namespace

static_assert(KEY_LENGTH <= LONGEST_KEY);

constinit const Algorithm AES_256_CBC_HMAC = {.digit = SVC_PBE_ALGORITHM_CBC_HMAC,
                                              .keyLength = KEY_LENGTH,
                                              .shape = SHAPE,
                                              .open = open,
                                              .seal = seal,
                                              .unseal = unseal};

} // namespace ztm
