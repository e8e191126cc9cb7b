#include "runvekcred/replacement.h"

#include "ztutl.h"
#include "ztvek.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr time_t LOCK_WAIT_SECONDS = 10;
constexpr long LOCK_RETRY_NANOSECONDS = 20'000'000;

// A line grows at most about ninefold: the shortest credential line of 15 bytes becomes a marker line and
// an encrypted value of together 137 bytes.
constexpr int64_t GROWTH_OF_A_LINE = 10;
constexpr int64_t SMALLEST_RESERVATION = 4096;
// A file beyond this size cannot consist of credentials alone; an eighth of it is margin enough.
constexpr int64_t HUGE_FILE = 1 << 20;
constexpr int64_t HUGE_FILE_SHARE = 8;

constexpr mode_t CREATION_MODE = 0666; // less the umask, as fopen has it

constexpr int HELD_BACK_SIGNALS[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

void directoryOf(const char *path, char (&directory)[SZTUC_PATH_CAPACITY]) {
    const char *const slash = strrchr(path, '/');
    if (slash == nullptr)
        return utlCopyBounded(directory, ".", sizeof directory - 1);
    const size_t length = slash == path ? 1 : static_cast<size_t>(slash - path);
    if (length < sizeof directory)
        memcpy(directory, path, length);
}

bool isPast(const struct timespec &deadline) {
    struct timespec now = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec > deadline.tv_sec ||
           (now.tv_sec == deadline.tv_sec && now.tv_nsec >= deadline.tv_nsec);
}

// A file that somebody may have put there to have the new content written elsewhere, read or owned.
bool isPlanted(const struct stat &status) {
    return S_ISLNK(status.st_mode) || S_ISFIFO(status.st_mode) ||
           (!S_ISDIR(status.st_mode) && (status.st_nlink > 1 || status.st_uid != geteuid()));
}

int64_t roomFor(int64_t size) {
    if (size <= HUGE_FILE)
        return size * GROWTH_OF_A_LINE + SMALLEST_RESERVATION;
    return HUGE_FILE * GROWTH_OF_A_LINE + SMALLEST_RESERVATION + (size - HUGE_FILE) +
           (size - HUGE_FILE) / HUGE_FILE_SHARE;
}

bool exceedsFileSizeLimit(int64_t size) {
    struct rlimit limit = {};
    return getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY &&
           static_cast<rlim_t>(size) > limit.rlim_cur;
}

bool meansNoRoom(int error) {
    return error == ENOSPC || error == EDQUOT || error == EFBIG;
}

} // namespace

int lockDirectory(const char *path) {
    char directoryPath[SZTUC_PATH_CAPACITY] = "";
    directoryOf(path, directoryPath);
    const int directory = open(directoryPath, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory < 0)
        return -1;

    struct timespec deadline = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += LOCK_WAIT_SECONDS;
    const struct timespec pause = {0, LOCK_RETRY_NANOSECONDS};
    while (flock(directory, LOCK_EX | LOCK_NB) != 0 && (errno == EWOULDBLOCK || errno == EINTR) &&
           !isPast(deadline))
        (void)nanosleep(&pause, nullptr);
    return directory;
}

void unlockDirectory(int directory) {
    if (directory >= 0)
        (void)close(directory);
}

FILE *openReplacement(const char *path) {
    int flags = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW;
    struct stat status;
    const bool isThere = lstat(path, &status) == 0;
    const bool isRemoved = isThere && isPlanted(status);
    if (isRemoved)
        (void)unlink(path);
    // What was not there a moment ago was not meant to be written to.
    if (isRemoved || !isThere)
        flags |= O_EXCL;
    const int file = open(path, flags, CREATION_MODE);
    if (file < 0)
        return nullptr;
    FILE *const stream = fdopen(file, "w");
    if (stream == nullptr)
        (void)close(file);
    return stream;
}

int reserveRoom(FILE *input, FILE *output) {
    struct stat inputStatus;
    struct stat outputStatus;
    if (fstat(fileno(input), &inputStatus) != 0 || fstat(fileno(output), &outputStatus) != 0)
        return 0;
    if (!S_ISREG(inputStatus.st_mode) || !S_ISREG(outputStatus.st_mode))
        return 0;
    const int64_t room = roomFor(inputStatus.st_size);
    if (exceedsFileSizeLimit(room))
        return EFBIG;
    if (fallocate(fileno(output), FALLOC_FL_KEEP_SIZE, /* offset= */ 0, room) == 0)
        return 0;
    return meansNoRoom(errno) ? errno : 0;
}

void giveBackRoom(FILE *output) {
    (void)fflush(output);
    struct stat status;
    // Cutting a file at its own size frees the blocks behind its end.
    if (fstat(fileno(output), &status) == 0 && S_ISREG(status.st_mode))
        (void)!ftruncate(fileno(output), status.st_size);
}

int flushOutput(FILE *output) {
    if (fflush(output) != 0)
        return errno;
    return ferror(output) != 0 ? EIO : 0;
}

int syncOutput(FILE *output) {
    if (fdatasync(fileno(output)) == 0)
        return 0;
    return errno == EIO || errno == ENOSPC || errno == EDQUOT ? errno : 0;
}

int32_t replaceFile(const char *path, const char *replacement, int directory) {
    sigset_t heldBack;
    sigset_t before;
    (void)sigemptyset(&heldBack);
    for (const int signal : HELD_BACK_SIGNALS)
        (void)sigaddset(&heldBack, signal);
    (void)pthread_sigmask(SIG_BLOCK, &heldBack, &before);

    (void)unlink(path);
    const int32_t result = rename(replacement, path);
    if (directory >= 0)
        (void)fsync(directory);

    (void)pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return result;
}
