/*
 * key_source.cpp - where the initial key of the readers comes from: the section "vekcred", and
 * which source wins.
 */
#include "sztoumaa/key_source.h"

#include "common/guards.h"
#include "shared.h"
#include "sztoumaa/load.h"
#include "sztoumaa/lookup.h"
#include "trace_numbers.h"
#include "zttrc.h"
#include "ztutl.h"

#define TRC_SOURCE "lib/vek/sztoumaa"

namespace vek {

// The environment wins over the section.
KeySource chooseKeySource(const char *sectionKeyFile) {
    if (svcIsEnvironment(KEY_FILE_VARIABLE) != 0)
        return {KeyOrigin::variable, svcGetEnv(KEY_FILE_VARIABLE)};
    if (sectionKeyFile[0] != '\0')
        return {KeyOrigin::section, sectionKeyFile};
    return {KeyOrigin::builtIn, nullptr};
}

const char *baseName(const char *path) {
    const char *name = path;
    for (const char *slash = path; *slash != '\0'; ++slash)
        if (slash[0] == '/' && slash[1] != '\0' && slash[1] != '/')
            name = slash + 1;
    return name;
}

} // namespace vek

uint32_t sztouGetVEKCredConfig(char *keyFile, const char *keystorePath, char *itemName) {
    constexpr size_t LONGEST_PATH = SZTUC_PATH_CAPACITY - 1;
    ztm::TraceScope trace(vek::FUNCTION_GET_VEKCRED_CONFIG);
    if (itemName != nullptr)
        utlCopyBounded(itemName, vek::KEY_SOURCE_SECTION, sizeof vek::KEY_SOURCE_SECTION);
    if (keyFile == nullptr)
        return trace.returns(SZTU_BAD_ARGUMENTS);
    SztuList *list = nullptr;
    const uint32_t loaded =
        vek::loadSection(keystorePath, &list, vek::KEY_SOURCE_SECTION, /* reportErrors= */ 0);
    if (loaded != SZTU_OK)
        return trace.returns(loaded);
    const ztm::Handle<SztuList, sztucFreeConfigList> ownedList(list);
    const uint32_t result =
        vek::getText(list, keystorePath, "keyfile", {keyFile, LONGEST_PATH}, SZTU_KEY_NOT_PRESENT);
    if (result <= SZTU_KEY_NOT_PRESENT)
        return trace.returns(SZTU_OK);
    if (itemName != nullptr)
        utlAppendBounded(itemName, ".keyfile", sizeof ".keyfile" - 1);
    return trace.returns(result);
}
