/*
 * libcrypto.h - the libcrypto context and the algorithms that serve sessions.
 *
 * There are two providers in a process, each made at first use and kept: the plain one is libcrypto's
 * default context as the machine's OpenSSL configuration makes it; the FIPS one is a context of the
 * service's own with the providers "fips" and "base", from which every algorithm and the random
 * generator come.
 */
#ifndef PROVIDER_H
#define PROVIDER_H

#include <cstdint>
#include <openssl/provider.h>
#include <openssl/types.h>

struct PbeProvider {
    OSSL_LIB_CTX *library; // null: libcrypto's default context
    OSSL_PROVIDER *fips;
    OSSL_PROVIDER *base;
    EVP_CIPHER *gcm;
    EVP_CIPHER *cbc;
    EVP_MAC *hmac;
    EVP_KDF *hkdf;
    EVP_KDF *pbkdf2;
    EVP_KDF_CTX *keptHkdf; // for the next derivation; pbeDeriveKey exchanges it atomically
    uint32_t users;        // sessions that hold it
    bool isReady;
};

// pbePrepareLibrary makes the first call of libcrypto, in a process that belongs to the program alone: it
// chooses the process-wide options that make its start short. Elsewhere, and later, it changes nothing.
void pbePrepareLibrary();

// pbeAcquireProvider hands out one of the two providers and makes it when it does not exist. A failure
// is not remembered. The caller gives it back with pbeReleaseProvider.
// Result: SVC_PBE_OK, SVC_PBE_NO_STORAGE, SVC_PBE_CRYPTO_FAILED, SVC_PBE_FIPS_NOT_AVAILABLE.
[[nodiscard]] uint32_t pbeAcquireProvider(bool fips, PbeProvider **provider);

// pbeReleaseProvider gives a provider back; null does nothing.
void pbeReleaseProvider(PbeProvider *provider);

// pbeDropProviders frees the providers that no session holds.
void pbeDropProviders();

// pbeReasonOf returns SVC_PBE_OK for a success of libcrypto. For a failure it returns SVC_PBE_NO_STORAGE
// when the error queue tells that memory was refused, else `otherwise`.
[[nodiscard]] uint32_t pbeReasonOf(bool succeeded, uint32_t otherwise);

#endif
