#include "camera/scenario/condition.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <nlohmann/json.hpp>

#include "camera/models/number_text.hpp"

namespace camera {
namespace {

using common::Json;

/// The number that a value is; NaN for any other value.
double number_of(const Json& value) {
    if (value.is_number())
        return value.get<double>();
    constexpr double infinity = std::numeric_limits<double>::infinity();
    // As `json_number` writes what JSON has no number for.
    if (value == "inf")
        return infinity;
    return value == "-inf" ? -infinity : std::numeric_limits<double>::quiet_NaN();
}

bool equals(const Json& value, const Json& is) {
    if (value == is)
        return true;
    // The bus carries a float as a double: 36.6 arrives as 36.599998474121094.
    return value.is_number() && is.is_number() &&
           value.get<double>() == static_cast<double>(static_cast<float>(is.get<double>()));
}

bool holds(const Json& value, const Json& part) {
    if (value.is_array())
        return std::ranges::find(value, part) != value.end();
    return value.is_string() && part.is_string() &&
           value.get_ref<const std::string&>().find(part.get_ref<const std::string&>()) !=
               std::string::npos;
}

}  // namespace

bool Condition::met(const Json& value) const {
    // Each comparison is false for NaN.
    const double number = number_of(value);
    return (!is || equals(value, *is)) && (!contains || holds(value, *contains)) &&
           (!above || number > *above) && (!below || number < *below) &&
           (!from || number >= *from) && (!to || number <= *to);
}

std::string Condition::text() const {
    std::string text;
    const auto add = [&text](const std::string& part) {
        text.append(text.empty() ? "" : " and ").append(part);
    };
    if (is)
        add(common::json_line(*is));
    if (from && to)
        add(fmt::format("between {} and {}", number_text(*from), number_text(*to)));
    if (above)
        add("above " + number_text(*above));
    if (below)
        add("below " + number_text(*below));
    return text;
}

}  // namespace camera
