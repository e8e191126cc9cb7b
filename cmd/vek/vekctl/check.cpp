/*
 * check.cpp - the command that tells whether the readers get every credential, and whether it is
 * safe.
 */
#include "vekctl/commands.h"
#include "vekctl/key_file_look.h"
#include "vekctl/report.h"
#include "vekctl/safe_replacement.h"
#include "vekctl/verdict.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>

namespace vekctl {

namespace {

struct Options {
    CommonOptions common;
    std::vector<std::string> files;
    bool strict = false;
    bool noOpen = false;
};

class Check {
public:
    explicit Check(const Options &given)
        : options(given), report("check", given.common), keys(given.common.fips) {}

    int run() {
        return report.overFiles(options.files,
                                [this](const std::string &path) { return check(path); });
    }

private:
    Outcome check(const std::string &path) {
        FileText text;
        Verdict verdict;
        if (text.read(path)) {
            verdict = judge(text, keys,
                            {.opens = !options.noOpen,
                             .keyOption = options.common.key ? &*options.common.key : nullptr});
            lookAtKeyFile(&verdict);
            if (path != "-")
                lookAtFile(path, &verdict);
        } else {
            verdict.findings = {{Code::unreadable, Level::error, 0, "", text.problem()}};
        }
        for (const Finding &finding : verdict.findings)
            report.finding(finding);
        if (verdict.findings.empty() && options.files.size() <= 1)
            report.note(
                options.noOpen
                    ? "no findings in the text; no value was opened"
                    : "no findings: every credential is encrypted, and opens for this user");
        if (verdict.unlisted > 0) {
            report.json()["unlisted"] = verdict.unlisted;
            report.note(std::to_string(verdict.unlisted) + " more findings are not listed");
        }
        const Level counted = options.strict ? Level::warning : Level::error;
        const bool isFound = std::ranges::any_of(
            verdict.findings, [&](const Finding &finding) { return finding.level >= counted; });
        return isFound ? Outcome::findings : Outcome::clean;
    }

    // What is said of a key file stands at the line that names it.
    void lookAtKeyFile(Verdict *verdict) {
        if (options.noOpen)
            return;
        auto [known, isNew] = looks.try_emplace(verdict->source);
        if (isNew)
            known->second = lookAtKey(verdict->source);
        for (Finding finding : known->second.findings) {
            finding.line = verdict->source.origin == KeyOrigin::section ? verdict->sourceLine : 0;
            verdict->findings.push_back(std::move(finding));
        }
    }

    static void lookAtFile(const std::string &path, Verdict *verdict) {
        struct stat status = {};
        if (stat(path.c_str(), &status) != 0)
            return;
        const auto add = [&](Code code, const std::string &detail) {
            verdict->findings.push_back({code, Level::warning, 0, "", detail});
        };
        if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0)
            add(Code::fileMode, "they can write it; chmod go-w takes that away");
        else if (verdict->holdsClearText && (status.st_mode & S_IROTH) != 0)
            add(Code::fileMode, "they can read a credential; chmod o-r takes that away");
        // vekctl replaces what a link names, runvekcred the link.
        std::error_code error;
        const bool isLink = std::filesystem::is_symlink(path, error);
        const std::string target = isLink ? std::filesystem::canonical(path, error).string() : path;
        const std::filesystem::path name = path;
        const std::string swap = name.parent_path() / ("." + name.filename().string() + ".swp");
        for (const std::string &beside : {path + ".bak", temporaryPathOf(target), path + "~", swap})
            if (access(beside.c_str(), F_OK) == 0)
                add(Code::leftover, shown(beside));
    }

    const Options &options;
    Report report;
    KeyRing keys;
    std::map<KeySource, KeyLook> looks;
};

} // namespace

void addCheck(Command &command) {
    const auto options = std::make_shared<Options>();
    command.commonOptions(&options->common);
    command.operands("FILE", &options->files, Need::optional,
                     "keystore.conf, or \"-\"; else the standard place");
    command.flag("--strict", &options->strict, "warnings count for the exit status");
    command.flag("--no-open", &options->noOpen, "look at the text only; no key is needed");
    command.work([options] { return Check(*options).run(); });
}

} // namespace vekctl
