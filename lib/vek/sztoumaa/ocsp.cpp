/*
 * ocsp.cpp - reader of the section "ocsp".
 */
#include "sztoumaa/section_reading.h"
#include "trace_numbers.h"

#include "zttrc.h"

#define TRC_SOURCE "lib/vek/sztoumaa"

// "enable" has three states, because 0 says that the key is not there.
static constexpr SztouLogicalNumbers ENABLE = {.yes = 2, .no = 1, .absent = 0, .failed = 0};
static constexpr SztouLogicalNumbers CHOICE = {.yes = 1, .no = 0, .absent = -1, .failed = -1};

static constexpr SztouWordValue UNKNOWN_WORDS[] = {{"REJECT", 1}, {"ACCEPT", 2}, {"WARN", 3}};

static bool readUnknown(SztouReading *reading, SztouOcspConfig *config) {
    const SztouWord word = sztouReadWord(reading, "unknown", UNKNOWN_WORDS,
                                         SztouRefusal::keyAndWord, &config->unknown);
    if (word == SztouWord::absent)
        TRC_PARMS_AT("%s : %d  Optional OCSP UNKNOWN key not set. Setting a default value.");
    if (word == SztouWord::refused)
        TRC_PARMS_AT("%s : %d  OCSP UNKNOWN key has incorrect value.");
    return sztouGoesOn(word);
}

// A refused mode stays in the record.
static bool readSignature(SztouReading *reading, SztouOcspConfig *config) {
    static constexpr int32_t LOWEST_MODE = -1;
    static constexpr int32_t HIGHEST_MODE = 2;
    if (!sztouReadOptionalInt(reading, "signature", &config->signature))
        return false;
    if (config->signature >= LOWEST_MODE && config->signature <= HIGHEST_MODE)
        return true;
    TRC_PARMS_AT("%s : %d  Wrong OCSP SIGNATURE value");
    return sztouStopReading(reading, SZTU_BAD_CONFIG, "signature");
}

// "unknown" alone sets nothing; "log" alone does, and is refused.
static bool checkMinimumSet(SztouReading *reading, const SztouOcspConfig *config) {
    if (!reading->anyKeyFound || config->enable != 0 || config->url[0] != '\0' ||
        config->httpProxyHost[0] != '\0')
        return true;
    TRC_PARMS_AT("%s : %d  Missing mandatory OCSP keys ");
    return sztouStopReading(reading, SZTU_BAD_CONFIG, "url");
}

static bool readOcspSection(SztouReading *reading, SztouOcspConfig *config) {
    return sztouCheckArguments(reading, config != nullptr) &&
           sztouLoadSection(reading, /* reportErrors= */ 1) &&
           sztouReadLogical(reading, "enable", ENABLE, &config->enable) &&
           sztouReadOptionalText(reading, "url", config->url) &&
           sztouReadOptionalText(reading, "http.proxy.host", config->httpProxyHost) &&
           sztouReadOptionalInt(reading, "http.proxy.port", &config->httpProxyPort) &&
           readUnknown(reading, config) &&
           sztouReadLogical(reading, "nonce.generation", CHOICE, &config->nonceGeneration) &&
           sztouReadLogical(reading, "nonce.check", CHOICE, &config->nonceCheck) &&
           sztouReadOptionalInt(reading, "nonce.size", &config->nonceSize) &&
           sztouReadLogical(reading, "http.get", CHOICE, &config->httpGet) &&
           sztouReadOptionalInt(reading, "max_response_size", &config->maxResponseSize) &&
           sztouReadOptionalInt(reading, "cache_size", &config->cacheSize) &&
           sztouReadOptionalInt(reading, "timeout", &config->timeout) &&
           readSignature(reading, config) &&
           sztouReadLogical(reading, "log", SZTOU_FLAG, &config->log) &&
           checkMinimumSet(reading, config);
}

uint32_t sztouGetOcspConfig(SztouOcspConfig *config, const char *keystorePath, char *errorKey) {
    TRC_ENTRY(FUNCTION_GET_OCSP_CONFIG);
    SztouReading reading;
    sztouBeginReading(&reading, "ocsp", keystorePath, errorKey);
    (void)readOcspSection(&reading, config);
    const uint32_t result = sztouEndReading(&reading);
    TRC_RETCODE(FUNCTION_GET_OCSP_CONFIG, result);
    return result;
}
