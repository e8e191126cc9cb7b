/*
 * key_source.cpp - where the initial key comes from, and the cipher session of the command.
 *
 * The first source that names a key file decides: -sf, ZTS_VEKCRED_KEYFILE, the keyfile key of section
 * vekcred. Only when none does, the built-in default key is used.
 */
#include "runvekcred/runvekcred.h"
#include "sztoumaa/sztoumaa.h"
#include "zttrc.h"

#define TRC_SOURCE "cmd/vek/runvekcred"

namespace {

constexpr char KEY_FILE_VARIABLE[] = "ZTS_VEKCRED_KEYFILE";
constexpr size_t PARAMETER_NAME_CAPACITY = 128;

int32_t useKeyFile(const char *path, SvcPBESession *record) {
    const uint32_t result = svcPBEReadInitialKeyFile(path, &record->key, &record->keyLength);
    if (result == SVC_PBE_OK) {
        TRC_PARMS("Using initial key from file '%s'", path);
        return 0;
    }
    const char *const name = sztouBaseName(path);
    TRC_PARMS("Failed to read initial key from file %s", name);
    showMessage(SVC_MSG_KEY_FILE_UNUSABLE, svcMakeInserts(result, name, nullptr), __LINE__);
    return static_cast<int32_t>(result);
}

void useDefaultKey(CipherSession *session) {
    TRC_PARMS("No initial keyfile provided. Using default");
    sztouBuildDefaultKey(session->defaultKey);
    session->record.key = session->defaultKey;
    session->record.keyLength = SVC_PBE_KEY_LENGTH;
    showMessage(SVC_MSG_DEFAULT_KEY, svcMakeInserts(0, nullptr, nullptr), __LINE__);
}

int32_t useConfiguredKey(const char *keystorePath, CipherSession *session) {
    TRC_PARMS("No keyfile from env var. Looking in keystore config file");
    char keyFile[SZTUC_PATH_CAPACITY] = "";
    char parameterName[PARAMETER_NAME_CAPACITY] = "????";
    const uint32_t result = sztouGetVEKCredConfig(keyFile, keystorePath, parameterName);
    if (result == SZTU_OK && keyFile[0] != '\0')
        return useKeyFile(keyFile, &session->record);
    // The command shows the warning and then ends with the result, although the text says that it
    // continues.
    const bool failed = result != SZTU_OK && result != SZTU_SECTION_EMPTY;
    if (failed)
        TRC_PARMS("Failed to read vekcred parameter %s. Continuing with default key.",
                  parameterName);
    useDefaultKey(session);
    return failed ? static_cast<int32_t>(result) : 0;
}

int32_t chooseKey(const char *keyFilePath, const char *keystorePath, CipherSession *session) {
    if (keyFilePath != nullptr)
        return useKeyFile(keyFilePath, &session->record);
    TRC_PARMS("No keyfile from command line. Looking for env var");
    const char *const fromEnvironment = svcGetEnv(KEY_FILE_VARIABLE);
    if (fromEnvironment != nullptr)
        return useKeyFile(fromEnvironment, &session->record);
    return useConfiguredKey(keystorePath, session);
}

int32_t openSession(const CommandSettings &settings, CipherSession *session) {
    SvcPBESession *const record = &session->record;
    sztouBuildFixedSalt(session->salt);
    record->algorithm = settings.algorithm;
    record->label = SZTOU_PBE_LABEL;
    record->saltLength = SVC_PBE_SALT_LENGTH;
    record->salt = session->salt;
    record->fips = settings.fipsFlag;

    const uint32_t result = svcPBEInit(messageContext().handle, messageContext().word, record);
    if (result == SVC_PBE_OK) {
        session->isOpen = true;
        return 0;
    }
    TRC_PARMS("Failed to Init PBE: %u", result);
    showMessage(result == SVC_PBE_FIPS_NOT_AVAILABLE ? SVC_MSG_FIPS_NOT_AVAILABLE
                                                     : SVC_MSG_PBE_FAILED,
                svcMakeInserts(result, nullptr, nullptr), __LINE__);
    return static_cast<int32_t>(result);
}

} // namespace

int32_t openCipherSession(const CommandSettings &settings, const char *keystorePath,
                          CipherSession *session) {
    *session = {};
    int32_t reasonCode = chooseKey(settings.keyFilePath, keystorePath, session);
    if (reasonCode == 0)
        reasonCode = openSession(settings, session);
    if (reasonCode != 0)
        closeCipherSession(session);
    return reasonCode;
}

void closeCipherSession(CipherSession *session) {
    // The flag wipes the key of a key file where it lies; the service releases that buffer at its end.
    if (session->isOpen)
        (void)svcPBETerm(&session->record, SVC_PBE_TERM_WIPE);
    svcWipe(session, sizeof *session);
}
