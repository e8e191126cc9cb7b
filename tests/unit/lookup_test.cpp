// The value of a key: text, integer, logical.
#include "support/keystore_file.h"
#include "sztoumaa/lookup.h"

#include <sstream>

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
    // Result and value as integer, result and value as logical; -9: the value is as it was.
    const char *const cases[][2] = {
        {"1", "0 1 0 1"},
        {"0", "0 0 0 0"},
        {"1z", "0 1 15 -9"},
        {"0x10", "0 0 15 -9"},
        {"-2a", "0 -2 15 -9"},
        {"tRuE", "0 0 0 1"},
        {"Yes", "0 0 0 1"},
        {"on", "0 0 0 1"},
        {"oFF", "0 0 0 0"},
        {"No", "0 0 0 0"},
        {"false", "0 0 0 0"},
        {"y", "0 0 15 -9"},
        {"true.", "0 0 15 -9"},
        {"2", "0 2 15 -9"},
        {"1\nx.k=1", "15 -9 15 -9"},
        {"1\nx.k2=2", "0 1 0 1"},
        // Neither the range nor what stands behind 20 characters is looked at.
        {"4294967297", "0 1 15 -9"},
        {"99999999999999999999", "0 -1 15 -9"},
        {"000000000000000000123", "0 12 15 -9"}};
    sztUseLogErrorMessage = 0;
    for (const auto &row : cases) {
        SztuList *list = loaded(string("x.k=") + row[0], "x");
        int32_t number = -9, logical = -9;
        const uint32_t numberResult = vek::getInt(list, nullptr, "k", &number);
        const uint32_t logicalResult = vek::getLogical(list, nullptr, "k", &logical);
        std::ostringstream results;
        results << numberResult << ' ' << number << ' ' << logicalResult << ' ' << logical;
        EXPECT_EQ(row[1], results.str()) << row[0];
        EXPECT_EQ(1U, vek::getInt(list, nullptr, "j", &number));
        EXPECT_EQ(1U, vek::getLogical(list, nullptr, "j", &number));
        EXPECT_EQ(2U, vek::getInt(list, nullptr, "", &number));
        EXPECT_EQ(2U, vek::getLogical(nullptr, nullptr, "k", &logical));
        sztucFreeConfigList(list);
    }
    sztUseLogErrorMessage = 1;
}

} // namespace
