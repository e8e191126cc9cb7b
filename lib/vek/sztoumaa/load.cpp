/*
 * load.cpp - loads one section of keystore.conf.
 */
#include "sztoumaa/load.h"

#include "allocation.h"
#include "common/guards.h"
#include "shared.h"
#include "sztoumaa/message.h"
#include "trace_numbers.h"
#include "zttrc.h"

#define TRC_SOURCE "lib/vek/sztoumaa"

namespace vek {
namespace {

void releaseText(char *text) {
    release(FUNCTION_LOAD_CONFIG_SECTION, text);
}

void showFileMessage(uint32_t number, const char *file, int32_t reportErrors,
                     int32_t line = __builtin_LINE()) {
    if (reportErrors != 0)
        showMessage(number, svcMakeInserts(/* numeric1= */ 0, file, /* string2= */ nullptr), line);
}

uint32_t findStandardPath(char *path, int32_t reportErrors) {
    const uint32_t result = sztucGetConfigFilePath(path, FILE_VARIABLE, FILE_NAME);
    if (result == SZTU_OK)
        return SZTU_OK;
    showFileMessage(SVC_MSG_NO_LOCATION, FILE_NAME, reportErrors);
    TRC_PARMS_AT("%s : %d  Cannot get config file path");
    return result;
}

void traceErrorNumber(int32_t errorNumber) {
    char errorText[1024] = {};
    (void)svcStrerrorEx(errorNumber, errorText, sizeof errorText, /* options= */ 0, /* style= */ 1);
    errorText[sizeof errorText - 1] = '\0';
    TRC_PARMS_AT("%s : %d  errno '%d': %s", errorNumber, errorText);
}

uint32_t readText(const char *path, char **text, int32_t reportErrors) {
    int32_t errorNumber = 0;
    if (sztucReadConfigFile(path, text, &errorNumber) == SZTU_OK)
        return SZTU_OK;
    showFileMessage(SVC_MSG_FILE_UNUSABLE, path, reportErrors);
    TRC_PARMS_AT("%s : %d  Cannot read config file '%s'", path);
    if (errorNumber != 0)
        traceErrorNumber(errorNumber);
    return SZTU_CANNOT_READ;
}

// The caller's reference owns its list before and after: what it held goes, and the new list is
// stored at once.
uint32_t parseSection(const char *path, char *text, SztuList **list, const char *section,
                      int32_t reportErrors) {
    sztucFreeConfigList(*list);
    *list = SztuListCreate();
    if (sztucParseConfigFile(text, *list) != SZTU_OK) {
        showFileMessage(SVC_MSG_FILE_UNUSABLE, path, reportErrors);
        TRC_PARMS_AT("%s : %d  Cannot parse config file");
        return SZTU_CANNOT_PARSE;
    }
    sztucFilterPrefix(*list, section);
    return (*list)->SztuListCount(*list) != 0 ? SZTU_OK : SZTU_SECTION_EMPTY;
}

uint32_t load(const char *path, SztuList **list, const char *section, int32_t reportErrors,
              char **text) {
    TRC_PARMS_AT("%s : %d  Loading section '%s'", section);
    if (section[0] == '\0')
        return SZTU_BAD_ARGUMENTS;
    char standardPath[SZTUC_PATH_CAPACITY];
    if (path == nullptr) {
        const uint32_t result = findStandardPath(standardPath, reportErrors);
        if (result != SZTU_OK)
            return result;
        path = standardPath;
    }
    const uint32_t result = readText(path, text, reportErrors);
    if (result != SZTU_OK)
        return result;
    return parseSection(path, *text, list, section, reportErrors);
}

} // namespace

uint32_t loadSection(const char *path, SztuList **list, const char *section, int32_t reportErrors) {
    ztm::TraceScope trace(FUNCTION_LOAD_CONFIG_SECTION);
    ztm::Handle<char, releaseText> text;
    const uint32_t result = load(path, list, section, reportErrors, text.receive());
    if (result != SZTU_OK) {
        sztucFreeConfigList(*list);
        *list = nullptr;
    }
    return trace.returns(result);
}

} // namespace vek
