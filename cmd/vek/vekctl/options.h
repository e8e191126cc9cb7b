/*
 * options.h - what all commands share on the command line.
 */
#ifndef VEKCTL_OPTIONS_H
#define VEKCTL_OPTIONS_H

#include "vekctl/key.h"

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace vekctl {

// Arguments that do not go together, or name nothing of ours; the work of a command throws it. An
// argument that may be a secret is not repeated in the text.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Exit statuses.
enum Status : int { STATUS_WELL = 0, STATUS_FINDINGS = 1, STATUS_USAGE = 2 };

struct CommonOptions {
    std::optional<std::string> key; // --key
    bool json = false;
    bool quiet = false;
    bool fips = false;

    [[nodiscard]] KeySource keySource(const std::string &sectionPath) const {
        return chooseKeySource(key ? &*key : nullptr, sectionPath);
    }
};

} // namespace vekctl

#endif
