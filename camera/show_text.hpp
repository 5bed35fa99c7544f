#pragma once

#include <string>

#include "common/json_text.hpp"

namespace camera {

/// The state of a camera for people; takes what `Camera::show` returns.
[[nodiscard]] std::string show_text(const tool::Json& state);

}  // namespace camera
