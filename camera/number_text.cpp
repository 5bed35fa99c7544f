#include "camera/number_text.hpp"

#include <charconv>

#include "common/json_text.hpp"

namespace camera {

std::string number_text(double value) {
    const tool::Json number = tool::json_number(value);
    return number.is_string() ? number.get<std::string>() : number.dump();
}

std::optional<double> number_of(const std::string& text) {
    double number = 0.0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc{} || stop != end)
        return std::nullopt;
    return number;
}

}  // namespace camera
