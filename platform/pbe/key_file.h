/*
 * key_file.h - what an initial key file means.
 */
#ifndef KEYFILE_H
#define KEYFILE_H

#include "ztpbe.h"

#include <span>

/*
 * pbeClassifyKey turns the content of an initial key file, 1 to SVC_PBE_KEY_FILE_LIMIT bytes, into the
 * initial key. In this order:
 *
 *   content = 32 bytes                                   the key itself
 *           | 64 hexadecimal digits [line end]           the key
 *           | 44 characters of base64 [line end]         the key, when they decode to 32 bytes
 *           | text [line end]                            a passphrase, padded with zeros to 64 bytes
 *   line end = LF | CR LF
 *
 *  key  cleared by the caller.
 * Result: the length of the key, 32 for a full-strength key only; 0 when there is no passphrase.
 */
[[nodiscard]] size_t pbeClassifyKey(std::span<const uint8_t> content,
                                    std::span<uint8_t, SVC_PBE_KEY_FILE_LIMIT> key);

// pbeReleaseKeys wipes and releases the initial keys handed out and not released.
void pbeReleaseKeys();

#endif
