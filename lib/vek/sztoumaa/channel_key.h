/*
 * channel_key.h - the key of a channel; private to the readers.
 */
#ifndef SZTOUMAA_CHANNEL_KEY_H
#define SZTOUMAA_CHANNEL_KEY_H

namespace vek {

// Text of a channel key; the longest is "checkpurpose.channel." with a name of 20 characters.
struct ChannelKey {
    char text[48];
};

// buildChannelKey joins a channel key from its beginning and at most SZTOU_CHANNEL_LENGTH
// characters of the name, cut at the first blank: a channel name may be padded to its fixed width.
[[nodiscard]] ChannelKey buildChannelKey(const char *beginning, const char *channelName);

} // namespace vek

#endif
