/*
 * printable.cpp - which characters of a foreign text may be shown on a terminal.
 *
 * UTF-8 as Unicode 15, table 3-7, has it: the shortest form only, no surrogates, nothing above
 * U+10FFFF.
 */
#include "common/printable.h"

#include <cstdint>

namespace ztm {

namespace {

// How many bytes a character has, the smallest number that takes so many, and its first byte: which
// bits tell the form, and what they are.
struct Form {
    size_t length;
    uint32_t smallest;
    uint8_t mask;
    uint8_t lead;
};

constexpr Form FORMS[] = {
    {1, 0, 0x80, 0x00}, {2, 0x80, 0xE0, 0xC0}, {3, 0x800, 0xF0, 0xE0}, {4, 0x10000, 0xF8, 0xF0}};

struct Range {
    uint32_t first;
    uint32_t last;
};

constexpr Range NOT_SHOWN[] = {
    {0x00, 0x1F},          // C0
    {0x7F, 0x9F},          // DEL, C1
    {0x202A, 0x202E},      // direction of writing
    {0x2066, 0x2069},      // direction of writing
    {0xD800, 0xDFFF},      // surrogates, no UTF-8
    {0x110000, 0xFFFFFFFF} // no UTF-8
};

bool isShown(uint32_t character) {
    for (const Range &range : NOT_SHOWN) {
        if (range.first <= character && character <= range.last)
            return false;
    }
    return true;
}

} // namespace

size_t printableLength(const char *text) {
    const uint8_t first = static_cast<uint8_t>(*text);
    for (const Form &form : FORMS) {
        if ((first & form.mask) != form.lead)
            continue;
        uint32_t character = first & ~uint32_t{form.mask};
        for (size_t i = 1; i < form.length; ++i) {
            const uint8_t next = static_cast<uint8_t>(text[i]); // the NUL at the end is none either
            if ((next & 0xC0) != 0x80)
                return 0;
            character = character << 6 | (next & 0x3FU);
        }
        return character >= form.smallest && isShown(character) ? form.length : 0;
    }
    return 0;
}

} // namespace ztm
