/*
 * memory.h - memory that is wiped at the end of the process's services, whoever forgets it.
 */
#ifndef ZTM_MEMORY_H
#define ZTM_MEMORY_H

#include <cstddef>
#include <cstdint>

namespace ztm {

// allocateListed allocates as svcGetMemFn does, and keeps the memory on a list until it is released
// with svcFreeMemFn. Result: SVC_OK, SVC_NO_STORAGE.
[[nodiscard]] uint32_t allocateListed(size_t length, void **buffer);

// releaseListed wipes and releases all that is on the list.
void releaseListed();

} // namespace ztm

#endif
