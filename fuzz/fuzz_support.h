// What the fuzz targets share. A target is one file NAME_fuzzer.cpp with LLVMFuzzerTestOneInput; it
// checks properties with require(), and the stack of the abort shows which one failed.
#ifndef FUZZ_SUPPORT_H
#define FUZZ_SUPPORT_H

#include "shared.h"
#include "support/cipher_session.h"

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
inline CipherSession &openSession(int32_t algorithm) {
    static CipherSession *sessions[SVC_PBE_ALGORITHM_LATEST + 1];
    CipherSession *&session = sessions[algorithm];
    if (session == nullptr) {
        session = new CipherSession(algorithm, builtIn(vek::buildDefaultKey),
                                    builtIn(vek::buildFixedSalt));
        require(session->open() == SVC_PBE_OK);
    }
    return *session;
}

#endif
