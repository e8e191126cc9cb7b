// Names of key files in messages. Which source wins is in cipher_session_test.cpp.
#include "sztoumaa/key_source.h"

#include <gtest/gtest.h>

namespace {

TEST(BaseName, BeginsBehindTheLastSlashThatANameFollows) {
    const char *const cases[][2] = {{"/a/b//", "b//"}, {"name", "name"}, {"/", "/"},
                                    {"a/b", "b"},      {"//x", "x"},     {"", ""}};
    for (const auto &row : cases)
        EXPECT_STREQ(row[1], vek::baseName(row[0]));
}

} // namespace
