/*
 * lookup.h - the value of one key of a section; private to the readers.
 */
#ifndef SZTOUMAA_LOOKUP_H
#define SZTOUMAA_LOOKUP_H

#include "ztvek.h"

#include <span>

namespace vek {

/*
 * getText fetches the single value of a key.
 *  configPath     only a message insert; may be null.
 *  destination    filled up to its end. No terminator of its own: pass less than the capacity of a
 *                 cleared buffer where one is needed.
 *  missingResult  result for an absent key; 0 makes the key required: message, and 15.
 * Result: 0, 2, 15 (required and absent, or written more than once), or missingResult.
 */
[[nodiscard]] uint32_t getText(SztuList *list, const char *configPath, const char *key,
                               std::span<char> destination, uint32_t missingResult);

/* getInt reads an optional integer: decimal digits at the start of the value, of which 20
 * characters are looked at. A number beyond 64 bits is the largest or the lowest of them (strtol);
 * the low 32 bits of that count. Absent: *result 0 and 1. Result: 0, 1, 2, 15. */
[[nodiscard]] uint32_t getInt(SztuList *list, const char *configPath, const char *key,
                              int32_t *result);

/* getLogical reads an optional yes/no key: ON, YES, TRUE, 1 or OFF, NO, FALSE, 0 in any case.
 * Anything else is 15 without a message. Result: 0, 1, 2, 15; *result written on 0 only. */
[[nodiscard]] uint32_t getLogical(SztuList *list, const char *configPath, const char *key,
                                  int32_t *result);

} // namespace vek

#endif
