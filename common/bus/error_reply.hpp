#pragma once

#include <stdexcept>
#include <string>
#include <utility>

#include "common/text/line_text.hpp"

namespace common {

/// Thrown by a callback that replies with a D-Bus error; `what()` is its message, shortened to
/// `max_error_text`.
class ErrorReply : public std::runtime_error {
  public:
    /// @param name the D-Bus error name.
    ErrorReply(std::string name, const std::string& message)
        : std::runtime_error(shortened(message, max_error_text)), name_(std::move(name)) {}

    [[nodiscard]] const std::string& name() const noexcept { return name_; }

  private:
    std::string name_;
};

}  // namespace common
