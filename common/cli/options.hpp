#pragma once

#include <string>

#include "common/cli/command_line.hpp"
#include "common/events/event_lines.hpp"
#include "common/text/terminal.hpp"

namespace common {

// Options that commands of both programs have. Each variable outlives the command; its value is the
// default.

/// `--bus ADDRESS`.
/// @param subject the beginning of the help: "The bus of the camera".
[[nodiscard]] Option bus_option(const std::string& subject, std::string& bus);
[[nodiscard]] Option bus_option(const std::string& subject, std::optional<std::string>& bus);

/// `--format text|json`.
/// @param subject what has the format: "the event lines".
[[nodiscard]] Option format_option(const std::string& subject, EventFormat& format);

/// `--timestamps relative|wall|none`.
[[nodiscard]] Option timestamps_option(Timestamps& timestamps);

/// `--color auto|always|never`.
[[nodiscard]] Option color_option(ColorChoice& color);

}  // namespace common
