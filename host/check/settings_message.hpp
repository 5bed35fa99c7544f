#pragma once

#include <string>

#include "fenwa/block_configuration.hpp"

namespace host {

/// Settings as a text in ASCII, for another process of this program: every value as it is, numbers
/// that are none and strings of any bytes included.
[[nodiscard]] std::string to_message(const Fenwa::BlockConfiguration& settings);

/// The settings that `to_message` has written.
/// @throws common::Json::exception, std::invalid_argument where the text is another.
[[nodiscard]] Fenwa::BlockConfiguration settings_from_message(const std::string& message);

}  // namespace host
