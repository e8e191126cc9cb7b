/*
 * verdict.cpp - runs the readers, and explains what they say by the lines that they read.
 */
#include "vekctl/verdict.h"

#include "vekctl/keystore.h"
#include "vekctl/line_findings.h"

#include "shared/line_words.h"

#include <algorithm>
#include <map>

namespace vekctl {

namespace {

// What opening a credential came to.
struct Opened {
    uint32_t reason = SVC_PBE_OK;
    size_t length = 0; // of the clear text
};

// One reader, and what became of it.
struct ReaderRun {
    ReaderName name;
    ReaderResult result;
    bool handsWrongText = false;

    [[nodiscard]] bool isBad() const {
        const bool isNotThere = result.code == SZTU_SECTION_EMPTY ||
                                (result.code == SZTU_KEY_NOT_PRESENT && name.isOfChannel);
        return (result.code != SZTU_OK && !isNotThere) || handsWrongText;
    }
};

class Judge {
public:
    Judge(const FileText &judged, KeyRing &ring, const CheckRules &checkRules)
        : text(judged), keys(ring), rules(checkRules), keystore(checkRules.opens) {}

    Verdict run() {
        findInText(text, &lineFindings);
        keepLineFindings();
        readLines();
        if (!isRefused) {
            chooseKey();
            openCredentials();
            runReaders();
            reportKey();
        }
        for (const Item &item : keystore.items())
            judgeItem(item);
        for (const ReaderRun &reader : readers)
            explain(reader);
        std::ranges::stable_sort(verdict.findings, {}, &Finding::line);
        return std::move(verdict);
    }

private:
    void keep(Finding finding) {
        const bool isError = finding.level == Level::error;
        size_t &listed = isError ? listedErrors : listedWarnings;
        if (listed == LISTED_LIMIT) {
            ++(isError ? verdict.unlistedErrors : verdict.unlistedWarnings);
            return;
        }
        ++listed;
        verdict.findings.push_back(std::move(finding));
    }
    void keepLineFindings() {
        for (Finding &finding : lineFindings)
            keep(std::move(finding));
        lineFindings.clear();
    }
    void add(Code code, Level level, const Item &item, const std::string &detail = "") {
        keep({code, level, item.line, std::string(item.reading.key), detail});
    }
    // A finding that is an error only where a reader is hurt.
    void addReading(Code code, const Item &item, const std::string &detail = "") {
        add(code, hurtsReader(item) ? Level::error : Level::warning, item, detail);
    }
    bool hurtsReader(const Item &item) const {
        return isRefused || std::ranges::any_of(readers, [&](const ReaderRun &reader) {
                   return reader.name.reads(item) && reader.isBad();
               });
    }

    // ---- The steps, in their order ----

    void readLines() {
        Line line;
        while (text.next(&line)) {
            const Reading reading = readLine(line);
            if (reading.kind == LineKind::refused)
                refuse(line, reading.refusal);
            findInLine(line, reading, &lineFindings);
            keepLineFindings();
            keystore.add(line, reading);
        }
        if (!isRefused && !keystore.hasSetting())
            refuse(Line{}, Refusal::noSetting);
    }

    void refuse(const Line &line, Refusal refusal) {
        isRefused = true;
        keep(refusedLine(line, refusal));
    }

    void chooseKey() {
        const NamedKeyFile named = keystore.keyFile();
        sourceIsReadable = named.code == SZTU_OK || rules.keyOption != nullptr;
        verdict.source = chooseKeySource(rules.keyOption, named.path);
        verdict.sourceLine = named.line;
    }

    // The session that the readers of a section use; not open where they would have none.
    SvcPBESession *sessionFor(std::string_view section) {
        closedSession = {};
        if (!rules.opens)
            return &closedSession;
        if (!sourceIsReadable) {
            keyProblem = "the readers take none of two lines that name its file";
            return &closedSession;
        }
        const bool fips = section != vek::CRL_SECTION && keystore.wantsFips(section);
        CipherSession &session = keys.session(verdict.source, fips);
        if (session.reason() == SVC_PBE_OK)
            return session.record();
        keyProblem = session.problem();
        return &closedSession;
    }

    // An error only where a reader comes so far that it needs the key.
    void reportKey() {
        if (keyProblem.empty())
            return;
        const bool isNeeded = std::ranges::any_of(readers, [&](const ReaderRun &reader) {
            return reader.isBad() && hasYesMarker(reader.name);
        });
        const bool isFromFile = verdict.source.origin == KeyOrigin::section;
        keep({Code::noKey, isNeeded ? Level::error : Level::warning,
              isFromFile ? verdict.sourceLine : 0, isFromFile ? KEY_FILE_KEY : "", keyProblem});
    }

    void openCredentials() {
        if (!rules.opens || !sourceIsReadable)
            return;
        for (const Item &item : keystore.items()) {
            if (!item.known.isCredential() || keystore.markerOf(item, /* isYes= */ true) == nullptr)
                continue;
            SvcPBESession *const session = sessionFor(item.section);
            if (session != &closedSession)
                opened[item.line] = open(session, item);
        }
    }

    // What is longer than a stored text can be is cut by the readers.
    static Opened open(SvcPBESession *session, const Item &item) {
        const std::string_view stored = item.reading.value.substr(0, SVC_PBE_STORED_LIMIT);
        ztm::Memory<char> clear;
        int32_t length = 0;
        Opened result;
        result.reason = svcPBERestore(session, stored.data(), static_cast<int32_t>(stored.size()),
                                      /* algorithm= */ nullptr, clear.receive(), &length);
        result.length = static_cast<size_t>(length);
        return result;
    }

    void runReaders() {
        ztm::Wiping<Records> records{};
        for (ReaderName &name : keystore.readers()) {
            SvcPBESession *const session =
                hasYesMarker(name) ? sessionFor(name.section) : &closedSession;
            ReaderResult result = keystore.run(name, session, &records.value);
            const bool isWrong = result.code == SZTU_OK &&
                                 !credentialField(records.value, name.section).empty() &&
                                 std::ranges::any_of(keystore.items(), [&](const Item &item) {
                                     return item.known.isCredential() && name.reads(item) &&
                                            (isUnmarked(item) || isTooLong(item));
                                 });
            readers.push_back({std::move(name), std::move(result), isWrong});
        }
    }

    bool hasYesMarker(const ReaderName &name) const {
        return std::ranges::any_of(keystore.items(), [&](const Item &item) {
            return item.known.isMarker() && name.reads(item) && saysYes(item.reading.value);
        });
    }

    // ---- Facts about a credential ----

    bool isMarked(const Item &item) const {
        return keystore.markerOf(item, /* isYes= */ true) != nullptr;
    }
    bool isUnmarked(const Item &item) const {
        return !isMarked(item) && vek::isInEncryptedForm(item.reading.value);
    }
    bool isTooLong(const Item &item) const {
        const auto found = opened.find(item.line);
        if (isMarked(item))
            return found != opened.end() && found->second.length > item.known.credential->capacity;
        return item.reading.value.size() > item.known.credential->capacity;
    }

    // ---- Findings ----

    void judgeItem(const Item &item) {
        if (item.known.key == nullptr)
            return;
        if (keystore.isStrayMarker(item.reading)) {
            add(Code::strayMarker, Level::warning, item);
            return;
        }
        const auto [first, isFirst] = firstLines.emplace(item.reading.key, item.line);
        if (!isFirst)
            addReading(Code::duplicate, item,
                       duplicateKey(item.line, "", first->second).detail +
                           furtherOnes(keystore.countOf(item)));
        if (item.known.isMarker() && !saysYes(item.reading.value) && !saysNo(item.reading.value))
            addReading(Code::badMarker, item);
        if (item.known.isCredential())
            judgeCredential(item);
    }

    static std::string furtherOnes(size_t count) {
        return count <= 2 ? "" : ", and " + std::to_string(count - 2) + " more follow";
    }

    void judgeCredential(const Item &item) {
        if (isUnmarked(item))
            addReading(Code::unmarked, item);
        else if (isMarked(item))
            judgeMarked(item);
        else
            judgeClear(item);
        if (isTooLong(item))
            addReading(Code::tooLong, item);
    }

    void judgeMarked(const Item &item) {
        const bool isClear = !item.reading.value.starts_with(vek::LABEL);
        verdict.holdsClearText = verdict.holdsClearText || isClear;
        const auto found = opened.find(item.line);
        if (isClear) {
            addReading(Code::keptClear, item);
            return;
        }
        if (found == opened.end()) {
            if (!vek::isInEncryptedForm(item.reading.value))
                addReading(Code::damaged, item);
            return;
        }
        switch (found->second.reason) {
        case SVC_PBE_OK:
            if (verdict.source.isBuiltIn())
                add(Code::builtInKey, Level::warning, item);
            break;
        case SVC_PBE_AUTHENTICATION_FAILED:
            addReading(Code::otherKey, item, "tried with " + verdict.source.describe());
            break;
        case SVC_PBE_MALFORMED_TEXT:
            addReading(Code::damaged, item);
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
        add(isSame ? Code::clear : Code::ambiguous, Level::error, item);
    }

    // A failure that no finding names yet is told as the reader's own.
    void explain(const ReaderRun &reader) {
        if (!reader.isBad() || reader.handsWrongText || isExplained(reader))
            return;
        Finding finding = {Code::reader, Level::error, 0, keyAtFault(reader), ""};
        for (const Item &item : keystore.items())
            if (item.reading.key == finding.key)
                finding.line = item.line;
        const std::string who = reader.name.isOfChannel ? "channel's reader" : "reader";
        finding.detail = "the " + who + " ends with " + resultText(reader);
        keep(std::move(finding));
    }

    bool isExplained(const ReaderRun &reader) const {
        const std::string key = keyAtFault(reader);
        const bool namesKey = key.find('.') != std::string::npos;
        return std::ranges::any_of(verdict.findings, [&](const Finding &finding) {
            if (!isReadingError(finding))
                return false;
            if (finding.code == Code::noKey)
                return hasYesMarker(reader.name);
            return namesKey ? finding.key == key : finding.key.starts_with(key + ".");
        });
    }

    // The reader of "crl" calls its credential by the name of another one's.
    static std::string keyAtFault(const ReaderRun &reader) {
        const std::string &key = reader.result.errorKey;
        return key == "crl.token_pin" ? "crl.ldap.pass" : key;
    }

    static std::string resultText(const ReaderRun &reader) {
        const uint32_t code = reader.result.code;
        if (code == SZTU_BAD_CONFIG)
            return "15: the key is missing, or its value is not accepted";
        const char *const reason = svcPBEReasonText(code);
        return reason == nullptr ? std::to_string(code) : reason;
    }

    const FileText &text;
    KeyRing &keys;
    const CheckRules &rules;
    Keystore keystore;
    Verdict verdict;
    std::vector<Finding> lineFindings; // in the line that is being read
    size_t listedErrors = 0;
    size_t listedWarnings = 0;
    bool isRefused = false; // by the parser: every reader fails
    bool sourceIsReadable = true;
    std::string keyProblem; // why there is no session, or ""
    SvcPBESession closedSession = {};
    std::map<size_t, Opened> opened; // by line
    std::map<std::string_view, size_t> firstLines;
    std::vector<ReaderRun> readers;
};

} // namespace

Verdict judge(const FileText &text, KeyRing &keys, const CheckRules &rules) {
    return Judge(text, keys, rules).run();
}

bool isReadingError(const Finding &finding) {
    return finding.level == Level::error && kindOf(finding.code).matter == Matter::reading;
}

} // namespace vekctl
