// Loading a section, typed lookups, the initial key of the readers and their session.
#include "support/keystore_file.h"
#include "sztoumaa/built_in_key.h"
#include "sztoumaa/key_source.h"
#include "sztoumaa/load.h"
#include "sztoumaa/lookup.h"
#include "zttrc.h"

#include <sched.h>
#include <sstream>

namespace {

using std::string;

void expectMessage(const string &part, const string &shown) {
    if (part.empty())
        EXPECT_EQ("", shown);
    else
        EXPECT_NE(string::npos, shown.find(part)) << "'" << shown << "' lacks '" << part << "'";
}

SztuList *loaded(const string &content, const char *section) {
    SztuList *list = nullptr;
    EXPECT_EQ(0U, vek::loadSection(TemporaryFile(content).path.c_str(), &list, section, 1));
    return list;
}

// ---- Loading ---------------------------------------------------------------------------------

TEST(LoadSection, HandsOverTheSectionOrNothing) {
    const TemporaryFile file("");
    const string atFault = "ZTM9062E The file '" + file.path + "'";
    const struct {
        const char *content;
        const char *section;
        uint32_t result;
        string message;
    } cases[] = {{"x.a=1\ny.b=2", "x", 0, ""},
                 {"x.a=1\ny.b=2", "z", 7, ""},
                 {"x.a=1\nword", "x", 11, atFault},
                 {"", "x", 12, atFault},
                 {"x.a=1", "", 2, ""}};
    for (const auto &row : cases) {
        file.write(row.content);
        for (const uint32_t switches : {0U, 1U, 2U, 3U}) {
            SztuList *list = loaded("old.a=1", "old"); // goes, whatever happens
            sztUseLogErrorMessage = switches & 1;
            const string shown = shownBy([&] {
                EXPECT_EQ(row.result, vek::loadSection(file.path.c_str(), &list, row.section,
                                                       (switches & 2) != 0));
            });
            sztUseLogErrorMessage = 1;
            expectMessage(switches == 3 ? row.message : "", shown);
            EXPECT_EQ(row.result != 0, list == nullptr) << row.content;
            sztucFreeConfigList(list);
        }
    }
}

TEST(LoadSection, NeedsAPlace) {
    if (system("unshare -U true 2>/dev/null") != 0)
        GTEST_SKIP() << "namespaces of users are not permitted here";
    // In the namespace this user has a number that the password database does not know.
    const string map = "54321 " + std::to_string(geteuid()) + " 1";
    EXPECT_EXIT(
        {
            SztuList *list = nullptr;
            unsetenv("HOME");
            unsetenv("ZTS_KEYSTORE_CONF");
            if (unshare(CLONE_NEWUSER) == 0 && std::ofstream("/proc/self/uid_map")
                                                   << map << std::flush)
                exit(static_cast<int>(vek::loadSection(nullptr, &list, "x", 1)));
        },
        testing::ExitedWithCode(15), "ZTM9083E .*'keystore.conf'");
}

// ---- Lookups ---------------------------------------------------------------------------------

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

// ---- Key source and session ------------------------------------------------------------------

TEST(BaseName, BeginsBehindTheLastSlashThatANameFollows) {
    const char *const cases[][2] = {{"/a/b//", "b//"}, {"name", "name"}, {"/", "/"},
                                    {"a/b", "b"},      {"//x", "x"},     {"", ""}};
    for (const auto &row : cases)
        EXPECT_STREQ(row[1], vek::baseName(row[0]));
}

const string KEY_1(32, '1'), KEY_2(32, '2');

TEST(Session, TakesItsKeyFromTheFirstSourceThatIsNamed) {
    const TemporaryFile keyFile1(KEY_1), keyFile2(KEY_2);
    const string file1 = keyFile1.path;
    uint8_t defaultKey[SVC_PBE_KEY_LENGTH], salt[SVC_PBE_SALT_LENGTH];
    vek::buildDefaultKey(defaultKey);
    vek::buildFixedSalt(salt);
    const string builtIn(reinterpret_cast<char *>(defaultKey), sizeof defaultKey);
    const string named2 = "vekcred.keyfile = " + keyFile2.path;
    const struct {
        string variable;
        string content;
        int32_t algorithm;
        int32_t result;
        string key;
        string message;
        const char *item;
    } cases[] = {
        {"", "x.y=1", 2, 0, builtIn, "ZTM6339W", "vekcred"},
        {"", "vekcred.other=1", 2, 0, builtIn, "ZTM6339W", "vekcred"},
        {"", named2, 2, 0, KEY_2, "", "vekcred"},
        {file1, named2, 2, 0, KEY_1, "", "vekcred"},
        {file1, "x.y=1", 1, 0, KEY_1, "", "vekcred"},
        {"/missing/dir//", named2, 2, 2, "", "ZTM6335E The initial key file 'dir//'", "vekcred"},
        {"", "vekcred.keyfile=/missing/k", 2, 2, "", "ZTM6335E The initial key file 'k'",
         "vekcred"},
        {file1, named2 + "\n" + named2, 2, 15, "", "'vekcred.keyfile'", "vekcred.keyfile"},
        {file1, "word", 2, 11, "", "ZTM9063E The key source 'vekcred'", "vekcred"},
        {file1, "x.y=1", 3, 2, "", "ZTM6337E", "vekcred"} // the service refuses the algorithm
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.variable + " " + row.content);
        unsetenv("ZTS_VEKCRED_KEYFILE");
        if (!row.variable.empty())
            setenv("ZTS_VEKCRED_KEYFILE", row.variable.c_str(), 1);
        const TemporaryFile file(row.content);
        char item[16];
        SvcPBESession session = {};
        session.algorithm = row.algorithm;
        const string shown = shownBy([&] {
            EXPECT_EQ(row.result, sztouInitializePBE(SVC_COMPONENT_VEK, 369, file.path.c_str(),
                                                     item, &session, /* fips= */ 0));
        });
        expectMessage(row.message, shown);
        EXPECT_STREQ(row.item, item);
        if (row.result == 0) {
            EXPECT_EQ(row.key, string(reinterpret_cast<char *>(session.key), 32));
            EXPECT_EQ(0, memcmp(salt, session.salt, sizeof salt));
            EXPECT_STREQ("<VEK>", session.label);
            EXPECT_EQ(2, sztouInitializePBE(SVC_COMPONENT_VEK, 369, nullptr, item, &session, 0));
            EXPECT_EQ(0U, sztouTermPBE(&session));
        }
        EXPECT_TRUE(session.key == nullptr && session.keyLength == 0);
        EXPECT_TRUE(session.salt == nullptr && session.saltLength == 0);
        EXPECT_EQ(0U, sztouTermPBE(&session)); // also without key and salt
    }
    unsetenv("ZTS_VEKCRED_KEYFILE");
    EXPECT_EQ(SVC_PBE_BAD_ARGUMENTS + 0U, sztouTermPBE(nullptr));
}

TEST(Session, IsTracedWhenItIsRefusedToo) {
    if ((thdProcess.traceFlags & TRC_UNSETTLED) == 0)
        GTEST_SKIP() << "another test of this process came first";
    const TemporaryFile trace("");
    setenv("ZTS_TRACE", trace.path.c_str(), 1);
    EXPECT_EQ(2, sztouInitializePBE(SVC_COMPONENT_VEK, 369, nullptr, nullptr, nullptr, 0));
    std::ostringstream records;
    records << std::ifstream(trace.path).rdbuf();
    EXPECT_NE(string::npos, records.str().find("exit  16:369 rc=2")) << records.str();
}

} // namespace
