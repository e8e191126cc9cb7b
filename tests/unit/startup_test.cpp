// Start-up, and which arguments the services refuse.
#include "pbe/libcrypto.h"
#include "zttrc.h"

#include <gtest/gtest.h>

namespace {

TEST(Startup, RefusesWhatIsNotUsable) {
    EXPECT_EQ(0U, svcCheckConsistency("/no/such/folder"));
    EXPECT_EQ(0U, svcCheckConsistency("/tmp"));
    EXPECT_EQ(uint32_t{SVC_NOT_CONSISTENT}, svcCheckConsistency("/dev/null"));
    EXPECT_EQ(uint32_t{SVC_NOT_CONSISTENT}, svcCheckConsistency("opt/ztm"));
}

// An upgrade of the system is no reason to refuse; an older libcrypto may lack a function.
TEST(Startup, TakesALaterLibcryptoOfTheSameSeries) {
    const struct {
        ztm::Version built, loaded;
        bool isUsable;
    } rows[] = {{{3, 0}, {3, 0}, true},
                {{3, 0}, {3, 5}, true},
                {{3, 5}, {3, 0}, false},
                {{3, 0}, {4, 0}, false},
                {{3, 0}, {1, 1}, false}};
    for (const auto &row : rows)
        EXPECT_EQ(row.isUsable, ztm::isUsable(row.built, row.loaded))
            << row.loaded.major << '.' << row.loaded.minor;
}

TEST(Services, RefuseMissingArguments) {
    char text[8];
    SvcMiniSubpool context = svcIC_MINI_SUBPOOL, other = context, foreign = context;
    ++other.word;
    ++foreign.handle;
    const uint32_t results[] = {svcCheckConsistency(nullptr),
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
    const bool isTraced = getenv("ZTS_TRACE") != nullptr;
    EXPECT_EQ(isTraced ? TRC_FUNCTIONS | TRC_PARAMETERS : 0U, thdProcess.traceFlags);
    trc_FNC_retcode(16, 1, 0); // not while the trace is off
    trc_FNC_text(16, 1, "no trace");
    for (const uint32_t services : {SVC_SERVICE_MEMORY + 0U, 7U})
        EXPECT_EQ(0U, svcInitializeEx(48, services, 0, 0, 0, 0, 0, 0, &context));
}

} // namespace
