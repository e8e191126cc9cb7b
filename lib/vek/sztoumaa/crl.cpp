/*
 * crl.cpp - reader of the section "crl".
 */
#include "shared.h"
#include "sztoumaa/sections.h"
#include "trace_numbers.h"
#include "zttrc.h"

#include <cstring>

#define TRC_SOURCE "lib/vek/sztoumaa"

namespace vek {
namespace {

constexpr WordRule MARKER = {
    .words = YES_NO,
    .traceAbsent =
        [](const char *) {
            TRC_PARMS_AT("%s : %d  Optional CRL ENCRYPTED key not set. Setting a default value.");
        },
    .traceRefused =
        [](const char *) { TRC_PARMS_AT("%s : %d  CRL ENCRYPTED key has incorrect value."); },
    .showsWord = true};

// "cdp" has three states, because 0 says that the key is not there.
constexpr LogicalNumbers CDP = {.yes = 2, .no = 1, .absent = 0, .failed = 0};

// Port, user, password and version without a host are dropped.
void dropServerWithoutHost(SztouLdapServer *server) {
    if (server->host[0] != '\0')
        return;
    server->port = -1;
    memset(server->user, 0, sizeof server->user);
    svcWipe(server->pass, sizeof server->pass);
    server->version = -1;
}

} // namespace

void readCrl(Reading &reading, SztouCrlConfig *config, int32_t fips) {
    SztouLdapServer *const server = &config->ldapServers[0];
    reading.readWord("encrypted", MARKER, &config->encrypted);
    reading.readLogical("cdp", CDP, &config->cdp);
    reading.readText("ldap.host", server->host, OPTIONAL);
    reading.readInt("ldap.port", &server->port);
    reading.readText("ldap.user", server->user, OPTIONAL);
    // With "encrypted" an absent password is decrypted as an empty text all the same, which fails;
    // and the error key names the credential as the reader of "pkcs11" does.
    reading.readCredential("ldap.pass", server->pass, OPTIONAL,
                           {.encrypted = config->encrypted, .fips = fips, .errorKey = "token_pin"});
    reading.readInt("ldap.version", &server->version);
    if (reading.goesOn())
        dropServerWithoutHost(server);
    reading.readText("ldap.library", config->ldapLibrary, OPTIONAL);
    reading.readInt("ldap.cache_lifetime", &config->ldapCacheLifetime);
    reading.readInt("ldap.cache_size", &config->ldapCacheSize);
    reading.readText("http.proxy.host", config->httpProxyHost, OPTIONAL);
    reading.readInt("http.proxy.port", &config->httpProxyPort);
    reading.readInt("http.max_response_size", &config->httpMaxResponseSize);
    reading.readInt("http.timeout", &config->httpTimeout);
    reading.readInt("http.cache_size", &config->httpCacheSize);
    // The reserved text has no key.
    if (reading.goesOn())
        memset(config->reserved, 0, sizeof config->reserved);
    reading.readLogical("log", FLAG, &config->log);
    // A section that sets nothing is accepted; "log" alone sets something, and is refused.
    if (reading.goesOn() && reading.foundAny() && config->cdp == 0 && server->host[0] == '\0') {
        reading.stop(SZTU_BAD_CONFIG, "ldap.host");
        TRC_PARMS_AT("%s : %d  CRL configuration is not usable.");
    }
}

} // namespace vek

uint32_t sztouGetCrlConfig(SztouCrlConfig *config, const char *keystorePath, char *errorKey,
                           int32_t fips) {
    return vek::readSection(
        {vek::FUNCTION_GET_CRL_CONFIG, vek::CRL_SECTION, keystorePath, errorKey}, config != nullptr,
        [=](vek::Reading &reading) { vek::readCrl(reading, config, fips); });
}
