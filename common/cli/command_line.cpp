#include "common/cli/command_line.hpp"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <csignal>
#include <string_view>

#include "common/cli/help_formatter.hpp"
#include "common/events/message.hpp"
#include "common/events/print_text.hpp"
#include "common/events/standard_output.hpp"
#include "common/text/line_text.hpp"
#include "common/text/number_text.hpp"
#include "common/text/suggestion.hpp"

namespace common {
namespace {

/// What CLI11 takes for a flag without a value. No value can be a line end.
constexpr const char* no_value = "\n";

std::string wrong_choice(const Option& option, const std::string& value) {
    if (option.choices.empty() || std::ranges::count(option.choices, value) != 0)
        return {};
    return fmt::format("{} not in {{{}}}", value, fmt::join(option.choices, ","));
}

/// Hands a value to its option. @returns what is wrong with the value.
std::string take(const Option& option, const std::string& value) {
    const std::string mistake = wrong_choice(option, value);
    return mistake.empty() ? option.take(value == no_value ? std::string() : value) : mistake;
}

void add_flag(CLI::App& app, const Option& option) {
    if (option.value.empty()) {
        app.add_flag_function(option.name, [&option](std::int64_t count) {
            if (count > 0)
                option.take({});
        });
        return;
    }
    // As a CLI11 option it would take the next argument for its value.
    app.add_flag(fmt::format("{}{{{}}}", option.name, no_value))
        ->check([&option](const std::string& value) { return take(option, value); });
}

void add_option(CLI::App& app, const Option& option) {
    const std::string names =
        option.short_name.empty() ? option.name : option.short_name + ',' + option.name;
    CLI::Option& added = *app.add_option(names, [&option](const CLI::results_t& values) {
        for (const std::string& value : values) {
            if (const std::string mistake = take(option, value); !mistake.empty())
                throw CLI::ValidationError(option.name, mistake);
        }
        return true;
    });
    added.required(option.required);
    added.type_name(option.choices.empty() ? option.value
                                           : fmt::format("{}", fmt::join(option.choices, "|")));
    if (option.count == Option::Count::repeated)
        added.expected(1)->take_all()->allow_extra_args(false);
    else if (option.count == Option::Count::several)
        added.expected(CLI::detail::expected_max_vector_size);
}

void add_version(CLI::App& app, const Program& program) {
    app.set_version_flag("--version", program.version);
}

void add_options(CLI::App& added, const Program& program, const Command& command) {
    add_version(added, program);
    for (const Option& argument : command.arguments)
        add_option(added, argument);
    for (const Option& option : command.options) {
        const bool is_flag =
            option.choices.empty() && (option.value.empty() || option.value[0] == '[');
        is_flag ? add_flag(added, option) : add_option(added, option);
    }
    for (const Option& option : command.options) {
        CLI::Option& constrained = *added.get_option(option.name);
        if (!option.needs.empty())
            constrained.needs(added.get_option(option.needs));
        for (const std::string& other : option.excludes)
            constrained.excludes(added.get_option(other));
    }
}

/// The first argument if it is meant to be a command and no command has that name: CLI11 would
/// call it an unexpected argument of the program.
std::string unknown_command(const Program& program, int argc, char** argv) {
    if (argc < 2 || argv[1][0] == '-')
        return {};
    std::vector<std::string> names;
    for (const Command& command : program.commands) {
        if (command.name == argv[1])
            return {};
        if (!command.hidden)
            names.push_back(command.name);
    }
    const std::string hint = did_you_mean(argv[1], names);
    return fmt::format("unknown command '{}'{}", argv[1],
                       hint.empty() ? fmt::format(" (see {} --help)", program.name) : "; " + hint);
}

/// An option with an empty value: CLI11 would take the next argument, or a default.
std::string option_without_value(int argc, char** argv) {
    for (int i = 1; i < argc && std::string_view(argv[i]) != "--"; ++i) {
        const std::string_view word = argv[i];
        if (word.starts_with("--") && word.find('=') == word.size() - 1)
            return fmt::format("{}: the value after '=' is missing",
                               word.substr(0, word.size() - 1));
    }
    return {};
}

/// The command of the command line, null if there is none.
const Command* given_command(const Program& program, const CLI::App& app) {
    for (const Command& command : program.commands) {
        if (app.get_subcommand(command.name)->parsed())
            return &command;
    }
    return nullptr;
}

/// The first option that neither the command nor the program has. CLI11 would name it after
/// arguments that are in excess without it, or report the next argument as missing.
std::string unknown_option(const Program& program, const CLI::App& app, int argc, char** argv) {
    char** const dashes = std::find(argv, argv + argc, std::string_view("--"));
    const std::vector<std::string> remaining = app.remaining(true);
    const auto found = std::ranges::find_if(remaining, [&](const std::string& word) {
        return word.size() > 1 && word.front() == '-' && std::find(argv, dashes, word) != dashes;
    });
    if (found == remaining.end())
        return {};
    const Command* const command = given_command(program, app);
    std::vector<std::string> names{"--help", "--version"};
    if (command != nullptr) {
        for (const Option& option : command->options)
            names.push_back(option.name);
    }
    const std::string typed = found->substr(0, found->find('='));
    const std::string hint = did_you_mean(typed, names);
    const std::string level = program.name + (command == nullptr ? "" : ' ' + command->name);
    return fmt::format("unknown option {}{}", in_quotes(typed),
                       hint.empty() ? fmt::format(" (see {} --help)", level) : "; " + hint);
}

/// In the order in which they were typed.
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

ExitCode parse_and_run(const Program& program, int argc, char** argv) {
    CLI::App app("", program.name);
    app.set_help_flag("-h,--help");
    add_version(app, program);
    app.require_subcommand(1);
    for (const Command& command : program.commands) {
        CLI::App& added = *app.add_subcommand(command.name);
        // The options of all commands would take longer than the parsing.
        if (std::find(argv, argv + argc, command.name) != argv + argc)
            add_options(added, program, command);
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        print_text(format_help(program, given_command(program, app)));
        return ExitCode::done;
    } catch (const CLI::CallForVersion&) {
        print_text(program.version + '\n');
        return ExitCode::done;
    } catch (const CLI::ParseError& error) {
        std::string sentence = unknown_option(program, app, argc, argv);
        if (sentence.empty() &&
            error.get_exit_code() == static_cast<int>(CLI::ExitCodes::ExtrasError))
            sentence = unexpected_arguments(app.remaining(true));
        throw Failure(ExitCode::usage, sentence.empty() ? error.what() : sentence);
    }
    return code_after_stderr(given_command(program, app)->run());
}

}  // namespace

TakeValue into(std::string& target) {
    return [&target](const std::string& value) {
        target = value;
        return std::string();
    };
}

TakeValue into(std::int64_t& target) {
    return [&target](const std::string& value) {
        const auto number = parse_number<std::int64_t>(value);
        target = number.value_or(0);
        return number ? std::string()
                      : in_quotes(value) +
                            " is not a whole number of at most 64 bits, in decimal digits";
    };
}

TakeValue into(double& target) {
    return [&target](const std::string& value) {
        const auto number = parse_number<double>(value);
        target = number.value_or(0);
        return number ? std::string() : in_quotes(value) + " is not a number in decimal digits";
    };
}

TakeValue into(std::chrono::microseconds& target) {
    return [&target](const std::string& value) {
        const auto seconds = parse_number<double>(value);
        if (!seconds || !(*seconds >= 1e-6 && *seconds <= 1e9))
            return in_quotes(value) + " is not a number of seconds from 0.000001 to 1000000000";
        target = std::chrono::microseconds(std::llround(*seconds * 1e6));
        return std::string();
    };
}

TakeValue into(bool& target) {
    return [&target](const std::string&) {
        target = true;
        return std::string();
    };
}

int run_command_line(const char* name,
                     const std::function<Program(int& argc, char** argv)>& describe, int argc,
                     char** argv) {
    const auto fail = [](ExitCode code, const std::string& sentence) {
        print_message(Severity::error, sentence);
        return static_cast<int>(code);
    };
    open_closed_streams();
    // A reader that goes away, and a file that may not grow, are errors of a write.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    set_program_name(name);
    try {
        Program program = describe(argc, argv);
        program.name = name;
        for (const std::string& mistake :
             {unknown_command(program, argc, argv), option_without_value(argc, argv)}) {
            if (!mistake.empty())
                return fail(ExitCode::usage, mistake);
        }
        return static_cast<int>(parse_and_run(program, argc, argv));
    } catch (const Failure& failure) {
        return fail(failure.code(), failure.what());
    } catch (const std::exception& error) {
        return fail(ExitCode::software, error.what());
    }
}

}  // namespace common
