/*
 * new_bytes.cpp - room, bytes and sync of a new file.
 */
#include "shared/new_bytes.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace replacement {

namespace {

constexpr int64_t ONE_PAGE = 4096;

bool meansNoRoom(int error) {
    return error == ENOSPC || error == EDQUOT || error == EFBIG;
}

} // namespace

int reserveRoom(int file, int64_t oldSize) {
    if (fallocate(file, FALLOC_FL_KEEP_SIZE, /* offset= */ 0, oldSize + ONE_PAGE) == 0)
        return 0;
    return meansNoRoom(errno) ? errno : 0;
}

int writeBytes(int file, std::string_view text) {
    while (!text.empty()) {
        const ssize_t length = write(file, text.data(), text.size());
        if (length < 0 && errno != EINTR)
            return errno;
        if (length > 0)
            text.remove_prefix(static_cast<size_t>(length));
    }
    return 0;
}

void giveBackRoom(int file) {
    struct stat status;
    // Cutting a file at its own size frees the blocks behind its end.
    if (fstat(file, &status) == 0 && S_ISREG(status.st_mode))
        (void)!ftruncate(file, status.st_size);
}

int flushBytes(FILE *stream) {
    if (fflush(stream) != 0)
        return errno;
    return ferror(stream) != 0 ? EIO : 0;
}

int syncBytes(int file) {
    if (fdatasync(file) == 0)
        return 0;
    return errno == EIO || errno == ENOSPC || errno == EDQUOT ? errno : 0;
}

} // namespace replacement
