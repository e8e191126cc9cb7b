/*
 * section_reading.cpp - the record of one reading, and the kinds of keys.
 */
#include "sztoumaa/section_reading.h"

#include "zttrc.h"
#include "ztutl.h"

#include <cstring>

#define TRC_SOURCE "lib/vek/sztoumaa"

static constexpr int32_t ABSENT_INTEGER = -1;

static void resetErrorKey(SztouReading *reading) {
    if (reading->errorKey != nullptr)
        utlCopyBounded(reading->errorKey, reading->section, strlen(reading->section) + 1);
}

void sztouBeginReading(SztouReading *reading, const char *section, const char *keystorePath,
                       char *errorKey) {
    reading->section = section;
    reading->keystorePath = keystorePath;
    reading->errorKey = errorKey;
    resetErrorKey(reading);
}

uint32_t sztouEndReading(SztouReading *reading) {
    if (reading->sessionOpen)
        (void)sztouTermPBE(&reading->session);
    if (!reading->listIsCached)
        sztucFreeConfigList(reading->list);
    return reading->result;
}

static void appendToErrorKey(SztouReading *reading, const char *text, size_t limit) {
    if (reading->errorKey != nullptr)
        utlAppendBounded(reading->errorKey, text, limit);
}

bool sztouStopReading(SztouReading *reading, uint32_t result, const char *errorKey) {
    reading->result = result;
    if (errorKey == nullptr)
        return false;
    appendToErrorKey(reading, ".", /* limit= */ 1);
    appendToErrorKey(reading, errorKey, strlen(errorKey));
    return false;
}

bool sztouLoadSection(SztouReading *reading, int32_t reportErrors) {
    const uint32_t result = sztouLoadConfigSection(reading->keystorePath, &reading->list,
                                                   reading->section, reportErrors);
    if (result == SZTU_OK)
        return true;
    return sztouStopReading(reading, result, /* errorKey= */ nullptr);
}

bool sztouTakeCachedSection(SztouReading *reading) {
    reading->list = sztouCachedSection(reading->keystorePath);
    reading->listIsCached = reading->list != nullptr;
    return reading->listIsCached;
}

SztouChannelKey sztouBuildChannelKey(const char *beginning, const char *channelName) {
    SztouChannelKey key = {};
    utlCopyBounded(key.text, beginning, sizeof(key.text) - SZTOU_CHANNEL_LENGTH - 1);
    utlAppendBounded(key.text, channelName, SZTOU_CHANNEL_LENGTH);
    key.text[strcspn(key.text, " ")] = '\0';
    return key;
}

// Returns the result of the lookup, and keeps it in the reading.
static uint32_t lookUp(SztouReading *reading, const char *key, std::span<char> field,
                       uint32_t missingResult) {
    reading->lastLookup =
        sztouGetConfigValue(reading->list, reading->keystorePath, key, field.data(),
                            static_cast<int32_t>(field.size()), missingResult);
    return reading->lastLookup;
}

bool sztouReadText(SztouReading *reading, const char *key, std::span<char> field,
                   uint32_t missingResult) {
    const uint32_t result = lookUp(reading, key, field, missingResult);
    if (result == SZTU_OK)
        return true;
    return sztouStopReading(reading, result, key);
}

bool sztouReadOptionalText(SztouReading *reading, const char *key, std::span<char> field) {
    const uint32_t result = lookUp(reading, key, field, SZTU_KEY_NOT_PRESENT);
    if (result == SZTU_KEY_NOT_PRESENT) {
        TRC_PARMS_AT("%s : %d  Optional %s key not set. Skipping it.", key);
        memset(field.data(), 0, field.size());
        return true;
    }
    if (result != SZTU_OK)
        return sztouStopReading(reading, result, /* errorKey= */ nullptr);
    reading->anyKeyFound = true;
    return true;
}

bool sztouReadOptionalInt(SztouReading *reading, const char *key, int32_t *field) {
    int32_t value = 0;
    reading->lastLookup = sztouGetConfigInt(reading->list, reading->keystorePath, key, &value);
    if (reading->lastLookup == SZTU_KEY_NOT_PRESENT) {
        TRC_PARMS_AT("%s : %d  Optional %s key not set. Skipping it.", key);
        *field = ABSENT_INTEGER;
        return true;
    }
    if (reading->lastLookup != SZTU_OK)
        return sztouStopReading(reading, reading->lastLookup, /* errorKey= */ nullptr);
    *field = value;
    reading->anyKeyFound = true;
    return true;
}

bool sztouReadLogical(SztouReading *reading, const char *key, const SztouLogicalNumbers &numbers,
                      int32_t *field) {
    int32_t isTrue = 0;
    reading->lastLookup = sztouGetConfigLogical(reading->list, reading->keystorePath, key, &isTrue);
    if (reading->lastLookup == SZTU_KEY_NOT_PRESENT) {
        TRC_PARMS_AT("%s : %d  Optional %s key not set. ", key);
        *field = numbers.absent;
        return true;
    }
    if (reading->lastLookup != SZTU_OK) {
        *field = numbers.failed;
        return sztouStopReading(reading, reading->lastLookup, key);
    }
    *field = isTrue != 0 ? numbers.yes : numbers.no;
    reading->anyKeyFound = true;
    return true;
}

static SztouWord refuseWord(SztouReading *reading, const char *key, const char *word,
                            SztouRefusal refusal, size_t shownLength) {
    sztouStopReading(reading, SZTU_BAD_CONFIG, key);
    if (refusal == SztouRefusal::keyAndWord) {
        appendToErrorKey(reading, "=", /* limit= */ 1);
        appendToErrorKey(reading, word, shownLength);
    }
    return SztouWord::refused;
}

SztouWord sztouReadWord(SztouReading *reading, const char *key,
                        std::span<const SztouWordValue> words, SztouRefusal refusal,
                        int32_t *field) {
    static constexpr size_t LOOKUP_LENGTH = 10;
    static constexpr size_t UPPER_CASE_LENGTH = 9;
    char word[LOOKUP_LENGTH + 1] = {};
    const uint32_t result =
        lookUp(reading, key, std::span(word).first(LOOKUP_LENGTH), SZTU_KEY_NOT_PRESENT);
    if (result == SZTU_KEY_NOT_PRESENT) {
        *field = 0;
        return SztouWord::absent;
    }
    // An empty value ends the reading with success and leaves the rest of the record as it was.
    if (result != SZTU_OK || word[0] == '\0') {
        sztouStopReading(reading, result, /* errorKey= */ nullptr);
        return SztouWord::ended;
    }
    utlUpperCase(word, UPPER_CASE_LENGTH);
    for (const SztouWordValue &accepted : words) {
        if (strcmp(word, accepted.word) == 0) {
            *field = accepted.value;
            return SztouWord::taken;
        }
    }
    *field = 0;
    return refuseWord(reading, key, word, refusal, LOOKUP_LENGTH);
}

static bool openSession(SztouReading *reading, uint32_t function, int32_t fips) {
    reading->session.algorithm = SVC_PBE_ALGORITHM_LATEST;
    const int32_t result = sztouInitializePBE(SVC_COMPONENT_VEK, function, reading->keystorePath,
                                              reading->errorKey, &reading->session, fips);
    if (result != SZTU_OK)
        return sztouStopReading(reading, static_cast<uint32_t>(result), /* errorKey= */ nullptr);
    reading->sessionOpen = true;
    // Opening the session leaves the name of the key file's section in the error key.
    resetErrorKey(reading);
    return true;
}

static bool lookUpStored(SztouReading *reading, const SztouProtectedKey &key,
                         std::span<char> stored) {
    const uint32_t result = lookUp(reading, key.key, stored, key.missingResult);
    if (result == SZTU_KEY_NOT_PRESENT && key.absentIsEmpty) {
        TRC_PARMS_AT("%s : %d  Optional %s key not set. Skipping it.", key.key);
        return true;
    }
    if (result != SZTU_OK)
        return sztouStopReading(reading, result, key.lookupErrorKey);
    reading->anyKeyFound = true;
    return true;
}

static bool restore(SztouReading *reading, const char *stored, const char *errorKey,
                    char **clearText, int32_t *clearLength) {
    uint32_t algorithm = 0;
    const uint32_t reason =
        svcPBERestore(&reading->session, stored, static_cast<int32_t>(strlen(stored)), &algorithm,
                      clearText, clearLength);
    if (reason == SVC_PBE_OK)
        return true;
    return sztouStopReading(reading, reason, errorKey);
}

bool sztouReadProtected(SztouReading *reading, const SztouProtectedKey &key, std::span<char> field,
                        uint32_t function, int32_t fips) {
    if (!openSession(reading, function, fips))
        return false;
    char stored[SVC_PBE_STORED_LIMIT + 1] = {};
    char *clearText = nullptr;
    int32_t clearLength = 0;
    const bool restored =
        lookUpStored(reading, key, std::span(stored).first(SVC_PBE_STORED_LIMIT)) &&
        restore(reading, stored, key.restoreErrorKey, &clearText, &clearLength);
    svcWipe(stored, sizeof(stored));
    if (!restored)
        return false;
    // The clear text has no terminator, so its length bounds the copy as well.
    memset(field.data(), 0, field.size());
    const size_t available = static_cast<size_t>(clearLength);
    utlCopyBounded(field.data(), clearText, available < field.size() ? available : field.size());
    (void)svcPBEFreeBuf(clearText, clearLength);
    return true;
}
