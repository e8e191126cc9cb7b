// The channel cache. Each test caches a file, changes it on disk, and looks whether the old or the
// new content is read.
#include "support/keystore_file.h"
#include "sztoumaa/channel_cache.h"

#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>

namespace {

constexpr char CHANNEL[] = "TO.HUB              "; // padded to its fixed width
constexpr char OLD_TEXT[] = "cms.keystore = old\ncms.certificate.channel.TO.HUB = label\n"
                            "cms.private.channel.TO.HUB = p\ncms.public.channel.TO.HUB = q\n"
                            "cms.password.channel.TO.HUB = from cms\n"
                            "cms.encrypted.channel.EMPTY = x\n";
constexpr char NEW_TEXT[] = "cms.keystore = new\ncms.certificate.channel.NEW = label\n"
                            "cms.certificate.channel.TO.HUB = label\n"
                            "pem.private.channel.TO.HUB = p\npem.public.channel.TO.HUB = q\n"
                            "pem.password.channel.TO.HUB = from pem\n";

class ChannelCache : public testing::Test {
protected:
    ChannelCache() {
        setenv("ZTS_KEYSTORE_CONF", path, 1);
        setTime(1000, 0);
    }
    ~ChannelCache() override {
        sztouReleaseMCAKeyStoreConf();
        thdProcess.processKind = 0;
        unsetenv("ZTS_KEYSTORE_CONF");
    }

    void setTime(time_t seconds, long nanoseconds) const {
        const timespec times[2] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
        EXPECT_EQ(0, utimensat(AT_FDCWD, path, times, 0));
    }

    static void fill(int32_t kind) {
        thdProcess.processKind = kind;
        (void)sztouCacheMCAKeystoreConf();
    }

    // Key store and channel password that the readers find.
    static std::string read(const std::string &keystorePath) {
        SztouKsConfig cms = {};
        SztouPemConfig pem = {};
        EXPECT_EQ(0U, sztouGetMCAConfig(&cms, CHANNEL, keystorePath.c_str(), nullptr));
        EXPECT_EQ(0U, sztouGetMCAPemConfig(&pem, CHANNEL, keystorePath.c_str(), nullptr));
        return cms.keystore + std::string(", ") + pem.password;
    }

    const TemporaryFile file{OLD_TEXT};
    const char *const path = file.path.c_str();
};

TEST_F(ChannelCache, ServesTheSameSpellingWithinTheSameSecondOnly) {
    fill(12);
    file.write(NEW_TEXT);
    std::string otherSpelling = file.path;
    otherSpelling.insert(otherSpelling.rfind('/'), 1, '/');
    setTime(1000, 999999999);
    // The cached section is "cms", and the channel keys of "pem" are looked up in it as they stand.
    EXPECT_EQ("old, from cms", read(file.path));
    EXPECT_EQ("new, from pem", read(otherSpelling));
    setTime(1001, 0);
    EXPECT_EQ("new, from pem", read(file.path));
    setTime(1000, 0); // the changed file did not take the place of the cached one
    EXPECT_EQ("old, from cms", read(file.path));
    sztouReleaseMCAKeyStoreConf();
    EXPECT_EQ("new, from pem", read(file.path));
}

TEST_F(ChannelCache, IsForFourKindsOfProcesses) {
    EXPECT_EQ(0, thdProcess.processKind); // nobody has set it yet
    for (const int32_t kind : {-1, 0, 11, 13, 16, 46, 48, 64 + 12, 12, 14, 15, 47}) {
        const bool caches = kind == 12 || kind == 14 || kind == 15 || kind == 47;
        fill(kind);
        EXPECT_EQ(caches ? 1 : 0, sztouIsMCAInterceptEnabled(CHANNEL)) << kind;
        sztouReleaseMCAKeyStoreConf();
        EXPECT_EQ(0, sztouIsMCAInterceptEnabled(CHANNEL)) << kind;
    }
}

TEST_F(ChannelCache, TellsWhichChannelsAreIntercepted) {
    fill(47);
    EXPECT_EQ(0, sztouIsMCAInterceptEnabled("NEW"));
    EXPECT_EQ(0, sztouIsMCAInterceptEnabled(nullptr));
    file.write(NEW_TEXT);
    setTime(1001, 0); // a changed file is read again each time
    EXPECT_EQ(1, sztouIsMCAInterceptEnabled("NEW"));
    file.write("word");
    EXPECT_EQ(0, sztouIsMCAInterceptEnabled("NEW"));
    setTime(1000, 0);
    EXPECT_EQ(0, sztouIsMCAInterceptEnabled("NEW"));
    EXPECT_EQ(1, sztouIsMCAInterceptEnabled(CHANNEL));
    unlink(path);
    EXPECT_EQ(0, sztouIsMCAInterceptEnabled(CHANNEL));
}

TEST_F(ChannelCache, EndsAReadingWithSuccessAtAnEmptyWord) {
    fill(14);
    // No file can hold an empty value, so one is made in the cached section.
    SztuList *const list = vek::cachedSection(path);
    ASSERT_NE(nullptr, list);
    static_cast<SztucConfigItem *>(list->tail->item)->value[0] = '\0';
    SztouPemConfig config;
    memset(&config, 0xFF, sizeof config);
    const SztouPemConfig before = config;
    EXPECT_EQ(0U, sztouGetMCAPemConfig(&config, "EMPTY", path, nullptr));
    EXPECT_EQ(0, memcmp(&before, &config, sizeof config));
}

} // namespace
