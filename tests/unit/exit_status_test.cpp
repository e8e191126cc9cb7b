// The exit status of every reason code.
#include "ztpbe.h"
#include "ztutl.h"

#include <gtest/gtest.h>
#include <set>

namespace {

int32_t statusOf(uint32_t code) {
    int32_t status = static_cast<int32_t>(code);
    utlMapRCTo8bit(&status);
    return status;
}

TEST(ExitStatus, IsZeroForSuccessOnlyAndDistinctForKnownCodes) {
    std::set<int32_t> seen;
    for (const uint32_t code :
         {0U, 1U, 10U, 12U, 15U, 20U, 63U, 2071U, 2195U, 0x20008066U, 0x20806301U, 0x20006327U,
          0xFFFFFFFFU, uint32_t{SVC_PBE_KEY_FILE_UNREADABLE}, uint32_t{SVC_PBE_KEY_FILE_BAD_LENGTH},
          uint32_t{SVC_PBE_CLEAR_TEXT_LENGTH}, uint32_t{SVC_PBE_FIPS_NOT_AVAILABLE}}) {
        const int32_t status = statusOf(code);
        EXPECT_TRUE(seen.insert(status).second) << code;
        EXPECT_EQ(code == 0, status == 0);
        EXPECT_EQ(status, status & 0xFF);
        EXPECT_TRUE(code > 63 || status == static_cast<int32_t>(code));
    }
    for (const uint32_t code : {64U, 256U, 512U, 0x80000000U, 0x20000000U})
        EXPECT_EQ(255, statusOf(code)) << code;
}

} // namespace
