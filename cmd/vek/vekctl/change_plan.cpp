/*
 * change_plan.cpp - plans a change line by line, and proves the new text.
 */
#include "vekctl/change_plan.h"

#include "shared/line_words.h"
#include "vekctl/keystore.h"
#include "vekctl/report.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <sys/stat.h>

namespace vekctl {

// The settings of a text as the library's parser hands them to the readers.
class ReadersView {
public:
    explicit ReadersView(std::string_view text) : copy(text), list(SztuListCreate()) {
        copy.append({"\0", 1});
        if (list == nullptr)
            throw std::bad_alloc();
        parsed = sztucParseConfigFile(copy.data(), list) == SZTU_OK;
    }
    ReadersView(const ReadersView &) = delete;
    ReadersView &operator=(const ReadersView &) = delete;
    ~ReadersView() {
        sztucFreeConfigList(list);
    }

    [[nodiscard]] bool isWhole() const {
        return parsed;
    }
    [[nodiscard]] std::vector<std::string_view> valuesOf(const std::string &key) const {
        std::vector<std::string_view> values;
        for (const SztuListNode *node = list->head; node != nullptr; node = node->next) {
            const auto *const item = static_cast<const SztucConfigItem *>(node->item);
            if (key == item->key)
                values.emplace_back(item->value);
        }
        return values;
    }

private:
    Secret copy;
    SztuList *list;
    bool parsed = false;
};

namespace {

constexpr char NOT_PROVED[] =
    "the new text does not say the same as the old one; nothing was changed, and this is a fault "
    "of vekctl: please report it";

// Walks the lines that are neither credential nor marker, nor the one that names the key file if
// that changes.
class OtherLines {
public:
    OtherLines(const CredentialLines &walked, bool keyFileChanges) : lines(walked) {
        for (const auto *const list : {&lines.credentials(), &lines.markers()})
            for (const KeyLine &each : *list)
                left.insert(each.line.number);
        if (keyFileChanges)
            left.insert(lines.keyFileLine().number);
    }
    // Null at the end.
    const Line *next() {
        while (lines.next(&line))
            if (!left.contains(line.number))
                return &line;
        return nullptr;
    }

private:
    const CredentialLines &lines;
    std::set<size_t> left;
    Line line;
};

// The last line of a file without a last line end gets one when something follows it.
bool isSameLine(const Line &before, const Line &now) {
    return before.text == now.text && (before.end == now.end || before.end.empty());
}

std::string textOf(uint32_t reason) {
    const char *const text = svcPBEReasonText(reason);
    return text == nullptr ? "unknown reason" : text;
}

} // namespace

bool ChangePlan::fail(std::string text, const KeyLine &line) {
    failure = {std::move(text), line.line.number, shownKey(line.reading.key)};
    return false;
}

bool ChangePlan::checkDuplicates() {
    std::map<std::string, size_t> firstLines;
    for (const KeyLine &line : lines.credentials()) {
        const auto [first, isFirst] = firstLines.emplace(line.name.key(), line.line.number);
        if (!isFirst && !lines.mayBeWrittenMarker(line))
            return fail(textOf(duplicateKey(line.line.number, "", first->second)), line);
    }
    return true;
}

bool ChangePlan::checkLookAlikes() {
    if (lines.lookAlikes().empty())
        return true;
    const KeyLine &line = lines.lookAlikes().front();
    return fail("no reader knows this key, but runvekcred takes it for a credential or a marker; "
                "correct or remove it",
                line);
}

bool ChangePlan::open(const KeyLine &credential, CipherSession &key, Secret *clearText) {
    const uint32_t reason = key.restore(credential.reading.value, clearText);
    if (reason == SVC_PBE_OK)
        return true;
    const char *const remedy = reason == SVC_PBE_AUTHENTICATION_FAILED
                                   ? "; name the key that it was encrypted with, or vekctl set "
                                     "stores the value anew"
                                   : "; vekctl set stores it anew";
    return fail("does not open with " + key.source().describe() + ": " + textOf(reason) + remedy,
                credential);
}

bool ChangePlan::checkLength(const KeyLine &credential, const Secret &clearText) {
    return clearText.size() <= credential.name.row->capacity ||
           fail("its value is longer than the field of its reader; vekctl set stores a shorter one",
                credential);
}

bool ChangePlan::isWrittenMarker(const KeyLine &line, CipherSession &key) const {
    if (!lines.mayBeWrittenMarker(line))
        return false;
    Secret opened;
    return !line.isStored() || (key.restore(line.reading.value, &opened) == SVC_PBE_OK &&
                                (saysYes(opened.view()) || saysNo(opened.view())));
}

bool ChangePlan::takeClear(const KeyLine &credential, Secret *clearText) {
    const char *const doubt = doubtIn(credential.reading, credential.name.row->capacity);
    if (doubt != nullptr)
        return fail(doubt, credential);
    *clearText = Secret(credential.reading.value);
    return true;
}

bool ChangePlan::encrypt(const CredentialName &name, size_t line, std::string_view clearText,
                         std::string *stored) {
    const uint32_t reason = session.save(clearText, stored);
    if (reason == SVC_PBE_OK)
        return true;
    failure = {"cannot be encrypted: " + textOf(reason), line, name.key()};
    return false;
}

bool ChangePlan::store(const KeyLine &credential, Secret clearText, const char *deed, Tail tail) {
    std::string stored;
    if (!encrypt(credential.name, credential.line.number, clearText.view(), &stored))
        return false;
    change.replaceValue(credential.line, credential.reading, stored, tail);
    rewritten.insert(credential.line.number);
    done.push_back({credential.line.number, credential.name.key(), deed});
    expectations.push_back(
        {credential.name, std::move(clearText), /* isStored= */ true, Marking::asBefore});
    return true;
}

bool ChangePlan::storeNew(const CredentialName &name, Secret clearText) {
    std::string stored;
    if (!encrypt(name, /* line= */ 0, clearText.view(), &stored))
        return false;
    for (const KeyLine &marker : lines.markers())
        if (marker.name == name)
            remove(marker, "marker moved");
    const Line last = lines.lastLineOf(name.row->section);
    // The marker of a channel comes behind: in front, it would keep runvekcred from later clear
    // values.
    if (name.channel.empty())
        change.insertBehind(last, name.marker(), vek::MARKER_YES);
    change.insertBehind(last, name.key(), stored);
    if (!name.channel.empty())
        change.insertBehind(last, name.marker(), vek::MARKER_YES);
    done.push_back({/* line= */ 0, name.key(), "stored"});
    expectations.push_back({name, std::move(clearText), /* isStored= */ true, Marking::yes});
    return true;
}

bool ChangePlan::writeClear(const KeyLine &credential, Secret clearText) {
    const Line &line = credential.line;
    const char *const value = credential.reading.value.data();
    Secret text(line.text.substr(0, static_cast<size_t>(value - line.text.data())));
    text.append(clearText.view());
    text.append(line.text.substr(static_cast<size_t>(value - line.text.data()) +
                                 credential.reading.value.size()));
    const size_t length = text.size();
    text.append(line.end);
    KeyLine written = {credential.name,
                       {line.number, text.view().substr(0, length), text.view().substr(length)},
                       {}};
    written.reading = readLine(written.line);
    if (doubtIn(written.reading, written.name.row->capacity) != nullptr ||
        !clearText.equals(written.reading.value))
        return fail("its value cannot stand in clear: the readers would take another one",
                    credential);
    if (credential.isStored() || credential.isHidden()) {
        change.replaceValue(line, credential.reading, clearText.view(), Tail::stays);
        done.push_back({line.number, credential.name.key(), "in clear"});
    }
    expectations.push_back(
        {credential.name, std::move(clearText), /* isStored= */ false, Marking::none});
    return true;
}

void ChangePlan::keep(const KeyLine &credential, Secret clearText) {
    if (credential.isHidden()) {
        change.replaceValue(credential.line, credential.reading, credential.reading.value,
                            Tail::stays);
        done.push_back({credential.line.number, credential.name.key(), "made visible"});
    }
    expectations.push_back(
        {credential.name, std::move(clearText), /* isStored= */ true, Marking::asBefore});
}

// What runvekcred has written may stand there more than once, and has no reader.
void ChangePlan::leave(const KeyLine &credential) {
    if (!credential.isHidden() && !lines.mayBeWrittenMarker(credential))
        expectations.push_back({credential.name, Secret(credential.reading.value),
                                /* isStored= */ false, Marking::asBefore});
}

void ChangePlan::show(const HiddenKey &hidden) {
    change.showKey(hidden.reading);
    shown.insert(hidden.line);
    done.push_back({hidden.line, std::string(hidden.key()), "made visible"});
}

void ChangePlan::remove(const KeyLine &line, const char *deed) {
    change.remove(line.line);
    removed.insert(line.line.number);
    done.push_back({line.line.number, shownKey(line.reading.key), deed});
}

// A marker of a section is in its place in front of its credential; where it stands matters to
// runvekcred alone, so one that is right is not moved for its own sake.
bool ChangePlan::isInPlace(const KeyLine &marker, const KeyLine &credential) const {
    return marker.isRightMarker() &&
           (!marker.name.channel.empty() || !rewritten.contains(credential.line.number) ||
            marker.line.number < credential.line.number);
}

void ChangePlan::mark(const KeyLine &credential) {
    bool isThere = false;
    for (const KeyLine &marker : lines.markers()) {
        if (marker.name != credential.name)
            continue;
        if (!isThere && isInPlace(marker, credential))
            isThere = true;
        else
            remove(marker, "marker removed");
    }
    if (!isThere)
        insertMarker(credential);
    for (Expected &expected : expectations)
        if (expected.name == credential.name)
            expected.marking = Marking::yes;
}

// The marker of a channel that runvekcred meets in front of a clear value keeps it from that value,
// so it stands behind the last credential of its section.
void ChangePlan::insertMarker(const KeyLine &credential) {
    const CredentialName &name = credential.name;
    done.push_back({/* line= */ 0, name.marker(), "marker added"});
    if (name.channel.empty())
        return change.insertBefore(credential.line, name.marker(), vek::MARKER_YES);
    const Line *last = &credential.line;
    for (const KeyLine &other : lines.credentials())
        if (other.name.row == name.row && !removed.contains(other.line.number) &&
            other.line.number > last->number)
            last = &other.line;
    change.insertBehind(*last, name.marker(), vek::MARKER_YES);
}

bool ChangePlan::nameKeyFile(const std::string &path) {
    if (lines.keyFile() == path)
        return true;
    struct stat status = {};
    if (stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        failure = {"the key is not in a file that readers can open later; name one that is",
                   lines.keyFileLine().number, KEY_FILE_KEY};
        return false;
    }
    const bool isTaken = std::none_of(path.begin(), path.end(), [](char character) {
        return character == '#' || iscntrl(static_cast<unsigned char>(character)) != 0;
    });
    if (path.empty() || !isTaken || vek::isBlank(path.front()) || vek::isBlank(path.back()) ||
        path.size() >= SZTUC_PATH_CAPACITY - 1) {
        failure = {"the path of the key file cannot stand in the file; it must not hold a \"#\", a "
                   "control character, or a blank at an end",
                   lines.keyFileLine().number, KEY_FILE_KEY};
        return false;
    }
    if (lines.keyFileLine().number == 0) {
        change.insertBehind(Line{}, KEY_FILE_KEY, path);
    } else {
        const Line &line = lines.keyFileLine();
        change.replaceValue(line, readLine(line), path, Tail::stays);
    }
    namedKeyFile = path;
    done.push_back({lines.keyFileLine().number, KEY_FILE_KEY, "names the key file"});
    return true;
}

bool ChangePlan::prove(const Secret &newText) {
    const ReadersView before(lines.text());
    const ReadersView now(newText.view());
    if (!now.isWhole() && expectations.empty()) {
        failure = {"holds nothing but markers that no reader looks at; remove the file",
                   removed.empty() ? 0 : *removed.begin(),
                   {}};
        return false;
    }
    FileText copy;
    copy.take(Secret(newText.view()));
    CredentialLines result;
    const bool isRead = now.isWhole() && result.take(std::move(copy));
    const auto isProved = [&](const Expected &each) { return isReadBack(each, before, now); };
    if (isRead && std::all_of(expectations.begin(), expectations.end(), isProved) &&
        hasSameLines(result))
        return true;
    tellFailedProof();
    return false;
}

// What may be a marker of runvekcred may stand there twice, and turn out to be a password.
void ChangePlan::tellFailedProof() {
    failure = {NOT_PROVED, /* line= */ 0, /* key= */ {}};
    std::map<std::string, size_t> firstLines;
    for (const KeyLine &line : lines.credentials()) {
        if (removed.contains(line.line.number))
            continue;
        const auto [first, isFirst] = firstLines.emplace(line.name.key(), line.line.number);
        if (!isFirst)
            return (void)fail(textOf(duplicateKey(line.line.number, "", first->second)), line);
    }
}

bool ChangePlan::isReadBack(const Expected &expected, const ReadersView &before,
                            const ReadersView &now) {
    const auto values = now.valuesOf(expected.name.key());
    if (values.size() != 1)
        return false;
    Secret opened;
    if (expected.isStored && session.restore(values.front(), &opened) != SVC_PBE_OK)
        return false;
    if (!expected.value.equals(expected.isStored ? opened.view() : values.front()))
        return false;
    const auto markers = now.valuesOf(expected.name.marker());
    switch (expected.marking) {
    case Marking::yes:
        return markers.size() == 1 && saysYes(markers.front());
    case Marking::none:
        return markers.empty();
    case Marking::asBefore:
        break;
    }
    return markers == before.valuesOf(expected.name.marker());
}

bool ChangePlan::hasSameLines(const CredentialLines &result) const {
    if (namedKeyFile && result.keyFile() != *namedKeyFile)
        return false;
    OtherLines before(lines, namedKeyFile.has_value());
    OtherLines now(result, namedKeyFile.has_value());
    const Line *old = before.next();
    const Line *fresh = now.next();
    while (old != nullptr && fresh != nullptr &&
           (isSameLine(*old, *fresh) || isMadeVisible(*old, *fresh))) {
        old = before.next();
        fresh = now.next();
    }
    return old == nullptr && fresh == nullptr;
}

bool ChangePlan::isMadeVisible(const Line &before, const Line &now) const {
    if (!shown.contains(before.number))
        return false;
    const Reading old = readLine(before);
    const Reading fresh = readLine(now);
    return fresh.key == HiddenKey{before.number, old}.key() && fresh.value == old.value &&
           before.text.size() - now.text.size() == old.key.size() - fresh.key.size();
}

} // namespace vekctl
