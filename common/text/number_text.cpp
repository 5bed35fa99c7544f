#include "common/text/number_text.hpp"

#include <array>
#include <cmath>

namespace common {

void append_number(std::string& text, double value) {
    if (std::isnan(value)) {
        text += "nan";  // whatever its sign
        return;
    }
    // Beyond these a number has an exponent.
    constexpr double least_fixed = 1e-4;
    constexpr double end_of_fixed = 1e15;
    const double size = std::abs(value);
    const bool is_fixed = value == 0.0 || (size >= least_fixed && size < end_of_fixed);
    std::array<char, 32> digits;
    const auto format = is_fixed ? std::chars_format::fixed : std::chars_format::scientific;
    const char* const end =
        std::to_chars(digits.data(), digits.data() + digits.size(), value, format).ptr;
    const std::string_view number(digits.data(), static_cast<std::size_t>(end - digits.data()));
    text += number;
    if (is_fixed && number.find('.') == number.npos)
        text += ".0";
}

}  // namespace common
