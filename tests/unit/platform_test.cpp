// The common services, the trace and the utility library.
#include "common/catalogue.h"
#include "support/keystore_file.h"
#include "ztpbe.h"
#include "zttrc.h"
#include "ztutl.h"

#include <cerrno>
#include <cstring>
#include <set>

namespace {

std::string message(uint32_t number, int64_t numeric, const char *string1, const char *string2) {
    const SvcMessageInserts inserts = svcMakeInserts(numeric, string1, string2);
    return shownBy(
        [&] { EXPECT_EQ(0U, svcDisplayMessageForError(0, 0, number, inserts, 0, "t", 1)); });
}

TEST(Messages, BeginWithNumberAndSeverityAndEndTheLine) {
    std::set<uint32_t> shortNumbers;
    for (const ztm::CatalogueEntry &entry : ztm::messageCatalogue()) {
        const std::string text = message(entry.number, 0, "one", "two");
        char prefix[16];
        (void)snprintf(prefix, sizeof prefix, "ZTM%04X%c ", entry.number & 0xFFFF,
                       "IWE"[entry.number >> 28]);
        EXPECT_EQ(0U, text.find(prefix)) << text;
        EXPECT_EQ('\n', text.back());
        EXPECT_EQ(std::string::npos, text.find('%')) << text;
        EXPECT_TRUE(shortNumbers.insert(entry.number & 0xFFFF).second) << text;
    }
}

TEST(Messages, NameTheThingAtFaultAndTheReason) {
    constexpr uint32_t REASON = SVC_PBE_AUTHENTICATION_FAILED;
    const struct {
        uint32_t number, numeric;
        const char *string1, *string2, *part;
    } cases[] = {
        {SVC_MSG_CANNOT_OPEN, ENOSPC, "/a/b", nullptr, "'/a/b'"},
        {SVC_MSG_CANNOT_OPEN, ENOSPC, "/a/b", nullptr, ": No space left on device."},
        {SVC_MSG_PBE_FAILED, REASON, nullptr, nullptr, svcPBEReasonText(REASON)},
        {SVC_MSG_PBE_FAILED, REASON, nullptr, nullptr, "0x20006344"},
        {SVC_MSG_PBE_FAILED, 0x12345678, nullptr, nullptr, "0x12345678"},
        {SVC_MSG_DUPLICATE_KEY, 0, nullptr, "k", "keystore.conf in its standard place"},
        {SVC_MSG_FILE_UNUSABLE, 0, "forged\nZTM9105I \x1b[1m", nullptr, "forged?ZTM9105I ?[1m"},
    };
    for (const auto &row : cases) {
        const std::string text = message(row.number, row.numeric, row.string1, row.string2);
        EXPECT_NE(std::string::npos, text.find(row.part)) << text;
    }
}

TEST(Messages, AreCutAndNotOverrun) {
    const std::string text =
        message(SVC_MSG_CANNOT_OPEN, ENOENT, std::string(20000, 'p').c_str(), nullptr);
    EXPECT_LT(text.size(), 10241U);
    EXPECT_EQ('\n', text.back());
}

TEST(Messages, RefuseUnknownNumbersAndForeignBlocks) {
    SvcMessageInserts inserts = svcMakeInserts(0, "", "");
    EXPECT_EQ(uint32_t{SVC_BAD_ARGUMENTS},
              svcDisplayMessageForError(0, 0, 0x20001234, inserts, 0, "t", 1));
    inserts.eyeCatcher[0] = 'X';
    EXPECT_EQ(uint32_t{SVC_BAD_ARGUMENTS},
              svcDisplayMessageForError(0, 0, SVC_MSG_USAGE, inserts, 0, "t", 1));
}

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

TEST(Text, CopiesFillTheFieldAndNothingElse) {
    char field[6] = {1, 1, 1, 1, 1, 1};
    utlCopyBounded(field, "ab", 5);
    EXPECT_EQ(0, memcmp(field, "ab\0\0\0\1", 6));
    utlCopyBounded(field, "abcdefg", 5); // no terminator of its own
    EXPECT_EQ(0, memcmp(field, "abcde\1", 6));
    char text[8] = "ab";
    utlAppendBounded(text, "cdefg", 3);
    EXPECT_STREQ("abcde", text);
    utlUpperCase(text, 2);
    EXPECT_STREQ("ABcde", text);
}

TEST(Memory, ComesClearedAndRefusesNonsense) {
    void *memory = nullptr;
    ASSERT_EQ(0U, svcGetMemFn(0, 16, 1, 100, 0, &memory));
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(0, static_cast<char *>(memory)[i]);
    (void)svcFreeMemFn(0, 16, 1, memory);
    EXPECT_EQ(uint32_t{SVC_BAD_ARGUMENTS}, svcGetMemFn(0, 16, 1, 0, 0, &memory));
    EXPECT_EQ(nullptr, memory);
}

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

TEST(Startup, RefusesWhatIsNotUsable) {
    EXPECT_EQ(0U, svcCheckConsistency("/no/such/folder"));
    EXPECT_EQ(0U, svcCheckConsistency("/tmp"));
    EXPECT_EQ(uint32_t{SVC_NOT_CONSISTENT}, svcCheckConsistency("/dev/null"));
    EXPECT_EQ(uint32_t{SVC_NOT_CONSISTENT}, svcCheckConsistency("opt/ztm"));
}

TEST(Services, RefuseMissingArguments) {
    char text[8];
    SvcMiniSubpool context = svcIC_MINI_SUBPOOL, other = context, foreign = context;
    ++other.word;
    ++foreign.handle;
    const uint32_t results[] = {svcGetMemFn(0, 16, 1, 1, 0, nullptr),
                                svcCheckConsistency(nullptr),
                                svcStrerrorEx(1, nullptr, sizeof text, 0, 1),
                                svcStrerrorEx(1, text, 0, 0, 1),
                                svcInitializeEx(48, 7, 0, 0, 0, 0, 0, 0, nullptr),
                                svcInitializeEx(48, 7, 1, 0, 0, 0, 0, 0, &context),
                                svcInitializeEx(48, 7, 0, 0, 0, 0, 0, 0, &other),
                                svcInitializeEx(48, 7, 0, 0, 0, 0, 0, 0, &foreign),
                                svcInitializeEx(48, 8, 0, 0, 0, 0, 0, 0, &context),
                                thdProcess.initReason};
    for (const uint32_t result : results)
        EXPECT_EQ(SVC_BAD_ARGUMENTS + 0U, result) << &result - results;
    EXPECT_EQ(0U, svcProgramInit(0, nullptr, 0, 0));
    svcWipe(nullptr, 0);
    trc_FNC_retcode(16, 1, 0); // not while the trace is off
    trc_FNC_text(16, 1, "no trace");
    for (const uint32_t services : {SVC_SERVICE_MEMORY + 0U, 7U})
        EXPECT_EQ(0U, svcInitializeEx(48, services, 0, 0, 0, 0, 0, 0, &context));
}

TEST(Environment, TellsWhoAndWhatIsNotThere) {
    struct passwd entry;
    char scratch[1024];
    EXPECT_EQ(ENOENT + 0U, svcGetpwuid(4000000000, &entry, scratch, sizeof scratch));
    EXPECT_EQ(ERANGE + 0U, svcGetpwuid(0, &entry, scratch, 1));
    int32_t exists = 1;
    EXPECT_EQ(0U, svcFileExists("/dev/null/x", &exists));
    EXPECT_EQ(0, exists);
    EXPECT_EQ(ENAMETOOLONG + 0U, svcFileExists(std::string(5000, 'x').c_str(), &exists));
}

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

TEST(Failures, AreKeptWithTheirPlace) {
    svcRecordFailure(16, SVC_FAILURE_MEMORY, SVC_PROBE_MEMORY, nullptr);
    SvcFailureRecord before;
    svcGetFailureRecord(&before);
    svcSaveFileContextSccsId("lib/here", 7);
    const SvcMessageInserts inserts = svcMakeInserts(1, nullptr, nullptr);
    svcRecordFailure(16, SVC_FAILURE_MEMORY, SVC_PROBE_MEMORY, &inserts);
    SvcFailureRecord record;
    svcGetFailureRecord(&record);
    EXPECT_EQ(before.count + 1, record.count);
    EXPECT_STREQ("lib/here", record.source);
    EXPECT_EQ(7, record.line);
    EXPECT_EQ(0x817U, record.probe);
}

} // namespace
