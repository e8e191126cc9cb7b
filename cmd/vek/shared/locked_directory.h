/*
 * locked_directory.h - the directory of a file that is being replaced.
 *
 * A name that is looked up a second time can mean another file: whoever may rename a directory, or
 * put a link in its place, decides what the second look finds. So the directory is opened once, and
 * all that belongs to the replacement of one file happens relative to it:
 *
 *   const LockedDirectory directory(path);
 *   Descriptor input(directory.openToRead(path));
 *   Descriptor output(directory.createAnew(temporaryPath, 0600));
 *   ...
 *   directory.moveOnto(temporaryPath, path);
 *   directory.sync();
 *
 * Every function takes the whole path, of which only the part behind the last "/" counts; the part
 * before it must be that of the path which the directory was opened for. Where the directory could
 * not be opened (a path too long, no permission to read it), the whole path is used.
 */
#ifndef REPLACEMENT_LOCKED_DIRECTORY_H
#define REPLACEMENT_LOCKED_DIRECTORY_H

#include "common/guards.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace replacement {

class LockedDirectory {
public:
    // Opens the directory of `path` and locks it (flock) against other programs of the product,
    // until the object ends. Waits for the lock at most 10 seconds, then goes on without it; so it
    // does where there are no locks.
    explicit LockedDirectory(const char *path);

    // The open directory, or -1; it stays the object's.
    [[nodiscard]] int descriptor() const;

    // Opens a file for reading; a symbolic link is followed. Result: the descriptor, the caller's,
    // or -1 and errno.
    [[nodiscard]] int openToRead(const char *path) const;

    // Creates a file for writing that was not there before. Whatever lies at `path` and is no
    // directory is unlinked first, so that nothing is ever followed, waited for or written to that
    // somebody put there. Result: the descriptor, the caller's, or -1 and errno, also when what
    // lies there cannot be unlinked (a directory, a mount point, no permission).
    [[nodiscard]] int createAnew(const char *path, mode_t mode) const;

    // Tells what lies at `path`; `flags` as fstatat has them. Result: 0, or -1 and errno.
    [[nodiscard]] int look(const char *path, struct stat *status,
                           int flags = AT_SYMLINK_NOFOLLOW) const;

    // Unlinks `path`. Result: 0, or -1 and errno.
    int remove(const char *path) const;

    // Renames `path` to `target`, both in this directory; what lies there goes. Result: 0, or -1
    // and errno.
    [[nodiscard]] int moveOnto(const char *path, const char *target) const;

    // Puts the names of the directory on the disk, as far as the file system can.
    void sync() const;

private:
    // A name as the functions of the system take it: relative to an open directory.
    struct Place {
        int directory;
        const char *name;
    };
    [[nodiscard]] Place placeOf(const char *path) const;

    ztm::Descriptor directory;
};

} // namespace replacement

#endif
