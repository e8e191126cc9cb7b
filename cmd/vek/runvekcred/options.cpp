/*
 * options.cpp - the command line.
 *
 *   -f path | -o path | -sf path | -sp integer | -sm | -?
 *
 * Only the second character of an option decides, in either case, and for "s" the third as well;
 * what follows is ignored, so -File is -f and -SPX is -sp.
 */
#include "runvekcred/options.h"

#include <cctype>
#include <cstdlib>

namespace runvekcred {

namespace {

enum class Option { keystore, output, keyFile, algorithm, fips, help, unknown };

char lowerCase(char character) {
    return static_cast<char>(tolower(static_cast<unsigned char>(character)));
}

Option classifySecurityOption(const char *argument) {
    switch (lowerCase(argument[2])) {
    case 'f':
        return Option::keyFile;
    case 'p':
        return Option::algorithm;
    case 'm':
        return Option::fips;
    default:
        return Option::unknown;
    }
}

Option classify(const char *argument) {
    if (argument[0] != '-')
        return Option::unknown;
    switch (lowerCase(argument[1])) {
    case 'f':
        return Option::keystore;
    case 'o':
        return Option::output;
    case 's':
        return classifySecurityOption(argument);
    case '?':
        return Option::help;
    default:
        return Option::unknown;
    }
}

// Blanks (no tabs), one sign, then digits up to the end. No digit at all passes and counts as 0,
// which the range check then refuses.
bool parseAlgorithm(const char *value, int32_t *algorithm) {
    const char *digits = value;
    while (*digits == ' ')
        ++digits;
    if (*digits == '+' || *digits == '-')
        ++digits;
    while (isdigit(static_cast<unsigned char>(*digits)) != 0)
        ++digits;
    if (*digits != '\0')
        return false;
    // A number that does not fit must not become 1 or 2 by narrowing.
    const long number = strtol(value, nullptr, 10);
    *algorithm = number < INT32_MIN   ? INT32_MIN
                 : number > INT32_MAX ? INT32_MAX
                                      : static_cast<int32_t>(number);
    return true;
}

bool takePath(const char *value, const char **path) {
    if (value[0] == '-')
        return false;
    *path = value;
    return true;
}

bool takeValue(Option option, const char *value, CommandSettings *settings) {
    switch (option) {
    case Option::keystore:
        return takePath(value, &settings->keystorePath);
    case Option::output:
        return takePath(value, &settings->outputPath);
    case Option::keyFile:
        return takePath(value, &settings->keyFilePath);
    default:
        return parseAlgorithm(value, &settings->algorithm);
    }
}

} // namespace

ScanResult scanOptions(std::span<const char *const> arguments, CommandSettings *settings,
                       const char **argumentAtFault) {
    // An empty argument ends the scan; whatever follows it is ignored without a word.
    for (size_t i = 0; i < arguments.size() && arguments[i][0] != '\0'; ++i) {
        const Option option = classify(arguments[i]);
        if (option == Option::help)
            return ScanResult::help;
        if (option == Option::fips) {
            settings->fipsFlag = 1;
            continue;
        }
        *argumentAtFault = arguments[i];
        if (option == Option::unknown || i + 1 == arguments.size())
            return ScanResult::usageError;
        if (!takeValue(option, arguments[++i], settings))
            return ScanResult::usageError;
    }
    return ScanResult::done;
}

bool isKnownAlgorithm(int32_t algorithm) {
    return algorithm == SVC_PBE_ALGORITHM_CBC_HMAC || algorithm == SVC_PBE_ALGORITHM_GCM;
}

} // namespace runvekcred
