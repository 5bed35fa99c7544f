#pragma once

#include <string_view>

#include "common/events/message.hpp"
#include "common/text/terminal.hpp"

namespace host {

/// How urgent a log line of a block is: level 1 and below is an error, 2 and 3 a warning.
[[nodiscard]] constexpr common::Severity severity_of(int level) noexcept {
    if (level <= 1)
        return common::Severity::error;
    return level <= 3 ? common::Severity::warning : common::Severity::info;
}

/// "error", "warning" or "info".
[[nodiscard]] constexpr std::string_view severity_name(common::Severity severity) noexcept {
    if (severity == common::Severity::error)
        return "error";
    return severity == common::Severity::warning ? "warning" : "info";
}

/// The colour in which that word is printed.
[[nodiscard]] inline std::string_view color_of(common::Severity severity,
                                               const common::Palette& colors) noexcept {
    if (severity == common::Severity::error)
        return colors.red;
    return severity == common::Severity::warning ? colors.yellow : colors.dim;
}

}  // namespace host
