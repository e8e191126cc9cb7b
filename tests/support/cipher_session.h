// A cipher session of the service, with key and salt of its own.
#ifndef CIPHER_SESSION_H
#define CIPHER_SESSION_H

#include "sztoumaa/built_in_key.h"
#include "ztpbe.h"

#include <array>
#include <cstdlib>
#include <string>

// The key or the salt of the product, by the function that makes it.
template <size_t length> std::string builtIn(void (*build)(std::span<uint8_t, length>)) {
    std::array<uint8_t, length> bytes;
    build(bytes);
    return {bytes.begin(), bytes.end()};
}

struct CipherSession {
    SvcPBESession record = {};
    std::string key, salt;
    uint32_t reason = 0, algorithm = 0; // results of the latest call

    explicit CipherSession(int number, const std::string &keyBytes = std::string(32, 'k'),
                           const std::string &saltBytes = std::string(SVC_PBE_SALT_LENGTH, 's'))
        : key(keyBytes), salt(saltBytes) {
        record.algorithm = number;
        record.label = "<VEK>";
        record.keyLength = static_cast<int32_t>(key.size());
        record.key = reinterpret_cast<uint8_t *>(key.data());
        record.saltLength = static_cast<int32_t>(salt.size());
        record.salt = reinterpret_cast<uint8_t *>(salt.data());
    }
    CipherSession(const CipherSession &) = delete;
    ~CipherSession() {
        (void)svcPBETerm(&record, SVC_PBE_TERM_CLOSE);
    }
    uint32_t open() {
        return reason = svcPBEInit(svcIC_MINI_SUBPOOL.handle, svcIC_MINI_SUBPOOL.word, &record);
    }
    std::string save(const std::string &clear) {
        char *text;
        int32_t length;
        reason =
            svcPBESave(&record, clear.data(), static_cast<int32_t>(clear.size()), &text, &length);
        return take(text, length);
    }
    std::string restore(const std::string &stored) {
        char *text;
        int32_t length;
        reason = svcPBERestore(&record, stored.data(), static_cast<int32_t>(stored.size()),
                               &algorithm, &text, &length);
        return take(text, length);
    }

private:
    std::string take(char *text, int32_t length) const {
        if ((reason == SVC_PBE_OK) != (text != nullptr) || (text == nullptr) != (length == 0))
            abort(); // a failure leaves the outputs empty
        std::string copy(text, static_cast<size_t>(length));
        (void)svcPBEFreeBuf(text, length);
        return copy;
    }
};

#endif
