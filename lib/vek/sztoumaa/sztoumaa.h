/*
 * sztoumaa.h - section loading, typed lookup and built-in key material; private to the readers and
 * the command.
 */
#ifndef SZTOUMAA_H
#define SZTOUMAA_H

#include "ztvek.h"

#include <cstdint>
#include <span>

/*
 * sztouLoadConfigSection locates (path null), reads and parses the file and keeps the items of one
 * section, keys without their prefix.
 *  list          must hold null or a list on entry, which is released; receives the section list, the
 *                caller's, released with sztucFreeConfigList, or null on every result but 0.
 *  reportErrors  1: show messages (while sztUseLogErrorMessage is not 0).
 * Result: 0, 2 (empty section name), 7, 11, 12, 15.
 */
[[nodiscard]] uint32_t sztouLoadConfigSection(const char *path, SztuList **list,
                                              const char *section, int32_t reportErrors);

/*
 * sztouGetConfigValue fetches the single value of a key.
 *  configPath         only a message insert; may be null.
 *  destinationLength  characters copied at the most. No terminator of its own: pass a length below the
 *                     capacity of a cleared buffer where one is needed.
 *  missingResult      result for an absent key; 0 makes the key required: message, and 15.
 * Result: 0, 2, 15 (required and absent, or written more than once), or missingResult.
 */
[[nodiscard]] uint32_t sztouGetConfigValue(SztuList *list, const char *configPath, const char *key,
                                           char *destination, int32_t destinationLength,
                                           uint32_t missingResult);

/* sztouGetConfigInt reads an optional integer: decimal digits at the start of the value (strtol), the
 * rest ignored, cut to 32 bits. Absent: *result 0 and 1. Result: 0, 1, 2, 15. */
[[nodiscard]] uint32_t sztouGetConfigInt(SztuList *list, const char *configPath, const char *key,
                                         int32_t *result);

/* sztouGetConfigLogical reads an optional yes/no key: ON, YES, TRUE, 1 or OFF, NO, FALSE, 0 in any
 * case. Anything else is 15 without a message. Result: 0, 1, 2, 15; *result written on 0 only. */
[[nodiscard]] uint32_t sztouGetConfigLogical(SztuList *list, const char *configPath,
                                             const char *key, int32_t *result);

/* Label of every credential in keystore.conf. */
inline constexpr char SZTOU_PBE_LABEL[] = "<VEK>";

/* sztouBuildDefaultKey writes the built-in initial key, which never stands whole in the program.
 * sztouBuildFixedSalt writes the salt of every session. Command and readers share both. */
void sztouBuildDefaultKey(std::span<uint8_t, SVC_PBE_KEY_LENGTH> key);
void sztouBuildFixedSalt(std::span<uint8_t, SVC_PBE_SALT_LENGTH> salt);

/* sztouBaseName returns the part of a key file path that messages show: what follows the last "/"
 * whose next character is neither "/" nor the end; the whole path when there is none. */
[[nodiscard]] const char *sztouBaseName(const char *path);

/* The channel cache as the channel readers see it: the cached "cms" section when it serves
 * keystorePath, else null. `keystorePath` must not be null while the cache is filled. */
[[nodiscard]] SztuList *sztouCachedSection(const char *keystorePath);

#endif
