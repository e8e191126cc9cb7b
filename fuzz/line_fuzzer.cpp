// The line transformation of the command. The first byte of the input chooses the algorithm, the rest is
// the text of a file.
#include "fuzz_support.h"
#include "runvekcred.h"

#include <algorithm>
#include <strings.h>

namespace {

constexpr std::string_view BLANKS = " \t\n\v\f\r";

std::string wordAt(std::string_view text, size_t start, const char *end) {
    start = std::min(text.find_first_not_of(BLANKS, start), text.size());
    const size_t stop = std::min(text.find_first_of(std::string(BLANKS) + end, start), text.size());
    return std::string(text.substr(start, stop - start));
}

// What becomes of a line: a marker that does not say YES is dropped; a credential in clear, that no YES
// marker declares encrypted, is encrypted, or the command fails; everything else is copied.
void checkLine(std::string_view line, std::string_view written, int32_t result) {
    line = line.substr(0, line.find_first_of(std::string_view("\0\n", 2)));
    const bool isCopied = written == std::string(line) + "\n";
    const std::string key = wordAt(line, 0, "=");
    const size_t equals = line.find('=');
    const std::string value = equals == std::string_view::npos ? "" : wordAt(line, equals + 1, "");
    const CredentialKeyEntry *row = credentialKeyTable;
    while (row->credentialKey != nullptr && !key.starts_with(row->credentialKey) &&
           !key.starts_with(row->markerKey))
        ++row;
    const bool hasForm =
        value.starts_with("<VEK>") && std::count(value.begin(), value.end(), '!') > 2;
    if (row->credentialKey == nullptr || value.empty() || key.size() > 1023)
        return require(isCopied);
    if (key.starts_with(row->markerKey))
        return require(strcasecmp(value.c_str(), "yes") == 0 ? isCopied : written.empty());
    if (row->markerState == 1 || hasForm || result != 0)
        return require(isCopied);
    const char *const marker =
        key.starts_with("pem.password.channel") ? "pem.password.channel.encrypted" : row->markerKey;
    const std::string start = std::string(marker) + " = YES\n" + key + " = ";
    require(written.starts_with(start) && written.ends_with('\n'));
    std::string clear;
    written = written.substr(start.size(), written.size() - start.size() - 1);
    require(restore(openSession(1), written, &clear) == SVC_PBE_OK && clear == value);
}

// Runs over the text in pieces, as fgets cuts them, until one fails. `check` sees each piece, what was
// written for it, and the result.
template <typename Check>
std::string run(std::string_view text, SvcPBESession *session, Check check) {
    for (CredentialKeyEntry &row : credentialKeyTable)
        row.markerState = -1;
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
        check(piece, std::string_view(output + before, length - before), result);
    }
    (void)fclose(stream);
    const std::string written(output, length);
    free(output);
    return written;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0)
        return 0;
    SvcPBESession *const session = openSession(data[0] % 2 + 1);
    bool isCut = false;
    const auto check = [&](const std::string &line, std::string_view written, int32_t result) {
        isCut = isCut || line.size() == LINE_CAPACITY - 1;
        checkLine(line, written, result);
    };
    const std::string once = run(asText(data + 1, size - 1), session, check);
    // A second run changes nothing but the channel marker, and lines that are cut once more.
    const auto checkSame = [](const std::string &line, std::string_view written, int32_t) {
        require(line == written ||
                wordAt(line, 0, "=").starts_with("pem.password.channel.encrypted"));
    };
    if (!isCut)
        (void)run(once, session, checkSame);
    return 0;
}
