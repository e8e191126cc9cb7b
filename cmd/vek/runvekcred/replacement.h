/*
 * replacement.h - what keeps the data safe while a file is replaced: the directory's lock, room
 * reserved on the disk, bytes on the disk before the old file goes.
 */
#ifndef RUNVEKCRED_REPLACEMENT_H
#define RUNVEKCRED_REPLACEMENT_H

#include <cstdint>
#include <cstdio>

// Locks the directory of `path` against other runs of the command; waits at most 10 seconds, then goes on
// without the lock. Returns the directory's descriptor for unlockDirectory, or -1.
[[nodiscard]] int lockDirectory(const char *path);
void unlockDirectory(int directory);

// Opens the new content of a file that is replaced. A file of this user at `path` is truncated; a link, a
// FIFO, a file with a second name or of another user is removed first and never followed. Null: errno
// tells why.
[[nodiscard]] FILE *openReplacement(const char *path);

// Reserves room on the disk for the result of rewriting `input` into `output`. Result: 0, or ENOSPC,
// EDQUOT or EFBIG; every other answer of the system counts as 0.
[[nodiscard]] int reserveRoom(FILE *input, FILE *output);

// Gives back what was reserved and not used; on every path, before the output is closed.
void giveBackRoom(FILE *output);

// Flushes the output. Result: 0, or the error number of bytes that were lost, now or before.
[[nodiscard]] int flushOutput(FILE *output);

// Puts the bytes of a flushed output on the disk. Result: 0, or EIO, ENOSPC or EDQUOT; every other answer
// counts as 0, because some file systems cannot do it.
[[nodiscard]] int syncOutput(FILE *output);

// Unlinks `path` and renames `replacement` to it, with SIGINT, SIGTERM, SIGHUP and SIGQUIT held back
// meanwhile, then puts the directory (-1: not open) on the disk. Result: that of rename, 0 or -1.
[[nodiscard]] int32_t replaceFile(const char *path, const char *replacement, int directory);

#endif
