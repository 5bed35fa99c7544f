#pragma once

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
    software = 70,           ///< a block threw, crashed or hung; no memory is left (EX_SOFTWARE)
    misconfigured = 78,      ///< the graph, configuration or scenario is wrong (EX_CONFIG)
};

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
