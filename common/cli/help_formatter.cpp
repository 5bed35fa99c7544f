#include "common/cli/help_formatter.hpp"

#include <algorithm>
#include <sstream>

namespace common {
namespace {

constexpr std::size_t line_width = 80;
constexpr std::size_t text_column = 30;

/// The words of `text`, each line behind the first indented by `indent`; `used` columns of the
/// first line are taken. Line breaks of the text itself stay.
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

/// A name, and what it is for from `text_column` on.
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

/// What an option takes: "text|json" for "TEXT:{text,json}", "SECONDS" for "FLOAT:SECONDS".
std::string argument(const CLI::Option& option) {
    if (!option.get_option_text().empty())
        return option.get_option_text();
    if (option.get_type_size() == 0)
        return {};
    std::string type = option.get_type_name();
    type.erase(0, type.rfind(':') + 1);
    type.erase(
        std::remove_if(type.begin(), type.end(), [](char c) { return c == '{' || c == '}'; }),
        type.end());
    std::replace(type.begin(), type.end(), ',', '|');
    if (option.get_expected_max() == CLI::detail::expected_max_vector_size)
        type += "...";
    return type;
}

}  // namespace

std::string HelpFormatter::make_option(const CLI::Option* option, bool is_positional) const {
    std::string name;
    if (is_positional) {
        name = option->get_name(true, false);
    } else {
        for (const std::string& letter : option->get_snames())
            name += "-" + letter + ", ";
        for (const std::string& word : option->get_lnames())
            name += "--" + word + ", ";
        name.resize(name.size() - 2);
        const std::string takes = argument(*option);
        if (!takes.empty())
            name += (takes.starts_with("[=") ? "" : " ") + takes;
    }
    std::string text = option->get_description();
    if (!option->get_default_str().empty())
        text += " (default: " + option->get_default_str() + ")";
    return entry(name, text);
}

std::string HelpFormatter::make_subcommand(const CLI::App* command) const {
    return entry(command->get_name(), command->get_description());
}

std::string HelpFormatter::make_footer(const CLI::App* app) const {
    return app->get_footer().empty() ? std::string() : wrapped(app->get_footer(), 0, 0);
}

}  // namespace common
