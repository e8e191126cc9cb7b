// Where keystore.conf lies, how it is read, and its syntax.
#include "support/keystore_file.h"

#include <cstring>
#include <sstream>

namespace {

using std::string;

// ---- Location --------------------------------------------------------------------------------

TEST(ConfigFilePath, ComesFromTheVariableElseFromHome) {
    const string long4094(4094, 'h'), long5000(5000, 'x');
    const string passwordHome = getpwuid(getuid())->pw_dir;
    const struct {
        const char *variable; // null: not set
        const char *home;
        string path;
    } cases[] = {{"/tmp/x.conf", "/home/u", "/tmp/x.conf"},
                 {"", "/home/u", ""},
                 {nullptr, "/home/u", "/home/u/.zts/keystore.conf"},
                 {nullptr, "/home/u/", "/home/u//.zts/keystore.conf"},
                 {nullptr, "", "/.zts/keystore.conf"},
                 {long5000.c_str(), "/home/u", long5000.substr(0, 4096)},
                 {nullptr, long4094.c_str(), long4094 + "/."},
                 {nullptr, nullptr, passwordHome + "/.zts/keystore.conf"},
                 {nullptr, long5000.c_str(), passwordHome + "/.zts/keystore.conf"}};
    for (const auto &row : cases) {
        for (const auto &[name, value] :
             {std::pair("VEK_TEST_CONF", row.variable), {"HOME", row.home}})
            (void)(value == nullptr ? unsetenv(name) : setenv(name, value, 1));
        char path[SZTUC_PATH_CAPACITY];
        memset(path, 'z', sizeof path);
        EXPECT_EQ(0U, sztucGetConfigFilePath(path, "VEK_TEST_CONF", "keystore.conf"));
        EXPECT_EQ(row.path, path);
    }
}

// ---- Reading ---------------------------------------------------------------------------------

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

// ---- Syntax ----------------------------------------------------------------------------------

TEST(Strip, KeepsTheEndWhenLastAndFirstLetterMatch) {
    for (const auto &[text, kept] :
         {std::pair("   ", ""), {"  abc \v\f\r", "abc"}, {"k ", "k "}, {" aba ", "aba "}}) {
        string copy = text;
        char *start = copy.data();
        sztucStrip(&start);
        EXPECT_STREQ(kept, start);
    }
}

class Items : public ::testing::Test {
protected:
    SztuList *list = SztuListCreate();

    uint32_t parse(string text) {
        return sztucParseConfigFile(text.data(), list);
    }

    // The items of the list, "[key=value]" for each.
    string takeItems() {
        string items;
        list->SztuListForEachWith(
            list,
            [](void *item, void *text) {
                const SztucConfigItem *const texts = static_cast<SztucConfigItem *>(item);
                *static_cast<string *>(text) += string("[") + texts->key + "=" + texts->value + "]";
            },
            &items);
        list->SztuListRemoveAll(list, 1, sztucFreeConfigItem);
        return items;
    }

    void TearDown() override {
        sztucFreeConfigList(list);
    }
};

TEST_F(Items, ComeFromTheLines) {
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
        EXPECT_EQ(row.result, parse(row.text)) << row.text;
        EXPECT_EQ(row.items, takeItems()) << row.text;
    }
}

TEST_F(Items, AreCutDownToOneSection) {
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
    for (const auto &row : cases) {
        ASSERT_EQ(0U, parse(row.text));
        sztucFilterPrefix(list, row.section.c_str());
        EXPECT_EQ(row.items, takeItems()) << row.section;
    }
    ASSERT_EQ(0U, parse("x.y=1"));
    sztucFilterPrefix(list, nullptr);
    sztucFilterPrefix(nullptr, "x");
    EXPECT_EQ("[x.y=1]", takeItems());
    sztucFreeConfigItem(nullptr);
    sztucFreeConfigList(nullptr);
}

} // namespace
