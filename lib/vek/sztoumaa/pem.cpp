/*
 * pem.cpp - reader of the section "pem".
 */
#include "sztoumaa/section_reading.h"
#include "trace_numbers.h"

#include "zttrc.h"

#define TRC_SOURCE "lib/vek/sztoumaa"

static constexpr SztouLogicalNumbers PURPOSE = {.yes = 2, .no = 1, .absent = 1, .failed = 0};

static bool readEncrypted(SztouReading *reading, SztouPemConfig *config) {
    const SztouWord word = sztouReadWord(reading, "encrypted", SZTOU_YES_NO,
                                         SztouRefusal::keyAndWord, &config->encrypted);
    if (word == SztouWord::absent)
        TRC_PARMS_AT("%s : %d  Optional PEM ENCRYPTED key not set. Setting a default value.");
    if (word == SztouWord::refused)
        TRC_PARMS_AT("%s : %d  PEM ENCRYPTED key has incorrect value.");
    return sztouGoesOn(word);
}

static bool readPassword(SztouReading *reading, SztouPemConfig *config) {
    static constexpr SztouProtectedKey PASSWORD = {.key = "password",
                                                   .missingResult = SZTOU_REQUIRED,
                                                   .absentIsEmpty = false,
                                                   .lookupErrorKey = "password",
                                                   .restoreErrorKey = "password"};
    if (config->encrypted == 0)
        return sztouReadText(reading, "password", config->password, SZTOU_REQUIRED);
    return sztouReadProtected(reading, PASSWORD, config->password, FUNCTION_GET_PEM_CONFIG,
                              config->fips);
}

static bool readCheckPurpose(SztouReading *reading, SztouPemConfig *config) {
    const bool goesOn = sztouReadLogical(reading, "checkpurpose", PURPOSE, &config->checkpurpose);
    if (reading->lastLookup == SZTU_KEY_NOT_PRESENT)
        TRC_PARMS_AT("%s : %d  Defaulting to not check extended key usage");
    return goesOn;
}

static bool readPemSection(SztouReading *reading, SztouPemConfig *config) {
    return sztouCheckArguments(reading, config != nullptr) &&
           sztouLoadSection(reading, /* reportErrors= */ 1) && readEncrypted(reading, config) &&
           sztouReadText(reading, "private", config->privateKey, SZTOU_REQUIRED) &&
           sztouReadText(reading, "public", config->publicKey, SZTOU_REQUIRED) &&
           sztouReadLogical(reading, "fips", SZTOU_FLAG, &config->fips) &&
           readPassword(reading, config) && readCheckPurpose(reading, config);
}

uint32_t sztouGetPemConfig(SztouPemConfig *config, const char *keystorePath, char *errorKey) {
    TRC_ENTRY(FUNCTION_GET_PEM_CONFIG);
    SztouReading reading;
    sztouBeginReading(&reading, "pem", keystorePath, errorKey);
    (void)readPemSection(&reading, config);
    const uint32_t result = sztouEndReading(&reading);
    TRC_RETCODE(FUNCTION_GET_PEM_CONFIG, result);
    return result;
}
