/*
 * cms.cpp - readers of the section "cms": the general one, and the one of a channel.
 */
#include "sztoumaa/section_reading.h"
#include "trace_numbers.h"

#include "zttrc.h"

#define TRC_SOURCE "lib/vek/sztoumaa"

static bool readKsSection(SztouReading *reading, SztouKsConfig *config) {
    return sztouCheckArguments(reading, config != nullptr) &&
           sztouLoadSection(reading, /* reportErrors= */ 1) &&
           sztouReadText(reading, "keystore", config->keystore, SZTOU_REQUIRED) &&
           sztouReadText(reading, "certificate", config->certificate, SZTOU_REQUIRED) &&
           sztouReadLogical(reading, "fips", SZTOU_FLAG, &config->fips);
}

uint32_t sztouGetKsConfig(SztouKsConfig *config, const char *keystorePath, char *errorKey) {
    TRC_ENTRY(FUNCTION_GET_KS_CONFIG);
    SztouReading reading;
    sztouBeginReading(&reading, "cms", keystorePath, errorKey);
    (void)readKsSection(&reading, config);
    const uint32_t result = sztouEndReading(&reading);
    TRC_RETCODE(FUNCTION_GET_KS_CONFIG, result);
    return result;
}

static bool loadChannelSection(SztouReading *reading) {
    if (!sztouTakeCachedSection(reading))
        return sztouLoadSection(reading, /* reportErrors= */ 0);
    TRC_PARMS_AT("%s : %d  Reusing cached channel CMS configuration %p",
                 static_cast<void *>(reading->list));
    return true;
}

// A channel that has no key store or label of its own is no fault, so an absent key is only a result.
static bool readMCASection(SztouReading *reading, SztouKsConfig *config, const char *channelName) {
    return sztouCheckArguments(reading, config != nullptr && channelName != nullptr) &&
           loadChannelSection(reading) &&
           sztouReadText(reading, "keystore", config->keystore, SZTOU_QUIET) &&
           sztouReadText(reading, sztouBuildChannelKey("certificate.channel.", channelName).text,
                         config->certificate, SZTOU_QUIET) &&
           sztouReadLogical(reading, "fips", SZTOU_FLAG, &config->fips) &&
           sztouReadLogical(reading, "forceFipsOff", SZTOU_FLAG, &config->forceFipsOff);
}

uint32_t sztouGetMCAConfig(SztouKsConfig *config, const char *channelName, const char *keystorePath,
                           char *errorKey) {
    TRC_ENTRY(FUNCTION_GET_MCA_CONFIG);
    SztouReading reading;
    sztouBeginReading(&reading, "cms", keystorePath, errorKey);
    (void)readMCASection(&reading, config, channelName);
    const uint32_t result = sztouEndReading(&reading);
    TRC_RETCODE(FUNCTION_GET_MCA_CONFIG, result);
    return result;
}
