/*
 * file_text.h - the text of keystore.conf, line by line, and how both programs take a line.
 *
 * The readers cut a line with the library's parser, runvekcred with a rule of its own; where the
 * two take different words, a credential means two things. Nothing here decides what a line is:
 * each side's own code does.
 */
#ifndef VEKCTL_FILE_TEXT_H
#define VEKCTL_FILE_TEXT_H

#include "vekctl/secret.h"

#include "common/guards.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace vekctl {

// One line where it stands in the text.
struct Line {
    size_t number = 0; // from 1
    std::string_view text;
    std::string_view end; // "\n", "\r\n", or "" behind the last line
    // All but the newline: what parser and rewriting are given. A carriage return is white space to
    // them.
    [[nodiscard]] std::string_view content() const;
};

enum class LineKind { nothing, setting, refused };

// Why the readers refuse a line, and with it the whole file; and a file without a single setting.
enum class Refusal { none, noEquals, keyTooLong, noValue, noSetting };

// What a line says. The views lie in the line.
struct Reading {
    LineKind kind = LineKind::nothing;
    Refusal refusal = Refusal::none;
    std::string_view key; // of a setting, as the readers take it; may keep a blank at its end
    std::string_view value;
    bool isCut = false;         // by a "#": what is behind the value is a comment for the readers
    std::string_view writerKey; // as runvekcred takes it; both empty when it finds no value
    std::string_view writerValue;
};

[[nodiscard]] Reading readLine(const Line &line);

// Why a credential's clear value is not surely the one that was meant, and what to do; or null.
// `capacity` is that of its reader's field.
[[nodiscard]] const char *doubtIn(const Reading &credential, size_t capacity);

// The text of one file, in memory that is wiped.
class FileText {
public:
    // Reads a file as the readers do; "-" is standard input. False: problem() says why.
    [[nodiscard]] bool read(const std::string &path);
    // Takes a text that was read already.
    void take(Secret text);

    [[nodiscard]] const std::string &problem() const {
        return problemText;
    }

    // The text up to the first NUL, which is all that the readers see.
    [[nodiscard]] std::string_view text() const {
        return visible;
    }
    [[nodiscard]] bool hasNul() const {
        return nulFound;
    }

    // Takes the next line; `line` is Line{} for the first one. False at the end. Nothing is copied,
    // so that a file of any size costs its size.
    [[nodiscard]] bool next(Line *line) const;
    // The line of this number, which begins here.
    [[nodiscard]] Line at(const char *start, size_t number) const;

private:
    [[nodiscard]] bool readStandardInput();

    ztm::Memory<char> fromLibrary;
    Secret taken;
    std::string_view visible;
    bool nulFound = false;
    std::string problemText;
};

} // namespace vekctl

#endif
