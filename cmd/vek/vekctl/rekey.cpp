/*
 * rekey.cpp - the command that moves files from one initial key to another. The new key is tried
 * first, so a run that was stopped is finished by starting it again.
 */
#include "vekctl/change.h"

namespace vekctl {
namespace {

struct RekeyOptions : ChangeOptions {
    std::string from;
    std::string to;
    std::string keyFile; // --set-keyfile
};

class Rekey {
public:
    explicit Rekey(const RekeyOptions &given) : options(given), change("rekey", given) {}

    int run() {
        from = change.session(chooseKeySource(&options.from, ""));
        to = change.session(chooseKeySource(&options.to, ""));
        if (from == nullptr || to == nullptr)
            return STATUS_USAGE;
        if (isSameKey(from, to)) {
            change.report().problem("--from and --to are the same key; nothing was changed");
            return STATUS_USAGE;
        }
        if (!options.keyFile.empty() && !change.mayHold({KeyOrigin::option, options.keyFile}, to)) {
            change.report().problem(
                "--set-keyfile names another key than --to; nothing was changed");
            return STATUS_USAGE;
        }
        return change.report().overFiles(options.files,
                                         [this](const std::string &path) { return rekey(path); });
    }

private:
    Outcome rekey(const std::string &path) {
        OpenedFile file;
        if (!change.open(path, &file))
            return Outcome::failed;
        ChangePlan plan(file.lines, *to);
        if (!planValues(file.lines, &plan) ||
            (!options.keyFile.empty() && !plan.nameKeyFile(absolutePath(options.keyFile))))
            return change.refuse(plan);
        const Outcome outcome = change.carryOut(&file, &plan);
        if (outcome == Outcome::failed)
            return outcome;
        change.tellOfClear(file.lines);
        change.tellOfKey(file.lines, options.keyFile, to, "--set-keyfile",
                         !file.lines.credentials().empty());
        return outcome;
    }

    bool planValues(const CredentialLines &lines, ChangePlan *plan) {
        if (!plan->checkLookAlikes() || !plan->checkDuplicates())
            return false;
        for (const KeyLine &line : lines.credentials())
            if (!planValue(plan, line))
                return false;
        return true;
    }

    // A value in clear stays: this command changes keys, protect encrypts.
    bool planValue(ChangePlan *plan, const KeyLine &line) {
        Secret clearText;
        if (!line.isStored() || to->restore(line.reading.value, &clearText) == SVC_PBE_OK) {
            plan->leave(line);
            return true;
        }
        if (plan->isWrittenMarker(line, *from)) {
            plan->remove(line, "stray marker removed");
            return true;
        }
        return plan->open(line, *from, &clearText) &&
               plan->store(line, std::move(clearText), "encrypted with the new key", Tail::stays);
    }

    const RekeyOptions &options;
    Change change;
    CipherSession *from = nullptr;
    CipherSession *to = nullptr;
};

} // namespace

void addRekey(Command &command) {
    const auto options = std::make_shared<RekeyOptions>();
    command.commonOptions(&options->common, "refused: --from and --to name the keys");
    command.operands("FILE", &options->files, Need::optional,
                     "the files; none: the standard place");
    command.option("--from", "FILE", &options->from, Need::required,
                   "the old key file, or 'built-in'");
    command.option("--to", "FILE", &options->to, Need::required, "the new key file, or 'built-in'");
    command.option("--set-keyfile", "PATH", &options->keyFile, Need::optional,
                   "let vekcred.keyfile name this file in the same step");
    addChangeOptions(&command, options.get());
    command.work([options] {
        if (options->common.key)
            throw UsageError("rekey takes --from and --to in place of --key");
        return Rekey(*options).run();
    });
}

} // namespace vekctl
