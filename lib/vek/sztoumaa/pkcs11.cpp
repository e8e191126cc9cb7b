/*
 * pkcs11.cpp - reader of the section "pkcs11".
 */
#include "shared.h"
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
            TRC_PARMS_AT(
                "%s : %d  Optional PKCS #11 ENCRYPTED key not set. Setting a default value.");
        },
    .traceRefused =
        [](const char *) { TRC_PARMS_AT("%s : %d  PKCS #11 ENCRYPTED key has incorrect value."); },
    .showsWord = true};

constexpr TextRule SECONDARY_KEYSTORE = {
    .missingResult = SZTU_KEY_NOT_PRESENT,
    .traceAbsent =
        [](const char *) {
            TRC_PARMS_AT("%s : %d  Optional PKCS #11 secondary_keystore key not set");
        },
    .isNamed = true};

} // namespace

void readPkcs11(Reading &reading, SztouPkcs11Config *config) {
    reading.readWord("encrypted", MARKER, &config->encrypted);
    reading.readText("library", config->library, REQUIRED);
    reading.readText("certificate", config->certificate, REQUIRED);
    reading.readText("token", config->token, REQUIRED);
    reading.readLogical("fips", FLAG, &config->fips);
    reading.readCredential("token_pin", config->token_pin, REQUIRED,
                           {.encrypted = config->encrypted, .fips = config->fips});
    // The state is written only when there is a secondary key store.
    if (reading.readText("secondary_keystore", config->secondary_keystore, SECONDARY_KEYSTORE))
        config->secondaryKeystoreState = 0;
}

} // namespace vek

uint32_t sztouGetPkcs11Config(SztouPkcs11Config *config, const char *keystorePath, char *errorKey) {
    return vek::readSection(
        {vek::FUNCTION_GET_PKCS11_CONFIG, vek::PKCS11_SECTION, keystorePath, errorKey},
        config != nullptr, [=](vek::Reading &reading) { vek::readPkcs11(reading, config); });
}
