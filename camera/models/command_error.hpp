#pragma once

#include <fmt/core.h>

#include <cstddef>
#include <stdexcept>
#include <string>
#include <utility>

#include "common/bus/error_reply.hpp"
#include "common/text/line_text.hpp"
#include "common/text/suggestion.hpp"

namespace camera {

/// A service's reply to a call that it does not serve.
using DBusError = common::ErrorReply;

/// The camera's answer to a command that it cannot run, because of an unknown sensor, say. `what()`
/// is the sentence and then the help; the reader of a file shows the two apart.
class CommandError : public std::runtime_error {
  public:
    explicit CommandError(std::string sentence, std::string help = {})
        : std::runtime_error(
              common::shortened(common::with_help(sentence, help), common::max_error_text)),
          sentence_(common::shortened(sentence, common::max_error_text)),
          help_(std::move(help)) {}

    /// What is wrong.
    [[nodiscard]] const std::string& sentence() const noexcept { return sentence_; }
    /// "did you mean 'NAME'?" or empty.
    [[nodiscard]] const std::string& help() const noexcept { return help_; }

  private:
    std::string sentence_;
    std::string help_;
};

/// A model that takes no more entries, so that a client which adds for ever does not take all
/// memory.
class CapacityError : public std::length_error {
  public:
    /// @param name the last part of the D-Bus error name: "TooManyTexts". It must outlive the
    /// error.
    /// @param max how many entries the model takes.
    /// @param noun the entries, in the plural: "texts".
    CapacityError(const char* name, std::size_t max, const char* noun)
        : std::length_error(fmt::format("At most {} {} are accepted.", max, noun)), name_(name) {}

    [[nodiscard]] const char* name() const noexcept { return name_; }

  private:
    const char* name_;
};

}  // namespace camera
