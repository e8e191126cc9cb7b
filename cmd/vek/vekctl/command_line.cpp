/*
 * command_line.cpp - the commands, help, and what is said of a typing error.
 *
 * An argument that is not understood may be a secret that somebody typed in the wrong place. Only a
 * word that is near to one of ours is repeated, and of an option the part in front of "=".
 */
#include "vekctl/command_line.h"

#include "vekctl/commands.h"
#include "vekctl/report.h"
#include "vekctl/suggestion.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <memory>

namespace vekctl {

namespace {

constexpr const char *DESCRIPTION =
    "Keeps the credentials of keystore.conf encrypted, and tells whether its readers get them.";

constexpr const char *FIRST_STEPS =
    R"(A key, once; encrypt what stands in clear; ask whether the readers get it:
  vekctl keygen initial.key
  vekctl protect --key initial.key --name-key keystore.conf
  vekctl check keystore.conf
Another password, which is asked for and may hold blanks; another key:
  vekctl set keystore.conf pem.password
  vekctl keygen next.key
  vekctl rekey --from initial.key --to next.key --set-keyfile next.key keystore.conf
'vekctl help COMMAND' has the options.)";

std::vector<const CLI::App *> allCommands(const CLI::App &program) {
    return program.get_subcommands([](const CLI::App *) { return true; });
}

std::vector<std::string> commandNames(const CLI::App &program) {
    std::vector<std::string> names;
    for (const CLI::App *const command : allCommands(program))
        names.push_back(command->get_name());
    return names;
}

std::vector<std::string> optionNames(const CLI::App &command) {
    std::vector<std::string> names;
    for (const CLI::Option *const option : command.get_options())
        for (const std::string &name : option->get_lnames())
            names.push_back("--" + name);
    return names;
}

// The command that was named, or the program itself.
const CLI::App &chosenCommand(const CLI::App &program) {
    const std::vector<CLI::App *> chosen = program.get_subcommands();
    return chosen.empty() ? program : *chosen.front();
}

int refuse(const std::string &text, const CLI::App &command) {
    const std::string topic = command.get_parent() == nullptr ? "" : " " + command.get_name();
    std::cerr << "vekctl: " << text << "; see 'vekctl help" << topic << "'\n";
    return STATUS_USAGE;
}

std::string meant(const std::string &word, const std::vector<std::string> &candidates) {
    const std::string candidate = nearest(word, candidates);
    return candidate.empty() ? "" : "; did you mean '" + candidate + "'?";
}

int refuseOption(const std::string &argument, const CLI::App &command) {
    const std::string option = argument.substr(0, argument.find('='));
    const std::vector<std::string> known = optionNames(command);
    if (std::ranges::count(known, option) != 0)
        return refuse(option + " stands behind the command, not in front of it", command);
    const std::string suggestion = meant(option, known);
    return refuse(suggestion.empty() ? "there is no such option"
                                     : "there is no option '" + shown(option) + "'" + suggestion,
                  command);
}

int refuseArgument(const CLI::App &program, const CLI::App &command, const std::string &argument) {
    if (argument.starts_with("-") && argument.size() > 1)
        return refuseOption(argument, command);
    if (&command != &program)
        return refuse("there are too many arguments, and a value is never one of them", command);
    const std::string suggestion = meant(argument, commandNames(program));
    return refuse(suggestion.empty() ? "there is no such command"
                                     : "there is no command '" + shown(argument) + "'" + suggestion,
                  program);
}

int describeFindings() {
    for (const FindingKind &kind : findingKinds())
        std::cout << kind.name << " " << nameOf(kind.level) << "\n";
    return STATUS_WELL;
}

int describe(const CLI::App &program, const std::string &topic) {
    if (topic == "findings")
        return describeFindings();
    const CLI::App *described = topic.empty() ? &program : nullptr;
    std::string name = program.get_name();
    for (const CLI::App *const command : allCommands(program))
        if (command->get_name() == topic) {
            described = command;
            name += " " + topic;
        }
    if (described == nullptr)
        return refuseArgument(program, program, topic);
    // App::help would describe the command that was given, which is this one.
    std::cout << program.get_formatter()->make_help(described, name, CLI::AppFormatMode::Normal);
    return STATUS_WELL;
}

void addHelp(CLI::App &program, Run &run) {
    const auto topic = std::make_shared<std::string>();
    CLI::App *const command = program.add_subcommand("help", "Describes a command.");
    command->add_option("COMMAND", *topic, "the command, or \"findings\"")->type_name("");
    command->callback([&program, &run, topic] {
        run.action = [&program, topic] { return describe(program, *topic); };
    });
}

} // namespace

void addOutputOptions(CLI::App *command, CommonOptions *common) {
    command->add_flag("--json", common->json, "the answer as one JSON document");
    command->add_flag("--quiet", common->quiet, "no answer, only the exit status and problems");
}

void addKeyOptions(CLI::App *command, CommonOptions *common) {
    command
        ->add_option("--key", common->key,
                     "the initial key file, or 'built-in'; else the readers' own choice")
        ->type_name("FILE");
    command->add_flag("--fips", common->fips, "use a FIPS provider");
}

CLI::App *addCommand(CLI::App &program, const char *name, const char *description,
                     CommonOptions *common) {
    CLI::App *const command = program.add_subcommand(name, description);
    addKeyOptions(command, common);
    addOutputOptions(command, common);
    return command;
}

int runCommandLine(int argumentCount, char **arguments) {
    CLI::App program(DESCRIPTION, "vekctl");
    program.set_help_flag("--help", "Describes the program or a command.");
    program.set_version_flag("--version", "vekctl " VEK_VERSION, "Shows the version.");
    program.require_subcommand(0, 1);
    Run run;
    addKeygen(program, run);
    addProtect(program, run);
    addCheck(program, run);
    addSet(program, run);
    addGet(program, run);
    addRekey(program, run);
    addUnprotect(program, run);
    addShow(program, run);
    addKeyinfo(program, run);
    addHelp(program, run);
    program.footer(FIRST_STEPS); // a command that is added later would have it too
    try {
        program.parse(argumentCount, arguments);
    } catch (const CLI::Success &success) { // --help, --version
        return program.exit(success);
    } catch (const CLI::ExtrasError &) {
        return refuseArgument(program, chosenCommand(program), program.remaining(true).front());
    } catch (const CLI::RequiredError &error) {
        return refuse(error.what(), chosenCommand(program));
    } catch (const UsageError &error) {
        return refuse(error.what(), chosenCommand(program));
    } catch (const CLI::ArgumentMismatch &) {
        return refuse("an option lacks its value, or there are too many files",
                      chosenCommand(program));
    } catch (const CLI::ParseError &) {
        // The text of other errors repeats the argument.
        return refuse("the options cannot be understood", chosenCommand(program));
    }
    if (!run.action)
        return refuse("a command is missing", program);
    return run.action();
}

} // namespace vekctl
