#pragma once

#include <string>
#include <vector>

namespace test {

/// The names in the text that a program prints with --help.
struct Help {
    std::string usage;  ///< "fenwa run [OPTIONS] GRAPH"
    std::vector<std::string> commands;
    std::vector<std::string> arguments;
    std::vector<std::string> options;  ///< "-h", "--format"
};

/// Runs a program of ours with these arguments and --help.
/// @throws std::runtime_error if that fails.
Help help_of(const std::string& program, const std::vector<std::string>& arguments = {});

/// The path of a program of ours.
std::string path_of(const std::string& program);

/// The names of options in "-h, --help" or "--format text|json".
std::vector<std::string> option_names(const std::string& text);

}  // namespace test
