/*
 * built_in_key.h - key material that is part of the product; programs and readers share it.
 */
#ifndef SZTOUMAA_BUILT_IN_KEY_H
#define SZTOUMAA_BUILT_IN_KEY_H

#include "ztpbe.h"

#include <cstdint>
#include <span>

namespace vek {

// buildDefaultKey writes the built-in initial key, which never stands whole in the program.
void buildDefaultKey(std::span<uint8_t, SVC_PBE_KEY_LENGTH> key);

// buildFixedSalt writes the salt of every session.
void buildFixedSalt(std::span<uint8_t, SVC_PBE_SALT_LENGTH> salt);

} // namespace vek

#endif
