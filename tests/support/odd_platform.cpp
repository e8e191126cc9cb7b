// Preloaded into a program of the product: services of the platform, with results that no machine
// gives when it is asked to. The variables say which.
#include "ztsvc.h"

#include <cerrno>
#include <cstdlib>
#include <sys/random.h>

static uint32_t asked(const char *variable) {
    const char *const value = getenv(variable);
    return value == nullptr ? 0 : static_cast<uint32_t>(strtoul(value, nullptr, 0));
}

extern "C" {

uint32_t svcInitializeEx(uint32_t, uint32_t, uint64_t, uint64_t, uint64_t, uint64_t, uint64_t,
                         uint64_t, SvcMiniSubpool *) {
    thdProcess.initReason = asked("ODD_INIT_REASON");
    return asked("ODD_INIT_RESULT");
}

uint32_t svcGetpwuid(uid_t, struct passwd *entry, char *scratch, size_t) {
    scratch[0] = '\0';
    entry->pw_dir = asked("ODD_HOME_IS_NULL") != 0 ? nullptr : scratch;
    return SVC_OK;
}

uint32_t svcGetMemFn(uint32_t, uint16_t, uint32_t function, size_t length, uint32_t,
                     void **buffer) {
    const bool isRefused =
        function == asked("ODD_REFUSED_FUNCTION") && length == asked("ODD_REFUSED_LENGTH");
    *buffer = isRefused ? nullptr : calloc(1, length);
    return isRefused ? SVC_NO_STORAGE : SVC_OK;
}

// A tracer sees no call where the kernel lends the C library a generator.
ssize_t getrandom(void *, size_t, unsigned int) {
    errno = EIO;
    return -1;
}
}
