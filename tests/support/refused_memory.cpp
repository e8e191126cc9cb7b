// Takes the place of malloc, calloc, realloc and free in a whole process, libcrypto's requests
// included, and of pthread_key_create: refuses one request and counts what is alive. Linked to a
// test, or preloaded into the command with the number of the request in VEK_REFUSED_REQUEST; a
// refusal is then told on standard error.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <pthread.h>
#include <unistd.h>

extern "C" {

int refusedRequest = 0; // counted from 1; 0 and less: none
int liveRequests = 0;   // granted and not released
void *latestRequest;    // granted last; null when it was released

void *__libc_malloc(size_t length);
void *__libc_calloc(size_t count, size_t length);
void *__libc_realloc(void *memory, size_t length);
void __libc_free(void *memory);
int __pthread_key_create(pthread_key_t *key, void (*destructor)(void *));

static bool isTold = false;

static bool isRefused() {
    if (--refusedRequest != 0)
        return false;
    if (isTold)
        (void)!write(STDERR_FILENO, "refused\n", strlen("refused\n"));
    errno = ENOMEM;
    return true;
}

static void *counted(void *memory) {
    liveRequests += memory != nullptr;
    return latestRequest = memory;
}

void *malloc(size_t length) {
    return isRefused() ? nullptr : counted(__libc_malloc(length));
}

void *calloc(size_t count, size_t length) {
    return isRefused() ? nullptr : counted(__libc_calloc(count, length));
}

void *realloc(void *memory, size_t length) {
    if (isRefused())
        return nullptr;
    void *const moved = __libc_realloc(memory, length);
    return memory == nullptr ? counted(moved) : moved;
}

void free(void *memory) {
    liveRequests -= memory != nullptr;
    if (memory == latestRequest)
        latestRequest = nullptr;
    __libc_free(memory);
}

int pthread_key_create(pthread_key_t *key, void (*destructor)(void *)) {
    return isRefused() ? EAGAIN : __pthread_key_create(key, destructor);
}

__attribute__((constructor)) static void readRequest() {
    const char *const request = getenv("VEK_REFUSED_REQUEST");
    isTold = request != nullptr;
    refusedRequest = isTold ? atoi(request) : 0;
}
}
