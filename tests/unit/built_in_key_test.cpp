// The built-in key; that it is the frozen one, vectors_test.cpp shows.
#include "shared.h"
#include "sztoumaa/built_in_key.h"

#include <array>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>

namespace {

TEST(BuiltInKey, DoesNotStandInTheProgram) {
    std::array<uint8_t, SVC_PBE_KEY_LENGTH> key;
    vek::buildDefaultKey(key);
    std::ifstream file("/proc/self/exe", std::ios::binary);
    const std::string program((std::istreambuf_iterator<char>(file)), {});
    EXPECT_NE(std::string::npos, program.find(vek::LABEL));
    for (size_t i = 0; i + 8 <= key.size(); ++i)
        EXPECT_EQ(std::string::npos,
                  program.find(std::string(key.begin(), key.end()).substr(i, 8)));
}

} // namespace
