/*
 * libcrypto.cpp - the libcrypto context and the algorithms that serve sessions.
 */
#include "pbe/libcrypto.h"
#include "pbe/internal.h"
#include "ztpbe.h"

#include <atomic>
#include <openssl/conf.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>
#include <openssl/rand.h>
#include <pthread.h>

namespace {

constexpr char FIPS_PROPERTIES[] = "fips=yes";

std::atomic<bool> ownProcess;

pthread_mutex_t providerLock = PTHREAD_MUTEX_INITIALIZER;
PbeProvider plainProvider;
PbeProvider fipsProvider;

void closeProvider(PbeProvider *provider) {
    EVP_CIPHER_free(provider->gcm);
    EVP_CIPHER_free(provider->cbc);
    EVP_MAC_free(provider->hmac);
    EVP_KDF_CTX_free(provider->keptHkdf);
    EVP_KDF_free(provider->hkdf);
    EVP_KDF_free(provider->pbkdf2);
    if (provider->base != nullptr)
        (void)OSSL_PROVIDER_unload(provider->base);
    if (provider->fips != nullptr)
        (void)OSSL_PROVIDER_unload(provider->fips);
    OSSL_LIB_CTX_free(provider->library);
    *provider = {};
}

// A fetch from libcrypto's own context is a crash when memory was refused while that was made.
bool hasDefaultLibrary() {
    return OSSL_LIB_CTX_get0_global_default() != nullptr;
}

// Where the process belongs to the program, an OpenSSL configuration that cannot be loaded fails the
// program. Elsewhere libcrypto loads it by itself when the first algorithm is fetched.
bool startLibrary() {
    return !ownProcess.load(std::memory_order_relaxed) ||
           OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CONFIG, /* settings= */ nullptr) == 1;
}

bool fetchAlgorithms(PbeProvider *provider, const char *properties) {
    provider->gcm = EVP_CIPHER_fetch(provider->library, "AES-256-GCM", properties);
    provider->cbc = EVP_CIPHER_fetch(provider->library, "AES-256-CBC", properties);
    provider->hmac = EVP_MAC_fetch(provider->library, "HMAC", properties);
    provider->hkdf = EVP_KDF_fetch(provider->library, "HKDF", properties);
    provider->pbkdf2 = EVP_KDF_fetch(provider->library, "PBKDF2", properties);
    return provider->gcm != nullptr && provider->cbc != nullptr && provider->hmac != nullptr &&
           provider->hkdf != nullptr && provider->pbkdf2 != nullptr;
}

// The machine's OpenSSL configuration tells where the FIPS provider is and what its checksum must be.
// It could also activate other providers in this context, so the random generator, like every
// algorithm, is named with the property that only the FIPS provider's have.
bool openFipsLibrary(PbeProvider *provider) {
    provider->library = OSSL_LIB_CTX_new();
    if (provider->library == nullptr)
        return false;
    if (CONF_modules_load_file_ex(provider->library, /* filename= */ nullptr,
                                  /* appname= */ nullptr, CONF_MFLAGS_IGNORE_MISSING_FILE) <= 0)
        return false;
    provider->fips = OSSL_PROVIDER_load(provider->library, "fips");
    if (provider->fips == nullptr)
        return false;
    provider->base = OSSL_PROVIDER_load(provider->library, "base");
    if (provider->base == nullptr)
        return false;
    return RAND_set_DRBG_type(provider->library, "CTR-DRBG", FIPS_PROPERTIES, "AES-256-CTR",
                              /* digest= */ nullptr) == 1;
}

bool openProvider(bool fips, PbeProvider *provider) {
    return startLibrary() && (fips ? openFipsLibrary(provider) : hasDefaultLibrary()) &&
           fetchAlgorithms(provider, fips ? FIPS_PROPERTIES : nullptr);
}

} // namespace

void svcpbeOwnProcess() {
    ownProcess.store(true, std::memory_order_relaxed);
}

// The names of all ciphers and digests and the texts of all errors, none of which the service looks up,
// take a third of libcrypto's start. Only the first call of libcrypto can leave them out.
void pbePrepareLibrary() {
    if (ownProcess.load(std::memory_order_relaxed))
        (void)OPENSSL_init_crypto(OPENSSL_INIT_NO_ADD_ALL_CIPHERS |
                                      OPENSSL_INIT_NO_ADD_ALL_DIGESTS |
                                      OPENSSL_INIT_NO_LOAD_CRYPTO_STRINGS,
                                  /* settings= */ nullptr);
}

bool svcpbeLibraryConsistent() {
    return OPENSSL_version_major() == OPENSSL_VERSION_MAJOR &&
           OPENSSL_version_minor() == OPENSSL_VERSION_MINOR;
}

uint32_t pbeAcquireProvider(bool fips, PbeProvider **provider) {
    PbeProvider *const wanted = fips ? &fipsProvider : &plainProvider;
    const uint32_t failure = fips ? SVC_PBE_FIPS_NOT_AVAILABLE : SVC_PBE_CRYPTO_FAILED;
    (void)pthread_mutex_lock(&providerLock);
    if (!wanted->isReady)
        wanted->isReady = openProvider(fips, wanted);
    const uint32_t reason = pbeReasonOf(wanted->isReady, failure);
    if (reason == SVC_PBE_OK)
        ++wanted->users;
    else
        closeProvider(wanted);
    (void)pthread_mutex_unlock(&providerLock);
    *provider = reason == SVC_PBE_OK ? wanted : nullptr;
    return reason;
}

void pbeReleaseProvider(PbeProvider *provider) {
    if (provider == nullptr)
        return;
    (void)pthread_mutex_lock(&providerLock);
    --provider->users;
    (void)pthread_mutex_unlock(&providerLock);
}

void pbeDropProviders() {
    (void)pthread_mutex_lock(&providerLock);
    if (plainProvider.users == 0)
        closeProvider(&plainProvider);
    if (fipsProvider.users == 0)
        closeProvider(&fipsProvider);
    (void)pthread_mutex_unlock(&providerLock);
}

// The caller's older entries stay in the queue while the service works, so its oldest entry may be one
// of them; the newest is the service's own, but may only repeat that a step before it failed.
uint32_t pbeReasonOf(bool succeeded, uint32_t otherwise) {
    if (succeeded)
        return SVC_PBE_OK;
    const bool noMemory = ERR_GET_REASON(ERR_peek_last_error()) == ERR_R_MALLOC_FAILURE ||
                          ERR_GET_REASON(ERR_peek_error()) == ERR_R_MALLOC_FAILURE;
    if (noMemory)
        return SVC_PBE_NO_STORAGE;
    return otherwise;
}
