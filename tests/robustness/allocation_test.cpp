// Every operation with every request for memory refused once, libcrypto's and stdio's included: no
// crash, no leak, no wrong result that is called success, and a failure record for what the library
// asked for.
#include "support/keystore_file.h"
#include "sztoumaa/built_in_key.h"

#include <cstring>
#include <malloc.h>
#include <type_traits>

extern "C" int refusedRequest;
extern "C" int liveRequests;
extern "C" void *latestRequest;

namespace {

constexpr uint32_t WRONG = 0xBAD;
constexpr char CHANNEL[] = "HUB";
constexpr int LINES = 28;

// How many requests of the library a walk refuses, each with a failure record.
constexpr int OF_A_LINE = 4; // item, key, value, node
constexpr int OF_A_LOAD = 2 + LINES * OF_A_LINE;
constexpr int OF_A_SESSION = OF_A_LOAD + 1; // the salt
constexpr int OF_A_CREDENTIAL = OF_A_LOAD + OF_A_SESSION;

const char *keystore; // path of a file with all sections, its credentials encrypted with `keyFile`
const char *keyFile;
std::string expected; // what the operation gave when nothing was refused

uint32_t same(uint32_t result, const void *data, size_t length) {
    if (result == SZTU_OK && expected.empty())
        expected.assign(static_cast<const char *>(data), length);
    const bool isSame = length == expected.size() && memcmp(data, expected.data(), length) == 0;
    return result != SZTU_OK || isSame ? result : WRONG;
}

template <class Config, class... Arguments>
uint32_t read(uint32_t (*reader)(Config *, Arguments...),
              std::type_identity_t<Arguments>... arguments) {
    Config config = {};
    return same(reader(&config, arguments...), &config, sizeof config);
}

uint32_t cacheAndRelease() {
    thdProcess.processKind = 12;
    const uint32_t result = sztouCacheMCAKeystoreConf();
    const int32_t isEnabled = sztouIsMCAInterceptEnabled(CHANNEL);
    sztouReleaseMCAKeyStoreConf();
    return same(result, &isEnabled, sizeof isEnabled);
}

// An item without memory is dropped and leaves the list as it was.
uint32_t fillList() {
    char item = 'x';
    SztuList *const list = SztuListCreate();
    if (list == nullptr)
        return SVC_NO_STORAGE;
    list->SztuListPrepend(list, &item);
    list->SztuListInsertAfter(list, list->head, &item);
    list->SztuListInsertBefore(list, list->tail, &item);
    uint64_t count = 0;
    for (const SztuListNode *node = list->head; node != nullptr; node = node->next)
        count += node->item == &item;
    const bool isWhole = count == list->SztuListCount(list);
    list->SztuListClear(list);
    sztucFreeConfigList(list);
    if (!isWhole)
        return WRONG;
    return count == 3 ? same(SZTU_OK, &count, sizeof count) : uint32_t{SVC_NO_STORAGE};
}

uint32_t saveAndRestore(int32_t algorithm) {
    SvcPBESession session = {};
    session.algorithm = algorithm;
    uint32_t result = static_cast<uint32_t>(
        sztouInitializePBE(SVC_COMPONENT_VEK, 1, keystore, nullptr, &session, 0));
    char *stored = nullptr, *clear = nullptr;
    int32_t storedLength = 0, clearLength = 0;
    if (result == SVC_PBE_OK)
        result = svcPBESave(&session, "secret", 6, &stored, &storedLength);
    if (result == SVC_PBE_OK)
        result = svcPBERestore(&session, stored, storedLength, nullptr, &clear, &clearLength);
    result = same(result, clear, static_cast<size_t>(clearLength));
    (void)svcPBEFreeBuf(stored, storedLength);
    (void)svcPBEFreeBuf(clear, clearLength);
    (void)sztouTermPBE(&session);
    return result;
}

uint32_t useDefaultKey() {
    unsetenv("ZTS_VEKCRED_KEYFILE");
    const uint32_t result = saveAndRestore(SVC_PBE_ALGORITHM_GCM);
    // The key of a session that gets no salt stays where it lies, wiped.
    uint8_t key[SVC_PBE_KEY_LENGTH];
    vek::buildDefaultKey(key);
    const size_t length = malloc_usable_size(latestRequest);
    const bool isLeft = memmem(latestRequest, length, key, sizeof key) != nullptr;
    return isLeft ? WRONG : result;
}

uint32_t readKeyFile() {
    uint8_t *key;
    int32_t length;
    const uint32_t result = svcPBEReadInitialKeyFile(keyFile, &key, &length);
    return same(result, key, static_cast<size_t>(length));
}

struct Operation {
    const char *name;
    int records; // failure records of the whole walk
    uint32_t (*run)();
    int kept = 0; // requests that stay, counted over the walk
};

constexpr Operation OPERATIONS[] = {
    {"cms", OF_A_LOAD, [] { return read(sztouGetKsConfig, keystore, nullptr); }},
    {"channel", OF_A_LOAD, [] { return read(sztouGetMCAConfig, CHANNEL, keystore, nullptr); }},
    {"ocsp", OF_A_LOAD, [] { return read(sztouGetOcspConfig, keystore, nullptr); }},
    {"pem", OF_A_CREDENTIAL, [] { return read(sztouGetPemConfig, keystore, nullptr); }},
    {"channel's pem", OF_A_CREDENTIAL,
     [] { return read(sztouGetMCAPemConfig, CHANNEL, keystore, nullptr); }},
    {"pkcs11", OF_A_CREDENTIAL, [] { return read(sztouGetPkcs11Config, keystore, nullptr); }},
    {"crl", OF_A_CREDENTIAL, [] { return read(sztouGetCrlConfig, keystore, nullptr, 0); }},
    {"channel cache", OF_A_LOAD, cacheAndRelease},
    {"list", 1 + 3, fillList},
    {"AES-256-GCM", OF_A_SESSION, [] { return saveAndRestore(SVC_PBE_ALGORITHM_GCM); }},
    {"AES-256-CBC", OF_A_SESSION, [] { return saveAndRestore(SVC_PBE_ALGORITHM_CBC_HMAC); }},
    // Only what the record of a session holds is released, and without a salt nothing is in it yet.
    {"default key", OF_A_SESSION + 1, useDefaultKey, 1},
    {"key file", 0, readKeyFile},
};

uint32_t recordCount() {
    SvcFailureRecord latest;
    svcGetFailureRecord(&latest);
    EXPECT_TRUE(latest.count == 0 ||
                (latest.failure == SVC_FAILURE_MEMORY && latest.probe == SVC_PROBE_MEMORY &&
                 latest.line > 0 &&
                 strncmp(latest.source, "lib/vek/szt", strlen("lib/vek/szt")) == 0));
    return latest.count;
}

// Runs the operation with one request refused, and ends the services, which releases what they
// keep.
uint32_t runRefusing(const Operation &operation, int request, bool *wasReached) {
    refusedRequest = request;
    const uint32_t result = operation.run();
    *wasReached = refusedRequest <= 0;
    refusedRequest = 0;
    setenv("ZTS_VEKCRED_KEYFILE", keyFile, 1);
    (void)svcProgramTerm(0);
    return result;
}

bool isFailureFromMemory(uint32_t result) {
    return result == SZTU_BAD_ARGUMENTS || result == SZTU_CANNOT_PARSE ||
           result == SZTU_CANNOT_READ || result == SVC_NO_STORAGE || result == SVC_PBE_NO_STORAGE ||
           result == SVC_PBE_CRYPTO_FAILED;
}

TEST(Memory, MayBeRefusedAtEveryRequest) {
    const TemporaryFile key("a key of exactly thirty-two byte");
    keyFile = key.path.c_str();
    setenv("ZTS_VEKCRED_KEYFILE", keyFile, 1);
    const TemporaryFile file(everySection(protect("secret")));
    keystore = file.path.c_str();
    setenv("ZTS_KEYSTORE_CONF", keystore, 1);
    sztUseLogErrorMessage = 0;
    int refusals = 0;
    for (const Operation &operation : OPERATIONS) {
        SCOPED_TRACE(operation.name);
        bool wasReached = true;
        expected.clear();
        ASSERT_EQ(0U, runRefusing(operation, 0, &wasReached));
        const int live = liveRequests;
        const uint32_t records = recordCount();
        int request = 0;
        do {
            const uint32_t result = runRefusing(operation, ++request, &wasReached);
            ASSERT_TRUE(result == SZTU_OK || (wasReached && isFailureFromMemory(result)))
                << request << ": " << result;
        } while (wasReached);
        EXPECT_EQ(records + static_cast<uint32_t>(operation.records), recordCount());
        EXPECT_EQ(live + operation.kept, liveRequests);
        refusals += request - 1;
    }
    printf("%d requests refused\n", refusals);
}

} // namespace
