/*
 * protect.cpp - the command that encrypts the clear credentials of a file, in a form that all
 * readers find and open.
 */
#include "vekctl/protect.h"

#include "vekctl/change.h"
#include "vekctl/known_keys.h"
#include "vekctl/line_findings.h"

#include <algorithm>

namespace vekctl {
namespace {

bool planCredential(ChangePlan *plan, const KeyLine &line, CipherSession *session) {
    Secret clearText;
    if (line.isStored()) {
        if (!plan->open(line, *session, &clearText) || !plan->checkLength(line, clearText))
            return false;
        plan->keep(line, std::move(clearText));
    } else if (!plan->takeClear(line, &clearText) ||
               !plan->store(line, std::move(clearText), "encrypted", Tail::stays)) {
        return false;
    }
    return true;
}

} // namespace

bool planProtection(const CredentialLines &lines, ChangePlan *plan, CipherSession *session) {
    if (!plan->checkLookAlikes() || !plan->checkDuplicates())
        return false;
    std::vector<const KeyLine *> credentials;
    for (const KeyLine &line : lines.credentials()) {
        if (plan->isWrittenMarker(line, *session)) {
            plan->remove(line, "stray marker removed");
            continue;
        }
        if (!planCredential(plan, line, session))
            return false;
        credentials.push_back(&line);
    }
    for (const KeyLine &marker : lines.markers())
        if (std::none_of(credentials.begin(), credentials.end(),
                         [&](const KeyLine *line) { return line->name == marker.name; }))
            plan->remove(marker, "stray marker removed");
    for (const KeyLine *const line : credentials)
        plan->mark(*line);
    for (const HiddenKey &hidden : lines.hiddenKeys())
        plan->show(hidden);
    return true;
}

namespace {

class Protect {
public:
    explicit Protect(const ChangeOptions &given) : options(given), change("protect", given) {}

    int run() {
        const int status = change.report().overFiles(
            options.files, [this](const std::string &path) { return protect(path); });
        return change.status(status);
    }

private:
    Outcome protect(const std::string &path) {
        OpenedFile file;
        if (!change.open(path, &file))
            return Outcome::failed;
        CipherSession *const session = change.sessionForCredentials(file.lines);
        if (session == nullptr)
            return Outcome::failed;
        ChangePlan plan(file.lines, *session);
        if (!planProtection(file.lines, &plan, session) || !nameKey(&plan))
            return change.refuse(plan);
        const Outcome outcome = change.carryOut(&file, &plan);
        if (outcome == Outcome::failed)
            return outcome;
        change.tellOfKey(file.lines, options.nameKey ? *options.common.key : "", session,
                         "--name-key", !file.lines.credentials().empty());
        return tellOfTheRest(file.lines) ? Outcome::findings : outcome;
    }

    // What was not encrypted and may be meant as a credential, and what is encrypted now with
    // quotes. True: there is an error.
    bool tellOfTheRest(const CredentialLines &lines) {
        bool isError = false;
        std::vector<Finding> findings;
        for (Line line; lines.next(&line);)
            findInLine(line, readLine(line), &findings);
        for (const Finding &finding : findings) {
            const bool isMeant =
                finding.level == Level::error &&
                (finding.code == Code::unknownKey || finding.code == Code::notText);
            const bool isQuoted =
                finding.code == Code::notText && findKey(finding.key).isCredential();
            if (isMeant && options.common.quiet && !options.common.json) // the status needs a word
                change.report().problem(textOf(finding), finding.line, finding.key);
            else if (isMeant || isQuoted || finding.code == Code::comment)
                change.report().finding(finding);
            isError = isError || isMeant;
        }
        return isError;
    }

    bool nameKey(ChangePlan *plan) const {
        return !options.nameKey || plan->nameKeyFile(absolutePath(*options.common.key));
    }

    const ChangeOptions &options;
    Change change;
};

} // namespace

void addProtect(Command &command) {
    const auto options = std::make_shared<ChangeOptions>();
    command.commonOptions(&options->common);
    command.operands("FILE", &options->files, Need::optional,
                     "the files; none: the standard place");
    command.flag("--built-in", &options->builtIn, "allow the built-in key, which is no secret");
    command.flag("--name-key", &options->nameKey, "let vekcred.keyfile name the file of --key");
    addChangeOptions(&command, options.get());
    command.work([options] {
        if (options->nameKey && (!options->common.key || *options->common.key == "built-in"))
            throw UsageError("--name-key needs --key and a file");
        return Protect(*options).run();
    });
}

} // namespace vekctl
