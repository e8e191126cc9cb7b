/*
 * key_derivation.cpp - from the initial key to the keys of a session, with libcrypto's functions.
 */
#include "pbe/key_derivation.h"

#include <atomic>
#include <openssl/core_names.h>
#include <openssl/kdf.h>
#include <openssl/params.h>

namespace {

char DIGEST[] = "SHA256"; // libcrypto takes its parameters through pointers that are not const

OSSL_PARAM bytesParameter(const char *name, std::span<const uint8_t> bytes) {
    return OSSL_PARAM_construct_octet_string(name, const_cast<uint8_t *>(bytes.data()),
                                             bytes.size());
}

EVP_KDF_CTX *newHkdf(EVP_KDF *function) {
    const OSSL_PARAM parameters[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, DIGEST, /* size= */ 0),
        OSSL_PARAM_construct_end(),
    };
    EVP_KDF_CTX *const context = EVP_KDF_CTX_new(function);
    if (context != nullptr && EVP_KDF_CTX_set_params(context, parameters) == 1)
        return context;
    EVP_KDF_CTX_free(context);
    return nullptr;
}

// To make a context and find its digest costs a good part of a derivation, so one context is kept. A
// thread that finds it taken makes one of its own.
EVP_KDF_CTX *takeHkdf(PbeProvider *provider) {
    EVP_KDF_CTX *const kept = std::atomic_ref(provider->keptHkdf).exchange(nullptr);
    return kept != nullptr ? kept : newHkdf(provider->hkdf);
}

// A context that takes a new key wipes its last one, so this keeps none but a single zero.
void keepHkdf(PbeProvider *provider, EVP_KDF_CTX *context) {
    const uint8_t zero[1] = {};
    const OSSL_PARAM parameters[] = {
        bytesParameter(OSSL_KDF_PARAM_KEY, zero),
        OSSL_PARAM_construct_end(),
    };
    EVP_KDF_CTX *surplus = context;
    if (EVP_KDF_CTX_set_params(context, parameters) == 1)
        surplus = std::atomic_ref(provider->keptHkdf).exchange(context);
    EVP_KDF_CTX_free(surplus);
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
    EVP_KDF_CTX *const context = EVP_KDF_CTX_new(provider.pbkdf2);
    const bool derived = context != nullptr && EVP_KDF_derive(context, initialKey.data(),
                                                              initialKey.size(), parameters) == 1;
    EVP_KDF_CTX_free(context); // wipes its copy of the passphrase
    return pbeReasonOf(derived, SVC_PBE_CRYPTO_FAILED);
}

uint32_t pbeDeriveKey(PbeProvider *provider, std::span<const uint8_t> initialKey,
                      std::span<const uint8_t> salt, std::span<const char> info,
                      std::span<uint8_t> key) {
    const OSSL_PARAM parameters[] = {
        bytesParameter(OSSL_KDF_PARAM_KEY, initialKey),
        bytesParameter(OSSL_KDF_PARAM_SALT, salt),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_INFO, const_cast<char *>(info.data()),
                                          info.size()),
        OSSL_PARAM_construct_end(),
    };
    EVP_KDF_CTX *const context = takeHkdf(provider);
    const bool derived =
        context != nullptr && EVP_KDF_derive(context, key.data(), key.size(), parameters) == 1;
    if (derived)
        keepHkdf(provider, context);
    else
        EVP_KDF_CTX_free(context);
    return pbeReasonOf(derived, SVC_PBE_CRYPTO_FAILED);
}
