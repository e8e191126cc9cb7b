/*
 * keystore.h - the settings of one keystore.conf, and what its readers make of them.
 *
 * The readers run here: their own code, over section lists made of the lines, with a session that
 * is open already. What a reader would say of the file it says of the lists.
 */
#ifndef VEKCTL_KEYSTORE_H
#define VEKCTL_KEYSTORE_H

#include "vekctl/file_text.h"
#include "vekctl/known_keys.h"

#include "common/guards.h"
#include "ztvek.h"

#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace vekctl {

// One line of a section of ours. The views lie in the text of the file.
struct Item {
    size_t line = 0;
    Reading reading;
    KnownKey known;
    const char *section = nullptr;
    std::string_view name; // the key without its section
};

// One reader: of a section, or of a channel in it.
struct ReaderName {
    std::string_view section;
    bool isOfChannel = false;
    std::string channel;

    [[nodiscard]] bool reads(const Item &item) const {
        return item.section == section && item.known.isReadBy(isOfChannel, channel);
    }
};

// The records that the readers fill; they may hold credentials.
struct Records {
    SztouKsConfig cms;
    SztouOcspConfig ocsp;
    SztouPemConfig pem;
    SztouPkcs11Config pkcs11;
    SztouCrlConfig crl;
    char keyFile[SZTUC_PATH_CAPACITY];
};

struct ReaderResult {
    uint32_t code = 0;
    std::string errorKey; // never with the value that some readers append
};

// The setting vekcred.keyfile.
struct NamedKeyFile {
    uint32_t code = SZTU_OK; // of its reader, 0 also without the section
    std::string path;        // as the reader takes it; "" without the setting
    size_t line = 0;         // the last one that has the key, or 0
    size_t firstLine = 0;
};

struct KeystoreRules {
    bool withMarkers = true;  // false: no value is opened; a YES marker does not reach the reader
    bool withChannels = true; // false: of the lines of channels no more is kept than that they are
};

class Keystore {
public:
    explicit Keystore(const KeystoreRules &given = {}) : rules(given) {}

    // Takes a line. Only what matters is kept: nothing of a section that is not ours, of the keys
    // that no reader looks at one for each section, of a key that is repeated two lines. The text
    // of the file must outlive this.
    void add(const Line &line, const Reading &reading);
    // Takes an item of another one.
    void take(const Item &item);

    [[nodiscard]] const std::vector<Item> &items() const {
        return kept;
    }
    // How many lines that were taken have the key of this item.
    [[nodiscard]] size_t countOf(const Item &item) const {
        return counts.at(item.reading.key);
    }
    [[nodiscard]] bool hasSetting() const {
        return settingFound;
    }

    // The readers of the sections and channels that the file has. A section whose keys are all of
    // channels, or shared with them, has no general reader.
    [[nodiscard]] std::vector<ReaderName> readers() const;

    // Runs a reader into its record. `session` is open, or the reader fails at the first encrypted
    // credential.
    [[nodiscard]] ReaderResult run(const ReaderName &reader, SvcPBESession *session,
                                   Records *records);

    [[nodiscard]] NamedKeyFile keyFile();

    // What the key "fips" of a section says.
    [[nodiscard]] bool wantsFips(std::string_view section);

    // The marker that the reader of this credential looks at, and the reverse; null when there is
    // none. With `isYes` only one that says YES.
    [[nodiscard]] const Item *markerOf(const Item &credential, bool isYes) const;
    [[nodiscard]] const Item *credentialOf(const Item &marker) const;

    // Whether a line is what runvekcred writes in front of a channel's password, in clear or
    // encrypted by its next run: no reader looks at it. Its key is that of the password of a
    // channel called "encrypted" as well, and it is that when the channel has other keys.
    [[nodiscard]] bool isStrayMarker(const Reading &reading) const;

private:
    [[nodiscard]] SztuList *list(std::string_view section);
    [[nodiscard]] bool isSingleYes(const Item &marker) const;

    KeystoreRules rules;
    bool settingFound = false;
    std::vector<Item> kept;
    std::unordered_map<std::string_view, size_t> counts; // of lines, by key
    std::set<std::string_view> sectionsOfChannels;       // of lines that are not kept

    struct FreeList {
        void operator()(SztuList *freed) const {
            sztucFreeConfigList(freed);
        }
    };
    std::map<std::string_view, std::unique_ptr<SztuList, FreeList>> lists;
};

// What the value of a marker says to a reader.
[[nodiscard]] bool saysYes(std::string_view value);
[[nodiscard]] bool saysNo(std::string_view value);

// The credential's field in the record of a reader, empty for readers without one.
[[nodiscard]] std::string_view credentialField(const Records &records, std::string_view section);

} // namespace vekctl

#endif
