// The encrypted value. The first three bytes of the input choose the algorithm and a change; the
// rest is read as an encrypted value, and then encrypted itself.
#include "fuzz_support.h"
#include "pbe/algorithm.h"

#include <algorithm>

namespace {

constexpr std::string_view LABEL = vek::LABEL;

// A text that can be taken apart is the one that its parts make. Returns whether it could.
bool checkText(std::string_view text) {
    const ztm::Algorithm *const algorithm = ztm::findAlgorithm(ztm::digitOf(text, LABEL));
    ztm::ValueParts parts;
    size_t bodyLength = 0;
    if (algorithm == nullptr ||
        !ztm::parseValue(text, LABEL.size(), algorithm->shape, &parts, &bodyLength))
        return false;
    char again[SVC_PBE_STORED_LIMIT + 1];
    require(ztm::writeBody(again, text.substr(0, LABEL.size() + 1), algorithm->shape, parts) ==
            bodyLength);
    ztm::writeTag(again + bodyLength, algorithm->shape, parts);
    require(text == again && std::count(text.begin(), text.end(), '!') == 3);
    require(text.size() == ztm::storedLengthOf(algorithm->shape, LABEL.size(), parts.cipherLength));
    for (const char character : text)
        require(character > ' ' && character <= '~' && character != '#');
    return true;
}

// Encrypts a text, which comes out again by either session, but not after a change.
void checkRoundTrip(int32_t algorithm, std::string_view clear, uint8_t place, uint8_t change) {
    CipherSession &session = openSession(algorithm);
    std::string text = session.save(std::string(clear));
    const ztm::ValueShape &shape = ztm::findAlgorithm(algorithm)->shape;
    const size_t expected =
        ztm::storedLengthOf(shape, LABEL.size(), ztm::cipherLengthOf(shape, clear.size()));
    if (clear.empty() || expected > SVC_PBE_STORED_LIMIT) {
        require(session.reason == SVC_PBE_CLEAR_TEXT_LENGTH);
        return;
    }
    require(session.reason == SVC_PBE_OK && text.size() == expected && checkText(text));
    require(openSession(3 - algorithm).restore(text) == clear);

    text[place * expected / 256] ^= static_cast<char>(change);
    uint32_t expectedReason = SVC_PBE_OK;
    if (change != 0)
        expectedReason = checkText(text) ? SVC_PBE_AUTHENTICATION_FAILED : SVC_PBE_MALFORMED_TEXT;
    (void)session.restore(text);
    require(session.reason == expectedReason);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 3)
        return 0;
    const int32_t algorithm = data[0] % 2 + 1;
    const std::string_view text = asText(data + 3, size - 3);
    CipherSession &session = openSession(algorithm);
    (void)session.restore(std::string(text));
    require((session.reason == SVC_PBE_MALFORMED_TEXT) == !checkText(text));
    checkRoundTrip(algorithm, text, data[1], data[2]);
    return 0;
}
