/*
 * text_change.h - changes single lines of a keystore.conf; every other byte stays as it is.
 */
#ifndef VEKCTL_TEXT_CHANGE_H
#define VEKCTL_TEXT_CHANGE_H

#include "vekctl/credential_lines.h"

namespace vekctl {

// What becomes of the text behind a value: a comment as a rule.
enum class Tail { stays, goes };

class TextChange {
public:
    // `lines` must outlive the change.
    explicit TextChange(const CredentialLines &old) : lines(old) {}

    // Takes the blanks behind a key away that the stripping rule would make a part of it.
    void showKey(const Reading &reading);
    // Puts another value into a line, and shows its key.
    void replaceValue(const Line &line, const Reading &reading, std::string_view value, Tail tail);
    void remove(const Line &line);
    void insertBefore(const Line &line, const std::string &key, std::string_view value);
    // Behind a line, or behind the last one of the file when the line's number is 0.
    void insertBehind(const Line &line, const std::string &key, std::string_view value);

    [[nodiscard]] bool isNothing() const {
        return edits.empty();
    }
    // The new text.
    [[nodiscard]] Secret text() const;

private:
    struct Edit {
        size_t offset;
        size_t removed;
        Secret inserted;
        bool isNewLine; // behind a last line without a line end
    };
    void edit(std::string_view replaced, std::string_view inserted, bool isNewLine = false);
    [[nodiscard]] Line lastLine() const;

    const CredentialLines &lines;
    std::vector<Edit> edits;
};

} // namespace vekctl

#endif
