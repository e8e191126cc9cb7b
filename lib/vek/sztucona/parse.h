/*
 * parse.h - one line of keystore.conf, for who needs to know where a setting stands; private to the
 * library and the programs. parse.cpp describes the syntax.
 */
#ifndef SZTUCONA_PARSE_H
#define SZTUCONA_PARSE_H

#include "ztvek.h"

#include <string_view>

namespace vek {

enum class LineKind {
    nothing, // blank, or a comment
    setting,
    // What sztucParseConfigFile refuses:
    noEquals,
    keyTooLong, // a key part of SZTUC_KEY_CAPACITY characters or more
    noValue,
};

struct Line {
    LineKind kind;
    std::string_view key;   // of a setting; part of the line, stripped, with its section
    std::string_view value; // likewise, without the comment
};

// Takes the next line that is not empty from the text at *position and moves on; false at the end
// of the text. What stands between two lines is newlines.
[[nodiscard]] bool nextLine(const char **position, std::string_view *line);

[[nodiscard]] Line parseLine(std::string_view line);

// Appends a copy of the setting to `list`. Result: 0, or 11 when there is no memory.
[[nodiscard]] uint32_t appendItem(SztuList *list, std::string_view key, std::string_view value);

} // namespace vek

#endif
