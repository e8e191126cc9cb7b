/*
 * section_reading.h - what the section readers share: the record of one reading, and one function for
 * each kind of key; private to the readers.
 *
 * A reader is a chain of calls joined with "&&", one call a key, in their order. Each call looks its key
 * up, stores the value, or what stands for an absent key, and tells whether the reading goes on. It
 * does not after a failure or an early end; the result is then settled in the record. Nothing here
 * knows which section it serves: what differs between the sections is an argument.
 */
#ifndef SZTOUMAA_SECTION_READING_H
#define SZTOUMAA_SECTION_READING_H

#include "sztoumaa/sztoumaa.h"

#include <cstdint>
#include <span>

/* One reading of one section. Between sztouBeginReading and sztouEndReading it owns the section list,
 * unless that is the cached one, and the cipher session. */
struct SztouReading {
    const char *section = nullptr;
    const char *keystorePath = nullptr; // may be null
    char *errorKey = nullptr;           // may be null
    SztuList *list = nullptr;           // null before the section is loaded
    bool listIsCached = false;
    bool anyKeyFound = false; // word keys do not count
    bool sessionOpen = false;
    uint32_t lastLookup = SZTU_OK;
    uint32_t result = SZTU_OK;
    SvcPBESession session = {};
};

/* Text of a channel key; the longest is "checkpurpose.channel." with a name of 20 characters. */
struct SztouChannelKey {
    char text[48];
};

/* What a key that must be there gives when it is absent. */
inline constexpr uint32_t SZTOU_REQUIRED = SZTU_OK;           // 15, with a message
inline constexpr uint32_t SZTOU_QUIET = SZTU_KEY_NOT_PRESENT; // 1, without one

/* What a logical key stores. */
struct SztouLogicalNumbers {
    int32_t yes;
    int32_t no;
    int32_t absent;
    int32_t failed;
};

inline constexpr SztouLogicalNumbers SZTOU_FLAG = {.yes = 1, .no = 0, .absent = 0, .failed = 0};

/* One accepted word of a word key. */
struct SztouWordValue {
    const char *word;
    int32_t value;
};

inline constexpr SztouWordValue SZTOU_YES_NO[] = {{"YES", 1}, {"NO", 0}};

enum class SztouWord {
    taken,
    absent,
    refused, // a word that is not accepted; the result is settled
    ended,   // a failed lookup, or an empty value; the result is settled
};

/* What a refused word appends to the error key. */
enum class SztouRefusal { keyAndWord, keyOnly };

/* A credential that is stored encrypted. */
struct SztouProtectedKey {
    const char *key;
    uint32_t missingResult;      // as in sztouReadText
    bool absentIsEmpty;          // an absent key is decrypted as an empty text
    const char *lookupErrorKey;  // appended after a failed lookup; null: nothing is
    const char *restoreErrorKey; // appended after a failed decryption
};

/* Starts a reading: sets the error key to the name of the section. */
void sztouBeginReading(SztouReading *reading, const char *section, const char *keystorePath,
                       char *errorKey);

/* Closes the session and frees the list, as far as they are the reading's. Returns its result. */
uint32_t sztouEndReading(SztouReading *reading);

/* Settles the result and appends "." and `errorKey` (null: nothing) to the error key; always false. */
bool sztouStopReading(SztouReading *reading, uint32_t result, const char *errorKey);

/* Refuses a call without one of its mandatory arguments with 2. Defined here so that an analyser of one
 * file sees that no reading goes on without them. */
[[nodiscard]] inline bool sztouCheckArguments(SztouReading *reading, bool complete) {
    if (!complete)
        (void)sztouStopReading(reading, SZTU_BAD_ARGUMENTS, /* errorKey= */ nullptr);
    return complete;
}

[[nodiscard]] bool sztouLoadSection(SztouReading *reading, int32_t reportErrors);

/* Takes the cached section when it serves this reading; changes nothing and is false otherwise. */
[[nodiscard]] bool sztouTakeCachedSection(SztouReading *reading);

/* Builds a channel key from its beginning and at most 20 characters of the name, cut at the first
 * blank: a channel name may be padded to its fixed width. */
[[nodiscard]] SztouChannelKey sztouBuildChannelKey(const char *beginning, const char *channelName);

/* A text that must be there. Absent: missingResult (SZTOU_REQUIRED or SZTOU_QUIET) tells. Every
 * failure names the key in the error key. */
[[nodiscard]] bool sztouReadText(SztouReading *reading, const char *key, std::span<char> field,
                                 uint32_t missingResult);

/* An optional text. Absent: the field is cleared. A failure does not name the key. */
[[nodiscard]] bool sztouReadOptionalText(SztouReading *reading, const char *key,
                                         std::span<char> field);

/* An optional integer. Absent: -1. A failure leaves the field and does not name the key. */
[[nodiscard]] bool sztouReadOptionalInt(SztouReading *reading, const char *key, int32_t *field);

/* An optional logical key. A failure stores its number and names the key in the error key. */
[[nodiscard]] bool sztouReadLogical(SztouReading *reading, const char *key,
                                    const SztouLogicalNumbers &numbers, int32_t *field);

/* An optional key whose value is one of a few words, in any case. Absent and refused: 0. A failed
 * lookup does not name the key. */
[[nodiscard]] SztouWord sztouReadWord(SztouReading *reading, const char *key,
                                      std::span<const SztouWordValue> words, SztouRefusal refusal,
                                      int32_t *field);

/* A reading goes on behind a word key that was taken or is absent. */
[[nodiscard]] inline bool sztouGoesOn(SztouWord word) {
    return word == SztouWord::taken || word == SztouWord::absent;
}

/* Opens the cipher session and decrypts one credential into a field. The session stays open until the
 * end of the reading. `function` is the reader's trace number. */
[[nodiscard]] bool sztouReadProtected(SztouReading *reading, const SztouProtectedKey &key,
                                      std::span<char> field, uint32_t function, int32_t fips);

#endif
