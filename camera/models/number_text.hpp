#pragma once

#include <string>

namespace camera {

/// A number as people type and read it: "36.5", "nan", "inf", "-inf".
[[nodiscard]] std::string number_text(double value);

}  // namespace camera
