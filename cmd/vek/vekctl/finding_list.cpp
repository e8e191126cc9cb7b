/*
 * finding_list.cpp - keeps the first findings by line and counts the rest.
 */
#include "vekctl/finding_list.h"

#include <algorithm>
#include <iterator>

namespace vekctl {

namespace {

// What belongs to no line (0) comes last: a line may be its cause.
size_t placeOf(const Finding &finding) {
    return finding.line - 1;
}

} // namespace

void FindingList::keep(Finding finding) {
    // What stands behind a colon in a key may be a value.
    finding.key.resize(std::min(finding.key.size(), finding.key.find(':')));
    std::vector<Finding> &listed = finding.level == Level::error ? errors : warnings;
    listed.push_back(std::move(finding));
    if (listed.size() == 2 * LISTED_LIMIT)
        shorten(&listed);
}

std::vector<Finding> FindingList::take(size_t *unlisted) {
    shorten(&errors);
    shorten(&warnings);
    *unlisted = left;
    std::vector<Finding> findings;
    std::ranges::merge(errors, warnings, std::back_inserter(findings), {}, placeOf, placeOf);
    return findings;
}

void FindingList::shorten(std::vector<Finding> *listed) {
    std::ranges::stable_sort(*listed, {}, placeOf);
    const size_t size = listed->size();
    listed->resize(std::min(size, LISTED_LIMIT));
    left += size - listed->size();
}

} // namespace vekctl
