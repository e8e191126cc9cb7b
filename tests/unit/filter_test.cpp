// The items of one section.
#include "support/keystore_file.h"

namespace {

using std::string;

string filtered(string text, const char *section) {
    SztuList *const list = SztuListCreate();
    EXPECT_EQ(0U, sztucParseConfigFile(text.data(), list));
    sztucFilterPrefix(list, section);
    return takeItems(list);
}

TEST(Items, AreCutDownToOneSection) {
    const string prefix31(31, 's'), prefix32(32, 's');
    const struct {
        string text;
        string section;
        string items;
    } cases[] = {{"x.y=1\nx.y.z=2\ny.x=3\nxy.z=4\nz=5\nX.y=6\nx.=7\n.x=8", "x", "[y=1][y.z=2][=7]"},
                 {"y.a=1\nx.b=2\ny.c=3", "y", "[a=1][c=3]"},
                 {"y.a=1", "x", ""},
                 {prefix31 + ".a=1", prefix31, "[a=1]"},
                 {prefix32 + ".a=1", prefix32, ""},
                 {prefix32 + "s.a=1", prefix32, ""}};
    for (const auto &row : cases)
        EXPECT_EQ(row.items, filtered(row.text, row.section.c_str())) << row.section;
    EXPECT_EQ("[x.y=1]", filtered("x.y=1", nullptr));
    sztucFilterPrefix(nullptr, "x");
    sztucFreeConfigItem(nullptr);
    sztucFreeConfigList(nullptr);
}

} // namespace
