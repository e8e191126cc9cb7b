/*
 * file_text.cpp - reads a file, cuts its text into lines, and asks both sides what a line says.
 */
#include "vekctl/file_text.h"

#include "shared/line_words.h"
#include "ztvek.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace vekctl {

namespace {

std::string textOfError(int errorNumber) {
    return errorNumber == 0 ? "it is empty" : strerror(errorNumber);
}

// The part of `line` that `copy` is a copy of, from `start` on.
std::string_view locate(std::string_view line, const char *copy, size_t start) {
    const std::string_view wanted = copy;
    return wanted.empty() ? line.substr(start, 0)
                          : line.substr(line.find(wanted, start), wanted.size());
}

Refusal whyRefused(std::string_view content) {
    const size_t start = content.find_first_not_of(" \t\v\f\r");
    const size_t equals = content.find('=');
    if (equals == std::string_view::npos)
        return Refusal::noEquals;
    return equals - start >= SZTUC_KEY_CAPACITY ? Refusal::keyTooLong : Refusal::noValue;
}

// What the parser of the library says.
void readAsReaders(std::string_view content, Reading *reading) {
    Secret copy(content);
    copy.append({"\0", 1});
    SztuList *const list = SztuListCreate();
    const uint32_t result = sztucParseConfigFile(copy.data(), list);
    if (list->head != nullptr) {
        const SztucConfigItem *const item = static_cast<const SztucConfigItem *>(list->head->item);
        reading->kind = LineKind::setting;
        reading->key = locate(content, item->key, 0);
        reading->value = locate(content, item->value, content.find('=') + 1);
    } else if (result != SZTU_OK) {
        const size_t start = content.find_first_not_of(" \t\v\f\r");
        const bool isNothing = start == std::string_view::npos || content[start] == '#';
        reading->kind = isNothing ? LineKind::nothing : LineKind::refused;
        reading->refusal = isNothing ? Refusal::none : whyRefused(content);
    }
    sztucFreeConfigList(list);
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
