/*
 * credential_lines.cpp - sorts the lines of a file by what they are to the readers
 * and to runvekcred.
 */
#include "vekctl/credential_lines.h"

#include "shared/line_words.h"
#include "vekctl/keystore.h"
#include "vekctl/line_findings.h"
#include "vekctl/options.h"
#include "vekctl/suggestion.h"

#include <algorithm>

namespace vekctl {
namespace {

std::string_view withoutBlanksInFront(std::string_view text) {
    const auto *const start = std::find_if_not(text.begin(), text.end(), vek::isBlank);
    return text.substr(static_cast<size_t>(start - text.begin()));
}

std::string_view withoutBlanksBehind(std::string_view text) {
    while (!text.empty() && vek::isBlank(text.back()))
        text.remove_suffix(1);
    return text;
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

CredentialName credentialCalled(const std::string &key) {
    const std::string word = shownKey(key);
    if (!word.empty() && key.find_first_of("=:# \t\r\n") != std::string::npos)
        throw UsageError(word + " goes on with a character that no key holds; a value is never an "
                                "argument");
    NamedKey named = roleOfKey(key);
    if (named.role == KeyRole::credential)
        return std::move(named.name);
    if (const KnownKey known = findKey(key); known.key != nullptr && !known.isCredential())
        throw UsageError(word + " is no credential: 'vekctl show " + known.key->section +
                         "' prints it, and an editor changes it");
    const std::string nearest = meantKey(word);
    const std::string meant = nearest == word ? "" : didYouMean(nearest);
    throw UsageError((word.empty() ? "that" : word) + " is the key of no credential" +
                     (!meant.empty() ? meant
                                     : "; they are crl.ldap.pass, pem.password, "
                                       "pem.password.channel.NAME (at most 20 characters) and "
                                       "pkcs11.token_pin"));
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

std::string_view HiddenKey::key() const {
    return withoutBlanksBehind(reading.key);
}

bool CredentialLines::fail(std::string text, size_t line, std::string key) {
    failure = {std::move(text), line, std::move(key)};
    return false;
}

bool CredentialLines::take(FileText text) {
    content = std::move(text);
    if (content.text().empty() && !content.hasNul())
        return fail("is empty; write a setting into it");
    std::vector<Finding> findings;
    findInText(content, &findings);
    if (!findings.empty())
        return fail(findings.front().detail, findings.front().line);
    if (const auto refused = findRefusedLine(content); refused)
        return fail(refused->detail, refused->line, refused->key);
    for (Line line; content.next(&line);) {
        const Reading reading = readLine(line);
        const size_t colon = reading.key.find(':');
        if (withoutBlanksBehind(line.text).find('\r') != std::string_view::npos)
            return fail("a carriage return stands inside the line; end lines with LF or CRLF",
                        line.number);
        if (colon != std::string_view::npos && takenByWriter(reading.key) != nullptr)
            return fail("a key is followed by \"=\", not by \":\"", line.number,
                        std::string(reading.key.substr(0, colon)));
        settings.add(line, reading);
        if (reading.key == KEY_FILE_KEY)
            lineOfKeyFile = line;
        if (takenByWriter(reading.key) != nullptr)
            sortIn(line, reading);
        else if (const HiddenKey other = {line.number, reading};
                 other.key().size() < reading.key.size() && findKey(other.key()).key != nullptr)
            hidden.push_back(other);
    }
    return takeKeyFile();
}

void CredentialLines::sortIn(const Line &line, const Reading &reading) {
    const std::string_view key = withoutBlanksBehind(reading.key);
    NamedKey named = roleOfKey(key);
    // runvekcred ends a key at its first blank.
    if (key != reading.writerKey)
        named.role = KeyRole::lookAlike;
    std::vector<KeyLine> &place = named.role == KeyRole::credential ? credentialLines
                                  : named.role == KeyRole::marker   ? markerLines
                                                                    : lookAlikeLines;
    place.push_back({std::move(named.name), line, reading});
}

bool CredentialLines::takeKeyFile() {
    const NamedKeyFile named = settings.keyFile();
    pathOfKeyFile = named.path;
    return named.code == SZTU_OK ||
           fail(textOf(duplicateKey(named.line, KEY_FILE_KEY, named.firstLine)), named.line,
                KEY_FILE_KEY);
}

Line CredentialLines::lastLineOf(std::string_view section) const {
    Line last;
    for (Line line; content.next(&line);) {
        const std::string_view start = withoutBlanksInFront(line.text);
        if (start.starts_with(section) && start.substr(section.size()).starts_with('.'))
            last = line;
    }
    return last;
}

std::string_view CredentialLines::endFor(const Line &line) const {
    Line first;
    (void)content.next(&first);
    return !line.end.empty() ? line.end : !first.end.empty() ? first.end : "\n";
}

} // namespace vekctl
