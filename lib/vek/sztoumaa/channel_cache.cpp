/*
 * channel_cache.cpp - the channel cache: the section "cms" of the standard file, kept in memory for
 * the channel readers. It has no lock: it is filled and released while no reader runs.
 */
#include "sztoumaa/channel_cache.h"

#include "shared.h"
#include "sztoumaa/channel_key.h"
#include "sztoumaa/load.h"
#include "sztoumaa/lookup.h"
#include "trace_numbers.h"
#include "zttrc.h"

#include <cstring>
#include <sys/stat.h>

#define TRC_SOURCE "lib/vek/sztoumaa"

namespace vek {
namespace {

// Kinds of processes that serve channels, one bit each.
constexpr uint64_t CACHING_KINDS = (1ULL << 12) | (1ULL << 14) | (1ULL << 15) | (1ULL << 47);
constexpr int32_t HIGHEST_KIND = 47;

char cachedPath[SZTUC_PATH_CAPACITY];
struct stat cachedStatus;
SztuList *cached; // null: the cache is empty

bool processMayCache() {
    const int32_t kind = thdProcess.processKind;
    return kind >= 0 && kind <= HIGHEST_KIND && ((CACHING_KINDS >> kind) & 1) != 0;
}

uint32_t fillCache() {
    if (!processMayCache())
        return SZTU_OK;
    const uint32_t located = sztucGetConfigFilePath(cachedPath, FILE_VARIABLE, FILE_NAME);
    if (located != SZTU_OK)
        return located;
    int32_t exists = 0;
    if (svcFileExists(cachedPath, &exists) != SVC_OK || exists == 0 ||
        stat(cachedPath, &cachedStatus) != 0)
        return SZTU_CANNOT_READ;
    // A section cached before is not released here: the caller empties the cache first.
    SztuList *section = nullptr;
    const uint32_t result = loadSection(cachedPath, &section, CMS_SECTION, /* reportErrors= */ 0);
    cached = section;
    return result;
}

// Whole seconds are compared: a change in the second of the caching is not noticed.
bool timeIsCached(const struct stat &status) {
    return status.st_mtime == cachedStatus.st_mtime;
}

bool hasCertificate(SztuList *list, const char *key) {
    char label[sizeof(SztouKsConfig::certificate)];
    return getText(list, cachedPath, key, label, SZTU_KEY_NOT_PRESENT) == SZTU_OK;
}

bool changedFileHasCertificate(const char *key) {
    SztuList *list = nullptr;
    const bool found =
        loadSection(cachedPath, &list, CMS_SECTION, /* reportErrors= */ 0) == SZTU_OK &&
        hasCertificate(list, key);
    sztucFreeConfigList(list);
    return found;
}

// An empty cache means no interception, whatever the file says.
bool isInterceptEnabled(const char *channelName) {
    struct stat status;
    if (channelName == nullptr || cached == nullptr || stat(cachedPath, &status) != 0)
        return false;
    const ChannelKey key = buildChannelKey("certificate.channel.", channelName);
    return timeIsCached(status) ? hasCertificate(cached, key.text)
                                : changedFileHasCertificate(key.text);
}

} // namespace

SztuList *cachedSection(const char *keystorePath) {
    struct stat status;
    if (cached == nullptr || keystorePath == nullptr || strcmp(keystorePath, cachedPath) != 0 ||
        stat(keystorePath, &status) != 0 || !timeIsCached(status))
        return nullptr;
    return cached;
}

} // namespace vek

uint32_t sztouCacheMCAKeystoreConf() {
    ztm::TraceScope trace(vek::FUNCTION_CACHE_MCA_CONFIG);
    return trace.returns(vek::fillCache());
}

void sztouReleaseMCAKeyStoreConf() {
    const ztm::TraceScope trace(vek::FUNCTION_RELEASE_MCA_CONFIG);
    sztucFreeConfigList(vek::cached);
    vek::cached = nullptr;
}

int32_t sztouIsMCAInterceptEnabled(const char *channelName) {
    ztm::TraceScope trace(vek::FUNCTION_IS_MCA_INTERCEPT_ENABLED);
    return trace.returns(vek::isInterceptEnabled(channelName) ? 1 : 0);
}
