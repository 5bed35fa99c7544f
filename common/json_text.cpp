#include "common/json_text.hpp"

#include <cmath>

namespace tool {

Json json_number(double value) {
    if (std::isnan(value))
        return "nan";
    if (std::isinf(value))
        return value > 0 ? "inf" : "-inf";
    return value;
}

std::string json_line(const Json& value) {
    return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string json_ascii(const Json& value) {
    return value.dump(-1, ' ', true, Json::error_handler_t::replace);
}

}  // namespace tool
