/*
 * commands.h - how a command comes onto the command line.
 *
 * Each command has a row in the table of command_line.cpp and a file of its own with one function
 * add...(), which is called before the arguments are read. It declares operands, options and work:
 *
 *   void addCheck(Command &command) {
 *       const auto options = std::make_shared<Options>();
 *       command.commonOptions(&options->common);
 *       command.operands("FILE", &options->files, "...");
 *       command.work([options] { return check(*options); });
 *   }
 */
#ifndef VEKCTL_COMMANDS_H
#define VEKCTL_COMMANDS_H

#include "vekctl/options.h"

#include <functional>

namespace CLI {
class App;
}

namespace vekctl {

struct Program {
    CLI::App &parser;
    std::function<int()> work; // of the command that was given; returns the exit status
};

enum class Need { optional, required };

// What is declared points to storage that must outlive the run.
class Command {
public:
    Command(Program &program, const char *name, const char *description);

    void operand(const char *name, std::string *value, Need need, const char *description);
    // The last operand, any number of times or `most` times. Required: at least once.
    void operands(const char *name, std::vector<std::string> *values, Need need,
                  const char *description, int most = 0);
    void flag(const char *name, bool *isGiven, const char *description);
    // `kind` is what its value is called in the help.
    void option(const char *name, const char *kind, std::string *value, Need need,
                const char *description);
    void option(const char *name, const char *kind, std::optional<std::string> *value,
                const char *description);

    // --key, --json, --quiet and --fips.
    void commonOptions(CommonOptions *common, const char *key = KEY);
    // Their halves: --json and --quiet for a command that needs no key, --key and --fips for one
    // whose answer is a value.
    void outputOptions(CommonOptions *common);
    void keyOptions(CommonOptions *common, const char *key = KEY);

    void dryRun(bool *isGiven);

    // What the command does; a UsageError may be its answer.
    void work(std::function<int()> function);

private:
    static constexpr const char *KEY =
        "the initial key file, or 'built-in'; else the readers' own choice";

    Program &program;
    CLI::App &parser;
};

void addCheck(Command &command);
void addGet(Command &command);
void addKeygen(Command &command);
void addKeyinfo(Command &command);
void addProtect(Command &command);
void addRekey(Command &command);
void addSet(Command &command);
void addShow(Command &command);
void addUnprotect(Command &command);

} // namespace vekctl

#endif
