/*
 * key_source.cpp - the first source that names a key file decides: -sf, ZTS_VEKCRED_KEYFILE, the
 * keyfile key of section vekcred. Only when none does, the built-in default key is used.
 */
#include "runvekcred/key_source.h"

#include "runvekcred/message.h"
#include "shared.h"
#include "sztoumaa/built_in_key.h"
#include "sztoumaa/key_source.h"
#include "zttrc.h"

#define TRC_SOURCE "cmd/vek/runvekcred"

namespace runvekcred {

namespace {

constexpr size_t PARAMETER_NAME_CAPACITY = 128;

} // namespace

int32_t CipherSession::useKeyFile(const char *path, const RunFiles &files) {
    struct stat status;
    // A run that replaced or wrote to its own key file would destroy the key.
    const uint32_t result = stat(path, &status) == 0 && belongsToRun(status, files)
                                ? static_cast<uint32_t>(SVC_PBE_BAD_ARGUMENTS)
                                : svcPBEReadInitialKeyFile(path, &record.key, &record.keyLength);
    if (result == SVC_PBE_OK) {
        TRC_PARMS("Using initial key from file '%s'", path);
        return 0;
    }
    const char *const name = vek::baseName(path);
    TRC_PARMS("Failed to read initial key from file %s", name);
    showMessage(SVC_MSG_KEY_FILE_UNUSABLE, svcMakeInserts(result, name, nullptr), __LINE__);
    return static_cast<int32_t>(result);
}

void CipherSession::useDefaultKey() {
    TRC_PARMS("No initial keyfile provided. Using default");
    vek::buildDefaultKey(defaultKey);
    record.key = defaultKey;
    record.keyLength = SVC_PBE_KEY_LENGTH;
    showMessage(SVC_MSG_DEFAULT_KEY, svcMakeInserts(0, nullptr, nullptr), __LINE__);
}

int32_t CipherSession::useConfiguredKey(const RunFiles &files) {
    TRC_PARMS("No keyfile from env var. Looking in keystore config file");
    char keyFile[SZTUC_PATH_CAPACITY] = "";
    char parameterName[PARAMETER_NAME_CAPACITY] = "????";
    const uint32_t result = sztouGetVEKCredConfig(keyFile, files.keystorePath, parameterName);
    if (result == SZTU_OK && keyFile[0] != '\0')
        return useKeyFile(keyFile, files);
    // The command shows the warning and then ends with the result, although the text says that it
    // continues.
    const bool failed = result != SZTU_OK && result != SZTU_SECTION_EMPTY;
    if (failed)
        TRC_PARMS("Failed to read vekcred parameter %s. Continuing with default key.",
                  parameterName);
    useDefaultKey();
    return failed ? static_cast<int32_t>(result) : 0;
}

int32_t CipherSession::chooseKey(const char *keyFilePath, const RunFiles &files) {
    if (keyFilePath != nullptr)
        return useKeyFile(keyFilePath, files);
    TRC_PARMS("No keyfile from command line. Looking for env var");
    const char *const fromEnvironment = svcGetEnv(vek::KEY_FILE_VARIABLE);
    if (fromEnvironment != nullptr)
        return useKeyFile(fromEnvironment, files);
    return useConfiguredKey(files);
}

int32_t CipherSession::open(const CommandSettings &settings, const RunFiles &files) {
    const int32_t reasonCode = chooseKey(settings.keyFilePath, files);
    if (reasonCode != 0)
        return reasonCode;

    vek::buildFixedSalt(salt);
    record.algorithm = settings.algorithm;
    record.label = vek::LABEL;
    record.saltLength = sizeof salt;
    record.salt = salt;
    record.fips = settings.fipsFlag;
    const uint32_t result = svcPBEInit(messageContext().handle, messageContext().word, &record);
    isOpen = result == SVC_PBE_OK;
    if (isOpen)
        return 0;
    TRC_PARMS("Failed to Init PBE: %u", result);
    showMessage(result == SVC_PBE_FIPS_NOT_AVAILABLE ? SVC_MSG_FIPS_NOT_AVAILABLE
                                                     : SVC_MSG_PBE_FAILED,
                svcMakeInserts(result, nullptr, nullptr), __LINE__);
    return static_cast<int32_t>(result);
}

CipherSession::~CipherSession() {
    // The flag wipes the key of a key file where it lies; the service releases that buffer at its
    // end.
    if (isOpen)
        (void)svcPBETerm(&record, SVC_PBE_TERM_WIPE);
    svcWipe(this, sizeof *this);
}

} // namespace runvekcred
