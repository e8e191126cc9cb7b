/*
 * lookup.cpp - the value of one key of a section: text, integer, logical.
 */
#include "sztoumaa/lookup.h"

#include "sztoumaa/message.h"
#include "trace_numbers.h"
#include "zttrc.h"
#include "ztutl.h"

#include <cstdlib>
#include <cstring>

#define TRC_SOURCE "lib/vek/sztoumaa"

namespace vek {
namespace {

constexpr size_t INTEGER_LENGTH = 20;
constexpr size_t LOGICAL_LENGTH = 50;

struct LogicalWord {
    const char *word;
    int32_t value;
};

constexpr LogicalWord LOGICAL_WORDS[] = {
    {"ON", 1}, {"YES", 1}, {"TRUE", 1}, {"1", 1}, {"OFF", 0}, {"NO", 0}, {"FALSE", 0}, {"0", 0},
};

// The list hands the key back to sztucFindKey, which only reads it.
void *asData(const char *key) {
    return const_cast<char *>(key);
}

bool isUsable(const SztuList *list, const char *key) {
    if (list != nullptr && key != nullptr && key[0] != '\0')
        return true;
    TRC_PARMS_AT("%s : %d  Incorrect arguments");
    return false;
}

uint32_t refuseMissing(const char *configPath, const char *key, uint32_t missingResult) {
    if (missingResult == SZTU_OK)
        showMessage(SVC_MSG_KEY_MISSING, svcMakeInserts(/* numeric1= */ 0, configPath, key));
    TRC_PARMS_AT("%s : %d  Config file does not contain '%s' entry", key);
    return missingResult == SZTU_OK ? static_cast<uint32_t>(SZTU_BAD_CONFIG) : missingResult;
}

} // namespace

uint32_t getText(SztuList *list, const char *configPath, const char *key,
                 std::span<char> destination, uint32_t missingResult) {
    ztm::TraceScope trace(FUNCTION_GET_CONFIG_VALUE);
    TRC_PARMS_AT("%s : %d  Getting key '%s'", key);
    if (!isUsable(list, key))
        return trace.returns(SZTU_BAD_ARGUMENTS);
    const uint32_t count = list->SztuListCountIfWithData(list, sztucFindKey, asData(key));
    // A key that is written twice is refused, the optional one too: which line holds is not known.
    if (count > 1) {
        showMessage(SVC_MSG_DUPLICATE_KEY, svcMakeInserts(/* numeric1= */ 0, configPath, key));
        TRC_PARMS_AT("%s : %d  Config file contains more than one '%s' entry", key);
        return trace.returns(SZTU_BAD_CONFIG);
    }
    if (count == 0)
        return trace.returns(refuseMissing(configPath, key, missingResult));
    const SztuListNode *const node = list->SztuListFindWithData(list, sztucFindKey, asData(key));
    utlCopyBounded(destination.data(), static_cast<const SztucConfigItem *>(node->item)->value,
                   destination.size());
    return trace.returns(SZTU_OK);
}

// A text behind the digits is ignored, and so is the range.
uint32_t getInt(SztuList *list, const char *configPath, const char *key, int32_t *result) {
    ztm::TraceScope trace(FUNCTION_GET_CONFIG_INT);
    if (!isUsable(list, key))
        return trace.returns(SZTU_BAD_ARGUMENTS);
    char value[INTEGER_LENGTH + 1] = {};
    const uint32_t code = getText(list, configPath, key, std::span(value).first<INTEGER_LENGTH>(),
                                  SZTU_KEY_NOT_PRESENT);
    if (code == SZTU_KEY_NOT_PRESENT)
        *result = 0;
    if (code == SZTU_OK && value[0] != '\0')
        *result = static_cast<int32_t>(strtol(value, nullptr, 10));
    return trace.returns(code);
}

uint32_t getLogical(SztuList *list, const char *configPath, const char *key, int32_t *result) {
    ztm::TraceScope trace(FUNCTION_GET_CONFIG_LOGICAL);
    if (!isUsable(list, key))
        return trace.returns(SZTU_BAD_ARGUMENTS);
    char value[LOGICAL_LENGTH + 1] = {};
    const uint32_t code = getText(list, configPath, key, std::span(value).first<LOGICAL_LENGTH>(),
                                  SZTU_KEY_NOT_PRESENT);
    if (code != SZTU_OK)
        return trace.returns(code);
    utlUpperCase(value, LOGICAL_LENGTH);
    for (const LogicalWord &entry : LOGICAL_WORDS) {
        if (strcmp(value, entry.word) == 0) {
            *result = entry.value;
            return trace.returns(SZTU_OK);
        }
    }
    // Deliberately without a numbered message.
    TRC_PARMS_AT("%s : %d  The value of '%s' key is not of logical type.", key);
    return trace.returns(SZTU_BAD_CONFIG);
}

} // namespace vek
