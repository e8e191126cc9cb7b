// Room and bytes of a new file on the disk, also with files that are none of a regular one.
#include "shared/new_bytes.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace {

using namespace replacement;

TEST(NewBytes, AreReservedAndSyncedWhereThatIsPossible) {
    FILE *const regular = tmpfile();
    FILE *const full = fopen("/dev/full", "r+");
    EXPECT_EQ(0, reserveRoom(fileno(regular), 1));
    struct stat status = {};
    ASSERT_EQ(0, fstat(fileno(regular), &status));
    EXPECT_GT(status.st_blocks, 0);
    for (const int file : {fileno(regular), fileno(full), -1}) {
        EXPECT_TRUE(file == fileno(regular) || reserveRoom(file, 1) == 0);
        giveBackRoom(file);
        EXPECT_EQ(0, syncBytes(file));
    }
    ASSERT_EQ(0, fstat(fileno(regular), &status));
    EXPECT_EQ(0, status.st_blocks);
    EXPECT_EQ(EFBIG, reserveRoom(fileno(regular), INT64_MAX - 4096));
    (void)fputc('x', full);
    EXPECT_EQ(ENOSPC, flushBytes(full));
    EXPECT_EQ(EIO, flushBytes(full)); // bytes were lost before
}

} // namespace
