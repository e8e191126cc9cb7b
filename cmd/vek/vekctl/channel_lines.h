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
#include <vector>

namespace vekctl {

// Calls `treat` for each channel (or, once in a while, for two at once), with its lines in their
// order. Of a key that stands there many times at least three lines are among them. `channelLines`
// is the number of lines with a key of a channel.
void forEachChannel(const FileText &text, size_t channelLines,
                    const std::function<void(const std::vector<Line> &)> &treat);

} // namespace vekctl

#endif
