/*
 * copy_lines.h - from the lines of the old file to those of the new one.
 */
#ifndef RUNVEKCRED_COPY_LINES_H
#define RUNVEKCRED_COPY_LINES_H

#include "shared/held_back_signals.h"
#include "ztpbe.h"

#include <cstdint>
#include <cstdio>

namespace runvekcred {

// Writes what stands for the lines of `input` to `output`, up to the first that fails. `input` was
// not read from before.
//  signals    null, or the signals that are held back: the function stops when one is pending.
//  readError  receives 0, or the error number of a read that failed. That ends the lines like the
//             end of the file does.
// Result: 0, that of processConfigLine, or REASON_STOPPED.
[[nodiscard]] int32_t rewriteLines(FILE *input, FILE *output, SvcPBESession *session,
                                   const replacement::HeldBackSignals *signals, int *readError);

} // namespace runvekcred

#endif
