/*
 * channel_key.cpp - the key of a channel.
 */
#include "sztoumaa/channel_key.h"

#include "ztutl.h"
#include "ztvek.h"

#include <cstring>

namespace vek {

ChannelKey buildChannelKey(const char *beginning, const char *channelName) {
    ChannelKey key = {};
    utlCopyBounded(key.text, beginning, sizeof key.text - SZTOU_CHANNEL_LENGTH - 1);
    utlAppendBounded(key.text, channelName, SZTOU_CHANNEL_LENGTH);
    key.text[strcspn(key.text, " ")] = '\0';
    return key;
}

} // namespace vek
