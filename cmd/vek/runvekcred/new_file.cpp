/*
 * new_file.cpp - from the old keystore.conf to the new one.
 *
 * In place, the new content is built under the name of keystore.conf with ".bak" behind it and then takes
 * the old file's place. It is not a copy of the old file.
 */
#include "runvekcred/replacement.h"
#include "runvekcred/runvekcred.h"

#include <cerrno>
#include <cstring>
#include <stdio_ext.h>
#include <unistd.h>

namespace {

constexpr char TEMPORARY_SUFFIX[] = ".bak";
constexpr size_t TEMPORARY_PATH_LIMIT = 4096; // with the terminator; a longer path is cut
constexpr size_t STREAM_BUFFER_SIZE = 16384;

struct Rewrite {
    const char *keystorePath;
    const char *outputPath; // -o, or the temporary path
    bool inPlace;
    FILE *input;
    FILE *output;
    char temporaryPath[SZTUC_PATH_CAPACITY];
    // The buffer of the output is ours, because it can hold clear credentials and is wiped.
    char outputBuffer[STREAM_BUFFER_SIZE];
};

void chooseOutput(Rewrite *rewrite, const char *keystorePath, const char *outputPath) {
    rewrite->keystorePath = keystorePath;
    rewrite->inPlace = outputPath == nullptr || strcmp(outputPath, keystorePath) == 0;
    (void)snprintf(rewrite->temporaryPath, TEMPORARY_PATH_LIMIT, "%s%s", keystorePath,
                   TEMPORARY_SUFFIX);
    rewrite->outputPath = rewrite->inPlace ? rewrite->temporaryPath : outputPath;
}

// A path so long that the suffix is cut off names keystore.conf itself; it is never written or unlinked.
bool temporaryIsKeystore(const Rewrite &rewrite) {
    return strcmp(rewrite.temporaryPath, rewrite.keystorePath) == 0;
}

int32_t reportCannotOpen(const char *path, int error) {
    showMessage(SVC_MSG_CANNOT_OPEN, svcMakeInserts(error, path, nullptr), __LINE__);
    return REASON_CANNOT_OPEN;
}

FILE *openOutput(const Rewrite &rewrite) {
    if (!rewrite.inPlace)
        return fopen(rewrite.outputPath, "we");
    if (!temporaryIsKeystore(rewrite))
        return openReplacement(rewrite.outputPath);
    errno = ENAMETOOLONG;
    return nullptr;
}

int32_t openFiles(Rewrite *rewrite) {
    rewrite->input = fopen(rewrite->keystorePath, "re");
    if (rewrite->input == nullptr)
        return reportCannotOpen(rewrite->keystorePath, errno);
    rewrite->output = openOutput(*rewrite);
    if (rewrite->output == nullptr)
        return reportCannotOpen(rewrite->outputPath, errno);
    (void)setvbuf(rewrite->output, rewrite->outputBuffer, _IOFBF, sizeof rewrite->outputBuffer);
    const int error = reserveRoom(rewrite->input, rewrite->output);
    return error == 0 ? 0 : reportCannotOpen(rewrite->outputPath, error);
}

// Results of writes to an -o file are not examined. In place the old file goes only when the new bytes
// are on the disk.
int32_t settleOutput(const Rewrite &rewrite) {
    if (!rewrite.inPlace)
        return 0;
    int error = flushOutput(rewrite.output);
    if (error == 0)
        error = syncOutput(rewrite.output);
    return error == 0 ? 0 : reportCannotOpen(rewrite.outputPath, error);
}

// What a failed run has not written yet may hold the credential at fault; the temporary file goes anyway.
void closeFiles(const Rewrite &rewrite, int32_t reasonCode) {
    if (rewrite.input != nullptr)
        (void)fclose(rewrite.input);
    if (rewrite.output == nullptr)
        return;
    if (rewrite.inPlace && reasonCode != 0)
        __fpurge(rewrite.output);
    giveBackRoom(rewrite.output);
    (void)fclose(rewrite.output);
}

// A failed run removes the temporary file, also one of an earlier run that this run never wrote to.
int32_t finish(const Rewrite &rewrite, int32_t reasonCode, int directory) {
    if (!rewrite.inPlace)
        return reasonCode;
    if (reasonCode == 0)
        return replaceFile(rewrite.keystorePath, rewrite.temporaryPath, directory);
    if (!temporaryIsKeystore(rewrite))
        (void)unlink(rewrite.temporaryPath);
    return reasonCode;
}

} // namespace

int32_t rewriteKeystore(const char *keystorePath, const char *outputPath, int directory,
                        SvcPBESession *session) {
    Rewrite rewrite = {};
    chooseOutput(&rewrite, keystorePath, outputPath);
    int32_t reasonCode = openFiles(&rewrite);
    if (reasonCode == 0)
        reasonCode = rewriteLines(rewrite.input, rewrite.output, session);
    if (reasonCode == 0)
        reasonCode = settleOutput(rewrite);
    closeFiles(rewrite, reasonCode);
    reasonCode = finish(rewrite, reasonCode, directory);
    svcWipe(&rewrite, sizeof rewrite);
    return reasonCode;
}
