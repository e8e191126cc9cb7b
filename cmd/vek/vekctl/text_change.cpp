/*
 * text_change.cpp - puts the new text together from the old one and the changes.
 */
#include "vekctl/text_change.h"

#include "shared/line_words.h"

#include <algorithm>

namespace vekctl {
namespace {

// Key and value as a line; without the usual blank where the stripping rule would make it a part of
// the key.
Secret setting(const std::string &key, std::string_view value) {
    std::string padded = key + " ";
    char *stripped = padded.data();
    sztucStrip(&stripped);
    Secret line(key);
    line.append(stripped == key ? " = " : "= ");
    line.append(value);
    return line;
}

size_t blanksBehind(std::string_view text) {
    const auto end = std::find_if_not(text.rbegin(), text.rend(), vek::isBlank);
    return static_cast<size_t>(end - text.rbegin());
}

std::string_view between(const char *start, const char *end) {
    return {start, static_cast<size_t>(end - start)};
}

} // namespace

// `replaced` lies in the text of the file.
void TextChange::edit(std::string_view replaced, std::string_view inserted, bool isNewLine) {
    edits.push_back({static_cast<size_t>(replaced.data() - lines.text().data()), replaced.size(),
                     Secret(inserted), isNewLine});
}

void TextChange::showKey(const Reading &reading) {
    if (const size_t blanks = blanksBehind(reading.key); blanks > 0)
        edit(reading.key.substr(reading.key.size() - blanks), "");
}

void TextChange::replaceValue(const Line &line, const Reading &reading, std::string_view value,
                              Tail tail) {
    showKey(reading);
    const char *const end = line.text.data() + line.text.size();
    // What the readers take for a value may reach into the line end.
    const char *const valueEnd = std::min(reading.value.data() + reading.value.size(), end);
    edit(between(reading.value.data(), tail == Tail::stays ? valueEnd : end), value);
}

void TextChange::remove(const Line &line) {
    edit(between(line.text.data(), line.end.data() + line.end.size()), "");
}

void TextChange::insertBefore(const Line &line, const std::string &key, std::string_view value) {
    Secret inserted = setting(key, value);
    inserted.append(lines.endFor(line));
    edit(line.text.substr(0, 0), inserted.view());
}

// A file whose last line has no line end has none afterwards either.
void TextChange::insertBehind(const Line &line, const std::string &key, std::string_view value) {
    if (line.number == 0)
        return insertBehind(lastLine(), key, value);
    Secret inserted = setting(key, value);
    inserted.append(line.end);
    edit({line.end.data() + line.end.size(), 0}, inserted.view(), line.end.empty());
}

Line TextChange::lastLine() const {
    Line last;
    while (lines.next(&last)) {
    }
    return last;
}

Secret TextChange::text() const {
    std::vector<const Edit *> ordered;
    for (const Edit &edit : edits)
        ordered.push_back(&edit);
    // What is inserted at a place comes before what is removed from there on.
    std::stable_sort(ordered.begin(), ordered.end(), [](const Edit *one, const Edit *other) {
        return one->offset != other->offset ? one->offset < other->offset
                                            : one->removed == 0 && other->removed != 0;
    });
    const std::string_view old = lines.text();
    Secret result;
    size_t position = 0;
    for (const Edit *const edit : ordered) {
        result.append(old.substr(position, edit->offset - position));
        // The line in front may have been removed.
        if (edit->isNewLine && result.size() > 0 && !result.view().ends_with('\n'))
            result.append(lines.endFor(lastLine()));
        result.append(edit->inserted.view());
        position = edit->offset + edit->removed;
    }
    result.append(old.substr(position));
    return result;
}

} // namespace vekctl
