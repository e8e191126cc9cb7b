// The readers of the library as judges of a file: which of them fails, and which hands its program
// a text that it cannot use.
#ifndef READER_JUDGE_H
#define READER_JUDGE_H

#include "shared/line_words.h"
#include "ztvek.h"

#include <cstring>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>

// A file that has a path but lies on no disk.
class FileInMemory {
public:
    FileInMemory()
        : descriptor(memfd_create("keystore", MFD_CLOEXEC)),
          path("/proc/self/fd/" + std::to_string(descriptor)) {}
    FileInMemory(const FileInMemory &) = delete;
    FileInMemory &operator=(const FileInMemory &) = delete;
    ~FileInMemory() {
        close(descriptor);
    }
    [[nodiscard]] bool write(std::string_view text) const {
        return ftruncate(descriptor, 0) == 0 &&
               pwrite(descriptor, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size());
    }

    int descriptor;
    std::string path;
};

class ReaderJudge {
public:
    explicit ReaderJudge(const char *keystorePath) : path(keystorePath) {}

    bool isBad = false;          // a reader failed, or handed an encrypted or a cut text over
    bool handsClearText = false; // a reader took a credential that stands in clear
    std::string credential;      // that the last reader handed out

    // Runs the reader of a section, for a channel when `channel` is not null.
    void ask(std::string_view section, const char *channel = nullptr) {
        const bool isOfChannel = channel != nullptr;
        if (section == "cms") {
            SztouKsConfig record = {};
            (void)accept(isOfChannel ? sztouGetMCAConfig(&record, channel, path, nullptr)
                                     : sztouGetKsConfig(&record, path, nullptr),
                         isOfChannel);
        } else if (section == "pem") {
            SztouPemConfig record = {};
            if (accept(isOfChannel ? sztouGetMCAPemConfig(&record, channel, path, nullptr)
                                   : sztouGetPemConfig(&record, path, nullptr),
                       isOfChannel))
                judge(record.password, record.encrypted);
        } else if (section == "pkcs11") {
            SztouPkcs11Config record = {};
            if (accept(sztouGetPkcs11Config(&record, path, nullptr)))
                judge(record.token_pin, record.encrypted);
        } else if (section == "crl") {
            SztouCrlConfig record = {};
            if (accept(sztouGetCrlConfig(&record, path, nullptr, /* fips= */ 0)))
                judge(record.ldapServers[0].pass, record.encrypted);
        } else if (section == "ocsp") {
            SztouOcspConfig record = {};
            (void)accept(sztouGetOcspConfig(&record, path, nullptr));
        } else {
            char keyFile[SZTUC_PATH_CAPACITY] = {};
            (void)accept(sztouGetVEKCredConfig(keyFile, path, nullptr));
        }
    }

private:
    // Result: whether there is a record to look at. Not there is no failure.
    bool accept(uint32_t code, bool isOfChannel = false) {
        const bool isNotThere =
            code == SZTU_SECTION_EMPTY || (isOfChannel && code == SZTU_KEY_NOT_PRESENT);
        isBad = isBad || (code != SZTU_OK && !isNotThere);
        return code == SZTU_OK;
    }

    // A filled field without a terminator was cut, but for a text of exactly its length.
    template <size_t size> void judge(const char (&field)[size], int32_t encrypted) {
        const std::string_view text(field, strnlen(field, size));
        credential = text;
        if (vek::isInEncryptedForm(text) || text.size() == size)
            isBad = true;
        else if (encrypted == 0 && !text.empty())
            handsClearText = true;
    }

    const char *path;
};

#endif
