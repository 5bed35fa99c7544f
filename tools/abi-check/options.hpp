#pragma once

#include <optional>
#include <string>

namespace abi_check {

/// What the command line asks for.
struct Options {
    std::string shared = "libfenwa-shared.so.0";          ///< soname or path, as for dlopen
    std::string algo_tools = "libfenwa-algo-tools.so.0";  ///< soname or path, as for dlopen
    std::string plugin;                                   ///< path; beside the program by default
    bool differences_only = false;
    bool time = false;
};

/// Reads the command line. After --help and --version, which are answered, and after a mistake,
/// which is reported on stderr, there are no options but an exit code.
struct CommandLine {
    std::optional<Options> options;
    int exit_code = 0;
};
CommandLine read_command_line(int count, char** words);

}  // namespace abi_check
