/*
 * credential_line.h - the transformation of one line of keystore.conf.
 */
#ifndef RUNVEKCRED_CREDENTIAL_LINE_H
#define RUNVEKCRED_CREDENTIAL_LINE_H

#include "shared.h"
#include "ztpbe.h"

#include <cstdint>
#include <cstdio>
#include <iterator>

namespace runvekcred {

inline constexpr int LINE_CAPACITY = 8192; // characters of one piece of a line with its terminator

// Whether the last marker line of each row of vek::CREDENTIALS said YES. A marker line acts on all
// lines behind it, so the state is that of one file and begins anew with forgetMarkers.
extern bool isMarkedYes[std::size(vek::CREDENTIALS)];
void forgetMarkers();

// Whether the first word of a line, which ends in a newline or NUL, begins with the key of a
// credential or marker. When it does not, processConfigLine copies the line.
[[nodiscard]] bool beginsWithTableKey(const char *line);

// Writes what stands for `line` in the protected file to `output`. The line is changed while the
// function runs and is not restored. Result: 0, or the code of the encryption that failed; the line
// was then copied unchanged.
[[nodiscard]] int32_t processConfigLine(char *line, FILE *output, SvcPBESession *session);

} // namespace runvekcred

#endif
