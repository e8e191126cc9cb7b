// The trace facility.
#include "support/keystore_file.h"
#include "zttrc.h"

#include <thread>

namespace {

// The file is named before the first record of the process, and holds a line for each. What file
// may be written is in command_test.sh.
TEST(Trace, ShowsDepthCutsWhatIsTooLongAndDrivesNoTerminal) {
    if ((thdProcess.traceFlags & TRC_UNSETTLED) == 0)
        GTEST_SKIP() << "another test of this process came first";
    const TemporaryFile file("");
    (void)setenv("ZTS_TRACE", file.path.c_str(), 1);
    constexpr int DEPTH = TRC_DEEPEST + 2;
    for (int i = 0; i < DEPTH; ++i)
        trc_FNC_entry(16, 1);
    trc_parms("deep", 1, "%s", std::string(20000, 'x').c_str());
    for (int i = 0; i < DEPTH; ++i)
        trc_FNC_retcode(16, 1, i);
    trc_FNC_retcode(16, 1, 0); // one too many
    trc_FNC_entry(16, 3);
    trc_parms("here", 1, "%s", "of that function");
    trc_FNC_text(16, 2, "a\tb\nc \x1b[1m\x7f\n");
    std::ifstream trace(file.path);
    std::string lines[2 * DEPTH + 6]; // and the end of the file
    for (std::string &line : lines)
        (void)std::getline(trace, line);
    EXPECT_TRUE(lines[DEPTH - 1].ends_with("16:1   " + std::string(2 * TRC_DEEPEST, ' ')));
    EXPECT_EQ(10238U, lines[DEPTH].size());
    EXPECT_TRUE(lines[2 * DEPTH].ends_with("16:1   rc=33")) << lines[2 * DEPTH];
    EXPECT_TRUE(lines[DEPTH].find(" parms 0:0 ") != std::string::npos) << lines[DEPTH];
    EXPECT_TRUE(lines[2 * DEPTH + 3].ends_with(" parms 16:3     [here:1] of that function"))
        << lines[2 * DEPTH + 3];
    EXPECT_TRUE(lines[2 * DEPTH + 4].ends_with("16:2     a?b?c ?[1m? ")) << lines[2 * DEPTH + 4];
    EXPECT_TRUE(trace.eof());
}

TEST(Trace, LeavesNothingToTheThreadThatEndedIt) {
    if ((thdProcess.traceFlags & TRC_UNSETTLED) == 0)
        GTEST_SKIP() << "another test of this process came first";
    const TemporaryFile file("");
    (void)setenv("ZTS_TRACE", file.path.c_str(), 1);
    void *block = &block;
    std::thread([&block] {
        (void)svcProgramInit(0, nullptr, 0, 0);
        trc_FNC_entry(16, 1);
        (void)svcProgramTerm(0);
        block = pthread_getspecific(thdThreadKey);
    }).join();
    EXPECT_EQ(nullptr, block);
}

} // namespace
