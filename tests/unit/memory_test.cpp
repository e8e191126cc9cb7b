// The one allocator.
#include "ztsvc.h"

#include <gtest/gtest.h>

namespace {

TEST(Memory, ComesClearedAndRefusesNonsense) {
    void *memory = nullptr;
    ASSERT_EQ(0U, svcGetMemFn(0, 16, 1, 100, 0, &memory));
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(0, static_cast<char *>(memory)[i]);
    (void)svcFreeMemFn(0, 16, 1, memory);
    EXPECT_EQ(uint32_t{SVC_BAD_ARGUMENTS}, svcGetMemFn(0, 16, 1, 0, 0, &memory));
    EXPECT_EQ(nullptr, memory);
}

} // namespace
