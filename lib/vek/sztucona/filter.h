/*
 * filter.h - the section that a key belongs to; private to the library and the programs.
 */
#ifndef SZTUCONA_FILTER_H
#define SZTUCONA_FILTER_H

#include <cstdint>

namespace vek {

// Returns the length of the key's section prefix with its dot, or 0 when the key belongs to another
// section.
[[nodiscard]] int32_t matchPrefix(const char *key, const char *section);

} // namespace vek

#endif
