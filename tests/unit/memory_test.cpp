// The allocator, and the owner of a descriptor. allocation_test refuses every request for memory;
// secrets_test looks at what is released.
#include "common/guards.h"

#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

TEST(Memory, IsClearedWhenItIsHandedOut) {
    constexpr size_t LENGTH = 100;
    free(strdup(std::string(LENGTH, 'x').c_str())); // the allocator hands this out again
    void *memory = nullptr;
    EXPECT_EQ(0U, svcGetMemFn(0, SVC_COMPONENT_VEK, 1, LENGTH, 0, &memory));
    EXPECT_EQ(std::string(LENGTH, '\0'), std::string(static_cast<char *>(memory), LENGTH));
    EXPECT_EQ(0U, svcFreeMemFn(0, SVC_COMPONENT_VEK, 1, memory));
}

TEST(Memory, IsNotHandedOutWithoutAPlaceOrALength) {
    void *memory = &memory;
    EXPECT_EQ(SVC_BAD_ARGUMENTS + 0U, svcGetMemFn(0, SVC_COMPONENT_VEK, 1, 1, 0, nullptr));
    EXPECT_EQ(SVC_BAD_ARGUMENTS + 0U, svcGetMemFn(0, SVC_COMPONENT_VEK, 1, 0, 0, &memory));
    EXPECT_EQ(nullptr, memory);
    EXPECT_EQ(0U, svcFreeMemFn(0, SVC_COMPONENT_VEK, 1, nullptr));
    svcWipe(nullptr, 0);
}

// A program may have closed its standard input.
TEST(Descriptor, IsClosedWhateverItsNumber) {
    const int kept = dup(STDIN_FILENO);
    (void)close(STDIN_FILENO);
    {
        const ztm::Descriptor file(open("/dev/null", O_RDONLY | O_CLOEXEC));
        EXPECT_EQ(STDIN_FILENO, file.get());
    }
    EXPECT_EQ(-1, fcntl(STDIN_FILENO, F_GETFD));
    (void)dup2(kept, STDIN_FILENO);
    (void)close(kept);
}

} // namespace
