/*
 * session.cpp - the exported functions of the PBE service.
 *
 * Nothing is derived and no algorithm is fetched before the first value, unless the session asks for a
 * FIPS provider: a program that opens a session and finds nothing to encrypt pays for neither.
 */
#include "pbe/cipher.h"
#include "pbe/internal.h"
#include "pbe/key_derivation.h"
#include "pbe/key_file.h"

#include <algorithm>
#include <cstring>
#include <openssl/err.h>

namespace {

constexpr uint32_t OPEN_MARK = 0x5042454F; // serviceWord of an open session
constexpr size_t ALGORITHM_COUNT = 2;

struct SessionState {
    PbeProvider *provider; // null before the first value of a session without fips
    int32_t algorithm;
    size_t labelLength;
    char header[PBE_LABEL_LIMIT + 2]; // the label, and room for the digit
    bool isStretched;
    uint8_t stretchedKey[SVC_PBE_KEY_LENGTH]; // of a passphrase, which is stretched once
    PbeCipher ciphers[ALGORITHM_COUNT];       // by algorithm
    PbeNoncePool nonces;
};

uint32_t getMemory(size_t length, void **memory) {
    const uint32_t result = svcGetMemFn(/* subpool= */ 0, SVC_COMPONENT_VEK, /* allocation= */ 0,
                                        length, /* options= */ 0, memory);
    return result == SVC_OK ? SVC_PBE_OK : SVC_PBE_NO_STORAGE;
}

SessionState *openState(const SvcPBESession *session) {
    const bool isOpen = session != nullptr && session->serviceWord == OPEN_MARK;
    return isOpen ? static_cast<SessionState *>(session->serviceState) : nullptr;
}

// ---- Opening and closing -----------------------------------------------------------------------

bool hasKeyAndSalt(const SvcPBESession &session) {
    return session.key != nullptr && session.keyLength > 0 && session.salt != nullptr &&
           session.saltLength > 0;
}

// The zeros that pad a passphrase add nothing to it.
bool isTooShortForFips(const SvcPBESession &session) {
    int32_t length = session.keyLength;
    if (length == SVC_PBE_KEY_LENGTH)
        return false;
    while (length > 0 && session.key[length - 1] == 0)
        --length;
    return length < SVC_PBE_FIPS_PASSPHRASE_MINIMUM;
}

uint32_t checkRecord(const SvcPBESession *session) {
    if (session == nullptr || session->serviceWord != 0 || session->serviceState != nullptr)
        return SVC_PBE_BAD_ARGUMENTS;
    if (pbeShapeOf(session->algorithm) == nullptr)
        return SVC_PBE_UNSUPPORTED_ALGORITHM;
    if (session->label == nullptr || !pbeIsLabel(session->label) || !hasKeyAndSalt(*session))
        return SVC_PBE_BAD_ARGUMENTS;
    return session->fips != 0 && isTooShortForFips(*session) ? SVC_PBE_FIPS_NOT_AVAILABLE
                                                             : SVC_PBE_OK;
}

uint32_t acquireProvider(bool fips, SessionState *state) {
    (void)ERR_set_mark();
    const uint32_t reason = pbeAcquireProvider(fips, &state->provider);
    (void)ERR_pop_to_mark();
    return reason;
}

void releaseState(SessionState *state) {
    for (PbeCipher &cipher : state->ciphers)
        pbeCloseCipher(&cipher);
    pbeReleaseProvider(state->provider);
    (void)svcFreeMemFn(/* subpool= */ 0, SVC_COMPONENT_VEK, /* allocation= */ 0, state);
}

uint32_t openSession(SvcPBESession *session) {
    void *memory;
    uint32_t reason = getMemory(sizeof(SessionState), &memory);
    if (reason != SVC_PBE_OK)
        return reason;
    SessionState *const state = static_cast<SessionState *>(memory);
    state->algorithm = session->algorithm;
    state->labelLength = strlen(session->label);
    memcpy(state->header, session->label, state->labelLength);
    if (session->fips != 0)
        reason = acquireProvider(/* fips= */ true, state);
    if (reason != SVC_PBE_OK) {
        releaseState(state);
        return reason;
    }
    session->serviceState = state;
    session->serviceWord = OPEN_MARK;
    return SVC_PBE_OK;
}

// Through the pointer it is the library's copy that is called, and it is not left out.
void *(*const volatile libraryCopy)(void *, const void *, size_t) = memcpy;

// Whoever copied a buffer left a part of it in vector registers, and the dynamic linker and signal frames
// put those on the stack. A copy of as many zeros goes through the same registers.
void overwriteRegisters(int32_t length) {
    static constexpr char ZEROS[SVC_PBE_STORED_LIMIT] = {};
    if (length <= 0)
        return;
    char copy[sizeof ZEROS];
    (void)libraryCopy(copy, ZEROS, std::min(static_cast<size_t>(length), sizeof ZEROS));
}

void wipeBytes(uint8_t *bytes, int32_t length) {
    if (bytes != nullptr && length > 0)
        svcWipe(bytes, static_cast<size_t>(length));
}

// ---- One value ---------------------------------------------------------------------------------

uint32_t stretchOnce(const SvcPBESession &session, SessionState *state) {
    if (state->isStretched)
        return SVC_PBE_OK;
    const uint32_t reason = pbeStretchPassphrase(
        *state->provider, {session.key, static_cast<size_t>(session.keyLength)},
        {session.salt, static_cast<size_t>(session.saltLength)}, state->stretchedKey);
    state->isStretched = reason == SVC_PBE_OK;
    return reason;
}

uint32_t deriveCipher(const SvcPBESession &session, SessionState *state, int32_t algorithm,
                      std::span<const char> header, PbeCipher *cipher) {
    if (!hasKeyAndSalt(session))
        return SVC_PBE_BAD_ARGUMENTS;
    uint32_t reason = SVC_PBE_OK;
    if (state->provider == nullptr)
        reason = pbeAcquireProvider(/* fips= */ false, &state->provider);
    const uint8_t *initialKey = session.key;
    if (reason == SVC_PBE_OK && session.keyLength != SVC_PBE_KEY_LENGTH) {
        reason = stretchOnce(session, state);
        initialKey = state->stretchedKey;
    }
    if (reason != SVC_PBE_OK)
        return reason;
    return pbeOpenCipher(cipher, state->provider, algorithm, {initialKey, SVC_PBE_KEY_LENGTH},
                         {session.salt, static_cast<size_t>(session.saltLength)}, header);
}

// Finds the cipher of an algorithm, and derives its key when this is its first value. `header` receives
// label and digit.
uint32_t useCipher(const SvcPBESession &session, SessionState *state, int32_t algorithm,
                   PbeCipher **cipher, std::span<const char> *header) {
    state->header[state->labelLength] = static_cast<char>('0' + algorithm);
    *header = {state->header, state->labelLength + 1};
    *cipher = &state->ciphers[algorithm - 1];
    if ((*cipher)->context != nullptr)
        return SVC_PBE_OK;
    return deriveCipher(session, state, algorithm, *header, *cipher);
}

uint32_t composeText(PbeCipher *cipher, std::span<const char> header, PbeParts *parts,
                     size_t storedLength, char **storedText) {
    void *text; // one character more, for the NUL that the last field leaves behind it
    uint32_t reason = getMemory(storedLength + 1, &text);
    if (reason != SVC_PBE_OK)
        return reason;
    const size_t bodyLength = pbeComposeBody(static_cast<char *>(text), header, *parts);
    reason = pbeAuthenticate(cipher, {static_cast<char *>(text), bodyLength}, parts);
    if (reason != SVC_PBE_OK) {
        (void)svcPBEFreeBuf(text, /* length= */ 0);
        return reason;
    }
    pbeComposeTag(static_cast<char *>(text) + bodyLength, *parts);
    *storedText = static_cast<char *>(text);
    return SVC_PBE_OK;
}

uint32_t save(const SvcPBESession &session, SessionState *state, std::span<const char> clear,
              char **storedText, int32_t *storedLength) {
    const PbeShape &shape = *pbeShapeOf(state->algorithm);
    const size_t length =
        pbeStoredLength(shape, state->labelLength, pbeCipherLength(shape, clear.size()));
    if (clear.empty() || length > SVC_PBE_STORED_LIMIT)
        return SVC_PBE_CLEAR_TEXT_LENGTH;
    PbeCipher *cipher;
    std::span<const char> header;
    uint32_t reason = useCipher(session, state, state->algorithm, &cipher, &header);
    if (reason != SVC_PBE_OK)
        return reason;
    PbeParts parts;
    reason = pbeEncrypt(cipher, &state->nonces, header, clear, &parts);
    if (reason == SVC_PBE_OK)
        reason = composeText(cipher, header, &parts, length, storedText);
    if (reason == SVC_PBE_OK)
        *storedLength = static_cast<int32_t>(length);
    return reason;
}

uint32_t decryptParts(PbeCipher *cipher, std::span<const char> header, const PbeParts &parts,
                      char **clearText, int32_t *clearLength) {
    void *clear;
    uint32_t reason = getMemory(parts.cipherLength, &clear);
    if (reason != SVC_PBE_OK)
        return reason;
    size_t length = 0;
    reason = pbeDecrypt(cipher, header, parts, static_cast<uint8_t *>(clear), &length);
    // No text that svcPBESave makes has nothing but padding in it.
    if (reason == SVC_PBE_OK && length == 0)
        reason = SVC_PBE_MALFORMED_TEXT;
    if (reason != SVC_PBE_OK) {
        (void)svcPBEFreeBuf(clear, /* length= */ 0);
        return reason;
    }
    *clearText = static_cast<char *>(clear);
    *clearLength = static_cast<int32_t>(length);
    return SVC_PBE_OK;
}

uint32_t restore(const SvcPBESession &session, SessionState *state, std::span<const char> stored,
                 uint32_t *algorithm, char **clearText, int32_t *clearLength) {
    PbeParts parts;
    size_t bodyLength;
    if (!pbeParse(stored, {state->header, state->labelLength}, &parts, &bodyLength))
        return SVC_PBE_MALFORMED_TEXT;
    PbeCipher *cipher;
    std::span<const char> header;
    uint32_t reason = useCipher(session, state, parts.algorithm, &cipher, &header);
    if (reason == SVC_PBE_OK)
        reason = pbeCheckTag(cipher, {stored.data(), bodyLength}, parts);
    if (reason == SVC_PBE_OK)
        reason = decryptParts(cipher, header, parts, clearText, clearLength);
    if (reason == SVC_PBE_OK)
        *algorithm = static_cast<uint32_t>(parts.algorithm);
    return reason;
}

} // namespace

uint32_t svcPBEInit(uint64_t /*handle*/, uint32_t /*word*/, SvcPBESession *session) {
    const uint32_t reason = checkRecord(session);
    if (reason != SVC_PBE_OK)
        return reason;
    pbePrepareLibrary();
    return openSession(session);
}

uint32_t svcPBESave(SvcPBESession *session, const char *clearText, int32_t clearLength,
                    char **storedText, int32_t *storedLength) {
    if (storedText != nullptr)
        *storedText = nullptr;
    if (storedLength != nullptr)
        *storedLength = 0;
    SessionState *const state = openState(session);
    if (state == nullptr || clearText == nullptr || clearLength < 0 || storedText == nullptr ||
        storedLength == nullptr)
        return SVC_PBE_BAD_ARGUMENTS;
    (void)ERR_set_mark();
    const uint32_t reason = save(*session, state, {clearText, static_cast<size_t>(clearLength)},
                                 storedText, storedLength);
    (void)ERR_pop_to_mark();
    return reason;
}

uint32_t svcPBERestore(SvcPBESession *session, const char *storedText, int32_t storedLength,
                       uint32_t *algorithm, char **clearText, int32_t *clearLength) {
    uint32_t ignoredAlgorithm = 0;
    uint32_t *const usedAlgorithm = algorithm != nullptr ? algorithm : &ignoredAlgorithm;
    *usedAlgorithm = 0;
    if (clearText != nullptr)
        *clearText = nullptr;
    if (clearLength != nullptr)
        *clearLength = 0;
    SessionState *const state = openState(session);
    if (state == nullptr || storedText == nullptr || storedLength < 0 || clearText == nullptr ||
        clearLength == nullptr)
        return SVC_PBE_BAD_ARGUMENTS;
    (void)ERR_set_mark();
    const uint32_t reason =
        restore(*session, state, {storedText, static_cast<size_t>(storedLength)}, usedAlgorithm,
                clearText, clearLength);
    (void)ERR_pop_to_mark();
    return reason;
}

uint32_t svcPBEFreeBuf(void *buffer, int32_t length) {
    overwriteRegisters(length);
    (void)svcFreeMemFn(/* subpool= */ 0, SVC_COMPONENT_VEK, /* allocation= */ 0, buffer);
    return SVC_PBE_OK;
}

uint32_t svcPBETerm(SvcPBESession *session, uint32_t flag) {
    if (session == nullptr)
        return SVC_PBE_BAD_ARGUMENTS;
    SessionState *const state = openState(session);
    if (state == nullptr)
        return SVC_PBE_OK;
    releaseState(state);
    session->serviceState = nullptr;
    session->serviceWord = 0;
    if (flag == SVC_PBE_TERM_WIPE) {
        wipeBytes(session->key, session->keyLength);
        wipeBytes(session->salt, session->saltLength);
    }
    return SVC_PBE_OK;
}

void svcpbeTerminate() {
    pbeReleaseKeys();
    pbeDropProviders();
}
