/*
 * refused_memory.h - the failure record of a refused allocation; private to the library.
 */
#ifndef REFUSED_MEMORY_H
#define REFUSED_MEMORY_H

#include "ztsvc.h"

// Writes the failure record of memory that was refused at `line` of `source`.
inline void sztuRecordNoMemory(const char *source, int32_t line) {
    svcSaveFileContextSccsId(source, line);
    svcRecordFailure(SVC_COMPONENT_VEK, SVC_FAILURE_MEMORY, SVC_PROBE_MEMORY,
                     /* inserts= */ nullptr);
}

#endif
