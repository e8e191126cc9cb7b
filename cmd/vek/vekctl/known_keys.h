/*
 * known_keys.h - which reader knows a key, and how a key may be shown.
 *
 * The tables are those of the library. A key that nobody knows may be a password that was typed in
 * the wrong place, so it is shown only as far as it looks like a key.
 */
#ifndef VEKCTL_KNOWN_KEYS_H
#define VEKCTL_KNOWN_KEYS_H

#include "shared.h"

#include <string>
#include <string_view>

namespace vekctl {

// Names the initial key file.
inline constexpr char KEY_FILE_KEY[] = "vekcred.keyfile";

// A key as its readers know it. `key` null: no reader knows it.
struct KnownKey {
    const vek::Key *key = nullptr;
    bool isOfChannel = false;
    std::string_view channel; // its name, a part of the key that was looked up; may be empty
    const vek::Credential *credential = nullptr; // of a credential and of its marker

    [[nodiscard]] bool isCredential() const {
        return key != nullptr && key->kind == vek::Kind::credential;
    }
    [[nodiscard]] bool isMarker() const {
        return key != nullptr && key->kind == vek::Kind::marker;
    }
    // Whether the general reader, or that of a channel, looks it up.
    [[nodiscard]] bool isReadBy(bool channelReader, std::string_view channelName) const;
};

// The section of a key as the library cuts it, null when it is none of ours; `name` is what
// follows.
[[nodiscard]] const char *sectionOf(std::string_view key, std::string_view *name);

[[nodiscard]] KnownKey findKey(std::string_view key);

// The part of a channel's name that its reader looks at.
[[nodiscard]] std::string_view channelAsRead(std::string_view channel);

// A credential of which runvekcred takes the key, or the marker, for one: it compares beginnings.
[[nodiscard]] const vek::Credential *takenByWriter(std::string_view writerKey);

// The whole key that was probably meant, with the channel, or "".
[[nodiscard]] std::string meantKey(std::string_view key);

// Whether a key's words speak of a secret.
[[nodiscard]] bool speaksOfSecret(std::string_view key);

// The key as far as it may be shown; "" for a text that begins with no section of ours.
[[nodiscard]] std::string shownKey(std::string_view key);

} // namespace vekctl

#endif
