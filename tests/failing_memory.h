// An allocator in place of the product's, for tests of what happens when memory is refused. It takes
// the place of the whole allocator when a test includes it, because the linker then needs no other.
#ifndef FAILING_MEMORY_H
#define FAILING_MEMORY_H

#include "pbeinternal.h"
#include "ztsvc.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

// The allocation that is refused, counted from 1; 0 and less: none.
static int refusedAllocation = 0;
// The latest one that was granted.
[[maybe_unused]] static void *latestAllocation = nullptr;
// How many were granted and not released.
static int liveAllocations = 0;

uint32_t svcGetMemFn(uint32_t, uint16_t, uint32_t, size_t length, uint32_t, void **buffer) {
    *buffer = --refusedAllocation == 0 ? nullptr : calloc(1, length);
    if (*buffer != nullptr) {
        latestAllocation = *buffer;
        ++liveAllocations;
        return SVC_OK;
    }
    errno = ENOMEM;
    return SVC_NO_STORAGE;
}

uint32_t svcFreeMemFn(uint32_t, uint16_t, uint32_t, void *buffer) {
    svcpbeForgetKey(buffer);
    liveAllocations -= buffer != nullptr;
    free(buffer);
    return SVC_OK;
}

void svcWipe(void *buffer, size_t length) {
    if (length != 0)
        explicit_bzero(buffer, length);
}

#endif
