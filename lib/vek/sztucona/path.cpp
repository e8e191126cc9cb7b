/*
 * path.cpp - where the configuration file lies.
 */
#include "trace_numbers.h"
#include "zttrc.h"
#include "ztutl.h"
#include "ztvek.h"

#include <cstring>

#define TRC_SOURCE "lib/vek/sztucona"

namespace vek {
namespace {

constexpr size_t PATH_LIMIT = SZTUC_PATH_CAPACITY - 1;
constexpr size_t PASSWORD_SCRATCH_LENGTH = 9507;

// HOME wins over the password database. `home` has SZTUC_PATH_CAPACITY bytes and is cleared.
uint32_t findHome(char *home) {
    size_t capacity = SZTUC_PATH_CAPACITY;
    if (svcGetEnvironmentStringX("HOME", home, &capacity) == SVC_OK)
        return SZTU_OK;

    struct passwd entry;
    char scratch[PASSWORD_SCRATCH_LENGTH];
    if (svcGetpwuid(svcGetCtrl()->userId, &entry, scratch, sizeof scratch) != SVC_OK)
        return SZTU_BAD_CONFIG;
    if (entry.pw_dir == nullptr) {
        TRC_PARMS("pw_dir is null");
        return SZTU_BAD_CONFIG;
    }
    if (entry.pw_dir[0] == '\0') {
        TRC_PARMS("pw_dir is empty");
        return SZTU_BAD_CONFIG;
    }
    utlCopyBounded(home, entry.pw_dir, PATH_LIMIT);
    return SZTU_OK;
}

// What does not fit is cut without notice; separators are neither added nor removed.
void copyPath(char *path, const char *text) {
    utlCopyBounded(path, text, SZTUC_PATH_CAPACITY);
    path[PATH_LIMIT] = '\0';
}

void appendToPath(char *path, const char *text) {
    utlAppendBounded(path, text, PATH_LIMIT - strlen(path));
}

uint32_t findPath(char *path, const char *envVarName, const char *fileName) {
    const char *const override = svcGetEnv(envVarName);
    if (override != nullptr) {
        copyPath(path, override);
        return SZTU_OK;
    }
    char home[SZTUC_PATH_CAPACITY] = {};
    const uint32_t result = findHome(home);
    if (result != SZTU_OK)
        return result;
    copyPath(path, home);
    appendToPath(path, "/.zts/");
    appendToPath(path, fileName);
    return SZTU_OK;
}

} // namespace
} // namespace vek

uint32_t sztucGetConfigFilePath(char *path, const char *envVarName, const char *fileName) {
    ztm::TraceScope trace(vek::FUNCTION_GET_CONFIG_FILE_PATH);
    const uint32_t result = vek::findPath(path, envVarName, fileName);
    if (result == SZTU_OK)
        TRC_PARMS("Returning path : %s", path);
    return trace.returns(result);
}
