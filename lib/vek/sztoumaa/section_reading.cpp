/*
 * section_reading.cpp - one reading of a section, and the kinds of keys.
 */
#include "sztoumaa/section_reading.h"

#include "common/guards.h"
#include "sztoumaa/channel_cache.h"
#include "sztoumaa/load.h"
#include "sztoumaa/lookup.h"
#include "ztutl.h"

#include <algorithm>
#include <cstring>

#define TRC_SOURCE "lib/vek/sztoumaa"

namespace vek {
namespace {

struct ClearText {
    char *text = nullptr;
    int32_t length = 0;
    ~ClearText() {
        if (text != nullptr)
            (void)svcPBEFreeBuf(text, length);
    }
};

} // namespace

void traceSkipped(const char *key) {
    TRC_PARMS_AT("%s : %d  Optional %s key not set. Skipping it.", key);
}

Reading::Reading(const ReadingSource &readFrom)
    : Reading(readFrom, /* sectionList= */ nullptr, /* openSession= */ nullptr) {
    ownsList = true;
}

Reading::Reading(const ReadingSource &readFrom, SztuList *sectionList, SvcPBESession *openSession)
    : source(readFrom), list(sectionList), session(openSession) {
    resetErrorKey();
}

Reading::~Reading() {
    if (session == &ownSession)
        (void)sztouTermPBE(&ownSession);
    if (ownsList)
        sztucFreeConfigList(list);
}

void Reading::resetErrorKey() const {
    if (source.errorKey != nullptr)
        utlCopyBounded(source.errorKey, source.section, strlen(source.section) + 1);
}

void Reading::appendToErrorKey(const char *text, size_t limit) const {
    if (source.errorKey != nullptr)
        utlAppendBounded(source.errorKey, text, limit);
}

void Reading::stop(uint32_t result, const char *errorKey) {
    settled = result;
    isOver = true;
    if (errorKey == nullptr)
        return;
    appendToErrorKey(".", /* limit= */ 1);
    appendToErrorKey(errorKey, strlen(errorKey));
}

// The cached section is "cms": while the cache serves the file, the channel keys of every reader
// are looked up there.
void Reading::load() {
    const bool isChannel = source.traceCached != nullptr;
    if (isChannel) {
        list = cachedSection(source.keystorePath);
        if (list != nullptr) {
            ownsList = false;
            return source.traceCached(list);
        }
    }
    const uint32_t result = loadSection(source.keystorePath, &list, source.section,
                                        /* reportErrors= */ isChannel ? 0 : 1);
    if (result != SZTU_OK)
        stop(result);
}

uint32_t Reading::lookUp(const char *key, std::span<char> field, const TextRule &rule) {
    const uint32_t result = getText(list, source.keystorePath, key, field, rule.missingResult);
    if (result == SZTU_OK)
        anyKeyFound = true;
    else if (result == SZTU_KEY_NOT_PRESENT && rule.traceAbsent != nullptr)
        rule.traceAbsent(key);
    else
        stop(result, rule.isNamed ? key : nullptr);
    return result;
}

bool Reading::readText(const char *key, std::span<char> field, const TextRule &rule) {
    if (isOver)
        return false;
    const uint32_t result = lookUp(key, field, rule);
    if (!isOver && result != SZTU_OK)
        memset(field.data(), 0, field.size());
    return result == SZTU_OK;
}

bool Reading::readInt(const char *key, int32_t *field) {
    constexpr int32_t ABSENT = -1;
    if (isOver)
        return false;
    int32_t value = 0;
    const uint32_t result = getInt(list, source.keystorePath, key, &value);
    if (result == SZTU_KEY_NOT_PRESENT) {
        traceSkipped(key);
        *field = ABSENT;
        return false;
    }
    if (result != SZTU_OK) {
        stop(result);
        return false;
    }
    *field = value;
    anyKeyFound = true;
    return true;
}

bool Reading::readLogical(const char *key, const LogicalNumbers &numbers, int32_t *field) {
    if (isOver)
        return false;
    int32_t isTrue = 0;
    const uint32_t result = getLogical(list, source.keystorePath, key, &isTrue);
    if (result == SZTU_KEY_NOT_PRESENT) {
        TRC_PARMS_AT("%s : %d  Optional %s key not set. ", key);
        *field = numbers.absent;
        return false;
    }
    if (result != SZTU_OK) {
        *field = numbers.failed;
        stop(result, key);
        return false;
    }
    *field = isTrue != 0 ? numbers.yes : numbers.no;
    anyKeyFound = true;
    return true;
}

void Reading::readWord(const char *key, const WordRule &rule, int32_t *field) {
    constexpr size_t LOOKUP_LENGTH = 10;
    constexpr size_t UPPER_CASE_LENGTH = 9;
    if (isOver)
        return;
    char word[LOOKUP_LENGTH + 1] = {};
    const uint32_t result = getText(list, source.keystorePath, key,
                                    std::span(word).first<LOOKUP_LENGTH>(), SZTU_KEY_NOT_PRESENT);
    if (result == SZTU_KEY_NOT_PRESENT) {
        *field = 0;
        rule.traceAbsent(key);
        return;
    }
    // An empty value ends the reading with success and leaves the rest of the record as it was.
    if (result != SZTU_OK || word[0] == '\0') {
        stop(result);
        return;
    }
    utlUpperCase(word, UPPER_CASE_LENGTH);
    for (const WordValue &accepted : rule.words) {
        if (strcmp(word, accepted.word) == 0) {
            *field = accepted.value;
            return;
        }
    }
    *field = 0;
    stop(SZTU_BAD_CONFIG, key);
    if (rule.showsWord) {
        appendToErrorKey("=", /* limit= */ 1);
        appendToErrorKey(word, LOOKUP_LENGTH);
    }
    rule.traceRefused(key);
}

bool Reading::openSession(int32_t fips) {
    if (session != nullptr)
        return true;
    ownSession.algorithm = SVC_PBE_ALGORITHM_LATEST;
    const int32_t result =
        sztouInitializePBE(SVC_COMPONENT_VEK, source.function, source.keystorePath, source.errorKey,
                           &ownSession, fips);
    if (result != SZTU_OK) {
        stop(static_cast<uint32_t>(result));
        return false;
    }
    session = &ownSession;
    // Opening the session leaves the name of the key file's section in the error key.
    resetErrorKey();
    return true;
}

bool Reading::restore(const char *key, const char *stored, std::span<char> field,
                      const Protection &protection) {
    uint32_t algorithm = 0;
    ClearText clear;
    const uint32_t reason = svcPBERestore(session, stored, static_cast<int32_t>(strlen(stored)),
                                          &algorithm, &clear.text, &clear.length);
    if (reason != SVC_PBE_OK) {
        stop(reason, protection.errorKey != nullptr ? protection.errorKey : key);
        return false;
    }
    memset(field.data(), 0, field.size());
    // The clear text has no terminator, so its length bounds the copy as well.
    utlCopyBounded(field.data(), clear.text,
                   std::min(static_cast<size_t>(clear.length), field.size()));
    return true;
}

bool Reading::readCredential(const char *key, std::span<char> field, const TextRule &rule,
                             const Protection &protection) {
    if (isOver)
        return false;
    if (protection.encrypted == 0)
        return readText(key, field, rule);
    if (!openSession(protection.fips))
        return false;
    ztm::Wiping<char[SVC_PBE_STORED_LIMIT + 1]> stored{};
    (void)lookUp(key, std::span(stored.value).first<SVC_PBE_STORED_LIMIT>(), rule);
    return !isOver && restore(key, stored.value, field, protection);
}

} // namespace vek
