// The command line of runvekcred: which settings an argument list gives, and which argument is at
// fault.
#include "runvekcred/options.h"

#include <gtest/gtest.h>
#include <sstream>
#include <vector>

namespace {

using namespace runvekcred;

const struct {
    const char *arguments; // with a comma between two
    const char *settings;  // those that were given, and the argument at fault
    const char *shows;
} CASES[] = {
    {"-f,a,-o,b,-sf,c,-sp,1,-sm", "f=a o=b sf=c sp=1 sm=1 ", "every option"},
    {"-FILE,a,-O,b,-SFx,c,-SPX,1,-SMart", "f=a o=b sf=c sp=1 sm=1 ", "in other spellings"},
    {"-f,a,-f,b", "f=b ", "the last one wins"},
    {"-f,a,,-o,b", "f=a ", "an empty argument ends the scan"},
    {"-f,,-sm", "f= sm=1 ", "an empty value is a value"},
    {"-sp,  +1", "sp=1 ", "blanks and a sign"},
    {"-sp,-1", "sp=-1 ", "a sign is no option here"},
    {"-sp,+", "sp=0 ", "only a sign is 0"},
    {"-sp,4294967298", "sp=2147483647 ", "is not narrowed to 2"},
    {"-sp,-99999999999999999999", "sp=-2147483648 ", "nor wrapped"},
    {"-sp,2 ", "at fault: -sp", "blank behind"},
    {"-sp,\t2", "at fault: -sp", "a tab is no blank here"},
    {"-sp,0x1", "at fault: -sp", "decimal only"},
    {"-sp", "at fault: -sp", "no value"},
    {"-f", "at fault: -f", "no value"},
    {"-f,-x", "at fault: -f", "a value that looks like an option"},
    {"-sf,-", "at fault: -sf", "likewise"},
    {"-", "at fault: -", "a lone -"},
    {"-s", "at fault: -s", "s needs its third character"},
    {"-sx,a", "at fault: -sx", "and one of three"},
    {"-x,a", "at fault: -x", "unknown"},
    {"-f,a,file", "f=a at fault: file", "a bare word"},
    {"-o,b,-?,-x", "o=b help", "help ends the scan"},
};

TEST(Options, FollowTheTable) {
    for (const auto &row : CASES) {
        std::vector<std::string> words;
        std::vector<const char *> arguments;
        std::istringstream stream(row.arguments);
        for (std::string word; std::getline(stream, word, ',');)
            words.push_back(word);
        for (const std::string &word : words)
            arguments.push_back(word.c_str());
        CommandSettings settings;
        const char *atFault = nullptr;
        const ScanResult result = scanOptions(arguments, &settings, &atFault);
        std::ostringstream given;
        const std::pair<const char *, const char *> paths[] = {{"f=", settings.keystorePath},
                                                               {"o=", settings.outputPath},
                                                               {"sf=", settings.keyFilePath}};
        for (const auto &[name, path] : paths)
            if (path != nullptr)
                given << name << path << ' ';
        if (settings.algorithm != CommandSettings().algorithm)
            given << "sp=" << settings.algorithm << ' ';
        if (settings.fipsFlag != 0)
            given << "sm=" << settings.fipsFlag << ' ';
        if (result != ScanResult::done)
            given << (result == ScanResult::help ? "help" : std::string("at fault: ") + atFault);
        EXPECT_EQ(row.settings, given.str()) << row.shows;
    }
}

} // namespace
