#include "runvekcred_replace.h"

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
bool isPlanted(const char *path) {
    struct stat status;
    if (lstat(path, &status) != 0 || S_ISDIR(status.st_mode))
        return false;
    return S_ISLNK(status.st_mode) || S_ISFIFO(status.st_mode) || status.st_nlink > 1 ||
           status.st_uid != geteuid();
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
    while (flock(directory, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK && !isPast(deadline))
        (void)nanosleep(&pause, nullptr);
    return directory;
}

void unlockDirectory(int directory) {
    if (directory >= 0)
        (void)close(directory);
}

FILE *openReplacement(const char *path) {
    if (!isPlanted(path))
        return fopen(path, "we");
    (void)unlink(path);
    return fopen(path, "wxe");
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

int flushOutput(FILE *output) {
    errno = 0;
    const bool lost = fflush(output) != 0 || ferror(output) != 0;
    const int error = errno;
    struct stat status;
    // Cutting a file at its own size gives back the blocks behind its end. Where that fails nothing is
    // lost but room.
    if (fstat(fileno(output), &status) == 0 && S_ISREG(status.st_mode))
        (void)!ftruncate(fileno(output), status.st_size);
    if (!lost)
        return 0;
    return error != 0 ? error : EIO;
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
    (void)sigprocmask(SIG_BLOCK, &heldBack, &before);

    (void)unlink(path);
    const int32_t result = rename(replacement, path);
    if (directory >= 0)
        (void)fsync(directory);

    (void)sigprocmask(SIG_SETMASK, &before, nullptr);
    return result;
}
