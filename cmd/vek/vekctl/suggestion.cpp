/*
 * suggestion.cpp - distance of words.
 */
#include "vekctl/suggestion.h"

#include <algorithm>
#include <cctype>

namespace vekctl {

namespace {

constexpr size_t LONGEST_WORD = 64; // longer ones are no typing error, and cost time

bool isSameLetter(char one, char other) {
    return tolower(static_cast<unsigned char>(one)) == tolower(static_cast<unsigned char>(other));
}

// Letters that must be put in, taken out, changed or swapped with their neighbour to turn one word
// into the other; upper and lower case are the same letter.
size_t distance(std::string_view word, std::string_view other) {
    // rows[i][j]: between the first i letters of the one and the first j of the other
    size_t rows[LONGEST_WORD + 1][LONGEST_WORD + 1];
    for (size_t i = 0; i <= word.size(); ++i) {
        for (size_t j = 0; j <= other.size(); ++j) {
            if (i == 0 || j == 0) {
                rows[i][j] = std::max(i, j);
                continue;
            }
            const size_t change = isSameLetter(word[i - 1], other[j - 1]) ? 0 : 1;
            rows[i][j] =
                std::min({rows[i - 1][j] + 1, rows[i][j - 1] + 1, rows[i - 1][j - 1] + change});
            if (i > 1 && j > 1 && isSameLetter(word[i - 1], other[j - 2]) &&
                isSameLetter(word[i - 2], other[j - 1]))
                rows[i][j] = std::min(rows[i][j], rows[i - 2][j - 2] + 1);
        }
    }
    return rows[word.size()][other.size()];
}

} // namespace

std::string nearest(std::string_view word, std::span<const std::string> candidates) {
    constexpr size_t SHORT = 5;
    if (word.size() > LONGEST_WORD)
        return "";
    size_t limit = word.size() < SHORT ? 1 : 2;
    std::string result;
    for (const std::string &candidate : candidates) {
        // Words whose lengths differ by more are not looked at; a file may hold millions of keys.
        if (candidate.size() > std::min(word.size() + limit, LONGEST_WORD) ||
            word.size() > candidate.size() + limit)
            continue;
        const size_t letters = distance(word, candidate);
        if (letters > limit || (letters == limit && !result.empty()))
            continue;
        limit = letters;
        result = candidate;
    }
    return result;
}

std::string didYouMean(const std::string &candidate) {
    return candidate.empty() ? "" : "; did you mean '" + candidate + "'?";
}

} // namespace vekctl
