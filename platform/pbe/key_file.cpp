/*
 * key_file.cpp - initial key files, and the record of the keys handed out.
 */
#include "pbe/key_file.h"
#include "pbe/internal.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <openssl/evp.h>
#include <pthread.h>
#include <unistd.h>

namespace {

constexpr size_t HEXADECIMAL_LENGTH = size_t{2} * SVC_PBE_KEY_LENGTH;
constexpr size_t BASE64_LENGTH = 44;

// One key handed out. It lies behind the key in the same allocation.
struct KeyRecord {
    KeyRecord *next;
    const uint8_t *key;
};

pthread_mutex_t recordLock = PTHREAD_MUTEX_INITIALIZER;
std::atomic<KeyRecord *> firstRecord; // changed under the lock only

int hexadecimalValue(uint8_t digit) {
    if (digit >= '0' && digit <= '9')
        return digit - '0';
    const int letter = digit | 0x20; // lower case
    return letter >= 'a' && letter <= 'f' ? letter - 'a' + 10 : -1;
}

bool decodeHexadecimal(const uint8_t *text, size_t length, uint8_t *key) {
    if (length != HEXADECIMAL_LENGTH)
        return false;
    for (size_t i = 0; i < SVC_PBE_KEY_LENGTH; ++i) {
        const int high = hexadecimalValue(text[2 * i]);
        const int low = hexadecimalValue(text[2 * i + 1]);
        if (high < 0 || low < 0)
            return false;
        key[i] = static_cast<uint8_t>(high << 4 | low);
    }
    return true;
}

// The decoder counts padding as zero bytes and lets it stand anywhere, so its place is checked here.
bool decodeBase64(const uint8_t *text, size_t length, uint8_t *key) {
    return length == BASE64_LENGTH && memchr(text, '=', length) == text + length - 1 &&
           EVP_DecodeBlock(key, text, BASE64_LENGTH) == SVC_PBE_KEY_LENGTH + 1;
}

size_t lengthWithoutLineEnd(std::span<const uint8_t> content) {
    size_t length = content.size();
    if (length > 0 && content.data()[length - 1] == '\n')
        --length;
    const bool isCrLf = length < content.size() && length > 0 && content.data()[length - 1] == '\r';
    return isCrLf ? length - 1 : length;
}

// Reads until the end of the file, but not more than `capacity` bytes. Result: 0 or an error number.
int readAll(int file, uint8_t *content, size_t capacity, size_t *length) {
    *length = 0;
    while (*length < capacity) {
        const ssize_t count = read(file, content + *length, capacity - *length);
        if (count == 0)
            return 0;
        if (count > 0)
            *length += static_cast<size_t>(count);
        else if (errno != EINTR)
            return errno;
    }
    return 0;
}

uint32_t readContent(const char *path, uint8_t *content, size_t capacity, size_t *length) {
    int file;
    do
        file = open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY);
    while (file < 0 && errno == EINTR);
    if (file < 0)
        return SVC_PBE_KEY_FILE_UNREADABLE;
    const int error = readAll(file, content, capacity, length); // EISDIR for a directory
    (void)close(file);
    if (error != 0)
        return SVC_PBE_KEY_FILE_UNREADABLE;
    const bool fits = *length > 0 && *length <= SVC_PBE_KEY_FILE_LIMIT;
    return fits ? SVC_PBE_OK : SVC_PBE_KEY_FILE_BAD_LENGTH;
}

// Copies the key into a buffer of its own and records that.
uint32_t handOut(std::span<const uint8_t> content, uint8_t **key) {
    if (content.empty())
        return SVC_PBE_KEY_FILE_BAD_LENGTH;
    constexpr size_t ALIGNMENT = alignof(KeyRecord);
    const size_t recordOffset = (content.size() + ALIGNMENT - 1) / ALIGNMENT * ALIGNMENT;
    void *memory;
    if (svcGetMemFn(/* subpool= */ 0, SVC_COMPONENT_VEK, /* allocation= */ 0,
                    recordOffset + sizeof(KeyRecord), /* options= */ 0, &memory) != SVC_OK)
        return SVC_PBE_NO_STORAGE;
    *key = static_cast<uint8_t *>(memory);
    memcpy(*key, content.data(), content.size());

    KeyRecord *const record = reinterpret_cast<KeyRecord *>(*key + recordOffset);
    record->key = *key;
    (void)pthread_mutex_lock(&recordLock);
    record->next = firstRecord;
    firstRecord = record;
    (void)pthread_mutex_unlock(&recordLock);
    return SVC_PBE_OK;
}

uint32_t readKey(const char *path, uint8_t **key, int32_t *keyLength) {
    // One byte more than a file may have shows that it is too long.
    uint8_t content[SVC_PBE_KEY_FILE_LIMIT + 1];
    uint8_t classified[SVC_PBE_KEY_FILE_LIMIT] = {};
    size_t contentLength;
    size_t length = 0;
    uint32_t reason = readContent(path, content, sizeof content, &contentLength);
    if (reason == SVC_PBE_OK) {
        length = pbeClassifyKey({content, contentLength}, classified);
        reason = handOut({classified, length}, key);
    }
    svcWipe(content, sizeof content);
    svcWipe(classified, sizeof classified);
    if (reason == SVC_PBE_OK)
        *keyLength = static_cast<int32_t>(length);
    return reason;
}

} // namespace

size_t pbeClassifyKey(std::span<const uint8_t> content,
                      std::span<uint8_t, SVC_PBE_KEY_FILE_LIMIT> key) {
    if (content.size() == SVC_PBE_KEY_LENGTH) {
        memcpy(key.data(), content.data(), SVC_PBE_KEY_LENGTH);
        return SVC_PBE_KEY_LENGTH;
    }
    const size_t length = lengthWithoutLineEnd(content);
    if (decodeHexadecimal(content.data(), length, key.data()) ||
        decodeBase64(content.data(), length, key.data()))
        return SVC_PBE_KEY_LENGTH;
    if (length == 0)
        return 0;
    // The copy overwrites whatever a decoder left. A passphrase is longer than that, or is 64 bytes.
    memcpy(key.data(), content.data(), length);
    constexpr size_t SHORTEST = SVC_PBE_PASSPHRASE_PADDING;
    return length < SHORTEST ? SHORTEST : length;
}

uint32_t svcPBEReadInitialKeyFile(const char *path, uint8_t **key, int32_t *keyLength) {
    if (key != nullptr)
        *key = nullptr;
    if (keyLength != nullptr)
        *keyLength = 0;
    if (path == nullptr || key == nullptr || keyLength == nullptr)
        return SVC_PBE_BAD_ARGUMENTS;
    return readKey(path, key, keyLength);
}

void svcpbeForgetKey(const void *buffer) {
    if (firstRecord == nullptr)
        return;
    (void)pthread_mutex_lock(&recordLock);
    KeyRecord *previous = nullptr;
    KeyRecord *record = firstRecord;
    while (record != nullptr && record->key != buffer) {
        previous = record;
        record = record->next;
    }
    if (record != nullptr && previous == nullptr)
        firstRecord = record->next;
    if (record != nullptr && previous != nullptr)
        previous->next = record->next;
    (void)pthread_mutex_unlock(&recordLock);
}

void pbeReleaseKeys() {
    for (const KeyRecord *record = firstRecord; record != nullptr; record = firstRecord)
        (void)svcPBEFreeBuf(const_cast<uint8_t *>(record->key), /* length= */ 0);
}
