/*
 * findings.h - what check can find: one table of codes, levels and texts, which the manual page
 * repeats.
 */
#ifndef VEKCTL_FINDINGS_H
#define VEKCTL_FINDINGS_H

#include <cstddef>
#include <span>
#include <string>

namespace vekctl {

enum class Level { warning, error };

// Whom a finding concerns. An error of `reading` says that a reader fails, or hands its program a
// wrong text; where the reader does not come to the line, the same finding is a warning. An error
// of `safety` is one that the readers do not notice.
enum class Matter { reading, safety };

enum class Code {
    unreadable,
    unparsable,
    notText,
    clear,
    keptClear,
    ambiguous,
    unmarked,
    notFound,
    duplicate,
    badMarker,
    otherKey,
    damaged,
    tooLong,
    noKey,
    reader,
    lookAlike,
    unknownKey,
    comment,
    strayMarker,
    builtInKey,
    keyMode,
    keyOwner,
    keyWeak,
    keyForm,
    fileMode,
    leftover,
};

// One kind of finding.
struct FindingKind {
    Code code;
    const char *name; // as it stands in brackets behind a finding, and in JSON
    Level level;      // the one that it has when nothing lowers or raises it
    Matter matter;
    const char *text; // one sentence; behind the key's name where there is one
};

[[nodiscard]] std::span<const FindingKind> findingKinds();
[[nodiscard]] const FindingKind &kindOf(Code code);

// One finding in one file. No field holds a value, a part of one, or its length.
struct Finding {
    Code code = Code::clear;
    Level level = Level::error;
    size_t line = 0;    // 0: the whole file
    std::string key;    // may be empty
    std::string detail; // more than the kind's text says; may be empty
};

[[nodiscard]] const char *nameOf(Level level);

// A key that stands a second time, in `line`.
[[nodiscard]] Finding duplicateKey(size_t line, std::string key, size_t firstLine);

// What is said of a finding behind its file, line and key.
[[nodiscard]] std::string textOf(const Finding &finding);

} // namespace vekctl

#endif
