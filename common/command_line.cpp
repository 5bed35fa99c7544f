#include "common/command_line.hpp"

#include <iostream>
#include <memory>

#include "common/help_formatter.hpp"
#include "common/line_text.hpp"
#include "common/suggestion.hpp"

namespace tool {
namespace {

int say(const CLI::App& app, ExitCode code, const std::string& sentence) {
    print_error_line(app.get_name() + ": " + sentence);
    return static_cast<int>(code);
}

/// The first argument, when it is meant to be a command and no command has that name: CLI11 would
/// call it an unexpected argument of the program.
std::string unknown_command(CLI::App& app, int argc, char** argv) {
    const std::vector<CLI::App*> commands = app.get_subcommands([](CLI::App*) { return true; });
    if (commands.empty() || argc < 2 || argv[1][0] == '-')
        return {};
    std::vector<std::string> names;
    for (const CLI::App* command : commands) {
        if (command->get_name() == argv[1])
            return {};
        if (!command->get_group().empty())
            names.push_back(command->get_name());
    }
    const std::string hint = did_you_mean(argv[1], names);
    return "unknown command '" + std::string(argv[1]) + "'" +
           (hint.empty() ? " (see " + app.get_name() + " --help)" : "; " + hint);
}

}  // namespace

void prepare_program(CLI::App& app, const std::string& version, const std::string& footer) {
    app.formatter(std::make_shared<HelpFormatter>());
    app.set_help_flag("-h,--help", "Prints this text");
    add_version(app, version);
    app.require_subcommand(1);
    app.footer(footer);
}

void add_version(CLI::App& app, const std::string& version) {
    app.set_version_flag("--version", version, "Prints the version");
}

int run_command_line(CLI::App& app, int argc, char** argv,
                     const std::function<ExitCode()>& command) {
    if (const std::string sentence = unknown_command(app, argc, argv); !sentence.empty())
        return say(app, ExitCode::usage, sentence);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& success) {
        // Help and version: CLI11 prints them and would end with its own code.
        app.exit(success, std::cout, std::cerr);
        return static_cast<int>(ExitCode::done);
    } catch (const CLI::ParseError& error) {
        return say(app, ExitCode::usage, error.what());
    }
    try {
        return static_cast<int>(command());
    } catch (const Failure& failure) {
        return say(app, failure.code(), failure.what());
    } catch (const std::exception& error) {
        return say(app, ExitCode::threw, error.what());
    }
}

}  // namespace tool
