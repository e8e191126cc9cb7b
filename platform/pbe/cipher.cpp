/*
 * cipher.cpp - one algorithm of a session. A context keeps its key from value to value; only the nonce
 * is set anew.
 */
#include "pbe/cipher.h"
#include "pbe/key_derivation.h"

#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/params.h>

namespace {

constexpr size_t HALF_KEY_LENGTH = PBE_CBC_HMAC_KEY_LENGTH / 2;

const unsigned char *bytesOf(std::span<const char> text) {
    return reinterpret_cast<const unsigned char *>(text.data());
}

bool isGcm(const PbeCipher &cipher) {
    return cipher.algorithm == SVC_PBE_ALGORITHM_GCM;
}

bool startCipher(PbeCipher *cipher, const uint8_t *nonce, PbeDirection direction) {
    const int enciphers = direction == PbeDirection::encrypt;
    if (cipher->keyedFor == direction)
        return EVP_CipherInit_ex2(cipher->context, /* cipher= */ nullptr, /* key= */ nullptr, nonce,
                                  enciphers, /* params= */ nullptr) == 1;
    const EVP_CIPHER *const algorithm =
        isGcm(*cipher) ? cipher->provider->gcm : cipher->provider->cbc;
    const bool started =
        EVP_CipherInit_ex2(cipher->context, algorithm, cipher->key, nonce, enciphers,
                           /* params= */ nullptr) == 1;
    cipher->keyedFor = started ? direction : PbeDirection::none;
    return started;
}

bool openAuthenticator(PbeCipher *cipher) {
    char digest[] = "SHA256";
    const OSSL_PARAM parameters[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, digest, /* bsize= */ 0),
        OSSL_PARAM_construct_end(),
    };
    cipher->authenticator = EVP_MAC_CTX_new(cipher->provider->hmac);
    return cipher->authenticator != nullptr &&
           EVP_MAC_init(cipher->authenticator, cipher->key + HALF_KEY_LENGTH, HALF_KEY_LENGTH,
                        parameters) == 1;
}

bool openContexts(PbeCipher *cipher) {
    cipher->context = EVP_CIPHER_CTX_new();
    return cipher->context != nullptr && (isGcm(*cipher) || openAuthenticator(cipher));
}

// A FIPS provider makes the nonces of GCM itself, at the first byte enciphered. A context does so only
// once, so it starts anew for every value.
bool startEncryption(PbeCipher *cipher, PbeNoncePool *nonces, PbeParts *parts) {
    if (isGcm(*cipher) && cipher->provider->fips != nullptr) {
        (void)EVP_CIPHER_CTX_reset(cipher->context);
        cipher->keyedFor = PbeDirection::none;
        return startCipher(cipher, /* nonce= */ nullptr, PbeDirection::encrypt);
    }
    const size_t nonceLength = pbeShapeOf(cipher->algorithm)->nonceLength;
    return pbeTakeNonce(nonces, cipher->provider->library, {parts->nonce, nonceLength}) &&
           startCipher(cipher, parts->nonce, PbeDirection::encrypt);
}

// Label and digit are data that GCM authenticates and does not encipher.
bool addHeader(PbeCipher *cipher, std::span<const char> header) {
    int length;
    return EVP_CipherUpdate(cipher->context, /* out= */ nullptr, &length, bytesOf(header),
                            static_cast<int>(header.size())) == 1;
}

bool finishGcm(PbeCipher *cipher, PbeParts *parts) {
    const PbeShape &shape = *pbeShapeOf(SVC_PBE_ALGORITHM_GCM);
    if (EVP_CIPHER_CTX_ctrl(cipher->context, EVP_CTRL_AEAD_GET_TAG,
                            static_cast<int>(shape.tagLength), parts->tag) != 1)
        return false;
    return cipher->provider->fips == nullptr ||
           EVP_CIPHER_CTX_get_original_iv(cipher->context, parts->nonce, shape.nonceLength) == 1;
}

bool encipher(PbeCipher *cipher, PbeNoncePool *nonces, std::span<const char> header,
              std::span<const char> clear, PbeParts *parts) {
    if (!startEncryption(cipher, nonces, parts) || (isGcm(*cipher) && !addHeader(cipher, header)))
        return false;
    int length;
    int rest;
    if (EVP_CipherUpdate(cipher->context, parts->cipherText, &length, bytesOf(clear),
                         static_cast<int>(clear.size())) != 1 ||
        EVP_CipherFinal_ex(cipher->context, parts->cipherText + length, &rest) != 1)
        return false;
    parts->cipherLength = static_cast<size_t>(length) + static_cast<size_t>(rest);
    return !isGcm(*cipher) || finishGcm(cipher, parts);
}

bool startDecryption(PbeCipher *cipher, std::span<const char> header, const PbeParts &parts) {
    if (!startCipher(cipher, parts.nonce, PbeDirection::decrypt))
        return false;
    if (!isGcm(*cipher))
        return true;
    const int tagLength = static_cast<int>(pbeShapeOf(SVC_PBE_ALGORITHM_GCM)->tagLength);
    return EVP_CIPHER_CTX_ctrl(cipher->context, EVP_CTRL_AEAD_SET_TAG, tagLength,
                               const_cast<uint8_t *>(parts.tag)) == 1 &&
           addHeader(cipher, header);
}

bool authenticate(PbeCipher *cipher, std::span<const char> body, uint8_t *tag) {
    const size_t tagLength = pbeShapeOf(SVC_PBE_ALGORITHM_CBC_HMAC)->tagLength;
    size_t length;
    return EVP_MAC_init(cipher->authenticator, /* key= */ nullptr, /* keylen= */ 0,
                        /* params= */ nullptr) == 1 &&
           EVP_MAC_update(cipher->authenticator, bytesOf(body), body.size()) == 1 &&
           EVP_MAC_final(cipher->authenticator, tag, &length, tagLength) == 1 &&
           length == tagLength;
}

} // namespace

uint32_t pbeOpenCipher(PbeCipher *cipher, PbeProvider *provider, int32_t algorithm,
                       std::span<const uint8_t> initialKey, std::span<const uint8_t> salt,
                       std::span<const char> header) {
    cipher->provider = provider;
    cipher->algorithm = algorithm;
    const size_t keyLength = isGcm(*cipher) ? HALF_KEY_LENGTH : PBE_CBC_HMAC_KEY_LENGTH;
    uint32_t reason = pbeDeriveKey(provider, initialKey, salt, header, {cipher->key, keyLength});
    if (reason == SVC_PBE_OK)
        reason = pbeReasonOf(openContexts(cipher), SVC_PBE_CRYPTO_FAILED);
    if (reason != SVC_PBE_OK)
        pbeCloseCipher(cipher);
    return reason;
}

void pbeCloseCipher(PbeCipher *cipher) {
    EVP_CIPHER_CTX_free(cipher->context);
    EVP_MAC_CTX_free(cipher->authenticator);
    svcWipe(cipher, sizeof *cipher);
}

uint32_t pbeEncrypt(PbeCipher *cipher, PbeNoncePool *nonces, std::span<const char> header,
                    std::span<const char> clear, PbeParts *parts) {
    parts->algorithm = cipher->algorithm;
    return pbeReasonOf(encipher(cipher, nonces, header, clear, parts), SVC_PBE_CRYPTO_FAILED);
}

uint32_t pbeAuthenticate(PbeCipher *cipher, std::span<const char> body, PbeParts *parts) {
    return pbeReasonOf(isGcm(*cipher) || authenticate(cipher, body, parts->tag),
                       SVC_PBE_CRYPTO_FAILED);
}

uint32_t pbeCheckTag(PbeCipher *cipher, std::span<const char> body, const PbeParts &parts) {
    if (isGcm(*cipher))
        return SVC_PBE_OK;
    uint8_t expected[sizeof parts.tag];
    const uint32_t reason =
        pbeReasonOf(authenticate(cipher, body, expected), SVC_PBE_CRYPTO_FAILED);
    const size_t tagLength = pbeShapeOf(SVC_PBE_ALGORITHM_CBC_HMAC)->tagLength;
    const bool isEqual = reason == SVC_PBE_OK && CRYPTO_memcmp(expected, parts.tag, tagLength) == 0;
    svcWipe(expected, sizeof expected); // for a changed text it is the tag that a forger lacks
    if (reason != SVC_PBE_OK)
        return reason;
    return isEqual ? SVC_PBE_OK : SVC_PBE_AUTHENTICATION_FAILED;
}

uint32_t pbeDecrypt(PbeCipher *cipher, std::span<const char> header, const PbeParts &parts,
                    uint8_t *clear, size_t *clearLength) {
    int length;
    const bool deciphered = startDecryption(cipher, header, parts) &&
                            EVP_CipherUpdate(cipher->context, clear, &length, parts.cipherText,
                                             static_cast<int>(parts.cipherLength)) == 1;
    if (!deciphered)
        return pbeReasonOf(/* succeeded= */ false, SVC_PBE_CRYPTO_FAILED);
    int rest = 0; // the last step allocates nothing: it fails for a wrong tag or padding only
    if (EVP_CipherFinal_ex(cipher->context, clear + length, &rest) != 1)
        return SVC_PBE_AUTHENTICATION_FAILED;
    *clearLength = static_cast<size_t>(length) + static_cast<size_t>(rest);
    return SVC_PBE_OK;
}
