/*
 * channel_lines.h - the channels of a file, each with its lines.
 *
 * A file may have millions of channels. They are taken in turns, for each of which the text is read
 * again, so that they cost time and not memory.
 */
#ifndef VEKCTL_CHANNEL_LINES_H
#define VEKCTL_CHANNEL_LINES_H

#include "vekctl/file_text.h"

#include <functional>
#include <span>

namespace vekctl {

// The lines of one key of a channel: a reader fails at the second, and has nothing from a third.
struct KeyLines {
    std::string_view channel;
    const char *first = nullptr;
    const char *second = nullptr;
    size_t firstNumber = 0;
    size_t secondNumber = 0;
    size_t count = 0;
};

// Calls `treat` for each channel, with the keys that it has. `channelLines` is at least the number
// of lines with a key of a channel.
void forEachChannel(const FileText &text, size_t channelLines,
                    const std::function<void(std::span<const KeyLines *const>)> &treat);

} // namespace vekctl

#endif
