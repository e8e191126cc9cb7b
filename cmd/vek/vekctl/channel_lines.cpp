/*
 * channel_lines.cpp - takes a part of the channels at a time.
 */
#include "vekctl/channel_lines.h"

#include "vekctl/known_keys.h"

#include <algorithm>
#include <unordered_map>
#include <vector>

namespace vekctl {

namespace {

constexpr size_t KEYS_AT_ONCE = 16384; // some 1.5 MB
constexpr std::string_view CHANNEL_PART = vek::CHANNEL_PART;

using LinesByKey = std::unordered_map<std::string_view, KeyLines>;

// Depends on nothing but the beginning of the channel's name, and costs less than to cut the line.
bool isOfTurn(const Line &line, size_t turn, size_t turns) {
    const size_t start = line.text.find(CHANNEL_PART);
    if (start == std::string_view::npos)
        return false;
    const std::string_view rest = line.text.substr(start + CHANNEL_PART.size());
    const std::string_view name = rest.substr(0, rest.find_first_of("= \t\v\f\r"));
    return std::hash<std::string_view>()(name) % turns == turn;
}

void addTo(LinesByKey *lines, const Line &line) {
    const Reading reading = readLine(line);
    const KnownKey known = findKey(reading.key);
    if (!known.isOfChannel)
        return;
    KeyLines &found = (*lines)[reading.key];
    found.channel = known.channel;
    ++found.count;
    if (found.count == 1) {
        found.first = line.text.data();
        found.firstNumber = line.number;
    } else if (found.count == 2) {
        found.second = line.text.data();
        found.secondNumber = line.number;
    }
}

} // namespace

void forEachChannel(const FileText &text, size_t channelLines,
                    const std::function<void(std::span<const KeyLines *const>)> &treat) {
    const size_t turns = channelLines == 0 ? 0 : 1 + channelLines / KEYS_AT_ONCE;
    for (size_t turn = 0; turn < turns; ++turn) {
        LinesByKey lines;
        for (Line line; text.next(&line);)
            if (isOfTurn(line, turn, turns))
                addTo(&lines, line);
        std::vector<const KeyLines *> ordered;
        for (const auto &[key, each] : lines)
            ordered.push_back(&each);
        std::ranges::sort(ordered, {}, &KeyLines::channel);
        for (auto next = ordered.begin(); next != ordered.end();) {
            const auto first = next;
            next = std::find_if(first, ordered.end(), [first](const KeyLines *each) {
                return each->channel != (*first)->channel;
            });
            treat({first, next});
        }
    }
}

} // namespace vekctl
