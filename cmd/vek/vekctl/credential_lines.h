/*
 * credential_lines.h - the lines of a keystore.conf that is to be changed: its credentials, their
 * markers, and what stands in the way of a change.
 *
 * A credential or marker is taken by the key that the readers look up. A key that only begins like
 * one is a look-alike: runvekcred takes it for one, and the readers do not.
 */
#ifndef VEKCTL_CREDENTIAL_LINES_H
#define VEKCTL_CREDENTIAL_LINES_H

#include "vekctl/keystore.h"

#include "shared.h"

#include <string>
#include <string_view>
#include <vector>

namespace vekctl {

// What keeps a file from being changed: what happened and what to do.
struct Problem {
    std::string text;
    size_t line = 0; // 0: the whole file
    std::string key;
};

// A credential that the readers know, by its whole key: "pem.password",
// "pem.password.channel.TO.HUB".
struct CredentialName {
    const vek::Credential *row = nullptr;
    std::string channel; // empty: the general one

    [[nodiscard]] std::string key() const;
    [[nodiscard]] std::string marker() const;
    bool operator==(const CredentialName &) const = default;
};

enum class KeyRole { none, credential, marker, lookAlike };

struct NamedKey {
    KeyRole role = KeyRole::none;
    CredentialName name;
};

// What a key is to the readers, and to runvekcred where that is another thing.
[[nodiscard]] NamedKey roleOfKey(std::string_view key);

// The credential that a person named with its whole key. Throws UsageError for another key.
[[nodiscard]] CredentialName credentialCalled(const std::string &key);

// The line of a credential or of a marker.
struct KeyLine {
    CredentialName name;
    Line line;
    Reading reading;

    // The value in encrypted form, or what begins like one.
    [[nodiscard]] bool isStored() const;
    // The stripping rule keeps the blank behind the key, so that no reader finds it.
    [[nodiscard]] bool isHidden() const;
    // A marker that says YES to its reader and to runvekcred.
    [[nodiscard]] bool isRightMarker() const;
};

// A key that is neither, hidden by the stripping rule.
struct HiddenKey {
    size_t line = 0;
    Reading reading;

    [[nodiscard]] std::string_view key() const;
};

class CredentialLines {
public:
    // Takes the whole text of a file. False: the readers cannot use it either; problem() says why.
    [[nodiscard]] bool take(FileText text);

    [[nodiscard]] const Problem &problem() const {
        return failure;
    }
    [[nodiscard]] std::string_view text() const {
        return content.text();
    }
    // Takes the next line, as FileText does.
    [[nodiscard]] bool next(Line *line) const {
        return content.next(line);
    }
    [[nodiscard]] const std::vector<KeyLine> &credentials() const {
        return credentialLines;
    }
    [[nodiscard]] const std::vector<KeyLine> &markers() const {
        return markerLines;
    }
    [[nodiscard]] const std::vector<KeyLine> &lookAlikes() const {
        return lookAlikeLines;
    }
    [[nodiscard]] const std::vector<HiddenKey> &hiddenKeys() const {
        return hidden;
    }
    // The line of vekcred.keyfile and its value; number 0 and "" without one.
    [[nodiscard]] const Line &keyFileLine() const {
        return lineOfKeyFile;
    }
    [[nodiscard]] const std::string &keyFile() const {
        return pathOfKeyFile;
    }
    // Whether a line may be the marker that runvekcred writes before a channel's password.
    [[nodiscard]] bool mayBeWrittenMarker(const KeyLine &line) const {
        return settings.isStrayMarker(line.reading);
    }

    // The last setting of a section; number 0 without one.
    [[nodiscard]] Line lastLineOf(std::string_view section) const;
    // The line end that a new line gets behind or in front of this one.
    [[nodiscard]] std::string_view endFor(const Line &line) const;

private:
    [[nodiscard]] bool fail(std::string text, size_t line = 0, std::string key = {});
    void sortIn(const Line &line, const Reading &reading);
    [[nodiscard]] bool takeKeyFile();

    FileText content;
    std::vector<KeyLine> credentialLines;
    std::vector<KeyLine> markerLines;
    std::vector<KeyLine> lookAlikeLines;
    std::vector<HiddenKey> hidden;
    Keystore settings;
    Line lineOfKeyFile;
    std::string pathOfKeyFile;
    Problem failure;
};

} // namespace vekctl

#endif
