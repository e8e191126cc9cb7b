/*
 * keyinfo.cpp - the command that tells which initial key is in force, and what is wrong with it.
 */
#include "vekctl/commands.h"
#include "vekctl/key_file_look.h"
#include "vekctl/loaded_file.h"

#include <memory>
#include <nlohmann/json.hpp>

namespace vekctl {

namespace {

struct Options {
    CommonOptions common;
    std::vector<std::string> files;
};

const char *nameOf(KeyOrigin origin) {
    switch (origin) {
    case KeyOrigin::option:
        return "--key";
    case KeyOrigin::environment:
        return vek::KEY_FILE_VARIABLE;
    case KeyOrigin::section:
        return "vekcred.keyfile";
    case KeyOrigin::builtIn:
        break;
    }
    return "built-in";
}

// A key that an option or the variable names is looked at without a file.
bool needsNoFile(const Options &options) {
    return options.files.empty() &&
           (options.common.key || svcIsEnvironment(vek::KEY_FILE_VARIABLE) != 0);
}

Outcome tellKey(const Options &options, const std::string &path, KeyRing &keys, Report &report) {
    LoadedFile file;
    KeySource source = options.common.keySource(/* sectionPath= */ "");
    if (!needsNoFile(options) &&
        (!file.load(path, &report) || !file.findSource(options.common, &report, &source)))
        return Outcome::failed;
    const KeyLook look = lookAtKey(source);
    CipherSession &session = keys.session(source);
    report.json()["source"] = nameOf(source.origin);
    report.json()["form"] = nameOf(look.form);
    if (!source.isBuiltIn())
        report.json()["path"] = shown(source.path);
    if (session.reason() != SVC_PBE_OK) {
        report.unusable(session, file.settings().keyFile().line);
        return Outcome::failed;
    }
    std::string fingerprint;
    const uint32_t reason = session.fingerprint(&fingerprint);
    if (reason != SVC_PBE_OK) {
        report.problem(std::string("the key has no fingerprint: ") + svcPBEReasonText(reason));
        return Outcome::failed;
    }
    report.json()["fingerprint"] = fingerprint;
    const std::string form =
        source.isBuiltIn() ? "which everybody has who has this program" : nameOf(look.form);
    report.note(source.describe() + ", " + form + ", fingerprint " + fingerprint);
    for (const Finding &finding : look.findings)
        report.finding(finding);
    return look.findings.empty() ? Outcome::clean : Outcome::findings;
}

} // namespace

void addKeyinfo(Command &command) {
    const auto options = std::make_shared<Options>();
    command.commonOptions(&options->common);
    command.operands("FILE", &options->files, Need::optional,
                     "keystore.conf; else the standard place");
    command.work([options] {
        Report report("keyinfo", options->common);
        KeyRing keys(options->common.fips);
        std::vector<std::string> files = options->files;
        if (needsNoFile(*options))
            files = {options->common.key ? *options->common.key : getenv(vek::KEY_FILE_VARIABLE)};
        return report.overFiles(
            files, [&](const std::string &path) { return tellKey(*options, path, keys, report); });
    });
}

} // namespace vekctl
