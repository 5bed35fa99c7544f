#pragma once

#include <stdexcept>
#include <string>
#include <utility>

#include "common/bus/error_reply.hpp"
#include "common/text/line_text.hpp"
#include "common/text/suggestion.hpp"

namespace camera {

/// A service's reply to a call that it does not serve.
using DBusError = common::ErrorReply;

/// The camera's answer to an order that makes no sense (an unknown sensor, say). `what()` is one
/// sentence with the help behind it; a file reader shows sentence and help apart.
class CommandError : public std::runtime_error {
  public:
    explicit CommandError(std::string sentence, std::string help = {})
        : std::runtime_error(
              common::shortened(common::with_help(sentence, help), common::max_error_text)),
          sentence_(common::shortened(sentence, common::max_error_text)),
          help_(std::move(help)) {}

    [[nodiscard]] const std::string& sentence() const noexcept { return sentence_; }
    /// "did you mean 'NAME'?" or empty.
    [[nodiscard]] const std::string& help() const noexcept { return help_; }

  private:
    std::string sentence_;
    std::string help_;
};

}  // namespace camera
