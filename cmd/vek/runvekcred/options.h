/*
 * options.h - what the command line asks for.
 */
#ifndef RUNVEKCRED_OPTIONS_H
#define RUNVEKCRED_OPTIONS_H

#include "ztpbe.h"

#include <cstdint>
#include <span>

namespace runvekcred {

struct CommandSettings {
    const char *keystorePath = nullptr;           // -f, else null: standard search
    const char *outputPath = nullptr;             // -o, else null: in place
    const char *keyFilePath = nullptr;            // -sf, else null: the other key sources
    int32_t algorithm = SVC_PBE_ALGORITHM_LATEST; // -sp; not yet checked for its range
    int32_t fipsFlag = 0;                         // -sm
};

enum class ScanResult { done, usageError, help };

// Reads the arguments behind the program's name. On a usage error *argumentAtFault is the argument
// to name in the message.
[[nodiscard]] ScanResult scanOptions(std::span<const char *const> arguments,
                                     CommandSettings *settings, const char **argumentAtFault);

// The algorithms that -sp accepts.
[[nodiscard]] bool isKnownAlgorithm(int32_t algorithm);

} // namespace runvekcred

#endif
