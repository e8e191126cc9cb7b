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
#include "vekctl/reader_trial.h"

#include <vector>

namespace vekctl {

struct Verdict {
    std::vector<Finding> findings; // by line
    size_t unlisted = 0;           // that came behind the last ones listed
    bool holdsClearText = false;   // a credential stands in clear
    KeySource source;              // the key that serves the file
    size_t sourceLine = 0;         // where the file names it, or 0
};

[[nodiscard]] Verdict judge(const FileText &text, KeyRing &keys, const CheckRules &rules);

// Whether a finding is an error of reading.
[[nodiscard]] bool isReadingError(const Finding &finding);

} // namespace vekctl

#endif
