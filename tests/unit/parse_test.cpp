// The syntax of keystore.conf. fuzz/parse_fuzzer.cpp cuts items down to one section.
#include "support/keystore_file.h"

namespace {

using std::string;

TEST(Strip, KeepsTheEndWhenLastAndFirstLetterMatch) {
    for (const auto &[text, kept] :
         {std::pair("   ", ""), {"  abc \v\f\r", "abc"}, {"k ", "k "}, {" aba ", "aba "}}) {
        string copy = text;
        char *start = copy.data();
        sztucStrip(&start);
        EXPECT_STREQ(kept, start);
    }
}

TEST(Items, ComeFromTheLines) {
    const string key255(255, 'k');
    const struct {
        string text;
        uint32_t result;
        string items;
    } cases[] = {
        {"", 11, ""},
        {"\n\n", 11, ""},
        {"# x.y = z\n\n  \t\n #\n", 11, ""},
        {"  key.a = bc # note", 0, "[key.a=bc]"},
        {"=v", 0, "[=v]"},
        {"x#y = v", 0, "[x#y=v]"},
        {"\n\nx.y=1\n\n\nx.y=2\n\n", 0, "[x.y=1][x.y=2]"},
        {"x.y = a=b", 0, "[x.y=a=b]"},
        {"x.y =a= #", 0, "[x.y=a=]"},
        {"x.y = ab\r\n# c\r\nx.z\t=\tc d\r\n", 0, "[x.y=ab][x.z=c d]"},
        // A fault ends it; the items before stay.
        {"x.y = 1\nx.z =\nx.u = 2", 11, "[x.y=1]"},
        {"x.y = 1\nx.z = # 2\n", 11, "[x.y=1]"},
        {"x.y = 1\nword\n", 11, "[x.y=1]"},
        {"x.y = 1\nw # a=b\n", 0, "[x.y=1][w # a=b]"},
        {string("x.y = 1\0word\n", 13), 0, "[x.y=1]"},
        // The end of a text whose first and last letter match is kept, first of the line, then of
        // the value.
        {"k = ab", 0, "[k =ab]"},
        {"x.log = 1 # on", 0, "[x.log=1 ]"},
        {"x.y = aba \n", 0, "[x.y=aba]"},
        {"a.y = aba \n", 0, "[a.y=aba ]"},
        // The room for a key counts its blanks.
        {key255 + "=v", 0, "[" + key255 + "=v]"},
        {" " + key255 + "k=v", 11, ""},
        {key255 + " =v", 11, ""}};
    for (const auto &row : cases) {
        string text = row.text;
        SztuList *const list = SztuListCreate();
        EXPECT_EQ(row.result, sztucParseConfigFile(text.data(), list)) << row.text;
        EXPECT_EQ(row.items, takeItems(list)) << row.text;
    }
}

TEST(Items, StayWithoutASectionAndMayBeAbsent) {
    char text[] = "x.y=1";
    SztuList *const list = SztuListCreate();
    EXPECT_EQ(0U, sztucParseConfigFile(text, list));
    sztucFilterPrefix(list, nullptr);
    EXPECT_EQ("[x.y=1]", takeItems(list));
    sztucFilterPrefix(nullptr, "x");
    sztucFreeConfigItem(nullptr);
    sztucFreeConfigList(nullptr);
}

TEST(Prefix, EndsInFrontOfTheFirstDot) {
    const std::string longest(SZTUC_PREFIX_CAPACITY, 'x');
    const struct {
        std::string key, prefix;
        size_t result;
    } rows[] = {{"a.b.c", "a", 2},
                {".k", "", 1},
                {"no dot", "", 0},
                {longest + "y.k", longest, longest.size() + 2}};
    for (const auto &row : rows) {
        char prefix[SZTUC_PREFIX_CAPACITY + 1] = {};
        EXPECT_EQ(static_cast<int32_t>(row.result), sztucGetPrefix(prefix, row.key.c_str()));
        EXPECT_EQ(row.prefix, prefix);
    }
}

} // namespace
