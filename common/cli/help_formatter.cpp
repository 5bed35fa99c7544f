#include "common/cli/help_formatter.hpp"

#include <fmt/format.h>

#include <sstream>

namespace common {
namespace {

constexpr std::size_t line_width = 80;
constexpr std::size_t text_column = 30;

/// The words of `text` in lines. The first line has `used` columns already, and the next ones begin
/// at `indent`. Line breaks of the text stay.
std::string wrapped(const std::string& text, std::size_t used, std::size_t indent) {
    std::string out;
    std::istringstream lines(text);
    bool first_line = true;
    for (std::string line; std::getline(lines, line); first_line = false) {
        std::size_t column = used;
        if (!first_line) {
            out += '\n' + std::string(indent, ' ');
            column = indent;
        }
        std::istringstream words(line);
        bool first_word = true;
        for (std::string word; words >> word; first_word = false) {
            if (!first_word && column + 1 + word.size() > line_width) {
                out += '\n' + std::string(indent, ' ');
                column = indent;
            } else if (!first_word) {
                out += ' ';
                ++column;
            }
            out += word;
            column += word.size();
        }
    }
    return out + '\n';
}

std::string entry(const std::string& name, const std::string& text) {
    std::string line = "  " + name;
    if (text.empty())
        return line + '\n';
    if (line.size() + 2 > text_column)
        line += '\n' + std::string(text_column, ' ');
    else
        line.resize(text_column, ' ');
    return line + wrapped(text, text_column, text_column);
}

/// "--format text|json", "--control[=NAME]", "-o, --output FILE", "--without SERVICE...".
std::string option_name(const Option& option) {
    const std::string takes =
        option.choices.empty() ? option.value : fmt::format("{}", fmt::join(option.choices, "|"));
    return option.short_name + (option.short_name.empty() ? "" : ", ") + option.name +
           (takes.empty() || takes.starts_with('[') ? "" : " ") + takes +
           (option.count == Option::Count::several ? "..." : "");
}

std::string usage(const Program& program, const Command* command) {
    std::string line = "Usage: " + program.name;
    if (command == nullptr)
        return line + " [OPTIONS] SUBCOMMAND\n";
    line += ' ' + command->name + " [OPTIONS]";
    for (const Option& argument : command->arguments) {
        const std::string name =
            argument.name + (argument.count == Option::Count::several ? "..." : "");
        line += argument.required ? ' ' + name : " [" + name + "]";
    }
    return line + '\n';
}

std::string option_entry(const Option& option) {
    return entry(option_name(option),
                 option.default_text.empty()
                     ? option.help
                     : fmt::format("{} (default: {})", option.help, option.default_text));
}

}  // namespace

const std::vector<Option>& common_options() {
    static const std::vector<Option> options{
        {.name = "-h, --help", .help = "Prints this text"},
        {.name = "--version", .help = "Prints the version"},
    };
    return options;
}

std::string format_help(const Program& program, const Command* command) {
    std::string text = (command == nullptr ? program.help : command->help) + '\n';
    text += usage(program, command);
    if (command != nullptr && !command->arguments.empty()) {
        text += "\nPositionals:\n";
        for (const Option& argument : command->arguments)
            text += entry(argument.name, argument.help);
    }
    text += "\nOptions:\n";
    for (const Option& option : common_options())
        text += option_entry(option);
    if (command == nullptr) {
        text += "\nSubcommands:\n";
        for (const Command& each : program.commands) {
            if (!each.hidden)
                text += entry(each.name, each.help);
        }
    } else {
        for (const Option& option : command->options)
            text += option_entry(option);
    }
    if (command != nullptr && !command->footer.empty())
        text += '\n' + wrapped(command->footer, 0, 0);
    return text + '\n' + wrapped(program.footer, 0, 0);
}

}  // namespace common
