/*
 * key_file.cpp - initial key files. The content is, in this order:
 *
 *   content = 32 bytes                            the key itself
 *           | 64 hexadecimal digits [line end]    the key
 *           | 44 characters of base64 [line end]  the key, when they decode to 32 bytes
 *           | text [line end]                     a passphrase, padded with zeros to 64 bytes
 *   line end = LF | CR LF
 */
#include "common/guards.h"
#include "common/memory.h"
#include "ztpbe.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <openssl/evp.h>
#include <span>
#include <unistd.h>

namespace ztm {

namespace {

constexpr size_t HEXADECIMAL_LENGTH = size_t{2} * SVC_PBE_KEY_LENGTH;
constexpr size_t BASE64_LENGTH = 44;

// Negative for what is no digit. The digits may be a key's, so nothing branches on them.
int hexadecimalValue(int digit) {
    const int letter = digit | 0x20;                              // lower case
    const int isNoNumeral = ((digit - '0') | ('9' - digit)) >> 8; // all bits or none
    const int isNoLetter = ((letter - 'a') | ('f' - letter)) >> 8;
    return (~isNoNumeral & (digit - '0')) | (~isNoLetter & (letter - 'a' + 10)) |
           (isNoNumeral & isNoLetter);
}

// Not inlined: with this loop in it the caller works with vectors, and half of a key of 32 bytes
// stays behind when it has returned.
__attribute__((noinline)) bool decodeHexadecimal(const uint8_t *text, size_t length, uint8_t *key) {
    if (length != HEXADECIMAL_LENGTH)
        return false;
    int all = 0;
    for (size_t i = 0; i < SVC_PBE_KEY_LENGTH; ++i) {
        const int byte = hexadecimalValue(text[2 * i]) << 4 | hexadecimalValue(text[2 * i + 1]);
        key[i] = static_cast<uint8_t>(byte);
        all |= byte;
    }
    return all >= 0;
}

// The decoder counts padding as zero bytes and lets it stand anywhere, so its place is checked
// here.
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

// Reads until the end of the file, but not more than `capacity` bytes. Result: 0 or an error
// number.
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
    int opened;
    do
        opened = open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY);
    while (opened < 0 && errno == EINTR);
    const Descriptor file(opened);
    if (!file || readAll(file.get(), content, capacity, length) != 0) // EISDIR for a directory
        return SVC_PBE_KEY_FILE_UNREADABLE;
    const bool fits = *length > 0 && *length <= SVC_PBE_KEY_FILE_LIMIT;
    return fits ? SVC_PBE_OK : SVC_PBE_KEY_FILE_BAD_LENGTH;
}

// Turns a content of 1 to SVC_PBE_KEY_FILE_LIMIT bytes into the initial key; `key` is clear.
// Result: its length, 32 for a full-strength key only; 0 when there is no passphrase.
size_t classifyKey(std::span<const uint8_t> content,
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
    // The copy overwrites whatever a decoder left. A passphrase is longer than that, or is 64
    // bytes.
    memcpy(key.data(), content.data(), length);
    constexpr size_t SHORTEST = SVC_PBE_PASSPHRASE_PADDING;
    return length < SHORTEST ? SHORTEST : length;
}

} // namespace

} // namespace ztm

using namespace ztm;

uint32_t svcPBEReadInitialKeyFile(const char *path, uint8_t **key, int32_t *keyLength) {
    if (key != nullptr)
        *key = nullptr;
    if (keyLength != nullptr)
        *keyLength = 0;
    if (path == nullptr || key == nullptr || keyLength == nullptr)
        return SVC_PBE_BAD_ARGUMENTS;
    // One byte more than a file may have shows that it is too long.
    Wiping<uint8_t[SVC_PBE_KEY_FILE_LIMIT + 1]> content;
    Wiping<uint8_t[SVC_PBE_KEY_FILE_LIMIT]> classified{};
    size_t contentLength;
    const uint32_t reason = readContent(path, content.value, sizeof content.value, &contentLength);
    if (reason != SVC_PBE_OK)
        return reason;
    const size_t length = classifyKey({content.value, contentLength}, classified.value);
    if (length == 0)
        return SVC_PBE_KEY_FILE_BAD_LENGTH;
    void *memory;
    if (allocateListed(length, &memory) != SVC_OK)
        return SVC_PBE_NO_STORAGE;
    memcpy(memory, classified.value, length);
    *key = static_cast<uint8_t *>(memory);
    *keyLength = static_cast<int32_t>(length);
    return SVC_PBE_OK;
}
