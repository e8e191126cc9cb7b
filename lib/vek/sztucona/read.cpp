/*
 * read.cpp - reads a whole configuration file into one buffer.
 */
#include "allocation.h"
#include "trace_numbers.h"
#include "zttrc.h"
#include "ztvek.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <sys/stat.h>

#define TRC_SOURCE "lib/vek/sztucona"

namespace vek {
namespace {

// Takes the size of the file from the stream and leaves the stream at the start. A directory can be
// opened too, and reports the largest number as its size.
bool measure(FILE *stream, size_t *size, int32_t *errorNumber) {
    long end = -1;
    if (fseek(stream, 0, SEEK_END) == 0)
        end = ftell(stream);
    if (end < 0 || fseek(stream, 0, SEEK_SET) != 0) {
        *errorNumber = errno;
        return false;
    }
    if (end == LONG_MAX) {
        struct stat status;
        const bool isDirectory = fstat(fileno(stream), &status) == 0 && S_ISDIR(status.st_mode);
        *errorNumber = isDirectory ? EISDIR : EFBIG;
        return false;
    }
    *size = static_cast<size_t>(end);
    return true;
}

// Reads the open file; false when it failed or is empty. The buffer is the caller's as soon as it
// is there, whatever happens afterwards.
bool readStream(FILE *stream, char **buffer, int32_t *errorNumber) {
    // Without a stream buffer no copy of a credential is left in memory that nobody wipes.
    (void)setvbuf(stream, nullptr, _IONBF, 0);
    size_t size = 0;
    if (!measure(stream, &size, errorNumber) || size == 0)
        return false;
    *buffer = static_cast<char *>(allocate(TRC_SOURCE, FUNCTION_READ_CONFIG_FILE, size + 1));
    if (*buffer == nullptr) {
        *errorNumber = errno;
        return false;
    }
    (void)!fread(*buffer, 1, size + 1, stream);
    // A file that has grown since it was measured fills the byte of the terminator too.
    (*buffer)[size] = '\0';
    if (ferror(stream) == 0)
        return true;
    *errorNumber = errno;
    return false;
}

uint32_t readFile(const char *path, char **buffer, int32_t *errorNumber) {
    // Nothing was tried then: the error number of the caller is handed back as it is.
    if (buffer == nullptr) {
        *errorNumber = errno;
        return SZTU_CANNOT_READ;
    }
    TRC_PARMS("Opening config file : %s", path);
    errno = 0;
    *errorNumber = 0;
    *buffer = nullptr;
    FILE *const stream = fopen(path, "re");
    if (stream == nullptr) {
        *errorNumber = errno;
        return SZTU_CANNOT_READ;
    }
    const bool isRead = readStream(stream, buffer, errorNumber);
    // A stream is closed once: after a failed close nothing is left that a second one could close.
    const bool isClosed = fclose(stream) == 0;
    if (isRead && isClosed)
        return SZTU_OK;
    if (*errorNumber == 0)
        *errorNumber = errno;
    return SZTU_CANNOT_READ;
}

} // namespace
} // namespace vek

uint32_t sztucReadConfigFile(const char *path, char **buffer, int32_t *errorNumber) {
    const int errorOnEntry = errno;
    ztm::TraceScope trace(vek::FUNCTION_READ_CONFIG_FILE);
    errno = errorOnEntry;
    return trace.returns(vek::readFile(path, buffer, errorNumber));
}
