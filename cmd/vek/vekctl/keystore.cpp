/*
 * keystore.cpp - section lists, and the readers that run over them.
 */
#include "vekctl/keystore.h"

#include "sztoumaa/lookup.h"
#include "sztoumaa/sections.h"
#include "sztucona/parse.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <strings.h>

namespace vekctl {

namespace {

// A reader fails at the second line of a key, and has nothing from a third.
constexpr size_t MOST_REPEATS = 2;

bool isWord(std::string_view value, const char *word) {
    return value.size() == strlen(word) && strncasecmp(value.data(), word, value.size()) == 0;
}

// As the cipher session of the readers does it: the key may be absent.
uint32_t readKeyFileKey(SztuList *list, char *path) {
    const uint32_t result = vek::getText(list, nullptr, "keyfile", {path, SZTUC_PATH_CAPACITY - 1},
                                         SZTU_KEY_NOT_PRESENT);
    return result == SZTU_KEY_NOT_PRESENT ? uint32_t{SZTU_OK} : result;
}

// Whether the two stand for the same credential of the same reader.
bool belongTogether(const Item &one, const Item &other) {
    return one.section == other.section && one.known.isOfChannel == other.known.isOfChannel &&
           one.known.channel == other.known.channel;
}

} // namespace

bool saysYes(std::string_view value) {
    return isWord(value, vek::MARKER_YES);
}

bool saysNo(std::string_view value) {
    return isWord(value, vek::MARKER_NO);
}

std::string_view credentialField(const Records &records, std::string_view section) {
    const auto field = [](const auto &text) {
        return std::string_view(text, strnlen(text, sizeof text));
    };
    if (section == vek::PEM_SECTION)
        return field(records.pem.password);
    if (section == vek::PKCS11_SECTION)
        return field(records.pkcs11.token_pin);
    if (section == vek::CRL_SECTION)
        return field(records.crl.ldapServers[0].pass);
    return {};
}

void Keystore::add(const Line &line, const Reading &reading) {
    if (reading.kind != LineKind::setting)
        return;
    settingFound = true;
    Item item = {line.number, reading, findKey(reading.key), nullptr, {}};
    item.section = sectionOf(reading.key, &item.name);
    if (item.section == nullptr)
        return;
    if (item.known.isOfChannel && !rules.withChannels) {
        if (!Keystore().isStrayMarker(reading))
            sectionsOfChannels.insert(item.section);
        item.known = {};
    }
    take(item);
}

void Keystore::take(const Item &item) {
    // An unknown key counts for its section, which it shows to be there.
    const bool isKnown = item.known.key != nullptr;
    size_t &count = counts[isKnown ? item.reading.key : std::string_view(item.section)];
    if (count < (isKnown ? MOST_REPEATS : 1))
        kept.push_back(item);
    ++count;
}

std::vector<ReaderName> Keystore::readers() const {
    std::vector<ReaderName> readers;
    for (const std::string_view section : vek::SECTIONS) {
        bool hasSection = false;
        bool hasGeneralKey = false;
        std::vector<std::string> channels;
        for (const Item &item : kept) {
            if (item.section != section)
                continue;
            hasSection = true;
            if (isStrayMarker(item.reading))
                continue;
            if (item.known.isOfChannel)
                channels.emplace_back(item.known.channel);
            else if (item.known.key != nullptr &&
                     (item.known.key->form == vek::Form::general ||
                      item.known.key->form == vek::Form::generalOrNamed))
                hasGeneralKey = true;
        }
        std::ranges::sort(channels);
        channels.erase(std::unique(channels.begin(), channels.end()), channels.end());
        const bool hasChannels = !channels.empty() || sectionsOfChannels.contains(section);
        if (hasSection && (hasGeneralKey || !hasChannels))
            readers.push_back({section, false, {}});
        for (std::string &channel : channels)
            readers.push_back({section, true, std::move(channel)});
    }
    return readers;
}

SztuList *Keystore::list(std::string_view section) {
    std::unique_ptr<SztuList, FreeList> &made = lists[section];
    if (made != nullptr)
        return made.get();
    made.reset(SztuListCreate());
    if (made == nullptr)
        throw std::bad_alloc();
    for (const Item &item : kept) {
        if (item.section != section || (!rules.withMarkers && isSingleYes(item)))
            continue;
        if (vek::appendItem(made.get(), item.name, item.reading.value) != SZTU_OK)
            throw std::bad_alloc();
    }
    return made.get();
}

ReaderResult Keystore::run(const ReaderName &reader, SvcPBESession *session, Records *records) {
    char errorKey[SZTOU_ERROR_KEY_CAPACITY] = {};
    if (reader.section == vek::KEY_SOURCE_SECTION)
        return {readKeyFileKey(list(reader.section), records->keyFile), KEY_FILE_KEY};
    const std::string section(reader.section);
    const char *const channel = reader.channel.c_str();
    vek::Reading reading(
        {.function = 0, .section = section.c_str(), .keystorePath = nullptr, .errorKey = errorKey},
        list(reader.section), session);
    if (reader.section == vek::CMS_SECTION && reader.isOfChannel)
        vek::readChannelCms(reading, &records->cms, channel);
    else if (reader.section == vek::CMS_SECTION)
        vek::readCms(reading, &records->cms);
    else if (reader.section == vek::PEM_SECTION && reader.isOfChannel)
        vek::readChannelPem(reading, &records->pem, channel);
    else if (reader.section == vek::PEM_SECTION)
        vek::readPem(reading, &records->pem);
    else if (reader.section == vek::PKCS11_SECTION)
        vek::readPkcs11(reading, &records->pkcs11);
    else if (reader.section == vek::CRL_SECTION)
        vek::readCrl(reading, &records->crl, session->fips);
    else
        vek::readOcsp(reading, &records->ocsp);
    std::string key = errorKey;
    return {reading.result(), key.substr(0, key.find('='))};
}

NamedKeyFile Keystore::keyFile() {
    NamedKeyFile named;
    for (const Item &item : kept) {
        if (item.reading.key != KEY_FILE_KEY)
            continue;
        named.firstLine = named.line == 0 ? item.line : named.firstLine;
        named.line = item.line;
    }
    if (named.line == 0)
        return named;
    char path[SZTUC_PATH_CAPACITY] = {};
    named.code = readKeyFileKey(list(vek::KEY_SOURCE_SECTION), path);
    named.path = path;
    return named;
}

bool Keystore::wantsFips(std::string_view section) {
    int32_t fips = 0;
    return vek::getLogical(list(section), nullptr, "fips", &fips) == SZTU_OK && fips != 0;
}

const Item *Keystore::markerOf(const Item &credential, bool isYes) const {
    for (const Item &item : kept)
        if (item.known.isMarker() && belongTogether(item, credential) &&
            (!isYes || saysYes(item.reading.value)))
            return &item;
    return nullptr;
}

const Item *Keystore::credentialOf(const Item &marker) const {
    for (const Item &item : kept)
        if (item.known.isCredential() && belongTogether(item, marker))
            return &item;
    return nullptr;
}

bool Keystore::isStrayMarker(const Reading &reading) const {
    const KnownKey known = findKey(reading.key);
    if (known.credential == nullptr || known.credential->writtenChannelMarker == nullptr ||
        reading.key != known.credential->writtenChannelMarker)
        return false;
    const bool mayBeWritten =
        reading.value.starts_with(vek::LABEL) || saysYes(reading.value) || saysNo(reading.value);
    return mayBeWritten && std::ranges::none_of(kept, [&](const Item &other) {
               return other.section == std::string_view(known.key->section) &&
                      other.known.isOfChannel && other.known.channel == known.channel &&
                      other.reading.key != reading.key;
           });
}

// A marker that its credential's reader accepts and obeys. One that stands twice stays in the list,
// so that the reader fails as it would.
bool Keystore::isSingleYes(const Item &marker) const {
    if (!marker.known.isMarker() || !saysYes(marker.reading.value) ||
        credentialOf(marker) == nullptr)
        return false;
    return std::ranges::count_if(kept, [&](const Item &other) {
               return other.known.isMarker() && belongTogether(other, marker);
           }) == 1;
}

} // namespace vekctl
