/*
 * loaded_file.h - a keystore.conf that the readers accept, with its settings and its cipher
 * session.
 */
#ifndef VEKCTL_LOADED_FILE_H
#define VEKCTL_LOADED_FILE_H

#include "vekctl/keystore.h"
#include "vekctl/options.h"
#include "vekctl/report.h"

#include <memory>

namespace vekctl {

class LoadedFile {
public:
    // Reads and parses the file. False: the report has been told why.
    [[nodiscard]] bool load(const std::string &path, Report *report);

    // The key that serves the file. False: the report has been told why there is none.
    [[nodiscard]] bool findSource(const CommonOptions &options, Report *report, KeySource *source);

    // Opens the session that the readers of a section use. Null: the report has been told why.
    [[nodiscard]] std::unique_ptr<CipherSession>
    openSession(const CommonOptions &options, std::string_view section, Report *report);

    [[nodiscard]] Keystore &settings() {
        return keystore;
    }

private:
    FileText text;
    Keystore keystore;
};

} // namespace vekctl

#endif
