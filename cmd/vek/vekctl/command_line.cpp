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
#include <span>

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
Other lines of the file: any editor. Exit status: 0 done, or all is well; 1 findings, or a file
that could not be treated; 2 wrong usage. 'vekctl help COMMAND' has the options.)";

struct CommandKind {
    const char *name;
    const char *description;
    void (*add)(Command &command);
};

constexpr CommandKind COMMANDS[] = {
    {"keygen", "Makes an initial key file: 32 random bytes, mode 0600.", addKeygen},
    {"protect", "Encrypts the credentials that stand in clear.", addProtect},
    {"check", "Tells of every credential whether the readers get it.", addCheck},
    {"set", "Stores one credential, from the terminal or from standard input.", addSet},
    {"get", "Prints one credential.", addGet},
    {"rekey", "Moves files to another initial key; may be run again.", addRekey},
    {"unprotect", "Writes a file with its credentials in clear.", addUnprotect},
    {"show", "Prints the record of a section, credentials hidden.", addShow},
    {"keyinfo", "Tells which initial key is in force, and its flaws.", addKeyinfo},
};

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
    std::cerr << "vekctl: " << shown(text) << (text.ends_with('?') ? " See" : "; see")
              << " 'vekctl help" << topic << "'\n";
    return STATUS_USAGE;
}

int refuseOption(const std::string &argument, const CLI::App &command) {
    const std::string option = argument.substr(0, argument.find('='));
    const std::vector<std::string> known = optionNames(command);
    if (std::ranges::count(known, option) != 0)
        return refuse(option + " stands behind the command, not in front of it", command);
    const std::string suggestion = didYouMean(nearest(option, known));
    return refuse(suggestion.empty() ? "there is no such option"
                                     : "there is no option '" + option + "'" + suggestion,
                  command);
}

int refuseArgument(const CLI::App &program, const CLI::App &command, const std::string &argument) {
    if (argument.starts_with("-") && argument.size() > 1)
        return refuseOption(argument, command);
    if (&command != &program)
        return refuse("there are too many arguments, and a value is never one of them", command);
    const std::string suggestion = didYouMean(nearest(argument, commandNames(program)));
    return refuse(suggestion.empty() ? "there is no such command"
                                     : "there is no command '" + argument + "'" + suggestion,
                  program);
}

int describeFindings() {
    for (const FindingKind &kind : findingKinds())
        std::cout << kind.name << " " << nameOf(kind.level) << ": " << kind.text << "\n";
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

void addHelp(Program &program) {
    const auto topic = std::make_shared<std::string>();
    Command command(program, "help", "Describes a command.");
    command.operand("COMMAND", topic.get(), Need::optional, "the command, or \"findings\"");
    command.work([&program, topic] { return describe(program.parser, *topic); });
}

// Where the first argument is a command, no other one is made: all of them together take a good
// part of the time of a check.
void addCommands(Program &program, std::string_view first) {
    const bool isCommand =
        std::ranges::any_of(COMMANDS, [&](const CommandKind &kind) { return kind.name == first; });
    for (const CommandKind &kind : COMMANDS) {
        if (isCommand && kind.name != first)
            continue;
        Command command(program, kind.name, kind.description);
        kind.add(command);
    }
    if (!isCommand)
        addHelp(program);
}

void addVersion(CLI::App &parser) {
    parser.set_version_flag("--version", "vekctl " VEK_VERSION, "Shows the version.");
}

// "--key=$UNSET FILE": the parser would take FILE for the key.
bool lacksValue(std::string_view argument) {
    return argument.starts_with("--") && argument.ends_with('=');
}

int refuseEmpty(std::string option, const CLI::App &program) {
    option.pop_back();
    for (const CLI::App *const command : allCommands(program))
        if (std::ranges::count(optionNames(*command), option) != 0)
            return refuse(option + " lacks its value behind \"=\"", program);
    return refuse("an option lacks its value behind \"=\"", program);
}

// An option with a typing error is the cause of what else is missing or too much.
int refuseMismatch(const CLI::App &program, const std::string &text) {
    for (const std::string &argument : program.remaining(/* recurse= */ true))
        if (argument.starts_with("-") && argument.size() > 1)
            return refuseOption(argument, chosenCommand(program));
    return refuse(text, chosenCommand(program));
}

} // namespace

Command::Command(Program &itsProgram, const char *name, const char *description)
    : program(itsProgram), parser(*itsProgram.parser.add_subcommand(name, description)) {
    addVersion(parser);
}

void Command::operand(const char *name, std::string *value, Need need, const char *description) {
    option(name, "", value, need, description);
}

void Command::operands(const char *name, std::vector<std::string> *values, Need need,
                       const char *description, int most) {
    CLI::Option *const added = parser.add_option(name, *values, description);
    added->required(need == Need::required)->type_name("");
    if (most > 0)
        added->expected(0, most);
}

void Command::flag(const char *name, bool *isGiven, const char *description) {
    parser.add_flag(name, *isGiven, description);
}

void Command::option(const char *name, const char *kind, std::string *value, Need need,
                     const char *description) {
    parser.add_option(name, *value, description)->required(need == Need::required)->type_name(kind);
}

void Command::option(const char *name, const char *kind, std::optional<std::string> *value,
                     const char *description) {
    parser.add_option(name, *value, description)->type_name(kind);
}

void Command::commonOptions(CommonOptions *common, const char *key) {
    keyOptions(common, key);
    outputOptions(common);
}

void Command::outputOptions(CommonOptions *common) {
    flag("--json", &common->json, "the answer as one JSON document");
    flag("--quiet", &common->quiet, "no answer, only the exit status and problems");
}

void Command::keyOptions(CommonOptions *common, const char *key) {
    option("--key", "FILE", &common->key, key);
    flag("--fips", &common->fips, "use a FIPS provider");
}

void Command::dryRun(bool *isGiven) {
    flag("--dry-run", isGiven, "say what would be done, and change nothing");
}

void Command::work(std::function<int()> function) {
    parser.callback([&its = program, function = std::move(function)] { its.work = function; });
}

int runCommandLine(int argumentCount, char **arguments) {
    CLI::App parser(DESCRIPTION, "vekctl");
    parser.set_help_flag("-h,--help", "Describes the program or a command.");
    addVersion(parser);
    parser.require_subcommand(0, 1);
    Program program = {parser, {}};
    addCommands(program, argumentCount > 1 ? arguments[1] : "");
    parser.footer(FIRST_STEPS); // a command that is added later would have it too
    const std::span given(arguments, static_cast<size_t>(argumentCount));
    if (const auto empty = std::ranges::find_if(given, lacksValue); empty != given.end())
        return refuseEmpty(*empty, parser);
    try {
        parser.parse(argumentCount, arguments);
        return program.work ? program.work() : refuse("a command is missing", parser);
    } catch (const CLI::Success &success) { // --help, --version
        return parser.exit(success);
    } catch (const CLI::ExtrasError &) {
        return refuseArgument(parser, chosenCommand(parser), parser.remaining(true).front());
    } catch (const CLI::RequiredError &error) {
        return refuseMismatch(parser, error.what());
    } catch (const UsageError &error) {
        return refuse(error.what(), chosenCommand(parser));
    } catch (const CLI::ArgumentMismatch &) {
        return refuseMismatch(parser, "an option lacks its value, or there are too many files");
    } catch (const CLI::ParseError &) {
        // The text of other errors repeats the argument.
        return refuse("the options cannot be understood", chosenCommand(parser));
    }
}

} // namespace vekctl
