#pragma once

#include <cerrno>
#include <stdexcept>
#include <string>

namespace common {

/// How the commands of this project end. Scripts rely on the numbers.
enum class ExitCode : int {
    done = 0,                ///< everything asked for was done; a stop by signal counts
    expectation_failed = 1,  ///< a scenario step expected something that did not come
    usage = 2,               ///< the command line is wrong
    unreadable = 66,         ///< a file cannot be read (EX_NOINPUT of sysexits.h)
    unavailable = 69,        ///< bus not reached, name not had, connection lost (EX_UNAVAILABLE)
    software = 70,           ///< a block threw, crashed or hung; the machine lacks memory or
                             ///< descriptors (EX_SOFTWARE)
    misconfigured = 78,      ///< the graph, configuration or scenario is wrong (EX_CONFIG)
};

/// The errnos for a lack of memory or descriptors: nothing is wrong with the file that was to be
/// opened, and a later try may succeed.
inline constexpr int shortages[] = {EMFILE, ENFILE, ENOMEM};

/// The exit code of a command that cannot read or start a file.
/// @param error an errno.
[[nodiscard]] constexpr ExitCode exit_code_of_unreadable(int error) noexcept {
    for (const int shortage : shortages) {
        if (error == shortage)
            return ExitCode::software;
    }
    return ExitCode::unreadable;
}

/// Ends a command: `what()` is the sentence for the user, without the program's name before it.
class Failure : public std::runtime_error {
  public:
    Failure(ExitCode code, const std::string& sentence)
        : std::runtime_error(sentence), code_(code) {}

    [[nodiscard]] ExitCode code() const noexcept { return code_; }

  private:
    ExitCode code_;
};

}  // namespace common
