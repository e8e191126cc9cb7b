// Every reader from several threads at once, each with records of its own, on one file, one cache
// and one trace.
#include "support/keystore_file.h"

#include <sstream>
#include <thread>
#include <vector>

namespace {

TEST(Threads, ReadTheSameFileAtTheSameTime) {
    sztUseLogErrorMessage = 0;
    const TemporaryFile trace("");
    setenv("ZTS_TRACE", trace.path.c_str(), 1);
    const TemporaryFile key(std::string(32, 'k'));
    setenv("ZTS_VEKCRED_KEYFILE", key.path.c_str(), 1);
    const TemporaryFile file(everySection(protect("secret")));
    const char *const path = file.path.c_str();
    setenv("ZTS_KEYSTORE_CONF", path, 1);
    thdProcess.processKind = 12;
    (void)sztouCacheMCAKeystoreConf();

    const auto readAll = [path] {
        for (int round = 0; round < 10; ++round) {
            SztouKsConfig keyStore = {}, channelKeyStore = {};
            SztouPemConfig pem = {}, channelPem = {};
            SztouPkcs11Config token = {};
            SztouCrlConfig crl = {};
            SztouOcspConfig ocsp = {};
            EXPECT_EQ(0U, sztouGetKsConfig(&keyStore, nullptr, nullptr));
            EXPECT_EQ(0U, sztouGetMCAConfig(&channelKeyStore, "HUB", path, nullptr));
            EXPECT_EQ(0U, sztouGetPemConfig(&pem, path, nullptr));
            EXPECT_EQ(0U, sztouGetMCAPemConfig(&channelPem, "HUB", path, nullptr));
            EXPECT_EQ(0U, sztouGetPkcs11Config(&token, path, nullptr));
            EXPECT_EQ(0U, sztouGetCrlConfig(&crl, path, nullptr, 0));
            EXPECT_EQ(0U, sztouGetOcspConfig(&ocsp, path, nullptr));
            EXPECT_EQ(1, sztouIsMCAInterceptEnabled("HUB"));
            EXPECT_STREQ("h", channelKeyStore.certificate);
            for (const char *const clear :
                 {pem.password, channelPem.password, token.token_pin, crl.ldapServers[0].pass})
                EXPECT_STREQ("secret", clear);
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 6; ++i)
        threads.emplace_back(readAll);
    for (std::thread &thread : threads)
        thread.join();
    sztouReleaseMCAKeyStoreConf();

    std::ostringstream records;
    records << std::ifstream(trace.path).rdbuf();
    EXPECT_NE(std::string::npos, records.str().find("Reusing cached channel PEM configuration"));
    EXPECT_EQ(std::string::npos, records.str().find("secret")) << "a clear credential was traced";
}

} // namespace
