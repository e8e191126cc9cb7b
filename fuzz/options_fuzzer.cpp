// The option scan. Each line of the input is one argument.
#include "fuzz_support.h"
#include "runvekcred.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace {

using Arguments = std::vector<const char *>;

ScanResult scan(const Arguments &arguments, CommandSettings *settings, const char **atFault) {
    *settings = DEFAULT_SETTINGS;
    return scanOptions(arguments, settings, atFault);
}

// The scan of the arguments comes to these settings, to the very pointers.
void requireSame(const Arguments &arguments, ScanResult result, const CommandSettings &settings) {
    CommandSettings other;
    const char *atFault;
    require(scan(arguments, &other, &atFault) == result);
    require(other.keystorePath == settings.keystorePath && other.outputPath == settings.outputPath);
    require(other.keyFilePath == settings.keyFilePath && other.algorithm == settings.algorithm);
    require(other.fipsFlag == settings.fipsFlag);
}

// The settings as arguments. A path is one of the arguments given, and no option.
Arguments write(const CommandSettings &settings, const char *algorithm, const Arguments &given) {
    Arguments arguments = {"-sp", algorithm};
    const char *const paths[][2] = {
        {"-f", settings.keystorePath}, {"-o", settings.outputPath}, {"-sf", settings.keyFilePath}};
    for (const auto &[option, path] : paths) {
        if (path == nullptr)
            continue;
        require(std::count(given.begin(), given.end(), path) == 1 && path[0] != '-');
        arguments.insert(arguments.end(), {option, path});
    }
    if (settings.fipsFlag != 0)
        arguments.push_back("-sm");
    return arguments;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string text(asText(data, size));
    Arguments arguments;
    for (char *line = text.data(); line != nullptr;)
        arguments.push_back(strsep(&line, "\n"));
    CommandSettings settings;
    const char *atFault = nullptr;
    const ScanResult result = scan(arguments, &settings, &atFault);
    const std::string algorithm = std::to_string(settings.algorithm);
    requireSame(write(settings, algorithm.c_str(), arguments), ScanResult::done, settings);
    if (result == ScanResult::usageError) {
        require(std::count(arguments.begin(), arguments.end(), atFault) == 1 && *atFault != '\0');
        return 0;
    }
    // What stands behind an empty argument does not count.
    arguments.insert(arguments.end(), {"", "-?", "word"});
    requireSame(arguments, result, settings);
    return 0;
}
