/*
 * change_plan.h - what a command does to one file: which values are stored, which markers are set,
 * and the proof that the new text says the same as the old one.
 */
#ifndef VEKCTL_CHANGE_PLAN_H
#define VEKCTL_CHANGE_PLAN_H

#include "vekctl/key.h"
#include "vekctl/text_change.h"

#include <optional>
#include <set>

namespace vekctl {

// Something that is done to a line, for the report.
struct Deed {
    size_t line = 0; // of the old text; 0: a new line
    std::string key;
    const char *text = "";
};

class ReadersView;

// The functions that return bool stop at the first problem, which problem() tells.
class ChangePlan {
public:
    // Both must outlive the plan.
    ChangePlan(const CredentialLines &old, CipherSession &key)
        : lines(old), session(key), change(old) {}

    // ---- Before anything is planned ----
    // Refuses keys that stand twice. What may be a marker of runvekcred may.
    [[nodiscard]] bool checkDuplicates(bool withWrittenMarkers = false);
    // Refuses keys that runvekcred takes for a credential or a marker, and no reader does.
    [[nodiscard]] bool checkLookAlikes();

    // ---- What a credential's line holds ----
    // Opens a value in encrypted form with a key.
    [[nodiscard]] bool open(const KeyLine &credential, CipherSession &key, Secret *clearText);
    // Refuses a value in encrypted form that does not fit its reader's field.
    [[nodiscard]] bool checkLength(const KeyLine &credential, const Secret &clearText);
    // Whether a line is a marker of runvekcred that no reader looks at; its second run encrypts the
    // YES of the first.
    [[nodiscard]] bool isWrittenMarker(const KeyLine &line, CipherSession &key) const;
    // Takes a clear value as the readers do; refuses what may be meant otherwise, and what is too
    // long.
    [[nodiscard]] bool takeClear(const KeyLine &credential, Secret *clearText);

    // ---- What is done to it ----
    // Stores a value encrypted in its line.
    [[nodiscard]] bool store(const KeyLine &credential, Secret clearText, const char *deed,
                             Tail tail);
    // Writes the line of a new credential behind the last one of its section.
    [[nodiscard]] bool storeNew(const CredentialName &name, Secret clearText);
    // Writes a value in clear; refuses one that the readers would take otherwise.
    [[nodiscard]] bool writeClear(const KeyLine &credential, Secret clearText);
    // Leaves an encrypted value, and takes a blank away that hides its key.
    void keep(const KeyLine &credential, Secret clearText);
    // Takes the blank away that hides a key of another kind from its reader.
    void show(const HiddenKey &hidden);
    void remove(const KeyLine &line, const char *deed);
    // Leaves a line as it is, with its value as it stands.
    void leave(const KeyLine &credential);
    // Lets exactly one marker say YES to the reader of a credential that is kept or stored
    // encrypted.
    void mark(const KeyLine &credential);
    // Lets vekcred.keyfile name a key file.
    [[nodiscard]] bool nameKeyFile(const std::string &path);

    // ---- The result ----
    [[nodiscard]] bool isNothing() const {
        return change.isNothing();
    }
    [[nodiscard]] Secret text() const {
        return change.text();
    }
    // Reads the new text back with the library's parser, opens every value and compares it, and
    // compares all other lines with those of the old text.
    [[nodiscard]] bool prove(const Secret &newText);
    [[nodiscard]] const std::vector<Deed> &deeds() const {
        return done;
    }
    [[nodiscard]] const Problem &problem() const {
        return failure;
    }

private:
    enum class Marking { asBefore, yes, none };
    // What a reader must get out of the new text.
    struct Expected {
        CredentialName name;
        Secret value;
        bool isStored;
        Marking marking;
    };
    [[nodiscard]] bool fail(std::string text, const KeyLine &line);
    [[nodiscard]] bool encrypt(const CredentialName &name, size_t line, std::string_view clearText,
                               std::string *stored);
    [[nodiscard]] bool isInPlace(const KeyLine &marker, const KeyLine &credential) const;
    void insertMarker(const KeyLine &credential);
    [[nodiscard]] bool isReadBack(const Expected &expected, const ReadersView &before,
                                  const ReadersView &now);
    [[nodiscard]] bool hasSameLines(const CredentialLines &result) const;
    [[nodiscard]] bool isMadeVisible(const Line &before, const Line &now) const;

    const CredentialLines &lines;
    CipherSession &session;
    TextChange change;
    std::vector<Expected> expectations;
    std::set<size_t> rewritten; // numbers of the lines of credentials that get another value
    std::set<size_t> removed;
    std::set<size_t> madeVisible; // lines of other keys that were hidden
    std::optional<std::string> namedKeyFile;
    std::vector<Deed> done;
    Problem failure;
};

} // namespace vekctl

#endif
