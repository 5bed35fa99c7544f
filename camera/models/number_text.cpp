#include "camera/models/number_text.hpp"

#include <fmt/core.h>
#include <nlohmann/json.hpp>

#include <cmath>

#include "camera/models/command_error.hpp"
#include "common/text/json.hpp"
#include "common/text/number_text.hpp"

namespace camera {

std::string number_text(double value) {
    return common::plain_text(common::json_number(value));
}

double number_from_text(const std::string& text, const char* noun) {
    const std::optional<double> number = common::parse_number<double>(text);
    if (!number)
        throw CommandError(
            fmt::format("'{}' is not a valid {}: expected a number, nan, inf or -inf", text, noun));
    return *number;
}

double amount_from_text(const std::string& text, const char* noun, const char* otherwise) {
    const std::optional<double> number = common::parse_number<double>(text);
    if (!number || !std::isfinite(*number) || *number < 0.0)
        throw CommandError(
            fmt::format("'{}' is not a valid {}: expected a finite number of at least 0{}", text,
                        noun, otherwise));
    return *number;
}

}  // namespace camera
