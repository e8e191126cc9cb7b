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

#include <algorithm>
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

// Cuts what stands in front of the first character that `ends` it off the beginning of `rest`.
template <typename Ends> std::string_view takeUntil(std::string_view *rest, Ends ends) {
    size_t length = 0;
    while (length < rest->size() && !ends((*rest)[length]))
        ++length;
    const std::string_view taken(rest->data(), length);
    rest->remove_prefix(length);
    return taken;
}

// `line` holds neither its newline nor a NUL. False: there is no value, or the key does not count.
inline bool cutWords(std::string_view line, LineWords *words) {
    const auto isEquals = [](char character) { return character == '='; };
    const auto isNoBlank = [](char character) { return !isBlank(character); };
    (void)takeUntil(&line, isNoBlank);
    words->key =
        takeUntil(&line, [&](char character) { return isEquals(character) || isBlank(character); });
    (void)takeUntil(&line, isEquals);
    if (line.empty() || words->key.size() > WORD_LIMIT)
        return false;
    line.remove_prefix(1);
    (void)takeUntil(&line, isNoBlank);
    const std::string_view value = takeUntil(&line, isBlank);
    words->value = {value.data(), std::min(value.size(), WORD_LIMIT)};
    return !value.empty();
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
