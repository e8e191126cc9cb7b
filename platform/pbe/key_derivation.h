/*
 * key_derivation.h - from the initial key to the keys of a session.
 */
#ifndef ZTM_KEY_DERIVATION_H
#define ZTM_KEY_DERIVATION_H

#include "pbe/libcrypto.h"
#include "ztpbe.h"

#include <span>

namespace ztm {

// stretchPassphrase turns a passphrase into an initial key: PBKDF2-HMAC-SHA-256, 600,000
// iterations. It takes a good part of a second.
// Result: SVC_PBE_OK, SVC_PBE_NO_STORAGE, SVC_PBE_CRYPTO_FAILED.
[[nodiscard]] uint32_t stretchPassphrase(const Libcrypto &libcrypto,
                                         std::span<const uint8_t> passphrase,
                                         std::span<const uint8_t> salt,
                                         std::span<uint8_t, SVC_PBE_KEY_LENGTH> initialKey);

// deriveKey derives the key of one purpose from the initial key: HKDF-SHA-256. `info` names the
// purpose. Result: SVC_PBE_OK, SVC_PBE_NO_STORAGE, SVC_PBE_CRYPTO_FAILED.
[[nodiscard]] uint32_t deriveKey(const Libcrypto &libcrypto, std::span<const uint8_t> initialKey,
                                 std::span<const uint8_t> salt, std::span<const char> info,
                                 std::span<uint8_t> key);

} // namespace ztm

#endif
