// Failure records.
#include "ztsvc.h"

#include <gtest/gtest.h>

namespace {

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
