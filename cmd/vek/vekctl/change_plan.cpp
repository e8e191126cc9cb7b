/*
 * change_plan.cpp - plans a change line by line.
 */
#include "vekctl/change_plan.h"

#include "shared/line_words.h"
#include "vekctl/findings.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <sys/stat.h>

namespace vekctl {

namespace {

std::string textOf(uint32_t reason) {
    const char *const text = svcPBEReasonText(reason);
    return text == nullptr ? "unknown reason" : text;
}

} // namespace

bool ChangePlan::fail(std::string text, const KeyLine &line) {
    failure = {std::move(text), line.line.number, shownKey(line.reading.key)};
    return false;
}

bool ChangePlan::checkDuplicates(bool withWrittenMarkers) {
    std::map<std::string, size_t> firstLines;
    for (const KeyLine &line : lines.credentials()) {
        if (removed.contains(line.line.number))
            continue;
        const auto [first, isFirst] = firstLines.emplace(line.name.key(), line.line.number);
        if (!isFirst && (withWrittenMarkers || !lines.mayBeWrittenMarker(line)))
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
    madeVisible.insert(hidden.line);
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

} // namespace vekctl
