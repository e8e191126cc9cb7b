/*
 * memory.cpp - the one allocator of the product. Memory is cleared when it is handed out and wiped
 * before it is released, so that no secret outlives its buffer, whoever releases it.
 */
#include "common/memory.h"
#include "common/guards.h"
#include "ztsvc.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <malloc.h>
#include <pthread.h>

namespace ztm {

namespace {

// An entry of the list. It lies behind its buffer in the same allocation.
struct Listed {
    Listed *next;
    void *buffer;
};

pthread_mutex_t listMutex = PTHREAD_MUTEX_INITIALIZER;
std::atomic<Listed *> firstListed; // changed under the lock only

// Takes a buffer off the list, when it is there. Few are, and mostly none.
void forget(const void *buffer) {
    if (firstListed == nullptr)
        return;
    const Lock lock(listMutex);
    Listed *previous = nullptr;
    Listed *listed = firstListed;
    while (listed != nullptr && listed->buffer != buffer) {
        previous = listed;
        listed = listed->next;
    }
    if (listed == nullptr)
        return;
    if (previous == nullptr)
        firstListed = listed->next;
    else
        previous->next = listed->next;
}

} // namespace

uint32_t allocateListed(size_t length, void **buffer) {
    constexpr size_t ALIGNMENT = alignof(Listed);
    const size_t offset = (length + ALIGNMENT - 1) / ALIGNMENT * ALIGNMENT;
    *buffer = calloc(1, offset + sizeof(Listed));
    if (*buffer == nullptr)
        return SVC_NO_STORAGE;
    Listed *const listed = reinterpret_cast<Listed *>(static_cast<char *>(*buffer) + offset);
    listed->buffer = *buffer;
    const Lock lock(listMutex);
    listed->next = firstListed;
    firstListed = listed;
    return SVC_OK;
}

void releaseListed() {
    for (const Listed *listed = firstListed; listed != nullptr; listed = firstListed)
        releaseMemory(listed->buffer);
}

} // namespace ztm

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
    ztm::forget(buffer);
    svcWipe(buffer, malloc_usable_size(buffer));
    free(buffer);
    return SVC_OK;
}

void svcWipe(void *buffer, size_t length) {
    if (length != 0)
        explicit_bzero(buffer, length);
}
