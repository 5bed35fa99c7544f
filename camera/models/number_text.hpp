#pragma once

#include <string>

namespace camera {

/// A number as people type and read it: "36.5", "nan", "inf", "-inf".
[[nodiscard]] std::string number_text(double value);

/// Reads a number that may also be nan, inf or -inf.
/// @throws CommandError, which names `noun`, where the text is not one.
[[nodiscard]] double number_from_text(const std::string& text, const char* noun);

/// Reads a finite number of at least 0.
/// @param otherwise what else is accepted, for the message: ", or none".
/// @throws CommandError, which names `noun`, where the text is not one.
[[nodiscard]] double amount_from_text(const std::string& text, const char* noun,
                                      const char* otherwise = "");

}  // namespace camera
