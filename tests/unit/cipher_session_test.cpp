// The cipher session of the readers, and where its initial key comes from.
#include "support/keystore_file.h"
#include "sztoumaa/built_in_key.h"

#include <cstring>

namespace {

using std::string;

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

} // namespace
