/*
 * key.h - the initial key that serves a file, and open cipher sessions.
 */
#ifndef VEKCTL_KEY_H
#define VEKCTL_KEY_H

#include "vekctl/secret.h"

#include "ztpbe.h"

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vekctl {

// Where an initial key comes from. --key wins over the three that the readers know.
enum class KeyOrigin { option, environment, section, builtIn };

struct KeySource {
    KeyOrigin origin = KeyOrigin::builtIn;
    std::string path; // empty for the built-in key

    [[nodiscard]] bool isBuiltIn() const {
        return origin == KeyOrigin::builtIn;
    }
    [[nodiscard]] std::string describe() const;
    auto operator<=>(const KeySource &) const = default;
};

// The source that serves a file. `option` is the argument of --key, null without one; the words
// "built-in" name the built-in key. `sectionPath` is the value of vekcred.keyfile in the file, ""
// without one.
[[nodiscard]] KeySource chooseKeySource(const std::string *option, const std::string &sectionPath);

// An open cipher session with its key and salt, all of it wiped at the end.
class CipherSession {
public:
    explicit CipherSession(const KeySource &source, bool fips);
    CipherSession(const CipherSession &) = delete;
    CipherSession &operator=(const CipherSession &) = delete;
    ~CipherSession();

    // 0, or why the session is not open: the key file cannot be used, or the service refuses.
    // Nothing but problem() may then be called.
    [[nodiscard]] uint32_t reason() const {
        return openReason;
    }
    // What happened and what to do, for a message.
    [[nodiscard]] std::string problem() const;
    [[nodiscard]] const KeySource &source() const {
        return keySource;
    }
    [[nodiscard]] SvcPBESession *record() {
        return &session;
    }

    // Replaces the text that tells the session's initial key from others, and may be shown. Result:
    // of svcPBEFingerprint.
    [[nodiscard]] uint32_t fingerprint(std::string *text);
    // Encrypts. Result: of svcPBESave.
    [[nodiscard]] uint32_t save(std::string_view clearText, std::string *storedText);
    // Decrypts; `clearText` is replaced. Result: of svcPBERestore.
    [[nodiscard]] uint32_t restore(std::string_view storedText, Secret *clearText);

private:
    KeySource keySource;
    SvcPBESession session = {};
    Secret builtInKey;
    Secret salt;
    uint32_t openReason = 0;
};

// The sessions of one run: each source is opened once, however many files it serves, so that a
// passphrase is stretched once.
class KeyRing {
public:
    explicit KeyRing(bool withFips) : fipsAlways(withFips) {}

    [[nodiscard]] CipherSession &session(const KeySource &source, bool fips = false);
    // The files of all keys that were asked for.
    [[nodiscard]] std::vector<std::string> files() const;

private:
    bool fipsAlways;
    std::map<std::pair<KeySource, bool>, std::unique_ptr<CipherSession>> sessions;
};

} // namespace vekctl

#endif
