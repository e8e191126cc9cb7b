/*
 * locked_directory.cpp - names in a directory that is open and locked.
 */
#include "shared/locked_directory.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <sys/file.h>

namespace replacement {

namespace {

constexpr time_t LOCK_WAIT_SECONDS = 10;
constexpr timespec LOCK_RETRY_PAUSE = {0, 20'000'000};

int openDirectoryOf(const char *path) {
    char directory[PATH_MAX] = ".";
    const char *const slash = strrchr(path, '/');
    if (slash != nullptr) {
        const size_t length = slash == path ? 1 : static_cast<size_t>(slash - path);
        if (length >= sizeof directory) {
            errno = ENAMETOOLONG;
            return -1;
        }
        memcpy(directory, path, length);
        directory[length] = '\0';
    }
    return open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

timespec timeSinceStart() {
    timespec now = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return now;
}

bool isBefore(const timespec &time, const timespec &other) {
    return time.tv_sec != other.tv_sec ? time.tv_sec < other.tv_sec : time.tv_nsec < other.tv_nsec;
}

} // namespace

LockedDirectory::LockedDirectory(const char *path) : directory(openDirectoryOf(path)) {
    if (!directory)
        return;
    timespec deadline = timeSinceStart();
    deadline.tv_sec += LOCK_WAIT_SECONDS;
    while (flock(directory.get(), LOCK_EX | LOCK_NB) != 0 &&
           (errno == EWOULDBLOCK || errno == EINTR) && isBefore(timeSinceStart(), deadline))
        (void)nanosleep(&LOCK_RETRY_PAUSE, nullptr);
}

LockedDirectory::Place LockedDirectory::placeOf(const char *path) const {
    const char *const slash = strrchr(path, '/');
    if (!directory)
        return {AT_FDCWD, path};
    return {directory.get(), slash == nullptr ? path : slash + 1};
}

int LockedDirectory::descriptor() const {
    return directory.get();
}

int LockedDirectory::openToRead(const char *path) const {
    const Place place = placeOf(path);
    return openat(place.directory, place.name, O_RDONLY | O_CLOEXEC);
}

int LockedDirectory::createAnew(const char *path, mode_t mode) const {
    if (remove(path) != 0 && errno != ENOENT)
        return -1;
    const Place place = placeOf(path);
    return openat(place.directory, place.name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
}

int LockedDirectory::look(const char *path, struct stat *status, int flags) const {
    const Place place = placeOf(path);
    return fstatat(place.directory, place.name, status, flags);
}

int LockedDirectory::remove(const char *path) const {
    const Place place = placeOf(path);
    return unlinkat(place.directory, place.name, /* flags= */ 0);
}

int LockedDirectory::moveOnto(const char *path, const char *target) const {
    const Place source = placeOf(path);
    const Place destination = placeOf(target);
    return renameat(source.directory, source.name, destination.directory, destination.name);
}

void LockedDirectory::sync() const {
    if (directory)
        (void)fsync(directory.get());
}

} // namespace replacement
