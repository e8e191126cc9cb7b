/*
 * unprotect.cpp - the command that writes a file with its credentials in clear, and without
 * markers.
 */
#include "shared/held_back_signals.h"
#include "shared/new_bytes.h"
#include "vekctl/change.h"
#include "vekctl/error_text.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

namespace vekctl {
namespace {

struct UnprotectOptions : ChangeOptions {
    std::string output;
    bool inPlace = false;
    bool yes = false;
};

constexpr mode_t PRIVATE_MODE = 0600;

// A new file, of nobody else and for nobody else. Result: 0 or an error number.
int writeNewFile(const std::string &path, std::string_view text) {
    constexpr int FLAGS = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC;
    const replacement::HeldBackSignals signals;
    const ztm::Descriptor file(open(path.c_str(), FLAGS, PRIVATE_MODE));
    if (!file)
        return errno;
    int error = replacement::writeBytes(file.get(), text);
    if (error == 0 && fsync(file.get()) != 0)
        error = errno;
    if (signals.isPending())
        error = EINTR;
    if (error != 0)
        (void)unlink(path.c_str());
    return error;
}

bool planClearText(const CredentialLines &lines, ChangePlan *plan, CipherSession *session) {
    if (!plan->checkLookAlikes() || !plan->checkDuplicates())
        return false;
    for (const KeyLine &line : lines.credentials()) {
        Secret clearText;
        if (plan->isWrittenMarker(line, *session)) {
            plan->remove(line, "marker removed");
            continue;
        }
        const bool isTaken = line.isStored() ? plan->open(line, *session, &clearText)
                                             : plan->takeClear(line, &clearText);
        if (!isTaken || !plan->writeClear(line, std::move(clearText)))
            return false;
    }
    for (const KeyLine &marker : lines.markers())
        plan->remove(marker, "marker removed");
    return true;
}

class Unprotect {
public:
    explicit Unprotect(const UnprotectOptions &given)
        : options(given), change("unprotect", given) {}

    int run() {
        const int status = change.report().overFiles(
            options.files, [this](const std::string &path) { return unprotect(path); });
        return change.status(status);
    }

private:
    Outcome unprotect(const std::string &path) {
        OpenedFile file;
        if (!(options.inPlace ? change.open(path, &file) : read(path, &file.lines)))
            return Outcome::failed;
        CipherSession *const session = change.sessionForCredentials(file.lines);
        if (session == nullptr)
            return Outcome::failed;
        ChangePlan plan(file.lines, *session);
        if (!planClearText(file.lines, &plan, session))
            return change.refuse(plan);
        if (!options.inPlace)
            return writeOut(&plan);
        const Outcome outcome = change.carryOut(&file, &plan);
        if (outcome == Outcome::changed)
            tellOfMode(path);
        return outcome;
    }

    void tellOfMode(const std::string &path) {
        struct stat status = {};
        if (stat(path.c_str(), &status) == 0 && (status.st_mode & (S_IRGRP | S_IROTH)) != 0)
            change.report().note("others can read the file; chmod 600 takes that away");
    }

    // What is not replaced may lie anywhere.
    bool read(const std::string &path, CredentialLines *lines) {
        FileText text;
        if (text.read(path))
            return change.take(std::move(text), lines);
        change.report().problem(text.problem());
        return false;
    }

    Outcome writeOut(ChangePlan *plan) {
        const Secret text = plan->text();
        if (!change.prove(plan, text))
            return Outcome::failed;
        if (options.dryRun)
            return tryOutput();
        if (options.output.empty()) {
            const int error = replacement::writeBytes(STDOUT_FILENO, text.view());
            if (error == 0)
                return Outcome::clean;
            change.report().problem("standard output cannot be written: " + errorText(error));
            return Outcome::failed;
        }
        const int error = writeNewFile(options.output, text.view());
        return error == 0 ? Outcome::clean : refuseOutput(error);
    }

    Outcome tryOutput() {
        struct stat status = {};
        if (options.output.empty() || lstat(options.output.c_str(), &status) != 0)
            return Outcome::clean;
        return refuseOutput(EEXIST);
    }

    Outcome refuseOutput(int error) {
        change.report().problem("the output '" + options.output +
                                "' cannot be made: " + errorText(error));
        return Outcome::failed;
    }

    const UnprotectOptions &options;
    Change change;
};

void checkOptions(const UnprotectOptions &options) {
    if (options.inPlace != options.yes)
        throw UsageError(
            "--in-place and --yes need each other: the file will hold its credentials in clear");
    if (options.inPlace && !options.output.empty())
        throw UsageError("--output excludes --in-place");
    if (options.common.json && !options.inPlace && options.output.empty() && !options.dryRun)
        throw UsageError("--json needs --output or --in-place");
}

} // namespace

void addUnprotect(Command &command) {
    const auto options = std::make_shared<UnprotectOptions>();
    command.commonOptions(&options->common);
    command.operands("FILE", &options->files, Need::optional, "the file; none: the standard place",
                     /* most= */ 1);
    command.option("--output", "FILE", &options->output, Need::optional,
                   "a new file; else, and for \"-\", standard output");
    command.flag("--in-place", &options->inPlace, "change the file itself; needs --yes");
    command.flag("--yes", &options->yes, "yes, leave the credentials in clear in the file");
    addChangeOptions(&command, options.get());
    options->builtIn = true; // opening with it tells nobody anything
    command.work([options] {
        if (options->output == "-")
            options->output.clear();
        checkOptions(*options);
        return Unprotect(*options).run();
    });
}

} // namespace vekctl
