/*
 * channel_pem.cpp - reader of the keys of one channel in the section "pem".
 */
#include "sztoumaa/section_reading.h"
#include "trace_numbers.h"

#include "zttrc.h"

#define TRC_SOURCE "lib/vek/sztoumaa"

// An absent "checkpurpose" is 0 here, unlike in the general reader.
static constexpr SztouLogicalNumbers PURPOSE = {.yes = 2, .no = 1, .absent = 0, .failed = 0};

// The cached section is "cms": while the cache serves the file, the channel keys are looked up there.
static bool loadChannelSection(SztouReading *reading) {
    if (!sztouTakeCachedSection(reading))
        return sztouLoadSection(reading, /* reportErrors= */ 0);
    TRC_PARMS_AT("%s : %d  Reusing cached channel PEM configuration %p",
                 static_cast<void *>(reading->list));
    return true;
}

static bool readEncrypted(SztouReading *reading, SztouPemConfig *config, const char *channelName) {
    const SztouChannelKey key = sztouBuildChannelKey("encrypted.channel.", channelName);
    const SztouWord word =
        sztouReadWord(reading, key.text, SZTOU_YES_NO, SztouRefusal::keyOnly, &config->encrypted);
    if (word == SztouWord::absent)
        TRC_PARMS_AT("%s : %d  Optional PEMMCA ENCRYPTED key not set. Setting a default value.");
    if (word == SztouWord::refused)
        TRC_PARMS_AT("%s : %d  PEMMCA ENCRYPTED key has incorrect value.");
    return sztouGoesOn(word);
}

static bool readPassword(SztouReading *reading, SztouPemConfig *config, const char *channelName) {
    const SztouChannelKey key = sztouBuildChannelKey("password.channel.", channelName);
    const SztouProtectedKey password = {.key = key.text,
                                        .missingResult = SZTOU_QUIET,
                                        .absentIsEmpty = false,
                                        .lookupErrorKey = key.text,
                                        .restoreErrorKey = key.text};
    if (config->encrypted == 0)
        return sztouReadText(reading, key.text, config->password, SZTOU_QUIET);
    return sztouReadProtected(reading, password, config->password, FUNCTION_GET_MCA_PEM_CONFIG,
                              config->fips);
}

// A channel without keys of its own is no fault, so an absent key is only a result.
static bool readMCAPemSection(SztouReading *reading, SztouPemConfig *config,
                              const char *channelName) {
    return sztouCheckArguments(reading, config != nullptr && channelName != nullptr) &&
           loadChannelSection(reading) && readEncrypted(reading, config, channelName) &&
           sztouReadText(reading, sztouBuildChannelKey("private.channel.", channelName).text,
                         config->privateKey, SZTOU_QUIET) &&
           sztouReadText(reading, sztouBuildChannelKey("public.channel.", channelName).text,
                         config->publicKey, SZTOU_QUIET) &&
           sztouReadLogical(reading, "fips", SZTOU_FLAG, &config->fips) &&
           sztouReadLogical(reading, "forceFipsOff", SZTOU_FLAG, &config->forceFipsOff) &&
           readPassword(reading, config, channelName) &&
           sztouReadLogical(reading,
                            sztouBuildChannelKey("checkpurpose.channel.", channelName).text,
                            PURPOSE, &config->checkpurpose);
}

uint32_t sztouGetMCAPemConfig(SztouPemConfig *config, const char *channelName,
                              const char *keystorePath, char *errorKey) {
    TRC_ENTRY(FUNCTION_GET_MCA_PEM_CONFIG);
    SztouReading reading;
    sztouBeginReading(&reading, "pem", keystorePath, errorKey);
    (void)readMCAPemSection(&reading, config, channelName);
    const uint32_t result = sztouEndReading(&reading);
    TRC_RETCODE(FUNCTION_GET_MCA_PEM_CONFIG, result);
    return result;
}
