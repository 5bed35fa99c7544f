#pragma once

#include <string>

#include "common/text/json.hpp"

namespace camera {

/// A value as TOML, on one line. An integer that TOML cannot hold becomes a string.
[[nodiscard]] std::string toml_text(const common::Json& value);

}  // namespace camera
