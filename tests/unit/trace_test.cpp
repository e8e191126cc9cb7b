// The trace facility.
#include "support/keystore_file.h"
#include "zttrc.h"

#include <sstream>
#include <sys/stat.h>
#include <sys/wait.h>

namespace {

// The file is named before the first record of the process, and holds a line for each.
TEST(Trace, ShowsDepthAndCutsWhatIsTooLong) {
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
    trc_FNC_text(16, 2, "a text");
    std::ifstream trace(file.path);
    std::string lines[2 * DEPTH + 4]; // and the end of the file
    for (std::string &line : lines)
        (void)std::getline(trace, line);
    EXPECT_TRUE(lines[DEPTH - 1].ends_with("16:1   " + std::string(2 * TRC_DEEPEST, ' ')));
    EXPECT_EQ(10238U, lines[DEPTH].size());
    EXPECT_TRUE(lines[2 * DEPTH].ends_with("16:1   rc=33")) << lines[2 * DEPTH];
    EXPECT_TRUE(lines[2 * DEPTH + 2].ends_with("16:2   a text")) << lines[2 * DEPTH + 2];
    EXPECT_TRUE(trace.eof());
}

// A process settles once whether it traces, so each file has a process of its own.
void traceTo(const std::string &path) {
    const pid_t child = fork();
    if (child == 0) {
        (void)setenv("ZTS_TRACE", path.c_str(), 1);
        trc_FNC_text(16, 1, "a\tb\nc \x1b[1m\x7f\n");
        _exit(0);
    }
    EXPECT_EQ(child, waitpid(child, nullptr, 0));
}

TEST(Trace, IsWrittenForItsUserAloneAndDrivesNoTerminal) {
    if ((thdProcess.traceFlags & TRC_UNSETTLED) == 0)
        GTEST_SKIP() << "another test of this process came first";
    const TemporaryFile file("");
    const auto content = [&file] {
        std::ostringstream text;
        text << std::ifstream(file.path).rdbuf();
        return text.str();
    };
    const std::string other = file.path + ".other";
    ASSERT_EQ(0, symlink(file.path.c_str(), other.c_str()));
    traceTo(other);
    EXPECT_EQ("", content()) << "through a symbolic link";
    ASSERT_TRUE(unlink(other.c_str()) == 0 && link(file.path.c_str(), other.c_str()) == 0);
    traceTo(file.path);
    EXPECT_EQ("", content()) << "under a second name";
    ASSERT_TRUE(unlink(other.c_str()) == 0 && chmod(file.path.c_str(), 0646) == 0);
    traceTo(file.path);
    EXPECT_TRUE(content().ends_with(" a?b?c ?[1m? \n")) << content();
    struct stat status;
    ASSERT_EQ(0, stat(file.path.c_str(), &status));
    EXPECT_EQ(0600U, status.st_mode & 07777U);
}

} // namespace
