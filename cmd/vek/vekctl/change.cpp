/*
 * change.cpp - opens files, chooses their key, and carries plans out.
 */
#include "vekctl/change.h"

#include "vekctl/key_file_look.h"
#include "ztsvc.h"

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>

namespace vekctl {
namespace {

constexpr char NO_KEY[] =
    "there is no key; name its file with --key, or make one with 'vekctl keygen "
    "FILE' (--key built-in uses the one that everybody has who has this program)";

Secret keyOf(CipherSession *session) {
    const SvcPBESession *const record = session->record();
    return Secret(
        {reinterpret_cast<const char *>(record->key), static_cast<size_t>(record->keyLength)});
}

std::string listOfKeys(const std::vector<Deed> &deeds) {
    std::set<std::string> told;
    std::string list;
    for (const Deed &deed : deeds)
        if (roleOfKey(deed.key).role != KeyRole::marker && told.insert(deed.key).second)
            list += (list.empty() ? "" : ", ") + deed.key;
    return list;
}

} // namespace

bool isSameKey(CipherSession *one, CipherSession *other) {
    return keyOf(one).equals(keyOf(other).view());
}

std::string absolutePath(const std::string &path) {
    return std::filesystem::absolute(path).lexically_normal();
}

void addChangeOptions(Command *command, ChangeOptions *options) {
    command->dryRun(&options->dryRun);
    command->flag("--break-links", &options->breakLinks,
                  "replace a file with a second hard link under this name only");
}

bool Change::open(const std::string &path, OpenedFile *file) {
    SafeReplacement &replacement = file->replacement;
    Secret content;
    bool isRead =
        replacement.open(path, {.breakLinks = options.breakLinks, .dryRun = options.dryRun});
    if (isRead) {
        content.resize(replacement.size());
        isRead = replacement.read({content.data(), content.size()});
    }
    if (!isRead) {
        told.problem(replacement.problem());
        return false;
    }
    FileText text;
    text.take(std::move(content));
    return take(std::move(text), &file->lines);
}

bool Change::take(FileText text, CredentialLines *lines) {
    if (lines->take(std::move(text)))
        return true;
    const Problem &problem = lines->problem();
    told.problem(problem.text, problem.line, problem.key);
    return false;
}

CipherSession *Change::session(const KeySource &source, size_t line) {
    CipherSession &session = keys.session(source);
    if (session.reason() == SVC_PBE_OK)
        return &session;
    told.unusable(session, line);
    return nullptr;
}

CipherSession *Change::sessionFor(const CredentialLines &lines) {
    const KeySource source = options.common.keySource(lines.keyFile());
    if (source.isBuiltIn() && !options.builtIn && !options.common.key) {
        told.problem(NO_KEY);
        keyIsMissing = true;
        return nullptr;
    }
    CipherSession *const found = session(source, lines.keyFileLine().number);
    return found != nullptr && checkNamedKey(lines, found) ? found : nullptr;
}

bool Change::mayHold(const KeySource &source, CipherSession *session) {
    CipherSession &other = keys.session(source);
    return other.reason() != SVC_PBE_OK || isSameKey(session, &other);
}

void Change::tellOfKey(const CredentialLines &lines, const std::string &named,
                       CipherSession *session, const char *option, bool holdsValues) {
    const KeySource chosen = chooseKeySource(
        /* option= */ nullptr, named.empty() ? lines.keyFile() : absolutePath(named));
    CipherSession &found = keys.session(chosen);
    const bool isUsable = found.reason() == SVC_PBE_OK;
    const bool isFound = !holdsValues || (isUsable && isSameKey(session, &found));
    told.json()["found"] = isFound;
    tellOfFlaws(session->source());
    const KeySource ofFile = {KeyOrigin::section, lines.keyFile()};
    if (isFound && chosen.origin == KeyOrigin::environment && !ofFile.path.empty() &&
        !mayHold(ofFile, session))
        told.note(ofFile.describe() + " is another one: the readers need " +
                  vek::KEY_FILE_VARIABLE + " as it is here");
    if (isFound)
        return;
    if (!isUsable && !named.empty() && options.common.quiet && !options.common.json)
        told.problem(found.problem() + "; the readers need the key there");
    else if (!isUsable)
        told.note(found.problem() + "; the readers need the key there");
    else if (chosen.isBuiltIn())
        told.note("the readers need " + std::string(vek::KEY_FILE_VARIABLE) +
                  " or vekcred.keyfile to find the key; " + option + " writes the latter");
    else
        told.note(chosen.describe() + " holds another key; the readers need this one there" +
                  (chosen.origin == KeyOrigin::section
                       ? std::string(", or run again with ") + option
                       : ""));
}

void Change::tellOfFlaws(const KeySource &source) {
    if (!flawsAreTold)
        for (const Finding &finding : lookAtKey(source).findings)
            told.finding(finding);
    flawsAreTold = true;
}

void Change::tellOfClear(const CredentialLines &lines, const CredentialName *changed) {
    for (const KeyLine &line : lines.credentials())
        if (!line.isStored() && !lines.mayBeWrittenMarker(line) &&
            (changed == nullptr || !(line.name == *changed)))
            told.note("stands in clear as before; vekctl protect encrypts it", line.line.number,
                      line.name.key());
}

// Values under another key than the one that the file names would be lost to the readers. A named
// file that is not here belongs to the host that the file is made for.
bool Change::checkNamedKey(const CredentialLines &lines, CipherSession *session) {
    if (!options.common.key || lines.keyFile().empty() || options.nameKey ||
        svcIsEnvironment(vek::KEY_FILE_VARIABLE) != 0 ||
        mayHold({KeyOrigin::section, lines.keyFile()}, session))
        return true;
    told.problem("names another key than --key; leave --key away, or use vekctl rekey",
                 lines.keyFileLine().number, KEY_FILE_KEY);
    return false;
}

Outcome Change::refuse(const ChangePlan &plan) {
    const Problem &problem = plan.problem();
    told.problem(problem.text, problem.line, problem.key);
    return Outcome::failed;
}

bool Change::prove(ChangePlan *plan, const Secret &text) {
    if (plan->prove(text)) {
        tellDeeds(*plan);
        return true;
    }
    (void)refuse(*plan);
    return false;
}

void Change::tellDeeds(const ChangePlan &plan) {
    if (options.common.json)
        for (const Deed &deed : plan.deeds())
            told.json()["changes"].push_back(
                {{"line", deed.line}, {"key", shown(deed.key)}, {"change", deed.text}});
    else if (options.dryRun)
        for (const Deed &deed : plan.deeds())
            told.note("would change: " + deed.key + ": " + deed.text);
}

Outcome Change::carryOut(OpenedFile *file, ChangePlan *plan) {
    if (plan->isNothing()) {
        told.note("nothing to do");
        return Outcome::already;
    }
    // Without the old text its values would open with no key.
    const std::vector<std::string> keyFiles = keys.files();
    if (std::ranges::any_of(
            keyFiles, [file](const std::string &path) { return file->replacement.isFile(path); })) {
        told.problem("it is the file of an initial key itself; name another key file");
        return Outcome::failed;
    }
    const Secret text = plan->text();
    if (!prove(plan, text))
        return Outcome::failed;
    if (options.dryRun)
        return Outcome::changed;
    if (!file->replacement.replaceWith(text.view())) {
        told.problem(file->replacement.problem());
        told.json().erase("changes");
        return Outcome::failed;
    }
    const std::string changed = listOfKeys(plan->deeds());
    if (!options.common.json)
        told.note("changed: " + (changed.empty() ? "markers" : changed));
    return Outcome::changed;
}

} // namespace vekctl
