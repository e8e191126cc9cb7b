// The check and the protect of vekctl against the readers. The input is the text of a file: an
// error of reading is found exactly when a reader of a section or a channel that the file has
// fails, or hands a wrong text over; and what protect makes of the file is what protection_judge.h
// tells.
#include "fuzz_support.h"
#include "support/protection_judge.h"
#include <algorithm>

namespace {

// The readers open what vekcred.keyfile names; a terminal or this process would answer.
bool namesDevice(std::string_view text) {
    return text.find("/dev") != std::string_view::npos ||
           text.find("/proc") != std::string_view::npos;
}

ReaderJudge askReaders(const char *path, std::string_view text) {
    ReaderJudge judge(path);
    judge.ask(vek::KEY_SOURCE_SECTION); // a text without a section may be refused as well
    for (const vekctl::ReaderName &reader : readersOf(text))
        judge.ask(reader.section, reader.isOfChannel ? reader.channel.c_str() : nullptr);
    return judge;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    sztUseLogErrorMessage = 0;
    const std::string_view text = asText(data, size);
    if (size == 0 || namesDevice(text))
        return 0;
    static const FileInMemory file;
    require(file.write(text));
    const ReaderJudge judged = askReaders(file.path.c_str(), text);

    vekctl::KeyRing keys(/* withFips= */ false);
    const std::vector<vekctl::Finding> findings = findingsIn(text, keys);
    require(judged.isBad == std::ranges::any_of(findings, vekctl::isReadingError));
    require(!judged.handsClearText ||
            std::ranges::any_of(findings, [](const vekctl::Finding &finding) {
                return finding.level == vekctl::Level::error;
            }));

    if (text.find("vekcred") != std::string_view::npos)
        return 0; // the readers would not use the key that protect does here
    static ProtectionJudge protection;
    ProtectionJudge::Outcome outcome{};
    require(protection.judge(std::string(text), &outcome).empty());
    return 0;
}
