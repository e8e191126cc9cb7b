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
    explicit Rekey(const RekeyOptions &options) : options_(options), change_("rekey", options) {}

    int run() {
        from_ = change_.session(chooseKeySource(&options_.from, ""));
        to_ = change_.session(chooseKeySource(&options_.to, ""));
        if (from_ == nullptr || to_ == nullptr)
            return STATUS_USAGE;
        if (isSameKey(from_, to_)) {
            change_.report().problem("--from and --to are the same key; nothing was changed");
            return STATUS_USAGE;
        }
        return change_.report().overFiles(options_.files,
                                          [this](const std::string &path) { return rekey(path); });
    }

private:
    Outcome rekey(const std::string &path) {
        OpenedFile file;
        if (!change_.open(path, &file))
            return Outcome::failed;
        ChangePlan plan(file.lines, *to_);
        if (!planValues(file.lines, &plan) ||
            (!options_.keyFile.empty() && !plan.nameKeyFile(absolutePath(options_.keyFile))))
            return change_.refuse(plan);
        const Outcome outcome = change_.carryOut(&file, &plan);
        if (outcome != Outcome::failed)
            tellOfTheRest(file.lines);
        return outcome;
    }

    void tellOfTheRest(const CredentialLines &lines) {
        for (const KeyLine &line : lines.credentials())
            if (!line.isStored() && !lines.mayBeWrittenMarker(line))
                change_.report().note("stands in clear as before; vekctl protect encrypts it",
                                      line.line.number, line.name.key());
        change_.tellOfKey(lines, options_.keyFile, to_, "--set-keyfile");
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
        if (!line.isStored() || to_->restore(line.reading.value, &clearText) == SVC_PBE_OK) {
            plan->leave(line);
            return true;
        }
        if (plan->isWrittenMarker(line, *from_)) {
            plan->remove(line, "stray marker removed");
            return true;
        }
        return plan->open(line, *from_, &clearText) &&
               plan->store(line, std::move(clearText), "encrypted with the new key", Tail::stays);
    }

    const RekeyOptions &options_;
    Change change_;
    CipherSession *from_ = nullptr;
    CipherSession *to_ = nullptr;
};

} // namespace

void addRekey(Program &program) {
    const auto options = std::make_shared<RekeyOptions>();
    Command command(program, "rekey", "Moves files to another initial key; may be run again.");
    command.commonOptions(&options->common);
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
