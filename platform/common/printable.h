/*
 * printable.h - which characters of a foreign text may be shown on a terminal.
 */
#ifndef ZTM_PRINTABLE_H
#define ZTM_PRINTABLE_H

#include <cstddef>

namespace ztm {

// printableLength returns the length in bytes of the UTF-8 character at `text`, or 0 when the byte
// there must not be shown: a control character (C0, DEL, C1), a character that changes the
// direction of writing (U+202A to U+202E, U+2066 to U+2069), or no UTF-8. One byte is then shown as
// "?".
[[nodiscard]] size_t printableLength(const char *text);

} // namespace ztm

#endif
