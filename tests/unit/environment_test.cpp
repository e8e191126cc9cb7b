// Environment, users, files.
#include "ztsvc.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/auxv.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

TEST(Environment, TellsEmptyFromUnset) {
    (void)setenv("VEK_TEST", "", 1);
    char buffer[4] = "abc";
    size_t capacity = sizeof buffer;
    EXPECT_STREQ("", svcGetEnv("VEK_TEST"));
    EXPECT_EQ(1, svcIsEnvironment("VEK_TEST"));
    EXPECT_EQ(0U, svcGetEnvironmentStringX("VEK_TEST", buffer, &capacity));
    EXPECT_EQ(0U, capacity);
    capacity = sizeof buffer;
    (void)setenv("VEK_TEST", "1234", 1);
    EXPECT_EQ(uint32_t{SVC_NOT_SET}, svcGetEnvironmentStringX("VEK_TEST", buffer, &capacity));
    (void)unsetenv("VEK_TEST");
    EXPECT_EQ(uint32_t{SVC_NOT_SET}, svcGetEnvironmentStringX("VEK_TEST", buffer, &capacity));
    EXPECT_EQ(0, svcIsEnvironment("VEK_TEST"));
}

TEST(Environment, TellsWhoAndWhatIsNotThere) {
    struct passwd entry;
    char scratch[1024];
    EXPECT_EQ(ENOENT + 0U, svcGetpwuid(4000000000, &entry, scratch, sizeof scratch));
    EXPECT_EQ(ERANGE + 0U, svcGetpwuid(0, &entry, scratch, 1));
    int32_t exists = 1;
    EXPECT_EQ(0U, svcFileExists("/dev/null/x", &exists));
    EXPECT_EQ(0, exists);
    EXPECT_EQ(0U, svcFileExists("/dev/null", &exists));
    EXPECT_EQ(1, exists);
    EXPECT_EQ(ENAMETOOLONG + 0U, svcFileExists(std::string(5000, 'x').c_str(), &exists));
}

// Run once more from a copy that belongs to somebody else and takes his rights.
TEST(Environment, IsNotThereForSetIdPrograms) {
    if (getauxval(AT_SECURE) != 0) {
        EXPECT_EQ(nullptr, svcGetEnv("VEK_TEST"));
        EXPECT_EQ(0, svcIsEnvironment("VEK_TEST"));
        // A search for leaks at the end may not look into a set-id process.
        _exit(HasFailure() ? 1 : 0);
    }
    if (geteuid() != 0)
        GTEST_SKIP() << "only root makes such a copy";
    const std::string copy = std::string(getenv("TMPDIR")) + "/environment_test";
    std::filesystem::copy_file("/proc/self/exe", copy,
                               std::filesystem::copy_options::overwrite_existing);
    ASSERT_EQ(0, chown(copy.c_str(), 65534, 65534));
    ASSERT_EQ(0, chmod(copy.c_str(), S_ISUID | 0755));
    const std::string command = "VEK_TEST=x " + copy + " --gtest_filter=Environment.IsNotThere*";
    EXPECT_EQ(0, system(command.c_str()));
    std::filesystem::remove(copy);
}

} // namespace
