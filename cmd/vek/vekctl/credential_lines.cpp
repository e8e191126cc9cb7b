#include "vekctl/credential_lines.h"

#include "shared/line_words.h"
#include "vekctl/keystore.h"
#include "vekctl/line_findings.h"

#include <algorithm>
#include <cstring>

namespace vekctl {
namespace {

constexpr std::string_view KEY_FILE_KEY = "vekcred.keyfile";

std::string_view withoutBlanksInFront(std::string_view text) {
    const auto *const start = std::find_if_not(text.begin(), text.end(), vek::isBlank);
    return text.substr(static_cast<size_t>(start - text.begin()));
}

std::string_view withoutBlanksBehind(std::string_view text) {
    while (!text.empty() && vek::isBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

// Whether the key is one of the channel whose password the marker of runvekcred would be, were
// there such a channel.
bool isOfChannelCalledAsMarker(std::string_view key) {
    const KnownKey known = findKey(key);
    return known.isOfChannel &&
           std::any_of(std::begin(vek::CREDENTIALS), std::end(vek::CREDENTIALS),
                       [&](const vek::Credential &row) {
                           return row.channelKey != nullptr && key != row.writtenChannelMarker &&
                                  known.key->section == std::string_view(row.section) &&
                                  known.channel ==
                                      row.writtenChannelMarker + strlen(row.channelKey);
                       });
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
    const KnownKey known = findKey(key);
    const bool isNamed = !known.isOfChannel || !known.channel.empty();
    if (known.credential != nullptr && isNamed)
        return {known.isMarker() ? KeyRole::marker : KeyRole::credential,
                {known.credential, std::string(known.channel)}};
    if (const vek::Credential *const row = takenByWriter(key); row != nullptr)
        return {KeyRole::lookAlike, {row, {}}};
    return {};
}

bool KeyLine::isStored() const {
    return reading.value.starts_with(vek::LABEL);
}

bool KeyLine::isHidden() const {
    return vek::isBlank(reading.key.back());
}

bool KeyLine::isRightMarker() const {
    return !isHidden() && saysYes(reading.value) && saysYes(reading.writerValue);
}

bool CredentialLines::fail(std::string text, size_t line, std::string key) {
    problem_ = {std::move(text), line, std::move(key)};
    return false;
}

bool CredentialLines::take(FileText text) {
    text_ = std::move(text);
    if (text_.text().empty() && !text_.hasNul())
        return fail("is empty");
    std::vector<Finding> findings;
    findInText(text_, &findings);
    if (!findings.empty())
        return fail(findings.front().detail, findings.front().line);
    if (!canBeParsed(text_.text()))
        return failAtRefusedLine();
    for (Line line; text_.next(&line);) {
        sortIn(line);
        if (!takeKeyFile(line))
            return false;
    }
    return true;
}

// What a line was meant to be, where that can be told, says more than why it is refused.
bool CredentialLines::failAtRefusedLine() {
    for (Line line; text_.next(&line);) {
        const Reading reading = readLine(line);
        if (reading.kind != LineKind::refused)
            continue;
        std::vector<Finding> meant;
        findInLine(line, reading, &meant);
        return fail(meant.empty() ? refusalText(reading.refusal) : meant.front().detail,
                    line.number);
    }
    return fail("holds no setting at all, so that no reader can use it");
}

void CredentialLines::sortIn(const Line &line) {
    const std::string_view start = withoutBlanksInFront(line.text);
    const bool mayBeOfChannel = start.find(vek::CHANNEL_PART) != std::string_view::npos;
    const bool isOurs = takenByWriter(start) != nullptr;
    if (!isOurs && !mayBeOfChannel)
        return;
    const Reading reading = readLine(line);
    const std::string_view key = withoutBlanksBehind(reading.key);
    hasChannelCalledAsMarker_ = hasChannelCalledAsMarker_ || isOfChannelCalledAsMarker(key);
    if (!isOurs)
        return;
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
    return !hasChannelCalledAsMarker_ && line.name.row->writtenChannelMarker != nullptr &&
           line.name.key() == line.name.row->writtenChannelMarker &&
           (line.isStored() || saysYes(line.reading.value) || saysNo(line.reading.value));
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
