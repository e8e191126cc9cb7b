/*
 * channel_cache.h - the channel cache as the channel readers see it; private to the readers.
 */
#ifndef SZTOUMAA_CHANNEL_CACHE_H
#define SZTOUMAA_CHANNEL_CACHE_H

#include "ztvek.h"

namespace vek {

// cachedSection returns the cached section "cms" when it serves keystorePath, else null.
// `keystorePath` must not be null while the cache is filled. The list stays the cache's.
[[nodiscard]] SztuList *cachedSection(const char *keystorePath);

} // namespace vek

#endif
