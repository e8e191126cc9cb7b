/*
 * known_keys.cpp - looks keys up in the library's tables.
 */
#include "vekctl/known_keys.h"

#include "vekctl/suggestion.h"

#include "sztucona/filter.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>
#include <vector>

namespace vekctl {

namespace {

constexpr std::string_view CHANNEL_PART = vek::CHANNEL_PART;

constexpr size_t numberOf(std::string_view section) {
    return static_cast<size_t>(std::ranges::find(vek::SECTIONS, section) - vek::SECTIONS);
}

// The library's table, measured: a file of many lines asks for it often.
struct MeasuredKey {
    const vek::Key *key = nullptr;
    size_t section = 0;
    std::string_view name;
};

constexpr auto measureKeys() {
    std::array<MeasuredKey, std::size(vek::KEYS)> keys;
    for (size_t i = 0; i < keys.size(); ++i)
        keys[i] = {&vek::KEYS[i], numberOf(vek::KEYS[i].section), vek::KEYS[i].name};
    return keys;
}

constexpr auto MEASURED_KEYS = measureKeys();

bool hasGeneralForm(const vek::Key &key) {
    return key.form != vek::Form::channel;
}

bool hasChannelForm(const vek::Key &key) {
    return key.form == vek::Form::generalOrNamed;
}

const vek::Credential *credentialOfSection(const char *section) {
    for (const vek::Credential &credential : vek::CREDENTIALS)
        if (credential.section == std::string_view(section))
            return &credential;
    return nullptr;
}

std::string wholeKey(const vek::Key &key) {
    return std::string(key.section) + "." + key.name;
}

std::vector<std::string> wholeKeys(bool (*hasForm)(const vek::Key &)) {
    std::vector<std::string> keys;
    for (const vek::Key &known : vek::KEYS)
        if (hasForm(known))
            keys.push_back(wholeKey(known));
    return keys;
}

std::string lowerCase(std::string_view text) {
    std::string lower(text);
    std::ranges::transform(lower, lower.begin(),
                           [](unsigned char letter) { return static_cast<char>(tolower(letter)); });
    return lower;
}

KnownKey found(const vek::Key &key, bool isOfChannel, std::string_view channel) {
    const bool isProtected = key.kind == vek::Kind::credential || key.kind == vek::Kind::marker;
    return {&key, isOfChannel, channel, isProtected ? credentialOfSection(key.section) : nullptr};
}

} // namespace

bool KnownKey::isReadBy(bool channelReader, std::string_view channelName) const {
    if (key == nullptr)
        return false;
    if (key->form == vek::Form::generalOrNamed)
        return isOfChannel == channelReader && (!isOfChannel || channel == channelName);
    return channelReader ? key->form != vek::Form::general : hasGeneralForm(*key);
}

const char *sectionOf(std::string_view key, std::string_view *name) {
    char text[SZTUC_KEY_CAPACITY] = {};
    if (key.size() >= sizeof text)
        return nullptr;
    (void)key.copy(text, key.size());
    for (const char *const section : vek::SECTIONS) {
        const int32_t length = key.starts_with(section) ? vek::matchPrefix(text, section) : 0;
        if (length == 0)
            continue;
        *name = key.substr(static_cast<size_t>(length));
        return section;
    }
    return nullptr;
}

KnownKey findKey(std::string_view key) {
    std::string_view name;
    const char *const sectionFound = sectionOf(key, &name);
    if (sectionFound == nullptr)
        return {};
    const size_t section = numberOf(sectionFound);
    for (const MeasuredKey &measured : MEASURED_KEYS) {
        if (section != measured.section || !name.starts_with(measured.name))
            continue;
        const vek::Key &known = *measured.key;
        const std::string_view rest = name.substr(measured.name.size());
        if (rest.empty())
            return found(known, /* isOfChannel= */ false, {});
        if (known.form != vek::Form::generalOrNamed || !rest.starts_with(CHANNEL_PART))
            continue;
        const std::string_view channel = rest.substr(CHANNEL_PART.size());
        // No reader asks for a name that is too long or holds a blank.
        if (channelAsRead(channel) == channel)
            return found(known, /* isOfChannel= */ true, channel);
    }
    return {};
}

std::string_view channelAsRead(std::string_view channel) {
    const std::string_view counted = channel.substr(0, SZTOU_CHANNEL_LENGTH);
    return counted.substr(0, counted.find(' '));
}

const vek::Credential *takenByWriter(std::string_view writerKey) {
    for (const vek::Credential &credential : vek::CREDENTIALS)
        if (writerKey.starts_with(credential.key) || writerKey.starts_with(credential.marker))
            return &credential;
    return nullptr;
}

std::string meantKey(std::string_view key) {
    const size_t channel = key.find(CHANNEL_PART);
    const std::string_view general = key.substr(0, channel);
    static const std::vector<std::string> GENERAL_KEYS = wholeKeys(hasGeneralForm);
    static const std::vector<std::string> CHANNEL_KEYS = wholeKeys(hasChannelForm);
    const std::string candidate =
        nearest(general, channel == std::string_view::npos ? GENERAL_KEYS : CHANNEL_KEYS);
    if (candidate.empty() || channel == std::string_view::npos)
        return candidate;
    return candidate + std::string(key.substr(channel));
}

bool speaksOfSecret(std::string_view key) {
    const std::string lower = lowerCase(key);
    for (const char *const part : {"passw", "passphrase", "secret", "token_pin"})
        if (lower.find(part) != std::string::npos)
            return true;
    // Short words count only whole: "mapping" speaks of no PIN.
    for (const std::string_view word : {"pin", "pass", "pwd"}) {
        for (size_t at = lower.find(word); at != std::string::npos; at = lower.find(word, at + 1)) {
            const size_t end = at + word.size();
            if ((at == 0 || !isalpha(static_cast<unsigned char>(lower[at - 1]))) &&
                (end == lower.size() || !isalpha(static_cast<unsigned char>(lower[end]))))
                return true;
        }
    }
    return false;
}

std::string shownKey(std::string_view key) {
    const std::string lower = lowerCase(key.substr(0, key.find('.')));
    const bool isOurs =
        std::ranges::any_of(vek::SECTIONS, [&](const char *section) { return lower == section; });
    if (!isOurs)
        return "";
    const auto end = std::ranges::find_if(key, [](unsigned char letter) {
        return isalnum(letter) == 0 && strchr("._/%", letter) == nullptr;
    });
    return std::string(key.begin(), end);
}

} // namespace vekctl
