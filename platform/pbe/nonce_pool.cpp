/*
 * nonce_pool.cpp - random nonces of a session.
 */
#include "pbe/nonce_pool.h"
#include "ztsvc.h"

#include <atomic>
#include <cstring>
#include <openssl/rand.h>
#include <pthread.h>

namespace {

// Counts the forks between the first process and this one. 0: forks are not noticed, nothing is pooled.
std::atomic<uint32_t> forkGeneration;

pthread_once_t forkHandlerOnce = PTHREAD_ONCE_INIT;

void noteFork() {
    forkGeneration.fetch_add(1, std::memory_order_relaxed);
}

void installForkHandler() {
    if (pthread_atfork(/* prepare= */ nullptr, /* parent= */ nullptr, noteFork) == 0)
        forkGeneration.store(1, std::memory_order_relaxed);
}

bool makeRandom(OSSL_LIB_CTX *library, uint8_t *bytes, size_t length) {
    return RAND_bytes_ex(library, bytes, length, /* strength= */ 0) == 1;
}

} // namespace

bool pbeTakeNonce(PbeNoncePool *pool, OSSL_LIB_CTX *library, std::span<uint8_t> nonce) {
    (void)pthread_once(&forkHandlerOnce, installForkHandler);
    const uint32_t generation = forkGeneration.load(std::memory_order_relaxed);
    if (generation == 0)
        return makeRandom(library, nonce.data(), nonce.size());

    if (pool->generation != generation || pool->available < nonce.size()) {
        pool->available = 0;
        if (!makeRandom(library, pool->bytes, sizeof pool->bytes))
            return false;
        pool->available = sizeof pool->bytes;
        pool->generation = generation;
    }
    pool->available -= nonce.size();
    uint8_t *const taken = pool->bytes + pool->available;
    memcpy(nonce.data(), taken, nonce.size());
    svcWipe(taken, nonce.size());
    return true;
}
