/*
 * pem.cpp - readers of the section "pem": the general one, and the one of a channel.
 */
#include "shared.h"
#include "sztoumaa/channel_key.h"
#include "sztoumaa/sections.h"
#include "trace_numbers.h"
#include "zttrc.h"

#define TRC_SOURCE "lib/vek/sztoumaa"

namespace vek {
namespace {

constexpr WordRule MARKER = {
    .words = YES_NO,
    .traceAbsent =
        [](const char *) {
            TRC_PARMS_AT("%s : %d  Optional PEM ENCRYPTED key not set. Setting a default value.");
        },
    .traceRefused =
        [](const char *) { TRC_PARMS_AT("%s : %d  PEM ENCRYPTED key has incorrect value."); },
    .showsWord = true};
constexpr WordRule CHANNEL_MARKER = {
    .words = YES_NO,
    .traceAbsent =
        [](const char *) {
            TRC_PARMS_AT(
                "%s : %d  Optional PEMMCA ENCRYPTED key not set. Setting a default value.");
        },
    .traceRefused =
        [](const char *) { TRC_PARMS_AT("%s : %d  PEMMCA ENCRYPTED key has incorrect value."); },
    .showsWord = false};

// An absent "checkpurpose" is 0 in the channel reader, unlike in the general one.
constexpr LogicalNumbers PURPOSE = {.yes = 2, .no = 1, .absent = 1, .failed = 0};
constexpr LogicalNumbers CHANNEL_PURPOSE = {.yes = 2, .no = 1, .absent = 0, .failed = 0};

} // namespace

void readPem(Reading &reading, SztouPemConfig *config) {
    reading.readWord("encrypted", MARKER, &config->encrypted);
    reading.readText("private", config->privateKey, REQUIRED);
    reading.readText("public", config->publicKey, REQUIRED);
    reading.readLogical("fips", FLAG, &config->fips);
    reading.readCredential("password", config->password, REQUIRED,
                           {.encrypted = config->encrypted, .fips = config->fips});
    if (!reading.readLogical("checkpurpose", PURPOSE, &config->checkpurpose) && reading.goesOn())
        TRC_PARMS_AT("%s : %d  Defaulting to not check extended key usage");
}

// "forceFipsOff" is handed on and not looked at here.
void readChannelPem(Reading &reading, SztouPemConfig *config, const char *channelName) {
    const auto key = [&](const char *beginning) { return buildChannelKey(beginning, channelName); };
    reading.readWord(key("encrypted.channel.").text, CHANNEL_MARKER, &config->encrypted);
    reading.readText(key("private.channel.").text, config->privateKey, QUIET);
    reading.readText(key("public.channel.").text, config->publicKey, QUIET);
    reading.readLogical("fips", FLAG, &config->fips);
    reading.readLogical("forceFipsOff", FLAG, &config->forceFipsOff);
    reading.readCredential(key("password.channel.").text, config->password, QUIET,
                           {.encrypted = config->encrypted, .fips = config->fips});
    reading.readLogical(key("checkpurpose.channel.").text, CHANNEL_PURPOSE, &config->checkpurpose);
}

} // namespace vek

uint32_t sztouGetPemConfig(SztouPemConfig *config, const char *keystorePath, char *errorKey) {
    return vek::readSection(
        {vek::FUNCTION_GET_PEM_CONFIG, vek::PEM_SECTION, keystorePath, errorKey}, config != nullptr,
        [=](vek::Reading &reading) { vek::readPem(reading, config); });
}

uint32_t sztouGetMCAPemConfig(SztouPemConfig *config, const char *channelName,
                              const char *keystorePath, char *errorKey) {
    return vek::readSection(
        {vek::FUNCTION_GET_MCA_PEM_CONFIG, vek::PEM_SECTION, keystorePath, errorKey,
         [](const SztuList *list) {
             TRC_PARMS_AT("%s : %d  Reusing cached channel PEM configuration %p",
                          static_cast<const void *>(list));
         }},
        config != nullptr && channelName != nullptr,
        [=](vek::Reading &reading) { vek::readChannelPem(reading, config, channelName); });
}
