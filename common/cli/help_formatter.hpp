#pragma once

#include <string>

#include "common/cli/command_line.hpp"

namespace common {

/// The options that every level of a program understands.
[[nodiscard]] const std::vector<Option>& common_options();

/// The text of `--help` of a program, or of its `command` if that is not null, in lines of 80
/// columns. Completion reads this form.
[[nodiscard]] std::string format_help(const Program& program, const Command* command);

}  // namespace common
