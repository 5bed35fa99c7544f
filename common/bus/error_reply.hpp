#pragma once

#include <stdexcept>
#include <string>
#include <utility>

namespace common {

/// Thrown by a callback that answers with a D-Bus error; `what()` is its message.
class ErrorReply : public std::runtime_error {
  public:
    /// @param name the D-Bus error name.
    ErrorReply(std::string name, const std::string& message)
        : std::runtime_error(message), name_(std::move(name)) {}

    [[nodiscard]] const std::string& name() const noexcept { return name_; }

  private:
    std::string name_;
};

}  // namespace common
