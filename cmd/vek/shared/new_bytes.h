/*
 * new_bytes.h - what a program asks of the disk before it lets an old file go for a new one: room
 * before the first byte is written, and all bytes on the disk behind the last.
 *
 * The results are 0 or an error number.
 */
#ifndef REPLACEMENT_NEW_BYTES_H
#define REPLACEMENT_NEW_BYTES_H

#include <cstdint>
#include <cstdio>
#include <string_view>

namespace replacement {

// Reserves room on the disk for a new file that is written in place of one of `oldSize` bytes: as
// much, and a page. The size of the file stays. Result: 0, ENOSPC, EDQUOT or EFBIG; every other
// answer of the system counts as 0, because some files and file systems cannot do it.
[[nodiscard]] int reserveRoom(int file, int64_t oldSize);

// Writes all bytes of a text where the file stands.
[[nodiscard]] int writeBytes(int file, std::string_view text);

// Gives back what was reserved behind the end of the file.
void giveBackRoom(int file);

// Flushes a stream. Result: 0, or the error number of bytes that were lost, now or before.
[[nodiscard]] int flushBytes(FILE *stream);

// Puts the bytes of a file on the disk; a stream is flushed before. Result: 0, EIO, ENOSPC or
// EDQUOT; every other answer counts as 0, because some file systems cannot do it.
[[nodiscard]] int syncBytes(int file);

} // namespace replacement

#endif
