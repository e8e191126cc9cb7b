/*
 * new_file.h - from the old keystore.conf to the new one.
 */
#ifndef RUNVEKCRED_NEW_FILE_H
#define RUNVEKCRED_NEW_FILE_H

#include "shared/locked_directory.h"
#include "ztpbe.h"

#include <cstdint>

namespace runvekcred {

// What a run reads and writes: in place when outputPath is null or spelled like keystorePath.
struct RunFiles {
    const char *keystorePath;
    const char *outputPath;
    const replacement::LockedDirectory &directory; // of keystorePath
};

// Whether a run would write over, remove or read as keystore.conf the file with this status.
[[nodiscard]] bool belongsToRun(const struct stat &file, const RunFiles &files);

// Protects keystore.conf. Result: 0, a reason code, or -1 when the new file could not be renamed.
[[nodiscard]] int32_t rewriteKeystore(const RunFiles &files, SvcPBESession *session);

} // namespace runvekcred

#endif
