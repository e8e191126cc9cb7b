/*
 * suggestion.h - what was meant by a word with a typing error.
 */
#ifndef VEKCTL_SUGGESTION_H
#define VEKCTL_SUGGESTION_H

#include <span>
#include <string>
#include <string_view>

namespace vekctl {

// The candidate that is nearest to a word, or "" when none is near: two letters, one in a short
// word.
[[nodiscard]] std::string nearest(std::string_view word, std::span<const std::string> candidates);

// "; did you mean 'candidate'?", or "" without one.
[[nodiscard]] std::string didYouMean(const std::string &candidate);

} // namespace vekctl

#endif
