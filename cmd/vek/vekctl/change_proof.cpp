/*
 * change_proof.cpp - proves that a new text says the same as the old one but for what was planned.
 */
#include "vekctl/change_plan.h"
#include "vekctl/keystore.h"

#include <algorithm>

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

} // namespace

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
    // What may be a marker can turn out to be a password.
    if (checkDuplicates(/* withWrittenMarkers= */ true))
        failure = {NOT_PROVED, /* line= */ 0, /* key= */ {}};
    return false;
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
    if (!madeVisible.contains(before.number))
        return false;
    const HiddenKey hidden = {before.number, readLine(before)};
    const std::string_view key = hidden.reading.key;
    const size_t start = static_cast<size_t>(key.data() - before.text.data());
    const std::string visible = std::string(before.text.substr(0, start)) +
                                std::string(hidden.key()) +
                                std::string(before.text.substr(start + key.size()));
    return isSameLine({before.number, visible, before.end}, now);
}

} // namespace vekctl
