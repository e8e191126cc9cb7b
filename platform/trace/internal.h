/*
 * internal.h - start and end of the trace facility, for the common services.
 */
#ifndef TRACEINTERNAL_H
#define TRACEINTERNAL_H

#include <cstdint>

// Settles whether this process traces. Result: SVC_OK, SVC_THREAD_KEY_LOST. A trace file that cannot be
// opened is no failure: the process runs untraced.
[[nodiscard]] uint32_t traceStart();

// Closes the trace file; later records are lost.
void traceStop();

#endif
