/*
 * line_words.h - how runvekcred takes a line of keystore.conf, which is not how the readers take
 * it:
 *
 *   line  = *blank key *other "=" *blank value [ blank anything ]
 *   key   = 1*character that is neither blank nor "="
 *   value = 1*character that is not blank: the first word only, and "#" is a character like others
 *
 * Nothing is copied, and nothing of the C++ run-time library is needed.
 */
#ifndef SHARED_LINE_WORDS_H
#define SHARED_LINE_WORDS_H

#include "shared.h"

#include <cctype>
#include <cstring>
#include <string_view>

namespace vek {

// Characters of a key or a value that count. A longer key leaves its line as it is, a longer value
// is cut.
inline constexpr size_t WORD_LIMIT = 1023;

// Key and value where they stand in the line.
struct LineWords {
    std::string_view key;
    std::string_view value; // not empty
};

inline bool isBlank(char character) {
    return isspace(static_cast<unsigned char>(character)) != 0;
}

// `line` holds neither its newline nor a NUL. False: there is no value, or the key does not count.
inline bool cutWords(std::string_view line, LineWords *words) {
    const char *position = line.data();
    const char *const end = position + line.size();
    while (position != end && isBlank(*position))
        ++position;
    const char *const key = position;
    while (position != end && *position != '=' && !isBlank(*position))
        ++position;
    words->key = {key, static_cast<size_t>(position - key)};
    while (position != end && *position != '=')
        ++position;
    if (position == end || words->key.size() > WORD_LIMIT)
        return false;
    do
        ++position;
    while (position != end && isBlank(*position));
    const char *const value = position;
    while (position != end && !isBlank(*position) && position != value + WORD_LIMIT)
        ++position;
    words->value = {value, static_cast<size_t>(position - value)};
    return !words->value.empty();
}

// Whether a value counts as encrypted already: it is then kept.
inline bool isInEncryptedForm(std::string_view value) {
    constexpr std::string_view BEGINNING = LABEL;
    constexpr int SEPARATORS = 3; // "!" characters at the least
    if (value.size() < BEGINNING.size() || memcmp(value.data(), LABEL, BEGINNING.size()) != 0)
        return false;
    int separators = 0;
    for (const char character : value)
        separators += character == '!' ? 1 : 0;
    return separators >= SEPARATORS;
}

} // namespace vek

#endif
