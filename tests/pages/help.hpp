#pragma once

#include <string>
#include <vector>

namespace test {

/// Something with a name and what is said of it, such as an option.
struct Entry {
    std::string name;  ///< "GRAPH", "--format text|json"
    std::string text;  ///< in one line
};

/// The text that a program prints with --help.
struct Help {
    std::string description;
    std::string usage;
    std::vector<Entry> arguments;
    std::vector<Entry> options;
    std::vector<Entry> commands;
    std::vector<std::string> footer;  ///< its paragraphs, each in one line

    /// The paragraph that begins with `word` and a colon, without them and without its full stop.
    [[nodiscard]] std::string paragraph(const std::string& word) const;
};

/// Runs a program of ours with these arguments and --help.
/// @throws std::runtime_error where that fails or the text has another form.
Help help_of(const std::string& program, const std::vector<std::string>& arguments = {});

/// The path of a program of ours.
std::string path_of(const std::string& program);

/// The parts of a text between separators.
std::vector<std::string> split(const std::string& text, const std::string& separator);

}  // namespace test
