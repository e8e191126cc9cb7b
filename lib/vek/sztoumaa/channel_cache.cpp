/*
 * channel_cache.cpp - the channel cache: the section "cms" of the standard file, kept in memory for the
 * channel readers. It has no lock: it is filled and released while no reader runs.
 */
#include "shared.h"
#include "sztoumaa/section_reading.h"
#include "trace_numbers.h"

#include "zttrc.h"

#include <cstring>
#include <sys/stat.h>

#define TRC_SOURCE "lib/vek/sztoumaa"

// Kinds of processes that serve channels, one bit each.
static constexpr uint64_t CACHING_KINDS = (1ULL << 12) | (1ULL << 14) | (1ULL << 15) | (1ULL << 47);
static constexpr int32_t HIGHEST_KIND = 47;

static char cachedPath[SZTUC_PATH_CAPACITY];
static struct stat cachedStatus;
static SztuList *cachedSection;

static bool processMayCache() {
    const int32_t kind = thdProcess.processKind;
    return kind >= 0 && kind <= HIGHEST_KIND && ((CACHING_KINDS >> kind) & 1) != 0;
}

static uint32_t fillCache() {
    if (!processMayCache())
        return SZTU_OK;
    const uint32_t located = sztucGetConfigFilePath(cachedPath, vek::FILE_VARIABLE, vek::FILE_NAME);
    if (located != SZTU_OK)
        return located;
    int32_t exists = 0;
    if (svcFileExists(cachedPath, &exists) != SVC_OK || exists == 0 ||
        stat(cachedPath, &cachedStatus) != 0)
        return SZTU_CANNOT_READ;
    // A section cached before is not released here: the caller empties the cache first.
    SztuList *section = nullptr;
    const uint32_t result =
        sztouLoadConfigSection(cachedPath, &section, "cms", /* reportErrors= */ 0);
    cachedSection = section;
    return result;
}

uint32_t sztouCacheMCAKeystoreConf() {
    TRC_ENTRY(FUNCTION_CACHE_MCA_CONFIG);
    const uint32_t result = fillCache();
    TRC_RETCODE(FUNCTION_CACHE_MCA_CONFIG, result);
    return result;
}

void sztouReleaseMCAKeyStoreConf() {
    TRC_ENTRY(FUNCTION_RELEASE_MCA_CONFIG);
    sztucFreeConfigList(cachedSection);
    cachedSection = nullptr;
    TRC_RETCODE(FUNCTION_RELEASE_MCA_CONFIG, SZTU_OK);
}

// Whole seconds are compared: a change in the second of the caching is not noticed.
static bool timeIsCached(const struct stat &status) {
    return status.st_mtime == cachedStatus.st_mtime;
}

SztuList *sztouCachedSection(const char *keystorePath) {
    struct stat status;
    if (cachedSection == nullptr || keystorePath == nullptr ||
        strcmp(keystorePath, cachedPath) != 0 || stat(keystorePath, &status) != 0 ||
        !timeIsCached(status))
        return nullptr;
    return cachedSection;
}

static bool hasCertificate(SztuList *list, const char *key) {
    char label[sizeof(SztouKsConfig::certificate)];
    return sztouGetConfigValue(list, cachedPath, key, label, sizeof(label), SZTOU_QUIET) == SZTU_OK;
}

static bool changedFileHasCertificate(const char *key) {
    SztuList *list = nullptr;
    const bool found =
        sztouLoadConfigSection(cachedPath, &list, "cms", /* reportErrors= */ 0) == SZTU_OK &&
        hasCertificate(list, key);
    sztucFreeConfigList(list);
    return found;
}

// An empty cache means no interception, whatever the file says.
static bool isInterceptEnabled(const char *channelName) {
    struct stat status;
    if (channelName == nullptr || cachedSection == nullptr || stat(cachedPath, &status) != 0)
        return false;
    const SztouChannelKey key = sztouBuildChannelKey("certificate.channel.", channelName);
    return timeIsCached(status) ? hasCertificate(cachedSection, key.text)
                                : changedFileHasCertificate(key.text);
}

int32_t sztouIsMCAInterceptEnabled(const char *channelName) {
    TRC_ENTRY(FUNCTION_IS_MCA_INTERCEPT_ENABLED);
    const int32_t enabled = isInterceptEnabled(channelName) ? 1 : 0;
    TRC_RETCODE(FUNCTION_IS_MCA_INTERCEPT_ENABLED, enabled);
    return enabled;
}
