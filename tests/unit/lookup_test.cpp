// Lookups besides those of the readers, which are rows of tests/data/readings.txt.
#include "support/keystore_file.h"
#include "sztoumaa/lookup.h"
#include "zttrc.h"

namespace {

using std::string;

TEST(Lookup, LeavesNoIntegerUnsetAndRefusesAnEmptyName) {
    SztuList *none = nullptr;
    EXPECT_EQ(2U, vek::loadSection("/dev/null", &none, "", /* reportErrors= */ 0));
    SztuList *const list = loaded("x.k=1", "x");
    int32_t number = -9;
    EXPECT_EQ(1U, vek::getInt(list, nullptr, "j", &number));
    EXPECT_EQ(0, number);
    EXPECT_EQ(2U, vek::getInt(list, nullptr, "", &number));
    EXPECT_EQ(2U, vek::getLogical(list, nullptr, "", &number));
    sztucFreeConfigList(list);
}

// recorded_runs_test.py has the records of the others.
TEST(Lookup, IsTracedAndSoIsWhatNoProgramCalls) {
    if ((thdProcess.traceFlags & TRC_UNSETTLED) == 0)
        GTEST_SKIP() << "another test of this process came first";
    const TemporaryFile trace("");
    setenv("ZTS_TRACE", trace.path.c_str(), 1);
    int32_t number;
    char text[] = "text", *start = text;
    SztuList *const list = SztuListCreate();
    list->SztuListPrepend(list, text);
    list->SztuListPrepend(list, text);
    list->SztuListInsertAfter(list, list->head, text);
    list->SztuListInsertBefore(list, list->tail, text);
    list->SztuListClear(list);
    sztucFreeConfigList(list);
    sztucStrip(&start);
    EXPECT_EQ(0, sztouIsMCAInterceptEnabled(nullptr));
    EXPECT_EQ(2U, vek::getInt(nullptr, nullptr, "key", &number));
    EXPECT_EQ(2, sztouInitializePBE(SVC_COMPONENT_VEK, 369, nullptr, nullptr, nullptr, 0));
    string records, functions;
    for (std::ifstream file(trace.path); std::getline(file, records);)
        for (const char *const part : {"exit  16:", "Incorrect arguments"})
            if (const size_t at = records.find(part); at != string::npos)
                functions += records.substr(at + 9) + ';';
    EXPECT_EQ("223 rc=1;224 rc=0;224 rc=0;221 rc=0;222 rc=0;225 rc=0;225   rc=0;234 rc=0;"
              "235 rc=0;248 rc=0; arguments;242 rc=2;369 rc=2;",
              functions);
}

} // namespace
