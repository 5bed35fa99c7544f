#pragma once

#include <string>
#include <vector>

namespace test {

using Words = std::vector<std::string>;

/// A real bash that has read the completion file.
struct Shell {
    std::string setup;   ///< commands before the file is read, such as "set -u"
    std::string folder;  ///< where it stands; empty: wherever
    std::string bus;     ///< address of its system bus; empty: none

    /// What is offered for a command line that readline has taken apart into these words; the last
    /// one is to be completed. In the order in which it is offered. The test fails where the shell
    /// says anything on stderr.
    [[nodiscard]] Words offers(const Words& words) const;
    /// The shell's options and IFS before and behind a completion, which should be the same.
    [[nodiscard]] std::pair<std::string, std::string> state_around(const Words& words) const;

  private:
    [[nodiscard]] std::string run(const std::string& script, const Words& words) const;
};

}  // namespace test
