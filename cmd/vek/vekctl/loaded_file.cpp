/*
 * loaded_file.cpp - reads a file for a command that asks for one thing in it.
 */
#include "vekctl/loaded_file.h"

#include "vekctl/line_findings.h"

namespace vekctl {

bool LoadedFile::load(const std::string &path, Report *report) {
    if (!text.read(path)) {
        report->problem(text.problem());
        return false;
    }
    if (const auto refused = findRefusedLine(text); refused) {
        report->problem(refused->detail, refused->line, refused->key);
        return false;
    }
    for (Line line; text.next(&line);)
        keystore.add(line, readLine(line));
    return true;
}

bool LoadedFile::findSource(const CommonOptions &options, Report *report, KeySource *source) {
    const NamedKeyFile named = keystore.keyFile();
    if (named.code != SZTU_OK && !options.key) {
        report->problem(textOf(duplicateKey(named.line, KEY_FILE_KEY, named.firstLine)), named.line,
                        KEY_FILE_KEY);
        return false;
    }
    *source = options.keySource(named.path);
    return true;
}

std::unique_ptr<CipherSession> LoadedFile::openSession(const CommonOptions &options,
                                                       std::string_view section, Report *report) {
    KeySource source;
    if (!findSource(options, report, &source))
        return nullptr;
    const bool readerWantsFips = section != vek::CRL_SECTION && keystore.wantsFips(section);
    auto session = std::make_unique<CipherSession>(source, options.fips || readerWantsFips);
    if (session->reason() == SVC_PBE_OK)
        return session;
    report->unusable(*session, keystore.keyFile().line);
    return nullptr;
}

} // namespace vekctl
