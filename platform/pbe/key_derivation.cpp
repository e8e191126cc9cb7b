/*
 * key_derivation.cpp - from the initial key to the keys of a session, with libcrypto's functions.
 */
#include "pbe/key_derivation.h"

#include <openssl/core_names.h>
#include <openssl/params.h>

namespace ztm {

namespace {

char DIGEST[] = "SHA256"; // libcrypto takes its parameters through pointers that are not const

OSSL_PARAM bytesParameter(const char *name, std::span<const uint8_t> bytes) {
    return OSSL_PARAM_construct_octet_string(name, const_cast<uint8_t *>(bytes.data()),
                                             bytes.size());
}

// The context wipes its copies of what is secret when it is freed.
uint32_t derive(EVP_KDF *function, const OSSL_PARAM *parameters, std::span<uint8_t> key) {
    const Handle<EVP_KDF_CTX, EVP_KDF_CTX_free> context(EVP_KDF_CTX_new(function));
    const bool isDerived =
        context && EVP_KDF_derive(context.get(), key.data(), key.size(), parameters) == 1;
    return reasonOf(isDerived, SVC_PBE_CRYPTO_FAILED);
}

} // namespace

uint32_t stretchPassphrase(const Libcrypto &libcrypto, std::span<const uint8_t> passphrase,
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
    return derive(libcrypto.pbkdf2.get(), parameters, initialKey);
}

uint32_t deriveKey(const Libcrypto &libcrypto, std::span<const uint8_t> initialKey,
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
    return derive(libcrypto.hkdf.get(), parameters, key);
}

} // namespace ztm
