// Every operation with every request for memory refused once, libcrypto's and stdio's included: no crash,
// no leak, no wrong result that is called success, and a failure record for what the library asked for.
#include "keystore_file.h"
#include "sztoumaa.h"

#include <cstring>

extern "C" int refusedRequest;
extern "C" int liveRequests;

namespace {

constexpr uint32_t WRONG = 0xBAD;
constexpr char CHANNEL[] = "ONE";
constexpr char KEY[] = "a key of exactly thirty-two byte";
constexpr int LINES = 20;
constexpr int RECORDS_OF_A_LINE = 4; // item, key, value, node
constexpr int RECORDS_OF_A_LOAD = 2 + LINES * RECORDS_OF_A_LINE;
constexpr int RECORDS_OF_A_SESSION = RECORDS_OF_A_LOAD + 1; // the salt
constexpr int RECORDS_OF_A_CREDENTIAL = RECORDS_OF_A_LOAD + RECORDS_OF_A_SESSION;

const char *keystore; // path of a file with all sections, its credentials encrypted with `keyFile`
const char *keyFile;

uint32_t check(uint32_t result, const char *text, const char *expected) {
    return result != SZTU_OK || strcmp(text, expected) == 0 ? result : WRONG;
}

template <class Record> Record record;

uint32_t readCms() {
    auto &cms = record<SztouKsConfig> = {};
    return check(sztouGetKsConfig(&cms, keystore, nullptr), cms.certificate, "label");
}
uint32_t readChannelCms() {
    auto &cms = record<SztouKsConfig> = {};
    return check(sztouGetMCAConfig(&cms, CHANNEL, keystore, nullptr), cms.certificate, "one");
}
uint32_t readOcsp() {
    auto &ocsp = record<SztouOcspConfig> = {};
    return check(sztouGetOcspConfig(&ocsp, keystore, nullptr), ocsp.url, "http://x");
}
uint32_t readPem() {
    auto &pem = record<SztouPemConfig> = {};
    return check(sztouGetPemConfig(&pem, keystore, nullptr), pem.password, "secret");
}
uint32_t readChannelPem() {
    auto &pem = record<SztouPemConfig> = {};
    return check(sztouGetMCAPemConfig(&pem, CHANNEL, keystore, nullptr), pem.password, "secret");
}
uint32_t readPkcs11() {
    auto &pkcs11 = record<SztouPkcs11Config> = {};
    return check(sztouGetPkcs11Config(&pkcs11, keystore, nullptr), pkcs11.token_pin, "secret");
}
uint32_t readCrl() {
    auto &crl = record<SztouCrlConfig> = {};
    return check(sztouGetCrlConfig(&crl, keystore, nullptr, 0), crl.ldapServers[0].pass, "secret");
}

// The channel reader may find the cache empty, and then reads the file.
uint32_t cacheAndRelease() {
    thdProcess.processKind = 12;
    const uint32_t filled = sztouCacheMCAKeystoreConf();
    const int32_t enabled = sztouIsMCAInterceptEnabled(CHANNEL);
    sztouReleaseMCAKeyStoreConf();
    return filled == SZTU_OK && enabled != 1 ? WRONG : filled;
}

uint32_t parseAndFilter() {
    char text[] = "x.a = 1\ny.b = 2\nx.c = 3\n";
    SztuList *const list = SztuListCreate();
    uint32_t result = sztucParseConfigFile(text, list);
    sztucFilterPrefix(list, "x");
    if (result == SZTU_OK && list->SztuListCount(list) != 2)
        result = WRONG;
    sztucFreeConfigList(list);
    return result;
}

uint32_t growList() {
    SztuList *const list = SztuListCreate();
    if (list == nullptr)
        return SVC_NO_STORAGE;
    char items[] = "abcd";
    list->SztuListAppend(list, items);
    list->SztuListPrepend(list, items);
    if (list->head != list->tail) {
        list->SztuListInsertAfter(list, list->head, items);
        list->SztuListInsertBefore(list, list->tail, items);
    }
    const uint64_t count = list->SztuListCount(list);
    list->SztuListClear(list);
    (void)svcFreeMemFn(0, SVC_COMPONENT_VEK, 0, list);
    return count == 4 ? SZTU_OK + 0U : SVC_NO_STORAGE + 0U;
}

uint32_t saveAndRestore(int32_t algorithm) {
    SvcPBESession session = {};
    session.algorithm = algorithm;
    uint32_t result = static_cast<uint32_t>(
        sztouInitializePBE(SVC_COMPONENT_VEK, 1, keystore, nullptr, &session, 0));
    if (result != SZTU_OK)
        return result;
    char *stored = nullptr, *clear = nullptr;
    int32_t storedLength = 0, clearLength = 0;
    result = svcPBESave(&session, "secret", 6, &stored, &storedLength);
    if (result == SVC_PBE_OK)
        result = svcPBERestore(&session, stored, storedLength, nullptr, &clear, &clearLength);
    if (result == SVC_PBE_OK && (clearLength != 6 || memcmp(clear, "secret", 6) != 0))
        result = WRONG;
    (void)svcPBEFreeBuf(stored, storedLength);
    (void)svcPBEFreeBuf(clear, clearLength);
    (void)sztouTermPBE(&session);
    return result;
}

uint32_t useGcm() {
    return saveAndRestore(SVC_PBE_ALGORITHM_GCM);
}
uint32_t useCbcHmac() {
    return saveAndRestore(SVC_PBE_ALGORITHM_CBC_HMAC);
}
uint32_t useDefaultKey() {
    unsetenv("ZTS_VEKCRED_KEYFILE");
    return useGcm();
}
uint32_t readKeyFile() {
    uint8_t *key;
    int32_t length;
    const uint32_t result = svcPBEReadInitialKeyFile(keyFile, &key, &length);
    const bool isWrong = result == SVC_PBE_OK && memcmp(key, KEY, SVC_PBE_KEY_LENGTH) != 0;
    return isWrong ? WRONG : result;
}

struct Operation {
    const char *name;
    uint32_t (*run)();
    int records;  // failure records of the whole walk: one for each request of the library
    int kept = 0; // requests that stay, counted over the walk
};

constexpr Operation OPERATIONS[] = {
    {"cms", readCms, RECORDS_OF_A_LOAD},
    {"cms of a channel", readChannelCms, RECORDS_OF_A_LOAD},
    {"ocsp", readOcsp, RECORDS_OF_A_LOAD},
    {"pem", readPem, RECORDS_OF_A_CREDENTIAL},
    {"pem of a channel", readChannelPem, RECORDS_OF_A_CREDENTIAL},
    {"pkcs11", readPkcs11, RECORDS_OF_A_CREDENTIAL},
    {"crl", readCrl, RECORDS_OF_A_CREDENTIAL},
    {"channel cache", cacheAndRelease, RECORDS_OF_A_LOAD},
    {"parser and filter", parseAndFilter, 1 + 3 * RECORDS_OF_A_LINE},
    {"list", growList, 5},
    {"AES-256-GCM", useGcm, RECORDS_OF_A_SESSION},
    {"AES-256-CBC and HMAC", useCbcHmac, RECORDS_OF_A_SESSION},
    // Only what the record of a session holds is released, and without a salt nothing is in it yet.
    {"default key", useDefaultKey, RECORDS_OF_A_SESSION + 1, 1},
    {"key file", readKeyFile, 0},
};

uint32_t recordCount() {
    SvcFailureRecord latest;
    svcGetFailureRecord(&latest);
    return latest.count;
}

// Runs the operation with one request refused, and ends the services, which releases what they keep.
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
    const TemporaryFile key({KEY, SVC_PBE_KEY_LENGTH});
    keyFile = key.path.c_str();
    setenv("ZTS_VEKCRED_KEYFILE", keyFile, 1);
    const std::string secret = protect("secret") + "\n";
    const TemporaryFile file(
        "cms.keystore = k\ncms.certificate = label\ncms.certificate.channel.ONE = one\n"
        "ocsp.url = http://x\npem.private = k\npem.public = c\npem.encrypted = yes\n"
        "pem.password = " +
        secret +
        "pem.private.channel.ONE = k\npem.public.channel.ONE = c\n"
        "pem.encrypted.channel.ONE = yes\npem.password.channel.ONE = " +
        secret +
        "pkcs11.library = l\npkcs11.certificate = c\npkcs11.token = t\npkcs11.encrypted = yes\n"
        "pkcs11.token_pin = " +
        secret +
        "crl.ldap.host = h\ncrl.encrypted = yes\n"
        "crl.ldap.pass = " +
        secret);
    keystore = file.path.c_str();
    setenv("ZTS_KEYSTORE_CONF", keystore, 1);
    sztUseLogErrorMessage = 0;
    int refusals = 0;
    for (const Operation &operation : OPERATIONS) {
        SCOPED_TRACE(operation.name);
        bool wasReached = true;
        ASSERT_EQ(0U, runRefusing(operation, 0, &wasReached));
        const int live = liveRequests;
        const uint32_t records = recordCount();
        int request = 0;
        do {
            const uint32_t result = runRefusing(operation, ++request, &wasReached);
            ASSERT_TRUE(wasReached || result == SZTU_OK) << result;
            ASSERT_TRUE(result == SZTU_OK || isFailureFromMemory(result))
                << request << ": " << result;
        } while (wasReached);
        EXPECT_EQ(records + static_cast<uint32_t>(operation.records), recordCount());
        EXPECT_EQ(live + operation.kept, liveRequests);
        refusals += request - 1;
    }
    printf("%d requests refused\n", refusals);
}

} // namespace
