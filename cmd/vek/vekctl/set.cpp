/*
 * set.cpp - the command that stores one credential, encrypted, with its marker.
 */
#include "vekctl/change.h"
#include "vekctl/suggestion.h"
#include "vekctl/typed_value.h"

#include <algorithm>

namespace vekctl {
namespace {

struct SetOptions : ChangeOptions {
    std::string file;
    std::string key;
};

std::string meant(const std::string &key) {
    std::vector<std::string> known;
    for (const vek::Credential &row : vek::CREDENTIALS)
        known.emplace_back(row.key);
    const std::string candidate = nearest(key, known);
    return candidate.empty() ? "" : "; did you mean '" + candidate + "'?";
}

class Set {
public:
    explicit Set(const SetOptions &options) : options_(options), change_("set", options) {}

    int run() {
        const int status = change_.report().overFiles(
            {options_.file}, [this](const std::string &path) { return set(path); });
        return usageIsWrong_ ? STATUS_USAGE : change_.status(status);
    }

private:
    Outcome set(const std::string &path) {
        if (!checkKey())
            return Outcome::failed;
        OpenedFile file;
        if (!change_.open(path, &file))
            return Outcome::failed;
        CipherSession *const session = change_.sessionFor(file.lines);
        if (session == nullptr)
            return Outcome::failed;
        ChangePlan plan(file.lines, *session);
        if (!plan.checkDuplicates() || !keepOthers(file.lines, &plan, session))
            return change_.refuse(plan);
        Secret value;
        if (!takeNewValue(&value))
            return Outcome::failed;
        if (!planValue(file.lines, &plan, std::move(value)))
            return change_.refuse(plan);
        return change_.carryOut(&file, &plan);
    }

    bool checkKey() {
        NamedKey named = roleOfKey(options_.key);
        if (named.role != KeyRole::credential) {
            change_.report().problem("is no credential that a reader knows" + meant(options_.key) +
                                         "; they are crl.ldap.pass, pem.password, "
                                         "pem.password.channel.NAME (at most 20 characters) and "
                                         "pkcs11.token_pin",
                                     /* line= */ 0, shown(options_.key));
            usageIsWrong_ = true;
            return false;
        }
        name_ = std::move(named.name);
        return true;
    }

    // One file, one key: what is there already must open.
    bool keepOthers(const CredentialLines &lines, ChangePlan *plan, CipherSession *session) {
        for (const KeyLine &line : lines.credentials()) {
            Secret opened;
            if (line.name == name_)
                continue;
            if (line.isStored() && !plan->open(line, *session, &opened))
                return false;
            plan->leave(line);
        }
        return true;
    }

    bool takeNewValue(Secret *value) {
        std::string problem = takeValue("Value of " + options_.key, value);
        if (problem.empty() && value->size() > name_.row->capacity)
            problem = "the value is too long for the field of its reader; nothing was changed";
        if (problem.empty())
            return true;
        change_.report().problem(problem, /* line= */ 0, options_.key);
        return false;
    }

    // The rest of a line with a clear value may be a part of that value, so it goes as well.
    bool planValue(const CredentialLines &lines, ChangePlan *plan, Secret value) {
        const auto &all = lines.credentials();
        const auto line = std::find_if(all.begin(), all.end(),
                                       [&](const KeyLine &each) { return each.name == name_; });
        if (line == all.end())
            return plan->storeNew(name_, std::move(value));
        const Tail tail = line->isStored() ? Tail::stays : Tail::goes;
        if (!plan->store(*line, std::move(value), "stored", tail))
            return false;
        plan->mark(*line);
        return true;
    }

    const SetOptions &options_;
    Change change_;
    CredentialName name_;
    bool usageIsWrong_ = false;
};

} // namespace

void addSet(Program &program) {
    const auto options = std::make_shared<SetOptions>();
    Command command(program, "set",
                    "Stores one credential, from the terminal or from standard input.");
    command.commonOptions(&options->common);
    command.operand("FILE", &options->file, Need::required, "the file");
    command.operand("KEY", &options->key, Need::required,
                    "the whole key, such as pem.password.channel.TO.HUB");
    command.flag("--built-in", &options->builtIn, "allow the built-in key, which is no secret");
    addChangeOptions(&command, options.get());
    command.work([options] { return Set(*options).run(); });
}

} // namespace vekctl
