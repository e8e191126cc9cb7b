/*
 * new_file.cpp - in place, the new content is built under the name of keystore.conf with ".bak"
 * behind it and then takes the old file's place. It is not a copy of the old file.
 */
#include "runvekcred/new_file.h"

#include "common/guards.h"
#include "runvekcred/copy_lines.h"
#include "runvekcred/message.h"
#include "runvekcred/reason.h"
#include "shared/held_back_signals.h"
#include "shared/new_bytes.h"
#include "ztvek.h"

#include <cerrno>
#include <cstring>
#include <stdio_ext.h>

namespace runvekcred {

namespace {

constexpr char TEMPORARY_SUFFIX[] = ".bak";
constexpr size_t TEMPORARY_PATH_LIMIT = 4096; // with the terminator; a longer path is cut
constexpr size_t STREAM_BUFFER_SIZE = 16384;
constexpr mode_t CREATION_MODE = 0666; // less the umask, as fopen has it

void closeStream(FILE *stream) {
    (void)fclose(stream);
}
using Stream = ztm::Handle<FILE, closeStream>;

// Makes a stream of a descriptor (-1: none), which belongs to the stream or is closed.
FILE *openStream(int opened, const char *mode) {
    ztm::Descriptor descriptor(opened);
    FILE *const stream = descriptor ? fdopen(descriptor.get(), mode) : nullptr;
    if (stream != nullptr)
        (void)descriptor.take();
    return stream;
}

// The output. Its buffer is ours, because it can hold clear credentials and is wiped.
class Output {
public:
    explicit Output(int opened) : stream(openStream(opened, "w")) {
        if (stream)
            (void)setvbuf(stream.get(), buffer.value, _IOFBF, sizeof buffer.value);
    }
    Output(const Output &) = delete;
    Output &operator=(const Output &) = delete;
    ~Output() {
        if (!stream)
            return;
        (void)fflush(stream.get());
        replacement::giveBackRoom(fileno(stream.get()));
    }

    [[nodiscard]] FILE *get() const {
        return stream.get();
    }
    // What was not written yet may hold the credential at fault, of a file that goes anyway.
    void drop() {
        __fpurge(stream.get());
    }

private:
    ztm::Wiping<char[STREAM_BUFFER_SIZE]> buffer;
    Stream stream;
};

// The temporary path, cut where it does not fit.
struct TemporaryPath {
    char text[SZTUC_PATH_CAPACITY] = "";
    explicit TemporaryPath(const char *keystorePath) {
        (void)snprintf(text, TEMPORARY_PATH_LIMIT, "%s%s", keystorePath, TEMPORARY_SUFFIX);
    }
};

// The new content of a file that is replaced. Unless it takes the old file's place, it is removed
// in the end, also when it is one of an earlier run that this run never wrote to; and only then the
// signals act that came meanwhile.
class TemporaryFile {
public:
    explicit TemporaryFile(const RunFiles &run)
        : files(run), path(run.keystorePath), isRemoved(strcmp(path.text, run.keystorePath) != 0) {}
    TemporaryFile(const TemporaryFile &) = delete;
    TemporaryFile &operator=(const TemporaryFile &) = delete;
    ~TemporaryFile() {
        if (isRemoved)
            (void)files.directory.remove(path.text);
    }

    // Result: the descriptor, or -1 and errno. A path so long that the suffix is cut off names
    // keystore.conf itself, which is never written or unlinked.
    [[nodiscard]] int create() const {
        if (isRemoved)
            return files.directory.createAnew(path.text, CREATION_MODE);
        errno = ENAMETOOLONG;
        return -1;
    }
    // Result: that of rename. When it fails, the new content stays under its temporary name.
    [[nodiscard]] int32_t takePlace() {
        isRemoved = false;
        (void)files.directory.remove(files.keystorePath);
        const int32_t result = files.directory.moveOnto(path.text, files.keystorePath);
        files.directory.sync();
        return result;
    }
    [[nodiscard]] const replacement::HeldBackSignals &heldBack() const {
        return signals;
    }
    [[nodiscard]] const char *name() const {
        return path.text;
    }

private:
    const replacement::HeldBackSignals signals;
    const RunFiles &files;
    const TemporaryPath path;
    bool isRemoved; // in the end
};

bool isInPlace(const RunFiles &files) {
    return files.outputPath == nullptr || strcmp(files.outputPath, files.keystorePath) == 0;
}

int32_t reportCannotOpen(const char *path, int error) {
    showMessage(SVC_MSG_CANNOT_OPEN, svcMakeInserts(error, path, nullptr), __LINE__);
    return REASON_CANNOT_OPEN;
}

int reserveRoom(FILE *input, FILE *output) {
    struct stat status;
    if (fstat(fileno(input), &status) != 0 || !S_ISREG(status.st_mode))
        return 0;
    return replacement::reserveRoom(fileno(output), status.st_size);
}

// What the rewriting came to. Results of writes to an -o file are not examined; in place the old
// file goes only when the new bytes are on the disk.
int32_t settle(const RunFiles &files, const TemporaryFile *temporary, Output *output,
               int32_t reasonCode, int readError) {
    if (temporary != nullptr && (reasonCode != 0 || readError != 0))
        output->drop();
    if (reasonCode != 0)
        return reasonCode;
    if (readError != 0)
        return reportCannotOpen(files.keystorePath, readError);
    if (temporary == nullptr)
        return 0;
    int error = replacement::flushBytes(output->get());
    if (error == 0)
        error = replacement::syncBytes(fileno(output->get()));
    return error == 0 ? 0 : reportCannotOpen(temporary->name(), error);
}

// Writes the new content to the temporary file, or to the -o file when that is null. Everything is
// closed on return.
int32_t writeNewContent(const RunFiles &files, const TemporaryFile *temporary,
                        SvcPBESession *session) {
    const Stream input(openStream(files.directory.openToRead(files.keystorePath), "r"));
    if (!input)
        return reportCannotOpen(files.keystorePath, errno);
    const char *const outputPath = temporary != nullptr ? temporary->name() : files.outputPath;
    Output output(temporary != nullptr
                      ? temporary->create()
                      : open(outputPath, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, CREATION_MODE));
    if (output.get() == nullptr)
        return reportCannotOpen(outputPath, errno);
    const int error = reserveRoom(input.get(), output.get());
    if (error != 0)
        return reportCannotOpen(outputPath, error);

    int readError = 0;
    const int32_t reasonCode =
        rewriteLines(input.get(), output.get(), session,
                     temporary != nullptr ? &temporary->heldBack() : nullptr, &readError);
    return settle(files, temporary, &output, reasonCode, readError);
}

} // namespace

bool belongsToRun(const struct stat &file, const RunFiles &files) {
    const auto isFile = [&](const struct stat &other) {
        return other.st_dev == file.st_dev && other.st_ino == file.st_ino;
    };
    struct stat status;
    if (files.directory.look(files.keystorePath, &status, /* flags= */ 0) == 0 && isFile(status))
        return true;
    if (!isInPlace(files))
        return stat(files.outputPath, &status) == 0 && isFile(status);
    return files.directory.look(TemporaryPath(files.keystorePath).text, &status) == 0 &&
           isFile(status);
}

int32_t rewriteKeystore(const RunFiles &files, SvcPBESession *session) {
    if (!isInPlace(files))
        return writeNewContent(files, /* temporary= */ nullptr, session);
    TemporaryFile temporary(files);
    const int32_t reasonCode = writeNewContent(files, &temporary, session);
    return reasonCode != 0 ? reasonCode : temporary.takePlace();
}

} // namespace runvekcred
