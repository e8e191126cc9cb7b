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
#ifndef ZTM_VALUE_TEXT_H
#define ZTM_VALUE_TEXT_H

#include "ztpbe.h"

#include <span>

namespace ztm {

// Longest label; one fixed buffer holds label and digit.
inline constexpr size_t LABEL_LIMIT = 63;

// Binary lengths of one algorithm.
struct ValueShape {
    size_t nonceLength;
    size_t blockLength; // 1: the cipher text is as long as the clear text; else it is padded
    size_t tagLength;
};

// The binary parts of a value. Capacities are whole groups of three bytes, as base64 decodes them.
struct ValueParts {
    size_t cipherLength;
    uint8_t nonce[18];
    uint8_t tag[33];
    uint8_t cipherText[SVC_PBE_STORED_LIMIT / 4 * 3];
};

// isLabel tells whether a text can be a label: 1 to LABEL_LIMIT printable characters, no blank, no
// "!", no "#".
[[nodiscard]] bool isLabel(const char *label);

// cipherLengthOf returns the length of the cipher text of `clearLength` bytes.
[[nodiscard]] size_t cipherLengthOf(const ValueShape &shape, size_t clearLength);

// storedLengthOf returns the length of a whole value in characters.
[[nodiscard]] size_t storedLengthOf(const ValueShape &shape, size_t labelLength,
                                    size_t cipherLength);

// writeBody writes everything before the tag, the third "!" included, and returns its length;
// `header` is label and digit. writeTag writes the tag behind it. Each leaves a NUL behind what it
// wrote, which a value does not count.
size_t writeBody(char *text, std::span<const char> header, const ValueShape &shape,
                 const ValueParts &parts);
void writeTag(char *text, const ValueShape &shape, const ValueParts &parts);

// digitOf returns the digit of a text that begins with the label, one character and "!", as a
// number, or 0 for any other text. What is no digit gives a number that no algorithm has.
[[nodiscard]] int32_t digitOf(std::span<const char> text, std::span<const char> label);

// parseValue takes a text apart for which digitOf gave a number. *bodyLength receives the length of
// everything before the tag.
// Result: true when the text is one that writeBody and writeTag write.
[[nodiscard]] bool parseValue(std::span<const char> text, size_t labelLength,
                              const ValueShape &shape, ValueParts *parts, size_t *bodyLength);

} // namespace ztm

#endif
