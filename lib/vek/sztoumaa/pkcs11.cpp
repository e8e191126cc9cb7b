/*
 * sztoumaa_pkcs11.cpp - reader of the section "pkcs11".
 */
#include "sztoumaa/section_reading.h"
#include "trace_numbers.h"

#include "zttrc.h"

#include <cstring>

#define TRC_SOURCE "lib/vek/sztoumaa"

static bool readEncrypted(SztouReading *reading, SztouPkcs11Config *config) {
    const SztouWord word = sztouReadWord(reading, "encrypted", SZTOU_YES_NO,
                                         SztouRefusal::keyAndWord, &config->encrypted);
    if (word == SztouWord::absent)
        TRC_PARMS_AT("%s : %d  Optional PKCS #11 ENCRYPTED key not set. Setting a default value.");
    if (word == SztouWord::refused)
        TRC_PARMS_AT("%s : %d  PKCS #11 ENCRYPTED key has incorrect value.");
    return sztouGoesOn(word);
}

static bool readTokenPin(SztouReading *reading, SztouPkcs11Config *config) {
    static constexpr SztouProtectedKey TOKEN_PIN = {.key = "token_pin",
                                                    .missingResult = SZTOU_REQUIRED,
                                                    .absentIsEmpty = false,
                                                    .lookupErrorKey = "token_pin",
                                                    .restoreErrorKey = "token_pin"};
    if (config->encrypted == 0)
        return sztouReadText(reading, "token_pin", config->token_pin, SZTOU_REQUIRED);
    return sztouReadProtected(reading, TOKEN_PIN, config->token_pin, FUNCTION_GET_PKCS11_CONFIG,
                              config->fips);
}

// The state of the secondary key store is written only when there is one.
static bool readSecondaryKeystore(SztouReading *reading, SztouPkcs11Config *config) {
    const uint32_t result = sztouGetConfigValue(
        reading->list, reading->keystorePath, "secondary_keystore", config->secondary_keystore,
        sizeof(config->secondary_keystore), SZTU_KEY_NOT_PRESENT);
    if (result == SZTU_KEY_NOT_PRESENT) {
        TRC_PARMS_AT("%s : %d  Optional PKCS #11 secondary_keystore key not set");
        memset(config->secondary_keystore, 0, sizeof(config->secondary_keystore));
        return true;
    }
    if (result != SZTU_OK)
        return sztouStopReading(reading, result, "secondary_keystore");
    config->secondaryKeystoreState = 0;
    return true;
}

static bool readPkcs11Section(SztouReading *reading, SztouPkcs11Config *config) {
    return sztouCheckArguments(reading, config != nullptr) &&
           sztouLoadSection(reading, /* reportErrors= */ 1) && readEncrypted(reading, config) &&
           sztouReadText(reading, "library", config->library, SZTOU_REQUIRED) &&
           sztouReadText(reading, "certificate", config->certificate, SZTOU_REQUIRED) &&
           sztouReadText(reading, "token", config->token, SZTOU_REQUIRED) &&
           sztouReadLogical(reading, "fips", SZTOU_FLAG, &config->fips) &&
           readTokenPin(reading, config) && readSecondaryKeystore(reading, config);
}

uint32_t sztouGetPkcs11Config(SztouPkcs11Config *config, const char *keystorePath, char *errorKey) {
    TRC_ENTRY(FUNCTION_GET_PKCS11_CONFIG);
    SztouReading reading;
    sztouBeginReading(&reading, "pkcs11", keystorePath, errorKey);
    (void)readPkcs11Section(&reading, config);
    const uint32_t result = sztouEndReading(&reading);
    TRC_RETCODE(FUNCTION_GET_PKCS11_CONFIG, result);
    return result;
}
