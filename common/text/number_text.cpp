#include "common/text/number_text.hpp"

#include <array>
#include <cmath>
#include <cstdint>

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
    const auto append_digits = [&](auto... number) {
        char* const end = std::to_chars(digits.begin(), digits.end(), number...).ptr;
        text.append(digits.data(), static_cast<std::size_t>(end - digits.data()));
    };
    if (!is_fixed)
        return append_digits(value, std::chars_format::scientific);
    if (value != std::trunc(value))
        return append_digits(value, std::chars_format::fixed);
    // Whole numbers are common, and take a fraction of the time as such.
    if (value == 0.0 && std::signbit(value))
        text += '-';
    append_digits(static_cast<std::int64_t>(value));
    text += ".0";
}

void append_seconds(std::string& text, std::chrono::microseconds time) {
    constexpr std::int64_t second = 1'000'000;
    constexpr std::int64_t least_fixed = 100;  // below that `append_number` writes an exponent
    if (time.count() < least_fixed)
        return append_number(text, std::chrono::duration<double>(time).count());
    std::array<char, 24> digits;
    const char* const end = std::to_chars(digits.begin(), digits.end(), time.count() / second).ptr;
    text.append(digits.data(), static_cast<std::size_t>(end - digits.data())) += '.';
    // A second more, whose digit is left out, gives the others their zeros.
    std::to_chars(digits.begin(), digits.end(), time.count() % second + second);
    std::size_t size = 6;
    while (size > 1 && digits[size] == '0')
        --size;
    text.append(digits.data() + 1, size);
}

}  // namespace common
