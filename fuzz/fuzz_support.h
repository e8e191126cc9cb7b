// What the fuzz targets share. A target is one file NAME_fuzzer.cpp with LLVMFuzzerTestOneInput; it
// checks properties with require(), and the stack of the abort shows which one failed.
#ifndef FUZZ_SUPPORT_H
#define FUZZ_SUPPORT_H

#include "shared.h"
#include "sztoumaa/built_in_key.h"

#include <cstdlib>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

inline void require(bool holds) {
    if (!holds)
        abort();
}

inline std::string_view asText(const uint8_t *data, size_t size) {
    return {reinterpret_cast<const char *>(data), size};
}

// The session of an algorithm, with the default key; it stays open until the process ends.
inline SvcPBESession *openSession(int32_t algorithm) {
    static SvcPBESession sessions[SVC_PBE_ALGORITHM_LATEST + 1];
    static uint8_t key[SVC_PBE_KEY_LENGTH];
    static uint8_t salt[SVC_PBE_SALT_LENGTH];
    SvcPBESession *const session = &sessions[algorithm];
    if (session->serviceState != nullptr)
        return session;
    vek::buildDefaultKey(key);
    vek::buildFixedSalt(salt);
    session->algorithm = algorithm;
    session->label = vek::LABEL;
    session->key = key;
    session->keyLength = sizeof key;
    session->salt = salt;
    session->saltLength = sizeof salt;
    require(svcPBEInit(svcIC_MINI_SUBPOOL.handle, svcIC_MINI_SUBPOOL.word, session) == SVC_PBE_OK);
    return session;
}

// Decrypts `stored`; a failure must leave the outputs empty.
inline uint32_t restore(SvcPBESession *session, std::string_view stored, std::string *clear) {
    char *text = nullptr;
    int32_t length = -1;
    const uint32_t result = svcPBERestore(
        session, stored.data(), static_cast<int32_t>(stored.size()), nullptr, &text, &length);
    require((result == SVC_PBE_OK) == (text != nullptr) && (text != nullptr) == (length > 0));
    clear->assign(text == nullptr ? "" : text, static_cast<size_t>(length));
    (void)svcPBEFreeBuf(text, length);
    return result;
}

#endif
