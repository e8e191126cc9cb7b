// What the tests of the readers share: files of their own, and credentials stored encrypted.
#ifndef KEYSTORE_FILE_H
#define KEYSTORE_FILE_H

#include "sztoumaa/load.h"
#include "ztvek.h"

#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

// A file that lives as long as the object.
class TemporaryFile {
public:
    explicit TemporaryFile(const std::string &text) {
        const char *const folder = getenv("TMPDIR");
        path = std::string(folder != nullptr ? folder : "/tmp") + "/keystoreXXXXXX";
        const int descriptor = mkstemp(path.data());
        EXPECT_GE(descriptor, 0);
        close(descriptor);
        write(text);
    }
    ~TemporaryFile() {
        unlink(path.c_str());
    }
    TemporaryFile(const TemporaryFile &) = delete;
    TemporaryFile &operator=(const TemporaryFile &) = delete;

    void write(const std::string &text) const {
        std::ofstream(path, std::ios::trunc) << text;
    }

    std::string path;
};

// What `call` shows on standard error.
template <typename Call> std::string shownBy(Call call) {
    testing::internal::CaptureStderr();
    call();
    return testing::internal::GetCapturedStderr();
}

// The section of a file with this content; the caller's.
inline SztuList *loaded(const std::string &content, const char *section) {
    SztuList *list = nullptr;
    EXPECT_EQ(0U, vek::loadSection(TemporaryFile(content).path.c_str(), &list, section, 1));
    return list;
}

// The items of a list, "[key=value]" for each; the list goes.
inline std::string takeItems(SztuList *list) {
    std::string items;
    for (const SztuListNode *node = list->head; node != nullptr; node = node->next) {
        const SztucConfigItem *const texts = static_cast<SztucConfigItem *>(node->item);
        items += std::string("[") + texts->key + "=" + texts->value + "]";
    }
    sztucFreeConfigList(list);
    return items;
}

// A file with every section, for the channel HUB too, and `credential` behind a marker of each.
// What the reader of a channel looks for in "pem" stands in "cms" as well, where it looks in the
// cache.
inline std::string everySection(const std::string &credential) {
    const std::string password = "password = " + credential;
    std::string lines = "cms.keystore = k\ncms.certificate = c\ncms.certificate.channel.HUB = h\n"
                        "ocsp.url = u\ncrl.ldap.host = h\npkcs11.library = l\n"
                        "pkcs11.certificate = c\npkcs11.token = t\n"
                        "crl.encrypted = YES\npkcs11.encrypted = YES\n"
                        "crl.ldap.pass = " +
                        credential + "\npkcs11.token_pin = " + credential + "\n";
    for (const std::string section : {"pem", "cms"})
        for (const std::string channel : {"", ".channel.HUB"})
            for (const std::string key :
                 {"private = k", "public = c", "encrypted = YES", password.c_str()})
                lines += section + "." + std::string(key).insert(key.find(' '), channel) + "\n";
    return lines;
}

// Encrypts with the initial key that the environment names, or else with the default key.
inline std::string protect(const std::string &clearText) {
    const TemporaryFile empty("no.entry = 1\n");
    SvcPBESession session = {};
    session.algorithm = SVC_PBE_ALGORITHM_GCM;
    EXPECT_EQ(0,
              sztouInitializePBE(SVC_COMPONENT_VEK, 1, empty.path.c_str(), nullptr, &session, 0));
    char *stored = nullptr;
    int32_t length = 0;
    EXPECT_EQ(0U, svcPBESave(&session, clearText.data(), static_cast<int32_t>(clearText.size()),
                             &stored, &length));
    const std::string text(stored, static_cast<size_t>(length));
    svcPBEFreeBuf(stored, length);
    sztouTermPBE(&session);
    return text;
}

#endif
