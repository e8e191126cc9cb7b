/*
 * section_reading.h - what the section readers share: one reading of a section, which remembers its
 * failure, and one function for each kind of key; private to the readers and the programs.
 *
 * A reader is a straight list of its keys in their order. Each call looks its key up and stores the
 * value, or what stands for an absent key. After a failure, or an early end, all further calls do
 * nothing. Nothing here knows which section it serves: what differs between the sections is an
 * argument.
 */
#ifndef SZTOUMAA_SECTION_READING_H
#define SZTOUMAA_SECTION_READING_H

#include "zttrc.h"
#include "ztvek.h"

#include <cstdint>
#include <span>

namespace vek {

// Which section is read, and from where.
struct ReadingSource {
    uint32_t function; // trace number of the reader
    const char *section;
    const char *keystorePath; // null: the standard location
    char *errorKey;           // null: none is wanted
    // Of the reader of a channel, null in the others: traces that the channel cache serves the
    // reading. A channel without keys of its own is no fault, so its reader shows no message.
    void (*traceCached)(const SztuList *list) = nullptr;
};

// Writes a trace text about a key.
using TraceKey = void (*)(const char *key);

void traceSkipped(const char *key);

// What an absent text gives.
struct TextRule {
    uint32_t missingResult; // as in getText
    TraceKey traceAbsent;   // null: that result ends the reading; else the field is cleared
    bool isNamed;           // a failure names the key in the error key
};

inline constexpr TextRule REQUIRED = {
    .missingResult = SZTU_OK, .traceAbsent = nullptr, .isNamed = true}; // 15, with a message
inline constexpr TextRule QUIET = {.missingResult = SZTU_KEY_NOT_PRESENT,
                                   .traceAbsent = nullptr,
                                   .isNamed = true}; // 1, without one
inline constexpr TextRule OPTIONAL = {
    .missingResult = SZTU_KEY_NOT_PRESENT, .traceAbsent = traceSkipped, .isNamed = false};

// What a logical key stores.
struct LogicalNumbers {
    int32_t yes;
    int32_t no;
    int32_t absent;
    int32_t failed;
};

inline constexpr LogicalNumbers FLAG = {.yes = 1, .no = 0, .absent = 0, .failed = 0};

// One accepted word of a word key, in upper case.
struct WordValue {
    const char *word;
    int32_t value;
};

inline constexpr WordValue YES_NO[] = {{"YES", 1}, {"NO", 0}};

struct WordRule {
    std::span<const WordValue> words;
    TraceKey traceAbsent;
    TraceKey traceRefused;
    bool showsWord; // a refused word stands in the error key too
};

// How a credential is stored.
struct Protection {
    int32_t encrypted; // 0: in clear, a text like any other
    int32_t fips;
    const char *errorKey = nullptr; // named instead of the key when it cannot be decrypted
};

class Reading {
public:
    // Sets the error key to the name of the section.
    explicit Reading(const ReadingSource &readFrom);

    // A reading of a list that the caller has made, and with a session that he has opened (null:
    // one is opened for the first credential, as in a reading of the file). Both stay his.
    Reading(const ReadingSource &readFrom, SztuList *sectionList, SvcPBESession *openSession);

    Reading(const Reading &) = delete;
    Reading &operator=(const Reading &) = delete;

    // Closes the session and frees the list, as far as they are the reading's.
    ~Reading();

    // Loads the section, or takes the cached one.
    void load();

    // Every read function returns whether the key was there and its value was taken.

    // A failure names the key when the rule says so.
    bool readText(const char *key, std::span<char> field, const TextRule &rule);

    // An optional integer. Absent: -1. A failure leaves the field and does not name the key.
    bool readInt(const char *key, int32_t *field);

    // An optional logical key. A failure stores its number and names the key.
    bool readLogical(const char *key, const LogicalNumbers &numbers, int32_t *field);

    // An optional key whose value is one of a few words, in any case. Absent and refused: 0. A
    // failed lookup does not name the key. An empty value ends the reading with success.
    void readWord(const char *key, const WordRule &rule, int32_t *field);

    // A credential; an encrypted one is decrypted into the field, one that is absent and optional
    // as an empty text. The session stays open until the end of the reading.
    bool readCredential(const char *key, std::span<char> field, const TextRule &rule,
                        const Protection &protection);

    // Ends the reading, and appends "." and `errorKey` (null: nothing) to the error key.
    void stop(uint32_t result, const char *errorKey = nullptr);

    // False after a failure, and after an early end with success: the fields behind it are then the
    // caller's, and may hold anything.
    [[nodiscard]] bool goesOn() const {
        return !isOver;
    }
    // Whether a key was there; word keys do not count.
    [[nodiscard]] bool foundAny() const {
        return anyKeyFound;
    }
    [[nodiscard]] uint32_t result() const {
        return settled;
    }

private:
    void resetErrorKey() const;
    void appendToErrorKey(const char *text, size_t limit) const;
    uint32_t lookUp(const char *key, std::span<char> field, const TextRule &rule);
    bool openSession(int32_t fips);
    bool restore(const char *key, const char *stored, std::span<char> field,
                 const Protection &protection);

    const ReadingSource source;
    SztuList *list;
    bool ownsList = false;
    SvcPBESession ownSession = {};
    SvcPBESession *session; // null: not opened yet
    bool anyKeyFound = false;
    bool isOver = false;
    uint32_t settled = SZTU_OK;
};

// readSection is an exported reader: loads the section and calls readKeys(reading). Without one of
// the mandatory arguments (`isComplete` false) nothing is read: 2.
template <typename ReadKeys>
[[nodiscard]] uint32_t readSection(const ReadingSource &source, bool isComplete,
                                   ReadKeys readKeys) {
    ztm::TraceScope trace(source.function);
    Reading reading(source);
    if (!isComplete) {
        reading.stop(SZTU_BAD_ARGUMENTS);
        return trace.returns(reading.result());
    }
    reading.load();
    if (reading.goesOn())
        readKeys(reading);
    return trace.returns(reading.result());
}

} // namespace vek

#endif
