/*
 * ocsp.cpp - reader of the section "ocsp".
 */
#include "shared.h"
#include "sztoumaa/sections.h"
#include "trace_numbers.h"
#include "zttrc.h"

#define TRC_SOURCE "lib/vek/sztoumaa"

namespace vek {
namespace {

// "enable" has three states, because 0 says that the key is not there.
constexpr LogicalNumbers ENABLE = {.yes = 2, .no = 1, .absent = 0, .failed = 0};
constexpr LogicalNumbers CHOICE = {.yes = 1, .no = 0, .absent = -1, .failed = -1};

constexpr WordValue UNKNOWN_WORDS[] = {{"REJECT", 1}, {"ACCEPT", 2}, {"WARN", 3}};
constexpr WordRule UNKNOWN = {
    .words = UNKNOWN_WORDS,
    .traceAbsent =
        [](const char *) {
            TRC_PARMS_AT("%s : %d  Optional OCSP UNKNOWN key not set. Setting a default value.");
        },
    .traceRefused =
        [](const char *) { TRC_PARMS_AT("%s : %d  OCSP UNKNOWN key has incorrect value."); },
    .showsWord = true};

constexpr int32_t LOWEST_SIGNATURE = -1;
constexpr int32_t HIGHEST_SIGNATURE = 2;

} // namespace

void readOcsp(Reading &reading, SztouOcspConfig *config) {
    reading.readLogical("enable", ENABLE, &config->enable);
    reading.readText("url", config->url, OPTIONAL);
    reading.readText("http.proxy.host", config->httpProxyHost, OPTIONAL);
    reading.readInt("http.proxy.port", &config->httpProxyPort);
    reading.readWord("unknown", UNKNOWN, &config->unknown);
    reading.readLogical("nonce.generation", CHOICE, &config->nonceGeneration);
    reading.readLogical("nonce.check", CHOICE, &config->nonceCheck);
    reading.readInt("nonce.size", &config->nonceSize);
    reading.readLogical("http.get", CHOICE, &config->httpGet);
    reading.readInt("max_response_size", &config->maxResponseSize);
    reading.readInt("cache_size", &config->cacheSize);
    reading.readInt("timeout", &config->timeout);
    reading.readInt("signature", &config->signature);
    // A refused mode stays in the record.
    if (reading.goesOn() &&
        (config->signature < LOWEST_SIGNATURE || config->signature > HIGHEST_SIGNATURE)) {
        reading.stop(SZTU_BAD_CONFIG, "signature");
        TRC_PARMS_AT("%s : %d  Wrong OCSP SIGNATURE value");
    }
    reading.readLogical("log", FLAG, &config->log);
    // "unknown" alone sets nothing; "log" alone does, and is refused.
    if (reading.goesOn() && reading.foundAny() && config->enable == 0 && config->url[0] == '\0' &&
        config->httpProxyHost[0] == '\0') {
        reading.stop(SZTU_BAD_CONFIG, "url");
        TRC_PARMS_AT("%s : %d  Missing mandatory OCSP keys ");
    }
}

} // namespace vek

uint32_t sztouGetOcspConfig(SztouOcspConfig *config, const char *keystorePath, char *errorKey) {
    return vek::readSection(
        {vek::FUNCTION_GET_OCSP_CONFIG, vek::OCSP_SECTION, keystorePath, errorKey},
        config != nullptr, [=](vek::Reading &reading) { vek::readOcsp(reading, config); });
}
