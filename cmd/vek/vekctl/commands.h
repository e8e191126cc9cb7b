/*
 * commands.h - how a command comes onto the command line.
 *
 * Each command has a file of its own with one function add...(), which main calls. It adds a
 * subcommand with its options, and a callback that puts the work into Run::action:
 *
 *   void addCheck(CLI::App &program, Run &run) {
 *       const auto options = std::make_shared<Options>();
 *       CLI::App *const command = addCommand(program, "check", "...", &options->common);
 *       command->add_option("FILE", options->files, "...");
 *       command->callback([&run, options] { run.action = [options] { return check(*options); }; });
 *   }
 */
#ifndef VEKCTL_COMMANDS_H
#define VEKCTL_COMMANDS_H

#include "vekctl/options.h"

#include <CLI/App.hpp>
#include <functional>
#include <stdexcept>

namespace vekctl {

struct Run {
    std::function<int()> action; // returns the exit status
};

// A subcommand with --key, --json, --quiet and --fips. What `common` points to must outlive the
// run.
[[nodiscard]] CLI::App *addCommand(CLI::App &program, const char *name, const char *description,
                                   CommonOptions *common);

// Its halves: --json and --quiet for a command that needs no key, --key and --fips for one whose
// answer is a value.
void addOutputOptions(CLI::App *command, CommonOptions *common);
void addKeyOptions(CLI::App *command, CommonOptions *common);

// Options that do not go together; a callback throws it. The text repeats no argument.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

void addCheck(CLI::App &program, Run &run);
void addGet(CLI::App &program, Run &run);
void addKeygen(CLI::App &program, Run &run);
void addKeyinfo(CLI::App &program, Run &run);
void addProtect(CLI::App &program, Run &run);
void addRekey(CLI::App &program, Run &run);
void addSet(CLI::App &program, Run &run);
void addShow(CLI::App &program, Run &run);
void addUnprotect(CLI::App &program, Run &run);

} // namespace vekctl

#endif
