/*
 * verdict.h - what is to be said of the text of one file.
 *
 * For every file: an error whose matter is reading is found exactly when a reader of a section or a
 * channel that the file has fails, or hands its program an encrypted or a cut text. "Not there" is
 * no failure: a section without entries, or a channel without keys of its own.
 */
#ifndef VEKCTL_VERDICT_H
#define VEKCTL_VERDICT_H

#include "vekctl/file_text.h"
#include "vekctl/findings.h"
#include "vekctl/key.h"

#include <vector>

namespace vekctl {

struct CheckRules {
    bool opens = true;                      // false: values are not opened, and no key is needed
    const std::string *keyOption = nullptr; // the argument of --key, or null
};

// How many findings of each level are listed for one file. A file of a log, or of anything else,
// then costs no more memory than its text.
inline constexpr size_t LISTED_LIMIT = 1000;

struct Verdict {
    std::vector<Finding> findings; // by line
    size_t unlistedErrors = 0;     // that came behind the last one listed
    size_t unlistedWarnings = 0;
    bool holdsClearText = false; // a credential stands in clear
    KeySource source;            // the key that serves the file
    size_t sourceLine = 0;       // where the file names it, or 0
};

[[nodiscard]] Verdict judge(const FileText &text, KeyRing &keys, const CheckRules &rules);

// Whether a finding is an error of reading.
[[nodiscard]] bool isReadingError(const Finding &finding);

} // namespace vekctl

#endif
