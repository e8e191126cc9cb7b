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
    Line line;
    while (text.next(&line)) {
        const Reading reading = readLine(line);
        if (reading.kind == LineKind::refused) {
            report->problem(std::string("the readers refuse this line, and with it the file: ") +
                                refusalText(reading.refusal),
                            line.number);
            return false;
        }
        keystore.add(line, reading);
    }
    if (!keystore.hasSetting())
        report->problem("the file has no setting at all");
    return keystore.hasSetting();
}

bool LoadedFile::findSource(const CommonOptions &options, Report *report, KeySource *source) {
    std::string keyFile;
    if (keystore.findKeyFile(&keyFile) != SZTU_OK && !options.key) {
        report->problem("stands more than once, so its reader fails; keep one of the lines",
                        /* line= */ 0, "vekcred.keyfile");
        return false;
    }
    *source = options.keySource(keyFile);
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
    report->problem(shown(session->problem()));
    return nullptr;
}

} // namespace vekctl
