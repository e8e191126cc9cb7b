/*
 * nonce_pool.h - random nonces of a session, taken from libcrypto's generator for many values at once.
 *
 * No nonce is handed out twice: what was handed out is wiped, and a child process drops what it
 * inherited, because its parent goes on to use the same bytes.
 */
#ifndef NONCEPOOL_H
#define NONCEPOOL_H

#include <cstddef>
#include <cstdint>
#include <openssl/types.h>
#include <span>

struct PbeNoncePool {
    uint8_t
        bytes[384];   // 32 nonces; one call for all of them costs little more than one for 12 bytes
    size_t available; // bytes at the start of `bytes` that nobody has got
    uint32_t generation;
};

// pbeTakeNonce fills `nonce` with bytes that were never handed out. `library` is the libcrypto context
// whose generator makes them, null for the default one. Result: true, or false when it cannot.
[[nodiscard]] bool pbeTakeNonce(PbeNoncePool *pool, OSSL_LIB_CTX *library,
                                std::span<uint8_t> nonce);

#endif
