/*
 * value_text.cpp - the text form of an encrypted value.
 */
#include "pbe/value_text.h"

#include <cstring>
#include <openssl/evp.h>

namespace ztm {

namespace {

constexpr char SEPARATOR = '!';

constexpr size_t encodedLength(size_t binaryLength) {
    return (binaryLength + 2) / 3 * 4;
}

static_assert(encodedLength(sizeof ValueParts::cipherText) >= SVC_PBE_STORED_LIMIT,
              "the cipher text of every accepted text fits");

// Writes one field and a NUL behind it; the next field overwrites the NUL.
size_t encodeField(char *text, const uint8_t *binary, size_t binaryLength) {
    return static_cast<size_t>(EVP_EncodeBlock(reinterpret_cast<unsigned char *>(text), binary,
                                               static_cast<int>(binaryLength)));
}

// Decodes one field to `binaryLength` bytes, in canonical base64 only. The decoder alone would skip
// blanks around the field and ignore bits that pad, so that several texts would mean one value.
bool decodeField(std::span<const char> field, uint8_t *binary, size_t binaryLength) {
    char canonical[SVC_PBE_STORED_LIMIT + 1];
    if (field.size() != encodedLength(binaryLength) || field.size() >= sizeof canonical)
        return false;
    if (EVP_DecodeBlock(binary, reinterpret_cast<const unsigned char *>(field.data()),
                        static_cast<int>(field.size())) < 0)
        return false;
    (void)encodeField(canonical, binary, binaryLength);
    return memcmp(canonical, field.data(), field.size()) == 0;
}

// The number of bytes that a field of this length and this padding decodes to.
size_t decodedLength(std::span<const char> field) {
    size_t padding = 0;
    while (padding < 2 && padding < field.size() && field.data()[field.size() - 1 - padding] == '=')
        ++padding;
    return field.size() / 4 * 3 - padding;
}

// Cuts the next field off at its separator; *rest moves behind the separator.
bool cutField(std::span<const char> *rest, std::span<const char> *field) {
    const void *const found = memchr(rest->data(), SEPARATOR, rest->size());
    if (found == nullptr)
        return false;
    const size_t length = static_cast<size_t>(static_cast<const char *>(found) - rest->data());
    *field = rest->first(length);
    *rest = rest->subspan(length + 1);
    return true;
}

} // namespace

bool isLabel(const char *label) {
    const size_t length = strnlen(label, LABEL_LIMIT + 1);
    if (length == 0 || length > LABEL_LIMIT)
        return false;
    for (size_t i = 0; i < length; ++i) {
        if (label[i] <= ' ' || label[i] > '~' || label[i] == SEPARATOR || label[i] == '#')
            return false;
    }
    return true;
}

size_t cipherLengthOf(const ValueShape &shape, size_t clearLength) {
    if (shape.blockLength == 1)
        return clearLength;
    return (clearLength / shape.blockLength + 1) * shape.blockLength;
}

size_t storedLengthOf(const ValueShape &shape, size_t labelLength, size_t cipherLength) {
    constexpr size_t DIGIT_AND_SEPARATORS = 4;
    return labelLength + DIGIT_AND_SEPARATORS + encodedLength(shape.nonceLength) +
           encodedLength(cipherLength) + encodedLength(shape.tagLength);
}

size_t writeBody(char *text, std::span<const char> header, const ValueShape &shape,
                 const ValueParts &parts) {
    memcpy(text, header.data(), header.size());
    char *end = text + header.size();
    *end++ = SEPARATOR;
    end += encodeField(end, parts.nonce, shape.nonceLength);
    *end++ = SEPARATOR;
    end += encodeField(end, parts.cipherText, parts.cipherLength);
    *end++ = SEPARATOR;
    *end = '\0';
    return static_cast<size_t>(end - text);
}

void writeTag(char *text, const ValueShape &shape, const ValueParts &parts) {
    (void)encodeField(text, parts.tag, shape.tagLength);
}

int32_t digitOf(std::span<const char> text, std::span<const char> label) {
    const size_t separator = label.size() + 1;
    if (text.size() <= separator || text.data()[separator] != SEPARATOR ||
        memcmp(text.data(), label.data(), label.size()) != 0)
        return 0;
    return text.data()[label.size()] - '0';
}

bool parseValue(std::span<const char> text, size_t labelLength, const ValueShape &shape,
                ValueParts *parts, size_t *bodyLength) {
    if (text.size() > SVC_PBE_STORED_LIMIT)
        return false;
    std::span<const char> rest = text.subspan(labelLength + 2);
    std::span<const char> field;
    if (!cutField(&rest, &field) || !decodeField(field, parts->nonce, shape.nonceLength))
        return false;
    if (!cutField(&rest, &field))
        return false;
    parts->cipherLength = decodedLength(field);
    if (parts->cipherLength == 0 || parts->cipherLength > sizeof parts->cipherText ||
        parts->cipherLength % shape.blockLength != 0 ||
        !decodeField(field, parts->cipherText, parts->cipherLength))
        return false;
    *bodyLength = text.size() - rest.size();
    return decodeField(rest, parts->tag, shape.tagLength);
}

} // namespace ztm
