// Reading a whole file.
#include "support/keystore_file.h"

#include <sstream>

namespace {

using std::string;

TEST(ReadConfigFile, HandsOverTheBytesAndATerminatorOrTellsWhyNot) {
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    const TemporaryFile shortFile("a=b"), file(string("a\0b\r\n", 5)),
        longFile(string(100000, 'x'));
    const struct {
        string path;
        size_t size; // 0: it cannot be read
        int32_t errorNumber;
    } cases[] = {{shortFile.path, 3, 0},
                 {file.path, 5, 0},
                 {longFile.path, 100000, 0},
                 {file.path + ".missing", 0, ENOENT},
                 {"/dev/fd/" + std::to_string(ends[0]), 0, ESPIPE},
                 {"/dev/null", 0, 0}};
    for (const auto &row : cases) {
        char *buffer = nullptr;
        int32_t errorNumber = -1;
        errno = EXDEV; // must not shine through
        EXPECT_EQ(row.size == 0 ? 12U : 0U,
                  sztucReadConfigFile(row.path.c_str(), &buffer, &errorNumber));
        EXPECT_EQ(row.errorNumber, errorNumber) << row.path;
        EXPECT_EQ(row.size == 0, buffer == nullptr) << row.path;
        std::ostringstream content;
        content << std::ifstream(buffer == nullptr ? "" : row.path).rdbuf();
        if (buffer != nullptr) {
            EXPECT_EQ(content.str() + '\0', string(buffer, row.size + 1));
        }
        svcFreeMemFn(0, SVC_COMPONENT_VEK, 0, buffer);
    }
    int32_t errorNumber = -1;
    errno = EXDEV; // without a buffer it is handed back
    EXPECT_EQ(12U, sztucReadConfigFile("/dev/null", nullptr, &errorNumber));
    EXPECT_EQ(EXDEV, errorNumber);
    // File systems differ in what they report as the size of a directory.
    char *buffer = nullptr;
    EXPECT_EQ(12U, sztucReadConfigFile("/", &buffer, &errorNumber));
    EXPECT_NE(0, errorNumber);
    svcFreeMemFn(0, SVC_COMPONENT_VEK, 0, buffer);
}

} // namespace
