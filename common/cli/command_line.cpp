#include "common/cli/command_line.hpp"

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <memory>
#include <optional>
#include <sstream>

#include "common/cli/help_formatter.hpp"
#include "common/events/print_text.hpp"
#include "common/text/line_text.hpp"
#include "common/text/number_text.hpp"
#include "common/text/suggestion.hpp"

namespace common {
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

/// An option that is given an empty value: CLI11 would take the next argument, or a default.
std::string option_without_value(int argc, char** argv) {
    for (int i = 1; i < argc && std::string_view(argv[i]) != "--"; ++i) {
        const std::string_view word = argv[i];
        if (word.starts_with("--") && word.find('=') == word.size() - 1)
            return std::string(word.substr(0, word.size() - 1)) +
                   ": the value behind '=' is missing";
    }
    return {};
}

/// The command that was given, or the program where none was.
CLI::App& given_command(CLI::App& app) {
    for (CLI::App* command : app.get_subcommands([](CLI::App*) { return true; })) {
        if (command->parsed())
            return *command;
    }
    return app;
}

/// The first option that is known neither to the command nor to the program. CLI11 would name it
/// behind arguments that are in excess without it, or find fault with what it takes for missing.
std::string unknown_option(CLI::App& app, int argc, char** argv) {
    const CLI::App& command = given_command(app);
    char** const dashes = std::find(argv, argv + argc, std::string_view("--"));
    for (const std::string& word : app.remaining(true)) {
        if (word.size() < 2 || word.front() != '-' || std::find(argv, dashes, word) == dashes)
            continue;
        const std::string typed = word.substr(0, word.find('='));
        std::vector<std::string> names;
        for (const CLI::Option* option : command.get_options()) {
            for (const std::string& name : option->get_lnames())
                names.push_back("--" + name);
        }
        const std::string hint = did_you_mean(typed, names);
        const std::string help =
            (&command == &app ? "" : app.get_name() + " ") + command.get_name() + " --help";
        return "unknown option " + in_quotes(typed) +
               (hint.empty() ? " (see " + help + ")" : "; " + hint);
    }
    return {};
}

/// In the order in which they were typed, which CLI11 turns round.
std::string unexpected_arguments(const std::vector<std::string>& arguments) {
    std::string list;
    std::size_t count = 0;
    for (const std::string& argument : arguments) {
        if (argument == "--")
            continue;
        list += ' ' + shortened(argument, 200);
        ++count;
    }
    return (count == 1 ? "The following argument was not expected:"
                       : "The following arguments were not expected:") +
           list;
}

/// Parses the command line. @returns the exit code where that ends the program.
std::optional<int> parse(CLI::App& app, int argc, char** argv) {
    try {
        app.parse(argc, argv);
        return std::nullopt;
    } catch (const CLI::Success& success) {
        // Help and version: CLI11 prints them and would end with its own code.
        std::ostringstream text;
        app.exit(success, text, text);
        print_text(text.str());
        return static_cast<int>(ExitCode::done);
    } catch (const CLI::ParseError& error) {
        std::string sentence = unknown_option(app, argc, argv);
        if (sentence.empty() &&
            error.get_exit_code() == static_cast<int>(CLI::ExitCodes::ExtrasError))
            sentence = unexpected_arguments(app.remaining(true));
        return say(app, ExitCode::usage, sentence.empty() ? error.what() : sentence);
    }
}

}  // namespace

const CLI::Validator whole_number(
    [](std::string& text) {
        const std::optional<std::int64_t> number = parse_number<std::int64_t>(text);
        if (!number)
            return in_quotes(text) + " is not a whole number of at most 64 bits, in decimal digits";
        text = std::to_string(*number);  // "010" is eight to CLI11
        return std::string();
    },
    "");

const CLI::Validator decimal_number(
    [](const std::string& text) {
        return parse_number<double>(text) ? std::string()
                                          : in_quotes(text) + " is not a number in decimal digits";
    },
    "");

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
    // A write to a reader that has gone is to fail, and not to end the process.
    std::signal(SIGPIPE, SIG_IGN);
    if (const std::string sentence = unknown_command(app, argc, argv); !sentence.empty())
        return say(app, ExitCode::usage, sentence);
    if (const std::string sentence = option_without_value(argc, argv); !sentence.empty())
        return say(app, ExitCode::usage, sentence);
    try {
        if (const std::optional<int> ended = parse(app, argc, argv))
            return *ended;
        return static_cast<int>(code_after_stderr(command()));
    } catch (const Failure& failure) {
        return say(app, failure.code(), failure.what());
    } catch (const std::exception& error) {
        return say(app, ExitCode::software, error.what());
    }
}

}  // namespace common
