/*
 * file_text.cpp - reads a file, cuts its text into lines, and asks both sides what a line says.
 */
#include "vekctl/file_text.h"

#include "vekctl/error_text.h"

#include "shared/line_words.h"
#include "sztucona/parse.h"
#include "ztvek.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace vekctl {

namespace {

std::string textOfError(int errorNumber) {
    return errorNumber == 0 ? "it is empty; write a setting into it" : errorText(errorNumber);
}

// What the parser of the library says.
void readAsReaders(std::string_view content, Reading *reading) {
    const vek::Line line = vek::parseLine(content);
    switch (line.kind) {
    case vek::LineKind::nothing:
        return;
    case vek::LineKind::setting:
        reading->kind = LineKind::setting;
        reading->key = line.key;
        reading->value = line.value;
        reading->isCut = content.substr(static_cast<size_t>(line.value.data() - content.data()))
                             .substr(line.value.size())
                             .starts_with('#');
        return;
    case vek::LineKind::noEquals:
        reading->refusal = Refusal::noEquals;
        break;
    case vek::LineKind::keyTooLong:
        reading->refusal = Refusal::keyTooLong;
        break;
    case vek::LineKind::noValue:
        reading->refusal = Refusal::noValue;
        break;
    }
    reading->kind = LineKind::refused;
}

} // namespace

std::string_view Line::content() const {
    const size_t ending = end.ends_with('\n') ? end.size() - 1 : end.size();
    return {text.data(), text.size() + ending};
}

Reading readLine(const Line &line) {
    Reading reading;
    readAsReaders(line.content(), &reading);
    vek::LineWords words;
    if (vek::cutWords(line.content(), &words)) {
        reading.writerKey = words.key;
        reading.writerValue = words.value;
    }
    return reading;
}

const char *doubtIn(const Reading &credential, size_t capacity) {
    const std::string_view value = credential.value;
    if (credential.isCut)
        return "its value is cut at the \"#\" for the readers; vekctl set stores the one that is "
               "meant";
    if (value.starts_with(vek::LABEL))
        return "its value begins like an encrypted one; vekctl set stores the one that is meant";
    if (vek::isBlank(value.back()))
        return "the readers keep the blank behind its value; remove it, or vekctl set stores the "
               "value that is meant";
    if (std::ranges::any_of(value, [](char character) {
            return character != '\t' && iscntrl(static_cast<unsigned char>(character)) != 0;
        }))
        return "its value holds a control character; vekctl set stores the one that is meant";
    if (value.size() > capacity)
        return "its value is longer than the field of its reader; vekctl set stores a shorter one";
    return nullptr;
}

bool FileText::read(const std::string &path) {
    if (path == "-")
        return readStandardInput();
    int32_t errorNumber = 0;
    if (sztucReadConfigFile(path.c_str(), fromLibrary.receive(), &errorNumber) != SZTU_OK) {
        problemText = textOfError(errorNumber);
        return false;
    }
    visible = fromLibrary.get();
    // What stands behind a NUL is of no interest; only that something does.
    struct stat status = {};
    nulFound =
        stat(path.c_str(), &status) == 0 && static_cast<size_t>(status.st_size) > visible.size();
    return true;
}

bool FileText::readStandardInput() {
    constexpr size_t STEP = size_t{64} * 1024;
    Secret text;
    for (;;) {
        const size_t before = text.size();
        text.resize(before + STEP);
        const ssize_t count = ::read(STDIN_FILENO, text.data() + before, STEP);
        const int errorNumber = errno;
        text.resize(before + static_cast<size_t>(std::max<ssize_t>(count, 0)));
        if (count < 0 && errorNumber != EINTR) {
            problemText = textOfError(errorNumber);
            return false;
        }
        if (count == 0)
            break;
    }
    take(std::move(text));
    if (taken.empty())
        problemText = textOfError(0);
    return !taken.empty();
}

void FileText::take(Secret text) {
    taken = std::move(text);
    visible = taken.view().substr(0, taken.view().find('\0'));
    nulFound = visible.size() != taken.size();
}

Line FileText::at(const char *start, size_t number) const {
    Line line = {.number = number - 1, .text = {}, .end = {start, 0}};
    (void)next(&line);
    return line;
}

bool FileText::next(Line *line) const {
    const char *const start =
        line->number == 0 ? visible.data() : line->end.data() + line->end.size();
    const char *const end = visible.data() + visible.size();
    if (start == end)
        return false;
    const size_t left = static_cast<size_t>(end - start);
    const char *const newline = static_cast<const char *>(memchr(start, '\n', left));
    const char *lineEnd = newline == nullptr ? end : newline;
    const char *const next = newline == nullptr ? end : newline + 1;
    if (newline != nullptr && lineEnd != start && lineEnd[-1] == '\r')
        --lineEnd;
    ++line->number;
    line->text = {start, static_cast<size_t>(lineEnd - start)};
    line->end = {lineEnd, static_cast<size_t>(next - lineEnd)};
    return true;
}

} // namespace vekctl
