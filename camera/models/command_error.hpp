#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <utility>

#include "common/bus/error_reply.hpp"
#include "common/text/line_text.hpp"
#include "common/text/suggestion.hpp"

namespace camera {

/// A refusal quotes what it was called with, which may be mebibytes; in bytes.
inline constexpr std::size_t longest_refusal = 1000;

/// A service's answer to a call that it does not serve: becomes a D-Bus error reply.
class DBusError : public common::ErrorReply {
  public:
    /// `name` is the D-Bus error name, `sentence` its message.
    DBusError(std::string name, const std::string& sentence)
        : ErrorReply(std::move(name), common::shortened(sentence, longest_refusal)) {}
};

/// The camera's answer to an order that makes no sense (an unknown sensor, say). `what()` is one
/// sentence with the help behind it; a file reader shows sentence and help apart.
class CommandError : public std::runtime_error {
  public:
    explicit CommandError(std::string sentence, std::string help = {})
        : std::runtime_error(common::shortened(common::with_help(sentence, help), longest_refusal)),
          sentence_(common::shortened(sentence, longest_refusal)),
          help_(std::move(help)) {}

    [[nodiscard]] const std::string& sentence() const noexcept { return sentence_; }
    /// "did you mean 'NAME'?" or empty.
    [[nodiscard]] const std::string& help() const noexcept { return help_; }

  private:
    std::string sentence_;
    std::string help_;
};

}  // namespace camera
