// The option scan. Each line of the input is one argument.
#include "fuzz_support.h"
#include "runvekcred/options.h"

#include <algorithm>
#include <cstring>
#include <vector>

using namespace runvekcred;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string text(asText(data, size));
    std::vector<const char *> arguments;
    for (char *line = text.data(); line != nullptr;)
        arguments.push_back(strsep(&line, "\n"));
    const auto isGiven = [&](const char *wanted) {
        return std::count(arguments.begin(), arguments.end(), wanted) == 1;
    };
    CommandSettings settings, again;
    const char *atFault = nullptr;
    const ScanResult result = scanOptions(arguments, &settings, &atFault);
    for (const char *const path :
         {settings.keystorePath, settings.outputPath, settings.keyFilePath})
        require(path == nullptr || (isGiven(path) && path[0] != '-'));
    if (result == ScanResult::usageError) {
        require(isGiven(atFault) && *atFault != '\0');
        return 0;
    }
    // What stands behind an empty argument does not count.
    arguments.insert(arguments.end(), {"", "-?", "word"});
    require(scanOptions(arguments, &again, &atFault) == result);
    require(memcmp(&again, &settings, sizeof settings) == 0);
    return 0;
}
