/*
 * keyderivation.cpp - from the initial key to the keys of a session, with libcrypto's functions.
 */
#include "keyderivation.h"

#include <openssl/core_names.h>
#include <openssl/kdf.h>
#include <openssl/params.h>

namespace {

char DIGEST[] = "SHA256"; // libcrypto takes its parameters through pointers that are not const

OSSL_PARAM bytesParameter(const char *name, std::span<const uint8_t> bytes) {
    return OSSL_PARAM_construct_octet_string(name, const_cast<uint8_t *>(bytes.data()),
                                             bytes.size());
}

uint32_t derive(EVP_KDF *function, const OSSL_PARAM *parameters, std::span<uint8_t> key) {
    EVP_KDF_CTX *const context = EVP_KDF_CTX_new(function);
    const bool derived =
        context != nullptr && EVP_KDF_derive(context, key.data(), key.size(), parameters) == 1;
    EVP_KDF_CTX_free(context); // wipes the copies of its parameters
    return pbeReasonOf(derived, SVC_PBE_CRYPTO_FAILED);
}

} // namespace

uint32_t pbeStretchPassphrase(const PbeProvider &provider, std::span<const uint8_t> passphrase,
                              std::span<const uint8_t> salt,
                              std::span<uint8_t, SVC_PBE_KEY_LENGTH> initialKey) {
    uint64_t iterations = 600'000; // part of the stored form: another number gives other keys
    const OSSL_PARAM parameters[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, DIGEST, /* size= */ 0),
        bytesParameter(OSSL_KDF_PARAM_PASSWORD, passphrase),
        bytesParameter(OSSL_KDF_PARAM_SALT, salt),
        OSSL_PARAM_construct_uint64(OSSL_KDF_PARAM_ITER, &iterations),
        OSSL_PARAM_construct_end(),
    };
    return derive(provider.pbkdf2, parameters, initialKey);
}

uint32_t pbeDeriveKey(const PbeProvider &provider, std::span<const uint8_t> initialKey,
                      std::span<const uint8_t> salt, std::span<const char> info,
                      std::span<uint8_t> key) {
    const OSSL_PARAM parameters[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, DIGEST, /* size= */ 0),
        bytesParameter(OSSL_KDF_PARAM_KEY, initialKey),
        bytesParameter(OSSL_KDF_PARAM_SALT, salt),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_INFO, const_cast<char *>(info.data()),
                                          info.size()),
        OSSL_PARAM_construct_end(),
    };
    return derive(provider.hkdf, parameters, key);
}
