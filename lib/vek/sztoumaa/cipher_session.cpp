/*
 * cipher_session.cpp - where the initial key of the readers comes from, and their cipher session.
 */
#include "refused_memory.h"
#include "shared.h"
#include "sztoumaa/message.h"
#include "sztoumaa/sztoumaa.h"
#include "trace_numbers.h"
#include "zttrc.h"
#include "ztutl.h"

#define TRC_SOURCE "lib/vek/sztoumaa"

namespace {

constexpr char SECTION[] = "vekcred";
constexpr char KEY_FILE_KEY[] = "keyfile";
constexpr char KEY_FILE_KEY_SUFFIX[] = ".keyfile";
constexpr int32_t KEY_FILE_PATH_LENGTH = SZTUC_PATH_CAPACITY - 1;

// On whose behalf a session is opened: memory and trace records carry these numbers.
struct Attribution {
    uint16_t component;
    uint32_t function;
};

struct InitialKey {
    uint8_t *bytes;
    int32_t length;
};

void showReason(uint32_t number, uint32_t reason, const char *file, int32_t line) {
    sztouShowMessage(number, svcMakeInserts(reason, file, /* string2= */ nullptr), line);
}

uint32_t allocate(const Attribution &caller, size_t length, uint8_t **buffer) {
    void *memory = nullptr;
    const uint32_t reason = svcGetMemFn(/* subpool= */ 0, caller.component, caller.function, length,
                                        /* options= */ 0, &memory);
    if (reason != SVC_OK)
        sztuRecordNoMemory(TRC_SOURCE, __LINE__);
    *buffer = static_cast<uint8_t *>(memory);
    return reason;
}

// ---- Initial key -----------------------------------------------------------------------------

uint32_t readKeyFileFromEnvironment(InitialKey *key) {
    const char *const path = svcGetEnv(vek::KEY_FILE_VARIABLE);
    const uint32_t reason = svcPBEReadInitialKeyFile(path, &key->bytes, &key->length);
    if (reason == SVC_PBE_OK) {
        TRC_PARMS_AT("%s : %d  Using initialkeyfile from envvar %s", path);
        return SZTU_OK;
    }
    TRC_PARMS_AT("%s : %d Failed to read initial key from envvar file %s", path);
    showReason(SVC_MSG_KEY_FILE_UNUSABLE, reason, sztouBaseName(path), __LINE__);
    return SZTU_BAD_ARGUMENTS;
}

uint32_t readKeyFileFromSection(const char *path, InitialKey *key) {
    const uint32_t reason = svcPBEReadInitialKeyFile(path, &key->bytes, &key->length);
    if (reason == SVC_PBE_OK) {
        TRC_PARMS_AT("%s : %d  Using initialkeyfile from vekcred config key %s", path);
        return SZTU_OK;
    }
    TRC_PARMS_AT("%s : %d Failed to read initial key from keystoreconf file %s", path);
    showReason(SVC_MSG_KEY_FILE_UNUSABLE, reason, sztouBaseName(path), __LINE__);
    return SZTU_BAD_ARGUMENTS;
}

uint32_t takeDefaultKey(const Attribution &caller, InitialKey *key) {
    TRC_PARMS_AT("%s : %d  No Initial keyfile provided. Using default.");
    key->length = SVC_PBE_KEY_LENGTH;
    const uint32_t reason = allocate(caller, SVC_PBE_KEY_LENGTH, &key->bytes);
    if (reason != SVC_OK) {
        TRC_PARMS_AT("%s : %d  Failed to get memory for the default key: %d",
                     static_cast<int32_t>(reason));
        showReason(SVC_MSG_PBE_FAILED, reason, /* file= */ nullptr, __LINE__);
        return SZTU_BAD_ARGUMENTS;
    }
    sztouBuildDefaultKey(std::span<uint8_t, SVC_PBE_KEY_LENGTH>(key->bytes, SVC_PBE_KEY_LENGTH));
    showReason(SVC_MSG_DEFAULT_KEY, /* reason= */ 0, /* file= */ nullptr, __LINE__);
    return SZTU_OK;
}

// The environment wins over the section. A key file that cannot be used never falls back to the
// default key.
uint32_t chooseInitialKey(const Attribution &caller, const char *sectionKeyFile, InitialKey *key) {
    if (svcIsEnvironment(vek::KEY_FILE_VARIABLE) != 0)
        return readKeyFileFromEnvironment(key);
    if (sectionKeyFile[0] != '\0')
        return readKeyFileFromSection(sectionKeyFile, key);
    return takeDefaultKey(caller, key);
}

uint32_t buildSalt(const Attribution &caller, uint8_t **salt) {
    const uint32_t reason = allocate(caller, SVC_PBE_SALT_LENGTH, salt);
    if (reason != SVC_OK) {
        TRC_PARMS_AT("%s : %d  Failed to get memory for the fixed salt: %d",
                     static_cast<int32_t>(reason));
        showReason(SVC_MSG_PBE_FAILED, reason, /* file= */ nullptr, __LINE__);
        return SZTU_BAD_ARGUMENTS;
    }
    sztouBuildFixedSalt(std::span<uint8_t, SVC_PBE_SALT_LENGTH>(*salt, SVC_PBE_SALT_LENGTH));
    return SZTU_OK;
}

// ---- Session ---------------------------------------------------------------------------------

void releaseKeyAndSalt(SvcPBESession *session) {
    if (session == nullptr)
        return;
    if (session->key != nullptr) {
        (void)svcPBEFreeBuf(session->key, session->keyLength);
        session->key = nullptr;
        session->keyLength = 0;
    }
    if (session->salt != nullptr) {
        (void)svcPBEFreeBuf(session->salt, session->saltLength);
        session->salt = nullptr;
        session->saltLength = 0;
    }
}

uint32_t openSession(SvcPBESession *session, const InitialKey &key, uint8_t *salt, int32_t fips) {
    session->label = vek::LABEL;
    session->keyLength = key.length;
    session->key = key.bytes;
    session->saltLength = SVC_PBE_SALT_LENGTH;
    session->salt = salt;
    session->fips = fips;
    const uint32_t reason = svcPBEInit(svcIC_MINI_SUBPOOL.handle, svcIC_MINI_SUBPOOL.word, session);
    if (reason == SVC_PBE_OK)
        return SZTU_OK;
    TRC_PARMS_AT("%s : %d  Failed to Initialize PBE: %d", static_cast<int32_t>(reason));
    showReason(SVC_MSG_PBE_FAILED, reason, /* file= */ nullptr, __LINE__);
    return SZTU_BAD_ARGUMENTS;
}

uint32_t initializePBE(const Attribution &caller, const char *keystorePath, char *itemName,
                       SvcPBESession *session, int32_t fips) {
    // The section is read even when the environment names the key file: a file that cannot be read
    // stops here in either case.
    char sectionKeyFile[SZTUC_PATH_CAPACITY] = {};
    uint32_t result = sztouGetVEKCredConfig(sectionKeyFile, keystorePath, itemName);
    if (result != SZTU_OK && result != SZTU_SECTION_EMPTY) {
        TRC_PARMS_AT("%s : %d  VEKCRED mapping failed");
        sztouShowMessage(SVC_MSG_KEY_SOURCE_UNREADABLE,
                         svcMakeInserts(result, keystorePath, itemName), __LINE__);
        return result;
    }
    InitialKey key = {};
    result = chooseInitialKey(caller, sectionKeyFile, &key);
    if (result != SZTU_OK)
        return result;
    uint8_t *salt = nullptr;
    result = buildSalt(caller, &salt);
    if (result == SZTU_OK)
        return openSession(session, key, salt, fips);
    // The key is not in the record yet, and only what the record holds is released. Its bytes are
    // wiped where they lie.
    svcWipe(key.bytes, static_cast<size_t>(key.length));
    return result;
}

uint32_t getKeyFile(char *keyFile, const char *keystorePath, char *itemName) {
    if (itemName != nullptr)
        utlCopyBounded(itemName, SECTION, sizeof SECTION);
    if (keyFile == nullptr)
        return SZTU_BAD_ARGUMENTS;
    SztuList *list = nullptr;
    uint32_t result = sztouLoadConfigSection(keystorePath, &list, SECTION, /* reportErrors= */ 0);
    if (result != SZTU_OK)
        return result;
    result = sztouGetConfigValue(list, keystorePath, KEY_FILE_KEY, keyFile, KEY_FILE_PATH_LENGTH,
                                 SZTU_KEY_NOT_PRESENT);
    sztucFreeConfigList(list);
    if (result <= SZTU_KEY_NOT_PRESENT)
        return SZTU_OK;
    if (itemName != nullptr)
        utlAppendBounded(itemName, KEY_FILE_KEY_SUFFIX, sizeof KEY_FILE_KEY_SUFFIX - 1);
    return result;
}

} // namespace

const char *sztouBaseName(const char *path) {
    const char *baseName = path;
    for (const char *slash = path; *slash != '\0'; ++slash)
        if (slash[0] == '/' && slash[1] != '\0' && slash[1] != '/')
            baseName = slash + 1;
    return baseName;
}

uint32_t sztouGetVEKCredConfig(char *keyFile, const char *keystorePath, char *itemName) {
    TRC_ENTRY(FUNCTION_GET_VEKCRED_CONFIG);
    const uint32_t result = getKeyFile(keyFile, keystorePath, itemName);
    TRC_RETCODE(FUNCTION_GET_VEKCRED_CONFIG, result);
    return result;
}

int32_t sztouInitializePBE(uint16_t component, uint32_t function, const char *keystorePath,
                           char *itemName, SvcPBESession *session, int32_t fips) {
    // Key and salt of an open session are not to be overwritten.
    if (session == nullptr || session->serviceState != nullptr)
        return SZTU_BAD_ARGUMENTS;
    if (trcActive(TRC_FUNCTIONS))
        trc_FNC_entry(component, function);
    const uint32_t result =
        initializePBE({component, function}, keystorePath, itemName, session, fips);
    if (result != SZTU_OK)
        releaseKeyAndSalt(session);
    if (trcActive(TRC_FUNCTIONS))
        trc_FNC_retcode(component, function, result);
    return static_cast<int32_t>(result);
}

uint32_t sztouTermPBE(SvcPBESession *session) {
    TRC_ENTRY(FUNCTION_TERM_PBE);
    releaseKeyAndSalt(session);
    const uint32_t result = svcPBETerm(session, SVC_PBE_TERM_CLOSE);
    TRC_RETCODE(FUNCTION_TERM_PBE, result);
    return result;
}
