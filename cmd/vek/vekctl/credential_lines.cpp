#include "vekctl/credential_lines.h"

#include "shared/line_words.h"

#include <algorithm>
#include <strings.h>

namespace vekctl {
namespace {

constexpr std::string_view BYTE_ORDER_MARK = "\xef\xbb\xbf";
constexpr std::string_view KEY_FILE_KEY = "vekcred.keyfile";
// Keys of a channel that would be called as the end of the marker that runvekcred writes.
constexpr std::string_view KEYS_OF_CHANNEL_ENCRYPTED[] = {"pem.private.channel.encrypted",
                                                          "pem.public.channel.encrypted",
                                                          "pem.encrypted.channel.encrypted"};

std::string_view withoutBlanksInFront(std::string_view text) {
    const auto *const start = std::find_if_not(text.begin(), text.end(), vek::isBlank);
    return text.substr(static_cast<size_t>(start - text.begin()));
}

std::string_view withoutBlanksBehind(std::string_view text) {
    while (!text.empty() && vek::isBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

bool isWord(std::string_view value, std::string_view word) {
    return value.size() == word.size() && strncasecmp(value.data(), word.data(), word.size()) == 0;
}

// The reader cuts a name at its first blank and at its limit.
bool isChannelName(std::string_view name) {
    return !name.empty() && name.size() <= SZTOU_CHANNEL_LENGTH &&
           std::none_of(name.begin(), name.end(), vek::isBlank);
}

// The name of the channel behind the beginning of a channel's key, or an empty text.
std::string_view channelOf(std::string_view key, const char *beginning) {
    if (beginning == nullptr || !key.starts_with(beginning))
        return {};
    const std::string_view name = key.substr(std::string_view(beginning).size());
    return isChannelName(name) ? name : std::string_view();
}

NamedKey roleIn(const vek::Credential &row, std::string_view key) {
    if (key == row.key)
        return {KeyRole::credential, {&row, {}}};
    if (key == row.marker)
        return {KeyRole::marker, {&row, {}}};
    if (const std::string_view channel = channelOf(key, row.channelKey); !channel.empty())
        return {KeyRole::credential, {&row, std::string(channel)}};
    if (const std::string_view channel = channelOf(key, row.channelMarker); !channel.empty())
        return {KeyRole::marker, {&row, std::string(channel)}};
    if (key.starts_with(row.key) || key.starts_with(row.marker))
        return {KeyRole::lookAlike, {&row, {}}};
    return {};
}

const char *textOf(Refusal refusal) {
    switch (refusal) {
    case Refusal::noEquals:
        return "the line has no \"=\"; put a \"#\" in front of a comment";
    case Refusal::keyTooLong:
        return "the key is longer than 255 characters";
    case Refusal::noValue:
        return "the key has no value; give it one, or put a \"#\" in front of the line";
    case Refusal::none:
        break;
    }
    return "the line cannot be parsed";
}

// One call of the library's parser, for the whole text.
bool canBeParsed(std::string_view text) {
    Secret copy(text);
    copy.append({"\0", 1});
    SztuList *const list = SztuListCreate();
    const uint32_t result = sztucParseConfigFile(copy.data(), list);
    sztucFreeConfigList(list);
    return result == SZTU_OK;
}

} // namespace

std::string CredentialName::key() const {
    return channel.empty() ? row->key : row->channelKey + channel;
}

std::string CredentialName::marker() const {
    return channel.empty() ? row->marker : row->channelMarker + channel;
}

NamedKey roleOfKey(std::string_view key) {
    for (const vek::Credential &row : vek::CREDENTIALS)
        if (NamedKey named = roleIn(row, key); named.role != KeyRole::none)
            return named;
    return {};
}

bool KeyLine::isStored() const {
    return reading.value.starts_with(vek::LABEL);
}

bool KeyLine::isHidden() const {
    return vek::isBlank(reading.key.back());
}

bool KeyLine::isRightMarker() const {
    return !isHidden() && isWord(reading.value, vek::MARKER_YES) &&
           isWord(reading.writerValue, vek::MARKER_YES);
}

bool CredentialLines::fail(std::string text, size_t line, std::string key) {
    problem_ = {std::move(text), line, std::move(key)};
    return false;
}

bool CredentialLines::take(FileText text) {
    text_ = std::move(text);
    if (text_.text().empty() && !text_.hasNul())
        return fail("is empty");
    if (text_.hasNul())
        return fail(
            "holds a NUL byte, behind which no reader sees anything; save it as plain text");
    if (text_.text().starts_with(BYTE_ORDER_MARK))
        return fail(
            "begins with a byte order mark, which belongs to the first key for the readers; "
            "save it as plain UTF-8");
    if (!canBeParsed(text_.text()))
        return failAtRefusedLine();
    for (Line line; text_.next(&line);) {
        sortIn(line);
        if (!takeKeyFile(line))
            return false;
    }
    return true;
}

bool CredentialLines::failAtRefusedLine() {
    for (Line line; text_.next(&line);)
        if (const Reading reading = readLine(line); reading.kind == LineKind::refused)
            return fail(textOf(reading.refusal), line.number);
    return fail("holds no setting at all, so that no reader can use it");
}

void CredentialLines::sortIn(const Line &line) {
    const std::string_view start = withoutBlanksInFront(line.text);
    for (const std::string_view key : KEYS_OF_CHANNEL_ENCRYPTED)
        hasChannelCalledEncrypted_ = hasChannelCalledEncrypted_ || start.starts_with(key);
    const bool isOurs = std::any_of(
        std::begin(vek::CREDENTIALS), std::end(vek::CREDENTIALS), [=](const vek::Credential &row) {
            return start.starts_with(row.key) || start.starts_with(row.marker);
        });
    if (!isOurs)
        return;
    const Reading reading = readLine(line);
    const std::string_view key = withoutBlanksBehind(reading.key);
    NamedKey named = roleOfKey(key);
    // runvekcred ends a key at its first blank.
    if (key != reading.writerKey)
        named.role = KeyRole::lookAlike;
    std::vector<KeyLine> &place = named.role == KeyRole::credential ? credentials_
                                  : named.role == KeyRole::marker   ? markers_
                                                                    : lookAlikes_;
    place.push_back({std::move(named.name), line, reading});
}

bool CredentialLines::takeKeyFile(const Line &line) {
    if (!withoutBlanksInFront(line.text).starts_with(KEY_FILE_KEY))
        return true;
    const Reading reading = readLine(line);
    if (reading.key != KEY_FILE_KEY)
        return true;
    if (keyFileLine_.number != 0)
        return fail("stands a second time, so that no reader gets a key; keep one of the lines",
                    line.number, std::string(KEY_FILE_KEY));
    keyFileLine_ = line;
    keyFile_ = reading.value;
    return true;
}

bool CredentialLines::mayBeWrittenMarker(const KeyLine &line) const {
    return !hasChannelCalledEncrypted_ && line.name.row->writtenChannelMarker != nullptr &&
           line.name.key() == line.name.row->writtenChannelMarker &&
           (line.isStored() || isWord(line.reading.value, vek::MARKER_YES) ||
            isWord(line.reading.value, vek::MARKER_NO));
}

Line CredentialLines::lastLineOf(std::string_view section) const {
    Line last;
    for (Line line; text_.next(&line);) {
        const std::string_view start = withoutBlanksInFront(line.text);
        if (start.starts_with(section) && start.substr(section.size()).starts_with('.'))
            last = line;
    }
    return last;
}

std::string_view CredentialLines::endFor(const Line &line) const {
    Line first;
    (void)text_.next(&first);
    return !line.end.empty() ? line.end : !first.end.empty() ? first.end : "\n";
}

} // namespace vekctl
