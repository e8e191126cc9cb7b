// The line transformation of the command. The first byte of the input chooses the algorithm, the
// rest is the text of a file.
#include "fuzz_support.h"
#include "runvekcred/credential_line.h"

#include <algorithm>
#include <strings.h>

namespace {

using namespace runvekcred;

constexpr std::string_view BLANKS = " \t\n\v\f\r";

std::string wordAt(std::string_view text, size_t start, const char *end) {
    start = std::min(text.find_first_not_of(BLANKS, start), text.size());
    const size_t stop = std::min(text.find_first_of(std::string(BLANKS) + end, start), text.size());
    return std::string(text.substr(start, stop - start));
}

// A line is copied, dropped as a marker, or encrypted behind a marker; only a failure copies a
// credential in clear that no YES marker declares encrypted.
void checkLine(std::string_view line, std::string_view written, int32_t result) {
    line = line.substr(0, line.find_first_of(std::string_view("\0\n", 2)));
    const std::string key = wordAt(line, 0, "="), value = wordAt(line, line.find('=') + 1, "");
    if (written.empty())
        return require(key.find(".encrypted") != key.npos && strcasecmp(value.c_str(), "yes") != 0);
    if (written == std::string(line) + "\n") {
        const bool isClear = line.find('=') != line.npos && !value.starts_with("<VEK>");
        for (size_t row = 0; row < std::size(vek::CREDENTIALS); ++row)
            require(value.empty() || key.size() > 1023 || !isClear || isMarkedYes[row] ||
                    !key.starts_with(vek::CREDENTIALS[row].key) || result != 0);
        return;
    }
    const size_t start = written.rfind(' ') + 1;
    require(written.find(".encrypted = YES\n" + key + " = ") != written.npos);
    written = written.substr(start, written.size() - start - 1);
    require(openSession(1).restore(std::string(written)) == value && !value.empty());
}

// Runs over the text in pieces, as fgets cuts them, until one fails.
void run(std::string_view text, SvcPBESession *session) {
    forgetMarkers();
    char *output = nullptr;
    size_t length = 0, before = 0;
    FILE *const stream = open_memstream(&output, &length);
    for (int32_t result = 0; !text.empty() && result == 0; before = length) {
        const size_t lineLength = std::min(text.find('\n'), text.size() - 1) + 1;
        const std::string piece(text.substr(0, std::min<size_t>(lineLength, LINE_CAPACITY - 1)));
        text.remove_prefix(piece.size());
        result = processConfigLine(std::string(piece).data(), stream, session);
        require(result == 0 || static_cast<uint32_t>(result) == SVC_PBE_CLEAR_TEXT_LENGTH);
        (void)fflush(stream);
        checkLine(piece, std::string_view(output + before, length - before), result);
    }
    (void)fclose(stream);
    free(output);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0)
        return 0;
    run(asText(data + 1, size - 1), &openSession(data[0] % 2 + 1).record);
    return 0;
}
