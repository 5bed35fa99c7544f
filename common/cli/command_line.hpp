#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "common/process/exit_code.hpp"

namespace common {

/// Stores one value from the command line.
/// @returns what is wrong with the value, empty where nothing is.
using TakeValue = std::function<std::string(const std::string& value)>;

/// An option of a command, or one of its arguments.
struct Option {
    enum class Count {
        once,      ///< at most one value
        repeated,  ///< one value each time that it is given
        several,   ///< several values each time that it is given
    };

    std::string name{};        ///< "--format"; "GRAPH" for an argument
    std::string short_name{};  ///< "-o", empty for none
    /// What an option takes: "FILE"; "[=NAME]" where the value may be left out; empty for a flag.
    std::string value{};
    std::vector<std::string> choices{};  ///< the only values, in place of `value`
    std::string help{};
    std::string default_text{};  ///< the default as the help shows it
    TakeValue take{};            ///< gets "" for a flag, and for a value that is left out
    Count count = Count::once;
    bool required = false;
    std::string needs{};                  ///< an option of the same command
    std::vector<std::string> excludes{};  ///< options of the same command
};

/// One command of a program.
struct Command {
    std::string name{};
    std::string help{};
    std::vector<Option> arguments{};  ///< in their order
    std::vector<Option> options{};
    std::string footer{};  ///< comes before the program's own
    bool hidden = false;   ///< in no help and no suggestion
    /// Runs the command after the values were taken. @throws Failure
    std::function<ExitCode()> run{};
};

/// A program whose first argument is a command. Each level understands `--help` and `--version`.
struct Program {
    std::string name{};  ///< set by `run_command_line`
    std::string version{};
    std::string help{};
    std::string footer{};  ///< the end of every help
    std::vector<Command> commands{};
};

/// Stores a value as it is.
[[nodiscard]] TakeValue into(std::string& target);
/// Decimal numbers only: "0x10" is wrong, and "010" is ten.
[[nodiscard]] TakeValue into(std::int64_t& target);
[[nodiscard]] TakeValue into(double& target);
/// A time in seconds, from a microsecond to thirty years, which clocks that count nanoseconds can
/// add to the time of day.
[[nodiscard]] TakeValue into(std::chrono::microseconds& target);
/// Sets a flag.
[[nodiscard]] TakeValue into(bool& target);

/// Stores a value if it is given at all.
template <class Value>
[[nodiscard]] TakeValue into(std::optional<Value>& target) {
    return [&target](const std::string& text) {
        Value value{};
        const std::string mistake = into(value)(text);
        if (mistake.empty())
            target = std::move(value);
        return mistake;
    };
}

/// Appends each value.
template <class Value>
[[nodiscard]] TakeValue into(std::vector<Value>& target) {
    return [&target](const std::string& text) {
        Value value{};
        const std::string mistake = into(value)(text);
        if (mistake.empty())
            target.push_back(std::move(value));
        return mistake;
    };
}

/// Parses the command line and runs the command. First it names the process in its messages
/// (common/events/message.hpp), ignores SIGPIPE, and opens /dev/null for each standard stream that
/// is closed, so that no other file takes its number.
///
/// Help and version go to stdout. A wrong command line is a message on stderr, with the nearest
/// command or option where one is unknown, and exit code 2. A `Failure` is a message too, and gives
/// its own code; any other exception gives 70. Done becomes 69 if stdout or stderr takes no more
/// (common/events/print_text.hpp).
///
/// @param name how the process calls itself.
/// @param describe makes the program, and may take arguments from the end of the line for itself;
/// what it throws is handled as above.
[[nodiscard]] int run_command_line(const char* name,
                                   const std::function<Program(int& argc, char** argv)>& describe,
                                   int argc, char** argv);

}  // namespace common
