// What guards the replacement of a file, with streams and paths that are none of a regular file.
#include "runvekcred/replacement.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

namespace {

TEST(Replacement, IgnoresWhatCannotBeReservedOrSynced) {
    FILE *const regular = tmpfile();
    FILE *const huge = tmpfile();
    FILE *const lost = tmpfile();
    FILE *const full = fopen("/dev/full", "r+");
    ASSERT_EQ(0, ftruncate(fileno(huge), 1 << 21));
    const int lostDescriptor = dup(fileno(lost));
    ASSERT_EQ(0, close(fileno(lost)));
    for (FILE *const input : {huge, lost, full})
        EXPECT_EQ(0, reserveRoom(input, regular));
    EXPECT_EQ(0, reserveRoom(regular, lost));
    EXPECT_EQ(0, reserveRoom(regular, full));
    for (FILE *const output : {regular, lost, full}) {
        giveBackRoom(output);
        EXPECT_EQ(0, syncOutput(output));
    }
    (void)fputc('x', full);
    EXPECT_EQ(ENOSPC, flushOutput(full));
    EXPECT_EQ(EIO, flushOutput(full)); // bytes were lost before
    EXPECT_EQ(-1, replaceFile("/no/such/file", "/no/such/replacement", /* directory= */ -1));
    ASSERT_GE(dup2(lostDescriptor, fileno(lost)), 0);
}

TEST(Replacement, LocksTheFolderOfThePath) {
    const int root = lockDirectory("/conf");
    EXPECT_GE(root, 0);
    unlockDirectory(root);
    EXPECT_EQ(-1, lockDirectory((std::string(5000, 'x') + "/conf").c_str()));
}

} // namespace
