/*
 * libcrypto.cpp - the libcrypto context and the algorithms that serve sessions.
 */
#include "pbe/libcrypto.h"
#include "ztpbe.h"

#include <atomic>
#include <openssl/conf.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/rand.h>
#include <pthread.h>
#include <utility>

namespace ztm {

namespace {

constexpr char FIPS_PROPERTIES[] = "fips=yes";

std::atomic<bool> isOwnProcess;

// Without a destructor: at the end of the process libcrypto may be gone already.
union Kept {
    Libcrypto libcrypto;
    constexpr Kept() : libcrypto() {}
    Kept(const Kept &) = delete;
    Kept &operator=(const Kept &) = delete;
    ~Kept() {}
};

pthread_mutex_t keptMutex = PTHREAD_MUTEX_INITIALIZER;
constinit Kept keptPlain;
constinit Kept keptFips;

bool fetchAlgorithms(Libcrypto *libcrypto, const char *properties) {
    OSSL_LIB_CTX *const library = libcrypto->library.get();
    libcrypto->gcm.reset(EVP_CIPHER_fetch(library, "AES-256-GCM", properties));
    libcrypto->cbc.reset(EVP_CIPHER_fetch(library, "AES-256-CBC", properties));
    libcrypto->hmac.reset(EVP_MAC_fetch(library, "HMAC", properties));
    libcrypto->hkdf.reset(EVP_KDF_fetch(library, "HKDF", properties));
    libcrypto->pbkdf2.reset(EVP_KDF_fetch(library, "PBKDF2", properties));
    return libcrypto->gcm && libcrypto->cbc && libcrypto->hmac && libcrypto->hkdf &&
           libcrypto->pbkdf2;
}

// Where the process belongs to the program, an OpenSSL configuration that cannot be loaded fails
// the program. Elsewhere libcrypto loads it by itself when the first algorithm is fetched.
bool startLibcrypto() {
    return !isOwnProcess.load(std::memory_order_relaxed) ||
           OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CONFIG, /* settings= */ nullptr) == 1;
}

// A fetch from libcrypto's own context is a crash when memory was refused while that was made.
bool openPlain(Libcrypto *libcrypto) {
    return startLibcrypto() && OSSL_LIB_CTX_get0_global_default() != nullptr &&
           fetchAlgorithms(libcrypto, /* properties= */ nullptr);
}

// The machine's OpenSSL configuration tells where the FIPS provider is and what its checksum must
// be. It could also activate other providers in this context, so the random generator, like every
// algorithm, is named with the property that only the FIPS provider's have.
bool openFips(Libcrypto *libcrypto) {
    if (!startLibcrypto())
        return false;
    libcrypto->library.reset(OSSL_LIB_CTX_new());
    OSSL_LIB_CTX *const library = libcrypto->library.get();
    if (library == nullptr)
        return false;
    if (CONF_modules_load_file_ex(library, /* filename= */ nullptr, /* appname= */ nullptr,
                                  CONF_MFLAGS_IGNORE_MISSING_FILE) <= 0)
        return false;
    libcrypto->fips.reset(OSSL_PROVIDER_load(library, "fips"));
    if (!libcrypto->fips)
        return false;
    libcrypto->base.reset(OSSL_PROVIDER_load(library, "base"));
    if (!libcrypto->base)
        return false;
    return RAND_set_DRBG_type(library, "CTR-DRBG", FIPS_PROPERTIES, "AES-256-CTR",
                              /* digest= */ nullptr) == 1 &&
           fetchAlgorithms(libcrypto, FIPS_PROPERTIES);
}

uint32_t open(bool fips, Libcrypto *libcrypto) {
    Libcrypto opened;
    const uint32_t reason = fips ? reasonOf(openFips(&opened), SVC_PBE_FIPS_NOT_AVAILABLE)
                                 : reasonOf(openPlain(&opened), SVC_PBE_CRYPTO_FAILED);
    if (reason != SVC_PBE_OK)
        return reason;
    *libcrypto = std::move(opened);
    return SVC_PBE_OK;
}

} // namespace

uint32_t useLibcrypto(bool fips, LibcryptoUse *use) {
    Libcrypto *const wanted = fips ? &keptFips.libcrypto : &keptPlain.libcrypto;
    const Lock lock(keptMutex);
    const bool isOpen = static_cast<bool>(wanted->gcm);
    const uint32_t reason = isOpen ? uint32_t{SVC_PBE_OK} : open(fips, wanted);
    if (reason != SVC_PBE_OK)
        return reason;
    ++wanted->users;
    use->reset(wanted);
    return SVC_PBE_OK;
}

void releaseLibcrypto(Libcrypto *libcrypto) {
    const Lock lock(keptMutex);
    --libcrypto->users;
}

void dropLibcrypto() {
    const Lock lock(keptMutex);
    for (Libcrypto *const kept : {&keptPlain.libcrypto, &keptFips.libcrypto}) {
        if (kept->users == 0)
            (void)Libcrypto(std::move(*kept)); // releases what it has taken over
    }
}

void claimProcess() {
    isOwnProcess.store(true, std::memory_order_relaxed);
}

// The names of all ciphers and digests and the texts of all errors, none of which the service looks
// up, take a third of libcrypto's start. Only the first call of libcrypto can leave them out.
void prepareLibcrypto() {
    if (isOwnProcess.load(std::memory_order_relaxed))
        (void)OPENSSL_init_crypto(OPENSSL_INIT_NO_ADD_ALL_CIPHERS |
                                      OPENSSL_INIT_NO_ADD_ALL_DIGESTS |
                                      OPENSSL_INIT_NO_LOAD_CRYPTO_STRINGS,
                                  /* settings= */ nullptr);
}

// A later minor version only adds to the interface.
bool isUsable(Version built, Version loaded) {
    return loaded.major == built.major && loaded.minor >= built.minor;
}

bool isLoadedLibcryptoUsable() {
    return isUsable({OPENSSL_VERSION_MAJOR, OPENSSL_VERSION_MINOR},
                    {OPENSSL_version_major(), OPENSSL_version_minor()});
}

// The caller's older entries stay in the queue while the service works, so its oldest entry may be
// one of them; the newest is the service's own, but may only repeat that a step before it failed.
uint32_t reasonOf(bool succeeded, uint32_t otherwise) {
    if (succeeded)
        return SVC_PBE_OK;
    const bool noMemory = ERR_GET_REASON(ERR_peek_last_error()) == ERR_R_MALLOC_FAILURE ||
                          ERR_GET_REASON(ERR_peek_error()) == ERR_R_MALLOC_FAILURE;
    if (noMemory)
        return SVC_PBE_NO_STORAGE;
    return otherwise;
}

} // namespace ztm
