/*
 * libcrypto.h - the libcrypto context and the algorithms that serve sessions.
 *
 * There are two in a process, each made at first use and kept: the plain one is libcrypto's default
 * context as the machine's OpenSSL configuration makes it; the FIPS one is a context of the
 * service's own with the providers "fips" and "base", from which every algorithm and the random
 * generator come.
 */
#ifndef ZTM_LIBCRYPTO_H
#define ZTM_LIBCRYPTO_H

#include "common/guards.h"

#include <cstdint>
#include <openssl/evp.h>
#include <openssl/kdf.h>
#include <openssl/provider.h>

namespace ztm {

// What is made last is released first.
struct Libcrypto {
    uint32_t users = 0;                               // sessions that hold it
    Handle<OSSL_LIB_CTX, OSSL_LIB_CTX_free> library;  // null: libcrypto's default context
    Handle<OSSL_PROVIDER, OSSL_PROVIDER_unload> fips; // null without FIPS mode
    Handle<OSSL_PROVIDER, OSSL_PROVIDER_unload> base; // null without FIPS mode
    Handle<EVP_CIPHER, EVP_CIPHER_free> gcm;
    Handle<EVP_CIPHER, EVP_CIPHER_free> cbc;
    Handle<EVP_MAC, EVP_MAC_free> hmac;
    Handle<EVP_KDF, EVP_KDF_free> hkdf;
    Handle<EVP_KDF, EVP_KDF_free> pbkdf2;
};

// releaseLibcrypto ends one use.
void releaseLibcrypto(Libcrypto *libcrypto);

using LibcryptoUse = Handle<Libcrypto, releaseLibcrypto>;

// useLibcrypto hands out one of the two, and makes it when it does not exist. A failure is not
// remembered. Result: SVC_PBE_OK, SVC_PBE_NO_STORAGE, SVC_PBE_CRYPTO_FAILED,
// SVC_PBE_FIPS_NOT_AVAILABLE.
[[nodiscard]] uint32_t useLibcrypto(bool fips, LibcryptoUse *use);

// dropLibcrypto frees what no session holds.
void dropLibcrypto();

// claimProcess notes that the process belongs to the program alone, so that process-wide options of
// libcrypto may be chosen. It does nothing else.
void claimProcess();

// prepareLibcrypto makes the first call of libcrypto, in a process that belongs to the program
// alone: it chooses the process-wide options that make its start short. Elsewhere, and later, it
// changes nothing.
void prepareLibcrypto();

// A version of libcrypto.
struct Version {
    unsigned major;
    unsigned minor;
};

// isUsable tells whether a program built against one version of libcrypto can run with another.
[[nodiscard]] bool isUsable(Version built, Version loaded);

// isLoadedLibcryptoUsable tells that of the service's own build and the libcrypto loaded at run
// time, which it does not initialise.
[[nodiscard]] bool isLoadedLibcryptoUsable();

// reasonOf returns SVC_PBE_OK for a success of libcrypto. For a failure it returns
// SVC_PBE_NO_STORAGE when the error queue tells that memory was refused, else `otherwise`.
[[nodiscard]] uint32_t reasonOf(bool succeeded, uint32_t otherwise);

} // namespace ztm

#endif
