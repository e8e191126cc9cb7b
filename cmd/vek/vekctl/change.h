/*
 * change.h - the way that every command takes which changes a file: open and read it, choose the
 * key, plan, prove, replace, and say what was done.
 */
#ifndef VEKCTL_CHANGE_H
#define VEKCTL_CHANGE_H

#include "vekctl/change_plan.h"
#include "vekctl/commands.h"
#include "vekctl/report.h"
#include "vekctl/safe_replacement.h"

namespace vekctl {

struct ChangeOptions {
    CommonOptions common;
    std::vector<std::string> files;
    bool dryRun = false;
    bool breakLinks = false;
    bool builtIn = false; // the built-in key is allowed
    bool nameKey = false; // vekcred.keyfile shall name the key of --key
};

// The options --dry-run and --break-links.
void addChangeOptions(Command *command, ChangeOptions *options);

// A file that may be replaced, and what it says.
struct OpenedFile {
    SafeReplacement replacement;
    CredentialLines lines;
};

// The functions that return bool or a pointer tell the report why when they fail.
class Change {
public:
    Change(const char *command, const ChangeOptions &given)
        : options(given), told(command, given.common), keys(given.common.fips) {}

    [[nodiscard]] Report &report() {
        return told;
    }

    [[nodiscard]] bool open(const std::string &path, OpenedFile *file);
    // Takes the text of a file.
    [[nodiscard]] bool take(FileText text, CredentialLines *lines);

    // The session for a key source, which the file may name in a line; null when the key cannot be
    // used.
    [[nodiscard]] CipherSession *session(const KeySource &source, size_t line = 0);
    // The session of the key that the readers of the file will use, or of --key; null when there is
    // none. Only the built-in key that was asked for is one.
    [[nodiscard]] CipherSession *sessionFor(const CredentialLines &lines);
    // The same for a command that needs no key where there is no credential; any session does then.
    [[nodiscard]] CipherSession *sessionForCredentials(const CredentialLines &lines) {
        return lines.credentials().empty() ? session({}) : sessionFor(lines);
    }
    // Says what is wrong with the key of the session, whether the readers choose it themselves, and
    // what they need when they do not. `named` is the key file that vekcred.keyfile names from now
    // on, "" for the one that it named before; `option` is the one that writes it. A file that
    // holds no value needs no key.
    void tellOfKey(const CredentialLines &lines, const std::string &named, CipherSession *session,
                   const char *option, bool holdsValues);
    // Tells of the credentials that stand in clear as before, but for `changed`.
    void tellOfClear(const CredentialLines &lines, const CredentialName *changed = nullptr);

    // Refuses with the plan's problem.
    [[nodiscard]] Outcome refuse(const ChangePlan &plan);
    // Proves the plan and replaces the file, unless there is nothing to do.
    [[nodiscard]] Outcome carryOut(OpenedFile *file, ChangePlan *plan);
    // Proves the plan and lists what it does in the document.
    [[nodiscard]] bool prove(ChangePlan *plan, const Secret &text);

    // Whether a key source has the key of a session, or cannot be looked at from here.
    [[nodiscard]] bool mayHold(const KeySource &source, CipherSession *session);

    // The exit status of a run: 2 when a file had no key.
    [[nodiscard]] int status(int ofFiles) const {
        return keyIsMissing ? STATUS_USAGE : ofFiles;
    }

private:
    [[nodiscard]] bool checkNamedKey(const CredentialLines &lines, CipherSession *session);
    void tellDeeds(const ChangePlan &plan);
    void tellOfFlaws(const KeySource &source);

    const ChangeOptions &options;
    Report told;
    KeyRing keys;
    bool keyIsMissing = false;
    bool flawsAreTold = false; // of the key, once a run
};

// Whether two sessions have the same initial key; takes as long in either case.
[[nodiscard]] bool isSameKey(CipherSession *one, CipherSession *other);

// The path of a key file as a program with any working folder finds it.
[[nodiscard]] std::string absolutePath(const std::string &path);

} // namespace vekctl

#endif
