/*
 * finding_list.h - the findings of one file by line, of which so many are listed.
 */
#ifndef VEKCTL_FINDING_LIST_H
#define VEKCTL_FINDING_LIST_H

#include "vekctl/findings.h"

#include <vector>

namespace vekctl {

// How many findings of each level are listed for one file. A file of a log, or of anything else,
// then costs no more memory than its text.
inline constexpr size_t LISTED_LIMIT = 1000;

class FindingList {
public:
    void keep(Finding finding);

    // Hands over the first ones by line, errors and warnings together; `unlisted`: how many more.
    [[nodiscard]] std::vector<Finding> take(size_t *unlisted);

private:
    void shorten(std::vector<Finding> *listed);

    std::vector<Finding> errors;
    std::vector<Finding> warnings;
    size_t left = 0; // that are not listed
};

} // namespace vekctl

#endif
