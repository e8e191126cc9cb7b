/*
 * value_text.h - the text form of an encrypted value. Pure: no cipher, no memory, no secret.
 *
 *   value = label digit "!" nonce "!" ciphertext "!" tag
 *
 *   label       the label of the session, "<VEK>" in keystore.conf
 *   digit       "1" AES-256-CBC with HMAC-SHA-256, "2" AES-256-GCM
 *   nonce, ciphertext, tag
 *               standard base64 with padding (RFC 4648, section 4), bits that pad are zero
 *
 * The label holds no "!", so a value holds exactly three. It is at most SVC_PBE_STORED_LIMIT long.
 */
#ifndef PBE_VALUE_TEXT_H
#define PBE_VALUE_TEXT_H

#include "ztpbe.h"

#include <span>

// Longest label; one fixed buffer holds label and digit.
inline constexpr size_t PBE_LABEL_LIMIT = 63;

// Binary lengths of one algorithm.
struct PbeShape {
    size_t nonceLength;
    size_t blockLength; // 1: the cipher text is as long as the clear text; else it is padded
    size_t tagLength;
};

// The binary parts of a value. Capacities are whole groups of three bytes, as base64 decodes them.
struct PbeParts {
    int32_t algorithm;
    size_t cipherLength;
    uint8_t nonce[18];
    uint8_t tag[33];
    uint8_t cipherText[SVC_PBE_STORED_LIMIT / 4 * 3];
};

// pbeShapeOf returns the lengths of an algorithm, or null when it is not supported.
[[nodiscard]] const PbeShape *pbeShapeOf(int32_t algorithm);

// pbeIsLabel tells whether a text can be a label: 1 to PBE_LABEL_LIMIT printable characters, no blank,
// no "!", no "#".
[[nodiscard]] bool pbeIsLabel(const char *label);

// pbeCipherLength returns the length of the cipher text of `clearLength` bytes.
[[nodiscard]] size_t pbeCipherLength(const PbeShape &shape, size_t clearLength);

// pbeStoredLength returns the length of a whole value in characters.
[[nodiscard]] size_t pbeStoredLength(const PbeShape &shape, size_t labelLength,
                                     size_t cipherLength);

// pbeComposeBody writes everything before the tag, the third "!" included, and returns its length;
// `header` is label and digit. pbeComposeTag writes the tag behind it. Each leaves a NUL behind what it
// wrote, which a value does not count.
size_t pbeComposeBody(char *text, std::span<const char> header, const PbeParts &parts);
void pbeComposeTag(char *text, const PbeParts &parts);

// pbeParse takes a value apart. *bodyLength receives the length of everything before the tag.
// Result: true when the text is one that pbeComposeBody and pbeComposeTag write for this label.
[[nodiscard]] bool pbeParse(std::span<const char> text, std::span<const char> label,
                            PbeParts *parts, size_t *bodyLength);

#endif
