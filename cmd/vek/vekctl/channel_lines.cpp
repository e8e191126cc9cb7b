/*
 * channel_lines.cpp - takes a part of the channels at a time.
 */
#include "vekctl/channel_lines.h"

#include "vekctl/known_keys.h"

#include "shared/line_words.h"

#include <algorithm>
#include <functional>
#include <map>
#include <span>
#include <tuple>

namespace vekctl {

namespace {

constexpr size_t LINES_AT_ONCE = 65536; // 1.5 MB
constexpr size_t LINES_EXPECTED = LINES_AT_ONCE / 8 * 7;
constexpr size_t MOST_REPEATS = 3;
constexpr std::string_view CHANNEL_PART = vek::CHANNEL_PART;

// Where a line of a channel begins.
struct LineStart {
    size_t channel; // a number made of the name
    const char *start;
    size_t number;
};

// A number made of the beginning of the channel's name, at most the whole name; 0 for a line of no
// channel. It costs less than to cut the line.
size_t numberOfChannel(std::string_view line) {
    const size_t part = line.find(CHANNEL_PART);
    if (part == std::string_view::npos)
        return 0;
    line.remove_prefix(part + CHANNEL_PART.size());
    const auto end = std::ranges::find_if(
        line, [](char letter) { return letter == '=' || vek::isBlank(letter); });
    return std::hash<std::string_view>{}({line.begin(), end}) | size_t{1} << 63;
}

std::string_view keyAt(const FileText &text, const LineStart &line) {
    return readLine(text.at(line.start, line.number)).key;
}

void sort(std::vector<LineStart> *starts) {
    std::ranges::sort(*starts, {},
                      [](const LineStart &line) { return std::tuple(line.channel, line.number); });
}

// Drops lines that no reader needs, when there is no room for more.
void dropRepeats(const FileText &text, std::vector<LineStart> *starts) {
    sort(starts);
    std::map<std::string_view, size_t> counts;
    size_t channel = 0;
    std::erase_if(*starts, [&](const LineStart &line) {
        if (line.channel != channel)
            counts.clear();
        channel = line.channel;
        return ++counts[keyAt(text, line)] > MOST_REPEATS;
    });
    if (starts->size() > LINES_EXPECTED)
        starts->reserve(2 * starts->capacity());
}

std::vector<LineStart> linesOfTurn(const FileText &text, size_t turn, size_t turns) {
    std::vector<LineStart> starts;
    starts.reserve(turns == 1 ? 0 : LINES_AT_ONCE);
    for (Line line; text.next(&line);) {
        const size_t channel = numberOfChannel(line.text);
        if (channel == 0 || channel % turns != turn || !findKey(readLine(line).key).isOfChannel)
            continue;
        if (starts.size() == starts.capacity() && starts.size() >= LINES_AT_ONCE)
            dropRepeats(text, &starts);
        starts.push_back({channel, line.text.data(), line.number});
    }
    sort(&starts);
    return starts;
}

} // namespace

void forEachChannel(const FileText &text, size_t channelLines,
                    const std::function<void(const std::vector<Line> &)> &treat) {
    const size_t turns = channelLines == 0 ? 0 : 1 + channelLines / LINES_EXPECTED;
    std::vector<Line> lines;
    for (size_t turn = 0; turn < turns; ++turn) {
        const std::vector<LineStart> starts = linesOfTurn(text, turn, turns);
        for (size_t i = 0; i < starts.size(); ++i) {
            lines.push_back(text.at(starts[i].start, starts[i].number));
            if (i + 1 < starts.size() && starts[i + 1].channel == starts[i].channel)
                continue;
            treat(lines);
            lines.clear();
        }
    }
}

} // namespace vekctl
