/*
 * cms.cpp - readers of the section "cms": the general one, and the one of a channel.
 */
#include "shared.h"
#include "sztoumaa/channel_key.h"
#include "sztoumaa/sections.h"
#include "trace_numbers.h"
#include "zttrc.h"

#define TRC_SOURCE "lib/vek/sztoumaa"

namespace vek {

void readCms(Reading &reading, SztouKsConfig *config) {
    reading.readText("keystore", config->keystore, REQUIRED);
    reading.readText("certificate", config->certificate, REQUIRED);
    reading.readLogical("fips", FLAG, &config->fips);
}

void readChannelCms(Reading &reading, SztouKsConfig *config, const char *channelName) {
    reading.readText("keystore", config->keystore, QUIET);
    reading.readText(buildChannelKey("certificate.channel.", channelName).text, config->certificate,
                     QUIET);
    reading.readLogical("fips", FLAG, &config->fips);
    reading.readLogical("forceFipsOff", FLAG, &config->forceFipsOff);
}

} // namespace vek

uint32_t sztouGetKsConfig(SztouKsConfig *config, const char *keystorePath, char *errorKey) {
    return vek::readSection({vek::FUNCTION_GET_KS_CONFIG, vek::CMS_SECTION, keystorePath, errorKey},
                            config != nullptr,
                            [=](vek::Reading &reading) { vek::readCms(reading, config); });
}

uint32_t sztouGetMCAConfig(SztouKsConfig *config, const char *channelName, const char *keystorePath,
                           char *errorKey) {
    return vek::readSection(
        {vek::FUNCTION_GET_MCA_CONFIG, vek::CMS_SECTION, keystorePath, errorKey,
         [](const SztuList *list) {
             TRC_PARMS_AT("%s : %d  Reusing cached channel CMS configuration %p",
                          static_cast<const void *>(list));
         }},
        config != nullptr && channelName != nullptr,
        [=](vek::Reading &reading) { vek::readChannelCms(reading, config, channelName); });
}
