/*
 * memory.cpp - the one allocator of the product. Memory is cleared when it is handed out and wiped
 * before it is released, so that no secret outlives its buffer, whoever releases it.
 */
#include "pbe/internal.h"
#include "ztsvc.h"

#include <cstdlib>
#include <cstring>
#include <malloc.h>

uint32_t svcGetMemFn(uint32_t /*subpool*/, uint16_t /*component*/, uint32_t /*allocation*/,
                     size_t length, uint32_t /*options*/, void **buffer) {
    if (buffer == nullptr)
        return SVC_BAD_ARGUMENTS;
    *buffer = nullptr;
    if (length == 0)
        return SVC_BAD_ARGUMENTS;
    *buffer = calloc(1, length);
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
