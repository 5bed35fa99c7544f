#pragma once

#include <string>

#include "common/text/json.hpp"

namespace camera {

/// The state of a camera for people; takes what `Camera::show` returns.
[[nodiscard]] std::string show_text(const common::Json& state);

}  // namespace camera
