/*
 * crl.cpp - reader of the section "crl".
 */
#include "sztoumaa/section_reading.h"
#include "trace_numbers.h"

#include "zttrc.h"

#include <cstring>

#define TRC_SOURCE "lib/vek/sztoumaa"

// "cdp" has three states, because 0 says that the key is not there.
static constexpr SztouLogicalNumbers CDP = {.yes = 2, .no = 1, .absent = 0, .failed = 0};

static bool readEncrypted(SztouReading *reading, SztouCrlConfig *config) {
    const SztouWord word = sztouReadWord(reading, "encrypted", SZTOU_YES_NO,
                                         SztouRefusal::keyAndWord, &config->encrypted);
    if (word == SztouWord::absent)
        TRC_PARMS_AT("%s : %d  Optional CRL ENCRYPTED key not set. Setting a default value.");
    if (word == SztouWord::refused)
        TRC_PARMS_AT("%s : %d  CRL ENCRYPTED key has incorrect value.");
    return sztouGoesOn(word);
}

// With "encrypted" an absent password is decrypted as an empty text all the same, which fails; and the
// error key names the credential as the reader of "pkcs11" does.
static bool readPassword(SztouReading *reading, int32_t encrypted, int32_t fips,
                         SztouLdapServer *server) {
    static constexpr SztouProtectedKey PASSWORD = {.key = "ldap.pass",
                                                   .missingResult = SZTOU_QUIET,
                                                   .absentIsEmpty = true,
                                                   .lookupErrorKey = nullptr,
                                                   .restoreErrorKey = "token_pin"};
    if (encrypted == 0)
        return sztouReadOptionalText(reading, "ldap.pass", server->pass);
    return sztouReadProtected(reading, PASSWORD, server->pass, FUNCTION_GET_CRL_CONFIG, fips);
}

// Port, user, password and version without a host are dropped.
static void dropServerWithoutHost(SztouLdapServer *server) {
    if (server->host[0] != '\0')
        return;
    server->port = -1;
    memset(server->user, 0, sizeof(server->user));
    svcWipe(server->pass, sizeof(server->pass));
    server->version = -1;
}

static bool readLdapServer(SztouReading *reading, int32_t encrypted, int32_t fips,
                           SztouLdapServer *server) {
    if (!(sztouReadOptionalText(reading, "ldap.host", server->host) &&
          sztouReadOptionalInt(reading, "ldap.port", &server->port) &&
          sztouReadOptionalText(reading, "ldap.user", server->user) &&
          readPassword(reading, encrypted, fips, server) &&
          sztouReadOptionalInt(reading, "ldap.version", &server->version)))
        return false;
    dropServerWithoutHost(server);
    return true;
}

// The reserved text has no key; it is cleared once everything before "log" could be read.
static bool readLog(SztouReading *reading, SztouCrlConfig *config) {
    memset(config->reserved, 0, sizeof(config->reserved));
    return sztouReadLogical(reading, "log", SZTOU_FLAG, &config->log);
}

// A section that sets nothing is accepted; "log" alone sets something, and is refused.
static bool checkUsable(SztouReading *reading, const SztouCrlConfig *config) {
    if (!reading->anyKeyFound || config->cdp != 0 || config->ldapServers[0].host[0] != '\0')
        return true;
    TRC_PARMS_AT("%s : %d  CRL configuration is not usable.");
    return sztouStopReading(reading, SZTU_BAD_CONFIG, "ldap.host");
}

static bool readCrlSection(SztouReading *reading, SztouCrlConfig *config, int32_t fips) {
    return sztouCheckArguments(reading, config != nullptr) &&
           sztouLoadSection(reading, /* reportErrors= */ 1) && readEncrypted(reading, config) &&
           sztouReadLogical(reading, "cdp", CDP, &config->cdp) &&
           readLdapServer(reading, config->encrypted, fips, &config->ldapServers[0]) &&
           sztouReadOptionalText(reading, "ldap.library", config->ldapLibrary) &&
           sztouReadOptionalInt(reading, "ldap.cache_lifetime", &config->ldapCacheLifetime) &&
           sztouReadOptionalInt(reading, "ldap.cache_size", &config->ldapCacheSize) &&
           sztouReadOptionalText(reading, "http.proxy.host", config->httpProxyHost) &&
           sztouReadOptionalInt(reading, "http.proxy.port", &config->httpProxyPort) &&
           sztouReadOptionalInt(reading, "http.max_response_size", &config->httpMaxResponseSize) &&
           sztouReadOptionalInt(reading, "http.timeout", &config->httpTimeout) &&
           sztouReadOptionalInt(reading, "http.cache_size", &config->httpCacheSize) &&
           readLog(reading, config) && checkUsable(reading, config);
}

uint32_t sztouGetCrlConfig(SztouCrlConfig *config, const char *keystorePath, char *errorKey,
                           int32_t fips) {
    TRC_ENTRY(FUNCTION_GET_CRL_CONFIG);
    SztouReading reading;
    sztouBeginReading(&reading, "crl", keystorePath, errorKey);
    (void)readCrlSection(&reading, config, fips);
    const uint32_t result = sztouEndReading(&reading);
    TRC_RETCODE(FUNCTION_GET_CRL_CONFIG, result);
    return result;
}
