/*
 * allocation.h - the memory of the library; a request that is refused leaves a failure record.
 */
#ifndef ALLOCATION_H
#define ALLOCATION_H

#include "ztsvc.h"

#include <cerrno>

namespace vek {

// On whose behalf memory is taken and a trace is written.
struct Attribution {
    uint16_t component;
    uint32_t function;
};

// allocate takes cleared memory, which is released with svcFreeMemFn; null after a failure, errno
// is then that of the refusal. `module` and `line` stand in the failure record. Result: of
// svcGetMemFn.
[[nodiscard]] inline uint32_t allocate(const char *module, const Attribution &owner, size_t length,
                                       void **memory, int32_t line = __builtin_LINE()) {
    const uint32_t result = svcGetMemFn(/* subpool= */ 0, owner.component, owner.function, length,
                                        /* options= */ 0, memory);
    if (result == SVC_OK)
        return SVC_OK;
    const int refusal = errno;
    svcSaveFileContextSccsId(module, line);
    svcRecordFailure(SVC_COMPONENT_VEK, SVC_FAILURE_MEMORY, SVC_PROBE_MEMORY,
                     /* inserts= */ nullptr);
    errno = refusal;
    return result;
}

// The same on behalf of a function of the library. Returns the memory, or null.
[[nodiscard]] inline void *allocate(const char *module, uint32_t function, size_t length,
                                    int32_t line = __builtin_LINE()) {
    void *memory = nullptr;
    const Attribution owner = {SVC_COMPONENT_VEK, function};
    return allocate(module, owner, length, &memory, line) == SVC_OK ? memory : nullptr;
}

// release takes memory of allocate back; null does nothing.
inline void release(uint32_t function, void *memory) {
    (void)svcFreeMemFn(/* subpool= */ 0, SVC_COMPONENT_VEK, function, memory);
}

} // namespace vek

#endif
