/*
 * findings.cpp - the table of findings.
 */
#include "vekctl/findings.h"

#include <algorithm>
#include <iterator>

namespace vekctl {

namespace {

constexpr Level ERROR = Level::error;
constexpr Level WARNING = Level::warning;
constexpr Matter READING = Matter::reading;
constexpr Matter SAFETY = Matter::safety;

constexpr FindingKind KINDS[] = {
    {Code::unreadable, "unreadable", ERROR, READING, "the file cannot be read"},
    {Code::unparsable, "unparsable", ERROR, READING, "the readers refuse the whole file"},
    {Code::notText, "not-text", ERROR, SAFETY,
     "the readers take this otherwise than its author meant it"},
    {Code::clear, "clear", ERROR, SAFETY, "stands in clear"},
    {Code::keptClear, "kept-clear", ERROR, READING,
     "stands in clear behind a marker that says YES"},
    {Code::ambiguous, "ambiguous", ERROR, SAFETY,
     "stands in clear, and runvekcred takes another value than the readers"},
    {Code::unmarked, "unmarked", ERROR, READING,
     "is encrypted, but no marker that its reader looks at says YES: the program is given the "
     "encrypted text; vekctl protect sets the marker"},
    {Code::notFound, "not-found", ERROR, SAFETY,
     "is not found by its reader: the blank in front of \"=\" belongs to the key; remove it"},
    {Code::duplicate, "duplicate", ERROR, READING,
     "stands more than once, so its reader fails; keep one of the lines"},
    {Code::badMarker, "bad-marker", ERROR, READING,
     "is a marker that says neither YES nor NO; vekctl protect sets it"},
    {Code::otherKey, "other-key", ERROR, READING,
     "does not open: it was encrypted with another key, or changed"},
    {Code::damaged, "damaged", ERROR, READING,
     "is no encrypted value although its marker says YES; vekctl set stores it anew"},
    {Code::tooLong, "too-long", ERROR, READING,
     "is longer than its reader's field, or than what can be encrypted"},
    {Code::noKey, "no-key", ERROR, READING, "the readers have no initial key"},
    {Code::reader, "reader", ERROR, READING, "the reader of the section fails"},
    {Code::lookAlike, "look-alike", ERROR, SAFETY,
     "only begins like a credential or a marker; runvekcred takes it for one; correct or remove "
     "it"},
    {Code::unknownKey, "unknown-key", WARNING, SAFETY,
     "is known to no reader; correct or remove it"},
    {Code::comment, "comment", WARNING, SAFETY,
     "a comment holds what looks like a credential in clear; remove it"},
    {Code::strayMarker, "stray-marker", WARNING, SAFETY,
     "is a marker that no reader looks at, or of no credential; remove it"},
    {Code::builtInKey, "built-in-key", WARNING, SAFETY,
     "opens with the built-in key, which everybody has who has this program; vekctl rekey --from "
     "built-in changes it"},
    {Code::keyMode, "key-mode", WARNING, SAFETY,
     "others can read the key file, or change it; chmod 600 takes that away"},
    {Code::keyOwner, "key-owner", WARNING, SAFETY,
     "the key file belongs to neither root nor this user"},
    {Code::keyWeak, "key-weak", WARNING, SAFETY,
     "the key file holds a passphrase of less than 14 bytes; vekctl keygen makes a key"},
    {Code::keyForm, "key-form", WARNING, SAFETY,
     "the key file looks like a key with a flaw and counts as a passphrase"},
    {Code::fileMode, "file-mode", WARNING, SAFETY,
     "others can write the file, or read credentials in clear"},
    {Code::leftover, "leftover", WARNING, SAFETY,
     "a leftover lies beside the file, of a run that was killed, or an old copy, also an "
     "editor's; it may hold credentials in clear; remove it"},
};

// The table is in the order of the codes.
static_assert(std::ranges::all_of(KINDS, [](const FindingKind &kind) {
    return &kind - KINDS == static_cast<std::ptrdiff_t>(kind.code);
}));

} // namespace

std::span<const FindingKind> findingKinds() {
    return KINDS;
}

const FindingKind &kindOf(Code code) {
    return KINDS[static_cast<size_t>(code)];
}

const char *nameOf(Level level) {
    return level == Level::error ? "error" : "warning";
}

Finding duplicateKey(size_t line, std::string key, size_t firstLine) {
    return {Code::duplicate, Level::error, line, std::move(key),
            "the first one is line " + std::to_string(firstLine)};
}

std::string textOf(const Finding &finding) {
    const std::string text = kindOf(finding.code).text;
    return finding.detail.empty() ? text : text + ": " + finding.detail;
}

} // namespace vekctl
