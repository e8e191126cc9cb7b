/*
 * environment.cpp - environment variables, users, files and error texts.
 */
#include "ztsvc.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>

const char *svcGetEnv(const char *name) {
    return secure_getenv(name);
}

int32_t svcIsEnvironment(const char *name) {
    return svcGetEnv(name) != nullptr ? 1 : 0;
}

uint32_t svcGetEnvironmentStringX(const char *name, char *buffer, size_t *capacity) {
    const char *const value = svcGetEnv(name);
    if (value == nullptr)
        return SVC_NOT_SET;
    const size_t length = strlen(value);
    if (length >= *capacity)
        return SVC_NOT_SET;
    memcpy(buffer, value, length + 1);
    *capacity = length;
    return SVC_OK;
}

uint32_t svcGetpwuid(uid_t userId, struct passwd *entry, char *scratch, size_t scratchLength) {
    struct passwd *found = nullptr;
    const int error = getpwuid_r(userId, entry, scratch, scratchLength, &found);
    if (error != 0)
        return static_cast<uint32_t>(error);
    return found == nullptr ? static_cast<uint32_t>(ENOENT) : static_cast<uint32_t>(SVC_OK);
}

uint32_t svcFileExists(const char *path, int32_t *exists) {
    *exists = 0;
    struct stat status;
    if (stat(path, &status) == 0) {
        *exists = 1;
        return SVC_OK;
    }
    return errno == ENOENT || errno == ENOTDIR ? static_cast<uint32_t>(SVC_OK)
                                               : static_cast<uint32_t>(errno);
}

uint32_t svcStrerrorEx(int32_t errorNumber, char *buffer, size_t capacity, uint32_t /*options*/,
                       uint32_t /*style*/) {
    if (buffer == nullptr || capacity == 0)
        return SVC_BAD_ARGUMENTS;
    char scratch[256];
    (void)snprintf(buffer, capacity, "%s", strerror_r(errorNumber, scratch, sizeof scratch));
    return SVC_OK;
}
