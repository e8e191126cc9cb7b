// Where there is no room for all lines of channels, those that no reader needs are dropped, and no
// others; where there is room, none is.
#include "vekctl/channel_lines.h"

#include <gtest/gtest.h>

namespace {

// The numbers of the lines that are handed over of a channel whose one key is repeated.
std::vector<size_t> linesOfChannel(size_t repeats) {
    std::string text;
    for (size_t i = 0; i < repeats; ++i)
        text += "pem.private.channel.A=k\n";
    vekctl::FileText file;
    file.take(vekctl::Secret(text));
    std::vector<size_t> numbers;
    vekctl::forEachChannel(file, repeats, [&](const std::vector<vekctl::Line> &lines) {
        for (const vekctl::Line &line : lines)
            numbers.push_back(line.number);
    });
    return numbers;
}

TEST(ChannelLines, AreDroppedWhereNoReaderNeedsThemAndThereIsNoRoom) {
    EXPECT_EQ((std::vector<size_t>{1, 2, 3, 4, 5}), linesOfChannel(5));
    constexpr size_t ROOM = 65536;
    std::vector<size_t> numbers = linesOfChannel(ROOM + 1000);
    EXPECT_EQ(1003U, numbers.size());
    numbers.resize(4);
    EXPECT_EQ((std::vector<size_t>{1, 2, 3, ROOM + 1}), numbers);
}

} // namespace
