// The exit status of a reason code. manual_test compares those in use with runvekcred(1).
#include "ztutl.h"

#include <gtest/gtest.h>

namespace {

TEST(ExitStatus, IsTheCodeItselfWhenItIsSmallAndZeroForNothingElse) {
    for (const auto &[code, status] : {std::pair(0, 0),
                                       {1, 1},
                                       {63, 63},
                                       {64, 255},
                                       {256, 255},
                                       {-1, 99},
                                       {-2, 255},
                                       {INT32_MIN, 255}}) {
        int32_t reasonCode = code;
        utlMapRCTo8bit(&reasonCode);
        EXPECT_EQ(status, reasonCode) << code;
    }
}

} // namespace
