// Where keystore.conf lies.
#include "support/keystore_file.h"

#include <cstring>
#include <pwd.h>

namespace {

using std::string;

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

} // namespace
