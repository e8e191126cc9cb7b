/*
 * reason.h - reason codes of the command's own. A step of the command returns 0 to go on; any other
 * code ends the run, and the exit status is made of it.
 */
#ifndef RUNVEKCRED_REASON_H
#define RUNVEKCRED_REASON_H

#include <cstdint>

namespace runvekcred {

enum Reason : int32_t {
    REASON_CANNOT_OPEN = 1, // or not read to its end, or not put on the disk
    REASON_STOPPED = 1,     // by a signal, which ends the process before anybody sees the code
    REASON_USAGE = 10,
    REASON_NOT_CONSISTENT = 20,
    REASON_NO_STORAGE = 2071,
    REASON_INITIALISATION_FAILED = 2195,
};

} // namespace runvekcred

#endif
