/*
 * set.cpp - the command that stores one credential, encrypted, with its marker.
 */
#include "vekctl/change.h"
#include "vekctl/typed_value.h"

#include <algorithm>

namespace vekctl {
namespace {

struct SetOptions : ChangeOptions {
    std::string file;
    std::string key;
};

class Set {
public:
    explicit Set(const SetOptions &given)
        : options(given), change("set", given), name(credentialCalled(given.key)) {}

    int run() {
        const int status = change.report().overFiles(
            {options.file}, [this](const std::string &path) { return set(path); });
        return change.status(status);
    }

private:
    // The folder is not locked while somebody types, so the file is looked at before and after.
    Outcome set(const std::string &path) {
        Secret value;
        if (!isFit(path) || !takeNewValue(&value))
            return Outcome::failed;
        OpenedFile file;
        if (!change.open(path, &file))
            return Outcome::failed;
        CipherSession *const session = change.sessionFor(file.lines);
        if (session == nullptr)
            return Outcome::failed;
        ChangePlan plan(file.lines, *session);
        if (!isFit(file.lines, &plan, session) || !planValue(file.lines, &plan, std::move(value)))
            return change.refuse(plan);
        const Outcome outcome = change.carryOut(&file, &plan);
        if (outcome == Outcome::failed)
            return outcome;
        change.tellOfClear(file.lines, &name);
        change.tellOfKey(file.lines, /* named= */ "", session, "vekctl protect --name-key",
                         /* holdsValues= */ true);
        return outcome;
    }

    bool isFit(const std::string &path) {
        OpenedFile file;
        if (!change.open(path, &file))
            return false;
        CipherSession *const session = change.sessionFor(file.lines);
        if (session == nullptr)
            return false;
        ChangePlan plan(file.lines, *session);
        const bool fits = isFit(file.lines, &plan, session);
        if (!fits)
            (void)change.refuse(plan);
        return fits;
    }

    bool isFit(const CredentialLines &lines, ChangePlan *plan, CipherSession *session) const {
        return plan->checkLookAlikes() && plan->checkDuplicates() &&
               keepOthers(lines, plan, session);
    }

    // One file, one key: what is there already must open.
    bool keepOthers(const CredentialLines &lines, ChangePlan *plan, CipherSession *session) const {
        for (const KeyLine &line : lines.credentials()) {
            Secret opened;
            if (line.name == name)
                continue;
            if (line.isStored() && !plan->open(line, *session, &opened))
                return false;
            plan->leave(line);
        }
        return true;
    }

    bool takeNewValue(Secret *value) {
        std::string problem = takeValue("Value of " + shown(options.key), value);
        if (problem.empty() && value->size() > name.row->capacity)
            problem = "the value is longer than the " + std::to_string(name.row->capacity) +
                      " bytes of its reader's field; use a shorter one; nothing was changed";
        if (problem.empty())
            return true;
        change.report().problem(problem, /* line= */ 0, options.key);
        return false;
    }

    // The rest of a line with a clear value may be a part of that value, so it goes as well.
    bool planValue(const CredentialLines &lines, ChangePlan *plan, Secret value) {
        const auto &all = lines.credentials();
        const auto line = std::find_if(all.begin(), all.end(),
                                       [&](const KeyLine &each) { return each.name == name; });
        if (line == all.end())
            return plan->storeNew(name, std::move(value));
        const Tail tail = line->isStored() ? Tail::stays : Tail::goes;
        if (!plan->store(*line, std::move(value), "stored", tail))
            return false;
        plan->mark(*line);
        return true;
    }

    const SetOptions &options;
    Change change;
    CredentialName name;
};

} // namespace

void addSet(Command &command) {
    const auto options = std::make_shared<SetOptions>();
    command.commonOptions(&options->common);
    command.operand("FILE", &options->file, Need::required, "the file");
    command.operand("KEY", &options->key, Need::required,
                    "the whole key, such as pem.password.channel.TO.HUB");
    command.flag("--built-in", &options->builtIn, "allow the built-in key, which is no secret");
    addChangeOptions(&command, options.get());
    command.work([options] { return Set(*options).run(); });
}

} // namespace vekctl
