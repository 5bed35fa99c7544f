#pragma once

#include <charconv>
#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace common {

/// The number that a text is, all of it: decimal, without blanks, without a sign '+'. A double may
/// also be nan, inf or -inf.
/// @returns nothing where the text is not one, or does not fit.
template <class Number>
[[nodiscard]] std::optional<Number> parse_number(std::string_view text) {
    Number value{};
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc{} || stop != end)
        return std::nullopt;
    return value;
}

/// Appends a number as `json_line` writes it: the shortest decimal that is read as the same double,
/// with a fraction or an exponent: "36.0", "1e-05". NaN and infinities become "nan", "inf", "-inf".
void append_number(std::string& text, double value);

/// Appends a time of 0 or more in seconds, as `append_number` does, without a detour over a double.
void append_seconds(std::string& text, std::chrono::microseconds time);

}  // namespace common
