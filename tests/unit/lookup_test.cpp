// The value of a key: text, integer, logical.
#include "support/keystore_file.h"
#include "sztoumaa/lookup.h"
#include "zttrc.h"

namespace {

using std::string;

TEST(Lookup, OfATextKnowsRequiredOptionalAndTwice) {
    SztuList *list = loaded("x.once=value\nx.twice=1\nx.twice=1", "x");
    const struct {
        const char *key;
        size_t length;
        uint32_t missing;
        uint32_t result;
        const char *field; // of 8 letters "z" before
        const char *message;
    } cases[] = {
        {"once", 7, 0, 0, "value", ""},
        {"once", 3, 0, 0, "valzzzzz", ""},
        {"Once", 8, 1, 1, "zzzzzzzz", ""},
        {"none", 8, 77, 77, "zzzzzzzz", ""},
        {"none", 8, 0, 15, "zzzzzzzz", "ZTM9061E The file '/a/b' lacks the required key 'none'"},
        {"twice", 8, 1, 15, "zzzzzzzz", "ZTM9060E The file '/a/b' holds the key 'twice'"},
        {"", 8, 0, 2, "zzzzzzzz", ""}};
    for (const auto &row : cases) {
        string field(8, 'z');
        const string shown = shownBy([&] {
            EXPECT_EQ(row.result,
                      vek::getText(list, "/a/b", row.key, {field.data(), row.length}, row.missing));
        });
        expectMessage(row.message, shown);
        EXPECT_STREQ(row.field, field.c_str());
    }
    sztucFreeConfigList(list);
    char field[8];
    EXPECT_EQ(2U, vek::getText(nullptr, nullptr, "key", field, 0));
    EXPECT_EQ(2U, sztouGetVEKCredConfig(nullptr, nullptr, nullptr));
    EXPECT_EQ(11U, sztucParseConfigFile(nullptr, nullptr));
}

TEST(Lookup, OfIntegersAndLogicalsTakesExactlyTheirWords) {
    const struct {
        const char *text;
        const char *integer;
        const char *logical;
    } cases[] = {{"1", "1", "1"},
                 {"0", "0", "0"},
                 {"1z", "1", "refused"},
                 {"0x10", "0", "refused"},
                 {"-2a", "-2", "refused"},
                 {"tRuE", "0", "1"},
                 {"Yes", "0", "1"},
                 {"on", "0", "1"},
                 {"oFF", "0", "0"},
                 {"No", "0", "0"},
                 {"false", "0", "0"},
                 {"y", "0", "refused"},
                 {"true.", "0", "refused"},
                 {"2", "2", "refused"},
                 {"1\nx.k=1", "refused", "refused"},
                 {"1\nx.k2=2", "1", "1"},
                 // Neither the range nor what stands behind 20 characters is looked at.
                 {"4294967297", "1", "refused"},
                 {"99999999999999999999", "-1", "refused"},
                 {"000000000000000000123", "12", "refused"}};
    // What a refused key leaves alone, and what an unknown or an empty one is.
    const auto found = [](auto lookup, SztuList *list) {
        int32_t number = -9, other;
        const uint32_t result = lookup(list, nullptr, "k", &number);
        EXPECT_EQ(1U, lookup(list, nullptr, "j", &other));
        EXPECT_EQ(2U, lookup(list, nullptr, "", &other));
        EXPECT_EQ(2U, lookup(nullptr, nullptr, "k", &other));
        return result == 0 ? std::to_string(number) : result == 15 && number == -9 ? "refused" : "";
    };
    sztUseLogErrorMessage = 0;
    for (const auto &row : cases) {
        SztuList *list = loaded(string("x.k=") + row.text, "x");
        EXPECT_EQ(row.integer, found(vek::getInt, list)) << row.text;
        EXPECT_EQ(row.logical, found(vek::getLogical, list)) << row.text;
        int32_t absent = -9;
        EXPECT_EQ(1U, vek::getInt(list, nullptr, "j", &absent));
        EXPECT_EQ(0, absent);
        sztucFreeConfigList(list);
    }
    sztUseLogErrorMessage = 1;
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
