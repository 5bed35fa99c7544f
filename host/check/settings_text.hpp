#pragma once

#include <string>

#include "fenwa/block_configuration.hpp"

namespace host {

/// Settings as ASCII text for another process of this program. Every value is kept, NaN, infinities
/// and strings of any bytes included.
[[nodiscard]] std::string settings_to_text(const Fenwa::BlockConfiguration& settings);

/// The settings that `settings_to_text` has written.
/// @throws common::Json::exception, std::invalid_argument if the text is malformed.
[[nodiscard]] Fenwa::BlockConfiguration settings_from_text(const std::string& text);

}  // namespace host
