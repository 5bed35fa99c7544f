#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace common {

/// Whether a byte of UTF-8 is the first one of its code point.
[[nodiscard]] constexpr bool starts_code_point(char c) noexcept {
    return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U;
}

/// The number of code points of a text in UTF-8.
[[nodiscard]] constexpr std::size_t code_points(std::string_view text) noexcept {
    return static_cast<std::size_t>(std::ranges::count_if(text, starts_code_point));
}

/// The beginning of a text with at most `count` code points.
[[nodiscard]] constexpr std::string_view first_code_points(std::string_view text,
                                                           std::size_t count) noexcept {
    std::size_t end = 0;
    while (end < text.size() && (!starts_code_point(text[end]) || count-- > 0))
        ++end;
    return text.substr(0, end);
}

}  // namespace common
