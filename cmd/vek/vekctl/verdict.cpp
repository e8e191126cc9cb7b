/*
 * verdict.cpp - explains what the readers make of a file by the lines that they read.
 */
#include "vekctl/verdict.h"

#include "vekctl/channel_lines.h"
#include "vekctl/error_text.h"
#include "vekctl/finding_list.h"
#include "vekctl/line_findings.h"

#include "shared/line_words.h"

#include <algorithm>

namespace vekctl {

namespace {

constexpr char PROTECTION[] = "vekctl protect encrypts it";

// A part, and the keys of its errors of reading that were found.
struct JudgedPart : Part {
    std::vector<std::string> explained;
};

class Judge {
public:
    Judge(const FileText &judged, KeyRing &ring, const CheckRules &checkRules)
        : text(judged), rules(checkRules),
          general(partWith({.withMarkers = checkRules.opens, .withChannels = false})),
          trial(ring, checkRules, general.keystore) {}

    Verdict run() {
        findInText(text, &lineFindings);
        keepLineFindings();
        readLines();
        if (!isRefused) {
            trial.chooseKey();
            trial.run(&general, /* isOfChannel= */ false);
        }
        forEachChannel(text, channelLines,
                       [this](const std::vector<Line> &lines) { judgeChannel(lines); });
        reportKey();
        for (const Item &item : general.keystore.items())
            judgeItem(general, item);
        for (const ReaderRun &reader : general.readers)
            explain(general, reader);
        for (const ReaderRun &reader : failedAtShared)
            explain(general, reader);
        verdict.findings = findings.take(&verdict.unlisted);
        verdict.source = trial.source();
        verdict.sourceLine = trial.sourceLine();
        return std::move(verdict);
    }

private:
    static JudgedPart partWith(const KeystoreRules &keystoreRules) {
        return {{Keystore(keystoreRules), {}, {}}, {}};
    }

    void keepLineFindings() {
        for (Finding &finding : lineFindings)
            findings.keep(std::move(finding));
        lineFindings.clear();
    }
    void add(Code code, Level level, const Item &item, const std::string &detail = "") {
        findings.keep({code, level, item.line, std::string(item.reading.key), detail});
    }
    // A finding that is an error only where a reader is hurt.
    void addReading(JudgedPart &part, Code code, const Item &item, const std::string &detail = "") {
        const bool isError = hurtsReader(part, item);
        add(code, isError ? Level::error : Level::warning, item, detail);
        if (isError)
            part.explained.emplace_back(item.reading.key);
    }
    bool hurtsReader(const JudgedPart &part, const Item &item) const {
        const auto isHurt = [&](const ReaderRun &reader) {
            return reader.name.reads(item) && reader.isBad();
        };
        // Without opening, the readers of encrypted values are not asked.
        const bool isNotAsked = !rules.opens && item.known.isCredential() && part.isMarked(item);
        return isRefused || isNotAsked || std::ranges::any_of(part.readers, isHurt) ||
               std::ranges::any_of(failedAtShared, [&](const ReaderRun &reader) {
                   return reader.result.errorKey == item.reading.key;
               });
    }

    // ---- The steps, in their order ----

    void readLines() {
        Line line;
        while (text.next(&line)) {
            const Reading reading = readLine(line);
            findInLine(line, reading, &lineFindings);
            keepLineFindings();
            if (reading.kind == LineKind::refused)
                refuse(line, reading.refusal);
            general.keystore.add(line, reading);
            channelLines += findKey(reading.key).isOfChannel ? 1 : 0;
        }
        if (!isRefused && !general.keystore.hasSetting())
            refuse(Line{}, Refusal::noSetting);
    }

    void refuse(const Line &line, Refusal refusal) {
        isRefused = true;
        findings.keep(refusedLine(line, refusal));
    }

    // ---- Channels ----

    void judgeChannel(const std::vector<Line> &lines) {
        JudgedPart part = partWith({.withMarkers = rules.opens});
        for (const Item &item : general.keystore.items())
            if (item.known.isReadBy(/* channelReader= */ true, ""))
                part.keystore.take(item);
        for (const Line &line : lines)
            part.keystore.add(line, readLine(line));
        if (!isRefused)
            trial.run(&part, /* isOfChannel= */ true);
        for (const Item &item : part.keystore.items())
            if (item.known.isOfChannel)
                judgeItem(part, item);
        for (const ReaderRun &reader : part.readers)
            explainChannel(part, reader);
    }

    // What fails the readers of all channels is told once.
    void explainChannel(JudgedPart &part, const ReaderRun &reader) {
        const KnownKey known = findKey(reader.result.errorKey);
        const bool isShared = reader.isBad() && known.key != nullptr && !known.isOfChannel;
        if (!isShared)
            return explain(part, reader);
        const auto isSame = [&](const ReaderRun &other) {
            return other.result.errorKey == reader.result.errorKey;
        };
        if (std::ranges::none_of(failedAtShared, isSame))
            failedAtShared.push_back(reader);
    }

    // An error only where a reader comes so far that it needs the key.
    void reportKey() {
        if (trial.keyProblem().empty())
            return;
        const bool isFromFile = trial.source().origin == KeyOrigin::section;
        findings.keep({Code::noKey, trial.isKeyNeeded() ? Level::error : Level::warning,
                       isFromFile ? trial.sourceLine() : 0, isFromFile ? KEY_FILE_KEY : "",
                       trial.keyProblem()});
    }

    // ---- Findings ----

    void judgeItem(JudgedPart &part, const Item &item) {
        if (item.known.key == nullptr)
            return;
        const bool isAlone = item.known.isMarker() && part.keystore.credentialOf(item) == nullptr;
        if (part.keystore.isStrayMarker(item.reading) || (isAlone && !hurtsReader(part, item)))
            return add(Code::strayMarker, Level::warning, item);
        const Item &first = *std::ranges::find_if(part.keystore.items(), [&](const Item &other) {
            return other.reading.key == item.reading.key;
        });
        if (first.line != item.line)
            addReading(part, Code::duplicate, item,
                       duplicateKey(item.line, "", first.line).detail +
                           furtherOnes(part.keystore.countOf(item)));
        if (item.known.isMarker() && !saysYes(item.reading.value) && !saysNo(item.reading.value))
            addReading(part, Code::badMarker, item);
        if (item.known.isCredential())
            judgeCredential(part, item);
    }

    static const char *furtherOnes(size_t count) {
        return count <= 2 ? "" : ", and more follow";
    }

    void judgeCredential(JudgedPart &part, const Item &item) {
        const bool isUnmarked = part.isUnmarked(item);
        const bool isMarked = part.isMarked(item);
        if (isUnmarked)
            addReading(part, Code::unmarked, item);
        else if (isMarked)
            judgeMarked(part, item);
        else
            judgeClear(item);
        const bool isClear = !isUnmarked && !isMarked;
        if (part.isTooLong(item) || (isClear && isTooLongToStore(item)))
            addReading(part, Code::tooLong, item);
    }

    void judgeMarked(JudgedPart &part, const Item &item) {
        const bool isClear = !item.reading.value.starts_with(vek::LABEL);
        verdict.holdsClearText = verdict.holdsClearText || isClear;
        const auto found = part.opened.find(item.line);
        if (isClear && hurtsReader(part, item))
            return addReading(part, Code::keptClear, item, remedyFor(item, PROTECTION));
        if (isClear)
            return add(Code::clear, Level::error, item, remedyFor(item, PROTECTION));
        if (found == part.opened.end()) {
            if (!vek::isInEncryptedForm(item.reading.value))
                addReading(part, Code::damaged, item);
            return;
        }
        switch (found->second.reason) {
        case SVC_PBE_OK:
            if (trial.source().isBuiltIn())
                add(Code::builtInKey, Level::warning, item);
            break;
        case SVC_PBE_AUTHENTICATION_FAILED:
            addReading(part, Code::otherKey, item,
                       "tried with " + trial.source().describe() +
                           "; name the right key, or vekctl set stores the value anew");
            break;
        case SVC_PBE_MALFORMED_TEXT:
            addReading(part, Code::damaged, item);
            break;
        default: // no memory: what the reader itself says is told
            break;
        }
    }

    void judgeClear(const Item &item) {
        verdict.holdsClearText = true;
        const Reading &reading = item.reading;
        const bool isSame =
            reading.writerKey == reading.key && reading.writerValue == reading.value;
        if (isSame)
            add(Code::clear, Level::error, item, remedyFor(item, PROTECTION));
        else
            add(Code::ambiguous, Level::error, item,
                remedyFor(item, "vekctl protect encrypts what the readers take"));
    }

    static const char *remedyFor(const Item &clear, const char *protection) {
        if (clear.known.isOfChannel && clear.known.channel.empty())
            return "its channel has no name; add one, or remove the line";
        const char *const doubt = doubtIn(clear.reading, clear.known.credential->capacity);
        return doubt != nullptr          ? doubt
               : isTooLongToStore(clear) ? "vekctl set stores a shorter one"
                                         : protection;
    }
    static bool isTooLongToStore(const Item &clear) {
        return clear.reading.value.size() > SVC_PBE_CLEAR_TEXT_LIMIT;
    }

    // What no finding names yet is told as the reader's own: a failure, a channel without effect.
    void explain(JudgedPart &part, const ReaderRun &reader) {
        const bool isTold = reader.isBad() || (reader.isIncomplete() && hasKeyOf(part, reader));
        if (!isTold || reader.handsWrongText || isExplained(part, reader))
            return;
        Finding finding = {Code::reader, reader.isBad() ? Level::error : Level::warning, 0,
                           keyAtFault(reader), ""};
        for (const Item &item : part.keystore.items())
            if (item.reading.key == finding.key)
                finding.line = item.line;
        finding.detail = resultText(reader);
        part.explained.push_back(finding.key);
        findings.keep(std::move(finding));
    }

    // A marker alone is a stray one.
    static bool hasKeyOf(const JudgedPart &part, const ReaderRun &channel) {
        return std::ranges::any_of(part.keystore.items(), [&](const Item &item) {
            return item.known.isOfChannel && !item.known.isMarker() &&
                   item.section == channel.name.section;
        });
    }

    bool isExplained(const JudgedPart &part, const ReaderRun &reader) const {
        if (!trial.keyProblem().empty() && part.hasYesMarker(reader.name))
            return true;
        const std::string key = keyAtFault(reader);
        const bool namesKey = key.find('.') != std::string::npos;
        return std::ranges::any_of(part.explained, [&](const std::string &other) {
            return namesKey ? other == key : other.starts_with(key + ".");
        });
    }

    // The reader of "crl" calls its credential by the name of another one's.
    static std::string keyAtFault(const ReaderRun &reader) {
        const std::string &key = reader.result.errorKey;
        return key == "crl.token_pin" ? "crl.ldap.pass" : key;
    }

    static std::string resultText(const ReaderRun &reader) {
        const uint32_t code = reader.result.code;
        if (reader.isIncomplete())
            return "it ends with 1, as the key is missing, so the channel counts as not there; "
                   "add it, or correct the name of the channel";
        if (code == SZTU_BAD_CONFIG)
            return "it ends with 15, as the key is missing or its value is not accepted; add or "
                   "correct it";
        if (code == SZTU_BAD_ARGUMENTS)
            return "it ends with 2, as it gets no key to decrypt with";
        return "it ends with " + codeText(code);
    }

    const FileText &text;
    const CheckRules &rules;
    JudgedPart general;
    ReaderTrial trial;
    std::vector<ReaderRun> failedAtShared; // readers of channels, one for each key
    size_t channelLines = 0;
    Verdict verdict;
    FindingList findings;
    std::vector<Finding> lineFindings; // in the line that is being read
    bool isRefused = false;            // by the parser: every reader fails
};

} // namespace

Verdict judge(const FileText &text, KeyRing &keys, const CheckRules &rules) {
    return Judge(text, keys, rules).run();
}

bool isReadingError(const Finding &finding) {
    return finding.level == Level::error && kindOf(finding.code).matter == Matter::reading;
}

} // namespace vekctl
