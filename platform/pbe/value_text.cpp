/*
 * value_text.cpp - the text form of an encrypted value.
 */
#include "pbe/value_text.h"

#include <cstring>
#include <openssl/evp.h>

namespace {

constexpr char SEPARATOR = '!';

constexpr PbeShape CBC_HMAC_SHAPE = {/* nonceLength= */ 16, /* blockLength= */ 16,
                                     /* tagLength= */ 32};
constexpr PbeShape GCM_SHAPE = {/* nonceLength= */ 12, /* blockLength= */ 1, /* tagLength= */ 16};

constexpr size_t encodedLength(size_t binaryLength) {
    return (binaryLength + 2) / 3 * 4;
}

static_assert(encodedLength(sizeof PbeParts::cipherText) >= SVC_PBE_STORED_LIMIT,
              "the cipher text of every accepted text fits");

// Writes one field and a NUL behind it; the next field overwrites the NUL.
size_t encodeField(char *text, const uint8_t *binary, size_t binaryLength) {
    return static_cast<size_t>(EVP_EncodeBlock(reinterpret_cast<unsigned char *>(text), binary,
                                               static_cast<int>(binaryLength)));
}

// Decodes one field to `binaryLength` bytes, in canonical base64 only. The decoder alone would skip
// blanks around the field and ignore bits that pad, so that several texts would mean one value.
bool decodeField(const char *text, size_t textLength, uint8_t *binary, size_t binaryLength) {
    char canonical[SVC_PBE_STORED_LIMIT + 1];
    if (textLength != encodedLength(binaryLength) || textLength >= sizeof canonical)
        return false;
    if (EVP_DecodeBlock(binary, reinterpret_cast<const unsigned char *>(text),
                        static_cast<int>(textLength)) < 0)
        return false;
    (void)encodeField(canonical, binary, binaryLength);
    return memcmp(canonical, text, textLength) == 0;
}

// The number of bytes that a field of this length and this padding decodes to.
size_t decodedLength(const char *text, size_t textLength) {
    size_t padding = 0;
    while (padding < 2 && padding < textLength && text[textLength - 1 - padding] == '=')
        ++padding;
    return textLength / 4 * 3 - padding;
}

bool isCipherLength(const PbeShape &shape, size_t cipherLength) {
    return cipherLength > 0 && cipherLength <= sizeof PbeParts::cipherText &&
           cipherLength % shape.blockLength == 0;
}

// Cuts the next field off at its separator. Returns its length; *text moves behind the separator.
bool cutField(const char **text, const char *end, const char **field, size_t *fieldLength) {
    const void *const found = memchr(*text, SEPARATOR, static_cast<size_t>(end - *text));
    if (found == nullptr)
        return false;
    *field = *text;
    *fieldLength = static_cast<size_t>(static_cast<const char *>(found) - *text);
    *text = static_cast<const char *>(found) + 1;
    return true;
}

} // namespace

const PbeShape *pbeShapeOf(int32_t algorithm) {
    if (algorithm == SVC_PBE_ALGORITHM_GCM)
        return &GCM_SHAPE;
    return algorithm == SVC_PBE_ALGORITHM_CBC_HMAC ? &CBC_HMAC_SHAPE : nullptr;
}

bool pbeIsLabel(const char *label) {
    const size_t length = strnlen(label, PBE_LABEL_LIMIT + 1);
    if (length == 0 || length > PBE_LABEL_LIMIT)
        return false;
    for (size_t i = 0; i < length; ++i) {
        if (label[i] <= ' ' || label[i] > '~' || label[i] == SEPARATOR || label[i] == '#')
            return false;
    }
    return true;
}

size_t pbeCipherLength(const PbeShape &shape, size_t clearLength) {
    if (shape.blockLength == 1)
        return clearLength;
    return (clearLength / shape.blockLength + 1) * shape.blockLength;
}

size_t pbeStoredLength(const PbeShape &shape, size_t labelLength, size_t cipherLength) {
    constexpr size_t DIGIT_AND_SEPARATORS = 4;
    return labelLength + DIGIT_AND_SEPARATORS + encodedLength(shape.nonceLength) +
           encodedLength(cipherLength) + encodedLength(shape.tagLength);
}

size_t pbeComposeBody(char *text, std::span<const char> header, const PbeParts &parts) {
    memcpy(text, header.data(), header.size());
    char *end = text + header.size();
    *end++ = SEPARATOR;
    end += encodeField(end, parts.nonce, pbeShapeOf(parts.algorithm)->nonceLength);
    *end++ = SEPARATOR;
    end += encodeField(end, parts.cipherText, parts.cipherLength);
    *end++ = SEPARATOR;
    *end = '\0';
    return static_cast<size_t>(end - text);
}

void pbeComposeTag(char *text, const PbeParts &parts) {
    (void)encodeField(text, parts.tag, pbeShapeOf(parts.algorithm)->tagLength);
}

bool pbeParse(std::span<const char> text, std::span<const char> label, PbeParts *parts,
              size_t *bodyLength) {
    const size_t headerLength = label.size() + 1;
    if (text.size() > SVC_PBE_STORED_LIMIT || text.size() <= headerLength ||
        memcmp(text.data(), label.data(), label.size()) != 0 ||
        text.data()[headerLength] != SEPARATOR)
        return false;
    parts->algorithm = text.data()[label.size()] - '0';
    const PbeShape *const shape = pbeShapeOf(parts->algorithm);
    if (shape == nullptr)
        return false;

    const char *const end = text.data() + text.size();
    const char *rest = text.data() + headerLength + 1;
    const char *field;
    size_t fieldLength;
    if (!cutField(&rest, end, &field, &fieldLength) ||
        !decodeField(field, fieldLength, parts->nonce, shape->nonceLength))
        return false;
    if (!cutField(&rest, end, &field, &fieldLength))
        return false;
    parts->cipherLength = decodedLength(field, fieldLength);
    if (!isCipherLength(*shape, parts->cipherLength) ||
        !decodeField(field, fieldLength, parts->cipherText, parts->cipherLength))
        return false;
    *bodyLength = static_cast<size_t>(rest - text.data());
    return decodeField(rest, text.size() - *bodyLength, parts->tag, shape->tagLength);
}
