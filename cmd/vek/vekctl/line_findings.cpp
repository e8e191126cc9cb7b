/*
 * line_findings.cpp - text that is no setting, comments, and keys that nobody knows.
 */
#include "vekctl/line_findings.h"

#include "vekctl/known_keys.h"
#include "vekctl/suggestion.h"

#include "shared/line_words.h"

#include <algorithm>

namespace vekctl {

namespace {

constexpr std::string_view BYTE_ORDER_MARK = "\xef\xbb\xbf";
constexpr std::string_view BLANKS = " \t\v\f\r";

std::string_view trimmed(std::string_view text) {
    const size_t start = text.find_first_not_of(BLANKS);
    if (start == std::string_view::npos)
        return {};
    return text.substr(start, text.find_last_not_of(BLANKS) + 1 - start);
}

// The key at the beginning of a text that is no setting, when a reader knows it: other words may
// be a secret.
std::string knownKeyIn(std::string_view text) {
    const std::string key = shownKey(trimmed(text));
    return findKey(key).key != nullptr ? key : "";
}

class LineFinder {
public:
    LineFinder(const Line &looked, const Reading &read, std::vector<Finding> *found)
        : line(looked), reading(read), findings(found) {}

    void find() {
        const bool isStrange = findStrangeText();
        findComment();
        if (reading.kind != LineKind::setting)
            return;
        if (findKey(reading.key).key != nullptr)
            findQuotes();
        else if (!isStrange && !reading.key.starts_with(BYTE_ORDER_MARK)) // is told already
            findUnknownKey();
    }

private:
    void add(Code code, Level level, const std::string &key, const std::string &detail) {
        findings->push_back({code, level, line.number, key, detail});
    }
    void addNotText(const std::string &detail, const std::string &key = "") {
        add(Code::notText, Level::error, key, detail);
    }

    // Whether there is something in it that is no setting for its author.
    bool findStrangeText() {
        const std::string_view content = trimmed(line.text);
        if (content.find('\r') != std::string_view::npos)
            addNotText("a carriage return stands inside the line; end lines with LF or CRLF");
        if (reading.kind == LineKind::nothing)
            return false;
        if (content.starts_with('['))
            addNotText("there are no [section] lines; write the section in front of each key, as "
                       "in 'pem.private = ...'");
        else if (content.starts_with(';'))
            addNotText("\";\" starts no comment; use \"#\"", knownKeyIn(content.substr(1)));
        else if (hasColon(content))
            addNotText("a key is followed by \"=\", not by \":\"", knownKeyIn(content));
        else
            return false;
        return true;
    }

    // "pem.password: x", where a reader knows what stands in front of the colon.
    bool hasColon(std::string_view content) const {
        const size_t colon = content.find(':');
        if (colon == std::string_view::npos || colon > content.find('='))
            return false;
        return findKey(trimmed(content.substr(0, colon))).key != nullptr;
    }

    // A comment is everything behind the first "#" of a value, or a line that begins with one.
    void findComment() {
        const std::string_view text = line.text;
        const size_t from =
            reading.kind == LineKind::setting
                ? static_cast<size_t>(reading.value.data() + reading.value.size() - text.data())
                : 0;
        const size_t start =
            reading.kind == LineKind::refused ? std::string_view::npos : text.find('#', from);
        if (start == std::string_view::npos)
            return;
        const std::string_view comment = text.substr(start + 1);
        bool isFound = false;
        for (const vek::Credential &credential : vek::CREDENTIALS) {
            const size_t at = comment.find(credential.key);
            if (at == std::string_view::npos || !holdsClearValue(comment.substr(at)))
                continue;
            add(Code::comment, Level::warning, credential.key, "");
            isFound = true;
        }
        if (isFound)
            return;
        if (reading.kind == LineKind::setting)
            findRestOfValue(comment);
        else
            findSettingIn(trimmed(comment));
    }

    // "pem.password = Winter #42"
    void findRestOfValue(std::string_view comment) {
        if (findKey(reading.key).isCredential() && !reading.isCut && !comment.empty() &&
            comment.front() != '#' && BLANKS.find(comment.front()) == std::string_view::npos)
            add(Code::comment, Level::warning, std::string(reading.key),
                "what stands behind \"#\" may belong to the value; vekctl set stores the whole "
                "one");
    }

    // "PEM.PASSWORD = x", "pem.password: x", "password = x"
    void findSettingIn(std::string_view comment) {
        const size_t end = comment.find_first_of("=: \t");
        if (end == std::string_view::npos)
            return;
        const std::string_view key = comment.substr(0, end);
        const std::string_view rest = trimmed(comment.substr(end));
        if (rest.size() < 2 || (rest.front() != '=' && rest.front() != ':') ||
            vek::isInEncryptedForm(trimmed(rest.substr(1))))
            return;
        // A setting that was taken out needs no search for what was meant.
        const KnownKey known = findKey(key);
        if (known.key != nullptr && !known.isCredential())
            return;
        const std::string meant = known.isCredential() ? shownKey(key) : meantKey(shownKey(key));
        if (findKey(meant).isCredential() || (rest.front() == '=' && speaksOfSecret(key)))
            add(Code::comment, Level::warning, meant, "");
    }

    static bool holdsClearValue(std::string_view setting) {
        vek::LineWords words;
        return vek::cutWords(setting, &words) && !vek::isInEncryptedForm(words.value);
    }

    void findUnknownKey() {
        const std::string_view key = reading.key;
        const std::string_view bare = trimmed(key);
        if (bare.size() < key.size() && findKey(bare).key != nullptr) {
            add(Code::notFound, Level::error, std::string(bare), "");
            return;
        }
        if (!reading.writerKey.empty() && takenByWriter(reading.writerKey) != nullptr) {
            const std::string visible = shownKey(key);
            const std::string meant = meantKey(visible);
            add(Code::lookAlike, Level::error, visible,
                visible.size() < key.size() ? "more of it follows that is not shown"
                : meant == visible          ? ""
                                            : suggestion(meant));
            return;
        }
        const std::string meant = meantKey(shownKey(key));
        const bool isClear = !vek::isInEncryptedForm(reading.value);
        const bool isGrave = findKey(meant).isCredential() || (isClear && speaksOfSecret(key));
        add(Code::unknownKey, isGrave ? Level::error : Level::warning, shownKey(key),
            suggestion(meant));
    }

    static std::string suggestion(const std::string &meant) {
        return meant.empty() ? "" : "did you mean " + meant + "?";
    }

    void findQuotes() {
        const std::string_view value = reading.value;
        if (value.size() > 1 && value.front() == value.back() &&
            (value.front() == '"' || value.front() == '\''))
            add(Code::notText, Level::warning, std::string(reading.key),
                "the quotes around the value belong to it");
    }

    const Line &line;
    const Reading &reading;
    std::vector<Finding> *findings;
};

const char *refusalText(Refusal refusal) {
    switch (refusal) {
    case Refusal::noEquals:
        return "this line has no \"=\"; write 'section.key = value', or \"#\" in front of a "
               "comment";
    case Refusal::keyTooLong:
        return "the key of this line has more than 255 characters; shorten it";
    case Refusal::noValue:
        return "this line has no value; write one, or take the line out";
    case Refusal::noSetting:
        return "the file has no setting at all; write one as 'section.key = value'";
    case Refusal::none:
        break;
    }
    return "";
}

} // namespace

Finding refusedLine(const Line &line, Refusal refusal) {
    return {Code::unparsable, Level::error, line.number, knownKeyIn(line.text),
            refusalText(refusal)};
}

std::optional<Finding> findRefusedLine(const FileText &text) {
    bool hasSetting = false;
    for (Line line; text.next(&line);) {
        const Reading reading = readLine(line);
        hasSetting = hasSetting || reading.kind == LineKind::setting;
        if (reading.kind != LineKind::refused)
            continue;
        std::vector<Finding> meant;
        findInText(text, &meant);
        findInLine(line, reading, &meant);
        return meant.empty() ? refusedLine(line, reading.refusal) : meant.front();
    }
    return hasSetting ? std::nullopt : std::optional(refusedLine(Line{}, Refusal::noSetting));
}

void findInLine(const Line &line, const Reading &reading, std::vector<Finding> *findings) {
    LineFinder(line, reading, findings).find();
}

void findInText(const FileText &text, std::vector<Finding> *findings) {
    const std::string_view start = text.text();
    const auto add = [&](size_t line, const char *detail) {
        findings->push_back({Code::notText, Level::error, line, "", detail});
    };
    if (start.starts_with("\xff\xfe") || start.starts_with("\xfe\xff"))
        add(1, "the file is UTF-16; store it as UTF-8 without a byte order mark");
    else if (start.starts_with(BYTE_ORDER_MARK))
        add(1, "a byte order mark stands in front of the first key; store the file without one");
    else if (text.hasNul())
        add(static_cast<size_t>(std::ranges::count(start, '\n')) + 1,
            "a NUL ends the file for the readers, and nothing behind it counts; store it as UTF-8 "
            "text");
}

} // namespace vekctl
