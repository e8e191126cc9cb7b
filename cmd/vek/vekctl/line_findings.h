/*
 * line_findings.h - what is to be said of one line without looking at the others.
 */
#ifndef VEKCTL_LINE_FINDINGS_H
#define VEKCTL_LINE_FINDINGS_H

#include "vekctl/file_text.h"
#include "vekctl/findings.h"

#include <optional>
#include <vector>

namespace vekctl {

// Appends the findings of a line: characters and forms that are no settings, comments with
// credentials, and keys that no reader knows. What readers refuse is told by refusedLine.
void findInLine(const Line &line, const Reading &reading, std::vector<Finding> *findings);

// Appends what concerns the text as a whole: a byte order mark, a NUL.
void findInText(const FileText &text, std::vector<Finding> *findings);

// What is said of a line that the readers refuse, and of a file without a setting (the line is
// Line{}).
[[nodiscard]] Finding refusedLine(const Line &line, Refusal refusal);

// The first such line of a text that the readers cannot use. What the line was meant to be, where
// that can be told, says more than why it is refused.
[[nodiscard]] std::optional<Finding> findRefusedLine(const FileText &text);

} // namespace vekctl

#endif
