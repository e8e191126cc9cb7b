/*
 * reader_trial.h - asks the readers themselves: which of them fail, and what opening each
 * credential comes to.
 */
#ifndef VEKCTL_READER_TRIAL_H
#define VEKCTL_READER_TRIAL_H

#include "vekctl/key.h"
#include "vekctl/keystore.h"

#include <map>
#include <string>
#include <vector>

namespace vekctl {

struct CheckRules {
    bool opens = true;                      // false: values are not opened, and no key is needed
    const std::string *keyOption = nullptr; // the argument of --key, or null
};

// What opening a credential came to.
struct Opened {
    uint32_t reason = SVC_PBE_OK;
    size_t length = 0; // of the clear text
};

// One reader, and what became of it.
struct ReaderRun {
    ReaderName name;
    ReaderResult result;
    bool handsWrongText = false; // an encrypted or a cut one, with success

    [[nodiscard]] bool isBad() const;
    // Whether a channel counts as not there although the file has keys of it.
    [[nodiscard]] bool isIncomplete() const {
        return result.code == SZTU_KEY_NOT_PRESENT && name.isOfChannel;
    }
};

// What is tried at once: the general lines of a file, or those of one channel together with the
// general ones that its readers share.
struct Part {
    Keystore keystore;
    std::map<size_t, Opened> opened; // by line
    std::vector<ReaderRun> readers;

    // Whether the marker that the credential's reader looks at says YES.
    [[nodiscard]] bool isMarked(const Item &item) const;
    [[nodiscard]] bool isUnmarked(const Item &item) const; // and encrypted all the same
    [[nodiscard]] bool isTooLong(const Item &item) const;  // for the reader's field
    [[nodiscard]] bool hasYesMarker(const ReaderName &name) const;
};

class ReaderTrial {
public:
    // What `general` holds when a part is run decides which key serves it.
    ReaderTrial(KeyRing &ring, const CheckRules &checkRules, Keystore &generalLines)
        : keys(ring), rules(checkRules), general(generalLines) {}

    void chooseKey();

    // Opens the credentials of a part, and runs its readers of sections or those of channels.
    void run(Part *part, bool isOfChannel);

    [[nodiscard]] const KeySource &source() const {
        return keySource;
    }
    // The line that names the source, or 0.
    [[nodiscard]] size_t sourceLine() const {
        return lineOfSource;
    }
    // Why there was no session for a reader, or "".
    [[nodiscard]] const std::string &keyProblem() const {
        return problem;
    }
    // Whether a reader that failed came so far that it needs the key.
    [[nodiscard]] bool isKeyNeeded() const {
        return keyIsNeeded;
    }

private:
    [[nodiscard]] SvcPBESession *sessionFor(std::string_view section);
    void openCredentials(Part *part);
    void runReaders(Part *part, bool isOfChannel);

    KeyRing &keys;
    const CheckRules &rules;
    Keystore &general;
    KeySource keySource;
    size_t lineOfSource = 0;
    bool sourceIsReadable = true;
    bool keyIsNeeded = false;
    std::string problem;
    SvcPBESession closedSession = {};
};

} // namespace vekctl

#endif
