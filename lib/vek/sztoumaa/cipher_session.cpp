/*
 * cipher_session.cpp - the cipher session of the readers.
 */
#include "allocation.h"
#include "shared.h"
#include "sztoumaa/built_in_key.h"
#include "sztoumaa/key_source.h"
#include "sztoumaa/message.h"
#include "trace_numbers.h"
#include "zttrc.h"

#define TRC_SOURCE "lib/vek/sztoumaa"

namespace vek {
namespace {

struct InitialKey {
    uint8_t *bytes;
    int32_t length;
};

void showReason(uint32_t number, uint32_t reason, const char *file,
                int32_t line = __builtin_LINE()) {
    showMessage(number, svcMakeInserts(reason, file, /* string2= */ nullptr), line);
}

// ---- Initial key -----------------------------------------------------------------------------

// A key file that cannot be used never falls back to another source.
uint32_t readKeyFile(const KeySource &source, InitialKey *key) {
    const bool isVariable = source.origin == KeyOrigin::variable;
    const uint32_t reason = svcPBEReadInitialKeyFile(source.path, &key->bytes, &key->length);
    if (reason == SVC_PBE_OK) {
        if (isVariable)
            TRC_PARMS_AT("%s : %d  Using initialkeyfile from envvar %s", source.path);
        else
            TRC_PARMS_AT("%s : %d  Using initialkeyfile from vekcred config key %s", source.path);
        return SZTU_OK;
    }
    if (isVariable)
        TRC_PARMS_AT("%s : %d Failed to read initial key from envvar file %s", source.path);
    else
        TRC_PARMS_AT("%s : %d Failed to read initial key from keystoreconf file %s", source.path);
    showReason(SVC_MSG_KEY_FILE_UNUSABLE, reason, baseName(source.path));
    return SZTU_BAD_ARGUMENTS;
}

uint32_t takeDefaultKey(const Attribution &caller, InitialKey *key) {
    TRC_PARMS_AT("%s : %d  No Initial keyfile provided. Using default.");
    void *memory = nullptr;
    const uint32_t reason = allocate(TRC_SOURCE, caller, SVC_PBE_KEY_LENGTH, &memory);
    if (reason != SVC_OK) {
        TRC_PARMS_AT("%s : %d  Failed to get memory for the default key: %d",
                     static_cast<int32_t>(reason));
        showReason(SVC_MSG_PBE_FAILED, reason, /* file= */ nullptr);
        return SZTU_BAD_ARGUMENTS;
    }
    *key = {static_cast<uint8_t *>(memory), SVC_PBE_KEY_LENGTH};
    buildDefaultKey(std::span<uint8_t, SVC_PBE_KEY_LENGTH>(key->bytes, SVC_PBE_KEY_LENGTH));
    showReason(SVC_MSG_DEFAULT_KEY, /* reason= */ 0, /* file= */ nullptr);
    return SZTU_OK;
}

uint32_t takeSalt(const Attribution &caller, uint8_t **salt) {
    void *memory = nullptr;
    const uint32_t reason = allocate(TRC_SOURCE, caller, SVC_PBE_SALT_LENGTH, &memory);
    if (reason != SVC_OK) {
        TRC_PARMS_AT("%s : %d  Failed to get memory for the fixed salt: %d",
                     static_cast<int32_t>(reason));
        showReason(SVC_MSG_PBE_FAILED, reason, /* file= */ nullptr);
        return SZTU_BAD_ARGUMENTS;
    }
    *salt = static_cast<uint8_t *>(memory);
    buildFixedSalt(std::span<uint8_t, SVC_PBE_SALT_LENGTH>(*salt, SVC_PBE_SALT_LENGTH));
    return SZTU_OK;
}

// ---- Session ---------------------------------------------------------------------------------

void releaseBuffer(uint8_t **buffer, int32_t *length) {
    if (*buffer == nullptr)
        return;
    (void)svcPBEFreeBuf(*buffer, *length);
    *buffer = nullptr;
    *length = 0;
}

void releaseKeyAndSalt(SvcPBESession *session) {
    if (session == nullptr)
        return;
    releaseBuffer(&session->key, &session->keyLength);
    releaseBuffer(&session->salt, &session->saltLength);
}

uint32_t openSession(const Attribution &caller, const char *keystorePath, char *itemName,
                     SvcPBESession *session, int32_t fips) {
    // The section is read even when the environment names the key file: a file that cannot be read
    // stops here in either case.
    char sectionKeyFile[SZTUC_PATH_CAPACITY] = {};
    uint32_t result = sztouGetVEKCredConfig(sectionKeyFile, keystorePath, itemName);
    if (result != SZTU_OK && result != SZTU_SECTION_EMPTY) {
        TRC_PARMS_AT("%s : %d  VEKCRED mapping failed");
        showMessage(SVC_MSG_KEY_SOURCE_UNREADABLE, svcMakeInserts(result, keystorePath, itemName));
        return result;
    }
    InitialKey key = {};
    const KeySource source = chooseKeySource(sectionKeyFile);
    result = source.origin == KeyOrigin::builtIn ? takeDefaultKey(caller, &key)
                                                 : readKeyFile(source, &key);
    if (result != SZTU_OK)
        return result;
    result = takeSalt(caller, &session->salt);
    if (result != SZTU_OK) {
        // The key is not in the record yet, and only what the record holds is released. Its bytes
        // are wiped where they lie.
        svcWipe(key.bytes, static_cast<size_t>(key.length));
        return result;
    }
    session->label = LABEL;
    session->keyLength = key.length;
    session->key = key.bytes;
    session->saltLength = SVC_PBE_SALT_LENGTH;
    session->fips = fips;
    const uint32_t reason = svcPBEInit(svcIC_MINI_SUBPOOL.handle, svcIC_MINI_SUBPOOL.word, session);
    if (reason == SVC_PBE_OK)
        return SZTU_OK;
    TRC_PARMS_AT("%s : %d  Failed to Initialize PBE: %d", static_cast<int32_t>(reason));
    showReason(SVC_MSG_PBE_FAILED, reason, /* file= */ nullptr);
    return SZTU_BAD_ARGUMENTS;
}

} // namespace
} // namespace vek

int32_t sztouInitializePBE(uint16_t component, uint32_t function, const char *keystorePath,
                           char *itemName, SvcPBESession *session, int32_t fips) {
    ztm::TraceScope trace(function, component);
    // Key and salt of an open session are not to be overwritten.
    if (session == nullptr || session->serviceState != nullptr)
        return static_cast<int32_t>(trace.returns(uint32_t{SZTU_BAD_ARGUMENTS}));
    const uint32_t result =
        vek::openSession({component, function}, keystorePath, itemName, session, fips);
    if (result != SZTU_OK)
        vek::releaseKeyAndSalt(session);
    return static_cast<int32_t>(trace.returns(result));
}

uint32_t sztouTermPBE(SvcPBESession *session) {
    ztm::TraceScope trace(vek::FUNCTION_TERM_PBE);
    vek::releaseKeyAndSalt(session);
    return trace.returns(svcPBETerm(session, SVC_PBE_TERM_CLOSE));
}
