/*
 * memory.cpp - the one allocator of the product. Memory is cleared when it is handed out and wiped
 * before it is released, so that no secret outlives its buffer, whoever releases it.
 */
#include "pbeinternal.h"
#include "ztsvc.h"

#include <cstdlib>
#include <cstring>
#include <malloc.h>

// malloc keeps chunks up to this size ready for the thread, and calloc does not use them.
static constexpr size_t CACHED_BY_THREAD = 1024;

uint32_t svcGetMemFn(uint32_t /*subpool*/, uint16_t /*component*/, uint32_t /*allocation*/,
                     size_t length, uint32_t /*options*/, void **buffer) {
    if (buffer == nullptr)
        return SVC_BAD_ARGUMENTS;
    *buffer = nullptr;
    if (length == 0)
        return SVC_BAD_ARGUMENTS;
    *buffer = length <= CACHED_BY_THREAD ? malloc(length) : calloc(1, length);
    if (*buffer != nullptr && length <= CACHED_BY_THREAD)
        explicit_bzero(*buffer, length);
    return *buffer == nullptr ? SVC_NO_STORAGE : SVC_OK;
}

uint32_t svcFreeMemFn(uint32_t /*subpool*/, uint16_t /*component*/, uint32_t /*allocation*/,
                      void *buffer) {
    if (buffer == nullptr)
        return SVC_OK;
    svcpbeForgetKey(buffer);
    svcWipe(buffer, malloc_usable_size(buffer));
    free(buffer);
    return SVC_OK;
}

void svcWipe(void *buffer, size_t length) {
    if (length != 0)
        explicit_bzero(buffer, length);
}
