#pragma once

#include <optional>
#include <string>

namespace camera {

/// A number as people type and read it: "36.5", "nan", "inf", "-inf".
[[nodiscard]] std::string number_text(double value);

/// Nothing where the whole text is not one number that a double can hold.
[[nodiscard]] std::optional<double> number_of(const std::string& text);

}  // namespace camera
