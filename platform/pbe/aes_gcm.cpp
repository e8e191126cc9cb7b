/*
 * aes_gcm.cpp - algorithm 2: AES-256-GCM (NIST SP 800-38D).
 *
 * Label and digit are data that the cipher authenticates and does not encipher.
 */
#include "pbe/algorithm.h"

namespace ztm {

namespace {

constexpr ValueShape SHAPE = {.nonceLength = 12, .blockLength = 1, .tagLength = 16};

bool addHeader(Cipher *cipher, std::span<const char> header) {
    int length;
    return EVP_CipherUpdate(cipher->context.get(), /* out= */ nullptr, &length, bytesOf(header),
                            static_cast<int>(header.size())) == 1;
}

// A FIPS provider makes the nonce itself, at the first byte enciphered. A context does so only
// once, so it starts anew for every value.
bool startSealing(Cipher *cipher, ValueParts *parts) {
    const EVP_CIPHER *const algorithm = cipher->libcrypto->gcm.get();
    if (!cipher->libcrypto->fips)
        return makeNonce(*cipher, parts) &&
               startCipher(cipher, algorithm, parts->nonce, Direction::encrypt);
    cipher->keyedFor = Direction::none;
    return EVP_CIPHER_CTX_reset(cipher->context.get()) == 1 &&
           startCipher(cipher, algorithm, /* nonce= */ nullptr, Direction::encrypt);
}

bool takeTagAndNonce(const Cipher &cipher, ValueParts *parts) {
    if (EVP_CIPHER_CTX_ctrl(cipher.context.get(), EVP_CTRL_AEAD_GET_TAG,
                            static_cast<int>(SHAPE.tagLength), parts->tag) != 1)
        return false;
    return !cipher.libcrypto->fips ||
           EVP_CIPHER_CTX_get_original_iv(cipher.context.get(), parts->nonce, SHAPE.nonceLength) ==
               1;
}

bool open(Cipher * /*cipher*/) {
    return true;
}

bool seal(Cipher *cipher, std::span<const char> header, std::span<const char> clear, char *text) {
    ValueParts parts;
    if (!startSealing(cipher, &parts) || !addHeader(cipher, header) ||
        !encipher(cipher, clear, &parts) || !takeTagAndNonce(*cipher, &parts))
        return false;
    const size_t bodyLength = writeBody(text, header, SHAPE, parts);
    writeTag(text + bodyLength, SHAPE, parts);
    return true;
}

uint32_t unseal(Cipher *cipher, std::span<const char> header, std::span<const char> /*body*/,
                const ValueParts &parts, uint8_t *clear, size_t *clearLength) {
    const bool isStarted =
        startCipher(cipher, cipher->libcrypto->gcm.get(), parts.nonce, Direction::decrypt) &&
        EVP_CIPHER_CTX_ctrl(cipher->context.get(), EVP_CTRL_AEAD_SET_TAG,
                            static_cast<int>(SHAPE.tagLength),
                            const_cast<uint8_t *>(parts.tag)) == 1 &&
        addHeader(cipher, header);
    if (!isStarted)
        return reasonOf(/* succeeded= */ false, SVC_PBE_CRYPTO_FAILED);
    return decipher(cipher, parts, clear, clearLength);
}

} // namespace

constinit const Algorithm AES_256_GCM = {.digit = SVC_PBE_ALGORITHM_GCM,
                                         .keyLength = 32,
                                         .shape = SHAPE,
                                         .open = open,
                                         .seal = seal,
                                         .unseal = unseal};

} // namespace ztm
