/*
 * trace.h - start and end of the trace facility, for start-up and termination.
 */
#ifndef ZTM_TRACE_H
#define ZTM_TRACE_H

#include <cstdint>

namespace ztm {

// startTrace settles whether this process traces. A trace file that cannot be used is no failure:
// the process runs untraced. Result: SVC_OK, SVC_THREAD_KEY_LOST.
[[nodiscard]] uint32_t startTrace();

// stopTrace closes the trace file; later records are lost.
void stopTrace();

} // namespace ztm

#endif
