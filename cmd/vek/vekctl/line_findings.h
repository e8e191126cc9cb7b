/*
 * line_findings.h - what is to be said of one line without looking at the others.
 */
#ifndef VEKCTL_LINE_FINDINGS_H
#define VEKCTL_LINE_FINDINGS_H

#include "vekctl/file_text.h"
#include "vekctl/findings.h"

#include <vector>

namespace vekctl {

// Appends the findings of a line: characters and forms that are no settings, comments with
// credentials, and keys that no reader knows. What readers refuse is told by refusalText.
void findInLine(const Line &line, const Reading &reading, std::vector<Finding> *findings);

// Appends what concerns the text as a whole: a byte order mark, a NUL.
void findInText(const FileText &text, std::vector<Finding> *findings);

// Why the readers refuse a line, and what to do.
[[nodiscard]] const char *refusalText(Refusal refusal);

} // namespace vekctl

#endif
