#pragma once

#include <charconv>
#include <optional>
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

}  // namespace common
