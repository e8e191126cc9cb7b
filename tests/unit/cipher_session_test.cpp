// The cipher session of the readers. Where its initial key comes from, and what it says when there
// is none, is in recorded_runs.txt.
#include "support/keystore_file.h"
#include "sztoumaa/built_in_key.h"

#include <cstring>

namespace {

TEST(Session, HoldsKeyAndSaltUntilItEnds) {
    const TemporaryFile keyFile(std::string(32, '1')), file("x.y=1");
    setenv("ZTS_VEKCRED_KEYFILE", keyFile.path.c_str(), 1);
    uint8_t salt[SVC_PBE_SALT_LENGTH];
    vek::buildFixedSalt(salt);
    char item[16];
    const auto open = [&](SvcPBESession *session, const char *path) {
        return sztouInitializePBE(SVC_COMPONENT_VEK, 369, path, item, session, /* fips= */ 0);
    };
    for (const int32_t algorithm : {1, 2, 3}) {
        SvcPBESession session = {};
        session.algorithm = algorithm;
        const int32_t result = open(&session, file.path.c_str());
        EXPECT_EQ(algorithm == 3 ? 2 : 0, result); // the service refuses it
        EXPECT_STREQ("vekcred", item);
        if (result == 0) {
            EXPECT_EQ(std::string(32, '1'), std::string(reinterpret_cast<char *>(session.key), 32));
            EXPECT_EQ(0, memcmp(salt, session.salt, sizeof salt));
            EXPECT_STREQ("<VEK>", session.label);
            EXPECT_EQ(2, open(&session, nullptr));
            EXPECT_EQ(0U, sztouTermPBE(&session));
        }
        EXPECT_TRUE(session.key == nullptr && session.keyLength == 0);
        EXPECT_TRUE(session.salt == nullptr && session.saltLength == 0);
        EXPECT_EQ(0U, sztouTermPBE(&session)); // also without key and salt
    }
    SvcPBESession none = {};
    file.write("word");
    const std::string shown = shownBy([&] { EXPECT_EQ(11, open(&none, file.path.c_str())); });
    EXPECT_NE(std::string::npos, shown.find("ZTM9063E The key source 'vekcred'")) << shown;
    unsetenv("ZTS_VEKCRED_KEYFILE");
    EXPECT_EQ(SVC_PBE_BAD_ARGUMENTS + 0U, sztouTermPBE(nullptr));
}

} // namespace
