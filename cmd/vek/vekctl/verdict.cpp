/*
 * verdict.cpp - runs the readers, and explains what they say by the lines that they read.
 */
#include "vekctl/verdict.h"

#include "vekctl/channel_lines.h"
#include "vekctl/keystore.h"
#include "vekctl/line_findings.h"

#include "shared/line_words.h"

#include <algorithm>
#include <iterator>
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

// What is judged at once: the general lines of a file, or those of one channel together with the
// general ones that its readers share.
struct Part {
    Keystore keystore;
    std::map<size_t, Opened> opened; // by line
    std::vector<ReaderRun> readers;
    std::vector<std::string> explained; // keys of the errors of reading that were found
};

class Judge {
public:
    Judge(const FileText &judged, KeyRing &ring, const CheckRules &checkRules)
        : text(judged), keys(ring), rules(checkRules),
          general{Keystore({.withMarkers = checkRules.opens, .withChannels = false}), {}, {}, {}} {}

    Verdict run() {
        findInText(text, &lineFindings);
        keepLineFindings();
        readLines();
        if (!isRefused)
            chooseKey();
        openAndRun(general, /* isOfChannel= */ false);
        forEachChannel(text, channelLines,
                       [this](const std::vector<Line> &lines) { judgeChannel(lines); });
        reportKey();
        for (const Item &item : general.keystore.items())
            judgeItem(general, item);
        for (const ReaderRun &reader : general.readers)
            explain(general, reader);
        for (const ReaderRun &reader : failedAtShared)
            explain(general, reader);
        collect();
        return std::move(verdict);
    }

private:
    // The first ones by line are listed.
    void keep(Finding finding) {
        // What stands behind a colon in a key may be a value.
        finding.key.resize(std::min(finding.key.size(), finding.key.find(':')));
        const bool isError = finding.level == Level::error;
        std::vector<Finding> &listed = isError ? errors : warnings;
        listed.push_back(std::move(finding));
        if (listed.size() == 2 * LISTED_LIMIT)
            (isError ? verdict.unlistedErrors : verdict.unlistedWarnings) += shorten(&listed);
    }
    static size_t shorten(std::vector<Finding> *listed) {
        std::ranges::stable_sort(*listed, {}, &Finding::line);
        const size_t size = listed->size();
        listed->resize(std::min(size, LISTED_LIMIT));
        return size - listed->size();
    }
    void collect() {
        verdict.unlistedErrors += shorten(&errors);
        verdict.unlistedWarnings += shorten(&warnings);
        std::ranges::merge(errors, warnings, std::back_inserter(verdict.findings), {},
                           &Finding::line, &Finding::line);
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
    void addReading(Part &part, Code code, const Item &item, const std::string &detail = "") {
        const bool isError = hurtsReader(part, item);
        add(code, isError ? Level::error : Level::warning, item, detail);
        if (isError)
            part.explained.emplace_back(item.reading.key);
    }
    bool hurtsReader(const Part &part, const Item &item) const {
        const auto isHurt = [&](const ReaderRun &reader) {
            return reader.name.reads(item) && reader.isBad();
        };
        // Without opening, the readers of encrypted values are not asked.
        const bool isNotAsked = !rules.opens && item.known.isCredential() && isMarked(part, item);
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
            if (reading.kind == LineKind::refused)
                refuse(line, reading.refusal);
            findInLine(line, reading, &lineFindings);
            keepLineFindings();
            general.keystore.add(line, reading);
            channelLines += findKey(reading.key).isOfChannel ? 1 : 0;
        }
        if (!isRefused && !general.keystore.hasSetting())
            refuse(Line{}, Refusal::noSetting);
    }

    void refuse(const Line &line, Refusal refusal) {
        isRefused = true;
        keep(refusedLine(line, refusal));
    }

    void chooseKey() {
        const NamedKeyFile named = general.keystore.keyFile();
        sourceIsReadable = named.code == SZTU_OK || rules.keyOption != nullptr;
        verdict.source = chooseKeySource(rules.keyOption, named.path);
        verdict.sourceLine = named.line;
    }

    void openAndRun(Part &part, bool isOfChannel) {
        if (isRefused)
            return;
        openCredentials(part);
        runReaders(part, isOfChannel);
        for (const ReaderRun &reader : part.readers)
            keyIsNeeded = keyIsNeeded || (reader.isBad() && hasYesMarker(part, reader.name));
    }

    // ---- Channels ----

    void judgeChannel(const std::vector<Line> &lines) {
        Part part{Keystore({.withMarkers = rules.opens}), {}, {}, {}};
        for (const Item &item : general.keystore.items())
            if (item.known.isReadBy(/* channelReader= */ true, ""))
                part.keystore.take(item);
        for (const Line &line : lines)
            part.keystore.add(line, readLine(line));
        openAndRun(part, /* isOfChannel= */ true);
        for (const Item &item : part.keystore.items())
            if (item.known.isOfChannel)
                judgeItem(part, item);
        for (const ReaderRun &reader : part.readers)
            explainChannel(part, reader);
    }

    // What fails the readers of all channels is told once.
    void explainChannel(Part &part, const ReaderRun &reader) {
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

    // ---- Keys and readers ----

    // The session that the readers of a section use; not open where they would have none.
    SvcPBESession *sessionFor(std::string_view section) {
        closedSession = {};
        if (!rules.opens)
            return &closedSession;
        if (!sourceIsReadable) {
            keyProblem = "the readers take none of two lines that name its file";
            return &closedSession;
        }
        const bool fips = section != vek::CRL_SECTION && general.keystore.wantsFips(section);
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
        const bool isFromFile = verdict.source.origin == KeyOrigin::section;
        keep({Code::noKey, keyIsNeeded ? Level::error : Level::warning,
              isFromFile ? verdict.sourceLine : 0, isFromFile ? KEY_FILE_KEY : "", keyProblem});
    }

    void openCredentials(Part &part) {
        if (!rules.opens || !sourceIsReadable)
            return;
        for (const Item &item : part.keystore.items()) {
            if (!item.known.isCredential() || !isMarked(part, item))
                continue;
            SvcPBESession *const session = sessionFor(item.section);
            if (session != &closedSession)
                part.opened[item.line] = open(session, item);
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

    void runReaders(Part &part, bool isOfChannel) {
        ztm::Wiping<Records> records{};
        for (ReaderName &name : part.keystore.readers()) {
            if (name.isOfChannel != isOfChannel)
                continue;
            SvcPBESession *const session =
                hasYesMarker(part, name) ? sessionFor(name.section) : &closedSession;
            ReaderResult result = part.keystore.run(name, session, &records.value);
            const bool isWrong = result.code == SZTU_OK &&
                                 !credentialField(records.value, name.section).empty() &&
                                 std::ranges::any_of(part.keystore.items(), [&](const Item &item) {
                                     return item.known.isCredential() && name.reads(item) &&
                                            (isUnmarked(part, item) || isTooLong(part, item));
                                 });
            part.readers.push_back({std::move(name), std::move(result), isWrong});
        }
    }

    static bool hasYesMarker(const Part &part, const ReaderName &name) {
        return std::ranges::any_of(part.keystore.items(), [&](const Item &item) {
            return item.known.isMarker() && name.reads(item) && saysYes(item.reading.value);
        });
    }

    // ---- Facts about a credential ----

    static bool isMarked(const Part &part, const Item &item) {
        return part.keystore.markerOf(item, /* isYes= */ true) != nullptr;
    }
    static bool isUnmarked(const Part &part, const Item &item) {
        return !isMarked(part, item) && vek::isInEncryptedForm(item.reading.value);
    }
    static bool isTooLong(const Part &part, const Item &item) {
        const auto found = part.opened.find(item.line);
        if (isMarked(part, item))
            return found != part.opened.end() &&
                   found->second.length > item.known.credential->capacity;
        return item.reading.value.size() > item.known.credential->capacity;
    }

    // ---- Findings ----

    void judgeItem(Part &part, const Item &item) {
        if (item.known.key == nullptr)
            return;
        if (part.keystore.isStrayMarker(item.reading)) {
            add(Code::strayMarker, Level::warning, item);
            return;
        }
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

    void judgeCredential(Part &part, const Item &item) {
        if (isUnmarked(part, item))
            addReading(part, Code::unmarked, item);
        else if (isMarked(part, item))
            judgeMarked(part, item);
        else
            judgeClear(item);
        if (isTooLong(part, item))
            addReading(part, Code::tooLong, item);
    }

    void judgeMarked(Part &part, const Item &item) {
        const bool isClear = !item.reading.value.starts_with(vek::LABEL);
        verdict.holdsClearText = verdict.holdsClearText || isClear;
        const auto found = part.opened.find(item.line);
        if (isClear) {
            addReading(part, Code::keptClear, item);
            return;
        }
        if (found == part.opened.end()) {
            if (!vek::isInEncryptedForm(item.reading.value))
                addReading(part, Code::damaged, item);
            return;
        }
        switch (found->second.reason) {
        case SVC_PBE_OK:
            if (verdict.source.isBuiltIn())
                add(Code::builtInKey, Level::warning, item);
            break;
        case SVC_PBE_AUTHENTICATION_FAILED:
            addReading(part, Code::otherKey, item, "tried with " + verdict.source.describe());
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
        add(isSame ? Code::clear : Code::ambiguous, Level::error, item);
    }

    // A failure that no finding names yet is told as the reader's own.
    void explain(Part &part, const ReaderRun &reader) {
        if (!reader.isBad() || reader.handsWrongText || isExplained(part, reader))
            return;
        Finding finding = {Code::reader, Level::error, 0, keyAtFault(reader), ""};
        for (const Item &item : part.keystore.items())
            if (item.reading.key == finding.key)
                finding.line = item.line;
        finding.detail = resultText(reader);
        part.explained.push_back(finding.key);
        keep(std::move(finding));
    }

    bool isExplained(const Part &part, const ReaderRun &reader) const {
        if (!keyProblem.empty() && hasYesMarker(part, reader.name))
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
        if (code == SZTU_BAD_CONFIG)
            return "it ends with 15, as the key is missing or its value is not accepted; add or "
                   "correct it";
        if (code == SZTU_BAD_ARGUMENTS)
            return "it ends with 2, as it gets no key to decrypt with";
        const char *const reason = svcPBEReasonText(code);
        return "it ends with " + std::to_string(code) +
               (reason == nullptr ? "" : std::string(", as ") + reason);
    }

    const FileText &text;
    KeyRing &keys;
    const CheckRules &rules;
    Part general;
    std::vector<ReaderRun> failedAtShared; // readers of channels, one for each key
    size_t channelLines = 0;
    Verdict verdict;
    std::vector<Finding> lineFindings; // in the line that is being read
    std::vector<Finding> errors;
    std::vector<Finding> warnings;
    bool isRefused = false; // by the parser: every reader fails
    bool sourceIsReadable = true;
    bool keyIsNeeded = false; // a reader that fails needs it
    std::string keyProblem;   // why there is no session, or ""
    SvcPBESession closedSession = {};
};

} // namespace

Verdict judge(const FileText &text, KeyRing &keys, const CheckRules &rules) {
    return Judge(text, keys, rules).run();
}

bool isReadingError(const Finding &finding) {
    return finding.level == Level::error && kindOf(finding.code).matter == Matter::reading;
}

} // namespace vekctl
