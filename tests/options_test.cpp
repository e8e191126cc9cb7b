// The command line of runvekcred: which settings an argument list gives, and which argument is at fault.
#include "runvekcred.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

struct Case {
    std::vector<const char *> arguments;
    ScanResult result;
    const char *atFault;  // of a usage error
    const char *paths[3]; // -f, -o, -sf
    int32_t algorithm;
    int32_t fips;
    const char *shows;
};

constexpr ScanResult DONE = ScanResult::done;
constexpr ScanResult BAD = ScanResult::usageError;

const Case CASES[] = {
    {{}, DONE, "", {"", "", ""}, 2, 0, "no arguments keep every initial value"},
    {{"-f", "a", "-o", "b", "-sf", "c", "-sp", "1", "-sm"}, DONE, "", {"a", "b", "c"}, 1, 1, "all"},
    {{"-FILE", "a", "-O", "b", "-SFx", "c", "-SPX", "1", "-SMart"},
     DONE,
     "",
     {"a", "b", "c"},
     1,
     1,
     "case and further characters do not count"},
    {{"-f", "a", "-f", "b"}, DONE, "", {"b", "", ""}, 2, 0, "the last one wins"},
    {{"-f", "a", "", "-o", "b"}, DONE, "", {"a", "", ""}, 2, 0, "an empty argument ends the scan"},
    {{"-f", ""}, DONE, "", {"", "", ""}, 2, 0, "an empty value is a value"},
    {{"-sp", "  +1"}, DONE, "", {"", "", ""}, 1, 0, "blanks and a sign"},
    {{"-sp", "-1"}, DONE, "", {"", "", ""}, -1, 0, "a sign is no option here"},
    {{"-sp", "+"}, DONE, "", {"", "", ""}, 0, 0, "only a sign is 0"},
    {{"-sp", "4294967298"}, DONE, "", {"", "", ""}, INT32_MAX, 0, "is not narrowed to 2"},
    {{"-sp", "-99999999999999999999"}, DONE, "", {"", "", ""}, INT32_MIN, 0, "nor wrapped"},
    {{"-sp", "2 "}, BAD, "-sp", {"", "", ""}, 2, 0, "blank behind"},
    {{"-sp", "\t2"}, BAD, "-sp", {"", "", ""}, 2, 0, "a tab is no blank here"},
    {{"-sp", "0x1"}, BAD, "-sp", {"", "", ""}, 2, 0, "decimal only"},
    {{"-sp"}, BAD, "-sp", {"", "", ""}, 2, 0, "no value"},
    {{"-f"}, BAD, "-f", {"", "", ""}, 2, 0, "no value"},
    {{"-f", "-x"}, BAD, "-f", {"", "", ""}, 2, 0, "a value that looks like an option"},
    {{"-sf", "-"}, BAD, "-sf", {"", "", ""}, 2, 0, "likewise"},
    {{"-"}, BAD, "-", {"", "", ""}, 2, 0, "a lone -"},
    {{"-s"}, BAD, "-s", {"", "", ""}, 2, 0, "s needs its third character"},
    {{"-sx", "a"}, BAD, "-sx", {"", "", ""}, 2, 0, "and one of three"},
    {{"-x"}, BAD, "-x", {"", "", ""}, 2, 0, "unknown"},
    {{"-f", "a", "file"}, BAD, "file", {"a", "", ""}, 2, 0, "a bare word"},
    {{"-?", "-x"}, ScanResult::help, "", {"", "", ""}, 2, 0, "help ends the scan"},
};

std::string text(const char *path) {
    return path == nullptr ? "" : path;
}

TEST(Options, FollowTheTable) {
    for (const Case &row : CASES) {
        SCOPED_TRACE(row.shows);
        CommandSettings settings = DEFAULT_SETTINGS;
        const char *atFault = nullptr;
        const ScanResult result =
            scanOptions({row.arguments.data(), row.arguments.size()}, &settings, &atFault);
        EXPECT_EQ(row.result, result);
        EXPECT_EQ(row.atFault, row.result == BAD ? text(atFault) : "");
        EXPECT_EQ(row.paths[0], text(settings.keystorePath));
        EXPECT_EQ(row.paths[1], text(settings.outputPath));
        EXPECT_EQ(row.paths[2], text(settings.keyFilePath));
        EXPECT_EQ(row.algorithm, settings.algorithm);
        EXPECT_EQ(row.fips, settings.fipsFlag);
    }
}

TEST(Options, AcceptAlgorithmsOneAndTwoOnly) {
    for (const int32_t algorithm : {-1, 0, 3, INT32_MAX})
        EXPECT_FALSE(isKnownAlgorithm(algorithm));
    EXPECT_TRUE(isKnownAlgorithm(1) && isKnownAlgorithm(2));
}

} // namespace
