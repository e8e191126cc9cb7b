/*
 * session.cpp - sessions: one credential saved or restored at a time.
 *
 * Nothing is derived and no algorithm is fetched before the first value, unless the session asks
 * for a FIPS provider: a program that opens a session and finds nothing to encrypt pays for
 * neither.
 */
#include "pbe/algorithm.h"
#include "pbe/key_derivation.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <openssl/err.h>

namespace ztm {

namespace {

constexpr uint32_t OPEN_MARK = 0x5042454F; // serviceWord of an open session

struct Session {
    LibcryptoUse libcrypto; // empty before the first value of a session without fips
    const Algorithm *algorithm = nullptr;
    size_t labelLength = 0;
    char header[LABEL_LIMIT + 2] = {}; // the label, and room for the digit
    bool isStretched = false;
    uint8_t stretchedKey[SVC_PBE_KEY_LENGTH] = {}; // of a passphrase, which is stretched once
    Cipher ciphers[SVC_PBE_ALGORITHM_LATEST];      // by digit
};

// The memory service wipes what a session held.
void closeSession(Session *session) {
    session->~Session();
    releaseMemory(session);
}

using OwnedSession = Handle<Session, closeSession>;

// The error queue of libcrypto belongs to the caller: what the service's calls leave in it goes.
class ErrorMark {
public:
    ErrorMark() {
        (void)ERR_set_mark();
    }
    ErrorMark(const ErrorMark &) = delete;
    ErrorMark &operator=(const ErrorMark &) = delete;
    ~ErrorMark() {
        (void)ERR_pop_to_mark();
    }
};

Session *openedIn(const SvcPBESession *record) {
    const bool isOpen = record != nullptr && record->serviceWord == OPEN_MARK;
    return isOpen ? static_cast<Session *>(record->serviceState) : nullptr;
}

// ---- Opening -----------------------------------------------------------------------------------

bool hasKeyAndSalt(const SvcPBESession &record) {
    return record.key != nullptr && record.keyLength > 0 && record.salt != nullptr &&
           record.saltLength > 0;
}

std::span<const uint8_t> saltOf(const SvcPBESession &record) {
    return {record.salt, static_cast<size_t>(record.saltLength)};
}

// The zeros that pad a passphrase add nothing to it.
bool isTooShortForFips(const SvcPBESession &record) {
    int32_t length = record.keyLength;
    if (length == SVC_PBE_KEY_LENGTH)
        return false;
    while (length > 0 && record.key[length - 1] == 0)
        --length;
    return length < SVC_PBE_FIPS_PASSPHRASE_MINIMUM;
}

uint32_t checkRecord(const SvcPBESession *record) {
    if (record == nullptr || record->serviceWord != 0 || record->serviceState != nullptr)
        return SVC_PBE_BAD_ARGUMENTS;
    if (findAlgorithm(record->algorithm) == nullptr)
        return SVC_PBE_UNSUPPORTED_ALGORITHM;
    if (record->label == nullptr || !isLabel(record->label) || !hasKeyAndSalt(*record))
        return SVC_PBE_BAD_ARGUMENTS;
    return record->fips != 0 && isTooShortForFips(*record) ? SVC_PBE_FIPS_NOT_AVAILABLE
                                                           : SVC_PBE_OK;
}

// ---- One value ---------------------------------------------------------------------------------

// Finds the initial key of full strength. *initialKey points into the record or into the session.
uint32_t findInitialKey(const SvcPBESession &record, Session *session, const uint8_t **initialKey) {
    *initialKey = record.key;
    if (record.keyLength == SVC_PBE_KEY_LENGTH)
        return SVC_PBE_OK;
    *initialKey = session->stretchedKey;
    if (session->isStretched)
        return SVC_PBE_OK;
    const uint32_t reason = stretchPassphrase(*session->libcrypto.get(),
                                              {record.key, static_cast<size_t>(record.keyLength)},
                                              saltOf(record), session->stretchedKey);
    session->isStretched = reason == SVC_PBE_OK;
    return reason;
}

// Makes libcrypto and the initial key of full strength ready.
uint32_t prepareKey(const SvcPBESession &record, Session *session, const uint8_t **initialKey) {
    if (!hasKeyAndSalt(record))
        return SVC_PBE_BAD_ARGUMENTS;
    if (!session->libcrypto) {
        const uint32_t reason = useLibcrypto(/* fips= */ false, &session->libcrypto);
        if (reason != SVC_PBE_OK)
            return reason;
    }
    return findInitialKey(record, session, initialKey);
}

// Finds the cipher of an algorithm, and derives its key when this is its first value. *header
// receives label and digit.
uint32_t findCipher(const SvcPBESession &record, Session *session, const Algorithm &algorithm,
                    Cipher **cipher, std::span<const char> *header) {
    session->header[session->labelLength] = static_cast<char>('0' + algorithm.digit);
    *header = {session->header, session->labelLength + 1};
    *cipher = &session->ciphers[algorithm.digit - 1];
    if ((*cipher)->algorithm != nullptr)
        return SVC_PBE_OK;
    const uint8_t *initialKey;
    const uint32_t reason = prepareKey(record, session, &initialKey);
    if (reason != SVC_PBE_OK)
        return reason;
    return openCipher(*cipher, *session->libcrypto.get(), algorithm,
                      {initialKey, SVC_PBE_KEY_LENGTH}, saltOf(record), *header);
}

uint32_t save(const SvcPBESession &record, Session *session, std::span<const char> clear,
              char **storedText, int32_t *storedLength) {
    const Algorithm &algorithm = *session->algorithm;
    const size_t length = storedLengthOf(algorithm.shape, session->labelLength,
                                         cipherLengthOf(algorithm.shape, clear.size()));
    if (clear.empty() || length > SVC_PBE_STORED_LIMIT)
        return SVC_PBE_CLEAR_TEXT_LENGTH;
    Cipher *cipher;
    std::span<const char> header;
    const uint32_t reason = findCipher(record, session, algorithm, &cipher, &header);
    if (reason != SVC_PBE_OK)
        return reason;
    Memory<char> text; // one character more, for the NUL that the last field leaves behind it
    if (allocate(&text, length + 1) != SVC_OK)
        return SVC_PBE_NO_STORAGE;
    if (!algorithm.seal(cipher, header, clear, text.get()))
        return reasonOf(/* succeeded= */ false, SVC_PBE_CRYPTO_FAILED);
    *storedText = text.take();
    *storedLength = static_cast<int32_t>(length);
    return SVC_PBE_OK;
}

uint32_t restore(const SvcPBESession &record, Session *session, std::span<const char> stored,
                 uint32_t *usedDigit, char **clearText, int32_t *clearLength) {
    const int32_t digit = digitOf(stored, {session->header, session->labelLength});
    const Algorithm *const algorithm = findAlgorithm(digit);
    ValueParts parts;
    size_t bodyLength;
    if (algorithm == nullptr ||
        !parseValue(stored, session->labelLength, algorithm->shape, &parts, &bodyLength))
        return SVC_PBE_MALFORMED_TEXT;
    Cipher *cipher;
    std::span<const char> header;
    uint32_t reason = findCipher(record, session, *algorithm, &cipher, &header);
    if (reason != SVC_PBE_OK)
        return reason;
    Memory<char> clear;
    if (allocate(&clear, parts.cipherLength) != SVC_OK)
        return SVC_PBE_NO_STORAGE;
    size_t length = 0;
    reason = algorithm->unseal(cipher, header, stored.first(bodyLength), parts,
                               reinterpret_cast<uint8_t *>(clear.get()), &length);
    if (reason != SVC_PBE_OK)
        return reason;
    if (length == 0) // no text that svcPBESave makes has nothing but padding in it
        return SVC_PBE_MALFORMED_TEXT;
    *usedDigit = static_cast<uint32_t>(digit);
    *clearText = clear.take();
    *clearLength = static_cast<int32_t>(length);
    return SVC_PBE_OK;
}

// ---- The fingerprint of a key -------------------------------------------------------------------

// No label holds a blank, so that no key of a value is derived with the same text.
constexpr char FINGERPRINT_INFO[] = {'k', 'e', 'y', ' ', 'f', 'i', 'n', 'g',
                                     'e', 'r', 'p', 'r', 'i', 'n', 't'};

uint32_t makeFingerprint(const SvcPBESession &record, Session *session, char *text) {
    static constexpr char DIGITS[] = "0123456789abcdef";
    const uint8_t *initialKey;
    uint32_t reason = prepareKey(record, session, &initialKey);
    if (reason != SVC_PBE_OK)
        return reason;
    Wiping<uint8_t[SVC_PBE_FINGERPRINT_LENGTH / 2]> bytes{};
    reason = deriveKey(*session->libcrypto.get(), {initialKey, SVC_PBE_KEY_LENGTH}, saltOf(record),
                       FINGERPRINT_INFO, bytes.value);
    if (reason != SVC_PBE_OK)
        return reason;
    for (const uint8_t byte : bytes.value) {
        *text++ = DIGITS[byte >> 4];
        *text++ = DIGITS[byte & 15];
    }
    *text = '\0';
    return SVC_PBE_OK;
}

// ---- What libcrypto leaves behind --------------------------------------------------------------

// Through the pointer it is the library's copy that is called, and it is not left out.
void *(*const volatile libraryCopy)(void *, const void *, size_t) = memcpy;

// Whoever copied a buffer left a part of it in vector registers, and the dynamic linker and signal
// frames put those on the stack. A copy of as many zeros goes through the same registers.
void overwriteRegisters(int32_t length) {
    static constexpr char ZEROS[SVC_PBE_STORED_LIMIT] = {};
    if (length <= 0)
        return;
    char copy[sizeof ZEROS];
    (void)libraryCopy(copy, ZEROS, std::min(static_cast<size_t>(length), sizeof ZEROS));
}

// libcrypto's functions leave blocks of the clear text in their frames, and from 3.5 on a key in
// vector registers. The next value would overwrite them, but nobody knows when it comes.
__attribute__((noinline)) void overwriteDeadStack() {
    char dead[4096];
    svcWipe(dead, sizeof dead);
}

#if defined(__x86_64__)
// A copy goes through a few vector registers only. To restore an empty state clears all of them,
// those of AVX-512 too, which libcrypto 3.5 deciphers with; the control word is kept.
__attribute__((noinline, target("xsave"))) void clearVectorRegisters() {
    constexpr int64_t SSE = 1 << 1;
    constexpr int64_t AVX = 1 << 2;
    constexpr int64_t AVX_512 = 7 << 5;
    constexpr size_t CONTROL_WORD = 24;
    if (__builtin_cpu_supports("avx") == 0)
        return;
    alignas(64) uint8_t state[512 + 64] = {};
    const uint32_t control = __builtin_ia32_stmxcsr();
    memcpy(state + CONTROL_WORD, &control, sizeof control);
    __builtin_ia32_xrstor64(state, SSE | AVX | AVX_512);
}
#else
void clearVectorRegisters() {}
#endif

void overwriteWhatIsLeft() {
    clearVectorRegisters();
    overwriteRegisters(SVC_PBE_STORED_LIMIT);
    overwriteDeadStack();
}

void wipeBytes(uint8_t *bytes, int32_t length) {
    if (bytes != nullptr && length > 0)
        svcWipe(bytes, static_cast<size_t>(length));
}

} // namespace

} // namespace ztm

using namespace ztm;

uint32_t svcPBEInit(uint64_t /*handle*/, uint32_t /*word*/, SvcPBESession *session) {
    uint32_t reason = checkRecord(session);
    if (reason != SVC_PBE_OK)
        return reason;
    prepareLibcrypto();
    Memory<void> memory;
    if (allocate(&memory, sizeof(Session)) != SVC_OK)
        return SVC_PBE_NO_STORAGE;
    OwnedSession opened(new (memory.take()) Session);
    opened.get()->algorithm = findAlgorithm(session->algorithm);
    opened.get()->labelLength = strlen(session->label);
    memcpy(opened.get()->header, session->label, opened.get()->labelLength);
    if (session->fips != 0) {
        const ErrorMark mark;
        reason = useLibcrypto(/* fips= */ true, &opened.get()->libcrypto);
    }
    if (reason != SVC_PBE_OK)
        return reason;
    session->serviceState = opened.take();
    session->serviceWord = OPEN_MARK;
    return SVC_PBE_OK;
}

uint32_t svcPBESave(SvcPBESession *session, const char *clearText, int32_t clearLength,
                    char **storedText, int32_t *storedLength) {
    if (storedText != nullptr)
        *storedText = nullptr;
    if (storedLength != nullptr)
        *storedLength = 0;
    Session *const opened = openedIn(session);
    if (opened == nullptr || clearText == nullptr || clearLength < 0 || storedText == nullptr ||
        storedLength == nullptr)
        return SVC_PBE_BAD_ARGUMENTS;
    const ErrorMark mark;
    const uint32_t reason = save(*session, opened, {clearText, static_cast<size_t>(clearLength)},
                                 storedText, storedLength);
    overwriteWhatIsLeft();
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
    Session *const opened = openedIn(session);
    if (opened == nullptr || storedText == nullptr || storedLength < 0 || clearText == nullptr ||
        clearLength == nullptr)
        return SVC_PBE_BAD_ARGUMENTS;
    const ErrorMark mark;
    const uint32_t reason =
        restore(*session, opened, {storedText, static_cast<size_t>(storedLength)}, usedAlgorithm,
                clearText, clearLength);
    overwriteWhatIsLeft();
    return reason;
}

uint32_t svcPBEFingerprint(SvcPBESession *session, char *fingerprint) {
    if (fingerprint != nullptr)
        *fingerprint = '\0';
    Session *const opened = openedIn(session);
    if (opened == nullptr || fingerprint == nullptr)
        return SVC_PBE_BAD_ARGUMENTS;
    const ErrorMark mark;
    const uint32_t reason = makeFingerprint(*session, opened, fingerprint);
    overwriteWhatIsLeft();
    return reason;
}

uint32_t svcPBEFreeBuf(void *buffer, int32_t length) {
    overwriteRegisters(length);
    releaseMemory(buffer);
    return SVC_PBE_OK;
}

uint32_t svcPBETerm(SvcPBESession *session, uint32_t flag) {
    if (session == nullptr)
        return SVC_PBE_BAD_ARGUMENTS;
    const OwnedSession closed(openedIn(session));
    if (!closed)
        return SVC_PBE_OK;
    session->serviceState = nullptr;
    session->serviceWord = 0;
    if (flag == SVC_PBE_TERM_WIPE) {
        wipeBytes(session->key, session->keyLength);
        wipeBytes(session->salt, session->saltLength);
    }
    return SVC_PBE_OK;
}
