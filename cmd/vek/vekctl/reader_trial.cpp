/*
 * reader_trial.cpp - opens credentials with the key of their readers, and runs the readers.
 */
#include "vekctl/reader_trial.h"

#include "shared/line_words.h"

#include <algorithm>

namespace vekctl {

namespace {

// What is longer than a stored text can be is cut by the readers.
Opened open(SvcPBESession *session, const Item &item) {
    const std::string_view stored = item.reading.value.substr(0, SVC_PBE_STORED_LIMIT);
    ztm::Memory<char> clear;
    int32_t length = 0;
    Opened result;
    result.reason = svcPBERestore(session, stored.data(), static_cast<int32_t>(stored.size()),
                                  /* algorithm= */ nullptr, clear.receive(), &length);
    result.length = static_cast<size_t>(length);
    return result;
}

// Whether a reader that succeeded handed over what is no password: an encrypted or a cut text.
bool handsWrongText(const Part &part, const ReaderName &name, const Records &records) {
    return !credentialField(records, name.section).empty() &&
           std::ranges::any_of(part.keystore.items(), [&](const Item &item) {
               return item.known.isCredential() && name.reads(item) &&
                      (part.isUnmarked(item) || part.isTooLong(item));
           });
}

} // namespace

bool ReaderRun::isBad() const {
    const bool isNotThere = result.code == SZTU_SECTION_EMPTY || isIncomplete();
    return (result.code != SZTU_OK && !isNotThere) || handsWrongText;
}

bool Part::isMarked(const Item &item) const {
    return keystore.markerOf(item, /* isYes= */ true) != nullptr;
}

bool Part::isUnmarked(const Item &item) const {
    return !isMarked(item) && vek::isInEncryptedForm(item.reading.value);
}

bool Part::isTooLong(const Item &item) const {
    const size_t capacity = item.known.credential->capacity;
    if (!isMarked(item))
        return item.reading.value.size() > capacity;
    const auto found = opened.find(item.line);
    return found != opened.end() && found->second.length > capacity;
}

bool Part::hasYesMarker(const ReaderName &name) const {
    return std::ranges::any_of(keystore.items(), [&](const Item &item) {
        return item.known.isMarker() && name.reads(item) && saysYes(item.reading.value);
    });
}

void ReaderTrial::chooseKey() {
    const NamedKeyFile named = general.keyFile();
    sourceIsReadable = named.code == SZTU_OK || rules.keyOption != nullptr;
    keySource = chooseKeySource(rules.keyOption, named.path);
    lineOfSource = named.line;
}

void ReaderTrial::run(Part *part, bool isOfChannel) {
    openCredentials(part);
    runReaders(part, isOfChannel);
    for (const ReaderRun &reader : part->readers)
        keyIsNeeded = keyIsNeeded || (reader.isBad() && part->hasYesMarker(reader.name));
}

// The session that the readers of a section use; not open where they would have none.
SvcPBESession *ReaderTrial::sessionFor(std::string_view section) {
    closedSession = {};
    if (!sourceIsReadable) {
        problem = "the readers take none of two lines that name its file";
        return &closedSession;
    }
    const bool fips = section != vek::CRL_SECTION && general.wantsFips(section);
    CipherSession &session = keys.session(keySource, fips);
    if (session.reason() == SVC_PBE_OK)
        return session.record();
    problem = session.problem();
    return &closedSession;
}

void ReaderTrial::openCredentials(Part *part) {
    if (!rules.opens || !sourceIsReadable)
        return;
    for (const Item &item : part->keystore.items()) {
        if (!item.known.isCredential() || !part->isMarked(item))
            continue;
        SvcPBESession *const session = sessionFor(item.section);
        if (session != &closedSession)
            part->opened[item.line] = open(session, item);
    }
}

void ReaderTrial::runReaders(Part *part, bool isOfChannel) {
    ztm::Wiping<Records> records{};
    for (ReaderName &name : part->keystore.readers()) {
        if (name.isOfChannel != isOfChannel)
            continue;
        const bool needsKey = rules.opens && part->hasYesMarker(name);
        SvcPBESession *const session = needsKey ? sessionFor(name.section) : &closedSession;
        ReaderResult result = part->keystore.run(name, session, &records.value);
        // A reader opens its session before it looks for the credential.
        if (needsKey && session == &closedSession && result.code == SZTU_KEY_NOT_PRESENT &&
            findKey(result.errorKey).isCredential())
            result.code = SZTU_BAD_ARGUMENTS;
        const bool isWrong = result.code == SZTU_OK && handsWrongText(*part, name, records.value);
        part->readers.push_back({std::move(name), std::move(result), isWrong});
    }
}

} // namespace vekctl
