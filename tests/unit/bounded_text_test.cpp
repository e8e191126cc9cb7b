// Bounded text helpers.
#include "ztutl.h"

#include <cstring>
#include <gtest/gtest.h>

namespace {

TEST(Text, CopiesFillTheFieldAndNothingElse) {
    char field[6] = {1, 1, 1, 1, 1, 1};
    utlCopyBounded(field, "ab", 5);
    EXPECT_EQ(0, memcmp(field, "ab\0\0\0\1", 6));
    utlCopyBounded(field, "abcdefg", 5); // no terminator of its own
    EXPECT_EQ(0, memcmp(field, "abcde\1", 6));
    char text[8] = "ab";
    utlAppendBounded(text, "cdefg", 3);
    EXPECT_STREQ("abcde", text);
    utlUpperCase(text, 2);
    EXPECT_STREQ("ABcde", text);
}

} // namespace
